// The text network format (.vek): round trips of random and reference
// networks (checked through the XML writer, an independent picture of the
// network), hand-written files, and faulty input.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "../xml/networkDescription.h"
#include "foreignNetUtil.h"
#include "formats/vekSpeaker.h"
#include "network/intArray.h"
#include "network/network.h"

namespace {

using foreign::LastMessage;
using TempPath = foreign::TempFile;

std::string Xml(VEK_network& net) {
    std::string out;
    EXPECT_EQ(net.WriteString(out), 0);
    return out;
}

std::string Vek(VEK_network& net) {
    std::string out;
    VEK_vekSpeaker speaker(net);
    EXPECT_EQ(speaker.WriteNetworkToString(out), 0) << net.Logger().GetLastErrorMessage();
    return out;
}

// Reads text through the file dispatch, as a user would.
int ReadVek(VEK_network& net, const std::string& text) { return foreign::ReadText(net, text, ".vek"); }

// Reads text with the speaker over a fresh network (no file, no dispatch).
int ReadDirect(VEK_network& net, const std::string& text) {
    VEK_vekSpeaker speaker(net);
    return speaker.ReadNetworkFromString(text.c_str());
}

// What the random generator leaves out: a node whose parent comes later in
// handle order, an id that is no word, odd text, extreme numbers and
// colours, the selection colour and a temporal type without a name.
void AddExtras(VEK_network& net, unsigned seed) {
    testnet::Generator g(seed * 7919u);
    int child = net.AddNode(VEK_CPT, "late_child");
    int parent = net.AddNode(VEK_CPT, "@early parent");
    ASSERT_GE(parent, 0);
    auto* pd = static_cast<VEK_discDef*>(net.GetDef(parent));
    pd->SetNumberOfOutcomes(3);
    ASSERT_EQ(net.AddArc(parent, child), 0);
    std::vector<double> table;
    for (int c = 0; c < 3; ++c) {
        auto d = g.Distribution(2);
        table.insert(table.end(), d.begin(), d.end());
    }
    table[0] = 1.0 / 3.0;
    table[1] = 5e-324;
    net.GetDef(child)->SetDefinition(table);
    VEK_node* n = net.GetNode(child);
    n->Header().SetName("tab\there \"quoted\" back\\slash\r\nline \x01 end \xE2\x82\xAC");
    n->Header().SetComment("");
    n->Info().screen.selColor = 0xFFFFFFFFu;
    n->Info().screen.position = {std::numeric_limits<int>::min() / 2, std::numeric_limits<int>::max() / 2, 0, -7};
    n->Info().screen.font.name = "";
    n->SetTemporalType(5);
    n->Info().userProperties.AddProperty("", "empty key");
    if (net.Cases().GetCount() > 0) net.Cases().Get(0)->created = (1LL << 62) + 1;
    int u = net.AddNode(VEK_TABLE, "special_utility");
    ASSERT_EQ(net.AddArc(parent, u), 0);
    std::vector<double> utilities{-0.0, std::numeric_limits<double>::infinity(), VEK_UNDEFINED_VALUE};
    net.GetDef(u)->SetDefinition(utilities);
}

}  // namespace

// ============================================================== round trips

TEST(VekFormat, RandomNetworksRoundTripExactly) {
    for (unsigned seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        VEK_network net;
        testnet::RandomNetwork(net, seed);
        if (seed % 2 == 0) AddExtras(net, seed);
        if (seed % 3 == 0) {
            testnet::AddEquationsAndTime(net, seed);
            ASSERT_EQ(net.GetDynamic()->GetMaxTemporalOrder(), 2);
            ASSERT_EQ(net.GetDef(net.FindNode("eq_derived"))->GetNumberOfOutcomes(), 3);
        }
        const std::string text = Vek(net);
        VEK_network back;
        ASSERT_EQ(ReadVek(back, text), 0) << LastMessage(back) << "\n" << text;
        EXPECT_EQ(Vek(back), text);
        EXPECT_EQ(Xml(back), Xml(net));
        EXPECT_EQ(testnet::Describe(back), testnet::Describe(net));
        // Handles follow the order of the file, which is the network order.
        VEK_intArray a;
        VEK_intArray b;
        net.GetAllNodes(a);
        back.GetAllNodes(b);
        ASSERT_EQ(a.GetSize(), b.GetSize());
        for (int i = 0; i < a.GetSize(); ++i) EXPECT_STREQ(net.GetNodeId(a[i]), back.GetNodeId(b[i]));
    }
}

