#include "inference/tsMatrix.h"

#include <algorithm>

void TsOdometer::Build(const int* sizes, const int64_t* strides, int dims, int64_t smallBase) {
    int64_t bs[TS_MAX_DIMS + 2];
    int64_t bt[TS_MAX_DIMS + 2];
    int nb = 0;
    count = 1;
    smallCount = 1;
    // Innermost first: a dimension joins the block below it when both are
    // absent from the small matrix, or when its small stride continues the
    // block's run.
    for (int d = dims - 1; d >= 0; --d) {
        const int64_t sz = sizes[d];
        const int64_t st = strides[d];
        count *= sz;
        if (st != 0) smallCount *= sz;
        if (sz == 1) continue;
        if (nb > 0) {
            const int64_t m = bs[nb - 1];
            const int64_t t = bt[nb - 1];
            if ((t == 0 && st == 0) || (t != 0 && st == t * m)) {
                bs[nb - 1] = m * sz;
                continue;
            }
        }
        bs[nb] = sz;
        bt[nb] = st;
        ++nb;
    }
    base = smallBase;
    n0 = nb > 0 ? bs[0] : 1;
    s0 = nb > 0 ? bt[0] : 0;
    n1 = nb > 1 ? bs[1] : 1;
    s1 = nb > 1 ? bt[1] : 0;
    outer = nb > 2 ? nb - 2 : 0;
    for (int i = 0; i < outer; ++i) {
        outSize[i] = bs[i + 2];
        outStride[i] = bt[i + 2];
    }
}

void TsMatrix::Allocate() {
    const int64_t n = Size();
    own_.reset(new double[static_cast<size_t>(n)]);
    data_ = own_.get();
}

void TsMatrix::Fill(double v) {
    const int64_t n = Size();
    std::fill(data_, data_ + n, v);
}

double TsMatrix::Sum() const { return TsSum(data_, Size()); }

void TsMatrix::StridesIn(const TsCoords& big, int64_t* strides) const {
    int64_t own[TS_MAX_DIMS + 1];
    const int n = coords_.Count();
    int64_t s = 1;
    for (int i = n - 1; i >= 0; --i) {
        own[i] = s;
        s *= coords_.sizes[i];
    }
    for (int d = 0; d < big.Count(); ++d) {
        const int pos = coords_.Find(big.nodes[d]);
        strides[d] = pos < 0 ? 0 : own[pos];
    }
}

void TsMatrix::CreateMapping(const TsCoords& big, const TsMatrix& small, TsOdometer& odo) {
    int64_t strides[TS_MAX_DIMS + 1];
    small.StridesIn(big, strides);
    odo.Build(big.sizes.data(), strides, big.Count());
}

double TsSum(const double* p, int64_t n) {
    double a0 = 0.0, a1 = 0.0, a2 = 0.0, a3 = 0.0;
    int64_t i = 0;
    for (; i + 4 <= n; i += 4) {
        a0 += p[i];
        a1 += p[i + 1];
        a2 += p[i + 2];
        a3 += p[i + 3];
    }
    for (; i < n; ++i) a0 += p[i];
    return (a0 + a1) + (a2 + a3);
}

namespace {

// Calls run(bigOffset, smallOffset) for every innermost run of the walk.
template <class Run>
inline void Walk(const TsOdometer& o, Run&& run) {
    const int64_t n0 = o.n0;
    const int64_t n1 = o.n1;
    const int64_t s1 = o.s1;
    const int64_t steps = o.count / (n0 * n1);
    int64_t cnt[TS_MAX_DIMS] = {};
    int64_t soff = o.base;
    int64_t boff = 0;
    for (int64_t st = 0; st < steps; ++st) {
        int64_t s = soff;
        for (int64_t j = 0; j < n1; ++j) {
            run(boff, s);
            boff += n0;
            s += s1;
        }
        for (int d = 0; d < o.outer; ++d) {
            if (++cnt[d] < o.outSize[d]) {
                soff += o.outStride[d];
                break;
            }
            cnt[d] = 0;
            soff -= o.outStride[d] * (o.outSize[d] - 1);
        }
    }
}

}  // namespace

