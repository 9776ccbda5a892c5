// Influence diagrams: both solvers against a brute-force evaluation over the
// full joint distribution (the oil-drilling problem and random diagrams),
// and the failures: no utilities, impossible evidence, a utility merge that
// does not fit.
#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "infTestUtil.h"
#include "network/expectedUtility.h"
#include "network/mau.h"

using namespace inftest;

namespace {

const double kUndefined = VEK_UNDEFINED_VALUE;

std::vector<int> Indexing(const VEK_network& net, int h) {
    const VEK_intArray& p = net.GetVal(h)->GetIndexingParents();
    return std::vector<int>(p.begin(), p.end());
}

int Outcomes(const VEK_network& net, int h) { return net.GetDef(h)->GetNumberOfOutcomes(); }

// ------------------------------------------------------------ brute force

// Every joint state of the chance and decision nodes (by handle) of
// positive probability given its decisions and the evidence, and the
// utility of every utility and MAU node.
struct Joint {
    std::vector<std::vector<int>> states;
    std::vector<double> prob;
    std::vector<std::map<int, double>> utility;
    std::vector<double> global;
};

Joint BuildJoint(const VEK_network& net) {
    Joint j;
    std::vector<int> utilities, maus, terminal;
    auto isUtility = [&](int h) { return net.GetDef(h)->GetType() == VEK_TABLE || net.GetDef(h)->GetType() == VEK_MAU; };
    for (int h : const_cast<VEK_network&>(net).PartialOrdering()) {
        if (!isUtility(h)) continue;
        (net.GetDef(h)->GetType() == VEK_TABLE ? utilities : maus).push_back(h);
        bool feeds = false;
        for (int c : net.GetNode(h)->Children()) feeds |= net.GetDef(c)->GetType() == VEK_MAU;
        if (!feeds) terminal.push_back(h);
    }
    ForEachJoint(net, [&](const std::vector<int>& x, double p) {
        auto column = [&](int h) {
            int idx = 0;
            for (int q : net.GetNode(h)->Parents())
                if (!isUtility(q)) idx = idx * Outcomes(net, q) + x[static_cast<size_t>(q)];
            return idx;
        };
        std::map<int, double> u;
        for (int h : utilities) u[h] = net.GetDef(h)->GetParameters()[column(h)];
        for (int m : maus) {
            const VEK_mau* def = dynamic_cast<const VEK_mau*>(net.GetDef(m));
            double sum = 0.0;
            for (int up : def->GetUtilityParents()) {
                double w = 0.0;
                def->GetWeight(column(m), up, w);
                sum += w * u[up];
            }
            u[m] = sum;
        }
        double g = 0.0;
        for (int t : terminal) g += u[t];
        j.states.push_back(x);
        j.prob.push_back(p);
        j.utility.push_back(u);
        j.global.push_back(g);
    });
    return j;
}

// The optimal-policy recursion over the enumerated variables (the last
// decision's indexing parents followed by that decision): decisions take
// their best option, chance variables average by their probability.
struct BruteForce {
    const Joint& joint;
    std::vector<int> vars;
    std::vector<int> sizes;
    std::vector<bool> isDecision;
    // Per decision: value of each (prefix, option), undefined when impossible.
    std::map<int, std::vector<double>> decisionValues;
    std::map<std::vector<int>, int> policy;  // prefix (as assignment) -> option

    struct Result {
        double value = kUndefined;
        double mass = 0.0;
    };

    bool Consistent(size_t row, const std::vector<int>& assign) const {
        for (size_t k = 0; k < assign.size(); ++k)
            if (joint.states[row][static_cast<size_t>(vars[k])] != assign[k]) return false;
        return true;
    }

