#include "formats/neticaSpeaker.h"

#include <cmath>
#include <limits>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "formats/formatRegistry.h"
#include "network/discDef.h"
#include "network/network.h"

VEK_fileFormat* VEK_createNeticaSpeaker(VEK_network& net) { return new VEK_neticaSpeaker(net); }

namespace {

constexpr long long kMaxTable = std::numeric_limits<int>::max();

bool SameWord(const std::string& a, const char* b) {
    size_t i = 0;
    for (; i < a.size() && b[i]; ++i) {
        if ((a[i] | 0x20) != (b[i] | 0x20)) return false;
    }
    return i == a.size() && !b[i];
}

// A name, a string or a number as written: the items of name lists.
bool IsItem(const VEK_token& t) { return t.IsWord() || t.IsString() || t.IsNumber(); }

}  // namespace

struct VEK_neticaSpeaker::NodeParse {
    VEK_descNode node;
    VEK_descTable table;
    Extra extra;
    std::string kind = "NATURE";
    VEK_descPos kindPos;
    bool discrete = true;
    bool determin = false;
    bool hasStates = false;
    long long numStates = -1;
    VEK_descPos numStatesPos;
    bool hasLevels = false;
    std::vector<double> levels;
    VEK_descPos levelsPos;
    bool hasProbs = false;
    std::vector<double> probs;
    VEK_descPos probsPos;
    bool hasFunctable = false;
    std::vector<VEK_token> functable;
    VEK_descPos functablePos;
};


// ------------------------------------------------------------------ reading

int VEK_neticaSpeaker::SkipBlockBody() {
    // After the opening brace: up to its closer, every bracket nesting.
    std::vector<char> closers{'}'};
    VEK_token t;
    while (!closers.empty()) {
        int res = Next(t);
        if (res < 0) return res;
        if (t.IsEnd()) return Fail(t, "Unexpected end of file inside a block");
        if (!t.IsSymbol()) continue;
        char c = t.text[0];
        if (c == '{') closers.push_back('}');
        if (c == '(') closers.push_back(')');
        if (c == '[') closers.push_back(']');
        if (c == '}' || c == ')' || c == ']') {
            if (closers.back() != c) return Fail(t, std::string("Expected '") + closers.back() + "' but found " + t.Describe());
            closers.pop_back();
        }
    }
    return VEK_OKAY;
}

int VEK_neticaSpeaker::SkipValue() {
    std::vector<char> closers;
    VEK_token t;
    for (;;) {
        int res = Next(t);
        if (res < 0) return res;
        if (t.IsEnd()) return Fail(t, "Expected ';' but found end of file");
        if (!t.IsSymbol()) continue;
        char c = t.text[0];
        if (c == ';' && closers.empty()) return VEK_OKAY;
        if (c == '{') closers.push_back('}');
        if (c == '(') closers.push_back(')');
        if (c == '[') closers.push_back(']');
        if (c == '}' || c == ')' || c == ']') {
            if (closers.empty() || closers.back() != c) return Fail(t, "Unexpected " + t.Describe());
            closers.pop_back();
        }
    }
}

int VEK_neticaSpeaker::SkipStatement() {
    VEK_token t;
    int res = Next(t);
    if (res < 0) return res;
    if (t.Is("=")) return SkipValue();
    // A block: "name header... { ... } ;"
    while (!t.Is("{")) {
        if (t.IsEnd() || t.Is(";") || t.Is("}")) return Fail(t, "Expected '=' or '{' but found " + t.Describe());
        if ((res = Next(t)) < 0) return res;
    }
    if ((res = SkipBlockBody()) < 0) return res;
    Accept(";");
    return VEK_OKAY;
}

// "( a, b, c )" or a single item, then ';': the tokens of the items.
int VEK_neticaSpeaker::ReadList(std::vector<VEK_token>& items, VEK_descPos& pos) {
    VEK_token t;
    int res = Next(t);
    if (res < 0) return res;
    pos = Pos(t);
    if (IsItem(t)) {
        items.push_back(t);
        return Expect(";");
    }
    if (!t.Is("(")) return Fail(t, "Expected '(' but found " + t.Describe());
    for (;;) {
        if ((res = Next(t)) < 0) return res;
        if (t.Is(")")) break;
        if (t.Is(",")) continue;
        if (!IsItem(t)) return Fail(t, "Unexpected " + t.Describe() + " in a list");
        items.push_back(t);
    }
    return Expect(";");
}

