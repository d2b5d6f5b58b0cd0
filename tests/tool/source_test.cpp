// Reading the TOC of `cantrix identify` from each source: origins, disc IDs,
// warnings, and error messages as the tool prints them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "tests/tool/disc_test_support.h"
#include "tool/disc/source.h"
#include "tool/disc/text_lines.h"

namespace {

using disc::SourceKind;
using disc::SourceRequest;

// A file in the temporary directory, removed with the object.
class TempFile {
   public:
    explicit TempFile(const std::string &bytes) {
        char name[] = "/tmp/cantrix_source_XXXXXX";
        const int fd = mkstemp(name);
        EXPECT_GE(fd, 0);
        if (fd >= 0) close(fd);
        path_ = name;
        std::ofstream(path_, std::ios::binary) << bytes;
    }
    ~TempFile() { std::remove(path_.c_str()); }
    const std::string &path() const { return path_; }

   private:
    std::string path_;
};

SourceRequest request(SourceKind kind, std::string text) {
    SourceRequest r;
    r.kind = kind;
    r.text = std::move(text);
    return r;
}

TEST(Source, TocTexts) {
    auto offsets = disc::read_source(request(SourceKind::toc, "150 14672 27367 41225"));
    ASSERT_TRUE(offsets);
    EXPECT_EQ(offsets->origin, "offsets form");
    EXPECT_EQ(offsets->toc.offsets_text(), "150 14672 27367 41225");
    EXPECT_EQ(offsets->ids.musicbrainz, "xyJBxyfybLWr1uGvUALDEQEuQwQ-");
    EXPECT_EQ(offsets->ids.freedb, "1e022303");
    EXPECT_TRUE(offsets->warnings.empty());

    auto mb = disc::read_source(request(SourceKind::toc, "1 3 41225 150 14672 27367"));
    ASSERT_TRUE(mb);
    EXPECT_EQ(mb->origin, "MusicBrainz form");
    EXPECT_EQ(mb->ids.musicbrainz, offsets->ids.musicbrainz);
}

TEST(Source, RefusedTocShowsTheExpectedForms) {
    auto guessed = disc::read_source(request(SourceKind::toc, "150 100"));
    ASSERT_FALSE(guessed);
    EXPECT_EQ(guessed.error().message,
              "malformed TOC \"150 100\": number 2 (100) is not greater than number 1 (150)\n"
              "  offsets form: the frame offset of each track, then the lead-out, rising, e.g. \"150 14672 27367 41225\"\n"
              "  MusicBrainz form: first track, last track, lead-out, then the track offsets, e.g. "
              "\"1 3 41225 150 14672 27367\"");
    SourceRequest r = request(SourceKind::toc, "150 14672");
    r.form = disc::TocForm::musicbrainz;
    auto forced = disc::read_source(r);
    ASSERT_FALSE(forced);
    EXPECT_EQ(forced.error().message,
              "malformed TOC \"150 14672\": the MusicBrainz form needs first track, last track, lead-out and an offset\n"
              "  MusicBrainz form: first track, last track, lead-out, then the track offsets, e.g. "
              "\"1 3 41225 150 14672 27367\"");
}

TEST(Source, CueSheetErrorsNameFileAndLine) {
    TempFile cue("FILE \"a.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:80\n");
    auto d = disc::read_source(request(SourceKind::cue, cue.path()));
    ASSERT_FALSE(d);
    EXPECT_EQ(d.error().message, cue.path() + ":3: frames 80 above 74 in 00:00:80");

    TempFile ok("FILE \"a.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n");
    SourceRequest r = request(SourceKind::cue, ok.path());
    auto no_leadout = disc::read_source(r);
    ASSERT_FALSE(no_leadout);
    EXPECT_EQ(no_leadout.error().message,
              ok.path() + ": the CUE sheet does not tell where the last track ends: give the lead-out in frames");
    r.leadout = 20000;
    auto d2 = disc::read_source(r);
    ASSERT_TRUE(d2) << d2.error().message;
    EXPECT_EQ(d2->origin, "CUE sheet");
    EXPECT_EQ(d2->toc.musicbrainz_text(), "1 1 20000 150");
}

TEST(Source, LogWarnsOfStatedIdsThatDisagree) {
    TempFile log(R"(Log created by: whipper 0.10.0 (internal logger)

CD metadata:
  CDDB Disc ID: 1e022304
  MusicBrainz Disc ID: xyJBxyfybLWr1uGvUALDEQEuQwQ-

TOC:
  1:
    Start sector: 0
    End sector: 14521
  2:
    Start sector: 14522
    End sector: 27216
  3:
    Start sector: 27217
    End sector: 41074
)");
    auto d = disc::read_source(request(SourceKind::log, log.path()));
    ASSERT_TRUE(d) << d.error().message;
    EXPECT_EQ(d->origin, "whipper log");
    EXPECT_EQ(d->warnings,
              std::vector<std::string>{"the log states the freedb disc ID 1e022304, its TOC gives 1e022303"});
}

TEST(Source, FileAndDriveFailures) {
    auto missing = disc::read_source(request(SourceKind::log, "/nonexistent/eac.log"));
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().message, "/nonexistent/eac.log: No such file or directory");

    TempFile big(std::string(disc::kMaxTextBytes + 1, 'x'));
    auto too_big = disc::read_source(request(SourceKind::log, big.path()));
    ASSERT_FALSE(too_big);
    EXPECT_EQ(too_big.error().message, big.path() + ": larger than 8 MiB; CUE sheets and rip logs are far smaller");

    auto drive = disc::read_source(request(SourceKind::drive, "/nonexistent/cdrom"));
    ASSERT_FALSE(drive);
    EXPECT_EQ(drive.error().message.rfind("cannot read the disc in /nonexistent/cdrom: ", 0), 0u);
}

TEST(Source, StoredToc) {
    auto d = disc::read_stored_toc("150 14672 27367 41225", "catalogue");
    ASSERT_TRUE(d);
    EXPECT_EQ(d->ids.freedb, "1e022303");
    EXPECT_FALSE(disc::read_stored_toc("150", "catalogue"));
}

}  // namespace
