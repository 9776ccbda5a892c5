// Canonical definitions: noisy-MAX, noisy-adder, DeMorgan and CAST tables,
// their conversions, how they follow the graph, and refused input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "network/cast.h"
#include "network/demorgan.h"
#include "network/network.h"
#include "network/noisyAdder.h"
#include "network/noisyMAX.h"
#include "network/status.h"

namespace {

using Dist = std::vector<double>;

std::string ParentId(int j) {
    std::string id = "p";
    id += std::to_string(j);
    return id;
}

std::vector<double> Items(const VEK_Dmatrix& m) { return m.GetItems().ToVector(); }
std::vector<double> Table(VEK_network& net, int h) { return Items(*net.GetDef(h)->GetMatrix()); }

void ExpectNear(const std::vector<double>& a, const std::vector<double>& b, double tol, const char* what = "") {
    ASSERT_EQ(a.size(), b.size()) << what;
    for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], tol) << what << " item " << i;
}

int AddNode(VEK_network& net, int type, const std::string& id, int outcomes = 2) {
    int h = net.AddNode(type, id.c_str());
    EXPECT_GE(h, 0) << "type " << type;
    if (outcomes != 2) {
        EXPECT_EQ(net.GetDef(h)->SetNumberOfOutcomes(outcomes), VEK_OKAY);
    }
    return h;
}

VEK_noisyMAX& Max(VEK_network& net, int h) { return *dynamic_cast<VEK_noisyMAX*>(net.GetDef(h)); }
VEK_noisyAdder& Adder(VEK_network& net, int h) { return *dynamic_cast<VEK_noisyAdder*>(net.GetDef(h)); }
VEK_demorgan& DeMorgan(VEK_network& net, int h) { return *dynamic_cast<VEK_demorgan*>(net.GetDef(h)); }
VEK_cast& Cast(VEK_network& net, int h) { return *dynamic_cast<VEK_cast*>(net.GetDef(h)); }

Dist RandomDist(std::mt19937& gen, int n, double floor = 0.0) {
    std::uniform_real_distribution<double> u(0.0, 1.0);
    Dist d(n);
    double s = 0.0;
    for (double& v : d) s += v = floor + u(gen);
    for (double& v : d) v /= s;
    return d;
}

Dist Delta(int n, int at) {
    Dist d(n, 0.0);
    d[at] = 1.0;
    return d;
}

// Visits the parent configurations of a table in its order (last fastest).
template <class F>
void ForEachConfig(const std::vector<int>& sizes, F&& f) {
    std::vector<int> x(sizes.size(), 0);
    for (;;) {
        f(x);
        int t = static_cast<int>(sizes.size()) - 1;
        while (t >= 0 && ++x[t] == sizes[t]) x[t--] = 0;
        if (t < 0) return;
    }
}

// ---- an independent noisy-MAX model ----------------------------------------------

// Per parent and outcome (in the parent's outcome order) the distribution of
// the level that cause produces; the weakest outcome produces none.
struct MaxModel {
    int n = 2;
    std::vector<int> sizes;
    std::vector<std::vector<int>> strengths;
    std::vector<std::vector<Dist>> cause;
    Dist leak;
};

// The highest level (lowest index) of independent causes, by enumerating
// every pair of the running maximum and the next cause.
Dist MaxOfCauses(const std::vector<const Dist*>& causes, int n) {
    Dist dist = Delta(n, n - 1);
    for (const Dist* c : causes) {
        Dist next(n, 0.0);
        for (int a = 0; a < n; ++a) {
            for (int b = 0; b < n; ++b) next[std::min(a, b)] += dist[a] * (*c)[b];
        }
        dist = next;
    }
    return dist;
}

std::vector<double> BruteForceMax(const MaxModel& m) {
    std::vector<double> out;
    ForEachConfig(m.sizes, [&](const std::vector<int>& x) {
        std::vector<const Dist*> causes{&m.leak};
        for (size_t j = 0; j < x.size(); ++j) causes.push_back(&m.cause[j][x[j]]);
        Dist d = MaxOfCauses(causes, m.n);
        out.insert(out.end(), d.begin(), d.end());
    });
    return out;
}

MaxModel RandomMaxModel(std::mt19937& gen, const std::vector<int>& sizes, int n, bool shuffle) {
    MaxModel m;
    m.n = n;
    m.sizes = sizes;
    m.leak = RandomDist(gen, n, 0.05);
    for (int s : sizes) {
        std::vector<int> order(s);
        std::iota(order.begin(), order.end(), 0);
        if (shuffle) std::shuffle(order.begin(), order.end(), gen);
        std::vector<Dist> c(s);
        for (int o = 0; o < s; ++o) c[o] = o == order.back() ? Delta(n, n - 1) : RandomDist(gen, n);
        m.strengths.push_back(order);
        m.cause.push_back(c);
    }
    return m;
}

// The CI weights of a model in the stored order (strength order per parent).
VEK_doubleArray ModelWeights(const MaxModel& m) {
    VEK_doubleArray w;
    for (size_t j = 0; j < m.sizes.size(); ++j) {
        for (int o : m.strengths[j]) {
            for (double v : m.cause[j][o]) w.Add(v);
        }
    }
    for (double v : m.leak) w.Add(v);
    return w;
}

// Reads the model back from a definition.
MaxModel ModelOf(const VEK_noisyMAX& def) {
    MaxModel m;
    m.n = def.GetNumberOfOutcomes();
    const double* w = def.GetCiWeights().Items();
    for (int j = 0; j < def.GetNumberOfParents(); ++j) {
        const VEK_intArray& s = *def.GetParentOutcomeStrengths(j);
        m.sizes.push_back(s.GetSize());
        m.strengths.push_back(s.ToVector());
        std::vector<Dist> c(s.GetSize());
        for (int p = 0; p < s.GetSize(); ++p) {
            const double* col = w + (def.GetParentColumnBase(j) + p) * m.n;
            c[s[p]] = Dist(col, col + m.n);
        }
        m.cause.push_back(c);
    }
    const double* leak = w + def.GetLeakColumn() * m.n;
    m.leak = Dist(leak, leak + m.n);
    return m;
}

struct MaxNet {
    VEK_network net;
    std::vector<int> parents;
    int child = -1;
};

