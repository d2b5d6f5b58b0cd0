// Catalogue: track identifiers stored only where they differ from the
// derived form, the rule that keeps them unique either way, and the
// migration of a catalogue of schema 5 (every identifier stored, prefix
// indexes of two characters), which must answer exactly as before.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdio>
#include <filesystem>
#include <random>
#include <sstream>

#include "catalogue_fixtures.h"
#include "providers/catalogue/store/catalogue_internal.h"

using namespace catalogue;
using catalogue_test::make_album;
using catalogue_test::temp_dir;

namespace {

const char *const kWords[] = {"River", "Lantern", "Café", "Ember", "of", "the", "Window", "Echo", "Echoes",
                              "Sleeping", "Orchard", "Comet", "You're", "Straße", "Night", "Knight", "Ash"};
const char *const kNames[] = {"Mira Solenne", "Tenro Sane", "Élodie Marchetti", "Nunu Roan", "Ismima Fagalzir"};

std::string words(std::mt19937 &rng, size_t lo, size_t hi) {
    std::string out;
    for (size_t i = 0, n = lo + rng() % (hi - lo + 1); i < n; ++i)
        out += (out.empty() ? "" : " ") + std::string(kWords[rng() % std::size(kWords)]);
    return out;
}

// An album of one or two discs; some tracks carry their own identifier,
// some their own artist, some a composer, some a performer credit.
Album random_album(std::mt19937 &rng, int index) {
    Album a = make_album(words(rng, 1, 3), kNames[rng() % std::size(kNames)], {});
    a.tui = "rel-" + std::to_string(index);
    a.discs.clear();
    for (uint32_t d = 1, discs = 1 + rng() % 2; d <= discs; ++d) {
        Disc disc;
        disc.number = d;
        for (uint32_t n = 1, tracks = 1 + rng() % 5; n <= tracks; ++n) {
            Track t;
            t.number = n;
            t.title = words(rng, 1, 3);
            if (rng() % 4 == 0) t.tui = "trk-" + std::to_string(index) + "-" + std::to_string(d * 10 + n);
            if (rng() % 4 == 0) t.tag = "tag" + std::to_string(n);
            if (rng() % 5 == 0) t.artist = kNames[rng() % std::size(kNames)];
            if (rng() % 6 == 0) t.contributors.push_back({kNames[rng() % std::size(kNames)], "", "composer", "", false, 0});
            // An artist credited under two names: the one stored first is
            // shown, the one credited is indexed.
            if (rng() % 6 == 0) t.contributors.push_back({rng() % 2 ? "Tenro" : "Tenro S.", "", "", "id-tenro", false, 0});
            disc.tracks.push_back(t);
        }
        disc.tocs.push_back({{150 + 100 * d, 30000 + 977 * static_cast<uint32_t>(index)}, "", ""});
        a.discs.push_back(disc);
    }
    return a;
}

std::string g(double v) {
    char b[32];
    std::snprintf(b, sizeof b, "%.17g", v);
    return b;
}

// Everything a catalogue answers about its albums, tracks, artists and
// lyrics for a fixed set of questions, as one text.
std::string answers(Catalogue &cat) {
    std::ostringstream o;
    std::mt19937 rng(99);
    for (int i = 0; i < 30; ++i) {
        TextQuery q;
        switch (i % 4) {
            case 0: q.album_title = words(rng, 1, 2); break;
            case 1: q.artist = kNames[rng() % std::size(kNames)]; break;
            case 2: q.track_title = words(rng, 1, 1).substr(0, 3 + rng() % 3); break;
            default: q.composer = kNames[rng() % std::size(kNames)], q.album_title = words(rng, 1, 1); break;
        }
        AlbumSearchResult a;
        o << "A" << cat.search_albums(q, {1, 50}, a).message << a.total << ':';
        for (const AlbumHit &h : a.hits) {
            o << h.album_id << h.tui << h.tag << h.title << h.artist << h.revision << h.album_track_count << ' '
              << h.album_score << ' ' << h.contributor_score << ' ' << h.track_score << ' ' << h.score << g(h.rank);
            for (const MatchedTrack &t : h.matched_tracks)
                o << '[' << t.track_id << ' ' << t.disc_number << ' ' << t.number << ' ' << t.position << t.title << ']';
        }
        TrackSearchResult t;
        o << "\nT" << cat.search_tracks(q, {1, 50}, t).message << t.total << ':';
        for (const TrackHit &h : t.hits)
            o << h.track_id << ' ' << h.album_id << ' ' << h.disc_number << ' ' << h.number << ' ' << h.position
              << h.tui << h.tag << h.title << h.artist << h.album_title << h.album_tui << h.duration_ms << ' '
              << h.score << g(h.rank) << ';';
        ArtistSearchResult r;
        o << "\nR" << cat.search_artists(kNames[i % std::size(kNames)], {1, 50}, r).message << r.total << ':';
        for (const ArtistHit &h : r.hits) o << h.artist_id << h.name << h.album_count << ' ' << h.score << g(h.rank);
        LyricSearchResult l;
        o << "\nL" << cat.search_lyrics({"", "", words(rng, 1, 1)}, {1, 50}, l).message << l.total << ':';
        for (const LyricHit &h : l.hits) o << h.lyric_id << h.title << h.snippet << h.album_tui << h.score << g(h.rank);
        o << '\n';
    }
    for (int64_t id = 1; id <= 40; ++id) {
        Album album;
        const Status st = cat.get_album(id, album);
        o << "album " << id << ' ' << st.message;
        if (!st.ok()) continue;
        o << album.tui << album.tag << album.title << album.artist;
        for (const Disc &d : album.discs)
            for (const Track &t : d.tracks) {
                IdentifierHit hit;
                const Status found = cat.lookup_tui(t.tui, t.tag, hit);
                o << '[' << t.id << t.tui << t.tag << t.title << t.artist << ' ' << found.message << hit.track_id << ' '
                  << hit.disc_number << ' ' << hit.track_number << ']';
            }
        TocResult toc;
        o << cat.lookup_toc(album.discs[0].tocs[0].offsets, {1, 10}, toc).message << toc.hits.size() << '\n';
    }
    return o.str();
}

class CatalogueSchema : public ::testing::Test {
   protected:
    void SetUp() override {
        dir_ = temp_dir();
        path_ = dir_ + "/c.db";
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    // A catalogue of 40 albums (the last removed again, so that the track
    // ids' sequence runs past the last id) and some lyrics.
    void build() {
        std::unique_ptr<Catalogue> cat;
        ASSERT_TRUE(Catalogue::open(path_, cat).ok());
        std::mt19937 rng(5);
        for (int i = 1; i <= 40; ++i) {
            Album a = random_album(rng, i);
            const Status st = cat->add_album(a);
            ASSERT_TRUE(st.ok()) << st.message;
        }
        AlbumListEntry removed;
        ASSERT_TRUE(cat->remove_album("rel-40", removed).ok());
        std::string lyrics;
        for (int i = 1; i <= 6; ++i)
            lyrics += R"({"title":")" + words(rng, 1, 2) + R"(","artist":")" + kNames[i % std::size(kNames)] +
                      R"(","text":")" + words(rng, 5, 9) + R"(","release":"rel-)" + std::to_string(i) +
                      R"(","disc":1,"track":1})" + "\n";
        catalogue_test::write(dir_ + "/lyrics.jsonl", lyrics);
        ImportReport report;
        ASSERT_TRUE(cat->import_lyrics_file(dir_ + "/lyrics.jsonl", report).ok());
        ASSERT_EQ(report.imported, 6u);
    }

    // The file as schema 5 laid it out: every track identifier and tag
    // stored (the identifiers under a unique constraint), album digests in
    // meta, and prefix indexes of two and three characters.
    void make_schema_5() {
        catalogue_test::make_schema_6(path_);
        std::string fts;
        for (const char *t : {"album_fts(title, artist", "track_fts(title, artist, composer", "artist_fts(name",
                              "lyric_fts(title, artist, text"}) {
            const std::string entry(t), name = entry.substr(0, entry.find('(')), columns = entry.substr(entry.find('(') + 1);
            fts += "ALTER TABLE " + name + " RENAME TO old_fts; CREATE VIRTUAL TABLE " + name + " USING fts5(" +
                   columns + ", tokenize='unicode61 remove_diacritics 2', prefix='2 3'); INSERT INTO " + name + "(rowid, " +
                   columns + ") SELECT rowid, " + columns + " FROM old_fts; DROP TABLE old_fts;";
        }
        sql("PRAGMA foreign_keys = OFF; PRAGMA legacy_alter_table = ON; BEGIN;"
            "DROP INDEX tracks_tui; DROP INDEX tracks_album; DROP INDEX tracks_disc;"
            "ALTER TABLE tracks RENAME TO new_tracks;"
            "CREATE TABLE tracks(id INTEGER PRIMARY KEY AUTOINCREMENT,"
            "  album_id INTEGER NOT NULL REFERENCES albums(id) ON DELETE CASCADE,"
            "  disc_id INTEGER NOT NULL REFERENCES discs(id) ON DELETE CASCADE,"
            "  disc_number INTEGER NOT NULL, number INTEGER NOT NULL, position INTEGER NOT NULL,"
            "  title TEXT NOT NULL, artist TEXT NOT NULL, duration_ms INTEGER NOT NULL,"
            "  tui TEXT NOT NULL UNIQUE, tag TEXT NOT NULL, source_id TEXT NOT NULL);"
            "CREATE INDEX tracks_album ON tracks(album_id, position); CREATE INDEX tracks_disc ON tracks(disc_id);"
            "INSERT INTO tracks SELECT t.id, t.album_id, t.disc_id, t.disc_number, t.number, t.position, t.title,"
            "  t.artist, t.duration_ms, coalesce(t.tui, a.tui || '-' || t.disc_number || '-' || t.number), '',"
            "  t.source_id FROM new_tracks t JOIN albums a ON a.id = t.album_id;"
            "UPDATE tracks SET tag = coalesce((SELECT tag FROM new_tracks WHERE id = tracks.id),"
            "  catalogue_tag(tui || '|' || title));"
            "INSERT INTO meta(key, value) SELECT 'digest:' || tui, digest FROM albums;"
            "ALTER TABLE albums DROP COLUMN digest;"
            "UPDATE sqlite_sequence SET seq = (SELECT seq FROM sqlite_sequence WHERE name = 'new_tracks')"
            "  WHERE name = 'tracks';"
            "DROP TABLE new_tracks;" +
            fts + "UPDATE meta SET value = '5' WHERE key = 'schema'; PRAGMA user_version = 5; COMMIT;");
    }
    void sql(const std::string &statements) {
        sqlite3 *db = nullptr;
        ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
        auto tag = [](sqlite3_context *context, int, sqlite3_value **args) {
            const std::string out = hash_tag(reinterpret_cast<const char *>(sqlite3_value_text(args[0])));
            sqlite3_result_text(context, out.c_str(), -1, SQLITE_TRANSIENT);
        };
        ASSERT_EQ(sqlite3_create_function(db, "catalogue_tag", 1, SQLITE_UTF8, nullptr, tag, nullptr, nullptr),
                  SQLITE_OK);
        char *error = nullptr;
        EXPECT_EQ(sqlite3_exec(db, statements.c_str(), nullptr, nullptr, &error), SQLITE_OK) << (error ? error : "");
        sqlite3_free(error);
        sqlite3_close(db);
    }
    std::string query(const std::string &statement) { return catalogue_test::query_file(path_, statement); }
    std::string answers_of(OpenMode mode = OpenMode::read_write) {
        std::unique_ptr<Catalogue> cat;
        const Status st = Catalogue::open(path_, cat, mode);
        EXPECT_TRUE(st.ok()) << st.message;
        return cat ? answers(*cat) : st.message;
    }

    // A migration stopped by a failing write at its last step leaves the
    // file as it was, its text indexes too.
    void expect_stopped_migration_keeps_file(const std::string &schema) {
        sql("CREATE TRIGGER stop BEFORE UPDATE ON meta WHEN new.key = 'schema' BEGIN"
            " SELECT RAISE(ABORT, 'stopped'); END;");
        const std::string before = contents();
        {
            std::unique_ptr<Catalogue> cat;
            EXPECT_EQ(Catalogue::open(path_, cat).message, "catalogue " + path_ + ": update schema: stopped");
        }
        EXPECT_EQ(contents(), before);
        EXPECT_EQ(query("SELECT value FROM meta WHERE key = 'schema'"), schema);
        sql("DROP TRIGGER stop");
    }
    // Everything of the file but its pages' layout: its tables and indexes,
    // each table's rows and the words of each text index with their counts.
    std::string contents() {
        std::string out = query("SELECT name, sql FROM sqlite_master WHERE name <> 'stop' ORDER BY name");
        for (const char *table : {"albums", "tracks", "artists", "sqlite_sequence", "meta", "album_vocab",
                                  "track_vocab", "artist_vocab", "lyric_vocab"})
            out += table + std::string(":") + query(std::string("SELECT * FROM ") + table) + "\n";
        return out;
    }
    // The words of the album and track text indexes with their counts, and
    // the totals that their ranks use.
    std::string index_words() {
        return query("SELECT * FROM album_vocab") + query("SELECT * FROM track_vocab") +
               query("SELECT hex(block) FROM album_fts_data WHERE id = 1") +
               query("SELECT hex(block) FROM track_fts_data WHERE id = 1");
    }

    std::string dir_, path_;
};

