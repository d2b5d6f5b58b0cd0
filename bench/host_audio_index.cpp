// Makes the larger catalogues of the audio matching benchmark: a copy of
// the corpus catalogue that bench_audio_match builds (1,000 songs), filled
// up to SIZE fingerprints with copies of its real fingerprints whose items
// are XORed with a random mask of 12 to 20 bits each. The copies keep the
// real fingerprints' structure (how items change from one to the next,
// how often keys repeat) and match nothing, so lookups of the corpus'
// queries meet an index of realistic size and shape.
//
//   host_audio_index BASE.catalogue OUT.catalogue SIZE
//
// Prints the time of the load and the size of the file.
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "providers/catalogue/store/catalogue.h"

namespace fs = std::filesystem;

int main(int argc, char **argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: host_audio_index BASE.catalogue OUT.catalogue SIZE\n");
        return 2;
    }
    const std::string base = argv[1], out = argv[2];
    const uint64_t size = std::strtoull(argv[3], nullptr, 10);
    for (const char *tail : {"", "-wal", "-shm"}) fs::remove(out + tail);
    fs::copy_file(base, out);
    if (fs::exists(base + "-wal")) fs::copy_file(base + "-wal", out + "-wal");
    std::unique_ptr<catalogue::Catalogue> cat;
    catalogue::Status st = catalogue::Catalogue::open(out, cat);
    if (!st.ok()) {
        std::fprintf(stderr, "%s\n", st.message.c_str());
        return 1;
    }
    std::vector<catalogue::fp::Fingerprint> real;
    st = cat->each_fingerprint([&](int64_t, const std::string &, const catalogue::fp::Fingerprint &f) {
        real.push_back(f);
        return true;
    });
    if (!st.ok() || real.empty()) {
        std::fprintf(stderr, "no fingerprints in %s: %s\n", base.c_str(), st.message.c_str());
        return 1;
    }
    catalogue::Album filler;
    filler.title = "Filler";
    filler.artist = "Nobody";
    filler.discs.resize(1);
    filler.discs[0].tracks.resize(1);
    filler.discs[0].tracks[0].number = 1;
    filler.discs[0].tracks[0].title = "Filler";
    if (!(st = cat->add_album(filler)).ok()) return 1;
    const std::string track = filler.discs[0].tracks[0].tui;

    const auto start = std::chrono::steady_clock::now();
    uint64_t state = 0x9E3779B97F4A7C15ull, total = real.size();
    const uint64_t batch = 20000;
    while (total < size) {
        std::vector<catalogue::FingerprintEntry> entries;
        for (uint64_t k = total; k < size && entries.size() < batch; ++k) {
            uint32_t mask = 0;
            while (std::popcount(mask) < 12 || std::popcount(mask) > 20) {
                state = state * 6364136223846793005ull + 1442695040888963407ull;
                mask = static_cast<uint32_t>(state >> 32);
            }
            catalogue::FingerprintEntry e;
            e.print = real[k % real.size()];
            for (uint32_t &item : e.print.items) item ^= mask;
            e.content_id = "filler-" + std::to_string(k);
            e.track_tui = track;
            entries.push_back(std::move(e));
        }
        uint64_t added = 0;
        if (!(st = cat->add_fingerprints_bulk(entries, added)).ok()) {
            std::fprintf(stderr, "%s\n", st.message.c_str());
            return 1;
        }
        total += entries.size();
        std::fprintf(stderr, "%llu fingerprints\n", static_cast<unsigned long long>(total));
    }
    catalogue::FingerprintCounts counts;
    cat->fingerprint_counts(counts);
    cat.reset();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("%s: %llu fingerprints, %llu postings, %.0f MB, filled in %.0f s\n", out.c_str(),
                static_cast<unsigned long long>(counts.prints), static_cast<unsigned long long>(counts.postings),
                static_cast<double>(fs::file_size(out)) / 1e6, seconds);
    return 0;
}
