// Ordered (name, value) pairs of a network or node, and documentation items.
#pragma once

#include <string>
#include <utility>
#include <vector>

class VEK_userProperties {
public:
    int GetNumberOfProperties() const { return static_cast<int>(items_.size()); }
    const char* GetPropertyName(int i) const { return Valid(i) ? items_[i].first.c_str() : nullptr; }
    const char* GetPropertyValue(int i) const { return Valid(i) ? items_[i].second.c_str() : nullptr; }
    // Value of the named property, or null.
    const char* FindProperty(const char* name) const;
    int FindPropertyIndex(const char* name) const;
    // Re-adding a name moves it to the end with the new value.
    [[nodiscard]] int AddProperty(const char* name, const char* value);
    [[nodiscard]] int DeleteProperty(int i);
    void Clear() { items_.clear(); }
    const std::vector<std::pair<std::string, std::string>>& Items() const { return items_; }
    bool operator==(const VEK_userProperties& o) const { return items_ == o.items_; }

private:
    bool Valid(int i) const { return i >= 0 && i < GetNumberOfProperties(); }
    std::vector<std::pair<std::string, std::string>> items_;
};

// Documentation: ordered (title, path) pairs.
class VEK_documentation {
public:
    int GetNumberOfItems() const { return static_cast<int>(items_.size()); }
    const char* GetTitle(int i) const { return Valid(i) ? items_[i].first.c_str() : nullptr; }
    const char* GetPath(int i) const { return Valid(i) ? items_[i].second.c_str() : nullptr; }
    int AddItem(const char* title, const char* path);
    [[nodiscard]] int DeleteItem(int i);
    void Clear() { items_.clear(); }
    const std::vector<std::pair<std::string, std::string>>& Items() const { return items_; }
    bool operator==(const VEK_documentation& o) const { return items_ == o.items_; }

private:
    bool Valid(int i) const { return i >= 0 && i < GetNumberOfItems(); }
    std::vector<std::pair<std::string, std::string>> items_;
};
