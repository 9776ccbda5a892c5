// The dynamic-network extension of a network: temporal arcs between plate
// nodes, the temporal definitions they call for, evidence per time slice and
// the temporal plate's presentation.
//
// A temporal arc (parent, child, order k >= 1) links the parent in slice t-k
// to the child in slice t. A plate node whose incoming temporal arcs have the
// orders K = {k1 < k2 < ...} has one table per order in K besides its
// ordinary definition; slice t uses the table of the largest order in K that
// is at most t, and the ordinary definition when there is none. The table of
// order k is indexed by the node's static parents in parent order (anchor
// parents excepted: they reach slice 0 only), then its temporal parents of
// orders 1 to k (by increasing order, within one order in the order their
// arcs were added), with the node's own outcome fastest.
//
// A noisy-MAX plate node keeps, per order k, CI weights over the parents of
// that table (one block of columns per parent, the leak last, as the
// ordinary definition lays them out) and its table is computed from them:
// static parents take their strengths from the ordinary definition, each
// temporal arc has its own. Blocks follow the graph by parent: a parent that
// stays keeps its columns, a new one starts uniform.
//
// A DeMorgan or noisy-adder plate node keeps, per order k, the parameters of
// its static definition class laid out over the parents of that table: a
// definition of the node's kind in a small network of its own, over one
// stand-in per parent. That definition follows the graph as a static one
// does (stand-ins come and go with the parents, parameters of a parent that
// stays are kept) and computes the table.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "network/dmatrix.h"
#include "network/intArray.h"
#include "network/screenInfo.h"

class VEK_network;
class VEK_nodeDef;

struct VEK_temporalArc {
    int node;  // the parent (or, for children lists, the child)
    int order;
    bool operator==(const VEK_temporalArc&) const = default;
};

class VEK_dynamicNet {
public:
    explicit VEK_dynamicNet(VEK_network& net) : net_(&net) {}
    VEK_dynamicNet(const VEK_dynamicNet& other, VEK_network& net);
    // The network took the extension over from another (file reading).
    void Rebind(VEK_network& net) { net_ = &net; }

    // ---- temporal arcs ----------------------------------------------------
    [[nodiscard]] int AddTemporalArc(int parent, int child, int order);
    [[nodiscard]] int RemoveTemporalArc(int parent, int child, int order);
    bool TemporalArcExists(int parent, int child, int order) const;
    // Incoming arcs in the order they were added.
    const std::vector<VEK_temporalArc>& GetTemporalParents(int node) const;
    // Parents of exactly this order, in the order their arcs were added.
    void GetTemporalParents(int node, int order, std::vector<VEK_temporalArc>& out) const;
    // Outgoing arcs (child handle, order), children in handle order.
    void GetTemporalChildren(int node, std::vector<VEK_temporalArc>& out) const;
    // Distinct orders of the node's incoming arcs, ascending.
    void GetTemporalOrders(int node, std::vector<int>& out) const;
    int GetMaxNodeTemporalOrder(int node) const;
    int GetMaxTemporalOrder() const;
    // The parents that index the node's table of this order (0: the ordinary
    // definition), as (handle, order) with order 0 for static parents.
    [[nodiscard]] int GetUnrolledParents(int node, int order, std::vector<VEK_temporalArc>& out) const;
    // The order of the table used in slice t (0: the ordinary definition).
    int OrderForSlice(int node, int slice) const;

    // ---- temporal definitions -----------------------------------------------
    // Order 0 is the node's ordinary definition. -2 for an order the node has
    // no table for, -2 for a wrong size.
    [[nodiscard]] int SetTemporalDefinition(int node, int order, const std::vector<double>& values);
    // Null for an order the node has no table for; order 0 is the ordinary
    // definition's probability table.
    const VEK_Dmatrix* GetTemporalDefinition(int node, int order) const;

