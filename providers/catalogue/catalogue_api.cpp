// The exported calls of the local catalogue: open and close, import,
// information, and the installation of its lookup provider.
#include <sqlite3.h>
#include <sys/stat.h>

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

bool ends_with(std::string_view s, std::string_view tail) {
    return s.size() >= tail.size() && s.substr(s.size() - tail.size()) == tail;
}

std::string base_name(const std::string &path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// SQLite's integrity check of a catalogue file (the quicker structural form
// when `quick`), through a read-only connection so that a damaged file is
// never written to. Collects the problems found, at most 20; none means a
// sound file with the catalogue's tables.
std::vector<std::string> check_file(const std::string &path, bool quick) {
    std::vector<std::string> problems;
    sqlite3 *db = nullptr;
    int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
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
        if (rc == SQLITE_DONE && problems.empty()) {
            stmt = nullptr;
            int tables = 0;
            if (sqlite3_prepare_v2(db,
                                   "SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name IN "
                                   "('meta', 'albums', 'discs', 'tocs')",
                                   -1, &stmt, nullptr) == SQLITE_OK &&
                sqlite3_step(stmt) == SQLITE_ROW)
                tables = sqlite3_column_int(stmt, 0);
            sqlite3_finalize(stmt);
            if (tables != 4) problems.emplace_back("not a catalogue: its tables are missing");
        }
    }
    if (rc != SQLITE_OK && rc != SQLITE_DONE) problems.emplace_back(db ? sqlite3_errmsg(db) : sqlite3_errstr(rc));
    sqlite3_close(db);
    return problems;
}

}  // namespace

HOST_EXPORT uint32_t zelto_catalogue_check(const char *path, char **out_report) {
    if (!path || !*path) return ZELTO_CATALOGUE_BAD_ARG;
    struct stat st;
    if (stat(path, &st) != 0) return ZELTO_CATALOGUE_NO_FILE;
    const std::vector<std::string> problems = check_file(path, false);
    if (out_report) {
        std::string text = problems.empty() ? "ok\n" : "";
        for (const std::string &line : problems) text += line + "\n";
        auto *copy = static_cast<char *>(std::malloc(text.size() + 1));
        if (!copy) return ZELTO_CATALOGUE_NO_MEMORY;
        std::memcpy(copy, text.c_str(), text.size() + 1);
        *out_report = copy;
    }
    return problems.empty() ? 0 : ZELTO_CATALOGUE_DATABASE;
}

HOST_EXPORT uint32_t zelto_catalogue_open(const char *path, uint32_t flags, zelto_catalogue **out_catalogue) {
    if (!path || !*path || !out_catalogue) return ZELTO_CATALOGUE_BAD_ARG;
    const std::string name(path);
    if (name != ":memory:") {
        struct stat st;
        const bool exists = stat(path, &st) == 0;
        if (!exists && !(flags & ZELTO_CATALOGUE_OPEN_CREATE)) return ZELTO_CATALOGUE_NO_FILE;
        // A damaged file is refused before anything reads from it or writes
        // to it: no answers from a broken index, no import into it.
        if (exists && st.st_size > 0 && !check_file(name, true).empty()) return ZELTO_CATALOGUE_DATABASE;
    }
    try {
        auto c = std::make_unique<zelto_catalogue>();
        catalogue::Status s = catalogue::Catalogue::open(name, c->db);
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
        const std::string base = base_name(file);
        catalogue::Catalogue &db = *catalogue->db;
        catalogue::Status s;
        if (S_ISDIR(st.st_mode))
            s = db.import_directory(file, report, progress);
        else if (base.rfind("lyrics", 0) == 0 && ends_with(base, ".jsonl"))
            s = db.import_lyrics_file(file, report);
        else if (ends_with(base, ".json") || ends_with(base, ".jsonl"))
            s = db.import_musicbrainz_file(file, report, progress);
        else
            s = db.import_xmcd_file(file, report);
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
