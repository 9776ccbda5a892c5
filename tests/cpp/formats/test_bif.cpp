// Format 6: XMLBIF files (whatever their extension) and classic text BIF:
// hand-made files that exercise the grammar and its faults, the number
// scanner, the XMLBIF writer and hostile input.
#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "formats/fileFormat.h"
#include "formats/netDesc.h"
#include "formats/descLexer.h"
#include "formats/xmlbifSpeaker.h"
#include "network/cpt.h"
#include "network/discDef.h"
#include "network/network.h"
#include "foreignNetUtil.h"
#include "sharedNetworks.h"

using foreign::Disc;
using foreign::LastMessage;
using foreign::Parents;
using foreign::States;
using foreign::Table;
using foreign::TempFile;

namespace {

int ReadBif(VEK_network& net, const std::string& text, const char* extension = ".bif") {
    TempFile file(extension);
    file.Write(text);
    return net.ReadFile(file.c_str(), VEK_FORMAT_XMLBIF);
}

}  // namespace

// ------------------------------------------------------------ text BIF grammar

TEST(BifText, ReadsTheClassicGrammarWithItsVariants) {
    // Quoted names, no bar, a table with the child slowest, comments of both
    // kinds, states without commas, numbers in C forms, CRLF and a BOM.
    const std::string text = foreign::WithCrlfAndBom(R"BIF(// a comment
network "Garden" { // the name may be quoted
  property "author = somebody";
}
variable "rain" { type discrete[2] { "yes" "no" }; property "position = (120, 45)" ; }
variable sprinkler {
  type discrete [ 2 ] { on, off };
  property "note";
}
variable wet /* block
comment */ { type discrete [ 3 ] { dry, damp, soaked }; }
probability ( "rain" ) { table 0x1p-2 .75 ; }
probability ( sprinkler | rain ) {
  (yes) 1e-1, 9E-1;
  (no) +0.5, 5e-1f;
}
probability ( wet rain sprinkler ) {
  table 0.1 0.2 0.3 0.4
        0.3 0.3 0.3 0.3
        0.6 0.5 0.4 0.3;
}
)BIF");
    VEK_network net;
    ASSERT_EQ(ReadBif(net, text), 0) << LastMessage(net);
    EXPECT_STREQ(net.Header().GetId(), "Garden");
    EXPECT_STREQ(net.UserProperties().FindProperty("author"), "somebody");
    EXPECT_EQ(States(net, "rain"), (std::vector<std::string>{"yes", "no"}));
    EXPECT_EQ(Table(net, "rain"), (std::vector<double>{0.25, 0.75}));
    EXPECT_EQ(Table(net, "sprinkler"), (std::vector<double>{0.1, 0.9, 0.5, 0.5}));
    const VEK_node* rain = net.GetNode(net.FindNode("rain"));
    EXPECT_EQ(rain->Info().screen.position.centerX, 120);
    EXPECT_EQ(rain->Info().screen.position.centerY, 45);
    EXPECT_STREQ(net.GetNode(net.FindNode("sprinkler"))->Info().userProperties.FindProperty("note"), "");
    // The table lists wet's states slowest: (dry: 0.1 0.2 0.3 0.4), (damp...),
    // each over (rain, sprinkler) with sprinkler fastest.
    EXPECT_EQ(Parents(net, "wet"), (std::vector<std::string>{"rain", "sprinkler"}));
    EXPECT_EQ(Table(net, "wet"), (std::vector<double>{0.1, 0.3, 0.6, 0.2, 0.3, 0.5, 0.3, 0.3, 0.4, 0.4, 0.3, 0.3}));
}