    // The parameters of a table: for noisy-MAX nodes the CI weights (order 0:
    // the ordinary definition's), for DeMorgan nodes the parent weights then
    // the prior, for noisy-adder nodes the CI weights, otherwise the table
    // itself. Null as above. SetTemporalDefinition takes this form, checked
    // as the static definition checks it (-2 otherwise, nothing changed).
    const VEK_Dmatrix* GetTemporalParameters(int node, int order) const;
    // Strengths of the noisy-MAX node's temporal parents of exactly this
    // order, in arc order, each the parent's outcomes from the strongest to
    // the weakest. -2 when the node has no such parents or is no noisy-MAX.
    [[nodiscard]] int GetNoisyTemporalStrengths(int node, int order, std::vector<VEK_intArray>& out) const;
    // One permutation per such parent (-2 otherwise, nothing changed); the
    // CI columns stay where they are.
    [[nodiscard]] int SetNoisyTemporalStrengths(int node, int order, const std::vector<VEK_intArray>& strengths);

    // The DeMorgan or noisy-adder definition that holds the parameters of
    // the table of this order (order >= 1), its parents in the order of
    // GetUnrolledParents. Null for other kinds and orders.
    const VEK_nodeDef* GetTemporalCanonical(int node, int order) const;
    // Changes that definition through its own checked setters; when edit
    // fails (negative status) the parameters are restored and its status
    // returned. -2 when there is no such definition.
    [[nodiscard]] int EditTemporalCanonical(int node, int order, const std::function<int(VEK_nodeDef&)>& edit);

    // ---- evidence per slice -------------------------------------------------
    [[nodiscard]] int SetTemporalEvidence(int node, int slice, int outcome);
    int GetTemporalEvidence(int node, int slice) const;  // -1 when none
    [[nodiscard]] int SetTemporalVirtualEvidence(int node, int slice, const std::vector<double>& likelihoods);
    const std::vector<double>* GetTemporalVirtualEvidence(int node, int slice) const;
    bool IsTemporalEvidence(int node, int slice) const;
    bool HasTemporalEvidence(int node) const;
    [[nodiscard]] int ClearTemporalEvidence(int node, int slice);
    void ClearAllTemporalEvidence();

    // ---- temporal equations and continuous evidence (equation nodes) -------
    // One equation per temporal order of the node, ascending; in the equation
    // of order k, "id[-j]" (1 <= j <= k) is the temporal parent id of order
    // j and a plain id a static parent in the same slice. An empty text makes
    // the slices of that order use the node's ordinary equation. On failure
    // nothing changes and errorPos / message tell why.
    [[nodiscard]] int SetTemporalEquations(int node, const std::vector<std::string>& texts, int& errorPos, std::string& message);
    std::vector<std::string> GetTemporalEquations(int node) const;
    const std::string* GetTemporalEquation(int node, int order) const;
    [[nodiscard]] int SetTemporalContEvidence(int node, int slice, double value);
    // False when the slice has no continuous evidence.
    bool GetTemporalContEvidence(int node, int slice, double& value) const;

    // ---- temporal plate presentation -----------------------------------------
    VEK_rectangle& PlatePosition() { return platePosition_; }
    const VEK_rectangle& PlatePosition() const { return platePosition_; }
    int GetLeftWidth() const { return leftWidth_; }
    int GetRightWidth() const { return rightWidth_; }
    void SetPlateWidths(int left, int right) { leftWidth_ = left; rightWidth_ = right; }

