#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "networkDescription.h"
#include "xml/xmlNetLoader.h"
#include "xml/xmlReader.h"
#include "xml/xmlNetworkSaver.h"
#include "xml/xmlTovra.h"
#include "xml/xvekSpeaker.h"

using testnet::Describe;

namespace {

std::string Write(VEK_network& net) {
    std::string out;
    EXPECT_EQ(net.WriteString(out), 0) << net.Logger().GetLastErrorMessage();
    return out;
}

std::string LogText(const VEK_network& net) {
    std::string text;
    for (int i = 0; i < net.Logger().GetErrorCount(); ++i) text += std::string(net.Logger().GetErrorMessage(i)) + "\n";
    return text;
}

// A document of one node list around the given nodes.
std::string Doc(const std::string& nodes, const std::string& rest = "") {
    return "<?xml version=\"1.0\"?>\n<quarn version=\"1.0\" id=\"t\">\n<nodes>\n" + nodes + "</nodes>\n" + rest +
           "</quarn>\n";
}

const std::string kAB =
    "<cpt id=\"A\"><state id=\"a0\"/><state id=\"a1\"/><probabilities>0.25 0.75</probabilities></cpt>\n"
    "<cpt id=\"B\"><state id=\"b0\"/><state id=\"b1\"/><state id=\"b2\"/><parents>A</parents>"
    "<probabilities>0.1 0.2 0.7 0.3 0.3 0.4</probabilities></cpt>\n";

// A network to read into: whatever a failed read does must leave it so.
void Populate(VEK_network& net) {
    net.Header().SetId("before");
    int x = net.AddNode(VEK_CPT, "X");
    int y = net.AddNode(VEK_CPT, "Y");
    net.AddArc(x, y);
    net.Cases().Add("kept");
    net.UserProperties().AddProperty("k", "v");
}

}  // namespace

// ---------------------------------------------------------------- round trips

TEST(XvekRoundTrip, RandomNetworksKeepEverythingAndWriteTheSameBytes) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        VEK_network net;
        testnet::RandomNetwork(net, seed);
        if (seed % 3 == 0) testnet::AddEquationsAndTime(net, seed);
        std::string first = Write(net);
        VEK_network back;
        ASSERT_EQ(back.ReadString(first.c_str()), 0) << "seed " << seed << "\n" << LogText(back) << first;
        EXPECT_EQ(back.Logger().GetErrorCount(), 0) << LogText(back);
        ASSERT_EQ(Describe(back), Describe(net)) << "seed " << seed << "\n" << first;
        EXPECT_EQ(Write(back), first) << "seed " << seed;
    }
}

TEST(XvekRoundTrip, FilesAndStringsHoldTheSameDocument) {
    VEK_network net;
    testnet::RandomNetwork(net, 77);
    std::string path = testing::TempDir() + "round_trip.xvek";
    ASSERT_EQ(net.WriteFile(path.c_str()), 0) << LogText(net);
    EXPECT_EQ(testnet::ReadText(path), Write(net));
    VEK_network back;
    ASSERT_EQ(back.ReadFile(path.c_str()), 0) << LogText(back);
    EXPECT_EQ(Describe(back), Describe(net));
    std::remove(path.c_str());
}

// ---------------------------------------------------------------- the shared networks

namespace {

struct FileNode {
    std::string id;
    int states = 0;
    std::vector<std::string> parents;
    std::vector<double> table;
};

// The nodes of a shared file, read with plain text scanning (independent of
// the loader).
std::vector<FileNode> ScanFile(const std::string& text) {
    std::vector<FileNode> nodes;
    auto between = [&](size_t from, size_t to, const std::string& open, const std::string& close) {
        size_t p = text.find(open, from);
        if (p == std::string::npos || p > to) return std::string();
        p += open.size();
        return text.substr(p, text.find(close, p) - p);
    };
    for (size_t p = text.find("<cpt id=\""); p != std::string::npos; p = text.find("<cpt id=\"", p + 1)) {
        size_t end = text.find("</cpt>", p);
        FileNode n;
        n.id = between(p, end, "id=\"", "\"");
        for (size_t q = text.find("<state ", p); q < end; q = text.find("<state ", q + 1)) ++n.states;
        std::istringstream ids(between(p, end, "<parents>", "</parents>"));
        for (std::string id; ids >> id;) n.parents.push_back(id);
        std::string items = between(p, end, "<probabilities>", "</probabilities>");
        const char* q = items.c_str();
        char* stop = nullptr;
        for (double v = std::strtod(q, &stop); stop != q; v = std::strtod(q, &stop)) {
            n.table.push_back(v);
            q = stop;
        }
        nodes.push_back(std::move(n));
    }
    return nodes;
}

void CheckCounts(const VEK_network& net, const testnet::SharedCounts& c) {
    int arcs = 0;
    long long entries = 0;
    int maxIn = 0;
    int maxStates = 0;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_node* node = net.GetNode(h);
        arcs += node->Parents().GetSize();
        maxIn = std::max(maxIn, node->Parents().GetSize());
        maxStates = std::max(maxStates, node->Definition()->GetNumberOfOutcomes());
        entries += node->Definition()->GetParameters().GetSize();
    }
    EXPECT_EQ(net.GetNumberOfNodes(), c.nodes) << c.name;
    EXPECT_EQ(arcs, c.arcs) << c.name;
    EXPECT_EQ(entries, c.entries) << c.name;
    EXPECT_EQ(maxIn, c.maxInDegree) << c.name;
    EXPECT_EQ(maxStates, c.maxStates) << c.name;
}

}  // namespace

