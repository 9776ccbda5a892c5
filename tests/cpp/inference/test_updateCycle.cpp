// The update cycle: dispatch, listener, immediate updating, invalidation,
// targets, the relevance hooks (impossible outcomes, deterministic
// propagation) and the failures of the join tree (impossible evidence, size
// and memory limits, invalid tables).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "infTestUtil.h"
#include "network/dmatrix.h"
#include "network/doubleArray.h"
#include "network/truthTable.h"

using namespace inftest;

namespace {

struct CountingListener : VEK_updateListener {
    int calls = 0;
    int last = 1;
    bool throwOnce = false;
    void OnUpdate(VEK_network&, int result) override {
        ++calls;
        last = result;
        if (throwOnce) {
            throwOnce = false;
            throw std::runtime_error("listener failed");
        }
    }
};

// A grid of rows x cols nodes, each with the node above and the one to the
// left as parents.
void Grid(VEK_network& net, int rows, int cols, int states, std::vector<int>& h) {
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) h.push_back(AddNode(net, Name("g", r * 1000 + c), states));
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) {
            if (r > 0) net.AddArc(h[static_cast<size_t>((r - 1) * cols + c)], h[static_cast<size_t>(r * cols + c)]);
            if (c > 0) net.AddArc(h[static_cast<size_t>(r * cols + c - 1)], h[static_cast<size_t>(r * cols + c)]);
        }
}

}  // namespace

TEST(UpdateCycle, ListenerSeesEveryResultAndAnExceptionLeavesTheNetworkUsable) {
    Pair p;
    CountingListener l;
    p.net.SetUpdateListener(&l);
    // Unknown algorithm ids are ignored.
    p.net.SetDefaultBNAlgorithm(2);
    p.net.SetDefaultBNAlgorithm(13);
    p.net.SetDefaultBNAlgorithm(-1);
    EXPECT_EQ(p.net.GetDefaultBNAlgorithm(), 2);
    EXPECT_EQ(p.net.UpdateBeliefs(), 0);
    EXPECT_NEAR(Beliefs(p.net, p.b)[0], 0.4 + 0.6 * 0.3, 1e-15);
    EXPECT_EQ(l.calls, 1);
    EXPECT_EQ(l.last, 0);
    EXPECT_FALSE(p.net.IsUpdating());

    l.throwOnce = true;
    EXPECT_THROW(p.net.UpdateBeliefs(), std::runtime_error);
    EXPECT_FALSE(p.net.IsUpdating());
    ASSERT_EQ(p.net.GetVal(p.a)->SetEvidence(1), 0);
    EXPECT_EQ(p.net.UpdateBeliefs(), 0);
    EXPECT_NEAR(Beliefs(p.net, p.b)[1], 0.7, 1e-15);
    p.net.SetUpdateListener(nullptr);
}

TEST(UpdateCycle, ImmediateUpdatingRunsOncePerChange) {
    Pair p;
    CountingListener l;
    p.net.SetUpdateListener(&l);
    EXPECT_EQ(p.net.SetUpdateImmediate(true), 0);
    EXPECT_EQ(p.net.SetUpdateImmediate(true), 0);
    EXPECT_EQ(l.calls, 1);
    ASSERT_EQ(p.net.GetVal(p.a)->SetEvidence(0), 0);
    EXPECT_EQ(l.calls, 2);
    EXPECT_TRUE(p.net.GetVal(p.b)->IsValueValid());
    EXPECT_NEAR(Beliefs(p.net, p.b)[0], 1.0, 1e-15);
    ASSERT_EQ(p.net.SetTarget(p.b, true), 0);
    EXPECT_EQ(l.calls, 3);
    EXPECT_EQ(p.net.SetUpdateImmediate(false), 0);
    p.net.GetVal(p.a)->ClearEvidence();
    EXPECT_EQ(l.calls, 3);
    EXPECT_FALSE(p.net.GetVal(p.b)->IsValueValid());
    p.net.SetUpdateListener(nullptr);
}

