// cantrix: identify music from the command line through the module and a
// local catalogue.
//
//   cantrix identify --toc "150 14672 27367 41225" | --discid ID | --drive [DEVICE] | --cue FILE | --log FILE
//   cantrix search --artist "..." --album "..." --title "..." [--kind albums|tracks|matches|lyrics]
//   cantrix catalogue import FILE...|DIR
//   cantrix catalogue info
//
// Exit codes are listed in kUsage below.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tool/disc/source.h"
#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_catalogue.h"
#include "zelto/zelto_host_services.h"
#include "zelto/zelto_manager.h"

namespace {

enum Exit : int {
    kOk = 0,
    kUsage = 2,
    kBadInput = 3,
    kNoCatalogue = 4,
    kLookupFailed = 5,
    kImportFailed = 6,
    kInternal = 70,
};

constexpr const char *kDefaultCatalogue = "cantrix.catalogue";

constexpr const char *kUsageText =
    "usage: cantrix [options] identify --toc \"TOC\" [--toc-format auto|offsets|musicbrainz]\n"
    "       cantrix [options] identify --discid ID | --drive [DEVICE] | --log FILE\n"
    "       cantrix [options] identify --cue FILE [--leadout FRAMES]\n"
    "       cantrix [options] search [--artist A] [--album B] [--title T] [--composer C]\n"
    "                                [--album-artist A] [--track-artist A] [--lyric L] [--fragment F]\n"
    "                                [--kind albums|tracks|matches|lyrics]\n"
    "       cantrix [options] catalogue import FILE...|DIR...\n"
    "       cantrix [options] catalogue info\n"
    "\n"
    "options:\n"
    "  --catalogue PATH   catalogue file (default: ./cantrix.catalogue; import creates it)\n"
    "  --mode local|online  lookup mode of the user (default local; the catalogue answers both)\n"
    "  --range START:SIZE results START to START+SIZE-1 (also --start N, --size N)\n"
    "  --single           ask for the single best result\n"
    "  --lang LANG        preferred language of the results (e.g. eng, deu)\n"
    "  --json             print the response as JSON\n"
    "  --progress         show lookup progress on stderr even when it is not a terminal\n"
    "  --help             this text\n"
    "\n"
    "identify takes the disc's table of contents from one source; positions are frames\n"
    "(1/75 s) as a drive counts them, the first track usually at 150:\n"
    "  --toc TOC          \"150 14672 27367 41225\" (track offsets, then the lead-out) or\n"
    "                     \"1 3 41225 150 14672 27367\" (first and last track, lead-out, offsets:\n"
    "                     the MusicBrainz form); the form is detected, or set by --toc-format\n"
    "  --discid ID        a MusicBrainz disc ID or a freedb ID stored in the catalogue\n"
    "  --drive [DEVICE]   the CD in a drive (default: libdiscid's default drive), with its\n"
    "                     MCN and ISRCs where the drive reads them\n"
    "  --cue FILE         a CUE sheet; --leadout FRAMES gives the lead-out of its audio\n"
    "                     session when the sheet does not\n"
    "  --log FILE         a rip log of EAC, XLD, whipper or cyanrip\n"
    "                     (FILE \"-\" reads the CUE sheet or log from standard input)\n"
    "identify prints the disc's MusicBrainz and freedb disc IDs before its matches.\n"
    "\n"
    "exit codes:\n"
    "  0  success; a lookup without result prints \"no match\" and also exits 0\n"
    "  2  usage error: unknown command or option, missing or malformed option value\n"
    "  3  input refused: a malformed TOC, CUE sheet or rip log (its line is named), a file\n"
    "     or drive that cannot be read, or input the module refuses (invalid text, fields\n"
    "     this kind of search does not take; its status is shown)\n"
    "  4  catalogue file missing or not readable as a catalogue\n"
    "  5  lookup failed or was aborted\n"
    "  6  import failed\n"
    "  70 internal failure (initialisation, out of memory)\n";

// ---- Options ------------------------------------------------------------------------

struct Options {
    std::string command, subcommand;
    std::vector<std::string> operands;
    std::string catalogue = kDefaultCatalogue;
    std::string mode = "local";
    // The source of identify's TOC: exactly one.
    std::optional<disc::SourceKind> source;
    std::string source_text;  // TOC text, device, file name
    std::optional<std::string> disc_id;
    std::optional<disc::TocForm> toc_form;
    std::optional<uint32_t> leadout;
    std::optional<uint32_t> start, size;
    bool single = false, json = false, progress = false, help = false;
    std::string lang;
    std::string kind = "albums";
    // Text fields in the order given: module field key, text.
    std::vector<std::pair<std::string, std::string>> fields;
};

[[noreturn]] void usage_error(const std::string &message) {
    std::fprintf(stderr, "cantrix: %s\n(try 'cantrix --help')\n", message.c_str());
    std::exit(kUsage);
}

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

Options parse(int argc, char **argv) {
    Options o;
    struct TextOption {
        const char *flag, *field;
    };
    static constexpr TextOption kText[] = {
        {"--artist", "zelto_cantrix_field_artist"},
        {"--album", "zelto_cantrix_field_album"},
        {"--title", "zelto_cantrix_field_title"},
        {"--composer", "zelto_cantrix_field_composer"},
        {"--album-artist", "zelto_cantrix_field_album_artist"},
        {"--track-artist", "zelto_cantrix_field_track_artist"},
        {"--lyric", "zelto_cantrix_field_lyric"},
        {"--fragment", "zelto_cantrix_field_fragment"},
    };
    std::vector<std::string> positional;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        std::optional<std::string> inline_value;
        if (arg.rfind("--", 0) == 0) {
            const size_t eq = arg.find('=');
            if (eq != std::string::npos) {
                inline_value = arg.substr(eq + 1);
                arg = arg.substr(0, eq);
            }
        } else {
            positional.push_back(arg);
            continue;
        }
        auto value = [&]() -> std::string {
            if (inline_value) return *inline_value;
            if (i + 1 >= argc) usage_error("option " + arg + " needs a value");
            return argv[++i];
        };
        auto flag = [&](bool &target) {
            if (inline_value) usage_error("option " + arg + " takes no value");
            target = true;
        };
        if (arg == "--") {
            for (++i; i < argc; ++i) positional.push_back(argv[i]);
            break;
        }
        if (arg == "--help") {
            flag(o.help);
        } else if (arg == "--json") {
            flag(o.json);
        } else if (arg == "--single") {
            flag(o.single);
        } else if (arg == "--progress") {
            flag(o.progress);
        } else if (arg == "--catalogue") {
            o.catalogue = value();
            if (o.catalogue.empty()) usage_error("--catalogue needs a file name");
        } else if (arg == "--mode") {
            o.mode = value();
            if (o.mode != "local" && o.mode != "online") usage_error("--mode must be local or online");
        } else if (arg == "--toc" || arg == "--discid" || arg == "--cue" || arg == "--log" || arg == "--drive") {
            if (o.source || o.disc_id) usage_error("identify takes one of --toc, --discid, --drive, --cue, --log");
            if (arg == "--discid") {
                o.disc_id = value();
                if (disc::disc_id_kind(*o.disc_id) == disc::DiscIdKind::none)
                    usage_error("--discid needs a MusicBrainz disc ID (28 characters, e.g. "
                                "xUp1F2NkfP8s8jaeFn_Av3jNEI4-) or a freedb ID (8 hex digits, e.g. 370fce16)");
                continue;
            }
            o.source = arg == "--toc"   ? disc::SourceKind::toc
                       : arg == "--cue" ? disc::SourceKind::cue
                       : arg == "--log" ? disc::SourceKind::log
                                        : disc::SourceKind::drive;
            if (*o.source != disc::SourceKind::drive) {
                o.source_text = value();
                if (o.source_text.empty() && *o.source != disc::SourceKind::toc) usage_error(arg + " needs a file name");
            } else if (inline_value) {
                o.source_text = *inline_value;
            } else if (i + 1 < argc && argv[i + 1][0] != '-') {
                o.source_text = argv[++i];  // the optional device
            }
        } else if (arg == "--toc-format") {
            o.toc_form = disc::toc_form_named(value());
            if (!o.toc_form) usage_error("--toc-format must be auto, offsets or musicbrainz");
        } else if (arg == "--leadout") {
            uint32_t n = 0;
            if (!parse_u32(value(), n) || n == 0) usage_error("--leadout needs the lead-out in frames, e.g. 41225");
            o.leadout = n;
        } else if (arg == "--lang") {
            o.lang = value();
        } else if (arg == "--kind") {
            o.kind = value();
            if (o.kind != "albums" && o.kind != "tracks" && o.kind != "matches" && o.kind != "lyrics")
                usage_error("--kind must be albums, tracks, matches or lyrics");
        } else if (arg == "--range") {
            const std::string v = value();
            const size_t colon = v.find(':');
            uint32_t s = 0, n = 0;
            if (colon == std::string::npos || !parse_u32(std::string_view(v).substr(0, colon), s) ||
                !parse_u32(std::string_view(v).substr(colon + 1), n) || s == 0 || n == 0)
                usage_error("--range needs START:SIZE with positive numbers, e.g. 1:10");
            o.start = s;
            o.size = n;
        } else if (arg == "--start" || arg == "--size") {
            uint32_t n = 0;
            if (!parse_u32(value(), n) || n == 0) usage_error(arg + " needs a positive number");
            (arg == "--start" ? o.start : o.size) = n;
        } else {
            bool known = false;
            for (const auto &t : kText)
                if (arg == t.flag) {
                    o.fields.emplace_back(t.field, value());
                    known = true;
                }
            if (!known) usage_error("unknown option '" + arg + "'");
        }
    }
    if (o.help) return o;
    if (positional.empty()) usage_error("no command given");
    o.command = positional[0];
    size_t next = 1;
    if (o.command == "catalogue") {
        if (positional.size() < 2) usage_error("catalogue needs 'import' or 'info'");
        o.subcommand = positional[1];
        next = 2;
        if (o.subcommand != "import" && o.subcommand != "info")
            usage_error("unknown catalogue command '" + o.subcommand + "'");
    } else if (o.command != "identify" && o.command != "search") {
        usage_error("unknown command '" + o.command + "'");
    }
    o.operands.assign(positional.begin() + static_cast<std::ptrdiff_t>(next), positional.end());
    if (o.command == "catalogue" && o.subcommand == "import" && o.operands.empty())
        usage_error("catalogue import needs files or directories");
    if (!(o.command == "catalogue" && o.subcommand == "import") && !o.operands.empty())
        usage_error("unexpected argument '" + o.operands[0] + "'");
    if (o.command == "identify" && !o.source && !o.disc_id)
        usage_error("identify needs one of --toc, --discid, --drive, --cue, --log");
    if (o.toc_form && o.source != disc::SourceKind::toc) usage_error("--toc-format goes with --toc");
    if (o.leadout && o.source != disc::SourceKind::cue) usage_error("--leadout goes with --cue");
    if (o.command != "identify" && (o.source || o.disc_id)) usage_error("only identify takes a TOC source");
    if (o.command == "search" && o.fields.empty())
        usage_error("search needs at least one of --artist, --album, --title, --composer, --lyric, --fragment");
    return o;
}

