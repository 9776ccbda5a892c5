#include "learning/dataset.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <unordered_set>

#include "learning/datasetParser.h"
#include "network/status.h"

bool VEK_dataset::IsMissingFloat(float value, float marker) {
    if (std::isfinite(marker)) return value == marker;
    return !std::isfinite(value);
}

void VEK_dataset::Clear() {
    vars_.clear();
    records_ = 0;
}

void VEK_dataset::Swap(VEK_dataset& other) noexcept {
    vars_.swap(other.vars_);
    std::swap(records_, other.records_);
}

const char* VEK_dataset::GetId(int var) const {
    return IsValidVariable(var) ? vars_[var].id.c_str() : nullptr;
}

int VEK_dataset::FindVariable(const char* id) const {
    if (id == nullptr) return VEK_NO_ITEM;
    for (int i = 0; i < GetNumberOfVariables(); ++i) {
        if (vars_[i].id == id) return i;
    }
    return VEK_NO_ITEM;
}

int VEK_dataset::SetId(int var, const char* id) {
    if (!IsValidVariable(var) || id == nullptr || *id == '\0') return VEK_OUT_OF_RANGE;
    int other = FindVariable(id);
    if (other >= 0 && other != var) return VEK_DUPLICATED_IDENTIFIER;
    try {
        vars_[var].id = id;
    } catch (const std::bad_alloc&) {
        return VEK_OUT_OF_MEMORY;
    }
    return VEK_OKAY;
}

int VEK_dataset::AddIntVariable(const char* id, int missingInt) {
    if (id == nullptr || *id == '\0') return VEK_OUT_OF_RANGE;
    if (FindVariable(id) >= 0) return VEK_DUPLICATED_IDENTIFIER;
    try {
        Variable v;
        v.discrete = true;
        v.id = id;
        v.missingInt = missingInt;
        v.intData.assign(records_, missingInt);
        vars_.push_back(std::move(v));
    } catch (const std::bad_alloc&) {
        return VEK_OUT_OF_MEMORY;
    }
    return GetNumberOfVariables() - 1;
}

int VEK_dataset::AddFloatVariable(const char* id, float missingFloat) {
    if (id == nullptr || *id == '\0') return VEK_OUT_OF_RANGE;
    if (FindVariable(id) >= 0) return VEK_DUPLICATED_IDENTIFIER;
    try {
        Variable v;
        v.discrete = false;
        v.id = id;
        v.missingFloat = missingFloat;
        v.floatData.assign(records_, missingFloat);
        vars_.push_back(std::move(v));
    } catch (const std::bad_alloc&) {
        return VEK_OUT_OF_MEMORY;
    }
    return GetNumberOfVariables() - 1;
}

int VEK_dataset::RemoveVariable(int var) {
    if (!IsValidVariable(var)) return VEK_OUT_OF_RANGE;
    vars_.erase(vars_.begin() + var);
    return VEK_OKAY;
}

int VEK_dataset::AddEmptyRecord() {
    if (records_ == std::numeric_limits<int>::max()) return VEK_OUT_OF_MEMORY;
    size_t done = 0;
    try {
        for (; done < vars_.size(); ++done) {
            Variable& v = vars_[done];
            if (v.discrete) {
                v.intData.push_back(v.missingInt);
            } else {
                v.floatData.push_back(v.missingFloat);
            }
        }
    } catch (const std::bad_alloc&) {
        // Columns must stay the same length.
        for (size_t i = 0; i < done; ++i) {
            if (vars_[i].discrete) {
                vars_[i].intData.pop_back();
            } else {
                vars_[i].floatData.pop_back();
            }
        }
        return VEK_OUT_OF_MEMORY;
    }
    return records_++;
}

int VEK_dataset::RemoveRecord(int rec) {
    if (!IsValidRecord(rec)) return VEK_OUT_OF_RANGE;
    for (Variable& v : vars_) {
        if (v.discrete) {
            v.intData.erase(v.intData.begin() + rec);
        } else {
            v.floatData.erase(v.floatData.begin() + rec);
        }
    }
    --records_;
    return VEK_OKAY;
}

int VEK_dataset::GetInt(int var, int rec) const {
    const Variable& v = vars_[var];
    if (v.discrete) return v.intData[rec];
    float f = v.floatData[rec];
    if (IsMissingFloat(f, v.missingFloat) || !(std::fabs(f) < 2147483647.0f)) return v.missingInt;
    return static_cast<int>(f);
}

