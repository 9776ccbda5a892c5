#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>
#include <stdexcept>
#include <vector>

#include "network/dmatrix.h"
#include "network/sysCoordinates.h"
#include "network/tableDef.h"

namespace {

using Ints = std::vector<int>;

// Independent row-major arithmetic for checking the matrix against.
int RefIndex(const Ints& dims, const Ints& c) {
    int index = 0;
    for (size_t i = 0; i < dims.size(); ++i) index = index * dims[i] + c[i];
    return index;
}

Ints RefCoords(const Ints& dims, int index) {
    Ints c(dims.size());
    for (int i = static_cast<int>(dims.size()) - 1; i >= 0; --i) {
        c[i] = index % dims[i];
        index /= dims[i];
    }
    return c;
}

int Total(const Ints& dims) {
    int t = 1;
    for (int d : dims) t *= d;
    return t;
}

Ints DimsOf(const VEK_Dmatrix& m) { return m.GetDimensions().ToVector(); }

double At(const VEK_Dmatrix& m, const Ints& c) { return m.Items()[RefIndex(DimsOf(m), c)]; }

VEK_Dmatrix Make(const Ints& dims, const std::vector<double>& items) {
    VEK_Dmatrix m{VEK_intArray(dims)};
    EXPECT_EQ(m.FillFrom(items), 0);
    return m;
}

// Random shape with 1..maxDims dimensions of 1..4 states and distinct items.
VEK_Dmatrix RandomMatrix(std::mt19937& rng, int maxDims) {
    std::uniform_int_distribution<int> nd(1, maxDims), size(1, 4);
    Ints dims(nd(rng));
    for (int& d : dims) d = size(rng);
    VEK_Dmatrix m{VEK_intArray(dims)};
    for (int i = 0; i < m.GetSize(); ++i) m[i] = 100.0 + i + 0.25 * (rng() % 4);
    return m;
}

int Pick(std::mt19937& rng, int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }

Ints RandomPermutation(std::mt19937& rng, int n) {
    Ints p(n);
    for (int i = 0; i < n; ++i) p[i] = i;
    std::shuffle(p.begin(), p.end(), rng);
    return p;
}

Ints Without(const Ints& v, int pos) {
    Ints out(v);
    out.erase(out.begin() + pos);
    return out;
}

// m has dimensions dims, and each item equals the item of orig at the
// coordinates toOrig makes of its own.
template <class F>
void ExpectMoved(const VEK_Dmatrix& m, const Ints& dims, const VEK_Dmatrix& orig, F toOrig) {
    ASSERT_EQ(DimsOf(m), dims);
    for (int i = 0; i < m.GetSize(); ++i) {
        Ints c = RefCoords(dims, i);
        toOrig(c);
        ASSERT_EQ(m[i], At(orig, c)) << "item " << i;
    }
}

}  // namespace

// ------------------------------------------------------------ shape and access

TEST(Dmatrix, IndexAndCoordinates) {
    VEK_Dmatrix m{VEK_intArray{2, 3}};
    EXPECT_EQ(m.GetSize(), 6);
    VEK_intArray c;
    EXPECT_EQ(m.IndexToCoordinates(6, c), -2);
    EXPECT_EQ(m.IndexToCoordinates(-1, c), -2);
    EXPECT_TRUE(m.Ok(VEK_intArray{1, 2}));
    EXPECT_TRUE(m.Ok(VEK_intArray{1, 2, 99}));  // extra coordinates are ignored
    EXPECT_FALSE(m.Ok(VEK_intArray{1}));
    EXPECT_FALSE(m.Ok(VEK_intArray{2, 0}));
    EXPECT_FALSE(m.Ok(VEK_intArray{0, -1}));
    m.Subscript(VEK_intArray{1, 0}) = 4.5;
    EXPECT_EQ(m[3], 4.5);

    VEK_Dmatrix big{VEK_intArray{3, 1, 4, 2}};
    EXPECT_EQ(big.GetProducts().ToVector(), (Ints{8, 8, 2, 1}));
    for (int i = 0; i < big.GetSize(); ++i) {
        ASSERT_EQ(big.IndexToCoordinates(i, c), 0);
        EXPECT_EQ(c.ToVector(), RefCoords({3, 1, 4, 2}, i));
        EXPECT_EQ(big.CoordinatesToIndex(c), i);
    }
}

