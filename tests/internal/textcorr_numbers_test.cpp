// Number words in flat and prose form, their limits, and the wide form.
#include <string>
#include <vector>

#include "textcorr_test_support.h"

namespace {

struct Words {
    int32_t count;
    std::string text;
};

Words words(const std::string &digits, int flat, int32_t size = 2048) {
    std::vector<char> out(static_cast<size_t>(size > 0 ? size : 1), '#');
    int32_t count = num_to_word_prim(digits.c_str(), out.data(), size, flat);
    return {count, count >= 0 ? std::string(out.data()) : std::string()};
}

using NumberWords = LeakCheckedTest;

TEST_F(NumberWords, FlatAndProseForms) {
    struct Row {
        const char *digits, *flat, *prose;
    };
    const Row rows[] = {
        {"007", "seven", "seven"},
        {"21", "twenty one", "twenty-one"},
        {"115", "one hundred fifteen", "one hundred and fifteen"},
        {"120", "one hundred twenty", "one hundred and twenty"},
        {"1001", "one thousand one", "one thousand and one"},
        {"1100", "one thousand one hundred", "one thousand, one hundred"},
        {"1234", "one thousand two hundred thirty four", "one thousand, two hundred and thirty-four"},
        {"2000001", "two million one", "two million and one"},
        {"1000001", "one million one", "one million and one"},
        {"1000100", "one million one hundred", "one million, one hundred"},
        {"1000019", "one million nineteen", "one million and nineteen"},
        {"10", "ten", "ten"},
        {"90", "ninety", "ninety"},
        {"300", "three hundred", "three hundred"},
        {"1999", "one thousand nine hundred ninety nine", "one thousand, nine hundred and ninety-nine"},
        {"12000", "twelve thousand", "twelve thousand"},
        {"512013", "five hundred twelve thousand thirteen", "five hundred and twelve thousand and thirteen"},
        {"1000000000", "one billion", "one billion"},
    };
    for (const Row &row : rows) {
        Words flat = words(row.digits, 1);
        EXPECT_EQ(flat.text, row.flat) << row.digits;
        EXPECT_EQ(flat.count, static_cast<int32_t>(flat.text.size())) << row.digits;
        Words prose = words(row.digits, 0);
        EXPECT_EQ(prose.text, row.prose) << row.digits;
        EXPECT_EQ(prose.count, static_cast<int32_t>(prose.text.size())) << row.digits;
    }
    char out[64];
    EXPECT_EQ(num_to_word("1234", out, sizeof out), 41);
    EXPECT_STREQ(out, "one thousand, two hundred and thirty-four");
}

TEST_F(NumberWords, ZeroAndBadInput) {
    EXPECT_EQ(words("000", 1).text, "zero");
    EXPECT_EQ(words("000", 1).count, 4);
    EXPECT_EQ(words("", 0).text, "zero");
    EXPECT_EQ(words("0", 0).count, 4);
    EXPECT_EQ(words("12a", 1).count, -1);
    EXPECT_EQ(words("-5", 1).count, -1);
    EXPECT_EQ(words(" 5", 0).count, -1);
    EXPECT_EQ(words("5", 1, 0).count, -1);  // size below 1
}

TEST_F(NumberWords, SixtySixDigits) {
    std::string nines(66, '9');
    Words flat = words(nines, 1);
    ASSERT_GT(flat.count, 0);
    const std::string group = "nine hundred ninety nine";
    EXPECT_EQ(flat.text.substr(0, group.size() + 13), group + " vigintillion");
    EXPECT_EQ(flat.text.substr(flat.text.size() - group.size()), group);
    EXPECT_EQ(flat.count, static_cast<int32_t>(flat.text.size()));
    Words prose = words(nines, 0);
    EXPECT_EQ(prose.text.substr(prose.text.size() - 28), "nine hundred and ninety-nine");

    EXPECT_EQ(words(std::string(67, '9'), 1).count, -1);
    EXPECT_EQ(words("1" + std::string(66, '0'), 0).count, -1);
    // Leading zeros are skipped first and do not count.
    EXPECT_EQ(words(std::string(10, '0') + nines, 1).text, flat.text);
    EXPECT_EQ(words("1" + std::string(63, '0'), 1).text, "one vigintillion");
    EXPECT_EQ(words("1" + std::string(65, '0'), 1).text, "one hundred vigintillion");
}

TEST_F(NumberWords, SmallBufferEndsTheTextEarly) {
    // "one thousand" fits (12 of 15 bytes); the next group does not: the
    // count is the length of the text now in the buffer.
    Words cut = words("1234", 1, 15);
    EXPECT_EQ(cut.text, "one thousand t");
    EXPECT_EQ(cut.count, 14);
    cut = words("1234", 0, 5);
    EXPECT_EQ(cut.text, "one ");
    EXPECT_EQ(cut.count, 4);
    cut = words("0", 1, 3);
    EXPECT_EQ(cut.text, "ze");
    EXPECT_EQ(cut.count, 2);
    cut = words("21", 1, 1);
    EXPECT_EQ(cut.text, "");
    EXPECT_EQ(cut.count, 0);
    // Exactly enough room.
    cut = words("21", 1, 11);
    EXPECT_EQ(cut.text, "twenty one");
    EXPECT_EQ(cut.count, 10);
}

TEST_F(NumberWords, WideForm) {
    auto digits = be("19990");
    uni_char *out = nullptr;
    ASSERT_EQ(num_to_word_uni(digits.data(), &out, 4), 0u);  // "1999"
    EXPECT_EQ(ascii(out), "one thousand nine hundred ninety nine");
    ombr_memory_free(out);

    out = nullptr;
    ASSERT_EQ(num_to_word_uni(digits.data(), &out, 0), 0u);  // 0: the whole text
    EXPECT_EQ(ascii(out), "nineteen thousand nine hundred ninety");
    ombr_memory_free(out);

    auto too_long = be(std::string(67, '1'));
    out = nullptr;
    EXPECT_EQ(num_to_word_uni(too_long.data(), &out, 0), 0x900B0001u);
    EXPECT_EQ(out, nullptr);
}

TEST_F(NumberWords, WideFormUnderAllocationFailure) {
    auto digits = be("42");
    uint64_t failures = for_each_allocation_failure([&](uint64_t) {
        uni_char *out = nullptr;
        uint32_t status = num_to_word_uni(digits.data(), &out, 0);
        if (status == 0) {
            EXPECT_EQ(ascii(out), "forty two");
            ombr_memory_free(out);
        } else {
            EXPECT_EQ(status, 0x900B0002u);
            EXPECT_EQ(out, nullptr);
        }
    });
    EXPECT_EQ(failures, 2u);  // the narrow copy, the wide result
}

}  // namespace