TEST(BifText, RowsInAnyOrderAndADefaultFillTheTable) {
    const std::string text = R"BIF(
network n { }
variable a { type discrete [ 3 ] { x, y, z }; }
variable b { type discrete [ 2 ] { t, f }; }
probability ( a ) { table 0.2, 0.3, 0.5; }
probability ( b | a ) {
  (z) 0.9, 0.1;
  default 0.5, 0.5;
  (x) 0.2, 0.8;
}
)BIF";
    VEK_network net;
    ASSERT_EQ(ReadBif(net, text), 0) << LastMessage(net);
    EXPECT_EQ(Table(net, "b"), (std::vector<double>{0.2, 0.8, 0.5, 0.5, 0.9, 0.1}));
}

TEST(BifText, RepairsNamesAsTheXmlNetworkFilesDo) {
    const std::string text = R"BIF(
network unknown { }
variable my-node { type discrete [ 3 ] { <5, 5-12, 12+ }; }
variable 2nd { type discrete [ 4 ] { a-b, a/b, Transp., >=7.5 }; }
probability ( my-node ) { table 0.2, 0.3, 0.5; }
probability ( 2nd | my-node ) {
  (<5) 0.1, 0.2, 0.3, 0.4;
  (5-12) 0.25, 0.25, 0.25, 0.25;
  (s12_) 0.4, 0.3, 0.2, 0.1;
}
)BIF";
    VEK_network net;
    ASSERT_EQ(ReadBif(net, text), 0) << LastMessage(net);
    int h = net.FindNode("my_node");
    ASSERT_GE(h, 0);
    EXPECT_STREQ(net.GetNode(h)->Header().GetName(), "my-node");
    EXPECT_EQ(States(net, "my_node"), (std::vector<std::string>{"s_5", "s5_12", "s12_"}));
    EXPECT_STREQ(Disc(net, "my_node")->GetOutcomeLabel(0), "<5");
    EXPECT_STREQ(Disc(net, "my_node")->GetOutcomeLabel(2), "12+");
    // A name whose first character cannot start an id gets the n prefix;
    // two states that repair alike are made unique.
    ASSERT_GE(net.FindNode("n2nd"), 0);
    EXPECT_STREQ(net.GetNode(net.FindNode("n2nd"))->Header().GetName(), "2nd");
    EXPECT_EQ(States(net, "n2nd"), (std::vector<std::string>{"a_b", "a_b_1", "Transp_", "s__7_5"}));
    EXPECT_STREQ(Disc(net, "n2nd")->GetOutcomeLabel(1), "a/b");
    // Rows may name a state by the id it got.
    EXPECT_EQ(Table(net, "n2nd")[8], 0.4);
}

