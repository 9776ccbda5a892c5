// Node definitions: tables that follow the graph, outcome operations,
// intervals and extras, arc rules, type change, visitors, lazy tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "inference/randGen.h"
#include "network/cpt.h"
#include "network/decision.h"
#include "network/lazyDef.h"
#include "network/mau.h"
#include "network/network.h"
#include "network/nodeDefVisitor.h"
#include "network/nodeXformContext.h"
#include "network/truthTable.h"
#include "network/utility.h"

namespace {

std::vector<double> Items(const VEK_nodeDef* def) { return def->GetMatrix()->GetItems().ToVector(); }
std::vector<int> Dims(const VEK_nodeDef* def) { return def->GetMatrix()->GetDimensions().ToVector(); }
std::vector<std::string> Ids(const VEK_nodeDef* def) { return def->GetOutcomeIds()->ToVector(); }

void ExpectItems(const VEK_nodeDef* def, const std::vector<double>& expected) {
    std::vector<double> got = Items(def);
    ASSERT_EQ(got.size(), expected.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], expected[i], 1e-12) << "item " << i;
}

VEK_intArray Perm(std::initializer_list<int> v) { return VEK_intArray(v); }

// Text followed by a number (appending sidesteps a false -Wrestrict warning
// of g++ 12 on literal + string).
std::string Cat(const char* text, double number) {
    std::string s(text);
    s += number == std::floor(number) ? std::to_string(static_cast<long long>(number)) : std::to_string(number);
    return s;
}

// ====================================================================
// Independent model of every table, keyed by parent outcome *ids*, kept in
// step by re-deriving what each graph or outcome change must do.
// ====================================================================

using Assign = std::map<int, std::string>;          // parent handle -> outcome id
using Column = std::map<std::string, double>;       // own outcome id (or weight key) -> value
using Table = std::map<Assign, Column>;

struct ModelNode {
    int type = 0;
    std::vector<std::string> ids;  // own outcomes, in order (empty for utility/MAU)
    Table table;                   // empty for decisions
};

bool IsUtilityKind(int type) { return type == VEK_TABLE || type == VEK_MAU; }

class Model {
public:
    std::map<int, ModelNode> nodes;

    void AddNode(int h, const VEK_network& net) {
        ModelNode n;
        n.type = net.GetDef(h)->GetType();
        if (!IsUtilityKind(n.type)) n.ids = Ids(net.GetDef(h));
        Column col;
        if (n.type == VEK_CPT) {
            for (auto& id : n.ids) col[id] = 1.0 / n.ids.size();
        } else if (n.type == VEK_TRUTHTABLE) {
            for (size_t i = 0; i < n.ids.size(); ++i) col[n.ids[i]] = i == 0 ? 1.0 : 0.0;
        } else if (n.type == VEK_TABLE) {
            col[""] = 1.0;
        } else if (n.type == VEK_MAU) {
            col["*"] = 1.0;
        }
        if (n.type != VEK_LIST) n.table[Assign()] = col;
        nodes[h] = n;
    }

    // Column rescaling after structural changes: sum 1 kept, sum 0 uniform.
    static void NormalizeColumn(Column& col) {
        double sum = 0.0;
        for (auto& [k, v] : col) sum += v;
        if (sum == 1.0) return;
        for (auto& [k, v] : col) v = sum == 0.0 ? 1.0 / col.size() : v / sum;
    }

    void NormalizeAll(ModelNode& n) {
        if (n.type != VEK_CPT && n.type != VEK_TRUTHTABLE) return;
        for (auto& [a, col] : n.table) NormalizeColumn(col);
    }

    // A utility parent of a MAU adds or removes a weight, not a dimension;
    // true when the arc was one.
    bool UtilityArcOfMau(int p, int c, bool added) {
        ModelNode& child = nodes[c];
        if (child.type != VEK_MAU || !IsUtilityKind(nodes[p].type)) return false;
        const std::string key = Cat("u", p);
        for (auto& [a, col] : child.table) {
            if (added && col.count("*")) col.clear();
            if (added) col[key] = 1.0;
            if (!added) col.erase(key);
            if (col.empty()) col["*"] = 1.0;
        }
        return true;
    }

    void ArcAdded(int p, int c) {
        ModelNode& child = nodes[c];
        const ModelNode& parent = nodes[p];
        if (child.type == VEK_LIST || UtilityArcOfMau(p, c, true)) return;
        Table fresh;
        for (auto& [a, col] : child.table) {
            for (auto& id : parent.ids) {
                Assign b = a;
                b[p] = id;
                fresh[b] = col;
            }
        }
        child.table = fresh;
        NormalizeAll(child);
    }

    void ArcRemoved(int p, int c) {
        ModelNode& child = nodes[c];
        const ModelNode& parent = nodes[p];
        if (child.type == VEK_LIST || UtilityArcOfMau(p, c, false)) return;
        Table fresh;
        for (auto& [a, col] : child.table) {
            auto it = a.find(p);
            if (it == a.end() || it->second != parent.ids[0]) continue;
            Assign b = a;
            b.erase(p);
            fresh[b] = col;
        }
        child.table = fresh;
    }

    // A parent gained outcome `id` (already in the parent's id list).
    void ParentOutcomeAdded(int p, int c, const std::string& id) {
        ModelNode& child = nodes[c];
        if (child.type == VEK_LIST) return;
        const ModelNode& parent = nodes[p];
        std::string ref = parent.ids[0] == id ? parent.ids[1] : parent.ids[0];
        Table added;
        for (auto& [a, col] : child.table) {
            if (a.at(p) != ref) continue;
            Assign b = a;
            b[p] = id;
            Column fresh;
            for (size_t i = 0; i < child.ids.size(); ++i) {
                const std::string& own = child.ids[i];
                if (child.type == VEK_CPT) fresh[own] = 1.0 / child.ids.size();
                if (child.type == VEK_TRUTHTABLE) fresh[own] = i == 0 ? 1.0 : 0.0;
            }
            if (child.type == VEK_TABLE) fresh[""] = 0.0;
            if (child.type == VEK_MAU) {
                for (auto& [k, v] : col) fresh[k] = 1.0;
            }
            added[b] = fresh;
        }
        child.table.insert(added.begin(), added.end());
        NormalizeAll(child);
    }

    void ParentOutcomeRemoved(int p, int c, const std::string& id) {
        ModelNode& child = nodes[c];
        for (auto it = child.table.begin(); it != child.table.end();) {
            it = it->first.at(p) == id ? child.table.erase(it) : std::next(it);
        }
    }

    void OwnOutcomeAdded(int h, int k, const std::string& id) {
        ModelNode& n = nodes[h];
        n.ids.insert(n.ids.begin() + k, id);
        if (n.type == VEK_CPT || n.type == VEK_TRUTHTABLE) {
            for (auto& [a, col] : n.table) col[id] = 0.0;
        }
    }

    void OwnOutcomeRemoved(int h, int k) {
        ModelNode& n = nodes[h];
        std::string id = n.ids[k];
        n.ids.erase(n.ids.begin() + k);
        if (n.type != VEK_CPT && n.type != VEK_TRUTHTABLE) return;
        for (auto& [a, col] : n.table) {
            bool selected = col[id] == 1.0;
            col.erase(id);
            // A deterministic column that lost its outcome selects the first.
            if (n.type == VEK_TRUTHTABLE && selected) col[n.ids[0]] = 1.0;
        }
    }

