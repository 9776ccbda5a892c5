#include "formats/uaiSpeaker.h"

#include <cmath>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "formats/formatRegistry.h"
#include "network/discDef.h"
#include "network/network.h"
#include "network/nodeVal.h"

VEK_fileFormat* VEK_createUaiSpeaker(VEK_network& net) { return new VEK_uaiSpeaker(net); }

namespace {

// Numbers and one keyword, nothing else: no comments, no strings.
void SetUaiSyntax(VEK_tokenSyntax& s) {
    s.lineComments.clear();
    s.blockComments.clear();
    s.quotes.clear();
    s.extraWordChars.clear();
    s.symbols.clear();
    s.signedNumbers = true;
}

// Tables larger than this cannot be held by the engine.
constexpr long long kMaxTable = std::numeric_limits<int>::max();

std::string VarName(long long i) { return "v" + std::to_string(i); }

}  // namespace

// A cycle is reported at the scope of a function on it, so that the file's
// fault has a place (the dispatch's own check could only name the network).
int VEK_uaiSpeaker::CheckAcyclic(const std::vector<VEK_uaiFunction>& functions, const std::vector<int>& owner) {
    const size_t n = owner.size();
    std::vector<char> state(n, 0);  // 1 on the path, 2 done
    std::vector<std::pair<int, size_t>> stack;
    for (size_t root = 0; root < n; ++root) {
        if (state[root]) continue;
        stack.emplace_back(static_cast<int>(root), 0);
        state[root] = 1;
        while (!stack.empty()) {
            auto& [v, next] = stack.back();
            const VEK_uaiFunction& fn = functions[static_cast<size_t>(owner[static_cast<size_t>(v)])];
            if (next + 1 < fn.scope.size()) {
                const int p = fn.scope[next++];
                if (state[static_cast<size_t>(p)] == 1) {
                    return Fail(fn.pos, "The arcs form a cycle through variable " + VarName(v));
                }
                if (!state[static_cast<size_t>(p)]) {
                    state[static_cast<size_t>(p)] = 1;
                    stack.emplace_back(p, 0);
                }
            } else {
                state[static_cast<size_t>(v)] = 2;
                stack.pop_back();
            }
        }
    }
    return VEK_OKAY;
}