TEST(VekFormat, SharedNetworksConvertBothWays) {
    for (const testnet::SharedCounts& c : testnet::SharedNetworks()) {
        SCOPED_TRACE(c.name);
        VEK_network net;
        ASSERT_EQ(net.ReadFile(testnet::SharedPath(c.name).c_str()), 0) << LastMessage(net);
        const std::string xml = Xml(net);
        TempPath file(".vek");
        ASSERT_EQ(net.WriteFile(file.c_str()), 0) << LastMessage(net);
        VEK_network back;
        ASSERT_EQ(back.ReadFile(file.c_str()), 0) << LastMessage(back);
        EXPECT_EQ(back.GetNumberOfNodes(), c.nodes);
        EXPECT_TRUE(Xml(back) == xml);
        if (!c.large) {
            EXPECT_TRUE(Vek(back) == file.Read());
        }
    }
}

// ============================================================== hand-written files

namespace {

// A small clinic network written by hand: comments of every kind, fields in
// any order, a parent named before it is defined, optional commas, indices
// for outcomes, a table left out, n/a costs.
const char* kClinic = R"(# A hand-written network
/* block comment */
network clinic {
    name = "Lung clinic";   // trailing comment
    property "author" = "me";

    node cpt dyspnoea {
        probabilities = (0.9 0.1  0.8 0.2  0.7 0.3  0.1 0.9);
        parents = (cancer, bronchitis);
        states = (yes no);
        default = 1;
        state yes { label = "Short of breath"; fault = true; }
    }
    node cpt smoker { states = (yes, no); probabilities = (0.5, 0.5); target = true; }
    node cpt cancer {
        states = (yes, no);
        parents = (smoker);
        probabilities = (
            0.1 0.9
            0.01 0.99
        );
        costparents = (smoker);
        cost = (n/a 4.5);
    }
    node cpt bronchitis { parents = (smoker); states = (present, absent); }
    node deterministic alarm { states = (on, off); parents = (cancer); resultingstates = (on 1); }
    node decision treat { states = (yes, no); }
    node utility value { parents = (treat, cancer); utilities = (-inf 10 0 -1e3); }
    case "visit" { evidence smoker = yes; continuous cancer = 0.5 1; target dyspnoea; }
}
)";

}  // namespace

