#include "analysis/sensitivity.h"

#include <cmath>

#include "analysis/analysisTree.h"
#include "network/network.h"
#include "network/nodeDef.h"
#include "network/nodeVal.h"
#include "network/status.h"

namespace {

bool IsParameterNode(const VEK_network& net, int h) {
    const VEK_nodeDef* d = net.GetDef(h);
    const int type = d ? d->GetType() : -1;
    return (type == VEK_CPT || type == VEK_TRUTHTABLE) && !net.GetVal(h)->IsControlled();
}

// Derivatives of P(y) under proportional co-variation of each column.
void CoVary(const VEK_Dmatrix& theta, const std::vector<double>& partial, std::vector<double>& out) {
    const int k = theta.GetLastDimensionSize();
    out.resize(partial.size());
    for (size_t c = 0; c < partial.size(); c += static_cast<size_t>(k)) {
        double weighted = 0.0, plain = 0.0;
        for (int s = 0; s < k; ++s) {
            weighted += theta[static_cast<int>(c) + s] * partial[c + static_cast<size_t>(s)];
            plain += partial[c + static_cast<size_t>(s)];
        }
        for (int s = 0; s < k; ++s) {
            const size_t i = c + static_cast<size_t>(s);
            const double t = theta[static_cast<int>(i)];
            // A column that is certain has nothing to scale: the other
            // entries then share the change equally.
            const double rest = 1.0 - t > 1e-12 ? (weighted - t * partial[i]) / (1.0 - t)
                                                 : (k > 1 ? (plain - partial[i]) / (k - 1) : 0.0);
            out[i] = partial[i] - rest;
        }
    }
}

}  // namespace

int VEK_calcSensitivity(VEK_network& net, std::vector<VEK_nodeSensitivity>& out) {
    out.clear();
    VEK_analysisTree tree;
    // The tables keep their layout, so partials match entries one to one.
    int res = tree.Build(net, false);
    if (res != VEK_OKAY) return res;

    std::vector<int> targets, params;
    for (int h = 0; h < net.GetSlotCount(); ++h) {
        if (!net.IsValidNode(h)) continue;
        if (net.GetTargetCount() == 0 || net.IsTarget(h)) targets.push_back(h);
        if (IsParameterNode(net, h)) params.push_back(h);
    }

    // Per parameter node: the virtual evidence that the trees multiply
    // into its table (empty when none), which scales the partials.
    const size_t slots = static_cast<size_t>(net.GetSlotCount());
    std::vector<std::vector<double>> likelihood(slots);
    for (int x : params) {
        const VEK_nodeVal* v = net.GetVal(x);
        std::vector<double> l;
        if (v->IsVirtualEvidence() && v->GetVirtualEvidence(l) == VEK_OKAY &&
            static_cast<int>(l.size()) == net.GetDef(x)->GetNumberOfOutcomes())
            likelihood[static_cast<size_t>(x)] = std::move(l);
    }

    std::vector<std::vector<double>> partials;
    std::vector<double> partial;
    for (int t : targets) {
        const int comp = tree.ComponentOf(t);
        VEK_rNetwork& sub = tree.Reduced(comp);
        const int k = net.GetDef(t)->GetNumberOfOutcomes();
        // dy[j][k]: derivatives of P(evidence, target = k) for params[j];
        // py[k]: P(evidence, target = k).
        std::vector<std::vector<std::vector<double>>> dy(params.size(), std::vector<std::vector<double>>(static_cast<size_t>(k)));
        std::vector<double> py(static_cast<size_t>(k), 0.0);
        for (int s = 0; s < k; ++s) {
            tree.Restrict(t, s);
            partials.assign(static_cast<size_t>(sub.GetNodeCount()), {});
            for (int i = 0; i < sub.GetNodeCount(); ++i)
                partials[static_cast<size_t>(i)].assign(static_cast<size_t>(sub.GetNode(i)->Table().GetSize()), 0.0);
            if (!tree.TablePartials(comp, partials, py[static_cast<size_t>(s)])) return VEK_OUT_OF_MEMORY;
            for (size_t j = 0; j < params.size(); ++j) {
                const int x = params[j];
                if (tree.ComponentOf(x) != comp) continue;
                const VEK_Dmatrix& theta = *net.GetDef(x)->GetMatrix();
                const int kx = theta.GetLastDimensionSize();
                const std::vector<double>& lik = likelihood[static_cast<size_t>(x)];
                partial = partials[static_cast<size_t>(tree.PositionOf(x))];
                // The trees use theta times the likelihood, restricted to
                // outcome s on the target itself.
                for (size_t i = 0; i < partial.size(); ++i) {
                    const int o = static_cast<int>(i % static_cast<size_t>(kx));
                    if (!lik.empty()) partial[i] *= lik[static_cast<size_t>(o)];
                    if (x == t && o != s) partial[i] = 0.0;
                }
                CoVary(theta, partial, dy[j][static_cast<size_t>(s)]);
            }
        }
        tree.Restrict(t, -1);
        double pe = 0.0;
        for (double v : py) pe += v;
        if (!(pe > 0.0)) return VEK_reportZeroPotential(net, t);

        for (size_t j = 0; j < params.size(); ++j) {
            VEK_nodeSensitivity ns;
            ns.target = t;
            ns.node = params[j];
            const size_t n = static_cast<size_t>(net.GetDef(params[j])->GetMatrix()->GetSize());
            ns.derivatives.assign(n * static_cast<size_t>(k), 0.0);
            if (tree.ComponentOf(params[j]) == comp) {
                std::vector<double> de(n, 0.0);
                for (int s = 0; s < k; ++s)
                    for (size_t i = 0; i < n; ++i) de[i] += dy[j][static_cast<size_t>(s)][i];
                for (int s = 0; s < k; ++s) {
                    const std::vector<double>& d = dy[j][static_cast<size_t>(s)];
                    for (size_t i = 0; i < n; ++i) {
                        const double v = (d[i] * pe - py[static_cast<size_t>(s)] * de[i]) / (pe * pe);
                        ns.derivatives[static_cast<size_t>(s) * n + i] = v;
                        ns.maxAbsDerivative = std::max(ns.maxAbsDerivative, std::fabs(v));
                    }
                }
            }
            out.push_back(std::move(ns));
        }
    }
    return VEK_OKAY;
}
