#include "dynamic/dbnSolver.h"

#include <algorithm>
#include <cmath>

#include "dynamic/dynamicNet.h"
#include "network/network.h"

namespace {

// Bounds on one clique and on all potentials together (entries).
constexpr int64_t kCliqueLimit = int64_t(1) << 26;
constexpr int64_t kTotalLimit = int64_t(1) << 28;

bool IsChanceTable(const VEK_nodeDef* def) {
    if (!def || !def->GetMatrix() || def->GetDiscreteOutcomeCount() < 1) return false;
    const int t = def->GetType();
    return t != VEK_TABLE && t != VEK_LIST && t != VEK_MAU;
}

}  // namespace

int VEK_dbnSolver::Var(int node, int slice) const {
    if (plateIndex_[node] < 0) return firstVar_[node];
    return firstVar_[node] + slice * plateCount_;
}

int VEK_dbnSolver::BuildVariables() {
    slices_ = net_.GetNumberOfSlices();
    if (slices_ < 1) return net_.Logger().LogError(VEK_OUT_OF_RANGE, "Dynamic network has no time slices");
    const int slots = net_.GetSlotCount();
    firstVar_.assign(slots, -1);
    plateIndex_.assign(slots, -1);
    plateCount_ = 0;
    int others = 0;
    for (int h = 0; h < slots; ++h) {
        const VEK_node* n = net_.GetNode(h);
        if (!n) continue;
        if (!IsChanceTable(n->Definition())) {
            return net_.Logger().VLogError(VEK_WRONG_NODE_TYPE,
                                           "Node '%s': dynamic networks take discrete chance nodes only", n->GetId());
        }
        if (n->GetTemporalType() == VEK_TEMPORAL_PLATE) {
            plateIndex_[h] = plateCount_++;
        } else {
            firstVar_[h] = others++;
        }
    }
    for (int h = 0; h < slots; ++h) {
        if (plateIndex_[h] >= 0) firstVar_[h] = others + plateIndex_[h];
    }
    const int64_t total = others + int64_t(plateCount_) * slices_;
    if (total > (int64_t(1) << 30)) return net_.Logger().LogError(VEK_OUT_OF_MEMORY, "Too many slices");
    const int nv = static_cast<int>(total);
    varNode_.assign(nv, -1);
    varSlice_.assign(nv, -1);
    varStates_.assign(nv, 0);
    varEvidence_.assign(nv, -1);
    varVirtual_.assign(nv, nullptr);
    const VEK_dynamicNet* dyn = net_.GetDynamic();
    for (int h = 0; h < slots; ++h) {
        const VEK_node* n = net_.GetNode(h);
        if (!n) continue;
        const int states = n->Definition()->GetDiscreteOutcomeCount();
        const bool plate = plateIndex_[h] >= 0;
        for (int t = 0; t < (plate ? slices_ : 1); ++t) {
            const int v = Var(h, t);
            varNode_[v] = h;
            varSlice_[v] = plate ? t : -1;
            varStates_[v] = states;
            if (plate) {
                if (dyn) {
                    varEvidence_[v] = dyn->GetTemporalEvidence(h, t);
                    varVirtual_[v] = dyn->GetTemporalVirtualEvidence(h, t);
                }
            } else {
                const VEK_nodeVal* val = n->Value();
                if (val->IsEvidence()) varEvidence_[v] = val->GetEvidence();
                if (val->IsVirtualEvidence()) {
                    owned_.emplace_back();
                    (void)val->GetVirtualEvidence(owned_.back());  // the node has virtual evidence
                    varVirtual_[v] = &owned_.back();
                }
            }
        }
    }
    return VEK_OKAY;
}

