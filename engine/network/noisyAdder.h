// Noisy-adder: the node's distribution is a weighted mixture of the CI
// columns of its parents' current outcomes and of the leak.
//
// Every parent has a distinguished (normal) state and a weight; the node has
// a distinguished state. A parent's CI columns are in the parent's outcome
// order; the column of its distinguished state is constrained to the node's
// distinguished state. Two combinations:
// - average: P(y | x) = (L(y) + sum_j w_j P_j(y | x_j)) / (1 + sum_j w_j):
//   every parent votes with its weight, the leak with weight 1, so weights
//   are relative to the leak;
// - single fault: only parents away from their distinguished state (the
//   faults) count: P(y | x) = sum_{j active} w_j P_j(y | x_j) / sum_{j active}
//   w_j, and the leak L(y) when no parent with a positive weight is active.
//   With one fault this is that parent's column; several faults mix by
//   weight.
#pragma once

#include "network/ciDef.h"

class VEK_noisyAdder : public VEK_ciDef {
public:
    enum Function { FUNCTION_AVERAGE = 0, FUNCTION_SINGLE_FAULT = 1 };

    // Distinguished states default to the last outcome, weights to 1.
    VEK_noisyAdder(VEK_network& net, int handle);
    // Keeps the outcomes; parameters start from the defaults (a table has no
    // unique reading as a mixture).
    explicit VEK_noisyAdder(const VEK_nodeXformContext& ctx);
    VEK_noisyAdder(const VEK_noisyAdder& other) = default;

    VEK_nodeDef* Clone(VEK_network& net) const override;
    int GetType() const override { return VEK_NOISY_ADDER; }
    const char* GetTypeName() const override { return "NOISY_ADDER"; }

    [[nodiscard]] int OnParentOutcomeAdd(int parent, int outcome) override;
    [[nodiscard]] int OnParentOutcomeRemove(int parent, int outcome) override;
    [[nodiscard]] int OnParentOutcomeReorder(int parent, const VEK_intArray& order) override;

    int GetConstrainedColumn(int parentIndex) const override;
    int GetConstrainedOutcome() const override { return distinguished_; }

    [[nodiscard]] int CalculateCpt() override;
    [[nodiscard]] int DoCopyParameters(const VEK_nodeDef& other) override;

    // ---- parameters ----
    int GetDistinguishedState() const { return distinguished_; }
    [[nodiscard]] int SetDistinguishedState(int state);
    // -2 for a bad parent index.
    int GetParentDistinguishedState(int parentIndex) const;
    [[nodiscard]] int SetParentDistinguishedState(int parentIndex, int state);
    [[nodiscard]] int SetParentDistinguishedStates(const VEK_intArray& states);
    const VEK_intArray& GetParentDistinguishedStates() const { return parentStates_; }
    [[nodiscard]] int GetParentWeight(int parentIndex, double& weight) const;
    // Weights are finite and not negative.
    [[nodiscard]] int SetParentWeight(int parentIndex, double weight);
    [[nodiscard]] int SetParentWeights(const VEK_doubleArray& weights);
    const VEK_doubleArray& GetParentWeights() const { return weights_; }
    Function GetFunction() const { return function_; }
    [[nodiscard]] int SetFunction(Function function);
    // File keywords: "average", "singlefault".
    static const char* FunctionName(Function function);
    // -2 for an unknown name.
    [[nodiscard]] static int FunctionFromName(const char* name, Function& function);

    // The table of the given CI weights with this definition's combination.
    [[nodiscard]] int CiToCpt(const VEK_Dmatrix& ci, VEK_Dmatrix& cpt) const;
    [[nodiscard]] int CiToCptAverage(const VEK_Dmatrix& ci, VEK_Dmatrix& cpt) const;
    [[nodiscard]] int CiToCptSingleFault(const VEK_Dmatrix& ci, VEK_Dmatrix& cpt) const;

protected:
    void OnParentInserted(int position) override;
    void OnParentDeleted(int position) override;
    void OnParentsReordered(const VEK_intArray& order) override;
    void OnOwnOutcomeInserted(int position) override;
    void OnOwnOutcomeRemoved(int position) override;
    void OnOwnOutcomesReordered(const VEK_intArray& order) override;
    void OnOwnOutcomeCountReset() override;

private:
    void InitParentData();

    int distinguished_ = 1;
    VEK_intArray parentStates_;
    VEK_doubleArray weights_;
    Function function_ = FUNCTION_AVERAGE;
};
