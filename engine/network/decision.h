// Decision node: its outcomes are the options; no table. Its parents are
// informational, so it accepts every parent change without work.
#pragma once

#include "network/discDef.h"

class VEK_decision : public VEK_discDef {
public:
    // Two options, "Choice0" and "Choice1".
    VEK_decision(VEK_network& net, int handle);
    // Keeps only the outcome ids.
    explicit VEK_decision(const VEK_nodeXformContext& ctx);
    VEK_decision(const VEK_decision& other) = default;

    VEK_nodeDef* Clone(VEK_network& net) const override;
    VEK_nodeVal* CreateValue() const override;
    VEK_nodeVal* CreateValue(const VEK_valXformContext& ctx) const override;
    int GetType() const override { return VEK_LIST; }
    const char* GetTypeName() const override { return "LIST"; }
    const char* GetOutcomePrefix() const override { return "Choice"; }

    [[nodiscard]] int AddParent(int) override { return VEK_OKAY; }
    [[nodiscard]] int RemoveParent(int) override { return VEK_OKAY; }
    [[nodiscard]] int OnParentOutcomeAdd(int, int) override { return VEK_OKAY; }
    [[nodiscard]] int OnParentOutcomeRemove(int, int) override { return VEK_OKAY; }
    [[nodiscard]] int OnParentOutcomeReorder(int, const VEK_intArray&) override { return VEK_OKAY; }
    [[nodiscard]] int OnParentReorder(const VEK_intArray&) override { return VEK_OKAY; }
    // Informational parents are always needed.
    [[nodiscard]] int IsParentNecessary(int parent, double epsilon, bool& necessary) const override;

    void AfterOutcomeCountChanged() override {}

    // No parameters: an empty matrix.
    const VEK_Dmatrix& GetParameters() const override { return none_; }
    VEK_Dmatrix& GetWriteableParameters() override { return none_; }

private:
    VEK_Dmatrix none_;
};
