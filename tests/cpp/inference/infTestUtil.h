// Helpers shared by the inference tests: the reference scenarios, network
// construction, and exact posteriors by enumeration of the full joint.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
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

// Reads the JSON of the reference files: objects, arrays, numbers and
// strings without escapes; anything else fails.
class JsonReader {
public:
    explicit JsonReader(const std::string& s) : s_(s) {}
    // The next character after white space, '\0' at the end.
    char Peek() {
        while (pos_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[pos_]))) ++pos_;
        return pos_ < s_.size() ? s_[pos_] : '\0';
    }
    bool Eat(char c) {
        if (Peek() != c || c == '\0') return false;
        ++pos_;
        return true;
    }
    bool String(std::string& out) {
        if (!Eat('"')) return false;
        const size_t end = s_.find('"', pos_);
        if (end == std::string::npos || s_.find('\\', pos_) < end) return false;
        out = s_.substr(pos_, end - pos_);
        pos_ = end + 1;
        return true;
    }
    bool Number(double& v) {
        Peek();
        char* end = nullptr;
        v = std::strtod(s_.c_str() + pos_, &end);
        if (end == s_.c_str() + pos_) return false;
        pos_ = static_cast<size_t>(end - s_.c_str());
        return true;
    }
    // An object, member(key) reading each member's value.
    bool Object(const std::function<bool(const std::string&)>& member) {
        if (!Eat('{')) return false;
        if (Eat('}')) return true;
        std::string key;
        do {
            if (!String(key) || !Eat(':') || !member(key)) return false;
        } while (Eat(','));
        return Eat('}');
    }
    bool Array(const std::function<bool()>& item) {
        if (!Eat('[')) return false;
        if (Eat(']')) return true;
        do {
            if (!item()) return false;
        } while (Eat(','));
        return Eat(']');
    }
    bool Skip() {
        std::string text;
        double number;
        switch (Peek()) {
            case '"': return String(text);
            case '{': return Object([this](const std::string&) { return Skip(); });
            case '[': return Array([this] { return Skip(); });
            default: return Number(number);
        }
    }
    bool AtEnd() { return Peek() == '\0' && pos_ == s_.size(); }

private:
    const std::string& s_;
    size_t pos_ = 0;
};

