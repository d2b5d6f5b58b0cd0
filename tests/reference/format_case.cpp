// One differential case of the format engine, built from arbitrary bytes:
// plain text (any bytes, also invalid UTF-8), one conversion with fuzzed
// flags, width, precision and length, an argument of the type the
// conversion reads, and optionally a trailing "%s" or "%w" that sees the
// per-call width state. The library's buffer, new-text and accumulator
// forms must give what the reference gives.
#include <cstring>
#include <string>

#include "string/ombr_string_printf_internal.h"
#include "tests/reference/reference.h"

namespace {

class Bytes {
   public:
    Bytes(const uint8_t *data, size_t size) : p_(data), end_(data + size) {}
    uint8_t byte() { return p_ < end_ ? *p_++ : 0; }
    template <typename T>
    T value() {
        T v{};
        const size_t n = static_cast<size_t>(end_ - p_) < sizeof v ? static_cast<size_t>(end_ - p_) : sizeof v;
        if (n != 0) std::memcpy(&v, p_, n);
        p_ += n;
        return v;
    }
    // A text of up to `max` bytes, any values but 0.
    std::string text(size_t max) {
        std::string s;
        for (size_t n = byte() % (max + 1); n > 0 && p_ < end_; --n) {
            const uint8_t b = byte();
            s += static_cast<char>(b ? b : 'a');
        }
        return s;
    }

   private:
    const uint8_t *p_;
    const uint8_t *end_;
};

// Plain text without '%' (a '%' would start a conversion that reads an
// argument); an unknown conversion "%z" may be put in on purpose.
std::string plain(Bytes &in) {
    std::string s = in.text(12);
    for (char &c : s)
        if (c == '%') c = '/';
    if (in.byte() % 4 == 0) s += "%z";
    return s;
}

uint32_t reference_snprintf(char *dest, uint32_t size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const uint32_t r = reference::string_vsnprintf(dest, size, format, args);
    va_end(args);
    return r;
}

int32_t mvprintf(char **out, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t r = _ombr_string_mvprintf(out, format, args);
    va_end(args);
    return r;
}

void reference_append(ombr_string_accum_t accum, const char *format, ...) {
    va_list args;
    va_start(args, format);
    reference::string_printf(accum, format, args);
    va_end(args);
}

struct Checker {
    const char *format;
    uint32_t size;
    std::string failure;

    template <typename... A>
    void operator()(A... args) {
        char ours[4096], theirs[4096];
        std::memset(ours, 0x55, sizeof ours);
        std::memset(theirs, 0x55, sizeof theirs);
        const uint32_t r_ours = ombr_string_snprintf(ours, size, format, args...);
        const uint32_t r_ref = reference_snprintf(theirs, size, format, args...);
        if (r_ours != r_ref || std::memcmp(ours, theirs, size) != 0) {
            failure = std::string("snprintf differs for \"") + format + "\" size " + std::to_string(size) + ": " +
                      std::to_string(r_ours) + " against " + std::to_string(r_ref);
            return;
        }
        // The accumulator form and the new-text form against the full text.
        ombr_string_accum_t accum = nullptr;
        if (ombr_string_accum_create(&accum, nullptr, 0) != 0) return;
        reference_append(accum, format, args...);
        const char *expected = nullptr;
        uint32_t expected_size = 0;
        ombr_string_accum_get_string(accum, &expected, &expected_size);
        std::string full = expected_size ? std::string(expected, expected_size - 1) : std::string();
        ombr_string_accum_delete(accum);

        // Texts may hold NUL bytes (from "%c" of 0): compare by length.
        char *text = nullptr;
        const int32_t r_text = mvprintf(&text, format, args...);
        const std::string got = text && r_text > 0 ? std::string(text, static_cast<size_t>(r_text) - 1) : std::string();
        if (!text || got != full)
            failure = std::string("mprintf differs for \"") + format + "\": \"" + got + "\" against \"" + full + "\"";
        ombr_string_free(text);
        if (r_ref != (full.empty() ? 0u : static_cast<uint32_t>(full.size()) + 1))
            failure = std::string("reference result differs from its text for \"") + format + "\"";
    }
};

}  // namespace

std::string reference::check_format_case(const uint8_t *data, size_t size) {
    Bytes in(data, size);
    static constexpr char kConversions[] = "dswgcouxXhbfeEGi%pq";
    static constexpr char kFlags[] = "-+ #!0";
    static constexpr const char *kLengths[] = {"", "", "l", "ll", "h", "hh"};

    std::string format = plain(in);
    format += '%';
    for (uint8_t f = in.byte(), i = 0; i < 6; ++i)
        if (f & (1u << i)) format += kFlags[i];
    const uint8_t width_kind = in.byte() % 3;  // none, digits, '*'
    int star_width = 0;
    if (width_kind == 1) format += std::to_string(in.value<uint16_t>() % 600);
    if (width_kind == 2) {
        format += '*';
        star_width = in.value<int16_t>();
    }
    const uint8_t precision_kind = in.byte() % 4;  // none, '.', digits, '*'
    int star_precision = 0;
    if (precision_kind == 1) format += '.';
    if (precision_kind == 2) format += '.' + std::to_string(in.value<uint16_t>() % 400);
    if (precision_kind == 3) {
        format += ".*";
        star_precision = in.value<int16_t>();
    }
    std::string length = kLengths[in.byte() % 6];
    const char conversion = kConversions[in.byte() % (sizeof kConversions - 1)];
    // 'h' is a conversion only behind a complete length ("%hhh", "%lh").
    if (conversion == 'h' && (length.empty() || length == "h")) length = "hh";
    format += length;
    format += conversion;
    format += plain(in);
    const uint8_t trailing = in.byte() % 3;  // none, "%s", "%w"
    if (trailing) format += trailing == 1 ? "%s" : "%w";
    format += plain(in);

    Checker check{format.c_str(), 1u + in.value<uint16_t>() % 700u, {}};
    const std::string text = in.text(40);
    const char *string_arg = in.byte() % 8 == 0 ? nullptr : text.c_str();
    const std::string tail_text = in.text(20);

    // Calls with the argument types the format reads, in order.
    auto with_values = [&](auto... value) {
        auto call = [&](auto... leading) {
            if (trailing)
                check(leading..., value..., tail_text.c_str());
            else
                check(leading..., value...);
        };
        if (width_kind == 2 && precision_kind == 3)
            call(star_width, star_precision);
        else if (width_kind == 2)
            call(star_width);
        else if (precision_kind == 3)
            call(star_precision);
        else
            call();
    };
    switch (conversion) {
        case 'd':
        case 'i':
        case 'h':
            if (length == "ll")
                with_values(in.value<long long>());
            else if (length == "l")
                with_values(in.value<long>());
            else
                with_values(in.value<int>());
            break;
        case 'o':
        case 'u':
        case 'x':
        case 'X':
        case 'b':
            if (length == "ll")
                with_values(in.value<unsigned long long>());
            else if (length == "l")
                with_values(in.value<unsigned long>());
            else
                with_values(in.value<unsigned>());
            break;
        case 'c': with_values(in.value<unsigned>()); break;
        case 'p': with_values(reinterpret_cast<void *>(in.value<uintptr_t>())); break;
        case 'g':
        case 'f':
        case 'e':
        case 'E':
        case 'G': with_values(in.value<double>()); break;
        case 's':
        case 'w': with_values(string_arg); break;
        default:  // '%' and the unknown 'q' read nothing
            with_values();
            break;
    }
    return check.failure;
}
