// Requests to the lookup provider: the TOC text, options, range, the
// progress callback and the lookups themselves.
#include "cantrix/cantrix_requests.h"
#include "ombr/ombr_datatypes.h"
#include "ombr/ombr_string.h"

extern "C" uint32_t _cantrix_build_toc_string(cantrix_query *query, char *buffer, uint32_t size) {
    if (!query || !buffer || size == 0) return ombr::fail(cantrix::kInvalidArg, "zelto_cantrix_requests");
    buffer[0] = '\0';
    uint32_t used = 0;
    // The room is counted exactly, blanks included: a table longer than the
    // buffer ends at the last number that fits whole, never past the buffer.
    // A leading 0 stands beside the vector and comes first.
    const uint32_t lead = query->toc_starts_at_zero ? 1 : 0;
    for (uint32_t index = 0;; ++index) {
        uintptr_t entry = 0;
        if (index >= lead && ombr_vector_getindex(query->toc_offsets, index - lead, &entry) != 0) break;
        // The decimal digits, written from the end of a word-sized buffer.
        char digits[10];
        uint32_t first = sizeof digits;
        auto value = static_cast<uint32_t>(entry);
        do {
            digits[--first] = static_cast<char>('0' + value % 10);
            value /= 10;
        } while (value != 0);
        const uint32_t length = sizeof digits - first;
        const uint32_t needed = length + (index > 0 ? 1 : 0);
        if (used + needed + 1 > size) break;
        if (index > 0) buffer[used++] = ' ';
        ombr_memory_memcpy(buffer + used, digits + first, length);
        used += length;
        buffer[used] = '\0';
    }
    return 0;
}

namespace {

using namespace cantrix;

constexpr const char *kRequestsUnit = "zelto_cantrix_requests";
constexpr const char *kRequestId = "CNX_1";

uint32_t requests_fail(uint32_t status, std::source_location where = std::source_location::current()) {
    return ombr::error_exit(status, where.line(), kRequestsUnit);
}

// A query option's text, or null when the map or the key is absent.
const char *option_text(const cantrix_query *query, const char *key) {
    const char *value = nullptr;
    if (!query->options || ombr_stringmap_value_find(query->options, key, &value) != 0) return nullptr;
    return value;
}

bool option_present(const cantrix_query *query, const char *key) {
    return query->options && ombr_stringmap_value_find(query->options, key, nullptr) == 0;
}

// Provider mode number of the query's lookup mode: only the exact local
// text selects the local provider.
uint32_t lookup_mode_number(const cantrix_query *query) {
    return ombr_string_equal(query->lookup_mode, ZELTO_LOOKUPMODE_LOCAL, 0) ? ZELTO_PROVIDER_MODE_LOCAL
                                                                            : ZELTO_PROVIDER_MODE_ONLINE;
}

// The application-facing status number of a provider event, or 0 when the
// application is not called.
uint32_t application_status(uint32_t code) {
    switch (code) {
        case ZELTO_LOOKUP_EVENT_STARTED: return ZELTO_CANTRIX_STATUS_STARTED;
        case ZELTO_LOOKUP_EVENT_SENT: return ZELTO_CANTRIX_STATUS_SENT;
        case ZELTO_LOOKUP_EVENT_FOUND: return ZELTO_CANTRIX_STATUS_FOUND;
        case ZELTO_LOOKUP_EVENT_BUILDING: return ZELTO_CANTRIX_STATUS_BUILDING;
        case ZELTO_LOOKUP_EVENT_READY: return ZELTO_CANTRIX_STATUS_READY;
        case ZELTO_LOOKUP_EVENT_DONE: return ZELTO_CANTRIX_STATUS_DONE;
        default: return 0;
    }
}

}  // namespace

