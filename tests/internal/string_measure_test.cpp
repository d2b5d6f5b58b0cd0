// Measures of UTF-8 text in bytes, characters and limits, validity tests and
// the one-character cursor step.
#include <cstring>

#include "cantrix_test.h"
#include "out_param.h"
#include "string/ombr_string_internal.h"

namespace {

// 'a', 'é' (2 bytes), '€' (3 bytes), 'z'.
constexpr const char kMixed[] = "a\xC3\xA9\xE2\x82\xACz";

TEST(StringMeasure, BytesCountTheTerminatorOnlyInPlainForms) {
    EXPECT_EQ(ombr_string_bytelen(""), 1u);
    EXPECT_EQ(ombr_string_bytelen(nullptr), 0u);
    EXPECT_EQ(ombr_string_bytelen(kMixed), 8u);
    EXPECT_EQ(ombr_string_bytelen_nonull(kMixed), 7u);
    EXPECT_EQ(ombr_string_bytelen_nonull(nullptr), 0u);

    EXPECT_EQ(ombr_string_bytenlen("abc", 10), 4u);
    EXPECT_EQ(ombr_string_bytenlen("abc", 4), 4u);
    EXPECT_EQ(ombr_string_bytenlen("abc", 2), 2u);
    EXPECT_EQ(ombr_string_bytenlen("abc", 0), 0u);
    EXPECT_EQ(ombr_string_bytenlen(nullptr, 5), 0u);
    EXPECT_EQ(ombr_string_bytenlen_nonull("abc", 10), 3u);
    EXPECT_EQ(ombr_string_bytenlen_nonull("abc", 2), 2u);
    EXPECT_EQ(ombr_string_bytenlen_nonull(nullptr, 2), 0u);
    // The limit is honoured even without a terminator in reach.
    const char unterminated[3] = {'x', 'y', 'z'};
    EXPECT_EQ(ombr_string_bytenlen_nonull(unterminated, 3), 3u);
    EXPECT_EQ(ombr_string_bytenlen(unterminated, 3), 3u);
}

TEST(StringMeasure, CharactersAndLimits) {
    EXPECT_EQ(ombr_string_charlen(""), 0u);
    EXPECT_EQ(ombr_string_charlen(nullptr), 0u);
    EXPECT_EQ(ombr_string_charlen(kMixed), 4u);
    // At an invalid character the count stops, and that character counts.
    EXPECT_EQ(ombr_string_charlen("ab\xC3" "cde"), 3u);
    EXPECT_EQ(ombr_string_charlen("\xF0\x9F\x98\x80xyz"), 1u);

    EXPECT_EQ(ombr_string_byteclen(kMixed, 2), 3u);
    EXPECT_EQ(ombr_string_byteclen(kMixed, 3), 6u);
    EXPECT_EQ(ombr_string_byteclen(kMixed, 100), 7u);
    EXPECT_EQ(ombr_string_byteclen(kMixed, 0), 0u);
    EXPECT_EQ(ombr_string_byteclen("ab\x80", 5), 2u);  // stops before the invalid one
    EXPECT_EQ(ombr_string_byteclen(nullptr, 5), 0u);

    // Whole characters that fit in a byte count.
    EXPECT_EQ(ombr_string_charnlen(kMixed, 1), 1u);
    EXPECT_EQ(ombr_string_charnlen(kMixed, 2), 1u);  // 'é' would be cut
    EXPECT_EQ(ombr_string_charnlen(kMixed, 5), 2u);
    EXPECT_EQ(ombr_string_charnlen(kMixed, 6), 3u);
    EXPECT_EQ(ombr_string_charnlen(kMixed, 100), 4u);
    EXPECT_EQ(ombr_string_charnlen("a\xFFz", 100), 2u);  // the invalid one counts
    EXPECT_EQ(ombr_string_charnlen(nullptr, 10), 0u);
}

TEST(StringMeasure, FirstCharacterAndValidity) {
    EXPECT_EQ(ombr_string_nextcharsize(nullptr), 0u);
    EXPECT_EQ(ombr_string_nextcharsize("a"), 1u);
    EXPECT_EQ(ombr_string_nextcharsize(""), 1u);
    EXPECT_EQ(ombr_string_nextcharsize("\xC3\xA9"), 2u);
    EXPECT_EQ(ombr_string_nextcharsize("\xE2\x82\xAC"), 3u);
    EXPECT_EQ(ombr_string_nextcharsize("\xE2\x82"), 1u);  // invalid: 1
    EXPECT_EQ(ombr_string_nextcharsize("\xF0\x9F\x98\x80"), 1u);

    EXPECT_EQ(ombr_string_isempty(nullptr), 1u);
    EXPECT_EQ(ombr_string_isempty(""), 1u);
    EXPECT_EQ(ombr_string_isempty("\xF0\x9F\x98\x80" "abc"), 1u);  // four-byte lead is invalid
    EXPECT_EQ(ombr_string_isempty(" "), 0u);
    EXPECT_EQ(ombr_string_isempty("\xC3\xA9"), 0u);

    EXPECT_EQ(ombr_string_isvalid(nullptr), 1u);
    EXPECT_EQ(ombr_string_isvalid(""), 1u);
    EXPECT_EQ(ombr_string_isvalid(kMixed), 1u);
    EXPECT_EQ(ombr_string_isvalid("abc\xE2\x82"), 0u);
    EXPECT_EQ(ombr_string_isvalid("abc\xBF"), 0u);
}

TEST(StringCursor, CharnextStepsAndStopsAtTheEnd) {
    const char *cursor = kMixed;
    uint32_t size = 0;
    EXPECT_EQ(ombr_string_charnext(&cursor, &size), 0x61u);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(ombr_string_charnext(&cursor, &size), 0xE9u);
    EXPECT_EQ(size, 2u);
    EXPECT_EQ(ombr_string_charnext(&cursor, &size), 0x20ACu);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(ombr_string_charnext(&cursor, nullptr), 0x7Au);
    // At the terminator: 0, size 1, and the cursor has moved past it.
    EXPECT_EQ(out(ombr_string_charnext, &cursor), 1u);
    EXPECT_EQ(cursor, kMixed + sizeof kMixed);

    const char bad[] = "\xC3z";
    cursor = bad;
    EXPECT_EQ(out(ombr_string_charnext, &cursor), 0u);
    EXPECT_EQ(cursor, bad);  // nothing moves

    const char *null_cursor = nullptr;
    EXPECT_EQ(ombr_string_charnext(&null_cursor, &size), 0u);
    EXPECT_EQ(ombr_string_charnext(nullptr, &size), 0u);
}

TEST(StringCursor, SetcharWritesNoTerminator) {
    char buf[4] = {'#', '#', '#', '#'};
    uint32_t written = 9;
    EXPECT_EQ(ombr_string_setchar(buf, sizeof buf, 0xE9, &written), buf);
    EXPECT_EQ(written, 2u);
    EXPECT_EQ(std::memcmp(buf, "\xC3\xA9##", 4), 0);
    EXPECT_EQ(ombr_string_setchar(buf, 3, 0x20AC, &written), buf);
    EXPECT_EQ(written, 0u);  // does not fit with the spare byte
    EXPECT_EQ(ombr_string_setchar(nullptr, 4, 'a', &written), nullptr);
}

}  // namespace
