#include "formats/descLexer.h"

#include <charconv>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <locale.h>

#include "network/decimalText.h"
#include "network/identifier.h"

std::string VEK_lexToken::Describe() const {
    if (kind == End) return "end of file";
    std::string out;
    char quote = kind == String ? '"' : '\'';
    out += quote;
    out.append(kind == String ? std::string_view(str).substr(0, 64) : raw.substr(0, 64));
    out += quote;
    return out;
}

VEK_descLexer::VEK_descLexer(const char* symbols, const char* lineComments) {
    for (int c = 0; c < 256; ++c) class_[c] = c < 0x20 || c == 0x7F ? kBad : kWord;
    class_[static_cast<unsigned char>(' ')] = class_[static_cast<unsigned char>('\t')] = kSpace;
    class_[static_cast<unsigned char>('\r')] = class_[static_cast<unsigned char>('\f')] = kSpace;
    class_[static_cast<unsigned char>('\v')] = kSpace;
    class_[static_cast<unsigned char>('\n')] = kNewline;
    class_[static_cast<unsigned char>('"')] = class_[static_cast<unsigned char>('\'')] = kQuote;
    class_[static_cast<unsigned char>('/')] = kSlash;
    for (const char* p = symbols; p && *p; ++p) class_[static_cast<unsigned char>(*p)] = kSymbol;
    for (const char* p = lineComments; p && *p; ++p) class_[static_cast<unsigned char>(*p)] = kComment;
    for (int c = 0; c < 256; ++c) inWord_[c] = class_[c] == kWord || class_[c] == kSlash || class_[c] == kComment;
}

void VEK_descLexer::SetText(std::string text) {
    text_ = std::move(text);
    pos_ = 0;
    if (text_.compare(0, 3, "\xEF\xBB\xBF") == 0) pos_ = 3;
    line_ = 1;
    lineStart_ = pos_;
    lineHasMultibyte_ = false;
    error_.clear();
}

int VEK_descLexer::ColumnOf(size_t offset) const {
    if (!lineHasMultibyte_) return static_cast<int>(offset - lineStart_) + 1;
    int column = 1;
    for (size_t i = lineStart_; i < offset; ++i) {
        if ((static_cast<unsigned char>(text_[i]) & 0xC0) != 0x80) ++column;
    }
    return column;
}

int VEK_descLexer::Fail(const char* message, size_t offset) {
    error_ = message;
    errorLine_ = line_;
    errorColumn_ = ColumnOf(offset);
    return -1;
}

// False at an unterminated block comment (the error is set).
bool VEK_descLexer::SkipSpaceAndComments() {
    const char* text = text_.data();
    const size_t n = text_.size();
    size_t p = pos_;
    while (p < n) {
        unsigned char k = class_[static_cast<unsigned char>(text[p])];
        if (k == kSpace) {
            ++p;
        } else if (k == kNewline) {
            NewLine(++p);
        } else if (k == kComment || (k == kSlash && p + 1 < n && text[p + 1] == '/')) {
            while (p < n && text[p] != '\n') ++p;
        } else if (k == kSlash && p + 1 < n && text[p + 1] == '*') {
            int line = line_;
            int column = ColumnOf(p);
            p += 2;
            while (p < n && !(text[p] == '*' && p + 1 < n && text[p + 1] == '/')) {
                if (text[p] == '\n') {
                    NewLine(p + 1);
                } else if (static_cast<unsigned char>(text[p]) >= 0x80) {
                    lineHasMultibyte_ = true;
                }
                ++p;
            }
            if (p >= n) {
                pos_ = p;
                error_ = "Unterminated comment";
                errorLine_ = line;
                errorColumn_ = column;
                return false;
            }
            p += 2;
        } else {
            break;
        }
    }
    pos_ = p;
    return true;
}

int VEK_descLexer::ScanString(VEK_lexToken& token, char quote) {
    token.kind = VEK_lexToken::String;
    token.str.clear();
    const char* text = text_.data();
    const size_t n = text_.size();
    size_t start = pos_;
    size_t p = pos_ + 1;  // after the opening quote
    while (true) {
        if (p >= n) {
            pos_ = p;
            error_ = "Unterminated string";
            errorLine_ = token.line;
            errorColumn_ = token.column;
            return -1;
        }
        char c = text[p];
        if (c == quote) {
            ++p;
            break;
        }
        if (c == '\0') {
            pos_ = p;
            return Fail("Unexpected character in string", p);
        }
        if (c == '\n') {
            NewLine(p + 1);
        } else if (static_cast<unsigned char>(c) >= 0x80) {
            lineHasMultibyte_ = true;
        } else if (c == '\\' && p + 1 < n) {
            char out = 0;
            switch (text[p + 1]) {
                case 'n': out = '\n'; break;
                case 't': out = '\t'; break;
                case 'r': out = '\r'; break;
                case '\\': out = '\\'; break;
                case '"': out = '"'; break;
                case '\'': out = '\''; break;
                default: break;
            }
            // Any other backslash stands for itself (Windows paths in labels).
            if (out) {
                token.str += out;
                p += 2;
                continue;
            }
        }
        token.str += c;
        ++p;
    }
    pos_ = p;
    token.raw = std::string_view(text_).substr(start, p - start);
    return 0;
}

