#include "network/discVal.h"

#include "network/discDef.h"
#include "network/network.h"
#include "network/status.h"
#include "network/valXformContext.h"

VEK_discVal::VEK_discVal(VEK_network& net, int handle, const VEK_valXformContext& ctx) : VEK_nodeVal(net, handle) {
    if (ctx.evidence < 0) return;
    evidence_ = ctx.evidence;
    asNumber_ = ctx.evidenceAsNumber;
    number_ = ctx.number;
    SetFlags(VEK_VALUE_EVIDENCE);
    SetValueValid();
    vectorPending_ = true;
}

int VEK_discVal::GetNumberOfOutcomes() const {
    VEK_nodeDef* def = Def();
    if (!def) return 0;
    int n = def->GetNumberOfOutcomes();
    return n > 0 ? n : 0;
}

VEK_discDef* VEK_discVal::DiscDef() const { return dynamic_cast<VEK_discDef*>(Def()); }

// ---------------------------------------------------------------- matrix

bool VEK_discVal::BuildEvidenceVector(int outcomes) const {
    if (evidence_ < 0 || evidence_ >= outcomes) return false;
    (void)matrix_.SetSingleDimension(outcomes);  // outcomes > evidence_ >= 0
    matrix_.FillWith(0.0);
    matrix_[evidence_] = 1.0;
    vectorPending_ = false;
    return true;
}

void VEK_discVal::EnsureEvidenceVector() const {
    if (!vectorPending_) return;
    if (!HasHardEvidence()) {
        vectorPending_ = false;
        return;
    }
    BuildEvidenceVector(GetNumberOfOutcomes());
}

const VEK_Dmatrix* VEK_discVal::GetMatrix() const {
    EnsureEvidenceVector();
    return &matrix_;
}

VEK_Dmatrix* VEK_discVal::GetWriteableMatrix() {
    EnsureEvidenceVector();
    if (matrix_.GetSize() == 0) {
        VEK_intArray dims;
        bool ok = true;
        for (int p : indexingParents_) {
            VEK_nodeDef* d = GetPeerDef(p);
            int n = d ? d->GetNumberOfOutcomes() : 0;
            if (n < 1) ok = false;
            dims.Add(n);
        }
        int own = GetNumberOfOutcomes();
        if (ok && own > 0) {
            dims.Add(own);
            (void)matrix_.Setup(dims);  // every size is at least 1
            matrix_.FillWith(0.0);
        }
    }
    return &matrix_;
}

// ---------------------------------------------------------------- evidence

int VEK_discVal::GetEvidence() const { return HasHardEvidence() ? evidence_ : VEK_OUT_OF_RANGE; }

int VEK_discVal::GetEvidence(double& value) const {
    if (!HasHardEvidence()) return VEK_OUT_OF_RANGE;
    if (!asNumber_) return VEK_NO_ITEM;  // the evidence was given as an outcome
    value = number_;
    return VEK_OKAY;
}

const char* VEK_discVal::GetEvidenceId() const {
    if (!HasHardEvidence()) return nullptr;
    VEK_nodeDef* def = Def();
    const VEK_idArray* ids = def ? def->GetOutcomeIds() : nullptr;
    if (!ids || !ids->IsValidIndex(evidence_)) return nullptr;
    return ids->Subscript(evidence_);
}

int VEK_discVal::OutcomeForNumber(double value) const {
    VEK_discDef* def = DiscDef();
    if (!def) return VEK_WRONG_NODE_TYPE;
    if (def->HasIntervals()) return def->Discretize(value);
    if (def->HasPointValues()) return def->PointValueToOutcomeIndex(value);
    return VEK_NO_ITEM;
}

int VEK_discVal::SetEvidence(double value) {
    int outcome = OutcomeForNumber(value);
    if (outcome < 0) return outcome;
    return DoSetEvidence(outcome, true, value);
}

int VEK_discVal::SetEvidence(int outcome) { return DoSetEvidence(outcome, false); }

int VEK_discVal::SetEvidence(const char* outcomeId) {
    VEK_nodeDef* def = Def();
    const VEK_idArray* ids = def ? def->GetOutcomeIds() : nullptr;
    if (!ids || !outcomeId) return VEK_ILLEGAL_IDENTIFIER;
    int outcome = ids->FindPosition(outcomeId);
    if (outcome < 0) return VEK_ILLEGAL_IDENTIFIER;
    return DoSetEvidence(outcome, false);
}

void VEK_discVal::StoreEvidence(int outcome, bool asNumber, double number) {
    evidence_ = outcome;
    asNumber_ = asNumber;
    number_ = number;
    BuildEvidenceVector(GetNumberOfOutcomes());
    SetValueValid();
}

