// Deterministic synthetic songs for the audio identification tests, the
// corpus generator and the matching benchmark. A seed fixes everything: the
// tempo, key and scale, a chord progression per section, a melody, a bass
// line, a drum pattern, the timbres (wavetables with random harmonics), the
// stereo placement, a noise bed and an echo. Songs of different seeds are
// different pieces of music in the same style, which is what makes wrong
// matches possible and worth measuring.
#ifndef SYNTH_SONG_H
#define SYNTH_SONG_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace synth {

// splitmix64: small, fast, the same on every platform.
class Random {
   public:
    explicit Random(uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15ull + 0x632BE59BD9B4E019ull) {}
    uint64_t next() {
        uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    double uniform() { return static_cast<double>(next() >> 11) / 9007199254740992.0; }  // [0, 1)
    double range(double lo, double hi) { return lo + (hi - lo) * uniform(); }
    int pick(int n) { return static_cast<int>(next() % static_cast<uint64_t>(n)); }
    bool chance(double p) { return uniform() < p; }

   private:
    uint64_t state_;
};

constexpr double kTwoPi = 6.283185307179586;

// One period of a waveform with the given harmonic amplitudes.
class Wavetable {
   public:
    static constexpr uint32_t kSize = 2048;
    Wavetable() = default;
    explicit Wavetable(const std::vector<double> &harmonics) {
        double peak = 0;
        for (uint32_t i = 0; i < kSize; ++i) {
            double v = 0;
            for (size_t h = 0; h < harmonics.size(); ++h)
                v += harmonics[h] * std::sin(kTwoPi * static_cast<double>((h + 1) * i) / kSize);
            table_[i] = static_cast<float>(v);
            peak = std::max(peak, std::fabs(v));
        }
        for (auto &v : table_) v = static_cast<float>(v / (peak > 0 ? peak : 1));
        table_[kSize] = table_[0];
    }
    // Phase in cycles, [0, 1).
    float at(double phase) const {
        const double x = phase * kSize;
        const auto i = static_cast<uint32_t>(x);
        const auto f = static_cast<float>(x - i);
        return table_[i] + (table_[i + 1] - table_[i]) * f;
    }

   private:
    std::array<float, kSize + 1> table_{};
};

struct Song {
    uint32_t rate = 44100;
    uint32_t channels = 2;
    std::vector<float> samples;  // interleaved, in [-1, 1]
    double seconds() const { return static_cast<double>(samples.size()) / channels / rate; }
};

// 16-bit PCM of interleaved float samples.
inline std::vector<int16_t> to_s16(const std::vector<float> &samples) {
    std::vector<int16_t> out(samples.size());
    for (size_t i = 0; i < samples.size(); ++i)
        out[i] = static_cast<int16_t>(std::nearbyint(std::clamp(samples[i], -1.0f, 1.0f) * 32767.0f));
    return out;
}

// A RIFF/WAVE file of 16-bit PCM.
inline bool write_wav(const std::string &path, const std::vector<int16_t> &pcm, uint32_t rate, uint32_t channels) {
    std::FILE *f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const auto data_bytes = static_cast<uint32_t>(pcm.size() * 2);
    auto u32 = [&](uint32_t v) {
        const unsigned char b[4] = {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8),
                                    static_cast<unsigned char>(v >> 16), static_cast<unsigned char>(v >> 24)};
        std::fwrite(b, 1, 4, f);
    };
    auto u16 = [&](uint32_t v) {
        const unsigned char b[2] = {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8)};
        std::fwrite(b, 1, 2, f);
    };
    std::fwrite("RIFF", 1, 4, f);
    u32(36 + data_bytes);
    std::fwrite("WAVEfmt ", 1, 8, f);
    u32(16);
    u16(1);
    u16(channels);
    u32(rate);
    u32(rate * channels * 2);
    u16(channels * 2);
    u16(16);
    std::fwrite("data", 1, 4, f);
    u32(data_bytes);
    std::fwrite(pcm.data(), 2, pcm.size(), f);  // little-endian hosts only
    return std::fclose(f) == 0;
}

