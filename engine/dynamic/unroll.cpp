#include "dynamic/unroll.h"

#include <cstdlib>
#include <string>

#include "equations/equation.h"
#include "equations/exprParser.h"

#include "dynamic/dynamicNet.h"
#include "network/network.h"

namespace {

std::string UniqueId(const VEK_network& net, const char* id, int slice) {
    std::string base = std::string(id) + "_" + std::to_string(slice);
    std::string out = base;
    for (int k = 2; net.FindNode(out.c_str()) >= 0; ++k) out = base + "_" + std::to_string(k);
    return out;
}

bool IsEquation(const VEK_network& net, int h) { return net.GetDef(h)->GetType() == VEK_EQUATION; }

// Gives the copy c of equation node h the equation of this order (the
// ordinary one for order 0 or an unset temporal equation) over the copies of
// its parents: copyOf(node, k) is node's copy k slices back, for plate nodes.
template <class CopyOf>
int CopyEquation(VEK_network& net, VEK_network& out, int h, int order, CopyOf copyOf, int c) {
    const VEK_dynamicNet* dyn = net.GetDynamic();
    const std::string* temporal = order > 0 && dyn ? dyn->GetTemporalEquation(h, order) : nullptr;
    const std::string text = temporal ? *temporal : static_cast<const VEK_equation*>(net.GetDef(h))->GetEquation();
    VEK_functionSet functions;
    VEK_expression lhs, rhs;
    int failed = -1, pos = -1;
    std::string message;
    if (functions.Parse(net.ExtFunctions(), failed, pos, message) != VEK_OKAY ||
        VEK_exprParser::ParseEquation(text, &functions, lhs, rhs, pos, message) != VEK_OKAY) {
        return net.Logger().VLogError(VEK_SYNTAX_ERROR, "Equation of node '%s' (order %d): %s", net.GetNodeId(h), order,
                                      message.c_str());
    }
    rhs.SetFunctions(&functions);
    for (int v = 0; v < static_cast<int>(rhs.Variables().size()); ++v) {
        const std::string name = rhs.Variables()[v];
        const size_t bracket = name.find("[-");
        const int node = net.FindNode(name.substr(0, bracket).c_str());
        const int back = bracket == std::string::npos ? 0 : std::atoi(name.c_str() + bracket + 2);
        if (node < 0 || (back > 0 && net.GetNode(node)->GetTemporalType() != VEK_TEMPORAL_PLATE)) {
            return net.Logger().VLogError(VEK_OUT_OF_RANGE, "Equation of node '%s' (order %d): unknown variable '%s'",
                                          net.GetNodeId(h), order, name.c_str());
        }
        const int copy = net.GetNode(node)->GetTemporalType() == VEK_TEMPORAL_PLATE ? copyOf(node, back) : node;
        rhs.RenameVariable(v, out.GetNodeId(copy));
    }
    auto* eq = static_cast<VEK_equation*>(out.GetDef(c));
    const int res = eq->SetEquation(std::string(out.GetNodeId(c)) + " = " + rhs.Print(), pos, message);
    if (res != VEK_OKAY) {
        return net.Logger().VLogError(res, "Equation of node '%s' (order %d): %s", net.GetNodeId(h), order,
                                      message.c_str());
    }
    return VEK_OKAY;
}

// Copies in later slices are CPTs, and DeMorgan and CAST nodes take arcs only
// from and to their own kind: every such node becomes a CPT holding its
// computed table, with its parents as they were.
int QualitativeToTables(VEK_network& out) {
    struct Saved {
        int node;
        std::vector<int> parents;
        VEK_Dmatrix table;
    };
    std::vector<Saved> saved;
    for (int h = out.GetFirstNode(); h >= 0; h = out.GetNextNode(h)) {
        const int type = out.GetDef(h)->GetType();
        if (type != VEK_DEMORGAN && type != VEK_CAST) continue;
        const VEK_intArray& parents = out.GetNode(h)->Parents();
        saved.push_back({h, std::vector<int>(parents.begin(), parents.end()), *out.GetDef(h)->GetMatrix()});
    }
    int res = VEK_OKAY;
    for (const Saved& s : saved) {
        if ((res = out.ChangeNodeType(s.node, VEK_CPT)) < 0) return res;
    }
    for (const Saved& s : saved) {
        for (int p : s.parents) {
            if (out.GetNode(s.node)->Parents().FindPosition(p) < 0 && (res = out.AddArc(p, s.node)) < 0) return res;
        }
        VEK_intArray perm;
        for (int p : s.parents) perm.Add(out.GetNode(s.node)->Parents().FindPosition(p));
        if ((res = out.ChangeOrderOfParents(s.node, perm)) < 0 || (res = out.GetDef(s.node)->SetDefinition(s.table)) < 0) {
            return res;
        }
    }
    return VEK_OKAY;
}

}  // namespace

