#include "network/idArray.h"

#include <cstring>
#include <unordered_set>

#include "network/identifier.h"
#include "network/status.h"

bool VEK_idArray::Indexed() const {
    if (m_indexValid) return true;
    if (GetSize() < kIndexFrom) return false;
    m_index.clear();
    m_index.reserve(m_items.size());
    for (const Owned& item : m_items) ++m_index[std::string_view(item.get())];
    m_indexValid = true;
    return true;
}

void VEK_idArray::IndexAdd(const char* id) const {
    if (m_indexValid) ++m_index[std::string_view(id)];
}

void VEK_idArray::IndexRemove(const char* id) const {
    if (!m_indexValid) return;
    auto it = m_index.find(std::string_view(id));
    if (it != m_index.end() && --it->second == 0) m_index.erase(it);
}

void VEK_idArray::ItemsReplaced() {
    m_index.clear();
    m_indexValid = false;
}

bool VEK_idArray::ValidId(const char* id, int position) const {
    if (id == nullptr || *id == 0) return m_allowEmpty;
    if (!VEK_isValidIdentifier(id)) return false;
    if (Indexed()) {
        auto it = m_index.find(std::string_view(id));
        if (it == m_index.end()) return true;
        // Present once, at the position being set, is no clash.
        return it->second == 1 && IsValidIndex(position) && std::strcmp(m_items[position].get(), id) == 0;
    }
    const int n = GetSize();
    for (int i = 0; i < n; ++i) {
        if (i != position && std::strcmp(m_items[i].get(), id) == 0) return false;
    }
    return true;
}

int VEK_idArray::SetString(int index, const char* id) {
    if (!IsValidIndex(index) || !ValidId(id, index)) return VEK_OUT_OF_RANGE;
    // The old string goes with the call: its view leaves the index first.
    IndexRemove(m_items[index].get());
    int res = VEK_stringArray::SetString(index, id);
    IndexAdd(m_items[index].get());
    return res;
}

int VEK_idArray::Add(const char* id) {
    if (!ValidId(id, -1)) return VEK_OUT_OF_RANGE;
    int res = VEK_stringArray::Add(id);
    IndexAdd(m_items.back().get());
    return res;
}

int VEK_idArray::Insert(int index, const char* id) {
    if (index < 0 || index > GetSize() || !ValidId(id, -1)) return VEK_OUT_OF_RANGE;
    int res = VEK_stringArray::Insert(index, id);
    IndexAdd(m_items[index].get());
    return res;
}

int VEK_idArray::Delete(int index) {
    if (!IsValidIndex(index)) return VEK_OUT_OF_RANGE;
    IndexRemove(m_items[index].get());
    m_items.erase(m_items.begin() + index);
    return VEK_OKAY;
}

void VEK_idArray::SetAllEmptyIds(int n) {
    m_allowEmpty = true;
    ItemsReplaced();
    if (n >= 0) {
        Clear();
        for (int i = 0; i < n; ++i) VEK_stringArray::Add("");
    } else {
        for (int i = 0; i < GetSize(); ++i) (void)VEK_stringArray::SetString(i, "");  // i is in range
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
    int res = VEK_stringArray::Add(id.c_str());
    IndexAdd(m_items.back().get());
    return res;
}

int VEK_idArray::CreateAndInsertValidId(const char* base, int startNumber, int position) {
    if (position < 0 || position > GetSize()) return VEK_OUT_OF_RANGE;
    std::string id;
    CreateValidId(base, startNumber, id);
    int res = VEK_stringArray::Insert(position, id.c_str());
    IndexAdd(m_items[position].get());
    return res;
}

int VEK_idArray::EnsureValidIds() {
    ItemsReplaced();
    const int n = GetSize();
    // The ids before i, as they finally are: a set keeps the duplicate test
    // linear for large arrays.
    std::unordered_set<std::string_view> before;
    before.reserve(m_items.size());
    for (int i = 0; i < n; ++i) {
        const char* s = m_items[i].get();
        if (*s == 0) {
            if (m_allowEmpty) continue;
            std::string id;
            CreateValidId(nullptr, 1, id);
            m_items[i] = Duplicate(id.c_str());
            ItemsReplaced();
            before.insert(m_items[i].get());
            continue;
        }
        const bool legal = VEK_isValidIdentifier(s);
        const bool duplicate = before.count(s) > 0;
        if (legal && !duplicate) {
            before.insert(s);
            continue;
        }
        // A repaired id keeps its text when it is free; a duplicate gets a number.
        std::string id;
        CreateValidId(s, legal ? 1 : -1, id);
        m_items[i] = Duplicate(id.c_str());
        ItemsReplaced();
        before.insert(m_items[i].get());
    }
    return VEK_OKAY;
}