void TsOdoCopy(const TsOdometer& o, double* big, const double* small) {
    const int64_t n = o.n0, s0 = o.s0;
    if (s0 == 0) {
        Walk(o, [&](int64_t b, int64_t s) {
            const double v = small[s];
            double* p = big + b;
            for (int64_t i = 0; i < n; ++i) p[i] = v;
        });
    } else if (s0 == 1) {
        Walk(o, [&](int64_t b, int64_t s) { std::memcpy(big + b, small + s, sizeof(double) * n); });
    } else {
        Walk(o, [&](int64_t b, int64_t s) {
            double* p = big + b;
            const double* q = small + s;
            for (int64_t i = 0; i < n; ++i) p[i] = q[i * s0];
        });
    }
}

void TsOdoMultiply(const TsOdometer& o, double* big, const double* small) {
    const int64_t n = o.n0, s0 = o.s0;
    if (s0 == 0) {
        Walk(o, [&](int64_t b, int64_t s) {
            const double v = small[s];
            double* p = big + b;
            for (int64_t i = 0; i < n; ++i) p[i] *= v;
        });
    } else if (s0 == 1) {
        Walk(o, [&](int64_t b, int64_t s) {
            double* p = big + b;
            const double* q = small + s;
            for (int64_t i = 0; i < n; ++i) p[i] *= q[i];
        });
    } else {
        Walk(o, [&](int64_t b, int64_t s) {
            double* p = big + b;
            const double* q = small + s;
            for (int64_t i = 0; i < n; ++i) p[i] *= q[i * s0];
        });
    }
}

void TsOdoMarginalize(const TsOdometer& o, const double* big, double* small) {
    const int64_t n = o.n0, s0 = o.s0;
    if (s0 == 0) {
        Walk(o, [&](int64_t b, int64_t s) { small[s] += TsSum(big + b, n); });
    } else if (s0 == 1) {
        Walk(o, [&](int64_t b, int64_t s) {
            const double* p = big + b;
            double* q = small + s;
            for (int64_t i = 0; i < n; ++i) q[i] += p[i];
        });
    } else {
        Walk(o, [&](int64_t b, int64_t s) {
            const double* p = big + b;
            double* q = small + s;
            for (int64_t i = 0; i < n; ++i) q[i * s0] += p[i];
        });
    }
}

void TsOdoStencil(const TsOdometer& o, double* big, const double* small) {
    const int64_t n = o.n0, s0 = o.s0;
    Walk(o, [&](int64_t b, int64_t s) {
        double* p = big + b;
        const double* q = small + s;
        for (int64_t i = 0; i < n; ++i)
            if (q[i * s0] == 0.0) p[i] = 0.0;
    });
}

double TsOdoSumDiv(const TsOdometer& o, const double* big, double* small) {
    TsOdoMarginalize(o, big, small);
    const double total = TsSum(small + o.base, o.smallCount);
    if (total != 0.0) {
        const double inv = 1.0 / total;
        for (int64_t i = 0; i < o.smallCount; ++i) small[o.base + i] *= inv;
    }
    return total;
}

bool TsSpinOdometer(int* counter, const int* sizes, int dims) {
    for (int d = dims - 1; d >= 0; --d) {
        if (++counter[d] < sizes[d]) return true;
        counter[d] = 0;
    }
    return false;
}

