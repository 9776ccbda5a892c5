// The generator's stream must be reproducible bit for bit, so its state and
// outputs are checked against a separate, deliberately different model of the
// same arithmetic (64-bit words masked to 32 bits), and against fixed values.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "inference/randGen.h"
#include "network/intArray.h"

namespace {

constexpr uint64_t kMask = 0xffffffffull;

uint64_t RefHash(uint64_t a) {
    a = (a * 4097 + 2127912214) & kMask;
    a = a ^ 3345072700ull ^ (a >> 19);
    a = (a * 33) & kMask;
    a = ((a + (kMask + 1) - 369570787) & kMask) ^ (((a + 374761393) << 9) & kMask);
    a = (a * 9 + (kMask + 1) - 42973499) & kMask;
    a = a ^ 3042594569ull ^ (a >> 16);
    return a;
}

struct RefGen {
    uint64_t x = 123456789, y = 987654321, z = 43219876, c = 6543217;

    explicit RefGen(uint64_t seed) {
        const uint64_t h1 = RefHash(seed);
        x ^= h1;
        const uint64_t h2 = RefHash(h1 ^ 3042594569ull ^ 285207212ull);
        y ^= h2;
        const uint64_t h3 = RefHash(h2 ^ 3042594569ull ^ 1246457319ull);
        z ^= h3;
        for (int i = 0; i < 7; ++i) Next();
    }

    uint64_t Next() {
        x = (314527869ull * x + 1234567ull) & kMask;
        y ^= (y << 5) & kMask;
        y ^= y >> 7;
        y ^= (y << 22) & kMask;
        const uint64_t t = 4294584393ull * z + c;  // fits: both factors < 2^32
        z = t & kMask;
        c = t >> 32;
        return (x + y + z) & kMask;
    }

    double Double() {
        const uint64_t a = Next() >> 6;
        const uint64_t b = Next() >> 5;
        return std::ldexp(static_cast<double>((a << 27) + b), -53);
    }
};

}  // namespace

TEST(RandGen, StateAndFirstOutputsAfterInitOneFollowTheDocumentedSteps) {
    VEK_randGen gen(1);
    RefGen ref(1);
    EXPECT_EQ(gen.GetX(), ref.x);
    EXPECT_EQ(gen.GetY(), ref.y);
    EXPECT_EQ(gen.GetZ(), ref.z);
    EXPECT_EQ(gen.GetC(), ref.c);
    EXPECT_EQ(gen.GetFlag(), 0);
    // The same words as worked out by hand from the steps, to catch a change
    // that would slip into both models at once.
    EXPECT_EQ(gen.GetX(), 4159009268u);
    EXPECT_EQ(gen.GetY(), 3448768804u);
    EXPECT_EQ(gen.GetZ(), 240541729u);
    EXPECT_EQ(gen.GetC(), 670965990u);
    const unsigned expected[] = {3914366201u, 1206769896u, 1395438764u, 778911757u, 1462945064u};
    for (unsigned e : expected) EXPECT_EQ(gen.Next(), e);
    EXPECT_DOUBLE_EQ(gen.GetDouble(), 0.5120384717855426);
}

TEST(RandGen, LongStreamsMatchTheModelForSeveralSeeds) {
    for (unsigned seed : {1u, 2u, 12345u, 0x80000000u, 0xffffffffu}) {
        VEK_randGen gen(seed);
        RefGen ref(seed);
        for (int i = 0; i < 2000; ++i) ASSERT_EQ(gen.Next(), ref.Next()) << "seed " << seed << " step " << i;
        for (int i = 0; i < 500; ++i) ASSERT_EQ(gen.GetDouble(), ref.Double()) << "seed " << seed;
        EXPECT_EQ(gen.GetC(), ref.c);  // the carry travels in the high half
    }
}

