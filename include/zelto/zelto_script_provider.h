/*
 * Scriptable lookup provider of the reference host, for tests.
 *
 * A script is a lookup provider whose answers are set up in advance and
 * which records every request made to it. Install it for a mode (1 online,
 * 2 local) and the manager's interface_get for "_zelto_lookup_interface"
 * hands out its table; a script has one table per mode, so the mode of each
 * request is known.
 *
 * Answers are queued; each execute that runs takes the next one:
 *  - the result tree that get_result exposes (a new result object with one
 *    reference for the caller on every call, with the user given to execute
 *    and the locale group "zelto_locale_music"), or none;
 *  - status events that execute sends through the request's callback, in
 *    order (with code 13, value1 is the error code and value2 points to the
 *    error text, which lives as long as the script);
 *  - the status execute returns after the events (0 by default); a request
 *    whose execute did not return 0 has no result.
 * With no answer queued, execute succeeds without events and there is no
 * result. get_result with no result, or with an identifier that no add
 * declared, gives ZELTO_SCRIPT_NO_RESULT (soft, error value 3).
 *
 * Abort: the callback gets a pointer to an 8-bit flag that starts at 0 for
 * each execute. When the callback leaves it at 1, no further event is sent
 * and execute returns ZELTO_SCRIPT_ABORTED.
 *
 * Data flags: the result object gets the data-flag bits of the options
 * that were set to "1": "zelto_lookup_option_link" 0x400000,
 * "zelto_lookup_option_globalids" 0x800000, "zelto_lookup_option_playlist"
 * 0x1000000, "zelto_lookup_option_class" 0x4000000, "zelto_lookup_option_aim"
 * 0x8000000; tree values that need other bits are withheld.
 *
 * Failure injection: any slot (create, add, set_data, set_option, execute,
 * get_result) can be made to return a status, on every call or only at the
 * n-th call from now. A failing call does nothing but is recorded, except a
 * failing create, which makes no request (it counts in the slot's calls).
 * An execute that fails this way takes no answer and sends no event.
 *
 * Recording: each created request has a record with its mode, user and
 * every call in order. Its transcript is one line per call:
 *
 *     mode 1
 *     add zelto_lookup_type_album CNX_1 cnx 0
 *     data CNX_1 zelto_lookup_data_toc "150 14672 27367 41225" copy 1
 *     option CNX_1 zelto_lookup_option_language "eng"
 *     execute user "alice"
 *     get_result CNX_1
 *     release
 *
 * Values are quoted with the escapes of zelto_manager_rvo_dump; a null text
 * is written null (unquoted), as is a null or foreign user. A call that
 * failed ends in " -> 0xXXXXXXXX". An execute that was aborted is followed
 * by the line "aborted after event N" (N from 1). Values are copied, whatever
 * the copy flag says.
 *
 * All calls are thread-safe; the callback runs on the thread of execute with
 * no lock of the script held. A script's tables stay callable after the
 * script is destroyed: their request slots then refuse with
 * ZELTO_SCRIPT_BAD_ARG, and slot 0 still gives the reference back.
 */
#ifndef ZELTO_SCRIPT_PROVIDER_H
#define ZELTO_SCRIPT_PROVIDER_H

#include <stdint.h>

#include "zelto/zelto_host_services.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ZELTO_SCRIPT_BAD_ARG ZELTO_LOOKUP_BAD_ARG
#define ZELTO_SCRIPT_NO_RESULT ZELTO_LOOKUP_NO_RESULT
#define ZELTO_SCRIPT_ABORTED ZELTO_LOOKUP_ABORTED

/* Slot numbers for failure injection and call counts. */
#define ZELTO_SCRIPT_SLOT_CREATE 2u
#define ZELTO_SCRIPT_SLOT_ADD 3u
#define ZELTO_SCRIPT_SLOT_SET_DATA 4u
#define ZELTO_SCRIPT_SLOT_SET_OPTION 7u
#define ZELTO_SCRIPT_SLOT_EXECUTE 8u
#define ZELTO_SCRIPT_SLOT_GET_RESULT 9u
#define ZELTO_SCRIPT_SLOT_RELEASE 11u

typedef struct zelto_script zelto_script;

ZELTO_MANAGER_API uint32_t zelto_script_create(zelto_script **out_script);
/* Uninstalls the script from every mode it is installed for, releases its
 * answers and forgets its requests. Null is accepted. */
