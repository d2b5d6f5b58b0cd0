// The TOC of a disc from the log of a ripper.
//
//   EAC      "Exact Audio Copy V..." / "EAC extraction logfile"; its table
//            "Track | Start | Length | Start sector | End sector" with times
//            m:ss.ff (the header may be in any language). UTF-16LE as EAC
//            writes it, or 8-bit.
//   XLD      "X Lossless Decoder version ..."; the same table with times
//            mm:ss:ff, and "AccurateRip Summary (DiscID: a-b-FREEDB)".
//   whipper  "Log created by: whipper ..." (also morituri); the YAML section
//            "TOC:" with "Start sector" and "End sector" per track, and
//            "CDDB Disc ID" and "MusicBrainz Disc ID" under "CD metadata".
//   cyanrip  "cyanrip ..."; blocks "Track N ..." with "Start LSN" and
//            "End LSN", "Disc tracks", "DiscID" and "CDDB ID".
//
// Sectors count from logical sector 0, so a track's TOC offset is its start
// sector plus 150, and the lead-out of the disc follows the last end sector.
// Tracks of one session adjoin; a gap of 11,400 sectors or more before a
// track starts a second session, whose tracks are data (Enhanced CD).
#ifndef CANTRIX_TOOL_DISC_RIP_LOG_H
#define CANTRIX_TOOL_DISC_RIP_LOG_H

#include <string_view>

#include "tool/disc/disc.h"

namespace disc {

enum class Ripper { eac, xld, whipper, cyanrip };
const char *ripper_name(Ripper ripper);

struct RipLog {
    Ripper ripper = Ripper::eac;
    Disc disc;  // every track the log lists, with the lead-out of the whole disc
};

// Reads a rip log. Errors name the line: a log of no known ripper, no TOC,
// missing or repeated tracks, sectors or times out of order, times that do
// not match their sectors, seconds above 59 or frames above 74.
Expected<RipLog> read_rip_log(std::string_view bytes);

}  // namespace disc

#endif
