// `cantrix catalogue fingerprint PATH...`: a music folder into the
// catalogue. Each file is recognised by its content (a SHA-256 of its
// bytes): a file stored before is not decoded again. Otherwise it is
// decoded, fingerprinted through the module, and linked to a catalogue
// track, in this order:
//  1. by MusicBrainz identifier, when its tags have one that names a track
//     of the catalogue (release track id, or release id with disc and
//     track number);
//  2. by the library's own text search: the module's album search with
//     the tags' album, artist and title in single-result mode; the best
//     album is taken when its text match score is at least
//     kTextLinkThreshold and it names a matching track;
//  3. else the catalogue makes the track, and its album if need be, from
//     the tags.
// A file that cannot be read, decoded or stored is reported and skipped;
// each stored file is one transaction, so a failure leaves every earlier
// entry in place.
#ifndef CANTRIX_TOOL_AUDIO_LIBRARY_H
#define CANTRIX_TOOL_AUDIO_LIBRARY_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tool/audio/decoder.h"
#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_catalogue.h"

namespace audio {

// Lowest text match score (0..100, the average of the album, artist and
// title scores the module computes) that links a file to a track.
inline constexpr uint32_t kTextLinkThreshold = 80;

struct FileOutcome {
    enum class Kind { added, same_audio, unchanged, skipped } kind = Kind::skipped;
    // How the file found its track: by MusicBrainz id, by text search, by
    // its tags naming a track made from an earlier file's tags, or made new.
    enum class Link { none, musicbrainz, text, tags, created } link = Link::none;
    std::string path;
    std::string reason;           // skipped: why
    uint32_t text_score = 0;      // Link::text: the score
    bool new_album = false;
    std::string title, artist, album;
    uint32_t track_number = 0;
    double seconds = 0;           // audio fingerprinted
};

struct LibrarySummary {
    size_t files = 0, added = 0, same_audio = 0, unchanged = 0, skipped = 0;
    size_t by_musicbrainz = 0, by_text = 0, by_tags = 0, new_tracks = 0, new_albums = 0;
    double audio_seconds = 0, elapsed = 0;
    std::vector<FileOutcome> outcomes;               // every file, in order
    std::vector<std::pair<std::string, std::string>> missing;  // operands that are not there
};

struct LibraryCallbacks {
    std::function<void(const FileOutcome &)> file_done;                          // after each file
    std::function<void(size_t done, size_t total, double elapsed, double audio)> progress;  // before each file and at the end
};

// Runs the command. `query` is used for fingerprints; the text searches
// run in queries of their own for `user`.
LibrarySummary fingerprint_library(zelto_catalogue *catalogue, zelto_user *user, zelto_cantrix_query_handle query,
                                   const std::vector<std::string> &operands, const Limits &limits,
                                   const LibraryCallbacks &callbacks);

// The track that the module's text search finds for the tags, or "" when
// the best album scores under kTextLinkThreshold or names no matching
// track; `score` is the best album's score.
std::string track_by_text(zelto_user *user, const Tags &tags, uint32_t &score);

}  // namespace audio

#endif