// Only identifiers that differ from the derived form are stored; every
// track is found and read back under its own all the same.
// Tags are 32-bit FNV-1a as eight lower-case hex digits, leading zeros
// kept: stored catalogues hold them, so the text may never change.
TEST(CatalogueTags, HashTagIsFnv1aInEightHexDigits) {
    const std::pair<const char *, const char *> cases[] = {
        {"", "811c9dc5"}, {"a", "e40c292c"}, {"foobar", "bf9cf968"}, {"t6644", "0000350b"}};
    for (const auto &[text, tag] : cases) EXPECT_EQ(hash_tag(text), tag) << text;
}

TEST_F(CatalogueSchema, TrackIdentifiersStoredOnlyWhereTheyDiffer) {
    build();
    EXPECT_EQ(query("SELECT count(*) FROM tracks WHERE tui IS NOT NULL AND tui NOT LIKE 'trk-%'"), "0;");
    EXPECT_EQ(query("SELECT count(*) FROM tracks WHERE tag IS NOT NULL AND tag NOT LIKE 'tag%'"), "0;");
    EXPECT_NE(query("SELECT count(*) FROM tracks WHERE tag IS NOT NULL"), "0;");
    EXPECT_EQ(query("SELECT count(*) FROM meta WHERE key LIKE 'digest%'"), "0;");
    EXPECT_NE(query("SELECT count(*) FROM tracks WHERE tui IS NOT NULL"), "0;");
    EXPECT_NE(query("SELECT count(*) FROM tracks WHERE tui IS NULL"), "0;");
    std::unique_ptr<Catalogue> cat;
    ASSERT_TRUE(Catalogue::open(path_, cat).ok());
    IdentifierHit hit;
    size_t derived = 0;
    for (int64_t id = 1; id <= 10; ++id) {
        Album album;
        ASSERT_TRUE(cat->get_album(id, album).ok());
        for (const Disc &d : album.discs)
            for (const Track &t : d.tracks) {
                const std::string own = "rel-" + std::to_string(id) + "-" + std::to_string(d.number) + "-" +
                                        std::to_string(t.number);
                EXPECT_TRUE(t.tui == own || t.tui.rfind("trk-", 0) == 0) << t.tui;
                EXPECT_TRUE(t.tag == hash_tag(t.tui + "|" + t.title) || t.tag == "tag" + std::to_string(t.number))
                    << t.tag;
                derived += t.tui == own;
                ASSERT_TRUE(cat->lookup_tui(t.tui, t.tag, hit).ok()) << t.tui;
                EXPECT_EQ(std::tie(hit.track_id, hit.album_id, hit.disc_number, hit.track_number),
                          std::tie(t.id, album.id, d.number, t.number));
            }
    }
    EXPECT_GT(derived, 10u);
    // Near misses of a derived identifier name nothing.
    for (const char *tui : {"rel-1-01-1", "rel-1-1-01", "rel-1-1-", "rel-1--1", "rel-1-1-+1", "rel-1-1-4294967297",
                            "-1-1", "rel-41-1-1", "rel-1-1-1-"})
        EXPECT_EQ(cat->lookup_tui(tui, "", hit).message, std::string("no album or track ") + tui) << tui;
}

