// Catalogue store of audio fingerprints: the tables (made by the first
// fingerprint stored), linking a file to a track by MusicBrainz identifier
// or by its tags, storing a fingerprint with its index postings, and
// matching a query against them.
#include <algorithm>
#include <cstdio>
#include <set>

#include "providers/catalogue/store/catalogue_internal.h"

namespace catalogue {

namespace {

constexpr const char *kFingerprintSchema = R"sql(
CREATE TABLE IF NOT EXISTS fp_prints(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  track_tui TEXT NOT NULL,
  algorithm INTEGER NOT NULL,
  duration INTEGER NOT NULL,      -- seconds
  item_count INTEGER NOT NULL,
  indexed INTEGER NOT NULL,       -- postings in fp_index
  digest TEXT NOT NULL UNIQUE,
  data BLOB NOT NULL);            -- Chromaprint's compressed form
CREATE INDEX IF NOT EXISTS fp_prints_track ON fp_prints(track_tui);
CREATE TABLE IF NOT EXISTS fp_files(
  content_id TEXT PRIMARY KEY,
  print_id INTEGER NOT NULL REFERENCES fp_prints(id) ON DELETE CASCADE,
  name TEXT NOT NULL) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS fp_files_print ON fp_files(print_id);
CREATE TABLE IF NOT EXISTS fp_index(
  key INTEGER NOT NULL, print_id INTEGER NOT NULL, position INTEGER NOT NULL,
  PRIMARY KEY(key, print_id, position)) WITHOUT ROWID;
-- Release track identifiers of MusicBrainz imports, for linking tagged files.
CREATE INDEX IF NOT EXISTS tracks_source ON tracks(source_id) WHERE source_id <> '';
INSERT OR IGNORE INTO meta(key, value) VALUES('fingerprints', '1');
)sql";

constexpr const char *kUnknownAlbum = "Unknown album";
constexpr const char *kUnknownArtist = "Unknown artist";

bool tables_exist(Catalogue::Impl &impl, Status &st) {
    Stmt q(impl.prepare("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = 'fp_index'", st));
    return q && q.step() == SQLITE_ROW;
}

Status ensure_tables(Catalogue::Impl &impl) {
    Status st;
    if (tables_exist(impl, st)) return st;
    if (!st.ok()) return st;
    st = impl.exec(kFingerprintSchema);
    // Statements prepared before the tables existed would not see them.
    return st;
}

// Two 64-bit FNV-1a hashes of the compressed form, 32 hex digits.
std::string digest_of(std::string_view data) {
    uint64_t a = 14695981039346656037ull, b = 0x84222325CBF29CE4ull;
    for (char c : data) {
        a = (a ^ static_cast<unsigned char>(c)) * 1099511628211ull;
        b = (b ^ static_cast<unsigned char>(c) ^ 0x5Au) * 0x100000001B3ull;
        b ^= b >> 29;
    }
    char text[40];
    std::snprintf(text, sizeof text, "%016llx%016llx", static_cast<unsigned long long>(a),
                  static_cast<unsigned long long>(b));
    return text;
}

// The matcher's view of the tables.
class StoreSource : public fp::PrintSource {
   public:
    explicit StoreSource(Catalogue::Impl &impl) : impl_(impl) {}

    bool postings(uint32_t key, uint32_t limit, std::vector<fp::Posting> &out, std::string &why) override {
        Status st;
        Stmt q(impl_.prepare("SELECT print_id, position FROM fp_index WHERE key = ? LIMIT ?", st));
        if (!q) {
            why = st.message;
            return false;
        }
        q.bind(1, static_cast<int64_t>(key));
        q.bind(2, static_cast<int64_t>(limit) + 1);
        int rc;
        while ((rc = q.step()) == SQLITE_ROW) out.push_back({q.i64(0), q.u32(1)});
        if (rc != SQLITE_DONE) {
            why = impl_.db_error("read fingerprint index").message;
            return false;
        }
        return true;
    }

