// The TOC of a disc from the log of a ripper.
#include "tool/disc/rip_log.h"

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <vector>

#include "tool/disc/text_lines.h"

namespace disc {

const char *ripper_name(Ripper ripper) {
    switch (ripper) {
        case Ripper::eac: return "EAC";
        case Ripper::xld: return "XLD";
        case Ripper::whipper: return "whipper";
        case Ripper::cyanrip: return "cyanrip";
    }
    return "?";
}

namespace {

// One track of a log's TOC.
struct Row {
    size_t line = 0;
    uint32_t number = 0;
    std::optional<uint32_t> start, end;             // sectors
    std::optional<uint32_t> start_time, length_time;  // frames, where the log shows times
    bool data = false;
};

// The text after "Key:" when a line (already trimmed) starts with it.
std::optional<std::string_view> value_of(std::string_view line, std::string_view key) {
    if (!starts_with_nocase(line, key)) return std::nullopt;
    return trim(line.substr(key.size()));
}

Expected<uint32_t> number_at(std::string_view text, size_t line, const char *what) {
    uint32_t n = 0;
    if (!parse_number(trim(text), n))
        return Error{line, std::string(what) + " \"" + std::string(trim(text).substr(0, 24)) + "\" is not a number"};
    return n;
}

Expected<uint32_t> time_at(std::string_view text, size_t line) {
    auto t = parse_msf(trim(text));
    if (!t) return Error{line, t.error().message};
    return *t;
}

// A "Key: value" line that fills one field of a row: a sector or a time.
struct Field {
    const char *key;
    std::optional<uint32_t> Row::*member;
    bool time;
};

// Fills the field whose key starts the (trimmed) line, if one does.
std::optional<Error> read_field(std::string_view t, size_t line, Row &row, std::initializer_list<Field> fields) {
    for (const Field &f : fields) {
        auto v = value_of(t, f.key);
        if (!v) continue;
        auto n = f.time ? time_at(*v, line) : number_at(*v, line, f.key);
        if (!n) return n.error();
        row.*f.member = *n;
        return std::nullopt;
    }
    return std::nullopt;
}

std::string msf(uint32_t frames) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%u:%02u.%02u", frames / 75 / 60, frames / 75 % 60, frames % 75);
    return buf;
}

// The disc from the rows of a log, with every check that a log's TOC allows.
Expected<Disc> disc_of(const std::vector<Row> &rows, Disc disc) {
    if (rows.empty()) return Error{0, "the log lists no tracks"};
    bool second_session = false;
    for (size_t i = 0; i < rows.size(); ++i) {
        const Row &r = rows[i];
        const std::string name = "track " + std::to_string(r.number);
        if (!r.start || !r.end) return Error{r.line, name + " lacks its start or end sector"};
        if (r.number < 1 || r.number > kMaxTrackNumber) return Error{r.line, "track number " + std::to_string(r.number) + " is not 1 to 99"};
        if (*r.end < *r.start) return Error{r.line, name + " ends (sector " + std::to_string(*r.end) + ") before it starts (" + std::to_string(*r.start) + ")"};
        if (*r.end + 1 + kPregapFrames > kMaxFrames) return Error{r.line, name + " ends beyond 100 minutes"};
        if (r.start_time && *r.start_time != *r.start)
            return Error{r.line, name + ": start time " + msf(*r.start_time) + " is not its start sector " + std::to_string(*r.start)};
        if (r.length_time && *r.length_time != *r.end - *r.start + 1)
            return Error{r.line, name + ": length " + msf(*r.length_time) + " does not match sectors " +
                                     std::to_string(*r.start) + " to " + std::to_string(*r.end)};
        if (i > 0) {
            const Row &p = rows[i - 1];
            if (r.number != p.number + 1)
                return Error{r.line, name + " follows track " + std::to_string(p.number) +
                                         (r.number > p.number ? ": a track is missing" : "")};
            if (*r.start <= *p.end)
                return Error{r.line, name + " starts at sector " + std::to_string(*r.start) + ", before track " +
                                         std::to_string(p.number) + " ends (" + std::to_string(*p.end) + ")"};
            const uint32_t gap = *r.start - *p.end - 1;
            if (gap >= kSessionGapFrames) {
                second_session = true;
            } else if (gap > 0) {
                return Error{r.line, name + " starts " + std::to_string(gap) + " sectors after track " +
                                         std::to_string(p.number) + " ends: tracks of a session adjoin, and a new "
                                         "session starts at least 11400 sectors later"};
            }
        }
        disc.tracks.push_back(Track{r.number, *r.start + kPregapFrames, r.data || second_session, {}});
    }
    disc.leadout = *rows.back().end + 1 + kPregapFrames;
    return checked(std::move(disc));
}

bool all_dashes(std::string_view s) {
    s = trim(s);
    return s.size() >= 10 && s.find_first_not_of('-') == std::string_view::npos;
}

// The table of EAC and XLD: a header of at least four "|", a line of dashes,
// then one row per track up to a blank line.
Expected<std::vector<Row>> read_table(const std::vector<std::string> &lines, Disc &disc) {
    std::vector<Row> rows;
    size_t tables = 0;
    for (size_t i = 1; i < lines.size(); ++i) {
        if (!all_dashes(lines[i]) || std::count(lines[i - 1].begin(), lines[i - 1].end(), '|') < 4) continue;
        if (++tables > 1) continue;
        for (size_t j = i + 1; j < lines.size() && !trim(lines[j]).empty(); ++j) {
            const size_t line = j + 1;
            std::vector<std::string_view> f;
            std::string_view rest = lines[j];
            for (size_t bar; (bar = rest.find('|')) != std::string_view::npos; rest.remove_prefix(bar + 1))
                f.push_back(rest.substr(0, bar));
            f.push_back(rest);
            if (f.size() != 5) return Error{line, "not a row of the TOC table (track | start | length | start sector | end sector)"};
            Row r;
            r.line = line;
            auto number = number_at(f[0], line, "track number");
            auto start_time = time_at(f[1], line);
            auto length_time = time_at(f[2], line);
            auto start = number_at(f[3], line, "start sector");
            auto end = number_at(f[4], line, "end sector");
            for (const Error *e : {number ? nullptr : &number.error(), start_time ? nullptr : &start_time.error(),
                                   length_time ? nullptr : &length_time.error(), start ? nullptr : &start.error(),
                                   end ? nullptr : &end.error()})
                if (e) return *e;
            r.number = *number;
            r.start_time = *start_time;
            r.length_time = *length_time;
            r.start = *start;
            r.end = *end;
            rows.push_back(r);
        }
        if (rows.empty()) return Error{i + 2, "the TOC table has no rows"};
    }
    if (tables == 0) return Error{0, "no TOC table (Track | Start | Length | Start sector | End sector) in the log"};
    if (tables > 1)
        disc.warnings.push_back("the log holds " + std::to_string(tables) +
                                " TOC tables (several logs in one file?); the first is used");
    return rows;
}

// The stated freedb ID of XLD: the last part of "AccurateRip Summary (DiscID: a-b-c)".
void read_xld_ids(const std::vector<std::string> &lines, Disc &disc) {
    for (const std::string &l : lines) {
        const size_t at = l.find("DiscID: ");
        if (at == std::string::npos || l.find("AccurateRip") == std::string::npos) continue;
        std::string_view id = std::string_view(l).substr(at + 8);
        id = id.substr(0, id.find(')'));
        const size_t dash = id.rfind('-');
        if (dash != std::string_view::npos) disc.stated_freedb = std::string(trim(id.substr(dash + 1)));
        return;
    }
}

size_t indent_of(std::string_view s) {
    size_t n = 0;
    while (n < s.size() && s[n] == ' ') ++n;
    return n;
}

Expected<std::vector<Row>> read_whipper(const std::vector<std::string> &lines, Disc &disc) {
    std::vector<Row> rows;
    bool in_toc = false;
    for (size_t i = 0; i < lines.size(); ++i) {
        const size_t line = i + 1;
        const std::string_view t = trim(lines[i]);
        if (t.empty()) continue;
        const size_t indent = indent_of(lines[i]);
        if (auto v = value_of(t, "CDDB Disc ID:")) disc.stated_freedb = std::string(*v);
        if (auto v = value_of(t, "MusicBrainz Disc ID:")) disc.stated_musicbrainz = std::string(*v);
        if (indent == 0) {
            if (in_toc) break;
            in_toc = t == "TOC:";
            continue;
        }
        if (!in_toc) continue;
        if (indent == 2 && t.back() == ':') {
            auto n = number_at(t.substr(0, t.size() - 1), line, "track number");
            if (!n) return n.error();
            rows.push_back(Row{line, *n, {}, {}, {}, {}, false});
            continue;
        }
        if (rows.empty()) return Error{line, "a TOC entry before the first track number"};
        if (auto e = read_field(t, line, rows.back(),
                                {{"Start sector:", &Row::start, false},
                                 {"End sector:", &Row::end, false},
                                 {"Start:", &Row::start_time, true},
                                 {"Length:", &Row::length_time, true}}))
            return *e;
    }
    if (!in_toc && rows.empty()) return Error{0, "no \"TOC:\" section in the whipper log"};
    return rows;
}

Expected<std::vector<Row>> read_cyanrip(const std::vector<std::string> &lines, Disc &disc) {
    std::vector<Row> rows;
    std::optional<uint32_t> disc_tracks;
    size_t disc_tracks_line = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        const size_t line = i + 1;
        const std::string_view t = trim(lines[i]);
        if (auto v = value_of(t, "DiscID:")) disc.stated_musicbrainz = std::string(*v);
        if (auto v = value_of(t, "CDDB ID:")) disc.stated_freedb = std::string(*v);
        if (auto v = value_of(t, "Disc tracks:")) {
            auto n = number_at(*v, line, "track count");
            if (!n) return n.error();
            disc_tracks = *n;
            disc_tracks_line = line;
        }
        if (indent_of(lines[i]) == 0 && starts_with_nocase(t, "Track ")) {
            const std::string_view rest = trim(t.substr(6));
            auto n = number_at(rest.substr(0, rest.find_first_of(" :")), line, "track number");
            if (!n) return n.error();
            Row r{line, *n, {}, {}, {}, {}, false};
            for (size_t k = 0; k + 4 <= rest.size(); ++k) r.data = r.data || equals_nocase(rest.substr(k, 4), "data");
            rows.push_back(r);
            continue;
        }
        if (rows.empty()) continue;
        if (auto e = read_field(t, line, rows.back(), {{"Start LSN:", &Row::start, false}, {"End LSN:", &Row::end, false}}))
            return *e;
    }
    if (disc_tracks && rows.size() != *disc_tracks)
        return Error{disc_tracks_line, "the disc has " + std::to_string(*disc_tracks) + " tracks but the log shows " +
                                           std::to_string(rows.size()) + " (a partial rip?): the TOC needs them all"};
    return rows;
}

