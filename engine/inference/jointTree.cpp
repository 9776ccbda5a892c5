#include "inference/jointTree.h"

#include <unistd.h>

#include <algorithm>
#include <new>
#include <stdexcept>

#include "inference/rNetwork.h"
#include "network/network.h"
#include "network/nodeVal.h"

namespace {

bool Subset(const std::vector<int>& a, const std::vector<int>& b) {
    return std::includes(b.begin(), b.end(), a.begin(), a.end());
}

std::vector<int> Intersection(const std::vector<int>& a, const std::vector<int>& b) {
    std::vector<int> r;
    std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(r));
    return r;
}

// For every entry of a potential over vars (sizes), sum over the given
// variables of coordinate times stride.
void IndexMap(const std::vector<int>& vars, const std::vector<int>& sizes, const std::vector<int>& mapVars,
              const std::vector<int>& mapStrides, std::vector<int>& out) {
    size_t total = 1;
    for (int s : sizes) total *= static_cast<size_t>(s);
    std::vector<int> strideOf(vars.size(), 0);
    for (size_t d = 0; d < vars.size(); ++d)
        for (size_t k = 0; k < mapVars.size(); ++k)
            if (mapVars[k] == vars[d]) strideOf[d] = mapStrides[k];
    out.assign(total, 0);
    std::vector<int> coord(vars.size(), 0);
    int index = 0;
    for (size_t e = 0; e < total; ++e) {
        out[e] = index;
        for (int d = static_cast<int>(vars.size()) - 1; d >= 0; --d) {
            if (++coord[static_cast<size_t>(d)] < sizes[static_cast<size_t>(d)]) {
                index += strideOf[static_cast<size_t>(d)];
                break;
            }
            index -= strideOf[static_cast<size_t>(d)] * (sizes[static_cast<size_t>(d)] - 1);
            coord[static_cast<size_t>(d)] = 0;
        }
    }
}

double PhysicalMemory() {
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageSize = sysconf(_SC_PAGE_SIZE);
    if (pages <= 0 || pageSize <= 0) return 1e18;
    return static_cast<double>(pages) * static_cast<double>(pageSize);
}

}  // namespace

void AdjMatrix::GraphMoralize(const VEK_rNetwork& net) {
    for (int i = 0; i < net.GetNodeCount(); ++i) {
        const VEK_rNode* r = net.GetNode(i);
        for (size_t a = 0; a < r->parents.size(); ++a) {
            Set(i, r->parents[a]->index);
            for (size_t b = a + 1; b < r->parents.size(); ++b) Set(r->parents[a]->index, r->parents[b]->index);
        }
    }
}

void JointTree::Potential::Setup(const std::vector<int>& v, const std::vector<int>& s) {
    vars = v;
    sizes = s;
    size_t total = 1;
    for (int x : s) total *= static_cast<size_t>(x);
    values.assign(total, 1.0);
}

JointTree::JointTree(VEK_rNetwork& net) : net_(net), n_(net.GetNodeCount()) {}

bool JointTree::WeightHeurTriangulate() {
    AdjMatrix g(n_);
    g.GraphMoralize(net_);
    std::vector<std::vector<int>> nb(static_cast<size_t>(n_));
    for (int a = 0; a < n_; ++a)
        for (int b = 0; b < n_; ++b)
            if (a != b && g.Get(a, b)) nb[static_cast<size_t>(a)].push_back(b);
    std::vector<char> gone(static_cast<size_t>(n_), 0);
    double total = 0.0;
    for (int step = 0; step < n_; ++step) {
        // The smallest weight: the node's states times its neighbours'.
        int best = -1;
        double bestWeight = 0.0;
        for (int v = 0; v < n_; ++v) {
            if (gone[static_cast<size_t>(v)]) continue;
            double w = net_.GetNode(v)->numStates;
            for (int u : nb[static_cast<size_t>(v)]) w *= net_.GetNode(u)->numStates;
            if (best < 0 || w < bestWeight) {
                best = v;
                bestWeight = w;
            }
        }
        std::vector<int> clique = nb[static_cast<size_t>(best)];
        for (size_t a = 0; a < clique.size(); ++a)
            for (size_t b = a + 1; b < clique.size(); ++b) {
                if (g.Get(clique[a], clique[b])) continue;
                g.Set(clique[a], clique[b]);
                nb[static_cast<size_t>(clique[a])].push_back(clique[b]);
                nb[static_cast<size_t>(clique[b])].push_back(clique[a]);
            }
        gone[static_cast<size_t>(best)] = 1;
        for (int u : clique) {
            auto& l = nb[static_cast<size_t>(u)];
            l.erase(std::find(l.begin(), l.end(), best));
        }
        clique.push_back(best);
        std::sort(clique.begin(), clique.end());
        bool contained = false;
        for (const auto& c : cliques_)
            if (Subset(clique, c)) {
                contained = true;
                break;
            }
        if (!contained) {
            total += bestWeight;
            cliques_.push_back(std::move(clique));
        }
    }
    // Potentials and index maps together cost about 16 bytes per entry.
    return total * 16.0 <= 0.5 * PhysicalMemory() && total < 2147483647.0;
}

