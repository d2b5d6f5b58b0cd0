/*
 * Reference host ("manager") for libzelto_cantrix.
 *
 * The host owns the memory layer, the log hooks and the service tables that
 * the module fetches by name. An application gets the manager table from
 * zelto_manager_get_table(), hands it to zelto_cantrix_initialize(), creates
 * users here and reads the last error of its thread here.
 *
 * Test controls (allocation failure, absent services, failing fetches) are
 * part of the host's API so that applications can exercise their own error
 * paths as well.
 */
#ifndef ZELTO_MANAGER_H
#define ZELTO_MANAGER_H

#include <stddef.h>
#include <stdint.h>

#include "zelto/zelto_services.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ZELTO_MANAGER_API __attribute__((visibility("default")))

/* The process-wide manager table. */
ZELTO_MANAGER_API const zelto_manager_table *zelto_manager_get_table(void);

/* ---- Memory ------------------------------------------------------------- */

/* Blocks handed out by ombr_memory_alloc/realloc and not yet freed. */
ZELTO_MANAGER_API int64_t zelto_manager_memory_live_blocks(void);
/* Allocations (alloc and realloc calls) made since the process started. */
ZELTO_MANAGER_API uint64_t zelto_manager_memory_alloc_count(void);
/* Make the n-th allocation from now fail (1 = the next one); 0 switches
 * injection off. Only that one allocation fails. */
ZELTO_MANAGER_API void zelto_manager_memory_fail_nth(uint64_t n);
/* Whether an injected failure has fired since injection was last armed
 * (fail_nth with n > 0); switching injection off keeps the answer. */
ZELTO_MANAGER_API int zelto_manager_memory_failure_fired(void);
/* Make ombr_memory_initialize fail (non-zero) or succeed (0). */
ZELTO_MANAGER_API void zelto_manager_memory_fail_initialize(int fail);
/* Reference count of the memory layer (initialize minus shutdown). */
ZELTO_MANAGER_API uint32_t zelto_manager_memory_init_count(void);

/* ---- Services ------------------------------------------------------------ */

/* Statuses of the manager itself (package 7). */
#define ZELTO_MANAGER_BAD_ARG 0x90070001u    /* null argument, unknown mode or table */
#define ZELTO_MANAGER_NO_SERVICE 0x90070003u /* interface_get: no such service, or it is disabled */

/* Enable or disable a service by name (all are enabled at load). A disabled
 * service makes interface_get fail with ZELTO_MANAGER_NO_SERVICE. */
ZELTO_MANAGER_API void zelto_manager_service_enable(const char *name, int enabled);
/* Make interface_get for that name fail with the given status (0 clears). */
ZELTO_MANAGER_API void zelto_manager_service_fail(const char *name, uint32_t status);
/* Restore every service to enabled and not failing. */
ZELTO_MANAGER_API void zelto_manager_services_reset(void);
/* Table references handed out by interface_get and not yet released, for
 * one name or, with a null name, for all. */
ZELTO_MANAGER_API int32_t zelto_manager_service_refs(const char *name);
/* Make register_package fail with the given status (0 clears). */
ZELTO_MANAGER_API void zelto_manager_register_fail(uint32_t status);
/* Name registered for a package number, or null. */
ZELTO_MANAGER_API const char *zelto_manager_package_name(uint32_t number);

/* ---- Status texts ----------------------------------------------------------- */

/* A short English text naming a status word: the module's codes as
 * applications receive them (ZELTO_CANTRIX_* of zelto/zelto_cantrix.h) and
 * the host's own (manager, services, catalogue, script provider). "success"
 * for 0; "failure" or "soft status" for a word it does not know. The text is
 * static. */
ZELTO_MANAGER_API const char *zelto_manager_status_text(uint32_t status);

/* ---- Error information ---------------------------------------------------- */

/* The last error recorded for the calling thread. Any out pointer may be null.
 * Returns the mapped status (0 when the last call succeeded). The texts stay
 * valid until the next error is recorded on this thread. */
ZELTO_MANAGER_API uint32_t zelto_manager_errorinfo_get(uint32_t *source_status, const char **function,
                                                      const char **message);
/* One of the last eight records of this thread as they were made (before a
 * success cleared them): back 0 is the newest. Out pointers may be null. */
ZELTO_MANAGER_API uint32_t zelto_manager_errorinfo_history(uint32_t back, uint32_t *source_status,
                                                          const char **function, const char **message);
/* How many times errorinfo_set or errorinfo_set_format was called on this thread. */
ZELTO_MANAGER_API uint64_t zelto_manager_errorinfo_calls(void);

/* ---- Handles --------------------------------------------------------------- */

/* Number of live handles registered through handle_add. */
ZELTO_MANAGER_API uint32_t zelto_manager_handle_count(void);

/* ---- Users ----------------------------------------------------------------- */

typedef struct zelto_user zelto_user;

/* Creates a user with one reference. */
ZELTO_MANAGER_API uint32_t zelto_manager_user_create(const char *name, zelto_user **out_user);
/* Sets a user option, such as "zelto_useroption_lookup_mode". A null value
 * removes it. */
ZELTO_MANAGER_API uint32_t zelto_manager_user_option_set(zelto_user *user, const char *key, const char *value);
ZELTO_MANAGER_API uint32_t zelto_manager_user_addref(zelto_user *user);
/* Gives a reference back; the user is destroyed with the last one. */
ZELTO_MANAGER_API uint32_t zelto_manager_user_release(zelto_user *user);
/* Current reference count, 0 for a user that is not live. */
ZELTO_MANAGER_API uint32_t zelto_manager_user_refcount(const zelto_user *user);

#ifdef __cplusplus
}
#endif

#endif
