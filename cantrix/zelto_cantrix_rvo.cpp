// Response and result records and their provider tables: what the
// application reads through the result-object service.
#include "cantrix/cantrix_rvo.h"
#include "ombr/ombr_datatypes.h"
#include "ombr/ombr_string.h"

namespace {

using namespace cantrix;

constexpr const char *kRvoUnit = "zelto_cantrix_rvo";
constexpr uint32_t kRenderEnd = 0x10820003u;  // end of the render enumeration

uint32_t rvo_fail(uint32_t status, std::source_location where = std::source_location::current()) {
    return ombr::error_exit(status, where.line(), kRvoUnit);
}

bool is_failure(uint32_t status) { return OMBR_STATUS_FAILED(status); }

// Which rows a child key serves in a response of a given context. A row
// with a filter serves only rows whose object has that context.
struct ChildKeyRow {
    const char *key;
    const char *context;
    const char *filter;
};
constexpr ChildKeyRow kChildKeys[] = {
    {ZELTO_CHILD_ALBUM, ZELTO_CTX_RESPONSE_ALBUM, nullptr},
    {ZELTO_CHILD_TRACK, ZELTO_CTX_RESPONSE_TRACK, nullptr},
    {ZELTO_CHILD_LYRIC, ZELTO_CTX_RESPONSE_LYRIC, nullptr},
    {ZELTO_CHILD_CONTRIBUTOR, ZELTO_CTX_RESPONSE_CONTRIBUTOR, nullptr},
    {ZELTO_CHILD_RESPONSE_MATCH, ZELTO_CTX_RESPONSE_MATCH, nullptr},
    {ZELTO_CHILD_ALBUM, ZELTO_CTX_RESPONSE_MATCH, ZELTO_CTX_ALBUM},
    {ZELTO_CHILD_CONTRIBUTOR, ZELTO_CTX_RESPONSE_MATCH, ZELTO_CTX_CONTRIBUTOR},
};

const ChildKeyRow *find_child_key(const cantrix_response *response, const char *key) {
    for (const ChildKeyRow &row : kChildKeys)
        if (ombr_string_equal(row.key, key, 0) && ombr_string_equal(row.context, response->context(), 0))
            return &row;
    return nullptr;
}

bool row_has_context(const cantrix_response_row &row, const char *context) {
    const char *actual = nullptr;
    if (!row.object || g_cantrix_rvo_interface->rvo_get_context(row.object, &actual) != 0) return false;
    return ombr_string_equal(actual, context, 0);
}

// Index of the ordinal-th row served under a key row, or -1.
int64_t served_row(const cantrix_response *response, const ChildKeyRow &key_row, uint32_t ordinal) {
    if (ordinal == 0) return -1;
    if (!key_row.filter) return ordinal <= response->row_count ? static_cast<int64_t>(ordinal) - 1 : -1;
    uint32_t seen = 0;
    for (uint32_t i = 0; i < response->row_count; ++i)
        if (row_has_context(response->rows[i], key_row.filter) && ++seen == ordinal) return i;
    return -1;
}

// A new, cleared result record.
cantrix_result *new_result() {
    auto *result = static_cast<cantrix_result *>(ombr_memory_alloc(sizeof(cantrix_result)));
    if (result) ombr_memory_memset(result, 0, sizeof *result);
    return result;
}

// Per-key access to the texts of a response.
char *cantrix_response::*range_text(const char *key) {
    if (ombr_string_equal(key, ZELTO_VAL_RANGESTART, 0)) return &cantrix_response::range_start_text;
    if (ombr_string_equal(key, ZELTO_VAL_RANGEEND, 0)) return &cantrix_response::range_end_text;
    if (ombr_string_equal(key, ZELTO_VAL_RANGECOUNT, 0)) return &cantrix_response::range_count_text;
    return nullptr;
}

bool is_response_value_key(const char *key) {
    return range_text(key) || ombr_string_equal(key, ZELTO_VAL_RESULTCOUNT, 0) ||
           ombr_string_equal(key, ZELTO_VAL_DECISION, 0);
}

}  // namespace

// ---- Response records ------------------------------------------------------------

