// Readers and writers of network files ("speakers") and the token-level
// helpers that the text formats share.
//
// ---------------------------------------------------------------------------
// Writing a speaker
// ---------------------------------------------------------------------------
// Derive from VEK_fileFormat, which is constructed over the network that the
// speaker fills (reading) or walks (writing), and override
//
//     int ReadNetwork(const char* path);    // 0 or a negative status
//     int WriteNetwork(const char* path);
//
// (and, when the format can, ReadNetworkFromString / WriteNetworkToString).
// Register it in formats/formatRegistry.cpp: the table there has one line per
// format number; replace the null factory of your number with a function
// `VEK_fileFormat* VEK_createXxxSpeaker(VEK_network&)` (already declared in
// formats/formatRegistry.h) that you define next to your speaker.
//
// What the dispatch (VEK_network::ReadFile) guarantees a reader:
// - the network is fresh (no nodes, default settings); on failure it is
//   thrown away, so a reader may stop anywhere without cleaning up;
// - messages logged to Logger() reach the caller's logger;
// - SuppressAcyclic() true: arcs are added without the per-arc cycle test,
//   and the dispatch checks the whole graph once after a successful read;
// - SuppressIdInUse() true: node ids are not checked for uniqueness by
//   AddNode (so adding is O(1)); the reader must refuse duplicates itself.
//
// ---------------------------------------------------------------------------
// Reading text formats
// ---------------------------------------------------------------------------
//     int res = OpenInput(path);            // or SetInputText(text)
//     if (res < 0) return res;              // logged already
//     Tokenizer().Syntax().lineComments = {"%"};   // adapt the lexer first
//     VEK_token t;
//     while ((res = GetToken(t)) == VEK_OKAY) { ... }
//     if (res != VEK_NO_MORE_TOKENS) return res;
//
// Tokens (VEK_token): Word (letters, digits, '_', bytes >= 0x80 and the
// syntax's extra word characters; not starting with a digit unless the run
// is not a number, as in 0_8mmol), Number (every C literal: 12, -3, 017 (read
// as decimal 17 unless octalIntegers), 0x1F, 0b101, 1.5, .5, 5., 1e-3,
// 0x1.8p3, with u/l/f suffixes), String (between the syntax's quote
// characters, C escapes \n \t \xHH \101 \u20AC... undone; text holds the
// unescaped contents) and Symbol (punctuation; the syntax's multi-character
// symbols first, then one byte). Comments (// and /* */ by default, see
// VEK_tokenSyntax), any whitespace, CR, LF and CRLF line ends and a UTF-8 byte
// order mark are skipped. Every token carries the line and column (1-based,
// in characters) of its first character.
//
// Status codes: VEK_NO_MORE_TOKENS (-111) at the end of the input,
// VEK_LEXICAL_ERROR (-126) for an unterminated string or comment or a stray
// control byte, VEK_SYNTAX_ERROR (-127) for an unexpected token,
// VEK_UNEXPECTED_EOF (-128) when the input ends inside a construct. Every
// helper that fails logs one positioned message (see LogFileReadingError) and
// returns the code; a caller just returns it.
//
// Helpers (all log their failures):
//     GetToken(t), PeekToken(t)      next token (peek leaves it unread)
//     Match("{")                     next token must be exactly this word or
//                                    symbol, else MatchError
//     TryMatch(";")                  consumes it only when it is there
//     MatchError("x", found)         "Expected 'x' but found 'y'"
//     GetInteger(i), GetDouble(d)    next token as a number (GetDouble also
//                                    takes inf / nan words)
//     GetWord(s), GetString(s)       next token as a word (or string)
//     ReadStartBlock(keyword, header)  "keyword header... {"
//     SkipBlock()                    skips to the closer of the block just
//                                    opened, nested brackets included
//     ReadField(name, value)         "name = value... ;" inside a block;
//                                    returns VEK_BLOCK_END at the closer
//     LogFileReadingError(code, message[, line, column])
//     ComposeErrorMessage1(fmt, a), ComposeErrorMessage2(fmt, a, b):
//                                    "%s" placeholders filled in order
//
// ---------------------------------------------------------------------------
// Writing text formats
// ---------------------------------------------------------------------------
//     int res = OpenOutput(path);           // or SetOutputString(out)
//     Out().Write("net\n{\n");
//     WriteDoubleList(values, count, style); // "%.16g" numbers
//     return CloseOutput();                 // -101 when any write failed
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "network/status.h"