    bool items(int64_t print, fp::Fingerprint &out, std::string &why) override {
        Status st;
        Stmt q(impl_.prepare("SELECT data, duration FROM fp_prints WHERE id = ?", st));
        if (!q) {
            why = st.message;
            return false;
        }
        q.bind(1, print);
        if (q.step() != SQLITE_ROW) {
            why = "fingerprint " + std::to_string(print) + " is missing";
            return false;
        }
        const auto *blob = static_cast<const char *>(sqlite3_column_blob(q.get(), 0));
        const std::string_view data(blob ? blob : "", static_cast<size_t>(sqlite3_column_bytes(q.get(), 0)));
        if (!fp::decode_compressed(data, out, why)) {
            why = "stored fingerprint " + std::to_string(print) + ": " + why;
            return false;
        }
        out.duration = q.u32(1);
        return true;
    }

   private:
    Catalogue::Impl &impl_;
};

std::string base_name_without_extension(const std::string &path) {
    const size_t slash = path.find_last_of('/');
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const size_t dot = name.find_last_of('.');
    if (dot != std::string::npos && dot != 0) name.resize(dot);
    return name;
}

}  // namespace

Status Catalogue::fingerprint_known(std::string_view content_id, bool &known) noexcept {
    return guarded([&]() -> Status {
        std::lock_guard lock(impl_->mutex);
        known = false;
        Status st;
        if (!tables_exist(*impl_, st)) return st;
        Stmt q(impl_->prepare("SELECT 1 FROM fp_files WHERE content_id = ?", st));
        if (!q) return st;
        q.bind(1, content_id);
        known = q.step() == SQLITE_ROW;
        return {};
    });
}

Status Catalogue::track_for_musicbrainz(const AudioTags &tags, std::string &track_tui) noexcept {
    return guarded([&]() -> Status {
        std::lock_guard lock(impl_->mutex);
        Status st;
        if (!tags.mb_release_track_id.empty()) {
            Stmt q(impl_->prepare(std::string("SELECT ") + kTrackTui +
                                      " FROM tracks t JOIN albums a ON a.id = t.album_id"
                                      " WHERE t.source_id = ? AND t.source_id <> '' ORDER BY t.id LIMIT 1",
                                  st));
            if (!q) return st;
            q.bind(1, tags.mb_release_track_id);
            if (q.step() == SQLITE_ROW) {
                track_tui = q.text(0);
                return {};
            }
        }
        if (!tags.mb_release_id.empty() && tags.track_number != 0) {
            Stmt q(impl_->prepare(std::string("SELECT ") + kTrackTui +
                                      " FROM tracks t JOIN albums a ON a.id = t.album_id"
                                      " WHERE a.tui = ? AND t.disc_number = ? AND t.number = ?",
                                  st));
            if (!q) return st;
            q.bind(1, tags.mb_release_id);
            q.bind(2, static_cast<int64_t>(tags.disc_number ? tags.disc_number : 1));
            q.bind(3, static_cast<int64_t>(tags.track_number));
            if (q.step() == SQLITE_ROW) {
                track_tui = q.text(0);
                return {};
            }
        }
        return Status::error(Code::not_found, "no catalogue track has the file's MusicBrainz identifiers");
    });
}

