#include "formats/xmlbifSpeaker.h"

#include <algorithm>
#include <memory>
#include <new>
#include <unordered_map>
#include <vector>

#include "formats/bifTextReader.h"
#include "formats/formatRegistry.h"
#include "formats/descLexer.h"
#include "network/discDef.h"
#include "network/network.h"
#include "xml/xmlHandler.h"
#include "xml/xmlReader.h"
#include "xml/xmlWriter.h"

VEK_fileFormat* VEK_createXmlbifSpeaker(VEK_network& net) { return new VEK_xmlbifSpeaker(net); }

namespace {

const char* const kRefusal = "ERROR: This Network cannot be saved in XMLBIF format";

std::string Trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return std::string();
    size_t e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}

// XML faults go to the speaker's positioned messages (columns 1-based, as
// in the text formats); unknown elements and attributes are skipped quietly,
// since tools add their own.
class ErrorForwarder : public IXmlErrorHandler {
public:
    explicit ErrorForwarder(VEK_fileFormat& fmt) : fmt_(fmt) {}
    void OnParseError(const char* message, int line, int column) override {
        fmt_.LogFileReadingError(VEK_FILE_READ_ERROR, message ? message : "", line, column + 1);
        reported_ = true;
    }
    bool Reported() const { return reported_; }
    void OnUnknownElement(const char*, const char*, int, int) override {}
    void OnUnknownAttribute(const char*, const char*, int, int) override {}

private:
    VEK_fileFormat& fmt_;
    bool reported_ = false;
};

class XmlbifLoader {
public:
    explicit XmlbifLoader(VEK_netDesc& desc) : desc_(desc) {}

    bool Parse(const std::string& text, IXmlErrorHandler& errors) {
        XmlReader reader;
        std::vector<std::unique_ptr<XmlBinding>> keep;
        auto make = [&](const char* name, Callback start, Callback end, Callback item = nullptr, int mode = XmlModeInherit) {
            keep.emplace_back(new XmlHandler<XmlbifLoader>(this, name, start, end, item, mode));
            return keep.back().get();
        };
        XmlBinding* bif = make("BIF", nullptr, nullptr, nullptr, XmlModeLenient);
        bif->AddAttribute("VERSION", false);
        XmlBinding* network = make("NETWORK", nullptr, nullptr);
        bif->AddChild(network, XmlChildRequired);
        network->AddChild(make("NAME", nullptr, &XmlbifLoader::OnNetworkName), 0);
        network->AddChild(make("PROPERTY", nullptr, &XmlbifLoader::OnNetworkProperty), XmlChildMayRepeat);

        XmlBinding* variable = make("VARIABLE", &XmlbifLoader::OnVariableStart, &XmlbifLoader::OnVariableEnd);
        variable->AddAttribute("TYPE", false);
        variable->AddChild(make("NAME", nullptr, &XmlbifLoader::OnVariableName), XmlChildRequired);
        XmlBinding* outcome = make("OUTCOME", nullptr, &XmlbifLoader::OnOutcome);
        variable->AddChild(outcome, XmlChildMayRepeat);
        // Older files call the outcomes VALUE.
        variable->AddChild(make("VALUE", nullptr, &XmlbifLoader::OnOutcome), XmlChildMayRepeat);
        variable->AddChild(make("PROPERTY", nullptr, &XmlbifLoader::OnVariableProperty), XmlChildMayRepeat);
        network->AddChild(variable, XmlChildMayRepeat);

        XmlBinding* definition = make("DEFINITION", &XmlbifLoader::OnDefinitionStart, &XmlbifLoader::OnDefinitionEnd);
        definition->AddChild(make("FOR", nullptr, &XmlbifLoader::OnFor), XmlChildRequired);
        definition->AddChild(make("GIVEN", &XmlbifLoader::OnGivenStart, &XmlbifLoader::OnGiven), XmlChildMayRepeat);
        definition->AddChild(make("TABLE", &XmlbifLoader::OnTableStart, nullptr, &XmlbifLoader::OnTableItem),
                             XmlChildMayRepeat);
        network->AddChild(definition, XmlChildMayRepeat);
        // Older files call the definitions PROBABILITY.
        XmlBinding* probability = make("PROBABILITY", &XmlbifLoader::OnDefinitionStart, &XmlbifLoader::OnDefinitionEnd);
        probability->AddChild(make("FOR", nullptr, &XmlbifLoader::OnFor), XmlChildRequired);
        probability->AddChild(make("GIVEN", &XmlbifLoader::OnGivenStart, &XmlbifLoader::OnGiven), XmlChildMayRepeat);
        probability->AddChild(make("TABLE", &XmlbifLoader::OnTableStart, nullptr, &XmlbifLoader::OnTableItem),
                              XmlChildMayRepeat);
        network->AddChild(probability, XmlChildMayRepeat);

        XmlInputStringStream stream(text.data(), text.data() + text.size());
        return reader.ParseStream(&stream, bif, &errors);
    }

private:
    using Callback = void (XmlbifLoader::*)(IXmlReader*);

