#include "learning/em.h"

#include <chrono>
#include <cmath>
#include <limits>
#include <map>
#include <new>
#include <string>

#include "inference/essJoinTree.h"
#include "inference/randGen.h"
#include "inference/rNetwork.h"
#include "inference/tsAdapter.h"
#include "network/discDef.h"
#include "network/dmatrix.h"
#include "network/idArray.h"
#include "network/network.h"
#include "network/node.h"
#include "network/nodeDef.h"
#include "network/nodeVal.h"
#include "network/status.h"

namespace {

constexpr int kTypeEquation = 4;
constexpr int kTypeCpt = 18;
constexpr int kTypeTruthTable = 20;
constexpr int kTypeNoisyMax = 146;
constexpr int kTypeNoisyAdder = 274;

// Keeps the network's immediate updating suspended for the whole call.
class UpdateScope {
public:
    explicit UpdateScope(VEK_network& net) : net_(net) { net_.BeginUpdateScope(); }
    ~UpdateScope() { net_.EndUpdateScope(); }
    UpdateScope(const UpdateScope&) = delete;
    UpdateScope& operator=(const UpdateScope&) = delete;

private:
    VEK_network& net_;
};

// Adds ess times the prior to the counts, then makes every column (the
// node's own outcomes, the last dimension) a distribution. A column that
// no record reached keeps the prior's.
void Maximize(VEK_Dmatrix& counts, const VEK_Dmatrix& prior, double ess) {
    const int size = counts.GetSize();
    if (ess > 0 && size > 0) {
        for (int i = 0; i < size; ++i) counts[i] += ess * prior[i];
    }
    const int states = counts.GetLastDimensionSize();
    if (states <= 0) return;
    for (int start = 0; start + states <= size; start += states) {
        double sum = 0.0;
        for (int s = 0; s < states; ++s) sum += counts[start + s];
        if (sum != 0.0) {
            const double scale = 1.0 / sum;
            for (int s = 0; s < states; ++s) {
                double v = counts[start + s] * scale;
                counts[start + s] = std::isfinite(v) ? v : 0.0;
            }
        } else {
            for (int s = 0; s < states; ++s) counts[start + s] = prior[start + s];
        }
    }
}

}  // namespace

struct VEK_em::Run {
    Run(const VEK_dataset& d, VEK_network& n, const std::vector<VEK_datasetMatch>& m, VEK_emProgress* p)
        : data(d), net(n), matching(m), progress(p) {}

    const VEK_dataset& data;
    VEK_network& net;
    const std::vector<VEK_datasetMatch>& matching;
    VEK_emProgress* progress;
    std::vector<bool> fixed;  // by handle
    VEK_randGen gen;
    // Distinct records (the observed outcome per match, -1 for missing) and
    // how often each occurs: equal records have equal posteriors.
    std::vector<std::vector<int>> cases;
    std::vector<double> weights;
};

int VEK_em::SetEquivalentSampleSize(float ess) {
    if (uniformize_ || randomize_) return VEK_INVALID_VALUE;
    ess_ = ess;
    return VEK_OKAY;
}

void VEK_em::SetUniformizeParameters(bool on) {
    uniformize_ = on;
    if (on) randomize_ = false;
}

