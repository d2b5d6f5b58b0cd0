// UTF-8 decoding and encoding of one character, and the conversions between
// UTF-8 and UCS-2 (16-bit units, optionally byte-swapped).
#include "string/ombr_string_internal.h"

using namespace ombr::str;

namespace {

constexpr uint32_t encoded_size(uint32_t code_point) {
    if (code_point <= 0x7F) return 1;
    if (code_point <= 0x7FF) return 2;
    if (code_point <= 0xFFFF) return 3;
    if (code_point <= 0x1FFFFF) return 4;
    if (code_point < 0x4000000) return 5;
    return 6;
}

// Allocation for the allocating conversions: size * 4 + 8 bytes, refusing
// sizes whose block would not fit in a 32-bit word.
void *alloc_conversion_block(uint32_t size) {
    if (size > (0xFFFFFFFFu - 8) / 4) return nullptr;
    return ombr_memory_alloc(static_cast<size_t>(size) * 4 + 8);
}

}  // namespace

extern "C" uint32_t _utf8_get_next_char(const char **cursor, uint32_t *out_code_point) {
    if (!cursor || !*cursor) return kInvalidArg;
    uint32_t size = 0;
    const uint32_t value = decode_utf8(bytes_of(*cursor), &size);
    if (size == 0) return kInvalidUtf8;
    if (out_code_point) *out_code_point = value;
    *cursor += size;
    return 0;
}

extern "C" uint32_t _utf8_get_next_char_size(const char *text, uint32_t *out_size) {
    if (!text || !out_size) return kInvalidArg;
    uint32_t size = lead_size(bytes_of(text)[0]);
    if (size == 0) return kInvalidUtf8;
    *out_size = size;
    return 0;
}

extern "C" uint32_t _utf8_set_next_char(char *buffer, uint32_t size, uint32_t code_point, uint32_t *out_written) {
    if (!buffer) return kInvalidArg;
    uint32_t n = encoded_size(code_point);
    if (size <= n) return kBufferTooSmall;  // one spare byte is always demanded
    auto *out = reinterpret_cast<unsigned char *>(buffer);
    for (uint32_t k = n - 1; k > 0; --k) {
        out[k] = static_cast<unsigned char>(0x80 | (code_point & 0x3F));
        code_point >>= 6;
    }
    // Sequences of 4 to 6 bytes get no marker: the decoder refuses them.
    unsigned char mark = n <= 3 ? utfmarktab[n - 1] : 0;
    out[0] = static_cast<unsigned char>(mark | code_point);
    if (out_written) *out_written = n;
    return 0;
}

uint32_t ucs2_to_utf8(const uint16_t *src, uint32_t bytes, uint8_t *dest, uint32_t *out_written, int swap) {
    if (bytes & 1) return 1;
    uint32_t written = 0;
    for (uint32_t i = 0; i < bytes / 2; ++i) {
        uint32_t u = swap ? swap16(src[i]) : src[i];
        if (u <= 0x7F) {
            dest[written++] = static_cast<uint8_t>(u);
        } else if (u <= 0x7FF) {
            dest[written++] = static_cast<uint8_t>(utfmarktab[1] | (u >> 6));
            dest[written++] = static_cast<uint8_t>(0x80 | (u & 0x3F));
        } else {
            dest[written++] = static_cast<uint8_t>(utfmarktab[2] | (u >> 12));
            dest[written++] = static_cast<uint8_t>(0x80 | ((u >> 6) & 0x3F));
            dest[written++] = static_cast<uint8_t>(0x80 | (u & 0x3F));
        }
    }
    *out_written = written;
    return 0;
}

uint32_t utf8_to_ucs2(const uint8_t *src, uint32_t bytes, uint16_t *dest, uint32_t *out_written, int swap) {
    uint32_t written = 0;
    *out_written = 0;
    uint32_t pos = 0;
    while (pos < bytes) {
        // The lead byte's size is checked against the bytes left before the
        // decoder reads the sequence.
        uint32_t size = lead_size(src[pos]);
        if (size == 0 || size > bytes - pos) return 1;
        const uint32_t value = decode_utf8(src + pos, &size);
        if (size == 0) return 1;
        auto unit = static_cast<uint16_t>(value);
        dest[written / 2] = swap ? swap16(unit) : unit;
        written += 2;
        *out_written = written;
        pos += size;
    }
    return 0;
}

