// The normaliser: the whole pipeline through the public functions, single
// passes through normalize_text_uni_prim, and failure paths.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "cantrix_test.h"
#include "ombr/ombr_string.h"
#include "ombr/ombr_textcorr_normalize.h"
#include "textcorr/ombr_textcorr_normalize.h"
#include "textcorr/ombr_textcorr_tables.h"

using ombr::textcorr::be16;

namespace {

constexpr uint32_t kAll = 223;  // what the module's scoring passes

class NormalizeTest : public LeakCheckedTest {
   protected:
    void SetUp() override {
        LeakCheckedTest::SetUp();
        ASSERT_EQ(ombr_string_initialize(), 0u);
    }
    void TearDown() override {
        ombr_string_shutdown();
        LeakCheckedTest::TearDown();
    }

    // Key of a UTF-8 text through the public UTF-8 function.
    static std::string key(const char *text, uint32_t flags = kAll, uint32_t option = 0) {
        char *out = nullptr;
        const uint32_t status = ombr_textcorr_normalize_utf8_text(text, &out, flags, option);
        EXPECT_EQ(status, 0u) << text;
        std::string result = out ? out : "<null>";
        ombr_string_free(out);
        return result;
    }

    // Key of a host-order UCS-2 text through the public UCS-2 function.
    static std::u16string key16(const std::u16string &text, const char16_t *keep = nullptr, uint32_t flags = kAll,
                                uint32_t option = 0) {
        uint16_t *out = nullptr;
        const uint32_t status = ombr_textcorr_normalize_text(reinterpret_cast<const uint16_t *>(text.c_str()), &out,
                                                             reinterpret_cast<const uint16_t *>(keep), flags, option);
        EXPECT_EQ(status, 0u);
        std::u16string result;
        for (const uint16_t *p = out; p && *p; ++p) result.push_back(static_cast<char16_t>(*p));
        ombr_memory_free(out);
        return result;
    }

    struct PrimResult {
        uint32_t status;
        std::u16string text;
    };

    // The pipeline proper with one set of pass switches, on big-endian text.
    static PrimResult prim(const std::u16string &text, uint32_t flags, const char16_t *keep = nullptr,
                           uint32_t token_mode = 0) {
        std::vector<uint16_t> in, keep_be;
        for (char16_t c : text) in.push_back(be16(c));
        in.push_back(0);
        if (keep) {
            for (const char16_t *k = keep; *k; ++k) keep_be.push_back(be16(*k));
            keep_be.push_back(0);
        }
        uint16_t *out = nullptr;
        PrimResult r{normalize_text_uni_prim(in.data(), &out, keep ? keep_be.data() : nullptr, flags, token_mode),
                     {}};
        for (const uint16_t *p = out; p && *p; ++p) r.text.push_back(static_cast<char16_t>(be16(*p)));
        ombr_memory_free(out);
        return r;
    }
};

}  // namespace

TEST_F(NormalizeTest, OutcomesWithAllFlags) {
    const std::pair<const char *, const char *> table[] = {
        {"The Lanterns", "lantern"},
        {"Sgt. Marlow's Lonely Hearts Club Band", "sgt marlow lonely heart club band"},
        {"R.E.D.", "red"},
        {"AB/CD", "ab cd"},
        {"Bells N' Roses", "bel n rose"},
        {"1999", "one thousand nine hundred ninety nine"},
        {"3.14", "thre hundred fourten"},
        {"Rock & Roll", "rock rol"},
        {"The The", "thethe"},
        {"The", "the"},
        {"a the", "a the"},
        {"Vol. II", "vol two"},
        {"I", "one"},
        {"$100", "one hundred"},
        {"A$AP Rock", "asap rock"},
        {"100%", "one hundred percent"},
        {"D'Arcy", "arcy"},
        {"D\u2019Arcy", "darcy"},
        {"C\u00e9line Marais", "celine marai"},
        {"\u3072\u3089\u304c\u306a", "\u30d2\u30e9\u30ac\u30ca"},
        {"\u30cf\u30ed\u30fc", "\u30cf\u30ed"},
        {"\u65e5\u672c\u8a9e", "\u65e5\u672c\u8bed"},
        {"\uff76\uff9e\uff77\uff9e", "\u30ac\u30ae"},
    };
    for (auto [input, expected] : table) EXPECT_EQ(key(input), expected) << input;
}

