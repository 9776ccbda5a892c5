#include "analysis/analysisTree.h"

#include <algorithm>
#include <new>

#include "network/network.h"
#include "network/status.h"

int VEK_analysisTree::Build(VEK_network& net) {
    net_ = &net;
    parts_.clear();
    std::vector<VEK_rNetwork*> subs;
    int res = VEK_OKAY;
    try {
        res = VEK_relevantSplit(net, VEK_RSPLIT_COMPONENTS, subs);
    } catch (const std::bad_alloc&) {
        res = VEK_OUT_OF_MEMORY;
    }
    for (VEK_rNetwork* s : subs) {
        Part p;
        p.net.reset(s);
        parts_.push_back(std::move(p));
    }
    if (res < 0) return res;

    const size_t slots = static_cast<size_t>(net.GetSlotCount());
    where_.assign(slots, {-1, -1});
    base_.assign(slots, VEK_Dmatrix());
    replaced_.assign(slots, VEK_Dmatrix());
    restriction_.assign(slots, -1);
    for (int c = 0; c < ComponentCount(); ++c) {
        Part& p = parts_[static_cast<size_t>(c)];
        for (int i = 0; i < p.net->GetNodeCount(); ++i) {
            const int h = p.net->GetNode(i)->handle;
            if (h >= 0) where_[static_cast<size_t>(h)] = {c, i};
        }
        if (p.net->GetNodeCount() < 2) continue;
        p.adapter = std::make_unique<TsAdapter>(*p.net);
        p.tree = std::make_unique<TsJoinTree>(*p.adapter);
        if (p.tree->CalcNormFactor() < 0.0) return VEK_OUT_OF_MEMORY;
    }
    return VEK_OKAY;
}

VEK_rNode* VEK_analysisTree::Node(int handle) const {
    const auto [c, i] = where_[static_cast<size_t>(handle)];
    return parts_[static_cast<size_t>(c)].net->GetNode(i);
}

const VEK_Dmatrix& VEK_analysisTree::BaseTable(int handle) const {
    const VEK_Dmatrix& saved = base_[static_cast<size_t>(handle)];
    return saved.GetSize() > 0 ? saved : Node(handle)->Table();
}

void VEK_analysisTree::Restrict(int handle, int outcome) {
    if (restriction_[static_cast<size_t>(handle)] == outcome) return;
    restriction_[static_cast<size_t>(handle)] = outcome;
    Refresh(handle);
}

void VEK_analysisTree::ReplaceTable(int handle, const double* values) {
    VEK_Dmatrix& r = replaced_[static_cast<size_t>(handle)];
    if (values) {
        r = BaseTable(handle);
        std::copy(values, values + r.GetSize(), r.Items());
    } else {
        r = VEK_Dmatrix();
    }
    Refresh(handle);
}

void VEK_analysisTree::Refresh(int handle) {
    VEK_rNode* n = Node(handle);
    VEK_Dmatrix& saved = base_[static_cast<size_t>(handle)];
    if (saved.GetSize() == 0) saved = n->Table();
    VEK_Dmatrix& t = n->WritableTable();
    const int r = restriction_[static_cast<size_t>(handle)];
    const int k = t.GetLastDimensionSize();
    const VEK_Dmatrix& r0 = replaced_[static_cast<size_t>(handle)];
    const double* src = r0.GetSize() > 0 ? r0.Items() : saved.Items();
    double* dst = t.Items();
    for (int i = 0; i < t.GetSize(); ++i) dst[i] = (r < 0 || i % k == r) ? src[i] : 0.0;
}

double VEK_analysisTree::ProbEvidence(int comp) {
    Part& p = parts_[static_cast<size_t>(comp)];
    if (p.tree) return p.tree->CalcNormFactor();
    const VEK_rNode* n = p.net->GetNode(0);
    const VEK_Dmatrix& t = n->Table();
    if (n->evidence >= 0) return t[n->evidence];
    double z = 0.0;
    for (int s = 0; s < t.GetSize(); ++s) z += t[s];
    return z;
}

double VEK_analysisTree::ProbEvidence() {
    double p = 1.0;
    for (int c = 0; c < ComponentCount(); ++c) {
        const double z = ProbEvidence(c);
        if (z < 0.0) return -1.0;
        p *= z;
    }
    return p;
}

bool VEK_analysisTree::FamilyMarginals(int comp, std::vector<std::vector<double>>& out) {
    Part& p = parts_[static_cast<size_t>(comp)];
    if (!p.tree) {
        const VEK_rNode* n = p.net->GetNode(0);
        const VEK_Dmatrix& t = n->Table();
        std::vector<double>& o = out[0];
        for (int s = 0; s < t.GetSize(); ++s)
            if (n->evidence < 0 || n->evidence == s) o[static_cast<size_t>(s)] += t[s];
        return true;
    }
    if (!p.tree->Calibrate()) return false;
    const TsAdapter& a = *p.adapter;
    VEK_intArray parents;
    for (const TsClique* c : p.tree->GetCliques()) {
        const TsCoords& co = c->potential.Coords();
        const int dims = co.Count();
        const double* pot = c->potential.Data();
        const int64_t size = c->potential.Size();
        // Messages without dimensions stay out of the potentials, so each
        // potential is the joint only up to a constant: its total must be
        // the probability of the evidence.
        const double total = TsSum(pot, size);
        const double scale = total > 0.0 ? p.tree->GetProbEvidence() / total : 0.0;
        for (int node : c->hosted) {
            // Strides of the family table, parents first; observed members
            // fix an offset, the others follow the potential's dimensions.
            a.GetParents(node, parents);
            const int fam = parents.GetSize() + 1;
            std::vector<int64_t> stride(static_cast<size_t>(dims), 0);
            int64_t base = 0, s = 1;
            for (int f = fam - 1; f >= 0; --f) {
                const int member = f == fam - 1 ? node : parents[f];
                const int ev = a.GetEvidence(member);
                if (ev >= 0) {
                    base += ev * s;
                } else {
                    stride[static_cast<size_t>(co.Find(member))] = s;
                }
                s *= a.GetStateCount(member);
            }
            double* o = out[static_cast<size_t>(node)].data() + base;
            std::vector<int> counter(static_cast<size_t>(dims), 0);
            int64_t off = 0;
            for (int64_t i = 0; i < size; ++i) {
                o[off] += pot[i] * scale;
                for (int d = dims - 1; d >= 0; --d) {
                    const size_t du = static_cast<size_t>(d);
                    off += stride[du];
                    if (++counter[du] < co.sizes[d]) break;
                    off -= stride[du] * co.sizes[d];
                    counter[du] = 0;
                }
            }
        }
    }
    return true;
}
