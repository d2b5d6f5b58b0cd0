// Catalogue: importers of release JSON, xmcd discs and lyrics; the sample
// catalogue.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "catalogue_fixtures.h"
#include "providers/catalogue/store/json_stream.h"
#include "providers/catalogue/store/utf8.h"

using namespace catalogue;
using catalogue_test::open_memory;
using catalogue_test::temp_dir;
using catalogue_test::write;

namespace {

const char *kRelease = R"({
  "id": "rel-a", "title": "Lanterns of Glass", "date": "2004-03-01", "revision": 2,
  "artist-credit": [{"name": "Mira Solenne", "joinphrase": " & ",
                     "artist": {"id": "art-1", "name": "Mira Solenne", "sort-name": "Solenne, Mira"}},
                    {"name": "Koji", "joinphrase": "",
                     "artist": {"id": "art-2", "name": "Koji Arakawa", "sort-name": "Arakawa, Koji"}}],
  "genres": [{"name": "folk", "count": 2}],
  "label-info": [{"label": {"name": "Harbour House"}}],
  "text-representation": {"language": "eng"},
  "relations": [{"type": "composer", "target-type": "artist",
                 "artist": {"id": "art-3", "name": "Anselm Drüwe", "sort-name": "Drüwe, Anselm"}}],
  "media": [{"position": 1, "format": "CD", "title": "",
             "discs": [{"id": "disc-1", "offsets": [150, 14672, 27367], "sectors": 41225, "offset-count": 3}],
             "tracks": [{"id": "t1", "position": 1, "title": "Quiet Harbour", "length": 193626},
                        {"id": "t2", "position": 2, "title": "", "recording": {"title": "Paper Comets", "length": 169266}},
                        {"id": "t3", "position": 3, "title": "The Long Thaw", "length": null,
                         "artist-credit": [{"name": "Guest", "artist": {"id": "art-4", "name": "Guest"}}]}]},
            {"position": 2, "title": "Bonus",
             "tracks": [{"position": 1, "title": "Outtake"}]}]
})";

std::string release_line(const std::string &id, const std::string &title) {
    return R"({"id":")" + id + R"(","title":")" + title +
           R"(","artist-credit":[{"name":"X"}],"media":[{"position":1,"tracks":[{"position":1,"title":"A"}]}]})";
}

const char *kXmcd =
    "# xmcd\n#\n# Track frame offsets:\n#\t150\n#\t14672\n#  27367\n#\n# Disc length: 549 seconds\n#\n"
    "# Revision: 3\n#\nDISCID=1e022303,abcdef01\nDTITLE=Mira Solenne / Lanterns of Glass\nDYEAR=2004\n"
    "DGENRE=Folk\nTTITLE0=Quiet Harbour\nTTITLE1=Paper \nTTITLE1=Comets\nTTITLE2=Guest / The Long Thaw\n"
    "EXTD=Some notes\\nmore\nPLAYORDER=\n";

}  // namespace

TEST(CatalogueImport, MusicBrainzRelease) {
    Album a;
    Status st = parse_musicbrainz_release(kRelease, a);
    ASSERT_TRUE(st.ok()) << st.message;
    EXPECT_EQ(a.tui, "rel-a");
    EXPECT_EQ(a.title, "Lanterns of Glass");
    EXPECT_EQ(a.artist, "Mira Solenne & Koji");
    EXPECT_EQ(a.year, 2004u);
    EXPECT_EQ(a.revision, 2u);
    EXPECT_EQ(a.genre, "folk");
    EXPECT_EQ(a.label, "Harbour House");
    EXPECT_EQ(a.language, "eng");
    ASSERT_EQ(a.contributors.size(), 4u);
    EXPECT_EQ(a.contributors[1].name, "Koji Arakawa");  // the artist's own name, not the credited one
    EXPECT_EQ(a.contributors[1].sort_name, "Arakawa, Koji");
    EXPECT_TRUE(a.contributors[2].collaboration);
    EXPECT_EQ(a.contributors[2].name, "Mira Solenne & Koji");
    EXPECT_EQ(a.contributors[3].role, "composer");
    ASSERT_EQ(a.discs.size(), 2u);
    ASSERT_EQ(a.discs[0].tocs.size(), 1u);
    EXPECT_EQ(a.discs[0].tocs[0].offsets, (std::vector<uint32_t>{150, 14672, 27367, 41225}));
    EXPECT_EQ(a.discs[0].tocs[0].media_id, "disc-1");
    ASSERT_EQ(a.discs[0].tracks.size(), 3u);
    EXPECT_EQ(a.discs[0].tracks[0].duration_ms, 193626u);
    EXPECT_EQ(a.discs[0].tracks[1].title, "Paper Comets");  // from the recording
    EXPECT_EQ(a.discs[0].tracks[1].duration_ms, 169266u);
    EXPECT_EQ(a.discs[0].tracks[2].artist, "Guest");
    EXPECT_EQ(a.discs[0].tracks[2].duration_ms, 0u);
    EXPECT_EQ(a.discs[1].title, "Bonus");
    EXPECT_TRUE(a.discs[1].tocs.empty());

    auto cat = open_memory();
    ImportReport report;
    ASSERT_TRUE(cat->import_musicbrainz_text(kRelease, report).ok());
    EXPECT_EQ(report.records, 1u);
    EXPECT_EQ(report.imported, 1u);
    TocResult r;
    ASSERT_TRUE(cat->lookup_toc("150 14672 27367 41225", {1, 10}, r).ok());
    ASSERT_EQ(r.kind, MatchKind::single);
    EXPECT_EQ(r.hits[0].tui, "rel-a");
    EXPECT_EQ(r.hits[0].album_track_count, 4u);
}

