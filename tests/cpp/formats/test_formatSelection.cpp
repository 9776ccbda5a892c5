#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "../xml/networkDescription.h"
#include "formats/fileFormat.h"
#include "formats/formatRegistry.h"
#include "xml/xvekSpeaker.h"

namespace {

std::string LogText(const VEK_network& net) {
    std::string text;
    for (int i = 0; i < net.Logger().GetErrorCount(); ++i) text += std::string(net.Logger().GetErrorMessage(i)) + "\n";
    return text;
}

bool Exists(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f) std::fclose(f);
    return f != nullptr;
}

// A speaker with nothing to read or write: the token helpers of the base.
class TextFormat : public VEK_fileFormat {
public:
    explicit TextFormat(VEK_network& net) : VEK_fileFormat(net) {}
    int ReadNetwork(const char*) override { return 0; }
    int WriteNetwork(const char*) override { return 0; }
};

std::vector<VEK_token> Tokens(TextFormat& f, const std::string& text, int* status = nullptr) {
    f.SetInputText(text);
    std::vector<VEK_token> out;
    VEK_token t;
    int res;
    while ((res = f.GetToken(t)) == VEK_OKAY) out.push_back(t);
    if (status) *status = res;
    return out;
}

// Text, line and column of each token.
using Spots = std::vector<std::tuple<std::string, int, int>>;
Spots SpotsOf(const std::vector<VEK_token>& tokens) {
    Spots out;
    for (const VEK_token& t : tokens) out.emplace_back(t.text, t.line, t.column);
    return out;
}

}  // namespace

// ---------------------------------------------------------------- choosing the format

TEST(FormatSelection, ExtensionsPickTheirFormatWhateverTheCase) {
    struct Case {
        const char* path;
        int format;
    } cases[] = {
        {"model.xvek", 8},      {"model.XVEK", 8}, {"model.Xvek", 8},     {"a/b.c/model.qvek", 8},
        {"model.erg", 1},       {"model.DNE", 2},  {"model.dsc", 3},      {"archive.tar.vek", 4},
        {"model.net", 5},       {"model.bif", 6},  {"model.dxp", 7},      {"model.Net", 5},
    };
    for (const Case& c : cases) {
        const VEK_formatInfo* info = VEK_findFormatByExtension(c.path);
        ASSERT_NE(info, nullptr) << c.path;
        EXPECT_EQ(info->number, c.format) << c.path;
    }
    for (const char* path : {"model", "model.txt", "model.", "dir.xvek/model", "model.xvek.bak", ""}) {
        EXPECT_EQ(VEK_findFormatByExtension(path), nullptr) << path;
    }
}

TEST(FormatSelection, CreateFileFormatWritesTheChosenNumberBack) {
    VEK_network net;
    int format = 0;
    std::unique_ptr<VEK_fileFormat> s(net.CreateFileFormat("m.XVEK", format));
    EXPECT_NE(s, nullptr);
    EXPECT_EQ(format, 8);

    // No extension, or an unknown one: -2 in the argument and in the log.
    for (const char* path : {"model", "model.txt"}) {
        net.Logger().Clear();
        format = 0;
        EXPECT_EQ(net.CreateFileFormat(path, format), nullptr);
        EXPECT_EQ(format, -2);
        EXPECT_EQ(net.Logger().GetLastError(), -2);
        EXPECT_STREQ(net.Logger().GetLastErrorMessage(), "Unknown File Format");
    }
    // A number out of range leaves the argument as it was.
    for (int bad : {9, 10, -1, 100}) {
        net.Logger().Clear();
        format = bad;
        EXPECT_EQ(net.CreateFileFormat("m.xvek", format), nullptr);
        EXPECT_EQ(format, bad);
        EXPECT_STREQ(net.Logger().GetLastErrorMessage(), "Unknown File Format");
    }
    // A number from 1 to 8 wins over the extension.
    format = 8;
    std::unique_ptr<VEK_fileFormat> x(net.CreateFileFormat("model.net", format));
    EXPECT_NE(dynamic_cast<VEK_xvekSpeaker*>(x.get()), nullptr);
    EXPECT_EQ(format, 8);
}

TEST(FormatSelection, FormatEightReadsAnyNameAndNineWritesNothing) {
    VEK_network net;
    testnet::RandomNetwork(net, 3);
    const std::string txt = testing::TempDir() + "model.txt";
    ASSERT_EQ(net.WriteFile(txt.c_str(), 8), 0) << LogText(net);
    VEK_network back;
    EXPECT_EQ(back.ReadFile(txt.c_str()), -2);  // .txt says nothing
    ASSERT_EQ(back.ReadFile(txt.c_str(), 8), 0) << LogText(back);
    EXPECT_EQ(testnet::Describe(back), testnet::Describe(net));
    std::remove(txt.c_str());

    const std::string nine = testing::TempDir() + "nine.uai";
    std::remove(nine.c_str());
    EXPECT_EQ(net.WriteFile(nine.c_str(), 9), -2);
    EXPECT_FALSE(Exists(nine));
    const std::string none = testing::TempDir() + "noext";
    EXPECT_EQ(net.WriteFile(none.c_str()), -2);
    EXPECT_FALSE(Exists(none));
}

