// Wide (UCS-2, big-endian) texts for the text correlation tests: built from
// code points or ASCII, read back as ASCII.
#ifndef CANTRIX_TEXTCORR_TEST_SUPPORT_H
#define CANTRIX_TEXTCORR_TEST_SUPPORT_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "cantrix_test.h"
#include "textcorr/ombr_textcorr_internal.h"

// Big-endian wide text from code points, terminated.
inline std::vector<uni_char> be(std::initializer_list<uint32_t> units) {
    std::vector<uni_char> out;
    for (uint32_t u : units) {
        uni_char unit;
        auto *b = reinterpret_cast<uint8_t *>(&unit);
        b[0] = static_cast<uint8_t>(u >> 8);
        b[1] = static_cast<uint8_t>(u);
        out.push_back(unit);
    }
    out.push_back(0);
    return out;
}

inline std::vector<uni_char> be(const std::string &ascii) {
    std::vector<uni_char> out;
    for (char c : ascii) out.push_back(be({static_cast<uint8_t>(c)})[0]);
    out.push_back(0);
    return out;
}

// ASCII view of big-endian wide text (low bytes).
inline std::string ascii(const uni_char *text) {
    std::string s;
    for (; *text; ++text) s.push_back(static_cast<char>(reinterpret_cast<const uint8_t *>(text)[1]));
    return s;
}

#endif
