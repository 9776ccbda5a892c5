// DeMorgan node: a prior belief in the first outcome, raised by causes (in
// their first outcome) and barriers (in their second), then lowered by
// inhibitors (first outcome) and requirements (second), each by its weight.
#pragma once

#include "network/qualDef.h"

class VEK_demorgan : public VEK_qualDef {
public:
    enum ParentType { INHIBITOR = 0, REQUIREMENT = 1, CAUSE = 2, BARRIER = 3 };

    // Prior 0.5; a new parent is a cause of weight 0.
    VEK_demorgan(VEK_network& net, int handle);
    explicit VEK_demorgan(const VEK_nodeXformContext& ctx);
    VEK_demorgan(const VEK_demorgan& other) = default;

    VEK_nodeDef* Clone(VEK_network& net) const override;
    int GetType() const override { return VEK_DEMORGAN; }
    const char* GetTypeName() const override { return "DEMORGAN"; }
    [[nodiscard]] int DoCopyParameters(const VEK_nodeDef& other) override;

    double GetPriorBelief() const { return GetPriorValue(); }
    // In [0, 1]; -2 otherwise.
    [[nodiscard]] int SetPriorBelief(double prior) { return SetPriorChecked(prior); }
    // Parent weights (SetParentWeight(s)) are in [0, 1]. Types are 0..3;
    // -2 for a bad index or type.
    int GetParentType(int parentIndex) const;
    [[nodiscard]] int SetParentType(int parentIndex, int type);
    [[nodiscard]] int SetParentTypes(const VEK_intArray& types);
    const VEK_intArray& GetParentTypes() const { return types_; }
    // File keywords "inhibitor", "requirement", "cause", "barrier".
    static const char* ParentTypeName(int type);
    // -2 for an unknown word.
    static int ParentTypeFromName(const char* name);

    double CalculateProbability(const VEK_intArray& coordinates) const override;

protected:
    // Both passes as products: after the raising pass 1 - p is
    // (1 - prior) times the (1 - w) of the active raisers, and the lowering
    // pass multiplies p by the (1 - w) of the active lowerers.
    void FillProbabilities(double* q) const override;
    bool IsValidWeight(int slot, double weight) const override;
    void OnParentInserted(int position) override;
    void OnParentDeleted(int position) override;
    void OnParentsReordered(const VEK_intArray& order) override;

private:
    VEK_intArray types_;
};
