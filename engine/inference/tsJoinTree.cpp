#include "inference/tsJoinTree.h"

#include <unistd.h>

#include <algorithm>
#include <new>
#include <stdexcept>

#include "inference/inferenceCache.h"
#include "inference/tsAdapter.h"
#include "inference/tsTriangulator.h"
#include "network/network.h"

namespace {

// Potentials larger than half the machine's memory are refused up front
// rather than letting the allocation push the process into swapping or the
// out-of-memory killer.
bool FitsInMemory(int64_t doubles) {
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageSize = sysconf(_SC_PAGE_SIZE);
    if (pages <= 0 || pageSize <= 0) return true;
    const double bytes = static_cast<double>(doubles) * sizeof(double);
    return bytes <= 0.5 * static_cast<double>(pages) * static_cast<double>(pageSize);
}

// Trees up to this total are used as heuristic 1 makes them.
constexpr uint64_t kSearchFrom = 1 << 16;
// Triangulation work allowed per entry of the best tree (as a divisor) and
// in all.
constexpr uint64_t kEntriesPerWork = 4;
constexpr uint64_t kMaxSearchWork = uint64_t(1) << 26;
constexpr uint64_t kMaxRandomRuns = 256;

}  // namespace

TsJoinTree::TsJoinTree(TsAdapter& adapter) : adapter_(&adapter), pool_(adapter.GetNodeCount()) {}

TsJoinTree::~TsJoinTree() = default;

void TsJoinTree::Cleanup() {
    cliques_.clear();
    postOrder_.clear();
    pool_.Clear();
    root_ = nullptr;
    built_ = false;
    ReleaseArena();
}

void TsJoinTree::ReleaseArena() {
    arena_.reset();
    arenaSize_ = 0;
    for (TsClique* c : cliques_) {
        c->collectWalk.DropMaps();
        c->distributeWalk.DropMaps();
    }
    mapEntries_ = 0;
}

// ---------------------------------------------------------------- structure

bool TsJoinTree::Triangulate(int64_t limit) {
    const int setting = adapter_->GetDefaultTriangHeuristics();
    cliques_.clear();
    pool_.Clear();
    if (setting != 0) {
        TsTriangulator tri(*adapter_);
        if (!tri.Triangulate(limit, setting, pool_, cliques_)) return false;
        totalSize_ = tri.GetTotalSize();
        elimination_ = tri.GetEliminationOrder();
    } else if (!SearchTriangulation(TsTriangulator::EffectiveLimit(limit))) {
        return false;
    }
    ConnectCliques();
    return true;
}

bool TsJoinTree::SearchTriangulation(uint64_t limit) {
    using Rule = TsTriangulator::Rule;
    bool found = false;
    uint64_t best = 0;
    uint64_t work = 0;
    std::vector<int> given;
    auto attempt = [&](Rule rule, bool reverse, uint64_t seed) {
        // Only a strictly smaller total replaces the best, so a run stops as
        // soon as it cannot win.
        const uint64_t bound = found ? std::min(limit, best - 1) : limit;
        TsTriangulator tri(*adapter_);
        TsClique::Pool pool(nodeCount_);
        std::vector<TsClique*> cliques;
        const bool ok = given.empty() ? tri.TriangulateWith(bound, rule, reverse, seed, pool, cliques)
                                      : tri.TriangulateInOrder(bound, given, pool, cliques);
        work += tri.GetWork();
        if (ok) {
            found = true;
            best = tri.GetTotalSize();
            pool_ = std::move(pool);
            cliques_ = std::move(cliques);
            elimination_ = tri.GetEliminationOrder();
        }
    };
    // The whole network's order restricted to this one's nodes is tried
    // last (a smaller bound would cut the random restarts short): it is
    // about as good as the whole network's tree at worst.
    auto attemptWhole = [&]() {
        if (!adapter_->GetWholeOrder(given)) return;
        attempt(Rule::MinCliqueWidth, false, 0);
        given.clear();
    };
    // Heuristic 1 first; ties keep it.
    attempt(Rule::MinCliqueWidth, false, 0);
    if (found && best <= kSearchFrom) {
        attemptWhole();
        totalSize_ = best;
        return true;
    }
    attempt(Rule::MinNewEdges, false, 0);
    attempt(Rule::MinWeightedFill, false, 0);
    attempt(Rule::MinCliqueWidth, true, 0);
    attempt(Rule::MinWeightedFill, true, 0);
    // Random restarts while their cost stays small next to one propagation
    // over the best tree so far; none when no rule found a tree at all.
    if (found) {
        const uint64_t budget = std::min(kMaxSearchWork, best / kEntriesPerWork);
        for (uint64_t seed = 1; seed <= kMaxRandomRuns && work < budget; ++seed)
            attempt(Rule::RandomWeightedFill, false, seed);
    }
    attemptWhole();
    totalSize_ = best;
    return found;
}

