#include "network/utility.h"

#include <limits>

#include "network/expectedUtility.h"
#include "network/network.h"
#include "network/nodeXformContext.h"
#include "network/status.h"

VEK_utility::VEK_utility(VEK_network& net, int handle) : VEK_nodeDef(net, handle) {
    table_.SetSingleDimension(1);
    table_.FillWith(1.0);
}

VEK_utility::VEK_utility(const VEK_nodeXformContext& ctx) : VEK_nodeDef(*ctx.net, ctx.handle) {
    VEK_intArray dims;
    if (BuildParentDims(dims, 1) < 0) {
        dims.Flush();
        for (int p : GetParents()) {
            int count = ParentOutcomeCount(p);
            dims.Add(count > 0 ? count : 1);
        }
        dims.Add(1);
    }
    table_.Setup(dims);
    table_.FillWith(1.0);
}

VEK_nodeDef* VEK_utility::Clone(VEK_network& net) const {
    VEK_utility* copy = new VEK_utility(*this);
    copy->Rebind(net, Handle());
    return copy;
}

VEK_nodeVal* VEK_utility::CreateValue() const { return new VEK_expectedUtility(Network(), Handle()); }

VEK_nodeVal* VEK_utility::CreateValue(const VEK_valXformContext& ctx) const {
    return new VEK_expectedUtility(Network(), Handle(), ctx);
}

int VEK_utility::ParentDimension(int parent) const {
    int pos = FindParentPosition(parent);
    if (pos < 0) return pos;
    return pos < table_.GetNumberOfDimensions() - 1 ? pos : VEK_OUT_OF_RANGE;
}

int VEK_utility::AddParent(int handle) {
    int pos = FindParentPosition(handle);
    if (pos < 0) return pos;
    if (pos > table_.GetNumberOfDimensions() - 1) return VEK_OUT_OF_RANGE;
    return table_.InsertDimension(pos, ParentOutcomeCount(handle));
}

int VEK_utility::RemoveParent(int handle) {
    int dim = ParentDimension(handle);
    if (dim < 0) return dim;
    return table_.RemoveDimension(dim);
}

int VEK_utility::OnParentOutcomeAdd(int parent, int outcome) {
    int dim = ParentDimension(parent);
    if (dim < 0) return dim;
    if (outcome < 0 || outcome > table_.GetSizeOfDimension(dim)) return VEK_OUT_OF_RANGE;
    int res = table_.IncreaseDimensionSize(dim);
    if (res < 0) return res;
    table_.ShiftDataUpwards(dim, outcome, 0.0);
    return VEK_OKAY;
}

int VEK_utility::OnParentOutcomeRemove(int parent, int outcome) {
    int dim = ParentDimension(parent);
    if (dim < 0) return dim;
    if (outcome < 0 || outcome >= table_.GetSizeOfDimension(dim)) return VEK_OUT_OF_RANGE;
    if (table_.GetSizeOfDimension(dim) < 2) return VEK_OUT_OF_RANGE;
    table_.ShiftDataDownwards(dim, outcome);
    return table_.DecreaseDimensionSize(dim);
}

int VEK_utility::OnParentOutcomeReorder(int parent, const VEK_intArray& order) {
    int dim = ParentDimension(parent);
    if (dim < 0) return dim;
    return table_.ChangeOrderWithinDimension(dim, order);
}

int VEK_utility::OnParentReorder(const VEK_intArray& order) {
    const int parents = table_.GetNumberOfDimensions() - 1;
    if (order.GetSize() != parents) return VEK_OUT_OF_RANGE;
    VEK_intArray perm(order);
    perm.Add(parents);
    return table_.ChangeOrderOfDimensions(perm);
}

int VEK_utility::MakeUniform() {
    table_.FillWith(1.0);
    return VEK_OKAY;
}

double VEK_utility::GetMinimumUtility() const {
    double lo = std::numeric_limits<double>::infinity();
    for (double v : table_.GetItems()) {
        if (v != VEK_UNDEFINED_VALUE && v < lo) lo = v;
    }
    return lo == std::numeric_limits<double>::infinity() ? 0.0 : lo;
}

double VEK_utility::GetMaximumUtility() const {
    double hi = -std::numeric_limits<double>::infinity();
    for (double v : table_.GetItems()) {
        if (v != VEK_UNDEFINED_VALUE && v > hi) hi = v;
    }
    return hi == -std::numeric_limits<double>::infinity() ? 0.0 : hi;
}

int VEK_utility::Normalize() {
    const double lo = GetMinimumUtility();
    const double hi = GetMaximumUtility();
    if (lo == 0.0 && hi == 1.0) return VEK_OKAY;
    VEK_doubleArray& items = table_.GetItems();
    if (lo == hi) {
        for (double& v : items) {
            if (v != VEK_UNDEFINED_VALUE) v = 1.0;
        }
    } else {
        const double range = hi - lo;
        for (double& v : items) {
            if (v != VEK_UNDEFINED_VALUE) v = (v - lo) / range;
        }
    }
    OnParametersChanged();
    return VEK_OKAY;
}
