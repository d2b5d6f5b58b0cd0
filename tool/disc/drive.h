// The TOC of the disc in a CD drive, read through libdiscid, with the
// disc's media catalogue number and its tracks' ISRCs where the drive gives
// them.
#ifndef CANTRIX_TOOL_DISC_DRIVE_H
#define CANTRIX_TOOL_DISC_DRIVE_H

#include <string>

#include "tool/disc/disc.h"

namespace disc {

// Reads the disc in `device` (empty: libdiscid's default drive) with
// discid_read_sparse, asking for the MCN and ISRCs when this libdiscid can
// read them. libdiscid reports the audio session only: its lead-out already
// lies before the data session of an Enhanced CD.
Expected<Disc> read_drive(const std::string &device);

// The name of libdiscid's default drive ("/dev/cdrom" on Linux).
std::string default_drive();

// What read_drive builds once libdiscid holds a TOC, whether read from a
// drive or given with discid_put: shared so that the second path tests the
// first. `handle` is a libdiscid DiscId.
Disc disc_from_libdiscid(void *handle);

}  // namespace disc

#endif
