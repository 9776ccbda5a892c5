#include "network/dmatrix.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "network/status.h"

int VEK_smulThrowOnOverflow(int a, int b) {
    int r;
    if (__builtin_mul_overflow(a, b, &r)) throw std::overflow_error("VEK_smulThrowOnOverflow");
    return r;
}

namespace {

void AssignInts(VEK_intArray& out, const int* src, int n) {
    (void)out.SetSize(n);  // n is a dimension count, never negative
    if (n > 0) std::memmove(out.Items(), src, sizeof(int) * n);
}

// Visits the contiguous-or-strided runs of a view in row-major order: the view
// has dimension sizes sizes[0..nd-1], coordinate i moves the source index by
// strides[i], and it starts at base. f(offset, n, stride) gets each innermost
// run and returns false to stop. Dimensions of size 1 are dropped and
// neighbours that are contiguous in the source are merged, so that runs are as
// long as possible (a whole kept block becomes one run).
template <class F>
bool WalkRuns(const int* sizes, const int* strides, int nd, int base, F&& f) {
    VEK_intArray sz, st;
    for (int i = 0; i < nd; ++i) {
        if (sizes[i] == 1) continue;
        const int last = sz.GetSize() - 1;
        if (last >= 0 && static_cast<long long>(st[last]) == static_cast<long long>(strides[i]) * sizes[i]) {
            sz[last] *= sizes[i];
            st[last] = strides[i];
        } else {
            sz.Add(sizes[i]);
            st.Add(strides[i]);
        }
    }
    const int m = sz.GetSize();
    if (m == 0) return f(base, 1, 0);
    const int n = sz[m - 1];
    const int s = st[m - 1];
    VEK_intArray c(m - 1);
    ptrdiff_t off = base;
    for (;;) {
        if (!f(off, n, s)) return false;
        int j = m - 2;
        for (; j >= 0; --j) {
            if (++c[j] < sz[j]) {
                off += st[j];
                break;
            }
            off -= static_cast<ptrdiff_t>(sz[j] - 1) * st[j];
            c[j] = 0;
        }
        if (j < 0) return true;
    }
}

// Sum 1 kept, sum 0 made uniform, anything else rescaled; no tolerance.
void NormalizeRun(double* p, int n) {
    double sum = 0.0;
    for (int k = 0; k < n; ++k) sum += p[k];
    if (sum == 1.0) return;
    if (sum == 0.0) {
        const double u = 1.0 / n;
        for (int k = 0; k < n; ++k) p[k] = u;
        return;
    }
    const double f = 1.0 / sum;
    for (int k = 0; k < n; ++k) p[k] *= f;
}

double RunSum(const double* p, int n) {
    double sum = 0.0;
    for (int k = 0; k < n; ++k) sum += p[k];
    return sum;
}

// dims or strides without entry dim.
void CopyWithout(const VEK_intArray& src, int dim, VEK_intArray& out) {
    const int n = src.GetSize();
    (void)out.SetSize(n - 1);  // callers have at least one dimension
    int k = 0;
    for (int i = 0; i < n; ++i) {
        if (i != dim) out[k++] = src[i];
    }
}

}  // namespace

// ---------------------------------------------------------------- shape

VEK_Dmatrix::VEK_Dmatrix(const VEK_intArray& dims) { (void)Setup(dims); }  // bad sizes leave the matrix empty

VEK_Dmatrix::VEK_Dmatrix(const VEK_intArray& dims, double fill) {
    (void)Setup(dims);  // bad sizes leave the matrix empty
    FillWith(fill);
}

int VEK_Dmatrix::ComputeProducts(const int* dims, int count, VEK_intArray& prods) {
    (void)prods.SetSize(count);  // count >= 0: a dimension count
    int running = 1;
    for (int i = count - 1; i >= 0; --i) {
        prods[i] = running;
        running = VEK_smulThrowOnOverflow(running, dims[i]);
    }
    return running;
}

