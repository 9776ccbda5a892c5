// Decomposable Bayesian scores of one family (a child and its parents) from
// its counts: BDeu with an equivalent sample size, K2 (unit Dirichlet
// prior) and BIC, all as natural-log values where larger is better. The
// score of a network is the sum of its families' scores.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

class VEK_familyCounts;

class VEK_structureScore {
public:
    enum Type { BDEU = 0, K2 = 1, BIC = 2 };

    // Name of a type ("bdeu", "k2", "bic") and back; -1 for an unknown name.
    static const char* TypeName(int type);
    static int TypeFromName(const std::string& name);

    VEK_structureScore(const VEK_familyCounts& counts, int type, double ess);

    // Score of child given parents (in any order); cached by family.
    double Family(int child, const std::vector<int>& parents);
    // Score of child given parents plus extra (none when extra < 0), where
    // index is the configuration index of parents, in their order, over q
    // configurations: one pass over the records when not cached.
    bool Cached(int child, const std::vector<int>& parents, int extra, double& value) const;
    double FamilyPlus(int child, const std::vector<int>& parents, const std::vector<int>& index, int q, int extra);
    // Score of a family whose counts are at hand: counts[j * r + k] for q
    // configurations of r states.
    double FromCounts(const int* counts, int q, int r) const;

    const VEK_familyCounts& Counts() const { return counts_; }
    // Largest table (configurations times states) a family may have; larger
    // families score minus infinity.
    long long TableLimit() const { return tableLimit_; }

private:
    const VEK_familyCounts& counts_;
    int type_;
    double ess_;
    double logRecords_;
    long long tableLimit_;
    std::vector<double> logTable_;  // n * log(n) for small n
    std::string Key(int child, std::vector<int> parents) const;

    std::unordered_map<std::string, double> cache_;
    std::vector<int> buffer_;
};
