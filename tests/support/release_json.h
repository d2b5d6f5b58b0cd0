// Release JSON of the form the catalogue importer reads, for tests that
// build small catalogues through the public import.
#ifndef CANTRIX_RELEASE_JSON_H
#define CANTRIX_RELEASE_JSON_H

#include <cstdint>
#include <string>
#include <vector>

namespace release_json {

struct TrackSpec {
    const char *title;
    uint32_t length_ms;
};
struct DiscSpec {
    std::vector<uint32_t> offsets;  // track starts
    uint32_t leadout;
    std::vector<TrackSpec> tracks;
};

inline std::string quote(const std::string &s) { return "\"" + s + "\""; }

// One release: an album of one or more discs with their TOCs and tracks.
inline std::string release(const std::string &id, const std::string &title, const std::string &artist,
                           const char *date, const std::vector<DiscSpec> &discs) {
    std::string j = "{\"id\":" + quote(id) + ",\"title\":" + quote(title) + ",\"date\":" + quote(date) +
                    ",\"genres\":[{\"name\":\"folk\",\"count\":1}],\"artist-credit\":[{\"name\":" + quote(artist) +
                    ",\"joinphrase\":\"\",\"artist\":{\"id\":" + quote(id + "-a") + ",\"name\":" + quote(artist) +
                    ",\"sort-name\":" + quote(artist) + "}}],\"media\":[";
    for (size_t d = 0; d < discs.size(); ++d) {
        const DiscSpec &disc = discs[d];
        if (d) j += ",";
        j += "{\"position\":" + std::to_string(d + 1) + ",\"format\":\"CD\",\"track-count\":" +
             std::to_string(disc.tracks.size()) + ",\"discs\":[{\"id\":" + quote(id + "-disc" + std::to_string(d)) +
             ",\"offset-count\":" + std::to_string(disc.offsets.size()) + ",\"offsets\":[";
        for (size_t i = 0; i < disc.offsets.size(); ++i) j += (i ? "," : "") + std::to_string(disc.offsets[i]);
        j += "],\"sectors\":" + std::to_string(disc.leadout) + "}],\"tracks\":[";
        for (size_t t = 0; t < disc.tracks.size(); ++t) {
            j += (t ? "," : "");
            j += "{\"id\":" + quote(id + "-t" + std::to_string(d) + std::to_string(t)) +
                 ",\"position\":" + std::to_string(t + 1) + ",\"number\":" + quote(std::to_string(t + 1)) +
                 ",\"title\":" + quote(disc.tracks[t].title) +
                 ",\"length\":" + std::to_string(disc.tracks[t].length_ms) + "}";
        }
        j += "]}";
    }
    return j + "]}";
}

}  // namespace release_json

#endif
