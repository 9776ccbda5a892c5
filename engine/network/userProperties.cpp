#include "network/userProperties.h"

#include <cstring>

#include "network/status.h"

int VEK_userProperties::FindPropertyIndex(const char* name) const {
    if (!name) return VEK_OUT_OF_RANGE;
    for (size_t i = 0; i < items_.size(); ++i) {
        if (items_[i].first == name) return static_cast<int>(i);
    }
    return VEK_OUT_OF_RANGE;
}

const char* VEK_userProperties::FindProperty(const char* name) const {
    int i = FindPropertyIndex(name);
    return i >= 0 ? items_[i].second.c_str() : nullptr;
}

int VEK_userProperties::AddProperty(const char* name, const char* value) {
    if (!name) return VEK_OUT_OF_RANGE;
    int i = FindPropertyIndex(name);
    if (i >= 0) items_.erase(items_.begin() + i);
    items_.emplace_back(name, value ? value : "");
    return VEK_OKAY;
}

int VEK_userProperties::DeleteProperty(int i) {
    if (!Valid(i)) return VEK_OUT_OF_RANGE;
    items_.erase(items_.begin() + i);
    return VEK_OKAY;
}

int VEK_documentation::AddItem(const char* title, const char* path) {
    items_.emplace_back(title ? title : "", path ? path : "");
    return VEK_OKAY;
}

int VEK_documentation::DeleteItem(int i) {
    if (!Valid(i)) return VEK_OUT_OF_RANGE;
    items_.erase(items_.begin() + i);
    return VEK_OKAY;
}
