#include "learning/bayesianSearch.h"

#include <chrono>

#include "inference/randGen.h"
#include "learning/dagSearch.h"
#include "learning/structureFit.h"
#include "learning/structureScore.h"
#include "network/status.h"

int VEK_bayesianSearch::CheckSettings(std::string* errorMessage) const {
    const int res = VEK_scoreLearner::CheckSettings(errorMessage);
    if (res != VEK_OKAY) return res;
    std::string text;
    if (iterations < 1) text = "The iteration count must be at least 1";
    else if (!(linkProbability >= 0.0 && linkProbability <= 1.0)) text = "The link probability must be within 0..1";
    else if (!(timeLimit >= 0.0)) text = "The time limit can't be negative";
    if (text.empty()) return VEK_OKAY;
    if (errorMessage) *errorMessage = text;
    return VEK_OUT_OF_RANGE;
}

int VEK_bayesianSearch::Learn(const VEK_dataset& data, VEK_network& net, std::string* errorMessage,
                              double* lastScore) const {
    int res = CheckSettings(errorMessage);
    VEK_familyCounts counts;
    VEK_bkConstraints constraints;
    if (res == VEK_OKAY) res = Prepare(data, counts, constraints, errorMessage);
    if (res != VEK_OKAY) return res;
    const VEK_bkConstraints plain = constraints;
    RestrictCandidates(counts, constraints);
    using Clock = VEK_dagSearch::Clock;
    const Clock::time_point deadline =
        timeLimit > 0.0 ? Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                             std::chrono::duration<double>(timeLimit))
                        : Clock::time_point::max();
    const int all = VEK_dagSearch::ADD | VEK_dagSearch::REMOVE | VEK_dagSearch::REVERSE;
    VEK_structureScore score(counts, scoreType, ess);
    VEK_dagSearch search(score, constraints, maxParents);
    VEK_randGen gen(seed);
    search.Start();
    search.Climb(all, deadline);
    std::vector<std::vector<int>> best = search.Parents();
    double bestScore = search.Score();
    for (int i = 1; i < iterations && Clock::now() < deadline; ++i) {
        search.Start(&best);
        search.Perturb(linkProbability, gen);
        search.Climb(all, deadline);
        if (search.Score() > bestScore) {
            bestScore = search.Score();
            best = search.Parents();
        }
    }
    if (candidateSignificance > 0.0 && Clock::now() < deadline) {
        // The candidate arcs can miss what the data shows only jointly:
        // climbs over all arcs, from the best so far and from the forced
        // arcs, compete.
        VEK_dagSearch open(score, plain, maxParents);
        const std::vector<std::vector<int>> guided = best;
        for (int start = 0; start < 2 && Clock::now() < deadline; ++start) {
            if (start == 0) open.Start(&guided);
            else open.Start();
            open.Climb(all, deadline);
            if (open.Score() > bestScore) {
                bestScore = open.Score();
                best = open.Parents();
            }
        }
    }
    res = VEK_fitStructure(data, counts, best, ess, net, errorMessage);
    if (res == VEK_OKAY && lastScore) *lastScore = bestScore;
    return res;
}
