// Text searches of the catalogue.
//
// Every field of a query becomes an FTS5 expression over search keys: its
// words joined by AND, each word of three or more characters as a prefix,
// and a word that no indexed word starts with also as the closest indexed
// words: one edit away for words of four or five characters, two for longer
// ones (a swap of neighbours is one edit). Single edits of ASCII words are
// looked up directly; further candidates come from a trigram index of the
// word list. The candidates that FTS5 yields (the best kCandidateCap of each
// expression by bm25) are scored against the query by word similarity and
// ordered by score, then by FTS rank.
#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "providers/catalogue/store/catalogue_internal.h"

namespace catalogue {

namespace {

constexpr size_t kMaxCorrections = 5;
constexpr size_t kMaxMatchedTracks = 64;
constexpr size_t kRestrictedAlbums = 2000;  // albums whose tracks are searched one album at a time

// The characters of a UTF-8 word, each as its own string (an invalid byte
// stands alone).
std::vector<std::string> characters(const std::string &word) {
    std::vector<std::string> out;
    for (size_t i = 0; i < word.size();) {
        const size_t start = i;
        next_code_point(word, i);
        out.push_back(word.substr(start, i - start));
    }
    return out;
}

MatchKind kind_of(size_t total) {
    if (total == 0) return MatchKind::none;
    return total == 1 ? MatchKind::single : MatchKind::fuzzy;
}

// One query word as the indexed words that satisfy it.
struct Term {
    std::string text;
    bool prefix;
};
using WordTerms = std::vector<Term>;
using FieldTerms = std::vector<WordTerms>;  // every word must be satisfied

// Whether a search key satisfies every word of a field, as FTS5 would.
bool key_matches(const std::string &key, const FieldTerms &field) {
    std::vector<std::string> words = fold_words(key);
    for (const auto &alternatives : field) {
        bool found = false;
        for (const auto &t : alternatives)
            for (const auto &w : words)
                if (t.prefix ? w.compare(0, t.text.size(), t.text) == 0 : w == t.text) found = true;
        if (!found) return false;
    }
    return true;
}

// The fields of a text query, scored against candidate texts: by
// text_similarity and text_coverage, or (fast) by the same values from
// each field folded once.
enum class Field : size_t { album_title, album_artist, track_title, track_artist, artist, composer, count };

class FieldScorer {
   public:
    FieldScorer(const TextQuery &q, bool fast)
        : texts_{&q.album_title, &q.album_artist, &q.track_title, &q.track_artist, &q.artist, &q.composer},
          fast_(fast) {
        if (fast)
            for (const std::string *t : texts_) words_.emplace_back(*t);
    }
    const std::string &text(Field f) const { return *texts_[static_cast<size_t>(f)]; }
    bool fast() const { return fast_; }
    uint32_t similarity(Field f, std::string_view candidate) {
        return fast_ ? words_[static_cast<size_t>(f)].similarity(candidate) : text_similarity(text(f), candidate);
    }
    uint32_t coverage(Field f, std::string_view candidate) {
        return fast_ ? words_[static_cast<size_t>(f)].coverage(candidate) : text_coverage(text(f), candidate);
    }

   private:
    const std::string *texts_[static_cast<size_t>(Field::count)];
    bool fast_;
    std::vector<QueryWords> words_;
};

// Rows of an FTS expression read in no order, and the order FTS5 ranks
// them in: by rank, rows of equal rank by rowid (FTS5 reads rows by rowid
// and its sort keeps rows of equal rank in the order it was given them).
template <typename Row>
bool rank_order(const Row &a, const Row &b) {
    return a.rank != b.rank ? a.rank < b.rank : a.id < b.id;
}

// Keeps the `cap` best rows by rank_order, in no particular order.
template <typename Row>
void keep_best(std::vector<Row> &rows, int64_t cap) {
    const auto n = static_cast<size_t>(std::max<int64_t>(cap, 0));
    if (rows.size() <= n) return;
    std::nth_element(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(n), rows.end(), rank_order<Row>);
    rows.erase(rows.begin() + static_cast<std::ptrdiff_t>(n), rows.end());
}

// Adds a row, keeping at most about twice `cap` rows at any time: a word
// common to most of a large catalogue must not hold every match in memory.
// The best `cap` of the rows so far are always among those kept, since
// rank_order is a total order (row ids are unique), so keep_best at the end
// gives the same rows as if all had been kept.
template <typename Row>
void add_bounded(std::vector<Row> &rows, Row &&row, int64_t cap) {
    rows.push_back(std::move(row));
    const auto n = static_cast<size_t>(std::max<int64_t>(cap, 0));
    if (rows.size() >= 2 * n + 64) keep_best(rows, cap);
}

class Searcher {
   public:
    explicit Searcher(Catalogue::Impl &impl) : impl_(impl), cap_(impl.search_candidate_cap) {}

    Status prepare_spelling() {
        return impl_.spelling_stale && !impl_.read_only ? impl_.refresh_spelling() : Status{};
    }

    // FTS expression of a field (words ANDed), empty if it has no words.
    Status field_expr(std::string_view text, std::string &expr) {
        expr.clear();
        for (const auto &word : fold_words(text)) {
            std::string alternatives;
            Status st = word_alternatives(word, alternatives);
            if (!st.ok()) return st;
            if (!expr.empty()) expr += " AND ";
            expr += alternatives;
        }
        return {};
    }

    // The words of a field with their accepted index words.
    Status field_terms(std::string_view text, FieldTerms &out) {
        out.clear();
        for (const auto &word : fold_words(text)) {
            std::string unused;
            out.emplace_back();
            Status st = word_alternatives(word, unused, &out.back());
            if (!st.ok()) return st;
        }
        return {};
    }

    // "col : (expr)" for each non-empty field, ANDed.
    Status columns_expr(std::initializer_list<std::pair<const char *, std::string_view>> fields, std::string &out) {
        out.clear();
        for (const auto &[column, text] : fields) {
            std::string e;
            Status st = field_expr(text, e);
            if (!st.ok()) return st;
            if (e.empty()) continue;
            if (!out.empty()) out += " AND ";
            out += std::string(column) + " : (" + e + ")";
        }
        return {};
    }

