// Helpers shared by the inference tests: a small JSON reader for the
// reference scenarios, network construction, and exact posteriors by
// enumeration of the full joint distribution.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "network/beliefVector.h"
#include "network/discDef.h"
#include "network/network.h"
#include "network/nodeDef.h"
#include "network/nodeVal.h"

namespace inftest {

// ---------------------------------------------------------------- JSON

struct Json {
    enum Kind { Null, Bool, Number, String, Array, Object } kind = Null;
    double number = 0.0;
    bool boolean = false;
    std::string text;
    std::vector<Json> items;
    std::vector<std::pair<std::string, Json>> members;

    const Json* Find(const std::string& key) const {
        for (const auto& m : members)
            if (m.first == key) return &m.second;
        return nullptr;
    }
};

// The reference files hold objects, arrays, numbers and strings without
// escapes; anything else fails the parse.
class JsonReader {
public:
    explicit JsonReader(const std::string& s) : s_(s) {}
    bool Parse(Json& out) {
        if (!Value(out)) return false;
        Skip();
        return pos_ == s_.size();
    }

private:
    void Skip() {
        while (pos_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[pos_]))) ++pos_;
    }
    bool Eat(char c) {
        Skip();
        if (pos_ >= s_.size() || s_[pos_] != c) return false;
        ++pos_;
        return true;
    }
    bool Str(std::string& out) {
        if (!Eat('"')) return false;
        const size_t end = s_.find('"', pos_);
        if (end == std::string::npos || s_.find('\\', pos_) < end) return false;
        out = s_.substr(pos_, end - pos_);
        pos_ = end + 1;
        return true;
    }
    // The members of an object or the items of an array, up to its close.
    bool Items(Json& v, char close) {
        if (Eat(close)) return true;
        do {
            std::string key;
            Json item;
            if (v.kind == Json::Object && !(Str(key) && Eat(':'))) return false;
            if (!Value(item)) return false;
            if (v.kind == Json::Object) {
                v.members.emplace_back(std::move(key), std::move(item));
            } else {
                v.items.push_back(std::move(item));
            }
        } while (Eat(','));
        return Eat(close);
    }
    bool Value(Json& v) {
        Skip();
        if (pos_ >= s_.size()) return false;
        if (s_[pos_] == '"') {
            v.kind = Json::String;
            return Str(v.text);
        }
        if (s_[pos_] == '{' || s_[pos_] == '[') {
            v.kind = s_[pos_] == '{' ? Json::Object : Json::Array;
            return Items(v, s_[pos_++] == '{' ? '}' : ']');
        }
        for (const char* word : {"true", "false", "null"}) {
            const size_t n = std::char_traits<char>::length(word);
            if (s_.compare(pos_, n, word) == 0) {
                pos_ += n;
                v.kind = word[0] == 'n' ? Json::Null : Json::Bool;
                v.boolean = word[0] == 't';
                return true;
            }
        }
        const char* begin = s_.c_str() + pos_;
        char* end = nullptr;
        v.number = std::strtod(begin, &end);
        if (end == begin) return false;
        v.kind = Json::Number;
        pos_ += static_cast<size_t>(end - begin);
        return true;
    }

    const std::string& s_;
    size_t pos_ = 0;
};

// ---------------------------------------------------------------- reference scenarios

struct Scenario {
    std::vector<std::pair<std::string, std::string>> evidence;  // node id, state id
    double pEvidence = 0.0;
    std::map<std::string, std::vector<double>> marginals;
};

inline std::string SharedDir() {
    const char* env = std::getenv("QUARN_SHARED_DIR");
    if (env && *env) return env;
#ifdef QUARN_SHARED_DIR
    return QUARN_SHARED_DIR;
#else
    return "../shared";
#endif
}

inline bool LoadScenarios(const std::string& name, std::vector<Scenario>& out) {
    std::ifstream in(SharedDir() + "/networks/reference/" + name + ".json");
    if (!in) return false;
    std::stringstream ss;
    ss << in.rdbuf();
    const std::string text = ss.str();
    Json root;
    if (!JsonReader(text).Parse(root)) return false;
    const Json* sc = root.Find("scenarios");
    if (!sc || sc->kind != Json::Array) return false;
    out.clear();
    for (const Json& s : sc->items) {
        Scenario x;
        if (const Json* ev = s.Find("evidence"))
            for (const auto& m : ev->members) x.evidence.emplace_back(m.first, m.second.text);
        if (const Json* p = s.Find("p_evidence")) x.pEvidence = p->number;
        if (const Json* ms = s.Find("marginals"))
            for (const auto& m : ms->members) {
                std::vector<double> v;
                for (const Json& d : m.second.items) v.push_back(d.number);
                x.marginals[m.first] = std::move(v);
            }
        out.push_back(std::move(x));
    }
    return true;
}

