// libFuzzer harness of the tool's terminal text: whatever a catalogue holds,
// the shown form has no control byte and is valid UTF-8; printable UTF-8
// without controls or reordering marks comes out unchanged; showing twice
// changes nothing more. The search-text check takes every text with an
// ASCII letter or digit, and refuses pure ASCII without one.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "tool/terminal_text.h"

namespace {

void require(bool ok, const char *what) {
    if (!ok) {
        std::fprintf(stderr, "property failed: %s\n", what);
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 1 << 16) return 0;
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    for (bool keep_newlines : {false, true}) {
        const std::string shown = tool::terminal_safe(text, keep_newlines);
        for (unsigned char c : shown)
            require(c >= 0x20 ? c != 0x7F : keep_newlines && c == '\n', "no control byte is shown");
        require(tool::valid_utf8(shown), "the shown text is valid UTF-8");
        require(tool::terminal_safe(shown, keep_newlines) == shown, "showing twice changes nothing more");
        if (tool::valid_utf8(text) && shown.size() == text.size()) require(shown == text, "nothing escaped, nothing changed");
    }
    bool ascii = true, alnum = false;
    for (unsigned char c : text) {
        ascii = ascii && c < 0x80;
        alnum = alnum || (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z');
    }
    if (alnum) require(tool::has_word_characters(text), "a letter or digit is something to search for");
    if (ascii && !alnum) require(!tool::has_word_characters(text), "blanks and punctuation are nothing to search for");
    return 0;
}
