#include "formats/netDesc.h"

#include <charconv>
#include <cmath>
#include <algorithm>
#include <cstdint>
#include <exception>
#include <new>
#include <unordered_map>
#include <unordered_set>

#include "network/discDef.h"
#include "network/identifier.h"
#include "network/network.h"
#include "network/status.h"

std::string VEK_foreignId(const std::string& text, char prefix) {
    if (VEK_isValidIdentifier(text)) return text;
    std::string id;
    id.reserve(text.size() + 1);
    if (text.empty() || !VEK_isCharValidForIdentifier(text[0], true)) id += prefix;
    id += text;
    VEK_makeValidId(id);
    return id;
}

const char* VEK_foreignName(const char* id, const char* name, char prefix) {
    if (!id) return "";
    if (!name || !*name || std::string(name) == id) return id;
    return VEK_foreignId(name, prefix) == id ? name : id;
}

void VEK_appendDouble(std::string& out, double value) {
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, value);
    out.append(buf, r.ptr);
}

namespace {

// Makes ids unique within one namespace (nodes of a network, outcomes of a
// node) by appending _1, _2... to a repaired id that is taken already.
class IdSet {
public:
    std::string Claim(const std::string& candidate) {
        std::string id = candidate;
        for (int k = 1; used_.count(id); ++k) id = candidate + "_" + std::to_string(k);
        used_.insert(id);
        return id;
    }

private:
    std::unordered_set<std::string> used_;
};

class Builder {
public:
    Builder(const VEK_netDesc& desc, VEK_network& net, VEK_descErrorSink& errors)
        : desc_(desc), net_(net), errors_(errors) {}

    int Run() {
        IndexNodes();
        if (status_ == 0) ResolveTables();
        if (status_ == 0) CheckAcyclic();
        if (status_ != 0) return status_;
        // Each node is built with its arcs and table right after its parents:
        // the network then holds fewer nodes whenever one changes, and every
        // change costs a walk over the nodes there are.
        unsigned options = net_.GetOptions();
        net_.SetOptions(options | VEK_OPT_NO_CYCLE_TEST);  // checked above, once
        for (int v : ParentsFirstOrder()) {
            BuildNode(v);
            if (status_ != 0) break;
        }
        net_.SetOptions(options);
        if (status_ == 0) SetHeader();
        return status_;
    }

private:
    struct NodeInfo {
        std::string id;
        int handle = -1;
        int table = -1;  // index of its table in the desc
        bool indexed = false;
        std::unordered_map<std::string, int> stateIndex;  // see StateIndex
    };

    int Fail(int code, const VEK_descPos& pos, const std::string& message) {
        errors_.SpecError(code, pos, message);
        if (status_ == 0) status_ = code;
        return code;
    }

    static std::string Quote(const std::string& text) { return "'" + text + "'"; }

    // Names, and ids in file order (so that the suffixes that make repaired
    // ids unique do not depend on the order in which nodes are created).
    void IndexNodes() {
        const size_t n = desc_.nodes.size();
        info_.resize(n);
        byName_.reserve(n * 2);
        IdSet nodeIds;
        for (size_t i = 0; i < n; ++i) {
            const VEK_descNode& s = desc_.nodes[i];
            if (!byName_.emplace(s.name, static_cast<int>(i)).second) {
                Fail(VEK_FILE_READ_ERROR, s.pos, "Duplicated node identifier: " + Quote(s.name));
                return;
            }
            info_[i].id = nodeIds.Claim(VEK_foreignId(s.name, 'n'));
        }
    }

