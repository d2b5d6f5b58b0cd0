// Local music catalogue of the reference host: albums, discs with their
// tables of contents, tracks, artists and contributors, lyrics, kept in one
// SQLite database with FTS5 indexes for text search.
//
// The catalogue answers the lookups a lookup provider receives: a disc by its
// table of contents (exact or fuzzy), an album or track by its identifier and
// tag, a disc by its media identifiers, a revision check, and ranked, paged
// text searches over albums, tracks, artists and lyrics.
//
// Conventions
// - Nothing throws out of this API: every operation is noexcept and reports
//   through `Status` (an out-of-memory or SQLite failure becomes a status with
//   a message).
// - A `Catalogue` may be shared between threads: each operation holds the
//   catalogue's mutex.
// - Text is UTF-8. Searches compare search keys (see `fold`): case, accents
//   and punctuation do not matter.
// - Result ranges are 1-based and inclusive, like the lookups' range start and
//   end: {1, 10} asks for the first ten hits.
#ifndef ZELTO_PROVIDERS_CATALOGUE_STORE_H
#define ZELTO_PROVIDERS_CATALOGUE_STORE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "providers/catalogue/store/fingerprint.h"

struct sqlite3;
struct sqlite3_stmt;

namespace catalogue {

// ---- Status -------------------------------------------------------------------

enum class Code {
    ok = 0,
    not_found,         // no such album, track, disc or lyric
    invalid_argument,  // malformed TOC, empty identifier, bad range, ...
    bad_record,        // an import record that cannot be used
    io_error,          // a file could not be read
    database,          // SQLite reported a failure
    no_memory,
    not_catalogue,     // the file is empty or another program's database: left untouched
};

struct Status {
    Code code = Code::ok;
    std::string message;  // empty on success

    bool ok() const { return code == Code::ok; }
    static Status success() { return {}; }
    static Status error(Code c, std::string text) { return {c, std::move(text)}; }
};

// Human-readable name of a code ("ok", "not found", ...).
const char *code_name(Code code);

// ---- Records ------------------------------------------------------------------

// A person or group, with the role they had on an album or a track
// ("performer", "composer", "lyricist", "producer", ...).
struct Contributor {
    std::string name;
    std::string sort_name;
    std::string role;
    std::string source_id;  // identifier in the imported data, may be empty
    bool collaboration = false;  // a joint credit of several artists
    int64_t artist_id = 0;  // filled when read back from the catalogue

    bool operator==(const Contributor &) const = default;
};

struct Track {
    uint32_t number = 0;        // position on its disc, from 1
    uint32_t duration_ms = 0;   // 0 if unknown
    std::string title;
    std::string artist;         // display credit; empty means the album artist
    std::string tui, tag;       // identifier and tag; generated if empty
    std::string source_id;
    std::vector<Contributor> contributors;
    int64_t id = 0;             // filled when read back

    bool operator==(const Track &) const = default;
};

// One table of contents of a disc. A disc may have several (pressings that
// differ slightly).
struct Toc {
    // Track start offsets followed by the lead-out, in frames (75 a second),
    // as in the TOC text "150 14672 27367 41225". At least two, rising, and
    // no more tracks than the disc has (an enhanced CD may list audio tracks
    // only).
    std::vector<uint32_t> offsets;
    std::string media_id;       // source's identifier of this TOC; may be empty
    std::string mui;            // media unique id; derived from the offsets if empty
    // Disc IDs the source gives for this TOC: MusicBrainz disc IDs, and
    // freedb IDs (8 hex digits, stored in lower case).
    std::vector<std::string> disc_ids{};

    bool operator==(const Toc &) const = default;
};

struct Disc {
    uint32_t number = 1;        // position in the release, from 1
    std::string title;
    std::string format;         // "CD", "Enhanced CD", ...; may be empty
    std::vector<Toc> tocs;      // may be empty for a disc of unknown layout
    std::vector<Track> tracks;
    int64_t id = 0;             // filled when read back

