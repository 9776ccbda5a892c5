#include "learning/discretizer.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <queue>
#include <string>

#include "learning/dataset.h"
#include "network/status.h"

namespace {

std::vector<double> UniformWidth(const std::vector<double>& x, int intervals) {
    const double lo = x.front();
    const double width = (x.back() - lo) / intervals;
    std::vector<double> edges;
    for (int k = 1; k < intervals; ++k) edges.push_back(lo + k * width);
    return edges;
}

std::vector<double> UniformCount(const std::vector<double>& x, int intervals) {
    std::vector<size_t> gaps;  // i such that x[i-1] < x[i]
    for (size_t i = 1; i < x.size(); ++i) {
        if (x[i - 1] < x[i]) gaps.push_back(i);
    }
    std::vector<double> edges;
    size_t last = 0;
    for (int k = 1; k < intervals; ++k) {
        const double target = static_cast<double>(k) * static_cast<double>(x.size()) / intervals;
        auto it = std::lower_bound(gaps.begin(), gaps.end(), target,
                                   [](size_t g, double t) { return static_cast<double>(g) < t; });
        size_t cut;
        if (it == gaps.end()) {
            cut = gaps.back();
        } else if (it == gaps.begin() || static_cast<double>(*it) - target < target - static_cast<double>(*(it - 1))) {
            cut = *it;
        } else {
            cut = *(it - 1);
        }
        if (cut == last) continue;
        last = cut;
        edges.push_back((x[cut - 1] + x[cut]) / 2.0);
    }
    return edges;
}

// Adjacent blocks in a linked list, candidate merges in a heap; a merge
// outdates the entries of its blocks by their stamps.
std::vector<double> Hierarchical(const std::vector<double>& x, int intervals) {
    struct Block {
        double n = 0.0, sum = 0.0, lo = 0.0, hi = 0.0;
        int prev = -1, next = -1;
        unsigned stamp = 0;
    };
    std::vector<Block> blocks;
    for (size_t i = 0; i < x.size(); ++i) {
        if (blocks.empty() || x[i] != blocks.back().hi) {
            Block b;
            b.lo = b.hi = x[i];
            b.prev = static_cast<int>(blocks.size()) - 1;
            blocks.push_back(b);
        }
        blocks.back().n += 1.0;
        blocks.back().sum += x[i];
    }
    for (size_t i = 0; i + 1 < blocks.size(); ++i) blocks[i].next = static_cast<int>(i + 1);

    struct Merge {
        double cost;
        int left, right;
        unsigned leftStamp, rightStamp;
        bool operator>(const Merge& o) const { return cost != o.cost ? cost > o.cost : left > o.left; }
    };
    std::priority_queue<Merge, std::vector<Merge>, std::greater<>> heap;
    auto push = [&](int l, int r) {
        if (l < 0 || r < 0) return;
        const Block& a = blocks[static_cast<size_t>(l)];
        const Block& b = blocks[static_cast<size_t>(r)];
        const double d = a.sum / a.n - b.sum / b.n;
        heap.push({a.n * b.n / (a.n + b.n) * d * d, l, r, a.stamp, b.stamp});
    };
    for (size_t i = 0; i + 1 < blocks.size(); ++i) push(static_cast<int>(i), static_cast<int>(i + 1));

    size_t count = blocks.size();
    while (count > static_cast<size_t>(intervals) && !heap.empty()) {
        const Merge m = heap.top();
        heap.pop();
        Block& a = blocks[static_cast<size_t>(m.left)];
        Block& b = blocks[static_cast<size_t>(m.right)];
        if (a.stamp != m.leftStamp || b.stamp != m.rightStamp || a.next != m.right) continue;
        a.n += b.n;
        a.sum += b.sum;
        a.hi = b.hi;
        a.next = b.next;
        if (b.next >= 0) blocks[static_cast<size_t>(b.next)].prev = m.left;
        ++a.stamp;
        ++b.stamp;
        b.n = 0.0;
        --count;
        push(a.prev, m.left);
        push(m.left, a.next);
    }
    std::vector<double> edges;
    for (const Block* at = &blocks.front(); at->next >= 0;) {
        const Block* next = &blocks[static_cast<size_t>(at->next)];
        edges.push_back((at->hi + next->lo) / 2.0);
        at = next;
    }
    return edges;
}

}  // namespace

std::vector<double> VEK_discretizationEdges(const std::vector<double>& sorted, int algorithm, int intervalCount) {
    switch (algorithm) {
        case VEK_DISCRETIZE_UNIFORM_WIDTH:
            return UniformWidth(sorted, intervalCount);
        case VEK_DISCRETIZE_UNIFORM_COUNT:
            return UniformCount(sorted, intervalCount);
        default:
            return Hierarchical(sorted, intervalCount);
    }
}

int VEK_dataset::Discretize(int var, int algorithm, int intervalCount, const std::string& prefix,
                            std::vector<double>& edges, std::string* errorMessage) {
    auto fail = [errorMessage](int code, const std::string& text) {
        if (errorMessage) *errorMessage = text;
        return code;
    };
    if (!IsValidVariable(var)) return fail(VEK_OUT_OF_RANGE, "Invalid dataset variable index: " + std::to_string(var));
    Variable& column = vars_[static_cast<size_t>(var)];
    if (column.discrete && !column.stateNames.empty()) {
        return fail(VEK_WRONG_NODE_TYPE, "Variable '" + column.id + "' holds named states and can't be discretized");
    }
    if (algorithm < VEK_DISCRETIZE_HIERARCHICAL || algorithm > VEK_DISCRETIZE_UNIFORM_COUNT) {
        return fail(VEK_OUT_OF_RANGE, "Unknown discretization algorithm: " + std::to_string(algorithm));
    }
    if (intervalCount < 2) {
        return fail(VEK_OUT_OF_RANGE, "The interval count must be at least 2, got " + std::to_string(intervalCount));
    }
    try {
        auto value = [&column](int r) -> double {
            return column.discrete ? column.intData[static_cast<size_t>(r)] : column.floatData[static_cast<size_t>(r)];
        };
        std::vector<double> values;
        for (int r = 0; r < records_; ++r) {
            if (!IsMissing(var, r)) values.push_back(value(r));
        }
        std::sort(values.begin(), values.end());
        if (values.empty() || values.front() == values.back()) {
            return fail(VEK_OUT_OF_RANGE,
                        "Variable '" + column.id +
                            (values.empty() ? "' has no values to discretize"
                                            : "' holds a single value and can't be split into intervals"));
        }
        std::vector<double> found = VEK_discretizationEdges(values, algorithm, intervalCount);
        std::vector<int> cells(static_cast<size_t>(records_), -1);
        for (int r = 0; r < records_; ++r) {
            if (IsMissing(var, r)) continue;
            const auto at = std::upper_bound(found.begin(), found.end(), value(r));
            cells[static_cast<size_t>(r)] = static_cast<int>(at - found.begin());
        }
        std::vector<std::string> names;
        if (!prefix.empty()) {
            for (size_t k = 0; k <= found.size(); ++k) names.push_back(prefix + std::to_string(k));
        }
        column.discrete = true;
        column.intData.swap(cells);
        column.floatData.clear();
        column.floatData.shrink_to_fit();
        column.stateNames.swap(names);
        column.missingInt = -1;
        edges.swap(found);
        return VEK_OKAY;
    } catch (const std::bad_alloc&) {
        return fail(VEK_OUT_OF_MEMORY, "Out of memory");
    }
}
