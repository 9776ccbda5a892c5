#include "learning/familyCounts.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "learning/dataset.h"
#include "network/status.h"

namespace {

int Fail(int code, std::string* errorMessage, const std::string& text) {
    if (errorMessage) *errorMessage = text;
    return code;
}

}  // namespace

int VEK_familyCounts::Init(const VEK_dataset& data, std::string* errorMessage) {
    const int vars = data.GetNumberOfVariables();
    const int records = data.GetNumberOfRecords();
    if (vars == 0 || records == 0) return Fail(VEK_OUT_OF_RANGE, errorMessage, "The dataset is empty");
    try {
        std::vector<std::uint8_t> cells(static_cast<size_t>(vars) * records);
        std::vector<int> cards(vars);
        for (int v = 0; v < vars; ++v) {
            const std::string id = data.GetId(v);
            const VEK_dataset::Variable& var = data.GetVariable(v);
            if (!var.discrete) {
                return Fail(VEK_WRONG_NODE_TYPE, errorMessage,
                            "Column '" + id + "' is continuous; discretize it before structure learning");
            }
            int card = static_cast<int>(var.stateNames.size());
            std::uint8_t* out = cells.data() + static_cast<size_t>(v) * records;
            for (int r = 0; r < records; ++r) {
                const int x = var.intData[r];
                if (x == var.missingInt) {
                    return Fail(VEK_INVALID_VALUE, errorMessage,
                                "Column '" + id + "' has missing values; structure learning needs complete data");
                }
                if (x < 0 || x >= kMaxStates) {
                    return Fail(VEK_OUT_OF_RANGE, errorMessage,
                                "Column '" + id + "' holds the value " + std::to_string(x) +
                                    "; values must be state indices from 0 to " + std::to_string(kMaxStates - 1));
                }
                out[r] = static_cast<std::uint8_t>(x);
                if (var.stateNames.empty()) card = std::max(card, x + 1);
            }
            if (card < 2) {
                return Fail(VEK_OUT_OF_RANGE, errorMessage,
                            "Column '" + id + "' holds a single value; every column needs at least two states");
            }
            cards[v] = card;
        }
        // Merge identical records: hash each record's cells, open addressing.
        std::vector<std::uint8_t> row(static_cast<size_t>(records) * vars);
        for (int v = 0; v < vars; ++v) {
            const std::uint8_t* col = cells.data() + static_cast<size_t>(v) * records;
            for (int r = 0; r < records; ++r) row[static_cast<size_t>(r) * vars + v] = col[r];
        }
        size_t slots = 1;
        while (slots < 2 * static_cast<size_t>(records)) slots <<= 1;
        std::vector<int> table(slots, -1), first, weights;
        for (int r = 0; r < records; ++r) {
            const std::uint8_t* x = row.data() + static_cast<size_t>(r) * vars;
            std::uint64_t h = 1469598103934665603ULL;
            for (int v = 0; v < vars; ++v) h = (h ^ x[v]) * 1099511628211ULL;
            size_t at = (h ^ (h >> 29)) & (slots - 1);
            for (;; at = (at + 1) & (slots - 1)) {
                const int u = table[at];
                if (u < 0) {
                    table[at] = static_cast<int>(first.size());
                    first.push_back(r);
                    weights.push_back(1);
                    break;
                }
                if (std::memcmp(row.data() + static_cast<size_t>(first[u]) * vars, x, vars) == 0) {
                    ++weights[u];
                    break;
                }
            }
        }
        const int rows = static_cast<int>(first.size());
        std::vector<std::uint8_t> merged(static_cast<size_t>(rows) * vars);
        for (int v = 0; v < vars; ++v) {
            for (int u = 0; u < rows; ++u) {
                merged[static_cast<size_t>(v) * rows + u] = row[static_cast<size_t>(first[u]) * vars + v];
            }
        }
        cells_.swap(merged);
        weights_.swap(weights);
        cards_.swap(cards);
        records_ = records;
        rows_ = rows;
        return VEK_OKAY;
    } catch (const std::bad_alloc&) {
        return Fail(VEK_OUT_OF_MEMORY, errorMessage, "Out of memory while packing the dataset");
    }
}