    bool operator==(const Disc &) const = default;
};

struct Album {
    std::string tui, tag;        // identifier and tag; generated if empty
    uint32_t revision = 1;
    std::string title;
    std::string artist;          // display credit
    uint32_t year = 0;
    std::string genre;
    std::string label;           // record labels, joined by ", "
    std::string language;
    // What tells editions of one release apart, as far as the source says:
    // country ("GB", "XE"), release date ("1999", "1999-03", "1999-03-02"),
    // catalogue numbers joined by ", ", barcode.
    std::string country;
    std::string release_date;
    std::string catalogue_number;
    std::string barcode;
    std::string source;          // "musicbrainz", "xmcd", ... (informational)
    std::string source_id;
    std::vector<Contributor> contributors;
    std::vector<Disc> discs;
    int64_t id = 0;              // filled when read back

    uint32_t track_count() const;
    bool operator==(const Album &) const = default;
};

// A lyric may be tied to an album (its tui) and a track on it. It is
// stored once under its natural key (see `lyric_key`): importing it again
// replaces it, or leaves it as it is when nothing changed.
struct Lyric {
    std::string title;
    std::string artist;
    std::string text;
    std::string language;
    std::string album_tui;       // optional link to an album ...
    uint32_t disc_number = 0;    // ... and a track on it (0: none; a track without a disc is on disc 1)
    uint32_t track_number = 0;
    int64_t id = 0;
    // Filled when read back, where the album (and the track) is in the
    // catalogue.
    int64_t track_id = 0;
    std::string album_title, album_artist, track_title;
};

// The natural key of a lyric: its album, disc and track when it is tied to a
// track ("track:TUI:DISC:TRACK"), else its folded title and artist
// ("title:TITLE|ARTIST"), else a digest of its folded text ("text:HASH").
std::string lyric_key(const Lyric &lyric);

// Numbers of stored records of each kind.
struct Statistics {
    uint64_t albums = 0, discs = 0, tocs = 0, tracks = 0, artists = 0, lyrics = 0;
};

// ---- Results -----------------------------------------------------------------

// 1-based inclusive range of wanted hits.
struct Range {
    uint32_t start = 1;
    uint32_t end = 10;
};

// Kind of answer, in the provider's vocabulary (see `response_code`).
enum class MatchKind { none, single, multi_exact, fuzzy };

// "zelto_result_no_matches", "zelto_result_single_match",
// "zelto_result_multiexact_matches" or "zelto_result_fuzzy_matches".
const char *response_code(MatchKind kind);
// "zelto_result_no_new_rev": the answer to a revision check with nothing newer.
extern const char *const kResponseNoNewRevision;

struct TocHit {
    int64_t album_id = 0;
    int64_t disc_id = 0;
    uint32_t disc_number = 0;
    uint32_t disc_count = 0;          // discs of the album
    uint32_t album_track_count = 0;   // tracks of the whole album
    std::string tui, tag, title, artist;
    std::string toc;                  // the stored TOC text of the disc
    // The edition: the release's country, date, labels, catalogue numbers
    // and barcode, and the format of the disc (empty where unknown).
    std::string country, release_date, label, catalogue_number, barcode, format;
    uint32_t score = 0;               // 100 exact, 1..99 fuzzy, by closeness
    int32_t shift = 0;                // query offset minus stored offset
    uint32_t max_deviation = 0;       // largest per-offset difference after the shift
    uint32_t total_deviation = 0;     // sum of those differences
};

// Common head of paged answers: `total` hits exist, `hits` holds those of the
// asked range (range_start..range_end, clipped to what exists; both 0 if none).
struct Page {
    uint32_t total = 0;
    uint32_t range_start = 0;
    uint32_t range_end = 0;
};

// An album as a list shows it.
struct AlbumListEntry {
    std::string tui, title, artist;
    uint32_t year = 0, discs = 0, tracks = 0;
};

struct AlbumList : Page {
    std::vector<AlbumListEntry> albums;
};

struct TocResult : Page {
    MatchKind kind = MatchKind::none;
    std::vector<TocHit> hits;
};

// Lookup by identifier: what was found and where.
struct IdentifierHit {
    enum class Kind { album, track } kind = Kind::album;
    int64_t album_id = 0;
    int64_t track_id = 0;        // for a track, or a disc's first track
    int64_t disc_id = 0;         // for a media lookup
    uint32_t disc_number = 0;
    uint32_t track_number = 0;
    uint32_t revision = 0;
};

enum class RevisionCheck {
    unknown,      // no such identifier
    newer,        // the catalogue holds a newer revision
    not_newer,    // the caller's revision is current ("zelto_result_no_new_rev")
};

// Text search input. Empty fields are not searched. `artist` searches album
// and track artists alike.
struct TextQuery {
    std::string album_title;
    std::string album_artist;
    std::string track_title;
    std::string track_artist;
    std::string artist;
    std::string composer;
};

struct MatchedTrack {
    int64_t track_id = 0;
    uint32_t disc_number = 0;
    uint32_t number = 0;         // on its disc
    uint32_t position = 0;       // in the album, counting all discs, from 1
    std::string title;
};

struct AlbumHit {
    int64_t album_id = 0;
    std::string tui, tag, title, artist;
    uint32_t revision = 0;
    uint32_t album_track_count = 0;
    std::vector<MatchedTrack> matched_tracks;  // tracks that matched track fields
    // Scores 0..100 of the album title, the artist (album or track) and the
    // best matching track title against the query; `score` is their average
    // over the fields the query has.
    uint32_t album_score = 0, contributor_score = 0, track_score = 0;
    uint32_t score = 0;
    double rank = 0;             // FTS rank (lower is better)

