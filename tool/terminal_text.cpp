// Terminal-safe forms of text and the search-text check.
#include "tool/terminal_text.h"

#include <cstdio>
#include <utility>

#include "providers/catalogue/store/utf8.h"

namespace tool {

namespace {

// Length of the UTF-8 sequence at `s` and its code point, or 0 when the
// bytes there are no valid UTF-8.
size_t decode_utf8(std::string_view s, char32_t &cp) {
    size_t n = 0;
    const int32_t c = catalogue::next_code_point(s, n);
    if (c < 0) return 0;
    cp = static_cast<char32_t>(c);
    return n;
}

// Code points that must not reach a terminal as they are: controls, and
// the format marks that reorder or break lines.
bool unsafe_code_point(char32_t cp) {
    return cp < 0x20 || (cp >= 0x7F && cp <= 0x9F) || (cp >= 0x202A && cp <= 0x202E) ||
           (cp >= 0x2066 && cp <= 0x2069) || cp == 0x2028 || cp == 0x2029;
}

}  // namespace

bool valid_utf8(std::string_view text) { return catalogue::valid_utf8(text); }

bool has_word_characters(std::string_view text) {
    // Blanks, punctuation and symbols outside ASCII: Latin-1's, the general
    // and supplemental punctuation blocks, CJK and full-width punctuation.
    static constexpr std::pair<char32_t, char32_t> kNonWord[] = {
        {0xA0, 0xBF},     {0xD7, 0xD7},     {0xF7, 0xF7},     {0x2000, 0x206F}, {0x2E00, 0x2E7F},
        {0x3000, 0x303F}, {0xFE30, 0xFE4F}, {0xFF01, 0xFF0F}, {0xFF1A, 0xFF20}, {0xFF3B, 0xFF40},
        {0xFF5B, 0xFF65}};
    for (size_t i = 0; i < text.size();) {
        char32_t cp = 0;
        const size_t n = decode_utf8(text.substr(i), cp);
        if (n == 0) return true;  // the module refuses it, with its own status
        i += n;
        if (cp < 0x80) {
            if ((cp >= '0' && cp <= '9') || ((cp | 0x20) >= 'a' && (cp | 0x20) <= 'z')) return true;
            continue;
        }
        bool word = !unsafe_code_point(cp);
        for (const auto &[lo, hi] : kNonWord) word = word && !(cp >= lo && cp <= hi);
        if (word) return true;
    }
    return false;
}

std::string terminal_safe(std::string_view text, bool keep_newlines) {
    std::string out;
    out.reserve(text.size());
    char buf[12];
    for (size_t i = 0; i < text.size();) {
        char32_t cp = 0;
        const size_t n = decode_utf8(text.substr(i), cp);
        if (n == 0) {
            std::snprintf(buf, sizeof buf, "\\x%02x", static_cast<unsigned char>(text[i]));
            out += buf;
            ++i;
            continue;
        }
        if (!unsafe_code_point(cp) || (keep_newlines && cp == '\n')) {
            out.append(text.substr(i, n));
        } else {
            std::snprintf(buf, sizeof buf, cp < 0x80 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(cp));
            out += buf;
        }
        i += n;
    }
    return out;
}

}  // namespace tool
