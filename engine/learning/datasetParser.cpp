#include "learning/datasetParser.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <new>

#include "network/decimalText.h"
#include "network/status.h"
#include "network/textEncoding.h"

namespace {

// More columns than this is taken for a damaged file: each column costs a
// few hundred bytes before it holds any data.
constexpr int kMaxColumns = 250000;
constexpr size_t kReadChunk = 1 << 16;
// Without a separator the first line is one column only when it is short.
constexpr size_t kMaxLineWithoutSeparator = 128;

bool EqualsIgnoreCase(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        unsigned char x = static_cast<unsigned char>(a[i]);
        unsigned char y = static_cast<unsigned char>(b[i]);
        if (x >= 'A' && x <= 'Z') x = static_cast<unsigned char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z') y = static_cast<unsigned char>(y - 'A' + 'a');
        if (x != y) return false;
    }
    return true;
}

// A decimal number (optional sign, digits, fraction, exponent) followed by
// nothing but spaces. Words such as "nan" or "inf" and hexadecimal forms are
// state names, not numbers.
bool ParseNumber(const std::string& text, double& value) {
    const char* p = text.data();
    const char* end = p + text.size();
    if (p < end && *p == '+') {
        ++p;
        if (p < end && *p == '-') return false;
    }
    const char* q = VEK_scanDecimal(p, end, value);
    if (q == nullptr) return false;
    while (q < end && *q == ' ') ++q;
    return q == end && std::isfinite(value);
}

std::string FloatText(float f) {
    char buffer[64];
    auto res = std::to_chars(buffer, buffer + sizeof(buffer), f);
    return std::string(buffer, res.ptr);
}

}  // namespace

int VEK_datasetParser::Fail(const std::string& message) {
    error_ = message;
    return VEK_FILE_IO_FAILED;
}

bool VEK_datasetParser::ReadLine() {
    line_.clear();
    bool any = false;
    for (;;) {
        if (bufPos_ == bufEnd_) {
            if (eof_) break;
            bufEnd_ = std::fread(buffer_.data(), 1, buffer_.size(), file_);
            bufPos_ = 0;
            if (bufEnd_ == 0) {
                eof_ = true;
                break;
            }
        }
        const char* s = buffer_.data() + bufPos_;
        size_t avail = bufEnd_ - bufPos_;
        any = true;
        const void* nl = std::memchr(s, '\n', avail);
        if (nl != nullptr) {
            size_t len = static_cast<size_t>(static_cast<const char*>(nl) - s);
            line_.append(s, len);
            bufPos_ += len + 1;
            break;
        }
        line_.append(s, avail);
        bufPos_ = bufEnd_;
    }
    if (!any) return false;
    if (!line_.empty() && line_.back() == '\r') line_.pop_back();
    // A line that is not UTF-8 is read as Latin-1, as the network readers do.
    VEK_ensureUtf8(line_);
    ++lineNo_;
    return true;
}

const char* VEK_datasetParser::Split(std::string_view line, bool header) {
    fieldCount_ = 0;
    const size_t n = line.size();
    size_t i = 0;
    for (;;) {
        if (fieldCount_ == static_cast<int>(fields_.size())) fields_.emplace_back();
        Field& f = fields_[fieldCount_];
        f.text.clear();
        while (i < n && line[i] == ' ') ++i;
        if (i < n && line[i] == '"') {
            ++i;
            for (;;) {
                size_t q = line.find('"', i);
                if (q == std::string_view::npos) return "Unexpected endline in the quoted string";
                f.text.append(line.data() + i, q - i);
                if (q + 1 < n && line[q + 1] == '"') {
                    f.text += '"';
                    i = q + 2;
                    continue;
                }
                i = q + 1;
                break;
            }
            if (i < n && line[i] != separator_) return "Unexpected character in the quoted string";
        } else {
            size_t e = line.find(separator_, i);
            if (e == std::string_view::npos) e = n;
            f.text.append(line.data() + i, e - i);
            i = e;
        }
        f.empty = f.text.empty() || (!header && EqualsIgnoreCase(f.text, params_.missingValueToken));
        ++fieldCount_;
        if (i >= n) break;
        ++i;  // the separator; when it ends the line an empty field follows
        if (fieldCount_ > kMaxColumns) break;
    }
    return nullptr;
}

int VEK_datasetParser::MapName(VEK_dataset::Variable& v, int column, const std::string& name) {
    std::vector<std::string>& names = v.stateNames;
    auto [it, added] = nameIndex_[column].try_emplace(name, static_cast<int>(names.size()));
    if (added) names.push_back(name);
    return it->second;
}

void VEK_datasetParser::MakeNamed(VEK_dataset::Variable& v, int column, int records) {
    named_[column] = true;
    // State indices start at 0, so a non-negative marker would collide.
    const int marker = v.missingInt < 0 ? v.missingInt : -1;
    if (v.discrete) {
        for (int r = 0; r < records; ++r) {
            int& cell = v.intData[r];
            cell = cell == v.missingInt ? marker : MapName(v, column, std::to_string(cell));
        }
    } else {
        v.intData.assign(records, marker);
        for (int r = 0; r < records; ++r) {
            float f = v.floatData[r];
            if (!VEK_dataset::IsMissingFloat(f, v.missingFloat)) v.intData[r] = MapName(v, column, FloatText(f));
        }
        std::vector<float>().swap(v.floatData);
        v.discrete = true;
    }
    v.missingInt = marker;
}

