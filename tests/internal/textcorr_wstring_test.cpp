// Wide text functions and the growing wide buffer of the text correlation
// package.
#include <cstring>
#include <string>
#include <vector>

#include "textcorr_test_support.h"

namespace {

using WideText = LeakCheckedTest;
using WideBuffer = LeakCheckedTest;

TEST_F(WideText, LengthCopyAndSearch) {
    auto hello = be("hello");
    EXPECT_EQ(strlen_uni(hello.data()), 5u);
    EXPECT_EQ(strlen_uni(be("").data()), 0u);

    uni_char dest[8];
    std::fill(std::begin(dest), std::end(dest), uni_char{0xFFFF});
    EXPECT_EQ(strcpy_uni(dest, hello.data()), dest);
    EXPECT_EQ(ascii(dest), "hello");
    EXPECT_EQ(dest[5], 0);
    EXPECT_EQ(dest[6], 0xFFFF);

    EXPECT_EQ(strchr_uni(hello.data(), hello[2]), hello.data() + 2);
    EXPECT_EQ(strchr_uni(hello.data(), hello[3]), hello.data() + 2);  // first 'l'
    EXPECT_EQ(strchr_uni(hello.data(), be("z")[0]), nullptr);
    EXPECT_EQ(strchr_uni(hello.data(), 0), nullptr);  // the terminator is never found
}

TEST_F(WideText, CompareReadsUnitsBigEndian) {
    auto a = be({0x0041});
    auto b = be({0x0141});
    // 0x0041 < 0x0141 by code point whatever the host order.
    EXPECT_EQ(strcmp_uni(a.data(), b.data()), 0x0041 - 0x0141);
    EXPECT_EQ(strcmp_uni(b.data(), a.data()), 0x0141 - 0x0041);
    EXPECT_EQ(strcmp_uni(be("abc").data(), be("abc").data()), 0);
    EXPECT_EQ(strcmp_uni(be("ab").data(), be("abc").data()), -'c');
    EXPECT_EQ(strncmp_uni(be("abc").data(), be("abd").data(), 2), 0);
    EXPECT_EQ(strncmp_uni(be("abc").data(), be("abd").data(), 3), 'c' - 'd');
    EXPECT_EQ(strncmp_uni(be("x").data(), be("y").data(), 0), 0);
    EXPECT_EQ(strncmp_uni(be("ab").data(), be("ab").data(), 10), 0);
}

TEST_F(WideText, SwapTurnsEveryUnit) {
    auto text = be({0x1234, 0x00E9});
    swap_uni_str(text.data());
    EXPECT_EQ(reinterpret_cast<uint8_t *>(text.data())[0], 0x34);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(text.data())[1], 0x12);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(text.data())[2], 0xE9);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(text.data())[3], 0x00);
    EXPECT_EQ(text[2], 0);
}

TEST_F(WideText, WidenAndNarrow) {
    uni_char *wide = nullptr;
    ASSERT_EQ(asc_to_uni("1999", &wide, 0), 0u);
    EXPECT_EQ(strcmp_uni(wide, be("1999").data()), 0);
    ombr_memory_free(wide);

    ASSERT_EQ(asc_to_uni("abcdef", &wide, 3), 0u);  // at most n bytes
    EXPECT_EQ(ascii(wide), "abc");
    ombr_memory_free(wide);

    char *narrow = nullptr;
    auto text = be({'4', 0x0132, '2'});  // low byte of 0x0132 is 0x32 ('2')
    ASSERT_EQ(uni_to_asc(text.data(), &narrow, 0), 0u);
    EXPECT_STREQ(narrow, "422");
    ombr_memory_free(narrow);

    ASSERT_EQ(uni_to_asc(be("12345").data(), &narrow, 2), 0u);
    EXPECT_STREQ(narrow, "12");
    ombr_memory_free(narrow);

    ASSERT_EQ(uni_to_asc(be("12").data(), &narrow, 9), 0u);  // stops at the terminator
    EXPECT_STREQ(narrow, "12");
    ombr_memory_free(narrow);
}

TEST_F(WideText, WidenAndNarrowReportNoMemory) {
    uni_char *wide = reinterpret_cast<uni_char *>(0x1);
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(asc_to_uni("12", &wide, 0), 0x900B0002u);
    EXPECT_EQ(wide, reinterpret_cast<uni_char *>(0x1));
    char *narrow = nullptr;
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(uni_to_asc(be("12").data(), &narrow, 0), 0x900B0002u);
    EXPECT_EQ(narrow, nullptr);
    zelto_manager_memory_fail_nth(0);
}

TEST_F(WideBuffer, CreateAllocatesEvenForNull) {
    uni_string buffer;
    ASSERT_EQ(create_us(&buffer, nullptr), 0u);
    ASSERT_NE(buffer.text, nullptr);
    EXPECT_EQ(buffer.length, 0);
    EXPECT_EQ(buffer.capacity, 128u);
    EXPECT_EQ(buffer.text[0], 0);
    destroy_us(&buffer);
    EXPECT_EQ(buffer.text, nullptr);
    EXPECT_EQ(buffer.length, 0);
    EXPECT_EQ(buffer.capacity, 0u);

    auto text = be("abc");
    ASSERT_EQ(create_us(&buffer, text.data()), 0u);
    EXPECT_EQ(buffer.length, 3);
    EXPECT_EQ(buffer.capacity, 3u * 2 + 128);
    EXPECT_EQ(ascii(buffer.text), "abc");
    destroy_us(&buffer);
}

