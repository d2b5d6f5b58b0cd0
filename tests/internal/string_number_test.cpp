// Numbers in text: 32-bit conversions, the layer's own decimal reader,
// booleans, integer rendering with truncation, and character classes.
#include <cerrno>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstring>

#include "cantrix_test.h"
#include "string/ombr_string_internal.h"

namespace {

TEST(StringNumber, IntegerConversionsAtWordWidth) {
    char *end = nullptr;
    const char *text = "  -42xyz";
    EXPECT_EQ(ombr_string_strtol(text, &end, 10), -42);
    EXPECT_EQ(end, text + 5);
    EXPECT_EQ(ombr_string_strtol("0x1F", nullptr, 16), 31);
    EXPECT_EQ(ombr_string_strtol("0x1F", nullptr, 0), 31);
    // Beyond 32 bits the result is clamped as a 32-bit long would be.
    errno = 0;
    EXPECT_EQ(ombr_string_strtol("3000000000", nullptr, 10), INT32_MAX);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(ombr_string_strtol("-3000000000", nullptr, 10), INT32_MIN);

    EXPECT_EQ(ombr_string_strtoul("4294967295", nullptr, 10), 4294967295u);
    errno = 0;
    EXPECT_EQ(ombr_string_strtoul("4294967296", nullptr, 10), 4294967295u);
    EXPECT_EQ(errno, ERANGE);
    errno = 0;
    EXPECT_EQ(ombr_string_strtoul(" -1", nullptr, 10), 4294967295u);  // negation wraps
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(ombr_string_strtoul("-2", nullptr, 10), 4294967294u);
    EXPECT_EQ(ombr_string_strtoul("-4294967296", nullptr, 10), 4294967295u);
    EXPECT_EQ(ombr_string_strtoull("18446744073709551615", nullptr, 10), UINT64_MAX);

    EXPECT_EQ(ombr_string_atoi32("-17 apples"), -17);
    EXPECT_EQ(ombr_string_atoi32(nullptr), 0);
    EXPECT_EQ(ombr_string_atou32("010"), 10u);  // base 10: no octal
    EXPECT_EQ(ombr_string_atou32(nullptr), 0u);
    EXPECT_EQ(ombr_string_atou64("12345678901234"), 12345678901234ull);
    EXPECT_EQ(ombr_string_atou64(nullptr), 0ull);
}

TEST(StringNumber, Atof64ReadsItsOwnDecimalForm) {
    // No sign and no blanks in front; any other byte ends the number.
    const std::pair<const char *, double> cases[] = {
        {"1.5", 1.5},     {"123.456", 123.456}, {"42", 42.0},     {".25", 0.25},  {"2.5e3", 2500.0},
        {"2.5E+3", 2500}, {"125e-2", 1.25},     {"1e300", 1e300}, {"0.1", 0.1},   {"-1.5", 0.0},
        {"+1.5", 0.0},    {" 1.5", 0.0},        {"7.5kg", 7.5},   {"1.2.3", 1.2}, {nullptr, 0.0},
        {"1e-999999999", 0.0}, {"1e999999", HUGE_VAL}};
    for (const auto &[text, want] : cases) {
        if (want == 0.0 || std::isinf(want))
            EXPECT_EQ(ombr_string_atof64(text), want) << text;
        else
            EXPECT_DOUBLE_EQ(ombr_string_atof64(text), want) << text;
    }
}

// A digit decides alone (the rest is not looked at); words match whole, in
// any case.
TEST(StringNumber, Atobool) {
    const std::pair<const char *, uint32_t> cases[] = {
        {nullptr, 0}, {"0", 0},     {"010", 1}, {"0x", 0},  {"1", 1},   {"2x", 1}, {"on", 1},  {"ON", 1},
        {"on ", 0},   {"off", 0},   {"True", 1}, {"truex", 0}, {"y", 1}, {"YES", 1}, {"ye", 0}, {"", 0},
        {" 1", 0},    {"false", 0}};
    for (const auto &[text, want] : cases) EXPECT_EQ(ombr_string_atobool(text), want) << text;
}

TEST(StringNumber, IntegerToTextKeepsLowDigits) {
    char buf[16];
    EXPECT_STREQ(ombr_string_i32toa(-1234, buf, sizeof buf), "-1234");
    EXPECT_STREQ(ombr_string_i32toa(0, buf, sizeof buf), "0");
    EXPECT_STREQ(ombr_string_i32toa(INT32_MAX, buf, sizeof buf), "2147483647");
    EXPECT_STREQ(ombr_string_i32toa(-1234, buf, 4), "234");  // no room for the sign
    EXPECT_STREQ(ombr_string_i32toa(-1234, buf, 5), "1234");
    EXPECT_STREQ(ombr_string_i32toa(-1234, buf, 6), "-1234");
    EXPECT_STREQ(ombr_string_i32toa(98765, buf, 3), "65");
    // The smallest value's negation overflows and renders so.
    EXPECT_STREQ(ombr_string_i32toa(INT32_MIN, buf, sizeof buf), "-(");

    EXPECT_STREQ(ombr_string_u32toa(4294967295u, buf, sizeof buf), "4294967295");
    EXPECT_STREQ(ombr_string_u32toa(4294967295u, buf, 4), "295");
    EXPECT_STREQ(ombr_string_u32toa(0, buf, 2), "0");

    std::memcpy(buf, "zzz", 4);
    EXPECT_EQ(ombr_string_i32toa(5, buf, 0), buf);  // untouched
    EXPECT_STREQ(buf, "zzz");
    EXPECT_STREQ(ombr_string_i32toa(5, buf, 1), "");
    std::memcpy(buf, "zzz", 4);
    EXPECT_EQ(ombr_string_u32toa(5, buf, 0), buf);
    EXPECT_STREQ(buf, "zzz");
    EXPECT_STREQ(ombr_string_u32toa(5, buf, 1), "");
    EXPECT_EQ(ombr_string_i32toa(5, nullptr, 8), nullptr);
    EXPECT_EQ(ombr_string_u32toa(5, nullptr, 8), nullptr);
}

TEST(StringClass, AlphaIsAsciiOnlyOthersFollowTheSystem) {
    EXPECT_NE(ombr_string_isalpha('a'), 0);
    EXPECT_NE(ombr_string_isalpha('Z'), 0);
    EXPECT_EQ(ombr_string_isalpha('0'), 0);
    EXPECT_EQ(ombr_string_isalpha(0xE9), 0);
    EXPECT_EQ(ombr_string_isalpha('@'), 0);
    EXPECT_EQ(ombr_string_isalpha('['), 0);
    for (int c = -1; c <= 255; ++c) {
        EXPECT_EQ(ombr_string_isdigit(c) != 0, std::isdigit(c) != 0) << c;
        EXPECT_EQ(ombr_string_isspace(c) != 0, std::isspace(c) != 0) << c;
        EXPECT_EQ(ombr_string_isxdigit(c) != 0, std::isxdigit(c) != 0) << c;
        EXPECT_EQ(ombr_string_isalnum(c) != 0, std::isalnum(c) != 0) << c;
        EXPECT_EQ(ombr_string_isprint(c) != 0, std::isprint(c) != 0) << c;
        EXPECT_EQ(ombr_string_islower(c) != 0, std::islower(c) != 0) << c;
        EXPECT_EQ(ombr_string_isupper(c) != 0, std::isupper(c) != 0) << c;
    }
    EXPECT_EQ(ombr_string_char_tolower('A'), 'a');
    EXPECT_EQ(ombr_string_char_toupper('q'), 'Q');
    EXPECT_EQ(ombr_string_char_tolower('1'), '1');
    EXPECT_EQ(ombr_string_char_tolower(-1), -1);
    // Outside -128..255 the value comes back unchanged.
    EXPECT_EQ(ombr_string_char_tolower(0x141), 0x141);
    EXPECT_EQ(ombr_string_char_toupper(-129), -129);
    EXPECT_EQ(ombr_string_char_toupper(1000), 1000);
}

}  // namespace
