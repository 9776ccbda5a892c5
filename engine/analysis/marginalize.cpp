#include "analysis/marginalize.h"

#include <algorithm>
#include <map>
#include <vector>

#include "network/network.h"
#include "network/nodeDef.h"
#include "network/nodeVal.h"
#include "network/status.h"

namespace {

constexpr double kMaxEntries = double(1 << 26);

struct Family {
    std::vector<int> parents;
    std::vector<double> table;  // parents in order, own outcomes last
};

bool Plain(const VEK_network& net, int h) {
    const int t = net.GetDef(h)->GetType();
    return t == VEK_CPT || t == VEK_TRUTHTABLE;
}

// Strides of a table over (vars..., own) for each of the variables of the
// walk (0 for those it lacks).
std::vector<int64_t> Strides(const VEK_network& net, const std::vector<int>& walk, const std::vector<int>& vars,
                             int own) {
    std::vector<int64_t> out(walk.size(), 0);
    int64_t s = 1;
    std::vector<int> all = vars;
    all.push_back(own);
    for (size_t k = all.size(); k-- > 0;) {
        const auto it = std::find(walk.begin(), walk.end(), all[k]);
        out[static_cast<size_t>(it - walk.begin())] = s;
        s *= net.GetDef(all[k])->GetNumberOfOutcomes();
    }
    return out;
}

// Reverses x -> c in the working families. False when a table would be
// too large.
bool Reverse(const VEK_network& net, int x, int c, std::map<int, Family>& fam) {
    Family& fx = fam[x];
    Family& fc = fam[c];
    std::vector<int> parC, parX = fx.parents;
    for (int p : fc.parents)
        if (p != x) parC.push_back(p);
    const std::vector<int> rest = parC;
    for (int p : fx.parents)
        if (std::find(rest.begin(), rest.end(), p) == rest.end()) parC.push_back(p);
    for (int p : rest)
        if (std::find(parX.begin(), parX.end(), p) == parX.end()) parX.push_back(p);
    parX.push_back(c);

    // The walk runs over parX and x, which is every variable involved.
    std::vector<int> walk = parX;
    walk.push_back(x);
    std::vector<int> sizes;
    double total = 1.0;
    for (int v : walk) {
        sizes.push_back(net.GetDef(v)->GetNumberOfOutcomes());
        total *= sizes.back();
    }
    if (total > kMaxEntries) return false;
    const std::vector<int64_t> sOldX = Strides(net, walk, fx.parents, x);
    const std::vector<int64_t> sOldC = Strides(net, walk, fc.parents, c);
    const std::vector<int64_t> sNewC = Strides(net, walk, parC, c);
    double newCSize = 1.0;
    for (int v : parC) newCSize *= net.GetDef(v)->GetNumberOfOutcomes();
    newCSize *= net.GetDef(c)->GetNumberOfOutcomes();

    std::vector<double> joint(static_cast<size_t>(total)), newC(static_cast<size_t>(newCSize), 0.0);
    std::vector<int> counter(walk.size(), 0);
    int64_t ox = 0, oc = 0, on = 0;
    for (size_t i = 0; i < joint.size(); ++i) {
        joint[i] = fx.table[static_cast<size_t>(ox)] * fc.table[static_cast<size_t>(oc)];
        newC[static_cast<size_t>(on)] += joint[i];
        for (size_t d = walk.size(); d-- > 0;) {
            ox += sOldX[d];
            oc += sOldC[d];
            on += sNewC[d];
            if (++counter[d] < sizes[d]) break;
            ox -= sOldX[d] * sizes[d];
            oc -= sOldC[d] * sizes[d];
            on -= sNewC[d] * sizes[d];
            counter[d] = 0;
        }
    }
    // P(x | its new parents) = joint / P(c | its new parents); where that
    // is 0 the configuration is impossible and any distribution will do.
    const int kx = sizes.back();
    for (size_t i = 0; i < joint.size(); i += static_cast<size_t>(kx)) {
        double sum = 0.0;
        for (int s = 0; s < kx; ++s) sum += joint[i + static_cast<size_t>(s)];
        for (int s = 0; s < kx; ++s) joint[i + static_cast<size_t>(s)] = sum > 0.0 ? joint[i + static_cast<size_t>(s)] / sum : 1.0 / kx;
    }
    fx.parents = std::move(parX);
    fx.table = std::move(joint);
    fc.parents = std::move(parC);
    fc.table = std::move(newC);
    return true;
}

bool IsDeterministic(const std::vector<double>& t) {
    return std::all_of(t.begin(), t.end(), [](double v) { return v == 0.0 || v == 1.0; });
}

// Deletes x and gives each child its new parents (appended after the ones
// it keeps, in the order computed) and table.
int Apply(VEK_network& net, int x, const std::vector<int>& children, std::map<int, Family>& fam) {
    int res = net.DeleteNode(x);
    for (size_t i = 0; res == VEK_OKAY && i < children.size(); ++i) {
        const int c = children[i];
        const Family& f = fam[c];
        for (int p : f.parents) {
            if (net.GetNode(c)->Parents().FindPosition(p) >= 0) continue;
            res = net.AddArc(p, c);
            if (res != VEK_OKAY) return res;
        }
        if (net.GetDef(c)->GetType() == VEK_TRUTHTABLE && !IsDeterministic(f.table)) {
            res = net.ChangeNodeType(c, VEK_CPT);
            if (res < 0) return res;
        }
        res = net.GetDef(c)->SetDefinition(f.table);
    }
    return res;
}

}  // namespace

