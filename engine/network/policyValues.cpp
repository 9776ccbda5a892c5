#include "network/policyValues.h"

#include "network/status.h"

VEK_nodeVal* VEK_policyValues::Clone(VEK_network& net) const {
    auto* copy = new VEK_policyValues(*this);
    copy->Rebind(net, Handle());
    return copy;
}

int VEK_policyValues::GetMean(double&) const { return VEK_WRONG_NODE_TYPE; }
int VEK_policyValues::GetStdDev(double&) const { return VEK_WRONG_NODE_TYPE; }