void JointTree::BuildTree() {
    const int m = static_cast<int>(cliques_.size());
    std::vector<char> in(static_cast<size_t>(m), 0);
    std::vector<int> bestLen(static_cast<size_t>(m), -1), bestPartner(static_cast<size_t>(m), -1);
    parentLink_.assign(static_cast<size_t>(m), -1);
    adjacentLinks_.assign(static_cast<size_t>(m), {});
    order_.clear();
    in[0] = 1;
    order_.push_back(0);
    for (int j = 1; j < m; ++j) {
        bestLen[static_cast<size_t>(j)] = static_cast<int>(Intersection(cliques_[0], cliques_[static_cast<size_t>(j)]).size());
        bestPartner[static_cast<size_t>(j)] = 0;
    }
    for (int step = 1; step < m; ++step) {
        int pick = -1;
        for (int j = 0; j < m; ++j)
            if (!in[static_cast<size_t>(j)] && (pick < 0 || bestLen[static_cast<size_t>(j)] > bestLen[static_cast<size_t>(pick)])) pick = j;
        in[static_cast<size_t>(pick)] = 1;
        order_.push_back(pick);
        Link link;
        link.a = bestPartner[static_cast<size_t>(pick)];
        link.b = pick;
        parentLink_[static_cast<size_t>(pick)] = static_cast<int>(links_.size());
        links_.push_back(std::move(link));
        for (int j = 0; j < m; ++j) {
            if (in[static_cast<size_t>(j)]) continue;
            const int len = static_cast<int>(Intersection(cliques_[static_cast<size_t>(pick)], cliques_[static_cast<size_t>(j)]).size());
            if (len > bestLen[static_cast<size_t>(j)]) {
                bestLen[static_cast<size_t>(j)] = len;
                bestPartner[static_cast<size_t>(j)] = pick;
            }
        }
    }

    pots_.resize(static_cast<size_t>(m));
    for (int c = 0; c < m; ++c) {
        std::vector<int> sizes;
        for (int v : cliques_[static_cast<size_t>(c)]) sizes.push_back(net_.GetNode(v)->numStates);
        pots_[static_cast<size_t>(c)].Setup(cliques_[static_cast<size_t>(c)], sizes);
    }
    for (Link& l : links_) {
        std::vector<int> vars = Intersection(cliques_[static_cast<size_t>(l.a)], cliques_[static_cast<size_t>(l.b)]);
        std::vector<int> sizes;
        for (int v : vars) sizes.push_back(net_.GetNode(v)->numStates);
        l.sep.Setup(vars, sizes);
        MakeMap(pots_[static_cast<size_t>(l.a)], l.sep, l.mapA);
        MakeMap(pots_[static_cast<size_t>(l.b)], l.sep, l.mapB);
    }
}

void JointTree::MakeMap(const Potential& big, const Potential& small, std::vector<int>& map) {
    std::vector<int> strides(small.vars.size(), 1);
    for (int d = static_cast<int>(small.vars.size()) - 2; d >= 0; --d)
        strides[static_cast<size_t>(d)] = strides[static_cast<size_t>(d) + 1] * small.sizes[static_cast<size_t>(d) + 1];
    IndexMap(big.vars, big.sizes, small.vars, strides, map);
}

void JointTree::FindFamilyHost() {
    host_.assign(static_cast<size_t>(n_), -1);
    for (int i = 0; i < n_; ++i) {
        const VEK_rNode* r = net_.GetNode(i);
        std::vector<int> family{i};
        for (const VEK_rNode* p : r->parents) family.push_back(p->index);
        std::sort(family.begin(), family.end());
        size_t bestSize = 0;
        for (size_t c = 0; c < cliques_.size(); ++c) {
            if (!Subset(family, cliques_[c])) continue;
            const size_t s = pots_[c].values.size();
            if (host_[static_cast<size_t>(i)] < 0 || s < bestSize) {
                host_[static_cast<size_t>(i)] = static_cast<int>(c);
                bestSize = s;
            }
        }
        // The family's table goes in at once.
        Potential& pot = pots_[static_cast<size_t>(host_[static_cast<size_t>(i)])];
        std::vector<int> vars, strides;
        int s = 1;
        vars.push_back(i);
        strides.push_back(1);
        s = r->numStates;
        for (int k = static_cast<int>(r->parents.size()) - 1; k >= 0; --k) {
            vars.push_back(r->parents[static_cast<size_t>(k)]->index);
            strides.push_back(s);
            s *= r->parents[static_cast<size_t>(k)]->numStates;
        }
        std::vector<int> map;
        IndexMap(pot.vars, pot.sizes, vars, strides, map);
        const VEK_Dmatrix& t = r->Table();
        for (size_t e = 0; e < map.size(); ++e) pot.values[e] *= t[map[e]];
    }
}

