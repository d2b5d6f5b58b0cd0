// The format engine: conversions, flags, limits, float digits, the per-call
// state, and the buffer, new-text and accumulator wrappers.
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

#include "cantrix_test.h"
#include "string/ombr_string_printf_internal.h"
#include "out_param.h"

namespace {

// Formats with ombr_string_vsnprintf into a large buffer and checks the
// returned size against what was stored.
std::string fmt(const char *format, ...) {
    char buffer[4096];
    va_list args;
    va_start(args, format);
    uint32_t full = ombr_string_vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    std::string out(buffer);
    EXPECT_EQ(full, out.empty() ? 0u : out.size() + 1) << format;
    return out;
}

std::string sys(const char *format, ...) {
    char buffer[4096];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    return buffer;
}

uint32_t append_vformat(ombr_string_accum_t accum, const char *format, ...) {
    va_list args;
    va_start(args, format);
    uint32_t status = ombr_string_accum_append_vformat(accum, format, args);
    va_end(args);
    return status;
}

int32_t mvprintf(char **out, const char *format, ...) {
    va_list args;
    va_start(args, format);
    int32_t result = _ombr_string_mvprintf(out, format, args);
    va_end(args);
    return result;
}

using FormatEngine = LeakCheckedTest;

// Integer conversions where the engine and the system library agree.
TEST_F(FormatEngine, IntegersAgreeWithTheSystemLibrary) {
    const char *int_formats[] = {"%d",  "%5d",   "%-5d|", "%05d",  "%+d", "% d",  "%.5d", "%8.3d", "%-8.3d|",
                                 "%i",  "%u",    "%x",    "%X",    "%#x", "%#X",  "%o",   "%#o",   "%+5d",
                                 "% 05d", "%+.3d", "%3u", "%08X", "%-#8x|", "%.0d|%d"};
    const int values[] = {0, 1, 7, 42, -42, 255, 4096, 99999, -100000, std::numeric_limits<int>::max(),
                          std::numeric_limits<int>::min()};
    for (const char *f : int_formats) {
        for (int v : values) {
            if (std::strcmp(f, "%.0d|%d") == 0 && v == 0) continue;  // "%.0d" of 0 differs, see below
            EXPECT_EQ(fmt(f, v, v), sys(f, v, v)) << f << " " << v;
        }
    }
    const char *ll_formats[] = {"%lld", "%llu", "%llx", "%llX", "%20lld", "%-22lld|", "%+lld", "%#llo"};
    const long long ll_values[] = {0LL, -1LL, 1234567890123LL, std::numeric_limits<long long>::min(),
                                   std::numeric_limits<long long>::max()};
    for (const char *f : ll_formats)
        for (long long v : ll_values) EXPECT_EQ(fmt(f, v), sys(f, v)) << f << " " << v;
    EXPECT_EQ(fmt("%ld|%lu", -5L, 5UL), sys("%ld|%lu", -5L, 5UL));
}

// Binary and pointer forms, and values beyond the table above.
TEST_F(FormatEngine, IntegerForms) {
    EXPECT_EQ(fmt("%#o", 8), "010");
    EXPECT_EQ(fmt("%b", 5), "101");
    EXPECT_EQ(fmt("%b", 0), "0");
    EXPECT_EQ(fmt("%llb", 1ULL << 40), "1" + std::string(40, '0'));
    EXPECT_EQ(fmt("%p", reinterpret_cast<void *>(0xAB)), "AB");
    EXPECT_EQ(fmt("%#p", reinterpret_cast<void *>(0xAB)), "0xAB");
    EXPECT_EQ(fmt("%p", nullptr), "0");
    EXPECT_EQ(fmt("%lld", -9000000000LL), "-9000000000");
    EXPECT_EQ(fmt("%llu|%d", 1ULL << 63, 3), "9223372036854775808|3");
}

TEST_F(FormatEngine, IntegerQuirks) {
    // Zero padding goes through the precision: the prefix comes on top and
    // left justification does not cancel it.
    EXPECT_EQ(fmt("%#05x", 255), "0x000ff");
    EXPECT_EQ(fmt("%-05d|", 42), "00042|");
    EXPECT_EQ(fmt("%+05d", 42), "+0042");
    // "h" and "hh" mask after the sign was taken.
    EXPECT_EQ(fmt("%hd", 65535), "65535");
    EXPECT_EQ(fmt("%hd", 65537), "1");
    EXPECT_EQ(fmt("%hd", -1), "-1");
    EXPECT_EQ(fmt("%hd", -65537), "-1");
    EXPECT_EQ(fmt("%hhu", 257), "1");
    EXPECT_EQ(fmt("%hhx", 0x1FF), "ff");
    // The 'h' row: reachable behind a complete length modifier.
    EXPECT_EQ(fmt("%hhh", 300), "44");
    EXPECT_EQ(fmt("%lh", -3L), "-3");
    // At least one digit, also with precision 0.
    EXPECT_EQ(fmt("%.0d", 0), "0");
}

TEST_F(FormatEngine, WidthAndPrecisionCaps) {
    EXPECT_EQ(fmt("%400d", 1), std::string(339, ' ') + "1");  // width 340
    EXPECT_EQ(fmt("%0400d", -1), "-" + std::string(338, '0') + "1");
    EXPECT_EQ(fmt("%.400d", 1), std::string(309, '0') + "1");  // precision 310
    EXPECT_EQ(fmt("%#.400x", 1), "0x" + std::string(309, '0') + "1");
    EXPECT_EQ(fmt("%400f", 1.0), std::string(332, ' ') + "1.000000");
    EXPECT_EQ(fmt("%.400f", 1.0), "1." + std::string(165, '0'));  // floats stop at 165
    EXPECT_EQ(fmt("%400s", "x"), std::string(399, ' ') + "x");      // strings have no cap
    EXPECT_EQ(fmt("%.400c", 'z'), std::string(310, 'z'));
    EXPECT_EQ(fmt("%*d", 1000, 5), std::string(339, ' ') + "5");
    EXPECT_EQ(fmt("%99999999999999d|", 5), std::string(339, ' ') + "5|");  // digits saturate
}

TEST_F(FormatEngine, FloatsAgreeWithTheSystemLibrary) {
    const char *formats[] = {"%f",   "%.3f",   "%10.3f", "%-10.2f|", "%+.1f", "% f",   "%010.2f", "%e",
                             "%.3e", "%E",     "%12.4E", "%g",       "%G",    "%.3g",  "%#g",     "%10g",
                             "%.0f", "%.0e",   "%+e",    "%-12g|",   "%.10g", "%#.3e", "%#.0f"};
    const double values[] = {0.0,     1.0,     -1.0,    3.14159265358979, 2.0005,  0.1,     100000.0,
                             1000000.0, 0.0001, 0.00001, 123456.789,      -0.00123, 1e100,   1.5e-100,
                             9.9999,  99.95,   6.02214076e23,    1e-5,    12345678.9};
    for (const char *f : formats) {
        const bool fixed = std::strchr(f, 'f') != nullptr;
        for (double v : values) {
            // Fixed notation of values beyond 16 digits differs by design.
            if (fixed && std::fabs(v) >= 1e16) continue;
            EXPECT_EQ(fmt(f, v), sys(f, v)) << f << " " << v;
        }
    }
}

TEST_F(FormatEngine, FloatDigits) {
    // The rounder is added in extended precision: values just below a tie
    // round down as their exact value says, where double arithmetic would
    // round up ("0.2" for 0.15).
    EXPECT_EQ(fmt("%.3f", 2.0005), "2.001");  // 2.000500000000000166...
    EXPECT_EQ(fmt("%.3f", 1.0005), "1.000");  // 1.000499999999999945...
    EXPECT_EQ(fmt("%.1f", 0.15), "0.1");      // 0.149999999999999994...
    const double near_ties[] = {0.15, 0.35, 0.45, 1.005, 2.675, 1.0005, 2.0005, 8.345, 0.045, 1.115, 3.0015};
    for (double v : near_ties)
        for (const char *f : {"%.1f", "%.2f", "%.3f", "%.2e", "%.3g"}) EXPECT_EQ(fmt(f, v), sys(f, v)) << f << " " << v;
    EXPECT_EQ(fmt("%g", 100000.0), "100000");
    EXPECT_EQ(fmt("%g", 1000000.0), "1e+06");
    EXPECT_EQ(fmt("%!g", 1.0), "1.0");
    EXPECT_EQ(fmt("%!.3g", 2.5), "2.5");
    EXPECT_EQ(fmt("%g", 1.0), "1");
    EXPECT_EQ(fmt("%!f", 1.0), "1.000000");
    EXPECT_EQ(fmt("%!.0f", 1.0), "1.");
    EXPECT_EQ(fmt("%e", 1e-300), "1.000000e-300");
    EXPECT_EQ(fmt("%G", 1.5e-10), "1.5E-10");
    // At most 16 significant digits; the rest are '0'.
    EXPECT_EQ(fmt("%.20f", 1.0), "1.00000000000000000000");
    EXPECT_EQ(fmt("%.20f", 0.1), "0.10000000000000000000");
    EXPECT_EQ(fmt("%.0f", 12345678901234567890.0), "12345678901234560000");  // no rounding at 16
    // The largest values fit in the work area.
    std::string big = fmt("%.165f", 1e308);
    EXPECT_EQ(big, "1" + std::string(308, '0') + "." + std::string(165, '0'));
    std::string max = fmt("%.165f", -std::numeric_limits<double>::max());
    EXPECT_EQ(max.size(), 1u + 309 + 1 + 165);
    EXPECT_EQ(max.substr(0, 18), "-17976931348623150");
    EXPECT_EQ(fmt("%.3f", 1e-300), "0.000");
    // Extremes of the double range in exponent form agree with the system library.
    const double extremes[] = {5e-324, 2.2250738585072014e-308, 1e-310, std::numeric_limits<double>::max(), 1e308};
    for (double v : extremes)
        for (const char *f : {"%e", "%.3E", "%g", "%.10g", "%+.15e"}) EXPECT_EQ(fmt(f, v), sys(f, v)) << f << " " << v;
}

TEST_F(FormatEngine, FloatSpecialValues) {
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(fmt("%f", inf), "Inf");
    EXPECT_EQ(fmt("%+f", inf), "+Inf");
    EXPECT_EQ(fmt("%e", -inf), "-Inf");
    EXPECT_EQ(fmt("%g", nan), "NaN");
    EXPECT_EQ(fmt("%+f", -nan), "NaN");
    EXPECT_EQ(fmt("%6f|", inf), "   Inf|");
    EXPECT_EQ(fmt("%06f|", inf), "   Inf|");  // no zero fill for the words
    EXPECT_EQ(fmt("%f", -0.0), "0.000000");  // only values below 0 take '-'
    EXPECT_EQ(fmt("%08.2f", -1.5), "-0001.50");
    EXPECT_EQ(fmt("%-08.2f|", -1.5), "-1.50   |");
}

TEST_F(FormatEngine, Strings) {
    EXPECT_EQ(fmt("%s|%5s|%-5s|%.2s", "abc", "abc", "abc", "abc"), "abc|  abc|abc  |ab");
    EXPECT_EQ(fmt("%s", static_cast<const char *>(nullptr)), "(null)");
    EXPECT_EQ(fmt("%.3s", static_cast<const char *>(nullptr)), "(nu");
    EXPECT_EQ(fmt("%.10s", "abc"), "abc");  // no read past the terminator
    EXPECT_EQ(fmt("%.1s", "\xC3\xA9"), "\xC3");  // limits count bytes
    EXPECT_EQ(fmt("h\xC3\xA9llo %s \xE2\x82\xAC", "w\xC3\xB6rld"), "h\xC3\xA9llo w\xC3\xB6rld \xE2\x82\xAC");
}

TEST_F(FormatEngine, StarWidthCutsEveryLaterString) {
    EXPECT_EQ(fmt("%*s", 3, "abcdef"), "abc");
    EXPECT_EQ(fmt("[%*s][%s][%5s]", 3, "abcdef", "xyz", "hello world"), "[abc][][hello]");
    EXPECT_EQ(fmt("[%-*s]", -6, "ab"), "[ab    ]");
    EXPECT_EQ(fmt("[%*s]", -6, "ab"), "[ab    ]");
    EXPECT_EQ(fmt("[%*d][%s]", 4, 7, "gone"), "[   7][]");
    EXPECT_EQ(fmt("[%.*s]", -2, "abc"), "[ab]");  // absolute value
    EXPECT_EQ(fmt("[%*s]", 10, "ab"), "[        ab]");  // the width cuts and pads
}

TEST_F(FormatEngine, Words) {
    EXPECT_EQ(fmt("%w", "  two words"), "two");
    EXPECT_EQ(fmt("%w|", "\t\nx"), "x|");
    EXPECT_EQ(fmt("%.2w|", "  three"), "th|");
    EXPECT_EQ(fmt("%.9w|", "  ab cd"), "ab|");
    EXPECT_EQ(fmt("%w", static_cast<const char *>(nullptr)), "(null)");
    EXPECT_EQ(fmt("%w|", "   "), "|");
    EXPECT_EQ(fmt("%*w|", 5, "  ab cd ef"), "ab cd|");  // with a star width only the end stops
    EXPECT_EQ(fmt("%*w|", 5, " ab"), "   ab|");
    EXPECT_EQ(fmt("%6w|", "ab cd"), "    ab|");
}

TEST_F(FormatEngine, Characters) {
    EXPECT_EQ(fmt("%c", 'a'), "a");
    EXPECT_EQ(fmt("%c", 0xE9), "\xC3\xA9");
    EXPECT_EQ(fmt("%c", 0x20AC), "\xE2\x82\xAC");
    EXPECT_EQ(fmt("%3c|%-3c|", 'x', 'y'), "  x|y  |");
    EXPECT_EQ(fmt("%.3c", 'x'), "xxx");
    EXPECT_EQ(fmt("[%.0c]", 'x'), "[]");
    EXPECT_EQ(fmt("%.2c", 0xE9), "\xC3\xE9");  // positions behind the first take the low byte
}

TEST_F(FormatEngine, PercentAndUnknownConversions) {
    EXPECT_EQ(fmt("100%%"), "100%");
    EXPECT_EQ(fmt("[%5%]"), "[    %]");
    EXPECT_EQ(fmt("abc%"), "abc%");
    EXPECT_EQ(fmt("%"), "%");
    // An unknown conversion emits '%' and itself, then the previous text.
    EXPECT_EQ(fmt("%d %zu", 7, 9), "7 %z7u");
    EXPECT_EQ(fmt("%s:%q", "ab"), "ab:%qab");
    EXPECT_EQ(fmt("%d%4y", 7), "7%y   7");
    EXPECT_EQ(fmt("%x%\xC3\xA9", 255), "ff%\xC3\xA9" "ff");
    // Nothing before it: the character alone.
    EXPECT_EQ(fmt("%zu", 9), "%zu");
    EXPECT_EQ(fmt("%5zu|", 9), "%zu|");
}

TEST_F(FormatEngine, FormatEndsSafely) {
    EXPECT_EQ(fmt("ab%-"), "ab");
    EXPECT_EQ(fmt("ab%5"), "ab");
    EXPECT_EQ(fmt("ab%.3"), "ab");
    EXPECT_EQ(fmt("ab%ll"), "ab");
    EXPECT_EQ(fmt("ab%hh"), "ab");
    // An invalid character ends the format; the plain text before it stays whole.
    EXPECT_EQ(fmt("ab\xC3"), "ab");
    EXPECT_EQ(fmt("abc\xFF" "def"), "abc");
    EXPECT_EQ(fmt("\x80xyz"), "");
    EXPECT_EQ(fmt("%d\xC3(%d", 1, 2), "1");
    EXPECT_EQ(fmt("a%\xF0\x9F\x8E\xB5"), "a%");
}

TEST_F(FormatEngine, SnprintfTruncatesAndReportsTheFullSize) {
    char dest[16];
    std::memset(dest, 'Z', sizeof dest);
    EXPECT_EQ(ombr_string_snprintf(dest, 4, "%s", "0123456789"), 11u);
    EXPECT_STREQ(dest, "012");
    EXPECT_EQ(dest[4], 'Z');
    EXPECT_EQ(ombr_string_snprintf(dest, 1, "%d", 12345), 6u);
    EXPECT_STREQ(dest, "");
    EXPECT_EQ(ombr_string_snprintf(dest, 3, "\xC3\xA9\xC3\xA9"), 5u);  // cut at a byte
    EXPECT_STREQ(dest, "\xC3\xA9");
    EXPECT_EQ(ombr_string_snprintf(dest, 2, "\xC3\xA9"), 3u);
    EXPECT_STREQ(dest, "\xC3");

    std::memset(dest, 'Z', sizeof dest);
    EXPECT_EQ(ombr_string_snprintf(dest, 0, "%d", 1), 0u);
    EXPECT_EQ(dest[0], 'Z');
    EXPECT_EQ(ombr_string_snprintf(nullptr, 10, "%d", 1), 0u);
    EXPECT_EQ(ombr_string_snprintf(dest, sizeof dest, nullptr), 0u);
    EXPECT_EQ(dest[0], 0);
    dest[0] = 'Z';
    EXPECT_EQ(ombr_string_snprintf(dest, sizeof dest, "%s", ""), 0u);  // empty result
    EXPECT_EQ(dest[0], 0);

    // Beyond the stack area the text moves to the heap and is freed again.
    std::string long_text(1000, 'q');
    std::string out(2000, '\0');
    EXPECT_EQ(ombr_string_snprintf(out.data(), 2000, "<%s>", long_text.c_str()), 1003u);
    EXPECT_EQ(std::string(out.c_str()), "<" + long_text + ">");
}

TEST_F(FormatEngine, NewTexts) {
    char *text = ombr_string_mprintf("%s=%d", "x", 5);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "x=5");
    ombr_string_free(text);
    EXPECT_EQ(ombr_string_mprintf(nullptr), nullptr);

