// The exported calls of the local catalogue: open and close, import,
// information, and the installation of its lookup provider.
#include <sys/stat.h>

#include <memory>
#include <new>
#include <string>
#include <string_view>

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

}  // namespace

HOST_EXPORT uint32_t zelto_catalogue_open(const char *path, uint32_t flags, zelto_catalogue **out_catalogue) {
    if (!path || !*path || !out_catalogue) return ZELTO_CATALOGUE_BAD_ARG;
    const std::string name(path);
    if (!(flags & ZELTO_CATALOGUE_OPEN_CREATE) && name != ":memory:") {
        struct stat st;
        if (stat(path, &st) != 0) return ZELTO_CATALOGUE_NO_FILE;
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
