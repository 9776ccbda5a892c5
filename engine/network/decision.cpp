#include "network/decision.h"

#include "network/network.h"
#include "network/nodeXformContext.h"
#include "network/policyValues.h"

VEK_decision::VEK_decision(VEK_network& net, int handle) : VEK_discDef(net, handle) { InitDefaultOutcomeIds(2); }

VEK_decision::VEK_decision(const VEK_nodeXformContext& ctx) : VEK_discDef(*ctx.net, ctx.handle) {
    InitDefaultOutcomeIds(2);
    if (ctx.hasOutcomes && ctx.outcomeIds.GetSize() >= 2) MutableOutcomeIds() = ctx.outcomeIds;
}

VEK_nodeDef* VEK_decision::Clone(VEK_network& net) const {
    VEK_decision* copy = new VEK_decision(*this);
    copy->Rebind(net, Handle());
    return copy;
}

VEK_nodeVal* VEK_decision::CreateValue() const { return new VEK_policyValues(Network(), Handle()); }

VEK_nodeVal* VEK_decision::CreateValue(const VEK_valXformContext& ctx) const {
    return new VEK_policyValues(Network(), Handle(), ctx);
}

int VEK_decision::IsParentNecessary(int parent, double, bool& necessary) const {
    int pos = FindParentPosition(parent);
    if (pos < 0) return pos;
    necessary = true;
    return VEK_OKAY;
}
