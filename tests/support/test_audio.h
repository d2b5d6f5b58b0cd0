// Deterministic synthetic music for the fingerprint tests and benchmark:
// chord progressions, melodies and noise, rendered to interleaved PCM of 8
// (unsigned), 16 or 32 (signed) bits in native byte order.
#ifndef TEST_AUDIO_H
#define TEST_AUDIO_H

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace test_audio {

enum class Signal { chords, melody, noise };

inline const char *name(Signal signal) {
    return signal == Signal::chords ? "chords" : signal == Signal::melody ? "melody" : "noise";
}

// Interleaved samples in [-1, 1]. The right channel of stereo audio is the
// same music a little quieter and with an echo, so the channels differ.
inline std::vector<float> make(Signal signal, uint32_t rate, uint32_t channels, double seconds, uint32_t seed = 1) {
    constexpr double kTwoPi = 6.283185307179586;
    const size_t frames = static_cast<size_t>(seconds * rate);
    std::vector<float> mono(frames);
    uint32_t state = seed * 2654435761u + 1;
    auto random = [&] {
        state = state * 1664525u + 1013904223u;
        return static_cast<double>(state >> 8) / 16777216.0;  // [0, 1)
    };
    // Semitones above A3 (220 Hz).
    auto pitch = [](double semitones) { return 220.0 * std::pow(2.0, semitones / 12.0); };
    static const int kProgression[][3] = {{0, 4, 7}, {5, 9, 12}, {7, 11, 14}, {-3, 0, 4}, {2, 5, 9}, {-5, -1, 2}};
    static const int kTune[] = {0, 2, 4, 5, 7, 5, 4, 2, 9, 7, 5, 4, 2, 4, 0, -1, 0, 7, 12, 11, 9, 7, 4, 2};
    const int offset = static_cast<int>(seed % 7);  // a different seed transposes the music
    double phase[4] = {};
    double noise_level = 0;
    for (size_t i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / rate;
        double value = 0;
        if (signal == Signal::chords) {
            const auto &chord = kProgression[static_cast<size_t>(t / 0.75) % 6];
            const double beat = std::fmod(t, 0.375) / 0.375;
            for (int v = 0; v < 3; ++v) {
                phase[v] += kTwoPi * pitch(chord[v] + offset) / rate;
                value += std::sin(phase[v]) * (0.25 + 0.1 * (1 - beat));
            }
            phase[3] += kTwoPi * pitch(chord[0] + offset - 12) / rate;  // bass
            value += 0.2 * std::sin(phase[3]);
        } else if (signal == Signal::melody) {
            const double note = t / 0.25;
            const double within = note - std::floor(note);
            phase[0] += kTwoPi * pitch(kTune[static_cast<size_t>(note) % 24] + offset + 12) / rate;
            const double envelope = std::exp(-4.0 * within) * std::fmin(1.0, within * 200);
            value = 0.6 * envelope * (std::sin(phase[0]) + 0.3 * std::sin(2 * phase[0]) + 0.1 * std::sin(3 * phase[0]));
        } else {
            // Noise shaped by a rhythm and a one-pole filter that sweeps.
            const double beat = std::fmod(t, 0.5) / 0.5;
            const double colour = 0.05 + 0.9 * (0.5 + 0.5 * std::sin(kTwoPi * t / 7));
            noise_level += colour * ((random() * 2 - 1) - noise_level);
            value = noise_level * (0.3 + 0.6 * std::exp(-6 * beat));
        }
        mono[i] = static_cast<float>(std::fmax(-1.0, std::fmin(1.0, value)));
    }
    std::vector<float> out(frames * channels);
    const size_t echo = rate / 20;
    for (size_t i = 0; i < frames; ++i) {
        out[i * channels] = mono[i];
        if (channels == 2) out[i * 2 + 1] = 0.8f * mono[i] + (i >= echo ? 0.15f * mono[i - echo] : 0.0f);
    }
    return out;
}

// PCM bytes of the samples at a width of 8, 16 or 32 bits.
inline std::vector<uint8_t> encode(const std::vector<float> &samples, uint32_t bits) {
    std::vector<uint8_t> out(samples.size() * (bits / 8));
    for (size_t i = 0; i < samples.size(); ++i) {
        const double v = samples[i];
        if (bits == 8) {
            out[i] = static_cast<uint8_t>(std::lround(128 + v * 127));
        } else if (bits == 16) {
            const auto s = static_cast<int16_t>(std::lround(v * 32767));
            std::memcpy(&out[i * 2], &s, 2);
        } else {
            const auto s = static_cast<int32_t>(std::lround(v * 2147483647.0));
            std::memcpy(&out[i * 4], &s, 4);
        }
    }
    return out;
}

inline std::vector<uint8_t> pcm(Signal signal, uint32_t rate, uint32_t channels, uint32_t bits, double seconds,
                                uint32_t seed = 1) {
    return encode(make(signal, rate, channels, seconds, seed), bits);
}

}  // namespace test_audio

#endif