    char *out = nullptr;
    EXPECT_EQ(mvprintf(&out, "%d-%d", 10, 20), 6);
    ASSERT_NE(out, nullptr);
    EXPECT_STREQ(out, "10-20");
    ombr_string_free(out);
    out = nullptr;
    EXPECT_EQ(mvprintf(&out, "%s", ""), 0);  // empty: 0, and still a text
    ASSERT_NE(out, nullptr);
    EXPECT_STREQ(out, "");
    ombr_string_free(out);
    out = reinterpret_cast<char *>(0x1);
    EXPECT_EQ(mvprintf(&out, nullptr), -1);
    EXPECT_EQ(out, reinterpret_cast<char *>(0x1));

    std::string big(5000, 'b');
    text = ombr_string_mprintf("%s!", big.c_str());
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text), big + "!");
    ombr_string_free(text);
}

TEST_F(FormatEngine, NewTextsUnderAllocationFailure) {
    // Every allocation failure leaves nothing behind: either no text, or a
    // text (appends that could not grow are dropped).
    std::string big(700, 'm');
    uint64_t failures = for_each_allocation_failure([&](uint64_t) {
        char *text = ombr_string_mprintf("%s|%d", big.c_str(), 42);
        if (text) ombr_string_free(text);
    });
    EXPECT_GE(failures, 2u);

    // A short text lives in the stack area: only the detached copy allocates.
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(ombr_string_mprintf("%d", 1), nullptr);
    zelto_manager_memory_fail_nth(0);
    char *out = reinterpret_cast<char *>(0x1);
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(mvprintf(&out, "%d", 1), -1);
    zelto_manager_memory_fail_nth(0);
    EXPECT_EQ(out, reinterpret_cast<char *>(0x1));

    // snprintf writes into the caller's buffer and never allocates, so a
    // failing allocator does not shorten its text.
    char dest[2000];
    zelto_manager_memory_fail_nth(1);
    uint32_t full = ombr_string_snprintf(dest, sizeof dest, "%s", big.c_str());
    zelto_manager_memory_fail_nth(0);
    EXPECT_EQ(full, 701u);
    EXPECT_EQ(std::string(dest), big);
}

