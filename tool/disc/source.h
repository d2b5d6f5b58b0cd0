// One TOC for `cantrix identify`, from whichever source the user named:
// typed text, a drive, a CUE sheet or a rip log. Gathers the disc, its audio
// session (what the catalogue matches), both disc IDs, and what is worth a
// warning, with error messages ready to print.
#ifndef CANTRIX_TOOL_DISC_SOURCE_H
#define CANTRIX_TOOL_DISC_SOURCE_H

#include <optional>
#include <string>
#include <vector>

#include "tool/disc/cue.h"
#include "tool/disc/disc.h"
#include "tool/disc/toc_text.h"

namespace disc {

enum class SourceKind { toc, drive, cue, log };

struct SourceRequest {
    SourceKind kind = SourceKind::toc;
    std::string text;                 // the TOC text, the device (may be empty) or the file name ("-": standard input)
    TocForm form = TocForm::automatic;  // of a TOC text
    std::optional<uint32_t> leadout;  // of a CUE sheet's audio session
    FileLength file_length;           // of a CUE sheet's files, when they can be measured
};

struct DiscRead {
    std::string origin;  // "MusicBrainz form", "EAC log", "CUE sheet", "drive /dev/cdrom"
    Disc disc;
    AudioToc toc;
    DiscIds ids;
    std::vector<std::string> warnings;  // the reader's, and disc IDs a log states that differ from its TOC's
};

// Reads the source. A file is read whole (at most kMaxTextBytes). The error's
// message is complete: "FILE:LINE: what" for files, the expected forms for a
// refused TOC text.
Expected<DiscRead> read_source(const SourceRequest &request);

// A typed TOC read again as the whole TOC of an Enhanced CD: its last track
// taken as the data track of a second session, which starts 11,400 frames
// after the audio session's lead-out. None when the read already has a data
// track, has a single track, or the last track starts too early for that.
std::optional<DiscRead> as_enhanced_cd(const DiscRead &read);

// The read for a TOC that is known to be well formed (a catalogue's, in the
// offsets form).
Expected<DiscRead> read_stored_toc(const std::string &offsets_text, const std::string &origin);

}  // namespace disc

#endif