bool TsJoinTree::EliminationOrder(int64_t limit, std::vector<int>& order) {
    nodeCount_ = adapter_->GetNodeCount();
    if (nodeCount_ <= 0 || !Triangulate(limit)) return false;
    order = elimination_;
    return true;
}

void TsJoinTree::ConnectCliques() {
    const int m = static_cast<int>(cliques_.size());
    // Cliques holding each node, in creation order, so that the search for a
    // parent only looks at cliques that hold the first separator node.
    std::vector<std::vector<int>> holding(static_cast<size_t>(nodeCount_));
    for (int i = 0; i < m; ++i)
        for (int n : cliques_[static_cast<size_t>(i)]->nodes) holding[static_cast<size_t>(n)].push_back(i);

    for (int i = 0; i + 1 < m; ++i) {
        TsClique* c = cliques_[static_cast<size_t>(i)];
        TsClique* parent = nullptr;
        if (c->sepNodes.empty()) {
            parent = cliques_[static_cast<size_t>(i + 1)];
        } else {
            for (int j : holding[static_cast<size_t>(c->sepNodes[0])]) {
                if (j <= i) continue;
                TsClique* cand = cliques_[static_cast<size_t>(j)];
                pool_.Mark(*cand);
                bool all = true;
                for (int s : c->sepNodes)
                    if (!pool_.Marked(s)) {
                        all = false;
                        break;
                    }
                pool_.Unmark(*cand);
                if (all) {
                    parent = cand;
                    break;
                }
            }
            // Elimination orderings always provide one; attach to the root
            // if that ever fails rather than leaving a second tree.
            if (!parent) parent = cliques_.back();
        }
        c->parent = parent;
        parent->children.push_back(c);
        c->SortNodes();
    }
    root_ = cliques_.back();
    root_->SortNodes();
}

bool TsJoinTree::CanHost(const TsClique& c, int node) {
    pool_.Mark(c);
    bool ok = pool_.Marked(node);
    const int np = adapter_->GetParentCount(node);
    for (int k = 0; ok && k < np; ++k) ok = pool_.Marked(adapter_->GetParent(node, k));
    pool_.Unmark(c);
    return ok;
}

void TsJoinTree::FindHosts() {
    // The root stays the last clique created; the list is then sorted.
    std::sort(cliques_.begin(), cliques_.end(), TsCliqueComparer());
    for (size_t k = 0; k < cliques_.size(); ++k) cliques_[k]->order = static_cast<int>(k);

    // For each node the first clique in sorted order that holds its family.
    std::vector<std::vector<int>> holding(static_cast<size_t>(nodeCount_));
    for (size_t k = 0; k < cliques_.size(); ++k)
        for (int n : cliques_[k]->nodes) holding[static_cast<size_t>(n)].push_back(static_cast<int>(k));
    for (int i = 0; i < nodeCount_; ++i) {
        for (int k : holding[static_cast<size_t>(i)]) {
            TsClique* c = cliques_[static_cast<size_t>(k)];
            if (CanHost(*c, i)) {
                c->hosted.push_back(i);
                break;
            }
        }
    }
    pool_.FreeMembership();

    // Beliefs: cliques in sorted order, nodes in order, each node once.
    beliefClique_.assign(static_cast<size_t>(nodeCount_), -1);
    beliefOrder_.clear();
    for (size_t k = 0; k < cliques_.size(); ++k) {
        for (int n : cliques_[k]->nodes) {
            if (beliefClique_[static_cast<size_t>(n)] >= 0) continue;
            beliefClique_[static_cast<size_t>(n)] = static_cast<int>(k);
            beliefOrder_.push_back(n);
        }
    }

    // Depth-first post-order from the root, children in order.
    postOrder_.clear();
    std::vector<std::pair<TsClique*, int>> stack{{root_, 0}};
    while (!stack.empty()) {
        auto& [c, next] = stack.back();
        if (next < c->children.size()) {
            TsClique* child = c->children[next++];
            stack.emplace_back(child, 0);
        } else {
            postOrder_.push_back(c);
            stack.pop_back();
        }
    }
}

