// Exact inference on every shared network: load time, summed clique-table
// size, update time (update_beliefs, reading every posterior and the
// probability of evidence) for the scenario without evidence and for the
// evidence scenarios, and the process's peak memory. Every scenario is also
// checked against the reference posteriors (1e-9 absolute) and probability
// of evidence (1e-9 relative); a mismatch fails the benchmark.
//
// QUARN_BENCH_NETWORKS (comma-separated names) limits the run.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "inference/inferenceCache.h"
#include "network/network.h"
#include "network/nodeVal.h"

namespace {

const char* kNetworks[] = {"cancer", "earthquake", "survey", "asia", "sachs", "child", "alarm", "insurance",
                           "water", "hailfinder", "hepar2", "win95pts", "mildew", "pathfinder", "andes",
                           "barley", "pigs", "diabetes", "link", "munin1", "munin2", "munin3", "munin4", "munin"};

std::string SharedDir() {
    const char* env = std::getenv("QUARN_SHARED_DIR");
    if (env && *env) return env;
    return QUARN_SHARED_DIR;
}

// ---------------------------------------------------------------- reference scenarios
// The reference files are regular JSON; only the few shapes they use are read.

struct Scenario {
    std::vector<std::pair<std::string, std::string>> evidence;
    double pEvidence = 0.0;
    std::vector<std::pair<std::string, std::vector<double>>> marginals;
};

class Reader {
public:
    explicit Reader(std::string text) : s_(std::move(text)) {}
    void Ws() {
        while (p_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[p_]))) ++p_;
    }
    bool Eat(char c) {
        Ws();
        if (p_ < s_.size() && s_[p_] == c) {
            ++p_;
            return true;
        }
        return false;
    }
    std::string Str() {
        Ws();
        std::string out;
        if (p_ >= s_.size() || s_[p_] != '"') return out;
        ++p_;
        while (p_ < s_.size() && s_[p_] != '"') {
            if (s_[p_] == '\\' && p_ + 1 < s_.size()) ++p_;
            out += s_[p_++];
        }
        ++p_;
        return out;
    }
    double Num() {
        Ws();
        char* end = nullptr;
        const double v = std::strtod(s_.c_str() + p_, &end);
        p_ = static_cast<size_t>(end - s_.c_str());
        return v;
    }
    // Skips any value.
    void Skip() {
        Ws();
        if (p_ >= s_.size()) return;
        if (s_[p_] == '"') {
            Str();
        } else if (s_[p_] == '{' || s_[p_] == '[') {
            const char close = s_[p_] == '{' ? '}' : ']';
            ++p_;
            if (Eat(close)) return;
            do {
                if (close == '}') {
                    Str();
                    Eat(':');
                }
                Skip();
            } while (Eat(','));
            Eat(close);
        } else {
            while (p_ < s_.size() && s_[p_] != ',' && s_[p_] != '}' && s_[p_] != ']') ++p_;
        }
    }

private:
    std::string s_;
    size_t p_ = 0;
};

bool LoadScenarios(const std::string& name, std::vector<Scenario>& out) {
    std::ifstream in(SharedDir() + "/networks/reference/" + name + ".json");
    if (!in) return false;
    std::stringstream ss;
    ss << in.rdbuf();
    Reader r(ss.str());
    if (!r.Eat('{')) return false;
    do {
        const std::string key = r.Str();
        r.Eat(':');
        if (key != "scenarios") {
            r.Skip();
            continue;
        }
        r.Eat('[');
        do {
            Scenario sc;
            r.Eat('{');
            do {
                const std::string k = r.Str();
                r.Eat(':');
                if (k == "evidence") {
                    r.Eat('{');
                    if (!r.Eat('}')) {
                        do {
                            std::string node = r.Str();
                            r.Eat(':');
                            sc.evidence.emplace_back(node, r.Str());
                        } while (r.Eat(','));
                        r.Eat('}');
                    }
                } else if (k == "p_evidence") {
                    sc.pEvidence = r.Num();
                } else if (k == "marginals") {
                    r.Eat('{');
                    do {
                        std::string node = r.Str();
                        r.Eat(':');
                        std::vector<double> v;
                        r.Eat('[');
                        do v.push_back(r.Num());
                        while (r.Eat(','));
                        r.Eat(']');
                        sc.marginals.emplace_back(node, std::move(v));
                    } while (r.Eat(','));
                    r.Eat('}');
                } else {
                    r.Skip();
                }
            } while (r.Eat(','));
            r.Eat('}');
            out.push_back(std::move(sc));
        } while (r.Eat(','));
        r.Eat(']');
    } while (r.Eat(','));
    return !out.empty();
}

