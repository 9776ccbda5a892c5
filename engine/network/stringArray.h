// Ordered list of owned NUL-terminated strings (outcome ids, node ids, names).
// Each string lives in its own block, so a pointer returned by Subscript stays
// valid while other strings are added or removed.
#pragma once

#include <memory>
#include <string>
#include <vector>

class VEK_intArray;

class VEK_stringArray {
public:
    VEK_stringArray() = default;
    VEK_stringArray(const VEK_stringArray& other);
    VEK_stringArray(VEK_stringArray&& other) noexcept = default;
    VEK_stringArray& operator=(const VEK_stringArray& other);
    VEK_stringArray& operator=(VEK_stringArray&& other) noexcept {
        m_items = std::move(other.m_items);
        ItemsReplaced();
        other.ItemsReplaced();
        return *this;
    }

    // The three overridable slots, in this order. A null string is stored as
    // an empty one.
    [[nodiscard]] virtual int SetString(int index, const char* s);
    virtual int Add(const char* s);
    [[nodiscard]] virtual int Insert(int index, const char* s);

    virtual ~VEK_stringArray() = default;

    int GetSize() const { return static_cast<int>(m_items.size()); }
    bool IsValidIndex(int index) const { return index >= 0 && index < GetSize(); }

    // No range check, as for the other arrays; use IsValidIndex first.
    const char* Subscript(int index) const { return m_items[index].get(); }
    const char* operator[](int index) const { return m_items[index].get(); }

    [[nodiscard]] virtual int Delete(int index);
    [[nodiscard]] int DeleteByContent(const char* s);
    // Index of the first equal string, -1 when none (null compares as empty).
    int FindPosition(const char* s) const;
    bool IsInList(const char* s) const { return FindPosition(s) >= 0; }
    void Clear() {
        m_items.clear();
        ItemsReplaced();
    }

    // Element i becomes the old element perm[i]; -2 unless perm is a
    // permutation of the indices.
    [[nodiscard]] int ChangeOrder(const VEK_intArray& perm);

    std::vector<std::string> ToVector() const;
    bool operator==(const VEK_stringArray& other) const;

protected:
    // Told when items were removed or replaced other than through the
    // overridable slots (a derived array may keep an index of them).
    virtual void ItemsReplaced() {}

    using Owned = std::unique_ptr<char[]>;
    static Owned Duplicate(const char* s);

    std::vector<Owned> m_items;
};