TEST_F(NormalizeTest, FlagWordIsNoneOrAll) {
    // 0 runs the character fold and the block copy only: punctuation stays.
    EXPECT_EQ(key("Rock & Roll", 0), "rock & roll");
    EXPECT_EQ(key("The Lanterns", 0), "the lanterns");
    // Any other value runs every pass, also those whose bits are clear.
    EXPECT_EQ(key("Rock & Roll", NORM_PUNCTUATION), "rock rol");
    EXPECT_EQ(key("Rock & Roll", 0x80000000u), "rock rol");
    EXPECT_EQ(key("100%", NORM_STOP_WORDS), "one hundred percent");
    // The pipeline itself honours single bits: 223 lacks numbers and punctuation.
    EXPECT_EQ(prim(u"Rock & Roll", kAll).text, u"rock & rol");
    EXPECT_EQ(prim(u"100%", kAll).text, u"10%");
    const PrimResult none = prim(u"Rock & Roll", 0);
    EXPECT_EQ(none.status, 0u);
    EXPECT_EQ(none.text, u"rock & roll");
}

TEST_F(NormalizeTest, SecondTryAndCopyOfTheInput) {
    // A stop word alone: the retry with consolidation and punctuation only.
    EXPECT_EQ(prim(u"The", NORM_STOP_WORDS).status, 0u);
    EXPECT_EQ(prim(u"The", NORM_STOP_WORDS).text, u"the");
    EXPECT_EQ(prim(u"S", NORM_PLURAL_S).text, u"s");
    EXPECT_EQ(prim(u"a the", NORM_STOP_WORDS | NORM_PUNCTUATION).text, u"a the");
    // Flags inside 0x110 are not retried.
    EXPECT_EQ(prim(u"?!", NORM_PUNCTUATION).status, OMBR_TEXTCORR_NOTHING_LEFT);
    EXPECT_EQ(prim(u"?!", kNormRetryFlags).status, OMBR_TEXTCORR_NOTHING_LEFT);
    EXPECT_EQ(prim(u"?!", 0xFFFFFFFFu).status, OMBR_TEXTCORR_NOTHING_LEFT);
    EXPECT_EQ(prim(u"", 0).status, OMBR_TEXTCORR_NOTHING_LEFT);
    // The public functions hand out the input itself.
    EXPECT_EQ(key("?!"), "?!");
    EXPECT_EQ(key("   "), "   ");
    EXPECT_EQ(key(""), "");
    EXPECT_EQ(key(" - "), " - ");
    EXPECT_EQ(key("s"), "s");
    EXPECT_EQ(key16(u"\u2019\u2019"), u"\u2019\u2019");
}

TEST_F(NormalizeTest, TokenModeKeepsHiragana) {
    EXPECT_EQ(key("\u3072\u3089\u304c\u306a", kAll, OMBR_TEXTCORR_OPTION_TOKEN), "\u3072\u3089\u304c\u306a");
    // Small kana and everything else fold as usual.
    EXPECT_EQ(key("\u3041\u3042", kAll, 1), "\u3041\u3042");
    EXPECT_EQ(key("\u3063\u30f4\u3001\u3042", kAll, 1), "\u3063\u30d6 \u3042");
    EXPECT_EQ(key("\uff76\uff9e The Lanterns", kAll, 1), "\u30ac lantern");
    // Only bit 0 of the option word selects it.
    EXPECT_EQ(key("\u3042", kAll, 2), "\u30a2");
    EXPECT_EQ(prim(u"\u3042", 0, nullptr, 1).text, u"\u3042");
}

