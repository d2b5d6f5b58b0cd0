// Reference format engine for the differential tests and fuzzers: the plain
// rendition of the engine's rules, one character and one append at a time,
// always through an accumulator on a 300-byte stack area. The library's
// engine must produce exactly the same text and result.
#include <limits.h>

#include "string/ombr_string_internal.h"
#include "tests/reference/reference.h"

namespace {

// ---- Conversion table -----------------------------------------------------------

enum class Kind : uint8_t { Radix, String, Word, Generic, Char, Fixed, Exponent, Percent, Pointer };

constexpr uint8_t kFlagUnsigned = 1;
constexpr uint8_t kFlagSigned = 2;
constexpr uint8_t kFlagString = 4;  // not capped by the precision limit

struct FmtInfo {
    char fmttype;
    uint8_t base;
    uint8_t flags;
    Kind kind;
    uint8_t charset;  // offset into s_aDigits
    uint8_t prefix;   // offset into s_aPrefix, 0 for none
};

// Searched in this order.
constexpr FmtInfo s_fmtinfo[] = {
    {'d', 10, kFlagSigned, Kind::Radix, 0, 0},     {'s', 0, kFlagString, Kind::String, 0, 0},
    {'w', 0, kFlagString, Kind::Word, 0, 0},       {'g', 0, kFlagSigned, Kind::Generic, 30, 0},
    {'c', 0, kFlagUnsigned, Kind::Char, 0, 0},     {'o', 8, kFlagUnsigned, Kind::Radix, 0, 2},
    {'u', 10, kFlagUnsigned, Kind::Radix, 0, 0},   {'x', 16, kFlagUnsigned, Kind::Radix, 16, 1},
    {'X', 16, kFlagUnsigned, Kind::Radix, 0, 4},   {'h', 10, kFlagSigned, Kind::Radix, 0, 0},
    {'b', 2, kFlagUnsigned, Kind::Radix, 0, 0},    {'f', 0, kFlagSigned, Kind::Fixed, 0, 0},
    {'e', 0, kFlagSigned, Kind::Exponent, 30, 0},  {'E', 0, kFlagSigned, Kind::Exponent, 14, 0},
    {'G', 0, kFlagSigned, Kind::Generic, 14, 0},   {'i', 10, kFlagSigned, Kind::Radix, 0, 0},
    {'%', 0, kFlagUnsigned, Kind::Percent, 0, 0},  {'p', 16, kFlagUnsigned, Kind::Pointer, 0, 1},
};
static_assert(sizeof s_fmtinfo / sizeof s_fmtinfo[0] == 18);

constexpr char s_aDigits[] = "0123456789ABCDEF0123456789abcdef";
// Prefixes, each stored reversed and terminated: "x0" at 1, "0" at 2, "X0" at 4.
constexpr char s_aPrefix[] = "-x0\0X0";
static_assert(sizeof s_aPrefix == 7);
constexpr char zSpaces[] = "                             ";
constexpr uint32_t kSpaceChunk = sizeof zSpaces - 1;
static_assert(kSpaceChunk == 29);

// ---- Limits ---------------------------------------------------------------------

// Large enough for the longest rendering: "%.165f" of the largest double
// (sign, 309 digits, point, 165 decimals) and an integer zero-padded to the
// width cap with its sign and prefix.
constexpr int kWorkArea = 500;
constexpr int kMaxNumberWidth = 340;
constexpr int kMaxPrecision = 310;
constexpr int kMaxFloatPrecision = 165;
constexpr int kSignificantDigits = 16;
constexpr int kExponentLimit = 350;
static_assert(1 + 309 + 1 + kMaxFloatPrecision <= kWorkArea);
static_assert(kMaxNumberWidth + 3 <= kWorkArea);

// Size of the stack area that lets short formats run without a heap call.
constexpr uint32_t kStackArea = 300;

enum class Length : uint8_t { Plain, Long, LongLong, Short, Char };

// One conversion specification. All flags start clear at each conversion.
struct Spec {
    bool left = false;   // '-'
    bool plus = false;   // '+'
    bool space = false;  // ' '
    bool alt = false;    // '#'
    bool alt2 = false;   // '!'
    bool zero = false;   // '0'
    int width = 0;
    int precision = -1;
    Length length = Length::Plain;
};

// A rendered conversion: text and its length in bytes.
struct Piece {
    const char *text = nullptr;
    int length = 0;
};

const FmtInfo *find_conversion(uint32_t c) {
    for (const FmtInfo &info : s_fmtinfo)
        if (static_cast<unsigned char>(info.fmttype) == c) return &info;
    return nullptr;
}

inline bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Reads decimal digits at *cursor, saturating far beyond any cap.
int read_number(const char **cursor) {
    int value = 0;
    const char *p = *cursor;
    for (; is_digit(*p); ++p)
        if (value < INT_MAX / 10 - 10) value = value * 10 + (*p - '0');
    *cursor = p;
    return value;
}

// |value| without the overflow of the smallest int.
inline int magnitude(int value) { return value == INT_MIN ? INT_MAX : (value < 0 ? -value : value); }

// Bytes of `text` before its terminator, at most `limit`.
int bounded_length(const char *text, int limit) {
    int n = 0;
    while (n < limit && text[n]) ++n;
    return n;
}

inline void append(ombr_string_accum_t accum, const char *bytes, uint32_t size) {
    ombr_string_accum_append_bytes(accum, bytes, size, nullptr);
}

void append_spaces(ombr_string_accum_t accum, int count) {
    while (count > 0) {
        uint32_t chunk = count < static_cast<int>(kSpaceChunk) ? static_cast<uint32_t>(count) : kSpaceChunk;
        append(accum, zSpaces, chunk);
        count -= static_cast<int>(chunk);
    }
}

inline char sign_of_positive(const Spec &spec) { return spec.plus ? '+' : (spec.space ? ' ' : 0); }

// ---- Integers -------------------------------------------------------------------

// Renders `value` (already made positive, sign in `sign`) backwards from the
// end of the work area.
Piece render_integer(uint64_t value, char sign, const FmtInfo &info, Spec &spec, char *work) {
    if (spec.length == Length::Short) value &= 0xFFFF;
    if (spec.length == Length::Char) value &= 0xFF;
    if (value == 0) spec.alt = false;
    if (spec.zero) {
        // Zero padding through the precision; the prefix is not counted in.
        if (sign) {
            if (spec.width - 1 > spec.precision) spec.precision = spec.width - 1;
        } else if (spec.precision < spec.width) {
            spec.precision = spec.width;
        }
    }
    char *end = work + kWorkArea;
    char *p = end;
    const char *digits = s_aDigits + info.charset;
    do {
        *--p = digits[value % info.base];
        value /= info.base;
    } while (value != 0);
    while (end - p < spec.precision) *--p = '0';
    if (sign) *--p = sign;
    if (spec.alt && info.prefix)
        for (const char *pre = s_aPrefix + info.prefix; *pre; ++pre) *--p = *pre;
    return {p, static_cast<int>(end - p)};
}

// ---- Floats ---------------------------------------------------------------------

// Next digit of a normalised value; from the 17th significant digit on the
// digits are '0'.
char float_digit(long double &value, int &significant_left) {
    if (significant_left <= 0) return '0';
    --significant_left;
    int digit = static_cast<int>(value);
    value = (value - static_cast<long double>(digit)) * 10.0L;
    return static_cast<char>('0' + digit);
}

Piece render_float(double argument, const FmtInfo &info, const Spec &spec, char *work) {
    int precision = spec.precision < 0 ? 6 : spec.precision;
    if (precision > kMaxFloatPrecision) precision = kMaxFloatPrecision;

    long double value = argument;
    char sign;
    if (value < 0) {
        value = -value;
        sign = '-';
    } else {
        sign = sign_of_positive(spec);
    }

    Kind kind = info.kind;
    if (kind == Kind::Generic && precision > 0) --precision;
    long double rounder = 0.5L;
    for (int i = precision; i > 0; --i) rounder *= 0.1L;
    if (kind == Kind::Fixed) value += rounder;

    if (value != value) return {"NaN", 3};

    int exponent = 0;
    if (value > 0) {
        while (value >= 1e32L && exponent <= kExponentLimit) {
            value *= 1e-32L;
            exponent += 32;
        }
        while (value >= 1e8L && exponent <= kExponentLimit) {
            value *= 1e-8L;
            exponent += 8;
        }
        while (value >= 10.0L && exponent <= kExponentLimit) {
            value *= 0.1L;
            exponent += 1;
        }
        while (value < 1e-8L) {
            value *= 1e8L;
            exponent -= 8;
        }
        while (value < 1.0L) {
            value *= 10.0L;
            exponent -= 1;
        }
        if (exponent > kExponentLimit) {
            if (sign == '-') return {"-Inf", 4};
            if (sign == '+') return {"+Inf", 4};
            return {"Inf", 3};
        }
    }

    if (kind != Kind::Fixed) {
        value += rounder;
        if (value >= 10.0L) {
            value *= 0.1L;
            exponent += 1;
        }
    }

    bool strip_zeros = false;
    if (kind == Kind::Generic) {
        strip_zeros = !spec.alt;
        if (exponent < -4 || exponent > precision) {
            kind = Kind::Exponent;
        } else {
            precision -= exponent;
            kind = Kind::Fixed;
        }
    }

    int integer_digits = kind == Kind::Exponent ? 0 : exponent;
    int significant_left = kSignificantDigits;
    const bool point = precision > 0 || spec.alt || spec.alt2;

    char *p = work;
    if (sign) *p++ = sign;
    if (integer_digits < 0) {
        *p++ = '0';
    } else {
        for (int i = integer_digits; i >= 0; --i) *p++ = float_digit(value, significant_left);
    }
    if (point) *p++ = '.';
    // Zeros between the point and the first significant digit; they count
    // against the precision.
    for (int i = integer_digits + 1; i < 0 && precision > 0; ++i, --precision) *p++ = '0';
    while (precision-- > 0) *p++ = float_digit(value, significant_left);

    if (strip_zeros && point) {
        while (p[-1] == '0') --p;
        if (p[-1] == '.') {
            if (spec.alt2)
                *p++ = '0';
            else
                --p;
        }
    }

    if (kind == Kind::Exponent) {
        *p++ = s_aDigits[info.charset];
        if (exponent < 0) {
            *p++ = '-';
            exponent = -exponent;
        } else {
            *p++ = '+';
        }
        if (exponent > 99) {
            *p++ = static_cast<char>('0' + exponent / 100);
            exponent %= 100;
        }
        *p++ = static_cast<char>('0' + exponent / 10);
        *p++ = static_cast<char>('0' + exponent % 10);
    }

    int length = static_cast<int>(p - work);
    if (spec.zero && !spec.left && length < spec.width) {
        // Zero fill behind the sign, up to the width.
        int pad = spec.width - length;
        ombr_memory_memmove(work + pad, work, static_cast<size_t>(length));
        int at = sign ? 1 : 0;
        for (int i = 0; i < pad; ++i) work[at + i] = '0';
        length = spec.width;
    }
    return {work, length};
}

// ---- Texts ----------------------------------------------------------------------

Piece render_string(const char *text, const Spec &spec, bool star_seen) {
    if (!text) text = "(null)";
    if (spec.precision >= 0) return {text, bounded_length(text, spec.precision)};
    if (star_seen) return {text, bounded_length(text, spec.width)};
    return {text, bounded_length(text, INT_MAX)};
}

inline bool is_blank_or_end(char c) { return static_cast<unsigned char>(c) <= 32; }

Piece render_word(const char *text, const Spec &spec, bool star_seen) {
    if (!text) text = "(null)";
    while (*text && is_blank_or_end(*text)) ++text;
    int n = 0;
    if (spec.precision >= 0) {
        while (n < spec.precision && !is_blank_or_end(text[n])) ++n;
    } else if (star_seen) {
        n = bounded_length(text, spec.width);
    } else {
        while (!is_blank_or_end(text[n])) ++n;
    }
    return {text, n};
}

Piece render_char(uint32_t code_point, const Spec &spec, char *work) {
    uint32_t written = 0;
    if (_utf8_set_next_char(work, kWorkArea, code_point, &written) != 0) written = 0;
    int length = static_cast<int>(written);
    if (spec.precision >= 0) {
        for (int i = 1; i < spec.precision; ++i) work[i] = static_cast<char>(code_point);
        length = spec.precision;
    }
    return {work, length};
}

// ---- Format text ----------------------------------------------------------------

// Moves from `p` over plain text up to the next '%', the terminator or an
// invalid character, which ends the format.
const char *scan_plain(const char *p) {
    for (;;) {
        unsigned char b = static_cast<unsigned char>(*p);
        if (b == 0 || b == '%') return p;
        if (b < 0x80) {
            ++p;
            continue;
        }
        const char *next = p;
        if (ombr_string_charnext(&next, nullptr) == 0) return p;
        p = next;
    }
}

}  // namespace