    // A hit carrying only its matched tracks rather than the whole album.
    bool partial() const { return !matched_tracks.empty() && matched_tracks.size() < album_track_count; }
};

struct AlbumSearchResult : Page {
    // none, single for exactly one hit, fuzzy for more (the same for the
    // other searches).
    MatchKind kind = MatchKind::none;
    std::vector<AlbumHit> hits;
};

struct TrackHit {
    int64_t track_id = 0, album_id = 0;
    uint32_t disc_number = 0, number = 0, position = 0;
    std::string tui, tag, title, artist, album_title, album_tui;
    uint32_t duration_ms = 0;
    uint32_t score = 0;
    double rank = 0;
};

struct TrackSearchResult : Page {
    MatchKind kind = MatchKind::none;
    std::vector<TrackHit> hits;
};

struct ArtistHit {
    int64_t artist_id = 0;
    std::string name, sort_name;
    std::vector<std::string> roles;  // distinct roles on albums and tracks
    uint32_t album_count = 0;
    bool collaboration = false;      // a credit that joins several artists
    uint32_t score = 0;
    double rank = 0;
};

struct ArtistSearchResult : Page {
    MatchKind kind = MatchKind::none;
    std::vector<ArtistHit> hits;
};

// Lyric search input: all non-empty fields must match.
struct LyricQuery {
    std::string title;
    std::string artist;
    std::string fragment;  // words of the text
};

struct LyricHit {
    int64_t lyric_id = 0;
    std::string title, artist, snippet, album_tui;
    uint32_t disc_number = 0, track_number = 0;
    uint32_t score = 0;
    double rank = 0;
};

struct LyricSearchResult : Page {
    MatchKind kind = MatchKind::none;
    std::vector<LyricHit> hits;
};

// Mixed answer of albums and contributors to the same text query, with the
// per-field scores a match response carries.
struct MatchHit {
    enum class Kind { album, contributor } kind = Kind::album;
    int64_t id = 0;               // album id or artist id
    std::string title;            // album title or artist name
    uint32_t album_score = 0, contributor_score = 0, track_score = 0;
    bool collaboration = false;
    uint32_t score = 0;           // album: a + t*a/100 + c; contributor: c
};

struct MatchSearchResult : Page {
    MatchKind kind = MatchKind::none;
    std::vector<MatchHit> hits;
};

// ---- TOC ---------------------------------------------------------------------

// Reads a TOC text: blank-separated rising decimal offsets, at least two
// (tracks then lead-out), each at most 1000000.
Status parse_toc(std::string_view text, std::vector<uint32_t> &out);
// Writes offsets as decimal numbers joined by one blank.
std::string toc_text(const std::vector<uint32_t> &offsets);
// The 8-hex-digit disc identifier of the xmcd tradition, from a TOC in
// frames (tracks then lead-out). Empty for fewer than two offsets.
std::string xmcd_disc_id(const std::vector<uint32_t> &offsets);
// A text that is a freedb disc ID (8 hex digits) in lower case, as disc IDs
// are stored; empty for any other text.
std::string freedb_disc_id(std::string_view id);

// Fuzzy TOC tolerance. A stored disc is a fuzzy match of a query when:
//  - it has the same number of tracks;
//  - after removing the constant shift that best aligns the two (the median
//    of the differences of all offsets, lead-out included), the shift is at
//    most kTocMaxShift frames;
//  - every track start then differs by at most kTocMaxTrackDeviation frames;
//  - the program length (lead-out minus first track) differs by at most
//    kTocMaxLengthDeviation frames. This covers discs whose length was stored
//    in whole seconds (xmcd), which loses up to 74 frames of the lead-out.
// Fuzzy hits rank by total deviation plus a tenth of the shift; score =
// 99 - that closeness / 30, at least 1. Candidates come from an index on
// shift-invariant shapes (track count, program length, the first track
// lengths: an R*Tree), so a lookup reads only TOCs whose shape is within
// the tolerance of the query's.
constexpr uint32_t kTocMaxShift = 4500;            // 60 s
constexpr uint32_t kTocMaxTrackDeviation = 150;    // 2 s
constexpr uint32_t kTocMaxLengthDeviation = 225;   // 3 s

// ---- Search keys -------------------------------------------------------------

// Search key of a text: lower case, accents and other marks removed,
// compatibility forms unfolded ("ﬁ" -> "fi", "ß" -> "ss"), "&" as the word
// "and", apostrophes inside a word dropped ("you're" -> "youre"), other
// punctuation and symbols turned into blanks, runs of blanks collapsed, no
// leading or trailing blank. Invalid UTF-8 bytes count as blanks.
std::string fold(std::string_view text);
// Words of a search key (split at blanks).
std::vector<std::string> fold_words(std::string_view text);
// Edit distance of two texts, in code points; a transposition of two
// neighbours counts as one edit. Memory grows with the shorter text.
uint32_t edit_distance(std::string_view a, std::string_view b);
// Number of code points of a UTF-8 text (an invalid byte counts as one).
size_t code_point_count(std::string_view text);
// A search query's bounds: a field is searched by its first kMaxQueryWords
// words, and only words of at most kMaxCorrectedWord characters are
// corrected, so that no query costs more than a fixed amount of memory and
// time, whatever its words.
constexpr size_t kMaxQueryWords = 32;
constexpr size_t kMaxCorrectedWord = 40;
// The search key of a query field (see fold), cut after its first
// kMaxQueryWords words.
std::string bounded_query(std::string_view text);
// Similarity 0..100 of a query text and a candidate text by their words:
// each query word is paired with its best candidate word (equal 1, prefix
// of it 0.9, one edit 0.75, two edits 0.5), and the sum is weighed against
// both word counts (2 * sum / (query words + candidate words)).
uint32_t text_similarity(std::string_view query, std::string_view candidate);
// Share 0..100 of the query words found in the candidate, paired as above.
uint32_t text_coverage(std::string_view query, std::string_view candidate);
// Edit distance as edit_distance counts it, when it is at most two;
// three for any greater distance. Allocates nothing for words of up to
// kShortWord code points.
constexpr size_t kShortWord = 64;
uint32_t edit_distance_within_two(std::string_view a, std::string_view b);
// One query text folded once and scored against many candidates: the same
// values as text_similarity and text_coverage, without folding the query
// again nor allocating per candidate word.
class QueryWords {
   public:
    explicit QueryWords(std::string_view query);
    bool empty() const { return words_.empty(); }
    uint32_t similarity(std::string_view candidate);
    uint32_t coverage(std::string_view candidate);

