#include "xml/xmlWriter.h"

#include <charconv>
#include <new>

namespace {

constexpr size_t kFlushThreshold = 64 * 1024;

// Same text as printf("%.16g"), several times faster.
size_t FormatDouble(char* out, size_t size, double value) {
    std::to_chars_result r = std::to_chars(out, out + size, value, std::chars_format::general, 16);
    return static_cast<size_t>(r.ptr - out);
}

size_t FormatInt(char* out, size_t size, int value) {
    std::to_chars_result r = std::to_chars(out, out + size, value);
    return static_cast<size_t>(r.ptr - out);
}

// Bytes that plain escaping passes through unchanged: everything from the
// space up, bytes of 0x80 and above included, except the five markup
// characters.
struct PlainTable {
    bool plain[256];
    constexpr PlainTable() : plain() {
        for (int c = 0; c < 256; ++c) plain[c] = c >= 32;
        plain[static_cast<unsigned char>('<')] = false;
        plain[static_cast<unsigned char>('>')] = false;
        plain[static_cast<unsigned char>('&')] = false;
        plain[static_cast<unsigned char>('"')] = false;
        plain[static_cast<unsigned char>('\'')] = false;
    }
};
constexpr PlainTable kPlain;

}  // namespace

template <class F>
void XmlWriter::Guarded(F&& body) {
    try {
        body();
    } catch (const std::bad_alloc&) {
        buffer_.clear();
        failed_ = true;
        outOfMemory_ = true;
    }
}

void XmlWriter::Flush() {
    if (buffer_.empty()) return;
    if (!output_ || !output_->WriteString(buffer_.c_str())) failed_ = true;
    buffer_.clear();
}

void XmlWriter::FlushIfLarge() {
    if (buffer_.size() >= kFlushThreshold) Flush();
}

void XmlWriter::Indent() {
    if (level_ > 0) buffer_.append(static_cast<size_t>(level_), '\t');
}

void XmlWriter::BeginTag(const char* name) {
    Indent();
    buffer_ += '<';
    buffer_ += name ? name : "";
    for (const auto& [attrName, value] : pending_) {
        buffer_ += ' ';
        buffer_ += attrName;
        buffer_ += "=\"";
        WriteContent(value.c_str(), false);
        buffer_ += '"';
    }
    pending_.clear();
}

void XmlWriter::EndInline(const char* name) {
    buffer_ += "</";
    buffer_ += name ? name : "";
    buffer_ += ">\n";
}

void XmlWriter::WriteContent(const char* text, bool escapeControls) {
    if (!text) return;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* run = p;
    for (;; ++p) {
        unsigned char c = *p;
        if (kPlain.plain[c] && !(c == '\\' && escapeControls)) continue;
        if (c == 0) break;
        buffer_.append(reinterpret_cast<const char*>(run), static_cast<size_t>(p - run));
        run = p + 1;
        switch (c) {
            case '<': buffer_ += "&lt;"; break;
            case '>': buffer_ += "&gt;"; break;
            case '&': buffer_ += "&amp;"; break;
            case '"': buffer_ += "&quot;"; break;
            case '\'': buffer_ += "&apos;"; break;
            case '\\': buffer_ += "\\\\"; break;
            case '\t': buffer_ += escapeControls ? "\\t" : "."; break;
            case '\n': buffer_ += escapeControls ? "\\n" : "."; break;
            case '\r':
                if (!escapeControls) buffer_ += '.';
                break;
            default: buffer_ += '.'; break;
        }
    }
    buffer_.append(reinterpret_cast<const char*>(run), static_cast<size_t>(p - run));
}

void XmlWriter::AppendDouble(double value) {
    char text[64];
    buffer_.append(text, FormatDouble(text, sizeof text, value));
}

void XmlWriter::AppendInt(int value) {
    char text[16];
    buffer_.append(text, FormatInt(text, sizeof text, value));
}

