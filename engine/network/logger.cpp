#include "network/logger.h"

#include <cstdarg>
#include <new>

#include "network/status.h"
#include "network/textEncoding.h"

namespace {
constexpr size_t kMaxLoggedText = 2042;
const char* kDefaultFormat = "%d: %s\n";
}  // namespace

VEK_loggerFileRedirect::VEK_loggerFileRedirect(FILE* file, const char* format, bool owned)
    : file_(file), format_(format ? format : kDefaultFormat), owned_(owned) {}

VEK_loggerFileRedirect::~VEK_loggerFileRedirect() {
    if (owned_ && file_) std::fclose(file_);
}

void VEK_loggerFileRedirect::LogError(int code, const char* message) {
    if (!file_) return;
    // The format is ours or the caller's; it takes an int and a string.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::fprintf(file_, format_.c_str(), code, message ? message : "");
#pragma GCC diagnostic pop
    std::fflush(file_);
}

VEK_loggerRedirect* VEK_loggerFileRedirect::Clone() const {
    // A clone never owns the stream: only the original closes it.
    return new VEK_loggerFileRedirect(file_, format_.c_str(), false);
}

void VEK_loggerLoggerRedirect::LogError(int code, const char* message) {
    if (target_) target_->LogError(code, message);
}

VEK_logger::VEK_logger(const VEK_logger& other)
    : codes_(other.codes_), messages_(other.messages_),
      redirect_(other.redirect_ ? other.redirect_->Clone() : nullptr) {}

VEK_logger& VEK_logger::operator=(const VEK_logger& other) {
    if (this != &other) {
        codes_ = other.codes_;
        messages_ = other.messages_;
        redirect_.reset(other.redirect_ ? other.redirect_->Clone() : nullptr);
    }
    return *this;
}

int VEK_logger::LogError(int code, const char* message, const char* prefix) {
    // Failures are logged on their way out, out-of-memory ones too: when
    // memory does not suffice even for the entry, it is lost and the status
    // still returned.
    try {
        std::string text;
        if (prefix) text = prefix;
        text += message ? message : VEK_statusText(code);
        // Cut on a character boundary: the text must stay valid UTF-8.
        if (text.size() > kMaxLoggedText) text.resize(VEK_utf8Prefix(text, kMaxLoggedText));
        if (redirect_) {
            redirect_->LogError(code, text.c_str());
        } else {
            codes_.reserve(codes_.size() + 1);
            messages_.push_back(std::move(text));
            codes_.push_back(code);
        }
    } catch (const std::bad_alloc&) {
    }
    return code;
}

int VEK_logger::VLogError(int code, const char* format, ...) {
    char buffer[kMaxLoggedText + 1];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    return LogError(code, buffer);
}

void VEK_logger::RedirectToFile(FILE* file, const char* format, bool owned) {
    redirect_.reset(new VEK_loggerFileRedirect(file, format, owned));
}

int VEK_logger::RedirectToFile(const char* path, const char* format) {
    FILE* f = path ? std::fopen(path, "at") : nullptr;
    if (!f) return VEK_FILE_IO_FAILED;
    RedirectToFile(f, format, true);
    return VEK_OKAY;
}

void VEK_logger::RedirectToLogger(VEK_logger* target) {
    redirect_.reset(new VEK_loggerLoggerRedirect(target));
}

void VEK_logger::Redirect(VEK_loggerRedirect* redirect) { redirect_.reset(redirect); }

VEK_logger& VEK_errorH() {
    static VEK_logger* logger = [] {
        auto* l = new VEK_logger;
        l->LogError(VEK_GENERAL_ERROR, "VEK_errorH is obsolete, use VEK_network::Logger instead");
        return l;
    }();
    return *logger;
}
