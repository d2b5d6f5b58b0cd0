// Bigram similarity: entries of a text, word mode, case and multibyte
// characters, the boundary between stack and heap tables, the sorted form
// against the unsorted one, and allocation failures.
#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "cantrix_test.h"
#include "string/ombr_string_fuzzy_internal.h"
#include "string/ombr_string_internal.h"
#include "tests/reference/reference.h"

namespace {

using Entries = std::vector<uint32_t>;

constexpr uint32_t pair(uint32_t second, uint32_t first) { return (second << 16) | first; }

// A similarity with the two percentages it writes.
struct Scores {
    uint32_t similarity, percent_a, percent_b;
    bool operator==(const Scores &) const = default;
    friend std::ostream &operator<<(std::ostream &os, const Scores &s) {
        return os << s.similarity << " (" << s.percent_a << "%, " << s.percent_b << "%)";
    }
};

// The library's scores; percentages it leaves alone read 0xA5A5A5A5.
Scores fuzzy(const std::string &a, const std::string &b, uint8_t skip_space) {
    Scores s{0, 0xA5A5A5A5u, 0xA5A5A5A5u};
    s.similarity = ombr_string_fuzzycmp_ex(a.c_str(), b.c_str(), skip_space, &s.percent_a, &s.percent_b);
    return s;
}

// The plain pairwise form of the similarity (tests/reference).
Scores reference_compare(const std::string &a, const std::string &b, bool skip_space) {
    Scores r{};
    r.similarity = reference::string_fuzzycmp(a.c_str(), b.c_str(), skip_space, &r.percent_a, &r.percent_b);
    return r;
}

// Entries as the library fills them, in a table of byte length + 1.
Entries filled_entries(const char *text, uint8_t skip_space, uint32_t *out_written = nullptr) {
    std::vector<uint32_t> storage(std::strlen(text) + 1, 0xDEADBEEFu);
    ombr_bigram_table table{static_cast<uint32_t>(storage.size()), storage.data()};
    uint32_t written = _bigram_fill_table(text, &table, skip_space);
    if (out_written) *out_written = written;
    return Entries(storage.begin(), storage.begin() + table.count);
}

// Realistic titles: ASCII, Latin accents, Cyrillic and CJK words.
std::string make_title(std::mt19937 &rng, size_t words) {
    static const char *const kWords[] = {"Night",    "Train",       "the",        "Lanterns", "Harbour", "Lights",
                                         "Symphony", "No.",         "9",          "in",       "D",       "minor",
                                         "Op.",      "125",         "(Live)",     "Remaster", "Caf\xC3\xA9",
                                         "\xC3\x89t\xC3\xA9",       "Stra\xC3\x9F\x65",       "\xD0\x9D\xD0\xBE\xD1\x87\xD1\x8C",
                                         "\xE6\x9D\xB1\xE4\xBA\xAC", "\xE5\xA4\x9C\xE7\xA9\xBA", "feat.",      "&",
                                         "Love",     "Song"};
    std::string s;
    for (size_t i = 0; i < words; ++i) {
        if (i) s += ' ';
        s += kWords[std::uniform_int_distribution<size_t>(0, std::size(kWords) - 1)(rng)];
    }
    return s;
}

// The longest prefix of s of at most `bytes` bytes that ends on a character.
std::string utf8_prefix(const std::string &s, size_t bytes) {
    std::string out = s.substr(0, bytes);
    while (out.size() < s.size() && !out.empty() && (static_cast<unsigned char>(s[out.size()]) & 0xC0) == 0x80)
        out.pop_back();
    return out;
}

// Cuts or pads a title to exactly `bytes` bytes without splitting a character.
std::string sized_title(std::mt19937 &rng, size_t bytes) {
    std::string s;
    while (s.size() < bytes) s += make_title(rng, 4) + " - ";
    s = utf8_prefix(s, bytes);
    while (s.size() < bytes) s += 'x';
    return s;
}

class StringFuzzy : public LeakCheckedTest {};

// ---- Entries of a text ------------------------------------------------------

TEST_F(StringFuzzy, NightAgainstNacht) {
    EXPECT_EQ(filled_entries("night", 0),
              (Entries{'n', pair('i', 'n'), pair('g', 'i'), pair('h', 'g'), pair('t', 'h'), 't'}));
    EXPECT_EQ(filled_entries("nacht", 0),
              (Entries{'n', pair('a', 'n'), pair('c', 'a'), pair('h', 'c'), pair('t', 'h'), 't'}));
    EXPECT_EQ(fuzzy("night", "nacht", 0), (Scores{50u, 50u, 50u}));

    // Different entry counts give different percentages: night / nigh share
    // n, ni, ig, gh of 6 and 5 entries.
    EXPECT_EQ(fuzzy("night", "nigh", 0), (Scores{72u, 66u, 80u}));  // 800 / 11 cut
}

TEST_F(StringFuzzy, EqualTextsScoreFullWhateverTheirLength) {
    std::mt19937 rng(7);
    for (size_t bytes : {1u, 2u, 5u, 60u, 198u, 199u, 200u, 201u, 450u, 1000u}) {
        const std::string s = sized_title(rng, bytes);
        for (uint8_t skip : {0, 1}) EXPECT_EQ(fuzzy(s, s, skip), (Scores{100u, 100u, 100u})) << bytes;
    }
    EXPECT_EQ(ombr_string_fuzzycmp_ex("a", "a", 0, nullptr, nullptr), 100u);
    EXPECT_EQ(ombr_string_fuzzycmp_ex("a", "b", 0, nullptr, nullptr), 0u);
    EXPECT_EQ(ombr_string_fuzzycmp_ex("\xC3\xA9", "\xC3\xA9", 0, nullptr, nullptr), 100u);
}

TEST_F(StringFuzzy, RepeatedEntriesCountAsAMultiset) {
    EXPECT_EQ(filled_entries("aaa", 0), (Entries{'a', pair('a', 'a'), pair('a', 'a'), 'a'}));
    // aaa: a, aa, aa, a; aa: a, aa, a. Common: a twice, aa once.
    EXPECT_EQ(fuzzy("aaa", "aa", 0), (Scores{85u, 75u, 100u}));  // 600 / 7 cut
}

TEST_F(StringFuzzy, OnlyAsciiLettersFoldCase) {
    EXPECT_EQ(ombr_string_fuzzycmp_ex("NIGHT Train", "night tRAIN", 0, nullptr, nullptr), 100u);
    // 'É' (U+00C9) and 'é' (U+00E9) are different characters here.
    EXPECT_EQ(ombr_string_fuzzycmp_ex("\xC3\x89", "\xC3\xA9", 0, nullptr, nullptr), 0u);
    // été against ete: no entry in common.
    EXPECT_EQ(ombr_string_fuzzycmp_ex("\xC3\xA9t\xC3\xA9", "ete", 0, nullptr, nullptr), 0u);
    // Only the letters move: '[' (0x5B) stays apart from '{' (0x7B).
    EXPECT_EQ(ombr_string_fuzzycmp_ex("[", "{", 0, nullptr, nullptr), 0u);
}

TEST_F(StringFuzzy, MultibyteCharactersAreWholeCodePoints) {
    EXPECT_EQ(filled_entries("Caf\xC3\xA9", 0),
              (Entries{'c', pair('a', 'c'), pair('f', 'a'), pair(0xE9, 'f'), 0xE9}));
    // café / cafe share c, ac, fa of 5 each.
    EXPECT_EQ(ombr_string_fuzzycmp_ex("Caf\xC3\xA9", "Cafe", 0, nullptr, nullptr), 60u);

    // Three-byte characters: 東京 / 東京都 share 東 and 京東.
    const char *tokyo = "\xE6\x9D\xB1\xE4\xBA\xAC";
    const char *metropolis = "\xE6\x9D\xB1\xE4\xBA\xAC\xE9\x83\xBD";
    EXPECT_EQ(filled_entries(tokyo, 0), (Entries{0x6771, pair(0x4EAC, 0x6771), 0x4EAC}));
    EXPECT_EQ(fuzzy(tokyo, metropolis, 0), (Scores{57u, 66u, 50u}));  // 400 / 7 cut
}

// ---- Word mode ----------------------------------------------------------------

TEST_F(StringFuzzy, SkipSpaceComparesWordsAsUnits) {
    EXPECT_EQ(filled_entries("ab cd", 1), (Entries{'a', pair('b', 'a'), 'b', 'c', pair('d', 'c'), 'd'}));
    EXPECT_EQ(filled_entries("ab cd", 0),
              (Entries{'a', pair('b', 'a'), pair(' ', 'b'), pair('c', ' '), pair('d', 'c'), 'd'}));

    // The same words in another order.
    EXPECT_EQ(ombr_string_fuzzycmp_ex("ab cd", "cd ab", 1, nullptr, nullptr), 100u);
    EXPECT_EQ(ombr_string_fuzzycmp_ex("ab cd", "cd ab", 0, nullptr, nullptr), 33u);  // ba, dc: 400 / 12

    // Any run of bytes 0x01 to 0x20 separates, at either end too.
    EXPECT_EQ(filled_entries(" \t ab\x01\x1F\n cd  ", 1), filled_entries("ab cd", 1));
    EXPECT_EQ(ombr_string_fuzzycmp_ex("  Night\t\tTrain ", "Train Night", 1, nullptr, nullptr), 100u);
    // A trailing blank ends the table without an entry for the terminator.
    EXPECT_EQ(filled_entries("ab ", 1), (Entries{'a', pair('b', 'a'), 'b'}));
    // Without skip_space a blank is a character like any other.
    EXPECT_EQ(filled_entries(" a", 0), (Entries{' ', pair('a', ' '), 'a'}));
}

TEST_F(StringFuzzy, AllBlankTextKeepsItsPresetCountOfZeroEntries) {
    uint32_t written = 99;
    std::vector<uint32_t> storage(4, 0xDEADBEEFu);
    ombr_bigram_table table{4, storage.data()};
    EXPECT_EQ(_bigram_fill_table("   ", &table, 1), 0u);
    EXPECT_EQ(table.count, 4u);
    EXPECT_EQ(storage[0], 0xDEADBEEFu);  // filling wrote nothing
    (void)filled_entries("   ", 1, &written);
    EXPECT_EQ(written, 0u);

    // Compared, those entries read as 0, in a stack table as in a heap one.
    // Dirty the stack first so that a stale entry would show.
    auto dirty_stack = []() {
        volatile uint32_t junk[1024];
        for (uint32_t i = 0; i < 1024; ++i) junk[i] = 0x00200020u + i;
        (void)junk[0];
    };
    dirty_stack();
    EXPECT_EQ(ombr_string_fuzzycmp_ex("   ", "   ", 1, nullptr, nullptr), 100u);
    dirty_stack();
    EXPECT_EQ(fuzzy("   ", " ", 1), (Scores{66u, 50u, 100u}));  // 4 and 2 zeros: 400 / 6
    EXPECT_EQ(ombr_string_fuzzycmp_ex("   ", "a", 1, nullptr, nullptr), 0u);
    const std::string blanks(250, ' ');
    EXPECT_EQ(fuzzy(blanks, " ", 1), (Scores{1u, 0u, 100u}));  // 2 of 251 + 2: 400 / 253
}

// ---- Invalid and missing input ----------------------------------------------

TEST_F(StringFuzzy, NullAndEmptyTextsGiveZeroAndLeaveOutputsAlone) {
    uint32_t pa = 777, pb = 888;
    EXPECT_EQ(ombr_string_fuzzycmp_ex(nullptr, "night", 0, &pa, &pb), 0u);
    EXPECT_EQ(ombr_string_fuzzycmp_ex("night", nullptr, 1, &pa, &pb), 0u);
    EXPECT_EQ(ombr_string_fuzzycmp_ex("", "night", 0, &pa, &pb), 0u);
    EXPECT_EQ(ombr_string_fuzzycmp_ex("night", "", 0, &pa, &pb), 0u);
    EXPECT_EQ(ombr_string_fuzzycmp_ex(nullptr, nullptr, 0, &pa, &pb), 0u);
    EXPECT_EQ(pa, 777u);
    EXPECT_EQ(pb, 888u);
    // A result of 0 from texts that were compared does write them.
    EXPECT_EQ(fuzzy("a", "b", 0), (Scores{0u, 0u, 0u}));
}

TEST_F(StringFuzzy, InvalidUtf8EndsTheTableWhereItStands) {
    // The failure comes before the last character's own entry.
    EXPECT_EQ(filled_entries("ab\xFF" "cd", 0), (Entries{'a', pair('b', 'a')}));
    EXPECT_EQ(ombr_string_fuzzycmp_ex("ab\xFF" "cd", "ab", 0, nullptr, nullptr), 80u);  // 2 of 2 + 3
    // A four-byte sequence is refused the same way.
    EXPECT_EQ(filled_entries("ab\xF0\x9F\x8E\xB5", 0), (Entries{'a', pair('b', 'a')}));
    // A sequence cut by the terminator.
    EXPECT_EQ(filled_entries("a\xE2\x82", 0), (Entries{'a'}));
    // In word mode the failure may come while skipping blanks.
    EXPECT_EQ(filled_entries("ab \xFF", 1), (Entries{'a', pair('b', 'a'), 'b'}));

    // An invalid first character writes nothing: the preset count of zero
    // entries stays, so two such texts of equal length look alike.
    uint32_t written = 9;
    (void)filled_entries("\xFF" "ab", 0, &written);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(ombr_string_fuzzycmp_ex("\xFF" "ab", "\xFE" "xy", 0, nullptr, nullptr), 100u);
    EXPECT_EQ(ombr_string_fuzzycmp_ex("\xFF" "ab", "ab", 0, nullptr, nullptr), 0u);
}

// ---- Stack and heap tables ----------------------------------------------------

TEST_F(StringFuzzy, StackAndHeapTablesAgreeWithTheReference) {
    std::mt19937 rng(2431);
    for (size_t bytes_a : {150u, 198u, 199u, 200u, 201u, 320u}) {
        for (size_t bytes_b : {12u, 199u, 200u, 260u}) {
            for (int round = 0; round < 4; ++round) {
                const std::string a = sized_title(rng, bytes_a);
                // b starts with a stretch of a, so that the scores are not all near 0.
                const std::string shared = utf8_prefix(a, std::min<size_t>(bytes_b / 2, 40));
                const std::string b = shared + sized_title(rng, bytes_b - shared.size());
                ASSERT_EQ(a.size(), bytes_a);
                ASSERT_EQ(b.size(), bytes_b);
                for (uint8_t skip : {0, 1})
                    EXPECT_EQ(fuzzy(a, b, skip), reference_compare(a, b, skip))
                        << bytes_a << "/" << b.size() << " skip " << int(skip) << "\n" << a << "\n" << b;
            }
        }
    }
}

// Every pair of a table of awkward texts, both ways round and in both word
// modes, against the plain reference and the chained-hash count. The texts
// sit at the edges of the bit-row widths (31, 32, 63 and 64 bytes), repeat
// their entries, mix byte lengths of characters and end or fail early.
TEST_F(StringFuzzy, AwkwardTextsAgreeWithBothReferences) {
    auto repeat = [](const std::string &unit, size_t bytes) {
        std::string s;
        while (s.size() < bytes) s += unit;
        return s.substr(0, bytes);
    };
    std::vector<std::string> texts = {
        "", "a", "A", "\xC3\xA9", "\xE6\x9D\xB1", " ", "   ", "\t\n", " a ", "a b", "ab  cd\t", "\x01x\x02y",
        // A four-byte sequence, an invalid byte and a cut sequence end the
        // table; first, they leave it to its preset count of zero entries.
        "ab\xF0\x9F\x8E\xB5" "cd", "\xF0\x9F\x8E\xB5", "\xFF", "ab\xFF", "a\xE2\x82", "ab \xFF",
        // Overlong forms: of NUL (ends the text), of a blank, of 'A'.
        "ab\xC0\x80" "cd", "\xC0\x80" "ab", "ab\xC0\xA0" "cd", "\xC1\x81" "b", "\xE0\x80\x80",
        // The first and the last code points of two and three bytes.
        "\xC2\x80\xC2\x80\xDF\xBF", "\xEF\xBF\xBF\xE0\xA0\x80\xEF\xBF\xBF",
        // Repeated entries.
        "aaaa", "aa", "abab ab", "lalala la", "\xD1\x91\xD1\x91\xD1\x91", "\xE6\x9D\xB1\xE6\x9D\xB1 \xE6\x9D\xB1",
        "NIGHT night Night", "night",
        repeat("ab", 31), repeat("ab", 32), repeat("ba ", 33), repeat("abc", 63), repeat("abcab", 64), repeat("a", 62),
        repeat("Night Train ", 31), repeat("Night Train ", 32), repeat("Train Night ", 63), repeat(" x", 64),
        // Many distinct characters outside ASCII: the row map fills up.
        "\xD0\x90\xD0\x91\xD0\x92\xD0\x93\xD0\x94\xD0\x95\xD0\x96\xD0\x97\xD0\x98\xD0\x99\xD0\x9A\xD0\x9B"
        "\xD0\x9C\xD0\x9D\xD0\x9E\xD0\x9F\xD0\xA0\xD0\xA1\xD0\xA2\xD0\xA3\xD0\xA4\xD0\xA5\xD0\xA6\xD0\xA7"
        "\xD0\xA8\xD0\xA9\xD0\xAA\xD0\xAB\xD0\xAC\xD0\xAD\xD0\xAE",
        "\xE4\xB8\x80\xE4\xB8\x81\xE4\xB8\x82\xE4\xB8\x83\xE4\xB8\x84\xE4\xB8\x85\xE4\xB8\x86\xE4\xB8\x87"
        "\xE4\xB8\x88\xE4\xB8\x89\xE4\xB8\x8A\xE4\xB8\x8B\xE4\xB8\x8C\xE4\xB8\x8D\xE4\xB8\x8E\xE4\xB8\x8F"
        "\xE4\xB8\x90\xE4\xB8\x91\xE4\xB8\x92\xE4\xB8\x93\xE4\xB8\x80",
        // Characters whose low bits agree (U+0100, U+0180, U+0200, U+0280)
        // share a slot of the row map; rare ASCII characters and controls
        // have no fixed row and go to the map as well.
        "\xC4\x80\xC6\x80\xC8\x80\xC4\x80", "\xC6\x80\xC8\x80 \xC4\x80\xCA\x80", "a~b|c\\{d}`^", "~~||\x01\x01", "x\x7F~y",
        "Caf\xC3\xA9 \xD0\x9D\xD0\xBE\xD1\x87\xD1\x8C \xE6\x9D\xB1\xE4\xBA\xAC",
        "\xE6\x9D\xB1\xE4\xBA\xAC Caf\xC3\xA9",
    };
    for (const std::string &a : texts) {
        for (const std::string &b : texts) {
            for (uint8_t skip : {0, 1}) {
                Scores hashed{0, 0xA5A5A5A5u, 0xA5A5A5A5u};
                hashed.similarity =
                    _bigram_fuzzycmp_hashed(a.c_str(), b.c_str(), skip, &hashed.percent_a, &hashed.percent_b);
                const Scores ours = fuzzy(a, b, skip);
                EXPECT_EQ(ours, hashed) << "[" << a << "] [" << b << "] skip " << int(skip);
                if (!a.empty() && !b.empty()) {
                    EXPECT_EQ(ours, reference_compare(a, b, skip)) << "[" << a << "] [" << b << "] skip " << int(skip);
                }
            }
        }
    }
}

TEST_F(StringFuzzy, TextsFrom200BytesOnAllocateTheirTable) {
    std::mt19937 rng(3);
    const std::string t199 = sized_title(rng, 199), u199 = sized_title(rng, 199);
    const std::string t200 = sized_title(rng, 200);
    const uint32_t expect_199 = reference_compare(t199, u199, 0).similarity;
    ASSERT_GT(expect_199, 0u);

    // With every allocation refused, 199-byte texts still compare...
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(ombr_string_fuzzycmp_ex(t199.c_str(), u199.c_str(), 0, nullptr, nullptr), expect_199);
    EXPECT_EQ(zelto_manager_memory_failure_fired(), 0);
    // ...and a 200-byte one gives 0, with the outputs untouched.
    uint32_t pa = 5, pb = 6;
    EXPECT_EQ(ombr_string_fuzzycmp_ex(t200.c_str(), t200.c_str(), 0, &pa, &pb), 0u);
    EXPECT_NE(zelto_manager_memory_failure_fired(), 0);
    zelto_manager_memory_fail_nth(0);
    EXPECT_EQ(pa, 5u);
    EXPECT_EQ(pb, 6u);
    EXPECT_EQ(ombr_string_fuzzycmp_ex(t200.c_str(), t200.c_str(), 0, &pa, &pb), 100u);
}

TEST_F(StringFuzzy, AllocationFailureGivesZeroAndLeaksNothing) {
    std::mt19937 rng(11);
    const std::string a = sized_title(rng, 230), b = sized_title(rng, 410);
    const uint32_t want = reference_compare(a, b, 1).similarity;
    const uint64_t runs = for_each_allocation_failure([&](uint64_t) {
        uint32_t pa = 1234;
        const uint32_t got = ombr_string_fuzzycmp_ex(a.c_str(), b.c_str(), 1, &pa, nullptr);
        if (zelto_manager_memory_failure_fired()) {
            EXPECT_EQ(got, 0u);
            EXPECT_EQ(pa, 1234u);
        } else {
            EXPECT_EQ(got, want);
        }
    });
    EXPECT_EQ(runs, 2u);  // one table per text

    for_each_allocation_failure([&](uint64_t) {
        ombr_bigram_table *table = nullptr;
        const uint32_t status = ombr_string_create_bigram_table(a.c_str(), 0, &table);
        if (status == 0) {
            ASSERT_NE(table, nullptr);
            ombr_memory_free(table);
        } else {
            EXPECT_EQ(status, 0x90050002u);
            EXPECT_EQ(table, nullptr);  // output written only on success
        }
    });
}

TEST_F(StringFuzzy, CreatedTableIsOneZeroedBlock) {
    ombr_bigram_table *t = _bigram_create_table("abc", 0);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->count, 4u);  // the text's byte length + 1
    EXPECT_EQ(static_cast<void *>(t->entries), static_cast<void *>(t + 1));
    for (uint32_t i = 0; i < 4; ++i) EXPECT_EQ(t->entries[i], 0u);
    ombr_memory_free(t);

