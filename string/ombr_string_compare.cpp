// Ordering comparisons, searches and tokens over UTF-8 text. All ordering
// goes through one comparison core; the wrappers only reduce its difference
// to -1, 0 or 1.
#include "string/ombr_string_internal.h"

using namespace ombr::str;

namespace {

constexpr int32_t sign_of(int32_t v) { return v < 0 ? -1 : (v > 0 ? 1 : 0); }

bool has_chars(const char *s) { return s && *s != 0; }

// Ordering by the core, after the common null and same-pointer rules:
// same pointer 0; one null gives 1 if a is there, else -1.
int32_t ordered_compare(const char *a, const char *b, uint32_t limit, uint8_t exact) {
    if (a == b) return 0;
    if (!a || !b) return a ? 1 : -1;
    int32_t difference = 0;
    _ombr_string_utf8_compare(a, b, limit, exact, &difference, nullptr, nullptr, nullptr);
    return sign_of(difference);
}

// Leading equal characters, for the two _len functions.
uint32_t equal_prefix(const char *a, const char *b, uint8_t exact, const char **out_end_a, const char **out_end_b) {
    if (!a || !b) return 0;
    if (a == b) return ombr_string_charlen(a);
    uint32_t equal = 0;
    _ombr_string_utf8_compare(a, b, kNoLimit, exact, nullptr, &equal, out_end_a, out_end_b);
    return equal;
}

}  // namespace

extern "C" uint32_t _ombr_string_utf8_compare(const char *a, const char *b, uint32_t limit, uint8_t byte_exact,
                                              int32_t *out_difference, uint32_t *out_equal_count,
                                              const char **out_end_a, const char **out_end_b) {
    uint32_t status = 0;
    int32_t difference = 0;
    uint32_t equal = 0;
    if (has_chars(a)) {
        while (has_chars(b) && difference == 0 && limit != 0) {
            uint32_t ca = 0, cb = 0;
            if ((status = _utf8_get_next_char(&a, &ca)) != 0) break;
            if ((status = _utf8_get_next_char(&b, &cb)) != 0) break;
            if (!byte_exact) {
                ca = fold_ascii(ca);
                cb = fold_ascii(cb);
            }
            difference = static_cast<int32_t>(ca) - static_cast<int32_t>(cb);
            if (difference == 0) ++equal;
            if (limit != kNoLimit) --limit;
            if (*a == 0) break;
        }
    }
    if (difference == 0 && limit != 0) {
        if (has_chars(a))
            difference = 1;
        else if (has_chars(b))
            difference = -1;
    }
    if (out_difference) *out_difference = difference;
    if (out_equal_count) *out_equal_count = equal;
    if (out_end_a) *out_end_a = a;
    if (out_end_b) *out_end_b = b;
    return status;
}

OMBR_API int32_t ombr_string_strcmp(const char *a, const char *b) {
    if (a == b) return 0;
    if (!a) return -1;
    if (!b) return 1;
    const unsigned char *pa = bytes_of(a);
    const unsigned char *pb = bytes_of(b);
    while (*pa != 0 && *pa == *pb) ++pa, ++pb;
    return *pa < *pb ? -1 : (*pa > *pb ? 1 : 0);
}

OMBR_API int32_t ombr_string_stricmp(const char *a, const char *b) { return ordered_compare(a, b, kNoLimit, 0); }

OMBR_API int32_t ombr_string_strncmp(const char *a, const char *b, uint32_t chars) {
    return ordered_compare(a, b, chars, 1);
}

OMBR_API int32_t ombr_string_strnicmp(const char *a, const char *b, uint32_t chars) {
    return ordered_compare(a, b, chars, 0);
}

// The names of this pair look swapped and are kept so: strcmp_len folds
// ASCII case, stricmp_len compares exactly.
OMBR_API uint32_t ombr_string_strcmp_len(const char *a, const char *b, const char **out_end_a,
                                         const char **out_end_b) {
    return equal_prefix(a, b, 0, out_end_a, out_end_b);
}

OMBR_API uint32_t ombr_string_stricmp_len(const char *a, const char *b, const char **out_end_a,
                                          const char **out_end_b) {
    return equal_prefix(a, b, 1, out_end_a, out_end_b);
}

