// Netica files: a hand-written file, faulty files, names Netica cannot hold
// and the exact layout written.
#include "foreignNetUtil.h"

using namespace foreign;

namespace {

const char* const kNetica = R"(// ~->[DNET-1]->~

// A decision problem, as another tool writes it.
bnet Umbrella {
AutoCompile = TRUE;
title = "Umbrella \"problem\"";
comment = "Two lines\nof comment";
whenchanged = 1234567;

visual V1 {
	defdispform = BELIEFBARS;
	nodelabeling = TITLE;
	NodeMaxNumEntries = 50;
	nodefont = font {shape= "Arial"; size= 9;};
	};

node Weather {
	kind = NATURE;
	discrete = TRUE;
	chance = CHANCE;
	states = (sun, rain);
	parents = ();
	probs =
		// sun          rain
		  (0.7,         0.3);
	title = "Weather today";
	statetitles = ("Sunny", "");
	whenchanged = 1;
	visual V1 {
		center = (120, 50);
		height = 2;
		link 1 {
			path = ((1, 2), (3, 4));
			};
		};
	};

node Forecast {
	kind = NATURE; discrete = TRUE; chance = CHANCE;
	states = (good, bad, unknown);
	parents = (Weather);
	probs =
		// good  bad   unknown     // Weather
		 ((0.6,  0.2,  0.2),       // sun
		  (.1,   7e-1, 0.2));      // rain
	comment = "noisy";
	statecomments = ("", "bad news", "");
	user U1 { note = "skip me"; };
	};

node Umbrella {
	kind = DECISION;
	discrete = TRUE;
	chance = DETERMIN;
	states = (take, leave);
	parents = (Forecast);
	functable = (take, take, leave);
	};

node Wet {
	kind = NATURE;
	discrete = TRUE;
	chance = DETERMIN;
	states = (yes, no);
	parents = (Weather, Umbrella);
	functable = ((no, yes), (no, no));
	};

node Satisfaction {
	kind = UTILITY;
	discrete = FALSE;
	measure = RL;
	chance = DETERMIN;
	parents = (Wet, Umbrella);
	functable = ((-100, -90), (20, 100));
	};
ElimOrder = (Weather, Forecast, Umbrella, Wet);
};
)";

void CheckNeticaNetwork(const VEK_network& net) {
    ASSERT_EQ(net.GetNumberOfNodes(), 5);
    EXPECT_STREQ(net.Header().GetId(), "Umbrella");
    EXPECT_STREQ(net.Header().GetName(), "Umbrella \"problem\"");
    EXPECT_STREQ(net.Header().GetComment(), "Two lines\nof comment");
    int weather = net.FindNode("Weather");
    ASSERT_GE(weather, 0);
    const VEK_node& w = *net.GetNode(weather);
    EXPECT_STREQ(w.Header().GetName(), "Weather today");
    EXPECT_EQ(w.Info().screen.position.centerX, 120);
    EXPECT_EQ(w.Info().screen.position.centerY, 50);
    const auto* wd = static_cast<const VEK_discDef*>(w.Definition());
    EXPECT_STREQ(wd->GetOutcomeLabel(0), "Sunny");
    EXPECT_STREQ(wd->GetOutcomeLabel(1), "");
    EXPECT_EQ(foreign::Table(net, "Weather"), (std::vector<double>{0.7, 0.3}));
    EXPECT_EQ(foreign::Table(net, "Forecast"), (std::vector<double>{0.6, 0.2, 0.2, 0.1, 0.7, 0.2}));
    const VEK_node& f = *net.GetNode(net.FindNode("Forecast"));
    EXPECT_STREQ(f.Header().GetComment(), "noisy");
    EXPECT_STREQ(static_cast<const VEK_discDef*>(f.Definition())->GetOutcomeComment(1), "bad news");
    EXPECT_TRUE(f.Info().userProperties.Items().empty());
    const VEK_node& u = *net.GetNode(net.FindNode("Umbrella"));
    EXPECT_EQ(u.Definition()->GetType(), VEK_LIST);
    ASSERT_EQ(u.Parents().GetSize(), 1);
    EXPECT_EQ(u.Parents()[0], net.FindNode("Forecast"));
    const VEK_node& wet = *net.GetNode(net.FindNode("Wet"));
    EXPECT_EQ(wet.Definition()->GetType(), VEK_TRUTHTABLE);
    EXPECT_EQ(foreign::Table(net, "Wet"), (std::vector<double>{0, 1, 1, 0, 0, 1, 0, 1}));
    const VEK_node& s = *net.GetNode(net.FindNode("Satisfaction"));
    EXPECT_EQ(s.Definition()->GetType(), VEK_TABLE);
    ASSERT_EQ(s.Parents().GetSize(), 2);
    EXPECT_EQ(s.Parents()[0], net.FindNode("Wet"));
    EXPECT_EQ(foreign::Table(net, "Satisfaction"), (std::vector<double>{-100, -90, 20, 100}));
}

}  // namespace

TEST(NeticaFormat, HandWrittenFileLoadsInEveryLexicalVariant) { ExpectReadsWithEitherLineEnds(kNetica, ".dne", CheckNeticaNetwork); }

