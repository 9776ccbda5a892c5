// UAI files: the shared networks written and read back, a hand-written file
// whose variables are not in topological order, faulty and damaged inputs,
// and evidence files.
#include "sharedNetworks.h"

#include <memory>

#include "formats/formatRegistry.h"
#include "formats/uaiSpeaker.h"
#include "network/nodeVal.h"

using namespace foreign;

namespace {

// v0 has parent v2, v1 has parents v0 and v2; v2 is the root. Three states
// for v1, so the scope order decides the table layout.
const char* const kUai =
    "BAYES\n3\n2 3 2\n3\n"
    "2 2 0\n"
    "3 0 2 1\n"
    "1 2\n"
    "\n4\n 0.9 0.1\n 0.2 0.8\n"
    "12\n0.1 0.2 0.7  0.3 0.3 0.4  0.5 0.25 0.25  1 0 0\n"
    "2\n0.6 0.4\n";

std::vector<int> Handles(const VEK_network& net) {
    std::vector<int> h;
    for (int i = net.GetFirstNode(); i >= 0; i = net.GetNextNode(i)) h.push_back(i);
    return h;
}

// The same graph and tables, node by node in the node order.
void ExpectSameByPosition(const VEK_network& a, const VEK_network& b) {
    const std::vector<int> ha = Handles(a), hb = Handles(b);
    ASSERT_EQ(ha.size(), hb.size());
    std::vector<int> ia(static_cast<size_t>(a.GetSlotCount())), ib(static_cast<size_t>(b.GetSlotCount()));
    for (size_t i = 0; i < ha.size(); ++i) ia[static_cast<size_t>(ha[i])] = ib[static_cast<size_t>(hb[i])] = static_cast<int>(i);
    for (size_t i = 0; i < ha.size(); ++i) {
        SCOPED_TRACE(std::string("node ") + a.GetNodeId(ha[i]));
        const VEK_intArray& pa = a.GetNode(ha[i])->Parents();
        const VEK_intArray& pb = b.GetNode(hb[i])->Parents();
        ASSERT_EQ(pa.GetSize(), pb.GetSize());
        for (int k = 0; k < pa.GetSize(); ++k) EXPECT_EQ(ia[static_cast<size_t>(pa[k])], ib[static_cast<size_t>(pb[k])]);
        EXPECT_EQ(b.GetDef(hb[i])->GetMatrix()->GetItems().ToVector(), a.GetDef(ha[i])->GetMatrix()->GetItems().ToVector());
    }
}

int ReadUai(const std::string& text) {
    VEK_network fresh;
    std::unique_ptr<VEK_fileFormat> speaker(VEK_createUaiSpeaker(fresh));
    return speaker->ReadNetworkFromString(text.c_str());
}

// Evidence as (outcome or -1) per node, in the node order.
std::vector<int> EvidenceOf(const VEK_network& net) {
    std::vector<int> out;
    for (int h : Handles(net)) out.push_back(net.GetVal(h)->IsRealEvidence() ? net.GetVal(h)->GetEvidence() : -1);
    return out;
}

int ReadEvidence(VEK_network& net, const std::string& text) {
    VEK_uaiSpeaker speaker(net);
    return speaker.ReadEvidenceFromString(text.c_str());
}

}  // namespace

TEST(UaiFormat, SharedNetworksReadBackWithEqualTables) {
    for (const std::string& name : shared::Names()) {
        if (shared::IsBig(name) && name != "pathfinder") continue;
        SCOPED_TRACE(name);
        const VEK_network* ref = shared::Reference(name);
        ASSERT_TRUE(ref);
        VEK_network copy(*ref), back;
        RoundTrip(copy, VEK_FORMAT_UAI, ".uai", back);
        ExpectSameByPosition(*ref, back);
    }
}

TEST(UaiFormat, VariablesKeepTheFileOrderAndTablesTheirLayout) {
    VEK_network net;
    ASSERT_EQ(ReadText(net, kUai, ".UAI"), 0) << LastMessage(net);
    const std::vector<int> h = Handles(net);
    ASSERT_EQ(h.size(), 3u);
    EXPECT_STREQ(net.GetNodeId(h[0]), "v0");
    EXPECT_STREQ(net.GetNodeId(h[2]), "v2");
    EXPECT_EQ(static_cast<const VEK_discDef*>(net.GetDef(h[1]))->GetOutcomeIds()->ToVector(),
              (std::vector<std::string>{"s0", "s1", "s2"}));
    EXPECT_EQ(net.GetNode(h[1])->Parents().ToVector(), (std::vector<int>{h[0], h[2]}));
    EXPECT_EQ(net.GetDef(h[0])->GetMatrix()->GetItems().ToVector(), (std::vector<double>{0.9, 0.1, 0.2, 0.8}));
    EXPECT_EQ(net.GetDef(h[1])->GetMatrix()->GetItems().ToVector(),
              (std::vector<double>{0.1, 0.2, 0.7, 0.3, 0.3, 0.4, 0.5, 0.25, 0.25, 1, 0, 0}));
    // Written again, the text reads the same way.
    VEK_network back;
    RoundTrip(net, VEK_FORMAT_AUTO, ".uai", back);
    ExpectSameByPosition(net, back);
}

