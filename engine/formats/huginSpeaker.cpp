#include "formats/huginSpeaker.h"

#include <cmath>
#include <cstring>
#include <new>
#include <unordered_map>
#include <vector>

#include "formats/descCursor.h"
#include "formats/descLexer.h"
#include "formats/formatRegistry.h"
#include "network/discDef.h"
#include "network/identifier.h"
#include "network/network.h"

VEK_fileFormat* VEK_createHuginSpeaker(VEK_network& net) { return new VEK_huginSpeaker(net); }

namespace {

const char* const kRefusal = "ERROR: This Network cannot be saved in Hugin format";

// Attributes the reader interprets; every other one becomes a user property.
bool IsReservedNodeAttribute(std::string_view name) {
    return name == "label" || name == "position" || name == "states" || name == "subtype" || name == "state_values";
}

bool IsReservedNetAttribute(std::string_view name) { return name == "label" || name == "node_size"; }

// An attribute value: a string, a bare word (numbers included) or a list,
// whose items are given flat (nesting is not kept).
struct Value {
    enum Kind { String, Word, List } kind = Word;
    std::string text;  // String / Word; List: the list as written
    std::vector<VEK_lexToken> items;
    int line = 0, column = 0;
};

class NetParser : private VEK_descCursor {
public:
    NetParser(VEK_fileFormat& fmt, VEK_netDesc& desc) : VEK_descCursor(fmt, "{}()[];,|=", "%"), desc_(desc) {}

    int Parse(std::string text) {
        lex_.SetText(std::move(text));
        if (Advance() < 0) return status_;
        while (tok_.kind != VEK_lexToken::End && status_ == 0) {
            if (tok_.IsWord("net")) {
                if (Advance() < 0 || Expect('{') < 0) break;
                ParseBody(false);
            } else if (tok_.IsWord("class")) {
                if (Advance() < 0) break;
                if (tok_.kind != VEK_lexToken::Word && tok_.kind != VEK_lexToken::String) {
                    Error("Class name expected but found " + tok_.Describe());
                    break;
                }
                desc_.hasName = true;
                desc_.name = std::string(tok_.Text());
                if (Advance() < 0 || Expect('{') < 0) break;
                ParseBody(true);
            } else if (!ParseElement()) {
                Error("Unexpected " + tok_.Describe());
            }
        }
        return status_;
    }

private:

    // The contents of net { } or class { }: attributes, and in a class the
    // nodes and potentials too. Ends after the closing brace.
    void ParseBody(bool isClass) {
        while (status_ == 0) {
            if (tok_.IsSymbol('}')) {
                (void)Advance();  // a fault stays in status_
                return;
            }
            if (tok_.kind == VEK_lexToken::End) {
                Error("Unexpected end of file: '}' missing");
                return;
            }
            if (isClass && ParseElement()) continue;
            if (status_ != 0) return;
            if (tok_.kind != VEK_lexToken::Word) {
                Error("Attribute name expected but found " + tok_.Describe());
                return;
            }
            std::string name(tok_.raw);
            Value v;
            if (ParseAttribute(v) < 0) return;
            if (name == "node_size") {
                double w, h;
                if (v.kind == Value::List && v.items.size() == 2 && Number(v.items[0], w) && Number(v.items[1], h)) {
                    desc_.hasNodeSize = true;
                    desc_.nodeWidth = static_cast<int>(std::lround(w));
                    desc_.nodeHeight = static_cast<int>(std::lround(h));
                }
            } else if (name == "label") {
                if (v.kind != Value::List && !v.text.empty()) {
                    desc_.hasName = true;
                    desc_.name = v.text;
                }
            } else if (!(isClass && (name == "inputs" || name == "outputs"))) {
                desc_.properties.emplace_back(name, v.text);
            }
        }
    }

    static bool Number(const VEK_lexToken& t, double& value) {
        return t.kind == VEK_lexToken::Word && VEK_parseNumber(t.raw, value);
    }

    // A node or a potential at the current token; false (nothing read) when
    // the token starts neither.
    bool ParseElement() {
        if (tok_.kind != VEK_lexToken::Word) return false;
        std::string_view w = tok_.raw;
        if (w == "potential") {
            ParsePotential();
            return true;
        }
        if (w == "node" || w == "decision" || w == "utility" || w == "discrete" || w == "continuous" ||
            w == "function") {
            ParseNode();
            return true;
        }
        if (w == "instance" || w == "temporal") {
            Error("Object-oriented and temporal networks are not supported: " + tok_.Describe());
            return true;
        }
        return false;
    }

