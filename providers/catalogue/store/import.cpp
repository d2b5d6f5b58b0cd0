// Importers of the catalogue: MusicBrainz release JSON, xmcd disc files and
// lyrics records, each file read as its content shows. Bad records are
// skipped with a message; nothing in the input can stop an import but an
// unreadable file.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "providers/catalogue/store/catalogue_internal.h"
#include "providers/catalogue/store/json_stream.h"

namespace catalogue {

namespace {

using nlohmann::json;

constexpr size_t kMaxMessages = 1000;
// Records per transaction. Index pages that every batch touches go to the
// WAL once per transaction, so fewer, larger transactions write less: at
// 100k albums 50,000 wrote 2.2x the database against 3.0x for 10,000, at
// 1M 7.3x against 12.5x, in the same page cache. An interrupted import
// loses at most this many records of work; the file stays whole.
constexpr uint64_t kBatch = 50000;
// Page cache while an import runs (KiB, as PRAGMA cache_size takes it when
// negative) and WAL pages between checkpoints: the index pages that a batch
// touches stay in memory, and a page that many batches change is copied
// into the file once per checkpoint rather than once per batch (256 MB of
// WAL: at 100k albums a quarter of the 64 MB interval's writes went to
// copying pages several times).
constexpr int64_t kImportCacheKiB = 32768;
constexpr int64_t kImportCheckpointPages = 65536;
constexpr uint64_t kProgressEvery = 200;  // records between progress calls
constexpr size_t kMaxXmcdBytes = 1u << 20;
const char *const kEmptyInput = "empty file: nothing to import";
const char *const kUnknownInput =
    "not an import file: neither release JSON, an xmcd disc (\"# xmcd\" first) nor lyrics records";

// ---- JSON helpers: never throw on missing or mistyped members ----------------

const json *member(const json &o, const char *key) {
    if (!o.is_object()) return nullptr;
    auto it = o.find(key);
    if (it == o.end() || it->is_null()) return nullptr;
    return &*it;
}

std::string text_of(const json &o, const char *key) {
    const json *m = member(o, key);
    return m && m->is_string() ? m->get<std::string>() : std::string();
}

// A non-negative number, also given as decimal text.
bool number_of(const json &o, const char *key, uint64_t &out) {
    const json *m = member(o, key);
    if (!m) return false;
    if (m->is_number_unsigned()) {
        out = m->get<uint64_t>();
        return true;
    }
    if (m->is_number_integer()) {
        int64_t v = m->get<int64_t>();
        if (v < 0) return false;
        out = static_cast<uint64_t>(v);
        return true;
    }
    if (m->is_number_float()) {
        double v = m->get<double>();
        if (!(v >= 0 && v < 4e9)) return false;
        out = static_cast<uint64_t>(v);
        return true;
    }
    if (m->is_string()) {
        const std::string &s = m->get_ref<const std::string &>();
        if (s.empty() || s.size() > 12 || !std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; }))
            return false;
        out = std::stoull(s);
        return true;
    }
    return false;
}

const json &array_or_empty(const json &o, const char *key) {
    static const json empty = json::array();
    const json *m = member(o, key);
    return m && m->is_array() ? *m : empty;
}

// Display text and contributors of an "artist-credit" array.
std::string read_credit(const json &credit_owner, std::vector<Contributor> *out) {
    const json &credit = array_or_empty(credit_owner, "artist-credit");
    std::string display;
    size_t people = 0;
    for (const auto &entry : credit) {
        if (!entry.is_object()) continue;
        const json *artist = member(entry, "artist");
        std::string name = text_of(entry, "name");
        if (name.empty() && artist) name = text_of(*artist, "name");
        display += name + text_of(entry, "joinphrase");
        if (out && !name.empty()) {
            Contributor c;
            c.name = artist && !text_of(*artist, "name").empty() ? text_of(*artist, "name") : name;
            if (artist) {
                c.sort_name = text_of(*artist, "sort-name");
                c.source_id = text_of(*artist, "id");
            }
            c.role = "performer";
            out->push_back(std::move(c));
            ++people;
        }
    }
    if (out && people > 1) {
        Contributor joint;
        joint.name = display;
        joint.role = "performer";
        joint.collaboration = true;
        out->push_back(std::move(joint));
    }
    return display;
}

// Artist relations ("composer", "producer", ...), also those of works
// nested in recording relations.
void read_relations(const json &owner, std::vector<Contributor> &out, int depth = 0) {
    for (const auto &rel : array_or_empty(owner, "relations")) {
        if (!rel.is_object()) continue;
        const json *artist = member(rel, "artist");
        if (artist && artist->is_object()) {
            Contributor c;
            c.name = text_of(*artist, "name");
            c.sort_name = text_of(*artist, "sort-name");
            c.source_id = text_of(*artist, "id");
            c.role = text_of(rel, "type");
            if (!c.name.empty() && !c.role.empty()) out.push_back(std::move(c));
        }
        const json *work = member(rel, "work");
        if (work && depth < 2) read_relations(*work, out, depth + 1);
    }
}

