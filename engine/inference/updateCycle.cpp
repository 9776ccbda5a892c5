// The belief update cycle: classification, dispatch by algorithm id,
// invalidation, and the relevance event hooks.
#include "network/network.h"
#include "network/nodeDef.h"

unsigned VEK_initRelevanceFlags() {
    return VEK_REL_ARC_ADDED | VEK_REL_ARC_REMOVED | VEK_REL_EVIDENCE | VEK_REL_DEF_CHANGE_1 | VEK_REL_DEF_CHANGE_2 |
           VEK_REL_DEF_CHANGE_3;
}

int VEK_network::UpdateBeliefs() {
    struct UpdatingGuard {
        unsigned char& flag;
        explicit UpdatingGuard(unsigned char& f) : flag(f) { flag = 1; }
        ~UpdatingGuard() { flag = 0; }
    } guard(updating_);
    int res = DoUpdateBeliefs();
    if (listener_) listener_->OnUpdate(*this, res);
    return res;
}

int VEK_network::DoUpdateBeliefs() {
    if (nodeCount_ == 0) return CallBNAlgorithm();
    bool influence = false;
    bool equations = false;
    for (int h = 0; h < GetSlotCount(); ++h) {
        if (!nodes_[h]) continue;
        int t = nodes_[h]->Definition()->GetType();
        if (t == VEK_TABLE || t == VEK_LIST || t == VEK_MAU) influence = true;
        if (t == VEK_EQUATION) equations = true;
    }
    if (influence && equations) {
        return logger_.LogError(VEK_OUT_OF_RANGE, "Equation nodes cannot be used in influence diagrams.");
    }
    if (influence) return CallIDAlgorithm();
    return CallBNAlgorithm();
}

int VEK_network::CallBNAlgorithm() {
    RemoveJpts();
    if (bnAlgorithm_ < 0 || bnAlgorithm_ > 12) return VEK_OUT_OF_RANGE;
    if (nodeCount_ == 0) return VEK_OKAY;
    return logger_.LogError(VEK_WRONG_NODE_TYPE, "This inference algorithm is not available");
}

int VEK_network::CallIDAlgorithm() {
    if (idAlgorithm_ != 0 && idAlgorithm_ != 1) return VEK_OUT_OF_RANGE;
    return logger_.LogError(VEK_WRONG_NODE_TYPE, "Influence diagram solving is not available");
}

int VEK_network::InvalidateAllBeliefs() {
    RemoveJpts();
    for (auto& n : nodes_) {
        if (n) n->Value()->Invalidate();
    }
    return VEK_OKAY;
}

int VEK_network::SetUpdateImmediate(bool on) {
    if (!on) {
        flags_ &= ~VEK_FLAG_UPDATE_IMMEDIATELY;
        return VEK_OKAY;
    }
    if (flags_ & VEK_FLAG_UPDATE_IMMEDIATELY) return VEK_OKAY;
    flags_ |= VEK_FLAG_UPDATE_IMMEDIATELY;
    return UpdateBeliefs();
}

// Every model change drops computed beliefs; the relevance-specific work
// only runs when relevance reasoning is on.
int VEK_network::RelevanceEvidenceSet(int handle) {
    if (!IsValidNode(handle)) return VEK_OUT_OF_RANGE;
    InvalidateAllBeliefs();
    scopeDirty_ = true;
    if (!(flags_ & VEK_FLAG_RELEVANCE) || !(relevanceMask_ & VEK_REL_EVIDENCE)) return VEK_OKAY;
    return VEK_OKAY;
}

int VEK_network::RelevanceEvidenceCleared(int handle) {
    if (!IsValidNode(handle)) return VEK_OUT_OF_RANGE;
    InvalidateAllBeliefs();
    scopeDirty_ = true;
    return VEK_OKAY;
}

int VEK_network::RelevanceVirtualEvidenceSet(int handle) { return RelevanceEvidenceCleared(handle); }
int VEK_network::RelevanceVirtualEvidenceCleared(int handle) { return RelevanceEvidenceCleared(handle); }
int VEK_network::RelevanceContEvidenceChanged(int handle) { return RelevanceEvidenceCleared(handle); }
int VEK_network::RelevanceEvidencePropagated(int handle) { return RelevanceEvidenceCleared(handle); }
int VEK_network::RelevancePropagatedEvidenceCleared(int handle) { return RelevanceEvidenceCleared(handle); }

int VEK_network::RelevanceControlValue(int) { return VEK_OKAY; }
int VEK_network::RelevanceClearControlledValue(int) { return VEK_OKAY; }

int VEK_network::RelevanceArcAdded(int, int) {
    InvalidateAllBeliefs();
    scopeDirty_ = true;
    return VEK_OKAY;
}

int VEK_network::RelevanceArcRemoved(int, int) {
    InvalidateAllBeliefs();
    scopeDirty_ = true;
    return VEK_OKAY;
}

int VEK_network::RelevanceDefinitionChanged(int, unsigned) {
    InvalidateAllBeliefs();
    scopeDirty_ = true;
    return VEK_OKAY;
}
