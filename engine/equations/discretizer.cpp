// The discretization method of hybrid inference (see hybridSampler.h).
#include <cmath>
#include <string>
#include <vector>

#include "equations/equation.h"
#include "equations/equationEvaluation.h"
#include "equations/hybridSampler.h"
#include "network/discDef.h"
#include "network/network.h"
#include "network/status.h"

namespace {

int Fail(VEK_network& net, int code, const std::string& message) { return net.Logger().LogError(code, message.c_str()); }

std::string Id(const VEK_network& net, int h) { return net.GetNodeId(h) ? net.GetNodeId(h) : ""; }

// Odometer step over the parents' states, the last parent fastest.
void NextConfiguration(std::vector<int>& states, const VEK_intArray& dims) {
    for (int k = static_cast<int>(states.size()) - 1; k >= 0 && ++states[k] == dims[k]; --k) states[k] = 0;
}

// Fills one equation node's table; its parents' states are outcomes or,
// for equation parents, intervals within which a value is drawn uniformly.
int DiscretizeNode(VEK_network& net, int h, VEK_equation& eq) {
    if (eq.GetDiscretization().empty()) {
        return Fail(net, VEK_WRONG_NODE_TYPE, "Node '" + Id(net, h) + "' has no discretization");
    }
    std::vector<int> vars;
    std::string message;
    if (eq.BindVariables(vars, message) != VEK_OKAY) return Fail(net, VEK_OUT_OF_RANGE, message);
    const VEK_intArray& parents = net.GetNode(h)->Parents();
    const int np = parents.GetSize();
    VEK_intArray dims;
    std::vector<const VEK_equation*> parentEq(np, nullptr);
    std::vector<std::vector<double>> point(np);
    for (int k = 0; k < np; ++k) {
        const VEK_nodeDef* def = net.GetDef(parents[k]);
        const int count = def->GetDiscreteOutcomeCount();
        if (count < 1) {
            return Fail(net, VEK_WRONG_NODE_TYPE,
                        "Node '" + Id(net, h) + "' has the continuous parent '" + Id(net, parents[k]) +
                            "', which has no discretization");
        }
        dims.Add(count);
        parentEq[k] = dynamic_cast<const VEK_equation*>(def);
        const auto* disc = dynamic_cast<const VEK_discDef*>(def);
        point[k].resize(count);
        for (int s = 0; s < count; ++s) {
            point[k][s] = s;
            if (disc && disc->HasPointValues()) (void)disc->GetPointValue(s, point[k][s]);  // the outcome index is in range
        }
    }
    const int intervals = static_cast<int>(eq.GetDiscretization().size());
    dims.Add(intervals);
    // Variable k is parent slot[k].
    std::vector<int> slot(vars.size());
    bool continuousInput = false;
    for (size_t k = 0; k < vars.size(); ++k) {
        slot[k] = parents.FindPosition(vars[k]);
        continuousInput = continuousInput || parentEq[slot[k]] != nullptr;
    }
    const VEK_expression& e = eq.Expression();
    const int samples = e.IsStochastic() || continuousInput ? net.GetNumberOfDiscretizationSamples() : 1;
    VEK_Dmatrix& table = eq.Table();
    if (const int res = table.Setup(dims); res < 0) return Fail(net, res, "Node '" + Id(net, h) + "' has no discretization");
    VEK_randGen& gen = net.GetRandGen();
    std::vector<int> states(np, 0);
    std::vector<double> buf(vars.size());
    std::vector<double> counts(intervals);
    const int configs = table.GetSize() / intervals;
    std::vector<double> uppers(intervals);
    for (int k = 0; k < intervals; ++k) uppers[k] = eq.GetDiscretization()[k].upper;
    VEK_expression folded;
    for (int c = 0; c < configs; ++c, NextConfiguration(states, dims)) {
        std::fill(counts.begin(), counts.end(), 0.0);
        int kept = 0;
        // With discrete inputs only, what draws nothing is computed once per
        // configuration; a distribution, shifted or scaled, whose parameters
        // are then numbers has its intervals' probabilities in closed form.
        if (!continuousInput && !e.Empty()) {
            for (size_t k = 0; k < vars.size(); ++k) buf[k] = point[slot[k]][states[slot[k]]];
            folded = e.Fold(buf.data());
            double* row = table.Items() + static_cast<size_t>(c) * intervals;
            if (samples > 1 && VEK_exactIntervalProbabilities(folded, uppers.data(), intervals, row)) continue;
        }
        for (int s = 0; s < samples; ++s) {
            if (!continuousInput && !e.Empty()) {
                const double v = folded.Evaluate(nullptr, &gen);
                if (!std::isfinite(v)) continue;
                counts[eq.Discretize(v)] += 1.0;
                ++kept;
                continue;
            }
            for (size_t k = 0; k < vars.size(); ++k) {
                const int p = slot[k], st = states[p];
                const VEK_equation* pe = parentEq[p];
                buf[k] = pe ? pe->IntervalLower(st) +
                                  (pe->GetDiscretization()[st].upper - pe->IntervalLower(st)) * gen.GetDouble()
                            : point[p][st];
            }
            const double v = e.Empty() ? eq.GetDefaultValue() : e.Evaluate(buf.data(), &gen);
            if (!std::isfinite(v)) continue;
            counts[eq.Discretize(v)] += 1.0;
            ++kept;
        }
        if (kept == 0) {
            table.Clear();
            return Fail(net, VEK_NO_USEFUL_SAMPLES,
                        "No sample of the equation of node '" + Id(net, h) + "' has a value for parent configuration " +
                            std::to_string(c));
        }
        double* row = table.Items() + static_cast<size_t>(c) * intervals;
        for (int k = 0; k < intervals; ++k) row[k] = counts[k] / kept;
    }
    return VEK_OKAY;
}

}  // namespace

