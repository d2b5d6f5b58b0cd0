// Catalogue store: schema, albums and lyrics in and out, identification by
// table of contents and by identifier.
#include "providers/catalogue/store/catalogue.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <tuple>
#include <unordered_set>

#include <sys/stat.h>

#include "providers/catalogue/store/catalogue_internal.h"

namespace catalogue {

namespace {

constexpr const char *kSchema = R"sql(
CREATE TABLE IF NOT EXISTS meta(key TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS artists(
  id INTEGER PRIMARY KEY, ident TEXT NOT NULL UNIQUE, name TEXT NOT NULL,
  sort_name TEXT NOT NULL DEFAULT '', source_id TEXT NOT NULL DEFAULT '',
  collaboration INTEGER NOT NULL DEFAULT 0);
CREATE TABLE IF NOT EXISTS albums(
  id INTEGER PRIMARY KEY AUTOINCREMENT, tui TEXT NOT NULL UNIQUE, tag TEXT NOT NULL,
  revision INTEGER NOT NULL, title TEXT NOT NULL, artist TEXT NOT NULL,
  year INTEGER NOT NULL, genre TEXT NOT NULL, label TEXT NOT NULL,
  language TEXT NOT NULL, source TEXT NOT NULL, source_id TEXT NOT NULL,
  track_count INTEGER NOT NULL, disc_count INTEGER NOT NULL,
  country TEXT NOT NULL DEFAULT '', release_date TEXT NOT NULL DEFAULT '',
  catalogue_number TEXT NOT NULL DEFAULT '', barcode TEXT NOT NULL DEFAULT '',
  digest TEXT NOT NULL DEFAULT '',  -- see album_digest()
  keys TEXT);                       -- NULL where derived (see IndexKeys)
CREATE TABLE IF NOT EXISTS discs(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  album_id INTEGER NOT NULL REFERENCES albums(id) ON DELETE CASCADE,
  number INTEGER NOT NULL, title TEXT NOT NULL, format TEXT NOT NULL DEFAULT '');
CREATE INDEX IF NOT EXISTS discs_album ON discs(album_id, number);
CREATE TABLE IF NOT EXISTS tocs(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  disc_id INTEGER NOT NULL REFERENCES discs(id) ON DELETE CASCADE,
  album_id INTEGER NOT NULL,
  toc TEXT NOT NULL,             -- offsets then lead-out, blank separated
  track_count INTEGER NOT NULL,  -- offsets less one
  length INTEGER NOT NULL,       -- lead-out minus first offset
  media_id TEXT NOT NULL, mui TEXT NOT NULL);
CREATE INDEX IF NOT EXISTS tocs_disc ON tocs(disc_id);
CREATE INDEX IF NOT EXISTS tocs_toc ON tocs(toc);
CREATE INDEX IF NOT EXISTS tocs_shape ON tocs(track_count, length);
CREATE INDEX IF NOT EXISTS tocs_mui ON tocs(mui);
CREATE INDEX IF NOT EXISTS tocs_media ON tocs(media_id);
CREATE TABLE IF NOT EXISTS disc_ids(
  disc_id TEXT NOT NULL,         -- MusicBrainz disc ID, or freedb ID in lower case
  toc_id INTEGER NOT NULL REFERENCES tocs(id) ON DELETE CASCADE,
  PRIMARY KEY(disc_id, toc_id)) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS disc_ids_toc ON disc_ids(toc_id);
CREATE TABLE IF NOT EXISTS tracks(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  album_id INTEGER NOT NULL REFERENCES albums(id) ON DELETE CASCADE,
  disc_id INTEGER NOT NULL REFERENCES discs(id) ON DELETE CASCADE,
  disc_number INTEGER NOT NULL, number INTEGER NOT NULL, position INTEGER NOT NULL,
  title TEXT NOT NULL, artist TEXT NOT NULL, duration_ms INTEGER NOT NULL,
  tui TEXT,                      -- NULL where it is the derived one (see derived_track_tui)
  tag TEXT,                      -- NULL where it is the derived one (see derived_track_tag)
  source_id TEXT NOT NULL,
  keys TEXT,                     -- NULL where derived (see IndexKeys)
  own_artist INTEGER NOT NULL DEFAULT 0);  -- its artist key is not its album's
CREATE INDEX IF NOT EXISTS tracks_album ON tracks(album_id, position);
CREATE INDEX IF NOT EXISTS tracks_disc ON tracks(disc_id);
CREATE TABLE IF NOT EXISTS album_contributors(
  album_id INTEGER NOT NULL REFERENCES albums(id) ON DELETE CASCADE,
  artist_id INTEGER NOT NULL REFERENCES artists(id),
  role TEXT NOT NULL, position INTEGER NOT NULL);
CREATE INDEX IF NOT EXISTS album_contributors_album ON album_contributors(album_id);
CREATE INDEX IF NOT EXISTS album_contributors_artist ON album_contributors(artist_id);
CREATE TABLE IF NOT EXISTS track_contributors(
  track_id INTEGER NOT NULL REFERENCES tracks(id) ON DELETE CASCADE,
  artist_id INTEGER NOT NULL REFERENCES artists(id),
  role TEXT NOT NULL, position INTEGER NOT NULL);
CREATE INDEX IF NOT EXISTS track_contributors_track ON track_contributors(track_id);
CREATE INDEX IF NOT EXISTS track_contributors_artist ON track_contributors(artist_id);
CREATE TABLE IF NOT EXISTS lyrics(
  id INTEGER PRIMARY KEY AUTOINCREMENT, title TEXT NOT NULL, artist TEXT NOT NULL,
  text TEXT NOT NULL, language TEXT NOT NULL, album_tui TEXT NOT NULL,
  disc_number INTEGER NOT NULL, track_number INTEGER NOT NULL,
  natural_key TEXT NOT NULL DEFAULT '');  -- see lyric_key(); unique (index made after migrations)
CREATE INDEX IF NOT EXISTS lyrics_album ON lyrics(album_tui);
-- Ids are never reused, so an id held elsewhere cannot come to mean another row.
-- Text indexes hold search keys (see fold()), rowid = the row they index.
-- Searches ask for prefixes of three or more characters only, so a prefix
-- index of three is the one that serves. The album and track indexes keep
-- no copy of their keys (see IndexKeys): a row is removed by giving them.
CREATE VIRTUAL TABLE IF NOT EXISTS album_fts USING fts5(title, artist, content='',
  tokenize='unicode61 remove_diacritics 2', prefix='3');
CREATE VIRTUAL TABLE IF NOT EXISTS track_fts USING fts5(title, artist, composer, content='',
  tokenize='unicode61 remove_diacritics 2', prefix='3');
CREATE VIRTUAL TABLE IF NOT EXISTS artist_fts USING fts5(name,
  tokenize='unicode61 remove_diacritics 2', prefix='3');
CREATE VIRTUAL TABLE IF NOT EXISTS lyric_fts USING fts5(title, artist, text,
  tokenize='unicode61 remove_diacritics 2', prefix='3');
CREATE VIRTUAL TABLE IF NOT EXISTS album_vocab USING fts5vocab(album_fts, row);
CREATE VIRTUAL TABLE IF NOT EXISTS track_vocab USING fts5vocab(track_fts, row);
CREATE VIRTUAL TABLE IF NOT EXISTS artist_vocab USING fts5vocab(artist_fts, row);
CREATE VIRTUAL TABLE IF NOT EXISTS lyric_vocab USING fts5vocab(lyric_fts, row);
-- Every indexed word, with a trigram index to find spellings close to a
-- misspelt query word.
CREATE TABLE IF NOT EXISTS spell_words(id INTEGER PRIMARY KEY, term TEXT NOT NULL UNIQUE);
CREATE VIRTUAL TABLE IF NOT EXISTS spell_tri USING fts5(term, content='spell_words',
  content_rowid='id', tokenize='trigram');
-- Fuzzy TOC lookups: every TOC as a point of its shift-invariant shape
-- (see TocShape), so that a lookup reads only the TOCs near the query's.
CREATE VIRTUAL TABLE IF NOT EXISTS toc_shape USING rtree_i32(id, tracks_lo, tracks_hi,
  length_lo, length_hi, first_lo, first_hi, second_lo, second_hi, third_lo, third_hi);
CREATE TRIGGER IF NOT EXISTS tocs_shape_delete AFTER DELETE ON tocs BEGIN
  DELETE FROM toc_shape WHERE id = old.id;
END;
)sql";

// Indexes on columns that migrations add, made once the columns exist.
constexpr const char *kLateIndexes = R"sql(
CREATE UNIQUE INDEX IF NOT EXISTS lyrics_key ON lyrics(natural_key);
CREATE UNIQUE INDEX IF NOT EXISTS tracks_tui ON tracks(tui) WHERE tui IS NOT NULL;
CREATE INDEX IF NOT EXISTS tracks_own_artist ON tracks(album_id) WHERE own_artist = 1;
)sql";

// The schema number of a catalogue's 'schema' row when it is one this
// program knows (1 to kSchemaVersion, written as it writes them), else 0.
int known_schema(std::string_view text) {
    int n = 0;
    for (char c : text) {
        if (c < '0' || c > '9' || n > kSchemaVersion) return 0;
        n = n * 10 + (c - '0');
    }
    return text.empty() || text[0] == '0' || n > kSchemaVersion ? 0 : n;
}

bool is_composer_role(const std::string &role) {
    return role == "composer" || role == "lyricist" || role == "writer" || role == "librettist";
}

std::string generated_tui(const Album &album) {
    std::string basis = album.source;
    for (const std::string *part : {&album.source_id, &album.artist, &album.title}) basis.append("|").append(*part);
    for (const auto &disc : album.discs)
        for (const auto &toc : disc.tocs) basis.append("|").append(toc_text(toc.offsets));
    // Two independent hashes give 16 hex digits.
    std::string tui("A");
    tui.append(hash_tag(basis));
    basis.push_back('#');
    tui.append(hash_tag(basis));
    return tui;
}

}  // namespace

std::string hash_tag(std::string_view text) {
    uint32_t h = 2166136261u;
    for (char c : text) {
        h ^= static_cast<unsigned char>(c);
        h *= 16777619u;
    }
    // Eight lower-case hex digits, most significant first (as "%08x").
    std::string tag(8, '0');
    for (int i = 7; i >= 0; --i, h >>= 4) tag[static_cast<size_t>(i)] = "0123456789abcdef"[h & 15u];
    return tag;
}

std::string derived_track_tag(std::string_view tui, std::string_view title) {
    std::string basis(tui);
    basis += '|';
    basis += title;
    return hash_tag(basis);
}

std::string derived_track_tui(std::string_view album_tui, uint32_t disc_number, uint32_t number) {
    std::string tui(album_tui);
    tui += '-';
    tui += std::to_string(disc_number);
    tui += '-';
    tui += std::to_string(number);
    return tui;
}

IndexKeys derived_keys(std::string_view title, std::string_view artist, std::string_view performers,
                       std::string_view composers) {
    return {fold(title), fold(std::string(artist).append(performers)), fold(composers)};
}

std::optional<std::string> stored_keys(const IndexKeys &keys, const IndexKeys &derived, bool track) {
    if (keys == derived) return std::nullopt;
    std::string out = keys.title + '\t' + keys.artist;
    if (track) out += '\t' + keys.composer;
    return out;
}

bool own_artist(const std::string &track_artist_key, const std::string &album_artist_key) {
    return !track_artist_key.empty() &&
           (" " + album_artist_key + " ").find(" " + track_artist_key + " ") == std::string::npos;
}

namespace {

// The keys a `keys` column holds, or `derived` where it holds none.
IndexKeys stored_or_derived(const Stmt &q, int col, IndexKeys derived) {
    if (q.null(col)) return derived;
    IndexKeys keys;
    std::string *parts[] = {&keys.title, &keys.artist, &keys.composer};
    size_t part = 0;
    for (char c : q.text(col)) {
        if (c == '\t' && part + 1 < std::size(parts))
            ++part;
        else
            parts[part]->push_back(c);
    }
    return keys;
}

}  // namespace

namespace {

// A number as derived_track_tui writes it (no sign, no leading zero).
bool parse_tui_number(std::string_view text, uint32_t &out) {
    if (text.empty() || text.size() > 10 || (text[0] == '0' && text.size() > 1)) return false;
    uint64_t n = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        n = n * 10 + static_cast<uint64_t>(c - '0');
    }
    if (n > UINT32_MAX) return false;
    out = static_cast<uint32_t>(n);
    return true;
}

}  // namespace