    struct Candidate {
        double rank = 0;
        std::vector<int64_t> tracks;
        // The album's title and artist, when the candidate query read them.
        bool has_album = false;
        std::string title, artist;
    };
    using Candidates = std::unordered_map<int64_t, Candidate>;

    // Rows of one FTS table that match, best first, at most kCandidateCap.
    Status fts_candidates(const char *table, const std::string &match, std::vector<std::pair<int64_t, double>> &found,
                          const char *what) {
        Status st;
        std::string sql = std::string("SELECT rowid, rank FROM ") + table + " WHERE " + table +
                          " MATCH ? ORDER BY rank LIMIT ?";
        Stmt q(impl_.prepare(sql.c_str(), st));
        if (!q) return st;
        q.bind(1, match);
        q.bind(2, cap_);
        int rc;
        while ((rc = q.step()) == SQLITE_ROW) found.emplace_back(q.i64(0), q.real(1));
        return rc == SQLITE_DONE ? Status{} : impl_.db_error(what);
    }

    Status album_matches(const std::string &match, Candidates &out) {
        Status st;
        Stmt q(impl_.prepare("SELECT rowid, rank FROM album_fts WHERE album_fts MATCH ? ORDER BY rank LIMIT ?", st));
        if (!q) return st;
        q.bind(1, match);
        q.bind(2, cap_);
        int rc;
        while ((rc = q.step()) == SQLITE_ROW) out[q.i64(0)].rank = q.real(1);
        return rc == SQLITE_DONE ? Status{} : impl_.db_error("album search");
    }

    // Tracks matching, grouped by album: rank of the album is its best track's.
    Status track_matches(const std::string &match, Candidates &out, std::vector<std::pair<int64_t, double>> *tracks) {
        Status st;
        Stmt q(impl_.prepare("SELECT t.id, t.album_id, f.rank FROM track_fts f JOIN tracks t ON t.id = f.rowid"
                             " WHERE track_fts MATCH ? ORDER BY f.rank LIMIT ?",
                             st));
        if (!q) return st;
        q.bind(1, match);
        q.bind(2, cap_);
        int rc;
        while ((rc = q.step()) == SQLITE_ROW) {
            int64_t track = q.i64(0), album = q.i64(1);
            double rank = q.real(2);
            auto [it, inserted] = out.try_emplace(album);
            if (inserted || rank < it->second.rank) it->second.rank = rank;
            if (it->second.tracks.size() < kMaxMatchedTracks) it->second.tracks.push_back(track);
            if (tracks) tracks->emplace_back(track, rank);
        }
        return rc == SQLITE_DONE ? Status{} : impl_.db_error("track search");
    }

    // The best cap_ rows (by rank_order) of a statement matching `match`,
    // read in no order; `make` makes a Row of the statement's row.
    template <typename Row, typename Make>
    Status best_rows(const char *sql, const std::string &match, const char *what, std::vector<Row> &rows, Make make) {
        Status st;
        Stmt q(impl_.prepare(sql, st));
        if (!q) return st;
        q.bind(1, match);
        int rc;
        while ((rc = q.step()) == SQLITE_ROW) add_bounded(rows, make(q), cap_);
        if (rc != SQLITE_DONE) return impl_.db_error(what);
        keep_best(rows, cap_);
        return {};
    }

    // The candidates album_matches finds, with the title and artist of each
    // album read in the same query. FTS5 computes the rank of every matching
    // row whether the rows are asked in rank order or not; asked in order,
    // it sorts them all on top, so they are read as they come and the best
    // kept here.
    Status album_rows(const std::string &match, Candidates &out) {
        struct Row {
            int64_t id;
            double rank;
            bool has_album;
            std::string title, artist;
        };
        std::vector<Row> rows;
        Status st = best_rows("SELECT f.rowid, f.rank, a.id IS NOT NULL, a.title, a.artist FROM album_fts f"
                              " LEFT JOIN albums a ON a.id = f.rowid WHERE album_fts MATCH ?",
                              match, "album search", rows, [](const Stmt &q) {
                                  return Row{q.i64(0), q.real(1), q.i64(2) != 0, q.text(3), q.text(4)};
                              });
        if (!st.ok()) return st;
        for (Row &r : rows) {
            Candidate &c = out[r.id];
            c.rank = r.rank;
            c.has_album = r.has_album;
            c.title = std::move(r.title);
            c.artist = std::move(r.artist);
        }
        return {};
    }

    // The candidates track_matches finds, read as album_rows reads them and
    // then taken in rank order (an album keeps its first kMaxMatchedTracks).
    Status track_rows(const std::string &match, Candidates &out) {
        struct Row {
            int64_t id, album;
            double rank;
        };
        std::vector<Row> rows;
        Status st = best_rows("SELECT t.id, t.album_id, f.rank FROM track_fts f JOIN tracks t ON t.id = f.rowid"
                              " WHERE track_fts MATCH ?",
                              match, "track search", rows,
                              [](const Stmt &q) { return Row{q.i64(0), q.i64(1), q.real(2)}; });
        if (!st.ok()) return st;
        std::sort(rows.begin(), rows.end(), rank_order<Row>);
        for (const Row &r : rows) {
            auto [it, inserted] = out.try_emplace(r.album);
            if (inserted || r.rank < it->second.rank) it->second.rank = r.rank;
            if (it->second.tracks.size() < kMaxMatchedTracks) it->second.tracks.push_back(r.id);
        }
        return {};
    }