void TsJoinTree::PlanLayouts() {
    std::vector<int> count(static_cast<size_t>(nodeCount_), 0);
    std::vector<char> placed(static_cast<size_t>(nodeCount_), 0);
    // Parents before children: walk the post-order backwards.
    for (auto it = postOrder_.rbegin(); it != postOrder_.rend(); ++it) {
        TsClique* c = *it;
        TsCoords layout;
        if (c->parent) {
            const TsCoords& pl = c->parent->potential.Coords();
            for (int d = 0; d < pl.Count(); ++d) {
                const int n = pl.nodes[d];
                if (c->sepNodes.contains(n)) {
                    layout.Add(n, pl.sizes[d]);
                    placed[static_cast<size_t>(n)] = 1;
                }
            }
        }
        // The message towards the parent is the leading block of the layout.
        TsCoords msg = layout;
        // Then the nodes that children share, most shared first, and the
        // nodes private to this clique innermost.
        for (TsClique* ch : c->children)
            for (int n : ch->sepNodes) ++count[static_cast<size_t>(n)];
        TsSmallVec<int, 32> rest;
        for (int n : c->nodes)
            if (!placed[static_cast<size_t>(n)] && adapter_->GetEvidence(n) < 0) rest.push_back(n);
        std::sort(rest.begin(), rest.end(), [&](int a, int b) {
            const int ca = count[static_cast<size_t>(a)], cb = count[static_cast<size_t>(b)];
            if (ca != cb) return ca > cb;
            return a < b;
        });
        for (int n : rest) layout.Add(n, adapter_->GetStateCount(n));
        for (TsClique* ch : c->children)
            for (int n : ch->sepNodes) count[static_cast<size_t>(n)] = 0;
        for (int d = 0; d < msg.Count(); ++d) placed[static_cast<size_t>(msg.nodes[d])] = 0;

        c->potential.SetCoords(layout);
        c->message.SetCoords(msg);
    }

    PlanWalks();
}

