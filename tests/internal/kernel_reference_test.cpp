// The fast kernels against their reference forms, on many generated
// inputs (the fuzzers run the same cases on inputs they search for).
#include <cstring>
#include <random>
#include <vector>

#include "cantrix_test.h"
#include "datatypes/ombr_datatypes_internal.h"
#include "ombr/ombr_datatypes.h"
#include "ombr/ombr_string_fuzzy.h"
#include "tests/reference/reference.h"

namespace {

using KernelReference = LeakCheckedTest;

// Runs `check` on `count` random byte strings of up to `max_size` bytes.
template <typename Check>
void run_random_cases(Check check, uint32_t seed, int count, size_t max_size) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> data;
    for (int i = 0; i < count; ++i) {
        data.resize(rng() % (max_size + 1));
        for (auto &b : data) b = static_cast<uint8_t>(rng());
        const std::string failure = check(data.data(), data.size());
        ASSERT_EQ(failure, "") << "case " << i;
    }
}

TEST_F(KernelReference, FormatEngineAgreesWithTheReference) {
    run_random_cases(reference::check_format_case, 1, 20000, 120);
}

TEST_F(KernelReference, BigramSimilarityAgreesWithTheReference) {
    run_random_cases(reference::check_fuzzy_case, 2, 20000, 160);
}

// Titles of words from a small vocabulary share many entries, which random
// bytes seldom do.
TEST_F(KernelReference, BigramSimilarityOfTitlesAgreesWithTheReference) {
    const char *const words[] = {"love", "Love", "night", "the", "a", "été", "東京", "Straße", "  ", "oo", "nacht"};
    std::mt19937 rng(3);
    for (int i = 0; i < 5000; ++i) {
        std::string text[2];
        for (auto &t : text)
            for (int w = 1 + static_cast<int>(rng() % 12); w > 0; --w) t += std::string(words[rng() % 11]) + " ";
        for (uint8_t skip = 0; skip < 2; ++skip) {
            uint32_t pa = 0, pb = 0, ra = 0, rb = 0;
            const uint32_t ours = ombr_string_fuzzycmp_ex(text[0].c_str(), text[1].c_str(), skip, &pa, &pb);
            const uint32_t ref = reference::string_fuzzycmp(text[0].c_str(), text[1].c_str(), skip, &ra, &rb);
            ASSERT_EQ(ours, ref) << text[0] << " | " << text[1];
            ASSERT_EQ(pa, ra);
            ASSERT_EQ(pb, rb);
        }
    }
}

TEST_F(KernelReference, HashTableAgreesWithItsModel) {
    ASSERT_EQ(ombr_datatypes_initialize(), 0u);
    run_random_cases(reference::check_hashtable_case, 4, 3000, 400);
    ombr_datatypes_shutdown();
}

}  // namespace

TEST_F(KernelReference, TextKernelsAgreeWithTheReference) {
    run_random_cases(reference::check_text_case, 5, 20000, 60);
    // Numbers at the edges of the direct reading: nine and ten digits, signs,
    // blanks and trailing bytes.
    for (const char *text : {"999999999", "4294967295", "4294967296", "0000000001", "000000000", "+12", "-12", " 12",
                             "12 ", "12x", "", "0", "1e3"}) {
        std::vector<uint8_t> data{1};
        data.insert(data.end(), text, text + std::strlen(text));
        ASSERT_EQ(reference::check_text_case(data.data(), data.size()), "") << text;
    }
}