ZELTO_MANAGER_API void zelto_script_destroy(zelto_script *script);
/* The script's table for mode 1 or 2 (null for another mode). */
ZELTO_MANAGER_API const zelto_lookup_interface *zelto_script_table(zelto_script *script, uint32_t mode);
/* Installs the script's table for mode 1 or 2, or for both with mode 0
 * (zelto_manager_lookup_set_provider). */
ZELTO_MANAGER_API uint32_t zelto_script_install(zelto_script *script, uint32_t mode);
/* Forgets answers, records, failures and call counts. */
ZELTO_MANAGER_API uint32_t zelto_script_reset(zelto_script *script);

/* ---- Answers ---- */

/* Queues an answer with a result tree (a reference is taken; null for no
 * result). Writes the answer's index (from 0) if out_index is not null. */
ZELTO_MANAGER_API uint32_t zelto_script_answer(zelto_script *script, zelto_manager_tree *result, uint32_t *out_index);
/* Appends a status event to an answer. */
ZELTO_MANAGER_API uint32_t zelto_script_answer_event(zelto_script *script, uint32_t index, uint32_t kind,
                                                    uint32_t code, uint32_t value1, uint32_t value2);
/* Appends an error event: code 13, value1 the error code, value2 the text
 * (copied; null gives a null pointer). */
ZELTO_MANAGER_API uint32_t zelto_script_answer_error(zelto_script *script, uint32_t index, uint32_t kind,
                                                    uint32_t error_code, const char *text);
/* Status that execute returns after the answer's events (0 by default). */
ZELTO_MANAGER_API uint32_t zelto_script_answer_status(zelto_script *script, uint32_t index, uint32_t status);
/* Answers queued and not yet taken. */
ZELTO_MANAGER_API uint32_t zelto_script_answers_pending(zelto_script *script);

/* ---- Failure injection ---- */

/* Makes a slot return `status`: on every call from now if nth is 0, else only
 * at the nth call from now (1 = the next one). Status 0 clears it. */
ZELTO_MANAGER_API uint32_t zelto_script_fail(zelto_script *script, uint32_t slot, uint32_t status, uint32_t nth);
/* Calls made to a slot since creation or reset, failed ones included. */
ZELTO_MANAGER_API uint32_t zelto_script_calls(zelto_script *script, uint32_t slot);

/* ---- Records ---- */

/* Requests created since creation or reset, in order. */
ZELTO_MANAGER_API uint32_t zelto_script_request_count(zelto_script *script);
/* Requests created and not yet released. */
ZELTO_MANAGER_API uint32_t zelto_script_live_requests(zelto_script *script);
/* Transcript of request i (format above), or null. Valid until the next
 * call for the same request, or reset. */
ZELTO_MANAGER_API const char *zelto_script_request_text(zelto_script *script, uint32_t index);
/* Mode (1 or 2) of request i, 0 if there is none. */
ZELTO_MANAGER_API uint32_t zelto_script_request_mode(zelto_script *script, uint32_t index);
/* User handle given to the last execute of request i, or null. */
ZELTO_MANAGER_API void *zelto_script_request_user(zelto_script *script, uint32_t index);
/* Number of recorded calls of request i (add, data, option, execute,
 * get_result, release). */
ZELTO_MANAGER_API uint32_t zelto_script_request_call_count(zelto_script *script, uint32_t index);
/* Call n (from 0) of request i: its name ("add", "data", "option",
 * "execute", "get_result", "release"), request identifier, key (lookup type
 * for add), value (group for add; user name for execute), number (group
 * flag for add, copy flag for data) and status. Any out pointer may be null.
 * Texts live as long as the record; a null text stays null. */
ZELTO_MANAGER_API uint32_t zelto_script_request_call(zelto_script *script, uint32_t index, uint32_t n,
                                                    const char **out_name, const char **out_id,
                                                    const char **out_key, const char **out_value,
                                                    uint32_t *out_number, uint32_t *out_status);
/* Lookup type of the first successful add of request i, or null. */
ZELTO_MANAGER_API const char *zelto_script_request_lookup_type(zelto_script *script, uint32_t index);
/* Value of the first successful data call with that key in request i, or
 * null (also when the value itself was null). */
ZELTO_MANAGER_API const char *zelto_script_request_data(zelto_script *script, uint32_t index, const char *key);
/* Value of the first successful option call with that key, or null. */
ZELTO_MANAGER_API const char *zelto_script_request_option(zelto_script *script, uint32_t index, const char *key);

#ifdef __cplusplus
}
#endif

#endif