int VEK_marginalizeNode(VEK_network& net, int x) {
    VEK_logger& log = net.Logger();
    if (!net.IsValidNode(x)) return log.VLogError(VEK_OUT_OF_RANGE, "Invalid node handle %d", x);
    if (!Plain(net, x))
        return log.VLogError(VEK_WRONG_NODE_TYPE, "Node [%s] is not a chance node with a probability table",
                             net.GetNodeId(x));
    const VEK_nodeVal* v = net.GetVal(x);
    if (v->HasHardEvidence() || v->IsVirtualEvidence() || v->IsControlled())
        return log.VLogError(VEK_WRONG_NODE_TYPE, "Node [%s] has evidence and cannot be marginalized",
                             net.GetNodeId(x));

    // Children earliest first, so that no reversal closes a cycle.
    const VEK_intArray& order = net.PartialOrdering();
    std::vector<int> children;
    for (int k = 0; k < order.GetSize(); ++k)
        if (net.GetNode(x)->Children().FindPosition(order[k]) >= 0) children.push_back(order[k]);
    std::map<int, Family> fam;
    auto load = [&](int h) {
        Family& f = fam[h];
        for (int p : net.GetNode(h)->Parents()) f.parents.push_back(p);
        const VEK_Dmatrix& t = *net.GetDef(h)->GetMatrix();
        f.table.assign(t.Items(), t.Items() + t.GetSize());
    };
    load(x);
    for (int c : children) {
        if (!Plain(net, c))
            return log.VLogError(VEK_WRONG_NODE_TYPE, "Child [%s] of node [%s] does not hold a probability table",
                                 net.GetNodeId(c), net.GetNodeId(x));
        load(c);
    }
    for (int c : children)
        if (!Reverse(net, x, c, fam))
            return log.VLogError(VEK_OUT_OF_MEMORY, "Marginalizing node [%s] would need too large a table",
                                 net.GetNodeId(x));

    // A trial on a copy first: the network changes only when every step
    // succeeds.
    {
        VEK_network trial(net);
        const int res = Apply(trial, x, children, fam);
        if (res != VEK_OKAY)
            return log.VLogError(res, "Node [%s] cannot be marginalized", net.GetNodeId(x));
    }
    return Apply(net, x, children, fam);
}
