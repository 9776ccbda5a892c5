// Diagnosis sessions on small random networks against a brute-force
// evaluation of every measure from the full joint distribution, and the
// session's promises to the caller's network and its refusals of bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

#include "../inference/infTestUtil.h"
#include "diagnosis/diagSession.h"
#include "network/discDef.h"
#include "network/node.h"

using namespace inftest;

namespace {

struct DiagNet {
    VEK_network net;
    std::vector<int> h;                        // handles by node index
    std::vector<std::pair<int, int>> faults;   // (node index, outcome), in the session's order
    std::vector<int> tests;                    // node indices of observation nodes
};

// n nodes of 2 or 3 states, up to three earlier parents, strictly positive
// tables. The first nf nodes are faults (random non-empty fault outcome
// sets), the last nt are observations.
void Build(DiagNet& d, std::mt19937& rng, int n, int nf, int nt) {
    std::uniform_real_distribution<double> u(0.05, 1.0);
    for (int i = 0; i < n; ++i) d.h.push_back(AddNode(d.net, Name("n", i), 2 + static_cast<int>(rng() % 2)));
    for (int i = 1; i < n; ++i)
        for (int k = 0; k < i; ++k)
            if (rng() % 3 == 0 && d.net.GetNode(d.h[i])->Parents().GetSize() < 3) d.net.AddArc(d.h[k], d.h[i]);
    for (int i = 0; i < n; ++i) {
        const VEK_Dmatrix* m = d.net.GetDef(d.h[i])->GetMatrix();
        const int k = m->GetLastDimensionSize();
        std::vector<double> t(static_cast<size_t>(m->GetSize()));
        for (size_t c = 0; c < t.size(); c += static_cast<size_t>(k)) {
            double sum = 0.0;
            for (int s = 0; s < k; ++s) sum += (t[c + static_cast<size_t>(s)] = u(rng));
            for (int s = 0; s < k; ++s) t[c + static_cast<size_t>(s)] /= sum;
        }
        ASSERT_EQ(SetTable(d.net, d.h[i], t), 0);
    }
    for (int i = 0; i < nf; ++i) {
        VEK_node* node = d.net.GetNode(d.h[i]);
        node->SetDiagType(VEK_DIAG_FAULT);
        auto* def = dynamic_cast<VEK_discDef*>(node->Definition());
        const int k = def->GetNumberOfOutcomes();
        const int first = static_cast<int>(rng() % static_cast<unsigned>(k));
        for (int s = 0; s < k; ++s) {
            if (s == first || (s != 0 && rng() % 2 == 0)) {
                def->SetFaultOutcome(s, true);
                d.faults.emplace_back(i, s);
            }
        }
    }
    for (int i = n - nt; i < n; ++i) {
        d.net.GetNode(d.h[i])->SetDiagType(VEK_DIAG_OBSERVATION);
        d.tests.push_back(i);
    }
}

// The full joint distribution, one entry per assignment (by node index).
struct Joint {
    std::vector<std::vector<int>> x;
    std::vector<double> p;

