// Most probable explanation: the jointly most probable assignment of every
// node without evidence, by max-product on the same join trees that belief
// updating compiles.
#pragma once

#include <vector>

class VEK_network;
class TsAdapter;
class TsJoinTree;

struct VEK_mpeResult {
    // P(assignment, evidence), virtual evidence weighing in as likelihoods.
    double probability = 0.0;
    double logProbability = 0.0;
    // Every node in handle order with its outcome; observed nodes keep
    // their evidence.
    std::vector<int> handles;
    std::vector<int> outcomes;
};

// 0, -43 when the evidence is impossible (logged as belief updating logs
// it), -42 when a tree does not fit, or the status of a network that cannot
// be updated.
[[nodiscard]] int VEK_mostProbableExplanation(VEK_network& net, VEK_mpeResult& out);

// After a max-product collect pass over the tree: the maximising outcome of
// every node of the adapter's sub-network into states (by position;
// observed nodes get their evidence). Ties go to the configuration that
// comes first in each potential's layout, so results repeat exactly.
void VEK_maxProductTraceback(const TsJoinTree& tree, const TsAdapter& adapter, std::vector<int>& states);