int VEK_uaiSpeaker::Parse(VEK_netDesc&) {
    SetUaiSyntax(Tokenizer().Syntax());
    VEK_token t;
    int res = Next(t);
    if (res < 0) return res;
    if (t.Is("MARKOV") || t.Is("markov")) {
        return Fail(t, "MARKOV networks are undirected and cannot be read; only BAYES networks can");
    }
    if (!t.Is("BAYES") && !t.Is("bayes")) return Fail(t, "Expected 'BAYES' but found " + t.Describe());

    long long n = 0;
    if ((res = ExpectCount(kMaxTable, n, "Number of variables")) < 0) return res;
    // Grown as the file delivers, so that a huge count in a short file costs
    // nothing.
    std::vector<int> cards;
    std::vector<VEK_descPos> cardPos;
    for (long long i = 0; i < n; ++i) {
        if ((res = Peek(t)) < 0) return res;
        long long c = 0;
        if ((res = ExpectCount(kMaxTable, c, "Number of states")) < 0) return res;
        if (c < 2) return Fail(t, "Variable " + std::to_string(i) + " has " + t.text + " states; a node needs at least two");
        cards.push_back(static_cast<int>(c));
        cardPos.push_back(Pos(t));
    }
    long long m = 0;
    if ((res = Peek(t)) < 0) return res;
    if ((res = ExpectCount(kMaxTable, m, "Number of functions")) < 0) return res;
    if (m != n) {
        return Fail(t, "A BAYES network has one function per variable: " + std::to_string(m) + " functions for " +
                           std::to_string(n) + " variables");
    }
    std::vector<VEK_uaiFunction> functions;
    std::vector<int> owner(static_cast<size_t>(n), -1);  // the function whose child each variable is
    std::vector<int> seen(static_cast<size_t>(n), -1);
    for (long long f = 0; f < m; ++f) {
        functions.emplace_back();
        VEK_uaiFunction& fn = functions.back();
        if ((res = Peek(t)) < 0) return res;
        fn.pos = Pos(t);
        long long k = 0;
        if ((res = ExpectCount(n, k, "Scope size")) < 0) return res;
        if (k == 0) return Fail(fn.pos, "Function " + std::to_string(f) + " has an empty scope");
        for (long long j = 0; j < k; ++j) {
            if ((res = Next(t)) < 0) return res;
            if (!t.IsNumber() || !t.isInteger) return Fail(t, "Variable index expected but found " + t.Describe());
            if (t.integer < 0 || t.integer >= n) {
                return Fail(t, "Unknown variable " + t.text + " in function " + std::to_string(f) + " (there are " +
                                   std::to_string(n) + " variables)");
            }
            const int v = static_cast<int>(t.integer);
            if (seen[static_cast<size_t>(v)] == f) {
                return Fail(t, "Variable " + t.text + " appears twice in function " + std::to_string(f));
            }
            seen[static_cast<size_t>(v)] = static_cast<int>(f);
            fn.scope.push_back(v);
        }
        const int child = fn.scope.back();
        if (owner[static_cast<size_t>(child)] >= 0) {
            return Fail(t, "Variable " + t.text + " is the child of functions " +
                               std::to_string(owner[static_cast<size_t>(child)]) + " and " + std::to_string(f));
        }
        owner[static_cast<size_t>(child)] = static_cast<int>(f);
    }
    for (VEK_uaiFunction& fn : functions) {
        // The expected size, capped so that it cannot overflow.
        long long expected = 1;
        for (int v : fn.scope) {
            expected *= cards[static_cast<size_t>(v)];
            if (expected > kMaxTable) break;
        }
        long long count = 0;
        if ((res = Peek(t)) < 0) return res;
        const VEK_descPos pos = Pos(t);
        if ((res = ExpectCount(kMaxTable, count, "Number of table entries")) < 0) return res;
        const std::string child = VarName(fn.scope.back());
        if (expected > kMaxTable) return Fail(pos, "Table too large for variable " + child);
        if (count != expected) {
            return Fail(pos, "Table of variable " + child + " has " + std::to_string(count) + " entries, expected " +
                                 std::to_string(expected));
        }
        for (long long j = 0; j < count; ++j) {
            double d;
            if ((res = ExpectNumber(d, &t)) < 0) return res;
            if (!std::isfinite(d) || d < 0.0 || d > 1.0 + 1e-6) {
                return Fail(t, "Invalid probability " + t.text + " for variable " + child);
            }
            fn.values.push_back(d);
        }
    }
    if ((res = Next(t)) < 0) return res;
    if (!t.IsEnd()) return Fail(t, "Unexpected " + t.Describe() + " after the last table");
    if ((res = CheckAcyclic(functions, owner)) < 0) return res;

    // The network is fresh; on failure the dispatch throws it away, and it
    // checks the arcs for cycles once they are all in.
    VEK_network& net = Network();
    std::vector<int> handles;
    handles.reserve(cards.size());
    for (size_t i = 0; i < cards.size(); ++i) {
        const std::string id = VarName(static_cast<long long>(i));
        int h = net.AddNode(VEK_CPT, id.c_str());
        if (h < 0) return Fail(cardPos[i], "QUARN failed to create node " + Quote(id));
        VEK_idArray states;
        for (int k = 0; k < cards[i]; ++k) (void)states.Add(("s" + std::to_string(k)).c_str());  // distinct valid ids
        if (static_cast<VEK_discDef*>(net.GetDef(h))->SetNumberOfOutcomes(states) < 0) {
            return Fail(cardPos[i], "SetNumberOfOutcomes failed: " + Quote(id));
        }
        handles.push_back(h);
    }
    for (const VEK_uaiFunction& fn : functions) {
        const int child = handles[static_cast<size_t>(fn.scope.back())];
        for (size_t j = 0; j + 1 < fn.scope.size(); ++j) {
            if (net.AddArc(handles[static_cast<size_t>(fn.scope[j])], child) < 0) {
                return Fail(fn.pos, "AddArc failed: " + VarName(fn.scope[j]) + " -> " + VarName(fn.scope.back()));
            }
        }
        if (net.GetDef(child)->SetDefinition(fn.values) < 0) {
            return Fail(fn.pos, "SetDefinition failed: " + VarName(fn.scope.back()));
        }
    }
    return VEK_OKAY;
}

std::string VEK_uaiSpeaker::CheckWritable() {
    VEK_network& net = Network();
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        std::string reason = ChanceOnlyReason(*net.GetNode(h));
        if (!reason.empty()) return reason;
    }
    return std::string();
}

void VEK_uaiSpeaker::WriteText() {
    VEK_network& net = Network();
    std::string& out = Text();
    std::vector<int> handles, index;
    NumberNodes(handles, index);
    out += "BAYES\n";
    out += std::to_string(handles.size());
    out += '\n';
    AppendOutcomeCounts(handles);
    out += '\n';
    out += std::to_string(handles.size());
    out += '\n';
    for (int h : handles) {
        const VEK_intArray& parents = net.GetNode(h)->Parents();
        out += std::to_string(parents.GetSize() + 1);
        for (int k = 0; k < parents.GetSize(); ++k) {
            out += ' ';
            out += std::to_string(index[static_cast<size_t>(parents[k])]);
        }
        out += ' ';
        out += std::to_string(index[static_cast<size_t>(h)]);
        out += '\n';
    }
    for (int h : handles) {
        out += '\n';
        AppendTable(h);
    }
}

// ------------------------------------------------------------------ evidence