TEST(BifText, FaultsAreRefusedWithTheirPosition) {
    const std::string head = "network n { }\nvariable a { type discrete [ 2 ] { x, y }; }\n"
                             "variable b { type discrete [ 2 ] { t, f }; }\n";
    // A table of a size that does not fit an int: eight parents of 20 states.
    std::string huge = "variable a { type discrete [ 2 ] { x, y }; }\n"
                       "probability ( a | a1, a2, a3, a4, a5, a6, a7, a8 ) { table 1; }\n";
    for (char i = '1'; i <= '8'; ++i)
        huge += std::string("variable a") + i + " { type discrete [ 20 ] { " +
                "1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20 }; }\n";
    foreign::ExpectFaults(foreign::FileReader(".bif", VEK_FORMAT_XMLBIF), {
        {head + "probability ( b | c ) { table 0.5 0.5 0.5 0.5; }\n", 4, 19, "Node parent not found: 'c'"},
        {head + "probability ( a ) { table 0.5 0.5; }\nprobability ( b | a ) {\n  (x) 0.5, 0.5;\n  (y) 0.5;\n}\n",
                    7, 3, "Row has 1 values, expected 2"},
        {head + "probability ( a ) { table 0.5 0.5 0.5; }\nprobability ( b ) { table 1 0; }\n", 4, 21,
                    "has 3 values, expected 2"},
        {head + "probability ( a ) { table 0.5 0.5; }\nprobability ( b | a ) {\n  (x) 0.5, 0.5;\n  (w) 0.5, 0.5;\n}\n",
                    7, 3, "Invalid outcome identifier: 'w'"},
        {head + "probability ( a ) { table 0.5 0.5; }\nprobability ( b | a ) {\n  (x) 0.5, 0.5;\n}\n", 5, 1,
                    "Missing parent configurations"},
        {head + "probability ( a | b ) { table 0.5 0.5 0.5 0.5; }\nprobability ( b | a ) { table 0.5 0.5 0.5 0.5; }\n",
                    4, 1, "cycle"},
        {head + "probability ( a ) { table 0.5 0.5; }\nprobability ( b ) { table 0.5 0.5; ", 5, 36,
                    "end of file"},
        {head + "variable a { type discrete [ 2 ] { p, q }; }\n", 4, 1, "Duplicated node identifier: 'a'"},
        {"variable a { type discrete [ 3 ] { x, y }; }\n", 1, 30, "declares 3 states but lists 2"},
        {"variable a { type discrete [ 2 ] { x, x }; }\nprobability ( a ) { table 0.5 0.5; }\n", 1, 1,
                    "Duplicate state identifier: 'x'"},
        {"variable a { type continuous; }\n", 1, 19, "Only discrete variables"},
        {head + "probability ( a ) { table 0.5 0.5; }\nprobability ( b | a ) { (x) 0.5 zero; (y) 1 0; }\n", 5, 33,
                    "Number expected but found 'zero'"},
        {head + "probability ( a ) { table 1.5 -0.5; }\nprobability ( b ) { table 1 0; }\n", 4, 21,
                    "Invalid probability 1.5"},
        {head + "probability ( a ) { table 0.5 0.5; }\n", 3, 1, "No table for node 'b'"},
        {"network n { property \"unterminated ; }\n", 1, 22, "Unterminated string"},
        {"network n { }\nnode a { }\n", 2, 1, "Expected 'network', 'variable' or 'probability'"},
        {huge, 2, 1, "Table too large"},
    });
}

// Table numbers are read by a fast decimal scanner; it must give exactly
// what the library gives, for the shortest form of any double and for the
// fixed-width forms other tools write.
TEST(BifNumbers, DecimalScannerIsExact) {
    std::mt19937_64 rng(3);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    char buf[64];
    for (int i = 0; i < 30000; ++i) {
        double v;
        switch (i % 4) {
            case 0: v = unit(rng); break;
            case 1: v = std::ldexp(unit(rng), static_cast<int>(rng() % 200) - 100); break;
            case 2: v = std::round(unit(rng) * 1e8) / 1e8; break;
            default: {
                uint64_t bits = rng();
                std::memcpy(&v, &bits, sizeof v);
                if (!std::isfinite(v)) v = 1.5;
            }
        }
        // Fixed-point text only for values that have a short one.
        const int forms = std::fabs(v) < 1e15 ? 3 : 2;
        for (int form = 0; form < forms; ++form) {
            int n = form == 0   ? static_cast<int>(std::to_chars(buf, buf + sizeof buf, v).ptr - buf)
                    : form == 1 ? std::snprintf(buf, sizeof buf, "%.17g", v)
                                : std::snprintf(buf, sizeof buf, "%.8f", v);
            buf[n] = 0;
            double expected = 0, got = -1;
            std::from_chars(buf, buf + n, expected);
            ASSERT_TRUE(VEK_parseNumber(std::string_view(buf, static_cast<size_t>(n)), got)) << buf;
            ASSERT_EQ(std::memcmp(&got, &expected, sizeof got), 0) << buf;
        }
    }
    double d = 0;
    EXPECT_TRUE(VEK_parseNumber("-0", d));
    EXPECT_TRUE(std::signbit(d));
    EXPECT_TRUE(VEK_parseNumber("0x1F", d));
    EXPECT_EQ(d, 31);
    EXPECT_TRUE(VEK_parseNumber("10UL", d));
    EXPECT_EQ(d, 10);
    EXPECT_TRUE(VEK_parseNumber("0b101", d));
    EXPECT_EQ(d, 5);
    EXPECT_TRUE(VEK_parseNumber("017", d));
    EXPECT_EQ(d, 17);
    EXPECT_TRUE(VEK_parseNumber("12345678901234567890123e-3", d));
    EXPECT_EQ(d, 12345678901234567890.123);
    EXPECT_FALSE(VEK_parseNumber("1e", d));
    EXPECT_FALSE(VEK_parseNumber("None", d));
    EXPECT_FALSE(VEK_parseNumber("-", d));
    EXPECT_FALSE(VEK_parseNumber("1.2.3", d));
}

