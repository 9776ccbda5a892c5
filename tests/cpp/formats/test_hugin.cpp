// Format 5: Hugin .net files: hand-made files that exercise the grammar and
// its faults, the writer and hostile input.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "formats/fileFormat.h"
#include "formats/huginSpeaker.h"
#include "network/discDef.h"
#include "network/network.h"
#include "foreignNetUtil.h"
#include "sharedNetworks.h"

using foreign::Disc;
using foreign::LastMessage;
using foreign::Table;
using foreign::TempFile;


// ------------------------------------------------------------ grammar

TEST(HuginRead, ClassWithDecisionUtilityIntervalsAndAttributes) {
    const std::string text = R"NET(% written by hand
class Plan
{
    inputs = ();
    outputs = ();
    node_size = (80 40);
    HR_Grid_X = "10";

    node Weather
    {
        label = "The \"weather\"";
        position = (100 50);
        states = ("sunny" "rainy day");
        HR_State_0 = "";
    }
    decision Umbrella { label = ""; states = ("take" "leave"); }
    utility Joy { label = "Joy"; }
    discrete node Temp
    {
        states = ("cold" "mild" "hot");
        subtype = interval;
        state_values = (-20 5 20 45);
    }
    node Level { states = ("l1" "l2"); subtype = numbered; state_values = (1.5 3); }
    potential (Weather) { data = ( 0.7 0.3 ); }
    potential (Umbrella | Weather) { }
    potential (Joy | Weather Umbrella) { data = (( 20 100 ) % sunny
                                                 ( 70 0 )); }
    potential (Temp | Weather)
    {
        data = ((0.2 0.5 0.3) (0.6 0.3 0.1));
        model_nodes = ();
        model_data = ();
    }
    potential (Level | Temp) { data = (0.5 0.5 0.25 0.75 1 0); }
}
)NET";
    VEK_network net;
    ASSERT_EQ(foreign::ReadText(net, foreign::WithCrlfAndBom(text), ".net"), 0) << LastMessage(net);
    EXPECT_STREQ(net.Header().GetId(), "Plan");
    EXPECT_STREQ(net.UserProperties().FindProperty("HR_Grid_X"), "10");
    EXPECT_EQ(net.UserProperties().FindProperty("inputs"), nullptr);

    const VEK_node* weather = net.GetNode(net.FindNode("Weather"));
    ASSERT_TRUE(weather);
    EXPECT_STREQ(weather->Header().GetName(), "The \"weather\"");
    EXPECT_EQ(weather->Info().screen.position.centerX, 100);
    EXPECT_EQ(weather->Info().screen.position.centerY, 50);
    EXPECT_EQ(weather->Info().screen.position.width, 80);
    EXPECT_STREQ(weather->Info().userProperties.FindProperty("HR_State_0"), "");
    EXPECT_EQ(Disc(net, "Weather")->GetOutcomeIds()->ToVector(), (std::vector<std::string>{"sunny", "rainy_day"}));
    EXPECT_STREQ(Disc(net, "Weather")->GetOutcomeLabel(1), "rainy day");

    int umbrella = net.FindNode("Umbrella");
    EXPECT_EQ(net.GetDef(umbrella)->GetType(), VEK_LIST);
    EXPECT_STREQ(net.GetNode(umbrella)->Header().GetName(), "Umbrella");
    EXPECT_EQ(net.GetNode(umbrella)->Parents().GetSize(), 1);
    EXPECT_EQ(net.GetDef(net.FindNode("Joy"))->GetType(), VEK_TABLE);
    EXPECT_EQ(Table(net, "Joy"), (std::vector<double>{20, 100, 70, 0}));
    EXPECT_EQ(Table(net, "Temp"), (std::vector<double>{0.2, 0.5, 0.3, 0.6, 0.3, 0.1}));
    EXPECT_EQ(Disc(net, "Temp")->GetIntervals(), (std::vector<double>{-20, 5, 20, 45}));
    EXPECT_EQ(Disc(net, "Level")->GetPointValues(), (std::vector<double>{1.5, 3}));
    EXPECT_EQ(Table(net, "Level"), (std::vector<double>{0.5, 0.5, 0.25, 0.75, 1, 0}));
}

