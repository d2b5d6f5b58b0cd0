// Bounded copies that never split a character, duplicates, and in-place
// edits (trim, ASCII case, reverse by character).
#include "string/ombr_string_internal.h"

using namespace ombr::str;

namespace {

constexpr bool is_blank_byte(unsigned char c) { return c >= 1 && c <= 32; }

// Texts up to this many bytes (terminator included) are reversed in a local
// scratch area; longer ones in a heap copy.
constexpr uint32_t kReverseScratch = 256;

// Appends src to dest within size bytes, at most `limit` characters.
char *bounded_cat(char *dest, uint32_t size, const char *src, uint32_t limit) {
    if (!dest) return nullptr;
    if (!src) return dest;
    const uint32_t used = ombr_string_bytenlen_nonull(dest, size);
    if (used >= size) return dest;  // dest already fills its buffer
    _ombr_string_utf8_copy(dest + used, size - used, src, limit);
    return dest;
}

char *alloc_text(uint32_t size) { return static_cast<char *>(ombr_memory_alloc(size)); }

}  // namespace

extern "C" uint32_t _ombr_string_utf8_copy(char *dest, uint32_t size, const char *src, uint32_t limit) {
    uint32_t copied = 0;
    if (src && *src != 0 && size >= 2) {
        const unsigned char *p = bytes_of(src);
        while (*p != 0 && limit != 0 && size >= 2) {
            // Only the lead byte is checked; a terminator inside a sequence
            // still ends the text, so nothing past it is read.
            const uint32_t n = lead_size(*p);
            if (n == 0 || n > size - 1) break;
            uint32_t k = 1;
            while (k < n && p[k] != 0) ++k;
            if (k < n) break;
            ombr_memory_memcpy(dest + copied, p, n);
            p += n;
            copied += n;
            size -= n;
            if (limit != kNoLimit) --limit;
        }
    }
    dest[copied] = 0;  // also for size 0 and 1
    return copied;
}

OMBR_API char *ombr_string_strcpy(char *dest, uint32_t size, const char *src) {
    if (!dest) return nullptr;
    if (src) _ombr_string_utf8_copy(dest, size, src, kNoLimit);
    return dest;
}

OMBR_API char *ombr_string_strncpy(char *dest, uint32_t size, const char *src, uint32_t chars) {
    if (!dest) return nullptr;
    if (src) _ombr_string_utf8_copy(dest, size, src, chars);
    return dest;
}

OMBR_API char *ombr_string_strcat(char *dest, uint32_t size, const char *src) {
    return bounded_cat(dest, size, src, ombr_string_bytelen(src));
}

OMBR_API char *ombr_string_strncat(char *dest, uint32_t size, const char *src, uint32_t chars) {
    return bounded_cat(dest, size, src, chars);
}

OMBR_API char *ombr_string_strdup(const char *s) {
    if (!s) return nullptr;
    const uint32_t size = ombr_string_bytelen(s);
    char *copy = alloc_text(size);
    if (copy) ombr_memory_memcpy(copy, s, size);
    return copy;
}

OMBR_API char *ombr_string_strdupn(const char *s, uint32_t size, uint8_t fill) {
    if (!s || size == 0) return nullptr;
    char *block = alloc_text(size);
    if (!block) return nullptr;
    ombr_memory_memset(block, fill, size);
    // Byte-wise: this may cut a character.
    ombr_memory_memcpy(block, s, ombr_string_bytenlen_nonull(s, size - 1));
    block[size - 1] = 0;
    return block;
}

OMBR_API char *ombr_string_strndup(const char *s, uint32_t chars) {
    if (!s) return nullptr;
    uint64_t size = uint64_t{chars} * 4;
    if (size > ombr_string_bytelen(s)) size = ombr_string_bytelen(s);
    size += 1;
    char *block = alloc_text(static_cast<uint32_t>(size));
    if (!block) return nullptr;
    return ombr_string_strncpy(block, static_cast<uint32_t>(size), s, chars);
}

// Measures the first word but fills the block from the start of the text:
// with leading blanks the result is that many bytes of the text's beginning.
OMBR_API char *ombr_string_worddup(const char *s) {
    if (!s) return nullptr;
    const char *cursor = s;
    uint32_t c = 0;
    do {
        if (_utf8_get_next_char(&cursor, &c) != 0 || c == 0) return nullptr;
    } while (c <= 32);
    const char *word_rest = cursor;  // behind the first word character
    const char *end = word_rest;
    for (;;) {
        if (_utf8_get_next_char(&end, &c) != 0 || c <= 32) break;
    }
    const auto length = static_cast<uint32_t>(end - word_rest);
    char *block = alloc_text(length + 1);
    if (!block) return nullptr;
    ombr_memory_memcpy(block, s, length);
    block[length] = 0;
    return block;
}

OMBR_API char *ombr_string_trim(char *s) {
    if (!s) return nullptr;
    auto *p = reinterpret_cast<unsigned char *>(s);
    uint32_t start = 0;
    while (is_blank_byte(p[start])) ++start;
    uint32_t end = start + ombr_string_bytelen_nonull(s + start);
    while (end > start && is_blank_byte(p[end - 1])) --end;
    if (start > 0) ombr_memory_memmove(s, s + start, end - start);
    s[end - start] = 0;
    return s;
}

OMBR_API char *ombr_string_tolower(char *s) {
    if (!s) return nullptr;
    for (char *p = s; *p != 0; ++p)
        if (*p >= 'A' && *p <= 'Z') *p = static_cast<char>(*p + ('a' - 'A'));
    return s;
}

OMBR_API char *ombr_string_toupper(char *s) {
    if (!s) return nullptr;
    for (char *p = s; *p != 0; ++p)
        if (*p >= 'a' && *p <= 'z') *p = static_cast<char>(*p - ('a' - 'A'));
    return s;
}

// Reverses the order of the characters; the bytes of each character keep
// their order. An invalid text, or a long one whose copy cannot be made,
// stays as it was.
OMBR_API char *ombr_string_reverse(char *s) {
    if (!s || !ombr_string_isvalid(s)) return s;
    const uint32_t size = ombr_string_bytelen(s);
    char scratch[kReverseScratch];
    char *source = scratch;
    if (size <= kReverseScratch) {
        ombr_memory_memcpy(scratch, s, size);
    } else if (!(source = ombr_string_strdup(s))) {
        return s;
    }
    uint32_t tail = size - 1;
    for (const char *cursor = source; *cursor != 0;) {
        const char *start = cursor;
        _utf8_get_next_char(&cursor, nullptr);
        const auto n = static_cast<uint32_t>(cursor - start);
        tail -= n;
        ombr_memory_memcpy(s + tail, start, n);
    }
    if (source != scratch) ombr_string_free(source);
    return s;
}
