// Response and result records behind the module's result objects.
#ifndef CANTRIX_RVO_H
#define CANTRIX_RVO_H

#include "cantrix/cantrix_internal.h"

// One entry of a response.
struct cantrix_response_row {
    zelto_rvo_handle object;  // one reference held, may be null
    ombr_stringmap *info;     // owned, may be null
    uint32_t score;
    uint32_t ordinal;
};

// A response record. The context text is stored in the same allocation,
// right behind the record.
struct cantrix_response {
    uint32_t row_count;
    cantrix_response_row *rows;
    char *result_count_text;
    char *range_start_text;
    char *range_end_text;
    char *range_count_text;
    uint8_t decision;

    const char *context() const { return reinterpret_cast<const char *>(this + 1); }
};

// A result record: one object handed out of a response or of another result.
struct cantrix_result {
    zelto_rvo_handle object;
    ombr_stringmap *info;
    uint32_t score;
    uint32_t ordinal;
};

extern "C" {
// A response record of `row_count` cleared rows with its context text.
uint32_t _cantrix_rvo_alloc_response(const char *context, uint32_t row_count, cantrix_response **out_record);
uint32_t _cantrix_rvo_response_get_context(void *record, const char **out_context);
uint32_t _cantrix_rvo_response_get_child_count(void *record, const char *key, uint32_t *out_count);
uint32_t _cantrix_rvo_response_get_child(void *record, const char *key, uint32_t ordinal, uint8_t flag,
                                         void **out_child, const zelto_rvo_provider **out_provider);
uint32_t _cantrix_rvo_response_get_value_count(void *record, const char *key, uint32_t *out_count);
uint32_t _cantrix_rvo_response_get_value(void *record, const char *key, uint32_t ordinal, const char **out_value);
uint32_t _cantrix_rvo_response_set_locale(void *record, zelto_locale_handle locale);
uint32_t _cantrix_rvo_response_release(void *record);

uint32_t _cantrix_rvo_result_get_context(void *record, const char **out_context);
uint32_t _cantrix_rvo_result_get_child_count(void *record, const char *key, uint32_t *out_count);
uint32_t _cantrix_rvo_result_get_child(void *record, const char *key, uint32_t ordinal, uint8_t flag,
                                       void **out_child, const zelto_rvo_provider **out_provider);
uint32_t _cantrix_rvo_result_get_value_count(void *record, const char *key, uint32_t *out_count);
uint32_t _cantrix_rvo_result_get_value(void *record, const char *key, uint32_t ordinal, const char **out_value);
uint32_t _cantrix_rvo_result_render_value(void *record, uint32_t index, const char **out_name,
                                          const char **out_value);
uint32_t _cantrix_rvo_result_set_locale(void *record, zelto_locale_handle locale);
uint32_t _cantrix_rvo_result_get_locale(void *record, zelto_locale_handle *out_locale);
uint32_t _cantrix_rvo_result_release(void *record);
}

#endif
