// Byte sinks of the XML writer: a file or a caller's string.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

class IXmlWriterOutput {
public:
    [[nodiscard]] virtual bool WriteString(const char* text) = 0;
    [[nodiscard]] virtual bool WriteChar(char c) = 0;
    virtual void Delete() { delete this; }
    virtual ~IXmlWriterOutput() = default;
};

class XmlWriterFileOutput : public IXmlWriterOutput {
public:
    XmlWriterFileOutput() = default;
    ~XmlWriterFileOutput() override { (void)Close(); }  // nobody is left to tell
    XmlWriterFileOutput(const XmlWriterFileOutput&) = delete;
    XmlWriterFileOutput& operator=(const XmlWriterFileOutput&) = delete;

    // Creates or truncates path for writing; false when it cannot.
    [[nodiscard]] bool Open(const char* path);
    // Flushes and closes; false when the file was not open or any write or
    // the close itself failed.
    [[nodiscard]] bool Close();
    bool IsOpen() const { return file_ != nullptr; }

    [[nodiscard]] bool WriteString(const char* text) override;
    [[nodiscard]] bool WriteChar(char c) override;

private:
    FILE* file_ = nullptr;
    std::unique_ptr<char[]> buffer_;  // stdio buffer, released after fclose
    bool failed_ = false;
};

class XmlWriterStringOutput : public IXmlWriterOutput {
public:
    explicit XmlWriterStringOutput(std::string& out) : out_(out) {}
    [[nodiscard]] bool WriteString(const char* text) override;
    [[nodiscard]] bool WriteChar(char c) override;

private:
    std::string& out_;
};
