// cantrix: identify music from the command line through the module and a
// local catalogue.
//
//   cantrix identify --toc "150 14672 27367 41225" | --discid ID | --drive [DEVICE] | --cue FILE | --log FILE
//   cantrix identify --audio FILE...
//   cantrix search --artist "..." --album "..." --title "..." [--kind albums|tracks|matches|lyrics]
//   cantrix catalogue import FILE...|DIR
//   cantrix catalogue fingerprint FILE...|DIR...
//   cantrix catalogue info
//   cantrix catalogue check
//
// Exit codes are listed in kUsage below.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tool/disc/source.h"
#include "tool/results.h"
#ifdef CANTRIX_HAVE_AUDIO
#include "tool/audio/decoder.h"
#include "tool/audio/fingerprinter.h"
#include "tool/audio/library.h"
#include "tool/audio/scan.h"
#endif
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

// Help texts: the synopsis of every command, each command's own help, the
// options all commands share, the exit codes.
constexpr const char *kSynopsis =
    "usage: cantrix [options] identify --toc \"TOC\" [--toc-format auto|offsets|musicbrainz]\n"
    "       cantrix [options] identify --discid ID | --drive [DEVICE] | --log FILE\n"
    "       cantrix [options] identify --cue FILE [--leadout FRAMES]\n"
    "       cantrix [options] identify --audio FILE...\n"
    "       cantrix [options] search [--artist A] [--album B] [--title T] [--composer C]\n"
    "                                [--album-artist A] [--track-artist A] [--lyric L] [--fragment F]\n"
    "                                [--kind albums|tracks|matches|lyrics]\n"
    "       cantrix [options] catalogue import [--verbose] FILE...|DIR...\n"
    "       cantrix [options] catalogue fingerprint FILE...|DIR... [--verbose]\n"
    "       cantrix [options] catalogue info | check | list | remove ID\n"
    "       cantrix COMMAND --help | --help | --version\n";

constexpr const char *kOptionsHelp =
    "\n"
    "options:\n"
    "  --catalogue PATH   catalogue file (default: ./cantrix.catalogue; import creates it)\n"
    "  --mode local|online  lookup mode of the user (default local; the catalogue answers both)\n"
    "  --range START:SIZE results START to START+SIZE-1 (also --start N, --size N)\n"
    "  --single           ask for the single best result\n"
    "  --lang LANG        preferred language of the results (e.g. eng, deu)\n"
    "  --json             print the response as JSON\n"
    "  --progress         show progress on stderr even when it is not a terminal\n"
    "  --verbose          catalogue import: every skipped record with its reason;\n"
    "                     catalogue fingerprint: one line per file\n"
    "  -h, --help         help; after a command, that command's help\n"
    "  --version          the versions of the tool and the library\n";

constexpr const char *kIdentifyHelp =
    "usage: cantrix [options] identify --toc \"TOC\" [--toc-format auto|offsets|musicbrainz]\n"
    "       cantrix [options] identify --discid ID | --drive [DEVICE] | --log FILE\n"
    "       cantrix [options] identify --cue FILE [--leadout FRAMES]\n"
    "       cantrix [options] identify --audio FILE...\n"
    "\n"
    "identify takes the disc's table of contents (TOC) from one source. A TOC counts\n"
    "frames of 1/75 s as a drive does: the first track of a plain disc starts at 150\n"
    "(the 2-second pregap), each further number is where the next track starts, and\n"
    "the last number is the lead-out, where the last track ends. A disc of 3 tracks\n"
    "of 3:13.47, 2:49.20 and 3:04.58 (minutes:seconds.frames) is\n"
    "  150  150+14522=14672  14672+12695=27367  27367+13858=41225  ->  \"150 14672 27367 41225\"\n"
    "  --toc TOC          \"150 14672 27367 41225\" (track offsets, then the lead-out) or\n"
    "                     \"1 3 41225 150 14672 27367\" (first and last track, lead-out, offsets:\n"
    "                     the MusicBrainz form); the form is detected, or set by --toc-format;\n"
    "                     a first track at 0 (sector numbers) is taken as it is\n"
    "  --discid ID        a MusicBrainz disc ID or a freedb ID stored in the catalogue\n"
    "  --drive [DEVICE]   the CD in a drive (default: libdiscid's default drive), with its\n"
    "                     MCN and ISRCs where the drive reads them\n"
    "  --cue FILE         a CUE sheet; the lengths of its audio files give the lead-out,\n"
    "                     or --leadout FRAMES when the files are not at hand\n"
    "  --log FILE         a rip log of EAC, XLD, whipper or cyanrip\n"
    "                     (FILE \"-\" reads the CUE sheet or log from standard input)\n"
    "  --audio FILE...    audio files (WAV, FLAC, MP3, AAC/M4A, Ogg Vorbis, Opus, ...),\n"
    "                     whole songs or excerpts of 20 s or more, each fingerprinted and\n"
    "                     looked up among the fingerprints of the catalogue; prints the\n"
    "                     album, the matched track, the fingerprint score (0..100), where\n"
    "                     in the track the audio starts and how much was compared\n"
    "identify prints the disc's MusicBrainz and freedb disc IDs before its matches; a\n"
    "match on a release of several discs names the disc and lists that disc's tracks.\n";

constexpr const char *kSearchHelp =
    "usage: cantrix [options] search [--artist A] [--album B] [--title T] [--composer C]\n"
    "                                [--album-artist A] [--track-artist A] [--lyric L] [--fragment F]\n"
    "                                [--kind albums|tracks|matches|lyrics]\n"
    "\n"
    "search finds albums (default), tracks, albums and contributors (matches) or lyrics\n"
    "by text; spelling, case and accents need not be exact. Each field needs letters or\n"
    "digits. --range START:SIZE pages through the results (\"11 to 20 of 37\").\n";

