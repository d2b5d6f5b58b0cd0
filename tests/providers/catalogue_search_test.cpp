// Catalogue: search keys, word similarity and the text searches.
#include <gtest/gtest.h>

#include <fstream>
#include <sqlite3.h>
#include <unistd.h>

#include "catalogue_fixtures.h"

using namespace catalogue;
using catalogue_test::add;
using catalogue_test::make_album;
using catalogue_test::open_memory;

TEST(CatalogueText, FoldRemovesCaseAccentsAndPunctuation) {
    EXPECT_EQ(fold("Café Noir"), "cafe noir");
    EXPECT_EQ(fold("  ÉLODIE   Marchetti! "), "elodie marchetti");
    EXPECT_EQ(fold("Straße der Lieder"), "strasse der lieder");
    EXPECT_EQ(fold("Ñandú Nights"), "nandu nights");
    EXPECT_EQ(fold("Ærø Œuvre Øst"), "aero oeuvre ost");
    EXPECT_EQ(fold("ﬁn ＡＢＣ"), "fin abc");
    EXPECT_EQ(fold("rock’n’roll — live"), "rocknroll live");
    EXPECT_EQ(fold("e\xCC\x81t\xC3\xA9"), "ete");     // combining acute and precomposed
    EXPECT_EQ(fold("ab\xFF" "cd"), "ab cd");           // invalid byte splits
    EXPECT_EQ(fold("Ζωή"), "ζωη");                     // Greek keeps its letters, loses accents
    EXPECT_EQ(fold("!!!"), "");
    // "&" is "and"; an apostrophe inside a word joins it, elsewhere it is a blank.
    const std::pair<const char *, const char *> everyday[] = {
        {"Simon & Garfunkel", "simon and garfunkel"}, {"AT&T", "at and t"},   {"＆Co", "and co"},
        {"You're Mine", "youre mine"},                {"O’Brien", "obrien"},  {"'Til Dawn", "til dawn"},
        {"Rock 'n' Roll", "rock n roll"},             {"dogs' days", "dogs days"}, {"\u0149", "n"},
    };
    for (const auto &[text, key] : everyday) EXPECT_EQ(fold(text), key) << text;
    EXPECT_EQ(fold_words("Déjà-vu, encore"), (std::vector<std::string>{"deja", "vu", "encore"}));
}

// Folding a search key again gives the same key, for every character of
// the Basic Multilingual Plane alone and between letters; compatibility
// forms with ASCII punctuation in their decomposition lose it too.
TEST(CatalogueText, FoldIsIdempotent) {
    EXPECT_EQ(fold("\u2474"), "1");  // ⑴ decomposes to "(1)"
    EXPECT_EQ(fold("Track\u2488two"), "track1 two");  // ⒈ decomposes to "1."
    EXPECT_EQ(fold("\u3220"), "\u4e00");  // ㈠
    auto utf8 = [](uint32_t cp) {
        std::string s;
        if (cp < 0x80) {
            s += static_cast<char>(cp);
        } else if (cp < 0x800) {
            s += static_cast<char>(0xC0 | (cp >> 6));
            s += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            s += static_cast<char>(0xE0 | (cp >> 12));
            s += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            s += static_cast<char>(0x80 | (cp & 0x3F));
        }
        return s;
    };
    uint32_t broken = 0;
    for (uint32_t cp = 1; cp <= 0xFFFF; ++cp) {
        if (cp >= 0xD800 && cp <= 0xDFFF) continue;
        for (const std::string &text : {utf8(cp), "a" + utf8(cp) + "b"}) {
            const std::string once = fold(text);
            if (fold(once) != once && ++broken <= 5) ADD_FAILURE() << "U+" << std::hex << cp << ": " << once;
        }
    }
    EXPECT_EQ(broken, 0u);
}

TEST(CatalogueText, FoldTableRowsMatchGeneratedFile) {
    std::ifstream in(catalogue_test::source_root() / "providers/catalogue/store/fold_table.inc");
    ASSERT_TRUE(in);
    std::string line;
    uint32_t rows = 0;
    while (std::getline(in, line))
        if (line.rfind("{0x", 0) == 0) ++rows;
    EXPECT_EQ(rows, fold_table_rows());
    EXPECT_GT(rows, 5000u);  // Latin, Greek, Cyrillic, compatibility forms, marks, punctuation
}

