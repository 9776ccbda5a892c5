#include "formats/beliefNetText.h"

#include <cmath>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "network/discDef.h"
#include "network/identifier.h"
#include "network/network.h"

namespace {

bool IsName(const VEK_token& t) { return t.IsWord() || t.IsString(); }
bool IsAssign(const VEK_token& t) { return t.Is("=") || t.Is(":"); }

// Fields the reader interprets; any other is a user property.
bool IsReservedField(const std::string& name) { return name == "name" || name == "type" || name == "position"; }

}  // namespace

VEK_beliefNetSpeaker::VEK_beliefNetSpeaker(VEK_network& net, const VEK_beliefNetDialect& dialect)
    : VEK_textSpeaker(net, dialect.formatName), dialect_(dialect) {}

// ------------------------------------------------------------------ reading

int VEK_beliefNetSpeaker::ReadValueText(std::string& text) {
    text.clear();
    std::vector<char> closers;
    VEK_token t;
    size_t items = 0;
    std::string raw;
    for (;;) {
        int res = Next(t);
        if (res < 0) return res;
        if (t.IsEnd()) return Fail(t, "Expected ';' but found end of file");
        if (t.Is(";") && closers.empty()) break;
        if (t.IsSymbol()) {
            char c = t.text[0];
            if (c == '{') closers.push_back('}');
            if (c == '(') closers.push_back(')');
            if (c == '[') closers.push_back(']');
            if (c == '}' || c == ')' || c == ']') {
                if (closers.empty() || closers.back() != c) return Fail(t, "Unexpected " + t.Describe());
                closers.pop_back();
            }
        }
        if (items++) raw += ' ';
        if (t.IsString()) {
            VEK_fileFormat::AppendQuoted(raw, t.text);
            text = t.text;
        } else {
            raw += t.text;
            text = t.text;
        }
    }
    // A single item is kept as it reads; a list as written.
    if (items != 1) text = raw;
    return VEK_OKAY;
}

int VEK_beliefNetSpeaker::ReadNumbers(std::vector<double>& values, VEK_descPos& pos) {
    VEK_token t;
    bool first = true;
    for (;;) {
        int res = Next(t);
        if (res < 0) return res;
        if (first) pos = Pos(t);
        first = false;
        if (t.Is(";")) return VEK_OKAY;
        if (t.Is(",")) continue;
        if (!t.IsNumber()) return Fail(t, "Number expected but found " + t.Describe());
        values.push_back(t.number);
    }
}

int VEK_beliefNetSpeaker::ParseProperties(VEK_netDesc& desc) {
    int res = Expect("{");
    if (res < 0) return res;
    VEK_token t;
    for (;;) {
        if ((res = Next(t)) < 0) return res;
        if (t.Is("}")) return VEK_OKAY;
        if (t.IsEnd()) return Fail(t, "Unexpected end of file inside properties");
        if (!IsName(t)) return Fail(t, "Property name expected but found " + t.Describe());
        std::string value;
        if (t.Is("type")) {
            // A declaration: "type key = kind...;"
            if ((res = ReadValueText(value)) < 0) return res;
            continue;
        }
        std::string name = t.text;
        VEK_token assign;
        if ((res = Next(assign)) < 0) return res;
        if (!IsAssign(assign)) return Fail(assign, "Expected '=' but found " + assign.Describe());
        if ((res = ReadValueText(value)) < 0) return res;
        desc.properties.emplace_back(std::move(name), std::move(value));
    }
}