extern "C" void _cantrix_lookup_callback(void *callback_data, const zelto_lookup_status *status, uint8_t *abort_flag) {
    auto *query = static_cast<cantrix_query *>(callback_data);
    if (!query || !status) return;
    uint32_t app_status = application_status(status->code);
    if (app_status != 0 && query->callback) {
        bool counters = (status->code == ZELTO_LOOKUP_EVENT_FOUND || status->code == ZELTO_LOOKUP_EVENT_BUILDING) &&
                        status->kind == ZELTO_LOOKUP_EVENT_KIND_COUNTERS;
        set_query_busy(query, true);
        query->callback(query->callback_data, query, app_status, counters ? status->value1 : 0,
                        counters ? static_cast<uint32_t>(status->value2) : 0, abort_flag);
        set_query_busy(query, false);
    } else if (status->code == ZELTO_LOOKUP_EVENT_ERROR) {
        errorinfo_set(status->value1, status->value1, nullptr, reinterpret_cast<const char *>(status->value2));
    }
    if (abort_flag && *abort_flag == 1)
        ombr::log_message(kPackage, OMBR_LOG_DETAIL, __LINE__, kRequestsUnit,
                          "Provided callback aborted the Cantrix lookup request.");
}

extern "C" uint32_t _cantrix_request_get_range(cantrix_query *query, uint32_t *out_start, uint32_t *out_end) {
    if (!query) return requests_fail(kInvalidArg);
    uint32_t start = ombr_string_atou32(option_text(query, ZELTO_CANTRIX_OPTION_RANGE_START));
    uint32_t size = ombr_string_atou32(option_text(query, ZELTO_CANTRIX_OPTION_RANGE_SIZE));
    if (start == 0) start = 1;
    if (size == 0) size = 10;
    if (out_start) *out_start = start;
    if (out_end) *out_end = start + size - 1;
    return 0;
}

extern "C" uint32_t _cantrix_request_add_options(cantrix_query *query, zelto_lookup_request request,
                                                 const char *request_id, uint8_t text_search) {
    if (!query || !request || ombr_string_isempty(request_id)) return requests_fail(kInvalidArg);
    const zelto_lookup_interface *lookup = query->lookup;
    auto set = [&](const char *key, const char *value) {
        return lookup->lookup_request_set_option(request, request_id, key, value);
    };
    uint32_t status = 0;
    if (!text_search) {
        // Data-flag bits become provider switches, in this order.
        const uint32_t flags = query->data_flags;
        if ((flags & ZELTO_DATA_LINK) && (status = set(ZELTO_LOOKUP_OPTION_LINK, "1"))) return requests_fail(status);
        if ((flags & ZELTO_DATA_GLOBALIDS) && (status = set(ZELTO_LOOKUP_OPTION_GLOBALIDS, "1")))
            return requests_fail(status);
        if ((flags & ZELTO_DATA_CLASSICAL) && (status = set(ZELTO_LOOKUP_OPTION_CLASS, "1")))
            return requests_fail(status);
        if (flags & ZELTO_DATA_PLAYLIST) {
            (void)set(ZELTO_LOOKUP_OPTION_SONIC, "1");
            if ((status = set(ZELTO_LOOKUP_OPTION_PLAYLIST, "1"))) return requests_fail(status);
        }
        if ((flags & ZELTO_DATA_AIM) && (status = set(ZELTO_LOOKUP_OPTION_AIM, "1"))) return requests_fail(status);
    }
    if (ombr_string_equal(query->lookup_mode, ZELTO_LOOKUPMODE_ONLINE_NOCACHE, 0) &&
        (status = set(ZELTO_LOOKUP_OPTION_CACHE_USAGE, ZELTO_LOOKUP_OPTION_VALUE_CACHE_SKIP_READ)))
        return requests_fail(status);
    if (!query->options) return 0;

    // Values below pass through unread, "false" included, except the
    // additional credits, which go out only when true.
    if (const char *lang = option_text(query, ZELTO_CANTRIX_OPTION_PREFERRED_LANG);
        option_present(query, ZELTO_CANTRIX_OPTION_PREFERRED_LANG) &&
        (status = set(ZELTO_LOOKUP_OPTION_LANGUAGE, lang)))
        return requests_fail(status);
    if (const char *credits = option_text(query, ZELTO_CANTRIX_OPTION_ADDITIONAL_CREDITS);
        credits && ombr_string_atobool(credits) && (status = set(ZELTO_LOOKUP_OPTION_ADDITIONAL_CREDITS, credits)))
        return requests_fail(status);
    if (text_search) return 0;
    if (option_present(query, ZELTO_CANTRIX_OPTION_OUTPUT) &&
        (status = set(ZELTO_LOOKUP_OPTION_OUTPUT, option_text(query, ZELTO_CANTRIX_OPTION_OUTPUT))))
        return requests_fail(status);
    // Preferring cover art suppresses the single-result option.
    if (option_present(query, ZELTO_CANTRIX_OPTION_PREFER_COVERART)) {
        if ((status =
                 set(ZELTO_LOOKUP_OPTION_RESULT_PREFERCOVER, option_text(query, ZELTO_CANTRIX_OPTION_PREFER_COVERART))))
            return requests_fail(status);
    } else if (option_present(query, ZELTO_CANTRIX_OPTION_SINGLE_RESULT)) {
        if ((status = set(ZELTO_LOOKUP_OPTION_RESULT_SINGLE, option_text(query, ZELTO_CANTRIX_OPTION_SINGLE_RESULT))))
            return requests_fail(status);
    }
    if (option_present(query, ZELTO_CANTRIX_OPTION_PREFER_XID) &&
        (status = set(ZELTO_LOOKUP_OPTION_RESULT_PREFERXID, option_text(query, ZELTO_CANTRIX_OPTION_PREFER_XID))))
        return requests_fail(status);
    return 0;
}

