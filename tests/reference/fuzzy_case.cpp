// One differential case of the bigram similarity, built from arbitrary
// bytes: two texts (any bytes, also invalid UTF-8, sometimes repeated past
// the 200-byte boundary of the stack tables) and the word mode. The
// library must give the reference's similarity and percentages, the same
// as its chained-hash count for texts below 200 bytes (the form that its
// bit rows replaced), the same score both ways round, 100 for a text
// against itself, and the same score through its prepared sorted tables.
#include <string>

#include "ombr/ombr_string_fuzzy.h"
#include "string/ombr_string_fuzzy_internal.h"
#include "tests/reference/reference.h"

namespace {

std::string take_text(const uint8_t *&p, const uint8_t *end) {
    std::string s;
    const size_t want = p < end ? *p++ : 0;
    while (s.size() < want && p < end) {
        const uint8_t b = *p++;
        s += static_cast<char>(b ? b : ' ');
    }
    // A few texts grow long enough to need heap tables.
    if (!s.empty() && (static_cast<uint8_t>(s[0]) & 0x0F) == 0x0F)
        while (s.size() < 260) s += s;
    return s;
}

}  // namespace

std::string reference::check_fuzzy_case(const uint8_t *data, size_t size) {
    const uint8_t *p = data, *end = data + size;
    const uint8_t mode = p < end ? *p++ : 0;
    const auto skip_space = static_cast<uint8_t>(mode & 1);
    const std::string a = take_text(p, end);
    const std::string b = (mode & 2) ? a : take_text(p, end);
    const char *ta = (mode & 0x30) == 0x30 ? nullptr : a.c_str();

    uint32_t pa = 999, pb = 999, ra = 999, rb = 999;
    const uint32_t ours = ombr_string_fuzzycmp_ex(ta, b.c_str(), skip_space, &pa, &pb);
    const uint32_t ref = reference::string_fuzzycmp(ta, b.c_str(), skip_space, &ra, &rb);
    const std::string what = "texts of " + std::to_string(a.size()) + " and " + std::to_string(b.size()) +
                             " bytes, skip_space " + std::to_string(skip_space) + ": ";
    if (ours != ref || pa != ra || pb != rb)
        return what + "similarity " + std::to_string(ours) + "/" + std::to_string(pa) + "/" + std::to_string(pb) +
               " against the reference's " + std::to_string(ref) + "/" + std::to_string(ra) + "/" +
               std::to_string(rb);
    if (ours > 100) return what + "similarity above 100";
    if (a.size() < 200 && b.size() < 200) {
        uint32_t ha = 999, hb = 999;
        const uint32_t hashed = _bigram_fuzzycmp_hashed(ta, b.c_str(), skip_space, &ha, &hb);
        if (hashed != ours || ha != pa || hb != pb)
            return what + "similarity " + std::to_string(ours) + "/" + std::to_string(pa) + "/" + std::to_string(pb) +
                   " against the chained hash's " + std::to_string(hashed) + "/" + std::to_string(ha) + "/" +
                   std::to_string(hb);
    }
    if (ombr_string_fuzzycmp_ex(b.c_str(), ta, skip_space, nullptr, nullptr) != ours) return what + "not symmetric";
    if (!a.empty() && ombr_string_fuzzycmp_ex(a.c_str(), a.c_str(), skip_space, nullptr, nullptr) != 100)
        return what + "a text against itself is not 100";

    if (ta && !a.empty() && !b.empty()) {
        ombr_bigram_table *table_a = nullptr, *table_b = nullptr;
        if (ombr_string_create_bigram_table(a.c_str(), skip_space, &table_a) == 0 &&
            ombr_string_create_bigram_table(b.c_str(), skip_space, &table_b) == 0) {
            const uint32_t sorted = ombr_string_bigram_table_cmp(table_a, table_b);
            if (sorted != ours)
                return what + "sorted tables give " + std::to_string(sorted) + ", the pairwise form " +
                       std::to_string(ours);
        }
        ombr_memory_free(table_a);
        ombr_memory_free(table_b);
    }
    return "";
}