    // Whether a track matching `match` is on an album not in `known`; read
    // without ranks. When none is, the tracks' candidates add nothing to
    // `known`, whichever of them the cap would keep.
    // A track not marked own_artist has its album's artist key, so it
    // matches an artist expression only where its album does: when `known`
    // holds every album that matches (fewer than the cap), only the marked
    // tracks are looked at, and a catalogue without any looks at none.
    Status tracks_outside(const std::string &match, const Candidates &known, bool &outside) {
        outside = false;
        Status st;
        const bool marked = impl_.schema >= 7 && known.size() < static_cast<size_t>(cap_);
        Stmt q(impl_.prepare(marked ? "SELECT t.album_id FROM tracks t WHERE t.own_artist = 1"
                                      " AND +t.id IN (SELECT rowid FROM track_fts WHERE track_fts MATCH ?)"
                                    : "SELECT t.album_id FROM track_fts f JOIN tracks t ON t.id = f.rowid"
                                      " WHERE track_fts MATCH ?",
                             st));
        if (!q) return st;
        q.bind(1, match);
        int rc;
        while ((rc = q.step()) == SQLITE_ROW)
            if (!known.count(q.i64(0))) {
                outside = true;
                return {};
            }
        return rc == SQLITE_DONE ? Status{} : impl_.db_error("track search");
    }

    // Tracks of the given albums whose keys satisfy the track fields of the
    // query, read one album at a time (a prefix MATCH per album would cost
    // far more). Rank 0: these are ordered by score alone.
    // `with_artist` adds the generic artist field as a track artist.
    Status track_matches_in(const TextQuery &query, const std::vector<int64_t> &albums, Candidates &out,
                            bool with_artist = false) {
        FieldTerms title, artist, composer, generic;
        Status st = field_terms(query.track_title, title);
        if (st.ok()) st = field_terms(query.track_artist, artist);
        if (st.ok() && with_artist) st = field_terms(query.artist, generic);
        if (st.ok()) st = field_terms(query.composer, composer);
        if (!st.ok()) return st;
        // Catalogues of schema 6 and before (read-only) keep the keys in track_fts.
        const bool in_index = impl_.schema < 7;
        for (int64_t album : albums) {
            std::vector<std::pair<int64_t, IndexKeys>> tracks;
            if (in_index) {
                Stmt q(impl_.prepare("SELECT f.rowid, f.title, f.artist, f.composer FROM tracks t CROSS JOIN"
                                     " track_fts f ON f.rowid = t.id WHERE t.album_id = ? ORDER BY t.position",
                                     st));
                if (!q) return st;
                q.bind(1, album);
                int rc;
                while ((rc = q.step()) == SQLITE_ROW)
                    tracks.emplace_back(q.i64(0), IndexKeys{q.text(1), q.text(2), q.text(3)});
                if (rc != SQLITE_DONE) return impl_.db_error("track search");
            } else {
                AlbumKeys keys;
                if (!(st = read_album_keys(impl_, album, keys)).ok()) return st;
                tracks = std::move(keys.tracks);
            }
            for (const auto &[track, keys] : tracks) {
                if (!key_matches(keys.title, title) || !key_matches(keys.artist, artist) ||
                    !key_matches(keys.artist, generic) || !key_matches(keys.composer, composer))
                    continue;
                auto &cand = out[album];
                if (cand.tracks.size() < kMaxMatchedTracks) cand.tracks.push_back(track);
            }
        }
        return {};
    }

    // Albums of `query`, scored, in order; only the hits of `page` need be
    // complete and in place (the others keep their scores, title and
    // artist). `fast` false is the plain reading of the search: every word
    // looked up in the file, each candidate expression read in FTS rank
    // order, each candidate read and scored by itself, all of them sorted.
    // The fast reading gives the same
    // hits (see album_rows, track_rows, tracks_outside, QueryWords,
    // word_list).
    Status albums(const TextQuery &query, std::vector<AlbumHit> &out, bool fast, Range page, bool complete = true) {
        // The reference looks every word up in the file.
        if (!fast) list_checked_ = true, list_ = nullptr;
        Status st = prepare_spelling();
        if (!st.ok()) return st;
        std::vector<Candidates> sets;
        std::vector<bool> from_tracks;

        std::string album_expr, artist_expr, track_expr;
        st = columns_expr({{"title", query.album_title}, {"artist", query.album_artist}}, album_expr);
        if (st.ok()) st = field_expr(query.artist, artist_expr);
        if (st.ok())
            st = columns_expr(
                {{"title", query.track_title}, {"artist", query.track_artist}, {"composer", query.composer}},
                track_expr);
        if (!st.ok()) return st;
        if (album_expr.empty() && artist_expr.empty() && track_expr.empty())
            return Status::error(Code::invalid_argument, "no text to search for");

        if (!album_expr.empty()) {
            sets.emplace_back();
            from_tracks.push_back(false);
            st = fast ? album_rows(album_expr, sets.back()) : album_matches(album_expr, sets.back());
            if (!st.ok()) return st;
        }
        if (!artist_expr.empty()) {
            // The artist of the album, or else of some of its tracks.
            Candidates by_album, by_track;
            const std::string match = "artist : (" + artist_expr + ")";
            st = fast ? album_rows(match, by_album) : album_matches(match, by_album);
            if (st.ok() && !fast) st = track_matches(match, by_track, nullptr);
            if (st.ok() && fast) {
                // Tracks only add albums the album artists did not find.
                bool outside = false;
                st = tracks_outside(match, by_album, outside);
                if (st.ok() && outside) st = track_rows(match, by_track);
            }
            if (!st.ok()) return st;
            for (auto &[id, c] : by_track)
                if (!by_album.count(id)) by_album.emplace(id, std::move(c));
            sets.push_back(std::move(by_album));
            from_tracks.push_back(false);
        }
        if (!track_expr.empty()) {
            // When the album-level fields already give a complete, small set
            // of albums, only their tracks are searched: a common track word
            // then cannot push the wanted album out of the candidate limit.
            std::vector<int64_t> within;
            bool restrict = !sets.empty();
            for (const auto &set : sets) restrict = restrict && set.size() < static_cast<size_t>(cap_);
            if (restrict) {
                for (const auto &[id, c] : sets[0]) {
                    bool everywhere = true;
                    for (size_t i = 1; i < sets.size(); ++i) everywhere = everywhere && sets[i].count(id) > 0;
                    if (everywhere) within.push_back(id);
                }
                restrict = within.size() <= kRestrictedAlbums;
            }
            sets.emplace_back();
            from_tracks.push_back(true);
            st = restrict ? track_matches_in(query, within, sets.back())
                 : fast   ? track_rows(track_expr, sets.back())
                          : track_matches(track_expr, sets.back(), nullptr);
            if (!st.ok()) return st;
        }

        // Albums present in every set; matched tracks from the track fields,
        // else from an artist found on tracks.
        Candidates result = std::move(sets[0]);
        bool tracks_fixed = from_tracks[0];
        for (size_t i = 1; i < sets.size(); ++i) {
            for (auto it = result.begin(); it != result.end();) {
                auto other = sets[i].find(it->first);
                if (other == sets[i].end()) {
                    it = result.erase(it);
                    continue;
                }
                it->second.rank += other->second.rank;
                if (from_tracks[i] && !tracks_fixed) it->second.tracks = std::move(other->second.tracks);
                ++it;
            }
            tracks_fixed = tracks_fixed || from_tracks[i];
        }

        out.clear();
        out.reserve(result.size());
        FieldScorer scorer(query, fast);
        for (auto &[id, cand] : result) {
            AlbumHit hit;
            st = score_album(query, id, cand, hit, scorer);
            if (!st.ok()) return st;
            out.push_back(std::move(hit));
        }
        auto order = [](const AlbumHit &a, const AlbumHit &b) {
            if (a.score != b.score) return a.score > b.score;
            if (a.rank != b.rank) return a.rank < b.rank;
            return a.album_id < b.album_id;
        };
        if (!fast) {
            std::sort(out.begin(), out.end(), order);
            return {};
        }
        // The order is total, so the first hits of a partial sort are those
        // of a whole one.
        const size_t end = std::min<size_t>(page.end, out.size());
        std::partial_sort(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(end), out.end(), order);
        for (size_t i = page.start - 1; complete && i < end; ++i) {
            st = read_album_row(out[i].album_id, out[i]);
            if (!st.ok()) return st;
        }
        return {};
    }

