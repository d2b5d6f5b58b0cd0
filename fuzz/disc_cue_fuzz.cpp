// libFuzzer harness of the CUE sheet reader. The first byte chooses whether
// the caller gives a lead-out and whether file lengths are known (a length
// derived from the file name, so the same sheet always reads the same way).
// An accepted sheet must give a well-formed disc (disc_fuzz::check_disc),
// and its single-file rendering must read back to the same offsets.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/disc_fuzz_checks.h"
#include "tool/disc/cue.h"
#include "tool/disc/text_lines.h"

namespace {

std::string msf(uint32_t frames) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%02u:%02u:%02u", frames / 75 / 60, frames / 75 % 60, frames % 75);
    return buf;
}

uint32_t length_of(const std::string &name) {
    uint32_t h = 2166136261u;
    for (unsigned char c : name) h = (h ^ c) * 16777619u;
    return 1 + h % 200000;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const uint8_t mode = data[0];
    const std::string_view text(reinterpret_cast<const char *>(data + 1), size - 1);
    disc::CueOptions options;
    if (mode & 1) options.leadout = 150 + (mode >> 2) * 3000u;
    if (mode & 2) options.file_length = [](const std::string &name) -> std::optional<uint32_t> { return length_of(name); };

    auto lines = disc::text_lines(text);
    auto d = disc::read_cue(text, options);
    if (!d) {
        disc_fuzz::check_error(d.error(), lines ? lines->size() : text.size());
        return 0;
    }
    disc_fuzz::require(static_cast<bool>(lines), "an accepted sheet is text");
    disc_fuzz::check_disc(*d);

    // Audio tracks of one file at their offsets read back the same.
    bool has_data = false;
    for (const disc::Track &t : d->tracks) has_data = has_data || t.data;
    if (has_data || !d->leadout || d->tracks.front().offset < disc::kPregapFrames) return 0;
    std::string sheet = "FILE \"x.wav\" WAVE\n";
    for (const disc::Track &t : d->tracks) {
        char head[32];
        std::snprintf(head, sizeof head, "  TRACK %02u AUDIO\n", t.number);
        sheet += head;
        sheet += "    INDEX 01 " + msf(t.offset - disc::kPregapFrames) + "\n";
    }
    disc::CueOptions again_options;
    again_options.leadout = *d->leadout;
    auto again = disc::read_cue(sheet, again_options);
    disc_fuzz::require(static_cast<bool>(again), "a rendered sheet reads back");
    disc_fuzz::require(again->tracks.size() == d->tracks.size() && again->leadout == d->leadout, "same shape");
    for (size_t i = 0; i < d->tracks.size(); ++i)
        disc_fuzz::require(again->tracks[i].offset == d->tracks[i].offset && again->tracks[i].number == d->tracks[i].number,
                           "same offsets");
    return 0;
}