Status find_track_by_tui(Catalogue::Impl &impl, std::string_view tui, int64_t &track_id) {
    track_id = 0;
    Status st;
    {
        Stmt q(impl.prepare("SELECT id FROM tracks WHERE tui = ?", st));
        if (!q) return st;
        q.bind(1, tui);
        if (q.step() == SQLITE_ROW) {
            track_id = q.i64(0);
            return {};
        }
    }
    // A derived identifier: the album's, then "-disc-number" (read from the right).
    const size_t last = tui.rfind('-');
    if (last == std::string_view::npos || last == 0) return {};
    const size_t middle = tui.rfind('-', last - 1);
    uint32_t disc = 0, number = 0;
    if (middle == std::string_view::npos || !parse_tui_number(tui.substr(middle + 1, last - middle - 1), disc) ||
        !parse_tui_number(tui.substr(last + 1), number))
        return {};
    Stmt q(impl.prepare("SELECT t.id FROM albums a JOIN tracks t ON t.album_id = a.id WHERE a.tui = ?"
                        " AND t.disc_number = ? AND t.number = ? AND t.tui IS NULL ORDER BY t.id LIMIT 1",
                        st));
    if (!q) return st;
    q.bind(1, tui.substr(0, middle));
    q.bind(2, int64_t{disc});
    q.bind(3, int64_t{number});
    if (q.step() == SQLITE_ROW) track_id = q.i64(0);
    return {};
}

// ---- Impl -------------------------------------------------------------------------

Catalogue::Impl::~Impl() {
    for (auto &entry : cache) sqlite3_finalize(entry.second);
    if (db) sqlite3_close(db);
}

Status Catalogue::Impl::db_error(const char *what) const {
    return Status::error(Code::database, std::string(what) + ": " + (db ? sqlite3_errmsg(db) : "no database"));
}

sqlite3_stmt *Catalogue::Impl::prepare(std::string_view sql, Status &err) {
    auto it = cache.find(sql);
    if (it != cache.end()) return it->second;
    sqlite3_stmt *stmt = nullptr;
    if (sqlite3_prepare_v3(db, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &stmt,
                           nullptr) != SQLITE_OK) {
        err = db_error("prepare");
        sqlite3_finalize(stmt);
        return nullptr;
    }
    cache.emplace(std::string(sql), stmt);
    return stmt;
}

Status Catalogue::Impl::exec(const char *sql) {
    char *message = nullptr;
    if (sqlite3_exec(db, sql, nullptr, nullptr, &message) != SQLITE_OK) {
        Status st = Status::error(Code::database, message ? message : "exec failed");
        sqlite3_free(message);
        return st;
    }
    return {};
}

Status Catalogue::Impl::index_row(const char *sql, const char *what, int64_t rowid,
                                  std::initializer_list<std::string_view> texts, std::initializer_list<int64_t> numbers) {
    if (defer_index) {
        index_rows.add(sql, what, rowid, texts, numbers);
        return {};
    }
    Status st;
    Stmt s(prepare(sql, st));
    if (!s) return st;
    int index = 0;
    s.bind(++index, rowid);
    for (std::string_view t : texts) s.bind(++index, t);
    for (int64_t n : numbers) s.bind(++index, n);
    return s.step() == SQLITE_DONE ? Status{} : db_error(what);
}

Status Catalogue::Impl::flush_index() {
    Status st;
    index_rows.each([&](const IndexRows::Row &row, const std::string_view *texts) {
        Stmt s(prepare(row.sql, st));
        if (!s) return false;
        int index = 0;
        s.bind(++index, row.rowid);
        for (uint32_t c = 0; c < row.texts; ++c) s.bind(++index, texts[c]);
        for (uint32_t c = 0; c < row.numbers; ++c) s.bind(++index, row.values[c]);
        if (s.step() == SQLITE_DONE) return true;
        st = db_error(row.what);
        return false;
    });
    index_rows.clear();
    return st;
}

Status Catalogue::Impl::file_version(AlbumCopy::Version &out, const char *what) {
    Status st;
    Stmt q(prepare("PRAGMA data_version", st));
    if (!q) return st;
    if (q.step() != SQLITE_ROW) return db_error(what);
    out = AlbumCopy::Version{sqlite3_total_changes64(db), q.i64(0)};
    return {};
}

Status Catalogue::Impl::begin() {
    if (tx_depth == 0) {
        Status st = exec("BEGIN IMMEDIATE");
        if (!st.ok()) return st;
    }
    ++tx_depth;
    return {};
}

Status Catalogue::Impl::commit() {
    if (tx_depth == 0) return Status::error(Code::invalid_argument, "commit without begin");
    if (--tx_depth == 0) return exec("COMMIT");
    return {};
}

Status Catalogue::Impl::rollback() {
    if (tx_depth == 0) return Status::error(Code::invalid_argument, "rollback without begin");
    tx_depth = 0;
    return exec("ROLLBACK");
}

namespace {

// Checks an album before it is stored.
Status validate(const Album &album) {
    if (fold(album.title).empty()) return Status::error(Code::bad_record, "album without a title");
    if (album.discs.empty()) return Status::error(Code::bad_record, "album '" + album.title + "' has no disc");
    for (const auto &disc : album.discs) {
        if (disc.tracks.empty())
            return Status::error(Code::bad_record,
                                 "album '" + album.title + "' disc " + std::to_string(disc.number) + " has no track");
        for (const auto &toc : disc.tocs) {
            const auto &o = toc.offsets;
            std::string where = "album '" + album.title + "' disc " + std::to_string(disc.number) + ": ";
            if (o.size() < 2 || o.size() > disc.tracks.size() + 1)
                return Status::error(Code::bad_record, where + std::to_string(o.size()) + " offsets for " +
                                                           std::to_string(disc.tracks.size()) + " tracks");
            for (size_t i = 1; i < o.size(); ++i)
                if (o[i] <= o[i - 1]) return Status::error(Code::bad_record, where + "offsets do not rise");
        }
    }
    return {};
}

}  // namespace

namespace {

// Identifier and tag of an album and its tracks, generated where empty.
void fill_identifiers(Album &album) {
    if (album.tui.empty()) album.tui = generated_tui(album);
    if (album.tag.empty()) album.tag = hash_tag(album.tui + "|" + album.title);
    for (auto &disc : album.discs)
        for (auto &track : disc.tracks) {
            if (track.tui.empty()) track.tui = derived_track_tui(album.tui, disc.number, track.number);
            if (track.tag.empty()) track.tag = derived_track_tag(track.tui, track.title);
        }
}

// The stored album an album replaces (0 for none) and the digest stored
// with it; an older revision than the stored one is refused.
Status replaced_album(Catalogue::Impl &impl, const Album &album, int64_t &existing, std::string &digest) {
    Status st;
    Stmt q(impl.prepare("SELECT id, revision, digest FROM albums WHERE tui = ?", st));
    if (!q) return st;
    q.bind(1, album.tui);
    existing = 0;
    if (q.step() != SQLITE_ROW) return {};
    if (album.revision < q.u32(1))
        return Status::error(Code::bad_record, "album " + album.tui + ": revision " + std::to_string(album.revision) +
                                                   " is older than stored " + std::to_string(q.u32(1)));
    existing = q.i64(0);
    if (album.revision == q.u32(1)) digest = q.text(2);
    return {};
}

// 16 hex digits over every stored field of an album, so that a re-import
// can tell an unchanged album from a changed one of the same revision.
std::string album_digest(const Album &a) {
    std::string b;
    auto add = [&](std::string_view text) { b.append(std::to_string(text.size())).append(":").append(text); };
    auto num = [&](uint64_t n) { add(std::to_string(n)); };
    auto credits = [&](const std::vector<Contributor> &cs) {
        num(cs.size());
        for (const auto &c : cs) {
            for (const std::string *t : {&c.name, &c.sort_name, &c.role, &c.source_id}) add(*t);
            num(c.collaboration);
        }
    };
    for (const std::string *t : {&a.tui, &a.tag, &a.title, &a.artist, &a.genre, &a.label, &a.language, &a.source,
                                 &a.source_id})
        add(*t);
    num(a.revision);
    num(a.year);
    // Edition fields count only where present, so that albums without them
    // keep the digests that catalogues of earlier schemas stored.
    if (!(a.country + a.release_date + a.catalogue_number + a.barcode).empty())
        for (const std::string *t : {&a.country, &a.release_date, &a.catalogue_number, &a.barcode}) add(*t);
    credits(a.contributors);
    for (const auto &d : a.discs) {
        num(d.number);
        add(d.title);
        if (!d.format.empty()) add("format:" + d.format);
        for (const auto &t : d.tocs) {
            add(toc_text(t.offsets));
            add(t.media_id);
            add(t.mui);
            for (const auto &id : t.disc_ids) add(id);
            add("/toc");
        }
        for (const auto &t : d.tracks) {
            num(t.number);
            num(t.duration_ms);
            for (const std::string *x : {&t.title, &t.artist, &t.tui, &t.tag, &t.source_id}) add(*x);
            credits(t.contributors);
        }
        add("/disc");
    }
    return hash_tag(b) + hash_tag(b + "#");
}

// The artist of a credit: found by source identifier, else by the search
// key of the name; stored and indexed if new. `name`: the name stored.
Status artist_id(Catalogue::Impl &impl, const Contributor &c, int64_t &id, std::string &name) {
    const std::string ident = c.source_id.empty() ? "name:" + fold(c.name) : "id:" + c.source_id;
    Status st;
    {
        Stmt q(impl.prepare("SELECT id, name FROM artists WHERE ident = ?", st));
        if (!q) return st;
        q.bind(1, ident);
        if (q.step() == SQLITE_ROW) {
            id = q.i64(0);
            name = q.text(1);
            return {};
        }
    }
    name = c.name;
    st = impl.write("INSERT INTO artists(ident, name, sort_name, source_id, collaboration) VALUES(?,?,?,?,?)",
                    "insert artist", &id, ident, c.name, c.sort_name, c.source_id, int64_t{c.collaboration ? 1 : 0});
    if (!st.ok()) return st;
    return impl.index_row("INSERT INTO artist_fts(rowid, name) VALUES(?, ?)", "index artist", id,
                           {fold(c.name + " " + c.sort_name)});
}

// Performer and composer names of a list of credits, each after a blank.
void add_credit_names(const std::vector<Contributor> &list, std::string &performers, std::string &composers) {
    for (const auto &c : list) {
        if (is_composer_role(c.role))
            composers += " " + c.name;
        else if (c.role.empty() || c.role == "performer")
            performers += " " + c.name;
    }
}

// The credits of an album or a track as they are stored: nameless ones
// skipped, the others with their artist, position, stored role and the
// name stored for the artist (artist_id), and their names for the keys.
struct Credits {
    std::vector<Contributor> stored;  // artist_id and the stored name and role
    std::vector<int64_t> positions;
    std::string performers, composers;          // as imported (add_credit_names)
    std::string stored_performers, stored_composers;  // as stored

