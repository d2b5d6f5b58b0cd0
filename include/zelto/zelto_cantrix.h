/*
 * libzelto_cantrix: music identification by CD table of contents, text,
 * audio fingerprint or an earlier result.
 *
 * An application initialises the module against a manager table (see
 * zelto/zelto_manager.h for the reference host), creates a query for a user,
 * sets options and one input, and calls a find operation. The answer is a
 * result object of the manager's result-object service: a response whose
 * children are albums, tracks, contributors or lyrics (see "Responses"
 * below). Key texts are those of zelto/zelto_keys.h.
 *
 * Every function returns a 32-bit status: 0 is success, a set bit 31 is a
 * failure, 0x10xxxxxx is a soft status. Out pointers are written on success
 * only. Every public call records its outcome with the manager's
 * error-information service (a success clears the last error), except where
 * a function says otherwise; the reference host gives it back through
 * zelto_manager_errorinfo_get. Failures also pass through the base layer's
 * error hook when the module's package (0x81) has its error bit enabled.
 *
 * Threads: a query may be used from any thread; each query has a recursive
 * lock held through every call on it, so calls on one query from several
 * threads run one after the other. Different queries run in parallel. The
 * status callback runs on the thread of the find operation, inside that lock.
 */
#ifndef ZELTO_CANTRIX_H
#define ZELTO_CANTRIX_H

#include <stdint.h>

#include "zelto/zelto_services.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ZELTO_CANTRIX_API __attribute__((visibility("default")))

/* ---- Status codes ------------------------------------------------------------ *
 *
 * The module's own codes carry the package byte 0x81. A status that comes
 * from below (a service of the manager, the lookup provider, a base package)
 * reaches the application mapped into them: error value 2 becomes
 * ZELTO_CANTRIX_NO_MEMORY and error value 3 ZELTO_CANTRIX_NOT_FOUND, whatever
 * the package; failures of the manager's services become the *_FAILED codes
 * by their package; anything else becomes ZELTO_CANTRIX_FAILURE with its own
 * error value in the low 16 bits (so a soft 0x100d0361 arrives as the
 * failure 0x90810361). zelto_manager_status_text() names each of them.
 */
#define ZELTO_CANTRIX_PACKAGE 0x81u                  /* package byte of the module (bits 23 to 16) */
#define ZELTO_CANTRIX_FAILURE 0x90810000u            /* base of a mapped failure: OR its error value */
#define ZELTO_CANTRIX_INVALID_ARG 0x90810001u        /* null or empty argument, null handle, unknown key or field */
#define ZELTO_CANTRIX_NO_MEMORY 0x90810002u          /* out of memory, here or in a service */
#define ZELTO_CANTRIX_RESULT_NO_OBJECT 0x90810003u   /* the context of a result that holds no object */
#define ZELTO_CANTRIX_NOT_FOUND 0x10810003u          /* soft: no such value or child, ordinal past the end */
#define ZELTO_CANTRIX_BUSY 0x90810006u               /* called from inside the query's own status callback */
#define ZELTO_CANTRIX_NOT_INITIALIZED 0x90810007u    /* the module is down */
#define ZELTO_CANTRIX_INIT_FAILED 0x9081000au        /* bring-up failed; the cause goes to the log only */
#define ZELTO_CANTRIX_UNSUPPORTED 0x9081000bu        /* audio format, lyric query by object, unknown response key */
#define ZELTO_CANTRIX_INVALID_DATA 0x9081000cu       /* unknown language; malformed fingerprint description */
#define ZELTO_CANTRIX_NO_SERVICE 0x9081003fu         /* service absent: lookup provider of the mode, or DSP */
#define ZELTO_CANTRIX_INVALID_TOC 0x908100c4u        /* malformed table of contents */
#define ZELTO_CANTRIX_FP_KIND_UNSENDABLE 0x908101a3u /* fingerprint kind the lookup cannot send */
#define ZELTO_CANTRIX_NO_SUITABLE_INPUT 0x908101a4u  /* the query holds no input this find operation takes */
#define ZELTO_CANTRIX_BAD_MANAGER 0x90810320u        /* not a manager table of version "3.2.0" */
#define ZELTO_CANTRIX_RANGE_INVALID 0x90810361u      /* result range option below 1 */
#define ZELTO_CANTRIX_INVALID_UTF8 0x908103a0u       /* text argument that is not valid UTF-8 */
#define ZELTO_CANTRIX_LOOKUP_FAILED 0x90810400u      /* failure of the lookup service (package 4, or 20) */
#define ZELTO_CANTRIX_LISTS_FAILED 0x90810402u       /* failure of the list service (package 21) */
#define ZELTO_CANTRIX_RVO_FAILED 0x90810403u         /* failure of the result-object service (package 16) */
#define ZELTO_CANTRIX_MANAGER_FAILED 0x90810404u     /* failure of the manager itself (package 7) */
#define ZELTO_CANTRIX_SERIAL_FAILED 0x90810405u      /* failure of the serialisation service (package 14) */