class VEK_network;
class VEK_logger;
class VEK_stringArray;

// Format numbers of VEK_network::ReadFile / WriteFile.
constexpr int VEK_FORMAT_AUTO = 0;
constexpr int VEK_FORMAT_ERGO = 1;
constexpr int VEK_FORMAT_NETICA = 2;
constexpr int VEK_FORMAT_MICROSOFT = 3;
constexpr int VEK_FORMAT_VEK = 4;
constexpr int VEK_FORMAT_HUGIN = 5;
constexpr int VEK_FORMAT_XMLBIF = 6;
constexpr int VEK_FORMAT_KI = 7;
constexpr int VEK_FORMAT_XVEK = 8;
// Chosen by the .uai extension only; CreateFileFormat refuses the number.
constexpr int VEK_FORMAT_UAI = 9;

// ReadField's answer when the block's closer came instead of a field.
constexpr int VEK_BLOCK_END = 1;

enum class VEK_tokenKind { End, Word, Number, String, Symbol };

struct VEK_token {
    VEK_tokenKind kind = VEK_tokenKind::End;
    // Word / Symbol: the text; String: the unescaped contents; Number: the
    // literal as written.
    std::string text;
    double number = 0.0;      // Number: the value
    bool isInteger = false;   // Number: an integer literal that fits long long
    long long integer = 0;    // Number with isInteger
    int line = 0;             // 1-based position of the first character
    int column = 0;

    // A word or symbol with exactly this text (never a string).
    bool Is(const char* s) const;
    bool IsWord() const { return kind == VEK_tokenKind::Word; }
    bool IsNumber() const { return kind == VEK_tokenKind::Number; }
    bool IsString() const { return kind == VEK_tokenKind::String; }
    bool IsSymbol() const { return kind == VEK_tokenKind::Symbol; }
    bool IsEnd() const { return kind == VEK_tokenKind::End; }
    // How the token reads in a message: 'text', or "end of file".
    std::string Describe() const;
};

// What the lexer treats as comments, strings, words and symbols.
struct VEK_tokenSyntax {
    std::vector<std::string> lineComments = {"//"};
    std::vector<std::pair<std::string, std::string>> blockComments = {{"/*", "*/"}};
    bool nestedBlockComments = false;
    std::string quotes = "\"";            // each character opens and closes a string
    bool backslashEscapes = true;         // C escapes inside strings
    bool doubledQuoteEscape = false;      // "" inside a string stands for "
    std::string extraWordChars;           // besides letters, digits, '_' and bytes >= 0x80
    std::vector<std::string> symbols;     // multi-character symbols, longest first
    bool signedNumbers = true;            // "-1" is one number token
    bool octalIntegers = false;           // 017 is 15 (else 17)
};

// A lexer over text held in memory (files are read whole: text formats are
// small, and a BOM or CRLF needs no special care that way).
class VEK_tokenizer {
public:
    VEK_tokenizer() = default;
    // The text is copied; a UTF-8 byte order mark is dropped.
    void SetText(std::string_view text);
    VEK_tokenSyntax& Syntax() { return syntax_; }
    const VEK_tokenSyntax& Syntax() const { return syntax_; }

