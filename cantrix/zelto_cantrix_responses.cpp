// Reshaping a provider's answer into the rows of a response record.
#include "cantrix/cantrix_requests.h"
#include "cantrix/cantrix_responses.h"
#include "ombr/ombr_datatypes.h"
#include "ombr/ombr_string.h"
#include "ombr/ombr_string_fuzzy.h"
#include "ombr/ombr_textcorr_normalize.h"

namespace {

using namespace cantrix;

constexpr const char *kResponsesUnit = "zelto_cantrix_responses";

uint32_t responses_fail(uint32_t status, std::source_location where = std::source_location::current()) {
    return ombr::error_exit(status, where.line(), kResponsesUnit);
}

// The end of every response function: a record whose processing failed is
// released and the failure reported; otherwise the caller gets it.
uint32_t hand_out(cantrix_response *response, uint32_t status, cantrix_response **out_response,
                  std::source_location where = std::source_location::current()) {
    if (status != 0) {
        _cantrix_rvo_response_release(response);
        return responses_fail(status, where);
    }
    *out_response = response;
    return 0;
}

}  // namespace

// The decision flag starts as "there were results" and could only be
// cleared by a "SINGLE" match type found through a map lookup whose status
// is 1. A map lookup never returns 1, so a response with results keeps the
// flag whatever its match type.
uint8_t cantrix::response_decision(uint32_t result_count, ombr_stringmap *info) {
    uint8_t decision = result_count > 0 ? 1 : 0;
    const char *match_type = nullptr;
    if (info && ombr_stringmap_value_find(info, ZELTO_VAL_MATCH_TYPE, &match_type) == 1 &&
        ombr_string_equal(match_type, ZELTO_MATCH_TYPE_SINGLE, 0))
        decision = 0;
    return decision;
}

// Range texts of a response of `rows` rows numbered from 1; "0" for all
// three when there are none.
uint32_t cantrix::set_row_range_texts(cantrix_response *response, uint32_t rows) {
    char digits[16];
    const char *end = rows > 0 ? ombr_string_u32toa(rows, digits, sizeof digits) : "0";
    response->range_start_text = ombr_string_strdup(rows > 0 ? "1" : "0");
    response->range_end_text = ombr_string_strdup(end);
    response->range_count_text = ombr_string_strdup(end);
    if (!response->range_start_text || !response->range_end_text || !response->range_count_text) return kNoMemory;
    return 0;
}

bool cantrix::single_mode(const cantrix_query *query) {
    const char *value = nullptr;
    if (!query->options || ombr_stringmap_value_find(query->options, ZELTO_CANTRIX_OPTION_SINGLE_RESULT, &value) != 0)
        return false;
    return ombr_string_atobool(value) != 0;
}

extern "C" uint32_t _cantrix_process_album_response(cantrix_query *query, zelto_rvo_handle object,
                                                    ombr_stringmap *info, const char *context,
                                                    cantrix_response **out_response) {
    if (!query || !object || !out_response) return responses_fail(kInvalidArg);
    const zelto_rvo_interface *rvo = g_cantrix_rvo_interface;
    const bool single = single_mode(query);
    uint32_t count = 0;
    (void)rvo->rvo_child_count(object, ZELTO_CHILD_ALBUM, &count);
    const uint32_t rows = single && count > 1 ? 1 : count;

    cantrix_response *response = nullptr;
    uint32_t status =
        _cantrix_rvo_alloc_response(ombr_string_isempty(context) ? ZELTO_CTX_RESPONSE_ALBUM : context, rows, &response);
    if (status != 0) return responses_fail(status);
    response->decision = response_decision(count, info);
    status = set_row_range_texts(response, rows);

    for (uint32_t ordinal = 1; status == 0 && ordinal <= rows; ++ordinal) {
        cantrix_response_row &row = response->rows[ordinal - 1];
        zelto_rvo_handle album = nullptr;
        uint32_t row_status = rvo->rvo_child_get(object, ZELTO_CHILD_ALBUM, ordinal, 1, &album);
        // A lone album is fetched in full by a second lookup.
        if (row_status == 0 && rows == 1) {
            zelto_rvo_handle full = nullptr;
            row_status = _cantrix_get_album_full_disc(query, album, &full);
            if (row_status == 0) {
                rvo->rvo_release(album);
                album = full;
            }
        }
        row.object = album;
        if (info && row_status == 0) (void)ombr_stringmap_copy(info, &row.info);
        // Only the last row's status counts; an earlier failed row stays empty.
        if (ordinal == rows) status = row_status;
    }
    return hand_out(response, status, out_response);
}

