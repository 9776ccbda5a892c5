#include "inference/tsTriangulator.h"

#include <algorithm>

#include "inference/tsAdapter.h"

// Node indices are 16-bit within one sub-network.
static constexpr int kMaxNodes = 65535;
// The random rule draws among the nodes whose weighted fill is at most this
// factor above the smallest.
static constexpr double kRandomSlack = 1.5;

TsTriangulator::TsTriangulator(const TsAdapter& adapter) : adapter_(adapter) {}

uint64_t TsTriangulator::EffectiveLimit(int64_t limit) {
    if (limit == 0) return TS_DEFAULT_LIMIT;
    if (limit < 0) return TS_UNLIMITED;
    return static_cast<uint64_t>(limit);
}

bool TsTriangulator::Triangulate(int64_t limit, int heuristic, TsClique::Pool& pool, std::vector<TsClique*>& cliques) {
    const int rule = heuristic < 0 ? -heuristic : heuristic;
    if (rule < 1 || rule > 3) return false;
    return TriangulateWith(EffectiveLimit(limit), static_cast<Rule>(rule), heuristic < 0, 0, pool, cliques);
}

bool TsTriangulator::TriangulateWith(uint64_t limit, Rule rule, bool reverse, uint64_t seed, TsClique::Pool& pool,
                                     std::vector<TsClique*>& cliques) {
    limit_ = limit;
    pool_ = &pool;
    cliques_ = &cliques;
    sum_ = 0;
    eliminated_ = 0;
    order_.clear();
    rng_ = seed * 0x9E3779B97F4A7C15ULL + 1;
    if (!Moralize()) return false;
    if (!HeuristicSearch(rule, reverse)) return false;
    return sum_ <= limit_;
}

bool TsTriangulator::TriangulateInOrder(uint64_t limit, const std::vector<int>& order, TsClique::Pool& pool,
                                        std::vector<TsClique*>& cliques) {
    limit_ = limit;
    pool_ = &pool;
    cliques_ = &cliques;
    sum_ = 0;
    eliminated_ = 0;
    order_.clear();
    if (!Moralize() || static_cast<int>(order.size()) != n_) return false;
    for (int v : order) {
        // A node can go earlier as part of another node's clique.
        if (v < 0 || v >= n_ || nodes_[static_cast<size_t>(v)].eliminated) continue;
        const uint64_t size = CliqueSize(v);
        if (size == 0) return false;
        AddFillIns(v);
        if (!AddClique(v, size) || sum_ > limit_) return false;
    }
    return eliminated_ == n_;
}

void TsTriangulator::Connect(int a, int b) {
    // Nodes adjacent to both ends lose one fill-in.
    const std::vector<uint16_t>& na = nodes_[static_cast<size_t>(a)].neighbours;
    for (uint16_t x : na)
        if (Adjacent(x, b)) nodes_[x].valid = false;
    work_ += na.size() + 1;
    size_t bit = static_cast<size_t>(a) * static_cast<size_t>(n_) + static_cast<size_t>(b);
    adj_[bit >> 6] |= uint64_t(1) << (bit & 63);
    bit = static_cast<size_t>(b) * static_cast<size_t>(n_) + static_cast<size_t>(a);
    adj_[bit >> 6] |= uint64_t(1) << (bit & 63);
    nodes_[static_cast<size_t>(a)].neighbours.push_back(static_cast<uint16_t>(b));
    nodes_[static_cast<size_t>(b)].neighbours.push_back(static_cast<uint16_t>(a));
    nodes_[static_cast<size_t>(a)].valid = false;
    nodes_[static_cast<size_t>(b)].valid = false;
}