// Appends a text to a list joined by ", " unless it is empty or listed.
void join_distinct(std::string &list, const std::string &text) {
    if (text.empty()) return;
    for (size_t pos = 0; pos <= list.size();) {
        const size_t end = std::min(list.find(", ", pos), list.size());
        if (list.compare(pos, end - pos, text) == 0) return;
        pos = end + 2;
    }
    if (!list.empty()) list += ", ";
    list += text;
}

std::string first_name(const json &o, const char *key) {
    for (const auto &g : array_or_empty(o, key))
        if (!text_of(g, "name").empty()) return text_of(g, "name");
    return {};
}

Track track_from_json(const json &t, uint32_t index, const std::string &album_artist) {
    Track track;
    uint64_t n = index;
    number_of(t, "position", n);
    track.number = static_cast<uint32_t>(n);
    const json *recording = member(t, "recording");
    track.title = text_of(t, "title");
    if (track.title.empty() && recording) track.title = text_of(*recording, "title");
    uint64_t length = 0;
    if (number_of(t, "length", length) || (recording && number_of(*recording, "length", length)))
        track.duration_ms = static_cast<uint32_t>(std::min<uint64_t>(length, UINT32_MAX));
    track.source_id = text_of(t, "id");
    const json *credit_owner = member(t, "artist-credit") ? &t : recording;
    if (credit_owner) {
        std::string credit = read_credit(*credit_owner, &track.contributors);
        if (credit != album_artist) track.artist = credit;
        else track.contributors.clear();
    }
    if (recording) read_relations(*recording, track.contributors);
    return track;
}

// A medium listed without its tracks (a release read without its
// recordings): untitled tracks as many as its TOCs or its track count
// say, timed by its first TOC.
void untitled_tracks(const json &medium, Disc &disc) {
    uint64_t count = 0;
    number_of(medium, "track-count", count);
    for (const Toc &toc : disc.tocs) count = std::max<uint64_t>(count, toc.offsets.size() - 1);
    for (uint32_t n = 1; n <= std::min<uint64_t>(count, 99); ++n) {
        Track track;
        track.number = n;
        track.title = "Track " + std::to_string(n);
        if (!disc.tocs.empty() && n < disc.tocs[0].offsets.size())
            track.duration_ms = (disc.tocs[0].offsets[n] - disc.tocs[0].offsets[n - 1]) * 1000 / 75;
        disc.tracks.push_back(std::move(track));
    }
}

Status release_from_json(const json &r, Album &out) {
    if (!r.is_object()) return Status::error(Code::bad_record, "release is not a JSON object");
    Album album;
    album.source = "musicbrainz";
    album.source_id = text_of(r, "id");
    album.title = text_of(r, "title");
    std::string label = album.source_id.empty() ? "release" : "release " + album.source_id;
    if (fold(album.title).empty()) return Status::error(Code::bad_record, label + ": no title");
    album.tui = album.source_id;
    uint64_t revision = 1;
    if (number_of(r, "revision", revision)) album.revision = static_cast<uint32_t>(std::min<uint64_t>(revision, UINT32_MAX));
    std::string date = text_of(r, "date");
    if (date.size() >= 4 && std::all_of(date.begin(), date.begin() + 4, [](char c) { return c >= '0' && c <= '9'; }))
        album.year = static_cast<uint32_t>(std::stoul(date.substr(0, 4)));
    album.artist = read_credit(r, &album.contributors);
    read_relations(r, album.contributors);
    album.genre = first_name(r, "genres");
    if (const json *group = member(r, "release-group"); album.genre.empty() && group) album.genre = first_name(*group, "genres");
    if (album.genre.empty()) album.genre = first_name(r, "tags");
    // The edition: where and when it came out, under which labels and
    // catalogue numbers, with which barcode.
    album.country = text_of(r, "country");
    album.release_date = text_of(r, "date");
    album.barcode = text_of(r, "barcode");
    for (const auto &li : array_or_empty(r, "label-info")) {
        if (const json *l = member(li, "label")) join_distinct(album.label, text_of(*l, "name"));
        join_distinct(album.catalogue_number, text_of(li, "catalog-number"));
    }
    if (const json *rep = member(r, "text-representation")) album.language = text_of(*rep, "language");

    const json &media = array_or_empty(r, "media");
    if (media.empty()) return Status::error(Code::bad_record, label + ": no media");
    uint32_t index = 0;
    for (const auto &medium : media) {
        ++index;
        if (!medium.is_object()) return Status::error(Code::bad_record, label + ": medium is not an object");
        Disc disc;
        uint64_t position = index;
        number_of(medium, "position", position);
        disc.number = static_cast<uint32_t>(position);
        disc.title = text_of(medium, "title");
        disc.format = text_of(medium, "format");
        // Audio tracks, then data tracks (an enhanced CD's, say): the disc's
        // TOC covers the audio tracks only.
        uint32_t track_index = 0;
        for (const char *list : {"tracks", "data-tracks"})
            for (const auto &t : array_or_empty(medium, list)) {
                ++track_index;
                if (!t.is_object()) return Status::error(Code::bad_record, label + ": track is not an object");
                disc.tracks.push_back(track_from_json(t, track_index, album.artist));
            }
        for (const auto &d : array_or_empty(medium, "discs")) {
            Toc toc;
            toc.media_id = text_of(d, "id");
            if (!toc.media_id.empty()) toc.disc_ids.push_back(toc.media_id);
            for (const auto &o : array_or_empty(d, "offsets")) {
                if (!o.is_number_integer() || o.get<int64_t>() < 0 || o.get<int64_t>() > 1000000)
                    return Status::error(Code::bad_record, label + ": disc " + toc.media_id + " has a bad offset");
                toc.offsets.push_back(static_cast<uint32_t>(o.get<int64_t>()));
            }
            uint64_t sectors = 0;
            if (toc.offsets.empty() || !number_of(d, "sectors", sectors) || sectors > 1000000)
                return Status::error(Code::bad_record, label + ": disc " + toc.media_id + " lacks offsets or sectors");
            toc.offsets.push_back(static_cast<uint32_t>(sectors));
            for (size_t i = 1; i < toc.offsets.size(); ++i)
                if (toc.offsets[i] <= toc.offsets[i - 1])
                    return Status::error(Code::bad_record, label + ": disc " + toc.media_id + " has offsets that do not rise");
            disc.tocs.push_back(std::move(toc));
        }
        if (disc.tracks.empty()) untitled_tracks(medium, disc);
        // A medium with neither tracks nor a TOC (a DVD listed without its
        // content, say) says nothing to identify it by.
        if (!disc.tracks.empty()) album.discs.push_back(std::move(disc));
    }
    if (album.discs.empty()) return Status::error(Code::bad_record, label + ": no medium has tracks or a TOC");
    out = std::move(album);
    return {};
}

