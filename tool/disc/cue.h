// The TOC of a disc from a CUE sheet.
//
// A track starts at its INDEX 01. Times (mm:ss:ff, 75 frames a second) count
// from the start of the FILE they follow, so a sheet with several files needs
// the length of every file but the last; the lead-out needs the length of the
// last file, or the caller's lead-out (`CueOptions::leadout`, the lead-out of
// the audio session like the third number of the "first last lead-out"
// form). PREGAP and POSTGAP add silence that no file holds. A trailing data
// track (MODE1, MODE2, CDI) begins a second session: the audio session ends
// where the data track's material begins in the file, and the data track
// itself lies 11,400 frames later on the disc.
#ifndef CANTRIX_TOOL_DISC_CUE_H
#define CANTRIX_TOOL_DISC_CUE_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "tool/disc/disc.h"

namespace disc {

// The length in frames of a FILE named in the sheet, when it can be told.
using FileLength = std::function<std::optional<uint32_t>(const std::string &file)>;

struct CueOptions {
    std::optional<uint32_t> leadout;  // lead-out of the audio session, in frames
    FileLength file_length;           // may be empty: lengths unknown
};

// Reads a CUE sheet (any encoding that text_lines() takes). Errors name the
// line: missing or repeated tracks, an INDEX before its TRACK, times out of
// order, seconds above 59 or frames above 74, a track without INDEX 01,
// unknown track types, an unterminated quote, and a lead-out that cannot be
// known. Malformed CATALOG and ISRC values and unknown commands are skipped
// with a warning.
Expected<Disc> read_cue(std::string_view bytes, const CueOptions &options = {});

}  // namespace disc

#endif