TEST(CatalogueText, EditDistanceAndSimilarity) {
    EXPECT_EQ(edit_distance("glass", "glass"), 0u);
    EXPECT_EQ(edit_distance("glas", "glass"), 1u);
    EXPECT_EQ(edit_distance("lantrens", "lanterns"), 1u);  // a transposition is one edit
    EXPECT_EQ(edit_distance("quite", "quiet"), 1u);
    EXPECT_EQ(edit_distance("lantrnes", "lanterns"), 2u);
    EXPECT_EQ(edit_distance("café", "cafe"), 1u);  // by code points, not bytes
    EXPECT_EQ(edit_distance("", "abc"), 3u);
    EXPECT_EQ(edit_distance(std::string(200000, 'q'), "quq"), 199998u);  // memory of the shorter text
    EXPECT_EQ(text_similarity(std::string(200000, 'q'), "qqqq"), 0u);
    EXPECT_EQ(text_similarity("Lanterns of Glass", "lanterns of glass"), 100u);
    EXPECT_EQ(text_similarity("Cafe Noir", "Café Noir"), 100u);
    // "glas" is a prefix of "glass" (90), "lanterns" exact (100): 2 * 190 / 4.
    EXPECT_EQ(text_similarity("lanterns glas", "lanterns glass"), 95u);
    // Two edits in a long word count 50: 2 * 250 / 6.
    EXPECT_EQ(text_similarity("lantenrs of glass", "lanterns of glass"), 91u);
    EXPECT_EQ(text_similarity("lantrnes of glass", "lanterns of glass"), 83u);
    // Prefix counts 90: 2 * 90 / 2.
    EXPECT_EQ(text_similarity("lant", "lanterns"), 90u);
    // Half the candidate's words: 2 * 100 / (1 + 2).
    EXPECT_EQ(text_similarity("harbour", "quiet harbour"), 66u);
    EXPECT_EQ(text_similarity("x", ""), 0u);
    EXPECT_EQ(text_coverage("harbour", "the boats in the quiet harbour"), 100u);
    EXPECT_EQ(text_coverage("harbour moon", "the quiet harbour"), 50u);
}

namespace {

// A small catalogue for the searches.
struct SearchCatalogue {
    std::unique_ptr<Catalogue> cat = open_memory();
    int64_t lanterns = 0, cafe = 0, strasse = 0, twin = 0;
    std::vector<int64_t> rivers;

    SearchCatalogue() {
        Album a = make_album("Lanterns of Glass", "Mira Solenne", {"Quiet Harbour", "Paper Comets", "The Long Thaw"});
        a.contributors.push_back({"Anselm Drüwe", "", "composer", "", false, 0});
        lanterns = add(*cat, a);
        cafe = add(*cat, make_album("Café Noir Sessions", "Élodie Marchetti",
                                    {"Rue des Étoiles", "Señorita Lumière", "Déjà Minuit", "Petite Fenêtre"}));
        strasse = add(*cat, make_album("Straße der Lieder", "Jürgen Hößl", {"Abendglöckchen", "Über die Brücke"}));
        Album t = make_album("Twin Meridians", "Mira Solenne & Koji Arakawa", {"Meridian One", "Meridian Two"});
        t.contributors = {{"Mira Solenne", "Solenne, Mira", "performer", "", false, 0},
                          {"Koji Arakawa", "Arakawa, Koji", "performer", "", false, 0},
                          {"Mira Solenne & Koji Arakawa", "", "performer", "", true, 0}};
        t.discs[0].tracks[1].artist = "Koji Arakawa";
        t.discs[0].tracks[1].contributors = {{"Koji Arakawa", "Arakawa, Koji", "performer", "", false, 0}};
        twin = add(*cat, t);
        for (int i = 0; i < 7; ++i)
            rivers.push_back(add(*cat, make_album("River Song " + std::to_string(i + 1), "Band " + std::to_string(i),
                                                  {"Water", "Stone"})));
        Lyric l;
        l.title = "Quiet Harbour";
        l.artist = "Mira Solenne";
        l.text = "The boats are sleeping in the quiet harbour\nLanterns of glass along the northern pier";
        l.album_tui = "";
        EXPECT_TRUE(cat->add_lyric(l).ok());
        Lyric f;
        f.title = "Rue des Étoiles";
        f.artist = "Élodie Marchetti";
        f.text = "Dans la rue des étoiles\nLe café s'endort à minuit";
        EXPECT_TRUE(cat->add_lyric(f).ok());
    }

