// UAI files: the shared networks written and read back, a hand-written file
// whose variables are not in topological order, faulty and damaged inputs,
// and evidence files.
#include "sharedNetworks.h"

#include "formats/uaiSpeaker.h"

using namespace foreign;

namespace {

// v1 has parents v0 and v2, v0 has parent v2; three states for v1, so the
// scope order decides the table layout.
const char* const kUai =
    "BAYES\n3\n2 3 2\n3\n2 2 0\n3 0 2 1\n1 2\n"
    "\n4\n 0.9 0.1\n 0.2 0.8\n"
    "12\n0.1 0.2 0.7  0.3 0.3 0.4  0.5 0.25 0.25  1 0 0\n"
    "2\n0.6 0.4\n";

std::vector<int> Handles(const VEK_network& net) {
    std::vector<int> h;
    for (int i = net.GetFirstNode(); i >= 0; i = net.GetNextNode(i)) h.push_back(i);
    return h;
}

// Parents by position in the node order, and tables, node by node.
std::vector<std::pair<std::vector<int>, std::vector<double>>> ByPosition(const VEK_network& net) {
    const std::vector<int> h = Handles(net);
    std::vector<std::pair<std::vector<int>, std::vector<double>>> out;
    for (int node : h) {
        std::vector<int> parents;
        for (int p : net.GetNode(node)->Parents().ToVector()) {
            parents.push_back(static_cast<int>(std::find(h.begin(), h.end(), p) - h.begin()));
        }
        out.emplace_back(parents, net.GetDef(node)->GetMatrix()->GetItems().ToVector());
    }
    return out;
}

// Evidence as (outcome or -1) per node, in the node order.
std::vector<int> EvidenceOf(const VEK_network& net) {
    std::vector<int> out;
    for (int h : Handles(net)) out.push_back(net.GetVal(h)->IsRealEvidence() ? net.GetVal(h)->GetEvidence() : -1);
    return out;
}

}  // namespace

TEST(UaiFormat, SharedNetworksReadBackWithEqualTables) {
    for (const std::string& name : shared::Names()) {
        if (shared::IsBig(name) && name != "pathfinder") continue;
        SCOPED_TRACE(name);
        VEK_network copy(*shared::Reference(name)), back;
        RoundTrip(copy, VEK_FORMAT_AUTO, ".uai", back);
        EXPECT_EQ(ByPosition(back), ByPosition(copy));
    }
}

TEST(UaiFormat, VariablesKeepTheFileOrderAndTablesTheirLayout) {
    VEK_network net;
    ASSERT_EQ(ReadText(net, kUai, ".UAI"), 0) << LastMessage(net);
    const std::vector<int> h = Handles(net);
    EXPECT_STREQ(net.GetNodeId(h[0]), "v0");
    EXPECT_EQ(static_cast<const VEK_discDef*>(net.GetDef(h[1]))->GetOutcomeIds()->ToVector(),
              (std::vector<std::string>{"s0", "s1", "s2"}));
    using Rows = std::vector<std::pair<std::vector<int>, std::vector<double>>>;
    EXPECT_EQ(ByPosition(net), (Rows{{{2}, {0.9, 0.1, 0.2, 0.8}},
                                     {{0, 2}, {0.1, 0.2, 0.7, 0.3, 0.3, 0.4, 0.5, 0.25, 0.25, 1, 0, 0}},
                                     {{}, {0.6, 0.4}}}));
}

TEST(UaiFormat, FaultsDamageAndHugeCountsFailWhereTheyAreAndChangeNothing) {
    const std::string head = "BAYES\n2\n2 2\n2\n1 0\n2 0 1\n";
    ExpectFaults(FileReader(".uai"),
                 {
                     {"MARKOV\n2\n2 2\n1\n2 0 1\n4\n1 2 3 4\n", 1, 1, "MARKOV networks are undirected"},
                     {"FACTOR\n", 1, 1, "Expected 'BAYES'"},
                     {"BAYES\n2\n2 1\n", 3, 3, "at least two"},
                     {"BAYES\n2\n2 2\n1\n", 4, 1, "one function per variable"},
                     {"BAYES\n2\n2 2\n2\n1 0\n2 0 5\n", 6, 5, "Unknown variable 5"},
                     {"BAYES\n2\n2 2\n2\n1 0\n2 0 0\n", 6, 5, "appears twice"},
                     {"BAYES\n2\n2 2\n2\n1 0\n1 0\n", 6, 3, "child of functions 0 and 1"},
                     {"BAYES 2 2 2 2 2 1 0 2 0 1 4 .5 .5 .5 .5 4 .5 .5 .5 .5", 1, 21, "cycle through variable v1"},
                     {head + "2 0.5 0.5\n3 0.1 0.9 0.2\n", 8, 1, "has 3 entries, expected 4"},
                     {head + "2 0.5 0.5\n4 0.1 0.9 2 -1\n", 8, 11, "Invalid probability 2"},
                     {head + "2 0.5 0.5\n4 0.1 0.9 0.2\n", 9, 1, "Number expected but found end of file"},
                     {head + "2 0.5 0.5\n4 0.1 0.9 0.2 0.8 7\n", 8, 19, "Unexpected '7'"},
                     {"BAYES 2000000000 2 2", 1, 21, "end of file"},
                     {"BAYES 2 2000000000 2000000000 2 2 0 1 1 0 5", 1, 0, "Table too large for variable v1"},
                     {"BAYES 1 2 1 1 0 2147483647 0.5", 1, 17, "has 2147483647 entries"},
                     {"BAYES 99999999999999999999999", 1, 7, "Number of variables"},
                 });
    VEK_network alarm(*shared::Reference("alarm")), back;
    std::string text;
    RoundTrip(alarm, VEK_FORMAT_AUTO, ".uai", back, &text);
    ExpectCutAndGarbledFailCleanly(FileReader(".uai"), text, 17, 150, 150);
}

TEST(UaiFormat, EvidenceFilesSetWhatTheApiSetsOrNothing) {
    VEK_network net;
    ASSERT_EQ(ReadText(net, kUai, ".uai"), 0) << LastMessage(net);
    for (const char* text : {"2 1 2 2 0", "1\n2\n1 2\n2 0\n", "3 2 0 1 2 2 0"}) {
        VEK_network copy(net);
        VEK_uaiSpeaker speaker(copy);
        ASSERT_EQ(speaker.ReadEvidenceFromString(text), 0) << LastMessage(copy);
        EXPECT_EQ(EvidenceOf(copy), (std::vector<int>{-1, 2, 0})) << text;
    }
    ASSERT_EQ(net.GetVal(Handles(net)[0])->SetEvidence(0), 0);
    TempFile file(".uai.evid");
    for (const char* bad : {"", "1 3 0", "1 1 3", "2 1 0 1 1", "2 1 0", "2 2 1 0 1 1 0 1 1 0", "1 0 x", "1 0 -1",
                            "2 2 0 1 2 1 1 0 0 0 0 0 0 0 0"}) {
        SCOPED_TRACE(bad);
        file.Write(bad);
        EXPECT_EQ(VEK_uaiSpeaker(net).ReadEvidence(file.c_str()), VEK_FILE_READ_ERROR);
        EXPECT_EQ(EvidenceOf(net), (std::vector<int>{0, -1, -1}));
    }
    EXPECT_EQ(VEK_uaiSpeaker(net).ReadEvidence("/no/such/file.uai.evid"), VEK_FILE_IO_FAILED);
}
