// Catalogue: the editions that tell apart releases sharing one TOC, lyrics
// stored once under their natural key and named with their album and track,
// and the migration of a catalogue of the schema before them.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>

#include "catalogue_fixtures.h"

using namespace catalogue;
using catalogue_test::find_lyrics;
using catalogue_test::open_memory;
using catalogue_test::temp_dir;
using catalogue_test::write;

namespace {

// Two editions of one disc (same TOC) and an xmcd file of it, which knows
// the year alone.
const char *kEditions =
    R"({"id": "ed-uk", "title": "Salt Roads", "date": "1999-03-02", "country": "GB", "barcode": "5012345678900",)"
    R"( "artist-credit": [{"name": "Ilse Varga"}],)"
    R"( "label-info": [{"catalog-number": "HH 101", "label": {"name": "Harbour House"}},)"
    R"(                {"catalog-number": "HH 101", "label": {"name": "Harbour House"}}],)"
    R"( "media": [{"position": 1, "format": "CD", "discs": [{"id": "s1", "offsets": [150, 20000, 40000], "sectors": 60000}],)"
    R"(            "tracks": [{"position": 1, "title": "Tide"}, {"position": 2, "title": "Brine"}, {"position": 3, "title": "Gull"}]}]})"
    "\n"
    R"({"id": "ed-us", "title": "Salt Roads", "date": "1999-05", "country": "US", "artist-credit": [{"name": "Ilse Varga"}],)"
    R"( "label-info": [{"catalog-number": "NW-7", "label": {"name": "Northwind"}}, {"catalog-number": "NW-7X", "label": {"name": "Eastgate"}},)"
    R"(                {"catalog-number": "", "label": null}],)"
    R"( "media": [{"position": 1, "format": "Enhanced CD", "discs": [{"id": "s1", "offsets": [150, 20000, 40000], "sectors": 60000}],)"
    R"(            "tracks": [{"position": 1, "title": "Tide"}, {"position": 2, "title": "Brine"}, {"position": 3, "title": "Gull"}]}]})"
    "\n";

const char *kXmcd =
    "# xmcd\n#\n# Track frame offsets:\n#\t150\n#\t20000\n#\t40000\n#\n# Disc length: 801 seconds\n#\n"
    "DISCID=1b031e03\nDTITLE=Ilse Varga / Salt Roads\nDYEAR=1999\nTTITLE0=Tide\nTTITLE1=Brine\nTTITLE2=Gull\n";

struct Edition {
    const char *tui, *country, *date, *label, *catalogue_number, *barcode, *format;
};

void expect_edition(const TocHit &hit, const Edition &e) {
    SCOPED_TRACE(e.tui);
    EXPECT_EQ(hit.tui.substr(0, std::string(e.tui).size()), e.tui);
    EXPECT_EQ(hit.country, e.country);
    EXPECT_EQ(hit.release_date, e.date);
    EXPECT_EQ(hit.label, e.label);
    EXPECT_EQ(hit.catalogue_number, e.catalogue_number);
    EXPECT_EQ(hit.barcode, e.barcode);
    EXPECT_EQ(hit.format, e.format);
}

TEST(CatalogueEditions, OneTocOfSeveralReleasesTellsTheirEditions) {
    auto cat = open_memory();
    ImportReport report;
    ASSERT_TRUE(cat->import_musicbrainz_text(kEditions, report).ok());
    ASSERT_TRUE(cat->import_xmcd_text(kXmcd, report).ok());
    TocResult r;
    ASSERT_TRUE(cat->lookup_toc("150 20000 40000 60000", {1, 10}, r).ok());
    EXPECT_EQ(r.kind, MatchKind::multi_exact);
    ASSERT_EQ(r.hits.size(), 2u);
    expect_edition(r.hits[0], {"ed-uk", "GB", "1999-03-02", "Harbour House", "HH 101", "5012345678900", "CD"});
    expect_edition(r.hits[1], {"ed-us", "US", "1999-05", "Northwind, Eastgate", "NW-7, NW-7X", "", "Enhanced CD"});
    // The xmcd disc (lead-out in whole seconds) has no edition.
    ASSERT_TRUE(cat->lookup_toc("150 20000 40000 60075", {1, 10}, r).ok());
    ASSERT_EQ(r.hits.size(), 1u);
    expect_edition(r.hits[0], {"xmcd-1b031e03-", "", "", "", "", "", ""});

    // Stored and read back with the album; they count in its digest.
    Album album;
    ASSERT_TRUE(cat->lookup_toc("150 20000 40000 60000", {1, 10}, r).ok());
    ASSERT_TRUE(cat->get_album(r.hits[0].album_id, album).ok());
    EXPECT_EQ(album.country + "|" + album.release_date + "|" + album.barcode + "|" + album.discs[0].format,
              "GB|1999-03-02|5012345678900|CD");
    ASSERT_TRUE(cat->import_musicbrainz_text(kEditions, report).ok());
    EXPECT_EQ(report.unchanged, 2u);
    std::string changed = kEditions;
    changed.replace(changed.find("\"GB\""), 4, "\"IE\"");
    ASSERT_TRUE(cat->import_musicbrainz_text(changed, report).ok());
    EXPECT_EQ(report.replaced, 2u);
    EXPECT_EQ(report.unchanged, 1u);
}

Lyric lyric(const char *title, const char *artist, const char *text, const char *album_tui, uint32_t disc,
            uint32_t track) {
    Lyric l;
    l.title = title;
    l.artist = artist;
    l.text = text;
    l.album_tui = album_tui;
    l.disc_number = disc;
    l.track_number = track;
    return l;
}

TEST(CatalogueLyrics, NaturalKeys) {
    struct Case {
        Lyric lyric;
        const char *key;
    };
    const std::vector<Case> cases = {
        {lyric("Brine", "Ilse Varga", "Salt", "ed-uk", 1, 2), "track:ed-uk:1:2"},
        {lyric("Brine", "Ilse Varga", "Salt", "ed-uk", 0, 2), "track:ed-uk:1:2"},  // no disc: disc 1
        {lyric("Brine", "Ilse Varga", "Salt", "ed-uk", 0, 0), "title:brine|ilse varga"},
        {lyric("BRINE!", "Ilse  Várga", "Other", "", 2, 0), "title:brine|ilse varga"},
        {lyric("", "", "Salt on the road", "", 0, 0), "text:"},
    };
    for (const Case &c : cases) {
        const std::string key = lyric_key(c.lyric);
        EXPECT_EQ(key.substr(0, std::string(c.key).size()), c.key) << c.lyric.title;
    }
    // Untitled lyrics differ by their words.
    EXPECT_NE(lyric_key(cases[4].lyric), lyric_key(lyric("", "", "Salt on the roads", "", 0, 0)));
    EXPECT_EQ(lyric_key(cases[4].lyric), lyric_key(lyric("", "", "salt, on the ROAD", "", 0, 0)));
}

const char *kLyrics =
    R"({"title": "Brine", "artist": "Ilse Varga", "release": "ed-uk", "track": 2, "text": "Salt on the window"})" "\n"
    R"({"title": "Gull", "artist": "Ilse Varga", "release": "ed-uk", "disc": 1, "track": 3, "text": "White wings"})" "\n"
    R"({"title": "Lost Song", "artist": "Ilse Varga", "release": "gone-1", "disc": 2, "track": 4, "text": "Nobody"})" "\n"
    R"({"title": "Free Verse", "artist": "Ilse Varga", "text": "No album at all"})" "\n";

// Each import of the sequence against the counts it reports (replaced ones
// include the unchanged, as for releases) and the lyrics stored after it.
TEST(CatalogueLyrics, ReimportIsIdempotent) {
    auto cat = open_memory();
    ImportReport report;
    ASSERT_TRUE(cat->import_musicbrainz_text(kEditions, report).ok());
    const std::string dir = temp_dir();
    struct Step {
        const char *what;
        std::string text;
        uint64_t imported, replaced, unchanged, lyrics;
    };
    std::string changed = kLyrics;
    changed.replace(changed.find("No album at all"), 15, "No album, no track");
    const std::vector<Step> steps = {
        {"first import", kLyrics, 4, 0, 0, 4},
        {"same file again", kLyrics, 4, 4, 4, 4},
        {"one text changed", changed, 4, 4, 3, 4},
        {"the track-linked one retitled",
         R"({"title": "Brine, reprise", "artist": "I. Varga", "release": "ed-uk", "disc": 1, "track": 2, "text": "Salt"})",
         1, 1, 0, 4},
        {"a new title of the same artist", R"({"title": "Free Verse 2", "artist": "Ilse Varga", "text": "More"})", 1, 0,
         0, 5},
    };
    for (const Step &s : steps) {
        SCOPED_TRACE(s.what);
        write(dir + "/lyrics.jsonl", s.text);
        ASSERT_TRUE(cat->import_lyrics_file(dir + "/lyrics.jsonl", report).ok());
        EXPECT_EQ(report.imported, s.imported);
        EXPECT_EQ(report.replaced, s.replaced);
        EXPECT_EQ(report.unchanged, s.unchanged);
        Statistics stats;
        ASSERT_TRUE(cat->statistics(stats).ok());
        EXPECT_EQ(stats.lyrics, s.lyrics);
    }
    // The replaced texts are what a search finds, once.
    const auto found = find_lyrics(*cat, "", "no album");
    ASSERT_EQ(found.total, 1u);
    EXPECT_EQ(found.hits[0].snippet, "No album, no track");
    EXPECT_EQ(find_lyrics(*cat, "", "window").total, 0u);
    // A single add reports like an import.
    Lyric again = lyric("Free Verse 2", "Ilse Varga", "More", "", 0, 0);
    bool replaced = false, unchanged = false;
    ASSERT_TRUE(cat->add_lyric(again, &replaced, &unchanged).ok());
    EXPECT_TRUE(replaced && unchanged);
    std::filesystem::remove_all(dir);
}

TEST(CatalogueLyrics, ReadBackWithTheirAlbumAndTrack) {
    auto cat = open_memory();
    ImportReport report;
    ASSERT_TRUE(cat->import_musicbrainz_text(kEditions, report).ok());
    const std::string dir = temp_dir();
    write(dir + "/lyrics.jsonl", kLyrics);
    ASSERT_TRUE(cat->import_lyrics_file(dir + "/lyrics.jsonl", report).ok());
    std::filesystem::remove_all(dir);
    struct Place {
        const char *title;
        std::string where;  // album tui, disc, track, album artist, title, track title
    };
    const std::vector<Place> places = {
        {"brine", "ed-uk 1 2 Ilse Varga|Salt Roads|Brine"},
        {"gull", "ed-uk 1 3 Ilse Varga|Salt Roads|Gull"},
        {"lost song", "gone-1 2 4 ||"},
        {"free verse", " 0 0 ||"},
    };
    for (const Place &p : places) {
        SCOPED_TRACE(p.title);
        const auto found = find_lyrics(*cat, p.title, "");
        ASSERT_EQ(found.total, 1u);
        const Lyric &l = found.first;
        EXPECT_EQ(l.album_tui + " " + std::to_string(l.disc_number) + " " + std::to_string(l.track_number) + " " +
                      l.album_artist + "|" + l.album_title + "|" + l.track_title,
                  p.where);
        EXPECT_EQ(l.track_id != 0, !l.track_title.empty());
    }
}

// ---- Migration from schemas 4 and 3 -------------------------------------------

class CatalogueMigration : public ::testing::Test {
   protected:
    void SetUp() override {
        dir_ = temp_dir();
        path_ = dir_ + "/old.catalogue";
        write(dir_ + "/lyrics.jsonl", kLyrics);
        std::unique_ptr<Catalogue> cat;
        ASSERT_TRUE(Catalogue::open(path_, cat).ok());
        ImportReport report;
        ASSERT_TRUE(cat->import_musicbrainz_text(kEditions, report).ok());
        ASSERT_TRUE(cat->import_lyrics_file(dir_ + "/lyrics.jsonl", report).ok());
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    // The file as schema 4 made it: no edition columns, no lyric keys, and
    // each lyric as many times as it was imported (here twice; the copies
    // came later, so they have the higher ids); schema 3 had no TOC shape
    // index either.
    void make_schema(int schema) {
        catalogue_test::make_schema_6(path_);
        sql("DROP INDEX lyrics_key;"
            "ALTER TABLE albums DROP COLUMN country; ALTER TABLE albums DROP COLUMN release_date;"
            "ALTER TABLE albums DROP COLUMN catalogue_number; ALTER TABLE albums DROP COLUMN barcode;"
            "ALTER TABLE discs DROP COLUMN format; ALTER TABLE lyrics DROP COLUMN natural_key;"
            "INSERT INTO lyrics(title, artist, text, language, album_tui, disc_number, track_number)"
            "  SELECT title, artist, text || ' (again)', language, album_tui, disc_number, track_number FROM lyrics;"
            "INSERT INTO lyric_fts(rowid, title, artist, text) SELECT id, lower(title), lower(artist), lower(text)"
            "  FROM lyrics WHERE text LIKE '% (again)';"
            "UPDATE lyrics SET disc_number = 0 WHERE title = 'Brine';"
            "UPDATE meta SET value = 'digest without editions' WHERE key LIKE 'digest:%';"
            "UPDATE meta SET value = '" + std::to_string(schema) + "' WHERE key = 'schema';"
            "PRAGMA user_version = " + std::to_string(schema) + ";" +
            (schema == 3 ? "DELETE FROM toc_shape;" : ""));
    }
    void sql(const std::string &statements) {
        sqlite3 *db = nullptr;
        ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
        char *error = nullptr;
        EXPECT_EQ(sqlite3_exec(db, statements.c_str(), nullptr, nullptr, &error), SQLITE_OK) << (error ? error : "");
        sqlite3_free(error);
        sqlite3_close(db);
    }
    std::string query(const std::string &statement) { return catalogue_test::query_file(path_, statement); }
    std::string contents() const {
        std::ifstream in(path_, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    std::string dir_, path_;
};

TEST_F(CatalogueMigration, EarlierSchemaOpensMigratedWithItsAlbumsAndOneCopyOfEachLyric) {
    for (int schema : {4, 3}) {
        SCOPED_TRACE(schema);
        if (schema == 3) {  // a fresh catalogue
            TearDown();
            SetUp();
        }
        make_schema(schema);
        EXPECT_EQ(query("SELECT count(*) FROM lyrics"), "8;");
        EXPECT_EQ(query("SELECT count(*) FROM toc_shape"), schema == 3 ? "0;" : "2;");
        {
            std::unique_ptr<Catalogue> cat;
            const Status st = Catalogue::open(path_, cat);
            ASSERT_TRUE(st.ok()) << st.message;
            Statistics stats;
            ASSERT_TRUE(cat->statistics(stats).ok());
            EXPECT_EQ(stats.albums, 2u);
            EXPECT_EQ(stats.tracks, 6u);
            EXPECT_EQ(stats.lyrics, 4u);
            TocResult r;
            ASSERT_TRUE(cat->lookup_toc("150 20000 40000 60000", {1, 10}, r).ok());
            ASSERT_EQ(r.hits.size(), 2u);
            expect_edition(r.hits[0], {"ed-uk", "", "", "Harbour House", "", "", ""});  // label was stored before
            ASSERT_TRUE(cat->lookup_toc("150 20030 40000 60000", {1, 10}, r).ok());  // by the TOC shape index
            EXPECT_EQ(r.kind, MatchKind::fuzzy);
            EXPECT_EQ(r.hits.size(), 2u);
            // The copies imported last stayed, each found once, and the lyric
            // without its disc number is on disc 1.
            EXPECT_EQ(find_lyrics(*cat, "", "again").total, 4u);
            const auto brine = find_lyrics(*cat, "brine", "again");
            ASSERT_EQ(brine.total, 1u);
            EXPECT_EQ(brine.first.track_title, "Brine");
            // Importing the same lyrics again replaces the four.
            ImportReport report;
            ASSERT_TRUE(cat->import_lyrics_file(dir_ + "/lyrics.jsonl", report).ok());
            EXPECT_EQ(report.replaced, 4u);
            ASSERT_TRUE(cat->statistics(stats).ok());
            EXPECT_EQ(stats.lyrics, 4u);
            // The editions come with the next import of the releases.
            ASSERT_TRUE(cat->import_musicbrainz_text(kEditions, report).ok());
            EXPECT_EQ(report.unchanged, 0u);
            ASSERT_TRUE(cat->lookup_toc("150 20000 40000 60000", {1, 10}, r).ok());
            expect_edition(r.hits[0], {"ed-uk", "GB", "1999-03-02", "Harbour House", "HH 101", "5012345678900", "CD"});
        }
        EXPECT_EQ(query("SELECT value FROM meta WHERE key = 'schema'"), std::to_string(kSchemaVersion) + ";");
        EXPECT_EQ(query("PRAGMA user_version"), std::to_string(kSchemaVersion) + ";");
        EXPECT_EQ(query("SELECT count(*) FROM lyrics WHERE natural_key = ''"), "0;");
        EXPECT_EQ(query("SELECT count(*) FROM toc_shape"), "2;");
    }
}

// Read-only, a catalogue of schema 4 is read as it is and left unchanged.
TEST_F(CatalogueMigration, EarlierSchemaReadOnlyIsReadAsItIs) {
    make_schema(4);
    const std::string before = contents();
    {
        std::unique_ptr<Catalogue> cat;
        const Status st = Catalogue::open(path_, cat, OpenMode::read_only);
        ASSERT_TRUE(st.ok()) << st.message;
        TocResult r;
        ASSERT_TRUE(cat->lookup_toc("150 20000 40000 60000", {1, 10}, r).ok());
        ASSERT_EQ(r.hits.size(), 2u);
        expect_edition(r.hits[1], {"ed-us", "", "", "Northwind, Eastgate", "", "", ""});
        Album album;
        ASSERT_TRUE(cat->get_album(r.hits[1].album_id, album).ok());
        EXPECT_EQ(album.discs.size(), 1u);
        EXPECT_EQ(album.discs[0].format, "");
        const auto gull = find_lyrics(*cat, "gull", "");
        ASSERT_EQ(gull.total, 2u);
        EXPECT_EQ(gull.first.album_title, "Salt Roads");
    }
    EXPECT_TRUE(contents() == before) << "the file was changed";
    EXPECT_EQ(query("SELECT value FROM meta WHERE key = 'schema'"), "4;");
}

}  // namespace