TEST(Dmatrix, SetupReCreateAndEquality) {
    VEK_Dmatrix m;
    const int sizes[] = {2, 0, 3};
    EXPECT_EQ(m.Setup(sizes, 3), -2);
    EXPECT_EQ(m.Setup(sizes, -1), -2);
    EXPECT_EQ(m.GetNumberOfDimensions(), 0);
    ASSERT_EQ(m.Setup(VEK_intArray{2, 5}), 0);
    EXPECT_EQ(m.GetSize(), 10);
    EXPECT_EQ(m.GetSizeOfDimension(2), -2);
    EXPECT_EQ(m.GetSizeOfDimension(-1), -2);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(m[i], 0.0);
    ASSERT_EQ(m.ReCreate(sizes, 0), 0);  // clears
    EXPECT_EQ(m.GetSize(), 0);
    EXPECT_EQ(m.GetLastDimensionSize(), 0);

    ASSERT_EQ(m.SetSingleDimension(4), 0);
    EXPECT_EQ(m.SetSingleDimension(0), -2);
    EXPECT_EQ(DimsOf(m), (Ints{4}));
    EXPECT_EQ(VEK_Dmatrix(VEK_intArray{2, -1}).GetSize(), 0);
    VEK_Dmatrix filled(VEK_intArray{2, 2}, 0.25);
    ASSERT_EQ(filled.ReCreate(filled.GetDimensions()), 0);  // from its own dimension list
    EXPECT_EQ(DimsOf(filled), (Ints{2, 2}));
    ASSERT_EQ(filled.ResizeDimension(0, 3), 0);
    EXPECT_EQ(filled.GetProducts().ToVector(), (Ints{2, 1}));
    EXPECT_EQ(filled.GetSize(), 6);

    // Equality needs the same items and the same shape.
    const VEK_Dmatrix a = Make({2, 3}, {1, 2, 3, 4, 5, 6});
    EXPECT_FALSE(a == Make({3, 2}, {1, 2, 3, 4, 5, 6}));
    EXPECT_FALSE(a == Make({2, 3}, {1, 2, 3, 4, 5, 7}));
}

TEST(Dmatrix, OverflowingSizesThrowAndChangeNothing) {
    VEK_Dmatrix m = Make({2}, {0.2, 0.8});
    EXPECT_THROW(m.Setup(VEK_intArray{65536, 32768}), std::overflow_error);
    EXPECT_EQ(DimsOf(m), (Ints{2}));
    EXPECT_EQ(m[1], 0.8);
    try {
        m.Setup(VEK_intArray{2, INT_MAX});
        FAIL() << "no throw";
    } catch (const std::overflow_error& e) {
        EXPECT_STREQ(e.what(), "VEK_smulThrowOnOverflow");
    }
    VEK_Dmatrix wide{VEK_intArray{46341}};
    EXPECT_THROW(wide.AddDimension(46341), std::overflow_error);
    EXPECT_EQ(DimsOf(wide), (Ints{46341}));
    EXPECT_EQ(VEK_smulThrowOnOverflow(46340, 46340), 2147395600);
    EXPECT_EQ(VEK_smulThrowOnOverflow(-3, 4), -12);
    EXPECT_THROW(VEK_smulThrowOnOverflow(INT_MIN, -1), std::overflow_error);
}

// ------------------------------------------------------------ arithmetic

TEST(Dmatrix, FillAndArithmetic) {
    VEK_Dmatrix m{VEK_intArray{2, 3}};
    EXPECT_EQ(m.FillFrom(std::vector<double>{1, 2}), -4);
    EXPECT_EQ(m.FillFrom(VEK_doubleArray{1, 2, 3, 4, 5, 6, 7}), -4);
    ASSERT_EQ(m.FillFrom(VEK_doubleArray{1, 2, 3, 4, 5, 6}), 0);
    m.Multiply(2.0);
    m.Add(1.0);
    EXPECT_EQ(m.GetItems().ToVector(), (std::vector<double>{3, 5, 7, 9, 11, 13}));
    EXPECT_EQ(m.Multiply(VEK_doubleArray{1, 2}), -2);
    ASSERT_EQ(m.Multiply(VEK_doubleArray{1, 0, -1, 7}), 0);  // longer is fine
    EXPECT_EQ(m.GetItems().ToVector(), (std::vector<double>{3, 0, -7, 9, 0, -13}));

    EXPECT_EQ(m.Add(VEK_intArray{1, 1}, VEK_doubleArray{1, 1, 1}), -2);  // past the end
    ASSERT_EQ(m.Add(VEK_intArray{1, 0}, VEK_doubleArray{1, 1, 1}), 0);
    ASSERT_EQ(m.Add(VEK_intArray{0, 2}, VEK_doubleArray{10, 20}), 0);  // may cross columns
    EXPECT_EQ(m.GetItems().ToVector(), (std::vector<double>{3, 0, 3, 30, 1, -12}));
    EXPECT_EQ(m.Add(VEK_intArray{2, 0}, VEK_doubleArray{1}), -2);

    VEK_Dmatrix other = Make({2, 3}, {1, 1, 1, 1, 1, 1});
    VEK_Dmatrix sum{VEK_intArray{2, 3}};
    ASSERT_EQ(sum.Sum(m, other), 0);
    EXPECT_EQ(sum[3], 31);
    ASSERT_EQ(sum.Subtract(sum, other), 0);  // aliasing the target is fine
    EXPECT_TRUE(sum == m);
    ASSERT_EQ(sum.Add(other), 0);
    EXPECT_EQ(sum[5], -11);
    VEK_Dmatrix wrong{VEK_intArray{3, 2}};
    EXPECT_FALSE(wrong.CompatibleWith(m));
    const VEK_Dmatrix before = sum;
    EXPECT_EQ(sum.Sum(m, wrong), -2);
    EXPECT_EQ(wrong.Sum(m, other), -2);  // the target must fit too
    EXPECT_EQ(sum.Add(wrong), -2);
    EXPECT_TRUE(sum == before);

    VEK_Dmatrix copy{VEK_intArray{2, 3}};
    ASSERT_EQ(copy.FillFrom(m), 0);
    EXPECT_TRUE(copy == m);
    EXPECT_EQ(copy.FillFrom(VEK_Dmatrix{VEK_intArray{5}}), -4);
}

