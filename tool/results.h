// The answer of a find operation as the tool shows it: the rows of a
// response are read once from the result objects into plain records, which
// a text printer and a JSON printer then write out.
#ifndef CANTRIX_TOOL_RESULTS_H
#define CANTRIX_TOOL_RESULTS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tool/disc/source.h"
#include "tool/terminal_text.h"
#include "zelto/zelto_services.h"

namespace tool {

// Owner of one reference on a result object.
class Object {
 public:
    Object() = default;
    explicit Object(zelto_rvo_handle h) : h_(h) {}
    ~Object();
    Object(Object &&other) noexcept : h_(other.h_) { other.h_ = nullptr; }
    Object(const Object &) = delete;
    Object &operator=(const Object &) = delete;
    zelto_rvo_handle get() const { return h_; }
    zelto_rvo_handle *out() { return &h_; }

    // The first value under a key, "" if there is none.
    std::string value(const char *key) const;
    uint32_t count(const char *key) const;
    Object child(const char *key, uint32_t ordinal) const;
    std::string context() const;
    // Display texts of the official title, the first artist and the name.
    std::string title() const;
    std::string artist() const;
    std::string name() const;

 private:
    zelto_rvo_handle h_ = nullptr;
};

// One row: an album, a track, a contributor or a lyric. Texts that the
// object lacks are empty.
struct Row {
    std::string context;  // ZELTO_CTX_ALBUM, _TRACK, _CONTRIBUTOR or _LYRIC
    std::string match_score, match_type, lookup_type;
    std::string title, artist;                       // albums, tracks, lyrics
    std::string year, genre, track_count, tui, toc;  // albums (tui: tracks too)
    std::string number, duration_ms, disc_number;    // tracks (disc_number: albums too)
    std::string disc_count, disc_title, disc_toc;    // albums: the release's discs, the matched disc's
    // Albums: the edition (what tells apart releases that share a TOC).
    std::string country, release_date, label, catalogue_number, barcode, format;
    std::string name, collaboration;                 // contributors
    std::string text;                                // lyrics
    // Lyrics: the album and track they belong to (disc_number and number
    // above hold the disc and track numbers).
    std::string album_tui, album_title, album_artist, track_title;
    std::vector<Row> tracks;                         // an album's tracks
    std::vector<Row> disc_tracks;                    // the matched disc's, numbered on the disc
    // A fingerprint hit (album or track): its score (0..100), where the
    // query's audio starts in the track (negative for a lead-in), how much
    // audio was compared, and the album's matched track.
    std::string fp_score, fp_offset_ms, fp_compared_ms;
    std::string matched_number, matched_title;
};

// A response: the kind of search ("albums", "tracks", "matches", "lyrics"),
// the range it covers and its rows in order.
struct Answer {
    std::string kind;
    std::string range_start, range_end, range_count;
    std::vector<Row> rows;
};

// The audio file that identify fingerprinted.
struct AudioRead {
    std::string path, codec;
    double seconds = 0;
    uint32_t sample_rate = 0, channels = 0;
};

Answer read_answer(const Object &response, const std::string &kind);
// With `disc`, the disc that identify was given comes first: its TOC,
// where it came from, both disc IDs, the MCN and ISRCs it carries; with
// `audio`, the file that was fingerprinted.
void print_text(const Answer &answer, const disc::DiscRead *disc = nullptr, const AudioRead *audio = nullptr);
void print_json(const Answer &answer, const disc::DiscRead *disc = nullptr, const AudioRead *audio = nullptr);
// Milliseconds as [-]M:SS.t ("0:07.3"), "" for a text that is no number.
std::string clock_text(const std::string &ms);

// A decimal number of at most ten digits that fits 32 bits.
bool parse_u32(std::string_view text, uint32_t &out);
// A JSON string literal of a text.
std::string json_quote(const std::string &text);

}  // namespace tool

#endif
