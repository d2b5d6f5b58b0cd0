// Catalogue: discs found by their MusicBrainz or freedb disc IDs, as
// imported or as a stored TOC computes them; the migration of catalogues
// made before disc IDs were kept.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>

#include "catalogue_fixtures.h"
#include "zelto/zelto_catalogue.h"

using namespace catalogue;
using catalogue_test::open_memory;

namespace {

// A release of the disc "150 14672 27367 41225" (MusicBrainz disc ID
// xyJBxyfybLWr1uGvUALDEQEuQwQ- by libdiscid), revision given.
std::string release(int revision, const std::string &disc_id) {
    return R"({"id": "rel-a", "title": "Lanterns of Glass", "revision": )" + std::to_string(revision) +
           R"(, "artist-credit": [{"name": "Mira Solenne"}],
  "media": [{"position": 1, "discs": [{"id": ")" + disc_id +
           R"(", "offsets": [150, 14672, 27367], "sectors": 41225}],
             "tracks": [{"position": 1, "title": "A"}, {"position": 2, "title": "B"}, {"position": 3, "title": "C"}]}]})";
}

// An xmcd file of another pressing: lead-out 50 frames later, submitted
// under two freedb IDs.
const char *kXmcd =
    "# xmcd\n#\n# Track frame offsets:\n#\t150\n#\t14672\n#\t27367\n#\n# Disc length: 550 seconds\n#\n"
    "# Revision: 1\n#\nDISCID=1e022403, ABCDEF01,nonsense\nDTITLE=Mira Solenne / Lanterns of Glass\n"
    "TTITLE0=A\nTTITLE1=B\nTTITLE2=C\n";

std::vector<std::string> tocs_of(Catalogue &cat, const std::string &id) {
    std::vector<std::string> tocs{"untouched"};
    Status st = cat.tocs_by_disc_id(id, tocs);
    EXPECT_TRUE(st.ok()) << st.message;
    return tocs;
}

void import(Catalogue &cat, const std::string &json, const char *xmcd) {
    ImportReport report;
    if (!json.empty()) {
        ASSERT_TRUE(cat.import_musicbrainz_text(json, report).ok());
    }
    if (xmcd) {
        ASSERT_TRUE(cat.import_xmcd_text(xmcd, report).ok());
    }
}

using Tocs = std::vector<std::string>;

}  // namespace

TEST(CatalogueDiscId, ImportedAndComputedIds) {
    auto cat = open_memory();
    import(*cat, release(1, "xyJBxyfybLWr1uGvUALDEQEuQwQ-"), kXmcd);
    const std::string mb_toc = "150 14672 27367 41225", xmcd_toc = "150 14672 27367 41250";
    struct Case {
        const char *id;
        Tocs tocs;
    };
    const Case cases[] = {
        {"xyJBxyfybLWr1uGvUALDEQEuQwQ-", {mb_toc}},
        {"xyjbxyfyblwr1ugvualdeqeuqwq-", {}},  // MusicBrainz IDs keep their case
        {"1e022403", {xmcd_toc}},              // both IDs of the DISCID line
        {"abcdef01", {xmcd_toc}},
        {"ABCDEF01", {xmcd_toc}},
        {"1e022303", {mb_toc}},  // computed from the MusicBrainz release's TOC
        {"1E022303", {mb_toc}},
        {"nonsense", {}},
        {"00000000", {}},
    };
    for (const Case &c : cases) EXPECT_EQ(tocs_of(*cat, c.id), c.tocs) << c.id;
    Tocs none;
    EXPECT_EQ(cat->tocs_by_disc_id("", none).code, Code::invalid_argument);
}

TEST(CatalogueDiscId, OneTocOnceInImportOrder) {
    auto cat = open_memory();
    import(*cat, "", kXmcd);
    import(*cat, release(1, "xyJBxyfybLWr1uGvUALDEQEuQwQ-"), nullptr);
    std::string second = release(1, "xyJBxyfybLWr1uGvUALDEQEuQwQ-");
    second.replace(second.find("rel-a"), 5, "rel-b");
    import(*cat, second, nullptr);
    // Two releases share the MusicBrainz disc ID and their TOC.
    EXPECT_EQ(tocs_of(*cat, "xyJBxyfybLWr1uGvUALDEQEuQwQ-"), Tocs{"150 14672 27367 41225"});
}

