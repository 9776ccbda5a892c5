#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "network/logger.h"
#include "network/status.h"
#include "xml/xmlReader.h"

namespace {

// Records every event of a schema as text: "<a" on start, "/a" (plus ":" and
// the content when there is some) on end, "a=item" per list item.
class Schema {
public:
    struct Element {
        Schema* schema;
        std::string name;
        void Start(IXmlReader* r) {
            schema->log.push_back("<" + name);
            if (schema->onStart) schema->onStart(r, name);
        }
        void End(IXmlReader* r) {
            const std::string& c = r->GetContent();
            schema->log.push_back("/" + name + (c.empty() ? "" : ":" + c));
        }
        void Item(IXmlReader* r) {
            schema->log.push_back(name + "=" + r->GetContent());
            if (schema->onItem) schema->onItem(r, name);
        }
    };

    XmlBinding* Add(const char* name, int mode = XmlModeInherit, bool list = false) {
        elements_.push_back(std::make_unique<Element>(Element{this, name}));
        auto* b = new XmlHandler<Element>(elements_.back().get(), name, &Element::Start, &Element::End,
                                          list ? &Element::Item : nullptr, mode);
        bindings_.push_back(b);
        return b;
    }
    ~Schema() {
        for (IXmlBinding* b : bindings_) b->Delete();
    }

