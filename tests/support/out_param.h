// Reads the out-parameter of a call that returns a status: out(fn, a, b)
// calls fn(a, b, &value) and gives the status and the value together, so
// that one check covers both: EXPECT_EQ(out(fn, a, b), expected) holds when
// the status is 0 and the value equals `expected`. A text out-parameter
// (const char *) is read into a std::string. The out-parameter starts as a
// byte pattern no call writes, so a call that leaves it alone never passes.
#ifndef OUT_PARAM_H
#define OUT_PARAM_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstddef>
#include <cstring>
#include <ostream>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

template <typename T>
struct OutParam {
    uint32_t status;
    T value;
    friend bool operator==(const OutParam &got, const T &want) { return got.status == 0 && got.value == want; }
    // A null text reads as "<null>": compare with that, not with nullptr.
    friend bool operator==(const OutParam &, std::nullptr_t)
        requires std::is_same_v<T, std::string>
    = delete;
    friend void PrintTo(const OutParam &got, std::ostream *os) {
        *os << "status 0x" << std::hex << got.status << std::dec << ", value " << ::testing::PrintToString(got.value);
    }
};

template <typename... P, typename... A>
auto out(uint32_t (*fn)(P...), A &&...args) {
    using Raw = std::remove_pointer_t<std::tuple_element_t<sizeof...(P) - 1, std::tuple<P...>>>;
    static_assert(!std::is_void_v<Raw>, "the last parameter is not a typed out-parameter");
    Raw raw;
    std::memset(static_cast<void *>(&raw), 0xA5, sizeof raw);
    Raw unwritten;
    std::memcpy(static_cast<void *>(&unwritten), &raw, sizeof raw);
    const uint32_t status = fn(std::forward<A>(args)..., &raw);
    if constexpr (std::is_same_v<Raw, const char *> || std::is_same_v<Raw, char *>) {
        if (raw == unwritten) return OutParam<std::string>{status, "<unwritten>"};
        return OutParam<std::string>{status, raw ? std::string(raw) : std::string("<null>")};
    } else {
        return OutParam<Raw>{status, raw};
    }
}

#endif