TEST(Dmatrix, BlockAndColumnCopies) {
    VEK_Dmatrix src = Make({3, 2}, {1, 2, 3, 4, 5, 6});
    VEK_Dmatrix dst{VEK_intArray{2, 2}};
    EXPECT_EQ(dst.CopyBlockFrom(src, 0, 0, -1), -3);
    EXPECT_EQ(dst.CopyBlockFrom(src, 5, 0, 2), -2);
    EXPECT_EQ(dst.CopyBlockFrom(src, 0, 3, 2), -2);
    EXPECT_EQ(dst.CopyBlockFrom(src, -1, 0, 1), -2);
    ASSERT_EQ(dst.CopyBlockFrom(src, 1, 2, 2), 0);
    EXPECT_EQ(dst.GetItems().ToVector(), (std::vector<double>{0, 0, 2, 3}));
    ASSERT_EQ(dst.CopyColumnsFrom(src, 2, 0, 1), 0);
    EXPECT_EQ(dst.GetItems().ToVector(), (std::vector<double>{5, 6, 2, 3}));
    EXPECT_EQ(dst.CopyColumnsFrom(src, 2, 1, 2), -2);
    VEK_Dmatrix three{VEK_intArray{2, 3}};
    EXPECT_EQ(three.CopyColumnsFrom(src, 0, 0, 1), -19);
    // Overlapping copy within one matrix.
    ASSERT_EQ(src.CopyBlockFrom(src, 0, 1, 5), 0);
    EXPECT_EQ(src.GetItems().ToVector(), (std::vector<double>{1, 1, 2, 3, 4, 5}));

    ASSERT_EQ(src.MakeDeterministicColumn(1, 1), 0);
    EXPECT_EQ(src.GetItems().ToVector(), (std::vector<double>{1, 1, 0, 1, 4, 5}));
    EXPECT_EQ(src.MakeDeterministicColumn(3, 0), -2);
    EXPECT_EQ(src.MakeDeterministicColumn(-1, 0), -2);
    EXPECT_EQ(src.MakeDeterministicColumn(0, 2), -2);
}

// ------------------------------------------------------------ columns

TEST(Dmatrix, NormalizeEveryColumn) {
    VEK_Dmatrix m = Make({4, 3}, {0, 0, 0, 2, 2, 4, 0.2, 0.3, 0.5, 0.5, 0.4999999, 0.0});
    ASSERT_EQ(m.Normalize(), 0);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(m[k], 1.0 / 3);
    EXPECT_EQ(m[3], 0.25);
    EXPECT_EQ(m[5], 0.5);
    // A column summing to exactly 1.0 is left bit for bit.
    EXPECT_EQ(m[6], 0.2);
    EXPECT_EQ(m[7], 0.3);
    // 0.9999999 is rescaled.
    EXPECT_NE(m[9], 0.5);
    EXPECT_NEAR(m[9] + m[10] + m[11], 1.0, 1e-15);

    VEK_Dmatrix two = Make({2}, {2, 2});
    ASSERT_EQ(two.Normalize(), 0);
    EXPECT_EQ(two.GetItems().ToVector(), (std::vector<double>{0.5, 0.5}));
    VEK_Dmatrix empty;
    EXPECT_EQ(empty.Normalize(), 0);
}

