#include "xml/xmlReader.h"

#include <expat.h>
#include <locale.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "network/identifier.h"

namespace {

constexpr int kChunkSize = 4096;
constexpr int kMaxChunkSize = 1 << 24;

// isspace of the "C" locale; bytes of 0x80 and above are never spaces, so
// UTF-8 text is never split.
inline bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

locale_t CLocale() {
    static locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return locale;
}

std::string Quoted(const char* before, const char* name, const char* after) {
    std::string text = before;
    text += name ? name : "";
    text += after;
    return text;
}

}  // namespace

// expat calls C functions; these forward to the reader and keep every C++
// exception from unwinding through expat.
struct XmlReaderCallbacks {
    static void XMLCALL Start(void* user, const XML_Char* name, const XML_Char** attrs) {
        auto* reader = static_cast<XmlReader*>(user);
        ++reader->events_;
        try {
            reader->OnStartElement(name, attrs);
        } catch (const std::bad_alloc&) {
            reader->outOfMemory_ = true;
            reader->ReportError("Out of memory");
        } catch (...) {
            reader->ReportError("Unexpected failure while reading an element");
        }
    }
    static void XMLCALL End(void* user, const XML_Char* name) {
        auto* reader = static_cast<XmlReader*>(user);
        ++reader->events_;
        try {
            reader->OnEndElement(name);
        } catch (const std::bad_alloc&) {
            reader->outOfMemory_ = true;
            reader->ReportError("Out of memory");
        } catch (...) {
            reader->ReportError("Unexpected failure while reading an element");
        }
    }
    static void XMLCALL Text(void* user, const XML_Char* text, int length) {
        auto* reader = static_cast<XmlReader*>(user);
        ++reader->events_;
        try {
            reader->OnCharacterData(text, length);
        } catch (const std::bad_alloc&) {
            reader->outOfMemory_ = true;
            reader->ReportError("Out of memory");
        } catch (...) {
            reader->ReportError("Unexpected failure while reading text");
        }
    }
};

XmlReader::~XmlReader() {
    if (parser_) XML_ParserFree(parser_);
}

bool XmlReader::ParseFile(const char* path, const IXmlBinding* root, IXmlErrorHandler* errors) {
    FILE* file = VEK_fopen(path, "rb");
    if (!file) {
        if (errors) {
            try {
                errors->OnParseError(Quoted("Can't open file ", path, "").c_str(), 0, 0);
            } catch (...) {
                errors->OnParseError("Can't open file", 0, 0);
            }
        }
        return false;
    }
    XmlInputFileStream stream(file);
    bool ok = ParseStream(&stream, root, errors);
    std::fclose(file);
    return ok;
}

bool XmlReader::ParseString(const char* text, const IXmlBinding* root, IXmlErrorHandler* errors) {
    if (!text) text = "";
    XmlInputStringStream stream(text, text + std::strlen(text));
    return ParseStream(&stream, root, errors);
}