void XmlWriter::Start(bool writeDeclaration) {
    Guarded([&] {
        level_ = 0;
        pending_.clear();
        if (writeDeclaration) buffer_ += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
        Flush();
    });
}

void XmlWriter::StartWithXsl(const char* href) {
    Start(true);
    Guarded([&] {
        buffer_ += "<?xml-stylesheet type=\"text/xsl\" href=\"";
        buffer_ += href ? href : "";
        buffer_ += "\"?>\n";
        Flush();
    });
}

void XmlWriter::StartWithDTD(const char* rootName, const char* systemId) {
    Start(true);
    Guarded([&] {
        buffer_ += "<!DOCTYPE ";
        buffer_ += rootName ? rootName : "";
        buffer_ += " SYSTEM \"";
        buffer_ += systemId ? systemId : "";
        buffer_ += "\">\n";
        Flush();
    });
}

void XmlWriter::OpenElement(const char* name) {
    Guarded([&] {
        BeginTag(name);
        buffer_ += ">\n";
        ++level_;
        Flush();
    });
}

void XmlWriter::CloseElement(const char* name) {
    Guarded([&] {
        if (level_ > 0) --level_;
        Indent();
        EndInline(name);
        Flush();
    });
}

void XmlWriter::WriteElement(const char* name, const char* text, bool escapeControls) {
    Guarded([&] {
        BeginTag(name);
        if (!text) {
            buffer_ += " />\n";
        } else {
            buffer_ += '>';
            WriteContent(text, escapeControls);
            EndInline(name);
        }
        Flush();
    });
}

void XmlWriter::PushAttribute(const char* name, const char* value) {
    Guarded([&] { pending_.emplace_back(name ? name : "", value ? value : ""); });
}

void XmlWriter::PushAttribute(const char* name, int value) {
    Guarded([&] {
        char text[16];
        pending_.emplace_back(name ? name : "", std::string(text, FormatInt(text, sizeof text, value)));
    });
}

void XmlWriter::PushAttribute(const char* name, bool value) {
    Guarded([&] { pending_.emplace_back(name ? name : "", value ? "true" : "false"); });
}

void XmlWriter::PushAttribute(const char* name, double value) {
    Guarded([&] {
        char text[64];
        pending_.emplace_back(name ? name : "", std::string(text, FormatDouble(text, sizeof text, value)));
    });
}

void XmlWriter::WriteDoubleArray(const char* name, const double* values, int count, const char* specialText,
                                 double specialValue) {
    Guarded([&] {
        BeginTag(name);
        buffer_ += '>';
        for (int i = 0; values && i < count; ++i) {
            if (i > 0) buffer_ += ' ';
            if (specialText && values[i] == specialValue) {
                buffer_ += specialText;
            } else {
                AppendDouble(values[i]);
            }
            FlushIfLarge();
        }
        EndInline(name);
        Flush();
    });
}

void XmlWriter::WriteIntArray(const char* name, const int* values, int count) {
    Guarded([&] {
        BeginTag(name);
        buffer_ += '>';
        for (int i = 0; values && i < count; ++i) {
            if (i > 0) buffer_ += ' ';
            AppendInt(values[i]);
            FlushIfLarge();
        }
        EndInline(name);
        Flush();
    });
}

void XmlWriter::WriteStringArray(const char* name, const char* const* values, int count) {
    Guarded([&] {
        BeginTag(name);
        buffer_ += '>';
        for (int i = 0; values && i < count; ++i) {
            if (i > 0) buffer_ += ' ';
            if (values[i]) buffer_ += values[i];
            FlushIfLarge();
        }
        EndInline(name);
        Flush();
    });
}

void XmlWriter::WriteComment(const char* text) {
    Guarded([&] {
        Indent();
        buffer_ += "<!-- ";
        buffer_ += text ? text : "";
        buffer_ += " -->\n";
        Flush();
    });
}