// A track identifier is unique whether stored or derived: each clash is
// refused as the unique index refused it, and nothing of the album stays.
TEST_F(CatalogueSchema, TrackIdentifierClashesAreRefusedAsBefore) {
    auto cat = catalogue_test::open_memory();
    Album first = make_album("Lantern", "Mira Solenne", {"One", "Two"});
    first.tui = "L";
    first.discs[0].tracks[1].tui = "own-1-2";
    ASSERT_TRUE(cat->add_album(first).ok());
    auto with = [](const char *album_tui, std::initializer_list<const char *> track_tuis, uint32_t repeat = 0) {
        Album a = make_album("Orchard", "Tenro Sane", {"A", "B"});
        a.tui = album_tui;
        size_t i = 0;
        for (const char *t : track_tuis) a.discs[0].tracks[i++].tui = t;
        if (repeat) a.discs[0].tracks[1].number = repeat;
        return a;
    };
    const std::pair<const char *, Album> clashes[] = {
        {"stored as another's derived", with("O", {"L-1-1"})},
        {"derived as another's stored", with("own", {})},  // track 2 is "own-1-2"
        {"stored as another's stored", with("O", {"", "own-1-2"})},
        {"the same disc and number twice", with("O", {}, 1)},
        {"derived as a stored one of its own album", with("O", {"O-1-2"})},
        {"stored as a derived one of its own album", with("O", {"", "O-1-1"})},
    };
    for (const auto &[what, album] : clashes) {
        SCOPED_TRACE(what);
        Album a = album;
        EXPECT_EQ(cat->add_album(a).message, "insert track: UNIQUE constraint failed: tracks.tui");
        Statistics stats;
        ASSERT_TRUE(cat->statistics(stats).ok());
        EXPECT_EQ(stats.albums, 1u);
        EXPECT_EQ(stats.tracks, 2u);
    }
    // A stored identifier of the derived form of a track that does not exist is fine.
    Album fine = with("O", {"L-1-3", "L-2-1"});
    ASSERT_TRUE(cat->add_album(fine).ok());
    IdentifierHit hit;
    ASSERT_TRUE(cat->lookup_tui("L-2-1", "", hit).ok());
    EXPECT_EQ(hit.album_id, fine.id);
    ASSERT_TRUE(cat->lookup_tui("L-1-2", "", hit).message == "no album or track L-1-2");
}

