// The samplers' view of one reduced sub-network: states, parents, tables and
// evidence by position, the settings the samplers read, and the way back to
// the network's values. Owns nothing.
#pragma once

#include "inference/algorithmParams.h"
#include "network/dmatrix.h"

class VEK_network;
class VEK_randGen;
class VEK_rNetwork;

class SamplingAdapter {
public:
    explicit SamplingAdapter(VEK_rNetwork& net);

    int GetNodeCount() const;
    int GetStateCount(int i) const;
    int GetParentCount(int i) const;
    // Position of the node's k-th parent (the k-th dimension of its table).
    int GetParent(int i, int k) const;
    const VEK_Dmatrix& GetMatrix(int i) const;
    // Observed state, -1 when none. A barren node kept as the sums of its
    // columns has one state and counts as observed in it: it only weighs its
    // parents' states.
    int GetEvidence(int i) const;
    // Handle in the network, -1 for a node whose beliefs are not wanted.
    int GetNodeHandle(int i) const;

    int GetNumberOfSamples() const;
    const VEK_EPISParams& GetEPISParams() const;
    const VEK_LBPParams& GetLBPParams() const;
    VEK_randGen& GetRandGen() const;
    VEK_network& GetNetwork() const;

    // Writes a normalised distribution as the node's beliefs and marks them
    // valid.
    void SetBeliefs(int i, const double* beliefs);
    // An observed node's value holds its evidence vector.
    void EnsureEvidenceValue(int i);
    // Logs -43 for a node whose beliefs came out all zero.
    void ReportZeroPotential(int i);

private:
    VEK_rNetwork* net_;
};
