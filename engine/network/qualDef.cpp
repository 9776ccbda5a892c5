#include "network/qualDef.h"

#include <vector>

#include "network/nodeXformContext.h"
#include "network/status.h"

VEK_qualDef::VEK_qualDef(VEK_network& net, int handle, int weightSlots, double prior)
    : VEK_lazyDef(net, handle), slots_(weightSlots) {
    InitFromParents(prior);
}

VEK_qualDef::VEK_qualDef(const VEK_nodeXformContext& ctx, int weightSlots, double prior)
    : VEK_lazyDef(ctx), slots_(weightSlots) {
    if (GetNumberOfOutcomes() != 2) InitDefaultOutcomeIds(2);
    InitFromParents(prior);
}

void VEK_qualDef::InitFromParents(double prior) {
    parentCount_ = GetParents().GetSize();
    (void)params_.SetSingleDimension(slots_ * parentCount_ + 1);  // at least the prior
    params_.FillWith(0.0);
    params_[params_.GetSize() - 1] = prior;
}

int VEK_qualDef::ChangeOrderOfOutcomes(const VEK_intArray&) { return VEK_WRONG_NODE_TYPE; }

// ---------------------------------------------------------------- graph

int VEK_qualDef::AddParent(int handle) {
    const int pos = FindParentPosition(handle);
    if (pos < 0) return pos;
    if (pos > parentCount_) return VEK_OUT_OF_RANGE;
    if (ParentOutcomeCount(handle) != 2) return VEK_OUT_OF_RANGE;
    std::vector<double> items;
    items.reserve(params_.GetSize() + slots_);
    for (int s = 0; s < slots_; ++s) {
        for (int j = 0; j < parentCount_; ++j) {
            if (j == pos) items.push_back(0.0);
            items.push_back(Weight(s, j));
        }
        if (pos == parentCount_) items.push_back(0.0);
    }
    items.push_back(GetPriorValue());
    ++parentCount_;
    (void)params_.SetSingleDimension(static_cast<int>(items.size()));  // items hold at least the prior
    (void)params_.FillFrom(items);  // sized to items just above
    OnParentInserted(pos);
    Invalidate();
    return VEK_OKAY;
}

int VEK_qualDef::RemoveParent(int handle) {
    const int pos = FindParentPosition(handle);
    if (pos < 0) return pos;
    if (pos >= parentCount_) return VEK_OUT_OF_RANGE;
    std::vector<double> items;
    for (int s = 0; s < slots_; ++s) {
        for (int j = 0; j < parentCount_; ++j) {
            if (j != pos) items.push_back(Weight(s, j));
        }
    }
    items.push_back(GetPriorValue());
    --parentCount_;
    (void)params_.SetSingleDimension(static_cast<int>(items.size()));  // items hold at least the prior
    (void)params_.FillFrom(items);  // sized to items just above
    OnParentDeleted(pos);
    Invalidate();
    return VEK_OKAY;
}

int VEK_qualDef::OnParentReorder(const VEK_intArray& order) {
    if (order.GetSize() != parentCount_ || !order.IsPermutation()) return VEK_OUT_OF_RANGE;
    VEK_Dmatrix old(params_);
    for (int s = 0; s < slots_; ++s) {
        for (int j = 0; j < parentCount_; ++j) params_[s * parentCount_ + j] = old[s * parentCount_ + order[j]];
    }
    OnParentsReordered(order);
    Invalidate();
    return VEK_OKAY;
}

int VEK_qualDef::OnParentOutcomeAdd(int, int) { return VEK_WRONG_NODE_TYPE; }
int VEK_qualDef::OnParentOutcomeRemove(int, int) { return VEK_WRONG_NODE_TYPE; }
int VEK_qualDef::OnParentOutcomeReorder(int, const VEK_intArray&) { return VEK_WRONG_NODE_TYPE; }

// ---------------------------------------------------------------- parameters

int VEK_qualDef::GetParentWeight(int parentIndex, double& weight) const {
    if (parentIndex < 0 || parentIndex >= parentCount_) return VEK_OUT_OF_RANGE;
    weight = Weight(0, parentIndex);
    return VEK_OKAY;
}

int VEK_qualDef::SetParentWeight(int parentIndex, double weight) { return SetWeightChecked(0, parentIndex, weight); }

int VEK_qualDef::SetParentWeights(const VEK_doubleArray& weights) { return SetSlotChecked(0, weights); }

int VEK_qualDef::SetWeightChecked(int slot, int parentIndex, double weight) {
    if (slot < 0 || slot >= slots_ || parentIndex < 0 || parentIndex >= parentCount_) return VEK_OUT_OF_RANGE;
    if (!IsValidWeight(slot, weight)) return VEK_OUT_OF_RANGE;
    params_[slot * parentCount_ + parentIndex] = weight;
    Invalidate();
    return VEK_OKAY;
}

int VEK_qualDef::SetSlotChecked(int slot, const VEK_doubleArray& weights) {
    if (slot < 0 || slot >= slots_ || weights.GetSize() != parentCount_) return VEK_OUT_OF_RANGE;
    for (double w : weights) {
        if (!IsValidWeight(slot, w)) return VEK_OUT_OF_RANGE;
    }
    for (int j = 0; j < parentCount_; ++j) params_[slot * parentCount_ + j] = weights[j];
    Invalidate();
    return VEK_OKAY;
}

int VEK_qualDef::SetPriorChecked(double prior) {
    if (!(prior >= 0.0 && prior <= 1.0)) return VEK_OUT_OF_RANGE;
    params_[params_.GetSize() - 1] = prior;
    Invalidate();
    return VEK_OKAY;
}

// ---------------------------------------------------------------- table

void VEK_qualDef::FillProbabilities(double* q) const {
    VEK_intArray dims(parentCount_);
    dims.FillWith(2);
    VEK_intArray coords(parentCount_);
    int c = 0;
    do {
        q[c++] = CalculateProbability(coords);
    } while (parentCount_ > 0 && coords.NextCoordinates(dims) == VEK_OKAY);
}

int VEK_qualDef::CalculateCpt() {
    VEK_intArray dims(parentCount_ + 1);
    dims.FillWith(2);
    VEK_Dmatrix& cpt = CptMatrix();
    if (const int res = cpt.Setup(dims); res < 0) return res;
    const int columns = cpt.GetSize() / 2;
    // q goes into the second half of the table first, then every column is
    // spread out in place from the front, which never overwrites a q not
    // yet read.
    double* items = cpt.Items();
    double* q = items + columns;
    FillProbabilities(q);
    for (int c = 0; c < columns; ++c) {
        const double v = q[c];
        items[2 * c] = v;
        items[2 * c + 1] = 1.0 - v;
    }
    return VEK_OKAY;
}