    void ParseNode() {
        VEK_descNode node;
        node.pos = {tok_.line, tok_.column};
        bool continuous = false;
        if (tok_.IsWord("discrete") || tok_.IsWord("continuous")) {
            continuous = tok_.IsWord("continuous");
            if (Advance() < 0) return;
        }
        if (tok_.IsWord("node")) {
            node.type = VEK_CPT;
        } else if (tok_.IsWord("decision")) {
            node.type = VEK_LIST;
        } else if (tok_.IsWord("utility")) {
            node.type = VEK_TABLE;
        } else if (tok_.IsWord("function")) {
            continuous = true;
        } else {
            Error("Expected 'node', 'decision' or 'utility' but found " + tok_.Describe());
            return;
        }
        if (Advance() < 0) return;
        if (!IsName()) {
            Error("Node name expected but found " + tok_.Describe());
            return;
        }
        node.name = std::string(tok_.Text());
        if (continuous) {
            Error("Continuous and function nodes are not supported: '" + node.name + "'", node.pos.line, node.pos.column);
            return;
        }
        if (Advance() < 0 || Expect('{') < 0) return;
        std::string subtype;
        std::vector<double> stateValues;
        VEK_descPos valuesPos;
        while (status_ == 0 && !tok_.IsSymbol('}')) {
            if (tok_.kind != VEK_lexToken::Word) {
                Error("Attribute name expected but found " + tok_.Describe());
                return;
            }
            std::string name(tok_.raw);
            Value v;
            if (ParseAttribute(v) < 0) return;
            if (name == "states") {
                if (v.kind != Value::List) {
                    Error("A list of states expected for node '" + node.name + "'", v.line, v.column);
                    return;
                }
                node.states.clear();
                for (const auto& t : v.items) node.states.emplace_back(t.Text());
            } else if (name == "label") {
                node.hasLabel = true;
                node.label = v.kind == Value::List ? std::string() : v.text;
            } else if (name == "position") {
                double x, y;
                // Presentation only: a malformed position is ignored.
                if (v.kind == Value::List && v.items.size() == 2 && Number(v.items[0], x) && Number(v.items[1], y) &&
                    std::fabs(x) < 1e9 && std::fabs(y) < 1e9) {
                    node.hasPosition = true;
                    node.x = static_cast<int>(std::lround(x));
                    node.y = static_cast<int>(std::lround(y));
                }
            } else if (name == "subtype") {
                subtype = v.text;
            } else if (name == "state_values") {
                valuesPos = {v.line, v.column};
                stateValues.clear();
                for (const auto& t : v.items) {
                    double d;
                    if (!Number(t, d)) {
                        Error("Number expected but found " + t.Describe(), t.line, t.column);
                        return;
                    }
                    stateValues.push_back(d);
                }
            } else {
                node.properties.emplace_back(name, v.text);
            }
        }
        if (status_ != 0 || Advance() < 0) return;
        if (!stateValues.empty() && node.type != VEK_TABLE) {
            size_t n = node.states.size();
            bool interval = subtype == "interval" || (subtype.empty() && stateValues.size() == n + 1);
            if (interval) {
                if (stateValues.size() != n + 1) {
                    Error("Node '" + node.name + "' needs " + std::to_string(n + 1) + " interval bounds", valuesPos.line,
                          valuesPos.column);
                    return;
                }
                node.intervals = std::move(stateValues);
            } else {
                if (stateValues.size() != n) {
                    Error("Node '" + node.name + "' needs " + std::to_string(n) + " state values", valuesPos.line,
                          valuesPos.column);
                    return;
                }
                node.pointValues = std::move(stateValues);
            }
        }
        sizes_[node.name] = node.type == VEK_TABLE ? 1 : node.states.size();
        desc_.nodes.push_back(std::move(node));
    }

