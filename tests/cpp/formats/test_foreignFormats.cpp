// The foreign formats together: random and shared networks written in each
// and read back, refusals, and damaged or huge inputs.
#include "sharedNetworks.h"

#include <memory>

#include "formats/formatRegistry.h"

using namespace foreign;

namespace {

struct Format {
    int number;
    const char* extension;
    bool names;  // node names survive
    VEK_fileFormat* (*create)(VEK_network&);
};

const Format kFormats[] = {
    {VEK_FORMAT_ERGO, ".erg", false, VEK_createErgoSpeaker},
    {VEK_FORMAT_NETICA, ".dne", true, VEK_createNeticaSpeaker},
    {VEK_FORMAT_MICROSOFT, ".dsc", true, VEK_createMicrosoftSpeaker},
    {VEK_FORMAT_KI, ".dxp", true, VEK_createKiSpeaker},
};

// Reads text with a fresh speaker into a fresh network: the status.
int ReadWithSpeaker(const Format& f, const std::string& text) {
    VEK_network net;
    std::unique_ptr<VEK_fileFormat> speaker(f.create(net));
    return speaker->ReadNetworkFromString(text.c_str());
}

std::string WriteWithSpeaker(const Format& f, VEK_network& net) {
    std::string out;
    std::unique_ptr<VEK_fileFormat> speaker(f.create(net));
    EXPECT_EQ(speaker->WriteNetworkToString(out), 0) << LastMessage(net);
    return out;
}

}  // namespace

TEST(ForeignFormats, SharedNetworksReadBackEqualToTheXmlOriginal) {
    std::vector<Format> formats(std::begin(kFormats), std::end(kFormats));
    formats.push_back({VEK_FORMAT_XMLBIF, ".xml", true, nullptr});
    formats.push_back({VEK_FORMAT_HUGIN, ".net", true, nullptr});
    for (const char* name : {"asia", "alarm", "child", "insurance"}) {
        VEK_network original(*shared::Reference(name));
        for (const Format& f : formats) {
            SCOPED_TRACE(std::string(name) + f.extension);
            VEK_network back;
            RoundTrip(original, f.number, f.extension, back);
            ExpectSameNetwork(original, back, {.names = f.names, .labels = true});
        }
    }
}

// Random networks of every kind a format holds survive a round trip
// exactly, with what the format keeps of names, labels, layout and texts.
TEST(ForeignFormats, RandomNetworksRoundTrip) {
    struct Case {
        int format;
        const char* extension;
        GenOptions o;
        bool asCpt = false;       // truth tables come back as probability tables
        bool id = false;          // the network's id survives
        bool texts = false;       // and its name and comment
        bool properties = false;  // and its properties
    };
    const Case cases[] = {
        {VEK_FORMAT_ERGO, ".erg", {.names = Names::Repairable, .labels = Names::Repairable, .utf8Ids = true}},
        {VEK_FORMAT_NETICA, ".dne",
         {.decisions = true, .utilities = true, .truthTables = true, .names = Names::Free, .labels = Names::Free,
          .positions = true, .comments = true, .levels = true},
         false, true, true},
        {VEK_FORMAT_MICROSOFT, ".dsc",
         {.names = Names::Free, .labels = Names::Spaced, .positions = true, .properties = true, .utf8Ids = true},
         false, true, false, true},
        {VEK_FORMAT_KI, ".dxp", {.names = Names::Free, .labels = Names::Spaced}},
        {VEK_FORMAT_XMLBIF, ".bif",
         {.decisions = true, .utilities = true, .truthTables = true, .names = Names::Spaced, .labels = Names::Spaced,
          .positions = true, .properties = true, .utf8Ids = true},
         true},
        {VEK_FORMAT_HUGIN, ".net",
         {.decisions = true, .utilities = true, .truthTables = true, .names = Names::Free, .labels = Names::Spaced,
          .positions = true, .properties = true, .levels = true, .utf8Ids = true},
         true},
    };
    for (const Case& k : cases) {
        for (unsigned seed = 1; seed <= 25; ++seed) {
            SCOPED_TRACE(std::string(k.extension) + " seed " + std::to_string(seed));
            GenOptions o = k.o;
            o.nodes = 3 + static_cast<int>(seed % 10);
            VEK_network net, back;
            Generator(seed).Build(net, o);
            if (k.texts) net.Header().SetName("Random \"net\"");
            if (k.texts) net.Header().SetComment("about\nit");
            if (k.properties) net.UserProperties().AddProperty("Author", "Quote \" and backslash \\");
            RoundTrip(net, k.format, k.extension, back);
            Compare c{.names = o.names != Names::Ids, .labels = o.labels != Names::Ids, .positions = o.positions,
                      .comments = o.comments, .properties = o.properties, .levels = o.levels};
            if (k.asCpt) c.type = AsCpt;
            ExpectSameNetwork(net, back, c);
            if (k.id) {
                EXPECT_STREQ(back.Header().GetId(), "RandomNet");
            }
            if (k.texts) {
                EXPECT_STREQ(back.Header().GetName(), net.Header().GetName());
                EXPECT_STREQ(back.Header().GetComment(), net.Header().GetComment());
            }
            if (k.properties) {
                EXPECT_EQ(back.UserProperties().Items(), net.UserProperties().Items());
            }
        }
    }
}

