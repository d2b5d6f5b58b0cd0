// Query fields behind options and TOC input: data flags, the offset
// vector, input displacement and the TOC text builder.
#include <string>
#include <vector>

#include "cantrix/cantrix_requests.h"
#include "log_capture.h"
#include "ombr/ombr_datatypes.h"
#include "ombr/ombr_string.h"
#include "out_param.h"
#include "rvo_read.h"
#include "script_fixture.h"

namespace {

class QueryInputTest : public WithQuery<ModuleTest> {
   protected:
    std::vector<uint32_t> offsets() {
        std::vector<uint32_t> out;
        if (!query_->toc_offsets) return out;
        uint32_t count = 0;
        ombr_vector_count(query_->toc_offsets, &count);
        for (uint32_t i = 0; i < count; ++i) {
            uintptr_t entry = 0;
            ombr_vector_getindex(query_->toc_offsets, i, &entry);
            out.push_back(static_cast<uint32_t>(entry));
        }
        return out;
    }
    std::string toc_text(uint32_t size = 1024) {
        std::vector<char> buffer(size + 16, '#');
        EXPECT_EQ(_cantrix_build_toc_string(query_, buffer.data(), size), 0u);
        for (size_t i = size; i < buffer.size(); ++i) EXPECT_EQ(buffer[i], '#') << "written past the buffer";
        return buffer.data();
    }
};

using Offsets = std::vector<uint32_t>;

TEST_F(QueryInputTest, BooleanOptionsSetAndClearTheirBits) {
    struct {
        const char *key;
        uint32_t bit;
    } rows[] = {
        {"zelto_cantrix_option_enable_classical", 0x4000000u}, {"zelto_cantrix_option_enable_globalids", 0x800000u},
        {"zelto_cantrix_option_enable_dsp", 0x1000000u},      {"zelto_cantrix_option_enable_link", 0x400000u},
        {"zelto_query_option_enable_aim", 0x8000000u},
    };
    for (auto &row : rows) {
        EXPECT_EQ(zelto_cantrix_query_option_set(query_, row.key, "on"), 0u);
        EXPECT_EQ(query_->data_flags, row.bit) << row.key;
        EXPECT_EQ(zelto_cantrix_query_option_set(query_, row.key, nullptr), 0u);  // null clears
        EXPECT_EQ(query_->data_flags, 0u);
    }
    // Three keys share one bit: the last one set decides.
    EXPECT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_option_enable_sonic", "true"), 0u);
    EXPECT_EQ(query_->data_flags, 0x1000000u);
    EXPECT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_option_enable_playlist", "false"), 0u);
    EXPECT_EQ(query_->data_flags, 0u);
    EXPECT_EQ(out(zelto_cantrix_query_option_get, query_, "zelto_cantrix_option_enable_sonic"), "true");
    // Options that are no booleans touch no bit.
    EXPECT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_single_result", "1"), 0u);
    EXPECT_EQ(query_->data_flags, 0u);
}

TEST_F(QueryInputTest, TocStringRules) {
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "150 14672 27367 41225"), 0u);
    EXPECT_EQ(offsets(), (Offsets{150, 14672, 27367, 41225}));
    EXPECT_EQ(toc_text(), "150 14672 27367 41225");

    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "  150   14672  "), 0u);
    EXPECT_EQ(offsets(), (Offsets{150, 14672}));
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "150x 200"), 0u);
    EXPECT_EQ(offsets(), (Offsets{150, 200}));
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "999999 1000000"), 0u);

    // Failures keep what was accepted before the bad token.
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "150 150"), 0x908100c4u);
    EXPECT_EQ(offsets(), (Offsets{150}));
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "150 300 100"), 0x908100c4u);
    EXPECT_EQ(offsets(), (Offsets{150, 300}));
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "0 150"), 0x908100c4u);
    EXPECT_EQ(offsets(), Offsets{});
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "1000000 1000001"), 0x908100c4u);
    EXPECT_EQ(offsets(), (Offsets{1000000}));
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "150,14672"), 0x908100c4u);  // one token
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "150\t14672"), 0x908100c4u);

    // Fewer than two numbers: the caller's text is the message.
    LogCapture log({0x81});
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "150"), 0x908100c4u);
    EXPECT_EQ(offsets(), (Offsets{150}));
    const char *function = nullptr, *message = nullptr;
    EXPECT_EQ(zelto_manager_errorinfo_get(nullptr, &function, &message), 0x908100c4u);
    EXPECT_STREQ(message, "150");
    ASSERT_EQ(log.errors.size(), 1u);
    EXPECT_EQ(log.errors[0].unit, "150");

    // Arguments.
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, ""), 0x90810001u);
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, nullptr), 0x90810001u);
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "150 \xF0\x9F\x8E\xB5 200"), 0x908103a0u);
    EXPECT_EQ(zelto_manager_errorinfo_get(nullptr, &function, &message), 0x908103a0u);
    EXPECT_STREQ(message, "toc_string parameter invalid UTF8");
    EXPECT_EQ(offsets(), (Offsets{150}));  // no change to the query
    int not_a_query = 0;
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(reinterpret_cast<zelto_cantrix_query_handle>(&not_a_query), "1 2"),
              0x90810321u);
    EXPECT_EQ(zelto_manager_errorinfo_get(nullptr, &function, nullptr), 0x90810321u);
    EXPECT_STREQ(function, "\"zelto_cantrix_query_set_toc_string\"");
}