    // name = value ; with the current token at the name.
    int ParseAttribute(Value& v) {
        if (Advance() < 0 || Expect('=') < 0) return -1;
        v.line = tok_.line;
        v.column = tok_.column;
        if (tok_.IsSymbol('(')) {
            v.kind = Value::List;
            size_t begin = lex_.OffsetOf(tok_);
            int depth = 0;
            // Iterative, so that deep nesting cannot exhaust the stack.
            do {
                if (tok_.IsSymbol('(')) {
                    ++depth;
                } else if (tok_.IsSymbol(')')) {
                    --depth;
                } else if (tok_.kind == VEK_lexToken::Word || tok_.kind == VEK_lexToken::String) {
                    v.items.push_back(tok_);
                } else if (!tok_.IsSymbol(',')) {
                    return Error("Unexpected " + tok_.Describe() + " in a list");
                }
                if (depth == 0) {
                    v.text = std::string(lex_.Slice(begin, lex_.OffsetOf(tok_) + 1));
                }
                if (Advance() < 0) return -1;
            } while (depth > 0);
        } else if (IsName()) {
            v.kind = tok_.kind == VEK_lexToken::String ? Value::String : Value::Word;
            v.text = std::string(tok_.Text());
            if (Advance() < 0) return -1;
        } else {
            return Error("Value expected but found " + tok_.Describe());
        }
        return Expect(';');
    }

    // The numbers of a data attribute, nesting ignored: Hugin reads them in
    // order, and the builder checks their count.
    int ParseData(VEK_descTable& table) {
        if (Advance() < 0 || Expect('=') < 0) return -1;
        table.hasValues = true;
        table.valuesPos = {tok_.line, tok_.column};
        table.values.clear();
        // The expected size, when the nodes came first (as they should).
        double size = 1;
        auto child = sizes_.find(table.child);
        if (child != sizes_.end()) size = static_cast<double>(child->second);
        for (const std::string& p : table.parents) {
            auto it = sizes_.find(p);
            if (it != sizes_.end()) size *= static_cast<double>(it->second);
        }
        if (size <= (1 << 24)) table.values.reserve(static_cast<size_t>(size));
        int depth = 0;
        do {
            if (tok_.IsSymbol('(')) {
                ++depth;
                // The numbers that follow, straight from the text.
                if (lex_.ReadNumbers(table.values) < 0) {
                    return Error(lex_.ErrorMessage(), lex_.ErrorLine(), lex_.ErrorColumn());
                }
            } else if (tok_.IsSymbol(')')) {
                if (depth == 0) return Error("Unbalanced ')'");
                --depth;
            } else if (tok_.kind == VEK_lexToken::Word) {
                double d;
                if (!VEK_parseNumber(tok_.raw, d)) return Error("Number expected but found " + tok_.Describe());
                table.values.push_back(d);
                if (lex_.ReadNumbers(table.values) < 0) {
                    return Error(lex_.ErrorMessage(), lex_.ErrorLine(), lex_.ErrorColumn());
                }
            } else if (!tok_.IsSymbol(',')) {
                return Error("Number expected but found " + tok_.Describe());
            }
            if (Advance() < 0) return -1;
        } while (depth > 0);
        return Expect(';');
    }

    void ParsePotential() {
        VEK_descTable table;
        table.pos = {tok_.line, tok_.column};
        if (Advance() < 0 || Expect('(') < 0) return;
        std::vector<std::string> heads;
        bool bar = false;
        while (status_ == 0 && !tok_.IsSymbol(')')) {
            if (tok_.IsSymbol('|')) {
                if (bar) {
                    Error("Unexpected '|'");
                    return;
                }
                bar = true;
            } else if (IsName()) {
                if (bar) {
                    table.parents.emplace_back(tok_.Text());
                    table.parentPos.push_back({tok_.line, tok_.column});
                } else {
                    heads.emplace_back(tok_.Text());
                }
            } else if (!tok_.IsSymbol(',')) {
                Error("Node name expected but found " + tok_.Describe());
                return;
            }
            if (Advance() < 0) return;
        }
        if (status_ != 0) return;
        if (heads.size() != 1) {
            Error(heads.empty() ? "A potential must name its node" : "Joint potentials over several nodes are not supported",
                  table.pos.line, table.pos.column);
            return;
        }
        table.child = heads[0];
        if (Advance() < 0) return;
        if (tok_.IsSymbol('{')) {
            if (Advance() < 0) return;
            while (status_ == 0 && !tok_.IsSymbol('}')) {
                if (tok_.kind != VEK_lexToken::Word) {
                    Error("Attribute name expected but found " + tok_.Describe());
                    return;
                }
                if (tok_.IsWord("data")) {
                    if (ParseData(table) < 0) return;
                } else {
                    // model_nodes, model_data, experience...: the table is in data.
                    Value ignored;
                    if (ParseAttribute(ignored) < 0) return;
                }
            }
            if (status_ != 0 || Advance() < 0) return;
        } else if (tok_.IsSymbol(';')) {
            if (Advance() < 0) return;
        }
        desc_.tables.push_back(std::move(table));
    }

