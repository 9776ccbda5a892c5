// Construction of the canonical definitions (noisy-MAX, noisy-adder,
// DeMorgan, CAST) for the definition factory of VEK_nodeDef.
#pragma once

class VEK_network;
class VEK_nodeDef;
class VEK_nodeXformContext;

// A new definition of a canonical type for a node; null for other types.
VEK_nodeDef* VEK_createCanonicalDef(int type, VEK_network& net, int handle);
// A canonical definition built from a conversion context; null for other
// types. Outcomes are kept (two for DeMorgan and CAST, whose outcome ids are
// kept only when there were two); a noisy-MAX reads its CI weights from the
// context's table when it has the shape of the current parents, the others
// start from their default parameters.
VEK_nodeDef* VEK_createCanonicalDef(int type, const VEK_nodeXformContext& ctx);
