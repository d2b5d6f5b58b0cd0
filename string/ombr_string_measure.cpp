// Measures of UTF-8 text (bytes, characters, limits), validity tests and the
// one-character cursor step and encoder.
#include "string/ombr_string_internal.h"

using namespace ombr::str;

namespace {

uint32_t nonull_length(const char *s) {
    uint32_t n = 0;
    while (s[n] != 0) ++n;
    return n;
}

// Bytes before the terminator, looking at no more than `limit` bytes.
uint32_t bounded_length(const char *s, uint32_t limit) {
    uint32_t n = 0;
    while (n < limit && s[n] != 0) ++n;
    return n;
}

}  // namespace

OMBR_API uint32_t ombr_string_bytelen(const char *s) { return s ? nonull_length(s) + 1 : 0; }

OMBR_API uint32_t ombr_string_bytelen_nonull(const char *s) { return s ? nonull_length(s) : 0; }

OMBR_API uint32_t ombr_string_bytenlen(const char *s, uint32_t n) {
    if (!s || n == 0) return 0;
    uint32_t length = bounded_length(s, n);
    return length < n ? length + 1 : n;
}

OMBR_API uint32_t ombr_string_bytenlen_nonull(const char *s, uint32_t n) { return s ? bounded_length(s, n) : 0; }

OMBR_API uint32_t ombr_string_byteclen(const char *s, uint32_t chars) {
    if (!s) return 0;
    const char *cursor = s;
    for (; chars > 0 && *cursor != 0; --chars) {
        if (_utf8_get_next_char(&cursor, nullptr) != 0) break;
    }
    return static_cast<uint32_t>(cursor - s);
}

OMBR_API uint32_t ombr_string_charlen(const char *s) {
    if (!s) return 0;
    uint32_t count = 0;
    for (const char *cursor = s; *cursor != 0; ++count) {
        if (_utf8_get_next_char(&cursor, nullptr) != 0) return count + 1;  // the invalid one counts
    }
    return count;
}

OMBR_API uint32_t ombr_string_charnlen(const char *s, uint32_t bytes) {
    if (!s) return 0;
    uint32_t count = 0;
    const char *cursor = s;
    while (*cursor != 0) {
        const char *next = cursor;
        if (_utf8_get_next_char(&next, nullptr) != 0) return count + 1;  // the invalid one counts
        if (static_cast<uint32_t>(next - s) > bytes) break;
        cursor = next;
        ++count;
    }
    return count;
}

OMBR_API uint32_t ombr_string_nextcharsize(const char *s) {
    if (!s) return 0;
    const char *cursor = s;
    if (_utf8_get_next_char(&cursor, nullptr) != 0) return 1;
    return static_cast<uint32_t>(cursor - s);
}

OMBR_API uint32_t ombr_string_isempty(const char *s) {
    if (!s || *s == 0) return 1;
    const char *cursor = s;
    return _utf8_get_next_char(&cursor, nullptr) != 0 ? 1 : 0;
}

OMBR_API uint32_t ombr_string_isvalid(const char *s) {
    if (!s) return 1;
    // The decoder in line: texts checked here are mostly plain ASCII.
    for (const unsigned char *p = ombr::str::bytes_of(s); *p != 0;) {
        uint32_t size = 0;
        ombr::str::decode_utf8(p, &size);
        if (size == 0) return 0;
        p += size;
    }
    return 1;
}

OMBR_API uint32_t ombr_string_charnext(const char **cursor, uint32_t *out_size) {
    if (!cursor || !*cursor) return 0;
    const char *start = *cursor;
    uint32_t code_point = 0;
    if (_utf8_get_next_char(cursor, &code_point) != 0) {
        if (out_size) *out_size = 0;
        return 0;
    }
    if (out_size) *out_size = static_cast<uint32_t>(*cursor - start);
    return code_point;
}

OMBR_API char *ombr_string_setchar(char *buffer, uint32_t size, uint32_t code_point, uint32_t *out_written) {
    if (!buffer) return nullptr;
    uint32_t written = 0;
    if (_utf8_set_next_char(buffer, size, code_point, &written) != 0) written = 0;
    if (out_written) *out_written = written;
    return buffer;
}
