// Fuzzes the hash table: a fuzzed sequence of adds, updates, deletes,
// removals, finds, counts and reads by position on a table of a fuzzed
// flag mix must agree with a model of insertion order, values per key and
// ASCII case folding, and with a thread-safe twin (whose finds take the
// general path, not the in-line one); every key's hash and length, by each
// of the key scans, with the byte-by-byte djb2.
#include <cstdio>
#include <cstdlib>

#include "ombr/ombr_datatypes.h"
#include "tests/reference/reference.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool up = ombr_datatypes_initialize() == 0;
    if (!up) std::abort();
    const std::string failure = reference::check_hashtable_case(data, size);
    if (!failure.empty()) {
        std::fprintf(stderr, "%s\n", failure.c_str());
        std::abort();
    }
    return 0;
}
