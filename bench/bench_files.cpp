// Reading and writing the shared networks in the XML network format: one
// load and one save benchmark per network, with the document's size as the
// bytes processed (so the report shows MB/s). Loads read the file; saves
// write a file in the temporary directory.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "network/network.h"

namespace {

const char* kNetworks[] = {"alarm",  "andes",  "asia",   "barley", "cancer",     "child", "diabetes", "earthquake",
                           "hailfinder", "hepar2", "insurance", "link", "mildew", "munin", "munin1", "munin2",
                           "munin3", "munin4", "pathfinder", "pigs", "sachs", "survey", "water", "win95pts"};

std::string SharedPath(const std::string& name) {
    const char* env = std::getenv("QUARN_SHARED_DIR");
    return std::string(env && *env ? env : QUARN_SHARED_DIR) + "/networks/xvek/" + name + ".xvek";
}

long FileSize(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return -1;
    std::fseek(f, 0, SEEK_END);
    long n = std::ftell(f);
    std::fclose(f);
    return n;
}

void Load(benchmark::State& state, const std::string& path) {
    const long size = FileSize(path);
    if (size < 0) {
        state.SkipWithError("missing file");
        return;
    }
    for (auto _ : state) {
        auto net = std::make_unique<VEK_network>();
        if (net->ReadFile(path.c_str()) != 0) {
            state.SkipWithError("read failed");
            return;
        }
        benchmark::DoNotOptimize(net->GetNumberOfNodes());
        // Freeing the network is not part of reading it.
        state.PauseTiming();
        net.reset();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
}

void Save(benchmark::State& state, const std::string& path, const std::string& name) {
    VEK_network net;
    if (net.ReadFile(path.c_str()) != 0) {
        state.SkipWithError("read failed");
        return;
    }
    const char* tmp = std::getenv("TMPDIR");
    const std::string out = std::string(tmp && *tmp ? tmp : "/tmp") + "/bench_" + name + ".xvek";
    for (auto _ : state) {
        if (net.WriteFile(out.c_str()) != 0) {
            state.SkipWithError("write failed");
            return;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * FileSize(out));
    std::remove(out.c_str());
}

const int kRegistered = [] {
    for (const char* name : kNetworks) {
        std::string n = name;
        std::string path = SharedPath(n);
        benchmark::RegisterBenchmark(("Load/" + n).c_str(), [path](benchmark::State& s) { Load(s, path); })
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("Save/" + n).c_str(), [path, n](benchmark::State& s) { Save(s, path, n); })
            ->Unit(benchmark::kMillisecond);
    }
    return 0;
}();

}  // namespace
