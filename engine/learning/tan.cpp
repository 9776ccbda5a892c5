#include "learning/tan.h"

#include <cmath>
#include <limits>
#include <vector>

#include "learning/structureFit.h"
#include "network/status.h"

int VEK_tan::Learn(const VEK_dataset& data, VEK_network& net, std::string* errorMessage) const {
    VEK_familyCounts counts;
    VEK_bkConstraints bkc;
    int cls = -1;
    int res = PrepareClass(data, counts, bkc, cls, errorMessage);
    if (res != VEK_OKAY) return res;
    const int n = counts.GetColumnCount();
    const int rc = counts.GetStateCount(cls);
    const double total = counts.GetRecordCount();
    // Conditional mutual information I(a; b | class) from the counts of b
    // given (class, a), [(c * ra + a) * rb + b].
    std::vector<double> weight(static_cast<size_t>(n) * n, -1.0);
    std::vector<int> index, cells;
    counts.ConfigIndex(&cls, 1, index);
    for (int a = 0; a < n; ++a) {
        if (a == cls) continue;
        const int ra = counts.GetStateCount(a);
        for (int b = a + 1; b < n; ++b) {
            if (b == cls || (!bkc.Allows(a, b) && !bkc.Allows(b, a))) continue;
            const int rb = counts.GetStateCount(b);
            counts.CountIndexed(b, index, rc, a, cells);
            double mi = 0.0;
            std::vector<double> na(ra), nb(rb);
            for (int c = 0; c < rc; ++c) {
                const int* t = cells.data() + static_cast<size_t>(c) * ra * rb;
                double nc = 0.0;
                std::fill(na.begin(), na.end(), 0.0);
                std::fill(nb.begin(), nb.end(), 0.0);
                for (int i = 0; i < ra; ++i) {
                    for (int j = 0; j < rb; ++j) {
                        na[i] += t[i * rb + j];
                        nb[j] += t[i * rb + j];
                        nc += t[i * rb + j];
                    }
                }
                for (int i = 0; i < ra; ++i) {
                    for (int j = 0; j < rb; ++j) {
                        const double x = t[i * rb + j];
                        if (x > 0) mi += x / total * std::log(x * nc / (na[i] * nb[j]));
                    }
                }
            }
            weight[static_cast<size_t>(a) * n + b] = weight[static_cast<size_t>(b) * n + a] = mi;
        }
    }
    // Prim's algorithm, starting a new tree whenever none of the remaining
    // columns can be joined.
    std::vector<std::vector<int>> parents(n);
    std::vector<char> inTree(n, 0);
    std::vector<double> best(n, -std::numeric_limits<double>::infinity());
    std::vector<int> from(n, -1);
    inTree[cls] = 1;
    for (int added = 1; added < n; ++added) {
        int pick = -1;
        for (int v = 0; v < n; ++v) {
            if (!inTree[v] && (pick < 0 || best[v] > best[pick])) pick = v;
        }
        inTree[pick] = 1;
        if (from[pick] >= 0) parents[pick].push_back(from[pick]);
        parents[pick].insert(parents[pick].begin(), cls);
        for (int v = 0; v < n; ++v) {
            const double w = weight[static_cast<size_t>(pick) * n + v];
            if (!inTree[v] && w >= 0.0 && w > best[v]) best[v] = w, from[v] = pick;
        }
    }
    res = ApplyKnowledge(parents, bkc, data, errorMessage);
    if (res != VEK_OKAY) return res;
    return VEK_fitStructure(data, counts, parents, ess, net, errorMessage);
}
