// Most probable explanation and MAP against the full joint on random
// networks with zeros in their tables and hard and virtual evidence.
#include <map>

#include "analysis/map.h"
#include "analysis/mpe.h"
#include "analysisTestUtil.h"

using namespace antest;

namespace {

// A random network whose joint has at most limit configurations.
std::vector<int> SmallNet(VEK_network& net, std::mt19937& rng, int n, double limit = 2e5) {
    while (true) {
        net.DeleteAllNodes();
        std::vector<int> h = RandomNet(net, rng, n);
        double size = 1.0;
        for (int x : h) size *= net.GetDef(x)->GetNumberOfOutcomes();
        if (size <= limit) return h;
    }
}

// Brute-force MAP over the nodes: P(assignment, evidence) of every
// assignment into scores, and the best.
double BruteMap(const VEK_network& net, std::vector<int> nodes, std::map<std::vector<int>, double>& scores) {
    ForEachJoint(net, [&](const std::vector<int>& x, double p) {
        std::vector<int> key;
        for (int h : nodes) key.push_back(x[static_cast<size_t>(h)]);
        scores[key] += p;
    });
    double best = 0.0;
    for (const auto& [k, p] : scores) best = std::max(best, p);
    return best;
}

TEST(Mpe, MatchesEnumerationOnRandomNetworks) {
    std::mt19937 rng(11);
    for (int trial = 0; trial < 60; ++trial) {
        VEK_network net;
        const std::vector<int> h = SmallNet(net, rng, 3 + trial % 10);
        if (trial % 3 != 0) RandomEvidence(net, h, rng, trial % 3 == 2);
        std::map<std::vector<int>, double> scores;
        const double best = BruteMap(net, h, scores);

        VEK_mpeResult r;
        ASSERT_EQ(VEK_mostProbableExplanation(net, r), 0) << trial;
        ASSERT_EQ(r.handles, h);
        EXPECT_NEAR(r.probability, best, 1e-12 * best) << trial;
        EXPECT_NEAR(r.logProbability, std::log(best), 1e-9) << trial;
        // The assignment itself reaches the maximum and keeps the evidence.
        EXPECT_NEAR(scores[r.outcomes], best, 1e-12 * best) << trial;
        for (size_t i = 0; i < h.size(); ++i) {
            if (!net.GetVal(h[i])->HasHardEvidence()) continue;
            EXPECT_EQ(r.outcomes[i], net.GetVal(h[i])->GetEvidence());
        }
    }
}

TEST(Map, ExactAndAnnealedAgainstEnumeration) {
    std::mt19937 rng(5);
    int trials = 0, annealedHits = 0;
    for (int trial = 0; trial < 60; ++trial) {
        VEK_network net;
        const std::vector<int> h = SmallNet(net, rng, 4 + trial % 8);
        RandomEvidence(net, h, rng);
        std::vector<int> free;
        for (int x : h)
            if (!net.GetVal(x)->HasHardEvidence()) free.push_back(x);
        std::shuffle(free.begin(), free.end(), rng);
        if (free.empty()) continue;
        free.resize(1 + rng() % free.size());
        std::map<std::vector<int>, double> scores;
        const double best = BruteMap(net, free, scores);

        VEK_mapResult exact;
        ASSERT_EQ(VEK_exactMap(net, free, exact), 0) << trial;
        EXPECT_EQ(exact.handles, free);
        EXPECT_NEAR(exact.probability, best, 1e-12 * best) << trial;
        EXPECT_NEAR(scores[exact.outcomes], best, 1e-12 * best) << trial;

        VEK_mapResult annealed;
        net.SetRandSeed(trial + 1);
        ASSERT_EQ(VEK_annealedMap(net, free, VEK_AnnealedMAPParams{}, annealed), 0) << trial;
        EXPECT_NEAR(annealed.probability, scores[annealed.outcomes], 1e-12 * best) << trial;
        ++trials;
        if (annealed.probability >= best * (1 - 1e-12)) ++annealedHits;
    }
    EXPECT_GE(annealedHits, 0.95 * trials);
}

TEST(Map, RefusesBadSetsAndTuning) {
    VEK_network net;
    const int a = AddNode(net, "a", 2), b = AddNode(net, "b", 3);
    net.AddArc(a, b);
    net.GetVal(b)->SetEvidence(1);
    VEK_mapResult r;
    EXPECT_EQ(VEK_exactMap(net, {a, a}, r), VEK_OUT_OF_RANGE);
    EXPECT_EQ(VEK_exactMap(net, {a, b}, r), VEK_OUT_OF_RANGE);
    EXPECT_EQ(VEK_exactMap(net, {a, 7}, r), VEK_OUT_OF_RANGE);
    EXPECT_EQ(VEK_exactMap(net, {}, r), VEK_OUT_OF_RANGE);
    VEK_AnnealedMAPParams p;
    p.tMin = 1.0;
    EXPECT_EQ(VEK_annealedMap(net, {a}, p, r), VEK_OUT_OF_RANGE);
    p = VEK_AnnealedMAPParams{};
    p.stopAfter = -1;
    EXPECT_EQ(VEK_annealedMap(net, {a}, p, r), VEK_OUT_OF_RANGE);
}

}  // namespace