    // 0, VEK_NO_MORE_TOKENS or VEK_LEXICAL_ERROR (message() says why).
    [[nodiscard]] int Next(VEK_token& token);
    [[nodiscard]] int Peek(VEK_token& token);
    // Position of the next unread character.
    void GetPosition(int& line, int& column) const;
    const std::string& ErrorMessage() const { return error_; }
    int ErrorLine() const { return errorLine_; }
    int ErrorColumn() const { return errorColumn_; }

private:
    [[nodiscard]] int Scan(VEK_token& token);
    bool SkipSpaceAndComments();
    void Advance(size_t count);
    bool StartsWith(const char* prefix) const;
    bool IsWordChar(unsigned char c) const;
    bool ScanNumber(VEK_token& token);
    [[nodiscard]] int ScanString(VEK_token& token);
    int Fail(const char* message, int line, int column);

    VEK_tokenSyntax syntax_;
    std::string text_;
    size_t pos_ = 0;
    int line_ = 1;
    int column_ = 1;
    bool peeked_ = false;
    int peekResult_ = 0;
    VEK_token peek_;
    std::string error_;
    int errorLine_ = 0;
    int errorColumn_ = 0;
};

// A byte sink: a file or a caller's string. Writes never throw; a failure is
// remembered and reported by Close.
class VEK_textOutput {
public:
    VEK_textOutput() = default;
    ~VEK_textOutput();
    VEK_textOutput(const VEK_textOutput&) = delete;
    VEK_textOutput& operator=(const VEK_textOutput&) = delete;

    [[nodiscard]] bool OpenFile(const char* path);
    void SetString(std::string& out);
    bool IsOpen() const { return file_ || string_; }
    void Write(std::string_view text);
    void Write(const char* text) { Write(std::string_view(text ? text : "")); }
    void WriteChar(char c) { Write(std::string_view(&c, 1)); }
    void WriteInt(long long value);
    // "%.16g" text by default; precision 1..17.
    void WriteDouble(double value, int precision = 16);
    void Printf(const char* format, ...) __attribute__((format(printf, 2, 3)));
    // Flushes and closes; false when anything failed.
    [[nodiscard]] bool Close();
    bool Failed() const { return failed_; }

private:
    void Flush();
    FILE* file_ = nullptr;
    std::string* string_ = nullptr;
    std::string buffer_;
    bool failed_ = false;
};

// Layout of the list writers.
struct VEK_listStyle {
    const char* separator = " ";
    int perLine = 0;               // items per line; 0: one line
    const char* lineBreak = "\n";  // written after every perLine items (not after the last)
    const char* lineStart = "";    // written at the start of each continued line
    int precision = 16;            // WriteDoubleList
    bool quoted = false;           // WriteStringList: "..." with C escapes
};

class VEK_fileFormat {
public:
    explicit VEK_fileFormat(VEK_network& net);
    virtual ~VEK_fileFormat();
    VEK_fileFormat(const VEK_fileFormat&) = delete;
    VEK_fileFormat& operator=(const VEK_fileFormat&) = delete;

    [[nodiscard]] virtual int ReadNetwork(const char* path) = 0;
    [[nodiscard]] virtual int WriteNetwork(const char* path) = 0;
    // Formats without a string form return VEK_WRONG_NODE_TYPE (-51).
    [[nodiscard]] virtual int ReadNetworkFromString(const char* text);
    [[nodiscard]] virtual int WriteNetworkToString(std::string& out);
    // A caller-supplied extension (the XML format takes an XmlUserExtension);
    // ignored by default.
    virtual void SetUserExtension(void*) {}
    virtual bool SuppressAcyclic() const { return false; }
    virtual bool SuppressIdInUse() const { return false; }

    VEK_network& Network() const { return *net_; }
    VEK_logger& Logger() const;