void TsJoinTree::PlanWalks() {
    using Op = TsClique::Operand;
    // Strides of a matrix over coords for each dimension of the layout.
    auto stridesOf = [](const TsCoords& layout, const TsCoords& small, int64_t* row) {
        TsMatrix m;
        m.SetCoords(small);
        m.StridesIn(layout, row);
    };
    VEK_intArray parents;
    beliefOffset_.assign(static_cast<size_t>(nodeCount_), -1);
    int64_t beliefTotal = 0;
    for (int n = 0; n < nodeCount_; ++n) {
        if (beliefClique_[static_cast<size_t>(n)] < 0 || adapter_->GetEvidence(n) >= 0) continue;
        beliefOffset_[static_cast<size_t>(n)] = beliefTotal;
        beliefTotal += adapter_->GetStateCount(n);
    }
    marginals_.assign(static_cast<size_t>(beliefTotal > 0 ? beliefTotal : 1), 0.0);

    hostFirst_.assign(cliques_.size(), 0);
    int hosted = 0;
    for (TsClique* c : cliques_) {
        hostFirst_[static_cast<size_t>(c->order)] = hosted;
        hosted += c->hosted.size();
    }

    std::vector<int64_t> rows;
    for (TsClique* c : cliques_) {
        const TsCoords& layout = c->potential.Coords();
        const int dims = layout.Count();
        const size_t width = static_cast<size_t>(dims > 0 ? dims : 1);
        auto addRow = [&](std::vector<Op>& ops, Op op) {
            ops.push_back(op);
            rows.resize(ops.size() * width, 0);
            return rows.data() + (ops.size() - 1) * width;
        };
        const bool hasMessage = c->parent && c->message.Coords().Count() > 0;

        // Collect: hosted tables and the children's messages in, own message out.
        c->collectOps.clear();
        rows.clear();
        c->hostEvidence.assign(static_cast<size_t>(c->hosted.size()), TsSmallVec<int64_t, 8>());
        for (int k = 0; k < c->hosted.size(); ++k) {
            const int node = c->hosted[k];
            adapter_->GetParents(node, parents);
            // Table strides: parents in order, then the node itself (stride 1).
            const int fam = parents.GetSize() + 1;
            int famNodes[TS_MAX_DIMS + 2];
            int64_t famStride[TS_MAX_DIMS + 2];
            famNodes[fam - 1] = node;
            famStride[fam - 1] = 1;
            int64_t s = adapter_->GetStateCount(node);
            for (int p = fam - 2; p >= 0; --p) {
                famNodes[p] = parents[p];
                famStride[p] = s;
                s *= adapter_->GetStateCount(parents[p]);
            }
            int64_t* row = addRow(c->collectOps, {Op::Table, k});
            for (int d = 0; d < dims; ++d) {
                row[d] = 0;
                for (int f = 0; f < fam; ++f)
                    if (famNodes[f] == layout.nodes[d]) row[d] = famStride[f];
            }
            for (int f = 0; f < fam; ++f) {
                if (adapter_->GetEvidence(famNodes[f]) >= 0) {
                    c->hostEvidence[static_cast<size_t>(k)].push_back(famNodes[f]);
                    c->hostEvidence[static_cast<size_t>(k)].push_back(famStride[f]);
                }
            }
        }
        for (int k = 0; k < c->children.size(); ++k) {
            const TsClique* ch = c->children[k];
            if (ch->message.Coords().Count() == 0) continue;  // a constant, kept apart
            stridesOf(layout, ch->message.Coords(), addRow(c->collectOps, {Op::ChildMessage, k}));
        }
        c->collectInputs = static_cast<int>(c->collectOps.size());
        if (c->parent) {
            stridesOf(layout, c->message.Coords(), addRow(c->collectOps, {Op::OwnMessage, 0}));
        } else {
            // The root is final after its collect pass: the outward pass
            // starts from it in the same walk.
            addRow(c->collectOps, {Op::Total, 0});
            for (int k = 0; k < c->children.size(); ++k) {
                const TsClique* ch = c->children[k];
                if (ch->message.Coords().Count() == 0) continue;
                stridesOf(layout, ch->message.Coords(), addRow(c->collectOps, {Op::ChildFresh, k}));
            }
        }
        auto addMarginals = [&](std::vector<Op>& ops) {
            for (int n : c->nodes) {
                if (beliefOffset_[static_cast<size_t>(n)] < 0 || beliefClique_[static_cast<size_t>(n)] != c->order) continue;
                TsCoords single;
                single.Add(n, adapter_->GetStateCount(n));
                stridesOf(layout, single, addRow(ops, {Op::Marginal, n}));
            }
        };
        if (!c->parent) addMarginals(c->collectOps);
        c->collectWalk.Build(layout.sizes.data(), dims, rows.data(), static_cast<int>(c->collectOps.size()));

        // Distribute: the ratio in; the children's fresh messages and the
        // marginals read here out.
        c->distributeOps.clear();
        rows.clear();
        if (c->parent) {
            if (hasMessage) stridesOf(layout, c->message.Coords(), addRow(c->distributeOps, {Op::Ratio, 0}));
            c->distributeInputs = static_cast<int>(c->distributeOps.size());
            for (int k = 0; k < c->children.size(); ++k) {
                const TsClique* ch = c->children[k];
                if (ch->message.Coords().Count() == 0) continue;
                stridesOf(layout, ch->message.Coords(), addRow(c->distributeOps, {Op::ChildFresh, k}));
            }
            addMarginals(c->distributeOps);
            c->distributeWalk.Build(layout.sizes.data(), dims, rows.data(), static_cast<int>(c->distributeOps.size()));
        }
    }

    arenaNeeded_ = 0;
    int maxOps = 1;
    for (TsClique* c : cliques_) {
        arenaNeeded_ += c->potential.Size() + 2 * c->message.Size();
        maxOps = std::max({maxOps, c->collectWalk.Operands(), c->distributeWalk.Operands()});
    }
    pointers_.assign(static_cast<size_t>(maxOps), nullptr);
    mapOf_.assign(static_cast<size_t>(maxOps), nullptr);
    offsets_.assign(static_cast<size_t>(maxOps), 0);
    active_.assign(static_cast<size_t>(maxOps), 0);
}