    AlbumSearchResult albums(TextQuery q, Range r = {1, 10}) {
        AlbumSearchResult out;
        Status st = cat->search_albums(q, r, out);
        EXPECT_TRUE(st.ok()) << st.message;
        return out;
    }
};

TextQuery album_title(const char *t) {
    TextQuery q;
    q.album_title = t;
    return q;
}

}  // namespace

// A query is searched by its first kMaxQueryWords words, and only short
// words are corrected: one huge word or a flood of words costs a bounded
// amount of work (a 1,000,000-letter word once took memory growing with
// its square) and still finds what its first words name.
TEST(CatalogueSearch, QueriesAreBounded) {
    std::string many;
    for (int i = 0; i < 40; ++i) many += "w" + std::to_string(i) + " ";
    std::string first32;
    for (int i = 0; i < 32; ++i) first32 += (i ? " w" : "w") + std::to_string(i);
    EXPECT_EQ(bounded_query(many), first32);
    EXPECT_EQ(bounded_query(" Lanterns, of GLASS! "), "lanterns of glass");
    EXPECT_EQ(bounded_query("!!!"), "");

    SearchCatalogue s;
    std::string flood = "lanterns glass";
    for (int i = 0; i < 100000; ++i) flood += " lanterns";
    const struct {
        std::string query;
        size_t hits;
    } cases[] = {
        {std::string(1000000, 'q'), 0},
        {"lanterns " + std::string(1000000, 'x'), 0},
        {std::string(300000, 'x') + "Ã©", 0},
        {flood, 1},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(s.albums(album_title(c.query.c_str())).hits.size(), c.hits);
        LyricQuery lyric;
        lyric.fragment = c.query;
        LyricSearchResult lyrics;
        EXPECT_TRUE(s.cat->search_lyrics(lyric, {1, 10}, lyrics).ok());
    }
}

// "&" and "and", "you're" and "youre" find the same album; a catalogue
// indexed by the earlier folding is indexed again when it is opened for
// writing.
TEST(CatalogueSearch, EverydaySpellingsAndTheirMigration) {
    char name[] = "/tmp/catalogue_fold_XXXXXX";
    const int fd = mkstemp(name);
    ASSERT_GE(fd, 0);
    close(fd);
    std::remove(name);
    auto count = [&](const char *title) {
        std::unique_ptr<Catalogue> cat;
        EXPECT_TRUE(Catalogue::open(name, cat).ok());
        AlbumSearchResult found;
        EXPECT_TRUE(cat->search_albums(album_title(title), {1, 10}, found).ok());
        return found.total;
    };
    {
        std::unique_ptr<Catalogue> cat;
        ASSERT_TRUE(Catalogue::open(name, cat).ok());
        add(*cat, make_album("You're Mine & Yours", "Mira Solenne", {"One"}));
    }
    for (const char *query : {"youre mine and yours", "You’re mine & yours", "you're min and"})
        EXPECT_EQ(count(query), 1u) << query;
    // The index as the earlier folding left it.
    catalogue_test::make_schema_6(name);
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(name, &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "UPDATE meta SET value = '2' WHERE key = 'schema'; DELETE FROM album_fts;"
                               "INSERT INTO album_fts(rowid, title, artist) SELECT id, 'you re mine yours', '' FROM albums;",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(db);
    EXPECT_EQ(count("youre mine and yours"), 1u);
    std::remove(name);
    std::remove((std::string(name) + "-wal").c_str());
    std::remove((std::string(name) + "-shm").c_str());
}

TEST(CatalogueSearch, AlbumTitleExactMisspeltAndAccented) {
    SearchCatalogue s;
    auto r = s.albums(album_title("Lanterns of Glass"));
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.kind, MatchKind::single);
    EXPECT_EQ(r.hits[0].album_id, s.lanterns);
    EXPECT_EQ(r.hits[0].score, 100u);
    EXPECT_FALSE(r.hits[0].partial());
    EXPECT_EQ(r.hits[0].album_track_count, 3u);

    r = s.albums(album_title("Lantrens of Glas"));  // two misspellings
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].album_id, s.lanterns);
    EXPECT_LT(r.hits[0].score, 100u);
    EXPECT_GT(r.hits[0].score, 50u);

    r = s.albums(album_title("cafe noir"));
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].album_id, s.cafe);
    EXPECT_EQ(r.hits[0].score, 80u);  // two of three title words: 2 * 200 / 5

    r = s.albums(album_title("STRASSE"));
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].album_id, s.strasse);

    r = s.albums(album_title("lante"));  // prefix
    ASSERT_EQ(r.total, 1u);

    r = s.albums(album_title("Zzyzx Qwerty"));
    EXPECT_EQ(r.total, 0u);
    EXPECT_EQ(r.kind, MatchKind::none);
    EXPECT_TRUE(r.hits.empty());
}