TEST(Dmatrix, SingleColumnOperations) {
    VEK_Dmatrix m = Make({2, 2}, {1, 3, 2, 2});
    // Addressed by any item of the column; the last coordinate is ignored.
    ASSERT_EQ(m.Normalize(VEK_intArray{0, 1}), 0);
    EXPECT_EQ(m.GetItems().ToVector(), (std::vector<double>{0.25, 0.75, 2, 2}));
    ASSERT_EQ(m.Normalize(VEK_intArray{1, 7}), 0);
    EXPECT_EQ(m[2], 0.5);
    EXPECT_EQ(m.Normalize(VEK_intArray{2, 0}), -2);
    EXPECT_EQ(m.Normalize(VEK_intArray{1}), -2);
    m[2] = 4;
    ASSERT_EQ(m.Normalize(3), 0);  // by linear index
    EXPECT_DOUBLE_EQ(m[2], 4.0 / 4.5);
    EXPECT_EQ(m.Normalize(4), -2);
    EXPECT_EQ(m.Normalize(-1), -2);

    VEK_Dmatrix n = Make({1, 2}, {0.5, 0.4999999999});
    EXPECT_FALSE(n.Normalized(VEK_intArray{0, 0}));
    EXPECT_FALSE(n.Normalized(1));
    n[1] = 0.5;
    EXPECT_TRUE(n.Normalized(VEK_intArray{0, 0}));
    EXPECT_TRUE(n.Normalized(0));
    EXPECT_FALSE(n.Normalized(VEK_intArray{1, 0}));
    EXPECT_FALSE(n.Normalized(2));

    VEK_Dmatrix c = Make({2, 3}, {0.2, 0.3, 0.1, 0.5, 0.5, 0.5});
    ASSERT_EQ(c.Complement(VEK_intArray{0, 2}), 0);
    EXPECT_DOUBLE_EQ(c[2], 0.5);
    ASSERT_EQ(c.Complement(VEK_intArray{1, 0}), 0);
    EXPECT_DOUBLE_EQ(c[3], 0.0);
    EXPECT_EQ(c.Complement(VEK_intArray{1, 3}), -2);  // the last coordinate counts here
}

TEST(Dmatrix, CheckElementsAgreesWithBruteForce) {
    VEK_Dmatrix fixed{VEK_intArray{2, 3, 2}};
    fixed.Subscript(VEK_intArray{1, 2, 1}) = 5.0;
    EXPECT_EQ(fixed.CheckElements(0.0, VEK_intArray{-1, -1}), -2);
    EXPECT_EQ(fixed.CheckElements(0.0, VEK_intArray{2, -1, -1}), -2);
    EXPECT_EQ(fixed.CheckElements(0.0, 0, 0, 2, 1), 1);
    EXPECT_EQ(fixed.CheckElements(0.0, 1, 2, 2, 1), 0);
    EXPECT_EQ(fixed.CheckElements(0.0, 1, 1, 0, 1), 1);
    EXPECT_EQ(fixed.CheckElements(0.0, 3, 0, 0, 0), -2);
    EXPECT_EQ(fixed.CheckElements(0.0, 1, 3, 0, 0), -2);
    std::mt19937 rng(5);
    for (int round = 0; round < 300; ++round) {
        VEK_Dmatrix m = RandomMatrix(rng, 4);
        m.FillWith(1.0);
        const Ints dims = DimsOf(m);
        if (rng() % 2) m[Pick(rng, 0, m.GetSize() - 1)] = 2.0;
        Ints fixed(dims.size());
        for (size_t i = 0; i < dims.size(); ++i) fixed[i] = (rng() % 2) ? -1 : Pick(rng, 0, dims[i] - 1);
        int expected = 1;
        for (int i = 0; i < m.GetSize(); ++i) {
            const Ints c = RefCoords(dims, i);
            bool inside = true;
            for (size_t d = 0; d < dims.size(); ++d) inside = inside && (fixed[d] < 0 || fixed[d] == c[d]);
            if (inside && m[i] != 1.0) expected = 0;
        }
        ASSERT_EQ(m.CheckElements(1.0, VEK_intArray(fixed)), expected);
    }
}

// ------------------------------------------------------------ dimension operations

TEST(Dmatrix, DimensionEdgeCases) {
    VEK_Dmatrix p = Make({2}, {0.2, 0.8});
    ASSERT_EQ(p.IncreaseDimensionSize(0), 0);
    ASSERT_EQ(p.ShiftDataUpwards(0, 0, 0.0), 0);
    EXPECT_EQ(p.GetItems().ToVector(), (std::vector<double>{0.0, 0.2, 0.8}));
    ASSERT_EQ(p.Normalize(), 0);
    EXPECT_EQ(p.GetItems().ToVector(), (std::vector<double>{0.0, 0.2, 0.8}));

    VEK_Dmatrix one = Make({3, 1}, {1, 2, 3});
    EXPECT_EQ(one.DecreaseDimensionSize(1), -2);
    EXPECT_EQ(one.DecreaseDimensionSize(2), -2);

    VEK_Dmatrix single = Make({3}, {1, 2, 3});
    ASSERT_EQ(single.RemoveDimension(0), 0);
    EXPECT_EQ(DimsOf(single), (Ints{3}));
    EXPECT_EQ(single.GetItems().ToVector(), (std::vector<double>{1, 2, 3}));
    EXPECT_EQ(single.RemoveDimension(0, 3), -2);
    EXPECT_EQ(single.RemoveDimension(1, 0), -2);
    ASSERT_EQ(single.RemoveDimension(0, VEK_doubleArray{1, 1, 1}), 0);
    EXPECT_EQ(single.GetSize(), 3);

    VEK_Dmatrix empty;
    ASSERT_EQ(empty.InsertDimension(0, 3), 0);
    EXPECT_EQ(DimsOf(empty), (Ints{3}));
    EXPECT_EQ(empty.GetItems().ToVector(), (std::vector<double>{0, 0, 0}));
    VEK_Dmatrix empty2;
    EXPECT_EQ(empty2.InsertDimension(1, 3), -2);
    ASSERT_EQ(empty2.AddDimensions(VEK_intArray{2, 2}), 0);
    EXPECT_EQ(empty2.GetSize(), 4);
}

