// The two printers of an answer: readable text and one line of JSON.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

#include "tool/results.h"

namespace tool {

bool parse_u32(std::string_view text, uint32_t &out) {
    if (text.empty() || text.size() > 10) return false;
    uint64_t n = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        n = n * 10 + static_cast<uint64_t>(c - '0');
    }
    if (n > 0xFFFFFFFFu) return false;
    out = static_cast<uint32_t>(n);
    return true;
}

std::string json_quote(const std::string &text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            case '\r': out += "\\r"; break;
            default:
                if (c < 0x20) {
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "\\u%04x", c);
                    out += buf;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

namespace {

// A decimal text of a signed 32-bit number.
bool parse_i32(const std::string &text, int32_t &out) {
    const bool negative = !text.empty() && text[0] == '-';
    uint32_t n = 0;
    if (!parse_u32(std::string_view(text).substr(negative ? 1 : 0), n) || n > (negative ? 0x80000000u : 0x7FFFFFFFu))
        return false;
    out = negative ? static_cast<int32_t>(0u - n) : static_cast<int32_t>(n);
    return true;
}

}  // namespace

std::string clock_text(const std::string &ms) {
    int32_t n = 0;
    if (!parse_i32(ms, n)) return "";
    const int64_t magnitude = n < 0 ? -static_cast<int64_t>(n) : n;
    const int64_t tenths = (magnitude + 50) / 100;
    char buf[40];
    std::snprintf(buf, sizeof buf, "%s%lld:%02lld.%lld", n < 0 ? "-" : "", static_cast<long long>(tenths / 600),
                  static_cast<long long>(tenths / 10 % 60), static_cast<long long>(tenths % 10));
    return buf;
}

namespace {

// ---- Text ------------------------------------------------------------------------------

// Milliseconds as minutes and seconds, "" for no number.
std::string duration_text(const std::string &ms) {
    uint32_t n = 0;
    if (!parse_u32(ms, n)) return "";
    const uint32_t s = (n + 500) / 1000;
    char buf[32];
    std::snprintf(buf, sizeof buf, "%u:%02u", s / 60, s % 60);
    return buf;
}

void print_duration(const std::string &ms) {
    const std::string d = duration_text(ms);
    if (!d.empty()) std::printf(" (%s)", d.c_str());
}

// The texts of a row as a terminal may show them.
std::string shown(const std::string &text) { return terminal_safe(text); }

void print_track_lines(const Row &album, const std::vector<Row> &tracks) {
    for (const Row &track : tracks) {
        std::printf("    %3s. %s", shown(track.number).c_str(), shown(track.title).c_str());
        // A track's artist is shown where it differs from the album's.
        if (!track.artist.empty() && track.artist != album.artist) std::printf(" - %s", shown(track.artist).c_str());
        print_duration(track.duration_ms);
        std::putchar('\n');
    }
}

// The edition fields of an album, with their names in the text and in the
// JSON output.
struct EditionField {
    const char *text_name, *json_name;
    std::string Row::*value;
};
constexpr EditionField kEditionFields[] = {{"country", "country", &Row::country},
                                           {"date", "release_date", &Row::release_date},
                                           {"label", "label", &Row::label},
                                           {"catalogue number", "catalogue_number", &Row::catalogue_number},
                                           {"barcode", "barcode", &Row::barcode},
                                           {"format", "format", &Row::format}};

// A line of the edition fields an album has ("    country: GB  date:
// 1999"), none if it has none.
void print_edition_text(const Row &album) {
    std::string line;
    for (const EditionField &f : kEditionFields)
        if (!(album.*f.value).empty())
            line += std::string(line.empty() ? "    " : "  ") + f.text_name + ": " + shown(album.*f.value);
    if (!line.empty()) std::printf("%s\n", line.c_str());
}

// A release of several discs shows the disc that matched, with its own
// tracks numbered on it; a release of one disc shows the album's tracks.
void print_album_text(const Row &album) {
    std::printf(" %s - %s", shown(album.artist).c_str(), shown(album.title).c_str());
    if (!album.year.empty()) std::printf(" (%s)", shown(album.year).c_str());
    std::putchar('\n');
    print_edition_text(album);
    const bool disc_of_several = !album.disc_number.empty() && !album.disc_count.empty() && album.disc_count != "1";
    if (disc_of_several) {
        std::printf("    disc %s of %s", shown(album.disc_number).c_str(), shown(album.disc_count).c_str());
        if (!album.disc_title.empty()) std::printf(" \"%s\"", shown(album.disc_title).c_str());
        std::printf("  tracks: %zu (%s on the release)", album.disc_tracks.size(), shown(album.track_count).c_str());
    } else {
        std::printf("    tracks: %s", shown(album.track_count).c_str());
    }
    if (!album.genre.empty()) std::printf("  genre: %s", shown(album.genre).c_str());
    std::printf("  id: %s\n", shown(album.tui).c_str());
    if (disc_of_several && !album.disc_toc.empty()) std::printf("    disc TOC: %s\n", shown(album.disc_toc).c_str());
    print_track_lines(album, disc_of_several ? album.disc_tracks : album.tracks);
}

// The start of a lyric, cut at a character boundary, its lines indented.
std::string lyric_excerpt(const std::string &text) {
    constexpr size_t kShown = 200;
    size_t cut = std::min(text.size(), kShown);
    while (cut < text.size() && cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
    std::string out;
    for (char c : terminal_safe(std::string_view(text).substr(0, cut), true)) {
        out += c;
        if (c == '\n') out += "    ";
    }
    return cut < text.size() ? out + "..." : out;
}

// Where a lyric belongs: "from: ARTIST - ALBUM, disc D track N: TITLE",
// with the album's identifier where the catalogue does not hold it.
void print_lyric_place(const Row &lyric) {
    if (lyric.album_tui.empty() && lyric.album_title.empty()) return;
    if (lyric.album_title.empty())
        std::printf("    from: album %s", shown(lyric.album_tui).c_str());
    else
        std::printf("    from: %s - %s", shown(lyric.album_artist).c_str(), shown(lyric.album_title).c_str());
    if (!lyric.number.empty())
        std::printf(", disc %s track %s", shown(lyric.disc_number).c_str(), shown(lyric.number).c_str());
    if (!lyric.track_title.empty()) std::printf(": %s", shown(lyric.track_title).c_str());
    std::putchar('\n');
}

void print_row_text(const Row &row) {
    if (row.context == ZELTO_CTX_ALBUM) {
        print_album_text(row);
    } else if (row.context == ZELTO_CTX_TRACK) {
        std::printf(" %s - %s", shown(row.artist).c_str(), shown(row.title).c_str());
        print_duration(row.duration_ms);
        std::putchar('\n');
    } else if (row.context == ZELTO_CTX_CONTRIBUTOR) {
        std::printf(" contributor: %s\n", shown(row.name).c_str());
    } else if (row.context == ZELTO_CTX_LYRIC) {
        std::printf(" lyric: %s - %s\n", shown(row.artist).c_str(), shown(row.title).c_str());
        print_lyric_place(row);
        std::printf("    %s\n", lyric_excerpt(row.text).c_str());
    }
    if (!row.fp_score.empty()) {
        if (!row.matched_title.empty())
            std::printf("    audio match: track %s. %s\n", shown(row.matched_number).c_str(), shown(row.matched_title).c_str());
        std::printf("    fingerprint score: %s  offset: %s  compared: %s\n", row.fp_score.c_str(),
                    clock_text(row.fp_offset_ms).c_str(), clock_text(row.fp_compared_ms).c_str());
    }
    if (!row.match_score.empty()) std::printf("    match score: %s\n", shown(row.match_score).c_str());
    if (!row.match_type.empty() || !row.lookup_type.empty())
        std::printf("    match type: %s  lookup type: %s\n", row.match_type.empty() ? "-" : shown(row.match_type).c_str(),
                    row.lookup_type.empty() ? "-" : shown(row.lookup_type).c_str());
}

// ---- JSON -------------------------------------------------------------------------------

// A small JSON writer of objects with string or number members; empty
// texts are left out.
class Json {
 public:
    void open(char bracket) {
        comma();
        out_ += bracket;
        first_ = true;
    }
    void close(char bracket) {
        out_ += bracket;
        first_ = false;
    }
    void key(const char *k) {
        comma();
        out_ += json_quote(k) + ":";
        first_ = true;
    }
    void str(const char *k, const std::string &v) {
        if (v.empty()) return;
        key(k);
        out_ += json_quote(v);
        first_ = false;
    }
    // A decimal text as a number, anything else as a string.
    void num(const char *k, const std::string &v) {
        uint32_t n = 0;
        if (!parse_u32(v, n)) return str(k, v);
        key(k);
        out_ += v;
        first_ = false;
    }
    // A signed decimal text as a number.
    void inum(const char *k, const std::string &v) {
        int32_t n = 0;
        if (!parse_i32(v, n)) return str(k, v);
        key(k);
        out_ += v;
        first_ = false;
    }
    const std::string &text() const { return out_; }

 private:
    void comma() {
        if (!first_) out_ += ',';
        first_ = false;
    }
    std::string out_;
    bool first_ = true;
};

void track_json(Json &j, const Row &track) {
    j.num("number", track.number);
    j.str("title", track.title);
    j.str("artist", track.artist);
    j.num("duration_ms", track.duration_ms);
    j.str("tui", track.tui);
    j.num("disc", track.disc_number);
}

void tracks_json(Json &j, const std::vector<Row> &tracks) {
    j.key("tracks");
    j.open('[');
    for (const Row &track : tracks) {
        j.open('{');
        track_json(j, track);
        j.close('}');
    }
    j.close(']');
}

void row_json(Json &j, const Row &row) {
    j.open('{');
    j.str("context", row.context);
    j.num("match_score", row.match_score);
    j.str("match_type", row.match_type);
    j.str("lookup_type", row.lookup_type);
    j.num("fp_score", row.fp_score);
    j.inum("fp_offset_ms", row.fp_offset_ms);
    j.num("fp_compared_ms", row.fp_compared_ms);
    j.num("matched_track", row.matched_number);
    if (row.context == ZELTO_CTX_ALBUM) {
        j.str("title", row.title);
        j.str("artist", row.artist);
        j.num("year", row.year);
        j.str("genre", row.genre);
        j.num("track_count", row.track_count);
        j.str("tui", row.tui);
        j.str("toc", row.toc);
        j.num("disc_count", row.disc_count);
        j.num("disc_number", row.disc_number);
        for (const EditionField &f : kEditionFields) j.str(f.json_name, row.*f.value);
        tracks_json(j, row.tracks);
        if (!row.disc_number.empty()) {
            // The matched disc: its TOC and its tracks numbered on it.
            j.key("disc");
            j.open('{');
            j.num("number", row.disc_number);
            j.str("title", row.disc_title);
            j.str("toc", row.disc_toc);
            j.num("track_count", std::to_string(row.disc_tracks.size()));
            tracks_json(j, row.disc_tracks);
            j.close('}');
        }
    } else if (row.context == ZELTO_CTX_TRACK) {
        track_json(j, row);
    } else if (row.context == ZELTO_CTX_CONTRIBUTOR) {
        j.str("name", row.name);
        j.str("collaboration", row.collaboration);
    } else if (row.context == ZELTO_CTX_LYRIC) {
        j.str("title", row.title);
        j.str("artist", row.artist);
        j.str("text", row.text);
        j.str("album_tui", row.album_tui);
        j.str("album_title", row.album_title);
        j.str("album_artist", row.album_artist);
        j.num("disc_number", row.disc_number);
        j.num("track_number", row.number);
        j.str("track_title", row.track_title);
    }
    j.close('}');
}

void print_disc_text(const disc::DiscRead &d) {
    std::printf("disc: %s (%s)\n", d.toc.offsets_text().c_str(), shown(d.origin).c_str());
    std::printf("  MusicBrainz disc ID: %s\n", d.ids.musicbrainz.empty() ? "-" : d.ids.musicbrainz.c_str());
    std::printf("  freedb disc ID:      %s\n", d.ids.freedb.empty() ? "-" : d.ids.freedb.c_str());
    if (!d.ids.note.empty()) std::printf("  (%s)\n", d.ids.note.c_str());
    if (!d.disc.mcn.empty()) std::printf("  MCN: %s\n", shown(d.disc.mcn).c_str());
    for (const disc::Track &t : d.disc.tracks)
        if (!t.isrc.empty()) std::printf("  ISRC of track %u: %s\n", t.number, shown(t.isrc).c_str());
    std::putchar('\n');
}

void disc_json(Json &j, const disc::DiscRead &d) {
    j.key("disc");
    j.open('{');
    j.str("source", d.origin);
    j.str("toc", d.toc.offsets_text());
    j.str("musicbrainz_toc", d.toc.musicbrainz_text());
    j.str("musicbrainz_disc_id", d.ids.musicbrainz);
    j.str("freedb_disc_id", d.ids.freedb);
    j.str("disc_id_note", d.ids.note);
    j.str("mcn", d.disc.mcn);
    bool any_isrc = false;
    for (const disc::Track &t : d.disc.tracks) any_isrc = any_isrc || !t.isrc.empty();
    if (any_isrc) {
        j.key("isrcs");
        j.open('[');
        for (const disc::Track &t : d.disc.tracks) {
            if (t.isrc.empty()) continue;
            j.open('{');
            j.num("track", std::to_string(t.number));
            j.str("isrc", t.isrc);
            j.close('}');
        }
        j.close(']');
    }
    j.close('}');
}

void print_audio_text(const AudioRead &a) {
    std::printf("audio: %s (%s of %s, %u Hz, %u channel%s)\n\n", shown(a.path).c_str(),
                clock_text(std::to_string(static_cast<int64_t>(a.seconds * 1000))).c_str(), a.codec.c_str(),
                a.sample_rate, a.channels, a.channels == 1 ? "" : "s");
}

void audio_json(Json &j, const AudioRead &a) {
    j.key("audio");
    j.open('{');
    j.str("path", a.path);
    j.str("codec", a.codec);
    j.num("duration_ms", std::to_string(static_cast<int64_t>(a.seconds * 1000)));
    j.num("sample_rate", std::to_string(a.sample_rate));
    j.num("channels", std::to_string(a.channels));
    j.close('}');
}

}  // namespace

void print_text(const Answer &answer, const disc::DiscRead *disc, const AudioRead *audio) {
    if (disc) print_disc_text(*disc);
    if (audio) print_audio_text(*audio);
    const size_t rows = answer.rows.size();
    if (rows == 0) {
        std::printf("no match\n");
        return;
    }
    std::printf("%zu result%s", rows, rows == 1 ? "" : "s");
    if (!answer.range_count.empty() && answer.range_count != "0")
        std::printf(" (%s to %s of %s)", answer.range_start.c_str(), answer.range_end.c_str(),
                    answer.range_count.c_str());
    std::putchar('\n');
    // Rows are numbered by their place in the whole answer.
    uint32_t first = 1;
    if (!parse_u32(answer.range_start, first) || first == 0) first = 1;
    for (size_t i = 0; i < rows; ++i) {
        std::printf("\n[%zu]", first + i);
        print_row_text(answer.rows[i]);
    }
}

void print_json(const Answer &answer, const disc::DiscRead *disc, const AudioRead *audio) {
    Json j;
    j.open('{');
    if (disc) disc_json(j, *disc);
    if (audio) audio_json(j, *audio);
    j.str("kind", answer.kind);
    j.num("range_start", answer.range_start);
    j.num("range_end", answer.range_end);
    j.num("range_count", answer.range_count);
    j.key("results");
    j.open('[');
    for (const Row &row : answer.rows) row_json(j, row);
    j.close(']');
    j.close('}');
    std::printf("%s\n", j.text().c_str());
}

}  // namespace tool
