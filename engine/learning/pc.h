// The stable PC algorithm: from the complete graph, remove the edge x - y
// when x and y test independent given some set of x's neighbours of size
// 0, 1, ... up to the adjacency limit, where the neighbour sets of a level
// are fixed at its start so that the result does not depend on column
// order. Then orient: background knowledge first, v-structures x -> z <- y
// where z is in fewer than half of the sets that separate x and y, then
// Meek's rules 1-3.
// Independence is a G-test (or Pearson's chi-square) at the significance
// level, with degrees of freedom counted over the non-empty rows and
// columns of each stratum.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "learning/structureLearner.h"

class VEK_pattern;

class VEK_pc : public VEK_structureLearner {
public:
    enum Test { G_TEST = 0, CHI_SQUARE = 1 };

    double significance = 0.05;
    int maxAdjacency = 8;
    int test = G_TEST;

    [[nodiscard]] int CheckSettings(std::string* errorMessage) const;
    // Replaces pattern on success.
    [[nodiscard]] int Learn(const VEK_dataset& data, VEK_pattern& pattern, std::string* errorMessage = nullptr) const;

    // The adjacency phase alone: adj[a * n + b] for n columns, and the
    // separating set of each removed pair (a < b) when sepsets is given.
    static void Skeleton(const VEK_familyCounts& counts, const VEK_bkConstraints& bkc, double significance,
                         int maxAdjacency, int test, std::vector<char>& adj,
                         std::map<std::pair<int, int>, std::vector<int>>* sepsets);

    // Replaces each removed pair's separating set by the common neighbours
    // that most of the pair's separating sets hold.
    static void MajorityRule(const VEK_familyCounts& counts, const std::vector<char>& adj, double significance,
                             int maxAdjacency, int test, std::map<std::pair<int, int>, std::vector<int>>& sepsets);

    // The orientation phase on a skeleton: knowledge, v-structures, Meek.
    static void Orient(const std::vector<char>& adj, const std::map<std::pair<int, int>, std::vector<int>>& sepsets,
                       const VEK_bkConstraints& bkc, VEK_pattern& pattern);

    // Upper tail of the chi-square distribution with df degrees of freedom.
    static double ChiSquareTail(double x, double df);
};