void VEK_Dmatrix::CalculatePreProd() {
    VEK_intArray prods;
    ComputeProducts(m_dims.Items(), m_dims.GetSize(), prods);
    m_prods = std::move(prods);
}

int VEK_Dmatrix::Setup(const int* sizes, int count) {
    if (count < 0) return VEK_OUT_OF_RANGE;
    return ReCreate(sizes, count);
}

int VEK_Dmatrix::ReCreate(const int* sizes, int count) {
    if (count < 1) {
        Clear();
        return VEK_OKAY;
    }
    if (sizes == nullptr) return VEK_OUT_OF_RANGE;
    for (int i = 0; i < count; ++i) {
        if (sizes[i] < 1) return VEK_OUT_OF_RANGE;
    }
    VEK_intArray dims, prods;
    AssignInts(dims, sizes, count);  // sizes may be our own dimension list
    const int total = ComputeProducts(dims.Items(), count, prods);
    (void)m_items.SetSize(total);  // a product of sizes >= 1
    m_dims = std::move(dims);
    m_prods = std::move(prods);
    return VEK_OKAY;
}

int VEK_Dmatrix::SetSingleDimension(int size) {
    if (size < 1) return VEK_OUT_OF_RANGE;
    return ReCreate(&size, 1);
}

void VEK_Dmatrix::Clear() {
    m_dims.Flush();
    m_prods.Flush();
    m_items.Flush();
}

void VEK_Dmatrix::Replace(VEK_intArray&& dims, VEK_intArray&& prods, VEK_doubleArray&& items) {
    m_dims = std::move(dims);
    m_prods = std::move(prods);
    m_items = std::move(items);
}

// ---------------------------------------------------------------- access

int VEK_Dmatrix::GetSizeOfDimension(int dim) const {
    if (dim < 0 || dim >= m_dims.GetSize()) return VEK_OUT_OF_RANGE;
    return m_dims[dim];
}

int VEK_Dmatrix::CoordinatesToIndex(const VEK_intArray& coordinates) const {
    const int nd = m_dims.GetSize();
    int index = 0;
    for (int i = 0; i < nd; ++i) index += coordinates[i] * m_prods[i];
    return index;
}

bool VEK_Dmatrix::Ok(const VEK_intArray& coordinates) const {
    const int nd = m_dims.GetSize();
    if (coordinates.GetSize() < nd) return false;
    for (int i = 0; i < nd; ++i) {
        if (coordinates[i] < 0 || coordinates[i] >= m_dims[i]) return false;
    }
    return true;
}

int VEK_Dmatrix::IndexToCoordinates(int index, VEK_intArray& coordinates) const {
    if (index < 0 || index >= GetSize()) return VEK_OUT_OF_RANGE;
    const int nd = m_dims.GetSize();
    (void)coordinates.SetSize(nd);  // nd >= 0
    int rest = index;
    for (int i = 0; i < nd - 1; ++i) {
        coordinates[i] = rest / m_prods[i];
        rest %= m_prods[i];
    }
    coordinates[nd - 1] = rest;
    return VEK_OKAY;
}

// ---------------------------------------------------------------- arithmetic

int VEK_Dmatrix::FillFrom(const VEK_doubleArray& src) {
    if (src.GetSize() != GetSize()) return VEK_INVALID_VALUE;
    return FillFrom(src.Items());
}

int VEK_Dmatrix::FillFrom(const std::vector<double>& src) {
    if (src.size() != static_cast<size_t>(GetSize())) return VEK_INVALID_VALUE;
    return FillFrom(src.data());
}

int VEK_Dmatrix::FillFrom(const double* src) {
    if (GetSize() > 0) std::memmove(Items(), src, sizeof(double) * GetSize());
    return VEK_OKAY;
}

int VEK_Dmatrix::FillFrom(const VEK_Dmatrix& src) {
    if (src.GetSize() != GetSize()) return VEK_INVALID_VALUE;
    return FillFrom(src.Items());
}

void VEK_Dmatrix::Multiply(double v) {
    double* p = Items();
    const int n = GetSize();
    for (int i = 0; i < n; ++i) p[i] *= v;
}

