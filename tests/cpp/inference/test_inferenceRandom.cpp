// Exact inference on random small networks against enumeration of the full
// joint: every algorithm id, relevance on and off, with and without targets,
// hard, virtual and propagated evidence, truth tables, interventions and
// tables with zeros.
#include <gtest/gtest.h>

#include <random>

#include "inference/inferenceCache.h"
#include "infTestUtil.h"
#include "network/truthTable.h"

using namespace inftest;

namespace {

struct RandomModel {
    VEK_network net;
    std::vector<int> handles;
};

void Build(RandomModel& r, std::mt19937& rng, int n, bool truthTables, bool chain = false) {
    r.handles = inftest::RandomNet(r.net, rng, n, 4, 0.15, truthTables, chain);
}

// Every node whose value is valid must hold the exact posterior; nodes that
// must have been computed must be valid.
void ExpectPosteriors(const VEK_network& net, const Enumeration& ref, const std::vector<int>& mustBeValid,
                      const std::string& what) {
    for (const auto& [h, post] : ref.posterior) {
        const VEK_nodeVal* v = net.GetVal(h);
        const bool required = std::find(mustBeValid.begin(), mustBeValid.end(), h) != mustBeValid.end();
        if (required) {
            EXPECT_TRUE(v->IsValueValid()) << what << " node " << net.GetNodeId(h);
        }
        if (!v->IsValueValid()) continue;
        const std::vector<double> b = Beliefs(net, h);
        ASSERT_EQ(b.size(), post.size()) << what;
        for (size_t s = 0; s < post.size(); ++s)
            EXPECT_NEAR(b[s], post[s], 1e-9) << what << " node " << net.GetNodeId(h) << " state " << s;
    }
}

struct Case {
    std::map<int, int> evidence;
    std::map<int, std::vector<double>> likelihood;
    std::vector<int> targets;
};

Case DrawCase(RandomModel& r, std::mt19937& rng, bool allowVirtual) {
    Case c;
    std::uniform_real_distribution<double> u(0.0, 1.0);
    const std::vector<int> x = PossibleState(r.net, rng);
    for (int h : r.handles) {
        const double d = u(rng);
        if (d < 0.3) {
            c.evidence[h] = x[static_cast<size_t>(h)];
        } else if (allowVirtual && d < 0.45) {
            const int k = r.net.GetDef(h)->GetNumberOfOutcomes();
            std::vector<double> l(static_cast<size_t>(k));
            double sum = 0.0;
            for (double& e : l) sum += (e = 0.05 + u(rng));
            for (double& e : l) e /= sum;
            c.likelihood[h] = l;
        }
        if (u(rng) < 0.3) c.targets.push_back(h);
    }
    return c;
}

// Enters the case; the likelihoods are read back as the value stores them.
void Enter(RandomModel& r, Case& c, bool withTargets) {
    VEK_network& net = r.net;
    net.ClearAllEvidence();
    net.ClearAllTargets();
    for (auto& [h, s] : c.evidence) ASSERT_EQ(net.GetVal(h)->SetEvidence(s), 0) << "evidence " << h;
    for (auto& [h, l] : c.likelihood) {
        ASSERT_EQ(net.GetVal(h)->SetVirtualEvidence(l), 0);
        ASSERT_EQ(net.GetVal(h)->GetVirtualEvidence(l), 0);
    }
    if (withTargets) {
        for (int h : c.targets) ASSERT_EQ(net.SetTarget(h, true), 0);
    }
}

std::vector<int> Required(const RandomModel& r, const Case& c, bool withTargets) {
    if (withTargets && !c.targets.empty()) return c.targets;
    return r.handles;
}

}  // namespace