int VEK_em::Learn(const VEK_dataset& data, VEK_network& net, const std::vector<VEK_datasetMatch>& matching,
                  const std::vector<int>& fixedNodes, double* score, VEK_emProgress* progress) {
    VEK_logger& log = net.Logger();
    if (matching.empty()) {
        return log.LogError(VEK_NO_ITEM, "EM: no matching between node and data were specified");
    }
    try {
        Run run(data, net, matching, progress);
        run.fixed.assign(net.GetSlotCount(), false);
        for (int h : fixedNodes) {
            if (!net.IsValidNode(h)) {
                return log.LogError(VEK_OUT_OF_RANGE, ("EM: invalid fixed node handle " + std::to_string(h)).c_str());
            }
            run.fixed[h] = true;
        }

        bool anyEquation = false;
        bool allEquation = true;
        for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
            const int type = net.GetDef(h)->GetType();
            const std::string id = net.GetNodeId(h);
            if (net.GetNode(h)->GetTemporalType() != 0) {
                return log.LogError(VEK_WRONG_NODE_TYPE, "EM: dynamic networks are not supported");
            }
            if (type == kTypeEquation) {
                anyEquation = true;
                continue;
            }
            allEquation = false;
            if (type == kTypeCpt) continue;
            if (type == kTypeNoisyMax) {
                if (!run.fixed[h]) {
                    return log.LogError(VEK_WRONG_NODE_TYPE,
                                        ("EM: noisy-MAX parameters of node '" + id + "' can't be learnt; fix the node")
                                            .c_str());
                }
                continue;
            }
            if (type == kTypeTruthTable || type == kTypeNoisyAdder) {
                if (!run.fixed[h]) {
                    return log.LogError(VEK_WRONG_NODE_TYPE,
                                        "EM: non-fixed deterministic and Noisy Adder nodes not supported");
                }
                continue;
            }
            return log.LogError(VEK_WRONG_NODE_TYPE, ("EM: node '" + id + "' is of unsupported type").c_str());
        }

        bool allDiscrete = true;
        bool allContinuous = true;
        std::vector<bool> seen(net.GetSlotCount(), false);
        for (const VEK_datasetMatch& m : matching) {
            if (!net.IsValidNode(m.node) || !data.IsValidVariable(m.column) || m.slice != 0 || seen[m.node]) {
                return log.LogError(VEK_OUT_OF_RANGE,
                                    "EM: the matching names a node or column that does not exist, a time slice, "
                                    "or a node twice");
            }
            seen[m.node] = true;
            if (data.IsDiscrete(m.column)) {
                allContinuous = false;
            } else {
                allDiscrete = false;
            }
        }
        if (allEquation && allContinuous) {
            return log.LogError(VEK_WRONG_NODE_TYPE, "EM: learning of continuous models is not supported");
        }
        if (anyEquation || !allDiscrete) {
            return log.LogError(VEK_INVALID_VALUE,
                                "EM: unsupported mix of discrete and continuous items in network and/or dataset");
        }

        // A column with state names is paired with its node by name: a file's
        // states come sorted by text, seldom in the node's outcome order. The
        // outcome id is tried first, then the label (which keeps names that
        // are no valid ids). Bare numbers are outcome indices.
        std::vector<std::vector<int>> byName(matching.size());
        for (size_t k = 0; k < matching.size(); ++k) {
            const std::vector<std::string>& names = data.GetStateNames(matching[k].column);
            VEK_discDef* def = dynamic_cast<VEK_discDef*>(net.GetDef(matching[k].node));
            if (names.empty() || !def) continue;
            byName[k].assign(names.size(), -1);
            for (size_t i = 0; i < names.size(); ++i) {
                int o = def->GetOutcomeIds()->FindPosition(names[i].c_str());
                for (int j = 0; o < 0 && j < def->GetNumberOfOutcomes(); ++j) {
                    const char* label = def->GetOutcomeLabel(j);
                    if (label && names[i] == label) o = j;
                }
                byName[k][i] = o;
            }
        }

        // Every matched value must be one of its node's outcomes.
        std::map<std::vector<int>, double> distinct;
        std::vector<int> row(matching.size());
        for (int r = 0; r < data.GetRealRowCount(); ++r) {
            for (size_t k = 0; k < matching.size(); ++k) {
                const VEK_datasetMatch& m = matching[k];
                if (data.IsMissing(m.column, r)) {
                    row[k] = -1;
                    continue;
                }
                int v = data.GetInt(m.column, r);
                if (!byName[k].empty() && v >= 0 && v < static_cast<int>(byName[k].size())) {
                    const int o = byName[k][static_cast<size_t>(v)];
                    if (o < 0) {
                        return log.LogError(VEK_OUT_OF_RANGE,
                                            ("EM: state '" + data.GetStateNames(m.column)[static_cast<size_t>(v)] +
                                             "' of column '" + data.GetId(m.column) + "' is not an outcome of node '" +
                                             net.GetNodeId(m.node) + "'")
                                                .c_str());
                    }
                    v = o;
                }
                if (v < 0 || v >= net.GetDef(m.node)->GetNumberOfOutcomes()) {
                    return log.LogError(VEK_OUT_OF_RANGE,
                                        ("EM: value " + std::to_string(v) + " in record " + std::to_string(r) +
                                         " of column '" + data.GetId(m.column) + "' is not an outcome of node '" +
                                         net.GetNodeId(m.node) + "'")
                                            .c_str());
                }
                row[k] = v;
            }
            distinct[row] += 1.0;
        }
        for (auto& [c, w] : distinct) {
            run.cases.push_back(c);
            run.weights.push_back(w);
        }
        return LearnDisc(run, score);
    } catch (const std::bad_alloc&) {
        return log.LogError(VEK_OUT_OF_MEMORY, "EM: out of memory");
    }
}

