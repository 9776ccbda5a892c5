// Belief updating over time against enumeration of the unrolled joint,
// canonical temporal orders against their closed forms, and the temporal
// model through a written and read-back copy.
#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "../inference/infTestUtil.h"
#include "../learning/emTestUtil.h"
#include "dynamic/dynamicNet.h"
#include "dynamic/unroll.h"
#include "network/demorgan.h"
#include "network/noisyAdder.h"

namespace {

using inftest::AddNode;

std::string ReadText(const std::string& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Anchor A -> plate X (temporal arcs of orders 1 and 2 from itself) -> plate
// Y -> terminal T, 4 slices, evidence and likelihoods in some slices.
struct Fixture {
    VEK_network net;
    int a, x, y, t;
    Fixture() {
        std::mt19937 gen(3);
        a = AddNode(net, "A", 2);
        x = AddNode(net, "X", 2);
        y = AddNode(net, "Y", 3);
        t = AddNode(net, "T", 2);
        for (auto [h, type] : {std::pair{a, VEK_TEMPORAL_ANCHOR}, {x, VEK_TEMPORAL_PLATE}, {y, VEK_TEMPORAL_PLATE},
                               {t, VEK_TEMPORAL_TERMINAL}})
            net.SetTemporalType(h, type);
        net.AddArc(a, x);
        net.AddArc(x, y);
        net.AddArc(y, t);
        net.SetNumberOfSlices(4);
        VEK_dynamicNet& d = net.Dynamic();
        d.AddTemporalArc(x, x, 1);
        d.AddTemporalArc(x, x, 2);
        d.AddTemporalArc(y, x, 1);
        for (int h : {a, x, y, t}) {
            const int n = net.GetDef(h)->GetNumberOfOutcomes();
            net.GetDef(h)->SetDefinition(inftest::RandomColumns(gen, net.GetDef(h)->GetMatrix()->GetSize(), n));
            for (int k : {1, 2}) {
                if (const VEK_Dmatrix* m = d.GetTemporalDefinition(h, k)) {
                    d.SetTemporalDefinition(h, k, inftest::RandomColumns(gen, m->GetSize(), n));
                }
            }
        }
        d.SetTemporalEvidence(y, 1, 2);
        d.SetTemporalVirtualEvidence(y, 3, {0.2, 0.9, 0.4});
        net.GetVal(t)->SetEvidence(1);
    }
};

// Plate nodes with canonical orders: noisy-adder N (2 outcomes) with static
// parent Y (3 outcomes) and N -> N of order 1; DeMorgan D with static parent
// E (a cause) and D -> D of order 1 (an inhibitor). 3 slices.
struct CanonicalFixture {
    VEK_network net;
    int y, n, e, d;
    // Order 1 of N: CI columns Y = 0, 1, 2 (distinguished), N = 0, 1
    // (distinguished), leak; weights of Y and N.
    std::vector<double> ci{0.5, 0.5, 0.25, 0.75, 0, 1, 0.875, 0.125, 0, 1, 0.375, 0.625};
    std::vector<double> weights{1.5, 0.5};
    // Order 1 of D: weights of E and D_{t-1}, then the prior.
    std::vector<double> dm{0.5, 0.75, 0.25};
    CanonicalFixture() {
        y = AddNode(net, "Y", 3);
        n = AddNode(net, "N", 2, VEK_NOISY_ADDER);
        e = net.AddNode(VEK_DEMORGAN, "E");
        d = net.AddNode(VEK_DEMORGAN, "D");
        for (int h : {y, n, e, d}) net.SetTemporalType(h, VEK_TEMPORAL_PLATE);
        net.AddArc(y, n);
        net.AddArc(e, d);
        net.SetNumberOfSlices(3);
        VEK_dynamicNet& dyn = net.Dynamic();
        dyn.AddTemporalArc(n, n, 1);
        dyn.AddTemporalArc(d, d, 1);
        dyn.SetTemporalDefinition(n, 1, ci);
        dyn.SetTemporalDefinition(d, 1, dm);
        dyn.EditTemporalCanonical(n, 1, [this](VEK_nodeDef& def) {
            return static_cast<VEK_noisyAdder&>(def).SetParentWeights(VEK_doubleArray(weights));
        });
        dyn.EditTemporalCanonical(d, 1, [](VEK_nodeDef& def) {
            return static_cast<VEK_demorgan&>(def).SetParentType(1, VEK_demorgan::INHIBITOR);
        });
    }
};

// The unrolled copies' tables against the combinations written out here.
TEST(Dynamic, CanonicalOrdersExpandToTheirClosedForms) {
    CanonicalFixture f;
    for (bool singleFault : {false, true}) {
        ASSERT_EQ(f.net.Dynamic().EditTemporalCanonical(f.n, 1, [singleFault](VEK_nodeDef& def) {
            return static_cast<VEK_noisyAdder&>(def).SetFunction(singleFault ? VEK_noisyAdder::FUNCTION_SINGLE_FAULT
                                                                             : VEK_noisyAdder::FUNCTION_AVERAGE);
        }), 0);
        VEK_network flat;
        std::vector<VEK_unrolledNode> map;
        ASSERT_EQ(VEK_Unroll(f.net, flat, map), 0);
        for (const VEK_unrolledNode& m : map) {
            if (m.slice == 0 || (m.node != f.n && m.node != f.d)) continue;
            const VEK_Dmatrix& got = *flat.GetDef(m.unrolled)->GetMatrix();
            ASSERT_EQ(got.GetSize(), m.node == f.n ? 12 : 8);
            for (int c = 0; c < got.GetSize() / 2; ++c) {
                const int a = c / 2, b = c % 2;  // static parent, then the node one slice back
                double p;
                if (m.node == f.d) {
                    p = f.dm[2];
                    if (a == 0) p += (1 - p) * f.dm[0];
                    if (b == 0) p *= 1 - f.dm[1];
                } else {
                    const double wa = singleFault && a == 2 ? 0 : f.weights[0], wb = singleFault && b == 1 ? 0 : f.weights[1];
                    const double leak = singleFault ? (wa + wb > 0 ? 0 : 1) : 1;
                    p = (leak * f.ci[10] + wa * f.ci[2 * a] + wb * f.ci[6 + 2 * b]) / (leak + wa + wb);
                }
                EXPECT_NEAR(got[2 * c], p, 1e-12) << m.node << " column " << c;
                EXPECT_NEAR(got[2 * c + 1], 1 - p, 1e-12);
            }
        }
    }
    // A new outcome of Y gets a uniform column of its own; the others stay.
    ASSERT_EQ(f.net.GetDef(f.y)->InsertOutcome(1, "new"), 0);
    const VEK_Dmatrix& ci = f.net.GetDynamic()->GetTemporalCanonical(f.n, 1)->GetParameters();
    const std::vector<double> want{0.5, 0.5, 0.5, 0.5, 0.25, 0.75, 0, 1, 0.875, 0.125, 0, 1, 0.375, 0.625};
    EXPECT_EQ(std::vector<double>(ci.Items(), ci.Items() + ci.GetSize()), want);
}

TEST(Dynamic, BeliefsMatchEnumerationOfTheUnrolledJoint) {
    Fixture f;
    ASSERT_EQ(f.net.UpdateBeliefs(), 0);
    VEK_network flat;
    std::vector<VEK_unrolledNode> map;
    ASSERT_EQ(VEK_Unroll(f.net, flat, map), 0);
    ASSERT_EQ(flat.GetNumberOfNodes(), 2 + 2 * 4);
    std::map<int, int> evidence{{f.t, 1}};
    std::map<int, std::vector<double>> likelihood;
    for (const VEK_unrolledNode& m : map) {
        if (m.node == f.y && m.slice == 1) evidence[m.unrolled] = 2;
        if (m.node == f.y && m.slice == 3) likelihood[m.unrolled] = {0.2, 0.9, 0.4};
    }
    const inftest::Enumeration ref = inftest::Enumerate(flat, evidence, likelihood);
    for (const VEK_unrolledNode& m : map) {
        const std::vector<double> all = inftest::Beliefs(f.net, m.node);
        const std::vector<double>& want = ref.posterior.at(m.unrolled);
        for (size_t i = 0; i < want.size(); ++i) EXPECT_NEAR(all[m.slice * want.size() + i], want[i], 1e-12);
    }
    for (int h : {f.a, f.t}) {
        const std::vector<double> got = inftest::Beliefs(f.net, h);
        for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], ref.posterior.at(h)[i], 1e-12);
    }
}

