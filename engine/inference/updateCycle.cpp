// The belief update cycle: classification of the network, dispatch by
// algorithm id, invalidation of beliefs, immediate updating and the
// probability of evidence.
#include <exception>
#include <new>

#include "equations/hybridSampler.h"
#include "inference/caughtFailure.h"
#include "inference/clustering.h"
#include "inference/cooperSolver.h"
#include "inference/inferenceCache.h"
#include "inference/jointTree.h"
#include "inference/rNetwork.h"
#include "inference/shachterSolver.h"
#include "inference/sampling.h"
#include "network/mau.h"
#include "network/network.h"
#include "dynamic/dbnSolver.h"
#include "dynamic/dynamicSampler.h"
#include "network/nodeDef.h"

unsigned VEK_initRelevanceFlags() {
    return VEK_REL_ARC_ADDED | VEK_REL_ARC_REMOVED | VEK_REL_EVIDENCE | VEK_REL_DEF_CHANGE_1 | VEK_REL_DEF_CHANGE_2 |
           VEK_REL_DEF_CHANGE_3;
}

namespace {

const char* SamplingName(int id) {
    switch (id) {
        case VEK_ALG_BN_HENRION: return "Henrion's algorithm";
        case VEK_ALG_BN_PEARL: return "Pearl's exact algorithm";
        // Heuristic importance sampling runs the likelihood-sampling routine.
        case VEK_ALG_BN_LSAMPLING:
        case VEK_ALG_BN_HEURISTICIMPORTANCE: return "Likelihood sampling";
        case VEK_ALG_BN_SELFIMPORTANCE: return "Self importance sampling";
        case VEK_ALG_BN_BACKSAMPLING: return "Backward sampling algorithm";
        case VEK_ALG_BN_AISSAMPLING: return "Adaptive Importance Sampling algorithm";
        case VEK_ALG_BN_EPISSAMPLING: return "Evidence Pre-propagation Importance Sampling";
        default: return "Loopy Belief Propagation algorithm";
    }
}

// Id 10: every sub-network of a split with mask 3 by the older join tree.
int LauritzenSplit(VEK_network& net) {
    VEK_rNetworkContainer container;
    if (!container.DoRelevance(net, VEK_RSPLIT_COMPONENTS | VEK_RSPLIT_PRUNE)) return VEK_OKAY;
    for (int i = 0; i < container.GetCount(); ++i) {
        VEK_rNetwork* sub = container.GetAt(i);
        if (sub->GetNodeCount() == 1) {
            sub->Set_Prior_Beliefs(nullptr);
        } else if (Infer_Lauritzen_Spiegelhalter(*sub) == VEK_OUT_OF_MEMORY) {
            return VEK_OUT_OF_MEMORY;
        }
        container.DeleteAt(i);
    }
    return VEK_OKAY;
}

}  // namespace

int VEK_network::UpdateBeliefs() {
    struct UpdatingGuard {
        unsigned char& flag;
        explicit UpdatingGuard(unsigned char& f) : flag(f) { flag = 1; }
        ~UpdatingGuard() { flag = 0; }
    } guard(updating_);
    int res;
    // Nothing thrown inside the engine leaves it; the listener is the
    // caller's code and may throw past this point.
    try {
        res = DoUpdateBeliefs();
    } catch (...) {
        res = VEK_caughtFailure(logger_);
    }
    if (listener_) listener_->OnUpdate(*this, res);
    return res;
}

int VEK_network::DoUpdateBeliefs() {
    if (nodeCount_ == 0) return CallBNAlgorithm();
    bool influence = false;
    bool equations = false;
    if (HasPlateNodes()) {
        RemoveJpts();
        InferenceCache().BumpBeliefsVersion();
        for (int h = 0; h < GetSlotCount(); ++h) {
            if (nodes_[h] && nodes_[h]->Definition()->GetType() == VEK_EQUATION) return VEK_updateDynamicHybrid(*this);
        }
        return VEK_dbnSolver(*this).UpdateBeliefs();
    }
    for (int h = 0; h < GetSlotCount(); ++h) {
        if (!nodes_[h]) continue;
        const int t = nodes_[h]->Definition()->GetType();
        if (t == VEK_TABLE || t == VEK_LIST || t == VEK_MAU) influence = true;
        if (t == VEK_EQUATION) equations = true;
    }
    if (influence && equations) {
        return logger_.LogError(VEK_OUT_OF_RANGE, "Equation nodes cannot be used in influence diagrams.");
    }
    if (influence) return CallIDAlgorithm();
    if (equations) {
        RemoveJpts();
        InferenceCache().BumpBeliefsVersion();
        return VEK_updateHybrid(*this);
    }
    return CallBNAlgorithm();
}

