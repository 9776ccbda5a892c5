// Deterministic node: a table whose every column holds 1.0 at exactly one
// outcome and 0.0 elsewhere.
#pragma once

#include "network/cpt.h"
#include "network/stringArray.h"

class VEK_truthTable : public VEK_cpt {
public:
    // Every column selects the first outcome.
    VEK_truthTable(VEK_network& net, int handle);
    // Keeps the outcomes and, when it fits, the table made deterministic.
    explicit VEK_truthTable(const VEK_nodeXformContext& ctx);
    VEK_truthTable(const VEK_truthTable& other) = default;

    VEK_nodeDef* Clone(VEK_network& net) const override;
    int GetType() const override { return VEK_TRUTHTABLE; }
    const char* GetTypeName() const override { return "TRUTHTABLE"; }

    // A deterministic table has no uniform form.
    [[nodiscard]] int MakeUniform() override { return VEK_WRONG_NODE_TYPE; }
    // Every column selects an outcome drawn uniformly.
    [[nodiscard]] int MakeRandom(VEK_randGen& gen) override;

    void AfterRemoveOutcome(int position) override;
    void AfterOutcomeCountChanged() override;

    // Per column the first outcome holding 1.0 (0 when none does).
    [[nodiscard]] int GetResultingStates(VEK_intArray& states) const;
    [[nodiscard]] int GetResultingStates(VEK_stringArray& states) const;
    // One outcome per column, by index or by id; -2 and no change when the
    // count or an outcome is wrong.
    [[nodiscard]] int SetResultingStates(const VEK_intArray& states);
    [[nodiscard]] int SetResultingStates(const VEK_stringArray& states);
    [[nodiscard]] int SetResultingStates(const std::vector<std::string>& states);
    // Every column: 1.0 at its first maximal item, 0.0 elsewhere.
    int MakeConsistent();

protected:
    // New columns came out uniform: they select the first outcome.
    void AfterTableGrew() override;
};
