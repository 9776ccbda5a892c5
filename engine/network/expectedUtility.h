// Value of a utility node: expected utilities over the indexing parents (one
// number when there are none).
#pragma once

#include "network/nodeVal.h"

// Smallest and largest items of a utility matrix, skipping undefined
// entries; false when no item is defined.
bool VEK_utilityRange(const VEK_Dmatrix& m, double& lo, double& hi);

// Maps the items from [lo, hi] onto [newLo, newHi]. When lo differs from hi
// the source range is first widened to cover the matrix's own items. An empty
// source range sets every item to newHi. Undefined entries stay as they are.
// -4, nothing changed, for a bound that is not a finite number.
[[nodiscard]] int VEK_normalizeUtilities(VEK_Dmatrix& m, double lo, double hi, double newLo, double newHi);

// Sizes an empty utility matrix to the value's indexing parents' outcome
// counts followed by a dimension of one; a matrix with items is left alone.
void VEK_sizeUtilityMatrix(VEK_Dmatrix& m, const VEK_nodeVal& val);

class VEK_expectedUtility : public VEK_nodeVal {
public:
    VEK_expectedUtility(VEK_network& net, int handle) : VEK_nodeVal(net, handle) {}
    // Utility nodes hold no evidence: nothing is taken over.
    VEK_expectedUtility(VEK_network& net, int handle, const VEK_valXformContext&) : VEK_nodeVal(net, handle) {}

    VEK_nodeVal* Clone(VEK_network& net) const override;
    int GetType() const override { return VEK_EXPECTEDUTILITY; }
    const VEK_Dmatrix* GetMatrix() const override { return &matrix_; }
    // An empty matrix is first sized to the indexing parents' outcome counts
    // followed by a dimension of one.
    VEK_Dmatrix* GetWriteableMatrix() override;

    // Over the defined items; 0 when there are none.
    double GetMinimumUtility() const;
    double GetMaximumUtility() const;
    [[nodiscard]] int NormalizeExpectedUtilities(double lo, double hi, double newLo, double newHi);

protected:
    void ResetResult() override { matrix_.Clear(); }

    VEK_Dmatrix matrix_;
};