    VEK_netDesc& desc_;
    std::unordered_map<std::string, size_t> sizes_;  // states of the nodes read so far
};

// Base name of a path without its extension.
std::string Stem(const char* path) {
    if (!path) return std::string();
    const char* base = std::strrchr(path, '/');
    base = base ? base + 1 : path;
    std::string stem(base);
    size_t dot = stem.rfind('.');
    if (dot != std::string::npos && dot > 0) stem.erase(dot);
    return stem;
}

void AppendQuotedNet(std::string& out, std::string_view text) {
    out += '"';
    for (char c : text) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            case '\r': out += "\\r"; break;
            default: out += c;
        }
    }
    out += '"';
}

}  // namespace

void VEK_huginSpeaker::SpecError(int code, const VEK_descPos& pos, const std::string& message) {
    LogFileReadingError(code, message, pos.line, pos.column);
}

int VEK_huginSpeaker::Read(std::string text, const std::string& defaultName) {
    try {
        VEK_netDesc desc;
        int res = NetParser(*this, desc).Parse(std::move(text));
        if (res < 0) return res;
        if (!desc.hasName && !defaultName.empty()) {
            desc.hasName = true;
            desc.name = defaultName;
        }
        return VEK_buildNetwork(desc, Network(), *this);
    } catch (const std::bad_alloc&) {
        return LogFileReadingError(VEK_OUT_OF_MEMORY, "Out of memory while reading the file");
    }
}

int VEK_huginSpeaker::ReadNetwork(const char* path) {
    std::string text;
    int res = ReadInputFile(path, text);
    if (res != VEK_OKAY) return res;
    return Read(std::move(text), Stem(path));
}

int VEK_huginSpeaker::ReadNetworkFromString(const char* text) {
    SetFileName(nullptr);
    try {
        return Read(std::string(text ? text : ""), std::string());
    } catch (const std::bad_alloc&) {
        return LogFileReadingError(VEK_OUT_OF_MEMORY, "Out of memory while reading the text", 0, 0);
    }
}

int VEK_huginSpeaker::CheckWritable() {
    // Chance nodes of every kind are written as their probability table.
    return CheckTablesOnly(kRefusal);
}

