#include "learning/pc.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <utility>

#include "learning/familyCounts.h"
#include "learning/pattern.h"
#include "network/incompleteGamma.h"
#include "network/status.h"

namespace {

class Tester {
public:
    Tester(const VEK_familyCounts& counts, int test) : counts_(counts), test_(test) {
        limit_ = std::max<long long>(1 << 20, 4LL * counts.GetRecordCount());
    }

    // p-value of x independent of y given s; 0 (dependent) when the table
    // would be too large to count. The statistic's excess over its degrees
    // of freedom, scaled by their spread, goes to strength when given.
    double PValue(int x, int y, const std::vector<int>& s, double* strength = nullptr) {
        const int rx = counts_.GetStateCount(x), ry = counts_.GetStateCount(y);
        const long long q = counts_.ConfigCount(s.data(), static_cast<int>(s.size()), limit_ / (rx * ry));
        if (q < 0) return 0.0;
        // Cells [(s * rx + x) * ry + y]; small sets skip the index pass.
        const int rows = counts_.GetRowCount();
        const int* w = counts_.Weights();
        const std::uint8_t* cx = counts_.Column(x);
        const std::uint8_t* cy = counts_.Column(y);
        if (s.size() <= 1) {
            cells_.assign(static_cast<size_t>(q) * rx * ry, 0);
            int* c = cells_.data();
            if (s.empty()) {
                for (int k = 0; k < rows; ++k) c[cx[k] * ry + cy[k]] += w[k];
            } else {
                const std::uint8_t* cs = counts_.Column(s[0]);
                for (int k = 0; k < rows; ++k) c[(cs[k] * rx + cx[k]) * ry + cy[k]] += w[k];
            }
        } else {
            counts_.ConfigIndex(s.data(), static_cast<int>(s.size()), index_);
            counts_.CountIndexed(y, index_, static_cast<int>(q), x, cells_);
        }
        double stat = 0.0, df = 0.0;
        rowSum_.resize(rx);
        colSum_.resize(ry);
        for (long long j = 0; j < q; ++j) {
            const int* c = cells_.data() + j * rx * ry;
            std::fill(rowSum_.begin(), rowSum_.end(), 0);
            std::fill(colSum_.begin(), colSum_.end(), 0);
            int total = 0;
            for (int a = 0; a < rx; ++a) {
                for (int b = 0; b < ry; ++b) {
                    rowSum_[a] += c[a * ry + b];
                    colSum_[b] += c[a * ry + b];
                }
                total += rowSum_[a];
            }
            if (total == 0) continue;
            int rows = 0, cols = 0;
            for (int a = 0; a < rx; ++a) rows += rowSum_[a] > 0;
            for (int b = 0; b < ry; ++b) cols += colSum_[b] > 0;
            df += static_cast<double>(rows - 1) * (cols - 1);
            for (int a = 0; a < rx; ++a) {
                for (int b = 0; b < ry; ++b) {
                    const double n = c[a * ry + b];
                    const double e = static_cast<double>(rowSum_[a]) * colSum_[b] / total;
                    if (e <= 0.0) continue;
                    if (test_ == VEK_pc::G_TEST) {
                        if (n > 0) stat += 2.0 * n * std::log(n / e);
                    } else {
                        stat += (n - e) * (n - e) / e;
                    }
                }
            }
        }
        if (strength) *strength = df > 0.0 ? (stat - df) / std::sqrt(2.0 * df) : 0.0;
        if (df <= 0.0) return 1.0;
        return VEK_pc::ChiSquareTail(stat, df);
    }

private:
    const VEK_familyCounts& counts_;
    int test_;
    long long limit_;
    std::vector<int> index_, cells_, rowSum_, colSum_;
};

// Next subset of size k of 0..n-1 in lexicographic order; false at the end.
bool NextSubset(std::vector<int>& pick, int n) {
    const int k = static_cast<int>(pick.size());
    int i = k - 1;
    while (i >= 0 && pick[i] == n - k + i) --i;
    if (i < 0) return false;
    ++pick[i];
    for (int j = i + 1; j < k; ++j) pick[j] = pick[j - 1] + 1;
    return true;
}

}  // namespace

