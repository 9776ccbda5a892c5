#include "network/mau.h"

#include "network/mauExpectedUtility.h"
#include "network/network.h"
#include "network/nodeXformContext.h"
#include "network/status.h"

VEK_mau::VEK_mau(VEK_network& net, int handle) : VEK_nodeDef(net, handle) {
    weights_.SetSingleDimension(1);
    weights_.FillWith(1.0);
}

VEK_mau::VEK_mau(const VEK_nodeXformContext& ctx) : VEK_nodeDef(*ctx.net, ctx.handle) {
    VEK_intArray dims;
    for (int p : GetParents()) {
        int count = ParentOutcomeCount(p);
        if (count > 0) {
            dims.Add(count);
        } else {
            utilityParents_.Add(p);
        }
    }
    dims.Add(utilityParents_.GetSize() > 0 ? utilityParents_.GetSize() : 1);
    weights_.Setup(dims);
    weights_.FillWith(1.0);
}

VEK_nodeDef* VEK_mau::Clone(VEK_network& net) const {
    VEK_mau* copy = new VEK_mau(*this);
    copy->Rebind(net, Handle());
    return copy;
}

VEK_nodeVal* VEK_mau::CreateValue() const { return new VEK_mauExpectedUtility(Network(), Handle()); }

VEK_nodeVal* VEK_mau::CreateValue(const VEK_valXformContext& ctx) const {
    return new VEK_mauExpectedUtility(Network(), Handle(), ctx);
}

int VEK_mau::DiscreteDimension(int parent) const {
    const VEK_intArray& parents = GetParents();
    int dim = 0;
    for (int p : parents) {
        if (p == parent) {
            if (utilityParents_.IsInList(p)) return VEK_WRONG_NODE_TYPE;
            return dim < weights_.GetNumberOfDimensions() - 1 ? dim : VEK_OUT_OF_RANGE;
        }
        if (!utilityParents_.IsInList(p)) ++dim;
    }
    return VEK_OUT_OF_RANGE;
}

int VEK_mau::AddParent(int handle) {
    int pos = FindParentPosition(handle);
    if (pos < 0) return pos;
    if (utilityParents_.IsInList(handle)) return VEK_OUT_OF_RANGE;
    const VEK_intArray& parents = GetParents();
    int count = ParentOutcomeCount(handle);
    if (count > 0) {
        int dim = 0;
        for (int i = 0; i < pos; ++i) {
            if (!utilityParents_.IsInList(parents[i])) ++dim;
        }
        if (dim > weights_.GetNumberOfDimensions() - 1) return VEK_OUT_OF_RANGE;
        return weights_.InsertDimension(dim, count);
    }
    if (count != VEK_WRONG_NODE_TYPE) return count;
    // A utility parent gets weight 1.0 in every column.
    int index = 0;
    for (int i = 0; i < pos; ++i) {
        if (utilityParents_.IsInList(parents[i])) ++index;
    }
    const int last = weights_.GetNumberOfDimensions() - 1;
    if (utilityParents_.IsEmpty()) {
        weights_.FillWith(1.0);
    } else {
        int res = weights_.IncreaseDimensionSize(last);
        if (res < 0) return res;
        weights_.ShiftDataUpwards(last, index, 1.0);
    }
    utilityParents_.Insert(index, handle);
    return VEK_OKAY;
}

int VEK_mau::RemoveParent(int handle) {
    int index = utilityParents_.FindPosition(handle);
    if (index >= 0) {
        const int last = weights_.GetNumberOfDimensions() - 1;
        if (utilityParents_.GetSize() == 1) {
            weights_.FillWith(1.0);
        } else {
            weights_.ShiftDataDownwards(last, index);
            weights_.DecreaseDimensionSize(last);
        }
        utilityParents_.Delete(index);
        return VEK_OKAY;
    }
    int dim = DiscreteDimension(handle);
    if (dim < 0) return dim;
    return weights_.RemoveDimension(dim);
}