   private:
    uint32_t paired(std::string_view candidate, size_t &candidate_words);
    std::vector<std::string> words_;
    std::vector<size_t> lengths_;        // code points of each word
    std::string key_;                    // scratch: the candidate's search key
    std::vector<std::string_view> cand_; // scratch: its words
    std::vector<uint8_t> used_;          // scratch: candidate words paired so far
};
// Number of rows of the generated folding table.
uint32_t fold_table_rows();

// ---- Import ------------------------------------------------------------------

struct ImportProgress {
    uint64_t bytes_done = 0, bytes_total = 0;
    uint64_t records_done = 0;      // records read, good or bad
    uint64_t albums_imported = 0;
    uint64_t records_skipped = 0;
};
// Called now and then during an import; return false to stop it.
using ProgressCallback = std::function<bool(const ImportProgress &)>;

struct ImportReport {
    uint64_t records = 0;        // records read
    uint64_t imported = 0;       // albums or lyrics stored
    uint64_t replaced = 0;       // of those, replacing an album of the same identifier or a lyric of the same key
    uint64_t unchanged = 0;      // of those replaced, the same revision (lyrics: the same fields) with the same content
    uint64_t skipped = 0;        // bad records or older revisions
    bool stopped = false;        // the progress callback asked to stop
    std::vector<std::string> messages;  // one line per skipped record (first 1000)
};

// ---- Audio fingerprints ----------------------------------------------------
//
// Fingerprints of audio files, each linked to a catalogue track by its tui,
// and an index for matching them (see fingerprint.h for how matching
// works). The tables are created by the first fingerprint stored; a
// catalogue without them simply finds nothing.
//
//   fp_prints  one row per distinct fingerprint: the linked track's tui, the
//              algorithm, the duration, Chromaprint's compressed form of the
//              items and a digest of them (a second file with the same
//              items shares the row).
//   fp_files   the content identifiers of the files fingerprinted (a hash
//              of their bytes, chosen by the caller), so that a file is
//              recognised by content however it is named.
//   fp_index   (key, print, position) of every informative item.
// Fingerprints stay when their track's album is replaced by a newer
// revision (track tuis are stable); hits on tracks that no longer exist
// are dropped.

// What an audio file's tags say; empty or 0 where they say nothing.
struct AudioTags {
    std::string title, artist, album, album_artist, genre;
    uint32_t year = 0, track_number = 0, disc_number = 0, duration_ms = 0;
    std::string mb_release_track_id;  // MusicBrainz track (a release's track): a track's source_id
    std::string mb_release_id;        // MusicBrainz release: an imported album's tui
    std::string mb_recording_id;      // read, but the catalogue keeps no recordings
    std::string file_name;            // stands in for a missing title
};

struct FingerprintEntry {
    fp::Fingerprint print;
    std::string content_id;  // identifies the file's content; not empty
    std::string name;        // file name, informational
    std::string track_tui;   // link to this track; empty: create the track from `tags`
    AudioTags tags;
};

struct FingerprintAdded {
    enum class Outcome {
        added,         // a new fingerprint was stored
        same_print,    // an identical fingerprint was stored before: the file is recorded, linked as that one
        known_file,    // the content identifier was known: nothing changed
    } outcome = Outcome::added;
    int64_t print_id = 0;
    std::string track_tui, album_tui;
    std::string title, artist, album_title;  // of the linked track
    uint32_t disc_number = 0, track_number = 0;
    bool created_track = false, created_album = false;
};

struct FingerprintHit {
    int64_t print_id = 0;
    std::string track_tui;
    uint32_t score = 0;        // 0..100
    int64_t offset_ms = 0;     // where the query's audio starts in the track
    uint32_t compared_ms = 0;  // length of audio compared
    uint32_t votes = 0;
};

struct FingerprintResult {
    MatchKind kind = MatchKind::none;  // single, multi_exact (several strong hits) or fuzzy
    std::vector<FingerprintHit> hits;  // best first, one per track
};

struct FingerprintCounts {
    uint64_t prints = 0, files = 0, postings = 0;
};

// ---- The catalogue -----------------------------------------------------------

// ---- Recognising a catalogue file -----------------------------------------------
//
// A catalogue marks its file with SQLite's application id kApplicationId and
// its schema number in the user version. Files made before the mark are
// recognised by their tables and schema row, and marked when next opened
// for writing. Anything else (another program's database, even one with an
// `albums` table, or an empty file) is refused with not_catalogue and never
// written to.
constexpr int32_t kApplicationId = 0x5A435443;  // "ZCTC"
constexpr int32_t kSchemaVersion = 7;

enum class OpenMode {
    read_write,  // created if missing; an unmarked catalogue is marked
    read_only,   // the file must exist; nothing is ever written (also for a
                 // read-only file or folder, in any journal mode)
};

// Opens a read-only connection to a file that exists, able to read a WAL
// file in a folder where its shared-memory file cannot be made. Returns the
// SQLite result code; `db` is set (also on failure, to be closed).
int open_read_only(const std::string &path, sqlite3 *&db) noexcept;
// Whether the database behind `db` is a catalogue (see above): not_catalogue
// with the reason if not; `unmarked` tells a catalogue made before the mark.
Status recognise(sqlite3 *db, bool &unmarked) noexcept;

class Catalogue {
   public:
    // Opens a catalogue file (":memory:" for a private one); see OpenMode.
    static Status open(const std::string &path, std::unique_ptr<Catalogue> &out,
                       OpenMode mode = OpenMode::read_write) noexcept;
    ~Catalogue();
    Catalogue(const Catalogue &) = delete;
    Catalogue &operator=(const Catalogue &) = delete;