float VEK_dataset::GetFloat(int var, int rec) const {
    const Variable& v = vars_[var];
    if (!v.discrete) return v.floatData[rec];
    int i = v.intData[rec];
    return i == v.missingInt ? v.missingFloat : static_cast<float>(i);
}

bool VEK_dataset::IsMissing(int var, int rec) const {
    const Variable& v = vars_[var];
    if (v.discrete) return v.intData[rec] == v.missingInt;
    return IsMissingFloat(v.floatData[rec], v.missingFloat);
}

int VEK_dataset::SetInt(int var, int rec, int value) {
    if (!IsValidVariable(var) || !IsValidRecord(rec)) return VEK_OUT_OF_RANGE;
    Variable& v = vars_[var];
    if (!v.discrete) return VEK_WRONG_NODE_TYPE;
    if (!v.stateNames.empty() && value != v.missingInt &&
        (value < 0 || value >= static_cast<int>(v.stateNames.size()))) {
        return VEK_OUT_OF_RANGE;
    }
    v.intData[rec] = value;
    return VEK_OKAY;
}

int VEK_dataset::SetFloat(int var, int rec, float value) {
    if (!IsValidVariable(var) || !IsValidRecord(rec)) return VEK_OUT_OF_RANGE;
    Variable& v = vars_[var];
    if (v.discrete) return VEK_WRONG_NODE_TYPE;
    v.floatData[rec] = value;
    return VEK_OKAY;
}

int VEK_dataset::SetMissing(int var, int rec) {
    if (!IsValidVariable(var) || !IsValidRecord(rec)) return VEK_OUT_OF_RANGE;
    Variable& v = vars_[var];
    if (v.discrete) {
        v.intData[rec] = v.missingInt;
    } else {
        v.floatData[rec] = v.missingFloat;
    }
    return VEK_OKAY;
}

bool VEK_dataset::HasMissingData(int var) const {
    if (!IsValidVariable(var)) return false;
    for (int r = 0; r < records_; ++r) {
        if (IsMissing(var, r)) return true;
    }
    return false;
}

int VEK_dataset::SetStateNames(int var, const std::vector<std::string>& names) {
    if (!IsValidVariable(var)) return VEK_OUT_OF_RANGE;
    Variable& v = vars_[var];
    if (!v.discrete) return VEK_WRONG_NODE_TYPE;
    try {
        std::unordered_set<std::string> seen;
        for (const std::string& n : names) {
            if (n.empty() || !seen.insert(n).second) return VEK_OUT_OF_RANGE;
        }
        if (!names.empty()) {
            const int count = static_cast<int>(names.size());
            for (int cell : v.intData) {
                if (cell != v.missingInt && (cell < 0 || cell >= count)) return VEK_OUT_OF_RANGE;
            }
        }
        v.stateNames = names;
    } catch (const std::bad_alloc&) {
        return VEK_OUT_OF_MEMORY;
    }
    return VEK_OKAY;
}

namespace {

// One printf conversion for a double (flags, width, precision, then one of
// aAeEfFgG), with "%%" allowed anywhere: anything else could read arguments
// that are not there.
bool IsValidFloatFormat(const std::string& format) {
    int conversions = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') continue;
        ++i;
        if (i < format.size() && format[i] == '%') continue;
        while (i < format.size() && std::strchr("-+ #0", format[i]) != nullptr && format[i] != '\0') ++i;
        int digits = 0;
        while (i < format.size() && format[i] >= '0' && format[i] <= '9' && ++digits <= 3) ++i;
        if (digits > 3) return false;
        if (i < format.size() && format[i] == '.') {
            ++i;
            digits = 0;
            while (i < format.size() && format[i] >= '0' && format[i] <= '9' && ++digits <= 3) ++i;
            if (digits > 3) return false;
        }
        if (i >= format.size() || format[i] == '\0' || std::strchr("aAeEfFgG", format[i]) == nullptr) return false;
        ++conversions;
    }
    return conversions == 1 && format.find('\0') == std::string::npos;
}

// The field as the reader splits it back: quoted when it holds the
// separator or a double quote, inner quotes doubled.
void AppendField(std::string& out, const std::string& text, char separator) {
    if (text.find(separator) == std::string::npos && text.find('"') == std::string::npos) {
        out += text;
        return;
    }
    out += '"';
    for (char c : text) {
        if (c == '"') out += '"';
        out += c;
    }
    out += '"';
}