TEST(Dmatrix, RefusedDimensionOperationsChangeNothing) {
    const VEK_Dmatrix orig = Make({2, 3}, {1, 2, 3, 4, 5, 6});
    VEK_Dmatrix m = orig;
    EXPECT_EQ(m.InsertDimension(3, 2), -2);
    EXPECT_EQ(m.InsertDimension(-1, 2), -2);
    EXPECT_EQ(m.InsertDimension(0, 0), -2);
    EXPECT_EQ(m.AddDimension(0), -2);
    EXPECT_EQ(m.AddDimensions(VEK_intArray{2, 0}), -2);
    EXPECT_EQ(m.RemoveDimension(2, 0), -2);
    EXPECT_EQ(m.RemoveDimension(1, 3), -2);
    EXPECT_EQ(m.RemoveDimension(1, -1), -2);
    EXPECT_EQ(m.RemoveDimension(1, VEK_doubleArray{1, 1}), -2);
    EXPECT_EQ(m.ResizeDimension(2, 2), -2);
    EXPECT_EQ(m.ResizeDimension(0, 0), -2);
    EXPECT_EQ(m.IncreaseDimensionSize(2), -2);
    EXPECT_EQ(m.IncreaseDimensionSize(-1), -2);
    EXPECT_EQ(m.DecreaseDimensionSize(2), -2);
    EXPECT_EQ(m.ShiftDataUpwards(0, 2), -2);
    EXPECT_EQ(m.ShiftDataUpwards(2, 0), -2);
    EXPECT_EQ(m.ShiftDataDownwards(1, 3), -2);
    EXPECT_EQ(m.ShiftDataDownwards(1, -1), -2);
    EXPECT_EQ(m.ChangeOrderOfDimensions(VEK_intArray{0, 0}), -2);
    EXPECT_EQ(m.ChangeOrderOfDimensions(VEK_intArray{1, 0, 2}), -2);
    EXPECT_EQ(m.ChangeOrderWithinDimension(1, VEK_intArray{0, 1}), -2);
    EXPECT_EQ(m.ChangeOrderWithinDimension(1, VEK_intArray{0, 1, 1}), -2);
    EXPECT_EQ(m.ChangeOrderWithinDimension(1, VEK_intArray{0, 1, 3}), -2);
    EXPECT_EQ(m.ChangeOrderWithinDimension(2, VEK_intArray{0, 1}), -2);
    VEK_Dmatrix result = Make({1}, {42});
    EXPECT_EQ(m.RemoveDimensions(VEK_intArray{0}, result), -2);
    EXPECT_EQ(m.RemoveDimensions(VEK_intArray{0, 3}, result), -2);
    EXPECT_EQ(m.RemoveDimension(0, 2, result), -2);
    EXPECT_TRUE(m == orig);
    EXPECT_EQ(result.GetItems().ToVector(), (std::vector<double>{42}));
    ASSERT_EQ(m.ResizeDimension(1, 3), 0);  // same size: nothing happens
    EXPECT_TRUE(m == orig);
}

TEST(Dmatrix, InsertDimensionReplicatesTheTable) {
    std::mt19937 rng(1);
    for (int round = 0; round < 300; ++round) {
        const VEK_Dmatrix orig = RandomMatrix(rng, 4);
        const Ints od = DimsOf(orig);
        const int pos = Pick(rng, 0, static_cast<int>(od.size()));
        const int size = Pick(rng, 1, 3);
        VEK_Dmatrix m = orig;
        ASSERT_EQ(m.InsertDimension(pos, size), 0);
        Ints nd = od;
        nd.insert(nd.begin() + pos, size);
        ASSERT_EQ(m.GetSize(), Total(nd));
        ExpectMoved(m, nd, orig, [&](Ints& c) { c = Without(c, pos); });

        // Several replicated dimensions appended at once.
        Ints extra(Pick(rng, 0, 3));
        for (int& e : extra) e = Pick(rng, 1, 3);
        m = orig;
        ASSERT_EQ(m.AddDimensions(VEK_intArray(extra)), 0);
        nd = od;
        nd.insert(nd.end(), extra.begin(), extra.end());
        ExpectMoved(m, nd, orig, [&](Ints& c) { c.resize(od.size()); });
    }
}