bool XmlReader::ParseStream(IXmlInputStream* stream, const IXmlBinding* root, IXmlErrorHandler* errors) {
    if (parser_) return false;  // a handler may not start a nested parse on the same reader
    root_ = root;
    errors_ = errors;
    stopped_ = false;
    outOfMemory_ = false;
    attrs_ = nullptr;
    depth_ = 0;
    top_ = nullptr;
    bool ok = false;
    if (!stream || !root) {
        ReportError("No document or schema to read");
    } else if (!(parser_ = XML_ParserCreate(nullptr))) {
        ReportError("Out of memory");
    } else {
        XML_SetUserData(parser_, this);
        XML_SetElementHandler(parser_, XmlReaderCallbacks::Start, XmlReaderCallbacks::End);
        XML_SetCharacterDataHandler(parser_, XmlReaderCallbacks::Text);
        // Input goes to expat in 4096-byte chunks. expat gives no events
        // while it is inside one token (a huge attribute or tag) and rescans
        // that token from its start on every call, which is quadratic in its
        // length; so while a chunk brings no event at all, the next one is
        // twice as large, and the size drops back once events flow again.
        char chunk[kChunkSize];
        std::vector<char> largeChunk;
        int request = kChunkSize;
        for (;;) {
            char* buffer = request == kChunkSize ? chunk : largeChunk.data();
            int n = stream->GetData(buffer, request);
            if (n < 0) n = 0;
            if (n > request) n = request;
            bool last = n < request;  // a short read is the final chunk
            events_ = 0;
            if (XML_Parse(parser_, buffer, n, last) == XML_STATUS_ERROR) {
                // After our own stop expat may still trip over the rest of
                // the chunk; only the first error is reported.
                if (!stopped_) {
                    const XML_LChar* message = XML_ErrorString(XML_GetErrorCode(parser_));
                    ReportError(message ? message : "XML syntax error");
                }
                break;
            }
            if (stopped_) break;
            if (last) {
                ok = true;
                break;
            }
            if (events_ > 0) {
                request = kChunkSize;
            } else if (request < kMaxChunkSize) {
                try {
                    largeChunk.resize(static_cast<size_t>(request) * 2);
                    request *= 2;
                } catch (const std::bad_alloc&) {
                    // keep the current size: slower, still correct
                }
            }
        }
        XML_ParserFree(parser_);
        parser_ = nullptr;
    }
    states_.clear();
    depth_ = 0;
    top_ = nullptr;
    attrs_ = nullptr;
    errors_ = nullptr;
    root_ = nullptr;
    if (outOfMemory_) throw std::bad_alloc();
    return ok;
}

void XmlReader::StopParse(const char* message) { ReportError(message ? message : ""); }

void XmlReader::ReportError(const char* message) {
    if (stopped_) return;  // the first error ends the parse; later ones are consequences
    stopped_ = true;
    if (parser_) {
        XML_SetElementHandler(parser_, nullptr, nullptr);
        XML_SetCharacterDataHandler(parser_, nullptr);
    }
    if (errors_) {
        int line = 0;
        int column = 0;
        GetCurrentPosition(line, column);
        errors_->OnParseError(message, line, column);
    }
}

void XmlReader::GetCurrentPosition(int& line, int& column) const {
    if (parser_) {
        line = static_cast<int>(XML_GetCurrentLineNumber(parser_));
        column = static_cast<int>(XML_GetCurrentColumnNumber(parser_));
    } else {
        line = 0;
        column = 0;
    }
}

void XmlReader::PushState(const IXmlBinding* binding, int mode) {
    if (depth_ == states_.size()) states_.emplace_back();
    BindingState& state = states_[depth_++];
    top_ = &state;
    state.binding = binding;
    state.handler = binding ? binding->GetHandler() : nullptr;
    state.isList = state.handler && state.handler->ContainsList();
    state.seenChildren.Clear();
    state.content.clear();
    state.mode = mode;
}

void XmlReader::OnStartElement(const char* name, const char** attrs) {
    if (stopped_) return;
    const IXmlBinding* binding = nullptr;
    int parentMode = XmlModeStrict;
    if (depth_ == 0) {
        if (std::strcmp(name, root_->GetName()) != 0) {
            std::string message = Quoted("Unknown root element '", name, "', expected '");
            message += root_->GetName();
            message += "'";
            ReportError(message);
            return;
        }
        binding = root_;
    } else {
        BindingState& parent = states_[depth_ - 1];
        if (!parent.binding) {
            PushState(nullptr, parent.mode);  // inside a skipped element: skip silently
            return;
        }
        int flags = 0;
        binding = parent.binding->FindChild(name, &flags);
        if (binding) {
            if (!parent.seenChildren.Insert(name) && !(flags & XmlChildMayRepeat)) {
                std::string message = Quoted("Multiple occurences of '", name, "' not allowed in '");
                message += parent.binding->GetName();
                message += "'";
                ReportError(message);
                return;
            }
        } else if (parent.mode & XmlModeStrictChildren) {
            std::string message = Quoted("Unknown element '", name, "' in '");
            message += parent.binding->GetName();
            message += "'";
            ReportError(message);
            return;
        } else {
            if (errors_) {
                int line = 0;
                int column = 0;
                GetCurrentPosition(line, column);
                errors_->OnUnknownElement(name, parent.binding->GetName(), line, column);
            }
            PushState(nullptr, parent.mode);
            return;
        }
        parentMode = parent.mode;
    }

    int mode = binding->GetMode();
    if (mode == XmlModeInherit) mode = parentMode;
    if (!ValidateAttributes(binding, name, attrs, mode)) return;
    if (IXmlHandler* handler = binding->GetHandler()) {
        // expat owns attrs only for the duration of this callback.
        attrs_ = attrs;
        handler->OnStartElement(this);
        attrs_ = nullptr;
        if (stopped_) return;
    }
    PushState(binding, mode);
}

