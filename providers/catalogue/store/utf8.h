// UTF-8 of the catalogue and of the tool: the one decoder and encoder, and
// the reading of 8-bit text (Windows-1252, which covers ISO-8859-1) that
// old disc files are written in. Header-only so that the tool, which links
// the host library without its internal symbols, uses the same code.
#ifndef ZELTO_PROVIDERS_CATALOGUE_STORE_UTF8_H
#define ZELTO_PROVIDERS_CATALOGUE_STORE_UTF8_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace catalogue {

// Decodes the sequence at text[i], returns its code point and moves i past
// it; an invalid, overlong, truncated or surrogate sequence gives -1 and
// moves i past its first byte.
inline int32_t next_code_point(std::string_view text, size_t &i) {
    const auto b0 = static_cast<unsigned char>(text[i]);
    if (b0 < 0x80) {
        ++i;
        return b0;
    }
    int len = 0;
    int32_t cp = 0;
    if ((b0 & 0xE0) == 0xC0) {
        len = 2;
        cp = b0 & 0x1F;
    } else if ((b0 & 0xF0) == 0xE0) {
        len = 3;
        cp = b0 & 0x0F;
    } else if ((b0 & 0xF8) == 0xF0) {
        len = 4;
        cp = b0 & 0x07;
    } else {
        ++i;
        return -1;
    }
    if (i + static_cast<size_t>(len) > text.size()) {
        ++i;
        return -1;
    }
    for (int k = 1; k < len; ++k) {
        const auto b = static_cast<unsigned char>(text[i + static_cast<size_t>(k)]);
        if ((b & 0xC0) != 0x80) {
            ++i;
            return -1;
        }
        cp = (cp << 6) | (b & 0x3F);
    }
    constexpr int32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kMin[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        ++i;
        return -1;
    }
    i += static_cast<size_t>(len);
    return cp;
}

// Appends the UTF-8 form of a code point.
inline void append_utf8(std::string &out, uint32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

inline bool valid_utf8(std::string_view text) {
    for (size_t i = 0; i < text.size();)
        if (next_code_point(text, i) < 0) return false;
    return true;
}

// Code points of the Windows-1252 bytes 0x80..0x9F, where it differs from
// ISO-8859-1 (typographic quotes, dashes, the euro sign...). The five bytes
// it leaves undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D) keep the C1 control
// of the same value, as web browsers decode them: nothing of the input is
// lost, and printing shows such a control as an escape.
inline constexpr char16_t kWindows1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80..87
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // 88..8F
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90..97
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // 98..9F
};

// 8-bit text read as Windows-1252 (bytes 0xA0..0xFF as in ISO-8859-1).
inline std::string windows1252_to_utf8(std::string_view text) {
    std::string out;
    out.reserve(text.size() + text.size() / 2);
    for (char ch : text) {
        const auto b = static_cast<unsigned char>(ch);
        append_utf8(out, b >= 0x80 && b < 0xA0 ? kWindows1252High[b - 0x80] : b);
    }
    return out;
}

// One line of a file of unknown, possibly mixed, encoding: kept as it is
// when it is valid UTF-8, else read as Windows-1252. Always valid UTF-8.
inline std::string decode_text_line(std::string_view line) {
    return valid_utf8(line) ? std::string(line) : windows1252_to_utf8(line);
}

}  // namespace catalogue

#endif
