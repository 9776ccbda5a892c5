#include "network/beliefVector.h"

#include <cmath>

#include "network/network.h"
#include "network/status.h"
#include "network/valXformContext.h"

// Likelihoods that sum to 1 within this tolerance are kept exactly as given.
static constexpr double kVirtualSumTolerance = 5e-6;

VEK_beliefVector::VEK_beliefVector(VEK_network& net, int handle, const VEK_valXformContext& ctx)
    : VEK_discVal(net, handle, ctx) {
    // The values were checked when they were set; the outcomes do not change
    // with the type.
    if (ctx.evidence < 0 && ctx.hasVirtual && !ctx.virtualEvidence.empty()) {
        virtual_ = ctx.virtualEvidence;
        SetFlags(VEK_VALUE_VIRTUAL);
    }
}

VEK_nodeVal* VEK_beliefVector::Clone(VEK_network& net) const {
    auto* copy = new VEK_beliefVector(*this);
    copy->Rebind(net, Handle());
    return copy;
}

// ---------------------------------------------------------------- virtual evidence

int VEK_beliefVector::GetVirtualEvidence(std::vector<double>& out) const {
    if (!IsVirtualEvidence()) return VEK_OUT_OF_RANGE;
    out = virtual_;
    return VEK_OKAY;
}

int VEK_beliefVector::GetVirtualEvidence(VEK_doubleArray& out) const {
    if (!IsVirtualEvidence()) return VEK_OUT_OF_RANGE;
    out = VEK_doubleArray(virtual_);
    return VEK_OKAY;
}

int VEK_beliefVector::SetVirtualEvidence(const std::vector<double>& values) {
    return DoSetVirtualEvidence(values.data(), static_cast<int>(values.size()));
}

int VEK_beliefVector::SetVirtualEvidence(const VEK_doubleArray& values) {
    return DoSetVirtualEvidence(values.Items(), values.GetSize());
}

int VEK_beliefVector::DoSetVirtualEvidence(const double* values, int count) {
    int n = GetNumberOfOutcomes();
    if (count != n) return VEK_OUT_OF_RANGE;
    if (n == 0) return VEK_NO_ITEM;
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
        // Written so that NaN fails too.
        if (!(values[i] >= 0.0 && values[i] <= 1.0)) return VEK_INVALID_VALUE;
        sum += values[i];
    }
    if (sum == 0.0) return VEK_NO_ITEM;

    VEK_updateImmediateContext scope(Network());
    SavedEvidence previous = SaveEvidence();
    if (HasFlag(VEK_VALUE_EVIDENCE)) (void)ClearEvidence();  // present, so it clears

    virtual_.assign(values, values + n);
    if (std::fabs(sum - 1.0) > kVirtualSumTolerance) {
        for (double& v : virtual_) v /= sum;
    }
    SetFlags(VEK_VALUE_VIRTUAL);
    ClearFlags(VEK_VALUE_VALID);
    SetStamp(0);
    ResetResult();

    int res = Network().RelevanceVirtualEvidenceSet(Handle());
    if (res < 0) {
        (void)ClearVirtualEvidence();  // just set, so it clears
        RestoreSaved(previous);
    }
    return res;
}

int VEK_beliefVector::ClearVirtualEvidence() {
    if (!IsVirtualEvidence()) return VEK_NO_ITEM;
    VEK_updateImmediateContext scope(Network());
    std::vector<double>().swap(virtual_);
    ClearFlags(VEK_VALUE_VIRTUAL | VEK_VALUE_VALID);
    SetStamp(0);
    ResetResult();
    (void)Network().RelevanceVirtualEvidenceCleared(Handle());  // the node's own handle is valid
    return VEK_OKAY;
}

void VEK_beliefVector::InitXform(VEK_valXformContext& ctx) const {
    VEK_discVal::InitXform(ctx);
    if (IsVirtualEvidence()) {
        ctx.hasVirtual = true;
        ctx.virtualEvidence = virtual_;
    }
}

// ---------------------------------------------------------------- controlled values

bool VEK_beliefVector::IsControllable() const {
    VEK_intArray descendants;
    if (Network().GetDescendants(Handle(), descendants) < 0) return false;
    for (int h : descendants) {
        const VEK_nodeVal* v = GetPeerVal(h);
        if (v && v->HasHardEvidence() && !v->IsControlled()) return false;
    }
    return true;
}

int VEK_beliefVector::ControlValue(int outcome) {
    if (outcome < 0 || outcome >= GetNumberOfOutcomes()) return VEK_OUT_OF_RANGE;
    if (!IsControllable()) return VEK_OUT_OF_RANGE;

    VEK_updateImmediateContext scope(Network());
    SavedEvidence previous = SaveEvidence();
    if (IsControlled()) (void)ClearControlledValue();  // present, so they clear
    if (HasFlag(VEK_VALUE_EVIDENCE | VEK_VALUE_VIRTUAL)) (void)ClearEvidence();
    int res = SetEvidence(outcome);
    if (res < 0) {
        // Refused after clearing: what was cleared comes back, so a refused
        // call changes nothing.
        RestoreSaved(previous);
        return res;
    }
    SetFlags(VEK_VALUE_CONTROLLED);
    Network().RelevanceControlValue(Handle());

    // An intervention changes what every other node's value means.
    VEK_intArray all;
    Network().GetAllNodes(all);
    for (int h : all) {
        if (h == Handle()) continue;
        VEK_nodeVal* v = GetPeerVal(h);
        if (!v || v->IsEvidence()) continue;
        ClearPeerFlags(*v, VEK_VALUE_VALID | VEK_VALUE_PROPAGATED);
        v->SetStamp(0);
    }
    return VEK_OKAY;
}

int VEK_beliefVector::ClearControlledValue() {
    if (!IsControlled()) return VEK_OKAY;
    VEK_updateImmediateContext scope(Network());
    ClearFlags(VEK_VALUE_CONTROLLED);
    (void)ClearEvidence();  // a controlled value is evidence, so it clears
    Network().RelevanceClearControlledValue(Handle());
    return VEK_OKAY;
}
