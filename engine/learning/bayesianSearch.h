// Score-based search: hill climbing by arc additions, removals and
// reversals from the forced arcs over the candidate arcs, then restarts
// from the best structure found, perturbed by flipping each candidate pair
// with the link probability. Climbs over all arcs, from that best and from
// the forced arcs, then compete with it. Runs the given number of candidate climbs, or fewer when
// the time limit (seconds, 0 for none) runs out.
#pragma once

#include <string>

#include "learning/structureLearner.h"

class VEK_network;

class VEK_bayesianSearch : public VEK_scoreLearner {
public:
    int iterations = 20;
    double linkProbability = 0.3;
    double timeLimit = 0.0;

    [[nodiscard]] int CheckSettings(std::string* errorMessage) const;
    // Replaces net with the learnt, fitted network; on failure returns a
    // negative code with a message and leaves net unchanged. The score of
    // the result goes to lastScore when given.
    [[nodiscard]] int Learn(const VEK_dataset& data, VEK_network& net, std::string* errorMessage = nullptr,
              double* lastScore = nullptr) const;
};