    Status resolve(Catalogue::Impl &impl, const std::vector<Contributor> &list) {
        add_credit_names(list, performers, composers);
        for (size_t i = 0; i < list.size(); ++i) {
            if (fold(list[i].name).empty()) continue;
            Contributor c;
            c.role = list[i].role.empty() ? "performer" : list[i].role;
            if (Status st = artist_id(impl, list[i], c.artist_id, c.name); !st.ok()) return st;
            stored.push_back(std::move(c));
            positions.push_back(static_cast<int64_t>(i));
        }
        add_credit_names(stored, stored_performers, stored_composers);
        return {};
    }
    Status link(Catalogue::Impl &impl, const char *sql, int64_t owner) const {
        for (size_t i = 0; i < stored.size(); ++i)
            if (Status st = impl.write(sql, "insert contributor", nullptr, owner, stored[i].artist_id, stored[i].role,
                                       positions[i]);
                !st.ok())
                return st;
        return {};
    }
};

// The album row of an album being stored, with its credits, index keys and
// text index entry. `composers`: its composer credits as imported, then as
// stored, for its tracks.
struct AlbumRow {
    IndexKeys keys;
    std::string composers, stored_composers;
};

Status store_album_row(Catalogue::Impl &impl, Album &album, const std::string &digest, AlbumRow &row) {
    Credits credits;
    Status st = credits.resolve(impl, album.contributors);
    if (!st.ok()) return st;
    row.composers = credits.composers;
    row.stored_composers = credits.stored_composers;
    row.keys = derived_keys(album.title, album.artist, credits.performers, "");
    const std::optional<std::string> stored =
        stored_keys(row.keys, derived_keys(album.title, album.artist, credits.stored_performers, ""), false);
    st = impl.write(
        "INSERT INTO albums(tui, tag, revision, title, artist, year, genre, label, language, source,"
        " source_id, track_count, disc_count, country, release_date, catalogue_number, barcode, digest, keys)"
        " VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)",
        "insert album", &album.id, album.tui, album.tag, int64_t{album.revision}, album.title, album.artist,
        int64_t{album.year}, album.genre, album.label, album.language, album.source, album.source_id,
        int64_t{album.track_count()}, static_cast<int64_t>(album.discs.size()), album.country, album.release_date,
        album.catalogue_number, album.barcode, digest, stored ? &*stored : nullptr);
    if (st.ok())
        st = credits.link(impl, "INSERT INTO album_contributors(album_id, artist_id, role, position) VALUES(?,?,?,?)",
                          album.id);
    if (!st.ok()) return st;
    return impl.index_row("INSERT INTO album_fts(rowid, title, artist) VALUES(?,?,?)", "index album", album.id,
                           {row.keys.title, row.keys.artist});
}

// The shift-invariant shape of a TOC, as the fuzzy lookup's index keeps it:
// track count, program length and the lengths of the first three tracks
// that end before the lead-out (0 where the disc has fewer). Values beyond
// int32 are clamped, which keeps every distance within a bound within it.
struct TocShape {
    static constexpr size_t kTrackLengths = 3;
    int32_t tracks = 0, length = 0;
    int32_t track_lengths[kTrackLengths] = {};

    explicit TocShape(const std::vector<uint32_t> &offsets) {
        tracks = clamp(static_cast<int64_t>(offsets.size()) - 1);
        if (offsets.size() < 2) return;
        length = clamp(int64_t{offsets.back()} - int64_t{offsets.front()});
        // Offsets 0 .. size-2 are track starts; the lead-out is not bounded
        // by the per-track tolerance, so the last track's length is left out.
        for (size_t i = 0; i < kTrackLengths && i + 2 < offsets.size(); ++i)
            track_lengths[i] = clamp(int64_t{offsets[i + 1]} - int64_t{offsets[i]});
    }
    static int32_t clamp(int64_t v) { return static_cast<int32_t>(std::clamp<int64_t>(v, 0, INT32_MAX)); }
};

Status store_toc_shape(Catalogue::Impl &impl, int64_t toc_id, const std::vector<uint32_t> &offsets) {
    const TocShape shape(offsets);
    static_assert(TocShape::kTrackLengths == 3);
    return impl.index_row("INSERT INTO toc_shape VALUES(?1, ?2, ?2, ?3, ?3, ?4, ?4, ?5, ?5, ?6, ?6)", "index TOC",
                          toc_id, {},
                          {shape.tracks, shape.length, shape.track_lengths[0], shape.track_lengths[1],
                           shape.track_lengths[2]});
}

Status store_toc(Catalogue::Impl &impl, const Album &album, const Disc &disc, Toc &toc) {
    if (toc.mui.empty()) toc.mui = xmcd_disc_id(toc.offsets);
    int64_t toc_id = 0;
    Status st = impl.write(
        "INSERT INTO tocs(disc_id, album_id, toc, track_count, length, media_id, mui)"
        " VALUES(?,?,?,?,?,?,?)",
        "insert TOC", &toc_id, disc.id, album.id, toc_text(toc.offsets), static_cast<int64_t>(toc.offsets.size() - 1),
        int64_t{toc.offsets.back()} - int64_t{toc.offsets.front()}, toc.media_id, toc.mui);
    if (st.ok()) st = store_toc_shape(impl, toc_id, toc.offsets);
    // The disc IDs this TOC was published under (MusicBrainz, xmcd DISCID).
    for (size_t i = 0; st.ok() && i < toc.disc_ids.size(); ++i)
        st = impl.write("INSERT OR IGNORE INTO disc_ids(disc_id, toc_id) VALUES(?,?)", "insert disc ID", nullptr,
                        toc.disc_ids[i], toc_id);
    return st;
}

// Track identifiers are unique whether stored or derived. The unique index
// holds only the stored ones; this keeps the rest of the rule: a stored one
// may not be another track's derived one, nor a derived one a stored one or
// another of the album's (the same disc and number twice). A clash reads as
// the index's own failure did.
struct TrackTuis {
    bool any_stored = false;  // the catalogue holds a stored track identifier
    std::vector<std::pair<uint32_t, uint32_t>> derived;  // the album's (disc, number) so far

    Status start(Catalogue::Impl &impl) {
        derived.clear();
        Status st;
        Stmt q(impl.prepare("SELECT 1 FROM tracks WHERE tui IS NOT NULL LIMIT 1", st));
        if (!q) return st;
        any_stored = q.step() == SQLITE_ROW;
        return {};
    }
    Status check(Catalogue::Impl &impl, const Disc &disc, const Track &track, bool is_derived) {
        static const Status clash =
            Status::error(Code::database, "insert track: UNIQUE constraint failed: tracks.tui");
        Status st;
        if (is_derived) {
            const std::pair<uint32_t, uint32_t> key{disc.number, track.number};
            if (std::find(derived.begin(), derived.end(), key) != derived.end()) return clash;
            derived.push_back(key);
            if (!any_stored) return {};
            Stmt q(impl.prepare("SELECT 1 FROM tracks WHERE tui = ?", st));
            if (!q) return st;
            q.bind(1, track.tui);
            return q.step() == SQLITE_ROW ? clash : Status{};
        }
        any_stored = true;
        int64_t other = 0;
        if (!(st = find_track_by_tui(impl, track.tui, other)).ok()) return st;
        return other ? clash : Status{};
    }
};

// A track at its album position, its credits and its text index entry
// (the album's composers count for every track), marked where it has its
// own artist (see own_artist).
Status store_track(Catalogue::Impl &impl, const Album &album, const Disc &disc, Track &track, uint32_t position,
                   const AlbumRow &album_row, TrackTuis &tuis) {
    const bool is_derived = track.tui == derived_track_tui(album.tui, disc.number, track.number);
    const bool own_tag = track.tag != derived_track_tag(track.tui, track.title);
    Status st = tuis.check(impl, disc, track, is_derived);
    Credits credits;
    if (st.ok()) st = credits.resolve(impl, track.contributors);
    if (!st.ok()) return st;
    const std::string &artist = track.artist.empty() ? album.artist : track.artist;
    const IndexKeys keys = derived_keys(track.title, artist, credits.performers, album_row.composers + credits.composers);
    const std::optional<std::string> stored = stored_keys(
        keys,
        derived_keys(track.title, artist, credits.stored_performers,
                     album_row.stored_composers + credits.stored_composers),
        true);
    st = impl.write(
        "INSERT INTO tracks(album_id, disc_id, disc_number, number, position, title, artist,"
        " duration_ms, tui, tag, source_id, keys, own_artist) VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?)",
        "insert track", &track.id, album.id, disc.id, int64_t{disc.number}, int64_t{track.number}, int64_t{position},
        track.title, track.artist, int64_t{track.duration_ms}, is_derived ? nullptr : &track.tui,
        own_tag ? &track.tag : nullptr, track.source_id, stored ? &*stored : nullptr,
        int64_t{own_artist(keys.artist, album_row.keys.artist)});
    if (st.ok())
        st = credits.link(impl, "INSERT INTO track_contributors(track_id, artist_id, role, position) VALUES(?,?,?,?)",
                          track.id);
    if (!st.ok()) return st;
    return impl.index_row("INSERT INTO track_fts(rowid, title, artist, composer) VALUES(?,?,?,?)", "index track",
                           track.id, {keys.title, keys.artist, keys.composer});
}

// Every row of an album: the album, then each disc with its TOCs and tracks.
Status store_album(Catalogue::Impl &impl, Album &album, const std::string &digest) {
    AlbumRow row;
    Status st = store_album_row(impl, album, digest, row);
    TrackTuis tuis;
    if (st.ok()) st = tuis.start(impl);
    uint32_t position = 0;
    for (auto &disc : album.discs) {
        if (st.ok())
            st = impl.write("INSERT INTO discs(album_id, number, title, format) VALUES(?,?,?,?)", "insert disc",
                            &disc.id, album.id, int64_t{disc.number}, disc.title, disc.format);
        for (auto &toc : disc.tocs)
            if (st.ok()) st = store_toc(impl, album, disc, toc);
        for (auto &track : disc.tracks)
            if (st.ok()) st = store_track(impl, album, disc, track, ++position, row, tuis);
    }
    return st;
}

// Removes the text index rows of an album and its tracks, given their keys
// as they were indexed.
Status unindex_album(Catalogue::Impl &impl, int64_t album_id) {
    AlbumKeys keys;
    Status st = read_album_keys(impl, album_id, keys);
    if (st.ok() && keys.found)
        st = impl.write("INSERT INTO album_fts(album_fts, rowid, title, artist) VALUES('delete',?,?,?)",
                        "remove album", nullptr, album_id, keys.album.title, keys.album.artist);
    for (const auto &[id, k] : keys.tracks)
        if (st.ok())
            st = impl.write("INSERT INTO track_fts(track_fts, rowid, title, artist, composer) VALUES('delete',?,?,?,?)",
                            "remove album", nullptr, id, k.title, k.artist, k.composer);
    return st;
}

}  // namespace

Status read_album_keys(Catalogue::Impl &impl, int64_t album_id, AlbumKeys &out, int64_t only_track) {
    out = AlbumKeys{};
    Status st;
    // The names stored for the credits of the album (0) or of its tracks.
    std::map<int64_t, std::pair<std::string, std::string>> names;  // owner: performers, composers
    {
        Stmt q(impl.prepare("SELECT 0, c.role, r.name, c.position FROM album_contributors c JOIN artists r"
                            " ON r.id = c.artist_id WHERE c.album_id = ?1 UNION ALL"
                            " SELECT c.track_id, c.role, r.name, c.position FROM tracks t JOIN track_contributors c"
                            " ON c.track_id = t.id JOIN artists r ON r.id = c.artist_id"
                            " WHERE t.album_id = ?1 AND (?2 = 0 OR t.id = ?2) ORDER BY 1, 4",
                            st));
        if (!q) return st;
        q.bind(1, album_id);
        q.bind(2, only_track);
        std::vector<Contributor> one(1);
        int rc;
        while ((rc = q.step()) == SQLITE_ROW) {
            one[0].role = q.text(1);
            one[0].name = q.text(2);
            auto &[performers, composers] = names[q.i64(0)];
            add_credit_names(one, performers, composers);
        }
        if (rc != SQLITE_DONE) return impl.db_error("read search keys");
    }
    std::string album_artist;
    {
        Stmt q(impl.prepare("SELECT title, artist, keys FROM albums WHERE id = ?", st));
        if (!q) return st;
        q.bind(1, album_id);
        if (q.step() != SQLITE_ROW) return {};
        out.found = true;
        album_artist = q.text(1);
        out.album = stored_or_derived(q, 2, derived_keys(q.text(0), album_artist, names[0].first, ""));
    }
    Stmt q(impl.prepare("SELECT id, title, artist, keys FROM tracks WHERE album_id = ?1 AND (?2 = 0 OR id = ?2)"
                        " ORDER BY position",
                        st));
    if (!q) return st;
    q.bind(1, album_id);
    q.bind(2, only_track);
    int rc;
    while ((rc = q.step()) == SQLITE_ROW) {
        const auto &[performers, composers] = names[q.i64(0)];
        const std::string artist = q.text(2);
        out.tracks.emplace_back(q.i64(0), stored_or_derived(q, 3, derived_keys(q.text(1), artist.empty() ? album_artist : artist,
                                                                                performers, names[0].second + composers)));
    }
    return rc == SQLITE_DONE ? Status{} : impl.db_error("read search keys");
}