    // The stored fields of an album hit.
    Status read_album_row(int64_t id, AlbumHit &hit) {
        Status st;
        Stmt q(impl_.prepare("SELECT tui, tag, title, artist, revision, track_count FROM albums WHERE id = ?", st));
        if (!q) return st;
        q.bind(1, id);
        if (q.step() != SQLITE_ROW) return impl_.db_error("read album");
        hit.album_id = id;
        hit.tui = q.text(0);
        hit.tag = q.text(1);
        hit.title = q.text(2);
        hit.artist = q.text(3);
        hit.revision = q.u32(4);
        hit.album_track_count = q.u32(5);
        return {};
    }

    Status score_album(const TextQuery &query, int64_t id, Candidate &cand, AlbumHit &hit, FieldScorer &scorer) {
        Status st;
        if (cand.has_album) {
            hit.album_id = id;
            hit.title = std::move(cand.title);
            hit.artist = std::move(cand.artist);
            hit.rank = cand.rank;
        } else {
            st = read_album_row(id, hit);
            if (!st.ok()) return st;
            hit.rank = cand.rank;
        }
        // Credited performers count like the album's display credit.
        // When the display credit alone already scores 100 against an
        // artist field (the best a score can be), they cannot change the
        // contributor score and the fast reading does not read them.
        std::vector<std::string> album_artists{hit.artist};
        bool settled = false;
        for (Field f : {Field::album_artist, Field::artist})
            settled = settled || (scorer.fast() && !scorer.text(f).empty() && scorer.similarity(f, hit.artist) == 100);
        if ((!query.artist.empty() || !query.album_artist.empty()) && !settled) {
            Stmt q(impl_.prepare("SELECT a.name FROM album_contributors c JOIN artists a ON a.id = c.artist_id"
                                 " WHERE c.album_id = ? AND c.role = 'performer'",
                                 st));
            if (!q) return st;
            q.bind(1, id);
            while (q.step() == SQLITE_ROW) album_artists.push_back(q.text(0));
        }
        std::vector<std::string> track_artists, composers;
        for (int64_t track : cand.tracks) {
            MatchedTrack m;
            std::string artist;
            st = read_track(track, m, artist);
            if (!st.ok()) return st;
            track_artists.push_back(artist.empty() ? hit.artist : artist);
            if (!query.composer.empty()) {
                composers.emplace_back();
                st = track_composers(track, composers.back());
                if (!st.ok()) return st;
            }
            if (!query.track_title.empty()) hit.track_score = std::max(hit.track_score, scorer.similarity(Field::track_title, m.title));
            hit.matched_tracks.push_back(std::move(m));
        }
        std::sort(hit.matched_tracks.begin(), hit.matched_tracks.end(),
                  [](const MatchedTrack &a, const MatchedTrack &b) { return a.position < b.position; });
        uint32_t fields = 0, sum = 0;
        if (!query.album_title.empty()) {
            hit.album_score = scorer.similarity(Field::album_title, hit.title);
            sum += hit.album_score;
            ++fields;
        }
        bool any_artist = false;
        auto contributor = [&](Field field, bool album_level, bool track_level) {
            if (scorer.text(field).empty()) return;
            any_artist = true;
            if (album_level)
                for (const auto &a : album_artists)
                    hit.contributor_score = std::max(hit.contributor_score, scorer.similarity(field, a));
            if (track_level)
                for (const auto &a : track_artists)
                    hit.contributor_score = std::max(hit.contributor_score, scorer.similarity(field, a));
        };
        contributor(Field::album_artist, true, false);
        contributor(Field::artist, true, true);
        contributor(Field::track_artist, track_artists.empty(), true);
        if (!query.composer.empty()) {
            any_artist = true;
            for (const auto &c : composers)
                hit.contributor_score = std::max(hit.contributor_score, scorer.coverage(Field::composer, c));
        }
        if (any_artist) {
            sum += hit.contributor_score;
            ++fields;
        }
        if (!query.track_title.empty()) {
            sum += hit.track_score;
            ++fields;
        }
        hit.score = fields ? sum / fields : 0;
        return {};
    }

