#include "equations/hybridSampler.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "equations/equation.h"
#include "equations/equationEvaluation.h"
#include "network/discDef.h"
#include "network/network.h"
#include "network/status.h"

namespace {

// One node as the sampler sees it.
struct Item {
    int handle = -1;
    const VEK_equation* eq = nullptr;  // null: a discrete node
    // Discrete: the table, outcome count, parents with their strides, the
    // evidence, virtual evidence and each outcome's value in expressions.
    const VEK_Dmatrix* table = nullptr;
    int outcomes = 0;
    std::vector<int> parents;
    std::vector<int> strides;
    int evidence = -1;
    bool controlled = false;  // the evidence is an intervention
    std::vector<double> likelihood;
    std::vector<double> point;
    // Equation: the handles of its variables and its continuous evidence.
    std::vector<int> vars;
    bool hasEvidence = false;
    double evidenceValue = 0.0;
};

int Fail(VEK_network& net, int code, const std::string& message) {
    return net.Logger().LogError(code, message.c_str());
}

std::string Id(const VEK_network& net, int h) { return net.GetNodeId(h) ? net.GetNodeId(h) : ""; }

// A discrete node's outcome as a number: its point value, else its index.
std::vector<double> OutcomeValues(const VEK_nodeDef& def, int outcomes) {
    std::vector<double> v(outcomes);
    const auto* disc = dynamic_cast<const VEK_discDef*>(&def);
    for (int k = 0; k < outcomes; ++k) {
        v[k] = k;
        if (disc && disc->HasPointValues()) (void)disc->GetPointValue(k, v[k]);  // the outcome index is in range
    }
    return v;
}

// Every node in topological order, with what the sampler needs of it.
int BuildItems(VEK_network& net, std::vector<Item>& items) {
    const VEK_intArray order = net.PartialOrdering();
    for (int h : order) {
        Item it;
        it.handle = h;
        const VEK_nodeDef* def = net.GetDef(h);
        const VEK_nodeVal* val = net.GetVal(h);
        it.eq = dynamic_cast<const VEK_equation*>(def);
        if (it.eq) {
            std::string message;
            if (it.eq->BindVariables(it.vars, message) != VEK_OKAY) return Fail(net, VEK_OUT_OF_RANGE, message);
            double e = 0.0;
            if (val->GetEvidence(e) == VEK_OKAY) {
                it.hasEvidence = true;
                it.evidenceValue = e;
                if (it.eq->IsDeterministic()) {
                    return Fail(net, VEK_OUT_OF_RANGE,
                                "Evidence on node '" + Id(net, h) +
                                    "' cannot be weighed: its equation is deterministic");
                }
            }
            items.push_back(std::move(it));
            continue;
        }
        it.table = def->GetMatrix();
        it.outcomes = def->GetDiscreteOutcomeCount();
        if (!it.table || it.outcomes < 1) {
            return Fail(net, VEK_WRONG_NODE_TYPE, "Node '" + Id(net, h) + "' has no probability table");
        }
        int stride = it.outcomes;
        const VEK_intArray& parents = net.GetNode(h)->Parents();
        for (int k = parents.GetSize() - 1; k >= 0; --k) {
            const int p = parents[k];
            const int count = net.GetDef(p)->GetDiscreteOutcomeCount();
            if (count < 1) {
                return Fail(net, VEK_WRONG_NODE_TYPE,
                            "Node '" + Id(net, h) + "' has the continuous parent '" + Id(net, p) +
                                "', which has no discretization");
            }
            it.parents.insert(it.parents.begin(), p);
            it.strides.insert(it.strides.begin(), stride);
            stride *= count;
        }
        if (stride != it.table->GetSize()) {
            return Fail(net, VEK_OUT_OF_RANGE, "The table of node '" + Id(net, h) + "' does not fit its parents");
        }
        if (val->HasHardEvidence()) it.evidence = val->GetEvidence();
        it.controlled = val->IsControlled() && it.evidence >= 0;
        if (val->IsVirtualEvidence()) (void)val->GetVirtualEvidence(it.likelihood);  // present: cannot fail
        it.point = OutcomeValues(*def, it.outcomes);
        items.push_back(std::move(it));
    }
    return VEK_OKAY;
}

// The state of a parent: its drawn outcome, or the interval of a
// discretized equation node's value.
inline int StateOf(const std::vector<Item*>& byHandle, const std::vector<int>& state, const std::vector<double>& value,
                   int p) {
    const Item* it = byHandle[p];
    return it->eq ? it->eq->Discretize(value[p]) : state[p];
}

}  // namespace

