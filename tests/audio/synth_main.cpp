// Audio for the tool's script tests:
//   cantrix_synth song SEED SECONDS OUT.wav      a synthetic song (44.1 kHz stereo)
//   cantrix_synth silence SECONDS RATE OUT.flac  digital silence, a few bytes a frame
#include <cstdio>
#include <cstdlib>
#include <string>

#include "audio_test_support.h"

int main(int argc, char **argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "song" && argc == 5) {
        const synth::Song song = synth::make_song(std::strtoull(argv[2], nullptr, 10), std::atof(argv[3]));
        return synth::write_wav(argv[4], synth::to_s16(song.samples), song.rate, song.channels) ? 0 : 1;
    }
    if (what == "silence" && argc == 5) {
        const auto path = audio_test::silent_flac("silence.flac", std::strtoull(argv[2], nullptr, 10),
                                                  static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10)));
        std::error_code ec;
        std::filesystem::rename(path, argv[4], ec);
        if (ec) std::filesystem::copy_file(path, argv[4], std::filesystem::copy_options::overwrite_existing, ec);
        return ec ? 1 : 0;
    }
    std::fprintf(stderr, "usage: cantrix_synth song SEED SECONDS OUT.wav | cantrix_synth silence SECONDS RATE OUT.flac\n");
    return 2;
}
