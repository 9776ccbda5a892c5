// Ergo files: a hand-written file in every lexical variant, faulty files,
// canonical nodes written as tables and the exact layout written.
#include "foreignNetUtil.h"

#include "network/noisyMAX.h"

using namespace foreign;

namespace {

const char* const kErgo =
    "/* Number of variables */ 3\n"
    "// state counts, odd spacing\n"
    "2\t2 \n"
    "   3\n"
    "/* Parents */\n"
    "0\n"
    "1 0\n"
    "2 1 0   /* Wet grass: Rain/Snow, then Cloudy */\n"
    "/* Probabilities */\n"
    "2   0.25 .75\n"
    "4 0.5 5e-1 1. 0x0\n"
    "12\n"
    "0.1 0.2 0.7   0.2 0.3 0.5\n"
    "0.3 0.3 0.4   0x1p-2 0.25 0.5\n"
    "/* Names */\n"
    "Cloudy Rain/Snow \"Wet grass\"\n"
    "/* Labels */\n"
    "yes no\n"
    "true 0x10\n"
    "low medium high\n";

void CheckErgoNetwork(const VEK_network& net) {
    ASSERT_EQ(net.GetNumberOfNodes(), 3);
    int cloudy = net.FindNode("Cloudy");
    int rain = net.FindNode("Rain_Snow");
    int wet = net.FindNode("Wet_grass");
    ASSERT_GE(cloudy, 0);
    ASSERT_GE(rain, 0);
    ASSERT_GE(wet, 0);
    EXPECT_STREQ(net.GetNode(rain)->Header().GetName(), "Rain/Snow");
    EXPECT_STREQ(net.GetNode(wet)->Header().GetName(), "Wet grass");
    const auto* rainDef = static_cast<const VEK_discDef*>(net.GetDef(rain));
    EXPECT_EQ(rainDef->GetOutcomeIds()->ToVector(), (std::vector<std::string>{"true", "s0x10"}));
    EXPECT_STREQ(rainDef->GetOutcomeLabel(1), "0x10");
    const VEK_intArray& parents = net.GetNode(wet)->Parents();
    ASSERT_EQ(parents.GetSize(), 2);
    EXPECT_EQ(parents[0], rain);
    EXPECT_EQ(parents[1], cloudy);
    EXPECT_EQ(net.GetDef(cloudy)->GetMatrix()->GetItems().ToVector(), (std::vector<double>{0.25, 0.75}));
    EXPECT_EQ(net.GetDef(rain)->GetMatrix()->GetItems().ToVector(), (std::vector<double>{0.5, 0.5, 1.0, 0.0}));
    EXPECT_EQ(net.GetDef(wet)->GetMatrix()->GetItems().ToVector(),
              (std::vector<double>{0.1, 0.2, 0.7, 0.2, 0.3, 0.5, 0.3, 0.3, 0.4, 0.25, 0.25, 0.5}));
}

}  // namespace

TEST(ErgoFormat, HandWrittenFileLoadsInEveryLexicalVariant) { ExpectReadsWithEitherLineEnds(kErgo, ".erg", CheckErgoNetwork); }

TEST(ErgoFormat, FaultsAreReportedWherTheyAreAndChangeNothing) {
    ExpectFaults(FileReader(".erg"), {
        {"2\n2 2\n0\n1 0\n2 0.5 0.5\n3 0.1 0.9 0.2\nA B\na b\nc d\n", 6, 1, "expected 4"},
        {"2\n2 2\n0\n1 5\n", 4, 3, "Unknown parent"},
        {"2\n2 2\n1 1\n1 0\n4 .5 .5 .5 .5\n4 .5 .5 .5 .5\nA B\na b\nc d\n", 3, 1, "cycle"},
        {"2\n2 2\n0\n1 0\n2 0.5 0.5\n4 0.1 0.9\n", 7, 1, "end of file"},
        {"2\n2 2\n0\n0\n2 .5 .5\n2 .5 .5\nA A\na b\nc d\n", 7, 3, "Duplicated"},
        {"1\n1\n0\n1 1\nA\na\n", 5, 1, "two states"},
        {"1\n2\n0\n2 .5 .5\nA\na b\nextra\n", 7, 1, "Unexpected"},
        {"1\n2\n0\n2 .5 x\nA\na b\n", 4, 6, "Number expected"},
        {"1\n2\n0 /* no end\n", 3, 3, "Unterminated comment"},
    });
}

TEST(ErgoFormat, WritesTheExpectedLayout) {
    VEK_network net;
    int a = net.AddNode(VEK_CPT, "A");
    int b = net.AddNode(VEK_CPT, "b_c");
    net.GetNode(b)->Header().SetName("b c");  // a space cannot stand in a name: the id is written
    net.GetNode(a)->Header().SetName("A");
    ASSERT_EQ(net.AddArc(a, b), 0);
    static_cast<VEK_discDef*>(net.GetDef(a))->RenameOutcomes(std::vector<std::string>{"x_1", "y"});
    static_cast<VEK_discDef*>(net.GetDef(a))->SetOutcomeLabel(0, "x-1");
    ASSERT_EQ(net.GetDef(a)->SetDefinition(std::vector<double>{0.1, 0.9}), 0);
    ASSERT_EQ(net.GetDef(b)->SetDefinition(std::vector<double>{1.0 / 3, 2.0 / 3, 0.25, 0.75}), 0);
    TempFile file(".erg");
    ASSERT_EQ(net.WriteFile(file.c_str()), 0);
    EXPECT_EQ(file.Read(),
              "/* Number of variables */\n2\n/* Number of states */\n2 2\n/* Parents */\n0\n1 0\n"
              "/* Probabilities */\n2\n0.1 0.9\n4\n0.3333333333333333 0.6666666666666666\n0.25 0.75\n"
              "/* Names */\nA\nb_c\n/* Labels */\nx-1 y\nState0 State1\n");
}

TEST(ErgoFormat, CanonicalNodesAreWrittenAsTheirTables) {
    VEK_network net, back;
    int p = net.AddNode(VEK_CPT, "p");
    int c = net.AddNode(VEK_NOISY_MAX, "c");
    ASSERT_EQ(net.AddArc(p, c), 0);
    VEK_Dmatrix& w = net.GetDef(c)->GetWriteableParameters();
    ASSERT_EQ(w.GetSize(), 6);
    const double weights[] = {0.8, 0.2, 0.0, 1.0, 0.1, 0.9};
    for (int i = 0; i < 6; ++i) w[i] = weights[i];
    net.GetDef(c)->OnParametersChanged();
    RoundTrip(net, VEK_FORMAT_ERGO, ".erg", back);
    Compare cmp;
    cmp.type = AsCpt;
    ExpectSameNetwork(net, back, cmp);
}
