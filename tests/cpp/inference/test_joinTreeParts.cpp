// Pieces of the join tree: odometer walks against plain index arithmetic,
// triangulation order and limits, and the family marginals offered to
// parameter learning.
#include <gtest/gtest.h>

#include <random>

#include "inference/essJoinTree.h"
#include "inference/inferenceCache.h"
#include "inference/rNetwork.h"
#include "inference/tsAdapter.h"
#include "inference/tsMatrix.h"
#include "inference/tsTriangulator.h"
#include "infTestUtil.h"

using namespace inftest;

namespace {

// Index in a matrix over coords of the big matrix's entry with the given
// coordinates (by node).
int64_t IndexIn(const TsCoords& small, const TsCoords& big, const std::vector<int>& bigCoord) {
    int64_t idx = 0;
    for (int d = 0; d < small.Count(); ++d) {
        const int pos = big.Find(small.nodes[d]);
        idx = idx * small.sizes[d] + bigCoord[static_cast<size_t>(pos)];
    }
    return idx;
}

void Decode(const TsCoords& c, int64_t index, std::vector<int>& out) {
    out.assign(static_cast<size_t>(c.Count()), 0);
    for (int d = c.Count() - 1; d >= 0; --d) {
        out[static_cast<size_t>(d)] = static_cast<int>(index % c.sizes[d]);
        index /= c.sizes[d];
    }
}

}  // namespace

TEST(TsOdometer, WalksAgreeWithIndexArithmetic) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (int trial = 0; trial < 400; ++trial) {
        TsCoords big;
        const int dims = static_cast<int>(rng() % 7);
        std::vector<int> ids(10);
        for (int i = 0; i < 10; ++i) ids[static_cast<size_t>(i)] = i;
        std::shuffle(ids.begin(), ids.end(), rng);
        for (int d = 0; d < dims; ++d) big.Add(ids[static_cast<size_t>(d)], 1 + static_cast<int>(rng() % 4));
        TsMatrix small;
        std::vector<int> order(static_cast<size_t>(dims));
        for (int d = 0; d < dims; ++d) order[static_cast<size_t>(d)] = d;
        std::shuffle(order.begin(), order.end(), rng);
        for (int d : order)
            if (rng() % 2) small.Coords().Add(big.nodes[d], big.sizes[d]);
        small.Allocate();

        const int64_t n = big.Size();
        std::vector<double> b(static_cast<size_t>(n)), s(static_cast<size_t>(small.Size()));
        for (double& x : b) x = u(rng);
        for (double& x : s) x = u(rng) > 0.7 ? 0.0 : u(rng);
        TsOdometer odo;
        TsMatrix::CreateMapping(big, small, odo);
        EXPECT_EQ(odo.count, n);

        std::vector<int> coord;
        std::vector<double> expectMarg(s.size(), 0.0), expectMul(b), expectCopy(b), expectStencil(b);
        for (int64_t i = 0; i < n; ++i) {
            Decode(big, i, coord);
            const int64_t j = IndexIn(small.Coords(), big, coord);
            expectMarg[static_cast<size_t>(j)] += b[static_cast<size_t>(i)];
            expectMul[static_cast<size_t>(i)] *= s[static_cast<size_t>(j)];
            expectCopy[static_cast<size_t>(i)] = s[static_cast<size_t>(j)];
            if (s[static_cast<size_t>(j)] == 0.0) expectStencil[static_cast<size_t>(i)] = 0.0;
        }
        std::vector<double> marg(s.size(), 0.0), mul(b), copy(b), stencil(b);
        TsOdoMarginalize(odo, b.data(), marg.data());
        TsOdoMultiply(odo, mul.data(), s.data());
        TsOdoCopy(odo, copy.data(), s.data());
        TsOdoStencil(odo, stencil.data(), s.data());
        for (size_t k = 0; k < marg.size(); ++k) EXPECT_NEAR(marg[k], expectMarg[k], 1e-12);
        for (size_t k = 0; k < b.size(); ++k) {
            EXPECT_EQ(mul[k], expectMul[k]);
            EXPECT_EQ(copy[k], expectCopy[k]);
            EXPECT_EQ(stencil[k], expectStencil[k]);
        }
        // SumDiv normalises the marginal by the total.
        std::vector<double> pos(b.size());
        for (size_t k = 0; k < b.size(); ++k) pos[k] = b[k] + 1.5;
        std::vector<double> sd(s.size(), 0.0);
        double total = 0.0;
        for (double x : pos) total += x;
        EXPECT_NEAR(TsOdoSumDiv(odo, pos.data(), sd.data()), total, 1e-9);
        double sum = 0.0;
        for (double x : sd) sum += x;
        EXPECT_NEAR(sum, 1.0, 1e-12);
    }
}