bool TsTriangulator::Moralize() {
    n_ = adapter_.GetNodeCount();
    if (n_ <= 0 || n_ > kMaxNodes) return false;
    nodes_.assign(static_cast<size_t>(n_), NodeRec{});
    const size_t bits = static_cast<size_t>(n_) * static_cast<size_t>(n_);
    adj_.assign((bits + 63) / 64, 0);
    for (int i = 0; i < n_; ++i) {
        nodes_[static_cast<size_t>(i)].weight = adapter_.GetEvidence(i) >= 0 ? 1 : adapter_.GetStateCount(i);
    }
    for (int i = 0; i < n_; ++i) {
        const int np = adapter_.GetParentCount(i);
        for (int k = 0; k < np; ++k) {
            const int p = adapter_.GetParent(i, k);
            if (p != i && !Adjacent(i, p)) Connect(i, p);
            for (int m = k + 1; m < np; ++m) {
                const int q = adapter_.GetParent(i, m);
                if (p != q && !Adjacent(p, q)) Connect(p, q);
            }
        }
    }
    return true;
}

TsTriangulator::NodeRec& TsTriangulator::Current(int node) {
    NodeRec& r = nodes_[static_cast<size_t>(node)];
    if (r.valid) return r;
    uint64_t size = static_cast<uint64_t>(r.weight);
    for (uint16_t m : r.neighbours) {
        const uint64_t w = static_cast<uint64_t>(nodes_[m].weight);
        if (size > TS_UNLIMITED / w) {
            size = 0;
            break;
        }
        size *= w;
    }
    int count = 0;
    double weight = 0.0;
    const std::vector<uint16_t>& nb = r.neighbours;
    const size_t d = nb.size();
    for (size_t i = 0; i + 1 < d; ++i) {
        const double wi = nodes_[nb[i]].weight;
        for (size_t j = i + 1; j < d; ++j) {
            if (!Adjacent(nb[i], nb[j])) {
                ++count;
                weight += wi * nodes_[nb[j]].weight;
            }
        }
    }
    work_ += d * d / 2 + 1;
    r.cliqueSize = size;
    r.fillCount = count;
    r.fillWeight = weight;
    r.valid = true;
    return r;
}

void TsTriangulator::AddFillIns(int node) {
    const std::vector<uint16_t> nb = nodes_[static_cast<size_t>(node)].neighbours;
    for (size_t i = 0; i + 1 < nb.size(); ++i)
        for (size_t j = i + 1; j < nb.size(); ++j)
            if (!Adjacent(nb[i], nb[j])) Connect(nb[i], nb[j]);
}

void TsTriangulator::RemoveFromGraph(int node) {
    NodeRec& r = nodes_[static_cast<size_t>(node)];
    r.eliminated = true;
    ++eliminated_;
    order_.push_back(node);
    for (uint16_t m : r.neighbours) {
        NodeRec& o = nodes_[m];
        auto it = std::find(o.neighbours.begin(), o.neighbours.end(), static_cast<uint16_t>(node));
        if (it != o.neighbours.end()) o.neighbours.erase(it);
        o.valid = false;
        work_ += o.neighbours.size() + 1;
    }
}

bool TsTriangulator::AddClique(int node, uint64_t size) {
    TsClique* c = pool_->New();
    c->size = size;
    c->nodes.push_back(node);
    const std::vector<uint16_t> nb = nodes_[static_cast<size_t>(node)].neighbours;
    RemoveFromGraph(node);
    // A neighbour with no neighbour outside this clique lives only here and
    // goes with it.
    for (int i = static_cast<int>(nb.size()) - 1; i >= 0; --i) {
        if (c->nodes.size() >= TS_MAX_CLIQUE_NODES) return false;
        const int m = nb[static_cast<size_t>(i)];
        c->nodes.push_back(m);
        if (static_cast<int>(nodes_[static_cast<size_t>(m)].neighbours.size()) == i) {
            RemoveFromGraph(m);
        } else {
            c->sepNodes.push_back(m);
        }
    }
    cliques_->push_back(c);
    sum_ = sum_ > UINT64_MAX - size ? UINT64_MAX : sum_ + size;
    return true;
}