std::optional<Ripper> ripper_of(const std::vector<std::string> &lines) {
    for (size_t i = 0; i < lines.size() && i < 5; ++i) {
        const std::string_view t = trim(lines[i]);
        if (starts_with_nocase(t, "Exact Audio Copy") || starts_with_nocase(t, "EAC ")) return Ripper::eac;
        if (starts_with_nocase(t, "X Lossless Decoder")) return Ripper::xld;
        if (starts_with_nocase(t, "Log created by: whipper") || starts_with_nocase(t, "Logfile created by: morituri") ||
            starts_with_nocase(t, "Log created by: morituri"))
            return Ripper::whipper;
        if (starts_with_nocase(t, "cyanrip")) return Ripper::cyanrip;
    }
    return std::nullopt;
}

}  // namespace

Expected<RipLog> read_rip_log(std::string_view bytes) {
    auto lines = text_lines(bytes);
    if (!lines) return lines.error();
    auto ripper = ripper_of(*lines);
    if (!ripper) return Error{1, "not a log of EAC, XLD, whipper or cyanrip"};
    RipLog log;
    log.ripper = *ripper;
    Expected<std::vector<Row>> rows = std::vector<Row>{};
    switch (*ripper) {
        case Ripper::eac: rows = read_table(*lines, log.disc); break;
        case Ripper::xld:
            rows = read_table(*lines, log.disc);
            read_xld_ids(*lines, log.disc);
            break;
        case Ripper::whipper: rows = read_whipper(*lines, log.disc); break;
        case Ripper::cyanrip: rows = read_cyanrip(*lines, log.disc); break;
    }
    if (!rows) return rows.error();
    auto disc = disc_of(*rows, std::move(log.disc));
    if (!disc) return disc.error();
    log.disc = std::move(*disc);
    return log;
}

}  // namespace disc
