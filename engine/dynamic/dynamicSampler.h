// Belief updating of dynamic networks with equation nodes: the network is
// unrolled (unroll.h) and the unrolled network sampled by the hybrid sampler
// (likelihood weighting; the exact algorithms are replaced by it, since the
// slices' values are continuous). Plate nodes get the beliefs or samples of
// every slice, the other nodes their own.
#pragma once

class VEK_network;

[[nodiscard]] int VEK_updateDynamicHybrid(VEK_network& net);
