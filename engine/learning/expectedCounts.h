// The E-step of EM: per case, the posterior of every learnable family,
// weighted and summed into one flat array of expected counts.
//
// The join tree of a sub-network is compiled once per run and reused for
// every case of every iteration. A node observed in every case is entered by
// instantiation (the tree leaves it out of its cliques); a node observed in
// some cases only stays in the tree and is observed by zeroing the other
// outcomes of its own table for the case. Where that tree is large against
// the work of building one, each case gets a tree of its own instead, from
// which all its observed nodes are left out. A sub-network whose nodes the
// case observes entirely needs no propagation, and neither does a family
// observed entirely.
#pragma once

#include <memory>
#include <vector>

#include "inference/essJoinTree.h"
#include "inference/rNetwork.h"

class VEK_network;
class TsAdapter;

class VEK_expectedCounts {
public:
    VEK_expectedCounts();
    ~VEK_expectedCounts();
    VEK_expectedCounts(const VEK_expectedCounts&) = delete;
    VEK_expectedCounts& operator=(const VEK_expectedCounts&) = delete;

    // work: the working network, without evidence or targets; its tables
    // are read again by every StartPass. matched: the node of each column of
    // a case; alwaysObserved: per column, whether every case observes it;
    // learnable: by handle. 0 or a logged status. Throws bad_alloc.
    [[nodiscard]] int Init(VEK_network& work, const std::vector<int>& matched, const std::vector<char>& alwaysObserved,
             const std::vector<char>& learnable);

    // Zeroes the counts and takes up the working network's current tables.
    void StartPass();

    // Adds the posteriors of one case (an outcome per column, -1 when
    // missing) times weight. pe receives the case's probability. 0, -43 for
    // a case of probability 0, -4 when that probability is not a number.
    [[nodiscard]] int AddCase(const int* values, double weight, double& pe);

    // The counts of a learnable node, laid out as its table.
    const double* Counts(int handle) const { return counts_.data() + nodes_[static_cast<size_t>(handle)].offset; }
    double* Counts(int handle) { return counts_.data() + nodes_[static_cast<size_t>(handle)].offset; }

private:
    enum Observation : unsigned char { kNever, kAlways, kSometimes };
    struct Node {
        int part = -1;
        VEK_rNode* rnode = nullptr;
        const VEK_Dmatrix* source = nullptr;  // the working network's table
        Observation observation = kNever;
        int lastState = -2;  // what its own table was last rewritten for
        bool learnable = false;
        size_t offset = 0;  // of its counts
        bool instantiate = false;  // observed by instantiation, not by its table
        int reader = -1;    // of its family in its part
        std::vector<int> parents;
    };
    struct Part;

    // Item of the node's table at the case's states (all observed).
    int FamilyItem(const Node& n, int handle) const;
    bool FamilyObserved(const Node& n, int handle) const;
    // Logs when the part's tree has no clique for the family.
    [[nodiscard]] bool PlanFamily(Part& part, int handle, VEK_essJoinTree::FamilyReader& reader);
    void EnterState(Node& n, int state);
    [[nodiscard]] int AddPart(Part& part, double weight, double& pe);

    VEK_network* work_ = nullptr;
    VEK_rNetworkContainer split_;
    std::vector<std::unique_ptr<Part>> parts_;
    std::vector<Node> nodes_;  // by handle
    std::vector<int> matched_;
    std::vector<int> state_;   // of the current case, by handle
    std::vector<double> counts_;
};