Status Catalogue::Impl::add_album(Album &album, bool *replaced, bool *unchanged) {
    if (replaced) *replaced = false;
    if (unchanged) *unchanged = false;
    Status st = validate(album);
    if (!st.ok()) return st;
    fill_identifiers(album);
    int64_t existing = 0;
    std::string stored_digest;
    if (!(st = replaced_album(*this, album, existing, stored_digest)).ok()) return st;
    const std::string digest = album_digest(album);
    // Removing the album replaced deletes from the virtual-table indexes,
    // which must first hold every queued row (see IndexRows).
    if (existing && !(st = flush_index()).ok()) return st;
    const size_t queued = index_rows.size();

    // All rows of one album go in, or none. An unchanged album is written
    // again too: the digest only tells, it never decides what is stored.
    st = savepoint("add_album", [&] {
        Status s = existing ? remove_album(existing) : Status{};
        if (s.ok()) s = store_album(*this, album, digest);
        return s.ok() ? mark_changed() : s;
    });
    if (!st.ok()) {
        index_rows.truncate(queued);
        album.id = 0;
        return st;
    }
    if (replaced) *replaced = existing != 0;
    if (unchanged) *unchanged = existing != 0 && stored_digest == digest;
    return {};
}

Status Catalogue::Impl::remove_album(int64_t album_id) {
    Status st;
    std::vector<int64_t> artists;
    {
        Stmt q(prepare("SELECT artist_id FROM album_contributors WHERE album_id = ?1 UNION "
                       "SELECT c.artist_id FROM track_contributors c JOIN tracks t ON t.id = c.track_id "
                       "WHERE t.album_id = ?1",
                       st));
        if (!q) return st;
        q.bind(1, album_id);
        while (q.step() == SQLITE_ROW) artists.push_back(q.i64(0));
    }
    if (!(st = unindex_album(*this, album_id)).ok()) return st;
    const char *steps[] = {
        "DELETE FROM track_contributors WHERE track_id IN (SELECT id FROM tracks WHERE album_id = ?)",
        "DELETE FROM album_contributors WHERE album_id = ?",
        "DELETE FROM tracks WHERE album_id = ?",
        "DELETE FROM tocs WHERE album_id = ?",
        "DELETE FROM discs WHERE album_id = ?",
        "DELETE FROM albums WHERE id = ?",
    };
    for (const char *sql : steps) {
        Stmt s(prepare(sql, st));
        if (!s) return st;
        s.bind(1, album_id);
        if (s.step() != SQLITE_DONE) return db_error("remove album");
    }
    if (sqlite3_changes(db) == 0) return Status::error(Code::not_found, "no album " + std::to_string(album_id));
    // Artists credited nowhere else go too.
    for (int64_t aid : artists) {
        Stmt s(prepare("DELETE FROM artists WHERE id = ?1 AND NOT EXISTS (SELECT 1 FROM album_contributors"
                       " WHERE artist_id = ?1) AND NOT EXISTS (SELECT 1 FROM track_contributors WHERE artist_id = ?1)",
                       st));
        if (!s) return st;
        s.bind(1, aid);
        if (s.step() != SQLITE_DONE) return db_error("remove artist");
        if (sqlite3_changes(db) > 0) {
            Stmt f(prepare("DELETE FROM artist_fts WHERE rowid = ?", st));
            if (!f) return st;
            f.bind(1, aid);
            if (f.step() != SQLITE_DONE) return db_error("remove artist");
        }
    }
    return mark_changed();
}

namespace {

// A lyric as stored: a track without a disc number is on disc 1.
void normalise_lyric(Lyric &lyric) {
    if (lyric.track_number && !lyric.disc_number) lyric.disc_number = 1;
}

}  // namespace

std::string lyric_key(const Lyric &lyric) {
    if (!lyric.album_tui.empty() && lyric.track_number)
        return "track:" + lyric.album_tui + ":" + std::to_string(lyric.disc_number ? lyric.disc_number : 1) + ":" +
               std::to_string(lyric.track_number);
    const std::string title = fold(lyric.title);
    if (!title.empty()) return "title:" + title + "|" + fold(lyric.artist);
    const std::string text = fold(lyric.text);
    return "text:" + hash_tag(text) + hash_tag(text + "#");
}

Status Catalogue::Impl::add_lyric(Lyric &lyric, bool *replaced, bool *unchanged) {
    if (replaced) *replaced = false;
    if (unchanged) *unchanged = false;
    if (fold(lyric.text).empty() && fold(lyric.title).empty())
        return Status::error(Code::bad_record, "lyric without title and text");
    normalise_lyric(lyric);
    const std::string key = lyric_key(lyric);
    Status st;
    int64_t existing = 0;
    {
        Stmt q(prepare("SELECT id, title, artist, text, language, album_tui, disc_number, track_number FROM lyrics"
                       " WHERE natural_key = ?",
                       st));
        if (!q) return st;
        q.bind(1, key);
        if (q.step() == SQLITE_ROW) {
            existing = q.i64(0);
            if (q.text(1) == lyric.title && q.text(2) == lyric.artist && q.text(3) == lyric.text &&
                q.text(4) == lyric.language && q.text(5) == lyric.album_tui && q.u32(6) == lyric.disc_number &&
                q.u32(7) == lyric.track_number) {
                lyric.id = existing;
                if (replaced) *replaced = true;
                if (unchanged) *unchanged = true;
                return {};
            }
        }
    }
    // The row and its index entry change together; a replaced lyric keeps its id.
    st = savepoint("add_lyric", [&] {
        Status s;
        if (existing) {
            s = write("UPDATE lyrics SET title = ?, artist = ?, text = ?, language = ?, album_tui = ?,"
                      " disc_number = ?, track_number = ? WHERE id = ?",
                      "replace lyric", nullptr, lyric.title, lyric.artist, lyric.text, lyric.language,
                      lyric.album_tui, int64_t{lyric.disc_number}, int64_t{lyric.track_number}, existing);
            if (s.ok()) s = write("DELETE FROM lyric_fts WHERE rowid = ?", "replace lyric", nullptr, existing);
            lyric.id = existing;
        } else {
            s = write("INSERT INTO lyrics(title, artist, text, language, album_tui, disc_number, track_number,"
                      " natural_key) VALUES(?,?,?,?,?,?,?,?)",
                      "insert lyric", &lyric.id, lyric.title, lyric.artist, lyric.text, lyric.language,
                      lyric.album_tui, int64_t{lyric.disc_number}, int64_t{lyric.track_number}, key);
        }
        if (s.ok())
            s = write("INSERT INTO lyric_fts(rowid, title, artist, text) VALUES(?,?,?,?)", "index lyric", nullptr,
                      lyric.id, fold(lyric.title), fold(lyric.artist), fold(lyric.text));
        return s.ok() ? mark_changed() : s;
    });
    if (!st.ok()) {
        lyric.id = 0;
        return st;
    }
    if (replaced) *replaced = existing != 0;
    return {};
}

Status Catalogue::Impl::refresh_spelling() {
    Status st = exec(
        "SAVEPOINT spelling;"
        "DELETE FROM spell_words;"
        "INSERT INTO spell_words(term) SELECT term FROM album_vocab UNION SELECT term FROM track_vocab"
        " UNION SELECT term FROM artist_vocab UNION SELECT term FROM lyric_vocab;"
        "INSERT INTO spell_tri(spell_tri) VALUES('rebuild');"
        "INSERT OR REPLACE INTO meta(key, value) VALUES('spelling', '1');"
        "RELEASE spelling;");
    if (!st.ok()) {
        exec("ROLLBACK TO spelling");
        exec("RELEASE spelling");
        return st;
    }
    spelling_stale = false;
    return {};
}

Status Catalogue::Impl::mark_changed() {
    if (spelling_stale) return {};
    spelling_stale = true;
    return exec("INSERT OR REPLACE INTO meta(key, value) VALUES('spelling', '0')");
}

namespace {

// Brings catalogues of earlier schemas up to date, in place. Schema 1 had no disc ID
// table: its discs' MusicBrainz disc IDs and first xmcd DISCIDs were kept as
// media ids only.
constexpr const char *kDiscIdMigration = R"sql(
INSERT OR IGNORE INTO disc_ids(disc_id, toc_id)
  SELECT CASE WHEN length(media_id) = 8 AND media_id NOT GLOB '*[^0-9A-Fa-f]*' THEN lower(media_id) ELSE media_id END,
         id
  FROM tocs WHERE media_id <> '';
)sql";

// Schemas 1 and 2 folded "&" and apostrophes to blanks: every text index is
// made again from the stored texts, as the importers index them.
constexpr const char *kRefoldMigration = R"sql(
DELETE FROM album_fts;
INSERT INTO album_fts(rowid, title, artist)
  SELECT a.id, catalogue_fold(a.title), catalogue_fold(a.artist || ' ' || coalesce((SELECT group_concat(r.name, ' ')
    FROM album_contributors c JOIN artists r ON r.id = c.artist_id WHERE c.album_id = a.id AND c.role = 'performer'), ''))
  FROM albums a;
DELETE FROM track_fts;
INSERT INTO track_fts(rowid, title, artist, composer)
  SELECT t.id, catalogue_fold(t.title),
    catalogue_fold(CASE WHEN t.artist = '' THEN a.artist ELSE t.artist END || ' ' || coalesce((SELECT group_concat(r.name, ' ')
      FROM track_contributors c JOIN artists r ON r.id = c.artist_id WHERE c.track_id = t.id AND c.role = 'performer'), '')),
    catalogue_fold(coalesce((SELECT group_concat(r.name, ' ') FROM album_contributors c JOIN artists r ON r.id = c.artist_id
      WHERE c.album_id = t.album_id AND c.role IN ('composer', 'lyricist', 'writer', 'librettist')), '') || ' ' ||
      coalesce((SELECT group_concat(r.name, ' ') FROM track_contributors c JOIN artists r ON r.id = c.artist_id
      WHERE c.track_id = t.id AND c.role IN ('composer', 'lyricist', 'writer', 'librettist')), ''))
  FROM tracks t JOIN albums a ON a.id = t.album_id;
DELETE FROM artist_fts;
INSERT INTO artist_fts(rowid, name) SELECT id, catalogue_fold(name || ' ' || sort_name) FROM artists;
DELETE FROM lyric_fts;
INSERT INTO lyric_fts(rowid, title, artist, text)
  SELECT id, catalogue_fold(title), catalogue_fold(artist), catalogue_fold(text) FROM lyrics;
INSERT OR REPLACE INTO meta(key, value) VALUES('spelling', '0');
)sql";

// Schema 4 had no edition fields and stored a lyric again at each import:
// the new columns come in (where missing), each lyric gets its natural key,
// and of lyrics sharing a key the last imported stays, as a re-import
// would have left it.
constexpr std::pair<const char *, const char *> kEditionColumns[] = {
    {"albums", "country"}, {"albums", "release_date"}, {"albums", "catalogue_number"},
    {"albums", "barcode"}, {"discs", "format"},        {"lyrics", "natural_key"},
};
constexpr const char *kLyricDuplicates = R"sql(
CREATE TEMP TABLE kept_lyrics AS SELECT max(id) AS id FROM lyrics GROUP BY natural_key;
DELETE FROM lyric_fts WHERE rowid NOT IN (SELECT id FROM kept_lyrics);
DELETE FROM lyrics WHERE id NOT IN (SELECT id FROM kept_lyrics);
DROP TABLE kept_lyrics;
INSERT OR REPLACE INTO meta(key, value) VALUES('spelling', '0');
)sql";

// Schema 5 stored every track identifier and tag (a unique index over all
// the identifiers), kept album digests in meta, and prefix indexes of two
// characters that no search asks for. The tracks table and the artist and
// lyric text indexes are made anew from kSchema (the album and track ones
// by kKeysMigration): rows keep their ids, texts and search keys; a
// derived track identifier or tag becomes NULL. Digests move to the albums.
// Run with foreign keys off and legacy renaming, so that no row cascades
// and the credits go on naming "tracks".
constexpr const char *kSlimMigrationStart = R"sql(
DROP INDEX IF EXISTS tracks_album;
DROP INDEX IF EXISTS tracks_disc;
ALTER TABLE tracks RENAME TO tracks_v5;
ALTER TABLE artist_fts RENAME TO artist_fts_v5;
ALTER TABLE lyric_fts RENAME TO lyric_fts_v5;
)sql";
constexpr const char *kSlimMigrationCopy = R"sql(
INSERT INTO tracks(id, album_id, disc_id, disc_number, number, position, title, artist, duration_ms, tui, tag,
                   source_id)
  SELECT t.id, t.album_id, t.disc_id, t.disc_number, t.number, t.position, t.title, t.artist, t.duration_ms,
    CASE WHEN t.tui = a.tui || '-' || t.disc_number || '-' || t.number THEN NULL ELSE t.tui END,
    CASE WHEN t.tag = catalogue_tag(t.tui || '|' || t.title) THEN NULL ELSE t.tag END, t.source_id
  FROM tracks_v5 t LEFT JOIN albums a ON a.id = t.album_id ORDER BY t.id;