int VEK_descLexer::Next(VEK_lexToken& token) {
    const size_t n = text_.size();
    if (pos_ < n) {
        const unsigned char k0 = class_[static_cast<unsigned char>(text_[pos_])];
        if ((k0 == kSpace || k0 == kNewline || k0 == kComment || k0 == kSlash) && !SkipSpaceAndComments()) {
            token.kind = VEK_lexToken::End;
            return -1;
        }
    }
    token.line = line_;
    if (pos_ >= n) {
        token.column = ColumnOf(pos_);
        token.kind = VEK_lexToken::End;
        token.raw = std::string_view();
        return 0;
    }
    token.column = ColumnOf(pos_);
    const unsigned char c = static_cast<unsigned char>(text_[pos_]);
    const unsigned char k = class_[c];
    if (k == kQuote) return ScanString(token, static_cast<char>(c));
    if (k == kSymbol) {
        token.kind = VEK_lexToken::Symbol;
        token.raw = std::string_view(text_).substr(pos_++, 1);
        return 0;
    }
    if (k == kBad) return Fail("Unexpected character", pos_);
    // A word: everything up to space, a symbol, a quote or a control byte.
    const char* text = text_.data();
    size_t start = pos_;
    size_t p = pos_;
    unsigned char multibyte = 0;
    while (p < n) {
        unsigned char b = static_cast<unsigned char>(text[p]);
        if (!inWord_[b]) break;
        multibyte |= b;
        ++p;
    }
    if (multibyte & 0x80) lineHasMultibyte_ = true;
    pos_ = p;
    token.kind = VEK_lexToken::Word;
    token.raw = std::string_view(text_).substr(start, p - start);
    return 0;
}

namespace {

inline bool IsDigit(char c) { return static_cast<unsigned char>(c - '0') < 10; }

}  // namespace

int VEK_descLexer::ReadNumbers(std::vector<double>& out) {
    const char* text = text_.data();
    const char* end = text + text_.size();
    const char* p = text + pos_;
    const bool commas = class_[static_cast<unsigned char>(',')] == kSymbol;
    while (p < end) {
        const char c = *p;
        if (c == ' ' || (c == ',' && commas) || c == '\t' || c == '\r') {
            ++p;
            continue;
        }
        if (c == '\n') {
            NewLine(static_cast<size_t>(++p - text));
            continue;
        }
        if (IsDigit(c) || c == '-' || c == '.') {
            double value;
            const char* q = VEK_scanDecimal(p, end, value);
            // A number glued to more word characters (5e-1f, 0x10) is left to Next.
            if (!q || (q < end && inWord_[static_cast<unsigned char>(*q)] &&
                       class_[static_cast<unsigned char>(*q)] != kComment)) {
                break;
            }
            out.push_back(value);
            p = q;
            continue;
        }
        // Comments and the like, then go on.
        pos_ = static_cast<size_t>(p - text);
        size_t before = pos_;
        if (!SkipSpaceAndComments()) return -1;
        if (pos_ == before) return 0;
        p = text + pos_;
    }
    pos_ = static_cast<size_t>(p - text);
    return 0;
}

namespace {

locale_t CLocale() {
    static locale_t c = newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(0));
    return c;
}

bool ParseWithStrtod(std::string_view text, double& value) {
    char small[128];
    std::string big;
    const char* s;
    if (text.size() < sizeof small) {
        std::memcpy(small, text.data(), text.size());
        small[text.size()] = 0;
        s = small;
    } else {
        big.assign(text);
        s = big.c_str();
    }
    char* end = nullptr;
    locale_t c = CLocale();
    value = c ? strtod_l(s, &end, c) : std::strtod(s, &end);
    return end == s + text.size() && end != s;
}

bool ParseBinary(std::string_view digits, bool negative, double& value) {
    if (digits.empty()) return false;
    double v = 0.0;
    for (char c : digits) {
        if (c != '0' && c != '1') return false;
        v = v * 2.0 + (c - '0');
    }
    value = negative ? -v : v;
    return true;
}

}  // namespace

bool VEK_parseNumber(std::string_view text, double& value) {
    if (text.empty()) return false;
    const char* first = text.data();
    const char* last = first + text.size();
    if (VEK_scanDecimal(first, last, value) == last) return true;
    auto r = std::from_chars(first, last, value);
    if (r.ec == std::errc() && r.ptr == last) return true;
    // The rarer forms: sign, hexadecimal, binary, suffixes, out of range.
    std::string_view t = text;
    bool negative = false;
    if (t[0] == '+' || t[0] == '-') {
        negative = t[0] == '-';
        t.remove_prefix(1);
    }
    if (t.empty()) return false;
    bool hex = t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X');
    if (t.size() > 2 && t[0] == '0' && (t[1] == 'b' || t[1] == 'B')) {
        std::string_view d = t.substr(2);
        while (!d.empty() && (d.back() == 'u' || d.back() == 'U' || d.back() == 'l' || d.back() == 'L')) d.remove_suffix(1);
        return ParseBinary(d, negative, value);
    }
    // Suffixes: u/l on integers, f/l on floats (f is a digit in hex).
    while (t.size() > 1) {
        char b = t.back();
        if (b == 'u' || b == 'U' || b == 'l' || b == 'L' || (!hex && (b == 'f' || b == 'F'))) {
            t.remove_suffix(1);
        } else {
            break;
        }
    }
    if (t.empty()) return false;
    if (!hex) {
        r = std::from_chars(t.data(), t.data() + t.size(), value);
        if (r.ec == std::errc() && r.ptr == t.data() + t.size()) {
            if (negative) value = -value;
            return true;
        }
        // Out of range and the like: strtod gives inf or 0 as C does.
        if (r.ec != std::errc::result_out_of_range) return false;
    }
    if (!ParseWithStrtod(t, value)) return false;
    if (negative) value = -value;
    return true;
}
