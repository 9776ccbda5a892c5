// The DeMorgan and noisy-adder side of VEK_dynamicNet: per temporal order a
// definition of the node's kind over stand-ins of the table's parents, which
// keeps the parameters, follows the graph and computes the table.
#include <algorithm>

#include "dynamic/dynamicNet.h"
#include "network/demorgan.h"
#include "network/network.h"
#include "network/noisyAdder.h"

VEK_dynamicNet::Canonical::Canonical() = default;
VEK_dynamicNet::Canonical::Canonical(Canonical&&) noexcept = default;
VEK_dynamicNet::Canonical& VEK_dynamicNet::Canonical::operator=(Canonical&&) noexcept = default;
VEK_dynamicNet::Canonical::~Canonical() = default;

VEK_dynamicNet::Canonical::Canonical(const Canonical& other)
    : net(other.net ? std::make_unique<VEK_network>(*other.net) : nullptr),
      child(other.child),
      owners(other.owners),
      standIns(other.standIns) {}

VEK_dynamicNet::Canonical& VEK_dynamicNet::Canonical::operator=(const Canonical& other) {
    if (this != &other) *this = Canonical(other);
    return *this;
}

namespace {

// DeMorgan parents must be DeMorgan nodes themselves; a noisy-adder takes
// any discrete parent.
int StandInType(int childType) { return childType == VEK_DEMORGAN ? VEK_DEMORGAN : VEK_CPT; }

int AddStandIn(VEK_network& net, int child, int outcomes) {
    const int h = net.AddNode(StandInType(net.GetDef(child)->GetType()));
    if (h < 0) return h;
    VEK_nodeDef* d = net.GetDef(h);
    if (d->GetNumberOfOutcomes() != outcomes) {
        if (const int res = d->SetNumberOfOutcomes(outcomes); res < 0) return res;
    }
    const int res = net.AddArc(h, child);
    return res < 0 ? res : h;
}

}  // namespace

bool VEK_dynamicNet::IsCanonical(int node) const {
    const VEK_nodeDef* d = net_->GetDef(node);
    return d && (d->GetType() == VEK_DEMORGAN || d->GetType() == VEK_NOISY_ADDER);
}

// A new table starts from the next lower order's parameters, the first one
// from the ordinary definition's; the stand-ins then follow the parents.
bool VEK_dynamicNet::SeedCanonical(int node, const Table& t) const {
    if (const NodeRec* r = Rec(node)) {
        const Table* lower = nullptr;
        for (const Table& x : r->tables) {
            if (x.order < t.order) lower = &x;
        }
        if (lower && ConformCanonical(node, *lower)) {
            t.canon = lower->canon;
            return true;
        }
    }
    const VEK_nodeDef* real = net_->GetDef(node);
    Canonical c;
    c.net = std::make_unique<VEK_network>();
    c.child = c.net->AddNode(real->GetType());
    if (c.child < 0) return false;
    VEK_nodeDef* def = c.net->GetDef(c.child);
    if (def->GetNumberOfOutcomes() != real->GetNumberOfOutcomes() &&
        def->SetNumberOfOutcomes(real->GetNumberOfOutcomes()) < 0) {
        return false;
    }
    for (int p : net_->GetNode(node)->Parents()) {
        const int h = AddStandIn(*c.net, c.child, net_->GetDef(p)->GetDiscreteOutcomeCount());
        if (h < 0) return false;
        c.owners.push_back({p, 0});
        c.standIns.push_back(h);
    }
    // Parameters that do not fit (a table read before its parents) stay at
    // the defaults.
    (void)def->CopyParameters(*real);
    t.canon = std::move(c);
    return true;
}