void VEK_Dmatrix::Add(double v) {
    double* p = Items();
    const int n = GetSize();
    for (int i = 0; i < n; ++i) p[i] += v;
}

int VEK_Dmatrix::Multiply(const VEK_doubleArray& a) {
    const int n = GetLastDimensionSize();
    if (a.GetSize() < n) return VEK_OUT_OF_RANGE;
    if (n == 0) return VEK_OKAY;
    const int columns = GetSize() / n;
    double* p = Items();
    const double* f = a.Items();
    for (int c = 0; c < columns; ++c, p += n) {
        for (int k = 0; k < n; ++k) p[k] *= f[k];
    }
    return VEK_OKAY;
}

int VEK_Dmatrix::Add(const VEK_intArray& coordinates, const VEK_doubleArray& a) {
    if (!Ok(coordinates) || GetSize() == 0) return VEK_OUT_OF_RANGE;
    const int start = CoordinatesToIndex(coordinates);
    const int n = a.GetSize();
    if (static_cast<long long>(start) + n > GetSize()) return VEK_OUT_OF_RANGE;
    double* p = Items() + start;
    const double* s = a.Items();
    for (int k = 0; k < n; ++k) p[k] += s[k];
    return VEK_OKAY;
}

int VEK_Dmatrix::Sum(const VEK_Dmatrix& a, const VEK_Dmatrix& b) {
    if (!CompatibleWith(a) || !CompatibleWith(b)) return VEK_OUT_OF_RANGE;
    double* p = Items();
    const double* pa = a.Items();
    const double* pb = b.Items();
    const int n = GetSize();
    for (int i = 0; i < n; ++i) p[i] = pa[i] + pb[i];
    return VEK_OKAY;
}

int VEK_Dmatrix::Subtract(const VEK_Dmatrix& a, const VEK_Dmatrix& b) {
    if (!CompatibleWith(a) || !CompatibleWith(b)) return VEK_OUT_OF_RANGE;
    double* p = Items();
    const double* pa = a.Items();
    const double* pb = b.Items();
    const int n = GetSize();
    for (int i = 0; i < n; ++i) p[i] = pa[i] - pb[i];
    return VEK_OKAY;
}

int VEK_Dmatrix::Add(const VEK_Dmatrix& other) {
    if (!CompatibleWith(other)) return VEK_OUT_OF_RANGE;
    double* p = Items();
    const double* q = other.Items();
    const int n = GetSize();
    for (int i = 0; i < n; ++i) p[i] += q[i];
    return VEK_OKAY;
}

int VEK_Dmatrix::CopyBlockFrom(const VEK_Dmatrix& src, int srcStart, int dstStart, int count) {
    if (count < 0) return VEK_NO_ITEM;
    if (srcStart < 0 || dstStart < 0) return VEK_OUT_OF_RANGE;
    if (static_cast<long long>(srcStart) + count > src.GetSize() ||
        static_cast<long long>(dstStart) + count > GetSize())
        return VEK_OUT_OF_RANGE;
    if (count > 0) std::memmove(Items() + dstStart, src.Items() + srcStart, sizeof(double) * count);
    return VEK_OKAY;
}

int VEK_Dmatrix::CopyColumnsFrom(const VEK_Dmatrix& src, int srcColumn, int dstColumn, int columns) {
    const int n = GetLastDimensionSize();
    if (n != src.GetLastDimensionSize()) return VEK_WRONG_NUM_STATES;
    if (columns < 0) return VEK_NO_ITEM;
    const long long s = static_cast<long long>(srcColumn) * n;
    const long long d = static_cast<long long>(dstColumn) * n;
    const long long c = static_cast<long long>(columns) * n;
    if (s < 0 || d < 0 || s + c > src.GetSize() || d + c > GetSize()) return VEK_OUT_OF_RANGE;
    return CopyBlockFrom(src, static_cast<int>(s), static_cast<int>(d), static_cast<int>(c));
}

