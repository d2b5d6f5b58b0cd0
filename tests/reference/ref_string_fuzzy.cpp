// Reference bigram similarity for the differential tests and fuzzers: the
// plain rendition of the rules. Each text's entries go into a table of
// byte length + 1 entries (zeroed, so a text that yields no entry compares
// as that many zero entries); the common entries are counted by searching
// the second table for each entry of the first and taking matches out of
// both, which is quadratic.
#include <vector>

#include "string/ombr_string_fuzzy_internal.h"
#include "string/ombr_string_internal.h"
#include "tests/reference/reference.h"

namespace {

constexpr uint32_t kLow16 = 0xFFFFu;

constexpr uint32_t fold(uint32_t c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; }
constexpr bool is_blank(uint32_t c) { return c >= 0x01 && c <= 0x20; }

// Fills `e` (preset with count entries of 0); returns the count.
uint32_t fill(const char *text, std::vector<uint32_t> &e, uint8_t skip_space) {
    const auto room = static_cast<uint32_t>(e.size());
    uint32_t n = 0;
    const char *p = text;
    uint32_t c = 0;
    if (_utf8_get_next_char(&p, &c) != 0) return room;
    if (skip_space) {
        while (c <= 0x20) {
            if (c == 0 || _utf8_get_next_char(&p, &c) != 0) return room;
        }
    }
    uint32_t prev = fold(c);
    e[n++] = prev & kLow16;
    while (prev != 0 && n < room) {
        if (_utf8_get_next_char(&p, &c) != 0) break;
        c = fold(c);
        if (skip_space && is_blank(c)) {
            e[n++] = prev & kLow16;
            do {
                if (_utf8_get_next_char(&p, &c) != 0) c = 0;
            } while (is_blank(c));
            if (c == 0 || n >= room) break;
            prev = fold(c);
            e[n++] = prev & kLow16;
            continue;
        }
        e[n++] = ((c & kLow16) << 16) | (prev & kLow16);
        prev = c;
    }
    return n;
}

uint32_t common_unsorted(std::vector<uint32_t> a, uint32_t na, std::vector<uint32_t> b, uint32_t nb) {
    uint32_t common = 0;
    uint32_t i = 0;
    while (i < na) {
        uint32_t j = 0;
        while (j < nb && b[j] != a[i]) ++j;
        if (j == nb) {
            ++i;
            continue;
        }
        ++common;
        a[i] = a[--na];
        b[j] = b[--nb];
    }
    return common;
}

}  // namespace

uint32_t reference::string_fuzzycmp(const char *text_a, const char *text_b, uint8_t skip_space, uint32_t *out_percent_a,
                                    uint32_t *out_percent_b) {
    const uint32_t bytes_a = ombr_string_bytelen_nonull(text_a);
    const uint32_t bytes_b = ombr_string_bytelen_nonull(text_b);
    if (bytes_a == 0 || bytes_b == 0) return 0;
    std::vector<uint32_t> a(bytes_a + 1, 0), b(bytes_b + 1, 0);
    const uint32_t count_a = fill(text_a, a, skip_space);
    const uint32_t count_b = fill(text_b, b, skip_space);
    const uint32_t common = common_unsorted(a, count_a, b, count_b);
    if (out_percent_a) *out_percent_a = common * 100u / count_a;
    if (out_percent_b) *out_percent_b = common * 100u / count_b;
    return ombr::fuzzy::similarity(common, count_a, count_b);
}