// ---- xmcd -------------------------------------------------------------------------

// A value of an xmcd file: the pieces it was written in (freedb continues
// a long value on repeated keys) joined, kept as they are when they make
// valid UTF-8, else each piece decoded by itself. Files edited by several
// programs mix UTF-8 lines with ISO-8859-1 or Windows-1252 ones, so no
// single encoding fits the whole file; and joining first keeps a UTF-8
// character that a writer cut between two pieces.
std::string decoded_value(const std::vector<std::string> &pieces) {
    std::string joined;
    for (const std::string &piece : pieces) joined += piece;
    if (valid_utf8(joined)) return joined;
    joined.clear();
    for (const std::string &piece : pieces) joined += decode_text_line(piece);
    return joined;
}

std::string trim(std::string_view s) {
    size_t b = 0, e = s.size();
    while (b < e && (s[b] == ' ' || s[b] == '\t' || s[b] == '\r')) ++b;
    while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t' || s[e - 1] == '\r')) --e;
    return std::string(s.substr(b, e - b));
}

// xmcd values may hold escapes: \n, \t, \\.
std::string unescape(const std::string &v) {
    std::string out;
    for (size_t i = 0; i < v.size(); ++i) {
        if (v[i] == '\\' && i + 1 < v.size()) {
            char n = v[++i];
            out += n == 'n' ? '\n' : n == 't' ? '\t' : n;
        } else {
            out += v[i];
        }
    }
    return out;
}

bool all_digits(std::string_view s) {
    return !s.empty() && s.size() <= 9 && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Splits a freedb title into artist and title. "Artist / Title" is the
// format's own form and is cut at its first " / ". Many discs were sent
// in as "Artist - Title" instead (by programs that took the names from
// file names, or by hand); the freedb tools read those at the dash too.
// That is safe only when the text has exactly one " - " with words on
// both sides: "Artist - Title - Live" could be cut in two places and
// " - Title" names no artist, so such a text, like one without any
// separator, stays the title with no artist. `dash` allows the second form.
void split_artist_title(const std::string &v, bool dash, std::string &artist, std::string &title) {
    artist.clear();
    title = trim(v);
    if (const size_t slash = v.find(" / "); slash != std::string::npos) {
        artist = trim(v.substr(0, slash));
        title = trim(v.substr(slash + 3));
        return;
    }
    const size_t cut = dash ? v.find(" - ") : std::string::npos;
    if (cut == std::string::npos || v.find(" - ", cut + 1) != std::string::npos) return;
    std::string before = trim(v.substr(0, cut)), after = trim(v.substr(cut + 3));
    if (fold(before).empty() || fold(after).empty()) return;
    artist = std::move(before);
    title = std::move(after);
}

// Disc artists that stand for "each track names its own".
bool various_artists(const std::string &artist) {
    const std::string key = fold(artist);
    return key == "various" || key == "various artists" || key == "va";
}

}  // namespace

Status parse_musicbrainz_release(std::string_view text, Album &out) noexcept {
    return guarded([&]() -> Status {
        json doc = json::parse(text.begin(), text.end(), nullptr, false);
        if (doc.is_discarded()) return Status::error(Code::bad_record, "not valid JSON");
        return release_from_json(doc, out);
    });
}

