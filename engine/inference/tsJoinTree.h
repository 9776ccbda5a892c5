// Exact inference on one connected sub-network by join-tree clustering:
// triangulation, host assignment, one collect and one distribute pass, and
// normalised beliefs written into the network's values.
//
// The structure (cliques, layouts of the potentials, odometers, storage) is
// built once and kept; a later run over a sub-network with the same
// structure key only re-enters the tables and evidence. Each clique's
// potential puts the separator towards its parent outermost, in the parent's
// order, so that every message is a contiguous block on the child's side and
// keeps the same relative order on the parent's side.
#pragma once

#include <cstdint>
#include <memory>
#include <new>
#include <stdexcept>
#include <vector>

#include "inference/tsClique.h"

class TsAdapter;

class TsJoinTree {
public:
    explicit TsJoinTree(TsAdapter& adapter);
    virtual ~TsJoinTree();
    TsJoinTree(const TsJoinTree&) = delete;
    TsJoinTree& operator=(const TsJoinTree&) = delete;

    // A tree taken from the cache is pointed at the adapter of the new run.
    void Rebind(TsAdapter& adapter) { adapter_ = &adapter; }

    // The whole run. pending (indexed by network handle, may be null) selects
    // the nodes to compute and is cleared for them; without it the targets
    // are computed. limit: bound on the summed clique sizes (0: 2^28, -1:
    // none). False when the tree cannot be built within the limit or memory
    // runs out.
    [[nodiscard]] bool UpdateBeliefs(bool* pending, int64_t limit);
    // Probability of evidence of the sub-network, -1.0 on failure.
    double CalcNormFactor();
    // Max-product mode: messages keep the largest entry instead of the sum,
    // so that CalcNormFactor returns the probability of the most probable
    // configuration with the evidence and every potential is left holding
    // its tables times its children's max-messages.
    void SetMaxProduct(bool on) { maxProduct_ = on; }
    bool IsMaxProduct() const { return maxProduct_; }

    // Builds the structure only (no storage); false as for UpdateBeliefs.
    [[nodiscard]] bool Prepare(int64_t limit);

    // Triangulates only and gives the elimination order (node positions).
    [[nodiscard]] bool EliminationOrder(int64_t limit, std::vector<int>& order);

    bool IsBuilt() const { return built_; }
    uint64_t GetTotalSize() const { return totalSize_; }
    // Probability of evidence found by the last collect pass.
    double GetProbEvidence() const { return probE_; }
    // Storage of the potentials and the walks' maps, in 8-byte entries.
    int64_t ArenaSize() const { return arenaSize_ + mapEntries_; }
    void ReleaseArena();
    // Cliques in sorted order (after the tree is built).
    const std::vector<TsClique*>& GetCliques() const { return cliques_; }
    TsClique* GetRoot() const { return root_; }
    TsAdapter& Adapter() const { return *adapter_; }

protected:
    // Triangulation, hosts and layouts, once. False on failure.
    [[nodiscard]] bool Build(int64_t limit);
    // Heuristic from "VEK_TRIANG_HEUR"; 0 picks the smallest of several
    // triangulations, starting with heuristic 1.
    [[nodiscard]] bool Triangulate(int64_t limit);
    [[nodiscard]] bool SearchTriangulation(uint64_t limit);
    void ConnectCliques();
    void FindHosts();
    void PlanLayouts();
    // The operands of every clique's collect and distribute walks.
    void PlanWalks();
    [[nodiscard]] bool AllocatePotentials();
    // Which nodes' marginals are wanted (pending marks or targets, when
    // beliefs is set) and which cliques the outward pass must reach (all
    // when calibrateAll is set).
    void SelectWork(bool* pending, bool beliefs, bool calibrateAll);
    void InitPotentials();
    void Collect();
    void Distribute();
    void CalcBeliefs(bool* pending);
    void ExportPotentials();
    void Cleanup();
    // work(), or failed after a cleanup when it runs out of memory (or asks
    // a vector for more than it can hold).
    template <class Work, class Result>
    Result OrCleanup(Work&& work, Result failed) {
        try {
            return work();
        } catch (const std::bad_alloc&) {
        } catch (const std::length_error&) {
        }
        Cleanup();
        return failed;
    }

    // One walk over the clique's potential: the collect pass forms it from
    // its tables and its children's messages and sums it onto its message;
    // the distribute pass multiplies in the ratio from its parent and sums
    // the fresh messages of its children and the marginals read from it.
    void RunPass(TsClique* c, bool collect);
    void UpdateParentPotential(TsClique* child);
    void UpdateFromParentPotential(TsClique* child);
    bool CanHost(const TsClique& c, int node);

    TsAdapter* adapter_;
    int nodeCount_ = 0;
    TsClique::Pool pool_;
    std::vector<TsClique*> cliques_;
    TsClique* root_ = nullptr;
    bool built_ = false;
    uint64_t totalSize_ = 0;
    std::vector<int> elimination_;
    // Children before parents; the root last.
    std::vector<TsClique*> postOrder_;
    // Per node: the clique (sorted position) its marginal is read from, and
    // where the marginal is summed (-1 for observed nodes).
    std::vector<int> beliefClique_;
    std::vector<int64_t> beliefOffset_;
    std::vector<double> marginals_;
    // Nodes in the order the beliefs pass visits them.
    std::vector<int> beliefOrder_;

    std::unique_ptr<double[]> arena_;
    int64_t arenaSize_ = 0;
    int64_t arenaNeeded_ = 0;
    // Per run: the nodes whose marginals are wanted and the cliques the
    // outward pass reaches (empty: all).
    std::vector<char> computeNode_;
    std::vector<char> need_;
    // Observed-slice offsets of the hosted tables, clique by clique, and
    // where each clique's entries start.
    std::vector<int64_t> hostBase_;
    std::vector<int> hostFirst_;
    int64_t mapEntries_ = 0;
    // Working space of RunPass.
    std::vector<const int64_t*> mapOf_;  // per operand: its kept map
    std::vector<double*> pointers_;
    std::vector<int64_t> offsets_;
    std::vector<unsigned char> active_;
    double rootTotal_ = 0.0;

    // Product of the messages that carry no dimension (separators made only
    // of evidence nodes, or empty ones), which the collect pass does not
    // multiply in.
    double scalarMessages_ = 1.0;
    double probE_ = 0.0;
    bool maxProduct_ = false;
};