TEST(Dmatrix, RemoveDimensionKeepingOneSliceOrMarginalising) {
    std::mt19937 rng(3);
    for (int round = 0; round < 300; ++round) {
        const VEK_Dmatrix orig = RandomMatrix(rng, 5);
        const Ints od = DimsOf(orig);
        if (od.size() < 2) continue;
        const int dim = Pick(rng, 0, static_cast<int>(od.size()) - 1);
        const int keep = Pick(rng, 0, od[dim] - 1);
        const Ints nd = Without(od, dim);
        VEK_Dmatrix viaConst;
        ASSERT_EQ(orig.RemoveDimension(dim, keep, viaConst), 0);
        VEK_Dmatrix m = orig;
        ASSERT_EQ(m.RemoveDimension(dim, keep), 0);
        EXPECT_TRUE(m == viaConst);
        ExpectMoved(m, nd, orig, [&](Ints& c) { c.insert(c.begin() + dim, keep); });
        // The result may be the matrix itself.
        VEK_Dmatrix self = orig;
        ASSERT_EQ(self.RemoveDimension(dim, keep, self), 0);
        EXPECT_TRUE(self == m);

        VEK_doubleArray w(od[dim]);
        for (int s = 0; s < od[dim]; ++s) w[s] = 0.5 + s;
        m = orig;
        ASSERT_EQ(m.RemoveDimension(dim, w), 0);
        ASSERT_EQ(orig.RemoveDimension(dim, w, viaConst), 0);
        EXPECT_TRUE(m == viaConst);
        ASSERT_EQ(DimsOf(m), nd);
        for (int i = 0; i < m.GetSize(); ++i) {
            Ints c = RefCoords(nd, i);
            c.insert(c.begin() + dim, 0);
            double expected = 0.0;
            for (int s = 0; s < od[dim]; ++s) {
                c[dim] = s;
                expected += w[s] * At(orig, c);
            }
            ASSERT_DOUBLE_EQ(m[i], expected);
        }
    }
}

TEST(Dmatrix, RemoveDimensionsIsRepeatedRemoval) {
    std::mt19937 rng(6);
    for (int round = 0; round < 300; ++round) {
        const VEK_Dmatrix orig = RandomMatrix(rng, 5);
        const Ints od = DimsOf(orig);
        Ints coords(od.size());
        for (size_t d = 0; d < od.size(); ++d) coords[d] = (rng() % 2) ? -1 : Pick(rng, 0, od[d] - 1);
        // The same effect one dimension at a time, last to first.
        VEK_Dmatrix expected = orig;
        for (int d = static_cast<int>(od.size()) - 1; d >= 0; --d) {
            if (coords[d] >= 0) {
                ASSERT_EQ(expected.RemoveDimension(d, coords[d]), 0);
            }
        }
        VEK_Dmatrix result = Make({1}, {-1});
        ASSERT_EQ(orig.RemoveDimensions(VEK_intArray(coords), result), 0);
        ASSERT_TRUE(result == expected) << "round " << round;
    }
    // Every dimension fixed: the removal that would leave none is skipped,
    // which keeps the first dimension.
    const VEK_Dmatrix m = Make({2, 3}, {1, 2, 3, 4, 5, 6});
    VEK_Dmatrix r;
    ASSERT_EQ(m.RemoveDimensions(VEK_intArray{1, 2}, r), 0);
    EXPECT_EQ(DimsOf(r), (Ints{2}));
    EXPECT_EQ(r.GetItems().ToVector(), (std::vector<double>{3, 6}));
}

TEST(Dmatrix, ChangeOrderOfAndWithinDimensionsMovesItemsWithTheirCoordinates) {
    std::mt19937 rng(7);
    for (int round = 0; round < 300; ++round) {
        const VEK_Dmatrix orig = RandomMatrix(rng, 5);
        const Ints od = DimsOf(orig);
        const Ints perm = RandomPermutation(rng, static_cast<int>(od.size()));
        VEK_Dmatrix m = orig;
        ASSERT_EQ(m.ChangeOrderOfDimensions(VEK_intArray(perm)), 0);
        Ints nd(od.size());
        for (size_t i = 0; i < od.size(); ++i) nd[i] = od[perm[i]];
        ExpectMoved(m, nd, orig, [&](Ints& c) {
            Ints oc(od.size());
            for (size_t k = 0; k < od.size(); ++k) oc[perm[k]] = c[k];
            c = oc;
        });
        // The inverse permutation restores the matrix.
        Ints inv(perm.size());
        for (size_t k = 0; k < perm.size(); ++k) inv[perm[k]] = static_cast<int>(k);
        ASSERT_EQ(m.ChangeOrderOfDimensions(VEK_intArray(inv)), 0);
        ASSERT_TRUE(m == orig);

        const int dim = Pick(rng, 0, static_cast<int>(od.size()) - 1);
        const Ints within = RandomPermutation(rng, od[dim]);
        ASSERT_EQ(m.ChangeOrderWithinDimension(dim, VEK_intArray(within)), 0);
        ExpectMoved(m, od, orig, [&](Ints& c) { c[dim] = within[c[dim]]; });
    }
}

