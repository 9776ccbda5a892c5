#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "../inference/infTestUtil.h"
#include "emTestUtil.h"
#include "dynamic/dynamicNet.h"
#include "dynamic/unroll.h"
#include "inference/randGen.h"
#include "learning/dataSampler.h"
#include "learning/dataset.h"
#include "learning/dynamicEm.h"
#include "learning/em.h"
#include "learning/emStatistics.h"
#include "network/discDef.h"
#include "network/network.h"
#include "network/node.h"
#include "network/nodeDef.h"
#include "network/status.h"

namespace {

using inftest::AddNode;

// A -> B, A -> C, B -> C with tables far from uniform.
struct SmallNet {
    VEK_network net;
    int a, b, c;
    SmallNet() {
        a = AddNode(net, "A", 2);
        b = AddNode(net, "B", 3);
        c = AddNode(net, "C", 2);
        net.AddArc(a, b);
        net.AddArc(a, c);
        net.AddArc(b, c);
        net.GetDef(a)->SetDefinition(std::vector<double>{0.3, 0.7});
        net.GetDef(b)->SetDefinition(std::vector<double>{0.6, 0.3, 0.1, 0.1, 0.2, 0.7});
        net.GetDef(c)->SetDefinition(
            std::vector<double>{0.9, 0.1, 0.5, 0.5, 0.2, 0.8, 0.7, 0.3, 0.25, 0.75, 0.05, 0.95});
    }
};

using emtest::BruteForceEm;
using emtest::Sample;
using emtest::LogLikelihoods;
using emtest::MatchById;
using emtest::Table;

// The sampler draws from the joint distribution: the frequencies of a root
// and of a child's column approach their probabilities, cells go missing at
// the rate asked, and nodes without a probability table are refused.
TEST(DataSampler, FrequenciesFollowTheTables) {
    SmallNet s;
    VEK_randGen gen(3);
    VEK_dataset data;
    const int n = 40000;
    ASSERT_EQ(VEK_sampleDataset(s.net, n, gen, 0.25, data), VEK_OKAY);
    ASSERT_EQ(data.GetNumberOfRecords(), n);
    ASSERT_EQ(data.GetNumberOfVariables(), 3);
    int a0 = 0, seenA = 0, b2GivenA1 = 0, a1WithB = 0, missing = 0;
    for (int r = 0; r < n; ++r) {
        for (int v = 0; v < 3; ++v) missing += data.IsMissing(v, r) ? 1 : 0;
        if (data.IsMissing(0, r)) continue;
        ++seenA;
        a0 += data.GetInt(0, r) == 0;
        if (data.GetInt(0, r) == 1 && !data.IsMissing(1, r)) {
            ++a1WithB;
            b2GivenA1 += data.GetInt(1, r) == 2;
        }
    }
    // Five standard errors.
    EXPECT_NEAR(static_cast<double>(a0) / seenA, 0.3, 5 * std::sqrt(0.3 * 0.7 / seenA));
    EXPECT_NEAR(static_cast<double>(b2GivenA1) / a1WithB, 0.7, 5 * std::sqrt(0.7 * 0.3 / a1WithB));
    EXPECT_NEAR(static_cast<double>(missing) / (3 * n), 0.25, 5 * std::sqrt(0.25 * 0.75 / (3 * n)));

    VEK_network withDecision(s.net);
    ASSERT_GE(withDecision.AddNode(VEK_LIST, "D"), 0);  // a decision has no distribution to draw from
    EXPECT_EQ(VEK_sampleDataset(withDecision, 10, gen, 0.0, data), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(data.GetNumberOfRecords(), n);  // left as it was
}

TEST(Em, LearnsTrueTablesBackFromIncompleteData) {
    SmallNet truth;
    VEK_dataset data = Sample(truth.net, 6000, 11, 0.25);
    ASSERT_TRUE(data.HasMissingData(0));

    VEK_network net(truth.net);
    VEK_em em;
    em.SetUniformizeParameters(true);
    LogLikelihoods progress;
    double score = 0.0;
    // B is fixed: the uniform start must leave its table alone.
    ASSERT_EQ(em.Learn(data, net, MatchById(net, data), {truth.b}, &score, &progress), VEK_OKAY)
        << (net.Logger().GetLastErrorMessage() ? net.Logger().GetLastErrorMessage() : "");
    EXPECT_EQ(Table(net, truth.b), Table(truth.net, truth.b));
    for (int h : {truth.a, truth.c}) {
        std::vector<double> want = Table(truth.net, h), got = Table(net, h);
        ASSERT_EQ(want.size(), got.size());
        for (size_t i = 0; i < want.size(); ++i) EXPECT_NEAR(got[i], want[i], 0.05) << "node " << h << " item " << i;
    }
    // EM never lowers the likelihood; the score is the last one computed.
    ASSERT_EQ(progress.runs.size(), 1u);
    const std::vector<double>& lls = progress.runs[0];
    ASSERT_GE(lls.size(), 3u);
    for (size_t i = 1; i < lls.size(); ++i) EXPECT_GE(lls[i], lls[i - 1] - 1e-9 * std::fabs(lls[i - 1]));
    EXPECT_EQ(score, lls.back());
    EXPECT_LT(score, 0.0);
}

// Counting complete data, grouped records, nodes observed always, sometimes
// or never, a fixed node, prior counts, a second sub-network, relevance on
// or off, and trees built per record all give what EM by enumeration gives.
TEST(Em, AgreesWithEnumeration) {
    SmallNet base;
    VEK_network& net = base.net;
    const int u = AddNode(net, "U", 2);  // never observed
    const int d = AddNode(net, "D", 2);  // D -> E: a second sub-network
    const int e = AddNode(net, "E", 3);
    net.AddArc(base.c, u);
    net.AddArc(d, e);
    net.GetDef(u)->SetDefinition(std::vector<double>{0.8, 0.2, 0.3, 0.7});
    net.GetDef(e)->SetDefinition(std::vector<double>{0.2, 0.5, 0.3, 0.6, 0.1, 0.3});
    VEK_dataset complete = Sample(net, 300, 17);
    VEK_dataset partial = Sample(net, 300, 19, 0.3);
    for (int r = 0; r < 300; ++r) partial.SetInt(0, r, complete.GetInt(0, r));  // A: never missing
    // Four nodes of six states, all linked: one clique too large to keep,
    // so each record gets a tree of its own.
    VEK_network dense;
    VEK_randGen gen(5);
    for (int i = 0; i < 4; ++i) {
        AddNode(dense, "N" + std::to_string(i), 6);
        for (int j = 0; j < i; ++j) dense.AddArc(j, i);
    }
    for (int i = 0; i < 4; ++i) dense.GetDef(i)->MakeRandom(gen);
    VEK_dataset denseData = Sample(dense, 150, 23, 0.3);
    struct Case {
        VEK_network& net;
        const VEK_dataset& data;
        bool matchU;
        std::vector<int> fixed;
        float ess;
        bool relevance;
    };
    const Case cases[] = {{net, complete, true, {}, 0.0f, true},       {net, complete, true, {}, 3.0f, true},
                          {net, complete, false, {}, 0.0f, true},      {net, partial, false, {}, 0.0f, true},
                          {net, partial, false, {base.b}, 2.0f, true}, {net, partial, true, {}, 0.0f, false},
                          {dense, denseData, true, {}, 1.0f, true}};
    for (const Case& c : cases) {
        const VEK_network& net = c.net;
        std::vector<VEK_datasetMatch> matching = MatchById(net, c.data);
        if (!c.matchU) matching.erase(matching.begin() + 3);
        std::vector<double> want;
        const std::vector<std::vector<double>> tables = BruteForceEm(net, c.data, matching, c.fixed, c.ess, want);
        VEK_network learnt(net);
        VEK_em em;
        ASSERT_EQ(em.SetEquivalentSampleSize(c.ess), VEK_OKAY);
        em.SetRelevance(c.relevance);
        LogLikelihoods progress;
        double score = 0.0;
        ASSERT_EQ(em.Learn(c.data, learnt, matching, c.fixed, &score, &progress), VEK_OKAY)
            << learnt.Logger().GetLastErrorMessage();
        const std::vector<double>& got = progress.runs.at(0);
        if (got.size() > 1) {  // the counting path ticks once
            ASSERT_EQ(got.size(), want.size());
            for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], want[i], 1e-9 * std::fabs(want[i]));
        }
        EXPECT_NEAR(score, want.back(), 1e-9 * std::fabs(want.back()));
        for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
            const std::vector<double> t = Table(learnt, h);
            for (size_t q = 0; q < t.size(); ++q) EXPECT_NEAR(t[q], tables[h][q], 1e-9) << "node " << h;
        }
    }
}