    explicit Joint(const DiagNet& d) {
        const VEK_network& net = d.net;
        const size_t n = d.h.size();
        std::vector<int> a(n, 0);
        while (true) {
            double p = 1.0;
            for (size_t i = 0; i < n; ++i) {
                const VEK_intArray& parents = net.GetNode(d.h[i])->Parents();
                int idx = 0;
                for (int q : parents) {
                    size_t j = 0;
                    while (d.h[j] != q) ++j;
                    idx = idx * net.GetDef(q)->GetNumberOfOutcomes() + a[j];
                }
                p *= (*net.GetDef(d.h[i])->GetMatrix())[idx * net.GetDef(d.h[i])->GetNumberOfOutcomes() + a[i]];
            }
            x.push_back(a);
            this->p.push_back(p);
            size_t k = n;
            while (k > 0 && ++a[k - 1] == net.GetDef(d.h[k - 1])->GetNumberOfOutcomes()) a[--k] = 0;
            if (k == 0) break;
        }
    }
    double Prob(const std::function<bool(const std::vector<int>&)>& event) const {
        double s = 0.0;
        for (size_t i = 0; i < p.size(); ++i)
            if (event(x[i])) s += p[i];
        return s;
    }
};

double H2(double p) {
    auto t = [](double v) { return v > 0.0 ? -v * std::log2(v) : 0.0; };
    return t(p) + t(1.0 - p);
}

// The measure of a test, evaluated from its definition on the joint: the
// pursued faults' probabilities now and after each outcome of the test.
double Reference(const DiagNet& d, const Joint& joint, const std::map<int, int>& evidence, int test,
                 const std::vector<int>& pursued, int single, int multi) {
    auto consistent = [&](const std::vector<int>& x) {
        for (auto [i, s] : evidence)
            if (x[static_cast<size_t>(i)] != s) return false;
        return true;
    };
    const size_t k = pursued.size();
    auto holds = [&](const std::vector<int>& x, size_t i) {
        auto [node, outcome] = d.faults[static_cast<size_t>(pursued[i])];
        return x[static_cast<size_t>(node)] == outcome;
    };
    auto count = [&](const std::vector<int>& x) {
        int c = 0;
        for (size_t i = 0; i < k; ++i) c += holds(x, i);
        return c;
    };
    // Faults' probabilities and the combined event, given the evidence and test = o (o = -1: no test outcome).
    auto view = [&](int o, std::vector<double>& p, double& q) {
        auto cond = [&](const std::vector<int>& x) { return consistent(x) && (o < 0 || x[static_cast<size_t>(test)] == o); };
        const double pe = joint.Prob(cond);
        p.assign(k, 0.0);
        for (size_t i = 0; i < k; ++i) p[i] = joint.Prob([&](const std::vector<int>& x) { return cond(x) && holds(x, i); }) / pe;
        double pi_none = 1, pi_all = 1, pi_one = 0;
        for (size_t i = 0; i < k; ++i) {
            pi_none *= 1 - p[i];
            pi_all *= p[i];
            double t = p[i];
            for (size_t j = 0; j < k; ++j) if (j != i) t *= 1 - p[j];
            pi_one += t;
        }
        const int event = multi & (8 | 16 | 32);
        if (multi & 2) q = event == 8 ? 1 - pi_none : event == 16 ? pi_one : pi_all;
        if (multi & 4 && multi < 64)
            q = joint.Prob([&](const std::vector<int>& x) {
                const int c = count(x);
                return cond(x) && (event == 8 ? c >= 1 : event == 16 ? c == 1 : c == static_cast<int>(k));
            }) / pe;
    };
    auto singleMeasure = [&](double now, const std::vector<double>& w, const std::vector<double>& after) {
        double ce = H2(now), pc = 0.0;
        for (size_t o = 0; o < w.size(); ++o) {
            ce -= w[o] * H2(after[o]);
            pc += w[o] * std::fabs(after[o] - now);
        }
        return single == VEK_DIAG_PROB_CHANGE ? pc : single == VEK_DIAG_CROSSENTROPY ? ce : (H2(now) > 0 ? ce / H2(now) : 0);
    };
    std::vector<double> now, w;
    std::vector<std::vector<double>> after;
    double qNow = 0;
    std::vector<double> qAfter;
    view(-1, now, qNow);
    const double pe = joint.Prob(consistent);
    for (int o = 0; o < d.net.GetDef(d.h[static_cast<size_t>(test)])->GetNumberOfOutcomes(); ++o) {
        w.push_back(joint.Prob([&](const std::vector<int>& x) { return consistent(x) && x[static_cast<size_t>(test)] == o; }) / pe);
        after.emplace_back();
        qAfter.push_back(0);
        view(o, after.back(), qAfter.back());
    }
    auto column = [&](size_t i) {
        std::vector<double> c;
        for (auto& a : after) c.push_back(a[i]);
        return c;
    };
    if (k == 1) return singleMeasure(now[0], w, column(0));
    if (multi < 64) return singleMeasure(qNow, w, qAfter);
    double total = 0;
    if (multi == VEK_DIAG_MARGINAL_1) {
        for (size_t i = 0; i < k; ++i) total += singleMeasure(now[i], w, column(i));
        return total;
    }
    auto entropy = [](std::vector<double> v) {
        double s = 0, h = 0;
        for (double x : v) s += x;
        for (double x : v) h += x > 0 ? -(x / s) * std::log2(x / s) : 0;
        return h;
    };
    if (multi == VEK_DIAG_MARGINAL_2) {
        total = entropy(now);
        for (size_t o = 0; o < w.size(); ++o) total -= w[o] * entropy(after[o]);
        return total;
    }
    for (size_t o = 0; o < w.size(); ++o) {
        double mx = 0, l1 = 0, l2 = 0, dot = 0, na = 0, nb = 0;
        for (size_t i = 0; i < k; ++i) {
            const double diff = after[o][i] - now[i];
            mx = std::max(mx, std::fabs(diff));
            l1 += std::fabs(diff) / k;
            l2 += diff * diff / k;
            dot += after[o][i] * now[i];
            na += now[i] * now[i];
            nb += after[o][i] * after[o][i];
        }
        l2 = std::sqrt(l2);
        const double dist = multi == VEK_DIAG_MAX_PROB_CHANGE ? mx
                            : multi == VEK_DIAG_L2_NORMALIZED_DISTANCE ? l2
                            : multi == VEK_DIAG_CITYBLOCK_DISTANCE ? l1
                            : multi == VEK_DIAG_AVG_L2_CITY_DISTANCE ? (l1 + l2) / 2
                                                                       : 1 - dot / std::sqrt(na * nb);
        total += w[o] * dist;
    }
    return total;
}

const int kMulti[] = {VEK_DIAG_INDEPENDENCE_AT_LEAST_ONE, VEK_DIAG_INDEPENDENCE_ONLY_ONE, VEK_DIAG_INDEPENDENCE_ONLY_ALL,
                      VEK_DIAG_DEPENDENCE_AT_LEAST_ONE,   VEK_DIAG_DEPENDENCE_ONLY_ONE,   VEK_DIAG_DEPENDENCE_ONLY_ALL,
                      VEK_DIAG_MARGINAL_1,                VEK_DIAG_MARGINAL_2,            VEK_DIAG_MAX_PROB_CHANGE,
                      VEK_DIAG_L2_NORMALIZED_DISTANCE,    VEK_DIAG_COSINE_DISTANCE,       VEK_DIAG_CITYBLOCK_DISTANCE,
                      VEK_DIAG_AVG_L2_CITY_DISTANCE};

// Runs an update and checks the faults' probabilities and every test's
// measure against the joint.
void CheckUpdate(DiagNet& d, VEK_diagSession& s, const Joint& joint, const std::map<int, int>& evidence,
                 const std::vector<int>& pursued, int single, int multi) {
    VEK_diagResults r;
    ASSERT_EQ(s.Update(r), 0);
    auto consistent = [&](const std::vector<int>& x) {
        for (auto [i, st] : evidence)
            if (x[static_cast<size_t>(i)] != st) return false;
        return true;
    };
    const double pe = joint.Prob(consistent);
    ASSERT_EQ(r.faults.size(), d.faults.size());
    for (size_t i = 0; i < r.faults.size(); ++i) {
        auto [node, outcome] = d.faults[static_cast<size_t>(r.faults[i].index)];
        EXPECT_EQ(r.faults[i].node, d.h[static_cast<size_t>(node)]);
        EXPECT_NEAR(r.faults[i].probability,
                    joint.Prob([&](const std::vector<int>& x) { return consistent(x) && x[static_cast<size_t>(node)] == outcome; }) / pe,
                    1e-9);
        if (i > 0) {
            EXPECT_GE(r.faults[i - 1].probability, r.faults[i].probability);
        }
    }
    std::vector<int> chase = pursued;
    if (chase.empty()) chase.push_back(r.faults[0].index);
    size_t unperformed = 0;
    for (int t : d.tests) unperformed += evidence.count(t) == 0;
    ASSERT_EQ(r.observations.size(), unperformed);
    for (size_t i = 0; i < r.observations.size(); ++i) {
        int t = 0;
        while (d.h[static_cast<size_t>(t)] != r.observations[i].node) ++t;
        EXPECT_EQ(evidence.count(t), 0u);
        EXPECT_NEAR(r.observations[i].measure, Reference(d, joint, evidence, t, chase, single, multi), 1e-9)
            << "single " << single << " multi " << multi << " test " << t;
        EXPECT_EQ(r.observations[i].score, r.observations[i].measure);
        if (i > 0) {
            EXPECT_GE(r.observations[i - 1].score, r.observations[i].score);
        }
    }
}

}  // namespace