// Release JSON split into records while it is read: each shape gives its
// records with the line they start on; records too deep or unfinished are
// reported and read past without being kept.
TEST(CatalogueImport, JsonRecordsOfEachShape) {
    using Kind = JsonRecord::Kind;
    struct Expected {
        Kind kind;
        uint64_t line;
        std::string text_or_why;
    };
    const std::string deep(100, '[');
    const struct {
        const char *name;
        std::string input;
        std::vector<Expected> records;
    } cases[] = {
        {"lines", "{\"a\":1}\n\n  {\"b\":[2]}  \n", {{Kind::document, 1, "{\"a\":1}"}, {Kind::document, 3, "  {\"b\":[2]}  "}}},
        {"array", "\xEF\xBB\xBF[ {\"a\":\"]}\\\"\"},\n{\"b\":{}} ]",
         {{Kind::release, 1, "{\"a\":\"]}\\\"\"}"}, {Kind::release, 2, "{\"b\":{}}"}}},
        {"one after another", "{\n\"a\":1}\n{\"b\":2} {\"c\":3}",
         {{Kind::document, 1, "{\n\"a\":1}"}, {Kind::document, 3, "{\"b\":2}"}, {Kind::document, 3, "{\"c\":3}"}}},
        {"list object", "{\"releases\":[{\"a\":1}]}", {{Kind::document, 1, "{\"releases\":[{\"a\":1}]}"}}},
        {"deep", deep, {{Kind::bad, 1, "record nested more than 64 deep"}}},
        {"unfinished list", "[{\"a\":1},", {{Kind::release, 1, "{\"a\":1}"}, {Kind::bad, 1, "the input ends inside the list of releases"}}},
        {"deep line", "{\"a\":1}\n{\"b\":" + deep + "\n{\"c\":3}\n",
         {{Kind::document, 1, "{\"a\":1}"}, {Kind::bad, 2, "record nested more than 64 deep"}, {Kind::document, 3, "{\"c\":3}"}}},
        {"unfinished", "[{\"a\":1}, {\"b\":", {{Kind::release, 1, "{\"a\":1}"}, {Kind::bad, 1, "the input ends inside a record"}}},
        {"not JSON", "DTITLE=x", {{Kind::bad, 1, "not JSON"}}},
        {"empty", " \n ", {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        std::istringstream in(c.input);
        JsonRecordReader reader(in);
        std::vector<Expected> got;
        for (JsonRecord r; reader.next(r);) got.push_back({r.kind, r.line, r.kind == Kind::bad ? r.why : r.text});
        ASSERT_EQ(got.size(), c.records.size());
        for (size_t i = 0; i < got.size(); ++i) {
            EXPECT_EQ(got[i].kind, c.records[i].kind) << i;
            EXPECT_EQ(got[i].line, c.records[i].line) << i;
            EXPECT_EQ(got[i].text_or_why, c.records[i].text_or_why) << i;
        }
        EXPECT_EQ(reader.bytes_read(), c.input.size());
    }
}

// Media as MusicBrainz lists them beyond plain track lists: a TOC without
// tracks, a track count alone, data tracks after the audio ones, and a
// medium with nothing to identify it by, which is left out.
TEST(CatalogueImport, MediaWithoutTrackListsOrWithDataTracks) {
    const std::string toc = R"("discs":[{"id":"d","offsets":[150,7650],"sectors":15150}])";
    const struct {
        const char *name;
        std::string media;
        std::vector<std::pair<uint32_t, std::vector<std::string>>> discs;  // number, track titles
        uint32_t first_duration_ms;
    } cases[] = {
        {"TOC only", "{" + toc + "}", {{1, {"Track 1", "Track 2"}}}, 100000},
        {"track count only", R"({"track-count":3})", {{1, {"Track 1", "Track 2", "Track 3"}}}, 0},
        {"data track", R"({"tracks":[{"title":"A"},{"title":"B"}],"data-tracks":[{"title":"Video"}],)" + toc + "}",
         {{1, {"A", "B", "Video"}}}, 0},
        {"DVD without content", R"({"position":1,"format":"DVD"},{"position":2,"tracks":[{"title":"A"}]})",
         {{2, {"A"}}}, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Album a;
        const Status st = parse_musicbrainz_release(R"({"id":"x","title":"T","media":[)" + c.media + "]}", a);
        ASSERT_TRUE(st.ok()) << st.message;
        ASSERT_EQ(a.discs.size(), c.discs.size());
        for (size_t i = 0; i < c.discs.size(); ++i) {
            EXPECT_EQ(a.discs[i].number, c.discs[i].first);
            std::vector<std::string> titles;
            for (const Track &t : a.discs[i].tracks) titles.push_back(t.title);
            EXPECT_EQ(titles, c.discs[i].second);
        }
        EXPECT_EQ(a.discs[0].tracks[0].duration_ms, c.first_duration_ms);
        EXPECT_TRUE(open_memory()->add_album(a).ok());
    }
}

TEST(CatalogueImport, MalformedReleasesAreSkippedWithMessages) {
    Album a;
    EXPECT_EQ(parse_musicbrainz_release("{\"title\": ", a).code, Code::bad_record);
    EXPECT_EQ(parse_musicbrainz_release("[1, 2]", a).code, Code::bad_record);
    EXPECT_EQ(parse_musicbrainz_release(R"({"id":"x","title":"T"})", a).message, "release x: no media");
    EXPECT_EQ(parse_musicbrainz_release(R"({"id":"x","media":[]})", a).message, "release x: no title");
    EXPECT_EQ(parse_musicbrainz_release(R"({"id":"x","title":"T","media":[{"tracks":[]}]})", a).message,
              "release x: no medium has tracks or a TOC");
    EXPECT_EQ(parse_musicbrainz_release(
                  R"({"id":"x","title":"T","media":[{"tracks":[{"title":"A"}],"discs":[{"id":"d","offsets":[150]}]}]})", a)
                  .message,
              "release x: disc d lacks offsets or sectors");
    EXPECT_EQ(parse_musicbrainz_release(
                  R"({"id":"x","title":"T","media":[{"tracks":[{"title":"A"}],"discs":[{"id":"d","offsets":["a"],"sectors":9}]}]})", a)
                  .message,
              "release x: disc d has a bad offset");
    EXPECT_EQ(parse_musicbrainz_release(
                  R"({"id":"x","title":"T","media":[{"tracks":[{"title":"A"}],"discs":[{"id":"d","offsets":[150,42300,40150],"sectors":57750}]}]})", a)
                  .message,
              "release x: disc d has offsets that do not rise");
    // Members of the wrong type are read as absent, not fatal.
    ASSERT_TRUE(parse_musicbrainz_release(
                    R"({"id":"x","title":"T","date":17,"artist-credit":"nobody","genres":{},
                        "media":[{"position":"2","tracks":[{"title":"A","length":"12000","position":-1}]}]})", a)
                    .ok());
    EXPECT_EQ(a.year, 0u);
    EXPECT_EQ(a.artist, "");
    EXPECT_EQ(a.discs[0].number, 2u);
    EXPECT_EQ(a.discs[0].tracks[0].duration_ms, 12000u);
    EXPECT_EQ(a.discs[0].tracks[0].number, 1u);

    // One per line: good, broken, good with more offsets than tracks, good.
    std::string lines = release_line("r1", "One") + "\n\n{\"id\": \"r2\", \n" +
                        R"({"id":"r3","title":"Three","media":[{"tracks":[{"title":"A"}],"discs":[{"offsets":[150,300],"sectors":900}]}]})" +
                        "\n" + release_line("r4", "Four") + "\n";
    auto cat = open_memory();
    ImportReport report;
    ASSERT_TRUE(cat->import_musicbrainz_text(lines, report).ok());
    EXPECT_EQ(report.records, 4u);
    EXPECT_EQ(report.imported, 2u);
    EXPECT_EQ(report.skipped, 2u);
    ASSERT_EQ(report.messages.size(), 2u);
    EXPECT_EQ(report.messages[0], "input:3: not valid JSON");
    EXPECT_EQ(report.messages[1], "input:4: album 'Three' disc 1: 3 offsets for 1 tracks");
    uint64_t n = 0;
    ASSERT_TRUE(cat->album_count(n).ok());
    EXPECT_EQ(n, 2u);

    // A whole broken document is one skipped record.
    ASSERT_TRUE(cat->import_musicbrainz_text("{\n  \"id\": \"x\",\n  \"title\": [\n", report).ok());
    EXPECT_EQ(report.records, 1u);
    EXPECT_EQ(report.skipped, 1u);
    // An array and a {"releases": [...]} document.
    ASSERT_TRUE(cat->import_musicbrainz_text("[" + release_line("r5", "Five") + ",\n" + release_line("r6", "Six") + "]",
                                             report)
                    .ok());
    EXPECT_EQ(report.imported, 2u);
    ASSERT_TRUE(cat->import_musicbrainz_text("{\"releases\": [\n" + release_line("r7", "Seven") + "\n]}", report).ok());
    EXPECT_EQ(report.imported, 1u);
    ASSERT_TRUE(cat->album_count(n).ok());
    EXPECT_EQ(n, 5u);
}

// An import holds back the rows of the text indexes and the TOC shape
// index and writes them between albums: an album that fails half-stored
// leaves none of its rows, and an album replaced within the same import
// leaves none of the replaced one's. Every album, track, artist and TOC
// has exactly its index row afterwards.
TEST(CatalogueImport, AlbumsFailedOrReplacedWithinOneImport) {
    // A disc whose first track is `length` sectors long.
    auto disc = [](const std::string &id, uint32_t length, const std::string &tracks) {
        return R"({"id":")" + id + R"(","title":")" + "%T" + R"(","revision":%R,"artist-credit":[{"name":"Nadia Ferro"}],
                  "media":[{"position":1,"discs":[{"id":")" + id + R"(-d","offsets":[150,)" + std::to_string(150 + length) +
               R"(],"sectors":)" + std::to_string(20150 + length) + R"(}],"tracks":[)" + tracks + "]}]}";
    };
    auto with = [](std::string text, const std::string &title, int revision) {
        text.replace(text.find("%T"), 2, title);
        text.replace(text.find("%R"), 2, std::to_string(revision));
        return text;
    };
    const std::string two = R"({"position":1,"title":"Hollow Bells"},{"position":2,"title":"Salt Roads"})";
    // The first names track 1 twice: its tracks share an identifier.
    const std::string lines =
        with(disc("rel-clash", 20000, R"({"position":1,"title":"Hollow Bells"},{"position":1,"title":"Salt Roads"})"),
             "Saffron Ledger", 1) + "\n" +
        with(disc("rel-next", 25000, two), "Cobalt Orchard", 1) + "\n" +
        with(disc("rel-twice", 30000, two), "Amber Viaduct", 1) + "\n" +
        with(disc("rel-twice", 35000, two), "Velvet Quarry", 2) + "\n";
    const std::string dir = temp_dir(), path = dir + "/c.db";
    {
        std::unique_ptr<Catalogue> cat;
        ASSERT_TRUE(Catalogue::open(path, cat).ok());
        ImportReport report;
        ASSERT_TRUE(cat->import_musicbrainz_text(lines, report).ok());
        EXPECT_EQ(report.imported, 3u);
        EXPECT_EQ(report.replaced, 1u);
        ASSERT_EQ(report.messages.size(), 1u);
        EXPECT_EQ(report.messages[0], "input:1: insert track: UNIQUE constraint failed: tracks.tui");
        for (const auto &[title, found] : {std::pair{"Saffron Ledger", 0u}, {"Cobalt Orchard", 1u},
                                           {"Amber Viaduct", 0u}, {"Velvet Quarry", 1u}}) {
            TextQuery query;
            query.album_title = title;
            AlbumSearchResult result;
            ASSERT_TRUE(cat->search_albums(query, {}, result).ok());
            EXPECT_EQ(std::count_if(result.hits.begin(), result.hits.end(),
                                    [&](const AlbumHit &h) { return h.title == title; }),
                      found)
                << title;
        }
        TocResult toc;
        ASSERT_TRUE(cat->lookup_toc(std::vector<uint32_t>{150, 20150, 40150}, {}, toc).ok());
        EXPECT_EQ(toc.kind, MatchKind::none);
        ASSERT_TRUE(cat->lookup_toc(std::vector<uint32_t>{150, 35150, 55150}, {}, toc).ok());
        ASSERT_EQ(toc.hits.size(), 1u);
        EXPECT_EQ(toc.hits[0].title, "Velvet Quarry");
    }
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    for (const char *sql :
         {"SELECT (SELECT count(*) FROM albums), (SELECT count(*) FROM album_fts WHERE rowid IN (SELECT id FROM albums))",
          "SELECT (SELECT count(*) FROM album_fts), (SELECT count(*) FROM albums)",
          "SELECT (SELECT count(*) FROM track_fts), (SELECT count(*) FROM track_fts WHERE rowid IN (SELECT id FROM tracks))",
          "SELECT (SELECT count(*) FROM tracks), (SELECT count(*) FROM track_fts)",
          "SELECT (SELECT count(*) FROM artist_fts), (SELECT count(*) FROM artists)",
          "SELECT (SELECT count(*) FROM toc_shape), (SELECT count(*) FROM toc_shape WHERE id IN (SELECT id FROM tocs))",
          "SELECT (SELECT count(*) FROM tocs), (SELECT count(*) FROM toc_shape)"}) {
        sqlite3_stmt *q = nullptr;
        ASSERT_EQ(sqlite3_prepare_v2(db, sql, -1, &q, nullptr), SQLITE_OK) << sql;
        ASSERT_EQ(sqlite3_step(q), SQLITE_ROW);
        EXPECT_EQ(sqlite3_column_int64(q, 0), sqlite3_column_int64(q, 1)) << sql;
        EXPECT_GT(sqlite3_column_int64(q, 0), 0) << sql;
        sqlite3_finalize(q);
    }
    sqlite3_close(db);
    std::filesystem::remove_all(dir);
}

TEST(CatalogueImport, Xmcd) {
    Album a;
    Status st = parse_xmcd(kXmcd, a);
    ASSERT_TRUE(st.ok()) << st.message;
    EXPECT_EQ(a.artist, "Mira Solenne");
    EXPECT_EQ(a.title, "Lanterns of Glass");
    EXPECT_EQ(a.year, 2004u);
    EXPECT_EQ(a.genre, "Folk");
    EXPECT_EQ(a.revision, 3u);
    EXPECT_EQ(a.source, "xmcd");
    ASSERT_EQ(a.discs.size(), 1u);
    // Lead-out from whole seconds: 549 * 75.
    EXPECT_EQ(a.discs[0].tocs[0].offsets, (std::vector<uint32_t>{150, 14672, 27367, 41175}));
    EXPECT_EQ(a.discs[0].tocs[0].media_id, "1e022303");
    ASSERT_EQ(a.discs[0].tracks.size(), 3u);
    EXPECT_EQ(a.discs[0].tracks[1].title, "Paper Comets");  // continued value
    EXPECT_EQ(a.discs[0].tracks[2].title, "The Long Thaw");
    EXPECT_EQ(a.discs[0].tracks[2].artist, "Guest");
    EXPECT_EQ(a.discs[0].tracks[0].duration_ms, (14672u - 150u) * 1000u / 75u);

    // The exact TOC of the disc finds it as a fuzzy match (lead-out 50 frames off).
    auto cat = open_memory();
    ImportReport report;
    ASSERT_TRUE(cat->import_xmcd_text(kXmcd, report).ok());
    EXPECT_EQ(report.imported, 1u);
    TocResult r;
    ASSERT_TRUE(cat->lookup_toc("150 14672 27367 41225", {1, 10}, r).ok());
    ASSERT_EQ(r.kind, MatchKind::fuzzy);
    EXPECT_EQ(r.hits[0].title, "Lanterns of Glass");
    IdentifierHit hit;
    ASSERT_TRUE(cat->lookup_media("", "1e022303", hit).ok());

    // ISO-8859-1 input is read as such.
    std::string latin1 = kXmcd;
    latin1.replace(latin1.find("Quiet Harbour"), 13, "Caf\xE9 Harbour");
    ASSERT_TRUE(parse_xmcd(latin1, a).ok());
    EXPECT_EQ(a.discs[0].tracks[0].title, "Café Harbour");
}

// A line of unknown encoding: valid UTF-8 stays, anything else is
// Windows-1252 (ISO-8859-1 beyond its 32 bytes of punctuation).
TEST(CatalogueImport, TextLinesDecodeAsUtf8ElseWindows1252) {
    const struct {
        std::string bytes, text;
    } cases[] = {
        {"Plain ASCII", "Plain ASCII"},
        {"Fj\xC3\xA4rran \303\226ar \xE2\x80\x99", "Fjärran Öar ’"},  // UTF-8, kept
        {"Caf\xE9 \xFF", "Café ÿ"},                                      // ISO-8859-1
        {"Don\x92t", "Don’t"},
        {"\x91one\x92 \x93two\x94", "‘one’ “two”"},
        {"A \x96 B \x97 C", "A – B — C"},
        {"Wait\x85 \2005 \x99 \x95 \x8A\x9A\x8E\x9E\x8C\x9C\x9F\x83", "Wait… €5 ™ • ŠšŽžŒœŸƒ"},
        {"\x81\x8D\x8F\x90\x9D", "\xC2\x81\xC2\x8D\xC2\x8F\xC2\x90\xC2\x9D"},  // undefined: C1 controls
        {"Ba\xC3\xB1o \xE9", "BaÃ±o é"},                                       // one bad byte: all of it 8-bit
        {"\xC3", "Ã"},
        {"\xED\xA0\x80", "í\xC2\xA0€"},  // a UTF-16 surrogate is no UTF-8
        {"", ""},
    };
    for (const auto &c : cases) EXPECT_EQ(decode_text_line(c.bytes), c.text) << c.bytes;
}

// One file of mixed encodings, as discs edited by several programs are:
// each value is read by itself.
TEST(CatalogueImport, XmcdMixedEncodingsPerLine) {
    std::string text = std::string("\xEF\xBB\xBF") + kXmcd;  // byte order mark before "# xmcd"
    auto set = [&](const std::string &from, const std::string &to) {
        const size_t at = text.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        text.replace(at, from.size(), to);
    };
    set("DTITLE=Mira Solenne / Lanterns of Glass", "DTITLE=Zo\xC3\xAB Lindqvist / Fj\xC3\xA4rran \303\226ar");
    set("TTITLE0=Quiet Harbour", "TTITLE0=Don\x92t Stop \x96 Caf\xE9");
    // A UTF-8 character cut between the two pieces of a long value.
    set("TTITLE1=Paper \nTTITLE1=Comets", "TTITLE1=Paper \xC3\nTTITLE1=\xA9toile");
    set("EXTD=Some notes", "EXTD=\x93Live\x94");
    Album a;
    const Status st = parse_xmcd(text, a);
    ASSERT_TRUE(st.ok()) << st.message;
    EXPECT_EQ(a.artist, "Zoë Lindqvist");
    EXPECT_EQ(a.title, "Fjärran Öar");
    ASSERT_EQ(a.discs[0].tracks.size(), 3u);
    EXPECT_EQ(a.discs[0].tracks[0].title, "Don’t Stop – Café");
    EXPECT_EQ(a.discs[0].tracks[1].title, "Paper étoile");
    EXPECT_EQ(a.discs[0].tracks[2].title, "The Long Thaw");

    // A piece that is 8-bit text beside one that is UTF-8, in one value.
    set("TTITLE1=Paper \xC3\nTTITLE1=\xA9toile", "TTITLE1=Caf\xC3\xA9 \nTTITLE1=Caf\xE9");
    ASSERT_TRUE(parse_xmcd(text, a).ok());
    EXPECT_EQ(a.discs[0].tracks[1].title, "Café Café");
}

// freedb titles: "Artist / Title", or "Artist - Title" where only one
// reading is possible.
TEST(CatalogueImport, XmcdArtistAndTitleSplit) {
    auto parse = [](const std::string &dtitle, const std::string &first_track, Album &a) {
        std::string text = kXmcd;
        text.replace(text.find("Mira Solenne / Lanterns of Glass"), 32, dtitle);
        text.replace(text.find("Quiet Harbour"), 13, first_track);
        return parse_xmcd(text, a);
    };
    const struct {
        std::string dtitle, artist, title;
    } discs[] = {
        {"Mira Solenne / Lanterns of Glass", "Mira Solenne", "Lanterns of Glass"},
        {"Mira Solenne - Lanterns of Glass", "Mira Solenne", "Lanterns of Glass"},
        {"Anne-Marie Holt  -  Lanterns", "Anne-Marie Holt", "Lanterns"},
        {"Mira / Lanterns - Live", "Mira", "Lanterns - Live"},  // the slash first
        {"Mira Solenne - Lanterns - Live", "", "Mira Solenne - Lanterns - Live"},
        {"Lanterns of Glass", "", "Lanterns of Glass"},
        {"Mira Solenne - ", "", "Mira Solenne -"},
        {" - Lanterns of Glass", "", "- Lanterns of Glass"},
        {"Mira Solenne - ...", "", "Mira Solenne - ..."},
        {"Lanterns / ", "", "Lanterns"},
    };
    for (const auto &d : discs) {
        Album a;
        const Status st = parse(d.dtitle, "Quiet Harbour", a);
        ASSERT_TRUE(st.ok()) << d.dtitle << ": " << st.message;
        EXPECT_EQ(a.artist, d.artist) << d.dtitle;
        EXPECT_EQ(a.title, d.title) << d.dtitle;
    }
    // Track titles are cut at a dash on a disc of various artists only.
    const struct {
        std::string dtitle, track, artist, title;
    } tracks[] = {
        {"Various / Harbour Songs", "Mira Solenne - Quiet Harbour", "Mira Solenne", "Quiet Harbour"},
        {"Various Artists - Harbour Songs", "Koji / Quiet Harbour", "Koji", "Quiet Harbour"},
        {"Various / Harbour Songs", "Koji - Quiet - Harbour", "", "Koji - Quiet - Harbour"},
        {"Mira Solenne / Lanterns of Glass", "Quiet Harbour - Live", "", "Quiet Harbour - Live"},
        {"Mira Solenne / Lanterns of Glass", "Mira Solenne / Quiet Harbour", "", "Quiet Harbour"},
    };
    for (const auto &t : tracks) {
        Album a;
        ASSERT_TRUE(parse(t.dtitle, t.track, a).ok()) << t.track;
        EXPECT_EQ(a.discs[0].tracks[0].artist, t.artist) << t.track;
        EXPECT_EQ(a.discs[0].tracks[0].title, t.title) << t.track;
    }
}

TEST(CatalogueImport, MalformedXmcd) {
    Album a;
    struct Case {
        std::string from, to, message;
    } cases[] = {
        {"#\t150\n#\t14672\n#  27367\n", "", "no track frame offsets"},
        {"# Disc length: 549 seconds\n", "", "no disc length"},
        {"549 seconds", "300 seconds", "disc length 300 s does not follow the last track offset"},
        {"#\t14672\n", "#\t100\n", "track offsets do not rise"},
        {"TTITLE2=Guest / The Long Thaw\n", "", "3 track offsets but 2 track titles"},
        {"TTITLE2=", "TTITLE7=", "3 track offsets but 3 track titles"},
        {"DTITLE=Mira Solenne / Lanterns of Glass\n", "", "not an xmcd disc: no DTITLE"},
        {"DYEAR=2004\n", "garbage line\n", "line 14: not KEY=value"},
        {"TTITLE0=", "TTITLEx=", "line 16: bad key TTITLEx"},
        {"549 seconds", "many seconds", "line 8: bad disc length"},
    };
    for (const auto &c : cases) {
        std::string text = kXmcd;
        size_t at = text.find(c.from);
        ASSERT_NE(at, std::string::npos) << c.from;
        text.replace(at, c.from.size(), c.to);
        Status st = parse_xmcd(text, a);
        EXPECT_EQ(st.code, Code::bad_record) << c.message;
        EXPECT_EQ(st.message, c.message);
    }
    EXPECT_EQ(parse_xmcd("", a).code, Code::bad_record);
    EXPECT_EQ(parse_xmcd(std::string("\0\0\xFF\xFE", 4), a).code, Code::bad_record);
}

// What a file holds decides how it is read, from its first bytes alone.
TEST(CatalogueImport, FormatByContent) {
    const std::string long_title(kSniffBytes, 'x');
    const struct {
        std::string head;
        ImportFormat format;
    } cases[] = {
        {R"({"id":"r","title":"T","media":[]})", ImportFormat::releases},
        {"  \n[\n  {\"title\": \"T\", \"media\": [{\"tracks\": [", ImportFormat::releases},  // cut by the prefix
        {R"({"releases": [{"title": "T", "text": "lyric-like"}]})", ImportFormat::releases},
        {R"({"text":"Salt on the window","media":[]})", ImportFormat::releases},
        {R"({"title":"T","artist-credit":[{"text":"not a lyric key"}]})", ImportFormat::releases},
        {"{\"id\": \"bad-1\"}\n{\"id\": \"bad-2\"}\n", ImportFormat::releases},
        {"{\"title\":\"" + long_title + "\",\"text\":\"x\"}", ImportFormat::releases},  // "text" beyond the prefix
        {"[[{\"text\": \"x\"}]]", ImportFormat::releases},
        {"{\"title\":\"Tide\",\"text\":\"Salt\"}\n{\"title\":\"Ebb\",\"text\":\"Sand\"}\n", ImportFormat::lyrics},
        {"\xEF\xBB\xBF[\n {\"release\": \"r\", \"track\": 1, \"text\": \"Salt\"}\n]", ImportFormat::lyrics},
        {"{\"title\":\"Tide\",\"text\":\"Salt\"", ImportFormat::lyrics},
        {"# xmcd\n#\n", ImportFormat::xmcd},
        {"\xEF\xBB\xBF\r\n\r\n#xmcd CD database file", ImportFormat::xmcd},
        {"# XMCD", ImportFormat::xmcd},
        {"# xmcdata", ImportFormat::unknown},
        {"# playlist\n# xmcd\n", ImportFormat::unknown},
        {"DTITLE=Mira Solenne / Lanterns of Glass\n", ImportFormat::unknown},
        {"shopping list: bread", ImportFormat::unknown},
        {"\x89PNG\r\n\x1A\n", ImportFormat::unknown},
        {"", ImportFormat::empty},
        {" \r\n\t\n", ImportFormat::empty},
        {"\xEF\xBB\xBF", ImportFormat::empty},
    };
    for (const auto &c : cases)
        EXPECT_EQ(import_format_name(sniff_import_format(std::string_view(c.head).substr(0, kSniffBytes))),
                  std::string(import_format_name(c.format)))
            << c.head.substr(0, 60);
}

// Files named against their content: each is imported as what it holds;
// a file of no known format is skipped by name and the rest goes on.
TEST(CatalogueImport, FilesImportedByContentNotName) {
    const std::string dir = temp_dir();
    write(dir + "/disc.XMCD", release_line("nm-1", "Salt Roads") + "\n");
    write(dir + "/lights.json", std::string("\xEF\xBB\xBF\n") + kXmcd);
    // Sorts first by name, but is read after the albums it refers to.
    write(dir + "/0words.TXT", "[{\"title\":\"A\",\"artist\":\"X\",\"release\":\"nm-1\",\"disc\":1,\"track\":1,"
                               "\"text\":\"Salt on the window\"}]");
    write(dir + "/notes.txt", "shopping list: bread\n");
    write(dir + "/empty.jsonl", "\n");
    auto cat = open_memory();
    ImportReport report;
    ASSERT_TRUE(cat->import_directory(dir, report).ok());
    EXPECT_EQ(report.records, 5u);
    EXPECT_EQ(report.imported, 3u);
    EXPECT_EQ(report.skipped, 2u);
    EXPECT_EQ(report.messages, (std::vector<std::string>{
                                   dir + "/empty.jsonl: empty file: nothing to import",
                                   dir + "/notes.txt: not an import file: neither release JSON, an xmcd disc "
                                         "(\"# xmcd\" first) nor lyrics records",
                               }));
    TocResult toc;
    ASSERT_TRUE(cat->lookup_toc("150 14672 27367 41175", {1, 10}, toc).ok());
    ASSERT_EQ(toc.kind, MatchKind::single);
    EXPECT_EQ(toc.hits[0].title, "Lanterns of Glass");
    const auto lyrics = catalogue_test::find_lyrics(*cat, "", "salt window");
    ASSERT_EQ(lyrics.total, 1u);
    EXPECT_NE(lyrics.first.track_id, 0);  // linked: the release was there first

    // One file at a time, the same.
    ASSERT_TRUE(cat->import_file(dir + "/notes.txt", report).ok());
    EXPECT_EQ(report.records, 1u);
    EXPECT_EQ(report.skipped, 1u);
    ASSERT_TRUE(cat->import_file(dir + "/disc.XMCD", report).ok());
    EXPECT_EQ(report.unchanged, 1u);
    EXPECT_EQ(cat->import_file(dir + "/missing", report).code, Code::io_error);
    std::filesystem::remove_all(dir);
}

TEST(CatalogueImport, ProgressAndStop) {
    std::string lines;
    for (int i = 0; i < 1000; ++i) lines += release_line("p" + std::to_string(i), "Album " + std::to_string(i)) + "\n";
    std::string dir = temp_dir();
    write(dir + "/many.jsonl", lines);
    auto cat = open_memory();
    ImportReport report;
    std::vector<ImportProgress> seen;
    ASSERT_TRUE(cat->import_musicbrainz_file(dir + "/many.jsonl", report, [&](const ImportProgress &p) {
                       seen.push_back(p);
                       return true;
                   }).ok());
    EXPECT_EQ(report.imported, 1000u);
    ASSERT_GE(seen.size(), 5u);
    EXPECT_EQ(seen.back().records_done, 1000u);
    EXPECT_EQ(seen.back().bytes_done, seen.back().bytes_total);
    for (size_t i = 1; i < seen.size(); ++i) EXPECT_GE(seen[i].bytes_done, seen[i - 1].bytes_done);

    // Stopping keeps what was stored up to then.
    auto cat2 = open_memory();
    ASSERT_TRUE(cat2->import_musicbrainz_file(dir + "/many.jsonl", report,
                                              [&](const ImportProgress &p) { return p.records_done < 400; })
                    .ok());
    EXPECT_TRUE(report.stopped);
    EXPECT_EQ(report.records, 400u);
    uint64_t n = 0;
    ASSERT_TRUE(cat2->album_count(n).ok());
    EXPECT_EQ(n, 400u);

    EXPECT_EQ(cat2->import_musicbrainz_file(dir + "/missing.json", report).code, Code::io_error);
    EXPECT_EQ(cat2->import_xmcd_file(dir + "/missing", report).code, Code::io_error);
    std::filesystem::remove_all(dir);
}

TEST(CatalogueImport, LyricsLinkToTracks) {
    auto cat = open_memory();
    ImportReport report;
    ASSERT_TRUE(cat->import_musicbrainz_text(kRelease, report).ok());
    std::string dir = temp_dir();
    write(dir + "/lyrics.jsonl",
          "{\"title\":\"Paper Comets\",\"artist\":\"Mira\",\"release\":\"rel-a\",\"disc\":1,\"track\":2,"
          "\"text\":\"We folded comets\"}\nnot json\n{\"title\":\"No text\"}\n");
    ASSERT_TRUE(cat->import_lyrics_file(dir + "/lyrics.jsonl", report).ok());
    EXPECT_EQ(report.imported, 1u);
    EXPECT_EQ(report.skipped, 2u);
    EXPECT_EQ(report.messages[1], dir + "/lyrics.jsonl:3: lyric without text");
    const auto lyrics = catalogue_test::find_lyrics(*cat, "", "comets");
    ASSERT_EQ(lyrics.total, 1u);
    EXPECT_NE(lyrics.first.track_id, 0);
    IdentifierHit hit;
    ASSERT_TRUE(cat->lookup_tui("rel-a-1-2", "", hit).ok());
    EXPECT_EQ(lyrics.first.track_id, hit.track_id);
    std::filesystem::remove_all(dir);
}

TEST(CatalogueImport, SampleCatalogue) {
    auto dir = catalogue_test::source_root() / "data" / "sample";
    ASSERT_TRUE(std::filesystem::exists(dir)) << dir;
    auto cat = open_memory();
    ImportReport report;
    Status st = cat->import_directory(dir.string(), report);
    ASSERT_TRUE(st.ok()) << st.message;
    for (const auto &m : report.messages) ADD_FAILURE() << m;
    EXPECT_EQ(report.skipped, 0u);
    EXPECT_EQ(report.imported, 29u + 8u + 5u);  // releases, xmcd discs, lyrics
    uint64_t n = 0;
    ASSERT_TRUE(cat->album_count(n).ok());
    EXPECT_EQ(n, 37u);

    TocResult r;
    ASSERT_TRUE(cat->lookup_toc("150 14672 27367 41225", {1, 10}, r).ok());
    ASSERT_EQ(r.kind, MatchKind::single);
    EXPECT_EQ(r.hits[0].title, "Lanterns of Glass");
    EXPECT_EQ(r.hits[0].artist, "Mira Solenne");

    // The multi-disc release: disc 2 of 2, and the second pressing of disc 1.
    TextQuery q;
    q.album_title = "complete tidewater";
    AlbumSearchResult s;
    ASSERT_TRUE(cat->search_albums(q, {1, 10}, s).ok());
    ASSERT_EQ(s.total, 1u);
    Album box;
    ASSERT_TRUE(cat->get_album(s.hits[0].album_id, box).ok());
    ASSERT_EQ(box.discs.size(), 2u);
    EXPECT_EQ(box.discs[0].tocs.size(), 2u);
    ASSERT_TRUE(cat->lookup_toc(box.discs[1].tocs[0].offsets, {1, 10}, r).ok());
    EXPECT_EQ(r.hits[0].disc_number, 2u);
    EXPECT_EQ(r.hits[0].disc_count, 2u);

    q = {};
    q.album_artist = "zoe lindqvist";
    ASSERT_TRUE(cat->search_albums(q, {1, 10}, s).ok());
    ASSERT_EQ(s.total, 1u);
    EXPECT_EQ(s.hits[0].title, "Fjärran Öar");

    const auto lyrics = catalogue_test::find_lyrics(*cat, "", "uber die brucke");
    ASSERT_EQ(lyrics.total, 1u);
    EXPECT_EQ(lyrics.hits[0].artist, "Jürgen Hößl");

    // Importing again replaces every album and lyric (same revisions, same
    // content: unchanged) and adds nothing.
    Statistics before;
    ASSERT_TRUE(cat->statistics(before).ok());
    ASSERT_TRUE(cat->import_directory(dir.string(), report).ok());
    EXPECT_EQ(report.replaced, 37u + 5u);
    EXPECT_EQ(report.unchanged, 37u + 5u);
    // An album changed in between is replaced, not unchanged.
    box.discs[1].tracks[0].title += " (live)";
    ASSERT_TRUE(cat->add_album(box).ok());
    ImportReport again;
    ASSERT_TRUE(cat->import_directory(dir.string(), again).ok());
    EXPECT_EQ(again.replaced, 37u + 5u);
    EXPECT_EQ(again.unchanged, 36u + 5u);
    Statistics after;
    ASSERT_TRUE(cat->statistics(after).ok());
    EXPECT_EQ(after.albums, 37u);
    EXPECT_EQ(after.lyrics, before.lyrics);
    EXPECT_EQ(after.tracks, before.tracks);
}

// Real release and disc files, where a checkout has them beside it.
TEST(CatalogueImport, SharedDataWhenPresent) {
    auto dir = catalogue_test::source_root().parent_path() / "shared" / "data";
    if (!std::filesystem::exists(dir)) GTEST_SKIP() << "no " << dir;
    auto cat = open_memory();
    ImportReport report;
    ASSERT_TRUE(cat->import_directory(dir.string(), report).ok());
    EXPECT_GT(report.imported, 0u);
    EXPECT_EQ(report.records, report.imported + report.skipped);
}

// Every cut of a good record parses or is refused cleanly, and whatever
// parses can be stored.
TEST(CatalogueImport, TruncatedRecordsNeverBreak) {
    auto cat = open_memory();
    std::string release = kRelease, xmcd = kXmcd;
    uint32_t parsed = 0, refused = 0;
    for (size_t n = 0; n <= release.size(); ++n) {
        Album a;
        Status st = parse_musicbrainz_release(std::string_view(release).substr(0, n), a);
        if (st.ok()) {
            ++parsed;
            EXPECT_TRUE(cat->add_album(a).ok());
        } else {
            ++refused;
            EXPECT_EQ(st.code, Code::bad_record);
            EXPECT_FALSE(st.message.empty());
        }
    }
    EXPECT_EQ(parsed, 1u);  // only the whole object, with or without its last newline
    for (size_t n = 0; n <= xmcd.size(); ++n) {
        Album a;
        Status st = parse_xmcd(std::string_view(xmcd).substr(0, n), a);
        if (st.ok()) {
            ++parsed;
            EXPECT_EQ(a.discs[0].tracks.size(), 3u);
            Status added = cat->add_album(a);
            EXPECT_TRUE(added.ok() || added.code == Code::bad_record) << added.message;
        } else {
            EXPECT_EQ(st.code, Code::bad_record);
        }
    }
    EXPECT_GT(parsed, 1u);
    EXPECT_GT(refused, release.size() / 2);
}