int VEK_uaiSpeaker::ReadEvidence(const char* path) {
    std::string text;
    int res = ReadInputFile(path, text, VEK_FILE_IO_FAILED);
    if (res != VEK_OKAY) return res;
    try {
        SetInputText(text);
    } catch (const std::bad_alloc&) {
        return LogFileReadingError(VEK_OUT_OF_MEMORY, "Out of memory while reading the file", 0, 0);
    }
    return SetEvidenceFromInput();
}

int VEK_uaiSpeaker::ReadEvidenceFromString(const char* text) {
    SetFileName(nullptr);
    SetInputText(text ? text : "");
    return SetEvidenceFromInput();
}

// Two layouts are in use: "N v1 s1 ... vN sN", and an older one that puts
// the number of cases in front ("1 N v1 s1 ..."); the token count tells them
// apart. Only one case can be set.
int VEK_uaiSpeaker::SetEvidenceFromInput() {
    SetUaiSyntax(Tokenizer().Syntax());
    VEK_network& net = Network();
    std::vector<VEK_token> tokens;
    for (;;) {
        VEK_token t;
        int res = Next(t);
        if (res < 0) return res;
        if (t.IsEnd()) break;
        if (!t.IsNumber() || !t.isInteger || t.integer < 0) {
            return Fail(t, "Non-negative integer expected but found " + t.Describe());
        }
        // No file of a network this engine can hold is longer.
        if (tokens.size() > 2 * static_cast<size_t>(net.GetNumberOfNodes()) + 2) {
            return Fail(t, "More evidence than the network has variables");
        }
        tokens.push_back(std::move(t));
    }
    if (tokens.empty()) return Fail(1, 1, "Empty evidence file");
    const long long size = static_cast<long long>(tokens.size());
    size_t first = 1;
    if (size != 1 + 2 * tokens[0].integer) {
        if (tokens[0].integer != 1) {
            if (size >= 2 && tokens[0].integer > 1 && size > 2 * tokens[1].integer + 2) {
                return Fail(tokens[0], "The evidence file holds " + tokens[0].text + " cases; only one can be set");
            }
            return Fail(tokens[0], "Expected the number of observed variables followed by that many variable and "
                                   "state pairs");
        }
        if (size < 2 || size != 2 + 2 * tokens[1].integer) {
            return Fail(tokens[size < 2 ? 0 : 1], "Expected the number of observed variables followed by that many "
                                                  "variable and state pairs");
        }
        first = 2;
    }
    // Variables by their place in the node order.
    std::vector<int> handles;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) handles.push_back(h);
    std::vector<std::pair<int, int>> items;  // handle, state
    for (size_t i = first; i + 1 < tokens.size(); i += 2) {
        const VEK_token& var = tokens[i];
        const VEK_token& state = tokens[i + 1];
        if (var.integer >= static_cast<long long>(handles.size())) {
            return Fail(var, "Unknown variable " + var.text + " (the network has " + std::to_string(handles.size()) +
                                 " variables)");
        }
        const int h = handles[static_cast<size_t>(var.integer)];
        const VEK_nodeDef* def = net.GetDef(h);
        const std::string id = Quote(net.GetNodeId(h));
        const int states = def->GetDiscreteOutcomeCount();
        if (states <= 0) return Fail(var, "Variable " + var.text + " (node " + id + ") is not discrete");
        if (state.integer >= states) {
            return Fail(state, "State " + state.text + " of variable " + var.text + " (node " + id + ") is out of range");
        }
        for (const auto& [h2, s2] : items) {
            if (h2 == h && s2 != state.integer) {
                return Fail(state, "Conflicting evidence for variable " + var.text + " (node " + id + ")");
            }
        }
        items.emplace_back(h, static_cast<int>(state.integer));
    }
    // Each node's evidence before, so that a refusal can be undone.
    struct Before {
        int handle;
        int outcome;                  // -1: none
        std::vector<double> virtuals; // virtual evidence, when there was some
    };
    std::vector<Before> before;
    for (const auto& [h, s] : items) {
        VEK_nodeVal* val = net.GetVal(h);
        Before b{h, -1, {}};
        if (val->IsVirtualEvidence()) {
            (void)val->GetVirtualEvidence(b.virtuals);  // the node has virtual evidence
        } else if (val->IsRealEvidence()) {
            b.outcome = val->GetEvidence();
        }
        int res = val->SetEvidence(s);
        before.push_back(std::move(b));
        if (res < 0) {
            for (auto it = before.rbegin(); it != before.rend(); ++it) {
                VEK_nodeVal* v = net.GetVal(it->handle);
                // Puts back evidence the network held before: it was accepted then.
                (void)v->ClearEvidence();
                if (!it->virtuals.empty()) {
                    (void)v->SetVirtualEvidence(it->virtuals);
                } else if (it->outcome >= 0) {
                    (void)v->SetEvidence(it->outcome);
                }
            }
            return Logger().LogError(res, ("Evidence cannot be set on node " + Quote(net.GetNodeId(h))).c_str());
        }
    }
    return VEK_OKAY;
}
