#include "formats/ergoSpeaker.h"

#include <limits>
#include <string>
#include <vector>

#include "formats/formatRegistry.h"
#include "network/discDef.h"
#include "network/network.h"

VEK_fileFormat* VEK_createErgoSpeaker(VEK_network& net) { return new VEK_ergoSpeaker(net); }

namespace {

// Names are any run of printable characters: every punctuation mark is part
// of a word, so that names such as Asy/Patch or >=7.5 stay one token.
void SetErgoSyntax(VEK_tokenSyntax& s) {
    s.lineComments = {"//"};
    s.blockComments = {{"/*", "*/"}};
    s.quotes.assign(1, '"');
    s.extraWordChars.clear();
    for (char c = '!'; c <= '~'; ++c) {
        bool alnum = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (!alnum && c != '"' && c != '_') s.extraWordChars += c;
    }
    s.symbols.clear();
    s.signedNumbers = true;
}

// Tables larger than this cannot be held by the engine.
constexpr long long kMaxTable = std::numeric_limits<int>::max();

struct ErgoVar {
    long long states = 0;
    VEK_descPos statesPos;
    std::vector<int> parents;
    std::vector<VEK_descPos> parentPos;
    VEK_descPos parentsPos;
    std::vector<double> values;
    VEK_descPos valuesPos;
    std::string name;
    VEK_descPos namePos;
    std::vector<std::string> labels;
};

}  // namespace

int VEK_ergoSpeaker::Parse(VEK_netDesc& desc) {
    SetErgoSyntax(Tokenizer().Syntax());
    VEK_token t;
    long long n = 0;
    int res = ExpectCount(kMaxTable, n, "Number of variables");
    if (res < 0) return res;
    // Grown as the file delivers, so that a huge count in a short file costs
    // nothing.
    std::vector<ErgoVar> vars;
    for (long long i = 0; i < n; ++i) {
        vars.emplace_back();
        if ((res = Peek(t)) < 0) return res;
        vars.back().statesPos = Pos(t);
        if ((res = ExpectCount(kMaxTable, vars.back().states, "Number of states")) < 0) return res;
    }
    for (long long i = 0; i < n; ++i) {
        ErgoVar& v = vars[static_cast<size_t>(i)];
        long long k = 0;
        if ((res = Peek(t)) < 0) return res;
        v.parentsPos = Pos(t);
        if ((res = ExpectCount(n, k, "Number of parents")) < 0) return res;
        for (long long j = 0; j < k; ++j) {
            if ((res = Next(t)) < 0) return res;
            if (!t.IsNumber() || !t.isInteger) return Fail(t, "Parent index expected but found " + t.Describe());
            if (t.integer < 0 || t.integer >= n) {
                return Fail(t, "Unknown parent: variable " + t.text + " of variable " + std::to_string(i) +
                                   " (there are " + std::to_string(n) + " variables)");
            }
            v.parents.push_back(static_cast<int>(t.integer));
            v.parentPos.push_back(Pos(t));
        }
    }
    for (long long i = 0; i < n; ++i) {
        ErgoVar& v = vars[static_cast<size_t>(i)];
        // The expected size, capped so that it cannot overflow.
        long long expected = v.states;
        for (int p : v.parents) {
            expected *= vars[static_cast<size_t>(p)].states;
            if (expected > kMaxTable) break;
        }
        long long count = 0;
        if ((res = Peek(t)) < 0) return res;
        v.valuesPos = Pos(t);
        if ((res = ExpectCount(kMaxTable, count, "Number of table entries")) < 0) return res;
        if (expected > kMaxTable) return Fail(v.valuesPos, "Table too large for variable " + std::to_string(i));
        if (count != expected) {
            return Fail(v.valuesPos, "Table of variable " + std::to_string(i) + " has " + std::to_string(count) +
                                         " entries, expected " + std::to_string(expected));
        }
        for (long long j = 0; j < count; ++j) {
            double d;
            if ((res = ExpectNumber(d)) < 0) return res;
            v.values.push_back(d);
        }
    }
    auto readName = [&](std::string& name, VEK_descPos& pos, const char* what) {
        int r = Next(t);
        if (r < 0) return r;
        if (t.IsEnd()) return Fail(t, std::string(what) + " expected but found end of file");
        name = t.text;
        pos = Pos(t);
        return VEK_OKAY;
    };
    for (ErgoVar& v : vars) {
        if ((res = readName(v.name, v.namePos, "Variable name")) < 0) return res;
    }
    for (ErgoVar& v : vars) {
        for (long long k = 0; k < v.states; ++k) {
            VEK_descPos pos;
            v.labels.emplace_back();
            if ((res = readName(v.labels.back(), pos, "State name")) < 0) return res;
        }
    }
    if ((res = Next(t)) < 0) return res;
    if (!t.IsEnd()) return Fail(t, "Unexpected " + t.Describe() + " after the state names");

    desc.nodes.reserve(vars.size());
    desc.tables.reserve(vars.size());
    for (ErgoVar& v : vars) {
        VEK_descNode node;
        node.name = v.name;
        node.pos = v.namePos;
        node.type = VEK_CPT;
        node.states = std::move(v.labels);
        desc.nodes.push_back(std::move(node));
    }
    for (ErgoVar& v : vars) {
        VEK_descTable table;
        table.child = v.name;
        table.pos = v.parentsPos;
        for (int p : v.parents) table.parents.push_back(vars[static_cast<size_t>(p)].name);
        table.parentPos = std::move(v.parentPos);
        table.hasValues = true;
        table.values = std::move(v.values);
        table.valuesPos = v.valuesPos;
        desc.tables.push_back(std::move(table));
    }
    return VEK_OKAY;
}