INSERT OR IGNORE INTO sqlite_sequence(name, seq) SELECT 'tracks', 0
  WHERE NOT EXISTS (SELECT 1 FROM sqlite_sequence WHERE name = 'tracks');
UPDATE sqlite_sequence SET seq = max(seq, coalesce((SELECT seq FROM sqlite_sequence WHERE name = 'tracks_v5'), 0))
  WHERE name = 'tracks';
DROP TABLE tracks_v5;
INSERT INTO artist_fts(rowid, name) SELECT rowid, name FROM artist_fts_v5;
DROP TABLE artist_fts_v5;
INSERT INTO lyric_fts(rowid, title, artist, text) SELECT rowid, title, artist, text FROM lyric_fts_v5;
DROP TABLE lyric_fts_v5;
UPDATE albums SET digest = coalesce((SELECT value FROM meta WHERE key = 'digest:' || albums.tui), '');
DELETE FROM meta WHERE key >= 'digest:' AND key < 'digest;';
)sql";

// Schema 6 and before kept a copy of every album and track search key in
// album_fts and track_fts. Those become indexes without a copy: the keys
// that are not the derived ones move to the albums and tracks tables,
// exactly as they were indexed, and each track is marked where its artist
// key can match where its album's cannot (a track whose album has no key is
// marked, which only costs a search a check). See migrate_keys.
constexpr const char *kKeysMigrationStart = R"sql(
ALTER TABLE album_fts RENAME TO album_fts_v6;
ALTER TABLE track_fts RENAME TO track_fts_v6;
)sql";
constexpr const char *kKeysMigrationCopy = R"sql(
INSERT INTO album_fts(rowid, title, artist) SELECT rowid, title, artist FROM album_fts_v6;
INSERT INTO track_fts(rowid, title, artist, composer) SELECT rowid, title, artist, composer FROM track_fts_v6;
)sql";
constexpr const char *kKeysMigrationEnd = R"sql(
DROP TABLE album_fts_v6;
DROP TABLE track_fts_v6;
)sql";
constexpr std::tuple<const char *, const char *, const char *> kKeysColumns[] = {
    {"albums", "keys", "TEXT"}, {"tracks", "keys", "TEXT"}, {"tracks", "own_artist", "INTEGER NOT NULL DEFAULT 0"}};

// The keys column and own_artist mark of every album and track, from the
// keys the earlier indexes hold (album_fts_v6, track_fts_v6). The columns
// are empty, so read_album_keys reads the derived keys.
Status migrate_keys(Catalogue::Impl &impl) {
    Status st;
    std::vector<int64_t> albums;
    {
        Stmt q(impl.prepare("SELECT id FROM albums ORDER BY id", st));
        if (!q) return st;
        while (q.step() == SQLITE_ROW) albums.push_back(q.i64(0));
    }
    auto indexed = [&](const char *sql, int64_t id, IndexKeys &keys) -> Status {
        Stmt q(impl.prepare(sql, st));
        if (!q) return st;
        q.bind(1, id);
        keys = IndexKeys{};
        if (q.step() != SQLITE_ROW) return Status::error(Code::not_found, "");
        keys = IndexKeys{q.text(0), q.text(1), q.text(2)};
        return {};
    };
    for (int64_t album : albums) {
        AlbumKeys derived;
        if (!(st = read_album_keys(impl, album, derived)).ok()) return st;
        IndexKeys album_keys;
        const bool album_indexed =
            indexed("SELECT title, artist, '' FROM album_fts_v6 WHERE rowid = ?", album, album_keys).ok();
        if (album_indexed && album_keys != derived.album)
            st = impl.write("UPDATE albums SET keys = ? WHERE id = ?", "store search keys", nullptr,
                            *stored_keys(album_keys, derived.album, false), album);
        for (const auto &[track, derived_track] : derived.tracks) {
            IndexKeys keys;
            if (!st.ok()) return st;
            if (!indexed("SELECT title, artist, composer FROM track_fts_v6 WHERE rowid = ?", track, keys).ok()) continue;
            const std::optional<std::string> stored = stored_keys(keys, derived_track, true);
            const bool own = !album_indexed || own_artist(keys.artist, album_keys.artist);
            if (stored || own)
                st = impl.write("UPDATE tracks SET keys = ?, own_artist = ? WHERE id = ?", "store search keys", nullptr,
                                stored ? &*stored : nullptr, int64_t{own}, track);
        }
        if (!st.ok()) return st;
    }
    return {};
}

// Adds a column of `type` to a table that lacks it.
Status add_column(Catalogue::Impl &impl, const char *table, const char *column, const char *type) {
    Status st;
    int64_t present = 0;
    {
        Stmt q(impl.prepare("SELECT count(*) FROM pragma_table_info(?) WHERE name = ?", st));
        if (!q) return st;
        q.bind(1, table);
        q.bind(2, column);
        if (q.step() != SQLITE_ROW) return impl.db_error("read columns");
        present = q.i64(0);
    }
    const std::string add = std::string("ALTER TABLE ") + table + " ADD COLUMN " + column + " " + type;
    return present ? Status{} : impl.exec(add.c_str());
}

// Adds a text column (empty by default) to a table that lacks it.
Status add_text_column(Catalogue::Impl &impl, const char *table, const char *column) {
    return add_column(impl, table, column, "TEXT NOT NULL DEFAULT ''");
}

Status editions_and_lyric_keys(Catalogue::Impl &impl) {
    Status st;
    for (const auto &[table, column] : kEditionColumns)
        if (!(st = add_text_column(impl, table, column)).ok()) return st;
    if (!(st = impl.exec("UPDATE lyrics SET disc_number = 1 WHERE track_number > 0 AND disc_number = 0")).ok())
        return st;
    std::vector<std::pair<int64_t, std::string>> keys;
    {
        Stmt q(impl.prepare("SELECT id, title, artist, text, album_tui, disc_number, track_number FROM lyrics", st));
        if (!q) return st;
        while (q.step() == SQLITE_ROW) {
            Lyric l;
            l.title = q.text(1);
            l.artist = q.text(2);
            l.text = q.text(3);
            l.album_tui = q.text(4);
            l.disc_number = q.u32(5);
            l.track_number = q.u32(6);
            keys.emplace_back(q.i64(0), lyric_key(l));
        }
    }
    for (const auto &[id, key] : keys)
        if (!(st = impl.write("UPDATE lyrics SET natural_key = ? WHERE id = ?", "key lyric", nullptr, key, id)).ok())
            return st;
    return impl.exec(kLyricDuplicates);
}

// A text function for SQL: `F` of its one argument, as text.
template <std::string (*F)(std::string_view)>
void sql_text_function(sqlite3_context *context, int, sqlite3_value **args) {
    const auto *text = reinterpret_cast<const char *>(sqlite3_value_text(args[0]));
    try {
        const std::string out = F(text ? std::string_view(text, static_cast<size_t>(sqlite3_value_bytes(args[0])))
                                       : std::string_view());
        sqlite3_result_text(context, out.data(), static_cast<int>(out.size()), SQLITE_TRANSIENT);
    } catch (const std::bad_alloc &) {
        sqlite3_result_error_nomem(context);
    }
}

// The schema number of a catalogue, from its 'schema' row; one that this
// program does not know reads as the current one.
Status read_schema(Catalogue::Impl &impl) {
    Status st;
    Stmt q(impl.prepare("SELECT value FROM meta WHERE key = 'schema'", st));
    if (!q) return st;
    const int known = q.step() == SQLITE_ROW ? known_schema(q.text(0)) : 0;
    impl.schema = known ? known : kSchemaVersion;
    return {};
}

// Schemas 1 to 3 had no TOC shape index: every stored TOC is indexed.
Status index_toc_shapes(Catalogue::Impl &impl) {
    Status st;
    Stmt q(impl.prepare("SELECT id, toc FROM tocs ORDER BY id", st));
    if (!q) return st;
    std::vector<uint32_t> offsets;
    int rc;
    while ((rc = q.step()) == SQLITE_ROW) {
        // A TOC text that does not parse is found by no fuzzy lookup anyway.
        if (!parse_toc(q.text(1), offsets).ok()) continue;
        if (!(st = store_toc_shape(impl, q.i64(0), offsets)).ok()) return st;
    }
    return rc == SQLITE_DONE ? Status{} : impl.db_error("index TOCs");
}

// Brings a catalogue of an earlier schema (its 'schema' row, see
// read_schema) to the current one, in place; a new catalogue gets its row.
Status migrate(Catalogue::Impl &impl) {
    Status st = impl.write("INSERT OR IGNORE INTO meta(key, value) VALUES('schema', ?)", "store schema", nullptr,
                           std::to_string(kSchemaVersion));
    if (!st.ok() || !(st = read_schema(impl)).ok()) return st;
    // Each step brings one schema to the next; all of them go in one
    // transaction, so a failed migration leaves the file as it was.
    const int from = impl.schema;
    impl.schema = kSchemaVersion;
    if (from == kSchemaVersion) return {};
    // fold() and hash_tag() for the steps, as catalogue_fold(text) and catalogue_tag(text).
    using SqlFunction = void (*)(sqlite3_context *, int, sqlite3_value **);
    const std::pair<const char *, SqlFunction> functions[] = {{"catalogue_fold", sql_text_function<fold>},
                                                              {"catalogue_tag", sql_text_function<hash_tag>}};
    for (const auto &[name, function] : functions)
        if (sqlite3_create_function_v2(impl.db, name, 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, function,
                                       nullptr, nullptr, nullptr) != SQLITE_OK)
            return impl.db_error("register SQL functions");
    // Tables made anew (schema 5 and before) are renamed and dropped with
    // foreign keys off; it can only change outside a transaction.
    const bool remake = from <= 5;
    auto settings = [&](bool migrating) {
        return impl.exec(migrating ? "PRAGMA foreign_keys = OFF; PRAGMA legacy_alter_table = ON;"
                                   : "PRAGMA foreign_keys = ON; PRAGMA legacy_alter_table = OFF;");
    };
    if (remake && !(st = settings(true)).ok()) return st;
    if (!(st = impl.exec("BEGIN")).ok()) {
        if (remake) settings(false);
        return st;
    }
    if (from == 1) st = impl.exec(kDiscIdMigration);
    if (st.ok() && from <= 2) st = impl.exec(kRefoldMigration);
    if (st.ok() && from <= 3) st = impl.exec("DELETE FROM toc_shape");
    if (st.ok() && from <= 3) st = index_toc_shapes(impl);
    if (st.ok() && from <= 4) st = editions_and_lyric_keys(impl);
    if (st.ok() && remake) st = impl.exec(kSlimMigrationStart);
    if (st.ok() && remake) st = impl.exec(kSchema);
    if (st.ok() && remake) st = add_text_column(impl, "albums", "digest");
    if (st.ok() && remake) st = impl.exec(kSlimMigrationCopy);
    for (const auto &[table, column, type] : kKeysColumns)
        if (st.ok()) st = add_column(impl, table, column, type);
    if (st.ok()) st = impl.exec(kKeysMigrationStart);
    if (st.ok()) st = impl.exec(kSchema);
    if (st.ok()) st = impl.exec(kKeysMigrationCopy);
    if (st.ok()) st = migrate_keys(impl);
    if (st.ok()) st = impl.exec(kKeysMigrationEnd);
    if (st.ok())
        st = impl.write("UPDATE meta SET value = ? WHERE key = 'schema'", "update schema", nullptr,
                        std::to_string(kSchemaVersion));
    if (st.ok()) st = impl.exec("COMMIT");
    if (!st.ok()) impl.exec("ROLLBACK");
    if (remake) {
        // The failure that stopped the migration is the one told.
        const Status restored = settings(false);
        if (st.ok()) st = restored;
    }
    return st;
}

}  // namespace

// ---- Catalogue -------------------------------------------------------------------

Catalogue::Catalogue() : impl_(std::make_unique<Impl>()) {}
Catalogue::~Catalogue() = default;