int VEK_Dmatrix::MakeDeterministicColumn(int column, int outcome) {
    const int n = GetLastDimensionSize();
    if (n == 0 || column < 0 || column >= GetSize() / n || outcome < 0 || outcome >= n) return VEK_OUT_OF_RANGE;
    double* p = Items() + static_cast<ptrdiff_t>(column) * n;
    for (int k = 0; k < n; ++k) p[k] = 0.0;
    p[outcome] = 1.0;
    return VEK_OKAY;
}

// ---------------------------------------------------------------- columns

int VEK_Dmatrix::ColumnStart(const VEK_intArray& coordinates) const {
    const int nd = m_dims.GetSize();
    if (nd == 0 || coordinates.GetSize() < nd) return VEK_OUT_OF_RANGE;
    int start = 0;
    for (int i = 0; i < nd - 1; ++i) {
        const int c = coordinates[i];
        if (c < 0 || c >= m_dims[i]) return VEK_OUT_OF_RANGE;
        start += c * m_prods[i];
    }
    return start;
}

int VEK_Dmatrix::Normalize(const VEK_intArray& coordinates) {
    const int start = ColumnStart(coordinates);
    if (start < 0) return start;
    NormalizeRun(Items() + start, GetLastDimensionSize());
    return VEK_OKAY;
}

int VEK_Dmatrix::Normalize(int index) {
    if (index < 0 || index >= GetSize()) return VEK_OUT_OF_RANGE;
    const int n = GetLastDimensionSize();
    NormalizeRun(Items() + (index - index % n), n);
    return VEK_OKAY;
}

bool VEK_Dmatrix::Normalized(const VEK_intArray& coordinates) const {
    const int start = ColumnStart(coordinates);
    if (start < 0) return false;
    return RunSum(Items() + start, GetLastDimensionSize()) == 1.0;
}

bool VEK_Dmatrix::Normalized(int index) const {
    if (index < 0 || index >= GetSize()) return false;
    const int n = GetLastDimensionSize();
    return RunSum(Items() + (index - index % n), n) == 1.0;
}

int VEK_Dmatrix::Complement(const VEK_intArray& coordinates) {
    if (GetSize() == 0 || !Ok(coordinates)) return VEK_OUT_OF_RANGE;
    const int nd = m_dims.GetSize();
    double* col = Items() + ColumnStart(coordinates);
    const int p = coordinates[nd - 1];
    const double sum = RunSum(col, m_dims[nd - 1]);
    col[p] = 1.0 + col[p] - sum;
    return VEK_OKAY;
}

int VEK_Dmatrix::Normalize() {
    const int n = GetLastDimensionSize();
    if (n == 0) return VEK_OKAY;
    const int columns = GetSize() / n;
    double* p = Items();
    for (int c = 0; c < columns; ++c, p += n) NormalizeRun(p, n);
    return VEK_OKAY;
}

int VEK_Dmatrix::CheckElements(double value, const VEK_intArray& coordinates) const {
    const int nd = m_dims.GetSize();
    if (coordinates.GetSize() < nd) return VEK_OUT_OF_RANGE;
    VEK_intArray sizes, strides;
    int base = 0;
    for (int i = 0; i < nd; ++i) {
        const int c = coordinates[i];
        if (c == -1) {
            sizes.Add(m_dims[i]);
            strides.Add(m_prods[i]);
        } else if (c < 0 || c >= m_dims[i]) {
            return VEK_OUT_OF_RANGE;
        } else {
            base += c * m_prods[i];
        }
    }
    if (GetSize() == 0) return 1;
    const double* items = Items();
    const bool all = WalkRuns(sizes.Items(), strides.Items(), sizes.GetSize(), base, [&](ptrdiff_t off, int n, int s) {
        const double* p = items + off;
        for (int k = 0; k < n; ++k) {
            if (!(p[static_cast<ptrdiff_t>(k) * s] == value)) return false;
        }
        return true;
    });
    return all ? 1 : 0;
}

