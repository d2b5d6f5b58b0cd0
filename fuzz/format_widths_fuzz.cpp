// Fuzzes the format engine's widths and precisions from the arguments,
// anywhere in the 32-bit range, on the conversions whose width has no cap
// (texts, characters, the percent sign), between plain text, into buffers
// of any size. The buffer form must write exactly the first size - 1 bytes
// of the full text (spaces, then the text, or the other way round when left
// justified) and return its length + 1, with work bounded by the buffer: a
// width near 2^31 costs no more than a small one. Widths that fit in memory
// give the same text through the new-text form.
#include <climits>
#include <string>

#include "fuzz/fuzz_support.h"
#include "ombr/ombr_string.h"
#include "ombr/ombr_string_printf.h"

namespace {

using fuzz::require;

// The magnitude the engine takes of a width or precision argument.
int64_t magnitude(int32_t v) { return v == INT_MIN ? INT_MAX : (v < 0 ? -int64_t{v} : v); }

struct Expected {
    std::string head;      // plain text before the conversion
    std::string body;      // the converted text without padding
    int64_t pad = 0;       // spaces
    bool left = false;     // spaces after the body
    std::string tail;      // plain text after
    int64_t length() const {
        return static_cast<int64_t>(head.size() + body.size() + tail.size()) + pad;
    }
    // Byte i of the full text.
    char at(int64_t i) const {
        if (i < static_cast<int64_t>(head.size())) return head[static_cast<size_t>(i)];
        i -= static_cast<int64_t>(head.size());
        const int64_t body_at = left ? 0 : pad;
        if (i >= body_at && i < body_at + static_cast<int64_t>(body.size())) return body[static_cast<size_t>(i - body_at)];
        if (i < pad + static_cast<int64_t>(body.size())) return ' ';
        return tail[static_cast<size_t>(i - pad - static_cast<int64_t>(body.size()))];
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 512) return 0;
    fuzz::Input in(data, size);
    const uint8_t shape = in.byte();
    const int32_t width = in.value<int32_t>();
    const int32_t precision = in.value<int32_t>();
    const uint32_t buffer_size = 1 + in.value<uint16_t>() % 600;
    std::string head = in.text(20), tail = in.text(20), text = in.text(60);
    // Plain text of printable ASCII without '%' (invalid UTF-8 in a format
    // ends it; the differential format harness covers that).
    for (std::string *s : {&head, &tail})
        for (char &c : *s) {
            c = static_cast<char>(0x20 + static_cast<unsigned char>(c) % 0x5F);
            if (c == '%') c = '/';
        }
    const char character = static_cast<char>(0x20 + in.byte() % 0x5F);

    Expected e;
    e.head = head;
    e.tail = tail;
    e.left = width < 0 || (shape & 4);
    const int64_t w = magnitude(width);
    std::string conversion;
    switch (shape % 4) {
        case 0:  // "%*s": the width also cuts the text
            conversion = "%*s";
            e.body = text.substr(0, static_cast<size_t>(std::min<int64_t>(w, static_cast<int64_t>(text.size()))));
            break;
        case 1:  // "%*.*s": the precision cuts it
            conversion = "%*.*s";
            e.body = text.substr(0, static_cast<size_t>(std::min<int64_t>(magnitude(precision),
                                                                          static_cast<int64_t>(text.size()))));
            break;
        case 2:
            conversion = "%*c";
            e.body = std::string(1, character);
            break;
        default:
            conversion = "%*%";
            e.body = "%";
            break;
    }
    if (shape & 4) conversion.insert(1, "-");
    e.pad = w > static_cast<int64_t>(e.body.size()) ? w - static_cast<int64_t>(e.body.size()) : 0;
    const std::string format = head + conversion + tail;

    std::string buffer(buffer_size + 16, '\x55');
    uint32_t result = 0;
    switch (shape % 4) {
        case 0: result = ombr_string_snprintf(buffer.data(), buffer_size, format.c_str(), width, text.c_str()); break;
        case 1:
            result = ombr_string_snprintf(buffer.data(), buffer_size, format.c_str(), width, precision, text.c_str());
            break;
        case 2: result = ombr_string_snprintf(buffer.data(), buffer_size, format.c_str(), width, unsigned{uint8_t(character)}); break;
        default: result = ombr_string_snprintf(buffer.data(), buffer_size, format.c_str(), width); break;
    }
    const int64_t length = e.length();
    require(result == (length == 0 ? 0u : static_cast<uint32_t>(length + 1)), "result is the full length + 1",
            format + " width " + std::to_string(width));
    const int64_t kept = std::min<int64_t>(length, buffer_size - 1);
    for (int64_t i = 0; i < kept; ++i) require(buffer[static_cast<size_t>(i)] == e.at(i), "text byte", format);
    require(buffer[static_cast<size_t>(kept)] == 0, "terminated", format);
    require(buffer[buffer_size] == '\x55', "nothing past the buffer", format);

    // The new-text form, where the text fits comfortably in memory.
    if (length < 65536 && shape % 4 == 0) {
        const fuzz::BlockCount blocks;
        char *full = ombr_string_mprintf(format.c_str(), width, text.c_str());
        require(full != nullptr || length == 0, "mprintf", format);
        if (full) {
            require(static_cast<int64_t>(std::strlen(full)) == length, "mprintf length", format);
            for (int64_t i = 0; i < length; ++i) require(full[i] == e.at(i), "mprintf text", format);
        }
        ombr_string_free(full);
        blocks.check("mprintf gives back its blocks");
    }
    return 0;
}
