// Text files of CD tools as lines: CUE sheets and rip logs come in UTF-8,
// in a Windows code page, or in UTF-16 (EAC writes its logs in UTF-16LE with
// a byte order mark).
#ifndef CANTRIX_TOOL_DISC_TEXT_LINES_H
#define CANTRIX_TOOL_DISC_TEXT_LINES_H

#include <string>
#include <string_view>
#include <vector>

#include "tool/disc/disc.h"

namespace disc {

// Largest file the readers take: real CUE sheets and logs are a few kB.
inline constexpr size_t kMaxTextBytes = 8u << 20;

// Splits a file into lines (LF, CR LF or CR end a line). UTF-16 (by its byte
// order mark, or by the zero bytes of ASCII text without one) is converted
// to UTF-8; other text is kept byte for byte, since the readers need only
// ASCII keywords and numbers. Refuses, naming the line: a NUL byte in 8-bit
// text, an unpaired surrogate or a NUL character in UTF-16, and UTF-16 text
// of odd length.
Expected<std::vector<std::string>> text_lines(std::string_view bytes);

// ASCII helpers shared by the readers.
std::string_view trim(std::string_view s);
bool starts_with_nocase(std::string_view s, std::string_view prefix);
bool equals_nocase(std::string_view a, std::string_view b);
// A decimal number of at most 9 digits; false for anything else.
bool parse_number(std::string_view s, uint32_t &out);

// A time "mm:ss:ff" (CUE sheets, XLD) or "m:ss.ff" (EAC) as frames: minutes
// of 1 to 3 digits, seconds and frames of 2. The error (line 0) says what is
// wrong: seconds above 59, frames above 74, or not a time at all.
Expected<uint32_t> parse_msf(std::string_view s);

}  // namespace disc

#endif
