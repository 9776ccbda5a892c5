// String array whose entries are valid, unique identifiers (or, when allowed,
// empty strings).
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

#include "network/stringArray.h"

class VEK_idArray : public VEK_stringArray {
public:
    VEK_idArray() = default;
    VEK_idArray(const VEK_idArray& other) : VEK_stringArray(other), m_allowEmpty(other.m_allowEmpty) {}
    VEK_idArray(VEK_idArray&& other) noexcept
        : VEK_stringArray(std::move(other)), m_allowEmpty(other.m_allowEmpty) {
        other.ItemsReplaced();
    }
    VEK_idArray& operator=(const VEK_idArray& other) {
        VEK_stringArray::operator=(other);
        m_allowEmpty = other.m_allowEmpty;
        return *this;
    }
    VEK_idArray& operator=(VEK_idArray&& other) noexcept {
        VEK_stringArray::operator=(std::move(other));
        m_allowEmpty = other.m_allowEmpty;
        return *this;
    }

    // Refused (-2, nothing changed) when the id is not valid at that place.
    [[nodiscard]] int SetString(int index, const char* id) override;
    [[nodiscard]] int Add(const char* id) override;
    [[nodiscard]] int Insert(int index, const char* id) override;
    [[nodiscard]] int Delete(int index) override;

    bool GetEmptyIdsAllowed() const { return m_allowEmpty; }
    void SetEmptyIdsAllowed(bool allow) { m_allowEmpty = allow; }

    // A null or empty id is valid only when empty ids are allowed; any other
    // id must be a legal identifier not present elsewhere than at position
    // (-1: an id that is not in the array).
    bool ValidId(const char* id, int position) const;

    // Allows empty ids; n >= 0 makes the array n empty strings, n < 0 empties
    // every present string.
    void SetAllEmptyIds(int n);

    // A valid id not yet in the array, made from base (or "x").
    int CreateValidId(const char* base, int startNumber, std::string& out) const;
    int CreateAndAddValidId(const char* base, int startNumber);
    [[nodiscard]] int CreateAndInsertValidId(const char* base, int startNumber, int position);

    // Replaces every invalid or duplicate entry by a created id.
    int EnsureValidIds();

protected:
    void ItemsReplaced() override;

private:
    // Occurrences of each id, so that the uniqueness test of a large array
    // (a node with many outcomes) does not scan it. Built on first need
    // above a small size; the views point into the owned strings, which
    // stay where they are while the array changes.
    bool Indexed() const;
    void IndexAdd(const char* id) const;
    void IndexRemove(const char* id) const;
    static constexpr int kIndexFrom = 32;
    mutable std::unordered_map<std::string_view, int> m_index;
    mutable bool m_indexValid = false;
    bool m_allowEmpty = false;
};
