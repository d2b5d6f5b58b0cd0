// libFuzzer harness of the TOC text forms. The first byte picks the form. An
// accepted text must give a well-formed disc (disc_fuzz::check_disc); when
// the form was detected, reading the text in the detected form gives the
// same disc.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/disc_fuzz_checks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 4096) return 0;
    const disc::TocForm form = data[0] % 3 == 0   ? disc::TocForm::automatic
                               : data[0] % 3 == 1 ? disc::TocForm::offsets
                                                  : disc::TocForm::musicbrainz;
    const std::string_view text(reinterpret_cast<const char *>(data + 1), size - 1);
    auto d = disc::parse_toc_text(text, form);
    if (!d) {
        disc_fuzz::check_error(d.error(), 0);
        return 0;
    }
    disc_fuzz::check_disc(*d);
    if (form != disc::TocForm::automatic) return 0;
    auto as_offsets = disc::parse_toc_text(text, disc::TocForm::offsets);
    auto as_mb = disc::parse_toc_text(text, disc::TocForm::musicbrainz);
    disc_fuzz::require(static_cast<bool>(as_offsets) != static_cast<bool>(as_mb), "exactly one form reads the text");
    const disc::Disc &same = as_offsets ? *as_offsets : *as_mb;
    disc_fuzz::require(same.tracks.size() == d->tracks.size() && same.leadout == d->leadout, "detection picks that form");
    return 0;
}
