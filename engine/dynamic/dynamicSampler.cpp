#include "dynamic/dynamicSampler.h"

#include <vector>

#include "dynamic/unroll.h"
#include "equations/equationEvaluation.h"
#include "equations/hybridSampler.h"
#include "network/network.h"
#include "network/status.h"

int VEK_updateDynamicHybrid(VEK_network& net) {
    net.InvalidateAllBeliefs();
    VEK_network unrolled;
    std::vector<VEK_unrolledNode> mapping;
    int res = VEK_Unroll(net, unrolled, mapping);
    if (res != VEK_OKAY) return res;
    const int alg = unrolled.GetDefaultBNAlgorithm();
    if (alg == VEK_ALG_BN_LAURITZEN || alg == VEK_ALG_BN_LAURITZEN_SPLIT || alg == VEK_ALG_BN_LAURITZEN_LINEAR_DECOMP ||
        alg == VEK_ALG_BN_LAURITZEN_RECURSIVE_DECOMP) {
        unrolled.SetDefaultBNAlgorithm(VEK_ALG_BN_LSAMPLING);
    }
    res = VEK_updateHybrid(unrolled);
    if (res != VEK_OKAY) {
        const char* message = unrolled.Logger().GetLastErrorMessage();
        return net.Logger().LogError(res, message ? message : "Sampling the unrolled network failed");
    }
    const int slices = net.GetNumberOfSlices();
    // Copies of plate node h, slice after slice.
    std::vector<std::vector<int>> copies(net.GetSlotCount());
    for (const VEK_unrolledNode& m : mapping) copies[m.node].push_back(m.unrolled);
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        VEK_nodeVal* dst = net.GetVal(h);
        auto* ev = dynamic_cast<VEK_equationEvaluation*>(dst);
        const std::vector<int> own = copies[h].empty() ? std::vector<int>{h} : copies[h];
        if (ev) {
            std::vector<std::vector<double>> samples;
            std::vector<double> means, sds;
            for (int c : own) {
                const auto* src = static_cast<const VEK_equationEvaluation*>(unrolled.GetVal(c));
                double m = 0.0, sd = 0.0;
                // Plain reads of an evaluation's fields: they cannot fail.
                (void)src->GetMean(m);
                (void)src->GetStdDev(sd);
                means.push_back(m);
                sds.push_back(sd);
                samples.push_back(src->GetSamples().empty() ? std::vector<double>{m} : src->GetSamples());
            }
            if (copies[h].empty()) {
                const auto* src = static_cast<const VEK_equationEvaluation*>(unrolled.GetVal(h));
                ev->SetSamples(samples[0], means[0], sds[0], src->GetMin(), src->GetMax());
            } else {
                ev->SetTemporalSamples(std::move(samples), std::move(means), std::move(sds));
            }
        } else if (VEK_Dmatrix* m = dst->GetWriteableMatrix()) {
            const VEK_Dmatrix* first = unrolled.GetVal(own[0])->GetMatrix();
            if (!first) continue;
            const int n = first->GetSize();
            if (copies[h].empty()) {
                *m = *first;
            } else {
                const int dims[2] = {slices, n};
                (void)m->Setup(dims, 2);  // slices and states are at least 1
                for (int t = 0; t < slices; ++t) {
                    const VEK_Dmatrix* b = unrolled.GetVal(own[t])->GetMatrix();
                    for (int k = 0; k < n; ++k) m->Items()[t * n + k] = b->Items()[k];
                }
            }
        }
        dst->SetValueValid();
    }
    net.NoteValueFlags(VEK_VALUE_VALID);
    return VEK_OKAY;
}
