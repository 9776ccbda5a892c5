// Carries what survives a definition type change from the old definition to
// the new one.
#pragma once

#include <memory>
#include <vector>

#include "network/discDef.h"

class VEK_nodeXformContext {
public:
    VEK_nodeXformContext(VEK_network& net, int handle) : net(&net), handle(handle) {}

    VEK_network* net;
    int handle;
    bool hasOutcomes = false;
    VEK_idArray outcomeIds;
    std::vector<double> intervals;
    std::vector<double> pointValues;
    std::unique_ptr<VEK_discDefExtension> extension;
    const VEK_Dmatrix* table = nullptr;  // CPT, truth table or computed canonical table
};
