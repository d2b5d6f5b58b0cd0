// The files that `cantrix catalogue fingerprint PATH...` works on, and the
// progress line it shows on a terminal.
#ifndef CANTRIX_TOOL_AUDIO_SCAN_H
#define CANTRIX_TOOL_AUDIO_SCAN_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace audio {

// Whether a file name has an extension of an audio format the decoder
// reads (any case): wav, wave, w64, flac, mp3, m4a, mp4, aac, m4b, ogg, oga,
// opus, mka, aif, aiff, wv, ape, wma, caf.
bool audio_extension(const std::string &name);

struct Scan {
    std::vector<std::string> files;                             // in order: operands as given, folders sorted
    std::vector<std::pair<std::string, std::string>> problems;  // path, what is wrong with it
};

// Files named directly are taken whatever their extension; folders are
// walked recursively for files with audio extensions, in name order.
// Symbolic links to folders are not followed (no loops); a path met twice
// is taken once.
Scan collect_files(const std::vector<std::string> &operands);

// "[##########..........]  42/100  3.1 files/s  25x real time  0:18 left"
// `audio_seconds` is the audio fingerprinted in `elapsed` seconds.
std::string progress_line(size_t done, size_t total, double elapsed, double audio_seconds, size_t width = 20);

}  // namespace audio

#endif