    Status read_track(int64_t track, MatchedTrack &m, std::string &artist) {
        Status st;
        Stmt q(impl_.prepare("SELECT disc_number, number, position, title, artist FROM tracks WHERE id = ?", st));
        if (!q) return st;
        q.bind(1, track);
        if (q.step() != SQLITE_ROW) return impl_.db_error("read track");
        m.track_id = track;
        m.disc_number = q.u32(0);
        m.number = q.u32(1);
        m.position = q.u32(2);
        m.title = q.text(3);
        artist = q.text(4);
        return {};
    }

    Status track_composers(int64_t track, std::string &out) {
        if (impl_.schema >= 7) {  // see track_matches_in
            AlbumKeys keys;
            Status st = read_album_keys(impl_, album_of(track), keys, track);
            if (st.ok() && !keys.tracks.empty()) out = keys.tracks[0].second.composer;
            return st;
        }
        Status st;
        Stmt q(impl_.prepare("SELECT composer FROM track_fts WHERE rowid = ?", st));
        if (!q) return st;
        q.bind(1, track);
        if (q.step() == SQLITE_ROW) out = q.text(0);
        return {};
    }

    Status tracks(const TextQuery &query, std::vector<TrackHit> &out) {
        Status st = prepare_spelling();
        if (!st.ok()) return st;
        std::string track_expr, album_expr;
        st = columns_expr({{"title", query.track_title},
                           {"artist", query.track_artist},
                           {"artist", query.artist},
                           {"composer", query.composer}},
                          track_expr);
        if (st.ok()) st = columns_expr({{"title", query.album_title}, {"artist", query.album_artist}}, album_expr);
        if (!st.ok()) return st;
        if (track_expr.empty() && album_expr.empty())
            return Status::error(Code::invalid_argument, "no text to search for");

        std::vector<std::pair<int64_t, double>> found;
        Candidates albums;
        if (!album_expr.empty()) {
            st = album_matches(album_expr, albums);
            if (!st.ok()) return st;
        }
        bool narrowed = !album_expr.empty() && albums.size() < static_cast<size_t>(cap_) &&
                        albums.size() <= kRestrictedAlbums;
        if (!track_expr.empty() && narrowed) {
            // Only the tracks of the albums found, as for album searches.
            std::vector<int64_t> within;
            for (const auto &[id, c] : albums) within.push_back(id);
            Candidates by_album;
            st = track_matches_in(query, within, by_album, true);
            if (!st.ok()) return st;
            for (const auto &[album, cand] : by_album)
                for (int64_t t : cand.tracks) found.emplace_back(t, albums[album].rank);
        } else if (!track_expr.empty()) {
            Candidates by_album;
            st = track_matches(track_expr, by_album, &found);
            if (!st.ok()) return st;
            if (!album_expr.empty())
                found.erase(std::remove_if(found.begin(), found.end(),
                                           [&](const auto &t) { return !albums.count(album_of(t.first)); }),
                            found.end());
        } else {
            // Album fields only: every track of the albums found.
            for (const auto &[album, cand] : albums) {
                Stmt q(impl_.prepare("SELECT id FROM tracks WHERE album_id = ? ORDER BY position", st));
                if (!q) return st;
                q.bind(1, album);
                while (q.step() == SQLITE_ROW) found.emplace_back(q.i64(0), cand.rank);
            }
        }
        out.clear();
        for (const auto &[id, rank] : found) {
            TrackHit hit;
            Stmt q(impl_.prepare(std::string("SELECT t.album_id, t.disc_number, t.number, t.position, ") + kTrackTui +
                                     ", t.tag, t.title, t.artist, t.duration_ms, a.title, a.tui, a.artist FROM tracks t"
                                     " JOIN albums a ON a.id = t.album_id WHERE t.id = ?",
                                 st));
            if (!q) return st;
            q.bind(1, id);
            if (q.step() != SQLITE_ROW) return impl_.db_error("read track");
            hit.track_id = id;
            hit.album_id = q.i64(0);
            hit.disc_number = q.u32(1);
            hit.number = q.u32(2);
            hit.position = q.u32(3);
            hit.tui = q.text(4);
            hit.title = q.text(6);
            hit.tag = q.null(5) ? derived_track_tag(hit.tui, hit.title) : q.text(5);
            hit.artist = q.text(7).empty() ? q.text(11) : q.text(7);
            hit.duration_ms = q.u32(8);
            hit.album_title = q.text(9);
            hit.album_tui = q.text(10);
            hit.rank = rank;
            uint32_t fields = 0, sum = 0;
            auto add = [&](const std::string &text, const std::string &against) {
                if (text.empty()) return;
                sum += text_similarity(text, against);
                ++fields;
            };
            add(query.track_title, hit.title);
            add(query.track_artist, hit.artist);
            add(query.artist, hit.artist);
            add(query.album_title, hit.album_title);
            add(query.album_artist, q.text(11));
            if (!query.composer.empty()) {
                std::string composers;
                st = track_composers(id, composers);
                if (!st.ok()) return st;
                sum += text_coverage(query.composer, composers);
                ++fields;
            }
            hit.score = fields ? sum / fields : 0;
            out.push_back(std::move(hit));
        }
        std::sort(out.begin(), out.end(), [](const TrackHit &a, const TrackHit &b) {
            if (a.score != b.score) return a.score > b.score;
            if (a.rank != b.rank) return a.rank < b.rank;
            return a.track_id < b.track_id;
        });
        return {};
    }