int VEK_dbnSolver::BuildFactors() {
    factors_.clear();
    scope_.clear();
    const VEK_dynamicNet* dyn = net_.GetDynamic();
    const int nv = static_cast<int>(varNode_.size());
    for (int v = 0; v < nv; ++v) {
        const int h = varNode_[v];
        const int t = varSlice_[v];
        const VEK_node* n = net_.GetNode(h);
        const int order = (t > 0 && dyn) ? dyn->OrderForSlice(h, t) : 0;
        const double* table = nullptr;
        int64_t expected = varStates_[v];
        const int first = static_cast<int>(scope_.size());
        for (int p : n->Parents()) {
            const int pt = net_.GetNode(p)->GetTemporalType();
            if (t > 0 && pt == VEK_TEMPORAL_ANCHOR) {
                if (order == 0) {
                    return net_.Logger().VLogError(VEK_WRONG_NODE_TYPE,
                                                   "Plate node '%s' has anchor parents but no temporal arcs",
                                                   n->GetId());
                }
                continue;
            }
            // Plate parents of a terminal node are those of the last slice.
            int slice = t;
            if (n->GetTemporalType() == VEK_TEMPORAL_TERMINAL) slice = slices_ - 1;
            scope_.push_back(Var(p, std::max(slice, 0)));
            expected *= varStates_[scope_.back()];
        }
        if (order > 0) {
            for (int k = 1; k <= order; ++k) {
                for (const VEK_temporalArc& a : dyn->GetTemporalParents(h)) {
                    if (a.order != k) continue;
                    scope_.push_back(Var(a.node, t - k));
                    expected *= varStates_[scope_.back()];
                }
            }
            table = dyn->GetTemporalDefinition(h, order)->Items();
            if (dyn->GetTemporalDefinition(h, order)->GetSize() != expected) table = nullptr;
        } else {
            const VEK_Dmatrix* m = n->Definition()->GetMatrix();
            if (m->GetSize() == expected) table = m->Items();
        }
        if (!table) {
            return net_.Logger().VLogError(VEK_OUT_OF_RANGE, "Node '%s': table does not fit its parents", n->GetId());
        }
        scope_.push_back(v);
        factors_.push_back({v, first, static_cast<int>(scope_.size()) - first, table});
    }
    return VEK_OKAY;
}

int VEK_dbnSolver::Triangulate() {
    const int nv = static_cast<int>(varNode_.size());
    std::vector<std::vector<int>> adj(nv);
    auto link = [&adj](int a, int b) {
        if (a == b) return;
        if (std::find(adj[a].begin(), adj[a].end(), b) == adj[a].end()) {
            adj[a].push_back(b);
            adj[b].push_back(a);
        }
    };
    for (const Factor& f : factors_) {
        for (int i = 0; i < f.count; ++i) {
            for (int j = i + 1; j < f.count; ++j) link(scope_[f.first + i], scope_[f.first + j]);
        }
    }
    // Groups in time order.
    std::vector<std::vector<int>> groups(slices_ + 3);
    for (int v = 0; v < nv; ++v) {
        const int type = net_.GetNode(varNode_[v])->GetTemporalType();
        if (varSlice_[v] >= 0) {
            groups[1 + varSlice_[v]].push_back(v);
        } else if (type == VEK_TEMPORAL_ANCHOR) {
            groups[0].push_back(v);
        } else if (type == VEK_TEMPORAL_TERMINAL) {
            groups[slices_ + 1].push_back(v);
        } else {
            groups[slices_ + 2].push_back(v);
        }
    }
    std::vector<char> alive(nv, 1);
    order_.clear();
    position_.assign(nv, -1);
    cliqueFirst_.assign(nv, 0);
    cliqueCount_.assign(nv, 0);
    cliqueVars_.clear();
    potOffset_.assign(nv, 0);
    msgOffset_.assign(nv, 0);
    int64_t potTotal = 0, msgTotal = 0;
    std::vector<int> live;
    for (std::vector<int>& g : groups) {
        while (!g.empty()) {
            // Smallest clique first.
            size_t best = 0;
            double bestSize = 0.0;
            for (size_t i = 0; i < g.size(); ++i) {
                double size = varStates_[g[i]];
                for (int u : adj[g[i]]) {
                    if (alive[u]) size *= varStates_[u];
                }
                if (i == 0 || size < bestSize) {
                    best = i;
                    bestSize = size;
                }
            }
            const int v = g[best];
            g.erase(g.begin() + static_cast<long>(best));
            live.clear();
            for (int u : adj[v]) {
                if (alive[u]) live.push_back(u);
            }
            std::sort(live.begin(), live.end());
            if (bestSize > static_cast<double>(kCliqueLimit) || live.size() >= 64) {
                return net_.Logger().LogError(VEK_OUT_OF_MEMORY, "Dynamic network clique too large");
            }
            for (size_t i = 0; i < live.size(); ++i) {
                for (size_t j = i + 1; j < live.size(); ++j) link(live[i], live[j]);
            }
            alive[v] = 0;
            position_[v] = static_cast<int>(order_.size());
            order_.push_back(v);
            cliqueFirst_[v] = static_cast<int>(cliqueVars_.size());
            cliqueCount_[v] = static_cast<int>(live.size()) + 1;
            cliqueVars_.insert(cliqueVars_.end(), live.begin(), live.end());
            cliqueVars_.push_back(v);
            potOffset_[v] = potTotal;
            msgOffset_[v] = msgTotal;
            const int64_t size = static_cast<int64_t>(bestSize);
            potTotal += size;
            msgTotal += size / varStates_[v];
            if (potTotal + msgTotal > kTotalLimit) {
                return net_.Logger().LogError(VEK_OUT_OF_MEMORY, "Dynamic network potentials too large");
            }
            // Neighbour lists only need live entries.
            std::erase_if(adj[v], [](int) { return true; });
        }
    }
    parent_.assign(nv, -1);
    for (int v = 0; v < nv; ++v) {
        int best = -1;
        for (int i = 0; i + 1 < cliqueCount_[v]; ++i) {
            const int u = cliqueVars_[cliqueFirst_[v] + i];
            if (best < 0 || position_[u] < position_[best]) best = u;
        }
        parent_[v] = best;
    }
    pot_.assign(static_cast<size_t>(potTotal), 1.0);
    msg_.assign(static_cast<size_t>(msgTotal), 1.0);
    return VEK_OKAY;
}

