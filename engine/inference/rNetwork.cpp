#include "inference/rNetwork.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <new>

#include "network/network.h"
#include "network/nodeDef.h"
#include "network/nodeVal.h"
#include "network/status.h"

// ---------------------------------------------------------------- VEK_rNode

VEK_Dmatrix& VEK_rNode::WritableTable() {
    if (!ownsTable) {
        table = *netTable;
        ownsTable = true;
    }
    return table;
}

int VEK_rNode::ParentPosition(const VEK_rNode* p) const {
    for (size_t i = 0; i < parents.size(); ++i)
        if (parents[i] == p) return static_cast<int>(i);
    return -1;
}

namespace {

// Columns whose sum is this close to 1 count as normalised: dropping such a
// node changes the result by rounding only.
constexpr double kColumnTolerance = 1e-14;

bool ColumnsSumToOne(const VEK_Dmatrix& t) {
    const int k = t.GetLastDimensionSize();
    const double* p = t.Items();
    for (int c = 0; c < t.GetSize(); c += k) {
        double sum = 0.0;
        for (int s = 0; s < k; ++s) sum += p[c + s];
        if (!(std::fabs(sum - 1.0) <= kColumnTolerance)) return false;
    }
    return true;
}

// The node becomes a one-state factor over its parents: the column sums.
void SumOut(VEK_rNode* n) {
    const VEK_Dmatrix& t = n->Table();
    const int k = t.GetLastDimensionSize();
    VEK_intArray dims = t.GetDimensions();
    dims[dims.GetSize() - 1] = 1;
    VEK_Dmatrix sums(dims);
    for (int c = 0; c < t.GetSize(); c += k) {
        double sum = 0.0;
        for (int s = 0; s < k; ++s) sum += t[c + s];
        sums[c / k] = sum;
    }
    n->table = std::move(sums);
    n->ownsTable = true;
    n->numStates = 1;
    n->handle = -1;
}

void Unlink(std::vector<VEK_rNode*>& list, const VEK_rNode* n) {
    auto it = std::find(list.begin(), list.end(), n);
    if (it != list.end()) list.erase(it);
}

bool UsableForBeliefs(int type) {
    return type == VEK_CPT || type == VEK_TRUTHTABLE || type == VEK_CAST || type == VEK_DEMORGAN ||
           type == VEK_NOISY_MAX || type == VEK_NOISY_ADDER;
}

}  // namespace

// ---------------------------------------------------------------- VEK_rNetwork

