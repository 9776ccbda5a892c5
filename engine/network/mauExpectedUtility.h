// Value of a multi-attribute utility node: expected utilities over the
// indexing parents, combined from the parents' expected utilities.
#pragma once

#include "network/nodeVal.h"

class VEK_mauExpectedUtility : public VEK_nodeVal {
public:
    VEK_mauExpectedUtility(VEK_network& net, int handle) : VEK_nodeVal(net, handle) {}
    VEK_mauExpectedUtility(VEK_network& net, int handle, const VEK_valXformContext&) : VEK_nodeVal(net, handle) {}

    VEK_nodeVal* Clone(VEK_network& net) const override;
    int GetType() const override { return VEK_MAUEXPECTEDUTILITY; }
    const VEK_Dmatrix* GetMatrix() const override { return &matrix_; }
    // An empty matrix is first sized to the indexing parents' outcome counts
    // followed by a dimension of one.
    VEK_Dmatrix* GetWriteableMatrix() override;

    // Over the defined items; 0 when there are none.
    double GetMinimumUtility() const;
    double GetMaximumUtility() const;
    int NormalizeExpectedUtilities(double lo, double hi, double newLo, double newHi);

    // Combines the parents' expected utilities through the definition's
    // expressions; needs the expression evaluator, so it is refused (-51)
    // and the matrix is left as it is.
    int CalculateMAU();

protected:
    void ResetResult() override { matrix_.Clear(); }

private:
    VEK_Dmatrix matrix_;
};