int VEK_discVal::DoSetEvidence(int outcome, bool asNumber, double number) {
    // Every check comes before the first change. Evidence and propagated
    // evidence never coexist, so clearing old evidence cannot affect the
    // conflict test.
    if (outcome < 0 || outcome >= GetNumberOfOutcomes()) return VEK_OUT_OF_RANGE;
    if (HasFlag(VEK_VALUE_PROPAGATED) && evidence_ != outcome) return VEK_EVIDENCE_CONFLICT;

    VEK_updateImmediateContext scope(Network());
    SavedEvidence previous = SaveEvidence();
    if (HasFlag(VEK_VALUE_EVIDENCE)) (void)ClearEvidence();  // present, so it clears
    if (HasFlag(VEK_VALUE_VIRTUAL)) (void)ClearVirtualEvidence();

    StoreEvidence(outcome, asNumber, number);
    SetFlags(VEK_VALUE_EVIDENCE);
    ClearFlags(VEK_VALUE_PROPAGATED);

    // The relevance check comes after the old evidence was cleared, in that
    // fixed order; a refusal restores what was cleared (evidence, controlled
    // value or virtual evidence), so a refused call changes nothing.
    int res = Network().RelevanceEvidenceSet(Handle());
    if (res < 0) {
        (void)ClearEvidence();  // just set, so it clears
        RestoreSaved(previous);
        return res;
    }
    return VEK_OKAY;
}

int VEK_discVal::ClearEvidence() {
    if (HasFlag(VEK_VALUE_EVIDENCE)) {
        VEK_updateImmediateContext scope(Network());
        SetStamp(0);
        ClearFlags(VEK_VALUE_EVIDENCE | VEK_VALUE_VALID | VEK_VALUE_CONTROLLED);
        evidence_ = -1;
        asNumber_ = false;
        vectorPending_ = false;
        ResetResult();
        (void)Network().RelevanceEvidenceCleared(Handle());  // the node's own handle is valid
        return VEK_OKAY;
    }
    if (HasFlag(VEK_VALUE_VIRTUAL)) {
        (void)ClearVirtualEvidence();  // present, so it clears
        return VEK_OKAY;
    }
    return VEK_OUT_OF_RANGE;
}

int VEK_discVal::SetPropagatedEvidence(int outcome) { return DoSetPropagatedEvidence(outcome, false); }

int VEK_discVal::SetPropagatedEvidence(double value) {
    int outcome = OutcomeForNumber(value);
    if (outcome < 0) return outcome;
    return DoSetPropagatedEvidence(outcome, true, value);
}

int VEK_discVal::DoSetPropagatedEvidence(int outcome, bool asNumber, double number) {
    if (HasHardEvidence()) return VEK_OUT_OF_RANGE;
    if (outcome < 0 || outcome >= GetNumberOfOutcomes()) return VEK_OUT_OF_RANGE;

    VEK_updateImmediateContext scope(Network());
    SavedEvidence previous = SaveEvidence();
    if (HasFlag(VEK_VALUE_VIRTUAL)) (void)ClearVirtualEvidence();  // present, so it clears

    StoreEvidence(outcome, asNumber, number);
    SetFlags(VEK_VALUE_PROPAGATED);
    // A plate node stands for every slice; one outcome does not make its
    // value valid.
    VEK_node* node = Network().GetNode(Handle());
    if (node && node->GetTemporalType() == VEK_TEMPORAL_PLATE) {
        ClearFlags(VEK_VALUE_VALID);
        SetStamp(0);
    }

    int res = Network().RelevanceEvidencePropagated(Handle());
    if (res < 0) {
        (void)ClearPropagatedEvidence();  // just set, so it clears
        RestoreSaved(previous);
        return res;
    }
    return VEK_OKAY;
}

int VEK_discVal::ClearPropagatedEvidence() {
    if (!HasFlag(VEK_VALUE_PROPAGATED)) return VEK_OUT_OF_RANGE;
    VEK_updateImmediateContext scope(Network());
    SetStamp(0);
    ClearFlags(VEK_VALUE_PROPAGATED | VEK_VALUE_VALID);
    evidence_ = -1;
    asNumber_ = false;
    vectorPending_ = false;
    ResetResult();
    (void)Network().RelevancePropagatedEvidenceCleared(Handle());  // the node's own handle is valid
    return VEK_OKAY;
}