// A shared network with its reference scenarios.
inline bool LoadNetwork(const std::string& name, VEK_network& net, std::vector<Scenario>& scenarios) {
    if (!LoadScenarios(name, scenarios)) return false;
    const std::string path = SharedDir() + "/networks/xvek/" + name + ".xvek";
    return net.ReadFile(path.c_str()) == 0;
}

// Replaces the network's evidence by the scenario's.
inline void Enter(VEK_network& net, const Scenario& sc) {
    net.ClearAllEvidence();
    for (const auto& [node, state] : sc.evidence) {
        const int h = net.FindNode(node.c_str());
        ASSERT_GE(h, 0) << node;
        ASSERT_EQ(net.GetVal(h)->SetEvidence(state.c_str()), 0) << node << " " << state;
    }
}

inline std::string LastMessage(const VEK_network& net) {
    const int n = net.Logger().GetErrorCount();
    return n > 0 ? net.Logger().GetErrorMessage(n - 1) : "";
}

inline bool Logged(const VEK_network& net, const std::string& text) {
    for (int i = 0; i < net.Logger().GetErrorCount(); ++i)
        if (text == net.Logger().GetErrorMessage(i)) return true;
    return false;
}

// ---------------------------------------------------------------- building networks

// prefix followed by the number (built without operator+, which trips a
// false -Wrestrict warning of g++ 12).
inline std::string Name(const char* prefix, int i) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%s%d", prefix, i);
    return buf;
}

// Adds a node of the type with the given number of states; returns its handle.
inline int AddNode(VEK_network& net, const std::string& id, int states, int type = VEK_CPT) {
    const int h = net.AddNode(type, id.c_str());
    if (h < 0) return h;
    VEK_idArray ids;
    for (int s = 0; s < states; ++s) ids.Add(Name("s", s).c_str());
    net.GetDef(h)->SetNumberOfOutcomes(ids);
    return h;
}

// Sets a node's table (parents in order, own outcomes last).
inline int SetTable(VEK_network& net, int h, const std::vector<double>& values) {
    return net.GetDef(h)->SetDefinition(values);
}

inline std::vector<double> Beliefs(const VEK_network& net, int h) {
    const VEK_Dmatrix* m = net.GetVal(h)->GetMatrix();
    std::vector<double> v;
    if (m)
        for (int i = 0; i < m->GetSize(); ++i) v.push_back((*m)[i]);
    return v;
}

// A -> B with P(B = s1 | A = s0) = 0 and B's outcome s2 impossible everywhere.
struct Pair {
    VEK_network net;
    int a, b;
    Pair() {
        a = AddNode(net, "A", 2);
        b = AddNode(net, "B", 3);
        net.AddArc(a, b);
        SetTable(net, a, {0.4, 0.6});
        SetTable(net, b, {1.0, 0.0, 0.0, 0.3, 0.7, 0.0});
    }
};

// Fills the nodes' tables with random columns, about a fraction zeros of
// the entries 0; a truth table selects one outcome per column.
inline void RandomTables(VEK_network& net, const std::vector<int>& nodes, std::mt19937& rng, double zeros = 0.15) {
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int x : nodes) {
        const VEK_Dmatrix* m = net.GetDef(x)->GetMatrix();
        const size_t k = static_cast<size_t>(m->GetLastDimensionSize());
        const bool deterministic = net.GetDef(x)->GetType() == VEK_TRUTHTABLE;
        std::vector<double> t(static_cast<size_t>(m->GetSize()));
        for (size_t c = 0; c < t.size(); c += k) {
            if (deterministic) {
                t[c + rng() % k] = 1.0;
                continue;
            }
            double sum = 0.0;
            for (size_t s = 0; s < k; ++s) sum += (t[c + s] = u(rng) < zeros ? 0.0 : 0.05 + u(rng));
            if (sum == 0.0) sum = t[c] = 1.0;
            for (size_t s = 0; s < k; ++s) t[c + s] /= sum;
        }
        EXPECT_EQ(net.GetDef(x)->SetDefinition(t), 0);
    }
}

