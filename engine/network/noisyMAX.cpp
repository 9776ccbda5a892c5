#include "network/noisyMAX.h"

#include <cmath>
#include <cstdio>

#include "network/canonicalOdometer.h"
#include "network/nodeXformContext.h"
#include "network/status.h"

namespace {

// Relative slack for the Henrion checks: parameters written with 16
// significant digits must pass.
constexpr double kHenrionTolerance = 1e-9;

VEK_intArray Identity(int n) {
    VEK_intArray a;
    (void)a.MakeIdentityPermutation(n);  // n is a count
    return a;
}

// Cumulative from the bottom: c[i] = p[i] + ... + p[n-1].
void CumulateColumn(const double* p, int n, double* c) {
    double run = 0.0;
    for (int i = n - 1; i >= 0; --i) {
        run += p[i];
        c[i] = run;
    }
}

// Back from cumulative form; negative differences become 0.
void Decumulate(const double* c, int n, double* p) {
    for (int i = 0; i + 1 < n; ++i) {
        double d = c[i] - c[i + 1];
        p[i] = d > 0.0 ? d : 0.0;
    }
    p[n - 1] = c[n - 1] > 0.0 ? c[n - 1] : 0.0;
}

// Net cumulative weights from a cumulative column h and the leak's cl:
// h / cl where defined, 0 where the leak leaves it open, clipped to a
// non-increasing sequence within [0, 1].
void NetFromCumulative(const double* h, const double* cl, int n, double* c) {
    double prev = 1.0;
    for (int i = 0; i < n; ++i) {
        double v = cl[i] > 0.0 ? h[i] / cl[i] : 0.0;
        if (!(v >= 0.0)) v = 0.0;
        if (v > prev) v = prev;
        c[i] = v;
        prev = v;
    }
}

}  // namespace

VEK_noisyMAX::VEK_noisyMAX(VEK_network& net, int handle) : VEK_ciDef(net, handle) {
    for (int s : ParentSizes()) strengths_.push_back(Identity(s));
    FixConstrainedColumns();
}

VEK_noisyMAX::VEK_noisyMAX(const VEK_nodeXformContext& ctx) : VEK_ciDef(ctx) {
    for (int s : ParentSizes()) strengths_.push_back(Identity(s));
    FixConstrainedColumns();
    if (ctx.table) {
        VEK_intArray dims;
        BuildCptDims(dims);
        // A table that cannot be read as noisy-MAX leaves the uniform weights.
        if (ctx.table->GetDimensions() == dims) (void)CptToCi(*ctx.table);
    }
}

VEK_nodeDef* VEK_noisyMAX::Clone(VEK_network& net) const {
    VEK_noisyMAX* copy = new VEK_noisyMAX(*this);
    copy->Rebind(net, Handle());
    return copy;
}

int VEK_noisyMAX::GetConstrainedColumn(int parentIndex) const {
    return GetParentColumnBase(parentIndex) + GetParentOutcomeCount(parentIndex) - 1;
}

int VEK_noisyMAX::DoCopyParameters(const VEK_nodeDef& other) {
    const auto& src = static_cast<const VEK_noisyMAX&>(other);
    if (!(src.ParentSizes() == ParentSizes())) return VEK_OUT_OF_RANGE;
    GetWriteableParameters() = src.GetParameters();
    strengths_ = src.strengths_;
    synchronized_ = src.synchronized_;
    FixConstrainedColumns();
    Invalidate();
    return VEK_OKAY;
}

// ---------------------------------------------------------------- strengths

const VEK_intArray* VEK_noisyMAX::GetParentOutcomeStrengths(int parentIndex) const {
    if (parentIndex < 0 || parentIndex >= static_cast<int>(strengths_.size())) return nullptr;
    return &strengths_[parentIndex];
}

int VEK_noisyMAX::GetStrengthPositions(int parentIndex, VEK_intArray& positions) const {
    const VEK_intArray* s = GetParentOutcomeStrengths(parentIndex);
    if (!s) return VEK_OUT_OF_RANGE;
    (void)positions.SetSize(s->GetSize());  // a size
    for (int p = 0; p < s->GetSize(); ++p) positions[(*s)[p]] = p;
    return VEK_OKAY;
}

int VEK_noisyMAX::SetParentOutcomeStrengths(int parentIndex, const VEK_intArray& strengths) {
    const VEK_intArray* current = GetParentOutcomeStrengths(parentIndex);
    if (!current) return VEK_OUT_OF_RANGE;
    if (strengths.GetSize() != current->GetSize() || !strengths.IsPermutation()) return VEK_OUT_OF_RANGE;
    SetParentOutcomeStrengthsUnchecked(parentIndex, strengths);
    return VEK_OKAY;
}