TEST(Dmatrix, GrowShiftShrinkAndSlicesWithinADimension) {
    std::mt19937 rng(9);
    for (int round = 0; round < 300; ++round) {
        const VEK_Dmatrix orig = RandomMatrix(rng, 4);
        const Ints od = DimsOf(orig);
        const int dim = Pick(rng, 0, static_cast<int>(od.size()) - 1);
        const int pos = Pick(rng, 0, od[dim]);
        const int count = Pick(rng, 1, 3);
        // m is orig with n states of items -7 inserted at pos.
        auto expectInserted = [&](const VEK_Dmatrix& m, int n) {
            Ints nd = od;
            nd[dim] += n;
            ASSERT_EQ(DimsOf(m), nd);
            for (int i = 0; i < m.GetSize(); ++i) {
                Ints c = RefCoords(nd, i);
                const bool added = c[dim] >= pos && c[dim] < pos + n;
                if (c[dim] >= pos + n) c[dim] -= n;
                ASSERT_EQ(m[i], added ? -7.0 : At(orig, c));
            }
        };

        // Grow, then open a slot at pos: the pair inserts a state there.
        VEK_Dmatrix m = orig;
        ASSERT_EQ(m.IncreaseDimensionSize(dim), 0);
        Ints nd = od;
        ++nd[dim];
        ASSERT_EQ(DimsOf(m), nd);
        for (int i = 0; i < m.GetSize(); ++i) {
            const Ints c = RefCoords(nd, i);
            ASSERT_EQ(m[i], c[dim] == od[dim] ? 0.0 : At(orig, c));
        }
        ASSERT_EQ(m.ShiftDataUpwards(dim, pos, -7.0), 0);
        expectInserted(m, 1);
        // Shift down at pos, then shrink: the pair removes that state again.
        ASSERT_EQ(m.ShiftDataDownwards(dim, pos), 0);
        ASSERT_EQ(m.DecreaseDimensionSize(dim), 0);
        ASSERT_TRUE(m == orig);

        // Removing a state of the original matrix.
        if (od[dim] > 1) {
            const int gone = Pick(rng, 0, od[dim] - 1);
            VEK_Dmatrix r = orig;
            ASSERT_EQ(r.ShiftDataDownwards(dim, gone), 0);
            ASSERT_EQ(r.DecreaseDimensionSize(dim), 0);
            Ints rd = od;
            --rd[dim];
            ExpectMoved(r, rd, orig, [&](Ints& c) { c[dim] += c[dim] >= gone; });
        }

        // Several slices in one pass, and back.
        ASSERT_EQ(VEK_insertSlices(m, dim, pos, count, -7.0), 0);
        expectInserted(m, count);
        ASSERT_EQ(VEK_removeSlices(m, dim, pos, count), 0);
        ASSERT_TRUE(m == orig);
        // Refused: past the end, nothing left, bad dimension; nothing changes.
        EXPECT_EQ(VEK_removeSlices(m, dim, pos, od[dim] - pos + 1), -2);
        EXPECT_EQ(VEK_removeSlices(m, dim, 0, od[dim]), -2);
        EXPECT_EQ(VEK_insertSlices(m, dim, od[dim] + 1, 1, 0.0), -2);
        EXPECT_EQ(VEK_insertSlices(m, static_cast<int>(od.size()), 0, 1, 0.0), -2);
        ASSERT_TRUE(m == orig);
    }
}

TEST(Dmatrix, RemoveDimensionBySelector) {
    // Table over (A=2, D=3, B=2); keep for every (A, B) the state of D that a
    // selector over (B, A) names.
    VEK_Dmatrix m{VEK_intArray{2, 3, 2}};
    for (int i = 0; i < m.GetSize(); ++i) m[i] = i;
    VEK_Dmatrix sel = Make({2, 2}, {0, 2, 1, 1});  // sel(b, a)
    ASSERT_EQ(m.RemoveDimension(1, sel, VEK_intArray{2, 0}), 0);
    EXPECT_EQ(DimsOf(m), (Ints{2, 2}));
    // (a,b) -> d = sel(b,a): (0,0)->0, (0,1)->1, (1,0)->2, (1,1)->1
    EXPECT_EQ(m.GetItems().ToVector(), (std::vector<double>{0, 3, 10, 9}));

    VEK_Dmatrix n{VEK_intArray{2, 3}};
    for (int i = 0; i < n.GetSize(); ++i) n[i] = i;
    const VEK_Dmatrix before = n;
    EXPECT_EQ(n.RemoveDimension(1, Make({2}, {0, 3}), VEK_intArray{0}), -2);    // state 3 does not exist
    EXPECT_EQ(n.RemoveDimension(1, Make({2}, {0, 0.5}), VEK_intArray{0}), -2);  // not a state
    EXPECT_EQ(n.RemoveDimension(1, Make({2}, {0, 1}), VEK_intArray{1}), -2);    // maps onto dim itself
    EXPECT_EQ(n.RemoveDimension(1, Make({3}, {0, 1, 1}), VEK_intArray{0}), -2); // sizes differ
    EXPECT_EQ(n.RemoveDimension(1, Make({2}, {0, 1}), VEK_intArray{}), -2);
    EXPECT_TRUE(n == before);
    // A selector dimension mapped to -1 stays at 0: a constant choice.
    ASSERT_EQ(n.RemoveDimension(1, Make({1}, {2}), VEK_intArray{-1}), 0);
    EXPECT_EQ(n.GetItems().ToVector(), (std::vector<double>{2, 5}));
}