TEST(TsOdometer, ExplicitStridesAndBaseSelectASlice) {
    // A table over (E, X, Y) read for E = 2 while walking a matrix over (Y, X).
    const int sizes[2] = {3, 2};                   // Y, X
    const int64_t strides[2] = {1, 3};             // Y stride 1, X stride 3 in (E, X, Y)
    TsOdometer odo;
    odo.Build(sizes, strides, 2, 2 * 6);           // E stride 6
    std::vector<double> table(18);
    for (size_t i = 0; i < table.size(); ++i) table[i] = static_cast<double>(i);
    std::vector<double> big(6, 0.0);
    TsOdoCopy(odo, big.data(), table.data());
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 2; ++x) EXPECT_EQ(big[static_cast<size_t>(y * 2 + x)], 12.0 + 3 * x + y);

    int counter[3] = {0, 0, 0};
    const int dims[3] = {2, 1, 3};
    int steps = 1;
    while (TsSpinOdometer(counter, dims, 3)) ++steps;
    EXPECT_EQ(steps, 6);
    EXPECT_EQ(counter[0] + counter[1] + counter[2], 0);
}

TEST(TsMultiOdometer, ChunkKindsAgreeWithIndexArithmetic) {
    std::mt19937 rng(8);
    std::uniform_real_distribution<double> u(0.1, 1.0);
    int kinds[5] = {};
    for (int trial = 0; trial < 300; ++trial) {
        TsCoords big;
        const int dims = 1 + static_cast<int>(rng() % 6);
        // Large dimensions now and then, so that chunks cut at different depths.
        for (int d = 0; d < dims; ++d) {
            const bool large = rng() % 5 == 0 && big.Size() < 1000;
            big.Add(d, large ? 40 + static_cast<int>(rng() % 30) : 1 + static_cast<int>(rng() % 4));
        }
        const int operands = 1 + static_cast<int>(rng() % 4);
        std::vector<TsMatrix> small(static_cast<size_t>(operands));
        std::vector<int64_t> rows(static_cast<size_t>(operands * dims));
        std::vector<std::vector<double>> data(static_cast<size_t>(operands));
        for (int k = 0; k < operands; ++k) {
            std::vector<int> order(static_cast<size_t>(dims));
            for (int d = 0; d < dims; ++d) order[static_cast<size_t>(d)] = d;
            if (rng() % 2) std::shuffle(order.begin(), order.end(), rng);
            for (int d : order)
                if (rng() % 3) small[static_cast<size_t>(k)].Coords().Add(d, big.sizes[d]);
            small[static_cast<size_t>(k)].StridesIn(big, rows.data() + static_cast<size_t>(k * dims));
            data[static_cast<size_t>(k)].resize(static_cast<size_t>(small[static_cast<size_t>(k)].Size()));
            for (double& x : data[static_cast<size_t>(k)]) x = u(rng);
        }
        TsMultiOdometer walk;
        walk.Build(big.sizes.data(), dims, rows.data(), operands);
        ASSERT_EQ(walk.Count(), big.Size());
        for (int k = 0; k < operands; ++k) ++kinds[walk.GetKind(k)];

        // The first operands are read (product into the big matrix), the
        // last one is summed into.
        const int inputs = operands > 1 ? operands - 1 : 1;
        const int64_t chunk = walk.Chunk();
        std::vector<int64_t> maps(static_cast<size_t>(chunk * operands));
        for (int k = 0; k < operands; ++k) walk.MakeMap(k, maps.data() + k * chunk);
        std::vector<double> b(static_cast<size_t>(big.Size()));
        std::vector<double> out(data.back().size(), 0.0);
        std::vector<int64_t> offsets(static_cast<size_t>(operands), 0);
        walk.Walk(offsets.data(), [&](int64_t boff, const int64_t* off) {
            TsChunkLoad(walk.GetKind(0), walk.Block(0), maps.data(), data[0].data() + off[0], chunk, b.data() + boff);
            for (int k = 1; k < inputs; ++k)
                TsChunkMultiply(walk.GetKind(k), walk.Block(k), maps.data() + k * chunk, data[static_cast<size_t>(k)].data() + off[k],
                                chunk, b.data() + boff);
            if (operands > 1)
                TsChunkAccumulate(walk.GetKind(operands - 1), walk.Block(operands - 1), maps.data() + (operands - 1) * chunk,
                                  out.data() + off[operands - 1], chunk, b.data() + boff);
        });
        std::vector<int> coord;
        std::vector<double> expectOut(out.size(), 0.0);
        for (int64_t i = 0; i < big.Size(); ++i) {
            Decode(big, i, coord);
            double v = 1.0;
            for (int k = 0; k < inputs; ++k)
                v *= data[static_cast<size_t>(k)][static_cast<size_t>(IndexIn(small[static_cast<size_t>(k)].Coords(), big, coord))];
            ASSERT_EQ(b[static_cast<size_t>(i)], v) << trial << " entry " << i;
            if (operands > 1) expectOut[static_cast<size_t>(IndexIn(small.back().Coords(), big, coord))] += v;
        }
        for (size_t j = 0; j < out.size(); ++j) EXPECT_NEAR(out[j], expectOut[j], 1e-12 * expectOut[j]) << trial;
    }
    // Every kind of operand came up.
    for (int k = 0; k < 5; ++k) EXPECT_GT(kinds[k], 0) << k;
}

