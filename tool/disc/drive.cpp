// The TOC of the disc in a CD drive, read through libdiscid.
#include "tool/disc/drive.h"

#include <discid/discid.h>

#include <memory>

namespace disc {

namespace {
struct DiscIdFree {
    void operator()(DiscId *d) const { discid_free(d); }
};
}  // namespace

Disc disc_from_libdiscid(void *handle) {
    auto *d = static_cast<DiscId *>(handle);
    Disc disc;
    const int first = discid_get_first_track_num(d), last = discid_get_last_track_num(d);
    for (int n = first; n >= 1 && n <= last; ++n) {
        Track t;
        t.number = static_cast<uint32_t>(n);
        t.offset = static_cast<uint32_t>(discid_get_track_offset(d, n));
        if (const char *isrc = discid_get_track_isrc(d, n)) t.isrc = isrc;
        disc.tracks.push_back(std::move(t));
    }
    disc.leadout = static_cast<uint32_t>(discid_get_sectors(d));
    disc.audio_leadout = disc.leadout;
    if (const char *mcn = discid_get_mcn(d)) disc.mcn = mcn;
    return disc;
}

std::string default_drive() {
    const char *device = discid_get_default_device();
    return device ? device : "";
}

Expected<Disc> read_drive(const std::string &device) {
    std::unique_ptr<DiscId, DiscIdFree> d(discid_new());
    if (!d) return Error{0, "libdiscid could not allocate"};
    unsigned features = DISCID_FEATURE_READ;
    for (discid_feature f : {DISCID_FEATURE_MCN, DISCID_FEATURE_ISRC})
        if (discid_has_feature(f)) features |= f;
    if (!discid_read_sparse(d.get(), device.empty() ? nullptr : device.c_str(), features))
        return Error{0, discid_get_error_msg(d.get())};
    return checked(disc_from_libdiscid(d.get()));
}

}  // namespace disc