    int64_t album_of(int64_t track) {
        Status st;
        Stmt q(impl_.prepare("SELECT album_id FROM tracks WHERE id = ?", st));
        if (!q) return 0;
        q.bind(1, track);
        return q.step() == SQLITE_ROW ? q.i64(0) : 0;
    }

    Status artists(std::string_view name, std::vector<ArtistHit> &out) {
        Status st = prepare_spelling();
        if (!st.ok()) return st;
        std::string expr;
        st = field_expr(name, expr);
        if (!st.ok()) return st;
        if (expr.empty()) return Status::error(Code::invalid_argument, "no name to search for");
        std::vector<std::pair<int64_t, double>> found;
        st = fts_candidates("artist_fts", expr, found, "artist search");
        if (!st.ok()) return st;
        out.clear();
        for (const auto &[id, rank] : found) {
            ArtistHit hit;
            hit.artist_id = id;
            hit.rank = rank;
            {
                Stmt q(impl_.prepare("SELECT name, sort_name, collaboration,"
                                     " (SELECT count(*) FROM (SELECT album_id FROM album_contributors WHERE"
                                     " artist_id = ?1 UNION SELECT t.album_id FROM track_contributors c JOIN tracks t"
                                     " ON t.id = c.track_id WHERE c.artist_id = ?1)) FROM artists WHERE id = ?1",
                                     st));
                if (!q) return st;
                q.bind(1, id);
                if (q.step() != SQLITE_ROW) return impl_.db_error("read artist");
                hit.name = q.text(0);
                hit.sort_name = q.text(1);
                hit.collaboration = q.i64(2) != 0;
                hit.album_count = q.u32(3);
            }
            {
                Stmt q(impl_.prepare("SELECT role FROM album_contributors WHERE artist_id = ?1 UNION SELECT role FROM"
                                     " track_contributors WHERE artist_id = ?1 ORDER BY 1",
                                     st));
                if (!q) return st;
                q.bind(1, id);
                while (q.step() == SQLITE_ROW) hit.roles.push_back(q.text(0));
            }
            hit.score = std::max(text_similarity(name, hit.name), text_similarity(name, hit.sort_name));
            out.push_back(std::move(hit));
        }
        std::sort(out.begin(), out.end(), [](const ArtistHit &a, const ArtistHit &b) {
            if (a.score != b.score) return a.score > b.score;
            if (a.rank != b.rank) return a.rank < b.rank;
            return a.artist_id < b.artist_id;
        });
        return {};
    }

    Status lyrics(const LyricQuery &query, std::vector<LyricHit> &out) {
        Status st = prepare_spelling();
        if (!st.ok()) return st;
        std::string expr;
        st = columns_expr({{"title", query.title}, {"artist", query.artist}, {"text", query.fragment}}, expr);
        if (!st.ok()) return st;
        if (expr.empty()) return Status::error(Code::invalid_argument, "no text to search for");
        std::vector<std::pair<int64_t, double>> found;
        st = fts_candidates("lyric_fts", expr, found, "lyric search");
        if (!st.ok()) return st;
        out.clear();
        for (const auto &[id, rank] : found) {
            LyricHit hit;
            std::string text;
            {
                Stmt q(impl_.prepare(
                    "SELECT title, artist, text, album_tui, disc_number, track_number FROM lyrics WHERE id = ?", st));
                if (!q) return st;
                q.bind(1, id);
                if (q.step() != SQLITE_ROW) return impl_.db_error("read lyric");
                hit.lyric_id = id;
                hit.rank = rank;
                hit.title = q.text(0);
                hit.artist = q.text(1);
                text = q.text(2);
                hit.album_tui = q.text(3);
                hit.disc_number = q.u32(4);
                hit.track_number = q.u32(5);
            }
            uint32_t fields = 0, sum = 0;
            if (!query.title.empty()) {
                sum += text_similarity(query.title, hit.title);
                ++fields;
            }
            if (!query.artist.empty()) {
                sum += text_similarity(query.artist, hit.artist);
                ++fields;
            }
            hit.snippet = best_line(query.fragment, text);
            if (!query.fragment.empty()) {
                sum += text_coverage(query.fragment, hit.snippet);
                ++fields;
            }
            hit.score = fields ? sum / fields : 0;
            out.push_back(std::move(hit));
        }
        std::sort(out.begin(), out.end(), [](const LyricHit &a, const LyricHit &b) {
            if (a.score != b.score) return a.score > b.score;
            if (a.rank != b.rank) return a.rank < b.rank;
            return a.lyric_id < b.lyric_id;
        });
        return {};
    }

    // The line of `text` that covers most of the fragment (the first line if
    // there is no fragment).
    static std::string best_line(const std::string &fragment, const std::string &text) {
        std::string best;
        uint32_t best_cover = 0;
        bool first = true;
        size_t pos = 0;
        while (pos <= text.size()) {
            size_t end = text.find('\n', pos);
            if (end == std::string::npos) end = text.size();
            std::string line = text.substr(pos, end - pos);
            if (!fold(line).empty()) {
                uint32_t cover = fragment.empty() ? 0 : text_coverage(fragment, line);
                if (first || cover > best_cover) {
                    best = line;
                    best_cover = cover;
                    first = false;
                }
                if (fragment.empty()) break;
            }
            pos = end + 1;
        }
        while (!best.empty() && (best.back() == '\r' || best.back() == ' ')) best.pop_back();
        return best;
    }

