#include "inference/essJoinTree.h"

#include <algorithm>
#include <new>
#include <stdexcept>

#include "inference/tsAdapter.h"
#include "network/network.h"

bool VEK_essJoinTree::Calibrate(int64_t limit) {
    calibrated_ = false;
    if (!Compile(limit)) return false;
    return OrCleanup([&]() -> bool {
        SelectWork(nullptr, false, true);
        InitPotentials();
        Collect();
        Distribute();
        calibrated_ = true;
        return true;
    }, false);
}

bool VEK_essJoinTree::Compile(int64_t limit) {
    return OrCleanup([&]() -> bool {
        if (!Build(limit)) return false;
        if (!AllocatePotentials()) {
            ReleaseArena();
            return false;
        }
        return true;
    }, false);
}

void VEK_essJoinTree::KeepMaps() {
    for (TsClique* c : cliques_) {
        c->collectWalk.KeepMaps();
        c->distributeWalk.KeepMaps();
    }
}

bool VEK_essJoinTree::PlanFamily(const VEK_intArray& family, FamilyReader& reader) const {
    reader.clique = FindClique(family);
    if (!reader.clique) return false;
    const int m = family.GetSize();
    std::vector<int> strides(static_cast<size_t>(m), 1);
    for (int k = m - 2; k >= 0; --k) {
        strides[static_cast<size_t>(k)] =
            strides[static_cast<size_t>(k + 1)] * adapter_->GetStateCount(adapter_->FindHandle(family[k + 1]));
    }
    TsMatrix joint;
    std::vector<int> sizes, jointStrides;
    reader.observed.clear();
    for (int k = 0; k < m; ++k) {
        const int i = adapter_->FindHandle(family[k]);
        if (adapter_->GetEvidence(i) >= 0) {
            reader.observed.emplace_back(i, strides[static_cast<size_t>(k)]);
        } else {
            joint.Coords().Add(i, adapter_->GetStateCount(i));
            sizes.push_back(adapter_->GetStateCount(i));
            jointStrides.push_back(strides[static_cast<size_t>(k)]);
        }
    }
    TsMatrix::CreateMapping(reader.clique->potential.Coords(), joint, reader.odometer);
    reader.joint.assign(static_cast<size_t>(joint.Size()), 0.0);
    reader.scatter.assign(reader.joint.size(), 0);
    const int free = static_cast<int>(sizes.size());
    int counter[TS_MAX_DIMS + 2] = {};
    for (size_t e = 0; e < reader.scatter.size(); ++e) {
        int at = 0;
        for (int d = 0; d < free; ++d) at += counter[d] * jointStrides[static_cast<size_t>(d)];
        reader.scatter[e] = at;
        TsSpinOdometer(counter, sizes.data(), free);
    }
    return true;
}

bool VEK_essJoinTree::AddFamily(FamilyReader& reader, double weight, double* counts) const {
    double* joint = reader.joint.data();
    const size_t n = reader.joint.size();
    std::fill(joint, joint + n, 0.0);
    TsOdoMarginalize(reader.odometer, reader.clique->potential.Data(), joint);
    const double total = TsSum(joint, static_cast<int64_t>(n));
    if (!(total > 0.0)) return false;
    int base = 0;
    for (const auto& [i, stride] : reader.observed) base += adapter_->GetEvidence(i) * stride;
    const double scale = weight / total;
    const int* scatter = reader.scatter.data();
    for (size_t e = 0; e < n; ++e) counts[base + scatter[e]] += scale * joint[e];
    return true;
}

TsClique* VEK_essJoinTree::FindClique(const VEK_intArray& family) const {
    TsSmallVec<int, 32> idx;
    for (int h : family) {
        const int i = adapter_->FindHandle(h);
        if (i < 0) return nullptr;
        idx.push_back(i);
    }
    for (TsClique* c : cliques_) {
        bool all = true;
        for (int i : idx)
            if (!c->Contains(i)) {
                all = false;
                break;
            }
        if (all) return c;
    }
    return nullptr;
}

