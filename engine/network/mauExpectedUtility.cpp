#include "network/mauExpectedUtility.h"

#include "network/status.h"

VEK_nodeVal* VEK_mauExpectedUtility::Clone(VEK_network& net) const {
    auto* copy = new VEK_mauExpectedUtility(*this);
    copy->Rebind(net, Handle());
    return copy;
}

int VEK_mauExpectedUtility::CalculateMAU() { return VEK_WRONG_NODE_TYPE; }