int VEK_beliefNetSpeaker::ParseNode(VEK_netDesc& desc, const VEK_token& nameToken) {
    VEK_descNode node;
    node.name = nameToken.text;
    node.pos = Pos(nameToken);
    node.type = VEK_CPT;
    int res = Expect("{");
    if (res < 0) return res;
    VEK_token t;
    bool hasType = false;
    for (;;) {
        if ((res = Next(t)) < 0) return res;
        if (t.Is("}")) break;
        if (t.Is(";")) continue;
        if (t.IsEnd()) return Fail(t, "Unexpected end of file inside node " + Quote(node.name));
        if (!IsName(t)) return Fail(t, "Field name expected but found " + t.Describe());
        const std::string field = t.text;
        VEK_token assign;
        if ((res = Next(assign)) < 0) return res;
        if (!IsAssign(assign)) return Fail(assign, "Expected '=' but found " + assign.Describe());
        if (field == "name") {
            if ((res = Next(t)) < 0) return res;
            if (!IsName(t)) return Fail(t, "String expected but found " + t.Describe());
            node.hasLabel = true;
            node.label = t.text;
            if ((res = Expect(";")) < 0) return res;
        } else if (field == "type") {
            if ((res = Next(t)) < 0) return res;
            if (!t.Is("discrete")) return Fail(t, "Only discrete nodes can be read; found " + t.Describe());
            if ((res = Expect("[")) < 0) return res;
            long long count = 0;
            VEK_token countToken;
            if ((res = Peek(countToken)) < 0) return res;
            if ((res = ExpectCount(1 << 24, count, "Number of states")) < 0) return res;
            if ((res = Expect("]")) < 0) return res;
            if ((res = Next(t)) < 0) return res;
            if (!IsAssign(t)) return Fail(t, "Expected '=' but found " + t.Describe());
            if ((res = Expect("{")) < 0) return res;
            node.states.clear();
            for (;;) {
                if ((res = Next(t)) < 0) return res;
                if (t.Is("}")) break;
                if (t.Is(",")) continue;
                if (!IsName(t) && !t.IsNumber()) return Fail(t, "State name expected but found " + t.Describe());
                node.states.push_back(t.text);
            }
            if (static_cast<long long>(node.states.size()) != count) {
                return Fail(countToken, "Node " + Quote(node.name) + " declares " + std::to_string(count) + " states but lists " +
                                            std::to_string(node.states.size()));
            }
            hasType = true;
            if ((res = Expect(";")) < 0) return res;
        } else if (field == "position") {
            if ((res = ExpectPosition(node.hasPosition, node.x, node.y)) < 0) return res;
        } else {
            std::string value;
            if ((res = ReadValueText(value)) < 0) return res;
            node.properties.emplace_back(field, std::move(value));
        }
    }
    if (!hasType) return Fail(nameToken, "Node " + Quote(node.name) + " has no type");
    desc.nodes.push_back(std::move(node));
    return VEK_OKAY;
}

int VEK_beliefNetSpeaker::ParseProbability(VEK_netDesc& desc, const VEK_token& keyword) {
    VEK_descTable table;
    table.pos = Pos(keyword);
    int res = Expect("(");
    if (res < 0) return res;
    VEK_token t;
    if ((res = Next(t)) < 0) return res;
    if (!IsName(t)) return Fail(t, "Node name expected but found " + t.Describe());
    table.child = t.text;
    if ((res = Next(t)) < 0) return res;
    if (t.Is("|")) {
        for (;;) {
            if ((res = Next(t)) < 0) return res;
            if (t.Is(")")) break;
            if (t.Is(",")) continue;
            if (!IsName(t)) return Fail(t, "Parent name expected but found " + t.Describe());
            table.parents.push_back(t.text);
            table.parentPos.push_back(Pos(t));
        }
    } else if (!t.Is(")")) {
        return Fail(t, "Expected '|' or ')' but found " + t.Describe());
    }
    if ((res = Expect("{")) < 0) return res;
    const size_t tableIndex = desc.tables.size();
    for (;;) {
        if ((res = Peek(t)) < 0) return res;
        if (t.Is("}")) {
            (void)Next(t);  // the token just peeked
            break;
        }
        if (t.IsEnd()) return Fail(t, "Unexpected end of file inside the table of " + Quote(table.child));
        if (t.Is("(")) {
            (void)Next(t);  // the token just peeked
            VEK_descRow row;
            row.pos = Pos(t);
            for (;;) {
                if ((res = Next(t)) < 0) return res;
                if (t.Is(")")) break;
                if (t.Is(",")) continue;
                if (!IsName(t) && !t.IsNumber()) return Fail(t, "Parent state expected but found " + t.Describe());
                refs_.push_back(RowRef{tableIndex, table.rows.size(), row.parentStates.size(), t});
                row.parentStates.emplace_back();
            }
            if ((res = Next(t)) < 0) return res;
            if (!IsAssign(t)) return Fail(t, "Expected ':' but found " + t.Describe());
            VEK_descPos pos;
            if ((res = ReadNumbers(row.values, pos)) < 0) return res;
            table.rows.push_back(std::move(row));
        } else if (t.Is("default")) {
            (void)Next(t);  // the token just peeked
            if (table.hasDefault) return Fail(t, "A second default row in the table of " + Quote(table.child));
            table.defaultPos = Pos(t);
            if ((res = Peek(t)) < 0) return res;
            if (IsAssign(t)) (void)Next(t);  // the token just peeked
            if ((res = ReadNumbers(table.defaultRow, table.defaultPos)) < 0) return res;
            table.hasDefault = true;
        } else if (t.IsNumber()) {
            VEK_descPos pos;
            if (!table.hasValues) {
                table.hasValues = true;
                table.valuesPos = Pos(t);
            }
            if ((res = ReadNumbers(table.values, pos)) < 0) return res;
        } else if (t.Is("function")) {
            return Fail(t, "Functions in the table of " + Quote(table.child) + " are not supported");
        } else {
            return Fail(t, "Unexpected " + t.Describe() + " in the table of " + Quote(table.child));
        }
    }
    if (table.hasValues && (!table.rows.empty() || table.hasDefault)) {
        return Fail(table.valuesPos, "The table of " + Quote(table.child) + " mixes a flat list with rows");
    }
    if (!table.hasValues && table.rows.empty() && !table.hasDefault) {
        return Fail(table.pos, "Empty table for " + Quote(table.child));
    }
    desc.tables.push_back(std::move(table));
    return VEK_OKAY;
}