    Result Solve(std::vector<int>& assign) {
        Result r;
        const size_t j = assign.size();
        if (j == vars.size()) {
            double pu = 0.0;
            for (size_t row = 0; row < joint.prob.size(); ++row) {
                if (!Consistent(row, assign)) continue;
                r.mass += joint.prob[row];
                pu += joint.prob[row] * joint.global[row];
            }
            if (r.mass > 0.0) r.value = pu / r.mass;
            return r;
        }
        std::vector<Result> sub;
        for (int o = 0; o < sizes[j]; ++o) {
            assign.push_back(o);
            sub.push_back(Solve(assign));
            assign.pop_back();
        }
        if (isDecision[j]) {
            int best = -1;
            for (int o = 0; o < sizes[j]; ++o) {
                const Result& s = sub[static_cast<size_t>(o)];
                if (s.mass <= 0.0) continue;
                const double b = best < 0 ? 0.0 : sub[static_cast<size_t>(best)].value;
                if (best < 0 || s.value > b + 1e-9 * (1.0 + std::fabs(b))) best = o;
            }
            std::vector<double>& table = decisionValues[vars[j]];
            for (int o = 0; o < sizes[j]; ++o) {
                int flat = 0;
                for (size_t k = 0; k < j; ++k) flat = flat * sizes[k] + assign[k];
                flat = flat * sizes[j] + o;
                if (table.size() <= static_cast<size_t>(flat)) table.resize(static_cast<size_t>(flat) + 1, kUndefined);
                table[static_cast<size_t>(flat)] = sub[static_cast<size_t>(o)].mass > 0.0 ? sub[static_cast<size_t>(o)].value : kUndefined;
            }
            policy[assign] = best;
            if (best >= 0) r = sub[static_cast<size_t>(best)];
            return r;
        }
        double pv = 0.0;
        for (const Result& s : sub) {
            if (s.mass <= 0.0) continue;
            r.mass += s.mass;
            pv += s.mass * s.value;
        }
        if (r.mass > 0.0) r.value = pv / r.mass;
        return r;
    }