int VEK_Dmatrix::CheckElements(double value, int dimA, int coordA, int dimB, int coordB) const {
    const int nd = m_dims.GetSize();
    if (dimA < 0 || dimA >= nd || dimB < 0 || dimB >= nd) return VEK_OUT_OF_RANGE;
    if (dimA == dimB && coordA != coordB) return VEK_OUT_OF_RANGE;
    VEK_intArray coordinates(nd);
    coordinates.FillWith(-1);
    coordinates[dimA] = coordA;
    coordinates[dimB] = coordB;
    // -1 would free the dimension: a fixed coordinate must be a real one.
    if (coordA < 0 || coordB < 0) return VEK_OUT_OF_RANGE;
    return CheckElements(value, coordinates);
}

// ---------------------------------------------------------------- dimensions

void VEK_Dmatrix::GatherView(const VEK_intArray& dims, const VEK_intArray& strides, int base, VEK_intArray& prods,
                             VEK_doubleArray& items) const {
    const int total = ComputeProducts(dims.Items(), dims.GetSize(), prods);
    (void)items.SetSize(total);  // a product of sizes >= 1
    const double* src = Items();
    double* dst = items.Items();
    WalkRuns(dims.Items(), strides.Items(), dims.GetSize(), base, [&](ptrdiff_t off, int n, int s) {
        const double* p = src + off;
        if (s == 1) {
            std::memcpy(dst, p, sizeof(double) * n);
        } else if (s == 0) {
            const double v = *p;
            for (int k = 0; k < n; ++k) dst[k] = v;
        } else {
            for (int k = 0; k < n; ++k) dst[k] = p[static_cast<ptrdiff_t>(k) * s];
        }
        dst += n;
        return true;
    });
}

int VEK_Dmatrix::AddDimensions(const VEK_intArray& sizes) {
    const int extra = sizes.GetSize();
    for (int s : sizes) {
        if (s < 1) return VEK_OUT_OF_RANGE;
    }
    if (extra == 0) return VEK_OKAY;
    if (m_dims.IsEmpty()) return ReCreate(sizes);
    VEK_intArray dims(m_dims), strides(m_prods), prods;
    for (int s : sizes) {
        dims.Add(s);
        strides.Add(0);  // replicated along the new dimensions
    }
    VEK_doubleArray items;
    GatherView(dims, strides, 0, prods, items);
    Replace(std::move(dims), std::move(prods), std::move(items));
    return VEK_OKAY;
}

int VEK_Dmatrix::InsertDimension(int position, int size) {
    const int nd = m_dims.GetSize();
    if (size < 1 || position < 0 || position > nd) return VEK_OUT_OF_RANGE;
    if (nd == 0) return ReCreate(&size, 1);
    VEK_intArray dims(m_dims), strides(m_prods), prods;
    (void)dims.Insert(position, size);  // position checked above
    (void)strides.Insert(position, 0);
    VEK_doubleArray items;
    GatherView(dims, strides, 0, prods, items);
    Replace(std::move(dims), std::move(prods), std::move(items));
    return VEK_OKAY;
}

void VEK_Dmatrix::RemoveKeepInto(int dim, int keep, VEK_Dmatrix& out) const {
    VEK_intArray dims, strides, prods;
    CopyWithout(m_dims, dim, dims);
    CopyWithout(m_prods, dim, strides);
    VEK_doubleArray items;
    GatherView(dims, strides, keep * m_prods[dim], prods, items);
    out.Replace(std::move(dims), std::move(prods), std::move(items));
}

void VEK_Dmatrix::RemoveWeightedInto(int dim, const VEK_doubleArray& weights, VEK_Dmatrix& out) const {
    VEK_intArray dims, prods;
    CopyWithout(m_dims, dim, dims);
    const int total = ComputeProducts(dims.Items(), dims.GetSize(), prods);
    VEK_doubleArray items(total);
    const int states = m_dims[dim];
    const int inner = m_prods[dim];
    const int outer = total / inner;
    const double* src = Items();
    const double* w = weights.Items();
    for (int o = 0; o < outer; ++o) {
        double* d = items.Items() + static_cast<ptrdiff_t>(o) * inner;
        for (int s = 0; s < states; ++s) {
            const double* p = src + (static_cast<ptrdiff_t>(o) * states + s) * inner;
            const double ws = w[s];
            for (int k = 0; k < inner; ++k) d[k] += ws * p[k];
        }
    }
    out.Replace(std::move(dims), std::move(prods), std::move(items));
}

