// TOCs typed or pasted as text.
//
//   offsets form:      "150 14672 27367 41225"     track offsets, then the lead-out
//   MusicBrainz form:  "1 3 41225 150 14672 27367" first and last track, lead-out, offsets
//
// Numbers are separated by blanks, tabs or "+" (the MusicBrainz web form
// joins them with "+"). The two forms cannot be confused: the offsets form
// rises throughout, while in the MusicBrainz form the lead-out stands before
// the smaller offsets and the first two numbers are track numbers.
#ifndef CANTRIX_TOOL_DISC_TOC_TEXT_H
#define CANTRIX_TOOL_DISC_TOC_TEXT_H

#include <string_view>

#include "tool/disc/disc.h"

namespace disc {

enum class TocForm { automatic, offsets, musicbrainz };

// The text of each form's expected shape, for messages.
extern const char *const kOffsetsFormHelp;
extern const char *const kMusicBrainzFormHelp;

// Reads a TOC in the given form (or the one it is in). The disc's tracks are
// audio, numbered from 1 (offsets form) or from `first`. A first offset of 0
// is taken (a drive's logical sectors typed as offsets). Errors say what is
// wrong and, when the form was guessed, show both expected forms.
Expected<Disc> parse_toc_text(std::string_view text, TocForm form = TocForm::automatic);

// "offsets", "musicbrainz" (or "mb"), "auto"; nullopt for anything else.
std::optional<TocForm> toc_form_named(std::string_view name);

}  // namespace disc

#endif