TEST(TsTriangulator, ScanOrderBreaksTiesAndLimitsApply) {
    // Four roots in a chordless cycle through four children: the children
    // are simplicial, then the roots tie.
    VEK_network net;
    std::vector<int> a, b;
    for (int i = 0; i < 4; ++i) a.push_back(AddNode(net, Name("a", i), 2));
    for (int i = 0; i < 4; ++i) {
        b.push_back(AddNode(net, Name("b", i), 2));
        net.AddArc(a[static_cast<size_t>(i)], b.back());
        net.AddArc(a[static_cast<size_t>((i + 1) % 4)], b.back());
    }
    VEK_rNetworkContainer c;
    ASSERT_TRUE(c.DoRelevance(net, 0));
    ASSERT_EQ(c.GetCount(), 1);
    TsAdapter adapter(*c.GetAt(0));
    for (int h : {1, -1, 2, -2, 3, -3}) {
        TsTriangulator tri(adapter);
        TsClique::Pool pool(adapter.GetNodeCount());
        std::vector<TsClique*> cliques;
        ASSERT_TRUE(tri.Triangulate(-1, h, pool, cliques)) << h;
        const std::vector<int>& order = tri.GetEliminationOrder();
        ASSERT_EQ(order.size(), 8u);
        for (int k = 0; k < 4; ++k) EXPECT_EQ(order[static_cast<size_t>(k)], 4 + k);
        EXPECT_EQ(order[4], h > 0 ? 0 : 3) << h;
        // Four child cliques of three binary nodes, then two for the cycle.
        EXPECT_EQ(tri.GetTotalSize(), 6u * 8u);
    }
    TsTriangulator tri(adapter);
    TsClique::Pool pool(adapter.GetNodeCount());
    std::vector<TsClique*> cliques;
    EXPECT_FALSE(tri.Triangulate(47, 1, pool, cliques));
    pool.Clear();
    cliques.clear();
    EXPECT_TRUE(tri.Triangulate(48, 1, pool, cliques));
    EXPECT_FALSE(tri.Triangulate(-1, 4, pool, cliques));
    EXPECT_FALSE(tri.Triangulate(-1, 0, pool, cliques));
    // The order heuristic 1 found, given: the same cliques.
    const std::vector<int> order{4, 5, 6, 7, 0, 1, 2, 3};
    pool.Clear();
    cliques.clear();
    ASSERT_TRUE(tri.TriangulateInOrder(TS_UNLIMITED, order, pool, cliques));
    EXPECT_EQ(tri.GetTotalSize(), 6u * 8u);
    EXPECT_FALSE(tri.TriangulateInOrder(47, order, pool, cliques));
    EXPECT_FALSE(tri.TriangulateInOrder(TS_UNLIMITED, {0, 1, 2}, pool, cliques));
    EXPECT_EQ(TsTriangulator::EffectiveLimit(0), uint64_t(1) << 28);
    EXPECT_EQ(TsTriangulator::EffectiveLimit(-1), 1152921504606846975ULL);
    EXPECT_EQ(TsTriangulator::EffectiveLimit(77), 77u);
}