VEK_discVal::SavedEvidence VEK_discVal::SaveEvidence() const {
    SavedEvidence s;
    if (HasFlag(VEK_VALUE_EVIDENCE)) {
        s.kind = VEK_VALUE_EVIDENCE;
        s.controlled = IsControlled();
    } else if (HasFlag(VEK_VALUE_PROPAGATED)) {
        s.kind = VEK_VALUE_PROPAGATED;
    } else if (HasFlag(VEK_VALUE_VIRTUAL)) {
        s.kind = VEK_VALUE_VIRTUAL;
        (void)GetVirtualEvidence(s.virtualEvidence);  // present, so it is read
        return s;
    } else {
        return s;
    }
    s.outcome = evidence_;
    s.asNumber = asNumber_;
    s.number = number_;
    return s;
}

void VEK_discVal::RestoreSaved(const SavedEvidence& saved) {
    switch (saved.kind) {
        case VEK_VALUE_EVIDENCE:
            if (DoSetEvidence(saved.outcome, saved.asNumber, saved.number) == VEK_OKAY && saved.controlled) {
                SetFlags(VEK_VALUE_CONTROLLED);
            }
            break;
        case VEK_VALUE_PROPAGATED:
            (void)DoSetPropagatedEvidence(saved.outcome, saved.asNumber, saved.number);  // accepted before
            break;
        case VEK_VALUE_VIRTUAL:
            (void)SetVirtualEvidence(saved.virtualEvidence);  // accepted before
            break;
        default:
            break;
    }
}

// ---------------------------------------------------------------- statistics

int VEK_discVal::GetMean(double& mean) const {
    if (IsEvidenceAsNumber()) {
        mean = number_;
        return VEK_OKAY;
    }
    VEK_discDef* def = DiscDef();
    if (!def) return VEK_WRONG_NODE_TYPE;
    if (!IsValueValid()) return VEK_NO_ITEM;
    const VEK_Dmatrix* m = GetMatrix();
    int n = GetNumberOfOutcomes();
    if (n == 0 || m->GetSize() != n) return VEK_OUT_OF_RANGE;
    return def->GetMean(m->Items(), mean);
}

int VEK_discVal::GetStdDev(double& sd) const {
    if (IsEvidenceAsNumber()) {
        sd = 0.0;
        return VEK_OKAY;
    }
    VEK_discDef* def = DiscDef();
    if (!def) return VEK_WRONG_NODE_TYPE;
    if (!IsValueValid()) return VEK_NO_ITEM;
    const VEK_Dmatrix* m = GetMatrix();
    int n = GetNumberOfOutcomes();
    if (n == 0 || m->GetSize() != n) return VEK_OUT_OF_RANGE;
    return def->GetStdDev(m->Items(), sd);
}

// ---------------------------------------------------------------- type change

// Propagated evidence is not carried: the network derives it again from the
// evidence that implies it.
void VEK_discVal::InitXform(VEK_valXformContext& ctx) const {
    if (!HasFlag(VEK_VALUE_EVIDENCE)) return;
    ctx.evidence = evidence_;
    ctx.evidenceAsNumber = asNumber_;
    ctx.number = number_;
}

// ---------------------------------------------------------------- outcome changes

void VEK_discVal::FollowOutcomeChange(int newIndex) {
    if (HasFlag(VEK_VALUE_VIRTUAL)) (void)ClearVirtualEvidence();  // present, so it clears
    if (!HasHardEvidence()) {
        Invalidate();
        return;
    }
    int n = GetNumberOfOutcomes();
    if (newIndex < 0 || newIndex >= n) {
        if (IsControlled()) {
            (void)ClearControlledValue();  // the clears below act on evidence present
        } else if (HasFlag(VEK_VALUE_EVIDENCE)) {
            (void)ClearEvidence();
        } else {
            (void)ClearPropagatedEvidence();
        }
        return;
    }
    evidence_ = newIndex;
    if (!BuildEvidenceVector(n)) vectorPending_ = true;
}

void VEK_discVal::OnOutcomeInsert(int k) {
    int idx = evidence_;
    if (HasHardEvidence() && k <= idx) ++idx;
    FollowOutcomeChange(idx);
}

void VEK_discVal::OnOutcomeRemove(int k) {
    int idx = evidence_;
    if (HasHardEvidence()) {
        if (idx == k) {
            idx = -1;
        } else if (idx > k) {
            --idx;
        }
    }
    FollowOutcomeChange(idx);
}

void VEK_discVal::OnOutcomeReorder(const VEK_intArray& order) {
    // New outcome i is old outcome order[i].
    int idx = HasHardEvidence() ? order.FindPosition(evidence_) : evidence_;
    FollowOutcomeChange(idx);
}

void VEK_discVal::OnOutcomeCountChange() { FollowOutcomeChange(evidence_); }