/* ---- Handles and callback -------------------------------------------------------- */

typedef struct cantrix_query *zelto_cantrix_query_handle;
typedef void *zelto_user_handle;

/* Status numbers given to the status callback: lookup progress, and the
 * query's release. */
#define ZELTO_CANTRIX_STATUS_STARTED 10u  /* the provider began */
#define ZELTO_CANTRIX_STATUS_SENT 20u     /* the query went to the data source */
#define ZELTO_CANTRIX_STATUS_FOUND 30u    /* value1 hits found, value2 of them in the asked range */
#define ZELTO_CANTRIX_STATUS_BUILDING 40u /* value1 results built of value2 */
#define ZELTO_CANTRIX_STATUS_READY 50u    /* the provider's answer is ready */
#define ZELTO_CANTRIX_STATUS_DONE 100u    /* the lookup is over */
#define ZELTO_CANTRIX_STATUS_RELEASE 999u /* the query is being released */

/* Called on the caller's thread while a lookup runs (the progress numbers
 * above; value1 and value2 are counters for FOUND and BUILDING when the
 * provider sends them, else 0) and once at release (999, with 0 and 0). The
 * application may set *abort to 1 during a lookup to ask the provider to
 * stop; the find operation then fails with the provider's status. From
 * inside the callback the query's setters work; a find operation or release
 * on the same query fails with ZELTO_CANTRIX_BUSY. */
typedef void (*zelto_cantrix_status_callback)(void *callback_data, zelto_cantrix_query_handle query, uint32_t status,
                                              uint32_t value1, uint32_t value2, uint8_t *abort);

/* ---- Module lifecycle ------------------------------------------------------------------ */

/* Brings the module up against a manager table; reference counted, so every
 * successful call needs one zelto_cantrix_shutdown. The first call brings up
 * the base packages and fetches the service tables; the signal-processing
 * service may be missing. Statuses: ZELTO_CANTRIX_INVALID_ARG (null table),
 * ZELTO_CANTRIX_BAD_MANAGER, ZELTO_CANTRIX_INIT_FAILED. Reports through the
 * error hook only, never the error-information service. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_initialize(const zelto_manager_table *manager);
/* Undoes one initialise; the last gives the service tables back and takes
 * the base packages down. Queries and response objects must be released
 * first, and the manager must outlive the module. Statuses:
 * ZELTO_CANTRIX_NOT_INITIALIZED when the module is down. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_shutdown(void);
/* Number of initialise calls not yet matched by a shutdown (0: down). Not a
 * status. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_initchecks(void);
/* Constant texts, "3.2.0.422" and "2013-01-08 07:56-0800"; they work while
 * the module is down. */
ZELTO_CANTRIX_API const char *zelto_cantrix_get_version(void);
ZELTO_CANTRIX_API const char *zelto_cantrix_get_build_date(void);

/* ---- Query handle ------------------------------------------------------------------------ *
 *
 * Every call on a query below gives ZELTO_CANTRIX_NOT_INITIALIZED while the
 * module is down, and ZELTO_CANTRIX_INVALID_ARG for a null query (or the
 * mapped status of the handle manager for one that is not live).
 */

