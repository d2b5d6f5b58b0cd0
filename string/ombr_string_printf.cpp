// The format engine: printf-style formatting with its own rendering of
// integers and of floats (in extended precision, at most 16 significant
// digits), and the thin wrappers over it. One engine serves two sinks: an
// accumulator (new texts, appends) and a caller's buffer (the snprintf
// forms, which write in place and never allocate).
#include <limits.h>

#include "string/ombr_string_internal.h"
#include "string/ombr_string_printf_internal.h"

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

// Row of each ASCII conversion character in s_fmtinfo plus 1, 0 for none.
// The characters of the rows are distinct, so this equals a search of the
// table in its order.
constexpr auto kConversionRow = [] {
    struct Rows {
        uint8_t row[128] = {};
    } rows;
    for (uint8_t i = 0; i < sizeof s_fmtinfo / sizeof s_fmtinfo[0]; ++i)
        if (rows.row[static_cast<unsigned char>(s_fmtinfo[i].fmttype)] == 0)
            rows.row[static_cast<unsigned char>(s_fmtinfo[i].fmttype)] = static_cast<uint8_t>(i + 1);
    return rows;
}();

inline const FmtInfo *find_conversion(uint32_t c) {
    if (c >= 128 || kConversionRow.row[c] == 0) return nullptr;
    return &s_fmtinfo[kConversionRow.row[c] - 1];
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

// "00" to "99", for two decimal digits per division.
constexpr char kDigitPairs[] =
    "0001020304050607080910111213141516171819202122232425262728293031323334353637383940414243444546474849"
    "5051525354555657585960616263646566676869707172737475767778798081828384858687888990919293949596979899";

// Writes the decimal digits of `value` backwards, ending before `p`; returns
// the first digit. At least one digit.
char *decimal_digits(uint64_t value, char *p) {
    // Full 64-bit divisions only while the value needs them (slow on 32-bit
    // hosts); the rest in 32 bits, two digits at a time.
    while (value > 0xFFFFFFFFu) {
        const uint64_t q = value / 100;
        const auto r = static_cast<uint32_t>(value - q * 100);
        p -= 2;
        __builtin_memcpy(p, kDigitPairs + 2 * r, 2);
        value = q;
    }
    auto v = static_cast<uint32_t>(value);
    while (v >= 100) {
        const uint32_t r = v % 100;
        v /= 100;
        p -= 2;
        __builtin_memcpy(p, kDigitPairs + 2 * r, 2);
    }
    if (v >= 10) {
        p -= 2;
        __builtin_memcpy(p, kDigitPairs + 2 * v, 2);
    } else {
        *--p = static_cast<char>('0' + v);
    }
    return p;
}

// Digits of a power-of-two base (2, 8, 16: `shift` bits a digit).
char *power2_digits(uint64_t value, char *p, unsigned shift, const char *digits) {
    const unsigned mask = (1u << shift) - 1;
    do {
        *--p = digits[static_cast<unsigned>(value) & mask];
        value >>= shift;
    } while (value != 0);
    return p;
}

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
    char *p;
    switch (info.base) {
        case 10: p = decimal_digits(value, end); break;
        case 16: p = power2_digits(value, end, 4, s_aDigits + info.charset); break;
        case 8: p = power2_digits(value, end, 3, s_aDigits + info.charset); break;
        default: p = power2_digits(value, end, 1, s_aDigits + info.charset); break;
    }
    if (end - p < spec.precision) {
        const ptrdiff_t zeros = spec.precision - (end - p);
        p -= zeros;
        __builtin_memset(p, '0', static_cast<size_t>(zeros));
    }
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

// Next character of the format, moving the cursor past it; 0 at the end or
// at an invalid sequence (which leaves the cursor where it was).
inline uint32_t next_char(const char **cursor) {
    const auto b = static_cast<unsigned char>(**cursor);
    if (b < 0x80) {
        if (b != 0) ++*cursor;
        return b;
    }
    return ombr_string_charnext(cursor, nullptr);
}

// ---- Output sinks -----------------------------------------------------------------

// Appends to an accumulator. Failed appends are dropped; spaces go in chunks
// of at most 29.
class AccumSink {
   public:
    explicit AccumSink(ombr_string_accum_t accum) : accum_(accum) {}
    void put(const char *bytes, uint32_t size) { append(accum_, bytes, size); }
    void spaces(int count) { append_spaces(accum_, count); }

   private:
    ombr_string_accum_t accum_;
};

// Writes into a caller's buffer of room + 1 bytes, counting the full length.
// Work is bounded by the room: whatever lies beyond it is only counted, so a
// width near 2^31 costs no memory and no time.
class BufferSink {
   public:
    BufferSink(char *dest, uint32_t room) : dest_(dest), room_(room) {}
    void put(const char *bytes, uint32_t size) {
        if (total_ < room_) {
            const uint64_t left = room_ - total_;
            __builtin_memcpy(dest_ + total_, bytes, size < left ? size : static_cast<size_t>(left));
        }
        total_ += size;
    }
    void spaces(int count) {
        if (count <= 0) return;
        const auto size = static_cast<uint32_t>(count);
        if (total_ < room_) {
            const uint64_t left = room_ - total_;
            __builtin_memset(dest_ + total_, ' ', size < left ? size : static_cast<size_t>(left));
        }
        total_ += size;
    }
    // Terminates the stored text; returns the full length + 1 (at most
    // 0xFFFFFFFF), or 0 for an empty result.
    uint32_t finish() {
        dest_[total_ < room_ ? total_ : room_] = 0;
        if (total_ == 0) return 0;
        return total_ >= 0xFFFFFFFEu ? 0xFFFFFFFFu : static_cast<uint32_t>(total_ + 1);
    }

   private:
    char *dest_;
    uint64_t room_;
    uint64_t total_ = 0;
};

// ---- The engine ---------------------------------------------------------------------

template <typename Sink>
void format_into(Sink &sink, const char *format, va_list args) {
    char work[kWorkArea];
    bool star_seen = false;  // never cleared within one call
    bool have_previous = false;
    Piece previous;
    const char *cursor = format;
    if (!cursor) return;  // an unchecked null format ends at once

    for (;;) {
        const char *start = cursor;
        const uint32_t c = next_char(&cursor);
        if (c == 0) return;
        if (c != '%') {
            cursor = scan_plain(cursor);
            sink.put(start, static_cast<uint32_t>(cursor - start));
            continue;
        }

        const char *spec_start = cursor;
        if (*cursor == 0) {
            sink.put("%", 1);
            return;
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
        } else if (is_digit(*cursor)) {
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
        const uint32_t conversion = next_char(&cursor);
        if (conversion == 0) {
            // The format ends (or turns invalid) inside the specification.
            if (conversion_start == spec_start) sink.put("%", 1);
            return;
        }

        const FmtInfo *info = find_conversion(conversion);
        if (!info) {
            // Unknown conversion: "%" and the character, then the text of
            // the previous conversion once more.
            sink.put("%", 1);
            sink.put(conversion_start, static_cast<uint32_t>(cursor - conversion_start));
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
        if (!spec.left) sink.spaces(pad);
        if (previous.length > 0) sink.put(previous.text, static_cast<uint32_t>(previous.length));
        if (spec.left) sink.spaces(pad);
    }
}

// The formatting into a stack-based accumulator of the new-text forms.
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

extern "C" uint32_t _ombr_string_printf(ombr_string_accum_t accum, const char *format, va_list args) {
    AccumSink sink(accum);
    format_into(sink, format, args);
    return 0;
}

extern "C" int32_t _ombr_string_mvprintf(char **out_text, const char *format, va_list args) {
    if (!out_text || !format) return -1;
    StackAccum accum;
    if (!accum.ok()) return -1;
    _ombr_string_printf(accum.get(), format, args);
    char *text = nullptr;
    uint32_t size = 0;
    if (ombr_string_accum_detach(accum.get(), &text, &size) != 0) return -1;
    *out_text = text;
    return static_cast<int32_t>(size);
}

// The buffer forms write straight into the caller's buffer: the same text
// and result as formatting into an accumulator and copying what fits, but
// with no allocation and with work bounded by the buffer's size.
OMBR_API uint32_t ombr_string_vsnprintf(char *dest, uint32_t size, const char *format, va_list args) {
    if (!dest || size == 0) return 0;
    dest[0] = 0;
    if (!format) return 0;
    BufferSink sink(dest, size - 1);
    format_into(sink, format, args);
    return sink.finish();
}

OMBR_API uint32_t ombr_string_snprintf(char *dest, uint32_t size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    uint32_t result = ombr_string_vsnprintf(dest, size, format, args);
    va_end(args);
    return result;
}

OMBR_API char *ombr_string_vmprintf(const char *format, va_list args) {
    char *text = nullptr;
    if (_ombr_string_mvprintf(&text, format, args) < 0) return nullptr;
    return text;
}

OMBR_API char *ombr_string_mprintf(const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *text = ombr_string_vmprintf(format, args);
    va_end(args);
    return text;
}

OMBR_API uint32_t ombr_string_accum_append_vformat(ombr_string_accum_t accum, const char *format, va_list args) {
    if (!accum) return OMBR_STRING_ERR_INVALID_ARG;
    return _ombr_string_printf(accum, format, args);
}

OMBR_API uint32_t ombr_string_accum_append_format(ombr_string_accum_t accum, const char *format, ...) {
    if (!accum) return OMBR_STRING_ERR_INVALID_ARG;
    if (!format) return 0;
    va_list args;
    va_start(args, format);
    uint32_t status = _ombr_string_printf(accum, format, args);
    va_end(args);
    return status;
}
