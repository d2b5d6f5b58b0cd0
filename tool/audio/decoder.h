// Audio files for the cantrix tool: decoding through FFmpeg's libraries
// (WAV, FLAC, MP3, AAC/M4A, Ogg Vorbis, Opus and the other formats of the
// whitelist below) to 16-bit mono PCM at 11025 Hz, which is what the
// fingerprinter analyses, with the file's tags.
//
// Untrusted files are held to limits: only FFmpeg's file protocol and the
// listed container formats are used (a playlist cannot make FFmpeg open
// other files or URLs), sample rates outside 1000..768000 Hz and channel
// counts above 64 are refused before any decoding, at most `max_seconds`
// of audio is read, and a file with nothing audible in its first
// `silence_seconds` is given up. A file is refused as corrupt when the
// container cannot be read to its end, when more than 1% of its packets
// (and at least three) fail to decode, or when it yields less than 90% of
// the duration its header states (if the header states it exactly).
#ifndef CANTRIX_TOOL_AUDIO_DECODER_H
#define CANTRIX_TOOL_AUDIO_DECODER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace audio {

inline constexpr uint32_t kOutputRate = 11025;
inline constexpr uint32_t kMinSourceRate = 1000;
inline constexpr uint32_t kMaxSourceRate = 768000;
inline constexpr uint32_t kMaxSourceChannels = 64;
// 16-bit samples whose magnitude never exceeds this are silence.
inline constexpr int kSilenceLevel = 32;
// Container formats FFmpeg may use, by its short names.
inline constexpr const char *kFormatWhitelist = "wav,w64,flac,mp3,mov,aac,ogg,matroska,aiff,wv,ape,asf,caf";

struct Tags {
    std::string title, artist, album, album_artist, genre;
    uint32_t year = 0, track_number = 0, disc_number = 0;
    std::string mb_release_track_id, mb_release_id, mb_recording_id;
};

struct Limits {
    double max_seconds = 2 * 3600.0;
    double silence_seconds = 600.0;
};

struct Decoded {
    std::string container;   // FFmpeg's name of the format ("flac", "mp3", "mov,mp4,m4a,3gp,3g2,mj2", ...)
    std::string codec;       // "flac", "mp3", "aac", "vorbis", "opus", "pcm_s16le", ...
    uint32_t source_rate = 0, source_channels = 0;
    double seconds = 0;           // of audio delivered
    double declared_seconds = 0;  // what the header says, 0 if it says nothing exact
    bool cut = false;             // stopped at max_seconds
    uint32_t packets = 0, bad_packets = 0;
    Tags tags;
};

// Receives mono 16-bit samples at kOutputRate; false stops the decoding,
// and the result is the error "stopped".
using Sink = std::function<bool(const int16_t *samples, size_t count)>;

struct DecodeResult {
    bool ok = false;
    std::string error;  // why the file is refused: one line, no file name
    Decoded info;
};

DecodeResult decode_file(const std::string &path, const Limits &limits, const Sink &sink);

// Length of a CD audio file (44.1 kHz, as a CUE sheet's FILE names) in
// CD frames of 1/75 s, counted by decoding it whole; nullopt with `why`
// for a file that is not CD audio or cannot be read to its end.
inline constexpr uint32_t kSamplesPerCdFrame = 588;
inline constexpr uint64_t kMaxCdSamples = 100ull * 60 * 44100;  // beyond any CD
std::optional<uint32_t> cd_frames(const std::string &path, std::string &why);

// Name of a file's content: SHA-256 of its bytes in hex, or empty with
// `error` set.
std::string content_id(const std::string &path, std::string &error);

// Tags from FFmpeg metadata entries, keys compared without case, blanks,
// underscores and hyphens ("MusicBrainz Release Track Id" and
// "MUSICBRAINZ_RELEASETRACKID" alike). Exposed for tests.
void apply_tag(Tags &tags, const std::string &key, const std::string &value);

}  // namespace audio

#endif