TEST(VekFormat, HandWrittenFileLoads) {
    VEK_network net;
    ASSERT_EQ(ReadVek(net, kClinic), 0) << LastMessage(net);
    EXPECT_STREQ(net.Header().GetId(), "clinic");
    EXPECT_STREQ(net.Header().GetName(), "Lung clinic");
    EXPECT_STREQ(net.UserProperties().FindProperty("author"), "me");

    const int d = net.FindNode("dyspnoea");
    ASSERT_GE(d, 0);
    const auto* dd = static_cast<const VEK_discDef*>(net.GetDef(d));
    EXPECT_EQ(dd->GetDefaultOutcome(), 1);
    EXPECT_STREQ(dd->GetOutcomeLabel(0), "Short of breath");
    EXPECT_TRUE(dd->IsFaultOutcome(0));
    ASSERT_EQ(net.GetNode(d)->Parents().GetSize(), 2);
    EXPECT_EQ(net.GetNode(d)->Parents()[0], net.FindNode("cancer"));
    EXPECT_EQ(dd->GetParameters()[6], 0.1);
    EXPECT_TRUE(net.IsTarget(net.FindNode("smoker")));

    // Left out: the default (uniform) table of the right shape.
    const VEK_Dmatrix& b = net.GetDef(net.FindNode("bronchitis"))->GetParameters();
    ASSERT_EQ(b.GetSize(), 4);
    EXPECT_EQ(b[0], 0.5);

    const VEK_Dmatrix& alarm = net.GetDef(net.FindNode("alarm"))->GetParameters();
    EXPECT_EQ(alarm[0], 1.0);  // cancer yes -> on
    EXPECT_EQ(alarm[3], 1.0);  // cancer no -> off (index 1)
    const VEK_Dmatrix& u = net.GetDef(net.FindNode("value"))->GetParameters();
    EXPECT_EQ(u[0], -std::numeric_limits<double>::infinity());
    EXPECT_EQ(u[3], -1000.0);

    const VEK_node* cancer = net.GetNode(net.FindNode("cancer"));
    ASSERT_EQ(cancer->CostParents().GetSize(), 1);
    EXPECT_EQ(cancer->GetCost()[0], VEK_NOT_AVAILABLE_VALUE);
    EXPECT_EQ(cancer->GetCost()[1], 4.5);

    ASSERT_EQ(net.Cases().GetCount(), 1);
    const VEK_case& c = *net.Cases().Get(0);
    ASSERT_EQ(c.evidence.size(), 2u);
    EXPECT_EQ(c.evidence[1].type, VEK_CASE_CONTINUOUS);
    EXPECT_EQ(c.evidence[1].value, 0.5);
    EXPECT_EQ(c.evidence[1].outcome, 1);
    ASSERT_EQ(c.targets.size(), 1u);

    // The chance part works: P(dyspnoea=yes) from the tables as read.
    VEK_network bn(net);
    ASSERT_EQ(bn.DeleteNode(bn.FindNode("value")), 0);
    ASSERT_EQ(bn.DeleteNode(bn.FindNode("treat")), 0);
    bn.ClearAllTargets();
    ASSERT_EQ(bn.UpdateBeliefs(), 0) << LastMessage(bn);
    const double pc = 0.5 * 0.1 + 0.5 * 0.01;
    const double expected = pc * (0.5 * 0.9 + 0.5 * 0.8) + (1 - pc) * (0.5 * 0.7 + 0.5 * 0.1);
    const VEK_nodeVal* val = bn.GetVal(bn.FindNode("dyspnoea"));
    ASSERT_NE(val, nullptr);
    const VEK_Dmatrix* belief = val->GetMatrix();
    ASSERT_NE(belief, nullptr);
    EXPECT_NEAR((*belief)[0], expected, 1e-12);

    // The same bytes with CRLF line ends and a byte order mark.
    VEK_network crlf;
    ASSERT_EQ(ReadVek(crlf, foreign::WithCrlfAndBom(kClinic)), 0) << LastMessage(crlf);
    EXPECT_EQ(Xml(crlf), Xml(net));
    // And what the writer makes of it reads back the same.
    VEK_network again;
    ASSERT_EQ(ReadVek(again, Vek(net)), 0) << LastMessage(again);
    EXPECT_EQ(Xml(again), Xml(net));
}