    // Transactions: many adds inside one are much faster. Nested begin calls
    // are counted; only the outermost commit writes.
    Status begin() noexcept;
    Status commit() noexcept;
    Status rollback() noexcept;

    // Stores an album. An album with the same tui is replaced when the new
    // revision is not lower (`replaced` tells), otherwise the call fails with
    // bad_record. Empty tui/tag of the album and its tracks are generated.
    Status add_album(Album &album, bool *replaced = nullptr) noexcept;
    Status remove_album(int64_t album_id) noexcept;
    // Removes the album `tui` with its discs, TOCs and tracks and the
    // fingerprints linked to them (lyrics stay); not_found if there is
    // none. `removed` tells what it was.
    Status remove_album(std::string_view tui, AlbumListEntry &removed) noexcept;
    // The albums by artist, then title (ignoring ASCII case), paged.
    Status list_albums(Range range, AlbumList &out) noexcept;
    Status get_album(int64_t album_id, Album &out) noexcept;
    // The same album without a copy: `out` shares the catalogue's copy of
    // the album read last, which later reads leave unchanged. With
    // AlbumRead::without_credits the album's and its tracks' contributors
    // are not read (they may still be there, from an earlier full read).
    enum class AlbumRead : uint8_t { full, without_credits };
    Status get_album(int64_t album_id, std::shared_ptr<const Album> &out, AlbumRead what) noexcept;
    // The album read by the first reading, whose statements have SQLite sort
    // the tracks and credits: the reference the reading above must agree
    // with (tests and fuzzing). Not cached.
    Status get_album_reference(int64_t album_id, Album &out) noexcept;
    Status album_count(uint64_t &out) noexcept;
    // Rows of each kind, counted together under the catalogue's lock.
    Status statistics(Statistics &out) noexcept;
    // Stores a lyric, or replaces the one of the same natural key
    // (`replaced`); `unchanged` tells that the stored one had the same
    // fields, and then nothing is written.
    Status add_lyric(Lyric &lyric, bool *replaced = nullptr, bool *unchanged = nullptr) noexcept;
    Status get_lyric(int64_t lyric_id, Lyric &out) noexcept;

