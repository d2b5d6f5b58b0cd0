// Differential cases of the text kernels that TOC texts pass through:
// tokens split at delimiters, the 32-bit decimal reader and the UTF-8
// check, each against its plain form.
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "string/ombr_string_internal.h"
#include "tests/reference/reference.h"

uint32_t reference::string_strtoul(const char *s, char **end, int32_t base) {
    if (!s) {
        if (end) *end = nullptr;
        return 0;
    }
    if constexpr (sizeof(unsigned long) > sizeof(uint32_t)) {
        const int saved_errno = errno;
        errno = 0;
        unsigned long value = std::strtoul(s, end, base);
        const bool overflow = errno == ERANGE;
        if (errno == 0) errno = saved_errno;
        const char *t = s;
        while (std::isspace(static_cast<unsigned char>(*t))) ++t;
        const unsigned long magnitude = *t == '-' ? 0 - value : value;
        if (overflow || magnitude > UINT32_MAX) {
            errno = ERANGE;
            return UINT32_MAX;
        }
        return static_cast<uint32_t>(value);
    } else {
        return static_cast<uint32_t>(std::strtoul(s, end, base));
    }
}

char *reference::string_strtok(char *s, const char *delimiters, char **save, char *out_delimiter) {
    if (!save) return nullptr;
    char *cursor = s ? s : *save;
    if (!cursor) return nullptr;
    auto is_delimiter = [delimiters](char c) {
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

uint32_t reference::string_isvalid(const char *s) {
    if (!s) return 1;
    for (const char *cursor = s; *cursor != 0;) {
        if (_utf8_get_next_char(&cursor, nullptr) != 0) return 0;
    }
    return 1;
}

namespace {

// Every token of `text`, with the delimiter met after it and what remains
// of the buffer, as one text to compare.
template <typename Strtok>
std::string tokens(std::string text, const char *delimiters, Strtok strtok) {
    std::string out;
    char *save = nullptr;
    char delimiter = 'x';
    for (char *t = strtok(text.data(), delimiters, &save, &delimiter); t;
         t = strtok(nullptr, delimiters, &save, &delimiter)) {
        out += '[';
        out += t;
        out += "] ";
        out += std::to_string(static_cast<unsigned char>(delimiter)) + " " +
               std::to_string(save ? save - text.data() : -1) + "\n";
    }
    out += std::to_string(static_cast<unsigned char>(delimiter)) + (save ? " save" : " null") + "\n";
    out.append(text.data(), text.size());
    return out;
}

std::string number_reading(const char *text, bool ours) {
    errno = 12345;
    char *end = nullptr;
    const uint32_t value =
        ours ? ombr_string_strtoul(text, &end, 10) : reference::string_strtoul(text, &end, 10);
    return std::to_string(value) + " end " + std::to_string(end - text) + " errno " + std::to_string(errno);
}

}  // namespace

std::string reference::check_text_case(const uint8_t *data, size_t size) {
    // The first byte picks the delimiters: none, one of a few (ASCII and
    // not), or two; the rest is the text, digits being made common.
    static constexpr const char *kDelimiters[] = {"", " ", ",", "\t", " ,", "\xC3", "\xC3\xA9", "0", " \xC3\xA9"};
    const char *delimiters = size ? kDelimiters[data[0] % (sizeof kDelimiters / sizeof *kDelimiters)] : " ";
    std::string text;
    for (size_t i = 1; i < size; ++i) {
        const uint8_t b = data[i];
        if (b == 0) break;
        text += b >= 0xF0 ? static_cast<char>('0' + (b & 7)) : b >= 0xE8 ? ' ' : static_cast<char>(b);
    }
    const std::string ours = tokens(text, delimiters, ombr_string_strtok);
    const std::string ref = tokens(text, delimiters, reference::string_strtok);
    if (ours != ref) return "strtok of '" + text + "' at '" + delimiters + "':\n" + ours + "\nreference:\n" + ref;
    if (ombr_string_isvalid(text.c_str()) != reference::string_isvalid(text.c_str()))
        return "isvalid of '" + text + "'";
    // Each token alone, and the whole text, as a number.
    std::vector<std::string> pieces{text};
    for (size_t start = 0; start <= text.size();) {
        size_t stop = text.find(' ', start);
        if (stop == std::string::npos) stop = text.size();
        pieces.push_back(text.substr(start, stop - start));
        start = stop + 1;
    }
    for (const std::string &piece : pieces) {
        const std::string a = number_reading(piece.c_str(), true), b = number_reading(piece.c_str(), false);
        if (a != b) return "strtoul of '" + piece + "': " + a + ", reference " + b;
    }
    return "";
}