Status parse_xmcd(std::string_view input, Album &out) noexcept {
    return guarded([&]() -> Status {
        std::string_view text = input;
        if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);  // a UTF-8 byte order mark
        std::vector<uint32_t> offsets;
        uint64_t disc_seconds = 0;
        bool have_length = false, in_offsets = false;
        uint32_t revision = 0;
        // Raw pieces of each value; decoded once the file is read.
        std::map<std::string, std::vector<std::string>> raw_values;
        std::map<uint32_t, std::vector<std::string>> raw_titles;
        size_t pos = 0;
        uint32_t line_no = 0;
        while (pos < text.size()) {
            size_t end = text.find('\n', pos);
            if (end == std::string::npos) end = text.size();
            std::string line(text.substr(pos, end - pos));
            pos = end + 1;
            ++line_no;
            if (!line.empty() && line.back() == '\r') line.pop_back();
            if (!line.empty() && line[0] == '#') {
                std::string body = trim(std::string_view(line).substr(1));
                if (body.rfind("Track frame offsets:", 0) == 0) {
                    in_offsets = true;
                    continue;
                }
                if (in_offsets) {
                    if (all_digits(body)) {
                        offsets.push_back(static_cast<uint32_t>(std::stoul(body)));
                        continue;
                    }
                    in_offsets = false;
                }
                if (body.rfind("Disc length:", 0) == 0) {
                    std::string n = trim(std::string_view(body).substr(12));
                    size_t digits = 0;
                    while (digits < n.size() && n[digits] >= '0' && n[digits] <= '9') ++digits;
                    if (digits == 0 || digits > 6)
                        return Status::error(Code::bad_record, "line " + std::to_string(line_no) + ": bad disc length");
                    disc_seconds = std::stoull(n.substr(0, digits));
                    have_length = true;
                } else if (body.rfind("Revision:", 0) == 0) {
                    std::string n = trim(std::string_view(body).substr(9));
                    if (all_digits(n)) revision = static_cast<uint32_t>(std::stoul(n));
                }
                continue;
            }
            in_offsets = false;
            size_t eq = line.find('=');
            if (eq == std::string::npos) {
                if (!trim(line).empty())
                    return Status::error(Code::bad_record, "line " + std::to_string(line_no) + ": not KEY=value");
                continue;
            }
            std::string key = trim(std::string_view(line).substr(0, eq));
            std::string value = line.substr(eq + 1);
            if (key.rfind("TTITLE", 0) == 0) {
                std::string n = key.substr(6);
                if (!all_digits(n) || std::stoul(n) >= 100)
                    return Status::error(Code::bad_record, "line " + std::to_string(line_no) + ": bad key " + decode_text_line(key));
                raw_titles[static_cast<uint32_t>(std::stoul(n))].push_back(std::move(value));
            } else {
                raw_values[key].push_back(std::move(value));
            }
        }
        std::map<std::string, std::string> values;
        for (const auto &[key, pieces] : raw_values) values[key] = decoded_value(pieces);
        std::map<uint32_t, std::string> titles;
        for (const auto &[n, pieces] : raw_titles) titles[n] = decoded_value(pieces);
        if (!values.count("DTITLE")) return Status::error(Code::bad_record, "not an xmcd disc: no DTITLE");
        if (offsets.empty()) return Status::error(Code::bad_record, "no track frame offsets");
        if (!have_length) return Status::error(Code::bad_record, "no disc length");
        uint64_t leadout = disc_seconds * 75;
        if (leadout > 1000000 || leadout <= offsets.back())
            return Status::error(Code::bad_record, "disc length " + std::to_string(disc_seconds) +
                                                       " s does not follow the last track offset");
        for (size_t i = 1; i < offsets.size(); ++i)
            if (offsets[i] <= offsets[i - 1]) return Status::error(Code::bad_record, "track offsets do not rise");
        if (titles.size() != offsets.size() || titles.rbegin()->first + 1 != offsets.size())
            return Status::error(Code::bad_record, std::to_string(offsets.size()) + " track offsets but " +
                                                       std::to_string(titles.size()) + " track titles");

        Album album;
        album.source = "xmcd";
        album.revision = revision;
        split_artist_title(unescape(values["DTITLE"]), true, album.artist, album.title);
        if (fold(album.title).empty()) {
            album.title = album.artist;  // "Title" alone: artist unknown
            album.artist.clear();
        }
        if (fold(album.title).empty()) return Status::error(Code::bad_record, "empty DTITLE");
        std::string year = trim(values["DYEAR"]);
        if (all_digits(year)) album.year = static_cast<uint32_t>(std::stoul(year));
        album.genre = trim(values["DGENRE"]);
        // DISCID lists every freedb ID under which the disc was submitted.
        std::vector<std::string> disc_ids;
        for (std::string_view list = values["DISCID"]; !list.empty();) {
            const size_t comma = std::min(list.find(','), list.size());
            std::string id = freedb_disc_id(trim(list.substr(0, comma)));
            if (!id.empty() && std::find(disc_ids.begin(), disc_ids.end(), id) == disc_ids.end())
                disc_ids.push_back(std::move(id));
            list.remove_prefix(std::min(comma + 1, list.size()));
        }
        std::string discid = trim(values["DISCID"]);
        discid = discid.substr(0, discid.find(','));
        Disc disc;
        Toc toc;
        toc.offsets = offsets;
        toc.offsets.push_back(static_cast<uint32_t>(leadout));
        toc.media_id = discid;
        toc.disc_ids = std::move(disc_ids);
        disc.tocs.push_back(std::move(toc));
        const bool various = various_artists(album.artist);
        for (const auto &[n, raw] : titles) {
            Track track;
            track.number = n + 1;
            std::string artist;
            // A track title is cut at a dash only on a disc of various
            // artists: elsewhere "Song - Live" or "Symphony No. 5 - I.
            // Allegro" are whole titles far more often than not.
            split_artist_title(unescape(raw), various, artist, track.title);
            if (!artist.empty() && artist != album.artist) track.artist = artist;
            if (fold(track.title).empty()) track.title = "Track " + std::to_string(n + 1);
            track.duration_ms = static_cast<uint32_t>(
                ((n + 1 < offsets.size() ? offsets[n + 1] : leadout) - offsets[n]) * 1000 / 75);
            disc.tracks.push_back(std::move(track));
        }
        if (!album.artist.empty()) {
            Contributor c;
            c.name = album.artist;
            c.role = "performer";
            album.contributors.push_back(std::move(c));
        }
        album.source_id = discid;
        album.tui = "xmcd-" + (discid.empty() ? xmcd_disc_id(disc.tocs[0].offsets) : discid) + "-" +
                    hash_tag(fold(album.artist + " " + album.title));
        album.discs.push_back(std::move(disc));
        out = std::move(album);
        return {};
    });
}