void BuildMax(MaxNet& mn, const MaxModel& m) {
    mn.child = AddNode(mn.net, VEK_NOISY_MAX, "child", m.n);
    for (size_t j = 0; j < m.sizes.size(); ++j) {
        int p = AddNode(mn.net, VEK_CPT, ParentId(j), m.sizes[j]);
        ASSERT_EQ(mn.net.AddArc(p, mn.child), VEK_OKAY);
        mn.parents.push_back(p);
    }
    VEK_noisyMAX& def = Max(mn.net, mn.child);
    for (size_t j = 0; j < m.sizes.size(); ++j) {
        ASSERT_EQ(def.SetParentOutcomeStrengths(static_cast<int>(j), VEK_intArray(m.strengths[j])), VEK_OKAY);
    }
    ASSERT_EQ(def.SetCiWeights(ModelWeights(m)), VEK_OKAY);
}

// A random noisy-MAX model drawn from a seed and built into its own network.
struct SeededMax : MaxNet {
    MaxModel m;
    SeededMax(unsigned seed, const std::vector<int>& sizes, int n, bool shuffle) {
        std::mt19937 gen(seed);
        m = RandomMaxModel(gen, sizes, n, shuffle);
        BuildMax(*this, m);
    }
};

// A freshly built node with the same structure and parameters as h.
std::vector<double> FreshMaxTable(VEK_network& net, int h) {
    MaxNet fresh;
    BuildMax(fresh, ModelOf(Max(net, h)));
    return Table(fresh.net, fresh.child);
}

void ExpectMaxConsistent(VEK_network& net, int h, const char* what) {
    const std::vector<double> table = Table(net, h);
    ExpectNear(table, BruteForceMax(ModelOf(Max(net, h))), 1e-12, what);
    EXPECT_EQ(table, FreshMaxTable(net, h)) << what;
}

std::vector<double> Slice(const VEK_Dmatrix& m, int dim, int keep) {
    VEK_Dmatrix out;
    EXPECT_EQ(m.RemoveDimension(dim, keep, out), VEK_OKAY);
    return Items(out);
}

}  // namespace

// ---------------------------------------------------------------- noisy-MAX table

TEST(NoisyMax, TableMatchesBruteForceModel) {
    std::mt19937 gen(12345);
    for (int trial = 0; trial < 60; ++trial) {
        const int k = trial % 9;
        const int n = 2 + trial % 3;
        std::vector<int> sizes;
        long cells = n;
        for (int j = 0; j < k; ++j) {
            int s = 2 + static_cast<int>(gen() % 3);
            if (cells * s > 100000) s = 2;
            sizes.push_back(s);
            cells *= s;
        }
        MaxModel m = RandomMaxModel(gen, sizes, n, true);
        MaxNet mn;
        BuildMax(mn, m);
        ExpectNear(Table(mn.net, mn.child), BruteForceMax(m), 1e-12, "random model");
    }
}

TEST(NoisyMax, DocumentedSmallCases) {
    VEK_network net;
    int c = AddNode(net, VEK_NOISY_MAX, "c");
    VEK_noisyMAX& def = Max(net, c);
    ASSERT_EQ(def.SetCiWeights(VEK_doubleArray{0.1, 0.9}), VEK_OKAY);
    ExpectNear(Table(net, c), {0.1, 0.9}, 1e-15);

    int p = AddNode(net, VEK_CPT, "p", 2);
    ASSERT_EQ(net.AddArc(p, c), VEK_OKAY);
    ASSERT_EQ(def.SetCiWeights(VEK_doubleArray{0.8, 0.2, 0.0, 1.0, 0.0, 1.0}), VEK_OKAY);
    ExpectNear(Table(net, c), {0.8, 0.2, 0.0, 1.0}, 1e-15);
    VEK_intArray free;
    def.GetUnconstrainedColumns(free);
    EXPECT_EQ(free, (VEK_intArray{0, 2}));
    EXPECT_TRUE(def.CiIndexConstrained(3));
    EXPECT_FALSE(def.CiIndexConstrained(4));

    // A stronger outcome listed second swaps the parent's columns.
    ASSERT_EQ(def.SetParentOutcomeStrengths(0, VEK_intArray{1, 0}), VEK_OKAY);
    ExpectNear(Table(net, c), {0.0, 1.0, 0.8, 0.2}, 1e-15);
}

TEST(NoisyMax, ParameterWritesKeepTheConstrainedColumn) {
    VEK_network net;
    int c = AddNode(net, VEK_NOISY_MAX, "c", 3);
    ASSERT_EQ(net.AddArc(AddNode(net, VEK_CPT, "p", 2), c), VEK_OKAY);
    VEK_noisyMAX& def = Max(net, c);
    ASSERT_EQ(def.SetDefinition(std::vector<double>{0.2, 0.3, 0.5, 0, 0, 1, 0.1, 0.1, 0.8}), VEK_OKAY);
    ExpectMaxConsistent(net, c, "after SetDefinition");
    def.GetWriteableParameters()[3] = 0.7;
    def.OnParametersChanged();
    EXPECT_EQ(def.GetCiWeights()[3], 0.0);
    EXPECT_EQ(def.GetCiWeights()[5], 1.0);
}

// ---------------------------------------------------------------- conversions

TEST(NoisyMax, CptToCiInvertsCiToCpt) {
    std::mt19937 gen(777);
    for (int trial = 0; trial < 25; ++trial) {
        std::vector<int> sizes;
        for (int j = 0; j < 1 + trial % 5; ++j) sizes.push_back(2 + static_cast<int>(gen() % 3));
        MaxModel m = RandomMaxModel(gen, sizes, 2 + trial % 3, true);
        MaxNet mn;
        BuildMax(mn, m);
        VEK_noisyMAX& def = Max(mn.net, mn.child);
        VEK_Dmatrix cpt, ci;
        ASSERT_EQ(def.CiToCpt(def.GetCiWeights(), cpt), VEK_OKAY);
        ASSERT_EQ(def.CptToCi(cpt, ci), VEK_OKAY);
        ExpectNear(Items(ci), Items(def.GetCiWeights()), 1e-12, "round trip");
    }
}

