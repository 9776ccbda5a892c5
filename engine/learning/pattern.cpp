#include "learning/pattern.h"

#include <algorithm>

#include "learning/dataset.h"
#include "learning/familyCounts.h"
#include "learning/structureFit.h"
#include "network/status.h"

void VEK_pattern::SetSize(int size) {
    size_ = size;
    edges_.assign(static_cast<size_t>(size) * size, NONE);
}

void VEK_pattern::SetEdge(int a, int b, int type) {
    edges_[Slot(a, b)] = static_cast<std::uint8_t>(type);
    edges_[Slot(b, a)] = static_cast<std::uint8_t>(type == UNDIRECTED ? UNDIRECTED : NONE);
}

bool VEK_pattern::HasDirectedCycle() const {
    // Kahn's algorithm over the directed edges: a cycle leaves nodes behind.
    std::vector<int> indegree(size_, 0), ready;
    for (int a = 0; a < size_; ++a) {
        for (int b = 0; b < size_; ++b) indegree[b] += GetEdge(a, b) == DIRECTED;
    }
    for (int v = 0; v < size_; ++v) {
        if (indegree[v] == 0) ready.push_back(v);
    }
    int seen = 0;
    while (!ready.empty()) {
        const int a = ready.back();
        ready.pop_back();
        ++seen;
        for (int b = 0; b < size_; ++b) {
            if (GetEdge(a, b) == DIRECTED && --indegree[b] == 0) ready.push_back(b);
        }
    }
    return seen < size_;
}

bool VEK_pattern::HasDirectedPath(int from, int to) const {
    std::vector<char> seen(size_, 0);
    std::vector<int> stack{from};
    seen[from] = 1;
    while (!stack.empty()) {
        const int a = stack.back();
        stack.pop_back();
        if (a == to) return true;
        for (int b = 0; b < size_; ++b) {
            if (!seen[b] && GetEdge(a, b) == DIRECTED) seen[b] = 1, stack.push_back(b);
        }
    }
    return false;
}

bool VEK_pattern::OrientIfAcyclic(int a, int b) {
    if (HasDirectedPath(b, a)) return false;
    SetEdge(a, b, DIRECTED);
    return true;
}

int VEK_pattern::ToDag(std::vector<std::vector<int>>& parents) const {
    if (HasDirectedCycle()) return VEK_CYCLE;
    // Repeatedly take a node with no outgoing arc whose undirected
    // neighbours are adjacent to all its other neighbours, and direct its
    // undirected edges into it; when none qualifies, any sink will do.
    std::vector<char> alive(size_, 1);
    std::vector<std::uint8_t> e(edges_);
    auto get = [&](int a, int b) { return e[static_cast<size_t>(a) * size_ + b]; };
    auto adjacent = [&](int a, int b) { return get(a, b) != NONE || get(b, a) != NONE; };
    parents.assign(size_, {});
    for (int a = 0; a < size_; ++a) {
        for (int b = 0; b < size_; ++b) {
            if (get(a, b) == DIRECTED) parents[b].push_back(a);
        }
    }
    for (int left = size_; left > 0; --left) {
        int pick = -1, fallback = -1;
        for (int x = 0; x < size_ && pick < 0; ++x) {
            if (!alive[x]) continue;
            bool sink = true;
            for (int y = 0; y < size_ && sink; ++y) sink = !(alive[y] && get(x, y) == DIRECTED);
            if (!sink) continue;
            if (fallback < 0) fallback = x;
            bool ok = true;
            for (int y = 0; y < size_ && ok; ++y) {
                if (!alive[y] || get(x, y) != UNDIRECTED) continue;
                for (int z = 0; z < size_ && ok; ++z) {
                    if (z != y && alive[z] && adjacent(x, z) && !adjacent(y, z)) ok = false;
                }
            }
            if (ok) pick = x;
        }
        if (pick < 0) pick = fallback;
        for (int y = 0; y < size_; ++y) {
            if (alive[y] && get(pick, y) == UNDIRECTED) {
                parents[pick].push_back(y);
                e[static_cast<size_t>(pick) * size_ + y] = e[static_cast<size_t>(y) * size_ + pick] = NONE;
            }
        }
        alive[pick] = 0;
    }
    return VEK_OKAY;
}

int VEK_pattern::ToNetwork(const VEK_dataset& data, VEK_network& net, double ess, std::string* errorMessage) const {
    if (data.GetNumberOfVariables() != size_) {
        if (errorMessage) {
            *errorMessage = "The pattern has " + std::to_string(size_) + " columns and the data " +
                            std::to_string(data.GetNumberOfVariables());
        }
        return VEK_OUT_OF_RANGE;
    }
    std::vector<std::vector<int>> parents;
    if (ToDag(parents) != VEK_OKAY) {
        if (errorMessage) *errorMessage = "The pattern's directed edges form a cycle";
        return VEK_CYCLE;
    }
    VEK_familyCounts counts;
    const int res = counts.Init(data, errorMessage);
    if (res != VEK_OKAY) return res;
    return VEK_fitStructure(data, counts, parents, ess, net, errorMessage);
}

void VEK_pattern::ApplyMeekRules() {
    const int n = size_;
    auto undirected = [&](int a, int b) { return GetEdge(a, b) == UNDIRECTED; };
    auto directed = [&](int a, int b) { return GetEdge(a, b) == DIRECTED; };
    for (bool changed = true; changed;) {
        changed = false;
        for (int a = 0; a < n; ++a) {
            for (int b = 0; b < n; ++b) {
                if (!undirected(a, b)) continue;
                bool orient = false;
                for (int c = 0; c < n && !orient; ++c) {
                    if (c == a || c == b) continue;
                    // Rule 1: c -> a - b, c and b not adjacent.
                    if (directed(c, a) && !IsAdjacent(c, b)) orient = true;
                    // Rule 2: a -> c -> b.
                    if (directed(a, c) && directed(c, b)) orient = true;
                    // Rule 3: a - c -> b and a - d -> b, c and d not adjacent.
                    if (undirected(a, c) && directed(c, b)) {
                        for (int d = c + 1; d < n && !orient; ++d) {
                            if (d != a && d != b && undirected(a, d) && directed(d, b) && !IsAdjacent(c, d)) {
                                orient = true;
                            }
                        }
                    }
                }
                // Rules never close a cycle in a consistent pattern; background
                // knowledge can make one inconsistent.
                if (orient && OrientIfAcyclic(a, b)) changed = true;
            }
        }
    }
}

void VEK_pattern::FromDag(const std::vector<std::vector<int>>& parents) {
    const int n = static_cast<int>(parents.size());
    SetSize(n);
    for (int v = 0; v < n; ++v) {
        for (int p : parents[v]) SetEdge(p, v, UNDIRECTED);
    }
    for (int z = 0; z < n; ++z) {
        for (int x : parents[z]) {
            for (int y : parents[z]) {
                if (x != y && !IsAdjacent(x, y)) edges_[Slot(x, z)] = DIRECTED, edges_[Slot(z, x)] = NONE;
            }
        }
    }
    ApplyMeekRules();
}

int VEK_pattern::Distance(const VEK_pattern& other, bool skeletonOnly) const {
    if (other.size_ != size_) return -1;
    int d = 0;
    for (int a = 0; a < size_; ++a) {
        for (int b = a + 1; b < size_; ++b) {
            if (skeletonOnly) d += IsAdjacent(a, b) != other.IsAdjacent(a, b);
            else d += GetEdge(a, b) != other.GetEdge(a, b) || GetEdge(b, a) != other.GetEdge(b, a);
        }
    }
    return d;
}
