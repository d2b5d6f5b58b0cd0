// Ordering comparisons through the one comparison core, searches and tokens.
#include <cstring>

#include "cantrix_test.h"
#include "string/ombr_string_internal.h"

namespace {

constexpr const char kEAcute[] = "\xC3\xA9";         // U+00E9
constexpr const char kEAcuteUpper[] = "\xC3\x89";    // U+00C9: not folded

TEST(StringCompareCore, DifferenceCountAndCursors) {
    int32_t diff = 99;
    uint32_t equal = 99;
    const char *a = "abXd";
    const char *b = "abYd";
    const char *end_a = nullptr, *end_b = nullptr;
    EXPECT_EQ(_ombr_string_utf8_compare(a, b, 0xFFFFFFFFu, 1, &diff, &equal, &end_a, &end_b), 0u);
    EXPECT_EQ(diff, 'X' - 'Y');
    EXPECT_EQ(equal, 2u);
    EXPECT_EQ(end_a, a + 3);  // behind the first unequal character
    EXPECT_EQ(end_b, b + 3);

    // Folding applies to 'A'-'Z' on both sides only.
    EXPECT_EQ(_ombr_string_utf8_compare("HeLLo", "hello", 0xFFFFFFFFu, 0, &diff, &equal, nullptr, nullptr), 0u);
    EXPECT_EQ(diff, 0);
    EXPECT_EQ(equal, 5u);
    EXPECT_EQ(_ombr_string_utf8_compare(kEAcute, kEAcuteUpper, 0xFFFFFFFFu, 0, &diff, nullptr, nullptr, nullptr),
              0u);
    EXPECT_EQ(diff, 0xE9 - 0xC9);

    // The longer text is greater; the limit stops before that is looked at.
    EXPECT_EQ(_ombr_string_utf8_compare("abc", "ab", 0xFFFFFFFFu, 1, &diff, nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(diff, 1);
    EXPECT_EQ(_ombr_string_utf8_compare("ab", "abc", 0xFFFFFFFFu, 1, &diff, nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(diff, -1);
    EXPECT_EQ(_ombr_string_utf8_compare("ab", "abc", 2, 1, &diff, &equal, nullptr, nullptr), 0u);
    EXPECT_EQ(diff, 0);
    EXPECT_EQ(equal, 2u);
    EXPECT_EQ(_ombr_string_utf8_compare("", "x", 0xFFFFFFFFu, 1, &diff, &equal, nullptr, nullptr), 0u);
    EXPECT_EQ(diff, -1);
    EXPECT_EQ(equal, 0u);
}

TEST(StringCompareCore, DecodingFailureEndsAndIsReported) {
    int32_t diff = 99;
    uint32_t equal = 99;
    const char *a = "ab\xC3z";
    const char *end_a = nullptr;
    EXPECT_EQ(_ombr_string_utf8_compare(a, "abc", 0xFFFFFFFFu, 1, &diff, &equal, &end_a, nullptr), 0x900503A0u);
    EXPECT_EQ(equal, 2u);
    EXPECT_EQ(end_a, a + 2);  // stopped at the invalid character
    EXPECT_EQ(diff, 1);       // a still has (undecodable) bytes left
    EXPECT_EQ(_ombr_string_utf8_compare("abc", "ab\xF0\x9F\x98\x80", 0xFFFFFFFFu, 1, &diff, nullptr, nullptr, nullptr),
              0x900503A0u);
    EXPECT_EQ(diff, -1);  // a was used up, b keeps its undecodable rest
}

TEST(StringCompare, WrappersReduceToSign) {
    // Byte order versus code points with folding.
    EXPECT_EQ(ombr_string_strcmp("a", "B"), 1);
    EXPECT_EQ(ombr_string_stricmp("a", "B"), -1);
    EXPECT_EQ(ombr_string_strcmp("abc", "abc"), 0);
    EXPECT_EQ(ombr_string_strcmp("ab", "abc"), -1);
    EXPECT_EQ(ombr_string_strcmp("\xC3\xA9", "z"), 1);  // unsigned bytes
    EXPECT_EQ(ombr_string_stricmp("ABC", "abd"), -1);
    EXPECT_EQ(ombr_string_stricmp("abcd", "ABC"), 1);
    EXPECT_EQ(ombr_string_stricmp(kEAcute, kEAcuteUpper), 1);  // only ASCII folds
    EXPECT_EQ(ombr_string_strncmp("abc", "abd", 2), 0);
    EXPECT_EQ(ombr_string_strncmp("abc", "abd", 3), -1);
    EXPECT_EQ(ombr_string_strncmp("abc", "ABC", 3), 1);
    EXPECT_EQ(ombr_string_strncmp("abc", "xyz", 0), 0);
    EXPECT_EQ(ombr_string_strnicmp("abcX", "ABCy", 3), 0);
    EXPECT_EQ(ombr_string_strnicmp("abcX", "ABCy", 4), -1);
    // Characters, not bytes, are counted by the limit.
    EXPECT_EQ(ombr_string_strncmp("\xC3\xA9\xC3\xA9x", "\xC3\xA9\xC3\xA9y", 2), 0);
}

TEST(StringCompare, NullsAndSamePointer) {
    const char *s = "x";
    EXPECT_EQ(ombr_string_strcmp(nullptr, nullptr), 0);
    EXPECT_EQ(ombr_string_strcmp(nullptr, "a"), -1);
    EXPECT_EQ(ombr_string_strcmp("a", nullptr), 1);
    EXPECT_EQ(ombr_string_strcmp(s, s), 0);
    for (auto fn : {+[](const char *a, const char *b) { return ombr_string_stricmp(a, b); },
                    +[](const char *a, const char *b) { return ombr_string_strncmp(a, b, 5); },
                    +[](const char *a, const char *b) { return ombr_string_strnicmp(a, b, 5); }}) {
        EXPECT_EQ(fn(nullptr, nullptr), 0);
        EXPECT_EQ(fn("a", nullptr), 1);
        EXPECT_EQ(fn(nullptr, "a"), -1);
        EXPECT_EQ(fn(s, s), 0);
    }
}

TEST(StringCompare, LenPairKeepsItsSwappedNames) {
    const char *a = "HelloX";
    const char *b = "helloY";
    const char *end_a = nullptr, *end_b = nullptr;
    // strcmp_len folds ASCII case ...
    EXPECT_EQ(ombr_string_strcmp_len(a, b, &end_a, &end_b), 5u);
    EXPECT_EQ(end_a, a + 6);
    EXPECT_EQ(end_b, b + 6);
    // ... and stricmp_len does not.
    EXPECT_EQ(ombr_string_stricmp_len(a, b, &end_a, &end_b), 0u);
    EXPECT_EQ(end_a, a + 1);
    EXPECT_EQ(ombr_string_stricmp_len("hello", "help", nullptr, nullptr), 3u);

    EXPECT_EQ(ombr_string_strcmp_len(nullptr, b, nullptr, nullptr), 0u);
    EXPECT_EQ(ombr_string_stricmp_len(a, nullptr, nullptr, nullptr), 0u);
    // Same pointer: its character count, outputs untouched.
    const char *same = "a\xC3\xA9z";
    end_a = end_b = "untouched";
    EXPECT_EQ(ombr_string_strcmp_len(same, same, &end_a, &end_b), 3u);
    EXPECT_STREQ(end_a, "untouched");
    EXPECT_STREQ(end_b, "untouched");
}

TEST(StringSearch, CharacterSearchStopsAtInvalid) {
    const char *s = "a\xC3\xA9" "ba\xC3\xA9" "c";
    EXPECT_EQ(ombr_string_strchr(s, 0xE9), s + 1);
    EXPECT_EQ(ombr_string_strrchr(s, 0xE9), s + 5);
    EXPECT_EQ(ombr_string_strchr(s, 'a'), s);
    EXPECT_EQ(ombr_string_strrchr(s, 'a'), s + 4);
    EXPECT_EQ(ombr_string_strchr(s, 'x'), nullptr);
    EXPECT_EQ(ombr_string_strchr(s, 0), nullptr);
    EXPECT_EQ(ombr_string_strchr(nullptr, 'a'), nullptr);
    // A byte of a character is not a character of its own.
    EXPECT_EQ(ombr_string_strchr(s, 0xC3), nullptr);

    const char *bad = "ab\xFF" "ab";
    EXPECT_EQ(ombr_string_strchr(bad, 'a'), bad);
    EXPECT_EQ(ombr_string_strrchr(bad, 'a'), bad);  // the search ended at 0xFF
    EXPECT_EQ(ombr_string_strchr(bad, 'x'), nullptr);
}

TEST(StringSearch, SubstringAndItsWrappers) {
    const char *h = "xx\xC3\xA9" "abcabc";
    const char *end = nullptr;
    uint32_t chars = 0;
    EXPECT_EQ(ombr_string_substring(h, "\xC3\xA9" "ab", &end, &chars), h + 2);
    EXPECT_EQ(end, h + 6);
    EXPECT_EQ(chars, 3u);
    EXPECT_EQ(ombr_string_substring(h, "abd", &end, &chars), nullptr);
    EXPECT_EQ(end, nullptr);  // outputs zeroed
    EXPECT_EQ(chars, 0u);
    EXPECT_EQ(ombr_string_substring(h, "", &end, &chars), h);  // empty needle
    EXPECT_EQ(ombr_string_substring(nullptr, "a", nullptr, nullptr), nullptr);
    EXPECT_EQ(ombr_string_substring(h, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(ombr_string_substring("ab", "abc", nullptr, nullptr), nullptr);  // haystack too short
    // An invalid character in the haystack ends the search.
    EXPECT_EQ(ombr_string_strstr("ab\x80xyz", "xyz"), nullptr);

    const char *s = "abcabc";
    EXPECT_EQ(ombr_string_strstr(s, "bc"), s + 1);
    EXPECT_EQ(ombr_string_strstr(s, "ca"), s + 2);
    // strrstr searches forward and points behind the first match.
    EXPECT_EQ(ombr_string_strrstr(s, "bc"), s + 3);
    EXPECT_STREQ(ombr_string_strrstr(s, "bc"), "abc");
    EXPECT_EQ(ombr_string_strrstr(s, "zz"), nullptr);
}

TEST(StringTokens, DelimitersAndSavePointer) {
    char text[] = "a, b";
    char *save = nullptr;
    char delim = 'x';
    char *tok = ombr_string_strtok(text, " ,", &save, &delim);
    ASSERT_NE(tok, nullptr);
    EXPECT_STREQ(tok, "a");
    EXPECT_EQ(delim, ',');
    EXPECT_EQ(save, text + 2);
    tok = ombr_string_strtok(nullptr, " ,", &save, &delim);
    ASSERT_NE(tok, nullptr);
    EXPECT_STREQ(tok, "b");
    EXPECT_EQ(delim, 0);
    EXPECT_EQ(save, text + 4);  // on the terminator
    delim = 'x';
    EXPECT_EQ(ombr_string_strtok(nullptr, " ,", &save, &delim), nullptr);
    EXPECT_EQ(delim, 0);
    EXPECT_EQ(save, nullptr);
    EXPECT_EQ(ombr_string_strtok(nullptr, " ,", &save, &delim), nullptr);  // both null

    char blanks[] = " ,, ";
    save = blanks;
    EXPECT_EQ(ombr_string_strtok(blanks, " ,", &save, nullptr), nullptr);
    EXPECT_EQ(save, nullptr);
}

TEST(StringTokens, BytesOfMultiByteCharactersCanMatch) {
    // "é" is C3 A9; the delimiter '©' is U+00A9, the value of its second byte.
    char text[] = "x\xC3\xA9y";
    char *save = nullptr;
    char delim = 0;
    char *tok = ombr_string_strtok(text, "\xC2\xA9", &save, &delim);
    ASSERT_NE(tok, nullptr);
    EXPECT_STREQ(tok, "x\xC3");
    EXPECT_EQ(static_cast<unsigned char>(delim), 0xA9);
    EXPECT_STREQ(save, "y");
}

}  // namespace