VEK_nodeDef* VEK_dynamicNet::ConformCanonical(int node, const Table& t) const {
    if (!IsCanonical(node)) return nullptr;
    Canonical& c = t.canon;
    const VEK_nodeDef* real = net_->GetDef(node);
    if ((!c.net || c.net->GetDef(c.child)->GetType() != real->GetType()) && !SeedCanonical(node, t)) {
        c = Canonical();
        return nullptr;
    }
    VEK_network& s = *c.net;
    VEK_nodeDef* def = s.GetDef(c.child);
    std::vector<VEK_temporalArc> owners;
    (void)GetUnrolledParents(node, t.order, owners);  // a valid node and a table's order, never negative
    auto fail = [&c]() -> VEK_nodeDef* {
        c = Canonical();
        return nullptr;
    };
    if (def->GetNumberOfOutcomes() != real->GetNumberOfOutcomes() &&
        def->SetNumberOfOutcomes(real->GetNumberOfOutcomes()) < 0) {
        return fail();
    }
    // Stand-ins of parents that left, or whose outcome count changed, go.
    for (size_t i = c.owners.size(); i-- > 0;) {
        const bool kept = std::find(owners.begin(), owners.end(), c.owners[i]) != owners.end() &&
                          s.GetDef(c.standIns[i])->GetNumberOfOutcomes() ==
                              net_->GetDef(c.owners[i].node)->GetDiscreteOutcomeCount();
        if (kept) continue;
        if (s.DeleteNode(c.standIns[i]) < 0) return fail();
        c.owners.erase(c.owners.begin() + static_cast<long>(i));
        c.standIns.erase(c.standIns.begin() + static_cast<long>(i));
    }
    for (const VEK_temporalArc& o : owners) {
        if (std::find(c.owners.begin(), c.owners.end(), o) != c.owners.end()) continue;
        const int h = AddStandIn(s, c.child, net_->GetDef(o.node)->GetDiscreteOutcomeCount());
        if (h < 0) return fail();
        c.owners.push_back(o);
        c.standIns.push_back(h);
    }
    if (c.owners != owners) {
        const VEK_intArray& parents = s.GetNode(c.child)->Parents();
        VEK_intArray perm;
        std::vector<int> standIns;
        for (const VEK_temporalArc& o : owners) {
            const int h = c.standIns[std::find(c.owners.begin(), c.owners.end(), o) - c.owners.begin()];
            perm.Add(parents.FindPosition(h));
            standIns.push_back(h);
        }
        if (s.ChangeOrderOfParents(c.child, perm) < 0) return fail();
        c.owners = owners;
        c.standIns = std::move(standIns);
    }
    return s.GetDef(c.child);
}

const VEK_nodeDef* VEK_dynamicNet::GetTemporalCanonical(int node, int order) const {
    const NodeRec* r = Rec(node);
    if (!r || order < 1) return nullptr;
    for (const Table& t : r->tables) {
        if (t.order == order) return ConformCanonical(node, t);
    }
    return nullptr;
}

int VEK_dynamicNet::EditTemporalCanonical(int node, int order, const std::function<int(VEK_nodeDef&)>& edit) {
    NodeRec* r = order >= 1 ? Rec(node) : nullptr;
    Table* t = r ? FindTable(*r, order) : nullptr;
    VEK_nodeDef* def = t ? ConformCanonical(node, *t) : nullptr;
    if (!def) return VEK_OUT_OF_RANGE;
    const VEK_network saved(*t->canon.net);
    if (const int res = edit(*def); res < 0) {
        (void)def->CopyParameters(*saved.GetDef(t->canon.child));
        return res;
    }
    Changed(node);
    return VEK_OKAY;
}

// Weights and prior (DeMorgan) or CI weights (noisy-adder), each checked by
// the definition's own setters; nothing changes on a refusal.
int VEK_dynamicNet::SetCanonicalParameters(int node, int order, const std::vector<double>& values) {
    if (values.empty()) return VEK_OUT_OF_RANGE;
    return EditTemporalCanonical(node, order, [&values](VEK_nodeDef& d) {
        if (static_cast<int>(values.size()) != d.GetParameters().GetSize()) return VEK_OUT_OF_RANGE;
        if (d.GetType() == VEK_NOISY_ADDER) return static_cast<VEK_noisyAdder&>(d).SetCiWeights(VEK_doubleArray(values));
        auto& dm = static_cast<VEK_demorgan&>(d);
        VEK_doubleArray weights(std::vector<double>(values.begin(), values.end() - 1));
        const int res = dm.SetParentWeights(weights);
        return res < 0 ? res : dm.SetPriorBelief(values.back());
    });
}

void VEK_dynamicNet::MirrorOutcomes(int node, const std::function<void(VEK_nodeDef&)>& change) {
    for (size_t c = 0; c < recs_.size(); ++c) {
        for (Table& t : recs_[c].tables) {
            Canonical& k = t.canon;
            if (!k.net) continue;
            if (static_cast<int>(c) == node) change(*k.net->GetDef(k.child));
            for (size_t i = 0; i < k.owners.size(); ++i) {
                if (k.owners[i].node == node) change(*k.net->GetDef(k.standIns[i]));
            }
        }
    }
}

void VEK_dynamicNet::DropCanonical(int node, Table& t) {
    if (!t.canon.net || IsCanonical(node)) return;
    if (const VEK_Dmatrix* m = t.canon.net->GetDef(t.canon.child)->GetMatrix()) t.matrix = *m;
    t.canon = Canonical();
}
