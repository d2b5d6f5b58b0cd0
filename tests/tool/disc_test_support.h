// Helpers of the disc layer's tests.
#ifndef CANTRIX_TESTS_TOOL_DISC_TEST_SUPPORT_H
#define CANTRIX_TESTS_TOOL_DISC_TEST_SUPPORT_H

#include <string>
#include <vector>

#include "tool/disc/disc.h"

namespace disc_test {

// UTF-16 bytes of a text, little or big endian (a byte order mark is given
// as U+FEFF in the text itself).
inline std::string utf16(const std::u16string &text, bool little_endian) {
    std::string out;
    for (char16_t c : text) {
        const char lo = static_cast<char>(c & 0xFF), hi = static_cast<char>(c >> 8);
        out += little_endian ? lo : hi;
        out += little_endian ? hi : lo;
    }
    return out;
}

// UTF-16LE with a byte order mark of an ASCII text, as EAC writes its logs.
inline std::string utf16le_with_bom(const std::string &ascii) {
    std::u16string text = u"\uFEFF";
    for (char c : ascii) text += static_cast<char16_t>(static_cast<unsigned char>(c));
    return utf16(text, true);
}

// The audio session in "first last lead-out offsets" form, or the error.
inline std::string audio_text(const disc::Disc &d) {
    auto toc = disc::audio_session(d);
    return toc ? toc->musicbrainz_text() : "error: " + toc.error().message;
}

// "number:offset" of every track, "d" marking data tracks, and the lead-out.
inline std::string layout(const disc::Disc &d) {
    std::string out;
    for (const disc::Track &t : d.tracks)
        out += std::to_string(t.number) + ":" + std::to_string(t.offset) + (t.data ? "d " : " ");
    return out + "leadout:" + (d.leadout ? std::to_string(*d.leadout) : "?");
}

// "line: message" of a refusal, or "accepted".
template <typename T>
std::string refusal(const disc::Expected<T> &result) {
    return result ? "accepted" : std::to_string(result.error().line) + ": " + result.error().message;
}

// The same for an expected line and message.
inline std::string refusal(size_t line, const std::string &message) { return std::to_string(line) + ": " + message; }

}  // namespace disc_test

#endif
