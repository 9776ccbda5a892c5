// Noisy-MAX: the node's outcomes are ordered from the highest (index 0) to
// the distinguished one (last); every parent, through its CI column for its
// current outcome, and the leak each independently cause some level of the
// node, and the node takes the highest level caused.
//
// Per parent, the outcome strengths list the parent's outcomes from the
// strongest to the weakest; the parent's CI columns follow this order, so
// the last column of its block (the constrained one) belongs to its weakest
// outcome.
#pragma once

#include <string>
#include <vector>

#include "network/ciDef.h"

class VEK_noisyMAX : public VEK_ciDef {
public:
    VEK_noisyMAX(VEK_network& net, int handle);
    // Keeps the outcomes. When the context carries a table shaped for the
    // current parents, the CI weights are recovered from it with CptToCi
    // (exact for tables of noisy-MAX form, the closest such form otherwise);
    // else every free column is uniform.
    explicit VEK_noisyMAX(const VEK_nodeXformContext& ctx);
    VEK_noisyMAX(const VEK_noisyMAX& other) = default;

    VEK_nodeDef* Clone(VEK_network& net) const override;
    int GetType() const override { return VEK_NOISY_MAX; }
    const char* GetTypeName() const override { return "NOISY_MAX"; }

    [[nodiscard]] int OnParentOutcomeAdd(int parent, int outcome) override;
    [[nodiscard]] int OnParentOutcomeRemove(int parent, int outcome) override;
    [[nodiscard]] int OnParentOutcomeReorder(int parent, const VEK_intArray& order) override;

    int GetConstrainedColumn(int parentIndex) const override;
    int GetConstrainedOutcome() const override { return GetNumberOfOutcomes() - 1; }

    [[nodiscard]] int CalculateCpt() override;
    [[nodiscard]] int DoCopyParameters(const VEK_nodeDef& other) override;

    // ---- strengths ----
    // Outcomes of the parent from the strongest to the weakest; null for a
    // bad index.
    const VEK_intArray* GetParentOutcomeStrengths(int parentIndex) const;
    // Must be a permutation of the parent's outcomes (-2 otherwise). The CI
    // columns stay where they are: they now stand for the outcomes at their
    // positions in the new order.
    [[nodiscard]] int SetParentOutcomeStrengths(int parentIndex, const VEK_intArray& strengths);
    // For callers that have checked the list (file readers); a list that
    // does not fit is ignored.
    void SetParentOutcomeStrengthsUnchecked(int parentIndex, const VEK_intArray& strengths);
    // Sets a new order and moves the CI columns with their outcomes, so that
    // every outcome keeps its column (the new weakest outcome's column
    // becomes the constrained one).
    [[nodiscard]] int ChangeOrderOfStrengths(int parentIndex, const VEK_intArray& strengths);
    // Position of each outcome in the parent's strength order.
    [[nodiscard]] int GetStrengthPositions(int parentIndex, VEK_intArray& positions) const;

    // Synchronized strengths: every parent's strength order is its outcome
    // order (outcome 0 strongest) and stays so when the parent's outcomes
    // are reordered, added or removed (the CI columns move instead).
    // Turning it on reorders the strengths with ChangeOrderOfStrengths;
    // setting a strength order that is not the outcome order turns it off.
    bool IsSynchronized() const { return synchronized_; }
    [[nodiscard]] int SetSynchronized(bool on);

    // ---- conversions ----
    // The table of the given CI weights for this definition's parents and
    // strengths; -2 when the weights do not fit. One pass over the output:
    // an odometer over the parent outcomes keeps the products of the
    // cumulative columns of the leading parents, so each column costs one
    // product and one difference per outcome.
    [[nodiscard]] int CiToCpt(const VEK_Dmatrix& ci, VEK_Dmatrix& cpt) const;
    // Recovers CI weights from a table over the current parents (-2 when its
    // shape differs). The leak is the column where every parent is in its
    // weakest outcome; a parent outcome's cumulative weights are the
    // cumulative column where only that parent leaves its weakest outcome,
    // divided by the leak's cumulative column. Exact on tables made by
    // CiToCpt whose leak has no zero; cumulative values that the division
    // leaves undetermined (leak 0) are 0, and values outside the monotone
    // range are clipped to it.
    [[nodiscard]] int CptToCi(const VEK_Dmatrix& cpt, VEK_Dmatrix& ci) const;
    // Replaces the weights by those recovered from the table.
    [[nodiscard]] int CptToCi(const VEK_Dmatrix& cpt);

    // Henrion parameters: the same layout, but each parent column is the
    // node's distribution when that parent is in the outcome and every other
    // parent in its weakest outcome, leak included (cumulative: the net
    // column times the leak). The leak column is the same in both.
    [[nodiscard]] int GetHenrionProbabilities(VEK_Dmatrix& henrion) const;
    // Checked (CheckHenrionConsistency), then converted to net weights.
    [[nodiscard]] int SetHenrionProbabilities(const VEK_Dmatrix& henrion);
    // 0 when the matrix is a valid set of Henrion parameters: the CI layout,
    // distributions, and every parent column's cumulative values at most the
    // leak's (so that the net weights exist). -2 with a message otherwise.
    [[nodiscard]] int CheckHenrionConsistency(const VEK_Dmatrix& henrion, std::string& message) const;

    // The older noisy-OR layout: for every parent, the Henrion columns of
    // its outcomes except the weakest, in the parent's own outcome order,
    // then the leak column; a flat list of distributions over the node's
    // outcomes.
    [[nodiscard]] int GetLegacyNoisyOrProbabilities(VEK_doubleArray& items) const;
    [[nodiscard]] int SetLegacyNoisyOrProbabilities(const VEK_doubleArray& items);

    // Single-step decomposition for the join tree. With F(y | x) the
    // cumulative table (sum of P over y and every lower outcome), noisy-MAX
    // gives F(y | x) = cL(y) * prod_j C_j(x_j, y), where C_j is the cumulative
    // CI column of parent j in state x_j and cL the leak's. Hence
    //   P(y | x) = sum_y' S(y', y) * prod_j C_j(x_j, y'),
    //   S(y', y) = cL(y') * (delta(y', y) - delta(y', y + 1)),
    // so an auxiliary node Y' with the factors C_j(x_j, y') and the square
    // n x n matrix S replaces the table of k + 1 dimensions by k + 1 tables of
    // two. SquareCiToCptSingleStep fills S (dimensions y', y; y fastest);
    // GetCumulativeFactor fills C_j over (parent outcome in its own order, y').
    [[nodiscard]] int SquareCiToCptSingleStep(VEK_Dmatrix& square) const;
    [[nodiscard]] int GetCumulativeFactor(int parentIndex, VEK_Dmatrix& factor) const;

protected:
    void OnParentInserted(int position) override;
    void OnParentDeleted(int position) override;
    void OnParentsReordered(const VEK_intArray& order) override;

private:
    // Cumulative form of every column of ci (negative sums stored as 0).
    void Cumulate(const VEK_Dmatrix& ci, std::vector<double>& cum) const;
    // Index of the table column in which only this parent is away from its
    // weakest outcome (in the outcome given), all in outcome order.
    int SingleParentColumn(int parentIndex, int outcome, const VEK_intArray& weakest,
                           const VEK_intArray& products) const;
    bool AllStrengthsAreOutcomeOrder() const;

    std::vector<VEK_intArray> strengths_;
    bool synchronized_ = false;
};
