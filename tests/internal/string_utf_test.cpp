// UTF-8 decoding and encoding of single characters and the UTF-8 <-> UCS-2
// conversions, with their limits: one to three byte sequences only.
#include <cstring>

#include "cantrix_test.h"
#include "out_param.h"
#include "string/ombr_string_internal.h"

namespace {

// "aé€" as UTF-8: 'a', C3 A9, E2 82 AC.
constexpr const char kMixed[] = "a\xC3\xA9\xE2\x82\xAC";

TEST(StringUtf8Decode, OneToThreeByteSequences) {
    const char *cursor = kMixed;
    EXPECT_EQ(out(_utf8_get_next_char, &cursor), 0x61u);
    EXPECT_EQ(cursor, kMixed + 1);
    EXPECT_EQ(out(_utf8_get_next_char, &cursor), 0xE9u);
    EXPECT_EQ(cursor, kMixed + 3);
    EXPECT_EQ(out(_utf8_get_next_char, &cursor), 0x20ACu);
    EXPECT_EQ(cursor, kMixed + 6);
    // The terminator decodes to 0 and the cursor passes it.
    EXPECT_EQ(out(_utf8_get_next_char, &cursor), 0u);
    EXPECT_EQ(cursor, kMixed + 7);

    // Overlong forms and surrogates are not noticed.
    const char overlong[] = "\xC0\x80";
    cursor = overlong;
    EXPECT_EQ(out(_utf8_get_next_char, &cursor), 0u);
    EXPECT_EQ(cursor, overlong + 2);
    const char surrogate[] = "\xED\xA0\x80";
    cursor = surrogate;
    EXPECT_EQ(out(_utf8_get_next_char, &cursor), 0xD800u);
}

TEST(StringUtf8Decode, InvalidSequencesLeaveCursorAndValue) {
    const char *const cases[] = {
        "\xC3" "a",           // continuation byte missing
        "\xF0\x9F\x98\x80",   // four-byte sequence: lead refused
        "\x80",               // stray continuation byte
        "\xBF",               // stray continuation byte
        "\xF8\x88\x80\x80\x80",
        "\xFF",
        "\xE2\x82",           // truncated: the terminator is no continuation
        "\xE2" "a" "\xAC",
    };
    for (const char *text : cases) {
        const char *cursor = text;
        uint32_t cp = 0xDEAD;
        EXPECT_EQ(_utf8_get_next_char(&cursor, &cp), 0x900503A0u) << testing::PrintToString(text);
        EXPECT_EQ(cursor, text);
        EXPECT_EQ(cp, 0xDEADu);
    }
    uint32_t cp = 0;
    const char *null_cursor = nullptr;
    EXPECT_EQ(_utf8_get_next_char(&null_cursor, &cp), 0x90050001u);
    EXPECT_EQ(_utf8_get_next_char(nullptr, &cp), 0x90050001u);
}

TEST(StringUtf8Decode, SizeFromLeadByte) {
    uint32_t size = 0;
    EXPECT_EQ(out(_utf8_get_next_char_size, "a"), 1u);
    ASSERT_EQ(_utf8_get_next_char_size("\xC3", &size), 0u);  // only the lead byte is looked at
    EXPECT_EQ(size, 2u);
    EXPECT_EQ(out(_utf8_get_next_char_size, "\xEF\xBF\xBF"), 3u);
    size = 9;
    for (const char *lead : {"\x80", "\xBF", "\xF0", "\xF7", "\xFE"}) {
        EXPECT_EQ(_utf8_get_next_char_size(lead, &size), 0x900503A0u);
        EXPECT_EQ(size, 9u);
    }
}

TEST(StringUtf8Encode, DemandsOneSpareByte) {
    char buf[8];
    uint32_t written = 0;
    EXPECT_EQ(_utf8_set_next_char(buf, 1, 'a', &written), 0x90050008u);
    EXPECT_EQ(out(_utf8_set_next_char, buf, 2, 'a'), 1u);
    EXPECT_EQ(buf[0], 'a');
    EXPECT_EQ(_utf8_set_next_char(buf, 2, 0xE9, &written), 0x90050008u);
    EXPECT_EQ(out(_utf8_set_next_char, buf, 3, 0xE9), 2u);
    EXPECT_EQ(std::memcmp(buf, "\xC3\xA9", 2), 0);
    EXPECT_EQ(_utf8_set_next_char(buf, 3, 0x20AC, &written), 0x90050008u);
    EXPECT_EQ(out(_utf8_set_next_char, buf, 4, 0xFFFF), 3u);
    EXPECT_EQ(std::memcmp(buf, "\xEF\xBF\xBF", 3), 0);
    EXPECT_EQ(_utf8_set_next_char(nullptr, 4, 'a', &written), 0x90050001u);
}

TEST(StringUtf8Encode, BeyondThreeBytesLeadHasNoMarker) {
    // Code points above 0xFFFF are outside the system's range: they are
    // written with continuation bytes but a bare lead byte, which the decoder
    // does not read back as the same character.
    char buf[8];
    uint32_t written = 0;
    EXPECT_EQ(out(_utf8_set_next_char, buf, 5, 0x10FFFF), 4u);
    EXPECT_EQ(std::memcmp(buf, "\x04\x8F\xBF\xBF", 4), 0);
    EXPECT_EQ(_utf8_set_next_char(buf, 5, 0x200000, &written), 0x90050008u);  // five bytes
    EXPECT_EQ(out(_utf8_set_next_char, buf, 7, 0x7FFFFFFF), 6u);
    const char *cursor = buf;
    uint32_t cp = 0;
    ASSERT_EQ(_utf8_get_next_char(&cursor, &cp), 0u);
    EXPECT_NE(cp, 0x7FFFFFFFu);
    EXPECT_EQ(cursor, buf + 1);
}

TEST(StringUcs2, Utf8ToUcs2Buffer) {
    uint16_t out[8] = {};
    uint32_t written = 99;
    // The terminator, counted in the input, becomes a unit like any other.
    ASSERT_EQ(ombr_string_utf8_to_ucs2_buf(kMixed, sizeof kMixed, out, &written, 0), 0u);
    EXPECT_EQ(written, 8u);
    EXPECT_EQ(out[0], 0x0061);
    EXPECT_EQ(out[1], 0x00E9);
    EXPECT_EQ(out[2], 0x20AC);
    EXPECT_EQ(out[3], 0x0000);

    ASSERT_EQ(ombr_string_utf8_to_ucs2_buf(kMixed, sizeof kMixed - 1, out, &written, 1), 0u);
    EXPECT_EQ(written, 6u);
    EXPECT_EQ(out[0], 0x6100);
    EXPECT_EQ(out[1], 0xE900);
    EXPECT_EQ(out[2], 0xAC20);

    // The decoder's leniency carries over: an overlong NUL is a unit of 0.
    ASSERT_EQ(ombr_string_utf8_to_ucs2_buf("\xC0\x80", 2, out, &written, 0), 0u);
    EXPECT_EQ(written, 2u);
    EXPECT_EQ(out[0], 0x0000);

    written = 99;
    EXPECT_EQ(ombr_string_utf8_to_ucs2_buf(nullptr, 0, nullptr, &written, 0), 0u);
    EXPECT_EQ(written, 0u);
}

TEST(StringUcs2, Utf8ToUcs2RefusesWhatTheDecoderRefuses) {
    uint16_t out[8] = {};
    uint32_t written = 0;
    // A truncated three-byte sequence at the end keeps what was written before.
    EXPECT_EQ(ombr_string_utf8_to_ucs2_buf("a\xE2\x82", 3, out, &written, 0), 0x900503A0u);
    EXPECT_EQ(written, 2u);
    EXPECT_EQ(out[0], 0x61);
    // The input length decides, not a terminator: "\xC3" cut off by the size.
    EXPECT_EQ(ombr_string_utf8_to_ucs2_buf("\xC3\xA9", 1, out, &written, 0), 0x900503A0u);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(ombr_string_utf8_to_ucs2_buf("\xC3" "A", 2, out, &written, 0), 0x900503A0u);
    EXPECT_EQ(ombr_string_utf8_to_ucs2_buf("\xF0\x9F\x98\x80", 4, out, &written, 0), 0x900503A0u);
    EXPECT_EQ(ombr_string_utf8_to_ucs2_buf("ab\x80", 3, out, &written, 0), 0x900503A0u);
    EXPECT_EQ(written, 4u);
    EXPECT_EQ(ombr_string_utf8_to_ucs2_buf("a", 1, out, nullptr, 0), 0x90050001u);
}

TEST(StringUcs2, Ucs2ToUtf8Buffer) {
    const uint16_t units[] = {0x0061, 0x00E9, 0x20AC, 0xD800, 0x0000};
    char out[32];
    uint32_t size = sizeof out;
    ASSERT_EQ(ombr_string_ucs2_to_utf8_buf(units, sizeof units, out, &size, 0), 0u);
    // Each unit is its own code point: a lone surrogate takes three bytes.
    EXPECT_EQ(size, 1u + 2u + 3u + 3u + 1u);
    EXPECT_EQ(std::memcmp(out, "a\xC3\xA9\xE2\x82\xAC\xED\xA0\x80", 10), 0);

    const uint16_t swapped[] = {0x6100, 0xE900, 0xAC20};
    size = sizeof out;
    ASSERT_EQ(ombr_string_ucs2_to_utf8_buf(swapped, sizeof swapped, out, &size, 1), 0u);
    EXPECT_EQ(size, 6u);
    EXPECT_EQ(std::memcmp(out, kMixed, 6), 0);

    size = sizeof out;
    EXPECT_EQ(ombr_string_ucs2_to_utf8_buf(units, 3, out, &size, 0), 0x900503A1u);
    EXPECT_EQ(size, 0u);
    size = sizeof out;
    EXPECT_EQ(ombr_string_ucs2_to_utf8_buf(units, 0, out, &size, 0), 0u);
    EXPECT_EQ(size, 0u);

    // Room: 'a' and 'é' need 3 bytes, the spare byte rule wants one more
    // for each step; '€' no longer fits in 6.
    size = 6;
    EXPECT_EQ(ombr_string_ucs2_to_utf8_buf(units, 6, out, &size, 0), 0x90050008u);
    EXPECT_EQ(size, 3u);
    size = 7;
    EXPECT_EQ(ombr_string_ucs2_to_utf8_buf(units, 6, out, &size, 0), 0u);
    EXPECT_EQ(size, 6u);
}

TEST(StringUcs2, LengthsOfUcs2Text) {
    const uint16_t text[] = {0x41, 0x20AC, 0};
    const uint16_t empty[] = {0};
    EXPECT_EQ(ombr_string_bytelen_uni(text), 6u);
    EXPECT_EQ(ombr_string_charlen_uni(text), 2u);
    EXPECT_EQ(ombr_string_bytelen_uni(empty), 2u);
    EXPECT_EQ(ombr_string_charlen_uni(empty), 0u);
    EXPECT_EQ(ombr_string_bytelen_uni(nullptr), 0u);
    EXPECT_EQ(ombr_string_charlen_uni(nullptr), 0u);
}

class StringUcs2Alloc : public LeakCheckedTest {};

TEST_F(StringUcs2Alloc, RoundTripBothByteOrders) {
    for (uint8_t swap : {0, 1}) {
        uint16_t *wide = nullptr;
        ASSERT_EQ(ombr_string_utf8_to_ucs2(kMixed, &wide, swap), 0u);
        EXPECT_EQ(ombr_string_charlen_uni(wide), 3u);
        EXPECT_EQ(wide[2], swap ? 0xAC20 : 0x20AC);
        char *back = nullptr;
        ASSERT_EQ(ombr_string_ucs2_to_utf8(wide, &back, swap), 0u);
        EXPECT_STREQ(back, kMixed);
        ombr_string_free(back);
        ombr_string_free(wide);
    }
    uint16_t *wide = nullptr;
    ASSERT_EQ(ombr_string_utf8_to_ucs2("", &wide, 0), 0u);
    EXPECT_EQ(wide[0], 0);
    ombr_string_free(wide);
}

TEST_F(StringUcs2Alloc, FailuresFreeTheBlock) {
    uint16_t *wide = nullptr;
    EXPECT_EQ(ombr_string_utf8_to_ucs2("ok\xF0\x9F\x98\x80", &wide, 0), 0x900503A0u);
    EXPECT_EQ(wide, nullptr);
    EXPECT_EQ(ombr_string_utf8_to_ucs2(nullptr, &wide, 0), 0x90050001u);
    EXPECT_EQ(ombr_string_utf8_to_ucs2("a", nullptr, 0), 0x90050001u);
    char *narrow = nullptr;
    EXPECT_EQ(ombr_string_ucs2_to_utf8(nullptr, &narrow, 0), 0x90050001u);
    EXPECT_EQ(narrow, nullptr);
}

TEST_F(StringUcs2Alloc, NoMemoryIsReportedUnderTheFilePackage) {
    uint64_t runs = for_each_allocation_failure([](uint64_t) {
        uint16_t *wide = nullptr;
        uint32_t status = ombr_string_utf8_to_ucs2(kMixed, &wide, 0);
        if (status != 0) {
            EXPECT_EQ(status, 0x90030002u);
            EXPECT_EQ(wide, nullptr);
            return;
        }
        ombr_string_free(wide);
    });
    EXPECT_EQ(runs, 1u);
    const uint16_t units[] = {0x41, 0x42, 0};
    runs = for_each_allocation_failure([&](uint64_t) {
        char *narrow = nullptr;
        uint32_t status = ombr_string_ucs2_to_utf8(units, &narrow, 0);
        if (status != 0) {
            EXPECT_EQ(status, 0x90030002u);
            EXPECT_EQ(narrow, nullptr);
            return;
        }
        EXPECT_STREQ(narrow, "AB");
        ombr_string_free(narrow);
    });
    EXPECT_EQ(runs, 1u);
}

}  // namespace
