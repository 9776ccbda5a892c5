// The stable PC algorithm: from the complete graph, remove the edge x - y
// when x and y test independent given some set of x's neighbours of size
// 0, 1, ... up to the adjacency limit, where the neighbour sets of a level
// are fixed at its start so that the result does not depend on column
// order. Then orient: background knowledge first, v-structures x -> z <- y
// where z is not in the separating set of x and y, then Meek's rules 1-3.
// Independence is a G-test (or Pearson's chi-square) at the significance
// level, with degrees of freedom counted over the non-empty rows and
// columns of each stratum.
#pragma once

#include <string>
#include <vector>

#include "learning/structureLearner.h"

class VEK_pattern;

class VEK_pc : public VEK_structureLearner {
public:
    enum Test { G_TEST = 0, CHI_SQUARE = 1 };

    double significance = 0.05;
    int maxAdjacency = 8;
    int test = G_TEST;

    int CheckSettings(std::string* errorMessage) const;
    // Replaces pattern on success.
    int Learn(const VEK_dataset& data, VEK_pattern& pattern, std::string* errorMessage = nullptr) const;

    // Upper tail of the chi-square distribution with df degrees of freedom.
    static double ChiSquareTail(double x, double df);
};