    void ResolveTables() {
        parents_.resize(desc_.tables.size());
        for (size_t t = 0; t < desc_.tables.size() && status_ == 0; ++t) {
            const VEK_descTable& tab = desc_.tables[t];
            auto it = byName_.find(tab.child);
            if (it == byName_.end()) {
                Fail(VEK_FILE_READ_ERROR, tab.pos, "Unknown node: " + Quote(tab.child));
                return;
            }
            NodeInfo& child = info_[it->second];
            if (child.table >= 0) {
                Fail(VEK_FILE_READ_ERROR, tab.pos, "Duplicate table for node: " + Quote(tab.child));
                return;
            }
            child.table = static_cast<int>(t);
            int childType = desc_.nodes[it->second].type;
            for (size_t p = 0; p < tab.parents.size(); ++p) {
                const VEK_descPos& pos = p < tab.parentPos.size() ? tab.parentPos[p] : tab.pos;
                auto pit = byName_.find(tab.parents[p]);
                if (pit == byName_.end()) {
                    Fail(VEK_FILE_READ_ERROR, pos, "Node parent not found: " + Quote(tab.parents[p]));
                    return;
                }
                for (int q : parents_[t]) {
                    if (q == pit->second) {
                        Fail(VEK_FILE_READ_ERROR, pos, "Duplicate parent: " + Quote(tab.parents[p]));
                        return;
                    }
                }
                if (pit->second == it->second) {
                    Fail(VEK_FILE_READ_ERROR, pos, "Node is its own parent: " + Quote(tab.child));
                    return;
                }
                int parentType = desc_.nodes[pit->second].type;
                if (!VEK_nodeDef::IsArcAllowedForTypes(parentType, childType)) {
                    Fail(VEK_FILE_READ_ERROR, pos,
                         (parentType == VEK_TABLE ? "A utility node cannot be a parent: " : "Arc not allowed: ") +
                             Quote(tab.parents[p]) + " -> " + Quote(tab.child));
                    return;
                }
                parents_[t].push_back(pit->second);
            }
            // Tables over more than 2^31 items cannot be held.
            double size = childType == VEK_TABLE ? 1.0 : static_cast<double>(desc_.nodes[it->second].states.size());
            for (int p : parents_[t]) size *= static_cast<double>(std::max<size_t>(1, desc_.nodes[p].states.size()));
            if (size > 2147483647.0) {
                Fail(VEK_FILE_READ_ERROR, tab.pos, "Table too large for node " + Quote(tab.child));
                return;
            }
        }
    }

    const std::vector<int>& ParentsOf(int v) const {
        static const std::vector<int> none;
        return info_[v].table >= 0 ? parents_[info_[v].table] : none;
    }

    // Kahn's algorithm over the arcs of the tables; a node left over lies on
    // or behind a cycle, and one on the cycle is reported.
    void CheckAcyclic() {
        const size_t n = desc_.nodes.size();
        std::vector<int> indegree(n, 0);
        std::vector<std::vector<int>> children(n);
        for (size_t v = 0; v < n; ++v) {
            for (int p : ParentsOf(static_cast<int>(v))) {
                children[p].push_back(static_cast<int>(v));
                ++indegree[v];
            }
        }
        std::vector<int> queue;
        for (size_t i = 0; i < n; ++i)
            if (indegree[i] == 0) queue.push_back(static_cast<int>(i));
        for (size_t q = 0; q < queue.size(); ++q)
            for (int c : children[queue[q]])
                if (--indegree[c] == 0) queue.push_back(c);
        if (queue.size() == n) return;
        // Walk parents that are still blocked until a node repeats: that
        // node is on a cycle.
        int v = 0;
        while (indegree[v] == 0) ++v;
        std::vector<char> seen(n, 0);
        while (!seen[v]) {
            seen[v] = 1;
            for (int p : ParentsOf(v)) {
                if (indegree[p] > 0) {
                    v = p;
                    break;
                }
            }
        }
        const VEK_descTable& tab = desc_.tables[info_[v].table];
        Fail(VEK_FILE_READ_ERROR, tab.pos, "The arcs form a cycle through node " + Quote(tab.child));
    }

    // File order, except that a node's ancestors come before it (a file
    // that lists parents first keeps its order). Iterative: chains of any
    // length.
    std::vector<int> ParentsFirstOrder() const {
        const size_t n = desc_.nodes.size();
        std::vector<int> order;
        order.reserve(n);
        std::vector<char> state(n, 0);  // 1 on the stack, 2 placed
        std::vector<std::pair<int, size_t>> stack;
        for (size_t root = 0; root < n; ++root) {
            if (state[root]) continue;
            stack.emplace_back(static_cast<int>(root), 0);
            state[root] = 1;
            while (!stack.empty()) {
                auto& [v, next] = stack.back();
                const std::vector<int>& parents = ParentsOf(v);
                if (next < parents.size()) {
                    int p = parents[next++];
                    if (!state[p]) {
                        state[p] = 1;
                        stack.emplace_back(p, 0);
                    }
                } else {
                    state[v] = 2;
                    order.push_back(v);
                    stack.pop_back();
                }
            }
        }
        return order;
    }

