// Text scoring: string correlation with normalisation only where it can
// change the verdict, and the order of scored rows.
#include <algorithm>
#include <string>
#include <vector>

#include "cantrix/cantrix_rvo.h"
#include "module_fixture.h"
#include "ombr/ombr_datatypes.h"
#include "ombr/ombr_string_fuzzy.h"

namespace {

class ScoringTest : public ModuleTest {
   protected:
    uint32_t score(const char *input, const char *candidate, uint8_t skip_space) {
        uint32_t s = 12345;
        EXPECT_EQ(_cantrix_score_string_correlation(input, candidate, skip_space, &s), 0u);
        return s;
    }
};

TEST_F(ScoringTest, CorrelationOfTexts) {
    EXPECT_EQ(score("Night Train", "Night Train", 0), 100u);
    EXPECT_EQ(score("", "Night Train", 0), 0u);
    EXPECT_EQ(score("Night Train", nullptr, 0), 0u);
    EXPECT_EQ(score("\xFF", "x", 0), 0u);  // invalid first character counts as empty
    EXPECT_EQ(_cantrix_score_string_correlation("a", "b", 0, nullptr), 0x90810001u);

    // Partial matches keep their Dice score when normalising changes nothing.
    EXPECT_EQ(score("night", "nacht", 0), 50u);
    EXPECT_EQ(score("qzxvkw", "qzxvkwy", 1), 80u);
    EXPECT_EQ(score("qzxv", "qzxy", 0), 60u);

    // "The Lanterns" against "Lanterns": raw below 100, equal keys after
    // normalisation, so 100.
    uint32_t raw = ombr_string_fuzzycmp_ex("The Lanterns", "Lanterns", 1, nullptr, nullptr);
    EXPECT_GT(raw, 0u);
    EXPECT_LT(raw, 100u);
    EXPECT_EQ(score("The Lanterns", "Lanterns", 1), 100u);
    // Accents fold through normalisation too.
    EXPECT_EQ(score("Beyonc\xC3\xA9", "Beyonce", 1), 100u);

    // Without a single common pair nothing is normalised: full-width ABC
    // against ABC stays 0 though their keys would agree.
    EXPECT_EQ(ombr_string_fuzzycmp_ex("\xEF\xBC\xA1\xEF\xBC\xA2\xEF\xBC\xA3", "ABC", 0, nullptr, nullptr), 0u);
    EXPECT_EQ(score("\xEF\xBC\xA1\xEF\xBC\xA2\xEF\xBC\xA3", "ABC", 0), 0u);
    EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks_up_);
}

TEST_F(ScoringTest, RowsOrderByScoreThenProviderPosition) {
    std::vector<cantrix_response_row> rows(6);
    const uint32_t scores[] = {50, 90, 90, 10, 100, 50};
    for (uint32_t i = 0; i < 6; ++i) {
        rows[i].score = scores[i];
        rows[i].ordinal = i + 1;
    }
    EXPECT_LT(_cantrix_compare_by_result_score(&rows[1], &rows[0]), 0);  // higher score first
    EXPECT_LT(_cantrix_compare_by_result_score(&rows[1], &rows[2]), 0);  // tie: lower ordinal first
    EXPECT_EQ(_cantrix_compare_by_result_score(&rows[1], &rows[1]), 0);
    ASSERT_EQ(ombr_utils_qsort(rows.data(), 6, sizeof(cantrix_response_row),
                               [](const void *a, const void *b, void *) {
                                   return _cantrix_compare_by_result_score(
                                       static_cast<const cantrix_response_row *>(a),
                                       static_cast<const cantrix_response_row *>(b));
                               },
                               nullptr),
              0u);
    std::vector<uint32_t> order;
    for (auto &row : rows) order.push_back(row.ordinal);
    EXPECT_EQ(order, (std::vector<uint32_t>{5, 2, 3, 1, 6, 4}));
}

TEST_F(ScoringTest, NormalisedKeysAreFreedOnEveryPath) {
    for_each_allocation_failure([&](uint64_t) {
        uint32_t s = 0;
        EXPECT_EQ(_cantrix_score_string_correlation("The Lanterns", "Lanterns", 1, &s), 0u);
        // A key that cannot be made compares as nothing: the raw score stands.
        if (!zelto_manager_memory_failure_fired()) {
            EXPECT_EQ(s, 100u);
        }
    });
}

}  // namespace
