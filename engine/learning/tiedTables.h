// A dynamic network unrolled for learning, and the tables its slices share.
// A plate node's ordinary definition is tied to its copy in slice 0 and in
// the slices that use it, its temporal definition of order k to its copies
// in every slice that uses order k; nodes outside the plate keep one table.
// Expected counts are taken on the unrolled network and folded into the
// shared tables, whose maximized values go back to every copy. Both EM on
// dynamic networks and the EM statistics of parts of the data run on this.
#pragma once

#include <string>
#include <vector>

#include "inference/randGen.h"
#include "learning/dataset.h"
#include "learning/datasetMatch.h"
#include "network/dmatrix.h"
#include "network/network.h"

class VEK_expectedCounts;
class VEK_logger;

// Whether any node has a temporal type.
bool VEK_emIsDynamic(const VEK_network& net);

class VEK_tiedTables {
public:
    // A table shared by the copies of one node: order 0 is the ordinary
    // definition, order k a plate node's temporal definition.
    struct Tied {
        int node;  // handle in the dynamic network
        int order;
        std::string id;  // the node's id there
        VEK_Dmatrix table, prior;
        std::vector<int> copies;  // handles in the unrolled network
    };

    // Unrolls a copy of net to slices slices (0: the network's own count),
    // without evidence or targets; the tables of the nodes not fixed (by
    // handle of net) are learnt, in handle order, each node's ordinary
    // definition before its temporal ones by first use. 0 or a status logged
    // to log.
    [[nodiscard]] int Init(const VEK_network& net, const std::vector<char>& fixed, int slices, bool relevance, VEK_logger& log);

    // The matching (nodes of the dynamic network with their slices) as one
    // of the unrolled network's nodes, checked as static EM checks columns.
    // 0 or a status logged to log.
    [[nodiscard]] int Flatten(const VEK_dataset& data, const std::vector<VEK_datasetMatch>& matching,
                std::vector<VEK_datasetMatch>& flat, VEK_logger& log);

    // out receives the sum of the counts of table i's copies.
    void Fold(const VEK_expectedCounts& counts, size_t i, double* out) const;
    // Turns counts (consumed) into table i, as the M-step of EM does, and
    // gives it to every copy.
    void Maximize(size_t i, double* counts, double ess);
    // Sets table i (or its prior) from size items.
    void Set(size_t i, const double* items, bool prior);
    // New start tables (random, or else uniform), which become the priors.
    void Restart(bool random, VEK_randGen& gen);
    // Writes the tables into net, whose nodes are found by id: all or none.
    [[nodiscard]] int Commit(VEK_network& net) const;

    const std::vector<Tied>& Tables() const { return tied_; }
    // By handle of the unrolled network: the copies of learnt tables.
    const std::vector<char>& Learnable() const { return learnable_; }
    VEK_network& Work() { return work_; }
    const VEK_network& Work() const { return work_; }
    int GetSliceCount() const { return slices_; }

private:
    void Publish(const Tied& t);
    // The copy of node in slice, -1 for none.
    int Unrolled(int node, int slice) const;

    VEK_network work_;
    int slices_ = 0;
    std::vector<Tied> tied_;
    std::vector<char> learnable_;
    static constexpr int kOutside = -1;  // a node outside the plate
    static constexpr int kNoNode = -2;
    std::vector<int> plateIndex_;  // by handle of the dynamic network
    std::vector<int> copy_;        // [plate index * slices + t]: the copy in slice t
};