TEST(CatalogueSearch, ArtistFields) {
    SearchCatalogue s;
    TextQuery q;
    q.album_artist = "jurgen hossl";
    auto r = s.albums(q);
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].album_id, s.strasse);
    EXPECT_EQ(r.hits[0].contributor_score, 100u);

    // Generic artist: album artist of two albums; the exact credit ranks first.
    q = {};
    q.artist = "Mira Solenne";
    r = s.albums(q);
    ASSERT_EQ(r.total, 2u);
    EXPECT_EQ(r.hits[0].album_id, s.lanterns);
    EXPECT_EQ(r.hits[1].album_id, s.twin);

    // Artist of a track only: found through the track, which is marked.
    q = {};
    q.track_artist = "Koji Arakawa";
    q.track_title = "Meridian Two";
    r = s.albums(q);
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].album_id, s.twin);
    ASSERT_EQ(r.hits[0].matched_tracks.size(), 1u);
    EXPECT_EQ(r.hits[0].matched_tracks[0].number, 2u);
    EXPECT_TRUE(r.hits[0].partial());

    // Track fields within the albums of an artist, misspelt word included.
    q = {};
    q.album_artist = "Mira Solenne";
    q.track_title = "harbuor";
    r = s.albums(q);
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].album_id, s.lanterns);
    ASSERT_EQ(r.hits[0].matched_tracks.size(), 1u);
    EXPECT_EQ(r.hits[0].matched_tracks[0].title, "Quiet Harbour");
    q.track_title = "meridian tw";  // a short last word is whole, not a prefix
    r = s.albums(q);
    EXPECT_EQ(r.total, 0u);
    q.track_title = "meridian two";
    r = s.albums(q);
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].album_id, s.twin);

    q = {};
    q.composer = "Druwe";
    r = s.albums(q);
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].album_id, s.lanterns);
}

TEST(CatalogueSearch, TrackTitleMarksPartialAlbum) {
    SearchCatalogue s;
    TextQuery q;
    q.track_title = "paper comet";
    auto r = s.albums(q);
    ASSERT_EQ(r.total, 1u);
    const AlbumHit &h = r.hits[0];
    EXPECT_EQ(h.album_id, s.lanterns);
    EXPECT_EQ(h.album_track_count, 3u);
    ASSERT_EQ(h.matched_tracks.size(), 1u);
    EXPECT_EQ(h.matched_tracks[0].title, "Paper Comets");
    EXPECT_EQ(h.matched_tracks[0].position, 2u);
    EXPECT_TRUE(h.partial());
    EXPECT_EQ(h.track_score, 95u);  // "paper" exact, "comet" a prefix of "comets": 2 * 190 / 4

    // Album title and track title must both hold.
    q.album_title = "Cafe";
    r = s.albums(q);
    EXPECT_EQ(r.total, 0u);
    q.album_title = "Lanterns";
    r = s.albums(q);
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].score, (r.hits[0].album_score + r.hits[0].track_score) / 2);

    // Accented track input against plain and the other way round.
    q = {};
    q.track_title = "senorita lumiere";
    r = s.albums(q);
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].album_id, s.cafe);
    q.track_title = "Über die Brucke";
    r = s.albums(q);
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].album_id, s.strasse);
}