Status parse_lyric_json(std::string_view text, Lyric &out) noexcept {
    return guarded([&]() -> Status {
        json doc = json::parse(text.begin(), text.end(), nullptr, false);
        if (doc.is_discarded() || !doc.is_object()) return Status::error(Code::bad_record, "not a JSON object");
        Lyric l;
        l.title = text_of(doc, "title");
        l.artist = text_of(doc, "artist");
        l.text = text_of(doc, "text");
        l.language = text_of(doc, "language");
        l.album_tui = text_of(doc, "release");
        uint64_t n = 0;
        if (number_of(doc, "disc", n)) l.disc_number = static_cast<uint32_t>(n);
        if (number_of(doc, "track", n)) l.track_number = static_cast<uint32_t>(n);
        if (fold(l.text).empty()) return Status::error(Code::bad_record, "lyric without text");
        out = std::move(l);
        return {};
    });
}

// ---- Choosing the importer -------------------------------------------------------

namespace {

bool blank_byte(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Top-level member names of the first JSON object of a text (the text
// itself, or the first element of its top-level array), read until they
// tell a release from a lyric; the rest of the text is not parsed.
class FirstObjectKeys : public json::json_sax_t {
   public:
    bool release = false;  // "media", or a "releases" list
    bool lyric = false;    // "text" without those

    bool null() override { return scalar(); }
    bool boolean(bool) override { return scalar(); }
    bool number_integer(number_integer_t) override { return scalar(); }
    bool number_unsigned(number_unsigned_t) override { return scalar(); }
    bool number_float(number_float_t, const string_t &) override { return scalar(); }
    bool string(string_t &) override { return scalar(); }
    bool binary(binary_t &) override { return scalar(); }
    bool start_object(std::size_t) override {
        ++depth_;
        if (object_depth_ == 0) object_depth_ = depth_;
        return true;
    }
    bool key(string_t &name) override {
        if (depth_ != object_depth_) return true;
        if (name == "media" || name == "releases") {
            release = true;
            return false;
        }
        if (name == "text") lyric = true;
        return true;
    }
    bool end_object() override { return depth_-- != object_depth_; }
    // Only a top-level array may hold the object.
    bool start_array(std::size_t) override { return ++depth_ == 1 && object_depth_ == 0; }
    bool end_array() override { return false; }
    bool parse_error(std::size_t, const std::string &, const nlohmann::detail::exception &) override { return false; }

   private:
    // A value outside the object (an array of numbers, say) ends the look.
    bool scalar() const { return object_depth_ != 0; }
    uint32_t depth_ = 0, object_depth_ = 0;
};

}  // namespace

ImportFormat sniff_import_format(std::string_view head) noexcept {
    if (head.substr(0, 3) == "\xEF\xBB\xBF") head.remove_prefix(3);
    while (!head.empty() && blank_byte(head.front())) head.remove_prefix(1);
    if (head.empty()) return ImportFormat::empty;
    if (head.front() == '#') {
        // "# xmcd", the first line of every freedb disc file.
        head.remove_prefix(1);
        while (!head.empty() && (head.front() == ' ' || head.front() == '\t')) head.remove_prefix(1);
        const std::string_view word = head.substr(0, 4);
        const bool xmcd = word.size() == 4 && std::equal(word.begin(), word.end(), "xmcd", [](char a, char b) {
                              return (a >= 'A' && a <= 'Z' ? static_cast<char>(a - 'A' + 'a') : a) == b;
                          });
        return xmcd && (head.size() == 4 || !std::isalnum(static_cast<unsigned char>(head[4]))) ? ImportFormat::xmcd
                                                                                                  : ImportFormat::unknown;
    }
    if (head.front() != '{' && head.front() != '[') return ImportFormat::unknown;
    FirstObjectKeys keys;
    try {
        json::sax_parse(head.begin(), head.end(), &keys, nlohmann::detail::input_format_t::json, false);
    } catch (...) {
        // Read as far as it went: the keys seen so far decide.
    }
    // JSON that names neither goes to the release importer, which says
    // what each record lacks.
    return keys.lyric && !keys.release ? ImportFormat::lyrics : ImportFormat::releases;
}

const char *import_format_name(ImportFormat format) {
    switch (format) {
        case ImportFormat::releases: return "release JSON";
        case ImportFormat::xmcd: return "xmcd disc";
        case ImportFormat::lyrics: return "lyrics";
        case ImportFormat::empty: return "empty";
        case ImportFormat::unknown: break;
    }
    return "unknown";
}

// ---- Import runs ---------------------------------------------------------------

namespace {

// One import: batches records into transactions, counts, reports progress.
class ImportRun {
   public:
    ImportRun(Catalogue::Impl &impl, ImportReport &report, const ProgressCallback &progress, uint64_t bytes_total)
        : impl_(impl), report_(report), progress_(progress) {
        state_.bytes_total = bytes_total;
    }

    Status start() { return impl_.begin(); }

    // Stores one parsed album, or records why the record was skipped.
    Status album(Status parsed, Album &album, const std::string &where) {
        ++report_.records;
        if (!parsed.ok()) return skip(where, parsed);
        bool replaced = false, unchanged = false;
        const Status st = impl_.add_album(album, &replaced, &unchanged);
        return stored(st, where, replaced, unchanged);
    }

    Status lyric(Status parsed, Lyric &lyric, const std::string &where) {
        ++report_.records;
        if (!parsed.ok()) return skip(where, parsed);
        bool replaced = false, unchanged = false;
        const Status st = impl_.add_lyric(lyric, &replaced, &unchanged);
        return stored(st, where, replaced, unchanged);
    }

    void add_bytes(uint64_t n) { state_.bytes_done += n; }
    bool stopped() const { return report_.stopped; }

    // Commits what is pending and refreshes the word list.
    Status finish() {
        Status st = impl_.flush_index();
        if (!st.ok()) {
            abandon();
            return st;
        }
        st = impl_.commit();
        if (!st.ok()) return st;
        report_progress();
        return impl_.refresh_spelling();
    }
    void abandon() {
        impl_.index_rows.clear();
        impl_.rollback();
    }

   private:
    // Counts a record the catalogue stored: new, replaced or unchanged.
    Status stored(const Status &st, const std::string &where, bool replaced, bool unchanged) {
        if (st.code == Code::no_memory) return st;
        if (!st.ok()) return skip(where, st);
        ++report_.imported;
        if (replaced) ++report_.replaced;
        if (unchanged) ++report_.unchanged;
        return tick();
    }

    Status skip(const std::string &where, const Status &why) {
        ++report_.skipped;
        if (report_.messages.size() < kMaxMessages) report_.messages.push_back(where + ": " + why.message);
        return tick();
    }

    Status tick() {
        if (report_.records % kBatch == 0 && impl_.tx_depth == 1) {
            Status st = impl_.flush_index();
            if (st.ok()) st = impl_.commit();
            if (st.ok()) st = impl_.begin();
            if (!st.ok()) return st;
        } else if (impl_.index_rows.bytes() >= Catalogue::Impl::kIndexRowsBytes) {
            if (Status st = impl_.flush_index(); !st.ok()) return st;
        }
        if (report_.records % kProgressEvery == 0) report_progress();
        return {};
    }

    void report_progress() {
        if (!progress_ || report_.stopped) return;
        state_.records_done = report_.records;
        state_.albums_imported = report_.imported;
        state_.records_skipped = report_.skipped;
        if (!progress_(state_)) report_.stopped = true;
    }

    Catalogue::Impl &impl_;
    ImportReport &report_;
    const ProgressCallback &progress_;
    ImportProgress state_;
};

bool read_file(const std::string &path, std::string &out) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

// Releases of one parsed document: a release, an array, or {"releases": [...]}.
Status releases_of_document(ImportRun &run, const json &doc, const std::string &where) {
    const json *list = nullptr;
    if (doc.is_array())
        list = &doc;
    else if (const json *r = member(doc, "releases"); r && r->is_array() && !member(doc, "media"))
        list = r;
    if (!list) {
        Album album;
        Status parsed = guarded([&] { return release_from_json(doc, album); });
        return run.album(parsed, album, where);
    }
    size_t i = 0;
    for (const auto &r : *list) {
        ++i;
        Album album;
        Status parsed = guarded([&] { return release_from_json(r, album); });
        Status st = run.album(parsed, album, where + " release " + std::to_string(i));
        if (!st.ok()) return st;
        if (run.stopped()) break;
    }
    return {};
}

// Release JSON read one record at a time (see json_stream.h): memory stays
// bounded by the largest record, whatever the file's size or shape.
Status import_musicbrainz_stream(ImportRun &run, std::istream &in, const std::string &name) {
    JsonRecordReader reader(in);
    JsonRecord record;
    Status st;
    uint64_t done = 0;
    while (st.ok() && !run.stopped() && reader.next(record)) {
        run.add_bytes(reader.bytes_read() - done);
        done = reader.bytes_read();
        const std::string where = name + ":" + std::to_string(record.line);
        Album album;
        if (record.kind == JsonRecord::Kind::bad) {
            st = run.album(Status::error(Code::bad_record, record.why), album, where);
            continue;
        }
        json doc = json::parse(record.text, nullptr, false);
        if (doc.is_discarded())
            st = run.album(Status::error(Code::bad_record, "not valid JSON"), album, where);
        else if (record.kind == JsonRecord::Kind::document)
            st = releases_of_document(run, doc, where);
        else
            st = run.album(guarded([&] { return release_from_json(doc, album); }), album, where);
    }
    return st;
}

// Lyrics records: JSON objects one per line, in an array or one after
// another, read one at a time like releases.
Status import_lyrics_stream(ImportRun &run, std::istream &in, const std::string &name) {
    JsonRecordReader reader(in);
    JsonRecord record;
    Status st;
    uint64_t done = 0;
    while (st.ok() && !run.stopped() && reader.next(record)) {
        run.add_bytes(reader.bytes_read() - done);
        done = reader.bytes_read();
        Lyric lyric;
        const Status parsed = record.kind == JsonRecord::Kind::bad ? Status::error(Code::bad_record, record.why)
                                                                   : parse_lyric_json(record.text, lyric);
        st = run.lyric(parsed, lyric, name + ":" + std::to_string(record.line));
    }
    return st;
}

Status import_xmcd_data(ImportRun &run, std::string_view text, const std::string &name) {
    Album album;
    Status parsed = parse_xmcd(text, album);
    run.add_bytes(text.size());
    return run.album(parsed, album, name);
}

// The bulk-load settings for the length of one import; the connection's
// own come back when it ends, whatever way. They change speed only, so a
// setting that cannot be made is left as it was. Index rows are
// queued meanwhile (see IndexRows); the import writes or drops them before
// it ends.
class BulkSettings {
   public:
    explicit BulkSettings(Catalogue::Impl &impl) : impl_(impl), db_(impl.db) {
        saved_ = read("PRAGMA cache_size", cache_) && read("PRAGMA wal_autocheckpoint", checkpoint_);
        if (saved_) set(-kImportCacheKiB, kImportCheckpointPages);
        impl_.defer_index = true;
    }
    ~BulkSettings() {
        impl_.defer_index = false;
        impl_.index_rows.clear();
        if (saved_) set(cache_, checkpoint_);
    }
    BulkSettings(const BulkSettings &) = delete;
    BulkSettings &operator=(const BulkSettings &) = delete;

   private:
    bool read(const char *sql, int64_t &out) {
        sqlite3_stmt *s = nullptr;
        const bool ok = sqlite3_prepare_v2(db_, sql, -1, &s, nullptr) == SQLITE_OK && sqlite3_step(s) == SQLITE_ROW;
        if (ok) out = sqlite3_column_int64(s, 0);
        sqlite3_finalize(s);
        return ok;
    }
    void set(int64_t cache, int64_t checkpoint) {
        const std::string sql = "PRAGMA cache_size = " + std::to_string(cache) +
                                "; PRAGMA wal_autocheckpoint = " + std::to_string(checkpoint) + ";";
        sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr);
    }
    Catalogue::Impl &impl_;
    sqlite3 *db_;
    bool saved_ = false;
    int64_t cache_ = 0, checkpoint_ = 0;
};

// Runs `body` inside an import run under the bulk-load settings; rolls back
// if it fails.
template <typename Body>
Status run_import(Catalogue::Impl &impl, ImportReport &report, const ProgressCallback &progress, uint64_t bytes,
                  Body &&body) {
    report = ImportReport{};
    BulkSettings bulk(impl);
    ImportRun run(impl, report, progress, bytes);
    Status st = run.start();
    if (!st.ok()) return st;
    st = guarded([&] { return body(run); });
    if (!st.ok()) {
        run.abandon();
        return st;
    }
    return run.finish();
}

uint64_t file_size(const std::string &path) {
    std::error_code ec;
    auto n = std::filesystem::file_size(path, ec);
    return ec ? 0 : static_cast<uint64_t>(n);
}

// The format of an opened file by its first kSniffBytes; the stream is
// rewound. Unknown when it cannot be read or rewound.
ImportFormat sniff_stream(std::istream &in) {
    std::string head(kSniffBytes, '\0');
    in.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<size_t>(in.gcount()));
    in.clear();
    in.seekg(0);
    return in ? sniff_import_format(head) : ImportFormat::unknown;
}

// Imports one opened file in its format; a file of no known format is one
// skipped record, so that the files beside it are still imported.
Status import_stream(ImportRun &run, std::istream &in, const std::string &path, ImportFormat format) {
    switch (format) {
        case ImportFormat::releases: return import_musicbrainz_stream(run, in, path);
        case ImportFormat::lyrics: return import_lyrics_stream(run, in, path);
        case ImportFormat::xmcd: {
            // Disc files are a few kB; the cap keeps a stray large file from
            // being read whole.
            std::string text(kMaxXmcdBytes + 1, '\0');
            in.read(text.data(), static_cast<std::streamsize>(text.size()));
            text.resize(static_cast<size_t>(in.gcount()));
            if (in.bad()) break;
            if (text.size() > kMaxXmcdBytes) {
                Album unused;
                run.add_bytes(text.size());
                return run.album(Status::error(Code::bad_record, "xmcd file larger than 1 MiB"), unused, path);
            }
            return import_xmcd_data(run, text, path);
        }
        case ImportFormat::empty:
        case ImportFormat::unknown: {
            Album unused;
            run.add_bytes(file_size(path));
            return run.album(Status::error(Code::bad_record, format == ImportFormat::empty ? kEmptyInput : kUnknownInput),
                             unused, path);
        }
    }
    Album unused;
    return run.album(Status::error(Code::io_error, "cannot read"), unused, path);
}

}  // namespace