// ------------------------------------------------------------ XMLBIF

TEST(Xmlbif, ReadsDecisionsUtilitiesOlderTagsAndProperties) {
    const std::string text = R"BIF(<?xml version="1.0"?>
<!DOCTYPE BIF [ <!ELEMENT BIF ( NETWORK )*> ]>
<BIF VERSION="0.3">
<NETWORK>
  <NAME>Plan &amp; act</NAME>
  <PROPERTY>author = me</PROPERTY>
  <VARIABLE TYPE="nature">
    <NAME>weather</NAME>
    <VALUE>sun</VALUE><VALUE>rain</VALUE>
    <PROPERTY>position = (10, -20)</PROPERTY>
    <PROPERTY>weight = None</PROPERTY>
    <EXTRA>skipped</EXTRA>
  </VARIABLE>
  <VARIABLE TYPE="decision"><NAME>umbrella</NAME><OUTCOME>take</OUTCOME><OUTCOME>leave</OUTCOME></VARIABLE>
  <VARIABLE TYPE="utility"><NAME>joy</NAME></VARIABLE>
  <PROBABILITY><FOR>weather</FOR><TABLE> 0.7
   0.3 </TABLE></PROBABILITY>
  <DEFINITION><FOR>umbrella</FOR><GIVEN>weather</GIVEN></DEFINITION>
  <DEFINITION><FOR>joy</FOR><GIVEN>weather</GIVEN><GIVEN>umbrella</GIVEN><TABLE>20 100 70 0</TABLE></DEFINITION>
</NETWORK>
</BIF>
)BIF";
    VEK_network net;
    ASSERT_EQ(ReadBif(net, text, ".xml"), 0) << LastMessage(net);
    EXPECT_STREQ(net.Header().GetName(), "Plan & act");
    EXPECT_STREQ(net.Header().GetId(), "Plan___act");
    EXPECT_STREQ(net.UserProperties().FindProperty("author"), "me");
    EXPECT_EQ(net.GetDef(net.FindNode("umbrella"))->GetType(), VEK_LIST);
    EXPECT_EQ(net.GetDef(net.FindNode("joy"))->GetType(), VEK_TABLE);
    EXPECT_EQ(Parents(net, "umbrella"), (std::vector<std::string>{"weather"}));
    EXPECT_EQ(Table(net, "weather"), (std::vector<double>{0.7, 0.3}));
    EXPECT_EQ(Table(net, "joy"), (std::vector<double>{20, 100, 70, 0}));
    const VEK_node* w = net.GetNode(net.FindNode("weather"));
    EXPECT_EQ(w->Info().screen.position.centerY, -20);
    EXPECT_STREQ(w->Info().userProperties.FindProperty("weight"), "None");
}

