// The drive path: what libdiscid holds after a read becomes the tool's disc.
// No drive is present here, so libdiscid is filled with discid_put, which
// leaves it in the state a read leaves it in; read_drive adds only the call
// of discid_read_sparse and its error.
#include <discid/discid.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/tool/disc_test_support.h"
#include "tool/disc/drive.h"

namespace {

struct Free {
    void operator()(DiscId *d) const { discid_free(d); }
};

TEST(Drive, DiscFromLibdiscid) {
    std::unique_ptr<DiscId, Free> d(discid_new());
    int words[100] = {41225, 150, 14672, 27367};
    ASSERT_TRUE(discid_put(d.get(), 1, 3, words));
    const disc::Disc disc = disc::disc_from_libdiscid(d.get());
    EXPECT_EQ(disc_test::layout(disc), "1:150 2:14672 3:27367 leadout:41225");
    EXPECT_EQ(disc_test::audio_text(disc), "1 3 41225 150 14672 27367");
    EXPECT_EQ(disc.mcn, "");
    for (const disc::Track &t : disc.tracks) EXPECT_EQ(t.isrc, "");
    EXPECT_EQ(disc::disc_ids(disc).musicbrainz, discid_get_id(d.get()));
    EXPECT_EQ(disc::disc_ids(disc).freedb, discid_get_freedb_id(d.get()));
}

TEST(Drive, FirstTrackOtherThanOne) {
    std::unique_ptr<DiscId, Free> d(discid_new());
    int words[100] = {90000, 0, 0, 0, 150, 40000};
    ASSERT_TRUE(discid_put(d.get(), 4, 5, words));
    const disc::Disc disc = disc::disc_from_libdiscid(d.get());
    EXPECT_EQ(disc_test::layout(disc), "4:150 5:40000 leadout:90000");
    EXPECT_EQ(disc::disc_ids(disc).musicbrainz, discid_get_id(d.get()));
}

TEST(Drive, MissingDriveIsAnError) {
    auto disc = disc::read_drive("/nonexistent/cdrom");
    ASSERT_FALSE(disc);
    EXPECT_EQ(disc.error().line, 0u);
    EXPECT_NE(disc.error().message, "");
    EXPECT_EQ(disc::default_drive(), "/dev/cdrom");
}

}  // namespace
