// Conditional probability table: one distribution over the node's outcomes
// for every combination of its parents' outcomes.
#pragma once

#include "network/tableDef.h"

class VEK_cpt : public VEK_tableDef<VEK_discDef> {
public:
    // A new node has no parents: one dimension of its two outcomes, uniform.
    VEK_cpt(VEK_network& net, int handle);
    // Keeps the outcomes and, when its shape fits the parents, the table.
    explicit VEK_cpt(const VEK_nodeXformContext& ctx);
    VEK_cpt(const VEK_cpt& other) = default;

    VEK_nodeDef* Clone(VEK_network& net) const override;
    VEK_nodeVal* CreateValue() const override;
    VEK_nodeVal* CreateValue(const VEK_valXformContext& ctx) const override;
    int GetType() const override { return VEK_CPT; }
    const char* GetTypeName() const override { return "CPT"; }

    [[nodiscard]] int MakeUniform() override;
    [[nodiscard]] int MakeRandom(VEK_randGen& gen) override;

    void InitXform(VEK_nodeXformContext& ctx) const override;

    void AfterInsertOutcome(int position) override;
    void AfterRemoveOutcome(int position) override;
    void AfterReorderOutcomes(const VEK_intArray& order) override;
    void AfterOutcomeCountChanged() override;

    // Number of columns (parent combinations).
    int GetColumnCount() const;

protected:
    // Columns that lost an outcome's probability or are new (all zero)
    // become distributions again.
    void AfterTableGrew() override { Table().Normalize(); }
};
