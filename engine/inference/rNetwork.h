// The reduced network of relevance reasoning: a private copy of the graph on
// which barren nodes are removed, evidence is absorbed into children and
// nuisance roots are summed out, and which is then split into independent
// sub-networks. The network's own tables are only read; a node whose table
// changes gets a reduced copy of its own.
#pragma once

#include <memory>
#include <vector>

#include "network/dmatrix.h"

class VEK_network;

// Marks of removed nodes.
constexpr int VEK_RMARK_NONE = 0;
constexpr int VEK_RMARK_NUISANCE = 10;
constexpr int VEK_RMARK_BARREN = 20;

// Bits of the split mask.
constexpr unsigned VEK_RSPLIT_COMPONENTS = 1;  // split into connected sub-networks
constexpr unsigned VEK_RSPLIT_PRUNE = 2;       // remove barren nodes and nuisance roots
constexpr unsigned VEK_RSPLIT_ABSORB = 4;      // absorb evidence into the children
// Noisy-MAX nodes whose table is too large (or that have more parents than
// the network's decomposition limit, when decomposition is enabled) become
// chains of small tables. Acted on whether relevance is enabled or not;
// callers that read a node's family from one clique leave it out.
constexpr unsigned VEK_RSPLIT_NOISY_CHAINS = 8;

class VEK_rNode {
public:
    // Handle in the full network; -1 for a node that stands for a summed-out
    // barren node (see Mark_Barren), whose beliefs are never computed.
    int handle = -1;
    // The network node this one comes from, for messages.
    int source = -1;
    // Observed state (hard or propagated evidence), -1 when none.
    int evidence = -1;
    int mark = VEK_RMARK_NONE;
    // The order of the parents is the order of the table's dimensions.
    std::vector<VEK_rNode*> parents;
    std::vector<VEK_rNode*> children;
    int numStates = 0;
    bool ownsTable = false;
    VEK_Dmatrix table;
    const VEK_Dmatrix* netTable = nullptr;
    // Virtual evidence is multiplied into the table's own dimension.
    bool softEvidence = false;
    bool target = false;
    // A link of the chain that stands for a decomposed noisy-MAX node (its
    // handle is -1, source the node's); its table sums to 1 like any other.
    bool link = false;
    int index = -1;
    // Position when the reduced network was first built; the relevance steps
    // keep it, so a node can be matched with its place in the whole network.
    int built = -1;

    const VEK_Dmatrix& Table() const { return ownsTable ? table : *netTable; }
    // The node's own copy of its table, made on first use.
    VEK_Dmatrix& WritableTable();
    bool HasEvidence() const { return evidence >= 0; }
    // Any evidence keeps a node out of barren and nuisance removal.
    bool IsObserved() const { return evidence >= 0 || softEvidence; }
    int ParentPosition(const VEK_rNode* p) const;
};

class VEK_rNetwork {
public:
    explicit VEK_rNetwork(VEK_network& net) : net_(&net) {}
    VEK_rNetwork(const VEK_rNetwork&) = delete;
    VEK_rNetwork& operator=(const VEK_rNetwork&) = delete;

    // One reduced node per network node, in handle order. Virtual evidence is
    // multiplied into the tables and controlled nodes lose their parents.
    // Negative status (logged) for a node without a usable table.
    [[nodiscard]] int Build(bool noisyChains = false);

    int GetNodeCount() const { return static_cast<int>(nodes_.size()); }
    VEK_rNode* GetNode(int i) const { return nodes_[i].get(); }
    VEK_network& Network() const { return *net_; }

    // Relevance steps. A barren node whose table's columns do not sum to 1
    // (within rounding) cannot simply go: the sums weigh its parents'
    // states. It is kept as a one-state node whose table holds those sums,
    // and its parents stay relevant.
    void Mark_Barren(VEK_rNode* node);
    int Delete_Marked_Nodes(int mark);
    void Clamp_Evidence();
    void Mark_Poly_Nuisance_Nodes();
    static void Marginalize(VEK_rNode* root, VEK_rNode* child);

    // Moves the nodes into connected sub-networks; this network is left empty.
    void Split(std::vector<VEK_rNetwork*>& out);
    // Moves all nodes into one sub-network.
    VEK_rNetwork* TakeAll();

    // Beliefs of the single node of a one-node sub-network, straight from its
    // table. Returns the sub-network's probability of evidence; 0 is reported
    // as a zero potential (counted in *zeroCounter when given).
    double Set_Prior_Beliefs(int* zeroCounter);

    int BarrenCount() const { return barren_; }

private:
    void RenumberNodes();

    VEK_network* net_;
    std::vector<std::unique_ptr<VEK_rNode>> nodes_;
    int barren_ = 0;
};

// Asked with the whole network, built and before any relevance step,
// whether the steps are to be skipped for this run.
class VEK_relevanceGate {
public:
    virtual bool KeepWhole(VEK_rNetwork& whole) = 0;

protected:
    ~VEK_relevanceGate() = default;
};

// Owns the sub-networks of one relevance split.
class VEK_rNetworkContainer {
public:
    VEK_rNetworkContainer() = default;
    ~VEK_rNetworkContainer();
    VEK_rNetworkContainer(const VEK_rNetworkContainer&) = delete;
    VEK_rNetworkContainer& operator=(const VEK_rNetworkContainer&) = delete;

    // Runs VEK_relevantSplit; false (with the status kept) when it fails or
    // throws.
    [[nodiscard]] bool DoRelevance(VEK_network& net, unsigned mask, VEK_relevanceGate* gate = nullptr);
    int GetCount() const { return static_cast<int>(nets_.size()); }
    VEK_rNetwork* GetAt(int i) const { return nets_[i]; }
    // Frees one sub-network (its slot stays, holding null).
    void DeleteAt(int i);
    int GetStatus() const { return status_; }
    // The split failed because some table has more entries than an int
    // counts (logged, status -42): no smaller run can help.
    bool TableTooLarge() const { return tableTooLarge_; }
    // Barren nodes go only when their columns sum to 1 within rounding, so
    // the product of the sub-networks' probabilities of evidence is the
    // network's.
    int BarrenCount() const { return barren_; }

private:
    std::vector<VEK_rNetwork*> nets_;
    int status_ = 0;
    int barren_ = 0;
    bool tableTooLarge_ = false;
};

// Builds the reduced network, applies the relevance steps that the mask and
// the network's relevance flag allow, and fills out with the sub-networks.
// Returns 0 or a negative status; barren receives the number of nodes removed
// as barren. A gate, when given and relevance is enabled, can keep the whole
// network as one sub-network.
[[nodiscard]] int VEK_relevantSplit(VEK_network& net, unsigned mask, std::vector<VEK_rNetwork*>& out, int* barren = nullptr,
                      VEK_relevanceGate* gate = nullptr);

// Logs -43 "All potential entries are zeros for node ..." for a node.
int VEK_reportZeroPotential(VEK_network& net, int handle);

// Gives an evidence node i of the reduced network, whose value no algorithm
// wrote, the belief vector of its observed state, marked valid.
void VEK_writeEvidenceBeliefs(const VEK_rNetwork& rnet, int i);
