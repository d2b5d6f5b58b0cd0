// Text from a catalogue or a file as a terminal may show it, and the check
// that a search text has something to search for.
#ifndef CANTRIX_TOOL_TERMINAL_TEXT_H
#define CANTRIX_TOOL_TERMINAL_TEXT_H

#include <string>
#include <string_view>

namespace tool {

// Printable UTF-8 stays as it is; control characters (C0, DEL, C1), the
// marks that reorder text (bidirectional overrides and isolates, line and
// paragraph separators) and bytes that are no valid UTF-8 become visible
// escapes ("\x1b", "\u202e"), so that no stored title can move the cursor,
// recolour or retitle the terminal. With `keep_newlines`, a line feed stays
// (lyrics).
std::string terminal_safe(std::string_view text, bool keep_newlines = false);

// Whether a search text has a letter or digit to search for (false for
// blanks and punctuation only; true for text that is no valid UTF-8, which
// the module refuses).
bool has_word_characters(std::string_view text);

bool valid_utf8(std::string_view text);

}  // namespace tool

#endif