int is_little_endian(void) {
    const uint16_t probe = 1;
    return *reinterpret_cast<const uint8_t *>(&probe) == 1;
}

OMBR_API uint32_t ombr_string_utf8_to_ucs2_buf(const char *input, uint32_t input_bytes, uint16_t *output,
                                               uint32_t *out_bytes_written, uint8_t byte_swap) {
    if (!out_bytes_written) return kInvalidArg;
    *out_bytes_written = 0;
    if (input_bytes == 0) return 0;
    if (!input || !output) return kInvalidArg;
    // The low-level conversion counts the bytes written as it goes, also up
    // to a bad sequence.
    if (utf8_to_ucs2(bytes_of(input), input_bytes, output, out_bytes_written, byte_swap) != 0) return kInvalidUtf8;
    return 0;
}

OMBR_API uint32_t ombr_string_utf8_to_ucs2(const char *text, uint16_t **out_block, uint8_t byte_swap) {
    if (!text || !out_block) return kInvalidArg;
    uint32_t size = ombr_string_bytelen(text);
    auto *block = static_cast<uint16_t *>(alloc_conversion_block(size));
    if (!block) return kConvertNoMemory;
    uint32_t written = 0;
    uint32_t status = ombr_string_utf8_to_ucs2_buf(text, size, block, &written, byte_swap);
    if (status != 0) {
        ombr_memory_free(block);
        return status;
    }
    *out_block = block;
    return 0;
}

OMBR_API uint32_t ombr_string_ucs2_to_utf8_buf(const uint16_t *input, uint32_t input_bytes, char *output,
                                               uint32_t *inout_size, uint8_t byte_swap) {
    if (!inout_size) return kInvalidArg;
    uint32_t room = *inout_size;
    *inout_size = 0;
    if (input_bytes & 1) return kOddUcs2;
    if (input_bytes == 0) return 0;
    if (!input || !output) return kInvalidArg;
    // Each unit is a code point of its own: surrogate pairs are not joined.
    // With room for three bytes a unit and the spare byte, no unit can fail
    // the room test, so the units go through the plain encoder in one run.
    const uint32_t units = input_bytes / 2;
    if (room > uint64_t{units} * 3)
        return ucs2_to_utf8(input, input_bytes, reinterpret_cast<uint8_t *>(output), inout_size, byte_swap);
    for (uint32_t i = 0; i < units; ++i) {
        uint16_t unit = byte_swap ? swap16(input[i]) : input[i];
        uint32_t written = 0;
        uint32_t status = _utf8_set_next_char(output + *inout_size, room - *inout_size, unit, &written);
        if (status != 0) return status;
        *inout_size += written;
    }
    return 0;
}

OMBR_API uint32_t ombr_string_ucs2_to_utf8(const uint16_t *text, char **out_block, uint8_t byte_swap) {
    if (!text || !out_block) return kInvalidArg;
    uint32_t size = ombr_string_bytelen_uni(text);
    auto *block = static_cast<char *>(alloc_conversion_block(size));
    if (!block) return kConvertNoMemory;
    uint32_t room = size * 4 + 8;
    uint32_t status = ombr_string_ucs2_to_utf8_buf(text, size, block, &room, byte_swap);
    if (status != 0) {
        ombr_memory_free(block);
        return status;
    }
    *out_block = block;
    return 0;
}

OMBR_API uint32_t ombr_string_charlen_uni(const uint16_t *text) {
    if (!text) return 0;
    uint32_t n = 0;
    while (text[n] != 0) ++n;
    return n;
}

OMBR_API uint32_t ombr_string_bytelen_uni(const uint16_t *text) {
    if (!text) return 0;
    return (ombr_string_charlen_uni(text) + 1) * 2;
}