    // Whether a joint row follows the policy at every decision.
    bool FollowsPolicy(size_t row) const {
        std::vector<int> prefix;
        for (size_t k = 0; k < vars.size(); ++k) {
            const int s = joint.states[row][static_cast<size_t>(vars[k])];
            if (isDecision[k]) {
                auto it = policy.find(prefix);
                if (it == policy.end() || it->second != s) return false;
            }
            prefix.push_back(s);
        }
        return true;
    }
};

// E[utility | evidence, undecided decisions] for every combination of them.
std::vector<double> UtilityByDecisions(const Joint& joint, const VEK_network& net, int u,
                                       const std::vector<int>& decisions) {
    int n = 1;
    for (int d : decisions) n *= Outcomes(net, d);
    std::vector<double> num(static_cast<size_t>(n), 0.0), den(static_cast<size_t>(n), 0.0);
    for (size_t row = 0; row < joint.prob.size(); ++row) {
        int idx = 0;
        for (int d : decisions) idx = idx * Outcomes(net, d) + joint.states[row][static_cast<size_t>(d)];
        num[static_cast<size_t>(idx)] += joint.prob[row] * joint.utility[row].at(u);
        den[static_cast<size_t>(idx)] += joint.prob[row];
    }
    for (size_t i = 0; i < num.size(); ++i) num[i] = den[i] > 0.0 ? num[i] / den[i] : kUndefined;
    return num;
}

void ExpectNear(const std::vector<double>& got, const std::vector<double>& want, const std::string& what) {
    ASSERT_EQ(got.size(), want.size()) << what;
    for (size_t i = 0; i < got.size(); ++i) {
        if (want[i] == kUndefined) {
            EXPECT_EQ(got[i], kUndefined) << what << " item " << i;
        } else {
            EXPECT_NEAR(got[i], want[i], 1e-9 * (1.0 + std::fabs(want[i]))) << what << " item " << i;
        }
    }
}

// Checks every value the solver wrote against the brute force.
void CheckAgainstBruteForce(VEK_network& net, const std::string& label) {
    const Joint joint = BuildJoint(net);
    std::vector<int> decisions, undecided;
    for (int h : net.PartialOrdering()) {
        if (net.GetDef(h)->GetType() != VEK_LIST) continue;
        decisions.push_back(h);
        if (!net.GetVal(h)->HasHardEvidence()) undecided.push_back(h);
    }
    BruteForce bf{joint, {}, {}, {}, {}, {}};
    if (!undecided.empty()) {
        const int last = undecided.back();
        bf.vars = Indexing(net, last);
        bf.vars.push_back(last);
    }
    // The enumerated variables: every undecided decision, in order, each
    // after the unobserved chance parents of it and of earlier decisions.
    std::vector<int> expectSet;
    const long lastUndecided =
        undecided.empty() ? -1 : std::find(decisions.begin(), decisions.end(), undecided.back()) - decisions.begin();
    for (long k = 0; k <= lastUndecided; ++k) {
        const int d = decisions[static_cast<size_t>(k)];
        for (int p : net.GetNode(d)->Parents()) {
            const auto at = std::find(bf.vars.begin(), bf.vars.end(), p);
            if (net.GetDef(p)->GetType() == VEK_LIST || net.GetVal(p)->HasHardEvidence()) {
                if (net.GetDef(p)->GetType() != VEK_LIST) {
                    EXPECT_EQ(at, bf.vars.end()) << label;
                }
                continue;
            }
            ASSERT_NE(at, bf.vars.end()) << label << ": parent " << p << " of decision " << d << " not indexed";
            EXPECT_LT(at - bf.vars.begin(), std::find(bf.vars.begin(), bf.vars.end(), d) - bf.vars.begin())
                << label;
            if (std::find(expectSet.begin(), expectSet.end(), p) == expectSet.end()) expectSet.push_back(p);
        }
        if (!net.GetVal(d)->HasHardEvidence()) expectSet.push_back(d);
    }
    ASSERT_EQ(bf.vars.size(), expectSet.size()) << label;
    for (int v : bf.vars) {
        bf.sizes.push_back(Outcomes(net, v));
        bf.isDecision.push_back(net.GetDef(v)->GetType() == VEK_LIST);
    }
    std::vector<int> assign;
    bf.Solve(assign);

    for (size_t k = 0; k < bf.vars.size(); ++k) {
        if (!bf.isDecision[k]) continue;
        const int d = bf.vars[k];
        ASSERT_TRUE(net.GetVal(d)->IsValueValid()) << label;
        EXPECT_EQ(Indexing(net, d), std::vector<int>(bf.vars.begin(), bf.vars.begin() + static_cast<long>(k))) << label;
        ExpectNear(Beliefs(net, d), bf.decisionValues[d], label + " decision " + std::to_string(d));
    }
    for (int h = 0; h < net.GetSlotCount(); ++h) {
        if (!net.IsValidNode(h)) continue;
        const int t = net.GetDef(h)->GetType();
        if (t == VEK_TABLE || t == VEK_MAU) {
            ASSERT_TRUE(net.GetVal(h)->IsValueValid()) << label;
            EXPECT_EQ(Indexing(net, h), undecided) << label;
            ExpectNear(Beliefs(net, h), UtilityByDecisions(joint, net, h, undecided), label + " utility " + std::to_string(h));
        } else if (t != VEK_LIST && !net.GetVal(h)->HasHardEvidence()) {
            // Beliefs when the policy is followed.
            std::vector<double> b(static_cast<size_t>(Outcomes(net, h)), 0.0);
            double total = 0.0;
            for (size_t row = 0; row < joint.prob.size(); ++row) {
                if (!bf.FollowsPolicy(row)) continue;
                b[static_cast<size_t>(joint.states[row][static_cast<size_t>(h)])] += joint.prob[row];
                total += joint.prob[row];
            }
            for (double& x : b) x /= total;
            ASSERT_TRUE(net.GetVal(h)->IsValueValid()) << label;
            ExpectNear(Beliefs(net, h), b, label + " chance " + std::to_string(h));
        }
    }
}

// ------------------------------------------------------------ diagrams

// The oil-drilling problem: test (cost 10) or not, see the seismic result,
// then drill or not.
struct Oil {
    VEK_network net;
    int oil, test, result, drill, cost, payoff;
    Oil() {
        oil = AddNode(net, "Oil", 3);
        test = AddNode(net, "Test", 2, VEK_LIST);
        result = AddNode(net, "Result", 4);  // closed, open, diffuse, none
        drill = AddNode(net, "Drill", 2, VEK_LIST);
        cost = net.AddNode(VEK_TABLE, "Cost");
        payoff = net.AddNode(VEK_TABLE, "Payoff");
        net.AddArc(oil, result);
        net.AddArc(test, result);
        net.AddArc(test, drill);
        net.AddArc(result, drill);
        net.AddArc(test, cost);
        net.AddArc(drill, payoff);
        net.AddArc(oil, payoff);
        SetTable(net, oil, {0.5, 0.3, 0.2});
        SetTable(net, result, {0.1, 0.3, 0.6, 0.0, 0.0, 0.0, 0.0, 1.0,    // dry: tested, not tested
                               0.3, 0.4, 0.3, 0.0, 0.0, 0.0, 0.0, 1.0,    // wet
                               0.5, 0.4, 0.1, 0.0, 0.0, 0.0, 0.0, 1.0});  // soaking
        SetTable(net, cost, {-10.0, 0.0});
        SetTable(net, payoff, {-70.0, 50.0, 200.0, 0.0, 0.0, 0.0});
    }
};

// A random diagram: chance nodes and 1 to 3 decisions in a chain, each node
// with up to two earlier parents, 1 to 3 utility nodes and sometimes a MAU
// over them with a decision parent; hard or soft evidence on some chance
// nodes.
void RandomDiagram(VEK_network& net, std::mt19937& rng) {
    auto uni = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    auto real = [&](double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); };
    const int chance = uni(2, 5);
    const int decisions = uni(1, 3);
    std::vector<int> nodes, chanceNodes, decisionNodes;
    int placedDecisions = 0;
    for (int i = 0; i < chance + decisions; ++i) {
        const bool decision = placedDecisions < decisions && (uni(0, chance + decisions - 1) < decisions ||
                                                              chance + decisions - i <= decisions - placedDecisions);
        const int h = decision ? AddNode(net, Name("D", i), uni(2, 3), VEK_LIST) : AddNode(net, Name("C", i), uni(2, 3));
        if (decision && !decisionNodes.empty()) net.AddArc(decisionNodes.back(), h);
        const int parents = uni(0, 2);
        for (int k = 0; k < parents && !nodes.empty(); ++k) {
            const int p = nodes[static_cast<size_t>(uni(0, static_cast<int>(nodes.size()) - 1))];
            if (decision && net.GetDef(p)->GetType() == VEK_LIST) continue;
            net.AddArc(p, h);
        }
        (decision ? decisionNodes : chanceNodes).push_back(h);
        if (decision) ++placedDecisions;
        nodes.push_back(h);
    }
    RandomTables(net, chanceNodes, rng, 0.0);
    std::vector<int> utilities;
    const int count = uni(1, 3);
    for (int u = 0; u < count; ++u) {
        const int h = net.AddNode(VEK_TABLE, Name("U", u).c_str());
        const int parents = uni(1, 2);
        for (int k = 0; k < parents; ++k) net.AddArc(nodes[static_cast<size_t>(uni(0, static_cast<int>(nodes.size()) - 1))], h);
        // Every utility depends on some decision.
        if (u == 0) net.AddArc(decisionNodes.back(), h);
        std::vector<double> v(static_cast<size_t>(net.GetDef(h)->GetParameters().GetSize()));
        for (double& x : v) x = real(-10.0, 10.0);
        SetTable(net, h, v);
        utilities.push_back(h);
    }
    if (count > 1 && uni(0, 1) == 1) {
        const int m = net.AddNode(VEK_MAU, "M");
        for (int u : utilities) net.AddArc(u, m);
        net.AddArc(decisionNodes.front(), m);
        std::vector<double> w(static_cast<size_t>(net.GetDef(m)->GetParameters().GetSize()));
        for (double& x : w) x = real(0.0, 2.0);
        dynamic_cast<VEK_mau*>(net.GetDef(m))->SetWeights(w);
    }
    for (int c : chanceNodes) {
        const int kind = uni(0, 5);
        if (kind == 0) net.GetVal(c)->SetEvidence(uni(0, Outcomes(net, c) - 1));
        if (kind == 1) {
            std::vector<double> likelihood(static_cast<size_t>(Outcomes(net, c)));
            for (double& x : likelihood) x = real(0.1, 1.0);
            net.GetVal(c)->SetVirtualEvidence(likelihood);
        }
    }
    if (uni(0, 3) == 0) net.GetVal(decisionNodes.front())->SetEvidence(0);
}

}  // namespace

