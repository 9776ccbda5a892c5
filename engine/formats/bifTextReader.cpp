#include "formats/bifTextReader.h"

#include <cmath>
#include <cstdlib>
#include <functional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "formats/descCursor.h"
#include "formats/descLexer.h"
#include "formats/fileFormat.h"
#include "network/nodeDef.h"

namespace {

std::string Trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return std::string();
    size_t e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}

class BifParser : private VEK_descCursor {
public:
    BifParser(VEK_fileFormat& fmt, VEK_netDesc& desc) : VEK_descCursor(fmt, "{}()[];,|", ""), desc_(desc) {}

    int Parse(std::string text) {
        lex_.SetText(std::move(text));
        if (Advance() < 0) return status_;
        while (tok_.kind != VEK_lexToken::End && status_ == 0) {
            if (tok_.IsWord("network")) {
                ParseNetwork();
            } else if (tok_.IsWord("variable")) {
                ParseVariable();
            } else if (tok_.IsWord("probability")) {
                ParseProbability();
            } else {
                Error("Expected 'network', 'variable' or 'probability' but found " + tok_.Describe());
            }
        }
        return status_;
    }

private:

    // A block may be followed by a stray semicolon.
    void SkipSemicolon() {
        if (status_ == 0 && tok_.IsSymbol(';')) (void)Advance();  // a fault stays in status_
    }

    // "property" text ";" with the current token at "property".
    int ParseProperty(std::string& text) {
        if (Advance() < 0) return -1;
        if (tok_.kind == VEK_lexToken::String) {
            text = tok_.str;
            if (Advance() < 0) return -1;
        } else {
            // Unquoted: everything up to the semicolon, as written.
            size_t begin = lex_.OffsetOf(tok_), end = begin;
            while (!tok_.IsSymbol(';') && !tok_.IsSymbol('}')) {
                if (tok_.kind == VEK_lexToken::End) return Error("Unexpected end of file in a property");
                end = lex_.OffsetOf(tok_) + tok_.raw.size();
                if (Advance() < 0) return -1;
            }
            text = Trim(std::string(lex_.Slice(begin, end)));
        }
        if (tok_.IsSymbol('}')) return 0;  // the last semicolon may be missing
        return Expect(';');
    }

    void AddProperty(const std::string& text, std::vector<std::pair<std::string, std::string>>& props) {
        std::string key, value;
        VEK_splitProperty(text, key, value);
        if (!key.empty()) props.emplace_back(key, value);
    }

    void ParseNetwork() {
        if (Advance() < 0) return;
        if (IsName()) {
            desc_.hasName = true;
            desc_.name = std::string(tok_.Text());
            if (Advance() < 0) return;
        }
        if (Expect('{') < 0) return;
        while (status_ == 0 && !tok_.IsSymbol('}')) {
            if (tok_.IsWord("property")) {
                std::string text;
                if (ParseProperty(text) < 0) return;
                AddProperty(text, desc_.properties);
            } else {
                Error("Expected 'property' or '}' but found " + tok_.Describe());
                return;
            }
        }
        if (Advance() < 0) return;
        SkipSemicolon();
    }

    void ParseVariable() {
        VEK_descNode node;
        node.type = VEK_CPT;
        node.pos = {tok_.line, tok_.column};
        if (Advance() < 0) return;
        if (!IsName()) {
            Error("Variable name expected but found " + tok_.Describe());
            return;
        }
        node.name = std::string(tok_.Text());
        if (Advance() < 0 || Expect('{') < 0) return;
        bool typed = false;
        while (status_ == 0 && !tok_.IsSymbol('}')) {
            if (tok_.IsWord("type")) {
                if (ParseType(node) < 0) return;
                typed = true;
            } else if (tok_.IsWord("property")) {
                std::string text;
                if (ParseProperty(text) < 0) return;
                int x, y;
                if (VEK_parsePositionProperty(text, x, y)) {
                    node.hasPosition = true;
                    node.x = x;
                    node.y = y;
                } else {
                    AddProperty(text, node.properties);
                }
            } else {
                Error("Expected 'type', 'property' or '}' but found " + tok_.Describe());
                return;
            }
        }
        if (status_ != 0) return;
        if (!typed) {
            Error("Variable '" + node.name + "' has no type", node.pos.line, node.pos.column);
            return;
        }
        if (Advance() < 0) return;
        SkipSemicolon();
        Remember(node);
        desc_.nodes.push_back(std::move(node));
    }