// The forms a person would write for canonical and utility nodes, the
// submodel tree and the algorithm settings: outcomes by id or by index.
TEST(VekFormat, HandWrittenCanonicalNodesAndLayout) {
    const char* text = R"(network canon {
    epis { proplen = 7; numstates = (4 9 21); eps = (0.01 0.001 1e-4 2e-5); }
    slices = 2;
    samples = 500;
    submodel outer { name = "Outer"; center = 10 20; submodel inner { comment = "deep"; } }
    node cpt a { states = (lo, mid, hi); submodel = inner; interior = 0xff0000; font = "Courier" 9 italic; }
    node cpt b { states = (off, on); barchart = true 100 50; }
    node cpt t { states = (p, q); dynamic = plate; diagtype = observation; ranked = true; }
    node noisymax m {
        states = (high, low);
        parents = (a, b);
        strengths = ((hi, mid, lo), (1 0));
        parameters = (0.7 0.3  0.2 0.8  0 1   0.6 0.4  0 1   0.1 0.9);
    }
    node noisyadder s {
        states = (x, y, z);
        parents = (a, b);
        function = singlefault;
        dstate = z;
        dstates = (lo, 1);
        weights = (0.5 2);
    }
    node cast c { states = (present, absent); baseline = 0.3; }
    node demorgan d { parents = (e); types = (inhibitor); weights = (0.25); priorbelief = 0.1; }
    node demorgan e { }
    node utility v { parents = (a); utilities = (1 2 3); }
    node mau w { parents = (v); weights = (2); expressions = ("2*v"); }
    textbox { text = "note"; submodel = outer; center = 5 6; size = 7 8; font = "Courier" 9 italic; }
    case "c1" { virtual t slice 1 = (0.2 0.8); target m; }
})";
    VEK_network net;
    ASSERT_EQ(ReadVek(net, text), 0) << LastMessage(net);
    const VEK_EPISParams& e = net.GetEPISParams();
    EXPECT_EQ(e.propagationLength, 7);
    EXPECT_EQ(e.numStateMedium, 9);
    EXPECT_EQ(e.stateOtherwise, 2e-5);
    EXPECT_EQ(net.GetNumberOfSlices(), 2);
    EXPECT_EQ(net.GetNumberOfSamples(), 500);

    const int outer = net.Submodels().FindSubmodel("outer");
    const int inner = net.Submodels().FindSubmodel("inner");
    ASSERT_GE(inner, 0);
    EXPECT_EQ(net.Submodels().GetParent(inner), outer);
    EXPECT_STREQ(net.Submodels().Get(outer)->header.GetName(), "Outer");
    EXPECT_EQ(net.Submodels().Get(outer)->info.position.centerY, 20);
    EXPECT_STREQ(net.Submodels().Get(inner)->header.GetComment(), "deep");
    const VEK_node* a = net.GetNode(net.FindNode("a"));
    EXPECT_EQ(a->GetSubmodel(), inner);
    EXPECT_EQ(a->Info().screen.color, 0x0000FFu);  // red is the lowest byte
    EXPECT_EQ(a->Info().screen.font, (VEK_font{"Courier", 9, false, true}));
    EXPECT_EQ(net.GetNode(net.FindNode("b"))->Info().barChart, (VEK_barChart{true, 100, 50}));
    const VEK_node* t = net.GetNode(net.FindNode("t"));
    EXPECT_EQ(t->GetTemporalType(), 3);
    EXPECT_EQ(t->GetDiagType(), VEK_DIAG_OBSERVATION);
    EXPECT_TRUE(t->IsRanked());
    EXPECT_FALSE(t->IsMandatory());

    const auto* m = static_cast<const VEK_noisyMAX*>(net.GetDef(net.FindNode("m")));
    EXPECT_EQ(*m->GetParentOutcomeStrengths(0), VEK_intArray(std::vector<int>{2, 1, 0}));
    EXPECT_EQ(*m->GetParentOutcomeStrengths(1), VEK_intArray(std::vector<int>{1, 0}));
    EXPECT_EQ(m->GetParameters()[6], 0.6);
    const auto* s = static_cast<const VEK_noisyAdder*>(net.GetDef(net.FindNode("s")));
    EXPECT_EQ(s->GetFunction(), VEK_noisyAdder::FUNCTION_SINGLE_FAULT);
    EXPECT_EQ(s->GetDistinguishedState(), 2);
    EXPECT_EQ(s->GetParentDistinguishedState(0), 0);
    EXPECT_EQ(s->GetParentDistinguishedState(1), 1);
    double w = 0.0;
    s->GetParentWeight(1, w);
    EXPECT_EQ(w, 2.0);
    const auto* c = static_cast<const VEK_cast*>(net.GetDef(net.FindNode("c")));
    EXPECT_EQ(c->GetBaseline(), 0.3);
    EXPECT_STREQ((*c->GetOutcomeIds())[0], "present");
    const auto* d = static_cast<const VEK_demorgan*>(net.GetDef(net.FindNode("d")));
    EXPECT_EQ(d->GetParentType(0), VEK_demorgan::INHIBITOR);
    d->GetParentWeight(0, w);
    EXPECT_EQ(w, 0.25);
    EXPECT_EQ(d->GetPriorBelief(), 0.1);
    const auto* mau = static_cast<const VEK_mau*>(net.GetDef(net.FindNode("w")));
    EXPECT_EQ(mau->GetExpressions(), std::vector<std::string>{"2*v"});
    EXPECT_EQ(mau->GetWeights()[0], 2.0);

    ASSERT_EQ(net.TextBoxes().size(), 1u);
    EXPECT_EQ(net.TextBoxes()[0].submodel, outer);
    EXPECT_EQ(net.TextBoxes()[0].position, (VEK_rectangle{5, 6, 7, 8}));
    const VEK_case& k = *net.Cases().Get(0);
    ASSERT_EQ(k.evidence.size(), 1u);
    EXPECT_EQ(k.evidence[0].slice, 1);
    EXPECT_EQ(k.evidence[0].virtualEvidence, (std::vector<double>{0.2, 0.8}));
    EXPECT_EQ(k.targets, std::vector<int>{net.FindNode("m")});

    VEK_network again;
    ASSERT_EQ(ReadVek(again, Vek(net)), 0) << LastMessage(again);
    EXPECT_EQ(testnet::Describe(again), testnet::Describe(net));
}

