// Captures what the library writes through the host's log hooks.
#ifndef LOG_CAPTURE_H
#define LOG_CAPTURE_H

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "ombr/ombr_base.h"

struct LogRecord {
    uint32_t line;
    std::string unit;  // "(null)" when no unit was given
    uint32_t package;  // package byte of a message, or the status of an error record
    uint32_t level;
    std::string text;
};

// Installs both hooks for its lifetime and enables the given packages.
class LogCapture {
   public:
    explicit LogCapture(std::initializer_list<uint32_t> packages, uint32_t mask = OMBR_LOG_ERROR | OMBR_LOG_NOTICE) {
        instance() = this;
        for (uint32_t p : packages) g_ombr_log_enabled_pkgs[p] = mask;
        enabled_ = packages;
        g_ombr_log_callback = &LogCapture::on_message;
        g_ombr_log_error_callback = &LogCapture::on_error;
    }
    ~LogCapture() {
        g_ombr_log_callback = nullptr;
        g_ombr_log_error_callback = nullptr;
        for (uint32_t p : enabled_) g_ombr_log_enabled_pkgs[p] = 0;
        instance() = nullptr;
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    std::vector<LogRecord> messages, errors;
    // What the error hook hands back instead of the status, when non-zero.
    uint32_t error_override = 0;

   private:
    static LogCapture *&instance() {
        static LogCapture *current = nullptr;
        return current;
    }
    static void on_message(uint32_t line, const char *unit, uint32_t package, uint32_t level, const char *format,
                           ...) {
        char buffer[1024];
        va_list ap;
        va_start(ap, format);
        std::vsnprintf(buffer, sizeof buffer, format, ap);
        va_end(ap);
        std::lock_guard<std::mutex> guard(mutex());
        if (instance()) instance()->messages.push_back({line, unit ? unit : "(null)", package, level, buffer});
    }
    static uint32_t on_error(uint32_t line, const char *unit, uint32_t status, uint32_t) {
        std::lock_guard<std::mutex> guard(mutex());
        if (!instance()) return status;
        instance()->errors.push_back({line, unit ? unit : "(null)", status, 0, ""});
        return instance()->error_override ? instance()->error_override : status;
    }
    static std::mutex &mutex() {
        static std::mutex m;
        return m;
    }
    std::vector<uint32_t> enabled_;
};

#endif
