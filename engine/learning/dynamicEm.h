// EM on dynamic networks: the expected counts of the network unrolled to
// the slices the data covers, folded into the tables the slices share (see
// VEK_tiedTables). The matching names plate nodes with their slices; every
// other node is matched in slice 0.
#pragma once

#include <vector>

#include "inference/randGen.h"
#include "learning/dataset.h"
#include "learning/datasetMatch.h"
#include "learning/emStatistics.h"
#include "learning/expectedCounts.h"
#include "learning/tiedTables.h"
#include "network/network.h"

class VEK_dynamicEm {
public:
    enum class Start { kAsTheyStand, kUniform, kRandom };

    // Unrolls a copy of net to slices slices (0: the network's own count)
    // and reads the records; fixed is by handle of net. 0 or a status logged
    // to net.
    [[nodiscard]] int Init(const VEK_dataset& data, VEK_network& net, const std::vector<VEK_datasetMatch>& matching,
             const std::vector<char>& fixed, int slices, bool relevance);

    // New start tables for the learnt tables, which become their priors.
    void Restart(Start start, VEK_randGen& gen);
    // One E-step and M-step; ll receives the log-likelihood of the data
    // under the tables before the step. 0 or a status logged to log.
    [[nodiscard]] int Iterate(double ess, VEK_logger& log, double& ll);
    // Writes the learnt tables into net (the network given to Init): all or
    // none.
    [[nodiscard]] int Commit(VEK_network& net) { return tables_.Commit(net); }

    // The slice count the network was unrolled to.
    int GetSliceCount() const { return tables_.GetSliceCount(); }

private:
    VEK_tiedTables tables_;
    VEK_emRecords records_;
    VEK_expectedCounts counts_;
    std::vector<double> sum_;
};

// The dynamic branch of VEK_em::Learn, with its settings.
struct VEK_dynamicEmSettings {
    float ess = 0.0f;
    bool uniformize = false;
    bool randomize = false;
    int seed = 0;
    int restarts = 1;
    int timeLimit = 0;
    bool relevance = true;
    bool autoSlices = false;
};

class VEK_emProgress;
[[nodiscard]] int VEK_learnDynamic(const VEK_dynamicEmSettings& settings, const VEK_dataset& data, VEK_network& net,
                     const std::vector<VEK_datasetMatch>& matching, const std::vector<char>& fixed, double* score,
                     VEK_emProgress* progress);