// Equation nodes (a discretized one with a discrete child, a user function)
// and a temporal plate with tables of orders 2 and 1.
TEST(VekFormat, HandWrittenEquationsAndTimeSlices) {
    const char* text = R"vek(network dyn {
    function = "half(v) = v / 2";
    plate { center = 300 200; size = 400 300; widths = 20 30; }
    node equation level {
        equation = "level = half(drift) + 1";  bounds = -10 10;  defaultvalue = 2;
        discretization = (0 10);  labels = (neg, pos);
    }
    node equation drift { equation = "drift = Normal(0, 1)"; bounds = -10 10; }
    node cpt alarm { parents = (level); probabilities = (0.9 0.1  0.2 0.8); }
    node cpt hidden {
        dynamic = plate;
        temporal 2 { parents = (hidden); probabilities = (0.1 0.9  0.2 0.8  0.3 0.7  0.6 0.4); }
        temporal 1 { parents = (hidden); probabilities = (0.7 0.3  0.4 0.6); }
    }
})vek";
    VEK_network net;
    ASSERT_EQ(ReadVek(net, text), 0) << LastMessage(net);
    const int level = net.FindNode("level");
    const auto* eq = static_cast<const VEK_equation*>(net.GetDef(level));
    EXPECT_EQ(eq->GetLower(), -10.0);
    EXPECT_EQ(eq->GetDefaultValue(), 2.0);
    ASSERT_EQ(eq->GetDiscretization().size(), 2u);
    EXPECT_EQ(eq->GetDiscretization()[1].label, "pos");
    EXPECT_EQ(net.GetNode(level)->Parents().GetSize(), 1);  // the equation's variable
    EXPECT_EQ(net.GetDef(net.FindNode("alarm"))->GetParameters()[2], 0.2);
    const VEK_dynamicNet& dyn = *net.GetDynamic();
    const int hidden = net.FindNode("hidden");
    EXPECT_EQ(dyn.GetTemporalParents(hidden).size(), 2u);
    EXPECT_EQ((*dyn.GetTemporalDefinition(hidden, 1))[2], 0.4);
    EXPECT_EQ((*dyn.GetTemporalDefinition(hidden, 2))[6], 0.6);
    EXPECT_EQ(dyn.PlatePosition(), (VEK_rectangle{300, 200, 400, 300}));
    EXPECT_EQ(dyn.GetRightWidth(), 30);
}