namespace {

constexpr auto always_ready = [] { return 0u; };

// The common request sequence. `build` declares the lookup and sends its
// data (it gets the provider table and the request); then the options go
// out, and unless `ready` objects, the request runs and its result object is
// handed to the caller. The request is released on every path.
template <typename Build, typename Ready = decltype(always_ready)>
uint32_t run_request(cantrix_query *query, uint8_t text_search, zelto_rvo_handle *out_object, Build build,
                     Ready ready = always_ready) {
    if (query->lookup) query->lookup->lookup_release(query->lookup);
    const void *table = nullptr;
    uint32_t status =
        g_cantrix_manager_interface->interface_get(ZELTO_SERVICE_LOOKUP, lookup_mode_number(query), 0, &table);
    if (status != 0) {
        if (OMBR_STATUS_VALUE(status) == 3) status = kNoService;
        // The query still points at the table given back above; a manager
        // keeps a once-given table callable.
        if (query->lookup) query->lookup->lookup_request_release(nullptr);
        return requests_fail(status);
    }
    query->lookup = static_cast<const zelto_lookup_interface *>(table);
    const zelto_lookup_interface *lookup = query->lookup;

    zelto_lookup_request request = nullptr;
    status = lookup->lookup_request_create(lookup, _cantrix_lookup_callback, query, &request);
    if (status == 0) status = build(lookup, request);
    if (status == 0) status = _cantrix_request_add_options(query, request, kRequestId, text_search);
    if (status == 0) status = ready();
    if (status == 0) status = lookup->lookup_request_execute(request, query->user);
    zelto_rvo_handle object = nullptr;
    if (status == 0) status = lookup->lookup_request_get_result(request, kRequestId, &object);
    if (status == 0) *out_object = object;
    lookup->lookup_request_release(request);
    return requests_fail(status);
}

// Sends the result range as two data items; their statuses are ignored.
void send_range(cantrix_query *query, const zelto_lookup_interface *lookup, zelto_lookup_request request) {
    uint32_t start = 0, end = 0;
    if (_cantrix_request_get_range(query, &start, &end) != 0) return;
    char digits[32];
    (void)lookup->lookup_request_set_data(request, kRequestId, ZELTO_LOOKUP_DATA_RANGE_START,
                                          ombr_string_u32toa(start, digits, sizeof digits), 1);
    (void)lookup->lookup_request_set_data(request, kRequestId, ZELTO_LOOKUP_DATA_RANGE_END,
                                          ombr_string_u32toa(end, digits, sizeof digits), 1);
}

// One value of an object at ordinal 1.
uint32_t object_value(zelto_rvo_handle object, const char *key, const char **out_value) {
    return g_cantrix_rvo_interface->rvo_value_get(object, key, 1, out_value);
}

}  // namespace