TEST_F(NormalizeTest, KeepListPassesTheCharacterPasses) {
    EXPECT_EQ(key16(u"Rock & Roll", u"&"), u"rock & rol");
    EXPECT_EQ(key16(u"AB/CD", u"/"), u"ab/cd");
    EXPECT_EQ(key16(u"AB/CD", u"B"), u"aB cd");
    // Word passes still see a kept character.
    EXPECT_EQ(key16(u"C\u00e9line Marais", u"\u00e9"), u"c\u00e9line marai");
    EXPECT_EQ(key16(u"Songs", u"S"), u"Song");
    // The keep list is read in host order like the text.
    EXPECT_EQ(prim(u"A-B", 0, u"-").text, u"a-b");
    EXPECT_EQ(prim(u"A-B", NORM_PUNCTUATION, u"-").text, u"a-b");
    EXPECT_EQ(prim(u"A-B", NORM_PUNCTUATION).text, u"a b");
}

TEST_F(NormalizeTest, CharacterPass) {
    // U+2019 goes in the first pass, U+2018 stays.
    EXPECT_EQ(key("\u2018Arcy"), "\u2018arcy");
    // A dollar inside a word is a letter, at a word start it goes.
    EXPECT_EQ(prim(u"a$ap $5", NORM_PUNCTUATION).text, u"asap 5");
    EXPECT_EQ(prim(u"x$", NORM_PUNCTUATION).text, u"xs");
    // Inner letter: the replacement between letters, else a blank.
    EXPECT_EQ(prim(u"F*ck *x", NORM_PUNCTUATION).text, u"feck x");
    EXPECT_EQ(prim(u"x* y", NORM_PUNCTUATION).text, u"x y");
    // Digit joiner: dropped between digits, else a blank, and at the end
    // removed by the trailing rule.
    EXPECT_EQ(prim(u"1,000,", NORM_PUNCTUATION).text, u"1000");
    EXPECT_EQ(key("1,000,"), "one thousand");
    EXPECT_EQ(prim(u"a.b", NORM_PUNCTUATION).text, u"a b");
    // Spelled symbols become words of their own.
    EXPECT_EQ(prim(u"x&y", NORM_PUNCTUATION).text, u"x and y");
    EXPECT_EQ(prim(u"& co", NORM_PUNCTUATION).text, u"and co");
    EXPECT_EQ(key("\u00a9 2001"), "copyright two thousand one");
    // Blanks collapse, leading and trailing separators go.
    EXPECT_EQ(prim(u"  a \t b  ", 0).text, u"a b");
    // Control characters are dropped, accents folded, ligatures split.
    EXPECT_EQ(prim(u"a\u0001b \u00c6on \ufb01n \u0152uvre", 0).text, u"ab aeon fin oeuvre");
    // Greek and Cyrillic fold to lower case without accents.
    EXPECT_EQ(key("\u0386\u0398\u0397\u039d\u0391"), "\u03b1\u03b8\u03b7\u03bd\u03b1");
    EXPECT_EQ(key("\u0401\u041b\u041a\u0418 \u0439"), "\u0451\u043b\u043a\u0438 \u0438");
    // Full-width forms and CJK numerals become ASCII and are then spelled.
    EXPECT_EQ(key("\uff11\uff12 \uff21\uff22"), "twelve ab");
    EXPECT_EQ(key("\u4e94"), "five");
    EXPECT_EQ(key("\u4e03\u4eba"), "7\u4eba");
}

