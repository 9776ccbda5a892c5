// Utility node: one utility per combination of its parents' outcomes, kept
// in a table whose last dimension has size 1.
#pragma once

#include "network/tableDef.h"

class VEK_utility : public VEK_tableDef<VEK_nodeDef> {
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

    // Every utility becomes 1.0.
    [[nodiscard]] int MakeUniform() override;

    // Over all items except those marked undefined (0 when every item is).
    double GetMinimumUtility() const;
    double GetMaximumUtility() const;
    // Rescales the utilities to [0, 1]; items marked undefined stay.
    [[nodiscard]] int Normalize();
};