int VEK_rNetwork::Build() {
    VEK_network& net = *net_;
    nodes_.clear();
    barren_ = 0;
    const int slots = net.GetSlotCount();
    std::vector<VEK_rNode*> byHandle(static_cast<size_t>(slots), nullptr);
    const bool everyNodeTarget = net.GetTargetCount() == 0;
    nodes_.reserve(static_cast<size_t>(net.GetNumberOfNodes()));

    for (int h = 0; h < slots; ++h) {
        VEK_node* node = net.GetNode(h);
        if (!node) continue;
        VEK_nodeDef* def = node->Definition();
        const VEK_Dmatrix* table = def ? def->GetMatrix() : nullptr;
        const int states = def ? def->GetNumberOfOutcomes() : 0;
        if (!def || !UsableForBeliefs(def->GetType()) || !table || states < 1) {
            return net.Logger().VLogError(VEK_WRONG_NODE_TYPE,
                                          "Node [%s] has no probability table for belief updating", node->GetId());
        }
        auto r = std::make_unique<VEK_rNode>();
        r->handle = h;
        r->source = h;
        r->numStates = states;
        r->netTable = table;
        r->target = everyNodeTarget || node->IsTarget();
        const VEK_nodeVal* val = node->Value();
        if (val->HasHardEvidence()) {
            const int e = val->GetEvidence();
            if (e >= 0 && e < states) r->evidence = e;
        }
        byHandle[static_cast<size_t>(h)] = r.get();
        nodes_.push_back(std::move(r));
    }

    for (auto& rp : nodes_) {
        VEK_rNode* r = rp.get();
        const VEK_node* node = net.GetNode(r->handle);
        const VEK_intArray& parents = node->Parents();
        r->parents.reserve(static_cast<size_t>(parents.GetSize()));
        for (int p : parents) {
            VEK_rNode* pr = byHandle[static_cast<size_t>(p)];
            r->parents.push_back(pr);
            pr->children.push_back(r);
        }
    }

    for (auto& rp : nodes_) {
        VEK_rNode* r = rp.get();
        const VEK_Dmatrix& t = *r->netTable;
        const VEK_node* node = net.GetNode(r->handle);
        // The table must be over the parents, in order, and the own outcomes.
        bool fits = t.GetNumberOfDimensions() == static_cast<int>(r->parents.size()) + 1 &&
                    t.GetLastDimensionSize() == r->numStates;
        for (size_t i = 0; fits && i < r->parents.size(); ++i)
            fits = t.GetSizeOfDimension(static_cast<int>(i)) == r->parents[i]->numStates;
        if (!fits) {
            return net.Logger().VLogError(VEK_GENERAL_ERROR, "Table of node [%s] does not match its parents",
                                          node->GetId());
        }
        // NaN, infinite or negative entries would poison every potential they
        // reach; the update refuses them instead of producing meaningless
        // beliefs.
        const double* p = t.Items();
        const int n = t.GetSize();
        for (int i = 0; i < n; ++i) {
            if (!(p[i] >= 0.0 && p[i] <= 1.7976931348623157e308)) {
                return net.Logger().VLogError(VEK_INVALID_VALUE, "Invalid probability in the definition of node [%s]",
                                              node->GetId());
            }
        }

        const VEK_nodeVal* val = node->Value();
        if (val->IsControlled() && r->evidence >= 0) {
            // An intervention: the node's outcome is set from outside, so its
            // parents learn nothing from it.
            for (VEK_rNode* pr : r->parents) Unlink(pr->children, r);
            r->parents.clear();
            r->table.SetSingleDimension(r->numStates);
            r->table.FillWith(0.0);
            r->table[r->evidence] = 1.0;
            r->ownsTable = true;
        } else if (val->IsVirtualEvidence()) {
            // Also on a node whose outcome is implied by other evidence: the
            // likelihood of that outcome still weighs the evidence.
            VEK_doubleArray likelihood;
            if (val->GetVirtualEvidence(likelihood) == VEK_OKAY && likelihood.GetSize() == r->numStates) {
                r->WritableTable().Multiply(likelihood);
                r->softEvidence = true;
            }
        }
    }
    RenumberNodes();
    return VEK_OKAY;
}

void VEK_rNetwork::RenumberNodes() {
    for (size_t i = 0; i < nodes_.size(); ++i) nodes_[i]->index = static_cast<int>(i);
}

void VEK_rNetwork::Mark_Barren(VEK_rNode* node) {
    std::vector<VEK_rNode*> stack{node};
    while (!stack.empty()) {
        VEK_rNode* n = stack.back();
        stack.pop_back();
        if (n->mark != VEK_RMARK_NONE || n->IsObserved() || n->target || !n->children.empty() || n->handle < 0) {
            continue;
        }
        if (!ColumnsSumToOne(n->Table())) {
            SumOut(n);
            continue;
        }
        n->mark = VEK_RMARK_BARREN;
        for (VEK_rNode* p : n->parents) {
            Unlink(p->children, n);
            stack.push_back(p);
        }
        n->parents.clear();
    }
}

int VEK_rNetwork::Delete_Marked_Nodes(int mark) {
    const size_t before = nodes_.size();
    nodes_.erase(std::remove_if(nodes_.begin(), nodes_.end(),
                                [mark](const std::unique_ptr<VEK_rNode>& n) { return n->mark == mark; }),
                 nodes_.end());
    RenumberNodes();
    const int removed = static_cast<int>(before - nodes_.size());
    if (mark == VEK_RMARK_BARREN) barren_ += removed;
    return removed;
}

void VEK_rNetwork::Clamp_Evidence() {
    for (auto& ep : nodes_) {
        VEK_rNode* e = ep.get();
        if (e->evidence < 0) continue;
        for (VEK_rNode* c : e->children) {
            const int pos = c->ParentPosition(e);
            if (pos < 0) continue;
            if (!c->ownsTable) {
                c->netTable->RemoveDimension(pos, e->evidence, c->table);
                c->ownsTable = true;
            } else {
                c->table.RemoveDimension(pos, e->evidence);
            }
            c->parents.erase(c->parents.begin() + pos);
        }
        e->children.clear();
    }
}

