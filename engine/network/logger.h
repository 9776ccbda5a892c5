// Per-network error log: a list of (code, message) pairs, or a redirect that
// forwards every entry to a stream or another logger instead of storing it.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

class VEK_logger;

class VEK_loggerRedirect {
public:
    virtual ~VEK_loggerRedirect() = default;
    virtual void LogError(int code, const char* message) = 0;
    virtual VEK_loggerRedirect* Clone() const = 0;
};

class VEK_loggerFileRedirect : public VEK_loggerRedirect {
public:
    VEK_loggerFileRedirect(FILE* file, const char* format, bool owned);
    ~VEK_loggerFileRedirect() override;
    void LogError(int code, const char* message) override;
    VEK_loggerRedirect* Clone() const override;

private:
    FILE* file_;
    std::string format_;
    bool owned_;
};

class VEK_loggerLoggerRedirect : public VEK_loggerRedirect {
public:
    explicit VEK_loggerLoggerRedirect(VEK_logger* target) : target_(target) {}
    void LogError(int code, const char* message) override;
    VEK_loggerRedirect* Clone() const override { return new VEK_loggerLoggerRedirect(target_); }

private:
    VEK_logger* target_;
};

class VEK_logger {
public:
    VEK_logger() = default;
    VEK_logger(const VEK_logger& other);
    VEK_logger& operator=(const VEK_logger& other);
    ~VEK_logger() = default;

    // Records (or forwards) an error and returns code. A null message takes the
    // code's standard text; a prefix is put in front of the message.
    int LogError(int code, const char* message = nullptr, const char* prefix = nullptr);
    int VLogError(int code, const char* format, ...) __attribute__((format(printf, 3, 4)));

    int GetErrorCount() const { return static_cast<int>(codes_.size()); }
    int GetLastError() const { return codes_.empty() ? 0 : codes_.back(); }
    const char* GetLastErrorMessage() const { return messages_.empty() ? nullptr : messages_.back().c_str(); }
    int GetError(int i) const { return i >= 0 && i < GetErrorCount() ? codes_[i] : 0; }
    const char* GetErrorMessage(int i) const {
        return i >= 0 && i < GetErrorCount() ? messages_[i].c_str() : nullptr;
    }
    void Clear() { codes_.clear(); messages_.clear(); }

    void RedirectToFile(FILE* file, const char* format = nullptr, bool owned = false);
    [[nodiscard]] int RedirectToFile(const char* path, const char* format = nullptr);
    void RedirectToLogger(VEK_logger* target);
    void Redirect(VEK_loggerRedirect* redirect);  // takes ownership; null removes
    bool IsRedirected() const { return redirect_ != nullptr; }
    VEK_loggerRedirect* GetRedirect() const { return redirect_.get(); }
    // Hands the redirect to the caller; the logger stores messages again.
    VEK_loggerRedirect* ReleaseRedirect() { return redirect_.release(); }

private:
    std::vector<int> codes_;
    std::vector<std::string> messages_;
    std::unique_ptr<VEK_loggerRedirect> redirect_;
};

// Kept for old callers: one process-wide logger.
VEK_logger& VEK_errorH();