namespace {

// The album that a file's tags describe, with the file's track in it;
// stored (made or extended) through the catalogue's own add_album.
Status track_from_tags(Catalogue &cat, const AudioTags &tags, FingerprintAdded &out) {
    const std::string album_title = fold(tags.album).empty() ? kUnknownAlbum : tags.album;
    const std::string album_artist = !fold(tags.album_artist).empty() ? tags.album_artist
                                     : !fold(tags.artist).empty()     ? tags.artist
                                                                      : kUnknownArtist;
    std::string title = tags.title;
    if (fold(title).empty()) title = base_name_without_extension(tags.file_name);
    if (fold(title).empty()) title = "Unknown title";
    const std::string basis = fold(album_artist) + "|" + fold(album_title);
    const std::string tui = "T" + hash_tag(basis) + hash_tag(basis + "#");

    Album album;
    IdentifierHit hit;
    Status st = cat.lookup_tui(tui, "", hit);
    if (st.ok()) {
        if (!(st = cat.get_album(hit.album_id, album)).ok()) return st;
    } else if (st.code == Code::not_found) {
        album.tui = tui;
        album.title = album_title;
        album.artist = album_artist;
        album.year = tags.year;
        album.genre = tags.genre;
        album.source = "tags";
        out.created_album = true;
    } else {
        return st;
    }
    const uint32_t disc_number = tags.disc_number ? tags.disc_number : 1;
    auto disc = std::find_if(album.discs.begin(), album.discs.end(), [&](const Disc &d) { return d.number == disc_number; });
    if (disc == album.discs.end()) {
        Disc d;
        d.number = disc_number;
        disc = album.discs.insert(std::upper_bound(album.discs.begin(), album.discs.end(), d,
                                                   [](const Disc &a, const Disc &b) { return a.number < b.number; }),
                                  d);
    }
    // The same title on the disc is the same track (another copy of it);
    // a number taken by another title, or none, gives the next free one.
    const std::string key = fold(title);
    uint32_t number = tags.track_number, highest = 0;
    for (const Track &t : disc->tracks) {
        highest = std::max(highest, t.number);
        if (fold(t.title) == key && (number == 0 || number == t.number)) {
            out.track_tui = t.tui;
            return {};
        }
    }
    for (const Track &t : disc->tracks)
        if (t.number == number) number = 0;
    Track track;
    track.number = number ? number : highest + 1;
    track.title = title;
    if (!fold(tags.artist).empty() && tags.artist != album_artist) track.artist = tags.artist;
    track.duration_ms = tags.duration_ms;
    disc->tracks.insert(std::upper_bound(disc->tracks.begin(), disc->tracks.end(), track,
                                         [](const Track &a, const Track &b) { return a.number < b.number; }),
                        track);
    if (!(st = cat.add_album(album)).ok()) return st;
    out.created_track = true;
    out.track_tui = album.tui + "-" + std::to_string(disc_number) + "-" + std::to_string(track.number);
    return {};
}

}  // namespace