void VEK_rNetwork::Marginalize(VEK_rNode* root, VEK_rNode* child) {
    const int pos = child->ParentPosition(root);
    if (pos < 0) return;
    const VEK_Dmatrix& prior = root->Table();
    VEK_doubleArray weights(root->numStates);
    for (int s = 0; s < root->numStates; ++s) weights[s] = prior[s];
    if (!child->ownsTable) {
        child->netTable->RemoveDimension(pos, weights, child->table);
        child->ownsTable = true;
    } else {
        child->table.RemoveDimension(pos, weights);
    }
    child->parents.erase(child->parents.begin() + pos);
}

void VEK_rNetwork::Mark_Poly_Nuisance_Nodes() {
    for (auto& np : nodes_) {
        VEK_rNode* n = np.get();
        // Summing a root out of its only child may make the child a root
        // with one child in its turn.
        while (n && n->mark == VEK_RMARK_NONE && !n->IsObserved() && !n->target && n->parents.empty() &&
               n->children.size() == 1) {
            VEK_rNode* child = n->children[0];
            n->mark = VEK_RMARK_NUISANCE;
            Marginalize(n, child);
            n->children.clear();
            n = child;
        }
    }
}

void VEK_rNetwork::Split(std::vector<VEK_rNetwork*>& out) {
    const size_t n = nodes_.size();
    std::vector<int> component(n, -1);
    std::vector<int> stack;
    int count = 0;
    for (size_t i = 0; i < n; ++i) {
        if (component[i] >= 0) continue;
        component[i] = count;
        stack.push_back(static_cast<int>(i));
        while (!stack.empty()) {
            VEK_rNode* r = nodes_[static_cast<size_t>(stack.back())].get();
            stack.pop_back();
            for (const auto* list : {&r->parents, &r->children}) {
                for (VEK_rNode* m : *list) {
                    if (component[static_cast<size_t>(m->index)] < 0) {
                        component[static_cast<size_t>(m->index)] = count;
                        stack.push_back(m->index);
                    }
                }
            }
        }
        ++count;
    }
    // Components in the order of their first node; nodes keep handle order.
    std::vector<VEK_rNetwork*> parts(static_cast<size_t>(count), nullptr);
    try {
        for (int c = 0; c < count; ++c) parts[static_cast<size_t>(c)] = new VEK_rNetwork(*net_);
    } catch (...) {
        for (VEK_rNetwork* p : parts) delete p;
        throw;
    }
    for (size_t i = 0; i < n; ++i) parts[static_cast<size_t>(component[i])]->nodes_.push_back(std::move(nodes_[i]));
    nodes_.clear();
    for (VEK_rNetwork* p : parts) {
        p->RenumberNodes();
        out.push_back(p);
    }
}

VEK_rNetwork* VEK_rNetwork::TakeAll() {
    auto* all = new VEK_rNetwork(*net_);
    all->nodes_ = std::move(nodes_);
    all->barren_ = barren_;
    nodes_.clear();
    all->RenumberNodes();
    return all;
}

double VEK_rNetwork::Set_Prior_Beliefs(int* zeroCounter) {
    if (nodes_.size() != 1) return 0.0;
    VEK_rNode* n = nodes_[0].get();
    const VEK_Dmatrix& t = n->Table();
    const int states = n->numStates;
    double z = 0.0;
    if (t.GetSize() == states) {
        if (n->evidence >= 0) {
            z = t[n->evidence];
        } else {
            for (int s = 0; s < states; ++s) z += t[s];
        }
    }
    if (!(z > 0.0)) {
        VEK_reportZeroPotential(*net_, n->source);
        if (zeroCounter) ++*zeroCounter;
        return 0.0;
    }
    if (n->evidence >= 0 && n->handle >= 0) {
        VEK_nodeVal* val = net_->GetVal(n->handle);
        VEK_Dmatrix* m = val && !val->IsValueValid() ? val->GetWriteableMatrix() : nullptr;
        if (m) {
            m->SetSingleDimension(states);
            m->FillWith(0.0);
            (*m)[n->evidence] = 1.0;
            val->SetValueValid();
        }
    } else if (n->evidence < 0 && n->handle >= 0) {
        VEK_nodeVal* val = net_->GetVal(n->handle);
        VEK_Dmatrix* m = val ? val->GetWriteableMatrix() : nullptr;
        if (m) {
            if (m->GetSize() != states || m->GetNumberOfDimensions() != 1) m->SetSingleDimension(states);
            const double inv = 1.0 / z;
            for (int s = 0; s < states; ++s) (*m)[s] = t[s] * inv;
            val->SetValueValid();
        }
    }
    return z;
}

