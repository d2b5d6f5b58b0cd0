// Error-information service: keeps the last error of each thread so that the
// application can read why its last call failed.
#include <cstdarg>
#include <cstdio>
#include <string>

#include "host_internal.h"

namespace {

struct LastError {
    uint32_t mapped = 0;
    uint32_t source = 0;
    bool has_function = false;
    bool has_message = false;
    std::string function;
    std::string message;
    uint64_t calls = 0;
};

thread_local LastError t_last;

// The most recent records of this thread, newest first, for callers that
// want to see what was recorded before a later call overwrote it.
constexpr size_t kHistory = 8;
thread_local LastError t_history[kHistory];

void record(uint32_t mapped, uint32_t source, const char *function, const char *message) {
    for (size_t i = kHistory - 1; i > 0; --i) t_history[i] = t_history[i - 1];
    t_history[0].mapped = mapped;
    t_history[0].source = source;
    t_history[0].has_function = function != nullptr;
    t_history[0].function = function ? function : "";
    t_history[0].has_message = message != nullptr;
    t_history[0].message = message ? message : "";
    ++t_last.calls;
    t_last.mapped = mapped;
    t_last.source = source;
    if (mapped == 0) {
        t_last.has_function = t_last.has_message = false;
        t_last.function.clear();
        t_last.message.clear();
        return;
    }
    t_last.has_function = function != nullptr;
    t_last.function = function ? function : "";
    t_last.has_message = message != nullptr;
    t_last.message = message ? message : "";
}

uint32_t errorinfo_set(uint32_t mapped, uint32_t source, const char *function, const char *message) {
    record(mapped, source, function, message);
    return 0;
}

uint32_t errorinfo_set_format(uint32_t mapped, uint32_t source, const char *function, const char *format, ...) {
    std::string text;
    if (format) {
        va_list ap;
        va_start(ap, format);
        va_list copy;
        va_copy(copy, ap);
        int n = std::vsnprintf(nullptr, 0, format, copy);
        va_end(copy);
        if (n > 0) {
            text.resize(static_cast<size_t>(n) + 1);
            std::vsnprintf(text.data(), text.size(), format, ap);
            text.resize(static_cast<size_t>(n));
        }
        va_end(ap);
    }
    record(mapped, source, function, format ? text.c_str() : nullptr);
    return 0;
}

const zelto_errorinfo_interface g_table = {
    .release = host::table_release,
    .errorinfo_set = errorinfo_set,
    .errorinfo_set_format = errorinfo_set_format,
};

}  // namespace

const void *host::errorinfo_table() { return &g_table; }

HOST_EXPORT uint32_t zelto_manager_errorinfo_get(uint32_t *source_status, const char **function,
                                                const char **message) {
    if (source_status) *source_status = t_last.source;
    if (function) *function = t_last.has_function ? t_last.function.c_str() : nullptr;
    if (message) *message = t_last.has_message ? t_last.message.c_str() : nullptr;
    return t_last.mapped;
}

HOST_EXPORT uint64_t zelto_manager_errorinfo_calls(void) { return t_last.calls; }

HOST_EXPORT uint32_t zelto_manager_errorinfo_history(uint32_t back, uint32_t *source_status, const char **function,
                                                    const char **message) {
    if (back >= kHistory) return 0;
    const LastError &entry = t_history[back];
    if (source_status) *source_status = entry.source;
    if (function) *function = entry.has_function ? entry.function.c_str() : nullptr;
    if (message) *message = entry.has_message ? entry.message.c_str() : nullptr;
    return entry.mapped;
}
