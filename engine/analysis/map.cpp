#include "analysis/map.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>

#include "analysis/analysisTree.h"
#include "network/network.h"
#include "network/nodeDef.h"
#include "network/nodeVal.h"
#include "network/status.h"

int VEK_checkMapNodes(VEK_network& net, const std::vector<int>& nodes) {
    VEK_logger& log = net.Logger();
    if (nodes.empty()) return log.LogError(VEK_OUT_OF_RANGE, "The MAP set is empty");
    std::vector<char> seen(static_cast<size_t>(net.GetSlotCount()), 0);
    for (int h : nodes) {
        if (!net.IsValidNode(h)) return log.VLogError(VEK_OUT_OF_RANGE, "Invalid node handle %d in the MAP set", h);
        const VEK_nodeDef* d = net.GetDef(h);
        if (d->GetType() == VEK_LIST || d->GetType() == VEK_TABLE || d->GetType() == VEK_MAU ||
            d->GetType() == VEK_EQUATION)
            return log.VLogError(VEK_WRONG_NODE_TYPE, "Node [%s] in the MAP set is not a chance node", net.GetNodeId(h));
        if (seen[static_cast<size_t>(h)])
            return log.VLogError(VEK_OUT_OF_RANGE, "Node [%s] appears twice in the MAP set", net.GetNodeId(h));
        seen[static_cast<size_t>(h)] = 1;
        const VEK_nodeVal* v = net.GetVal(h);
        if (v && (v->HasHardEvidence() || v->IsPropagatedEvidence()))
            return log.VLogError(VEK_OUT_OF_RANGE, "Node [%s] in the MAP set has evidence", net.GetNodeId(h));
    }
    return VEK_OKAY;
}

int VEK_checkAnnealedMapParams(VEK_network& net, const VEK_AnnealedMAPParams& p) {
    VEK_logger& log = net.Logger();
    if (p.speed < 0 || p.tMin < 0 || p.tInit < 0 || p.kReheat < 0 || p.kMAP < 0 || p.kRFactor < 0 ||
        p.stopAfter < 0 || p.iterationsPerTemperature < 0)
        return log.LogError(VEK_OUT_OF_RANGE, "Annealed MAP tuning values cannot be negative");
    if (p.tMin > p.tInit)
        return log.LogError(VEK_OUT_OF_RANGE, "The minimum temperature is above the initial temperature");
    if (!(p.speed > 1.0)) return log.LogError(VEK_OUT_OF_RANGE, "The cooling speed must be above 1");
    if (p.iterationsPerTemperature == 0)
        return log.LogError(VEK_OUT_OF_RANGE, "At least one iteration per temperature is needed");
    if (p.kReheat > 1.0) return log.LogError(VEK_OUT_OF_RANGE, "The reheating factor cannot be above 1");
    return VEK_OKAY;
}

namespace {

// The MAP nodes of one component, searched on its own: the maximum of a
// product of independent factors is the product of their maxima.
struct Group {
    int comp = 0;
    std::vector<int> nodes;  // positions in the MAP list
};

class Searcher {
public:
    Searcher(VEK_analysisTree& t, const std::vector<int>& handles, const std::vector<int>& states)
        : tree_(t), handles_(handles), states_(states) {}

    // Branch and bound: P(partial assignment, evidence) bounds every
    // completion of it, and children are visited best first.
    int Run(const Group& g, std::vector<int>& best, double& bestP) {
        group_ = &g;
        best_ = &best;
        bestP_ = &bestP;
        current_.assign(g.nodes.size(), 0);
        return Visit(0);
    }

private:
    int Visit(size_t depth) {
        const int h = handles_[static_cast<size_t>(group_->nodes[depth])];
        const int k = states_[static_cast<size_t>(group_->nodes[depth])];
        std::vector<std::pair<double, int>> bounds;
        for (int s = 0; s < k; ++s) {
            tree_.Restrict(h, s);
            const double p = tree_.ProbEvidence(group_->comp);
            if (p < 0.0) return VEK_OUT_OF_MEMORY;
            bounds.emplace_back(p, s);
        }
        std::stable_sort(bounds.begin(), bounds.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
        int res = VEK_OKAY;
        for (const auto& [p, s] : bounds) {
            if (!(p > *bestP_)) break;
            current_[depth] = s;
            if (depth + 1 == group_->nodes.size()) {
                *bestP_ = p;
                *best_ = current_;
                continue;
            }
            tree_.Restrict(h, s);
            res = Visit(depth + 1);
            if (res != VEK_OKAY) break;
        }
        tree_.Restrict(h, -1);
        return res;
    }

    VEK_analysisTree& tree_;
    const std::vector<int>& handles_;
    const std::vector<int>& states_;
    const Group* group_ = nullptr;
    std::vector<int>* best_ = nullptr;
    double* bestP_ = nullptr;
    std::vector<int> current_;
};

// Shared set-up of both searches: the trees, the state counts, and the
// factor of the components without MAP nodes.
struct Setup {
    VEK_analysisTree tree;
    std::vector<int> states;
    std::vector<Group> groups;
    double constant = 1.0;

