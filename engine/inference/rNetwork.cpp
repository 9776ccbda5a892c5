#include "inference/rNetwork.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>
#include <new>
#include <stdexcept>

#include "inference/caughtFailure.h"
#include "network/network.h"
#include "network/noisyMAX.h"
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
    n->link = false;
}

void Unlink(std::vector<VEK_rNode*>& list, const VEK_rNode* n) {
    auto it = std::find(list.begin(), list.end(), n);
    if (it != list.end()) list.erase(it);
}

// Noisy-MAX tables with more entries than this are not computed for
// inference; the node enters as a chain of small tables instead.
constexpr int64_t kMaxNoisyTableEntries = int64_t(1) << 22;

// A noisy-MAX node is decomposed when its table would be too large, or when
// the network asks for decomposition and the node has more parents than the
// network's limit.
const VEK_noisyMAX* DecomposedNoisyMax(const VEK_network& net, const VEK_node& node) {
    const auto* def = dynamic_cast<const VEK_noisyMAX*>(node.Definition());
    const VEK_intArray& parents = node.Parents();
    if (!def || parents.GetSize() < 2 || def->GetNumberOfParents() != parents.GetSize()) return nullptr;
    if (net.IsNoisyDecompEnabled() && parents.GetSize() > net.GetNoisyDecompLimit()) return def;
    int64_t entries = def->GetNumberOfOutcomes();
    for (int p : parents) {
        const VEK_nodeDef* pd = net.GetDef(p);
        entries *= pd ? std::max(pd->GetNumberOfOutcomes(), 1) : 1;
        if (entries > kMaxNoisyTableEntries) return def;
    }
    return nullptr;
}

// The noisy-MAX node r as a chain over its parents: Y1 = max(leak, Z1),
// Yj = max(Y(j-1), Zj), the node itself being the last Y. Zj is the level
// that parent j causes, distributed as its CI column for the parent's
// state; higher levels have lower outcome indices, so max is min on
// indices. Each link is an ordinary conditional table of at most n*m*n
// entries, and the product of the chain summed over the links is the
// node's table.
void ChainNoisyMax(const VEK_noisyMAX& def, VEK_rNode* r, const std::vector<VEK_rNode*>& parents,
                   std::vector<std::unique_ptr<VEK_rNode>>& aux) {
    const int n = r->numStates;
    VEK_Dmatrix square;
    (void)def.SquareCiToCptSingleStep(square);  // cannot fail
    std::vector<double> leak(static_cast<size_t>(n) + 1, 0.0);
    for (int y = 0; y < n; ++y) leak[static_cast<size_t>(y)] = square[y * n + y];
    std::vector<double> c(static_cast<size_t>(n) + 1, 0.0);
    VEK_rNode* prev = nullptr;
    const size_t k = parents.size();
    for (size_t j = 0; j < k; ++j) {
        VEK_Dmatrix factor;
        (void)def.GetCumulativeFactor(static_cast<int>(j), factor);  // the parent index is in range
        const int m = parents[j]->numStates;
        VEK_rNode* link = r;
        if (j + 1 < k) {
            aux.push_back(std::make_unique<VEK_rNode>());
            link = aux.back().get();
            link->source = r->source;
            link->numStates = n;
            link->link = true;
        }
        VEK_intArray dims;
        if (prev) dims.Add(n);
        dims.Add(m);
        dims.Add(n);
        (void)link->table.Setup(dims);  // state counts are at least 1
        link->ownsTable = true;
        link->netTable = nullptr;
        double* out = link->table.Items();
        const int levels = prev ? n : 1;
        for (int a = 0; a < levels; ++a) {
            for (int o = 0; o < m; ++o, out += n) {
                for (int y = 0; y <= n; ++y) c[static_cast<size_t>(y)] = y < n ? factor[o * n + y] : 0.0;
                if (!prev) {
                    // Cumulative of min(leak, Z): the product of the cumulatives.
                    for (int y = 0; y < n; ++y) c[static_cast<size_t>(y)] *= leak[static_cast<size_t>(y)];
                }
                for (int y = 0; y < n; ++y) {
                    double v = 0.0;
                    if (!prev || y < a) {
                        v = c[static_cast<size_t>(y)] - c[static_cast<size_t>(y) + 1];
                    } else if (y == a) {
                        v = c[static_cast<size_t>(y)];
                    }
                    out[y] = v > 0.0 ? v : 0.0;
                }
            }
        }
        link->parents.clear();
        if (prev) {
            link->parents.push_back(prev);
            prev->children.push_back(link);
        }
        link->parents.push_back(parents[j]);
        parents[j]->children.push_back(link);
        prev = link;
    }
}

