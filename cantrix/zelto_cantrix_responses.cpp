// Reshaping a provider's answer into the rows of a response record.
#include "cantrix/cantrix_rvo.h"
#include "ombr/ombr_datatypes.h"
#include "ombr/ombr_string.h"

extern "C" uint32_t _cantrix_get_album_full_disc(cantrix_query *query, zelto_rvo_handle album,
                                                 zelto_rvo_handle *out_album);

namespace {

using namespace cantrix;

constexpr const char *kResponsesUnit = "zelto_cantrix_responses";

uint32_t responses_fail(uint32_t status, std::source_location where = std::source_location::current()) {
    return ombr::error_exit(status, where.line(), kResponsesUnit);
}

}  // namespace

// The decision flag starts as "there were results" and could only be
// cleared by a "SINGLE" match type found through a map lookup whose status
// is 1. A map lookup never returns 1, so a response with results keeps the
// flag whatever its match type.
uint8_t cantrix::response_decision(uint32_t result_count, ombr_stringmap *info) {
    uint8_t decision = result_count > 0 ? 1 : 0;
    const char *match_type = nullptr;
    if (info && ombr_stringmap_value_find(info, "_sdkmgr_val_match_type", &match_type) == 1 &&
        ombr_string_equal(match_type, "SINGLE", 0))
        decision = 0;
    return decision;
}

// Range texts of a response of `rows` rows numbered from 1; "0" for all
// three when there are none.
uint32_t cantrix::set_row_range_texts(cantrix_response *response, uint32_t rows) {
    char digits[16];
    const char *end = rows > 0 ? ombr_string_u32toa(rows, digits, sizeof digits) : "0";
    response->range_start_text = ombr_string_strdup(rows > 0 ? "1" : "0");
    response->range_end_text = ombr_string_strdup(end);
    response->range_count_text = ombr_string_strdup(end);
    if (!response->range_start_text || !response->range_end_text || !response->range_count_text) return kNoMemory;
    return 0;
}

bool cantrix::single_mode(const cantrix_query *query) {
    const char *value = nullptr;
    if (!query->options || ombr_stringmap_value_find(query->options, "zelto_cantrix_single_result", &value) != 0)
        return false;
    return ombr_string_atobool(value) != 0;
}

extern "C" uint32_t _cantrix_process_album_response(cantrix_query *query, zelto_rvo_handle object,
                                                    ombr_stringmap *info, const char *context,
                                                    cantrix_response **out_response) {
    if (!query || !object || !out_response) return responses_fail(kInvalidArg);
    const zelto_rvo_interface *rvo = g_cantrix_rvo_interface;
    const bool single = single_mode(query);
    uint32_t count = 0;
    (void)rvo->rvo_child_count(object, "zelto_ctx_album!", &count);
    const uint32_t rows = single && count > 1 ? 1 : count;

    cantrix_response *response = nullptr;
    uint32_t status = _cantrix_rvo_alloc_response(ombr_string_isempty(context) ? "zelto_ctx_response_album" : context,
                                                  rows, &response);
    if (status != 0) return responses_fail(status);
    response->decision = response_decision(count, info);
    status = set_row_range_texts(response, rows);

    for (uint32_t ordinal = 1; status == 0 && ordinal <= rows; ++ordinal) {
        cantrix_response_row &row = response->rows[ordinal - 1];
        zelto_rvo_handle album = nullptr;
        uint32_t row_status = rvo->rvo_child_get(object, "zelto_ctx_album!", ordinal, 1, &album);
        // A lone album is fetched in full by a second lookup.
        if (row_status == 0 && rows == 1) {
            zelto_rvo_handle full = nullptr;
            row_status = _cantrix_get_album_full_disc(query, album, &full);
            if (row_status == 0) {
                rvo->rvo_release(album);
                album = full;
            }
        }
        row.object = album;
        if (info && row_status == 0) (void)ombr_stringmap_copy(info, &row.info);
        // Only the last row's status counts; an earlier failed row stays empty.
        if (ordinal == rows) status = row_status;
    }
    if (status != 0) {
        _cantrix_rvo_response_release(response);
        return responses_fail(status);
    }
    *out_response = response;
    return 0;
}
