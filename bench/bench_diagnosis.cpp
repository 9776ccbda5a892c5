// Ranking every test of hepar2 in a diagnosis session: the disorders are the
// faults (every outcome but "absent"), the other nodes without children the
// observations. Times one Update (fault probabilities and every unperformed
// test ranked), with no observation and with five observations made, for a
// single pursued fault and for three pursued faults with the measures that
// need joint probabilities.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "benchUtil.h"
#include "diagnosis/diagSession.h"
#include "inference/inferenceCache.h"
#include "network/discDef.h"
#include "network/network.h"
#include "network/node.h"

namespace {

const char* kFaults[] = {"THepatitis",         "ChHepatitis", "PBC",       "fibrosis",   "Steatosis",  "Cirrhosis",
                         "Hyperbilirubinemia", "RHepatitis",  "carcinoma", "gallstones", "hepatotoxic"};

std::unique_ptr<VEK_network> LoadMarked() {
    const char* env = std::getenv("QUARN_SHARED_DIR");
    const std::string path = std::string(env && *env ? env : QUARN_SHARED_DIR) + "/networks/xvek/hepar2.xvek";
    auto net = std::make_unique<VEK_network>();
    if (net->ReadFile(path.c_str()) != 0) return nullptr;
    for (const char* id : kFaults) {
        const int h = net->FindNode(id);
        if (h < 0 || net->GetNode(h)->SetDiagType(VEK_DIAG_FAULT) != 0) return nullptr;
        auto* def = dynamic_cast<VEK_discDef*>(net->GetDef(h));
        for (int o = 0; o < def->GetNumberOfOutcomes(); ++o)
            if (std::strcmp((*def->GetOutcomeIds())[o], "absent") != 0 && def->SetFaultOutcome(o, true) != 0)
                return nullptr;
    }
    VEK_intArray all;
    net->GetAllNodes(all);
    for (int h : all)
        if (net->GetNode(h)->Children().GetSize() == 0 && net->GetNode(h)->GetDiagType() != VEK_DIAG_FAULT &&
            net->GetNode(h)->SetDiagType(VEK_DIAG_OBSERVATION) != 0) {
            return nullptr;
        }
    return net;
}

// observations: how many tests are answered (outcome 0) before ranking;
// pursued: 0 for the most probable fault, else that many faults with the
// given multi-fault measure.
void BM_RankEveryTest(benchmark::State& state, int observations, int pursued, int multi) {
    std::unique_ptr<VEK_network> net = LoadMarked();
    if (!net) {
        state.SkipWithError("hepar2 could not be read");
        return;
    }
    VEK_diagSession session(*net);
    if (session.Open() != 0) {
        state.SkipWithError("no session");
        return;
    }
    int status = 0;
    for (int i = 0; i < observations; ++i)
        status |= session.InstantiateObservation(session.GetObservationNodes()[static_cast<size_t>(i)], 0);
    if (pursued > 0) {
        std::vector<int> faults;
        for (int i = 0; i < pursued; ++i) faults.push_back(i * 3);
        status |= session.SetPursuedFaults(faults);
        status |= session.SetMultiFaultAlgorithm(multi);
    }
    if (!Must(state, status, "observations or pursued faults cannot be set")) return;
    VEK_diagResults results;
    const auto t0 = std::chrono::steady_clock::now();
    if (session.Update(results) != 0) {
        state.SkipWithError("update failed");
        return;
    }
    const double first = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    for (auto _ : state) {
        status |= session.Update(results);
        benchmark::DoNotOptimize(results.observations.data());
    }
    if (!Must(state, status, "update failed")) return;
    int pairs = 0;
    for (const VEK_diagObservation& o : results.observations) pairs += net->GetDef(o.node)->GetNumberOfOutcomes();
    state.counters["tests"] = static_cast<double>(results.observations.size());
    state.counters["test_outcomes"] = pairs;
    state.counters["faults"] = static_cast<double>(results.faults.size());
    state.counters["first_ms"] = first;
    // Compiled join trees kept: every test's outcomes reuse the same ones.
    state.counters["trees"] = net->InferenceCache().TreeCount();
}

BENCHMARK_CAPTURE(BM_RankEveryTest, hepar2_single_fault, 0, 0, 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RankEveryTest, hepar2_single_fault_5_observed, 5, 0, 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RankEveryTest, hepar2_3_faults_marginal_2, 0, 3, VEK_DIAG_MARGINAL_2)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RankEveryTest, hepar2_3_faults_dependence_at_least_one, 0, 3, VEK_DIAG_DEPENDENCE_AT_LEAST_ONE)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RankEveryTest, hepar2_3_faults_dependence_only_one, 0, 3, VEK_DIAG_DEPENDENCE_ONLY_ONE)
    ->Unit(benchmark::kMillisecond);

}  // namespace
