// Sensitivity of posteriors to the parameters of the network's tables: the
// derivative of P(target = k | evidence) with respect to every entry
// theta(x|u) of every chance node's table, the other entries of the column
// varied proportionally, theta(x'|u) * (1 - theta(x|u)') / (1 - theta(x|u)).
//
// P(y) for y = (evidence, target = k) is linear in each entry, and its
// partial derivative is the sum of the products of every other factor: one
// collect pass of the join tree per target outcome and one outward pass of
// messages that leave each table out in turn give every partial at once,
// without dividing by entries that may be zero.
#pragma once

#include <vector>

class VEK_network;

struct VEK_nodeSensitivity {
    int target = -1;
    int node = -1;
    // Target outcome slowest, then the node's table order.
    std::vector<double> derivatives;
    double maxAbsDerivative = 0.0;
};

// Targets are the network's targets, or every node when none is set; the
// parameter nodes are the nodes with probability or truth tables, in handle
// order. 0, -43 for impossible evidence, -42 when a tree does not fit, or
// the status of a network that cannot be updated.
[[nodiscard]] int VEK_calcSensitivity(VEK_network& net, std::vector<VEK_nodeSensitivity>& out);
