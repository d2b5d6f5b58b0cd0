// The exported calls of the local catalogue: open and close, import,
// information, and the installation of its lookup provider.
#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "providers/catalogue/provider.h"
#include "host/host_internal.h"

using namespace catalogue_provider;

namespace {

// SQLite's integrity check of a catalogue file (the quicker structural form
// when `quick`), through a read-only connection so that a damaged file is
// never written to. Collects the problems found, at most 20; none means a
// sound file. `status` is 0, ZELTO_CATALOGUE_DATABASE for damage, or
// ZELTO_CATALOGUE_NOT_CATALOGUE for a sound file that is no catalogue.
std::vector<std::string> check_file(const std::string &path, bool quick, uint32_t &status) {
    std::vector<std::string> problems;
    sqlite3 *db = nullptr;
    int rc = catalogue::open_read_only(path, db);
    if (rc == SQLITE_OK) {
        sqlite3_busy_timeout(db, 5000);
        sqlite3_stmt *stmt = nullptr;
        rc = sqlite3_prepare_v2(db, quick ? "PRAGMA quick_check(20)" : "PRAGMA integrity_check(20)", -1, &stmt,
                                nullptr);
        while (rc == SQLITE_OK && (rc = sqlite3_step(stmt)) == SQLITE_ROW) {
            const auto *line = reinterpret_cast<const char *>(sqlite3_column_text(stmt, 0));
            if (line && std::strcmp(line, "ok") != 0) problems.emplace_back(line);
            rc = SQLITE_OK;
        }
        sqlite3_finalize(stmt);
    }
    if (rc != SQLITE_OK && rc != SQLITE_DONE) problems.emplace_back(db ? sqlite3_errmsg(db) : sqlite3_errstr(rc));
    status = problems.empty() ? 0 : ZELTO_CATALOGUE_DATABASE;
    if (problems.empty()) {
        bool unmarked = false;
        const catalogue::Status s = catalogue::recognise(db, unmarked);
        if (!s.ok()) {
            problems.push_back(s.message);
            status = status_of(s);
        }
    }
    sqlite3_close(db);
    return problems;
}

// Whether a file has lost its end: it is shorter than the page count its
// own header gives, at a time when that count is valid (SQLite marks it so
// by the change counter) and no write-ahead log with frames in it could
// still hold the missing pages. Reads only the 100-byte header.
bool shorter_than_header(const std::string &path, uintmax_t size) {
    unsigned char h[100];
    FILE *f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    const size_t got = std::fread(h, 1, sizeof h, f);
    std::fclose(f);
    if (got < sizeof h) return true;
    const auto be32 = [&](size_t at) {
        return uint32_t(h[at]) << 24 | uint32_t(h[at + 1]) << 16 | uint32_t(h[at + 2]) << 8 | uint32_t(h[at + 3]);
    };
    const uint32_t raw_page = uint32_t(h[16]) << 8 | h[17];
    const uint64_t page = raw_page == 1 ? 65536 : raw_page;
    const uint32_t pages = be32(28);
    if (pages == 0 || page == 0 || be32(24) != be32(92)) return false;
    struct stat wal;
    if (::stat((path + "-wal").c_str(), &wal) == 0 && wal.st_size > 32) return false;
    return size < pages * page;
}

}  // namespace

HOST_EXPORT uint32_t zelto_catalogue_check(const char *path, char **out_report) {
    if (!path || !*path) return ZELTO_CATALOGUE_BAD_ARG;
    struct stat st;
    if (stat(path, &st) != 0) return ZELTO_CATALOGUE_NO_FILE;
    uint32_t status = 0;
    const std::vector<std::string> problems = check_file(path, false, status);
    if (out_report) {
        std::string text = problems.empty() ? "ok\n" : "";
        for (const std::string &line : problems) text += line + "\n";
        auto *copy = static_cast<char *>(std::malloc(text.size() + 1));
        if (!copy) return ZELTO_CATALOGUE_NO_MEMORY;
        std::memcpy(copy, text.c_str(), text.size() + 1);
        *out_report = copy;
    }
    return status;
}