void VEK_datasetParser::StoreField(VEK_dataset::Variable& v, int column, int record, const Field& f) {
    if (f.empty) return;
    if (named_[column]) {
        v.intData[record] = MapName(v, column, f.text);
        return;
    }
    double d = 0.0;
    if (!ParseNumber(f.text, d)) {
        MakeNamed(v, column, record + 1);
        v.intData[record] = MapName(v, column, f.text);
        return;
    }
    if (v.discrete) {
        if (d == std::trunc(d) && d >= INT_MIN && d <= INT_MAX) {
            v.intData[record] = static_cast<int>(d);
            return;
        }
        v.floatData.resize(v.intData.size());
        for (size_t r = 0; r < v.intData.size(); ++r) {
            int cell = v.intData[r];
            v.floatData[r] = cell == v.missingInt ? v.missingFloat : static_cast<float>(cell);
        }
        std::vector<int>().swap(v.intData);
        v.discrete = false;
    }
    v.floatData[record] = static_cast<float>(d);
}

void VEK_datasetParser::Finish(VEK_dataset& data) {
    std::vector<VEK_dataset::Variable>& vars = data.Variables();
    for (size_t c = 0; c < vars.size() && c < named_.size(); ++c) {
        if (!named_[c]) continue;
        VEK_dataset::Variable& v = vars[c];
        const int count = static_cast<int>(v.stateNames.size());
        std::vector<int> order(count);
        for (int i = 0; i < count; ++i) order[i] = i;
        std::sort(order.begin(), order.end(),
                  [&v](int a, int b) { return v.stateNames[a] < v.stateNames[b]; });
        std::vector<int> newIndex(count);
        std::vector<std::string> sorted(count);
        for (int i = 0; i < count; ++i) {
            newIndex[order[i]] = i;
            sorted[i] = std::move(v.stateNames[order[i]]);
        }
        for (int& cell : v.intData) {
            if (cell != v.missingInt && cell >= 0 && cell < count) cell = newIndex[cell];
        }
        v.stateNames = std::move(sorted);
    }
}

int VEK_datasetParser::Parse(FILE* file, VEK_dataset& data) {
    int res;
    try {
        res = ParseBody(file, data);
        Finish(data);
    } catch (const std::bad_alloc&) {
        error_ = "Out of memory while reading the data file";
        res = VEK_OUT_OF_MEMORY;
    }
    nameIndex_.clear();
    return res;
}

int VEK_datasetParser::ParseBody(FILE* file, VEK_dataset& data) {
    file_ = file;
    buffer_.assign(kReadChunk, '\0');
    bufPos_ = bufEnd_ = 0;
    eof_ = false;
    lineNo_ = 0;
    error_.clear();

    if (!ReadLine()) return Fail("Can't read first line of file");

    if (line_.find('\t') != std::string::npos) {
        separator_ = '\t';
    } else if (line_.find(',') != std::string::npos) {
        separator_ = ',';
    } else if (line_.find(';') != std::string::npos) {
        separator_ = ';';
    } else if (line_.find(' ') != std::string::npos) {
        separator_ = ' ';
    } else if (line_.size() > kMaxLineWithoutSeparator) {
        return Fail("First line has more than 128 characters and no separators were found");
    } else {
        // One column: any byte that cannot occur in a line splits nothing.
        separator_ = '\n';
    }

    const bool header = params_.columnIdsPresent;
    if (Split(line_, header) != nullptr) return Fail("Can't recognize column names/values in the first line");
    if (fieldCount_ > kMaxColumns) {
        return Fail("Line 1: more than " + std::to_string(kMaxColumns) + " columns are not supported");
    }
    if (line_.empty()) return Fail(header ? "The header line is empty" : "The first line is empty");
    const int columns = fieldCount_;

    if (header) {
        if (columns > 1 && fields_[columns - 1].text.empty() && line_.back() == separator_) {
            return Fail("Trailing separator found in the header line");
        }
        for (int c = 0; c < columns; ++c) {
            if (fields_[c].text.empty()) return Fail("Column name " + std::to_string(c + 1) + " is empty");
        }
        std::unordered_map<std::string_view, int> seen;
        seen.reserve(columns);
        for (int c = 0; c < columns; ++c) {
            if (!seen.emplace(fields_[c].text, c).second) return Fail("Duplicated column name: " + fields_[c].text);
        }
    }

    std::vector<VEK_dataset::Variable>& vars = data.Variables();
    vars.reserve(columns);
    for (int c = 0; c < columns; ++c) {
        std::string id = header ? fields_[c].text : "Column" + std::to_string(c + 1);
        if (data.AddIntVariable(id.c_str(), params_.missingInt) != c) {
            return Fail("Can't add column " + std::to_string(c + 1));
        }
    }
    named_.assign(columns, false);
    nameIndex_.assign(columns, {});
    for (int c = 0; c < columns; ++c) vars[c].missingFloat = params_.missingFloat;

    bool pending = !header;  // the first line holds data when there are no ids
    for (;;) {
        if (!pending) {
            if (!ReadLine()) break;
            // A blank line is not a record (files often end with one).
            if (line_.empty()) continue;
            if (const char* fault = Split(line_, false)) {
                return Fail("Line " + std::to_string(lineNo_) + ": " + fault);
            }
        }
        pending = false;
        if (fieldCount_ != columns) {
            char message[160];
            std::snprintf(message, sizeof(message), "Line %d: expected %d columns of data but found %d", lineNo_,
                          columns, fieldCount_);
            return Fail(message);
        }
        int record = data.AddEmptyRecord();
        if (record < 0) return Fail("Line " + std::to_string(lineNo_) + ": can't add a record");
        for (int c = 0; c < columns; ++c) StoreField(vars[c], c, record, fields_[c]);
    }
    return VEK_OKAY;
}
