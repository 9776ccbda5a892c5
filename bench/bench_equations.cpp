// Hybrid inference: likelihood-weighted sampling of a 50-node linear
// Gaussian network (node-samples per second), and discretizing one equation
// node with 3 discrete parents of 4 states into 20 intervals at the default
// sample count.
#include <benchmark/benchmark.h>

#include <string>

#include "benchUtil.h"
#include "equations/equation.h"
#include "equations/hybridSampler.h"
#include "network/network.h"

namespace {

void SetEquation(VEK_network& net, int h, const std::string& text) {
    int pos = -1;
    std::string message;
    auto* eq = static_cast<VEK_equation*>(net.GetDef(h));
    if (eq->SetEquation(text, pos, message) != 0) std::abort();
}

// x0 = Normal(0, 1); x_i = 0.5 x_{i-1} + 0.3 x_{i-2} + Normal(0.1 i, 1).
void BM_LinearGaussianSampling(benchmark::State& state) {
    constexpr int kNodes = 50;
    VEK_network net;
    for (int i = 0; i < kNodes; ++i) {
        const std::string id = "x" + std::to_string(i);
        const int h = net.AddNode(VEK_EQUATION, id.c_str());
        std::string text = id + " = ";
        if (i >= 1) text += "0.5 * x" + std::to_string(i - 1) + " + ";
        if (i >= 2) text += "0.3 * x" + std::to_string(i - 2) + " + ";
        SetEquation(net, h, text + "Normal(" + std::to_string(0.1 * i) + ", 1)");
    }
    const int samples = static_cast<int>(state.range(0));
    if (!Must(state, net.SetNumberOfSamples(samples), "sample count not set")) return;
    net.SetDefaultBNAlgorithm(VEK_ALG_BN_LSAMPLING);
    for (auto _ : state) {
        if (VEK_updateHybrid(net) != 0) std::abort();
    }
    state.counters["node_samples_per_s"] =
        benchmark::Counter(static_cast<double>(kNodes) * samples * state.iterations(), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_LinearGaussianSampling)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_DiscretizeNode(benchmark::State& state) {
    VEK_network net;
    const int x = net.AddNode(VEK_EQUATION, "x");
    for (const char* id : {"a", "b", "c"}) {
        const int p = net.AddNode(VEK_CPT, id);
        if (!Must(state, net.GetDef(p)->SetNumberOfOutcomes(4) | net.AddArc(p, x), "parent not added")) return;
    }
    SetEquation(net, x, "x = a + 2 * b - c + Normal(0, 1)");
    auto* eq = static_cast<VEK_equation*>(net.GetDef(x));
    std::string message;
    if (eq->SetBounds(-8, 14) != 0 || eq->SetUniformDiscretization(20, message) != 0) std::abort();
    for (auto _ : state) {
        if (VEK_discretizeEquations(net) != 0) std::abort();
    }
    state.counters["samples"] = 64.0 * net.GetNumberOfDiscretizationSamples();
}
BENCHMARK(BM_DiscretizeNode)->Unit(benchmark::kMillisecond);

}  // namespace
