// Beliefs of a chance or deterministic discrete node, with soft (virtual)
// evidence and controlled values (interventions).
#pragma once

#include <vector>

#include "network/discVal.h"

class VEK_beliefVector : public VEK_discVal {
public:
    VEK_beliefVector(VEK_network& net, int handle) : VEK_discVal(net, handle) {}
    // Takes over hard or virtual evidence from the value of the old type.
    VEK_beliefVector(VEK_network& net, int handle, const VEK_valXformContext& ctx);

    VEK_nodeVal* Clone(VEK_network& net) const override;
    int GetType() const override { return VEK_BELIEFVECTOR; }

    [[nodiscard]] int GetVirtualEvidence(std::vector<double>& out) const override;
    [[nodiscard]] int GetVirtualEvidence(VEK_doubleArray& out) const override;
    [[nodiscard]] int SetVirtualEvidence(const std::vector<double>& values) override;
    [[nodiscard]] int SetVirtualEvidence(const VEK_doubleArray& values) override;
    [[nodiscard]] int ClearVirtualEvidence() override;
    void InitXform(VEK_valXformContext& ctx) const override;

    bool IsControllable() const override;
    [[nodiscard]] int ControlValue(int outcome) override;
    [[nodiscard]] int ClearControlledValue() override;

private:
    [[nodiscard]] int DoSetVirtualEvidence(const double* values, int count);

    // One likelihood per outcome; empty unless virtual evidence is set.
    std::vector<double> virtual_;
};