// The layout the writer promises: one field per line, defaults left out,
// tables one row of outcomes per line.
TEST(VekFormat, WriterLayout) {
    VEK_network net;
    net.Header().SetId("tiny");
    net.Header().SetName("Tiny net");
    net.UserProperties().AddProperty("k", "v \"q\"");
    int rain = net.AddNode(VEK_CPT, "rain");
    static_cast<VEK_discDef*>(net.GetDef(rain))->RenameOutcomes(std::vector<std::string>{"yes", "no"});
    net.GetDef(rain)->SetDefinition(std::vector<double>{0.2, 0.8});
    net.SetTarget(rain, true);
    int wet = net.AddNode(VEK_TRUTHTABLE, "wet");
    static_cast<VEK_discDef*>(net.GetDef(wet))->RenameOutcomes(std::vector<std::string>{"soaked", "dry"});
    ASSERT_EQ(net.AddArc(rain, wet), 0);
    int grass = net.AddNode(VEK_CPT, "grass");
    ASSERT_EQ(net.AddArc(rain, grass), 0);
    ASSERT_EQ(net.AddArc(wet, grass), 0);
    net.GetDef(grass)->SetDefinition(std::vector<double>{0.1, 0.9, 0.25, 0.75, 0.5, 0.5, 1, 0});
    int value = net.AddNode(VEK_TABLE, "value");
    ASSERT_EQ(net.AddArc(wet, value), 0);
    net.GetDef(value)->SetDefinition(std::vector<double>{10, -5});
    const char* expected = R"(// Network in the pyquarn text format
network tiny {
    version = 1;
    name = "Tiny net";
    property "k" = "v \"q\"";

    node cpt rain {
        states = (yes, no);
        target = true;
        probabilities = (0.2 0.8);
    }

    node deterministic wet {
        states = (soaked, dry);
        parents = (rain);
        resultingstates = (soaked soaked);
    }

    node cpt grass {
        states = (State0, State1);
        parents = (rain, wet);
        probabilities = (
            0.1 0.9
            0.25 0.75
            0.5 0.5
            1 0
        );
    }

    node utility value {
        parents = (wet);
        utilities = (10 -5);
    }
}
)";
    EXPECT_EQ(Vek(net), expected);
}

// ============================================================== faults