void TsMultiOdometer::Build(const int* sizes, int dims, const int64_t* strides, int operands) {
    operands_ = operands;
    count_ = 1;
    for (int d = 0; d < dims; ++d) count_ *= sizes[d];
    // Inner dimensions: from the innermost outwards while the chunk stays
    // within kChunk entries (at least one dimension).
    int first = dims;
    chunk_ = 1;
    while (first > 0 && (first == dims || chunk_ * sizes[first - 1] <= kChunk)) {
        chunk_ *= sizes[first - 1];
        --first;
    }
    innerDims_ = dims - first;
    for (int d = 0; d < innerDims_; ++d) innerSize_[d] = sizes[first + d];
    innerStride_.assign(static_cast<size_t>(operands) * static_cast<size_t>(innerDims_ > 0 ? innerDims_ : 1), 0);
    kind_.assign(static_cast<size_t>(operands), Scalar);
    block_.assign(static_cast<size_t>(operands), chunk_);
    for (int k = 0; k < operands; ++k) {
        const int64_t* row = strides + static_cast<size_t>(k) * static_cast<size_t>(dims);
        for (int d = 0; d < innerDims_; ++d)
            innerStride_[static_cast<size_t>(k) * static_cast<size_t>(innerDims_) + static_cast<size_t>(d)] = row[first + d];
        // From the innermost dimension outwards: how far the operand stays
        // constant, or how far it runs contiguously.
        int d = innerDims_ - 1;
        while (d >= 0 && innerSize_[d] == 1) --d;
        int64_t block = 1;
        Kind kind;
        if (d < 0 || row[first + d] == 0) {
            for (; d >= 0 && (innerSize_[d] == 1 || row[first + d] == 0); --d) block *= innerSize_[d];
            kind = block == chunk_ ? Scalar : BlockScalar;
        } else if (row[first + d] == 1) {
            for (; d >= 0 && (innerSize_[d] == 1 || row[first + d] == block); --d) block *= innerSize_[d];
            kind = block == chunk_ ? Contiguous : BlockContiguous;
        } else {
            kind = Gather;
        }
        kind_[static_cast<size_t>(k)] = kind;
        block_[static_cast<size_t>(k)] = kind == Gather ? 1 : block;
    }
    // Outer dimensions, innermost first; neighbours merge when every
    // operand's strides continue each other.
    outer_ = 0;
    outStride_.clear();
    for (int d = first - 1; d >= 0; --d) {
        if (sizes[d] == 1) continue;
        const int64_t* col = nullptr;
        bool merge = outer_ > 0;
        for (int k = 0; merge && k < operands; ++k) {
            col = outStride_.data() + static_cast<size_t>(outer_ - 1) * static_cast<size_t>(operands);
            merge = strides[static_cast<size_t>(k) * static_cast<size_t>(dims) + static_cast<size_t>(d)] ==
                    col[k] * outSize_[outer_ - 1];
        }
        if (merge) {
            outSize_[outer_ - 1] *= sizes[d];
            continue;
        }
        outSize_[outer_] = sizes[d];
        for (int k = 0; k < operands; ++k)
            outStride_.push_back(strides[static_cast<size_t>(k) * static_cast<size_t>(dims) + static_cast<size_t>(d)]);
        ++outer_;
    }
}

void TsMultiOdometer::MakeMap(int k, int64_t* map) const {
    const int64_t* st = innerStride_.data() + static_cast<size_t>(k) * static_cast<size_t>(innerDims_);
    const int64_t block = block_[static_cast<size_t>(k)];
    // A block spans the innermost dimensions whose sizes multiply to its
    // length: only the dimensions outside it move between block starts.
    int dims = innerDims_;
    for (int64_t b = 1; dims > 0 && b < block;) b *= innerSize_[--dims];
    int cnt[TS_MAX_DIMS] = {};
    int64_t off = 0;
    const int64_t blocks = chunk_ / block;
    for (int64_t j = 0; j < blocks; ++j) {
        map[j] = off;
        for (int d = dims - 1; d >= 0; --d) {
            if (++cnt[d] < innerSize_[d]) {
                off += st[d];
                break;
            }
            off -= st[d] * (innerSize_[d] - 1);
            cnt[d] = 0;
        }
    }
}

int64_t TsMultiOdometer::MapEntries() const {
    int64_t total = 0;
    for (int k = 0; k < operands_; ++k)
        if (GetKind(k) >= BlockScalar) total += chunk_ / block_[static_cast<size_t>(k)];
    return total;
}

void TsMultiOdometer::KeepMaps() {
    if (!keptAt_.empty()) return;
    std::vector<size_t> at(static_cast<size_t>(operands_), 0);
    size_t total = 0;
    for (int k = 0; k < operands_; ++k) {
        at[static_cast<size_t>(k)] = total;
        if (GetKind(k) >= BlockScalar) total += static_cast<size_t>(chunk_ / block_[static_cast<size_t>(k)]);
    }
    std::vector<int64_t> maps(total > 0 ? total : 1, 0);
    for (int k = 0; k < operands_; ++k)
        if (GetKind(k) >= BlockScalar) MakeMap(k, maps.data() + at[static_cast<size_t>(k)]);
    kept_.swap(maps);
    keptAt_.swap(at);
}