bool TsTriangulator::RemoveSimplicials() {
    bool any = true;
    while (any) {
        any = false;
        for (int v = 0; v < n_; ++v) {
            if (nodes_[static_cast<size_t>(v)].eliminated) continue;
            const NodeRec& r = Current(v);
            if (r.fillCount != 0) continue;
            if (r.cliqueSize == 0 || !AddClique(v, r.cliqueSize)) return false;
            any = true;
        }
        work_ += static_cast<uint64_t>(n_);
    }
    return true;
}

template <class Better>
int TsTriangulator::PickBest(bool reverse, Better better) {
    int best = -1;
    const NodeRec* bestRec = nullptr;
    for (int k = 0; k < n_; ++k) {
        const int v = reverse ? n_ - 1 - k : k;
        if (nodes_[static_cast<size_t>(v)].eliminated) continue;
        const NodeRec& r = Current(v);
        if (r.cliqueSize == 0) continue;
        if (best < 0 || better(r, *bestRec)) {
            best = v;
            bestRec = &r;
        }
    }
    return best;
}

int TsTriangulator::HeurMinCliqueWidth(bool reverse) {
    return PickBest(reverse, [](const NodeRec& r, const NodeRec& b) { return r.cliqueSize < b.cliqueSize; });
}

int TsTriangulator::HeurMinNewEdges(bool reverse) {
    return PickBest(reverse, [](const NodeRec& r, const NodeRec& b) {
        return r.fillCount < b.fillCount || (r.fillCount == b.fillCount && r.cliqueSize < b.cliqueSize);
    });
}

int TsTriangulator::HeurMinCliqueThenEdges(bool reverse) {
    return PickBest(reverse, [](const NodeRec& r, const NodeRec& b) {
        return r.cliqueSize < b.cliqueSize || (r.cliqueSize == b.cliqueSize && r.fillCount < b.fillCount);
    });
}

int TsTriangulator::HeurMinWeightedFill(bool reverse) {
    return PickBest(reverse, [](const NodeRec& r, const NodeRec& b) {
        return r.fillWeight < b.fillWeight || (r.fillWeight == b.fillWeight && r.cliqueSize < b.cliqueSize);
    });
}

int TsTriangulator::HeurRandomWeightedFill() {
    double bestFill = -1.0;
    for (int v = 0; v < n_; ++v) {
        if (nodes_[static_cast<size_t>(v)].eliminated) continue;
        const NodeRec& r = Current(v);
        if (r.cliqueSize == 0) continue;
        if (bestFill < 0.0 || r.fillWeight < bestFill) bestFill = r.fillWeight;
    }
    if (bestFill < 0.0) return -1;
    candidates_.clear();
    for (int v = 0; v < n_; ++v) {
        const NodeRec& r = nodes_[static_cast<size_t>(v)];
        if (!r.eliminated && r.cliqueSize != 0 && r.fillWeight <= bestFill * kRandomSlack) candidates_.push_back(v);
    }
    rng_ = rng_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return candidates_[static_cast<size_t>((rng_ >> 33) % candidates_.size())];
}

bool TsTriangulator::HeuristicSearch(Rule rule, bool reverse) {
    while (eliminated_ < n_) {
        if (!RemoveSimplicials()) return false;
        if (eliminated_ >= n_) break;
        int v = -1;
        switch (rule) {
            case Rule::MinCliqueWidth: v = HeurMinCliqueWidth(reverse); break;
            case Rule::MinNewEdges: v = HeurMinNewEdges(reverse); break;
            case Rule::MinCliqueThenEdges: v = HeurMinCliqueThenEdges(reverse); break;
            case Rule::MinWeightedFill: v = HeurMinWeightedFill(reverse); break;
            case Rule::RandomWeightedFill: v = HeurRandomWeightedFill(); break;
        }
        work_ += static_cast<uint64_t>(n_);
        if (v < 0) return false;
        const uint64_t size = CliqueSize(v);
        AddFillIns(v);
        if (!AddClique(v, size)) return false;
        if (sum_ > limit_) return false;
    }
    return true;
}