extern "C" uint32_t _cantrix_rvo_alloc_response(const char *context, uint32_t row_count,
                                                cantrix_response **out_record) {
    if (ombr_string_isempty(context) || !out_record) return rvo_fail(kInvalidArg);
    uint32_t context_size = ombr_string_bytelen(context);
    auto *record = static_cast<cantrix_response *>(ombr_memory_alloc(sizeof(cantrix_response) + context_size));
    if (!record) return rvo_fail(kNoMemory);
    ombr_memory_memset(record, 0, sizeof(cantrix_response));
    ombr_memory_memcpy(record + 1, context, context_size);
    if (row_count != 0) {
        size_t bytes = sizeof(cantrix_response_row) * static_cast<size_t>(row_count);
        record->rows = static_cast<cantrix_response_row *>(ombr_memory_alloc(bytes));
        if (!record->rows) {
            ombr_memory_free(record);
            return rvo_fail(kNoMemory);
        }
        ombr_memory_memset(record->rows, 0, bytes);
        record->row_count = row_count;
    }
    *out_record = record;
    return 0;
}

extern "C" uint32_t _cantrix_rvo_response_get_context(void *record, const char **out_context) {
    *out_context = static_cast<cantrix_response *>(record)->context();
    return 0;
}

extern "C" uint32_t _cantrix_rvo_response_get_child_count(void *record, const char *key, uint32_t *out_count) {
    auto *response = static_cast<cantrix_response *>(record);
    const ChildKeyRow *key_row = find_child_key(response, key);
    if (!key_row) return rvo_fail(kUnsupported);
    uint32_t count = 0;
    if (!key_row->filter) {
        count = response->row_count;
    } else {
        for (uint32_t i = 0; i < response->row_count; ++i)
            if (row_has_context(response->rows[i], key_row->filter)) ++count;
    }
    *out_count = count;
    return 0;
}

extern "C" uint32_t _cantrix_rvo_response_get_child(void *record, const char *key, uint32_t ordinal, uint8_t,
                                                    void **out_child, const zelto_rvo_provider **out_provider) {
    auto *response = static_cast<cantrix_response *>(record);
    const ChildKeyRow *key_row = find_child_key(response, key);
    if (!key_row) return rvo_fail(kUnsupported);
    int64_t index = served_row(response, *key_row, ordinal);
    if (index < 0) return kNotFound;
    const cantrix_response_row &row = response->rows[index];

    cantrix_result *result = new_result();
    if (!result) return rvo_fail(kNoMemory);
    result->score = row.score;
    result->ordinal = row.ordinal;
    if (row.object) {
        result->object = row.object;
        g_cantrix_rvo_interface->rvo_addref(row.object);
    }
    // A result without its copy of the info map still serves its object.
    if (row.info) (void)ombr_stringmap_copy(row.info, &result->info);
    *out_child = result;
    *out_provider = &g_cantrix_rvo_result_provider;
    return 0;
}

extern "C" uint32_t _cantrix_rvo_response_get_value_count(void *, const char *key, uint32_t *out_count) {
    if (!is_response_value_key(key)) return rvo_fail(kUnsupported);
    *out_count = 1;
    return 0;
}

extern "C" uint32_t _cantrix_rvo_response_get_value(void *record, const char *key, uint32_t ordinal,
                                                    const char **out_value) {
    auto *response = static_cast<cantrix_response *>(record);
    if (!is_response_value_key(key)) return rvo_fail(kUnsupported);
    if (ordinal != 1) return kNotFound;
    if (ombr_string_equal(key, ZELTO_VAL_RESULTCOUNT, 0)) {
        if (!response->result_count_text) {
            char digits[16];
            response->result_count_text = ombr_string_strdup(ombr_string_u32toa(response->row_count, digits, sizeof digits));
            if (!response->result_count_text) return rvo_fail(kNoMemory);
        }
        *out_value = response->result_count_text;
        return 0;
    }
    if (ombr_string_equal(key, ZELTO_VAL_DECISION, 0)) {
        *out_value = response->decision ? "1" : "0";
        return 0;
    }
    const char *text = response->*range_text(key);
    if (!text) return kNotFound;
    *out_value = text;
    return 0;
}

