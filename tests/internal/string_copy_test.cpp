// Bounded copies that never split a character, duplicates with their
// allocation failures, and in-place edits.
#include <cstring>
#include <string>

#include "cantrix_test.h"
#include "string/ombr_string_internal.h"

namespace {

TEST(StringCopy, CoreNeverSplitsACharacter) {
    char buf[8];
    std::memset(buf, '#', sizeof buf);
    // "aé" into 3 bytes: 'é' needs 2 and only 1 is left before the terminator.
    EXPECT_EQ(ombr_string_strcpy(buf, 3, "a\xC3\xA9"), buf);
    EXPECT_STREQ(buf, "a");
    EXPECT_EQ(buf[2], '#');
    EXPECT_EQ(_ombr_string_utf8_copy(buf, 4, "a\xC3\xA9", 0xFFFFFFFFu), 3u);
    EXPECT_STREQ(buf, "a\xC3\xA9");
    EXPECT_EQ(_ombr_string_utf8_copy(buf, 8, "\xE2\x82\xAC\xE2\x82\xAC", 0xFFFFFFFFu), 6u);
    EXPECT_EQ(_ombr_string_utf8_copy(buf, 6, "\xE2\x82\xAC\xE2\x82\xAC", 0xFFFFFFFFu), 3u);
    EXPECT_STREQ(buf, "\xE2\x82\xAC");
    // The limit counts characters.
    EXPECT_EQ(_ombr_string_utf8_copy(buf, 8, "\xC3\xA9xyz", 2), 3u);
    EXPECT_STREQ(buf, "\xC3\xA9x");
    // An invalid lead byte stops the copy; continuation bytes are not checked.
    EXPECT_EQ(_ombr_string_utf8_copy(buf, 8, "ab\xF0\x9F\x98\x80", 0xFFFFFFFFu), 2u);
    EXPECT_STREQ(buf, "ab");
    EXPECT_EQ(_ombr_string_utf8_copy(buf, 8, "\xC3" "Az", 0xFFFFFFFFu), 3u);
    EXPECT_STREQ(buf, "\xC3" "Az");
    // A sequence cut by the terminator is not copied.
    EXPECT_EQ(_ombr_string_utf8_copy(buf, 8, "a\xE2\x82", 0xFFFFFFFFu), 1u);
    EXPECT_STREQ(buf, "a");
}

TEST(StringCopy, TinyDestinationsStillGetATerminator) {
    char buf[2] = {'#', '#'};
    EXPECT_EQ(ombr_string_strcpy(buf, 1, "abc"), buf);
    EXPECT_EQ(buf[0], 0);
    buf[0] = '#';
    // Even size 0 writes one byte at dest.
    EXPECT_EQ(ombr_string_strcpy(buf, 0, "abc"), buf);
    EXPECT_EQ(buf[0], 0);
    EXPECT_EQ(buf[1], '#');
    buf[0] = '#';
    EXPECT_EQ(ombr_string_strcpy(buf, 2, ""), buf);
    EXPECT_EQ(buf[0], 0);

    char keep[4] = "old";
    EXPECT_EQ(ombr_string_strcpy(keep, 4, nullptr), keep);  // null src leaves dest alone
    EXPECT_STREQ(keep, "old");
    EXPECT_EQ(ombr_string_strcpy(nullptr, 4, "x"), nullptr);
    EXPECT_EQ(ombr_string_strncpy(nullptr, 4, "x", 1), nullptr);
}

TEST(StringCopy, NcpyAndConcatenation) {
    char buf[16];
    EXPECT_STREQ(ombr_string_strncpy(buf, sizeof buf, "a\xC3\xA9" "bc", 2), "a\xC3\xA9");
    EXPECT_STREQ(ombr_string_strncpy(buf, sizeof buf, "abc", 0), "");
    EXPECT_STREQ(ombr_string_strncpy(buf, 3, "abc", 5), "ab");

    std::strcpy(buf, "ab");
    EXPECT_STREQ(ombr_string_strcat(buf, sizeof buf, "\xC3\xA9" "cd"), "ab\xC3\xA9" "cd");
    EXPECT_STREQ(ombr_string_strncat(buf, sizeof buf, "xyz", 2), "ab\xC3\xA9" "cdxy");
    // Room for 2 more bytes and the terminator: the 3-byte '€' does not fit whole.
    EXPECT_STREQ(ombr_string_strcat(buf, 12, "z\xE2\x82\xAC"), "ab\xC3\xA9" "cdxyz");

    // A destination that already fills its size is not touched.
    char full[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(ombr_string_strcat(full, 4, "x"), full);
    EXPECT_EQ(std::memcmp(full, "abcd", 4), 0);
    char exact[4] = "abc";
    EXPECT_STREQ(ombr_string_strcat(exact, 4, "x"), "abc");
    EXPECT_STREQ(ombr_string_strcat(exact, 4, nullptr), "abc");
    EXPECT_EQ(ombr_string_strcat(nullptr, 4, "x"), nullptr);
}

class StringDup : public LeakCheckedTest {};

TEST_F(StringDup, DuplicatesAndTheirSizes) {
    char *d = ombr_string_strdup("a\xC3\xA9");
    EXPECT_STREQ(d, "a\xC3\xA9");
    ombr_string_free(d);
    EXPECT_EQ(ombr_string_strdup(nullptr), nullptr);

    // strdupn: exactly size bytes, fill behind the text, byte-wise cut.
    d = ombr_string_strdupn("abc", 6, '*');
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(std::memcmp(d, "abc**\0", 6), 0);
    ombr_string_free(d);
    d = ombr_string_strdupn("\xC3\xA9xyz", 2, '*');
    EXPECT_EQ(std::memcmp(d, "\xC3\0", 2), 0);  // may cut a character
    ombr_string_free(d);
    EXPECT_EQ(ombr_string_strdupn("abc", 0, '*'), nullptr);
    EXPECT_EQ(ombr_string_strdupn(nullptr, 4, '*'), nullptr);

    d = ombr_string_strndup("\xE2\x82\xAC\xE2\x82\xAC" "abc", 2);
    EXPECT_STREQ(d, "\xE2\x82\xAC\xE2\x82\xAC");
    ombr_string_free(d);
    d = ombr_string_strndup("ab", 10);
    EXPECT_STREQ(d, "ab");
    ombr_string_free(d);
    d = ombr_string_strndup("ab", 0);
    EXPECT_STREQ(d, "");
    ombr_string_free(d);
    EXPECT_EQ(ombr_string_strndup(nullptr, 3), nullptr);
}

TEST_F(StringDup, WorddupMeasuresTheWordButCopiesTheStart) {
    char *d = ombr_string_worddup("hello world");
    EXPECT_STREQ(d, "hello");
    ombr_string_free(d);
    d = ombr_string_worddup("single");
    EXPECT_STREQ(d, "single");
    ombr_string_free(d);
    // Leading blanks: as many bytes of the text's beginning as the word has.
    d = ombr_string_worddup("  ab cd");
    EXPECT_STREQ(d, "  ");
    ombr_string_free(d);
    d = ombr_string_worddup("\t\nxyz");
    EXPECT_STREQ(d, "\t\nx");
    ombr_string_free(d);
    // An invalid character ends the word without being passed.
    d = ombr_string_worddup("abc\xFF" "def");
    EXPECT_STREQ(d, "ab");
    ombr_string_free(d);

    EXPECT_EQ(ombr_string_worddup(""), nullptr);
    EXPECT_EQ(ombr_string_worddup(" \t "), nullptr);
    EXPECT_EQ(ombr_string_worddup("  \x80" "abc"), nullptr);
    EXPECT_EQ(ombr_string_worddup(nullptr), nullptr);
}

TEST_F(StringDup, NoMemoryGivesNullAndNoLeak) {
    const std::string long_text(400, 'q');
    struct Case {
        const char *name;
        char *(*run)(const char *);
    };
    const Case cases[] = {
        {"strdup", [](const char *s) { return ombr_string_strdup(s); }},
        {"strdupn", [](const char *s) { return ombr_string_strdupn(s, 8, '.'); }},
        {"strndup", [](const char *s) { return ombr_string_strndup(s, 3); }},
        {"worddup", [](const char *s) { return ombr_string_worddup(s); }},
    };
    for (const Case &c : cases) {
        uint64_t runs = for_each_allocation_failure([&](uint64_t) {
            char *d = c.run("word and more");
            if (zelto_manager_memory_failure_fired())
                EXPECT_EQ(d, nullptr) << c.name;
            else
                EXPECT_NE(d, nullptr) << c.name;
            ombr_string_free(d);
        });
        EXPECT_EQ(runs, 1u) << c.name;
    }
    // A long text is reversed in a heap copy; without it the text stays.
    uint64_t runs = for_each_allocation_failure([&](uint64_t) {
        std::string text = "xy" + long_text;
        ombr_string_reverse(text.data());
        if (zelto_manager_memory_failure_fired())
            EXPECT_EQ(text, "xy" + long_text);
        else
            EXPECT_EQ(text, long_text + "yx");
    });
    EXPECT_EQ(runs, 1u);
}

TEST(StringEdit, TrimAndAsciiCase) {
    char a[] = " \t ab c \n";
    EXPECT_EQ(ombr_string_trim(a), a);
    EXPECT_STREQ(a, "ab c");
    char b[] = "  ";
    EXPECT_STREQ(ombr_string_trim(b), "");
    char c[] = "\x01x\x7F";  // 127 is not in 1-32
    EXPECT_STREQ(ombr_string_trim(c), "x\x7F");
    EXPECT_EQ(ombr_string_trim(nullptr), nullptr);

    // Only ASCII letters change; 'É' and 'é' stay as they are.
    char d[] = "AbZ \xC3\x89\xC3\xA9 09";
    EXPECT_STREQ(ombr_string_tolower(d), "abz \xC3\x89\xC3\xA9 09");
    EXPECT_STREQ(ombr_string_toupper(d), "ABZ \xC3\x89\xC3\xA9 09");
    EXPECT_EQ(ombr_string_tolower(nullptr), nullptr);
    EXPECT_EQ(ombr_string_toupper(nullptr), nullptr);
}

class StringReverse : public LeakCheckedTest {};

TEST_F(StringReverse, ByCharacterKeepingEachCharacterWhole) {
    char a[] = "a\xC3\xA9" "b\xE2\x82\xAC";
    EXPECT_EQ(ombr_string_reverse(a), a);
    EXPECT_STREQ(a, "\xE2\x82\xAC" "b\xC3\xA9" "a");
    EXPECT_EQ(ombr_string_isvalid(a), 1u);
    char empty[] = "";
    EXPECT_STREQ(ombr_string_reverse(empty), "");
    // An invalid character leaves the text as it was.
    char bad[] = "ab\xFF" "cd";
    EXPECT_STREQ(ombr_string_reverse(bad), "ab\xFF" "cd");
    EXPECT_EQ(ombr_string_reverse(nullptr), nullptr);

    // 255 bytes + terminator use the scratch area, 256 + terminator the heap.
    for (size_t n : {255u, 256u, 1000u}) {
        std::string text;
        for (size_t i = 0; i < n; ++i) text.push_back(static_cast<char>('a' + i % 26));
        std::string expected(text.rbegin(), text.rend());
        ombr_string_reverse(text.data());
        EXPECT_EQ(text, expected) << n;
    }
}

}  // namespace
