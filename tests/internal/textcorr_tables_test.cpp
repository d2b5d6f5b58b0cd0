// Normaliser tables: block layout, row counts, the generated ideograph rows,
// the pair table and the word lists.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "textcorr/ombr_textcorr_tables.h"

using namespace ombr::textcorr;

namespace {

std::u16string from_be(const uint16_t *text, uint32_t len) {
    std::u16string out;
    for (uint32_t i = 0; i < len; ++i) out.push_back(static_cast<char16_t>(be16(text[i])));
    return out;
}

const UniDesc &desc(char16_t cp, uint32_t token = 0) { return *get_unidesc(be16(cp), token); }

std::u16string repl(char16_t cp, uint32_t token = 0) {
    const UniDesc &d = desc(cp, token);
    return d.repl ? from_be(d.repl, d.repl_len) : std::u16string();
}

bool is_default(const UniDesc &d) { return d.cls == kClassUnclassified && d.action == kActKeep && !d.repl; }

}  // namespace

TEST(TextcorrTables, BlocksThatExist) {
    unsigned present = 0;
    for (unsigned b = 0; b < 256; ++b) {
        const bool expected = b <= 0x05 || b == 0x20 || b == 0x30 || (b >= 0x4E && b <= 0x9F) || b == 0xFA ||
                              b == 0xFB || b == 0xFE || b == 0xFF;
        EXPECT_EQ(charblock[b] != nullptr, expected) << std::hex << b;
        present += charblock[b] != nullptr;
    }
    EXPECT_EQ(present, 94u);
    // An absent block answers with the default descriptor.
    EXPECT_EQ(get_unidesc(be16(0x0627), 0), &default_ud);
    EXPECT_EQ(default_ud.cls, kClassUnclassified);
    EXPECT_EQ(default_ud.action, kActKeep);
    EXPECT_EQ(default_ud.repl, nullptr);
}

TEST(TextcorrTables, RowCounts) {
    unsigned rows = 0, unclassified = 0, listed_outside_ideographs = 0, ideograph_rows = 0;
    for (unsigned b = 0; b < 256; ++b) {
        if (!charblock[b]) continue;
        for (unsigned low = 0; low < 256; ++low) {
            const UniDesc &d = charblock[b][low];
            ++rows;
            if (is_default(d)) {
                ++unclassified;
            } else if (b >= 0x4E && b <= 0x9F) {
                ++ideograph_rows;
                EXPECT_EQ(d.action, kActReplace);
                EXPECT_EQ(d.repl_len, 1u);
            } else {
                ++listed_outside_ideographs;
            }
        }
    }
    EXPECT_EQ(rows, 24064u);
    EXPECT_EQ(listed_outside_ideographs, 1619u);
    // Generated rows plus the nine numerals and the bowl sign, which have no
    // simplified variant of their own.
    EXPECT_EQ(ideograph_rows, simplified_row_count + 10);
    EXPECT_EQ(unclassified, rows - listed_outside_ideographs - ideograph_rows);
}

TEST(TextcorrTables, GeneratedRowsAscendInsideTheIdeographBlocks) {
    uint16_t previous = 0;
    for (uint32_t i = 0; i < simplified_row_count; ++i) {
        const CjkFold &f = simplified_rows[i];
        ASSERT_GE(f.src, 0x4E00);
        ASSERT_LE(f.src, 0x9FFF);
        EXPECT_GT(f.src, previous) << "rows ascend";
        EXPECT_NE(f.src, f.dst);
        previous = f.src;
    }
    EXPECT_EQ(simplified_row_count, 2726u);
}