Status Catalogue::add_fingerprint(const FingerprintEntry &entry, FingerprintAdded &out) noexcept {
    return guarded([&]() -> Status {
        out = FingerprintAdded{};
        if (entry.content_id.empty()) return Status::error(Code::invalid_argument, "empty content identifier");
        const fp::Fingerprint &print = entry.print;
        if (print.algorithm >= fp::kAlgorithmCount || print.items.size() > fp::kMaxItems)
            return Status::error(Code::invalid_argument, "fingerprint of an unknown algorithm or too long");
        if (fp::informative_count(print.items) < fp::kMinCompared)
            return Status::error(Code::invalid_argument, "fingerprint too short or silent to be matched");
        const std::string data = fp::encode_compressed(print.items, print.algorithm);
        const std::string digest = digest_of(data);

        Status st = begin();
        if (!st.ok()) return st;
        auto fail = [&](Status failure) {
            rollback();
            out = FingerprintAdded{};
            return failure;
        };
        // Steps that need the lock; the catalogue's own calls take it themselves.
        auto locked = [&](auto &&body) -> Status {
            std::lock_guard lock(impl_->mutex);
            return body(*impl_);
        };
        bool known = false;
        if (!(st = fingerprint_known(entry.content_id, known)).ok()) return fail(st);
        int64_t existing = 0;
        std::string linked;
        if (!known) {
            st = locked([&](Impl &impl) -> Status {
                Status s = ensure_tables(impl);
                if (!s.ok()) return s;
                Stmt q(impl.prepare("SELECT id, track_tui FROM fp_prints WHERE digest = ?", s));
                if (!q) return s;
                q.bind(1, digest);
                if (q.step() == SQLITE_ROW) {
                    existing = q.i64(0);
                    linked = q.text(1);
                }
                return {};
            });
            if (!st.ok()) return fail(st);
        }
        if (known) {
            out.outcome = FingerprintAdded::Outcome::known_file;
            st = locked([&](Impl &impl) -> Status {
                Status s;
                Stmt q(impl.prepare("SELECT p.id, p.track_tui FROM fp_files f JOIN fp_prints p ON p.id = f.print_id"
                                    " WHERE f.content_id = ?",
                                    s));
                if (!q) return s;
                q.bind(1, entry.content_id);
                if (q.step() == SQLITE_ROW) {
                    out.print_id = q.i64(0);
                    out.track_tui = q.text(1);
                }
                return {};
            });
            if (!st.ok()) return fail(st);
        } else if (existing != 0) {
            out.outcome = FingerprintAdded::Outcome::same_print;
            out.print_id = existing;
            out.track_tui = linked;
        } else {
            // Link: the caller's track, or one made from the tags.
            if (!entry.track_tui.empty()) {
                IdentifierHit hit;
                st = lookup_tui(entry.track_tui, "", hit);
                if (st.ok() && hit.kind != IdentifierHit::Kind::track)
                    st = Status::error(Code::invalid_argument, entry.track_tui + " is an album, not a track");
                if (!st.ok()) return fail(st);
                out.track_tui = entry.track_tui;
            } else {
                AudioTags tags = entry.tags;
                if (tags.file_name.empty()) tags.file_name = entry.name;
                if (!(st = track_from_tags(*this, tags, out)).ok()) return fail(st);
            }
            st = locked([&](Impl &impl) -> Status {
                const std::vector<bool> mask = fp::informative(print.items);
                const auto indexed = static_cast<int64_t>(std::count(mask.begin(), mask.end(), true));
                Status s;
                {
                    Stmt ins(impl.prepare("INSERT INTO fp_prints(track_tui, algorithm, duration, item_count, indexed,"
                                          " digest, data) VALUES(?,?,?,?,?,?,?)",
                                          s));
                    if (!ins) return s;
                    ins.bind(1, out.track_tui);
                    ins.bind(2, static_cast<int64_t>(print.algorithm));
                    ins.bind(3, static_cast<int64_t>(print.duration));
                    ins.bind(4, static_cast<int64_t>(print.items.size()));
                    ins.bind(5, indexed);
                    ins.bind(6, digest);
                    sqlite3_bind_blob(ins.get(), 7, data.data(), static_cast<int>(data.size()), SQLITE_TRANSIENT);
                    if (ins.step() != SQLITE_DONE) return impl.db_error("store fingerprint");
                    out.print_id = sqlite3_last_insert_rowid(impl.db);
                }
                Stmt post(impl.prepare("INSERT OR IGNORE INTO fp_index(key, print_id, position) VALUES(?,?,?)", s));
                if (!post) return s;
                for (size_t i = 0; i < print.items.size(); ++i) {
                    if (!mask[i]) continue;
                    post.bind(1, static_cast<int64_t>(fp::index_key(print.algorithm, print.items[i])));
                    post.bind(2, out.print_id);
                    post.bind(3, static_cast<int64_t>(i));
                    if (post.step() != SQLITE_DONE) return impl.db_error("index fingerprint");
                    sqlite3_reset(post.get());
                }
                return {};
            });
            if (!st.ok()) return fail(st);
        }
        if (!known) {
            st = locked([&](Impl &impl) -> Status {
                Status s;
                Stmt ins(impl.prepare("INSERT INTO fp_files(content_id, print_id, name) VALUES(?,?,?)", s));
                if (!ins) return s;
                ins.bind(1, entry.content_id);
                ins.bind(2, out.print_id);
                ins.bind(3, entry.name);
                if (ins.step() != SQLITE_DONE) return impl.db_error("record fingerprinted file");
                return {};
            });
            if (!st.ok()) return fail(st);
        }
        if (!(st = commit()).ok()) return fail(st);
        // Names of the linked track, for the caller's report.
        IdentifierHit hit;
        Album album;
        if (!out.track_tui.empty() && lookup_tui(out.track_tui, "", hit).ok() && get_album(hit.album_id, album).ok()) {
            out.album_tui = album.tui;
            out.album_title = album.title;
            out.disc_number = hit.disc_number;
            out.track_number = hit.track_number;
            for (const Disc &d : album.discs)
                for (const Track &t : d.tracks)
                    if (t.tui == out.track_tui) {
                        out.title = t.title;
                        out.artist = t.artist.empty() ? album.artist : t.artist;
                    }
        }
        return Status{};
    });
}