int VEK_beliefNetSpeaker::ResolveRows(VEK_netDesc& desc) {
    if (refs_.empty()) return VEK_OKAY;
    std::unordered_map<std::string, const VEK_descNode*> byName;
    for (const VEK_descNode& n : desc.nodes) byName.emplace(n.name, &n);
    for (const RowRef& ref : refs_) {
        VEK_descTable& table = desc.tables[ref.table];
        VEK_descRow& row = table.rows[ref.row];
        if (ref.parent >= table.parents.size()) {
            return Fail(ref.token, "Row names more parent states than " + Quote(table.child) + " has parents");
        }
        auto it = byName.find(table.parents[ref.parent]);
        // An unknown parent is reported by the builder, at its name.
        if (it == byName.end()) continue;
        const std::vector<std::string>& states = it->second->states;
        if (ref.token.IsNumber()) {
            if (!ref.token.isInteger || ref.token.integer < 0 || ref.token.integer >= static_cast<long long>(states.size())) {
                return Fail(ref.token, "State index " + ref.token.text + " out of range for node " + Quote(it->first));
            }
            row.parentStates[ref.parent] = states[static_cast<size_t>(ref.token.integer)];
        } else {
            row.parentStates[ref.parent] = ref.token.text;
        }
    }
    return VEK_OKAY;
}

int VEK_beliefNetSpeaker::Parse(VEK_netDesc& desc) {
    VEK_tokenSyntax& s = Tokenizer().Syntax();
    s = VEK_tokenSyntax();
    refs_.clear();
    VEK_token t;
    int res;
    for (;;) {
        if ((res = Next(t)) < 0) return res;
        if (t.IsEnd()) break;
        if (t.Is(";")) continue;
        if (t.Is("belief")) {
            if ((res = Expect("network")) < 0) return res;
            if ((res = Next(t)) < 0) return res;
            if (!IsName(t)) return Fail(t, "Network name expected but found " + t.Describe());
            if (!t.text.empty()) {
                desc.hasName = true;
                desc.name = t.text;
            }
        } else if (t.Is("properties")) {
            if ((res = ParseProperties(desc)) < 0) return res;
        } else if (t.Is("node")) {
            VEK_token name;
            if ((res = Next(name)) < 0) return res;
            if (!IsName(name)) return Fail(name, "Node name expected but found " + name.Describe());
            if ((res = ParseNode(desc, name)) < 0) return res;
        } else if (t.Is("probability")) {
            if ((res = ParseProbability(desc, t)) < 0) return res;
        } else {
            return Fail(t, "Expected 'node' or 'probability' but found " + t.Describe());
        }
    }
    return ResolveRows(desc);
}

// ------------------------------------------------------------------ writing

std::string VEK_beliefNetSpeaker::CheckWritable() {
    VEK_network& net = Network();
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        std::string reason = ChanceOnlyReason(*net.GetNode(h));
        if (!reason.empty()) return reason;
    }
    return std::string();
}