// Nested parentheses of items, up to the ';': probs (numbers) and
// functable (items).
int VEK_neticaSpeaker::ReadNested(const std::string& node, std::vector<VEK_token>* items, std::vector<double>* numbers,
                                  VEK_descPos& pos) {
    VEK_token t;
    int depth = 0;
    bool first = true;
    for (;;) {
        int res = Next(t);
        if (res < 0) return res;
        if (first) pos = Pos(t);
        first = false;
        if (t.IsEnd()) return Fail(t, "Expected ';' but found end of file");
        if (t.Is("(")) {
            ++depth;
        } else if (t.Is(")")) {
            if (depth == 0) return Fail(t, "Unbalanced ')'");
            --depth;
        } else if (t.Is(",")) {
        } else if (t.Is(";")) {
            if (depth != 0) return Fail(t, "Unbalanced '(' before ';'");
            return VEK_OKAY;
        } else if (numbers) {
            if (t.Is("*")) return Fail(t, "Undefined probability '*' in the table of node " + Quote(node));
            if (t.IsWord() && (SameWord(t.text, "inf") || SameWord(t.text, "nan"))) {
                return Fail(t, "Invalid number " + t.Describe() + " in the table of node " + Quote(node));
            }
            if (!t.IsNumber()) return Fail(t, "Number expected but found " + t.Describe());
            numbers->push_back(t.number);
        } else {
            if (!IsItem(t)) return Fail(t, "Unexpected " + t.Describe() + " in a table");
            items->push_back(t);
        }
    }
}

int VEK_neticaSpeaker::ReadText(std::string& text) {
    VEK_token t;
    int res = Next(t);
    if (res < 0) return res;
    if (!IsItem(t)) return Fail(t, "String expected but found " + t.Describe());
    text = t.text;
    return Expect(";");
}

// visual V1 { center = (x, y); ... }; after the word 'visual'.
int VEK_neticaSpeaker::ParseVisual(NodeParse& np) {
    VEK_token next;
    int res = Peek(next);
    if (res < 0) return res;
    while (!next.Is("{")) {
        if ((res = Next(next)) < 0) return res;
        if (next.IsEnd() || next.Is(";") || next.Is("}")) return Fail(next, "Expected '{' but found " + next.Describe());
        if ((res = Peek(next)) < 0) return res;
    }
    (void)Next(next);  // the token just peeked
    VEK_token t;
    for (;;) {
        if ((res = Next(t)) < 0) return res;
        if (t.Is("}")) break;
        if (t.IsEnd()) return Fail(t, "Unexpected end of file inside a visual block");
        if (t.Is("center")) {
            if ((res = Expect("=")) < 0 ||
                (res = ExpectPosition(np.node.hasPosition, np.node.x, np.node.y)) < 0) {
                return res;
            }
        } else if (t.IsWord()) {
            if ((res = SkipStatement()) < 0) return res;
        } else {
            return Fail(t, "Field name expected but found " + t.Describe());
        }
    }
    Accept(";");
    return VEK_OKAY;
}

// kind, discrete and chance: one word each.
int VEK_neticaSpeaker::ParseWordField(NodeParse& np, const std::string& field) {
    VEK_token t;
    int res = Next(t);
    if (res < 0) return res;
    if (field == "kind") {
        if (!t.IsWord()) return Fail(t, "Node kind expected but found " + t.Describe());
        np.kind = t.text;
        np.kindPos = Pos(t);
    } else {
        if (!t.IsWord()) return Fail(t, "Word expected but found " + t.Describe());
        if (field == "discrete") {
            if (!SameWord(t.text, "TRUE") && !SameWord(t.text, "FALSE")) {
                return Fail(t, "TRUE or FALSE expected but found " + t.Describe());
            }
            np.discrete = SameWord(t.text, "TRUE");
        } else {
            if (!SameWord(t.text, "CHANCE") && !SameWord(t.text, "DETERMIN")) {
                return Fail(t, "CHANCE or DETERMIN expected but found " + t.Describe());
            }
            np.determin = SameWord(t.text, "DETERMIN");
        }
    }
    return Expect(";");
}