std::string VEK_ergoSpeaker::CheckWritable() {
    VEK_network& net = Network();
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        std::string reason = ChanceOnlyReason(*net.GetNode(h));
        if (!reason.empty()) return reason;
    }
    return std::string();
}

namespace {

// The name to write: the node's name or the outcome's label when it reads
// back as this id and stays one token in this format; else the id.
std::string ErgoName(const char* id, const char* name, char prefix) {
    std::string text = VEK_foreignName(id, name, prefix);
    if (text == id) return text;
    VEK_tokenizer check;
    SetErgoSyntax(check.Syntax());
    check.SetText(text);
    VEK_token t;
    if (check.Next(t) != VEK_OKAY || t.IsString() || t.text != text || check.Next(t) != VEK_NO_MORE_TOKENS) return id;
    return text;
}

}  // namespace

void VEK_ergoSpeaker::WriteText() {
    VEK_network& net = Network();
    std::string& out = Text();
    std::vector<int> handles, index;
    NumberNodes(handles, index);
    out += "/* Number of variables */\n";
    out += std::to_string(handles.size());
    out += "\n/* Number of states */\n";
    AppendOutcomeCounts(handles);
    out += "\n/* Parents */\n";
    for (int h : handles) {
        const VEK_intArray& parents = net.GetNode(h)->Parents();
        out += std::to_string(parents.GetSize());
        for (int k = 0; k < parents.GetSize(); ++k) {
            out += ' ';
            out += std::to_string(index[static_cast<size_t>(parents[k])]);
        }
        out += '\n';
    }
    out += "/* Probabilities */\n";
    for (int h : handles) AppendTable(h);
    out += "/* Names */\n";
    for (int h : handles) {
        const VEK_node* node = net.GetNode(h);
        out += ErgoName(node->GetId(), node->Header().GetName(), 'n');
        out += '\n';
    }
    out += "/* Labels */\n";
    for (int h : handles) {
        const auto* def = static_cast<const VEK_discDef*>(net.GetDef(h));
        const VEK_idArray& ids = *def->GetOutcomeIds();
        for (int k = 0; k < ids.GetSize(); ++k) {
            if (k) out += ' ';
            out += ErgoName(ids[k], def->GetOutcomeLabel(k), 's');
        }
        out += '\n';
        if (out.size() > (1 << 16)) FlushText();
    }
}
