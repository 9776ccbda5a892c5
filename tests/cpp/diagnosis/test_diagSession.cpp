// Diagnosis sessions on small random networks against a brute-force
// evaluation of every measure and cost from the full joint distribution,
// with the caller's network left as it was. Refusals of bad input are
// checked from Python.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

#include "../analysis/analysisTestUtil.h"
#include "diagnosis/diagSession.h"
#include "network/discDef.h"
#include "network/node.h"

using namespace inftest;

namespace {

struct DiagNet {
    VEK_network net;
    std::vector<int> h;                       // handles by node index
    std::vector<std::pair<int, int>> faults;  // (node index, outcome), in the session's order
    std::vector<int> tests;                   // node indices of observation nodes
};

// n nodes of 2 or 3 states, up to three earlier parents, strictly positive
// tables. The first nf nodes are faults (every outcome but the first), the
// last nt are observations.
void Build(DiagNet& d, std::mt19937& rng, int n, int nf, int nt) {
    for (int i = 0; i < n; ++i) d.h.push_back(AddNode(d.net, Name("n", i), 2 + static_cast<int>(rng() % 2)));
    for (int i = 1; i < n; ++i)
        for (int k = 0; k < i; ++k)
            if (rng() % 3 == 0 && d.net.GetNode(d.h[i])->Parents().GetSize() < 3) d.net.AddArc(d.h[k], d.h[i]);
    RandomTables(d.net, d.h, rng, 0.0);
    for (int i = 0; i < nf; ++i) {
        VEK_node* node = d.net.GetNode(d.h[i]);
        node->SetDiagType(VEK_DIAG_FAULT);
        auto* def = dynamic_cast<VEK_discDef*>(node->Definition());
        for (int s = 1; s < def->GetNumberOfOutcomes(); ++s) {
            def->SetFaultOutcome(s, true);
            d.faults.emplace_back(i, s);
        }
    }
    for (int i = n - nt; i < n; ++i) {
        d.net.GetNode(d.h[i])->SetDiagType(VEK_DIAG_OBSERVATION);
        d.tests.push_back(i);
    }
}

using Assignment = std::vector<int>;
using Event = std::function<bool(const Assignment&)>;

// The full joint distribution, one entry per assignment (by node index,
// which is the handle).
struct Joint {
    std::vector<Assignment> x;
    std::vector<double> p;

