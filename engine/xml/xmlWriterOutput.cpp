#include "xml/xmlWriterOutput.h"

#include <new>

#include "network/identifier.h"

namespace {
// Large enough that writing a big network costs few system calls.
constexpr size_t kFileBufferSize = 1 << 20;
}  // namespace

bool XmlWriterFileOutput::Open(const char* path) {
    (void)Close();  // a new file replaces the old one
    failed_ = false;
    file_ = VEK_fopen(path, "wt");
    if (!file_) return false;
    buffer_.reset(new (std::nothrow) char[kFileBufferSize]);
    if (buffer_) std::setvbuf(file_, buffer_.get(), _IOFBF, kFileBufferSize);
    return true;
}

bool XmlWriterFileOutput::Close() {
    if (!file_) return false;
    bool ok = std::fclose(file_) == 0 && !failed_;
    file_ = nullptr;
    buffer_.reset();
    failed_ = false;
    return ok;
}

bool XmlWriterFileOutput::WriteString(const char* text) {
    if (!file_) return false;
    if (!text) return !failed_;
    if (std::fputs(text, file_) < 0) failed_ = true;
    return !failed_;
}

bool XmlWriterFileOutput::WriteChar(char c) {
    if (!file_) return false;
    if (std::fputc(static_cast<unsigned char>(c), file_) == EOF) failed_ = true;
    return !failed_;
}

bool XmlWriterStringOutput::WriteString(const char* text) {
    try {
        if (text) out_ += text;
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool XmlWriterStringOutput::WriteChar(char c) {
    try {
        out_ += c;
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}