TEST(TextcorrTables, IdeographRows) {
    const std::pair<char16_t, char16_t> folds[] = {
        {u'丟', u'丢'}, {u'並', u'并'}, {u'來', u'来'}, {u'個', u'个'}, {u'們', u'们'}, {u'傳', u'传'},
        {u'亂', u'乱'}, {u'偉', u'伟'}, {u'優', u'优'}, {u'劉', u'刘'}, {u'丼', u'井'}, {u'乾', u'干'},
        {u'語', u'语'}, {u'鐘', u'钟'}};
    for (auto [from, to] : folds) {
        EXPECT_EQ(desc(from).cls, kClassLetter) << static_cast<unsigned>(from);
        EXPECT_EQ(desc(from).action, kActReplace);
        EXPECT_EQ(repl(from), std::u16string(1, to)) << static_cast<unsigned>(from);
    }
    const char16_t numerals[] = u"一二三四五六七八九";
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(desc(numerals[i]).cls, kClassDigit);
        EXPECT_EQ(repl(numerals[i]), std::u16string(1, static_cast<char16_t>(u'1' + i)));
    }
    const std::pair<char16_t, char16_t> private_use[] = {{0x7D2C, 0xE837}, {0x819E, 0xE83F}, {0x93FA, 0xE84B},
                                                         {0x9481, 0xE84F}, {0x9D37, 0xE85E}, {0x9D84, 0xE85F},
                                                         {0x9DAA, 0xE860}, {0x9DFF, 0xE862}};
    for (auto [from, to] : private_use) EXPECT_EQ(repl(from), std::u16string(1, to));
    // Simplified forms and ideographs without a variant stay unclassified.
    EXPECT_TRUE(is_default(desc(u'丢')));
    EXPECT_TRUE(is_default(desc(u'日')));
    EXPECT_TRUE(is_default(desc(u'十')));
}

TEST(TextcorrTables, SampleRowsOfTheListedBlocks) {
    EXPECT_EQ(repl(u'A'), u"a");
    EXPECT_EQ(desc(u'A').cls, kClassLetter);
    EXPECT_TRUE(desc(u'z').cls == kClassLetter && desc(u'z').action == kActKeep);
    EXPECT_EQ(desc(u'$').action, kActLetterNeighbour);
    const std::pair<char16_t, std::u16string> replacements[] = {
        {u'$', u"s"}, {u'%', u"percent"}, {u'&', u"and"}, {0x00B2, u"2"}, {0x00D1, u"n"}, {0x00F2, u"o"},
        {0x00DF, u"ss"}, {0x019C, u"m"}, {0x019F, u"o"}, {0x0391, u"α"}, {0x03D7, u"και"}, {0x0401, u"ё"},
        {0x0419, u"и"}, {0x0531, u"ա"}, {0x3006, u"シメ"}, {0x304A, u"オ"}, {0x3094, u"ブ"}, {0xFB03, u"ffi"},
        {0xFF10, u"0"}, {0xFF21, u"a"}, {0xFF41, u"a"}, {0xFF75, u"オ"}, {0xFF76, u"カ"}, {0xFF85, u"ナ"},
        {0xFF8A, u"ハ"}, {0xFF8F, u"マ"}, {0xFF96, u"ヨ"}, {0xFF9B, u"ロ"}};
    for (const auto &[c, text] : replacements) EXPECT_EQ(repl(c), text) << std::hex << unsigned(c);
    EXPECT_EQ(desc(u',').action, kActDigitJoiner);
    EXPECT_EQ(desc(u'*').action, kActInnerLetter);
    EXPECT_EQ(desc(u'\'').action, kActDelete);
    EXPECT_EQ(desc(u' ').cls, kClassSeparator);
    EXPECT_EQ(desc(0).cls, kClassSeparator);
    EXPECT_EQ(desc(0x2019).cls, kClassSeparator);
    EXPECT_EQ(desc(0x2019).action, kActDelete);
    EXPECT_TRUE(is_default(desc(0x2018)));
    EXPECT_EQ(desc(0xFF10).cls, kClassDigit);
    EXPECT_EQ(desc(0xFF9E).action, kActDelete);
    // Replacement text is big-endian in memory: high byte first.
    const UniDesc &a = desc(u'A');
    EXPECT_EQ(reinterpret_cast<const uint8_t *>(a.repl)[0], 0x00);
    EXPECT_EQ(reinterpret_cast<const uint8_t *>(a.repl)[1], 0x61);
    EXPECT_EQ(a.repl[1], 0) << "terminated";
}