TEST(Xmlbif, FaultsAreRefusedWithTheirPosition) {
    const std::string head = "<BIF VERSION=\"0.3\"><NETWORK><NAME>n</NAME>\n"
                             "<VARIABLE TYPE=\"nature\"><NAME>a</NAME><OUTCOME>x</OUTCOME><OUTCOME>y</OUTCOME></VARIABLE>\n";
    foreign::ExpectFaults(foreign::FileReader(".bif", VEK_FORMAT_XMLBIF), {
        {head + "<DEFINITION><FOR>a</FOR><TABLE>0.5 half</TABLE></DEFINITION></NETWORK></BIF>", 3, 0,
                    "Number expected in TABLE but found 'half'"},
        {head + "<DEFINITION><FOR>a</FOR>\n<GIVEN>b</GIVEN><TABLE>0.5 0.5</TABLE></DEFINITION></NETWORK></BIF>", 4, 1,
                    "Node parent not found: 'b'"},
        {head + "<DEFINITION><FOR>a</FOR><TABLE>0.5 0.5 0.5</TABLE></DEFINITION></NETWORK></BIF>", 3, 0,
                    "has 3 values, expected 2"},
        {head + "<DEFINITION><FOR>a</FOR><TABLE>0.5 0.5</TABLE></DEFINITION>\n</NETWORK", 4, 0, ""},
        {"<BIF><NETWORK><VARIABLE TYPE=\"maybe\"><NAME>a</NAME></VARIABLE></NETWORK></BIF>", 1, 0,
                    "Unknown variable type 'maybe'"},
        {"<other/>", 1, 0, "Unknown root element"},
    });
}

TEST(Xmlbif, WriterKeepsNames) {
    VEK_network net;
    int a = net.AddNode(VEK_CPT, "low_a");
    int b = net.AddNode(VEK_CPT, "b");
    ASSERT_EQ(net.AddArc(a, b), 0);
    net.GetNode(a)->Header().SetName("low a");
    auto* da = static_cast<VEK_discDef*>(net.GetDef(a));
    VEK_idArray ids;
    ids.Add("s_5");
    ids.Add("big");
    ASSERT_EQ(da->SetNumberOfOutcomes(ids), 0);
    da->SetOutcomeLabel(0, "<5");
    da->SetOutcomeLabel(1, "Big one?");  // does not repair to its id: the id is written
    std::string text;
    VEK_xmlbifSpeaker speaker(net);
    ASSERT_EQ(speaker.WriteNetworkToString(text), 0);
    EXPECT_NE(text.find("<NAME>low a</NAME>"), std::string::npos) << text;
    EXPECT_NE(text.find("<OUTCOME>&lt;5</OUTCOME>"), std::string::npos) << text;
    EXPECT_NE(text.find("<OUTCOME>big</OUTCOME>"), std::string::npos) << text;
    EXPECT_NE(text.find("<GIVEN>low a</GIVEN>"), std::string::npos) << text;
}

// ------------------------------------------------------------ hostile input

// Cut and garbled versions of a real file, and inputs made to be huge, end
// in a positioned message and leave the network alone; the sanitizer build
// checks that nothing leaks or overflows on the way.
TEST(BifHostileInput, TruncatedGarbledAndHugeInputs) {
    const foreign::Reader read = foreign::FileReader(".bif", VEK_FORMAT_XMLBIF);
    foreign::ExpectCutAndGarbledFailCleanly(read, foreign::FileText(shared::PathOf("bif", "child", ".bif")), 7, 40, 20);
    foreign::ExpectCutAndGarbledFailCleanly(read, foreign::FileText(shared::PathOf("xmlbif", "asia", ".xml")), 8, 20, 20);
    std::string many = "variable a { type discrete [ 2 ] { x, y }; }\nprobability ( a ) { table";
    for (int i = 0; i < 200000; ++i) many += " 0.5";
    for (const std::string& input :
         {std::string("variable a { type discrete [ 99999999999 ] { x, y }; }"),
          "probability ( a | " + std::string(200000, 'b') + " ) { }",
          "network n { property " + std::string(300000, '(') + " ; }", many + "; }", std::string(100000, '<'),
          std::string("\0\1\2", 3) + "variable"}) {
        foreign::ExpectReadOrCleanFailure(read, input);
    }
}
