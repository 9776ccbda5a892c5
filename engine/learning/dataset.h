// A table of records for the learning algorithms: one variable (column) per
// observed quantity, one record (row) per case. Discrete columns hold ints
// (state indices when the column has state names, bare numbers otherwise),
// continuous columns hold floats. Each column has its own missing marker.
#pragma once

#include <limits>
#include <string>
#include <vector>

#include "learning/datasetMatch.h"

class VEK_network;

struct VEK_datasetParseParams {
    std::string missingValueToken = "*";  // compared without regard to case
    int missingInt = -1;
    float missingFloat = std::numeric_limits<float>::quiet_NaN();
    bool columnIdsPresent = true;
};

struct VEK_datasetWriteParams {
    std::string missingValueToken = "*";
    char separator = '\t';
    bool columnIdsPresent = true;
    // printf format of one float conversion; empty writes the shortest text
    // that reads back as the same float.
    std::string floatFormat;
};

class VEK_dataset {
public:
    // One column. The data vector of the other kind stays empty.
    struct Variable {
        bool discrete = true;
        std::string id;
        std::vector<int> intData;
        std::vector<float> floatData;
        std::vector<std::string> stateNames;
        int missingInt = -1;
        float missingFloat = std::numeric_limits<float>::quiet_NaN();
    };

    // Missing rule of continuous cells: a finite marker matches itself only;
    // a NaN or infinite marker matches every NaN or infinite cell.
    static bool IsMissingFloat(float value, float marker);

    // 0, or -103 with a message when the file cannot be opened or parsed.
    // The dataset is cleared before parsing; after a parse fault it holds the
    // records read before it. An unopenable file leaves it unchanged.
    [[nodiscard]] int ReadFile(const char* path, const VEK_datasetParseParams* params = nullptr,
                 std::string* errorMessage = nullptr);
    // 0; -103 when the file cannot be opened or written; -2 for a separator
    // or float format that cannot be written.
    [[nodiscard]] int WriteFile(const char* path, const VEK_datasetWriteParams* params = nullptr,
                  std::string* errorMessage = nullptr) const;

    void Clear();
    void Swap(VEK_dataset& other) noexcept;

    int GetNumberOfVariables() const { return static_cast<int>(vars_.size()); }
    int GetNumberOfRecords() const { return records_; }
    // Every stored record counts: the dataset keeps no weighted rows.
    int GetRealRowCount() const { return records_; }
    bool IsValidVariable(int var) const { return var >= 0 && var < GetNumberOfVariables(); }
    bool IsValidRecord(int rec) const { return rec >= 0 && rec < records_; }

    // Null for a bad index.
    const char* GetId(int var) const;
    // -2 for a bad index or an empty id, -32 when another column has it.
    [[nodiscard]] int SetId(int var, const char* id);
    // Index of the column with that id, -3 when none.
    int FindVariable(const char* id) const;

    // Add a column whose cells are all missing; return its index, -2 for an
    // empty id, -32 for a duplicated one, -42 when memory runs out.
    [[nodiscard]] int AddIntVariable(const char* id, int missingInt = -1);
    [[nodiscard]] int AddFloatVariable(const char* id, float missingFloat = std::numeric_limits<float>::quiet_NaN());
    [[nodiscard]] int RemoveVariable(int var);
    // A record whose cells are all missing; returns its index or -42.
    [[nodiscard]] int AddEmptyRecord();
    [[nodiscard]] int RemoveRecord(int rec);

    bool IsDiscrete(int var) const { return vars_[var].discrete; }
    // No range checks on the getters: check with IsValidVariable and
    // IsValidRecord first. GetInt of a continuous column and GetFloat of a
    // discrete one read the other kind's cell converted.
    int GetInt(int var, int rec) const;
    float GetFloat(int var, int rec) const;
    bool IsMissing(int var, int rec) const;
    // -2 for bad indices; -2 for an int outside the state indices of a
    // column with state names; -51 for a cell of the other kind.
    [[nodiscard]] int SetInt(int var, int rec, int value);
    [[nodiscard]] int SetFloat(int var, int rec, float value);
    [[nodiscard]] int SetMissing(int var, int rec);
    bool HasMissingData(int var) const;

    int GetMissingInt(int var) const { return vars_[var].missingInt; }
    float GetMissingFloat(int var) const { return vars_[var].missingFloat; }

    // -51 for a continuous column; -2 for a bad index, an empty or repeated
    // name, or a stored cell that would fall outside the new names. An empty
    // list makes the column's ints bare numbers again.
    [[nodiscard]] int SetStateNames(int var, const std::vector<std::string>& names);
    const std::vector<std::string>& GetStateNames(int var) const { return vars_[var].stateNames; }

    const Variable& GetVariable(int var) const { return vars_[var]; }

    // Pairs each column with the node of the same id (slice 0), or a column
    // id + "_" + t with plate node id in slice t; columns naming no node are
    // left out. -2 with a message listing every paired
    // column whose values do not fit its node, -3 when no column names a
    // node; matching is replaced only on success.
    [[nodiscard]] int MatchNetwork(const VEK_network& net, std::vector<VEK_datasetMatch>& matching,
                     std::string* errorMessage = nullptr) const;
    // Turns a continuous (or bare-number) column into a discrete one of
    // intervalCount intervals by algorithm (0 hierarchical, 1 equal width,
    // 2 equal frequency); edges receives the interior edges, ascending, and
    // interval k holds the values v with edges[k-1] <= v < edges[k]. States
    // are named prefix + k, or stay bare interval indices when prefix is
    // empty; missing cells stay missing. -2 or -51 with a message, the
    // column unchanged, for a bad column, algorithm or count, or a column
    // without two distinct values.
    [[nodiscard]] int Discretize(int var, int algorithm, int intervalCount, const std::string& prefix, std::vector<double>& edges,
                   std::string* errorMessage = nullptr);

    // The parser builds the columns in place.
    std::vector<Variable>& Variables() { return vars_; }
    void SetRecordCount(int records) { records_ = records; }

private:
    std::vector<Variable> vars_;
    int records_ = 0;
};
