// Value of information: mutual information on plain networks and the
// expected value of perfect information on influence diagrams, against
// enumeration of the joint distribution.
#include <map>

#include "analysis/valueOfInfo.h"
#include "analysisTestUtil.h"

using namespace antest;

namespace {

std::vector<int> Key(const std::vector<int>& x, const std::vector<int>& nodes) {
    std::vector<int> key;
    for (int h : nodes) key.push_back(x[static_cast<size_t>(h)]);
    return key;
}

// Mutual information in bits between the nodes (jointly) and the target.
double BruteMutualInformation(const VEK_network& net, const std::vector<int>& nodes, int target) {
    std::map<std::pair<std::vector<int>, int>, double> joint;
    std::map<std::vector<int>, double> px;
    std::map<int, double> pt;
    double pe = 0.0;
    ForEachJoint(net, [&](const std::vector<int>& x, double p) {
        joint[{Key(x, nodes), x[static_cast<size_t>(target)]}] += p;
        px[Key(x, nodes)] += p;
        pt[x[static_cast<size_t>(target)]] += p;
        pe += p;
    });
    double mi = 0.0;
    for (const auto& [k, p] : joint) mi += p / pe * std::log2(p * pe / (px[k.first] * pt[k.second]));
    return mi;
}

// Sum over the observations of the best expected utility, less the best
// without them; d is a decision without parents and u a utility.
double BruteEvpi(const VEK_network& net, int d, int u, const std::vector<int>& nodes) {
    std::map<std::vector<int>, std::map<int, double>> byObs;
    std::map<int, double> eu;
    ForEachJoint(net, [&](const std::vector<int>& x, double p) {
        const std::vector<int> parents(net.GetNode(u)->Parents().begin(), net.GetNode(u)->Parents().end());
        int idx = 0;
        for (int q : parents) idx = idx * net.GetDef(q)->GetNumberOfOutcomes() + x[static_cast<size_t>(q)];
        const double v = p * (*net.GetDef(u)->GetMatrix())[idx];
        eu[x[static_cast<size_t>(d)]] += v;
        byObs[Key(x, nodes)][x[static_cast<size_t>(d)]] += v;
    });
    auto best = [](const std::map<int, double>& m) {
        double b = -1e300;
        for (const auto& [k, v] : m) b = std::max(b, v);
        return b;
    };
    double informed = 0.0;
    for (const auto& [k, row] : byObs) informed += best(row);
    return informed - best(eu);
}

TEST(ValueOfInfo, MutualInformationMatchesEnumeration) {
    std::mt19937 rng(23);
    for (int trial = 0; trial < 25; ++trial) {
        VEK_network net;
        const std::vector<int> h = RandomNet(net, rng, 3 + trial % 6, 3);
        RandomEvidence(net, h, rng);
        const int target = h[rng() % h.size()];
        VEK_valueOfInfo voi(net);
        EXPECT_EQ(voi.Update(), VEK_OUT_OF_RANGE);  // no target yet
        ASSERT_EQ(voi.SetTarget(target), 0);
        std::vector<int> cands;
        for (int x : h)
            if (x != target && cands.size() < 3) cands.push_back(x);
        for (int x : cands) ASSERT_EQ(voi.AddNode(x), 0);
        EXPECT_EQ(voi.AddNode(cands[0]), VEK_OUT_OF_RANGE);
        ASSERT_EQ(voi.Update(), 0) << trial;
        for (size_t i = 0; i < cands.size(); ++i)
            EXPECT_NEAR(voi.GetValues()[i], BruteMutualInformation(net, {cands[i]}, target), 1e-10) << trial;
        EXPECT_NEAR(voi.GetJointValue(), BruteMutualInformation(net, cands, target), 1e-10) << trial;
    }
}

TEST(ValueOfInfo, PerfectInformationOnInfluenceDiagrams) {
    // The oil wildcatter: drilling a dry (.5), wet (.3) or soaking (.2) well
    // pays -70, 50 or 200. Without information drilling is worth 20; seeing
    // the seismic sounding first is worth 32.5, so its information is worth
    // 12.5 (Raiffa's classic figures), and knowing the oil itself 55 - 20.
    VEK_network oil;
    const int o = AddNode(oil, "Oil", 3), s = AddNode(oil, "Seismic", 3), d = AddNode(oil, "Drill", 2, VEK_LIST);
    const int u = oil.AddNode(VEK_TABLE, "Payoff");
    oil.AddArc(o, s);
    oil.AddArc(o, u);
    oil.AddArc(d, u);
    oil.GetDef(o)->SetDefinition(std::vector<double>{0.5, 0.3, 0.2});
    oil.GetDef(s)->SetDefinition(std::vector<double>{0.1, 0.3, 0.6, 0.3, 0.4, 0.3, 0.5, 0.4, 0.1});
    oil.GetDef(u)->SetDefinition(std::vector<double>{-70.0, 0.0, 50.0, 0.0, 200.0, 0.0});
    VEK_valueOfInfo voi(oil);
    ASSERT_EQ(voi.SetDecision(d), 0);
    ASSERT_EQ(voi.AddNode(s), 0);
    ASSERT_EQ(voi.AddNode(o), 0);
    ASSERT_EQ(voi.Update(), 0);
    EXPECT_NEAR(voi.GetValues()[0], 12.5, 1e-9);
    EXPECT_NEAR(voi.GetValues()[1], 35.0, 1e-9);
    EXPECT_NEAR(voi.GetJointValue(), 35.0, 1e-9);

    // Random diagrams: a decision above the last chance node and a utility
    // over the decision and one chance node.
    std::mt19937 rng(29);
    for (int trial = 0; trial < 20; ++trial) {
        VEK_network net;
        std::vector<int> chance = RandomNet(net, rng, 2 + trial % 4, 3);
        const int dec = AddNode(net, "D", 2 + static_cast<int>(rng() % 2), VEK_LIST);
        const int util = net.AddNode(VEK_TABLE, "U");
        net.AddArc(dec, chance.back());
        net.AddArc(dec, util);
        net.AddArc(chance[rng() % chance.size()], util);
        RandomTables(net, chance, rng, 0.0);
        std::vector<double> ut(static_cast<size_t>(net.GetDef(util)->GetMatrix()->GetSize()));
        for (double& e : ut) e = static_cast<double>(rng() % 2000) / 100.0 - 10.0;
        net.GetDef(util)->SetDefinition(ut);
        const std::vector<int> cands(chance.begin(), chance.end() - 1);
        VEK_valueOfInfo v(net);
        ASSERT_EQ(v.SetDecision(dec), 0);
        for (int c : cands) ASSERT_EQ(v.AddNode(c), 0);
        ASSERT_EQ(v.Update(), 0) << trial;
        for (size_t i = 0; i < cands.size(); ++i)
            EXPECT_NEAR(v.GetValues()[i], BruteEvpi(net, dec, util, {cands[i]}), 1e-9) << trial;
        EXPECT_NEAR(v.GetJointValue(), BruteEvpi(net, dec, util, cands), 1e-9) << trial;
        // A node below the decision cannot be observed before it.
        ASSERT_EQ(v.AddNode(chance.back()), 0);
        EXPECT_EQ(v.Update(), VEK_OUT_OF_RANGE);
    }
}

}  // namespace
