// Join-tree clustering over the sub-networks of a relevance split (algorithm
// id 0), the decompositions that compute beliefs batch by batch when the
// whole tree does not fit (ids 11 and 12, and the fallback of id 0), and the
// probability of evidence.
#pragma once

#include <cstdint>

class VEK_network;

// Id 0. 0, -43 when some potential was all zeros, -42 when the tree does not
// fit and no decomposition is possible or allowed, or the status of a model
// that cannot be updated.
[[nodiscard]] int TsClustering(VEK_network& net);
// Id 11 and the fallback of id 0.
[[nodiscard]] int TsClusteringLinearDecomp(VEK_network& net);
// Id 12.
[[nodiscard]] int TsClusteringRecursiveDecomp(VEK_network& net);

// Relevance split with mask 7 and one join tree per sub-network. pending
// (indexed by handle, may be null) selects the nodes to compute. False when
// some sub-network fails; *status then holds a model error (negative) or 0
// when the failure was size or memory. *probE receives the product of the
// sub-networks' probabilities of evidence when that is the network's (no
// barren node removed), else -1.
[[nodiscard]] bool DoClustering(VEK_network& net, bool* pending, int64_t limit, int* zeroCounter, int* status = nullptr,
                  double* probE = nullptr);

// Probability of evidence by relevance split with mask 1 and one collect
// pass per sub-network. 0 or a negative status.
[[nodiscard]] int TsClusteringProbE(VEK_network& net, double& p);
[[nodiscard]] int CalcProbEvidence_JoinTree(VEK_network& net, double& p);