    // Identification by table of contents (offsets then lead-out).
    Status lookup_toc(const std::vector<uint32_t> &toc, Range range, TocResult &out) noexcept;
    Status lookup_toc(std::string_view toc_text, Range range, TocResult &out) noexcept;
    // The same answer found without the TOC shape index: every TOC of the
    // same track count within the length window is read and compared. The
    // reference the indexed lookup is tested against, and the path taken
    // for a catalogue of an earlier schema opened read-only.
    Status lookup_toc_linear(const std::vector<uint32_t> &toc, Range range, TocResult &out) noexcept;

    // By identifier and tag of an album or a track. An empty tag matches any;
    // a wrong tag is not_found.
    Status lookup_tui(std::string_view tui, std::string_view tag, IdentifierHit &out) noexcept;
    // By media unique id and media identifier of a disc (either may be empty,
    // not both).
    Status lookup_media(std::string_view mui, std::string_view media_id, IdentifierHit &out) noexcept;
    // The TOC texts (offsets then lead-out) of the discs that carry a disc ID:
    // one given at import, or, for a freedb ID, the one a stored TOC computes
    // to. Each TOC once, in import order; none is not an error.
    Status tocs_by_disc_id(std::string_view disc_id, std::vector<std::string> &out) noexcept;
    // Whether the catalogue holds a newer revision than `revision` of the
    // album or track `tui`.
    Status check_revision(std::string_view tui, std::string_view tag, uint32_t revision,
                          RevisionCheck &out) noexcept;

