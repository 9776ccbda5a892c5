// Most probable explanation against belief updating on every shared
// network, without evidence and with every fourth node observed (at its
// outcome in the explanation without evidence, so that the evidence is
// possible), and the cost of sensitivity analysis for one target against
// one update. Before timing, each explanation's probability is checked
// against the probability of evidence of the assignment itself; a mismatch
// fails the benchmark.
//
// QUARN_BENCH_NETWORKS (comma-separated names) limits the run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "analysis/mpe.h"
#include "analysis/sensitivity.h"
#include "network/network.h"
#include "network/nodeVal.h"

namespace {

const char* kNetworks[] = {"cancer", "earthquake", "survey", "asia", "sachs", "child", "alarm", "insurance",
                           "water", "hailfinder", "hepar2", "win95pts", "mildew", "pathfinder", "andes",
                           "barley", "pigs", "diabetes", "link", "munin1", "munin2", "munin3", "munin4", "munin"};

struct Row {
    int nodes = 0;
    std::map<std::string, double> ms;  // by "update0", "mpe0", "update1", "mpe1", "sens"
    double relError = 0.0;
};
std::map<std::string, Row> g_rows;
std::vector<std::string> g_order;
std::unique_ptr<VEK_network> g_net;
std::string g_name;

VEK_network* Load(const std::string& name) {
    if (g_name == name && g_net) return g_net.get();
    g_net = std::make_unique<VEK_network>();
    g_name = name;
    const char* env = std::getenv("QUARN_SHARED_DIR");
    const std::string path = std::string(env && *env ? env : QUARN_SHARED_DIR) + "/networks/xvek/" + name + ".xvek";
    if (g_net->ReadFile(path.c_str()) != 0) g_net.reset();
    if (g_net) g_rows[name].nodes = g_net->GetNumberOfNodes();
    return g_net.get();
}

// Scenario 0: no evidence; 1: every fourth node at its outcome in the
// explanation without evidence.
bool SetScenario(VEK_network& net, int scenario) {
    net.ClearAllEvidence();
    if (scenario == 0) return true;
    VEK_mpeResult r;
    if (VEK_mostProbableExplanation(net, r) != 0) return false;
    for (size_t i = 0; i < r.handles.size(); i += 4)
        if (net.GetVal(r.handles[i])->SetEvidence(r.outcomes[i]) != 0) return false;
    return true;
}

// P(assignment, evidence) through the probability of evidence of a copy.
double Recomputed(const VEK_network& net, const VEK_mpeResult& r) {
    VEK_network copy(net);
    for (size_t i = 0; i < r.handles.size(); ++i) {
        VEK_nodeVal* v = copy.GetVal(r.handles[i]);
        if (!v->HasHardEvidence() && v->SetEvidence(r.outcomes[i]) != 0) return -1.0;
    }
    double p = -1.0;
    if (copy.UpdateBeliefs() != 0 || copy.ProbEvidence(p) != 0) return -1.0;
    return p;
}

template <class Fn>
double MedianMs(benchmark::State& state, Fn&& fn) {
    // Once untimed, so that both sides time a compiled tree.
    fn();
    std::vector<double> times;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        fn();
        const auto t1 = std::chrono::steady_clock::now();
        times.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
    }
    std::nth_element(times.begin(), times.begin() + static_cast<long>(times.size() / 2), times.end());
    return times.empty() ? NAN : times[times.size() / 2];
}

void BM_Update(benchmark::State& state, std::string name, int scenario) {
    VEK_network* net = Load(name);
    if (!net || !SetScenario(*net, scenario)) {
        state.SkipWithError("network or evidence cannot be set");
        return;
    }
    int status = 0;
    const double ms = MedianMs(state, [&] {
        net->InvalidateAllBeliefs();
        status |= net->UpdateBeliefs();
    });
    if (status != 0) state.SkipWithError("update failed");
    g_rows[name].ms["update" + std::to_string(scenario)] = ms;
    state.counters["median_ms"] = ms;
}