extern "C" uint32_t _cantrix_perform_tui_query(cantrix_query *query, zelto_rvo_handle object, const char *lookup_type,
                                               zelto_rvo_handle *out_response) {
    if (!query || !object || !lookup_type || !out_response) return requests_fail(kInvalidArg);
    const bool revision_check = ombr_string_atobool(option_text(query, ZELTO_CANTRIX_OPTION_REVISION_CHECK));
    const char *context = nullptr;
    uint32_t status = g_cantrix_rvo_interface->rvo_get_context(object, &context);
    if (status != 0) return requests_fail(status);

    const char *id = nullptr, *tag = nullptr;
    bool mui_form = false;
    status = object_value(object, ZELTO_VAL_TUI, &id);
    if (status == 0) {
        status = object_value(object, ZELTO_VAL_TUI_TAG, &tag);
    } else if (ombr_string_equal(context, ZELTO_CTX_ALBUM, 0)) {
        // An album without a tui is looked up by its media identifier.
        mui_form = true;
        status = object_value(object, ZELTO_VAL_MUI, &id);
        if (status == 0) status = object_value(object, ZELTO_VAL_MUITAG, &tag);
    }
    if (status != 0) return requests_fail(status);
    const char *revision = nullptr;
    if (revision_check && object_value(object, ZELTO_VAL_TUI_REV, &revision) != 0)
        return requests_fail(kNoSuitableInput);

    return run_request(query, 0, out_response, [&](const zelto_lookup_interface *lookup, zelto_lookup_request request) {
        auto data = [&](const char *key, const char *value) {
            return lookup->lookup_request_set_data(request, kRequestId, key, value, 1);
        };
        uint32_t s = lookup->lookup_request_add(request, lookup_type, kRequestId, "cnx", 0);
        if (s != 0) return s;
        const char *matched = nullptr;
        if (mui_form) {
            if ((s = data(ZELTO_LOOKUP_DATA_MUI, id)) || (s = data(ZELTO_LOOKUP_DATA_MEDIA_ID, tag))) return s;
            if (object_value(object, ZELTO_VAL_TRACK_MATCHED, &matched) == 0 &&
                (s = data(ZELTO_LOOKUP_DATA_TRACK_MATCHED, matched)))
                return s;
        } else {
            if ((s = data(ZELTO_LOOKUP_DATA_TUI, id)) || (s = data(ZELTO_LOOKUP_DATA_TUI_TAG, tag))) return s;
            // The matched track travels under one key, whatever its source.
            if (ombr_string_equal(context, ZELTO_CTX_ALBUM, 1)) {
                if (object_value(object, ZELTO_VAL_TRACK_MATCHED, &matched) == 0)
                    (void)data(ZELTO_LOOKUP_DATA_TRACK_MATCHED, matched);
            } else if (ombr_string_equal(context, ZELTO_CTX_TRACK, 1)) {
                if (object_value(object, ZELTO_VAL_TRACKNUMBER, &matched) == 0)
                    (void)data(ZELTO_LOOKUP_DATA_TRACK_MATCHED, matched);
            } else {
                (void)data(ZELTO_LOOKUP_DATA_TRACK_MATCHED, nullptr);
            }
        }
        if (revision_check && (s = data(ZELTO_LOOKUP_DATA_REV, revision))) return s;
        return 0u;
    });
}

extern "C" uint32_t _cantrix_perform_rvolookup(cantrix_query *query, uint32_t kind, zelto_rvo_handle *out_response) {
    if (!query || !out_response) return requests_fail(kInvalidArg);
    if (!query->input_rvo) return requests_fail(kNoSuitableInput);
    if (kind == 1) return _cantrix_perform_tui_query(query, query->input_rvo, ZELTO_LOOKUP_TYPE_ALBUM, out_response);
    if (kind == 2) return _cantrix_perform_tui_query(query, query->input_rvo, ZELTO_LOOKUP_TYPE_TRACK, out_response);
    return requests_fail(kInvalidArg);
}