// ---- Display texts and scoring ------------------------------------------------------------

namespace {

// A value of an object at ordinal 1 as a number; 0 when it cannot be read.
uint32_t number_value(zelto_rvo_handle object, const char *key) {
    const char *text = nullptr;
    if (g_cantrix_rvo_interface->rvo_value_get(object, key, 1, &text) != 0) return 0;
    return ombr_string_atou32(text);
}

// Adds a score to a row's info map as decimal text.
uint32_t add_score(ombr_stringmap *info, uint32_t score) {
    char digits[16];
    return ombr_stringmap_value_add(info, ZELTO_VAL_TXTMATCHSCORE, ombr_string_u32toa(score, digits, sizeof digits));
}

// A usable text field of the query, or null.
const char *query_field(const cantrix_query *query, const char *field) {
    const char *text = nullptr;
    if (!query->text_fields || ombr_stringmap_value_find(query->text_fields, field, &text) != 0) return nullptr;
    return ombr_string_isempty(text) ? nullptr : text;
}

}  // namespace

extern "C" uint32_t _cantrix_get_title_display(zelto_rvo_handle object, const char **out_text,
                                               zelto_rvo_handle *out_holder) {
    if (!object || !out_text) return responses_fail(kInvalidArg);
    const zelto_rvo_interface *rvo = g_cantrix_rvo_interface;
    zelto_rvo_handle title = nullptr;
    uint32_t status = rvo->rvo_child_get(object, ZELTO_CHILD_TITLE_OFFICIAL, 1, 0, &title);
    if (status != 0) return responses_fail(status);
    status = rvo->rvo_value_get(title, ZELTO_VAL_DISPLAY, 1, out_text);
    if (status != 0) {
        rvo->rvo_release(title);
        return responses_fail(status);
    }
    *out_holder = title;
    return 0;
}

extern "C" uint32_t _cantrix_get_artist_display(zelto_rvo_handle object, const char **out_text,
                                                zelto_rvo_handle *out_holder) {
    if (!object || !out_text) return responses_fail(kInvalidArg);
    const zelto_rvo_interface *rvo = g_cantrix_rvo_interface;
    zelto_rvo_handle artist = nullptr;
    uint32_t status = rvo->rvo_child_get(object, ZELTO_CHILD_ARTIST, 1, 0, &artist);
    if (status != 0) return responses_fail(status);
    zelto_rvo_handle name = nullptr;
    status = rvo->rvo_child_get(artist, ZELTO_CHILD_NAME_OFFICIAL, 1, 0, &name);
    rvo->rvo_release(artist);
    if (status != 0) return responses_fail(status);
    status = rvo->rvo_value_get(name, ZELTO_VAL_DISPLAY, 1, out_text);
    if (status != 0) {
        rvo->rvo_release(name);
        return responses_fail(status);
    }
    *out_holder = name;
    return 0;
}

extern "C" uint32_t _cantrix_normalize_string(const char *text, char **out_key) {
    return ombr_textcorr_normalize_utf8_text(text, out_key, 0xDF, 0);
}

extern "C" uint32_t _cantrix_score_string_correlation(const char *input, const char *candidate, uint8_t skip_space,
                                                      uint32_t *out_score) {
    if (!out_score) return responses_fail(kInvalidArg);
    if (ombr_string_isempty(input) || ombr_string_isempty(candidate)) {
        *out_score = 0;
        return 0;
    }
    uint32_t raw = ombr_string_fuzzycmp_ex(input, candidate, skip_space, nullptr, nullptr);
    uint32_t norm = 0;
    // Normalising can only change the verdict of a partial match.
    if (raw >= 1 && raw <= 99) {
        char *key_input = nullptr, *key_candidate = nullptr;
        (void)_cantrix_normalize_string(input, &key_input);
        (void)_cantrix_normalize_string(candidate, &key_candidate);
        if (key_input && key_candidate) norm = ombr_string_fuzzycmp_ex(key_input, key_candidate, skip_space, nullptr, nullptr);
        ombr_memory_free(key_input);
        ombr_memory_free(key_candidate);
    }
    *out_score = raw > norm ? raw : norm;
    return 0;
}