HOST_EXPORT uint32_t zelto_catalogue_open(const char *path, uint32_t flags, zelto_catalogue **out_catalogue) {
    if (!path || !*path || !out_catalogue) return ZELTO_CATALOGUE_BAD_ARG;
    const std::string name(path);
    const bool read_only = (flags & ZELTO_CATALOGUE_OPEN_READONLY) != 0;
    if (name != ":memory:") {
        struct stat st;
        const bool exists = stat(path, &st) == 0;
        if (!exists && (read_only || !(flags & ZELTO_CATALOGUE_OPEN_CREATE))) return ZELTO_CATALOGUE_NO_FILE;
        // A damaged file, or one that is no catalogue, is refused before
        // anything writes to it: opened for writing, a file must pass
        // SQLite's structural check, which reads all of it (seconds for a
        // large catalogue). Opened only to read, the header and the schema
        // are checked and a file that has lost its end is refused; damage
        // inside a page is found by SQLite when a lookup reads that page,
        // and the lookup then fails with ZELTO_CATALOGUE_DATABASE.
        uint32_t status = 0;
        if (exists && (!read_only || shorter_than_header(name, uintmax_t(st.st_size))))
            check_file(name, true, status);
        if (status != 0) return status;
    }
    try {
        auto c = std::make_unique<zelto_catalogue>();
        catalogue::Status s = catalogue::Catalogue::open(
            name, c->db, read_only ? catalogue::OpenMode::read_only : catalogue::OpenMode::read_write);
        if (!s.ok()) return status_of(s);
        // Reading the count proves that the file is a catalogue.
        uint64_t albums = 0;
        if (!(s = c->db->album_count(albums)).ok()) return status_of(s);
        c->provider = new_table(c.get());
        register_catalogue(c.get());
        *out_catalogue = c.release();
        return 0;
    } catch (const std::bad_alloc &) {
        return ZELTO_CATALOGUE_NO_MEMORY;
    }
}

HOST_EXPORT uint32_t zelto_catalogue_close(zelto_catalogue *catalogue) {
    if (!catalogue) return 0;
    if (!unregister_catalogue(catalogue)) return ZELTO_CATALOGUE_BAD_ARG;
    host::uninstall_provider([&](uint32_t) { return &catalogue->provider->table; });
    // The table stays allocated: whoever still holds it may call its slots,
    // which now refuse, and give its reference back.
    retire_table(catalogue->provider);
    delete catalogue;
    return 0;
}

HOST_EXPORT const char *zelto_catalogue_last_message(zelto_catalogue *catalogue) {
    if (!live(catalogue)) return "";
    std::lock_guard<std::mutex> guard(catalogue->mutex);
    return catalogue->message.c_str();
}

HOST_EXPORT uint32_t zelto_catalogue_import(zelto_catalogue *catalogue, const char *path,
                                            zelto_catalogue_progress_callback callback, void *callback_data,
                                            zelto_catalogue_import_report *out_report) {
    if (!live(catalogue) || !path || !*path) return ZELTO_CATALOGUE_BAD_ARG;
    struct stat st;
    if (stat(path, &st) != 0) return fail(catalogue, ZELTO_CATALOGUE_IO_ERROR, std::string("cannot read ") + path);
    try {
        catalogue::ImportReport report;
        catalogue::ProgressCallback progress;
        if (callback)
            progress = [&](const catalogue::ImportProgress &p) {
                uint8_t stop = 0;
                callback(callback_data, p.bytes_done, p.bytes_total, p.albums_imported, &stop);
                return stop != 1;
            };
        const std::string file(path);
        catalogue::Catalogue &db = *catalogue->db;
        catalogue::Status s;
        if (S_ISDIR(st.st_mode))
            s = db.import_directory(file, report, progress);
        else
            s = db.import_file(file, report, progress);
        if (!S_ISDIR(st.st_mode) && callback && s.ok()) {
            // Single-file importers without progress of their own end at 100%.
            uint8_t stop = 0;
            callback(callback_data, static_cast<uint64_t>(st.st_size), static_cast<uint64_t>(st.st_size),
                     report.imported, &stop);
        }
        {
            std::lock_guard<std::mutex> guard(catalogue->mutex);
            catalogue->import_messages = report.messages;
        }
        if (out_report) {
            out_report->records = report.records;
            out_report->imported = report.imported;
            out_report->replaced = report.replaced;
            out_report->unchanged = report.unchanged;
            out_report->skipped = report.skipped;
            out_report->stopped = report.stopped ? 1 : 0;
        }
        if (!s.ok()) return fail(catalogue, s);
        return 0;
    } catch (const std::bad_alloc &) {
        return ZELTO_CATALOGUE_NO_MEMORY;
    }
}

