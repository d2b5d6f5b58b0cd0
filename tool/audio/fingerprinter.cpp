// Streams decoded audio through the module's fingerprint input.
#include "tool/audio/fingerprinter.h"

#include <cstdio>
#include <ctime>

namespace audio {

namespace {

double cpu_now() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

std::string status_text(const char *what, uint32_t status) {
    char text[96];
    std::snprintf(text, sizeof text, "%s refused by the library: status 0x%08X", what, status);
    return text;
}

}  // namespace

Fingerprinted fingerprint_file(zelto_cantrix_query_handle query, const std::string &path, const Limits &limits) {
    Fingerprinted out;
    uint32_t status = zelto_cantrix_query_fingerprint_begin(query, kFingerprintKind, kOutputRate, 16, 1);
    if (status != 0) {
        out.decode.error = status_text("fingerprint input", status);
        return out;
    }
    double in_module = 0;
    const double start = cpu_now();
    out.decode = decode_file(path, limits, [&](const int16_t *samples, size_t count) {
        const double t = cpu_now();
        status = zelto_cantrix_query_fingerprint_write(query, samples, static_cast<uint32_t>(count * sizeof(int16_t)),
                                                       nullptr);
        in_module += cpu_now() - t;
        return status == 0;
    });
    if (!out.decode.ok) {
        if (status != 0) out.decode.error = status_text("audio", status);
        // The query's inputs are cleared by the next begin or set call.
        return out;
    }
    const double t = cpu_now();
    status = zelto_cantrix_query_fingerprint_end(query);
    const char *text = nullptr;
    if (status == 0) status = zelto_cantrix_query_get_fp_data(query, &text);
    in_module += cpu_now() - t;
    out.fingerprint_seconds = in_module;
    out.decode_seconds = cpu_now() - start - in_module;
    if (status != 0) {
        out.decode.ok = false;
        out.decode.error = status_text("fingerprint", status);
    } else if (!text || !*text) {
        out.decode.ok = false;
        out.decode.error = "too short to fingerprint";
    } else {
        out.text = text;
    }
    return out;
}

}  // namespace audio