TEST(UpdateCycle, InvalidationKeepsEvidenceAndTargetsSelectWhatIsComputed) {
    VEK_network net;
    const int a = AddNode(net, "A", 2), b = AddNode(net, "B", 2), c = AddNode(net, "C", 2), d = AddNode(net, "D", 2);
    net.AddArc(a, b);
    net.AddArc(b, c);
    net.AddArc(b, d);
    ASSERT_EQ(net.GetVal(c)->SetEvidence(1), 0);
    ASSERT_EQ(net.UpdateBeliefs(), 0);
    for (int h : {a, b, c, d}) EXPECT_TRUE(net.GetVal(h)->IsValueValid());
    net.InvalidateAllBeliefs();
    for (int h : {a, b, d}) EXPECT_FALSE(net.GetVal(h)->IsValueValid());
    EXPECT_TRUE(net.GetVal(c)->IsValueValid());

    EXPECT_EQ(net.SetTarget(99, true), VEK_OUT_OF_RANGE);
    EXPECT_EQ(net.SetTarget(a, false), VEK_INVALID_VALUE);
    ASSERT_EQ(net.SetTarget(a, true), 0);
    EXPECT_EQ(net.SetTarget(a, true), VEK_INVALID_VALUE);
    EXPECT_EQ(net.GetTargetCount(), 1);
    ASSERT_EQ(net.UpdateBeliefs(), 0);
    EXPECT_TRUE(net.GetVal(a)->IsValueValid());
    // D has no evidence below it and is no target: barren, not computed.
    EXPECT_FALSE(net.GetVal(d)->IsValueValid());
    ASSERT_EQ(net.ClearAllTargets(), 0);
    EXPECT_EQ(net.GetTargetCount(), 0);
}

TEST(UpdateCycle, TableEditsMakeBeliefsStaleAndTheNextUpdateUsesThem) {
    VEK_network net;
    const int a = AddNode(net, "A", 2), b = AddNode(net, "B", 2);
    net.AddArc(a, b);
    ASSERT_EQ(SetTable(net, a, {0.3, 0.7}), 0);
    ASSERT_EQ(SetTable(net, b, {0.9, 0.1, 0.2, 0.8}), 0);
    ASSERT_EQ(net.GetVal(b)->SetEvidence(0), 0);
    ASSERT_EQ(net.UpdateBeliefs(), 0);
    EXPECT_NEAR(Beliefs(net, a)[0], 0.27 / (0.27 + 0.14), 1e-15);

    // Each form of SetDefinition, straight on the definition.
    ASSERT_EQ(net.GetDef(a)->SetDefinition(std::vector<double>{0.6, 0.4}), 0);
    EXPECT_FALSE(net.GetVal(a)->IsValueValid());
    ASSERT_EQ(net.UpdateBeliefs(), 0);
    EXPECT_NEAR(Beliefs(net, a)[0], 0.54 / (0.54 + 0.08), 1e-15);

    VEK_doubleArray column;
    for (double v : {0.5, 0.5, 0.2, 0.8}) column.Add(v);
    ASSERT_EQ(net.GetDef(b)->SetDefinition(column), 0);
    EXPECT_FALSE(net.GetVal(a)->IsValueValid());
    ASSERT_EQ(net.UpdateBeliefs(), 0);
    EXPECT_NEAR(Beliefs(net, a)[0], 0.3 / (0.3 + 0.08), 1e-15);

    VEK_Dmatrix table = net.GetDef(a)->GetParameters();
    table[0] = 0.1;
    table[1] = 0.9;
    ASSERT_EQ(net.GetDef(a)->SetDefinition(table), 0);
    ASSERT_EQ(net.UpdateBeliefs(), 0);
    EXPECT_NEAR(Beliefs(net, a)[0], 0.05 / (0.05 + 0.18), 1e-15);

    // A refused edit changes nothing and keeps the beliefs.
    EXPECT_EQ(net.GetDef(a)->SetDefinition(std::vector<double>{1.0}), VEK_OUT_OF_RANGE);
    EXPECT_TRUE(net.GetVal(a)->IsValueValid());
}

TEST(UpdateCycle, ImpossibleOutcomeIsRefusedWhenSet) {
    Pair p;
    p.net.Logger().Clear();
    EXPECT_EQ(p.net.GetVal(p.b)->SetEvidence(2), VEK_OUT_OF_RANGE);
    EXPECT_EQ(LastMessage(p.net), "Outcome [s2] of node [B] is impossible");
    EXPECT_FALSE(p.net.GetVal(p.b)->IsEvidence());
    // Outcome 1 is impossible only for A = s0; that is found by the update.
    EXPECT_EQ(p.net.GetVal(p.b)->SetEvidence(1), 0);

    // Without relevance reasoning nothing is checked when evidence is set.
    VEK_network& net = p.net;
    net.GetVal(p.b)->ClearEvidence();
    {
        VEK_relevanceDelay delay(net);
        EXPECT_FALSE(net.IsRelevanceEnabled());
        EXPECT_EQ(net.GetVal(p.b)->SetEvidence(2), 0);
    }
    EXPECT_TRUE(net.IsRelevanceEnabled());
    net.Logger().Clear();
    EXPECT_EQ(net.UpdateBeliefs(), VEK_IMPOSSIBLE_EVIDENCE);
}