    static VEK_descPos Position(IXmlReader* r) {
        VEK_descPos p;
        r->GetCurrentPosition(p.line, p.column);
        ++p.column;
        return p;
    }

    static void SplitProperty(IXmlReader* r, std::vector<std::pair<std::string, std::string>>& props) {
        std::string key, value;
        VEK_splitProperty(Trim(r->GetContent()), key, value);
        if (!key.empty()) props.emplace_back(key, value);
    }

    void OnNetworkName(IXmlReader* r) {
        desc_.hasName = true;
        desc_.name = Trim(r->GetContent());
    }
    void OnNetworkProperty(IXmlReader* r) { SplitProperty(r, desc_.properties); }

    void OnVariableStart(IXmlReader* r) {
        node_ = VEK_descNode();
        node_.pos = Position(r);
        std::string type;
        r->GetAttribute("TYPE", type);
        if (type.empty() || type == "nature") {
            node_.type = VEK_CPT;
        } else if (type == "decision") {
            node_.type = VEK_LIST;
        } else if (type == "utility") {
            node_.type = VEK_TABLE;
        } else {
            r->StopParse(("Unknown variable type '" + type + "'").c_str());
        }
    }
    void OnVariableName(IXmlReader* r) { node_.name = Trim(r->GetContent()); }
    void OnOutcome(IXmlReader* r) {
        // A utility variable has no states; some tools write one anyway.
        if (node_.type != VEK_TABLE) node_.states.push_back(Trim(r->GetContent()));
    }
    void OnVariableProperty(IXmlReader* r) {
        std::string text = Trim(r->GetContent());
        int x, y;
        if (VEK_parsePositionProperty(text, x, y)) {
            node_.hasPosition = true;
            node_.x = x;
            node_.y = y;
        } else {
            SplitProperty(r, node_.properties);
        }
    }
    void OnVariableEnd(IXmlReader*) {
        sizes_[node_.name] = node_.type == VEK_TABLE ? 1 : node_.states.size();
        desc_.nodes.push_back(std::move(node_));
    }

    void OnDefinitionStart(IXmlReader* r) {
        table_ = VEK_descTable();
        table_.pos = Position(r);
    }
    void OnFor(IXmlReader* r) { table_.child = Trim(r->GetContent()); }
    void OnGivenStart(IXmlReader* r) { givenPos_ = Position(r); }
    void OnGiven(IXmlReader* r) {
        table_.parents.push_back(Trim(r->GetContent()));
        table_.parentPos.push_back(givenPos_);
    }
    void OnTableStart(IXmlReader* r) {
        if (table_.hasValues) return;
        table_.valuesPos = Position(r);
        table_.hasValues = true;
        // The expected size, when the variables came first (as they should).
        double size = 1;
        auto child = sizes_.find(table_.child);
        if (child != sizes_.end()) size = static_cast<double>(child->second);
        for (const std::string& p : table_.parents) {
            auto it = sizes_.find(p);
            if (it != sizes_.end()) size *= static_cast<double>(it->second);
        }
        if (size <= (1 << 24)) table_.values.reserve(static_cast<size_t>(size));
    }
    void OnTableItem(IXmlReader* r) {
        double d;
        const std::string& item = r->GetContent();
        if (!VEK_parseNumber(item, d)) {
            r->StopParse(("Number expected in TABLE but found '" + item.substr(0, 64) + "'").c_str());
            return;
        }
        table_.values.push_back(d);
    }
    void OnDefinitionEnd(IXmlReader*) { desc_.tables.push_back(std::move(table_)); }

