// Exact belief updating for dynamic networks, linear in the number of time
// slices.
//
// The network is unrolled implicitly into variables (one per non-plate node,
// one per plate node and slice) whose tables are shared by reference between
// slices. The moral graph is triangulated by eliminating the variables in an
// order that follows time: anchor nodes, then slice after slice (within a
// slice the variable with the smallest clique first), then terminal and
// contemporal nodes. Each elimination makes one clique, whose parent is the
// clique of the first-eliminated variable of its separator; the cliques of a
// slice only reach the slices its temporal arcs span, so cliques, work and
// memory per slice are bounded by the interface between slices. One inward
// and one outward pass over that tree (messages kept normalised, the
// logarithm of the evidence probability summed on the way) give the
// beliefs of every variable.
#pragma once

#include <cstdint>
#include <vector>

class VEK_network;

class VEK_dbnSolver {
public:
    explicit VEK_dbnSolver(VEK_network& net) : net_(net) {}

    // Beliefs of every node in every slice into the nodes' values.
    [[nodiscard]] int UpdateBeliefs();
    // Natural logarithm of the probability of the evidence of the last run.
    double GetLogProbEvidence() const { return logPE_; }
    int GetCliqueCount() const { return static_cast<int>(order_.size()); }

private:
    struct Factor {
        int var;           // the variable the table is conditional for
        int first;         // scope in scope_[first .. first + count)
        int count;
        const double* table;
    };

    [[nodiscard]] int BuildVariables();
    [[nodiscard]] int BuildFactors();
    [[nodiscard]] int Triangulate();
    [[nodiscard]] int Propagate();
    void WriteBeliefs();
    int Var(int node, int slice) const;
    // Multiplies a table over scope into a clique's potential.
    void MultiplyIn(int clique, const int* scope, int count, const double* table);

    VEK_network& net_;
    int slices_ = 0;
    // Variables: node, slice (-1 outside the plate), states, evidence.
    std::vector<int> varNode_, varSlice_, varStates_, varEvidence_;
    std::vector<const std::vector<double>*> varVirtual_;
    std::vector<int> firstVar_;  // by handle: the node's variable (slice 0 for plate nodes)
    std::vector<int> plateIndex_;  // by handle, -1 outside the plate
    int plateCount_ = 0;

    std::vector<Factor> factors_;
    std::vector<int> scope_;
    std::vector<std::vector<double>> owned_;  // tables made here (none yet)

    // Cliques, one per variable, indexed by the variable; order_ is the
    // elimination order.
    std::vector<int> order_, position_;
    std::vector<int> cliqueFirst_, cliqueCount_;  // vars in cliqueVars_: separator ascending, own variable last
    std::vector<int> cliqueVars_;
    std::vector<int> parent_;
    std::vector<int64_t> potOffset_, msgOffset_;
    std::vector<double> pot_, msg_;
    double logPE_ = 0.0;
};
