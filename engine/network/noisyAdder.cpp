#include "network/noisyAdder.h"

#include <cmath>
#include <cstring>
#include <vector>

#include "network/canonicalOdometer.h"
#include "network/nodeXformContext.h"
#include "network/status.h"

namespace {

bool ValidWeight(double w) { return w >= 0.0 && std::isfinite(w); }

}  // namespace

VEK_noisyAdder::VEK_noisyAdder(VEK_network& net, int handle) : VEK_ciDef(net, handle) { InitParentData(); }

VEK_noisyAdder::VEK_noisyAdder(const VEK_nodeXformContext& ctx) : VEK_ciDef(ctx) { InitParentData(); }

void VEK_noisyAdder::InitParentData() {
    distinguished_ = GetNumberOfOutcomes() - 1;
    parentStates_.Flush();
    weights_.Flush();
    for (int s : ParentSizes()) {
        parentStates_.Add(s - 1);
        weights_.Add(1.0);
    }
    FixConstrainedColumns();
}

VEK_nodeDef* VEK_noisyAdder::Clone(VEK_network& net) const {
    VEK_noisyAdder* copy = new VEK_noisyAdder(*this);
    copy->Rebind(net, Handle());
    return copy;
}

int VEK_noisyAdder::GetConstrainedColumn(int parentIndex) const {
    return GetParentColumnBase(parentIndex) + parentStates_[parentIndex];
}

int VEK_noisyAdder::DoCopyParameters(const VEK_nodeDef& other) {
    const auto& src = static_cast<const VEK_noisyAdder&>(other);
    if (!(src.ParentSizes() == ParentSizes())) return VEK_OUT_OF_RANGE;
    GetWriteableParameters() = src.GetParameters();
    distinguished_ = src.distinguished_;
    parentStates_ = src.parentStates_;
    weights_ = src.weights_;
    function_ = src.function_;
    FixConstrainedColumns();
    Invalidate();
    return VEK_OKAY;
}

// ---------------------------------------------------------------- parameters

int VEK_noisyAdder::SetDistinguishedState(int state) {
    if (state < 0 || state >= GetNumberOfOutcomes()) return VEK_OUT_OF_RANGE;
    distinguished_ = state;
    FixConstrainedColumns();
    Invalidate();
    return VEK_OKAY;
}

int VEK_noisyAdder::GetParentDistinguishedState(int parentIndex) const {
    if (parentIndex < 0 || parentIndex >= parentStates_.GetSize()) return VEK_OUT_OF_RANGE;
    return parentStates_[parentIndex];
}

// The former distinguished column keeps its (constrained) content as a free
// column; the new one is overwritten by the constraint.
int VEK_noisyAdder::SetParentDistinguishedState(int parentIndex, int state) {
    const int m = GetParentOutcomeCount(parentIndex);
    if (m < 0) return m;
    if (state < 0 || state >= m) return VEK_OUT_OF_RANGE;
    parentStates_[parentIndex] = state;
    FixConstrainedColumns();
    Invalidate();
    return VEK_OKAY;
}

int VEK_noisyAdder::SetParentDistinguishedStates(const VEK_intArray& states) {
    if (states.GetSize() != parentStates_.GetSize()) return VEK_OUT_OF_RANGE;
    for (int j = 0; j < states.GetSize(); ++j) {
        if (states[j] < 0 || states[j] >= ParentSizes()[j]) return VEK_OUT_OF_RANGE;
    }
    parentStates_ = states;
    FixConstrainedColumns();
    Invalidate();
    return VEK_OKAY;
}

int VEK_noisyAdder::GetParentWeight(int parentIndex, double& weight) const {
    if (parentIndex < 0 || parentIndex >= weights_.GetSize()) return VEK_OUT_OF_RANGE;
    weight = weights_[parentIndex];
    return VEK_OKAY;
}

int VEK_noisyAdder::SetParentWeight(int parentIndex, double weight) {
    if (parentIndex < 0 || parentIndex >= weights_.GetSize() || !ValidWeight(weight)) return VEK_OUT_OF_RANGE;
    weights_[parentIndex] = weight;
    Invalidate();
    return VEK_OKAY;
}

int VEK_noisyAdder::SetParentWeights(const VEK_doubleArray& weights) {
    if (weights.GetSize() != weights_.GetSize()) return VEK_OUT_OF_RANGE;
    for (double w : weights) {
        if (!ValidWeight(w)) return VEK_OUT_OF_RANGE;
    }
    weights_ = weights;
    Invalidate();
    return VEK_OKAY;
}