TEST(TextcorrTables, TokenOverlay) {
    unsigned own = 0;
    for (unsigned b = 0; b < 256; ++b) EXPECT_EQ(charblock_tok[b] != nullptr, b == 0x30);
    for (unsigned low = 0; low < 256; ++low) own += charblock_tok[0x30][low].action != kActSeeMain;
    EXPECT_EQ(own, 78u);
    // Hiragana a stays in token mode and becomes katakana otherwise.
    EXPECT_EQ(desc(0x3042, 1).action, kActKeep);
    EXPECT_EQ(desc(0x3042, 1).cls, kClassLetter);
    EXPECT_EQ(repl(0x3042, 0), u"ア");
    // Small a defers to the main table; so does every other block.
    EXPECT_EQ(get_unidesc(be16(0x3041), 1), get_unidesc(be16(0x3041), 0));
    EXPECT_EQ(get_unidesc(be16(0x3097), 1), get_unidesc(be16(0x3097), 0));
    EXPECT_EQ(get_unidesc(be16(0x30A2), 1), get_unidesc(be16(0x30A2), 0));
    EXPECT_EQ(get_unidesc(be16(u'A'), 1), get_unidesc(be16(u'A'), 0));
    // Only token mode 1 selects the overlay.
    EXPECT_EQ(get_unidesc(be16(0x3042), 2), get_unidesc(be16(0x3042), 0));
}

TEST(TextcorrTables, PairTable) {
    ASSERT_EQ(unipaircnt, 25u);
    const char16_t voiced[] = u"ガギグゲゴザジズゼゾダヂヅデドバビブベボ";
    for (unsigned i = 0; i < 20; ++i) {
        const char16_t base = i < 15 ? static_cast<char16_t>(0xFF76 + i) : static_cast<char16_t>(0xFF8A + i - 15);
        EXPECT_EQ(be16(unipairs[i].first), base);
        EXPECT_EQ(be16(unipairs[i].second), 0xFF9E);
        EXPECT_EQ(from_be(unipairs[i].desc.repl, unipairs[i].desc.repl_len), std::u16string(1, voiced[i]));
    }
    const char16_t semi[] = u"パピプペポ";
    for (unsigned i = 0; i < 5; ++i) {
        EXPECT_EQ(be16(unipairs[20 + i].first), 0xFF8A + i);
        EXPECT_EQ(be16(unipairs[20 + i].second), 0xFF9F);
        EXPECT_EQ(from_be(unipairs[20 + i].desc.repl, 1), std::u16string(1, semi[i]));
    }
    for (unsigned i = 0; i < unipaircnt; ++i) {
        EXPECT_EQ(unipairs[i].desc.cls, kClassLetter);
        EXPECT_EQ(unipairs[i].desc.action, kActReplace);
    }
    const uint16_t ga[] = {be16(0xFF76), be16(0xFF9E), 0};
    uint32_t consumed = 0;
    EXPECT_EQ(get_unidesc_p(ga, &consumed, 0), &unipairs[0].desc);
    EXPECT_EQ(consumed, 2u);
    // The mark alone, or a base with nothing behind it: one unit.
    EXPECT_EQ(get_unidesc_p(ga + 1, &consumed, 0)->action, kActDelete);
    EXPECT_EQ(consumed, 1u);
    const uint16_t ka[] = {be16(0xFF76), 0};
    EXPECT_EQ(get_unidesc_p(ka, &consumed, 0), get_unidesc(ka[0], 0));
    EXPECT_EQ(consumed, 1u);
}

namespace {
template <typename Row>
unsigned list_length(const Row *rows) {
    unsigned n = 0;
    while (rows[n].text) ++n;
    return n;
}
unsigned pair_length(const WordPair *rows) {
    unsigned n = 0;
    while (rows[n].match) ++n;
    return n;
}
}  // namespace