int VEK_familyCounts::InitColumns(const std::vector<const int*>& columns, int records, const std::vector<int>& cards) {
    if (columns.size() != cards.size() || records < 0) return VEK_OUT_OF_RANGE;
    for (int card : cards) {
        if (card < 1 || card > kMaxStates) return VEK_OUT_OF_RANGE;
    }
    try {
        std::vector<std::uint8_t> cells(columns.size() * static_cast<size_t>(records));
        for (size_t v = 0; v < columns.size(); ++v) {
            std::uint8_t* out = cells.data() + v * static_cast<size_t>(records);
            const int* in = columns[v];
            for (int r = 0; r < records; ++r) out[r] = static_cast<std::uint8_t>(in[r]);
        }
        std::vector<int> weights(static_cast<size_t>(records), 1);
        std::vector<int> copy(cards);
        cells_.swap(cells);
        weights_.swap(weights);
        cards_.swap(copy);
        records_ = rows_ = records;
        return VEK_OKAY;
    } catch (const std::bad_alloc&) {
        return VEK_OUT_OF_MEMORY;
    }
}

long long VEK_familyCounts::ConfigCount(const int* parents, int count, long long limit) const {
    long long q = 1;
    for (int i = 0; i < count; ++i) {
        q *= cards_[parents[i]];
        if (q > limit) return -1;
    }
    return q;
}

void VEK_familyCounts::ConfigIndex(const int* parents, int count, std::vector<int>& index) const {
    index.assign(rows_, 0);
    int* idx = index.data();
    for (int i = 0; i < count; ++i) {
        const std::uint8_t* col = Column(parents[i]);
        const int card = cards_[parents[i]];
        for (int r = 0; r < rows_; ++r) idx[r] = idx[r] * card + col[r];
    }
}

int VEK_familyCounts::Count(int child, const int* parents, int count, std::vector<int>& counts) const {
    const int r = cards_[child];
    const std::uint8_t* x = Column(child);
    const int* w = weights_.data();
    int q = 1;
    for (int i = 0; i < count; ++i) q *= cards_[parents[i]];
    counts.assign(static_cast<size_t>(q) * r, 0);
    int* c = counts.data();
    switch (count) {
    case 0:
        for (int k = 0; k < rows_; ++k) c[x[k]] += w[k];
        break;
    case 1: {
        const std::uint8_t* p = Column(parents[0]);
        for (int k = 0; k < rows_; ++k) c[p[k] * r + x[k]] += w[k];
        break;
    }
    case 2: {
        const std::uint8_t* p0 = Column(parents[0]);
        const std::uint8_t* p1 = Column(parents[1]);
        const int c1 = cards_[parents[1]];
        for (int k = 0; k < rows_; ++k) c[(p0[k] * c1 + p1[k]) * r + x[k]] += w[k];
        break;
    }
    default: {
        std::vector<int> index;
        ConfigIndex(parents, count, index);
        for (int k = 0; k < rows_; ++k) c[index[k] * r + x[k]] += w[k];
    }
    }
    return q;
}

int VEK_familyCounts::CountIndexed(int child, const std::vector<int>& index, int configs, int extra,
                                   std::vector<int>& counts) const {
    const int r = cards_[child];
    const std::uint8_t* x = Column(child);
    const int* w = weights_.data();
    const int* idx = index.data();
    if (extra < 0) {
        counts.assign(static_cast<size_t>(configs) * r, 0);
        int* c = counts.data();
        for (int k = 0; k < rows_; ++k) c[idx[k] * r + x[k]] += w[k];
        return configs;
    }
    const int e = cards_[extra];
    const std::uint8_t* p = Column(extra);
    counts.assign(static_cast<size_t>(configs) * e * r, 0);
    int* c = counts.data();
    for (int k = 0; k < rows_; ++k) c[(idx[k] * e + p[k]) * r + x[k]] += w[k];
    return configs * e;
}