TEST(InferenceRandom, EveryAlgorithmMatchesEnumeration) {
    std::mt19937 rng(20240601);
    for (int trial = 0; trial < 60; ++trial) {
        RandomModel r;
        const int n = 2 + static_cast<int>(rng() % 11);
        Build(r, rng, n, trial % 2 == 1);
        Case c = DrawCase(r, rng, true);
        for (bool withTargets : {false, true}) {
            Enter(r, c, withTargets);
            const Enumeration ref = Enumerate(r.net, c.evidence, c.likelihood);
            ASSERT_GT(ref.pEvidence, 0.0);
            for (int alg : {0, 10, 11, 12}) {
                // Relevance twice: the second run takes the tree chosen for
                // the evidence pattern by the first.
                for (bool relevance : {true, true, false}) {
                    r.net.SetDefaultBNAlgorithm(alg);
                    r.net.EnableRelevance(relevance);
                    r.net.InvalidateAllBeliefs();
                    char buf[96];
                    std::snprintf(buf, sizeof buf, "trial %d alg %d relevance %d targets %d", trial, alg,
                                  static_cast<int>(relevance), static_cast<int>(withTargets));
                    const std::string what = buf;
                    ASSERT_EQ(r.net.UpdateBeliefs(), 0) << what;
                    ExpectPosteriors(r.net, ref, Required(r, c, withTargets), what);
                    double p = -1.0;
                    ASSERT_EQ(r.net.ProbEvidence(p), 0) << what;
                    EXPECT_NEAR(p, ref.pEvidence, 1e-9 * ref.pEvidence) << what;
                }
            }
            r.net.EnableRelevance(true);
        }
    }
}

TEST(InferenceRandom, DecompositionsInSmallBatchesMatchEnumeration) {
    std::mt19937 rng(7);
    for (int trial = 0; trial < 25; ++trial) {
        RandomModel r;
        Build(r, rng, 6 + static_cast<int>(rng() % 7), false);
        // Batches of three and a tiny clique limit force the halving down to
        // single nodes, whose trees are built whatever their size.
        r.net.UserProperties().AddProperty("VEK_REL_DECOMP_THRESHOLD", "3");
        r.net.UserProperties().AddProperty("VEK_REL_DECOMP_THRESHOLD3", "6");
        r.net.UserProperties().AddProperty("VEK_REL_DECOMP_THRESHOLD2", "6");
        Case c = DrawCase(r, rng, false);
        for (bool withTargets : {false, true}) {
            Enter(r, c, withTargets);
            const Enumeration ref = Enumerate(r.net, c.evidence);
            for (int alg : {11, 12}) {
                r.net.SetDefaultBNAlgorithm(alg);
                r.net.InvalidateAllBeliefs();
                ASSERT_EQ(r.net.UpdateBeliefs(), 0);
                ExpectPosteriors(r.net, ref, Required(r, c, withTargets), Name("decomposition ", alg));
                // The targets are as they were before the run.
                EXPECT_EQ(r.net.GetTargetCount(), withTargets ? static_cast<int>(c.targets.size()) : 0);
                for (int h : r.handles)
                    EXPECT_EQ(r.net.IsTarget(h), withTargets && std::count(c.targets.begin(), c.targets.end(), h) > 0);
            }
        }
    }
}

TEST(InferenceRandom, ClusteringFallsBackToDecompositionWhenTheTreeIsTooBig) {
    std::mt19937 rng(11);
    for (int trial = 0; trial < 10; ++trial) {
        RandomModel r;
        Build(r, rng, 8 + static_cast<int>(rng() % 4), false, true);
        r.net.UserProperties().AddProperty("VEK_CLUSTERING_INITIAL_THRESHOLD", "4");
        r.net.UserProperties().AddProperty("VEK_REL_DECOMP_THRESHOLD", "2");
        r.net.UserProperties().AddProperty("VEK_REL_DECOMP_THRESHOLD3", "4");
        // No evidence: the chain stays in one piece, far above the limit.
        Case c;
        const Enumeration ref = Enumerate(r.net, c.evidence);
        ASSERT_EQ(r.net.UpdateBeliefs(), 0);
        ExpectPosteriors(r.net, ref, r.handles, "fallback");

        // With the fallback disabled the same update fails.
        r.net.UserProperties().AddProperty("VEK_REL_DECOMP_DISABLE_FALLBACK", "");
        r.net.InvalidateAllBeliefs();
        EXPECT_EQ(r.net.UpdateBeliefs(), VEK_OUT_OF_MEMORY);
    }
}