int VEK_essJoinTree::Family(VEK_network&, int node, const VEK_intArray& family, VEK_Dmatrix& work,
                            VEK_Dmatrix& counts) {
    if (!calibrated_) return VEK_GENERAL_ERROR;
    if (adapter_->FindHandle(node) < 0) return VEK_OUT_OF_RANGE;
    const int m = family.GetSize();
    TsSmallVec<int, 32> idx;
    for (int h : family) {
        const int i = adapter_->FindHandle(h);
        if (i < 0) return VEK_OUT_OF_RANGE;
        idx.push_back(i);
    }
    const TsClique* c = FindClique(family);
    if (!c) return VEK_NO_ITEM;

    // The joint over the family's unobserved nodes, normalised.
    TsMatrix joint;
    for (int i : idx)
        if (adapter_->GetEvidence(i) < 0) joint.Coords().Add(i, adapter_->GetStateCount(i));
    joint.Allocate();
    joint.Fill(0.0);
    TsOdometer odo;
    TsMatrix::CreateMapping(c->potential.Coords(), joint, odo);
    if (TsOdoSumDiv(odo, c->potential.Data(), joint.Data()) == 0.0) return VEK_IMPOSSIBLE_EVIDENCE;

    // Spread it over the table layout, observed nodes at their states.
    VEK_intArray dims;
    for (int i : idx) dims.Add(adapter_->GetStateCount(i));
    (void)work.Setup(dims);  // state counts are at least 1
    work.FillWith(0.0);
    int free = 0;
    int freeSizes[TS_MAX_DIMS + 2];
    int64_t freeStride[TS_MAX_DIMS + 2];
    int64_t base = 0;
    int64_t stride = 1;
    for (int k = m - 1; k >= 0; --k) {
        const int i = idx[k];
        const int e = adapter_->GetEvidence(i);
        if (e >= 0) {
            base += e * stride;
        } else {
            freeSizes[free] = adapter_->GetStateCount(i);
            freeStride[free] = stride;
            ++free;
        }
        stride *= adapter_->GetStateCount(i);
    }
    // The free dimensions were collected innermost first; walk them
    // outermost first to match the joint's layout.
    int sizes[TS_MAX_DIMS + 2];
    int64_t strides[TS_MAX_DIMS + 2];
    for (int d = 0; d < free; ++d) {
        sizes[d] = freeSizes[free - 1 - d];
        strides[d] = freeStride[free - 1 - d];
    }
    int counter[TS_MAX_DIMS + 2] = {};
    const double* src = joint.Data();
    const int64_t total = joint.Size();
    double* dst = work.Items();
    for (int64_t k = 0; k < total; ++k) {
        int64_t at = base;
        for (int d = 0; d < free; ++d) at += counter[d] * strides[d];
        dst[at] = src[k];
        TsSpinOdometer(counter, sizes, free);
    }

    if (counts.GetSize() == 0) {
        counts = work;
    } else if (counts.GetSize() == work.GetSize()) {
        double* out = counts.Items();
        for (int k = 0; k < work.GetSize(); ++k) out[k] += dst[k];
    }
    return VEK_OKAY;
}

int VEK_essJoinTree::MarginalizePotential(VEK_network& net, int node, VEK_Dmatrix& work, VEK_Dmatrix& counts) {
    const VEK_node* n = net.GetNode(node);
    if (!n) return VEK_OUT_OF_RANGE;
    VEK_intArray family = n->Parents();
    family.Add(node);
    return Family(net, node, family, work, counts);
}

int VEK_essJoinTree::MarginalizePotentialForParentlessNode(VEK_network& net, int node, VEK_Dmatrix& work,
                                                           VEK_Dmatrix& counts) {
    if (!net.GetNode(node)) return VEK_OUT_OF_RANGE;
    VEK_intArray family;
    family.Add(node);
    return Family(net, node, family, work, counts);
}
