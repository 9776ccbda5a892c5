// A troubleshooting session over a network whose nodes are marked as faults
// and observations: after each observation it reports how likely every
// fault is and ranks the tests not yet performed by what they are expected
// to tell about the pursued faults, weighed against their cost.
//
// The session keeps its own evidence. Each operation that needs beliefs
// lends itself the network: it records the caller's evidence, targets,
// algorithm and update mode, propagates with exact inference, and puts all
// of it back (beliefs that were valid are made valid again) before it
// returns. Errors are logged to the network's logger and returned as status
// codes; a failed operation leaves the session as it was.
#pragma once

#include <vector>

#include "diagnosis/diagMeasures.h"

class VEK_network;

struct VEK_diagFault {
    int index = -1;  // position in the session's fault list
    int node = -1;
    int outcome = -1;
    double probability = 0.0;
};

struct VEK_diagObservation {
    int node = -1;
    double measure = 0.0;
    double cost = 0.0;
    double score = 0.0;
};

struct VEK_diagResults {
    std::vector<VEK_diagFault> faults;              // most probable first
    std::vector<VEK_diagObservation> observations;  // best score first
};

class VEK_diagSession {
public:
    explicit VEK_diagSession(VEK_network& net) : net_(&net) {}

    // Collects the faults (the fault outcomes of fault nodes, in node and
    // outcome order) and the observation nodes; fails when either is missing.
    [[nodiscard]] int Open();

    const std::vector<VEK_diagFault>& GetFaults() const { return faults_; }
    // Fault probabilities given the session's observations, in fault order.
    [[nodiscard]] int GetFaultProbabilities(std::vector<double>& out);
    // Observation nodes that the ranking considers and that are not observed yet.
    void GetUnperformedTests(std::vector<int>& out) const;
    const std::vector<int>& GetObservationNodes() const { return observations_; }
    // The session's observed outcome of a node, or -1.
    int GetObservation(int node) const;

    [[nodiscard]] int InstantiateObservation(int node, int outcome);
    [[nodiscard]] int ReleaseObservation(int node);

    // Fault indices pursued by the measures; empty pursues the most probable
    // fault of each update.
    [[nodiscard]] int SetPursuedFault(int index);
    [[nodiscard]] int SetPursuedFaults(const std::vector<int>& indices);
    const std::vector<int>& GetPursuedFaults() const { return pursued_; }

    [[nodiscard]] int SetSingleFaultAlgorithm(int id);
    [[nodiscard]] int SetMultiFaultAlgorithm(int id);
    int GetSingleFaultAlgorithm() const { return single_; }
    int GetMultiFaultAlgorithm() const { return multi_; }

    // score = measure - weight * min(cost, maxCost) / maxCost.
    [[nodiscard]] int SetEntropyCostRatio(double weight, double maxCost);
    double GetCostWeight() const { return costWeight_; }
    double GetMaxCost() const { return maxCost_; }

    [[nodiscard]] int Update(VEK_diagResults& out);

private:
    struct Evidence {
        int node;
        int outcome;
    };
    class Lease;

    [[nodiscard]] int CheckNetwork() const;
    bool IsRankedTest(int node) const;
    [[nodiscard]] int Propagate(Lease& lease);
    double ExpectedCost(int node) const;
    [[nodiscard]] int FillOutlook(int test, const std::vector<double>& weights, const std::vector<int>& pursued, double pe,
                    VEK_diagOutlook& outlook);
    [[nodiscard]] int JointEventProbability(const std::vector<int>& pursued, int term, double& p);
    [[nodiscard]] int DependentEvent(const std::vector<int>& pursued, double pe, double& q);

    VEK_network* net_;
    std::vector<VEK_diagFault> faults_;  // probability unused here
    std::vector<int> observations_;
    bool anyRanked_ = false;
    std::vector<Evidence> evidence_;
    std::vector<int> pursued_;
    int single_ = VEK_DIAG_CROSSENTROPY;
    int multi_ = VEK_DIAG_INDEPENDENCE_AT_LEAST_ONE;
    double costWeight_ = 0.0;
    double maxCost_ = 1.0;
};
