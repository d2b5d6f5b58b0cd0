// Wide text kit of the normaliser: zero-terminated 16-bit unit strings and a
// growing buffer on top of them.
#include "string/ombr_string_internal.h"
#include "textcorr/ombr_textcorr_internal.h"

namespace {

// Extra room taken at each growth so that single-unit appends stay cheap.
constexpr uint32_t kGrowSlackBytes = 128;
// Longest piece straddclen_us builds on the stack.
constexpr int32_t kMaxAddUnits = 63;

inline uni_char swap_unit(uni_char u) { return ombr::str::swap16(u); }

// Reads a unit stored big-endian, whatever the host order.
inline uint32_t read_be(const uni_char *p) {
    const auto *b = reinterpret_cast<const uint8_t *>(p);
    return (static_cast<uint32_t>(b[0]) << 8) | b[1];
}

// Writes a unit big-endian from its high and low byte.
inline void write_be(uni_char *p, uint8_t high, uint8_t low) {
    auto *b = reinterpret_cast<uint8_t *>(p);
    b[0] = high;
    b[1] = low;
}

}  // namespace

// ---- Plain wide text -----------------------------------------------------------

uint32_t strlen_uni(const uni_char *text) {
    uint32_t n = 0;
    while (text[n]) ++n;
    return n;
}

uni_char *strcpy_uni(uni_char *dest, const uni_char *src) {
    uint32_t i = 0;
    do {
        dest[i] = src[i];
    } while (src[i++]);
    return dest;
}

int32_t strcmp_uni(const uni_char *a, const uni_char *b) {
    for (;; ++a, ++b) {
        if (*a != *b) return static_cast<int32_t>(read_be(a)) - static_cast<int32_t>(read_be(b));
        if (*a == 0) return 0;
    }
}

int32_t strncmp_uni(const uni_char *a, const uni_char *b, uint32_t n) {
    for (; n > 0; --n, ++a, ++b) {
        if (*a != *b) return static_cast<int32_t>(read_be(a)) - static_cast<int32_t>(read_be(b));
        if (*a == 0) return 0;
    }
    return 0;
}

uni_char *strchr_uni(const uni_char *text, uni_char unit) {
    for (; *text; ++text)
        if (*text == unit) return const_cast<uni_char *>(text);
    return nullptr;
}

void swap_uni_str(uni_char *text) {
    for (; *text; ++text) *text = swap_unit(*text);
}

uint32_t asc_to_uni(const char *ascii, uni_char **out_text, uint32_t n) {
    if (n == 0) n = ombr_string_charlen(ascii);
    auto *text = static_cast<uni_char *>(ombr_memory_alloc(static_cast<size_t>(n) * 2 + 2));
    if (!text) return kTextcorrNoMemory;
    uint32_t i = 0;
    for (; i < n && ascii[i]; ++i) write_be(&text[i], 0, static_cast<uint8_t>(ascii[i]));
    text[i] = 0;
    *out_text = text;
    return 0;
}

uint32_t uni_to_asc(const uni_char *text, char **out_ascii, uint32_t n) {
    if (n == 0) n = strlen_uni(text);
    auto *ascii = static_cast<char *>(ombr_memory_alloc(static_cast<size_t>(n) + 1));
    if (!ascii) return kTextcorrNoMemory;
    uint32_t i = 0;
    for (; i < n && text[i]; ++i) ascii[i] = static_cast<char>(read_be(&text[i]) & 0xFF);
    ascii[i] = 0;
    *out_ascii = ascii;
    return 0;
}

// ---- Growing buffer --------------------------------------------------------------

uint32_t grow_us(uni_string *buffer, int32_t units) {
    if (static_cast<int32_t>(buffer->capacity / 2) - buffer->length > units) return 0;
    uint32_t capacity = buffer->capacity + static_cast<uint32_t>(units) * 2 + kGrowSlackBytes;
    auto *text = static_cast<uni_char *>(ombr_memory_realloc(buffer->text, capacity));
    if (!text) return kTextcorrNoMemory;
    if (!buffer->text) text[0] = 0;
    buffer->text = text;
    buffer->capacity = capacity;
    return 0;
}

uint32_t create_us(uni_string *buffer, const uni_char *text) {
    buffer->text = nullptr;
    buffer->length = 0;
    buffer->capacity = 0;
    int32_t n = text ? static_cast<int32_t>(strlen_uni(text)) : 0;
    uint32_t status = grow_us(buffer, n);
    if (status) return status;
    if (text) strcpy_uni(buffer->text, text);
    buffer->length = n;
    return 0;
}

void destroy_us(uni_string *buffer) {
    ombr_memory_free(buffer->text);
    buffer->text = nullptr;
    buffer->length = 0;
    buffer->capacity = 0;
}

uni_char *strcat_us(uni_string *buffer, const uni_char *text) {
    if (!text || !*text) return buffer->text;
    int32_t n = static_cast<int32_t>(strlen_uni(text));
    if (grow_us(buffer, n)) return nullptr;
    strcpy_uni(buffer->text + buffer->length, text);
    buffer->length += n;
    return buffer->text;
}

uni_char *strcpy_us(uni_string *buffer, const uni_char *text) {
    if (!text || !*text) {
        if (!buffer->text && grow_us(buffer, 0)) return nullptr;
        buffer->length = 0;
        buffer->text[0] = 0;
        return buffer->text;
    }
    int32_t n = static_cast<int32_t>(strlen_uni(text));
    // The text and its terminator must fit; grow by what it adds to the
    // present content, plus the terminator.
    if (static_cast<uint32_t>(n + 1) * 2 > buffer->capacity && grow_us(buffer, n - buffer->length + 1))
        return nullptr;
    strcpy_uni(buffer->text, text);
    buffer->length = n;
    return buffer->text;
}

uni_char *straddc_us(uni_string *buffer, uni_char unit) {
    uni_char piece[2] = {unit, 0};
    return strcat_us(buffer, piece);
}

uni_char *straddclen_us(uni_string *buffer, const uni_char *text, int32_t n) {
    uni_char piece[kMaxAddUnits + 1];
    int32_t i = 0;
    for (; i < n && i < kMaxAddUnits && text[i]; ++i) piece[i] = text[i];
    piece[i] = 0;
    return strcat_us(buffer, piece);
}

uni_char *strrep_us(uni_string *buffer, int32_t index, int32_t count, const uni_char *text) {
    int32_t n = text ? static_cast<int32_t>(strlen_uni(text)) : 0;
    if (n > count && grow_us(buffer, n - count)) return nullptr;
    if (n != count) {
        // Tail with its terminator.
        int32_t tail = buffer->length - index - count + 1;
        ombr_memory_memmove(buffer->text + index + n, buffer->text + index + count,
                            static_cast<size_t>(tail) * sizeof(uni_char));
    }
    if (n > 0) ombr_memory_memcpy(buffer->text + index, text, static_cast<size_t>(n) * sizeof(uni_char));
    buffer->length += n - count;
    buffer->text[buffer->length] = 0;
    return buffer->text;
}
