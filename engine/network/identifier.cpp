#include "network/identifier.h"

#include <cctype>
#include <cstring>

bool VEK_isCharValidForIdentifier(char c, bool first) {
    unsigned char u = static_cast<unsigned char>(c);
    if (u >= 128) return true;
    if (std::isalpha(u)) return true;
    if (first) return false;
    return (u >= '0' && u <= '9') || u == '_';
}

bool VEK_isValidIdentifier(const char* id) {
    if (id == nullptr || *id == 0) return false;
    if (!VEK_isCharValidForIdentifier(id[0], true)) return false;
    for (const char* p = id + 1; *p; ++p) {
        if (!VEK_isCharValidForIdentifier(*p, false)) return false;
    }
    return true;
}

bool VEK_makeValidId(char* text) {
    if (text == nullptr || *text == 0) return false;
    if (!VEK_isCharValidForIdentifier(text[0], true)) text[0] = 'x';
    for (char* p = text + 1; *p; ++p) {
        if (!VEK_isCharValidForIdentifier(*p, false)) *p = '_';
    }
    return true;
}

bool VEK_makeValidId(std::string& text) {
    if (text.empty()) return false;
    return VEK_makeValidId(text.data());
}

void VEK_appendInt(std::string& out, long long value) { out += std::to_string(value); }

FILE* VEK_fopen(const char* path, const char* mode) {
    if (path == nullptr || mode == nullptr) return nullptr;
    return std::fopen(path, mode);
}