TEST(VekFormat, FaultsArePositionedAndLeaveTheNetworkUnchanged) {
    struct Case {
        const char* text;
        int line;
        int column;
        const char* message;
    };
    const Case cases[] = {
        {"network n {\n  node cpt a { states = (x, y); probs = (1 0); }\n}", 2, 33, "Unknown keyword 'probs' in node 'a'"},
        {"network n {\n  node cpt a { states = (x, y);\n    probabilities = (0.5 0.5 0); }\n}", 3, 21,
         "Wrong table size"},
        {"network n {\n  node cpt a { parents = (b, zz); }\n  node cpt b { }\n}", 2, 30,
         "Node parent not found: 'zz'"},
        {"network n {\n  node cpt a { parents = (b); }\n  node cpt b { parents = (a); }\n}", 3, 27,
         "The arc 'a -> b' closes a cycle"},
        {"network n {\n  node cpt a { parents = (a); }\n}", 2, 27, "closes a cycle"},
        {"network n {\n  node cpt a { }\n  node decision a { }\n}", 3, 17, "Duplicated node identifier: 'a'"},
        {"network n {\n  submodel a { }\n  node cpt a { }\n}", 3, 12, "Duplicated node identifier: 'a'"},
        {"network n {\n  node cpt a { states = (x, x); }\n}", 2, 29, "Duplicate state identifier: 'x'"},
        {"network n {\n  node cpt a { target = true; target = false; }\n}", 2, 31, "Duplicate field 'target'"},
        {"network n {\n  node table a { }\n}", 2, 8, "Unknown node kind 'table'"},
        {"network n {\n  node cpt 9a { }\n}", 2, 12, "Invalid node identifier"},
        {"network n {\n  node deterministic a { states = (x, y); resultingstates = (z); }\n}", 2, 62,
         "Invalid outcome identifier: 'z'"},
        {"network n {\n  name = \"open\n}", 2, 10, "Unterminated string"},
        {"network n {\n  node cpt a {\n", 3, 1, "Expected '}' but found end of file"},
        {"network n {\n  node cpt a { states = (x, y)", 2, 31, "Expected ';' but found end of file"},
        {"network n {\n  version = 2;\n}", 2, 13, "Invalid version number"},
        {"network n {\n  node cpt a { interior = 0x1FFFFFFFF; }\n}", 2, 27, "Invalid color"},
        {"network n {\n  node cpt a { submodel = nowhere; }\n}", 2, 27, "Invalid submodel identifier: 'nowhere'"},
        {"network n {\n  node cpt a { states = (x, y); probabilities = (1 n/a); }\n}", 2, 52,
         "Number expected but found 'n/a'"},
        {"network n {\n  node cpt a { probabilities = (0.5 x); }\n}", 2, 37, "Number expected but found 'x'"},
        {"network n {\n  node cpt a { target = yes; }\n}", 2, 25, "Expected 'true' or 'false'"},
        {"network n {\n  node utility u { states = (x, y); }\n}", 2, 20, "Unknown keyword 'states'"},
        {"network n {\n  node cpt a { }\n  case \"c\" { evidence a = maybe; }\n}", 3, 27,
         "Invalid outcome identifier: 'maybe'"},
        {"network n {\n  node cpt a { }\n  case \"c\" { evidence a slice 0 = 0; }\n}", 3, 31,
         "Cannot add case evidence for node: 'a'"},
        {"network n {\n  case \"c\" { }\n  case \"c\" { }\n}", 3, 8, "Duplicate case name: 'c'"},
        {"network n {\n  node cpt a { cost = (1 2); }\n}", 2, 23, "Wrong table size for the costs"},
        {"network n {\n  node cpt a { costparents = (b); cost = (1 2); }\n"
         "  node cpt b { costparents = (a); cost = (1 2); }\n}",
         3, 31, "The cost arc 'a -> b' closes a cycle"},
        {"network n { }\nnetwork m { }\n", 2, 1, "A file holds one network"},
        {"nodes { }", 1, 1, "Expected 'network' but found 'nodes'"},
        {"", 1, 1, "Expected 'network' but found end of file"},
        {"network n { } }", 1, 15, "Unexpected '}'"},
        {"network n {\n  node cpt a { states = (x, y); probabilities = ((0.5 0.5)); }\n}", 2, 50,
         "Number expected but found a list"},
        {"network n {\n  node noisymax a { parents = (b); strengths = ((x)); }\n  node cpt b { }\n}", 2, 50,
         "Invalid outcome identifier: 'x'"},
        {"network n {\n  node demorgan a { parents = (b); types = (friend); }\n  node demorgan b { }\n}", 2, 45,
         "SetParentTypes failed: 'friend'"},
        {"network n {\n  node cpt a { temporal 1 { parents = (a); } }\n}", 2, 16,
         "Node is not part of temporal plate: 'a'"},
        {"network n {\n  node cpt a { dynamic = plate; temporal 0 { parents = (a); } }\n}", 2, 42,
         "Temporal defintion not found: 'a'"},
        {"network n {\n  node cpt a { dynamic = plate; temporal 1 { } }\n}", 2, 33, "No temporal parents specified: 'a'"},
        {"network n {\n  node cpt a { dynamic = plate; temporal 1 { parents = (a); probabilities = (1 0); } }\n}", 2,
         77, "Wrong table size for the temporal definition of node 'a': 2 values, 4 expected"},
        {"network n {\n  node cpt a { dynamic = plate; temporal 1 { parents = (b); } }\n  node cpt b { }\n}", 2, 33,
         "AddTemporalArc failed: 'a'"},
        {"network n {\n  node equation x { equation = \"x = 1 +\"; }\n}", 2, 32, "Expression parse error: 'x'"},
        {"network n {\n  node equation x { bounds = 2 1; }\n}", 2, 30, "Invalid equation bounds: 'x'"},
        {"network n {\n  plate { depth = 3; }\n}", 2, 11, "Unknown keyword 'depth' in plate"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        VEK_network net;
        testnet::RandomNetwork(net, 11);
        const std::string before = Xml(net);
        const int logged = net.Logger().GetErrorCount();
        TempPath file(".vek");
        file.Write(c.text);
        EXPECT_EQ(net.ReadFile(file.c_str()), VEK_FILE_IO_FAILED);
        ASSERT_GT(net.Logger().GetErrorCount(), logged);
        EXPECT_EQ(net.Logger().GetLastError(), VEK_FILE_IO_FAILED);
        const std::string expected = "Error at " + std::to_string(c.line) + ", " + std::to_string(c.column) +
                                     " while loading " + file.c_str() + ": ";
        const std::string message = LastMessage(net);
        EXPECT_EQ(message.rfind(expected, 0), 0u) << message;
        EXPECT_NE(message.find(c.message), std::string::npos) << message;
        EXPECT_EQ(Xml(net), before);
    }
}

TEST(VekFormat, HostileSizesAreRefusedBeforeAllocation) {
    // 24 parents of 4 outcomes: a table of 2^49 entries that is not given.
    std::string text = "network n {\n";
    std::string parents;
    for (int i = 0; i < 24; ++i) {
        text += "  node cpt p" + std::to_string(i) + " { states = (a, b, c, d); }\n";
        parents += (i ? ", p" : "p") + std::to_string(i);
    }
    // And a plate node whose temporal parents would make its table as large.
    std::string plate = "network n {\n";
    for (int i = 0; i < 24; ++i) {
        plate += "  node cpt p" + std::to_string(i) + " { states = (a, b, c, d); dynamic = plate; }\n";
    }
    std::string blocks = "network n {";
    for (int i = 0; i < 1100; ++i) blocks += " submodel s {";
    const std::pair<std::string, const char*> cases[] = {
        {text + "  node cpt big { parents = (" + parents + "); }\n}", "too large to be left out"},
        {text + "  node deterministic big { parents = (" + parents + "); resultingstates = (a); }\n}",
         "1 values, 281474976710656 expected"},
        {plate + "  node cpt big { dynamic = plate; temporal 1 { parents = (" + parents + "); } }\n}",
         "temporal tables are too large"},
        {"network n { node cpt a { probabilities = " + std::string(5000, '(') + "}}", "nested too deeply"},
        {blocks, "nested too deeply"},
    };
    for (const auto& [input, message] : cases) {
        VEK_network net;
        EXPECT_EQ(ReadDirect(net, input), VEK_FILE_IO_FAILED) << message;
        EXPECT_NE(LastMessage(net).find(message), std::string::npos) << LastMessage(net);
    }
}

// Every prefix of a rich file, and files with bytes changed at random, are
// refused with a positioned message or read; nothing crashes or leaks.
TEST(VekFormat, TruncatedAndGarbledInputNeverCrash) {
    VEK_network net;
    testnet::RandomNetwork(net, 29);
    AddExtras(net, 29);
    testnet::AddEquationsAndTime(net, 29);
    const std::string text = Vek(net);
    const size_t step = text.size() / 400 + 1;
    for (size_t n = 0; n + 2 < text.size(); n += step) {
        VEK_network part;
        int res = ReadDirect(part, text.substr(0, n));
        // A prefix that ends inside the network block cannot be complete.
        ASSERT_LT(res, 0) << n;
        EXPECT_EQ(LastMessage(part).rfind("Error at ", 0), 0u) << n << ": " << LastMessage(part);
    }
    std::mt19937 gen(4);
    int read = 0;
    for (int trial = 0; trial < 300; ++trial) {
        std::string garbled = text;
        garbled[std::uniform_int_distribution<size_t>(0, garbled.size() - 1)(gen)] =
            static_cast<char>(std::uniform_int_distribution<int>(0, 255)(gen));
        VEK_network g;
        int res = ReadDirect(g, garbled);
        if (res == 0) {
            ++read;
            VEK_network again;
            EXPECT_EQ(ReadDirect(again, Vek(g)), 0) << LastMessage(again);
        } else {
            EXPECT_EQ(LastMessage(g).rfind("Error at ", 0), 0u) << LastMessage(g);
        }
    }
    // Some changes land in comments, text or numbers and still read.
    EXPECT_GT(read, 0);
}