TEST(DiagSession, EveryMeasureMatchesTheJointOnRandomNetworks) {
    std::mt19937 rng(20261124);
    for (int trial = 0; trial < 12; ++trial) {
        DiagNet d;
        const int n = 6 + trial % 5;
        Build(d, rng, n, 3, 3);
        const Joint joint(d);
        VEK_diagSession s(d.net);
        ASSERT_EQ(s.Open(), 0);
        ASSERT_EQ(s.GetFaults().size(), d.faults.size());
        std::map<int, int> evidence;
        if (trial % 2) {
            const int t = d.tests[static_cast<size_t>(trial % 3)];
            ASSERT_EQ(s.InstantiateObservation(d.h[static_cast<size_t>(t)], 1), 0);
            evidence[t] = 1;
        }
        for (int single : {VEK_DIAG_CROSSENTROPY, VEK_DIAG_NORM_CROSSENTROPY, VEK_DIAG_PROB_CHANGE}) {
            ASSERT_EQ(s.SetSingleFaultAlgorithm(single), 0);
            // Until told otherwise the session pursues the most probable fault.
            if (single == VEK_DIAG_CROSSENTROPY) CheckUpdate(d, s, joint, evidence, {}, single, 0);
            const int f = static_cast<int>(rng() % d.faults.size());
            ASSERT_EQ(s.SetPursuedFault(f), 0);
            CheckUpdate(d, s, joint, evidence, {f}, single, 0);
            // Several faults, sometimes two outcomes of one node.
            std::vector<int> many(d.faults.size());
            for (size_t i = 0; i < many.size(); ++i) many[i] = static_cast<int>(i);
            std::shuffle(many.begin(), many.end(), rng);
            many.resize(2 + trial % 2);
            ASSERT_EQ(s.SetPursuedFaults(many), 0);
            for (int multi : kMulti) {
                if (single != VEK_DIAG_CROSSENTROPY && multi >= 64 && multi != VEK_DIAG_MARGINAL_1) continue;
                ASSERT_EQ(s.SetMultiFaultAlgorithm(multi), 0);
                CheckUpdate(d, s, joint, evidence, many, single, multi);
            }
        }
    }
}

