// Receivers of parse errors and warnings, and the standard one that writes
// them to the engine's logger with the position and the file name.
#pragma once

#include <string>

class VEK_logger;

class IXmlErrorHandler {
public:
    virtual void OnParseError(const char* message, int line, int column) = 0;
    virtual void OnUnknownElement(const char* element, const char* parent, int line, int column) = 0;
    virtual void OnUnknownAttribute(const char* element, const char* attribute, int line, int column) = 0;
    virtual void Delete() { delete this; }
    virtual ~IXmlErrorHandler() = default;
};

class XmlErrorHandler : public IXmlErrorHandler {
public:
    XmlErrorHandler() = default;
    XmlErrorHandler(const char* fileName, VEK_logger* logger) { Init(fileName, logger); }

    // fileName may be null (parsing a string); logger may be null (nothing is
    // logged, the unknown-content flag still works).
    void Init(const char* fileName, VEK_logger* logger);

    void OnParseError(const char* message, int line, int column) override;
    void OnUnknownElement(const char* element, const char* parent, int line, int column) override;
    void OnUnknownAttribute(const char* element, const char* attribute, int line, int column) override;

    bool HasUnknownContent() const { return unknownContent_; }
    // Logs one advice line when unknown elements or attributes were skipped.
    void CheckAndDisplayNewVerWarning();

private:
    void AppendPosition(std::string& text, int line, int column) const;
    void Log(int code, const std::string& text);

    std::string fileName_;
    bool hasFileName_ = false;
    bool unknownContent_ = false;
    VEK_logger* logger_ = nullptr;
};

// One line telling the user to get a newer release of the module.
const char* GetDownloadNewVersionMessage();
