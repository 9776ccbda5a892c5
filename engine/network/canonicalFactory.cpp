#include "network/canonicalFactory.h"

#include "network/cast.h"
#include "network/demorgan.h"
#include "network/noisyAdder.h"
#include "network/noisyMAX.h"

VEK_nodeDef* VEK_createCanonicalDef(int type, VEK_network& net, int handle) {
    switch (type) {
        case VEK_NOISY_MAX: return new VEK_noisyMAX(net, handle);
        case VEK_NOISY_ADDER: return new VEK_noisyAdder(net, handle);
        case VEK_DEMORGAN: return new VEK_demorgan(net, handle);
        case VEK_CAST: return new VEK_cast(net, handle);
        default: return nullptr;
    }
}

VEK_nodeDef* VEK_createCanonicalDef(int type, const VEK_nodeXformContext& ctx) {
    switch (type) {
        case VEK_NOISY_MAX: return new VEK_noisyMAX(ctx);
        case VEK_NOISY_ADDER: return new VEK_noisyAdder(ctx);
        case VEK_DEMORGAN: return new VEK_demorgan(ctx);
        case VEK_CAST: return new VEK_cast(ctx);
        default: return nullptr;
    }
}
