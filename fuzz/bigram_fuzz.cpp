// Fuzzes the bigram similarity: two fuzzed texts in both word modes. The
// library must agree with the reference's pairwise search (similarity and
// both percentages), be symmetric, give 100 for a text against itself and
// the same score through prepared sorted tables.
#include <cstdio>
#include <cstdlib>

#include "tests/reference/reference.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string failure = reference::check_fuzzy_case(data, size);
    if (!failure.empty()) {
        std::fprintf(stderr, "%s\n", failure.c_str());
        std::abort();
    }
    return 0;
}
