// Fuzzes the text kernels that TOC texts pass through (token splitting,
// the 32-bit decimal reader, the UTF-8 check): each must agree with its
// plain reference form on any input.
#include <cstdio>
#include <cstdlib>

#include "tests/reference/reference.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string failure = reference::check_text_case(data, size);
    if (!failure.empty()) {
        std::fprintf(stderr, "%s\n", failure.c_str());
        std::abort();
    }
    return 0;
}