TEST(NoisyMax, HenrionAndLegacyLayouts) {
    SeededMax mn(99, {3, 2}, 3, true);
    const MaxModel& m = mn.m;
    VEK_noisyMAX& def = Max(mn.net, mn.child);
    const std::vector<double> net = Items(def.GetCiWeights());

    // A Henrion column is the table column where only that parent is away
    // from its weakest outcome.
    VEK_Dmatrix henrion;
    ASSERT_EQ(def.GetHenrionProbabilities(henrion), VEK_OKAY);
    const VEK_Dmatrix& table = *def.GetMatrix();
    const int weak1 = m.strengths[1].back();
    for (int p = 0; p < 3; ++p) {
        const int o = m.strengths[0][p];
        VEK_intArray coords{o, weak1, 0};
        const double* col = &table.Subscript(coords);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(henrion[p * 3 + i], col[i], 1e-12);
    }
    std::string message;
    EXPECT_EQ(def.CheckHenrionConsistency(henrion, message), VEK_OKAY) << message;
    ASSERT_EQ(def.SetHenrionProbabilities(henrion), VEK_OKAY);
    ExpectNear(Items(def.GetCiWeights()), net, 1e-12, "Henrion round trip");

    // Legacy layout: (3 - 1) + (2 - 1) parent columns and the leak.
    VEK_doubleArray legacy;
    ASSERT_EQ(def.GetLegacyNoisyOrProbabilities(legacy), VEK_OKAY);
    ASSERT_EQ(legacy.GetSize(), 4 * 3);
    ASSERT_EQ(def.SetLegacyNoisyOrProbabilities(legacy), VEK_OKAY);
    ExpectNear(Items(def.GetCiWeights()), net, 1e-12, "legacy round trip");

    // A parent column above the leak near the distinguished outcome has no
    // net weights: refused, nothing changes.
    const std::vector<double> current = Items(def.GetCiWeights());
    VEK_Dmatrix bad(henrion);
    const int leak = def.GetLeakColumn();
    bad[leak * 3 + 0] = 0.8;
    bad[leak * 3 + 1] = 0.1;
    bad[leak * 3 + 2] = 0.1;
    bad[0] = 0.0;
    bad[1] = 0.0;
    bad[2] = 1.0;
    EXPECT_EQ(def.CheckHenrionConsistency(bad, message), VEK_OUT_OF_RANGE);
    EXPECT_FALSE(message.empty());
    EXPECT_EQ(def.SetHenrionProbabilities(bad), VEK_OUT_OF_RANGE);
    EXPECT_EQ(Items(def.GetCiWeights()), current);
    VEK_doubleArray shortList{0.5, 0.5};
    EXPECT_EQ(def.SetLegacyNoisyOrProbabilities(shortList), VEK_OUT_OF_RANGE);
    EXPECT_EQ(Items(def.GetCiWeights()), current);
}

TEST(NoisyMax, SingleStepDecompositionReproducesTable) {
    SeededMax mn(4242, {3, 2, 4}, 4, true);
    const MaxModel& m = mn.m;
    VEK_noisyMAX& def = Max(mn.net, mn.child);
    VEK_Dmatrix square;
    ASSERT_EQ(def.SquareCiToCptSingleStep(square), VEK_OKAY);
    ASSERT_EQ(square.GetDimensions(), (VEK_intArray{4, 4}));
    std::vector<VEK_Dmatrix> factors(3);
    for (int j = 0; j < 3; ++j) ASSERT_EQ(def.GetCumulativeFactor(j, factors[j]), VEK_OKAY);
    EXPECT_EQ(def.GetCumulativeFactor(3, factors[0]), VEK_OUT_OF_RANGE);

    std::vector<double> rebuilt;
    ForEachConfig(m.sizes, [&](const std::vector<int>& x) {
        for (int y = 0; y < 4; ++y) {
            double sum = 0.0;
            for (int yp = 0; yp < 4; ++yp) {
                double prod = square[yp * 4 + y];
                for (int j = 0; j < 3; ++j) prod *= factors[j][x[j] * 4 + yp];
                sum += prod;
            }
            rebuilt.push_back(sum);
        }
    });
    ExpectNear(rebuilt, Table(mn.net, mn.child), 1e-12, "decomposition");
}

// ---------------------------------------------------------------- following the graph

TEST(NoisyMax, TableFollowsParentChanges) {
    SeededMax mn(31, {3, 2}, 3, true);
    VEK_network& net = mn.net;
    const int c = mn.child;
    VEK_noisyMAX& def = Max(net, c);

    // A new parent in its weakest (here last) outcome leaves the table as it
    // was; its other outcomes get uniform columns.
    VEK_Dmatrix before = *def.GetMatrix();
    int q = AddNode(net, VEK_CPT, "q", 3);
    ASSERT_EQ(net.AddArc(q, c), VEK_OKAY);
    ExpectNear(Slice(*def.GetMatrix(), 2, 2), Items(before), 1e-15, "added parent");
    const int qb = def.GetParentColumnBase(2);
    for (int i = 0; i < 3; ++i) EXPECT_DOUBLE_EQ(def.GetCiWeights()[qb * 3 + i], 1.0 / 3);
    ExpectMaxConsistent(net, c, "after AddArc");

    // Reordering parents permutes the table's dimensions.
    before = *def.GetMatrix();
    ASSERT_EQ(net.ChangeOrderOfParents(c, VEK_intArray{2, 0, 1}), VEK_OKAY);
    VEK_Dmatrix expected(before);
    expected.ChangeOrderOfDimensions(VEK_intArray{2, 0, 1, 3});
    ExpectNear(Items(*def.GetMatrix()), Items(expected), 1e-15, "parent reorder");
    ExpectMaxConsistent(net, c, "after parent reorder");

    // Reordering a parent's outcomes reorders its dimension only.
    const int p0 = mn.parents[0];
    before = *def.GetMatrix();
    ASSERT_EQ(net.GetDef(p0)->ChangeOrderOfOutcomes(VEK_intArray{2, 0, 1}), VEK_OKAY);
    expected = before;
    expected.ChangeOrderWithinDimension(1, VEK_intArray{2, 0, 1});
    ExpectNear(Items(*def.GetMatrix()), Items(expected), 1e-15, "parent outcome reorder");
    ExpectMaxConsistent(net, c, "after parent outcome reorder");

    // An outcome added to a parent keeps the old outcomes' slices.
    before = *def.GetMatrix();
    ASSERT_EQ(net.GetDef(p0)->InsertOutcome(1, "extra"), VEK_OKAY);
    ASSERT_EQ(def.GetParentOutcomeCount(1), 4);
    const int oldOf[] = {0, -1, 1, 2};
    for (int o = 0; o < 4; ++o) {
        if (oldOf[o] >= 0) ExpectNear(Slice(*def.GetMatrix(), 1, o), Slice(before, 1, oldOf[o]), 1e-15, "kept slice");
    }
    ExpectMaxConsistent(net, c, "after parent outcome add");

    // Removing an outcome other than the weakest keeps the other slices.
    before = *def.GetMatrix();
    const int victim = def.GetParentOutcomeStrengths(1)->Items()[3] == 0 ? 1 : 0;
    ASSERT_EQ(net.GetDef(p0)->RemoveOutcome(victim), VEK_OKAY);
    for (int o = 0; o < 3; ++o) {
        ExpectNear(Slice(*def.GetMatrix(), 1, o), Slice(before, 1, o < victim ? o : o + 1), 1e-15, "slice");
    }
    ExpectMaxConsistent(net, c, "after parent outcome remove");

    // Removing a parent keeps the slice of its weakest outcome.
    before = *def.GetMatrix();
    const int weakQ = def.GetParentOutcomeStrengths(0)->Items()[2];
    ASSERT_EQ(net.RemoveArc(q, c), VEK_OKAY);
    ExpectNear(Items(*def.GetMatrix()), Slice(before, 0, weakQ), 1e-15, "removed parent");
    ExpectMaxConsistent(net, c, "after RemoveArc");

    ASSERT_EQ(net.DeleteNode(mn.parents[1]), VEK_OKAY);
    EXPECT_EQ(def.GetNumberOfParents(), 1);
    ExpectMaxConsistent(net, c, "after DeleteNode");
}