int VEK_discretizeEquations(VEK_network& net) {
    net.RestartRandGen();
    const VEK_intArray order = net.PartialOrdering();
    for (int h : order) {
        auto* eq = dynamic_cast<VEK_equation*>(net.GetDef(h));
        if (!eq) continue;
        const int res = DiscretizeNode(net, h, *eq);
        if (res != VEK_OKAY) return res;
    }
    return VEK_OKAY;
}

int VEK_updateDiscretized(VEK_network& net) {
    net.InvalidateAllBeliefs();
    int res = VEK_discretizeEquations(net);
    if (res != VEK_OKAY) return res;
    // A copy in which every equation node is a table over its intervals goes
    // to the join tree; evidence on a value becomes evidence on its interval.
    VEK_network copy(net);
    const VEK_intArray order = copy.PartialOrdering();
    for (int h : order) {
        const auto* eq = dynamic_cast<const VEK_equation*>(copy.GetDef(h));
        if (!eq) continue;
        double e = 0.0;
        const bool evidence = copy.GetVal(h)->GetEvidence(e) == VEK_OKAY;
        const int interval = eq->Discretize(e);
        res = copy.ChangeNodeType(h, VEK_CPT);
        if (res == VEK_OKAY && evidence) res = copy.GetVal(h)->SetEvidence(interval);
        if (res != VEK_OKAY) return Fail(net, res, "Node '" + Id(net, h) + "' cannot be turned into a table");
    }
    res = copy.UpdateBeliefs();
    if (res != VEK_OKAY) {
        const char* message = copy.Logger().GetLastErrorMessage();
        return Fail(net, res, message ? message : "The discretized network has no solution");
    }
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_nodeVal* src = copy.GetVal(h);
        if (!src->IsValueValid() || !src->GetMatrix()) continue;
        VEK_nodeVal* dst = net.GetVal(h);
        if (auto* ev = dynamic_cast<VEK_equationEvaluation*>(dst)) {
            const VEK_Dmatrix& m = *src->GetMatrix();
            ev->SetDiscretized(std::vector<double>(m.Items(), m.Items() + m.GetSize()));
        } else if (VEK_Dmatrix* m = dst->GetWriteableMatrix()) {
            *m = *src->GetMatrix();
        }
        dst->SetValueValid();
    }
    return VEK_OKAY;
}
