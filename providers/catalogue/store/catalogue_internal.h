// Shared between the units of the catalogue: the database wrapper and the
// operations that run with the catalogue's mutex already held.
#ifndef ZELTO_PROVIDERS_CATALOGUE_STORE_INTERNAL_H
#define ZELTO_PROVIDERS_CATALOGUE_STORE_INTERNAL_H

#include <sqlite3.h>

#include <algorithm>
#include <initializer_list>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "providers/catalogue/store/catalogue.h"
#include "providers/catalogue/store/utf8.h"
#include "zelto/zelto_catalogue.h"

namespace catalogue {

// The first sign of a damaged file that a statement of the current call met
// (SQLite's result code), 0 if none: a malformed page, a file that is no
// database, or a read error. Readers loop while rows come and would
// otherwise answer with what they read before the damage; guarded() turns
// the call's result into a failure instead.
inline thread_local int damage_met = 0;

inline bool is_damage(int rc) {
    const int primary = rc & 0xff;
    return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB || primary == SQLITE_IOERR;
}

// A cached prepared statement, reset and unbound when the guard ends.
class Stmt {
   public:
    Stmt(sqlite3_stmt *s) : s_(s) {}
    ~Stmt() {
        if (s_) {
            sqlite3_reset(s_);
            sqlite3_clear_bindings(s_);
        }
    }
    Stmt(const Stmt &) = delete;
    Stmt &operator=(const Stmt &) = delete;
    explicit operator bool() const { return s_ != nullptr; }
    sqlite3_stmt *get() const { return s_; }

    void bind(int i, int64_t v) { sqlite3_bind_int64(s_, i, v); }
    void bind(int i, std::string_view v) {
        sqlite3_bind_text(s_, i, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
    }
    void bind(int i, const std::string &v) { bind(i, std::string_view(v)); }
    void bind(int i, const char *v) { bind(i, std::string_view(v)); }
    // A text, or NULL for none.
    void bind(int i, const std::string *v) {
        if (v)
            bind(i, *v);
        else
            sqlite3_bind_null(s_, i);
    }
    int step() {
        const int rc = sqlite3_step(s_);
        if (rc != SQLITE_ROW && rc != SQLITE_DONE && is_damage(rc) && !damage_met) damage_met = rc;
        return rc;
    }
    bool null(int col) const { return sqlite3_column_type(s_, col) == SQLITE_NULL; }
    int64_t i64(int col) const { return sqlite3_column_int64(s_, col); }
    uint32_t u32(int col) const { return static_cast<uint32_t>(sqlite3_column_int64(s_, col)); }
    double real(int col) const { return sqlite3_column_double(s_, col); }
    std::string text(int col) const {
        auto p = sqlite3_column_text(s_, col);
        return p ? std::string(reinterpret_cast<const char *>(p), static_cast<size_t>(sqlite3_column_bytes(s_, col)))
                 : std::string();
    }

   private:
    sqlite3_stmt *s_;
};

// Candidates each FTS expression of a text search yields at most.
constexpr int64_t kCandidateCap = 5000;

// Rows of the virtual-table indexes (full-text tables, the TOC shape
// R*Tree) held back while an import runs, written a few thousand at a
// time. Each album is stored under a savepoint, and a savepoint makes every
// full-text table written in the transaction flush what it holds in memory
// into a new segment (and the R*Tree drop its open node handle): rows
// written one album at a time make one tiny segment per album, and merging
// those costs most of an import's time and writes. Rows queued here reach
// the tables between albums, outside any savepoint, so each flush makes
// one large segment.
class IndexRows {
   public:
    static constexpr size_t kMaxTexts = 3, kMaxNumbers = 5;
    // A row binds its rowid, then its texts, then its numbers.
    struct Row {
        const char *sql;   // the INSERT
        const char *what;  // names the write in a failure
        int64_t rowid;
        uint32_t texts, numbers;
        uint32_t lengths[kMaxTexts];
        int64_t values[kMaxNumbers];
    };
    void add(const char *sql, const char *what, int64_t rowid, std::initializer_list<std::string_view> texts,
             std::initializer_list<int64_t> numbers) {
        Row row{sql, what, rowid, 0, 0, {}, {}};
        for (std::string_view t : texts) {
            row.lengths[row.texts++] = static_cast<uint32_t>(t.size());
            text_.append(t);
        }
        for (int64_t n : numbers) row.values[row.numbers++] = n;
        rows_.push_back(row);
    }
    size_t size() const { return rows_.size(); }
    size_t bytes() const { return text_.size() + rows_.size() * sizeof(Row); }
    // Forgets the rows after the first `n` (those of an album rolled back).
    void truncate(size_t n) {
        size_t keep = 0;
        for (size_t i = 0; i < n && i < rows_.size(); ++i)
            for (uint32_t c = 0; c < rows_[i].texts; ++c) keep += rows_[i].lengths[c];
        rows_.resize(std::min(n, rows_.size()));
        text_.resize(keep);
    }
    void clear() {
        rows_.clear();
        text_.clear();
        rows_.shrink_to_fit();
        text_.shrink_to_fit();
    }
    // Calls `f(row, texts)` for each row in order, while it returns true.
    template <typename F>
    void each(F &&f) const {
        size_t at = 0;
        for (const Row &row : rows_) {
            std::string_view texts[kMaxTexts];
            for (uint32_t c = 0; c < row.texts; ++c) {
                texts[c] = std::string_view(text_).substr(at, row.lengths[c]);
                at += row.lengths[c];
            }
            if (!f(row, texts)) return;
        }
    }

