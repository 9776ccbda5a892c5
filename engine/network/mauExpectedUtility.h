// Value of a multi-attribute utility node: expected utilities over the
// indexing parents, combined from the parents' expected utilities. Kept like
// a utility node's value; only the combination is its own.
#pragma once

#include "network/expectedUtility.h"

class VEK_mauExpectedUtility : public VEK_expectedUtility {
public:
    using VEK_expectedUtility::VEK_expectedUtility;

    VEK_nodeVal* Clone(VEK_network& net) const override;
    int GetType() const override { return VEK_MAUEXPECTEDUTILITY; }

    // Combines the parents' expected utilities through the definition's
    // expressions; needs the expression evaluator, so it is refused (-51)
    // and the matrix is left as it is.
    [[nodiscard]] int CalculateMAU();
};
