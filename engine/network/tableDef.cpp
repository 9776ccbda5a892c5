#include "network/tableDef.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "network/status.h"

namespace {

// Replaces `removed` slices of dim from position on by `added` slices of fill.
// Row-major: the table is a run of blocks, one per combination of the
// dimensions before dim, each holding the slices of dim as contiguous runs of
// `inner` items. Building the new table block by block copies every item
// once, where growing and shifting one slice at a time would move them again
// for every slice. The caller checked the arguments.
int Splice(VEK_Dmatrix& m, int dim, int position, int removed, int added, double fill) {
    const int states = m.GetSizeOfDimension(dim);
    VEK_intArray dims(m.GetDimensions());
    dims[dim] += added - removed;
    VEK_Dmatrix out;
    const int res = out.Setup(dims);
    if (res < 0) return res;
    const size_t inner = static_cast<size_t>(m.GetProducts()[dim]);
    const size_t head = position * inner;
    const size_t skip = removed * inner;
    const size_t put = added * inner;
    const size_t tail = (states - position - removed) * inner;
    const size_t blocks = m.GetSize() / (states * inner);
    const double* src = m.Items();
    double* dst = out.Items();
    for (size_t b = 0; b < blocks; ++b) {
        std::memcpy(dst, src, sizeof(double) * head);
        std::fill_n(dst + head, put, fill);
        std::memcpy(dst + head + put, src + head + skip, sizeof(double) * tail);
        src += head + skip + tail;
        dst += head + put + tail;
    }
    m = std::move(out);
    return VEK_OKAY;
}

}  // namespace

int VEK_insertSlices(VEK_Dmatrix& m, int dim, int position, int count, double fill) {
    if (dim < 0 || dim >= m.GetNumberOfDimensions() || count < 0) return VEK_OUT_OF_RANGE;
    const int states = m.GetSizeOfDimension(dim);
    if (position < 0 || position > states || count > INT_MAX - states) return VEK_OUT_OF_RANGE;
    return count == 0 ? VEK_OKAY : Splice(m, dim, position, 0, count, fill);
}

int VEK_removeSlices(VEK_Dmatrix& m, int dim, int position, int count) {
    if (dim < 0 || dim >= m.GetNumberOfDimensions() || count < 0) return VEK_OUT_OF_RANGE;
    const int states = m.GetSizeOfDimension(dim);
    if (position < 0 || count > states - position || count >= states) return VEK_OUT_OF_RANGE;
    return count == 0 ? VEK_OKAY : Splice(m, dim, position, count, 0, 0.0);
}

template <class Base>
int VEK_tableDef<Base>::ParentDimension(int parent) const {
    return this->FindParentPosition(parent);
}

template <class Base>
int VEK_tableDef<Base>::CheckedDimension(int parent, int limit) const {
    const int dim = ParentDimension(parent);
    if (dim < 0) return dim;
    return dim < limit ? dim : VEK_OUT_OF_RANGE;
}

template <class Base>
void VEK_tableDef<Base>::ParentTableDims(VEK_intArray& dims, int lastSize) const {
    if (this->BuildParentDims(dims, lastSize) >= 0) return;
    // Only discrete parents can feed a table; any other parent was removed
    // before a type conversion, so this is a last resort.
    dims.Flush();
    for (int p : this->GetParents()) {
        const int count = this->ParentOutcomeCount(p);
        dims.Add(count > 0 ? count : 1);
    }
    dims.Add(lastSize);
}

// ---------------------------------------------------------------- graph

template <class Base>
int VEK_tableDef<Base>::AddParent(int handle) {
    const int dim = CheckedDimension(handle, table_.GetNumberOfDimensions());
    if (dim < 0) return dim;
    const int res = table_.InsertDimension(dim, this->ParentOutcomeCount(handle));
    if (res < 0) return res;
    AfterTableGrew();
    return VEK_OKAY;
}

template <class Base>
int VEK_tableDef<Base>::RemoveParent(int handle) {
    const int dim = CheckedDimension(handle, table_.GetNumberOfDimensions() - 1);
    if (dim < 0) return dim;
    return table_.RemoveDimension(dim);
}

template <class Base>
int VEK_tableDef<Base>::OnParentOutcomeAdd(int parent, int outcome) {
    const int dim = CheckedDimension(parent, table_.GetNumberOfDimensions() - 1);
    if (dim < 0) return dim;
    const int res = VEK_insertSlices(table_, dim, outcome, 1, NewSliceValue());
    if (res < 0) return res;
    AfterTableGrew();
    return VEK_OKAY;
}

template <class Base>
int VEK_tableDef<Base>::OnParentOutcomeRemove(int parent, int outcome) {
    const int dim = CheckedDimension(parent, table_.GetNumberOfDimensions() - 1);
    if (dim < 0) return dim;
    return VEK_removeSlices(table_, dim, outcome, 1);
}

template <class Base>
int VEK_tableDef<Base>::OnParentOutcomeReorder(int parent, const VEK_intArray& order) {
    const int dim = CheckedDimension(parent, table_.GetNumberOfDimensions() - 1);
    if (dim < 0) return dim;
    return table_.ChangeOrderWithinDimension(dim, order);
}

template <class Base>
int VEK_tableDef<Base>::OnParentReorder(const VEK_intArray& order) {
    const int parents = table_.GetNumberOfDimensions() - 1;
    if (order.GetSize() != parents) return VEK_OUT_OF_RANGE;
    VEK_intArray perm(order);
    perm.Add(parents);
    return table_.ChangeOrderOfDimensions(perm);
}

template class VEK_tableDef<VEK_nodeDef>;
template class VEK_tableDef<VEK_discDef>;
