// Fuzzes the format engine: one conversion with fuzzed flags, width,
// precision, length and argument between fuzzed plain text. The buffer,
// new-text and accumulator forms must equal the reference engine's text
// and result for every buffer size.
#include <cstdio>
#include <cstdlib>

#include "tests/reference/reference.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string failure = reference::check_format_case(data, size);
    if (!failure.empty()) {
        std::fprintf(stderr, "%s\n", failure.c_str());
        std::abort();
    }
    return 0;
}