TEST(CatalogueSearch, RangePaging) {
    SearchCatalogue s;
    auto all = s.albums(album_title("river song"), {1, 100});
    ASSERT_EQ(all.total, 7u);
    EXPECT_EQ(all.kind, MatchKind::fuzzy);
    ASSERT_EQ(all.hits.size(), 7u);
    auto page = s.albums(album_title("river song"), {3, 4});
    EXPECT_EQ(page.total, 7u);
    EXPECT_EQ(page.range_start, 3u);
    EXPECT_EQ(page.range_end, 4u);
    ASSERT_EQ(page.hits.size(), 2u);
    EXPECT_EQ(page.hits[0].album_id, all.hits[2].album_id);
    EXPECT_EQ(page.hits[1].album_id, all.hits[3].album_id);
    page = s.albums(album_title("river song"), {6, 20});
    EXPECT_EQ(page.range_end, 7u);
    EXPECT_EQ(page.hits.size(), 2u);
    page = s.albums(album_title("river song"), {8, 20});
    EXPECT_TRUE(page.hits.empty());
    EXPECT_EQ(page.total, 7u);
    AlbumSearchResult out;
    EXPECT_EQ(s.cat->search_albums(album_title("river"), {0, 3}, out).code, Code::invalid_argument);
    EXPECT_EQ(s.cat->search_albums(album_title("river"), {4, 3}, out).code, Code::invalid_argument);
    EXPECT_EQ(s.cat->search_albums(TextQuery{}, {1, 3}, out).code, Code::invalid_argument);
    EXPECT_EQ(s.cat->search_albums(album_title("?!"), {1, 3}, out).code, Code::invalid_argument);
}

TEST(CatalogueSearch, Tracks) {
    SearchCatalogue s;
    TextQuery q;
    q.track_title = "meridian";
    TrackSearchResult r;
    ASSERT_TRUE(s.cat->search_tracks(q, {1, 10}, r).ok());
    ASSERT_EQ(r.total, 2u);
    EXPECT_EQ(r.hits[0].album_id, s.twin);
    // Both tracks carry Koji: the second as its own artist, the first through
    // the album credit, which scores lower.
    q.artist = "koji";
    ASSERT_TRUE(s.cat->search_tracks(q, {1, 10}, r).ok());
    ASSERT_EQ(r.total, 2u);
    EXPECT_EQ(r.hits[0].title, "Meridian Two");
    EXPECT_GT(r.hits[0].score, r.hits[1].score);
    EXPECT_EQ(r.hits[0].number, 2u);
    EXPECT_EQ(r.hits[0].album_title, "Twin Meridians");
    // Track fields within the albums that the album fields found.
    q = {};
    q.album_title = "twin meridians";
    q.track_title = "meridian";
    q.artist = "arakawa";
    ASSERT_TRUE(s.cat->search_tracks(q, {1, 10}, r).ok());
    ASSERT_EQ(r.total, 2u);
    EXPECT_EQ(r.hits[0].title, "Meridian Two");
    q.track_title = "meridain one";
    ASSERT_TRUE(s.cat->search_tracks(q, {1, 10}, r).ok());
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].title, "Meridian One");
    q.album_title = "lanterns";
    ASSERT_TRUE(s.cat->search_tracks(q, {1, 10}, r).ok());
    EXPECT_EQ(r.total, 0u);
    // Album fields only: the tracks of the album, in order.
    q = {};
    q.album_title = "Straße";
    ASSERT_TRUE(s.cat->search_tracks(q, {1, 10}, r).ok());
    ASSERT_EQ(r.total, 2u);
    EXPECT_EQ(r.hits[0].title, "Abendglöckchen");
    EXPECT_EQ(r.hits[1].title, "Über die Brücke");
    EXPECT_EQ(r.hits[0].artist, "Jürgen Hößl");  // album artist stands in
    // Misspelt track word.
    q = {};
    q.track_title = "harbuor";
    ASSERT_TRUE(s.cat->search_tracks(q, {1, 10}, r).ok());
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].title, "Quiet Harbour");
}