// ------------------------------------------------------------ walker

TEST(SysCoordinates, WalksTheWholeMatrixInOrder) {
    VEK_Dmatrix m{VEK_intArray{2, 3, 2}};
    VEK_sysCoordinates w(m);
    int visited = 1;
    while (w.Next() == 0) {
        EXPECT_EQ(w.GetIndex(), visited);
        EXPECT_EQ(w.GetCoordinates().ToVector(), RefCoords({2, 3, 2}, visited));
        *w = visited;
        ++visited;
    }
    EXPECT_EQ(visited, 12);
    EXPECT_EQ(w.GetIndex(), 11);  // unchanged after the refusal
    EXPECT_EQ(m[5], 5.0);
    while (w.Previous() == 0) --visited;
    EXPECT_EQ(visited, 1);
    EXPECT_EQ(w.GetIndex(), 0);
}

TEST(SysCoordinates, LockedCoordinatesStay) {
    VEK_Dmatrix m{VEK_intArray{3, 2, 4}};
    for (int i = 0; i < m.GetSize(); ++i) m[i] = i;
    VEK_sysCoordinates w(m);
    w.LockCoordinate(1, 1);
    w.GoFirst();
    EXPECT_EQ(w.GetIndex(), 0);  // GoFirst does not look at locked coordinates
    ASSERT_EQ(w.GoToCurrentPosition(), 0);
    EXPECT_EQ(w.GetIndex(), 4);
    std::vector<int> seen{w.GetIndex()};
    while (w.Next() == 0) {
        EXPECT_EQ(w[1], 1);
        EXPECT_EQ(*w, w.GetIndex());
        seen.push_back(w.GetIndex());
    }
    std::vector<int> expected;
    for (int i = 0; i < m.GetSize(); ++i) {
        if (RefCoords({3, 2, 4}, i)[1] == 1) expected.push_back(i);
    }
    EXPECT_EQ(seen, expected);
    // Backwards over the same cells.
    std::vector<int> back{w.GetIndex()};
    while (w.Previous() == 0) back.push_back(w.GetIndex());
    std::reverse(back.begin(), back.end());
    EXPECT_EQ(back, expected);

    w.GoLast();
    EXPECT_EQ(w.GetCoordinates().ToVector(), (Ints{2, 1, 3}));
    EXPECT_EQ(w.GetIndex(), 23);
}

TEST(SysCoordinates, PositioningAndRangeChecks) {
    VEK_Dmatrix m{VEK_intArray{2, 3}};
    for (int i = 0; i < m.GetSize(); ++i) m[i] = 10 * i;
    VEK_sysCoordinates w(m);
    ASSERT_EQ(w.GoTo(4), 0);
    EXPECT_EQ(w.GetCoordinates().ToVector(), (Ints{1, 1}));
    EXPECT_EQ(*w, 40.0);
    EXPECT_EQ(w.GoTo(6), -2);
    EXPECT_EQ(w.GetIndex(), 4);
    w[0] = 0;
    w[1] = 2;
    ASSERT_EQ(w.GoToCurrentPosition(), 0);
    EXPECT_EQ(w.GetIndex(), 2);
    w[1] = 3;
    EXPECT_EQ(w.GoToCurrentPosition(), -2);
    EXPECT_EQ(w.GetIndex(), 0);
    EXPECT_EQ(w.GetCoordinates().ToVector(), (Ints{0, 0}));

    const VEK_Dmatrix& cm = m;
    VEK_constSysCoordinates cw(cm);
    double sum = *cw;
    while (cw.Next() == 0) sum += *cw;
    EXPECT_EQ(sum, 150.0);

    // Every coordinate locked: there is nowhere to go.
    w.LockCoordinate(0);
    w.LockCoordinate(1);
    EXPECT_EQ(w.Next(), -2);
    EXPECT_EQ(w.Previous(), -2);
    w.UnlockCoordinate(1);
    EXPECT_EQ(w.Next(), 0);
    w.UnlockAll();
    EXPECT_EQ(w.Next(), 0);
    EXPECT_EQ(w.GetIndex(), 2);  // (0, 1) -> (0, 2)
}