extern "C" uint32_t _cantrix_rvo_response_set_locale(void *record, zelto_locale_handle locale) {
    auto *response = static_cast<cantrix_response *>(record);
    if (!response) return 0;
    for (uint32_t i = 0; i < response->row_count; ++i) {
        uint32_t status = g_cantrix_rvo_interface->rvo_set_locale(response->rows[i].object, locale);
        if (status != 0) return rvo_fail(status);
    }
    return 0;
}

extern "C" uint32_t _cantrix_rvo_response_release(void *record) {
    auto *response = static_cast<cantrix_response *>(record);
    if (!response) return 0;
    for (uint32_t i = 0; i < response->row_count; ++i) {
        g_cantrix_rvo_interface->rvo_release(response->rows[i].object);
        ombr_stringmap_delete(response->rows[i].info);
    }
    ombr_string_free(response->result_count_text);
    ombr_string_free(response->range_start_text);
    ombr_string_free(response->range_end_text);
    ombr_string_free(response->range_count_text);
    ombr_memory_free(response->rows);
    ombr_memory_free(response);
    return 0;
}

// ---- Result records ------------------------------------------------------------------

extern "C" uint32_t _cantrix_rvo_result_get_context(void *record, const char **out_context) {
    auto *result = static_cast<cantrix_result *>(record);
    if (!result->object) return rvo_fail(kNoObject);
    return rvo_fail(g_cantrix_rvo_interface->rvo_get_context(result->object, out_context));
}

extern "C" uint32_t _cantrix_rvo_result_get_value(void *record, const char *key, uint32_t ordinal,
                                                  const char **out_value) {
    auto *result = static_cast<cantrix_result *>(record);
    uint32_t status = kNotFound;
    const char *value = nullptr;
    if (result->object) status = g_cantrix_rvo_interface->rvo_value_get(result->object, key, ordinal, &value);
    // The object wins; values it lacks come from the info map, unless the
    // service barred the fall-back.
    if (status != 0 && !is_failure(status) && OMBR_STATUS_VALUE(status) != ZELTO_RVO_ERROR_WITHHELD && result->info &&
        ordinal == 1)
        status = ombr_stringmap_value_find(result->info, key, &value);
    if (status == 0) *out_value = value;
    return rvo_fail(status);
}

extern "C" uint32_t _cantrix_rvo_result_get_value_count(void *record, const char *key, uint32_t *out_count) {
    auto *result = static_cast<cantrix_result *>(record);
    uint32_t status = kNotFound;
    uint32_t count = 0;
    if (result->object) status = g_cantrix_rvo_interface->rvo_value_count(result->object, key, &count);
    if (!is_failure(status) && count == 0 && result->info) {
        status = ombr_stringmap_value_find(result->info, key, nullptr);
        if (status == 0) count = 1;
    }
    if (OMBR_STATUS_VALUE(status) == 3) status = 0;
    if (status == 0) *out_count = count;
    return rvo_fail(status);
}

extern "C" uint32_t _cantrix_rvo_result_get_child_count(void *record, const char *key, uint32_t *out_count) {
    auto *result = static_cast<cantrix_result *>(record);
    uint32_t status = kNotFound;
    uint32_t count = 0;
    if (result->object) status = g_cantrix_rvo_interface->rvo_child_count(result->object, key, &count);
    if (!is_failure(status) && ombr_string_equal(key, ZELTO_CHILD_TRACK_MATCHING, 1)) {
        uint32_t matched = 0;
        status = _cantrix_rvo_result_get_value_count(record, ZELTO_VAL_TRACK_MATCHED, &matched);
        if (status == 0 && matched > count) count = matched;
    }
    if (OMBR_STATUS_VALUE(status) == 3) status = 0;
    if (status == 0) *out_count = count;
    return rvo_fail(status);
}

