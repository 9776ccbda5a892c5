#include "inference/clustering.h"

#include <cstdint>
#include <memory>
#include <vector>

#include "inference/inferenceCache.h"
#include "inference/rNetwork.h"
#include "inference/tsAdapter.h"
#include "inference/tsJoinTree.h"
#include "network/network.h"

namespace {

constexpr unsigned kClusteringMask =
    VEK_RSPLIT_COMPONENTS | VEK_RSPLIT_PRUNE | VEK_RSPLIT_ABSORB | VEK_RSPLIT_NOISY_CHAINS;

// The compiled tree for the adapter's sub-network: from the cache, or new
// and not yet stored.
TsJoinTree* FindOrMakeTree(VEK_network& net, TsAdapter& adapter, std::vector<int>& key,
                           std::unique_ptr<TsJoinTree>& fresh, const uint64_t* knownHash = nullptr) {
    if (!knownHash) adapter.GetStructureKey(adapter.GetDefaultTriangHeuristics(), key);
    TsJoinTree* tree = net.InferenceCache().FindTree(key, knownHash ? *knownHash : VEK_inferenceCache::Hash(key));
    if (tree) {
        tree->Rebind(adapter);
        return tree;
    }
    fresh = std::make_unique<TsJoinTree>(adapter);
    return fresh.get();
}

// Keeps a tree that was built for the first time.
void KeepTree(VEK_network& net, std::vector<int>& key, std::unique_ptr<TsJoinTree>& fresh) {
    if (fresh && fresh->IsBuilt()) net.InferenceCache().StoreTree(std::move(key), std::move(fresh));
}

// Rough costs of a run, in potential entries: a clique's fixed work (its
// two walks set up), and the relevance steps' work per node of the whole
// network (absorbing evidence, pruning, splitting, one small tree each).
constexpr uint64_t kCliqueCost = 64;
constexpr uint64_t kNodeCost = 16;
// The reduced trees replace the whole network's only when they are cheaper
// by this factor: the estimate is rough, and a wrong choice for the whole
// tree costs nothing against running without relevance reasoning.
constexpr double kReducedMargin = 1.25;

uint64_t TreeCost(const TsJoinTree& tree) { return tree.GetTotalSize() + kCliqueCost * tree.GetCliques().size(); }

// Ranks of the whole network's elimination order, as the tree without
// relevance reasoning would triangulate it, and the cost of that tree;
// empty and 0 when it cannot be made.
void WholeNetworkTree(VEK_network& net, int64_t limit, std::vector<int>& ranks, uint64_t& cost) {
    ranks.clear();
    cost = 0;
    VEK_rNetwork whole(net);
    if (whole.Build(true) < 0 || whole.GetNodeCount() < 2) return;
    TsAdapter adapter(whole);
    TsJoinTree tree(adapter);
    std::vector<int> order;
    if (!tree.EliminationOrder(limit, order)) return;
    cost = TreeCost(tree);
    ranks.assign(static_cast<size_t>(whole.GetNodeCount()), 0);
    for (size_t k = 0; k < order.size(); ++k) ranks[static_cast<size_t>(whole.GetNode(order[k])->built)] = static_cast<int>(k);
}

// Looks up, before the relevance steps, whether they pay for this run's
// evidence pattern: the whole network's structure key, then each node's
// target and soft-evidence marks (which decide what the steps remove).
class ChoiceGate final : public VEK_relevanceGate {
public:
    explicit ChoiceGate(VEK_inferenceCache& cache) : cache_(cache) {}

