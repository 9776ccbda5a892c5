#include "inference/sampling.h"

#include <exception>
#include <memory>
#include <new>

#include "inference/caughtFailure.h"
#include "inference/rNetwork.h"
#include "inference/sampleNet.h"
#include "inference/samplingAdapter.h"
#include "inference/tsAdapter.h"
#include "inference/tsJoinTree.h"
#include "network/network.h"
#include "network/status.h"

namespace {

constexpr unsigned kSamplingMask = VEK_RSPLIT_COMPONENTS | VEK_RSPLIT_PRUNE | VEK_RSPLIT_NOISY_CHAINS;
constexpr unsigned kPearlMask = VEK_RSPLIT_COMPONENTS | VEK_RSPLIT_PRUNE | VEK_RSPLIT_ABSORB | VEK_RSPLIT_NOISY_CHAINS;

// A one-node sub-network is exact from its table; 0 when its evidence (or
// the whole of its table) has probability 0.
double OneNode(VEK_rNetwork& sub) {
    const VEK_rNode* n = sub.GetNode(0);
    const VEK_Dmatrix& t = n->Table();
    if (t.GetSize() != n->numStates) return 0.0;
    double z = 0.0;
    if (n->evidence >= 0) {
        z = t[n->evidence];
    } else {
        for (int s = 0; s < n->numStates; ++s) z += t[s];
    }
    return z > 0.0 ? sub.Set_Prior_Beliefs(nullptr) : 0.0;
}

int RunSamplingSplit(VEK_network& net, VEK_sampleMethod method) {
    net.InvalidateAllBeliefs();
    net.RestartRandGen();
    VEK_rNetworkContainer container;
    if (!container.DoRelevance(net, kSamplingMask)) return container.GetStatus() < 0 ? container.GetStatus() : VEK_OKAY;
    int res = VEK_OKAY;
    for (int i = 0; i < container.GetCount() && res >= 0; ++i) {
        VEK_rNetwork* sub = container.GetAt(i);
        if (sub->GetNodeCount() == 1) {
            if (!(OneNode(*sub) > 0.0)) res = VEK_NO_USEFUL_SAMPLES;
        } else {
            SamplingAdapter adapter(*sub);
            SampleNet sample(adapter, net.GetRandGen());
            sample.SetParameterForImportanceSampling();
            res = (sample.*method)();
            // When the evidence lies so far in the tails that the method's
            // weights collapse onto a few samples (or none), its estimate is
            // of no use; the samples are drawn again from the importance
            // tables of evidence pre-propagation, as EPIS draws them.
            if (method != &SampleNet::LBP && method != &SampleNet::BN_EPIS_Sampling && sample.WeightsCollapsed()) {
                sample.SetParameterForImportanceSampling();
                res = sample.BN_EPIS_Sampling();
            }
            sample.ClearImportanceParameter();
        }
        container.DeleteAt(i);
    }
    if (res < 0) return net.Logger().LogError(VEK_NO_USEFUL_SAMPLES, "No useful samples have been generated for some of nodes.");
    return VEK_OKAY;
}

}  // namespace

int RunSampling(VEK_network& net, VEK_sampleMethod method) {
    // Nothing is thrown past the engine's boundary.
    try {
        return RunSamplingSplit(net, method);
    } catch (...) {
        return VEK_caughtFailure(net.Logger());
    }
}

int VEK_Infer_Henrion(VEK_network& net) { return RunSampling(net, &SampleNet::LogicSampling); }
int VEK_Infer_LSampling(VEK_network& net) { return RunSampling(net, &SampleNet::LikelihoodSampling); }
int VEK_Infer_Self_Importance(VEK_network& net) { return RunSampling(net, &SampleNet::SelfImportanceSampling); }
int VEK_Infer_Bksampling(VEK_network& net) { return RunSampling(net, &SampleNet::BackwardSampling); }
int VEK_Infer_AISsampling(VEK_network& net) { return RunSampling(net, &SampleNet::BN_AIS_Sampling); }
int VEK_Infer_EPISsampling(VEK_network& net) { return RunSampling(net, &SampleNet::BN_EPIS_Sampling); }
int VEK_Infer_LBP(VEK_network& net) { return RunSampling(net, &SampleNet::LBP); }

namespace {

int PearlSplit(VEK_network& net) {
    net.InvalidateAllBeliefs();
    VEK_rNetworkContainer container;
    if (!container.DoRelevance(net, kPearlMask)) return container.GetStatus() < 0 ? container.GetStatus() : VEK_OUT_OF_MEMORY;
    int zero = 0;
    for (int i = 0; i < container.GetCount(); ++i) {
        VEK_rNetwork* sub = container.GetAt(i);
        if (sub->GetNodeCount() == 1) {
            sub->Set_Prior_Beliefs(&zero);
        } else {
            SamplingAdapter adapter(*sub);
            SampleNet tree(adapter, net.GetRandGen());
            if (tree.IsPolytree()) {
                const int res = tree.PearlPolytree();
                if (res < 0) return res;
            } else {
                // Evidence absorbed into the children cuts many loops, but
                // not all. The caller asked for exact beliefs, so a
                // sub-network with loops left gets them from a join tree
                // rather than from an approximation.
                TsAdapter ts(*sub, &zero);
                TsJoinTree jt(ts);
                if (!jt.UpdateBeliefs(nullptr, -1)) return VEK_OUT_OF_MEMORY;
            }
        }
        container.DeleteAt(i);
    }
    return zero == 0 ? VEK_OKAY : VEK_IMPOSSIBLE_EVIDENCE;
}

}  // namespace

int VEK_Infer_Pearl(VEK_network& net) {
    try {
        return PearlSplit(net);
    } catch (...) {
        return VEK_caughtFailure(net.Logger());
    }
}