// ---- Status texts -------------------------------------------------------------------

const char *status_meaning(uint32_t status) {
    switch (status) {
        case ZELTO_CANTRIX_INVALID_ARG: return "invalid argument";
        case ZELTO_CANTRIX_NO_MEMORY: return "out of memory";
        case ZELTO_CANTRIX_RESULT_NO_OBJECT: return "result without object";
        case ZELTO_CANTRIX_NOT_FOUND: return "not found";
        case ZELTO_CANTRIX_BUSY: return "query busy";
        case ZELTO_CANTRIX_NOT_INITIALIZED: return "module not initialised";
        case ZELTO_CANTRIX_INIT_FAILED: return "initialisation failed";
        case ZELTO_CANTRIX_UNSUPPORTED: return "unsupported";
        case ZELTO_CANTRIX_INVALID_DATA: return "invalid data";
        case ZELTO_CANTRIX_NO_SERVICE: return "no lookup provider for this mode";
        case ZELTO_CANTRIX_INVALID_TOC: return "invalid TOC";
        case ZELTO_CANTRIX_NO_SUITABLE_INPUT: return "no suitable input for this search";
        case ZELTO_CANTRIX_RANGE_INVALID: return "invalid result range";
        case ZELTO_CANTRIX_INVALID_UTF8: return "invalid UTF-8";
        case ZELTO_CATALOGUE_ABORTED: return "lookup aborted";
        case ZELTO_CATALOGUE_INVALID_DATA: return "request data refused by the catalogue";
        case ZELTO_CATALOGUE_DATABASE: return "catalogue database failure";
    }
    return "failure";
}