    bool KeepWhole(VEK_rNetwork& whole) override {
        TsAdapter adapter(whole);
        std::vector<int>& key = cache_.patternKey;
        adapter.GetStructureKey(adapter.GetDefaultTriangHeuristics(), key);
        wholeKeySize_ = key.size();
        wholeHash_ = VEK_inferenceCache::Hash(key);
        key.push_back(-1);
        for (int i = 0; i < whole.GetNodeCount(); ++i) {
            const VEK_rNode* r = whole.GetNode(i);
            key.push_back((r->target ? 1 : 0) | (r->softEvidence ? 2 : 0));
        }
        patternHash_ = VEK_inferenceCache::Hash(key, wholeKeySize_, wholeHash_);
        nodes_ = static_cast<uint64_t>(whole.GetNodeCount());
        choice_ = cache_.FindChoice(key, patternHash_);
        return choice_ == 1;
    }
    // -1 when the gate was not asked or the pattern is new.
    int Choice() const { return choice_; }
    uint64_t Nodes() const { return nodes_; }
    uint64_t PatternHash() const { return patternHash_; }
    // When the whole network is kept, its tree's key is the pattern's
    // prefix: copied with its hash rather than made again, which on small
    // networks is a good part of what relevance reasoning adds to an update.
    const uint64_t* WholeTreeKey(std::vector<int>& key) const {
        key.assign(cache_.patternKey.begin(), cache_.patternKey.begin() + static_cast<long>(wholeKeySize_));
        return &wholeHash_;
    }

private:
    VEK_inferenceCache& cache_;
    int choice_ = -1;
    uint64_t nodes_ = 0;
    size_t wholeKeySize_ = 0;
    uint64_t wholeHash_ = 0;
    uint64_t patternHash_ = 0;
};

struct Decomposition {
    VEK_network& net;
    std::unique_ptr<bool[]> pending;
    std::vector<char> wasTarget;
    bool hadTargets = false;
    int zero = 0;
    int status = 0;

    explicit Decomposition(VEK_network& n) : net(n) {}

    // Records what is to be computed and clears the targets; the number of
    // nodes pending.
    int Start() {
        const int slots = net.GetSlotCount();
        pending.reset(new bool[static_cast<size_t>(slots > 0 ? slots : 1)]());
        wasTarget.assign(static_cast<size_t>(slots), 0);
        hadTargets = net.GetTargetCount() > 0;
        int count = 0;
        for (int h = 0; h < slots; ++h) {
            if (!net.IsValidNode(h)) continue;
            const bool t = net.IsTarget(h);
            wasTarget[static_cast<size_t>(h)] = t;
            pending[h] = hadTargets ? t : true;
            if (pending[h]) ++count;
            if (t) net.SetTargetQuiet(h, false);
        }
        return count;
    }

    void Finish() {
        for (int h = 0; h < net.GetSlotCount(); ++h) {
            if (!net.IsValidNode(h)) continue;
            net.SetTargetQuiet(h, wasTarget[static_cast<size_t>(h)] != 0);
        }
    }

    // Pending nodes in reverse partial (topological) order.
    void PendingInReverseOrder(std::vector<int>& out) {
        const VEK_intArray& order = net.PartialOrdering();
        out.clear();
        for (int k = order.GetSize() - 1; k >= 0; --k)
            if (pending[order[k]]) out.push_back(order[k]);
    }

    bool Run(int64_t limit) {
        int st = 0;
        bool ok = DoClustering(net, pending.get(), limit, &zero, &st);
        if (!ok && st < 0) status = st;
        return ok;
    }

    bool Recursive(const std::vector<int>& nodes, int64_t limit) {
        if (nodes.empty()) return true;
        int set = 0;
        for (int h : nodes) {
            if (pending[h]) {
                net.SetTargetQuiet(h, true);
                ++set;
            }
        }
        if (set == 0) return true;
        const bool ok = Run(limit);
        for (int h : nodes) net.SetTargetQuiet(h, false);
        if (ok || nodes.size() < 2 || status < 0) return ok;
        const size_t half = nodes.size() / 2;
        std::vector<int> lower(nodes.begin(), nodes.begin() + static_cast<long>(half));
        std::vector<int> upper(nodes.begin() + static_cast<long>(half), nodes.end());
        return Recursive(upper, limit) && Recursive(lower, limit);
    }

    bool Linear(const std::vector<int>& batch, int64_t first, int64_t second) {
        for (int h : batch) net.SetTargetQuiet(h, true);
        const bool ok = Run(batch.size() == 1 ? 0 : first);
        for (int h : batch) net.SetTargetQuiet(h, false);
        if (ok || batch.size() < 2 || status < 0) return ok;
        const size_t half = batch.size() / 2;
        std::vector<int> lower(batch.begin(), batch.begin() + static_cast<long>(half));
        std::vector<int> upper(batch.begin() + static_cast<long>(half), batch.end());
        return Recursive(upper, second) && Recursive(lower, second);
    }