    // Text searches, ranked, paged. Each field's words must all match (as
    // prefixes, or as corrected spellings for unknown words); hits are
    // ordered by their score against the query, then by FTS rank. Each FTS
    // expression yields at most its 5000 best candidates, so `total` of a
    // very common query counts hits among those.
    Status search_albums(const TextQuery &query, Range range, AlbumSearchResult &out) noexcept;
    Status search_tracks(const TextQuery &query, Range range, TrackSearchResult &out) noexcept;
    Status search_artists(std::string_view name, Range range, ArtistSearchResult &out) noexcept;
    Status search_lyrics(const LyricQuery &query, Range range, LyricSearchResult &out) noexcept;
    Status search_matches(const TextQuery &query, Range range, MatchSearchResult &out) noexcept;
    // search_albums as first written: every candidate expression read in
    // rank order, every candidate read and scored by itself, all sorted.
    // The reference search_albums is tested against (same hits, scores,
    // order and totals).
    Status search_albums_reference(const TextQuery &query, Range range, AlbumSearchResult &out) noexcept;
    // Candidates of each FTS expression (normally kCandidateCap, 5000):
    // tests of the cap set a small one.
    void set_search_candidate_cap(uint32_t cap) noexcept;
    // The keys an album and its tracks are indexed under (see IndexKeys in
    // catalogue_internal.h); tests compare them.
    Status search_keys(int64_t album_id, struct AlbumKeys &out) noexcept;

    // Rebuilds the word list used to correct misspelt query words. Runs by
    // itself before the first search after changes; imports run it at the end.
    Status refresh_spelling() noexcept;

