// Causal-independence definitions: a node's table is computed from one small
// distribution per parent outcome plus a leak distribution.
//
// The parameters form a two-dimensional matrix: one column per parent
// outcome, parent after parent in parent order, then one leak column; the
// last (fastest) dimension is the node's own outcomes. Every column is a
// distribution over those outcomes. One column per parent is constrained: it
// stands for the parent's distinguished state and puts all its mass on the
// node's distinguished outcome; it is rewritten after every change and is
// not a free parameter.
#pragma once

#include <string>

#include "network/lazyDef.h"

class VEK_ciDef : public VEK_lazyDef {
public:
    // No parents: only the leak column, uniform.
    VEK_ciDef(VEK_network& net, int handle);
    // Keeps the outcomes; one block of uniform columns per current parent.
    explicit VEK_ciDef(const VEK_nodeXformContext& ctx);
    VEK_ciDef(const VEK_ciDef& other) = default;

    // ---- graph: the CI matrix follows the parents ----
    [[nodiscard]] int AddParent(int handle) override;
    [[nodiscard]] int RemoveParent(int handle) override;
    [[nodiscard]] int OnParentReorder(const VEK_intArray& order) override;

    // ---- own outcomes: a row in every column, then the constraints ----
    void AfterInsertOutcome(int position) override;
    void AfterRemoveOutcome(int position) override;
    void AfterReorderOutcomes(const VEK_intArray& order) override;
    void AfterOutcomeCountChanged() override;

    // Free columns only; the constrained ones keep their fixed form.
    [[nodiscard]] int MakeUniform() override;
    [[nodiscard]] int MakeRandom(VEK_randGen& gen) override;

    const VEK_Dmatrix& GetParameters() const override { return ciWeights_; }
    VEK_Dmatrix& GetWriteableParameters() override { return ciWeights_; }
    // Whoever wrote through GetWriteableParameters may have touched the
    // constrained columns: they are restored.
    void OnParametersChanged() override;

    // ---- the CI weights ----
    const VEK_Dmatrix& GetCiWeights() const { return ciWeights_; }
    // Checked replacement: size (-2), every item in [0, 1] and every free
    // column summing to 1 (-2). The constrained columns are rewritten.
    [[nodiscard]] int SetCiWeights(const VEK_doubleArray& items);
    [[nodiscard]] int SetCiWeights(const VEK_Dmatrix& weights);
    // 0 when the item count matches columns x outcomes, else -2.
    [[nodiscard]] int CheckWeightsDimensions(int itemCount) const;
    [[nodiscard]] int CheckWeightsDimensions(const VEK_Dmatrix& weights) const { return CheckWeightsDimensions(weights.GetSize()); }
    // 0 when weights could be set; otherwise -2 and a message naming the
    // first faulty column.
    [[nodiscard]] int CheckCiWeightsConsistency(const VEK_Dmatrix& weights, std::string& message) const;
    // Sets up the matrix with the given number of columns (parent columns
    // plus the leak), every column uniform, constraints applied. -2 when the
    // count does not fit the parents.
    [[nodiscard]] int InitWeights(int columns);

    // ---- structure (as the definition holds it) ----
    int GetNumberOfParents() const { return parentSizes_.GetSize(); }
    // Outcome count of the parent at this position, -2 out of range.
    int GetParentOutcomeCount(int parentIndex) const;
    // First column of the parent at this position (sum of the outcome
    // counts of the parents before it); -2 out of range.
    int GetParentColumnBase(int parentIndex) const;
    int GetLeakColumn() const { return GetNumberOfColumns() - 1; }
    int GetNumberOfColumns() const;

    // ---- constrained columns ----
    // The column of the parent's distinguished state.
    virtual int GetConstrainedColumn(int parentIndex) const = 0;
    // The outcome at which constrained columns hold 1.0.
    virtual int GetConstrainedOutcome() const = 0;
    bool IsColumnConstrained(int column) const;
    // Whether an item (linear index into the CI matrix) lies in a
    // constrained column.
    bool CiIndexConstrained(int index) const;
    void GetUnconstrainedColumns(VEK_intArray& columns) const;
    void FixConstrainedColumns();
    // 1.0 at outcome (-1: the last), 0.0 elsewhere.
    [[nodiscard]] int SetConstrainedColumn(int column, int outcome);

protected:
    // Per-parent data of the derived classes follows these structure
    // changes; the CI columns are already moved when they are called.
    virtual void OnParentInserted(int position) = 0;
    virtual void OnParentDeleted(int position) = 0;
    virtual void OnParentsReordered(const VEK_intArray& order) = 0;
    // The node's own outcome changes, for derived data that names outcomes.
    virtual void OnOwnOutcomeInserted(int) {}
    virtual void OnOwnOutcomeRemoved(int) {}
    virtual void OnOwnOutcomesReordered(const VEK_intArray&) {}
    virtual void OnOwnOutcomeCountReset() {}

    // Inserts a uniform column at column (the parent's size grows by one)
    // or deletes one; both keep the other columns' contents.
    [[nodiscard]] int InsertParentColumn(int parentIndex, int column);
    [[nodiscard]] int DeleteParentColumn(int parentIndex, int column);
    // Column i of the parent's block becomes old column perm[i] of it.
    void ReorderParentColumns(int parentIndex, const VEK_intArray& perm);
    // Position of a parent handle within the stored structure, or -2.
    int StoredParentPosition(int handle) const;
    // Parent outcome counts in the order of the table's dimensions.
    const VEK_intArray& ParentSizes() const { return parentSizes_; }
    // Validates a matrix of the CI layout item by item.
    [[nodiscard]] int ValidateWeights(const double* items, int count, std::string* message) const;
    // Outcome count of a parent of the network; 1 for parents without
    // discrete outcomes (only the constrained column).
    int SafeParentOutcomeCount(int handle) const;
    // Rows of the table dimensions: parent sizes followed by own outcomes.
    void BuildCptDims(VEK_intArray& dims) const;

private:
    void SetupFromParents();

    VEK_intArray parentSizes_;
    VEK_Dmatrix ciWeights_;
};