    int Result(bool ok) const {
        if (status < 0) return status;
        if (!ok) return VEK_OUT_OF_MEMORY;
        return zero == 0 ? VEK_OKAY : VEK_IMPOSSIBLE_EVIDENCE;
    }
};

}  // namespace

bool DoClustering(VEK_network& net, bool* pending, int64_t limit, int* zeroCounter, int* status, double* probE) {
    if (status) *status = VEK_OKAY;
    if (probE) *probE = -1.0;
    VEK_inferenceCache& cache = net.InferenceCache();
    ChoiceGate gate(cache);
    VEK_rNetworkContainer container;
    if (!container.DoRelevance(net, kClusteringMask, &gate)) {
        const int st = container.GetStatus();
        if (status) *status = st == VEK_OUT_OF_MEMORY && !container.TableTooLarge() ? VEK_OKAY : st;
        return false;
    }
    // With a single target there is nothing to decompose into: the tree is
    // built whatever its size.
    const int64_t effective = net.GetTargetCount() == 1 ? -1 : limit;
    cache.BeginPass();
    double pe = 1.0;
    // Made at most once a pass: when a new reduced tree is large, and for
    // a new evidence pattern.
    std::vector<int> wholeRanks;
    uint64_t wholeCost = 0;
    bool wholeTried = false;
    auto wholeOrder = [&]() -> const std::vector<int>* {
        if (!wholeTried) {
            wholeTried = true;
            WholeNetworkTree(net, effective, wholeRanks, wholeCost);
        }
        return wholeRanks.empty() ? nullptr : &wholeRanks;
    };
    // A new evidence pattern: the reduced trees are compiled first and
    // weighed against the whole network's tree, which serves this and the
    // later runs unless the reduced trees are clearly cheaper. Deciding
    // before any propagation gives the same numbers on every run.
    if (net.IsRelevanceEnabled() && gate.Choice() < 0 && gate.Nodes() > 0) {
        uint64_t reducedCost = kNodeCost * gate.Nodes();
        for (int i = 0; i < container.GetCount(); ++i) {
            VEK_rNetwork* sub = container.GetAt(i);
            if (sub->GetNodeCount() == 1) continue;
            TsAdapter adapter(*sub);
            adapter.SetWholeOrder(wholeOrder);
            std::unique_ptr<TsJoinTree> fresh;
            TsJoinTree* tree = FindOrMakeTree(net, adapter, cache.treeKey, fresh);
            if (!tree->Prepare(effective)) {
                reducedCost = UINT64_MAX;
                break;
            }
            reducedCost += TreeCost(*tree);
            KeepTree(net, cache.treeKey, fresh);
        }
        wholeOrder();
        const bool whole = wholeCost > 0 && static_cast<double>(wholeCost) <= kReducedMargin * static_cast<double>(reducedCost);
        cache.StoreChoice(cache.patternKey, gate.PatternHash(), whole);
        if (whole && !container.DoRelevance(net, kClusteringMask, &gate)) {
            if (status) *status = container.GetStatus();
            return false;
        }
    }
    const bool reduced = net.IsRelevanceEnabled() && gate.Choice() != 1;
    for (int i = 0; i < container.GetCount(); ++i) {
        VEK_rNetwork* sub = container.GetAt(i);
        if (sub->GetNodeCount() == 1) {
            pe *= sub->Set_Prior_Beliefs(zeroCounter);
            const int h = sub->GetNode(0)->handle;
            if (pending && h >= 0) pending[h] = false;
        } else {
            TsAdapter adapter(*sub, zeroCounter);
            if (reduced) adapter.SetWholeOrder(wholeOrder);
            const bool kept = net.IsRelevanceEnabled() && gate.Choice() == 1 &&
                              static_cast<uint64_t>(sub->GetNodeCount()) == gate.Nodes();
            std::unique_ptr<TsJoinTree> fresh;
            TsJoinTree* tree =
                FindOrMakeTree(net, adapter, cache.treeKey, fresh, kept ? gate.WholeTreeKey(cache.treeKey) : nullptr);
            if (!tree->UpdateBeliefs(pending, effective)) return false;
            pe *= tree->GetProbEvidence();
            cache.lastCliqueEntries += tree->GetTotalSize();
            KeepTree(net, cache.treeKey, fresh);
        }
        container.DeleteAt(i);
    }
    if (probE) *probE = pe;
    return true;
}

