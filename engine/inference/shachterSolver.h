// Policy search over an influence diagram: every utility is first merged
// into one utility node over the union of the utility nodes' parents (MAU
// weights folded in), whose expected utility on the transformed copy decides
// the policy. The enumeration, the values written and the choices about
// decision order and indexing are those of the policy evaluation.
#pragma once

#include "inference/cooperSolver.h"
#include "network/dmatrix.h"

class VEK_ShachterSolver : public VEK_CooperSolver {
public:
    [[nodiscard]] int Solve(VEK_network* diagram);

    // A merged utility table larger than this is refused.
    static constexpr int kMaxMergedCells = 1 << 20;

protected:
    bool CanSolve();
    int FindAllDecisionNodes();
    [[nodiscard]] int ConsolidateMAUs();
    [[nodiscard]] int MergeUtilities();
    [[nodiscard]] int TransformIntoBN() override;

private:
    VEK_intArray mergedParents_;
    VEK_Dmatrix mergedTable_;
    // True when one utility table is the whole utility and needs no merge.
    bool single_ = false;
};
