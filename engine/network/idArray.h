// String array whose entries are valid, unique identifiers (or, when allowed,
// empty strings).
#pragma once

#include <string>

#include "network/stringArray.h"

class VEK_idArray : public VEK_stringArray {
public:
    VEK_idArray() = default;

    // Refused (-2, nothing changed) when the id is not valid at that place.
    int SetString(int index, const char* id) override;
    int Add(const char* id) override;
    int Insert(int index, const char* id) override;

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
    int CreateAndInsertValidId(const char* base, int startNumber, int position);

    // Replaces every invalid or duplicate entry by a created id.
    int EnsureValidIds();

private:
    bool m_allowEmpty = false;
};