Status Catalogue::import_musicbrainz_file(const std::string &path, ImportReport &report,
                                          const ProgressCallback &progress) noexcept {
    return guarded([&]() -> Status {
        std::ifstream in(path, std::ios::binary);
        if (!in) return Status::error(Code::io_error, "cannot read " + path);
        std::lock_guard lock(impl_->mutex);
        return run_import(*impl_, report, progress, file_size(path),
                          [&](ImportRun &run) { return import_musicbrainz_stream(run, in, path); });
    });
}

Status Catalogue::import_musicbrainz_text(std::string_view text, ImportReport &report) noexcept {
    return guarded([&]() -> Status {
        std::lock_guard lock(impl_->mutex);
        std::istringstream in{std::string(text)};
        return run_import(*impl_, report, {}, text.size(),
                          [&](ImportRun &run) { return import_musicbrainz_stream(run, in, "input"); });
    });
}

Status Catalogue::import_xmcd_file(const std::string &path, ImportReport &report) noexcept {
    return guarded([&]() -> Status {
        std::string text;
        if (!read_file(path, text)) return Status::error(Code::io_error, "cannot read " + path);
        std::lock_guard lock(impl_->mutex);
        return run_import(*impl_, report, {}, text.size(),
                          [&](ImportRun &run) { return import_xmcd_data(run, text, path); });
    });
}