namespace {

// Correlation of an input text with a display text taken from an object;
// adds to `count` when the display text exists and is not empty.
template <typename Display>
bool score_display(Display display, zelto_rvo_handle object, const char *input, uint8_t skip_space,
                   uint32_t &score) {
    const char *text = nullptr;
    zelto_rvo_handle holder = nullptr;
    if (display(object, &text, &holder) != 0) return false;
    bool usable = !ombr_string_isempty(text);
    if (usable) _cantrix_score_string_correlation(input, text, skip_space, &score);
    g_cantrix_rvo_interface->rvo_release(holder);
    return usable;
}

// The text match score of one album: the average over the fields that
// could be compared.
uint32_t album_row_score(const cantrix_query *query, zelto_rvo_handle album) {
    const char *artist = query_field(query, ZELTO_CANTRIX_FIELD_ARTIST);
    const char *album_title = query_field(query, ZELTO_CANTRIX_FIELD_ALBUM);
    const char *title = query_field(query, ZELTO_CANTRIX_FIELD_TITLE);
    uint32_t a = 0, b = 0, t = 0, count = 0;
    zelto_rvo_handle matching = nullptr;
    bool matching_fetched = false;
    auto fetch_matching = [&] {
        if (!matching_fetched) {
            matching_fetched = true;
            g_cantrix_rvo_interface->rvo_child_get(album, ZELTO_CHILD_TRACK_MATCHING, 1, 0, &matching);
        }
        return matching;
    };
    if (artist) {
        if (score_display(_cantrix_get_artist_display, album, artist, 1, a)) count = 1;
        // The matched track's artist may fit better than the album's.
        if (a <= 99 && fetch_matching()) {
            uint32_t track_artist = 0;
            if (score_display(_cantrix_get_artist_display, matching, artist, 1, track_artist) && track_artist > a) {
                a = track_artist;
                count = 1;
            }
        }
    }
    if (album_title && score_display(_cantrix_get_title_display, album, album_title, 0, b)) ++count;
    if (title && fetch_matching() && score_display(_cantrix_get_title_display, matching, title, 0, t)) ++count;
    g_cantrix_rvo_interface->rvo_release(matching);
    return count ? (a + b + t) / count : 0;
}

// Text score of a track or a lyric from its artist and title displays. With
// `with_bonus` a perfect score counts as one more field, as lyrics are scored.
uint32_t artist_title_score(const cantrix_query *query, zelto_rvo_handle object, bool with_bonus) {
    const char *artist = query_field(query, ZELTO_CANTRIX_FIELD_ARTIST);
    const char *title = query_field(query, ZELTO_CANTRIX_FIELD_TITLE);
    uint32_t a = 0, t = 0, count = 0;
    if (artist && score_display(_cantrix_get_artist_display, object, artist, 1, a)) count = 1;
    if (title && score_display(_cantrix_get_title_display, object, title, 0, t)) ++count;
    if (with_bonus) return (a + t + 100) / (count + 1);
    return count ? (a + t) / count : 0;
}

// Copies the provider's range values into the response; "0" for all three
// when there are no children.
uint32_t copy_provider_range(cantrix_response *response, zelto_rvo_handle object, uint32_t children) {
    struct {
        const char *key;
        char *cantrix_response::*text;
    } const ranges[] = {{ZELTO_VAL_RANGESTART, &cantrix_response::range_start_text},
                        {ZELTO_VAL_RANGEEND, &cantrix_response::range_end_text},
                        {ZELTO_VAL_RANGECOUNT, &cantrix_response::range_count_text}};
    for (const auto &range : ranges) {
        const char *value = "0";
        if (children > 0 && g_cantrix_rvo_interface->rvo_value_get(object, range.key, 1, &value) != 0) continue;
        response->*range.text = ombr_string_strdup(value);
        if (!(response->*range.text)) return kNoMemory;
    }
    return 0;
}

// Sets all four count texts of a one-row record to "1".
uint32_t set_single_texts(cantrix_response *response) {
    char **texts[] = {&response->result_count_text, &response->range_start_text, &response->range_end_text,
                      &response->range_count_text};
    for (char **text : texts) {
        ombr_string_free(*text);
        *text = ombr_string_strdup("1");
        if (!*text) return kNoMemory;
    }
    return 0;
}

// A new record of one row holding `row`'s object (with a new reference),
// score and, if `info` is given, that map. The old record is left alone.
uint32_t single_row_record(const cantrix_response *from, const cantrix_response_row &row, cantrix_response **out,
                           bool set_result_count) {
    cantrix_response *single = nullptr;
    uint32_t status = _cantrix_rvo_alloc_response(from->context(), 1, &single);
    if (status != 0) return status;
    single->decision = from->decision;
    status = set_single_texts(single);
    if (status == 0 && !set_result_count) {
        ombr_string_free(single->result_count_text);
        single->result_count_text = nullptr;
    }
    if (status != 0) {
        _cantrix_rvo_response_release(single);
        return status;
    }
    single->rows[0].object = row.object;
    single->rows[0].score = row.score;
    if (row.object) g_cantrix_rvo_interface->rvo_addref(row.object);
    *out = single;
    return 0;
}

int32_t compare_rows(const void *a, const void *b, void *) {
    return _cantrix_compare_by_result_score(static_cast<const cantrix_response_row *>(a),
                                            static_cast<const cantrix_response_row *>(b));
}

uint32_t sort_rows(cantrix_response *response, uint32_t rows) {
    return ombr_utils_qsort(response->rows, rows, sizeof(cantrix_response_row), compare_rows, nullptr);
}

// A copy of the info map for a row, or a new empty map without one. A copy
// that fails quietly (status 0, no map) is reported as the lack of memory
// it is, rather than as a later add to a missing map.
uint32_t row_info(ombr_stringmap *info, ombr_stringmap **out) {
    if (!info) return ombr_stringmap_create(out, 0);
    *out = nullptr;
    uint32_t status = ombr_stringmap_copy(info, out);
    return status == 0 && !*out ? kNoMemory : status;
}

// The opening shared by the responses that score their rows: a record of
// one row per child under `key`, its decision flag and the provider's range
// values, then dense rows (a child that cannot be read takes no row), each
// scored by `score` and given a copy of the info map with its score. The
// status is that of the last child handled; `used` counts the rows filled.
template <typename Score>
uint32_t build_scored_rows(zelto_rvo_handle object, ombr_stringmap *info, const char *key, const char *context,
                           cantrix_response **out, uint32_t &count, uint32_t &used, Score score) {
    const zelto_rvo_interface *rvo = g_cantrix_rvo_interface;
    count = 0;
    used = 0;
    (void)rvo->rvo_child_count(object, key, &count);
    cantrix_response *response = nullptr;
    uint32_t status = _cantrix_rvo_alloc_response(context, count, &response);
    if (status != 0) return status;
    response->decision = response_decision(count, info);
    status = copy_provider_range(response, object, count);
    if (status != 0) {
        _cantrix_rvo_response_release(response);
        return status;
    }
    for (uint32_t ordinal = 1; ordinal <= count; ++ordinal) {
        zelto_rvo_handle child = nullptr;
        if (rvo->rvo_child_get(object, key, ordinal, 1, &child) != 0) continue;
        cantrix_response_row &row = response->rows[used++];
        row.object = child;
        row.score = score(child);
        row.ordinal = used;
        status = row_info(info, &row.info);
        if (status == 0) status = add_score(row.info, row.score);
    }
    *out = response;
    return status;
}

}  // namespace