TEST_F(NormalizeTest, WordLevelPasses) {
    // Contractions: stacked prefixes go, no boundary needed behind them. The
    // word start left behind the last one drops the blank in front of it.
    EXPECT_EQ(prim(u"L'D'Arc d'", NORM_CONTRACTIONS).text, u"arc");
    EXPECT_EQ(prim(u"Jean d'Arc", NORM_CONTRACTIONS).text, u"jean arc");
    EXPECT_EQ(prim(u"And'", NORM_CONTRACTIONS).text, u"and'");
    // Numbers: only digit strings that start a word and end at a separator.
    EXPECT_EQ(prim(u"12 2nd 12a a1 007", NORM_NUMBER_WORDS).text, u"twelve 2nd 12a a1 seven");
    const std::u16string digits67(67, u'9');
    EXPECT_EQ(prim(digits67, NORM_NUMBER_WORDS).text, digits67);
    const std::u16string digits66(66, u'9');
    const std::u16string spelled = prim(digits66, NORM_NUMBER_WORDS).text;
    EXPECT_EQ(spelled.substr(0, 40), u"nine hundred ninety nine vigintillion ni");
    EXPECT_EQ(spelled.substr(spelled.size() - 24), u"nine hundred ninety nine");
    // Initials and plurals.
    EXPECT_EQ(prim(u"r e m", NORM_CONSOLIDATE).text, u"rem");
    EXPECT_EQ(prim(u"a b cd", NORM_CONSOLIDATE).text, u"ab cd");
    EXPECT_EQ(prim(u"songs bus boss is", NORM_PLURAL_S).text, u"song bus boss is");
    // A lone s goes; the position stays on the unit behind it, so the blank
    // in front remains when nothing else walks the words.
    EXPECT_EQ(prim(u"abc s", NORM_PLURAL_S).text, u"abc ");
    EXPECT_EQ(prim(u"abc s", NORM_PLURAL_S | NORM_STOP_WORDS).text, u"abc");
    // Word pass: Roman numerals, replacement pairs, stop words, in that order.
    EXPECT_EQ(prim(u"Part xiv mix", NORM_ROMAN).text, u"part fourteen mix");
    EXPECT_EQ(prim(u"i", NORM_ROMAN | NORM_STOP_WORDS).text, u"one");
    EXPECT_EQ(prim(u"Lanterns The", NORM_STOP_WORDS).text, u"lanterns");
    EXPECT_EQ(prim(u"The the The", NORM_REPLACE_PAIRS).text, u"thethe the");
    EXPECT_EQ(prim(u"the then", NORM_REPLACE_PAIRS | NORM_STOP_WORDS).text, u"then");
    EXPECT_EQ(prim(u"\u30ab\u3099", NORM_REPLACE_PAIRS).text, u"\u30ac");
    EXPECT_EQ(prim(u"\u30b9\u309d", NORM_REPLACE_PAIRS).text, u"\u30b9\u30b9");
    EXPECT_EQ(prim(u"\u30d5\u30a4", NORM_REPLACE_PAIRS).text, u"\u30d2");
    // The iteration mark is punctuation: with all passes it goes first.
    EXPECT_EQ(key("\u30b9\u309d"), "\u30b9");
    // Repeats collapse after the stop words, letters and kana alike.
    EXPECT_EQ(prim(u"letter \u30a2\u30a2", NORM_COLLAPSE_REPEATS).text, u"leter \u30a2");
    EXPECT_EQ(key("Three Sheep"), "thre shep");
}

TEST_F(NormalizeTest, FullWidthToHalfWidth) {
    std::u16string text = u"\uff21\uff22\uff01\uff5e\uff00\uff5f\uff41";
    ombr_textcorr_normalize_do_full_width_to_half_width(reinterpret_cast<uint16_t *>(text.data()), 6);
    EXPECT_EQ(text, u"AB!~\uff00\uff5f\uff41");
    std::u16string untouched = u"\uff21";
    ombr_textcorr_normalize_do_full_width_to_half_width(reinterpret_cast<uint16_t *>(untouched.data()), 0);
    EXPECT_EQ(untouched, u"\uff21");
    ombr_textcorr_normalize_do_full_width_to_half_width(nullptr, 5);
}

