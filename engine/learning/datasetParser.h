// Reads a delimited text file into a VEK_dataset: picks the separator from
// the first line, splits lines into fields (double-quoted fields allowed),
// and infers each column's kind from its values: int, float or named states.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "learning/dataset.h"

class VEK_datasetParser {
public:
    explicit VEK_datasetParser(const VEK_datasetParseParams& params) : params_(params) {}

    // 0, or -103 with GetErrorMessage() set on a parse fault (the dataset
    // keeps the records read before it), or -42 when memory runs out.
    [[nodiscard]] int Parse(FILE* file, VEK_dataset& data);
    const std::string& GetErrorMessage() const { return error_; }

private:
    // A field's text, and whether it counts as empty (no text, or the
    // missing-value token).
    struct Field {
        std::string text;
        bool empty = false;
    };

    bool ReadLine();
    // 0, or a message for a malformed quoted field.
    const char* Split(std::string_view line, bool header);
    int Fail(const std::string& message);
    [[nodiscard]] int ParseBody(FILE* file, VEK_dataset& data);
    void StoreField(VEK_dataset::Variable& v, int column, int record, const Field& f);
    void MakeNamed(VEK_dataset::Variable& v, int column, int records);
    [[nodiscard]] int MapName(VEK_dataset::Variable& v, int column, const std::string& name);
    void Finish(VEK_dataset& data);

    VEK_datasetParseParams params_;
    std::string error_;
    char separator_ = ',';

    FILE* file_ = nullptr;
    std::vector<char> buffer_;  // file bytes not yet consumed
    size_t bufPos_ = 0;
    size_t bufEnd_ = 0;
    bool eof_ = false;
    std::string line_;
    int lineNo_ = 0;

    std::vector<Field> fields_;
    int fieldCount_ = 0;

    // Named-state columns: the names in first-seen order and their indices.
    std::vector<bool> named_;
    std::vector<std::unordered_map<std::string, int>> nameIndex_;
};