OMBR_API char *ombr_string_strchr(const char *s, uint32_t code_point) {
    if (!s || code_point == 0) return nullptr;
    for (const char *cursor = s; *cursor != 0;) {
        const char *start = cursor;
        uint32_t c = 0;
        if (_utf8_get_next_char(&cursor, &c) != 0) return nullptr;
        if (c == code_point) return const_cast<char *>(start);
    }
    return nullptr;
}

OMBR_API char *ombr_string_strrchr(const char *s, uint32_t code_point) {
    if (!s || code_point == 0) return nullptr;
    const char *found = nullptr;
    for (const char *cursor = s; *cursor != 0;) {
        const char *start = cursor;
        uint32_t c = 0;
        if (_utf8_get_next_char(&cursor, &c) != 0) break;
        if (c == code_point) found = start;
    }
    return const_cast<char *>(found);
}

OMBR_API char *ombr_string_substring(const char *haystack, const char *needle, const char **out_end,
                                     uint32_t *out_chars) {
    if (out_end) *out_end = nullptr;
    if (out_chars) *out_chars = 0;
    if (!haystack || !needle) return nullptr;
    if (ombr_string_isempty(needle)) return const_cast<char *>(haystack);
    const uint32_t needle_chars = ombr_string_charlen(needle);
    const char *cursor = needle;
    uint32_t first = 0;
    if (_utf8_get_next_char(&cursor, &first) != 0) return nullptr;

    for (cursor = haystack;;) {
        const char *start = cursor;
        uint32_t c = 0;
        if (_utf8_get_next_char(&cursor, &c) != 0 || c == 0) return nullptr;
        if (c != first) continue;
        int32_t difference = 0;
        uint32_t equal = 0;
        const char *end = nullptr;
        if (_ombr_string_utf8_compare(start, needle, needle_chars, 1, &difference, &equal, &end, nullptr) != 0)
            return nullptr;
        if (difference == 0) {
            if (out_end) *out_end = end;
            if (out_chars) *out_chars = equal;
            return const_cast<char *>(start);
        }
    }
}

OMBR_API char *ombr_string_strstr(const char *haystack, const char *needle) {
    return ombr_string_substring(haystack, needle, nullptr, nullptr);
}

// Despite its name this searches forward: the result is the position just
// behind the first match (the haystack itself for an empty needle).
OMBR_API char *ombr_string_strrstr(const char *haystack, const char *needle) {
    const char *end = nullptr;
    char *found = ombr_string_substring(haystack, needle, &end, nullptr);
    if (found && end) return const_cast<char *>(end);
    return found;
}

// Splits s at delimiter bytes. Each byte is looked up as a code point among
// the delimiters, so a byte of a multi-byte character can match a delimiter
// of the same value. The state lives in the caller's save pointer.
OMBR_API char *ombr_string_strtok(char *s, const char *delimiters, char **save, char *out_delimiter) {
    if (!save) return nullptr;
    char *cursor = s ? s : *save;
    if (!cursor) return nullptr;
    // One ASCII delimiter (the usual case) is compared directly: as a code
    // point it matches exactly its own byte, and the loops below never pass
    // the terminator here.
    const char single =
        delimiters && delimiters[0] > 0 && static_cast<unsigned char>(delimiters[0]) < 0x80 && !delimiters[1]
            ? delimiters[0]
            : 0;
    auto is_delimiter = [delimiters, single](char c) {
        if (single) return c == single;
        return ombr_string_strchr(delimiters, static_cast<unsigned char>(c)) != nullptr;
    };
    while (*cursor != 0 && is_delimiter(*cursor)) ++cursor;
    if (*cursor == 0) {
        if (out_delimiter) *out_delimiter = 0;
        *save = nullptr;
        return nullptr;
    }
    char *token = cursor;
    while (*cursor != 0 && !is_delimiter(*cursor)) ++cursor;
    if (out_delimiter) *out_delimiter = *cursor;
    if (*cursor != 0) {
        *cursor = 0;
        *save = cursor + 1;
    } else {
        *save = cursor;
    }
    return token;
}