extern "C" uint32_t _cantrix_perform_toclookup(cantrix_query *query, uint32_t kind, zelto_rvo_handle *out_response) {
    if (!query || !out_response) return requests_fail(kInvalidArg);
    char toc[1024];
    ombr_memory_memset(toc, 0, sizeof toc);
    uint32_t status = _cantrix_build_toc_string(query, toc, sizeof toc);
    if (status != 0) return requests_fail(status);
    return run_request(query, 0, out_response, [&](const zelto_lookup_interface *lookup, zelto_lookup_request request) {
        if (kind != 1) return kUnsupported;  // TOC lookups exist for albums only
        uint32_t s = lookup->lookup_request_add(request, ZELTO_LOOKUP_TYPE_ALBUM, kRequestId, "cnx", 0);
        if (s == 0) s = lookup->lookup_request_set_data(request, kRequestId, ZELTO_LOOKUP_DATA_TOC, toc, 1);
        // A fingerprint set beside the TOC travels with it.
        if (s == 0 && query->fp_data)
            s = lookup->lookup_request_set_data(request, kRequestId, ZELTO_LOOKUP_DATA_TVX_QUERYDATA, query->fp_data,
                                                1);
        if (s == 0) send_range(query, lookup, request);
        return s;
    });
}

extern "C" uint32_t _cantrix_perform_fpxlookup(cantrix_query *query, uint32_t kind, zelto_rvo_handle *out_response) {
    if (!query || !out_response) return requests_fail(kInvalidArg);
    return run_request(query, 0, out_response, [&](const zelto_lookup_interface *lookup, zelto_lookup_request request) {
        const char *type = kind == 1 ? ZELTO_LOOKUP_TYPE_ALBUM : kind == 2 ? ZELTO_LOOKUP_TYPE_TRACK : nullptr;
        const FingerprintKind *fp_kind = find_fingerprint_kind(query->fp_kind, 1);
        uint32_t s = 0;
        const char *data_key = nullptr;
        if (fp_kind && fp_kind->xml) {
            data_key = ZELTO_LOOKUP_DATA_FPX_QUERYDATA;
            if (type) s = lookup->lookup_request_add(request, type, kRequestId, "audio-block", 1);
            if (s == 0)
                s = lookup->lookup_request_set_data(request, kRequestId, ZELTO_LOOKUP_DATA_FPX_ALGNAME,
                                                    query->fp_algorithm_name, 1);
            if (s == 0)
                s = lookup->lookup_request_set_data(request, kRequestId, ZELTO_LOOKUP_DATA_FPX_ALGVER,
                                                    query->fp_algorithm_version, 1);
        } else if (fp_kind) {
            data_key = ZELTO_LOOKUP_DATA_TVX_QUERYDATA;
            if (type) s = lookup->lookup_request_add(request, type, kRequestId, "cnx", 0);
        } else {
            return kFpKindUnsendable;
        }
        if (s == 0) s = lookup->lookup_request_set_data(request, kRequestId, data_key, query->fp_data, 1);
        return s;
    });
}

extern "C" uint32_t _cantrix_get_album_full_disc(cantrix_query *query, zelto_rvo_handle album,
                                                 zelto_rvo_handle *out_album) {
    if (!query || !out_album) return requests_fail(kInvalidArg);
    const zelto_rvo_interface *rvo = g_cantrix_rvo_interface;
    const char *context = nullptr;
    uint32_t status = rvo->rvo_get_context(album, &context);
    if (status != 0) return requests_fail(status);
    if (ombr_string_strcmp(context, ZELTO_CTX_ALBUM) != 0) return requests_fail(kInvalidArg);
    const char *full = nullptr;
    status = object_value(album, ZELTO_VAL_FULL_RESULT, &full);
    if (ombr_string_atobool(full)) {
        rvo->rvo_addref(album);
        *out_album = album;
        return requests_fail(status);
    }
    zelto_rvo_handle response = nullptr;
    status = _cantrix_perform_tui_query(query, album, ZELTO_LOOKUP_TYPE_ALBUM, &response);
    if (status == 0) {
        status = rvo->rvo_child_get(response, ZELTO_CHILD_ALBUM, 1, 1, out_album);
        rvo->rvo_release(response);
    }
    return requests_fail(status);
}

