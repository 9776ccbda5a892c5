// EM on dynamic networks. The network is unrolled to the slices the data
// covers and its expected counts are taken on the unrolled network, then
// folded into the tables the slices share: a plate node's ordinary
// definition gathers the counts of slice 0 and of the slices that use it,
// its temporal definition of order k those of every slice that uses order k.
// Nodes outside the plate keep one table. The matching names plate nodes
// with their slices; every other node is matched in slice 0.
#pragma once

#include <vector>

#include "inference/randGen.h"
#include "learning/dataset.h"
#include "learning/datasetMatch.h"
#include "learning/emStatistics.h"
#include "learning/expectedCounts.h"
#include "network/dmatrix.h"
#include "network/network.h"

class VEK_dynamicEm {
public:
    enum class Start { kAsTheyStand, kUniform, kRandom };

    // Unrolls a copy of net to slices slices (0: the network's own count)
    // and reads the records; fixed is by handle of net. 0 or a status logged
    // to net.
    int Init(const VEK_dataset& data, VEK_network& net, const std::vector<VEK_datasetMatch>& matching,
             const std::vector<char>& fixed, int slices, bool relevance);

    // New start tables for the learnt tables, which become their priors.
    void Restart(Start start, VEK_randGen& gen);
    // One E-step and M-step; ll receives the log-likelihood of the data
    // under the tables before the step. 0 or a status logged to log.
    int Iterate(double ess, VEK_logger& log, double& ll);
    // Writes the learnt tables into net (the network given to Init): all or
    // none.
    int Commit(VEK_network& net);

    // The slice count the network was unrolled to.
    int GetSliceCount() const { return slices_; }

private:
    // A table shared by the copies of one node: (node, order 0) is the
    // ordinary definition, (node, k) a plate node's temporal definition.
    struct Tied {
        int node;
        int order;
        VEK_Dmatrix table, prior;
        std::vector<int> copies;  // handles in the unrolled network
    };
    void Publish(const Tied& t);

    VEK_network work_;
    int slices_ = 0;
    std::vector<Tied> tied_;
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
// Whether any node has a temporal type.
bool VEK_emIsDynamic(const VEK_network& net);
int VEK_learnDynamic(const VEK_dynamicEmSettings& settings, const VEK_dataset& data, VEK_network& net,
                     const std::vector<VEK_datasetMatch>& matching, const std::vector<char>& fixed, double* score,
                     VEK_emProgress* progress);