int TsClustering(VEK_network& net) {
    net.InferenceCache().lastCliqueEntries = 0;
    const int64_t limit = net.GetIntProperty("VEK_CLUSTERING_INITIAL_THRESHOLD", 0);
    int zero = 0;
    int status = 0;
    double pe = -1.0;
    if (DoClustering(net, nullptr, limit, &zero, &status, &pe)) {
        if (zero != 0) return VEK_IMPOSSIBLE_EVIDENCE;
        if (pe >= 0.0) net.InferenceCache().SetLastProbEvidence(pe);
        return VEK_OKAY;
    }
    if (status < 0) return status;
    if (net.GetTargetCount() != 1 && !net.UserProperties().FindProperty("VEK_REL_DECOMP_DISABLE_FALLBACK")) {
        return TsClusteringLinearDecomp(net);
    }
    return VEK_OUT_OF_MEMORY;
}

int TsClusteringLinearDecomp(VEK_network& net) {
    int batchSize = net.GetIntProperty("VEK_REL_DECOMP_THRESHOLD", 32);
    if (batchSize < 1) batchSize = 1;
    const int64_t first = net.GetIntProperty("VEK_REL_DECOMP_THRESHOLD3", 0);
    const int64_t second = first != 0 ? first : net.GetIntProperty("VEK_REL_DECOMP_THRESHOLD2", 0);

    Decomposition d(net);
    if (d.Start() <= 0) {
        d.Finish();
        return VEK_OUT_OF_MEMORY;
    }
    const VEK_intArray order = net.PartialOrdering();
    std::vector<int> batch;
    bool ok = true;
    for (int k = order.GetSize() - 1; ok && k >= 0; --k) {
        const int h = order[k];
        if (!d.pending[h]) continue;
        batch.push_back(h);
        if (static_cast<int>(batch.size()) == batchSize) {
            ok = d.Linear(batch, first, second);
            batch.clear();
        }
    }
    if (ok && !batch.empty()) ok = d.Linear(batch, first, second);
    d.Finish();
    return d.Result(ok);
}

int TsClusteringRecursiveDecomp(VEK_network& net) {
    const int64_t limit = net.GetIntProperty("VEK_REL_DECOMP_THRESHOLD2", 0);
    Decomposition d(net);
    if (d.Start() <= 0) {
        d.Finish();
        return VEK_OUT_OF_MEMORY;
    }
    std::vector<int> nodes;
    d.PendingInReverseOrder(nodes);
    const bool ok = d.Recursive(nodes, limit);
    d.Finish();
    return d.Result(ok);
}

int TsClusteringProbE(VEK_network& net, double& p) {
    p = 1.0;
    VEK_rNetworkContainer container;
    if (!container.DoRelevance(net, VEK_RSPLIT_COMPONENTS | VEK_RSPLIT_NOISY_CHAINS)) {
        const int st = container.GetStatus();
        return st < 0 ? st : VEK_GENERAL_ERROR;
    }
    std::vector<int>& key = net.InferenceCache().treeKey;
    net.InferenceCache().BeginPass();
    for (int i = 0; i < container.GetCount(); ++i) {
        VEK_rNetwork* sub = container.GetAt(i);
        if (sub->GetNodeCount() == 1) {
            const VEK_rNode* n = sub->GetNode(0);
            const VEK_Dmatrix& t = n->Table();
            double z = 0.0;
            if (n->evidence >= 0) {
                z = t[n->evidence];
            } else {
                for (int s = 0; s < t.GetSize(); ++s) z += t[s];
            }
            p *= z;
        } else {
            TsAdapter adapter(*sub);
            std::unique_ptr<TsJoinTree> fresh;
            TsJoinTree* tree = FindOrMakeTree(net, adapter, key, fresh);
            const double z = tree->CalcNormFactor();
            if (z < 0.0) return VEK_OUT_OF_MEMORY;
            p *= z;
            KeepTree(net, key, fresh);
        }
        container.DeleteAt(i);
    }
    return VEK_OKAY;
}

int CalcProbEvidence_JoinTree(VEK_network& net, double& p) { return TsClusteringProbE(net, p); }
