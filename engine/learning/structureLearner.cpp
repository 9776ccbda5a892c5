#include "learning/structureLearner.h"

#include <algorithm>
#include <map>

#include "learning/dataset.h"
#include "learning/pattern.h"
#include "learning/pc.h"
#include "learning/structureScore.h"
#include "network/status.h"

int VEK_structureLearner::Prepare(const VEK_dataset& data, VEK_familyCounts& counts, VEK_bkConstraints& constraints,
                                  std::string* errorMessage) const {
    int res = counts.Init(data, errorMessage);
    if (res == VEK_OKAY) res = bk.Resolve(data, constraints, errorMessage);
    return res;
}

int VEK_scoreLearner::CheckSettings(std::string* errorMessage) const {
    std::string text;
    if (VEK_structureScore::TypeName(scoreType)[0] == '\0') text = "Unknown score type " + std::to_string(scoreType);
    else if (!(ess > 0.0)) text = "The equivalent sample size must be positive";
    else if (maxParents < 0) text = "The parent limit can't be negative";
    else if (!(candidateSignificance >= 0.0 && candidateSignificance < 1.0)) {
        text = "The candidate significance level must be within 0..1";
    } else if (candidateAdjacency < 0) {
        text = "The candidate adjacency limit can't be negative";
    }
    if (text.empty()) return VEK_OKAY;
    if (errorMessage) *errorMessage = text;
    return VEK_OUT_OF_RANGE;
}

int VEK_classifierLearner::CheckSettings(std::string* errorMessage) const {
    if (ess >= 0.0) return VEK_OKAY;
    if (errorMessage) *errorMessage = "The equivalent sample size can't be negative";
    return VEK_OUT_OF_RANGE;
}

int VEK_classifierLearner::PrepareClass(const VEK_dataset& data, VEK_familyCounts& counts,
                                        VEK_bkConstraints& constraints, int& classColumn,
                                        std::string* errorMessage) const {
    const int res = CheckSettings(errorMessage);
    if (res != VEK_OKAY) return res;
    const int prepared = Prepare(data, counts, constraints, errorMessage);
    if (prepared != VEK_OKAY) return prepared;
    classColumn = classVariable.empty() ? VEK_NO_ITEM : data.FindVariable(classVariable.c_str());
    if (classColumn < 0) {
        if (errorMessage) *errorMessage = "The class variable '" + classVariable + "' is not in the data";
        return VEK_NO_ITEM;
    }
    return VEK_OKAY;
}

int VEK_classifierLearner::ApplyKnowledge(std::vector<std::vector<int>>& parents,
                                          const VEK_bkConstraints& constraints, const VEK_dataset& data,
                                          std::string* errorMessage) {
    const int n = constraints.size;
    auto has = [&](int u, int v) { return std::find(parents[v].begin(), parents[v].end(), u) != parents[v].end(); };
    for (int u = 0; u < n; ++u) {
        for (int v = 0; v < n; ++v) {
            if (constraints.IsForced(u, v) && !has(u, v)) parents[v].push_back(u);
        }
    }
    for (int v = 0; v < n; ++v) {
        for (int u : parents[v]) {
            if (!constraints.Allows(u, v)) {
                if (errorMessage) {
                    *errorMessage = "The background knowledge forbids the arc '" + std::string(data.GetId(u)) +
                                    "' -> '" + data.GetId(v) + "' that the classifier needs";
                }
                return VEK_INVALID_VALUE;
            }
        }
    }
    // Kahn's algorithm: a cycle leaves columns unplaced.
    std::vector<int> pending(n), ready;
    std::vector<std::vector<int>> children(n);
    for (int v = 0; v < n; ++v) {
        pending[v] = static_cast<int>(parents[v].size());
        for (int u : parents[v]) children[u].push_back(v);
        if (pending[v] == 0) ready.push_back(v);
    }
    int placed = 0;
    while (!ready.empty()) {
        const int v = ready.back();
        ready.pop_back();
        ++placed;
        for (int c : children[v]) {
            if (--pending[c] == 0) ready.push_back(c);
        }
    }
    if (placed < n) {
        if (errorMessage) *errorMessage = "The forced arcs form a cycle with the classifier's arcs";
        return VEK_CYCLE;
    }
    return VEK_OKAY;
}

void VEK_scoreLearner::RestrictCandidates(const VEK_familyCounts& counts, VEK_bkConstraints& constraints) const {
    if (candidateSignificance <= 0.0) return;
    std::vector<char> adj;
    std::map<std::pair<int, int>, std::vector<int>> sepsets;
    VEK_pc::Skeleton(counts, constraints, candidateSignificance, candidateAdjacency, VEK_pc::G_TEST, adj,
                     candidateOrientation ? &sepsets : nullptr);
    VEK_pattern oriented;
    if (candidateOrientation) VEK_pc::Orient(adj, sepsets, constraints, oriented);
    const int n = constraints.size;
    for (int a = 0; a < n; ++a) {
        for (int b = 0; b < n; ++b) {
            const size_t i = static_cast<size_t>(a) * n + b;
            if (a == b || constraints.forced[i]) continue;
            if (!adj[i] || (candidateOrientation && oriented.GetEdge(b, a) == VEK_pattern::DIRECTED)) {
                constraints.forbidden[i] = 1;
            }
        }
    }
}
