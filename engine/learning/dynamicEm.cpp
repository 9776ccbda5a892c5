#include "learning/dynamicEm.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

#include "learning/em.h"
#include "network/status.h"

int VEK_dynamicEm::Init(const VEK_dataset& data, VEK_network& net, const std::vector<VEK_datasetMatch>& matching,
                        const std::vector<char>& fixed, int slices, bool relevance) {
    VEK_logger& log = net.Logger();
    int res = tables_.Init(net, fixed, slices, relevance, log);
    if (res != VEK_OKAY) return res;
    std::vector<VEK_datasetMatch> flat;
    if ((res = tables_.Flatten(data, matching, flat, log)) != VEK_OKAY) return res;
    VEK_network& work = tables_.Work();
    if ((res = records_.Read(data, work, flat)) != VEK_OKAY) return log.LogError(res, work.Logger().GetLastErrorMessage());
    records_.Group();
    std::vector<int> matched;
    for (const VEK_datasetMatch& m : flat) matched.push_back(m.node);
    if ((res = counts_.Init(work, matched, records_.complete, tables_.Learnable())) != VEK_OKAY) {
        return log.LogError(res, work.Logger().GetLastErrorMessage());
    }
    return VEK_OKAY;
}

void VEK_dynamicEm::Restart(Start start, VEK_randGen& gen) {
    if (start != Start::kAsTheyStand) tables_.Restart(start == Start::kRandom, gen);
}

int VEK_dynamicEm::Iterate(double ess, VEK_logger& log, double& ll) {
    const int res = VEK_emPass(records_, counts_, log, tables_.Work().IsRelevanceEnabled(), ll);
    if (res != VEK_OKAY) return res;
    for (size_t i = 0; i < tables_.Tables().size(); ++i) {
        sum_.resize(static_cast<size_t>(tables_.Tables()[i].table.GetSize()));
        tables_.Fold(counts_, i, sum_.data());
        tables_.Maximize(i, sum_.data(), ess);
    }
    return VEK_OKAY;
}

// The restarts and the stopping rule of static EM, on the unrolled network.
int VEK_learnDynamic(const VEK_dynamicEmSettings& s, const VEK_dataset& data, VEK_network& net,
                     const std::vector<VEK_datasetMatch>& matching, const std::vector<char>& fixed, double* score,
                     VEK_emProgress* progress) {
    int slices = 0;
    if (s.autoSlices) {
        for (const VEK_datasetMatch& m : matching) slices = std::max(slices, m.slice + 1);
    }
    VEK_updateImmediateContext scope(net);
    VEK_dynamicEm em;
    int res = em.Init(data, net, matching, fixed, slices, s.relevance);
    if (res != VEK_OKAY) return res;
    VEK_randGen gen;
    gen.Init(static_cast<unsigned>(s.seed));
    double best = -std::numeric_limits<double>::infinity();
    auto run = [&]() {
        if (s.uniformize || s.randomize) {
            em.Restart(s.uniformize ? VEK_dynamicEm::Start::kUniform : VEK_dynamicEm::Start::kRandom, gen);
        }
        double previous = 0.0;
        double ll = 0.0;
        for (int iteration = 0;; ++iteration) {
            const int r = em.Iterate(s.ess, net.Logger(), ll);
            if (r != VEK_OKAY) return r;
            if (progress != nullptr && !progress->Tick(iteration, ll)) {
                return net.Logger().LogError(VEK_GENERAL_ERROR, "EM: cancelled");
            }
            if (ll == 0.0) break;
            if (previous != 0.0 && (previous / ll < 1.0001 || previous >= ll)) break;
            previous = ll;
        }
        if (std::isfinite(best) && ll <= best) return VEK_OKAY;
        const int r = em.Commit(net);
        if (r == VEK_OKAY) best = ll;
        return r;
    };
    if (!s.randomize) {
        res = run();
    } else if (s.timeLimit < 1) {
        for (int i = 0; i < s.restarts && res == VEK_OKAY; ++i) res = run();
    } else {
        const auto start = std::chrono::steady_clock::now();
        while ((res = run()) == VEK_OKAY) {
            auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
            if (elapsed.count() >= s.timeLimit) break;
        }
    }
    if (res == VEK_OKAY && score != nullptr) *score = best;
    return res;
}