TEST(TextcorrTables, WordLists) {
    ASSERT_EQ(list_length(contlist), 2u);
    EXPECT_EQ(from_be(contlist[0].text, contlist[0].len), u"d'");
    EXPECT_EQ(from_be(contlist[1].text, contlist[1].len), u"l'");

    const char16_t *stop[] = {u"a",    u"an",    u"and",   u"of",    u"or",    u"the",  u"de",   u"el",   u"en",
                              u"la",   u"las",   u"los",   u"o",     u"un",    u"y",    u"agli", u"da",   u"dagli",
                              u"dallo", u"degli", u"delle", u"di",    u"e",     u"gli",  u"il",   u"le",   u"les",
                              u"negli", u"sugli", u"sulla", u"sullo", u"das",   u"het",  u"und"};
    ASSERT_EQ(list_length(remlist), 34u);
    for (unsigned i = 0; i < 34; ++i) EXPECT_EQ(from_be(remlist[i].text, remlist[i].len), stop[i]);

    ASSERT_EQ(pair_length(rompair), 30u);
    EXPECT_EQ(from_be(rompair[0].match, rompair[0].match_len), u"i");
    EXPECT_EQ(from_be(rompair[0].repl, rompair[0].repl_len), u"one");
    EXPECT_EQ(from_be(rompair[27].match, rompair[27].match_len), u"xxviii");
    EXPECT_EQ(from_be(rompair[27].repl, rompair[27].repl_len), u"twenty eight");
    EXPECT_EQ(from_be(rompair[29].repl, rompair[29].repl_len), u"thirty");

    ASSERT_EQ(pair_length(reppair), 67u);
    auto rp = [](unsigned i) {
        return from_be(reppair[i].match, reppair[i].match_len) + u"=" + from_be(reppair[i].repl, reppair[i].repl_len);
    };
    const std::pair<unsigned, std::u16string> rows[] = {
        {0, u"the the=thethe"}, {1, u"ヲ\uFF9E=ヺ"}, {2, u"ウ\uFF9E=ブ"}, {3, u"カ\uFF9E=ガ"}, {5, u"グ\uFF9E=グ"},
        {18, u"ハ\uFF9E=バ"}, {19, u"ハ\uFF9F=パ"}, {28, u"ワ\uFF9E=ヷ"}, {29, u"ヲ\u3099=ヺ"}, {33, u"グ\u3099=グ"},
        {56, u"ワ\u3099=ヷ"}, {57, u"ス\u309D=スス"}, {60, u"ス\u30FE=スズ"}, {61, u"ブア=バ"}, {66, u"フイ=ヒ"}};
    for (const auto &[i, text] : rows) EXPECT_EQ(rp(i), text) << i;
    // The two halves of rows 1-28 and 29-56 differ only in the mark.
    for (unsigned i = 1; i <= 28; ++i) {
        const std::u16string hw = from_be(reppair[i].match, 2), comb = from_be(reppair[i + 28].match, 2);
        EXPECT_EQ(hw[0], comb[0]);
        EXPECT_EQ(comb[1], hw[1] == 0xFF9E ? 0x3099 : 0x309A);
        EXPECT_EQ(from_be(reppair[i].repl, 1), from_be(reppair[i + 28].repl, 1));
    }

    EXPECT_EQ(uniblockcnt, 0u);
    EXPECT_EQ(be16(uni_s), u's');
    EXPECT_EQ(be16(uni_space), u' ');
}

namespace {

// The pair lookup as the plain linear search of the pair table.
const UniDesc *pair_by_search(const uint16_t *text, uint32_t *consumed, uint32_t token_mode) {
    if (text[1] != 0)
        for (uint32_t i = 0; i < unipaircnt; ++i)
            if (unipairs[i].first == text[0] && unipairs[i].second == text[1]) {
                *consumed = 2;
                return &unipairs[i].desc;
            }
    *consumed = 1;
    return get_unidesc(text[0], token_mode);
}

}  // namespace

// get_unidesc_p skips the search when the second unit cannot end a pair;
// it must find what the search finds for every second unit.
TEST(TextcorrTables, PairLookupEqualsTheLinearSearch) {
    std::vector<uint16_t> firsts;
    for (uint32_t i = 0; i < unipaircnt; ++i) firsts.push_back(unipairs[i].first);
    for (uint16_t cp : {0x0041, 0x30AB, 0xFF76, 0xFF9E, 0xFFFF}) firsts.push_back(be16(cp));
    for (uint16_t first : firsts) {
        // Every second unit for two firsts, the pairs' own block for all.
        const bool all = first == be16(0xFF76) || first == be16(0x0041);
        for (uint32_t second = all ? 0 : 0xFF00; second <= 0xFFFF; ++second) {
            const uint16_t text[3] = {first, be16(static_cast<uint16_t>(second)), 0};
            for (uint32_t token = 0; token < 2; ++token) {
                uint32_t n_fast = 0, n_search = 0;
                const UniDesc *fast = get_unidesc_p(text, &n_fast, token);
                const UniDesc *search = pair_by_search(text, &n_search, token);
                ASSERT_EQ(fast, search) << std::hex << be16(first) << " " << second;
                ASSERT_EQ(n_fast, n_search);
            }
        }
    }
}