// ---------------------------------------------------------------- the split

int VEK_relevantSplit(VEK_network& net, unsigned mask, std::vector<VEK_rNetwork*>& out, int* barren) {
    if (barren) *barren = 0;
    if (!net.IsRelevanceEnabled()) mask = 0;
    if (net.GetNumberOfNodes() == 0) return VEK_OKAY;
    VEK_rNetwork full(net);
    int res = full.Build();
    if (res < 0) return res;

    // Without targets every node is one, so nothing is barren or a nuisance.
    const bool prune = (mask & VEK_RSPLIT_PRUNE) && net.GetTargetCount() > 0;
    if (prune) {
        for (int i = 0; i < full.GetNodeCount(); ++i) full.Mark_Barren(full.GetNode(i));
        full.Delete_Marked_Nodes(VEK_RMARK_BARREN);
    }
    if (mask & VEK_RSPLIT_ABSORB) full.Clamp_Evidence();
    if (prune) {
        full.Mark_Poly_Nuisance_Nodes();
        full.Delete_Marked_Nodes(VEK_RMARK_NUISANCE);
    }
    if (barren) *barren = full.BarrenCount();
    if (full.GetNodeCount() == 0) return VEK_OKAY;
    if (mask & VEK_RSPLIT_COMPONENTS) {
        full.Split(out);
    } else {
        out.push_back(full.TakeAll());
    }
    return VEK_OKAY;
}

// ---------------------------------------------------------------- container

VEK_rNetworkContainer::~VEK_rNetworkContainer() {
    for (VEK_rNetwork* n : nets_) delete n;
}

bool VEK_rNetworkContainer::DoRelevance(VEK_network& net, unsigned mask) {
    for (VEK_rNetwork* n : nets_) delete n;
    nets_.clear();
    status_ = VEK_OKAY;
    barren_ = 0;
    try {
        status_ = VEK_relevantSplit(net, mask, nets_, &barren_);
    } catch (const std::bad_alloc&) {
        status_ = VEK_OUT_OF_MEMORY;
    } catch (const std::exception& ex) {
        status_ = net.Logger().LogError(VEK_GENERAL_ERROR, ex.what());
    }
    if (status_ < 0) {
        for (VEK_rNetwork* n : nets_) delete n;
        nets_.clear();
        return false;
    }
    return true;
}

void VEK_rNetworkContainer::DeleteAt(int i) {
    if (i < 0 || i >= GetCount()) return;
    delete nets_[static_cast<size_t>(i)];
    nets_[static_cast<size_t>(i)] = nullptr;
}

void VEK_writeEvidenceBeliefs(const VEK_rNetwork& rnet, int i) {
    const VEK_rNode* r = rnet.GetNode(i);
    VEK_nodeVal* v = r->handle >= 0 ? rnet.Network().GetVal(r->handle) : nullptr;
    if (!v || v->IsValueValid() || r->evidence < 0) return;
    VEK_Dmatrix* m = v->GetWriteableMatrix();
    if (!m) return;
    m->SetSingleDimension(r->numStates);
    m->FillWith(0.0);
    (*m)[r->evidence] = 1.0;
    v->SetValueValid();
}

int VEK_reportZeroPotential(VEK_network& net, int handle) {
    const char* id = net.GetNodeId(handle);
    if (id && *id) return net.Logger().VLogError(VEK_IMPOSSIBLE_EVIDENCE, "All potential entries are zeros for node %s", id);
    return net.Logger().VLogError(VEK_IMPOSSIBLE_EVIDENCE, "All potential entries are zeros for node with handle %d",
                                  handle);
}