// The large networks are only loaded and counted.
TEST(XvekShared, EveryNetworkMatchesItsFileAndRoundTrips) {
    for (const auto& c : testnet::SharedNetworks()) {
        SCOPED_TRACE(c.name);
        std::string path = testnet::SharedPath(c.name);
        VEK_network net;
        ASSERT_EQ(net.ReadFile(path.c_str()), 0) << LogText(net);
        EXPECT_EQ(net.Logger().GetErrorCount(), 0) << LogText(net);
        EXPECT_STREQ(net.Header().GetId(), c.name);
        CheckCounts(net, c);
        if (c.large) continue;

        // Every table holds the file's numbers exactly, in the file's order.
        std::vector<FileNode> nodes = ScanFile(testnet::ReadText(path));
        ASSERT_EQ(static_cast<int>(nodes.size()), c.nodes);
        for (const FileNode& n : nodes) {
            int h = net.FindNode(n.id.c_str());
            ASSERT_GE(h, 0) << n.id;
            const VEK_nodeDef* def = net.GetDef(h);
            EXPECT_EQ(def->GetNumberOfOutcomes(), n.states) << n.id;
            std::vector<std::string> parents;
            for (int p : net.GetNode(h)->Parents()) parents.push_back(net.GetNodeId(p));
            EXPECT_EQ(parents, n.parents) << n.id;
            const VEK_Dmatrix& m = def->GetParameters();
            ASSERT_EQ(m.GetSize(), static_cast<int>(n.table.size())) << n.id;
            for (int i = 0; i < m.GetSize(); ++i) ASSERT_EQ(m[i], n.table[i]) << n.id << " item " << i;
        }

        std::string first = Write(net);
        VEK_network back;
        ASSERT_EQ(back.ReadString(first.c_str()), 0) << LogText(back);
        EXPECT_EQ(Describe(back), Describe(net));
        EXPECT_EQ(Write(back), first);
    }
}

// ---------------------------------------------------------------- the document's rules

TEST(XvekDocument, RootAloneGivesAnEmptyNetworkWithDefaultsTheWriterLeavesOut) {
    for (const char* v : {"1.0", "0.9", "1"}) {
        VEK_network net;
        std::string doc = std::string("<quarn version=\"") + v + "\" id=\"e\"" + (*v == '0' ? "/>" : "><nodes/></quarn>");
        ASSERT_EQ(net.ReadString(doc.c_str()), 0) << v << LogText(net);
        EXPECT_EQ(net.Logger().GetErrorCount(), 0);
        EXPECT_EQ(net.GetNumberOfNodes(), 0);
        EXPECT_STREQ(net.Header().GetId(), "e");
    }
    VEK_network net;
    ASSERT_EQ(net.ReadString("<quarn version=\"1.0\" id=\"e\"/>"), 0);
    EXPECT_EQ(net.GetNumberOfSamples(), 1000);
    EXPECT_EQ(net.GetNumberOfDiscretizationSamples(), 10000);
    EXPECT_TRUE(net.IsZeroAvoidanceEnabled());
    EXPECT_FALSE(net.IsOutlierRejectionEnabled());
    std::string xml = Write(net);
    EXPECT_NE(xml.find("<quarn version=\"1.0\" id=\"e\" numsamples=\"1000\" discsamples=\"10000\">"),
              std::string::npos)
        << xml;
    for (const char* absent : {"randseed", "discavoidzero", "rejectoutliers", "noisydecomp", "algparams",
                               "properties", "functions", "extensions", "observationcost", "cases", "dynamic"}) {
        EXPECT_EQ(xml.find(absent), std::string::npos) << absent;
    }
    net.EnableZeroAvoidance(false);
    net.SetNoisyDecompLimit(7);
    xml = Write(net);
    EXPECT_NE(xml.find("discavoidzero=\"false\" enablenoisydecomp=\"false\" noisydecomplimit=\"7\""),
              std::string::npos)
        << xml;
}