TEST_F(FormatEngine, SnprintfWorkIsBoundedByTheBuffer) {
    // A caller-given width near 2^31 is counted, not written: no memory is
    // taken (every allocation would fail) and the call returns at once.
    char dest[16];
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(ombr_string_snprintf(dest, sizeof dest, "%*s", 2147483647, "x"), 2147483648u);
    EXPECT_STREQ(dest, "               ");
    EXPECT_EQ(ombr_string_snprintf(dest, sizeof dest, "%200000000s", "x"), 200000001u);
    EXPECT_STREQ(dest, "               ");
    EXPECT_EQ(ombr_string_snprintf(dest, sizeof dest, "%-*s|", 2147483646, "ab"), 2147483648u);
    EXPECT_STREQ(dest, "ab             ");
    EXPECT_EQ(ombr_string_snprintf(dest, sizeof dest, "%*c", -2000000000, 'z'), 2000000001u);
    EXPECT_STREQ(dest, "z              ");
    // Lengths beyond 32 bits saturate the result.
    EXPECT_EQ(ombr_string_snprintf(dest, 4, "%*s%*s%*s", 2147483647, "", 2147483647, "", 2147483647, ""),
              0xFFFFFFFFu);
    EXPECT_STREQ(dest, "   ");
    zelto_manager_memory_fail_nth(0);
}

