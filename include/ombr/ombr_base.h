/*
 * Base layer essentials: status words, the imported memory layer and log
 * hooks, the package frame, spinlocks, atomics, critical sections and
 * read-write locks.
 */
#ifndef OMBR_BASE_H
#define OMBR_BASE_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define OMBR_EXTERN_C extern "C"
#define OMBR_BEGIN_DECLS extern "C" {
#define OMBR_END_DECLS }
#else
#define OMBR_EXTERN_C extern
#define OMBR_BEGIN_DECLS
#define OMBR_END_DECLS
#endif

#define OMBR_VISIBLE __attribute__((visibility("default")))
#define OMBR_API OMBR_EXTERN_C OMBR_VISIBLE

OMBR_BEGIN_DECLS

typedef uint32_t ombr_status_t;

/* Status word layout: severity byte, package byte, 16-bit error value. */
#define OMBR_STATUS_FAILED(s) ((((uint32_t)(s)) & 0x80000000u) != 0)
#define OMBR_STATUS_PKG(s) ((((uint32_t)(s)) >> 16) & 0xFFu)
#define OMBR_STATUS_VALUE(s) (((uint32_t)(s)) & 0xFFFFu)

/* Package bytes of the base layer. */
#define OMBR_PKG_THREAD 0x02u
#define OMBR_PKG_FS 0x03u
#define OMBR_PKG_STRING 0x05u
#define OMBR_PKG_TEXTCORR 0x0Bu
#define OMBR_PKG_XML 0x0Cu
#define OMBR_PKG_DATATYPES 0x0Du
#define OMBR_PKG_SORT 0x0Fu
#define OMBR_PKG_HDO 0x11u
#define OMBR_PKG_TIME 0x1Cu
#define OMBR_PKG_ATOMIC 0x1Fu
#define OMBR_PKG_IOSTREAM 0x22u

/* Log masks inside g_ombr_log_enabled_pkgs words. */
#define OMBR_LOG_ERROR 1u
#define OMBR_LOG_NOTICE 4u
#define OMBR_LOG_DETAIL 8u

/* ---- Imported from the manager library ---------------------------------- */

uint32_t ombr_memory_initialize(void);
uint32_t ombr_memory_shutdown(void);
void *ombr_memory_alloc(size_t size);
void *ombr_memory_realloc(void *block, size_t size);
void ombr_memory_free(void *block);
void *ombr_memory_memset(void *dest, int byte, size_t size);
void *ombr_memory_memcpy(void *dest, const void *src, size_t size);
void *ombr_memory_memmove(void *dest, const void *src, size_t size);
int ombr_memory_memcmp(const void *a, const void *b, size_t size);

/* Error hook: called as (line, source unit, status, 0); returns the status. */
typedef uint32_t (*ombr_log_error_callback_t)(uint32_t line, const char *unit, uint32_t status,
                                              uint32_t reserved);
/* Message hook: (line, source unit, package byte, level mask, format, ...). */
typedef void (*ombr_log_callback_t)(uint32_t line, const char *unit, uint32_t package,
                                    uint32_t level, const char *format, ...);

extern ombr_log_error_callback_t g_ombr_log_error_callback;
extern ombr_log_callback_t g_ombr_log_callback;
extern uint32_t g_ombr_log_enabled_pkgs[255];
extern pthread_key_t g_ombr_thread_store_key;

void ombr_fs_marker_end(void *marker);

/* ---- Spinlock and atomics ----------------------------------------------- */

/* A blocking mutex with default attributes; all-zero is a valid unlocked lock. */
typedef struct ombr_spinlock {
    pthread_mutex_t mutex;
} ombr_spinlock_t;

OMBR_API uint32_t ombr_spinlock_init(ombr_spinlock_t *lock);
OMBR_API uint32_t ombr_spinlock_lock(ombr_spinlock_t *lock);
OMBR_API uint32_t ombr_spinlock_unlock(ombr_spinlock_t *lock);
OMBR_API uint32_t ombr_spinlock_delete(ombr_spinlock_t *lock);

OMBR_API uint32_t ombr_atomic_initialize(void);
OMBR_API uint32_t ombr_atomic_shutdown(void);
OMBR_API uint32_t ombr_atomic_initchecks(void);
OMBR_API uint32_t ombr_atomic_set(uint32_t *word, uint32_t value);
OMBR_API uint32_t ombr_atomic_add(uint32_t *word, uint32_t value);
OMBR_API uint32_t ombr_atomic_read(uint32_t *word, uint32_t *out_value);
OMBR_API uint32_t ombr_atomic_inc(uint32_t *word, uint32_t *out_new_value);
OMBR_API uint32_t ombr_atomic_dec(uint32_t *word, uint32_t *out_new_value);

/* ---- Critical sections and read-write locks ----------------------------- */

typedef struct ombr_critsec *ombr_critsec_t;
typedef struct ombr_rwlock *ombr_rwlock_t;

OMBR_API uint32_t ombr_thread_critsec_create(ombr_critsec_t *out_handle);
OMBR_API uint32_t ombr_thread_critsec_delete(ombr_critsec_t handle);
OMBR_API uint32_t ombr_thread_critsec_enter(ombr_critsec_t handle);
OMBR_API uint32_t ombr_thread_critsec_leave(ombr_critsec_t handle);

OMBR_API uint32_t ombr_thread_rwlock_create(ombr_rwlock_t *out_handle);
OMBR_API uint32_t ombr_thread_rwlock_readlock(ombr_rwlock_t handle);
OMBR_API uint32_t ombr_thread_rwlock_writelock(ombr_rwlock_t handle);
OMBR_API uint32_t ombr_thread_rwlock_unlock(ombr_rwlock_t handle);
OMBR_API uint32_t ombr_thread_rwlock_delete(ombr_rwlock_t handle);

/* ---- Package frames ------------------------------------------------------ */

#define OMBR_DECLARE_PACKAGE_FRAME(pkg)                    \
    OMBR_API uint32_t ombr_##pkg##_initialize(void);       \
    OMBR_API uint32_t ombr_##pkg##_shutdown(void);         \
    OMBR_API uint32_t ombr_##pkg##_initchecks(void);       \
    OMBR_API const char *ombr_##pkg##_get_version(void);   \
    OMBR_API const char *ombr_##pkg##_get_build_date(void);

OMBR_DECLARE_PACKAGE_FRAME(thread)
OMBR_DECLARE_PACKAGE_FRAME(string)
OMBR_DECLARE_PACKAGE_FRAME(iostream)
OMBR_DECLARE_PACKAGE_FRAME(time)
OMBR_DECLARE_PACKAGE_FRAME(fs)
OMBR_DECLARE_PACKAGE_FRAME(random)
OMBR_DECLARE_PACKAGE_FRAME(datatypes)
OMBR_DECLARE_PACKAGE_FRAME(xml)
OMBR_DECLARE_PACKAGE_FRAME(hdo)

/* Frame string helpers, usable before the string package is up. */
OMBR_API uint32_t ombr_string_equal(const char *a, const char *b, uint8_t ignore_case);
OMBR_API void ombr_string_free(void *block);

OMBR_END_DECLS

#endif