int VEK_network::CallBNAlgorithm() {
    RemoveJpts();
    if (settings_.bnAlgorithm < 0 || settings_.bnAlgorithm >= VEK_ALG_BN_COUNT) return VEK_OUT_OF_RANGE;
    InferenceCache().BumpBeliefsVersion();
    if (nodeCount_ == 0) return VEK_OKAY;
    switch (settings_.bnAlgorithm) {
        case VEK_ALG_BN_LAURITZEN: return TsClustering(*this);
        case VEK_ALG_BN_LAURITZEN_SPLIT: return LauritzenSplit(*this);
        case VEK_ALG_BN_LAURITZEN_LINEAR_DECOMP: return TsClusteringLinearDecomp(*this);
        case VEK_ALG_BN_LAURITZEN_RECURSIVE_DECOMP: return TsClusteringRecursiveDecomp(*this);
        case VEK_ALG_BN_HENRION: return VEK_Infer_Henrion(*this);
        case VEK_ALG_BN_PEARL: return VEK_Infer_Pearl(*this);
        // Heuristic importance sampling is the likelihood-sampling routine.
        case VEK_ALG_BN_LSAMPLING:
        case VEK_ALG_BN_HEURISTICIMPORTANCE: return VEK_Infer_LSampling(*this);
        case VEK_ALG_BN_SELFIMPORTANCE: return VEK_Infer_Self_Importance(*this);
        case VEK_ALG_BN_BACKSAMPLING: return VEK_Infer_Bksampling(*this);
        case VEK_ALG_BN_AISSAMPLING: return VEK_Infer_AISsampling(*this);
        case VEK_ALG_BN_EPISSAMPLING: return VEK_Infer_EPISsampling(*this);
        case VEK_ALG_BN_LBP: return VEK_Infer_LBP(*this);
        default:
            return logger_.VLogError(VEK_WRONG_NODE_TYPE, "The inference algorithm %s is not available",
                                     SamplingName(settings_.bnAlgorithm));
    }
}

int VEK_network::CallIDAlgorithm() {
    if (settings_.idAlgorithm != 0 && settings_.idAlgorithm != 1) return VEK_OUT_OF_RANGE;
    const VEK_indexingSnapshot indexing(*this);
    VEK_initializeNodeValues(*this);
    // Policy evaluation combines expected utilities, which is exact only for
    // weighted sums: MAU expressions go to the merged table of policy search.
    bool mauExpressions = false;
    for (int h = 0; h < GetSlotCount(); ++h) {
        const auto* mau = nodes_[h] ? dynamic_cast<const VEK_mau*>(nodes_[h]->Definition()) : nullptr;
        mauExpressions = mauExpressions || (mau && !mau->GetExpressions().empty());
    }
    int res;
    if (settings_.idAlgorithm == VEK_ALG_ID_SHACHTER || mauExpressions) {
        VEK_ShachterSolver solver;
        res = solver.Solve(this);
    } else {
        VEK_CooperSolver solver;
        res = solver.Solve(this);
    }
    if (res < 0) indexing.Restore(*this);
    return res;
}

int VEK_network::InvalidateAllBeliefs() {
    RemoveJpts();
    InferenceCache().BumpBeliefsVersion();
    // A network being read gets a call for every arc and table it receives;
    // walking all nodes each time made loading quadratic. EndRead makes the
    // one walk that counts.
    if (IsReading()) return VEK_OKAY;
    // Only computed values change; with none valid there is nothing to walk.
    if (!(valueFlagsSeen_ & VEK_VALUE_VALID)) return VEK_OKAY;
    unsigned seen = 0;
    for (auto& n : nodes_) {
        if (!n || !n->Value()) continue;
        VEK_nodeVal* v = n->Value();
        v->Invalidate();
        // Values fixed by evidence stay valid and are never walked for.
        int f = v->GetFlags();
        if (f & (VEK_VALUE_EVIDENCE | VEK_VALUE_PROPAGATED)) f &= ~VEK_VALUE_VALID;
        seen |= static_cast<unsigned>(f);
    }
    valueFlagsSeen_ = seen;
    return VEK_OKAY;
}

void VEK_network::RemoveJpts() { InferenceCache().RemovePotentials(); }

int VEK_network::SetUpdateImmediate(bool on) {
    if (!on) {
        settings_.flags &= ~VEK_FLAG_UPDATE_IMMEDIATELY;
        return VEK_OKAY;
    }
    if (settings_.flags & VEK_FLAG_UPDATE_IMMEDIATELY) return VEK_OKAY;
    settings_.flags |= VEK_FLAG_UPDATE_IMMEDIATELY;
    return UpdateBeliefs();
}

void VEK_network::SetTargetQuiet(int handle, bool on) {
    VEK_node* n = GetNode(handle);
    if (!n || n->IsTarget() == on) return;
    n->SetTargetFlag(on);
    targetCount_ += on ? 1 : -1;
}

int VEK_network::ProbEvidence(double& p) {
    if (InferenceCache().GetLastProbEvidence(p)) return VEK_OKAY;
    try {
        return TsClusteringProbE(*this, p);
    } catch (...) {
        return VEK_caughtFailure(logger_);
    }
}
