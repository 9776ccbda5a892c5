#include "network/networkState.h"

#include <cmath>
#include <limits>

#include "network/network.h"
#include "network/status.h"

VEK_networkState::VEK_networkState(VEK_network& net, int flag) : net_(&net), flag_(flag) {
    VEK_intArray handles;
    net.GetAllNodes(handles);
    for (int h : handles) {
        const VEK_nodeVal* v = net.GetVal(h);
        if (!v) continue;
        Item item;
        item.handle = h;
        if (v->HasHardEvidence()) {
            item.kind = v->IsEvidence() ? VEK_VALUE_EVIDENCE : VEK_VALUE_PROPAGATED;
            item.outcome = v->GetEvidence();
            item.controlled = v->IsControlled();
            // Only evidence given as a number has one to read back.
            double x = 0.0;
            item.number = v->GetEvidence(x) == VEK_OKAY ? x : std::numeric_limits<double>::quiet_NaN();
        } else if ((flag & VEK_STATE_VIRTUAL) && v->IsVirtualEvidence()) {
            item.kind = VEK_VALUE_VIRTUAL;
            if (v->GetVirtualEvidence(item.virtualEvidence) < 0) continue;
        } else {
            continue;
        }
        items_.push_back(std::move(item));
    }
}

int VEK_networkState::RestoreEvidence() {
    VEK_network& net = *net_;
    VEK_updateImmediateContext scope(net);
    int res = net.ClearAllEvidence();
    if (res < 0) return res;

    for (const Item& item : items_) {
        if (!item.controlled) continue;
        VEK_nodeVal* v = net.GetVal(item.handle);
        if (!v) return VEK_OUT_OF_RANGE;
        res = v->ControlValue(item.outcome);
        if (res < 0) return res;
    }
    for (const Item& item : items_) {
        if (item.controlled || item.kind == VEK_VALUE_PROPAGATED) continue;
        VEK_nodeVal* v = net.GetVal(item.handle);
        if (!v) return VEK_OUT_OF_RANGE;
        if (item.kind == VEK_VALUE_VIRTUAL) {
            res = v->SetVirtualEvidence(item.virtualEvidence);
        } else {
            res = std::isnan(item.number) ? v->SetEvidence(item.outcome) : v->SetEvidence(item.number);
        }
        if (res < 0) return res;
    }
    for (const Item& item : items_) {
        if (item.kind != VEK_VALUE_PROPAGATED) continue;
        VEK_nodeVal* v = net.GetVal(item.handle);
        if (!v) return VEK_OUT_OF_RANGE;
        if (v->HasHardEvidence()) {
            // Derived again from the evidence restored above.
            if (v->IsPropagatedEvidence() && v->GetEvidence() == item.outcome) continue;
            return VEK_EVIDENCE_CONFLICT;
        }
        res = std::isnan(item.number) ? v->SetPropagatedEvidence(item.outcome) : v->SetPropagatedEvidence(item.number);
        if (res < 0) return res;
    }
    return VEK_OKAY;
}
