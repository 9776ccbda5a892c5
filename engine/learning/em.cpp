#include "learning/em.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include "inference/randGen.h"
#include "learning/expectedCounts.h"
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
void Maximize(double* counts, const double* prior, int size, int states, double ess) {
    if (ess > 0 && size > 0) {
        for (int i = 0; i < size; ++i) counts[i] += ess * prior[i];
    }
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

// Puts learnt tables, made beforehand, into the network: either all of
// them or, when one does not fit its node, none. The swaps cannot fail, so
// a run that failed earlier has left every table alone.
int CommitTables(VEK_network& net, const std::vector<int>& handles, std::vector<VEK_Dmatrix>& tables) {
    static_assert(std::is_nothrow_swappable_v<VEK_Dmatrix>);
    for (size_t i = 0; i < handles.size(); ++i) {
        if (!(net.GetDef(handles[i])->GetParameters().GetDimensions() == tables[i].GetDimensions())) {
            return net.Logger().VLogError(VEK_GENERAL_ERROR, "EM: the table of node '%s' changed shape during learning",
                                          net.GetNodeId(handles[i]));
        }
    }
    auto swapAll = [&]() {
        for (size_t i = 0; i < handles.size(); ++i) {
            using std::swap;
            swap(net.GetDef(handles[i])->GetWriteableParameters(), tables[i]);
        }
    };
    auto notifyAll = [&]() {
        for (int h : handles) {
            net.GetDef(h)->OnParametersChanged();
            net.GetDef(h)->TellNetworkOfChange();
        }
    };
    swapAll();
    // Telling the network may need memory; when it fails the old tables go
    // back, so that the failed run still leaves every table alone.
    try {
        notifyAll();
    } catch (const std::bad_alloc&) {
        swapAll();
        try {
            notifyAll();
        } catch (const std::bad_alloc&) {
        }
        throw;
    }
    return VEK_OKAY;
}

// 64-bit finaliser: spreads a record's hash over the bits the table uses.
uint64_t Mix(uint64_t h) {
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdULL;
    h ^= h >> 33;
    h *= 0xc4ceb9fe1a85ec53ULL;
    return h ^ (h >> 33);
}

}  // namespace

struct VEK_em::Run {
    Run(const VEK_dataset& d, VEK_network& n, const std::vector<VEK_datasetMatch>& m, VEK_emProgress* p)
        : data(d), net(n), matching(m), progress(p) {}

    size_t Columns() const { return matching.size(); }
    const int* Column(size_t k) const { return values.data() + k * static_cast<size_t>(records); }
    bool SameRecord(int a, int b) const {
        for (size_t k = 0; k < Columns(); ++k)
            if (Column(k)[a] != Column(k)[b]) return false;
        return true;
    }
    // Equal records have equal posteriors: each distinct one is visited
    // once, weighted by how often it occurs (found by hashing).
    void GroupRecords();

    const VEK_dataset& data;
    VEK_network& net;
    const std::vector<VEK_datasetMatch>& matching;
    VEK_emProgress* progress;
    std::vector<char> fixed;  // by handle
    VEK_randGen gen;
    // The observed outcome of every cell, -1 for missing, column by column.
    int records = 0;
    std::vector<int> values;
    std::vector<char> complete;  // per column: no missing cell
    // The distinct records, one after the other, with their counts and the
    // first record that has each.
    std::vector<int> cases;
    std::vector<double> weights;
    std::vector<int> firstRecord;
};