void VEK_pc::Skeleton(const VEK_familyCounts& counts, const VEK_bkConstraints& bkc, double significance,
                      int maxAdjacency, int test, std::vector<char>& adj,
                      std::map<std::pair<int, int>, std::vector<int>>* sepsets) {
    const int n = counts.GetColumnCount();
    auto at = [n](int a, int b) { return static_cast<size_t>(a) * n + b; };
    adj.assign(static_cast<size_t>(n) * n, 0);
    for (int a = 0; a < n; ++a) {
        for (int b = 0; b < n; ++b) {
            if (a != b && (bkc.Allows(a, b) || bkc.Allows(b, a))) adj[at(a, b)] = 1;
        }
    }
    Tester tester(counts, test);
    std::vector<int> s;
    // Conditioning sets are tried strongest neighbours first, by their
    // marginal association with x: separating sets are found sooner.
    std::vector<double> strength(static_cast<size_t>(n) * n, 0.0);
    for (int level = 0; level <= maxAdjacency; ++level) {
        // Neighbour lists fixed for the whole level.
        std::vector<std::vector<int>> nb(n);
        bool any = false;
        for (int a = 0; a < n; ++a) {
            for (int b = 0; b < n; ++b) {
                if (adj[at(a, b)]) nb[a].push_back(b);
            }
            any = any || static_cast<int>(nb[a].size()) - 1 >= level;
        }
        if (!any) break;
        for (int x = 0; x < n; ++x) {
            for (int y : nb[x]) {
                if (!adj[at(x, y)] || bkc.IsForced(x, y) || bkc.IsForced(y, x)) continue;
                std::vector<int> others;
                for (int z : nb[x]) {
                    if (z != y) others.push_back(z);
                }
                std::stable_sort(others.begin(), others.end(), [&](int a, int b) {
                    return strength[at(x, a)] > strength[at(x, b)];
                });
                if (static_cast<int>(others.size()) < level) continue;
                std::vector<int> pick(level);
                for (int i = 0; i < level; ++i) pick[i] = i;
                do {
                    s.clear();
                    for (int i : pick) s.push_back(others[i]);
                    double* st = level == 0 ? &strength[at(x, y)] : nullptr;
                    const double p = tester.PValue(x, y, s, st);
                    if (st) strength[at(y, x)] = *st;
                    if (p > significance) {
                        adj[at(x, y)] = adj[at(y, x)] = 0;
                        if (sepsets) (*sepsets)[{std::min(x, y), std::max(x, y)}] = s;
                        break;
                    }
                } while (NextSubset(pick, static_cast<int>(others.size())));
            }
        }
    }
}

// Each unshielded triple x - z - y is judged by every set of x's or y's
// neighbours, up to the adjacency limit, that separates x and y: z is a
// collider when it lies in fewer than half of them. A single separating
// set, the first the skeleton phase happened on, is a weak witness at small
// samples. The pair's set becomes the common neighbours judged no collider
// (ties included, so that doubt leaves the edges undirected); a pair that
// no set separates, or whose sets are too many to try, keeps its own.
void VEK_pc::MajorityRule(const VEK_familyCounts& counts, const std::vector<char>& adj, double significance,
                          int maxAdjacency, int test, std::map<std::pair<int, int>, std::vector<int>>& sepsets) {
    constexpr long long kMaxSets = 4096;
    const int n = counts.GetColumnCount();
    auto at = [n](int a, int b) { return static_cast<size_t>(a) * n + b; };
    Tester tester(counts, test);
    std::vector<int> common, in, nb, pick, s;
    for (auto& [pair, sepset] : sepsets) {
        const int x = pair.first, y = pair.second;
        common.clear();
        for (int z = 0; z < n; ++z) {
            if (adj[at(x, z)] && adj[at(y, z)]) common.push_back(z);
        }
        if (common.empty()) continue;
        long long budget = kMaxSets;
        int separating = 0;
        in.assign(common.size(), 0);
        for (int side : {x, y}) {
            nb.clear();
            for (int v = 0; v < n; ++v) {
                if (v != x && v != y && adj[at(side, v)]) nb.push_back(v);
            }
            const int m = static_cast<int>(nb.size());
            for (int level = 0; level <= std::min(maxAdjacency, m) && budget > 0; ++level) {
                pick.resize(level);
                for (int i = 0; i < level; ++i) pick[i] = i;
                do {
                    if (--budget < 0) break;
                    s.clear();
                    for (int i : pick) s.push_back(nb[i]);
                    if (tester.PValue(x, y, s) <= significance) continue;
                    ++separating;
                    for (size_t i = 0; i < common.size(); ++i) {
                        in[i] += std::find(s.begin(), s.end(), common[i]) != s.end();
                    }
                } while (NextSubset(pick, m));
            }
        }
        if (separating == 0 || budget < 0) continue;
        sepset.clear();
        for (size_t i = 0; i < common.size(); ++i) {
            if (2 * in[i] >= separating) sepset.push_back(common[i]);
        }
    }
}