// Prints a failed call with the module's status, its meaning and the last
// error message of the manager.
void report(const char *what, uint32_t status) {
    const char *message = nullptr;
    uint32_t source = 0;
    zelto_manager_errorinfo_get(&source, nullptr, &message);
    std::fprintf(stderr, "cantrix: %s: status 0x%08X (%s)", what, status, status_meaning(status));
    if (message && *message) std::fprintf(stderr, ": %s", message);
    std::fputc('\n', stderr);
}

// ---- Result walking -----------------------------------------------------------------

// Owner of one reference on a result object.
class Object {
   public:
    Object() = default;
    explicit Object(zelto_rvo_handle h) : h_(h) {}
    ~Object() { zelto_manager_rvo_release(h_); }
    Object(Object &&other) noexcept : h_(other.h_) { other.h_ = nullptr; }
    Object(const Object &) = delete;
    Object &operator=(const Object &) = delete;
    zelto_rvo_handle get() const { return h_; }
    zelto_rvo_handle *out() { return &h_; }
    explicit operator bool() const { return h_ != nullptr; }

    std::string value(const char *key) const {
        const char *v = nullptr;
        return h_ && zelto_manager_rvo_value_get(h_, key, 1, &v) == 0 && v ? v : "";
    }
    uint32_t count(const char *key) const {
        uint32_t n = 0;
        return h_ && zelto_manager_rvo_child_count(h_, key, &n) == 0 ? n : 0;
    }
    Object child(const char *key, uint32_t ordinal) const {
        Object c;
        if (h_ && zelto_manager_rvo_child_get(h_, key, ordinal, 0, c.out()) != 0) c.h_ = nullptr;
        return c;
    }
    std::string context() const {
        const char *c = nullptr;
        return h_ && zelto_manager_rvo_get_context(h_, &c) == 0 && c ? c : "";
    }
    // Display texts of the title and the artist.
    std::string title() const { return child("zelto_ctx_title!off", 1).value("zelto_val_display"); }
    std::string artist() const {
        return child("zelto_ctx_artist!", 1).child("zelto_ctx_name!off", 1).value("zelto_val_display");
    }
    std::string name() const { return child("zelto_ctx_name!off", 1).value("zelto_val_display"); }