void VEK_huginSpeaker::WriteText() {
    VEK_network& net = Network();
    std::string out;
    out.reserve(1 << 16);
    auto flush = [&]() {
        Out().Write(out);
        out.clear();
    };

    // Every node shares one size in this format: the first node's.
    int width = 72, height = 48;
    if (int first = net.GetFirstNode(); first >= 0) {
        width = net.GetNode(first)->Info().screen.position.width;
        height = net.GetNode(first)->Info().screen.position.height;
    }
    out += "net\n{\n    node_size = (" + std::to_string(width) + " " + std::to_string(height) + ");\n";
    const char* netName = *net.Header().GetName() ? net.Header().GetName() : net.Header().GetId();
    if (*netName) {
        out += "    label = ";
        AppendQuotedNet(out, netName);
        out += ";\n";
    }
    auto writeProperties = [&](const VEK_userProperties& props, bool (*reserved)(std::string_view)) {
        for (const auto& p : props.Items()) {
            if (!VEK_isValidIdentifier(p.first) || reserved(p.first)) continue;  // not expressible
            out += "    " + p.first + " = ";
            AppendQuotedNet(out, p.second);
            out += ";\n";
        }
    };
    writeProperties(net.UserProperties(), IsReservedNetAttribute);
    out += "}\n";

    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_node* node = net.GetNode(h);
        const VEK_nodeDef* def = node->Definition();
        int type = def->GetType();
        out += type == VEK_LIST ? "\ndecision " : type == VEK_TABLE ? "\nutility " : "\nnode ";
        out += node->GetId();
        out += "\n{\n    label = ";
        AppendQuotedNet(out, node->Header().GetName());
        const VEK_rectangle& r = node->Info().screen.position;
        out += ";\n    position = (" + std::to_string(r.centerX) + " " + std::to_string(r.centerY) + ");\n";
        if (type != VEK_TABLE) {
            const auto* disc = static_cast<const VEK_discDef*>(def);
            const VEK_idArray* ids = disc->GetOutcomeIds();
            out += "    states = (";
            for (int k = 0; k < ids->GetSize(); ++k) {
                if (k) out += ' ';
                AppendQuotedNet(out, VEK_foreignName((*ids)[k], disc->GetOutcomeLabel(k), 's'));
            }
            out += ");\n";
            const std::vector<double>* values = nullptr;
            if (disc->HasIntervals()) {
                out += "    subtype = interval;\n";
                values = &disc->GetIntervals();
            } else if (disc->HasPointValues()) {
                out += "    subtype = numbered;\n";
                values = &disc->GetPointValues();
            }
            if (values) {
                out += "    state_values = (";
                for (size_t k = 0; k < values->size(); ++k) {
                    if (k) out += ' ';
                    VEK_appendDouble(out, (*values)[k]);
                }
                out += ");\n";
            }
        }
        writeProperties(node->Info().userProperties, IsReservedNodeAttribute);
        out += "}\n";
        if (out.size() > (1 << 16)) flush();
    }

    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_node* node = net.GetNode(h);
        const VEK_nodeDef* def = node->Definition();
        int type = def->GetType();
        out += "\npotential (";
        out += node->GetId();
        out += " |";
        for (int k = 0; k < node->Parents().GetSize(); ++k) {
            out += ' ';
            out += net.GetNodeId(node->Parents()[k]);
        }
        out += ")\n{\n";
        if (type != VEK_LIST) {
            const VEK_Dmatrix& m = *def->GetMatrix();
            const VEK_intArray& dims = m.GetDimensions();
            // A utility's unit last dimension is no group of its own; one
            // without parents still gets its parentheses.
            int nd = dims.GetSize();
            if (type == VEK_TABLE && nd > 1) --nd;
            // suffix[i]: the items of one group of dimension i, so an index
            // divisible by suffix[i] opens such a group.
            std::vector<long long> suffix(nd + 1, 1);
            for (int i = nd - 1; i >= 0; --i) suffix[i] = suffix[i + 1] * dims[i];
            out += "    data = ";
            const int size = m.GetSize();
            for (int idx = 0; idx < size; ++idx) {
                for (int i = 0; i < nd; ++i)
                    if (idx % suffix[i] == 0) out += '(';
                VEK_appendDouble(out, m[idx]);
                int closes = 0;
                for (int i = 0; i < nd; ++i)
                    if ((idx + 1) % suffix[i] == 0) ++closes;
                out.append(static_cast<size_t>(closes), ')');
                if (idx + 1 < size) {
                    if (closes > 0) {
                        out += '\n';
                        out.append(static_cast<size_t>(11 + nd - closes), ' ');
                    } else {
                        out += ' ';
                    }
                }
                if (out.size() > (1 << 16)) flush();
            }
            if (size == 0) out += "()";
            out += ";\n";
        }
        out += "}\n";
        if (out.size() > (1 << 16)) flush();
    }
    flush();
}

int VEK_huginSpeaker::WriteNetwork(const char* path) {
    int res = CheckWritable();
    if (res < 0) return res;
    try {
        res = OpenOutput(path);
        if (res < 0) return res;
        WriteText();
        return CloseOutput();
    } catch (const std::bad_alloc&) {
        (void)CloseOutput();  // the lack of memory is what is reported
        return Logger().LogError(VEK_OUT_OF_MEMORY, "Out of memory while writing the file");
    }
}

int VEK_huginSpeaker::WriteNetworkToString(std::string& out) {
    out.clear();
    int res = CheckWritable();
    if (res < 0) return res;
    try {
        SetOutputString(out);
        WriteText();
        return CloseOutput();
    } catch (const std::bad_alloc&) {
        (void)CloseOutput();  // the lack of memory is what is reported
        return Logger().LogError(VEK_OUT_OF_MEMORY, "Out of memory while writing the text");
    }
}