TEST_F(WideBuffer, GrowthKeepsOneUnitForTheTerminator) {
    uni_string buffer;
    ASSERT_EQ(create_us(&buffer, nullptr), 0u);  // 128 bytes: 64 units
    for (int i = 0; i < 63; ++i) ASSERT_NE(straddc_us(&buffer, be("x")[0]), nullptr);
    EXPECT_EQ(buffer.length, 63);
    EXPECT_EQ(buffer.capacity, 128u);  // 64 - 63 > 0 units still free
    // One more unit fills up to the capacity exactly: the test is strict,
    // so the buffer grows by 1 unit + 128 bytes.
    ASSERT_NE(straddc_us(&buffer, be("y")[0]), nullptr);
    EXPECT_EQ(buffer.capacity, 128u + 2 + 128);
    EXPECT_EQ(buffer.length, 64);
    EXPECT_EQ(ascii(buffer.text), std::string(63, 'x') + "y");
    destroy_us(&buffer);
}

TEST_F(WideBuffer, AppendCopyAndAddLimited) {
    uni_string buffer;
    ASSERT_EQ(create_us(&buffer, be("ab").data()), 0u);
    EXPECT_EQ(strcat_us(&buffer, nullptr), buffer.text);
    EXPECT_EQ(strcat_us(&buffer, be("").data()), buffer.text);
    ASSERT_NE(strcat_us(&buffer, be("cd").data()), nullptr);
    EXPECT_EQ(ascii(buffer.text), "abcd");
    EXPECT_EQ(buffer.length, 4);

    ASSERT_NE(straddclen_us(&buffer, be("efgh").data(), 2), nullptr);
    EXPECT_EQ(ascii(buffer.text), "abcdef");
    ASSERT_NE(straddclen_us(&buffer, be("z").data(), 5), nullptr);  // stops at the terminator
    EXPECT_EQ(ascii(buffer.text), "abcdefz");
    std::string hundred(100, 'q');
    ASSERT_NE(straddclen_us(&buffer, be(hundred.c_str()).data(), 100), nullptr);
    EXPECT_EQ(buffer.length, 7 + 63);  // never more than 63 units at once

    uint32_t capacity = buffer.capacity;
    ASSERT_NE(strcpy_us(&buffer, be("xy").data()), nullptr);
    EXPECT_EQ(ascii(buffer.text), "xy");
    EXPECT_EQ(buffer.length, 2);
    ASSERT_NE(strcpy_us(&buffer, nullptr), nullptr);  // empties, keeps memory
    EXPECT_EQ(buffer.length, 0);
    EXPECT_EQ(buffer.text[0], 0);
    EXPECT_EQ(buffer.capacity, capacity);

    std::string long_text(300, 'L');
    ASSERT_NE(strcpy_us(&buffer, be(long_text.c_str()).data()), nullptr);
    EXPECT_EQ(buffer.length, 300);
    EXPECT_GT(buffer.capacity, 300u * 2);
    EXPECT_EQ(ascii(buffer.text), long_text);
    destroy_us(&buffer);
}

TEST_F(WideBuffer, CopyIntoAFilledBufferGrowsEnough) {
    uni_string buffer;
    ASSERT_EQ(create_us(&buffer, be("0123456789").data()), 0u);  // 138 bytes
    std::string text(69, 'k');  // 69 units + terminator = 140 bytes
    ASSERT_NE(strcpy_us(&buffer, be(text.c_str()).data()), nullptr);
    EXPECT_GE(buffer.capacity, 140u);
    EXPECT_EQ(ascii(buffer.text), text);
    destroy_us(&buffer);
}

TEST_F(WideBuffer, ReplaceShrinksGrowsAndAppends) {
    uni_string buffer;
    ASSERT_EQ(create_us(&buffer, be("one 2 three").data()), 0u);
    ASSERT_NE(strrep_us(&buffer, 4, 1, be("two").data()), nullptr);
    EXPECT_EQ(ascii(buffer.text), "one two three");
    EXPECT_EQ(buffer.length, 13);
    ASSERT_NE(strrep_us(&buffer, 3, 4, nullptr), nullptr);  // delete " two"
    EXPECT_EQ(ascii(buffer.text), "one three");
    EXPECT_EQ(buffer.length, 9);
    ASSERT_NE(strrep_us(&buffer, 0, 3, be("ONE").data()), nullptr);  // equal lengths
    EXPECT_EQ(ascii(buffer.text), "ONE three");
    ASSERT_NE(strrep_us(&buffer, 9, 0, be("!").data()), nullptr);  // at the end: appends
    EXPECT_EQ(ascii(buffer.text), "ONE three!");
    EXPECT_EQ(buffer.length, 10);
    destroy_us(&buffer);
}

TEST_F(WideBuffer, FailedGrowthLeavesTheBufferAsItWas) {
    uni_string buffer;
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(create_us(&buffer, be("abc").data()), 0x900B0002u);
    zelto_manager_memory_fail_nth(0);
    EXPECT_EQ(buffer.text, nullptr);

    ASSERT_EQ(create_us(&buffer, be("abc").data()), 0u);
    std::string big(200, 'b');
    auto text = be(big.c_str());
    uni_string saved = buffer;
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(strcat_us(&buffer, text.data()), nullptr);
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(strcpy_us(&buffer, text.data()), nullptr);
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(strrep_us(&buffer, 1, 1, text.data()), nullptr);
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(grow_us(&buffer, 100), 0x900B0002u);
    zelto_manager_memory_fail_nth(0);
    EXPECT_EQ(buffer.text, saved.text);
    EXPECT_EQ(buffer.length, saved.length);
    EXPECT_EQ(buffer.capacity, saved.capacity);
    EXPECT_EQ(ascii(buffer.text), "abc");
    destroy_us(&buffer);
}

}  // namespace
