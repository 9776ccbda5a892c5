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
#include "learning/dynamicEm.h"
#include "learning/emStatistics.h"
#include "learning/expectedCounts.h"
#include "learning/familyCounts.h"
#include "network/discDef.h"
#include "network/dmatrix.h"
#include "network/idArray.h"
#include "network/network.h"
#include "network/node.h"
#include "network/nodeDef.h"
#include "network/nodeVal.h"
#include "network/status.h"

namespace {

constexpr int kTypeCpt = 18;

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

}  // namespace

struct VEK_em::Run {
    Run(const VEK_dataset& d, VEK_network& n, const std::vector<VEK_datasetMatch>& m, VEK_emProgress* p)
        : data(d), net(n), matching(m), progress(p) {}

    const VEK_dataset& data;
    VEK_network& net;
    const std::vector<VEK_datasetMatch>& matching;
    VEK_emProgress* progress;
    std::vector<char> fixed;  // by handle
    VEK_randGen gen;
    VEK_emRecords records;
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
        run.fixed.assign(static_cast<size_t>(net.GetSlotCount()), 0);
        for (int h : fixedNodes) {
            if (!net.IsValidNode(h)) {
                return log.LogError(VEK_OUT_OF_RANGE, ("EM: invalid fixed node handle " + std::to_string(h)).c_str());
            }
            run.fixed[static_cast<size_t>(h)] = 1;
        }
        if (VEK_emIsDynamic(net)) {
            const VEK_dynamicEmSettings s{ess_, uniformize_, randomize_, seed_, restarts_, timeLimit_, relevance_, autoSlices_};
            return VEK_learnDynamic(s, data, net, matching, run.fixed, score, progress);
        }
        int res = VEK_emCheckNodes(net, run.fixed);
        if (res == VEK_OKAY) res = VEK_emCheckColumns(net, data, matching);
        if (res == VEK_OKAY) res = run.records.Read(data, net, matching);
        if (res == VEK_OKAY) res = LearnDisc(run, score);
        return res;
    } catch (const std::bad_alloc&) {
        return log.LogError(VEK_OUT_OF_MEMORY, "EM: out of memory");
    }
}

int VEK_em::LearnDisc(Run& run, double* score) {
    UpdateScope scope(run.net);
    if (CanCount(run)) return Count(run, score);

    run.records.Group();
    run.gen.Init(static_cast<unsigned>(seed_));
    double best = -std::numeric_limits<double>::infinity();
    const int res = randomize_ ? RandomRestarts(run, &best) : ExpMaxUntilConverged(run, &best);
    if (res == VEK_OKAY && score != nullptr) *score = best;
    return res;
}

// Counting alone gives the answer when the data are complete, every node is
// a matched table learnt from its current table, and every node's outcomes
// fit the counting core's cells.
bool VEK_em::CanCount(const Run& run) const {
    const VEK_network& net = run.net;
    if (uniformize_ || randomize_ || static_cast<int>(run.records.columns) != net.GetNumberOfNodes()) return false;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_nodeDef* def = net.GetDef(h);
        if (run.fixed[static_cast<size_t>(h)] || def->GetType() != kTypeCpt ||
            def->GetNumberOfOutcomes() > VEK_familyCounts::kMaxStates) {
            return false;
        }
    }
    for (size_t k = 0; k < run.records.columns; ++k) {
        if (!run.records.complete[k]) return false;
    }
    return true;
}

// Runs from random start tables, a set number of times or until the time
// limit; the best log-likelihood's tables are kept.
int VEK_em::RandomRestarts(Run& run, double* best) {
    if (timeLimit_ < 1) {
        for (int i = 0; i < restarts_; ++i) {
            const int res = ExpMaxUntilConverged(run, best);
            if (res != VEK_OKAY) return res;
        }
        return VEK_OKAY;
    }
    const auto start = std::chrono::steady_clock::now();
    for (;;) {
        const int res = ExpMaxUntilConverged(run, best);
        if (res != VEK_OKAY) return res;
        auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
        if (elapsed.count() >= timeLimit_) return VEK_OKAY;
    }
}

