#include "formats/vekReader.h"

#include <climits>
#include <algorithm>
#include <functional>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "dynamic/dynamicNet.h"
#include "equations/equation.h"
#include "formats/fileFormat.h"
#include "network/cast.h"
#include "network/cpt.h"
#include "network/demorgan.h"
#include "network/discDef.h"
#include "network/identifier.h"
#include "network/mau.h"
#include "network/network.h"
#include "network/noisyAdder.h"
#include "network/noisyMAX.h"
#include "network/truthTable.h"

// The file is read in two steps: a generic parse into a tree of items
// (keyword, arguments, value, block), then an interpretation that checks
// every item against the grammar and builds the network. Building from the
// whole tree lets a node name parents written after it and lets the fields
// of a block come in any order.

namespace {

// Blocks and lists nested deeper than this are refused, so that a hostile
// file cannot exhaust the stack.
constexpr int kMaxBlockDepth = 1000;
constexpr int kMaxListDepth = 16;
// A table left out of the file gets the engine's default; larger ones must
// be given.
constexpr long long kMaxDefaultTable = 1LL << 20;
// Table size predictions saturate here.
constexpr long long kSizeCap = 1LL << 50;

struct Pos {
    int line = 0;
    int column = 0;
};

Pos PosOf(const VEK_token& t) { return {t.line, t.column}; }

struct Value {
    enum Kind : unsigned char { Number, Word, String, NotAvailable, List };
    Kind kind = Number;
    // List: true while every element is a number or n/a; such lists keep
    // only their numbers (tables are large).
    bool numeric = true;
    bool hasNA = false;
    bool isInteger = false;  // Number: an integer literal, kept exactly in integer
    long long integer = 0;
    Pos pos;
    Pos naPos;
    double number = 0.0;
    std::string text;
    std::vector<double> numbers;
    std::vector<Value> items;

    size_t Size() const { return kind != List ? 1 : numeric ? numbers.size() : items.size(); }
};

struct Item {
    std::string keyword;
    Pos pos;
    std::vector<Value> args;
    bool hasValue = false;
    std::vector<Value> value;
    bool hasBlock = false;
    std::vector<Item> block;
};

// A reference to a node, outcome or submodel: by id, or by index.
struct Ref {
    std::string id;
    int index = -1;
    bool isIndex = false;
    Pos pos;
};

bool EqualsNoCase(const std::string& a, const char* b) {
    size_t n = std::strlen(b);
    if (a.size() != n) return false;
    for (size_t i = 0; i < n; ++i) {
        if ((a[i] | 0x20) != (b[i] | 0x20)) return false;
    }
    return true;
}

bool SpecialNumber(const std::string& word, double sign, double& value) {
    if (EqualsNoCase(word, "inf") || EqualsNoCase(word, "infinity")) {
        value = sign * std::numeric_limits<double>::infinity();
        return true;
    }
    if (EqualsNoCase(word, "nan")) {
        value = std::copysign(std::numeric_limits<double>::quiet_NaN(), sign);
        return true;
    }
    return false;
}

std::string Describe(const Value& v) {
    switch (v.kind) {
        case Value::Number: {
            std::string s = "'";
            char text[64];
            int n = std::snprintf(text, sizeof text, "%.17g", v.number);
            s.append(text, n > 0 ? static_cast<size_t>(n) : 0);
            return s + "'";
        }
        case Value::Word: return "'" + v.text + "'";
        case Value::String: return "\"" + v.text + "\"";
        case Value::NotAvailable: return "'n/a'";
        case Value::List: return "a list";
    }
    return "a value";
}

bool IsNodeId(const std::string& id) { return VEK_isValidIdentifier(id) || (id.size() > 1 && id[0] == '@'); }

unsigned SwapRedBlue(unsigned c) { return (c & 0xFF00FF00u) | ((c & 0xFFu) << 16) | ((c >> 16) & 0xFFu); }

// ============================================================== kinds

enum Kind { kCpt, kDeterministic, kDecision, kUtility, kMau, kCast, kDemorgan, kNoisyMax, kNoisyAdder, kEquation };

using Words = std::vector<std::string_view>;

struct KindInfo {
    const char* name;
    Kind kind;
    int type;
    bool outcomes;
    Words fields;
};

const KindInfo kKinds[] = {
    {"cpt", kCpt, VEK_CPT, true, {"probabilities"}},
    {"deterministic", kDeterministic, VEK_TRUTHTABLE, true, {"resultingstates"}},
    {"decision", kDecision, VEK_LIST, true, {}},
    {"utility", kUtility, VEK_TABLE, false, {"utilities"}},
    {"mau", kMau, VEK_MAU, false, {"weights", "expressions"}},
    {"cast", kCast, VEK_CAST, true, {"pweights", "nweights", "baseline"}},
    {"demorgan", kDemorgan, VEK_DEMORGAN, true, {"types", "weights", "priorbelief"}},
    {"noisymax", kNoisyMax, VEK_NOISY_MAX, true, {"strengths", "parameters", "synchronized"}},
    {"noisyadder", kNoisyAdder, VEK_NOISY_ADDER, true, {"function", "dstate", "dstates", "weights", "parameters"}},
    {"equation", kEquation, VEK_EQUATION, false,
     {"equation", "bounds", "defaultvalue", "nominal", "discretization", "labels"}},
};

const Words kPresentation = {"center", "size", "interior", "outline", "outlinewidth", "selcolor", "fontcolor", "font"};
const Words kNodeFields = {"name",      "comment", "question", "parents",  "target",      "diagtype", "ranked",
                           "mandatory", "dynamic", "submodel", "barchart", "costparents", "cost"};
const Words kOutcomeFields = {"states", "default", "intervals", "pointvalues"};
const Words kNameComment = {"name", "comment"};

bool InList(const std::string& word, const Words& list) { return std::find(list.begin(), list.end(), word) != list.end(); }

Words Join(std::initializer_list<const Words*> parts) {
    Words all;
    for (const Words* w : parts) all.insert(all.end(), w->begin(), w->end());
    return all;
}

const Words kSubmodelFields = Join({&kNameComment, &kPresentation});

// a * b for sizes, saturating at kSizeCap.
long long Mul(long long a, long long b) {
    if (a <= 0 || b <= 0) return 0;
    return a > kSizeCap / b ? kSizeCap : std::min(kSizeCap, a * b);
}

// The single fields of a block, by keyword.
using Fields = std::unordered_map<std::string, const Item*>;

struct NodeSpec {
    const Item* item = nullptr;
    const KindInfo* kind = nullptr;
    std::string id;
    int handle = -1;
    Fields fields;
    std::vector<int> parents;  // indices into nodes_
    std::vector<Pos> parentPos;
};

// ============================================================== reader

class VekReader {
public:
    explicit VekReader(VEK_fileFormat& f) : f_(f), tok_(f.Tokenizer()), net_(f.Network()) {}
    int Read();

private:
    // ---- parsing ----
    int Fail(Pos p, const std::string& message);
    int Next(VEK_token& t);
    int Peek(VEK_token& t);
    static bool StartsScalar(const VEK_token& t) {
        return t.IsWord() || t.IsString() || t.IsNumber() || t.Is("-") || t.Is("+");
    }
    int ParseItems(std::vector<Item>& out, int depth);
    int ParseScalar(Value& v);
    int ParseList(Value& v, int depth);

    // ---- checking items ----
    // Every item of the block must be one of single (at most once, kept in
    // found) or repeated.
    int CheckBlock(const Item& block, const std::string& where, const Words& single, const Words& repeated,
                   Fields& found);
    int ExpectBlock(const Item& it, size_t args);
    int ExpectField(const Item& it, size_t values, size_t args = 0);
    const Value& One(const Item& it) const { return it.value[0]; }
    int AsDouble(const Value& v, double& d);
    int AsInt(const Value& v, int& i);
    int AsLong(const Value& v, long long& i);
    int AsText(const Value& v, std::string& s);
    int AsRef(const Value& v, Ref& r, bool allowIndex);
    int AsBool(const Value& v, bool& b);
    int GetBool(const Item& it, bool& b);
    int GetInt(const Item& it, int& i);
    int GetDouble(const Item& it, double& d);
    int GetText(const Item& it, std::string& s);
    int GetRef(const Item& it, Ref& r, bool allowIndex);
    int GetList(const Item& it, const Value*& list);
    int GetDoubles(const Item& it, std::vector<double>& out, bool allowNA = false);
    int ListDoubles(const Value& list, std::vector<double>& out, bool allowNA);
    int ListRefs(const Value& list, std::vector<Ref>& out, bool allowIndex);
    int GetRefs(const Item& it, std::vector<Ref>& out, bool allowIndex);
    int GetColor(const Item& it, unsigned& color);
    int GetFont(const Item& it, VEK_font& font);
    int GetPair(const Item& it, int& a, int& b);
    // The outcome of a node named by r: id or index.
    int Outcome(const Ref& r, int node, int& outcome, const char* failure = "Invalid outcome identifier");
    int NamedFail(Pos p, const char* message, const std::string& name);

    // ---- building ----
    int ReadNetwork(const Item& net);
    int ReadNetworkFields(const Item& net);
    int ReadEpis(const Item& it);
    int ReadSubmodel(const Item& it, int parent);
    int ReadPresentation(const Item& block, VEK_screenInfo& screen);
    int CreateNode(const Item& it);
    int ReadOutcomes(NodeSpec& n);
    int ReadStateBlocks(NodeSpec& n, VEK_discDef* def);
    int ReadParents(NodeSpec& n);
    int CheckCycles();
    int AddArcs(NodeSpec& n);
    int ReadDefinition(NodeSpec& n);
    // Per kind, the parts of a definition beyond a plain table.
    int ReadMau(NodeSpec& n);
    int ReadDeterministic(NodeSpec& n);
    int ReadCast(NodeSpec& n);
    int ReadDemorgan(NodeSpec& n);
    int ReadNoisyMax(NodeSpec& n);
    int ReadNoisyAdder(NodeSpec& n);
    int ReadEquation(NodeSpec& n);
    // Bounds and intervals of an equation node: they are its outcomes, so
    // they come before the arcs to its children.
    int ReadEquationRange(NodeSpec& n);
    // A list with one number per parent: 1 when the field is there, 0 when
    // it is not, or a negative status.
    int PerParentDoubles(const NodeSpec& n, const char* field, std::vector<double>& out);
    int PerParentRefs(const NodeSpec& n, const Item& it, std::vector<Ref>& out);
    int ReadTemporal(NodeSpec& n);
    int ReadTemporalCanonical(NodeSpec& n, int order, const Fields& fields);
    int ReadTemporalEquations(NodeSpec& n, const std::vector<const Item*>& blocks, const std::vector<Fields>& found,
                              const std::vector<int>& orders);
    int ReadPlate(const Item& it);
    int ReadTable(NodeSpec& n, const char* field);
    int ReadNodeAttributes(NodeSpec& n);
    int ReadCosts(NodeSpec& n);
    int ReadTextBox(const Item& it);
    int ReadCase(const Item& it);
    int ReadEvidence(VEK_case& c, const Item& it);
    int ReadProperty(const Item& it, VEK_userProperties& props, const char* failure);
    int ReadLink(const Item& it, std::vector<std::string>& titles, std::vector<std::string>& paths);
    // The node named by r (through the index of ids), or -1 after a logged fault.
    int NodeHandle(const Ref& r, const char* failure = "Invalid node identifier");
    const Item* Field(const NodeSpec& n, const char* name) const {
        auto it = n.fields.find(name);
        return it == n.fields.end() ? nullptr : it->second;
    }

