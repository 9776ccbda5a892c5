// Belief updating over time against enumeration of the unrolled joint, and
// the temporal model through a written and read-back copy.
#include <gtest/gtest.h>

#include <random>

#include "../inference/infTestUtil.h"
#include "../learning/emTestUtil.h"
#include "dynamic/dynamicNet.h"
#include "dynamic/unroll.h"
#include "inference/randGen.h"
#include "learning/dataSampler.h"

namespace {

using inftest::AddNode;

std::vector<double> RandomTable(std::mt19937& gen, int size, int states) {
    std::uniform_real_distribution<double> u(0.05, 1.0);
    std::vector<double> t(size);
    for (int c = 0; c < size; c += states) {
        double s = 0;
        for (int i = 0; i < states; ++i) s += t[c + i] = u(gen);
        for (int i = 0; i < states; ++i) t[c + i] /= s;
    }
    return t;
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
        net.SetTemporalType(a, VEK_TEMPORAL_ANCHOR);
        net.SetTemporalType(x, VEK_TEMPORAL_PLATE);
        net.SetTemporalType(y, VEK_TEMPORAL_PLATE);
        net.SetTemporalType(t, VEK_TEMPORAL_TERMINAL);
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
            net.GetDef(h)->SetDefinition(RandomTable(gen, net.GetDef(h)->GetMatrix()->GetSize(), n));
            for (int k : {1, 2}) {
                if (const VEK_Dmatrix* m = d.GetTemporalDefinition(h, k)) {
                    d.SetTemporalDefinition(h, k, RandomTable(gen, m->GetSize(), n));
                }
            }
        }
        d.SetTemporalEvidence(y, 1, 2);
        d.SetTemporalVirtualEvidence(y, 3, {0.2, 0.9, 0.4});
        net.GetVal(t)->SetEvidence(1);
    }
};

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

TEST(Dynamic, WrittenAndReadBackKeepsTheTemporalModel) {
    Fixture f;
    std::string text;
    ASSERT_EQ(f.net.WriteString(text), 0);
    VEK_network back;
    ASSERT_EQ(back.ReadString(text.c_str()), 0);
    EXPECT_EQ(back.GetNumberOfSlices(), 4);
    for (int h : {f.x, f.y}) {
        for (int k : {1, 2}) {
            std::vector<VEK_temporalArc> want, got;
            f.net.GetDynamic()->GetTemporalParents(h, k, want);
            back.GetDynamic()->GetTemporalParents(h, k, got);
            EXPECT_EQ(got, want);
            const VEK_Dmatrix* m = f.net.GetDynamic()->GetTemporalDefinition(h, k);
            const VEK_Dmatrix* r = back.GetDynamic()->GetTemporalDefinition(h, k);
            ASSERT_EQ(m == nullptr, r == nullptr);
            if (!m) continue;
            ASSERT_EQ(m->GetDimensions(), r->GetDimensions());
            for (int i = 0; i < m->GetSize(); ++i) EXPECT_NEAR((*m)[i], (*r)[i], 1e-15);
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
        VEK_randGen gen(11);
        VEK_dataset data;
        ASSERT_EQ(VEK_sampleDataset(flat, 150, gen, c.missing, data), 0);
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
