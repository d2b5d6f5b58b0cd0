// Fuzzes the text normaliser through both entry points. The first bytes
// pick the flags, the option word, a keep list and an allocation to fail;
// the rest is the text. Properties:
//  - the UTF-8 entry refuses exactly the texts that are not the system's
//    UTF-8 and otherwise gives valid UTF-8, the same key as the UCS-2 entry
//    on the converted text;
//  - any non-zero flags word runs every pass (one key for all of them),
//    only bit 0 of the option word counts, and an empty keep list is no
//    keep list;
//  - a key is never empty for a non-empty text and never longer than a
//    fixed multiple of it (number words are the largest growth);
//  - with a failing allocation the status is one of the out-of-memory
//    values, the output is left alone and nothing stays allocated;
//  - the full-width fold changes only U+FF01..U+FF5E, to their ASCII forms.
#include "fuzz/fuzz_support.h"
#include "ombr/ombr_string.h"
#include "ombr/ombr_textcorr_normalize.h"

namespace {

using fuzz::require;

// Number words spell a digit as up to a dozen units and a text gains a
// blank here and there; nothing grows faster than this.
constexpr size_t kMaxGrowth = 24;

std::u16string wide_key(const std::u16string &text, const std::u16string *keep, uint32_t flags, uint32_t option,
                        uint32_t *status) {
    uint16_t *out = nullptr;
    *status = ombr_textcorr_normalize_text(reinterpret_cast<const uint16_t *>(text.c_str()), &out,
                                           keep ? reinterpret_cast<const uint16_t *>(keep->c_str()) : nullptr, flags,
                                           option);
    std::u16string key;
    if (*status == 0) {
        require(out != nullptr, "a key on success");
        key = reinterpret_cast<const char16_t *>(out);
        ombr_memory_free(out);
    }
    return key;
}

bool out_of_memory(uint32_t status) {
    return status == OMBR_TEXTCORR_ERR_NO_MEMORY || status == OMBR_TEXTCORR_ERR_NO_MATCH ||
           status == OMBR_STRING_ERR_CONVERT_NO_MEMORY;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool up = ombr_string_initialize() == 0;
    require(up, "string package up");
    if (size > 1024) return 0;
    fuzz::Input in(data, size);
    const uint32_t flags = in.value<uint32_t>();
    const uint32_t option = in.value<uint32_t>();
    const uint8_t control = in.byte();
    std::u16string keep;
    for (size_t i = control & 3; i > 0; --i) {
        const auto unit = in.value<uint16_t>();
        if (unit) keep.push_back(static_cast<char16_t>(unit));
    }
    const std::string text = in.rest();
    const fuzz::BlockCount blocks;

    // The UTF-8 entry.
    char *key8 = nullptr;
    const uint32_t status8 = ombr_textcorr_normalize_utf8_text(text.c_str(), &key8, flags, option);
    std::vector<uint32_t> points;
    const bool valid = fuzz::decode_all(text, &points);
    if (!valid) {
        require(status8 == OMBR_STRING_ERR_INVALID_UTF8 && key8 == nullptr, "invalid UTF-8 refused", text);
        blocks.check("a refused text leaves nothing");
        return 0;
    }
    require(status8 == 0 && key8 != nullptr, "valid text normalised", text);
    const std::string key = key8;
    ombr_string_free(key8);
    require(ombr_string_isvalid(key.c_str()) != 0, "the key is valid UTF-8");

    // The UCS-2 entry on the same text (up to an overlong 0, which ends it).
    std::u16string wide;
    for (uint32_t cp : points) {
        if (cp == 0) break;
        wide.push_back(static_cast<char16_t>(cp));
    }
    uint32_t status16 = 0;
    const std::u16string key16 = wide_key(wide, nullptr, flags, option, &status16);
    require(status16 == 0, "UCS-2 entry");
    std::string key16_utf8;
    for (char16_t unit : key16) key16_utf8 += fuzz::encode_model(unit);
    require(key16_utf8 == key, "both entries give one key", text);
    require(wide.empty() || !key16.empty(), "a text never has an empty key");
    require(key16.size() <= kMaxGrowth * wide.size() + 8, "bounded growth", text);

    // Flags, option and keep list.
    uint32_t st = 0;
    const uint32_t other_flags = flags ? (flags ^ 0x5A5A0000u) | 1u : 0u;
    require(wide_key(wide, nullptr, other_flags, option, &st) == key16 && st == 0, "non-zero flags run every pass");
    require(wide_key(wide, nullptr, flags, (option & 1u) | (control & 0xF0u) << 20, &st) == key16 && st == 0,
            "only bit 0 of the option counts");
    const std::u16string empty_keep;
    require(wide_key(wide, &empty_keep, flags, option, &st) == key16 && st == 0, "an empty keep list keeps nothing");
    const std::u16string kept = wide_key(wide, &keep, flags, option, &st);
    require(st == 0 && (wide.empty() || !kept.empty()), "a keep list still gives a key");

    // A failing allocation somewhere in the UTF-8 entry.
    const uint64_t fail_at = 1 + (control >> 2) % 24;
    char *sentinel = reinterpret_cast<char *>(&st);
    char *out = sentinel;
    uint32_t failed_status = 0;
    if (fuzz::with_failing_allocation(fail_at, [&] {
            failed_status = ombr_textcorr_normalize_utf8_text(text.c_str(), &out, flags, option);
        })) {
        if (failed_status == 0) {  // the failure hit a step that has a fall-back
            require(out != sentinel && out != nullptr, "output on success");
            ombr_string_free(out);
        } else {
            require(out_of_memory(failed_status), "out-of-memory status", std::to_string(failed_status));
            require(out == sentinel, "no output on failure");
        }
    } else {
        require(failed_status == 0 && out != sentinel && key == out, "same key without the failure");
        ombr_string_free(out);
    }

    // The full-width fold, in place.
    std::u16string folded = wide;
    ombr_textcorr_normalize_do_full_width_to_half_width(reinterpret_cast<uint16_t *>(folded.data()),
                                                        static_cast<uint32_t>(folded.size()));
    for (size_t i = 0; i < wide.size(); ++i) {
        const char16_t u = wide[i];
        require(folded[i] == (u >= 0xFF01 && u <= 0xFF5E ? u - 0xFEE0 : u), "full-width fold");
    }
    blocks.check("the normaliser gives back every block");
    return 0;
}