// A catalogue of schema 5 opened for writing is migrated in place and
// answers every question exactly as before; read-only it is read as it is.
TEST_F(CatalogueSchema, MigrationFromSchemaFiveAnswersAsBefore) {
    build();
    const std::string fresh = answers_of();
    ASSERT_NE(fresh.find("rel-3-1-"), std::string::npos);
    ASSERT_NE(fresh.find("trk-"), std::string::npos);
    const std::string sequence = query("SELECT seq FROM sqlite_sequence WHERE name = 'tracks'");
    make_schema_5();
    ASSERT_EQ(query("SELECT count(*) FROM tracks WHERE tui IS NULL"), "0;");
    EXPECT_EQ(answers_of(OpenMode::read_only), fresh);
    EXPECT_EQ(query("PRAGMA user_version"), "5;");

    expect_stopped_migration_keeps_file("5;");
    EXPECT_EQ(answers_of(), fresh);
    EXPECT_EQ(query("SELECT value FROM meta WHERE key = 'schema'"), std::to_string(kSchemaVersion) + ";");
    EXPECT_EQ(query("SELECT count(*) FROM tracks WHERE tui IS NOT NULL AND tui NOT LIKE 'trk-%'"), "0;");
    EXPECT_EQ(query("SELECT count(*) FROM tracks WHERE tag IS NOT NULL AND tag NOT LIKE 'tag%'"), "0;");
    EXPECT_EQ(query("SELECT count(*) FROM meta WHERE key LIKE 'digest%'") +
                  query("SELECT count(*) FROM albums WHERE length(digest) <> 16"),
              "0;0;");
    EXPECT_EQ(query("SELECT seq FROM sqlite_sequence WHERE name = 'tracks'"), sequence);
    EXPECT_EQ(query("SELECT count(*) FROM sqlite_master WHERE sql LIKE '%prefix=''2 3''%' OR name LIKE '%_v5%'"
                    " OR name = 'sqlite_autoindex_tracks_1'"),
              "0;");
    EXPECT_NE(query("SELECT sql FROM sqlite_master WHERE name = 'track_contributors'").find("REFERENCES tracks(id)"),
              std::string::npos);
    EXPECT_EQ(query("PRAGMA foreign_key_check") + query("PRAGMA integrity_check"), "ok;");
    // The catalogue goes on as a new one: a new album's tracks get new ids.
    std::unique_ptr<Catalogue> cat;
    ASSERT_TRUE(Catalogue::open(path_, cat).ok());
    std::mt19937 rng(1);
    Album a = random_album(rng, 41);
    ASSERT_TRUE(cat->add_album(a).ok());
    EXPECT_GT(a.discs[0].tracks[0].id, std::stoll(sequence));
}

}  // namespace