void VEK_noisyMAX::SetParentOutcomeStrengthsUnchecked(int parentIndex, const VEK_intArray& strengths) {
    // Still guarded: a list that is not a permutation would leave outcomes
    // without a column in the table computation.
    const VEK_intArray* current = GetParentOutcomeStrengths(parentIndex);
    if (!current || strengths.GetSize() != current->GetSize() || !strengths.IsPermutation()) return;
    strengths_[parentIndex] = strengths;
    if (!strengths.IsIdentityPermutation()) synchronized_ = false;
    Invalidate();
}

int VEK_noisyMAX::ChangeOrderOfStrengths(int parentIndex, const VEK_intArray& strengths) {
    VEK_intArray positions;
    if (GetStrengthPositions(parentIndex, positions) < 0) return VEK_OUT_OF_RANGE;
    if (strengths.GetSize() != positions.GetSize() || !strengths.IsPermutation()) return VEK_OUT_OF_RANGE;
    // New position p belongs to outcome strengths[p], whose column was at
    // its old position.
    VEK_intArray perm(strengths.GetSize());
    for (int p = 0; p < strengths.GetSize(); ++p) perm[p] = positions[strengths[p]];
    ReorderParentColumns(parentIndex, perm);
    SetParentOutcomeStrengthsUnchecked(parentIndex, strengths);
    FixConstrainedColumns();
    return VEK_OKAY;
}

bool VEK_noisyMAX::AllStrengthsAreOutcomeOrder() const {
    for (const VEK_intArray& s : strengths_) {
        if (!s.IsIdentityPermutation()) return false;
    }
    return true;
}

int VEK_noisyMAX::SetSynchronized(bool on) {
    if (on && !AllStrengthsAreOutcomeOrder()) {
        for (int j = 0; j < static_cast<int>(strengths_.size()); ++j) {
            if (const int res = ChangeOrderOfStrengths(j, Identity(strengths_[j].GetSize())); res < 0) return res;
        }
    }
    synchronized_ = on;
    return VEK_OKAY;
}

// ---------------------------------------------------------------- graph

void VEK_noisyMAX::OnParentInserted(int position) {
    strengths_.insert(strengths_.begin() + position, Identity(ParentSizes()[position]));
}

void VEK_noisyMAX::OnParentDeleted(int position) { strengths_.erase(strengths_.begin() + position); }

void VEK_noisyMAX::OnParentsReordered(const VEK_intArray& order) {
    std::vector<VEK_intArray> old(std::move(strengths_));
    strengths_.clear();
    for (int i = 0; i < order.GetSize(); ++i) strengths_.push_back(old[order[i]]);
}

// The new outcome goes into the strength order just before the outcome
// that now follows it (after the last one when it is added at the end), so
// an order equal to the outcome order stays so. Its column is uniform,
// unless it became the weakest outcome: then it is the constrained column
// and the former weakest keeps its column, which means "no effect".
int VEK_noisyMAX::OnParentOutcomeAdd(int parent, int outcome) {
    const int pos = StoredParentPosition(parent);
    if (pos < 0) return pos;
    VEK_intArray& s = strengths_[pos];
    const int m = s.GetSize();
    if (outcome < 0 || outcome > m) return VEK_OUT_OF_RANGE;
    int at = outcome < m ? s.FindPosition(outcome) : s.FindPosition(m - 1) + 1;
    // The weights first: when they cannot grow, the strengths stay as they were.
    if (const int res = InsertParentColumn(pos, GetParentColumnBase(pos) + at); res < 0) return res;
    for (int& o : s) {
        if (o >= outcome) ++o;
    }
    (void)s.Insert(at, outcome);  // at is within the strengths, as the column insert was
    FixConstrainedColumns();
    Invalidate();
    return VEK_OKAY;
}

int VEK_noisyMAX::OnParentOutcomeRemove(int parent, int outcome) {
    const int pos = StoredParentPosition(parent);
    if (pos < 0) return pos;
    VEK_intArray& s = strengths_[pos];
    const int m = s.GetSize();
    if (outcome < 0 || outcome >= m || m < 2) return VEK_OUT_OF_RANGE;
    const int at = s.FindPosition(outcome);
    if (const int res = DeleteParentColumn(pos, GetParentColumnBase(pos) + at); res < 0) return res;
    (void)s.Delete(at);  // the strengths hold every outcome
    for (int& o : s) {
        if (o > outcome) --o;
    }
    FixConstrainedColumns();
    Invalidate();
    return VEK_OKAY;
}