TEST(HuginRead, FaultsAreRefusedWithTheirPosition) {
    const std::string head = "net { }\nnode a { states = (\"x\" \"y\"); }\nnode b { states = (\"t\" \"f\"); }\n";
    foreign::ExpectFaults(foreign::FileReader(".net"), {
        {head + "potential (a) { data = (0.5 0.5); }\npotential (b | a) { data = (0.5 0.5 0.5); }\n", 5, 28,
                    "has 3 values, expected 4"},
        {head + "potential (a) { data = (0.5 0.5); }\npotential (b | c) { data = (0.5 0.5); }\n", 5, 16,
                    "Node parent not found: 'c'"},
        {head + "potential (a | b) { data = (0.5 0.5 0.5 0.5); }\npotential (b | a) { data = (0.5 0.5 0.5 0.5); }\n",
                    4, 1, "cycle"},
        {head + "potential (a b | ) { data = (0.5 0.5); }\n", 4, 1, "Joint potentials"},
        {head + "continuous node c { }\n", 4, 1, "Continuous and function nodes are not supported: 'c'"},
        {"net { }\nnode a { states = (\"x\" \"y\") }\n", 2, 29, "Expected ';' but found '}'"},
        {"net { }\nnode a { label = \"open; }\n", 2, 18, "Unterminated string"},
        {"net { }\n/* never closed\nnode a { }\n", 2, 1, "Unterminated comment"},
        {head + "node a { states = (\"p\" \"q\"); }\n", 4, 1, "Duplicated node identifier: 'a'"},
        {"class C { instance I (x) { } }\n", 1, 11, "not supported"},
        {head + "potential (a) { data = (0.5 0.5); }\n", 3, 1, "No table for node 'b'"},
        {head + "potential (a) { data = ((0.5) oops); }\npotential (b) { data = (1 0); }\n", 4, 31,
                    "Number expected but found 'oops'"},
        {"net { }\nnode a { states = (\"x\"); }\npotential (a) { data = (1); }\n", 2, 1,
                    "Node needs at least two states: 'a'"},
        {"net { }\nnode a { states = (\"x\" \"y\"); }\nutility u { }\nnode b { states = (\"x\" \"y\"); }\n"
                    "potential (a) { data = (1 0); }\npotential (u) { data = (1); }\npotential (b | u) { data = (1 0); }\n",
                    7, 16, "A utility node cannot be a parent: 'u'"},
    });
}

// ------------------------------------------------------------ writer

TEST(HuginWrite, WritesTheFormatOthersRead) {
    VEK_network net;
    net.Header().SetId("tiny");
    int a = net.AddNode(VEK_CPT, "a");
    int d = net.AddNode(VEK_LIST, "d");
    int u = net.AddNode(VEK_TABLE, "u");
    ASSERT_EQ(net.AddArc(a, u), 0);
    ASSERT_EQ(net.AddArc(d, u), 0);
    ASSERT_EQ(net.AddArc(a, d), 0);
    net.GetNode(a)->Header().SetName("A \"quoted\" \\ name");
    net.GetNode(a)->Info().screen.position = {10, 20, 80, 40};
    auto* da = static_cast<VEK_discDef*>(net.GetDef(a));
    VEK_idArray ids;
    ids.Add("s_5");
    ids.Add("high");
    ASSERT_EQ(da->SetNumberOfOutcomes(ids), 0);
    da->SetOutcomeLabel(0, "<5");
    ASSERT_EQ(da->SetDefinition(std::vector<double>{0.25, 0.75}), 0);
    ASSERT_EQ(net.GetDef(u)->SetDefinition(std::vector<double>{1, -2.5, 1e-300, 4}), 0);
    net.GetNode(u)->Info().userProperties.AddProperty("HR_Desc", "line\nbreak");
    net.GetNode(u)->Info().userProperties.AddProperty("not a name", "skipped");

    std::string text;
    VEK_huginSpeaker speaker(net);
    ASSERT_EQ(speaker.WriteNetworkToString(text), 0);
    EXPECT_EQ(text, R"NET(net
{
    node_size = (80 40);
    label = "tiny";
}

node a
{
    label = "A \"quoted\" \\ name";
    position = (10 20);
    states = ("<5" "high");
}

decision d
{
    label = "d";
    position = (0 0);
    states = ("Choice0" "Choice1");
}

utility u
{
    label = "u";
    position = (0 0);
    HR_Desc = "line\nbreak";
}

potential (a |)
{
    data = (0.25 0.75);
}

potential (d | a)
{
}

potential (u | a d)
{
    data = ((1 -2.5)
            (1e-300 4));
}
)NET");
    VEK_network back;
    ASSERT_EQ(foreign::ReadText(back, text, ".net"), 0) << LastMessage(back);
    EXPECT_STREQ(Disc(back, "a")->GetOutcomeLabel(0), "<5");
    EXPECT_STREQ(back.GetNode(back.FindNode("a"))->Header().GetName(), "A \"quoted\" \\ name");
    EXPECT_EQ(Table(back, "u"), (std::vector<double>{1, -2.5, 1e-300, 4}));
    EXPECT_STREQ(back.GetNode(back.FindNode("u"))->Info().userProperties.FindProperty("HR_Desc"), "line\nbreak");
}

// ------------------------------------------------------------ hostile input

TEST(HuginHostileInput, TruncatedGarbledAndHugeInputs) {
    const foreign::Reader read = foreign::FileReader(".net");
    foreign::ExpectCutAndGarbledFailCleanly(read, foreign::FileText(shared::PathOf("net", "alarm", ".net")), 11, 60, 40);
    const std::string head = "net { }\nnode a { states = (\"x\" \"y\"); }\n";
    for (const std::string& input :
         {head + "potential (a) { data = " + std::string(500000, '(') + "0.5 0.5" + std::string(500000, ')') + "; }",
          head + "potential (a) { data = " + std::string(500000, '(') + "; }",
          head + "potential (a) { data = (" + std::string(300000, ')') + "; }",
          "net { x = " + std::string(400000, '(') + "; }", "net { label = \"" + std::string(1 << 20, 'x') + "\"; }",
          head + "potential (a) { data = (1e999 0); }", std::string("net { }\nnode a \0 { }", 20)}) {
        foreign::ExpectReadOrCleanFailure(read, input);
    }
}