namespace {

// A path as an SQLite URI ("file:" and the path with %, ? and # escaped).
std::string file_uri(const std::string &path) {
    std::string uri = "file:";
    for (char c : path) {
        if (c == '%' || c == '?' || c == '#') {
            char escaped[4];
            std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned char>(c));
            uri += escaped;
        } else {
            uri += c;
        }
    }
    return uri;
}

// One integer answer of a pragma or query; false if it fails.
bool query_int(sqlite3 *db, const char *sql, int64_t &out, int *rc_out = nullptr) {
    sqlite3_stmt *stmt = nullptr;
    int rc = sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr);
    if (rc == SQLITE_OK) rc = sqlite3_step(stmt);
    const bool ok = rc == SQLITE_ROW;
    if (ok) out = sqlite3_column_int64(stmt, 0);
    sqlite3_finalize(stmt);
    if (rc_out) *rc_out = ok ? SQLITE_OK : (rc == SQLITE_DONE ? SQLITE_OK : sqlite3_errcode(db));
    return ok;
}

// The mark of a catalogue, written only where it differs so that opening a
// marked file writes nothing.
Status mark(Catalogue::Impl &impl) {
    int64_t id = 0, version = 0;
    if (!query_int(impl.db, "PRAGMA application_id", id) || !query_int(impl.db, "PRAGMA user_version", version))
        return impl.db_error("read the catalogue's mark");
    if (id == kApplicationId && version == kSchemaVersion) return {};
    const std::string sql = "PRAGMA application_id = " + std::to_string(kApplicationId) +
                            "; PRAGMA user_version = " + std::to_string(kSchemaVersion) + ";";
    return impl.exec(sql.c_str());
}

}  // namespace

int open_read_only(const std::string &path, sqlite3 *&db) noexcept {
    db = nullptr;
    int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc != SQLITE_OK) return rc;
    // The first read opens the file; a WAL file whose shared-memory file
    // cannot be made (read-only folder) is read as immutable instead.
    int64_t unused = 0;
    int read_rc = SQLITE_OK;
    if (query_int(db, "SELECT count(*) FROM sqlite_master", unused, &read_rc) || read_rc == SQLITE_OK) return SQLITE_OK;
    const int primary = read_rc & 0xff;
    if (primary != SQLITE_CANTOPEN && primary != SQLITE_READONLY) return read_rc;
    sqlite3_close(db);
    db = nullptr;
    return sqlite3_open_v2((file_uri(path) + "?immutable=1").c_str(), &db,
                           SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_URI, nullptr);
}

Status recognise(sqlite3 *db, bool &unmarked) noexcept {
    return guarded([&]() -> Status {
        unmarked = false;
        int64_t id = 0, version = 0, pages = 0, tables = 0;
        int rc = SQLITE_OK;
        if (!query_int(db, "PRAGMA page_count", pages, &rc))
            return Status::error(Code::database, sqlite3_errstr(rc));
        if (pages == 0) return Status::error(Code::not_catalogue, "not a catalogue: the file is empty");
        if (!query_int(db, "PRAGMA application_id", id) || !query_int(db, "PRAGMA user_version", version) ||
            !query_int(db,
                       "SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name IN "
                       "('meta', 'albums', 'discs', 'tocs', 'tracks', 'lyrics')",
                       tables))
            return Status::error(Code::database, sqlite3_errmsg(db));
        if (id == kApplicationId) {
            if (version > kSchemaVersion)
                return Status::error(Code::not_catalogue, "catalogue of a newer schema (" + std::to_string(version) +
                                                              ") than this program reads (" +
                                                              std::to_string(kSchemaVersion) + ")");
            if (tables == 6) return {};
            return Status::error(Code::database, "catalogue without its tables");
        }
        if (id != 0) {
            char hex[16];
            std::snprintf(hex, sizeof hex, "%08X", static_cast<uint32_t>(id));
            return Status::error(Code::not_catalogue,
                                 std::string("not a catalogue: an SQLite database of another program (application id 0x") +
                                     hex + ")");
        }
        // Made before the mark: the catalogue's tables and its schema row.
        sqlite3_stmt *q = nullptr;
        const bool known = tables == 6 &&
                           sqlite3_prepare_v2(db, "SELECT value FROM meta WHERE key = 'schema'", -1, &q, nullptr) ==
                               SQLITE_OK &&
                           sqlite3_step(q) == SQLITE_ROW &&
                           known_schema(std::string_view(reinterpret_cast<const char *>(sqlite3_column_blob(q, 0)),
                                                         static_cast<size_t>(sqlite3_column_bytes(q, 0)))) != 0;
        sqlite3_finalize(q);
        if (known) {
            unmarked = true;
            return {};
        }
        return Status::error(Code::not_catalogue, "not a catalogue: an SQLite database of another program");
    });
}

