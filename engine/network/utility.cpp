#include "network/utility.h"

#include "network/expectedUtility.h"
#include "network/network.h"
#include "network/nodeXformContext.h"
#include "network/status.h"

VEK_utility::VEK_utility(VEK_network& net, int handle) : VEK_tableDef(net, handle) {
    (void)Table().SetSingleDimension(1);  // a valid size
    Table().FillWith(1.0);
}

VEK_utility::VEK_utility(const VEK_nodeXformContext& ctx) : VEK_tableDef(*ctx.net, ctx.handle) {
    VEK_intArray dims;
    ParentTableDims(dims, 1);
    (void)Table().Setup(dims);  // every size is at least 1
    Table().FillWith(1.0);
}

VEK_nodeDef* VEK_utility::Clone(VEK_network& net) const {
    VEK_utility* copy = new VEK_utility(*this);
    copy->Rebind(net, Handle());
    return copy;
}

VEK_nodeVal* VEK_utility::CreateValue() const { return new VEK_expectedUtility(Network(), Handle()); }

VEK_nodeVal* VEK_utility::CreateValue(const VEK_valXformContext& ctx) const {
    return new VEK_expectedUtility(Network(), Handle(), ctx);
}

int VEK_utility::MakeUniform() {
    Table().FillWith(1.0);
    return VEK_OKAY;
}

double VEK_utility::GetMinimumUtility() const {
    double lo = 0.0;
    double hi = 0.0;
    VEK_utilityRange(Table(), lo, hi);
    return lo;
}

double VEK_utility::GetMaximumUtility() const {
    double lo = 0.0;
    double hi = 0.0;
    VEK_utilityRange(Table(), lo, hi);
    return hi;
}

int VEK_utility::Normalize() {
    double lo = 0.0;
    double hi = 0.0;
    VEK_utilityRange(Table(), lo, hi);
    if (lo == 0.0 && hi == 1.0) return VEK_OKAY;
    int res = VEK_normalizeUtilities(Table(), lo, hi, 0.0, 1.0);
    if (res < 0) return res;
    OnParametersChanged();
    return VEK_OKAY;
}