TEST(XvekDocument, UnknownContentIsSkippedWithOneAdviceLine) {
    VEK_network net;
    std::string doc = "<quarn version=\"1.0\" id=\"u\" future=\"1\"><gadgets><a><b/></a></gadgets><nodes>"
                      "<cpt id=\"A\" shiny=\"yes\"><state id=\"a\"/><state id=\"b\"/><novelty>1 2</novelty>"
                      "<probabilities>0.5 0.5</probabilities></cpt></nodes></quarn>";
    ASSERT_EQ(net.ReadString(doc.c_str()), 0) << LogText(net);
    EXPECT_EQ(net.GetNumberOfNodes(), 1);
    std::string log = LogText(net);
    EXPECT_NE(log.find("Warning: Ignored unknown attribute 'future' in 'quarn'"), std::string::npos) << log;
    EXPECT_NE(log.find("Warning: Ignored unknown element 'gadgets'"), std::string::npos);
    EXPECT_NE(log.find("Warning: Ignored unknown element 'novelty'"), std::string::npos);
    EXPECT_EQ(log.find("'a'"), std::string::npos) << "descendants of skipped elements are skipped silently";
    int advice = 0;
    for (size_t p = log.find("XML contains unknown elements"); p != std::string::npos;
         p = log.find("XML contains unknown elements", p + 1)) {
        ++advice;
    }
    EXPECT_EQ(advice, 1);
}