int VEK_noisyAdder::SetFunction(Function function) {
    if (function != FUNCTION_AVERAGE && function != FUNCTION_SINGLE_FAULT) return VEK_OUT_OF_RANGE;
    function_ = function;
    Invalidate();
    return VEK_OKAY;
}

const char* VEK_noisyAdder::FunctionName(Function function) {
    switch (function) {
        case FUNCTION_AVERAGE: return "average";
        case FUNCTION_SINGLE_FAULT: return "singlefault";
    }
    return nullptr;
}

int VEK_noisyAdder::FunctionFromName(const char* name, Function& function) {
    if (!name) return VEK_OUT_OF_RANGE;
    if (std::strcmp(name, "average") == 0) {
        function = FUNCTION_AVERAGE;
    } else if (std::strcmp(name, "singlefault") == 0) {
        function = FUNCTION_SINGLE_FAULT;
    } else {
        return VEK_OUT_OF_RANGE;
    }
    return VEK_OKAY;
}

// ---------------------------------------------------------------- graph

// Positions and orders come from the parent list, which has checked them.
void VEK_noisyAdder::OnParentInserted(int position) {
    (void)parentStates_.Insert(position, ParentSizes()[position] - 1);
    (void)weights_.Insert(position, 1.0);
}

void VEK_noisyAdder::OnParentDeleted(int position) {
    (void)parentStates_.Delete(position);
    (void)weights_.Delete(position);
}

void VEK_noisyAdder::OnParentsReordered(const VEK_intArray& order) {
    (void)parentStates_.ChangeOrder(order);
    (void)weights_.ChangeOrder(order);
}

int VEK_noisyAdder::OnParentOutcomeAdd(int parent, int outcome) {
    const int pos = StoredParentPosition(parent);
    if (pos < 0) return pos;
    const int m = ParentSizes()[pos];
    if (outcome < 0 || outcome > m) return VEK_OUT_OF_RANGE;
    if (const int res = InsertParentColumn(pos, GetParentColumnBase(pos) + outcome); res < 0) return res;
    if (parentStates_[pos] >= outcome) ++parentStates_[pos];
    FixConstrainedColumns();
    Invalidate();
    return VEK_OKAY;
}

// Removing the distinguished state makes the parent's last state the
// distinguished one.
int VEK_noisyAdder::OnParentOutcomeRemove(int parent, int outcome) {
    const int pos = StoredParentPosition(parent);
    if (pos < 0) return pos;
    const int m = ParentSizes()[pos];
    if (outcome < 0 || outcome >= m || m < 2) return VEK_OUT_OF_RANGE;
    if (const int res = DeleteParentColumn(pos, GetParentColumnBase(pos) + outcome); res < 0) return res;
    int& d = parentStates_[pos];
    if (d == outcome) {
        d = m - 2;
    } else if (d > outcome) {
        --d;
    }
    FixConstrainedColumns();
    Invalidate();
    return VEK_OKAY;
}

int VEK_noisyAdder::OnParentOutcomeReorder(int parent, const VEK_intArray& order) {
    const int pos = StoredParentPosition(parent);
    if (pos < 0) return pos;
    const int m = ParentSizes()[pos];
    if (order.GetSize() != m || !order.IsPermutation()) return VEK_OUT_OF_RANGE;
    ReorderParentColumns(pos, order);
    parentStates_[pos] = order.FindPosition(parentStates_[pos]);
    Invalidate();
    return VEK_OKAY;
}

void VEK_noisyAdder::OnOwnOutcomeInserted(int position) {
    if (distinguished_ >= position) ++distinguished_;
}

void VEK_noisyAdder::OnOwnOutcomeRemoved(int position) {
    if (distinguished_ == position) {
        distinguished_ = GetNumberOfOutcomes() - 1;
    } else if (distinguished_ > position) {
        --distinguished_;
    }
}

void VEK_noisyAdder::OnOwnOutcomesReordered(const VEK_intArray& order) {
    distinguished_ = order.FindPosition(distinguished_);
}

void VEK_noisyAdder::OnOwnOutcomeCountReset() { distinguished_ = GetNumberOfOutcomes() - 1; }

// ---------------------------------------------------------------- table

int VEK_noisyAdder::CalculateCpt() { return CiToCpt(GetCiWeights(), CptMatrix()); }

int VEK_noisyAdder::CiToCpt(const VEK_Dmatrix& ci, VEK_Dmatrix& cpt) const {
    return function_ == FUNCTION_SINGLE_FAULT ? CiToCptSingleFault(ci, cpt) : CiToCptAverage(ci, cpt);
}

