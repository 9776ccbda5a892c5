#include "inference/tsAdapter.h"

#include <algorithm>

#include "inference/inferenceCache.h"
#include "inference/rNetwork.h"
#include "network/network.h"
#include "network/nodeVal.h"

TsAdapter::TsAdapter(VEK_rNetwork& net, int* zeroCounter) : net_(&net), zeroCounter_(zeroCounter) {}

int TsAdapter::GetNodeCount() const { return net_->GetNodeCount(); }

int TsAdapter::GetStateCount(int i) const { return net_->GetNode(i)->numStates; }

void TsAdapter::GetParents(int i, VEK_intArray& list) const {
    list.Flush();
    for (const VEK_rNode* p : net_->GetNode(i)->parents) list.Add(p->index);
}

int TsAdapter::GetParentCount(int i) const { return static_cast<int>(net_->GetNode(i)->parents.size()); }

int TsAdapter::GetParent(int i, int k) const { return net_->GetNode(i)->parents[static_cast<size_t>(k)]->index; }

const VEK_Dmatrix& TsAdapter::GetMatrix(int i) const { return net_->GetNode(i)->Table(); }

int TsAdapter::GetEvidence(int i) const { return net_->GetNode(i)->evidence; }

const char* TsAdapter::GetNodeId(int i) const { return net_->Network().GetNodeId(net_->GetNode(i)->source); }

int TsAdapter::GetNodeHandle(int i) const { return net_->GetNode(i)->handle; }

int TsAdapter::FindHandle(int handle) const {
    if (handleIndex_.empty() && GetNodeCount() > 0) {
        handleIndex_.assign(static_cast<size_t>(net_->Network().GetSlotCount()), -1);
        for (int i = 0; i < GetNodeCount(); ++i) {
            const int h = GetNodeHandle(i);
            if (h >= 0 && h < static_cast<int>(handleIndex_.size())) handleIndex_[static_cast<size_t>(h)] = i;
        }
    }
    if (handle < 0 || handle >= static_cast<int>(handleIndex_.size())) return -1;
    return handleIndex_[static_cast<size_t>(handle)];
}

bool TsAdapter::IsTarget(int i) const { return net_->GetNode(i)->target; }

VEK_Dmatrix* TsAdapter::GetBeliefs(int i) {
    if (GetNodeHandle(i) < 0) return nullptr;
    VEK_nodeVal* v = net_->Network().GetVal(GetNodeHandle(i));
    return v ? v->GetWriteableMatrix() : nullptr;
}

void TsAdapter::SetValueValid(int i) {
    if (GetNodeHandle(i) < 0) return;
    VEK_nodeVal* v = net_->Network().GetVal(GetNodeHandle(i));
    if (v) v->SetValueValid();
}

void TsAdapter::EnsureEvidenceValue(int i) {
    VEK_writeEvidenceBeliefs(*net_, i);
}

VEK_network& TsAdapter::GetOrigNetwork() const { return net_->Network(); }

bool TsAdapter::WillStorePotentials() const { return net_->Network().InferenceCache().WillStorePotentials(); }

void TsAdapter::GetPotentialMatrix(const VEK_intArray& nodes, const VEK_intArray& states, VEK_Dmatrix& out) const {
    if (nodes.GetSize() == 0) {
        (void)out.SetSingleDimension(1);  // a valid size
    } else {
        (void)out.Setup(states);  // state counts are at least 1
    }
}

void TsAdapter::ReportZeroPotential(int i) {
    VEK_reportZeroPotential(net_->Network(), net_->GetNode(i)->source);
    if (zeroCounter_) ++*zeroCounter_;
}

int TsAdapter::GetDefaultTriangHeuristics() const { return net_->Network().GetIntProperty("VEK_TRIANG_HEUR", 0); }

bool TsAdapter::GetWholeOrder(std::vector<int>& order) const {
    const std::vector<int>* ranks = wholeOrder_ ? wholeOrder_() : nullptr;
    if (!ranks) return false;
    const int n = GetNodeCount();
    order.resize(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        const int b = net_->GetNode(i)->built;
        if (b < 0 || b >= static_cast<int>(ranks->size())) return false;
        order[static_cast<size_t>(i)] = i;
    }
    std::sort(order.begin(), order.end(), [&](int a, int b) {
        return (*ranks)[static_cast<size_t>(net_->GetNode(a)->built)] <
               (*ranks)[static_cast<size_t>(net_->GetNode(b)->built)];
    });
    return true;
}

void TsAdapter::GetStructureKey(int heuristic, std::vector<int>& key) const {
    const int n = GetNodeCount();
    key.clear();
    key.reserve(static_cast<size_t>(4 * n + 2));
    key.push_back(heuristic);
    key.push_back(n);
    for (int i = 0; i < n; ++i) {
        const VEK_rNode* r = net_->GetNode(i);
        key.push_back(r->handle);
        key.push_back(r->evidence >= 0 ? -r->numStates : r->numStates);
        key.push_back(static_cast<int>(r->parents.size()));
        for (const VEK_rNode* p : r->parents) key.push_back(p->index);
    }
}