    std::vector<std::string> log;
    std::function<void(IXmlReader*, const std::string&)> onStart, onItem;

private:
    std::vector<std::unique_ptr<Element>> elements_;
    std::vector<IXmlBinding*> bindings_;
};

struct Errors : IXmlErrorHandler {
    void OnParseError(const char* message, int l, int c) override {
        errors.push_back(message);
        line = l;
        column = c;
    }
    void OnUnknownElement(const char* e, const char* parent, int, int) override {
        warnings.push_back(std::string("element ") + e + " in " + parent);
    }
    void OnUnknownAttribute(const char* e, const char* a, int, int) override {
        warnings.push_back(std::string("attribute ") + a + " in " + e);
    }
    std::vector<std::string> errors, warnings;
    int line = -1, column = -1;
};

using Log = std::vector<std::string>;

// root (mode given) > a (required, attribute id required, optional n), b (repeatable list)
struct Fixture {
    explicit Fixture(int rootMode = XmlModeLenient) {
        root = schema.Add("root", rootMode);
        a = schema.Add("a");
        b = schema.Add("b", XmlModeInherit, true);
        root->AddChild(a, XmlChildRequired);
        root->AddChild(b, XmlChildMayRepeat);
        a->AddAttribute("id", true);
        a->AddAttribute("n", false);
    }
    bool Parse(const std::string& text) { return reader.ParseString(text.c_str(), root, &errors); }
    Schema schema;
    XmlBinding *root, *a, *b;
    XmlReader reader;
    Errors errors;
};

TEST(XmlReader, DeliversEventsContentAndListItems) {
    Fixture f;
    std::string id;
    f.schema.onStart = [&](IXmlReader* r, const std::string& name) {
        if (name == "a") r->GetAttribute("id", id);
    };
    // A character reference and an entity inside an item continue it.
    EXPECT_TRUE(f.Parse("<root><a id='x&amp;y'>te&lt;xt</a><b> 1 2\n 3</b><b>4&#x35;6 &amp;7</b></root>"));
    EXPECT_TRUE(f.errors.errors.empty());
    EXPECT_EQ(id, "x&y");
    EXPECT_EQ(f.schema.log, (Log{"<root", "<a", "/a:te<xt", "<b", "b=1", "b=2", "b=3", "/b", "<b", "b=456", "b=&7",
                                 "/b", "/root"}));
}

TEST(XmlReader, ListItemsStraddlingChunkBoundaryAreDeliveredWhole) {
    // Shift the list across the 4096-byte boundary so that it falls inside
    // a token, on a separator, at a token start and at a token end.
    for (int shift = 0; shift < 24; ++shift) {
        Fixture f;
        std::string prefix = "<root><a id='1'>" + std::string(4096 - 30 + shift, 'p') + "</a><b>";
        std::string doc = prefix + "11 2222222222  333\t4444444444444444 5</b></root>";
        ASSERT_TRUE(f.Parse(doc)) << shift;
        Log items(f.schema.log.begin() + 4, f.schema.log.end() - 2);
        EXPECT_EQ(items, (Log{"b=11", "b=2222222222", "b=333", "b=4444444444444444", "b=5"})) << shift;
    }
}

TEST(XmlReader, UnknownRootAndSyntaxErrorsArePositioned) {
    Fixture f;
    EXPECT_FALSE(f.Parse("<?xml version='1.0'?>\n<other/>"));
    EXPECT_EQ(f.errors.errors, Log{"Unknown root element 'other', expected 'root'"});
    EXPECT_EQ(f.errors.line, 2);
    EXPECT_TRUE(f.schema.log.empty());

    Fixture g;
    EXPECT_FALSE(g.Parse("<root>\n  <a id='1'></b></root>"));
    ASSERT_EQ(g.errors.errors.size(), 1u);
    EXPECT_EQ(g.errors.errors[0], "mismatched tag");
    EXPECT_EQ(g.errors.line, 2);
    EXPECT_EQ(g.errors.column, 14);
}

TEST(XmlReader, LenientModeSkipsUnknownSubtreeWithOneWarning) {
    Fixture f;
    // The unknown element holds known names, bad attributes and repeats: all skipped silently.
    EXPECT_TRUE(f.Parse("<root><x q='1'><a/><a><b>9</b></a></x><a id='1' extra='2'/></root>"));
    EXPECT_TRUE(f.errors.errors.empty());
    EXPECT_EQ(f.errors.warnings, (Log{"element x in root", "attribute extra in a"}));
    EXPECT_EQ(f.schema.log, (Log{"<root", "<a", "/a", "/root"}));
}

TEST(XmlReader, ValidationErrors) {
    struct Case {
        int rootMode;
        const char* doc;
        const char* error;
    } cases[] = {
        {XmlModeLenient, "<root><a id='1'/><a id='2'/></root>", "Multiple occurences of 'a' not allowed in 'root'"},
        {XmlModeLenient, "<root><b/></root>", "Required element 'a' not present in element 'root'"},
        {XmlModeLenient, "<root><a n='1'/></root>", "Required attribute 'id' not found in element 'a'"},
        {XmlModeStrictAttributes, "<root><a id='1' z='2'/></root>", "Unknown attribute 'z' in element 'a'"},
        {XmlModeStrictChildren, "<root><a id='1'/><z/></root>", "Unknown element 'z' in 'root'"},
        // The document element inherits the strict mode.
        {XmlModeInherit, "<root z='1'><a id='1'/></root>", "Unknown attribute 'z' in element 'root'"},
    };
    for (const Case& c : cases) {
        Fixture f(c.rootMode);
        EXPECT_FALSE(f.Parse(c.doc)) << c.doc;
        EXPECT_EQ(f.errors.errors, Log{c.error}) << c.doc;
        EXPECT_TRUE(f.errors.warnings.empty()) << c.doc;
        EXPECT_GE(f.errors.line, 1) << c.doc;
    }
}

TEST(XmlReader, ModesInheritDownTheTree) {
    // root strict on attributes only; a inherits it; c (under a) is lenient
    // and d (under c) inherits leniency.
    Fixture f(XmlModeStrictAttributes);
    XmlBinding* c = f.schema.Add("c", XmlModeLenient);
    XmlBinding* d = f.schema.Add("d");
    f.a->AddChild(c, 0);
    c->AddChild(d, 0);
    EXPECT_TRUE(f.Parse("<root><a id='1'><c u='1'><d v='2'><w/></d></c></a><y/></root>"));
    EXPECT_EQ(f.errors.warnings, (Log{"attribute u in c", "attribute v in d", "element w in d", "element y in root"}));

    Fixture g(XmlModeStrictAttributes);
    EXPECT_FALSE(g.Parse("<root><a id='1' u='1'/></root>"));
    EXPECT_EQ(g.errors.errors, Log{"Unknown attribute 'u' in element 'a'"});
}

TEST(XmlReader, TypedAttributes) {
    struct Case {
        const char* value;
        char type;  // i, d or b
        bool ok;
        double expected;
    } cases[] = {
        {"12abc", 'i', true, 12}, {"10x", 'i', true, 10},  {"-7", 'i', true, -7},  {"0", 'i', true, 0},
        {"abc", 'i', false, 0},   {"0x10", 'i', false, 0}, {"2.5e1z", 'd', true, 25}, {"0.0", 'd', true, 0},
        {"-0.125", 'd', true, -0.125}, {"abc", 'd', false, 0}, {"0,5", 'd', false, 0},
        {"true", 'b', true, 1},   {"false", 'b', true, 0}, {"True", 'b', false, 0}, {"1", 'b', false, 0},
        // Absent: the defaults.
        {nullptr, 'i', true, 99}, {nullptr, 'd', true, 99}, {nullptr, 'b', true, 1},
    };
    const char* messages[] = {"Integer value expected for attribute 'n'",
                              "Floating point value expected for attribute 'n'",
                              "'true' or 'false' expected as value of boolean attribute 'n'"};
    for (const Case& c : cases) {
        const char* what = c.value ? c.value : "absent";
        Fixture f;
        double got = -1;
        bool result = false;
        f.schema.onStart = [&](IXmlReader* r, const std::string& name) {
            if (name != "a") return;
            int i;
            double d;
            bool b;
            if (c.type == 'i') result = r->GetAttribute("n", i, 99), got = i;
            if (c.type == 'd') result = r->GetAttribute("n", d, 99.0), got = d;
            if (c.type == 'b') result = r->GetAttribute("n", b, true), got = b;
        };
        bool parsed = f.Parse(c.value ? std::string("<root><a id='1' n='") + c.value + "'/></root>" : "<root><a id='1'/></root>");
        EXPECT_EQ(result, c.ok) << what;
        EXPECT_EQ(parsed, c.ok) << what;
        if (c.ok) {
            EXPECT_EQ(got, c.expected) << what;
        } else {
            int k = c.type == 'i' ? 0 : c.type == 'd' ? 1 : 2;
            EXPECT_EQ(f.errors.errors, Log{messages[k]}) << what;
        }
    }
}

TEST(XmlReader, DoubleParsingMatchesCStrtodInAnyLocale) {
    // Inputs, with the results of strtod in the "C" locale as reference.
    std::vector<std::string> inputs = {"0.5", " 1e-3x", "+2.25", "-0x1p4", "1e400", "1e-400", "nan", "-inf", "+-1",
                                       ".", "7,5", "", "0x", "1e", "infinity", "1.7976931348623157e308",
                                       "0." + std::string(200, '0') + "15", "1" + std::string(300, '0') + "x"};
    std::mt19937 rng(7);
    const char alphabet[] = "0123456789.eE+-xXpPinfa ,";
    for (int k = 0; k < 20000; ++k) {
        std::string text;
        for (int len = 1 + rng() % 12; len > 0; --len) text += alphabet[rng() % (sizeof alphabet - 1)];
        inputs.push_back(text);
    }
    std::vector<double> values;
    std::vector<long> consumed;
    for (const std::string& text : inputs) {
        char* end = nullptr;
        values.push_back(std::strtod(text.c_str(), &end));
        consumed.push_back(end - text.c_str());
    }
    // A decimal-comma locale, where one is installed, must not change the reading.
    std::string saved = std::setlocale(LC_NUMERIC, nullptr);
    if (!std::setlocale(LC_NUMERIC, "de_DE.UTF-8")) std::setlocale(LC_NUMERIC, "fr_FR.UTF-8");
    for (size_t k = 0; k < inputs.size(); ++k) {
        char* end = nullptr;
        double v = XmlParseDouble(inputs[k].c_str(), &end);
        if (std::isnan(values[k])) {
            EXPECT_TRUE(std::isnan(v)) << inputs[k];
        } else {
            EXPECT_EQ(v, values[k]) << inputs[k];
            EXPECT_EQ(std::signbit(v), std::signbit(values[k])) << inputs[k];
        }
        EXPECT_EQ(end - inputs[k].c_str(), consumed[k]) << inputs[k];
    }
    std::setlocale(LC_NUMERIC, saved.c_str());
}

TEST(XmlReader, UnescapedContent) {
    Fixture f;
    std::string out;
    struct Grab : IXmlHandler {
        std::string* out;
        void OnStartElement(IXmlReader*) override {}
        void OnEndElement(IXmlReader* r) override { r->GetUnescapedContent(*out); }
    } grab;
    grab.out = &out;
    XmlBinding* u = f.reader.CreateBinding(&grab, "u", XmlModeInherit);
    f.root->AddChild(u, 0);
    EXPECT_TRUE(f.Parse(R"(<root><a id='1'/><u>a\tb\nc\\d\qe\</u></root>)"));
    EXPECT_EQ(out, "a\tb\nc\\dqe\\");
    u->Delete();
}

TEST(XmlReader, StopParseFromHandlersEndsTheParse) {
    Fixture f;
    f.schema.onItem = [](IXmlReader* r, const std::string&) {
        if (r->GetContent() == "stop") r->StopParse("semantic fault");
    };
    EXPECT_FALSE(f.Parse("<root><a id='1'/>\n<b>1 stop 2</b><b>3</b></root>"));
    EXPECT_EQ(f.errors.errors, Log{"semantic fault"});
    EXPECT_EQ(f.errors.line, 2);
    EXPECT_EQ(f.schema.log.back(), "b=stop");

    // Without an error handler nothing is reported, but the parse still fails.
    Fixture g;
    EXPECT_FALSE(g.reader.ParseString("<root><a id='1'/><a id='2'/></root>", g.root, nullptr));
    // The reader is reusable after a failure.
    EXPECT_TRUE(g.Parse("<root><a id='1'/></root>"));
}

TEST(XmlReader, ErrorHandlerLogsPositionedMessages) {
    Fixture f;
    VEK_logger logger;
    XmlErrorHandler handler;
    handler.Init("net.xvek", &logger);
    EXPECT_TRUE(f.reader.ParseString("<root>\n <q/><a id='1' z='0'/></root>", f.root, &handler));
    handler.CheckAndDisplayNewVerWarning();
    ASSERT_EQ(logger.GetErrorCount(), 3);
    EXPECT_EQ(std::string(logger.GetErrorMessage(0)), "Warning: Ignored unknown element 'q' at 2, 1 while loading net.xvek");
    EXPECT_EQ(std::string(logger.GetErrorMessage(1)), "Warning: Ignored unknown attribute 'z' in 'a' at 2, 5 while loading net.xvek");
    EXPECT_EQ(std::string(logger.GetErrorMessage(2)),
              std::string("XML contains unknown elements and/or attributes. ") + GetDownloadNewVersionMessage());
    for (int k = 0; k < 3; ++k) EXPECT_EQ(logger.GetError(k), VEK_FILE_READ_ERROR);

    logger.Clear();
    handler.Init(nullptr, &logger);  // a string: no file name; the flag is cleared
    EXPECT_FALSE(f.reader.ParseString("<root/>", f.root, &handler));
    handler.CheckAndDisplayNewVerWarning();
    ASSERT_EQ(logger.GetErrorCount(), 1);
    EXPECT_EQ(logger.GetError(0), VEK_FILE_IO_FAILED);
    EXPECT_EQ(std::string(logger.GetErrorMessage(0)), "Error at 1, 7: Required element 'a' not present in element 'root'");
}

// Bad input of every kind ends with false and exactly one positioned error.
TEST(XmlReaderFuzz, TruncatedDocuments) {
    std::string doc =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root>\n\t<a id=\"x&amp;1\" n=\"3\">text &lt; more</a>\n"
        "\t<b>0.1 0.2 0.3 0.4</b>\n\t<!-- comment -->\n\t<b>5 6</b>\n</root>\n";
    Fixture whole;
    ASSERT_TRUE(whole.Parse(doc));
    for (size_t n = 0; n + 1 < doc.size(); ++n) {
        Fixture f;
        EXPECT_FALSE(f.Parse(doc.substr(0, n))) << n;
        ASSERT_EQ(f.errors.errors.size(), 1u) << n;
        EXPECT_FALSE(f.errors.errors[0].empty());
        EXPECT_GE(f.errors.line, 1) << n;
    }
}

TEST(XmlReaderFuzz, GarbledBytes) {
    std::string doc = "<root><a id='1' n='2'>x</a><b>1 2 3</b><b/><q><r/></q></root>";
    std::mt19937 rng(12345);
    for (int iteration = 0; iteration < 3000; ++iteration) {
        std::string bad = doc;
        for (int k = 0; k < 1 + iteration % 4; ++k) bad[rng() % bad.size()] = static_cast<char>(rng() % 256);
        Fixture f;
        XmlInputStringStream stream(bad.data(), bad.data() + bad.size());  // NUL bytes included
        bool ok = f.reader.ParseStream(&stream, f.root, &f.errors);
        EXPECT_EQ(f.errors.errors.size(), ok ? 0u : 1u) << bad;
        if (!ok) {
            EXPECT_GE(f.errors.line, 1) << bad;
        }
    }
}

TEST(XmlReaderFuzz, HugeAttributeAndContent) {
    const size_t big = 10 * 1024 * 1024;
    Fixture f;
    size_t attrLength = 0;
    f.schema.onStart = [&](IXmlReader* r, const std::string& name) {
        std::string v;
        if (name == "a") r->GetAttribute("n", v), attrLength = v.size();
    };
    std::string doc = "<root><a id='1' n='" + std::string(big, 'v') + "'>" + std::string(big, 'c') + "</a></root>";
    EXPECT_TRUE(f.Parse(doc));
    EXPECT_EQ(attrLength, big);
    ASSERT_EQ(f.schema.log.size(), 4u);
    EXPECT_EQ(f.schema.log[2].size(), big + 3);  // "/a:" + content

    Fixture g;
    EXPECT_FALSE(g.Parse(doc.substr(0, big / 2)));
    EXPECT_EQ(g.errors.errors.size(), 1u);
}

TEST(XmlReaderFuzz, DeepNesting) {
    const int depth = 10000;
    std::string open, close;
    for (int k = 0; k < depth; ++k) open += "<n>", close += "</n>";
    // A schema where n may contain n: every level is validated and handled.
    Fixture f;
    XmlBinding* n = f.schema.Add("n");
    n->AddChild(n, XmlChildMayRepeat);
    f.root->AddChild(n, 0);
    EXPECT_TRUE(f.Parse("<root><a id='1'/>" + open + close + "</root>"));
    EXPECT_EQ(f.schema.log.size(), 2u * depth + 4);
    // Under an unknown element the whole depth is skipped with one warning.
    Fixture g;
    EXPECT_TRUE(g.Parse("<root><a id='1'/><z>" + open + close + "</z></root>"));
    EXPECT_EQ(g.errors.warnings.size(), 1u);
    Fixture h;
    EXPECT_FALSE(h.Parse("<root><a id='1'/>" + open + close.substr(4)));
    EXPECT_EQ(h.errors.errors.size(), 1u);
}

}  // namespace
