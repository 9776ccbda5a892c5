// Common ground of the Ergo, Netica, Microsoft and KI speakers: a reader
// parses the file into a VEK_netDesc, which checks the whole network and
// builds it; a writer first decides whether the network can be expressed at
// all (so that a refused network creates no file) and then emits text.
//
// Every fault of a file is logged once, with its line and column, under
// VEK_FILE_READ_ERROR; a file that cannot be opened gives VEK_FILE_IO_FAILED.
#pragma once

#include <string>
#include <vector>

#include "formats/fileFormat.h"
#include "formats/netDesc.h"

class VEK_node;

class VEK_textSpeaker : public VEK_fileFormat, private VEK_descErrorSink {
public:
    // formatName: the format's name in the refusal message ("Ergo").
    VEK_textSpeaker(VEK_network& net, const char* formatName);

    [[nodiscard]] int ReadNetwork(const char* path) override;
    [[nodiscard]] int WriteNetwork(const char* path) override;
    [[nodiscard]] int ReadNetworkFromString(const char* text) override;
    [[nodiscard]] int WriteNetworkToString(std::string& out) override;
    // The network description checks ids and cycles for the whole file at once.
    bool SuppressAcyclic() const override { return true; }
    bool SuppressIdInUse() const override { return true; }

protected:
    // Reads the tokens of Tokenizer() into desc (adapt Tokenizer().Syntax()
    // first); 0 or a logged negative code.
    [[nodiscard]] virtual int Parse(VEK_netDesc& desc) = 0;
    // Runs after the network was built, for what the description does not
    // carry; handles[i] is the node made from desc.nodes[i].
    [[nodiscard]] virtual int Finish(const VEK_netDesc&, const std::vector<int>&) { return VEK_OKAY; }
    // Empty when the network can be written, else why not (a node's type).
    virtual std::string CheckWritable() = 0;
    // Appends the file's text to Text(); may call FlushText between parts.
    virtual void WriteText() = 0;

    // ---- reading: every failure is logged, positioned, as -100 ----
    // The next token; at the end of the input a token of kind End that
    // carries the end's position (and 0).
    [[nodiscard]] int Next(VEK_token& t);
    [[nodiscard]] int Peek(VEK_token& t);
    int Fail(const VEK_token& at, const std::string& message);
    int Fail(int line, int column, const std::string& message);
    int Fail(const VEK_descPos& pos, const std::string& message) { return Fail(pos.line, pos.column, message); }
    // "Expected 'x' but found ..." unless the next token is the symbol or word.
    [[nodiscard]] int Expect(const char* text);
    bool Accept(const char* text);
    [[nodiscard]] int ExpectNumber(double& value, VEK_token* where = nullptr);
    // "(x, y);" (the comma optional): a node's position, kept only when both
    // coordinates are sane, as it is presentation only.
    [[nodiscard]] int ExpectPosition(bool& has, int& x, int& y);
    // A non-negative integer no larger than limit.
    [[nodiscard]] int ExpectCount(long long limit, long long& value, const char* what);
    static VEK_descPos Pos(const VEK_token& t) { return VEK_descPos{t.line, t.column}; }
    static std::string Quote(const std::string& text) { return "'" + text + "'"; }

    // ---- writing ----
    std::string& Text() { return text_; }
    void FlushText();
    // The network's nodes in their order, and each handle's position there
    // (-1 for free slots): the numbering of formats that name nodes by index.
    void NumberNodes(std::vector<int>& handles, std::vector<int>& index);
    // The outcome counts of the nodes, space-separated (no line end).
    void AppendOutcomeCounts(const std::vector<int>& handles);
    // A node's table: its size on a line, then one line per parent
    // configuration, flushing as the text grows.
    void AppendTable(int handle);
    // Chance nodes of every kind (canonical ones are written by their
    // computed table).
    static bool IsChanceType(int type);
    // Why a format of chance nodes only cannot hold the node, or "".
    std::string ChanceOnlyReason(const VEK_node& node) const;
    const char* FormatName() const { return formatName_; }

private:
    [[nodiscard]] int Read(const std::string& defaultName);
    [[nodiscard]] int Write();
    void SpecError(int code, const VEK_descPos& pos, const std::string& message) override;
    int Refuse(const std::string& reason);

    const char* formatName_;
    std::string text_;
};

// Base name of a path without directory and extension ("" for none).
std::string VEK_pathStem(const char* path);
