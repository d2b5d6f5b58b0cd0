/*
 * libzelto_cantrix: music identification by CD table of contents, text,
 * audio fingerprint or an earlier result.
 *
 * Every function returns a 32-bit status: 0 is success, bit 31 set is a
 * failure, 0x10xxxxxx is a soft status. The module must be initialised
 * against a manager table (see zelto/zelto_manager.h for the reference host)
 * before any query is made.
 */
#ifndef ZELTO_CANTRIX_H
#define ZELTO_CANTRIX_H

#include <stdint.h>

#include "zelto/zelto_services.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ZELTO_CANTRIX_API __attribute__((visibility("default")))

/* ---- Status codes ------------------------------------------------------------ */
#define ZELTO_CANTRIX_INVALID_ARG 0x90810001u
#define ZELTO_CANTRIX_NO_MEMORY 0x90810002u
#define ZELTO_CANTRIX_RESULT_NO_OBJECT 0x90810003u
#define ZELTO_CANTRIX_NOT_FOUND 0x10810003u
#define ZELTO_CANTRIX_BUSY 0x90810006u
#define ZELTO_CANTRIX_NOT_INITIALIZED 0x90810007u
#define ZELTO_CANTRIX_INIT_FAILED 0x9081000au
#define ZELTO_CANTRIX_UNSUPPORTED 0x9081000bu
#define ZELTO_CANTRIX_INVALID_DATA 0x9081000cu
#define ZELTO_CANTRIX_NO_SERVICE 0x9081003fu
#define ZELTO_CANTRIX_INVALID_TOC 0x908100c4u
#define ZELTO_CANTRIX_FP_KIND_UNSENDABLE 0x908101a3u
#define ZELTO_CANTRIX_NO_SUITABLE_INPUT 0x908101a4u
#define ZELTO_CANTRIX_BAD_MANAGER 0x90810320u
#define ZELTO_CANTRIX_RANGE_INVALID 0x90810361u
#define ZELTO_CANTRIX_INVALID_UTF8 0x908103a0u

/* Status numbers given to the status callback. */
#define ZELTO_CANTRIX_STATUS_RELEASE 999u

/* ---- Handles and callback ------------------------------------------------------ */

typedef struct cantrix_query *zelto_cantrix_query_handle;
typedef void *zelto_user_handle;

/* Called on the caller's thread while a lookup runs (status 10 to 100 with
 * progress counters) and once at release (status 999). The application may
 * set *abort to 1 during a lookup to ask for it to stop. */
typedef void (*zelto_cantrix_status_callback)(void *callback_data, zelto_cantrix_query_handle query, uint32_t status,
                                              uint32_t value1, uint32_t value2, uint8_t *abort);

/* ---- Module lifecycle ------------------------------------------------------------ */

ZELTO_CANTRIX_API uint32_t zelto_cantrix_initialize(const zelto_manager_table *manager);
ZELTO_CANTRIX_API uint32_t zelto_cantrix_shutdown(void);
/* Number of initialise calls not yet matched by a shutdown (0: down). */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_initchecks(void);
ZELTO_CANTRIX_API const char *zelto_cantrix_get_version(void);
ZELTO_CANTRIX_API const char *zelto_cantrix_get_build_date(void);

/* ---- Query handle ------------------------------------------------------------------ */

ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_create(zelto_user_handle user, zelto_cantrix_status_callback callback,
                                                      void *callback_data, zelto_cantrix_query_handle *out_query);
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_release(zelto_cantrix_query_handle query);

/* ---- Options --------------------------------------------------------------------- */

/* Keys are compared without regard to ASCII case. The value returned by get
 * stays valid until the option changes or the query is released. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_option_set(zelto_cantrix_query_handle query, const char *key,
                                                          const char *value);
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_option_get(zelto_cantrix_query_handle query, const char *key,
                                                          const char **out_value);

/* ---- Inputs ---------------------------------------------------------------------- */

/* Table of contents, offset by offset (at most 100) or as text such as
 * "150 14672 27367 41225" (rising numbers up to 1000000, at least two). */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_add_toc_offset(zelto_cantrix_query_handle query, uint32_t offset);
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_set_toc_string(zelto_cantrix_query_handle query,
                                                              const char *toc_string);