TEST(UpdateCycle, ImpossibleEvidenceEndsTheUpdateAndTheNetworkRecovers) {
    for (int alg : {0, 11, 12}) {
        for (bool relevance : {true, false}) {
            Pair p;
            p.net.SetDefaultBNAlgorithm(alg);
            p.net.EnableRelevance(relevance);
            ASSERT_EQ(p.net.GetVal(p.a)->SetEvidence(0), 0);
            ASSERT_EQ(p.net.GetVal(p.b)->SetEvidence(1), 0);
            p.net.Logger().Clear();
            EXPECT_EQ(p.net.UpdateBeliefs(), VEK_IMPOSSIBLE_EVIDENCE) << alg << relevance;
            EXPECT_EQ(p.net.Logger().GetError(0), VEK_IMPOSSIBLE_EVIDENCE);
            EXPECT_EQ(std::string(p.net.Logger().GetErrorMessage(0)).rfind("All potential entries are zeros for node ", 0),
                      0u);
            double pe = -1.0;
            EXPECT_EQ(p.net.ProbEvidence(pe), 0);
            EXPECT_EQ(pe, 0.0);

            p.net.GetVal(p.a)->ClearEvidence();
            EXPECT_EQ(p.net.UpdateBeliefs(), 0);
            EXPECT_NEAR(Beliefs(p.net, p.a)[1], 1.0, 1e-15);
        }
    }
    // The older join tree reports the node but, as its contract says, ends
    // with success; the node's value stays invalid.
    Pair p;
    p.net.SetDefaultBNAlgorithm(10);
    p.net.EnableRelevance(false);
    const int c = AddNode(p.net, "C", 2);
    p.net.AddArc(p.b, c);
    ASSERT_EQ(p.net.GetVal(p.a)->SetEvidence(0), 0);
    ASSERT_EQ(p.net.GetVal(p.b)->SetEvidence(1), 0);
    p.net.Logger().Clear();
    EXPECT_EQ(p.net.UpdateBeliefs(), 0);
    EXPECT_TRUE(Logged(p.net, "All potential entries are zeros for node C"));
    EXPECT_FALSE(p.net.GetVal(c)->IsValueValid());
}

TEST(UpdateCycle, DeterministicEvidenceIsPropagated) {
    VEK_network net;
    const int x = AddNode(net, "X", 2), y = AddNode(net, "Y", 3), z = AddNode(net, "Z", 2, VEK_TRUTHTABLE);
    const int w = AddNode(net, "W", 2, VEK_TRUTHTABLE);
    net.AddArc(x, z);
    net.AddArc(y, z);
    net.AddArc(z, w);
    SetTable(net, x, {0.3, 0.7});
    SetTable(net, y, {0.2, 0.3, 0.5});
    // Z = s1 only for X = s1, Y = s2; W copies Z.
    SetTable(net, z, {1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 0, 1});
    SetTable(net, w, {1, 0, 0, 1});

    // Backwards: one parent configuration is left.
    ASSERT_EQ(net.GetVal(w)->SetEvidence(1), 0);
    for (auto [h, s] : {std::pair{z, 1}, {x, 1}, {y, 2}}) {
        EXPECT_TRUE(net.GetVal(h)->IsPropagatedEvidence()) << h;
        EXPECT_EQ(net.GetVal(h)->GetEvidence(), s) << h;
    }
    ASSERT_EQ(net.UpdateBeliefs(), 0);
    double pe = 0.0;
    ASSERT_EQ(net.ProbEvidence(pe), 0);
    EXPECT_NEAR(pe, 0.7 * 0.5, 1e-15);
    // Clearing the source takes the consequences away.
    ASSERT_EQ(net.GetVal(w)->ClearEvidence(), 0);
    for (int h : {x, y, z}) EXPECT_FALSE(net.GetVal(h)->IsPropagatedEvidence());

    // Forwards: both parents observed fix Z and then W.
    ASSERT_EQ(net.GetVal(x)->SetEvidence(0), 0);
    EXPECT_FALSE(net.GetVal(z)->IsPropagatedEvidence());
    ASSERT_EQ(net.GetVal(y)->SetEvidence(2), 0);
    EXPECT_EQ(net.GetVal(z)->GetEvidence(), 0);
    EXPECT_EQ(net.GetVal(w)->GetEvidence(), 0);
    EXPECT_TRUE(net.GetVal(w)->IsPropagatedEvidence());
    // Evidence that contradicts a propagated outcome is refused by the value.
    EXPECT_EQ(net.GetVal(w)->SetEvidence(1), VEK_EVIDENCE_CONFLICT);
    net.ClearAllEvidence();

    // With propagation off in the flags nothing is derived.
    net.SetFlags(net.GetFlags() & ~VEK_FLAG_DETERMINISTIC_PROPAGATION);
    ASSERT_EQ(net.GetVal(w)->SetEvidence(1), 0);
    EXPECT_FALSE(net.GetVal(x)->IsPropagatedEvidence());
    ASSERT_EQ(net.UpdateBeliefs(), 0);
    EXPECT_NEAR(Beliefs(net, x)[1], 1.0, 1e-15);
    EXPECT_NEAR(Beliefs(net, y)[2], 1.0, 1e-15);
}