    VEK_fileFormat& f_;
    VEK_tokenizer& tok_;
    VEK_network& net_;
    std::vector<Item> top_;
    std::vector<NodeSpec> nodes_;
    // Node and submodel identifiers share one name space.
    struct Entry {
        int handle;
        int desc;  // index into nodes_, -1 for submodels
    };
    std::unordered_map<std::string, Entry> ids_;
};

int VekReader::Fail(Pos p, const std::string& message) {
    return f_.LogFileReadingError(VEK_FILE_IO_FAILED, message, p.line, p.column);
}

int VekReader::NamedFail(Pos p, const char* message, const std::string& name) {
    std::string text = message;
    text += ": '";
    text += name;
    text += "'";
    return Fail(p, text);
}

int VekReader::Next(VEK_token& t) {
    int res = tok_.Next(t);
    if (res == VEK_LEXICAL_ERROR) return Fail({tok_.ErrorLine(), tok_.ErrorColumn()}, tok_.ErrorMessage());
    return VEK_OKAY;  // the end of the input comes as an End token
}

int VekReader::Peek(VEK_token& t) {
    int res = tok_.Peek(t);
    if (res == VEK_LEXICAL_ERROR) return Fail({tok_.ErrorLine(), tok_.ErrorColumn()}, tok_.ErrorMessage());
    return VEK_OKAY;
}

// ============================================================== parsing

int VekReader::ParseItems(std::vector<Item>& out, int depth) {
    VEK_token t;
    for (;;) {
        int res = Peek(t);
        if (res < 0) return res;
        if (t.IsEnd()) {
            if (depth == 0) return VEK_OKAY;
            return Fail(PosOf(t), "Expected '}' but found end of file");
        }
        if (t.Is("}")) {
            if (depth == 0) return Fail(PosOf(t), "Unexpected '}'");
            Next(t);
            return VEK_OKAY;
        }
        if (t.Is(";")) {
            Next(t);
            continue;
        }
        if (!t.IsWord()) return Fail(PosOf(t), "Keyword expected but found " + t.Describe());
        Next(t);
        out.emplace_back();
        Item& item = out.back();
        item.keyword = t.text;
        item.pos = PosOf(t);
        for (;;) {
            if ((res = Peek(t)) < 0) return res;
            if (t.Is("=") || t.Is("{") || t.Is(";")) break;
            if (!StartsScalar(t)) return Fail(PosOf(t), "Expected '=', '{' or ';' but found " + t.Describe());
            item.args.emplace_back();
            if ((res = ParseScalar(item.args.back())) < 0) return res;
        }
        if (t.Is(";")) {
            Next(t);
            continue;
        }
        if (t.Is("=")) {
            Next(t);
            item.hasValue = true;
            for (;;) {
                if ((res = Peek(t)) < 0) return res;
                if (t.Is(";") && !item.value.empty()) {
                    Next(t);
                    break;
                }
                item.value.emplace_back();
                if (t.Is("(")) {
                    res = ParseList(item.value.back(), 1);
                } else if (StartsScalar(t)) {
                    res = ParseScalar(item.value.back());
                } else {
                    return Fail(PosOf(t), std::string(item.value.size() > 1 ? "Expected ';'" : "Value expected") +
                                              " but found " + t.Describe());
                }
                if (res < 0) return res;
            }
            continue;
        }
        Next(t);  // '{'
        if (depth + 1 > kMaxBlockDepth) return Fail(PosOf(t), "Blocks are nested too deeply");
        item.hasBlock = true;
        if ((res = ParseItems(item.block, depth + 1)) < 0) return res;
    }
}

int VekReader::ParseScalar(Value& v) {
    VEK_token t;
    int res = Next(t);
    if (res < 0) return res;
    v.pos = PosOf(t);
    if (t.IsNumber()) {
        v.kind = Value::Number;
        v.number = t.number;
        v.isInteger = t.isInteger;
        v.integer = t.integer;
        return VEK_OKAY;
    }
    if (t.IsString()) {
        v.kind = Value::String;
        v.text = std::move(t.text);
        return VEK_OKAY;
    }
    if (t.IsWord()) {
        if (t.text == "n") {
            VEK_token slash;
            if ((res = Peek(slash)) < 0) return res;
            if (slash.Is("/")) {
                Next(slash);
                VEK_token a;
                if ((res = Next(a)) < 0) return res;
                if (!a.Is("a")) return Fail(PosOf(a), "Expected 'n/a' but found 'n/' and " + a.Describe());
                v.kind = Value::NotAvailable;
                return VEK_OKAY;
            }
        }
        v.kind = Value::Word;
        v.text = std::move(t.text);
        return VEK_OKAY;
    }
    // A sign before inf or nan.
    VEK_token w;
    if ((res = Peek(w)) < 0) return res;
    if (w.IsWord() && SpecialNumber(w.text, t.Is("-") ? -1.0 : 1.0, v.number)) {
        Next(w);
        v.kind = Value::Number;
        return VEK_OKAY;
    }
    return Fail(PosOf(t), "Number expected but found " + t.Describe());
}

int VekReader::ParseList(Value& v, int depth) {
    VEK_token t;
    Next(t);  // '('
    v.kind = Value::List;
    v.pos = PosOf(t);
    int res;
    for (;;) {
        if ((res = Peek(t)) < 0) return res;
        if (t.Is(")")) {
            Next(t);
            return VEK_OKAY;
        }
        if (t.Is(",")) {
            Next(t);
            continue;
        }
        Value e;
        if (t.Is("(")) {
            if (depth + 1 > kMaxListDepth) return Fail(PosOf(t), "Lists are nested too deeply");
            res = ParseList(e, depth + 1);
        } else if (StartsScalar(t)) {
            res = ParseScalar(e);
        } else {
            return Fail(PosOf(t), "Expected ')' but found " + t.Describe());
        }
        if (res < 0) return res;
        if (v.numeric && (e.kind == Value::Number || e.kind == Value::NotAvailable)) {
            if (e.kind == Value::NotAvailable) {
                if (!v.hasNA) v.naPos = e.pos;
                v.hasNA = true;
                v.numbers.push_back(VEK_NOT_AVAILABLE_VALUE);
            } else {
                v.numbers.push_back(e.number);
            }
            continue;
        }
        if (v.numeric) {
            // Not a table after all: the numbers so far become items.
            v.numeric = false;
            v.items.reserve(v.numbers.size() + 1);
            for (double x : v.numbers) {
                Value n;
                n.pos = v.pos;
                n.number = x;
                if (v.hasNA && x == VEK_NOT_AVAILABLE_VALUE) n.kind = Value::NotAvailable;
                v.items.push_back(std::move(n));
            }
            std::vector<double>().swap(v.numbers);
        }
        v.items.push_back(std::move(e));
    }
}

// ============================================================== checking items

int VekReader::CheckBlock(const Item& block, const std::string& where, const Words& single, const Words& repeated,
                          Fields& found) {
    for (const Item& it : block.block) {
        if (InList(it.keyword, repeated)) continue;
        if (InList(it.keyword, single)) {
            if (!found.emplace(it.keyword, &it).second) {
                return Fail(it.pos, "Duplicate field '" + it.keyword + "' in " + where);
            }
            continue;
        }
        return Fail(it.pos, "Unknown keyword '" + it.keyword + "' in " + where);
    }
    return VEK_OKAY;
}

int VekReader::ExpectBlock(const Item& it, size_t args) {
    if (it.hasValue || !it.hasBlock) {
        return Fail(it.pos, "Expected a block '" + it.keyword + (args ? " <name>" : "") + " { ... }'");
    }
    if (it.args.size() != args) {
        return Fail(it.pos, "Expected " + std::to_string(args) + " name" + (args == 1 ? "" : "s") + " after '" +
                                it.keyword + "'");
    }
    return VEK_OKAY;
}

int VekReader::ExpectField(const Item& it, size_t values, size_t args) {
    if (it.hasBlock || !it.hasValue || it.args.size() != args) {
        return Fail(it.pos, "Expected '" + it.keyword + (args ? " <name>" : "") + " = <value>;'");
    }
    if (values && it.value.size() != values) {
        return Fail(it.value[0].pos, "Field '" + it.keyword + "' takes " +
                                         (values == 1 ? std::string("one value") : std::to_string(values) + " values"));
    }
    return VEK_OKAY;
}

int VekReader::AsDouble(const Value& v, double& d) {
    if (v.kind == Value::Number) {
        d = v.number;
        return VEK_OKAY;
    }
    if (v.kind == Value::Word && SpecialNumber(v.text, 1.0, d)) return VEK_OKAY;
    return Fail(v.pos, "Number expected but found " + Describe(v));
}

int VekReader::AsLong(const Value& v, long long& i) {
    if (v.kind == Value::Number && v.isInteger) {
        i = v.integer;
        return VEK_OKAY;
    }
    if (v.kind == Value::Number && std::floor(v.number) == v.number && std::fabs(v.number) <= 9.0e18) {
        i = static_cast<long long>(v.number);
        return VEK_OKAY;
    }
    return Fail(v.pos, "Integer expected but found " + Describe(v));
}

int VekReader::AsInt(const Value& v, int& i) {
    long long x = 0;
    int res = AsLong(v, x);
    if (res < 0) return res;
    if (x < INT_MIN || x > INT_MAX) return Fail(v.pos, "Integer out of range: " + Describe(v));
    i = static_cast<int>(x);
    return VEK_OKAY;
}

int VekReader::AsText(const Value& v, std::string& s) {
    if (v.kind != Value::String && v.kind != Value::Word) return Fail(v.pos, "Text expected but found " + Describe(v));
    s = v.text;
    return VEK_OKAY;
}

int VekReader::AsRef(const Value& v, Ref& r, bool allowIndex) {
    r.pos = v.pos;
    if (v.kind == Value::Word || v.kind == Value::String) {
        r.id = v.text;
        r.isIndex = false;
        return VEK_OKAY;
    }
    if (allowIndex && v.kind == Value::Number) {
        r.isIndex = true;
        return AsInt(v, r.index);
    }
    return Fail(v.pos, "Identifier expected but found " + Describe(v));
}

int VekReader::AsBool(const Value& v, bool& b) {
    if (v.kind == Value::Word && (v.text == "true" || v.text == "false")) {
        b = v.text == "true";
        return VEK_OKAY;
    }
    return Fail(v.pos, "Expected 'true' or 'false' but found " + Describe(v));
}

int VekReader::GetBool(const Item& it, bool& b) {
    int res = ExpectField(it, 1);
    return res < 0 ? res : AsBool(One(it), b);
}

int VekReader::GetInt(const Item& it, int& i) {
    int res = ExpectField(it, 1);
    return res < 0 ? res : AsInt(One(it), i);
}

int VekReader::GetDouble(const Item& it, double& d) {
    int res = ExpectField(it, 1);
    return res < 0 ? res : AsDouble(One(it), d);
}

int VekReader::GetText(const Item& it, std::string& s) {
    int res = ExpectField(it, 1);
    return res < 0 ? res : AsText(One(it), s);
}

int VekReader::GetRef(const Item& it, Ref& r, bool allowIndex) {
    int res = ExpectField(it, 1);
    return res < 0 ? res : AsRef(One(it), r, allowIndex);
}

int VekReader::GetList(const Item& it, const Value*& list) {
    int res = ExpectField(it, 1);
    if (res < 0) return res;
    if (One(it).kind != Value::List) return Fail(One(it).pos, "Field '" + it.keyword + "' takes a list ( ... )");
    list = &One(it);
    return VEK_OKAY;
}

int VekReader::ListDoubles(const Value& list, std::vector<double>& out, bool allowNA) {
    if (list.numeric) {
        if (list.hasNA && !allowNA) return Fail(list.naPos, "Number expected but found 'n/a'");
        out = list.numbers;
        return VEK_OKAY;
    }
    out.clear();
    out.reserve(list.items.size());
    for (const Value& v : list.items) {
        double d = 0.0;
        if (v.kind == Value::NotAvailable && allowNA) {
            d = VEK_NOT_AVAILABLE_VALUE;
        } else if (int res = AsDouble(v, d); res < 0) {
            return res;
        }
        out.push_back(d);
    }
    return VEK_OKAY;
}

int VekReader::GetDoubles(const Item& it, std::vector<double>& out, bool allowNA) {
    const Value* list = nullptr;
    int res = GetList(it, list);
    return res < 0 ? res : ListDoubles(*list, out, allowNA);
}

int VekReader::ListRefs(const Value& list, std::vector<Ref>& out, bool allowIndex) {
    out.clear();
    if (list.numeric) {
        if (list.numbers.empty()) return VEK_OKAY;
        if (!allowIndex) return Fail(list.pos, "Identifiers expected in the list");
        for (double x : list.numbers) {
            Value v;
            v.pos = list.pos;
            v.number = x;
            if (list.hasNA && x == VEK_NOT_AVAILABLE_VALUE) v.kind = Value::NotAvailable;
            out.emplace_back();
            if (int res = AsRef(v, out.back(), true); res < 0) return res;
        }
        return VEK_OKAY;
    }
    for (const Value& v : list.items) {
        out.emplace_back();
        if (int res = AsRef(v, out.back(), allowIndex); res < 0) return res;
    }
    return VEK_OKAY;
}

int VekReader::GetRefs(const Item& it, std::vector<Ref>& out, bool allowIndex) {
    const Value* list = nullptr;
    int res = GetList(it, list);
    return res < 0 ? res : ListRefs(*list, out, allowIndex);
}

int VekReader::GetColor(const Item& it, unsigned& color) {
    long long v = 0;
    int res = ExpectField(it, 1);
    if (res < 0 || (res = AsLong(One(it), v)) < 0) return res;
    if (v < 0 || v > 0xFFFFFFFFLL) return Fail(One(it).pos, "Invalid color " + Describe(One(it)));
    color = SwapRedBlue(static_cast<unsigned>(v));
    return VEK_OKAY;
}

int VekReader::GetPair(const Item& it, int& a, int& b) {
    int res = ExpectField(it, 2);
    if (res < 0 || (res = AsInt(it.value[0], a)) < 0) return res;
    return AsInt(it.value[1], b);
}

int VekReader::GetFont(const Item& it, VEK_font& font) {
    int res = ExpectField(it, 0);
    if (res < 0) return res;
    if (it.value.size() < 2) return Fail(it.value[0].pos, "Expected 'font = \"name\" size [bold] [italic];'");
    VEK_font f;
    if ((res = AsText(it.value[0], f.name)) < 0 || (res = AsInt(it.value[1], f.size)) < 0) return res;
    for (size_t i = 2; i < it.value.size(); ++i) {
        const Value& v = it.value[i];
        if (v.kind == Value::Word && v.text == "bold" && !f.bold) {
            f.bold = true;
        } else if (v.kind == Value::Word && v.text == "italic" && !f.italic) {
            f.italic = true;
        } else {
            return Fail(v.pos, "Expected 'bold' or 'italic' but found " + Describe(v));
        }
    }
    font = f;
    return VEK_OKAY;
}

int VekReader::Outcome(const Ref& r, int node, int& outcome, const char* failure) {
    const VEK_nodeDef* def = net_.GetDef(node);
    const VEK_idArray* ids = def ? def->GetOutcomeIds() : nullptr;
    if (!ids) return NamedFail(r.pos, failure, r.isIndex ? std::to_string(r.index) : r.id);
    if (r.isIndex) {
        if (r.index < 0 || r.index >= ids->GetSize()) return NamedFail(r.pos, failure, std::to_string(r.index));
        outcome = r.index;
        return VEK_OKAY;
    }
    outcome = ids->FindPosition(r.id.c_str());
    if (outcome < 0) return NamedFail(r.pos, failure, r.id);
    return VEK_OKAY;
}

int VekReader::NodeHandle(const Ref& r, const char* failure) {
    auto it = ids_.find(r.id);
    if (r.isIndex || it == ids_.end() || it->second.desc < 0) {
        NamedFail(r.pos, failure, r.isIndex ? std::to_string(r.index) : r.id);
        return -1;
    }
    return it->second.handle;
}

// ============================================================== network

int VekReader::Read() {
    VEK_tokenSyntax& syntax = tok_.Syntax();
    syntax = VEK_tokenSyntax();
    syntax.lineComments = {"//", "#"};
    int res = ParseItems(top_, 0);
    if (res < 0) return res;
    const Item* network = nullptr;
    for (const Item& it : top_) {
        if (it.keyword != "network") return Fail(it.pos, "Expected 'network' but found '" + it.keyword + "'");
        if (network) return Fail(it.pos, "A file holds one network");
        network = &it;
    }
    if (!network) {
        int line = 0;
        int column = 0;
        tok_.GetPosition(line, column);
        return Fail({line, column}, "Expected 'network' but found end of file");
    }
    // Existing identifiers count as taken.
    for (int h = net_.GetFirstNode(); h >= 0; h = net_.GetNextNode(h)) ids_.emplace(net_.GetNodeId(h), Entry{h, -2});
    const VEK_submodelHandler& subs = net_.Submodels();
    for (int s = subs.GetFirstSubmodel(); s >= 0; s = subs.GetNextSubmodel(s)) {
        ids_.emplace(subs.Get(s)->header.GetId(), Entry{s, -1});
    }
    VEK_relevanceDelay delay(net_);
    VEK_updateImmediateContext scope(net_);
    return ReadNetwork(*network);
}

int VekReader::ReadNetwork(const Item& net) {
    int res = ExpectBlock(net, 1);
    if (res < 0) return res;
    // The version first, so that a newer file is refused as such.
    for (const Item& it : net.block) {
        if (it.keyword != "version") continue;
        double version = 0.0;
        if ((res = GetDouble(it, version)) < 0) return res;
        if (!(version <= 1.0)) return Fail(One(it).pos, "Invalid version number");
    }
    std::string id;
    if ((res = AsText(net.args[0], id)) < 0) return res;
    if (!id.empty()) {
        if (net_.Header().SetId(id.c_str()) < 0) return NamedFail(net.args[0].pos, "Invalid network identifier", id);
        net_.Header().SetName(id.c_str());
    }
    Fields fields;
    res = CheckBlock(net, "network",
                     {"version", "name", "comment", "samples", "discsamples", "randseed", "zeroavoidance",
                      "outlierrejection", "noisydecomp", "noisydecomplimit", "slices", "epis", "plate"},
                     {"property", "link", "function", "submodel", "node", "textbox", "case"}, fields);
    if (res < 0 || (res = ReadNetworkFields(net)) < 0) return res;

    for (const Item& it : net.block) {
        if (it.keyword == "property") {
            res = ReadProperty(it, net_.UserProperties(), "Can't add network property");
        } else if (it.keyword == "link") {
            std::vector<std::string> titles;
            std::vector<std::string> paths;
            if ((res = ReadLink(it, titles, paths)) >= 0) net_.Documentation().AddItem(titles[0].c_str(), paths[0].c_str());
        } else if (it.keyword == "function") {
            std::string text;
            if ((res = GetText(it, text)) >= 0) net_.ExtFunctions().push_back(text);
        } else if (it.keyword == "submodel") {
            res = ReadSubmodel(it, net_.Submodels().GetMainSubmodel());
        }
        if (res < 0) return res;
    }

    // Nodes: created first, then outcomes, arcs, definitions and the rest,
    // each over all nodes, so that a node may name any other.
    for (const Item& it : net.block) {
        if (it.keyword == "node" && (res = CreateNode(it)) < 0) return res;
    }
    for (NodeSpec& n : nodes_) {
        if ((res = ReadOutcomes(n)) < 0) return res;
    }
    for (NodeSpec& n : nodes_) {
        if ((res = ReadParents(n)) < 0) return res;
    }
    if ((res = CheckCycles()) < 0) return res;
    for (NodeSpec& n : nodes_) {
        if ((res = AddArcs(n)) < 0) return res;
    }
    for (NodeSpec& n : nodes_) {
        if ((res = ReadDefinition(n)) < 0 || (res = ReadNodeAttributes(n)) < 0) return res;
    }
    for (NodeSpec& n : nodes_) {
        if ((res = ReadCosts(n)) < 0) return res;
    }
    // Temporal arcs once every node has its type and static parents.
    for (NodeSpec& n : nodes_) {
        if ((res = ReadTemporal(n)) < 0) return res;
    }

    for (const Item& it : net.block) {
        if (it.keyword == "textbox" && (res = ReadTextBox(it)) < 0) return res;
    }
    for (const Item& it : net.block) {
        if (it.keyword == "case" && (res = ReadCase(it)) < 0) return res;
    }
    return VEK_OKAY;
}

int VekReader::ReadNetworkFields(const Item& net) {
    int res = VEK_OKAY;
    for (const Item& it : net.block) {
        const std::string& key = it.keyword;
        int i = 0;
        bool b = false;
        std::string text;
        if (key == "name") {
            if ((res = GetText(it, text)) >= 0) net_.Header().SetName(text.c_str());
        } else if (key == "comment") {
            if ((res = GetText(it, text)) >= 0) net_.Header().SetComment(text.c_str());
        } else if (key == "samples") {
            if ((res = GetInt(it, i)) >= 0 && net_.SetNumberOfSamples(i) < 0) {
                res = Fail(One(it).pos, "Invalid number of samples");
            }
        } else if (key == "discsamples") {
            if ((res = GetInt(it, i)) >= 0 && net_.SetNumberOfDiscretizationSamples(i) < 0) {
                res = Fail(One(it).pos, "Invalid number of discretization samples");
            }
        } else if (key == "randseed") {
            if ((res = GetInt(it, i)) >= 0) net_.SetRandSeed(i);
        } else if (key == "zeroavoidance") {
            if ((res = GetBool(it, b)) >= 0) net_.EnableZeroAvoidance(b);
        } else if (key == "outlierrejection") {
            if ((res = GetBool(it, b)) >= 0) net_.EnableOutlierRejection(b);
        } else if (key == "noisydecomp") {
            if ((res = GetBool(it, b)) >= 0) net_.EnableNoisyDecomp(b);
        } else if (key == "noisydecomplimit") {
            if ((res = GetInt(it, i)) >= 0) net_.SetNoisyDecompLimit(i);
        } else if (key == "slices") {
            if ((res = GetInt(it, i)) >= 0 && net_.SetNumberOfSlices(i) < 0) {
                res = Fail(One(it).pos, "Invalid number of slices");
            }
        } else if (key == "epis") {
            res = ReadEpis(it);
        } else if (key == "plate") {
            res = ReadPlate(it);
        }
        if (res < 0) return res;
    }
    return VEK_OKAY;
}

int VekReader::ReadEpis(const Item& it) {
    int res = ExpectBlock(it, 0);
    Fields fields;
    if (res < 0 || (res = CheckBlock(it, "epis", {"proplen", "numstates", "eps"}, {}, fields)) < 0) return res;
    VEK_EPISParams p;
    if (auto f = fields.find("proplen"); f != fields.end() && (res = GetInt(*f->second, p.propagationLength)) < 0) {
        return res;
    }
    if (auto f = fields.find("numstates"); f != fields.end()) {
        std::vector<double> v;
        if ((res = GetDoubles(*f->second, v)) < 0) return res;
        if (v.size() != 3) return Fail(f->second->pos, "Field 'numstates' takes 3 integers");
        int* targets[] = {&p.numStateSmall, &p.numStateMedium, &p.numStateBig};
        for (size_t k = 0; k < 3; ++k) {
            Value x;
            x.pos = One(*f->second).pos;
            x.number = v[k];
            if ((res = AsInt(x, *targets[k])) < 0) return res;
        }
    }
    if (auto f = fields.find("eps"); f != fields.end()) {
        std::vector<double> v;
        if ((res = GetDoubles(*f->second, v)) < 0) return res;
        if (v.size() != 4) return Fail(f->second->pos, "Field 'eps' takes 4 numbers");
        p.stateSmallEpsil = v[0];
        p.stateMediumEpsil = v[1];
        p.stateBigEpsil = v[2];
        p.stateOtherwise = v[3];
    }
    if (net_.SetEPISParams(p) < 0) return Fail(it.pos, "Invalid EPIS parameters");
    return VEK_OKAY;
}

int VekReader::ReadPlate(const Item& it) {
    int res = ExpectBlock(it, 0);
    Fields fields;
    if (res < 0 || (res = CheckBlock(it, "plate", {"center", "size", "widths"}, {}, fields)) < 0) return res;
    VEK_rectangle r;
    int left = 0;
    int right = 0;
    if (auto f = fields.find("center"); f != fields.end() && (res = GetPair(*f->second, r.centerX, r.centerY)) < 0) {
        return res;
    }
    if (auto f = fields.find("size"); f != fields.end() && (res = GetPair(*f->second, r.width, r.height)) < 0) {
        return res;
    }
    if (auto f = fields.find("widths"); f != fields.end() && (res = GetPair(*f->second, left, right)) < 0) return res;
    net_.Dynamic().PlatePosition() = r;
    net_.Dynamic().SetPlateWidths(left, right);
    return VEK_OKAY;
}

int VekReader::ReadProperty(const Item& it, VEK_userProperties& props, const char* failure) {
    std::string key;
    std::string value;
    int res = ExpectField(it, 1, 1);
    if (res < 0 || (res = AsText(it.args[0], key)) < 0 || (res = AsText(One(it), value)) < 0) return res;
    if (props.AddProperty(key.c_str(), value.c_str()) < 0) return NamedFail(it.args[0].pos, failure, key);
    return VEK_OKAY;
}

// Appends one (title, path) pair.
int VekReader::ReadLink(const Item& it, std::vector<std::string>& titles, std::vector<std::string>& paths) {
    std::string title;
    std::string path;
    int res = ExpectField(it, 1, 1);
    if (res < 0 || (res = AsText(it.args[0], title)) < 0 || (res = AsText(One(it), path)) < 0) return res;
    titles.push_back(std::move(title));
    paths.push_back(std::move(path));
    return VEK_OKAY;
}

int VekReader::ReadPresentation(const Item& block, VEK_screenInfo& s) {
    int res = VEK_OKAY;
    for (const Item& it : block.block) {
        const std::string& key = it.keyword;
        if (key == "center") {
            res = GetPair(it, s.position.centerX, s.position.centerY);
        } else if (key == "size") {
            res = GetPair(it, s.position.width, s.position.height);
        } else if (key == "interior") {
            res = GetColor(it, s.color);
        } else if (key == "outline") {
            res = GetColor(it, s.borderColor);
        } else if (key == "selcolor") {
            res = GetColor(it, s.selColor);
        } else if (key == "fontcolor") {
            res = GetColor(it, s.fontColor);
        } else if (key == "outlinewidth") {
            res = GetInt(it, s.borderThickness);
        } else if (key == "font") {
            res = GetFont(it, s.font);
        }
        if (res < 0) return res;
    }
    return VEK_OKAY;
}

int VekReader::ReadSubmodel(const Item& it, int parent) {
    int res = ExpectBlock(it, 1);
    std::string id;
    if (res < 0 || (res = AsText(it.args[0], id)) < 0) return res;
    const Pos idPos = it.args[0].pos;
    if (!VEK_isValidIdentifier(id)) return NamedFail(idPos, "Invalid submodel identifier", id);
    if (ids_.count(id)) return NamedFail(idPos, "Duplicated submodel identifier", id);
    Fields fields;
    res = CheckBlock(it, "submodel '" + id + "'", kSubmodelFields, {"submodel"}, fields);
    if (res < 0) return res;
    const int h = net_.AddSubmodel(parent, id.c_str());
    if (h < 0) return NamedFail(idPos, "Can't add submodel", id);
    ids_.emplace(id, Entry{h, -1});
    VEK_submodel& sub = *net_.Submodels().Get(h);
    std::string text;
    if (auto f = fields.find("name"); f != fields.end()) {
        if ((res = GetText(*f->second, text)) < 0) return res;
        sub.header.SetName(text.c_str());
    }
    if (auto f = fields.find("comment"); f != fields.end()) {
        if ((res = GetText(*f->second, text)) < 0) return res;
        sub.header.SetComment(text.c_str());
    }
    if ((res = ReadPresentation(it, sub.info)) < 0) return res;
    for (const Item& child : it.block) {
        if (child.keyword == "submodel" && (res = ReadSubmodel(child, h)) < 0) return res;
    }
    return VEK_OKAY;
}

// ============================================================== nodes

int VekReader::CreateNode(const Item& it) {
    int res = ExpectBlock(it, 2);
    if (res < 0) return res;
    const Value& kindValue = it.args[0];
    const KindInfo* kind = nullptr;
    for (const KindInfo& k : kKinds) {
        if (kindValue.kind == Value::Word && kindValue.text == k.name) kind = &k;
    }
    if (!kind) return Fail(kindValue.pos, "Unknown node kind " + Describe(kindValue));
    NodeSpec n;
    n.item = &it;
    n.kind = kind;
    if ((res = AsText(it.args[1], n.id)) < 0) return res;
    const Pos idPos = it.args[1].pos;
    if (!IsNodeId(n.id)) return NamedFail(idPos, "Invalid node identifier", n.id);
    if (ids_.count(n.id)) return NamedFail(idPos, "Duplicated node identifier", n.id);
    const std::string where = "node '" + n.id + "'";
    if (kind->outcomes) {
        res = CheckBlock(it, where, Join({&kNodeFields, &kOutcomeFields, &kind->fields, &kPresentation}),
                         {"property", "link", "state", "temporal"}, n.fields);
    } else {
        res = CheckBlock(it, where, Join({&kNodeFields, &kind->fields, &kPresentation}),
                         {"property", "link", "temporal"}, n.fields);
    }
    if (res < 0) return res;
    n.handle = net_.AddNode(kind->type, n.id.c_str());
    if (n.handle < 0) return NamedFail(idPos, "QUARN failed to create node", n.id);
    ids_.emplace(n.id, Entry{n.handle, static_cast<int>(nodes_.size())});
    nodes_.push_back(std::move(n));
    return VEK_OKAY;
}

int VekReader::ReadOutcomes(NodeSpec& n) {
    if (n.kind->kind == kEquation) return ReadEquationRange(n);
    if (!n.kind->outcomes) return VEK_OKAY;
    auto* def = static_cast<VEK_discDef*>(net_.GetDef(n.handle));
    int res;
    const Item* intervals = Field(n, "intervals");
    const Item* points = Field(n, "pointvalues");
    if (intervals && points) {
        return NamedFail(points->pos, "Intervals and point values cannot be defined for the same node", n.id);
    }
    std::vector<double> edges;
    std::vector<double> values;
    if (intervals && (res = GetDoubles(*intervals, edges)) < 0) return res;
    if (points && (res = GetDoubles(*points, values)) < 0) return res;

    if (const Item* states = Field(n, "states")) {
        std::vector<Ref> refs;
        if ((res = GetRefs(*states, refs, false)) < 0) return res;
        if (refs.empty()) return NamedFail(One(*states).pos, "A node needs at least one state", n.id);
        std::unordered_set<std::string> seen;
        VEK_idArray ids;
        std::vector<std::string> names;
        for (const Ref& r : refs) {
            if (!seen.insert(r.id).second) return NamedFail(r.pos, "Duplicate state identifier", r.id);
            if (ids.Add(r.id.c_str()) < 0) return NamedFail(r.pos, "Invalid state identifier", r.id);
            names.push_back(r.id);
        }
        if (static_cast<int>(refs.size()) == def->GetNumberOfOutcomes()) {
            res = def->RenameOutcomes(names);
        } else {
            res = def->SetNumberOfOutcomes(ids);
        }
        if (res < 0) return NamedFail(One(*states).pos, "SetNumberOfOutcomes failed", n.id);
        if (intervals && def->SetIntervals(edges, false) < 0) {
            return NamedFail(One(*intervals).pos, "SetIntervals failed", n.id);
        }
    } else if (intervals && def->SetIntervals(edges, true) < 0) {
        // Intervals without states give the number of outcomes.
        return NamedFail(One(*intervals).pos, "SetIntervals failed", n.id);
    }
    if (points && def->SetPointValues(values) < 0) return NamedFail(One(*points).pos, "SetPointValues failed", n.id);

    if ((res = ReadStateBlocks(n, def)) < 0) return res;
    if (const Item* dflt = Field(n, "default")) {
        Ref r;
        int k = 0;
        if ((res = GetRef(*dflt, r, true)) < 0 || (res = Outcome(r, n.handle, k)) < 0) return res;
        if ((res = def->SetDefaultOutcome(k)) < 0) return res;
    }
    return VEK_OKAY;
}

// state ID { label; fault; fix; comment; link* }
int VekReader::ReadStateBlocks(NodeSpec& n, VEK_discDef* def) {
    int res = VEK_OKAY;
    for (const Item& it : n.item->block) {
        if (it.keyword != "state") continue;
        if ((res = ExpectBlock(it, 1)) < 0) return res;
        Ref r;
        int k = 0;
        if ((res = AsRef(it.args[0], r, true)) < 0 || (res = Outcome(r, n.handle, k)) < 0) return res;
        Fields fields;
        res = CheckBlock(it, "state '" + std::string((*def->GetOutcomeIds())[k]) + "'",
                         {"label", "fault", "fix", "comment"}, {"link"}, fields);
        if (res < 0) return res;
        std::string text;
        bool fault = false;
        for (const Item& field : it.block) {
            const std::string& key = field.keyword;
            const Item* item = &field;
            if (key == "link") continue;
            if (key == "fault") {
                if ((res = GetBool(*item, fault)) < 0) return res;
                if ((res = def->SetFaultOutcome(k, fault)) < 0) return res;
                continue;
            }
            if ((res = GetText(*item, text)) < 0) return res;
            if (key == "label") (void)def->SetOutcomeLabel(k, text.c_str());  // the outcome index is in range
            if (key == "fix") (void)def->SetOutcomeFix(k, text.c_str());  // the outcome index is in range
            if (key == "comment") (void)def->SetOutcomeComment(k, text.c_str());  // the outcome index is in range
        }
        std::vector<std::string> titles;
        std::vector<std::string> paths;
        for (const Item& link : it.block) {
            if (link.keyword == "link" && (res = ReadLink(link, titles, paths)) < 0) return res;
        }
        if (!titles.empty() && (res = def->SetOutcomeDocumentation(k, titles, paths)) < 0) return res;
    }
    return VEK_OKAY;
}

int VekReader::ReadParents(NodeSpec& n) {
    const Item* parents = Field(n, "parents");
    if (!parents) return VEK_OKAY;
    std::vector<Ref> refs;
    int res = GetRefs(*parents, refs, false);
    if (res < 0) return res;
    std::unordered_set<int> seen;
    for (const Ref& r : refs) {
        auto it = ids_.find(r.id);
        if (it == ids_.end() || it->second.desc < 0) return NamedFail(r.pos, "Node parent not found", r.id);
        if (!seen.insert(it->second.desc).second) return NamedFail(r.pos, "Duplicate parent", r.id);
        n.parents.push_back(it->second.desc);
        n.parentPos.push_back(r.pos);
    }
    return VEK_OKAY;
}

// Depth first over the parent lists, without recursion; the first arc that
// closes a cycle is reported where its parent is named.
int VekReader::CheckCycles() {
    const size_t count = nodes_.size();
    std::vector<char> state(count, 0);  // 1: on the path, 2: done
    std::vector<std::pair<size_t, size_t>> stack;
    for (size_t start = 0; start < count; ++start) {
        if (state[start]) continue;
        state[start] = 1;
        stack.push_back({start, 0});
        while (!stack.empty()) {
            auto& [x, next] = stack.back();
            if (next >= nodes_[x].parents.size()) {
                state[x] = 2;
                stack.pop_back();
                continue;
            }
            const size_t k = next++;
            const size_t p = static_cast<size_t>(nodes_[x].parents[k]);
            if (state[p] == 1) {
                return Fail(nodes_[x].parentPos[k],
                            "The arc '" + nodes_[p].id + " -> " + nodes_[x].id + "' closes a cycle");
            }
            if (state[p] == 0) {
                state[p] = 1;
                stack.push_back({p, 0});
            }
        }
    }
    return VEK_OKAY;
}

int VekReader::AddArcs(NodeSpec& n) {
    if (n.parents.empty()) return VEK_OKAY;
    // Tables grow with every parent: their final size is checked against the
    // values in the file before anything is allocated.
    const char* field = nullptr;
    switch (n.kind->kind) {
        case kCpt: field = "probabilities"; break;
        case kDeterministic: field = "resultingstates"; break;
        case kUtility: field = "utilities"; break;
        case kMau: field = "weights"; break;
        default: break;
    }
    if (field) {
        long long size = 1;
        long long utilityParents = 0;
        for (int p : n.parents) {
            const VEK_nodeDef* pd = net_.GetDef(nodes_[p].handle);
            const int outcomes = pd->GetOutcomeIds() ? pd->GetNumberOfOutcomes() : 0;
            if (outcomes <= 0) {
                ++utilityParents;
            } else {
                size = Mul(size, outcomes);
            }
        }
        if (n.kind->kind == kMau && utilityParents > 1) size = Mul(size, utilityParents);
        const Item* table = Field(n, field);
        if (table) {
            const long long own = n.kind->kind == kCpt ? net_.GetDef(n.handle)->GetNumberOfOutcomes() : 1;
            const long long expected = Mul(size, own);
            const long long given = table->hasValue && !table->value.empty() ? static_cast<long long>(One(*table).Size()) : 0;
            if (given != expected) {
                return Fail(table->hasValue && !table->value.empty() ? One(*table).pos : table->pos,
                            "Wrong table size for node '" + n.id + "': " + std::to_string(given) + " values, " +
                                std::to_string(expected) + " expected");
            }
        } else if (Mul(size, std::max(1, net_.GetDef(n.handle)->GetNumberOfOutcomes())) > kMaxDefaultTable) {
            return NamedFail(n.item->pos, "The table is too large to be left out", n.id);
        }
    }
    for (size_t k = 0; k < n.parents.size(); ++k) {
        const NodeSpec& p = nodes_[n.parents[k]];
        if (net_.AddArc(p.handle, n.handle) < 0) {
            return NamedFail(n.parentPos[k], "AddArc failed", p.id + " -> " + n.id);
        }
    }
    return VEK_OKAY;
}

// Copies a table field straight into the definition's matrix.
int VekReader::ReadTable(NodeSpec& n, const char* field) {
    const Item* it = Field(n, field);
    if (!it) return VEK_OKAY;
    VEK_nodeDef* def = net_.GetDef(n.handle);
    std::vector<double> values;
    int res = GetDoubles(*it, values);
    if (res < 0) return res;
    VEK_Dmatrix& m = def->GetWriteableParameters();
    if (static_cast<int>(values.size()) != m.GetSize()) {
        return Fail(One(*it).pos, "Wrong table size for node '" + n.id + "': " +
                                      std::to_string(values.size()) + " values, " + std::to_string(m.GetSize()) +
                                      " expected");
    }
    double* items = m.Items();
    for (size_t i = 0; i < values.size(); ++i) items[i] = values[i];
    def->OnParametersChanged();
    return VEK_OKAY;
}

int VekReader::ReadDefinition(NodeSpec& n) {
    switch (n.kind->kind) {
        case kCpt: return ReadTable(n, "probabilities");
        case kUtility: return ReadTable(n, "utilities");
        case kDecision: return VEK_OKAY;
        case kMau: return ReadMau(n);
        case kDeterministic: return ReadDeterministic(n);
        case kCast: return ReadCast(n);
        case kDemorgan: return ReadDemorgan(n);
        case kNoisyMax: return ReadNoisyMax(n);
        case kNoisyAdder: return ReadNoisyAdder(n);
        case kEquation: return ReadEquation(n);
    }
    return VEK_OKAY;
}

int VekReader::PerParentDoubles(const NodeSpec& n, const char* field, std::vector<double>& out) {
    const Item* it = Field(n, field);
    if (!it) return 0;
    int res = GetDoubles(*it, out);
    if (res < 0) return res;
    if (out.size() != n.parents.size()) {
        return Fail(One(*it).pos, "Field '" + std::string(field) + "' of node '" + n.id + "' takes one value per parent");
    }
    return 1;
}

int VekReader::PerParentRefs(const NodeSpec& n, const Item& it, std::vector<Ref>& out) {
    int res = GetRefs(it, out, true);
    if (res < 0) return res;
    if (out.size() != n.parents.size()) {
        return Fail(One(it).pos, "Field '" + it.keyword + "' of node '" + n.id + "' takes one item per parent");
    }
    return VEK_OKAY;
}

int VekReader::ReadMau(NodeSpec& n) {
    int res = ReadTable(n, "weights");
    if (res < 0) return res;
    const Item* it = Field(n, "expressions");
    if (!it) return VEK_OKAY;
    const Value* list = nullptr;
    if ((res = GetList(*it, list)) < 0) return res;
    std::vector<std::string> expressions;
    for (const Value& v : list->items) {
        expressions.emplace_back();
        if ((res = AsText(v, expressions.back())) < 0) return res;
    }
    if (list->numeric && !list->numbers.empty()) return Fail(list->pos, "Expressions must be strings");
    if (static_cast<VEK_mau*>(net_.GetDef(n.handle))->SetExpressions(expressions) < 0) {
        return NamedFail(One(*it).pos, "SetExpressions failed", n.id);
    }
    return VEK_OKAY;
}

int VekReader::ReadDeterministic(NodeSpec& n) {
    const Item* it = Field(n, "resultingstates");
    if (!it) return VEK_OKAY;
    std::vector<Ref> refs;
    int res = GetRefs(*it, refs, true);
    if (res < 0) return res;
    VEK_intArray states;
    for (const Ref& r : refs) {
        int k = 0;
        if ((res = Outcome(r, n.handle, k)) < 0) return res;
        states.Add(k);
    }
    if (static_cast<VEK_truthTable*>(net_.GetDef(n.handle))->SetResultingStates(states) < 0) {
        return NamedFail(One(*it).pos, "SetResultingStates failed", n.id);
    }
    return VEK_OKAY;
}

int VekReader::ReadCast(NodeSpec& n) {
    auto* c = static_cast<VEK_cast*>(net_.GetDef(n.handle));
    std::vector<double> values;
    int res = PerParentDoubles(n, "pweights", values);
    if (res < 0) return res;
    if (res > 0 && c->SetPositiveWeights(VEK_doubleArray(values)) < 0) {
        return NamedFail(One(*Field(n, "pweights")).pos, "SetPositiveWeights failed", n.id);
    }
    if ((res = PerParentDoubles(n, "nweights", values)) < 0) return res;
    if (res > 0 && c->SetNegativeWeights(VEK_doubleArray(values)) < 0) {
        return NamedFail(One(*Field(n, "nweights")).pos, "SetNegativeWeights failed", n.id);
    }
    if (const Item* it = Field(n, "baseline")) {
        double v = 0.0;
        if ((res = GetDouble(*it, v)) < 0) return res;
        if (c->SetBaseline(v) < 0) return NamedFail(One(*it).pos, "SetBaseline failed", n.id);
    }
    return VEK_OKAY;
}

int VekReader::ReadDemorgan(NodeSpec& n) {
    auto* d = static_cast<VEK_demorgan*>(net_.GetDef(n.handle));
    int res = VEK_OKAY;
    if (const Item* it = Field(n, "types")) {
        std::vector<Ref> refs;
        if ((res = PerParentRefs(n, *it, refs)) < 0) return res;
        VEK_intArray types;
        for (const Ref& r : refs) {
            int t = r.isIndex ? -1 : VEK_demorgan::ParentTypeFromName(r.id.c_str());
            if (t < 0) return NamedFail(r.pos, "SetParentTypes failed", r.isIndex ? std::to_string(r.index) : r.id);
            types.Add(t);
        }
        if (d->SetParentTypes(types) < 0) return NamedFail(One(*it).pos, "SetParentTypes failed", n.id);
    }
    std::vector<double> values;
    if ((res = PerParentDoubles(n, "weights", values)) < 0) return res;
    if (res > 0 && d->SetParentWeights(VEK_doubleArray(values)) < 0) {
        return NamedFail(One(*Field(n, "weights")).pos, "SetParentWeights failed", n.id);
    }
    if (const Item* it = Field(n, "priorbelief")) {
        double v = 0.0;
        if ((res = GetDouble(*it, v)) < 0) return res;
        if (d->SetPriorBelief(v) < 0) return NamedFail(One(*it).pos, "SetPriorBelief failed", n.id);
    }
    return VEK_OKAY;
}

int VekReader::ReadNoisyMax(NodeSpec& n) {
    auto* nm = static_cast<VEK_noisyMAX*>(net_.GetDef(n.handle));
    const int parents = static_cast<int>(n.parents.size());
    int res = VEK_OKAY;
    if (const Item* it = Field(n, "strengths")) {
        const Value* list = nullptr;
        if ((res = GetList(*it, list)) < 0) return res;
        if (static_cast<int>(list->Size()) != parents || (list->numeric && parents > 0)) {
            return Fail(list->pos, "Field 'strengths' of node '" + n.id + "' takes one list per parent");
        }
        for (int j = 0; j < parents; ++j) {
            const Value& order = list->items[static_cast<size_t>(j)];
            if (order.kind != Value::List) return Fail(order.pos, "A list of outcomes expected");
            std::vector<Ref> refs;
            if ((res = ListRefs(order, refs, true)) < 0) return res;
            VEK_intArray strengths;
            for (const Ref& r : refs) {
                int k = 0;
                if ((res = Outcome(r, nodes_[n.parents[j]].handle, k)) < 0) return res;
                strengths.Add(k);
            }
            if (nm->SetParentOutcomeStrengths(j, strengths) < 0) {
                return NamedFail(order.pos, "SetParentOutcomeStrengths failed", n.id);
            }
        }
    }
    if ((res = ReadTable(n, "parameters")) < 0) return res;
    if (const Item* it = Field(n, "synchronized")) {
        bool on = false;
        if ((res = GetBool(*it, on)) < 0) return res;
        if (on && nm->SetSynchronized(true) < 0) return NamedFail(One(*it).pos, "SetSynchronized failed", n.id);
    }
    return VEK_OKAY;
}

int VekReader::ReadNoisyAdder(NodeSpec& n) {
    auto* na = static_cast<VEK_noisyAdder*>(net_.GetDef(n.handle));
    int res = VEK_OKAY;
    if (const Item* it = Field(n, "function")) {
        std::string word;
        VEK_noisyAdder::Function function;
        if ((res = GetText(*it, word)) < 0) return res;
        if (VEK_noisyAdder::FunctionFromName(word.c_str(), function) < 0) {
            return NamedFail(One(*it).pos, "Invalid noisy adder function", word);
        }
        (void)na->SetFunction(function);  // the function was parsed above
    }
    if (const Item* it = Field(n, "dstate")) {
        Ref r;
        int k = 0;
        if ((res = GetRef(*it, r, true)) < 0 || (res = Outcome(r, n.handle, k)) < 0) return res;
        if (na->SetDistinguishedState(k) < 0) return NamedFail(r.pos, "SetDistinguishedState call fails", n.id);
    }
    if (const Item* it = Field(n, "dstates")) {
        std::vector<Ref> refs;
        if ((res = PerParentRefs(n, *it, refs)) < 0) return res;
        for (size_t j = 0; j < refs.size(); ++j) {
            int k = 0;
            if ((res = Outcome(refs[j], nodes_[n.parents[j]].handle, k)) < 0) return res;
            if (na->SetParentDistinguishedState(static_cast<int>(j), k) < 0) {
                return NamedFail(refs[j].pos, "SetParentDistinguishedState call fails", n.id);
            }
        }
    }
    std::vector<double> values;
    if ((res = PerParentDoubles(n, "weights", values)) < 0) return res;
    if (res > 0 && na->SetParentWeights(VEK_doubleArray(values)) < 0) {
        return NamedFail(One(*Field(n, "weights")).pos, "SetParentWeights failed", n.id);
    }
    return ReadTable(n, "parameters");
}

int VekReader::ReadEquationRange(NodeSpec& n) {
    auto* eq = static_cast<VEK_equation*>(net_.GetDef(n.handle));
    int res = VEK_OKAY;
    if (const Item* it = Field(n, "bounds")) {
        double lower = 0.0;
        double upper = 0.0;
        if ((res = ExpectField(*it, 2)) < 0 || (res = AsDouble(it->value[0], lower)) < 0 ||
            (res = AsDouble(it->value[1], upper)) < 0) {
            return res;
        }
        if (eq->SetBounds(lower, upper) < 0) return NamedFail(One(*it).pos, "Invalid equation bounds", n.id);
    }
    if (const Item* it = Field(n, "nominal")) {
        double lower = 0.0;
        double upper = 0.0;
        if ((res = ExpectField(*it, 2)) < 0 || (res = AsDouble(it->value[0], lower)) < 0 ||
            (res = AsDouble(it->value[1], upper)) < 0) {
            return res;
        }
        if (eq->SetNominal(lower, upper) < 0) return NamedFail(One(*it).pos, "Invalid equation bounds", n.id);
    }
    if (const Item* it = Field(n, "defaultvalue")) {
        double v = 0.0;
        if ((res = GetDouble(*it, v)) < 0) return res;
        eq->SetDefaultValue(v);
    }
    const Item* disc = Field(n, "discretization");
    const Item* labels = Field(n, "labels");
    if (!disc) return labels ? NamedFail(labels->pos, "Interval labels without a discretization in node", n.id) : VEK_OKAY;
    std::vector<double> uppers;
    std::vector<Ref> refs;
    if ((res = GetDoubles(*disc, uppers)) < 0 || (labels && (res = GetRefs(*labels, refs, false)) < 0)) return res;
    if (labels && refs.size() != uppers.size()) {
        return Fail(One(*labels).pos, "Field 'labels' of node '" + n.id + "' takes one label per interval");
    }
    std::vector<VEK_discInterval> intervals(uppers.size());
    for (size_t k = 0; k < uppers.size(); ++k) {
        intervals[k].upper = uppers[k];
        if (labels) intervals[k].label = refs[k].id;
    }
    std::string message;
    if (eq->SetDiscretization(intervals, message) < 0) {
        return Fail(One(*disc).pos, "SetDiscIntervals failed: '" + n.id + "' (" + message + ")");
    }
    return VEK_OKAY;
}

int VekReader::ReadEquation(NodeSpec& n) {
    const Item* it = Field(n, "equation");
    if (!it) return VEK_OKAY;
    std::string text;
    int res = GetText(*it, text);
    if (res < 0) return res;
    int pos = -1;
    std::string message;
    if (static_cast<VEK_equation*>(net_.GetDef(n.handle))->SetEquation(text, pos, message) < 0) {
        std::string failure = "Expression parse error: '" + n.id + "' (" + message;
        if (pos >= 0) failure += " at position " + std::to_string(pos);
        return Fail(One(*it).pos, failure + ")");
    }
    return VEK_OKAY;
}

// temporal ORDER { parents = (ID, ...); probabilities = (D ...); }
int VekReader::ReadTemporal(NodeSpec& n) {
    // DeMorgan and noisy-adder orders take the fields of the static node.
    const auto fieldsOf = [this](int h) -> Words {
        switch (net_.GetDef(h)->GetType()) {
            case VEK_DEMORGAN: return {"parents", "types", "weights", "priorbelief"};
            case VEK_NOISY_ADDER: return {"parents", "function", "dstate", "dstates", "weights", "parameters"};
            default: return {"parents", "probabilities", "equation"};
        }
    };
    std::vector<const Item*> blocks;
    std::vector<Fields> found;
    std::vector<int> orders;
    int res = VEK_OKAY;
    for (const Item& it : n.item->block) {
        if (it.keyword != "temporal") continue;
        Fields fields;
        int order = 0;
        if ((res = ExpectBlock(it, 1)) < 0 || (res = AsInt(it.args[0], order)) < 0 ||
            (res = CheckBlock(it, "temporal definition of node '" + n.id + "'", fieldsOf(n.handle), {}, fields)) < 0) {
            return res;
        }
        if (order < 1) return NamedFail(it.args[0].pos, "Temporal defintion not found", n.id);
        if (std::find(orders.begin(), orders.end(), order) != orders.end()) {
            return NamedFail(it.args[0].pos, "Duplicate temporal order in node", n.id);
        }
        if (net_.GetNode(n.handle)->GetTemporalType() != VEK_TEMPORAL_PLATE) {
            return NamedFail(it.pos, "Node is not part of temporal plate", n.id);
        }
        if (!fields.count("parents")) return NamedFail(it.pos, "No temporal parents specified", n.id);
        blocks.push_back(&it);
        found.push_back(std::move(fields));
        orders.push_back(order);
    }
    if (blocks.empty()) return VEK_OKAY;
    // Every table of the node grows with every temporal parent: bound the
    // sizes before anything is allocated.
    const VEK_Dmatrix* base = net_.GetDef(n.handle)->GetMatrix();
    long long bound = base ? std::max(1, base->GetSize()) : 1;
    long long given = kMaxDefaultTable;
    std::vector<std::vector<int>> parents(blocks.size());
    for (size_t b = 0; b < blocks.size(); ++b) {
        const Item& it = *blocks[b];
        std::vector<Ref> refs;
        if ((res = GetRefs(*found[b].at("parents"), refs, false)) < 0) return res;
        if (refs.empty()) return NamedFail(it.pos, "No temporal parents specified", n.id);
        for (const Ref& r : refs) {
            const int h = NodeHandle(r, "Node parent not found");
            if (h < 0) return VEK_FILE_IO_FAILED;
            bound = Mul(bound, std::max(1, net_.GetDef(h)->GetNumberOfOutcomes()));
            parents[b].push_back(h);
        }
        if (auto t = found[b].find("probabilities"); t != found[b].end() && t->second->hasValue) {
            given = std::max(given, static_cast<long long>(One(*t->second).Size()));
        }
    }
    if (bound > given) return NamedFail(blocks[0]->pos, "The temporal tables are too large in node", n.id);
    for (size_t b = 0; b < blocks.size(); ++b) {
        for (int h : parents[b]) {
            if (net_.Dynamic().AddTemporalArc(h, n.handle, orders[b]) < 0) {
                return NamedFail(blocks[b]->pos, "AddTemporalArc failed", n.id);
            }
        }
    }
    for (size_t b = 0; b < blocks.size(); ++b) {
        if ((res = ReadTemporalCanonical(n, orders[b], found[b])) < 0) return res;
        auto t = found[b].find("probabilities");
        if (t == found[b].end()) continue;
        const Item* table = t->second;
        std::vector<double> values;
        if ((res = GetDoubles(*table, values)) < 0) return res;
        // Noisy-MAX nodes are read by their weights, as they are written.
        const VEK_Dmatrix* m = net_.GetDef(n.handle)->GetType() == VEK_NOISY_MAX
                                   ? net_.Dynamic().GetTemporalParameters(n.handle, orders[b])
                                   : net_.Dynamic().GetTemporalDefinition(n.handle, orders[b]);
        if (!m || static_cast<int>(values.size()) != m->GetSize()) {
            return Fail(One(*table).pos, "Wrong table size for the temporal definition of node '" + n.id + "': " +
                                             std::to_string(values.size()) + " values, " +
                                             std::to_string(m ? m->GetSize() : 0) + " expected");
        }
        if (net_.Dynamic().SetTemporalDefinition(n.handle, orders[b], values) < 0) {
            return NamedFail(One(*table).pos, "SetProbabilities failed", n.id);
        }
    }
    return ReadTemporalEquations(n, blocks, found, orders);
}

int VekReader::ReadTemporalCanonical(NodeSpec& n, int order, const Fields& fields) {
    VEK_dynamicNet& dyn = net_.Dynamic();
    std::vector<VEK_temporalArc> owners;
    (void)dyn.GetUnrolledParents(n.handle, order, owners);  // the node and order its arcs were just added with
    const auto field = [&fields](const char* name) -> const Item* {
        auto it = fields.find(name);
        return it == fields.end() ? nullptr : it->second;
    };
    const auto edit = [&](const Item& it, const char* failure, const std::function<int(VEK_nodeDef&)>& f) {
        return dyn.EditTemporalCanonical(n.handle, order, f) < 0 ? NamedFail(One(it).pos, failure, n.id) : VEK_OKAY;
    };
    const auto adder = [](VEK_nodeDef& d) -> VEK_noisyAdder& { return static_cast<VEK_noisyAdder&>(d); };
    int res = VEK_OKAY;
    if (const Item* it = field("function")) {
        std::string word;
        VEK_noisyAdder::Function function;
        if ((res = GetText(*it, word)) < 0) return res;
        if (VEK_noisyAdder::FunctionFromName(word.c_str(), function) < 0) {
            return NamedFail(One(*it).pos, "Invalid noisy adder function", word);
        }
        res = edit(*it, "Invalid noisy adder function", [&](VEK_nodeDef& d) { return adder(d).SetFunction(function); });
        if (res < 0) return res;
    }
    if (const Item* it = field("dstate")) {
        Ref r;
        int k = 0;
        if ((res = GetRef(*it, r, true)) < 0 || (res = Outcome(r, n.handle, k)) < 0) return res;
        res = edit(*it, "SetDistinguishedState call fails", [&](VEK_nodeDef& d) { return adder(d).SetDistinguishedState(k); });
        if (res < 0) return res;
    }
    if (const Item* it = field("dstates")) {
        std::vector<Ref> refs;
        if ((res = GetRefs(*it, refs, true)) < 0) return res;
        if (refs.size() != owners.size()) {
            return Fail(One(*it).pos, "Field 'dstates' of node '" + n.id + "' takes one item per parent");
        }
        VEK_intArray states;
        for (size_t j = 0; j < refs.size(); ++j) {
            int k = 0;
            if ((res = Outcome(refs[j], owners[j].node, k)) < 0) return res;
            states.Add(k);
        }
        res = edit(*it, "SetParentDistinguishedState call fails",
                   [&](VEK_nodeDef& d) { return adder(d).SetParentDistinguishedStates(states); });
        if (res < 0) return res;
    }
    if (const Item* it = field("types")) {
        std::vector<Ref> refs;
        if ((res = GetRefs(*it, refs, false)) < 0) return res;
        VEK_intArray types;
        for (const Ref& r : refs) types.Add(VEK_demorgan::ParentTypeFromName(r.id.c_str()));
        res = edit(*it, "SetParentTypes failed",
                   [&](VEK_nodeDef& d) { return static_cast<VEK_demorgan&>(d).SetParentTypes(types); });
        if (res < 0) return res;
    }
    if (const Item* it = field("weights")) {
        std::vector<double> values;
        if ((res = GetDoubles(*it, values)) < 0) return res;
        const VEK_doubleArray weights(values);
        res = edit(*it, "SetParentWeights failed", [&](VEK_nodeDef& d) {
            return d.GetType() == VEK_DEMORGAN ? static_cast<VEK_demorgan&>(d).SetParentWeights(weights)
                                               : adder(d).SetParentWeights(weights);
        });
        if (res < 0) return res;
    }
    if (const Item* it = field("priorbelief")) {
        double v = 0.0;
        if ((res = GetDouble(*it, v)) < 0) return res;
        res = edit(*it, "SetPriorBelief failed",
                   [&](VEK_nodeDef& d) { return static_cast<VEK_demorgan&>(d).SetPriorBelief(v); });
        if (res < 0) return res;
    }
    if (const Item* it = field("parameters")) {
        std::vector<double> values;
        if ((res = GetDoubles(*it, values)) < 0) return res;
        if (dyn.SetTemporalDefinition(n.handle, order, values) < 0) {
            return NamedFail(One(*it).pos, "SetProbabilities failed", n.id);
        }
    }
    return VEK_OKAY;
}

// An equation plate node's equations per order, set together once its
// temporal arcs exist; orders without one keep the node's own equation.
int VekReader::ReadTemporalEquations(NodeSpec& n, const std::vector<const Item*>& blocks,
                                     const std::vector<Fields>& found, const std::vector<int>& orders) {
    std::vector<int> all;
    net_.Dynamic().GetTemporalOrders(n.handle, all);
    std::vector<std::string> texts(all.size());
    const Item* first = nullptr;
    int res = VEK_OKAY;
    for (size_t b = 0; b < blocks.size(); ++b) {
        auto t = found[b].find("equation");
        if (t == found[b].end()) continue;
        if (!first) first = t->second;
        const size_t at = std::find(all.begin(), all.end(), orders[b]) - all.begin();
        if (at == all.size()) return NamedFail(blocks[b]->pos, "Temporal defintion not found", n.id);
        if ((res = GetText(*t->second, texts[at])) < 0) return res;
    }
    if (!first) return VEK_OKAY;
    int pos = -1;
    std::string message;
    if (net_.Dynamic().SetTemporalEquations(n.handle, texts, pos, message) < 0) {
        std::string failure = "Expression parse error: '" + n.id + "' (" + message;
        if (pos >= 0) failure += " at position " + std::to_string(pos);
        return Fail(One(*first).pos, failure + ")");
    }
    return VEK_OKAY;
}

int VekReader::ReadNodeAttributes(NodeSpec& n) {
    VEK_node& node = *net_.GetNode(n.handle);
    int res = VEK_OKAY;
    for (const Item& it : n.item->block) {
        const std::string& key = it.keyword;
        std::string text;
        bool b = false;
        if (key == "name") {
            if ((res = GetText(it, text)) >= 0) node.Header().SetName(text.c_str());
        } else if (key == "comment") {
            if ((res = GetText(it, text)) >= 0) node.Header().SetComment(text.c_str());
        } else if (key == "question") {
            if ((res = GetText(it, text)) >= 0) node.SetQuestion(text.c_str());
        } else if (key == "target") {
            if ((res = GetBool(it, b)) >= 0 && b) (void)net_.SetTarget(n.handle, true);  // a node named a target twice stays one
        } else if (key == "ranked") {
            if ((res = GetBool(it, b)) >= 0) node.SetRanked(b);
        } else if (key == "mandatory") {
            if ((res = GetBool(it, b)) >= 0) node.SetMandatory(b);
        } else if (key == "diagtype") {
            if ((res = GetText(it, text)) < 0) return res;
            if (text == "target") {
                (void)node.SetDiagType(VEK_DIAG_FAULT);  // a valid type
            } else if (text == "observation") {
                (void)node.SetDiagType(VEK_DIAG_OBSERVATION);  // a valid type
            } else if (text == "auxiliary") {
                (void)node.SetDiagType(VEK_DIAG_AUXILIARY);  // a valid type
            } else {
                return NamedFail(One(it).pos, "Unknown diagnosis node type", text);
            }
        } else if (key == "dynamic") {
            if ((res = ExpectField(it, 1)) < 0) return res;
            const Value& v = One(it);
            int type = -1;
            if (v.kind == Value::Number) {
                if ((res = AsInt(v, type)) < 0) return res;
            } else if (v.kind == Value::Word) {
                const char* names[] = {"none", "anchor", "terminal", "plate"};
                for (int t = 0; t < 4; ++t) {
                    if (v.text == names[t]) type = t;
                }
            }
            if (type < 0) return Fail(v.pos, "Unknown dynamic node type: " + Describe(v));
            node.SetTemporalType(type);
        } else if (key == "submodel") {
            Ref r;
            if ((res = GetRef(it, r, false)) < 0) return res;
            auto e = ids_.find(r.id);
            if (e == ids_.end() || e->second.desc != -1) return NamedFail(r.pos, "Invalid submodel identifier", r.id);
            if (net_.SetNodeSubmodel(n.handle, e->second.handle) < 0) {
                return NamedFail(r.pos, "Can't move node into submodel", r.id);
            }
        } else if (key == "barchart") {
            VEK_barChart chart;
            if ((res = ExpectField(it, 3)) < 0 || (res = AsBool(it.value[0], chart.active)) < 0 ||
                (res = AsInt(it.value[1], chart.width)) < 0 || (res = AsInt(it.value[2], chart.height)) < 0) {
                return res;
            }
            node.Info().barChart = chart;
        }
        if (res < 0) return res;
    }
    if ((res = ReadPresentation(*n.item, node.Info().screen)) < 0) return res;
    for (const Item& it : n.item->block) {
        if (it.keyword == "property") {
            if ((res = ReadProperty(it, node.Info().userProperties, "Can't add node property")) < 0) return res;
        } else if (it.keyword == "link") {
            std::vector<std::string> titles;
            std::vector<std::string> paths;
            if ((res = ReadLink(it, titles, paths)) < 0) return res;
            node.Info().documentation.AddItem(titles[0].c_str(), paths[0].c_str());
        }
    }
    return VEK_OKAY;
}

int VekReader::ReadCosts(NodeSpec& n) {
    const Item* parents = Field(n, "costparents");
    const Item* cost = Field(n, "cost");
    if (!parents && !cost) return VEK_OKAY;
    if (!cost) return NamedFail(parents->pos, "Cost parents without costs in node", n.id);
    std::vector<double> values;
    int res = GetDoubles(*cost, values, true);
    if (res < 0) return res;
    std::vector<Ref> refs;
    if (parents && (res = GetRefs(*parents, refs, false)) < 0) return res;
    std::vector<int> handles;
    long long size = 1;
    std::unordered_set<int> seen;
    for (const Ref& r : refs) {
        int h = NodeHandle(r, "Node parent not found");
        if (h < 0) return VEK_FILE_IO_FAILED;
        if (!seen.insert(h).second) return NamedFail(r.pos, "Duplicate parent", r.id);
        const VEK_nodeDef* pd = net_.GetDef(h);
        const int outcomes = pd->GetOutcomeIds() ? pd->GetNumberOfOutcomes() : 1;
        size = Mul(size, std::max(1, outcomes));
        handles.push_back(h);
    }
    if (static_cast<long long>(values.size()) != size) {
        return Fail(One(*cost).pos, "Wrong table size for the costs of node '" + n.id + "': " +
                                        std::to_string(values.size()) + " values, " + std::to_string(size) +
                                        " expected");
    }
    for (size_t k = 0; k < handles.size(); ++k) {
        // The engine refuses the reverse of an existing cost arc without
        // calling it a cycle.
        const bool reverse = net_.GetNode(handles[k])->CostParents().IsInList(n.handle);
        int r = net_.AddArc(handles[k], n.handle, 1);
        if (r == VEK_CYCLE || (r < 0 && reverse)) {
            return Fail(refs[k].pos, "The cost arc '" + refs[k].id + " -> " + n.id + "' closes a cycle");
        }
        if (r < 0) return NamedFail(refs[k].pos, "AddArc failed", refs[k].id + " -> " + n.id);
    }
    if (net_.GetNode(n.handle)->SetCost(values) < 0) return NamedFail(One(*cost).pos, "SetCosts failed", n.id);
    return VEK_OKAY;
}

// ============================================================== text boxes, cases

int VekReader::ReadTextBox(const Item& it) {
    int res = ExpectBlock(it, 0);
    Fields fields;
    if (res < 0 || (res = CheckBlock(it, "textbox", {"text", "submodel", "center", "size", "font"}, {}, fields)) < 0) {
        return res;
    }
    VEK_textBox box;
    box.submodel = net_.Submodels().GetMainSubmodel();
    for (const Item& field : it.block) {
        const std::string& key = field.keyword;
        const Item* item = &field;
        if (key == "text") {
            res = GetText(*item, box.text);
        } else if (key == "center") {
            res = GetPair(*item, box.position.centerX, box.position.centerY);
        } else if (key == "size") {
            res = GetPair(*item, box.position.width, box.position.height);
        } else if (key == "font") {
            res = GetFont(*item, box.font);
        } else if (key == "submodel") {
            Ref r;
            if ((res = GetRef(*item, r, false)) < 0) return res;
            auto e = ids_.find(r.id);
            if (e == ids_.end() || e->second.desc != -1) return NamedFail(r.pos, "Invalid submodel identifier", r.id);
            box.submodel = e->second.handle;
        }
        if (res < 0) return res;
    }
    net_.TextBoxes().push_back(box);
    return VEK_OKAY;
}

int VekReader::ReadCase(const Item& it) {
    int res = ExpectBlock(it, 1);
    std::string name;
    if (res < 0 || (res = AsText(it.args[0], name)) < 0) return res;
    Fields fields;
    res = CheckBlock(it, "case '" + name + "'", {"category", "created", "modified", "description"},
                     {"evidence", "continuous", "virtual", "target"}, fields);
    if (res < 0) return res;
    if (name.empty()) return NamedFail(it.args[0].pos, "Invalid case name", name);
    const int index = net_.Cases().Add(name.c_str());
    if (index < 0) return NamedFail(it.args[0].pos, "Duplicate case name", name);
    VEK_case& c = *net_.Cases().Get(index);
    for (const Item& field : it.block) {
        const std::string& key = field.keyword;
        const Item* item = &field;
        if (key == "category") {
            res = GetText(*item, c.category);
        } else if (key == "description") {
            res = GetText(*item, c.description);
        } else if (key == "created" || key == "modified") {
            res = ExpectField(*item, 1);
            if (res >= 0) res = AsLong(One(*item), key == "created" ? c.created : c.lastModified);
        }
        if (res < 0) return res;
    }
    for (const Item& e : it.block) {
        if (e.keyword == "target") {
            if (e.hasValue || e.hasBlock || e.args.size() != 1) return Fail(e.pos, "Expected 'target <node>;'");
            Ref r;
            if ((res = AsRef(e.args[0], r, false)) < 0) return res;
            int h = NodeHandle(r);
            if (h < 0) return VEK_FILE_IO_FAILED;
            for (int t : c.targets) {
                if (t == h) return NamedFail(r.pos, "Can't add target node", r.id);
            }
            c.targets.push_back(h);
        } else if (e.keyword == "evidence" || e.keyword == "continuous" || e.keyword == "virtual") {
            if ((res = ReadEvidence(c, e)) < 0) return res;
        }
    }
    return VEK_OKAY;
}

// evidence NODE [slice N] = OUTCOME;  continuous NODE [slice N] = D [OUTCOME];
// virtual NODE [slice N] = (D ...);
int VekReader::ReadEvidence(VEK_case& c, const Item& it) {
    if (it.hasBlock || !it.hasValue || (it.args.size() != 1 && it.args.size() != 3)) {
        return Fail(it.pos, "Expected '" + it.keyword + " <node> [slice <n>] = <value>;'");
    }
    Ref r;
    int res = AsRef(it.args[0], r, false);
    if (res < 0) return res;
    const int h = NodeHandle(r);
    if (h < 0) return VEK_FILE_IO_FAILED;
    VEK_caseEvidence e;
    e.node = h;
    const bool isVirtual = it.keyword == "virtual";
    const char* failure = isVirtual ? "Can't add case virtual evidence for node" : "Cannot add case evidence for node";
    if (it.args.size() == 3) {
        const Value& word = it.args[1];
        if (word.kind != Value::Word || word.text != "slice") {
            return Fail(word.pos, "Expected 'slice' but found " + Describe(word));
        }
        if ((res = AsInt(it.args[2], e.slice)) < 0) return res;
        // Slices belong to plate nodes of dynamic networks.
        if (e.slice < 0 || net_.GetNode(h)->GetTemporalType() != 3 || e.slice >= net_.GetNumberOfSlices()) {
            return NamedFail(it.args[2].pos, isVirtual ? "Can't add case temporal virtual evidence for node" : failure,
                             r.id);
        }
    }
    if (isVirtual) {
        std::vector<double> values;
        if ((res = ExpectField(it, 1, it.args.size())) < 0) return res;
        if (One(it).kind != Value::List) return Fail(One(it).pos, "A list of likelihoods expected");
        if ((res = ListDoubles(One(it), values, false)) < 0) return res;
        const VEK_nodeDef* def = net_.GetDef(h);
        if (!def->GetOutcomeIds() || static_cast<int>(values.size()) != def->GetNumberOfOutcomes()) {
            return NamedFail(One(it).pos, failure, r.id);
        }
        e.type = VEK_CASE_VIRTUAL;
        e.virtualEvidence = values;
    } else if (it.keyword == "continuous") {
        if (it.value.size() != 1 && it.value.size() != 2) {
            return Fail(it.value[0].pos, "Expected 'continuous <node> = <value> [<outcome>];'");
        }
        e.type = VEK_CASE_CONTINUOUS;
        if ((res = AsDouble(it.value[0], e.value)) < 0) return res;
        if (it.value.size() == 2) {
            Ref o;
            if ((res = AsRef(it.value[1], o, true)) < 0 || (res = Outcome(o, h, e.outcome)) < 0) return res;
        }
    } else {
        Ref o;
        if ((res = ExpectField(it, 1, it.args.size())) < 0 || (res = AsRef(One(it), o, true)) < 0 ||
            (res = Outcome(o, h, e.outcome)) < 0) {
            return res;
        }
    }
    c.SetEvidence(e);
    return VEK_OKAY;
}

}  // namespace

int VEK_readVekNetwork(VEK_fileFormat& speaker) {
    VekReader reader(speaker);
    return reader.Read();
}