int VEK_Dmatrix::RemoveDimension(int dim, int keep) {
    const int nd = m_dims.GetSize();
    if (dim < 0 || dim >= nd || keep < 0 || keep >= m_dims[dim]) return VEK_OUT_OF_RANGE;
    if (nd == 1) return VEK_OKAY;
    RemoveKeepInto(dim, keep, *this);
    return VEK_OKAY;
}

int VEK_Dmatrix::RemoveDimension(int dim, const VEK_doubleArray& weights) {
    const int nd = m_dims.GetSize();
    if (dim < 0 || dim >= nd || weights.GetSize() != m_dims[dim]) return VEK_OUT_OF_RANGE;
    if (nd == 1) return VEK_OKAY;
    RemoveWeightedInto(dim, weights, *this);
    return VEK_OKAY;
}

int VEK_Dmatrix::RemoveDimension(int dim, int keep, VEK_Dmatrix& result) const {
    const int nd = m_dims.GetSize();
    if (dim < 0 || dim >= nd || keep < 0 || keep >= m_dims[dim]) return VEK_OUT_OF_RANGE;
    if (nd == 1) {
        result = *this;
        return VEK_OKAY;
    }
    RemoveKeepInto(dim, keep, result);
    return VEK_OKAY;
}

int VEK_Dmatrix::RemoveDimension(int dim, const VEK_doubleArray& weights, VEK_Dmatrix& result) const {
    const int nd = m_dims.GetSize();
    if (dim < 0 || dim >= nd || weights.GetSize() != m_dims[dim]) return VEK_OUT_OF_RANGE;
    if (nd == 1) {
        result = *this;
        return VEK_OKAY;
    }
    RemoveWeightedInto(dim, weights, result);
    return VEK_OKAY;
}

int VEK_Dmatrix::RemoveDimensions(const VEK_intArray& coordinates, VEK_Dmatrix& result) const {
    const int nd = m_dims.GetSize();
    if (coordinates.GetSize() < nd) return VEK_OUT_OF_RANGE;
    for (int d = 0; d < nd; ++d) {
        if (coordinates[d] >= m_dims[d]) return VEK_OUT_OF_RANGE;
    }
    // Removing from the last dimension to the first; like RemoveDimension, a
    // removal that would leave no dimension at all is skipped.
    VEK_intArray dims, strides, prods;
    int base = 0;
    int remaining = nd;
    VEK_intArray removed(nd);
    for (int d = nd - 1; d >= 0; --d) {
        if (coordinates[d] >= 0 && remaining > 1) {
            removed[d] = 1;
            base += coordinates[d] * m_prods[d];
            --remaining;
        }
    }
    if (remaining == nd) {
        result = *this;
        return VEK_OKAY;
    }
    for (int d = 0; d < nd; ++d) {
        if (!removed[d]) {
            dims.Add(m_dims[d]);
            strides.Add(m_prods[d]);
        }
    }
    VEK_doubleArray items;
    GatherView(dims, strides, base, prods, items);
    result.Replace(std::move(dims), std::move(prods), std::move(items));
    return VEK_OKAY;
}