void VEK_em::Run::GroupRecords() {
    const size_t n = static_cast<size_t>(records);
    const size_t m = Columns();
    std::vector<uint64_t> hash(n, 1469598103934665603ULL);
    for (size_t k = 0; k < m; ++k) {
        const int* col = Column(k);
        for (size_t r = 0; r < n; ++r) hash[r] = (hash[r] ^ static_cast<uint32_t>(col[r] + 1)) * 1099511628211ULL;
    }
    size_t capacity = 16;
    while (capacity < 2 * n) capacity *= 2;
    std::vector<int> slots(capacity, -1);
    std::vector<uint64_t> groupHash;
    for (size_t r = 0; r < n; ++r) {
        for (size_t at = Mix(hash[r]) & (capacity - 1);; at = (at + 1) & (capacity - 1)) {
            const int g = slots[at];
            if (g < 0) {
                slots[at] = static_cast<int>(firstRecord.size());
                firstRecord.push_back(static_cast<int>(r));
                weights.push_back(1.0);
                groupHash.push_back(hash[r]);
                break;
            }
            if (groupHash[static_cast<size_t>(g)] == hash[r] &&
                SameRecord(firstRecord[static_cast<size_t>(g)], static_cast<int>(r))) {
                weights[static_cast<size_t>(g)] += 1.0;
                break;
            }
        }
    }
    cases.resize(firstRecord.size() * m);
    for (size_t g = 0; g < firstRecord.size(); ++g) {
        for (size_t k = 0; k < m; ++k) cases[g * m + k] = Column(k)[firstRecord[g]];
    }
}

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
        run.fixed.assign(static_cast<size_t>(net.GetSlotCount()), 0);
        for (int h : fixedNodes) {
            if (!net.IsValidNode(h)) {
                return log.LogError(VEK_OUT_OF_RANGE, ("EM: invalid fixed node handle " + std::to_string(h)).c_str());
            }
            run.fixed[static_cast<size_t>(h)] = 1;
        }
        int res = CheckNodes(run);
        if (res == VEK_OKAY) res = CheckColumns(run);
        if (res == VEK_OKAY) res = ReadRecords(run);
        if (res == VEK_OKAY) res = LearnDisc(run, score);
        return res;
    } catch (const std::bad_alloc&) {
        return log.LogError(VEK_OUT_OF_MEMORY, "EM: out of memory");
    }
}

// Only tables can be learnt; other chance nodes must be fixed.
int VEK_em::CheckNodes(Run& run) const {
    VEK_network& net = run.net;
    VEK_logger& log = net.Logger();
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const int type = net.GetDef(h)->GetType();
        const std::string id = net.GetNodeId(h);
        if (net.GetNode(h)->GetTemporalType() != 0) {
            return log.LogError(VEK_WRONG_NODE_TYPE, "EM: dynamic networks are not supported");
        }
        if (type == kTypeEquation || type == kTypeCpt) continue;
        if (type == kTypeNoisyMax) {
            if (!run.fixed[static_cast<size_t>(h)]) {
                return log.LogError(
                    VEK_WRONG_NODE_TYPE,
                    ("EM: noisy-MAX parameters of node '" + id + "' can't be learnt; fix the node").c_str());
            }
            continue;
        }
        if (type == kTypeTruthTable || type == kTypeNoisyAdder) {
            if (!run.fixed[static_cast<size_t>(h)]) {
                return log.LogError(VEK_WRONG_NODE_TYPE,
                                    "EM: non-fixed deterministic and Noisy Adder nodes not supported");
            }
            continue;
        }
        return log.LogError(VEK_WRONG_NODE_TYPE, ("EM: node '" + id + "' is of unsupported type").c_str());
    }
    return VEK_OKAY;
}

// Discrete data for a discrete network; nothing else is learnt.
int VEK_em::CheckColumns(Run& run) const {
    VEK_network& net = run.net;
    const VEK_dataset& data = run.data;
    VEK_logger& log = net.Logger();
    bool anyEquation = false;
    bool allEquation = true;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const bool equation = net.GetDef(h)->GetType() == kTypeEquation;
        anyEquation = anyEquation || equation;
        allEquation = allEquation && equation;
    }
    bool allDiscrete = true;
    bool allContinuous = true;
    std::vector<bool> seen(static_cast<size_t>(net.GetSlotCount()), false);
    for (const VEK_datasetMatch& m : run.matching) {
        if (!net.IsValidNode(m.node) || !data.IsValidVariable(m.column) || m.slice != 0 ||
            seen[static_cast<size_t>(m.node)]) {
            return log.LogError(VEK_OUT_OF_RANGE,
                                "EM: the matching names a node or column that does not exist, a time slice, "
                                "or a node twice");
        }
        seen[static_cast<size_t>(m.node)] = true;
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
    return VEK_OKAY;
}

