// What inference keeps in a network between updates: compiled join trees
// (structure, odometers and potential storage) by the structure of the
// sub-network they were built for, potentials stored for later readers, and
// the probability of evidence found by the last update.
//
// A compiled tree never holds numbers derived from tables, so it stays valid
// for any evidence values and any table contents: only the structure key
// decides whether it can be reused.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <vector>

#include "network/dmatrix.h"
#include "network/intArray.h"

class TsJoinTree;

// One clique potential copied out of a join tree.
struct VEK_storedPotential {
    VEK_intArray handles;  // the potential's dimensions, by network handle
    VEK_Dmatrix potential;
};

class VEK_inferenceCache {
public:
    VEK_inferenceCache();
    ~VEK_inferenceCache();
    VEK_inferenceCache(const VEK_inferenceCache&) = delete;
    VEK_inferenceCache& operator=(const VEK_inferenceCache&) = delete;

    // Starts a pass over the sub-networks of one relevance split. The trees
    // that the current and the previous pass found or stored stay, however
    // many there are: a split into more sub-networks than kMaxTrees would
    // otherwise evict its own trees and compile every one of them again on
    // every update, and so would two evidence patterns used in turn.
    void BeginPass() { ++pass_; }
    // The tree compiled for this key, made most recent; null when none.
    TsJoinTree* FindTree(const std::vector<int>& key) { return FindTree(key, Hash(key)); }
    TsJoinTree* FindTree(const std::vector<int>& key, uint64_t hash);
    // Keeps a tree; older trees go when there are too many or when their
    // storage passes the budget. Returns the stored tree.
    TsJoinTree* StoreTree(std::vector<int>&& key, std::unique_ptr<TsJoinTree> tree);
    void DropTrees();
    int TreeCount() const { return static_cast<int>(trees_.size()); }

    // Whether relevance reasoning pays for an evidence pattern (the key of
    // the whole network as built for a run, with its targets and soft
    // evidence): 1 when the whole network's tree is used instead of the
    // reduced ones, 0 when not, -1 when not yet decided.
    int FindChoice(const std::vector<int>& pattern, uint64_t hash) const;
    void StoreChoice(const std::vector<int>& pattern, uint64_t hash, bool whole);
    // Key buffers reused by every run rather than allocated for each.
    std::vector<int> patternKey;
    std::vector<int> treeKey;

    // Potentials stored by the join tree after each run (off by default).
    bool WillStorePotentials() const { return storePotentials_; }
    void SetStorePotentials(bool on) { storePotentials_ = on; }
    std::vector<VEK_storedPotential>& Potentials() { return potentials_; }
    void RemovePotentials() { std::vector<VEK_storedPotential>().swap(potentials_); }

    // Bumped by every invalidation of beliefs.
    uint64_t BeliefsVersion() const { return version_; }
    void BumpBeliefsVersion() {
        ++version_;
        probEValid_ = false;
    }
    // Probability of evidence found by the update that made the current beliefs.
    void SetLastProbEvidence(double p) {
        probE_ = p;
        probEValid_ = true;
    }
    bool GetLastProbEvidence(double& p) const {
        if (probEValid_) p = probE_;
        return probEValid_;
    }

    // Summed clique-table sizes of the join trees used by the last update.
    uint64_t lastCliqueEntries = 0;

    // Set while the propagated evidence is being recomputed, so that the
    // changes this makes do not start it again.
    bool determining = false;

    // Hash of key[from..]; a key's hash continues from the hash of its
    // prefix when that is passed as the seed.
    static constexpr uint64_t kHashSeed = 1469598103934665603ULL;
    static uint64_t Hash(const std::vector<int>& key, size_t from = 0, uint64_t seed = kHashSeed);

    // Entries beyond the most recent one keep at most this many doubles.
    static constexpr int64_t kArenaBudget = int64_t(1) << 25;
    // Trees of older passes kept, and trees of the last two passes protected.
    static constexpr int kMaxTrees = 16;
    static constexpr int kMaxPassTrees = 4096;
    // Decided evidence patterns kept; the oldest goes first.
    static constexpr int kMaxChoices = 64;

private:
    struct Entry {
        std::vector<int> key;
        uint64_t hash = 0;
        uint64_t pass = 0;
        std::unique_ptr<TsJoinTree> tree;
    };
    void Trim();

    struct Choice {
        std::vector<int> pattern;
        uint64_t hash = 0;
        bool whole = false;
    };

    std::list<Entry> trees_;  // most recent first
    std::list<Choice> choices_;  // most recent first
    bool storePotentials_ = false;
    std::vector<VEK_storedPotential> potentials_;
    uint64_t version_ = 0;
    uint64_t pass_ = 0;
    double probE_ = 0.0;
    bool probEValid_ = false;
};