bool XmlReader::ValidateAttributes(const IXmlBinding* binding, const char* element, const char** attrs,
                                   int mode) {
    if (const char* missing = binding->FindMissingAttribute(attrs)) {
        std::string message = Quoted("Required attribute '", missing, "' not found in element '");
        message += element;
        message += "'";
        ReportError(message);
        return false;
    }
    for (const char** attr = attrs; attr && attr[0]; attr += 2) {
        if (binding->FindAttribute(attr[0])) continue;
        if (mode & XmlModeStrictAttributes) {
            std::string message = Quoted("Unknown attribute '", attr[0], "' in element '");
            message += element;
            message += "'";
            ReportError(message);
            return false;
        }
        if (errors_) {
            int line = 0;
            int column = 0;
            GetCurrentPosition(line, column);
            errors_->OnUnknownAttribute(element, attr[0], line, column);
        }
    }
    return true;
}

void XmlReader::OnEndElement(const char* name) {
    if (stopped_ || depth_ == 0) return;
    BindingState& state = states_[depth_ - 1];
    if (state.binding) {
        if (state.isList && !state.content.empty()) {
            state.handler->OnListItem(this);
            if (stopped_) return;
            state.content.clear();
        }
        if (state.handler) {
            state.handler->OnEndElement(this);
            if (stopped_) return;
        }
        if (const char* missing = state.binding->FindMissingChild(state.seenChildren)) {
            std::string message = Quoted("Required element '", missing, "' not present in element '");
            message += name;
            message += "'";
            ReportError(message);
            return;
        }
    }
    --depth_;
    top_ = depth_ > 0 ? &states_[depth_ - 1] : nullptr;
}

void XmlReader::OnCharacterData(const char* text, int length) {
    if (stopped_ || depth_ == 0 || length <= 0) return;
    BindingState& state = states_[depth_ - 1];
    // Only a handler can read the content; skipped elements and elements
    // without handlers keep none.
    if (!state.handler) return;
    std::string& content = state.content;
    const char* p = text;
    const char* end = text + length;
    if (!state.isList) {
        size_t needed = content.size() + static_cast<size_t>(length);
        if (needed > content.capacity()) content.reserve(std::max(needed, 2 * content.capacity()));
        content.append(p, end);
        return;
    }
    // List: hand out whitespace-separated items one at a time. An item cut by
    // the end of this piece of text stays in the content and is continued by
    // the next piece.
    while (p < end) {
        if (content.empty()) {
            while (p < end && IsSpace(*p)) ++p;
            if (p == end) break;
        }
        const char* tokenStart = p;
        while (p < end && !IsSpace(*p)) ++p;
        content.append(tokenStart, p);
        if (p == end) break;
        state.handler->OnListItem(this);
        if (stopped_) return;
        content.clear();
    }
}

const std::string& XmlReader::GetContent() const { return top_ ? top_->content : noContent_; }

void XmlReader::GetUnescapedContent(std::string& out) const {
    const std::string& content = GetContent();
    out.clear();
    out.reserve(content.size());
    const size_t n = content.size();
    for (size_t i = 0; i < n; ++i) {
        char c = content[i];
        if (c == '\\' && i + 1 < n) {
            char next = content[++i];
            out += next == 'n' ? '\n' : next == 't' ? '\t' : next;
        } else {
            out += c;
        }
    }
}

