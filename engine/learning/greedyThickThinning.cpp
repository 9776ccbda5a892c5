#include "learning/greedyThickThinning.h"

#include "learning/dagSearch.h"
#include "learning/structureFit.h"
#include "learning/structureScore.h"
#include "network/status.h"

int VEK_greedyThickThinning::Learn(const VEK_dataset& data, VEK_network& net, std::string* errorMessage) const {
    int res = CheckSettings(errorMessage);
    VEK_familyCounts counts;
    VEK_bkConstraints constraints;
    if (res == VEK_OKAY) res = Prepare(data, counts, constraints, errorMessage);
    if (res != VEK_OKAY) return res;
    RestrictCandidates(counts, constraints);
    VEK_structureScore score(counts, scoreType, ess);
    VEK_dagSearch search(score, constraints, maxParents);
    search.Start();
    search.Climb(VEK_dagSearch::ADD | VEK_dagSearch::REVERSE);
    search.Climb(VEK_dagSearch::REMOVE);
    return VEK_fitStructure(data, counts, search.Parents(), ess, net, errorMessage);
}
