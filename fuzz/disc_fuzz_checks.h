// Properties that every disc a reader accepts must have, shared by the
// fuzz harnesses of the tool's disc layer. A broken property aborts, which
// libFuzzer reports as a crash with the input that caused it.
#ifndef CANTRIX_FUZZ_DISC_FUZZ_CHECKS_H
#define CANTRIX_FUZZ_DISC_FUZZ_CHECKS_H

#include <cstdio>
#include <cstdlib>
#include <string>

#include "tool/disc/disc.h"
#include "tool/disc/toc_text.h"

namespace disc_fuzz {

inline void require(bool ok, const char *what) {
    if (ok) return;
    std::fprintf(stderr, "property broken: %s\n", what);
    std::abort();
}

// Errors carry a message; a line number never lies past the input's lines.
inline void check_error(const disc::Error &e, size_t line_count) {
    require(!e.message.empty(), "an error has a message");
    require(e.line <= line_count + 1, "an error's line lies within the input");
}

// An accepted disc: 1 to 99 tracks numbered on by one, offsets strictly
// rising within 100 minutes, the lead-out after the last track; its audio
// session keeps those properties and round-trips through both TOC texts; its
// disc IDs have their forms, and the freedb ID computed here agrees with
// libdiscid's for discs without data tracks that start at track 1 (for a
// later first track libdiscid counts the missing tracks in).
inline void check_disc(const disc::Disc &d) {
    require(!d.tracks.empty() && d.tracks.size() <= disc::kMaxTrackNumber, "1 to 99 tracks");
    bool has_data = false;
    for (size_t i = 0; i < d.tracks.size(); ++i) {
        const disc::Track &t = d.tracks[i];
        has_data = has_data || t.data;
        require(t.number >= 1 && t.number <= disc::kMaxTrackNumber, "track numbers 1 to 99");
        require(t.offset <= disc::kMaxFrames, "offsets within 100 minutes");
        if (i > 0) {
            require(t.number == d.tracks[i - 1].number + 1, "consecutive track numbers");
            require(t.offset > d.tracks[i - 1].offset, "strictly rising offsets");
        }
    }
    if (d.leadout) require(*d.leadout > d.tracks.back().offset && *d.leadout <= disc::kMaxFrames, "lead-out in bounds");

    auto toc = disc::audio_session(d);
    const disc::DiscIds ids = disc::disc_ids(d);
    require(ids.musicbrainz.empty() || disc::disc_id_kind(ids.musicbrainz) == disc::DiscIdKind::musicbrainz,
            "MusicBrainz ID form");
    require(ids.freedb.empty() || disc::disc_id_kind(ids.freedb) == disc::DiscIdKind::freedb, "freedb ID form");
    require(ids.note.empty() == (!ids.musicbrainz.empty() && !ids.freedb.empty()), "a missing ID has a note");
    if (!toc) return;
    require(toc->first >= 1 && toc->last >= toc->first && toc->last - toc->first + 1 == toc->offsets.size(),
            "audio session numbering");
    for (size_t i = 1; i < toc->offsets.size(); ++i) require(toc->offsets[i] > toc->offsets[i - 1], "audio offsets rise");
    require(toc->leadout > toc->offsets.back(), "audio lead-out after the last audio track");
    for (const std::string &text : {toc->musicbrainz_text(), toc->offsets_text()}) {
        const bool mb = text == toc->musicbrainz_text();
        auto again = disc::parse_toc_text(text, mb ? disc::TocForm::musicbrainz : disc::TocForm::offsets);
        require(static_cast<bool>(again), "the audio session's text reads back");
        auto toc2 = disc::audio_session(*again);
        require(static_cast<bool>(toc2) && toc2->offsets == toc->offsets && toc2->leadout == toc->leadout &&
                    (!mb || (toc2->first == toc->first && toc2->last == toc->last)),
                "the audio session round-trips through its text");
    }
    if (!has_data && toc->first == 1 && !ids.freedb.empty())
        require(ids.freedb == disc::freedb_id_text(disc::freedb_id(toc->offsets, toc->leadout)),
                "the freedb ID agrees with libdiscid's");
}

}  // namespace disc_fuzz

#endif