    // Count changed on a node without children: new ids, table reset.
    void OwnOutcomesReset(int h, const std::vector<std::string>& ids) {
        ModelNode& n = nodes[h];
        n.ids = ids;
        if (n.type != VEK_CPT && n.type != VEK_TRUTHTABLE) return;
        for (auto& [a, col] : n.table) {
            col.clear();
            for (size_t i = 0; i < ids.size(); ++i) {
                col[ids[i]] = n.type == VEK_CPT ? 1.0 / ids.size() : (i == 0 ? 1.0 : 0.0);
            }
        }
    }

    // Reads the node's table into the model (after the test set new values).
    void Capture(const VEK_network& net, int h) { Snapshot(net, h, nodes[h].table); }

    // The network's table of node h keyed as the model keys it, coordinates
    // named by the ids the network reports; false when its shape does not
    // follow the parents (table parents in order, then the own dimension).
    static bool Snapshot(const VEK_network& net, int h, Table& out) {
        out.clear();
        const VEK_nodeDef* def = net.GetDef(h);
        const VEK_Dmatrix* m = def->GetMatrix();
        std::vector<int> tableParents, utilityParents;
        for (int p : net.GetNode(h)->Parents())
            (def->GetType() == VEK_MAU && IsUtilityKind(net.GetDef(p)->GetType()) ? utilityParents : tableParents).push_back(p);
        std::vector<int> dims;
        for (int p : tableParents) dims.push_back(net.GetDef(p)->GetNumberOfOutcomes());
        if (def->GetType() == VEK_MAU) {
            dims.push_back(std::max(1, static_cast<int>(utilityParents.size())));
        } else {
            dims.push_back(def->GetType() == VEK_TABLE ? 1 : def->GetNumberOfOutcomes());
        }
        if (m->GetDimensions().ToVector() != dims) return false;
        VEK_intArray coords;
        for (int i = 0; i < m->GetSize(); ++i) {
            m->IndexToCoordinates(i, coords);
            Assign a;
            for (size_t d = 0; d < tableParents.size(); ++d)
                a[tableParents[d]] = (*net.GetDef(tableParents[d])->GetOutcomeIds())[coords[static_cast<int>(d)]];
            const int own = coords[coords.GetSize() - 1];
            std::string key;
            if (def->GetType() == VEK_MAU) {
                key = utilityParents.empty() ? "*" : Cat("u", utilityParents[static_cast<size_t>(own)]);
            } else if (def->GetType() != VEK_TABLE) {
                key = (*def->GetOutcomeIds())[own];
            }
            out[a][key] = (*m)[i];
        }
        return true;
    }

    // Compares every node with the model; returns a description of the
    // first difference, empty when all agree.
    std::string Compare(const VEK_network& net) const {
        for (const auto& [h, n] : nodes) {
            const VEK_nodeDef* def = net.GetDef(h);
            if (def->GetType() != n.type) return Cat("type of node ", h);
            if (!IsUtilityKind(n.type) && Ids(def) != n.ids) return Cat("outcome ids of node ", h);
            if (n.type == VEK_LIST) {
                if (def->GetMatrix() != nullptr) return "decision with a table";
                continue;
            }
            Table t;
            bool same = Snapshot(net, h, t) && t.size() == n.table.size();
            for (auto a = t.cbegin(), b = n.table.cbegin(); same && a != t.end(); ++a, ++b) {
                same = a->first == b->first && a->second.size() == b->second.size();
                for (auto x = a->second.cbegin(), y = b->second.cbegin(); same && x != a->second.end(); ++x, ++y)
                    same = x->first == y->first && std::fabs(x->second - y->second) <= 1e-9;
            }
            if (!same) return Cat("table of node ", h);
        }
        return "";
    }
};

// Random edits of a small influence diagram, each applied to the network and
// re-derived in the model; after every edit both must agree.
class RandomGraph {
public:
    explicit RandomGraph(unsigned seed) : rng_(seed) {
        const int types[] = {VEK_CPT, VEK_CPT, VEK_TRUTHTABLE, VEK_LIST, VEK_CPT, VEK_TRUTHTABLE,
                             VEK_TABLE, VEK_MAU, VEK_TABLE, VEK_LIST, VEK_MAU, VEK_CPT, VEK_TABLE};
        for (int t : types) {
            int h = net_.AddNode(t, nullptr);
            handles_.push_back(h);
            model_.AddNode(h, net_);
        }
    }

    VEK_network& Net() { return net_; }

    std::string Step() {
        switch (Pick(9)) {
            case 0:
            case 1: return AddArc();
            case 2: return RemoveArc();
            case 3: return InsertOutcome();
            case 4: return RemoveOutcome();
            case 5: return ReorderOutcomes();
            case 6: return ReorderParents();
            case 7: return SetCount();
            default: return SetValues();
        }
    }