extern "C" int32_t _cantrix_compare_by_result_score(const cantrix_response_row *a, const cantrix_response_row *b) {
    int32_t difference = static_cast<int32_t>(b->score - a->score);
    if (difference != 0) return difference;
    return static_cast<int32_t>(a->ordinal - b->ordinal);
}

extern "C" uint32_t _cantrix_process_search_response(cantrix_query *query, zelto_rvo_handle object,
                                                     ombr_stringmap *info, cantrix_response **out_response) {
    if (!query || !object || !out_response) return responses_fail(kInvalidArg);
    const zelto_rvo_interface *rvo = g_cantrix_rvo_interface;
    const bool single = single_mode(query);
    uint32_t count = 0, used = 0;
    cantrix_response *response = nullptr;
    uint32_t status = build_scored_rows(object, info, ZELTO_CHILD_ALBUM, ZELTO_CTX_RESPONSE_ALBUM, &response, count,
                                        used, [&](zelto_rvo_handle album) { return album_row_score(query, album); });
    if (!response) return responses_fail(status);
    if (count != 0) {
        if (single) status = sort_rows(response, used);
        if (single && used >= 2) {
            cantrix_response *one = nullptr;
            uint32_t made = single_row_record(response, response->rows[0], &one, true);
            if (made == 0) {
                if (response->rows[0].info) (void)ombr_stringmap_copy(response->rows[0].info, &one->rows[0].info);
                _cantrix_rvo_response_release(response);
                response = one;
            } else {
                status = made;
            }
        } else {
            response->row_count = used;
        }
    }
    // A lone album that the provider marked partial is completed.
    if (response->row_count == 1) {
        cantrix_response_row &row = response->rows[0];
        uint32_t tracks = 0;
        (void)rvo->rvo_child_count(row.object, ZELTO_CHILD_TRACK, &tracks);
        uint32_t expected = number_value(row.object, ZELTO_VAL_ALBUMTRACKCNT);
        zelto_rvo_handle full = nullptr;
        if (expected != 0 && expected != tracks && _cantrix_get_album_full_disc(query, row.object, &full) == 0) {
            const char *matched = nullptr;
            if (rvo->rvo_value_get(row.object, ZELTO_VAL_TRACK_MATCHED, 1, &matched) == 0) {
                uint32_t added = row.info ? 0 : ombr_stringmap_create(&row.info, 0);
                if (added == 0) added = ombr_stringmap_value_add(row.info, ZELTO_VAL_TRACK_MATCHED, matched);
                const char *position = nullptr;
                if (added == 0 && rvo->rvo_value_get(row.object, ZELTO_VAL_TRACK_MATCHED_POS, 1, &position) == 0)
                    (void)ombr_stringmap_value_add(row.info, ZELTO_VAL_TRACK_MATCHED_POS, position);
            }
            rvo->rvo_release(row.object);
            row.object = full;
        }
        status = 0;
    }
    return hand_out(response, status, out_response);
}