// A writer refuses node kinds its format cannot hold: no file, no text.
TEST(ForeignFormats, WritersRefuseWhatTheFormatCannotHold) {
    const struct {
        int format;
        const char* extension;
        std::vector<int> types;
        const char* name;
    } cases[] = {
        {VEK_FORMAT_ERGO, ".erg", {VEK_LIST, VEK_TABLE}, "Ergo"},
        {VEK_FORMAT_MICROSOFT, ".dsc", {VEK_LIST, VEK_TABLE}, "Microsoft"},
        {VEK_FORMAT_KI, ".dxp", {VEK_LIST, VEK_TABLE}, "KI"},
        {VEK_FORMAT_NETICA, ".dne", {VEK_MAU}, "Netica"},
        {VEK_FORMAT_HUGIN, ".net", {VEK_MAU}, "Hugin"},
        {VEK_FORMAT_XMLBIF, ".bif", {VEK_MAU}, "XMLBIF"},
    };
    for (const auto& k : cases) {
        for (int type : k.types) {
            SCOPED_TRACE(std::string(k.extension) + " type " + std::to_string(type));
            VEK_network net;
            net.AddNode(VEK_CPT, "a");
            const int x = net.AddNode(type, "x");
            if (type == VEK_MAU) {
                ASSERT_EQ(net.AddArc(net.AddNode(VEK_TABLE, "u"), x), 0);
            }
            TempFile file(k.extension);
            EXPECT_EQ(net.WriteFile(file.c_str()), VEK_OUT_OF_RANGE);
            EXPECT_EQ(LastMessage(net), std::string("ERROR: This Network cannot be saved in ") + k.name + " format");
            EXPECT_FALSE(file.Exists());
            std::string out = "old";
            std::unique_ptr<VEK_fileFormat> speaker(VEK_findFormat(k.format)->create(net));
            EXPECT_EQ(speaker->WriteNetworkToString(out), VEK_OUT_OF_RANGE);
            EXPECT_EQ(out, "");
        }
    }
}

// A file that cannot be opened fails the read (naming it) or the write, and
// the network stays as it was.
TEST(ForeignFormats, FilesThatCannotBeOpenedAreRefused) {
    for (auto [ext, code] : {std::pair{"bif", VEK_FILE_READ_ERROR}, {"net", VEK_FILE_READ_ERROR},
                             {"vek", VEK_FILE_READ_ERROR}, {"erg", VEK_FILE_IO_FAILED}, {"dne", VEK_FILE_IO_FAILED},
                             {"dsc", VEK_FILE_IO_FAILED}, {"dxp", VEK_FILE_IO_FAILED}}) {
        const std::string path = std::string("/no/such/dir/x.") + ext;
        VEK_network net;
        MakeSentinel(net);
        EXPECT_EQ(net.ReadFile(path.c_str()), code) << ext;
        if (code == VEK_FILE_READ_ERROR) {
            EXPECT_EQ(LastMessage(net), "Error at 0, 0 while loading " + path + ": Can't open file " + path);
        }
        EXPECT_EQ(net.WriteFile(path.c_str()), VEK_FILE_WRITE_ERROR) << ext;
        ExpectSentinel(net);
    }
}