bool TsJoinTree::Build(int64_t limit) {
    if (built_) return totalSize_ <= TsTriangulator::EffectiveLimit(limit);
    nodeCount_ = adapter_->GetNodeCount();
    if (nodeCount_ <= 0) return false;
    if (!Triangulate(limit)) {
        Cleanup();
        return false;
    }
    FindHosts();
    PlanLayouts();
    built_ = true;
    return true;
}

bool TsJoinTree::Prepare(int64_t limit) {
    return OrCleanup([&]() { return Build(limit); }, false);
}

bool TsJoinTree::AllocatePotentials() {
    if (arena_ && arenaSize_ >= arenaNeeded_) return true;
    if (!FitsInMemory(arenaNeeded_)) return false;
    arena_.reset();
    arena_.reset(new double[static_cast<size_t>(arenaNeeded_ > 0 ? arenaNeeded_ : 1)]);
    arenaSize_ = arenaNeeded_;
    double* p = arena_.get();
    for (TsClique* c : cliques_) {
        c->potential.Attach(p);
        p += c->potential.Size();
        c->message.Attach(p);
        p += c->message.Size();
        c->fresh = p;
        p += c->message.Size();
    }
    // The walks' maps live as long as the potentials: made here once
    // instead of on every pass, they are a small fraction of the storage
    // (at most one entry per entry of a chunk and operand).
    mapEntries_ = 0;
    for (TsClique* c : cliques_) {
        c->collectWalk.KeepMaps();
        c->distributeWalk.KeepMaps();
        mapEntries_ += c->collectWalk.MapEntries() + c->distributeWalk.MapEntries();
    }
    return true;
}

// ---------------------------------------------------------------- numbers

void TsJoinTree::InitPotentials() {
    // Tables enter during the collect pass; here each hosted table's walk is
    // placed at its observed slice (evidence by instantiation).
    hostBase_.clear();
    for (TsClique* c : cliques_) {
        c->initialised = false;
        for (int k = 0; k < c->hosted.size(); ++k) {
            const TsSmallVec<int64_t, 8>& ev = c->hostEvidence[static_cast<size_t>(k)];
            int64_t base = 0;
            for (int e = 0; e < ev.size(); e += 2) base += adapter_->GetEvidence(static_cast<int>(ev[e])) * ev[e + 1];
            hostBase_.push_back(base);
        }
    }
}

