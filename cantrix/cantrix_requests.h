// Requests to the lookup provider: the lookups of the find operations, the
// options and range they send, and the callback through which the provider
// reports progress. Defined in zelto_cantrix_requests.cpp.
#ifndef CANTRIX_REQUESTS_H
#define CANTRIX_REQUESTS_H

#include "cantrix/cantrix_internal.h"

extern "C" {
// Writes the TOC text of the query ("150 14672 27367 41225") into a buffer
// of `size` bytes; a table longer than the buffer ends at the last number
// that fits whole.
uint32_t _cantrix_build_toc_string(cantrix_query *query, char *buffer, uint32_t size);

// The provider's status callback: turns events into the application's
// status numbers and registers reported errors.
void _cantrix_lookup_callback(void *callback_data, const zelto_lookup_status *status, uint8_t *abort_flag);
// First and last wanted result number (either out pointer may be null).
uint32_t _cantrix_request_get_range(cantrix_query *query, uint32_t *out_start, uint32_t *out_end);
// Sends the query's options as provider options; `text_search` leaves the
// data-flag switches and the result options out.
uint32_t _cantrix_request_add_options(cantrix_query *query, zelto_lookup_request request, const char *request_id,
                                      uint8_t text_search);

// The lookups. `kind` is 1 for albums, 2 for tracks, 3 for lyrics. Each
// hands the provider's object to the caller with one reference.
uint32_t _cantrix_perform_tui_query(cantrix_query *query, zelto_rvo_handle object, const char *lookup_type,
                                    zelto_rvo_handle *out_response);
uint32_t _cantrix_perform_rvolookup(cantrix_query *query, uint32_t kind, zelto_rvo_handle *out_response);
uint32_t _cantrix_perform_toclookup(cantrix_query *query, uint32_t kind, zelto_rvo_handle *out_response);
uint32_t _cantrix_perform_fpxlookup(cantrix_query *query, uint32_t kind, zelto_rvo_handle *out_response);
uint32_t _cantrix_perform_albumsearch(cantrix_query *query, uint32_t kind, zelto_rvo_handle *out_response);
uint32_t _cantrix_perform_matchsearch(cantrix_query *query, zelto_rvo_handle *out_response);
uint32_t _cantrix_perform_presetsearch(cantrix_query *query, uint32_t kind, const char *preset,
                                       zelto_rvo_handle *out_response);
uint32_t _cantrix_perform_lyricsearch(cantrix_query *query, zelto_rvo_handle *out_response);

// The album itself when it is a full result, else the full album fetched by
// its identifier; one reference for the caller.
uint32_t _cantrix_get_album_full_disc(cantrix_query *query, zelto_rvo_handle album, zelto_rvo_handle *out_album);
}

#endif
