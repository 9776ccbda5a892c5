// Policy evaluation of influence diagrams: the diagram is copied, its
// utility nodes become two-outcome chance nodes whose first outcome has the
// probability of the normalised utility, its decisions become uniform root
// chance nodes, and Bayesian inference on that copy gives the expected
// utilities for every combination of the undecided decisions and the
// observations made before them.
//
// Choices made here:
// - Decisions are taken in the order of the diagram's partial (topological)
//   order; each decision knows everything an earlier one knew (no
//   forgetting), so consecutive decisions are linked implicitly. Nothing is
//   added to the diagram itself.
// - The enumerated combinations cover, in that order, for each decision the
//   unobserved chance parents it sees first and then the decision itself when
//   it has no evidence (a decision with evidence is a choice already made).
// - The value of a decision without evidence is indexed by the variables of
//   that list that come before it; its expected utilities assume that every
//   later undecided decision is taken optimally (largest expected global
//   utility, the first option on ties).
// - A utility or MAU node's value is indexed by the undecided decisions: its
//   expected utility for each combination of them given the evidence.
// - A chance node's beliefs (no indexing) are those given the evidence when
//   every undecided decision follows the optimal policy.
// - The global utility is the only utility or MAU node that feeds no MAU
//   node; when there are several such nodes their sum is used, kept by the
//   solver rather than added to the diagram.
// - Combinations that the evidence rules out hold the undefined-value marker.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "equations/mauExpressions.h"
#include "network/intArray.h"
#include "network/logger.h"

class VEK_network;
class VEK_Dmatrix;

// Drops the indexing parents, and with them the computed values, of every
// node of the network before an influence diagram is solved.
void VEK_initializeNodeValues(VEK_network& net);

// The indexing parents of every value, so that a solve that fails can put
// them back as they were (the values themselves stay invalid).
class VEK_indexingSnapshot {
public:
    explicit VEK_indexingSnapshot(const VEK_network& net);
    void Restore(VEK_network& net) const;

private:
    std::vector<std::vector<int>> parents_;
};

class VEK_CooperSolver {
public:
    VEK_CooperSolver();
    virtual ~VEK_CooperSolver();
    VEK_CooperSolver(const VEK_CooperSolver&) = delete;
    VEK_CooperSolver& operator=(const VEK_CooperSolver&) = delete;

    [[nodiscard]] int Solve(VEK_network* diagram);

protected:
    // Observers of the run (sensitivity analysis); nothing here.
    virtual void AfterBNCreated() {}
    virtual void BeforeBNInference(bool) {}
    virtual void AfterBNInference(bool) {}

    [[nodiscard]] int FindGlobalUtility();
    int FindAllUtilityNodes();
    int FindAllPossibleIndexingParents();
    [[nodiscard]] int LinkDecisionNodes();
    [[nodiscard]] int SetAllIndexingParents();
    [[nodiscard]] int PruneIrrelevantParts();
    [[nodiscard]] virtual int TransformIntoBN();
    [[nodiscard]] int PerformBNInference(bool first);
    [[nodiscard]] int CalcExpectedUtilities(int globalNode);
    int UpdateNode(int handle);
    int UpdateValues();
    int UpdateLeftNodes();
    [[nodiscard]] int DeNormalizeUtilityNodes();
    int CalculateMAUNodes();
    int PropagateHighestUtilities();
    int SolveDecisionTree();
    int SetUpdatedMarks();
    int InvalidateDecisions();

    // Steps shared with the policy search.
    int CopyDiagram();
    [[nodiscard]] int TransformUtility(int handle);
    // Runs a solver's steps on the diagram with its update-immediately flag
    // cleared (and put back on every way out), turning an exception into a
    // logged failure with the solver's message.
    [[nodiscard]] int RunSolve(VEK_network* diagram, const char* failure, const std::function<int()>& steps);
    [[nodiscard]] int Evaluate(const char* failure);
    // The utility of the combination of outcomes given by stateOf (-1: not
    // known) from the values of the utility nodes in values (by handle).
    double CombineUtilities(std::vector<double>& values, const std::vector<int>& stateOf) const;
    // Parses the MAU nodes' expressions (before CombineUtilities uses them).
    [[nodiscard]] int CompileMauExpressions();

    VEK_network* diagram_ = nullptr;
    std::unique_ptr<VEK_network> bn_;
    VEK_intArray utilityNodes_;   // utility tables, partial order
    VEK_intArray mauNodes_;       // MAU nodes, partial order
    std::vector<VEK_mauExpressions> mauExpressions_;  // per MAU node, when it has any
    VEK_intArray terminalNodes_;  // utility or MAU nodes that feed no MAU node
    int globalUtility_ = -1;
    bool globalAdded_ = false;
    bool decisionTree_ = false;
    // Utility node of the copy whose expected utility is the global one
    // (policy search); -1 when the global utility is combined from the
    // utility nodes.
    int mergedNode_ = -1;
    double mergedLo_ = 0.0;
    double mergedHi_ = 0.0;

    // Decisions in order, and the enumerated variables.
    VEK_intArray decisions_;
    VEK_intArray vars_;
    std::vector<int> varSizes_;
    std::vector<bool> varIsDecision_;
    VEK_intArray undecided_;
    int combinations_ = 1;

    // Per combination: weight P(evidence, observations | decisions), the
    // utilities of the utility and MAU nodes (by node index), the global
    // utility, and the chance nodes' beliefs.
    std::vector<double> weight_;
    std::vector<std::vector<double>> utilities_;  // [combination][handle]
    std::vector<double> global_;
    std::vector<std::vector<double>> beliefs_;  // [combination] concatenated
    VEK_intArray chanceNodes_;                  // nodes whose beliefs are kept
    std::vector<std::vector<double>> likelihood_;  // soft evidence of each variable
    std::vector<int> beliefOffset_;
    // Backward induction results: per level the weights, values and choices.
    std::vector<std::vector<double>> levelW_;
    std::vector<std::vector<double>> levelV_;
    std::vector<std::vector<int>> levelChoice_;
    std::vector<double> reach_;

private:
    [[nodiscard]] int EnumerateOne(int combination, VEK_logger& scratch, bool& possible);
    void WriteAggregated(int handle, const std::vector<double>& perCombination);
    int DecisionIndex(const VEK_intArray& coords) const;
};