int VEK_em::LearnDisc(Run& run, double* score) {
    VEK_network& net = run.net;
    UpdateScope scope(net);

    bool countOnly = !uniformize_ && !randomize_ && static_cast<int>(run.matching.size()) == net.GetNumberOfNodes();
    for (int h = net.GetFirstNode(); countOnly && h >= 0; h = net.GetNextNode(h)) {
        if (run.fixed[h] || net.GetDef(h)->GetType() != kTypeCpt) countOnly = false;
    }
    for (size_t k = 0; countOnly && k < run.matching.size(); ++k) {
        if (run.data.HasMissingData(run.matching[k].column)) countOnly = false;
    }
    if (countOnly) return Count(run, score);

    run.gen.Init(static_cast<unsigned>(seed_));
    if (!randomize_) {
        double best = -std::numeric_limits<double>::infinity();
        int res = ExpMaxUntilConverged(run, &best);
        if (res == VEK_OKAY && score != nullptr) *score = best;
        return res;
    }
    double best = -std::numeric_limits<double>::infinity();
    if (timeLimit_ < 1) {
        for (int i = 0; i < restarts_; ++i) {
            int res = ExpMaxUntilConverged(run, &best);
            if (res != VEK_OKAY) return res;
        }
    } else {
        const auto start = std::chrono::steady_clock::now();
        for (;;) {
            int res = ExpMaxUntilConverged(run, &best);
            if (res != VEK_OKAY) return res;
            auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
            if (elapsed.count() >= timeLimit_) break;
        }
    }
    if (score != nullptr) *score = best;
    return VEK_OKAY;
}

// Complete data, every node a matched table: the counts are the data's own.
int VEK_em::Count(Run& run, double* score) {
    VEK_network& net = run.net;
    std::vector<int> column(net.GetSlotCount(), -1);  // match index by handle
    for (size_t k = 0; k < run.matching.size(); ++k) column[run.matching[k].node] = static_cast<int>(k);

    std::map<int, VEK_Dmatrix> tables;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_Dmatrix& def = net.GetDef(h)->GetDefinition();
        tables.emplace(h, VEK_Dmatrix(def.GetDimensions(), 0.0));
    }
    auto index = [&](int h, const std::vector<int>& c) {
        const VEK_intArray& parents = net.GetNode(h)->Parents();
        const VEK_intArray& prods = tables[h].GetProducts();
        int at = c[column[h]];
        for (int k = 0; k < parents.GetSize(); ++k) at += c[column[parents[k]]] * prods[k];
        return at;
    };
    for (size_t i = 0; i < run.cases.size(); ++i) {
        for (auto& [h, t] : tables) t[index(h, run.cases[i])] += run.weights[i];
    }
    for (auto& [h, t] : tables) Maximize(t, net.GetDef(h)->GetDefinition(), ess_);

    double ll = 0.0;
    for (size_t i = 0; i < run.cases.size(); ++i) {
        for (auto& [h, t] : tables) ll += run.weights[i] * std::log(t[index(h, run.cases[i])]);
    }
    if (run.progress != nullptr && !run.progress->Tick(0, ll)) {
        return net.Logger().LogError(VEK_GENERAL_ERROR, "EM: cancelled");
    }
    for (auto& [h, t] : tables) net.GetDef(h)->SetDefinition(t);
    if (score != nullptr) *score = ll;
    return VEK_OKAY;
}

