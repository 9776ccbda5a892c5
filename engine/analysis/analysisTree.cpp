#include "analysis/analysisTree.h"

#include <algorithm>
#include <new>

#include "network/network.h"
#include "network/status.h"

int VEK_analysisTree::Build(VEK_network& net, bool absorb) {
    net_ = &net;
    parts_.clear();
    std::vector<VEK_rNetwork*> subs;
    int res = VEK_OKAY;
    try {
        res = VEK_relevantSplit(net, VEK_RSPLIT_COMPONENTS | (absorb ? VEK_RSPLIT_ABSORB : 0u), subs);
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

void VEK_analysisTree::Restrict(int handle, int outcome) {
    if (restriction_[static_cast<size_t>(handle)] == outcome) return;
    restriction_[static_cast<size_t>(handle)] = outcome;
    Refresh(handle);
}

void VEK_analysisTree::Refresh(int handle) {
    VEK_rNode* n = Node(handle);
    VEK_Dmatrix& saved = base_[static_cast<size_t>(handle)];
    if (saved.GetSize() == 0) saved = n->Table();
    VEK_Dmatrix& t = n->WritableTable();
    const int r = restriction_[static_cast<size_t>(handle)];
    const int k = t.GetLastDimensionSize();
    const double* src = saved.Items();
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

namespace {

// Strides, in a clique's layout, of a node's table (parents, then the node)
// and the offset its observed members fix.
void TableStrides(const TsAdapter& a, const TsCoords& co, int node, std::vector<int64_t>& stride, int64_t& base) {
    VEK_intArray parents;
    a.GetParents(node, parents);
    const int fam = parents.GetSize() + 1;
    stride.assign(static_cast<size_t>(co.Count()), 0);
    base = 0;
    int64_t s = 1;
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
}

// Strides, in a clique's layout, of a message over the given coordinates.
std::vector<int64_t> MessageStrides(const TsCoords& co, const TsCoords& msg) {
    std::vector<int64_t> stride(static_cast<size_t>(co.Count()), 0);
    int64_t s = 1;
    for (int d = msg.Count() - 1; d >= 0; --d) {
        stride[static_cast<size_t>(co.Find(msg.nodes[d]))] = s;
        s *= msg.sizes[d];
    }
    return stride;
}

// Walks every entry of a clique's layout with the offsets of each operand:
// fn(offsets) per entry.
template <class Fn>
void WalkLayout(const TsCoords& co, const std::vector<std::vector<int64_t>>& strides, std::vector<int64_t>& off,
                Fn&& fn) {
    const int dims = co.Count();
    const size_t n = strides.size();
    std::vector<int> counter(static_cast<size_t>(dims), 0);
    const int64_t size = co.Size();
    for (int64_t i = 0; i < size; ++i) {
        fn(off);
        for (int d = dims - 1; d >= 0; --d) {
            const size_t du = static_cast<size_t>(d);
            for (size_t k = 0; k < n; ++k) off[k] += strides[k][du];
            if (++counter[du] < co.sizes[d]) break;
            for (size_t k = 0; k < n; ++k) off[k] -= strides[k][du] * co.sizes[d];
            counter[du] = 0;
        }
    }
}

}  // namespace

bool VEK_analysisTree::TablePartials(int comp, std::vector<std::vector<double>>& out, double& pY) {
    Part& p = parts_[static_cast<size_t>(comp)];
    if (!p.tree) {
        const VEK_rNode* n = p.net->GetNode(0);
        const VEK_Dmatrix& t = n->Table();
        pY = 0.0;
        for (int s = 0; s < t.GetSize(); ++s) {
            if (n->evidence >= 0 && n->evidence != s) continue;
            out[0][static_cast<size_t>(s)] += 1.0;
            pY += t[s];
        }
        return true;
    }
    // The collect pass leaves every clique's message towards its parent.
    pY = p.tree->CalcNormFactor();
    if (pY < 0.0) return false;
    const TsAdapter& a = *p.adapter;
    const TsClique* root = p.tree->GetRoot();
    // Messages from each parent, by clique order; the root's is 1.
    std::vector<std::vector<double>> down(p.tree->GetCliques().size());
    down[static_cast<size_t>(root->order)] = {1.0};
    std::vector<const TsClique*> stack{root};
    std::vector<std::vector<int64_t>> strides;
    std::vector<const double*> data;
    std::vector<int64_t> off;
    while (!stack.empty()) {
        const TsClique* c = stack.back();
        stack.pop_back();
        const TsCoords& co = c->potential.Coords();
        // Operands: the hosted tables, the children's messages, the message
        // from the parent (or 1 at the root).
        const int nh = c->hosted.size(), nc = c->children.size();
        strides.clear();
        data.clear();
        std::vector<int64_t> bases;
        for (int k = 0; k < nh; ++k) {
            int64_t base = 0;
            strides.emplace_back();
            TableStrides(a, co, c->hosted[k], strides.back(), base);
            bases.push_back(base);
            data.push_back(a.GetMatrix(c->hosted[k]).Items());
        }
        for (int k = 0; k < nc; ++k) {
            strides.push_back(MessageStrides(co, c->children[k]->message.Coords()));
            bases.push_back(0);
            data.push_back(c->children[k]->message.Data());
        }
        strides.push_back(c->parent ? MessageStrides(co, c->message.Coords()) : std::vector<int64_t>(static_cast<size_t>(co.Count()), 0));
        bases.push_back(0);
        data.push_back(down[static_cast<size_t>(c->order)].data());
        const size_t ops = strides.size();
        // Each output leaves one operand out: a hosted table (its partials)
        // or a child's message (the message down to that child).
        for (int k = 0; k < nc; ++k) down[static_cast<size_t>(c->children[k]->order)].assign(
            static_cast<size_t>(c->children[k]->message.Size()), 0.0);
        std::vector<double*> outputs;
        for (int k = 0; k < nh; ++k) outputs.push_back(out[static_cast<size_t>(c->hosted[k])].data());
        for (int k = 0; k < nc; ++k) outputs.push_back(down[static_cast<size_t>(c->children[k]->order)].data());
        std::vector<double> v(ops);
        std::vector<double> prefix(ops + 1), suffix(ops + 1);
        off = bases;
        WalkLayout(co, strides, off, [&](const std::vector<int64_t>& o) {
            for (size_t k = 0; k < ops; ++k) v[k] = data[k][o[k]];
            prefix[0] = 1.0;
            for (size_t k = 0; k < ops; ++k) prefix[k + 1] = prefix[k] * v[k];
            suffix[ops] = 1.0;
            for (size_t k = ops; k-- > 0;) suffix[k] = suffix[k + 1] * v[k];
            for (size_t k = 0; k + 1 < ops; ++k) outputs[k][o[k]] += prefix[k] * suffix[k + 1];
        });
        for (const TsClique* ch : c->children) stack.push_back(ch);
    }
    return true;
}
