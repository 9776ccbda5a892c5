// CAST node: a baseline probability of the first outcome pushed up or down
// by each parent, through its positive weight when the parent is in its
// first outcome and its negative weight when in its second; weights in
// [-1, 1], a negative value pulling toward the second outcome.
#pragma once

#include "network/qualDef.h"

class VEK_cast : public VEK_qualDef {
public:
    // Baseline 0.5; a new parent has both weights 0.
    VEK_cast(VEK_network& net, int handle);
    explicit VEK_cast(const VEK_nodeXformContext& ctx);
    VEK_cast(const VEK_cast& other) = default;

    VEK_nodeDef* Clone(VEK_network& net) const override;
    int GetType() const override { return VEK_CAST; }
    const char* GetTypeName() const override { return "CAST"; }

    double GetBaseline() const { return GetPriorValue(); }
    // In [0, 1]; -2 otherwise.
    [[nodiscard]] int SetBaseline(double baseline) { return SetPriorChecked(baseline); }
    [[nodiscard]] int SetPositiveWeights(const VEK_doubleArray& weights) { return SetSlotChecked(0, weights); }
    [[nodiscard]] int SetNegativeWeights(const VEK_doubleArray& weights) { return SetSlotChecked(1, weights); }
    // -2 for a bad index.
    [[nodiscard]] int GetWeight(int parentIndex, bool positive, double& weight) const;
    [[nodiscard]] int SetWeight(int parentIndex, bool positive, double weight) {
        return SetWeightChecked(positive ? 0 : 1, parentIndex, weight);
    }

    double CalculateProbability(const VEK_intArray& coordinates) const override;

protected:
    // The products N and P follow the odometer like noisy-MAX's prefixes.
    void FillProbabilities(double* q) const override;
    bool IsValidWeight(int slot, double weight) const override;
};
