// Maximum a posteriori assignment of a chosen set of nodes: exactly, by
// branch and bound over partial assignments, or approximately, by simulated
// annealing. Both score an assignment m by P(m, evidence), one collect pass
// over join trees whose structure never changes.
#pragma once

#include <vector>

#include "inference/algorithmParams.h"

class VEK_network;

struct VEK_mapResult {
    double probability = 0.0;  // P(map assignment, evidence)
    double logProbability = 0.0;
    std::vector<int> handles;  // the MAP nodes, in the order given
    std::vector<int> outcomes;
};

// Largest number of joint configurations of the MAP nodes that the exact
// search accepts.
constexpr double VEK_EXACT_MAP_MAX_CONFIGURATIONS = 1048576.0;

// Checks a MAP set: every handle a discrete chance node, none twice, none
// with evidence. 0 or a negative status with a logged message.
[[nodiscard]] int VEK_checkMapNodes(VEK_network& net, const std::vector<int>& nodes);
// Checks a tuning record: -2 with a logged message for a negative value, a
// minimum temperature above the initial one, a speed not above 1 or no
// iterations per temperature.
[[nodiscard]] int VEK_checkAnnealedMapParams(VEK_network& net, const VEK_AnnealedMAPParams& p);

// 0, or -43 for impossible evidence, -2 for a bad MAP set or one with more
// configurations than the limit, -42 when a tree does not fit.
[[nodiscard]] int VEK_exactMap(VEK_network& net, const std::vector<int>& nodes, VEK_mapResult& out);
// Simulated annealing with the network's random generator (restarted from
// the network's seed). The probability of the result is exact.
[[nodiscard]] int VEK_annealedMap(VEK_network& net, const std::vector<int>& nodes, const VEK_AnnealedMAPParams& params,
                    VEK_mapResult& out);