bool AllValid(const VEK_Dmatrix& t) {
    const double* p = t.Items();
    const int n = t.GetSize();
    for (int i = 0; i < n; ++i)
        if (!(p[i] >= 0.0 && p[i] <= 1.7976931348623157e308)) return false;
    return true;
}

bool UsableForBeliefs(int type) {
    return type == VEK_CPT || type == VEK_TRUTHTABLE || type == VEK_CAST || type == VEK_DEMORGAN ||
           type == VEK_NOISY_MAX || type == VEK_NOISY_ADDER;
}

}  // namespace

// ---------------------------------------------------------------- VEK_rNetwork

int VEK_rNetwork::Build(bool noisyChains) {
    VEK_network& net = *net_;
    nodes_.clear();
    barren_ = 0;
    const int slots = net.GetSlotCount();
    std::vector<VEK_rNode*> byHandle(static_cast<size_t>(slots), nullptr);
    const bool everyNodeTarget = net.GetTargetCount() == 0;
    nodes_.reserve(static_cast<size_t>(net.GetNumberOfNodes()));

    std::vector<const VEK_noisyMAX*> decomposed(static_cast<size_t>(slots), nullptr);
    for (int h = 0; h < slots; ++h) {
        VEK_node* node = net.GetNode(h);
        if (!node) continue;
        VEK_nodeDef* def = node->Definition();
        if (noisyChains) decomposed[static_cast<size_t>(h)] = DecomposedNoisyMax(net, *node);
        const VEK_Dmatrix* table = def && !decomposed[static_cast<size_t>(h)] ? def->GetMatrix() : nullptr;
        const int states = def ? def->GetNumberOfOutcomes() : 0;
        if (!def || !UsableForBeliefs(def->GetType()) || (!table && !decomposed[static_cast<size_t>(h)]) ||
            states < 1) {
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

    std::vector<std::unique_ptr<VEK_rNode>> aux;
    std::vector<VEK_rNode*> parentNodes;
    for (auto& rp : nodes_) {
        VEK_rNode* r = rp.get();
        const VEK_node* node = net.GetNode(r->handle);
        const VEK_intArray& parents = node->Parents();
        parentNodes.clear();
        for (int p : parents) parentNodes.push_back(byHandle[static_cast<size_t>(p)]);
        if (const VEK_noisyMAX* def = decomposed[static_cast<size_t>(r->handle)]) {
            ChainNoisyMax(*def, r, parentNodes, aux);
            continue;
        }
        r->parents = parentNodes;
        for (VEK_rNode* pr : parentNodes) pr->children.push_back(r);
    }

    for (auto& rp : nodes_) {
        VEK_rNode* r = rp.get();
        const VEK_Dmatrix& t = r->Table();
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
        if (!AllValid(t)) {
            return net.Logger().VLogError(VEK_INVALID_VALUE, "Invalid probability in the definition of node [%s]",
                                          node->GetId());
        }

        const VEK_nodeVal* val = node->Value();
        if (val->IsControlled() && r->evidence >= 0) {
            // An intervention: the node's outcome is set from outside, so its
            // parents learn nothing from it.
            for (VEK_rNode* pr : r->parents) Unlink(pr->children, r);
            r->parents.clear();
            (void)r->table.SetSingleDimension(r->numStates);  // state counts are at least 1
            r->table.FillWith(0.0);
            r->table[r->evidence] = 1.0;
            r->ownsTable = true;
        } else if (val->IsVirtualEvidence()) {
            // Also on a node whose outcome is implied by other evidence: the
            // likelihood of that outcome still weighs the evidence.
            VEK_doubleArray likelihood;
            if (val->GetVirtualEvidence(likelihood) == VEK_OKAY && likelihood.GetSize() == r->numStates) {
                (void)r->WritableTable().Multiply(likelihood);  // size checked above
                r->softEvidence = true;
            }
        }
    }
    for (auto& a : aux) {
        if (!AllValid(a->table)) {
            return net.Logger().VLogError(VEK_INVALID_VALUE, "Invalid probability in the definition of node [%s]",
                                          net.GetNodeId(a->source));
        }
        nodes_.push_back(std::move(a));
    }
    RenumberNodes();
    for (auto& n : nodes_) n->built = n->index;
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
        if (n->mark != VEK_RMARK_NONE || n->IsObserved() || n->target || !n->children.empty() ||
            (n->handle < 0 && !n->link)) {
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
                (void)c->netTable->RemoveDimension(pos, e->evidence, c->table);  // e is the parent at pos, at a state of its own
                c->ownsTable = true;
            } else {
                (void)c->table.RemoveDimension(pos, e->evidence);
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
        (void)child->netTable->RemoveDimension(pos, weights, child->table);  // one weight per state of the root at pos
        child->ownsTable = true;
    } else {
        (void)child->table.RemoveDimension(pos, weights);
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
    // The slots first, so that no sub-network is made that cannot be handed over.
    out.reserve(out.size() + static_cast<size_t>(count));
    if (count == 1) {
        out.push_back(TakeAll());
        return;
    }
    // Components in the order of their first node; nodes keep handle order.
    std::vector<VEK_rNetwork*> parts(static_cast<size_t>(count), nullptr);
    try {
        for (int c = 0; c < count; ++c) parts[static_cast<size_t>(c)] = new VEK_rNetwork(*net_);
    } catch (...) {
        for (VEK_rNetwork* p : parts) delete p;
        throw;
    }
    try {
        for (size_t i = 0; i < n; ++i) parts[static_cast<size_t>(component[i])]->nodes_.push_back(std::move(nodes_[i]));
    } catch (...) {
        for (VEK_rNetwork* p : parts) delete p;
        throw;
    }
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
            (void)m->SetSingleDimension(states);  // state counts are at least 1
            m->FillWith(0.0);
            (*m)[n->evidence] = 1.0;
            val->SetValueValid();
        }
    } else if (n->evidence < 0 && n->handle >= 0) {
        VEK_nodeVal* val = net_->GetVal(n->handle);
        VEK_Dmatrix* m = val ? val->GetWriteableMatrix() : nullptr;
        if (m) {
            if (m->GetSize() != states || m->GetNumberOfDimensions() != 1) (void)m->SetSingleDimension(states);  // state counts are at least 1
            const double inv = 1.0 / z;
            for (int s = 0; s < states; ++s) (*m)[s] = t[s] * inv;
            val->SetValueValid();
        }
    }
    return z;
}

// ---------------------------------------------------------------- the split

int VEK_relevantSplit(VEK_network& net, unsigned mask, std::vector<VEK_rNetwork*>& out, int* barren,
                      VEK_relevanceGate* gate) {
    if (barren) *barren = 0;
    const bool noisyChains = (mask & VEK_RSPLIT_NOISY_CHAINS) != 0;
    if (!net.IsRelevanceEnabled()) mask = 0;
    if (net.GetNumberOfNodes() == 0) return VEK_OKAY;
    VEK_rNetwork full(net);
    int res = full.Build(noisyChains);
    if (res < 0) return res;
    if (mask != 0 && gate && gate->KeepWhole(full)) mask = 0;

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

bool VEK_rNetworkContainer::DoRelevance(VEK_network& net, unsigned mask, VEK_relevanceGate* gate) {
    for (VEK_rNetwork* n : nets_) delete n;
    nets_.clear();
    status_ = VEK_OKAY;
    barren_ = 0;
    tableTooLarge_ = false;
    try {
        status_ = VEK_relevantSplit(net, mask, nets_, &barren_, gate);
    } catch (const std::bad_alloc&) {
        status_ = VEK_OUT_OF_MEMORY;
    } catch (const std::overflow_error&) {
        status_ = net.Logger().LogError(VEK_OUT_OF_MEMORY, VEK_kTableTooLarge);
        tableTooLarge_ = true;
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
    (void)m->SetSingleDimension(r->numStates);  // state counts are at least 1
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
