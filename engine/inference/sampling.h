// Stochastic sampling and message passing over the sub-networks of a
// relevance split (Bayesian algorithm ids 1 to 9).
#pragma once

class SampleNet;
class VEK_network;

using VEK_sampleMethod = int (SampleNet::*)();

// Invalidates the beliefs, restarts the network's generator, splits with
// mask 3 and runs the method on every sub-network. 0, or -5 (logged) when the
// method failed on some sub-network; the sub-networks solved before keep
// their beliefs.
[[nodiscard]] int RunSampling(VEK_network& net, VEK_sampleMethod method);

[[nodiscard]] int VEK_Infer_Henrion(VEK_network& net);
[[nodiscard]] int VEK_Infer_LSampling(VEK_network& net);
[[nodiscard]] int VEK_Infer_Self_Importance(VEK_network& net);
[[nodiscard]] int VEK_Infer_Bksampling(VEK_network& net);
[[nodiscard]] int VEK_Infer_AISsampling(VEK_network& net);
[[nodiscard]] int VEK_Infer_EPISsampling(VEK_network& net);
[[nodiscard]] int VEK_Infer_LBP(VEK_network& net);

// Exact propagation on every sub-network of a split with mask 7 whose arcs
// form a tree. 0, -43 for impossible evidence, -42 when memory runs out.
[[nodiscard]] int VEK_Infer_Pearl(VEK_network& net);
