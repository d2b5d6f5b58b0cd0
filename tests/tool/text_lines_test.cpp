// Lines of CUE sheets and logs in their encodings, and the shared time form.
#include <gtest/gtest.h>

#include "tests/tool/disc_test_support.h"
#include "tool/disc/text_lines.h"

namespace {

using disc_test::utf16;

std::vector<std::string> lines_of(const std::string &bytes) {
    auto lines = disc::text_lines(bytes);
    EXPECT_TRUE(lines) << lines.error().message;
    return lines ? *lines : std::vector<std::string>{};
}

TEST(TextLines, LineEnds) {
    using V = std::vector<std::string>;
    EXPECT_EQ(lines_of("a\nb\r\nc\rd"), (V{"a", "b", "c", "d"}));
    EXPECT_EQ(lines_of("a\n\nb\n"), (V{"a", "", "b"}));
    EXPECT_EQ(lines_of("a\r\n\r\nb"), (V{"a", "", "b"}));
    EXPECT_EQ(lines_of(""), V{});
}

TEST(TextLines, Encodings) {
    using V = std::vector<std::string>;
    const V expected{"Track 1 \xC3\xA9", "x"};  // "é" as UTF-8
    EXPECT_EQ(lines_of("\xEF\xBB\xBFTrack 1 \xC3\xA9\r\nx"), expected);
    EXPECT_EQ(lines_of(utf16(u"\uFEFFTrack 1 \u00E9\r\nx", true)), expected);
    EXPECT_EQ(lines_of(utf16(u"\uFEFFTrack 1 \u00E9\r\nx", false)), expected);
    EXPECT_EQ(lines_of(utf16(u"Track 1 \u00E9\r\nx", true)), expected);  // no byte order mark
    EXPECT_EQ(lines_of(utf16(u"Track 1 \u00E9\r\nx", false)), expected);
    // A character beyond the BMP through its surrogate pair.
    EXPECT_EQ(lines_of(utf16(u"\uFEFF\U0001F4BF", true)), V{"\xF0\x9F\x92\xBF"});
    // Windows-1252 bytes pass through untouched.
    EXPECT_EQ(lines_of("caf\xE9"), V{"caf\xE9"});
}

TEST(TextLines, Refusals) {
    struct Case {
        const char *name;
        std::string bytes;
        size_t line;
        const char *message;
    };
    const Case cases[] = {
        {"NUL in 8-bit text", std::string("a\nb\0c", 5), 2,
         "NUL byte: not a text file (or UTF-16 without a byte order mark)"},
        {"odd UTF-16", utf16(u"\uFEFFab\ncd", true) + "x", 2, "UTF-16 text ends in half a character (odd byte count)"},
        {"lone high surrogate", utf16(u"\uFEFFa\nb", true) + std::string("\x00\xD8" "a\x00", 4), 2,
         "invalid UTF-16: a high surrogate without its low half"},
        {"lone low surrogate", utf16(u"\uFEFFa\n\nb", true) + std::string("\x00\xDC", 2), 3,
         "invalid UTF-16: a low surrogate without its high half"},
        {"NUL character", utf16(u"\uFEFFa", true) + std::string("\0\0", 2), 1, "NUL character in UTF-16 text"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(disc_test::refusal(disc::text_lines(c.bytes)), disc_test::refusal(c.line, c.message)) << c.name;
    auto big = disc::text_lines(std::string(disc::kMaxTextBytes + 1, 'a'));
    ASSERT_FALSE(big);
    EXPECT_EQ(big.error().line, 0u);
}

TEST(TextLines, Times) {
    struct Case {
        const char *text;
        int64_t frames;  // -1: refused
        const char *message;
    };
    const Case cases[] = {
        {"00:00:00", 0, ""},
        {"04:41:25", (4 * 60 + 41) * 75 + 25, ""},
        {"6:19.40", (6 * 60 + 19) * 75 + 40, ""},
        {"101:02:03", (101 * 60 + 2) * 75 + 3, ""},
        {"00:60:00", -1, "seconds 60 above 59 in 00:60:00"},
        {"00:00:75", -1, "frames 75 above 74 in 00:00:75"},
        {"00:00", -1, "\"00:00\" is not a time mm:ss:ff"},
        {"1000:00:00", -1, "\"1000:00:00\" is not a time mm:ss:ff"},
        {"0:0:0", -1, "\"0:0:0\" is not a time mm:ss:ff"},
        {"aa:bb:cc", -1, "\"aa:bb:cc\" is not a time mm:ss:ff"},
        {"", -1, "\"\" is not a time mm:ss:ff"},
    };
    for (const Case &c : cases) {
        auto t = disc::parse_msf(c.text);
        if (c.frames >= 0) {
            ASSERT_TRUE(t) << c.text;
            EXPECT_EQ(*t, static_cast<uint32_t>(c.frames)) << c.text;
        } else {
            ASSERT_FALSE(t) << c.text;
            EXPECT_EQ(t.error().message, c.message) << c.text;
        }
    }
}

}  // namespace