HOST_EXPORT const char *zelto_catalogue_import_message(zelto_catalogue *catalogue, uint32_t index) {
    if (!live(catalogue)) return nullptr;
    std::lock_guard<std::mutex> guard(catalogue->mutex);
    return index < catalogue->import_messages.size() ? catalogue->import_messages[index].c_str() : nullptr;
}

HOST_EXPORT uint32_t zelto_catalogue_find_disc_id(zelto_catalogue *catalogue, const char *disc_id,
                                                 uint32_t *out_count) {
    if (!live(catalogue) || !disc_id || !*disc_id || !out_count) return ZELTO_CATALOGUE_BAD_ARG;
    try {
        std::vector<std::string> tocs;
        catalogue::Status s = catalogue->db->tocs_by_disc_id(disc_id, tocs);
        if (!s.ok()) return fail(catalogue, s);
        std::lock_guard<std::mutex> guard(catalogue->mutex);
        catalogue->disc_id_tocs = std::move(tocs);
        *out_count = static_cast<uint32_t>(catalogue->disc_id_tocs.size());
        return 0;
    } catch (const std::bad_alloc &) {
        return fail(catalogue, ZELTO_CATALOGUE_NO_MEMORY, "out of memory");
    }
}

HOST_EXPORT const char *zelto_catalogue_disc_id_toc(zelto_catalogue *catalogue, uint32_t index) {
    if (!live(catalogue)) return nullptr;
    std::lock_guard<std::mutex> guard(catalogue->mutex);
    return index < catalogue->disc_id_tocs.size() ? catalogue->disc_id_tocs[index].c_str() : nullptr;
}

namespace {

void entry_of(const catalogue::AlbumListEntry &e, zelto_catalogue_album_entry *out) {
    *out = {e.tui.c_str(), e.title.c_str(), e.artist.c_str(), e.year, e.discs, e.tracks};
}

}  // namespace

HOST_EXPORT uint32_t zelto_catalogue_list_albums(zelto_catalogue *catalogue, uint32_t start, uint32_t count,
                                                uint32_t *out_listed, uint32_t *out_total) {
    if (!live(catalogue) || start == 0 || count == 0 || !out_listed || !out_total) return ZELTO_CATALOGUE_BAD_ARG;
    try {
        catalogue::AlbumList list;
        const uint32_t end = count - 1 > UINT32_MAX - start ? UINT32_MAX : start + count - 1;
        const catalogue::Status s = catalogue->db->list_albums({start, end}, list);
        if (!s.ok()) return fail(catalogue, s);
        std::lock_guard<std::mutex> guard(catalogue->mutex);
        catalogue->listed = std::move(list.albums);
        *out_listed = static_cast<uint32_t>(catalogue->listed.size());
        *out_total = list.total;
        return 0;
    } catch (const std::bad_alloc &) {
        return fail(catalogue, ZELTO_CATALOGUE_NO_MEMORY, "out of memory");
    }
}