Status Catalogue::import_xmcd_text(std::string_view text, ImportReport &report) noexcept {
    return guarded([&]() -> Status {
        std::lock_guard lock(impl_->mutex);
        return run_import(*impl_, report, {}, text.size(),
                          [&](ImportRun &run) { return import_xmcd_data(run, text, "input"); });
    });
}

Status Catalogue::import_lyrics_file(const std::string &path, ImportReport &report) noexcept {
    return guarded([&]() -> Status {
        std::ifstream in(path, std::ios::binary);
        if (!in) return Status::error(Code::io_error, "cannot read " + path);
        std::lock_guard lock(impl_->mutex);
        return run_import(*impl_, report, {}, file_size(path),
                          [&](ImportRun &run) { return import_lyrics_stream(run, in, path); });
    });
}

Status Catalogue::import_file(const std::string &path, ImportReport &report,
                             const ProgressCallback &progress) noexcept {
    return guarded([&]() -> Status {
        std::ifstream in(path, std::ios::binary);
        if (!in) return Status::error(Code::io_error, "cannot read " + path);
        const ImportFormat format = sniff_stream(in);
        std::lock_guard lock(impl_->mutex);
        return run_import(*impl_, report, progress, file_size(path),
                          [&](ImportRun &run) { return import_stream(run, in, path, format); });
    });
}

