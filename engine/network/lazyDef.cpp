#include "network/lazyDef.h"

#include "network/beliefVector.h"
#include "network/network.h"
#include "network/nodeXformContext.h"
#include "network/status.h"

VEK_lazyDef::VEK_lazyDef(const VEK_nodeXformContext& ctx) : VEK_discDef(*ctx.net, ctx.handle) {
    TakeOutcomesFrom(ctx);
}

VEK_nodeVal* VEK_lazyDef::CreateValue() const { return new VEK_beliefVector(Network(), Handle()); }

VEK_nodeVal* VEK_lazyDef::CreateValue(const VEK_valXformContext& ctx) const {
    return new VEK_beliefVector(Network(), Handle(), ctx);
}

const VEK_Dmatrix* VEK_lazyDef::GetMatrix() const {
    if (!valid_) {
        // Only the cached table changes; the definition is not a const object
        // (definitions live on the heap, owned by their node).
        if (const_cast<VEK_lazyDef*>(this)->CalculateCpt() >= 0) valid_ = true;
    }
    return &cpt_;
}

void VEK_lazyDef::InitXform(VEK_nodeXformContext& ctx) const {
    VEK_discDef::InitXform(ctx);
    ctx.table = GetMatrix();
}
