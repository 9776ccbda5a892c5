// Learning: reading a generated data file (MB/s) and EM on shared networks
// from forward-sampled records, complete and with missing cells. EM reports
// records per second of the whole run and, for incomplete data, records per
// second per iteration (every iteration visits every record).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "inference/randGen.h"
#include "learning/dataSampler.h"
#include "learning/dataset.h"
#include "learning/em.h"
#include "network/network.h"

namespace {

std::string SharedPath(const std::string& name) {
    const char* env = std::getenv("QUARN_SHARED_DIR");
    return std::string(env && *env ? env : QUARN_SHARED_DIR) + "/networks/xvek/" + name + ".xvek";
}

VEK_dataset Sample(VEK_network& net, int records, double missingRate, int& status) {
    VEK_randGen gen(11);
    VEK_dataset data;
    status = VEK_sampleDataset(net, records, gen, missingRate, data);
    return data;
}

class IterationCounter : public VEK_emProgress {
public:
    bool Tick(int, double) override {
        ++ticks;
        return true;
    }
    long ticks = 0;
};

// Complete data without start options takes the counting path; with
// missing cells EM iterates from uniform tables to convergence.
void Em(benchmark::State& state, const std::string& name, double missingRate) {
    VEK_network truth;
    if (truth.ReadFile(SharedPath(name).c_str()) != 0) {
        state.SkipWithError("read failed");
        return;
    }
    const int records = static_cast<int>(state.range(0));
    int status = 0;
    VEK_dataset data = Sample(truth, records, missingRate, status);
    if (status != 0) {
        state.SkipWithError("sampling failed");
        return;
    }
    std::vector<VEK_datasetMatch> matching;
    for (int v = 0; v < data.GetNumberOfVariables(); ++v) matching.push_back({truth.FindNode(data.GetId(v)), 0, v});
    IterationCounter counter;
    for (auto _ : state) {
        state.PauseTiming();
        VEK_network net(truth);
        state.ResumeTiming();
        VEK_em em;
        if (missingRate > 0) em.SetUniformizeParameters(true);
        if (em.Learn(data, net, matching, {}, nullptr, &counter) != 0) {
            state.SkipWithError("EM failed");
            return;
        }
    }
    const double runs = static_cast<double>(state.iterations());
    state.counters["records/s"] = benchmark::Counter(runs * records, benchmark::Counter::kIsRate);
    if (missingRate > 0) {
        state.counters["iterations"] = static_cast<double>(counter.ticks) / runs;
        state.counters["records/s/iter"] =
            benchmark::Counter(static_cast<double>(counter.ticks) * records, benchmark::Counter::kIsRate);
    }
}

void ReadData(benchmark::State& state) {
    VEK_network truth;
    if (truth.ReadFile(SharedPath("alarm").c_str()) != 0) {
        state.SkipWithError("read failed");
        return;
    }
    const char* tmp = std::getenv("TMPDIR");
    const std::string path = std::string(tmp && *tmp ? tmp : "/tmp") + "/bench_alarm_data.txt";
    int status = 0;
    if (Sample(truth, 50000, 0.1, status).WriteFile(path.c_str()) != 0 || status != 0) {
        state.SkipWithError("write failed");
        return;
    }
    long size = 0;
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        std::fseek(f, 0, SEEK_END);
        size = std::ftell(f);
        std::fclose(f);
    }
    for (auto _ : state) {
        VEK_dataset data;
        if (data.ReadFile(path.c_str()) != 0) {
            state.SkipWithError("parse failed");
            break;
        }
        benchmark::DoNotOptimize(data.GetNumberOfRecords());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
    std::remove(path.c_str());
}

BENCHMARK(ReadData)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Em, alarm_complete, std::string("alarm"), 0.0)
    ->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Em, alarm_missing20, std::string("alarm"), 0.2)
    ->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(Em, insurance_missing20, std::string("insurance"), 0.2)
    ->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