extern "C" uint32_t _cantrix_process_track_response(cantrix_query *query, zelto_rvo_handle object,
                                                    ombr_stringmap *info, cantrix_response **out_response) {
    if (!query || !object || !out_response) return responses_fail(kInvalidArg);
    const zelto_rvo_interface *rvo = g_cantrix_rvo_interface;
    const bool single = single_mode(query);
    uint32_t count = 0;
    uint32_t status = rvo->rvo_child_count(object, ZELTO_CHILD_TRACK, &count);
    if (status != 0) return responses_fail(status);
    const uint32_t rows = single && count > 1 ? 1 : count;
    cantrix_response *response = nullptr;
    status = _cantrix_rvo_alloc_response(ZELTO_CTX_RESPONSE_TRACK, rows, &response);
    if (status != 0) return responses_fail(status);
    response->decision = response_decision(count, info);
    status = set_row_range_texts(response, rows);
    for (uint32_t ordinal = 1; status == 0 && ordinal <= rows; ++ordinal) {
        cantrix_response_row &row = response->rows[ordinal - 1];
        uint32_t row_status = rvo->rvo_child_get(object, ZELTO_CHILD_TRACK, ordinal, 1, &row.object);
        if (info) row_status = ombr_stringmap_copy(info, &row.info);
        if (query->text_fields) {
            uint32_t score = 0;
            if (!row.object)
                row_status = responses_fail(kInvalidArg);
            else
                score = artist_title_score(query, row.object, false);
            uint32_t made = row.info ? 0 : ombr_stringmap_create(&row.info, 0);
            if (made != 0) row_status = made;
            if (row_status == 0) row_status = add_score(row.info, score);
        }
        if (ordinal == rows) status = row_status;
    }
    return hand_out(response, status, out_response);
}

// ---- Match and lyric responses ----------------------------------------------------------