TEST(RandGen, ReseedingRestartsSeedZeroDiffersAndSpinDiscards) {
    VEK_randGen gen(77);
    std::vector<unsigned> first;
    for (int i = 0; i < 20; ++i) first.push_back(gen.Next());
    gen.Init(77);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(gen.Next(), first[i]);
    VEK_randGen other(78), zero1(0), zero2(0);
    int same = 0, sameZero = 0;
    for (int i = 0; i < 20; ++i) {
        same += other.Next() == first[i];
        sameZero += zero1.Next() == zero2.Next();
    }
    EXPECT_LT(same, 2);
    EXPECT_LT(sameZero, 2);

    VEK_randGen a(5), b(5);
    a.Spin(10);
    for (int i = 0; i < 10; ++i) b.Next();
    EXPECT_EQ(a.Next(), b.Next());
    a.Spin(0);
    a.Spin(-3);
    EXPECT_EQ(a.Next(), b.Next());
}

// GetDouble is checked bit for bit against the model, whose values lie in
// [0, 1) by construction.
TEST(RandGen, GetIntRange) {
    VEK_randGen gen(9);
    RefGen ref(9);
    for (int i = 0; i < 1000; ++i) {
        const unsigned v = gen.GetInt(7);
        ASSERT_EQ(v, ref.Next() % 7);
    }
    EXPECT_EQ(gen.GetInt(0), 0u);  // guarded instead of dividing by zero
    EXPECT_EQ(gen.GetInt(1), 0u);
}

TEST(RandGen, Roulette) {
    const double p[] = {0.2, 0.3, 0.5};
    EXPECT_EQ(VEK_randGen::Roulette(0.0, p, 3), 0);
    EXPECT_EQ(VEK_randGen::Roulette(0.19, p, 3), 0);
    EXPECT_EQ(VEK_randGen::Roulette(0.2, p, 3), 1);  // must strictly exceed
    EXPECT_EQ(VEK_randGen::Roulette(0.6, p, 3), 2);
    EXPECT_EQ(VEK_randGen::Roulette(1.5, p, 3), 2);
    const double zeros[] = {0.0, 0.0, 0.0, 0.0};
    EXPECT_EQ(VEK_randGen::Roulette(0.0, zeros, 4), 3);
    EXPECT_EQ(VEK_randGen::Roulette(0.3, zeros, 4), 3);
    EXPECT_EQ(VEK_randGen::Roulette(0.5, p, 0), -1);
    const double skip[] = {0.0, 0.0, 1.0};
    EXPECT_EQ(VEK_randGen::Roulette(0.0, skip, 3), 2);
}

TEST(RandGen, ShuffleIsReproducibleAndReachesEveryOrder) {
    VEK_randGen a(3), b(3);
    VEK_intArray x, y;
    x.MakeIdentityPermutation(50);
    y.MakeIdentityPermutation(50);
    x.RandomShuffle(a);
    b.Shuffle(y.Items(), y.GetSize());
    EXPECT_TRUE(x.IsPermutation());
    EXPECT_FALSE(x.IsIdentityPermutation());
    EXPECT_TRUE(x == y);
    int one = 42;
    a.Shuffle(&one, 1);
    EXPECT_EQ(one, 42);
    a.Shuffle(nullptr, 5);  // refused quietly
    int counts[6] = {};
    for (int i = 0; i < 6000; ++i) {
        int three[3] = {0, 1, 2};
        a.Shuffle(three, 3);
        counts[three[0] * 2 + (three[1] > three[2] ? 1 : 0)]++;
    }
    for (int c : counts) EXPECT_NEAR(c, 1000, 150);
}

TEST(RandGen, MultinomialIsADistributionUniformOnTheSimplex) {
    VEK_randGen gen(21), again(21);
    double out[5], out2[5];
    ASSERT_EQ(gen.Multinomial(5, out), 0);
    ASSERT_EQ(again.Multinomial(5, out2), 0);
    double sum = 0.0;
    for (int i = 0; i < 5; ++i) {
        EXPECT_GE(out[i], 0.0);
        EXPECT_EQ(out[i], out2[i]);
        sum += out[i];
    }
    EXPECT_NEAR(sum, 1.0, 1e-12);

    // Over two entries the first one is uniform on [0, 1].
    int below = 0;
    double mean3[3] = {};
    const int draws = 20000;
    for (int i = 0; i < draws; ++i) {
        double two[2];
        gen.Multinomial(2, two);
        below += two[0] < 0.25;
        double three[3];
        gen.Multinomial(3, three);
        for (int k = 0; k < 3; ++k) mean3[k] += three[k] / draws;
    }
    EXPECT_NEAR(below / double(draws), 0.25, 0.015);
    for (double m : mean3) EXPECT_NEAR(m, 1.0 / 3, 0.01);

    double single[1];
    EXPECT_EQ(gen.Multinomial(1, single), 0);
    EXPECT_EQ(single[0], 1.0);
    EXPECT_EQ(gen.Multinomial(0, single), -2);
}