int VEK_Dmatrix::RemoveDimension(int dim, const VEK_Dmatrix& selector, const VEK_intArray& dimMap) {
    const int nd = m_dims.GetSize();
    if (dim < 0 || dim >= nd || selector.GetSize() == 0) return VEK_OUT_OF_RANGE;
    const int snd = selector.GetNumberOfDimensions();
    if (dimMap.GetSize() != snd) return VEK_OUT_OF_RANGE;
    // Stride of the selector per dimension of this matrix; selector
    // dimensions mapped to -1 stay at coordinate 0.
    VEK_intArray selStride(nd);
    VEK_intArray used(nd);
    for (int j = 0; j < snd; ++j) {
        const int d = dimMap[j];
        if (d < 0) continue;
        if (d >= nd || d == dim || used[d] || m_dims[d] != selector.m_dims[j]) return VEK_OUT_OF_RANGE;
        used[d] = 1;
        selStride[d] = selector.m_prods[j];
    }
    if (nd == 1) return VEK_OKAY;

    VEK_intArray dims, strides, sstr, prods;
    CopyWithout(m_dims, dim, dims);
    CopyWithout(m_prods, dim, strides);
    CopyWithout(selStride, dim, sstr);
    const int total = ComputeProducts(dims.Items(), dims.GetSize(), prods);
    VEK_doubleArray items(total);
    const int m = dims.GetSize();
    const int states = m_dims[dim];
    const ptrdiff_t stateStride = m_prods[dim];
    const double* src = Items();
    const double* sel = selector.Items();
    VEK_intArray c(m);
    ptrdiff_t off = 0, soff = 0;
    for (int i = 0; i < total; ++i) {
        const double v = sel[soff];
        if (!(v >= 0.0 && v < states) || v != std::floor(v)) return VEK_OUT_OF_RANGE;
        items[i] = src[off + static_cast<ptrdiff_t>(v) * stateStride];
        for (int j = m - 1; j >= 0; --j) {
            if (++c[j] < dims[j]) {
                off += strides[j];
                soff += sstr[j];
                break;
            }
            off -= static_cast<ptrdiff_t>(dims[j] - 1) * strides[j];
            soff -= static_cast<ptrdiff_t>(dims[j] - 1) * sstr[j];
            c[j] = 0;
        }
    }
    Replace(std::move(dims), std::move(prods), std::move(items));
    return VEK_OKAY;
}

int VEK_Dmatrix::ResizeDimension(int dim, int size) {
    if (dim < 0 || dim >= m_dims.GetSize() || size < 1) return VEK_OUT_OF_RANGE;
    if (m_dims[dim] == size) return VEK_OKAY;
    VEK_intArray dims(m_dims);
    dims[dim] = size;
    return ReCreate(dims);
}

int VEK_Dmatrix::IncreaseDimensionSize(int dim) {
    if (dim < 0 || dim >= m_dims.GetSize()) return VEK_OUT_OF_RANGE;
    VEK_intArray dims(m_dims), prods;
    if (dims[dim] == INT_MAX) throw std::overflow_error("VEK_smulThrowOnOverflow");
    ++dims[dim];
    const int total = ComputeProducts(dims.Items(), dims.GetSize(), prods);
    if (dim == 0) {
        // The slowest dimension grows by a block at the end, in place; the
        // room grows geometrically, so adding states one by one is linear.
        if (total > m_items.GetCapacity()) {
            const long long room = std::max<long long>(total, 2LL * m_items.GetCapacity());
            (void)m_items.Reserve(static_cast<int>(std::min<long long>(room, INT_MAX)));  // room > 0
        }
        (void)m_items.SetSize(total);  // the new states start at 0
        m_dims[0] = dims[0];
        return VEK_OKAY;
    }
    VEK_doubleArray items(total);  // the new states start at 0
    const ptrdiff_t oldBlock = static_cast<ptrdiff_t>(m_dims[dim]) * m_prods[dim];
    const ptrdiff_t newBlock = oldBlock + m_prods[dim];
    const int outer = GetSize() / static_cast<int>(oldBlock);
    const double* src = Items();
    double* dst = items.Items();
    for (int o = 0; o < outer; ++o) std::memcpy(dst + o * newBlock, src + o * oldBlock, sizeof(double) * oldBlock);
    Replace(std::move(dims), std::move(prods), std::move(items));
    return VEK_OKAY;
}