// ---- Text searches -------------------------------------------------------------------

namespace {

struct FieldKey {
    const char *field;
    const char *data_key;
};

// Album and match searches send these fields in this order.
constexpr FieldKey kAlbumSearchFields[] = {
    {ZELTO_CANTRIX_FIELD_ALBUM_ARTIST, ZELTO_LOOKUP_DATA_ALBUM_ARTIST},
    {ZELTO_CANTRIX_FIELD_ALBUM, ZELTO_LOOKUP_DATA_ALBUM_TITLE},
    {ZELTO_CANTRIX_FIELD_TRACK_ARTIST, ZELTO_LOOKUP_DATA_TRACK_ARTIST},
    {ZELTO_CANTRIX_FIELD_TITLE, ZELTO_LOOKUP_DATA_TRACK_TITLE},
    {ZELTO_CANTRIX_FIELD_ARTIST, ZELTO_LOOKUP_DATA_ARTIST},
    {ZELTO_CANTRIX_FIELD_COMPOSER, ZELTO_LOOKUP_DATA_COMPOSER},
};

// Preset searches send these.
constexpr FieldKey kPresetSearchFields[] = {
    {ZELTO_CANTRIX_FIELD_TITLE, ZELTO_LOOKUP_DATA_TRACK_TITLE},
    {ZELTO_CANTRIX_FIELD_ALBUM, ZELTO_LOOKUP_DATA_ALBUM_TITLE},
    {ZELTO_CANTRIX_FIELD_ALBUM_ARTIST, ZELTO_LOOKUP_DATA_ALBUM_ARTIST},
    {ZELTO_CANTRIX_FIELD_TRACK_ARTIST, ZELTO_LOOKUP_DATA_TRACK_ARTIST},
    {ZELTO_CANTRIX_FIELD_ARTIST, ZELTO_LOOKUP_DATA_ARTIST},
    {ZELTO_CANTRIX_FIELD_LYRIC, ZELTO_LOOKUP_DATA_LYRIC_TITLE},
    {ZELTO_CANTRIX_FIELD_FRAGMENT, ZELTO_LOOKUP_DATA_LYRIC_FRAGMENT},
};

// A text field that counts: present and not empty; null otherwise.
const char *usable_field(const cantrix_query *query, const char *field) {
    const char *text = nullptr;
    if (!query->text_fields || ombr_stringmap_value_find(query->text_fields, field, &text) != 0) return nullptr;
    return ombr_string_isempty(text) ? nullptr : text;
}

// Sends the usable fields of a table in order, stopping at the first failing
// data call. `sent` records whether anything went out.
template <size_t N>
uint32_t send_fields(const cantrix_query *query, const zelto_lookup_interface *lookup, zelto_lookup_request request,
                     const FieldKey (&fields)[N], bool &sent) {
    for (const FieldKey &f : fields) {
        const char *text = usable_field(query, f.field);
        if (!text) continue;
        uint32_t status = lookup->lookup_request_set_data(request, kRequestId, f.data_key, text, 1);
        if (status != 0) return status;
        sent = true;
    }
    return 0;
}

// The shape shared by the text searches: declare the lookup (nothing for a
// null type), the preset option, the range and the fields; the options go
// out, and the request runs only if some field was sent.
template <typename SendFields>
uint32_t run_text_search(cantrix_query *query, const char *lookup_type, const char *preset, uint8_t text_search,
                         zelto_rvo_handle *out_object, SendFields send) {
    bool sent = false;
    return run_request(
        query, text_search, out_object,
        [&](const zelto_lookup_interface *lookup, zelto_lookup_request request) {
            uint32_t status = 0;
            if (lookup_type) status = lookup->lookup_request_add(request, lookup_type, kRequestId, "cnx", 0);
            if (status == 0 && preset)
                status = lookup->lookup_request_set_option(request, kRequestId, ZELTO_LOOKUP_OPTION_PRESET, preset);
            if (status != 0) return status;
            send_range(query, lookup, request);
            return send(lookup, request, sent);
        },
        [&] { return sent ? 0u : kNoSuitableInput; });
}

}  // namespace