TEST(UpdateCycle, InvalidTableEntriesAreRefused) {
    // NaN, infinite or negative probabilities would spread through every
    // potential they touch; the update refuses them with -4 and names the node.
    for (double bad : {std::numeric_limits<double>::quiet_NaN(), -0.25, std::numeric_limits<double>::infinity()}) {
        Pair p;
        SetTable(p.net, p.b, {1.0, 0.0, 0.0, 0.3, bad, 0.0});
        p.net.Logger().Clear();
        EXPECT_EQ(p.net.UpdateBeliefs(), VEK_INVALID_VALUE);
        EXPECT_EQ(LastMessage(p.net), "Invalid probability in the definition of node [B]");
        EXPECT_FALSE(p.net.GetVal(p.a)->IsValueValid());
        double pe = 0.0;
        EXPECT_EQ(p.net.ProbEvidence(pe), VEK_INVALID_VALUE);
        SetTable(p.net, p.b, {1.0, 0.0, 0.0, 0.3, 0.7, 0.0});
        EXPECT_EQ(p.net.UpdateBeliefs(), 0);
    }
}

TEST(UpdateCycle, TreesBeyondTheLimitFailWithoutExhaustingMemory) {
    // A limit of 1 fails on any two-state node outside evidence.
    {
        Pair p;
        p.net.UserProperties().AddProperty("VEK_CLUSTERING_INITIAL_THRESHOLD", "1");
        p.net.UserProperties().AddProperty("VEK_REL_DECOMP_DISABLE_FALLBACK", "0");
        EXPECT_EQ(p.net.UpdateBeliefs(), VEK_OUT_OF_MEMORY);
        p.net.UserProperties().AddProperty("VEK_CLUSTERING_INITIAL_THRESHOLD", "6");
        EXPECT_EQ(p.net.UpdateBeliefs(), 0);
        // An unknown heuristic fails the triangulation.
        p.net.UserProperties().AddProperty("VEK_TRIANG_HEUR", "4");
        EXPECT_EQ(p.net.UpdateBeliefs(), VEK_OUT_OF_MEMORY);
    }
    // Far beyond memory with a single target: the limit is lifted and the
    // tree is refused before any allocation; no decomposition is tried.
    {
        VEK_network net;
        std::vector<int> h;
        Grid(net, 12, 12, 8, h);
        // Evidence at the far corner keeps every node relevant to the target.
        ASSERT_EQ(net.GetVal(h.back())->SetEvidence(0), 0);
        ASSERT_EQ(net.SetTarget(h[0], true), 0);
        EXPECT_EQ(net.UpdateBeliefs(), VEK_OUT_OF_MEMORY);
        EXPECT_TRUE(net.IsTarget(h[0]));
        EXPECT_EQ(net.GetTargetCount(), 1);
    }
    // A clique of more than 30 nodes fails even when all of them are
    // observed and the size is 1.
    {
        VEK_network net;
        std::vector<int> h;
        Grid(net, 32, 32, 2, h);
        for (int n : h) ASSERT_EQ(net.GetVal(n)->SetEvidence(0), 0);
        net.EnableRelevance(false);
        net.UserProperties().AddProperty("VEK_REL_DECOMP_DISABLE_FALLBACK", "");
        EXPECT_EQ(net.UpdateBeliefs(), VEK_OUT_OF_MEMORY);
        // Relevance cuts the grid apart at the evidence.
        net.EnableRelevance(true);
        EXPECT_EQ(net.UpdateBeliefs(), 0);
    }
}

TEST(UpdateCycle, CanonicalNodesUseTheirComputedTables) {
    VEK_network net;
    const int a = AddNode(net, "A", 2), b = AddNode(net, "B", 3);
    const int m = net.AddNode(VEK_NOISY_MAX, "M");
    ASSERT_GE(m, 0);
    net.AddArc(a, m);
    net.AddArc(b, m);
    SetTable(net, a, {0.2, 0.8});
    SetTable(net, b, {0.1, 0.6, 0.3});
    ASSERT_EQ(net.GetVal(m)->SetEvidence(0), 0);
    const Enumeration ref = Enumerate(net, {{m, 0}});
    ASSERT_EQ(net.UpdateBeliefs(), 0);
    for (int h : {a, b}) {
        const auto bel = Beliefs(net, h);
        for (size_t s = 0; s < bel.size(); ++s) EXPECT_NEAR(bel[s], ref.posterior.at(h)[s], 1e-12);
    }
}
