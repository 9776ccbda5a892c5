// Value of a decision node: the expected utility of each choice, indexed by
// the nodes that the expected utilities depend on. A decision may be observed
// (hard evidence: the choice made) but takes no soft evidence.
#pragma once

#include "network/discVal.h"

class VEK_policyValues : public VEK_discVal {
public:
    VEK_policyValues(VEK_network& net, int handle) : VEK_discVal(net, handle) {}
    // Keeps the choice that was made; soft evidence does not apply to
    // decisions and is dropped.
    VEK_policyValues(VEK_network& net, int handle, const VEK_valXformContext& ctx) : VEK_discVal(net, handle, ctx) {}

    VEK_nodeVal* Clone(VEK_network& net) const override;
    int GetType() const override { return VEK_POLICYVALUES; }

    // The matrix holds utilities, not a distribution over the outcomes.
    [[nodiscard]] int GetMean(double& mean) const override;
    [[nodiscard]] int GetStdDev(double& sd) const override;
};
