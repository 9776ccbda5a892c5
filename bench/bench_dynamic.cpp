// Belief updating over time: an order-1 model of 10 plate nodes with 3
// states (two hidden chains with temporal self-arcs, three nodes depending
// on them, five observed children), evidence on one node in every slice,
// for 100, 1,000 and 10,000 slices. Each run computes every node's beliefs
// in every slice from scratch.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "benchUtil.h"
#include "dynamic/dynamicNet.h"
#include "network/network.h"

namespace {

std::vector<double> RandomTable(std::mt19937& gen, int size, int states) {
    std::uniform_real_distribution<double> u(0.05, 1.0);
    std::vector<double> t(size);
    for (int c = 0; c < size; c += states) {
        double s = 0;
        for (int i = 0; i < states; ++i) s += t[c + i] = u(gen);
        for (int i = 0; i < states; ++i) t[c + i] /= s;
    }
    return t;
}

// Returns nonzero when any step failed.
int Build(VEK_network& net, int slices) {
    std::mt19937 gen(7);
    std::vector<int> h;
    int status = 0;
    for (int i = 0; i < 10; ++i) {
        std::string id = "X" + std::to_string(i);
        h.push_back(net.AddNode(VEK_CPT, id.c_str()));
        status |= net.GetDef(h.back())->SetNumberOfOutcomes(3);
        status |= net.SetTemporalType(h.back(), VEK_TEMPORAL_PLATE);
    }
    const int arcs[][2] = {{0, 1}, {1, 2}, {1, 3}, {2, 4}, {3, 4}, {0, 5}, {1, 6}, {2, 7}, {3, 8}, {4, 9}};
    for (const auto& a : arcs) status |= net.AddArc(h[a[0]], h[a[1]]);
    status |= net.SetNumberOfSlices(slices);
    VEK_dynamicNet& dyn = net.Dynamic();
    status |= dyn.AddTemporalArc(h[0], h[0], 1);
    status |= dyn.AddTemporalArc(h[1], h[1], 1);
    for (int x : h) {
        status |= net.GetDef(x)->SetDefinition(RandomTable(gen, net.GetDef(x)->GetMatrix()->GetSize(), 3));
        if (const VEK_Dmatrix* m = dyn.GetTemporalDefinition(x, 1)) {
            status |= dyn.SetTemporalDefinition(x, 1, RandomTable(gen, m->GetSize(), 3));
        }
    }
    std::uniform_int_distribution<int> outcome(0, 2);
    for (int t = 0; t < slices; ++t) status |= dyn.SetTemporalEvidence(h[9], t, outcome(gen));
    return status;
}

void BM_DynamicUpdate(benchmark::State& state) {
    const int slices = static_cast<int>(state.range(0));
    VEK_network net;
    if (!Must(state, Build(net, slices), "model cannot be built")) return;
    for (auto _ : state) {
        net.InvalidateAllBeliefs();
        if (net.UpdateBeliefs() != 0) state.SkipWithError("update failed");
    }
    state.counters["slices"] = slices;
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(slices));
}

}  // namespace

BENCHMARK(BM_DynamicUpdate)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
