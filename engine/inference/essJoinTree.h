// The join tree that parameter learning builds over each sub-network of a
// relevance split: calibrated without writing beliefs, then read family by
// family for the expected counts of the current case.
#pragma once

#include <utility>
#include <vector>

#include "inference/tsJoinTree.h"
#include "network/dmatrix.h"
#include "network/intArray.h"

class VEK_network;

class VEK_essJoinTree : public TsJoinTree {
public:
    explicit VEK_essJoinTree(TsAdapter& adapter) : TsJoinTree(adapter) {}

    // Enters the adapter's tables and evidence and runs both passes. limit as
    // for UpdateBeliefs (-1: none). False when the tree cannot be built or
    // memory runs out.
    [[nodiscard]] bool Calibrate(int64_t limit = -1);

    // The first clique, in the tree's order, that holds every node of the
    // family (network handles); null when none does.
    TsClique* FindClique(const VEK_intArray& family) const;

    // The posterior joint of the node and its parents for the current case,
    // in the layout of the node's table (parents in order, the node last).
    // work receives it; counts, when it has the same size, has it added (an
    // empty counts becomes a copy). -2 for a node outside this tree, -3 when
    // no clique holds the family, -43 when the evidence is impossible.
    [[nodiscard]] int MarginalizePotential(VEK_network& net, int node, VEK_Dmatrix& work, VEK_Dmatrix& counts);
    // The same for a node without parents.
    [[nodiscard]] int MarginalizePotentialForParentlessNode(VEK_network& net, int node, VEK_Dmatrix& work, VEK_Dmatrix& counts);

    // Structure and storage, once. False when the tree cannot be built
    // within limit or does not fit in memory.
    [[nodiscard]] bool Compile(int64_t limit = -1);
    // For a tree calibrated case after case: every walk keeps its maps.
    void KeepMaps();

    // Reads one family's posterior case after case without allocating:
    // planned once on the compiled tree (the nodes observed at planning time
    // must stay observed, at any states), then read after each Calibrate.
    struct FamilyReader {
        const TsClique* clique = nullptr;
        TsOdometer odometer;  // the clique's potential onto joint
        std::vector<double> joint;  // over the family's unobserved nodes
        std::vector<int> scatter;   // joint entry -> item of the table
        std::vector<std::pair<int, int>> observed;  // (tree position, item stride)
    };
    // family: network handles in the order of the node's table (parents,
    // then the node). False when no clique holds the family.
    [[nodiscard]] bool PlanFamily(const VEK_intArray& family, FamilyReader& reader) const;
    // Adds weight times the family's posterior for the current case to
    // counts, laid out as the node's table. False when the case has
    // probability 0.
    [[nodiscard]] bool AddFamily(FamilyReader& reader, double weight, double* counts) const;

private:
    [[nodiscard]] int Family(VEK_network& net, int node, const VEK_intArray& family, VEK_Dmatrix& work, VEK_Dmatrix& counts);
    bool calibrated_ = false;
};