TEST_F(QueryInputTest, AddTocOffsetRules) {
    EXPECT_EQ(zelto_cantrix_query_add_toc_offset(query_, 150), 0u);
    EXPECT_EQ(zelto_cantrix_query_add_toc_offset(query_, 150), 0x908100c4u);
    EXPECT_EQ(zelto_cantrix_query_add_toc_offset(query_, 2000000), 0u);  // above the text form's limit
    EXPECT_EQ(offsets(), (Offsets{150, 2000000}));

    // Adding after a string goes on at the end of the same vector.
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "150 14672"), 0u);
    EXPECT_EQ(zelto_cantrix_query_add_toc_offset(query_, 20000), 0u);
    EXPECT_EQ(offsets(), (Offsets{150, 14672, 20000}));

    // At most 100 offsets through this call.
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "1 2"), 0u);
    for (uint32_t i = 3; i <= 100; ++i) ASSERT_EQ(zelto_cantrix_query_add_toc_offset(query_, i), 0u) << i;
    EXPECT_EQ(zelto_cantrix_query_add_toc_offset(query_, 101), 0x908100c4u);
    EXPECT_EQ(offsets().size(), 100u);

    // The string call has no count limit.
    std::string many;
    for (uint32_t i = 1; i <= 200; ++i) many += std::to_string(i * 10) + " ";
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, many.c_str()), 0u);
    EXPECT_EQ(offsets().size(), 200u);
}

// The add call takes a first offset of 0, which the text form refuses; the
// vector still takes no entry of 0, and the TOC text reads "0 150".
TEST_F(QueryInputTest, AddTocOffsetAcceptsAFirstZero) {
    EXPECT_EQ(zelto_cantrix_query_add_toc_offset(query_, 0), 0u);
    EXPECT_EQ(zelto_cantrix_query_add_toc_offset(query_, 0), 0x908100c4u);  // not above the last
    EXPECT_EQ(toc_text(), "0");
    EXPECT_EQ(zelto_cantrix_query_add_toc_offset(query_, 150), 0u);
    EXPECT_EQ(toc_text(), "0 150");
    EXPECT_EQ(offsets(), (Offsets{150}));
    EXPECT_EQ(ombr_vector_add(query_->toc_offsets, 0), 0x900D0001u);
    EXPECT_EQ(zelto_cantrix_query_add_toc_offset(query_, 100), 0x908100c4u);
    EXPECT_EQ(toc_text(), "0 150");

    // The leading 0 counts toward the hundred offsets of the add call.
    for (uint32_t i = 3; i <= 100; ++i) ASSERT_EQ(zelto_cantrix_query_add_toc_offset(query_, i * 100), 0u) << i;
    EXPECT_EQ(zelto_cantrix_query_add_toc_offset(query_, 20000), 0x908100c4u);
    EXPECT_EQ(offsets().size(), 99u);

    // A new table drops the leading 0 with the rest; the text form refuses 0.
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "0 150"), 0x908100c4u);
    EXPECT_EQ(toc_text(), "");
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "150 300"), 0u);
    EXPECT_EQ(toc_text(), "150 300");
    EXPECT_EQ(zelto_cantrix_query_add_toc_offset(query_, 0), 0x908100c4u);
    EXPECT_EQ(zelto_cantrix_query_set_text(query_, "zelto_cantrix_field_artist", "x"), 0u);
    EXPECT_EQ(zelto_cantrix_query_add_toc_offset(query_, 0), 0u);  // a new table
    EXPECT_EQ(query_->text_fields, nullptr);
    EXPECT_EQ(toc_text(), "0");
}

