// Qualitative binary definitions: the probability of the node's first
// outcome for each combination of binary parents of the same kind, from a
// prior (or baseline) and per-parent weights.
//
// The outcomes are fixed: always two, never reordered. The parameter matrix
// (what files store and Python's definition methods exchange) is flat: the
// weight slots of the derived class, each holding one weight per parent in
// parent order, then the prior. Direct writes to it are taken as they are;
// the setters check ranges. A new parent's weights are 0: an arc alone does
// not change the table.
#pragma once

#include "network/lazyDef.h"

class VEK_qualDef : public VEK_lazyDef {
public:
    VEK_qualDef(VEK_network& net, int handle, int weightSlots, double prior);
    // Keeps the outcome ids when there are exactly two.
    VEK_qualDef(const VEK_nodeXformContext& ctx, int weightSlots, double prior);
    VEK_qualDef(const VEK_qualDef& other) = default;

    bool HasFixedOutcomes() const override { return true; }
    [[nodiscard]] int ChangeOrderOfOutcomes(const VEK_intArray& order) override;

    [[nodiscard]] int AddParent(int handle) override;
    [[nodiscard]] int RemoveParent(int handle) override;
    [[nodiscard]] int OnParentReorder(const VEK_intArray& order) override;
    // Parents of the same kind have fixed outcomes: these never apply.
    [[nodiscard]] int OnParentOutcomeAdd(int parent, int outcome) override;
    [[nodiscard]] int OnParentOutcomeRemove(int parent, int outcome) override;
    [[nodiscard]] int OnParentOutcomeReorder(int parent, const VEK_intArray& order) override;

    const VEK_Dmatrix& GetParameters() const override { return params_; }
    VEK_Dmatrix& GetWriteableParameters() override { return params_; }

    int GetNumberOfParents() const { return parentCount_; }
    double GetPriorValue() const { return params_[params_.GetSize() - 1]; }
    // Slot 0 weight of a parent; -2 for a bad index.
    [[nodiscard]] int GetParentWeight(int parentIndex, double& weight) const;
    [[nodiscard]] int SetParentWeight(int parentIndex, double weight);
    [[nodiscard]] int SetParentWeights(const VEK_doubleArray& weights);

    // Probability of the first outcome for one parent combination (one
    // coordinate per parent, 0 = first outcome); computed step by step.
    virtual double CalculateProbability(const VEK_intArray& coordinates) const = 0;
    // Every dimension is 2; each column is (q, 1 - q).
    [[nodiscard]] int CalculateCpt() override;

protected:
    // Writes q for every column in odometer order; the default asks
    // CalculateProbability column by column.
    virtual void FillProbabilities(double* q) const;
    virtual bool IsValidWeight(int slot, double weight) const = 0;
    // Per-parent data beyond the weights.
    virtual void OnParentInserted(int) {}
    virtual void OnParentDeleted(int) {}
    virtual void OnParentsReordered(const VEK_intArray&) {}

    double Weight(int slot, int parentIndex) const { return params_[slot * parentCount_ + parentIndex]; }
    [[nodiscard]] int SetWeightChecked(int slot, int parentIndex, double weight);
    [[nodiscard]] int SetSlotChecked(int slot, const VEK_doubleArray& weights);
    // Prior or baseline in [0, 1].
    [[nodiscard]] int SetPriorChecked(double prior);
    int WeightSlots() const { return slots_; }

private:
    void InitFromParents(double prior);

    int slots_;
    int parentCount_ = 0;
    VEK_Dmatrix params_;
};