TEST(InfluenceDiagram, OilDrillingHasItsKnownOptimumAndMatchesTheBruteForce) {
    for (int alg : {VEK_ALG_ID_COOPER, VEK_ALG_ID_SHACHTER}) {
        Oil o;
        o.net.SetDefaultIDAlgorithm(alg);
        ASSERT_EQ(o.net.UpdateBeliefs(), VEK_OKAY) << alg;
        // Testing is worth 32.5 before its cost; not testing gives 20.
        ExpectNear(Beliefs(o.net, o.test), {22.5, 20.0}, "Test");
        EXPECT_EQ(Indexing(o.net, o.drill), (std::vector<int>{o.test, o.result}));
        const std::vector<double> drill = Beliefs(o.net, o.drill);
        ASSERT_EQ(drill.size(), 16u);
        // Tested and closed: (-70*.05 + 50*.09 + 200*.1) / .24, less the
        // cost of the test: decisions are valued by the global utility.
        EXPECT_NEAR(drill[0], 77.5, 1e-9);
        // Tested but no result, and not tested with a result: impossible.
        EXPECT_EQ(drill[6], kUndefined);
        EXPECT_EQ(drill[8], kUndefined);
        EXPECT_NEAR(drill[14], 20.0, 1e-9);
        // The seismic result under the optimal policy (test first).
        ExpectNear(Beliefs(o.net, o.result), {0.24, 0.35, 0.41, 0.0}, "Result");
        CheckAgainstBruteForce(o.net, "oil");

        // Once tested with a diffuse result, drilling loses money.
        ASSERT_EQ(o.net.GetVal(o.test)->SetEvidence(0), VEK_OKAY);
        ASSERT_EQ(o.net.GetVal(o.result)->SetEvidence(2), VEK_OKAY);
        ASSERT_EQ(o.net.UpdateBeliefs(), VEK_OKAY);
        EXPECT_TRUE(Indexing(o.net, o.drill).empty());
        ExpectNear(Beliefs(o.net, o.drill), {(-70 * .3 + 50 * .09 + 200 * .02) / .41 - 10, -10.0},
                   "Drill after diffuse");
        CheckAgainstBruteForce(o.net, "oil diffuse");
    }
}

