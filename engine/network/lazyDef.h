// Base of definitions whose probability table is computed from a smaller
// set of parameters (the canonical definitions). The table is computed on
// demand and marked stale by every parameter or structure change.
#pragma once

#include "network/discDef.h"

class VEK_lazyDef : public VEK_discDef {
public:
    VEK_lazyDef(VEK_network& net, int handle) : VEK_discDef(net, handle) {}
    // Keeps the outcomes; the derived class sets up its parameters.
    explicit VEK_lazyDef(const VEK_nodeXformContext& ctx);
    VEK_lazyDef(const VEK_lazyDef& other) = default;

    VEK_nodeVal* CreateValue() const override;
    VEK_nodeVal* CreateValue(const VEK_valXformContext& ctx) const override;

    // The computed table, brought up to date first.
    const VEK_Dmatrix* GetMatrix() const override;
    // Computes the table from the parameters into CptMatrix().
    [[nodiscard]] virtual int CalculateCpt() = 0;

    void Invalidate() { valid_ = false; }
    bool IsCptValid() const { return valid_; }

    void OnParametersChanged() override { Invalidate(); }
    void InitXform(VEK_nodeXformContext& ctx) const override;

    void AfterInsertOutcome(int) override { Invalidate(); }
    void AfterRemoveOutcome(int) override { Invalidate(); }
    void AfterReorderOutcomes(const VEK_intArray&) override { Invalidate(); }
    void AfterOutcomeCountChanged() override { Invalidate(); }

protected:
    VEK_Dmatrix& CptMatrix() const { return cpt_; }

private:
    // The computed table is a cache: filling it does not change the definition.
    mutable VEK_Dmatrix cpt_;
    mutable bool valid_ = false;
};
