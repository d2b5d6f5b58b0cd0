// TOCs typed or pasted as text.
#include "tool/disc/toc_text.h"

#include <cstdint>
#include <vector>

namespace disc {

const char *const kOffsetsFormHelp =
    "offsets form: the frame offset of each track, then the lead-out, rising, e.g. \"150 14672 27367 41225\"";
const char *const kMusicBrainzFormHelp =
    "MusicBrainz form: first track, last track, lead-out, then the track offsets, e.g. \"1 3 41225 150 14672 27367\"";

namespace {

struct Numbers {
    std::vector<uint32_t> values;
};

bool is_separator(char c) { return c == ' ' || c == '\t' || c == '+'; }

Expected<Numbers> split_numbers(std::string_view text) {
    Numbers n;
    size_t i = 0;
    while (i < text.size()) {
        if (is_separator(text[i])) {
            ++i;
            continue;
        }
        size_t end = i;
        while (end < text.size() && !is_separator(text[end])) ++end;
        const std::string_view token = text.substr(i, end - i);
        uint64_t value = 0;
        for (char c : token) {
            if (c < '0' || c > '9') {
                const std::string shown = token.size() > 24 ? std::string(token.substr(0, 24)) + "..." : std::string(token);
                return Error{0, "\"" + shown + "\" is not a number"};
            }
            value = value * 10 + static_cast<uint64_t>(c - '0');
            if (value > kMaxFrames)
                return Error{0, "number " + std::to_string(n.values.size() + 1) + " lies beyond 100 minutes (" +
                                    std::to_string(kMaxFrames) + " frames)"};
        }
        n.values.push_back(static_cast<uint32_t>(value));
        i = end;
    }
    return n;
}

std::string nth(size_t i) { return "number " + std::to_string(i + 1); }

// Offsets then lead-out: at least one track, strictly rising.
Expected<Disc> offsets_form(const std::vector<uint32_t> &v) {
    if (v.size() < 2) return Error{0, "a TOC needs at least one track offset and the lead-out"};
    if (v.size() - 1 > kMaxTrackNumber)
        return Error{0, std::to_string(v.size() - 1) + " track offsets; a CD has at most 99 tracks"};
    for (size_t i = 1; i < v.size(); ++i)
        if (v[i] <= v[i - 1])
            return Error{0, nth(i) + " (" + std::to_string(v[i]) + ") is not greater than " + nth(i - 1) + " (" +
                                std::to_string(v[i - 1]) + ")"};
    Disc disc;
    for (size_t i = 0; i + 1 < v.size(); ++i) disc.tracks.push_back(Track{static_cast<uint32_t>(i + 1), v[i], false, {}});
    disc.leadout = v.back();
    disc.audio_leadout = v.back();
    return disc;
}

Expected<Disc> musicbrainz_form(const std::vector<uint32_t> &v) {
    if (v.size() < 4) return Error{0, "the MusicBrainz form needs first track, last track, lead-out and an offset"};
    const uint32_t first = v[0], last = v[1], leadout = v[2];
    if (first < 1 || first > kMaxTrackNumber || last < first || last > kMaxTrackNumber)
        return Error{0, "first and last track (" + std::to_string(first) + ", " + std::to_string(last) +
                            ") must be track numbers 1 to 99, the first not above the last"};
    const size_t tracks = last - first + 1;
    if (v.size() != 3 + tracks)
        return Error{0, "tracks " + std::to_string(first) + " to " + std::to_string(last) + " need " +
                            std::to_string(tracks) + " offset" + (tracks == 1 ? "" : "s") + ", the text has " +
                            std::to_string(v.size() - 3)};
    Disc disc;
    for (size_t i = 0; i < tracks; ++i) {
        const uint32_t offset = v[3 + i];
        if (i > 0 && offset <= v[2 + i])
            return Error{0, "the offset of track " + std::to_string(first + i) + " (" + std::to_string(offset) +
                                ") is not greater than the one before (" + std::to_string(v[2 + i]) + ")"};
        disc.tracks.push_back(Track{static_cast<uint32_t>(first + i), offset, false, {}});
    }
    if (leadout <= disc.tracks.back().offset)
        return Error{0, "the lead-out (" + std::to_string(leadout) + ") is not after the last offset (" +
                            std::to_string(disc.tracks.back().offset) + ")"};
    disc.leadout = leadout;
    disc.audio_leadout = leadout;
    return disc;
}

bool rising(const std::vector<uint32_t> &v) {
    for (size_t i = 1; i < v.size(); ++i)
        if (v[i] <= v[i - 1]) return false;
    return true;
}

// Whether a refused text was more likely meant in the MusicBrainz form: its
// first two numbers are track numbers and the count fits them.
bool looks_musicbrainz(const std::vector<uint32_t> &v) {
    return v.size() >= 4 && v[0] >= 1 && v[0] <= kMaxTrackNumber && v[1] >= v[0] && v[1] <= kMaxTrackNumber &&
           v.size() == 3 + (v[1] - v[0] + 1);
}

}  // namespace

std::optional<TocForm> toc_form_named(std::string_view name) {
    if (name == "auto") return TocForm::automatic;
    if (name == "offsets") return TocForm::offsets;
    if (name == "musicbrainz" || name == "mb") return TocForm::musicbrainz;
    return std::nullopt;
}

Expected<Disc> parse_toc_text(std::string_view text, TocForm form) {
    auto numbers = split_numbers(text);
    if (!numbers) return numbers.error();
    const std::vector<uint32_t> &v = numbers->values;
    if (v.empty()) return Error{0, "the TOC is empty"};
    switch (form) {
        case TocForm::offsets: return offsets_form(v);
        case TocForm::musicbrainz: return musicbrainz_form(v);
        case TocForm::automatic: break;
    }
    if (rising(v)) return offsets_form(v);
    if (looks_musicbrainz(v)) return musicbrainz_form(v);
    auto refused = offsets_form(v);
    return Error{0, refused.error().message};
}

}  // namespace disc