// The value of "field = value;", after the '='.
int VEK_neticaSpeaker::ParseField(NodeParse& np, const std::string& field) {
    int res = VEK_OKAY;
    std::vector<VEK_token> items;
    VEK_descPos pos;
    if (field == "kind" || field == "discrete" || field == "chance") return ParseWordField(np, field);
    if (field == "states") {
        if ((res = ReadList(items, pos)) < 0) return res;
        np.hasStates = true;
        np.node.states.clear();
        for (const VEK_token& it : items) np.node.states.push_back(it.text);
    } else if (field == "numstates") {
        VEK_token t;
        if ((res = Peek(t)) < 0) return res;
        np.numStatesPos = Pos(t);
        if ((res = ExpectCount(1 << 20, np.numStates, "Number of states")) < 0) return res;
        return Expect(";");
    } else if (field == "levels") {
        if ((res = ReadList(items, np.levelsPos)) < 0) return res;
        np.hasLevels = true;
        np.levels.clear();
        for (const VEK_token& it : items) {
            if (!it.IsNumber()) return Fail(it, "Number expected but found " + it.Describe());
            np.levels.push_back(it.number);
        }
    } else if (field == "parents") {
        if ((res = ReadList(items, pos)) < 0) return res;
        np.table.parents.clear();
        np.table.parentPos.clear();
        for (const VEK_token& it : items) {
            np.table.parents.push_back(it.text);
            np.table.parentPos.push_back(Pos(it));
        }
    } else if (field == "probs") {
        np.probs.clear();
        if ((res = ReadNested(np.node.name, nullptr, &np.probs, np.probsPos)) < 0) return res;
        np.hasProbs = true;
    } else if (field == "functable" || field == "utils") {
        np.functable.clear();
        if ((res = ReadNested(np.node.name, &np.functable, nullptr, np.functablePos)) < 0) return res;
        np.hasFunctable = true;
    } else if (field == "title") {
        if ((res = ReadText(np.node.label)) < 0) return res;
        np.node.hasLabel = true;
    } else if (field == "comment") {
        if ((res = ReadText(np.extra.comment)) < 0) return res;
        np.extra.hasComment = true;
    } else if (field == "statetitles" || field == "statecomments") {
        if ((res = ReadList(items, pos)) < 0) return res;
        auto& target = field == "statetitles" ? np.extra.stateTitles : np.extra.stateComments;
        target.clear();
        for (const VEK_token& it : items) target.push_back(it.text);
    } else {
        // Any other field: its value up to the ';'.
        return SkipValue();
    }
    return VEK_OKAY;
}

int VEK_neticaSpeaker::ParseNode(VEK_netDesc& desc, const VEK_token& nameToken) {
    NodeParse np;
    np.node.name = nameToken.text;
    np.node.pos = Pos(nameToken);
    np.table.child = nameToken.text;
    np.table.pos = Pos(nameToken);
    int res = Expect("{");
    if (res < 0) return res;
    VEK_token t;
    for (;;) {
        if ((res = Next(t)) < 0) return res;
        if (t.Is("}")) break;
        if (t.IsEnd()) return Fail(t, "Unexpected end of file inside node " + Quote(np.node.name));
        if (!t.IsWord()) return Fail(t, "Field name expected but found " + t.Describe());
        const std::string field = t.text;
        VEK_token next;
        if ((res = Peek(next)) < 0) return res;
        if (!next.Is("=")) {
            res = field == "visual" ? ParseVisual(np) : SkipStatement();
        } else {
            (void)Next(next);  // the token just peeked
            res = ParseField(np, field);
        }
        if (res < 0) return res;
    }
    Accept(";");
    if ((res = MakeStates(np)) < 0 || (res = MakeTable(np)) < 0) return res;
    desc.nodes.push_back(std::move(np.node));
    desc.tables.push_back(std::move(np.table));
    extras_.push_back(std::move(np.extra));
    return VEK_OKAY;
}