namespace {

// A catalogue of schema 6 (text indexes with a copy of their keys) answers
// as it did read-only, and opened for writing is migrated in one
// transaction to the same keys, marks and index words as a fresh import.
TEST_F(CatalogueSchema, MigrationFromSchemaSixAnswersAsBefore) {
    build();
    const std::string fresh = answers_of();
    const std::string keys = query("SELECT id, keys FROM albums") + query("SELECT id, keys, own_artist FROM tracks");
    const std::string words = index_words();
    EXPECT_NE(query("SELECT count(*) FROM tracks WHERE keys IS NOT NULL"), "0;");
    EXPECT_NE(query("SELECT count(*) FROM tracks WHERE keys IS NULL"), "0;");
    EXPECT_NE(query("SELECT count(*) FROM tracks WHERE own_artist = 1"), "0;");
    catalogue_test::make_schema_6(path_);
    EXPECT_EQ(index_words(), words);
    EXPECT_EQ(answers_of(OpenMode::read_only), fresh);
    EXPECT_EQ(query("PRAGMA user_version"), "6;");
    expect_stopped_migration_keeps_file("6;");
    EXPECT_EQ(answers_of(), fresh);
    EXPECT_EQ(query("SELECT value FROM meta WHERE key = 'schema'"), std::to_string(kSchemaVersion) + ";");
    EXPECT_EQ(query("SELECT id, keys FROM albums") + query("SELECT id, keys, own_artist FROM tracks"), keys);
    EXPECT_EQ(index_words(), words);
    EXPECT_EQ(query("SELECT count(*) FROM sqlite_master WHERE name GLOB '*_v6*'"
                    " OR name IN ('album_fts_content', 'track_fts_content')"), "0;");
    sql("INSERT INTO album_fts(album_fts, rank) VALUES('integrity-check', 0);"
        "INSERT INTO track_fts(track_fts, rank) VALUES('integrity-check', 0);");
    EXPECT_EQ(query("PRAGMA foreign_key_check") + query("PRAGMA integrity_check"), "ok;");
}

// Replacing and removing albums takes their rows out of the text indexes
// under the keys they were indexed with (also a credit whose name is not
// the one stored for its artist): the indexes then hold what a fresh
// import of the albums left holds, and searches find exactly those.
TEST_F(CatalogueSchema, TextIndexesFollowReplacementAndRemoval) {
    auto lantern = [](uint32_t revision, const char *title, const char *guest) {
        Album a = make_album(title, "Mira Solenne", {"River", "Ember", "Echo"});
        a.tui = "lantern";
        a.revision = revision;
        a.contributors = {{"Mira S.", "", "performer", "id-mira", false, 0}, {"Tenro Sane", "", "composer", "", false, 0}};
        a.discs[0].tracks[1].artist = guest;
        a.discs[0].tracks[2].contributors = {{"Élodie Marchetti", "", "lyricist", "", false, 0}};
        return a;
    };
    Album orchard = make_album("Orchard", "Ash", {"Comet", "Knight"});
    orchard.tui = "orchard";
    orchard.contributors = {{"Mira Solenne", "", "performer", "id-mira", false, 0}};
    Album cafe = make_album("Café Night", "Nunu Roan", {"Straße"});
    cafe.tui = "cafe";
    {
        std::unique_ptr<Catalogue> cat;
        ASSERT_TRUE(Catalogue::open(path_, cat).ok());
        for (Album a : {lantern(1, "Lantern", "Ismima Fagalzir"), orchard, cafe}) ASSERT_TRUE(cat->add_album(a).ok());
        EXPECT_EQ(query("SELECT tui, keys FROM albums ORDER BY id"),
                  "lantern|;orchard|orchard\tash mira solenne;cafe|;");
        Album replacement = lantern(2, "Window", "");
        bool replaced = false;
        ASSERT_TRUE(cat->add_album(replacement, &replaced).ok());
        EXPECT_TRUE(replaced);
        AlbumListEntry removed;
        ASSERT_TRUE(cat->remove_album("orchard", removed).ok());
    }
    const std::string words = index_words();
    std::unique_ptr<Catalogue> cat;
    ASSERT_TRUE(Catalogue::open(path_, cat).ok());
    const std::tuple<std::string TextQuery::*, const char *, uint32_t> searches[] = {
        {&TextQuery::album_title, "lantern", 0}, {&TextQuery::album_title, "window", 1},
        {&TextQuery::album_title, "orchard", 0}, {&TextQuery::track_title, "comet", 0},
        {&TextQuery::artist, "fagalzir", 0},     {&TextQuery::artist, "mira", 1},
        {&TextQuery::artist, "ash", 0},          {&TextQuery::track_title, "strasse", 1}};
    for (const auto &[field, text, total] : searches) {
        TextQuery q;
        q.*field = text;
        AlbumSearchResult r;
        ASSERT_TRUE(cat->search_albums(q, {1, 10}, r).ok());
        EXPECT_EQ(r.total, total) << text;
    }
    cat.reset();
    // A fresh catalogue of the albums left.
    std::filesystem::remove(path_);
    ASSERT_TRUE(Catalogue::open(path_, cat).ok());
    for (Album a : {cafe, lantern(2, "Window", "")}) ASSERT_TRUE(cat->add_album(a).ok());
    cat.reset();
    EXPECT_EQ(index_words(), words);
}

}  // namespace