   private:
    // One query word as an FTS5 term group: the word (as a prefix when it is
    // at least three characters long) and, if no indexed word starts with
    // it, the closest indexed spellings.
    Status word_alternatives(const std::string &word, std::string &out, WordTerms *terms = nullptr) {
        const size_t length = code_point_count(word);
        bool prefix = length >= 3;
        out = "(\"" + word + "\"" + (prefix ? " *" : "");
        if (terms) terms->push_back({word, prefix});
        bool known = false;
        Status st = has_word(word, true, known);
        if (!st.ok()) return st;
        if (!known && length >= 4 && length <= kMaxCorrectedWord) {
            const std::vector<std::string> chars = characters(word);
            std::vector<std::pair<uint32_t, std::string>> close;
            bool ascii = chars.size() == word.size();
            // Every single edit of an ASCII word, looked up directly: this
            // finds a swap in the middle of a short word, which shares no
            // trigram with the right spelling.
            if (ascii) {
                static constexpr std::string_view kAlphabet = "abcdefghijklmnopqrstuvwxyz0123456789";
                // Edits that give a variant twice, or the word itself (no
                // indexed word starts with it), add nothing: the list of
                // close words is sorted and made unique below.
                std::string v;
                auto look_up = [&]() -> Status {
                    bool found = false;
                    Status s = has_word(v, false, found);
                    if (s.ok() && found) close.emplace_back(1, v);
                    return s;
                };
                for (size_t i = 0; i <= word.size(); ++i) {
                    if (i < word.size()) {
                        v.assign(word).erase(i, 1);
                        if (!(st = look_up()).ok()) return st;
                    }
                    if (i + 1 < word.size()) {
                        v.assign(word);
                        std::swap(v[i], v[i + 1]);
                        if (!(st = look_up()).ok()) return st;
                    }
                    for (char c : kAlphabet) {
                        v.assign(word).insert(i, 1, c);
                        if (!(st = look_up()).ok()) return st;
                        if (i < word.size() && word[i] != c) {
                            v.assign(word);
                            v[i] = c;
                            if (!(st = look_up()).ok()) return st;
                        }
                    }
                }
            }
            // Longer or non-ASCII words: indexed words sharing trigrams, kept
            // within the edit distance allowed for the word's length.
            if (!ascii || chars.size() >= 6) {
                uint32_t max_distance = chars.size() >= 6 ? 2 : 1;
                std::string match;
                std::unordered_set<std::string> seen;
                for (size_t i = 0; i + 3 <= chars.size(); ++i) {
                    std::string tri = chars[i] + chars[i + 1] + chars[i + 2];
                    if (!seen.insert(tri).second) continue;
                    if (!match.empty()) match += " OR ";
                    match += "\"" + tri + "\"";
                }
                Stmt q(impl_.prepare("SELECT term FROM spell_tri WHERE spell_tri MATCH ? ORDER BY rank LIMIT 200", st));
                if (!q) return st;
                q.bind(1, match);
                while (q.step() == SQLITE_ROW) {
                    std::string term = q.text(0);
                    const uint32_t d = edit_distance_within_two(word, term);  // exact up to two
                    if (d <= max_distance) close.emplace_back(d, std::move(term));
                }
            }
            std::sort(close.begin(), close.end());
            close.erase(std::unique(close.begin(), close.end()), close.end());
            for (size_t i = 0; i < close.size() && i < kMaxCorrections; ++i) {
                out += " OR \"" + close[i].second + "\"";
                if (terms) terms->push_back({close[i].second, false});
            }
        }
        out += ")";
        return {};
    }

    using WordList = Catalogue::Impl::WordList;

    // The word list in memory, read or dropped as the state of the file
    // asks; null while the words are looked up in the file. Checked once
    // per search.
    Status word_list(const WordList *&out) {
        if (!list_checked_) {
            list_checked_ = true;
            WordList &list = impl_.word_list;
            Catalogue::Impl::AlbumCopy::Version version;
            if (Status st = impl_.file_version(version, "read word list"); !st.ok()) return st;
            if (!(list.version == version)) {
                drop_words(list);
                list.version = version;
                list.wanted = 0;
                list.too_large = false;
            }
            if (!list.loaded && !list.too_large && ++list.wanted >= 2) {
                Status st = load_word_list(list);
                if (!st.ok()) return st;
            }
            list_ = list.loaded ? &list : nullptr;
        }
        out = list_;
        return {};
    }

    static void drop_words(WordList &list) {
        list.loaded = false;
        std::string().swap(list.text);
        std::vector<uint32_t>().swap(list.starts);
    }

    // Reads spell_words whole, in term order (the order of its unique
    // index: bytes compared as memcmp compares them). A list over
    // kMaxWordListBytes stays in the file.
    Status load_word_list(WordList &list) {
        Status st;
        Stmt q(impl_.prepare("SELECT term FROM spell_words ORDER BY term", st));
        if (!q) return st;
        int rc;
        while ((rc = q.step()) == SQLITE_ROW) {
            const auto *p = reinterpret_cast<const char *>(sqlite3_column_text(q.get(), 0));
            const std::string_view term(p ? p : "", static_cast<size_t>(sqlite3_column_bytes(q.get(), 0)));
            const bool ordered = list.starts.empty() || std::string_view(list.text).substr(list.starts.back()) < term;
            if (!ordered || list.text.size() + term.size() + 4 * (list.starts.size() + 2) >
                                Catalogue::Impl::kMaxWordListBytes) {
                drop_words(list);
                list.too_large = true;
                return {};
            }
            list.starts.push_back(static_cast<uint32_t>(list.text.size()));
            list.text += term;
        }
        if (rc != SQLITE_DONE) {
            drop_words(list);
            return impl_.db_error("read word list");
        }
        list.starts.push_back(static_cast<uint32_t>(list.text.size()));
        list.loaded = true;
        return {};
    }

    // Whether the word list holds `term` or, with `prefix`, a word in
    // [term, term + U+10FFFF): one that starts with it.
    Status has_word(std::string_view term, bool prefix, bool &found) {
        const WordList *list = nullptr;
        Status st = word_list(list);
        if (!st.ok()) return st;
        if (!list) {
            Stmt q(impl_.prepare(prefix ? "SELECT 1 FROM spell_words WHERE term >= ?1 AND term < ?1 || x'f48fbfbf' LIMIT 1"
                                        : "SELECT 1 FROM spell_words WHERE term = ?",
                                 st));
            if (!q) return st;
            q.bind(1, term);
            found = q.step() == SQLITE_ROW;
            return {};
        }
        const size_t n = list->starts.size() - 1;
        auto word = [&](size_t i) {
            return std::string_view(list->text).substr(list->starts[i], list->starts[i + 1] - list->starts[i]);
        };
        size_t lo = 0, hi = n;
        while (lo < hi) {
            const size_t mid = lo + (hi - lo) / 2;
            if (word(mid) < term) lo = mid + 1;
            else hi = mid;
        }
        if (lo == n) {
            found = false;
        } else if (!prefix) {
            found = word(lo) == term;
        } else {
            std::string end(term);
            end += "\xF4\x8F\xBF\xBF";
            found = word(lo) < end;
        }
        return {};
    }