Status Catalogue::open(const std::string &path, std::unique_ptr<Catalogue> &out, OpenMode mode) noexcept {
    return guarded([&]() -> Status {
        if (path.empty()) return Status::error(Code::invalid_argument, "empty catalogue path");
        std::unique_ptr<Catalogue> cat(new Catalogue());
        Impl &impl = *cat->impl_;
        const bool memory = path == ":memory:";
        impl.read_only = mode == OpenMode::read_only && !memory;
        auto refused = [&](const Status &st) { return Status::error(st.code, "catalogue " + path + ": " + st.message); };
        bool unmarked = false;
        if (impl.read_only) {
            if (open_read_only(path, impl.db) != SQLITE_OK) return impl.db_error(("open " + path).c_str());
            if (Status st = recognise(impl.db, unmarked); !st.ok()) return refused(st);
        } else {
            struct stat info;
            if (!memory && ::stat(path.c_str(), &info) == 0) {
                // An existing file is looked at read-only first: nothing is
                // written to a file that is not a catalogue.
                sqlite3 *probe = nullptr;
                const int rc = open_read_only(path, probe);
                Status st = rc == SQLITE_OK ? recognise(probe, unmarked)
                                            : Status::error(Code::database, sqlite3_errstr(rc));
                sqlite3_close(probe);
                if (!st.ok()) return refused(st);
            }
            const int rc = sqlite3_open_v2(path.c_str(), &impl.db,
                                           SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
            if (rc != SQLITE_OK) return impl.db_error(("open " + path).c_str());
        }
        sqlite3_extended_result_codes(impl.db, 1);
        sqlite3_busy_timeout(impl.db, 5000);
        Status st = impl.exec("PRAGMA foreign_keys = ON;");
        if (!impl.read_only) {
            if (st.ok()) st = impl.exec("PRAGMA synchronous = NORMAL;");
            if (st.ok() && !memory) st = impl.exec("PRAGMA journal_mode = WAL;");
            if (st.ok()) st = impl.exec(kSchema);
            if (st.ok()) st = migrate(impl);
            if (st.ok()) st = impl.exec(kLateIndexes);
            if (st.ok()) st = mark(impl);
        } else if (st.ok()) {
            st = read_schema(impl);
        }
        if (!st.ok()) return refused(st);
        // A new or changed catalogue gets its word list at the first search.
        {
            Stmt q(impl.prepare("SELECT value FROM meta WHERE key = 'spelling'", st));
            if (!q) return st;
            impl.spelling_stale = !(q.step() == SQLITE_ROW && q.text(0) == "1");
        }
        {
            Stmt q(impl.prepare("SELECT 1 FROM sqlite_master WHERE name = 'toc_shape'", st));
            if (!q) return st;
            impl.toc_index = q.step() == SQLITE_ROW;
        }
        out = std::move(cat);
        return {};
    });
}

Status Catalogue::begin() noexcept {
    return guarded([&] {
        std::lock_guard lock(impl_->mutex);
        return impl_->begin();
    });
}

Status Catalogue::commit() noexcept {
    return guarded([&] {
        std::lock_guard lock(impl_->mutex);
        return impl_->commit();
    });
}

Status Catalogue::rollback() noexcept {
    return guarded([&] {
        std::lock_guard lock(impl_->mutex);
        return impl_->rollback();
    });
}

Status Catalogue::add_album(Album &album, bool *replaced) noexcept {
    return guarded([&] {
        std::lock_guard lock(impl_->mutex);
        return impl_->add_album(album, replaced);
    });
}

Status Catalogue::remove_album(int64_t album_id) noexcept {
    return guarded([&] {
        std::lock_guard lock(impl_->mutex);
        Status st = impl_->flush_index();
        return st.ok() ? impl_->savepoint("remove_album", [&] { return impl_->remove_album(album_id); }) : st;
    });
}

Status Catalogue::add_lyric(Lyric &lyric, bool *replaced, bool *unchanged) noexcept {
    return guarded([&] {
        std::lock_guard lock(impl_->mutex);
        return impl_->add_lyric(lyric, replaced, unchanged);
    });
}

Status Catalogue::refresh_spelling() noexcept {
    return guarded([&] {
        std::lock_guard lock(impl_->mutex);
        return impl_->refresh_spelling();
    });
}

namespace {

// Rows of one table; the caller holds the catalogue's mutex.
Status count_rows(Catalogue::Impl &impl, std::string_view sql, uint64_t &out) {
    Status st;
    Stmt q(impl.prepare(sql, st));
    if (!q) return st;
    if (q.step() != SQLITE_ROW) return impl.db_error("count rows");
    out = static_cast<uint64_t>(q.i64(0));
    return {};
}

}  // namespace

Status Catalogue::album_count(uint64_t &out) noexcept {
    return guarded([&] {
        std::lock_guard lock(impl_->mutex);
        return count_rows(*impl_, "SELECT count(*) FROM albums", out);
    });
}

Status Catalogue::statistics(Statistics &out) noexcept {
    return guarded([&] {
        std::lock_guard lock(impl_->mutex);
        Statistics counts;
        const std::pair<const char *, uint64_t *> tables[] = {
            {"SELECT count(*) FROM albums", &counts.albums},   {"SELECT count(*) FROM discs", &counts.discs},
            {"SELECT count(*) FROM tocs", &counts.tocs},       {"SELECT count(*) FROM tracks", &counts.tracks},
            {"SELECT count(*) FROM artists", &counts.artists}, {"SELECT count(*) FROM lyrics", &counts.lyrics},
        };
        for (const auto &[sql, count] : tables)
            if (Status st = count_rows(*impl_, sql, *count); !st.ok()) return st;
        out = counts;
        return Status{};
    });
}

namespace {

// Columns of the edition fields (albums: country, date, catalogue number,
// barcode; discs: format), read as empty texts from a catalogue of a
// schema before them.
std::string album_edition_columns(const Catalogue::Impl &impl, const char *table) {
    if (impl.schema < 5) return "'', '', '', ''";
    const std::string t = std::string(table) + ".";
    return t + "country, " + t + "release_date, " + t + "catalogue_number, " + t + "barcode";
}
std::string disc_format_column(const Catalogue::Impl &impl, const char *table) {
    return impl.schema < 5 ? "''" : std::string(table) + ".format";
}

// One credit as a query reads it: the artist's id, name, sort name, source
// id and collaboration flag, then the role, from column `first` on.
Contributor credit_columns(const Stmt &q, int first) {
    Contributor c;
    c.artist_id = q.i64(first);
    c.name = q.text(first + 1);
    c.sort_name = q.text(first + 2);
    c.source_id = q.text(first + 3);
    c.collaboration = q.i64(first + 4) != 0;
    c.role = q.text(first + 5);
    return c;
}

// Credits read unordered, with what orders them: their owner (album or
// track), their position, then their row id. Sorting the few rows here
// spares SQLite a temporary table, and the row id, which is the order of
// the index the rows are read through, makes the order total.
struct CreditRow {
    int64_t owner = 0;
    int64_t position = 0;
    int64_t rowid = 0;
    Contributor contributor;
};

// Reads `sql`, whose columns are the owner, the position and the row id
// of each credit and then its credit_columns(), bound to `key`; the rows
// are put in credit order when `sort` is set.
Status read_credit_rows(Catalogue::Impl &impl, const char *sql, int64_t key, bool sort, std::vector<CreditRow> &rows) {
    Status st;
    Stmt q(impl.prepare(sql, st));
    if (!q) return st;
    q.bind(1, key);
    while (q.step() == SQLITE_ROW) rows.push_back(CreditRow{q.i64(0), q.i64(1), q.i64(2), credit_columns(q, 3)});
    if (sort) std::sort(rows.begin(), rows.end(), [](const CreditRow &a, const CreditRow &b) {
        if (a.owner != b.owner) return a.owner < b.owner;
        if (a.position != b.position) return a.position < b.position;
        return a.rowid < b.rowid;
    });
    return {};
}

// Credit rows as read_credit_rows() takes them, of an album and of the
// tracks of a disc (spelt as macros, so that the reference reading can add
// its ORDER BY to the same text).
#define CREDIT_COLUMNS "c.position, c.rowid, a.id, a.name, a.sort_name, a.source_id, a.collaboration, c.role"
#define ALBUM_CREDITS_SQL                                                         \
    "SELECT c.album_id, " CREDIT_COLUMNS " FROM album_contributors c JOIN artists a" \
    " ON a.id = c.artist_id WHERE c.album_id = ?"
#define DISC_CREDITS_SQL                                                                                       \
    "SELECT c.track_id, " CREDIT_COLUMNS " FROM tracks t JOIN track_contributors c ON c.track_id = t.id" \
    " JOIN artists a ON a.id = c.artist_id WHERE t.disc_id = ?"

// The credits of an album, in credit order (sorted by SQLite for the
// reference reading).
Status read_contributors(Catalogue::Impl &impl, int64_t album_id, bool sql_order, std::vector<Contributor> &out) {
    std::vector<CreditRow> rows;
    Status st = read_credit_rows(impl,
                                 sql_order ? ALBUM_CREDITS_SQL " ORDER BY c.position" : ALBUM_CREDITS_SQL,
                                 album_id, !sql_order, rows);
    if (!st.ok()) return st;
    for (auto &row : rows) out.push_back(std::move(row.contributor));
    return {};
}

// The credits of every track of a disc, read in one statement rather than
// one per track.
Status read_track_contributors(Catalogue::Impl &impl, bool sql_order, Disc &disc) {
    if (disc.tracks.empty()) return {};
    std::vector<CreditRow> rows;
    Status st = read_credit_rows(impl,
                                 sql_order ? DISC_CREDITS_SQL " ORDER BY c.track_id, c.position" : DISC_CREDITS_SQL,
                                 disc.id, !sql_order, rows);
    if (!st.ok()) return st;
    size_t at = 0;  // the track of the last row; rows of one track come together
    for (auto &row : rows) {
        for (size_t n = 0; n < disc.tracks.size() && disc.tracks[at].id != row.owner; ++n)
            at = (at + 1) % disc.tracks.size();
        if (disc.tracks[at].id == row.owner) disc.tracks[at].contributors.push_back(std::move(row.contributor));
    }
    return {};
}

#undef DISC_CREDITS_SQL
#undef ALBUM_CREDITS_SQL
#undef CREDIT_COLUMNS

// How read_album reads: with or without the credits, and ordered by
// SQLite (the reference reading, whose statements sort in a temporary
// table) or here.
struct AlbumReading {
    bool credits = true;
    bool sql_order = false;
};

// An album with its credits, discs, TOCs and tracks, in their order:
// discs by number, TOCs by id, tracks by number then id, credits by
// position then row id.
Status read_album(Catalogue::Impl &impl, int64_t album_id, AlbumReading how, Album &album) {
    Status st;
    {
        Stmt q(impl.prepare("SELECT id, tui, tag, revision, title, artist, year, genre, label, language, source,"
                            " source_id, " + album_edition_columns(impl, "albums") + " FROM albums WHERE id = ?",
                            st));
        if (!q) return st;
        q.bind(1, album_id);
        if (q.step() != SQLITE_ROW) return Status::error(Code::not_found, "no album " + std::to_string(album_id));
        album.id = q.i64(0);
        album.tui = q.text(1);
        album.tag = q.text(2);
        album.revision = q.u32(3);
        album.title = q.text(4);
        album.artist = q.text(5);
        album.year = q.u32(6);
        album.genre = q.text(7);
        album.label = q.text(8);
        album.language = q.text(9);
        album.source = q.text(10);
        album.source_id = q.text(11);
        album.country = q.text(12);
        album.release_date = q.text(13);
        album.catalogue_number = q.text(14);
        album.barcode = q.text(15);
    }
    if (how.credits && !(st = read_contributors(impl, album.id, how.sql_order, album.contributors)).ok()) return st;
    {
        Stmt q(impl.prepare("SELECT id, number, title, " + disc_format_column(impl, "discs") +
                                " FROM discs WHERE album_id = ? ORDER BY number",
                            st));
        if (!q) return st;
        q.bind(1, album.id);
        while (q.step() == SQLITE_ROW) {
            Disc d;
            d.id = q.i64(0);
            d.number = q.u32(1);
            d.title = q.text(2);
            d.format = q.text(3);
            album.discs.push_back(std::move(d));
        }
    }
    for (auto &disc : album.discs) {
        {
            Stmt q(impl.prepare("SELECT toc, media_id, mui FROM tocs WHERE disc_id = ? ORDER BY id", st));
            if (!q) return st;
            q.bind(1, disc.id);
            while (q.step() == SQLITE_ROW) {
                Toc t;
                parse_toc(q.text(0), t.offsets);
                t.media_id = q.text(1);
                t.mui = q.text(2);
                disc.tocs.push_back(std::move(t));
            }
        }
        {
            // Read in the order of the disc index (by id) and sorted here
            // by number, sparing SQLite a temporary table.
#define DISC_TRACKS_SQL                                                                                 \
    "SELECT id, number, title, artist, duration_ms, tui, tag, source_id, disc_number FROM tracks WHERE disc_id = ?"
            Stmt q(impl.prepare(how.sql_order ? DISC_TRACKS_SQL " ORDER BY number" : DISC_TRACKS_SQL, st));
#undef DISC_TRACKS_SQL
            if (!q) return st;
            q.bind(1, disc.id);
            while (q.step() == SQLITE_ROW) {
                Track t;
                t.id = q.i64(0);
                t.number = q.u32(1);
                t.title = q.text(2);
                t.artist = q.text(3);
                t.duration_ms = q.u32(4);
                t.tui = q.null(5) ? derived_track_tui(album.tui, q.u32(8), t.number) : q.text(5);
                t.tag = q.null(6) ? derived_track_tag(t.tui, t.title) : q.text(6);
                t.source_id = q.text(7);
                disc.tracks.push_back(std::move(t));
            }
            auto by_number = [](const Track &a, const Track &b) {
                return a.number != b.number ? a.number < b.number : a.id < b.id;
            };
            if (!how.sql_order && !std::is_sorted(disc.tracks.begin(), disc.tracks.end(), by_number))
                std::sort(disc.tracks.begin(), disc.tracks.end(), by_number);
        }
        if (how.credits && !(st = read_track_contributors(impl, how.sql_order, disc)).ok()) return st;
    }
    return {};
}

}  // namespace

Status Catalogue::get_album(int64_t album_id, Album &out) noexcept {
    std::shared_ptr<const Album> album;
    Status st = get_album(album_id, album, AlbumRead::full);
    if (!st.ok()) return st;
    return guarded([&] {
        out = *album;
        return Status{};
    });
}

Status Catalogue::get_album(int64_t album_id, std::shared_ptr<const Album> &out, AlbumRead what) noexcept {
    const bool credits = what == AlbumRead::full;
    return guarded([&]() -> Status {
        std::lock_guard lock(impl_->mutex);
        Impl &impl = *impl_;
        ReadTransaction transaction(impl);
        Status st;
        // The album read last is kept with the state of the file it was read
        // from (see file_version). Identifying a disc reads its album twice
        // (the match, then the album in full); the second read is this copy.
        Impl::AlbumCopy::Version version;
        if (!(st = impl.file_version(version, "read album")).ok()) return st;
        if (impl.last_album && impl.last_album->album->id == album_id && impl.last_album->version == version &&
            (impl.last_album->credits || !credits)) {
            out = impl.last_album->album;
            return {};
        }
        impl.last_album.reset();
        auto album = std::make_shared<Album>();
        if (!(st = read_album(impl, album_id, AlbumReading{credits, false}, *album)).ok()) return st;
        impl.last_album = Impl::AlbumCopy{album, credits, version};
        out = std::move(album);
        return {};
    });
}

Status Catalogue::search_keys(int64_t album_id, AlbumKeys &out) noexcept {
    return guarded([&]() -> Status {
        std::lock_guard lock(impl_->mutex);
        ReadTransaction transaction(*impl_);
        return read_album_keys(*impl_, album_id, out);
    });
}

Status Catalogue::get_album_reference(int64_t album_id, Album &out) noexcept {
    return guarded([&]() -> Status {
        std::lock_guard lock(impl_->mutex);
        ReadTransaction transaction(*impl_);
        Album album;
        Status st = read_album(*impl_, album_id, AlbumReading{true, true}, album);
        if (st.ok()) out = std::move(album);
        return st;
    });
}

Status Catalogue::get_lyric(int64_t lyric_id, Lyric &out) noexcept {
    return guarded([&]() -> Status {
        std::lock_guard lock(impl_->mutex);
        Status st;
        Stmt q(impl_->prepare(
            "SELECT l.id, l.title, l.artist, l.text, l.language, l.album_tui, l.disc_number, l.track_number,"
            " t.id, a.title, a.artist, t.title FROM lyrics l LEFT JOIN albums a ON a.tui = l.album_tui"
            " LEFT JOIN tracks t ON t.album_id = a.id AND t.disc_number = l.disc_number AND t.number = l.track_number"
            " WHERE l.id = ?",
            st));
        if (!q) return st;
        q.bind(1, lyric_id);
        if (q.step() != SQLITE_ROW) return Status::error(Code::not_found, "no lyric " + std::to_string(lyric_id));
        Lyric l;
        l.id = q.i64(0);
        l.title = q.text(1);
        l.artist = q.text(2);
        l.text = q.text(3);
        l.language = q.text(4);
        l.album_tui = q.text(5);
        l.disc_number = q.u32(6);
        l.track_number = q.u32(7);
        l.track_id = q.i64(8);
        l.album_title = q.text(9);
        l.album_artist = q.text(10);
        l.track_title = q.text(11);
        out = std::move(l);
        return {};
    });
}

// ---- Identification by TOC ------------------------------------------------------

namespace {

// Closeness of a stored TOC to a query under the fuzzy tolerance, or false.
bool fuzzy_toc_match(const std::vector<uint32_t> &query, const std::vector<uint32_t> &stored, TocHit &hit) {
    if (query.size() != stored.size() || query.size() < 2) return false;
    std::vector<int64_t> diffs(query.size());
    for (size_t i = 0; i < query.size(); ++i)
        diffs[i] = static_cast<int64_t>(query[i]) - static_cast<int64_t>(stored[i]);
    std::vector<int64_t> sorted = diffs;
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>((sorted.size() - 1) / 2),
                     sorted.end());
    int64_t shift = sorted[(sorted.size() - 1) / 2];
    if (std::llabs(shift) > kTocMaxShift) return false;
    uint64_t total = 0;
    uint64_t worst = 0;
    for (size_t i = 0; i < diffs.size(); ++i) {
        auto dev = static_cast<uint64_t>(std::llabs(diffs[i] - shift));
        if (i + 1 < diffs.size() && dev > kTocMaxTrackDeviation) return false;
        total += dev;
        worst = std::max(worst, dev);
    }
    int64_t qlen = static_cast<int64_t>(query.back()) - query.front();
    int64_t slen = static_cast<int64_t>(stored.back()) - stored.front();
    if (std::llabs(qlen - slen) > kTocMaxLengthDeviation) return false;
    hit.shift = static_cast<int32_t>(shift);
    hit.max_deviation = static_cast<uint32_t>(worst);
    hit.total_deviation = static_cast<uint32_t>(total);
    uint64_t closeness = total + static_cast<uint64_t>(std::llabs(shift)) / 10;
    hit.score = closeness / 30 >= 98 ? 1 : static_cast<uint32_t>(99 - closeness / 30);
    return true;
}

uint64_t toc_closeness(const TocHit &h) { return h.total_deviation + static_cast<uint64_t>(std::abs(h.shift)) / 10; }

}  // namespace

Status Catalogue::lookup_toc(std::string_view text, Range range, TocResult &out) noexcept {
    std::vector<uint32_t> offsets;
    Status st = guarded([&] { return parse_toc(text, offsets); });
    if (!st.ok()) return st;
    return lookup_toc(offsets, range, out);
}

Status Catalogue::lookup_toc(const std::vector<uint32_t> &toc, Range range, TocResult &out) noexcept {
    return guarded([&] { return impl_->lookup_toc(toc, range, true, out); });
}