TEST(NeticaFormat, FaultsAreReportedWhereTheyAreAndChangeNothing) {
    const std::string head = "bnet N {\nnode A { states = (a, b); parents = (); probs = (0.5, 0.5); };\n";
    ExpectFaults(FileReader(".dne"), {
        {head + "node B { states = (a, b); parents = (A);\n probs = ((1, 0), (0.5));\n};\n};", 4, 10,
         "expected 4"},
        {head + "node B { states = (a, b); parents = (A, Z); probs = (1, 0); };\n};", 3, 41,
         "parent not found"},
        {"bnet N {\nnode A { states = (a, b); parents = (B); probs = ((1, 0), (0, 1)); };\n"
                  "node B { states = (a, b); parents = (A); probs = ((1, 0), (0, 1)); };\n};",
         2, 6, "cycle"},
        {head + "node B { states = (a, b); parents = (A);\n probs = ((1, 0),", 4, 18, "end of file"},
        {head + "node B { states = (a, b); probs = (*, *); };\n};", 3, 36, "Undefined"},
        {head + "node B { chance = DETERMIN; states = (a, b); parents = (A);\n functable = (a, c); };\n};",
         4, 18, "Unknown state"},
        {head + "node B { kind = CONTINUOUSLY; states = (a, b); };\n};", 3, 17, "Unsupported node kind"},
        {head + "node B { title = \"open; };\n};", 3, 18, "Unterminated string"},
        {"node A { };", 1, 1, "Expected 'bnet'"},
    });
}

TEST(NeticaFormat, NamesNeticaCannotHoldAreShortenedAndKeptAsTitles) {
    VEK_network net, back;
    const std::string longId = "a_very_long_identifier_that_Netica_cannot_hold";
    int a = net.AddNode(VEK_CPT, longId.c_str());
    int b = net.AddNode(VEK_CPT, (longId + "_too").c_str());
    int c = net.AddNode(VEK_CPT, "caf\xC3\xA9");
    ASSERT_EQ(net.AddArc(a, b), 0);
    ASSERT_EQ(net.AddArc(b, c), 0);
    static_cast<VEK_discDef*>(net.GetDef(c))->RenameOutcomes(std::vector<std::string>{"\xC3\xA9t\xC3\xA9", "winter"});
    std::string text;
    RoundTrip(net, VEK_FORMAT_NETICA, ".dne", back, &text);
    ASSERT_EQ(back.GetNumberOfNodes(), 3);
    // Every name in the file is a Netica name; the ids come back as titles.
    std::set<std::string> names;
    const VEK_node* cafe = nullptr;
    for (int h = back.GetFirstNode(); h >= 0; h = back.GetNextNode(h)) {
        std::string id = back.GetNodeId(h);
        EXPECT_LE(id.size(), 30u) << id;
        for (unsigned char ch : id) EXPECT_LT(ch, 0x80) << id;
        names.insert(back.GetNode(h)->Header().GetName());
        if (std::string(back.GetNode(h)->Header().GetName()) == "caf\xC3\xA9") cafe = back.GetNode(h);
    }
    EXPECT_EQ(names, (std::set<std::string>{longId, longId + "_too", "caf\xC3\xA9"}));
    ASSERT_NE(cafe, nullptr);
    EXPECT_STREQ(static_cast<const VEK_discDef*>(cafe->Definition())->GetOutcomeLabel(0), "\xC3\xA9t\xC3\xA9");
    EXPECT_EQ(cafe->Parents().GetSize(), 1);
    EXPECT_EQ(cafe->Definition()->GetMatrix()->GetItems().ToVector(), net.GetDef(c)->GetMatrix()->GetItems().ToVector());
}

TEST(NeticaFormat, WritesTheExpectedLayout) {
    VEK_network net;
    net.Header().SetId("Tiny");
    int a = net.AddNode(VEK_CPT, "A");
    int d = net.AddNode(VEK_TRUTHTABLE, "D");
    ASSERT_EQ(net.AddArc(a, d), 0);
    ASSERT_EQ(net.GetDef(a)->SetDefinition(std::vector<double>{0.1, 0.9}), 0);
    ASSERT_EQ(net.GetDef(d)->SetDefinition(std::vector<double>{0, 1, 1, 0}), 0);
    net.GetNode(a)->Header().SetName("Alpha");
    net.GetNode(a)->Info().screen.position = {10, 20, 72, 48};
    net.GetNode(d)->Info().screen.position = {30, 40, 72, 48};
    TempFile file(".dne");
    ASSERT_EQ(net.WriteFile(file.c_str()), 0);
    EXPECT_EQ(file.Read(),
              "// ~->[DNET-1]->~\n\nbnet Tiny {\n\nvisual V1 {\n\tdefdispform = BELIEFBARS;\n\tnodelabeling = TITLE;\n\t};\n"
              "\nnode A {\n\tkind = NATURE;\n\tdiscrete = TRUE;\n\tchance = CHANCE;\n\tstates = (State0, State1);\n"
              "\tparents = ();\n\tprobs = \n\t\t(0.1, 0.9);\n\ttitle = \"Alpha\";\n"
              "\tvisual V1 {\n\t\tcenter = (10, 20);\n\t\theight = 1;\n\t\t};\n\t};\n"
              "\nnode D {\n\tkind = NATURE;\n\tdiscrete = TRUE;\n\tchance = DETERMIN;\n\tstates = (State0, State1);\n"
              "\tparents = (A);\n\tfunctable = \n\t\t(State1, State0);\n"
              "\tvisual V1 {\n\t\tcenter = (30, 40);\n\t\theight = 1;\n\t\t};\n\t};\n};\n");
}