void TsChunkLoad(TsMultiOdometer::Kind kind, int64_t block, const int64_t* map, const double* op, int64_t n,
                 double* b) {
    switch (kind) {
        case TsMultiOdometer::Scalar: {
            const double v = *op;
            for (int64_t i = 0; i < n; ++i) b[i] = v;
            break;
        }
        case TsMultiOdometer::Contiguous: std::memcpy(b, op, sizeof(double) * static_cast<size_t>(n)); break;
        case TsMultiOdometer::BlockScalar:
            for (int64_t j = 0, i = 0; i < n; ++j, i += block) {
                const double v = op[map[j]];
                for (int64_t t = 0; t < block; ++t) b[i + t] = v;
            }
            break;
        case TsMultiOdometer::BlockContiguous:
            for (int64_t j = 0, i = 0; i < n; ++j, i += block) {
                const double* q = op + map[j];
                for (int64_t t = 0; t < block; ++t) b[i + t] = q[t];
            }
            break;
        default:
            for (int64_t i = 0; i < n; ++i) b[i] = op[map[i]];
    }
}

void TsChunkMultiply(TsMultiOdometer::Kind kind, int64_t block, const int64_t* map, const double* op, int64_t n,
                     double* b) {
    switch (kind) {
        case TsMultiOdometer::Scalar: {
            const double v = *op;
            for (int64_t i = 0; i < n; ++i) b[i] *= v;
            break;
        }
        case TsMultiOdometer::Contiguous:
            for (int64_t i = 0; i < n; ++i) b[i] *= op[i];
            break;
        case TsMultiOdometer::BlockScalar:
            for (int64_t j = 0, i = 0; i < n; ++j, i += block) {
                const double v = op[map[j]];
                for (int64_t t = 0; t < block; ++t) b[i + t] *= v;
            }
            break;
        case TsMultiOdometer::BlockContiguous:
            for (int64_t j = 0, i = 0; i < n; ++j, i += block) {
                const double* q = op + map[j];
                for (int64_t t = 0; t < block; ++t) b[i + t] *= q[t];
            }
            break;
        default:
            for (int64_t i = 0; i < n; ++i) b[i] *= op[map[i]];
    }
}

void TsChunkAccumulate(TsMultiOdometer::Kind kind, int64_t block, const int64_t* map, double* out, int64_t n,
                       const double* b) {
    switch (kind) {
        case TsMultiOdometer::Scalar: *out += TsSum(b, n); break;
        case TsMultiOdometer::Contiguous:
            for (int64_t i = 0; i < n; ++i) out[i] += b[i];
            break;
        case TsMultiOdometer::BlockScalar:
            if (block == 2) {
                for (int64_t j = 0, i = 0; i < n; ++j, i += 2) out[map[j]] += b[i] + b[i + 1];
            } else if (block < 8) {
                for (int64_t j = 0, i = 0; i < n; ++j, i += block) {
                    double sum = 0.0;
                    for (int64_t t = 0; t < block; ++t) sum += b[i + t];
                    out[map[j]] += sum;
                }
            } else {
                for (int64_t j = 0, i = 0; i < n; ++j, i += block) out[map[j]] += TsSum(b + i, block);
            }
            break;
        case TsMultiOdometer::BlockContiguous:
            for (int64_t j = 0, i = 0; i < n; ++j, i += block) {
                double* q = out + map[j];
                for (int64_t t = 0; t < block; ++t) q[t] += b[i + t];
            }
            break;
        default:
            for (int64_t i = 0; i < n; ++i) out[map[i]] += b[i];
    }
}

void TsChunkAccumulateMax(TsMultiOdometer::Kind kind, int64_t block, const int64_t* map, double* out, int64_t n,
                          const double* b) {
    switch (kind) {
        case TsMultiOdometer::Scalar: {
            double m = *out;
            for (int64_t i = 0; i < n; ++i) m = b[i] > m ? b[i] : m;
            *out = m;
            break;
        }
        case TsMultiOdometer::Contiguous:
            for (int64_t i = 0; i < n; ++i) out[i] = b[i] > out[i] ? b[i] : out[i];
            break;
        case TsMultiOdometer::BlockScalar:
            for (int64_t j = 0, i = 0; i < n; ++j, i += block) {
                double m = out[map[j]];
                for (int64_t t = 0; t < block; ++t) m = b[i + t] > m ? b[i + t] : m;
                out[map[j]] = m;
            }
            break;
        case TsMultiOdometer::BlockContiguous:
            for (int64_t j = 0, i = 0; i < n; ++j, i += block) {
                double* q = out + map[j];
                for (int64_t t = 0; t < block; ++t) q[t] = b[i + t] > q[t] ? b[i + t] : q[t];
            }
            break;
        default:
            for (int64_t i = 0; i < n; ++i) out[map[i]] = b[i] > out[map[i]] ? b[i] : out[map[i]];
    }
}