   private:
    zelto_rvo_handle h_ = nullptr;
};

std::string json_quote(const std::string &s) {
    std::string out = "\"";
    for (unsigned char c : s) {
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

std::string duration_text(const std::string &ms) {
    uint32_t n = 0;
    if (!parse_u32(ms, n)) return "";
    const uint32_t s = (n + 500) / 1000;
    char buf[32];
    std::snprintf(buf, sizeof buf, "%u:%02u", s / 60, s % 60);
    return buf;
}

// A small JSON writer of objects with string or number members.
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
    void num(const char *k, const std::string &v) {
        uint32_t n = 0;
        if (!parse_u32(v, n)) return str(k, v);
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

void print_tracks_text(const Object &album) {
    const uint32_t n = album.count("zelto_ctx_track!");
    for (uint32_t i = 1; i <= n; ++i) {
        Object t = album.child("zelto_ctx_track!", i);
        std::printf("    %3s. %s", t.value("zelto_val_tracknumber").c_str(), t.title().c_str());
        const std::string artist = t.artist(), album_artist = album.artist();
        if (!artist.empty() && artist != album_artist) std::printf(" - %s", artist.c_str());
        const std::string d = duration_text(t.value("zelto_val_duration"));
        if (!d.empty()) std::printf(" (%s)", d.c_str());
        std::putchar('\n');
    }
}

void json_tracks(Json &j, const Object &album) {
    const uint32_t n = album.count("zelto_ctx_track!");
    j.key("tracks");
    j.open('[');
    for (uint32_t i = 1; i <= n; ++i) {
        Object t = album.child("zelto_ctx_track!", i);
        j.open('{');
        j.num("number", t.value("zelto_val_tracknumber"));
        j.str("title", t.title());
        j.str("artist", t.artist());
        j.num("duration_ms", t.value("zelto_val_duration"));
        j.str("tui", t.value("zelto_val_tui"));
        j.close('}');
    }
    j.close(']');
}

// Child key of the rows for each kind of search.
const char *row_key(const std::string &kind) {
    if (kind == "tracks") return "zelto_ctx_track!";
    if (kind == "matches") return "zelto_ctx_response_match!";
    if (kind == "lyrics") return "zelto_ctx_lyric!";
    return "zelto_ctx_album!";
}

// The disc that identify was given: its TOC, where it came from, both disc IDs.
void print_disc_text(const disc::DiscRead &d) {
    std::printf("disc: %s (%s)\n", d.toc.offsets_text().c_str(), d.origin.c_str());
    std::printf("  MusicBrainz disc ID: %s\n", d.ids.musicbrainz.empty() ? "-" : d.ids.musicbrainz.c_str());
    std::printf("  freedb disc ID:      %s\n", d.ids.freedb.empty() ? "-" : d.ids.freedb.c_str());
    if (!d.ids.note.empty()) std::printf("  (%s)\n", d.ids.note.c_str());
    if (!d.disc.mcn.empty()) std::printf("  MCN: %s\n", d.disc.mcn.c_str());
    for (const disc::Track &t : d.disc.tracks)
        if (!t.isrc.empty()) std::printf("  ISRC of track %u: %s\n", t.number, t.isrc.c_str());
    std::putchar('\n');
}

void json_disc(Json &j, const disc::DiscRead &d) {
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

void print_response(const Object &response, const std::string &kind, bool json,
                    const disc::DiscRead *disc = nullptr) {
    const char *key = row_key(kind);
    const uint32_t rows = response.count(key);
    Json j;
    if (disc && !json) print_disc_text(*disc);
    if (json) {
        j.open('{');
        if (disc) json_disc(j, *disc);
        j.str("kind", kind);
        j.num("range_start", response.value("zelto_val_rangestart"));
        j.num("range_end", response.value("zelto_val_rangeend"));
        j.num("range_count", response.value("zelto_val_rangecount"));
        j.key("results");
        j.open('[');
    } else if (rows == 0) {
        std::printf("no match\n");
        return;
    } else {
        const std::string count = response.value("zelto_val_rangecount");
        std::printf("%u result%s", rows, rows == 1 ? "" : "s");
        if (!count.empty() && count != "0")
            std::printf(" (%s to %s of %s)", response.value("zelto_val_rangestart").c_str(),
                        response.value("zelto_val_rangeend").c_str(), count.c_str());
        std::putchar('\n');
    }
    for (uint32_t i = 1; i <= rows; ++i) {
        Object row = response.child(key, i);
        const std::string context = row.context();
        const std::string score = row.value("zelto_val_txtmatchscore");
        const std::string match_type = row.value("_sdkmgr_val_match_type");
        const std::string lookup_type = row.value("_sdkmgr_val_lookup_type");
        if (json) {
            j.open('{');
            j.str("context", context);
            j.num("match_score", score);
            j.str("match_type", match_type);
            j.str("lookup_type", lookup_type);
        } else {
            std::printf("\n[%u]", i);
        }
        if (context == "zelto_ctx_album") {
            const std::string title = row.title().empty() ? row.value("zelto_val_title") : row.title();
            const std::string artist = row.artist().empty() ? row.value("zelto_val_artist") : row.artist();
            if (json) {
                j.str("title", title);
                j.str("artist", artist);
                j.num("year", row.value("zelto_val_year"));
                j.str("genre", row.value("zelto_val_genre"));
                j.num("track_count", row.value("zelto_val_albumtrackcnt"));
                j.str("tui", row.value("zelto_val_tui"));
                j.str("toc", row.value("zelto_val_toc"));
                json_tracks(j, row);
            } else {
                std::printf(" %s - %s", artist.c_str(), title.c_str());
                const std::string year = row.value("zelto_val_year");
                if (!year.empty()) std::printf(" (%s)", year.c_str());
                std::putchar('\n');
                const std::string genre = row.value("zelto_val_genre");
                std::printf("    tracks: %s", row.value("zelto_val_albumtrackcnt").c_str());
                if (!genre.empty()) std::printf("  genre: %s", genre.c_str());
                std::printf("  id: %s\n", row.value("zelto_val_tui").c_str());
                print_tracks_text(row);
            }
        } else if (context == "zelto_ctx_track") {
            if (json) {
                j.num("number", row.value("zelto_val_tracknumber"));
                j.str("title", row.title());
                j.str("artist", row.artist());
                j.num("duration_ms", row.value("zelto_val_duration"));
                j.str("tui", row.value("zelto_val_tui"));
            } else {
                std::printf(" %s - %s", row.artist().c_str(), row.title().c_str());
                const std::string d = duration_text(row.value("zelto_val_duration"));
                if (!d.empty()) std::printf(" (%s)", d.c_str());
                std::putchar('\n');
            }
        } else if (context == "zelto_ctx_contributor") {
            if (json) {
                j.str("name", row.name());
                j.str("collaboration", row.value("zelto_val_collab_result"));
            } else {
                std::printf(" contributor: %s\n", row.name().c_str());
            }
        } else if (context == "zelto_ctx_lyric") {
            if (json) {
                j.str("title", row.title());
                j.str("artist", row.artist());
                j.str("text", row.value("zelto_val_lyric_text"));
            } else {
                std::printf(" lyric: %s - %s\n", row.artist().c_str(), row.title().c_str());
                std::string text = row.value("zelto_val_lyric_text");
                if (text.size() > 200) text = text.substr(0, 200) + "...";
                std::printf("    %s\n", text.c_str());
            }
        }
        if (json) {
            j.close('}');
        } else {
            if (!score.empty()) std::printf("    match score: %s\n", score.c_str());
            if (!match_type.empty() || !lookup_type.empty())
                std::printf("    match type: %s  lookup type: %s\n", match_type.empty() ? "-" : match_type.c_str(),
                            lookup_type.empty() ? "-" : lookup_type.c_str());
        }
    }
    if (json) {
        j.close(']');
        j.close('}');
        std::printf("%s\n", j.text().c_str());
    }
}

// ---- Progress -----------------------------------------------------------------------

struct LookupProgress {
    bool show = false;
};

void lookup_status(void *data, zelto_cantrix_query_handle, uint32_t status, uint32_t value1, uint32_t value2,
                   uint8_t *) {
    auto *p = static_cast<LookupProgress *>(data);
    if (!p->show || status == ZELTO_CANTRIX_STATUS_RELEASE) return;
    const char *what = status == 10   ? "started"
                       : status == 20 ? "searching"
                       : status == 30 ? "found"
                       : status == 40 ? "building"
                       : status == 50 ? "answer ready"
                       : status == 100 ? "done"
                                       : "working";
    if (status == 30 || status == 40)
        std::fprintf(stderr, "\r\033[Klookup: %s %u/%u", what, value1, value2);
    else
        std::fprintf(stderr, "\r\033[Klookup: %s", what);
    if (status == 100) std::fputc('\n', stderr);
    std::fflush(stderr);
}

struct ImportProgress {
    bool show = false;
    int last_percent = -1;
};

void import_progress(void *data, uint64_t done, uint64_t total, uint64_t albums, uint8_t *) {
    auto *p = static_cast<ImportProgress *>(data);
    if (!p->show || total == 0) return;
    const int percent = static_cast<int>(done * 100 / total);
    if (percent == p->last_percent) return;
    p->last_percent = percent;
    constexpr int kWidth = 30;
    const int filled = percent * kWidth / 100;
    std::string bar(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(kWidth - filled), '.');
    std::fprintf(stderr, "\r[%s] %3d%%  %llu albums", bar.c_str(), percent, static_cast<unsigned long long>(albums));
    std::fflush(stderr);
}

// ---- Session ------------------------------------------------------------------------

// Module, user and catalogue for one run, released in reverse order.
class Session {
   public:
    ~Session() {
        zelto_cantrix_query_release(query_);
        if (user_) zelto_manager_user_release(user_);
        if (initialised_) zelto_cantrix_shutdown();
        zelto_catalogue_close(catalogue_);
    }

    int open_catalogue(const std::string &path, bool create) {
        uint32_t s = zelto_catalogue_open(path.c_str(), create ? ZELTO_CATALOGUE_OPEN_CREATE : 0, &catalogue_);
        if (s == ZELTO_CATALOGUE_NO_FILE) {
            std::fprintf(stderr,
                         "cantrix: catalogue '%s' does not exist (create it with 'cantrix catalogue import', "
                         "or name one with --catalogue)\n",
                         path.c_str());
            return kNoCatalogue;
        }
        if (s != 0) {
            std::fprintf(stderr, "cantrix: cannot open catalogue '%s': status 0x%08X (not a catalogue file?)\n",
                         path.c_str(), s);
            return kNoCatalogue;
        }
        return kOk;
    }

    int start(const Options &o, bool show_progress) {
        progress_.show = show_progress;
        uint32_t s = zelto_cantrix_initialize(zelto_manager_get_table());
        if (s != 0) {
            report("cannot initialise the module", s);
            return kInternal;
        }
        initialised_ = true;
        if ((s = zelto_catalogue_install(catalogue_, 0)) != 0) {
            std::fprintf(stderr, "cantrix: cannot install the catalogue provider: 0x%08X\n", s);
            return kInternal;
        }
        if ((s = zelto_manager_user_create("cantrix", &user_)) != 0 ||
            (s = zelto_manager_user_option_set(
                 user_, "zelto_useroption_lookup_mode",
                 o.mode == "local" ? "zelto_lookupmode_local" : "zelto_lookupmode_online")) != 0) {
            std::fprintf(stderr, "cantrix: cannot create the user: 0x%08X\n", s);
            return kInternal;
        }
        if ((s = zelto_cantrix_query_create(user_, lookup_status, &progress_, &query_)) != 0) {
            report("cannot create a query", s);
            return kInternal;
        }
        auto option = [&](const char *key, const std::string &value) -> bool {
            uint32_t st = zelto_cantrix_query_option_set(query_, key, value.c_str());
            if (st != 0) report((std::string("option ") + key).c_str(), st);
            return st == 0;
        };
        if (o.single && !option("zelto_cantrix_single_result", "1")) return kBadInput;
        if (!o.lang.empty() && !option("zelto_cantrix_preferred_lang", o.lang)) return kBadInput;
        if (o.start && !option("zelto_cantrix_result_range_start", std::to_string(*o.start))) return kBadInput;
        if (o.size && !option("zelto_cantrix_result_range_size", std::to_string(*o.size))) return kBadInput;
        return kOk;
    }

    zelto_catalogue *catalogue() const { return catalogue_; }
    zelto_cantrix_query_handle query() const { return query_; }

   private:
    zelto_catalogue *catalogue_ = nullptr;
    bool initialised_ = false;
    zelto_user *user_ = nullptr;
    zelto_cantrix_query_handle query_ = nullptr;
    LookupProgress progress_;
};

int run_find(Session &session, const Options &o, const disc::DiscRead *disc = nullptr) {
    uint32_t (*find)(zelto_cantrix_query_handle, zelto_rvo_handle *) = zelto_cantrix_query_find_albums;
    if (o.kind == "tracks") find = zelto_cantrix_query_find_tracks;
    if (o.kind == "matches") find = zelto_cantrix_query_find_matches;
    if (o.kind == "lyrics") find = zelto_cantrix_query_find_lyrics;
    Object response;
    const uint32_t s = find(session.query(), response.out());
    if (s == ZELTO_CANTRIX_NO_SUITABLE_INPUT || s == ZELTO_CANTRIX_UNSUPPORTED) {
        // The module refuses fields that this kind of find does not search by
        // (a match search by lyric title alone, say).
        report(("cannot search " + o.kind + " by the given fields").c_str(), s);
        return kBadInput;
    }
    if (s != 0) {
        report("lookup failed", s);
        return kLookupFailed;
    }
    print_response(response, o.kind, o.json, disc);
    return kOk;
}

// Identifies one disc by its audio session's TOC, passed offset by offset so
// that a first track at frame 0 goes in too.
int identify_disc(const Options &o, const disc::DiscRead &d) {
    Session session;
    if (int rc = session.open_catalogue(o.catalogue, false)) return rc;
    if (int rc = session.start(o, o.progress || isatty(STDERR_FILENO))) return rc;
    std::vector<uint32_t> offsets = d.toc.offsets;
    offsets.push_back(d.toc.leadout);
    for (uint32_t offset : offsets) {
        const uint32_t s = zelto_cantrix_query_add_toc_offset(session.query(), offset);
        if (s != 0) {
            report(("TOC \"" + d.toc.offsets_text() + "\" refused").c_str(), s);
            return kBadInput;
        }
    }
    return run_find(session, o, &d);
}

// The discs of a disc ID, each by the TOC the catalogue holds for it.
int identify_disc_id(const Options &o) {
    std::vector<std::string> tocs;
    {
        Session session;
        if (int rc = session.open_catalogue(o.catalogue, false)) return rc;
        uint32_t count = 0;
        const uint32_t s = zelto_catalogue_find_disc_id(session.catalogue(), o.disc_id->c_str(), &count);
        if (s != 0) {
            std::fprintf(stderr, "cantrix: disc ID lookup failed: 0x%08X: %s\n", s,
                         zelto_catalogue_last_message(session.catalogue()));
            return kLookupFailed;
        }
        for (uint32_t i = 0; i < count; ++i)
            if (const char *toc = zelto_catalogue_disc_id_toc(session.catalogue(), i)) tocs.emplace_back(toc);
    }
    if (tocs.empty()) {
        if (o.json)
            std::printf("{\"disc_id\":%s,\"kind\":\"albums\",\"results\":[]}\n", json_quote(*o.disc_id).c_str());
        else
            std::printf("no match\n");
        return kOk;
    }
    // A freedb ID may belong to several TOCs: each is identified in turn.
    int rc = kOk;
    for (size_t i = 0; i < tocs.size() && rc == kOk; ++i) {
        auto d = disc::read_stored_toc(tocs[i], "catalogue, disc ID " + *o.disc_id);
        if (!d) {
            std::fprintf(stderr, "cantrix: stored TOC \"%s\": %s\n", tocs[i].c_str(), d.error().message.c_str());
            return kInternal;
        }
        if (i > 0 && !o.json) std::putchar('\n');
        rc = identify_disc(o, *d);
    }
    return rc;
}

int identify(const Options &o) {
    if (o.disc_id) return identify_disc_id(o);
    disc::SourceRequest request;
    request.kind = *o.source;
    request.text = o.source_text;
    request.form = o.toc_form.value_or(disc::TocForm::automatic);
    request.leadout = o.leadout;
    auto d = disc::read_source(request);
    if (!d) {
        std::fprintf(stderr, "cantrix: %s\n", d.error().message.c_str());
        return kBadInput;
    }
    for (const std::string &w : d->warnings) std::fprintf(stderr, "cantrix: warning: %s\n", w.c_str());
    return identify_disc(o, *d);
}

int search(const Options &o) {
    Session session;
    if (int rc = session.open_catalogue(o.catalogue, false)) return rc;
    if (int rc = session.start(o, o.progress || isatty(STDERR_FILENO))) return rc;
    for (const auto &[field, text] : o.fields) {
        const uint32_t s = zelto_cantrix_query_set_text(session.query(), field.c_str(), text.c_str());
        if (s != 0) {
            report(("text \"" + text + "\"").c_str(), s);
            return kBadInput;
        }
    }
    return run_find(session, o);
}

int catalogue_import(const Options &o) {
    Session session;
    if (int rc = session.open_catalogue(o.catalogue, true)) return rc;
    ImportProgress progress;
    progress.show = o.progress || isatty(STDERR_FILENO);
    int rc = kOk;
    uint64_t imported = 0, skipped = 0, records = 0;
    for (const auto &path : o.operands) {
        zelto_catalogue_import_report r{};
        progress.last_percent = -1;
        const uint32_t s = zelto_catalogue_import(session.catalogue(), path.c_str(), import_progress, &progress, &r);
        if (progress.show) std::fputc('\n', stderr);
        for (uint32_t i = 0; i < 5; ++i)
            if (const char *m = zelto_catalogue_import_message(session.catalogue(), i))
                std::fprintf(stderr, "cantrix: %s: skipped: %s\n", path.c_str(), m);
        if (s != 0) {
            std::fprintf(stderr, "cantrix: import of '%s' failed: 0x%08X: %s\n", path.c_str(), s,
                         zelto_catalogue_last_message(session.catalogue()));
            rc = kImportFailed;
            continue;
        }
        imported += r.imported;
        skipped += r.skipped;
        records += r.records;
    }
    std::printf("imported %llu of %llu records into %s (%llu skipped)\n", static_cast<unsigned long long>(imported),
                static_cast<unsigned long long>(records), o.catalogue.c_str(),
                static_cast<unsigned long long>(skipped));
    return rc;
}

int catalogue_info(const Options &o) {
    Session session;
    if (int rc = session.open_catalogue(o.catalogue, false)) return rc;
    zelto_catalogue_info info{};
    const uint32_t s = zelto_catalogue_get_info(session.catalogue(), &info);
    if (s != 0) {
        std::fprintf(stderr, "cantrix: cannot read catalogue '%s': 0x%08X\n", o.catalogue.c_str(), s);
        return kNoCatalogue;
    }
    auto u = [](uint64_t v) { return static_cast<unsigned long long>(v); };
    if (o.json) {
        std::printf("{\"catalogue\":%s,\"albums\":%llu,\"discs\":%llu,\"tocs\":%llu,\"tracks\":%llu,"
                    "\"artists\":%llu,\"lyrics\":%llu}\n",
                    json_quote(o.catalogue).c_str(), u(info.albums), u(info.discs), u(info.tocs), u(info.tracks),
                    u(info.artists), u(info.lyrics));
    } else {
        std::printf("catalogue %s\n  albums:  %llu\n  discs:   %llu\n  TOCs:    %llu\n  tracks:  %llu\n"
                    "  artists: %llu\n  lyrics:  %llu\n",
                    o.catalogue.c_str(), u(info.albums), u(info.discs), u(info.tocs), u(info.tracks),
                    u(info.artists), u(info.lyrics));
    }
    return kOk;
}

}  // namespace

int main(int argc, char **argv) {
    const Options o = parse(argc, argv);
    if (o.help) {
        std::fputs(kUsageText, stdout);
        return kOk;
    }
    if (o.command == "identify") return identify(o);
    if (o.command == "search") return search(o);
    if (o.subcommand == "import") return catalogue_import(o);
    return catalogue_info(o);
}