void TsJoinTree::RunPass(TsClique* c, bool collect) {
    using Op = TsClique::Operand;
    const TsMultiOdometer& walk = collect ? c->collectWalk : c->distributeWalk;
    const std::vector<Op>& ops = collect ? c->collectOps : c->distributeOps;
    const int inputs = collect ? c->collectInputs : c->distributeInputs;
    const int n = static_cast<int>(ops.size());
    const int64_t chunk = walk.Chunk();
    double total = 0.0;
    bool anyOutput = false;
    for (int k = 0; k < n; ++k) {
        const Op& op = ops[static_cast<size_t>(k)];
        double* ptr = nullptr;
        int64_t base = 0;
        bool on = true;
        int64_t zero = 0;
        switch (op.role) {
            case Op::Table:
                ptr = const_cast<double*>(adapter_->GetMatrix(c->hosted[op.index]).Items());
                base = hostBase_[static_cast<size_t>(hostFirst_[static_cast<size_t>(c->order)] + op.index)];
                break;
            case Op::ChildMessage: ptr = c->children[op.index]->message.Data(); break;
            case Op::Ratio: ptr = c->fresh; break;
            case Op::OwnMessage:
                ptr = c->message.Data();
                zero = c->message.Size();
                break;
            case Op::Total: ptr = &total; break;
            case Op::ChildFresh: {
                const TsClique* ch = c->children[op.index];
                on = need_.empty() || need_[static_cast<size_t>(ch->order)];
                ptr = ch->fresh;
                zero = ch->message.Size();
                break;
            }
            case Op::Marginal:
                on = computeNode_[static_cast<size_t>(op.index)] != 0;
                ptr = marginals_.data() + beliefOffset_[static_cast<size_t>(op.index)];
                zero = adapter_->GetStateCount(op.index);
                break;
        }
        if (on && zero > 0) std::fill(ptr, ptr + zero, 0.0);
        if (k >= inputs && on) anyOutput = true;
        pointers_[static_cast<size_t>(k)] = ptr;
        offsets_[static_cast<size_t>(k)] = base;
        active_[static_cast<size_t>(k)] = on ? 1 : 0;
        mapOf_[static_cast<size_t>(k)] = walk.KeptMap(k);
    }
    if (!collect && inputs == 0 && !anyOutput) return;

    double* pot = c->potential.Data();
    const int64_t* const* maps = mapOf_.data();
    double* const* ptrs = pointers_.data();
    const unsigned char* act = active_.data();
    walk.Walk(offsets_.data(), [&](int64_t boff, const int64_t* off) {
        double* b = pot + boff;
        if (collect) {
            if (inputs == 0) {
                std::fill(b, b + chunk, 1.0);
            } else {
                TsChunkLoad(walk.GetKind(0), walk.Block(0), maps[0], ptrs[0] + off[0], chunk, b);
                for (int k = 1; k < inputs; ++k)
                    TsChunkMultiply(walk.GetKind(k), walk.Block(k), maps[k], ptrs[k] + off[k], chunk, b);
            }
        } else {
            for (int k = 0; k < inputs; ++k)
                TsChunkMultiply(walk.GetKind(k), walk.Block(k), maps[k], ptrs[k] + off[k], chunk, b);
        }
        if (maxProduct_) {
            for (int k = inputs; k < n; ++k)
                if (act[k]) TsChunkAccumulateMax(walk.GetKind(k), walk.Block(k), maps[k], ptrs[k] + off[k], chunk, b);
        } else {
            for (int k = inputs; k < n; ++k)
                if (act[k]) TsChunkAccumulate(walk.GetKind(k), walk.Block(k), maps[k], ptrs[k] + off[k], chunk, b);
        }
    });
    if (collect && !c->parent) rootTotal_ = total;
}

void TsJoinTree::UpdateParentPotential(TsClique* child) {
    RunPass(child, true);
    child->initialised = true;
    // A message without dimensions is a constant factor: it changes no
    // belief and is kept for the probability of evidence only.
    if (child->parent && child->message.Coords().Count() == 0) scalarMessages_ *= child->message.Data()[0];
}

void TsJoinTree::Collect() {
    scalarMessages_ = 1.0;
    rootTotal_ = 0.0;
    for (TsClique* c : postOrder_) UpdateParentPotential(c);
    probE_ = rootTotal_ * scalarMessages_;
}

void TsJoinTree::UpdateFromParentPotential(TsClique* child) {
    const int64_t n = child->message.Size();
    if (child->message.Coords().Count() > 0) {
        double* fresh = child->fresh;
        const double* old = child->message.Data();
        for (int64_t i = 0; i < n; ++i) fresh[i] = old[i] != 0.0 ? fresh[i] / old[i] : 0.0;
    }
    RunPass(child, false);
}

void TsJoinTree::Distribute() {
    for (auto it = postOrder_.rbegin(); it != postOrder_.rend(); ++it) {
        TsClique* c = *it;
        if (c == root_) continue;
        if (!need_.empty() && !need_[static_cast<size_t>(c->order)]) continue;
        UpdateFromParentPotential(c);
    }
}

void TsJoinTree::SelectWork(bool* pending, bool beliefs, bool calibrateAll) {
    computeNode_.assign(static_cast<size_t>(nodeCount_), 0);
    if (beliefs) {
        for (int n = 0; n < nodeCount_; ++n) {
            const int h = adapter_->GetNodeHandle(n);
            if (h < 0 || adapter_->GetEvidence(n) >= 0) continue;
            computeNode_[static_cast<size_t>(n)] = pending ? pending[h] : adapter_->IsTarget(n);
        }
    }
    need_.clear();
    if (calibrateAll) return;
    // Only the cliques that some computed node reads from, and the paths to
    // them, take part in the outward pass.
    need_.assign(cliques_.size(), 0);
    for (int n = 0; n < nodeCount_; ++n)
        if (computeNode_[static_cast<size_t>(n)]) need_[static_cast<size_t>(beliefClique_[static_cast<size_t>(n)])] = 1;
    for (TsClique* c : postOrder_)
        if (need_[static_cast<size_t>(c->order)] && c->parent) need_[static_cast<size_t>(c->parent->order)] = 1;
}