// New outcome i of the parent is its old outcome order[i]. The strength
// list is renamed so that every outcome keeps its strength and column; when
// synchronized, the columns move instead and the order stays the outcome
// order.
int VEK_noisyMAX::OnParentOutcomeReorder(int parent, const VEK_intArray& order) {
    const int pos = StoredParentPosition(parent);
    if (pos < 0) return pos;
    VEK_intArray& s = strengths_[pos];
    const int m = s.GetSize();
    if (order.GetSize() != m || !order.IsPermutation()) return VEK_OUT_OF_RANGE;
    if (synchronized_) {
        VEK_intArray positions;
        (void)GetStrengthPositions(pos, positions);  // the parent index was checked above
        VEK_intArray perm(m);
        for (int i = 0; i < m; ++i) perm[i] = positions[order[i]];
        ReorderParentColumns(pos, perm);
        s = Identity(m);
        FixConstrainedColumns();
    } else {
        VEK_intArray renamed(m);
        for (int i = 0; i < m; ++i) renamed[order[i]] = i;
        for (int& o : s) o = renamed[o];
    }
    Invalidate();
    return VEK_OKAY;
}

// ---------------------------------------------------------------- table

void VEK_noisyMAX::Cumulate(const VEK_Dmatrix& ci, std::vector<double>& cum) const {
    const int n = GetNumberOfOutcomes();
    const int columns = ci.GetSize() / n;
    cum.resize(ci.GetSize());
    const double* p = ci.Items();
    for (int c = 0; c < columns; ++c) {
        double prev = 0.0;
        for (int i = n - 1; i >= 0; --i) {
            double v = p[c * n + i] + prev;
            if (v < 0.0) v = 0.0;
            cum[c * n + i] = v;
            prev = v;
        }
    }
}

int VEK_noisyMAX::CalculateCpt() { return CiToCpt(GetCiWeights(), CptMatrix()); }

int VEK_noisyMAX::CiToCpt(const VEK_Dmatrix& ci, VEK_Dmatrix& cpt) const {
    const int n = GetNumberOfOutcomes();
    if (n < 1 || ci.GetSize() != GetCiWeights().GetSize()) return VEK_OUT_OF_RANGE;
    std::vector<double> cum;
    Cumulate(ci, cum);
    VEK_intArray dims;
    BuildCptDims(dims);
    if (const int res = cpt.Setup(dims); res < 0) return res;
    double* out = cpt.Items();
    const double* leak = cum.data() + static_cast<size_t>(GetLeakColumn()) * n;
    const int k = GetNumberOfParents();
    if (k == 0) {
        Decumulate(leak, n, out);
        return VEK_OKAY;
    }

    // Cumulative column of parent j in outcome x (outcome order): the
    // strength order is applied here rather than by reordering the table.
    std::vector<const double*> column(GetLeakColumn());
    std::vector<int> base(k);
    for (int j = 0, b = 0; j < k; b += ParentSizes()[j], ++j) {
        base[j] = b;
        const VEK_intArray& s = strengths_[j];
        for (int p = 0; p < s.GetSize(); ++p) column[b + s[p]] = cum.data() + static_cast<size_t>(b + p) * n;
    }
    // prefix level j: leak times the columns of parents 0..j-1.
    std::vector<double> prefix(static_cast<size_t>(k) * n);
    for (int i = 0; i < n; ++i) prefix[i] = leak[i];
    double* pre = prefix.data();
    const double* const* col = column.data();
    const int lastBase = base[k - 1];
    const double* top = pre + static_cast<size_t>(k - 1) * n;

    VEK_walkParentColumns(
        ParentSizes().Items(), k,
        [&](int j, int x) {
            const double* a = pre + static_cast<size_t>(j) * n;
            const double* b = col[base[j] + x];
            double* c = pre + static_cast<size_t>(j + 1) * n;
            for (int i = 0; i < n; ++i) c[i] = a[i] * b[i];
        },
        [&](int x) {
            const double* b = col[lastBase + x];
            double next = top[n - 1] * b[n - 1];
            out[n - 1] = next;
            for (int i = n - 2; i >= 0; --i) {
                const double f = top[i] * b[i];
                const double d = f - next;
                out[i] = d > 0.0 ? d : 0.0;
                next = f;
            }
            out += n;
        });
    return VEK_OKAY;
}

// ---------------------------------------------------------------- inverse