TEST(CatalogueDiscId, ReplacedReleaseTakesItsIdsAlong) {
    auto cat = open_memory();
    import(*cat, release(1, "xyJBxyfybLWr1uGvUALDEQEuQwQ-"), nullptr);
    import(*cat, release(2, "AAAAAAAAAAAAAAAAAAAAAAAAAAA-"), nullptr);
    EXPECT_EQ(tocs_of(*cat, "xyJBxyfybLWr1uGvUALDEQEuQwQ-"), Tocs{});
    EXPECT_EQ(tocs_of(*cat, "AAAAAAAAAAAAAAAAAAAAAAAAAAA-"), Tocs{"150 14672 27367 41225"});
}

// A catalogue of schema 1 kept disc IDs as media ids only; opening it fills
// the disc ID table from them once.
TEST(CatalogueDiscId, MigrationOfSchemaOne) {
    char name[] = "/tmp/catalogue_disc_id_XXXXXX";
    const int fd = mkstemp(name);
    ASSERT_GE(fd, 0);
    close(fd);
    std::remove(name);
    {
        std::unique_ptr<Catalogue> cat;
        ASSERT_TRUE(Catalogue::open(name, cat).ok());
        import(*cat, release(1, "xyJBxyfybLWr1uGvUALDEQEuQwQ-"), kXmcd);
    }
    catalogue_test::make_schema_6(name);
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(name, &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "DELETE FROM disc_ids; UPDATE meta SET value = '1' WHERE key = 'schema';"
                               "UPDATE tocs SET media_id = 'ABCDEF02' WHERE length(media_id) = 8;",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(db);
    {
        std::unique_ptr<Catalogue> cat;
        ASSERT_TRUE(Catalogue::open(name, cat).ok());
        EXPECT_EQ(tocs_of(*cat, "xyJBxyfybLWr1uGvUALDEQEuQwQ-"), Tocs{"150 14672 27367 41225"});
        EXPECT_EQ(tocs_of(*cat, "abcdef02"), Tocs{"150 14672 27367 41250"});
        EXPECT_EQ(tocs_of(*cat, "abcdef01"), Tocs{});  // only the first DISCID was kept
    }
    ASSERT_EQ(sqlite3_open(name, &db), SQLITE_OK);
    sqlite3_stmt *q = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(db, "SELECT value FROM meta WHERE key = 'schema'", -1, &q, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_step(q), SQLITE_ROW);
    EXPECT_STREQ(reinterpret_cast<const char *>(sqlite3_column_text(q, 0)), std::to_string(catalogue::kSchemaVersion).c_str());
    sqlite3_finalize(q);
    sqlite3_close(db);
    for (const char *suffix : {"", "-wal", "-shm"}) std::remove((std::string(name) + suffix).c_str());
}

TEST(CatalogueDiscId, CInterface) {
    zelto_catalogue *cat = nullptr;
    ASSERT_EQ(zelto_catalogue_open(":memory:", 0, &cat), 0u);
    uint32_t count = 99;
    EXPECT_EQ(zelto_catalogue_find_disc_id(nullptr, "1e022303", &count), ZELTO_CATALOGUE_BAD_ARG);
    EXPECT_EQ(zelto_catalogue_find_disc_id(cat, nullptr, &count), ZELTO_CATALOGUE_BAD_ARG);
    EXPECT_EQ(zelto_catalogue_find_disc_id(cat, "", &count), ZELTO_CATALOGUE_BAD_ARG);
    EXPECT_EQ(zelto_catalogue_find_disc_id(cat, "1e022303", nullptr), ZELTO_CATALOGUE_BAD_ARG);
    EXPECT_EQ(count, 99u);
    EXPECT_EQ(zelto_catalogue_find_disc_id(cat, "1e022303", &count), 0u);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(zelto_catalogue_disc_id_toc(cat, 0), nullptr);
    EXPECT_EQ(zelto_catalogue_disc_id_toc(nullptr, 0), nullptr);
    EXPECT_EQ(zelto_catalogue_close(cat), 0u);
}