HOST_EXPORT uint32_t zelto_catalogue_listed_album(zelto_catalogue *catalogue, uint32_t index,
                                                 zelto_catalogue_album_entry *out_entry) {
    if (!live(catalogue) || !out_entry) return ZELTO_CATALOGUE_BAD_ARG;
    std::lock_guard<std::mutex> guard(catalogue->mutex);
    if (index >= catalogue->listed.size()) return ZELTO_CATALOGUE_NO_RESULT;
    entry_of(catalogue->listed[index], out_entry);
    return 0;
}

HOST_EXPORT uint32_t zelto_catalogue_remove_album(zelto_catalogue *catalogue, const char *tui,
                                                 zelto_catalogue_album_entry *out_entry) {
    if (!live(catalogue) || !tui || !*tui) return ZELTO_CATALOGUE_BAD_ARG;
    try {
        catalogue::AlbumListEntry removed;
        const catalogue::Status s = catalogue->db->remove_album(tui, removed);
        if (!s.ok()) return fail(catalogue, s);
        std::lock_guard<std::mutex> guard(catalogue->mutex);
        catalogue->listed.assign(1, std::move(removed));
        if (out_entry) entry_of(catalogue->listed.front(), out_entry);
        return 0;
    } catch (const std::bad_alloc &) {
        return fail(catalogue, ZELTO_CATALOGUE_NO_MEMORY, "out of memory");
    }
}

HOST_EXPORT uint32_t zelto_catalogue_get_info(zelto_catalogue *catalogue, zelto_catalogue_info *out_info) {
    if (!live(catalogue) || !out_info) return ZELTO_CATALOGUE_BAD_ARG;
    catalogue::Statistics counts;
    catalogue::Status s = catalogue->db->statistics(counts);
    if (!s.ok()) return fail(catalogue, s);
    *out_info = {counts.albums, counts.discs, counts.tocs, counts.tracks, counts.artists, counts.lyrics};
    return 0;
}

HOST_EXPORT const zelto_lookup_interface *zelto_catalogue_lookup_table(zelto_catalogue *catalogue) {
    return live(catalogue) ? &catalogue->provider->table : nullptr;
}

HOST_EXPORT uint32_t zelto_catalogue_install(zelto_catalogue *catalogue, uint32_t mode) {
    if (!live(catalogue)) return ZELTO_CATALOGUE_BAD_ARG;
    return host::install_provider(mode, [&](uint32_t) { return &catalogue->provider->table; });
}

HOST_EXPORT uint32_t zelto_catalogue_live_requests(zelto_catalogue *catalogue) {
    if (!live(catalogue)) return 0;
    std::lock_guard<std::mutex> guard(catalogue->mutex);
    return catalogue->live_requests;
}

// ---- Audio fingerprints -------------------------------------------------------------------

namespace {

std::string text_or_empty(const char *text) { return text ? text : ""; }

catalogue::AudioTags tags_of(const zelto_catalogue_audio_tags *t) {
    catalogue::AudioTags tags;
    if (!t) return tags;
    tags.title = text_or_empty(t->title);
    tags.artist = text_or_empty(t->artist);
    tags.album = text_or_empty(t->album);
    tags.album_artist = text_or_empty(t->album_artist);
    tags.genre = text_or_empty(t->genre);
    tags.year = t->year;
    tags.track_number = t->track_number;
    tags.disc_number = t->disc_number;
    tags.duration_ms = t->duration_ms;
    tags.mb_release_track_id = text_or_empty(t->mb_release_track_id);
    tags.mb_release_id = text_or_empty(t->mb_release_id);
    tags.mb_recording_id = text_or_empty(t->mb_recording_id);
    return tags;
}

}  // namespace

HOST_EXPORT uint32_t zelto_catalogue_fingerprint_known(zelto_catalogue *catalogue, const char *content_id,
                                                      uint8_t *out_known) {
    if (!live(catalogue) || !content_id || !out_known) return ZELTO_CATALOGUE_BAD_ARG;
    bool known = false;
    const catalogue::Status s = catalogue->db->fingerprint_known(content_id, known);
    if (!s.ok()) return fail(catalogue, s);
    *out_known = known ? 1 : 0;
    return 0;
}