    VEK_netDesc& desc_;
    VEK_descNode node_;
    VEK_descTable table_;
    VEK_descPos givenPos_;
    std::unordered_map<std::string, size_t> sizes_;  // states of the variables read so far
};

// True when the text is XML: after a byte order mark and space, a '<'.
bool LooksLikeXml(const std::string& text) {
    size_t i = 0;
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) i = 3;
    if (text.size() >= 2 && ((text[0] == '\xFF' && text[1] == '\xFE') || (text[0] == '\xFE' && text[1] == '\xFF'))) {
        return true;  // UTF-16: only XML comes that way
    }
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\r' || text[i] == '\n')) ++i;
    return i < text.size() && text[i] == '<';
}

}  // namespace

void VEK_xmlbifSpeaker::SpecError(int code, const VEK_descPos& pos, const std::string& message) {
    LogFileReadingError(code, message, pos.line, pos.column);
}

int VEK_xmlbifSpeaker::ReadXml(const std::string& text, VEK_netDesc& desc) {
    ErrorForwarder errors(*this);
    XmlbifLoader loader(desc);
    if (!loader.Parse(text, errors)) {
        // Every failing parse reports itself; make sure of a message anyway.
        if (!errors.Reported()) LogFileReadingError(VEK_FILE_READ_ERROR, "Invalid XMLBIF document", 0, 0);
        return VEK_FILE_READ_ERROR;
    }
    return VEK_OKAY;
}

int VEK_xmlbifSpeaker::Read(std::string text) {
    try {
        VEK_netDesc desc;
        int res = LooksLikeXml(text) ? ReadXml(text, desc) : VEK_readTextBif(std::move(text), desc, *this);
        if (res < 0) return res;
        return VEK_buildNetwork(desc, Network(), *this);
    } catch (const std::bad_alloc&) {
        return LogFileReadingError(VEK_OUT_OF_MEMORY, "Out of memory while reading the file", 0, 0);
    }
}

int VEK_xmlbifSpeaker::ReadNetwork(const char* path) {
    std::string text;
    int res = ReadInputFile(path, text);
    if (res != VEK_OKAY) return res;
    return Read(std::move(text));
}

int VEK_xmlbifSpeaker::ReadNetworkFromString(const char* text) {
    SetFileName(nullptr);
    try {
        return Read(std::string(text ? text : ""));
    } catch (const std::bad_alloc&) {
        return LogFileReadingError(VEK_OUT_OF_MEMORY, "Out of memory while reading the text", 0, 0);
    }
}

int VEK_xmlbifSpeaker::CheckWritable() {
    // Chance nodes of every kind are written as their probability table.
    return CheckTablesOnly(kRefusal);
}

