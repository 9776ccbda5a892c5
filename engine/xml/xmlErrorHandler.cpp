#include "xml/xmlErrorHandler.h"

#include <new>

#include "network/identifier.h"
#include "network/logger.h"
#include "network/status.h"

const char* GetDownloadNewVersionMessage() {
    return "A newer pyquarn release may read all of this file: upgrade with 'pip install --upgrade pyquarn'.";
}

void XmlErrorHandler::Init(const char* fileName, VEK_logger* logger) {
    hasFileName_ = fileName != nullptr;
    fileName_ = fileName ? fileName : "";
    unknownContent_ = false;
    logger_ = logger;
}

void XmlErrorHandler::AppendPosition(std::string& text, int line, int column) const {
    text += " at ";
    VEK_appendInt(text, line);
    text += ", ";
    VEK_appendInt(text, column);
    if (hasFileName_) {
        text += " while loading ";
        text += fileName_;
    }
}

void XmlErrorHandler::Log(int code, const std::string& text) {
    if (logger_) logger_->LogError(code, text.c_str());
}

void XmlErrorHandler::OnParseError(const char* message, int line, int column) {
    try {
        std::string text = "Error";
        AppendPosition(text, line, column);
        text += ": ";
        text += message ? message : "";
        Log(VEK_FILE_IO_FAILED, text);
    } catch (const std::bad_alloc&) {
        if (logger_) logger_->LogError(VEK_OUT_OF_MEMORY);
    }
}

void XmlErrorHandler::OnUnknownElement(const char* element, const char*, int line, int column) {
    unknownContent_ = true;
    try {
        std::string text = "Warning: Ignored unknown element '";
        text += element ? element : "";
        text += "'";
        AppendPosition(text, line, column);
        Log(VEK_FILE_READ_ERROR, text);
    } catch (const std::bad_alloc&) {
        if (logger_) logger_->LogError(VEK_OUT_OF_MEMORY);
    }
}

void XmlErrorHandler::OnUnknownAttribute(const char* element, const char* attribute, int line, int column) {
    unknownContent_ = true;
    try {
        std::string text = "Warning: Ignored unknown attribute '";
        text += attribute ? attribute : "";
        text += "' in '";
        text += element ? element : "";
        text += "'";
        AppendPosition(text, line, column);
        Log(VEK_FILE_READ_ERROR, text);
    } catch (const std::bad_alloc&) {
        if (logger_) logger_->LogError(VEK_OUT_OF_MEMORY);
    }
}

void XmlErrorHandler::CheckAndDisplayNewVerWarning() {
    if (!unknownContent_ || !logger_) return;
    try {
        std::string text = "XML contains unknown elements and/or attributes. ";
        text += GetDownloadNewVersionMessage();
        Log(VEK_FILE_READ_ERROR, text);
    } catch (const std::bad_alloc&) {
        logger_->LogError(VEK_OUT_OF_MEMORY);
    }
}
