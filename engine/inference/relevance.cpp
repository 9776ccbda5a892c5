// Relevance event hooks: every model change drops computed beliefs; with
// relevance reasoning on, evidence is checked against the node's table and
// its deterministic consequences are set as propagated evidence.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "inference/inferenceCache.h"
#include "network/lazyDef.h"
#include "network/network.h"
#include "network/nodeDef.h"
#include "network/nodeVal.h"

namespace {

// Marks the propagated evidence as being recomputed for the lifetime of the
// scope, so that an exception on the way cannot leave the mark set and
// deterministic propagation silently off for the network.
class DeterminingScope {
public:
    explicit DeterminingScope(VEK_inferenceCache& cache) : flag_(cache.determining) { flag_ = true; }
    ~DeterminingScope() { flag_ = false; }
    DeterminingScope(const DeterminingScope&) = delete;
    DeterminingScope& operator=(const DeterminingScope&) = delete;

private:
    bool& flag_;
};

// Truth tables with more columns than this are not searched backwards.
constexpr int kMaxDeterminedColumns = 1 << 20;
// Tables of canonical definitions are computed on demand; a larger one is
// not computed just to check evidence (inference does not need it either).
constexpr int64_t kMaxComputedEntries = int64_t(1) << 22;

bool TableAtHand(const VEK_network& net, int h, const VEK_nodeDef& def) {
    // Plain tables need no cast to be told apart from computed ones.
    if (def.GetType() == VEK_CPT || def.GetType() == VEK_TRUTHTABLE) return true;
    const auto* lazy = dynamic_cast<const VEK_lazyDef*>(&def);
    if (!lazy || lazy->IsCptValid()) return true;
    int64_t entries = std::max(def.GetNumberOfOutcomes(), 1);
    for (int p : net.GetNode(h)->Parents()) {
        const VEK_nodeDef* pd = net.GetDef(p);
        entries *= pd ? std::max(pd->GetNumberOfOutcomes(), 1) : 1;
        if (entries > kMaxComputedEntries) return false;
    }
    return true;
}

bool IsTruthTable(const VEK_network& net, int h) {
    const VEK_nodeDef* d = net.GetDef(h);
    return d && d->GetType() == VEK_TRUTHTABLE;
}

bool Fixed(const VEK_network& net, int h) {
    const VEK_nodeVal* v = net.GetVal(h);
    return v && v->HasHardEvidence() && v->GetEvidence() >= 0;
}

// The outcome that a truth table selects for its parents' observed states;
// -1 when some parent is not observed or the column selects nothing.
int ForwardOutcome(VEK_network& net, int h) {
    const VEK_node* node = net.GetNode(h);
    const VEK_Dmatrix* t = net.GetDef(h)->GetMatrix();
    if (!t) return -1;
    const VEK_intArray& parents = node->Parents();
    if (t->GetNumberOfDimensions() != parents.GetSize() + 1) return -1;
    int column = 0;
    for (int k = 0; k < parents.GetSize(); ++k) {
        if (!Fixed(net, parents[k])) return -1;
        column = column * t->GetSizeOfDimension(k) + net.GetVal(parents[k])->GetEvidence();
    }
    const int n = t->GetLastDimensionSize();
    for (int s = 0; s < n; ++s)
        if ((*t)[column * n + s] == 1.0) return s;
    return -1;
}

// Evidence on a truth table: when exactly one combination of parent states
// (among those that agree with the parents' own evidence) selects the
// observed outcome, that combination is returned in states.
bool BackwardConfiguration(VEK_network& net, int h, std::vector<int>& states) {
    const VEK_node* node = net.GetNode(h);
    const VEK_Dmatrix* t = net.GetDef(h)->GetMatrix();
    const VEK_intArray& parents = node->Parents();
    const int np = parents.GetSize();
    if (!t || np == 0 || t->GetNumberOfDimensions() != np + 1) return false;
    const int n = t->GetLastDimensionSize();
    const int columns = t->GetSize() / n;
    if (columns > kMaxDeterminedColumns) return false;
    const int e = net.GetVal(h)->GetEvidence();
    std::vector<int> coord(static_cast<size_t>(np), 0), fixed(static_cast<size_t>(np), -1);
    for (int k = 0; k < np; ++k)
        if (Fixed(net, parents[k])) fixed[static_cast<size_t>(k)] = net.GetVal(parents[k])->GetEvidence();
    int found = 0;
    for (int c = 0; c < columns; ++c) {
        bool agrees = true;
        for (int k = 0; k < np && agrees; ++k)
            agrees = fixed[static_cast<size_t>(k)] < 0 || fixed[static_cast<size_t>(k)] == coord[static_cast<size_t>(k)];
        if (agrees && (*t)[c * n + e] != 0.0) {
            if (++found > 1) return false;
            states = coord;
        }
        for (int k = np - 1; k >= 0; --k) {
            if (++coord[static_cast<size_t>(k)] < t->GetSizeOfDimension(k)) break;
            coord[static_cast<size_t>(k)] = 0;
        }
    }
    return found == 1;
}

// Propagates the deterministic consequences of the evidence on h. Conflicts
// are left alone: the update then finds the evidence impossible.
int FunctionDetermine(VEK_network& net, int h) {
    // Most evidence touches no truth table: nothing to queue or allocate.
    bool touches = IsTruthTable(net, h);
    const VEK_intArray& next = net.GetNode(h)->Children();
    for (int k = 0; k < next.GetSize() && !touches; ++k) touches = IsTruthTable(net, next[k]);
    if (!touches) return VEK_OKAY;
    std::vector<int> queue{h};
    std::vector<int> states;
    while (!queue.empty()) {
        const int x = queue.back();
        queue.pop_back();
        const VEK_nodeVal* xv = net.GetVal(x);
        if (!xv) continue;
        // An intervention says nothing about the node's parents.
        if (IsTruthTable(net, x) && Fixed(net, x) && !xv->IsControlled() && BackwardConfiguration(net, x, states)) {
            const VEK_intArray& parents = net.GetNode(x)->Parents();
            for (int k = 0; k < parents.GetSize(); ++k) {
                const int p = parents[k];
                if (Fixed(net, p)) continue;
                if (net.GetVal(p)->SetPropagatedEvidence(states[static_cast<size_t>(k)]) == VEK_OKAY) queue.push_back(p);
            }
        }
        if (!Fixed(net, x)) continue;
        const VEK_intArray& children = net.GetNode(x)->Children();
        for (int k = 0; k < children.GetSize(); ++k) {
            const int c = children[k];
            if (!IsTruthTable(net, c) || Fixed(net, c)) continue;
            const int outcome = ForwardOutcome(net, c);
            if (outcome >= 0 && net.GetVal(c)->SetPropagatedEvidence(outcome) == VEK_OKAY) queue.push_back(c);
        }
    }
    return VEK_OKAY;
}

}  // namespace

