#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "emTestUtil.h"
#include "inference/randGen.h"
#include "learning/bayesianSearch.h"
#include "learning/dataset.h"
#include "learning/familyCounts.h"
#include "learning/greedyThickThinning.h"
#include "learning/naiveBayes.h"
#include "learning/pattern.h"
#include "learning/pc.h"
#include "learning/structureScore.h"
#include "learning/tan.h"
#include "network/network.h"
#include "network/node.h"
#include "network/status.h"

namespace {

using Parents = std::vector<std::vector<int>>;

std::string SharedXvek(const std::string& name) {
    const char* env = std::getenv("QUARN_SHARED_DIR");
    return std::string(env && *env ? env : QUARN_SHARED_DIR) + "/networks/xvek/" + name + ".xvek";
}

// Parent columns of every dataset column in net, matched by id.
Parents ParentsByColumn(const VEK_network& net, const VEK_dataset& data) {
    Parents parents(data.GetNumberOfVariables());
    for (int v = 0; v < data.GetNumberOfVariables(); ++v) {
        const VEK_intArray& pa = net.GetNode(net.FindNode(data.GetId(v)))->Parents();
        for (int i = 0; i < pa.GetSize(); ++i) parents[v].push_back(data.FindVariable(net.GetNodeId(pa[i])));
    }
    return parents;
}

bool HasArc(const Parents& p, int u, int v) { return std::find(p[v].begin(), p[v].end(), u) != p[v].end(); }

// A shared network, records forward-sampled from it, and its true CPDAG.
struct Sampled {
    VEK_network truth;
    VEK_dataset data;
    VEK_pattern cpdag;
    Sampled(const std::string& name, int records) {
        EXPECT_EQ(truth.ReadFile(SharedXvek(name).c_str()), 0);
        data = emtest::Sample(truth, records, 7);
        cpdag.FromDag(ParentsByColumn(truth, data));
    }
};

// Family score by the textbook formulas over a record-by-record count map.
double DirectScore(const VEK_dataset& d, int child, const std::vector<int>& pa, const std::vector<int>& cards, int type,
                   double ess) {
    std::map<std::vector<int>, std::vector<double>> n;
    for (int r = 0; r < d.GetNumberOfRecords(); ++r) {
        std::vector<int> key;
        for (int p : pa) key.push_back(d.GetInt(p, r));
        auto& row = n[key];
        row.resize(cards[child], 0.0);
        row[d.GetInt(child, r)] += 1;
    }
    double q = 1, rc = cards[child], s = 0;
    for (int p : pa) q *= cards[p];
    if (type == VEK_structureScore::BIC) {
        for (auto& [k, row] : n) {
            double nj = 0;
            for (double x : row) nj += x;
            for (double x : row) s += x > 0 ? x * std::log(x / nj) : 0;
        }
        return s - 0.5 * std::log(d.GetNumberOfRecords()) * q * (rc - 1);
    }
    const double a = type == VEK_structureScore::K2 ? 1.0 : ess / (q * rc);
    for (auto& [k, row] : n) {
        double nj = 0;
        for (double x : row) nj += x, s += std::lgamma(a + x) - std::lgamma(a);
        s += std::lgamma(a * rc) - std::lgamma(a * rc + nj);
    }
    return s;
}

TEST(StructureScore, FamiliesMatchDirectComputationAndBdeuIsScoreEquivalent) {
    Sampled asia("asia", 500);
    VEK_familyCounts counts;
    ASSERT_EQ(counts.Init(asia.data), VEK_OKAY);
    std::vector<int> cards;
    for (int v = 0; v < counts.GetColumnCount(); ++v) cards.push_back(counts.GetStateCount(v));
    const std::vector<std::pair<int, std::vector<int>>> families = {{0, {}}, {3, {1}}, {5, {2, 4}}, {7, {1, 3, 6}}};
    for (int type : {0, 1, 2}) {
        VEK_structureScore score(counts, type, 4.0);
        for (const auto& [child, pa] : families) {
            EXPECT_NEAR(score.Family(child, pa), DirectScore(asia.data, child, pa, cards, type, 4.0), 1e-7)
                << "type " << type << " child " << child;
        }
    }
    // Markov-equivalent DAGs over columns 0, 1, 2: chain both ways and the
    // fork score the same under BDeu (and BIC); the collider does not.
    auto total = [&](VEK_structureScore& s, const Parents& p) {
        double t = 0;
        for (int v = 0; v < 3; ++v) t += s.Family(v, p[v]);
        return t;
    };
    for (int type : {0, 2}) {
        VEK_structureScore s(counts, type, 7.0);
        const double chain = total(s, {{}, {0}, {1}});
        EXPECT_NEAR(total(s, {{1}, {2}, {}}), chain, 1e-8);
        EXPECT_NEAR(total(s, {{1}, {}, {1}}), chain, 1e-8);
        EXPECT_GT(std::fabs(total(s, {{}, {0, 2}, {}}) - chain), 1e-6);
    }
}

TEST(StructureScore, ChiSquareTailMatchesClosedForms) {
    // df = 2 is exp(-x/2); df = 1 and 4 from the standard tables.
    for (double x : {0.1, 1.0, 5.99, 20.0}) EXPECT_NEAR(VEK_pc::ChiSquareTail(x, 2), std::exp(-x / 2), 1e-12);
    EXPECT_NEAR(VEK_pc::ChiSquareTail(3.841459, 1), 0.05, 1e-6);
    EXPECT_NEAR(VEK_pc::ChiSquareTail(13.2767, 4), 0.01, 1e-5);
}

TEST(Pattern, DagExtensionStaysInTheEquivalenceClass) {
    // Random DAGs: the CPDAG's own extension has the same CPDAG.
    VEK_randGen gen(3);
    for (int trial = 0; trial < 30; ++trial) {
        const int n = 8;
        Parents p(n);
        for (int v = 0; v < n; ++v) {
            for (int u = 0; u < v; ++u) {
                if (gen.GetDouble() < 0.3) p[v].push_back(u);
            }
        }
        VEK_pattern cpdag, again;
        cpdag.FromDag(p);
        Parents dag;
        ASSERT_EQ(cpdag.ToDag(dag), VEK_OKAY);
        again.FromDag(dag);
        EXPECT_EQ(again.Distance(cpdag, false), 0);
    }
    VEK_pattern cyclic;
    cyclic.SetSize(3);
    cyclic.SetEdge(0, 1, VEK_pattern::DIRECTED);
    cyclic.SetEdge(1, 2, VEK_pattern::DIRECTED);
    EXPECT_FALSE(cyclic.HasDirectedCycle());
    cyclic.SetEdge(2, 0, VEK_pattern::DIRECTED);
    EXPECT_TRUE(cyclic.HasDirectedCycle());
}

// Learnt structures on 20,000 (and 5,000) alarm records against the true network's
// CPDAG; the bounds hold the measured distances with little slack.
TEST(StructureRecovery, Alarm) {
    Sampled alarm("alarm", 20000);
    Sampled fewer("alarm", 5000);
    auto check = [&](const char* name, const VEK_pattern& p, int skeleton, int cpdag, const Sampled* s = nullptr) {
        const VEK_pattern& truth = (s ? *s : alarm).cpdag;
        const int ds = p.Distance(truth, true), dc = p.Distance(truth, false);
        std::printf("%s: SHD skeleton %d, CPDAG %d\n", name, ds, dc);
        EXPECT_LE(ds, skeleton) << name;
        EXPECT_LE(dc, cpdag) << name;
    };
    VEK_network net;
    VEK_pattern p;
    VEK_greedyThickThinning gtt;
    ASSERT_EQ(gtt.Learn(alarm.data, net), VEK_OKAY);
    p.FromDag(ParentsByColumn(net, alarm.data));
    check("GreedyThickThinning", p, 3, 3);
    VEK_bayesianSearch bs;
    bs.seed = 1;
    bs.scoreType = VEK_structureScore::BIC;
    ASSERT_EQ(bs.Learn(alarm.data, net), VEK_OKAY);
    p.FromDag(ParentsByColumn(net, alarm.data));
    check("BayesianSearch", p, 2, 2);
    bs.candidateSignificance = 0.0;  // pure score search, restarts only
    bs.scoreType = VEK_structureScore::K2;
    bs.iterations = 100;
    bs.linkProbability = 0.02;
    ASSERT_EQ(bs.Learn(alarm.data, net), VEK_OKAY);
    p.FromDag(ParentsByColumn(net, alarm.data));
    check("BayesianSearch without candidates", p, 4, 13);
    VEK_pc pc;
    ASSERT_EQ(pc.Learn(alarm.data, p), VEK_OKAY);
    check("PC", p, 4, 4);
    // Few records: colliders judged by one separating set go wrong.
    ASSERT_EQ(pc.Learn(fewer.data, p), VEK_OKAY);
    check("PC on 5,000 records", p, 5, 6, &fewer);
}

// Random knowledge on child's data: every learner keeps it.
TEST(StructureLearning, BackgroundKnowledgeIsObeyed) {
    Sampled child("child", 2000);
    const int n = child.data.GetNumberOfVariables();
    VEK_randGen gen(11);
    for (int trial = 0; trial < 6; ++trial) {
        // Tiers from a random order; forced arcs go up the order, forbidden
        // arcs anywhere else.
        std::vector<int> order(n);
        for (int i = 0; i < n; ++i) order[i] = i;
        gen.Shuffle(order.data(), n);
        std::vector<int> rank(n);
        for (int i = 0; i < n; ++i) rank[order[i]] = i;
        VEK_bkKnowledge bk;
        auto id = [&](int v) { return std::string(child.data.GetId(v)); };
        for (int v = 0; v < n; ++v) {
            if (gen.GetDouble() < 0.3) {
                ASSERT_EQ(bk.SetTier(id(v), rank[v] / 5), VEK_OKAY);
            }
        }
        for (int k = 0; k < 4; ++k) {
            const int a = gen.GetInt(n), b = gen.GetInt(n);
            if (a == b) continue;
            if (rank[a] < rank[b]) bk.AddForcedArc(id(a), id(b));
            else bk.AddForbiddenArc(id(a), id(b));
        }
        // Arcs the tiers forbid are forbidden; a forced arc may be refused
        // when it contradicts a tier, which leaves bk unchanged.
        VEK_bkConstraints c;
        ASSERT_EQ(bk.Resolve(child.data, c), VEK_OKAY);
        auto obeyed = [&](const Parents& p, const char* who) {
            for (int u = 0; u < n; ++u) {
                for (int v = 0; v < n; ++v) {
                    EXPECT_TRUE(!c.IsForced(u, v) || HasArc(p, u, v)) << who;
                    EXPECT_TRUE(c.Allows(u, v) || !HasArc(p, u, v)) << who;
                }
            }
        };
        VEK_network net;
        VEK_greedyThickThinning gtt;
        gtt.bk = bk;
        ASSERT_EQ(gtt.Learn(child.data, net), VEK_OKAY);
        obeyed(ParentsByColumn(net, child.data), "GreedyThickThinning");
        VEK_bayesianSearch bs;
        bs.bk = bk;
        bs.seed = trial + 1;
        bs.candidateSignificance = trial % 2 ? 0.0 : 0.01;
        bs.iterations = 5;
        ASSERT_EQ(bs.Learn(child.data, net), VEK_OKAY);
        obeyed(ParentsByColumn(net, child.data), "BayesianSearch");
        VEK_pc pc;
        pc.bk = bk;
        VEK_pattern p;
        ASSERT_EQ(pc.Learn(child.data, p), VEK_OKAY);
        for (int u = 0; u < n; ++u) {
            for (int v = 0; v < n; ++v) {
                EXPECT_TRUE(!c.IsForced(u, v) || p.GetEdge(u, v) == VEK_pattern::DIRECTED);
                EXPECT_TRUE(c.Allows(u, v) || p.GetEdge(u, v) == VEK_pattern::NONE);
            }
        }
        ASSERT_EQ(p.ToNetwork(child.data, net), VEK_OKAY);
        obeyed(ParentsByColumn(net, child.data), "PC");
    }
}

TEST(StructureLearning, ClassifierStructures) {
    Sampled asia("asia", 3000);
    const int n = asia.data.GetNumberOfVariables();
    VEK_network net;
    VEK_naiveBayes nb;
    nb.classVariable = asia.data.GetId(2);
    ASSERT_EQ(nb.Learn(asia.data, net), VEK_OKAY);
    Parents p = ParentsByColumn(net, asia.data);
    for (int v = 0; v < n; ++v) EXPECT_EQ(p[v], v == 2 ? std::vector<int>{} : std::vector<int>{2});
    // TAN: class parent of all, and the features form a tree (n - 2 arcs,
    // one parent at most besides the class).
    VEK_tan tan;
    tan.classVariable = asia.data.GetId(2);
    ASSERT_EQ(tan.Learn(asia.data, net), VEK_OKAY);
    p = ParentsByColumn(net, asia.data);
    int treeArcs = 0;
    for (int v = 0; v < n; ++v) {
        if (v == 2) continue;
        ASSERT_GE(p[v].size(), 1u);
        EXPECT_EQ(p[v][0], 2);
        EXPECT_LE(p[v].size(), 2u);
        treeArcs += static_cast<int>(p[v].size()) - 1;
    }
    EXPECT_EQ(treeArcs, n - 2);
    // Its weight, I(a; b | class) summed over the tree's arcs and counted
    // here from the records, is the largest any spanning tree has (Kruskal).
    const int records = asia.data.GetNumberOfRecords();
    auto cmi = [&](int a, int b) {
        std::map<std::vector<int>, double> abc, ac, bc, c;
        for (int r = 0; r < records; ++r) {
            const int x = asia.data.GetInt(a, r), y = asia.data.GetInt(b, r), z = asia.data.GetInt(2, r);
            ++abc[{x, y, z}], ++ac[{x, z}], ++bc[{y, z}], ++c[{z}];
        }
        double sum = 0.0;
        for (const auto& [k, m] : abc) {
            sum += m / records * std::log(m * c[{k[2]}] / (ac[{k[0], k[2]}] * bc[{k[1], k[2]}]));
        }
        return sum;
    };
    double learnt = 0.0, best = 0.0;
    std::vector<std::vector<double>> pairs;  // {weight, a, b}
    for (int v = 0; v < n; ++v) {
        if (p[v].size() == 2) learnt += cmi(p[v][1], v);
        for (int u = v + 1; u < n && v != 2; ++u) {
            if (u != 2) pairs.push_back({cmi(v, u), double(v), double(u)});
        }
    }
    std::sort(pairs.rbegin(), pairs.rend());
    std::vector<int> group(n);
    for (int v = 0; v < n; ++v) group[v] = v;
    for (const auto& e : pairs) {
        const int ga = group[int(e[1])], gb = group[int(e[2])];
        if (ga == gb) continue;
        best += e[0];
        for (int& g : group) g = g == gb ? ga : g;
    }
    EXPECT_NEAR(learnt, best, 1e-12);
    tan.classVariable = "nothing";
    std::string message;
    EXPECT_EQ(tan.Learn(asia.data, net, &message), VEK_NO_ITEM);
    EXPECT_EQ(message, "The class variable 'nothing' is not in the data");
}

}  // namespace
