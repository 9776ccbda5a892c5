// Greedy search over directed acyclic graphs of dataset columns under a
// decomposable score: at each step the single arc addition, removal or
// reversal that raises the score most, within the background knowledge and
// a parent limit. Score changes are kept per child and recomputed only for
// the children a move touches; reachability is kept as bit rows so that
// cycle checks cost one lookup.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "learning/bkKnowledge.h"

class VEK_familyCounts;
class VEK_randGen;
class VEK_structureScore;

class VEK_dagSearch {
public:
    enum Moves { ADD = 1, REMOVE = 2, REVERSE = 4 };
    using Clock = std::chrono::steady_clock;

    VEK_dagSearch(VEK_structureScore& score, const VEK_bkConstraints& bk, int maxParents);

    // Starts from the given parent lists, or from the forced arcs alone
    // when none are given.
    void Start(const std::vector<std::vector<int>>* parents = nullptr);
    // Applies the best improving move of the allowed kinds until none
    // improves or the deadline passes; returns the number of moves made.
    int Climb(int moves, Clock::time_point deadline = Clock::time_point::max());
    // Flips each ordered pair of columns with the given probability: an
    // arc that may go is removed, a missing one that may come is added.
    void Perturb(double probability, VEK_randGen& gen);

    double Score() const;
    const std::vector<std::vector<int>>& Parents() const { return parents_; }

private:
    bool HasArc(int u, int v) const;
    bool Reaches(int from, int to) const { return (reach_[from * words_ + (to >> 6)] >> (to & 63)) & 1; }
    void Refresh(int child);
    void UpdateReach();
    void AddArc(int u, int v);
    void RemoveArc(int u, int v);

    VEK_structureScore& score_;
    const VEK_familyCounts& counts_;
    const VEK_bkConstraints& bk_;
    int n_;
    int maxParents_;
    int words_;
    std::vector<std::vector<int>> parents_;
    std::vector<double> local_;
    std::vector<double> addDelta_;     // [u * n + v]: adding u -> v
    std::vector<double> removeDelta_;  // [u * n + v]: removing u -> v
    std::vector<std::uint64_t> reach_;
    std::vector<int> index_;
};