TEST(FormatSelection, StringsAlwaysUseTheXmlFormat) {
    VEK_network net;
    testnet::RandomNetwork(net, 9);
    std::string out = "previous content";
    ASSERT_EQ(net.WriteString(out), 0);
    EXPECT_EQ(out.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n", 0), 0u) << out.substr(0, 80);
    VEK_network back;
    ASSERT_EQ(back.ReadString(out.c_str()), 0) << LogText(back);
    EXPECT_EQ(testnet::Describe(back), testnet::Describe(net));
    // Text that is no network document fails and changes nothing.
    const std::string before = testnet::Describe(back);
    EXPECT_EQ(back.ReadString("net { }"), VEK_FILE_IO_FAILED);
    EXPECT_EQ(back.ReadString(nullptr), VEK_FILE_IO_FAILED);
    EXPECT_EQ(testnet::Describe(back), before);
}

TEST(FormatSelection, ReadMessagesReachARedirectedLogger) {
    VEK_network net;
    VEK_logger sink;
    net.Logger().RedirectToLogger(&sink);
    EXPECT_EQ(net.ReadString("<quarn version=\"2\" id=\"x\"/>"), VEK_FILE_IO_FAILED);
    EXPECT_EQ(net.Logger().GetErrorCount(), 0);
    ASSERT_GE(sink.GetErrorCount(), 1);
    EXPECT_NE(std::string(sink.GetLastErrorMessage()).find("Invalid version number"), std::string::npos);
    // And the redirection survives a successful read.
    EXPECT_EQ(net.ReadString("<quarn version=\"1\" id=\"x\"><bogus/></quarn>"), 0);
    EXPECT_TRUE(net.Logger().IsRedirected());
    EXPECT_EQ(net.Logger().GetErrorCount(), 0);
}

// ---------------------------------------------------------------- the lexer

TEST(Tokenizer, CommentsWhitespaceLineEndsAndBom) {
    VEK_network net;
    TextFormat f(net);
    // A lone CR ends a line too.
    EXPECT_EQ(SpotsOf(Tokens(f, "\xEF\xBB\xBFnet // note\r\n{ /* a\r\nb */ x\r\ty\n}")),
              (Spots{{"net", 1, 1}, {"{", 2, 1}, {"x", 3, 6}, {"y", 4, 2}, {"}", 5, 1}}));

    // Other comment styles, nested block comments, columns in characters.
    f.Tokenizer().Syntax().lineComments = {"%", "#"};
    f.Tokenizer().Syntax().blockComments = {{"(*", "*)"}};
    f.Tokenizer().Syntax().nestedBlockComments = true;
    EXPECT_EQ(SpotsOf(Tokens(f, "a % one\n# two\n(* x (* y *) z *) \xC3\xA9t\xC3\xA9 b")),
              (Spots{{"a", 1, 1}, {"\xC3\xA9t\xC3\xA9", 3, 19}, {"b", 3, 23}}));
}

TEST(Tokenizer, NumbersInEveryCForm) {
    VEK_network net;
    TextFormat f(net);
    struct Case {
        const char* text;
        double value;
        bool integer;
    } cases[] = {
        {"12", 12, true},        {"-3", -3, true},          {"+4", 4, true},        {"0x1F", 31, true},
        {"0b101", 5, true},      {"1.5", 1.5, false},       {".5", 0.5, false},     {"5.", 5, false},
        {"1e-3", 0.001, false},  {"2E+2", 200, false},      {"0x1.8p3", 12, false}, {"10u", 10, true},
        {"7UL", 7, true},        {"2.5f", 2.5, false},      {"017", 17, true},      {"-0.25", -0.25, false},
        {"99999999999999999999", 1e20, false},
    };
    for (const Case& c : cases) {
        auto t = Tokens(f, c.text);
        ASSERT_EQ(t.size(), 1u) << c.text;
        EXPECT_TRUE(t[0].IsNumber()) << c.text;
        EXPECT_EQ(t[0].text, c.text);
        EXPECT_DOUBLE_EQ(t[0].number, c.value) << c.text;
        EXPECT_EQ(t[0].isInteger, c.integer) << c.text;
    }
    f.Tokenizer().Syntax().octalIntegers = true;
    EXPECT_EQ(Tokens(f, "017")[0].integer, 15);
    EXPECT_EQ(Tokens(f, "-9223372036854775808")[0].integer, INT64_MIN);
    // Runs that start with a digit but are no number are words.
    f.Tokenizer().Syntax().octalIntegers = false;
    auto t = Tokens(f, "0_8mmol 1st 3.5.6 a-1 x.5");
    std::vector<std::string> texts;
    for (auto& k : t) texts.push_back(k.text);
    EXPECT_EQ(texts, (std::vector<std::string>{"0_8mmol", "1st", "3.5", ".6", "a", "-1", "x", ".5"}));
    EXPECT_TRUE(t[0].IsWord());
    EXPECT_TRUE(t[5].IsNumber());
}

TEST(Tokenizer, StringsWithEscapesAndSymbols) {
    VEK_network net;
    TextFormat f(net);
    f.Tokenizer().Syntax().symbols = {"->", "<=", "=="};
    auto t = Tokens(f, "\"a\\n\\t\\\"b\\\\\\x41\\101\\u20AC\\q\" -> <= < == = 'x'");
    ASSERT_EQ(t.size(), 9u);
    EXPECT_TRUE(t[0].IsString());
    // ' is no quote unless the syntax says so.
    std::vector<std::string> texts;
    for (const VEK_token& k : t) texts.push_back(k.text);
    EXPECT_EQ(texts, (std::vector<std::string>{"a\n\t\"b\\AA\xE2\x82\xAC" "q", "->", "<=", "<", "==", "=", "'", "x", "'"}));
    f.Tokenizer().Syntax().quotes = "\"'";
    f.Tokenizer().Syntax().doubledQuoteEscape = true;
    t = Tokens(f, "'it''s' \"two\nlines\" x");
    ASSERT_EQ(t.size(), 3u);
    EXPECT_EQ(t[0].text, "it's");
    EXPECT_EQ(t[1].text, "two\nlines");
    EXPECT_EQ(t[2].line, 2);

    // Every byte string survives AppendQuoted and the lexer.
    std::mt19937 gen(1);
    f.Tokenizer().Syntax() = VEK_tokenSyntax();
    for (int i = 0; i < 200; ++i) {
        std::string s;
        for (int k = std::uniform_int_distribution<int>(0, 20)(gen); k > 0; --k) {
            s += static_cast<char>(std::uniform_int_distribution<int>(1, 255)(gen));
        }
        std::string quoted;
        VEK_fileFormat::AppendQuoted(quoted, s);
        auto q = Tokens(f, quoted);
        ASSERT_EQ(q.size(), 1u) << quoted;
        EXPECT_EQ(q[0].text, s);
    }
}

TEST(Tokenizer, LexicalErrorsArePositionedAndLogged) {
    struct Case {
        const char* text;
        const char* message;
    } cases[] = {
        {"a\n  \"open", "Error at 2, 3: Unterminated string"},
        {"a /* never closed", "Error at 1, 3: Unterminated comment"},
        {"a \x01", "Error at 1, 3: Unexpected control character"},
    };
    for (const Case& c : cases) {
        VEK_network net;
        TextFormat f(net);
        int status = 0;
        Tokens(f, c.text, &status);
        EXPECT_EQ(status, VEK_LEXICAL_ERROR) << c.text;
        EXPECT_STREQ(net.Logger().GetLastErrorMessage(), c.message);
        EXPECT_EQ(net.Logger().GetLastError(), VEK_LEXICAL_ERROR);
    }
}

// ---------------------------------------------------------------- the helpers

TEST(FileFormatHelpers, BlocksFieldsAndMatching) {
    VEK_network net;
    TextFormat f(net);
    f.SetFileName("model.net");
    f.SetInputText(
        "node A { label = \"The A\"; states = (\"y\" \"n\"); position = (10 20); }\n"
        "potential (A | B C) { data = ((0.1 0.9) (0.2 0.8)); extra { deep { } } }\n"
        "node");
    VEK_token keyword;
    std::vector<VEK_token> header;
    ASSERT_EQ(f.ReadStartBlock(keyword, header), 0);
    EXPECT_TRUE(keyword.Is("node"));
    ASSERT_EQ(header.size(), 1u);
    EXPECT_TRUE(header[0].Is("A"));
    std::string name;
    std::vector<VEK_token> value;
    std::vector<std::string> names;
    int res;
    while ((res = f.ReadField(name, value)) == 0) names.push_back(name + ":" + std::to_string(value.size()));
    EXPECT_EQ(res, VEK_BLOCK_END);
    EXPECT_EQ(names, (std::vector<std::string>{"label:1", "states:4", "position:4"}));

    ASSERT_EQ(f.ReadStartBlock(keyword, header), 0);
    EXPECT_EQ(header.size(), 6u);  // ( A | B C )
    ASSERT_EQ(f.ReadField(name, value), 0);
    EXPECT_EQ(value.size(), 10u);
    double d = 0;
    VEK_token extra;
    ASSERT_EQ(f.GetToken(extra), 0);
    ASSERT_EQ(f.Match("{"), 0);
    EXPECT_EQ(f.SkipBlock(), 0);  // skips "deep { } }"
    EXPECT_TRUE(f.TryMatch("}"));
    EXPECT_FALSE(f.TryMatch("}"));
    EXPECT_EQ(f.GetDouble(d), VEK_SYNTAX_ERROR);
    EXPECT_STREQ(net.Logger().GetLastErrorMessage(),
                 "Error at 3, 1 while loading model.net: Number expected but found 'node'");
    EXPECT_EQ(f.ReadStartBlock(keyword, header), VEK_NO_MORE_TOKENS);

    f.SetInputText("{ x ");
    EXPECT_EQ(f.Match("{"), 0);
    EXPECT_EQ(f.SkipBlock(), VEK_UNEXPECTED_EOF);
    f.SetInputText("net [ ]");
    EXPECT_EQ(f.ReadStartBlock(keyword, header), VEK_UNEXPECTED_EOF);
    EXPECT_STREQ(net.Logger().GetLastErrorMessage(),
                 "Error at 1, 8 while loading model.net: Expected '{' but found end of file");
    f.SetInputText("{ ( } )");
    f.Match("{");
    EXPECT_EQ(f.SkipBlock(), VEK_SYNTAX_ERROR);
    EXPECT_STREQ(net.Logger().GetLastErrorMessage(),
                 "Error at 1, 5 while loading model.net: Expected ')' but found '}'");
}

TEST(FileFormatHelpers, NumbersAndWords) {
    VEK_network net;
    TextFormat f(net);
    f.SetInputText("42 -7 3.5 inf -nan 1e400 word \"str\" 4294967296");
    int i = 0;
    long long ll = 0;
    double d = 0;
    std::string s;
    EXPECT_EQ(f.GetInteger(i), 0);
    EXPECT_EQ(i, 42);
    EXPECT_EQ(f.GetInteger(ll), 0);
    EXPECT_EQ(ll, -7);
    EXPECT_EQ(f.GetInteger(i), VEK_SYNTAX_ERROR);  // 3.5
    EXPECT_EQ(f.GetDouble(d), 0);
    EXPECT_TRUE(std::isinf(d));
    EXPECT_EQ(f.GetDouble(d), 0);
    EXPECT_TRUE(std::isnan(d));
    EXPECT_EQ(f.GetDouble(d), 0);
    EXPECT_TRUE(std::isinf(d));
    EXPECT_EQ(f.GetWord(s), 0);
    EXPECT_EQ(s, "word");
    EXPECT_EQ(f.GetString(s), 0);
    EXPECT_EQ(s, "str");
    EXPECT_EQ(f.GetInteger(i), VEK_SYNTAX_ERROR);  // does not fit an int
    EXPECT_EQ(f.GetInteger(i), VEK_UNEXPECTED_EOF);
}

TEST(FileFormatHelpers, ComposedMessages) {
    EXPECT_EQ(VEK_fileFormat::ComposeErrorMessage1("Unknown node '%s'", "X"), "Unknown node 'X'");
    EXPECT_EQ(VEK_fileFormat::ComposeErrorMessage2("%s of %s at 100%%", "a", "b"), "a of b at 100%");
    EXPECT_EQ(VEK_fileFormat::ComposeErrorMessage2("%s %s %s %d", "a", nullptr), "a   %d");
    VEK_network net;
    TextFormat f(net);
    EXPECT_EQ(f.LogFileReadingError(-127, "bad", 4, 9), -127);
    EXPECT_STREQ(net.Logger().GetLastErrorMessage(), "Error at 4, 9: bad");
}

TEST(FileFormatHelpers, ListsAndOutput) {
    VEK_network net;
    TextFormat f(net);
    std::string out;
    f.SetOutputString(out);
    const double values[] = {0.1, 1.0 / 3, 1e-5, -2.5, 0.30000000000000004};
    f.WriteDoubleList(values, 5);
    f.Out().Write("\n");
    VEK_listStyle style;
    style.separator = ", ";
    style.perLine = 2;
    style.lineStart = "  ";
    const int ints[] = {1, -2, 3, 4, 5};
    f.WriteIntList(ints, 5, style);
    f.Out().Write("\n");
    style.quoted = true;
    style.perLine = 0;
    f.WriteStringList(std::vector<std::string>{"a b", "q\"t", "n\nl"}, style);
    f.Out().Printf(" %d-%s", 7, "x");
    ASSERT_EQ(f.CloseOutput(), 0);
    EXPECT_EQ(out,
              "0.1 0.3333333333333333 1e-05 -2.5 0.3\n"
              "1, -2,\n  3, 4,\n  5\n"
              "\"a b\", \"q\\\"t\", \"n\\nl\" 7-x");
}