// ---------------------------------------------------------------- state shared by the runs

struct Loaded {
    std::string name;
    std::unique_ptr<VEK_network> net;
    std::vector<Scenario> scenarios;
    double loadMs = 0.0;
    bool ok = false;
};

struct Row {
    int nodes = 0;
    double loadMs = 0.0;
    uint64_t cliqueEntries = 0;
    std::map<int, double> medianMs;  // by scenario
    double maxError = 0.0;
    double maxPeRelError = 0.0;
    long peakRssMb = 0;
};

std::unique_ptr<Loaded> g_current;
std::map<std::string, Row> g_rows;
std::vector<std::string> g_order;

Loaded* Load(const std::string& name) {
    if (g_current && g_current->name == name) return g_current.get();
    g_current.reset();  // one network in memory at a time
    auto l = std::make_unique<Loaded>();
    l->name = name;
    l->net = std::make_unique<VEK_network>();
    const std::string path = SharedDir() + "/networks/xvek/" + name + ".xvek";
    const auto t0 = std::chrono::steady_clock::now();
    const int res = l->net->ReadFile(path.c_str());
    const auto t1 = std::chrono::steady_clock::now();
    l->loadMs = std::chrono::duration<double, std::milli>(t1 - t0).count();
    l->ok = res == 0 && LoadScenarios(name, l->scenarios);
    g_current = std::move(l);
    Row& row = g_rows[name];
    row.nodes = g_current->net->GetNumberOfNodes();
    row.loadMs = g_current->loadMs;
    return g_current.get();
}

long PeakRssMb() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss / 1024;
}

int SetScenario(VEK_network& net, const Scenario& sc) {
    net.ClearAllEvidence();
    for (const auto& [node, state] : sc.evidence) {
        const int h = net.FindNode(node.c_str());
        if (h < 0) return h;
        const int res = net.GetVal(h)->SetEvidence(state.c_str());
        if (res < 0) return res;
    }
    return 0;
}

// One update as a user sees it: beliefs, every posterior read, and P(e).
double UpdateAndRead(VEK_network& net, int& status) {
    status = net.UpdateBeliefs();
    double sum = 0.0;
    for (int h = 0; h < net.GetSlotCount(); ++h) {
        const VEK_nodeVal* v = net.GetVal(h);
        if (!v || !v->GetMatrix()) continue;
        const VEK_Dmatrix& m = *v->GetMatrix();
        for (int i = 0; i < m.GetSize(); ++i) sum += m[i];
    }
    double pe = 0.0;
    if (status == 0) status = net.ProbEvidence(pe);
    return sum + pe;
}