extern "C" uint32_t _cantrix_perform_albumsearch(cantrix_query *query, uint32_t kind, zelto_rvo_handle *out_response) {
    if (!query || !out_response) return requests_fail(kInvalidArg);
    const char *type = kind == 1 ? ZELTO_LOOKUP_TYPE_ALBUM : kind == 2 ? ZELTO_LOOKUP_TYPE_TRACK : nullptr;
    return run_text_search(query, type, nullptr, 0, out_response,
                           [&](const zelto_lookup_interface *lookup, zelto_lookup_request request, bool &sent) {
                               return send_fields(query, lookup, request, kAlbumSearchFields, sent);
                           });
}

extern "C" uint32_t _cantrix_perform_matchsearch(cantrix_query *query, zelto_rvo_handle *out_response) {
    if (!query || !out_response) return requests_fail(kInvalidArg);
    return run_text_search(query, ZELTO_LOOKUP_TYPE_TEXT_MATCH, nullptr, 0, out_response,
                           [&](const zelto_lookup_interface *lookup, zelto_lookup_request request, bool &sent) {
                               return send_fields(query, lookup, request, kAlbumSearchFields, sent);
                           });
}

extern "C" uint32_t _cantrix_perform_presetsearch(cantrix_query *query, uint32_t kind, const char *preset,
                                                  zelto_rvo_handle *out_response) {
    if (!query || !out_response) return requests_fail(kInvalidArg);
    const char *type = kind == 1   ? ZELTO_LOOKUP_TYPE_ALBUM
                       : kind == 2 ? ZELTO_LOOKUP_TYPE_TRACK
                       : kind == 3 ? ZELTO_LOOKUP_TYPE_LYRIC
                                   : nullptr;
    return run_text_search(query, type, preset, 1, out_response,
                           [&](const zelto_lookup_interface *lookup, zelto_lookup_request request, bool &sent) {
                               return send_fields(query, lookup, request, kPresetSearchFields, sent);
                           });
}

extern "C" uint32_t _cantrix_perform_lyricsearch(cantrix_query *query, zelto_rvo_handle *out_response) {
    if (!query || !out_response) return requests_fail(kInvalidArg);
    return run_text_search(
        query, ZELTO_LOOKUP_TYPE_LYRIC, nullptr, 1, out_response,
        [&](const zelto_lookup_interface *lookup, zelto_lookup_request request, bool &sent) {
            // The title wins over the lyric title; only one of them is sent.
            const char *title = usable_field(query, ZELTO_CANTRIX_FIELD_TITLE);
            if (!title) title = usable_field(query, ZELTO_CANTRIX_FIELD_LYRIC);
            const FieldKey order[] = {{ZELTO_CANTRIX_FIELD_ARTIST, ZELTO_LOOKUP_DATA_LYRIC_ARTIST},
                                      {nullptr, ZELTO_LOOKUP_DATA_LYRIC_TITLE},
                                      {ZELTO_CANTRIX_FIELD_FRAGMENT, ZELTO_LOOKUP_DATA_LYRIC_FRAGMENT}};
            for (const FieldKey &f : order) {
                const char *text = f.field ? usable_field(query, f.field) : title;
                if (!text) continue;
                uint32_t status = lookup->lookup_request_set_data(request, kRequestId, f.data_key, text, 1);
                if (status != 0) return status;
                sent = true;
            }
            return 0u;
        });
}
