#include "network/cpt.h"

#include "inference/randGen.h"
#include "network/beliefVector.h"
#include "network/network.h"
#include "network/nodeXformContext.h"
#include "network/status.h"

VEK_cpt::VEK_cpt(VEK_network& net, int handle) : VEK_discDef(net, handle) {
    table_.SetSingleDimension(GetNumberOfOutcomes());
    VEK_cpt::MakeUniform();
}

VEK_cpt::VEK_cpt(const VEK_nodeXformContext& ctx) : VEK_discDef(*ctx.net, ctx.handle) {
    TakeOutcomesFrom(ctx);
    VEK_intArray dims;
    if (BuildParentDims(dims, GetNumberOfOutcomes()) < 0) {
        // Only discrete parents can feed a table; any other parent was
        // removed before the conversion, so this is a last resort.
        dims.Flush();
        for (int p : GetParents()) {
            int count = ParentOutcomeCount(p);
            dims.Add(count > 0 ? count : 1);
        }
        dims.Add(GetNumberOfOutcomes());
    }
    if (ctx.table && ctx.table->GetDimensions() == dims) {
        table_ = *ctx.table;
    } else {
        table_.Setup(dims);
        VEK_cpt::MakeUniform();
    }
}

VEK_nodeDef* VEK_cpt::Clone(VEK_network& net) const {
    VEK_cpt* copy = new VEK_cpt(*this);
    copy->Rebind(net, Handle());
    return copy;
}

VEK_nodeVal* VEK_cpt::CreateValue() const { return new VEK_beliefVector(Network(), Handle()); }

VEK_nodeVal* VEK_cpt::CreateValue(const VEK_valXformContext& ctx) const {
    return new VEK_beliefVector(Network(), Handle(), ctx);
}

int VEK_cpt::GetColumnCount() const {
    int last = table_.GetLastDimensionSize();
    return last > 0 ? table_.GetSize() / last : 0;
}

int VEK_cpt::ParentDimension(int parent) const {
    int pos = FindParentPosition(parent);
    if (pos < 0) return pos;
    return pos < table_.GetNumberOfDimensions() - 1 ? pos : VEK_OUT_OF_RANGE;
}

// ---------------------------------------------------------------- graph

int VEK_cpt::AddParent(int handle) {
    int pos = FindParentPosition(handle);
    if (pos < 0) return pos;
    if (pos > table_.GetNumberOfDimensions() - 1) return VEK_OUT_OF_RANGE;
    int res = table_.InsertDimension(pos, ParentOutcomeCount(handle));
    if (res < 0) return res;
    // Columns that lost an outcome's probability become distributions again.
    table_.Normalize();
    return VEK_OKAY;
}

int VEK_cpt::RemoveParent(int handle) {
    int dim = ParentDimension(handle);
    if (dim < 0) return dim;
    return table_.RemoveDimension(dim);
}

int VEK_cpt::OnParentOutcomeAdd(int parent, int outcome) {
    int dim = ParentDimension(parent);
    if (dim < 0) return dim;
    if (outcome < 0 || outcome > table_.GetSizeOfDimension(dim)) return VEK_OUT_OF_RANGE;
    int res = table_.IncreaseDimensionSize(dim);
    if (res < 0) return res;
    table_.ShiftDataUpwards(dim, outcome, 0.0);
    // The new columns are all zero and so become uniform.
    table_.Normalize();
    return VEK_OKAY;
}

int VEK_cpt::OnParentOutcomeRemove(int parent, int outcome) {
    int dim = ParentDimension(parent);
    if (dim < 0) return dim;
    if (outcome < 0 || outcome >= table_.GetSizeOfDimension(dim)) return VEK_OUT_OF_RANGE;
    if (table_.GetSizeOfDimension(dim) < 2) return VEK_OUT_OF_RANGE;
    table_.ShiftDataDownwards(dim, outcome);
    return table_.DecreaseDimensionSize(dim);
}

int VEK_cpt::OnParentOutcomeReorder(int parent, const VEK_intArray& order) {
    int dim = ParentDimension(parent);
    if (dim < 0) return dim;
    return table_.ChangeOrderWithinDimension(dim, order);
}

int VEK_cpt::OnParentReorder(const VEK_intArray& order) {
    const int parents = table_.GetNumberOfDimensions() - 1;
    if (order.GetSize() != parents) return VEK_OUT_OF_RANGE;
    VEK_intArray perm(order);
    perm.Add(parents);
    return table_.ChangeOrderOfDimensions(perm);
}

// ---------------------------------------------------------------- own outcomes

void VEK_cpt::AfterInsertOutcome(int position) {
    const int last = table_.GetNumberOfDimensions() - 1;
    table_.IncreaseDimensionSize(last);
    // The new outcome has probability 0 everywhere; columns still sum to 1.
    if (position != table_.GetSizeOfDimension(last) - 1) table_.ShiftDataUpwards(last, position, 0.0);
}

void VEK_cpt::AfterRemoveOutcome(int position) {
    const int last = table_.GetNumberOfDimensions() - 1;
    // Deliberately not renormalised: the caller sets the new values.
    table_.ShiftDataDownwards(last, position);
    table_.DecreaseDimensionSize(last);
}

void VEK_cpt::AfterReorderOutcomes(const VEK_intArray& order) {
    table_.ChangeOrderWithinDimension(table_.GetNumberOfDimensions() - 1, order);
}

void VEK_cpt::AfterOutcomeCountChanged() {
    // The parent dimensions are those of the table already: no need to reach
    // the parents.
    VEK_intArray dims(table_.GetDimensions());
    if (dims.IsEmpty()) {
        dims.Add(GetNumberOfOutcomes());
    } else {
        dims[dims.GetSize() - 1] = GetNumberOfOutcomes();
    }
    table_.Setup(dims);
    // Not the virtual one: a truth table makes its columns deterministic after.
    VEK_cpt::MakeUniform();
}

// ---------------------------------------------------------------- contents

int VEK_cpt::MakeUniform() {
    const int n = GetNumberOfOutcomes();
    if (n < 1) return VEK_WRONG_NUM_STATES;
    table_.FillWith(1.0 / n);
    return VEK_OKAY;
}

int VEK_cpt::MakeRandom(VEK_randGen& gen) {
    const int n = table_.GetLastDimensionSize();
    if (n < 1) return VEK_WRONG_NUM_STATES;
    double* items = table_.Items();
    for (int start = 0; start < table_.GetSize(); start += n) {
        int res = gen.Multinomial(n, items + start);
        if (res < 0) return res;
    }
    return VEK_OKAY;
}

void VEK_cpt::InitXform(VEK_nodeXformContext& ctx) const {
    VEK_discDef::InitXform(ctx);
    ctx.table = &table_;
}
