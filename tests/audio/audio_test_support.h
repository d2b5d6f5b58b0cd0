// Audio files for the tests of the tool's audio layer: synthetic songs
// written as WAV and encoded by the ffmpeg program, a silent FLAC file of
// any length written directly (constant subframes: a few bytes a frame),
// and damaged copies.
#ifndef AUDIO_TEST_SUPPORT_H
#define AUDIO_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/synth_song.h"

namespace audio_test {

namespace fs = std::filesystem;

// A folder of its own for each test program run, removed at exit.
inline const fs::path &work_dir() {
    static const fs::path dir = [] {
        std::string pattern = (fs::temp_directory_path() / "cantrix-audio-XXXXXX").string();
        const char *made = mkdtemp(pattern.data());
        return fs::path(made ? made : "/tmp/cantrix-audio");
    }();
    static const struct Cleanup {
        ~Cleanup() {
            std::error_code ec;
            fs::remove_all(dir, ec);
        }
    } cleanup;
    return dir;
}

inline bool run_ffmpeg(const std::string &args) {
    const std::string command = "ffmpeg -nostdin -v error -y " + args + " 2>&1";
    return std::system(command.c_str()) == 0;
}

// Song `seed` of `seconds` as a 44.1 kHz stereo WAV (made once per name).
inline fs::path song_wav(uint64_t seed, double seconds) {
    const fs::path path = work_dir() / ("song" + std::to_string(seed) + "_" + std::to_string(static_cast<int>(seconds)) + ".wav");
    if (!fs::exists(path)) {
        const synth::Song song = synth::make_song(seed, seconds);
        EXPECT_TRUE(synth::write_wav(path.string(), synth::to_s16(song.samples), song.rate, song.channels));
    }
    return path;
}

// `input` encoded by ffmpeg with `args` (codec, filters, metadata) to `name`.
inline fs::path encode(const fs::path &input, const std::string &name, const std::string &args) {
    const fs::path out = work_dir() / name;
    EXPECT_TRUE(run_ffmpeg("-i '" + input.string() + "' " + args + " '" + out.string() + "'")) << name;
    return out;
}

inline std::vector<char> read_bytes(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), {});
}

inline fs::path write_bytes(const std::string &name, const std::vector<char> &bytes) {
    const fs::path out = work_dir() / name;
    std::ofstream(out, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return out;
}

// FLAC of digital silence: `seconds` of mono 16-bit audio at `rate`, in
// frames of 65535 samples, each one constant subframe.
inline fs::path silent_flac(const std::string &name, uint64_t seconds, uint32_t rate) {
    std::vector<uint8_t> out = {'f', 'L', 'a', 'C', 0x80, 0, 0, 34};
    const uint32_t block = 65535;
    const uint64_t total = seconds * rate;
    auto put = [&](uint64_t v, int bytes) {
        for (int i = bytes - 1; i >= 0; --i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    };
    put(block, 2);
    put(block, 2);
    put(0, 3);
    put(0, 3);
    // rate (20 bits), channels-1 (3), bits-1 (5), total samples (36)
    const uint64_t packed = uint64_t{rate} << 44 | uint64_t{0} << 41 | uint64_t{15} << 36 | (total & 0xFFFFFFFFFull);
    put(packed, 8);
    put(0, 8);
    put(0, 8);  // MD5 unknown
    auto crc8 = [](const uint8_t *p, size_t n) {
        uint8_t c = 0;
        for (size_t i = 0; i < n; ++i) {
            c ^= p[i];
            for (int b = 0; b < 8; ++b) c = static_cast<uint8_t>(c & 0x80 ? (c << 1) ^ 0x07 : c << 1);
        }
        return c;
    };
    auto crc16 = [](const uint8_t *p, size_t n) {
        uint16_t c = 0;
        for (size_t i = 0; i < n; ++i) {
            c ^= static_cast<uint16_t>(p[i] << 8);
            for (int b = 0; b < 8; ++b) c = static_cast<uint16_t>(c & 0x8000 ? (c << 1) ^ 0x8005 : c << 1);
        }
        return c;
    };
    for (uint64_t frame = 0, done = 0; done < total; ++frame) {
        const auto n = static_cast<uint32_t>(std::min<uint64_t>(block, total - done));
        const size_t start = out.size();
        out.insert(out.end(), {0xFF, 0xF8, 0x70, 0x08});  // sync, block size in 16 bits, rate from STREAMINFO, mono, 16 bits
        if (frame < 0x80) {
            out.push_back(static_cast<uint8_t>(frame));
        } else if (frame < 0x800) {
            out.push_back(static_cast<uint8_t>(0xC0 | frame >> 6));
            out.push_back(static_cast<uint8_t>(0x80 | (frame & 0x3F)));
        } else {
            out.push_back(static_cast<uint8_t>(0xE0 | frame >> 12));
            out.push_back(static_cast<uint8_t>(0x80 | (frame >> 6 & 0x3F)));
            out.push_back(static_cast<uint8_t>(0x80 | (frame & 0x3F)));
        }
        put(n - 1, 2);
        out.push_back(crc8(out.data() + start, out.size() - start));
        out.insert(out.end(), {0x00, 0x00, 0x00});  // CONSTANT subframe, value 0
        put(crc16(out.data() + start, out.size() - start), 2);
        done += n;
    }
    return write_bytes(name, std::vector<char>(out.begin(), out.end()));
}

}  // namespace audio_test

#endif