   private:
    std::vector<Row> rows_;
    std::string text_;
};

struct Catalogue::Impl {
    sqlite3 *db = nullptr;
    std::mutex mutex;
    std::map<std::string, sqlite3_stmt *, std::less<>> cache;
    int tx_depth = 0;
    bool spelling_stale = true;
    bool read_only = false;  // the word list is used as it is, never rebuilt
    // Schema of the file: a catalogue of an earlier schema opened read-only
    // is read as it is (columns it lacks read as empty).
    int schema = kSchemaVersion;
    bool toc_index = false;  // the TOC shape index exists (not in a read-only earlier schema)
    // The album get_album read last, and the state of the file then.
    struct AlbumCopy {
        std::shared_ptr<const Album> album;
        bool credits = true;  // read with its contributors
        struct Version {
            int64_t changes = 0, data = 0;
            bool operator==(const Version &) const = default;
        } version;
    };
    std::optional<AlbumCopy> last_album;
    // The spelling word list (spell_words) in memory, in term order, for
    // the hundreds of lookups one misspelt word makes (see search.cpp).
    // It is read on the second search that needs it at one state of the
    // file, so a process that searches once pays no more than before.
    struct WordList {
        AlbumCopy::Version version;
        uint32_t wanted = 0;  // searches at this version that needed it
        bool loaded = false;
        bool too_large = false;         // over kMaxWordListBytes: looked up in the file
        std::string text;               // the words, one after another
        std::vector<uint32_t> starts;  // where each word starts in `text`, then text.size()
    } word_list;
    static constexpr size_t kMaxWordListBytes = 8u << 20;
    int64_t search_candidate_cap = kCandidateCap;  // smaller only in tests of the cap
    // While an import runs, virtual-table index rows wait in `index_rows`
    // (see IndexRows) until flush_index(): before each commit, before
    // anything that deletes from those tables, and at kIndexRowsBytes.
    bool defer_index = false;
    IndexRows index_rows;
    static constexpr size_t kIndexRowsBytes = 4u << 20;

    ~Impl();

    // The state of the file as this connection sees it: rows changed through
    // it (any write counts, also one rolled back) and commits of other
    // connections (PRAGMA data_version). `what` names the read in a failure.
    Status file_version(AlbumCopy::Version &out, const char *what);

    // Prepares (once) and returns a statement; null with `err` set on failure.
    sqlite3_stmt *prepare(std::string_view sql, Status &err);
    Status exec(const char *sql);
    Status db_error(const char *what) const;