// The counts are the data's own, made by the counting core the structure
// learners share, one pass per family. The log-likelihood sums count times
// log of the learnt entry.
int VEK_em::Count(Run& run, double* score) {
    VEK_network& net = run.net;
    std::vector<int> column(static_cast<size_t>(net.GetSlotCount()), 0);
    std::vector<const int*> columns;
    std::vector<int> cards;
    for (size_t k = 0; k < run.records.columns; ++k) {
        const int h = run.matching[k].node;
        column[static_cast<size_t>(h)] = static_cast<int>(k);
        columns.push_back(run.records.Column(k));
        cards.push_back(net.GetDef(h)->GetNumberOfOutcomes());
    }
    VEK_familyCounts core;
    if (core.InitColumns(columns, run.records.records, cards) != VEK_OKAY) {
        return net.Logger().LogError(VEK_OUT_OF_MEMORY, "EM: out of memory");
    }

    std::vector<int> handles, parents, counts;
    std::vector<VEK_Dmatrix> tables;
    std::vector<double> expected;
    double ll = 0.0;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_intArray& pa = net.GetNode(h)->Parents();
        parents.clear();
        for (int k = 0; k < pa.GetSize(); ++k) parents.push_back(column[static_cast<size_t>(pa[k])]);
        core.Count(column[static_cast<size_t>(h)], parents.data(), static_cast<int>(parents.size()), counts);
        expected.assign(counts.begin(), counts.end());

        const VEK_Dmatrix& prior = net.GetDef(h)->GetDefinition();
        VEK_Dmatrix table(prior);
        table.FillFrom(expected.data());
        VEK_emMaximize(table.Items(), prior.Items(), table.GetSize(), table.GetLastDimensionSize(), ess_);
        for (int i = 0; i < table.GetSize(); ++i) {
            if (counts[static_cast<size_t>(i)] > 0) ll += counts[static_cast<size_t>(i)] * std::log(table[i]);
        }
        handles.push_back(h);
        tables.push_back(std::move(table));
    }
    if (run.progress != nullptr && !run.progress->Tick(0, ll)) {
        return net.Logger().LogError(VEK_GENERAL_ERROR, "EM: cancelled");
    }
    const int res = VEK_emCommitTables(net, handles, tables);
    if (res == VEK_OKAY && score != nullptr) *score = ll;
    return res;
}

// A working copy without evidence or targets whose learnable tables are
// set to the start the options ask for; those tables are also the priors.
int VEK_em::StartTables(Run& run, VEK_network& work, std::vector<int>& learnable, std::vector<char>& isLearnable,
                        std::vector<VEK_Dmatrix>& priors) {
    (void)work.SetUpdateImmediate(false);  // turning immediate updating off cannot fail
    work.EnableRelevance(relevance_);
    work.ClearAllEvidence();
    work.ClearAllTargets();
    work.Cases().EnableSync(false);
    isLearnable.assign(static_cast<size_t>(work.GetSlotCount()), 0);
    for (int h = work.GetFirstNode(); h >= 0; h = work.GetNextNode(h)) {
        if (run.fixed[static_cast<size_t>(h)]) continue;
        learnable.push_back(h);
        isLearnable[static_cast<size_t>(h)] = 1;
        VEK_nodeDef* def = work.GetDef(h);
        // Only tables reach here (the node check refuses the rest unless
        // fixed), but a start that cannot be set must not pass unnoticed.
        const int res = uniformize_ ? def->MakeUniform() : randomize_ ? def->MakeRandom(run.gen) : VEK_OKAY;
        if (res < 0) {
            return run.net.Logger().VLogError(res, "EM: the start parameters of node '%s' could not be set",
                                              work.GetNodeId(h));
        }
        priors.push_back(def->GetDefinition());
    }
    return VEK_OKAY;
}

// Stops when the log-likelihood no longer grows by a relative 1e-4 (or is
// exactly 0: every record certain).
bool VEK_em::Converged(double previous, double ll) {
    if (ll == 0.0) return true;
    return previous != 0.0 && (previous / ll < 1.0001 || previous >= ll);
}

int VEK_em::ExpMaxUntilConverged(Run& run, double* bestScore) {
    VEK_network& net = run.net;
    VEK_network work(net);
    std::vector<int> learnable;
    std::vector<char> isLearnable;
    std::vector<VEK_Dmatrix> priors;
    int res = StartTables(run, work, learnable, isLearnable, priors);
    if (res != VEK_OKAY) return res;

    std::vector<int> matched;
    for (const VEK_datasetMatch& m : run.matching) matched.push_back(m.node);
    VEK_expectedCounts counts;
    res = counts.Init(work, matched, run.records.complete, isLearnable);
    if (res != VEK_OKAY) return res;

    double previous = 0.0;
    double ll = 0.0;
    for (int iteration = 0;; ++iteration) {
        res = VEK_emPass(run.records, counts, net.Logger(), relevance_, ll);
        if (res != VEK_OKAY) return res;
        if (run.progress != nullptr && !run.progress->Tick(iteration, ll)) {
            return net.Logger().LogError(VEK_GENERAL_ERROR, "EM: cancelled");
        }
        for (size_t i = 0; i < learnable.size(); ++i) {
            VEK_nodeDef* def = work.GetDef(learnable[i]);
            double* c = counts.Counts(learnable[i]);
            VEK_emMaximize(c, priors[i].Items(), priors[i].GetSize(), priors[i].GetLastDimensionSize(), ess_);
            def->GetWriteableParameters().FillFrom(c);
            def->OnParametersChanged();
            def->TellNetworkOfChange();
        }
        if (Converged(previous, ll)) break;
        previous = ll;
    }

    // Only a run better than the best so far replaces the network's tables.
    if (bestScore != nullptr && std::isfinite(*bestScore) && ll <= *bestScore) return VEK_OKAY;
    std::vector<VEK_Dmatrix> tables;
    tables.reserve(learnable.size());
    for (int h : learnable) tables.push_back(work.GetDef(h)->GetDefinition());
    res = VEK_emCommitTables(net, learnable, tables);
    if (res == VEK_OKAY && bestScore != nullptr) *bestScore = ll;
    return res;
}
