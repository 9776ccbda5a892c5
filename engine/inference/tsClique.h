// One clique of the join tree: its nodes, the separator towards its parent,
// the tables it hosts, its potential and messages, and the walks that tie
// them together.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "inference/tsMatrix.h"

class TsClique {
public:
    // The first node is the one whose elimination made the clique.
    TsSmallVec<int, 32> nodes;
    // Nodes shared with the parent (those that stayed in the graph).
    TsSmallVec<int, 32> sepNodes;
    // Product of the weights of the nodes (evidence nodes weigh 1).
    uint64_t size = 1;
    TsClique* parent = nullptr;
    TsSmallVec<TsClique*, 24> children;
    // Nodes whose conditional tables this clique multiplies in.
    TsSmallVec<int, 24> hosted;
    // Over the nodes without evidence; uninitialised means all ones.
    TsMatrix potential;
    bool initialised = false;
    // Message towards the parent, over the separator's nodes without
    // evidence, as the collect pass left it; fresh: the same marginal of the
    // calibrated parent, then the ratio fresh / message.
    TsMatrix message;
    double* fresh = nullptr;
    // Operands of the two passes over the potential. Collect: the hosted
    // tables and the children's messages are multiplied into the potential,
    // which is summed onto the message (the root also sums its total, its
    // children's fresh messages and the marginals read from it). Distribute:
    // the ratio is multiplied in and the children's fresh messages and the
    // marginals read from this clique are summed.
    struct Operand {
        enum Role : unsigned char { Table, ChildMessage, Ratio, OwnMessage, Total, ChildFresh, Marginal } role;
        int index;  // hosted position, child position or node
    };
    TsMultiOdometer collectWalk;
    std::vector<Operand> collectOps;
    int collectInputs = 0;
    TsMultiOdometer distributeWalk;
    std::vector<Operand> distributeOps;
    int distributeInputs = 0;
    // Per hosted table: pairs of (observed node, stride), which place the
    // walk at the observed slice of the table.
    std::vector<TsSmallVec<int64_t, 8>> hostEvidence;
    int creation = 0;
    // Position in the sorted clique list.
    int order = 0;

    bool Contains(int node) const { return nodes.contains(node); }
    // Canonical order of the node list: the eliminated node first, then the
    // others by ascending index.
    void SortNodes();

    // Makes cliques for one triangulation; all are freed with the pool.
    class Pool {
    public:
        explicit Pool(int nodeCount) : nodeCount_(nodeCount) {}
        TsClique* New();
        int Count() const { return static_cast<int>(cliques_.size()); }
        void Clear() { cliques_.clear(); }

        // Membership test for one clique at a time: Mark sets the clique's
        // nodes in a scratch array of one byte per node.
        void Mark(const TsClique& c);
        void Unmark(const TsClique& c);
        bool Marked(int node) const { return scratch_[static_cast<size_t>(node)] != 0; }
        // The scratch array is dropped once hosts are found.
        void FreeMembership() { std::vector<unsigned char>().swap(scratch_); }

    private:
        int nodeCount_;
        std::vector<std::unique_ptr<TsClique>> cliques_;
        std::vector<unsigned char> scratch_;
    };
};

// Sorting order for host search: smaller state spaces first, then fewer
// nodes, then creation order.
struct TsCliqueComparer {
    bool operator()(const TsClique* a, const TsClique* b) const {
        if (a->size != b->size) return a->size < b->size;
        if (a->nodes.size() != b->nodes.size()) return a->nodes.size() < b->nodes.size();
        return a->creation < b->creation;
    }
};