TEST(Em, PriorCountsAndUnreachedColumns) {
    VEK_network net;
    const int x = AddNode(net, "X", 2);
    VEK_dataset data;
    data.AddIntVariable("X");
    data.AddEmptyRecord();
    data.SetInt(0, 0, 0);
    VEK_em em;
    ASSERT_EQ(em.SetEquivalentSampleSize(10.0f), VEK_OKAY);
    ASSERT_EQ(em.Learn(data, net, {{x, 0, 0}}), VEK_OKAY);
    EXPECT_DOUBLE_EQ(Table(net, x)[0], 6.0 / 11.0);
    EXPECT_DOUBLE_EQ(Table(net, x)[1], 5.0 / 11.0);

    // P -> Q; P is never 1, so Q's column for P = 1 keeps its prior, on the
    // counting path and on the iterating one (a missing cell).
    VEK_network pq;
    const int p = AddNode(pq, "P", 2);
    const int q = AddNode(pq, "Q", 2);
    pq.AddArc(p, q);
    pq.GetDef(q)->SetDefinition(std::vector<double>{0.5, 0.5, 0.2, 0.8});
    VEK_dataset d2;
    d2.AddIntVariable("P");
    d2.AddIntVariable("Q");
    for (int r = 0; r < 4; ++r) {
        d2.AddEmptyRecord();
        d2.SetInt(0, r, 0);
        d2.SetInt(1, r, r % 2);
    }
    VEK_em plain;
    VEK_network counted(pq);
    ASSERT_EQ(plain.Learn(d2, counted, MatchById(counted, d2)), VEK_OKAY);
    EXPECT_EQ(Table(counted, q), (std::vector<double>{0.5, 0.5, 0.2, 0.8}));
    EXPECT_EQ(Table(counted, p), (std::vector<double>{1.0, 0.0}));
    d2.SetMissing(1, 0);
    ASSERT_EQ(plain.Learn(d2, pq, MatchById(pq, d2)), VEK_OKAY);
    EXPECT_NEAR(Table(pq, q)[2], 0.2, 1e-12);
    EXPECT_NEAR(Table(pq, q)[3], 0.8, 1e-12);
}