int VEK_mau::OnParentOutcomeAdd(int parent, int outcome) {
    int dim = DiscreteDimension(parent);
    if (dim < 0) return dim;
    if (outcome < 0 || outcome > weights_.GetSizeOfDimension(dim)) return VEK_OUT_OF_RANGE;
    int res = weights_.IncreaseDimensionSize(dim);
    if (res < 0) return res;
    // A new option starts with the default weights.
    weights_.ShiftDataUpwards(dim, outcome, 1.0);
    return VEK_OKAY;
}

int VEK_mau::OnParentOutcomeRemove(int parent, int outcome) {
    int dim = DiscreteDimension(parent);
    if (dim < 0) return dim;
    if (outcome < 0 || outcome >= weights_.GetSizeOfDimension(dim)) return VEK_OUT_OF_RANGE;
    if (weights_.GetSizeOfDimension(dim) < 2) return VEK_OUT_OF_RANGE;
    weights_.ShiftDataDownwards(dim, outcome);
    return weights_.DecreaseDimensionSize(dim);
}

int VEK_mau::OnParentOutcomeReorder(int parent, const VEK_intArray& order) {
    int dim = DiscreteDimension(parent);
    if (dim < 0) return dim;
    return weights_.ChangeOrderWithinDimension(dim, order);
}

int VEK_mau::OnParentReorder(const VEK_intArray& order) {
    const VEK_intArray& parents = GetParents();
    const int n = parents.GetSize();
    if (order.GetSize() != n || !order.IsPermutation()) return VEK_OUT_OF_RANGE;
    // Old dimension of each decision parent and old index of each utility one.
    VEK_intArray dimPerm;
    VEK_intArray utilPerm;
    VEK_intArray newUtility;
    for (int i = 0; i < n; ++i) {
        int p = parents[order[i]];
        int u = utilityParents_.FindPosition(p);
        if (u >= 0) {
            utilPerm.Add(u);
            newUtility.Add(p);
        } else {
            int dim = DiscreteDimension(p);
            if (dim < 0) return dim;
            dimPerm.Add(dim);
        }
    }
    if (dimPerm.GetSize() != weights_.GetNumberOfDimensions() - 1) return VEK_OUT_OF_RANGE;
    dimPerm.Add(dimPerm.GetSize());
    VEK_Dmatrix reordered(weights_);
    int res = reordered.ChangeOrderOfDimensions(dimPerm);
    if (res < 0) return res;
    if (utilPerm.GetSize() > 1) {
        res = reordered.ChangeOrderWithinDimension(reordered.GetNumberOfDimensions() - 1, utilPerm);
        if (res < 0) return res;
    }
    weights_ = std::move(reordered);
    utilityParents_ = newUtility;
    return VEK_OKAY;
}

int VEK_mau::IsParentNecessary(int parent, double, bool& necessary) const {
    int pos = FindParentPosition(parent);
    if (pos < 0) return pos;
    necessary = true;
    return VEK_OKAY;
}

int VEK_mau::MakeUniform() {
    weights_.FillWith(1.0);
    return VEK_OKAY;
}

int VEK_mau::DoCopyParameters(const VEK_nodeDef& other) {
    const VEK_mau* src = dynamic_cast<const VEK_mau*>(&other);
    if (!src) return VEK_WRONG_NODE_TYPE;
    weights_ = src->weights_;
    expressions_ = src->expressions_;
    OnParametersChanged();
    return VEK_OKAY;
}

int VEK_mau::GetWeight(int column, int utilityParent, double& weight) const {
    const int index = utilityParents_.FindPosition(utilityParent);
    if (index < 0) return VEK_OUT_OF_RANGE;
    const int last = weights_.GetLastDimensionSize();
    if (column < 0 || column >= weights_.GetSize() / last) return VEK_OUT_OF_RANGE;
    weight = weights_[column * last + index];
    return VEK_OKAY;
}

int VEK_mau::SetExpressions(const std::vector<std::string>& expressions) {
    expressions_ = expressions;
    OnParametersChanged();
    if (Network().IsValidNode(Handle())) Network().RelevanceDefinitionChanged(Handle(), VEK_REL_DEF_CHANGE_1);
    return VEK_OKAY;
}