int VEK_Dmatrix::DecreaseDimensionSize(int dim) {
    if (dim < 0 || dim >= m_dims.GetSize() || m_dims[dim] == 1) return VEK_OUT_OF_RANGE;
    VEK_intArray dims(m_dims), prods;
    --dims[dim];
    const int total = ComputeProducts(dims.Items(), dims.GetSize(), prods);
    VEK_doubleArray items;
    (void)items.SetSize(total);  // a product of sizes >= 1
    const ptrdiff_t oldBlock = static_cast<ptrdiff_t>(m_dims[dim]) * m_prods[dim];
    const ptrdiff_t newBlock = oldBlock - m_prods[dim];
    const int outer = GetSize() / static_cast<int>(oldBlock);
    const double* src = Items();
    double* dst = items.Items();
    for (int o = 0; o < outer; ++o) std::memcpy(dst + o * newBlock, src + o * oldBlock, sizeof(double) * newBlock);
    Replace(std::move(dims), std::move(prods), std::move(items));
    return VEK_OKAY;
}

int VEK_Dmatrix::ShiftDataUpwards(int dim, int position, double fill) {
    if (dim < 0 || dim >= m_dims.GetSize() || position < 0 || position >= m_dims[dim]) return VEK_OUT_OF_RANGE;
    const int states = m_dims[dim];
    const ptrdiff_t inner = m_prods[dim];
    const ptrdiff_t block = states * inner;
    const int outer = GetSize() / static_cast<int>(block);
    double* p = Items();
    for (int o = 0; o < outer; ++o, p += block) {
        double* at = p + position * inner;
        std::memmove(at + inner, at, sizeof(double) * (states - 1 - position) * inner);
        for (ptrdiff_t k = 0; k < inner; ++k) at[k] = fill;
    }
    return VEK_OKAY;
}

int VEK_Dmatrix::ShiftDataDownwards(int dim, int position) {
    if (dim < 0 || dim >= m_dims.GetSize() || position < 0 || position >= m_dims[dim]) return VEK_OUT_OF_RANGE;
    const int states = m_dims[dim];
    const ptrdiff_t inner = m_prods[dim];
    const ptrdiff_t block = states * inner;
    const int outer = GetSize() / static_cast<int>(block);
    double* p = Items();
    for (int o = 0; o < outer; ++o, p += block) {
        double* at = p + position * inner;
        std::memmove(at, at + inner, sizeof(double) * (states - 1 - position) * inner);
    }
    return VEK_OKAY;
}

int VEK_Dmatrix::ChangeOrderOfDimensions(const VEK_intArray& perm) {
    const int nd = m_dims.GetSize();
    if (perm.GetSize() != nd || !perm.IsPermutation()) return VEK_OUT_OF_RANGE;
    if (nd == 0 || perm.IsIdentityPermutation()) return VEK_OKAY;
    VEK_intArray dims(nd), strides(nd), prods;
    for (int i = 0; i < nd; ++i) {
        dims[i] = m_dims[perm[i]];
        strides[i] = m_prods[perm[i]];
    }
    VEK_doubleArray items;
    GatherView(dims, strides, 0, prods, items);
    Replace(std::move(dims), std::move(prods), std::move(items));
    return VEK_OKAY;
}

int VEK_Dmatrix::ChangeOrderWithinDimension(int dim, const VEK_intArray& perm) {
    if (dim < 0 || dim >= m_dims.GetSize()) return VEK_OUT_OF_RANGE;
    const int states = m_dims[dim];
    if (perm.GetSize() != states || !perm.IsPermutation()) return VEK_OUT_OF_RANGE;
    if (perm.IsIdentityPermutation()) return VEK_OKAY;
    const ptrdiff_t inner = m_prods[dim];
    const ptrdiff_t block = states * inner;
    const int outer = GetSize() / static_cast<int>(block);
    VEK_doubleArray items;
    (void)items.SetSize(GetSize());
    const double* src = Items();
    double* dst = items.Items();
    for (int o = 0; o < outer; ++o, src += block) {
        for (int i = 0; i < states; ++i, dst += inner) {
            std::memcpy(dst, src + perm[i] * inner, sizeof(double) * inner);
        }
    }
    m_items = std::move(items);
    return VEK_OKAY;
}
