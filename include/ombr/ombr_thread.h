/*
 * Threads, events and the per-thread value store of the base layer
 * (package byte 0x02). Critical sections and read-write locks of the same
 * package are declared in ombr_base.h.
 *
 * The thread package (ombr_thread_initialize) must be up to create threads.
 * Every function returns a status word; outputs are written on success only.
 * A null handle in the naming and store functions means the calling thread.
 */
#ifndef OMBR_THREAD_H
#define OMBR_THREAD_H

#include "ombr/ombr_base.h"

OMBR_BEGIN_DECLS

/* ---- Statuses --------------------------------------------------------------- */

#define OMBR_THREAD_ERR_INVALID_ARG 0x90020001u
#define OMBR_THREAD_ERR_NO_MEMORY 0x90020002u
#define OMBR_THREAD_ERR_NOT_FOUND 0x90020003u /* no such thread or store entry */
#define OMBR_THREAD_ERR_BUSY 0x90020006u
#define OMBR_THREAD_ERR_NOT_INITIALIZED 0x90020007u
#define OMBR_THREAD_ERR_BAD_MAGIC 0x90020321u
#define OMBR_THREAD_ERR_UNKNOWN 0x9002003Eu
#define OMBR_THREAD_ERR_DEADLOCK 0x90020281u
#define OMBR_THREAD_ERR_TRY_AGAIN 0x90020282u
#define OMBR_THREAD_ERR_INTERRUPTED 0x90020283u
#define OMBR_THREAD_ERR_NOT_PERMITTED 0x90020284u
#define OMBR_THREAD_TIMED_OUT 0x10020084u /* soft */

/* Timeout value of the waits that means "no limit". */
#define OMBR_THREAD_WAIT_INFINITE 0xFFFFFFFFu

/* Magic word of a thread record: the bytes "U\"D3". */
#define OMBR_THREAD_MAGIC 0x33442255u

/* ---- Threads ------------------------------------------------------------------ */

typedef struct ombr_thread *ombr_thread_t;
typedef pthread_t ombr_thread_id_t;

/* The procedure a new thread runs. */
typedef void (*ombr_thread_proc_t)(void *arg);
/* Releases a value of the thread store. */
typedef void (*ombr_thread_store_free_t)(void *value);

/* Starts a thread running proc(arg). stack_size 0 takes the default. With a
 * null out_handle the thread is detached and its record goes away by itself;
 * otherwise the handle stays valid until ombr_thread_wait_and_cleanup. */
OMBR_API uint32_t ombr_thread_create(ombr_thread_proc_t proc, uint32_t stack_size, void *arg,
                                     ombr_thread_t *out_handle);
/* priority from -5 (the policy's minimum) to 5 (its maximum). */
OMBR_API uint32_t ombr_thread_set_priority(ombr_thread_t handle, int32_t priority);
/* Joins the thread and releases the handle. OMBR_THREAD_WAIT_INFINITE waits
 * for the end; any other timeout only polls: a running thread gives
 * OMBR_THREAD_TIMED_OUT at once and the handle stays valid. */
OMBR_API uint32_t ombr_thread_wait_and_cleanup(ombr_thread_t handle, uint32_t timeout_ms);
OMBR_API uint32_t ombr_thread_sleep(uint32_t milliseconds);
OMBR_API uint32_t ombr_thread_get_id(ombr_thread_t handle, ombr_thread_id_t *out_id);

/* Names. get_name copies min(length + 1, size) bytes, so a short buffer is
 * left unterminated. A thread that was never named reads as "". */
OMBR_API uint32_t ombr_thread_set_name(ombr_thread_t handle, const char *name);
OMBR_API uint32_t ombr_thread_get_name(ombr_thread_t handle, char *buffer, uint32_t size);

/* The per-thread value store: one value and its free callback (may be null).
 * Setting runs the callback on the previous value; the callback also runs
 * when the thread's record dies. The store is not locked: it belongs to its
 * thread. */
OMBR_API uint32_t ombr_thread_store_set(ombr_thread_t handle, void *value, ombr_thread_store_free_t free_value);
OMBR_API uint32_t ombr_thread_store_get(ombr_thread_t handle, void **out_value);
OMBR_API uint32_t ombr_thread_store_clear(ombr_thread_t handle);

/* ---- Events ---------------------------------------------------------------------
 * An auto-reset event frees one waiter per signal and keeps a signal that
 * nobody waited for; a manual-reset event frees all waiters and stays set
 * until reset. Timed waits use the wall clock. */

typedef struct ombr_event *ombr_event_t;

OMBR_API uint32_t ombr_thread_event_create(ombr_event_t *out_handle, uint8_t initially_signalled,
                                           uint8_t manual_reset);
OMBR_API uint32_t ombr_thread_event_delete(ombr_event_t handle);
/* timeout_ms OMBR_THREAD_WAIT_INFINITE waits without limit; a timeout gives
 * OMBR_THREAD_TIMED_OUT. */
OMBR_API uint32_t ombr_thread_event_wait(ombr_event_t handle, uint32_t timeout_ms);
OMBR_API uint32_t ombr_thread_event_signal(ombr_event_t handle);
OMBR_API uint32_t ombr_thread_event_reset(ombr_event_t handle);

OMBR_END_DECLS

#endif