TEST(CatalogueSearch, ArtistsWithRolesAndCollaborations) {
    SearchCatalogue s;
    ArtistSearchResult r;
    ASSERT_TRUE(s.cat->search_artists("mira solene", {1, 10}, r).ok());
    ASSERT_GE(r.total, 2u);
    EXPECT_EQ(r.hits[0].name, "Mira Solenne");
    EXPECT_EQ(r.hits[0].album_count, 2u);
    EXPECT_EQ(r.hits[0].roles, (std::vector<std::string>{"performer"}));
    EXPECT_FALSE(r.hits[0].collaboration);
    EXPECT_EQ(r.hits[1].name, "Mira Solenne & Koji Arakawa");
    EXPECT_TRUE(r.hits[1].collaboration);
    ASSERT_TRUE(s.cat->search_artists("Drüwe", {1, 10}, r).ok());
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].roles, (std::vector<std::string>{"composer"}));
    ASSERT_TRUE(s.cat->search_artists("arakawa koji", {1, 10}, r).ok());  // by sort name order too
    ASSERT_GE(r.total, 1u);
    EXPECT_EQ(r.hits[0].name, "Koji Arakawa");
    EXPECT_EQ(r.hits[0].score, 100u);
}

TEST(CatalogueSearch, Lyrics) {
    SearchCatalogue s;
    LyricQuery q;
    q.fragment = "sleeping in the quite harbor";  // two misspellings
    LyricSearchResult r;
    ASSERT_TRUE(s.cat->search_lyrics(q, {1, 10}, r).ok());
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].title, "Quiet Harbour");
    EXPECT_EQ(r.hits[0].snippet, "The boats are sleeping in the quiet harbour");
    q = {};
    q.fragment = "cafe minuit";
    q.artist = "elodie";
    ASSERT_TRUE(s.cat->search_lyrics(q, {1, 10}, r).ok());
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].title, "Rue des Étoiles");
    EXPECT_EQ(r.hits[0].snippet, "Le café s'endort à minuit");
    q = {};
    q.title = "harbour";
    ASSERT_TRUE(s.cat->search_lyrics(q, {1, 10}, r).ok());
    EXPECT_EQ(r.total, 1u);
    EXPECT_EQ(s.cat->search_lyrics(LyricQuery{}, {1, 10}, r).code, Code::invalid_argument);
}

TEST(CatalogueSearch, MatchesCombineAlbumsAndContributors) {
    SearchCatalogue s;
    TextQuery q;
    q.album_title = "Twin Meridians";
    q.artist = "Koji Arakawa";
    MatchSearchResult r;
    ASSERT_TRUE(s.cat->search_matches(q, {1, 10}, r).ok());
    ASSERT_GE(r.total, 2u);
    // The album: a = 100, c = 100 (its second track's artist), t = 0.
    EXPECT_EQ(r.hits[0].kind, MatchHit::Kind::album);
    EXPECT_EQ(r.hits[0].id, s.twin);
    EXPECT_EQ(r.hits[0].album_score, 100u);
    EXPECT_EQ(r.hits[0].contributor_score, 100u);
    EXPECT_EQ(r.hits[0].score, 200u);
    EXPECT_EQ(r.hits[1].kind, MatchHit::Kind::contributor);
    EXPECT_EQ(r.hits[1].title, "Koji Arakawa");
    EXPECT_EQ(r.hits[1].score, 100u);
    for (size_t i = 1; i < r.hits.size(); ++i) EXPECT_GE(r.hits[i - 1].score, r.hits[i].score);
}

TEST(CatalogueSearch, SpellingListFollowsChanges) {
    auto cat = open_memory();
    add(*cat, make_album("Orchard Gate", "Hollow Ember", {"Signal Fire"}));
    AlbumSearchResult r;
    ASSERT_TRUE(cat->search_albums(album_title("orcherd"), {1, 10}, r).ok());
    EXPECT_EQ(r.total, 1u);
    // A word added after the first search is known to the corrector too.
    add(*cat, make_album("Marmalade Sky", "Someone", {"Toast"}));
    ASSERT_TRUE(cat->search_albums(album_title("marmelade"), {1, 10}, r).ok());
    EXPECT_EQ(r.total, 1u);
    // A swap in the middle of a short word leaves no trigram in common.
    add(*cat, make_album("Ocean Drive", "Someone", {"Sand"}));
    ASSERT_TRUE(cat->search_albums(album_title("ocaen"), {1, 10}, r).ok());
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].title, "Ocean Drive");
    // Too far from any word: nothing.
    ASSERT_TRUE(cat->search_albums(album_title("ocxyz"), {1, 10}, r).ok());
    EXPECT_EQ(r.total, 0u);
}