// Columns with state names are paired with outcomes by name (id, then
// label), whatever order the file gave them; a name the node lacks is refused.
TEST(Em, StatesArePairedByName) {
    VEK_network net;
    const int w = AddNode(net, "W", 3);
    net.GetDef(w)->RenameOutcome(0, "low");
    net.GetDef(w)->RenameOutcome(1, "mid");
    net.GetDef(w)->RenameOutcome(2, "s_7_5");
    ASSERT_EQ(static_cast<VEK_discDef*>(net.GetDef(w))->SetOutcomeLabel(2, "<7.5"), VEK_OKAY);
    VEK_dataset data;
    data.AddIntVariable("W");
    ASSERT_EQ(data.SetStateNames(0, {"<7.5", "low", "mid"}), VEK_OKAY);  // sorted as a file gives them
    const int cells[] = {1, 1, 1, 2, 0, 0};  // low x3, mid x1, <7.5 x2
    for (int r = 0; r < 6; ++r) {
        data.AddEmptyRecord();
        data.SetInt(0, r, cells[r]);
    }
    VEK_em em;
    ASSERT_EQ(em.Learn(data, net, {{w, 0, 0}}), VEK_OKAY);
    EXPECT_EQ(Table(net, w), (std::vector<double>{3.0 / 6.0, 1.0 / 6.0, 2.0 / 6.0}));

    ASSERT_EQ(data.SetStateNames(0, {"<7.5", "high", "mid"}), VEK_OKAY);
    const std::vector<double> before = Table(net, w);
    EXPECT_EQ(em.Learn(data, net, {{w, 0, 0}}), VEK_OUT_OF_RANGE);
    EXPECT_STREQ(net.Logger().GetLastErrorMessage(), "EM: state 'high' of column 'W' is not an outcome of node 'W'");
    EXPECT_EQ(Table(net, w), before);
}