Status Catalogue::match_fingerprint(const fp::Fingerprint &query, FingerprintResult &out) noexcept {
    return guarded([&]() -> Status {
        std::lock_guard lock(impl_->mutex);
        out = FingerprintResult{};
        Status st;
        if (!tables_exist(*impl_, st)) return st;
        StoreSource source(*impl_);
        std::vector<fp::Hit> hits;
        std::string why;
        if (!fp::match(query, source, hits, why)) return Status::error(Code::database, why);
        std::set<std::string> tracks;
        for (const fp::Hit &h : hits) {
            // Hits on tracks that left the catalogue are dropped.
            FingerprintHit hit;
            {
                Stmt q(impl_->prepare("SELECT track_tui FROM fp_prints WHERE id = ?", st));
                if (!q) return st;
                q.bind(1, h.print);
                if (q.step() != SQLITE_ROW) continue;
                hit.track_tui = q.text(0);
            }
            int64_t track_id = 0;
            if (!(st = find_track_by_tui(*impl_, hit.track_tui, track_id)).ok()) return st;
            if (track_id == 0) continue;
            hit.print_id = h.print;
            if (!tracks.insert(hit.track_tui).second) continue;  // a weaker copy of a track already listed
            hit.score = h.alignment.score;
            hit.offset_ms = fp::items_to_ms(query.algorithm, h.alignment.offset);
            hit.compared_ms = static_cast<uint32_t>(fp::items_to_ms(query.algorithm, h.alignment.compared));
            hit.votes = h.votes;
            out.hits.push_back(std::move(hit));
        }
        if (out.hits.size() == 1)
            out.kind = MatchKind::single;
        else if (out.hits.size() > 1)
            out.kind = out.hits[1].score >= fp::kStrongScore ? MatchKind::multi_exact : MatchKind::fuzzy;
        return Status{};
    });
}

