// Structure learning on records forward-sampled from shared networks:
// learning time (sampling apart) with the structural Hamming distance to
// the true network as counters (skeleton and CPDAG), and the classifiers'
// fit and prediction times with their accuracy on held-out records over
// several samples.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "benchUtil.h"
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
        Must(c->truth.ReadFile(SharedPath(name).c_str()), "network not read");
        VEK_randGen gen(7);
        Must(VEK_sampleDataset(c->truth, records, gen, 0.0, c->data), "sampling failed");
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

// Fit on 16,000 records, predict 4,000 others drawn apart, on several
// samples: one sample's accuracy is a poor comparison (its standard error
// is about 0.007), so the counters give the mean, spread and range over the
// samples, and the true network's accuracy on the same records, the best
// any classifier of these columns can expect. Times are of the first sample.
struct Split {
    VEK_dataset train, test;
};

const std::vector<Split>& Splits() {
    static std::vector<Split> splits;
    if (splits.empty()) {
        const VEK_network& truth = Data("alarm", 16000).truth;
        for (unsigned seed : {7u, 17u, 27u, 37u, 47u, 57u, 67u, 77u}) {
            Split& s = splits.emplace_back();
            VEK_randGen train(seed), test(seed + 1);
            Must(VEK_sampleDataset(truth, 16000, train, 0.0, s.train) | VEK_sampleDataset(truth, 4000, test, 0.0, s.test),
                 "sampling failed");
        }
    }
    return splits;
}

double Accuracy(const VEK_network& net, const VEK_dataset& test, int cls) {
    const std::vector<int> guess = Predict(net, test, cls);
    int right = 0;
    for (int r = 0; r < test.GetNumberOfRecords(); ++r) right += guess[r] == test.GetInt(cls, r);
    return static_cast<double>(right) / test.GetNumberOfRecords();
}

void Spread(benchmark::State& state, const std::string& name, const std::vector<double>& values) {
    double mean = 0.0, squares = 0.0;
    for (double v : values) mean += v / values.size();
    for (double v : values) squares += (v - mean) * (v - mean);
    state.counters[name] = mean;
    state.counters[name + "_sd"] = std::sqrt(squares / (values.size() - 1));
    state.counters[name + "_min"] = *std::min_element(values.begin(), values.end());
    state.counters[name + "_max"] = *std::max_element(values.begin(), values.end());
}

template <class Learner>
void Classifier(benchmark::State& state, bool predict, double ess) {
    const std::vector<Split>& splits = Splits();
    const int cls = splits[0].train.FindVariable("BP");
    Learner learner;
    learner.classVariable = "BP";
    learner.ess = ess;
    VEK_network net;
    int status = 0;
    if (!predict) {
        for (auto _ : state) status |= learner.Learn(splits[0].train, net);
    } else {
        if (!Must(state, learner.Learn(splits[0].train, net), "learning failed")) return;
        for (auto _ : state) benchmark::DoNotOptimize(Predict(net, splits[0].test, cls));
    }
    if (!Must(state, status, "learning failed")) return;
    std::vector<double> accuracy, truth;
    for (const Split& s : splits) {
        if (!Must(state, learner.Learn(s.train, net), "learning failed")) return;
        accuracy.push_back(Accuracy(net, s.test, cls));
        truth.push_back(Accuracy(Data("alarm", 16000).truth, s.test, cls));
    }
    Spread(state, "accuracy", accuracy);
    state.counters["truth_accuracy"] = std::accumulate(truth.begin(), truth.end(), 0.0) / truth.size();
}

void Gtt(benchmark::State& state, const std::string& name, int score) {
    ScoreBased<VEK_greedyThickThinning>(state, name, score);
}
void Bs(benchmark::State& state, const std::string& name, int score) {
    ScoreBased<VEK_bayesianSearch>(state, name, score);
}
void NaiveBayes(benchmark::State& state, bool predict, double ess) {
    Classifier<VEK_naiveBayes>(state, predict, ess);
}
void Tan(benchmark::State& state, bool predict, double ess) { Classifier<VEK_tan>(state, predict, ess); }

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
BENCHMARK_CAPTURE(NaiveBayes, naive_bayes_fit, false, 1.0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(NaiveBayes, naive_bayes_predict, true, 1.0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Tan, tan_fit, false, 1.0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Tan, tan_predict, true, 1.0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Tan, tan_fit_ess10, false, 10.0)->Unit(benchmark::kMillisecond);

}  // namespace