inline bool LoadScenarios(const std::string& name, std::vector<Scenario>& out) {
    std::ifstream in(SharedDir() + "/networks/reference/" + name + ".json");
    if (!in) return false;
    std::stringstream ss;
    ss << in.rdbuf();
    const std::string text = ss.str();
    JsonReader r(text);
    out.clear();
    auto scenario = [&r, &out] {
        Scenario& x = out.emplace_back();
        return r.Object([&](const std::string& key) {
            if (key == "p_evidence") return r.Number(x.pEvidence);
            if (key == "evidence")
                return r.Object([&](const std::string& node) {
                    std::string state;
                    return r.String(state) && (x.evidence.emplace_back(node, state), true);
                });
            if (key != "marginals") return r.Skip();
            return r.Object([&](const std::string& node) {
                std::vector<double>& v = x.marginals[node];
                return r.Array([&] { return r.Number(v.emplace_back()); });
            });
        });
    };
    bool found = false;
    return r.Object([&](const std::string& key) {
        if (key != "scenarios") return r.Skip();
        found = true;
        return r.Array(scenario);
    }) && r.AtEnd() && found;
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

inline std::vector<double> Beliefs(const VEK_network& net, int h) {
    const VEK_Dmatrix* m = net.GetVal(h)->GetMatrix();
    std::vector<double> v;
    if (m)
        for (int i = 0; i < m->GetSize(); ++i) v.push_back((*m)[i]);
    return v;
}

// Largest difference between the beliefs and the scenario's over the nodes
// that must have beliefs (all, or the targets); -1 when one of them has
// none, or the scenario none.
inline double MaxError(const VEK_network& net, const Scenario& sc) {
    if (sc.marginals.empty()) return -1.0;
    double worst = 0.0;
    for (const auto& [id, expect] : sc.marginals) {
        const int h = net.FindNode(id.c_str());
        if (h < 0) return -1.0;
        if (net.GetTargetCount() > 0 && !net.IsTarget(h)) continue;
        if (!net.GetVal(h)->IsValueValid()) return -1.0;
        const std::vector<double> b = Beliefs(net, h);
        if (b.size() != expect.size()) return -1.0;
        for (size_t s = 0; s < b.size(); ++s) worst = std::max(worst, std::fabs(b[s] - expect[s]));
    }
    return worst;
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

// size entries in columns of k, each a distribution with about a fraction
// zeros of its entries 0; with deterministic one entry per column is 1.
inline std::vector<double> RandomColumns(std::mt19937& rng, int size, int k, double zeros = 0.0,
                                         bool deterministic = false) {
    std::uniform_real_distribution<double> u(0.0, 1.0);
    std::vector<double> t(static_cast<size_t>(size));
    const size_t n = static_cast<size_t>(k);
    for (size_t c = 0; c < t.size(); c += n) {
        if (deterministic) {
            t[c + rng() % n] = 1.0;
            continue;
        }
        double sum = 0.0;
        for (size_t s = 0; s < n; ++s) sum += (t[c + s] = u(rng) < zeros ? 0.0 : 0.05 + u(rng));
        if (sum == 0.0) sum = t[c] = 1.0;
        for (size_t s = 0; s < n; ++s) t[c + s] /= sum;
    }
    return t;
}

// Fills the nodes' tables with random columns; a truth table selects one
// outcome per column.
inline void RandomTables(VEK_network& net, const std::vector<int>& nodes, std::mt19937& rng, double zeros = 0.15) {
    for (int x : nodes) {
        const VEK_Dmatrix* m = net.GetDef(x)->GetMatrix();
        EXPECT_EQ(net.GetDef(x)->SetDefinition(RandomColumns(rng, m->GetSize(), m->GetLastDimensionSize(), zeros,
                                                             net.GetDef(x)->GetType() == VEK_TRUTHTABLE)),
                  0);
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

// Steps x to the next joint state, the last coordinate fastest; false
// (with x back at all zeros) after the last one.
inline bool NextState(std::vector<int>& x, const std::vector<int>& sizes) {
    for (size_t d = x.size(); d-- > 0;) {
        if (++x[d] < sizes[d]) return true;
        x[d] = 0;
    }
    return false;
}

// What the joint is conditioned on: per handle the observed state, a vector
// of likelihoods, or a controlled state (a do-intervention: the node's own
// table takes no part).
struct Findings {
    std::map<int, int> evidence;
    std::map<int, std::vector<double>> likelihood;
    std::map<int, int> intervention;
};

// Calls fn(states by handle, P(states) times the likelihoods) for every
// configuration of positive weight that agrees with the findings, or with
// the network's own hard and virtual evidence when none are given.
// Decision nodes are free (no factor); utility nodes take no part.
inline void ForEachJoint(const VEK_network& net, const std::function<void(const std::vector<int>&, double)>& fn,
                         const Findings* findings = nullptr) {
    std::vector<int> handles, sizes, walk;
    for (int h = 0; h < net.GetSlotCount(); ++h) {
        if (!net.IsValidNode(h) || net.GetDef(h)->GetType() == VEK_TABLE || net.GetDef(h)->GetType() == VEK_MAU) continue;
        handles.push_back(h);
        sizes.push_back(net.GetDef(h)->GetNumberOfOutcomes());
    }
    std::vector<int> x(static_cast<size_t>(net.GetSlotCount()), 0);
    walk.assign(handles.size(), 0);
    do {
        for (size_t i = 0; i < handles.size(); ++i) x[static_cast<size_t>(handles[i])] = walk[i];
        double p = 1.0;
        for (int h : handles) {
            const size_t xh = static_cast<size_t>(x[static_cast<size_t>(h)]);
            const VEK_nodeVal* v = net.GetVal(h);
            std::vector<double> l;
            if (findings) {
                auto e = findings->evidence.find(h), c = findings->intervention.find(h);
                auto lh = findings->likelihood.find(h);
                if ((e != findings->evidence.end() && e->second != x[static_cast<size_t>(h)]) ||
                    (c != findings->intervention.end() && c->second != x[static_cast<size_t>(h)]))
                    p = 0.0;
                if (c != findings->intervention.end()) continue;
                if (lh != findings->likelihood.end()) l = lh->second;
            } else {
                if (v->HasHardEvidence() && v->GetEvidence() != x[static_cast<size_t>(h)]) p = 0.0;
                if (v->IsVirtualEvidence() && v->GetVirtualEvidence(l) != 0) l.clear();
            }
            if (net.GetDef(h)->GetType() == VEK_LIST || p == 0.0) continue;
            const VEK_Dmatrix* t = net.GetDef(h)->GetMatrix();
            int idx = 0;
            for (int q : net.GetNode(h)->Parents())
                idx = idx * net.GetDef(q)->GetNumberOfOutcomes() + x[static_cast<size_t>(q)];
            p *= (*t)[idx * t->GetLastDimensionSize() + static_cast<int>(xh)];
            if (!l.empty()) p *= l[xh];
        }
        if (p > 0.0) fn(x, p);
    } while (NextState(walk, sizes));
}

// A configuration of positive weight (uniformly among them), so that
// evidence taken from it is possible.
inline std::vector<int> PossibleState(const VEK_network& net, std::mt19937& rng) {
    std::uniform_real_distribution<double> u(0.0, 1.0);
    std::vector<int> state;
    double best = -1.0;
    ForEachJoint(net, [&](const std::vector<int>& x, double) {
        const double r = u(rng);
        if (r > best) {
            best = r;
            state = x;
        }
    });
    return state;
}

// Exact posteriors of every chance node and the probability of evidence,
// by walking the full joint.
struct Enumeration {
    double pEvidence = 0.0;
    std::map<int, std::vector<double>> posterior;
};

inline Enumeration Enumerate(const VEK_network& net, const std::map<int, int>& evidence,
                             const std::map<int, std::vector<double>>& likelihood = {},
                             const std::map<int, int>& intervention = {}) {
    Enumeration r;
    for (int h = 0; h < net.GetSlotCount(); ++h)
        if (net.IsValidNode(h)) r.posterior[h].assign(static_cast<size_t>(net.GetDef(h)->GetNumberOfOutcomes()), 0.0);
    const Findings findings{evidence, likelihood, intervention};
    ForEachJoint(
        net,
        [&r](const std::vector<int>& x, double p) {
            r.pEvidence += p;
            for (auto& [h, v] : r.posterior) v[static_cast<size_t>(x[static_cast<size_t>(h)])] += p;
        },
        &findings);
    if (r.pEvidence > 0.0)
        for (auto& [h, v] : r.posterior)
            for (double& e : v) e /= r.pEvidence;
    return r;
}

}  // namespace inftest