const char* XmlReader::GetRawAttribute(const char* name) const {
    if (!name) return nullptr;
    for (const char** attr = attrs_; attr && attr[0]; attr += 2) {
        if (std::strcmp(attr[0], name) == 0) return attr[1];
    }
    return nullptr;
}

void XmlReader::GetAttribute(const char* name, std::string& value) const {
    const char* raw = GetRawAttribute(name);
    value.assign(raw ? raw : "");
}

bool XmlReader::GetAttribute(const char* name, bool& value, bool defaultValue) {
    const char* raw = GetRawAttribute(name);
    value = defaultValue;
    if (!raw) return true;
    if (std::strcmp(raw, "true") == 0) {
        value = true;
        return true;
    }
    if (std::strcmp(raw, "false") == 0) {
        value = false;
        return true;
    }
    ReportError(Quoted("'true' or 'false' expected as value of boolean attribute '", name, "'"));
    return false;
}

// Numbers are read leniently: a non-zero numeric prefix is taken as the
// value (12abc gives 12). Only a zero result must be the whole text, which is
// what tells a real zero from text that is not a number at all.
bool XmlReader::GetAttribute(const char* name, int& value, int defaultValue) {
    const char* raw = GetRawAttribute(name);
    value = defaultValue;
    if (!raw) return true;
    char* end = nullptr;
    long number = std::strtol(raw, &end, 10);
    if (number == 0 && *end != '\0') {
        ReportError(Quoted("Integer value expected for attribute '", name, "'"));
        return false;
    }
    value = static_cast<int>(number);
    return true;
}

bool XmlReader::GetAttribute(const char* name, double& value, double defaultValue) {
    const char* raw = GetRawAttribute(name);
    value = defaultValue;
    if (!raw) return true;
    char* end = nullptr;
    double number = XmlParseDouble(raw, &end);
    if (number == 0.0 && *end != '\0') {
        ReportError(Quoted("Floating point value expected for attribute '", name, "'"));
        return false;
    }
    value = number;
    return true;
}

XmlBinding* XmlReader::CreateBinding(IXmlHandler* handler, const char* name, int mode) {
    try {
        return new XmlBinding(handler, name, mode);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

bool CheckVersion(IXmlReader* reader, const char* fileVersion, const char* supportedVersion) {
    if (!fileVersion) fileVersion = "";
    if (!supportedVersion) supportedVersion = "";
    if (XmlParseDouble(fileVersion, nullptr) <= XmlParseDouble(supportedVersion, nullptr)) return true;
    if (reader) {
        try {
            std::string message = Quoted("Invalid version number '", fileVersion, "', expected ");
            message += supportedVersion;
            message += "\n";
            message += GetDownloadNewVersionMessage();
            reader->StopParse(message.c_str());
        } catch (const std::bad_alloc&) {
            reader->StopParse("Invalid version number");
        }
    }
    return false;
}

double XmlParseDouble(const char* text, char** end) {
    if (!text) {
        if (end) *end = nullptr;
        return 0.0;
    }
    const char* p = text;
    while (IsSpace(*p)) ++p;
    const char* first = *p == '+' ? p + 1 : p;  // from_chars takes no '+'
    if (first == p || (*first != '-' && *first != '+')) {
        // Look at most kMaxFastLength bytes ahead so that walking a long text
        // number by number stays linear; longer numbers go to strtod.
        constexpr int kMaxFastLength = 128;
        int length = 0;
        while (length < kMaxFastLength && first[length] && !IsSpace(first[length])) ++length;
        const char* last = first + length;
        double value = 0.0;
        std::from_chars_result r = std::from_chars(first, last, value);
        // Hexadecimal numbers and values out of range are left to strtod too.
        bool cut = r.ptr == last && length == kMaxFastLength;
        if (r.ec == std::errc() && *r.ptr != 'x' && *r.ptr != 'X' && !cut) {
            if (end) *end = const_cast<char*>(r.ptr);
            return value;
        }
    }
    if (locale_t c = CLocale()) return strtod_l(text, end, c);
    return std::strtod(text, end);
}