namespace {

// The name a node or state gets in the file (see VEK_foreignName); the id
// when the name would not survive XML text intact (outer spaces are
// trimmed on reading, control characters cannot be written).
std::string XmlName(const char* id, const char* name, char prefix) {
    std::string n = VEK_foreignName(id, name, prefix);
    if (n != Trim(n)) return id;
    for (char c : n)
        if (static_cast<unsigned char>(c) < 0x20) return id;
    return n;
}

// "key = value" survives when the key has no '=' and neither part has outer
// spaces or control characters.
bool WritableProperty(const std::string& key, const std::string& value) {
    if (key.empty() || key.find('=') != std::string::npos || key != Trim(key) || value != Trim(value)) return false;
    for (char c : key + value)
        if (static_cast<unsigned char>(c) < 0x20) return false;
    return key != "position";
}

void WriteProperties(XmlWriter& w, const VEK_userProperties& props) {
    for (const auto& p : props.Items()) {
        if (WritableProperty(p.first, p.second)) w.WriteElement("PROPERTY", (p.first + " = " + p.second).c_str());
    }
}

void WriteDocument(XmlWriter& w, VEK_network& net) {
    w.Start(true);
    w.PushAttribute("VERSION", "0.3");
    w.OpenElement("BIF");
    w.OpenElement("NETWORK");
    const char* netName = *net.Header().GetName() ? net.Header().GetName() : net.Header().GetId();
    w.WriteElement("NAME", XmlName(net.Header().GetId(), netName, 'n').c_str());
    WriteProperties(w, net.UserProperties());

    std::vector<std::string> names(static_cast<size_t>(net.GetSlotCount()));
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_node* node = net.GetNode(h);
        names[h] = XmlName(node->GetId(), node->Header().GetName(), 'n');
    }
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_node* node = net.GetNode(h);
        int type = node->Definition()->GetType();
        w.PushAttribute("TYPE", type == VEK_LIST ? "decision" : type == VEK_TABLE ? "utility" : "nature");
        w.OpenElement("VARIABLE");
        w.WriteElement("NAME", names[h].c_str());
        if (type != VEK_TABLE) {
            const auto* disc = static_cast<const VEK_discDef*>(node->Definition());
            const VEK_idArray* ids = disc->GetOutcomeIds();
            for (int k = 0; k < ids->GetSize(); ++k) {
                w.WriteElement("OUTCOME", XmlName((*ids)[k], disc->GetOutcomeLabel(k), 's').c_str());
            }
        }
        const VEK_rectangle& r = node->Info().screen.position;
        w.WriteElement("PROPERTY",
                       ("position = (" + std::to_string(r.centerX) + ", " + std::to_string(r.centerY) + ")").c_str());
        WriteProperties(w, node->Info().userProperties);
        w.CloseElement("VARIABLE");
    }

    std::string table;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_node* node = net.GetNode(h);
        const VEK_nodeDef* def = node->Definition();
        w.OpenElement("DEFINITION");
        w.WriteElement("FOR", names[h].c_str());
        long long columns = 1;
        for (int k = 0; k < node->Parents().GetSize(); ++k) {
            int p = node->Parents()[k];
            w.WriteElement("GIVEN", names[p].c_str());
            columns *= std::max(1, net.GetDef(p)->GetDiscreteOutcomeCount());
        }
        table.clear();
        if (def->GetType() == VEK_LIST) {
            // Decisions have no table here; readers of the format expect a
            // uniform one.
            int n = def->GetNumberOfOutcomes();
            std::string item;
            VEK_appendDouble(item, 1.0 / n);
            for (long long j = 0; j < columns * n; ++j) {
                if (j) table += ' ';
                table += item;
            }
        } else {
            const VEK_Dmatrix& m = *def->GetMatrix();
            for (int i = 0; i < m.GetSize(); ++i) {
                if (i) table += ' ';
                VEK_appendDouble(table, m[i]);
            }
        }
        w.WriteElement("TABLE", table.c_str());
        w.CloseElement("DEFINITION");
    }
    w.CloseElement("NETWORK");
    w.CloseElement("BIF");
}

}  // namespace

int VEK_xmlbifSpeaker::Write(const char* path, std::string* out) {
    int res = CheckWritable();
    if (res < 0) return res;
    try {
        XmlWriterFileOutput file;
        std::string ignored;
        XmlWriterStringOutput text(out ? *out : ignored);
        if (path && !file.Open(path)) {
            return Logger().LogError(VEK_FILE_WRITE_ERROR, (std::string("Can't create file ") + path).c_str());
        }
        XmlWriter writer(path ? static_cast<IXmlWriterOutput*>(&file) : &text);
        WriteDocument(writer, Network());
        bool ok = !writer.HasOutputFailed();
        if (path) ok = file.Close() && ok;
        if (!ok) {
            return Logger().LogError(VEK_FILE_WRITE_ERROR,
                                     (std::string("Can't write file ") + (path ? path : "")).c_str());
        }
        return VEK_OKAY;
    } catch (const std::bad_alloc&) {
        return Logger().LogError(VEK_OUT_OF_MEMORY, "Out of memory while writing the file");
    }
}

int VEK_xmlbifSpeaker::WriteNetwork(const char* path) { return Write(path, nullptr); }

int VEK_xmlbifSpeaker::WriteNetworkToString(std::string& out) {
    out.clear();
    return Write(nullptr, &out);
}