void VEK_pc::Orient(const std::vector<char>& adj, const std::map<std::pair<int, int>, std::vector<int>>& sepsets,
                    const VEK_bkConstraints& bkc, VEK_pattern& p) {
    const int n = bkc.size;
    auto at = [n](int a, int b) { return static_cast<size_t>(a) * n + b; };
    static const std::vector<int> kNoSet;
    p.SetSize(n);
    for (int a = 0; a < n; ++a) {
        for (int b = a + 1; b < n; ++b) {
            if (!adj[at(a, b)]) continue;
            if (bkc.IsForced(a, b) || !bkc.Allows(b, a)) p.SetEdge(a, b, VEK_pattern::DIRECTED);
            else if (bkc.IsForced(b, a) || !bkc.Allows(a, b)) p.SetEdge(b, a, VEK_pattern::DIRECTED);
            else p.SetEdge(a, b, VEK_pattern::UNDIRECTED);
        }
    }
    auto undirected = [&](int a, int b) { return p.GetEdge(a, b) == VEK_pattern::UNDIRECTED; };
    auto directed = [&](int a, int b) { return p.GetEdge(a, b) == VEK_pattern::DIRECTED; };
    for (int z = 0; z < n; ++z) {
        for (int x = 0; x < n; ++x) {
            if (x == z || !p.IsAdjacent(x, z)) continue;
            for (int y = x + 1; y < n; ++y) {
                if (y == z || !p.IsAdjacent(y, z) || p.IsAdjacent(x, y)) continue;
                auto found = sepsets.find({x, y});
                const std::vector<int>& sep = found == sepsets.end() ? kNoSet : found->second;
                if (std::find(sep.begin(), sep.end(), z) != sep.end()) continue;
                // Keep orientations already fixed rather than flip them.
                if (undirected(x, z) && !directed(z, y)) p.OrientIfAcyclic(x, z);
                if (undirected(y, z) && !directed(z, x)) p.OrientIfAcyclic(y, z);
            }
        }
    }
    p.ApplyMeekRules();
}

double VEK_pc::ChiSquareTail(double x, double df) { return VEK_gammaQ(0.5 * df, 0.5 * x); }

int VEK_pc::CheckSettings(std::string* errorMessage) const {
    std::string text;
    if (!(significance > 0.0 && significance < 1.0)) text = "The significance level must be within 0..1, exclusive";
    else if (maxAdjacency < 0) text = "The adjacency limit can't be negative";
    else if (test != G_TEST && test != CHI_SQUARE) text = "Unknown independence test " + std::to_string(test);
    if (text.empty()) return VEK_OKAY;
    if (errorMessage) *errorMessage = text;
    return VEK_OUT_OF_RANGE;
}

int VEK_pc::Learn(const VEK_dataset& data, VEK_pattern& pattern, std::string* errorMessage) const {
    int res = CheckSettings(errorMessage);
    VEK_familyCounts counts;
    VEK_bkConstraints bkc;
    if (res == VEK_OKAY) res = Prepare(data, counts, bkc, errorMessage);
    if (res != VEK_OKAY) return res;
    std::vector<char> adj;
    std::map<std::pair<int, int>, std::vector<int>> sepset;
    Skeleton(counts, bkc, significance, maxAdjacency, test, adj, &sepset);
    MajorityRule(counts, adj, significance, maxAdjacency, test, sepset);
    VEK_pattern p;
    Orient(adj, sepset, bkc, p);
    pattern = std::move(p);
    return VEK_OKAY;
}