TEST(Em, FailuresLeaveTheNetworkAlone) {
    SmallNet s;
    VEK_dataset data = Sample(s.net, 50, 3, 0.2);
    const std::vector<double> before = Table(s.net, s.c);
    VEK_em em;
    EXPECT_EQ(em.Learn(data, s.net, {}), VEK_NO_ITEM);
    EXPECT_STREQ(s.net.Logger().GetLastErrorMessage(), "EM: no matching between node and data were specified");
    EXPECT_EQ(em.Learn(data, s.net, MatchById(s.net, data), {99}), VEK_OUT_OF_RANGE);

    VEK_network withTruth(s.net);
    const int t = AddNode(withTruth, "T", 2, VEK_TRUTHTABLE);
    withTruth.AddArc(s.a, t);
    EXPECT_EQ(em.Learn(data, withTruth, MatchById(withTruth, data)), VEK_WRONG_NODE_TYPE);
    EXPECT_STREQ(withTruth.Logger().GetLastErrorMessage(),
                 "EM: non-fixed deterministic and Noisy Adder nodes not supported");
    EXPECT_EQ(em.Learn(data, withTruth, MatchById(withTruth, data), {t}), VEK_OKAY);

    VEK_network withDecision(s.net);
    AddNode(withDecision, "D", 2, VEK_LIST);
    EXPECT_EQ(em.Learn(data, withDecision, MatchById(withDecision, data)), VEK_WRONG_NODE_TYPE);
    EXPECT_STREQ(withDecision.Logger().GetLastErrorMessage(), "EM: node 'D' is of unsupported type");

    VEK_dataset mixed = data;
    mixed.AddFloatVariable("F");
    std::vector<VEK_datasetMatch> m = MatchById(s.net, data);
    m.push_back({s.c, 0, mixed.FindVariable("F")});
    m.erase(m.begin() + 2);
    EXPECT_EQ(em.Learn(mixed, s.net, m), VEK_INVALID_VALUE);
    EXPECT_STREQ(s.net.Logger().GetLastErrorMessage(),
                 "EM: unsupported mix of discrete and continuous items in network and/or dataset");

    VEK_dataset bad = data;
    bad.SetInt(1, 0, 3);  // B has three outcomes: 0..2
    EXPECT_EQ(em.Learn(bad, s.net, MatchById(s.net, bad)), VEK_OUT_OF_RANGE);

    // A record the network calls impossible stops the run.
    VEK_network zero(s.net);
    zero.GetDef(s.a)->SetDefinition(std::vector<double>{1.0, 0.0});
    VEK_dataset one;
    one.AddIntVariable("A");
    one.AddIntVariable("Unmatched");
    one.AddEmptyRecord();
    one.SetInt(0, 0, 1);
    EXPECT_EQ(em.Learn(one, zero, MatchById(zero, one)), VEK_IMPOSSIBLE_EVIDENCE);
    EXPECT_EQ(Table(zero, s.a), (std::vector<double>{1.0, 0.0}));
    EXPECT_EQ(Table(s.net, s.c), before);

    // A fixed table that is no distribution makes a record's probability
    // 0.9 * (0.8 + 0.8) = 1.44; the run stops with -42.
    VEK_network loose(s.net);
    const int x = AddNode(loose, "X", 2);
    loose.AddArc(x, s.a);
    loose.GetDef(x)->SetDefinition(std::vector<double>{0.9, 0.9});
    loose.GetDef(s.a)->SetDefinition(std::vector<double>{0.2, 0.8, 0.2, 0.8});
    const std::vector<double> looseA = Table(loose, s.a);
    EXPECT_EQ(em.Learn(one, loose, MatchById(loose, one), {x}), VEK_OUT_OF_MEMORY);
    EXPECT_EQ(Table(loose, s.a), looseA);

    // Prior weight and the start options exclude each other.
    em.SetRandomizeParameters(true);
    EXPECT_EQ(em.SetEquivalentSampleSize(5.0f), VEK_INVALID_VALUE);
    em.SetUniformizeParameters(true);
    EXPECT_FALSE(em.GetRandomizeParameters());
    EXPECT_EQ(em.SetEquivalentSampleSize(5.0f), VEK_INVALID_VALUE);
    EXPECT_EQ(em.GetEquivalentSampleSize(), 0.0f);
}

