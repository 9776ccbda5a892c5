#include "formats/fileFormat.h"

#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

#include "formats/formatRegistry.h"
#include "dynamic/dynamicNet.h"
#include "network/identifier.h"
#include "network/network.h"
#include "network/node.h"
#include "network/nodeDef.h"
#include "network/stringArray.h"
#include "network/textEncoding.h"

namespace {

inline bool IsSpace(unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
inline bool IsDigit(unsigned char c) { return c >= '0' && c <= '9'; }
inline bool IsAlpha(unsigned char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
inline bool IsHexDigit(unsigned char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
inline int HexValue(unsigned char c) {
    if (IsDigit(c)) return c - '0';
    return (c | 0x20) - 'a' + 10;
}

bool EqualsNoCase(const std::string& a, const char* b) {
    size_t n = std::strlen(b);
    if (a.size() != n) return false;
    for (size_t i = 0; i < n; ++i) {
        if ((a[i] | 0x20) != (b[i] | 0x20)) return false;
    }
    return true;
}

void AppendUtf8(std::string& out, unsigned long cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x110000) {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += '?';
    }
}

// Digits of one base into an unsigned value; false on overflow.
bool Accumulate(const char* first, const char* last, int base, unsigned long long& value) {
    value = 0;
    for (const char* p = first; p < last; ++p) {
        int d = HexValue(static_cast<unsigned char>(*p));
        if (value > (std::numeric_limits<unsigned long long>::max() - d) / base) return false;
        value = value * base + d;
    }
    return true;
}

}  // namespace

// ============================================================== VEK_token

bool VEK_token::Is(const char* s) const {
    return s && (kind == VEK_tokenKind::Word || kind == VEK_tokenKind::Symbol) && text == s;
}

std::string VEK_token::Describe() const {
    if (kind == VEK_tokenKind::End) return "end of file";
    if (kind == VEK_tokenKind::String) return "\"" + text + "\"";
    return "'" + text + "'";
}

// ============================================================== VEK_tokenizer

void VEK_tokenizer::SetText(std::string_view text) {
    if (text.size() >= 3 && std::memcmp(text.data(), "\xEF\xBB\xBF", 3) == 0) text.remove_prefix(3);
    text_.assign(text.data(), text.size());
    pos_ = 0;
    line_ = 1;
    column_ = 1;
    peeked_ = false;
    error_.clear();
}

void VEK_tokenizer::GetPosition(int& line, int& column) const {
    line = line_;
    column = column_;
}

void VEK_tokenizer::Advance(size_t count) {
    for (size_t i = 0; i < count && pos_ < text_.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(text_[pos_++]);
        if (c == '\n') {
            ++line_;
            column_ = 1;
        } else if (c == '\r') {
            // CRLF is one line end, counted at the LF; a lone CR is one too.
            if (pos_ >= text_.size() || text_[pos_] != '\n') {
                ++line_;
                column_ = 1;
            }
        } else if ((c & 0xC0) != 0x80) {
            ++column_;  // UTF-8 continuation bytes belong to the previous character
        }
    }
}

bool VEK_tokenizer::StartsWith(const char* prefix) const {
    size_t n = std::strlen(prefix);
    return n > 0 && text_.compare(pos_, n, prefix) == 0;
}

bool VEK_tokenizer::IsWordChar(unsigned char c) const {
    if (IsAlpha(c) || IsDigit(c) || c == '_' || c >= 0x80) return true;
    return c != 0 && syntax_.extraWordChars.find(static_cast<char>(c)) != std::string::npos;
}

int VEK_tokenizer::Fail(const char* message, int line, int column) {
    error_ = message;
    errorLine_ = line;
    errorColumn_ = column;
    return VEK_LEXICAL_ERROR;
}

bool VEK_tokenizer::SkipSpaceAndComments() {
    for (;;) {
        if (pos_ >= text_.size()) return true;
        unsigned char c = static_cast<unsigned char>(text_[pos_]);
        if (IsSpace(c)) {
            Advance(1);
            continue;
        }
        bool skipped = false;
        for (const std::string& prefix : syntax_.lineComments) {
            if (StartsWith(prefix.c_str())) {
                while (pos_ < text_.size() && text_[pos_] != '\n' && text_[pos_] != '\r') Advance(1);
                skipped = true;
                break;
            }
        }
        if (skipped) continue;
        for (const auto& [open, close] : syntax_.blockComments) {
            if (!StartsWith(open.c_str())) continue;
            int line = line_;
            int column = column_;
            Advance(open.size());
            int depth = 1;
            while (depth > 0) {
                if (pos_ >= text_.size()) {
                    Fail("Unterminated comment", line, column);
                    return false;
                }
                if (StartsWith(close.c_str())) {
                    Advance(close.size());
                    --depth;
                } else if (syntax_.nestedBlockComments && StartsWith(open.c_str())) {
                    Advance(open.size());
                    ++depth;
                } else {
                    Advance(1);
                }
            }
            skipped = true;
            break;
        }
        if (!skipped) return true;
    }
}

// A C number literal at pos_; false (nothing consumed) when the characters
// there do not form one that ends at a word boundary.
bool VEK_tokenizer::ScanNumber(VEK_token& token) {
    const char* begin = text_.data() + pos_;
    const char* end = text_.data() + text_.size();
    const char* p = begin;
    bool negative = false;
    if (p < end && (*p == '-' || *p == '+')) negative = *p++ == '-';
    const char* digits = p;
    bool isFloat = false;
    int base = 10;
    const char* intFirst = p;
    const char* intLast = p;
    auto at = [&](const char* q) -> unsigned char { return q < end ? static_cast<unsigned char>(*q) : 0; };

    if (at(p) == '0' && (at(p + 1) | 0x20) == 'x' &&
        (IsHexDigit(at(p + 2)) || (at(p + 2) == '.' && IsHexDigit(at(p + 3))))) {
        base = 16;
        p += 2;
        intFirst = p;
        while (IsHexDigit(at(p))) ++p;
        intLast = p;
        if (at(p) == '.') {
            isFloat = true;
            ++p;
            while (IsHexDigit(at(p))) ++p;
        }
        if ((at(p) | 0x20) == 'p') {
            const char* q = p + 1;
            if (at(q) == '+' || at(q) == '-') ++q;
            if (IsDigit(at(q))) {
                isFloat = true;
                while (IsDigit(at(q))) ++q;
                p = q;
            }
        }
    } else if (at(p) == '0' && (at(p + 1) | 0x20) == 'b' && (at(p + 2) == '0' || at(p + 2) == '1')) {
        base = 2;
        p += 2;
        intFirst = p;
        while (at(p) == '0' || at(p) == '1') ++p;
        intLast = p;
    } else {
        bool any = false;
        while (IsDigit(at(p))) {
            ++p;
            any = true;
        }
        intLast = p;
        if (at(p) == '.') {
            const char* q = p + 1;
            bool fraction = false;
            while (IsDigit(at(q))) {
                ++q;
                fraction = true;
            }
            if (any || fraction) {
                isFloat = true;
                any = true;
                p = q;
            }
        }
        if (!any) return false;
        if ((at(p) | 0x20) == 'e') {
            const char* q = p + 1;
            if (at(q) == '+' || at(q) == '-') ++q;
            if (IsDigit(at(q))) {
                isFloat = true;
                while (IsDigit(at(q))) ++q;
                p = q;
            }
        }
        if (!isFloat && syntax_.octalIntegers && intLast - intFirst > 1 && *intFirst == '0') base = 8;
    }
    const char* literalEnd = p;
    // Suffixes: u, l, ll in any C order for integers, f or l for floats.
    if (isFloat) {
        if ((at(p) | 0x20) == 'f' || (at(p) | 0x20) == 'l') ++p;
    } else {
        for (int i = 0; i < 3 && ((at(p) | 0x20) == 'u' || (at(p) | 0x20) == 'l'); ++i) ++p;
    }
    if (IsWordChar(at(p))) return false;
    if (base == 8) {
        for (const char* q = intFirst; q < intLast; ++q) {
            if (*q > '7') return false;  // 089 is not an octal literal
        }
    }

    double value = 0.0;
    unsigned long long integer = 0;
    bool fits = false;
    if (isFloat) {
        std::from_chars_result r{};
        if (base == 16) {
            r = std::from_chars(digits + 2, literalEnd, value, std::chars_format::hex);
        } else {
            r = std::from_chars(digits, literalEnd, value);
        }
        if (r.ec == std::errc::result_out_of_range) {
            value = std::strtod(std::string(digits, literalEnd).c_str(), nullptr);
        } else if (r.ec != std::errc()) {
            return false;
        }
    } else {
        fits = Accumulate(intFirst, intLast, base, integer);
        if (fits) {
            value = static_cast<double>(integer);
        } else {
            value = std::numeric_limits<double>::infinity();
            if (base == 10) value = std::strtod(std::string(intFirst, intLast).c_str(), nullptr);
        }
    }
    token.kind = VEK_tokenKind::Number;
    token.text.assign(begin, p);
    token.number = negative ? -value : value;
    const unsigned long long limit = static_cast<unsigned long long>(std::numeric_limits<long long>::max());
    token.isInteger = !isFloat && fits && (integer <= limit || (negative && integer == limit + 1));
    token.integer = 0;
    if (token.isInteger) {
        token.integer = negative ? static_cast<long long>(0ULL - integer) : static_cast<long long>(integer);
    }
    Advance(static_cast<size_t>(p - begin));
    return true;
}

int VEK_tokenizer::ScanString(VEK_token& token) {
    const char quote = text_[pos_];
    const int line = line_;
    const int column = column_;
    Advance(1);
    token.kind = VEK_tokenKind::String;
    token.text.clear();
    for (;;) {
        if (pos_ >= text_.size()) return Fail("Unterminated string", line, column);
        char c = text_[pos_];
        if (c == quote) {
            if (syntax_.doubledQuoteEscape && pos_ + 1 < text_.size() && text_[pos_ + 1] == quote) {
                token.text += quote;
                Advance(2);
                continue;
            }
            Advance(1);
            return VEK_OKAY;
        }
        if (c != '\\' || !syntax_.backslashEscapes) {
            token.text += c;
            Advance(1);
            continue;
        }
        Advance(1);
        if (pos_ >= text_.size()) return Fail("Unterminated string", line, column);
        unsigned char e = static_cast<unsigned char>(text_[pos_]);
        switch (e) {
            case 'n': token.text += '\n'; Advance(1); break;
            case 't': token.text += '\t'; Advance(1); break;
            case 'r': token.text += '\r'; Advance(1); break;
            case 'a': token.text += '\a'; Advance(1); break;
            case 'b': token.text += '\b'; Advance(1); break;
            case 'f': token.text += '\f'; Advance(1); break;
            case 'v': token.text += '\v'; Advance(1); break;
            case '\r':
            case '\n':
                // A backslash at the end of a line continues the string.
                Advance(e == '\r' && pos_ + 1 < text_.size() && text_[pos_ + 1] == '\n' ? 2 : 1);
                break;
            case 'x': {
                Advance(1);
                int v = 0;
                int n = 0;
                while (n < 2 && pos_ < text_.size() && IsHexDigit(static_cast<unsigned char>(text_[pos_]))) {
                    v = v * 16 + HexValue(static_cast<unsigned char>(text_[pos_]));
                    Advance(1);
                    ++n;
                }
                if (n == 0) {
                    token.text += 'x';
                } else {
                    token.text += static_cast<char>(v);
                }
                break;
            }
            case 'u':
            case 'U': {
                int want = e == 'u' ? 4 : 8;
                size_t q = pos_ + 1;
                unsigned long cp = 0;
                int n = 0;
                while (n < want && q < text_.size() && IsHexDigit(static_cast<unsigned char>(text_[q]))) {
                    cp = cp * 16 + static_cast<unsigned long>(HexValue(static_cast<unsigned char>(text_[q])));
                    ++q;
                    ++n;
                }
                if (n == want) {
                    AppendUtf8(token.text, cp);
                    Advance(static_cast<size_t>(want) + 1);
                } else {
                    token.text += static_cast<char>(e);
                    Advance(1);
                }
                break;
            }
            default:
                if (e >= '0' && e <= '7') {
                    int v = 0;
                    int n = 0;
                    while (n < 3 && pos_ < text_.size() && text_[pos_] >= '0' && text_[pos_] <= '7') {
                        v = v * 8 + (text_[pos_] - '0');
                        Advance(1);
                        ++n;
                    }
                    token.text += static_cast<char>(v & 0xFF);
                } else {
                    // \\, \", \', \? and any other character stand for themselves.
                    token.text += static_cast<char>(e);
                    Advance(1);
                }
        }
    }
}

int VEK_tokenizer::Scan(VEK_token& token) {
    token.text.clear();
    token.number = 0.0;
    token.isInteger = false;
    token.integer = 0;
    if (!SkipSpaceAndComments()) {
        token.kind = VEK_tokenKind::End;
        return VEK_LEXICAL_ERROR;
    }
    token.line = line_;
    token.column = column_;
    if (pos_ >= text_.size()) {
        token.kind = VEK_tokenKind::End;
        return VEK_NO_MORE_TOKENS;
    }
    unsigned char c = static_cast<unsigned char>(text_[pos_]);
    auto next = [&](size_t k) -> unsigned char {
        return pos_ + k < text_.size() ? static_cast<unsigned char>(text_[pos_ + k]) : 0;
    };
    if (syntax_.quotes.find(static_cast<char>(c)) != std::string::npos && c != 0) return ScanString(token);

    bool signStart = syntax_.signedNumbers && (c == '-' || c == '+') &&
                     (IsDigit(next(1)) || (next(1) == '.' && IsDigit(next(2))));
    if (IsDigit(c) || (c == '.' && IsDigit(next(1))) || signStart) {
        if (ScanNumber(token)) return VEK_OKAY;
        if (IsDigit(c)) {
            // A run such as 0_8mmol or 1st: a word that starts with a digit.
            size_t start = pos_;
            size_t end = pos_;
            while (end < text_.size() && IsWordChar(static_cast<unsigned char>(text_[end]))) ++end;
            token.kind = VEK_tokenKind::Word;
            token.text.assign(text_, start, end - start);
            Advance(end - start);
            return VEK_OKAY;
        }
        // A sign or a dot that starts no number is a symbol (below).
    } else if (IsAlpha(c) || c == '_' || c >= 0x80 ||
               (c != 0 && syntax_.extraWordChars.find(static_cast<char>(c)) != std::string::npos)) {
        size_t start = pos_;
        size_t end = pos_;
        while (end < text_.size() && IsWordChar(static_cast<unsigned char>(text_[end]))) ++end;
        token.kind = VEK_tokenKind::Word;
        token.text.assign(text_, start, end - start);
        Advance(end - start);
        return VEK_OKAY;
    }
    if (c < 0x20 || c == 0x7F) {
        token.kind = VEK_tokenKind::End;
        return Fail("Unexpected control character", line_, column_);
    }
    size_t best = 0;
    for (const std::string& s : syntax_.symbols) {
        if (s.size() > best && StartsWith(s.c_str())) best = s.size();
    }
    if (best == 0) best = 1;
    token.kind = VEK_tokenKind::Symbol;
    token.text.assign(text_, pos_, best);
    Advance(best);
    return VEK_OKAY;
}

int VEK_tokenizer::Next(VEK_token& token) {
    if (peeked_) {
        peeked_ = false;
        token = std::move(peek_);
        return peekResult_;
    }
    return Scan(token);
}

int VEK_tokenizer::Peek(VEK_token& token) {
    if (!peeked_) {
        peekResult_ = Scan(peek_);
        peeked_ = true;
    }
    token = peek_;
    return peekResult_;
}

// ============================================================== VEK_textOutput

namespace {
constexpr size_t kOutputFlush = 64 * 1024;
}

VEK_textOutput::~VEK_textOutput() { (void)Close(); }  // nobody is left to tell

bool VEK_textOutput::OpenFile(const char* path) {
    (void)Close();  // a new output replaces the old one
    failed_ = false;
    file_ = path ? VEK_fopen(path, "wb") : nullptr;
    return file_ != nullptr;
}

void VEK_textOutput::SetString(std::string& out) {
    (void)Close();  // a new output replaces the old one
    failed_ = false;
    string_ = &out;
}

void VEK_textOutput::Flush() {
    if (buffer_.empty()) return;
    if (file_) {
        if (std::fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size()) failed_ = true;
    } else if (string_) {
        try {
            string_->append(buffer_);
        } catch (const std::bad_alloc&) {
            failed_ = true;
        }
    } else {
        failed_ = true;
    }
    buffer_.clear();
}

void VEK_textOutput::Write(std::string_view text) {
    try {
        buffer_.append(text.data(), text.size());
    } catch (const std::bad_alloc&) {
        failed_ = true;
        return;
    }
    if (buffer_.size() >= kOutputFlush) Flush();
}

void VEK_textOutput::WriteInt(long long value) {
    char text[24];
    auto r = std::to_chars(text, text + sizeof text, value);
    Write(std::string_view(text, static_cast<size_t>(r.ptr - text)));
}

void VEK_textOutput::WriteDouble(double value, int precision) {
    if (precision < 1) precision = 1;
    if (precision > 17) precision = 17;
    char text[64];
    auto r = std::to_chars(text, text + sizeof text, value, std::chars_format::general, precision);
    Write(std::string_view(text, static_cast<size_t>(r.ptr - text)));
}

void VEK_textOutput::Printf(const char* format, ...) {
    char small[512];
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(small, sizeof small, format, args);
    va_end(args);
    if (n < 0) {
        failed_ = true;
    } else if (static_cast<size_t>(n) < sizeof small) {
        Write(std::string_view(small, static_cast<size_t>(n)));
    } else {
        try {
            std::string big(static_cast<size_t>(n) + 1, '\0');
            std::vsnprintf(big.data(), big.size(), format, copy);
            big.resize(static_cast<size_t>(n));
            Write(big);
        } catch (const std::bad_alloc&) {
            failed_ = true;
        }
    }
    va_end(copy);
}

bool VEK_textOutput::Close() {
    if (!file_ && !string_) return false;
    Flush();
    if (file_) {
        if (std::fclose(file_) != 0) failed_ = true;
        file_ = nullptr;
    }
    string_ = nullptr;
    return !failed_;
}

// ============================================================== VEK_fileFormat

VEK_fileFormat::VEK_fileFormat(VEK_network& net) : net_(&net) {}

VEK_fileFormat::~VEK_fileFormat() = default;

VEK_logger& VEK_fileFormat::Logger() const { return net_->Logger(); }

int VEK_fileFormat::ReadNetworkFromString(const char*) { return VEK_WRONG_NODE_TYPE; }

int VEK_fileFormat::WriteNetworkToString(std::string&) { return VEK_WRONG_NODE_TYPE; }

int VEK_fileFormat::ReadInputFile(const char* path, std::string& text, int openFailure) {
    fileName_ = path ? path : "";
    struct Closer {
        void operator()(FILE* f) const { std::fclose(f); }
    };
    std::unique_ptr<FILE, Closer> file(path ? VEK_fopen(path, "rb") : nullptr);
    if (!file) return LogFileReadingError(openFailure, "Can't open file " + fileName_, 0, 0);
    text.clear();
    try {
        // Straight into the string when the size is known; whatever the size
        // did not foresee is appended below.
        long size = -1;
        if (std::fseek(file.get(), 0, SEEK_END) == 0) {
            size = std::ftell(file.get());
            std::rewind(file.get());
        }
        if (size > 0) {
            text.resize(static_cast<size_t>(size));
            text.resize(std::fread(text.data(), 1, text.size(), file.get()));
        }
        char chunk[65536];
        size_t n;
        while ((n = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) text.append(chunk, n);
    } catch (const std::bad_alloc&) {
        text = std::string();
        return LogFileReadingError(VEK_OUT_OF_MEMORY, "Out of memory reading " + fileName_, 0, 0);
    }
    if (std::ferror(file.get())) return LogFileReadingError(VEK_FILE_READ_ERROR, "Can't read file " + fileName_, 0, 0);
    try {
        VEK_ensureUtf8(text);
    } catch (const std::bad_alloc&) {
        text = std::string();
        return LogFileReadingError(VEK_OUT_OF_MEMORY, "Out of memory reading " + fileName_, 0, 0);
    }
    return VEK_OKAY;
}

int VEK_fileFormat::OpenInput(const char* path) {
    std::string text;
    int res = ReadInputFile(path, text);
    if (res != VEK_OKAY) return res;
    tokens_.SetText(text);
    last_ = VEK_token();
    return VEK_OKAY;
}

void VEK_fileFormat::SetInputText(std::string_view text) {
    tokens_.SetText(text);
    last_ = VEK_token();
}

int VEK_fileFormat::LexicalError() {
    return LogFileReadingError(VEK_LEXICAL_ERROR, tokens_.ErrorMessage(), tokens_.ErrorLine(),
                               tokens_.ErrorColumn());
}

int VEK_fileFormat::GetToken(VEK_token& token) {
    int res = tokens_.Next(token);
    if (res == VEK_LEXICAL_ERROR) return LexicalError();
    last_.kind = token.kind;
    last_.text = token.text;
    last_.line = token.line;
    last_.column = token.column;
    return res;
}

int VEK_fileFormat::PeekToken(VEK_token& token) {
    int res = tokens_.Peek(token);
    if (res == VEK_LEXICAL_ERROR) return LexicalError();
    return res;
}

int VEK_fileFormat::MatchError(const char* expected, const VEK_token& found) {
    std::string message = "Expected '";
    message += expected ? expected : "";
    message += "' but found ";
    message += found.Describe();
    return LogFileReadingError(found.IsEnd() ? VEK_UNEXPECTED_EOF : VEK_SYNTAX_ERROR, message, found.line,
                               found.column);
}

int VEK_fileFormat::Match(const char* expected) {
    VEK_token t;
    int res = GetToken(t);
    if (res == VEK_LEXICAL_ERROR) return res;
    if (res == VEK_OKAY && t.Is(expected)) return VEK_OKAY;
    return MatchError(expected, t);
}

bool VEK_fileFormat::TryMatch(const char* expected) {
    VEK_token t;
    if (PeekToken(t) != VEK_OKAY || !t.Is(expected)) return false;
    (void)GetToken(t);  // the token just peeked
    return true;
}

namespace {
int Unexpected(VEK_fileFormat& f, const char* what, const VEK_token& t) {
    std::string message = what;
    message += " expected but found ";
    message += t.Describe();
    return f.LogFileReadingError(t.IsEnd() ? VEK_UNEXPECTED_EOF : VEK_SYNTAX_ERROR, message, t.line, t.column);
}
}  // namespace

int VEK_fileFormat::GetInteger(long long& value) {
    VEK_token t;
    int res = GetToken(t);
    if (res == VEK_LEXICAL_ERROR) return res;
    if (res == VEK_OKAY && t.IsNumber() && t.isInteger) {
        value = t.integer;
        return VEK_OKAY;
    }
    return Unexpected(*this, "Integer", t);
}

int VEK_fileFormat::GetInteger(int& value) {
    VEK_token t;
    int res = GetToken(t);
    if (res == VEK_LEXICAL_ERROR) return res;
    if (res == VEK_OKAY && t.IsNumber() && t.isInteger && t.integer >= std::numeric_limits<int>::min() &&
        t.integer <= std::numeric_limits<int>::max()) {
        value = static_cast<int>(t.integer);
        return VEK_OKAY;
    }
    return Unexpected(*this, "Integer", t);
}

int VEK_fileFormat::GetDouble(double& value) {
    VEK_token t;
    int res = GetToken(t);
    if (res == VEK_LEXICAL_ERROR) return res;
    double sign = 1.0;
    if (res == VEK_OKAY && (t.Is("-") || t.Is("+"))) {
        VEK_token w;
        if (PeekToken(w) == VEK_OKAY && w.IsWord() &&
            (EqualsNoCase(w.text, "inf") || EqualsNoCase(w.text, "infinity") || EqualsNoCase(w.text, "nan"))) {
            sign = t.Is("-") ? -1.0 : 1.0;
            res = GetToken(t);
        }
    }
    if (res == VEK_OKAY && t.IsNumber()) {
        value = t.number;
        return VEK_OKAY;
    }
    if (res == VEK_OKAY && t.IsWord()) {
        if (EqualsNoCase(t.text, "inf") || EqualsNoCase(t.text, "infinity")) {
            value = sign * std::numeric_limits<double>::infinity();
            return VEK_OKAY;
        }
        if (EqualsNoCase(t.text, "nan")) {
            value = std::copysign(std::numeric_limits<double>::quiet_NaN(), sign);
            return VEK_OKAY;
        }
    }
    return Unexpected(*this, "Number", t);
}

int VEK_fileFormat::GetWord(std::string& word) {
    VEK_token t;
    int res = GetToken(t);
    if (res == VEK_LEXICAL_ERROR) return res;
    if (res == VEK_OKAY && t.IsWord()) {
        word = std::move(t.text);
        return VEK_OKAY;
    }
    return Unexpected(*this, "Identifier", t);
}

int VEK_fileFormat::GetString(std::string& text, bool acceptWord) {
    VEK_token t;
    int res = GetToken(t);
    if (res == VEK_LEXICAL_ERROR) return res;
    if (res == VEK_OKAY && (t.IsString() || (acceptWord && t.IsWord()))) {
        text = std::move(t.text);
        return VEK_OKAY;
    }
    return Unexpected(*this, "String", t);
}

int VEK_fileFormat::ReadStartBlock(VEK_token& keyword, std::vector<VEK_token>& header, const char* open) {
    header.clear();
    int res = GetToken(keyword);
    if (res != VEK_OKAY) return res;  // the clean end, or a logged lexical error
    if (!keyword.IsWord()) return Unexpected(*this, "Block keyword", keyword);
    for (;;) {
        VEK_token t;
        res = GetToken(t);
        if (res == VEK_LEXICAL_ERROR) return res;
        if (res != VEK_OKAY || t.Is(";") || t.Is("}")) return MatchError(open, t);
        if (t.Is(open)) return VEK_OKAY;
        header.push_back(std::move(t));
    }
}

int VEK_fileFormat::SkipBlock() {
    std::vector<char> closers;
    for (;;) {
        VEK_token t;
        int res = GetToken(t);
        if (res == VEK_LEXICAL_ERROR) return res;
        if (res != VEK_OKAY) {
            return LogFileReadingError(VEK_UNEXPECTED_EOF, "Unexpected end of file inside a block", t.line,
                                       t.column);
        }
        if (!t.IsSymbol() || t.text.size() != 1) continue;
        char c = t.text[0];
        if (c == '{') closers.push_back('}');
        if (c == '(') closers.push_back(')');
        if (c == '[') closers.push_back(']');
        if (c == '}' || c == ')' || c == ']') {
            if (closers.empty()) return VEK_OKAY;
            if (closers.back() != c) {
                std::string expected(1, closers.back());
                return MatchError(expected.c_str(), t);
            }
            closers.pop_back();
        }
    }
}

int VEK_fileFormat::ReadField(std::string& name, std::vector<VEK_token>& value, const char* assign,
                              const char* terminator, const char* closeBlock) {
    value.clear();
    VEK_token t;
    int res = GetToken(t);
    if (res == VEK_LEXICAL_ERROR) return res;
    if (res == VEK_OKAY && closeBlock && t.Is(closeBlock)) return VEK_BLOCK_END;
    if (res != VEK_OKAY || !(t.IsWord() || t.IsString())) return Unexpected(*this, "Field name", t);
    name = std::move(t.text);
    res = Match(assign);
    if (res != VEK_OKAY) return res;
    std::vector<char> closers;
    for (;;) {
        res = GetToken(t);
        if (res == VEK_LEXICAL_ERROR) return res;
        if (res != VEK_OKAY) return MatchError(terminator, t);
        if (closers.empty() && t.Is(terminator)) return VEK_OKAY;
        if (t.IsSymbol() && t.text.size() == 1) {
            char c = t.text[0];
            if (c == '{') closers.push_back('}');
            if (c == '(') closers.push_back(')');
            if (c == '[') closers.push_back(']');
            if (c == '}' || c == ')' || c == ']') {
                if (closers.empty() || closers.back() != c) return MatchError(terminator, t);
                closers.pop_back();
            }
        }
        value.push_back(std::move(t));
    }
}

int VEK_fileFormat::LogFileReadingError(int code, const std::string& message) {
    return LogFileReadingError(code, message, last_.line, last_.column);
}

int VEK_fileFormat::LogFileReadingError(int code, const std::string& message, int line, int column) {
    try {
        std::string text = "Error at ";
        VEK_appendInt(text, line);
        text += ", ";
        VEK_appendInt(text, column);
        if (!fileName_.empty()) {
            text += " while loading ";
            text += fileName_;
        }
        text += ": ";
        text += message;
        Logger().LogError(code, text.c_str());
    } catch (const std::bad_alloc&) {
        Logger().LogError(code);
    }
    return code;
}

namespace {
std::string Compose(const char* format, const char* const* args, int count) {
    std::string out;
    int next = 0;
    for (const char* p = format ? format : ""; *p; ++p) {
        if (p[0] == '%' && p[1] == '%') {
            out += '%';
            ++p;
        } else if (p[0] == '%' && p[1] == 's') {
            if (next < count && args[next]) out += args[next];
            ++next;
            ++p;
        } else {
            out += *p;
        }
    }
    return out;
}
}  // namespace

std::string VEK_fileFormat::ComposeErrorMessage1(const char* format, const char* arg) {
    const char* args[] = {arg};
    return Compose(format, args, 1);
}

std::string VEK_fileFormat::ComposeErrorMessage2(const char* format, const char* arg1, const char* arg2) {
    const char* args[] = {arg1, arg2};
    return Compose(format, args, 2);
}

int VEK_fileFormat::OpenOutput(const char* path) {
    outputPath_ = path ? path : "";
    if (!out_.OpenFile(path)) {
        std::string message = "Can't open file for writing: " + outputPath_;
        return Logger().LogError(VEK_FILE_WRITE_ERROR, message.c_str());
    }
    return VEK_OKAY;
}

void VEK_fileFormat::SetOutputString(std::string& out) {
    outputPath_.clear();
    out_.SetString(out);
}

int VEK_fileFormat::CloseOutput() {
    if (out_.Close()) return VEK_OKAY;
    std::string message = "Error writing ";
    message += outputPath_.empty() ? std::string("the network") : outputPath_;
    return Logger().LogError(VEK_FILE_WRITE_ERROR, message.c_str());
}

void VEK_fileFormat::ListBreak(int index, const VEK_listStyle& style) {
    if (index == 0) return;
    if (style.perLine > 0 && index % style.perLine == 0) {
        // The separator's visible part stays on the line that ends.
        std::string_view sep(style.separator ? style.separator : "");
        while (!sep.empty() && sep.back() == ' ') sep.remove_suffix(1);
        out_.Write(sep);
        out_.Write(style.lineBreak);
        out_.Write(style.lineStart);
    } else {
        out_.Write(style.separator);
    }
}

void VEK_fileFormat::AppendQuoted(std::string& out, std::string_view text) {
    out += '"';
    for (unsigned char c : text) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            case '\r': out += "\\r"; break;
            default:
                if (c < 0x20 || c == 0x7F) {
                    // Three octal digits: never swallows a following digit.
                    out += '\\';
                    out += static_cast<char>('0' + (c >> 6));
                    out += static_cast<char>('0' + ((c >> 3) & 7));
                    out += static_cast<char>('0' + (c & 7));
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    out += '"';
}

void VEK_fileFormat::WriteStringList(const std::vector<std::string>& items, const VEK_listStyle& style) {
    std::string quoted;
    for (size_t i = 0; i < items.size(); ++i) {
        ListBreak(static_cast<int>(i), style);
        if (style.quoted) {
            quoted.clear();
            AppendQuoted(quoted, items[i]);
            out_.Write(quoted);
        } else {
            out_.Write(items[i]);
        }
    }
}

void VEK_fileFormat::WriteStringList(const VEK_stringArray& items, const VEK_listStyle& style) {
    std::string quoted;
    for (int i = 0; i < items.GetSize(); ++i) {
        ListBreak(i, style);
        const char* s = items[i] ? items[i] : "";
        if (style.quoted) {
            quoted.clear();
            AppendQuoted(quoted, s);
            out_.Write(quoted);
        } else {
            out_.Write(s);
        }
    }
}

void VEK_fileFormat::WriteDoubleList(const double* values, int count, const VEK_listStyle& style) {
    for (int i = 0; values && i < count; ++i) {
        ListBreak(i, style);
        out_.WriteDouble(values[i], style.precision);
    }
}

void VEK_fileFormat::WriteIntList(const int* values, int count, const VEK_listStyle& style) {
    for (int i = 0; values && i < count; ++i) {
        ListBreak(i, style);
        out_.WriteInt(values[i]);
    }
}

// ============================================================== network file operations

VEK_fileFormat* VEK_network::CreateFileFormat(const char* path, int& format) {
    return VEK_createFileFormat(*this, path, format, logger_);
}

int VEK_fileFormat::CheckTablesOnly(const char* refusal) {
    VEK_network& net = Network();
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_node* node = net.GetNode(h);
        const int type = node->Definition()->GetType();
        bool ok = node->GetTemporalType() == VEK_TEMPORAL_CONTEMPORAL;
        if (type == VEK_EQUATION || type == VEK_MAU) ok = false;
        if (type != VEK_TABLE && type != VEK_LIST && !node->Definition()->GetMatrix()) ok = false;
        if (!ok) return Logger().LogError(VEK_OUT_OF_RANGE, refusal);
    }
    return VEK_OKAY;
}

// Reading replaces the model only when the whole file was read: the speaker
// fills a fresh network, and only a successful read is taken over. A failed
// read (bad file, unknown format, out of memory) leaves this network exactly
// as it was, with the reasons in its logger.
//
// Taken over: nodes, arcs, definitions, evidence, targets, the header,
// submodels, text boxes, cases, properties, documentation, functions, the
// sampling settings, EPIS parameters and slices. Kept: what the formats do
// not hold and what belongs to the caller's object: the logger with its
// entries and redirection, the algorithm ids, relevance and update flags,
// options, loopy and annealed MAP parameters, the random generator, the
// update listener and the handle allocation policy.
int VEK_network::ReadFile(const char* path, int format, void* extension) {
    return ReadThroughSpeaker(path, nullptr, format, extension);
}

static_assert(std::is_nothrow_swappable_v<VEK_header> && std::is_nothrow_swappable_v<VEK_submodelHandler> &&
                  std::is_nothrow_swappable_v<VEK_caseManager> && std::is_nothrow_swappable_v<VEK_userProperties> &&
                  std::is_nothrow_swappable_v<VEK_documentation>,
              "taking over a read network must not fail half-way");

int VEK_network::TakeOverReadNetwork(VEK_network& fresh) {
    // A reader that skipped the per-arc cycle test relies on this one check.
    if (!fresh.IsAcyclic()) return logger_.LogError(VEK_CYCLE, "The network read contains a cycle");
    // Nothing below can fail, so this network changes completely or not at
    // all. The read nodes move over as they are: copying them would double
    // the cost of reading a large network.
    // Old definitions and values may reach the network while they go: the
    // slots are cleared one by one, as the destructor does.
    for (auto& n : nodes_) n.reset();
    nodes_.clear();
    nodes_.swap(fresh.nodes_);
    for (auto& n : nodes_) {
        if (n) n->Rebind(*this);
    }
    nodeCount_ = fresh.nodeCount_;
    orderValid_ = false;
    targetCount_ = fresh.targetCount_;
    settings_.stored = fresh.settings_.stored;
    fresh.nodeCount_ = 0;
    idIndex_.swap(fresh.idIndex_);
    valueFlagsSeen_ = fresh.valueFlagsSeen_;
    fresh.idIndex_.clear();
    std::swap(header_, fresh.header_);
    std::swap(submodels_, fresh.submodels_);
    std::swap(cases_, fresh.cases_);
    std::swap(userProperties_, fresh.userProperties_);
    std::swap(documentation_, fresh.documentation_);
    textBoxes_.swap(fresh.textBoxes_);
    extFunctions_.swap(fresh.extFunctions_);
    sliceCount_ = fresh.sliceCount_;
    dynamic_.swap(fresh.dynamic_);
    if (dynamic_) dynamic_->Rebind(*this);
    if (fresh.dynamic_) fresh.dynamic_->Rebind(fresh);
    infCache_.Reset();
    scopeDirty_ = false;
    return VEK_OKAY;
}

int VEK_network::WriteFile(const char* path, int format, void* extension) {
    try {
        std::unique_ptr<VEK_fileFormat> speaker(CreateFileFormat(path, format));
        if (!speaker) return VEK_OUT_OF_RANGE;
        if (extension) speaker->SetUserExtension(extension);
        return speaker->WriteNetwork(path);
    } catch (const std::bad_alloc&) {
        return logger_.LogError(VEK_OUT_OF_MEMORY, "Out of memory while writing the network");
    }
}

// The same rules as ReadFile; a string always holds the XML network format.
int VEK_network::ReadString(const char* text, void* extension) {
    return ReadThroughSpeaker(nullptr, text ? text : "", VEK_FORMAT_XVEK, extension);
}

// Reads a file (text null) or a string into a fresh network and takes it
// over only when the read succeeds.
int VEK_network::ReadThroughSpeaker(const char* path, const char* text, int format, void* extension) {
    // Memory can run out before the speaker runs as well (the fresh network,
    // the speaker itself); the network is untouched until the take-over.
    auto read = [&]() -> int {
        VEK_network fresh;
        fresh.Logger().RedirectToLogger(&logger_);
        fresh.SetHandleAllocPolicy(allocPolicy_);
        std::unique_ptr<VEK_fileFormat> speaker(VEK_createFileFormat(fresh, path, format, logger_));
        if (!speaker) return VEK_OUT_OF_RANGE;
        if (extension) speaker->SetUserExtension(extension);
        const unsigned savedOptions = fresh.options_;
        if (speaker->SuppressAcyclic()) fresh.options_ |= VEK_OPT_NO_CYCLE_TEST;
        if (speaker->SuppressIdInUse()) fresh.options_ |= VEK_OPT_DUPLICATE_IDS;
        fresh.BeginRead();
        int res;
        try {
            res = text ? speaker->ReadNetworkFromString(text) : speaker->ReadNetwork(path);
        } catch (const std::bad_alloc&) {
            res = logger_.LogError(VEK_OUT_OF_MEMORY, "Out of memory while reading the network");
        } catch (const std::exception& e) {
            std::string message = "Can't read the network: ";
            message += e.what();
            res = logger_.LogError(VEK_GENERAL_ERROR, message.c_str());
        }
        fresh.EndRead();
        fresh.options_ = savedOptions;
        speaker.reset();
        if (res < 0) return res;
        return TakeOverReadNetwork(fresh);
    };
    try {
        return read();
    } catch (const std::bad_alloc&) {
        return logger_.LogError(VEK_OUT_OF_MEMORY, "Out of memory while reading the network");
    }
}

int VEK_network::WriteString(std::string& out, void* extension) {
    out.clear();
    int format = VEK_FORMAT_XVEK;
    try {
        std::unique_ptr<VEK_fileFormat> speaker(VEK_createFileFormat(*this, nullptr, format, logger_));
        if (!speaker) return VEK_OUT_OF_RANGE;
        if (extension) speaker->SetUserExtension(extension);
        return speaker->WriteNetworkToString(out);
    } catch (const std::bad_alloc&) {
        out.clear();
        return logger_.LogError(VEK_OUT_OF_MEMORY, "Out of memory while writing the network");
    }
}