TEST_F(QueryInputTest, BuilderNeverWritesPastItsBuffer) {
    // 100 ten-digit offsets need far more than 1024 bytes.
    for (uint32_t i = 0; i < 100; ++i)
        ASSERT_EQ(zelto_cantrix_query_add_toc_offset(query_, 4000000000u + i), 0u);
    std::string text = toc_text(1024);
    EXPECT_LT(text.size(), 1024u);
    EXPECT_EQ(text.size(), 93u * 11 - 1);  // 93 whole numbers fit
    EXPECT_EQ(text.substr(0, 21), "4000000000 4000000001");
    EXPECT_EQ(text.back(), '2');  // ends on a whole number
    EXPECT_EQ(toc_text(11), "4000000000");
    EXPECT_EQ(toc_text(10), "");  // not even one whole number fits
    EXPECT_EQ(toc_text(1), "");

    char buffer[4];
    EXPECT_EQ(_cantrix_build_toc_string(nullptr, buffer, 4), 0x90810001u);
    EXPECT_EQ(_cantrix_build_toc_string(query_, nullptr, 4), 0x90810001u);
    EXPECT_EQ(_cantrix_build_toc_string(query_, buffer, 0), 0x90810001u);
}

// The builder as it first stood: each number rendered, measured and copied
// by the string calls. The builder writes digits straight into the buffer;
// both must leave every byte of it alike.
uint32_t reference_toc_string(cantrix_query *query, char *buffer, uint32_t size) {
    buffer[0] = '\0';
    uint32_t used = 0;
    const uint32_t lead = query->toc_starts_at_zero ? 1 : 0;
    for (uint32_t index = 0;; ++index) {
        uintptr_t entry = 0;
        if (index >= lead && ombr_vector_getindex(query->toc_offsets, index - lead, &entry) != 0) break;
        char digits[16];
        ombr_string_u32toa(static_cast<uint32_t>(entry), digits, sizeof digits);
        uint32_t needed = ombr_string_bytelen_nonull(digits) + (index > 0 ? 1 : 0);
        if (used + needed + 1 > size) break;
        if (index > 0) buffer[used++] = ' ';
        ombr_string_strcpy(buffer + used, size - used, digits);
        used += ombr_string_bytelen_nonull(digits);
    }
    return 0;
}

TEST_F(QueryInputTest, BuilderAgreesWithItsReferenceAtEveryBufferSize) {
    uint32_t seed = 11;
    auto next = [&] {
        seed = seed * 1103515245u + 12345u;
        return seed >> 8;
    };
    for (int round = 0; round < 40; ++round) {
        ombr_vector_delete(query_->toc_offsets);
        query_->toc_offsets = nullptr;
        ASSERT_EQ(ombr_vector_create(&query_->toc_offsets, 0, nullptr, nullptr), 0u);
        query_->toc_starts_at_zero = round % 3 == 0 ? 1 : 0;
        // Numbers of one to ten digits, the largest included (a 0 leads only
        // as the flag; the vector holds no null entry).
        for (uint32_t i = 0, n = next() % 12; i < n; ++i) {
            const uint32_t kind = next() % 12;
            const uint32_t value =
                kind == 0 ? 1 : kind == 1 ? 0xFFFFFFFFu : 1 + next() % (kind < 6 ? 1000 : 0xFFFFFFu) * kind;
            ASSERT_EQ(ombr_vector_add(query_->toc_offsets, value), 0u);
        }
        for (uint32_t size = 1; size <= 140; ++size) {
            std::vector<char> ours(size + 8, '#'), ref(size + 8, '#');
            ASSERT_EQ(_cantrix_build_toc_string(query_, ours.data(), size), 0u);
            reference_toc_string(query_, ref.data(), size);
            ASSERT_EQ(std::string(ours.begin(), ours.end()), std::string(ref.begin(), ref.end()))
                << "round " << round << ", size " << size;
        }
    }
}

}  // namespace

namespace {

TEST_F(QueryInputTest, TocAndFingerprintDataStandTogether) {
    // Fingerprint data present: set_toc_string rebuilds only the offsets.
    query_->fp_data = ombr_string_strdup("FPDATA");
    query_->fp_kind = ombr_string_strdup("zelto_cantrix_fp_tvx");
    EXPECT_EQ(zelto_cantrix_query_set_toc_string(query_, "150 14672"), 0u);
    EXPECT_STREQ(query_->fp_data, "FPDATA");
    EXPECT_EQ(offsets(), (Offsets{150, 14672}));

    // With fingerprint data and no vector, add makes no vector and fails.
    ombr_vector_delete(query_->toc_offsets);
    query_->toc_offsets = nullptr;
    EXPECT_EQ(zelto_cantrix_query_add_toc_offset(query_, 150), 0x90810001u);
    EXPECT_EQ(query_->toc_offsets, nullptr);
    EXPECT_STREQ(query_->fp_data, "FPDATA");

    // Without fingerprint data a TOC input drops every other input.
    ombr_string_free(query_->fp_data);
    query_->fp_data = nullptr;
    EXPECT_EQ(zelto_cantrix_query_add_toc_offset(query_, 150), 0u);
    EXPECT_EQ(query_->fp_kind, nullptr);
}

class TocLookupTest : public ScriptedTest {};

// A table that starts at 0 goes to the provider, and into the results, as
// the text "0 150".
TEST_F(TocLookupTest, LeadingZeroReachesTheProvider) {
    zelto_cantrix_query_handle query = nullptr;
    ASSERT_EQ(zelto_cantrix_query_create(user_, nullptr, nullptr, &query), 0u);
    ASSERT_EQ(zelto_cantrix_query_add_toc_offset(query, 0), 0u);
    ASSERT_EQ(zelto_cantrix_query_add_toc_offset(query, 150), 0u);
    answer(make_answer("zelto_result_single_match", {make_album("Zero", "Nobody", 1, {{"zelto_val_full_result", "1"}})}));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query, &response), 0u);
    EXPECT_STREQ(zelto_script_request_data(script_, 0, "zelto_lookup_data_toc"), "0 150");
    zelto_rvo_handle album = child_of(response, "zelto_ctx_album!", 1);
    EXPECT_EQ(value_of(album, "zelto_val_toc_album"), "0 150");
    for (auto item : {album, response}) zelto_manager_rvo_release(item);
    EXPECT_EQ(zelto_cantrix_query_release(query), 0u);
}

