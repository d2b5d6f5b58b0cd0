// One TOC for `cantrix identify`, from whichever source the user named.
#include "tool/disc/source.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tool/disc/drive.h"
#include "tool/disc/rip_log.h"
#include "tool/disc/text_lines.h"

namespace disc {

namespace {

struct FileClose {
    void operator()(std::FILE *f) const { std::fclose(f); }
};

// The name of a file in messages: "-" is standard input.
std::string label_of(const std::string &path) { return path == "-" ? "(standard input)" : path; }

Expected<std::string> read_file(const std::string &path) {
    std::unique_ptr<std::FILE, FileClose> owned(path == "-" ? nullptr : std::fopen(path.c_str(), "rb"));
    std::FILE *f = path == "-" ? stdin : owned.get();
    if (!f) return Error{0, path + ": " + std::strerror(errno)};
    std::string bytes;
    char buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) {
        bytes.append(buf, n);
        if (bytes.size() > kMaxTextBytes)
            return Error{0, label_of(path) + ": larger than " + std::to_string(kMaxTextBytes >> 20) +
                                " MiB; CUE sheets and rip logs are far smaller"};
    }
    if (std::ferror(f)) return Error{0, label_of(path) + ": " + std::strerror(errno)};
    return bytes;
}

Error in_file(const std::string &path, const Error &e) {
    return Error{e.line, label_of(path) + (e.line ? ":" + std::to_string(e.line) : std::string()) + ": " + e.message};
}

// The audio session and IDs of a disc a source gave.
Expected<DiscRead> complete(DiscRead read) {
    auto toc = audio_session(read.disc);
    if (!toc) return toc.error();
    read.toc = std::move(*toc);
    read.ids = disc_ids(read.disc);
    read.warnings.insert(read.warnings.begin(), read.disc.warnings.begin(), read.disc.warnings.end());
    auto differs = [&](const char *kind, const std::string &stated, const std::string &computed) {
        if (!stated.empty() && !computed.empty() && !equals_nocase(stated, computed))
            read.warnings.push_back("the log states the " + std::string(kind) + " disc ID " + stated +
                                    ", its TOC gives " + computed);
    };
    differs("MusicBrainz", read.disc.stated_musicbrainz, read.ids.musicbrainz);
    differs("freedb", read.disc.stated_freedb, read.ids.freedb);
    return read;
}

}  // namespace

Expected<DiscRead> read_source(const SourceRequest &request) {
    DiscRead read;
    switch (request.kind) {
        case SourceKind::toc: {
            auto d = parse_toc_text(request.text, request.form);
            if (!d) {
                std::string message = "malformed TOC \"" + request.text.substr(0, 200) + "\": " + d.error().message;
                if (request.form != TocForm::musicbrainz) message += std::string("\n  ") + kOffsetsFormHelp;
                if (request.form != TocForm::offsets) message += std::string("\n  ") + kMusicBrainzFormHelp;
                return Error{0, message};
            }
            read.disc = std::move(*d);
            const bool mb = request.form == TocForm::musicbrainz ||
                            (request.form == TocForm::automatic && !parse_toc_text(request.text, TocForm::offsets));
            read.origin = mb ? "MusicBrainz form" : "offsets form";
            break;
        }
        case SourceKind::drive: {
            const std::string device = request.text.empty() ? default_drive() : request.text;
            auto d = read_drive(request.text);
            if (!d) return Error{0, "cannot read the disc in " + device + ": " + d.error().message};
            read.disc = std::move(*d);
            read.origin = "drive " + device;
            break;
        }
        case SourceKind::cue:
        case SourceKind::log: {
            auto bytes = read_file(request.text);
            if (!bytes) return bytes.error();
            if (request.kind == SourceKind::cue) {
                CueOptions options;
                options.leadout = request.leadout;
                options.file_length = request.file_length;
                auto d = read_cue(*bytes, options);
                if (!d) return in_file(request.text, d.error());
                read.disc = std::move(*d);
                read.origin = "CUE sheet";
            } else {
                auto log = read_rip_log(*bytes);
                if (!log) return in_file(request.text, log.error());
                read.disc = std::move(log->disc);
                read.origin = std::string(ripper_name(log->ripper)) + " log";
            }
            break;
        }
    }
    auto done = complete(std::move(read));
    if (!done && (request.kind == SourceKind::cue || request.kind == SourceKind::log))
        return in_file(request.text, done.error());
    return done;
}

std::optional<DiscRead> as_enhanced_cd(const DiscRead &read) {
    const std::vector<Track> &tracks = read.disc.tracks;
    if (tracks.size() < 2) return std::nullopt;
    for (const Track &t : tracks)
        if (t.data) return std::nullopt;
    DiscRead guess;
    guess.disc = read.disc;
    guess.disc.tracks.back().data = true;
    guess.disc.audio_leadout.reset();
    guess.origin = read.origin + ", last track as data";
    auto done = complete(std::move(guess));
    if (!done) return std::nullopt;
    return std::move(*done);
}

Expected<DiscRead> read_stored_toc(const std::string &offsets_text, const std::string &origin) {
    auto d = parse_toc_text(offsets_text, TocForm::offsets);
    if (!d) return d.error();
    DiscRead read;
    read.disc = std::move(*d);
    read.origin = origin;
    return complete(std::move(read));
}

}  // namespace disc