Status Catalogue::lookup_toc_linear(const std::vector<uint32_t> &toc, Range range, TocResult &out) noexcept {
    return guarded([&] { return impl_->lookup_toc(toc, range, false, out); });
}

Status Catalogue::Impl::lookup_toc(const std::vector<uint32_t> &toc, Range range, bool indexed, TocResult &out) {
    Status st = check_range(range);
    if (!st.ok()) return st;
    if (toc.size() < 2) return Status::error(Code::invalid_argument, "TOC needs a track and the lead-out");
    for (size_t i = 1; i < toc.size(); ++i)
        if (toc[i] <= toc[i - 1]) return Status::error(Code::invalid_argument, "TOC offsets must rise");
    std::lock_guard lock(mutex);
    std::vector<TocHit> hits;
    MatchKind kind = MatchKind::none;
    {
        // Discs holding the TOC exactly, each once, by album and number.
        // The linear (reference) reading has SQLite group and sort them in
        // temporary tables; the indexed one reads the few rows unordered and
        // does both here, equal album and number by disc id as the grouping
        // left them.
#define EXACT_TOC_SQL "SELECT d.id, d.album_id, d.number, t.toc FROM tocs t JOIN discs d ON d.id = t.disc_id WHERE t.toc = ?"
        Stmt q(prepare(indexed ? EXACT_TOC_SQL : EXACT_TOC_SQL " GROUP BY d.id ORDER BY d.album_id, d.number", st));
#undef EXACT_TOC_SQL
        if (!q) return st;
        q.bind(1, toc_text(toc));
        while (q.step() == SQLITE_ROW) {
            TocHit h;
            h.disc_id = q.i64(0);
            h.album_id = q.i64(1);
            h.disc_number = q.u32(2);
            h.toc = q.text(3);
            h.score = 100;
            hits.push_back(std::move(h));
        }
        if (indexed) {
            std::sort(hits.begin(), hits.end(), [](const TocHit &a, const TocHit &b) {
                if (a.album_id != b.album_id) return a.album_id < b.album_id;
                if (a.disc_number != b.disc_number) return a.disc_number < b.disc_number;
                return a.disc_id < b.disc_id;
            });
            hits.erase(std::unique(hits.begin(), hits.end(),
                                   [](const TocHit &a, const TocHit &b) { return a.disc_id == b.disc_id; }),
                       hits.end());
        }
    }
    if (!hits.empty()) {
        kind = hits.size() == 1 ? MatchKind::single : MatchKind::multi_exact;
    } else {
        const int64_t length = static_cast<int64_t>(toc.back()) - toc.front();
        // Both ways read the candidates in the same order (program length,
        // then TOC id), so that the sort below meets equal hits in the same
        // order and keeps the same one of a disc's equally close TOCs.
        Stmt q(indexed && toc_index
                   ? prepare("SELECT d.id, d.album_id, d.number, t.toc FROM toc_shape s CROSS JOIN tocs t"
                             " ON t.id = s.id CROSS JOIN discs d ON d.id = t.disc_id"
                             " WHERE s.tracks_lo = ?1 AND s.length_lo BETWEEN ?2 AND ?3"
                             " AND s.first_lo BETWEEN ?4 AND ?5 AND s.second_lo BETWEEN ?6 AND ?7"
                             " AND s.third_lo BETWEEN ?8 AND ?9 ORDER BY t.length, t.id",
                             st)
                   : prepare("SELECT d.id, d.album_id, d.number, t.toc FROM tocs t JOIN discs d ON d.id = t.disc_id"
                             " WHERE t.track_count = ?1 AND t.length BETWEEN ?2 AND ?3",
                             st));
        if (!q) return st;
        if (indexed && toc_index) {
            // A stored TOC within the tolerance has each track length within
            // twice the per-track deviation of the query's (both ends move by
            // at most that much against the shift).
            const TocShape shape(toc);
            auto bounds = [&](int index, int64_t value, int64_t slack) {
                q.bind(index, TocShape::clamp(value - slack));
                q.bind(index + 1, TocShape::clamp(value + slack));
            };
            q.bind(1, int64_t{shape.tracks});
            bounds(2, shape.length, kTocMaxLengthDeviation);
            for (size_t i = 0; i < TocShape::kTrackLengths; ++i)
                bounds(static_cast<int>(4 + 2 * i), shape.track_lengths[i],
                       shape.track_lengths[i] ? 2 * int64_t{kTocMaxTrackDeviation} : 0);
        } else {
            q.bind(1, static_cast<int64_t>(toc.size() - 1));
            q.bind(2, length - kTocMaxLengthDeviation);
            q.bind(3, length + kTocMaxLengthDeviation);
        }
        std::vector<uint32_t> stored;
        int rc;
        while ((rc = q.step()) == SQLITE_ROW) {
            TocHit h;
            std::string text = q.text(3);
            if (!parse_toc(text, stored).ok() || !fuzzy_toc_match(toc, stored, h)) continue;
            h.disc_id = q.i64(0);
            h.album_id = q.i64(1);
            h.disc_number = q.u32(2);
            h.toc = std::move(text);
            hits.push_back(std::move(h));
        }
        if (rc != SQLITE_DONE) return db_error("fuzzy TOC lookup");
        // Best first; a disc with several close TOCs is listed once.
        std::sort(hits.begin(), hits.end(), [](const TocHit &a, const TocHit &b) {
            uint64_t ca = toc_closeness(a), cb = toc_closeness(b);
            if (ca != cb) return ca < cb;
            if (a.album_id != b.album_id) return a.album_id < b.album_id;
            return a.disc_number < b.disc_number;
        });
        std::unordered_set<int64_t> seen;
        hits.erase(std::remove_if(hits.begin(), hits.end(),
                                  [&](const TocHit &h) { return !seen.insert(h.disc_id).second; }),
                   hits.end());
        if (!hits.empty()) kind = MatchKind::fuzzy;
    }
    TocResult result;
    result.kind = kind;
    take_page(hits, range, result, result.hits);
    for (auto &h : result.hits) {
        Stmt q(prepare("SELECT a.tui, a.tag, a.title, a.artist, a.track_count, a.disc_count, a.label, " +
                           album_edition_columns(*this, "a") + ", " + disc_format_column(*this, "d") +
                           " FROM albums a JOIN discs d ON d.album_id = a.id WHERE a.id = ? AND d.id = ?",
                       st));
        if (!q) return st;
        q.bind(1, h.album_id);
        q.bind(2, h.disc_id);
        if (q.step() != SQLITE_ROW) return db_error("read album of a disc");
        h.tui = q.text(0);
        h.tag = q.text(1);
        h.title = q.text(2);
        h.artist = q.text(3);
        h.album_track_count = q.u32(4);
        h.disc_count = q.u32(5);
        h.label = q.text(6);
        h.country = q.text(7);
        h.release_date = q.text(8);
        h.catalogue_number = q.text(9);
        h.barcode = q.text(10);
        h.format = q.text(11);
    }
    out = std::move(result);
    return {};
}

// ---- Identifier lookups ----------------------------------------------------------

Status Catalogue::lookup_tui(std::string_view tui, std::string_view tag, IdentifierHit &out) noexcept {
    return guarded([&]() -> Status {
        if (tui.empty()) return Status::error(Code::invalid_argument, "empty identifier");
        std::lock_guard lock(impl_->mutex);
        Impl &impl = *impl_;
        Status st;
        {
            Stmt q(impl.prepare("SELECT id, tag, revision FROM albums WHERE tui = ?", st));
            if (!q) return st;
            q.bind(1, tui);
            if (q.step() == SQLITE_ROW) {
                if (!tag.empty() && q.text(1) != tag)
                    return Status::error(Code::not_found, "album " + std::string(tui) + ": tag does not match");
                IdentifierHit hit;
                hit.kind = IdentifierHit::Kind::album;
                hit.album_id = q.i64(0);
                hit.revision = q.u32(2);
                out = hit;
                return {};
            }
        }
        int64_t track_id = 0;
        if (!(st = find_track_by_tui(impl, tui, track_id)).ok()) return st;
        Stmt q(impl.prepare("SELECT t.id, t.tag, t.album_id, t.disc_id, t.disc_number, t.number, a.revision, t.title"
                            " FROM tracks t JOIN albums a ON a.id = t.album_id WHERE t.id = ?",
                            st));
        if (!q) return st;
        q.bind(1, track_id);
        if (q.step() != SQLITE_ROW) return Status::error(Code::not_found, "no album or track " + std::string(tui));
        if (!tag.empty() && (q.null(1) ? derived_track_tag(tui, q.text(7)) : q.text(1)) != tag)
            return Status::error(Code::not_found, "track " + std::string(tui) + ": tag does not match");
        IdentifierHit hit;
        hit.kind = IdentifierHit::Kind::track;
        hit.track_id = q.i64(0);
        hit.album_id = q.i64(2);
        hit.disc_id = q.i64(3);
        hit.disc_number = q.u32(4);
        hit.track_number = q.u32(5);
        hit.revision = q.u32(6);
        out = hit;
        return {};
    });
}

Status Catalogue::tocs_by_disc_id(std::string_view disc_id, std::vector<std::string> &out) noexcept {
    return guarded([&]() -> Status {
        if (disc_id.empty()) return Status::error(Code::invalid_argument, "empty disc ID");
        const std::string freedb = freedb_disc_id(disc_id);
        std::lock_guard lock(impl_->mutex);
        Status st;
        Stmt q(impl_->prepare("SELECT toc FROM tocs WHERE id IN (SELECT toc_id FROM disc_ids WHERE disc_id = ?1)"
                              " OR (?2 <> '' AND mui = ?2) ORDER BY id",
                              st));
        if (!q) return st;
        q.bind(1, freedb.empty() ? disc_id : std::string_view(freedb));
        q.bind(2, freedb);
        std::vector<std::string> tocs;
        int rc;
        while ((rc = q.step()) == SQLITE_ROW) {
            std::string toc = q.text(0);
            if (std::find(tocs.begin(), tocs.end(), toc) == tocs.end()) tocs.push_back(std::move(toc));
        }
        if (rc != SQLITE_DONE) return impl_->db_error("find disc ID");
        out = std::move(tocs);
        return {};
    });
}

Status Catalogue::lookup_media(std::string_view mui, std::string_view media_id, IdentifierHit &out) noexcept {
    return guarded([&]() -> Status {
        if (mui.empty() && media_id.empty()) return Status::error(Code::invalid_argument, "empty media identifiers");
        std::lock_guard lock(impl_->mutex);
        Impl &impl = *impl_;
        Status st;
        // Several discs may share an identifier derived from a TOC; the first
        // stored one answers. The condition names the column searched, so
        // that its index is used (one of mui and media id, or both).
        Stmt q(impl.prepare(std::string("SELECT d.id, d.album_id, d.number, a.revision,"
                                        " (SELECT id FROM tracks WHERE disc_id = d.id ORDER BY number LIMIT 1)"
                                        " FROM tocs t JOIN discs d ON d.id = t.disc_id JOIN albums a ON a.id = d.album_id"
                                        " WHERE ") +
                                (mui.empty() ? "t.media_id = ?2" : "t.mui = ?1 AND (?2 = '' OR t.media_id = ?2)") +
                                " ORDER BY t.id LIMIT 1",
                            st));
        if (!q) return st;
        q.bind(1, mui);
        q.bind(2, media_id);
        if (q.step() != SQLITE_ROW)
            return Status::error(Code::not_found,
                                 "no disc with media id '" + std::string(mui) + "' / '" + std::string(media_id) + "'");
        IdentifierHit hit;
        hit.kind = IdentifierHit::Kind::album;
        hit.disc_id = q.i64(0);
        hit.album_id = q.i64(1);
        hit.disc_number = q.u32(2);
        hit.revision = q.u32(3);
        hit.track_id = q.i64(4);
        out = hit;
        return {};
    });
}

Status Catalogue::check_revision(std::string_view tui, std::string_view tag, uint32_t revision,
                                 RevisionCheck &out) noexcept {
    IdentifierHit hit;
    Status st = lookup_tui(tui, tag, hit);
    if (!st.ok()) {
        if (st.code == Code::not_found) out = RevisionCheck::unknown;
        return st;
    }
    out = hit.revision > revision ? RevisionCheck::newer : RevisionCheck::not_newer;
    return {};
}

}  // namespace catalogue
