// The counting core of structure learning: the dataset's discrete columns
// packed into one byte per cell, identical records merged into one row
// with a weight (sampled and real data repeat rows a lot, so every pass
// over the data gets shorter), and contingency tables of a child column
// given a set of parent columns, counted in one pass over the records with
// the parents' configuration index built mixed-radix (first parent most
// significant, child fastest), the layout of a probability table.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class VEK_dataset;

class VEK_familyCounts {
public:
    // Largest state count a column may have: cells are stored in one byte.
    static constexpr int kMaxStates = 255;

    // Packs every column of data. Refuses (-2, -4, -51 with a message) an
    // empty dataset, continuous columns, missing cells, negative values,
    // columns of more than kMaxStates states and columns with a single
    // state. The state count of a column is its state-name count, or its
    // largest value plus one when it has no names.
    [[nodiscard]] int Init(const VEK_dataset& data, std::string* errorMessage = nullptr);
    // Packs columns that already hold state indices, columns[c] having
    // cards[c] states and every cell within 0..cards[c]-1, one row per
    // record: a single count per family would not repay merging. -2 when a
    // state count is outside 1..kMaxStates, -42 when memory runs out.
    [[nodiscard]] int InitColumns(const std::vector<const int*>& columns, int records, const std::vector<int>& cards);

    int GetColumnCount() const { return static_cast<int>(cards_.size()); }
    // Records of the dataset, and distinct rows after merging.
    int GetRecordCount() const { return records_; }
    int GetRowCount() const { return rows_; }
    int GetStateCount(int column) const { return cards_[column]; }
    const std::uint8_t* Column(int column) const { return cells_.data() + static_cast<size_t>(column) * rows_; }
    // How many records each row stands for.
    const int* Weights() const { return weights_.data(); }

    // Product of the parents' state counts, or -1 when it exceeds limit.
    long long ConfigCount(const int* parents, int count, long long limit) const;

    // Configuration index of every row over the parents (0 for none).
    void ConfigIndex(const int* parents, int count, std::vector<int>& index) const;

    // counts[(config * r) + state] of the child given the parents, r the
    // child's state count; returns the configuration count.
    int Count(int child, const int* parents, int count, std::vector<int>& counts) const;
    // The same given a configuration index of configs values per record,
    // extended by one more column (extra < 0 for none): the index becomes
    // index * states(extra) + value(extra).
    int CountIndexed(int child, const std::vector<int>& index, int configs, int extra, std::vector<int>& counts) const;

private:
    std::vector<std::uint8_t> cells_;  // column-major, one cell per row
    std::vector<int> weights_;
    std::vector<int> cards_;
    int records_ = 0;
    int rows_ = 0;
};
