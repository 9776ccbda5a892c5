// Microsoft .dsc files: a hand-written file with every table form, faulty
// files and the exact layout.
#include "foreignNetUtil.h"

using namespace foreign;

namespace {

const char* const kDsc = R"(// A network in the belief network text format.
belief network "Car start"
properties
{
	type MS_Addins = array of string;
	type Author = string;
	MS_Addins = ["a", "b"];
	Author = "Some\tbody";
}

node Battery
{
	name = "Battery charged";
	type = discrete[2] =
	{
		"yes",
		"no"
	};
	position = (100, 200);
	MS_label = hypothesis;
}
node Fuel {
  type : discrete [ 2 ] = { "full tank" "empty" } ;
}
/* the child */ node Start
{
	type = discrete[0x3] = {"fast", "slow", "never"};
}
probability(Battery) { 0.9, 0.1; }
probability ( Fuel ) {
   0.95 0.05 ;
}
probability(Start | Battery, Fuel)
{
	(0, 0) : 0.8, 0.15, 0.05;
	("yes", "empty") : 0, 0, 1;   // parent states by name
	(1 0) : 0.1, 0.3, 0.6;
	default = 0, 0.1, 0.9;
}
)";

void CheckDscNetwork(const VEK_network& net) {
    ASSERT_EQ(net.GetNumberOfNodes(), 3);
    EXPECT_STREQ(net.Header().GetId(), "Car_start");
    EXPECT_STREQ(net.Header().GetName(), "Car start");
    EXPECT_STREQ(net.UserProperties().FindProperty("Author"), "Some\tbody");
    EXPECT_NE(net.UserProperties().FindProperty("MS_Addins"), nullptr);
    const VEK_node& battery = *net.GetNode(net.FindNode("Battery"));
    EXPECT_STREQ(battery.Header().GetName(), "Battery charged");
    EXPECT_EQ(battery.Info().screen.position.centerX, 100);
    EXPECT_EQ(battery.Info().screen.position.centerY, 200);
    EXPECT_STREQ(battery.Info().userProperties.FindProperty("MS_label"), "hypothesis");
    const VEK_node& fuel = *net.GetNode(net.FindNode("Fuel"));
    const auto* fd = static_cast<const VEK_discDef*>(fuel.Definition());
    EXPECT_EQ(fd->GetOutcomeIds()->ToVector(), (std::vector<std::string>{"full_tank", "empty"}));
    EXPECT_STREQ(fd->GetOutcomeLabel(0), "full tank");
    EXPECT_EQ(fuel.Definition()->GetMatrix()->GetItems().ToVector(), (std::vector<double>{0.95, 0.05}));
    const VEK_node& start = *net.GetNode(net.FindNode("Start"));
    ASSERT_EQ(start.Parents().GetSize(), 2);
    EXPECT_EQ(start.Parents()[0], net.FindNode("Battery"));
    EXPECT_EQ(start.Parents()[1], net.FindNode("Fuel"));
    EXPECT_EQ(start.Definition()->GetMatrix()->GetItems().ToVector(),
              (std::vector<double>{0.8, 0.15, 0.05, 0, 0, 1, 0.1, 0.3, 0.6, 0, 0.1, 0.9}));
}

}  // namespace

TEST(MicrosoftFormat, HandWrittenFileLoadsInEveryLexicalVariant) { ExpectReadsWithEitherLineEnds(kDsc, ".dsc", CheckDscNetwork); }

TEST(MicrosoftFormat, FaultsAreReportedWhereTheyAreAndChangeNothing) {
    const std::string nodes =
        "node A { type = discrete[2] = {\"a\", \"b\"}; }\n"
        "node B { type = discrete[2] = {\"a\", \"b\"}; }\n"
        "probability(A) { 0.5, 0.5; }\n";  // line 3
    ExpectFaults(FileReader(".dsc"), {
        {nodes + "probability(B | A) {\n (0) : 0.5;\n (1) : 0.5, 0.5;\n}\n", 5, 2, "expected 2"},
        {nodes + "probability(B | A) {\n (0) : 0.5, 0.5;\n}\n", 4, 1, "Missing parent configurations"},
        {nodes + "probability(B | A) {\n (2) : 0.5, 0.5;\n}\n", 5, 3, "out of range"},
        {nodes + "probability(B | A) {\n 0.5, 0.5, 0.5;\n}\n", 5, 2, "expected 4"},
        {nodes + "probability(B | Z) { 0.5, 0.5; }\n", 4, 17, "parent not found"},
        {nodes.substr(0, nodes.rfind("probability")) +
                      "probability(A | B) { 1, 0, 0, 1; }\nprobability(B | A) { 1, 0, 0, 1; }\n",
         3, 1, "cycle"},
        {nodes + "probability(B | A) {\n (0) : 0.5,", 5, 12, "end of file"},
        {"node A { type = discrete[3] = {\"a\", \"b\"}; }\n", 1, 26, "declares 3 states"},
        {nodes, 2, 6, "No table"},
        {nodes + "potential(B) { }\n", 4, 1, "Expected 'node'"},
    });
}

TEST(MicrosoftFormat, WritesTheExpectedLayout) {
    VEK_network net;
    net.Header().SetId("Tiny");
    int a = net.AddNode(VEK_CPT, "A");
    int b = net.AddNode(VEK_CPT, "B");
    ASSERT_EQ(net.AddArc(a, b), 0);
    static_cast<VEK_discDef*>(net.GetDef(a))->RenameOutcomes(std::vector<std::string>{"low_risk", "high"});
    static_cast<VEK_discDef*>(net.GetDef(a))->SetOutcomeLabel(0, "low risk");
    static_cast<VEK_discDef*>(net.GetDef(a))->SetOutcomeLabel(1, "not kept: repairs to another id");
    ASSERT_EQ(net.GetDef(b)->SetDefinition(std::vector<double>{0.25, 0.75, 1, 0}), 0);
    net.GetNode(a)->Header().SetName("Risk \"level\"");
    net.GetNode(a)->Info().userProperties.AddProperty("colour", "red");
    net.GetNode(a)->Info().userProperties.AddProperty("bad key", "not an identifier");
    net.GetNode(a)->Info().screen.position = {5, 6, 72, 48};
    net.GetNode(b)->Info().screen.position = {7, 8, 72, 48};
    TempFile file(".dsc");
    ASSERT_EQ(net.WriteFile(file.c_str()), 0);
    EXPECT_EQ(file.Read(),
              "belief network \"Tiny\"\nproperties\n{\n\ttype colour = string;\n}\n"
              "\nnode A\n{\n\tname = \"Risk \\\"level\\\"\";\n\ttype = discrete[2] = {\"low risk\", \"high\"};\n"
              "\tposition = (5, 6);\n\tcolour = \"red\";\n}\n"
              "\nnode B\n{\n\tname = \"B\";\n\ttype = discrete[2] = {\"State0\", \"State1\"};\n\tposition = (7, 8);\n}\n"
              "\nprobability(A)\n{\n\t0.5, 0.5;\n}\n"
              "\nprobability(B | A)\n{\n\t(0) : 0.25, 0.75;\n\t(1) : 1, 0;\n}\n");
}