    // ---- reactions to changes of the network ------------------------------------
    void OnArcAdded(int parent, int child);
    void OnArcRemoving(int parent, int child);
    void OnParentsReordered(int node, const std::vector<int>& oldParents);
    void OnNodeDeleting(int node);
    void OnTemporalTypeChanged(int node);
    void OnOutcomeInsert(int node, int position);
    void OnOutcomeRemove(int node, int position);
    void OnOutcomeReorder(int node, const VEK_intArray& order);
    void OnOutcomeCountChanged(int node);
    void OnSliceCountChanged(int count);
    // Makes every table match the current graph again (uniform where it did
    // not), for changes that no notification describes (type changes).
    void Conform();

private:
    // A definition of a canonical kind over stand-ins of the unrolled
    // parents, in a network of its own; copies are deep.
    struct Canonical {
        std::unique_ptr<VEK_network> net;
        int child = -1;
        std::vector<VEK_temporalArc> owners;  // per stand-in, in parent order
        std::vector<int> standIns;
        Canonical();
        Canonical(const Canonical& other);
        Canonical& operator=(const Canonical& other);
        Canonical(Canonical&&) noexcept;
        Canonical& operator=(Canonical&&) noexcept;
        ~Canonical();
    };
    struct Table {
        int order = 0;
        // Computed from ci for noisy-MAX nodes, on reading.
        mutable VEK_Dmatrix matrix;
        mutable VEK_Dmatrix ci;
        mutable std::vector<VEK_temporalArc> ciOwners;
        mutable std::vector<int> ciSizes;
        std::string equation;  // equation nodes
        mutable Canonical canon;  // DeMorgan and noisy-adder nodes
    };
    struct NodeRec {
        std::vector<VEK_temporalArc> parents;
        std::vector<Table> tables;  // ascending order
        std::vector<int> evidence;  // per slice, -1 for none
        std::vector<std::vector<double>> virtualEvidence;  // per slice, empty for none
        std::vector<double> contEvidence;  // per slice, NaN for none
        std::vector<std::pair<VEK_temporalArc, VEK_intArray>> strengths;  // noisy-MAX, set ones only
    };

    NodeRec* Rec(int node);
    const NodeRec* Rec(int node) const;
    Table* FindTable(NodeRec& r, int order);
    // The nodes whose outcomes are the dimensions of the table of this order.
    void DimOwners(int node, int order, std::vector<int>& owners) const;
    void DimSizes(const std::vector<int>& owners, VEK_intArray& sizes) const;
    // Builds a table over owners from one over a subsequence of them: each
    // column of the source is copied to every combination of the new parents.
    void Expand(const VEK_Dmatrix& src, const std::vector<int>& srcOwners, const std::vector<int>& dstOwners,
                VEK_Dmatrix& dst) const;
    // The table a new order starts from: the nearest lower order's table,
    // expanded over the parents it lacks.
    void MakeTable(int node, int order, VEK_Dmatrix& out) const;
    bool IsStaticDim(int node, int parent) const;
    bool IsNoisyMax(int node) const;
    // Brings a noisy-MAX table's CI weights to its current parents, then
    // computes its table from them.
    void ConformCi(int node, const Table& t) const;
    void ComputeNoisyTable(int node, const Table& t) const;
    VEK_intArray TemporalStrengths(const NodeRec& r, const VEK_temporalArc& arc) const;
    void Changed(int node);
    // DeMorgan and noisy-adder side.
    bool IsCanonical(int node) const;
    // Brings the table's definition to the node's kind and current parents
    // (false when the parents cannot be stood in for); null otherwise.
    VEK_nodeDef* ConformCanonical(int node, const Table& t) const;
    bool SeedCanonical(int node, const Table& t) const;
    [[nodiscard]] int SetCanonicalParameters(int node, int order, const std::vector<double>& values);
    // Repeats an outcome change of node on every stand-in of it and, for
    // the node's own tables, on their definitions.
    void MirrorOutcomes(int node, const std::function<void(VEK_nodeDef&)>& change);
    // A table that stops being canonical keeps its last computed table.
    void DropCanonical(int node, Table& t);

    VEK_network* net_;
    std::vector<NodeRec> recs_;  // by handle
    VEK_rectangle platePosition_;
    int leftWidth_ = 0;
    int rightWidth_ = 0;
};