HOST_EXPORT uint32_t zelto_catalogue_track_by_musicbrainz(zelto_catalogue *catalogue,
                                                         const zelto_catalogue_audio_tags *tags,
                                                         const char **out_track_tui) {
    if (!live(catalogue) || !tags || !out_track_tui) return ZELTO_CATALOGUE_BAD_ARG;
    try {
        std::string tui;
        const catalogue::Status s = catalogue->db->track_for_musicbrainz(tags_of(tags), tui);
        if (!s.ok()) return fail(catalogue, s);
        std::lock_guard<std::mutex> guard(catalogue->mutex);
        catalogue->last_tui = std::move(tui);
        *out_track_tui = catalogue->last_tui.c_str();
        return 0;
    } catch (const std::bad_alloc &) {
        return ZELTO_CATALOGUE_NO_MEMORY;
    }
}

HOST_EXPORT uint32_t zelto_catalogue_fingerprint_add(zelto_catalogue *catalogue,
                                                    const zelto_catalogue_fingerprint_entry *entry,
                                                    zelto_catalogue_fingerprint_result *out_result) {
    if (!live(catalogue) || !entry || !entry->fp_text || !entry->content_id) return ZELTO_CATALOGUE_BAD_ARG;
    try {
        catalogue::FingerprintEntry e;
        std::string why;
        if (!catalogue::fp::parse_query_text(entry->fp_text, "", "", e.print, why))
            return fail(catalogue, ZELTO_CATALOGUE_INVALID_DATA, why);
        e.content_id = entry->content_id;
        e.name = text_or_empty(entry->name);
        e.track_tui = text_or_empty(entry->track_tui);
        e.tags = tags_of(entry->tags);
        catalogue::FingerprintAdded added;
        const catalogue::Status s = catalogue->db->add_fingerprint(e, added);
        if (!s.ok())
            return fail(catalogue, s.code == catalogue::Code::not_found ? ZELTO_CATALOGUE_INVALID_DATA : status_of(s),
                        s.message);
        std::lock_guard<std::mutex> guard(catalogue->mutex);
        catalogue->last_added = std::move(added);
        if (out_result) {
            const catalogue::FingerprintAdded &a = catalogue->last_added;
            using Outcome = catalogue::FingerprintAdded::Outcome;
            out_result->outcome = a.outcome == Outcome::added        ? ZELTO_CATALOGUE_FP_ADDED
                                  : a.outcome == Outcome::same_print ? ZELTO_CATALOGUE_FP_SAME_PRINT
                                                                     : ZELTO_CATALOGUE_FP_KNOWN_FILE;
            out_result->created_album = a.created_album ? 1 : 0;
            out_result->created_track = a.created_track ? 1 : 0;
            out_result->disc_number = a.disc_number;
            out_result->track_number = a.track_number;
            out_result->track_tui = a.track_tui.c_str();
            out_result->album_tui = a.album_tui.c_str();
            out_result->title = a.title.c_str();
            out_result->artist = a.artist.c_str();
            out_result->album_title = a.album_title.c_str();
        }
        return 0;
    } catch (const std::bad_alloc &) {
        return ZELTO_CATALOGUE_NO_MEMORY;
    }
}

HOST_EXPORT uint32_t zelto_catalogue_fingerprint_counts(zelto_catalogue *catalogue,
                                                       zelto_catalogue_fingerprint_info *out_info) {
    if (!live(catalogue) || !out_info) return ZELTO_CATALOGUE_BAD_ARG;
    catalogue::FingerprintCounts counts;
    const catalogue::Status s = catalogue->db->fingerprint_counts(counts);
    if (!s.ok()) return fail(catalogue, s);
    out_info->fingerprints = counts.prints;
    out_info->files = counts.files;
    out_info->postings = counts.postings;
    return 0;
}
