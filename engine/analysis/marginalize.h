// Removal of a chance node with the joint distribution over the remaining
// nodes unchanged: the arc to each child, earliest child first, is
// reversed (the child takes the node's parents, the node takes the child
// and its parents), which leaves the node without children, and it goes.
#pragma once

class VEK_network;

// 0; -2 for an invalid handle; -51 for a decision, utility or other node
// without a probability table, a node with evidence, or a node whose
// children do not hold plain tables; -42 when a rewritten table would be too
// large. On failure the network is unchanged.
[[nodiscard]] int VEK_marginalizeNode(VEK_network& net, int handle);