TEST(RandGen, DirichletMeansAndRefusals) {
    VEK_randGen gen(4);
    const double alpha[] = {1.0, 2.0, 7.0};
    double mean[3] = {};
    const int draws = 20000;
    for (int i = 0; i < draws; ++i) {
        double out[3];
        ASSERT_EQ(gen.Dirichlet(alpha, 3, out), 0);
        ASSERT_NEAR(out[0] + out[1] + out[2], 1.0, 1e-12);
        for (int k = 0; k < 3; ++k) mean[k] += out[k] / draws;
    }
    EXPECT_NEAR(mean[0], 0.1, 0.01);
    EXPECT_NEAR(mean[1], 0.2, 0.01);
    EXPECT_NEAR(mean[2], 0.7, 0.01);

    double out[2] = {5.0, 5.0};
    const double bad[] = {1.0, 0.0};
    EXPECT_EQ(gen.Dirichlet(bad, 2, out), -2);
    EXPECT_EQ(out[0], 5.0);
    const double nan[] = {1.0, std::nan("")};
    EXPECT_EQ(gen.Dirichlet(nan, 2, out), -2);
    EXPECT_EQ(gen.Dirichlet(alpha, 0, out), -2);

    // Very small parameters put nearly all mass on one entry but stay a distribution.
    const double tiny[] = {0.01, 0.01, 0.01};
    double t[3];
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(gen.Dirichlet(tiny, 3, t), 0);
        ASSERT_NEAR(t[0] + t[1] + t[2], 1.0, 1e-9);
    }
}

namespace {

template <class Draw>
void Moments(Draw draw, int n, double& mean, double& var) {
    double s = 0.0, s2 = 0.0;
    for (int i = 0; i < n; ++i) {
        const double v = draw();
        s += v;
        s2 += v * v;
    }
    mean = s / n;
    var = s2 / n - mean * mean;
}

}  // namespace

TEST(RandGen, ContinuousDrawsHaveTheirMoments) {
    VEK_randGen gen(123);
    double m, v;
    Moments([&] { return gen.Normal(3.0, 2.0); }, 40000, m, v);
    EXPECT_NEAR(m, 3.0, 0.04);
    EXPECT_NEAR(v, 4.0, 0.12);
    Moments([&] { return gen.Uniform(-1.0, 3.0); }, 40000, m, v);
    EXPECT_NEAR(m, 1.0, 0.03);
    EXPECT_NEAR(v, 16.0 / 12.0, 0.04);
    Moments([&] { return gen.Exponential(4.0); }, 40000, m, v);
    EXPECT_NEAR(m, 0.25, 0.005);
    EXPECT_NEAR(v, 0.0625, 0.004);
    Moments([&] { return gen.Gamma(3.0, 2.0); }, 40000, m, v);
    EXPECT_NEAR(m, 6.0, 0.08);
    EXPECT_NEAR(v, 12.0, 0.5);
    Moments([&] { return gen.Gamma(0.5, 1.0); }, 40000, m, v);  // shape below one
    EXPECT_NEAR(m, 0.5, 0.02);
    EXPECT_NEAR(v, 0.5, 0.04);
}

TEST(RandGen, InvalidParametersGiveNaN) {
    VEK_randGen gen(1);
    EXPECT_TRUE(std::isnan(gen.Normal(0.0, -1.0)));
    EXPECT_TRUE(std::isnan(gen.Gamma(0.0, 1.0)));
    EXPECT_TRUE(std::isnan(gen.Gamma(1.0, -2.0)));
    EXPECT_TRUE(std::isnan(gen.Exponential(0.0)));
    EXPECT_EQ(gen.Normal(5.0, 0.0), 5.0);
    const double u = gen.Uniform(2.0, 2.0);
    EXPECT_EQ(u, 2.0);
}
