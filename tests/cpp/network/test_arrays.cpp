#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "network/doubleArray.h"
#include "network/idArray.h"
#include "network/intArray.h"
#include "network/stringArray.h"

// ------------------------------------------------------------ numeric arrays

TEST(NumArray, InlineBufferGrowthAndSetSize) {
    VEK_intArray a;
    EXPECT_EQ(a.GetCapacity(), 8);
    for (int i = 0; i < 8; ++i) a.Add(i);
    EXPECT_TRUE(a.UsesInlineBuffer());
    a.Add(8);  // full: the capacity doubles
    EXPECT_FALSE(a.UsesInlineBuffer());
    EXPECT_EQ(a.GetCapacity(), 16);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(a[i], i);

    VEK_intArray b{1, 2, 3};
    ASSERT_EQ(b.SetSize(13), 0);
    EXPECT_EQ(b.GetCapacity(), 13);  // exactly, not doubled
    EXPECT_EQ(b.ToVector(), (std::vector<int>{1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    ASSERT_EQ(b.SetSize(2), 0);
    EXPECT_EQ(b.GetCapacity(), 13);
    // Growing again within the capacity shows zeros, not the old tail.
    ASSERT_EQ(b.SetSize(5), 0);
    EXPECT_EQ(b.ToVector(), (std::vector<int>{1, 2, 0, 0, 0}));
    EXPECT_EQ(b.SetSize(-1), -3);
    EXPECT_EQ(b.GetSize(), 5);
    EXPECT_EQ(VEK_intArray(-2).GetSize(), 0);
}

TEST(NumArray, CopiesOwnTheirElementsAndMovesStealHeapBlocks) {
    for (int n : {3, 20}) {  // inline and heap sources
        VEK_intArray src;
        for (int i = 0; i < n; ++i) src.Add(i * 10);
        VEK_intArray copy(src);
        copy[0] = -1;
        EXPECT_EQ(src[0], 0);
        VEK_intArray assigned{9};
        assigned = src;
        EXPECT_NE(assigned.Items(), src.Items());
        assigned = assigned;  // self-assignment keeps the contents
        EXPECT_TRUE(assigned == src);
        EXPECT_FALSE(assigned == copy);
    }
    VEK_intArray big;
    for (int i = 0; i < 20; ++i) big.Add(i);
    const int* block = big.Items();
    VEK_intArray moved(std::move(big));
    EXPECT_EQ(moved.Items(), block);
    EXPECT_EQ(big.GetSize(), 0);
    big.Add(3);  // the source stays usable
    EXPECT_EQ(big[0], 3);
    moved = VEK_intArray{1, 2};  // a small source into a heap target
    EXPECT_EQ(moved.ToVector(), (std::vector<int>{1, 2}));
}

TEST(NumArray, InsertDeleteAndSearch) {
    VEK_intArray a{1, 2, 3};
    EXPECT_EQ(a.Insert(0, 0), 0);
    EXPECT_EQ(a.Insert(4, 4), 0);  // at the end
    EXPECT_EQ(a.ToVector(), (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(a.Insert(6, 9), -2);
    EXPECT_EQ(a.Insert(-1, 9), -2);
    EXPECT_EQ(a.GetSize(), 5);
    EXPECT_EQ(a.Delete(5), -2);
    EXPECT_EQ(a.Delete(-1), -2);
    EXPECT_EQ(a.Delete(0), 0);
    EXPECT_EQ(a.ToVector(), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(a.DeleteByContent(3), 0);
    EXPECT_EQ(a.DeleteByContent(3), -2);
    EXPECT_EQ(a.ToVector(), (std::vector<int>{1, 2, 4}));
    EXPECT_EQ(a.FindPosition(4), 2);
    EXPECT_EQ(a.FindPosition(7), -1);
    EXPECT_TRUE(a.IsInList(1));
    EXPECT_FALSE(a.IsInList(3));
    a.FillWith(6);
    EXPECT_EQ(a.ToVector(), (std::vector<int>{6, 6, 6}));

    VEK_intArray grow;
    for (int i = 0; i < 40; ++i) grow.Insert(0, i);  // inserts that outgrow the buffer
    for (int i = 0; i < 40; ++i) ASSERT_EQ(grow[i], 39 - i);
}

TEST(NumArray, ChangeOrder) {
    VEK_doubleArray a{10.0, 11.0, 12.0, 13.0};
    ASSERT_EQ(a.ChangeOrder(VEK_intArray{2, 0, 3, 1}), 0);
    EXPECT_EQ(a.ToVector(), (std::vector<double>{12.0, 10.0, 13.0, 11.0}));
    EXPECT_DOUBLE_EQ(a.Sum(), 46.0);
    const std::vector<double> before = a.ToVector();
    EXPECT_EQ(a.ChangeOrder(VEK_intArray{0, 1, 2}), -2);     // wrong length
    EXPECT_EQ(a.ChangeOrder(VEK_intArray{0, 1, 1, 2}), -2);  // repeat
    EXPECT_EQ(a.ChangeOrder(VEK_intArray{0, 1, 2, 4}), -2);  // out of range
    EXPECT_EQ(a.ChangeOrder(VEK_intArray{0, 1, -1, 2}), -2);
    EXPECT_EQ(a.ToVector(), before);
    VEK_intArray empty;
    EXPECT_EQ(empty.ChangeOrder(VEK_intArray{}), 0);
}

// ------------------------------------------------------------ int arrays

TEST(IntArray, Permutations) {
    EXPECT_TRUE(VEK_intArray{}.IsPermutation());
    EXPECT_TRUE(VEK_intArray{}.IsIdentityPermutation());
    EXPECT_TRUE((VEK_intArray{2, 0, 1}).IsPermutation());
    EXPECT_FALSE((VEK_intArray{2, 0, 1}).IsIdentityPermutation());
    EXPECT_FALSE((VEK_intArray{0, 0, 1}).IsPermutation());
    EXPECT_FALSE((VEK_intArray{0, 3, 1}).IsPermutation());
    EXPECT_FALSE((VEK_intArray{-1, 0}).IsPermutation());
    VEK_intArray id;
    ASSERT_EQ(id.MakeIdentityPermutation(12), 0);
    EXPECT_EQ(id.GetSize(), 12);
    EXPECT_TRUE(id.IsIdentityPermutation());
    EXPECT_TRUE(id.IsPermutation());
    EXPECT_EQ(id.MakeIdentityPermutation(-1), -3);
    EXPECT_EQ(id.GetSize(), 12);
}

TEST(IntArray, NextCombinationEnumeratesInLexicalOrder) {
    VEK_intArray c{0, 1, 2};
    std::vector<std::vector<int>> seen{c.ToVector()};
    while (c.NextCombination(5) == 0) seen.push_back(c.ToVector());
    ASSERT_EQ(seen.size(), 10u);  // 5 choose 3
    for (size_t i = 1; i < seen.size(); ++i) EXPECT_LT(seen[i - 1], seen[i]);
    EXPECT_EQ(c.ToVector(), (std::vector<int>{2, 3, 4}));  // unchanged after the last

    VEK_intArray bad{1, 1};
    EXPECT_EQ(bad.NextCombination(4), -2);
    VEK_intArray tooMany{0, 1, 2};
    EXPECT_EQ(tooMany.NextCombination(2), -2);
    VEK_intArray none;
    EXPECT_EQ(none.NextCombination(3), -2);
}

TEST(IntArray, CoordinatesOdometer) {
    const VEK_intArray dims{2, 3, 2};
    VEK_intArray c(3);
    int steps = 1;
    int previousIndex = 0;
    while (c.NextCoordinates(dims) == 0) {
        const int index = (c[0] * 3 + c[1]) * 2 + c[2];
        EXPECT_EQ(index, previousIndex + 1);  // row-major, last fastest
        previousIndex = index;
        ++steps;
    }
    EXPECT_EQ(steps, 12);
    EXPECT_EQ(c.ToVector(), (std::vector<int>{1, 2, 1}));
    while (c.PrevCoordinates(dims) == 0) {
        const int index = (c[0] * 3 + c[1]) * 2 + c[2];
        EXPECT_EQ(index, previousIndex - 1);
        previousIndex = index;
    }
    EXPECT_EQ(c.ToVector(), (std::vector<int>{0, 0, 0}));

    VEK_intArray last{1, 2};
    EXPECT_EQ(last.NextCoordinates(VEK_intArray{2, 3}), -2);
    EXPECT_EQ(last.ToVector(), (std::vector<int>{1, 2}));
    VEK_intArray shortDims{0, 0, 0};
    EXPECT_EQ(shortDims.NextCoordinates(VEK_intArray{2, 3}), -2);
}

// ------------------------------------------------------------ string arrays

TEST(StringArray, OwnsCopiesAndStoresNullAsEmpty) {
    VEK_stringArray s;
    char buffer[] = "alpha";
    ASSERT_EQ(s.Add(buffer), 0);
    buffer[0] = 'X';
    EXPECT_STREQ(s[0], "alpha");
    ASSERT_EQ(s.Add(nullptr), 0);
    EXPECT_STREQ(s[1], "");
    ASSERT_EQ(s.SetString(1, nullptr), 0);
    EXPECT_STREQ(s.Subscript(1), "");
    EXPECT_EQ(s.FindPosition(nullptr), 1);
    EXPECT_EQ(s.SetString(2, "x"), -2);
    EXPECT_EQ(s.SetString(-1, "x"), -2);
    // Strings keep their address while the array grows.
    const char* first = s[0];
    for (int i = 0; i < 100; ++i) s.Add("filler");
    EXPECT_EQ(s[0], first);
    // A string may be replaced by itself.
    EXPECT_EQ(s.SetString(0, s[0]), 0);
    EXPECT_STREQ(s[0], "alpha");
}

TEST(StringArray, InsertDeleteFindReorder) {
    VEK_stringArray s;
    s.Add("b");
    s.Add("d");
    EXPECT_EQ(s.Insert(0, "a"), 0);
    EXPECT_EQ(s.Insert(2, "c"), 0);
    EXPECT_EQ(s.Insert(4, "e"), 0);
    EXPECT_EQ(s.Insert(6, "z"), -2);
    EXPECT_EQ(s.ToVector(), (std::vector<std::string>{"a", "b", "c", "d", "e"}));
    EXPECT_TRUE(s.IsValidIndex(4));
    EXPECT_FALSE(s.IsValidIndex(5));
    EXPECT_FALSE(s.IsValidIndex(-1));
    EXPECT_EQ(s.FindPosition("c"), 2);
    EXPECT_EQ(s.FindPosition("q"), -1);
    EXPECT_EQ(s.Delete(5), -2);
    EXPECT_EQ(s.DeleteByContent("q"), -2);
    EXPECT_EQ(s.DeleteByContent("c"), 0);
    EXPECT_EQ(s.Delete(0), 0);
    EXPECT_EQ(s.ToVector(), (std::vector<std::string>{"b", "d", "e"}));
    EXPECT_EQ(s.ChangeOrder(VEK_intArray{2, 0, 1}), 0);
    EXPECT_EQ(s.ToVector(), (std::vector<std::string>{"e", "b", "d"}));
    EXPECT_EQ(s.ChangeOrder(VEK_intArray{0, 0, 1}), -2);
    EXPECT_EQ(s.ChangeOrder(VEK_intArray{0, 1}), -2);
    EXPECT_EQ(s.ToVector(), (std::vector<std::string>{"e", "b", "d"}));
    s.Clear();
    EXPECT_EQ(s.GetSize(), 0);
}

TEST(StringArray, CopiesAreDeep) {
    VEK_stringArray a;
    a.Add("one");
    a.Add("two");
    VEK_stringArray b(a), c;
    b.SetString(0, "uno");
    EXPECT_STREQ(a[0], "one");
    c.Add("zzz");
    c = a;
    EXPECT_NE(c[1], a[1]);
    c = c;
    EXPECT_EQ(c.ToVector(), a.ToVector());
}

// ------------------------------------------------------------ id arrays

TEST(IdArray, OnlyValidUniqueIds) {
    VEK_idArray ids;
    EXPECT_EQ(ids.Add("Rain"), 0);
    EXPECT_EQ(ids.Add("Rain"), -2);  // duplicate
    EXPECT_EQ(ids.Add("2wet"), -2);
    EXPECT_EQ(ids.Add("a b"), -2);
    EXPECT_EQ(ids.Add(""), -2);
    EXPECT_EQ(ids.Add(nullptr), -2);
    EXPECT_EQ(ids.Add("Sprinkler_2"), 0);
    EXPECT_EQ(ids.Insert(0, "Sprinkler_2"), -2);
    EXPECT_EQ(ids.Insert(3, "Late"), -2);  // out of range
    EXPECT_EQ(ids.Insert(0, "First"), 0);
    EXPECT_EQ(ids.SetString(1, "Sprinkler_2"), -2);
    EXPECT_EQ(ids.SetString(1, "Rain"), 0);  // its own place does not count
    EXPECT_EQ(ids.SetString(1, "Drizzle"), 0);
    EXPECT_EQ(ids.SetString(3, "Other"), -2);
    EXPECT_EQ(ids.ToVector(), (std::vector<std::string>{"First", "Drizzle", "Sprinkler_2"}));
    EXPECT_TRUE(ids.ValidId("Fresh", -1));
    EXPECT_FALSE(ids.ValidId("First", -1));
    EXPECT_TRUE(ids.ValidId("First", 0));
    EXPECT_FALSE(ids.ValidId("First", 1));
    // The rules hold through the base interface and in copies.
    VEK_stringArray& base = ids;
    EXPECT_EQ(base.Add("First"), -2);
    EXPECT_EQ(base.Insert(0, "9"), -2);
    EXPECT_EQ(base.SetString(0, ""), -2);
    EXPECT_EQ(VEK_idArray(ids).Add("Drizzle"), -2);
    EXPECT_EQ(ids.GetSize(), 3);
}

TEST(IdArray, EmptyIdsNeedTheFlag) {
    VEK_idArray ids;
    EXPECT_FALSE(ids.GetEmptyIdsAllowed());
    ids.SetAllEmptyIds(3);
    EXPECT_TRUE(ids.GetEmptyIdsAllowed());
    EXPECT_EQ(ids.ToVector(), (std::vector<std::string>{"", "", ""}));
    EXPECT_EQ(ids.Add(""), 0);  // empty ids need not be unique
    EXPECT_EQ(ids.SetString(0, "a"), 0);
    EXPECT_EQ(ids.SetString(1, "a"), -2);
    ids.SetAllEmptyIds(-1);
    EXPECT_EQ(ids.ToVector(), (std::vector<std::string>{"", "", "", ""}));
    VEK_idArray copy(ids);
    EXPECT_TRUE(copy.GetEmptyIdsAllowed());
}

TEST(IdArray, CreateValidId) {
    VEK_idArray ids;
    ids.Add("x1");
    std::string out;
    ASSERT_EQ(ids.CreateValidId("", 1, out), 0);
    EXPECT_EQ(out, "x2");
    ASSERT_EQ(ids.CreateValidId(nullptr, 1, out), 0);
    EXPECT_EQ(out, "x2");
    ASSERT_EQ(ids.CreateValidId("1st state", -1, out), 0);
    EXPECT_EQ(out, "xst_state");  // repaired and free: kept without a number
    ASSERT_EQ(ids.CreateValidId("State", 0, out), 0);
    EXPECT_EQ(out, "State0");  // a start number always appends
    ids.Add("x");
    ASSERT_EQ(ids.CreateValidId("", -1, out), 0);
    EXPECT_EQ(out, "x0");  // "x-1" is no identifier

    EXPECT_EQ(ids.CreateAndAddValidId("State", 1), 0);
    EXPECT_EQ(ids.CreateAndAddValidId("State", 1), 0);
    EXPECT_EQ(ids.CreateAndInsertValidId("State", 1, 0), 0);
    EXPECT_EQ(ids.CreateAndInsertValidId("State", 1, 99), -2);
    EXPECT_EQ(ids.ToVector(), (std::vector<std::string>{"State3", "x1", "x", "State1", "State2"}));
}

TEST(IdArray, EnsureValidIdsRepairsInvalidAndDuplicateEntries) {
    // Start from an unchecked list and copy it into an id array.
    VEK_stringArray raw;
    for (const char* s : {"ok", "1bad", "ok", "", "ok1"}) raw.Add(s);
    VEK_idArray ids;
    static_cast<VEK_stringArray&>(ids) = raw;
    ASSERT_EQ(ids.GetSize(), 5);
    ASSERT_EQ(ids.EnsureValidIds(), 0);
    std::set<std::string> unique;
    for (int i = 0; i < ids.GetSize(); ++i) {
        EXPECT_TRUE(ids.ValidId(ids[i], i)) << ids[i];
        unique.insert(ids[i]);
    }
    EXPECT_EQ(unique.size(), 5u);
    EXPECT_STREQ(ids[0], "ok");
    EXPECT_STREQ(ids[1], "xbad");
    EXPECT_STREQ(ids[2], "ok2");  // ok1 is taken further on
    EXPECT_STREQ(ids[4], "ok1");
}