/* Creates a query for a user (a live user handle of the manager, on which
 * the query takes a reference) with an optional status callback and its
 * data. The lookup mode starts as the user's ZELTO_USEROPTION_LOOKUP_MODE
 * (unset acts as online). The handle belongs to the application until
 * zelto_cantrix_query_release. Statuses: ZELTO_CANTRIX_INVALID_ARG (null
 * out pointer or user), the mapped status of an invalid user,
 * ZELTO_CANTRIX_NO_MEMORY. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_create(zelto_user_handle user, zelto_cantrix_status_callback callback,
                                                      void *callback_data, zelto_cantrix_query_handle *out_query);
/* Calls the callback with ZELTO_CANTRIX_STATUS_RELEASE, then destroys the
 * query and gives its references back. Null succeeds and reports nothing; a
 * success records nothing either. Statuses: ZELTO_CANTRIX_BUSY from inside
 * the query's own callback (the query lives on). Result objects found
 * through the query stay valid. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_release(zelto_cantrix_query_handle query);

/* ---- Options ------------------------------------------------------------------------- *
 *
 * Keys are the ZELTO_CANTRIX_OPTION_* texts of zelto/zelto_keys.h, compared
 * without regard to ASCII case; values are texts, stored as given. Options
 * outlive input changes and find operations.
 *   LOOKUP_MODE       one of the ZELTO_LOOKUPMODE_* texts, with case
 *   RANGE_START/_SIZE first result and number of results, each 1 or more
 *                     (read as numbers; unset means 1 and 10)
 *   PREFERRED_LANG    a language the list service knows; results are asked
 *                     for in it
 *   ENABLE_CLASSICAL, _GLOBALIDS, _DSP, _SONIC, _PLAYLIST, _LINK, _AIM
 *                     booleans that set or clear a ZELTO_DATA_* bit of the
 *                     query (DSP, SONIC and PLAYLIST share one bit: the last
 *                     set decides)
 *   SINGLE_RESULT     boolean: keep the best result only
 *   PREFER_XID, PREFER_COVERART, OUTPUT, ADDITIONAL_CREDITS
 *                     passed to the provider
 *   REVISION_CHECK    boolean: an object lookup asks for a newer revision only
 *   SEARCH_PRESET     makes the album, track and lyric finds preset searches
 * SEARCH_PRESET, OUTPUT and ADDITIONAL_CREDITS can be set but not read back.
 */

/* Statuses: ZELTO_CANTRIX_INVALID_ARG (empty or unknown key, mode text that
 * is none of the three; an empty key is reported through the error hook
 * only), ZELTO_CANTRIX_RANGE_INVALID, ZELTO_CANTRIX_INVALID_DATA (unknown
 * language), ZELTO_CANTRIX_NO_MEMORY. A refused value changes nothing. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_option_set(zelto_cantrix_query_handle query, const char *key,
                                                          const char *value);
/* The value as set, or the option's default ("1" for RANGE_START, "false"
 * for the booleans, the current mode for LOOKUP_MODE, null for the others).
 * The text is borrowed from the query: valid until the option changes or the
 * query is released. Statuses: ZELTO_CANTRIX_INVALID_ARG (empty, unknown or
 * write-only key, null out pointer). */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_option_get(zelto_cantrix_query_handle query, const char *key,
                                                          const char **out_value);

/* ---- Inputs ------------------------------------------------------------------------ *
 *
 * A query holds one input; a setter that starts a new one drops the others,
 * except that a table of contents and a fingerprint may stand together.
 */