    // States of the variables declared so far, by name in the file and by
    // the id the network will give them, so that rows are placed while
    // they are read (a table given before its variables waits for the
    // network builder instead).
    struct StringHash {
        using is_transparent = void;
        size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
    };
    using Index = std::unordered_map<std::string, int, StringHash, std::equal_to<>>;
    struct Var {
        size_t count = 0;
        std::vector<std::string> names;  // the states' names, then their ids
        Index index;                     // the same, for variables with many states

        int Find(std::string_view name) const {
            if (index.empty()) {
                for (size_t k = 0; k < names.size(); ++k)
                    if (names[k] == name) return static_cast<int>(k % count);
                return -1;
            }
            auto it = index.find(name);
            return it == index.end() ? -1 : it->second;
        }
    };

    void Remember(const VEK_descNode& node) {
        auto [it, fresh] = vars_.try_emplace(node.name);
        if (!fresh) return;  // declared twice: the builder refuses the file
        Var& v = it->second;
        v.count = node.states.size();
        if (v.count == 0) return;
        // A name given twice: the builder refuses it; the first counts here.
        v.names = node.states;
        std::unordered_set<std::string> ids;
        for (size_t k = 0; k < node.states.size(); ++k) {
            std::string id = VEK_foreignId(node.states[k], 's');
            std::string claimed = id;
            for (int j = 1; !ids.insert(claimed).second; ++j) claimed = id + "_" + std::to_string(j);
            v.names.push_back(std::move(claimed));
        }
        // Hashing pays off only for long lists.
        if (v.count > 6) {
            for (size_t k = 0; k < v.names.size(); ++k) v.index.emplace(v.names[k], static_cast<int>(k % v.count));
        }
    }

    const Var* FindVar(std::string_view name) const {
        auto it = vars_.find(name);
        return it == vars_.end() ? nullptr : &it->second;
    }

    // A table filled row by row as the rows are read.
    struct Placed {
        const Var* child = nullptr;
        std::vector<const Var*> parents;
        std::vector<double> values;
        std::vector<char> filled;
    };

    // Whether the rows of table can be placed now: its variables are known,
    // distinct, and the table is of a sane size.
    bool PreparePlaced(const VEK_descTable& table, Placed& placed) {
        placed.child = FindVar(table.child);
        if (!placed.child || placed.child->count == 0) return false;
        double size = static_cast<double>(placed.child->count);
        for (const std::string& p : table.parents) {
            const Var* v = FindVar(p);
            if (!v || v == placed.child || v->count == 0) return false;
            for (const Var* q : placed.parents)
                if (q == v) return false;
            placed.parents.push_back(v);
            size *= static_cast<double>(v->count);
        }
        if (size > (1 << 26)) return false;
        placed.values.assign(static_cast<size_t>(size), 0.0);
        placed.filled.assign(static_cast<size_t>(size) / placed.child->count, 0);
        return true;
    }

    // One row "(s1, s2) v1, v2;" placed into the table; the current token is
    // the opening parenthesis. Faults read as the network builder words them.
    int PlaceRow(const VEK_descTable& table, Placed& placed) {
        VEK_descPos pos{tok_.line, tok_.column};
        if (Advance() < 0) return -1;
        size_t named = 0, column = 0;
        bool unknown = false;
        std::string unknownName, unknownParent;
        while (!tok_.IsSymbol(')')) {
            if (IsName()) {
                if (named < placed.parents.size() && !unknown) {
                    const Var* parent = placed.parents[named];
                    int k = parent->Find(tok_.Text());
                    if (k < 0) {
                        unknown = true;
                        unknownName = std::string(tok_.Text());
                        unknownParent = table.parents[named];
                    } else {
                        column = column * parent->count + static_cast<size_t>(k);
                    }
                }
                ++named;
            } else if (!tok_.IsSymbol(',')) {
                return Error("State name expected but found " + tok_.Describe());
            }
            if (Advance() < 0) return -1;
        }
        rowValues_.clear();
        if (NumbersAfterToken(rowValues_) < 0 || ReadNumbers(rowValues_) < 0) return -1;
        const size_t states = placed.child->count;
        if (named != placed.parents.size()) {
            return Error("Row names " + std::to_string(named) + " parent states, expected " +
                             std::to_string(placed.parents.size()),
                         pos.line, pos.column);
        }
        if (rowValues_.size() != states) {
            return Error("Row has " + std::to_string(rowValues_.size()) + " values, expected " + std::to_string(states),
                         pos.line, pos.column);
        }
        if (unknown) {
            return Error("Invalid outcome identifier: '" + unknownName + "' of node '" + unknownParent + "'", pos.line,
                         pos.column);
        }
        if (placed.filled[column]) {
            return Error("Parent configuration given twice for node '" + table.child + "'", pos.line, pos.column);
        }
        placed.filled[column] = 1;
        std::copy(rowValues_.begin(), rowValues_.end(), placed.values.begin() + static_cast<std::ptrdiff_t>(column * states));
        return 0;
    }

