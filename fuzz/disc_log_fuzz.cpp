// libFuzzer harness of the rip log readers (EAC, XLD, whipper, cyanrip). An
// accepted log must give a well-formed disc (disc_fuzz::check_disc) whose
// lead-out follows the last track, and its EAC rendering must read back to
// the same offsets, data tracks and lead-out.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/disc_fuzz_checks.h"
#include "tool/disc/rip_log.h"
#include "tool/disc/text_lines.h"

namespace {

std::string msf(uint32_t frames) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%u:%02u.%02u", frames / 75 / 60, frames / 75 % 60, frames % 75);
    return buf;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    auto log = disc::read_rip_log(text);
    if (!log) {
        auto lines = disc::text_lines(text);
        disc_fuzz::check_error(log.error(), lines ? lines->size() : size);
        return 0;
    }
    const disc::Disc &d = log->disc;
    disc_fuzz::check_disc(d);
    disc_fuzz::require(d.leadout.has_value(), "a log gives the disc's lead-out");
    for (const disc::Track &t : d.tracks) disc_fuzz::require(t.offset >= disc::kPregapFrames, "offsets are sectors + 150");

    // The same disc as an EAC table. Data flags that a log gives other than
    // by the session gap do not survive the table, so only those are compared
    // where the gap tells them.
    std::string eac = "Exact Audio Copy V1.6\n\nTOC of the extracted CD\n\n"
                      "     Track |   Start  |  Length  | Start sector | End sector \n"
                      "    ---------------------------------------------------------\n";
    for (size_t i = 0; i < d.tracks.size(); ++i) {
        const uint32_t start = d.tracks[i].offset - disc::kPregapFrames;
        const uint32_t next = i + 1 < d.tracks.size() ? d.tracks[i + 1].offset : *d.leadout;
        uint32_t end = next - disc::kPregapFrames - 1;
        if (i + 1 < d.tracks.size() && next - d.tracks[i].offset > disc::kSessionGapFrames &&
            d.tracks[i + 1].data && !d.tracks[i].data)
            end = next - disc::kPregapFrames - 1 - disc::kSessionGapFrames;
        char row[160];
        std::snprintf(row, sizeof row, "       %2u  | %8s | %8s | %9u    | %9u   \n", d.tracks[i].number, msf(start).c_str(),
                      msf(end - start + 1).c_str(), start, end);
        eac += row;
    }
    auto again = disc::read_rip_log(eac);
    if (!again) return 0;  // a gap the table cannot show (a data track inside a session)
    disc_fuzz::require(again->disc.tracks.size() == d.tracks.size() && again->disc.leadout == d.leadout, "same shape");
    for (size_t i = 0; i < d.tracks.size(); ++i)
        disc_fuzz::require(again->disc.tracks[i].offset == d.tracks[i].offset, "same offsets");
    return 0;
}