TEST(InfluenceDiagram, RandomDiagramsMatchTheBruteForceWithBothSolvers) {
    std::mt19937 rng(20261122);
    for (int i = 0; i < 60; ++i) {
        VEK_network net;
        RandomDiagram(net, rng);
        const std::string before = std::to_string(net.GetNumberOfNodes());
        for (int alg : {VEK_ALG_ID_COOPER, VEK_ALG_ID_SHACHTER}) {
            net.SetDefaultIDAlgorithm(alg);
            const int res = net.UpdateBeliefs();
            ASSERT_EQ(res, VEK_OKAY) << "diagram " << i << " alg " << alg << ": "
                                     << (net.Logger().GetErrorCount() ? net.Logger().GetLastErrorMessage() : "");
            CheckAgainstBruteForce(net, "diagram " + std::to_string(i) + " alg " + std::to_string(alg));
            EXPECT_EQ(std::to_string(net.GetNumberOfNodes()), before);
        }
    }
}

TEST(InfluenceDiagram, UtilitiesKeepTheirScaleAndTargetsLimitTheBeliefs) {
    VEK_network net;
    const int c = AddNode(net, "C", 2);
    const int other = AddNode(net, "Other", 2);
    const int d = AddNode(net, "D", 3, VEK_LIST);
    const int u = net.AddNode(VEK_TABLE, "U");
    net.AddArc(c, u);
    net.AddArc(d, u);
    SetTable(net, c, {0.25, 0.75});
    SetTable(net, u, {-10.0, 10.0, 4.0, 2.0, -3.0, -7.0});
    ASSERT_EQ(net.UpdateBeliefs(), VEK_OKAY);
    // By option: .25*u(c0) + .75*u(c1).
    ExpectNear(Beliefs(net, d), {-10 * .25 + 2 * .75, 10 * .25 - 3 * .75, 4 * .25 - 7 * .75}, "D");
    ExpectNear(Beliefs(net, u), Beliefs(net, d), "U");
    EXPECT_TRUE(net.GetVal(other)->IsValueValid());

    // With a target only the target's beliefs are computed; the utilities
    // and decisions still are.
    ASSERT_EQ(net.SetTarget(c, true), VEK_OKAY);
    ASSERT_EQ(net.UpdateBeliefs(), VEK_OKAY);
    EXPECT_FALSE(net.GetVal(other)->IsValueValid());
    ExpectNear(Beliefs(net, c), {0.25, 0.75}, "C");
    ExpectNear(Beliefs(net, d), {-10 * .25 + 2 * .75, 10 * .25 - 3 * .75, 4 * .25 - 7 * .75}, "D with target");
}

TEST(InfluenceDiagram, DecisionsWithoutUtilitiesFailAndTheDiagramStaysUsable) {
    for (int alg : {VEK_ALG_ID_COOPER, VEK_ALG_ID_SHACHTER}) {
        VEK_network net;
        net.SetDefaultIDAlgorithm(alg);
        const int c = AddNode(net, "C", 2);
        const int d = AddNode(net, "D", 2, VEK_LIST);
        net.AddArc(c, d);
        EXPECT_LT(net.UpdateBeliefs(), 0);
        EXPECT_TRUE(Logged(net, "Utilities not specified. Policies cannot be evaluated")) << alg;
        EXPECT_FALSE(net.GetVal(d)->IsValueValid());
        EXPECT_EQ(net.GetNumberOfNodes(), 2);

        const int u = net.AddNode(VEK_TABLE, "U");
        net.AddArc(d, u);
        SetTable(net, u, {1.0, 3.0});
        ASSERT_EQ(net.UpdateBeliefs(), VEK_OKAY);
        ExpectNear(Beliefs(net, d), {1.0, 3.0, 1.0, 3.0}, "D by C");
    }
}