TEST(NoisyMax, TableFollowsOwnOutcomeChanges) {
    SeededMax mn(5, {2, 3}, 3, true);
    VEK_network& net = mn.net;
    VEK_noisyMAX& def = Max(net, mn.child);

    // A new top outcome has weight 0 everywhere: nothing reaches it.
    ASSERT_EQ(def.InsertOutcome(0, "top"), VEK_OKAY);
    ExpectMaxConsistent(net, mn.child, "after insert");
    const VEK_Dmatrix& t = *def.GetMatrix();
    for (int col = 0; col < t.GetSize() / 4; ++col) EXPECT_EQ(t[col * 4], 0.0);
    std::string message;
    EXPECT_EQ(def.CheckCiWeightsConsistency(def.GetCiWeights(), message), VEK_OKAY) << message;

    // The distinguished outcome is always the last one: inserting after it
    // moves the constraint.
    ASSERT_EQ(def.AddOutcome("bottom"), VEK_OKAY);
    const int last = def.GetConstrainedColumn(0);
    EXPECT_EQ(def.GetCiWeights()[last * 5 + 4], 1.0);
    ExpectMaxConsistent(net, mn.child, "after add");

    ASSERT_EQ(def.RemoveOutcome(1), VEK_OKAY);
    EXPECT_EQ(def.CheckCiWeightsConsistency(def.GetCiWeights(), message), VEK_OKAY) << message;
    ExpectMaxConsistent(net, mn.child, "after remove");

    ASSERT_EQ(def.ChangeOrderOfOutcomes(VEK_intArray{3, 0, 1, 2}), VEK_OKAY);
    ExpectMaxConsistent(net, mn.child, "after reorder");

    ASSERT_EQ(def.SetNumberOfOutcomes(2), VEK_OKAY);
    ExpectMaxConsistent(net, mn.child, "after count change");
}

TEST(NoisyMax, StrengthOrdersAndSynchronization) {
    SeededMax mn(8, {3}, 3, false);
    VEK_noisyMAX& def = Max(mn.net, mn.child);

    // Columns move with their outcomes: outcome 1 keeps its column; outcome
    // 0, now the weakest, loses its effect, and outcome 2 keeps the
    // no-effect column it had as the weakest.
    const std::vector<double> before = Table(mn.net, mn.child);
    ASSERT_EQ(def.ChangeOrderOfStrengths(0, VEK_intArray{1, 2, 0}), VEK_OKAY);
    const std::vector<double> after = Table(mn.net, mn.child);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(after[3 + i], before[3 + i], 1e-15);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(after[6 + i], after[0 + i], 1e-15);
    ExpectMaxConsistent(mn.net, mn.child, "after ChangeOrderOfStrengths");

    EXPECT_FALSE(def.IsSynchronized());
    ASSERT_EQ(def.SetSynchronized(true), VEK_OKAY);
    EXPECT_TRUE(def.GetParentOutcomeStrengths(0)->IsIdentityPermutation());
    // Synchronized strengths stay the outcome order when the parent's
    // outcomes move.
    ASSERT_EQ(mn.net.GetDef(mn.parents[0])->ChangeOrderOfOutcomes(VEK_intArray{1, 0, 2}), VEK_OKAY);
    EXPECT_TRUE(def.GetParentOutcomeStrengths(0)->IsIdentityPermutation());
    ExpectMaxConsistent(mn.net, mn.child, "synchronized reorder");
    ASSERT_EQ(mn.net.GetDef(mn.parents[0])->AddOutcome("more"), VEK_OKAY);
    EXPECT_TRUE(def.GetParentOutcomeStrengths(0)->IsIdentityPermutation());
    EXPECT_TRUE(def.IsSynchronized());
    ASSERT_EQ(def.SetParentOutcomeStrengths(0, VEK_intArray{0, 2, 1, 3}), VEK_OKAY);
    EXPECT_FALSE(def.IsSynchronized());
}

// ---------------------------------------------------------------- refused input