void BM_Update(benchmark::State& state, std::string name, int scenario) {
    Loaded* l = Load(name);
    if (!l->ok) {
        state.SkipWithError("network or reference scenarios cannot be read");
        return;
    }
    if (scenario >= static_cast<int>(l->scenarios.size())) {
        state.SkipWithError("no such scenario");
        return;
    }
    VEK_network& net = *l->net;
    const Scenario& sc = l->scenarios[static_cast<size_t>(scenario)];
    if (SetScenario(net, sc) != 0) {
        state.SkipWithError("evidence refused");
        return;
    }
    // The first update builds the tree for this evidence pattern; the
    // results are checked once.
    int status = 0;
    UpdateAndRead(net, status);
    if (status != 0) {
        state.SkipWithError("update failed");
        return;
    }
    Row& row = g_rows[name];
    double maxErr = 0.0;
    for (const auto& [id, expect] : sc.marginals) {
        const int h = net.FindNode(id.c_str());
        const VEK_nodeVal* v = h >= 0 ? net.GetVal(h) : nullptr;
        if (!v || !v->IsValueValid() || v->GetMatrix()->GetSize() != static_cast<int>(expect.size())) {
            maxErr = 1.0;
            continue;
        }
        for (size_t s = 0; s < expect.size(); ++s)
            maxErr = std::max(maxErr, std::fabs((*v->GetMatrix())[static_cast<int>(s)] - expect[s]));
    }
    double pe = 0.0;
    if (net.ProbEvidence(pe) != 0) {
        state.SkipWithError("no probability of evidence");
        return;
    }
    const double peErr = std::fabs(pe - sc.pEvidence) / sc.pEvidence;
    row.maxError = std::max(row.maxError, maxErr);
    row.maxPeRelError = std::max(row.maxPeRelError, peErr);
    if (scenario == 0) row.cliqueEntries = net.InferenceCache().lastCliqueEntries;
    if (maxErr > 1e-9 || peErr > 1e-9) {
        state.SkipWithError("posteriors differ from the reference");
        return;
    }

    std::vector<double> times;
    double sink = 0.0;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        sink += UpdateAndRead(net, status);
        const auto t1 = std::chrono::steady_clock::now();
        times.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
    }
    benchmark::DoNotOptimize(sink);
    std::nth_element(times.begin(), times.begin() + static_cast<long>(times.size() / 2), times.end());
    row.medianMs[scenario] = times[times.size() / 2];
    row.peakRssMb = PeakRssMb();
    state.counters["median_ms"] = row.medianMs[scenario];
    state.counters["clique_entries"] = static_cast<double>(net.InferenceCache().lastCliqueEntries);
    state.counters["max_err"] = maxErr;
}

bool Selected(const std::string& name) {
    const char* env = std::getenv("QUARN_BENCH_NETWORKS");
    if (!env || !*env) return true;
    std::string list = ",";
    list += env;
    list += ',';
    std::string key = ",";
    key += name;
    key += ',';
    return list.find(key) != std::string::npos;
}

// Registers the runs before main and prints the summary table at exit.
struct Registrar {
    Registrar() {
        for (const char* n : kNetworks) {
            const std::string name = n;
            if (!Selected(name)) continue;
            g_order.push_back(name);
            for (int s = 0; s < 6; ++s) {
                char label[96];
                std::snprintf(label, sizeof label, "update/%s/scenario%d", n, s);
                benchmark::RegisterBenchmark(label, BM_Update, name, s)
                    ->Unit(benchmark::kMillisecond)
                    ->MinTime(0.3)
                    ->UseRealTime();
            }
        }
    }
    ~Registrar() {
        std::printf("\n%-11s %6s %14s %9s %12s %14s %10s %10s %9s\n", "network", "nodes", "clique entries", "load ms",
                    "scen0 ms", "evidence ms", "max err", "P(e) rel", "peak MB");
        for (const std::string& name : g_order) {
            auto it = g_rows.find(name);
            if (it == g_rows.end()) continue;
            const Row& r = it->second;
            std::vector<double> ev;
            for (const auto& [s, ms] : r.medianMs)
                if (s > 0) ev.push_back(ms);
            std::sort(ev.begin(), ev.end());
            const double scen0 = r.medianMs.count(0) ? r.medianMs.at(0) : NAN;
            const double evMed = ev.empty() ? NAN : ev[ev.size() / 2];
            std::printf("%-11s %6d %14llu %9.1f %12.3f %14.3f %10.1e %10.1e %9ld\n", name.c_str(), r.nodes,
                        static_cast<unsigned long long>(r.cliqueEntries), r.loadMs, scen0, evMed, r.maxError,
                        r.maxPeRelError, r.peakRssMb);
        }
        std::printf("(evidence ms: median over the evidence scenarios of each scenario's median; peak MB is the\n"
                    " process's peak so far, networks run from small to large)\n");
    }
} g_registrar;

}  // namespace
