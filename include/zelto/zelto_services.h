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

#include "zelto/zelto_keys.h"

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

/* ZELTO_SERVICE_ERRORINFO */
typedef struct zelto_errorinfo_interface {
    zelto_table_release_fn release;
    uint32_t (*errorinfo_set)(uint32_t mapped, uint32_t source, const char *function, const char *message);
    uint32_t (*errorinfo_set_format)(uint32_t mapped, uint32_t source, const char *function,
                                     const char *format, ...);
} zelto_errorinfo_interface;

/* ZELTO_SERVICE_HANDLEMANAGER */
typedef struct zelto_handlemanager_interface {
    zelto_table_release_fn release;
    uint32_t (*handle_add)(void *record);
    uint32_t (*handle_remove)(void *record);
    uint32_t (*handle_validate)(const void *record, uint32_t magic);
    void *reserved4;
    uint32_t (*handle_validate_user)(const void *user);
    uint32_t (*handle_validate_rvo)(const void *rvo);
} zelto_handlemanager_interface;

/* ZELTO_SERVICE_USERINFO */
typedef struct zelto_userinfo_interface {
    zelto_table_release_fn release;
    void *reserved1;
    uint32_t (*userinfo_addref)(void *user);
    uint32_t (*userinfo_release)(void *user);
    uint32_t (*userinfo_option_get)(void *user, const char *key, const char **out_value);
} zelto_userinfo_interface;

/* ---- Result objects ------------------------------------------------------ */

typedef struct zelto_rvo_s *zelto_rvo_handle;
typedef void *zelto_locale_handle;

/* Provider table behind a result object: eleven slots. Each operation takes
 * the provider's record first. A null slot means the operation does not
 * exist for that kind of record. */
typedef struct zelto_rvo_provider {
    void *reserved0;
    uint32_t (*get_context)(void *record, const char **out_context);
    uint32_t (*get_child_count)(void *record, const char *key, uint32_t *out_count);
    uint32_t (*get_child)(void *record, const char *key, uint32_t ordinal, uint8_t flag, void **out_child_record,
                          const struct zelto_rvo_provider **out_child_provider);
    uint32_t (*get_value_count)(void *record, const char *key, uint32_t *out_count);
    uint32_t (*get_value)(void *record, const char *key, uint32_t ordinal, const char **out_value);
    void *reserved6;
    uint32_t (*render_value)(void *record, uint32_t index, const char **out_name, const char **out_value);
    uint32_t (*set_locale)(void *record, zelto_locale_handle locale);
    uint32_t (*get_locale)(void *record, zelto_locale_handle *out_locale);
    uint32_t (*release)(void *record);
} zelto_rvo_provider;

/* ZELTO_SERVICE_RVO: result objects, reference counted, dispatching to
 * their provider. Ordinals count from 1. */
typedef struct zelto_rvo_interface {
    zelto_table_release_fn release;
    uint32_t (*rvo_create)(void *record, const zelto_rvo_provider *provider, void *user, const char *locale_group,
                           uint32_t data_flags, zelto_rvo_handle *out_object);
    void *reserved2;
    uint32_t (*rvo_addref)(zelto_rvo_handle object);
    uint32_t (*rvo_release)(zelto_rvo_handle object);
    uint32_t (*rvo_get_context)(zelto_rvo_handle object, const char **out_context);
    uint32_t (*rvo_value_count)(zelto_rvo_handle object, const char *key, uint32_t *out_count);
    uint32_t (*rvo_value_get)(zelto_rvo_handle object, const char *key, uint32_t ordinal, const char **out_value);
    void *reserved8;
    uint32_t (*rvo_child_count)(zelto_rvo_handle object, const char *key, uint32_t *out_count);
    uint32_t (*rvo_child_get)(zelto_rvo_handle object, const char *key, uint32_t ordinal, uint8_t flag,
                              zelto_rvo_handle *out_child);
    void *reserved11;
    void *reserved12;
    uint32_t (*rvo_set_locale)(zelto_rvo_handle object, zelto_locale_handle locale);
    uint32_t (*rvo_get_locale)(zelto_rvo_handle object, zelto_locale_handle *out_locale);
} zelto_rvo_interface;

/* ---- Lists, serialisation, signal processing ------------------------------ */

/* ZELTO_SERVICE_LISTS: only slot 30 is used by the module. */
typedef struct zelto_lists_interface {
    zelto_table_release_fn release;
    void *reserved[29];
    uint32_t (*list_language_get)(const char *language, const char **out_text);
} zelto_lists_interface;