    std::string Check() { return model_.Compare(net_); }

private:
    static std::string Fail(const char* what) { return std::string("ERROR: ") + what; }
    int Pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }
    int AnyNode() { return handles_[Pick(static_cast<int>(handles_.size()))]; }
    int AnyDiscreteNode() {
        for (;;) {
            int h = AnyNode();
            if (!IsUtilityKind(model_.nodes[h].type)) return h;
        }
    }
    VEK_node* Node(int h) { return net_.GetNode(h); }

    std::string AddArc() {
        int p = AnyNode();
        int c = AnyNode();
        if (Node(c)->Parents().GetSize() >= 4) return "skip";
        bool allowed = VEK_nodeDef::IsArcAllowedForTypes(model_.nodes[p].type, model_.nodes[c].type);
        std::vector<double> before = net_.GetDef(c)->GetMatrix() ? Items(net_.GetDef(c)) : std::vector<double>();
        int res = net_.AddArc(p, c);
        if (res == VEK_OKAY) {
            if (!allowed) return Fail("arc accepted against the type rules");
            model_.ArcAdded(p, c);
            return "add arc";
        }
        if (allowed && res == VEK_WRONG_NODE_TYPE) return Fail("allowed arc refused");
        if (net_.GetDef(c)->GetMatrix() && Items(net_.GetDef(c)) != before) return Fail("refused arc changed the table");
        return "refused arc";
    }

    std::string RemoveArc() {
        int c = AnyNode();
        const VEK_intArray& parents = Node(c)->Parents();
        if (parents.IsEmpty()) return "skip";
        int p = parents[Pick(parents.GetSize())];
        model_.ArcRemoved(p, c);
        if (net_.RemoveArc(p, c) != VEK_OKAY) return Fail("remove arc failed");
        return "remove arc";
    }

    std::string InsertOutcome() {
        int h = AnyDiscreteNode();
        VEK_nodeDef* def = net_.GetDef(h);
        int n = def->GetNumberOfOutcomes();
        if (n >= 5) return "skip";
        int k = Pick(n + 1);
        // Valid fresh ids, invalid ones and duplicates: the last two get a
        // created id instead.
        std::string id;
        const int kind = Pick(3);
        switch (kind) {
            case 0: id = Cat("o", counter_++); break;
            case 1: id = "9bad"; break;
            default: id = (*def->GetOutcomeIds())[0]; break;
        }
        std::vector<std::string> old = Ids(def);
        int res = def->InsertOutcome(k, id.c_str());
        if (res != VEK_OKAY) return Fail("insert outcome failed");
        std::string actual = (*def->GetOutcomeIds())[k];
        const bool fresh = kind == 0;
        if (fresh && actual != id) return Fail("valid id not used");
        const char* prefix = model_.nodes[h].type == VEK_LIST ? "Choice" : "State";
        if (!fresh && (std::find(old.begin(), old.end(), actual) != old.end() || actual.rfind(prefix, 0) != 0)) {
            return Fail("created id not fresh");
        }
        ModelOutcomeAdded(h, k, actual);
        return "insert outcome";
    }

    std::string RemoveOutcome() {
        int h = AnyDiscreteNode();
        VEK_nodeDef* def = net_.GetDef(h);
        int n = def->GetNumberOfOutcomes();
        int k = Pick(n);
        if (n == 2) {
            std::vector<double> before = def->GetMatrix() ? Items(def) : std::vector<double>();
            if (def->RemoveOutcome(k) != VEK_OUT_OF_RANGE) return Fail("two-outcome node lost an outcome");
            if (def->GetMatrix() && Items(def) != before) return Fail("refused removal changed the table");
            return "refused outcome removal";
        }
        if (def->RemoveOutcome(k) != VEK_OKAY) return Fail("remove outcome failed");
        ModelOutcomeRemoved(h, k);
        return "remove outcome";
    }

    std::string ReorderOutcomes() {
        int h = AnyDiscreteNode();
        VEK_nodeDef* def = net_.GetDef(h);
        std::vector<int> order(def->GetNumberOfOutcomes());
        for (size_t i = 0; i < order.size(); ++i) order[i] = static_cast<int>(i);
        std::shuffle(order.begin(), order.end(), rng_);
        if (def->ChangeOrderOfOutcomes(VEK_intArray(order)) != VEK_OKAY) return Fail("reorder outcomes failed");
        std::vector<std::string> ids;
        for (int o : order) ids.push_back(model_.nodes[h].ids[o]);
        model_.nodes[h].ids = ids;
        return "reorder outcomes";
    }

    std::string ReorderParents() {
        int h = AnyNode();
        for (int tries = 0; tries < 10 && Node(h)->Parents().GetSize() < 2; ++tries) h = AnyNode();
        int n = Node(h)->Parents().GetSize();
        std::vector<int> order(n);
        for (int i = 0; i < n; ++i) order[i] = i;
        std::shuffle(order.begin(), order.end(), rng_);
        if (net_.ChangeOrderOfParents(h, VEK_intArray(order)) != VEK_OKAY) return Fail("reorder parents failed");
        return "reorder parents";
    }

    std::string SetCount() {
        int h = AnyDiscreteNode();
        VEK_nodeDef* def = net_.GetDef(h);
        int n = def->GetNumberOfOutcomes();
        int m = 2 + Pick(4);
        std::vector<std::string> old = model_.nodes[h].ids;
        if (def->SetNumberOfOutcomes(m) != VEK_OKAY) return Fail("set number of outcomes failed");
        std::vector<std::string> now = Ids(def);
        if (static_cast<int>(now.size()) != m) return Fail("wrong outcome count");
        for (int i = 0; i < std::min(n, m); ++i) {
            if (now[i] != old[i]) return Fail("kept outcome renamed");
        }
        if (m == n) return "same count";
        if (Node(h)->Children().IsEmpty()) {
            model_.OwnOutcomesReset(h, now);
            return "set count, no children";
        }
        // With children: one outcome at a time at the end.
        for (int k = n; k < m; ++k) ModelOutcomeAdded(h, k, now[k]);
        for (int k = n - 1; k >= m; --k) ModelOutcomeRemoved(h, k);
        return "set count, with children";
    }

    std::string SetValues() {
        int h = AnyNode();
        ModelNode& n = model_.nodes[h];
        VEK_nodeDef* def = net_.GetDef(h);
        if (n.type == VEK_LIST) return "skip";
        std::uniform_real_distribution<double> u(0.0, 1.0);
        if (n.type == VEK_TRUTHTABLE) {
            auto* tt = static_cast<VEK_truthTable*>(def);
            VEK_intArray states;
            for (int c = 0; c < tt->GetColumnCount(); ++c) states.Add(Pick(tt->GetNumberOfOutcomes()));
            if (tt->SetResultingStates(states) != VEK_OKAY) return Fail("set resulting states failed");
        } else {
            std::vector<double> v(def->GetMatrix()->GetSize());
            for (double& x : v) x = n.type == VEK_CPT ? u(rng_) : 10.0 * u(rng_) - 5.0;
            if (n.type == VEK_CPT) {
                // Proper distributions, except now and then a column that is
                // not one, as after an outcome removal.
                int last = def->GetMatrix()->GetLastDimensionSize();
                bool raw = Pick(4) == 0;
                for (size_t s = 0; s < v.size() && !raw; s += last) {
                    double sum = 0.0;
                    for (int i = 0; i < last; ++i) sum += v[s + i];
                    for (int i = 0; i < last; ++i) v[s + i] /= sum;
                }
            }
            if (def->SetDefinition(v) != VEK_OKAY) return Fail("set definition failed");
        }
        model_.Capture(net_, h);
        return "set values";
    }

    // Own change first, then each child, as the definition notifies them.
    void ModelOutcomeAdded(int h, int k, const std::string& id) {
        model_.OwnOutcomeAdded(h, k, id);
        for (int c : Node(h)->Children()) model_.ParentOutcomeAdded(h, c, id);
    }
    void ModelOutcomeRemoved(int h, int k) {
        const std::string id = model_.nodes[h].ids[k];
        model_.OwnOutcomeRemoved(h, k);
        for (int c : Node(h)->Children()) model_.ParentOutcomeRemoved(h, c, id);
    }

    std::mt19937 rng_;
    VEK_network net_;
    Model model_;
    std::vector<int> handles_;
    int counter_ = 0;
};

}  // namespace

TEST(DefinitionsRandom, TablesFollowEveryGraphAndOutcomeChange) {
    for (unsigned seed = 1; seed <= 25; ++seed) {
        RandomGraph g(seed);
        ASSERT_EQ(g.Check(), "") << "seed " << seed << " at start";
        for (int step = 0; step < 250; ++step) {
            std::string op = g.Step();
            ASSERT_NE(op.rfind("ERROR", 0), 0u)
                << "seed " << seed << " step " << step << ": " << op;
            std::string diff = g.Check();
            ASSERT_EQ(diff, "") << "seed " << seed << " step " << step << " after " << op;
        }
    }
}

// ====================================================================
// Types and arc rules
// ====================================================================

TEST(DefinitionTypes, ValidTypesNamesAndCreation) {
    const int valid[] = {4, 8, 17, 18, 20, 50, 82, 146, 274, 520};
    int count = 0;
    for (int t = -1; t <= 1100; ++t) count += VEK_nodeDef::IsValidType(t) ? 1 : 0;
    EXPECT_EQ(count, 10);
    for (int t : valid) EXPECT_TRUE(VEK_nodeDef::IsValidType(t)) << t;
    EXPECT_STREQ(VEK_nodeDef::TypeName(VEK_TABLE), "TABLE");
    EXPECT_STREQ(VEK_nodeDef::TypeName(VEK_LIST), "LIST");
    EXPECT_STREQ(VEK_nodeDef::TypeName(VEK_NOISY_ADDER), "NOISY_ADDER");
    EXPECT_EQ(VEK_nodeDef::TypeName(19), nullptr);

    VEK_network net;
    const int made[] = {VEK_CPT, VEK_TRUTHTABLE, VEK_LIST, VEK_TABLE, VEK_MAU};
    for (int t : made) {
        std::unique_ptr<VEK_nodeDef> def(VEK_nodeDef::Create(t, net, 0));
        ASSERT_NE(def, nullptr) << t;
        EXPECT_STREQ(def->GetTypeName(), VEK_nodeDef::TypeName(t));
        EXPECT_TRUE(def->TypeIsOneOf(made, 5) && !def->TypeIsOneOf(made, t == VEK_CPT ? 0 : 1)) << t;
    }
    EXPECT_EQ(VEK_nodeDef::Create(19, net, 0), nullptr);
    EXPECT_EQ(net.AddNode(19, "x"), VEK_WRONG_NODE_TYPE);
}