void TsJoinTree::CalcBeliefs(bool* pending) {
    int reported = 0;
    for (int n : beliefOrder_) {
        const int h = adapter_->GetNodeHandle(n);
        if (h < 0) continue;
        bool compute;
        if (pending) {
            compute = pending[h];
            pending[h] = false;
        } else {
            compute = adapter_->IsTarget(n);
        }
        if (!compute) continue;
        if (adapter_->GetEvidence(n) >= 0) {
            // The value holds the evidence already; only an impossible
            // combination of evidence is reported.
            if (probE_ == 0.0) {
                adapter_->ReportZeroPotential(n);
                ++reported;
            } else {
                adapter_->EnsureEvidenceValue(n);
            }
            continue;
        }
        const int states = adapter_->GetStateCount(n);
        const double* m = marginals_.data() + beliefOffset_[static_cast<size_t>(n)];
        double sum = 0.0;
        for (int s = 0; s < states; ++s) sum += m[s];
        if (sum == 0.0) {
            adapter_->ReportZeroPotential(n);
            ++reported;
            continue;
        }
        VEK_Dmatrix* beliefs = adapter_->GetBeliefs(n);
        if (!beliefs) continue;
        if (beliefs->GetSize() != states || beliefs->GetNumberOfDimensions() != 1) (void)beliefs->SetSingleDimension(states);  // state counts are at least 1
        const double inv = 1.0 / sum;
        double* out = beliefs->Items();
        for (int s = 0; s < states; ++s) out[s] = m[s] * inv;
        adapter_->SetValueValid(n);
    }
    // Impossible evidence is reported even when no node of this sub-network
    // was asked for.
    if (probE_ == 0.0 && reported == 0 && nodeCount_ > 0) {
        int first = 0;
        for (int n = 0; n < nodeCount_; ++n)
            if (adapter_->GetEvidence(n) >= 0) {
                first = n;
                break;
            }
        adapter_->ReportZeroPotential(first);
    }
}

void TsJoinTree::ExportPotentials() {
    std::vector<VEK_storedPotential>& store = adapter_->GetOrigNetwork().InferenceCache().Potentials();
    for (const TsClique* c : cliques_) {
        VEK_storedPotential sp;
        const TsCoords& co = c->potential.Coords();
        VEK_intArray states;
        for (int d = 0; d < co.Count(); ++d) {
            sp.handles.Add(adapter_->GetNodeHandle(co.nodes[d]));
            states.Add(co.sizes[d]);
        }
        adapter_->GetPotentialMatrix(sp.handles, states, sp.potential);
        const int64_t n = c->potential.Size();
        if (sp.potential.GetSize() != n) continue;
        std::copy(c->potential.Data(), c->potential.Data() + n, sp.potential.Items());
        store.push_back(std::move(sp));
    }
}

bool TsJoinTree::UpdateBeliefs(bool* pending, int64_t limit) {
    return OrCleanup([&]() -> bool {
        if (!Build(limit)) return false;
        if (!AllocatePotentials()) {
            ReleaseArena();
            return false;
        }
        const bool store = adapter_->WillStorePotentials();
        SelectWork(pending, true, store);
        InitPotentials();
        Collect();
        Distribute();
        CalcBeliefs(pending);
        if (store) ExportPotentials();
        return true;
    }, false);
}

double TsJoinTree::CalcNormFactor() {
    return OrCleanup([&]() -> double {
        if (!Build(-1)) return -1.0;
        if (!AllocatePotentials()) {
            ReleaseArena();
            return -1.0;
        }
        SelectWork(nullptr, false, false);
        InitPotentials();
        Collect();
        return probE_;
    }, -1.0);
}