TEST(EssJoinTree, FamilyPosteriorsMatchEnumeration) {
    std::mt19937 rng(17);
    std::uniform_real_distribution<double> u(0.05, 1.0);
    for (int trial = 0; trial < 15; ++trial) {
        VEK_network net;
        std::vector<int> h;
        const int n = 4 + trial % 5;
        for (int i = 0; i < n; ++i) h.push_back(AddNode(net, Name("v", i), 2 + static_cast<int>(rng() % 2)));
        for (int i = 1; i < n; ++i) {
            net.AddArc(h[static_cast<size_t>(i - 1)], h[static_cast<size_t>(i)]);
            if (i > 1 && rng() % 2) net.AddArc(h[static_cast<size_t>(rng() % static_cast<unsigned>(i - 1))], h[static_cast<size_t>(i)]);
        }
        for (int x : h) {
            std::vector<double> t(static_cast<size_t>(net.GetDef(x)->GetMatrix()->GetSize()));
            for (double& e : t) e = u(rng);
            SetTable(net, x, t);
        }
        std::map<int, int> ev{{h.back(), 0}, {h[1], 1}};
        for (auto [x, s] : ev) ASSERT_EQ(net.GetVal(x)->SetEvidence(s), 0);

        VEK_rNetworkContainer c;
        ASSERT_TRUE(c.DoRelevance(net, VEK_RSPLIT_COMPONENTS | VEK_RSPLIT_PRUNE));
        for (int k = 0; k < c.GetCount(); ++k) {
            if (c.GetAt(k)->GetNodeCount() < 2) continue;
            TsAdapter adapter(*c.GetAt(k));
            VEK_essJoinTree tree(adapter);
            ASSERT_TRUE(tree.Calibrate());
            for (int i = 0; i < adapter.GetNodeCount(); ++i) {
                const int node = adapter.GetNodeHandle(i);
                VEK_intArray family = net.GetNode(node)->Parents();
                family.Add(node);
                // The joint of the family given the evidence, by enumeration.
                size_t size = 1;
                for (int f : family) size *= static_cast<size_t>(net.GetDef(f)->GetNumberOfOutcomes());
                std::vector<double> expect(size, 0.0);
                double pe = 0.0;
                const Findings findings{ev, {}, {}};
                ForEachJoint(
                    net,
                    [&](const std::vector<int>& x, double p) {
                        size_t idx = 0;
                        for (int f : family)
                            idx = idx * static_cast<size_t>(net.GetDef(f)->GetNumberOfOutcomes()) + static_cast<size_t>(x[static_cast<size_t>(f)]);
                        expect[idx] += p;
                        pe += p;
                    },
                    &findings);
                for (double& e : expect) e /= pe;

                VEK_Dmatrix work, counts;
                const int res = net.GetNode(node)->Parents().GetSize() == 0
                                    ? tree.MarginalizePotentialForParentlessNode(net, node, work, counts)
                                    : tree.MarginalizePotential(net, node, work, counts);
                ASSERT_EQ(res, 0);
                ASSERT_EQ(work.GetSize(), static_cast<int>(expect.size()));
                for (size_t q = 0; q < expect.size(); ++q) EXPECT_NEAR(work[static_cast<int>(q)], expect[q], 1e-12);
                // A second case adds to the counts.
                ASSERT_EQ(tree.MarginalizePotential(net, node, work, counts), 0);
                for (size_t q = 0; q < expect.size(); ++q) EXPECT_NEAR(counts[static_cast<int>(q)], 2 * expect[q], 1e-12);
            }
            VEK_intArray none;
            none.Add(adapter.GetNodeHandle(0));
            none.Add(9999);
            EXPECT_EQ(tree.FindClique(none), nullptr);
        }
    }
}

// A split into more sub-networks than the cache keeps from older updates
// still finds every tree it compiled when the update is repeated. Chains
// x -> y -> z with y observed and z wide split into pairs {x, y} far smaller
// than the whole network's tree, so the split is kept.
TEST(InferenceCache, KeepsTheTreesOfEverySubNetworkOfASplit) {
    VEK_network net;
    constexpr int kPairs = 3 * VEK_inferenceCache::kMaxTrees / 2;
    for (int i = 0; i < kPairs; ++i) {
        const int x = AddNode(net, Name("X", i), 2);
        const int y = AddNode(net, Name("Y", i), 2);
        const int z = AddNode(net, Name("Z", i), 64);
        ASSERT_EQ(net.AddArc(x, y), 0);
        ASSERT_EQ(net.AddArc(y, z), 0);
        ASSERT_EQ(SetTable(net, y, {0.9, 0.1, 0.2, 0.8}), 0);
        ASSERT_EQ(SetTable(net, z, std::vector<double>(128, 1.0 / 64)), 0);
        ASSERT_EQ(net.GetVal(y)->SetEvidence(1), 0);
    }
    for (int round = 0; round < 2; ++round) {
        net.InvalidateAllBeliefs();
        ASSERT_EQ(net.UpdateBeliefs(), 0);
        EXPECT_EQ(net.InferenceCache().TreeCount(), kPairs);
    }
}