TEST(DefinitionTypes, ArcRulesInOrder) {
    const struct { int parent, child; bool ok; } rules[] = {
        // Qualitative children take only their own kind, even from a decision.
        {VEK_CAST, VEK_CAST, true}, {VEK_LIST, VEK_CAST, false}, {VEK_DEMORGAN, VEK_CAST, false},
        {VEK_CPT, VEK_DEMORGAN, false},
        // MAU children: decisions, utilities and MAUs only.
        {VEK_LIST, VEK_MAU, true}, {VEK_TABLE, VEK_MAU, true}, {VEK_MAU, VEK_MAU, true}, {VEK_CPT, VEK_MAU, false},
        // Decisions feed everything but equations.
        {VEK_LIST, VEK_TABLE, true}, {VEK_LIST, VEK_LIST, true}, {VEK_LIST, VEK_CPT, true}, {VEK_LIST, VEK_EQUATION, false},
        // Equations do not feed utilities or decisions.
        {VEK_EQUATION, VEK_TABLE, false}, {VEK_EQUATION, VEK_LIST, false}, {VEK_EQUATION, VEK_CPT, true},
        // Utilities and MAUs feed only MAUs; qualitative parents only their kind.
        {VEK_TABLE, VEK_CPT, false}, {VEK_TABLE, VEK_TABLE, false}, {VEK_MAU, VEK_TABLE, false},
        {VEK_DEMORGAN, VEK_CPT, false}, {VEK_CAST, VEK_NOISY_MAX, false}, {VEK_CPT, VEK_TABLE, true},
        {VEK_NOISY_MAX, VEK_TRUTHTABLE, true},
    };
    for (const auto& r : rules) {
        EXPECT_EQ(VEK_nodeDef::IsArcAllowedForTypes(r.parent, r.child), r.ok) << r.parent << " -> " << r.child;
    }

    VEK_network net;
    int u = net.AddNode(VEK_TABLE, "u");
    int c = net.AddNode(VEK_CPT, "c");
    int m = net.AddNode(VEK_MAU, "m");
    EXPECT_EQ(net.AddArc(u, c), VEK_WRONG_NODE_TYPE);
    EXPECT_TRUE(net.GetNode(c)->Parents().IsEmpty());
    EXPECT_EQ(net.AddArc(u, m), VEK_OKAY);
}

// ====================================================================
// CPT
// ====================================================================

TEST(DefinitionCpt, OwnOutcomeChanges) {
    VEK_network net;
    int a = net.AddNode(VEK_CPT, "a");
    VEK_nodeDef* def = net.GetDef(a);
    ASSERT_EQ(def->SetDefinition(std::vector<double>{0.2, 0.3}), VEK_OKAY);
    EXPECT_EQ(def->SetNumberOfOutcomes(1), VEK_WRONG_NUM_STATES);
    EXPECT_EQ(def->SetNumberOfOutcomes(2), VEK_OKAY);  // the same count keeps the table
    ExpectItems(def, {0.2, 0.3});
    EXPECT_EQ(def->InsertOutcome(3, "w"), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def->InsertOutcome(-1, "w"), VEK_OUT_OF_RANGE);
    // New outcomes are named after their places.
    ASSERT_EQ(def->RenameOutcome(1, "z"), VEK_OKAY);
    ASSERT_EQ(def->SetNumberOfOutcomes(4), VEK_OKAY);
    EXPECT_EQ(Ids(def), (std::vector<std::string>{"State0", "z", "State2", "State3"}));
}

