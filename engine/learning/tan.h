// Tree-augmented naive Bayes: naive Bayes plus a maximum spanning tree
// over the other columns weighted by their mutual information given the
// class (Chow and Liu's tree, conditioned), each tree rooted at its
// lowest-numbered column and directed away from it. Edges whose both
// directions the background knowledge forbids are left out of the tree.
#pragma once

#include <string>

#include "learning/structureLearner.h"

class VEK_network;

class VEK_tan : public VEK_classifierLearner {
public:
    // Replaces net on success.
    [[nodiscard]] int Learn(const VEK_dataset& data, VEK_network& net, std::string* errorMessage = nullptr) const;
};