void VEK_dbnSolver::MultiplyIn(int clique, const int* scope, int count, const double* table) {
    const int m = cliqueCount_[clique];
    const int* vars = &cliqueVars_[cliqueFirst_[clique]];
    // Stride in the table of each clique dimension.
    int strides[64];
    int sizes[64];
    int coord[64];
    for (int d = 0; d < m; ++d) {
        strides[d] = 0;
        sizes[d] = varStates_[vars[d]];
        coord[d] = 0;
        int s = 1;
        for (int k = count - 1; k >= 0; --k) {
            if (scope[k] == vars[d]) {
                strides[d] = s;
                break;
            }
            s *= varStates_[scope[k]];
        }
    }
    double* p = &pot_[potOffset_[clique]];
    int64_t total = 1;
    for (int d = 0; d < m; ++d) total *= sizes[d];
    int j = 0;
    for (int64_t i = 0; i < total; ++i) {
        p[i] *= table[j];
        for (int d = m - 1; d >= 0; --d) {
            j += strides[d];
            if (++coord[d] < sizes[d]) break;
            j -= strides[d] * coord[d];
            coord[d] = 0;
        }
    }
}

int VEK_dbnSolver::Propagate() {
    // Tables go to the clique of their first-eliminated variable.
    for (const Factor& f : factors_) {
        int host = scope_[f.first];
        for (int i = 1; i < f.count; ++i) {
            if (position_[scope_[f.first + i]] < position_[host]) host = scope_[f.first + i];
        }
        MultiplyIn(host, &scope_[f.first], f.count, f.table);
    }
    std::vector<double> indicator;
    const int nv = static_cast<int>(varNode_.size());
    for (int v = 0; v < nv; ++v) {
        if (varEvidence_[v] >= 0) {
            indicator.assign(varStates_[v], 0.0);
            indicator[varEvidence_[v]] = 1.0;
            MultiplyIn(v, &v, 1, indicator.data());
        } else if (varVirtual_[v]) {
            MultiplyIn(v, &v, 1, varVirtual_[v]->data());
        }
    }
    // Inward: each clique sums out its own variable (the last dimension).
    logPE_ = 0.0;
    for (int v : order_) {
        const int n = varStates_[v];
        double* p = &pot_[potOffset_[v]];
        double* m = &msg_[msgOffset_[v]];
        int64_t rows = 1;
        for (int i = 0; i + 1 < cliqueCount_[v]; ++i) rows *= varStates_[cliqueVars_[cliqueFirst_[v] + i]];
        double z = 0.0;
        for (int64_t r = 0; r < rows; ++r) {
            double s = 0.0;
            for (int x = 0; x < n; ++x) s += p[r * n + x];
            m[r] = s;
            z += s;
        }
        if (!(z > 0.0)) return net_.Logger().LogError(VEK_IMPOSSIBLE_EVIDENCE, "Evidence is impossible");
        logPE_ += std::log(z);
        if (parent_[v] < 0) continue;
        for (int64_t r = 0; r < rows; ++r) m[r] /= z;
        MultiplyIn(parent_[v], &cliqueVars_[cliqueFirst_[v]], cliqueCount_[v] - 1, m);
    }
    // Outward: parents before children.
    std::vector<double> sep;
    for (auto it = order_.rbegin(); it != order_.rend(); ++it) {
        const int v = *it;
        const int n = varStates_[v];
        double* p = &pot_[potOffset_[v]];
        int64_t rows = 1;
        for (int i = 0; i + 1 < cliqueCount_[v]; ++i) rows *= varStates_[cliqueVars_[cliqueFirst_[v] + i]];
        const int par = parent_[v];
        if (par >= 0) {
            // The parent's calibrated potential summed onto the separator.
            sep.assign(static_cast<size_t>(rows), 0.0);
            const int pm = cliqueCount_[par];
            const int* pvars = &cliqueVars_[cliqueFirst_[par]];
            const int* svars = &cliqueVars_[cliqueFirst_[v]];
            const int sm = cliqueCount_[v] - 1;
            int strides[64], sizes[64], coord[64];
            int64_t ptotal = 1;
            for (int d = 0; d < pm; ++d) {
                strides[d] = 0;
                sizes[d] = varStates_[pvars[d]];
                coord[d] = 0;
                ptotal *= sizes[d];
                int s = 1;
                for (int k = sm - 1; k >= 0; --k) {
                    if (svars[k] == pvars[d]) {
                        strides[d] = s;
                        break;
                    }
                    s *= varStates_[svars[k]];
                }
            }
            const double* pp = &pot_[potOffset_[par]];
            int j = 0;
            for (int64_t i = 0; i < ptotal; ++i) {
                sep[j] += pp[i];
                for (int d = pm - 1; d >= 0; --d) {
                    j += strides[d];
                    if (++coord[d] < sizes[d]) break;
                    j -= strides[d] * coord[d];
                    coord[d] = 0;
                }
            }
            const double* m = &msg_[msgOffset_[v]];
            for (int64_t r = 0; r < rows; ++r) {
                const double f = m[r] > 0.0 ? sep[r] / m[r] : 0.0;
                for (int x = 0; x < n; ++x) p[r * n + x] *= f;
            }
        }
        // Kept at total 1 so long chains neither underflow nor overflow.
        double z = 0.0;
        for (int64_t i = 0; i < rows * n; ++i) z += p[i];
        if (z > 0.0) {
            for (int64_t i = 0; i < rows * n; ++i) p[i] /= z;
        }
    }
    return VEK_OKAY;
}