// Every matched value, turned into an outcome index, must be one of its
// node's outcomes. A column with state names is paired with its node by
// name: a file's states come sorted by text, seldom in the node's outcome
// order. The outcome id is tried first, then the label (which keeps names
// that are no valid ids). Bare numbers are outcome indices.
int VEK_em::ReadRecords(Run& run) const {
    VEK_network& net = run.net;
    const VEK_dataset& data = run.data;
    const size_t n = static_cast<size_t>(data.GetRealRowCount());
    run.records = static_cast<int>(n);
    run.values.resize(run.Columns() * n);
    run.complete.assign(run.Columns(), 1);
    for (size_t k = 0; k < run.Columns(); ++k) {
        const VEK_datasetMatch& m = run.matching[k];
        const VEK_dataset::Variable& var = data.GetVariable(m.column);
        const std::vector<std::string>& names = var.stateNames;
        const VEK_discDef* def = dynamic_cast<const VEK_discDef*>(net.GetDef(m.node));
        std::vector<int> byName;
        if (!names.empty() && def) {
            byName.assign(names.size(), -1);
            for (size_t i = 0; i < names.size(); ++i) {
                int o = def->GetOutcomeIds()->FindPosition(names[i].c_str());
                for (int j = 0; o < 0 && j < def->GetNumberOfOutcomes(); ++j) {
                    const char* label = def->GetOutcomeLabel(j);
                    if (label && names[i] == label) o = j;
                }
                byName[i] = o;
            }
        }
        const int outcomes = net.GetDef(m.node)->GetNumberOfOutcomes();
        int* out = run.values.data() + k * n;
        for (size_t r = 0; r < n; ++r) {
            int v = var.intData[r];
            if (v == var.missingInt) {
                out[r] = -1;
                run.complete[k] = 0;
                continue;
            }
            if (!byName.empty() && v >= 0 && v < static_cast<int>(byName.size())) {
                const int o = byName[static_cast<size_t>(v)];
                if (o < 0) {
                    return net.Logger().LogError(
                        VEK_OUT_OF_RANGE, ("EM: state '" + names[static_cast<size_t>(v)] + "' of column '" + var.id +
                                           "' is not an outcome of node '" + net.GetNodeId(m.node) + "'")
                                              .c_str());
                }
                v = o;
            }
            if (v < 0 || v >= outcomes) {
                return net.Logger().LogError(VEK_OUT_OF_RANGE,
                                             ("EM: value " + std::to_string(v) + " in record " + std::to_string(r) +
                                              " of column '" + var.id + "' is not an outcome of node '" +
                                              net.GetNodeId(m.node) + "'")
                                                 .c_str());
            }
            out[r] = v;
        }
    }
    return VEK_OKAY;
}

int VEK_em::LearnDisc(Run& run, double* score) {
    VEK_network& net = run.net;
    UpdateScope scope(net);

    bool countOnly = !uniformize_ && !randomize_ && static_cast<int>(run.Columns()) == net.GetNumberOfNodes();
    for (int h = net.GetFirstNode(); countOnly && h >= 0; h = net.GetNextNode(h)) {
        if (run.fixed[static_cast<size_t>(h)] || net.GetDef(h)->GetType() != kTypeCpt) countOnly = false;
    }
    for (size_t k = 0; countOnly && k < run.Columns(); ++k) countOnly = run.complete[k] != 0;
    if (countOnly) return Count(run, score);

    run.GroupRecords();
    run.gen.Init(static_cast<unsigned>(seed_));
    double best = -std::numeric_limits<double>::infinity();
    if (!randomize_) {
        int res = ExpMaxUntilConverged(run, &best);
        if (res == VEK_OKAY && score != nullptr) *score = best;
        return res;
    }
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

// Complete data, every node a matched table: the counts are the data's own,
// made in one pass per node. The log-likelihood sums count times log of the
// learnt entry.
int VEK_em::Count(Run& run, double* score) {
    VEK_network& net = run.net;
    std::vector<size_t> column(static_cast<size_t>(net.GetSlotCount()), 0);
    for (size_t k = 0; k < run.Columns(); ++k) column[static_cast<size_t>(run.matching[k].node)] = k;

    const size_t n = static_cast<size_t>(run.records);
    std::vector<int> handles;
    std::vector<VEK_Dmatrix> tables;
    std::vector<int> item(n);
    std::vector<double> counts;
    double ll = 0.0;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_Dmatrix& prior = net.GetDef(h)->GetDefinition();
        const int* own = run.Column(column[static_cast<size_t>(h)]);
        std::copy(own, own + n, item.begin());
        const VEK_intArray& parents = net.GetNode(h)->Parents();
        for (int k = 0; k < parents.GetSize(); ++k) {
            const int* col = run.Column(column[static_cast<size_t>(parents[k])]);
            const int stride = prior.GetProducts()[k];
            for (size_t r = 0; r < n; ++r) item[r] += col[r] * stride;
        }
        counts.assign(static_cast<size_t>(prior.GetSize()), 0.0);
        for (size_t r = 0; r < n; ++r) counts[static_cast<size_t>(item[r])] += 1.0;

        VEK_Dmatrix table(prior);
        table.FillFrom(counts.data());
        Maximize(table.Items(), prior.Items(), table.GetSize(), table.GetLastDimensionSize(), ess_);
        for (int i = 0; i < table.GetSize(); ++i) {
            if (counts[static_cast<size_t>(i)] > 0.0) ll += counts[static_cast<size_t>(i)] * std::log(table[i]);
        }
        handles.push_back(h);
        tables.push_back(std::move(table));
    }
    if (run.progress != nullptr && !run.progress->Tick(0, ll)) {
        return net.Logger().LogError(VEK_GENERAL_ERROR, "EM: cancelled");
    }
    const int res = CommitTables(net, handles, tables);
    if (res == VEK_OKAY && score != nullptr) *score = ll;
    return res;
}