TEST(DefinitionCpt, InvalidOrDuplicateIdIsReplacedByCreatedOne) {
    VEK_network net;
    VEK_nodeDef* def = net.GetDef(net.AddNode(VEK_CPT, "a"));
    ASSERT_EQ(def->InsertOutcome(1, "1st"), VEK_OKAY);
    EXPECT_EQ(Ids(def), (std::vector<std::string>{"State0", "State2", "State1"}));
    ASSERT_EQ(def->AddOutcome("State0"), VEK_OKAY);
    EXPECT_EQ(Ids(def), (std::vector<std::string>{"State0", "State2", "State1", "State3"}));
    EXPECT_EQ(def->RenameOutcome(0, "State1"), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def->RenameOutcome(0, "bad id"), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def->RenameOutcome(4, "fine"), VEK_OUT_OF_RANGE);
    // A whole-list rename may swap names; a duplicate in it is refused.
    EXPECT_EQ(def->RenameOutcomes(std::vector<std::string>{"State2", "State0", "a", "b"}), VEK_OKAY);
    EXPECT_EQ(def->RenameOutcomes(std::vector<std::string>{"a", "a", "b", "c"}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def->RenameOutcomes(std::vector<std::string>{"a", "b"}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(Ids(def), (std::vector<std::string>{"State2", "State0", "a", "b"}));
}

TEST(DefinitionCpt, UniformRandomAndRefusedDefinitions) {
    VEK_network net;
    int a = net.AddNode(VEK_CPT, "a");
    int p = net.AddNode(VEK_CPT, "p");
    ASSERT_EQ(net.GetDef(a)->AddOutcome("c"), VEK_OKAY);
    ASSERT_EQ(net.AddArc(p, a), VEK_OKAY);
    VEK_nodeDef* def = net.GetDef(a);
    VEK_randGen gen(7);
    ASSERT_EQ(def->MakeRandom(gen), VEK_OKAY);
    std::vector<double> v = Items(def);
    ASSERT_EQ(v.size(), 6u);
    for (int col = 0; col < 2; ++col) {
        EXPECT_NEAR(v[3 * col] + v[3 * col + 1] + v[3 * col + 2], 1.0, 1e-12);
        for (int i = 0; i < 3; ++i) EXPECT_GE(v[3 * col + i], 0.0);
    }
    EXPECT_NE(v[0], v[3]);  // columns are drawn independently

    // A definition of the wrong size changes nothing.
    EXPECT_EQ(def->SetDefinition(std::vector<double>{0.5, 0.5}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def->SetDefinition(VEK_doubleArray{0.1, 0.2, 0.7, 0.1, 0.2, 0.7, 0.0}), VEK_OUT_OF_RANGE);
    VEK_Dmatrix wrong(VEK_intArray{3, 3}, 0.0);
    EXPECT_EQ(def->SetDefinition(wrong), VEK_OUT_OF_RANGE);
    EXPECT_EQ(Items(def), v);

    ASSERT_EQ(def->MakeUniform(), VEK_OKAY);
    for (double x : Items(def)) EXPECT_DOUBLE_EQ(x, 1.0 / 3);
}

TEST(DefinitionCpt, ParentNecessityAndParameterCopy) {
    VEK_network net;
    int a = net.AddNode(VEK_CPT, "a");
    int p = net.AddNode(VEK_CPT, "p");
    int q = net.AddNode(VEK_CPT, "q");
    ASSERT_EQ(net.AddArc(p, a), VEK_OKAY);
    ASSERT_EQ(net.AddArc(q, a), VEK_OKAY);
    VEK_nodeDef* def = net.GetDef(a);
    // Depends on p only: the q slices agree within 0.01.
    ASSERT_EQ(def->SetDefinition(std::vector<double>{.2, .8, .205, .795, .6, .4, .6, .4}), VEK_OKAY);
    bool necessary = false;
    ASSERT_EQ(def->IsParentNecessary(p, 0.01, necessary), VEK_OKAY);
    EXPECT_TRUE(necessary);
    ASSERT_EQ(def->IsParentNecessary(q, 0.01, necessary), VEK_OKAY);
    EXPECT_FALSE(necessary);
    ASSERT_EQ(def->IsParentNecessary(q, 0.001, necessary), VEK_OKAY);
    EXPECT_TRUE(necessary);
    EXPECT_EQ(def->IsParentNecessary(a, 0.01, necessary), VEK_OUT_OF_RANGE);

    int b = net.AddNode(VEK_CPT, "b");
    EXPECT_EQ(net.GetDef(b)->CopyParameters(*def), VEK_OUT_OF_RANGE);  // shapes differ
    ASSERT_EQ(net.AddArc(p, b), VEK_OKAY);
    ASSERT_EQ(net.AddArc(q, b), VEK_OKAY);
    ASSERT_EQ(net.GetDef(b)->CopyParameters(*def), VEK_OKAY);
    EXPECT_EQ(Items(net.GetDef(b)), Items(def));
    int u = net.AddNode(VEK_TABLE, "u");
    EXPECT_EQ(net.GetDef(u)->CopyParameters(*def), VEK_WRONG_NODE_TYPE);
}

// ====================================================================
// Truth table, decision, utility, MAU
// ====================================================================

TEST(DefinitionTruthTable, DeterministicColumnsEverywhere) {
    VEK_network net;
    int t = net.AddNode(VEK_TRUTHTABLE, "t");
    int p = net.AddNode(VEK_CPT, "p");
    auto* tt = static_cast<VEK_truthTable*>(net.GetDef(t));
    ASSERT_EQ(tt->AddOutcome("c"), VEK_OKAY);
    ExpectItems(tt, {1, 0, 0});
    EXPECT_EQ(tt->MakeUniform(), VEK_WRONG_NODE_TYPE);
    ExpectItems(tt, {1, 0, 0});

    ASSERT_EQ(net.AddArc(p, t), VEK_OKAY);
    ASSERT_EQ(net.GetDef(p)->AddOutcome("p2"), VEK_OKAY);
    ASSERT_EQ(tt->RemoveOutcome(2), VEK_OKAY);
    ASSERT_EQ(tt->SetResultingStates(Perm({0, 0, 1})), VEK_OKAY);
    ExpectItems(tt, {1, 0, 1, 0, 0, 1});

    VEK_intArray states;
    ASSERT_EQ(tt->GetResultingStates(states), VEK_OKAY);
    EXPECT_EQ(states.ToVector(), (std::vector<int>{0, 0, 1}));
    VEK_stringArray names;
    ASSERT_EQ(tt->GetResultingStates(names), VEK_OKAY);
    EXPECT_EQ(names.ToVector(), (std::vector<std::string>{"State0", "State0", "State1"}));
    VEK_idArray asIds;  // repeated names too, though ids are unique elsewhere
    ASSERT_EQ(tt->GetResultingStates(asIds), VEK_OKAY);
    EXPECT_EQ(asIds.ToVector(), names.ToVector());

    EXPECT_EQ(tt->SetResultingStates(Perm({0, 1})), VEK_OUT_OF_RANGE);
    EXPECT_EQ(tt->SetResultingStates(Perm({0, 1, 2})), VEK_OUT_OF_RANGE);
    EXPECT_EQ(tt->SetResultingStates(std::vector<std::string>{"State1", "nope", "State0"}), VEK_OUT_OF_RANGE);
    ExpectItems(tt, {1, 0, 1, 0, 0, 1});
    ASSERT_EQ(tt->SetResultingStates(std::vector<std::string>{"State1", "State1", "State0"}), VEK_OKAY);
    ExpectItems(tt, {0, 1, 0, 1, 1, 0});

    // Any columns: 1.0 at the first maximal item.
    ASSERT_EQ(tt->SetDefinition(std::vector<double>{.5, .5, .2, .8, 0, 0}), VEK_OKAY);
    ASSERT_EQ(tt->MakeConsistent(), VEK_OKAY);
    ExpectItems(tt, {1, 0, 0, 1, 1, 0});

    VEK_randGen gen(3);
    ASSERT_EQ(tt->MakeRandom(gen), VEK_OKAY);
    std::vector<double> v = Items(tt);
    for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(v[2 * c] + v[2 * c + 1], 1.0);
        EXPECT_TRUE(v[2 * c] == 0.0 || v[2 * c] == 1.0);
    }
}

TEST(DefinitionDecision, OptionsOnlyAndInformationalParents) {
    VEK_network net;
    int d = net.AddNode(VEK_LIST, "d");
    int p = net.AddNode(VEK_CPT, "p");
    VEK_nodeDef* def = net.GetDef(d);
    EXPECT_EQ(Ids(def), (std::vector<std::string>{"Choice0", "Choice1"}));
    EXPECT_EQ(def->GetMatrix(), nullptr);
    EXPECT_EQ(def->GetParameters().GetSize(), 0);
    ASSERT_EQ(def->AddOutcome(nullptr), VEK_OKAY);
    EXPECT_EQ(Ids(def).back(), "Choice2");
    ASSERT_EQ(net.AddArc(p, d), VEK_OKAY);
    bool necessary = false;
    ASSERT_EQ(def->IsParentNecessary(p, 1.0, necessary), VEK_OKAY);
    EXPECT_TRUE(necessary);
}

TEST(DefinitionUtility, TableAndNormalisation) {
    VEK_network net;
    int u = net.AddNode(VEK_TABLE, "u");
    int d = net.AddNode(VEK_LIST, "d");
    auto* def = static_cast<VEK_utility*>(net.GetDef(u));
    ExpectItems(def, {1.0});
    EXPECT_EQ(def->GetNumberOfOutcomes(), 0);
    EXPECT_EQ(def->AddOutcome("x"), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(def->GetOutcomeIds(), nullptr);
    ASSERT_EQ(net.GetDef(d)->AddOutcome("c"), VEK_OKAY);
    ASSERT_EQ(net.AddArc(d, u), VEK_OKAY);
    EXPECT_EQ(Dims(def), (std::vector<int>{3, 1}));
    ASSERT_EQ(def->SetDefinition(std::vector<double>{2, 4, 6}), VEK_OKAY);
    EXPECT_EQ(def->GetMinimumUtility(), 2.0);
    EXPECT_EQ(def->GetMaximumUtility(), 6.0);
    ASSERT_EQ(def->Normalize(), VEK_OKAY);
    ExpectItems(def, {0, 0.5, 1});

    ASSERT_EQ(def->SetDefinition(std::vector<double>{5, VEK_UNDEFINED_VALUE, 5}), VEK_OKAY);
    ASSERT_EQ(def->Normalize(), VEK_OKAY);
    EXPECT_EQ(Items(def), (std::vector<double>{1, VEK_UNDEFINED_VALUE, 1}));
    ASSERT_EQ(def->SetDefinition(std::vector<double>{-2, VEK_UNDEFINED_VALUE, 2}), VEK_OKAY);
    ASSERT_EQ(def->Normalize(), VEK_OKAY);
    EXPECT_EQ(Items(def), (std::vector<double>{0, VEK_UNDEFINED_VALUE, 1}));

    ASSERT_EQ(def->MakeUniform(), VEK_OKAY);
    ExpectItems(def, {1, 1, 1});
}

TEST(DefinitionMau, WeightsFollowDecisionAndUtilityParents) {
    VEK_network net;
    int m = net.AddNode(VEK_MAU, "m");
    int u1 = net.AddNode(VEK_TABLE, "u1");
    int u2 = net.AddNode(VEK_TABLE, "u2");
    int d = net.AddNode(VEK_LIST, "d");
    auto* mau = static_cast<VEK_mau*>(net.GetDef(m));
    ExpectItems(mau, {1.0});
    ASSERT_EQ(net.AddArc(u1, m), VEK_OKAY);
    ASSERT_EQ(net.AddArc(d, m), VEK_OKAY);
    ASSERT_EQ(net.AddArc(u2, m), VEK_OKAY);
    EXPECT_EQ(Dims(mau), (std::vector<int>{2, 2}));
    EXPECT_EQ(mau->GetUtilityParents().ToVector(), (std::vector<int>{u1, u2}));
    ASSERT_EQ(mau->SetWeights({0.3, 0.7, 0.6, 0.4}), VEK_OKAY);
    EXPECT_EQ(mau->SetWeights({0.3, 0.7}), VEK_OUT_OF_RANGE);
    double w = 0;
    ASSERT_EQ(mau->GetWeight(1, u2, w), VEK_OKAY);
    EXPECT_EQ(w, 0.4);
    EXPECT_EQ(mau->GetWeight(2, u2, w), VEK_OUT_OF_RANGE);
    EXPECT_EQ(mau->GetWeight(0, d, w), VEK_OUT_OF_RANGE);

    ASSERT_EQ(net.ChangeOrderOfParents(m, Perm({2, 1, 0})), VEK_OKAY);
    EXPECT_EQ(mau->GetUtilityParents().ToVector(), (std::vector<int>{u2, u1}));

    ASSERT_EQ(mau->SetExpressions({"u1*2", "u2"}), VEK_OKAY);
    EXPECT_EQ(mau->GetExpressions(), (std::vector<std::string>{"u1*2", "u2"}));
    VEK_network copy(net);
    EXPECT_EQ(static_cast<VEK_mau*>(copy.GetDef(m))->GetExpressions(), mau->GetExpressions());
}

// ====================================================================
// Outcome operations: refusal and notification order
// ====================================================================

namespace {

// Refuses new parent outcomes like a definition that cannot follow them.
class RefusingCpt : public VEK_cpt {
public:
    using VEK_cpt::VEK_cpt;
    int OnParentOutcomeAdd(int, int) override { return VEK_WRONG_NODE_TYPE; }
};

// Records what the parent looked like when this child was told.
class WatchingCpt : public VEK_cpt {
public:
    using VEK_cpt::VEK_cpt;
    int OnParentOutcomeAdd(int parent, int outcome) override {
        const VEK_nodeDef* pd = GetPeerDef(parent);
        seenCount = pd->GetNumberOfOutcomes();
        seenTableSize = pd->GetMatrix()->GetLastDimensionSize();
        seenEvidence = Network().GetVal(parent)->GetEvidence();
        return VEK_cpt::OnParentOutcomeAdd(parent, outcome);
    }
    int seenCount = 0;
    int seenTableSize = 0;
    int seenEvidence = -1;
};

}  // namespace

TEST(DefinitionOutcomes, ChildrenFollowAfterOwnHookAndFailureStops) {
    VEK_network net;
    int p = net.AddNode(VEK_CPT, "p");
    int c1 = net.AddNode(VEK_CPT, "c1");
    int c2 = net.AddNode(VEK_CPT, "c2");
    int c3 = net.AddNode(VEK_CPT, "c3");
    net.GetNode(c1)->ReplaceDefinition(new WatchingCpt(net, c1));
    net.GetNode(c2)->ReplaceDefinition(new RefusingCpt(net, c2));
    ASSERT_EQ(net.AddArc(p, c1), VEK_OKAY);
    ASSERT_EQ(net.AddArc(p, c2), VEK_OKAY);
    ASSERT_EQ(net.AddArc(p, c3), VEK_OKAY);

    ASSERT_EQ(net.GetVal(p)->SetEvidence(1), VEK_OKAY);
    EXPECT_EQ(net.GetDef(p)->InsertOutcome(0, "more"), VEK_WRONG_NODE_TYPE);
    auto* w = static_cast<WatchingCpt*>(net.GetDef(c1));
    // The parent's table and its value (evidence moved up) had followed
    // before the child was told.
    EXPECT_EQ(w->seenCount, 3);
    EXPECT_EQ(w->seenTableSize, 3);
    EXPECT_EQ(w->seenEvidence, 2);
    // The first child kept its change; the loop stopped at the second.
    EXPECT_EQ(Dims(net.GetDef(c1)), (std::vector<int>{3, 2}));
    EXPECT_EQ(Dims(net.GetDef(c2)), (std::vector<int>{2, 2}));
    EXPECT_EQ(Dims(net.GetDef(c3)), (std::vector<int>{2, 2}));
    EXPECT_EQ(net.GetDef(p)->GetNumberOfOutcomes(), 3);
}

TEST(DefinitionOutcomes, CountChangesWithChildrenAndReorderWithAddAndRemove) {
    VEK_network net;
    int p = net.AddNode(VEK_CPT, "p");
    int c = net.AddNode(VEK_CPT, "c");
    ASSERT_EQ(net.AddArc(p, c), VEK_OKAY);
    auto* pd = static_cast<VEK_discDef*>(net.GetDef(p));
    VEK_nodeDef* cd = net.GetDef(c);
    ASSERT_EQ(cd->SetDefinition(std::vector<double>{.1, .9, .2, .8}), VEK_OKAY);
    ASSERT_EQ(pd->SetNumberOfOutcomes(4), VEK_OKAY);
    VEK_idArray ids;
    for (const char* s : {"a", "b", "c"}) ids.Add(s);
    ASSERT_EQ(pd->SetNumberOfOutcomes(ids), VEK_OKAY);
    EXPECT_EQ(Ids(pd), (std::vector<std::string>{"a", "b", "c"}));
    ExpectItems(cd, {.1, .9, .2, .8, .5, .5});

    // New list: c, (new) x, a; b goes.
    VEK_idArray target;
    for (const char* s : {"c", "x", "a"}) target.Add(s);
    ASSERT_EQ(pd->ChangeOrderOfOutcomesWithAddAndRemove(target, Perm({2, -1, 0})), VEK_OKAY);
    EXPECT_EQ(Ids(pd), (std::vector<std::string>{"c", "x", "a"}));
    ExpectItems(cd, {.5, .5, .5, .5, .1, .9});
    EXPECT_EQ(pd->ChangeOrderOfOutcomesWithAddAndRemove(target, Perm({0, 0, 1})), VEK_OUT_OF_RANGE);
    EXPECT_EQ(pd->ChangeOrderOfOutcomesWithAddAndRemove(target, Perm({0, 1})), VEK_OUT_OF_RANGE);
    EXPECT_EQ(pd->ChangeOrderOfOutcomes(Perm({0, 0, 1})), VEK_OUT_OF_RANGE);
    EXPECT_EQ(Ids(pd), (std::vector<std::string>{"c", "x", "a"}));

    VEK_idArray bad;
    bad.SetEmptyIdsAllowed(true);
    bad.Add("q");
    bad.Add("");
    EXPECT_EQ(pd->SetNumberOfOutcomes(bad), VEK_OUT_OF_RANGE);
    EXPECT_EQ(pd->GetNumberOfOutcomes(), 3);
}

// ====================================================================
// Intervals, point values, per-outcome extras
// ====================================================================

TEST(DefinitionDiscrete, IntervalsAndPointValues) {
    VEK_network net;
    auto* def = static_cast<VEK_discDef*>(net.GetDef(net.AddNode(VEK_CPT, "a")));
    double lo = 0, hi = 0, v = 0;
    EXPECT_EQ(def->GetInterval(0, lo, hi), VEK_NO_ITEM);
    EXPECT_EQ(def->SetIntervals({0, 1}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def->SetIntervals({0, 2, 1}), VEK_INVALID_VALUE);
    EXPECT_EQ(def->SetIntervals({0, 1, 1, 1}), VEK_INVALID_VALUE);
    EXPECT_EQ(def->SetIntervals({0, 1, 2, 3}, false), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def->GetNumberOfOutcomes(), 2);
    EXPECT_FALSE(def->HasIntervals());
    ASSERT_EQ(def->SetIntervals({0, 1, 1, 4}), VEK_OKAY);
    EXPECT_EQ(def->GetNumberOfOutcomes(), 3);
    ASSERT_EQ(def->GetInterval(2, lo, hi), VEK_OKAY);
    EXPECT_EQ(lo, 1.0);
    EXPECT_EQ(hi, 4.0);
    EXPECT_EQ(def->GetInterval(3, lo, hi), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def->Discretize(0.5), 0);
    EXPECT_EQ(def->Discretize(1.0), 1);  // the empty interval holds its point
    EXPECT_EQ(def->Discretize(1.5), 2);
    EXPECT_EQ(def->Discretize(4.0), 2);
    EXPECT_EQ(def->Discretize(4.5), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def->Discretize(-1), VEK_OUT_OF_RANGE);

    // Midpoints stand for the intervals: 0.5, 1, 2.5.
    const double dist[] = {0.5, 0.0, 0.5};
    ASSERT_EQ(def->GetMean(dist, v), VEK_OKAY);
    EXPECT_DOUBLE_EQ(v, 1.5);
    ASSERT_EQ(def->GetStdDev(dist, v), VEK_OKAY);
    EXPECT_DOUBLE_EQ(v, 1.0);
    EXPECT_EQ(def->GetMean(nullptr, v), VEK_OUT_OF_RANGE);
    VEK_randGen gen(5);
    ASSERT_EQ(def->SamplePoint(2, gen, v), VEK_OKAY);
    EXPECT_TRUE(v >= 1.0 && v < 4.0);

    // Outcome changes keep every other interval.
    ASSERT_EQ(def->InsertOutcome(3, "top"), VEK_OKAY);
    EXPECT_EQ(def->GetIntervals(), (std::vector<double>{0, 1, 1, 4, 4}));
    ASSERT_EQ(def->RemoveOutcome(0), VEK_OKAY);
    EXPECT_EQ(def->GetIntervals(), (std::vector<double>{0, 1, 4, 4}));
    ASSERT_EQ(def->ChangeOrderOfOutcomes(Perm({2, 1, 0})), VEK_OKAY);
    EXPECT_FALSE(def->HasIntervals());

    EXPECT_EQ(def->SetPointValues({1, 2}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def->PointValueToOutcomeIndex(1.0), VEK_NO_ITEM);
    ASSERT_EQ(def->SetPointValues({10, 20, 20}), VEK_OKAY);
    EXPECT_EQ(def->PointValueToOutcomeIndex(20.0), 1);
    EXPECT_EQ(def->PointValueToOutcomeIndex(15.0), VEK_OUT_OF_RANGE);
    ASSERT_EQ(def->GetPointValue(2, v), VEK_OKAY);
    EXPECT_EQ(v, 20.0);
    const double d2[] = {0.5, 0.25, 0.25};
    ASSERT_EQ(def->GetMean(d2, v), VEK_OKAY);
    EXPECT_DOUBLE_EQ(v, 15.0);
    ASSERT_EQ(def->ChangeOrderOfOutcomes(Perm({1, 0, 2})), VEK_OKAY);
    EXPECT_EQ(def->GetPointValues(), (std::vector<double>{20, 10, 20}));
    ASSERT_EQ(def->SamplePoint(1, gen, v), VEK_OKAY);
    EXPECT_EQ(v, 10.0);
    def->RemovePointValues();
    EXPECT_EQ(def->GetMean(d2, v), VEK_NO_ITEM);
}

TEST(DefinitionDiscrete, OutcomeExtrasFollowOutcomes) {
    VEK_network net;
    int a = net.AddNode(VEK_CPT, "a");
    auto* def = static_cast<VEK_discDef*>(net.GetDef(a));
    // Reading or clearing does not create the extension.
    EXPECT_STREQ(def->GetOutcomeLabel(0), "");
    EXPECT_EQ(def->GetDefaultOutcome(), -1);
    EXPECT_EQ(def->SetOutcomeLabel(0, ""), VEK_OKAY);
    EXPECT_EQ(def->SetFaultOutcome(1, false), VEK_OKAY);
    EXPECT_EQ(def->SetDefaultOutcome(-1), VEK_OKAY);
    EXPECT_EQ(def->GetExtension(), nullptr);
    EXPECT_EQ(def->SetOutcomeLabel(2, "x"), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def->SetDefaultOutcome(2), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def->SetOutcomeDocumentation(0, {"t"}, {}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(def->GetExtension(), nullptr);

    ASSERT_EQ(def->SetOutcomeLabel(1, "broken"), VEK_OKAY);
    ASSERT_EQ(def->SetOutcomeComment(1, "c"), VEK_OKAY);
    ASSERT_EQ(def->SetOutcomeFix(1, "replace it"), VEK_OKAY);
    ASSERT_EQ(def->SetFaultOutcome(1, true), VEK_OKAY);
    ASSERT_EQ(def->SetDefaultOutcome(1), VEK_OKAY);
    ASSERT_EQ(def->SetOutcomeDocumentation(1, {"manual"}, {"m.pdf"}), VEK_OKAY);

    ASSERT_EQ(def->InsertOutcome(0, "first"), VEK_OKAY);
    EXPECT_STREQ(def->GetOutcomeLabel(2), "broken");
    EXPECT_STREQ(def->GetOutcomeLabel(0), "");
    EXPECT_TRUE(def->IsFaultOutcome(2));
    EXPECT_EQ(def->GetDefaultOutcome(), 2);
    ASSERT_EQ(def->ChangeOrderOfOutcomes(Perm({2, 0, 1})), VEK_OKAY);
    EXPECT_EQ(def->GetDefaultOutcome(), 0);
    EXPECT_STREQ(def->GetOutcomeFix(0), "replace it");
    std::vector<std::string> titles, paths;
    ASSERT_EQ(def->GetOutcomeDocumentation(0, titles, paths), VEK_OKAY);
    EXPECT_EQ(titles, std::vector<std::string>{"manual"});
    EXPECT_EQ(paths, std::vector<std::string>{"m.pdf"});
    EXPECT_EQ(def->GetOutcomeDocumentation(3, titles, paths), VEK_OUT_OF_RANGE);

    // The copy of a network carries its own extension.
    VEK_network copy(net);
    auto* cd = static_cast<VEK_discDef*>(copy.GetDef(a));
    ASSERT_EQ(def->RemoveOutcome(0), VEK_OKAY);
    EXPECT_EQ(def->GetDefaultOutcome(), -1);
    EXPECT_FALSE(def->IsFaultOutcome(0));
    EXPECT_EQ(cd->GetDefaultOutcome(), 0);
    EXPECT_TRUE(cd->IsFaultOutcome(0));
    EXPECT_EQ(&cd->Network(), &copy);
}

// ====================================================================
// Type change
// ====================================================================

TEST(DefinitionTypeChange, CptTruthTableDecisionKeepWhatTheyShould) {
    VEK_network net;
    int p = net.AddNode(VEK_CPT, "p");
    int a = net.AddNode(VEK_CPT, "a");
    int u = net.AddNode(VEK_TABLE, "u");
    ASSERT_EQ(net.AddArc(p, a), VEK_OKAY);
    ASSERT_EQ(net.AddArc(a, u), VEK_OKAY);
    ASSERT_EQ(net.GetDef(a)->RenameOutcomes(std::vector<std::string>{"lo", "hi"}), VEK_OKAY);
    ASSERT_EQ(net.GetDef(a)->AddOutcome("top"), VEK_OKAY);
    ASSERT_EQ(net.GetDef(a)->SetDefinition(std::vector<double>{.2, .5, .3, .6, .2, .2}), VEK_OKAY);
    ASSERT_EQ(static_cast<VEK_discDef*>(net.GetDef(a))->SetOutcomeLabel(2, "T"), VEK_OKAY);

    // Refused conversions change nothing.
    VEK_nodeDef* before = net.GetDef(a);
    EXPECT_EQ(net.ChangeNodeType(a, 19), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(net.ChangeNodeType(a, VEK_CPT), VEK_OKAY);
    EXPECT_EQ(net.GetDef(a), before);
    ExpectItems(before, {.2, .5, .3, .6, .2, .2});
    EXPECT_EQ(before->Xform(19), nullptr);

    ASSERT_EQ(net.ChangeNodeType(a, VEK_TRUTHTABLE), VEK_OKAY);
    VEK_nodeDef* tt = net.GetDef(a);
    EXPECT_EQ(tt->GetType(), VEK_TRUTHTABLE);
    EXPECT_EQ(Ids(tt), (std::vector<std::string>{"lo", "hi", "top"}));
    EXPECT_STREQ(static_cast<VEK_discDef*>(tt)->GetOutcomeLabel(2), "T");
    ExpectItems(tt, {0, 1, 0, 1, 0, 0});
    EXPECT_EQ(Dims(net.GetDef(u)), (std::vector<int>{3, 1}));  // the utility child stays

    ASSERT_EQ(net.ChangeNodeType(a, VEK_CPT), VEK_OKAY);
    ExpectItems(net.GetDef(a), {0, 1, 0, 1, 0, 0});

    ASSERT_EQ(net.ChangeNodeType(a, VEK_LIST), VEK_OKAY);
    VEK_nodeDef* dec = net.GetDef(a);
    EXPECT_EQ(Ids(dec), (std::vector<std::string>{"lo", "hi", "top"}));
    EXPECT_EQ(dec->GetMatrix(), nullptr);
    EXPECT_EQ(static_cast<VEK_discDef*>(dec)->GetExtension(), nullptr);
    EXPECT_EQ(net.GetNode(a)->Parents().ToVector(), std::vector<int>{p});

    // Back to a table: uniform over the parent that stayed.
    ASSERT_EQ(net.ChangeNodeType(a, VEK_CPT), VEK_OKAY);
    EXPECT_EQ(Dims(net.GetDef(a)), (std::vector<int>{2, 3}));
    for (double x : Items(net.GetDef(a))) EXPECT_DOUBLE_EQ(x, 1.0 / 3);

    // To a utility: the outcomes go, arcs the type cannot keep go first.
    ASSERT_EQ(net.ChangeNodeType(a, VEK_TABLE), VEK_OKAY);
    EXPECT_TRUE(net.GetNode(a)->Children().IsEmpty());
    EXPECT_EQ(Dims(net.GetDef(a)), (std::vector<int>{2, 1}));
    ExpectItems(net.GetDef(a), {1, 1});
    ASSERT_EQ(net.ChangeNodeType(a, VEK_CPT), VEK_OKAY);
    EXPECT_EQ(Ids(net.GetDef(a)), (std::vector<std::string>{"State0", "State1"}));
    ASSERT_EQ(net.ChangeNodeType(a, VEK_MAU), VEK_OKAY);
    EXPECT_TRUE(net.GetNode(a)->Parents().IsEmpty());
}

// ====================================================================
// Lazy tables and visitors
// ====================================================================

namespace {

// Its table: p for the first outcome, the rest shared equally.
class SimpleLazy : public VEK_lazyDef {
public:
    SimpleLazy(VEK_network& net, int handle) : VEK_lazyDef(net, handle), params_(VEK_intArray{1}, 0.25) {}
    VEK_nodeDef* Clone(VEK_network& net) const override {
        auto* copy = new SimpleLazy(*this);
        copy->Rebind(net, Handle());
        return copy;
    }
    int GetType() const override { return VEK_NOISY_MAX; }
    const char* GetTypeName() const override { return "NOISY_MAX"; }
    const VEK_Dmatrix& GetParameters() const override { return params_; }
    VEK_Dmatrix& GetWriteableParameters() override { return params_; }
    int CalculateCpt() override {
        ++calls;
        const int n = GetNumberOfOutcomes();
        CptMatrix().SetSingleDimension(n);
        for (int i = 0; i < n; ++i) CptMatrix()[i] = i == 0 ? params_[0] : (1 - params_[0]) / (n - 1);
        return VEK_OKAY;
    }
    int calls = 0;

private:
    VEK_Dmatrix params_;
};

}  // namespace

TEST(DefinitionLazy, TableComputedOnDemandAndKeptOnTypeChange) {
    VEK_network net;
    int a = net.AddNode(VEK_CPT, "a");
    auto* lazy = new SimpleLazy(net, a);
    net.GetNode(a)->ReplaceDefinition(lazy);
    EXPECT_FALSE(lazy->IsCptValid());
    EXPECT_EQ(lazy->calls, 0);
    ExpectItems(lazy, {0.25, 0.75});
    lazy->GetMatrix();
    EXPECT_EQ(lazy->calls, 1);
    ASSERT_EQ(lazy->SetDefinition(std::vector<double>{0.4}), VEK_OKAY);
    EXPECT_FALSE(lazy->IsCptValid());
    ExpectItems(lazy, {0.4, 0.6});
    ASSERT_EQ(lazy->AddOutcome("x"), VEK_OKAY);
    ExpectItems(lazy, {0.4, 0.3, 0.3});
    EXPECT_EQ(lazy->calls, 3);
    lazy->Invalidate();
    lazy->GetMatrix();
    EXPECT_EQ(lazy->calls, 4);

    ASSERT_EQ(net.ChangeNodeType(a, VEK_CPT), VEK_OKAY);
    EXPECT_EQ(net.GetDef(a)->GetType(), VEK_CPT);
    EXPECT_EQ(Ids(net.GetDef(a)), (std::vector<std::string>{"State0", "State1", "x"}));
    ExpectItems(net.GetDef(a), {0.4, 0.3, 0.3});
}

namespace {

class Recorder : public VEK_nodeDefVisitor {
public:
    using VEK_nodeDefVisitor::Visit;
    void Visit(VEK_nodeDef*) override { seen += "def "; }
    void Visit(VEK_cpt*) override { seen += "cpt "; }
    void Visit(VEK_utility*) override { seen += "utility "; }
    void Visit(VEK_cast*) override { seen += "cast "; }
    std::string seen;
};

}  // namespace

TEST(DefinitionVisitor, DispatchByTypeWithDefaults) {
    VEK_network net;
    Recorder r;
    for (int t : {VEK_CPT, VEK_TRUTHTABLE, VEK_LIST, VEK_TABLE, VEK_MAU, VEK_CAST, VEK_NOISY_MAX}) {
        int h = net.AddNode(t);
        ASSERT_GE(h, 0) << t;
        r.Dispatch(net.GetDef(h));
    }
    r.Dispatch(nullptr);
    // The truth table falls back to the CPT visit, the others to the base.
    EXPECT_EQ(r.seen, "cpt cpt def utility def cast def ");
}