namespace detail {

struct Voice {
    const Wavetable *wave;
    double start, length;           // seconds
    double frequency, amplitude;
    double attack, release;         // seconds
    double pan;                     // 0 left .. 1 right
    double vibrato;                 // depth in semitones
};

inline double midi_hz(double note) { return 440.0 * std::pow(2.0, (note - 69.0) / 12.0); }

inline std::vector<double> random_harmonics(Random &r, int count, double tilt) {
    std::vector<double> h(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) h[static_cast<size_t>(i)] = r.range(0.2, 1.0) / std::pow(i + 1.0, tilt);
    return h;
}

// Sine by table, phase in cycles.
inline float sine(double phase) {
    static const Wavetable table(std::vector<double>{1.0});
    return table.at(phase >= 0 && phase < 1 ? phase : phase - std::floor(phase));
}

// Adds one voice into the stereo buffer. Envelopes are linear; vibrato
// bends the pitch by a sine of 5.5 Hz (linearised: the depth is small).
inline void render(const Voice &v, uint32_t rate, std::vector<float> &out) {
    const size_t frames = out.size() / 2;
    const auto first = static_cast<size_t>(v.start * rate);
    if (first >= frames) return;
    const size_t attack = std::max<size_t>(1, static_cast<size_t>(v.attack * rate));
    const size_t hold = static_cast<size_t>(v.length * rate);
    const size_t release = std::max<size_t>(1, static_cast<size_t>(v.release * rate));
    const size_t count = std::min(hold + release, frames - first);
    const float left = static_cast<float>(std::cos(v.pan * kTwoPi / 4) * v.amplitude);
    const float right = static_cast<float>(std::sin(v.pan * kTwoPi / 4) * v.amplitude);
    const double depth = v.vibrato * 0.0577623;  // ln(2) / 12 per semitone
    const double step = v.frequency / rate, lfo_step = 5.5 / rate;
    const float up = 1.0f / static_cast<float>(attack), down = 1.0f / static_cast<float>(release);
    double phase = 0, lfo = 0;
    float *p = out.data() + first * 2;
    for (size_t i = 0; i < count; ++i, p += 2) {
        float env = i < attack ? static_cast<float>(i) * up : 1.0f;
        if (i >= hold) env *= std::max(0.0f, 1.0f - static_cast<float>(i - hold) * down);
        if (depth != 0) {
            lfo += lfo_step;
            if (lfo >= 1) lfo -= 1;
            phase += step * (1.0 + depth * sine(lfo));
        } else {
            phase += step;
        }
        if (phase >= 1) phase -= 1;
        const float s = v.wave->at(phase) * env;
        p[0] += s * left;
        p[1] += s * right;
    }
}

// tanh-like soft clipping, cheap.
inline float soft_clip(float x) {
    x = std::clamp(x, -3.0f, 3.0f);
    return x * (27.0f + x * x) / (27.0f + 9.0f * x * x);
}

}  // namespace detail