    t = _bigram_create_table("abc", 10);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->count, 11u);
    for (uint32_t i = 0; i < 11; ++i) EXPECT_EQ(t->entries[i], 0u);
    ombr_memory_free(t);
}

// ---- Sorted tables ---------------------------------------------------------------

TEST_F(StringFuzzy, CreateGivesSortedEntries) {
    ombr_bigram_table *t = nullptr;
    for (uint8_t skip : {0, 1}) {
        const char *text = "Caf\xC3\xA9 \xE6\x9D\xB1\xE4\xBA\xAC au Night";
        ASSERT_EQ(ombr_string_create_bigram_table(text, skip, &t), 0u);
        Entries want = filled_entries(text, skip);
        std::sort(want.begin(), want.end());
        EXPECT_EQ(Entries(t->entries, t->entries + t->count), want);
        ombr_memory_free(t);
    }

    // The empty text: one entry of 0, the character 0 against the border.
    ASSERT_EQ(ombr_string_create_bigram_table("", 0, &t), 0u);
    EXPECT_EQ(t->count, 1u);
    EXPECT_EQ(t->entries[0], 0u);
    ombr_memory_free(t);
    // A null text decodes nothing and keeps its preset count of 1.
    ASSERT_EQ(ombr_string_create_bigram_table(nullptr, 1, &t), 0u);
    EXPECT_EQ(t->count, 1u);
    EXPECT_EQ(t->entries[0], 0u);
    ombr_memory_free(t);

    EXPECT_EQ(ombr_string_create_bigram_table("x", 0, nullptr), 0x90050001u);
}