TEST(InferenceRandom, InterventionsCutTheParentsOff) {
    std::mt19937 rng(99);
    for (int trial = 0; trial < 20; ++trial) {
        RandomModel r;
        Build(r, rng, 4 + static_cast<int>(rng() % 6), false);
        // Control a node none of whose descendants carries evidence.
        const int controlled = r.handles[static_cast<size_t>(rng() % r.handles.size())];
        // An outcome that the node's table allows somewhere (setting the value
        // goes through the evidence checks).
        const VEK_Dmatrix* t = r.net.GetDef(controlled)->GetMatrix();
        const int k = t->GetLastDimensionSize();
        int state = static_cast<int>(rng() % static_cast<unsigned>(k));
        for (bool allowed = false; !allowed; state = (state + 1) % k) {
            for (int i = state; i < t->GetSize() && !allowed; i += k) allowed = (*t)[i] > 0.0;
            if (allowed) break;
        }
        ASSERT_EQ(r.net.GetVal(controlled)->ControlValue(state), 0);
        std::map<int, int> evidence;
        VEK_intArray desc;
        r.net.GetDescendants(controlled, desc);
        for (int h : r.handles) {
            if (h == controlled || desc.IsInList(h) || rng() % 3 != 0) continue;
            evidence[h] = 0;
        }
        // Keep only evidence that is possible under the intervention.
        std::map<int, int> kept;
        for (auto [h, s] : evidence) {
            kept[h] = s;
            if (Enumerate(r.net, kept, {}, {{controlled, state}}).pEvidence == 0.0) kept.erase(h);
        }
        for (auto [h, s] : kept) ASSERT_EQ(r.net.GetVal(h)->SetEvidence(s), 0);
        const Enumeration ref = Enumerate(r.net, kept, {}, {{controlled, state}});
        for (int alg : {0, 10}) {
            r.net.SetDefaultBNAlgorithm(alg);
            r.net.InvalidateAllBeliefs();
            ASSERT_EQ(r.net.UpdateBeliefs(), 0);
            ExpectPosteriors(r.net, ref, r.handles, "intervention");
        }
        double p = 0.0;
        r.net.SetDefaultBNAlgorithm(0);
        ASSERT_EQ(r.net.ProbEvidence(p), 0);
        EXPECT_NEAR(p, ref.pEvidence, 1e-9 * ref.pEvidence);
    }
}

TEST(InferenceRandom, CachedTreesFollowEvidenceValuesAndTableChanges) {
    std::mt19937 rng(5);
    RandomModel r;
    Build(r, rng, 10, false);
    const int e = r.handles[9];
    for (int round = 0; round < 6; ++round) {
        // Same evidence pattern, other value: the compiled tree is reused.
        r.net.ClearAllEvidence();
        const Enumeration prior = Enumerate(r.net, {});
        const int s = round % r.net.GetDef(e)->GetNumberOfOutcomes();
        if (prior.posterior.at(e)[static_cast<size_t>(s)] == 0.0) continue;
        ASSERT_EQ(r.net.GetVal(e)->SetEvidence(s), 0);
        ASSERT_EQ(r.net.UpdateBeliefs(), 0);
        ExpectPosteriors(r.net, Enumerate(r.net, {{e, s}}), r.handles, Name("round ", round));
        // New numbers in a table, through the definition.
        RandomTables(r.net, {r.handles[static_cast<size_t>(round % 9)]}, rng, 0.0);
        r.net.InvalidateAllBeliefs();
    }
    EXPECT_LE(r.net.InferenceCache().TreeCount(), VEK_inferenceCache::kMaxTrees);
}