// Propagated evidence is derived from the real evidence; whenever that may
// no longer hold it is taken away and derived again.
static void RecomputePropagatedEvidence(VEK_network& net, bool evidenceOnly) {
    VEK_inferenceCache& cache = net.InferenceCache();
    if (cache.determining || net.IsReading()) return;
    if (!(net.ValueFlagsSeen() & (VEK_VALUE_EVIDENCE | VEK_VALUE_PROPAGATED))) return;
    bool anyPropagated = false;
    bool anyEvidence = false;
    for (int h = 0; h < net.GetSlotCount(); ++h) {
        const VEK_nodeVal* v = net.GetVal(h);
        if (!v) continue;
        anyPropagated |= v->IsPropagatedEvidence();
        anyEvidence |= v->IsRealEvidence();
    }
    if (!anyPropagated && (evidenceOnly || !anyEvidence)) return;
    const DeterminingScope scope(cache);
    for (int h = 0; h < net.GetSlotCount(); ++h) {
        VEK_nodeVal* v = net.GetVal(h);
        if (v && v->IsPropagatedEvidence()) (void)v->ClearPropagatedEvidence();  // present: cannot fail
    }
    const bool derive = net.IsRelevanceEnabled() && (net.GetFlags() & VEK_FLAG_DETERMINISTIC_PROPAGATION) &&
                        (net.GetRelevanceMask() & VEK_REL_EVIDENCE);
    if (derive) {
        for (int h = 0; h < net.GetSlotCount(); ++h) {
            const VEK_nodeVal* v = net.GetVal(h);
            if (v && v->IsRealEvidence()) FunctionDetermine(net, h);
        }
    }
}

