// Reading a response through the manager's result-object calls.
#include "tool/results.h"

#include "zelto/zelto_catalogue.h"
#include "zelto/zelto_host_services.h"

namespace tool {

Object::~Object() { zelto_manager_rvo_release(h_); }

std::string Object::value(const char *key) const {
    const char *v = nullptr;
    return h_ && zelto_manager_rvo_value_get(h_, key, 1, &v) == 0 && v ? v : "";
}

uint32_t Object::count(const char *key) const {
    uint32_t n = 0;
    return h_ && zelto_manager_rvo_child_count(h_, key, &n) == 0 ? n : 0;
}

Object Object::child(const char *key, uint32_t ordinal) const {
    Object c;
    if (h_ && zelto_manager_rvo_child_get(h_, key, ordinal, 0, c.out()) != 0) c.h_ = nullptr;
    return c;
}

std::string Object::context() const {
    const char *c = nullptr;
    return h_ && zelto_manager_rvo_get_context(h_, &c) == 0 && c ? c : "";
}

std::string Object::title() const { return child(ZELTO_CHILD_TITLE_OFFICIAL, 1).value(ZELTO_VAL_DISPLAY); }

std::string Object::artist() const {
    return child(ZELTO_CHILD_ARTIST, 1).child(ZELTO_CHILD_NAME_OFFICIAL, 1).value(ZELTO_VAL_DISPLAY);
}

std::string Object::name() const { return child(ZELTO_CHILD_NAME_OFFICIAL, 1).value(ZELTO_VAL_DISPLAY); }

namespace {

Row read_track(const Object &track) {
    Row row;
    row.context = ZELTO_CTX_TRACK;
    row.number = track.value(ZELTO_VAL_TRACKNUMBER);
    row.title = track.title();
    row.artist = track.artist();
    row.duration_ms = track.value(ZELTO_VAL_DURATION);
    row.tui = track.value(ZELTO_VAL_TUI);
    row.disc_number = track.value(ZELTO_VAL_DISCNUMBER);
    return row;
}

void read_album(const Object &album, Row &row) {
    // The display texts, else the album's own values.
    row.title = album.title();
    if (row.title.empty()) row.title = album.value(ZELTO_VAL_TITLE);
    row.artist = album.artist();
    if (row.artist.empty()) row.artist = album.value(ZELTO_VAL_ARTIST);
    row.year = album.value(ZELTO_VAL_YEAR);
    row.genre = album.value(ZELTO_VAL_GENRE);
    row.track_count = album.value(ZELTO_VAL_ALBUMTRACKCNT);
    row.tui = album.value(ZELTO_VAL_TUI);
    row.toc = album.value(ZELTO_VAL_TOC);
    row.country = album.value(ZELTO_VAL_COUNTRY);
    row.release_date = album.value(ZELTO_VAL_RELEASE_DATE);
    row.label = album.value(ZELTO_VAL_LABEL);
    row.catalogue_number = album.value(ZELTO_VAL_CATALOG_NUMBER);
    row.barcode = album.value(ZELTO_VAL_BARCODE);
    row.format = album.value(ZELTO_VAL_FORMAT);
    const uint32_t n = album.count(ZELTO_CHILD_TRACK);
    for (uint32_t i = 1; i <= n; ++i) row.tracks.push_back(read_track(album.child(ZELTO_CHILD_TRACK, i)));
    // The disc that matched, on a release of one disc or several.
    row.disc_count = album.value(ZELTO_VAL_DISCCOUNT);
    const Object disc = album.child(ZELTO_CHILD_DISC_MATCHING, 1);
    if (disc.get()) {
        row.disc_number = disc.value(ZELTO_VAL_DISCNUMBER);
        row.disc_title = disc.title();
        row.disc_toc = disc.value(ZELTO_VAL_TOC);
        const uint32_t m = disc.count(ZELTO_CHILD_TRACK);
        for (uint32_t i = 1; i <= m; ++i) row.disc_tracks.push_back(read_track(disc.child(ZELTO_CHILD_TRACK, i)));
    }
}

Row read_row(const Object &object) {
    Row row;
    const std::string context = object.context();
    if (context == ZELTO_CTX_ALBUM) {
        read_album(object, row);
    } else if (context == ZELTO_CTX_TRACK) {
        row = read_track(object);
    } else if (context == ZELTO_CTX_CONTRIBUTOR) {
        row.name = object.name();
        row.collaboration = object.value(ZELTO_VAL_COLLAB_RESULT);
    } else if (context == ZELTO_CTX_LYRIC) {
        row.title = object.title();
        row.artist = object.artist();
        row.text = object.value(ZELTO_VAL_LYRIC_TEXT);
        row.album_tui = object.value(ZELTO_VAL_ALBUM_TUI);
        row.disc_number = object.value(ZELTO_VAL_DISCNUMBER);
        row.number = object.value(ZELTO_VAL_TRACKNUMBER);
        const Object album = object.child(ZELTO_CHILD_ALBUM, 1);
        row.album_title = album.title();
        row.album_artist = album.artist();
        row.track_title = object.child(ZELTO_CHILD_TRACK, 1).title();
    }
    row.context = context;
    row.fp_score = object.value(ZELTO_CATALOGUE_VAL_FP_SCORE);
    if (!row.fp_score.empty()) {
        row.fp_offset_ms = object.value(ZELTO_CATALOGUE_VAL_FP_OFFSET);
        row.fp_compared_ms = object.value(ZELTO_CATALOGUE_VAL_FP_COMPARED);
        if (context == ZELTO_CTX_ALBUM) {
            const Object matched = object.child(ZELTO_CHILD_TRACK_MATCHING, 1);
            row.matched_number = matched.value(ZELTO_VAL_TRACKNUMBER);
            row.matched_title = matched.title();
        }
    }
    row.match_score = object.value(ZELTO_VAL_TXTMATCHSCORE);
    row.match_type = object.value(ZELTO_VAL_MATCH_TYPE);
    row.lookup_type = object.value(ZELTO_VAL_LOOKUP_TYPE);
    return row;
}

// Child key of the rows for each kind of search.
const char *row_key(const std::string &kind) {
    if (kind == "tracks") return ZELTO_CHILD_TRACK;
    if (kind == "matches") return ZELTO_CHILD_RESPONSE_MATCH;
    if (kind == "lyrics") return ZELTO_CHILD_LYRIC;
    return ZELTO_CHILD_ALBUM;
}

}  // namespace

Answer read_answer(const Object &response, const std::string &kind) {
    Answer answer;
    answer.kind = kind;
    answer.range_start = response.value(ZELTO_VAL_RANGESTART);
    answer.range_end = response.value(ZELTO_VAL_RANGEEND);
    answer.range_count = response.value(ZELTO_VAL_RANGECOUNT);
    const char *key = row_key(kind);
    const uint32_t rows = response.count(key);
    for (uint32_t i = 1; i <= rows; ++i) answer.rows.push_back(read_row(response.child(key, i)));
    return answer;
}

}  // namespace tool
