// Validation on alarm with BP as the class node, every other column as
// evidence: k-fold cross-validation of 20,000 forward-sampled records (EM
// re-learns the tables per fold) and prediction of 4,000 held-out records
// by a network whose tables were learnt from 16,000 others; leave-one-out
// on complete records, against k-fold with a fold per record (one EM per
// record) on the same data.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "benchUtil.h"
#include "inference/randGen.h"
#include "learning/dataSampler.h"
#include "learning/dataset.h"
#include "learning/em.h"
#include "learning/validator.h"
#include "network/network.h"

namespace {

std::string AlarmPath() {
    const char* env = std::getenv("QUARN_SHARED_DIR");
    return std::string(env && *env ? env : QUARN_SHARED_DIR) + "/networks/xvek/alarm.xvek";
}

struct Alarm {
    VEK_network truth;
    bool ok = false;
    Alarm() { ok = truth.ReadFile(AlarmPath().c_str()) == 0; }
    VEK_dataset Sample(int records, unsigned seed, double missingRate, int& status) {
        VEK_randGen gen(seed);
        VEK_dataset data;
        status |= VEK_sampleDataset(truth, records, gen, missingRate, data);
        return data;
    }
};

void Report(benchmark::State& state, const VEK_validator& v, int node, int records) {
    double accuracy = 0.0;
    if (!Must(state, v.GetAccuracy(node, accuracy), "no accuracy")) return;
    state.counters["accuracy"] = accuracy;
    state.counters["records/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * records, benchmark::Counter::kIsRate);
}

void KFold(benchmark::State& state) {
    Alarm alarm;
    if (!alarm.ok) return state.SkipWithError("read failed");
    const int records = 20000;
    int status = 0;
    const VEK_dataset data = alarm.Sample(records, 5, 0.0, status);
    std::vector<VEK_datasetMatch> matching;
    status |= data.MatchNetwork(alarm.truth, matching);
    VEK_validator v(alarm.truth, data, matching);
    const int bp = alarm.truth.FindNode("BP");
    status |= v.AddClassNode(bp);
    if (!Must(state, status, "setup failed")) return;
    for (auto _ : state) {
        if (v.KFold(static_cast<int>(state.range(0)), 1) != 0) return state.SkipWithError("k-fold failed");
    }
    Report(state, v, bp, records);
}

void LeaveOneOut(benchmark::State& state) {
    Alarm alarm;
    if (!alarm.ok) return state.SkipWithError("read failed");
    const int records = static_cast<int>(state.range(0));
    const bool perRecord = state.range(1) != 0;
    int status = 0;
    const VEK_dataset data = alarm.Sample(records, 5, 0.0, status);
    std::vector<VEK_datasetMatch> matching;
    status |= data.MatchNetwork(alarm.truth, matching);
    VEK_validator v(alarm.truth, data, matching);
    const int bp = alarm.truth.FindNode("BP");
    status |= v.AddClassNode(bp);
    if (!Must(state, status, "setup failed")) return;
    for (auto _ : state) {
        if ((perRecord ? v.KFold(records, 1) : v.LeaveOneOut()) != 0) return state.SkipWithError("failed");
    }
    Report(state, v, bp, records);
}

void Predict(benchmark::State& state) {
    Alarm alarm;
    if (!alarm.ok) return state.SkipWithError("read failed");
    const double missingRate = static_cast<double>(state.range(0)) / 100.0;
    VEK_network learnt(alarm.truth);
    int status = 0;
    const VEK_dataset train = alarm.Sample(16000, 5, 0.0, status);
    std::vector<VEK_datasetMatch> matching;
    status |= train.MatchNetwork(learnt, matching);
    if (!Must(state, status, "setup failed")) return;
    VEK_em em;
    if (!Must(state, em.SetEquivalentSampleSize(1.0f), "sample size not set")) return;
    if (em.Learn(train, learnt, matching) != 0) return state.SkipWithError("learning failed");
    const VEK_dataset test = alarm.Sample(4000, 6, missingRate, status);
    VEK_validator v(learnt, test, matching);
    const int bp = learnt.FindNode("BP");
    status |= v.AddClassNode(bp);
    if (!Must(state, status, "setup failed")) return;
    for (auto _ : state) {
        if (v.Test() != 0) return state.SkipWithError("test failed");
    }
    Report(state, v, bp, 4000);
}

BENCHMARK(KFold)->Arg(5)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(LeaveOneOut)->Args({1000, 1})->Args({1000, 0})->Args({20000, 0})->Unit(benchmark::kMillisecond);
BENCHMARK(Predict)->Arg(0)->Arg(20)->Unit(benchmark::kMillisecond);

}  // namespace