/* ZELTO_SERVICE_SERIALIZATION */
typedef struct zelto_serialization_interface {
    zelto_table_release_fn release;
    void *reserved1;
    /* The caller owns the block and frees it with serial_free. */
    uint32_t (*serial_decode)(const char *text, void **out_data, uint32_t *out_size);
    uint32_t (*serial_free)(void *data);
} zelto_serialization_interface;

/* Serial form of a fingerprint: this prefix, then the serialisation
 * service's text of the fingerprint's XML description (see serial_decode). */
#define ZELTO_ZTFP_SERIAL_PREFIX "ZTFP"

/* Sample format numbers of dsp_generator_create, by bits per sample. */
#define ZELTO_DSP_FORMAT_S8 1u
#define ZELTO_DSP_FORMAT_S16 2u
#define ZELTO_DSP_FORMAT_S32 3u

/* The keys of dsp_generator_info are the ZELTO_DSP_INFO_* texts of
 * zelto/zelto_keys.h. */

typedef void *zelto_dsp_generator;
/* Block callback of a generator: (callback data, ignored word, block). */
typedef uint32_t (*zelto_dsp_block_callback)(void *callback_data, uint32_t ignored, void *block);

/* ZELTO_SERVICE_DSP: fingerprint generators. Optional. */
typedef struct zelto_dsp_interface {
    zelto_table_release_fn release;
    void *reserved1;
    void *reserved2;
    uint32_t (*dsp_generator_create)(uint32_t algorithm, uint32_t sample_rate, uint32_t sample_format,
                                     uint32_t channels, uint32_t reserved, zelto_dsp_block_callback callback,
                                     void *callback_data, zelto_dsp_generator *out_generator);
    void *reserved4;
    uint32_t (*dsp_generator_write)(zelto_dsp_generator generator, const void *samples, uint32_t size,
                                    uint32_t reserved1, uint32_t reserved2, uint8_t *out_complete);
    void *reserved6;
    uint32_t (*dsp_generator_end)(zelto_dsp_generator generator, uint32_t *out_flag);
    uint32_t (*dsp_generator_info)(zelto_dsp_generator generator, const char *key, const char **out_text);
    uint32_t (*dsp_generator_release)(zelto_dsp_generator generator);
    void *reserved10;
    void *reserved11;
    void *reserved12;
    uint32_t (*dsp_fingerprint_free)(void *block);
    uint32_t (*dsp_fingerprint_query_text)(zelto_dsp_generator generator, void *const *blocks, uint32_t count,
                                           char **out_text);
    uint32_t (*dsp_text_free)(char *text);
} zelto_dsp_interface;

/* ---- Lookup providers ------------------------------------------------------ */

typedef struct zelto_lookup_request_s *zelto_lookup_request;

/* Status record a provider hands to the request callback: a kind, one of
 * the ZELTO_LOOKUP_EVENT_* codes and two values. With the kind
 * ZELTO_LOOKUP_EVENT_KIND_COUNTERS, value1 and value2 are counters for the
 * application; with ZELTO_LOOKUP_EVENT_ERROR, value1 is an error code and
 * value2 points to the error text. */
typedef struct zelto_lookup_status {
    uint32_t kind;
    uint32_t code;
    uint32_t value1;
    uintptr_t value2;
} zelto_lookup_status;

typedef void (*zelto_lookup_callback)(void *callback_data, const zelto_lookup_status *status, uint8_t *abort_flag);

/* ZELTO_SERVICE_LOOKUP, fetched with ZELTO_PROVIDER_MODE_ONLINE or _LOCAL. */
typedef struct zelto_lookup_interface {
    zelto_table_release_fn lookup_release;
    void *reserved1;
    uint32_t (*lookup_request_create)(const struct zelto_lookup_interface *table, zelto_lookup_callback callback,
                                      void *callback_data, zelto_lookup_request *out_request);
    uint32_t (*lookup_request_add)(zelto_lookup_request request, const char *lookup_type, const char *request_id,
                                   const char *group, uint32_t group_flag);
    uint32_t (*lookup_request_set_data)(zelto_lookup_request request, const char *request_id, const char *key,
                                        const char *value, uint32_t copy_flag);
    void *reserved5;
    void *reserved6;
    uint32_t (*lookup_request_set_option)(zelto_lookup_request request, const char *request_id, const char *key,
                                          const char *value);
    uint32_t (*lookup_request_execute)(zelto_lookup_request request, void *user);
    uint32_t (*lookup_request_get_result)(zelto_lookup_request request, const char *request_id,
                                          zelto_rvo_handle *out_result);
    void *reserved10;
    uint32_t (*lookup_request_release)(zelto_lookup_request request);
} zelto_lookup_interface;

#ifdef __cplusplus
}
#endif

#endif