// The node's type from its kind, and its states, intervals or point values.
int VEK_neticaSpeaker::MakeStates(NodeParse& np) {
    const std::string& name = np.node.name;
    if (SameWord(np.kind, "NATURE") || SameWord(np.kind, "CONSTANT")) {
        np.node.type = VEK_CPT;
    } else if (SameWord(np.kind, "DECISION")) {
        np.node.type = VEK_LIST;
    } else if (SameWord(np.kind, "UTILITY")) {
        np.node.type = VEK_TABLE;
    } else {
        return Fail(np.kindPos, "Unsupported node kind " + Quote(np.kind) + " of node " + Quote(name));
    }
    if (np.node.type == VEK_TABLE) return VEK_OKAY;
    if (!np.hasStates && np.numStates >= 0) {
        for (long long k = 0; k < np.numStates; ++k) np.node.states.push_back("State" + std::to_string(k));
    }
    const size_t n = np.node.states.size();
    if (!np.discrete) {
        // A continuous quantity is held discretised: its levels are the
        // edges of the intervals.
        if (!np.hasLevels || np.levels.size() < 3) {
            return Fail(np.node.pos, "Continuous node " + Quote(name) + " needs at least three levels to be read");
        }
        if (np.node.states.empty()) {
            for (size_t k = 0; k + 1 < np.levels.size(); ++k) np.node.states.push_back("State" + std::to_string(k));
        }
        if (np.levels.size() != np.node.states.size() + 1) {
            return Fail(np.levelsPos, "Node " + Quote(name) + " needs " + std::to_string(np.node.states.size() + 1) +
                                          " levels");
        }
        np.node.intervals = np.levels;
    } else if (np.hasLevels) {
        if (np.levels.size() != n) return Fail(np.levelsPos, "Node " + Quote(name) + " needs " + std::to_string(n) + " levels");
        np.node.pointValues = np.levels;
    }
    return VEK_OKAY;
}

// The node's table from probs or functable; a truth table when every
// probability of a deterministic node is 0 or 1.
int VEK_neticaSpeaker::MakeTable(NodeParse& np) {
    const std::string& name = np.node.name;
    const size_t states = np.node.states.size();
    if (np.node.type == VEK_TABLE) {
        if (!np.hasFunctable) return Fail(np.node.pos, "No utility table for node " + Quote(name));
        np.table.hasValues = true;
        np.table.valuesPos = np.functablePos;
        for (const VEK_token& leaf : np.functable) {
            if (!leaf.IsNumber()) return Fail(leaf, "Number expected but found " + leaf.Describe());
            np.table.values.push_back(leaf.number);
        }
        return VEK_OKAY;
    }
    if (np.node.type != VEK_CPT) return VEK_OKAY;
    if (np.hasProbs) {
        np.table.hasValues = true;
        np.table.values = std::move(np.probs);
        np.table.valuesPos = np.probsPos;
        bool zeroOne = np.determin;
        for (double v : np.table.values) zeroOne = zeroOne && (v == 0.0 || v == 1.0);
        if (zeroOne) np.node.type = VEK_TRUTHTABLE;
    } else if (np.hasFunctable) {
        // State names (or levels) per parent configuration.
        if (static_cast<long long>(np.functable.size()) * static_cast<long long>(states) > kMaxTable) {
            return Fail(np.functablePos, "Table too large for node " + Quote(name));
        }
        np.node.type = VEK_TRUTHTABLE;
        np.table.hasValues = true;
        np.table.valuesPos = np.functablePos;
        np.table.values.assign(np.functable.size() * states, 0.0);
        for (size_t j = 0; j < np.functable.size(); ++j) {
            const VEK_token& leaf = np.functable[j];
            size_t k = 0;
            if (leaf.IsNumber() && !np.node.pointValues.empty()) {
                while (k < states && np.node.pointValues[k] != leaf.number) ++k;
            } else {
                while (k < states && np.node.states[k] != leaf.text) ++k;
            }
            if (k == states) {
                return Fail(leaf, "Unknown state " + leaf.Describe() + " in the functable of node " + Quote(name));
            }
            np.table.values[j * states + k] = 1.0;
        }
    } else if (states > 0) {
        // No table given: every configuration uniform.
        np.table.hasDefault = true;
        np.table.defaultRow.assign(states, 1.0 / static_cast<double>(states));
        np.table.defaultPos = np.node.pos;
    }
    return VEK_OKAY;
}