int VEK_em::ExpMaxUntilConverged(Run& run, double* bestScore) {
    VEK_network& net = run.net;
    VEK_network work(net);
    work.SetUpdateImmediate(false);
    work.EnableRelevance(relevance_);
    work.ClearAllEvidence();
    work.ClearAllTargets();
    work.Cases().EnableSync(false);

    std::vector<int> learnable;
    std::map<int, VEK_Dmatrix> priors;
    for (int h = work.GetFirstNode(); h >= 0; h = work.GetNextNode(h)) {
        if (run.fixed[h]) continue;
        learnable.push_back(h);
        VEK_nodeDef* def = work.GetDef(h);
        if (uniformize_) {
            def->MakeUniform();
        } else if (randomize_) {
            def->MakeRandom(run.gen);
        }
        priors.emplace(h, def->GetDefinition());
    }
    std::vector<bool> isLearnable(work.GetSlotCount(), false);
    for (int h : learnable) isLearnable[h] = true;

    std::map<int, VEK_Dmatrix> counts;
    VEK_Dmatrix post;
    double previous = 0.0;
    double ll = 0.0;
    for (int iteration = 0;; ++iteration) {
        // E-step.
        for (int h : learnable) counts[h] = VEK_Dmatrix(priors[h].GetDimensions(), 0.0);
        ll = 0.0;
        for (size_t i = 0; i < run.cases.size(); ++i) {
            const std::vector<int>& c = run.cases[i];
            const double w = run.weights[i];
            work.ClearAllEvidence();
            bool failed = false;
            // Evidence the network already rules out is refused here.
            for (size_t k = 0; k < c.size() && !failed; ++k) {
                if (c[k] >= 0 && work.GetVal(run.matching[k].node)->SetEvidence(c[k]) != VEK_OKAY) failed = true;
            }
            VEK_rNetworkContainer split;
            if (!failed && !split.DoRelevance(work, VEK_RSPLIT_COMPONENTS | VEK_RSPLIT_PRUNE)) {
                return split.GetStatus();
            }
            double pe = 1.0;
            size_t updated = 0;
            for (int s = 0; s < split.GetCount() && !failed; ++s) {
                VEK_rNetwork& rnet = *split.GetAt(s);
                if (rnet.GetNodeCount() == 1) {
                    // A lone node: its posterior is its table or its evidence.
                    const VEK_rNode& node = *rnet.GetNode(0);
                    const VEK_Dmatrix& table = node.Table();
                    post = table;
                    if (node.evidence >= 0) {
                        // An impossible record has no posterior to count.
                        if (!(table[node.evidence] > 0.0)) {
                            failed = true;
                            break;
                        }
                        pe *= table[node.evidence];
                        post.FillWith(0.0);
                        post[node.evidence] = 1.0;
                    }
                    if (node.handle >= 0 && isLearnable[node.handle]) {
                        VEK_Dmatrix& n = counts[node.handle];
                        for (int q = 0; q < n.GetSize(); ++q) n[q] += w * post[q];
                        ++updated;
                    }
                    continue;
                }
                TsAdapter adapter(rnet);
                VEK_essJoinTree tree(adapter);
                if (!tree.Calibrate() || !(tree.GetProbEvidence() > 0.0)) {
                    failed = true;
                    break;
                }
                pe *= tree.GetProbEvidence();
                for (int q = 0; q < adapter.GetNodeCount(); ++q) {
                    const int h = adapter.GetNodeHandle(q);
                    if (h < 0 || !isLearnable[h]) continue;
                    VEK_Dmatrix none;
                    int res = work.GetNode(h)->Parents().GetSize() == 0
                                  ? tree.MarginalizePotentialForParentlessNode(work, h, post, none)
                                  : tree.MarginalizePotential(work, h, post, none);
                    if (res != VEK_OKAY) {
                        failed = true;
                        break;
                    }
                    VEK_Dmatrix& n = counts[h];
                    for (int x = 0; x < n.GetSize(); ++x) n[x] += w * post[x];
                    ++updated;
                }
            }
            if (!(pe >= 0.0 && pe <= 1.0 + 1e-9)) return VEK_OUT_OF_MEMORY;
            if (failed || updated != learnable.size()) {
                return net.Logger().LogError(VEK_IMPOSSIBLE_EVIDENCE,
                                             relevance_ ? "EM: not all counts updated"
                                                        : "EM: please run with relevance enabled");
            }
            ll += w * std::log(pe);
        }
        if (run.progress != nullptr && !run.progress->Tick(iteration, ll)) {
            return net.Logger().LogError(VEK_GENERAL_ERROR, "EM: cancelled");
        }

        // M-step.
        for (int h : learnable) {
            Maximize(counts[h], priors[h], ess_);
            work.GetDef(h)->SetDefinition(counts[h]);
        }

        if (ll == 0.0) break;
        if (previous != 0.0 && (previous / ll < 1.0001 || previous >= ll)) break;
        previous = ll;
    }

    if (bestScore != nullptr && std::isfinite(*bestScore) && ll <= *bestScore) return VEK_OKAY;
    for (int h : learnable) net.GetDef(h)->SetDefinition(work.GetDef(h)->GetDefinition());
    if (bestScore != nullptr) *bestScore = ll;
    return VEK_OKAY;
}
