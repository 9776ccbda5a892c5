// KI .dxp files: a hand-written file, faulty files and the exact layout.
#include "foreignNetUtil.h"

using namespace foreign;

namespace {

const char* const kDxp = R"(/* Written by hand */
belief network "Alarm system"
node Burglary
{
	name = "Burglary?";
	type : discrete [ 2 ] = { "yes", "no" };
	position = (10, 20);   // read, though KI files do not need it
}
node Alarm
{
	name = "Alarm \u00e9l\u00e9ctrique";
	type : discrete [ 3 ] = { "loud", "soft", "silent" };
}
probability ( Burglary )
{
	1E-3, 0.999;
}
probability ( Alarm | Burglary )
{
	( 0 ) : 0.9, 0.09, 0.01;
	( 1 ) : 0.01, 0.04, 0.95;
}
)";

}  // namespace

TEST(KiFormat, HandWrittenFileLoadsInEveryLexicalVariant) {
    ExpectReadsWithEitherLineEnds(kDxp, ".dxp", [](const VEK_network& net) {
        ASSERT_EQ(net.GetNumberOfNodes(), 2);
        EXPECT_STREQ(net.Header().GetName(), "Alarm system");
        int b = net.FindNode("Burglary");
        int a = net.FindNode("Alarm");
        ASSERT_GE(a, 0);
        ASSERT_GE(b, 0);
        EXPECT_STREQ(net.GetNode(b)->Header().GetName(), "Burglary?");
        EXPECT_STREQ(net.GetNode(a)->Header().GetName(), "Alarm \xC3\xA9l\xC3\xA9\x63trique");
        EXPECT_EQ(net.GetNode(b)->Info().screen.position.centerX, 10);
        EXPECT_EQ(net.GetDef(b)->GetMatrix()->GetItems().ToVector(), (std::vector<double>{0.001, 0.999}));
        EXPECT_EQ(net.GetDef(a)->GetMatrix()->GetItems().ToVector(),
                  (std::vector<double>{0.9, 0.09, 0.01, 0.01, 0.04, 0.95}));
        EXPECT_EQ(static_cast<const VEK_discDef*>(net.GetDef(a))->GetOutcomeIds()->ToVector(),
                  (std::vector<std::string>{"loud", "soft", "silent"}));
    });
}

TEST(KiFormat, FaultsAreReportedWhereTheyAreAndChangeNothing) {
    const std::string node = "node A { type : discrete [ 2 ] = { \"a\", \"b\" }; }\n";
    ExpectFaults(FileReader(".dxp"), {
        {node + "probability ( A ) { 0.5, 0.25, 0.25; }\n", 2, 21, ""},
        {node + "probability ( A | A ) { ( 0 ) : 1, 0; ( 1 ) : 0, 1; }\n", 2, 19, ""},
        {node + "probability ( A ) {", 2, 20, ""},
        {node + "probability ( A ) { 0.5, 0.5; ]\n", 2, 31, ""},
    });
}

TEST(KiFormat, WritesTheExpectedLayoutWithoutPositionsOrProperties) {
    VEK_network net;
    net.Header().SetId("Tiny");
    int a = net.AddNode(VEK_CPT, "A");
    int b = net.AddNode(VEK_CPT, "B");
    int c = net.AddNode(VEK_CPT, "C");
    ASSERT_EQ(net.AddArc(a, c), 0);
    ASSERT_EQ(net.AddArc(b, c), 0);
    net.GetNode(a)->Info().userProperties.AddProperty("colour", "red");
    net.GetNode(a)->Info().screen.position = {5, 6, 72, 48};
    ASSERT_EQ(net.GetDef(c)->SetDefinition(std::vector<double>{1, 0, 0.5, 0.5, 0.25, 0.75, 0, 1}), 0);
    TempFile file(".dxp");
    ASSERT_EQ(net.WriteFile(file.c_str()), 0);
    const std::string states = "\ttype : discrete [ 2 ] = { \"State0\", \"State1\" };\n";
    EXPECT_EQ(file.Read(), "belief network \"Tiny\"\n"
                           "\nnode A\n{\n\tname = \"A\";\n" + states + "}\n"
                           "\nnode B\n{\n\tname = \"B\";\n" + states + "}\n"
                           "\nnode C\n{\n\tname = \"C\";\n" + states + "}\n"
                           "\nprobability ( A )\n{\n\t0.5, 0.5;\n}\n"
                           "\nprobability ( B )\n{\n\t0.5, 0.5;\n}\n"
                           "\nprobability ( C | A, B )\n{\n\t( 0, 0 ) : 1, 0;\n\t( 0, 1 ) : 0.5, 0.5;\n"
                           "\t( 1, 0 ) : 0.25, 0.75;\n\t( 1, 1 ) : 0, 1;\n}\n");
}
