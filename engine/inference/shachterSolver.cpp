#include "inference/shachterSolver.h"

#include <algorithm>

#include "network/expectedUtility.h"
#include "network/mau.h"
#include "network/network.h"
#include "network/nodeDef.h"
#include "network/nodeVal.h"

int VEK_ShachterSolver::Solve(VEK_network* diagram) {
    const char* failure = "Error when running SHACHTER's algorithm";
    return RunSolve(diagram, failure, [this, failure] {
        if (!CanSolve()) {
            return diagram_->Logger().LogError(VEK_NO_ITEM, "Utilities not specified. Policies cannot be evaluated");
        }
        int res;
        if ((res = FindAllDecisionNodes()) < 0) return res;
        if ((res = FindAllUtilityNodes()) < 0) return res;
        if ((res = ConsolidateMAUs()) < 0) return res;
        if ((res = CompileMauExpressions()) < 0) return res;
        if ((res = MergeUtilities()) < 0) return res;
        if ((res = LinkDecisionNodes()) < 0) return res;
        if ((res = FindAllPossibleIndexingParents()) < 0) return res;
        if ((res = CopyDiagram()) < 0) return res;
        if ((res = SetAllIndexingParents()) < 0) return res;
        if ((res = PruneIrrelevantParts()) < 0) return res;
        if ((res = TransformIntoBN()) < 0) return res;
        return Evaluate(failure);
    });
}

// Solvable when there is some utility to merge; whether the merge fits is
// MergeUtilities' test.
bool VEK_ShachterSolver::CanSolve() { return FindGlobalUtility() == VEK_OKAY; }

// The decisions and the variables to enumerate do not depend on the merge;
// LinkDecisionNodes orders them once the decisions are known.
int VEK_ShachterSolver::FindAllDecisionNodes() { return VEK_CooperSolver::FindAllPossibleIndexingParents(); }

// The merged node's parents: the utility tables' parents and the MAU nodes'
// decision parents, in the diagram's partial order.
int VEK_ShachterSolver::ConsolidateMAUs() {
    mergedParents_.Flush();
    single_ = mauNodes_.IsEmpty() && utilityNodes_.GetSize() == 1;
    if (single_) return VEK_OKAY;
    std::vector<char> wanted(static_cast<size_t>(diagram_->GetSlotCount()), 0);
    for (int u : utilityNodes_)
        for (int p : diagram_->GetNode(u)->Parents()) wanted[static_cast<size_t>(p)] = 1;
    for (int m : mauNodes_) {
        const VEK_mau* def = dynamic_cast<const VEK_mau*>(diagram_->GetDef(m));
        if (!def) return VEK_WRONG_NODE_TYPE;
        for (int p : diagram_->GetNode(m)->Parents())
            if (!def->GetUtilityParents().IsInList(p)) wanted[static_cast<size_t>(p)] = 1;
    }
    for (int h : diagram_->PartialOrdering())
        if (wanted[static_cast<size_t>(h)]) mergedParents_.Add(h);
    return VEK_OKAY;
}

int VEK_ShachterSolver::MergeUtilities() {
    if (single_) return VEK_OKAY;
    VEK_intArray dims;
    long long cells = 1;
    for (int p : mergedParents_) {
        const int n = diagram_->GetDef(p)->GetNumberOfOutcomes();
        cells *= std::max(n, 1);
        if (cells > kMaxMergedCells) {
            return diagram_->Logger().LogError(VEK_OUT_OF_RANGE,
                                               "Cannot solve this network using SHACHTER's algorithm. Error while "
                                               "merging utility nodes (too many parents)");
        }
        dims.Add(n);
    }
    dims.Add(1);
    (void)mergedTable_.Setup(dims);  // state counts are at least 1
    // Each cell: the utility tables read at the parents' outcomes, combined
    // as the global utility is.
    std::vector<double> values(static_cast<size_t>(diagram_->GetSlotCount()), 0.0);
    std::vector<int> stateOf(values.size(), -1);
    VEK_intArray coords;
    (void)coords.SetSize(mergedParents_.GetSize());  // a size
    for (int cell = 0; cell < mergedTable_.GetSize(); ++cell) {
        for (int k = 0; k < mergedParents_.GetSize(); ++k) stateOf[static_cast<size_t>(mergedParents_[k])] = coords[k];
        for (int u : utilityNodes_) {
            const VEK_Dmatrix& t = diagram_->GetDef(u)->GetParameters();
            int index = 0;
            for (int p : diagram_->GetNode(u)->Parents()) {
                index = index * diagram_->GetDef(p)->GetNumberOfOutcomes() + stateOf[static_cast<size_t>(p)];
            }
            double x = index < t.GetSize() ? t[index] : 0.0;
            values[static_cast<size_t>(u)] = x == VEK_UNDEFINED_VALUE ? 0.0 : x;
        }
        mergedTable_[cell] = CombineUtilities(values, stateOf);
        for (int k = mergedParents_.GetSize() - 1; k >= 0; --k) {
            if (++coords[k] < dims[k]) break;
            coords[k] = 0;
        }
    }
    if (!VEK_utilityRange(mergedTable_, mergedLo_, mergedHi_)) mergedLo_ = mergedHi_ = 0.0;
    return VEK_OKAY;
}

int VEK_ShachterSolver::TransformIntoBN() {
    if (single_) {
        mergedNode_ = utilityNodes_[0];
        return VEK_CooperSolver::TransformIntoBN();
    }
    {
        VEK_relevanceDelay delay(*bn_);
        const int h = bn_->AddNode(VEK_TABLE);
        if (h < 0) return h;
        for (int p : mergedParents_) {
            const int res = bn_->AddArc(p, h);
            if (res < 0) return res;
        }
        const int res = bn_->GetDef(h)->SetDefinition(mergedTable_);
        if (res < 0) return res;
        mergedNode_ = h;
    }
    return VEK_CooperSolver::TransformIntoBN();
}