/* Text fields: "zelto_cantrix_field_artist", "zelto_cantrix_field_album",
 * "zelto_cantrix_field_title", "zelto_cantrix_field_composer",
 * "zelto_cantrix_field_fragment", "zelto_cantrix_field_album_artist",
 * "zelto_cantrix_field_track_artist", "zelto_cantrix_field_lyric" (exact
 * case). The first field drops any other input; later fields add to it. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_set_text(zelto_cantrix_query_handle query, const char *search_field,
                                                        const char *search_text);
/* A result object of an earlier answer; the query takes its own reference. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_set_rvo(zelto_cantrix_query_handle query, zelto_rvo_handle object);

/* ---- Fingerprint input ------------------------------------------------------------- *
 *
 * Audio is described by a fingerprint of one of these kinds (compared with
 * case when generating). The kind decides the generator's algorithm and
 * how a find operation sends the text:
 *
 *   kind                       algorithm  text                    sent as
 *   ZELTO_CANTRIX_FP_TVX       1          opaque                  tvx query data
 *   ZELTO_CANTRIX_FP_FILE      1          opaque                  tvx query data
 *   ZELTO_CANTRIX_FP_ZFPX      3          XML description         fpx query data, with
 *   ZELTO_CANTRIX_FP_3STREAM   3          XML description           the algorithm's name
 *   ZELTO_CANTRIX_FP_6STREAM   5          XML description           and version
 *
 * An XML description has any root element with a child ALGORITHM whose
 * elements NAME and VERSION give the algorithm's name and version; the rest
 * is the signal-processing service's (the reference host's forms are in
 * zelto_host_services.h).
 */
#define ZELTO_CANTRIX_FP_TVX "zelto_cantrix_fp_tvx"
#define ZELTO_CANTRIX_FP_FILE "zelto_cantrix_fp_file"
#define ZELTO_CANTRIX_FP_ZFPX "zelto_cantrix_fp_zfpx"
#define ZELTO_CANTRIX_FP_3STREAM "zelto_cantrix_fp_3stream"
#define ZELTO_CANTRIX_FP_6STREAM "zelto_cantrix_fp_6stream"

/* Starts generating a fingerprint from PCM audio through the manager's
 * signal-processing service (ZELTO_CANTRIX_NO_SERVICE without it). Widths
 * 8, 16 or 32 bits, 1 or 2 channels (ZELTO_CANTRIX_UNSUPPORTED otherwise);
 * rate, width and channels must not be 0. Drops the other inputs unless a
 * table of contents is set, which then stays beside the fingerprint. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_fingerprint_begin(zelto_cantrix_query_handle query, const char *fp_kind,
                                                                 uint32_t sample_rate, uint32_t bits_per_sample,
                                                                 uint32_t channels);
/* Streams samples (size in bytes) to the generator; the module keeps no
 * copy. *out_complete (may be null) becomes 1 once the generator says so or
 * has delivered as many blocks as a full-length fingerprint needs; further
 * writes are still taken. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_fingerprint_write(zelto_cantrix_query_handle query,
                                                                 const void *sample_data, uint32_t size,
                                                                 uint8_t *out_complete);
/* Ends generation and builds the fingerprint text from the blocks. With no
 * blocks there is no text, and the find operations see no fingerprint. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_fingerprint_end(zelto_cantrix_query_handle query);
/* Sets a ready-made fingerprint: plain, or "ZTFP" followed by the
 * serialisation service's text of an XML description (see
 * zelto_manager_fp_serialize). A text that parses as XML becomes kind
 * ZELTO_CANTRIX_FP_ZFPX; other plain text stands as given under fp_kind.
 * Needs no signal-processing service. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_set_fp_data(zelto_cantrix_query_handle query, const char *fp_data,
                                                           const char *fp_kind);
/* The fingerprint text (may be null); called between write and end, the
 * text of the blocks so far. The text stays the query's until its inputs
 * change. Needs the signal-processing service even for data that was set. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_get_fp_data(zelto_cantrix_query_handle query, const char **out_text);

/* ---- Find operations -------------------------------------------------------------- */

/* Each gives a new result object with one reference for the application,
 * to be released through the result-object service. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_find_albums(zelto_cantrix_query_handle query,
                                                           zelto_rvo_handle *out_response);
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_find_tracks(zelto_cantrix_query_handle query,
                                                           zelto_rvo_handle *out_response);
/* Albums and contributors that match the text fields, best first. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_find_matches(zelto_cantrix_query_handle query,
                                                            zelto_rvo_handle *out_response);
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_find_lyrics(zelto_cantrix_query_handle query,
                                                           zelto_rvo_handle *out_response);

/* ---- Provider tables of the module's response and result records ------------------- */

ZELTO_CANTRIX_API extern const zelto_rvo_provider g_cantrix_rvo_response_provider;
ZELTO_CANTRIX_API extern const zelto_rvo_provider g_cantrix_rvo_result_provider;

#ifdef __cplusplus
}
#endif

#endif