TEST(Em, RandomRestartsKeepTheBestRun) {
    SmallNet truth;
    VEK_dataset data = Sample(truth.net, 400, 21, 0.5);
    VEK_em em;
    em.SetRandomizeParameters(true);
    em.SetSeed(77);
    em.SetRestartCount(4);
    LogLikelihoods progress;
    VEK_network net(truth.net);
    double score = 0.0;
    ASSERT_EQ(em.Learn(data, net, MatchById(net, data), {}, &score, &progress), VEK_OKAY);
    ASSERT_EQ(progress.runs.size(), 4u);
    double best = -INFINITY;
    for (const auto& run : progress.runs) best = std::max(best, run.back());
    EXPECT_EQ(score, best);
    // Same seed, same runs: stopping right after the best run gives the
    // same tables, so the worse runs after it committed nothing.
    size_t bestRun = 0;
    for (size_t i = 0; i < progress.runs.size(); ++i) {
        if (progress.runs[i].back() == best) bestRun = i;
    }
    em.SetRestartCount(static_cast<int>(bestRun) + 1);
    VEK_network again(truth.net);
    double score2 = 0.0;
    ASSERT_EQ(em.Learn(data, again, MatchById(again, data), {}, &score2), VEK_OKAY);
    EXPECT_EQ(score2, score);
    for (int h : {truth.a, truth.b, truth.c}) EXPECT_EQ(Table(again, h), Table(net, h));
    // Distinct random starts end in distinct runs.
    EXPECT_NE(progress.runs[0], progress.runs[1]);
}

// On a real network with missing cells the log-likelihood never falls.
TEST(Em, LogLikelihoodNeverFallsOnASharedNetwork) {
    VEK_network net;
    ASSERT_EQ(net.ReadFile(QUARN_SHARED_DIR "/networks/xvek/alarm.xvek"), VEK_OKAY);
    VEK_dataset data = Sample(net, 1000, 4, 0.2);
    VEK_network learnt(net);
    VEK_em em;
    em.SetUniformizeParameters(true);
    LogLikelihoods progress;
    ASSERT_EQ(em.Learn(data, learnt, MatchById(learnt, data), {}, nullptr, &progress), VEK_OKAY);
    const std::vector<double>& lls = progress.runs[0];
    ASSERT_GE(lls.size(), 2u);
    for (size_t i = 1; i < lls.size(); ++i) EXPECT_GE(lls[i], lls[i - 1] - 1e-9 * std::fabs(lls[i - 1]));
}

}  // namespace

namespace {

// EM run step by step over parts of the data, the parts' counts added, for
// steps iterations (or to convergence); the tables go into a copy of net.
VEK_network RunInParts(const VEK_network& net, const std::vector<const VEK_dataset*>& parts,
                       const std::vector<VEK_datasetMatch>& matching, float ess, int steps = -1) {
    VEK_emStatistics stats;
    EXPECT_EQ(stats.Init(net, {}, ess, true), VEK_OKAY);
    for (double previous = 0.0; steps-- != 0;) {
        std::vector<double> total(stats.CountSize(), 0.0), counts;
        double ll = 0.0, partLl = 0.0;
        for (const VEK_dataset* part : parts) {
            EXPECT_EQ(stats.EStep(*part, matching, counts, partLl), VEK_OKAY);
            for (size_t i = 0; i < total.size(); ++i) total[i] += counts[i];
            ll += partLl;
        }
        stats.MStep(total);
        if (ll == 0.0 || (previous != 0.0 && (previous / ll < 1.0001 || previous >= ll))) break;
        previous = ll;
    }
    VEK_network out(net);
    EXPECT_EQ(stats.Apply(out), VEK_OKAY);
    return out;
}

VEK_dataset Joined(const VEK_dataset& first, const VEK_dataset& second) {
    VEK_dataset whole = first;
    for (int v = 0; v < whole.GetNumberOfVariables(); ++v) {
        const auto& more = second.GetVariable(v).intData;
        auto& cells = whole.Variables()[v].intData;
        cells.insert(cells.end(), more.begin(), more.end());
    }
    whole.SetRecordCount(first.GetNumberOfRecords() + second.GetNumberOfRecords());
    return whole;
}

void ExpectNear(const std::vector<std::vector<double>>& got, const std::vector<std::vector<double>>& want) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t n = 0; n < want.size(); ++n)
        for (size_t i = 0; i < want[n].size(); ++i) EXPECT_NEAR(got[n][i], want[n][i], 1e-12);
}

}  // namespace

