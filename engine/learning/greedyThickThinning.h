// Greedy thick-thinning: from the forced arcs, add the arc that raises the
// score most until none does, then remove the arc whose removal raises it
// most until none does.
#pragma once

#include <string>

#include "learning/structureLearner.h"

class VEK_network;

class VEK_greedyThickThinning : public VEK_scoreLearner {
public:
    // Replaces net with the learnt, fitted network; on failure returns a
    // negative code with a message and leaves net unchanged.
    [[nodiscard]] int Learn(const VEK_dataset& data, VEK_network& net, std::string* errorMessage = nullptr) const;
};