// Both formats write back what they read, canonical temporal orders
// included (the random round trips of both formats cover the rest).
TEST(Dynamic, WrittenAndReadBackKeepsTheTemporalModel) {
    Fixture f;
    CanonicalFixture c;
    const std::string path = testing::TempDir() + "dynamic.vek";
    for (VEK_network* net : {&f.net, &c.net}) {
        for (bool xml : {true, false}) {
            std::string first, second;
            VEK_network copy;
            ASSERT_EQ(xml ? net->WriteString(first) : net->WriteFile(path.c_str()), 0);
            ASSERT_EQ(xml ? copy.ReadString(first.c_str()) : copy.ReadFile(path.c_str()), 0);
            if (!xml) first = ReadText(path);
            ASSERT_EQ(xml ? copy.WriteString(second) : copy.WriteFile(path.c_str()), 0);
            EXPECT_EQ(xml ? second : ReadText(path), first);
        }
    }
}

// EM with tied slices equals EM by enumeration over the unrolled joint in
// which every copy of a plate node shares the table of its order. The data
// cover 3 of the 4 slices, columns named as unrolling names the copies.
TEST(Dynamic, EmSharesTablesAcrossSlicesAsEnumerationDoes) {
    Fixture f;
    VEK_network three(f.net), flat;
    three.SetNumberOfSlices(3);
    std::vector<VEK_unrolledNode> map;
    ASSERT_EQ(VEK_Unroll(three, flat, map), 0);
    flat.ClearAllEvidence();
    std::vector<int> tie;
    for (int h = 0; h < flat.GetSlotCount(); ++h) tie.push_back(h);
    for (const VEK_unrolledNode& m : map) {
        const int order = m.slice == 0 ? 0 : three.GetDynamic()->OrderForSlice(m.node, m.slice);
        for (const VEK_unrolledNode& first : map)
            if (first.node == m.node && (first.slice == 0 ? 0 : three.GetDynamic()->OrderForSlice(m.node, first.slice)) == order) {
                tie[m.unrolled] = first.unrolled;
                break;
            }
    }
    auto unrolled = [&](int node, int slice) {
        for (const VEK_unrolledNode& m : map)
            if (m.node == node && m.slice == slice) return m.unrolled;
        return node;
    };
    struct Case {
        double missing;
        float ess;
        std::vector<int> fixed;
    };
    for (const Case& c : {Case{0.3, 0.0f, {}}, Case{0.2, 2.0f, {f.y}}}) {
        const VEK_dataset data = emtest::Sample(flat, 150, 11, c.missing);
        std::vector<int> fixedFlat;
        for (int h : c.fixed)
            for (int t = 0; t < 3; ++t) fixedFlat.push_back(unrolled(h, t));
        std::vector<double> want;
        const auto tables = emtest::BruteForceEm(flat, data, emtest::MatchById(flat, data), fixedFlat, c.ess, want, tie);

        VEK_network learnt(f.net);
        std::vector<VEK_datasetMatch> matching;
        ASSERT_EQ(data.MatchNetwork(learnt, matching), 0);
        ASSERT_EQ(matching.size(), 8u);
        VEK_em em;
        em.SetAutoSlices(true);
        ASSERT_EQ(em.SetEquivalentSampleSize(c.ess), 0);
        emtest::LogLikelihoods progress;
        double score = 0;
        ASSERT_EQ(em.Learn(data, learnt, matching, c.fixed, &score, &progress), 0) << learnt.Logger().GetLastErrorMessage();
        ASSERT_EQ(progress.runs.at(0).size(), want.size());
        for (size_t i = 0; i < want.size(); ++i) EXPECT_NEAR(progress.runs[0][i], want[i], 1e-9 * std::fabs(want[i]));
        EXPECT_NEAR(score, want.back(), 1e-9 * std::fabs(want.back()));
        for (const VEK_unrolledNode& m : map) {
            const int order = m.slice == 0 ? 0 : learnt.GetDynamic()->OrderForSlice(m.node, m.slice);
            const VEK_Dmatrix* got = order ? learnt.GetDynamic()->GetTemporalDefinition(m.node, order)
                                           : &learnt.GetDef(m.node)->GetDefinition();
            for (int q = 0; q < got->GetSize(); ++q) EXPECT_NEAR((*got)[q], tables[m.unrolled][q], 1e-9);
        }
        for (int h : {f.a, f.t})
            for (size_t q = 0; q < tables[h].size(); ++q) EXPECT_NEAR(emtest::Table(learnt, h)[q], tables[h][q], 1e-9);
    }
}

}  // namespace