TEST_F(TocLookupTest, TocAndFingerprintTravelTogether) {
    zelto_cantrix_query_handle query = nullptr;
    ASSERT_EQ(zelto_cantrix_query_create(user_, nullptr, nullptr, &query), 0u);
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query, "150 14672 27367 41225"), 0u);
    query->fp_data = ombr_string_strdup("AQID");
    query->fp_kind = ombr_string_strdup("zelto_cantrix_fp_file");
    answer(make_answer("zelto_result_no_matches", {}));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query, &response), 0u);  // the TOC branch wins
    zelto_manager_rvo_release(response);
    EXPECT_EQ(transcript(0),
              "mode 1\n"
              "add zelto_lookup_type_album CNX_1 cnx 0\n"
              "data CNX_1 zelto_lookup_data_toc \"150 14672 27367 41225\" copy 1\n"
              "data CNX_1 zelto_lookup_data_tvx_querydata \"AQID\" copy 1\n"
              "data CNX_1 zelto_lookup_data_result_range_start \"1\" copy 1\n"
              "data CNX_1 zelto_lookup_data_result_range_end \"10\" copy 1\n"
              "execute user \"test-user\"\n"
              "get_result CNX_1\n"
              "release\n");

    // A TOC lookup for tracks is refused after the request was made.
    zelto_rvo_handle object = nullptr;
    EXPECT_EQ(_cantrix_perform_toclookup(query, 2, &object), 0x9081000bu);
    EXPECT_EQ(transcript(1), "mode 1\nrelease\n");

    // Fingerprint lookups: both families, and an unknown kind.
    answer(make_answer("zelto_result_no_matches", {}));
    ASSERT_EQ(_cantrix_perform_fpxlookup(query, 2, &object), 0u);
    zelto_manager_rvo_release(object);
    EXPECT_EQ(transcript(2),
              "mode 1\n"
              "add zelto_lookup_type_track CNX_1 cnx 0\n"
              "data CNX_1 zelto_lookup_data_tvx_querydata \"AQID\" copy 1\n"
              "execute user \"test-user\"\n"
              "get_result CNX_1\n"
              "release\n");
    ombr_string_free(query->fp_kind);
    query->fp_kind = ombr_string_strdup("ZELTO_CANTRIX_FP_ZFPX");
    query->fp_algorithm_name = ombr_string_strdup("zfpx");
    query->fp_algorithm_version = ombr_string_strdup("2.1");
    answer(make_answer("zelto_result_no_matches", {}));
    ASSERT_EQ(_cantrix_perform_fpxlookup(query, 1, &object), 0u);
    zelto_manager_rvo_release(object);
    EXPECT_EQ(transcript(3),
              "mode 1\n"
              "add zelto_lookup_type_album CNX_1 audio-block 1\n"
              "data CNX_1 zelto_lookup_data_fpx_algname \"zfpx\" copy 1\n"
              "data CNX_1 zelto_lookup_data_fpx_algver \"2.1\" copy 1\n"
              "data CNX_1 zelto_lookup_data_fpx_querydata \"AQID\" copy 1\n"
              "execute user \"test-user\"\n"
              "get_result CNX_1\n"
              "release\n");
    // A kind other than album or track declares no lookup but goes on.
    ASSERT_EQ(_cantrix_perform_fpxlookup(query, 3, &object), 0x10040003u);
    EXPECT_EQ(transcript(4).substr(0, 12), "mode 1\ndata ");
    ombr_string_free(query->fp_kind);
    query->fp_kind = ombr_string_strdup("zelto_cantrix_fp_other");
    EXPECT_EQ(_cantrix_perform_fpxlookup(query, 1, &object), 0x908101a3u);
    EXPECT_EQ(zelto_cantrix_query_release(query), 0u);
}

}  // namespace