TEST(InfluenceDiagram, UpdateImmediatelyIsKeptAndFailuresLeaveTheDiagramUnchanged) {
    Oil o;
    ASSERT_EQ(o.net.SetUpdateImmediate(true), VEK_OKAY);
    EXPECT_TRUE(o.net.IsUpdateImmediate());
    ExpectNear(Beliefs(o.net, o.test), {22.5, 20.0}, "Test");
    ASSERT_EQ(o.net.SetUpdateImmediate(false), VEK_OKAY);
    ASSERT_EQ(o.net.UpdateBeliefs(), VEK_OKAY);
    EXPECT_FALSE(o.net.IsUpdateImmediate());

    // Evidence the model rules out: tested, yet no result.
    const std::vector<double> payoff = Beliefs(o.net, o.payoff);
    o.net.Logger().Clear();
    ASSERT_EQ(o.net.GetVal(o.test)->SetEvidence(0), VEK_OKAY);
    ASSERT_EQ(o.net.GetVal(o.result)->SetEvidence(3), VEK_OKAY);
    EXPECT_EQ(o.net.UpdateBeliefs(), VEK_IMPOSSIBLE_EVIDENCE);
    EXPECT_EQ(std::string(o.net.Logger().GetLastErrorMessage()), "Error when running Cooper's algorithm");
    EXPECT_EQ(o.net.Logger().GetLastError(), VEK_IMPOSSIBLE_EVIDENCE);
    EXPECT_FALSE(o.net.GetVal(o.drill)->IsValueValid());
    EXPECT_FALSE(o.net.GetVal(o.payoff)->IsValueValid());
    EXPECT_FALSE(o.net.GetVal(o.oil)->IsValueValid());
    // Indexing parents are those of the last solve, not the failed one's.
    EXPECT_EQ(Indexing(o.net, o.payoff), (std::vector<int>{o.test, o.drill}));
    EXPECT_EQ(Indexing(o.net, o.drill), (std::vector<int>{o.test, o.result}));
    // The diagram itself is as it was: types, arcs and tables.
    EXPECT_EQ(o.net.GetDef(o.payoff)->GetType(), VEK_TABLE);
    EXPECT_EQ(o.net.GetDef(o.drill)->GetType(), VEK_LIST);
    EXPECT_EQ(o.net.GetNode(o.drill)->Parents().GetSize(), 2);
    EXPECT_EQ(o.net.GetDef(o.payoff)->GetParameters()[0], -70.0);

    ASSERT_EQ(o.net.GetVal(o.result)->ClearEvidence(), VEK_OKAY);
    ASSERT_EQ(o.net.GetVal(o.test)->ClearEvidence(), VEK_OKAY);
    ASSERT_EQ(o.net.UpdateBeliefs(), VEK_OKAY);
    ExpectNear(Beliefs(o.net, o.payoff), payoff, "Payoff again");
}

TEST(InfluenceDiagram, PolicySearchRefusesAMergeWithTooManyParents) {
    VEK_network net;
    const int d = AddNode(net, "D", 2, VEK_LIST);
    std::vector<int> u;
    for (int k = 0; k < 2; ++k) u.push_back(net.AddNode(VEK_TABLE, Name("U", k).c_str()));
    net.AddArc(d, u[0]);
    // 21 binary parents in all: two million cells.
    for (int i = 0; i < 20; ++i) net.AddArc(AddNode(net, Name("C", i), 2), u[static_cast<size_t>(i % 2)]);
    net.SetDefaultIDAlgorithm(VEK_ALG_ID_SHACHTER);
    EXPECT_EQ(net.UpdateBeliefs(), VEK_OUT_OF_RANGE);
    EXPECT_TRUE(Logged(net, "Cannot solve this network using SHACHTER's algorithm. Error while merging utility nodes "
                            "(too many parents)"));
    EXPECT_FALSE(net.GetVal(d)->IsValueValid());
    EXPECT_EQ(net.GetNumberOfNodes(), 23);

    // Policy evaluation needs no merge.
    net.SetDefaultIDAlgorithm(VEK_ALG_ID_COOPER);
    ASSERT_EQ(net.UpdateBeliefs(), VEK_OKAY);
    ExpectNear(Beliefs(net, d), {2.0, 2.0}, "D");
}