TEST(UaiFormat, FaultsAreReportedWhereTheyAreAndChangeNothing) {
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
                     {head + "2 0.5 0.5\n3 0.1 0.9 0.2\n", 8, 1, "has 3 entries, expected 4"},
                     {head + "2 0.5 0.5\n4 0.1 0.9 2 -1\n", 8, 11, "Invalid probability 2"},
                     {head + "2 0.5 0.5\n4 0.1 0.9 0.2\n", 9, 1, "Number expected but found end of file"},
                     {head + "2 0.5 0.5\n4 0.1 0.9 0.2 0.8 7\n", 8, 19, "Unexpected '7'"},
                 });
    // A cycle is refused as a whole.
    VEK_network net;
    MakeSentinel(net);
    EXPECT_LT(ReadText(net, "BAYES 2 2 2 2 2 1 0 2 0 1 4 .5 .5 .5 .5 4 .5 .5 .5 .5", ".uai"), 0);
    ExpectSentinel(net);
}

TEST(UaiFormat, TruncatedGarbledAndHugeInputsFailCleanly) {
    VEK_network alarm(*shared::Reference("alarm"));
    std::string text;
    {
        VEK_network back;
        RoundTrip(alarm, VEK_FORMAT_UAI, ".uai", back, &text);
    }
    std::mt19937 rng(17);
    const char junk[] = " \n0.5e-x-9\xff";
    for (int i = 0; i < 200; ++i) EXPECT_LE(ReadUai(text.substr(0, rng() % text.size())), 0);
    for (int i = 0; i < 200; ++i) {
        std::string bad = text;
        for (int k = 1 + static_cast<int>(rng() % 4); k > 0; --k) bad[rng() % bad.size()] = junk[rng() % (sizeof junk - 1)];
        EXPECT_LE(ReadUai(bad), 0);
    }
    for (const char* huge : {"BAYES 2000000000 2 2", "BAYES 2 2000000000 2000000000 2 1 0 2 0 1 2 .5 .5 4000000000000000000",
                             "BAYES 1 2 1 1 0 2147483647 0.5", "BAYES 99999999999999999999999"}) {
        EXPECT_EQ(ReadUai(huge), VEK_FILE_READ_ERROR) << huge;
    }
}

TEST(UaiFormat, EvidenceFilesSetWhatTheApiSetsOrNothing) {
    VEK_network net;
    ASSERT_EQ(ReadText(net, kUai, ".uai"), 0) << LastMessage(net);
    const std::vector<int> h = Handles(net);
    VEK_network byApi(net);
    ASSERT_EQ(byApi.GetVal(h[1])->SetEvidence(2), 0);
    ASSERT_EQ(byApi.GetVal(h[2])->SetEvidence(0), 0);
    for (const char* text : {"2 1 2 2 0", "1\n2\n1 2\n2 0\n", "3 2 0 1 2 2 0"}) {
        VEK_network copy(net);
        ASSERT_EQ(ReadEvidence(copy, text), 0) << LastMessage(copy);
        EXPECT_EQ(EvidenceOf(copy), EvidenceOf(byApi)) << text;
    }
    {
        TempFile file(".uai.evid");
        file.Write("1 0 1");
        VEK_network copy(net);
        VEK_uaiSpeaker speaker(copy);
        ASSERT_EQ(speaker.ReadEvidence(file.c_str()), 0) << LastMessage(copy);
        EXPECT_EQ(EvidenceOf(copy), (std::vector<int>{1, -1, -1}));
        EXPECT_EQ(speaker.ReadEvidence("/no/such/file.uai.evid"), VEK_FILE_IO_FAILED);
    }
    ASSERT_EQ(net.GetVal(h[0])->SetEvidence(0), 0);
    for (const char* bad : {"", "1 3 0", "1 1 3", "2 1 0 1 1", "2 1 0", "2 2 1 0 1 1 0 1 1 0", "1 0 x", "1 0 -1",
                            "2 2 0 1 2 1 1 0 0 0 0 0 0 0 0"}) {
        SCOPED_TRACE(bad);
        EXPECT_EQ(ReadEvidence(net, bad), VEK_FILE_READ_ERROR);
        EXPECT_EQ(EvidenceOf(net), (std::vector<int>{0, -1, -1}));
    }
}