TEST(NoisyMax, BadInputChangesNothing) {
    SeededMax mn(3, {3, 2}, 3, true);
    VEK_noisyMAX& def = Max(mn.net, mn.child);
    const std::vector<double> weights = Items(def.GetCiWeights());
    const std::vector<double> table = Table(mn.net, mn.child);
    const std::vector<int> strengths = def.GetParentOutcomeStrengths(0)->ToVector();

    EXPECT_EQ(def.SetParentOutcomeStrengths(2, VEK_intArray{0, 1}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def.SetParentOutcomeStrengths(-1, VEK_intArray{0, 1}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def.SetParentOutcomeStrengths(0, VEK_intArray{0, 1}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def.SetParentOutcomeStrengths(0, VEK_intArray{0, 1, 1}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def.SetParentOutcomeStrengths(0, VEK_intArray{0, 1, 3}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def.ChangeOrderOfStrengths(0, VEK_intArray{2, 2, 0}), VEK_OUT_OF_RANGE);

    VEK_doubleArray w(weights);
    w.Add(0.0);
    EXPECT_EQ(def.SetCiWeights(w), VEK_OUT_OF_RANGE);  // length
    w = VEK_doubleArray(weights);
    w[0] = 1.2;
    w[1] = -0.2;
    EXPECT_EQ(def.SetCiWeights(w), VEK_OUT_OF_RANGE);  // outside [0, 1]
    w = VEK_doubleArray(weights);
    w[def.GetLeakColumn() * 3] += 0.1;
    EXPECT_EQ(def.SetCiWeights(w), VEK_OUT_OF_RANGE);  // sum
    std::string message;
    VEK_Dmatrix wm(def.GetCiWeights());
    wm.FillFrom(w);
    EXPECT_EQ(def.CheckCiWeightsConsistency(wm, message), VEK_OUT_OF_RANGE);
    EXPECT_NE(message.find("column"), std::string::npos);
    VEK_Dmatrix wrong(VEK_intArray{2, 3});
    EXPECT_EQ(def.CptToCi(wrong), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def.CiToCpt(wrong, wm), VEK_OUT_OF_RANGE);

    EXPECT_EQ(Items(def.GetCiWeights()), weights);
    EXPECT_EQ(def.GetParentOutcomeStrengths(0)->ToVector(), strengths);
    EXPECT_EQ(Table(mn.net, mn.child), table);
}

// ---------------------------------------------------------------- type changes

TEST(NoisyMax, TypeChangesKeepTheTable) {
    SeededMax mn(17, {2, 3}, 3, false);
    VEK_network& net = mn.net;
    const std::vector<double> weights = Items(Max(net, mn.child).GetCiWeights());
    const std::vector<double> table = Table(net, mn.child);
    const VEK_idArray ids = *net.GetDef(mn.child)->GetOutcomeIds();

    ASSERT_EQ(net.ChangeNodeType(mn.child, VEK_CPT), VEK_OKAY);
    EXPECT_EQ(Items(net.GetDef(mn.child)->GetDefinition()), table);

    // Back to noisy-MAX: the weights are read from the table.
    ASSERT_EQ(net.ChangeNodeType(mn.child, VEK_NOISY_MAX), VEK_OKAY);
    EXPECT_EQ(*net.GetDef(mn.child)->GetOutcomeIds(), ids);
    ExpectNear(Items(Max(net, mn.child).GetCiWeights()), weights, 1e-12, "recovered weights");

    // Any other table still gives valid weights.
    ASSERT_EQ(net.ChangeNodeType(mn.child, VEK_CPT), VEK_OKAY);
    VEK_randGen rg(5);
    ASSERT_EQ(net.GetDef(mn.child)->MakeRandom(rg), VEK_OKAY);
    ASSERT_EQ(net.ChangeNodeType(mn.child, VEK_NOISY_MAX), VEK_OKAY);
    std::string message;
    VEK_noisyMAX& def = Max(net, mn.child);
    EXPECT_EQ(def.CheckCiWeightsConsistency(def.GetCiWeights(), message), VEK_OKAY) << message;

    ASSERT_EQ(net.ChangeNodeType(mn.child, VEK_NOISY_ADDER), VEK_OKAY);
    EXPECT_EQ(net.GetDef(mn.child)->GetNumberOfOutcomes(), 3);
    EXPECT_EQ(Adder(net, mn.child).GetNumberOfParents(), 2);
}

TEST(NoisyMax, NetworkCopyIsIndependent) {
    SeededMax mn(2, {2}, 2, false);
    VEK_network copy(mn.net);
    const std::vector<double> table = Table(mn.net, mn.child);
    EXPECT_EQ(Table(copy, mn.child), table);
    ASSERT_EQ(Max(copy, mn.child).SetCiWeights(VEK_doubleArray{1, 0, 0, 1, 0.5, 0.5}), VEK_OKAY);
    EXPECT_EQ(Table(mn.net, mn.child), table);
    ExpectNear(Table(copy, mn.child), {1, 0, 0.5, 0.5}, 1e-15);
}

// ---------------------------------------------------------------- noisy-adder

namespace {

// Average and single-fault combinations written out per configuration.
std::vector<double> BruteForceAdder(const VEK_noisyAdder& def) {
    const int n = def.GetNumberOfOutcomes();
    const int k = def.GetNumberOfParents();
    const double* w = def.GetCiWeights().Items();
    std::vector<int> sizes;
    for (int j = 0; j < k; ++j) sizes.push_back(def.GetParentOutcomeCount(j));
    const double* leak = w + def.GetLeakColumn() * n;
    std::vector<double> out;
    ForEachConfig(sizes, [&](const std::vector<int>& x) {
        Dist p(n, 0.0);
        double total = 0.0;
        const bool single = def.GetFunction() == VEK_noisyAdder::FUNCTION_SINGLE_FAULT;
        if (!single) {
            for (int i = 0; i < n; ++i) p[i] = leak[i];
            total = 1.0;
        }
        for (int j = 0; j < k; ++j) {
            double wj = 0.0;
            def.GetParentWeight(j, wj);
            if (single && x[j] == def.GetParentDistinguishedState(j)) continue;
            const double* col = w + (def.GetParentColumnBase(j) + x[j]) * n;
            for (int i = 0; i < n; ++i) p[i] += wj * col[i];
            total += wj;
        }
        for (int i = 0; i < n; ++i) p[i] = total > 0 ? p[i] / total : leak[i];
        out.insert(out.end(), p.begin(), p.end());
    });
    return out;
}

}  // namespace

TEST(NoisyAdder, CombinationsMatchTheirFormulas) {
    std::mt19937 gen(21);
    VEK_network net;
    int c = AddNode(net, VEK_NOISY_ADDER, "c", 3);
    std::vector<int> parents;
    for (int j = 0; j < 3; ++j) {
        parents.push_back(AddNode(net, VEK_CPT, ParentId(j), 2 + j));
        ASSERT_EQ(net.AddArc(parents.back(), c), VEK_OKAY);
    }
    VEK_noisyAdder& def = Adder(net, c);
    EXPECT_EQ(def.GetDistinguishedState(), 2);
    EXPECT_EQ(def.GetParentDistinguishedState(2), 3);
    for (int round = 0; round < 6; ++round) {
        VEK_doubleArray w;
        for (int col = 0; col < def.GetNumberOfColumns(); ++col) {
            for (double v : RandomDist(gen, 3)) w.Add(v);
        }
        ASSERT_EQ(def.SetDistinguishedState(round % 3), VEK_OKAY);
        for (int j = 0; j < 3; ++j) {
            ASSERT_EQ(def.SetParentDistinguishedState(j, static_cast<int>(gen() % (2 + j))), VEK_OKAY);
            ASSERT_EQ(def.SetParentWeight(j, round == 5 ? 0.0 : 0.25 * (1 + gen() % 8)), VEK_OKAY);
        }
        ASSERT_EQ(def.SetCiWeights(w), VEK_OKAY);
        ASSERT_EQ(def.SetFunction(round % 2 ? VEK_noisyAdder::FUNCTION_SINGLE_FAULT : VEK_noisyAdder::FUNCTION_AVERAGE),
                  VEK_OKAY);
        // The distinguished column of each parent points at the node's
        // distinguished state.
        for (int j = 0; j < 3; ++j) {
            const int col = def.GetConstrainedColumn(j);
            EXPECT_EQ(def.GetCiWeights()[col * 3 + def.GetDistinguishedState()], 1.0);
        }
        ExpectNear(Table(net, c), BruteForceAdder(def), 1e-12, "adder");
    }
    // Single fault with one faulty parent is that parent's column.
    ASSERT_EQ(def.SetFunction(VEK_noisyAdder::FUNCTION_SINGLE_FAULT), VEK_OKAY);
    for (int j = 0; j < 3; ++j) ASSERT_EQ(def.SetParentWeight(j, 2.0), VEK_OKAY);
    ASSERT_EQ(def.SetParentDistinguishedStates(VEK_intArray{0, 0, 0}), VEK_OKAY);
    VEK_intArray coords{0, 2, 0, 0};
    const double* col = &def.GetMatrix()->Subscript(coords);
    const double* expected = def.GetCiWeights().Items() + (def.GetParentColumnBase(1) + 2) * 3;
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(col[i], expected[i], 1e-15);

    const char* name = VEK_noisyAdder::FunctionName(VEK_noisyAdder::FUNCTION_SINGLE_FAULT);
    EXPECT_STREQ(name, "singlefault");
    VEK_noisyAdder::Function f;
    EXPECT_EQ(VEK_noisyAdder::FunctionFromName("singlefault", f), VEK_OKAY);
    EXPECT_EQ(f, VEK_noisyAdder::FUNCTION_SINGLE_FAULT);
    EXPECT_EQ(VEK_noisyAdder::FunctionFromName("sum", f), VEK_OUT_OF_RANGE);
}

TEST(NoisyAdder, FollowsTheGraphAndRefusesBadInput) {
    std::mt19937 gen(64);
    VEK_network net;
    int c = AddNode(net, VEK_NOISY_ADDER, "c", 3);
    int a = AddNode(net, VEK_CPT, "a", 3);
    int b = AddNode(net, VEK_CPT, "b", 2);
    ASSERT_EQ(net.AddArc(a, c), VEK_OKAY);
    ASSERT_EQ(net.AddArc(b, c), VEK_OKAY);
    VEK_noisyAdder& def = Adder(net, c);
    VEK_doubleArray w;
    for (int col = 0; col < def.GetNumberOfColumns(); ++col) {
        for (double v : RandomDist(gen, 3)) w.Add(v);
    }
    ASSERT_EQ(def.SetCiWeights(w), VEK_OKAY);
    ASSERT_EQ(def.SetParentDistinguishedState(0, 1), VEK_OKAY);
    ASSERT_EQ(def.SetParentWeight(0, 3.0), VEK_OKAY);

    // Parent outcomes reordered: the distinguished state and the columns
    // follow, so the table is the old one reordered.
    VEK_Dmatrix before = *def.GetMatrix();
    ASSERT_EQ(net.GetDef(a)->ChangeOrderOfOutcomes(VEK_intArray{1, 2, 0}), VEK_OKAY);
    EXPECT_EQ(def.GetParentDistinguishedState(0), 0);
    VEK_Dmatrix expected(before);
    expected.ChangeOrderWithinDimension(0, VEK_intArray{1, 2, 0});
    ExpectNear(Items(*def.GetMatrix()), Items(expected), 1e-15, "adder parent outcome reorder");

    ASSERT_EQ(net.ChangeOrderOfParents(c, VEK_intArray{1, 0}), VEK_OKAY);
    double weight = 0;
    ASSERT_EQ(def.GetParentWeight(1, weight), VEK_OKAY);
    EXPECT_EQ(weight, 3.0);
    ExpectNear(Table(net, c), BruteForceAdder(def), 1e-12, "after parent reorder");

    // Removing the distinguished state makes the last state distinguished.
    ASSERT_EQ(net.GetDef(a)->RemoveOutcome(0), VEK_OKAY);
    EXPECT_EQ(def.GetParentDistinguishedState(1), 1);
    ExpectNear(Table(net, c), BruteForceAdder(def), 1e-12, "after parent outcome remove");

    ASSERT_EQ(def.InsertOutcome(0, "x"), VEK_OKAY);
    EXPECT_EQ(def.GetDistinguishedState(), 3);
    ASSERT_EQ(def.ChangeOrderOfOutcomes(VEK_intArray{3, 0, 1, 2}), VEK_OKAY);
    EXPECT_EQ(def.GetDistinguishedState(), 0);
    std::string message;
    EXPECT_EQ(def.CheckCiWeightsConsistency(def.GetCiWeights(), message), VEK_OKAY) << message;
    ExpectNear(Table(net, c), BruteForceAdder(def), 1e-12, "after own outcome changes");

    const std::vector<double> params = Items(def.GetParameters());
    const std::vector<double> table = Table(net, c);
    EXPECT_EQ(def.SetParentWeight(2, 1.0), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def.SetParentWeight(0, -0.5), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def.SetParentWeight(0, NAN), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def.SetParentWeights(VEK_doubleArray{1.0}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def.SetDistinguishedState(4), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def.SetParentDistinguishedState(0, 2), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def.SetParentDistinguishedState(5, 0), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def.SetParentDistinguishedStates(VEK_intArray{0, 7}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def.SetFunction(static_cast<VEK_noisyAdder::Function>(7)), VEK_OUT_OF_RANGE);
    EXPECT_EQ(Items(def.GetParameters()), params);
    EXPECT_EQ(Table(net, c), table);
    EXPECT_EQ(def.GetParentDistinguishedState(0), 1);
}

// ---------------------------------------------------------------- DeMorgan and CAST

namespace {

// The two passes, parent by parent.
double DeMorganFormula(double prior, const std::vector<int>& types, const std::vector<double>& w,
                       const std::vector<int>& x) {
    double p = prior;
    for (size_t j = 0; j < types.size(); ++j) {
        if ((types[j] == VEK_demorgan::CAUSE && x[j] == 0) || (types[j] == VEK_demorgan::BARRIER && x[j] == 1)) {
            p += (1 - p) * w[j];
        }
    }
    for (size_t j = 0; j < types.size(); ++j) {
        if ((types[j] == VEK_demorgan::INHIBITOR && x[j] == 0) ||
            (types[j] == VEK_demorgan::REQUIREMENT && x[j] == 1)) {
            p *= 1 - w[j];
        }
    }
    return p;
}

double CastFormula(double b, const std::vector<double>& pos, const std::vector<double>& neg,
                   const std::vector<int>& x) {
    double n = 1, p = 1;
    for (size_t j = 0; j < pos.size(); ++j) {
        double w = x[j] == 0 ? pos[j] : neg[j];
        if (w < 0) {
            n *= 1 + w;
        } else {
            p *= 1 - w;
        }
    }
    if (n + p == 0) return b;
    double r = n <= p ? n / p - 1 : 1 - p / n;
    return r >= 0 ? b + (1 - b) * r : b * (1 + r);
}

// A chain of parents of the type feeding one child.
int BuildQual(VEK_network& net, int type, int k, std::vector<int>& parents) {
    int c = AddNode(net, type, "c");
    for (int j = 0; j < k; ++j) {
        parents.push_back(AddNode(net, type, ParentId(j)));
        EXPECT_EQ(net.AddArc(parents.back(), c), VEK_OKAY);
    }
    return c;
}

}  // namespace

// Random parameters for 0 to 6 parents; every column against the formula.
TEST(Qualitative, TablesMatchTheirFormulasOnEveryCombination) {
    std::mt19937 gen(11);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int type : {VEK_DEMORGAN, VEK_CAST}) {
        for (int k = 0; k <= 6; ++k) {
            VEK_network net;
            std::vector<int> parents;
            int c = BuildQual(net, type, k, parents);
            std::function<double(const std::vector<int>&)> formula;
            if (type == VEK_DEMORGAN) {
                VEK_demorgan& def = DeMorgan(net, c);
                std::vector<int> types(k);
                std::vector<double> w(k);
                for (int j = 0; j < k; ++j) {
                    ASSERT_EQ(def.SetParentType(j, types[j] = static_cast<int>(gen() % 4)), VEK_OKAY);
                    ASSERT_EQ(def.SetParentWeight(j, w[j] = u(gen)), VEK_OKAY);
                }
                const double prior = u(gen);
                ASSERT_EQ(def.SetPriorBelief(prior), VEK_OKAY);
                formula = [=](const std::vector<int>& x) { return DeMorganFormula(prior, types, w, x); };
            } else {
                std::vector<double> pos(k), neg(k);
                for (int j = 0; j < k; ++j) {
                    pos[j] = 2 * u(gen) - 1;
                    neg[j] = j == 1 ? -1.0 : 2 * u(gen) - 1;
                }
                if (k >= 3) pos[2] = 1.0;  // with -1 elsewhere: N + P can reach 0
                ASSERT_EQ(Cast(net, c).SetPositiveWeights(VEK_doubleArray(pos)), VEK_OKAY);
                ASSERT_EQ(Cast(net, c).SetNegativeWeights(VEK_doubleArray(neg)), VEK_OKAY);
                const double b = u(gen);
                ASSERT_EQ(Cast(net, c).SetBaseline(b), VEK_OKAY);
                formula = [=](const std::vector<int>& x) { return CastFormula(b, pos, neg, x); };
            }
            std::vector<double> expected;
            ForEachConfig(std::vector<int>(k, 2), [&](const std::vector<int>& x) {
                expected.push_back(formula(x));
                expected.push_back(1 - expected.back());
            });
            ExpectNear(Table(net, c), expected, 1e-14, type == VEK_CAST ? "CAST" : "DeMorgan");
            if (type == VEK_DEMORGAN) {
                EXPECT_NEAR(DeMorgan(net, c).CalculateProbability(VEK_intArray(k)), expected[0], 1e-15);
            }
        }
    }
}

TEST(DeMorgan, DocumentedCasesAndGraphChanges) {
    VEK_network net;
    std::vector<int> parents;
    int c = BuildQual(net, VEK_DEMORGAN, 1, parents);
    VEK_demorgan& def = DeMorgan(net, c);
    // A new parent is a cause of weight 0: the table is the prior.
    ExpectNear(Table(net, c), {0.5, 0.5, 0.5, 0.5}, 1e-15);
    ASSERT_EQ(def.SetPriorBelief(0.1), VEK_OKAY);
    ASSERT_EQ(def.SetParentWeight(0, 0.5), VEK_OKAY);
    ExpectNear(Table(net, c), {0.55, 0.45, 0.1, 0.9}, 1e-15);
    ASSERT_EQ(def.SetParentType(0, VEK_demorgan::INHIBITOR), VEK_OKAY);
    EXPECT_NEAR(Table(net, c)[0], 0.05, 1e-15);

    // A second parent; reordering parents moves its type and weight along.
    parents.push_back(AddNode(net, VEK_DEMORGAN, "p1"));
    ASSERT_EQ(net.AddArc(parents[1], c), VEK_OKAY);
    ASSERT_EQ(def.SetParentWeights(VEK_doubleArray{0.5, 0.8}), VEK_OKAY);
    ASSERT_EQ(def.SetParentTypes(VEK_intArray{VEK_demorgan::INHIBITOR, VEK_demorgan::CAUSE}), VEK_OKAY);
    VEK_Dmatrix before = *def.GetMatrix();
    ASSERT_EQ(net.ChangeOrderOfParents(c, VEK_intArray{1, 0}), VEK_OKAY);
    EXPECT_EQ(def.GetParentType(0), VEK_demorgan::CAUSE);
    VEK_Dmatrix expected(before);
    expected.ChangeOrderOfDimensions(VEK_intArray{1, 0, 2});
    ExpectNear(Items(*def.GetMatrix()), Items(expected), 1e-15, "parent reorder");
    EXPECT_EQ(Items(def.GetParameters()), (std::vector<double>{0.8, 0.5, 0.1}));

    ASSERT_EQ(net.RemoveArc(parents[0], c), VEK_OKAY);
    EXPECT_EQ(Items(def.GetParameters()), (std::vector<double>{0.8, 0.1}));
    EXPECT_EQ(def.GetParentType(0), VEK_demorgan::CAUSE);
    ExpectNear(Table(net, c), {0.1 + 0.9 * 0.8, 1 - (0.1 + 0.9 * 0.8), 0.1, 0.9}, 1e-15);

    EXPECT_STREQ(VEK_demorgan::ParentTypeName(VEK_demorgan::BARRIER), "barrier");
    EXPECT_EQ(VEK_demorgan::ParentTypeFromName("requirement"), VEK_demorgan::REQUIREMENT);
    EXPECT_EQ(VEK_demorgan::ParentTypeFromName("blocker"), VEK_OUT_OF_RANGE);
}

TEST(Cast, DocumentedCases) {
    VEK_network net;
    std::vector<int> parents;
    int c = BuildQual(net, VEK_CAST, 1, parents);
    VEK_cast& def = Cast(net, c);
    ExpectNear(Table(net, c), {0.5, 0.5, 0.5, 0.5}, 1e-15);
    ASSERT_EQ(def.SetWeight(0, true, 0.6), VEK_OKAY);
    ASSERT_EQ(def.SetWeight(0, false, -0.6), VEK_OKAY);
    ExpectNear(Table(net, c), {0.8, 0.2, 0.2, 0.8}, 1e-15);
    double w = 0;
    ASSERT_EQ(def.GetWeight(0, false, w), VEK_OKAY);
    EXPECT_EQ(w, -0.6);
    EXPECT_EQ(Items(def.GetParameters()), (std::vector<double>{0.6, -0.6, 0.5}));
}

TEST(Qualitative, FixedOutcomesArcRulesAndBadInput) {
    for (int type : {VEK_DEMORGAN, VEK_CAST}) {
        VEK_network net;
        std::vector<int> parents;
        int c = BuildQual(net, type, 2, parents);
        VEK_qualDef& def = *dynamic_cast<VEK_qualDef*>(net.GetDef(c));
        ASSERT_EQ(def.SetParentWeight(0, 0.3), VEK_OKAY);
        const std::vector<double> params = Items(def.GetParameters());
        const std::vector<double> table = Table(net, c);

        EXPECT_EQ(def.AddOutcome("x"), VEK_WRONG_NODE_TYPE);
        EXPECT_EQ(def.InsertOutcome(0, "x"), VEK_WRONG_NODE_TYPE);
        EXPECT_EQ(def.RemoveOutcome(0), VEK_WRONG_NODE_TYPE);
        EXPECT_EQ(def.SetNumberOfOutcomes(3), VEK_WRONG_NODE_TYPE);
        EXPECT_EQ(def.ChangeOrderOfOutcomes(VEK_intArray{1, 0}), VEK_WRONG_NODE_TYPE);
        VEK_idArray ids;
        for (const char* s : {"x", "y", "z"}) ids.Add(s);
        EXPECT_EQ(def.SetNumberOfOutcomes(ids), VEK_WRONG_NODE_TYPE);
        EXPECT_EQ(def.ChangeOrderOfOutcomesWithAddAndRemove(ids, VEK_intArray{0, 1, -1}), VEK_WRONG_NODE_TYPE);
        EXPECT_EQ(def.GetNumberOfOutcomes(), 2);

        // Only parents of the same kind.
        int cpt = AddNode(net, VEK_CPT, "cpt", 2);
        EXPECT_EQ(net.AddArc(cpt, c), VEK_WRONG_NODE_TYPE);
        EXPECT_EQ(net.AddArc(c, cpt), VEK_WRONG_NODE_TYPE);
        int other = AddNode(net, type == VEK_CAST ? VEK_DEMORGAN : VEK_CAST, "other");
        EXPECT_EQ(net.AddArc(other, c), VEK_WRONG_NODE_TYPE);

        EXPECT_EQ(def.SetParentWeight(2, 0.5), VEK_OUT_OF_RANGE);
        EXPECT_EQ(def.SetParentWeight(-1, 0.5), VEK_OUT_OF_RANGE);
        EXPECT_EQ(def.SetParentWeight(0, 1.5), VEK_OUT_OF_RANGE);
        EXPECT_EQ(def.SetParentWeight(0, NAN), VEK_OUT_OF_RANGE);
        EXPECT_EQ(def.SetParentWeights(VEK_doubleArray{0.1}), VEK_OUT_OF_RANGE);
        if (type == VEK_DEMORGAN) {
            VEK_demorgan& d = DeMorgan(net, c);
            EXPECT_EQ(d.SetParentWeight(0, -0.1), VEK_OUT_OF_RANGE);
            EXPECT_EQ(d.SetPriorBelief(1.1), VEK_OUT_OF_RANGE);
            EXPECT_EQ(d.SetParentType(0, 4), VEK_OUT_OF_RANGE);
            EXPECT_EQ(d.SetParentType(2, 0), VEK_OUT_OF_RANGE);
            EXPECT_EQ(d.SetParentTypes(VEK_intArray{0, -1}), VEK_OUT_OF_RANGE);
            EXPECT_EQ(d.GetParentType(0), VEK_demorgan::CAUSE);
        } else {
            VEK_cast& d = Cast(net, c);
            EXPECT_EQ(d.SetWeight(0, false, -1.5), VEK_OUT_OF_RANGE);
            EXPECT_EQ(d.SetBaseline(-0.1), VEK_OUT_OF_RANGE);
            EXPECT_EQ(d.SetNegativeWeights(VEK_doubleArray{0.0, 2.0}), VEK_OUT_OF_RANGE);
        }
        EXPECT_EQ(Items(def.GetParameters()), params);
        EXPECT_EQ(Table(net, c), table);

        // To CPT keeps the table; from CPT the node starts afresh with two outcomes.
        ASSERT_EQ(net.ChangeNodeType(c, VEK_CPT), VEK_OKAY);
        EXPECT_TRUE(net.GetNode(c)->Parents().IsEmpty());
        ASSERT_EQ(net.GetDef(cpt)->SetNumberOfOutcomes(3), VEK_OKAY);
        ASSERT_EQ(net.ChangeNodeType(cpt, type), VEK_OKAY);
        EXPECT_EQ(net.GetDef(cpt)->GetNumberOfOutcomes(), 2);
        EXPECT_EQ(net.GetDef(cpt)->GetMatrix()->GetSize(), 2);
    }
}