int VEK_noisyMAX::SingleParentColumn(int parentIndex, int outcome, const VEK_intArray& weakest,
                                     const VEK_intArray& products) const {
    int offset = 0;
    for (int j = 0; j < weakest.GetSize(); ++j) offset += (j == parentIndex ? outcome : weakest[j]) * products[j];
    return offset;
}

int VEK_noisyMAX::CptToCi(const VEK_Dmatrix& cpt, VEK_Dmatrix& ci) const {
    const int n = GetNumberOfOutcomes();
    VEK_intArray dims;
    BuildCptDims(dims);
    if (!(cpt.GetDimensions() == dims)) return VEK_OUT_OF_RANGE;
    const int k = GetNumberOfParents();
    VEK_intArray weakest(k);
    for (int j = 0; j < k; ++j) weakest[j] = strengths_[j][strengths_[j].GetSize() - 1];
    const VEK_intArray& products = cpt.GetProducts();

    if (const int res = ci.Setup(GetCiWeights().GetDimensions()); res < 0) return res;
    std::vector<double> cl(n), h(n), c(n);
    const double* items = cpt.Items();
    const double* leakColumn = items + SingleParentColumn(-1, 0, weakest, products);
    CumulateColumn(leakColumn, n, cl.data());
    double* leakOut = ci.Items() + static_cast<size_t>(GetLeakColumn()) * n;
    for (int i = 0; i < n; ++i) leakOut[i] = leakColumn[i];

    for (int j = 0; j < k; ++j) {
        const int b = GetParentColumnBase(j);
        const VEK_intArray& s = strengths_[j];
        for (int p = 0; p < s.GetSize(); ++p) {
            CumulateColumn(items + SingleParentColumn(j, s[p], weakest, products), n, h.data());
            NetFromCumulative(h.data(), cl.data(), n, c.data());
            Decumulate(c.data(), n, ci.Items() + static_cast<size_t>(b + p) * n);
        }
    }
    return VEK_OKAY;
}

int VEK_noisyMAX::CptToCi(const VEK_Dmatrix& cpt) {
    VEK_Dmatrix ci;
    int res = CptToCi(cpt, ci);
    if (res < 0) return res;
    return SetCiWeights(ci);
}

// ---------------------------------------------------------------- Henrion

int VEK_noisyMAX::GetHenrionProbabilities(VEK_Dmatrix& henrion) const {
    const int n = GetNumberOfOutcomes();
    const VEK_Dmatrix& w = GetCiWeights();
    henrion = w;
    std::vector<double> cl(n), c(n);
    const int leak = GetLeakColumn();
    CumulateColumn(w.Items() + static_cast<size_t>(leak) * n, n, cl.data());
    for (int col = 0; col < leak; ++col) {
        CumulateColumn(w.Items() + static_cast<size_t>(col) * n, n, c.data());
        for (int i = 0; i < n; ++i) c[i] *= cl[i];
        Decumulate(c.data(), n, henrion.Items() + static_cast<size_t>(col) * n);
    }
    return VEK_OKAY;
}

int VEK_noisyMAX::CheckHenrionConsistency(const VEK_Dmatrix& henrion, std::string& message) const {
    message.clear();
    // Columns must be distributions, as for the net weights.
    int res = ValidateWeights(henrion.Items(), henrion.GetSize(), &message);
    if (res < 0) return res;
    const int n = GetNumberOfOutcomes();
    const int leak = GetLeakColumn();
    std::vector<double> cl(n), h(n);
    CumulateColumn(henrion.Items() + static_cast<size_t>(leak) * n, n, cl.data());
    for (int col = 0; col < leak; ++col) {
        if (IsColumnConstrained(col)) continue;
        CumulateColumn(henrion.Items() + static_cast<size_t>(col) * n, n, h.data());
        double prev = 1.0;
        for (int i = 0; i < n; ++i) {
            // The net cumulative weight h/cl must exist and must not grow
            // toward the distinguished outcome.
            double ratio;
            if (cl[i] > 0.0) {
                ratio = h[i] / cl[i];
            } else if (h[i] <= kHenrionTolerance) {
                ratio = 0.0;
            } else {
                ratio = 2.0;
            }
            if (ratio > prev * (1.0 + kHenrionTolerance) + kHenrionTolerance) {
                char text[128];
                std::snprintf(text, sizeof text,
                              "Henrion column %d is not reachable from the leak at outcome %d", col, i);
                message = text;
                return VEK_OUT_OF_RANGE;
            }
            prev = ratio;
        }
    }
    return VEK_OKAY;
}

