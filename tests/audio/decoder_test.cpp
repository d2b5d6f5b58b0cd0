// The tool's audio layer: decoding every supported format with its tags,
// refusing damaged and hostile files with a message, fingerprinting
// through the module, and the file walk and progress line of the
// fingerprint command.
#include <gtest/gtest.h>

#include <cstring>

#include "audio_test_support.h"
#include "tool/audio/decoder.h"
#include "tool/audio/fingerprinter.h"
#include "tool/audio/scan.h"
#include "zelto/zelto_manager.h"

namespace {

using audio_test::encode;
using audio_test::song_wav;
namespace fs = std::filesystem;

audio::DecodeResult decode(const fs::path &path, audio::Limits limits = {}) {
    return audio::decode_file(path.string(), limits, [](const int16_t *, size_t) { return true; });
}

const char *const kTags =
    "-metadata title='Paper Comets' -metadata artist='Mira Solenne' -metadata album='Lanterns of Glass' "
    "-metadata album_artist='Various' -metadata track=3/12 -metadata disc=2/2 -metadata date=2004-05-01 "
    "-metadata MUSICBRAINZ_RELEASETRACKID=trk-3 -metadata MUSICBRAINZ_ALBUMID=rel-1";

TEST(AudioDecoder, EveryFormatDecodesWithItsTags) {
    const fs::path wav = song_wav(1, 12);
    struct Case {
        const char *name, *args, *codec;
        bool musicbrainz;  // the container keeps free-form tags
    } cases[] = {
        {"t.flac", "-c:a flac", "flac", true},
        {"t.wav", "-c:a pcm_s16le", "pcm_s16le", false},
        {"t.mp3", "-c:a libmp3lame -b:a 128k", "mp3", true},
        {"t.m4a", "-c:a aac -b:a 96k -movflags use_metadata_tags", "aac", true},
        {"t.ogg", "-c:a libvorbis -q:a 3", "vorbis", true},
        {"t.opus", "-c:a libopus -b:a 48k", "opus", true},
    };
    for (const Case &c : cases) {
        const auto r = decode(encode(wav, c.name, std::string(c.args) + " " + kTags));
        ASSERT_TRUE(r.ok) << c.name << ": " << r.error;
        EXPECT_EQ(r.info.codec, c.codec);
        EXPECT_EQ(r.info.source_rate, std::string(c.name) == "t.opus" ? 48000u : 44100u) << c.name;
        EXPECT_EQ(r.info.source_channels, 2u);
        EXPECT_NEAR(r.info.seconds, 12.0, 0.1) << c.name;
        EXPECT_EQ(r.info.tags.title, "Paper Comets") << c.name;
        EXPECT_EQ(r.info.tags.artist, "Mira Solenne") << c.name;
        if (std::string(c.name) == "t.wav") continue;  // RIFF INFO keeps only a few tags
        EXPECT_EQ(r.info.tags.album, "Lanterns of Glass") << c.name;
        EXPECT_EQ(r.info.tags.album_artist, "Various") << c.name;
        EXPECT_EQ(r.info.tags.track_number, 3u) << c.name;
        EXPECT_EQ(r.info.tags.disc_number, 2u) << c.name;
        EXPECT_EQ(r.info.tags.year, 2004u) << c.name;
        if (c.musicbrainz) {
            EXPECT_EQ(r.info.tags.mb_release_track_id, "trk-3") << c.name;
            EXPECT_EQ(r.info.tags.mb_release_id, "rel-1") << c.name;
        }
    }
}

TEST(AudioDecoder, TagKeysOfTheDifferentTaggersMeanTheSame) {
    struct Case {
        const char *key, *value;
        std::string audio::Tags::*field;
    } cases[] = {
        {"MusicBrainz Release Track Id", "a", &audio::Tags::mb_release_track_id},
        {"MUSICBRAINZ_RELEASETRACKID", "a", &audio::Tags::mb_release_track_id},
        {"MusicBrainz Album Id", "b", &audio::Tags::mb_release_id},
        {"musicbrainz_trackid", "c", &audio::Tags::mb_recording_id},
        {"ALBUMARTIST", "d", &audio::Tags::album_artist},
        {"album-artist", "d", &audio::Tags::album_artist},
    };
    for (const Case &c : cases) {
        audio::Tags tags;
        audio::apply_tag(tags, c.key, c.value);
        EXPECT_EQ(tags.*c.field, c.value) << c.key;
    }
    audio::Tags tags;
    for (const auto &[k, v] : {std::pair{"TRACKNUMBER", " 07 of 9"}, {"disk", "1/1"}, {"year", "1999"}, {"track", "8"}})
        audio::apply_tag(tags, k, v);
    EXPECT_EQ(tags.track_number, 7u);  // the first value stays
    EXPECT_EQ(tags.disc_number, 1u);
    EXPECT_EQ(tags.year, 1999u);
    audio::apply_tag(tags, "title", "First");
    audio::apply_tag(tags, "TITLE", "Second");
    EXPECT_EQ(tags.title, "First");
}

// Copies of a file with bytes changed at `at` (negative: from the end).
fs::path damaged(const fs::path &source, const std::string &name, long at, const std::string &bytes) {
    std::vector<char> data = audio_test::read_bytes(source);
    const size_t pos = at >= 0 ? static_cast<size_t>(at) : data.size() - static_cast<size_t>(-at);
    for (size_t i = 0; i < bytes.size() && pos + i < data.size(); ++i) data[pos + i] = bytes[i];
    return audio_test::write_bytes(name, data);
}

fs::path truncated(const fs::path &source, const std::string &name, double keep) {
    std::vector<char> data = audio_test::read_bytes(source);
    data.resize(static_cast<size_t>(static_cast<double>(data.size()) * keep));
    return audio_test::write_bytes(name, data);
}

TEST(AudioDecoder, BadFilesAreRefusedWithAReason) {
    const fs::path wav = song_wav(2, 10);
    const fs::path flac = encode(wav, "bad.flac", "-c:a flac");
    const fs::path mp3 = encode(wav, "bad.mp3", "-c:a libmp3lame -b:a 128k");
    std::string garbage(400000, '\0');
    for (size_t i = 0; i < garbage.size(); ++i) garbage[i] = static_cast<char>(i * 7919 % 251);
    auto le32 = [](uint32_t v) { return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; };
    struct Case {
        fs::path path;
        const char *reason;
    } cases[] = {
        {audio_test::write_bytes("empty.mp3", {}), "empty file"},
        {audio_test::write_bytes("notes.mp3", std::vector<char>(200, 'x')), "not a readable audio file"},
        {truncated(flac, "half.flac", 0.5), "truncated or damaged: 0:0"},
        {truncated(wav, "half.wav", 0.4), "truncated or damaged: 0:03 of the 0:10"},
        {truncated(flac, "head.flac", 0.002), "not a readable audio file"},
        {damaged(flac, "scrambled.flac", 8000, garbage), "no audio could be decoded"},
        {damaged(wav, "huge-rate.wav", 24, le32(4000000000u)), "not a readable audio file"},
        {damaged(wav, "tiny-rate.wav", 24, le32(1u)), "unsupported sample rate 1 Hz"},
        {damaged(wav, "no-channels.wav", 22, std::string{0, 0}), "no audio stream"},
        {audio_test::work_dir(), "not a regular file"},
        {audio_test::work_dir() / "missing.flac", "cannot read: No such file"},
        {audio_test::silent_flac("ten-hours.flac", 36000, 8000), "silent: nothing audible in the first 10:00"},
        {audio_test::silent_flac("minute.flac", 60, 8000), "silent: nothing audible"},
    };
    for (const Case &c : cases) {
        const auto r = decode(c.path);
        EXPECT_FALSE(r.ok) << c.path;
        EXPECT_FALSE(r.error.empty()) << c.path;
        EXPECT_NE(r.error.find(c.reason), std::string::npos) << c.path << ": " << r.error;
        EXPECT_EQ(r.error.find('\n'), std::string::npos);
    }
    // A little damage in a long file is concealed; the file still decodes.
    const auto r = decode(damaged(mp3, "scratched.mp3", 30000, garbage.substr(0, 40)));
    EXPECT_TRUE(r.ok) << r.error;
}

TEST(AudioDecoder, LimitsCutLongAudio) {
    audio::Limits limits;
    limits.max_seconds = 4;
    size_t samples = 0;
    const auto r = audio::decode_file(song_wav(3, 10).string(), limits, [&](const int16_t *, size_t n) {
        samples += n;
        return true;
    });
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_TRUE(r.info.cut);
    EXPECT_EQ(samples, 4u * audio::kOutputRate);
    // A sink that says stop stops the decoding.
    const auto stopped = audio::decode_file(song_wav(3, 10).string(), {}, [](const int16_t *, size_t) { return false; });
    EXPECT_FALSE(stopped.ok);
    EXPECT_EQ(stopped.error, "stopped");
}

TEST(AudioDecoder, ContentIdsFollowTheBytes) {
    const fs::path a = song_wav(4, 5);
    std::string error;
    const std::string id = audio::content_id(a.string(), error);
    EXPECT_EQ(id.size(), 64u);
    fs::copy_file(a, audio_test::work_dir() / "renamed.wav", fs::copy_options::overwrite_existing);
    EXPECT_EQ(audio::content_id((audio_test::work_dir() / "renamed.wav").string(), error), id);
    EXPECT_NE(audio::content_id(damaged(a, "one-byte.wav", -1, "\x01").string(), error), id);
    EXPECT_EQ(audio::content_id("/no/such/file", error), "");
    EXPECT_NE(error.find("cannot read"), std::string::npos);
}

TEST(AudioFingerprint, LosslessCopiesGiveTheSameTextThroughTheModule) {
    ASSERT_EQ(zelto_cantrix_initialize(zelto_manager_get_table()), 0u);
    zelto_user *user = nullptr;
    ASSERT_EQ(zelto_manager_user_create("audio", &user), 0u);
    zelto_cantrix_query_handle query = nullptr;
    ASSERT_EQ(zelto_cantrix_query_create(user, nullptr, nullptr, &query), 0u);
    const fs::path wav = song_wav(5, 15);
    const auto a = audio::fingerprint_file(query, wav.string(), {});
    const auto b = audio::fingerprint_file(query, encode(wav, "same.flac", "-c:a flac").string(), {});
    ASSERT_TRUE(a.decode.ok) << a.decode.error;
    ASSERT_TRUE(b.decode.ok) << b.decode.error;
    EXPECT_EQ(a.text.rfind("DURATION=15\nFINGERPRINT=", 0), 0u) << a.text;
    EXPECT_EQ(a.text, b.text);
    // The query holds the fingerprint for a find operation.
    const char *held = nullptr;
    ASSERT_EQ(zelto_cantrix_query_get_fp_data(query, &held), 0u);
    EXPECT_STREQ(held, b.text.c_str());
    const auto refused = audio::fingerprint_file(query, (audio_test::work_dir() / "missing.mp3").string(), {});
    EXPECT_FALSE(refused.decode.ok);
    EXPECT_NE(refused.decode.error.find("cannot read"), std::string::npos);
    zelto_cantrix_query_release(query);
    zelto_manager_user_release(user);
    zelto_cantrix_shutdown();
}

TEST(AudioScan, FoldersGiveTheirAudioFilesInOrderAndNamedFilesCountAsGiven) {
    const fs::path root = audio_test::work_dir() / "library";
    fs::create_directories(root / "B" / "deep");
    fs::create_directories(root / "A");
    for (const char *f : {"A/2.flac", "A/1.MP3", "A/cover.jpg", "B/deep/x.opus", "B/notes.txt", "B/y.M4A"})
        std::ofstream(root / f) << "x";
    fs::create_directory_symlink(root, root / "B" / "loop");
    const audio::Scan scan =
        audio::collect_files({root.string(), (root / "B" / "notes.txt").string(), (root / "A" / "2.flac").string(),
                              (root / "nothing").string()});
    const std::vector<std::string> expected = {(root / "A/1.MP3").string(), (root / "A/2.flac").string(),
                                               (root / "B/deep/x.opus").string(), (root / "B/y.M4A").string(),
                                               (root / "B/notes.txt").string()};
    EXPECT_EQ(scan.files, expected);
    ASSERT_EQ(scan.problems.size(), 1u);
    EXPECT_EQ(scan.problems[0].second, "no such file or folder");
    EXPECT_FALSE(audio::audio_extension("a.flac.txt"));
    EXPECT_FALSE(audio::audio_extension("dir.mp3/file"));
    EXPECT_TRUE(audio::audio_extension("x.Opus"));
}

TEST(AudioScan, ProgressLineShowsCountRateAndTimeLeft) {
    EXPECT_EQ(audio::progress_line(0, 10, 0, 0, 10), "[..........] 0/10");
    EXPECT_EQ(audio::progress_line(4, 10, 2.0, 720, 10), "[####......] 4/10  2.0 files/s  360x real time  0:03 left");
    EXPECT_EQ(audio::progress_line(10, 10, 100, 3000, 4), "[####] 10/10  0.1 files/s  30x real time  0:00 left");
}

}  // namespace
