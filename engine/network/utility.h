// Utility node: one utility per combination of its parents' outcomes, kept
// in a table whose last dimension has size 1.
#pragma once

#include "network/nodeDef.h"

class VEK_utility : public VEK_nodeDef {
public:
    // A new node has no parents: a single utility of 1.0.
    VEK_utility(VEK_network& net, int handle);
    // Nothing of the old definition carries over: every utility is 1.0.
    explicit VEK_utility(const VEK_nodeXformContext& ctx);
    VEK_utility(const VEK_utility& other) = default;

    VEK_nodeDef* Clone(VEK_network& net) const override;
    VEK_nodeVal* CreateValue() const override;
    VEK_nodeVal* CreateValue(const VEK_valXformContext& ctx) const override;
    int GetType() const override { return VEK_TABLE; }
    const char* GetTypeName() const override { return "TABLE"; }

    int AddParent(int handle) override;
    int RemoveParent(int handle) override;
    int OnParentOutcomeAdd(int parent, int outcome) override;
    int OnParentOutcomeRemove(int parent, int outcome) override;
    int OnParentOutcomeReorder(int parent, const VEK_intArray& order) override;
    int OnParentReorder(const VEK_intArray& order) override;

    // Every utility becomes 1.0.
    int MakeUniform() override;

    const VEK_Dmatrix* GetMatrix() const override { return &table_; }
    const VEK_Dmatrix& GetParameters() const override { return table_; }
    VEK_Dmatrix& GetWriteableParameters() override { return table_; }

    // Over all items except those marked undefined (0 when every item is).
    double GetMinimumUtility() const;
    double GetMaximumUtility() const;
    // Rescales the utilities to [0, 1]; items marked undefined stay.
    int Normalize();

private:
    int ParentDimension(int parent) const;

    VEK_Dmatrix table_;
};