// One pass over the distinct records. A record's probability must lie in
// 0..1: beyond it the fixed tables are no distributions.
int VEK_em::ExpectedCounts(Run& run, VEK_expectedCounts& counts, double& logLikelihood) const {
    VEK_logger& log = run.net.Logger();
    const size_t m = run.Columns();
    counts.StartPass();
    logLikelihood = 0.0;
    for (size_t g = 0; g < run.weights.size(); ++g) {
        double pe = 0.0;
        const int res = counts.AddCase(run.cases.data() + g * m, run.weights[g], pe);
        if (res == VEK_IMPOSSIBLE_EVIDENCE) {
            return log.LogError(res,
                                relevance_ ? "EM: not all counts updated" : "EM: please run with relevance enabled");
        }
        // A record's probability outside 0..1 means a fixed table is no
        // distribution; the run stops with the status EM has always given
        // for it, -42, and nothing logged.
        if (res == VEK_OKAY && !(pe >= 0.0 && pe <= 1.0 + 1e-9)) return VEK_OUT_OF_MEMORY;
        if (res != VEK_OKAY) return res;
        logLikelihood += run.weights[g] * std::log(pe);
    }
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

    // The start tables, which are also the priors.
    std::vector<int> learnable;
    std::vector<char> isLearnable(static_cast<size_t>(work.GetSlotCount()), 0);
    std::vector<VEK_Dmatrix> priors;
    for (int h = work.GetFirstNode(); h >= 0; h = work.GetNextNode(h)) {
        if (run.fixed[static_cast<size_t>(h)]) continue;
        learnable.push_back(h);
        isLearnable[static_cast<size_t>(h)] = 1;
        VEK_nodeDef* def = work.GetDef(h);
        if (uniformize_) {
            def->MakeUniform();
        } else if (randomize_) {
            def->MakeRandom(run.gen);
        }
        priors.push_back(def->GetDefinition());
    }

    std::vector<int> matched;
    for (const VEK_datasetMatch& m : run.matching) matched.push_back(m.node);
    VEK_expectedCounts counts;
    int res = counts.Init(work, matched, run.complete, isLearnable);
    if (res != VEK_OKAY) return res;

    double previous = 0.0;
    double ll = 0.0;
    for (int iteration = 0;; ++iteration) {
        res = ExpectedCounts(run, counts, ll);
        if (res != VEK_OKAY) return res;
        if (run.progress != nullptr && !run.progress->Tick(iteration, ll)) {
            return net.Logger().LogError(VEK_GENERAL_ERROR, "EM: cancelled");
        }
        for (size_t i = 0; i < learnable.size(); ++i) {
            VEK_nodeDef* def = work.GetDef(learnable[i]);
            double* c = counts.Counts(learnable[i]);
            Maximize(c, priors[i].Items(), priors[i].GetSize(), priors[i].GetLastDimensionSize(), ess_);
            def->GetWriteableParameters().FillFrom(c);
            def->OnParametersChanged();
            def->TellNetworkOfChange();
        }
        if (ll == 0.0) break;
        if (previous != 0.0 && (previous / ll < 1.0001 || previous >= ll)) break;
        previous = ll;
    }

    if (bestScore != nullptr && std::isfinite(*bestScore) && ll <= *bestScore) return VEK_OKAY;
    std::vector<VEK_Dmatrix> tables;
    tables.reserve(learnable.size());
    for (int h : learnable) tables.push_back(work.GetDef(h)->GetDefinition());
    res = CommitTables(net, learnable, tables);
    if (res == VEK_OKAY && bestScore != nullptr) *bestScore = ll;
    return res;
}