    // Exhausted memory is not a fault of the file: it leaves the read as
    // std::bad_alloc, which the network reports as -42.
    static int Checked(int status) {
        if (status == VEK_OUT_OF_MEMORY) throw std::bad_alloc();
        return status;
    }

    void BuildNode(int i) {
        const VEK_descNode& s = desc_.nodes[i];
        NodeInfo& ni = info_[i];
        int h = Checked(net_.AddNode(s.type, ni.id.c_str()));
        if (h < 0) {
            Fail(VEK_FILE_READ_ERROR, s.pos, "QUARN failed to create node: " + Quote(s.name));
            return;
        }
        ni.handle = h;
        VEK_node* node = net_.GetNode(h);
        if (s.hasLabel && !s.label.empty()) {
            node->Header().SetName(s.label.c_str());
        } else if (ni.id != s.name) {
            node->Header().SetName(s.name.c_str());
        }
        if (s.hasPosition) {
            node->Info().screen.position.centerX = s.x;
            node->Info().screen.position.centerY = s.y;
        }
        if (desc_.hasNodeSize) {
            node->Info().screen.position.width = desc_.nodeWidth;
            node->Info().screen.position.height = desc_.nodeHeight;
        }
        for (const auto& p : s.properties) (void)node->Info().userProperties.AddProperty(p.first.c_str(), p.second.c_str());  // a name is always given
        if (s.type != VEK_TABLE) SetStates(s, node);
        if (status_ == 0) AddArcs(i);
        if (status_ == 0) FillTable(i);
    }

    // The first state name that occurs twice, or null.
    static const std::string* Duplicate(const std::vector<std::string>& names) {
        const size_t n = names.size();
        if (n <= 32) {
            for (size_t a = 1; a < n; ++a)
                for (size_t b = 0; b < a; ++b)
                    if (names[a] == names[b]) return &names[a];
            return nullptr;
        }
        std::vector<const std::string*> sorted;
        sorted.reserve(n);
        for (const std::string& name : names) sorted.push_back(&name);
        std::sort(sorted.begin(), sorted.end(), [](const std::string* a, const std::string* b) { return *a < *b; });
        for (size_t k = 1; k < n; ++k)
            if (*sorted[k] == *sorted[k - 1]) return sorted[k];
        return nullptr;
    }

    void SetStates(const VEK_descNode& s, VEK_node* node) {
        if (s.states.size() < 2) {
            Fail(VEK_FILE_READ_ERROR, s.pos, "Node needs at least two states: " + Quote(s.name));
            return;
        }
        if (const std::string* twice = Duplicate(s.states)) {
            Fail(VEK_FILE_READ_ERROR, s.pos, "Duplicate state identifier: " + Quote(*twice) + " of node " + Quote(s.name));
            return;
        }
        auto* def = static_cast<VEK_discDef*>(node->Definition());
        bool repaired = false;
        for (const std::string& name : s.states) repaired = repaired || !VEK_isValidIdentifier(name);
        // Valid and distinct (checked above, or made so by the claims).
        VEK_idArray ids;
        if (repaired) {
            IdSet stateIds;
            for (const std::string& name : s.states) (void)ids.Add(stateIds.Claim(VEK_foreignId(name, 's')).c_str());
        } else {
            for (const std::string& name : s.states) (void)ids.Add(name.c_str());
        }
        if (Checked(def->SetNumberOfOutcomes(ids)) < 0) {
            Fail(VEK_FILE_READ_ERROR, s.pos, "SetNumberOfOutcomes failed: " + Quote(s.name));
            return;
        }
        if (repaired) {
            for (size_t k = 0; k < s.states.size(); ++k) {
                if (s.states[k] != ids[static_cast<int>(k)]) (void)def->SetOutcomeLabel(static_cast<int>(k), s.states[k].c_str());  // the outcome index is in range
            }
        }
        if (!s.intervals.empty()) {
            if (s.intervals.size() != s.states.size() + 1 || Checked(def->SetIntervals(s.intervals, false)) < 0) {
                Fail(VEK_FILE_READ_ERROR, s.pos, "SetIntervals failed: " + Quote(s.name));
            }
        } else if (!s.pointValues.empty()) {
            if (Checked(def->SetPointValues(s.pointValues)) < 0) Fail(VEK_FILE_READ_ERROR, s.pos, "SetPointValues failed: " + Quote(s.name));
        }
    }

