// The audio session of a disc and its disc IDs.
#include "tool/disc/disc.h"

#include <discid/discid.h>

#include <array>
#include <cstdio>
#include <memory>

namespace disc {

namespace {

std::string join(const std::vector<uint32_t> &numbers) {
    std::string out;
    for (uint32_t n : numbers) {
        if (!out.empty()) out += ' ';
        out += std::to_string(n);
    }
    return out;
}

struct DiscIdFree {
    void operator()(DiscId *d) const { discid_free(d); }
};

}  // namespace

std::string AudioToc::offsets_text() const {
    std::vector<uint32_t> all = offsets;
    all.push_back(leadout);
    return join(all);
}

std::string AudioToc::musicbrainz_text() const {
    std::vector<uint32_t> all{first, last, leadout};
    all.insert(all.end(), offsets.begin(), offsets.end());
    return join(all);
}

Expected<Disc> checked(Disc disc) {
    if (disc.tracks.empty()) return Error{0, "no tracks"};
    if (disc.tracks.size() > kMaxTrackNumber)
        return Error{0, std::to_string(disc.tracks.size()) + " tracks; a CD has at most 99"};
    const Track *previous = nullptr;
    for (const Track &t : disc.tracks) {
        if (t.number < 1 || t.number > kMaxTrackNumber)
            return Error{0, "track number " + std::to_string(t.number) + " is not 1 to 99"};
        if (t.offset > kMaxFrames)
            return Error{0, "track " + std::to_string(t.number) + " starts at frame " + std::to_string(t.offset) +
                                ", beyond 100 minutes"};
        if (previous && t.number != previous->number + 1)
            return Error{0, "track " + std::to_string(t.number) + " follows track " +
                                std::to_string(previous->number)};
        if (previous && t.offset <= previous->offset)
            return Error{0, "track " + std::to_string(t.number) + " starts at frame " + std::to_string(t.offset) +
                                ", not after track " + std::to_string(previous->number) + " (" +
                                std::to_string(previous->offset) + ")"};
        previous = &t;
    }
    for (const auto &[what, value] : {std::pair{"lead-out", disc.leadout}, std::pair{"audio lead-out", disc.audio_leadout}}) {
        if (!value) continue;
        if (*value > kMaxFrames)
            return Error{0, std::string(what) + " " + std::to_string(*value) + " lies beyond 100 minutes"};
    }
    if (disc.leadout && *disc.leadout <= previous->offset)
        return Error{0, "lead-out " + std::to_string(*disc.leadout) + " is not after the last track (" +
                            std::to_string(previous->offset) + ")"};
    return disc;
}

Expected<AudioToc> audio_session(const Disc &disc) {
    size_t begin = 0, end = disc.tracks.size();
    while (begin < end && disc.tracks[begin].data) ++begin;
    while (end > begin && disc.tracks[end - 1].data) --end;
    if (begin == end) return Error{0, "the disc has no audio track"};
    AudioToc toc;
    toc.first = disc.tracks[begin].number;
    toc.last = disc.tracks[end - 1].number;
    for (size_t i = begin; i < end; ++i) toc.offsets.push_back(disc.tracks[i].offset);
    if (end < disc.tracks.size()) {
        const Track &data = disc.tracks[end];
        if (data.offset < kSessionGapFrames || data.offset - kSessionGapFrames <= toc.offsets.back())
            return Error{0, "data track " + std::to_string(data.number) + " at frame " + std::to_string(data.offset) +
                                " leaves no room for the 11400-frame gap after audio track " +
                                std::to_string(toc.last)};
        toc.leadout = data.offset - kSessionGapFrames;
        if (disc.audio_leadout && *disc.audio_leadout != toc.leadout)
            return Error{0, "the audio lead-out " + std::to_string(*disc.audio_leadout) + " is not 11400 frames before data track " +
                                std::to_string(data.number) + " (" + std::to_string(toc.leadout) + ")"};
    } else if (disc.audio_leadout) {
        toc.leadout = *disc.audio_leadout;
    } else if (disc.leadout) {
        toc.leadout = *disc.leadout;
    } else {
        return Error{0, "the lead-out is unknown"};
    }
    if (toc.leadout <= toc.offsets.back())
        return Error{0, "lead-out " + std::to_string(toc.leadout) + " is not after the last audio track (" +
                            std::to_string(toc.offsets.back()) + ")"};
    return toc;
}

// ---- Disc IDs ---------------------------------------------------------------------

DiscIds libdiscid_ids(const AudioToc &toc) {
    DiscIds ids;
    std::unique_ptr<DiscId, DiscIdFree> d(discid_new());
    if (!d) {
        ids.note = "libdiscid could not allocate";
        return ids;
    }
    // libdiscid takes the lead-out at index 0 and each track at the index of
    // its number; the slots before `first` stay 0.
    std::array<int, 100> words{};
    words[0] = static_cast<int>(toc.leadout);
    for (size_t i = 0; i < toc.offsets.size() && toc.first + i < words.size(); ++i)
        words[toc.first + i] = static_cast<int>(toc.offsets[i]);
    if (!discid_put(d.get(), static_cast<int>(toc.first), static_cast<int>(toc.last), words.data())) {
        ids.note = std::string("libdiscid refused the TOC: ") + discid_get_error_msg(d.get());
        return ids;
    }
    ids.musicbrainz = discid_get_id(d.get());
    ids.freedb = discid_get_freedb_id(d.get());
    return ids;
}

uint32_t freedb_id(const std::vector<uint32_t> &offsets, uint32_t leadout) {
    uint32_t digits = 0;
    for (uint32_t offset : offsets)
        for (uint32_t s = offset / kFramesPerSecond; s > 0; s /= 10) digits += s % 10;
    const uint32_t first = offsets.empty() ? 0 : offsets.front() / kFramesPerSecond;
    const uint32_t seconds = leadout / kFramesPerSecond - first;
    return (digits % 255) << 24 | (seconds & 0xFFFF) << 8 | (static_cast<uint32_t>(offsets.size()) & 0xFF);
}

std::string freedb_id_text(uint32_t id) {
    char buf[9];
    std::snprintf(buf, sizeof buf, "%08x", id);
    return buf;
}

DiscIds disc_ids(const Disc &disc) {
    auto toc = audio_session(disc);
    DiscIds ids;
    if (!toc) {
        ids.note = toc.error().message;
        return ids;
    }
    ids = libdiscid_ids(*toc);
    bool has_data = false;
    for (const Track &t : disc.tracks) has_data = has_data || t.data;
    if (!has_data) return ids;
    // Every track, data included, to the lead-out of the whole disc.
    if (!disc.leadout) {
        ids.freedb.clear();
        ids.note = "the freedb ID of a disc with a data track needs the lead-out of the whole disc";
        return ids;
    }
    std::vector<uint32_t> offsets;
    for (const Track &t : disc.tracks) offsets.push_back(t.offset);
    ids.freedb = freedb_id_text(freedb_id(offsets, *disc.leadout));
    return ids;
}

DiscIdKind disc_id_kind(std::string_view id) {
    auto is_hex = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); };
    auto is_mb = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == '_' ||
               c == '-';
    };
    if (id.size() == 8) {
        for (char c : id)
            if (!is_hex(c)) return DiscIdKind::none;
        return DiscIdKind::freedb;
    }
    // 20 bytes of SHA-1 in base64: 27 characters and one padding "-".
    if (id.size() == 28 && id.back() == '-') {
        for (char c : id)
            if (!is_mb(c)) return DiscIdKind::none;
        return DiscIdKind::musicbrainz;
    }
    return DiscIdKind::none;
}

}  // namespace disc