    explicit Joint(const DiagNet& d) {
        antest::ForEachJoint(d.net, [this](const Assignment& a, double q) {
            x.push_back(a);
            p.push_back(q);
        });
    }
    double P(const Event& e) const {
        double s = 0.0;
        for (size_t i = 0; i < p.size(); ++i) s += e(x[i]) ? p[i] : 0.0;
        return s;
    }
    double P(const Event& e, const Event& given) const {
        return P([&](const Assignment& a) { return e(a) && given(a); }) / P(given);
    }
};

Event Observed(const std::map<int, int>& evidence) {
    return [evidence](const Assignment& a) {
        for (auto [i, s] : evidence)
            if (a[static_cast<size_t>(i)] != s) return false;
        return true;
    };
}

double H2(double p) {
    auto t = [](double v) { return v > 0.0 ? -v * std::log2(v) : 0.0; };
    return t(p) + t(1.0 - p);
}

// The measure of a test, evaluated from its definition on the joint.
double Reference(const DiagNet& d, const Joint& joint, const std::map<int, int>& evidence, int test,
                 const std::vector<int>& pursued, int single, int multi) {
    const size_t k = pursued.size();
    const Event seen = Observed(evidence);
    auto holds = [&](size_t i) -> Event {
        auto [node, outcome] = d.faults[static_cast<size_t>(pursued[i])];
        return [node, outcome](const Assignment& a) { return a[static_cast<size_t>(node)] == outcome; };
    };
    const int event = multi & (8 | 16 | 32);
    // The pursued faults' probabilities p and their combined event's q given cond.
    auto view = [&](const Event& cond, std::vector<double>& p, double& q) {
        p.clear();
        double none = 1, all = 1, one = 0;
        for (size_t i = 0; i < k; ++i) p.push_back(joint.P(holds(i), cond));
        for (size_t i = 0; i < k; ++i) {
            double t = p[i];
            for (size_t j = 0; j < k; ++j) t *= j == i ? 1 : 1 - p[j];
            none *= 1 - p[i], all *= p[i], one += t;
        }
        q = event == 8 ? 1 - none : event == 16 ? one : all;
        if (multi & 4 && multi < 64) {
            q = joint.P(
                [&](const Assignment& a) {
                    int c = 0;
                    for (size_t i = 0; i < k; ++i) c += holds(i)(a);
                    return event == 8 ? c >= 1 : event == 16 ? c == 1 : c == static_cast<int>(k);
                },
                cond);
        }
    };
    std::vector<double> now, w, qAfter;
    std::vector<std::vector<double>> after;
    double qNow = 0;
    view(seen, now, qNow);
    for (int o = 0; o < d.net.GetDef(d.h[static_cast<size_t>(test)])->GetNumberOfOutcomes(); ++o) {
        const Event cond = [&, o](const Assignment& a) { return seen(a) && a[static_cast<size_t>(test)] == o; };
        w.push_back(joint.P(cond, seen));
        after.emplace_back();
        qAfter.push_back(0);
        view(cond, after.back(), qAfter.back());
    }
    auto singleMeasure = [&](double pNow, const std::function<double(size_t)>& pAfter) {
        double ce = H2(pNow), pc = 0.0;
        for (size_t o = 0; o < w.size(); ++o) ce -= w[o] * H2(pAfter(o)), pc += w[o] * std::fabs(pAfter(o) - pNow);
        if (single == VEK_DIAG_PROB_CHANGE) return pc;
        return single == VEK_DIAG_CROSSENTROPY ? ce : H2(pNow) > 0 ? ce / H2(pNow) : 0;
    };
    if (k == 1) return singleMeasure(now[0], [&](size_t o) { return after[o][0]; });
    if (multi < 64) return singleMeasure(qNow, [&](size_t o) { return qAfter[o]; });
    double total = 0;
    if (multi == VEK_DIAG_MARGINAL_1) {
        for (size_t i = 0; i < k; ++i) total += singleMeasure(now[i], [&](size_t o) { return after[o][i]; });
        return total;
    }
    auto entropy = [](const std::vector<double>& v) {
        double s = 0, h = 0;
        for (double x : v) s += x;
        for (double x : v) h += x > 0 ? -(x / s) * std::log2(x / s) : 0;
        return h;
    };
    if (multi == VEK_DIAG_MARGINAL_2) total = entropy(now);
    for (size_t o = 0; o < w.size(); ++o) {
        double mx = 0, l1 = 0, l2 = 0, dot = 0, na = 0, nb = 0;
        for (size_t i = 0; i < k; ++i) {
            const double diff = after[o][i] - now[i];
            mx = std::max(mx, std::fabs(diff)), l1 += std::fabs(diff) / k, l2 += diff * diff / k;
            dot += after[o][i] * now[i], na += now[i] * now[i], nb += after[o][i] * after[o][i];
        }
        l2 = std::sqrt(l2);
        const double dist = multi == VEK_DIAG_MARGINAL_2               ? -entropy(after[o])
                            : multi == VEK_DIAG_MAX_PROB_CHANGE        ? mx
                            : multi == VEK_DIAG_L2_NORMALIZED_DISTANCE ? l2
                            : multi == VEK_DIAG_CITYBLOCK_DISTANCE     ? l1
                            : multi == VEK_DIAG_AVG_L2_CITY_DISTANCE   ? (l1 + l2) / 2
                                                                       : 1 - dot / std::sqrt(na * nb);
        total += w[o] * dist;
    }
    return total;
}

// Every multi-fault measure, by engine id: independence and dependence with
// at least one, only one and only all, the marginal models, the distances.
const int kMulti[] = {10, 18, 34, 12, 20, 36, 65, 129, 257, 258, 259, 260, 261};

// Runs an update and checks the faults' probabilities and every test's
// measure against the joint.
void CheckUpdate(DiagNet& d, VEK_diagSession& s, const Joint& joint, const std::map<int, int>& evidence,
                 std::vector<int> pursued, int single, int multi) {
    const double weight = s.GetCostWeight(), cap = s.GetMaxCost();
    VEK_diagResults r;
    ASSERT_EQ(s.Update(r), 0);
    ASSERT_EQ(r.faults.size(), d.faults.size());
    for (size_t i = 0; i < r.faults.size(); ++i) {
        auto [node, outcome] = d.faults[static_cast<size_t>(r.faults[i].index)];
        EXPECT_EQ(r.faults[i].node, d.h[static_cast<size_t>(node)]);
        const Event fault = [node, outcome](const Assignment& a) { return a[static_cast<size_t>(node)] == outcome; };
        EXPECT_NEAR(r.faults[i].probability, joint.P(fault, Observed(evidence)), 1e-9);
        EXPECT_GE(r.faults[i > 0 ? i - 1 : 0].probability, r.faults[i].probability);
    }
    if (pursued.empty()) pursued.push_back(r.faults[0].index);
    ASSERT_EQ(r.observations.size(), d.tests.size() - evidence.size());
    for (size_t i = 0; i < r.observations.size(); ++i) {
        const int t = static_cast<int>(std::find(d.h.begin(), d.h.end(), r.observations[i].node) - d.h.begin());
        EXPECT_EQ(evidence.count(t), 0u);
        EXPECT_NEAR(r.observations[i].measure, Reference(d, joint, evidence, t, pursued, single, multi), 1e-9)
            << "single " << single << " multi " << multi << " test " << t;
        // The expected cost: table entries weighed by the cost parents' beliefs.
        const VEK_node* node = d.net.GetNode(r.observations[i].node);
        const VEK_Dmatrix& table = node->GetCost();
        double cost = 0.0;
        for (int c = 0; c < table.GetSize(); ++c) {
            double p = table[c] == VEK_NOT_AVAILABLE_VALUE ? 0.0 : table[c];
            for (int k = node->CostParents().GetSize() - 1, rest = c; k >= 0; rest /= table.GetSizeOfDimension(k--)) {
                const int j = static_cast<int>(std::find(d.h.begin(), d.h.end(), node->CostParents()[k]) - d.h.begin());
                const int state = rest % table.GetSizeOfDimension(k);
                p *= joint.P([j, state](const Assignment& a) { return a[static_cast<size_t>(j)] == state; },
                             Observed(evidence));
            }
            cost += p;
        }
        EXPECT_NEAR(r.observations[i].cost, cost, 1e-9);
        EXPECT_NEAR(r.observations[i].score, r.observations[i].measure - weight * std::min(cost, cap) / cap, 1e-12);
        EXPECT_GE(r.observations[i > 0 ? i - 1 : 0].score, r.observations[i].score);
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

}  // namespace

TEST(DiagSession, EveryMeasureMatchesTheJointOnRandomNetworks) {
    std::mt19937 rng(20261124);
    for (int trial = 0; trial < 12; ++trial) {
        DiagNet d;
        Build(d, rng, 7 + trial % 4, 3, 3);
        const Joint joint(d);
        VEK_network& net = d.net;
        // The second test's cost depends on the first test and on fault node 0.
        const int t0 = d.h[static_cast<size_t>(d.tests[0])], t1 = d.h[static_cast<size_t>(d.tests[1])];
        ASSERT_EQ(net.AddArc(t0, t1, 1), 0);
        ASSERT_EQ(net.AddArc(d.h[0], t1, 1), 0);
        std::vector<double> table(static_cast<size_t>(net.GetNode(t1)->GetCost().GetSize()));
        for (size_t i = 0; i < table.size(); ++i) table[i] = 1.0 + static_cast<double>(i);
        ASSERT_EQ(net.GetNode(t1)->SetCost(table), 0);
        ASSERT_EQ(net.GetNode(d.h[static_cast<size_t>(d.tests[2])])->SetCost({2.0}), 0);
        // The caller's own evidence (which the session does not see), target,
        // algorithm and valid beliefs are left as they were.
        if (trial % 3 == 0) {
            ASSERT_EQ(net.GetVal(d.h[3])->SetEvidence(0), 0);
            ASSERT_EQ(net.SetTarget(t1, true), 0);
            net.SetDefaultBNAlgorithm(2);
            ASSERT_EQ(net.UpdateBeliefs(), 0);
        }
        const std::vector<double> before = CallerState(net);
        VEK_diagSession s(net);
        ASSERT_EQ(s.Open(), 0);
        if (trial % 4 == 1) {
            ASSERT_EQ(s.SetEntropyCostRatio(0.2, 3.0), 0);
        }
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
        EXPECT_EQ(CallerState(net), before);
    }
}