TEST_F(NormalizeTest, Arguments) {
    uint16_t *out16 = nullptr;
    const uint16_t text16[] = {u'a', 0};
    EXPECT_EQ(ombr_textcorr_normalize_text(nullptr, &out16, nullptr, 1, 0), OMBR_TEXTCORR_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_textcorr_normalize_text(text16, nullptr, nullptr, 1, 0), OMBR_TEXTCORR_ERR_INVALID_ARG);
    char *out8 = nullptr;
    EXPECT_EQ(ombr_textcorr_normalize_utf8_text(nullptr, &out8, 1, 0), OMBR_TEXTCORR_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_textcorr_normalize_utf8_text("a", nullptr, 1, 0), OMBR_TEXTCORR_ERR_INVALID_ARG);
    EXPECT_EQ(out8, nullptr);
    // Bad UTF-8 is refused by the conversion.
    EXPECT_EQ(ombr_textcorr_normalize_utf8_text("\xc3" "a", &out8, 1, 0), OMBR_STRING_ERR_INVALID_UTF8);
    EXPECT_EQ(out8, nullptr);
    // The result is in host order and of its own allocation.
    EXPECT_EQ(ombr_textcorr_normalize_text(text16, &out16, nullptr, 1, 0), 0u);
    ASSERT_NE(out16, nullptr);
    EXPECT_EQ(out16[0], u'a');
    EXPECT_EQ(out16[1], 0);
    ombr_memory_free(out16);
}

TEST_F(NormalizeTest, AllocationFailuresLeaveNothingBehind) {
    const char *input = "Sgt. Marlow's Lonely Hearts 1999 \uff76\uff9e & A$AP \u4e94 The";
    const std::string expected = key(input);
    uint64_t failures = for_each_allocation_failure([&](uint64_t n) {
        const int64_t before = zelto_manager_memory_live_blocks();
        char *out = nullptr;
        const uint32_t status = ombr_textcorr_normalize_utf8_text(input, &out, kAll, 0);
        if (status == 0) {
            ASSERT_NE(out, nullptr);
            EXPECT_EQ(std::string(out), expected);
            ombr_string_free(out);
        } else {
            EXPECT_TRUE(status == OMBR_TEXTCORR_ERR_NO_MEMORY || status == OMBR_TEXTCORR_ERR_NO_MATCH ||
                        status == OMBR_STRING_ERR_CONVERT_NO_MEMORY)
                << std::hex << status << " at allocation " << n;
            EXPECT_EQ(out, nullptr);
        }
        EXPECT_EQ(zelto_manager_memory_live_blocks(), before) << "allocation " << n;
    });
    EXPECT_GT(failures, 3u);

    // The UCS-2 entry with a keep list, and the copy of an input of which
    // nothing is left.
    for (const char16_t *text : {u"Caf\u00e9 & Co. II", u"?!"}) {
        const std::u16string expected16 = key16(text, u"&");
        for_each_allocation_failure([&](uint64_t n) {
            const int64_t before = zelto_manager_memory_live_blocks();
            uint16_t *out = nullptr;
            const uint32_t status = ombr_textcorr_normalize_text(reinterpret_cast<const uint16_t *>(text), &out,
                                                                 reinterpret_cast<const uint16_t *>(u"&"), 1, 0);
            if (status == 0) {
                EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t *>(out)), expected16);
                ombr_memory_free(out);
            } else {
                EXPECT_TRUE(status == OMBR_TEXTCORR_ERR_NO_MEMORY || status == OMBR_TEXTCORR_ERR_NO_MATCH)
                    << std::hex << status << " at allocation " << n;
            }
            EXPECT_EQ(zelto_manager_memory_live_blocks(), before) << "allocation " << n;
        });
    }
}

TEST_F(NormalizeTest, OutOfMemoryStatusesByPass) {
    // Buffer failures in the character passes report no memory; a failed
    // append where numbers are spelled reports the no-match value instead.
    std::u16string text;
    for (int i = 0; i < 12; ++i) text += u"Lonely Hearts 1999 ";
    bool saw_no_memory = false, saw_no_match = false;
    for_each_allocation_failure([&](uint64_t) {
        const PrimResult r = prim(text, 0xFFFFFFFFu);
        saw_no_memory |= r.status == OMBR_TEXTCORR_ERR_NO_MEMORY;
        saw_no_match |= r.status == OMBR_TEXTCORR_ERR_NO_MATCH;
        if (r.status == 0) {
            EXPECT_EQ(r.text.substr(0, 20), u"lonely heart one tho");
        }
    });
    EXPECT_TRUE(saw_no_memory);
    EXPECT_TRUE(saw_no_match);
}
