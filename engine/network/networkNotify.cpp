// Outcome notifications, evidence-wide operations and targets.
#include "network/network.h"

#include "dynamic/dynamicNet.h"

void VEK_network::OnAddOutcome(int handle, int outcome) {
    VEK_node* n = GetNode(handle);
    if (!n) return;
    n->Value()->OnOutcomeInsert(outcome);
    for (int c : n->CostChildren()) nodes_[c]->RebuildCostTable();
    if (dynamic_) dynamic_->OnOutcomeInsert(handle, outcome);
    scopeDirty_ = true;
}

void VEK_network::OnDeleteOutcome(int handle, int outcome) {
    VEK_node* n = GetNode(handle);
    if (!n) return;
    n->Value()->OnOutcomeRemove(outcome);
    for (int c : n->CostChildren()) nodes_[c]->RebuildCostTable();
    if (dynamic_) dynamic_->OnOutcomeRemove(handle, outcome);
    scopeDirty_ = true;
}

void VEK_network::OnReorderOutcomes(int handle, const VEK_intArray& order) {
    VEK_node* n = GetNode(handle);
    if (!n) return;
    n->Value()->OnOutcomeReorder(order);
    for (int c : n->CostChildren()) nodes_[c]->RebuildCostTable();
    if (dynamic_) dynamic_->OnOutcomeReorder(handle, order);
    scopeDirty_ = true;
}

void VEK_network::OnOutcomeCountChanged(int handle) {
    VEK_node* n = GetNode(handle);
    if (!n) return;
    n->Value()->OnOutcomeCountChange();
    for (int c : n->CostChildren()) nodes_[c]->RebuildCostTable();
    if (dynamic_) dynamic_->OnOutcomeCountChanged(handle);
    scopeDirty_ = true;
}

void VEK_network::OnDefinitionChanged(int handle) {
    if (!IsValidNode(handle)) return;
    RelevanceDefinitionChanged(handle, VEK_REL_DEF_CHANGE_1);
    scopeDirty_ = true;
}

int VEK_network::ClearAllEvidence() {
    VEK_updateImmediateContext scope(*this);
    for (int h = 0; h < GetSlotCount(); ++h) {
        if (!nodes_[h]) continue;
        VEK_nodeVal* v = nodes_[h]->Value();
        if (v->IsControlled()) (void)v->ClearControlledValue();  // present, so they clear
        if (v->IsEvidence() || v->IsVirtualEvidence()) (void)v->ClearEvidence();
    }
    for (int h = 0; h < GetSlotCount(); ++h) {
        if (nodes_[h] && nodes_[h]->Value()->IsPropagatedEvidence()) (void)nodes_[h]->Value()->ClearPropagatedEvidence();  // present, so it clears
    }
    if (dynamic_) dynamic_->ClearAllTemporalEvidence();
    InvalidateAllBeliefs();
    scopeDirty_ = true;
    return VEK_OKAY;
}

int VEK_network::SetTarget(int handle, bool on) {
    VEK_node* n = GetNode(handle);
    if (!n) return VEK_OUT_OF_RANGE;
    if (n->IsTarget() == on) return VEK_INVALID_VALUE;
    VEK_updateImmediateContext scope(*this);
    n->SetTargetFlag(on);
    targetCount_ += on ? 1 : -1;
    InvalidateAllBeliefs();
    scopeDirty_ = true;
    return VEK_OKAY;
}

bool VEK_network::IsTarget(int handle) const {
    const VEK_node* n = GetNode(handle);
    return n && n->IsTarget();
}

int VEK_network::ClearAllTargets() {
    VEK_updateImmediateContext scope(*this);
    for (auto& n : nodes_) {
        if (n && n->IsTarget()) (void)SetTarget(n->Handle(), false);  // a target can always stop being one
    }
    return VEK_OKAY;
}

void VEK_network::EndUpdateScope() {
    if (scopeDepth_ > 0) --scopeDepth_;
    if (scopeDepth_ == 0 && scopeDirty_) {
        scopeDirty_ = false;
        if (IsUpdateImmediate() && !updating_) (void)UpdateBeliefs();  // a failure is logged; beliefs stay invalid
    }
}