void VEK_dbnSolver::WriteBeliefs() {
    const int slots = net_.GetSlotCount();
    for (int h = 0; h < slots; ++h) {
        VEK_node* node = net_.GetNode(h);
        if (!node) continue;
        VEK_nodeVal* val = node->Value();
        VEK_Dmatrix* out = val->GetWriteableMatrix();
        if (!out) continue;
        const bool plate = plateIndex_[h] >= 0;
        const int count = plate ? slices_ : 1;
        const int n = varStates_[Var(h, 0)];
        if (plate) {
            const int dims[2] = {slices_, n};
            (void)out->Setup(dims, 2);  // slices and states are at least 1
        } else if (out->GetSize() != n) {
            (void)out->SetSingleDimension(n);
        }
        for (int t = 0; t < count; ++t) {
            const int v = Var(h, t);
            const double* p = &pot_[potOffset_[v]];
            int64_t rows = 1;
            for (int i = 0; i + 1 < cliqueCount_[v]; ++i) rows *= varStates_[cliqueVars_[cliqueFirst_[v] + i]];
            double* b = out->Items() + static_cast<int64_t>(t) * n;
            std::fill(b, b + n, 0.0);
            for (int64_t r = 0; r < rows; ++r) {
                for (int x = 0; x < n; ++x) b[x] += p[r * n + x];
            }
            double z = 0.0;
            for (int x = 0; x < n; ++x) z += b[x];
            for (int x = 0; x < n; ++x) b[x] = z > 0.0 ? b[x] / z : 1.0 / n;
        }
        val->SetValueValid();
    }
    net_.NoteValueFlags(VEK_VALUE_VALID);
}

int VEK_dbnSolver::UpdateBeliefs() {
    owned_.clear();
    owned_.reserve(net_.GetSlotCount());
    int res = BuildVariables();
    if (res == VEK_OKAY) res = BuildFactors();
    if (res == VEK_OKAY) res = Triangulate();
    if (res == VEK_OKAY) res = Propagate();
    if (res == VEK_OKAY) WriteBeliefs();
    // The potentials are rebuilt on every run; none are kept.
    std::vector<double>().swap(pot_);
    std::vector<double>().swap(msg_);
    return res;
}
