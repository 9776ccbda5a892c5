#include "learning/naiveBayes.h"

#include <vector>

#include "learning/structureFit.h"
#include "network/status.h"

int VEK_naiveBayes::Learn(const VEK_dataset& data, VEK_network& net, std::string* errorMessage) const {
    VEK_familyCounts counts;
    VEK_bkConstraints bkc;
    int cls = -1;
    int res = PrepareClass(data, counts, bkc, cls, errorMessage);
    if (res != VEK_OKAY) return res;
    std::vector<std::vector<int>> parents(counts.GetColumnCount());
    for (int v = 0; v < counts.GetColumnCount(); ++v) {
        if (v != cls) parents[v].push_back(cls);
    }
    res = ApplyKnowledge(parents, bkc, data, errorMessage);
    if (res != VEK_OKAY) return res;
    return VEK_fitStructure(data, counts, parents, ess, net, errorMessage);
}
