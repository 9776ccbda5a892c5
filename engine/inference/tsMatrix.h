// Dense potentials of the join tree and the odometers that walk a big
// potential together with a smaller one defined over a subset of its nodes.
//
// The walk is planned once per pair of layouts: the big matrix's dimensions
// are merged into blocks (runs of dimensions that are all absent from the
// small matrix, or all present with strides that continue each other), and the
// two innermost blocks become plain loops. Every operation is then a sequence
// of contiguous runs over the big matrix, so the inner loops vectorise and
// nothing is recomputed per entry.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

// Largest number of nodes in one clique; a clique never has more dimensions.
constexpr int TS_MAX_CLIQUE_NODES = 30;
constexpr int TS_MAX_DIMS = 32;

// A vector with a fixed inline capacity that moves to the heap beyond it.
template <typename T, int N>
class TsSmallVec {
    static_assert(std::is_trivially_copyable_v<T>, "elements are copied with memcpy");

public:
    TsSmallVec() = default;
    TsSmallVec(const TsSmallVec& o) { Assign(o.data_, o.size_); }
    TsSmallVec& operator=(const TsSmallVec& o) {
        if (this != &o) Assign(o.data_, o.size_);
        return *this;
    }
    ~TsSmallVec() {
        if (data_ != inline_) delete[] data_;
    }

    int size() const { return size_; }
    bool empty() const { return size_ == 0; }
    T* data() { return data_; }
    const T* data() const { return data_; }
    T& operator[](int i) { return data_[i]; }
    const T& operator[](int i) const { return data_[i]; }
    T* begin() { return data_; }
    T* end() { return data_ + size_; }
    const T* begin() const { return data_; }
    const T* end() const { return data_ + size_; }
    T& back() { return data_[size_ - 1]; }

    void clear() { size_ = 0; }
    void push_back(const T& v) {
        if (size_ == capacity_) Grow(capacity_ * 2);
        data_[size_++] = v;
    }
    void resize(int n) {
        if (n > capacity_) Grow(n);
        size_ = n;
    }
    bool contains(const T& v) const {
        for (int i = 0; i < size_; ++i)
            if (data_[i] == v) return true;
        return false;
    }
    int find(const T& v) const {
        for (int i = 0; i < size_; ++i)
            if (data_[i] == v) return i;
        return -1;
    }

private:
    void Assign(const T* src, int n) {
        if (n > capacity_) Grow(n);
        if (n > 0) std::memcpy(static_cast<void*>(data_), src, sizeof(T) * n);
        size_ = n;
    }
    void Grow(int cap) {
        T* p = new T[cap];
        if (size_ > 0) std::memcpy(static_cast<void*>(p), data_, sizeof(T) * size_);
        if (data_ != inline_) delete[] data_;
        data_ = p;
        capacity_ = cap;
    }

    T inline_[N];
    T* data_ = inline_;
    int size_ = 0;
    int capacity_ = N;
};

// Ordered node indices with their sizes, outermost first (the last varies
// fastest, as in VEK_Dmatrix).
struct TsCoords {
    TsSmallVec<int, 32> nodes;
    TsSmallVec<int, 32> sizes;

    int Count() const { return nodes.size(); }
    void Add(int node, int size) {
        nodes.push_back(node);
        sizes.push_back(size);
    }
    void Clear() {
        nodes.clear();
        sizes.clear();
    }
    // Number of entries; an empty list stands for one entry. 0 on overflow
    // of 2^62. Inline and without division: the passes ask for it per
    // operand.
    int64_t Size() const {
        constexpr int64_t kMax = int64_t(1) << 62;
        int64_t n = 1;
        for (int i = 0; i < sizes.size(); ++i) {
            if (sizes[i] <= 0 || __builtin_mul_overflow(n, int64_t(sizes[i]), &n) || n > kMax) return 0;
        }
        return n;
    }
    // Position of a node, -1 when absent.
    int Find(int node) const { return nodes.find(node); }
};

// The plan of one walk over a big matrix with a small one. The innermost run
// has n0 entries (small stride s0), repeated n1 times (small stride s1 per
// repetition); the outer blocks then move like an odometer.
struct TsOdometer {
    int64_t count = 1;  // entries of the big matrix
    int64_t n0 = 1, s0 = 0;
    int64_t n1 = 1, s1 = 0;
    int outer = 0;
    int64_t outSize[TS_MAX_DIMS] = {};
    int64_t outStride[TS_MAX_DIMS] = {};
    int64_t base = 0;  // small index of the big matrix's first entry
    int64_t smallCount = 1;  // entries of the small matrix the walk touches

    // sizes: the big matrix's dimensions, outermost first; strides: the small
    // matrix's stride for each of them (0 when the small matrix lacks it).
    void Build(const int* sizes, const int64_t* strides, int dims, int64_t smallBase = 0);
};

// One walk over a big matrix that reads or writes several smaller ones at
// once. The big matrix is cut into chunks (its innermost dimensions, up to
// kChunk entries) that are handled as plain loops; within a chunk each
// operand is constant (Scalar), advances with the big matrix (Contiguous) or
// is addressed through a map of offsets (Gather). The outer dimensions move
// like an odometer, each operand's offset with them. An operand that is
// neither is split into blocks: runs over which it is constant
// (BlockScalar) or contiguous (BlockContiguous), so that sums and products
// still run over plain loops and no two neighbouring entries write the same
// place.
class TsMultiOdometer {
public:
    enum Kind : unsigned char { Scalar = 0, Contiguous = 1, BlockScalar = 2, BlockContiguous = 3, Gather = 4 };
    static constexpr int64_t kChunk = 1024;

