#include "network/ciDef.h"

#include <cmath>
#include <cstdio>

#include "inference/randGen.h"
#include "network/network.h"
#include "network/nodeXformContext.h"
#include "network/status.h"
#include "network/tableDef.h"

namespace {

// Tolerance for a column of CI weights to count as a distribution: values
// written with 16 significant digits and sums of learnt values stay well
// inside it.
constexpr double kSumTolerance = 1e-6;

void FillUniform(double* column, int n) {
    const double v = 1.0 / n;
    for (int i = 0; i < n; ++i) column[i] = v;
}

}  // namespace

VEK_ciDef::VEK_ciDef(VEK_network& net, int handle) : VEK_lazyDef(net, handle) { SetupFromParents(); }

VEK_ciDef::VEK_ciDef(const VEK_nodeXformContext& ctx) : VEK_lazyDef(ctx) { SetupFromParents(); }

// Derived classes set up their per-parent data after this and then call
// FixConstrainedColumns; until then every column is uniform.
void VEK_ciDef::SetupFromParents() {
    parentSizes_.Flush();
    for (int p : GetParents()) parentSizes_.Add(SafeParentOutcomeCount(p));
    int columns = 1;
    for (int s : parentSizes_) columns += s;
    VEK_intArray dims{columns, GetNumberOfOutcomes()};
    (void)ciWeights_.Setup(dims);  // every size is at least 1
    ciWeights_.FillWith(1.0 / GetNumberOfOutcomes());
}

int VEK_ciDef::SafeParentOutcomeCount(int handle) const {
    int count = ParentOutcomeCount(handle);
    return count > 0 ? count : 1;
}

void VEK_ciDef::BuildCptDims(VEK_intArray& dims) const {
    dims = parentSizes_;
    dims.Add(GetNumberOfOutcomes());
}

// ---------------------------------------------------------------- structure

int VEK_ciDef::GetNumberOfColumns() const {
    return ciWeights_.GetNumberOfDimensions() > 0 ? ciWeights_.GetSizeOfDimension(0) : 0;
}

int VEK_ciDef::GetParentOutcomeCount(int parentIndex) const {
    if (parentIndex < 0 || parentIndex >= parentSizes_.GetSize()) return VEK_OUT_OF_RANGE;
    return parentSizes_[parentIndex];
}

int VEK_ciDef::GetParentColumnBase(int parentIndex) const {
    if (parentIndex < 0 || parentIndex >= parentSizes_.GetSize()) return VEK_OUT_OF_RANGE;
    int base = 0;
    for (int i = 0; i < parentIndex; ++i) base += parentSizes_[i];
    return base;
}

int VEK_ciDef::StoredParentPosition(int handle) const {
    int pos = FindParentPosition(handle);
    if (pos < 0) return pos;
    return pos < parentSizes_.GetSize() ? pos : VEK_OUT_OF_RANGE;
}

int VEK_ciDef::InitWeights(int columns) {
    int expected = 1;
    for (int s : parentSizes_) expected += s;
    if (columns != expected) return VEK_OUT_OF_RANGE;
    VEK_intArray dims{columns, GetNumberOfOutcomes()};
    (void)ciWeights_.Setup(dims);  // every size is at least 1
    ciWeights_.FillWith(1.0 / GetNumberOfOutcomes());
    FixConstrainedColumns();
    Invalidate();
    return VEK_OKAY;
}

// ---------------------------------------------------------------- constraints

bool VEK_ciDef::IsColumnConstrained(int column) const {
    for (int j = 0; j < parentSizes_.GetSize(); ++j) {
        if (GetConstrainedColumn(j) == column) return true;
    }
    return false;
}

bool VEK_ciDef::CiIndexConstrained(int index) const {
    const int n = GetNumberOfOutcomes();
    if (index < 0 || index >= ciWeights_.GetSize() || n < 1) return false;
    return IsColumnConstrained(index / n);
}

void VEK_ciDef::GetUnconstrainedColumns(VEK_intArray& columns) const {
    columns.Flush();
    const int count = GetNumberOfColumns();
    for (int c = 0; c < count; ++c) {
        if (!IsColumnConstrained(c)) columns.Add(c);
    }
}

int VEK_ciDef::SetConstrainedColumn(int column, int outcome) {
    const int n = GetNumberOfOutcomes();
    if (column < 0 || column >= GetNumberOfColumns()) return VEK_OUT_OF_RANGE;
    if (outcome == -1) outcome = n - 1;
    if (outcome < 0 || outcome >= n) return VEK_OUT_OF_RANGE;
    double* p = ciWeights_.Items() + column * n;
    for (int i = 0; i < n; ++i) p[i] = 0.0;
    p[outcome] = 1.0;
    return VEK_OKAY;
}