/* Appends one offset to the table of contents (starting a new table when the
 * query holds none). Offsets must rise; the first may be 0; at most 100.
 * Statuses: ZELTO_CANTRIX_INVALID_TOC (not above the last, or the 101st; the
 * table stays as it was), ZELTO_CANTRIX_INVALID_ARG (fingerprint data and no
 * table), ZELTO_CANTRIX_NO_MEMORY. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_add_toc_offset(zelto_cantrix_query_handle query, uint32_t offset);
/* Sets the table of contents from a text such as "150 14672 27367 41225":
 * decimal numbers separated by blanks (0x20), strictly rising from at least
 * 1, each at most 1000000, at least two (the tracks' offsets, then the
 * lead-out). The text is copied. Statuses: ZELTO_CANTRIX_INVALID_ARG (null or
 * empty), ZELTO_CANTRIX_INVALID_UTF8, ZELTO_CANTRIX_INVALID_TOC (the numbers
 * read before the bad one stay), ZELTO_CANTRIX_NO_MEMORY. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_set_toc_string(zelto_cantrix_query_handle query,
                                                              const char *toc_string);

/* Sets one text field: a ZELTO_CANTRIX_FIELD_* key (compared exactly, with
 * case) and UTF-8 text, copied. The first field drops any other input; later
 * fields add to it, and setting a field again replaces it. A null or empty
 * text counts as an absent field. Statuses: ZELTO_CANTRIX_INVALID_ARG (empty
 * or unknown field), ZELTO_CANTRIX_INVALID_UTF8, ZELTO_CANTRIX_NO_MEMORY. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_set_text(zelto_cantrix_query_handle query, const char *search_field,
                                                        const char *search_text);
/* Sets a result object of an earlier answer (an album, track or other object
 * with an identifier) as the input; the query takes its own reference, so
 * the application may release its own at once. Statuses:
 * ZELTO_CANTRIX_INVALID_ARG (null object), the mapped status of an object
 * that is not live. */
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
 * zelto_host_services.h). The kind texts are those of zelto/zelto_keys.h.
 */
/* Starts generating a fingerprint of a ZELTO_CANTRIX_FP_* kind from PCM
 * audio through the manager's signal-processing service. Widths 8, 16 or 32
 * bits, 1 or 2 channels; rate, width and channels must not be 0. Drops the
 * other inputs unless a table of contents is set, which then stays beside
 * the fingerprint. Statuses: ZELTO_CANTRIX_INVALID_ARG (empty kind, a zero
 * number, unknown kind), ZELTO_CANTRIX_NO_SERVICE (no signal processing),
 * ZELTO_CANTRIX_UNSUPPORTED (width or channels; the query is unchanged), the
 * mapped status of a generator that cannot be made. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_fingerprint_begin(zelto_cantrix_query_handle query, const char *fp_kind,
                                                                 uint32_t sample_rate, uint32_t bits_per_sample,
                                                                 uint32_t channels);
/* Streams samples (size in bytes) to the generator; the module keeps no
 * copy. *out_complete (may be null) becomes 1 once the generator says so or
 * has delivered as many blocks as a full-length fingerprint needs; further
 * writes are still taken. Not tested for a module that is down. Statuses:
 * ZELTO_CANTRIX_NO_SERVICE, the mapped status of the generator. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_fingerprint_write(zelto_cantrix_query_handle query,
                                                                 const void *sample_data, uint32_t size,
                                                                 uint8_t *out_complete);
/* Ends generation and builds the fingerprint text from the blocks. With no
 * blocks there is no text, and the find operations see no fingerprint. Not
 * tested for a module that is down. Statuses: ZELTO_CANTRIX_NO_SERVICE,
 * ZELTO_CANTRIX_INVALID_DATA (an XML kind whose text names no algorithm),
 * ZELTO_CANTRIX_NO_MEMORY. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_fingerprint_end(zelto_cantrix_query_handle query);
/* Sets a ready-made fingerprint: plain, or "ZTFP" followed by the
 * serialisation service's text of an XML description (see
 * zelto_manager_fp_serialize). A text that parses as XML becomes kind
 * ZELTO_CANTRIX_FP_ZFPX; other plain text stands as given under fp_kind.
 * Both texts are copied. Needs no signal-processing service. Statuses:
 * ZELTO_CANTRIX_INVALID_ARG (empty data or kind), ZELTO_CANTRIX_INVALID_UTF8,
 * ZELTO_CANTRIX_INVALID_DATA (a "ZTFP" payload or ZFPX text that is not an
 * XML description with its algorithm), the mapped status of serial_decode,
 * ZELTO_CANTRIX_NO_MEMORY. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_set_fp_data(zelto_cantrix_query_handle query, const char *fp_data,
                                                           const char *fp_kind);
/* The fingerprint text (may be null; out_text may be null too); called
 * between write and end, the text of the blocks so far. The text is borrowed
 * from the query until its inputs change. Statuses: ZELTO_CANTRIX_NO_SERVICE
 * (no signal processing, even for data that was set), those of
 * zelto_cantrix_query_fingerprint_end. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_get_fp_data(zelto_cantrix_query_handle query, const char **out_text);

/* ---- Find operations ------------------------------------------------------------------ *
 *
 * Each runs one lookup through the lookup provider of the query's mode, on
 * the caller's thread, and gives a new result object with one reference for
 * the application, released through the result-object service's rvo_release
 * (zelto_manager_rvo_release in the reference host). The object stays valid
 * after the query is released. Common statuses: ZELTO_CANTRIX_INVALID_ARG
 * (null out pointer), ZELTO_CANTRIX_BUSY (called from the query's own
 * callback), ZELTO_CANTRIX_NO_SUITABLE_INPUT (no input this operation
 * takes), ZELTO_CANTRIX_NO_SERVICE (no provider for the mode), and the mapped
 * status of a failing provider call (an abort included) or of an answer
 * without a response code. "No match" is a success with no rows.
 */

