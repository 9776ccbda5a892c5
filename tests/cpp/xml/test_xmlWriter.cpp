#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "networkDescription.h"
#include "xml/xmlReader.h"
#include "xml/xmlWriter.h"

namespace {

struct StringWriter {
    StringWriter() : output(text), writer(&output) {}
    std::string text;
    XmlWriterStringOutput output;
    XmlWriter writer;
};

void WriteSample(XmlWriter& w) {
    w.Start(true);
    w.WriteComment("made by <test>");
    w.PushAttribute("id", "net&1");
    w.PushAttribute("n", 1000);
    w.PushAttribute("flag", false);
    w.PushAttribute("ok", true);
    w.PushAttribute("eps", 0.1);
    w.OpenElement("quarn");
    {
        IXmlWriter::ScopedElement nodes(&w, "nodes");
        w.PushAttribute("id", "s1");
        w.WriteElement("state", nullptr);
        const double na = 8.900295434028806e-308;
        double values[] = {0.25, 1.0 / 3, 2.5e-20, na, -0.0, 1e16};
        w.WriteDoubleArray("probabilities", values, 6, "n/a", na);
        int ints[] = {-2, 0, 2147483647};
        w.WriteIntArray("strengths", ints, 3);
        const char* strings[] = {"a", "b<"};
        w.WriteStringArray("parents", strings, 2);
        w.WriteElement("text", "tab\there", true);
        w.WriteElement("empty", "");
        w.WriteDoubleArray("none", nullptr, 0);
    }
    w.CloseElement("quarn");
}

const char* kSample =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!-- made by <test> -->\n"
    "<quarn id=\"net&amp;1\" n=\"1000\" flag=\"false\" ok=\"true\" eps=\"0.1\">\n"
    "\t<nodes>\n"
    "\t\t<state id=\"s1\" />\n"
    "\t\t<probabilities>0.25 0.3333333333333333 2.5e-20 n/a -0 1e+16</probabilities>\n"
    "\t\t<strengths>-2 0 2147483647</strengths>\n"
    "\t\t<parents>a b<</parents>\n"
    "\t\t<text>tab\\there</text>\n"
    "\t\t<empty></empty>\n"
    "\t\t<none></none>\n"
    "\t</nodes>\n"
    "</quarn>\n";

TEST(XmlWriter, SmallDocumentIsByteExact) {
    StringWriter s;
    WriteSample(s.writer);
    EXPECT_EQ(s.text, kSample);
    EXPECT_EQ(s.writer.GetIndentLevel(), 0);
    EXPECT_FALSE(s.writer.HasOutputFailed());
}

TEST(XmlWriter, EscapingTable) {
    const char* text = "a<b>c&d\"e'f\tg\nh\ri\\j\x01k\x7fl\xc3\xa9";
    StringWriter s;
    s.writer.WriteElement("p", text, false);
    s.writer.WriteElement("c", text, true);
    s.writer.PushAttribute("v", text);
    s.writer.WriteElement("a", nullptr);
    EXPECT_EQ(s.text,
              "<p>a&lt;b&gt;c&amp;d&quot;e&apos;f.g.h.i\\j.k\x7fl\xc3\xa9</p>\n"
              "<c>a&lt;b&gt;c&amp;d&quot;e&apos;f\\tg\\nhi\\\\j.k\x7fl\xc3\xa9</c>\n"
              "<a v=\"a&lt;b&gt;c&amp;d&quot;e&apos;f.g.h.i\\j.k\x7fl\xc3\xa9\" />\n");
}

TEST(XmlWriter, NumbersMatchPrintfFormat) {
    std::mt19937_64 rng(99);
    std::vector<double> values = {0.0, -0.0, 1.0, 0.1, 1e15, 1e16, 123456789012345678.0, 1e-5, 5e-324,
                                  std::numeric_limits<double>::max(), HUGE_VAL, -HUGE_VAL, NAN};
    for (int k = 0; k < 5000; ++k) {
        uint64_t bits = rng();
        double d;
        std::memcpy(&d, &bits, sizeof d);
        values.push_back(k % 2 ? d : std::ldexp(static_cast<double>(bits >> 11), -53 - static_cast<int>(k % 30)));
    }
    StringWriter s;
    s.writer.WriteDoubleArray("v", values.data(), static_cast<int>(values.size()), "special", NAN);
    std::string expected = "<v>";
    char buffer[64];
    for (size_t k = 0; k < values.size(); ++k) {
        std::snprintf(buffer, sizeof buffer, "%.16g", values[k]);
        if (k) expected += ' ';
        expected += buffer;
    }
    // NaN never equals the special value, so "special" never appears.
    EXPECT_EQ(s.text, expected + "</v>\n");

    StringWriter a;
    a.writer.PushAttribute("d", 2.0 / 3);
    a.writer.PushAttribute("i", -2147483647 - 1);
    a.writer.WriteElement("e", nullptr);
    EXPECT_EQ(a.text, "<e d=\"0.6666666666666666\" i=\"-2147483648\" />\n");
}

TEST(XmlWriter, StartVariants) {
    StringWriter s;
    s.writer.OpenElement("left");  // Start resets the indentation
    s.writer.StartWithXsl("style.xsl");
    s.writer.StartWithDTD("quarn", "quarn.dtd");
    s.writer.Start(false);
    s.writer.WriteElement("r", "x");
    EXPECT_EQ(s.text,
              "<left>\n"
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<?xml-stylesheet type=\"text/xsl\" href=\"style.xsl\"?>\n"
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE quarn SYSTEM \"quarn.dtd\">\n"
              "<r>x</r>\n");
}

struct FailingOutput : IXmlWriterOutput {
    bool WriteString(const char*) override { return false; }
    bool WriteChar(char) override { return false; }
};

TEST(XmlWriter, FileOutputAndFailures) {
    std::string path = ::testing::TempDir() + "xml_writer_out.xml";
    XmlWriterFileOutput file;
    ASSERT_TRUE(file.Open(path.c_str()));
    XmlWriter w(&file);
    WriteSample(w);
    EXPECT_FALSE(w.HasOutputFailed());
    EXPECT_TRUE(file.Close());
    EXPECT_FALSE(file.Close());
    EXPECT_EQ(testnet::ReadText(path), kSample);
    std::remove(path.c_str());

    EXPECT_FALSE(file.Open("/no/such/dir/out.xml"));
    EXPECT_FALSE(file.WriteString("x"));

    FailingOutput failing;
    XmlWriter bad(&failing);
    bad.WriteElement("a", "b");
    EXPECT_TRUE(bad.HasOutputFailed());
    XmlWriter none;
    none.WriteElement("a", "b");
    EXPECT_TRUE(none.HasOutputFailed());
}

// What the writer produces, the reader gets back.
TEST(XmlWriter, RoundTripThroughReader) {
    struct Loader {
        std::string attr, text;
        double number = 0;
        int count = 0;
        std::vector<double> items;
        void Start(IXmlReader* r) {
            r->GetAttribute("s", attr);
            EXPECT_TRUE(r->GetAttribute("d", number, 0.0));
            EXPECT_TRUE(r->GetAttribute("n", count, 0));
        }
        void Text(IXmlReader* r) { r->GetUnescapedContent(text); }
        void Item(IXmlReader* r) { items.push_back(XmlParseDouble(r->GetContent().c_str(), nullptr)); }
    } loader;
    XmlHandler<Loader> root(&loader, "root", &Loader::Start, nullptr, nullptr, XmlModeStrict);
    XmlHandler<Loader> text(&loader, "text", nullptr, &Loader::Text);
    XmlHandler<Loader> list(&loader, "list", nullptr, nullptr, &Loader::Item);
    root.AddAttribute("s", true);
    root.AddAttribute("d", true);
    root.AddAttribute("n", true);
    root.AddChild(&text, XmlChildRequired);
    root.AddChild(&list, XmlChildRequired);

    std::vector<double> values;
    for (int k = 0; k < 3000; ++k) {
        std::string decimal = std::to_string(k * 7919 - 9000) + "e" + std::to_string(k % 40 - 20);
        values.push_back(std::strtod(decimal.c_str(), nullptr));
    }
    const char* tricky = "tab\tnewline\nback\\slash <&> \"quoted\" 'single' \xe2\x82\xac";
    StringWriter s;
    s.writer.Start(true);
    s.writer.PushAttribute("s", tricky);
    s.writer.PushAttribute("d", -1.25e-300);
    s.writer.PushAttribute("n", 42);
    {
        IXmlWriter::ScopedElement e(&s.writer, "root");
        s.writer.WriteElement("text", tricky, true);
        s.writer.WriteDoubleArray("list", values.data(), static_cast<int>(values.size()));
    }
    XmlReader reader;
    XmlErrorHandler errors;
    ASSERT_TRUE(reader.ParseString(s.text.c_str(), &root, &errors));
    EXPECT_EQ(loader.text, tricky);
    EXPECT_EQ(loader.attr, "tab.newline.back\\slash <&> \"quoted\" 'single' \xe2\x82\xac");
    EXPECT_EQ(loader.number, -1.25e-300);
    EXPECT_EQ(loader.count, 42);
    EXPECT_EQ(loader.items, values);  // decimals of under 16 digits survive "%.16g"
}

}  // namespace
