/*
 * Service tables that the manager library hands to the module by name.
 *
 * Every table is an array of pointer-sized words, one per slot, in a fixed
 * order. Slot 0 of every fetched table releases it and takes the table itself.
 * A slot the module never calls keeps its place as a reserved word. All
 * slots but release return a 32-bit status (0 is success); out pointers are
 * written on success only and are borrowed unless a slot says otherwise.
 */
#ifndef ZELTO_SERVICES_H
#define ZELTO_SERVICES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t (*zelto_table_release_fn)(const void *table);

#define ZELTO_MANAGER_MAGIC 0x1EEEEEE1u
#define ZELTO_MANAGER_VERSION "3.2.0"

/* The manager table itself: handed to zelto_cantrix_initialize. */
typedef struct zelto_manager_table {
    uintptr_t magic;     /* ZELTO_MANAGER_MAGIC */
    const char *version; /* "3.2.0" */
    /* name, mode (0, or 1 online / 2 local for the lookup provider), reserved 0, out table */
    uint32_t (*interface_get)(const char *name, uint32_t mode, uint32_t reserved, const void **out_table);
    void *reserved3;
    void *reserved4;
    uint32_t (*register_package)(uint32_t number, const char *name);
} zelto_manager_table;

/* "_zelto_errorinfo_interface" */
typedef struct zelto_errorinfo_interface {
    zelto_table_release_fn release;
    uint32_t (*errorinfo_set)(uint32_t mapped, uint32_t source, const char *function, const char *message);
    uint32_t (*errorinfo_set_format)(uint32_t mapped, uint32_t source, const char *function,
                                     const char *format, ...);
} zelto_errorinfo_interface;

/* "_zelto_handlemanager_interface" */
typedef struct zelto_handlemanager_interface {
    zelto_table_release_fn release;
    uint32_t (*handle_add)(void *record);
    uint32_t (*handle_remove)(void *record);
    uint32_t (*handle_validate)(const void *record, uint32_t magic);
    void *reserved4;
    uint32_t (*handle_validate_user)(const void *user);
    uint32_t (*handle_validate_rvo)(const void *rvo);
} zelto_handlemanager_interface;

/* "_zelto_userinfo_interface" */
typedef struct zelto_userinfo_interface {
    zelto_table_release_fn release;
    void *reserved1;
    uint32_t (*userinfo_addref)(void *user);
    uint32_t (*userinfo_release)(void *user);
    uint32_t (*userinfo_option_get)(void *user, const char *key, const char **out_value);
} zelto_userinfo_interface;

#ifdef __cplusplus
}
#endif

#endif
