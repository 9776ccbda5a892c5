// XML reader: drives expat over a byte stream in 4096-byte chunks, checks the
// document against a tree of bindings as it goes, and hands attributes and
// text to the bindings' handlers.
#pragma once

#include <cstddef>
#include <deque>
#include <string>

#include "xml/xmlBinding.h"
#include "xml/xmlErrorHandler.h"
#include "xml/xmlHandler.h"
#include "xml/xmlInputStream.h"

struct XML_ParserStruct;

class IXmlReader {
public:
    [[nodiscard]] virtual bool ParseFile(const char* path, const IXmlBinding* root, IXmlErrorHandler* errors) = 0;
    [[nodiscard]] virtual bool ParseString(const char* text, const IXmlBinding* root, IXmlErrorHandler* errors) = 0;
    [[nodiscard]] virtual bool ParseStream(IXmlInputStream* stream, const IXmlBinding* root, IXmlErrorHandler* errors) = 0;
    // Reports message at the current position and ends the parse (false).
    virtual void StopParse(const char* message) = 0;
    virtual void GetCurrentPosition(int& line, int& column) const = 0;
    // Text of the current element; inside a list element, the current item.
    virtual const std::string& GetContent() const = 0;
    // The content with \n, \t and \<char> escapes undone.
    virtual void GetUnescapedContent(std::string& out) const = 0;
    // Attributes can be read only while the element's OnStartElement runs.
    // The string form gives the raw value, or "" when absent.
    virtual void GetAttribute(const char* name, std::string& value) const = 0;
    // Typed forms: an absent attribute gives the default; a malformed one
    // stops the parse and returns false.
    [[nodiscard]] virtual bool GetAttribute(const char* name, bool& value, bool defaultValue) = 0;
    [[nodiscard]] virtual bool GetAttribute(const char* name, int& value, int defaultValue) = 0;
    [[nodiscard]] virtual bool GetAttribute(const char* name, double& value, double defaultValue) = 0;
    // A new binding, owned by the caller (release it with Delete); null when
    // out of memory.
    virtual XmlBinding* CreateBinding(IXmlHandler* handler, const char* name, int mode) = 0;
    virtual void Delete() = 0;
    virtual ~IXmlReader() = default;
};

class XmlReader : public IXmlReader {
public:
    XmlReader() = default;
    ~XmlReader() override;
    XmlReader(const XmlReader&) = delete;
    XmlReader& operator=(const XmlReader&) = delete;

    [[nodiscard]] bool ParseFile(const char* path, const IXmlBinding* root, IXmlErrorHandler* errors) override;
    [[nodiscard]] bool ParseString(const char* text, const IXmlBinding* root, IXmlErrorHandler* errors) override;
    [[nodiscard]] bool ParseStream(IXmlInputStream* stream, const IXmlBinding* root, IXmlErrorHandler* errors) override;
    void StopParse(const char* message) override;
    void GetCurrentPosition(int& line, int& column) const override;
    const std::string& GetContent() const override;
    void GetUnescapedContent(std::string& out) const override;
    void GetAttribute(const char* name, std::string& value) const override;
    [[nodiscard]] bool GetAttribute(const char* name, bool& value, bool defaultValue) override;
    [[nodiscard]] bool GetAttribute(const char* name, int& value, int defaultValue) override;
    [[nodiscard]] bool GetAttribute(const char* name, double& value, double defaultValue) override;
    XmlBinding* CreateBinding(IXmlHandler* handler, const char* name, int mode) override;
    void Delete() override { delete this; }

    // Value of the first attribute named exactly name, or null.
    const char* GetRawAttribute(const char* name) const;

    // One open element.
    struct BindingState {
        const IXmlBinding* binding = nullptr;  // null: the element is skipped
        IXmlHandler* handler = nullptr;        // binding's handler, cached
        bool isList = false;                   // handler->ContainsList(), cached
        XmlNameSet seenChildren;
        std::string content;
        int mode = 0;  // effective validation mode
    };

private:
    friend struct XmlReaderCallbacks;

    void OnStartElement(const char* name, const char** attrs);
    void OnEndElement(const char* name);
    void OnCharacterData(const char* text, int length);
    [[nodiscard]] bool ValidateAttributes(const IXmlBinding* binding, const char* element, const char** attrs, int mode);
    void PushState(const IXmlBinding* binding, int mode);
    void ReportError(const char* message);
    void ReportError(const std::string& message) { ReportError(message.c_str()); }

    const IXmlBinding* root_ = nullptr;
    XML_ParserStruct* parser_ = nullptr;
    IXmlErrorHandler* errors_ = nullptr;
    const char** attrs_ = nullptr;
    bool stopped_ = false;
    // A callback ran out of memory: the parse ends and ParseStream throws
    // std::bad_alloc, so that callers do not report a damaged file.
    bool outOfMemory_ = false;
    int events_ = 0;  // callbacks during the current chunk
    // The open elements are states_[0 .. depth_-1]; states above depth_ are
    // kept between elements so their buffers are reused.
    std::deque<BindingState> states_;
    size_t depth_ = 0;
    // states_[depth_ - 1], kept at hand for the item-by-item calls; a deque
    // keeps its elements in place as it grows.
    BindingState* top_ = nullptr;
    const std::string noContent_;
};

// Fails (through reader->StopParse) when fileVersion is a greater number than
// supportedVersion; equal or smaller versions pass.
[[nodiscard]] bool CheckVersion(IXmlReader* reader, const char* fileVersion, const char* supportedVersion);

// strtod in the "C" locale whatever the process locale is, with a fast path
// for plain decimal numbers. For loaders that read numeric list items.
double XmlParseDouble(const char* text, char** end);