int VEK_updateHybrid(VEK_network& net) {
    bool discretized = true;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const auto* eq = dynamic_cast<const VEK_equation*>(net.GetDef(h));
        if (eq && eq->GetDiscretization().empty()) discretized = false;
    }
    const int alg = net.GetDefaultBNAlgorithm();
    const bool exact = alg == VEK_ALG_BN_LAURITZEN || alg == VEK_ALG_BN_LAURITZEN_SPLIT ||
                       alg == VEK_ALG_BN_LAURITZEN_LINEAR_DECOMP || alg == VEK_ALG_BN_LAURITZEN_RECURSIVE_DECOMP;
    if (exact && discretized) return VEK_updateDiscretized(net);

    net.InvalidateAllBeliefs();
    net.RestartRandGen();
    std::vector<Item> items;
    int res = BuildItems(net, items);
    if (res != VEK_OKAY) return res;
    std::vector<Item*> byHandle(net.GetSlotCount(), nullptr);
    for (Item& it : items) byHandle[it.handle] = &it;

    const int n = net.GetNumberOfSamples();
    VEK_randGen& gen = net.GetRandGen();
    std::vector<double> value(net.GetSlotCount(), 0.0);
    std::vector<int> state(net.GetSlotCount(), 0);
    // Weighted outcome counts of discrete nodes; samples of equation nodes.
    std::vector<std::vector<double>> counts(items.size());
    std::vector<std::vector<double>> samples(items.size());
    for (size_t i = 0; i < items.size(); ++i) {
        if (items[i].eq) samples[i].reserve(n);
        else counts[i].assign(items[i].outcomes, 0.0);
    }
    std::vector<double> weights;
    weights.reserve(n);
    std::vector<double> buf;
    int rejected = 0;
    for (int s = 0; s < n; ++s) {
        double w = 1.0;
        bool ok = true;
        for (Item& it : items) {
            const int h = it.handle;
            if (it.eq) {
                buf.resize(it.vars.size());
                for (size_t k = 0; k < it.vars.size(); ++k) buf[k] = value[it.vars[k]];
                const VEK_expression& e = it.eq->Expression();
                double v;
                if (it.hasEvidence) {
                    double d = 0.0;
                    if (!e.Density(e.Root(), it.evidenceValue, buf.data(), d)) {
                        return Fail(net, VEK_OUT_OF_RANGE,
                                    "Evidence on node '" + Id(net, h) +
                                        "' cannot be weighed: its equation has no density in this form");
                    }
                    w *= d;
                    v = it.evidenceValue;
                } else {
                    v = e.Empty() ? it.eq->GetDefaultValue() : e.Evaluate(buf.data(), &gen);
                }
                if (!std::isfinite(v)) {
                    ok = false;
                    break;
                }
                value[h] = v;
                continue;
            }
            int idx = 0;
            for (size_t k = 0; k < it.parents.size(); ++k) idx += StateOf(byHandle, state, value, it.parents[k]) * it.strides[k];
            const double* row = it.table->Items() + idx;
            int st;
            if (it.evidence >= 0) {
                st = it.evidence;
                // A controlled node is set from outside: its parents learn
                // nothing from it.
                if (!it.controlled) w *= row[st];
            } else {
                st = VEK_randGen::Roulette(gen.GetDouble(), row, it.outcomes);
            }
            if (!it.likelihood.empty()) w *= it.likelihood[st];
            state[h] = st;
            value[h] = it.point[st];
        }
        if (!ok) {
            ++rejected;
            continue;
        }
        weights.push_back(w);
        for (size_t i = 0; i < items.size(); ++i) {
            const int h = items[i].handle;
            if (items[i].eq) samples[i].push_back(value[h]);
            else counts[i][StateOf(byHandle, state, value, h)] += w;
        }
    }
    double total = 0.0;
    bool equal = true;
    for (double w : weights) {
        total += w;
        equal = equal && w == weights.front();
    }
    const int kept = static_cast<int>(weights.size());
    if (kept < std::max(1, n / 100) || !(total > 0.0)) {
        return Fail(net, VEK_NO_USEFUL_SAMPLES,
                    "Too few useful samples: " + std::to_string(kept) + " of " + std::to_string(n) + " kept, " +
                        std::to_string(rejected) + " rejected for expressions without a value" +
                        (total > 0.0 ? "" : ", and the evidence has zero likelihood in all"));
    }
    for (size_t i = 0; i < items.size(); ++i) {
        const Item& it = items[i];
        VEK_nodeVal* val = net.GetVal(it.handle);
        if (!it.eq) {
            VEK_Dmatrix* m = val->GetWriteableMatrix();
            (void)m->SetSingleDimension(it.outcomes);  // a discrete node has outcomes
            for (int k = 0; k < it.outcomes; ++k) (*m)[k] = counts[i][k] / total;
            val->SetValueValid();
            continue;
        }
        const std::vector<double>& xs = samples[i];
        double mean = 0.0, sq = 0.0, lo = xs[0], hi = xs[0];
        bool same = true;
        for (double x : xs) same = same && x == xs[0];
        for (int k = 0; k < kept; ++k) {
            mean += weights[k] * xs[k];
            if (weights[k] > 0.0) {
                lo = std::min(lo, xs[k]);
                hi = std::max(hi, xs[k]);
            }
        }
        mean /= total;
        for (int k = 0; k < kept; ++k) sq += weights[k] * (xs[k] - mean) * (xs[k] - mean);
        const double sd = std::sqrt(sq / total);
        std::vector<double> out;
        if (equal) {
            out = xs;
        } else {
            // Systematic resampling: unweighted samples of the posterior.
            out.reserve(kept);
            const double step = total / kept;
            double u = gen.GetDouble() * step, acc = 0.0;
            for (int k = 0; k < kept; ++k) {
                acc += weights[k];
                while (u < acc && static_cast<int>(out.size()) < kept) {
                    out.push_back(xs[k]);
                    u += step;
                }
            }
        }
        auto* ev = static_cast<VEK_equationEvaluation*>(val);
        // Rounding must not hide that every sample is the same.
        ev->SetSamples(std::move(out), same ? xs[0] : mean, same ? 0.0 : sd, lo, hi);
        val->SetValueValid();
    }
    return VEK_OKAY;
}