// Every BIF, XMLBIF and Hugin file of the shared folder against the XML
// network file of the same network.
TEST(ForeignFormats, SharedFilesMatchTheXmlNetworkFiles) {
    ASSERT_GE(shared::Names().size(), 20u);
    for (const std::string& name : shared::Names()) {
        const VEK_network* ref = shared::Reference(name);
        ASSERT_TRUE(ref);
        for (auto [folder, ext, format] : {std::tuple{"bif", ".bif", -1}, {"xmlbif", ".xml", VEK_FORMAT_XMLBIF},
                                           {"net", ".net", -1}}) {
            SCOPED_TRACE(name + ext);
            const std::string path = shared::PathOf(folder, name, ext);
            if (format > 0 && !std::filesystem::exists(path)) continue;  // child: the other tool could not write it
            VEK_network net;
            ASSERT_EQ(format < 0 ? net.ReadFile(path.c_str()) : net.ReadFile(path.c_str(), format), 0) << LastMessage(net);
            shared::ExpectSameAs(*ref, net, 1e-12);
            if (std::string(ext) == ".net") {
                EXPECT_EQ(net.Header().GetId(), name);  // named after the file
            }
        }
    }
}

// Prefixes of a valid file and copies with bytes changed either read or
// fail with a positioned message (the sanitizer build checks for leaks and
// bad accesses).
TEST(ForeignFormats, TruncatedAndGarbledInputsFailCleanly) {
    GenOptions o;
    o.nodes = 12;
    o.names = o.labels = Names::Repairable;
    VEK_network net;
    Generator(11).Build(net, o);
    for (const Format& f : kFormats) {
        SCOPED_TRACE(f.extension);
        ExpectCutAndGarbledFailCleanly(FileReader(f.extension), WriteWithSpeaker(f, net), 5, 100, 150);
    }
}

TEST(ForeignFormats, HugeCountsAndDeepNestingFailWithoutExhaustingMemory) {
    const std::string deep(200000, '(');
    const std::pair<int, std::string> inputs[] = {
        {VEK_FORMAT_ERGO, "2000000000\n2 2 2\n"},
        {VEK_FORMAT_ERGO, "2\n2000000000 2000000000\n0\n2 0 1\n"},
        {VEK_FORMAT_ERGO, "1\n2\n0\n2147483647 0.5\n"},
        {VEK_FORMAT_ERGO, "99999999999999999999999\n"},
        {VEK_FORMAT_NETICA, "bnet N { node A { states = (a, b); probs = " + deep + "0.5; }; };"},
        {VEK_FORMAT_NETICA, "bnet N { node A { numstates = 99999999999; }; };"},
        {VEK_FORMAT_NETICA, "bnet N { visual V1 { x = " + deep + " }; };"},
        {VEK_FORMAT_MICROSOFT, "node A { type = discrete[2000000000] = {\"a\"}; }"},
        {VEK_FORMAT_MICROSOFT, "node A { type = discrete[2] = {\"a\", \"b\"}; x = " + deep + "; }"},
        {VEK_FORMAT_KI, "probability ( A | " + std::string(100000, 'B') + " ) { ( " + deep},
    };
    for (const auto& [number, text] : inputs) {
        const Format* f = nullptr;
        for (const Format& g : kFormats) {
            if (g.number == number) f = &g;
        }
        ASSERT_NE(f, nullptr);
        EXPECT_EQ(ReadWithSpeaker(*f, text), VEK_FILE_READ_ERROR) << text.substr(0, 80);
    }
    // A large table reads and writes in full.
    VEK_network net;
    int child = net.AddNode(VEK_CPT, "child");
    for (int i = 0; i < 12; ++i) {
        std::string id = std::to_string(i);
        id.insert(id.begin(), 'p');
        int p = net.AddNode(VEK_CPT, id.c_str());
        ASSERT_EQ(net.AddArc(p, child), 0);
    }
    VEK_randGen gen(3);
    ASSERT_EQ(net.GetDef(child)->MakeRandom(gen), 0);
    for (const Format& f : kFormats) {
        SCOPED_TRACE(f.extension);
        VEK_network copy;
        RoundTrip(net, f.number, f.extension, copy);
        EXPECT_EQ(copy.GetDef(copy.FindNode("child"))->GetMatrix()->GetItems().ToVector(),
                  net.GetDef(child)->GetMatrix()->GetItems().ToVector());
    }
}