void AppendFloat(std::string& out, float value, const std::string& format) {
    char buffer[512];
    if (format.empty()) {
        auto res = std::to_chars(buffer, buffer + sizeof(buffer), value);
        out.append(buffer, res.ptr);
        return;
    }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    int n = std::snprintf(buffer, sizeof(buffer), format.c_str(), static_cast<double>(value));
#pragma GCC diagnostic pop
    if (n > 0) out.append(buffer, std::min<size_t>(static_cast<size_t>(n), sizeof(buffer) - 1));
}

}  // namespace

int VEK_dataset::ReadFile(const char* path, const VEK_datasetParseParams* params, std::string* errorMessage) {
    std::string name = path != nullptr ? path : "";
    FILE* file = path != nullptr ? std::fopen(path, "rt") : nullptr;
    if (file == nullptr) {
        if (errorMessage != nullptr) *errorMessage = "Can't open data file: " + name;
        return VEK_FILE_IO_FAILED;
    }
    Clear();
    const VEK_datasetParseParams defaults;
    VEK_datasetParser parser(params != nullptr ? *params : defaults);
    int res = parser.Parse(file, *this);
    std::fclose(file);
    if (res != VEK_OKAY && errorMessage != nullptr) *errorMessage = parser.GetErrorMessage();
    return res;
}

int VEK_dataset::WriteFile(const char* path, const VEK_datasetWriteParams* params, std::string* errorMessage) const {
    const VEK_datasetWriteParams defaults;
    const VEK_datasetWriteParams& p = params != nullptr ? *params : defaults;
    auto fail = [errorMessage](int code, const std::string& message) {
        if (errorMessage != nullptr) *errorMessage = message;
        return code;
    };
    if (p.separator == '"' || p.separator == '\n' || p.separator == '\r' || p.separator == '\0') {
        return fail(VEK_OUT_OF_RANGE, "Invalid separator character");
    }
    if (!p.floatFormat.empty() && !IsValidFloatFormat(p.floatFormat)) {
        return fail(VEK_OUT_OF_RANGE, "Invalid float format: " + p.floatFormat);
    }
    std::string name = path != nullptr ? path : "";
    FILE* file = path != nullptr ? std::fopen(path, "wt") : nullptr;
    if (file == nullptr) return fail(VEK_FILE_IO_FAILED, "Can't open data file: " + name);

    bool ok = true;
    try {
        std::string out;
        auto flush = [&]() {
            if (!out.empty() && std::fwrite(out.data(), 1, out.size(), file) != out.size()) ok = false;
            out.clear();
        };
        const int columns = GetNumberOfVariables();
        if (p.columnIdsPresent && columns > 0) {
            for (int c = 0; c < columns; ++c) {
                AppendField(out, vars_[c].id, p.separator);
                out += c + 1 < columns ? p.separator : '\n';
            }
        }
        for (int r = 0; r < records_ && ok; ++r) {
            for (int c = 0; c < columns; ++c) {
                const Variable& v = vars_[c];
                if (IsMissing(c, r)) {
                    out += p.missingValueToken;
                } else if (!v.discrete) {
                    AppendFloat(out, v.floatData[r], p.floatFormat);
                } else if (!v.stateNames.empty()) {
                    int s = v.intData[r];
                    // SetInt keeps cells inside the names; a bare number is
                    // the only sensible text for anything else.
                    if (s >= 0 && s < static_cast<int>(v.stateNames.size())) {
                        AppendField(out, v.stateNames[s], p.separator);
                    } else {
                        out += std::to_string(s);
                    }
                } else {
                    char buffer[16];
                    auto res = std::to_chars(buffer, buffer + sizeof(buffer), v.intData[r]);
                    out.append(buffer, res.ptr);
                }
                out += c + 1 < columns ? p.separator : '\n';
            }
            if (out.size() >= (1u << 16)) flush();
        }
        flush();
    } catch (const std::bad_alloc&) {
        std::fclose(file);
        return fail(VEK_OUT_OF_MEMORY, "Out of memory while writing data file: " + name);
    }
    if (std::fclose(file) != 0) ok = false;
    if (!ok) return fail(VEK_FILE_IO_FAILED, "Can't write data file: " + name);
    return VEK_OKAY;
}