constexpr const char *kCatalogueHelp =
    "usage: cantrix [options] catalogue import [--verbose] FILE...|DIR...\n"
    "       cantrix [options] catalogue fingerprint FILE...|DIR... [--verbose]\n"
    "       cantrix [options] catalogue info\n"
    "       cantrix [options] catalogue check\n"
    "       cantrix [options] catalogue list [--range START:SIZE]\n"
    "       cantrix [options] catalogue remove ID\n"
    "\n"
    "  import   MusicBrainz release JSON, xmcd disc files, lyrics records, or folders of\n"
    "           them, each read as its content shows whatever its name (a file of none\n"
    "           of these is skipped); says how many records were new, replaced or\n"
    "           unchanged and why any\n"
    "           were skipped (the first few, all with --verbose); exit 6 when nothing\n"
    "           could be imported\n"
    "  info     how many albums, discs, TOCs, tracks, artists and lyrics the file holds\n"
    "  check    SQLite's integrity check of the file\n"
    "  list     the albums, by artist and title, paged by --range (default 1:50)\n"
    "  remove   removes the album of that ID (as list, search and identify show it)\n"
    "  --json   prints import, info and list as JSON\n"
    "\n"
    "catalogue fingerprint decodes, fingerprints and stores every audio file named or\n"
    "found below a folder, linked to a catalogue track by the MusicBrainz identifiers\n"
    "of its tags, else by a text search of its album, artist and title tags (score\n"
    "80 or more), else to a track made from its tags. Files are known by their\n"
    "content: a second run stores nothing again. Files that cannot be decoded are\n"
    "reported and skipped. A progress bar with the rate and the time left is shown\n"
    "on a terminal.\n";

constexpr const char *kExitHelp =
    "\n"
    "exit codes:\n"
    "  0  success; a lookup without result prints \"no match\" and also exits 0\n"
    "  2  usage error: unknown command or option, missing or malformed option value\n"
    "  3  input refused: a malformed TOC, CUE sheet or rip log (its line is named), a file\n"
    "     or drive that cannot be read (identify --audio: any of its files; catalogue\n"
    "     fingerprint: a path that does not exist), a search text without letters or\n"
    "     digits, or input the module refuses (invalid text, fields this kind of search\n"
    "     does not take; its status is shown)\n"
    "  4  catalogue file missing or damaged or not readable as a catalogue\n"
    "  5  lookup failed or was aborted\n"
    "  6  import failed, or nothing at all was imported\n"
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
    std::vector<std::string> audio;  // identify --audio FILE...
    bool single = false, json = false, progress = false, help = false, version = false, verbose = false;
    std::string lang;
    std::string kind = "albums";
    // Text fields in the order given: module field key, text.
    std::vector<std::pair<std::string, std::string>> fields;
};

[[noreturn]] void usage_error(const std::string &message) {
    std::fprintf(stderr, "cantrix: %s\n(try 'cantrix --help')\n", message.c_str());
    std::exit(kUsage);
}

#ifndef CANTRIX_HAVE_AUDIO
constexpr const char *kNoAudio = "this cantrix was built without audio file support (no FFmpeg)";

int no_audio() {
    std::fprintf(stderr, "cantrix: %s\n", kNoAudio);
    return kUsage;
}
#endif

constexpr const char *kOneSource = "identify takes one of --toc, --discid, --drive, --cue, --log, --audio";

Options parse(int argc, char **argv) {
    Options o;
    struct TextOption {
        const char *flag, *field;
    };
    static constexpr TextOption kText[] = {
        {"--artist", ZELTO_CANTRIX_FIELD_ARTIST},
        {"--album", ZELTO_CANTRIX_FIELD_ALBUM},
        {"--title", ZELTO_CANTRIX_FIELD_TITLE},
        {"--composer", ZELTO_CANTRIX_FIELD_COMPOSER},
        {"--album-artist", ZELTO_CANTRIX_FIELD_ALBUM_ARTIST},
        {"--track-artist", ZELTO_CANTRIX_FIELD_TRACK_ARTIST},
        {"--lyric", ZELTO_CANTRIX_FIELD_LYRIC},
        {"--fragment", ZELTO_CANTRIX_FIELD_FRAGMENT},
    };
    std::vector<std::string> positional;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        std::optional<std::string> inline_value;
        if (arg == "-h") arg = "--help";
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
        } else if (arg == "--version") {
            flag(o.version);
        } else if (arg == "--verbose") {
            flag(o.verbose);
        } else if (arg == "--json") {
            flag(o.json);
        } else if (arg == "--single") {
            flag(o.single);
        } else if (arg == "--progress") {
            flag(o.progress);
        } else if (arg == "--verbose") {
            flag(o.verbose);
        } else if (arg == "--audio") {
            if (o.source || o.disc_id) usage_error(kOneSource);
            o.audio.push_back(value());
            if (o.audio.back().empty()) usage_error("--audio needs a file name");
        } else if (arg == "--catalogue") {
            o.catalogue = value();
            if (o.catalogue.empty()) usage_error("--catalogue needs a file name");
        } else if (arg == "--mode") {
            o.mode = value();
            if (o.mode != "local" && o.mode != "online") usage_error("--mode must be local or online");
        } else if (arg == "--toc" || arg == "--discid" || arg == "--cue" || arg == "--log" || arg == "--drive") {
            if (o.source || o.disc_id || !o.audio.empty()) usage_error(kOneSource);
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
            if (!tool::parse_u32(value(), n) || n == 0) usage_error("--leadout needs the lead-out in frames, e.g. 41225");
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
            if (colon == std::string::npos || !tool::parse_u32(std::string_view(v).substr(0, colon), s) ||
                !tool::parse_u32(std::string_view(v).substr(colon + 1), n) || s == 0 || n == 0)
                usage_error("--range needs START:SIZE with positive numbers, e.g. 1:10");
            o.start = s;
            o.size = n;
        } else if (arg == "--start" || arg == "--size") {
            uint32_t n = 0;
            if (!tool::parse_u32(value(), n) || n == 0) usage_error(arg + " needs a positive number");
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
    if (o.help || o.version) {
        // The command, if any, chooses the help text.
        if (!positional.empty()) o.command = positional[0];
        return o;
    }
    if (positional.empty()) usage_error("no command given");
    o.command = positional[0];
    size_t next = 1;
    if (o.command == "catalogue") {
        if (positional.size() < 2)
            usage_error("catalogue needs 'import', 'fingerprint', 'info', 'check', 'list' or 'remove'");
        o.subcommand = positional[1];
        next = 2;
        if (o.subcommand != "import" && o.subcommand != "fingerprint" && o.subcommand != "info" &&
            o.subcommand != "check" && o.subcommand != "list" && o.subcommand != "remove")
            usage_error("unknown catalogue command '" + o.subcommand + "'");
    } else if (o.command != "identify" && o.command != "search") {
        usage_error("unknown command '" + o.command + "'");
    }
    o.operands.assign(positional.begin() + static_cast<std::ptrdiff_t>(next), positional.end());
    const bool takes_paths = o.command == "catalogue" && (o.subcommand == "import" || o.subcommand == "fingerprint");
    if (takes_paths && o.operands.empty()) usage_error("catalogue " + o.subcommand + " needs files or directories");
    if (o.command == "catalogue" && o.subcommand == "remove" && o.operands.size() != 1)
        usage_error("catalogue remove needs the ID of one album (as list, search and identify show it)");
    // identify --audio A B C: the files after the first are operands.
    if (o.command == "identify" && !o.audio.empty()) {
        o.audio.insert(o.audio.end(), o.operands.begin(), o.operands.end());
        o.operands.clear();
    }
    if (!takes_paths && o.subcommand != "remove" && !o.operands.empty())
        usage_error("unexpected argument '" + o.operands[0] + "'");
    if (o.command == "identify" && !o.source && !o.disc_id && o.audio.empty())
        usage_error("identify needs one of --toc, --discid, --drive, --cue, --log, --audio");
    if (o.command != "identify" && !o.audio.empty()) usage_error("only identify takes --audio");
    if (o.verbose && !takes_paths) usage_error("--verbose goes with catalogue import and catalogue fingerprint");
    if (o.toc_form && o.source != disc::SourceKind::toc) usage_error("--toc-format goes with --toc");
    if (o.leadout && o.source != disc::SourceKind::cue) usage_error("--leadout goes with --cue");
    if (o.command != "identify" && (o.source || o.disc_id)) usage_error("only identify takes a TOC source");
    if (o.command == "search" && o.fields.empty())
        usage_error("search needs at least one of --artist, --album, --title, --composer, --lyric, --fragment");
    return o;
}

