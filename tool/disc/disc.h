// The table of contents of an audio CD as the cantrix tool learns it from its
// sources (typed text, a drive, a CUE sheet, a rip log), the audio session
// that identification uses, and the disc IDs of MusicBrainz and freedb.
//
// Units: every position is a frame (1/75 s) counted like a drive's TOC, so the
// first track of a plain disc starts at 150 (the 2-second pregap before
// logical sector 0). A rip log's "sector" is that number less 150.
#ifndef CANTRIX_TOOL_DISC_DISC_H
#define CANTRIX_TOOL_DISC_DISC_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace disc {

inline constexpr uint32_t kFramesPerSecond = 75;
// Frames before logical sector 0: a sector number plus this is a TOC offset.
inline constexpr uint32_t kPregapFrames = 150;
// Between the audio session and a data session of an Enhanced CD: the first
// session's lead-out (6750) and the second one's lead-in (4500) and pregap
// (150). The audio session ends this many frames before the data track.
inline constexpr uint32_t kSessionGapFrames = 11400;
inline constexpr uint32_t kMaxTrackNumber = 99;
// Greatest lead-out the tool takes from any source: 100 minutes, beyond any
// pressed or recordable CD.
inline constexpr uint32_t kMaxFrames = 100 * 60 * kFramesPerSecond;

// ---- Results ---------------------------------------------------------------------

// What was wrong with an input, and where: `line` is 1-based, 0 when the
// fault belongs to no single line.
struct Error {
    size_t line = 0;
    std::string message;
};

// A value or the error that prevented it.
template <class T>
class Expected {
   public:
    Expected(T value) : v_(std::move(value)) {}
    Expected(Error error) : v_(std::move(error)) {}
    explicit operator bool() const { return v_.index() == 0; }
    T &operator*() { return std::get<0>(v_); }
    const T &operator*() const { return std::get<0>(v_); }
    T *operator->() { return &std::get<0>(v_); }
    const T *operator->() const { return &std::get<0>(v_); }
    const Error &error() const { return std::get<1>(v_); }

   private:
    std::variant<T, Error> v_;
};

// ---- The disc --------------------------------------------------------------------

struct Track {
    uint32_t number = 0;  // 1 to 99
    uint32_t offset = 0;  // frame where index 1 starts
    bool data = false;    // a data track (CD-ROM mode), not audio
    std::string isrc;     // empty when the source does not give it
};

// A disc as a source describes it: every track it lists, data tracks too.
struct Disc {
    std::vector<Track> tracks;          // consecutive numbers, rising offsets
    std::optional<uint32_t> leadout;    // after the last listed track, when known
    // The lead-out of the audio session when the source gives it as such (the
    // "first last lead-out" form, a drive read, --leadout).
    std::optional<uint32_t> audio_leadout;
    std::string mcn;                    // media catalogue number (EAN/UPC), 13 digits
    // Disc IDs the source itself states (rip logs): compared with the computed ones.
    std::string stated_musicbrainz, stated_freedb;
    std::vector<std::string> warnings;  // things worth telling that did not stop the reading
};

// The audio session: what MusicBrainz disc IDs and the catalogue's TOCs
// describe. Track numbers run from `first` to `last`; `offsets` has one entry
// per track of that range.
struct AudioToc {
    uint32_t first = 1, last = 0;
    uint32_t leadout = 0;
    std::vector<uint32_t> offsets;

    // "150 14672 27367 41225": offsets, then the lead-out.
    std::string offsets_text() const;
    // "1 3 41225 150 14672 27367": first, last, lead-out, offsets.
    std::string musicbrainz_text() const;
};

// The audio session of a disc. Data tracks after the last audio track belong
// to a second session (Enhanced CD): the audio lead-out lies 11,400 frames
// before the first of them. Data tracks before the first audio track (mixed
// mode) move `first` on. Fails when no audio track remains, when the lead-out
// is unknown, or when the numbers do not make a TOC.
Expected<AudioToc> audio_session(const Disc &disc);

// Checks the shape of a disc: 1 to 99 tracks with consecutive numbers,
// offsets strictly rising, every number within kMaxFrames, the lead-out
// (when known) after the last track.
Expected<Disc> checked(Disc disc);

// ---- Disc IDs ---------------------------------------------------------------------

struct DiscIds {
    std::string musicbrainz;  // 28 characters; empty when libdiscid refused the TOC
    std::string freedb;       // 8 lower-case hex digits; empty when it could not be computed
    std::string note;         // why one of them is missing, if one is
};

// The MusicBrainz disc ID covers the audio session only and comes from
// libdiscid. The freedb disc ID covers every track the disc lists, data
// tracks included, as rippers report it: libdiscid's when the disc has no
// data track, computed here otherwise (libdiscid sees the audio session only).
DiscIds disc_ids(const Disc &disc);

// Both IDs of an audio TOC, as libdiscid computes them from discid_put.
DiscIds libdiscid_ids(const AudioToc &toc);

// The freedb disc ID over the given track offsets and lead-out: the digit
// sums of the start seconds modulo 255, the playing time in seconds from the
// first track to the lead-out, the track count.
uint32_t freedb_id(const std::vector<uint32_t> &offsets, uint32_t leadout);
std::string freedb_id_text(uint32_t id);

enum class DiscIdKind { none, musicbrainz, freedb };

// Which kind of disc ID a text is: 28 characters of MusicBrainz's base64
// alphabet (A-Z a-z 0-9 . _ -), or 8 hex digits.
DiscIdKind disc_id_kind(std::string_view id);

}  // namespace disc

#endif