int VEK_Unroll(VEK_network& net, VEK_network& out, std::vector<VEK_unrolledNode>& mapping) {
    mapping.clear();
    const int slices = net.GetNumberOfSlices();
    if (slices < 1) return VEK_OUT_OF_RANGE;
    const VEK_dynamicNet* dyn = net.GetDynamic();
    std::vector<int> plates;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_node* n = net.GetNode(h);
        if (n->GetTemporalType() != VEK_TEMPORAL_PLATE) continue;
        plates.push_back(h);
        if (IsEquation(net, h)) continue;
        if (!n->Definition()->GetMatrix() || n->Definition()->GetDiscreteOutcomeCount() < 1) {
            return net.Logger().VLogError(VEK_WRONG_NODE_TYPE, "Plate node '%s' has no probability table", n->GetId());
        }
        for (int t = 1; t < slices; ++t) {
            if (dyn && dyn->OrderForSlice(h, t) > 0) continue;
            for (int p : n->Parents()) {
                if (net.GetNode(p)->GetTemporalType() == VEK_TEMPORAL_ANCHOR) {
                    return net.Logger().VLogError(VEK_WRONG_NODE_TYPE,
                                                  "Plate node '%s' has anchor parents but no temporal arcs", n->GetId());
                }
            }
        }
    }

    out = net;
    const unsigned options = out.GetOptions();
    // The slices repeat an acyclic pattern forward in time: no cycle can form.
    out.SetOptions(options | VEK_OPT_NO_CYCLE_TEST);
    if (VEK_dynamicNet* d = out.GetDynamic()) {
        for (int h : plates) {
            while (!d->GetTemporalParents(h).empty()) {
                const VEK_temporalArc a = d->GetTemporalParents(h).back();
                (void)d->RemoveTemporalArc(a.node, h, a.order);  // one of h's own arcs: it exists
            }
        }
        d->ClearAllTemporalEvidence();
    }
    for (int h = out.GetFirstNode(); h >= 0; h = out.GetNextNode(h)) out.GetNode(h)->SetTemporalType(VEK_TEMPORAL_CONTEMPORAL);
    (void)out.SetNumberOfSlices(0);  // no slices is always accepted
    if (slices > 1 && QualitativeToTables(out) < 0) {
        out.Clear();
        return net.Logger().LogError(VEK_WRONG_NODE_TYPE, "DeMorgan and CAST nodes could not be unrolled");
    }

    // copies[t][i]: the handle of plates[i] in slice t.
    std::vector<std::vector<int>> copies(slices, std::vector<int>(plates.size(), -1));
    int res = VEK_OKAY;
    for (size_t i = 0; i < plates.size() && res >= 0; ++i) {
        copies[0][i] = plates[i];
        VEK_nodeVal* v = out.GetVal(plates[i]);
        if (v->IsEvidence() || v->IsVirtualEvidence()) (void)v->ClearEvidence();  // there is evidence to clear
        res = out.ChangeNodeId(plates[i], UniqueId(out, net.GetNodeId(plates[i]), 0).c_str());
    }
    auto indexOf = [&plates](int h) {
        for (size_t i = 0; i < plates.size(); ++i) {
            if (plates[i] == h) return static_cast<int>(i);
        }
        return -1;
    };
    for (int t = 1; t < slices && res >= 0; ++t) {
        for (size_t i = 0; i < plates.size() && res >= 0; ++i) {
            const int h = plates[i];
            const bool equation = IsEquation(net, h);
            res = out.AddNode(equation ? VEK_EQUATION : VEK_CPT, UniqueId(out, net.GetNodeId(h), t).c_str());
            if (res < 0) break;
            copies[t][i] = res;
            if (equation) {
                const auto* eq = static_cast<const VEK_equation*>(net.GetDef(h));
                res = static_cast<VEK_equation*>(out.GetDef(res))->SetBounds(eq->GetLower(), eq->GetUpper());
            } else {
                res = out.GetDef(res)->SetNumberOfOutcomes(*net.GetDef(h)->GetOutcomeIds());
            }
        }
        for (size_t i = 0; i < plates.size() && res >= 0; ++i) {
            const int h = plates[i];
            const int c = copies[t][i];
            const int order = dyn ? dyn->OrderForSlice(h, t) : 0;
            for (int p : net.GetNode(h)->Parents()) {
                if (net.GetNode(p)->GetTemporalType() == VEK_TEMPORAL_ANCHOR) continue;
                const int k = indexOf(p);
                if ((res = out.AddArc(k >= 0 ? copies[t][k] : p, c)) < 0) break;
            }
            for (int k = 1; k <= order && res >= 0; ++k) {
                for (const VEK_temporalArc& a : dyn->GetTemporalParents(h)) {
                    if (a.order != k) continue;
                    if ((res = out.AddArc(copies[t - k][indexOf(a.node)], c)) < 0) break;
                }
            }
            if (res < 0) break;
            if (IsEquation(net, h)) {
                res = CopyEquation(net, out, h, order, [&](int node, int back) { return copies[t - back][indexOf(node)]; },
                                   c);
                continue;
            }
            const VEK_Dmatrix* table = order > 0 ? dyn->GetTemporalDefinition(h, order) : net.GetDef(h)->GetMatrix();
            res = out.GetDef(c)->SetDefinition(*table);
        }
    }
    // Terminal nodes hang from the last slice.
    for (int h = net.GetFirstNode(); h >= 0 && res >= 0 && slices > 1; h = net.GetNextNode(h)) {
        const VEK_node* n = net.GetNode(h);
        if (n->GetTemporalType() != VEK_TEMPORAL_TERMINAL) continue;
        bool plateParent = false;
        for (int p : n->Parents()) plateParent = plateParent || indexOf(p) >= 0;
        if (!plateParent) continue;
        const VEK_Dmatrix saved(n->Definition()->GetParameters());
        std::vector<int> wanted;
        for (int p : n->Parents()) {
            const int k = indexOf(p);
            wanted.push_back(k >= 0 ? copies[slices - 1][k] : p);
            if (k < 0) continue;
            if ((res = out.RemoveArc(p, h)) < 0 || (res = out.AddArc(wanted.back(), h)) < 0) break;
        }
        if (res < 0) break;
        VEK_intArray perm;
        for (int w : wanted) perm.Add(out.GetNode(h)->Parents().FindPosition(w));
        if ((res = out.ChangeOrderOfParents(h, perm)) < 0) break;
        res = out.GetDef(h)->SetDefinition(saved);
    }
    for (int t = 0; t < slices && res >= 0; ++t) {
        for (size_t i = 0; i < plates.size() && res >= 0; ++i) {
            mapping.push_back({plates[i], t, copies[t][i]});
            if (!dyn) continue;
            VEK_nodeVal* v = out.GetVal(copies[t][i]);
            if (const int e = dyn->GetTemporalEvidence(plates[i], t); e >= 0) res = v->SetEvidence(e);
            if (const std::vector<double>* ve = dyn->GetTemporalVirtualEvidence(plates[i], t)) res = v->SetVirtualEvidence(*ve);
            if (double x; res >= 0 && dyn->GetTemporalContEvidence(plates[i], t, x)) res = v->SetEvidence(x);
        }
    }
    out.SetOptions(options);
    if (res < 0) {
        mapping.clear();
        out.Clear();
        return res;
    }
    return VEK_OKAY;
}