int VEK_neticaSpeaker::ParseBnet(VEK_netDesc& desc) {
    VEK_token t;
    int res = Next(t);
    if (res < 0) return res;
    if (!t.IsWord() && !t.IsString()) return Fail(t, "Network name expected but found " + t.Describe());
    desc.hasName = true;
    desc.name = t.text;
    if ((res = Expect("{")) < 0) return res;
    for (;;) {
        if ((res = Next(t)) < 0) return res;
        if (t.Is("}")) break;
        if (t.IsEnd()) return Fail(t, "Unexpected end of file: '}' of the bnet missing");
        if (!t.IsWord()) return Fail(t, "Field name expected but found " + t.Describe());
        if (t.text == "node") {
            VEK_token name;
            if ((res = Next(name)) < 0) return res;
            if (!name.IsWord() && !name.IsString()) return Fail(name, "Node name expected but found " + name.Describe());
            if ((res = ParseNode(desc, name)) < 0) return res;
            continue;
        }
        VEK_token next;
        if ((res = Peek(next)) < 0) return res;
        if ((t.text == "title" || t.text == "comment") && next.Is("=")) {
            const bool title = t.text == "title";
            (void)Next(next);  // the token just peeked
            if ((res = Next(t)) < 0) return res;
            if (!IsItem(t)) return Fail(t, "String expected but found " + t.Describe());
            (title ? title_ : comment_) = t.text;
            (title ? hasTitle_ : hasComment_) = true;
            if ((res = Expect(";")) < 0) return res;
            continue;
        }
        if ((res = SkipStatement()) < 0) return res;
    }
    Accept(";");
    return VEK_OKAY;
}

int VEK_neticaSpeaker::Parse(VEK_netDesc& desc) {
    VEK_tokenSyntax& s = Tokenizer().Syntax();
    s = VEK_tokenSyntax();
    extras_.clear();
    hasTitle_ = hasComment_ = false;
    VEK_token t;
    bool seen = false;
    for (;;) {
        int res = Next(t);
        if (res < 0) return res;
        if (t.IsEnd()) break;
        if (t.Is(";")) continue;
        if (!t.Is("bnet")) return Fail(t, "Expected 'bnet' but found " + t.Describe());
        if (seen) return Fail(t, "Only one bnet per file can be read");
        seen = true;
        if ((res = ParseBnet(desc)) < 0) return res;
    }
    if (!seen) return Fail(t, "Expected 'bnet' but found end of file");
    return VEK_OKAY;
}

int VEK_neticaSpeaker::Finish(const VEK_netDesc& desc, const std::vector<int>& handles) {
    VEK_network& net = Network();
    if (hasTitle_) net.Header().SetName(title_.c_str());
    if (hasComment_) net.Header().SetComment(comment_.c_str());
    for (size_t i = 0; i < desc.nodes.size() && i < extras_.size(); ++i) {
        VEK_node* node = net.GetNode(handles[i]);
        if (!node) continue;
        const Extra& e = extras_[i];
        if (e.hasComment) node->Header().SetComment(e.comment.c_str());
        if (desc.nodes[i].type == VEK_TABLE) continue;
        auto* def = static_cast<VEK_discDef*>(node->Definition());
        const int n = def->GetNumberOfOutcomes();
        for (int k = 0; k < n && k < static_cast<int>(e.stateTitles.size()); ++k) {
            if (!e.stateTitles[k].empty()) (void)def->SetOutcomeLabel(k, e.stateTitles[k].c_str());  // the outcome index is in range
        }
        for (int k = 0; k < n && k < static_cast<int>(e.stateComments.size()); ++k) {
            if (!e.stateComments[k].empty()) (void)def->SetOutcomeComment(k, e.stateComments[k].c_str());  // the outcome index is in range
        }
    }
    return VEK_OKAY;
}

// ------------------------------------------------------------------ writing

std::string VEK_neticaSpeaker::CheckWritable() {
    VEK_network& net = Network();
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_node& node = *net.GetNode(h);
        const int type = node.Definition()->GetType();
        std::string id = node.GetId();
        if (node.GetTemporalType() != 0) return "node '" + id + "' is temporal";
        if (type == VEK_LIST || type == VEK_TABLE) continue;
        if (type == VEK_MAU) return "node '" + id + "' is a multi-attribute utility node";
        if (!IsChanceType(type) || !node.Definition()->GetMatrix()) return "node '" + id + "' has no table";
    }
    return std::string();
}