    // Imports. A file of MusicBrainz release JSON holds one release, an array
    // of them, {"releases": [...]}, or one release per line. A file or text of
    // xmcd holds one disc. A lyrics file holds JSON objects (one per line, or
    // in an array) with "title", "artist", "text" and optionally "language",
    // "release" (album tui), "disc", "track". Bad records are skipped and
    // reported.
    Status import_musicbrainz_file(const std::string &path, ImportReport &report,
                                   const ProgressCallback &progress = {}) noexcept;
    Status import_musicbrainz_text(std::string_view text, ImportReport &report) noexcept;
    Status import_xmcd_file(const std::string &path, ImportReport &report) noexcept;
    Status import_xmcd_text(std::string_view text, ImportReport &report) noexcept;
    // A file in the format its content shows (see sniff_import_format); a
    // file of none is skipped as one record with the reason.
    Status import_file(const std::string &path, ImportReport &report, const ProgressCallback &progress = {}) noexcept;
    // Every regular file below `dir` but hidden ones, as import_file reads
    // it: albums first, then lyrics (which may refer to them), each group
    // by path.
    Status import_directory(const std::string &dir, ImportReport &report,
                            const ProgressCallback &progress = {}) noexcept;
    Status import_lyrics_file(const std::string &path, ImportReport &report) noexcept;

    // Audio fingerprints (see above). `fingerprint_known` tells whether a
    // file of that content was stored. `track_for_musicbrainz` finds the
    // track that a file's MusicBrainz identifiers name: its release track
    // id as a track's source id, else its release id as an album's tui with
    // the disc and track numbers; not_found if neither names one.
    // `add_fingerprint` stores a file's fingerprint in one transaction,
    // linked to `track_tui` or to a track made from the tags: the album of
    // the tags' album title and album artist (made if new, source "tags"),
    // the track by its disc and number, or by title if those are taken or
    // missing. `match_fingerprint` finds the tracks whose fingerprints
    // match the query.
    Status fingerprint_known(std::string_view content_id, bool &known) noexcept;
    Status track_for_musicbrainz(const AudioTags &tags, std::string &track_tui) noexcept;
    Status add_fingerprint(const FingerprintEntry &entry, FingerprintAdded &out) noexcept;
    Status match_fingerprint(const fp::Fingerprint &query, FingerprintResult &out) noexcept;
    Status fingerprint_counts(FingerprintCounts &out) noexcept;
    // Loads many fingerprints at once, for prepared data: in one
    // transaction, each linked to its entry's track_tui as given (not
    // checked), with the index postings of all of them inserted in key
    // order, so that the index grows by long runs rather than scattered
    // writes. Entries whose content or fingerprint is stored are skipped.
    Status add_fingerprints_bulk(const std::vector<FingerprintEntry> &entries, uint64_t &added) noexcept;
    // Calls `each` with every stored fingerprint and its track, in id
    // order, until it returns false; the catalogue is locked meanwhile, so
    // `each` must not call it.
    Status each_fingerprint(
        const std::function<bool(int64_t id, const std::string &track_tui, const fp::Fingerprint &print)> &each) noexcept;

    // Internal: used by the implementation units.
    struct Impl;

   private:
    Catalogue();
    std::unique_ptr<Impl> impl_;
};

// What an input file holds, told by its content alone (never by its name):
// release JSON (an object, an array, one object per line, or a
// {"releases": [...]} list), lyrics records (JSON objects whose first one
// has "text" and no "media"), an xmcd disc ("# xmcd" first, after a UTF-8
// byte order mark or blank lines if any), nothing but blanks, or none of
// these. Only the first kSniffBytes of a file are looked at.
enum class ImportFormat { releases, xmcd, lyrics, empty, unknown };
constexpr size_t kSniffBytes = 64u << 10;
ImportFormat sniff_import_format(std::string_view head) noexcept;
const char *import_format_name(ImportFormat format);

// Record parsers of the importers, exposed for testing: each fills `out`
// from one record or reports why it cannot.
Status parse_musicbrainz_release(std::string_view json, Album &out) noexcept;
Status parse_xmcd(std::string_view text, Album &out) noexcept;
Status parse_lyric_json(std::string_view json, Lyric &out) noexcept;

}  // namespace catalogue

#endif