// Prints a failed call with the module's status, its meaning and the last
// error message of the manager.
void report(const char *what, uint32_t status) {
    const char *message = nullptr;
    uint32_t source = 0;
    zelto_manager_errorinfo_get(&source, nullptr, &message);
    std::fprintf(stderr, "cantrix: %s: status 0x%08X (%s)", what, status, zelto_manager_status_text(status));
    if (message && *message) std::fprintf(stderr, ": %s", message);
    std::fputc('\n', stderr);
}

// ---- Progress -----------------------------------------------------------------------

struct LookupProgress {
    bool show = false;
    // Hits the first lookup of a find found in all (the provider's count,
    // before the range cut it to a page); a completing lookup after it does
    // not count.
    std::optional<uint32_t> found_total;
};

void lookup_status(void *data, zelto_cantrix_query_handle, uint32_t status, uint32_t value1, uint32_t value2,
                   uint8_t *) {
    auto *p = static_cast<LookupProgress *>(data);
    if (status == ZELTO_CANTRIX_STATUS_FOUND && !p->found_total) p->found_total = value1;
    if (!p->show || status == ZELTO_CANTRIX_STATUS_RELEASE) return;
    const char *what = status == ZELTO_CANTRIX_STATUS_STARTED    ? "started"
                       : status == ZELTO_CANTRIX_STATUS_SENT     ? "searching"
                       : status == ZELTO_CANTRIX_STATUS_FOUND    ? "found"
                       : status == ZELTO_CANTRIX_STATUS_BUILDING ? "building"
                       : status == ZELTO_CANTRIX_STATUS_READY    ? "answer ready"
                       : status == ZELTO_CANTRIX_STATUS_DONE     ? "done"
                                                                 : "working";
    if (status == ZELTO_CANTRIX_STATUS_FOUND || status == ZELTO_CANTRIX_STATUS_BUILDING)
        std::fprintf(stderr, "\r\033[Klookup: %s %u/%u", what, value1, value2);
    else
        std::fprintf(stderr, "\r\033[Klookup: %s", what);
    if (status == ZELTO_CANTRIX_STATUS_DONE) std::fputc('\n', stderr);
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

    // Commands that only read open the catalogue read-only (it may be
    // another user's file, or on a read-only mount); imports create it.
    enum class Access { read, write, create };
    int open_catalogue(const std::string &path, Access access) {
        const uint32_t flags = access == Access::read     ? ZELTO_CATALOGUE_OPEN_READONLY
                               : access == Access::create ? ZELTO_CATALOGUE_OPEN_CREATE
                                                          : 0u;
        uint32_t s = zelto_catalogue_open(path.c_str(), flags, &catalogue_);
        if (s == ZELTO_CATALOGUE_NO_FILE) {
            std::fprintf(stderr,
                         "cantrix: catalogue '%s' does not exist (create it with 'cantrix catalogue import', "
                         "or name one with --catalogue)\n",
                         path.c_str());
            return kNoCatalogue;
        }
        if (s == ZELTO_CATALOGUE_DATABASE) {
            std::fprintf(stderr,
                         "cantrix: catalogue '%s' is damaged or not a catalogue file; nothing was read from it or "
                         "written to it ('cantrix catalogue check' shows what is wrong)\n",
                         path.c_str());
            return kNoCatalogue;
        }
        if (s == ZELTO_CATALOGUE_NOT_CATALOGUE) {
            std::error_code ec;
            const bool empty = std::filesystem::file_size(path, ec) == 0 && !ec;
            std::fprintf(stderr,
                         "cantrix: '%s' is not a catalogue (%s); it was left unchanged (name a catalogue with "
                         "--catalogue)\n",
                                                  path.c_str(), empty ? "an empty file" : "another program's database");
            return kNoCatalogue;
        }
        if (s != 0) {
            std::fprintf(stderr, "cantrix: cannot open catalogue '%s': status 0x%08X\n",
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
            (s = zelto_manager_user_option_set(user_, ZELTO_USEROPTION_LOOKUP_MODE,
                                               o.mode == "local" ? ZELTO_LOOKUPMODE_LOCAL : ZELTO_LOOKUPMODE_ONLINE)) !=
                0) {
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
        if (o.single && !option(ZELTO_CANTRIX_OPTION_SINGLE_RESULT, "1")) return kBadInput;
        if (!o.lang.empty() && !option(ZELTO_CANTRIX_OPTION_PREFERRED_LANG, o.lang)) return kBadInput;
        if (o.start && !option(ZELTO_CANTRIX_OPTION_RANGE_START, std::to_string(*o.start))) return kBadInput;
        if (o.size && !option(ZELTO_CANTRIX_OPTION_RANGE_SIZE, std::to_string(*o.size))) return kBadInput;
        return kOk;
    }

    zelto_catalogue *catalogue() const { return catalogue_; }
    zelto_user *user() const { return user_; }
    zelto_cantrix_query_handle query() const { return query_; }
    std::optional<uint32_t> found_total() const { return progress_.found_total; }
    void forget_found_total() { progress_.found_total.reset(); }

   private:
    zelto_catalogue *catalogue_ = nullptr;
    bool initialised_ = false;
    zelto_user *user_ = nullptr;
    zelto_cantrix_query_handle query_ = nullptr;
    LookupProgress progress_;
};

// After a failed call on the catalogue: when the catalogue met damage in
// its file, says so and gives the exit code of a damaged catalogue, else 0.
int damaged(const Session &session, const std::string &path) {
    const char *why = zelto_catalogue_last_message(session.catalogue());
    const size_t n = std::strlen(ZELTO_CATALOGUE_DAMAGED_TEXT);
    if (!why || std::strncmp(why, ZELTO_CATALOGUE_DAMAGED_TEXT, n) != 0) return 0;
    std::fprintf(stderr,
                 "cantrix: catalogue '%s' is damaged (%s); nothing was written to it ('cantrix catalogue check' "
                 "shows what is wrong)\n",
                 path.c_str(), why);
    return kNoCatalogue;
}

// Runs the query's find; on success `answer` holds what came back.
int find_answer(Session &session, const Options &o, tool::Answer &answer) {
    uint32_t (*find)(zelto_cantrix_query_handle, zelto_rvo_handle *) = zelto_cantrix_query_find_albums;
    if (o.kind == "tracks") find = zelto_cantrix_query_find_tracks;
    if (o.kind == "matches") find = zelto_cantrix_query_find_matches;
    if (o.kind == "lyrics") find = zelto_cantrix_query_find_lyrics;
    tool::Object response;
    session.forget_found_total();
    const uint32_t s = find(session.query(), response.out());
    if (s == ZELTO_CANTRIX_NO_SUITABLE_INPUT || s == ZELTO_CANTRIX_UNSUPPORTED) {
        // The module refuses fields that this kind of find does not search by
        // (a match search by lyric title alone, say).
        report(("cannot search " + o.kind + " by the given fields").c_str(), s);
        return kBadInput;
    }
    if (s != 0) {
        if (int rc = damaged(session, o.catalogue)) return rc;
        report("lookup failed", s);
        return kLookupFailed;
    }
    answer = tool::read_answer(response, o.kind);
    // Album, track and match responses number their rows from 1 whatever
    // page was asked; the real place comes from the asked start and the
    // provider's count of all hits.
    if (const auto total = session.found_total(); total && !answer.rows.empty()) {
        const uint32_t first = o.start.value_or(1);
        answer.range_start = std::to_string(first);
        answer.range_end = std::to_string(first + answer.rows.size() - 1);
        answer.range_count = std::to_string(std::max<uint64_t>(*total, first + answer.rows.size() - 1));
    }
    return kOk;
}

void print_answer(const Options &o, const tool::Answer &answer, const disc::DiscRead *disc = nullptr,
                  const tool::AudioRead *audio = nullptr) {
    if (o.json)
        tool::print_json(answer, disc, audio);
    else
        tool::print_text(answer, disc, audio);
}

// Identifies one disc by its audio session's TOC, passed offset by offset so
// that a first track at frame 0 goes in too. A typed TOC that matches
// nothing may be an Enhanced CD's whole TOC: it is tried once more with its
// last track taken as the data track.
int identify_disc(const Options &o, const disc::DiscRead &d, bool typed = false) {
    tool::Answer answer;
    {
        Session session;
        if (int rc = session.open_catalogue(o.catalogue, Session::Access::read)) return rc;
        if (int rc = session.start(o, o.progress || isatty(STDERR_FILENO))) return rc;
        std::vector<uint32_t> offsets = d.toc.offsets;
        offsets.push_back(d.toc.leadout);
        for (uint32_t offset : offsets) {
            const uint32_t s = zelto_cantrix_query_add_toc_offset(session.query(), offset);
            if (s != 0) {
                report(("TOC \"" + d.toc.offsets_text() + "\" refused").c_str(), s);
                std::fprintf(stderr, "  the library takes at most 100 rising numbers: the %s\n",
                             disc::kOffsetsFormHelp);
                return kBadInput;
            }
        }
        if (int rc = find_answer(session, o, answer)) return rc;
    }
    if (answer.rows.empty() && typed)
        if (auto enhanced = disc::as_enhanced_cd(d)) {
            std::fprintf(stderr, "cantrix: no match for the TOC as given; trying track %u as the data track of an "
                                 "Enhanced CD (audio lead-out %u)\n",
                         enhanced->disc.tracks.back().number, enhanced->toc.leadout);
            return identify_disc(o, *enhanced);
        }
    print_answer(o, answer, &d);
    return kOk;
}

// The discs of a disc ID, each by the TOC the catalogue holds for it.
int identify_disc_id(const Options &o) {
    std::vector<std::string> tocs;
    {
        Session session;
        if (int rc = session.open_catalogue(o.catalogue, Session::Access::read)) return rc;
        uint32_t count = 0;
        const uint32_t s = zelto_catalogue_find_disc_id(session.catalogue(), o.disc_id->c_str(), &count);
        if (s != 0) {
            if (int rc = damaged(session, o.catalogue)) return rc;
            std::fprintf(stderr, "cantrix: disc ID lookup failed: 0x%08X: %s\n", s,
                         zelto_catalogue_last_message(session.catalogue()));
            return kLookupFailed;
        }
        for (uint32_t i = 0; i < count; ++i)
            if (const char *toc = zelto_catalogue_disc_id_toc(session.catalogue(), i)) tocs.emplace_back(toc);
    }
    if (tocs.empty()) {
        if (o.json)
            std::printf("{\"disc_id\":%s,\"kind\":\"albums\",\"results\":[]}\n", tool::json_quote(*o.disc_id).c_str());
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

#ifdef CANTRIX_HAVE_AUDIO
// Each file is fingerprinted through the module's fingerprint input and
// looked up with the query's find operation; a file that cannot be read is
// reported and the others go on.
int identify_audio(const Options &o) {
    Session session;
    if (int rc = session.open_catalogue(o.catalogue, Session::Access::read)) return rc;
    if (int rc = session.start(o, o.progress || isatty(STDERR_FILENO))) return rc;
    audio::Limits limits;
    limits.max_seconds = audio::kIdentifySeconds;
    int rc = kOk;
    bool first = true;
    for (const std::string &path : o.audio) {
        const audio::Fingerprinted f = audio::fingerprint_file(session.query(), path, limits);
        if (!f.decode.ok) {
            std::fprintf(stderr, "cantrix: %s: %s\n", path.c_str(), f.decode.error.c_str());
            rc = kBadInput;
            continue;
        }
        tool::AudioRead read;
        read.path = path;
        read.codec = f.decode.info.codec;
        read.seconds = f.decode.info.seconds;
        read.sample_rate = f.decode.info.source_rate;
        read.channels = f.decode.info.source_channels;
        if (!first && !o.json) std::putchar('\n');
        first = false;
        tool::Answer answer;
        if (int found = find_answer(session, o, answer)) return found;
        print_answer(o, answer, nullptr, &read);
        std::fflush(stdout);
    }
    return rc;
}

// Progress bar on stderr (a terminal or --progress), file lines with
// --verbose, then a summary line or JSON object.
int catalogue_fingerprint(const Options &o) {
    Session session;
    if (int rc = session.open_catalogue(o.catalogue, Session::Access::create)) return rc;
    if (int rc = session.start(o, false)) return rc;
    const bool bar = o.progress || isatty(STDERR_FILENO);
    bool bar_shown = false;
    auto clear_bar = [&] {
        if (bar_shown) std::fputs("\r\033[K", stderr);
        bar_shown = false;
    };
    audio::LibraryCallbacks callbacks;
    callbacks.progress = [&](size_t done, size_t total, double elapsed, double audio_seconds) {
        if (!bar) return;
        std::fprintf(stderr, "\r\033[K%s", audio::progress_line(done, total, elapsed, audio_seconds).c_str());
        std::fflush(stderr);
        bar_shown = true;
    };
    callbacks.file_done = [&](const audio::FileOutcome &f) {
        using K = audio::FileOutcome::Kind;
        using L = audio::FileOutcome::Link;
        if (f.kind == K::skipped) {
            clear_bar();
            std::fprintf(o.verbose && !o.json ? stdout : stderr, "%s%s: %s\n",
                         o.verbose && !o.json ? "skipped " : "cantrix: skipped ", f.path.c_str(), f.reason.c_str());
            return;
        }
        if (!o.verbose || o.json) return;
        clear_bar();
        if (f.kind == K::unchanged) {
            std::printf("unchanged %s\n", f.path.c_str());
            return;
        }
        std::printf("%s %s: %s - %s (%s, track %u)", f.kind == K::added ? "added" : "same audio", f.path.c_str(),
                    f.artist.c_str(), f.title.c_str(), f.album.c_str(), f.track_number);
        switch (f.link) {
            case L::musicbrainz: std::printf(", linked by MusicBrainz id"); break;
            case L::text: std::printf(", linked by text search (score %u)", f.text_score); break;
            case L::tags: std::printf(", linked by its tags"); break;
            case L::created: std::printf(", new track%s", f.new_album ? " in a new album" : ""); break;
            case L::none: std::printf(", as the stored file of the same audio"); break;
        }
        std::putchar('\n');
        std::fflush(stdout);
    };
    const audio::LibrarySummary s = audio::fingerprint_library(session.catalogue(), session.user(), session.query(),
                                                               o.operands, audio::Limits{}, callbacks);
    clear_bar();
    for (const auto &[path, why] : s.missing) std::fprintf(stderr, "cantrix: %s: %s\n", path.c_str(), why.c_str());
    const double speed = s.elapsed > 0 ? s.audio_seconds / s.elapsed : 0;
    if (o.json) {
        std::string skipped;
        for (const audio::FileOutcome &f : s.outcomes) {
            if (f.kind != audio::FileOutcome::Kind::skipped) continue;
            if (!skipped.empty()) skipped += ',';
            skipped += "{\"path\":" + tool::json_quote(f.path) + ",\"reason\":" + tool::json_quote(f.reason) + "}";
        }
        std::printf("{\"catalogue\":%s,\"files\":%zu,\"added\":%zu,\"same_audio\":%zu,\"unchanged\":%zu,"
                    "\"skipped\":%zu,\"by_musicbrainz\":%zu,\"by_text\":%zu,\"by_tags\":%zu,\"new_tracks\":%zu,"
                    "\"new_albums\":%zu,\"audio_seconds\":%.1f,\"elapsed_seconds\":%.2f,\"skipped_files\":[%s]}\n",
                    tool::json_quote(o.catalogue).c_str(), s.files, s.added, s.same_audio, s.unchanged, s.skipped,
                    s.by_musicbrainz, s.by_text, s.by_tags, s.new_tracks, s.new_albums, s.audio_seconds, s.elapsed,
                    skipped.c_str());
    } else {
        std::printf("%zu file%s: %zu added", s.files, s.files == 1 ? "" : "s", s.added);
        if (s.same_audio) std::printf(", %zu same audio as a stored file", s.same_audio);
        if (s.unchanged) std::printf(", %zu unchanged", s.unchanged);
        std::printf(", %zu skipped\n", s.skipped);
        if (s.added)
            std::printf("  linked: %zu by MusicBrainz id, %zu by text search, %zu by tags; %zu new track%s, "
                        "%zu new album%s\n",
                        s.by_musicbrainz, s.by_text, s.by_tags, s.new_tracks, s.new_tracks == 1 ? "" : "s",
                        s.new_albums, s.new_albums == 1 ? "" : "s");
        if (s.audio_seconds > 0)
            std::printf("  %s of audio in %.1f s (%.0fx real time)\n",
                        tool::clock_text(std::to_string(static_cast<int64_t>(s.audio_seconds * 1000))).c_str(),
                        s.elapsed, speed);
    }
    return s.missing.empty() ? kOk : kBadInput;
}
#endif

int identify(const Options &o) {
    if (!o.audio.empty()) {
#ifdef CANTRIX_HAVE_AUDIO
        return identify_audio(o);
#else
        return no_audio();
#endif
    }
    if (o.disc_id) return identify_disc_id(o);
    disc::SourceRequest request;
    request.kind = *o.source;
    request.text = o.source_text;
    request.form = o.toc_form.value_or(disc::TocForm::automatic);
    request.leadout = o.leadout;
#ifdef CANTRIX_HAVE_AUDIO
    // A CUE sheet's audio files give the lead-out (and the start of each
    // further FILE) by their lengths, named relative to the sheet.
    if (request.kind == disc::SourceKind::cue) {
        const size_t slash = o.source_text.rfind('/');
        const std::string dir = o.source_text == "-" || slash == std::string::npos ? "" : o.source_text.substr(0, slash + 1);
        const bool quiet = o.leadout.has_value();
        request.file_length = [dir, quiet](const std::string &name) -> std::optional<uint32_t> {
            std::string why;
            const std::string path = !name.empty() && name[0] == '/' ? name : dir + name;
            auto frames = audio::cd_frames(path, why);
            if (!frames && !quiet) std::fprintf(stderr, "cantrix: %s: %s\n", path.c_str(), why.c_str());
            return frames;
        };
    }
#endif
    auto d = disc::read_source(request);
    if (!d) {
        std::fprintf(stderr, "cantrix: %s\n", d.error().message.c_str());
        return kBadInput;
    }
    for (const std::string &w : d->warnings)
        std::fprintf(stderr, "cantrix: warning: %s\n", tool::terminal_safe(w).c_str());
    return identify_disc(o, *d, request.kind == disc::SourceKind::toc);
}

int search(const Options &o) {
    for (const auto &[field, text] : o.fields)
        if (!tool::has_word_characters(text)) {
            std::fprintf(stderr, "cantrix: search text \"%s\" has no letters or digits to search for\n",
                         tool::terminal_safe(text).c_str());
            return kBadInput;
        }
    Session session;
    if (int rc = session.open_catalogue(o.catalogue, Session::Access::read)) return rc;
    if (int rc = session.start(o, o.progress || isatty(STDERR_FILENO))) return rc;
    for (const auto &[field, text] : o.fields) {
        const uint32_t s = zelto_cantrix_query_set_text(session.query(), field.c_str(), text.c_str());
        if (s != 0) {
            report(("text \"" + text + "\"").c_str(), s);
            return kBadInput;
        }
    }
    tool::Answer answer;
    if (int rc = find_answer(session, o, answer)) return rc;
    print_answer(o, answer);
    return kOk;
}

// Why a record of an input was skipped.
struct Skip {
    std::string input, reason;
};

int catalogue_import(const Options &o) {
    Session session;
    if (int rc = session.open_catalogue(o.catalogue, Session::Access::create)) return rc;
    ImportProgress progress;
    progress.show = !o.json && (o.progress || isatty(STDERR_FILENO));
    bool failed = false;
    zelto_catalogue_import_report total{};
    std::vector<Skip> skips;     // the reasons the store kept ("FILE:LINE: why"), all inputs
    std::vector<Skip> failures;  // inputs that could not be imported at all
    for (const auto &path : o.operands) {
        zelto_catalogue_import_report r{};
        progress.last_percent = -1;
        const uint32_t s = zelto_catalogue_import(session.catalogue(), path.c_str(), import_progress, &progress, &r);
        if (progress.show) std::fputc('\n', stderr);
        for (uint32_t i = 0;; ++i) {
            const char *m = zelto_catalogue_import_message(session.catalogue(), i);
            if (!m) break;
            skips.push_back({path, m});
        }
        if (s != 0) {
            char status[16];
            std::snprintf(status, sizeof status, "0x%08X", s);
            failures.push_back({path, std::string(status) + ": " + zelto_catalogue_last_message(session.catalogue())});
            failed = true;
            continue;
        }
        total.records += r.records;
        total.imported += r.imported;
        total.replaced += r.replaced;
        total.unchanged += r.unchanged;
        total.skipped += r.skipped;
    }
    auto u = [](uint64_t v) { return static_cast<unsigned long long>(v); };
    // Replaced albums count those of unchanged content apart.
    const uint64_t added = total.imported - total.replaced, changed = total.replaced - total.unchanged;
    if (o.json) {
        std::string out = "{\"catalogue\":" + tool::json_quote(o.catalogue);
        const std::pair<const char *, uint64_t> counts[] = {{"records", total.records}, {"imported", total.imported},
                                                            {"new", added},           {"replaced", changed},
                                                            {"unchanged", total.unchanged},
                                                            {"skipped", total.skipped}};
        for (const auto &[key, n] : counts) out += ",\"" + std::string(key) + "\":" + std::to_string(n);
        for (const auto &[key, list] : {std::pair{"skips", &skips}, std::pair{"failures", &failures}}) {
            out += ",\"" + std::string(key) + "\":[";
            for (size_t i = 0; i < list->size(); ++i)
                out += (i ? ",{\"input\":" : "{\"input\":") + tool::json_quote((*list)[i].input) +
                       ",\"reason\":" + tool::json_quote((*list)[i].reason) + "}";
            out += "]";
        }
        std::printf("%s}\n", out.c_str());
    } else {
        // The first few reasons, or all of them with --verbose.
        constexpr size_t kFirstFew = 5;
        const size_t shown = o.verbose ? skips.size() : std::min(skips.size(), kFirstFew);
        for (size_t i = 0; i < shown; ++i)
            std::fprintf(stderr, "cantrix: skipped: %s\n", tool::terminal_safe(skips[i].reason).c_str());
        if (total.skipped > shown)
            std::fprintf(stderr, "cantrix: ... and %llu more skipped%s\n", u(total.skipped - shown),
                         o.verbose ? " (reasons not kept)" : " (--verbose lists them all)");
        for (const Skip &f : failures)
            std::fprintf(stderr, "cantrix: import of '%s' failed: %s\n", tool::terminal_safe(f.input).c_str(),
                         tool::terminal_safe(f.reason).c_str());
        std::printf("imported %llu of %llu records into %s (%llu new, %llu replaced, %llu unchanged, %llu skipped)\n",
                    u(total.imported), u(total.records), o.catalogue.c_str(), u(added), u(changed), u(total.unchanged),
                    u(total.skipped));
    }
    if (total.imported == 0 && !o.json) std::fprintf(stderr, "cantrix: nothing was imported\n");
    return failed || total.imported == 0 ? kImportFailed : kOk;
}

int catalogue_info(const Options &o) {
    Session session;
    if (int rc = session.open_catalogue(o.catalogue, Session::Access::read)) return rc;
    zelto_catalogue_info info{};
    const uint32_t s = zelto_catalogue_get_info(session.catalogue(), &info);
    if (s != 0) {
        if (int rc = damaged(session, o.catalogue)) return rc;
        std::fprintf(stderr, "cantrix: cannot read catalogue '%s': 0x%08X\n", o.catalogue.c_str(), s);
        return kNoCatalogue;
    }
    zelto_catalogue_fingerprint_info fp{};
    if (zelto_catalogue_fingerprint_counts(session.catalogue(), &fp) != 0) {
        if (int rc = damaged(session, o.catalogue)) return rc;
        std::fprintf(stderr, "cantrix: cannot read catalogue '%s': %s\n", o.catalogue.c_str(),
                     zelto_catalogue_last_message(session.catalogue()));
        return kNoCatalogue;
    }
    auto u = [](uint64_t v) { return static_cast<unsigned long long>(v); };
    if (o.json) {
        std::printf(
            "{\"catalogue\":%s,\"albums\":%llu,\"discs\":%llu,\"tocs\":%llu,\"tracks\":%llu,"
            "\"artists\":%llu,\"lyrics\":%llu,\"fingerprints\":%llu,\"audio_files\":%llu}\n",
            tool::json_quote(o.catalogue).c_str(), u(info.albums), u(info.discs), u(info.tocs), u(info.tracks),
            u(info.artists), u(info.lyrics), u(fp.fingerprints), u(fp.files));
    } else {
        std::printf("catalogue %s\n  albums:  %llu\n  discs:   %llu\n  TOCs:    %llu\n  tracks:  %llu\n"
                    "  artists: %llu\n  lyrics:  %llu\n  fingerprints: %llu (of %llu audio files)\n",
                    o.catalogue.c_str(), u(info.albums), u(info.discs), u(info.tocs), u(info.tracks),
                    u(info.artists), u(info.lyrics), u(fp.fingerprints), u(fp.files));
    }
    return kOk;
}

// One album of a list in JSON.
std::string album_entry_json(const zelto_catalogue_album_entry &e) {
    return "{\"id\":" + tool::json_quote(e.tui) + ",\"artist\":" + tool::json_quote(e.artist) +
           ",\"title\":" + tool::json_quote(e.title) + (e.year ? ",\"year\":" + std::to_string(e.year) : "") +
           ",\"discs\":" + std::to_string(e.discs) + ",\"tracks\":" + std::to_string(e.tracks) + "}";
}

// One album of a list as text: artist, title, year, size, identifier.
void print_album_entry(const zelto_catalogue_album_entry &e) {
    std::printf("%s - %s", tool::terminal_safe(e.artist).c_str(), tool::terminal_safe(e.title).c_str());
    if (e.year) std::printf(" (%u)", e.year);
    std::printf("  [%u disc%s, %u track%s]  id: %s\n", e.discs, e.discs == 1 ? "" : "s", e.tracks,
                e.tracks == 1 ? "" : "s", tool::terminal_safe(e.tui).c_str());
}

// The albums of the catalogue, a page at a time.
int catalogue_list(const Options &o) {
    Session session;
    if (int rc = session.open_catalogue(o.catalogue, Session::Access::read)) return rc;
    constexpr uint32_t kPage = 50;
    const uint32_t start = o.start.value_or(1), size = o.size.value_or(kPage);
    uint32_t listed = 0, total = 0;
    const uint32_t s = zelto_catalogue_list_albums(session.catalogue(), start, size, &listed, &total);
    if (s != 0) {
        std::fprintf(stderr, "cantrix: cannot list catalogue '%s': 0x%08X: %s\n", o.catalogue.c_str(), s,
                     zelto_catalogue_last_message(session.catalogue()));
        return kNoCatalogue;
    }
    std::vector<zelto_catalogue_album_entry> albums(listed);
    for (uint32_t i = 0; i < listed; ++i) zelto_catalogue_listed_album(session.catalogue(), i, &albums[i]);
    if (o.json) {
        std::string out = "{\"catalogue\":" + tool::json_quote(o.catalogue);
        if (listed)
            out += ",\"range_start\":" + std::to_string(start) + ",\"range_end\":" + std::to_string(start + listed - 1);
        out += ",\"range_count\":" + std::to_string(total) + ",\"albums\":[";
        for (uint32_t i = 0; i < listed; ++i) out += (i ? "," : "") + album_entry_json(albums[i]);
        std::printf("%s]}\n", out.c_str());
        return kOk;
    }
    if (listed == 0) {
        std::printf(total ? "no albums from number %u (the catalogue has %u)\n" : "the catalogue is empty\n", start,
                    total);
        return kOk;
    }
    std::printf("albums %u to %u of %u\n", start, start + listed - 1, total);
    for (const auto &e : albums) print_album_entry(e);
    if (start + listed - 1 < total)
        std::printf("(more: --range %u:%u)\n", start + listed, size);
    return kOk;
}

// Removes one album by its identifier.
int catalogue_remove(const Options &o) {
    Session session;
    if (int rc = session.open_catalogue(o.catalogue, Session::Access::write)) return rc;
    zelto_catalogue_album_entry removed{};
    const uint32_t s = zelto_catalogue_remove_album(session.catalogue(), o.operands[0].c_str(), &removed);
    if (s == ZELTO_CATALOGUE_NO_RESULT) {
        std::fprintf(stderr, "cantrix: no album with the ID '%s' in %s ('cantrix catalogue list' shows the IDs)\n",
                     tool::terminal_safe(o.operands[0]).c_str(), o.catalogue.c_str());
        return kBadInput;
    }
    if (s != 0) {
        std::fprintf(stderr, "cantrix: cannot remove '%s': 0x%08X: %s\n", tool::terminal_safe(o.operands[0]).c_str(),
                     s, zelto_catalogue_last_message(session.catalogue()));
        return kNoCatalogue;
    }
    if (o.json) {
        std::printf("{\"catalogue\":%s,\"removed\":%s}\n", tool::json_quote(o.catalogue).c_str(),
                    album_entry_json(removed).c_str());
    } else {
        std::printf("removed: ");
        print_album_entry(removed);
    }
    return kOk;
}

// SQLite's integrity check of the catalogue file, read-only: "ok" and exit 0,
// or the problems found and exit 4.
int catalogue_check(const Options &o) {
    char *report = nullptr;
    const uint32_t s = zelto_catalogue_check(o.catalogue.c_str(), &report);
    if (s == ZELTO_CATALOGUE_NO_FILE) {
        std::fprintf(stderr, "cantrix: catalogue '%s' does not exist\n", o.catalogue.c_str());
        return kNoCatalogue;
    }
    if (s == 0) {
        std::printf("catalogue %s: integrity check ok\n", o.catalogue.c_str());
    } else if (s == ZELTO_CATALOGUE_DATABASE) {
        std::printf("catalogue %s: damaged or not a catalogue; SQLite's integrity check reports:\n%s",
                    o.catalogue.c_str(), report ? report : "");
    } else if (s == ZELTO_CATALOGUE_NOT_CATALOGUE) {
        std::printf("catalogue %s: %s", o.catalogue.c_str(), report ? report : "not a catalogue\n");
    } else {
        std::fprintf(stderr, "cantrix: cannot check catalogue '%s': 0x%08X\n", o.catalogue.c_str(), s);
    }
    zelto_manager_text_free(report);
    return s == 0 ? kOk : (s == ZELTO_CATALOGUE_DATABASE || s == ZELTO_CATALOGUE_NOT_CATALOGUE ? kNoCatalogue : kInternal);
}

// The help of a command, or of everything when the command is unknown or
// not given.
void print_help(const std::string &command) {
    struct CommandHelp {
        const char *command, *text;
    };
    static constexpr CommandHelp kHelp[] = {
        {"identify", kIdentifyHelp}, {"search", kSearchHelp}, {"catalogue", kCatalogueHelp}};
    for (const auto &h : kHelp)
        if (command == h.command) {
            std::printf("%s%s%s", h.text, kOptionsHelp, kExitHelp);
            return;
        }
    std::printf("%s%s\n%s%s", kSynopsis, kOptionsHelp, kIdentifyHelp, kExitHelp);
}

void print_version() {
    std::printf("cantrix %s (libzelto_cantrix %s, built %s)\n", CANTRIX_VERSION, zelto_cantrix_get_version(),
                zelto_cantrix_get_build_date());
}

}  // namespace

int main(int argc, char **argv) {
    const Options o = parse(argc, argv);
    if (o.help) {
        print_help(o.command);
#ifndef CANTRIX_HAVE_AUDIO
        std::printf("\nNote: %s: identify --audio and catalogue fingerprint are not available.\n", kNoAudio);
#endif
        return kOk;
    }
    if (o.version) {
        print_version();
        return kOk;
    }
    if (o.command == "identify") return identify(o);
    if (o.command == "search") return search(o);
    if (o.subcommand == "import") return catalogue_import(o);
#ifdef CANTRIX_HAVE_AUDIO
    if (o.subcommand == "fingerprint") return catalogue_fingerprint(o);
#else
    if (o.subcommand == "fingerprint") return no_audio();
#endif
    if (o.subcommand == "check") return catalogue_check(o);
    if (o.subcommand == "list") return catalogue_list(o);
    if (o.subcommand == "remove") return catalogue_remove(o);
    return catalogue_info(o);
}