// The tables of one EM run over all the data, exactly when the one part is
// all of it, and to rounding otherwise.
TEST(EmStatistics, PartsAddUpToOneEmRun) {
    SmallNet s;
    const VEK_dataset first = Sample(s.net, 300, 11, 0.3), second = Sample(s.net, 200, 12, 0.3);
    const VEK_dataset whole = Joined(first, second);
    const auto matching = MatchById(s.net, whole);
    auto tables = [&](const VEK_network& n) {
        return std::vector<std::vector<double>>{Table(n, s.a), Table(n, s.b), Table(n, s.c)};
    };
    VEK_network learnt(s.net);
    VEK_em em;
    ASSERT_EQ(em.SetEquivalentSampleSize(2.0f), VEK_OKAY);
    ASSERT_EQ(em.Learn(whole, learnt, matching), VEK_OKAY);
    EXPECT_EQ(tables(RunInParts(s.net, {&whole}, matching, 2.0f)), tables(learnt));
    ExpectNear(tables(RunInParts(s.net, {&first, &second}, matching, 2.0f)), tables(learnt));
}

// A hidden Markov model of 4 slices learnt from per-slice columns: one step
// equals one step of dynamic EM over all the records, the run to
// convergence EM's.
TEST(EmStatistics, DynamicPartsAddUpToOneEmRun) {
    VEK_network net;
    const int h = AddNode(net, "H", 2), o = AddNode(net, "O", 3);
    for (int n : {h, o}) net.SetTemporalType(n, VEK_TEMPORAL_PLATE);
    net.AddArc(h, o);
    net.SetNumberOfSlices(4);
    net.Dynamic().AddTemporalArc(h, h, 1);
    net.GetDef(o)->SetDefinition(std::vector<double>{0.6, 0.3, 0.1, 0.1, 0.2, 0.7});
    net.Dynamic().SetTemporalDefinition(h, 1, {0.8, 0.2, 0.35, 0.65});
    VEK_network flat;
    std::vector<VEK_unrolledNode> map;
    ASSERT_EQ(VEK_Unroll(net, flat, map), VEK_OKAY);
    const VEK_dataset first = Sample(flat, 250, 5, 0.3), second = Sample(flat, 150, 6, 0.3);
    const VEK_dataset whole = Joined(first, second);
    std::vector<VEK_datasetMatch> matching;
    ASSERT_EQ(whole.MatchNetwork(net, matching), VEK_OKAY);
    auto tables = [&](const VEK_network& n) {
        const VEK_Dmatrix& t = *n.GetDynamic()->GetTemporalDefinition(h, 1);
        return std::vector<std::vector<double>>{Table(n, h), Table(n, o), {t.Items(), t.Items() + t.GetSize()}};
    };
    VEK_network once(net), learnt(net);
    VEK_dynamicEm step;
    double ll = 0.0;
    ASSERT_EQ(step.Init(whole, once, matching, std::vector<char>(2, 0), 0, true), VEK_OKAY);
    ASSERT_EQ(step.Iterate(1.0, once.Logger(), ll), VEK_OKAY);
    ASSERT_EQ(step.Commit(once), VEK_OKAY);
    VEK_em em;
    ASSERT_EQ(em.SetEquivalentSampleSize(1.0f), VEK_OKAY);
    ASSERT_EQ(em.Learn(whole, learnt, matching), VEK_OKAY);
    for (const auto& [steps, reference] : {std::pair{1, &once}, std::pair{-1, &learnt}}) {
        EXPECT_NE(tables(*reference), tables(net));
        EXPECT_EQ(tables(RunInParts(net, {&whole}, matching, 1.0f, steps)), tables(*reference));
        ExpectNear(tables(RunInParts(net, {&first, &second}, matching, 1.0f, steps)), tables(*reference));
    }
}
