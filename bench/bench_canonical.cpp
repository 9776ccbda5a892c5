// Table computation of the canonical definitions on large parent sets:
// noisy-MAX and noisy-adder with 20 binary parents and 3 outcomes (about
// 3 million items), DeMorgan and CAST with 20 parents (about 2 million).
#include <benchmark/benchmark.h>

#include <random>
#include <string>

#include "benchUtil.h"
#include "network/cast.h"
#include "network/demorgan.h"
#include "network/network.h"
#include "network/noisyAdder.h"
#include "network/noisyMAX.h"

namespace {

constexpr int kParents = 20;

std::string ParentId(int j) {
    std::string id = "p";
    id += std::to_string(j);
    return id;
}

// parentType nodes feeding one child of childType; returns the child. A
// failure is ORed into status.
int Build(VEK_network& net, int childType, int parentType, int childOutcomes, int& status) {
    int child = net.AddNode(childType, "child");
    if (childOutcomes != 2) status |= net.GetDef(child)->SetNumberOfOutcomes(childOutcomes);
    for (int j = 0; j < kParents; ++j) {
        int p = net.AddNode(parentType, ParentId(j).c_str());
        status |= net.AddArc(p, child);
    }
    return child;
}

VEK_doubleArray RandomWeights(const VEK_ciDef& def, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> u(0.05, 1.0);
    const int n = def.GetNumberOfOutcomes();
    VEK_doubleArray w;
    for (int c = 0; c < def.GetNumberOfColumns(); ++c) {
        double d[8];
        double s = 0;
        for (int i = 0; i < n; ++i) s += d[i] = u(gen);
        for (int i = 0; i < n; ++i) w.Add(d[i] / s);
    }
    return w;
}

void Recompute(benchmark::State& state, VEK_lazyDef& def) {
    for (auto _ : state) {
        def.Invalidate();
        const VEK_Dmatrix* m = def.GetMatrix();
        benchmark::DoNotOptimize(m->Items());
        benchmark::ClobberMemory();
    }
    state.counters["items"] = def.GetMatrix()->GetSize();
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(def.GetMatrix()->GetSize()));
}

void BM_NoisyMaxTable(benchmark::State& state) {
    VEK_network net;
    int status = 0;
    int c = Build(net, VEK_NOISY_MAX, VEK_CPT, 3, status);
    auto& def = *dynamic_cast<VEK_noisyMAX*>(net.GetDef(c));
    status |= def.SetCiWeights(RandomWeights(def, 1));
    // Half of the parents with their strongest and weakest outcomes swapped.
    for (int j = 0; j < kParents; j += 2) status |= def.SetParentOutcomeStrengths(j, VEK_intArray{1, 0});
    if (!Must(state, status, "noisy-MAX setup failed")) return;
    Recompute(state, def);
}
BENCHMARK(BM_NoisyMaxTable)->Unit(benchmark::kMillisecond);

void BM_NoisyAdderTable(benchmark::State& state) {
    VEK_network net;
    int status = 0;
    int c = Build(net, VEK_NOISY_ADDER, VEK_CPT, 3, status);
    auto& def = *dynamic_cast<VEK_noisyAdder*>(net.GetDef(c));
    status |= def.SetCiWeights(RandomWeights(def, 2));
    const int function = state.range(0) ? VEK_noisyAdder::FUNCTION_SINGLE_FAULT : VEK_noisyAdder::FUNCTION_AVERAGE;
    status |= def.SetFunction(function);
    if (!Must(state, status, "noisy-adder setup failed")) return;
    Recompute(state, def);
}
BENCHMARK(BM_NoisyAdderTable)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_DeMorganTable(benchmark::State& state) {
    VEK_network net;
    int status = 0;
    int c = Build(net, VEK_DEMORGAN, VEK_DEMORGAN, 2, status);
    auto& def = *dynamic_cast<VEK_demorgan*>(net.GetDef(c));
    for (int j = 0; j < kParents; ++j) {
        status |= def.SetParentType(j, j % 4);
        status |= def.SetParentWeight(j, 0.05 + 0.04 * j);
    }
    status |= def.SetPriorBelief(0.1);
    if (!Must(state, status, "DeMorgan setup failed")) return;
    Recompute(state, def);
}
BENCHMARK(BM_DeMorganTable)->Unit(benchmark::kMillisecond);

void BM_CastTable(benchmark::State& state) {
    VEK_network net;
    int status = 0;
    int c = Build(net, VEK_CAST, VEK_CAST, 2, status);
    auto& def = *dynamic_cast<VEK_cast*>(net.GetDef(c));
    for (int j = 0; j < kParents; ++j) {
        status |= def.SetWeight(j, true, 0.9 - 0.09 * j);
        status |= def.SetWeight(j, false, -0.5 + 0.05 * j);
    }
    if (!Must(state, status, "CAST setup failed")) return;
    Recompute(state, def);
}
BENCHMARK(BM_CastTable)->Unit(benchmark::kMillisecond);

// Recovering the weights from a noisy-MAX table of the same size.
void BM_NoisyMaxCptToCi(benchmark::State& state) {
    VEK_network net;
    int status = 0;
    int c = Build(net, VEK_NOISY_MAX, VEK_CPT, 3, status);
    auto& def = *dynamic_cast<VEK_noisyMAX*>(net.GetDef(c));
    status |= def.SetCiWeights(RandomWeights(def, 3));
    if (!Must(state, status, "noisy-MAX setup failed")) return;
    const VEK_Dmatrix table = *def.GetMatrix();
    VEK_Dmatrix ci;
    for (auto _ : state) {
        status |= def.CptToCi(table, ci);
        benchmark::DoNotOptimize(ci.Items());
    }
    Must(state, status, "weights not recovered");
}
BENCHMARK(BM_NoisyMaxCptToCi)->Unit(benchmark::kMicrosecond);

}  // namespace