    // Runs one writing statement with its arguments bound in order; `what`
    // names it in a failure. With `out_id`, the id of the row it inserted.
    template <typename... Args>
    Status write(std::string_view sql, const char *what, int64_t *out_id, const Args &...args) {
        Status st;
        Stmt s(prepare(sql, st));
        if (!s) return st;
        int index = 0;
        (s.bind(++index, args), ...);
        if (s.step() != SQLITE_DONE) return db_error(what);
        if (out_id) *out_id = sqlite3_last_insert_rowid(db);
        return {};
    }

    // Writes one virtual-table index row now, or queues it while an import runs.
    Status index_row(const char *sql, const char *what, int64_t rowid, std::initializer_list<std::string_view> texts,
                     std::initializer_list<int64_t> numbers = {});
    // Writes the queued index rows; the queue is empty afterwards.
    Status flush_index();

    Status begin();
    Status commit();
    Status rollback();
    // Runs `body` inside the savepoint `name`: its writes all stay, or
    // (when it or the release fails) none.
    // The statements are prepared once: an import runs one per album.
    template <typename Body>
    Status savepoint(const char *name, Body &&body) {
        const std::string n(name);
        Status st = run("SAVEPOINT " + n);
        if (!st.ok()) return st;
        st = body();
        if (st.ok()) st = run("RELEASE " + n);
        if (!st.ok()) {
            run("ROLLBACK TO " + n);
            run("RELEASE " + n);
        }
        return st;
    }
    // Runs one statement without arguments or results, prepared once.
    Status run(const std::string &sql) {
        Status st;
        Stmt s(prepare(sql, st));
        if (!s) return st;
        return s.step() == SQLITE_DONE ? Status{} : Status::error(Code::database, sqlite3_errmsg(db));
    }

    // `unchanged`: the album replaced one of the same revision and content.
    Status add_album(Album &album, bool *replaced, bool *unchanged = nullptr);
    Status remove_album(int64_t album_id);
    Status add_lyric(Lyric &lyric, bool *replaced = nullptr, bool *unchanged = nullptr);
    Status lookup_toc(const std::vector<uint32_t> &toc, Range range, bool indexed, TocResult &out);
    Status refresh_spelling();
    // Notes that the word list no longer matches the text indexes.
    Status mark_changed();
};

// One read transaction over the statements of a read, instead of one
// begun and ended by each statement; nothing where a transaction is open.
class ReadTransaction {
   public:
    explicit ReadTransaction(Catalogue::Impl &impl) : impl_(impl) {
        if (!sqlite3_get_autocommit(impl.db)) return;
        Status st;
        Stmt q(impl.prepare("BEGIN", st));
        open_ = q && q.step() == SQLITE_DONE;
    }
    ~ReadTransaction() {
        if (!open_) return;
        Status st;
        Stmt q(impl_.prepare("COMMIT", st));
        if (q) q.step();
    }
    ReadTransaction(const ReadTransaction &) = delete;
    ReadTransaction &operator=(const ReadTransaction &) = delete;