    void AddArcs(int c) {
        if (info_[c].table < 0) return;
        const VEK_descTable& tab = desc_.tables[info_[c].table];
        const std::vector<int>& parents = ParentsOf(c);
        for (size_t k = 0; k < parents.size(); ++k) {
            if (Checked(net_.AddArc(info_[parents[k]].handle, info_[c].handle)) < 0) {
                Fail(VEK_FILE_READ_ERROR, k < tab.parentPos.size() ? tab.parentPos[k] : tab.pos,
                     "AddArc failed: " + Quote(tab.parents[k]) + " -> " + Quote(tab.child));
                return;
            }
        }
    }

    bool CheckValues(const std::vector<double>& values, bool probabilities, const VEK_descPos& pos,
                     const std::string& node) {
        for (double v : values) {
            bool ok = std::isfinite(v) && (!probabilities || (v >= 0.0 && v <= 1.0 + 1e-6));
            if (!ok) {
                std::string text;
                VEK_appendDouble(text, v);
                Fail(VEK_FILE_READ_ERROR, pos,
                     (probabilities ? "Invalid probability " : "Invalid utility ") + text + " for node " + Quote(node));
                return false;
            }
        }
        return true;
    }

    // The engine's order from one where the child varies slowest: item
    // (child k, configuration j) moves from k * columns + j to j * states + k.
    static void ChildToFastest(std::vector<double>& values, size_t states) {
        size_t columns = values.size() / states;
        std::vector<double> out(values.size());
        for (size_t k = 0; k < states; ++k)
            for (size_t j = 0; j < columns; ++j) out[j * states + k] = values[k * columns + j];
        values.swap(out);
    }

    void FillTable(int i) {
        const VEK_descNode& s = desc_.nodes[i];
        const NodeInfo& ni = info_[i];
        if (ni.table < 0) {
            if (s.type != VEK_LIST) Fail(VEK_FILE_READ_ERROR, s.pos, "No table for node " + Quote(s.name));
            return;
        }
        if (s.type == VEK_LIST) return;  // a decision's table names its parents only
        const VEK_descTable& tab = desc_.tables[ni.table];
        VEK_nodeDef* def = net_.GetDef(ni.handle);
        const size_t expected = static_cast<size_t>(def->GetParameters().GetSize());
        const size_t states = s.type == VEK_TABLE ? 1 : s.states.size();
        const bool probabilities = s.type != VEK_TABLE;
        if (tab.hasValues) {
            if (tab.values.size() != expected) {
                Fail(VEK_FILE_READ_ERROR, tab.valuesPos,
                     "Table of node " + Quote(s.name) + " has " + std::to_string(tab.values.size()) +
                         " values, expected " + std::to_string(expected));
                return;
            }
            if (!CheckValues(tab.values, probabilities, tab.valuesPos, s.name)) return;
            if (tab.order == VEK_DESC_CHILD_SLOWEST && states > 1) {
                std::vector<double> values = tab.values;
                ChildToFastest(values, states);
                Checked(def->SetDefinition(values));
            } else {
                Checked(def->SetDefinition(tab.values));
            }
            return;
        }
        if (tab.rows.empty() && !tab.hasDefault) {
            Fail(VEK_FILE_READ_ERROR, tab.pos, "No table for node " + Quote(s.name));
            return;
        }
        std::vector<double> values;
        if (!FillFromRows(i, tab, s, states, expected, values)) return;
        if (!CheckValues(values, probabilities, tab.pos, s.name)) return;
        Checked(def->SetDefinition(values));
    }

    // States by their names in the file and by the ids they got; made when
    // rows first need them.
    const std::unordered_map<std::string, int>& StateIndex(int node) {
        NodeInfo& ni = info_[node];
        if (!ni.indexed) {
            ni.indexed = true;
            const std::vector<std::string>& states = desc_.nodes[node].states;
            const VEK_idArray* ids = net_.GetDef(ni.handle)->GetOutcomeIds();
            for (size_t k = 0; k < states.size(); ++k) ni.stateIndex.emplace(states[k], static_cast<int>(k));
            for (int k = 0; ids && k < ids->GetSize(); ++k) ni.stateIndex.emplace((*ids)[k], k);
        }
        return ni.stateIndex;
    }

