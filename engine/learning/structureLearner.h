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
    // 0 seeds the random generator from the clock.
    unsigned seed = 0;
    VEK_bkKnowledge bk;

protected:
    [[nodiscard]] int Prepare(const VEK_dataset& data, VEK_familyCounts& counts, VEK_bkConstraints& constraints,
                std::string* errorMessage) const;
};

// Classifier learners: a class column and a parameter prior.
class VEK_classifierLearner : public VEK_structureLearner {
public:
    std::string classVariable;
    double ess = 1.0;

    // -2 with a message for a negative equivalent sample size.
    [[nodiscard]] int CheckSettings(std::string* errorMessage) const;

protected:
    // Prepare, then find the class column (-3 when the data lacks it).
    [[nodiscard]] int PrepareClass(const VEK_dataset& data, VEK_familyCounts& counts, VEK_bkConstraints& constraints,
                     int& classColumn, std::string* errorMessage) const;
    // Adds the forced arcs missing from a fixed structure and refuses
    // (-4, -11) one that breaks the knowledge or has a cycle.
    [[nodiscard]] static int ApplyKnowledge(std::vector<std::vector<int>>& parents, const VEK_bkConstraints& constraints,
                              const VEK_dataset& data, std::string* errorMessage);
};

// Score-based learners: score type, equivalent sample size (BDeu prior and
// parameter prior), parent limit.
class VEK_scoreLearner : public VEK_structureLearner {
public:
    int scoreType = 0;  // VEK_structureScore::Type
    double ess = 1.0;
    int maxParents = 8;
    // Candidate arcs: pairs of columns that the PC adjacency phase, at this
    // significance and conditioning on up to candidateAdjacency neighbours,
    // finds independent are never joined (forced arcs excepted). A
    // significance of 0 makes every pair a candidate.
    double candidateSignificance = 0.01;
    int candidateAdjacency = 2;
    // Whether the candidate arcs also follow the directions that the PC
    // orientation phase gives those pairs.
    bool candidateOrientation = true;

    // -2 with a message for settings out of range.
    [[nodiscard]] int CheckSettings(std::string* errorMessage) const;

protected:
    // Forbids the arcs between pairs that are not candidates.
    void RestrictCandidates(const VEK_familyCounts& counts, VEK_bkConstraints& constraints) const;
};