TEST_F(FormatEngine, AccumulatorAppends) {
    ombr_string_accum_t accum = nullptr;
    ASSERT_EQ(ombr_string_accum_create(&accum, nullptr, 0), 0u);
    EXPECT_EQ(ombr_string_accum_append_format(accum, "%s-", "a"), 0u);
    EXPECT_EQ(ombr_string_accum_append_format(accum, nullptr), 0u);
    EXPECT_EQ(ombr_string_accum_append_format(accum, "%03d", 7), 0u);
    const char *data = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(out(ombr_string_accum_get_string, accum, &data), 6u);
    EXPECT_STREQ(data, "a-007");
    EXPECT_EQ(append_vformat(accum, "[%5.1f]", 2.26), 0u);
    EXPECT_EQ(append_vformat(accum, nullptr), 0u);  // not tested, but ends at once
    ASSERT_EQ(ombr_string_accum_get_string(accum, &data, &size), 0u);
    EXPECT_STREQ(data, "a-007[  2.3]");
    EXPECT_EQ(ombr_string_accum_append_format(nullptr, "%d", 1), 0x90050001u);
    EXPECT_EQ(append_vformat(nullptr, "%d", 1), 0x90050001u);
    EXPECT_EQ(ombr_string_accum_delete(accum), 0u);
}

}  // namespace
