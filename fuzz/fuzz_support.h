// Shared pieces of the property harnesses: a broken property aborts (which
// libFuzzer reports as a crash with its input), a reader that cuts the
// fuzzer's bytes into choices and texts, the system's own UTF-8 reading
// written out plainly as an independent model, and the host's live-block
// count as the leak check.
#ifndef CANTRIX_FUZZ_SUPPORT_H
#define CANTRIX_FUZZ_SUPPORT_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "zelto/zelto_manager.h"

namespace fuzz {

inline void require(bool ok, const char *what, const std::string &detail = {}) {
    if (ok) return;
    std::fprintf(stderr, "property broken: %s %s\n", what, detail.c_str());
    std::abort();
}

// Takes choices, numbers and texts off the front of the input; past its end
// everything reads as zero.
class Input {
   public:
    Input(const uint8_t *data, size_t size) : p_(data), end_(data + size) {}
    bool empty() const { return p_ >= end_; }
    size_t left() const { return static_cast<size_t>(end_ - p_); }
    uint8_t byte() { return p_ < end_ ? *p_++ : 0; }
    template <typename T>
    T value() {
        T v{};
        const size_t n = left() < sizeof v ? left() : sizeof v;
        if (n != 0) std::memcpy(&v, p_, n);
        p_ += n;
        return v;
    }
    // A text whose length is the next byte (at most `max`), of any bytes
    // but 0.
    std::string text(size_t max = 255) {
        const size_t want = byte() % (max + 1);
        std::string s;
        while (s.size() < want && p_ < end_) {
            const uint8_t b = *p_++;
            s += static_cast<char>(b ? b : ' ');
        }
        return s;
    }
    // Everything left, cut at the first 0.
    std::string rest() {
        std::string s(reinterpret_cast<const char *>(p_), left());
        p_ = end_;
        const size_t nul = s.find('\0');
        if (nul != std::string::npos) s.resize(nul);
        return s;
    }

   private:
    const uint8_t *p_;
    const uint8_t *end_;
};

// The system's UTF-8: sequences of one to three bytes, lead bytes 0x00-0x7F,
// 0xC0-0xDF and 0xE0-0xEF, continuation bytes 0x80-0xBF; overlong forms and
// surrogates pass. Returns the code point and sets *size, 0 for an invalid
// or cut sequence (a terminator is never a continuation byte).
inline uint32_t decode_model(const std::string &s, size_t at, size_t *size) {
    auto byte = [&](size_t i) { return i < s.size() ? static_cast<uint8_t>(s[i]) : 0u; };
    const uint32_t b = byte(at);
    size_t n = b < 0x80 ? 1 : (b & 0xE0) == 0xC0 ? 2 : (b & 0xF0) == 0xE0 ? 3 : 0;
    uint32_t cp = n == 1 ? b : n == 2 ? (b & 0x1F) : (b & 0x0F);
    for (size_t k = 1; k < n; ++k) {
        const uint32_t c = byte(at + k);
        if ((c & 0xC0) != 0x80) {
            n = 0;
            break;
        }
        cp = (cp << 6) | (c & 0x3F);
    }
    *size = n;
    return n ? cp : 0;
}

// Code points of a whole text, or false at the first invalid sequence.
inline bool decode_all(const std::string &s, std::vector<uint32_t> *out) {
    out->clear();
    for (size_t at = 0, n = 0; at < s.size(); at += n) {
        const uint32_t cp = decode_model(s, at, &n);
        if (n == 0) return false;
        out->push_back(cp);
    }
    return true;
}

inline std::string encode_model(uint32_t cp) {
    std::string out;
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
    return out;
}

// Runs f with the n-th allocation from now failing (none for n = 0) and
// tells whether that failure was injected.
template <typename F>
bool with_failing_allocation(uint64_t n, F &&f) {
    zelto_manager_memory_fail_nth(n);
    f();
    const bool fired = n != 0 && zelto_manager_memory_failure_fired() != 0;
    zelto_manager_memory_fail_nth(0);
    return fired;
}

// Every heap block that the library takes through the host is given back by
// the end of the scope.
class BlockCount {
   public:
    BlockCount() : before_(zelto_manager_memory_live_blocks()) {}
    void check(const char *what, const std::string &detail = {}) const {
        require(zelto_manager_memory_live_blocks() == before_, what, detail);
    }

   private:
    int64_t before_;
};

}  // namespace fuzz

#endif