TEST(XvekDocument, NodesWithoutParentsWriteNoParentsElement) {
    VEK_network net;
    net.AddNode(VEK_CPT, "A");
    net.AddNode(VEK_CAST, "C");
    std::string xml = Write(net);
    EXPECT_EQ(xml.find("<parents"), std::string::npos);
    EXPECT_EQ(xml.find("weights"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<baseline>0.5</baseline>"), std::string::npos) << xml;
}

TEST(XvekDocument, ColoursSwapRedAndBlue) {
    EXPECT_EQ(XmlColorText(0x0000FF), "ff0000");
    EXPECT_EQ(XmlColorText(0x123456), "563412");
    EXPECT_EQ(XmlColorText(0), "000000");
    unsigned c = 0;
    ASSERT_TRUE(XmlParseColor("563412", c));
    EXPECT_EQ(c, 0x123456u);
    for (const char* bad : {"", "12g456", "123456789", "#ffffff"}) EXPECT_FALSE(XmlParseColor(bad, c)) << bad;

    VEK_network net;
    int a = net.AddNode(VEK_CPT, "A");
    net.GetNode(a)->Info().screen.color = 0x0000FF;
    EXPECT_NE(Write(net).find("<interior color=\"ff0000\" />"), std::string::npos);
}

TEST(XvekDocument, PositionsAreWrittenFromTheCentre) {
    VEK_rectangle r{100, 50, 81, 31};
    EXPECT_EQ(XmlPositionText(r), "60 35 141 66");
    VEK_rectangle back;
    ASSERT_TRUE(XmlParsePosition("60 35 141 66", back));
    EXPECT_EQ(back, r);
    for (VEK_rectangle x : {VEK_rectangle{-7, -3, 5, 3}, VEK_rectangle{0, 0, 0, 0}, VEK_rectangle{10, 10, -5, -7},
                            VEK_rectangle{2147483600, -2147483600, 40, 40}}) {
        ASSERT_TRUE(XmlParsePosition(XmlPositionText(x).c_str(), back)) << XmlPositionText(x);
        EXPECT_EQ(back, x);
    }
    for (const char* bad : {"1 2 3", "1 2 3 4 5", "a b c d", "0 0 4294967296 1", "-2147483648 0 2147483647 1"}) {
        EXPECT_FALSE(XmlParsePosition(bad, back)) << bad;
    }
}

TEST(XvekDocument, EvidenceStatesAreIdsAndIndicesAreAccepted) {
    VEK_network net;
    std::string doc = Doc(kAB, "<cases><case name=\"c\"><evidence node=\"B\" state=\"2\"/>"
                               "<evidence node=\"A\" state=\"a1\"/><softevidence node=\"B\">0.2 0.3 0.5"
                               "</softevidence></case></cases>");
    ASSERT_EQ(net.ReadString(doc.c_str()), 0) << LogText(net);
    const VEK_case& c = *net.Cases().Get(0);
    ASSERT_EQ(c.evidence.size(), 2u);  // the soft evidence replaced B's item
    EXPECT_EQ(c.evidence[0].type, VEK_CASE_VIRTUAL);
    EXPECT_EQ(c.evidence[1].outcome, 1);
    std::string xml = Write(net);
    EXPECT_NE(xml.find("<evidence node=\"A\" state=\"a1\" />"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<virtevidence node=\"B\">0.2 0.3 0.5</virtevidence>"), std::string::npos) << xml;
}

TEST(XvekDocument, SliceCountAndTemporalTypesAreKept) {
    VEK_network net;
    ASSERT_EQ(net.ReadString(Doc("<cpt id=\"P\" dynamic=\"plate\"><state id=\"a\"/><state id=\"b\"/>"
                                 "<probabilities>0.5 0.5</probabilities></cpt>",
                                 "<dynamic numslices=\"4\"/>")
                                 .c_str()),
              0)
        << LogText(net);
    EXPECT_EQ(net.GetNumberOfSlices(), 4);
    EXPECT_EQ(net.GetNode(0)->GetTemporalType(), 3);
    EXPECT_NE(Write(net).find("<dynamic numslices=\"4\" />"), std::string::npos);
}

// Every semantic fault stops the load with its message and the position,
// and the network read into stays as it was.
TEST(XvekDocument, SemanticFaultsUseTheLoadersMessages) {
    const std::string cast2 =
        "<cast id=\"C1\"><baseline>0.5</baseline></cast><cast id=\"C2\"><parents>C1</parents>";
    const std::string dm2 =
        "<demorgan id=\"D1\"><priorbelief>0.5</priorbelief></demorgan><demorgan id=\"D2\"><parents>D1</parents>";
    const std::string nm = "<noisymax id=\"N\"><state id=\"x\"/><state id=\"y\"/><parents>A</parents>";
    const std::string na = "<noisyadder id=\"N\"><state id=\"x\"/><state id=\"y\"/><parents>A</parents>";
    const std::string params = "<parameters>0.5 0.5 0 1 0.5 0.5</parameters>";
    struct Case {
        std::string doc;
        std::string message;
    } cases[] = {
        {"<quarn version=\"1.1\" id=\"v\"/>",
         std::string("Invalid version number '1.1', expected 1.0\n") + GetDownloadNewVersionMessage()},
        {"<network version=\"1.0\"><nodes/></network>", "Unknown root element 'network', expected 'quarn'"},
        // Equations that do not parse and temporal definitions are refused by name.
        {Doc(kAB + "<equation id=\"E\"><definition lower=\"0\" upper=\"1\">E=1+</definition></equation>"),
         "Expression parse error: 'E'"},
        {Doc(kAB, "<dynamic numslices=\"3\"><cpt id=\"A\" order=\"1\"><parents>A</parents>"
                  "<probabilities>1 0 0 1</probabilities></cpt></dynamic>"),
         "Node is not part of temporal plate: 'A'"},
        {Doc("<cpt id=\"1bad\"><state id=\"a\"/><state id=\"b\"/><probabilities>1 0</probabilities></cpt>"),
         "Invalid node identifier: '1bad'"},
        {Doc(kAB + "<cpt id=\"A\"><state id=\"a\"/><state id=\"b\"/><probabilities>1 0</probabilities></cpt>"),
         "Duplicated node identifier: 'A'"},
        {Doc("<cpt id=\"Main\"><state id=\"a\"/><state id=\"b\"/><probabilities>1 0</probabilities></cpt>"),
         "Duplicated node identifier: 'Main'"},
        {Doc("<cpt id=\"A\"><state id=\"a\"/><state id=\"b\"/><parents>Z</parents><probabilities>1 0 1 0"
             "</probabilities></cpt>"),
         "Node parent not found: 'Z'"},
        {Doc(kAB + "<cpt id=\"C\"><state id=\"a\"/><state id=\"b\"/><parents>A A</parents>"
                   "<probabilities>1 0 1 0</probabilities></cpt>"),
         "Duplicate parent: 'A'"},
        {Doc("<utility id=\"U\"><utilities>1</utilities></utility><cpt id=\"C\"><state id=\"a\"/><state id=\"b\"/>"
             "<parents>U</parents><probabilities>1 0</probabilities></cpt>"),
         "AddArc failed: 'U -> C'"},
        {Doc("<cpt id=\"A\"><state id=\"a\"/><state id=\"a\"/><probabilities>1 0</probabilities></cpt>"),
         "Duplicate state identifier: 'a'"},
        {Doc("<cpt id=\"A\"><state id=\"a\" default=\"true\"/><state id=\"b\" default=\"true\"/>"
             "<probabilities>1 0</probabilities></cpt>"),
         "Duplicate default state attribute at state: 'b'"},
        {Doc("<cpt id=\"A\"><state id=\"\"/><state id=\"\"/><probabilities>1 0</probabilities></cpt>"),
         "Empty state ids can only be used with intervals: 'A'"},
        {Doc("<cpt id=\"A\"><state id=\"\"/><state id=\"b\"/><intervals>0 1 2</intervals>"
             "<probabilities>1 0</probabilities></cpt>"),
         "Both empty and non-empty state ids found."},
        {Doc("<cpt id=\"A\"><state id=\"a\"/><state id=\"b\"/><intervals>0 1 2</intervals>"
             "<pointvalues>1 2</pointvalues><probabilities>1 0</probabilities></cpt>"),
         "Intervals and point values cannot be defined for the same node: 'A'"},
        {Doc(kAB, "<cases><case name=\"c\"><evidence node=\"A\" state=\"zz\"/></case></cases>"),
         "Invalid outcome identifier: 'zz'"},
        {Doc(kAB, "<cases><case name=\"c\"><evidence node=\"A\" state=\"7\"/></case></cases>"),
         "Invalid outcome identifier: '7'"},
        {Doc("<deterministic id=\"D\"><state id=\"a\"/><state id=\"b\"/><resultingstates>zz</resultingstates>"
             "</deterministic>"),
         "Invalid outcome identifier: 'zz'"},
        {Doc("<deterministic id=\"D\"><state id=\"a\"/><state id=\"b\"/><resultingstates>1.5</resultingstates>"
             "</deterministic>"),
         "Invalid outcome index, expected an integer: '1.5'"},
        {Doc(kAB + "<noisyadder id=\"N\" function=\"sum\"><state id=\"x\"/><state id=\"y\"/>"
                   "<parameters>0.5 0.5</parameters></noisyadder>"),
         "Invalid noisy adder function: 'sum'"},
        {Doc(kAB + "<noisyadder id=\"N\" dstate=\"5\"><state id=\"x\"/><state id=\"y\"/>"
                   "<parameters>0.5 0.5</parameters></noisyadder>"),
         "SetDistinguishedState call fails: 'N'"},
        {Doc(kAB + na + "<dstates>0 9</dstates>" + params + "</noisyadder>"),
         "SetParentDistinguishedState call fails: 'N'"},
        {Doc(kAB + na + "<dstates>0</dstates><weights>-1</weights>" + params + "</noisyadder>"),
         "SetParentWeights failed: 'N'"},
        {Doc(kAB + nm + "<strengths>0 0</strengths>" + params + "</noisymax>"),
         "SetParentOutcomeStrengths failed: 'N'"},
        {Doc(kAB + nm + "<parameters>0.5 0.5 0 1</parameters></noisymax>"), "SetParameters failed: 'N'"},
        {Doc("", "<algparams><epis proplen=\"0\" numstates1=\"5\" numstates2=\"8\" numstates3=\"20\" eps1=\"0.006\""
                 " eps2=\"0.0001\" eps3=\"5e-05\" eps4=\"5e-05\"/></algparams>"),
         "Invalid EPIS parameters"},
        {Doc(dm2 + "<types>cause</types><weights>0.5</weights><priorbelief>lots</priorbelief></demorgan>"),
         "Can't read prior belief: 'D2'"},
        {Doc(dm2 + "<priorbelief>1.5</priorbelief></demorgan>"), "SetPriorBelief failed: 'D2'"},
        {Doc(dm2 + "<types>helper</types></demorgan>"), "SetParentTypes failed: 'helper'"},
        {Doc(dm2 + "<weights>2</weights></demorgan>"), "SetParentWeights failed: 'D2'"},
        {Doc(cast2 + "<baseline>half</baseline></cast>"), "Can't read baseline: 'C2'"},
        {Doc(cast2 + "<baseline>-1</baseline></cast>"), "SetBaseline failed: 'C2'"},
        {Doc(cast2 + "<pweights>3</pweights><baseline>0.5</baseline></cast>"), "SetPositiveWeights failed: 'C2'"},
        {Doc(cast2 + "<nweights>0.1 0.2</nweights><baseline>0.5</baseline></cast>"),
         "SetNegativeWeights failed: 'C2'"},
        {Doc("<cpt id=\"A\" diagtype=\"helper\"><state id=\"a\"/><state id=\"b\"/><probabilities>1 0"
             "</probabilities></cpt>"),
         "Unknown diagnosis node type: 'helper'"},
        {Doc("<cpt id=\"A\" dynamic=\"sometimes\"><state id=\"a\"/><state id=\"b\"/><probabilities>1 0"
             "</probabilities></cpt>"),
         "Unknown dynamic node type: 'sometimes'"},
        {Doc(kAB, "<cases><case name=\"c\"/><case name=\"c\"/></cases>"), "Duplicate case name: 'c'"},
        {Doc(kAB, "<cases><case name=\"c\"><evidence node=\"A\" slice=\"0\" state=\"a0\"/></case></cases>"),
         "Cannot add case evidence for node: 'A'"},
        {Doc(kAB, "<cases><case name=\"c\"><virtevidence node=\"B\">0.5 0.5</virtevidence></case></cases>"),
         "Can't add case virtual evidence for node: 'B'"},
        {Doc(kAB, "<cases><case name=\"c\"><virtevidence node=\"B\" slice=\"1\">0.5 0.5 0</virtevidence>"
                  "</case></cases>"),
         "Can't add case temporal virtual evidence for node: 'B'"},
        {Doc(kAB, "<cases><case name=\"c\"><target node=\"A\"/><target node=\"A\"/></case></cases>"),
         "Can't add target node: 'A'"},
        {Doc(kAB, "<cases><case name=\"c\"><target node=\"Q\"/></case></cases>"), "Invalid node identifier: 'Q'"},
        {Doc("<cpt id=\"A\" <state/></cpt>"), "not well-formed"},
        {Doc("<cpt id=\"A\"><state id=\"a\"/><state id=\"b\"/><probabilities>1 0 0</probabilities></cpt>"),
         "SetProbabilities failed: 'A'"},
        {Doc("<cpt id=\"A\"><state id=\"a\"/><state id=\"b\"/><probabilities>1</probabilities></cpt>"),
         "SetProbabilities failed: 'A'"},
        {Doc("<cpt id=\"A\"><state id=\"a\"/><state id=\"b\"/><probabilities>1 zero</probabilities></cpt>"),
         "Number expected in 'definition': 'zero'"},
        {Doc("<cpt id=\"A\"><state id=\"a\"/><state id=\"b\"/><intervals>0 1</intervals>"
             "<probabilities>1 0</probabilities></cpt>"),
         "SetIntervals failed: 'A'"},
        {Doc("<cpt id=\"A\"><state id=\"a\"/><state id=\"b\"/><pointvalues>0 1 2</pointvalues>"
             "<probabilities>1 0</probabilities></cpt>"),
         "SetPointValues failed: 'A'"},
        {Doc("<cpt id=\"A\"><state id=\"a\"/><probabilities>1</probabilities></cpt>"),
         "SetNumberOfOutcomes failed: 'A'"},
        {Doc("<cpt id=\"A\"><state id=\"a\"/><state id=\"1b\"/><probabilities>1 0</probabilities></cpt>"),
         "SetNumberOfOutcomes failed: 'A'"},
        {Doc("<cpt id=\"A\"><state id=\"a\"/><state id=\"b c\"/><state id=\"d\"/><probabilities>1 0 0"
             "</probabilities></cpt>"),
         "SetNumberOfOutcomes failed: 'A'"},
        {Doc("<utility id=\"U\"><utilities>1 2</utilities></utility>"), "SetUtilities failed: 'U'"},
        {Doc("<mau id=\"M\"><weights>1 2</weights></mau>"), "SetWeights failed: 'M'"},
        {Doc("<deterministic id=\"D\"><state id=\"a\"/><state id=\"b\"/><resultingstates>a b"
             "</resultingstates></deterministic>"),
         "SetResultingStates failed: 'D'"},
        {Doc(kAB, "<observationcost><node id=\"B\"><parents>A</parents><cost>1 2 3</cost></node>"
                  "</observationcost>"),
         "SetCosts failed: 'B'"},
        {Doc(kAB + "<cpt id=\"C\"><state id=\"a\"/><state id=\"b\"/><probabilities>1 0</probabilities>"
                   "<parents>A</parents></cpt>"),
         "Parents must come before the definition of node: 'C'"},
        {Doc(kAB, "<extensions><tovra><node id=\"Q\"/></tovra></extensions>"), "Invalid node identifier: 'Q'"},
        {Doc(kAB, "<extensions><tovra><node id=\"A\"><position>1 2 3</position></node></tovra></extensions>"),
         "Invalid position: '1 2 3'"},
        {Doc(kAB, "<extensions><tovra><node id=\"A\"><interior color=\"red\"/></node></tovra></extensions>"),
         "Invalid color: 'red'"},
        {Doc(kAB, "<extensions><tovra><submodel id=\"A\"/></tovra></extensions>"),
         "Duplicated submodel identifier: 'A'"},
        {Doc(kAB, "<extensions><tovra><node id=\"A\"><state id=\"nope\"/></node></tovra></extensions>"),
         "Invalid outcome identifier: 'nope'"},
        {"<quarn version=\"1.0\" id=\"t\" numsamples=\"0\"/>", "Invalid number of samples: '0'"},
        {"<quarn version=\"1.0\" id=\"t\" numsamples=\"many\"/>", "Integer value expected for attribute 'numsamples'"},
        {Doc("<cpt id=\"A\" target=\"yes\"><state id=\"a\"/><state id=\"b\"/><probabilities>1 0</probabilities>"
             "</cpt>"),
         "'true' or 'false' expected as value of boolean attribute 'target'"},
        {Doc("<cpt><state id=\"a\"/></cpt>"), "Required attribute 'id' not found in element 'cpt'"},
        {Doc("<cpt id=\"A\"><state id=\"a\"/><state id=\"b\"/></cpt>"),
         "Required element 'probabilities' not present in element 'cpt'"},
    };
    for (const Case& c : cases) {
        VEK_network net;
        Populate(net);
        std::string before = Describe(net);
        EXPECT_EQ(net.ReadString(c.doc.c_str()), VEK_FILE_IO_FAILED) << c.message;
        std::string log = LogText(net);
        EXPECT_NE(log.find(c.message), std::string::npos) << "expected: " << c.message << "\nlog: " << log;
        EXPECT_TRUE(std::regex_search(log, std::regex("^Error at [1-9][0-9]*, [0-9]+: ", std::regex::multiline)))
            << log;
        EXPECT_EQ(Describe(net), before) << c.message;
        EXPECT_EQ(net.GetNumberOfNodes(), 2);
    }
}

TEST(XvekDocument, MissingFileIsReportedAndChangesNothing) {
    VEK_network net;
    Populate(net);
    std::string before = Describe(net);
    EXPECT_EQ(net.ReadFile("/no/such/dir/net.xvek"), VEK_FILE_READ_ERROR);
    EXPECT_NE(LogText(net).find("Error at 0, 0 while loading /no/such/dir/net.xvek: Can't open file /no/such/dir/net.xvek"),
              std::string::npos)
        << LogText(net);
    EXPECT_EQ(Describe(net), before);
    EXPECT_EQ(net.WriteFile("/no/such/dir/net.xvek"), VEK_FILE_WRITE_ERROR);
}

TEST(XvekDocument, MessagesNameTheFileAndPosition) {
    std::string path = testing::TempDir() + "broken.xvek";
    FILE* f = std::fopen(path.c_str(), "w");
    std::fputs("<quarn version=\"1.0\" id=\"t\">\n<nodes>\n  <cpt id=\"9\"/>\n</nodes></quarn>", f);
    std::fclose(f);
    VEK_network net;
    EXPECT_EQ(net.ReadFile(path.c_str()), VEK_FILE_IO_FAILED);
    EXPECT_EQ(LogText(net), "Error at 3, 2 while loading " + path + ": Invalid node identifier: '9'\n");
    std::remove(path.c_str());
}

TEST(XvekDocument, ReadingReplacesTheModelAndKeepsTheCallersSettings) {
    VEK_network net;
    Populate(net);
    net.SetDefaultBNAlgorithm(VEK_ALG_BN_EPISSAMPLING);
    net.SetNumberOfSamples(77);
    ASSERT_EQ(net.ReadString(Doc(kAB).c_str()), 0) << LogText(net);
    EXPECT_EQ(net.GetNumberOfNodes(), 2);
    EXPECT_GE(net.FindNode("A"), 0);
    EXPECT_LT(net.FindNode("X"), 0);
    EXPECT_EQ(net.Cases().GetCount(), 0);
    EXPECT_EQ(net.UserProperties().GetNumberOfProperties(), 0);
    EXPECT_EQ(net.GetNumberOfSamples(), 1000);                      // from the file
    EXPECT_EQ(net.GetDefaultBNAlgorithm(), VEK_ALG_BN_EPISSAMPLING);  // not in the file
    // The nodes belong to this network now.
    EXPECT_EQ(&net.GetDef(0)->Network(), &net);
    EXPECT_EQ(net.AddArc(net.FindNode("A"), net.AddNode(VEK_CPT, "C")), 0);
}

TEST(XvekDocument, UserExtensionReplacesTheGraphicalOne) {
    struct Saver : IXmlWriterExtension {
        void Write(IXmlWriter* w) override { w->WriteElement("mine", "payload"); }
        const char* GetTopComment() const override { return "written by a test"; }
    } saver;
    struct Loader {
        std::string seen;
        void End(IXmlReader* r) { seen = r->GetContent(); }
    } loader;
    XmlHandler<Loader> binding(&loader, "mine", nullptr, &Loader::End);
    XmlUserExtension ext{&binding, &saver};

    VEK_network net;
    net.AddNode(VEK_CPT, "A");
    net.Header().SetComment("kept by tovra only");
    std::string xml;
    ASSERT_EQ(net.WriteString(xml, &ext), 0);
    EXPECT_EQ(xml.find("tovra"), std::string::npos);
    EXPECT_NE(xml.find("<!-- written by a test -->\n<quarn"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<extensions>\n\t\t<mine>payload</mine>\n\t</extensions>"), std::string::npos) << xml;
    VEK_network back;
    ASSERT_EQ(back.ReadString(xml.c_str(), &ext), 0) << LogText(back);
    EXPECT_EQ(loader.seen, "payload");
}

// ---------------------------------------------------------------- fuzzing

namespace {

// Loads text into a populated network: either it succeeds (and then writes
// and reads back), or it fails with a positioned message and changes nothing.
void LoadOrRefuse(const std::string& text, const std::string& what) {
    VEK_network net;
    Populate(net);
    const std::string before = Describe(net);
    int res = net.ReadString(text.c_str());
    if (res == 0) {
        std::string xml;
        ASSERT_EQ(net.WriteString(xml), 0) << what;
        VEK_network back;
        ASSERT_EQ(back.ReadString(xml.c_str()), 0) << what << "\n" << LogText(back);
        ASSERT_EQ(Describe(back), Describe(net)) << what;
        return;
    }
    ASSERT_LT(res, 0) << what;
    const std::string log = LogText(net);
    ASSERT_TRUE(std::regex_search(log, std::regex("^Error at [0-9]+, [0-9]+: ", std::regex::multiline)))
        << what << "\n" << log;
    ASSERT_EQ(Describe(net), before) << what;
}

std::string FullFeatureDocument() {
    VEK_network net;
    testnet::RandomNetwork(net, 4242);
    return Write(net);
}

}  // namespace

TEST(XvekFuzz, TruncatedDocuments) {
    for (std::string text : {testnet::ReadText(testnet::SharedPath("asia")),
                             testnet::ReadText(testnet::SharedPath("child")), FullFeatureDocument()}) {
        const size_t step = std::max<size_t>(1, text.size() / 300);
        for (size_t n = 0; n < text.size(); n += step) LoadOrRefuse(text.substr(0, n), "cut at " + std::to_string(n));
    }
}

TEST(XvekFuzz, FlippedBytes) {
    std::mt19937 gen(11);
    for (std::string text : {testnet::ReadText(testnet::SharedPath("insurance")), FullFeatureDocument()}) {
        for (int i = 0; i < 300; ++i) {
            std::string t = text;
            for (int k = std::uniform_int_distribution<int>(1, 3)(gen); k > 0; --k) {
                size_t p = std::uniform_int_distribution<size_t>(0, t.size() - 1)(gen);
                t[p] = static_cast<char>(std::uniform_int_distribution<int>(1, 255)(gen));
            }
            LoadOrRefuse(t, "flip " + std::to_string(i));
        }
    }
}

TEST(XvekFuzz, ElementsDuplicatedRemovedOrRenamed) {
    std::mt19937 gen(5);
    const std::string text = FullFeatureDocument();
    // Whole lines are elements in the writer's layout.
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line + "\n");
    for (int i = 0; i < 400; ++i) {
        std::vector<std::string> l = lines;
        size_t p = std::uniform_int_distribution<size_t>(1, l.size() - 1)(gen);
        int op = i % 4;
        if (op == 0) {
            l.insert(l.begin() + p, l[p]);
        } else if (op == 1) {
            l.erase(l.begin() + p);
        } else if (op == 2) {
            // Rename the element of this line (open and close tags alike).
            std::smatch m;
            if (std::regex_search(l[p], m, std::regex("<([a-z]+)"))) {
                std::string name = m[1];
                for (auto& s : l) {
                    s = std::regex_replace(s, std::regex("<" + name + "([ />])"), "<zz" + name + "$1");
                    s = std::regex_replace(s, std::regex("</" + name + ">"), "</zz" + name + ">");
                }
            }
        } else {
            // A number becomes text.
            l[p] = std::regex_replace(l[p], std::regex("[0-9]+(\\.[0-9]+)?"), "NaNa", std::regex_constants::format_first_only);
        }
        std::string t;
        for (const auto& s : l) t += s;
        LoadOrRefuse(t, "edit " + std::to_string(i));
    }
}

TEST(XvekFuzz, HugeCountsDeepNestingAndLongAttributes) {
    // Many states.
    std::string states;
    for (int i = 0; i < 3000; ++i) states += "<state id=\"s" + std::to_string(i) + "\"/>";
    std::string table;
    for (int i = 0; i < 3000; ++i) table += i == 0 ? "1 " : "0 ";
    LoadOrRefuse(Doc("<cpt id=\"A\">" + states + "<probabilities>" + table + "</probabilities></cpt>"), "states");

    // Many parents: a decision takes them all, a table child is refused
    // before it is allocated.
    std::string nodes;
    std::string parents;
    for (int i = 0; i < 40; ++i) {
        nodes += "<cpt id=\"P" + std::to_string(i) +
                 "\"><state id=\"a\"/><state id=\"b\"/><probabilities>0.5 0.5</probabilities></cpt>";
        parents += " P" + std::to_string(i);
    }
    {
        VEK_network net;
        ASSERT_EQ(net.ReadString(Doc(nodes + "<decision id=\"D\"><state id=\"x\"/><state id=\"y\"/><parents>" +
                                     parents + "</parents></decision>")
                                     .c_str()),
                  0)
            << LogText(net);
        EXPECT_EQ(net.GetNode(net.FindNode("D"))->Parents().GetSize(), 40);
    }
    {
        VEK_network net;
        Populate(net);
        EXPECT_EQ(net.ReadString(Doc(nodes + "<cpt id=\"C\"><state id=\"x\"/><state id=\"y\"/><parents>" + parents +
                                     "</parents><probabilities>1 0</probabilities></cpt>")
                                     .c_str()),
                  VEK_FILE_IO_FAILED);
        EXPECT_NE(LogText(net).find("Definition is larger than the document can hold: 'C'"), std::string::npos)
            << LogText(net);
        EXPECT_EQ(net.GetNumberOfNodes(), 2);
    }

    // Deep nesting of submodels.
    std::string subs;
    for (int i = 0; i < 3000; ++i) subs += "<submodel id=\"S" + std::to_string(i) + "\">";
    subs += "<node id=\"A\"/>";
    for (int i = 0; i < 3000; ++i) subs += "</submodel>";
    {
        VEK_network net;
        ASSERT_EQ(net.ReadString(Doc(kAB, "<extensions><tovra>" + subs + "</tovra></extensions>").c_str()), 0)
            << LogText(net);
        EXPECT_EQ(testnet::SubmodelId(net, net.GetNode(net.FindNode("A"))->GetSubmodel()), "S2999");
        std::string xml = Write(net);
        VEK_network back;
        ASSERT_EQ(back.ReadString(xml.c_str()), 0);
        EXPECT_EQ(Describe(back), Describe(net));
    }

    // A long chain whose parents have the higher handles: writing must walk
    // it parents first without running out of stack.
    {
        VEK_network net;
        const int n = 4000;
        for (int i = 0; i < n; ++i) net.AddNode(VEK_CPT, ("c" + std::to_string(i)).c_str());
        for (int i = 0; i + 1 < n; ++i) ASSERT_EQ(net.AddArc(i + 1, i), 0);
        std::string xml = Write(net);
        EXPECT_LT(xml.find("id=\"c3999\""), xml.find("id=\"c0\""));
        VEK_network back;
        ASSERT_EQ(back.ReadString(xml.c_str()), 0) << LogText(back);
        EXPECT_EQ(Describe(back), Describe(net));
        EXPECT_EQ(Write(back), xml);
    }
}
