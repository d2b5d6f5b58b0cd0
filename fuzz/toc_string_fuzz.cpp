// libFuzzer harness of the TOC text input (zelto_cantrix_query_set_toc_string)
// through a query on the reference host's scripted provider.
//
// The first byte is a control byte: from 0xF0 up it makes the (byte - 0xEF)th
// host allocation of the set call fail. The rest, up to its first NUL, is the
// TOC text. The query holds "150 300" before the call. Properties:
//  - an empty text gives ZELTO_CANTRIX_INVALID_ARG and a text refused as
//    invalid UTF-8 gives ZELTO_CANTRIX_INVALID_UTF8; both leave "150 300";
//    a text the system reads as UTF-8 (one to three bytes a character) is
//    never refused as invalid UTF-8;
//  - otherwise the status and the offsets the query keeps agree with a
//    reading of the text by the rules of the TOC text form (blank-separated
//    decimal numbers, rising, from 1 to 1000000, at least two; a refused text
//    keeps the numbers before the bad one), and the TOC text that a find
//    sends to the provider renders exactly those offsets (cut after the last
//    whole number that fits the 1023 bytes of the lookup's buffer);
//  - with an injected allocation failure the status is 0 or one of the
//    above or ZELTO_CANTRIX_NO_MEMORY;
//  - every road gives back all it took: the host's live-block count after
//    the query's release is the count before its creation.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "fuzz/script_session.h"
#include "ombr/ombr_string.h"
#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_manager.h"
#include "zelto/zelto_script_provider.h"

namespace {

constexpr const char *kPreset = "150 300";
constexpr uint32_t kMaxOffset = 1000000;
constexpr size_t kLookupText = 1023;  // the lookup's 1024-byte buffer less its terminator

void require(bool ok, const char *what, const std::string &detail = {}) {
    if (ok) return;
    std::fprintf(stderr, "property broken: %s %s\n", what, detail.c_str());
    std::abort();
}

// The system's UTF-8 (one to three bytes a character): a text it reads
// whole, and one whose first character it cannot read (which counts as empty).
bool system_utf8(const std::string &s) {
    std::vector<uint32_t> points;
    return fuzz::decode_all(s, &points);
}
bool first_undecodable(const std::string &s) {
    size_t n = 0;
    fuzz::decode_model(s, 0, &n);
    return n == 0;
}

struct Reading {
    uint32_t status = 0;
    std::vector<uint32_t> offsets;
};

// The TOC text form: tokens between runs of blanks (0x20), each read as the
// system's base-10 conversion does, strictly rising from above 0 and at most
// 1000000; at least two numbers.
Reading read_toc(const std::string &text) {
    Reading r;
    uint32_t previous = 0;
    for (size_t at = 0; at < text.size();) {
        if (text[at] == ' ') {
            ++at;
            continue;
        }
        const size_t end = text.find(' ', at);
        const std::string token = text.substr(at, end == std::string::npos ? std::string::npos : end - at);
        at = end == std::string::npos ? text.size() : end;
        // Numbers read as the library reads them everywhere: a magnitude
        // beyond 32 bits clamps to the largest, as on a 32-bit system.
        const uint32_t value = ombr_string_atou32(token.c_str());
        if (value > kMaxOffset || value <= previous) {
            r.status = ZELTO_CANTRIX_INVALID_TOC;
            return r;
        }
        r.offsets.push_back(value);
        previous = value;
    }
    if (r.offsets.size() < 2) r.status = ZELTO_CANTRIX_INVALID_TOC;
    return r;
}

// The TOC text a lookup carries: one blank between numbers, cut after the
// last whole number that fits.
std::string render(const std::vector<uint32_t> &offsets) {
    std::string out;
    for (uint32_t value : offsets) {
        std::string next = (out.empty() ? "" : " ") + std::to_string(value);
        if (out.size() + next.size() > kLookupText) break;
        out += next;
    }
    return out;
}

using Session = fuzz::ScriptSession;

// The TOC text of the lookup that a find with this query sends; false when
// the find made no lookup (the query has no TOC).
bool sent_toc(zelto_script *script, zelto_cantrix_query_handle query, std::string &sent) {
    zelto_script_reset(script);
    zelto_rvo_handle response = nullptr;
    zelto_cantrix_query_find_albums(query, &response);
    if (response) zelto_manager_rvo_release(response);
    const uint32_t lookups = zelto_script_request_count(script);
    require(lookups <= 1, "at most one lookup per find");
    if (lookups == 0) return false;
    const char *toc = zelto_script_request_data(script, 0, "zelto_lookup_data_toc");
    require(toc != nullptr, "the lookup carries a TOC");
    sent = toc;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static Session session;
    if (size == 0 || size > 8192) return 0;
    const uint8_t control = data[0];
    std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));

    const int64_t blocks_before = zelto_manager_memory_live_blocks();
    zelto_cantrix_query_handle query = nullptr;
    require(zelto_cantrix_query_create(session.user, nullptr, nullptr, &query) == 0, "query");
    require(zelto_cantrix_query_set_toc_string(query, kPreset) == 0, "preset accepted");

    if (control >= 0xF0) zelto_manager_memory_fail_nth(control - 0xEF);
    const uint32_t status = zelto_cantrix_query_set_toc_string(query, text.c_str());
    zelto_manager_memory_fail_nth(0);
    std::string sent;
    const bool looked_up = sent_toc(session.script, query, sent);

    if (status == ZELTO_CANTRIX_INVALID_ARG || status == ZELTO_CANTRIX_INVALID_UTF8) {
        // A text whose first character does not decode counts as empty.
        require(status != ZELTO_CANTRIX_INVALID_ARG || text.empty() || first_undecodable(text),
                "only an empty text (or one whose first character does not decode) is an invalid argument", text);
        require(status != ZELTO_CANTRIX_INVALID_UTF8 || !system_utf8(text), "readable UTF-8 refused", text);
        require(looked_up && sent == kPreset, "a text refused at the door leaves the TOC", sent);
    } else if (status == ZELTO_CANTRIX_NO_MEMORY) {
        // The inputs are gone or partly rebuilt; only the release is checked.
        require(control >= 0xF0, "out of memory without an injected failure");
    } else {
        require(!text.empty(), "an empty text is refused");
        const Reading expected = read_toc(text);
        const bool injected = control >= 0xF0 && zelto_manager_memory_failure_fired();
        if (!injected || status == expected.status) {
            require(status == expected.status, "status of the TOC text", text);
            require(looked_up && sent == render(expected.offsets), "offsets kept", text + " -> " + sent);
            // An accepted table that fits is sent whole and reads back the same.
            const Reading again = read_toc(sent);
            if (status == 0 && sent.size() + 8 < kLookupText)
                require(again.status == 0 && again.offsets == expected.offsets, "round trip", sent);
        }
    }

    require(zelto_cantrix_query_release(query) == 0, "release");
    zelto_script_reset(session.script);
    require(zelto_manager_memory_live_blocks() == blocks_before, "live blocks return to the start", text);
    return 0;
}