Status Catalogue::import_directory(const std::string &dir, ImportReport &report,
                                   const ProgressCallback &progress) noexcept {
    return guarded([&]() -> Status {
        namespace fs = std::filesystem;
        std::error_code ec;
        std::vector<std::pair<std::string, ImportFormat>> files;
        uint64_t bytes = 0;
        for (fs::recursive_directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
            if (!it->is_regular_file(ec)) continue;
            std::string name = it->path().filename().string();
            if (name.empty() || name[0] == '.') continue;
            std::string path = it->path().string();
            std::ifstream in(path, std::ios::binary);
            files.emplace_back(path, in ? sniff_stream(in) : ImportFormat::unknown);
            bytes += file_size(path);
        }
        if (ec) return Status::error(Code::io_error, "cannot list " + dir + ": " + ec.message());
        // Albums before lyrics, which may refer to them; otherwise by path.
        std::sort(files.begin(), files.end(), [](const auto &a, const auto &b) {
            const bool lyrics_a = a.second == ImportFormat::lyrics, lyrics_b = b.second == ImportFormat::lyrics;
            return lyrics_a != lyrics_b ? lyrics_b : a.first < b.first;
        });
        std::lock_guard lock(impl_->mutex);
        return run_import(*impl_, report, progress, bytes, [&](ImportRun &run) -> Status {
            for (const auto &[path, format] : files) {
                if (run.stopped()) break;
                std::ifstream in(path, std::ios::binary);
                Album unused;
                Status st = in ? import_stream(run, in, path, format)
                               : run.album(Status::error(Code::io_error, "cannot read"), unused, path);
                if (!st.ok()) return st;
            }
            return Status{};
        });
    });
}

}  // namespace catalogue
