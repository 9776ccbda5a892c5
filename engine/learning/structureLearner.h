// What the structure learners share: a random seed, background knowledge,
// and the preparation of a dataset into packed counts and resolved
// constraints, which refuses data the learners cannot use.
#pragma once

#include <string>
#include <vector>

#include "learning/bkKnowledge.h"
#include "learning/familyCounts.h"

class VEK_dataset;

class VEK_structureLearner {
public:
    unsigned seed = 0;
    VEK_bkKnowledge bk;

protected:
    int Prepare(const VEK_dataset& data, VEK_familyCounts& counts, VEK_bkConstraints& constraints,
                std::string* errorMessage) const;
};

// Classifier learners: a class column and a parameter prior.
class VEK_classifierLearner : public VEK_structureLearner {
public:
    std::string classVariable;
    double ess = 1.0;

protected:
    // Prepare, then find the class column (-3 when the data lacks it).
    int PrepareClass(const VEK_dataset& data, VEK_familyCounts& counts, VEK_bkConstraints& constraints,
                     int& classColumn, std::string* errorMessage) const;
    // Adds the forced arcs missing from a fixed structure and refuses
    // (-4, -11) one that breaks the knowledge or has a cycle.
    static int ApplyKnowledge(std::vector<std::vector<int>>& parents, const VEK_bkConstraints& constraints,
                              const VEK_dataset& data, std::string* errorMessage);
};

// Score-based learners: score type, equivalent sample size (BDeu prior and
// parameter prior), parent limit.
class VEK_scoreLearner : public VEK_structureLearner {
public:
    int scoreType = 0;  // VEK_structureScore::Type
    double ess = 10.0;
    int maxParents = 8;

    // -2 with a message for settings out of range.
    int CheckSettings(std::string* errorMessage) const;
};
