#include "learning/dagSearch.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "inference/randGen.h"
#include "learning/familyCounts.h"
#include "learning/structureScore.h"

namespace {

constexpr double kNone = -std::numeric_limits<double>::infinity();
// Score changes below this are rounding noise, not improvements.
constexpr double kMinGain = 1e-9;

}  // namespace

VEK_dagSearch::VEK_dagSearch(VEK_structureScore& score, const VEK_bkConstraints& bk, int maxParents)
    : score_(score), counts_(score.Counts()), bk_(bk), n_(score.Counts().GetColumnCount()), maxParents_(maxParents),
      words_((n_ + 63) / 64) {}

bool VEK_dagSearch::HasArc(int u, int v) const {
    const std::vector<int>& p = parents_[v];
    return std::find(p.begin(), p.end(), u) != p.end();
}

void VEK_dagSearch::Start(const std::vector<std::vector<int>>* parents) {
    parents_.assign(n_, {});
    if (parents) {
        parents_ = *parents;
    } else {
        for (int u = 0; u < n_; ++u) {
            for (int v = 0; v < n_; ++v) {
                if (bk_.IsForced(u, v)) parents_[v].push_back(u);
            }
        }
    }
    local_.assign(n_, 0.0);
    addDelta_.assign(static_cast<size_t>(n_) * n_, kNone);
    removeDelta_.assign(static_cast<size_t>(n_) * n_, kNone);
    for (int v = 0; v < n_; ++v) Refresh(v);
    UpdateReach();
}

void VEK_dagSearch::Refresh(int child) {
    const std::vector<int>& pa = parents_[child];
    local_[child] = score_.Family(child, pa);
    const int np = static_cast<int>(pa.size());
    const long long q = counts_.ConfigCount(pa.data(), np, score_.TableLimit());
    bool indexed = false;
    for (int u = 0; u < n_; ++u) {
        double& add = addDelta_[static_cast<size_t>(u) * n_ + child];
        double& rem = removeDelta_[static_cast<size_t>(u) * n_ + child];
        add = rem = kNone;
        if (u == child) continue;
        if (HasArc(u, child)) {
            if (bk_.IsForced(u, child)) continue;
            std::vector<int> less;
            for (int p : pa) {
                if (p != u) less.push_back(p);
            }
            rem = score_.Family(child, less) - local_[child];
        } else if (np < maxParents_ && q > 0 && bk_.Allows(u, child)) {
            double value = 0.0;
            if (!score_.Cached(child, pa, u, value)) {
                if (!indexed) {
                    counts_.ConfigIndex(pa.data(), np, index_);
                    indexed = true;
                }
                value = score_.FamilyPlus(child, pa, index_, static_cast<int>(q), u);
            }
            add = value - local_[child];
        }
    }
}

void VEK_dagSearch::UpdateReach() {
    // Rows in reverse topological order: a node reaches its children and
    // whatever they reach.
    reach_.assign(static_cast<size_t>(n_) * words_, 0);
    std::vector<std::vector<int>> children(n_);
    std::vector<int> pending(n_, 0);
    for (int v = 0; v < n_; ++v) {
        for (int p : parents_[v]) children[p].push_back(v);
    }
    std::vector<int> order;
    for (int v = 0; v < n_; ++v) {
        pending[v] = static_cast<int>(children[v].size());
        if (pending[v] == 0) order.push_back(v);
    }
    for (size_t i = 0; i < order.size(); ++i) {
        const int v = order[i];
        std::uint64_t* row = &reach_[static_cast<size_t>(v) * words_];
        for (int c : children[v]) {
            row[c >> 6] |= std::uint64_t{1} << (c & 63);
            const std::uint64_t* sub = &reach_[static_cast<size_t>(c) * words_];
            for (int w = 0; w < words_; ++w) row[w] |= sub[w];
        }
        for (int p : parents_[v]) {
            if (--pending[p] == 0) order.push_back(p);
        }
    }
}

void VEK_dagSearch::AddArc(int u, int v) {
    parents_[v].push_back(u);
    Refresh(v);
}

void VEK_dagSearch::RemoveArc(int u, int v) {
    std::vector<int>& p = parents_[v];
    p.erase(std::find(p.begin(), p.end(), u));
    Refresh(v);
}

int VEK_dagSearch::Climb(int moves, Clock::time_point deadline) {
    int made = 0;
    for (;;) {
        if (deadline != Clock::time_point::max() && Clock::now() >= deadline) break;
        double best = kMinGain;
        int kind = 0, bu = -1, bv = -1;
        for (int v = 0; v < n_; ++v) {
            const bool room = static_cast<int>(parents_[v].size()) < maxParents_;
            for (int u = 0; u < n_; ++u) {
                const size_t uv = static_cast<size_t>(u) * n_ + v;
                if (moves & ADD) {
                    const double d = addDelta_[uv];
                    if (d > best && room && !HasArc(v, u) && !Reaches(v, u)) {
                        best = d, kind = ADD, bu = u, bv = v;
                    }
                }
                const double rem = removeDelta_[uv];
                if (rem == kNone) continue;
                if ((moves & REMOVE) && rem > best) best = rem, kind = REMOVE, bu = u, bv = v;
                if (moves & REVERSE) {
                    const double add = addDelta_[static_cast<size_t>(v) * n_ + u];
                    if (add == kNone || rem + add <= best) continue;
                    // Reversing u -> v closes a cycle when u reaches v by
                    // another path, that is through another child.
                    bool cycle = false;
                    for (int w = 0; w < n_ && !cycle; ++w) {
                        if (w != v && HasArc(u, w) && Reaches(w, v)) cycle = true;
                    }
                    if (!cycle) best = rem + add, kind = REVERSE, bu = u, bv = v;
                }
            }
        }
        if (kind == 0) break;
        if (kind == ADD) {
            AddArc(bu, bv);
        } else if (kind == REMOVE) {
            RemoveArc(bu, bv);
        } else {
            RemoveArc(bu, bv);
            AddArc(bv, bu);
        }
        UpdateReach();
        ++made;
    }
    return made;
}

void VEK_dagSearch::Perturb(double probability, VEK_randGen& gen) {
    if (probability <= 0.0) return;
    std::vector<int> touched;
    for (int u = 0; u < n_; ++u) {
        for (int v = 0; v < n_; ++v) {
            if (u == v || gen.GetDouble() >= probability) continue;
            if (HasArc(u, v)) {
                if (bk_.IsForced(u, v)) continue;
                std::vector<int>& p = parents_[v];
                p.erase(std::find(p.begin(), p.end(), u));
            } else {
                if (HasArc(v, u) || !bk_.Allows(u, v) || static_cast<int>(parents_[v].size()) >= maxParents_ ||
                    Reaches(v, u)) {
                    continue;
                }
                parents_[v].push_back(u);
            }
            touched.push_back(v);
            UpdateReach();
        }
    }
    std::sort(touched.begin(), touched.end());
    touched.erase(std::unique(touched.begin(), touched.end()), touched.end());
    for (int v : touched) Refresh(v);
}

double VEK_dagSearch::Score() const {
    double s = 0.0;
    for (double x : local_) s += x;
    return s;
}