// A song of `seconds` (0: the seed picks 120 to 300 seconds) at 44.1 kHz stereo.
inline Song make_song(uint64_t seed, double seconds = 0) {
    using detail::Voice;
    Random r(seed);
    Song song;
    if (seconds <= 0) seconds = r.range(120, 300);
    const uint32_t rate = song.rate;
    const auto frames = static_cast<size_t>(seconds * rate);
    std::vector<float> mix(frames * 2, 0.0f);

    const double bpm = r.range(72, 168);
    const double beat = 60.0 / bpm, bar = 4 * beat, step = beat / 4;
    const int root = 40 + r.pick(12);  // bass register
    static const int kMajor[] = {0, 2, 4, 5, 7, 9, 11}, kMinor[] = {0, 2, 3, 5, 7, 8, 10}, kDorian[] = {0, 2, 3, 5, 7, 9, 10};
    const int *scale = r.pick(3) == 0 ? kMajor : (r.chance(0.5) ? kMinor : kDorian);
    auto degree = [&](int d) { return scale[((d % 7) + 7) % 7] + 12 * (d >= 0 ? d / 7 : (d - 6) / 7); };

    const Wavetable lead(detail::random_harmonics(r, 8, r.range(0.8, 2.0)));
    const Wavetable pad(detail::random_harmonics(r, 12, r.range(1.0, 1.6)));
    const Wavetable bass(detail::random_harmonics(r, 5, r.range(1.2, 2.5)));
    const Wavetable pluck(detail::random_harmonics(r, 10, r.range(0.6, 1.4)));
    const double lead_pan = r.range(0.3, 0.7), pluck_pan = r.range(0.1, 0.9), pad_width = r.range(0.1, 0.4);

    // Three sections, each with its own progression, melody and drum pattern.
    struct Section {
        int chords[4];
        int melody[32];  // scale degree per eighth note over two bars; -100 is a rest
        uint16_t kick, snare, hat;  // 16-step patterns
        bool arpeggio;
    };
    std::vector<Section> sections(3);
    for (auto &s : sections) {
        for (int &c : s.chords) c = r.pick(7);
        s.chords[0] = r.chance(0.6) ? 0 : s.chords[0];
        int d = 7 + r.pick(5);
        for (int &m : s.melody) {
            if (r.chance(0.2)) {
                m = -100;
                continue;
            }
            d += r.pick(5) - 2;
            d = std::clamp(d, 4, 16);
            m = d;
        }
        s.kick = static_cast<uint16_t>(0x0101 | (r.next() & 0x2424));
        s.snare = static_cast<uint16_t>(0x1010 | (r.next() & 0x0202));
        s.hat = static_cast<uint16_t>(r.chance(0.5) ? 0x5555 : 0xFFFF & (0x5555 | r.next()));
        s.arpeggio = r.chance(0.5);
    }
    static const int kForm[] = {0, 0, 1, 0, 1, 2, 1, 1};

    std::vector<Voice> voices;
    const int bars = static_cast<int>(std::ceil(seconds / bar));
    for (int b = 0; b < bars; ++b) {
        const Section &s = sections[static_cast<size_t>(kForm[(b / 4) % 8])];
        const double t0 = b * bar;
        const int chord = s.chords[b % 4];
        // Pad: a triad (sometimes a seventh) held for the bar.
        for (int v = 0; v < (b % 8 == 7 ? 4 : 3); ++v)
            voices.push_back({&pad, t0, bar * 0.95, detail::midi_hz(root + 12 + degree(chord + 2 * v)), 0.07,
                              0.08, 0.15, 0.5 + pad_width * (v - 1), 0.0});
        // Bass: root on the beats, fifth on some offbeats.
        for (int q = 0; q < 4; ++q) {
            const int note = root + degree(chord) + (q == 2 && r.chance(0.3) ? 7 : 0);
            voices.push_back({&bass, t0 + q * beat, beat * 0.8, detail::midi_hz(note), 0.22, 0.01, 0.05, 0.5, 0.0});
        }
        // Melody from the section's motif, varied now and then.
        for (int e = 0; e < 8; ++e) {
            int m = s.melody[(b % 2) * 8 + e + ((b / 8) % 2 ? 16 : 0)];
            if (m == -100) continue;
            if (r.chance(0.1)) m += r.pick(3) - 1;
            voices.push_back({&lead, t0 + e * 2 * step, 2 * step * 0.9, detail::midi_hz(root + 24 + degree(m)), 0.16,
                              0.02, 0.08, lead_pan, 0.15});
        }
        // Arpeggio or plucked chord tones on sixteenths.
        if (s.arpeggio)
            for (int k = 0; k < 16; ++k)
                voices.push_back({&pluck, t0 + k * step, step * 0.7, detail::midi_hz(root + 24 + degree(chord + 2 * (k % 3))),
                                  0.06, 0.003, 0.03, pluck_pan, 0.0});
    }
    for (const Voice &v : voices) detail::render(v, rate, mix);

    // Drums and a noise bed, drawn sample by sample.
    Random noise(seed ^ 0xD1B54A32D192ED03ull);
    double hp_prev = 0, bed = 0;
    for (int b = 0; b < bars; ++b) {
        const Section &s = sections[static_cast<size_t>(kForm[(b / 4) % 8])];
        for (int k = 0; k < 16; ++k) {
            const auto first = static_cast<size_t>((b * bar + k * step) * rate);
            const bool kick = s.kick >> k & 1, snare = s.snare >> k & 1, hat = s.hat >> k & 1;
            if (!kick && !snare && !hat) continue;
            const auto length = static_cast<size_t>(0.25 * rate);
            // Exponential decays by recurrence: one multiplication a sample.
            const double d9 = std::exp(-9.0 / rate), d18 = std::exp(-18.0 / rate), d30 = std::exp(-30.0 / rate),
                         d60 = std::exp(-60.0 / rate);
            double e9 = 1, e18 = 1, e30 = 1, e60 = 1, kick_phase = 0, snare_phase = 0;
            for (size_t i = 0; i < length && first + i < frames; ++i) {
                double v = 0;
                if (kick) {
                    kick_phase += (45 + 90 * e30) / rate;
                    v += 0.5 * detail::sine(kick_phase) * e9;
                }
                const double w = noise.range(-1, 1);
                if (snare) {
                    snare_phase += 185.0 / rate;
                    v += (0.25 * w + 0.15 * detail::sine(snare_phase)) * e18;
                }
                if (hat) {
                    v += 0.12 * (w - hp_prev) * e60;
                    hp_prev = w;
                }
                e9 *= d9;
                e18 *= d18;
                e30 *= d30;
                e60 *= d60;
                mix[(first + i) * 2] += static_cast<float>(v);
                mix[(first + i) * 2 + 1] += static_cast<float>(v);
            }
        }
    }
    const double bed_level = r.range(0.005, 0.02);
    for (size_t i = 0; i < frames; ++i) {
        bed += 0.05 * (noise.range(-1, 1) - bed);
        mix[i * 2] += static_cast<float>(bed_level * bed * 4);
        mix[i * 2 + 1] += static_cast<float>(bed_level * noise.range(-1, 1));
    }
    // Echo on the right channel, then a gentle limiter and a fade out.
    const auto echo = static_cast<size_t>(r.range(0.08, 0.3) * rate);
    for (size_t i = frames; i-- > echo;) mix[i * 2 + 1] += 0.25f * mix[(i - echo) * 2];
    float peak = 0;
    for (float v : mix) peak = std::max(peak, std::fabs(v));
    const float gain = peak > 0 ? 0.9f / peak : 1.0f;
    const auto fade = static_cast<size_t>(2.0 * rate);
    for (size_t i = 0; i < frames; ++i) {
        const float f = i + fade > frames ? static_cast<float>(frames - i) / fade : 1.0f;
        mix[i * 2] = detail::soft_clip(mix[i * 2] * gain * 1.2f) * f;
        mix[i * 2 + 1] = detail::soft_clip(mix[i * 2 + 1] * gain * 1.2f) * f;
    }
    song.samples = std::move(mix);
    return song;
}

}  // namespace synth

#endif
