// The fast kernels against their reference forms, on many generated
// inputs (the fuzzers run the same cases on inputs they search for).
#include <random>
#include <vector>

#include "cantrix_test.h"
#include "tests/reference/reference.h"

namespace {

using KernelReference = LeakCheckedTest;

// Runs `check` on `count` random byte strings of up to `max_size` bytes.
template <typename Check>
void run_random_cases(Check check, uint32_t seed, int count, size_t max_size) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> data;
    for (int i = 0; i < count; ++i) {
        data.resize(rng() % (max_size + 1));
        for (auto &b : data) b = static_cast<uint8_t>(rng());
        const std::string failure = check(data.data(), data.size());
        ASSERT_EQ(failure, "") << "case " << i;
    }
}

TEST_F(KernelReference, FormatEngineAgreesWithTheReference) {
    run_random_cases(reference::check_format_case, 1, 20000, 120);
}

}  // namespace
