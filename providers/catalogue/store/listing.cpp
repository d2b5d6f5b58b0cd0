// The albums of a catalogue as a list, and the removal of one by its
// identifier together with the fingerprints linked to its tracks.
#include "providers/catalogue/store/catalogue_internal.h"

namespace catalogue {

Status Catalogue::list_albums(Range range, AlbumList &out) noexcept {
    return guarded([&]() -> Status {
        Status st = check_range(range);
        if (!st.ok()) return st;
        std::lock_guard lock(impl_->mutex);
        Impl &impl = *impl_;
        out = AlbumList{};
        {
            Stmt q(impl.prepare("SELECT count(*) FROM albums", st));
            if (!q) return st;
            if (q.step() != SQLITE_ROW) return impl.db_error("count albums");
            out.total = q.u32(0);
        }
        Stmt q(impl.prepare("SELECT tui, title, artist, year, disc_count, track_count FROM albums "
                            "ORDER BY artist COLLATE NOCASE, title COLLATE NOCASE, id LIMIT ? OFFSET ?",
                            st));
        if (!q) return st;
        q.bind(1, int64_t{range.end} - range.start + 1);
        q.bind(2, int64_t{range.start} - 1);
        int rc;
        while ((rc = q.step()) == SQLITE_ROW)
            out.albums.push_back({q.text(0), q.text(1), q.text(2), q.u32(3), q.u32(4), q.u32(5)});
        if (rc != SQLITE_DONE) return impl.db_error("list albums");
        if (!out.albums.empty()) {
            out.range_start = range.start;
            out.range_end = range.start + static_cast<uint32_t>(out.albums.size()) - 1;
        }
        return st;
    });
}

Status Catalogue::remove_album(std::string_view tui, AlbumListEntry &removed) noexcept {
    return guarded([&]() -> Status {
        std::lock_guard lock(impl_->mutex);
        Impl &impl = *impl_;
        Status st;
        int64_t id = 0;
        {
            Stmt q(impl.prepare("SELECT id, tui, title, artist, year, disc_count, track_count FROM albums "
                                "WHERE tui = ?",
                                st));
            if (!q) return st;
            q.bind(1, tui);
            if (q.step() != SQLITE_ROW) return Status::error(Code::not_found, "no album " + std::string(tui));
            id = q.i64(0);
            removed = {q.text(1), q.text(2), q.text(3), q.u32(4), q.u32(5), q.u32(6)};
        }
        if (!(st = impl.exec("SAVEPOINT remove_album")).ok()) return st;
        // Fingerprints of its tracks would otherwise name tracks that are gone.
        bool prints = false;
        {
            Stmt q(impl.prepare("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = 'fp_prints'", st));
            if (!q) st = impl.db_error("find fingerprint tables");
            prints = q && q.step() == SQLITE_ROW;
        }
        if (st.ok() && prints)
            st = impl.write(std::string("DELETE FROM fp_index WHERE print_id IN (SELECT id FROM fp_prints WHERE track_tui IN "
                            "(SELECT ") + kTrackTui + " FROM tracks t JOIN albums a ON a.id = t.album_id"
                            " WHERE t.album_id = ?))",
                            "remove fingerprint postings", nullptr, id);
        if (st.ok() && prints)
            st = impl.write(std::string("DELETE FROM fp_prints WHERE track_tui IN (SELECT ") + kTrackTui +
                                " FROM tracks t JOIN albums a ON a.id = t.album_id WHERE t.album_id = ?)",
                            "remove fingerprints", nullptr, id);
        if (st.ok()) st = impl.remove_album(id);
        if (!st.ok()) impl.exec("ROLLBACK TO remove_album");
        impl.exec("RELEASE remove_album");
        return st;
    });
}

}  // namespace catalogue
