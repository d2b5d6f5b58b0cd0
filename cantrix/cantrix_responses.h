// Reshaping a provider's answer into the rows of a response record, and the
// text scores that order them. Defined in zelto_cantrix_responses.cpp.
#ifndef CANTRIX_RESPONSES_H
#define CANTRIX_RESPONSES_H

#include "cantrix/cantrix_rvo.h"

namespace cantrix {
// Shared steps of the response processing.
uint8_t response_decision(uint32_t result_count, ombr_stringmap *info);
uint32_t set_row_range_texts(cantrix_response *response, uint32_t rows);
bool single_mode(const cantrix_query *query);
}  // namespace cantrix

extern "C" {
// Each builds a response record from the provider's object (which stays the
// caller's) and a copy of the info map per row; the record is the caller's.
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

// Higher score first, then the provider's order.
int32_t _cantrix_compare_by_result_score(const cantrix_response_row *a, const cantrix_response_row *b);
// Similarity 0..100 of an input text and a candidate, raw and normalised.
uint32_t _cantrix_score_string_correlation(const char *input, const char *candidate, uint8_t skip_space,
                                           uint32_t *out_score);
uint32_t _cantrix_normalize_string(const char *text, char **out_key);
// Display text of an object's official title or its first artist's name;
// the text is borrowed from the holder, which the caller releases.
uint32_t _cantrix_get_title_display(zelto_rvo_handle object, const char **out_text, zelto_rvo_handle *out_holder);
uint32_t _cantrix_get_artist_display(zelto_rvo_handle object, const char **out_text, zelto_rvo_handle *out_holder);
}

#endif