void JointTree::IncoperateEvidence() {
    for (int i = 0; i < n_; ++i) {
        const int ev = net_.GetNode(i)->evidence;
        if (ev < 0) continue;
        Potential& pot = pots_[static_cast<size_t>(host_[static_cast<size_t>(i)])];
        std::vector<int> map;
        IndexMap(pot.vars, pot.sizes, {i}, {1}, map);
        for (size_t e = 0; e < map.size(); ++e)
            if (map[e] != ev) pot.values[e] = 0.0;
    }
}

void JointTree::PassMessage(Link& l, bool towardsA) {
    Potential& from = pots_[static_cast<size_t>(towardsA ? l.b : l.a)];
    Potential& to = pots_[static_cast<size_t>(towardsA ? l.a : l.b)];
    const std::vector<int>& fromMap = towardsA ? l.mapB : l.mapA;
    const std::vector<int>& toMap = towardsA ? l.mapA : l.mapB;
    std::vector<double> fresh(l.sep.values.size(), 0.0);
    for (size_t e = 0; e < fromMap.size(); ++e) fresh[static_cast<size_t>(fromMap[e])] += from.values[e];
    std::vector<double> ratio(fresh.size(), 0.0);
    for (size_t k = 0; k < fresh.size(); ++k)
        ratio[k] = l.sep.values[k] != 0.0 ? fresh[k] / l.sep.values[k] : 0.0;
    for (size_t e = 0; e < toMap.size(); ++e) to.values[e] *= ratio[static_cast<size_t>(toMap[e])];
    l.sep.values = std::move(fresh);
}

void JointTree::Propagate() {
    for (auto it = order_.rbegin(); it != order_.rend(); ++it) {
        const int pl = parentLink_[static_cast<size_t>(*it)];
        if (pl >= 0) PassMessage(links_[static_cast<size_t>(pl)], true);
    }
    for (int c : order_) {
        const int pl = parentLink_[static_cast<size_t>(c)];
        if (pl >= 0) PassMessage(links_[static_cast<size_t>(pl)], false);
    }
}

void JointTree::StoreBeliefs() {
    VEK_network& net = net_.Network();
    for (int i = 0; i < n_; ++i) {
        const VEK_rNode* r = net_.GetNode(i);
        if (r->handle < 0) continue;
        if (r->evidence >= 0) {
            VEK_nodeVal* val = net.GetVal(r->handle);
            VEK_Dmatrix* m = val && !val->IsValueValid() ? val->GetWriteableMatrix() : nullptr;
            if (m) {
                (void)m->SetSingleDimension(r->numStates);  // state counts are at least 1
                m->FillWith(0.0);
                (*m)[r->evidence] = 1.0;
                val->SetValueValid();
            }
            continue;
        }
        int best = -1;
        for (size_t c = 0; c < cliques_.size(); ++c) {
            if (!std::binary_search(cliques_[c].begin(), cliques_[c].end(), i)) continue;
            if (best < 0 || pots_[c].values.size() < pots_[static_cast<size_t>(best)].values.size()) best = static_cast<int>(c);
        }
        const Potential& pot = pots_[static_cast<size_t>(best)];
        std::vector<int> map;
        IndexMap(pot.vars, pot.sizes, {i}, {1}, map);
        std::vector<double> m(static_cast<size_t>(r->numStates), 0.0);
        for (size_t e = 0; e < map.size(); ++e) m[static_cast<size_t>(map[e])] += pot.values[e];
        double sum = 0.0;
        for (double x : m) sum += x;
        if (!(sum > 0.0)) {
            VEK_reportZeroPotential(net, r->source);
            continue;
        }
        VEK_nodeVal* val = net.GetVal(r->handle);
        VEK_Dmatrix* b = val ? val->GetWriteableMatrix() : nullptr;
        if (!b) continue;
        if (b->GetSize() != r->numStates || b->GetNumberOfDimensions() != 1) (void)b->SetSingleDimension(r->numStates);  // state counts are at least 1
        for (int s = 0; s < r->numStates; ++s) (*b)[s] = m[static_cast<size_t>(s)] / sum;
        val->SetValueValid();
    }
}

int JointTree::Posterior() {
    try {
        if (n_ == 0) return 0;
        if (!WeightHeurTriangulate()) return VEK_OUT_OF_MEMORY;
        BuildTree();
        FindFamilyHost();
        IncoperateEvidence();
        Propagate();
        StoreBeliefs();
        return static_cast<int>(pots_.size() + links_.size());
    } catch (const std::bad_alloc&) {
        return VEK_OUT_OF_MEMORY;
    } catch (const std::length_error&) {
        return VEK_OUT_OF_MEMORY;
    }
}

int Infer_Lauritzen_Spiegelhalter(VEK_rNetwork& net) { return JointTree(net).Posterior(); }
