// Triangulation of a sub-network's moral graph by greedy elimination. Each
// elimination makes one clique; simplicial nodes go first, then the node that
// the heuristic picks. The sum of the cliques' state spaces is bounded.
//
// Clique sizes and fill-in costs are cached per node and recomputed only when
// the node's neighbourhood changed, so a whole elimination costs a few scans
// of the node list per step.
#pragma once

#include <cstdint>
#include <vector>

#include "inference/tsClique.h"

class TsAdapter;

// Limits of the summed clique sizes.
constexpr uint64_t TS_DEFAULT_LIMIT = uint64_t(1) << 28;
constexpr uint64_t TS_UNLIMITED = 1152921504606846975ULL;

class TsTriangulator {
public:
    // Rules for choosing the next node to eliminate. The first three are the
    // public heuristics 1 to 3; the others are used by the automatic choice
    // (heuristic 0), which keeps the smallest of several triangulations.
    enum class Rule {
        MinCliqueWidth = 1,        // smallest clique; ties: first met
        MinNewEdges = 2,           // fewest fill-ins; ties: smaller clique
        MinCliqueThenEdges = 3,    // smallest clique; ties: fewer fill-ins
        MinWeightedFill = 4,       // fill-ins weighted by the product of their ends' weights
        RandomWeightedFill = 5,    // a random node among those close to the smallest weighted fill
    };

    explicit TsTriangulator(const TsAdapter& adapter);

    // 0 means 2^28, -1 (or any negative) unlimited.
    static uint64_t EffectiveLimit(int64_t limit);

    // heuristic: sign = scan order (negative: last index first), absolute
    // value = rule 1, 2 or 3. Cliques go to the pool and to cliques in
    // creation order. False when the limit is passed, a clique would hold
    // more than 30 nodes, a size overflows or the heuristic is unknown.
    [[nodiscard]] bool Triangulate(int64_t limit, int heuristic, TsClique::Pool& pool, std::vector<TsClique*>& cliques);
    // The same with an effective limit and any rule; seed drives the random rule.
    [[nodiscard]] bool TriangulateWith(uint64_t limit, Rule rule, bool reverse, uint64_t seed, TsClique::Pool& pool,
                         std::vector<TsClique*>& cliques);

    // Eliminates the nodes (positions) in the given order, which must hold
    // each node once.
    [[nodiscard]] bool TriangulateInOrder(uint64_t limit, const std::vector<int>& order, TsClique::Pool& pool,
                            std::vector<TsClique*>& cliques);

    uint64_t GetTotalSize() const { return sum_; }
    const std::vector<int>& GetEliminationOrder() const { return order_; }
    // Adjacency tests and similar steps done so far: a deterministic measure
    // of the time spent.
    uint64_t GetWork() const { return work_; }

private:
    struct NodeRec {
        std::vector<uint16_t> neighbours;
        uint64_t cliqueSize = 0;  // 0 after an overflow
        int fillCount = 0;
        double fillWeight = 0.0;
        bool valid = false;  // cliqueSize and the fill values are current
        int weight = 1;
        bool eliminated = false;
    };

    [[nodiscard]] bool Moralize();
    [[nodiscard]] bool HeuristicSearch(Rule rule, bool reverse);
    [[nodiscard]] bool RemoveSimplicials();
    // The first live node, in index order or reversed, that no other node
    // is better than.
    template <class Better>
    int PickBest(bool reverse, Better better);
    int HeurMinCliqueWidth(bool reverse);
    int HeurMinNewEdges(bool reverse);
    int HeurMinCliqueThenEdges(bool reverse);
    int HeurMinWeightedFill(bool reverse);
    int HeurRandomWeightedFill();
    void AddFillIns(int node);
    [[nodiscard]] bool AddClique(int node, uint64_t size);

    bool Adjacent(int a, int b) const {
        const size_t bit = static_cast<size_t>(a) * static_cast<size_t>(n_) + static_cast<size_t>(b);
        return (adj_[bit >> 6] >> (bit & 63)) & 1;
    }
    void Connect(int a, int b);
    void RemoveFromGraph(int node);
    // Brings the node's cached clique size and fill-in values up to date.
    NodeRec& Current(int node);
    uint64_t CliqueSize(int node) { return Current(node).cliqueSize; }

    const TsAdapter& adapter_;
    int n_ = 0;
    std::vector<NodeRec> nodes_;
    // One bit per ordered pair of nodes.
    std::vector<uint64_t> adj_;
    uint64_t limit_ = TS_DEFAULT_LIMIT;
    uint64_t sum_ = 0;
    int eliminated_ = 0;
    std::vector<int> order_;
    TsClique::Pool* pool_ = nullptr;
    std::vector<TsClique*>* cliques_ = nullptr;
    uint64_t work_ = 0;
    uint64_t rng_ = 1;
    std::vector<int> candidates_;
};
