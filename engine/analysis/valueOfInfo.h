// Value of information. With a decision node: the expected value of
// perfect information of observing each candidate chance node before the
// decision, sum over x of P(x | e) max_d EU(d | x, e) - max_d EU(d | e),
// the expected utilities coming from the network's own influence diagram
// solution. With a target node: the mutual information in bits between
// each candidate and the target under the current evidence, the expected
// reduction of the target's entropy. Also the value of observing all the
// candidates together.
#pragma once

#include <vector>

class VEK_network;

class VEK_valueOfInfo {
public:
    explicit VEK_valueOfInfo(VEK_network& net) : net_(&net) {}

    // -2 for an invalid handle; -51 unless a decision node (SetDecision) or
    // a node with a probability table (SetTarget, AddNode). Setting one
    // clears the other.
    [[nodiscard]] int SetDecision(int handle);
    [[nodiscard]] int SetTarget(int handle);
    // -2 for a node added twice.
    [[nodiscard]] int AddNode(int handle);
    const std::vector<int>& GetNodes() const { return nodes_; }

    // 0; -2 without a decision or target, without candidates, with a
    // candidate that is the target, a descendant of the decision or has
    // gone, or with too many joint configurations; -51 for a decision that
    // depends on unobserved nodes; -43 for impossible evidence.
    [[nodiscard]] int Update();
    const std::vector<double>& GetValues() const { return values_; }
    double GetJointValue() const { return joint_; }

private:
    [[nodiscard]] int CheckNodes();
    // Mutual information between the target and the nodes jointly.
    [[nodiscard]] int MutualInformation(const std::vector<int>& nodes, double& out);
    // Expected value of perfect information of the nodes jointly.
    [[nodiscard]] int PerfectInformation(const std::vector<int>& nodes, double& out);

    VEK_network* net_;
    int decision_ = -1;
    int target_ = -1;
    std::vector<int> nodes_;
    std::vector<double> values_;
    double joint_ = 0.0;
};