namespace {

constexpr size_t kMaxName = 30;

// A Netica name for an id: ASCII letters, digits and underscores, starting
// with a letter, at most 30 characters, not yet used.
std::string NeticaName(const std::string& id, char prefix, std::unordered_set<std::string>& used) {
    std::string name;
    for (unsigned char c : id) {
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
        name += ok ? static_cast<char>(c) : '_';
    }
    if (name.empty() || !((name[0] >= 'a' && name[0] <= 'z') || (name[0] >= 'A' && name[0] <= 'Z'))) {
        name.insert(name.begin(), prefix);
    }
    if (name.size() > kMaxName) name.resize(kMaxName);
    std::string candidate = name;
    for (int k = 1; used.count(candidate); ++k) {
        std::string suffix = "_" + std::to_string(k);
        candidate = name.substr(0, kMaxName - suffix.size()) + suffix;
    }
    used.insert(candidate);
    return candidate;
}

// Items in nested parentheses, one level per entry of dims (none: the
// single item bare); a line per innermost group.
template <typename Leaf>
void WriteNested(std::string& out, const std::vector<int>& dims, long long count, const char* indent, Leaf leaf) {
    const size_t nd = dims.size();
    std::vector<long long> suffix(nd + 1, 1);
    for (size_t i = nd; i-- > 0;) suffix[i] = suffix[i + 1] * dims[i];
    for (long long idx = 0; idx < count; ++idx) {
        for (size_t i = 0; i < nd; ++i)
            if (idx % suffix[i] == 0) out += '(';
        leaf(out, idx);
        size_t closes = 0;
        for (size_t i = 0; i < nd; ++i)
            if ((idx + 1) % suffix[i] == 0) ++closes;
        out.append(closes, ')');
        if (idx + 1 < count) {
            out += ',';
            if (closes > 0) {
                out += '\n';
                out += indent;
                out.append(nd - closes, ' ');
            } else {
                out += ' ';
            }
        }
    }
}

void AppendString(std::string& out, const char* text) { VEK_fileFormat::AppendQuoted(out, text ? text : ""); }

}  // namespace