void BM_Mpe(benchmark::State& state, std::string name, int scenario) {
    VEK_network* net = Load(name);
    if (!net || !SetScenario(*net, scenario)) {
        state.SkipWithError("network or evidence cannot be set");
        return;
    }
    VEK_mpeResult r;
    if (VEK_mostProbableExplanation(*net, r) != 0) {
        state.SkipWithError("explanation failed");
        return;
    }
    const double p = Recomputed(*net, r);
    const double err = std::fabs(p - r.probability) / r.probability;
    Row& row = g_rows[name];
    row.relError = std::max(row.relError, err);
    if (!(err < 1e-9)) {
        state.SkipWithError("probability of the explanation differs from its probability of evidence");
        return;
    }
    int status = 0;
    const double ms = MedianMs(state, [&] { status |= VEK_mostProbableExplanation(*net, r); });
    if (status != 0) state.SkipWithError("explanation failed");
    row.ms["mpe" + std::to_string(scenario)] = ms;
    state.counters["median_ms"] = ms;
}

// Every parameter of every table for one target: the node with the most
// outcomes, the first such in handle order.
void BM_Sensitivity(benchmark::State& state, std::string name) {
    VEK_network* net = Load(name);
    if (!net || !SetScenario(*net, 1)) {
        state.SkipWithError("network or evidence cannot be set");
        return;
    }
    int target = -1;
    for (int h = 0; h < net->GetSlotCount(); ++h)
        if (net->IsValidNode(h) && !net->GetVal(h)->HasHardEvidence() &&
            (target < 0 || net->GetDef(h)->GetNumberOfOutcomes() > net->GetDef(target)->GetNumberOfOutcomes()))
            target = h;
    net->ClearAllTargets();
    if (net->SetTarget(target, true) != 0) {
        state.SkipWithError("target cannot be set");
        return;
    }
    std::vector<VEK_nodeSensitivity> out;
    int status = 0;
    const double ms = MedianMs(state, [&] { status |= VEK_calcSensitivity(*net, out); });
    net->ClearAllTargets();
    if (status != 0) state.SkipWithError("sensitivity failed");
    size_t params = 0;
    for (const VEK_nodeSensitivity& ns : out) params += ns.derivatives.size();
    g_rows[name].ms["sens"] = ms;
    state.counters["median_ms"] = ms;
    state.counters["derivatives"] = static_cast<double>(params);
    state.counters["target_outcomes"] = net->GetDef(target)->GetNumberOfOutcomes();
}

bool Selected(const std::string& name) {
    const char* env = std::getenv("QUARN_BENCH_NETWORKS");
    if (!env || !*env) return true;
    return ("," + std::string(env) + ",").find("," + name + ",") != std::string::npos;
}

struct Registrar {
    Registrar() {
        for (const char* n : kNetworks) {
            const std::string name = n;
            if (!Selected(name)) continue;
            g_order.push_back(name);
            for (int s = 0; s < 2; ++s) {
                benchmark::RegisterBenchmark(("update/" + name + "/scenario" + std::to_string(s)).c_str(), BM_Update,
                                             name, s)
                    ->Unit(benchmark::kMillisecond)
                    ->MinTime(0.2)
                    ->UseRealTime();
                benchmark::RegisterBenchmark(("mpe/" + name + "/scenario" + std::to_string(s)).c_str(), BM_Mpe, name, s)
                    ->Unit(benchmark::kMillisecond)
                    ->MinTime(0.2)
                    ->UseRealTime();
            }
            if (name == "alarm" || name == "insurance" || name == "hepar2")
                benchmark::RegisterBenchmark(("sensitivity/" + name).c_str(), BM_Sensitivity, name)
                    ->Unit(benchmark::kMillisecond)
                    ->MinTime(0.2)
                    ->UseRealTime();
        }
    }
    ~Registrar() {
        std::printf("\n%-11s %6s %11s %9s %7s %11s %9s %7s %9s %9s\n", "network", "nodes", "update0 ms", "mpe0 ms",
                    "ratio", "update1 ms", "mpe1 ms", "ratio", "P rel err", "sens ms");
        for (const std::string& name : g_order) {
            const Row& r = g_rows[name];
            auto get = [&](const char* k) { return r.ms.count(k) ? r.ms.at(k) : NAN; };
            std::printf("%-11s %6d %11.4f %9.4f %7.2f %11.4f %9.4f %7.2f %9.1e %9.3f\n", name.c_str(), r.nodes,
                        get("update0"), get("mpe0"), get("mpe0") / get("update0"), get("update1"), get("mpe1"),
                        get("mpe1") / get("update1"), r.relError, get("sens"));
        }
        std::printf("(scenario 1: every fourth node observed; sens: every parameter for one target, with evidence)\n");
    }
} g_registrar;

}  // namespace