    // The placed rows and the default become the table's flat values.
    int FinishPlaced(VEK_descTable& table, Placed& placed) {
        const size_t states = placed.child->count;
        for (size_t j = 0; j < placed.filled.size(); ++j) {
            if (placed.filled[j]) continue;
            if (!table.hasDefault) {
                return Error("Missing parent configurations in the table of node '" + table.child + "'", table.pos.line,
                             table.pos.column);
            }
            if (table.defaultRow.size() != states) {
                return Error("Row has " + std::to_string(table.defaultRow.size()) + " values, expected " +
                                 std::to_string(states),
                             table.defaultPos.line, table.defaultPos.column);
            }
            std::copy(table.defaultRow.begin(), table.defaultRow.end(),
                      placed.values.begin() + static_cast<std::ptrdiff_t>(j * states));
        }
        table.hasValues = true;
        table.order = VEK_DESC_CHILD_FASTEST;
        table.values = std::move(placed.values);
        table.valuesPos = table.pos;
        table.hasDefault = false;
        table.defaultRow.clear();
        return 0;
    }

    // type discrete [ N ] { s1, s2 } ;
    int ParseType(VEK_descNode& node) {
        if (Advance() < 0) return -1;
        if (!tok_.IsWord("discrete")) {
            return Error("Only discrete variables are supported, found " + tok_.Describe());
        }
        if (Advance() < 0 || Expect('[') < 0) return -1;
        VEK_descPos countPos{tok_.line, tok_.column};
        double count;
        if (tok_.kind != VEK_lexToken::Word || !VEK_parseNumber(tok_.raw, count) || count < 0 ||
            count != std::floor(count)) {
            return Error("Number of states expected but found " + tok_.Describe());
        }
        if (Advance() < 0 || Expect(']') < 0 || Expect('{') < 0) return -1;
        node.states.clear();
        while (!tok_.IsSymbol('}')) {
            if (IsName()) {
                node.states.emplace_back(tok_.Text());
            } else if (!tok_.IsSymbol(',')) {
                return Error("State name expected but found " + tok_.Describe());
            }
            if (Advance() < 0) return -1;
        }
        if (static_cast<double>(node.states.size()) != count) {
            return Error("Variable '" + node.name + "' declares " + std::to_string(static_cast<long long>(count)) +
                             " states but lists " + std::to_string(node.states.size()),
                         countPos.line, countPos.column);
        }
        if (Advance() < 0) return -1;
        SkipSemicolon();
        return status_;
    }

    // The plain numbers right after the current token, read straight from
    // the text, then the next token.
    int NumbersAfterToken(std::vector<double>& values) {
        if (lex_.ReadNumbers(values) < 0) return Error(lex_.ErrorMessage(), lex_.ErrorLine(), lex_.ErrorColumn());
        return Advance();
    }

    // Numbers separated by spaces or commas, up to and including ';' (which
    // may be left out before '}').
    int ReadNumbers(std::vector<double>& values) {
        while (true) {
            if (tok_.IsSymbol(';')) return Advance();
            if (tok_.IsSymbol('}')) return 0;
            if (tok_.kind == VEK_lexToken::Word) {
                double d;
                if (!VEK_parseNumber(tok_.raw, d)) return Error("Number expected but found " + tok_.Describe());
                values.push_back(d);
                if (lex_.ReadNumbers(values) < 0) return Error(lex_.ErrorMessage(), lex_.ErrorLine(), lex_.ErrorColumn());
            } else if (!tok_.IsSymbol(',')) {
                return Error("Number expected but found " + tok_.Describe());
            }
            if (Advance() < 0) return -1;
        }
    }