uint32_t reference::string_printf(ombr_string_accum_t accum, const char *format, va_list args) {
    char work[kWorkArea];
    bool star_seen = false;  // never cleared within one call
    bool have_previous = false;
    Piece previous;
    const char *cursor = format;

    for (;;) {
        const char *start = cursor;
        uint32_t c = ombr_string_charnext(&cursor, nullptr);
        if (c == 0) return 0;
        if (c != '%') {
            cursor = scan_plain(cursor);
            append(accum, start, static_cast<uint32_t>(cursor - start));
            continue;
        }

        const char *spec_start = cursor;
        if (*cursor == 0) {
            append(accum, "%", 1);
            return 0;
        }

        Spec spec;
        for (bool more = true; more;) {
            switch (*cursor) {
                case '-': spec.left = true; break;
                case '+': spec.plus = true; break;
                case ' ': spec.space = true; break;
                case '#': spec.alt = true; break;
                case '!': spec.alt2 = true; break;
                case '0': spec.zero = true; break;
                default: more = false; continue;
            }
            ++cursor;
        }

        if (*cursor == '*') {
            int width = va_arg(args, int);
            star_seen = true;
            if (width < 0) spec.left = true;
            spec.width = magnitude(width);
            ++cursor;
        } else {
            spec.width = read_number(&cursor);
        }

        if (*cursor == '.') {
            ++cursor;
            if (*cursor == '*') {
                spec.precision = magnitude(va_arg(args, int));
                ++cursor;
            } else {
                spec.precision = read_number(&cursor);
            }
        }

        if (*cursor == 'l') {
            ++cursor;
            spec.length = Length::Long;
            if (*cursor == 'l') {
                ++cursor;
                spec.length = Length::LongLong;
            }
        } else if (*cursor == 'h') {
            ++cursor;
            spec.length = Length::Short;
            if (*cursor == 'h') {
                ++cursor;
                spec.length = Length::Char;
            }
        }

        const char *conversion_start = cursor;
        uint32_t conversion = ombr_string_charnext(&cursor, nullptr);
        if (conversion == 0) {
            // The format ends (or turns invalid) inside the specification.
            if (conversion_start == spec_start) append(accum, "%", 1);
            return 0;
        }

        const FmtInfo *info = find_conversion(conversion);
        if (!info) {
            // Unknown conversion: "%" and the character, then the text of
            // the previous conversion once more.
            append(accum, "%", 1);
            append(accum, conversion_start, static_cast<uint32_t>(cursor - conversion_start));
            if (!have_previous) continue;
        } else {
            if (!(info->flags & kFlagString) && spec.precision > kMaxPrecision) spec.precision = kMaxPrecision;
            Piece piece;
            switch (info->kind) {
                case Kind::Radix:
                case Kind::Pointer: {
                    if (spec.width > kMaxNumberWidth) spec.width = kMaxNumberWidth;
                    uint64_t value;
                    char sign = 0;
                    if (info->kind == Kind::Pointer) {
                        value = reinterpret_cast<uintptr_t>(va_arg(args, void *));
                    } else if (info->flags & kFlagSigned) {
                        int64_t v;
                        if (spec.length == Length::LongLong)
                            v = va_arg(args, long long);
                        else if (spec.length == Length::Long)
                            v = va_arg(args, long);
                        else
                            v = va_arg(args, int);
                        if (v < 0) {
                            sign = '-';
                            value = static_cast<uint64_t>(-(v + 1)) + 1;
                        } else {
                            sign = sign_of_positive(spec);
                            value = static_cast<uint64_t>(v);
                        }
                    } else {
                        if (spec.length == Length::LongLong)
                            value = va_arg(args, unsigned long long);
                        else if (spec.length == Length::Long)
                            value = va_arg(args, unsigned long);
                        else
                            value = va_arg(args, unsigned int);
                    }
                    piece = render_integer(value, sign, *info, spec, work);
                    break;
                }
                case Kind::Generic:
                case Kind::Fixed:
                case Kind::Exponent:
                    if (spec.width > kMaxNumberWidth) spec.width = kMaxNumberWidth;
                    piece = render_float(va_arg(args, double), *info, spec, work);
                    break;
                case Kind::Char:
                    piece = render_char(va_arg(args, unsigned int), spec, work);
                    break;
                case Kind::String:
                    piece = render_string(va_arg(args, const char *), spec, star_seen);
                    break;
                case Kind::Word:
                    piece = render_word(va_arg(args, const char *), spec, star_seen);
                    break;
                case Kind::Percent:
                    piece = {"%", 1};
                    break;
            }
            previous = piece;
            have_previous = true;
        }

        // Output step, with the previous text for an unknown conversion.
        const int pad = spec.width - previous.length;
        if (!spec.left) append_spaces(accum, pad);
        if (previous.length > 0) append(accum, previous.text, static_cast<uint32_t>(previous.length));
        if (spec.left) append_spaces(accum, pad);
    }
}

