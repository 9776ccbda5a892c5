#include "network/idArray.h"

#include <cstring>

#include "network/identifier.h"
#include "network/status.h"

bool VEK_idArray::ValidId(const char* id, int position) const {
    if (id == nullptr || *id == 0) return m_allowEmpty;
    if (!VEK_isValidIdentifier(id)) return false;
    const int n = GetSize();
    for (int i = 0; i < n; ++i) {
        if (i != position && std::strcmp(m_items[i].get(), id) == 0) return false;
    }
    return true;
}

int VEK_idArray::SetString(int index, const char* id) {
    if (!IsValidIndex(index) || !ValidId(id, index)) return VEK_OUT_OF_RANGE;
    return VEK_stringArray::SetString(index, id);
}

int VEK_idArray::Add(const char* id) {
    if (!ValidId(id, -1)) return VEK_OUT_OF_RANGE;
    return VEK_stringArray::Add(id);
}

int VEK_idArray::Insert(int index, const char* id) {
    if (index < 0 || index > GetSize() || !ValidId(id, -1)) return VEK_OUT_OF_RANGE;
    return VEK_stringArray::Insert(index, id);
}

void VEK_idArray::SetAllEmptyIds(int n) {
    m_allowEmpty = true;
    if (n >= 0) {
        Clear();
        for (int i = 0; i < n; ++i) VEK_stringArray::Add("");
    } else {
        for (int i = 0; i < GetSize(); ++i) VEK_stringArray::SetString(i, "");
    }
}

int VEK_idArray::CreateValidId(const char* base, int startNumber, std::string& out) const {
    std::string stem = (base == nullptr || *base == 0) ? std::string("x") : std::string(base);
    VEK_makeValidId(stem);
    if (startNumber < 0 && ValidId(stem.c_str(), -1)) {
        out = stem;
        return VEK_OKAY;
    }
    // A negative start gives invalid candidates ("x-1") until it reaches 0.
    for (long long k = startNumber;; ++k) {
        std::string candidate = stem;
        VEK_appendInt(candidate, k);
        if (ValidId(candidate.c_str(), -1)) {
            out = candidate;
            return VEK_OKAY;
        }
    }
}

int VEK_idArray::CreateAndAddValidId(const char* base, int startNumber) {
    std::string id;
    CreateValidId(base, startNumber, id);
    return VEK_stringArray::Add(id.c_str());
}

int VEK_idArray::CreateAndInsertValidId(const char* base, int startNumber, int position) {
    if (position < 0 || position > GetSize()) return VEK_OUT_OF_RANGE;
    std::string id;
    CreateValidId(base, startNumber, id);
    return VEK_stringArray::Insert(position, id.c_str());
}

int VEK_idArray::EnsureValidIds() {
    const int n = GetSize();
    for (int i = 0; i < n; ++i) {
        const char* s = m_items[i].get();
        if (*s == 0) {
            if (m_allowEmpty) continue;
            std::string id;
            CreateValidId(nullptr, 1, id);
            m_items[i] = Duplicate(id.c_str());
            continue;
        }
        const bool legal = VEK_isValidIdentifier(s);
        bool duplicate = false;
        for (int j = 0; j < i && !duplicate; ++j) duplicate = std::strcmp(m_items[j].get(), s) == 0;
        if (legal && !duplicate) continue;
        // A repaired id keeps its text when it is free; a duplicate gets a number.
        std::string id;
        CreateValidId(s, legal ? 1 : -1, id);
        m_items[i] = Duplicate(id.c_str());
    }
    return VEK_OKAY;
}