int VEK_network::RelevanceEvidenceSet(int handle) {
    if (!IsValidNode(handle)) return VEK_OUT_OF_RANGE;
    InvalidateAllBeliefs();
    scopeDirty_ = true;
    if (!IsRelevanceEnabled() || !(settings_.relevanceMask & VEK_REL_EVIDENCE)) return VEK_OKAY;
    VEK_nodeDef* def = GetDef(handle);
    if (!def || def->GetType() == VEK_EQUATION) return RelevanceContEvidenceChanged(handle);

    VEK_nodeVal* val = GetVal(handle);
    const int e = val->GetEvidence();
    const VEK_Dmatrix* t = TableAtHand(*this, handle, *def) ? def->GetMatrix() : nullptr;
    if (t && e >= 0 && e < t->GetLastDimensionSize()) {
        const int n = t->GetLastDimensionSize();
        bool possible = false;
        for (int i = e; i < t->GetSize() && !possible; i += n) possible = (*t)[i] != 0.0;
        if (!possible) {
            const VEK_idArray* ids = def->GetOutcomeIds();
            const char* outcome = ids && e < ids->GetSize() ? ids->Subscript(e) : "";
            return logger_.VLogError(VEK_OUT_OF_RANGE, "Outcome [%s] of node [%s] is impossible", outcome,
                                     GetNodeId(handle));
        }
    }
    if ((settings_.flags & VEK_FLAG_DETERMINISTIC_PROPAGATION) && !InferenceCache().determining && !IsReading()) {
        const DeterminingScope scope(InferenceCache());
        return FunctionDetermine(*this, handle);
    }
    return VEK_OKAY;
}

int VEK_network::RelevanceEvidenceCleared(int handle) {
    if (!IsValidNode(handle)) return VEK_OUT_OF_RANGE;
    InvalidateAllBeliefs();
    scopeDirty_ = true;
    // Propagated evidence must not outlive its source, whatever the flags.
    RecomputePropagatedEvidence(*this, true);
    return VEK_OKAY;
}

int VEK_network::RelevanceVirtualEvidenceSet(int handle) {
    if (!IsValidNode(handle)) return VEK_OUT_OF_RANGE;
    InvalidateAllBeliefs();
    scopeDirty_ = true;
    return VEK_OKAY;
}

int VEK_network::RelevanceVirtualEvidenceCleared(int handle) { return RelevanceVirtualEvidenceSet(handle); }
int VEK_network::RelevanceContEvidenceChanged(int handle) { return RelevanceVirtualEvidenceSet(handle); }
int VEK_network::RelevanceEvidencePropagated(int handle) { return RelevanceVirtualEvidenceSet(handle); }
int VEK_network::RelevancePropagatedEvidenceCleared(int handle) { return RelevanceVirtualEvidenceSet(handle); }

int VEK_network::RelevanceControlValue(int) { return VEK_OKAY; }
int VEK_network::RelevanceClearControlledValue(int) { return VEK_OKAY; }

void VEK_network::NodeChanged(int) { RecomputePropagatedEvidence(*this, false); }

int VEK_network::RelevanceArcAdded(int, int child) {
    InvalidateAllBeliefs();
    scopeDirty_ = true;
    if (IsRelevanceEnabled() && (settings_.relevanceMask & VEK_REL_ARC_ADDED)) NodeChanged(child);
    return VEK_OKAY;
}

int VEK_network::RelevanceArcRemoved(int, int child) {
    InvalidateAllBeliefs();
    scopeDirty_ = true;
    if (IsRelevanceEnabled() && (settings_.relevanceMask & VEK_REL_ARC_REMOVED)) NodeChanged(child);
    return VEK_OKAY;
}

int VEK_network::RelevanceDefinitionChanged(int handle, unsigned what) {
    InvalidateAllBeliefs();
    scopeDirty_ = true;
    if (!IsRelevanceEnabled()) return VEK_OKAY;
    const bool known = what == VEK_REL_DEF_CHANGE_1 || what == VEK_REL_DEF_CHANGE_2 || what == VEK_REL_DEF_CHANGE_3;
    if (known && (what & settings_.relevanceMask)) NodeChanged(handle);
    return VEK_OKAY;
}
