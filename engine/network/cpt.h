// Conditional probability table: one distribution over the node's outcomes
// for every combination of its parents' outcomes.
#pragma once

#include "network/discDef.h"

class VEK_cpt : public VEK_discDef {
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

    int AddParent(int handle) override;
    int RemoveParent(int handle) override;
    int OnParentOutcomeAdd(int parent, int outcome) override;
    int OnParentOutcomeRemove(int parent, int outcome) override;
    int OnParentOutcomeReorder(int parent, const VEK_intArray& order) override;
    int OnParentReorder(const VEK_intArray& order) override;

    int MakeUniform() override;
    int MakeRandom(VEK_randGen& gen) override;

    const VEK_Dmatrix* GetMatrix() const override { return &table_; }
    void InitXform(VEK_nodeXformContext& ctx) const override;

    const VEK_Dmatrix& GetParameters() const override { return table_; }
    VEK_Dmatrix& GetWriteableParameters() override { return table_; }

    void AfterInsertOutcome(int position) override;
    void AfterRemoveOutcome(int position) override;
    void AfterReorderOutcomes(const VEK_intArray& order) override;
    void AfterOutcomeCountChanged() override;

    // Number of columns (parent combinations).
    int GetColumnCount() const;

protected:
    VEK_Dmatrix& Table() { return table_; }
    const VEK_Dmatrix& Table() const { return table_; }
    // Position of the parent's dimension, or a negative code.
    int ParentDimension(int parent) const;

private:
    VEK_Dmatrix table_;
};
