// Fingerprint item sequences for the matcher and store tests: a random walk
// in which each item differs from the one before in a few bits, as
// Chromaprint's items of music do, and copies of it with bit errors.
#ifndef FINGERPRINT_TEST_SUPPORT_H
#define FINGERPRINT_TEST_SUPPORT_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "providers/catalogue/store/fingerprint.h"

namespace fp_test {

class Lcg {
   public:
    explicit Lcg(uint64_t seed) : state_(seed * 6364136223846793005ull + 1442695040888963407ull) {}
    uint32_t next() {
        state_ = state_ * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<uint32_t>(state_ >> 33);
    }

   private:
    uint64_t state_;
};

inline std::vector<uint32_t> walk(uint64_t seed, size_t count) {
    Lcg r(seed);
    std::vector<uint32_t> items(count);
    uint32_t item = r.next() ^ r.next() << 16;
    for (auto &v : items) {
        for (int k = 0; k < 6; ++k) item ^= 1u << (r.next() % 32);
        v = item;
    }
    return items;
}

// Flips each bit with probability `rate`.
inline std::vector<uint32_t> with_errors(std::vector<uint32_t> items, double rate, uint64_t seed) {
    Lcg r(seed);
    const auto threshold = static_cast<uint32_t>(rate * 2147483648.0);
    for (auto &v : items)
        for (int b = 0; b < 32; ++b)
            if (r.next() < threshold) v ^= 1u << b;
    return items;
}

inline catalogue::fp::Fingerprint print(std::vector<uint32_t> items, uint32_t duration = 0) {
    catalogue::fp::Fingerprint f;
    f.items = std::move(items);
    f.duration = duration;
    return f;
}

// Stored fingerprints in memory, indexed as the catalogue indexes them.
class MemorySource : public catalogue::fp::PrintSource {
   public:
    void add(int64_t id, const catalogue::fp::Fingerprint &f) {
        prints_[id] = f;
        const auto mask = catalogue::fp::informative(f.items);
        for (size_t i = 0; i < f.items.size(); ++i)
            if (mask[i]) index_[catalogue::fp::index_key(f.algorithm, f.items[i])].push_back({id, static_cast<uint32_t>(i)});
    }
    bool postings(uint32_t key, uint32_t limit, std::vector<catalogue::fp::Posting> &out, std::string &) override {
        ++lookups;
        auto it = index_.find(key);
        if (it == index_.end()) return true;
        for (size_t i = 0; i < it->second.size() && i <= limit; ++i) out.push_back(it->second[i]);
        return true;
    }
    bool items(int64_t id, catalogue::fp::Fingerprint &out, std::string &why) override {
        auto it = prints_.find(id);
        if (it == prints_.end()) {
            why = "missing";
            return false;
        }
        out = it->second;
        return true;
    }
    uint32_t lookups = 0;

   private:
    std::map<int64_t, catalogue::fp::Fingerprint> prints_;
    std::map<uint32_t, std::vector<catalogue::fp::Posting>> index_;
};

}  // namespace fp_test

#endif
