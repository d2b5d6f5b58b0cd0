// Text files of CD tools as lines.
#include "tool/disc/text_lines.h"

#include "providers/catalogue/store/utf8.h"

namespace disc {

namespace {

enum class Encoding { bytes, utf16le, utf16be };

// Collects characters into lines; a CR LF pair ends one line. put() takes a
// code point to encode as UTF-8, put_byte() a byte of 8-bit text kept as it is.
class LineSplitter {
   public:
    void put_byte(char c) { put(static_cast<unsigned char>(c), true); }
    void put(uint32_t cp, bool raw = false) {
        if (cp == '\n' && after_cr_) {
            after_cr_ = false;
            return;
        }
        after_cr_ = cp == '\r';
        if (cp == '\n' || cp == '\r') {
            lines_.push_back(std::move(current_));
            current_.clear();
            return;
        }
        if (raw) current_ += static_cast<char>(cp);
        else catalogue::append_utf8(current_, cp);
    }
    size_t line_number() const { return lines_.size() + 1; }
    std::vector<std::string> finish() {
        if (!current_.empty()) lines_.push_back(std::move(current_));
        return std::move(lines_);
    }

   private:
    std::vector<std::string> lines_;
    std::string current_;
    bool after_cr_ = false;
};

Expected<std::vector<std::string>> decode_utf16(std::string_view b, bool little_endian) {
    LineSplitter lines;
    auto unit = [&](size_t i) {
        const auto lo = static_cast<unsigned char>(b[little_endian ? i : i + 1]);
        const auto hi = static_cast<unsigned char>(b[little_endian ? i + 1 : i]);
        return static_cast<uint32_t>(hi << 8 | lo);
    };
    size_t i = 0;
    for (; i + 1 < b.size(); i += 2) {
        uint32_t cp = unit(i);
        if (cp >= 0xD800 && cp <= 0xDBFF) {
            const uint32_t low = i + 3 < b.size() ? unit(i + 2) : 0;
            if (low < 0xDC00 || low > 0xDFFF)
                return Error{lines.line_number(), "invalid UTF-16: a high surrogate without its low half"};
            cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
            i += 2;
        } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
            return Error{lines.line_number(), "invalid UTF-16: a low surrogate without its high half"};
        } else if (cp == 0) {
            return Error{lines.line_number(), "NUL character in UTF-16 text"};
        }
        lines.put(cp);
    }
    if (i < b.size()) return Error{lines.line_number(), "UTF-16 text ends in half a character (odd byte count)"};
    return lines.finish();
}

Expected<std::vector<std::string>> split_bytes(std::string_view b) {
    LineSplitter lines;
    for (char c : b) {
        if (c == '\0') return Error{lines.line_number(), "NUL byte: not a text file (or UTF-16 without a byte order mark)"};
        lines.put_byte(c);
    }
    return lines.finish();
}

}  // namespace

Expected<std::vector<std::string>> text_lines(std::string_view b) {
    if (b.size() > kMaxTextBytes)
        return Error{0, "file of " + std::to_string(b.size()) + " bytes; CUE sheets and rip logs are far smaller"};
    auto byte = [&](size_t i) { return i < b.size() ? static_cast<unsigned char>(b[i]) : 0x100u; };
    if (byte(0) == 0xEF && byte(1) == 0xBB && byte(2) == 0xBF) return split_bytes(b.substr(3));
    if (byte(0) == 0xFF && byte(1) == 0xFE) return decode_utf16(b.substr(2), true);
    if (byte(0) == 0xFE && byte(1) == 0xFF) return decode_utf16(b.substr(2), false);
    // Without a byte order mark, ASCII in UTF-16 shows a zero byte in every pair.
    if (b.size() >= 2 && byte(0) != 0 && byte(1) == 0) return decode_utf16(b, true);
    if (b.size() >= 2 && byte(0) == 0 && byte(1) != 0) return decode_utf16(b, false);
    return split_bytes(b);
}

std::string_view trim(std::string_view s) {
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f'; };
    while (!s.empty() && blank(s.front())) s.remove_prefix(1);
    while (!s.empty() && blank(s.back())) s.remove_suffix(1);
    return s;
}

namespace {
char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
}  // namespace

bool starts_with_nocase(std::string_view s, std::string_view prefix) {
    return s.size() >= prefix.size() && equals_nocase(s.substr(0, prefix.size()), prefix);
}

bool equals_nocase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (lower(a[i]) != lower(b[i])) return false;
    return true;
}

bool parse_number(std::string_view s, uint32_t &out) {
    if (s.empty() || s.size() > 9) return false;
    uint32_t n = 0;
    for (char c : s) {
        if (c < '0' || c > '9') return false;
        n = n * 10 + static_cast<uint32_t>(c - '0');
    }
    out = n;
    return true;
}

Expected<uint32_t> parse_msf(std::string_view s) {
    const size_t colon = s.find(':');
    const size_t last = s.find_last_of(":.");
    uint32_t m = 0, sec = 0, f = 0;
    if (colon == std::string_view::npos || last == colon || colon > 3 || last != colon + 3 || s.size() != last + 3 ||
        !parse_number(s.substr(0, colon), m) || !parse_number(s.substr(colon + 1, 2), sec) ||
        !parse_number(s.substr(last + 1), f))
        return Error{0, "\"" + std::string(s.substr(0, 16)) + "\" is not a time mm:ss:ff"};
    if (sec > 59) return Error{0, "seconds " + std::to_string(sec) + " above 59 in " + std::string(s)};
    if (f >= kFramesPerSecond) return Error{0, "frames " + std::to_string(f) + " above 74 in " + std::string(s)};
    return (m * 60 + sec) * kFramesPerSecond + f;
}

}  // namespace disc
