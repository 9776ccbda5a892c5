#include "network/stringArray.h"

#include <cstring>

#include "network/intArray.h"
#include "network/status.h"

VEK_stringArray::Owned VEK_stringArray::Duplicate(const char* s) {
    if (s == nullptr) s = "";
    const size_t n = std::strlen(s) + 1;
    Owned copy(new char[n]);
    std::memcpy(copy.get(), s, n);
    return copy;
}

VEK_stringArray::VEK_stringArray(const VEK_stringArray& other) {
    m_items.reserve(other.m_items.size());
    for (const Owned& s : other.m_items) m_items.push_back(Duplicate(s.get()));
}

VEK_stringArray& VEK_stringArray::operator=(const VEK_stringArray& other) {
    if (this != &other) {
        std::vector<Owned> copy;
        copy.reserve(other.m_items.size());
        for (const Owned& s : other.m_items) copy.push_back(Duplicate(s.get()));
        m_items.swap(copy);
        ItemsReplaced();
    }
    return *this;
}

int VEK_stringArray::SetString(int index, const char* s) {
    if (!IsValidIndex(index)) return VEK_OUT_OF_RANGE;
    // s may point into the string being replaced: copy before releasing it.
    m_items[index] = Duplicate(s);
    return VEK_OKAY;
}

int VEK_stringArray::Add(const char* s) {
    m_items.push_back(Duplicate(s));
    return VEK_OKAY;
}

int VEK_stringArray::Insert(int index, const char* s) {
    if (index < 0 || index > GetSize()) return VEK_OUT_OF_RANGE;
    m_items.insert(m_items.begin() + index, Duplicate(s));
    return VEK_OKAY;
}

int VEK_stringArray::Delete(int index) {
    if (!IsValidIndex(index)) return VEK_OUT_OF_RANGE;
    m_items.erase(m_items.begin() + index);
    ItemsReplaced();
    return VEK_OKAY;
}

int VEK_stringArray::DeleteByContent(const char* s) {
    const int pos = FindPosition(s);
    return pos < 0 ? VEK_OUT_OF_RANGE : Delete(pos);
}

int VEK_stringArray::FindPosition(const char* s) const {
    if (s == nullptr) s = "";
    const int n = GetSize();
    for (int i = 0; i < n; ++i) {
        if (std::strcmp(m_items[i].get(), s) == 0) return i;
    }
    return -1;
}

int VEK_stringArray::ChangeOrder(const VEK_intArray& perm) {
    if (perm.GetSize() != GetSize() || !perm.IsPermutation()) return VEK_OUT_OF_RANGE;
    std::vector<Owned> reordered(m_items.size());
    for (int i = 0; i < GetSize(); ++i) reordered[i] = std::move(m_items[perm[i]]);
    m_items.swap(reordered);
    return VEK_OKAY;
}

std::vector<std::string> VEK_stringArray::ToVector() const {
    std::vector<std::string> out;
    out.reserve(m_items.size());
    for (const Owned& s : m_items) out.emplace_back(s.get());
    return out;
}

bool VEK_stringArray::operator==(const VEK_stringArray& other) const {
    if (GetSize() != other.GetSize()) return false;
    for (int i = 0; i < GetSize(); ++i) {
        if (std::strcmp(m_items[i].get(), other.m_items[i].get()) != 0) return false;
    }
    return true;
}