    int Init(VEK_network& net, const std::vector<int>& nodes) {
        int res = VEK_checkMapNodes(net, nodes);
        if (res != VEK_OKAY) return res;
        res = tree.Build(net);
        if (res != VEK_OKAY) return res;
        std::map<int, size_t> byComp;
        for (size_t i = 0; i < nodes.size(); ++i) {
            states.push_back(net.GetDef(nodes[i])->GetNumberOfOutcomes());
            const int c = tree.ComponentOf(nodes[i]);
            auto it = byComp.find(c);
            if (it == byComp.end()) {
                it = byComp.emplace(c, groups.size()).first;
                groups.push_back(Group{c, {}});
            }
            groups[it->second].nodes.push_back(static_cast<int>(i));
        }
        for (int c = 0; c < tree.ComponentCount(); ++c) {
            if (byComp.count(c)) continue;
            const double z = tree.ProbEvidence(c);
            if (z < 0.0) return VEK_OUT_OF_MEMORY;
            constant *= z;
        }
        return VEK_OKAY;
    }
};

void Fill(VEK_mapResult& out, const std::vector<int>& nodes, const std::vector<int>& outcomes, double p) {
    out.handles = nodes;
    out.outcomes = outcomes;
    out.probability = p;
    out.logProbability = p > 0.0 ? std::log(p) : -HUGE_VAL;
}

int ReportImpossible(VEK_network& net, const std::vector<int>& nodes) {
    for (int h = 0; h < net.GetSlotCount(); ++h) {
        const VEK_nodeVal* v = net.GetVal(h);
        if (v && (v->HasHardEvidence() || v->IsVirtualEvidence())) return VEK_reportZeroPotential(net, h);
    }
    return VEK_reportZeroPotential(net, nodes[0]);
}

}  // namespace

int VEK_exactMap(VEK_network& net, const std::vector<int>& nodes, VEK_mapResult& out) {
    out = VEK_mapResult();
    Setup s;
    int res = s.Init(net, nodes);
    if (res != VEK_OKAY) return res;
    double configs = 1.0;
    for (int k : s.states) configs *= k;
    if (configs > VEK_EXACT_MAP_MAX_CONFIGURATIONS)
        return net.Logger().VLogError(VEK_OUT_OF_RANGE, "The MAP set has %.0f configurations, more than %.0f",
                                      configs, VEK_EXACT_MAP_MAX_CONFIGURATIONS);
    std::vector<int> outcomes(nodes.size(), 0);
    double p = s.constant;
    Searcher search(s.tree, nodes, s.states);
    for (const Group& g : s.groups) {
        std::vector<int> best;
        double bestP = 0.0;
        res = search.Run(g, best, bestP);
        if (res != VEK_OKAY) return res;
        if (best.empty()) {
            p = 0.0;
            break;
        }
        for (size_t j = 0; j < g.nodes.size(); ++j) outcomes[static_cast<size_t>(g.nodes[j])] = best[j];
        p *= bestP;
    }
    if (!(p > 0.0)) return ReportImpossible(net, nodes);
    Fill(out, nodes, outcomes, p);
    return VEK_OKAY;
}

int VEK_annealedMap(VEK_network& net, const std::vector<int>& nodes, const VEK_AnnealedMAPParams& params,
                    VEK_mapResult& out) {
    out = VEK_mapResult();
    int res = VEK_checkAnnealedMapParams(net, params);
    if (res != VEK_OKAY) return res;
    Setup s;
    res = s.Init(net, nodes);
    if (res != VEK_OKAY) return res;
    const size_t n = nodes.size();

    // Start from each node's most probable outcome given the evidence.
    std::vector<int> current(n, 0);
    {
        std::vector<std::vector<double>> fam;
        for (const Group& g : s.groups) {
            VEK_rNetwork& sub = s.tree.Reduced(g.comp);
            fam.assign(static_cast<size_t>(sub.GetNodeCount()), {});
            for (int i = 0; i < sub.GetNodeCount(); ++i)
                fam[static_cast<size_t>(i)].assign(static_cast<size_t>(sub.GetNode(i)->Table().GetSize()), 0.0);
            double pY = 0.0;
            if (!s.tree.TablePartials(g.comp, fam, pY)) return VEK_OUT_OF_MEMORY;
            for (int j : g.nodes) {
                const int pos = s.tree.PositionOf(nodes[static_cast<size_t>(j)]);
                const std::vector<double>& f = fam[static_cast<size_t>(pos)];
                const VEK_Dmatrix& table = sub.GetNode(pos)->Table();
                const int k = s.states[static_cast<size_t>(j)];
                std::vector<double> m(static_cast<size_t>(k), 0.0);
                // Each entry's partial times the entry: the family's joint.
                for (size_t e = 0; e < f.size(); ++e) m[e % static_cast<size_t>(k)] += f[e] * table[static_cast<int>(e)];
                current[static_cast<size_t>(j)] =
                    static_cast<int>(std::max_element(m.begin(), m.end()) - m.begin());
            }
        }
    }

    // Scores are remembered: the walk revisits states often.
    std::map<std::vector<int>, double> seen;
    auto score = [&](const std::vector<int>& x) {
        auto it = seen.find(x);
        if (it != seen.end()) return it->second;
        for (size_t j = 0; j < n; ++j) s.tree.Restrict(nodes[j], x[j]);
        const double p = s.tree.ProbEvidence();
        seen.emplace(x, p);
        return p;
    };

    net.RestartRandGen();
    VEK_randGen& rng = net.GetRandGen();
    double cur = score(current);
    if (cur < 0.0) return VEK_OUT_OF_MEMORY;
    std::vector<int> best = current;
    double bestP = cur;
    double t = params.tInit;
    double reheatTemp = params.tInit;
    int sinceImproved = 0;
    // Energy relative to the best so far, so that the temperatures mean the
    // same whatever the scale of the probabilities.
    auto energy = [&](double p) { return bestP > 0.0 ? 1.0 - p / bestP : (p > 0.0 ? 0.0 : 1.0); };
    while (sinceImproved < params.stopAfter) {
        for (int it = 0; it < params.iterationsPerTemperature && sinceImproved < params.stopAfter; ++it) {
            // One node changes, or now and then two at once, which crosses
            // the valleys that zeros in the tables make between single moves.
            std::vector<int> next = current;
            const int moves = n > 1 && rng.GetDouble() < 0.25 ? 2 : 1;
            for (int m = 0; m < moves; ++m) {
                const size_t j = rng.GetInt(static_cast<unsigned>(n));
                const unsigned k = static_cast<unsigned>(s.states[j]);
                if (k > 1) next[j] = static_cast<int>((static_cast<unsigned>(next[j]) + 1 + rng.GetInt(k - 1)) % k);
            }
            const double p = score(next);
            if (p < 0.0) return VEK_OUT_OF_MEMORY;
            const double delta = energy(p) - energy(cur);
            if (delta <= 0.0 || (t > 0.0 && rng.GetDouble() < std::exp(-delta / t))) {
                current = std::move(next);
                cur = p;
            }
            if (cur > bestP) {
                bestP = cur;
                best = current;
                sinceImproved = 0;
            } else {
                ++sinceImproved;
            }
        }
        t /= params.speed;
        if (t < params.tMin) {
            // Reheat from the best state with part of it redrawn.
            reheatTemp *= params.kRFactor;
            t = std::max(reheatTemp, params.tMin);
            current = best;
            const size_t redraw = std::max<size_t>(std::min<size_t>(n, 2), static_cast<size_t>(std::ceil(params.kReheat * static_cast<double>(n))));
            for (size_t r = 0; r < redraw; ++r) {
                const size_t j = rng.GetInt(static_cast<unsigned>(n));
                current[j] = static_cast<int>(rng.GetInt(static_cast<unsigned>(s.states[j])));
            }
            cur = score(current);
            if (cur < 0.0) return VEK_OUT_OF_MEMORY;
        }
    }
    // The score covers every component, those without MAP nodes too.
    const double p = bestP;
    if (!(p > 0.0)) return ReportImpossible(net, nodes);
    Fill(out, nodes, best, p);
    return VEK_OKAY;
}
