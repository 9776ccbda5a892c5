// XML writer: indented (one tab per level), escaped output with one number
// format ("%.16g" doubles, decimal ints, "true"/"false").
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "xml/xmlWriterOutput.h"

class IXmlWriter {
public:
    virtual void SetOutput(IXmlWriterOutput* output) = 0;
    // Opens an element that will hold child elements.
    virtual void OpenElement(const char* name) = 0;
    virtual void CloseElement(const char* name) = 0;
    // A null text gives an empty element. escapeControls writes tab, newline
    // and backslash as \t, \n and \\ and drops carriage returns.
    virtual void WriteElement(const char* name, const char* text, bool escapeControls = false) = 0;
    // Attributes pushed belong to the next element opened or written.
    virtual void PushAttribute(const char* name, const char* value) = 0;
    virtual void PushAttribute(const char* name, int value) = 0;
    virtual void PushAttribute(const char* name, bool value) = 0;
    virtual void PushAttribute(const char* name, double value) = 0;
    virtual void Delete() = 0;
    virtual ~IXmlWriter() = default;

    // Opens an element for the lifetime of a scope.
    class ScopedElement {
    public:
        ScopedElement(IXmlWriter* writer, const char* name) : writer_(writer), name_(name ? name : "") {
            if (writer_) writer_->OpenElement(name_.c_str());
        }
        ~ScopedElement() {
            if (writer_) writer_->CloseElement(name_.c_str());
        }
        ScopedElement(const ScopedElement&) = delete;
        ScopedElement& operator=(const ScopedElement&) = delete;

    private:
        IXmlWriter* writer_;
        std::string name_;
    };
};

// Lets a client add its own subtree (and a top comment) to a document that
// another saver writes.
class IXmlWriterExtension {
public:
    // Writes the extension's elements at the writer's current position.
    virtual void Write(IXmlWriter* writer) = 0;
    // Text of a comment line put before the document element, or null.
    virtual const char* GetTopComment() const { return nullptr; }
    virtual void Delete() { delete this; }
    virtual ~IXmlWriterExtension() = default;
};

class XmlWriter : public IXmlWriter {
public:
    XmlWriter() = default;
    explicit XmlWriter(IXmlWriterOutput* output) : output_(output) {}
    XmlWriter(const XmlWriter&) = delete;
    XmlWriter& operator=(const XmlWriter&) = delete;

    void SetOutput(IXmlWriterOutput* output) override { output_ = output; }
    void OpenElement(const char* name) override;
    void CloseElement(const char* name) override;
    void WriteElement(const char* name, const char* text, bool escapeControls = false) override;
    void PushAttribute(const char* name, const char* value) override;
    void PushAttribute(const char* name, int value) override;
    void PushAttribute(const char* name, bool value) override;
    void PushAttribute(const char* name, double value) override;
    void Delete() override { delete this; }

    // Resets the indentation; with writeDeclaration writes the XML declaration.
    void Start(bool writeDeclaration);
    // The declaration followed by a stylesheet instruction.
    void StartWithXsl(const char* href);
    // The declaration followed by a document type declaration.
    void StartWithDTD(const char* rootName, const char* systemId);
    // Values separated by single spaces; when specialText is not null, a value
    // equal to specialValue is written as specialText.
    void WriteDoubleArray(const char* name, const double* values, int count, const char* specialText = nullptr,
                          double specialValue = 0.0);
    void WriteIntArray(const char* name, const int* values, int count);
    // Strings separated by single spaces, written without escaping.
    void WriteStringArray(const char* name, const char* const* values, int count);
    // The text is written as it is.
    void WriteComment(const char* text);

    int GetIndentLevel() const { return level_; }
    // True once any write to the output failed (or there was no output).
    bool HasOutputFailed() const { return failed_; }
    // The failure was exhausted memory, not the output.
    bool RanOutOfMemory() const { return outOfMemory_; }

private:
    template <class F>
    void Guarded(F&& body);
    void Indent();
    void BeginTag(const char* name);
    void EndInline(const char* name);
    void WriteContent(const char* text, bool escapeControls);
    void AppendDouble(double value);
    void AppendInt(int value);
    void FlushIfLarge();
    void Flush();

    IXmlWriterOutput* output_ = nullptr;
    std::vector<std::pair<std::string, std::string>> pending_;
    int level_ = 0;
    // Text is assembled here and handed to the output once per operation
    // (or every few tens of kilobytes inside long arrays).
    std::string buffer_;
    bool failed_ = false;
    bool outOfMemory_ = false;
};