TEST_F(StringFuzzy, SortedFormAgreesWithUnsortedForm) {
    std::mt19937 rng(34);
    std::vector<std::string> texts = {"night", "nacht", "ab cd", "cd ab", "   ", "\xFF" "ab", "a", "aaa", "aa"};
    for (int i = 0; i < 40; ++i) texts.push_back(make_title(rng, 1 + rng() % 6));
    texts.push_back(sized_title(rng, 199));
    texts.push_back(sized_title(rng, 230));
    for (uint8_t skip : {0, 1}) {
        std::vector<ombr_bigram_table *> tables;
        for (const auto &s : texts) {
            ombr_bigram_table *t = nullptr;
            ASSERT_EQ(ombr_string_create_bigram_table(s.c_str(), skip, &t), 0u);
            ASSERT_TRUE(std::is_sorted(t->entries, t->entries + t->count));
            tables.push_back(t);
        }
        for (size_t i = 0; i < texts.size(); ++i)
            for (size_t j = 0; j < texts.size(); ++j)
                EXPECT_EQ(ombr_string_bigram_table_cmp(tables[i], tables[j]),
                          ombr_string_fuzzycmp_ex(texts[i].c_str(), texts[j].c_str(), skip, nullptr, nullptr))
                    << "\"" << texts[i] << "\" / \"" << texts[j] << "\" skip " << int(skip);
        // Comparing only reads the tables.
        const Entries before(tables[0]->entries, tables[0]->entries + tables[0]->count);
        (void)ombr_string_bigram_table_cmp(tables[0], tables[1]);
        EXPECT_EQ(Entries(tables[0]->entries, tables[0]->entries + tables[0]->count), before);
        for (auto *t : tables) ombr_memory_free(t);
    }
    ombr_bigram_table *t = nullptr;
    ASSERT_EQ(ombr_string_create_bigram_table("night", 0, &t), 0u);
    EXPECT_EQ(ombr_string_bigram_table_cmp(t, nullptr), 0u);
    EXPECT_EQ(ombr_string_bigram_table_cmp(nullptr, t), 0u);
    ombr_memory_free(t);
}