int VEK_noisyMAX::SetHenrionProbabilities(const VEK_Dmatrix& henrion) {
    std::string message;
    int res = CheckHenrionConsistency(henrion, message);
    if (res < 0) return res;
    const int n = GetNumberOfOutcomes();
    const int leak = GetLeakColumn();
    VEK_Dmatrix net(henrion);
    std::vector<double> cl(n), h(n), c(n);
    CumulateColumn(henrion.Items() + static_cast<size_t>(leak) * n, n, cl.data());
    for (int col = 0; col < leak; ++col) {
        CumulateColumn(henrion.Items() + static_cast<size_t>(col) * n, n, h.data());
        NetFromCumulative(h.data(), cl.data(), n, c.data());
        Decumulate(c.data(), n, net.Items() + static_cast<size_t>(col) * n);
    }
    return SetCiWeights(net);
}

// ---------------------------------------------------------------- legacy layout

int VEK_noisyMAX::GetLegacyNoisyOrProbabilities(VEK_doubleArray& items) const {
    const int n = GetNumberOfOutcomes();
    VEK_Dmatrix henrion;
    if (const int res = GetHenrionProbabilities(henrion); res < 0) return res;
    items.Flush();
    VEK_intArray positions;
    for (int j = 0; j < GetNumberOfParents(); ++j) {
        (void)GetStrengthPositions(j, positions);  // the parent index is in range
        const int b = GetParentColumnBase(j);
        const int m = positions.GetSize();
        for (int o = 0; o < m; ++o) {
            if (positions[o] == m - 1) continue;
            const double* p = henrion.Items() + static_cast<size_t>(b + positions[o]) * n;
            for (int i = 0; i < n; ++i) items.Add(p[i]);
        }
    }
    const double* p = henrion.Items() + static_cast<size_t>(GetLeakColumn()) * n;
    for (int i = 0; i < n; ++i) items.Add(p[i]);
    return VEK_OKAY;
}

int VEK_noisyMAX::SetLegacyNoisyOrProbabilities(const VEK_doubleArray& items) {
    const int n = GetNumberOfOutcomes();
    const int k = GetNumberOfParents();
    if (items.GetSize() != (GetNumberOfColumns() - k) * n) return VEK_OUT_OF_RANGE;
    VEK_Dmatrix henrion(GetCiWeights());
    const double* leak = items.Items() + items.GetSize() - n;
    int next = 0;
    VEK_intArray positions;
    for (int j = 0; j < k; ++j) {
        (void)GetStrengthPositions(j, positions);  // the parent index is in range
        const int b = GetParentColumnBase(j);
        const int m = positions.GetSize();
        for (int o = 0; o < m; ++o) {
            double* dst = henrion.Items() + static_cast<size_t>(b + positions[o]) * n;
            // The weakest outcome's Henrion column is the leak itself.
            const double* src = positions[o] == m - 1 ? leak : items.Items() + static_cast<size_t>(next++) * n;
            for (int i = 0; i < n; ++i) dst[i] = src[i];
        }
    }
    double* dst = henrion.Items() + static_cast<size_t>(GetLeakColumn()) * n;
    for (int i = 0; i < n; ++i) dst[i] = leak[i];
    return SetHenrionProbabilities(henrion);
}

// ---------------------------------------------------------------- decomposition

int VEK_noisyMAX::SquareCiToCptSingleStep(VEK_Dmatrix& square) const {
    const int n = GetNumberOfOutcomes();
    std::vector<double> cl(n);
    CumulateColumn(GetCiWeights().Items() + static_cast<size_t>(GetLeakColumn()) * n, n, cl.data());
    VEK_intArray dims{n, n};
    if (const int res = square.Setup(dims); res < 0) return res;
    square.FillWith(0.0);
    for (int y = 0; y < n; ++y) {
        square[y * n + y] = cl[y];
        if (y + 1 < n) square[(y + 1) * n + y] = -cl[y + 1];
    }
    return VEK_OKAY;
}

int VEK_noisyMAX::GetCumulativeFactor(int parentIndex, VEK_Dmatrix& factor) const {
    VEK_intArray positions;
    if (GetStrengthPositions(parentIndex, positions) < 0) return VEK_OUT_OF_RANGE;
    const int n = GetNumberOfOutcomes();
    const int m = positions.GetSize();
    const int b = GetParentColumnBase(parentIndex);
    VEK_intArray dims{m, n};
    if (const int res = factor.Setup(dims); res < 0) return res;
    for (int o = 0; o < m; ++o) {
        CumulateColumn(GetCiWeights().Items() + static_cast<size_t>(b + positions[o]) * n, n,
                       factor.Items() + static_cast<size_t>(o) * n);
    }
    return VEK_OKAY;
}
