// Naive Bayes: the class column is the only parent of every other column
// (plus any forced arcs), tables fitted with the prior of ess.
#pragma once

#include <string>

#include "learning/structureLearner.h"

class VEK_network;

class VEK_naiveBayes : public VEK_classifierLearner {
public:
    // Replaces net on success.
    [[nodiscard]] int Learn(const VEK_dataset& data, VEK_network& net, std::string* errorMessage = nullptr) const;
};