void VEK_neticaSpeaker::WriteText() {
    VEK_network& net = Network();
    std::string& out = Text();

    // Names first: parents are named before their children are written.
    std::unordered_set<std::string> usedNames;
    std::unordered_map<int, std::string> names;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        names[h] = NeticaName(net.GetNodeId(h), 'n', usedNames);
    }
    std::unordered_set<std::string> netNames;
    const VEK_header& header = net.Header();
    std::string netName = NeticaName(*header.GetId() ? header.GetId() : "Network", 'n', netNames);

    out += "// ~->[DNET-1]->~\n\nbnet ";
    out += netName;
    out += " {\n";
    std::string title;
    if (*header.GetName() && std::string(header.GetName()) != header.GetId()) {
        title = header.GetName();
    } else if (netName != header.GetId() && *header.GetId()) {
        title = header.GetId();
    }
    if (!title.empty()) {
        out += "title = ";
        AppendString(out, title.c_str());
        out += ";\n";
    }
    if (*header.GetComment()) {
        out += "comment = ";
        AppendString(out, header.GetComment());
        out += ";\n";
    }
    out += "\nvisual V1 {\n\tdefdispform = BELIEFBARS;\n\tnodelabeling = TITLE;\n\t};\n";

    // Parents before children: Netica resolves a parent's name where it
    // reads it.
    const VEK_intArray& order = net.PartialOrdering();
    std::vector<int> handles(order.Items(), order.Items() + order.GetSize());
    for (int h : handles) {
        const VEK_node& node = *net.GetNode(h);
        const VEK_nodeDef* def = node.Definition();
        const int type = def->GetType();
        const bool utility = type == VEK_TABLE;
        const auto* disc = utility ? nullptr : static_cast<const VEK_discDef*>(def);
        // Decisions keep only point values: Netica has no continuous decisions.
        const bool intervals = disc && type != VEK_LIST && disc->HasIntervals();

        out += "\nnode ";
        out += names[h];
        out += " {\n";
        if (type == VEK_LIST) {
            out += "\tkind = DECISION;\n\tdiscrete = TRUE;\n\tchance = DETERMIN;\n";
        } else if (utility) {
            out += "\tkind = UTILITY;\n\tdiscrete = FALSE;\n\tmeasure = RL;\n\tchance = DETERMIN;\n";
        } else {
            out += "\tkind = NATURE;\n\tdiscrete = ";
            out += intervals ? "FALSE" : "TRUE";
            out += ";\n\tchance = ";
            out += type == VEK_TRUTHTABLE ? "DETERMIN" : "CHANCE";
            out += ";\n";
        }

        std::vector<std::string> stateNames;
        std::vector<std::string> stateTitles;
        bool anyTitle = false;
        bool anyComment = false;
        if (disc) {
            std::unordered_set<std::string> usedStates;
            const VEK_idArray& ids = *disc->GetOutcomeIds();
            for (int k = 0; k < ids.GetSize(); ++k) {
                stateNames.push_back(NeticaName(ids[k], 's', usedStates));
                const char* label = disc->GetOutcomeLabel(k);
                std::string t = label && *label ? std::string(label) : stateNames.back() != ids[k] ? std::string(ids[k]) : std::string();
                anyTitle = anyTitle || !t.empty();
                anyComment = anyComment || *disc->GetOutcomeComment(k);
                stateTitles.push_back(std::move(t));
            }
            out += "\tstates = (";
            for (size_t k = 0; k < stateNames.size(); ++k) {
                if (k) out += ", ";
                out += stateNames[k];
            }
            out += ");\n";
            const std::vector<double>* levels = intervals                ? &disc->GetIntervals()
                                                : disc->HasPointValues() ? &disc->GetPointValues()
                                                                         : nullptr;
            if (levels) {
                out += "\tlevels = (";
                for (size_t k = 0; k < levels->size(); ++k) {
                    if (k) out += ", ";
                    VEK_appendDouble(out, (*levels)[k]);
                }
                out += ");\n";
            }
        }

        const VEK_intArray& parents = node.Parents();
        out += "\tparents = (";
        for (int k = 0; k < parents.GetSize(); ++k) {
            if (k) out += ", ";
            out += names[parents[k]];
        }
        out += ");\n";

        if (type != VEK_LIST) {
            const VEK_Dmatrix& m = *def->GetMatrix();
            std::vector<int> dims(m.GetDimensions().Items(), m.GetDimensions().Items() + m.GetNumberOfDimensions());
            const int states = m.GetLastDimensionSize();
            if (utility || (type == VEK_TRUTHTABLE && !intervals)) {
                // A value or a state per parent configuration.
                dims.pop_back();
                out += "\tfunctable = \n\t\t";
                const long long columns = states > 0 ? m.GetSize() / states : 0;
                WriteNested(out, dims, columns, "\t\t", [&](std::string& o, long long j) {
                    if (utility) {
                        VEK_appendDouble(o, m[static_cast<int>(j)]);
                    } else {
                        int k = 0;
                        while (k < states - 1 && m[static_cast<int>(j * states + k)] != 1.0) ++k;
                        o += stateNames[static_cast<size_t>(k)];
                    }
                    if (o.size() > (1 << 16)) FlushText();
                });
            } else {
                out += "\tprobs = \n\t\t";
                WriteNested(out, dims, m.GetSize(), "\t\t", [&](std::string& o, long long j) {
                    VEK_appendDouble(o, m[static_cast<int>(j)]);
                    if (o.size() > (1 << 16)) FlushText();
                });
            }
            out += ";\n";
        }

        std::string nodeTitle;
        const char* nodeName = node.Header().GetName();
        if (*nodeName && std::string(nodeName) != node.GetId()) {
            nodeTitle = nodeName;
        } else if (names[h] != node.GetId()) {
            nodeTitle = node.GetId();
        }
        if (!nodeTitle.empty()) {
            out += "\ttitle = ";
            AppendString(out, nodeTitle.c_str());
            out += ";\n";
        }
        if (*node.Header().GetComment()) {
            out += "\tcomment = ";
            AppendString(out, node.Header().GetComment());
            out += ";\n";
        }
        if (anyTitle) {
            out += "\tstatetitles = (";
            for (size_t k = 0; k < stateTitles.size(); ++k) {
                if (k) out += ", ";
                AppendString(out, stateTitles[k].c_str());
            }
            out += ");\n";
        }
        if (anyComment) {
            out += "\tstatecomments = (";
            for (int k = 0; k < disc->GetNumberOfOutcomes(); ++k) {
                if (k) out += ", ";
                AppendString(out, disc->GetOutcomeComment(k));
            }
            out += ");\n";
        }
        const VEK_rectangle& r = node.Info().screen.position;
        out += "\tvisual V1 {\n\t\tcenter = (" + std::to_string(r.centerX) + ", " + std::to_string(r.centerY) +
               ");\n\t\theight = 1;\n\t\t};\n\t};\n";
        if (out.size() > (1 << 16)) FlushText();
    }
    out += "};\n";
}