    Catalogue::Impl &impl_;
    const int64_t cap_;  // candidates of each FTS expression
    bool list_checked_ = false;
    const WordList *list_ = nullptr;
};

}  // namespace

namespace {

// A query cut to its bounds (see bounded_query): what the searches see.
TextQuery bounded(const TextQuery &q) {
    return {bounded_query(q.album_title), bounded_query(q.album_artist), bounded_query(q.track_title),
            bounded_query(q.track_artist), bounded_query(q.artist),      bounded_query(q.composer)};
}
LyricQuery bounded(const LyricQuery &q) {
    return {bounded_query(q.title), bounded_query(q.artist), bounded_query(q.fragment)};
}

// Runs one search under the catalogue's lock and keeps the asked page of
// its hits.
template <typename Impl, typename Result, typename Search>
Status paged_search(Impl &impl, Range range, Result &out, Search search) {
    if (Status st = check_range(range); !st.ok()) return st;
    std::lock_guard lock(impl.mutex);
    std::vector<typename decltype(Result::hits)::value_type> all;
    Searcher searcher(impl);
    // The word list is brought up to date first (a write), then every
    // statement of the search reads in one transaction.
    Status st = searcher.prepare_spelling();
    if (!st.ok()) return st;
    ReadTransaction transaction(impl);
    st = search(searcher, all);
    if (!st.ok()) return st;
    Result result;
    result.kind = kind_of(all.size());
    take_page(all, range, result, result.hits);
    out = std::move(result);
    return {};
}

}  // namespace

Status Catalogue::search_albums(const TextQuery &query, Range range, AlbumSearchResult &out) noexcept {
    return guarded([&] {
        return paged_search(*impl_, range, out, [&](Searcher &s, std::vector<AlbumHit> &all) {
            return s.albums(bounded(query), all, true, range);
        });
    });
}

Status Catalogue::search_albums_reference(const TextQuery &query, Range range, AlbumSearchResult &out) noexcept {
    return guarded([&] {
        return paged_search(*impl_, range, out, [&](Searcher &s, std::vector<AlbumHit> &all) {
            return s.albums(bounded(query), all, false, range);
        });
    });
}

Status Catalogue::search_tracks(const TextQuery &query, Range range, TrackSearchResult &out) noexcept {
    return guarded([&] {
        return paged_search(*impl_, range, out, [&](Searcher &s, std::vector<TrackHit> &all) { return s.tracks(bounded(query), all); });
    });
}

Status Catalogue::search_artists(std::string_view name, Range range, ArtistSearchResult &out) noexcept {
    return guarded([&] {
        return paged_search(*impl_, range, out, [&](Searcher &s, std::vector<ArtistHit> &all) { return s.artists(bounded_query(name), all); });
    });
}

Status Catalogue::search_lyrics(const LyricQuery &query, Range range, LyricSearchResult &out) noexcept {
    return guarded([&] {
        return paged_search(*impl_, range, out, [&](Searcher &s, std::vector<LyricHit> &all) { return s.lyrics(bounded(query), all); });
    });
}

Status Catalogue::search_matches(const TextQuery &given, Range range, MatchSearchResult &out) noexcept {
    return guarded([&]() -> Status {
        const TextQuery query = bounded(given);
        if (Status st = check_range(range); !st.ok()) return st;
        std::lock_guard lock(impl_->mutex);
        Searcher searcher(*impl_);
        Status st = searcher.prepare_spelling();
        if (!st.ok()) return st;
        ReadTransaction transaction(*impl_);
        std::vector<AlbumHit> albums;
        // Every album hit in order; only their titles and scores are used.
        st = searcher.albums(query, albums, true, {1, UINT32_MAX}, false);
        if (!st.ok()) return st;
        std::vector<MatchHit> all;
        for (const auto &a : albums) {
            MatchHit m;
            m.kind = MatchHit::Kind::album;
            m.id = a.album_id;
            m.title = a.title;
            m.album_score = a.album_score;
            m.contributor_score = a.contributor_score;
            m.track_score = a.track_score;
            m.score = a.album_score + (a.track_score * a.album_score) / 100 + a.contributor_score;
            all.push_back(std::move(m));
        }
        // Contributors by the first artist-like field.
        std::string_view name = !query.artist.empty()         ? query.artist
                                : !query.album_artist.empty() ? query.album_artist
                                : !query.track_artist.empty() ? query.track_artist
                                                              : query.composer;
        if (!fold(name).empty()) {
            std::vector<ArtistHit> artists;
            st = searcher.artists(name, artists);
            if (!st.ok()) return st;
            for (const auto &a : artists) {
                MatchHit m;
                m.kind = MatchHit::Kind::contributor;
                m.id = a.artist_id;
                m.title = a.name;
                m.contributor_score = a.score;
                m.collaboration = a.collaboration;
                m.score = a.score;
                all.push_back(std::move(m));
            }
        }
        std::stable_sort(all.begin(), all.end(), [](const MatchHit &a, const MatchHit &b) { return a.score > b.score; });
        MatchSearchResult result;
        result.kind = kind_of(all.size());
        take_page(all, range, result, result.hits);
        out = std::move(result);
        return {};
    });
}

void Catalogue::set_search_candidate_cap(uint32_t cap) noexcept {
    std::lock_guard lock(impl_->mutex);
    impl_->search_candidate_cap = cap;
}

}  // namespace catalogue
