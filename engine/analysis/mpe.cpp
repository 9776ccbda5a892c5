#include "analysis/mpe.h"

#include <cmath>
#include <memory>

#include "inference/inferenceCache.h"
#include "inference/rNetwork.h"
#include "inference/tsAdapter.h"
#include "inference/tsJoinTree.h"
#include "network/network.h"
#include "network/status.h"

void VEK_maxProductTraceback(const TsJoinTree& tree, const TsAdapter& adapter, std::vector<int>& states) {
    const int n = adapter.GetNodeCount();
    states.assign(static_cast<size_t>(n), -1);
    for (int i = 0; i < n; ++i) states[static_cast<size_t>(i)] = adapter.GetEvidence(i);
    // Parents before children. Each potential puts its separator towards the
    // parent outermost, so the entries that agree with the parent's choice
    // form one contiguous block.
    std::vector<const TsClique*> stack{tree.GetRoot()};
    while (!stack.empty()) {
        const TsClique* c = stack.back();
        stack.pop_back();
        const TsCoords& layout = c->potential.Coords();
        const TsCoords& sep = c->message.Coords();
        int64_t index = 0;
        for (int d = 0; d < sep.Count(); ++d) index = index * sep.sizes[d] + states[static_cast<size_t>(sep.nodes[d])];
        const int64_t block = c->potential.Size() / (sep.Count() > 0 ? c->message.Size() : 1);
        const double* p = c->potential.Data() + index * block;
        int64_t best = 0;
        for (int64_t i = 1; i < block; ++i)
            if (p[i] > p[best]) best = i;
        for (int d = layout.Count() - 1; d >= sep.Count(); --d) {
            states[static_cast<size_t>(layout.nodes[d])] = static_cast<int>(best % layout.sizes[d]);
            best /= layout.sizes[d];
        }
        for (const TsClique* ch : c->children) stack.push_back(ch);
    }
}

namespace {

// The compiled tree of belief updating when the structure matches one it
// has seen; otherwise a new one, kept afterwards.
struct CachedTree {
    std::vector<int> key;
    std::unique_ptr<TsJoinTree> fresh;
    TsJoinTree* tree = nullptr;

    CachedTree(VEK_network& net, TsAdapter& adapter) {
        adapter.GetStructureKey(adapter.GetDefaultTriangHeuristics(), key);
        tree = net.InferenceCache().FindTree(key);
        if (tree) {
            tree->Rebind(adapter);
        } else {
            fresh = std::make_unique<TsJoinTree>(adapter);
            tree = fresh.get();
        }
    }
    void Keep(VEK_network& net) {
        if (fresh && fresh->IsBuilt()) net.InferenceCache().StoreTree(std::move(key), std::move(fresh));
    }
};

int FirstObserved(const VEK_rNetwork& sub) {
    for (int i = 0; i < sub.GetNodeCount(); ++i)
        if (sub.GetNode(i)->evidence >= 0 || sub.GetNode(i)->softEvidence) return sub.GetNode(i)->source;
    return sub.GetNode(0)->source;
}

}  // namespace

int VEK_mostProbableExplanation(VEK_network& net, VEK_mpeResult& out) {
    out = VEK_mpeResult();
    VEK_rNetworkContainer container;
    // Evidence is absorbed into the children, as belief updating does: the
    // product of the tables is the same on the evidence, and the observed
    // nodes no longer tie their neighbours together. Nothing is pruned:
    // every node needs an outcome.
    if (!container.DoRelevance(net, VEK_RSPLIT_COMPONENTS | VEK_RSPLIT_ABSORB)) return container.GetStatus();
    std::vector<int> assignment(static_cast<size_t>(net.GetSlotCount()), -1);
    double p = 1.0, logp = 0.0;
    std::vector<int> states;
    for (int i = 0; i < container.GetCount(); ++i) {
        VEK_rNetwork* sub = container.GetAt(i);
        double z = 0.0;
        if (sub->GetNodeCount() == 1) {
            const VEK_rNode* node = sub->GetNode(0);
            const VEK_Dmatrix& t = node->Table();
            int best = node->evidence;
            if (best < 0) {
                best = 0;
                for (int s = 1; s < t.GetSize(); ++s)
                    if (t[s] > t[best]) best = s;
            }
            z = t[best];
            assignment[static_cast<size_t>(node->handle)] = best;
        } else {
            TsAdapter adapter(*sub);
            CachedTree cached(net, adapter);
            cached.tree->SetMaxProduct(true);
            z = cached.tree->CalcNormFactor();
            cached.tree->SetMaxProduct(false);
            if (z < 0.0) return VEK_OUT_OF_MEMORY;
            if (z > 0.0) {
                VEK_maxProductTraceback(*cached.tree, adapter, states);
                for (int k = 0; k < adapter.GetNodeCount(); ++k)
                    assignment[static_cast<size_t>(adapter.GetNodeHandle(k))] = states[static_cast<size_t>(k)];
            }
            cached.Keep(net);
        }
        if (!(z > 0.0)) {
            VEK_reportZeroPotential(net, FirstObserved(*sub));
            return VEK_IMPOSSIBLE_EVIDENCE;
        }
        p *= z;
        logp += std::log(z);
        container.DeleteAt(i);
    }
    for (int h = 0; h < net.GetSlotCount(); ++h) {
        if (!net.IsValidNode(h)) continue;
        out.handles.push_back(h);
        out.outcomes.push_back(assignment[static_cast<size_t>(h)]);
    }
    out.probability = p;
    out.logProbability = logp;
    return VEK_OKAY;
}
