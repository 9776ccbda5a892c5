// Posteriors and probabilities of evidence of the shared reference networks,
// computed independently, for every exact algorithm with relevance on and
// off, without targets and with random target subsets. Only the networks
// that update in milliseconds are here; the larger ones are checked by the
// inference benchmark.
#include <gtest/gtest.h>

#include <random>

#include "infTestUtil.h"

using namespace inftest;

namespace {

class Reference : public ::testing::TestWithParam<const char*> {};

}  // namespace

TEST_P(Reference, PosteriorsAndProbabilityOfEvidence) {
    const std::string name = GetParam();
    std::vector<Scenario> scenarios;
    VEK_network net;
    // A reader regression must fail here, not hide the reference checks.
    ASSERT_TRUE(LoadNetwork(name, net, scenarios)) << name;

    std::mt19937 rng(static_cast<unsigned>(name.size()));
    for (size_t k = 0; k < scenarios.size(); ++k) {
        const Scenario& sc = scenarios[k];
        Enter(net, sc);
        for (bool targets : {false, true}) {
            net.ClearAllTargets();
            if (targets) {
                for (int h = 0; h < net.GetSlotCount(); ++h) {
                    if (net.IsValidNode(h) && rng() % 10 == 0) {
                        ASSERT_EQ(net.SetTarget(h, true), 0);
                    }
                }
            }
            for (int alg : {0, 10, 11, 12}) {
                for (bool relevance : {true, false}) {
                    net.SetDefaultBNAlgorithm(alg);
                    net.EnableRelevance(relevance);
                    net.InvalidateAllBeliefs();
                    char what[96];
                    std::snprintf(what, sizeof what, "%s scenario %zu alg %d relevance %d targets %d", name.c_str(), k,
                                  alg, static_cast<int>(relevance), static_cast<int>(targets));
                    ASSERT_EQ(net.UpdateBeliefs(), 0) << what;
                    const double err = MaxError(net, sc);
                    EXPECT_GE(err, 0.0) << what << ": beliefs missing";
                    EXPECT_LE(err, 1e-9) << what;
                    double p = -1.0;
                    ASSERT_EQ(net.ProbEvidence(p), 0) << what;
                    EXPECT_NEAR(p, sc.pEvidence, 1e-9 * sc.pEvidence) << what;
                }
            }
        }
        net.EnableRelevance(true);
    }
}

INSTANTIATE_TEST_SUITE_P(SmallNetworks, Reference,
                         ::testing::Values("asia", "cancer", "earthquake", "survey", "sachs", "child", "alarm",
                                           "insurance", "hailfinder", "hepar2", "win95pts", "andes", "pigs"),
                         [](const ::testing::TestParamInfo<const char*>& info) { return std::string(info.param); });