// What the caller can see of its network: evidence, targets, algorithm and beliefs.
std::vector<double> CallerState(const VEK_network& net) {
    std::vector<double> s{static_cast<double>(net.GetDefaultBNAlgorithm()), static_cast<double>(net.GetTargetCount())};
    for (int h = 0; h < net.GetSlotCount(); ++h) {
        const VEK_nodeVal* v = net.GetVal(h);
        s.insert(s.end(), {static_cast<double>(v->GetFlags()), static_cast<double>(v->GetEvidence()),
                           static_cast<double>(net.IsTarget(h))});
        for (double b : Beliefs(net, h)) s.push_back(b);
    }
    return s;
}

TEST(DiagSession, CostsWeighTheScoreAndTheCallersNetworkIsLeftAsItWas) {
    std::mt19937 rng(7);
    DiagNet d;
    Build(d, rng, 8, 2, 3);
    const Joint joint(d);
    VEK_network& net = d.net;
    const int t0 = d.tests[0], t1 = d.tests[1], aux = 3;
    // t1's cost depends on t0 (observed below) and on the fault node 0 (not observed).
    ASSERT_EQ(net.AddArc(d.h[t0], d.h[t1], 1), 0);
    ASSERT_EQ(net.AddArc(d.h[0], d.h[t1], 1), 0);
    const int n0 = net.GetDef(d.h[0])->GetNumberOfOutcomes();
    std::vector<double> table;
    for (int i = 0; i < net.GetDef(d.h[t0])->GetNumberOfOutcomes() * n0; ++i) table.push_back(1.0 + i);
    ASSERT_EQ(net.GetNode(d.h[t1])->SetCost(table), 0);
    ASSERT_EQ(net.GetNode(d.h[d.tests[2]])->SetCost({30.0}), 0);

    // The caller's own evidence, target, algorithm and valid beliefs.
    ASSERT_EQ(net.GetVal(d.h[aux])->SetEvidence(0), 0);
    ASSERT_EQ(net.SetTarget(d.h[t1], true), 0);
    net.SetDefaultBNAlgorithm(2);
    ASSERT_EQ(net.UpdateBeliefs(), 0);
    const std::vector<double> before = CallerState(net);

    VEK_diagSession s(net);
    ASSERT_EQ(s.Open(), 0);
    ASSERT_EQ(s.InstantiateObservation(d.h[t0], 1), 0);
    const double weight = 0.3, cap = 20.0;
    ASSERT_EQ(s.SetEntropyCostRatio(weight, cap), 0);
    VEK_diagResults r;
    ASSERT_EQ(s.Update(r), 0);
    EXPECT_EQ(CallerState(net), before);

    const std::map<int, int> evidence{{t0, 1}};
    const double pe = joint.Prob([&](const std::vector<int>& x) { return x[static_cast<size_t>(t0)] == 1; });
    double expected = 0.0;
    for (int b = 0; b < n0; ++b) {
        const double pb = joint.Prob([&](const std::vector<int>& x) { return x[static_cast<size_t>(t0)] == 1 && x[0] == b; }) / pe;
        expected += pb * table[static_cast<size_t>(n0 + b)];
    }
    ASSERT_EQ(r.observations.size(), 2u);
    for (const VEK_diagObservation& o : r.observations) {
        const bool first = o.node == d.h[t1];
        EXPECT_NEAR(o.cost, first ? expected : 30.0, 1e-9);
        EXPECT_NEAR(o.score, o.measure - weight * std::min(o.cost, cap) / cap, 1e-12);
        const int t = first ? t1 : d.tests[2];
        EXPECT_NEAR(o.measure, Reference(d, joint, evidence, t, {r.faults[0].index}, VEK_DIAG_CROSSENTROPY, 0), 1e-9);
    }
}

