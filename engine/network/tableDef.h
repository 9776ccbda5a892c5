// Tables over a definition's parents, and the slice operations that reshape
// them when a parent's outcomes change.
#pragma once

#include "network/discDef.h"

// Inserts count slices of fill at position of dim (0 <= position <= size).
// One pass over the table, which is untouched when it fails (-2 for an
// argument out of range).
[[nodiscard]] int VEK_insertSlices(VEK_Dmatrix& m, int dim, int position, int count, double fill);
// Removes count slices of dim from position on; -2, untouched, when they are
// not all there or no slice would remain.
[[nodiscard]] int VEK_removeSlices(VEK_Dmatrix& m, int dim, int position, int count);

// A definition whose parameters are one table over its parents: a dimension
// per discrete parent (in parent order) followed by a dimension of the
// definition's own (outcomes, a single utility, weights). The table follows
// parent additions, removals and reorderings and parents' outcome changes
// here; a definition keeps its own rules through the hooks (which dimension a
// parent has, what a new parent outcome's slices hold, what to restore after
// the table grew).
//
// Base is the definition's base class (VEK_nodeDef or VEK_discDef).
template <class Base>
class VEK_tableDef : public Base {
public:
    using Base::Base;
    VEK_tableDef(const VEK_tableDef& other) = default;

    [[nodiscard]] int AddParent(int handle) override;
    [[nodiscard]] int RemoveParent(int handle) override;
    [[nodiscard]] int OnParentOutcomeAdd(int parent, int outcome) override;
    [[nodiscard]] int OnParentOutcomeRemove(int parent, int outcome) override;
    [[nodiscard]] int OnParentOutcomeReorder(int parent, const VEK_intArray& order) override;
    [[nodiscard]] int OnParentReorder(const VEK_intArray& order) override;

    const VEK_Dmatrix* GetMatrix() const override { return &table_; }
    const VEK_Dmatrix& GetParameters() const override { return table_; }
    VEK_Dmatrix& GetWriteableParameters() override { return table_; }

protected:
    // The dimension a parent has (or gets, when just added) before the
    // table's range is checked, or a negative code. Default: its position.
    virtual int ParentDimension(int parent) const;
    // What the slices of a new parent outcome hold.
    virtual double NewSliceValue() const { return 0.0; }
    // After a parent or a parent outcome was added.
    virtual void AfterTableGrew() {}

    // Dimensions over the parents' outcome counts and lastSize; a parent
    // without outcomes counts as one so the table still has its shape.
    void ParentTableDims(VEK_intArray& dims, int lastSize) const;
    VEK_Dmatrix& Table() { return table_; }
    const VEK_Dmatrix& Table() const { return table_; }

private:
    // The parent's dimension when it lies below limit, else a negative code.
    int CheckedDimension(int parent, int limit) const;

    VEK_Dmatrix table_;
};

extern template class VEK_tableDef<VEK_nodeDef>;
extern template class VEK_tableDef<VEK_discDef>;
