// Response and result records behind the module's result objects.
#ifndef CANTRIX_RVO_H
#define CANTRIX_RVO_H

#include "cantrix/cantrix_internal.h"

// One entry of a response.
struct cantrix_response_row {
    zelto_rvo_handle object;  // one reference held, may be null
    ombr_stringmap *info;     // owned, may be null
    uint32_t score;
    uint32_t ordinal;
};

// A response record. The context text is stored in the same allocation,
// right behind the record.
struct cantrix_response {
    uint32_t row_count;
    cantrix_response_row *rows;
    char *result_count_text;
    char *range_start_text;
    char *range_end_text;
    char *range_count_text;
    uint8_t decision;

    const char *context() const { return reinterpret_cast<const char *>(this + 1); }
};

// A result record: one object handed out of a response or of another result.
struct cantrix_result {
    zelto_rvo_handle object;
    ombr_stringmap *info;
    uint32_t score;
    uint32_t ordinal;
};

namespace cantrix {
// Shared steps of the response processing.
uint8_t response_decision(uint32_t result_count, ombr_stringmap *info);
uint32_t set_row_range_texts(cantrix_response *response, uint32_t rows);
bool single_mode(const cantrix_query *query);
}  // namespace cantrix

extern "C" {
uint32_t _cantrix_process_album_response(cantrix_query *query, zelto_rvo_handle object, ombr_stringmap *info,
                                         const char *context, cantrix_response **out_response);
uint32_t _cantrix_process_search_response(cantrix_query *query, zelto_rvo_handle object, ombr_stringmap *info,
                                          cantrix_response **out_response);
uint32_t _cantrix_process_track_response(cantrix_query *query, zelto_rvo_handle object, ombr_stringmap *info,
                                         cantrix_response **out_response);
uint32_t _cantrix_process_match_response(cantrix_query *query, zelto_rvo_handle object, ombr_stringmap *info,
                                         cantrix_response **out_response);
uint32_t _cantrix_process_lyric_response(cantrix_query *query, zelto_rvo_handle object, ombr_stringmap *info,
                                         cantrix_response **out_response);
int32_t _cantrix_compare_by_result_score(const cantrix_response_row *a, const cantrix_response_row *b);
uint32_t _cantrix_score_string_correlation(const char *input, const char *candidate, uint8_t skip_space,
                                           uint32_t *out_score);
uint32_t _cantrix_normalize_string(const char *text, char **out_key);
uint32_t _cantrix_get_title_display(zelto_rvo_handle object, const char **out_text, zelto_rvo_handle *out_holder);
uint32_t _cantrix_get_artist_display(zelto_rvo_handle object, const char **out_text, zelto_rvo_handle *out_holder);
uint32_t _cantrix_rvo_alloc_response(const char *context, uint32_t row_count, cantrix_response **out_record);
uint32_t _cantrix_rvo_response_get_context(void *record, const char **out_context);
uint32_t _cantrix_rvo_response_get_child_count(void *record, const char *key, uint32_t *out_count);
uint32_t _cantrix_rvo_response_get_child(void *record, const char *key, uint32_t ordinal, uint8_t flag,
                                         void **out_child, const zelto_rvo_provider **out_provider);
uint32_t _cantrix_rvo_response_get_value_count(void *record, const char *key, uint32_t *out_count);
uint32_t _cantrix_rvo_response_get_value(void *record, const char *key, uint32_t ordinal, const char **out_value);
uint32_t _cantrix_rvo_response_set_locale(void *record, zelto_locale_handle locale);
uint32_t _cantrix_rvo_response_release(void *record);

uint32_t _cantrix_rvo_result_get_context(void *record, const char **out_context);
uint32_t _cantrix_rvo_result_get_child_count(void *record, const char *key, uint32_t *out_count);
uint32_t _cantrix_rvo_result_get_child(void *record, const char *key, uint32_t ordinal, uint8_t flag,
                                       void **out_child, const zelto_rvo_provider **out_provider);
uint32_t _cantrix_rvo_result_get_value_count(void *record, const char *key, uint32_t *out_count);
uint32_t _cantrix_rvo_result_get_value(void *record, const char *key, uint32_t ordinal, const char **out_value);
uint32_t _cantrix_rvo_result_render_value(void *record, uint32_t index, const char **out_name,
                                          const char **out_value);
uint32_t _cantrix_rvo_result_set_locale(void *record, zelto_locale_handle locale);
uint32_t _cantrix_rvo_result_get_locale(void *record, zelto_locale_handle *out_locale);
uint32_t _cantrix_rvo_result_release(void *record);
}

#endif