    // ---- input ----
    // Reads the whole file; -100 (logged) when it cannot be read.
    [[nodiscard]] int OpenInput(const char* path);
    // The one whole-file read of the readers: the file's bytes into text,
    // and a logged status on failure (openFailure when the file cannot be
    // opened, -100 when it cannot be read, -42 when memory runs out). The
    // file is closed on every path. Also sets the file name for messages.
    [[nodiscard]] int ReadInputFile(const char* path, std::string& text, int openFailure = VEK_FILE_READ_ERROR);
    void SetInputText(std::string_view text);
    VEK_tokenizer& Tokenizer() { return tokens_; }
    // The file name used in messages (set by OpenInput; may be empty).
    const std::string& FileName() const { return fileName_; }
    void SetFileName(const char* name) { fileName_ = name ? name : ""; }

    [[nodiscard]] int GetToken(VEK_token& token);
    [[nodiscard]] int PeekToken(VEK_token& token);
    [[nodiscard]] int Match(const char* expected);
    bool TryMatch(const char* expected);
    int MatchError(const char* expected, const VEK_token& found);
    [[nodiscard]] int GetInteger(int& value);
    [[nodiscard]] int GetInteger(long long& value);
    [[nodiscard]] int GetDouble(double& value);
    [[nodiscard]] int GetWord(std::string& word);
    // A string, or a word when acceptWord.
    [[nodiscard]] int GetString(std::string& text, bool acceptWord = false);
    // Reads "keyword header... open": keyword is a word, header every token
    // up to the opener, which is consumed. VEK_NO_MORE_TOKENS at a clean end
    // of the input (nothing read).
    [[nodiscard]] int ReadStartBlock(VEK_token& keyword, std::vector<VEK_token>& header, const char* open = "{");
    // Skips every token up to and including the closer of the innermost open
    // block; brackets (), [] and {} nest.
    [[nodiscard]] int SkipBlock();
    // Reads "name assign value... terminator"; the value is every token up to
    // the terminator at bracket depth 0 (brackets included). Returns
    // VEK_BLOCK_END, consuming it, when the next token is closeBlock.
    [[nodiscard]] int ReadField(std::string& name, std::vector<VEK_token>& value, const char* assign = "=",
                  const char* terminator = ";", const char* closeBlock = "}");

    // Logs "Error at <line>, <column> while loading <file>: <message>" (the
    // file part only when a file name is known) and returns code. Without a
    // position the last token read gives it.
    int LogFileReadingError(int code, const std::string& message);
    int LogFileReadingError(int code, const std::string& message, int line, int column);
    // For formats of chance, decision and utility tables: logs refusal as
    // -2 and returns it when a node is an equation, a MAU node, temporal, or
    // a chance node without a table; 0 otherwise. Canonical nodes pass, as
    // their tables stand for them.
    [[nodiscard]] int CheckTablesOnly(const char* refusal);
    // format with its "%s" placeholders replaced in order ("%%" is one %).
    static std::string ComposeErrorMessage1(const char* format, const char* arg);
    static std::string ComposeErrorMessage2(const char* format, const char* arg1, const char* arg2);

    // ---- output ----
    // -101 (logged) when the file cannot be created.
    [[nodiscard]] int OpenOutput(const char* path);
    void SetOutputString(std::string& out);
    VEK_textOutput& Out() { return out_; }
    // 0, or -101 (logged) when a write failed.
    [[nodiscard]] int CloseOutput();
    void WriteStringList(const std::vector<std::string>& items, const VEK_listStyle& style = {});
    void WriteStringList(const VEK_stringArray& items, const VEK_listStyle& style = {});
    void WriteDoubleList(const double* values, int count, const VEK_listStyle& style = {});
    void WriteIntList(const int* values, int count, const VEK_listStyle& style = {});
    // A string between double quotes with C escapes.
    static void AppendQuoted(std::string& out, std::string_view text);

private:
    int LexicalError();
    void ListBreak(int index, const VEK_listStyle& style);

    VEK_network* net_;
    VEK_tokenizer tokens_;
    VEK_token last_;
    std::string fileName_;
    std::string outputPath_;
    VEK_textOutput out_;
};