void VEK_ciDef::FixConstrainedColumns() {
    const int outcome = GetConstrainedOutcome();
    // Column and outcome come from this definition: the calls cannot fail.
    for (int j = 0; j < parentSizes_.GetSize(); ++j) (void)SetConstrainedColumn(GetConstrainedColumn(j), outcome);
}

// ---------------------------------------------------------------- weights

int VEK_ciDef::CheckWeightsDimensions(int itemCount) const {
    return itemCount == ciWeights_.GetSize() ? VEK_OKAY : VEK_OUT_OF_RANGE;
}

int VEK_ciDef::ValidateWeights(const double* items, int count, std::string* message) const {
    if (CheckWeightsDimensions(count) < 0) {
        if (message) {
            char text[96];
            std::snprintf(text, sizeof text, "CI weights need %d items, got %d", ciWeights_.GetSize(), count);
            *message = text;
        }
        return VEK_OUT_OF_RANGE;
    }
    const int n = GetNumberOfOutcomes();
    const int columns = GetNumberOfColumns();
    for (int c = 0; c < columns; ++c) {
        if (IsColumnConstrained(c)) continue;
        const double* p = items + c * n;
        double sum = 0.0;
        for (int i = 0; i < n; ++i) {
            if (!(p[i] >= 0.0 && p[i] <= 1.0)) {
                if (message) {
                    char text[96];
                    std::snprintf(text, sizeof text, "CI weight %d of column %d is outside [0, 1]", i, c);
                    *message = text;
                }
                return VEK_OUT_OF_RANGE;
            }
            sum += p[i];
        }
        if (!(std::fabs(sum - 1.0) <= kSumTolerance)) {
            if (message) {
                char text[96];
                std::snprintf(text, sizeof text, "CI weights of column %d sum to %.16g", c, sum);
                *message = text;
            }
            return VEK_OUT_OF_RANGE;
        }
    }
    return VEK_OKAY;
}

int VEK_ciDef::CheckCiWeightsConsistency(const VEK_Dmatrix& weights, std::string& message) const {
    message.clear();
    return ValidateWeights(weights.Items(), weights.GetSize(), &message);
}

int VEK_ciDef::SetCiWeights(const VEK_doubleArray& items) {
    int res = ValidateWeights(items.Items(), items.GetSize(), nullptr);
    if (res < 0) return res;
    ciWeights_.FillFrom(items.Items());
    FixConstrainedColumns();
    Invalidate();
    return VEK_OKAY;
}

int VEK_ciDef::SetCiWeights(const VEK_Dmatrix& weights) {
    int res = ValidateWeights(weights.Items(), weights.GetSize(), nullptr);
    if (res < 0) return res;
    ciWeights_.FillFrom(weights.Items());
    FixConstrainedColumns();
    Invalidate();
    return VEK_OKAY;
}

void VEK_ciDef::OnParametersChanged() {
    FixConstrainedColumns();
    Invalidate();
}

int VEK_ciDef::MakeUniform() {
    const int n = GetNumberOfOutcomes();
    if (n < 1) return VEK_WRONG_NUM_STATES;
    ciWeights_.FillWith(1.0 / n);
    FixConstrainedColumns();
    Invalidate();
    return VEK_OKAY;
}

int VEK_ciDef::MakeRandom(VEK_randGen& gen) {
    const int n = GetNumberOfOutcomes();
    if (n < 1) return VEK_WRONG_NUM_STATES;
    const int columns = GetNumberOfColumns();
    for (int c = 0; c < columns; ++c) {
        if (IsColumnConstrained(c)) continue;
        int res = gen.Multinomial(n, ciWeights_.Items() + c * n);
        if (res < 0) return res;
    }
    Invalidate();
    return VEK_OKAY;
}

// ---------------------------------------------------------------- column edits

int VEK_ciDef::InsertParentColumn(int parentIndex, int column) {
    const int n = GetNumberOfOutcomes();
    if (const int res = VEK_insertSlices(ciWeights_, 0, column, 1, 0.0); res < 0) return res;
    FillUniform(ciWeights_.Items() + column * n, n);
    ++parentSizes_[parentIndex];
    return VEK_OKAY;
}

int VEK_ciDef::DeleteParentColumn(int parentIndex, int column) {
    if (const int res = VEK_removeSlices(ciWeights_, 0, column, 1); res < 0) return res;
    --parentSizes_[parentIndex];
    return VEK_OKAY;
}