TEST_F(StringFuzzy, UnsortedCountDestroysArraysButKeepsCounts) {
    uint32_t a[] = {7, 1, 7, 3};
    uint32_t b[] = {3, 7, 9};
    ombr_bigram_table ta{4, a}, tb{3, b};
    EXPECT_EQ(_bigram_compare_tables_unsorted(&ta, &tb), 2u);  // 7 and 3; the second 7 is unmatched
    EXPECT_EQ(ta.count, 4u);
    EXPECT_EQ(tb.count, 3u);

    const uint32_t sa[] = {1, 3, 3, 7, 7}, sb[] = {3, 7, 7, 7, 9};
    const ombr_bigram_table tsa{5, const_cast<uint32_t *>(sa)}, tsb{5, const_cast<uint32_t *>(sb)};
    EXPECT_EQ(_bigram_compare_tables_sorted(&tsa, &tsb), 3u);
}

TEST_F(StringFuzzy, BothSortsAgreeWithStdSort) {
    std::mt19937 rng(99);
    for (uint32_t n : {0u, 1u, 2u, 3u, 17u, 200u, 1001u}) {
        Entries data(n);
        for (auto &v : data) v = rng() % 3 ? rng() : 0xFFFFFFFFu - rng() % 4;  // duplicates at the top
        Entries want = data;
        std::sort(want.begin(), want.end());
        for (auto sort : {&_bigram_table_shellsort, &_bigram_table_quicksort}) {
            Entries got = data;
            ombr_bigram_table t{n, got.data()};
            sort(&t);
            EXPECT_EQ(got, want) << n;
        }
    }
}

}  // namespace