Status Catalogue::add_fingerprints_bulk(const std::vector<FingerprintEntry> &entries, uint64_t &added) noexcept {
    return guarded([&]() -> Status {
        std::lock_guard lock(impl_->mutex);
        Impl &impl = *impl_;
        added = 0;
        Status st = ensure_tables(impl);
        if (!st.ok() || !(st = impl.begin()).ok()) return st;
        auto fail = [&](Status failure) {
            impl.rollback();
            added = 0;
            return failure;
        };
        struct Posting {
            uint32_t key, print, position;
        };
        std::vector<Posting> postings;
        for (const FingerprintEntry &e : entries) {
            const fp::Fingerprint &print = e.print;
            if (e.content_id.empty() || print.algorithm >= fp::kAlgorithmCount || print.items.empty() ||
                print.items.size() > fp::kMaxItems)
                return fail(Status::error(Code::invalid_argument, "bulk entry '" + e.content_id + "' cannot be stored"));
            const std::string data = fp::encode_compressed(print.items, print.algorithm);
            const std::vector<bool> mask = fp::informative(print.items);
            Stmt ins(impl.prepare("INSERT OR IGNORE INTO fp_prints(track_tui, algorithm, duration, item_count, indexed,"
                                  " digest, data) VALUES(?,?,?,?,?,?,?)",
                                  st));
            if (!ins) return fail(st);
            ins.bind(1, e.track_tui);
            ins.bind(2, static_cast<int64_t>(print.algorithm));
            ins.bind(3, static_cast<int64_t>(print.duration));
            ins.bind(4, static_cast<int64_t>(print.items.size()));
            ins.bind(5, static_cast<int64_t>(std::count(mask.begin(), mask.end(), true)));
            ins.bind(6, digest_of(data));
            sqlite3_bind_blob(ins.get(), 7, data.data(), static_cast<int>(data.size()), SQLITE_TRANSIENT);
            if (ins.step() != SQLITE_DONE) return fail(impl.db_error("store fingerprint"));
            if (sqlite3_changes(impl.db) == 0) continue;  // the same fingerprint is stored
            const int64_t id = sqlite3_last_insert_rowid(impl.db);
            Stmt file(impl.prepare("INSERT OR IGNORE INTO fp_files(content_id, print_id, name) VALUES(?,?,?)", st));
            if (!file) return fail(st);
            file.bind(1, e.content_id);
            file.bind(2, id);
            file.bind(3, e.name);
            if (file.step() != SQLITE_DONE) return fail(impl.db_error("record fingerprinted file"));
            for (size_t i = 0; i < print.items.size(); ++i)
                if (mask[i])
                    postings.push_back({fp::index_key(print.algorithm, print.items[i]), static_cast<uint32_t>(id),
                                        static_cast<uint32_t>(i)});
            ++added;
        }
        std::sort(postings.begin(), postings.end(), [](const Posting &a, const Posting &b) {
            return a.key != b.key ? a.key < b.key : a.print != b.print ? a.print < b.print : a.position < b.position;
        });
        Stmt post(impl.prepare("INSERT OR IGNORE INTO fp_index(key, print_id, position) VALUES(?,?,?)", st));
        if (!post) return fail(st);
        for (const Posting &p : postings) {
            post.bind(1, static_cast<int64_t>(p.key));
            post.bind(2, static_cast<int64_t>(p.print));
            post.bind(3, static_cast<int64_t>(p.position));
            if (post.step() != SQLITE_DONE) return fail(impl.db_error("index fingerprint"));
            sqlite3_reset(post.get());
        }
        if (!(st = impl.commit()).ok()) return fail(st);
        return Status{};
    });
}

Status Catalogue::each_fingerprint(
    const std::function<bool(int64_t id, const std::string &track_tui, const fp::Fingerprint &print)> &each) noexcept {
    return guarded([&]() -> Status {
        std::lock_guard lock(impl_->mutex);
        Status st;
        if (!tables_exist(*impl_, st)) return st;
        Stmt q(impl_->prepare("SELECT id, track_tui, duration, data FROM fp_prints ORDER BY id", st));
        if (!q) return st;
        int rc;
        while ((rc = q.step()) == SQLITE_ROW) {
            const auto *blob = static_cast<const char *>(sqlite3_column_blob(q.get(), 3));
            fp::Fingerprint print;
            std::string why;
            if (!fp::decode_compressed(std::string_view(blob ? blob : "", static_cast<size_t>(sqlite3_column_bytes(q.get(), 3))),
                                       print, why))
                return Status::error(Code::database, "stored fingerprint " + std::to_string(q.i64(0)) + ": " + why);
            print.duration = q.u32(2);
            if (!each(q.i64(0), q.text(1), print)) break;
        }
        if (rc != SQLITE_ROW && rc != SQLITE_DONE) return impl_->db_error("read fingerprints");
        return Status{};
    });
}

Status Catalogue::fingerprint_counts(FingerprintCounts &out) noexcept {
    return guarded([&]() -> Status {
        std::lock_guard lock(impl_->mutex);
        out = FingerprintCounts{};
        Status st;
        if (!tables_exist(*impl_, st)) return st;
        Stmt q(impl_->prepare("SELECT (SELECT count(*) FROM fp_prints), (SELECT count(*) FROM fp_files),"
                              " (SELECT coalesce(sum(indexed), 0) FROM fp_prints)",
                              st));
        if (!q) return st;
        if (q.step() != SQLITE_ROW) return impl_->db_error("count fingerprints");
        out.prints = static_cast<uint64_t>(q.i64(0));
        out.files = static_cast<uint64_t>(q.i64(1));
        out.postings = static_cast<uint64_t>(q.i64(2));
        return {};
    });
}

}  // namespace catalogue
