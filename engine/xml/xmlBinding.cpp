#include "xml/xmlBinding.h"

#include <cstring>

bool XmlNameSet::Insert(const char* name) {
    if (Contains(name)) return false;
    names_.emplace_back(name);
    return true;
}

bool XmlNameSet::Contains(const char* name) const {
    for (const std::string& n : names_) {
        if (n == name) return true;
    }
    return false;
}

XmlBinding::XmlBinding(IXmlHandler* handler, const char* name, int mode)
    : handler_(handler), name_(name ? name : ""), mode_(mode) {}

void XmlBinding::AddChild(const IXmlBinding* child, int flags) {
    if (child) children_.emplace_back(child, flags);
}

void XmlBinding::AddAttribute(const char* name, bool required) {
    if (name) attributes_.emplace_back(name, required);
}

const IXmlBinding* XmlBinding::FindChild(const char* name, int* flags) const {
    if (!name) return nullptr;
    for (const auto& [child, childFlags] : children_) {
        if (std::strcmp(child->GetName(), name) == 0) {
            if (flags) *flags = childFlags;
            return child;
        }
    }
    return nullptr;
}

bool XmlBinding::FindAttribute(const char* name) const {
    if (!name) return false;
    for (const auto& attr : attributes_) {
        if (attr.first == name) return true;
    }
    return false;
}

const char* XmlBinding::FindMissingAttribute(const char* const* attrs) const {
    for (const auto& [attrName, required] : attributes_) {
        if (!required) continue;
        bool present = false;
        for (const char* const* a = attrs; a && a[0]; a += 2) {
            if (attrName == a[0]) {
                present = true;
                break;
            }
        }
        if (!present) return attrName.c_str();
    }
    return nullptr;
}

const char* XmlBinding::FindMissingChild(const XmlNameSet& seenNames) const {
    for (const auto& [child, flags] : children_) {
        if ((flags & XmlChildRequired) && !seenNames.Contains(child->GetName())) {
            return child->GetName();
        }
    }
    return nullptr;
}