extern "C" uint32_t _cantrix_process_match_response(cantrix_query *query, zelto_rvo_handle object,
                                                    ombr_stringmap *info, cantrix_response **out_response) {
    if (!query || !object || !out_response) return responses_fail(kInvalidArg);
    const zelto_rvo_interface *rvo = g_cantrix_rvo_interface;
    uint32_t count = 0;
    (void)rvo->rvo_child_count(object, ZELTO_CHILD_RESPONSE_MATCH, &count);
    const bool single = single_mode(query);
    cantrix_response *response = nullptr;
    uint32_t status = _cantrix_rvo_alloc_response(ZELTO_CTX_RESPONSE_MATCH, count, &response);
    if (status != 0) return responses_fail(status);
    response->decision = response_decision(count, info);
    status = set_row_range_texts(response, count);
    if (status == 0 && count > 0) {
        char digits[16];
        response->result_count_text = ombr_string_strdup(ombr_string_u32toa(count, digits, sizeof digits));
        if (!response->result_count_text) status = kNoMemory;
    }
    uint32_t row_status = status;
    for (uint32_t ordinal = 1; status == 0 && ordinal <= count; ++ordinal) {
        cantrix_response_row &row = response->rows[ordinal - 1];
        zelto_rvo_handle child = nullptr;
        row_status = rvo->rvo_child_get(object, ZELTO_CHILD_RESPONSE_MATCH, ordinal, 1, &child);
        if (row_status != 0) continue;
        row.object = child;
        row.ordinal = ordinal - 1;
        const char *context = nullptr;
        row_status = rvo->rvo_get_context(child, &context);
        if (row_status != 0) continue;
        const uint32_t contributor = number_value(child, ZELTO_VAL_TEXT_MATCH_CONTRIB_SCORE);
        if (ombr_string_equal(context, ZELTO_CTX_ALBUM, 1)) {
            const uint32_t album = number_value(child, ZELTO_VAL_TEXT_MATCH_ALBUM_SCORE);
            const uint32_t track = number_value(child, ZELTO_VAL_TEXT_MATCH_TRACK_SCORE);
            // The track score is a percentage bonus on the album score.
            row.score = album + (track * album) / 100 + contributor;
            row_status = ombr_stringmap_create(&row.info, 0);
            if (row_status == 0) row_status = add_score(row.info, row.score);
        } else if (ombr_string_equal(context, ZELTO_CTX_CONTRIBUTOR, 1)) {
            row.score = contributor;
            const char *collaboration = nullptr;
            row_status = rvo->rvo_value_get(child, ZELTO_VAL_COLLAB_RESULT, 1, &collaboration);
            if (ombr_string_atobool(collaboration)) {
                uint32_t made = ombr_stringmap_create(&row.info, 0);
                if (made == 0) made = ombr_stringmap_value_add(row.info, ZELTO_VAL_COLLAB_RESULT, "1");
                if (made != 0) row_status = made;
            }
        } else {
            row_status = responses_fail(kUnsupported);
        }
    }
    if (status == 0) status = row_status;
    if (status == 0 && count > 0) status = sort_rows(response, count);
    if (status == 0 && single && count > 1) {
        cantrix_response *one = nullptr;
        status = single_row_record(response, response->rows[0], &one, false);
        if (status == 0) {
            // The first row's map moves over.
            one->rows[0].ordinal = response->rows[0].ordinal;
            one->rows[0].info = response->rows[0].info;
            response->rows[0].info = nullptr;
            _cantrix_rvo_response_release(response);
            response = one;
        }
    }
    return hand_out(response, status, out_response);
}

extern "C" uint32_t _cantrix_process_lyric_response(cantrix_query *query, zelto_rvo_handle object,
                                                    ombr_stringmap *info, cantrix_response **out_response) {
    if (!query || !object || !out_response) return responses_fail(kInvalidArg);
    const bool single = single_mode(query);
    uint32_t count = 0, used = 0;
    cantrix_response *response = nullptr;
    uint32_t status =
        build_scored_rows(object, info, ZELTO_CHILD_LYRIC, ZELTO_CTX_RESPONSE_LYRIC, &response, count, used,
                          [&](zelto_rvo_handle lyric) { return artist_title_score(query, lyric, true); });
    if (!response) return responses_fail(status);
    if (used > 0 && single) {
        (void)sort_rows(response, used);
        // In single mode the winner travels without its info map.
        cantrix_response *one = nullptr;
        status = single_row_record(response, response->rows[0], &one, true);
        _cantrix_rvo_response_release(response);
        if (status != 0) return responses_fail(status);
        *out_response = one;
        return 0;
    }
    if (status == 0) response->row_count = used;
    return hand_out(response, status, out_response);
}
