// Built with Clang and libFuzzer against the two libraries, e.g.
//   clang++-16 -std=c++20 -fsanitize=fuzzer -Iinclude fuzz/fuzz_fingerprint.cpp -Lbuild/native \
//     -lzelto_cantrix -lzelto_manager -Wl,-rpath,$PWD/build/native
// Fingerprint input from untrusted bytes. The first byte chooses the road:
//  - data: the rest is given to zelto_cantrix_query_set_fp_data (plain or,
//    with "ZTFP", serial); the status is one of the described ones, and
//    accepted plain text that is no description reads back trimmed;
//  - audio: the rest is PCM of a width, channel count and rate chosen by
//    the next bytes; written at once and in pieces of varying size it gives
//    the same fingerprint text.
// Every road releases everything: the host's live-block count comes back.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_host_services.h"
#include "zelto/zelto_manager.h"

namespace {

struct Session {
    zelto_user *user = nullptr;
    zelto_cantrix_query_handle query = nullptr;
    Session() {
        zelto_cantrix_initialize(zelto_manager_get_table());
        zelto_manager_user_create("fuzz", &user);
        zelto_cantrix_query_create(user, nullptr, nullptr, &query);
    }
    ~Session() {
        zelto_cantrix_query_release(query);
        zelto_manager_user_release(user);
        zelto_cantrix_shutdown();
    }
};

void check(bool ok) {
    if (!ok) std::abort();
}

// The text without the blanks and control bytes (1 to 32) around it.
std::string trimmed(const std::string &s) {
    auto blank = [](char c) { return c >= 1 && c <= 32; };
    size_t a = 0, b = s.size();
    while (a < b && blank(s[a])) ++a;
    while (b > a && blank(s[b - 1])) --b;
    return s.substr(a, b - a);
}

std::string fingerprint(zelto_cantrix_query_handle query, const uint8_t *pcm, size_t size, uint32_t rate,
                        uint32_t bits, uint32_t channels, const uint8_t *cuts, size_t cut_count) {
    if (zelto_cantrix_query_fingerprint_begin(query, ZELTO_CANTRIX_FP_TVX, rate, bits, channels) != 0) return "begin";
    size_t at = 0;
    for (size_t i = 0; at < size; ++i) {
        const size_t piece = cut_count ? 1 + cuts[i % cut_count] * 7u : size;
        const size_t n = piece < size - at ? piece : size - at;
        check(zelto_cantrix_query_fingerprint_write(query, pcm + at, static_cast<uint32_t>(n), nullptr) == 0);
        at += n;
    }
    check(zelto_cantrix_query_fingerprint_end(query) == 0);
    const char *text = nullptr;
    check(zelto_cantrix_query_get_fp_data(query, &text) == 0);
    return text ? text : "<null>";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    const int64_t blocks = zelto_manager_memory_live_blocks();
    {
        Session s;
        if (data[0] & 1) {
            const std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
            const std::string input = text.c_str();  // up to the first NUL
            const uint32_t status = zelto_cantrix_query_set_fp_data(s.query, input.c_str(), ZELTO_CANTRIX_FP_TVX);
            check(status == 0 || status == ZELTO_CANTRIX_INVALID_ARG || status == ZELTO_CANTRIX_INVALID_UTF8 ||
                  status == ZELTO_CANTRIX_INVALID_DATA || status == 0x90810405u);
            const char *back = nullptr;
            if (status == 0 && input.compare(0, 4, ZELTO_ZTFP_SERIAL_PREFIX) != 0 && zelto_manager_dsp_table() &&
                zelto_cantrix_query_get_fp_data(s.query, &back) == 0 && back && back[0] != '<')
                check(back == trimmed(input));
        } else if (size >= 4 && zelto_manager_dsp_table()) {
            const uint32_t bits = (data[1] % 3 == 0) ? 8 : (data[1] % 3 == 1) ? 16 : 32;
            const uint32_t channels = 1 + data[2] % 2;
            const uint32_t rates[] = {8000, 11025, 22050, 44100};
            const uint32_t rate = rates[data[3] % 4];
            const uint8_t *pcm = data + 4;
            const size_t bytes = size - 4;
            const std::string whole = fingerprint(s.query, pcm, bytes, rate, bits, channels, nullptr, 0);
            check(fingerprint(s.query, pcm, bytes, rate, bits, channels, pcm, bytes < 16 ? bytes : 16) == whole);
        }
    }
    check(zelto_manager_memory_live_blocks() == blocks);
    return 0;
}