    void ParseProbability() {
        VEK_descTable table;
        table.pos = {tok_.line, tok_.column};
        if (Advance() < 0 || Expect('(') < 0) return;
        bool haveChild = false, bar = false;
        while (!tok_.IsSymbol(')')) {
            if (tok_.IsSymbol('|')) {
                if (!haveChild || bar) {
                    Error("Unexpected '|'");
                    return;
                }
                bar = true;
            } else if (IsName()) {
                if (!haveChild) {
                    table.child = std::string(tok_.Text());
                    haveChild = true;
                } else {
                    // Without a bar the names after the first are its parents.
                    table.parents.emplace_back(tok_.Text());
                    table.parentPos.push_back({tok_.line, tok_.column});
                }
            } else if (!tok_.IsSymbol(',')) {
                Error("Variable name expected but found " + tok_.Describe());
                return;
            }
            if (Advance() < 0) return;
        }
        if (!haveChild) {
            Error("A probability block must name its variable", table.pos.line, table.pos.column);
            return;
        }
        if (Advance() < 0 || Expect('{') < 0) return;
        Placed placed;
        bool rowsSeen = false, placing = false;
        while (status_ == 0 && !tok_.IsSymbol('}')) {
            if (tok_.IsWord("table")) {
                if (table.hasValues || rowsSeen) {
                    Error("A probability block holds either one table or rows");
                    return;
                }
                table.hasValues = true;
                table.order = VEK_DESC_CHILD_SLOWEST;
                table.valuesPos = {tok_.line, tok_.column};
                if (NumbersAfterToken(table.values) < 0 || ReadNumbers(table.values) < 0) return;
            } else if (tok_.IsWord("default")) {
                if (table.hasDefault) {
                    Error("Default given twice");
                    return;
                }
                table.hasDefault = true;
                table.defaultPos = {tok_.line, tok_.column};
                if (Advance() < 0 || ReadNumbers(table.defaultRow) < 0) return;
            } else if (tok_.IsWord("property")) {
                std::string ignored;
                if (ParseProperty(ignored) < 0) return;
            } else if (tok_.IsSymbol('(')) {
                if (table.hasValues) {
                    Error("A probability block holds either one table or rows");
                    return;
                }
                if (!rowsSeen) {
                    rowsSeen = true;
                    placing = PreparePlaced(table, placed);
                }
                if (placing) {
                    if (PlaceRow(table, placed) < 0) return;
                    continue;
                }
                VEK_descRow row;
                row.pos = {tok_.line, tok_.column};
                if (Advance() < 0) return;
                while (!tok_.IsSymbol(')')) {
                    if (IsName()) {
                        row.parentStates.emplace_back(tok_.Text());
                    } else if (!tok_.IsSymbol(',')) {
                        Error("State name expected but found " + tok_.Describe());
                        return;
                    }
                    if (Advance() < 0) return;
                }
                if (Advance() < 0 || ReadNumbers(row.values) < 0) return;
                table.rows.push_back(std::move(row));
            } else {
                Error("Expected 'table', 'default', a row or '}' but found " + tok_.Describe());
                return;
            }
        }
        if (status_ != 0) return;
        if (placing && FinishPlaced(table, placed) < 0) return;
        if (Advance() < 0) return;
        SkipSemicolon();
        desc_.tables.push_back(std::move(table));
    }

    VEK_netDesc& desc_;
    std::unordered_map<std::string, Var, StringHash, std::equal_to<>> vars_;
    std::vector<double> rowValues_;  // kept between rows: no allocation per row
};

}  // namespace

void VEK_splitProperty(const std::string& text, std::string& key, std::string& value) {
    size_t eq = text.find('=');
    if (eq == std::string::npos) {
        key = Trim(text);
        value.clear();
    } else {
        key = Trim(text.substr(0, eq));
        value = Trim(text.substr(eq + 1));
    }
}

bool VEK_parsePositionProperty(const std::string& text, int& x, int& y) {
    std::string key, value;
    VEK_splitProperty(text, key, value);
    if (key != "position" || value.size() < 2 || value.front() != '(' || value.back() != ')') return false;
    std::string inner = value.substr(1, value.size() - 2);
    for (char& c : inner)
        if (c == ',') c = ' ';
    size_t b = inner.find_first_not_of(' ');
    if (b == std::string::npos) return false;
    size_t e = inner.find(' ', b);
    if (e == std::string::npos) return false;
    size_t b2 = inner.find_first_not_of(' ', e);
    if (b2 == std::string::npos) return false;
    size_t e2 = inner.find(' ', b2);
    if (e2 != std::string::npos && inner.find_first_not_of(' ', e2) != std::string::npos) return false;
    double dx, dy;
    if (!VEK_parseNumber(std::string_view(inner).substr(b, e - b), dx)) return false;
    if (!VEK_parseNumber(std::string_view(inner).substr(b2, (e2 == std::string::npos ? inner.size() : e2) - b2), dy)) {
        return false;
    }
    if (!(std::fabs(dx) < 1e9 && std::fabs(dy) < 1e9)) return false;
    x = static_cast<int>(std::lround(dx));
    y = static_cast<int>(std::lround(dy));
    return true;
}

int VEK_readTextBif(std::string text, VEK_netDesc& desc, VEK_fileFormat& fmt) {
    return BifParser(fmt, desc).Parse(std::move(text));
}
