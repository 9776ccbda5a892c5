#include "network/textEncoding.h"

bool VEK_isValidUtf8(std::string_view text) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    const auto* end = p + text.size();
    while (p < end) {
        unsigned c = *p;
        if (c < 0x80) {
            ++p;
            continue;
        }
        int extra;
        unsigned min;
        if (c >= 0xC2 && c <= 0xDF) {
            extra = 1, min = 0x80;
        } else if (c >= 0xE0 && c <= 0xEF) {
            extra = 2, min = 0x800;
        } else if (c >= 0xF0 && c <= 0xF4) {
            extra = 3, min = 0x10000;
        } else {
            return false;
        }
        if (end - p <= extra) return false;
        unsigned cp = c & (0x3F >> extra);
        for (int i = 1; i <= extra; ++i) {
            if ((p[i] & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (p[i] & 0x3F);
        }
        // Overlong forms, surrogates and values beyond Unicode are not UTF-8.
        if (cp < min || (cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) return false;
        p += extra + 1;
    }
    return true;
}

std::string VEK_latin1ToUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size() + text.size() / 8);
    for (char ch : text) {
        auto c = static_cast<unsigned char>(ch);
        if (c < 0x80) {
            out += ch;
        } else {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

void VEK_ensureUtf8(std::string& text) {
    if (!VEK_isValidUtf8(text)) text = VEK_latin1ToUtf8(text);
}

size_t VEK_utf8Prefix(std::string_view text, size_t maxBytes) {
    if (text.size() <= maxBytes) return text.size();
    size_t n = maxBytes;
    // Back off continuation bytes, then the lead byte they belong to.
    while (n > 0 && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80) --n;
    return n;
}