// Running sums per level: level j holds L + sum over parents before j of
// w * column; one pass over the output as for noisy-MAX.
int VEK_noisyAdder::CiToCptAverage(const VEK_Dmatrix& ci, VEK_Dmatrix& cpt) const {
    const int n = GetNumberOfOutcomes();
    if (n < 1 || ci.GetSize() != GetCiWeights().GetSize()) return VEK_OUT_OF_RANGE;
    VEK_intArray dims;
    BuildCptDims(dims);
    if (const int res = cpt.Setup(dims); res < 0) return res;
    double* out = cpt.Items();
    const double* w = ci.Items();
    const double* leak = w + static_cast<size_t>(GetLeakColumn()) * n;
    const int k = GetNumberOfParents();
    double total = 1.0;
    for (double v : weights_) total += v;
    const double scale = 1.0 / total;
    if (k == 0) {
        for (int i = 0; i < n; ++i) out[i] = leak[i];
        return VEK_OKAY;
    }
    std::vector<int> base(k);
    for (int j = 1; j < k; ++j) base[j] = base[j - 1] + ParentSizes()[j - 1];
    std::vector<double> acc(static_cast<size_t>(k) * n);
    for (int i = 0; i < n; ++i) acc[i] = leak[i];
    double* a0 = acc.data();
    const double* top = a0 + static_cast<size_t>(k - 1) * n;
    const double* lastCols = w + static_cast<size_t>(base[k - 1]) * n;
    const double lastWeight = weights_[k - 1];

    VEK_walkParentColumns(
        ParentSizes().Items(), k,
        [&](int j, int x) {
            const double* a = a0 + static_cast<size_t>(j) * n;
            const double* b = w + static_cast<size_t>(base[j] + x) * n;
            double* c = a0 + static_cast<size_t>(j + 1) * n;
            const double wj = weights_[j];
            for (int i = 0; i < n; ++i) c[i] = a[i] + wj * b[i];
        },
        [&](int x) {
            const double* b = lastCols + static_cast<size_t>(x) * n;
            for (int i = 0; i < n; ++i) out[i] = (top[i] + lastWeight * b[i]) * scale;
            out += n;
        });
    return VEK_OKAY;
}

// Level j holds the weighted sum of the active parents before j and their
// total weight.
int VEK_noisyAdder::CiToCptSingleFault(const VEK_Dmatrix& ci, VEK_Dmatrix& cpt) const {
    const int n = GetNumberOfOutcomes();
    if (n < 1 || ci.GetSize() != GetCiWeights().GetSize()) return VEK_OUT_OF_RANGE;
    VEK_intArray dims;
    BuildCptDims(dims);
    if (const int res = cpt.Setup(dims); res < 0) return res;
    double* out = cpt.Items();
    const double* w = ci.Items();
    const double* leak = w + static_cast<size_t>(GetLeakColumn()) * n;
    const int k = GetNumberOfParents();
    if (k == 0) {
        for (int i = 0; i < n; ++i) out[i] = leak[i];
        return VEK_OKAY;
    }
    std::vector<int> base(k);
    for (int j = 1; j < k; ++j) base[j] = base[j - 1] + ParentSizes()[j - 1];
    std::vector<double> acc(static_cast<size_t>(k) * n, 0.0);
    std::vector<double> mass(k, 0.0);
    double* a0 = acc.data();
    const double* top = a0 + static_cast<size_t>(k - 1) * n;
    const double* lastCols = w + static_cast<size_t>(base[k - 1]) * n;

    VEK_walkParentColumns(
        ParentSizes().Items(), k,
        [&](int j, int x) {
            const double* a = a0 + static_cast<size_t>(j) * n;
            double* c = a0 + static_cast<size_t>(j + 1) * n;
            const double wj = weights_[j];
            if (x != parentStates_[j] && wj > 0.0) {
                const double* b = w + static_cast<size_t>(base[j] + x) * n;
                for (int i = 0; i < n; ++i) c[i] = a[i] + wj * b[i];
                mass[j + 1] = mass[j] + wj;
            } else {
                for (int i = 0; i < n; ++i) c[i] = a[i];
                mass[j + 1] = mass[j];
            }
        },
        [&](int x) {
            const double wl = weights_[k - 1];
            const bool active = x != parentStates_[k - 1] && wl > 0.0;
            const double m = mass[k - 1] + (active ? wl : 0.0);
            if (m > 0.0) {
                const double inv = 1.0 / m;
                const double* b = lastCols + static_cast<size_t>(x) * n;
                for (int i = 0; i < n; ++i) out[i] = (top[i] + (active ? wl * b[i] : 0.0)) * inv;
            } else {
                for (int i = 0; i < n; ++i) out[i] = leak[i];
            }
            out += n;
        });
    return VEK_OKAY;
}
