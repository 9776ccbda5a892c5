// Lexer of the foreign text formats (Hugin .net, text BIF). Unlike the
// general tokenizer of VEK_fileFormat it keeps every run of characters that
// is neither space nor a symbol as one word, because BIF names states with
// bare text such as <5, >=7.5 or Asy/Patch; numbers are words that the
// parser converts. Words are views into the text, so multi-megabyte tables
// are read without a string per number.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct VEK_lexToken {
    enum Kind : char { End, Word, String, Symbol };
    Kind kind = End;
    std::string_view raw;  // Word and Symbol: the text as written
    std::string str;       // String: the contents with escapes undone
    int line = 0;          // 1-based, of the first character
    int column = 0;

    std::string_view Text() const { return kind == String ? std::string_view(str) : raw; }
    bool IsSymbol(char c) const { return kind == Symbol && raw[0] == c; }
    bool IsWord(std::string_view w) const { return kind == Word && raw == w; }
    // How the token reads in a message.
    std::string Describe() const;
};

class VEK_descLexer {
public:
    // symbols: the one-character symbols; lineComments: characters that
    // start a comment to the end of the line (besides //); /* */ always.
    VEK_descLexer(const char* symbols, const char* lineComments);

    // Takes the text (a UTF-8 byte order mark is dropped).
    void SetText(std::string text);
    // 0, or -1 with ErrorMessage() and the position of the fault.
    [[nodiscard]] int Next(VEK_lexToken& token);
    const std::string& ErrorMessage() const { return error_; }
    int ErrorLine() const { return errorLine_; }
    int ErrorColumn() const { return errorColumn_; }
    // Reads plain numbers (decimal, as written by other tools) separated by
    // spaces, comments or commas, straight from the text, and stops before
    // anything else, which Next then reads. Table data goes this way without
    // a token per number. 0, or -1 at a lexical fault.
    [[nodiscard]] int ReadNumbers(std::vector<double>& out);
    // The text between two offsets (used to keep an attribute's value).
    std::string_view Slice(size_t begin, size_t end) const { return std::string_view(text_).substr(begin, end - begin); }
    size_t OffsetOf(const VEK_lexToken& t) const { return static_cast<size_t>(t.raw.data() - text_.data()); }

private:
    // Byte classes.
    enum : unsigned char { kWord = 0, kSpace = 1, kNewline = 2, kSymbol = 3, kQuote = 4, kBad = 5, kComment = 6, kSlash = 7 };

    int Fail(const char* message, size_t offset);
    bool SkipSpaceAndComments();
    [[nodiscard]] int ScanString(VEK_lexToken& token, char quote);
    // 1-based column of a byte on the current line, in characters.
    int ColumnOf(size_t offset) const;
    void NewLine(size_t next) {
        ++line_;
        lineStart_ = next;
        lineHasMultibyte_ = false;
    }

    unsigned char class_[256];
    bool inWord_[256];  // bytes that continue a word
    std::string text_;
    size_t pos_ = 0;
    int line_ = 1;
    size_t lineStart_ = 0;
    bool lineHasMultibyte_ = false;  // columns then need counting
    std::string error_;
    int errorLine_ = 0;
    int errorColumn_ = 0;
};

// A number in any C form: decimal, exponent, hexadecimal (integer or
// floating), octal-looking integers read as decimal, 0b binary, a leading
// '+', integer and float suffixes (u, l, f), inf and nan. False unless the
// whole text is one number.
[[nodiscard]] bool VEK_parseNumber(std::string_view text, double& value);