// n nodes named n0, n1, ... with 2..maxStates states and up to three parents
// among the earlier nodes; with chain each node also depends on the one
// before it, with truthTables about a quarter of the nodes after the first
// two are truth tables.
inline std::vector<int> RandomNet(VEK_network& net, std::mt19937& rng, int n, int maxStates = 4, double zeros = 0.15,
                                  bool truthTables = false, bool chain = false) {
    std::uniform_real_distribution<double> u(0.0, 1.0);
    std::vector<int> h;
    for (int i = 0; i < n; ++i) {
        const int states = 2 + static_cast<int>(rng() % static_cast<unsigned>(maxStates - 1));
        h.push_back(AddNode(net, Name("n", i), states, truthTables && i > 1 && u(rng) < 0.25 ? VEK_TRUTHTABLE : VEK_CPT));
    }
    for (int i = 1; i < n; ++i) {
        std::vector<int> cands(static_cast<size_t>(i));
        std::iota(cands.begin(), cands.end(), 0);
        std::shuffle(cands.begin(), cands.end(), rng);
        const int np = std::min<int>(i, static_cast<int>(rng() % 4));
        for (int k = 0; k < np; ++k) EXPECT_EQ(net.AddArc(h[static_cast<size_t>(cands[static_cast<size_t>(k)])], h[static_cast<size_t>(i)]), 0);
        if (chain && !net.Related(h[static_cast<size_t>(i - 1)], h[static_cast<size_t>(i)])) {
            EXPECT_EQ(net.AddArc(h[static_cast<size_t>(i - 1)], h[static_cast<size_t>(i)]), 0);
        }
    }
    RandomTables(net, h, rng, zeros);
    return h;
}

// ---------------------------------------------------------------- enumeration

// Exact posteriors of every node and the probability of evidence, by
// walking the full joint. evidence: per handle the observed state or -1;
// likelihood: per handle a vector of weights or empty. Controlled nodes
// (do-interventions) are given by intervention (handle -> state).
struct Enumeration {
    double pEvidence = 0.0;
    std::map<int, std::vector<double>> posterior;
};

// Steps x to the next joint state, the last coordinate fastest; false
// (with x back at all zeros) after the last one.
inline bool NextState(std::vector<int>& x, const std::vector<int>& sizes) {
    for (size_t d = x.size(); d-- > 0;) {
        if (++x[d] < sizes[d]) return true;
        x[d] = 0;
    }
    return false;
}

inline Enumeration Enumerate(const VEK_network& net, const std::map<int, int>& evidence,
                             const std::map<int, std::vector<double>>& likelihood = {},
                             const std::map<int, int>& intervention = {}) {
    std::vector<int> handles;
    for (int h = 0; h < net.GetSlotCount(); ++h)
        if (net.IsValidNode(h)) handles.push_back(h);
    std::map<int, size_t> pos;
    for (size_t i = 0; i < handles.size(); ++i) pos[handles[i]] = i;
    std::vector<int> sizes;
    for (int h : handles) sizes.push_back(net.GetDef(h)->GetNumberOfOutcomes());
    std::vector<int> x(handles.size(), 0);
    Enumeration r;
    std::vector<std::vector<double>> acc(handles.size());
    for (size_t i = 0; i < handles.size(); ++i) acc[i].assign(static_cast<size_t>(sizes[i]), 0.0);
    while (true) {
        bool consistent = true;
        for (const auto& [h, s] : evidence)
            if (x[pos[h]] != s) consistent = false;
        for (const auto& [h, s] : intervention)
            if (x[pos[h]] != s) consistent = false;
        if (consistent) {
            double p = 1.0;
            for (size_t i = 0; i < handles.size() && p != 0.0; ++i) {
                const int h = handles[i];
                if (intervention.count(h)) continue;
                const VEK_Dmatrix* t = net.GetDef(h)->GetMatrix();
                const VEK_intArray& parents = net.GetNode(h)->Parents();
                int idx = 0;
                for (int k = 0; k < parents.GetSize(); ++k) idx = idx * sizes[pos[parents[k]]] + x[pos[parents[k]]];
                idx = idx * sizes[i] + x[i];
                p *= (*t)[idx];
                auto it = likelihood.find(h);
                if (it != likelihood.end()) p *= it->second[static_cast<size_t>(x[i])];
            }
            r.pEvidence += p;
            for (size_t i = 0; i < handles.size(); ++i) acc[i][static_cast<size_t>(x[i])] += p;
        }
        if (!NextState(x, sizes)) break;
    }
    for (size_t i = 0; i < handles.size(); ++i) {
        std::vector<double> v = acc[i];
        if (r.pEvidence > 0.0)
            for (double& e : v) e /= r.pEvidence;
        r.posterior[handles[i]] = v;
    }
    return r;
}

}  // namespace inftest