TEST(DiagSession, BadInputIsRefusedAndChangesNothing) {
    std::mt19937 rng(11);
    DiagNet d;
    Build(d, rng, 6, 2, 2);
    VEK_network& net = d.net;

    VEK_network bare;
    AddNode(bare, "a", 2);
    VEK_diagSession none(bare);
    EXPECT_EQ(none.Open(), VEK_NO_ITEM);
    bare.GetNode(0)->SetDiagType(VEK_DIAG_OBSERVATION);
    EXPECT_EQ(none.Open(), VEK_NO_ITEM);
    VEK_diagResults r;
    EXPECT_EQ(none.Update(r), VEK_GENERAL_ERROR);

    VEK_diagSession s(net);
    ASSERT_EQ(s.Open(), 0);
    const int nf = static_cast<int>(s.GetFaults().size());
    ASSERT_EQ(s.SetPursuedFaults({0, nf - 1}), 0);
    ASSERT_EQ(s.InstantiateObservation(d.h[d.tests[0]], 0), 0);
    const std::vector<double> before = CallerState(net);
    net.Logger().Clear();

    EXPECT_EQ(s.SetPursuedFault(nf), VEK_OUT_OF_RANGE);
    EXPECT_EQ(s.SetPursuedFaults({0, 0}), VEK_INVALID_VALUE);
    EXPECT_EQ(s.SetPursuedFaults({}), VEK_INVALID_VALUE);
    EXPECT_EQ(s.GetPursuedFaults(), (std::vector<int>{0, nf - 1}));
    EXPECT_EQ(s.InstantiateObservation(d.h[0], 0), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(s.InstantiateObservation(d.h[d.tests[1]], 9), VEK_OUT_OF_RANGE);
    EXPECT_EQ(s.InstantiateObservation(99, 0), VEK_OUT_OF_RANGE);
    EXPECT_EQ(s.ReleaseObservation(d.h[d.tests[1]]), VEK_NO_ITEM);
    EXPECT_EQ(s.SetSingleFaultAlgorithm(513), VEK_OUT_OF_RANGE);
    EXPECT_EQ(s.SetMultiFaultAlgorithm(20 | 8), VEK_OUT_OF_RANGE);
    EXPECT_EQ(s.SetEntropyCostRatio(-1.0, 1.0), VEK_INVALID_VALUE);
    EXPECT_EQ(s.SetEntropyCostRatio(1.0, 0.0), VEK_INVALID_VALUE);
    EXPECT_EQ(net.Logger().GetErrorCount(), 11);
    EXPECT_EQ(s.GetObservation(d.h[d.tests[0]]), 0);
    EXPECT_EQ(s.GetObservation(d.h[d.tests[1]]), -1);

    // A mandatory test must be observed before ranking.
    net.GetNode(d.h[d.tests[1]])->SetMandatory(true);
    net.Logger().Clear();
    EXPECT_EQ(s.Update(r), VEK_INVALID_VALUE);
    EXPECT_NE(std::string(net.Logger().GetLastErrorMessage()).find("Mandatory observation 'n5'"), std::string::npos);
    ASSERT_EQ(s.InstantiateObservation(d.h[d.tests[1]], 1), 0);
    EXPECT_EQ(s.Update(r), 0);
    EXPECT_TRUE(r.observations.empty());
    EXPECT_EQ(CallerState(net), before);

    // An edited network is noticed rather than read out of bounds.
    ASSERT_EQ(net.DeleteNode(d.h[0]), 0);
    EXPECT_EQ(s.Update(r), VEK_GENERAL_ERROR);
}