void VEK_beliefNetSpeaker::WriteText() {
    VEK_network& net = Network();
    std::string& out = Text();
    const bool spaced = dialect_.spacedStyle;
    const VEK_header& header = net.Header();
    out += "belief network ";
    AppendQuoted(out, VEK_foreignName(header.GetId(), header.GetName(), 'n'));
    out += '\n';

    // Properties that read back as they are: named by an identifier that the
    // reader does not claim for itself.
    auto writable = [](const std::pair<std::string, std::string>& p) {
        return VEK_isValidIdentifier(p.first) && !IsReservedField(p.first);
    };
    if (dialect_.properties) {
        std::vector<std::string> declared;
        std::unordered_set<std::string> seen;
        auto declare = [&](const VEK_userProperties& props) {
            for (const auto& p : props.Items()) {
                if (writable(p) && seen.insert(p.first).second) declared.push_back(p.first);
            }
        };
        declare(net.UserProperties());
        for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) declare(net.GetNode(h)->Info().userProperties);
        if (!declared.empty()) {
            out += "properties\n{\n";
            for (const std::string& name : declared) out += "\ttype " + name + " = string;\n";
            for (const auto& p : net.UserProperties().Items()) {
                if (!writable(p)) continue;
                out += '\t' + p.first + " = ";
                AppendQuoted(out, p.second);
                out += ";\n";
            }
            out += "}\n";
        }
    }

    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_node& node = *net.GetNode(h);
        const auto* def = static_cast<const VEK_discDef*>(node.Definition());
        out += "\nnode ";
        out += node.GetId();
        out += "\n{\n\tname = ";
        AppendQuoted(out, node.Header().GetName());
        out += ";\n";
        const VEK_idArray& ids = *def->GetOutcomeIds();
        out += spaced ? "\ttype : discrete [ " : "\ttype = discrete[";
        out += std::to_string(ids.GetSize());
        out += spaced ? " ] = { " : "] = {";
        for (int k = 0; k < ids.GetSize(); ++k) {
            if (k) out += ", ";
            AppendQuoted(out, VEK_foreignName(ids[k], def->GetOutcomeLabel(k), 's'));
        }
        out += spaced ? " };\n" : "};\n";
        if (dialect_.positions) {
            const VEK_rectangle& r = node.Info().screen.position;
            out += "\tposition = (" + std::to_string(r.centerX) + ", " + std::to_string(r.centerY) + ");\n";
        }
        if (dialect_.properties) {
            for (const auto& p : node.Info().userProperties.Items()) {
                if (!writable(p)) continue;
                out += '\t' + p.first + " = ";
                AppendQuoted(out, p.second);
                out += ";\n";
            }
        }
        out += "}\n";
        if (out.size() > (1 << 16)) FlushText();
    }

    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_node& node = *net.GetNode(h);
        const VEK_intArray& parents = node.Parents();
        out += spaced ? "\nprobability ( " : "\nprobability(";
        out += node.GetId();
        for (int k = 0; k < parents.GetSize(); ++k) {
            out += k ? ", " : " | ";
            out += net.GetNodeId(parents[k]);
        }
        out += spaced ? " )\n{\n" : ")\n{\n";
        const VEK_Dmatrix& m = *node.Definition()->GetMatrix();
        const int states = m.GetLastDimensionSize();
        const int columns = states > 0 ? m.GetSize() / states : 0;
        const int nd = parents.GetSize();
        std::vector<int> coords(static_cast<size_t>(nd), 0);
        for (int j = 0; j < columns; ++j) {
            out += '\t';
            if (nd > 0) {
                out += spaced ? "( " : "(";
                for (int k = 0; k < nd; ++k) {
                    if (k) out += ", ";
                    out += std::to_string(coords[static_cast<size_t>(k)]);
                }
                out += spaced ? " ) : " : ") : ";
            }
            for (int k = 0; k < states; ++k) {
                if (k) out += ", ";
                VEK_appendDouble(out, m[j * states + k]);
            }
            out += ";\n";
            // Odometer over the parents, the last fastest.
            for (int k = nd - 1; k >= 0; --k) {
                if (++coords[static_cast<size_t>(k)] < m.GetDimensions()[k]) break;
                coords[static_cast<size_t>(k)] = 0;
            }
            if (out.size() > (1 << 16)) FlushText();
        }
        out += "}\n";
    }
}
