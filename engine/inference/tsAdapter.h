// The join tree's view of one reduced sub-network: node count, states,
// parents, tables and evidence by position, and the way back to the network
// for beliefs, targets, settings and error reports. Owns nothing.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "network/dmatrix.h"
#include "network/intArray.h"

class VEK_network;
class VEK_rNetwork;

class TsAdapter {
public:
    // zeroCounter, when given, counts the nodes reported by ReportZeroPotential.
    explicit TsAdapter(VEK_rNetwork& net, int* zeroCounter = nullptr);

    int GetNodeCount() const;
    int GetStateCount(int i) const;
    // Positions of the node's parents, in the order of its table's dimensions.
    void GetParents(int i, VEK_intArray& list) const;
    int GetParentCount(int i) const;
    int GetParent(int i, int k) const;
    // The conditional table, reduced by relevance where it was reduced.
    const VEK_Dmatrix& GetMatrix(int i) const;
    // Observed state, negative when none.
    int GetEvidence(int i) const;
    const char* GetNodeId(int i) const;
    int GetNodeHandle(int i) const;
    // Position of a network handle, -1 when the node is not in this view.
    int FindHandle(int handle) const;
    // True when the network has no targets at all, else the target flag.
    bool IsTarget(int i) const;
    // The node value's matrix that receives the beliefs.
    VEK_Dmatrix* GetBeliefs(int i);
    // Marks the node's value computed.
    void SetValueValid(int i);
    // An observed node's value holds its evidence vector; rebuilt when some
    // change on the value dropped it.
    void EnsureEvidenceValue(int i);
    VEK_network& GetOrigNetwork() const;
    VEK_rNetwork& GetReducedNetwork() const { return *net_; }
    bool WillStorePotentials() const;
    // A matrix with the state counts of the given nodes as its dimensions.
    void GetPotentialMatrix(const VEK_intArray& nodes, const VEK_intArray& states, VEK_Dmatrix& out) const;
    void ReportZeroPotential(int i);
    // The user property "VEK_TRIANG_HEUR" (default 0).
    int GetDefaultTriangHeuristics() const;

    // Ranks of an elimination order of the whole network, indexed by the
    // reduced nodes' VEK_rNode::built, made on the first request (null when
    // there is none). A reduced network triangulates worse than the whole
    // one at times; that order restricted to its nodes is then a candidate.
    using WholeOrder = std::function<const std::vector<int>*()>;
    void SetWholeOrder(WholeOrder source) { wholeOrder_ = std::move(source); }
    // Positions of this view's nodes in the whole network's order; false
    // when there is none.
    bool GetWholeOrder(std::vector<int>& order) const;

    // Everything a join tree's structure depends on: nodes, their states,
    // whether they are observed, and their parents. Equal keys give equal
    // trees.
    void GetStructureKey(int heuristic, std::vector<int>& key) const;

private:
    VEK_rNetwork* net_;
    int* zeroCounter_;
    mutable std::vector<int> handleIndex_;
    WholeOrder wholeOrder_;
};
