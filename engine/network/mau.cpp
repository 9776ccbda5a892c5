#include "network/mau.h"

#include "network/mauExpectedUtility.h"
#include "network/network.h"
#include "network/nodeXformContext.h"
#include "network/status.h"

VEK_mau::VEK_mau(VEK_network& net, int handle) : VEK_tableDef(net, handle) {
    (void)Table().SetSingleDimension(1);  // a valid size
    Table().FillWith(1.0);
}

VEK_mau::VEK_mau(const VEK_nodeXformContext& ctx) : VEK_tableDef(*ctx.net, ctx.handle) {
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
    (void)Table().Setup(dims);  // every size is at least 1
    Table().FillWith(1.0);
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

int VEK_mau::ParentDimension(int parent) const {
    int dim = 0;
    for (int p : GetParents()) {
        if (p == parent) return utilityParents_.IsInList(p) ? VEK_WRONG_NODE_TYPE : dim;
        if (!utilityParents_.IsInList(p)) ++dim;
    }
    return VEK_OUT_OF_RANGE;
}

int VEK_mau::AddParent(int handle) {
    int pos = FindParentPosition(handle);
    if (pos < 0) return pos;
    if (utilityParents_.IsInList(handle)) return VEK_OUT_OF_RANGE;
    int count = ParentOutcomeCount(handle);
    if (count > 0) return VEK_tableDef::AddParent(handle);
    if (count != VEK_WRONG_NODE_TYPE) return count;
    // A utility parent gets weight 1.0 in every column.
    const VEK_intArray& parents = GetParents();
    int index = 0;
    for (int i = 0; i < pos; ++i) {
        if (utilityParents_.IsInList(parents[i])) ++index;
    }
    if (utilityParents_.IsEmpty()) {
        Table().FillWith(1.0);
    } else {
        int res = VEK_insertSlices(Table(), Table().GetNumberOfDimensions() - 1, index, 1, 1.0);
        if (res < 0) return res;
    }
    (void)utilityParents_.Insert(index, handle);  // index counts utility parents before pos
    return VEK_OKAY;
}

int VEK_mau::RemoveParent(int handle) {
    int index = utilityParents_.FindPosition(handle);
    if (index < 0) return VEK_tableDef::RemoveParent(handle);
    if (utilityParents_.GetSize() == 1) {
        Table().FillWith(1.0);
    } else {
        int res = VEK_removeSlices(Table(), Table().GetNumberOfDimensions() - 1, index, 1);
        if (res < 0) return res;
    }
    (void)utilityParents_.Delete(index);  // a found position
    return VEK_OKAY;
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
            int dim = ParentDimension(p);
            if (dim < 0) return dim;
            dimPerm.Add(dim);
        }
    }
    if (dimPerm.GetSize() != Table().GetNumberOfDimensions() - 1) return VEK_OUT_OF_RANGE;
    dimPerm.Add(dimPerm.GetSize());
    VEK_Dmatrix reordered(Table());
    int res = reordered.ChangeOrderOfDimensions(dimPerm);
    if (res < 0) return res;
    if (utilPerm.GetSize() > 1) {
        res = reordered.ChangeOrderWithinDimension(reordered.GetNumberOfDimensions() - 1, utilPerm);
        if (res < 0) return res;
    }
    Table() = std::move(reordered);
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
    Table().FillWith(1.0);
    return VEK_OKAY;
}

int VEK_mau::DoCopyParameters(const VEK_nodeDef& other) {
    const VEK_mau* src = dynamic_cast<const VEK_mau*>(&other);
    if (!src) return VEK_WRONG_NODE_TYPE;
    Table() = src->GetWeights();
    expressions_ = src->expressions_;
    OnParametersChanged();
    return VEK_OKAY;
}

int VEK_mau::GetWeight(int column, int utilityParent, double& weight) const {
    const int index = utilityParents_.FindPosition(utilityParent);
    if (index < 0) return VEK_OUT_OF_RANGE;
    const int last = Table().GetLastDimensionSize();
    if (column < 0 || column >= Table().GetSize() / last) return VEK_OUT_OF_RANGE;
    weight = Table()[column * last + index];
    return VEK_OKAY;
}

int VEK_mau::SetExpressions(const std::vector<std::string>& expressions) {
    expressions_ = expressions;
    OnParametersChanged();
    if (Network().IsValidNode(Handle())) Network().RelevanceDefinitionChanged(Handle(), VEK_REL_DEF_CHANGE_1);
    return VEK_OKAY;
}
