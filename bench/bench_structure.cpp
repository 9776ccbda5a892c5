// Structure learning on records forward-sampled from shared networks:
// learning time (sampling apart) with the structural Hamming distance to
// the true network as counters (skeleton and CPDAG), and the classifiers'
// fit and prediction times with their accuracy on held-out records.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "inference/randGen.h"
#include "learning/bayesianSearch.h"
#include "learning/dataSampler.h"
#include "learning/dataset.h"
#include "learning/greedyThickThinning.h"
#include "learning/naiveBayes.h"
#include "learning/pattern.h"
#include "learning/pc.h"
#include "learning/structureScore.h"
#include "learning/tan.h"
#include "network/dmatrix.h"
#include "network/network.h"
#include "network/node.h"
#include "network/nodeDef.h"

namespace {

std::string SharedPath(const std::string& name) {
    const char* env = std::getenv("QUARN_SHARED_DIR");
    return std::string(env && *env ? env : QUARN_SHARED_DIR) + "/networks/xvek/" + name + ".xvek";
}

struct Case {
    VEK_network truth;
    VEK_dataset data;
    VEK_pattern cpdag;
};

std::vector<std::vector<int>> ParentsByColumn(const VEK_network& net, const VEK_dataset& data) {
    std::vector<std::vector<int>> parents(data.GetNumberOfVariables());
    for (int v = 0; v < data.GetNumberOfVariables(); ++v) {
        const VEK_intArray& pa = net.GetNode(net.FindNode(data.GetId(v)))->Parents();
        for (int i = 0; i < pa.GetSize(); ++i) parents[v].push_back(data.FindVariable(net.GetNodeId(pa[i])));
    }
    return parents;
}

// Sampled once per network and record count.
const Case& Data(const std::string& name, int records) {
    static std::map<std::pair<std::string, int>, std::unique_ptr<Case>> cache;
    auto& c = cache[{name, records}];
    if (!c) {
        c = std::make_unique<Case>();
        c->truth.ReadFile(SharedPath(name).c_str());
        VEK_randGen gen(7);
        VEK_sampleDataset(c->truth, records, gen, 0.0, c->data);
        c->cpdag.FromDag(ParentsByColumn(c->truth, c->data));
    }
    return *c;
}

void Distances(benchmark::State& state, const Case& c, const VEK_pattern& learnt) {
    state.counters["shd_skeleton"] = learnt.Distance(c.cpdag, true);
    state.counters["shd_cpdag"] = learnt.Distance(c.cpdag, false);
}

template <class Learner>
void ScoreBased(benchmark::State& state, const std::string& name, int score) {
    const Case& c = Data(name, static_cast<int>(state.range(0)));
    VEK_network net;
    for (auto _ : state) {
        Learner learner;
        learner.scoreType = score;
        learner.seed = 1;
        if (learner.Learn(c.data, net) != 0) state.SkipWithError("learning failed");
    }
    VEK_pattern p;
    p.FromDag(ParentsByColumn(net, c.data));
    Distances(state, c, p);
}

void Pc(benchmark::State& state, const std::string& name) {
    const Case& c = Data(name, static_cast<int>(state.range(0)));
    VEK_pattern p;
    for (auto _ : state) {
        VEK_pc pc;
        if (pc.Learn(c.data, p) != 0) state.SkipWithError("learning failed");
    }
    Distances(state, c, p);
}

// Most probable class of each record given all other columns: the class's
// own table times its children's tables, the rest cancels.
std::vector<int> Predict(const VEK_network& net, const VEK_dataset& data, int cls) {
    const int n = data.GetNumberOfVariables();
    std::vector<int> handle(n), column(net.GetSlotCount(), -1);
    for (int v = 0; v < n; ++v) handle[v] = net.FindNode(data.GetId(v)), column[handle[v]] = v;
    std::vector<int> families{handle[cls]};
    for (int v = 0; v < n; ++v) {
        const VEK_intArray& pa = net.GetNode(handle[v])->Parents();
        for (int i = 0; i < pa.GetSize(); ++i) {
            if (pa[i] == handle[cls]) families.push_back(handle[v]);
        }
    }
    const int rc = net.GetDef(handle[cls])->GetNumberOfOutcomes();
    std::vector<int> out(data.GetNumberOfRecords());
    std::vector<double> logp(rc);
    for (int r = 0; r < data.GetNumberOfRecords(); ++r) {
        std::fill(logp.begin(), logp.end(), 0.0);
        for (int h : families) {
            const VEK_Dmatrix& t = *net.GetDef(h)->GetMatrix();
            const VEK_intArray& pa = net.GetNode(h)->Parents();
            for (int k = 0; k < rc; ++k) {
                int at = 0;
                for (int i = 0; i < pa.GetSize(); ++i) {
                    const int x = column[pa[i]] == cls ? k : data.GetInt(column[pa[i]], r);
                    at += x * t.GetProducts()[i];
                }
                at += column[h] == cls ? k : data.GetInt(column[h], r);
                logp[k] += std::log(t[at]);
            }
        }
        out[r] = static_cast<int>(std::max_element(logp.begin(), logp.end()) - logp.begin());
    }
    return out;
}

// Fit on 16,000 records, predict 4,000 others drawn apart.
template <class Learner>
void Classifier(benchmark::State& state, bool predict) {
    static std::vector<VEK_dataset> parts;
    if (parts.empty()) {
        const Case& c = Data("alarm", 16000);
        parts.push_back(c.data);
        VEK_randGen gen(8);
        parts.emplace_back();
        VEK_sampleDataset(c.truth, 4000, gen, 0.0, parts[1]);
    }
    const int cls = parts[0].FindVariable("BP");
    Learner learner;
    learner.classVariable = "BP";
    VEK_network net;
    if (!predict) {
        for (auto _ : state) learner.Learn(parts[0], net);
    } else {
        learner.Learn(parts[0], net);
    }
    std::vector<int> guess;
    if (predict) {
        for (auto _ : state) guess = Predict(net, parts[1], cls);
    } else {
        guess = Predict(net, parts[1], cls);
    }
    int right = 0;
    for (int r = 0; r < parts[1].GetNumberOfRecords(); ++r) right += guess[r] == parts[1].GetInt(cls, r);
    state.counters["accuracy"] = static_cast<double>(right) / parts[1].GetNumberOfRecords();
}

void Gtt(benchmark::State& state, const std::string& name, int score) {
    ScoreBased<VEK_greedyThickThinning>(state, name, score);
}
void Bs(benchmark::State& state, const std::string& name, int score) {
    ScoreBased<VEK_bayesianSearch>(state, name, score);
}
void NaiveBayes(benchmark::State& state, bool predict) { Classifier<VEK_naiveBayes>(state, predict); }
void Tan(benchmark::State& state, bool predict) { Classifier<VEK_tan>(state, predict); }

constexpr int kBdeu = VEK_structureScore::BDEU, kBic = VEK_structureScore::BIC, kK2 = VEK_structureScore::K2;

BENCHMARK_CAPTURE(Gtt, gtt_bdeu_alarm, std::string("alarm"), kBdeu)
    ->Arg(5000)->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Gtt, gtt_bic_alarm, std::string("alarm"), kBic)
    ->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Bs, bs_bdeu_alarm, std::string("alarm"), kBdeu)
    ->Arg(5000)->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Bs, bs_bic_alarm, std::string("alarm"), kBic)
    ->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Bs, bs_k2_alarm, std::string("alarm"), kK2)
    ->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Bs, bs_bic_child, std::string("child"), kBic)
    ->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Bs, bs_k2_child, std::string("child"), kK2)
    ->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Pc, pc_alarm, std::string("alarm"))->Arg(5000)->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Gtt, gtt_bdeu_alarm_big, std::string("alarm"), kBdeu)
    ->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(NaiveBayes, naive_bayes_fit, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(NaiveBayes, naive_bayes_predict, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Tan, tan_fit, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Tan, tan_predict, true)->Unit(benchmark::kMillisecond);

}  // namespace