/* Albums, by the first input that holds: search preset, object, text fields,
 * table of contents, fingerprint. A lone album is completed by a second
 * lookup. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_find_albums(zelto_cantrix_query_handle query,
                                                           zelto_rvo_handle *out_response);
/* Tracks, by search preset, object, text fields or fingerprint; a table of
 * contents is no input here. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_find_tracks(zelto_cantrix_query_handle query,
                                                           zelto_rvo_handle *out_response);
/* Albums and contributors that match the text fields, best first. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_find_matches(zelto_cantrix_query_handle query,
                                                            zelto_rvo_handle *out_response);
/* Lyrics, by search preset or text fields (artist, title or lyric title,
 * fragment). An object input gives ZELTO_CANTRIX_UNSUPPORTED. */
ZELTO_CANTRIX_API uint32_t zelto_cantrix_query_find_lyrics(zelto_cantrix_query_handle query,
                                                           zelto_rvo_handle *out_response);

/* ---- Responses -------------------------------------------------------------------------- *
 *
 * A response's context is ZELTO_CTX_RESPONSE_ALBUM, _TRACK, _MATCH or
 * _LYRIC. Its values: ZELTO_VAL_RESULTCOUNT, ZELTO_VAL_RANGESTART,
 * ZELTO_VAL_RANGEEND, ZELTO_VAL_RANGECOUNT, ZELTO_VAL_DECISION (other keys:
 * ZELTO_CANTRIX_UNSUPPORTED). Its rows are children under ZELTO_CHILD_ALBUM,
 * _TRACK, _LYRIC, _CONTRIBUTOR or _RESPONSE_MATCH, in final order. A row
 * forwards to the provider's object and adds what the find operation knew:
 * ZELTO_VAL_LOOKUP_TYPE, ZELTO_VAL_MATCH_TYPE, ZELTO_VAL_LOOKUP_LANG,
 * ZELTO_VAL_TOC_ALBUM and its score ZELTO_VAL_TXTMATCHSCORE. Texts read from
 * a response or a row are borrowed from that object.
 */

/* Provider tables of the module's response and result records. */
ZELTO_CANTRIX_API extern const zelto_rvo_provider g_cantrix_rvo_response_provider;
ZELTO_CANTRIX_API extern const zelto_rvo_provider g_cantrix_rvo_result_provider;

#ifdef __cplusplus
}
#endif

#endif