namespace {

// The formatting into a stack-based accumulator.
class StackAccum {
   public:
    StackAccum() { ok_ = ombr_string_accum_create(&accum_, area_, sizeof area_) == 0; }
    ~StackAccum() {
        if (ok_) ombr_string_accum_delete(accum_);
    }
    StackAccum(const StackAccum &) = delete;
    StackAccum &operator=(const StackAccum &) = delete;

    bool ok() const { return ok_; }
    ombr_string_accum_t get() const { return accum_; }

   private:
    alignas(alignof(void *)) char area_[kStackArea];
    ombr_string_accum_t accum_ = nullptr;
    bool ok_ = false;
};

}  // namespace

uint32_t reference::string_vsnprintf(char *dest, uint32_t size, const char *format, va_list args) {
    if (!dest || size == 0) return 0;
    dest[0] = 0;
    if (!format) return 0;
    StackAccum accum;
    if (!accum.ok()) return 0;
    reference::string_printf(accum.get(), format, args);
    const char *data = nullptr;
    uint32_t full = 0;  // length + 1, 0 when empty
    ombr_string_accum_get_string(accum.get(), &data, &full);
    if (full == 0) return 0;
    uint32_t n = full - 1 < size - 1 ? full - 1 : size - 1;
    ombr_memory_memcpy(dest, data, n);
    dest[n] = 0;
    return full;
}