    bool FillFromRows(int child, const VEK_descTable& tab, const VEK_descNode& s, size_t states, size_t expected,
                      std::vector<double>& values) {
        const std::vector<int>& parents = ParentsOf(child);
        values.assign(expected, 0.0);
        const size_t columns = expected / states;
        std::vector<char> filled(columns, 0);
        for (const VEK_descRow& row : tab.rows) {
            if (row.parentStates.size() != parents.size()) {
                Fail(VEK_FILE_READ_ERROR, row.pos,
                     "Row names " + std::to_string(row.parentStates.size()) + " parent states, expected " +
                         std::to_string(parents.size()));
                return false;
            }
            if (row.values.size() != states) {
                Fail(VEK_FILE_READ_ERROR, row.pos,
                     "Row has " + std::to_string(row.values.size()) + " values, expected " + std::to_string(states));
                return false;
            }
            size_t column = 0;
            for (size_t p = 0; p < parents.size(); ++p) {
                const auto& index = StateIndex(parents[p]);
                auto it = index.find(row.parentStates[p]);
                if (it == index.end()) {
                    Fail(VEK_FILE_READ_ERROR, row.pos,
                         "Invalid outcome identifier: " + Quote(row.parentStates[p]) + " of node " +
                             Quote(desc_.nodes[parents[p]].name));
                    return false;
                }
                column = column * desc_.nodes[parents[p]].states.size() + static_cast<size_t>(it->second);
            }
            if (filled[column]) {
                Fail(VEK_FILE_READ_ERROR, row.pos, "Parent configuration given twice for node " + Quote(s.name));
                return false;
            }
            filled[column] = 1;
            std::copy(row.values.begin(), row.values.end(), values.begin() + static_cast<std::ptrdiff_t>(column * states));
        }
        for (size_t j = 0; j < columns; ++j) {
            if (filled[j]) continue;
            if (!tab.hasDefault) {
                Fail(VEK_FILE_READ_ERROR, tab.pos, "Missing parent configurations in the table of node " + Quote(s.name));
                return false;
            }
            if (tab.defaultRow.size() != states) {
                Fail(VEK_FILE_READ_ERROR, tab.defaultPos,
                     "Row has " + std::to_string(tab.defaultRow.size()) + " values, expected " + std::to_string(states));
                return false;
            }
            std::copy(tab.defaultRow.begin(), tab.defaultRow.end(), values.begin() + static_cast<std::ptrdiff_t>(j * states));
        }
        return true;
    }

    void SetHeader() {
        for (const auto& p : desc_.properties) (void)net_.UserProperties().AddProperty(p.first.c_str(), p.second.c_str());  // a name is always given
        if (!desc_.hasName || desc_.name.empty()) return;
        std::string id = VEK_foreignId(desc_.name, 'n');
        (void)net_.Header().SetId(id.c_str());  // VEK_foreignId gives a valid identifier
        net_.Header().SetName(desc_.name.c_str());
    }

    const VEK_netDesc& desc_;
    VEK_network& net_;
    VEK_descErrorSink& errors_;
    int status_ = 0;
    std::vector<NodeInfo> info_;
    std::unordered_map<std::string, int> byName_;
    std::vector<std::vector<int>> parents_;  // per table: desc node indices
};

}  // namespace

int VEK_buildNetwork(const VEK_netDesc& desc, VEK_network& net, VEK_descErrorSink& errors) {
    try {
        VEK_relevanceDelay relevance(net);
        VEK_updateImmediateContext scope(net);
        return Builder(desc, net, errors).Run();
    } catch (const std::bad_alloc&) {
        errors.SpecError(VEK_OUT_OF_MEMORY, VEK_descPos{}, "Out of memory while building the network");
        return VEK_OUT_OF_MEMORY;
    } catch (const std::exception& e) {
        errors.SpecError(VEK_FILE_READ_ERROR, VEK_descPos{}, std::string("Can't build the network: ") + e.what());
        return VEK_FILE_READ_ERROR;
    }
}