    // sizes: the big matrix's dimensions, outermost first; strides: one row
    // of dims entries per operand (0 where the operand lacks the dimension).
    void Build(const int* sizes, int dims, const int64_t* strides, int operands);

    int64_t Count() const { return count_; }
    int64_t Chunk() const { return chunk_; }
    int Operands() const { return operands_; }
    Kind GetKind(int k) const { return static_cast<Kind>(kind_[static_cast<size_t>(k)]); }
    // Entries per block of operand k (1 for Gather, Chunk() for the others).
    int64_t Block(int k) const { return block_[static_cast<size_t>(k)]; }
    // Offsets of operand k at the start of each of the chunk's blocks.
    void MakeMap(int k, int64_t* map) const;
    // Makes every operand's map once and keeps it (nothing when kept).
    void KeepMaps();
    // Frees the kept maps.
    void DropMaps() {
        std::vector<int64_t>().swap(kept_);
        std::vector<size_t>().swap(keptAt_);
    }
    // Entries of the maps KeepMaps makes (whether kept or not).
    int64_t MapEntries() const;
    // The kept map of operand k, null when none is kept.
    const int64_t* KeptMap(int k) const {
        return keptAt_.empty() ? nullptr : kept_.data() + keptAt_[static_cast<size_t>(k)];
    }

    // Calls fn(bigOffset, offsets) for every chunk; offsets holds each
    // operand's offset and starts with their bases.
    template <class Fn>
    void Walk(int64_t* offsets, Fn&& fn) const {
        const int64_t steps = count_ / chunk_;
        int64_t cnt[TS_MAX_DIMS] = {};
        int64_t boff = 0;
        const int n = operands_;
        for (int64_t st = 0; st < steps; ++st) {
            fn(boff, offsets);
            boff += chunk_;
            for (int d = 0; d < outer_; ++d) {
                const int64_t* s = outStride_.data() + static_cast<size_t>(d) * static_cast<size_t>(n);
                if (++cnt[d] < outSize_[d]) {
                    for (int k = 0; k < n; ++k) offsets[k] += s[k];
                    break;
                }
                const int64_t back = outSize_[d] - 1;
                for (int k = 0; k < n; ++k) offsets[k] -= s[k] * back;
                cnt[d] = 0;
            }
        }
    }

private:
    int64_t count_ = 1;
    int64_t chunk_ = 1;
    int operands_ = 0;
    int innerDims_ = 0;
    int innerSize_[TS_MAX_DIMS] = {};
    std::vector<int64_t> innerStride_;  // operand-major
    std::vector<unsigned char> kind_;
    std::vector<int64_t> block_;
    int outer_ = 0;
    int64_t outSize_[TS_MAX_DIMS] = {};
    std::vector<int64_t> outStride_;  // dimension-major
    std::vector<int64_t> kept_;
    std::vector<size_t> keptAt_;
};

// Chunk loops over one operand (n entries, blocks of the given length): b =
// op, b *= op, out += b.
void TsChunkLoad(TsMultiOdometer::Kind kind, int64_t block, const int64_t* map, const double* op, int64_t n,
                 double* b);
void TsChunkMultiply(TsMultiOdometer::Kind kind, int64_t block, const int64_t* map, const double* op, int64_t n,
                     double* b);
void TsChunkAccumulate(TsMultiOdometer::Kind kind, int64_t block, const int64_t* map, double* out, int64_t n,
                       const double* b);
// out = max(out, b) entry by entry onto the same places: the max-product
// counterpart of TsChunkAccumulate (entries are never negative).
void TsChunkAccumulateMax(TsMultiOdometer::Kind kind, int64_t block, const int64_t* map, double* out, int64_t n,
                          const double* b);

// A dense matrix over TsCoords. The storage either lives in an arena owned
// by someone else (Attach) or is owned (Allocate).
class TsMatrix {
public:
    TsMatrix() = default;
    TsMatrix(const TsMatrix&) = delete;
    TsMatrix& operator=(const TsMatrix&) = delete;

    const TsCoords& Coords() const { return coords_; }
    TsCoords& Coords() { return coords_; }
    void SetCoords(const TsCoords& c) { coords_ = c; }
    int64_t Size() const { return coords_.Size(); }

    double* Data() { return data_; }
    const double* Data() const { return data_; }
    void Attach(double* data) {
        own_.reset();
        data_ = data;
    }
    // Owned storage of Size() entries (throws bad_alloc).
    void Allocate();
    void Fill(double v);
    double Sum() const;

    // Stride of each of big's dimensions in this matrix (0 when absent).
    void StridesIn(const TsCoords& big, int64_t* strides) const;
    // The odometer that walks big together with small (a subset of its nodes).
    static void CreateMapping(const TsCoords& big, const TsMatrix& small, TsOdometer& odo);

private:
    TsCoords coords_;
    double* data_ = nullptr;
    std::unique_ptr<double[]> own_;
};

// Sum of n contiguous doubles with four partial sums.
double TsSum(const double* p, int64_t n);

// Each operation walks the big matrix once.
void TsOdoCopy(const TsOdometer& o, double* big, const double* small);        // big = small
void TsOdoMultiply(const TsOdometer& o, double* big, const double* small);    // big *= small
void TsOdoMarginalize(const TsOdometer& o, const double* big, double* small); // small += big
// big keeps its entries where small is not 0.0 and becomes 0.0 elsewhere.
void TsOdoStencil(const TsOdometer& o, double* big, const double* small);
// small = (sum of big onto small) / (sum of big); returns the sum of big.
// small must span exactly the entries the walk reaches.
double TsOdoSumDiv(const TsOdometer& o, const double* big, double* small);
// Moves a counter over the dimensions sizes (last fastest); false after the
// last combination (the counter is then back at all zeros).
bool TsSpinOdometer(int* counter, const int* sizes, int dims);