   private:
    Catalogue::Impl &impl_;
    bool open_ = false;
};

// Runs `body` and turns anything thrown into a status, and a result read
// past damage to the file (see damage_met) into a database failure. Calls nest:
// damage met inside stays on record for the outer call.
template <typename Body>
Status guarded(Body &&body) noexcept {
    const int outer = damage_met;
    damage_met = 0;
    Status st;
    try {
        st = body();
    } catch (const std::bad_alloc &) {
        st = Status::error(Code::no_memory, "out of memory");
    } catch (const std::exception &e) {
        st = Status::error(Code::database, std::string("unexpected failure: ") + e.what());
    } catch (...) {
        st = Status::error(Code::database, "unexpected failure");
    }
    const int met = damage_met;
    damage_met = outer ? outer : met;
    // "Not found" past damage may only mean the damage hid the row, and a
    // database failure is named for what caused it.
    if (!met || !(st.ok() || st.code == Code::not_found || st.code == Code::database)) return st;
    const bool named = st.code == Code::database && !st.message.empty();
    return Status::error(Code::database,
                         std::string(ZELTO_CATALOGUE_DAMAGED_TEXT ": ") + (named ? st.message : sqlite3_errstr(met)));
}

// A result range is valid when it starts at 1 or later and does not end
// before it starts.
inline Status check_range(Range range) {
    if (range.start == 0 || range.end < range.start)
        return Status::error(Code::invalid_argument, "result range " + std::to_string(range.start) + ".." +
                                                         std::to_string(range.end) + " is not valid");
    return {};
}

// Picks the asked range out of `all` (already ordered) into `out`, and
// records the total and the range that was served in `page`.
template <typename Hit>
void take_page(std::vector<Hit> &all, Range range, Page &page, std::vector<Hit> &out) {
    page.total = static_cast<uint32_t>(all.size());
    out.clear();
    if (range.start > all.size()) {
        page.range_start = page.range_end = 0;
        return;
    }
    size_t last = std::min<size_t>(range.end, all.size());
    for (size_t i = range.start - 1; i < last; ++i) out.push_back(std::move(all[i]));
    page.range_start = range.start;
    page.range_end = static_cast<uint32_t>(last);
}

// 32-bit FNV-1a as 8 hex digits: the tags of generated identifiers.
std::string hash_tag(std::string_view text);

// A track's identifier when none is given: its album's, its disc number and
// its number. The tracks table stores NULL for an identifier of this form
// and readers derive it again, in SQL through kTrackTui (t the track, a its
// album); a catalogue of an earlier schema opened read-only stores them all.
std::string derived_track_tui(std::string_view album_tui, uint32_t disc_number, uint32_t number);
inline constexpr const char *kTrackTui = "coalesce(t.tui, a.tui || '-' || t.disc_number || '-' || t.number)";
// A track's tag when none is given, from its identifier and title; NULL in
// tracks.tag where it is this one.
std::string derived_track_tag(std::string_view tui, std::string_view title);
// The track whose identifier is `tui`, stored or derived (0 for none).
Status find_track_by_tui(Catalogue::Impl &impl, std::string_view tui, int64_t &track_id);

// The search keys of an album (title, artist) or a track (title, artist,
// composer): the texts its row of album_fts or track_fts indexes. Those
// tables keep no copy of the texts, and removing a row needs them exactly
// as they were indexed. The keys are derived from the stored rows: fold()
// of the title, and of the artist (a track without one: its album's)
// followed by the names stored for its performer credits, and of the names
// stored for the composer credits (a track's after its album's). The names
// indexed were those of the imported credits, which differ where an artist
// was stored earlier under another name; the albums and tracks tables store
// the keys (column `keys`, joined by tabs, which fold() never writes) only
// where they differ from the derived ones.
struct IndexKeys {
    std::string title, artist, composer;
    bool operator==(const IndexKeys &) const = default;
};
// `performers` and `composers`: the credit names, each after a blank.
IndexKeys derived_keys(std::string_view title, std::string_view artist, std::string_view performers,
                       std::string_view composers);
// The `keys` column for `keys`: none where they are the derived ones.
std::optional<std::string> stored_keys(const IndexKeys &keys, const IndexKeys &derived, bool track);
// Whether a track's artist key can match an artist search where its
// album's does not: unless its words stand together in the album's (and
// so every search word and phrase matching it matches the album too).
bool own_artist(const std::string &track_artist_key, const std::string &album_artist_key);
// The keys of an album and of its tracks (in album order; only the track
// `only_track` unless 0) as they were indexed. An album that is not stored
// has none.
struct AlbumKeys {
    bool found = false;
    IndexKeys album;
    std::vector<std::pair<int64_t, IndexKeys>> tracks;
};
Status read_album_keys(Catalogue::Impl &impl, int64_t album_id, AlbumKeys &out, int64_t only_track = 0);

}  // namespace catalogue

#endif
