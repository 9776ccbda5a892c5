// The network as the analyses see it: its connected sub-networks with
// nothing pruned, one compiled join tree for each, and a way to
// restrict any node to one outcome without changing the trees' structure
// (the outcome's indicator is multiplied into the node's table), so that
// many probabilities of evidence over the same trees cost one collect pass
// each.
#pragma once

#include <memory>
#include <vector>

#include "inference/rNetwork.h"
#include "inference/tsAdapter.h"
#include "inference/tsJoinTree.h"
#include "network/dmatrix.h"

class VEK_network;

class VEK_analysisTree {
public:
    VEK_analysisTree() = default;
    VEK_analysisTree(const VEK_analysisTree&) = delete;
    VEK_analysisTree& operator=(const VEK_analysisTree&) = delete;

    // Splits the network and builds the trees; 0 or a negative status
    // (logged), -42 when a tree does not fit in memory. With absorb, evidence
    // is absorbed into the children (smaller trees, but the children's tables
    // lose the observed dimensions).
    [[nodiscard]] int Build(VEK_network& net, bool absorb = true);

    int ComponentCount() const { return static_cast<int>(parts_.size()); }
    // Where a network handle lives: its component and position there.
    int ComponentOf(int handle) const { return where_[static_cast<size_t>(handle)].first; }
    int PositionOf(int handle) const { return where_[static_cast<size_t>(handle)].second; }
    VEK_rNetwork& Reduced(int comp) const { return *parts_[static_cast<size_t>(comp)].net; }

    // Restricts the node to the outcome (-1 lifts the restriction).
    void Restrict(int handle, int outcome);

    // Probability of the evidence (and restrictions) of one component or of
    // all; -1.0 when a tree fails.
    double ProbEvidence(int comp);
    double ProbEvidence();

    // The partial derivatives of the component's probability of evidence
    // with respect to every entry of every node's table (as the trees use
    // it), added to out[position]: one collect pass and one outward pass
    // of messages that leave each table out in turn, with no division, so
    // that zeros in the tables lose nothing. pY receives the probability.
    [[nodiscard]] bool TablePartials(int comp, std::vector<std::vector<double>>& out, double& pY);

private:
    struct Part {
        std::unique_ptr<VEK_rNetwork> net;
        std::unique_ptr<TsAdapter> adapter;
        std::unique_ptr<TsJoinTree> tree;
    };
    VEK_rNode* Node(int handle) const;
    void Refresh(int handle);

    VEK_network* net_ = nullptr;
    std::vector<Part> parts_;
    std::vector<std::pair<int, int>> where_;
    // Per handle: the base table (empty until the node is first
    // restricted) and the restriction.
    std::vector<VEK_Dmatrix> base_;
    std::vector<int> restriction_;
};