extern "C" uint32_t _cantrix_rvo_result_get_child(void *record, const char *key, uint32_t ordinal, uint8_t flag,
                                                  void **out_child, const zelto_rvo_provider **out_provider) {
    auto *result = static_cast<cantrix_result *>(record);
    const zelto_rvo_interface *rvo = g_cantrix_rvo_interface;
    zelto_rvo_handle child = nullptr;
    uint32_t status = kNotFound;
    if (result->object) status = rvo->rvo_child_get(result->object, key, ordinal, flag, &child);
    // Matching tracks named only by number are served as numbered tracks.
    if ((!result->object || (status != 0 && !is_failure(status))) &&
        ombr_string_equal(key, ZELTO_CHILD_TRACK_MATCHING, 1)) {
        const char *number = nullptr;
        if (_cantrix_rvo_result_get_value(record, ZELTO_VAL_TRACK_MATCHED, ordinal, &number) == 0)
            (void)rvo->rvo_child_get(result->object, ZELTO_CHILD_TRACK_NUMBER, ombr_string_atou32(number), flag,
                                     &child);
    }
    uint32_t outcome = kNotFound;
    if (child) {
        cantrix_result *wrapped = new_result();
        if (wrapped) {
            wrapped->object = child;
            rvo->rvo_addref(child);
            *out_child = wrapped;
            *out_provider = &g_cantrix_rvo_result_provider;
            outcome = 0;
        } else {
            outcome = kNoMemory;
        }
    }
    rvo->rvo_release(child);  // the reference rvo_child_get gave
    return rvo_fail(outcome);
}

extern "C" uint32_t _cantrix_rvo_result_render_value(void *record, uint32_t index, const char **out_name,
                                                     const char **out_value) {
    // The render table: value keys shown under a display name.
    static constexpr struct {
        const char *key;
        const char *name;
    } s_rvo_data_elems[] = {{ZELTO_VAL_TXTMATCHSCORE, "MATCH_SCORE"}};
    auto *result = static_cast<cantrix_result *>(record);
    if (index > 0) return kRenderEnd;
    const char *value = nullptr;
    if (result->info && ombr_stringmap_value_find(result->info, s_rvo_data_elems[0].key, &value) == 0) {
        *out_name = s_rvo_data_elems[0].name;
        *out_value = value;
    }
    return 0;
}

extern "C" uint32_t _cantrix_rvo_result_set_locale(void *record, zelto_locale_handle locale) {
    auto *result = static_cast<cantrix_result *>(record);
    if (!result || !result->object) return 0;
    return rvo_fail(g_cantrix_rvo_interface->rvo_set_locale(result->object, locale));
}

extern "C" uint32_t _cantrix_rvo_result_get_locale(void *record, zelto_locale_handle *out_locale) {
    auto *result = static_cast<cantrix_result *>(record);
    if (!result || !result->object) {
        *out_locale = nullptr;
        return 0;
    }
    zelto_locale_handle locale = nullptr;
    uint32_t status = g_cantrix_rvo_interface->rvo_get_locale(result->object, &locale);
    if (status == 0) *out_locale = locale;
    return rvo_fail(status);
}

extern "C" uint32_t _cantrix_rvo_result_release(void *record) {
    auto *result = static_cast<cantrix_result *>(record);
    if (!result) return 0;
    g_cantrix_rvo_interface->rvo_release(result->object);
    ombr_stringmap_delete(result->info);
    ombr_memory_free(result);
    return 0;
}

// ---- Provider tables --------------------------------------------------------------------

extern "C" {
const zelto_rvo_provider g_cantrix_rvo_response_provider = {
    .reserved0 = nullptr,
    .get_context = _cantrix_rvo_response_get_context,
    .get_child_count = _cantrix_rvo_response_get_child_count,
    .get_child = _cantrix_rvo_response_get_child,
    .get_value_count = _cantrix_rvo_response_get_value_count,
    .get_value = _cantrix_rvo_response_get_value,
    .reserved6 = nullptr,
    .render_value = nullptr,
    .set_locale = _cantrix_rvo_response_set_locale,
    .get_locale = nullptr,
    .release = _cantrix_rvo_response_release,
};

const zelto_rvo_provider g_cantrix_rvo_result_provider = {
    .reserved0 = nullptr,
    .get_context = _cantrix_rvo_result_get_context,
    .get_child_count = _cantrix_rvo_result_get_child_count,
    .get_child = _cantrix_rvo_result_get_child,
    .get_value_count = _cantrix_rvo_result_get_value_count,
    .get_value = _cantrix_rvo_result_get_value,
    .reserved6 = nullptr,
    .render_value = _cantrix_rvo_result_render_value,
    .set_locale = _cantrix_rvo_result_set_locale,
    .get_locale = _cantrix_rvo_result_get_locale,
    .release = _cantrix_rvo_result_release,
};
}