void VEK_ciDef::ReorderParentColumns(int parentIndex, const VEK_intArray& perm) {
    const int base = GetParentColumnBase(parentIndex);
    const int columns = GetNumberOfColumns();
    VEK_intArray full;
    (void)full.MakeIdentityPermutation(columns);  // columns >= 1
    for (int i = 0; i < perm.GetSize(); ++i) full[base + i] = base + perm[i];
    (void)ciWeights_.ChangeOrderWithinDimension(0, full);  // a full permutation of the columns
}

// ---------------------------------------------------------------- graph

int VEK_ciDef::AddParent(int handle) {
    const int pos = FindParentPosition(handle);
    if (pos < 0) return pos;
    if (pos > parentSizes_.GetSize()) return VEK_OUT_OF_RANGE;
    const int count = ParentOutcomeCount(handle);
    if (count < 1) return VEK_OUT_OF_RANGE;
    // The block goes where the parent's columns belong; its columns start
    // all zero and become uniform through the normalisation below.
    int base = 0;
    for (int i = 0; i < pos; ++i) base += parentSizes_[i];
    int res = VEK_insertSlices(ciWeights_, 0, base, count, 0.0);
    if (res < 0) return res;
    (void)parentSizes_.Insert(pos, count);  // pos is a parent position
    OnParentInserted(pos);
    ciWeights_.Normalize();
    FixConstrainedColumns();
    Invalidate();
    return VEK_OKAY;
}

int VEK_ciDef::RemoveParent(int handle) {
    const int pos = StoredParentPosition(handle);
    if (pos < 0) return pos;
    const int base = GetParentColumnBase(pos);
    if (const int res = VEK_removeSlices(ciWeights_, 0, base, parentSizes_[pos]); res < 0) return res;
    (void)parentSizes_.Delete(pos);  // pos is a parent position
    OnParentDeleted(pos);
    Invalidate();
    return VEK_OKAY;
}

int VEK_ciDef::OnParentReorder(const VEK_intArray& order) {
    const int k = parentSizes_.GetSize();
    if (order.GetSize() != k || !order.IsPermutation()) return VEK_OUT_OF_RANGE;
    // New block i is old block order[i]; the leak stays last.
    VEK_intArray bases(k);
    for (int j = 1; j < k; ++j) bases[j] = bases[j - 1] + parentSizes_[j - 1];
    VEK_intArray perm;
    VEK_intArray sizes;
    for (int i = 0; i < k; ++i) {
        const int old = order[i];
        for (int c = 0; c < parentSizes_[old]; ++c) perm.Add(bases[old] + c);
        sizes.Add(parentSizes_[old]);
    }
    perm.Add(GetLeakColumn());
    int res = ciWeights_.ChangeOrderWithinDimension(0, perm);
    if (res < 0) return res;
    parentSizes_ = sizes;
    OnParentsReordered(order);
    Invalidate();
    return VEK_OKAY;
}

// ---------------------------------------------------------------- own outcomes

void VEK_ciDef::AfterInsertOutcome(int position) {
    // The new outcome has weight 0 in every column; the columns stay
    // distributions.
    if (const int res = VEK_insertSlices(ciWeights_, 1, position, 1, 0.0); res < 0) {
        Network().Logger().LogError(res, "The weights could not take the new outcome");
    }
    OnOwnOutcomeInserted(position);
    FixConstrainedColumns();
    Invalidate();
}

void VEK_ciDef::AfterRemoveOutcome(int position) {
    if (const int res = VEK_removeSlices(ciWeights_, 1, position, 1); res < 0) {
        Network().Logger().LogError(res, "The weights could not drop the outcome");
    }
    // Unlike a CPT the weights are renormalised at once: a CI column that
    // is not a distribution has no meaning in the combination.
    ciWeights_.Normalize();
    OnOwnOutcomeRemoved(position);
    FixConstrainedColumns();
    Invalidate();
}

void VEK_ciDef::AfterReorderOutcomes(const VEK_intArray& order) {
    (void)ciWeights_.ChangeOrderWithinDimension(1, order);  // order is a permutation of the outcomes
    OnOwnOutcomesReordered(order);
    FixConstrainedColumns();
    Invalidate();
}

void VEK_ciDef::AfterOutcomeCountChanged() {
    const int columns = GetNumberOfColumns();
    VEK_intArray dims{columns, GetNumberOfOutcomes()};
    (void)ciWeights_.Setup(dims);  // every size is at least 1
    ciWeights_.FillWith(1.0 / GetNumberOfOutcomes());
    OnOwnOutcomeCountReset();
    FixConstrainedColumns();
    Invalidate();
}
