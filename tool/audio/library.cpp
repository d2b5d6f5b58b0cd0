// The fingerprint command's loop over files: content check, fingerprint,
// link, store.
#include "tool/audio/library.h"

#include <chrono>
#include <cstdlib>

#include "tool/audio/fingerprinter.h"
#include "tool/audio/scan.h"
#include "zelto/zelto_manager.h"

namespace audio {

namespace {

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

const char *or_null(const std::string &s) { return s.empty() ? nullptr : s.c_str(); }

zelto_catalogue_audio_tags c_tags(const Tags &t, uint32_t duration_ms) {
    zelto_catalogue_audio_tags c{};
    c.title = or_null(t.title);
    c.artist = or_null(t.artist);
    c.album = or_null(t.album);
    c.album_artist = or_null(t.album_artist);
    c.genre = or_null(t.genre);
    c.year = t.year;
    c.track_number = t.track_number;
    c.disc_number = t.disc_number;
    c.duration_ms = duration_ms;
    c.mb_release_track_id = or_null(t.mb_release_track_id);
    c.mb_release_id = or_null(t.mb_release_id);
    c.mb_recording_id = or_null(t.mb_recording_id);
    return c;
}

// One reference on a result object.
struct Held {
    zelto_rvo_handle h = nullptr;
    ~Held() { zelto_manager_rvo_release(h); }
    std::string value(const char *key) const {
        const char *v = nullptr;
        return h && zelto_manager_rvo_value_get(h, key, 1, &v) == 0 && v ? v : "";
    }
    Held child(const char *key) const {
        Held c;
        if (h) zelto_manager_rvo_child_get(h, key, 1, 0, &c.h);
        return c;
    }
};

FileOutcome one_file(zelto_catalogue *catalogue, zelto_user *user, zelto_cantrix_query_handle query,
                     const std::string &path, const Limits &limits) {
    FileOutcome out;
    out.path = path;
    std::string error;
    const std::string content = content_id(path, error);
    if (content.empty()) {
        out.reason = error;
        return out;
    }
    uint8_t known = 0;
    if (zelto_catalogue_fingerprint_known(catalogue, content.c_str(), &known) == 0 && known) {
        out.kind = FileOutcome::Kind::unchanged;
        return out;
    }
    const Fingerprinted f = fingerprint_file(query, path, limits);
    if (!f.decode.ok) {
        out.reason = f.decode.error;
        return out;
    }
    out.seconds = f.decode.info.seconds;
    const Tags &tags = f.decode.info.tags;
    const zelto_catalogue_audio_tags c = c_tags(tags, static_cast<uint32_t>(f.decode.info.seconds * 1000));
    std::string track;
    const char *mb = nullptr;
    if ((!tags.mb_release_track_id.empty() || !tags.mb_release_id.empty()) &&
        zelto_catalogue_track_by_musicbrainz(catalogue, &c, &mb) == 0 && mb) {
        track = mb;
        out.link = FileOutcome::Link::musicbrainz;
    } else {
        track = track_by_text(user, tags, out.text_score);
        out.link = track.empty() ? FileOutcome::Link::created : FileOutcome::Link::text;
    }
    zelto_catalogue_fingerprint_entry entry{f.text.c_str(), content.c_str(), path.c_str(), or_null(track), &c};
    zelto_catalogue_fingerprint_result r{};
    const uint32_t status = zelto_catalogue_fingerprint_add(catalogue, &entry, &r);
    if (status != 0) {
        out.link = FileOutcome::Link::none;
        out.reason = zelto_catalogue_last_message(catalogue);
        if (out.reason.empty()) out.reason = "the catalogue refused it";
        return out;
    }
    out.kind = r.outcome == ZELTO_CATALOGUE_FP_ADDED        ? FileOutcome::Kind::added
               : r.outcome == ZELTO_CATALOGUE_FP_SAME_PRINT ? FileOutcome::Kind::same_audio
                                                            : FileOutcome::Kind::unchanged;
    if (out.kind != FileOutcome::Kind::added) out.link = FileOutcome::Link::none;
    if (out.link == FileOutcome::Link::created && !r.created_track) out.link = FileOutcome::Link::tags;
    out.new_album = r.created_album != 0;
    out.title = r.title ? r.title : "";
    out.artist = r.artist ? r.artist : "";
    out.album = r.album_title ? r.album_title : "";
    out.track_number = r.track_number;
    return out;
}

}  // namespace

std::string track_by_text(zelto_user *user, const Tags &tags, uint32_t &score) {
    score = 0;
    const std::string &artist = tags.artist.empty() ? tags.album_artist : tags.artist;
    if (tags.title.empty() || (artist.empty() && tags.album.empty())) return {};
    // A query of its own: text fields stay in a query until another kind
    // of input replaces them. Single-result mode orders the albums by their
    // score and keeps the best. A field the module refuses (invalid UTF-8,
    // say) leaves the search out.
    struct Query {
        zelto_cantrix_query_handle q = nullptr;
        ~Query() { zelto_cantrix_query_release(q); }
    } search;
    if (zelto_cantrix_query_create(user, nullptr, nullptr, &search.q) != 0 ||
        zelto_cantrix_query_option_set(search.q, "zelto_cantrix_single_result", "1") != 0)
        return {};
    const std::pair<const char *, const std::string *> fields[] = {
        {"zelto_cantrix_field_title", &tags.title},
        {"zelto_cantrix_field_artist", &artist},
        {"zelto_cantrix_field_album", &tags.album},
    };
    for (const auto &[key, text] : fields)
        if (!text->empty() && zelto_cantrix_query_set_text(search.q, key, text->c_str()) != 0) return {};
    Held response;
    if (zelto_cantrix_query_find_albums(search.q, &response.h) != 0) return {};
    const Held album = response.child("zelto_ctx_album!");
    score = static_cast<uint32_t>(std::strtoul(album.value("zelto_val_txtmatchscore").c_str(), nullptr, 10));
    if (score < kTextLinkThreshold) return {};
    return album.child("zelto_ctx_track!matching").value("zelto_val_tui");
}

LibrarySummary fingerprint_library(zelto_catalogue *catalogue, zelto_user *user, zelto_cantrix_query_handle query,
                                   const std::vector<std::string> &operands, const Limits &limits,
                                   const LibraryCallbacks &callbacks) {
    LibrarySummary summary;
    const auto start = std::chrono::steady_clock::now();
    const Scan scan = collect_files(operands);
    summary.missing = scan.problems;
    summary.files = scan.files.size();
    for (size_t i = 0; i < scan.files.size(); ++i) {
        if (callbacks.progress) callbacks.progress(i, scan.files.size(), seconds_since(start), summary.audio_seconds);
        FileOutcome o = one_file(catalogue, user, query, scan.files[i], limits);
        summary.audio_seconds += o.seconds;
        switch (o.kind) {
            case FileOutcome::Kind::added: ++summary.added; break;
            case FileOutcome::Kind::same_audio: ++summary.same_audio; break;
            case FileOutcome::Kind::unchanged: ++summary.unchanged; break;
            case FileOutcome::Kind::skipped: ++summary.skipped; break;
        }
        if (o.link == FileOutcome::Link::musicbrainz) ++summary.by_musicbrainz;
        if (o.link == FileOutcome::Link::text) ++summary.by_text;
        if (o.link == FileOutcome::Link::tags) ++summary.by_tags;
        if (o.link == FileOutcome::Link::created) ++summary.new_tracks;
        if (o.new_album) ++summary.new_albums;
        if (callbacks.file_done) callbacks.file_done(o);
        summary.outcomes.push_back(std::move(o));
    }
    summary.elapsed = seconds_since(start);
    if (callbacks.progress) callbacks.progress(scan.files.size(), scan.files.size(), summary.elapsed, summary.audio_seconds);
    return summary;
}

}  // namespace audio
