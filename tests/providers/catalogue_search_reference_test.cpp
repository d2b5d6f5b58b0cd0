// Catalogue: the album search against its reference reading (every
// candidate in rank order, read and scored one at a time), and the word
// scoring against text_similarity, on generated catalogues and queries.
#include <gtest/gtest.h>

#include <random>

#include "catalogue_fixtures.h"

using namespace catalogue;

namespace {

const char *const kWords[] = {"River", "Rivers", "Riverside", "Lantern", "Lanterns", "Café",   "Cafe",  "Élan",
                              "Ember", "Embers",  "of",        "the",     "a",        "Naïve",  "Window", "Windows",
                              "Echo",  "Echoes",  "Sleeping",  "Slipping", "Orchard", "Orchid", "Comet", "Comets",
                              "You're", "Rock'n'Roll", "Straße", "Strasse", "Ζωή",    "Night",  "Nights", "Knight"};
const char *const kNames[] = {"Mira Solenne", "Miro Solene", "Tenro Sane", "Café Tacuba", "Nunu Roan",
                              "Ismima Fagalzir", "Élodie Marchetti", "Sane Tenro"};

std::string words(std::mt19937 &rng, size_t lo, size_t hi) {
    std::string out;
    const size_t n = std::uniform_int_distribution<size_t>(lo, hi)(rng);
    for (size_t i = 0; i < n; ++i) {
        if (!out.empty()) out += ' ';
        out += kWords[rng() % std::size(kWords)];
    }
    return out;
}

std::string name(std::mt19937 &rng) { return kNames[rng() % std::size(kNames)]; }

// An album of 1-6 tracks, a few with their own artist, with a second
// performer or a composer now and then.
Album random_album(std::mt19937 &rng) {
    Album a;
    a.title = words(rng, 1, 4);
    a.artist = name(rng);
    a.contributors.push_back({a.artist, "", "performer", "", false, 0});
    if (rng() % 4 == 0) a.contributors.push_back({name(rng), "", "performer", "", false, 0});
    if (rng() % 5 == 0) a.contributors.push_back({name(rng), "", "composer", "", false, 0});
    Disc d;
    const uint32_t tracks = 1 + rng() % 6;
    for (uint32_t n = 1; n <= tracks; ++n) {
        Track t;
        t.number = n;
        t.title = words(rng, 1, 3);
        if (rng() % 5 == 0) t.artist = name(rng);
        d.tracks.push_back(t);
    }
    a.discs.push_back(d);
    return a;
}

// A text as people mistype it: a swap, a dropped or a doubled letter, a
// word cut short, or as it is.
std::string mistype(std::mt19937 &rng, std::string s) {
    if (s.size() < 4) return s;
    const size_t at = 1 + rng() % (s.size() - 3);
    switch (rng() % 5) {
        case 0: std::swap(s[at], s[at + 1]); break;
        case 1: s.erase(at, 1); break;
        case 2: s.insert(at, 1, s[at]); break;
        case 3: s = s.substr(0, s.find(' ') == std::string::npos ? 3 : s.find(' ')); break;
        default: break;
    }
    return s;
}

TextQuery random_query(std::mt19937 &rng) {
    static const char *const kOdd[] = {"", "?!", "a", "of the", "zzzz", "Ri", "riv", "CAFÉ", "cafe\377x", "&"};
    TextQuery q;
    switch (rng() % 8) {
        case 0: q.album_title = mistype(rng, words(rng, 1, 3)); break;
        case 1: q.artist = mistype(rng, name(rng)); break;
        case 2: q.album_title = words(rng, 1, 2), q.album_artist = name(rng); break;
        case 3: q.track_title = words(rng, 1, 2), q.artist = name(rng); break;
        case 4: q.track_title = mistype(rng, words(rng, 1, 2)); break;
        case 5: q.album_title = kOdd[rng() % std::size(kOdd)]; break;
        case 6: q.composer = name(rng), q.album_title = words(rng, 1, 1); break;
        default: q.album_title = words(rng, 1, 1); break;
    }
    return q;
}

void expect_same(const AlbumSearchResult &a, const AlbumSearchResult &b, const std::string &what) {
    ASSERT_NO_FATAL_FAILURE(catalogue_test::expect_same_page(a, b, what));
    for (size_t i = 0; i < a.hits.size(); ++i) {
        const AlbumHit &x = a.hits[i], &y = b.hits[i];
        ASSERT_EQ(x.album_id, y.album_id) << what << " #" << i;
        EXPECT_EQ(std::tie(x.tui, x.tag, x.title, x.artist, x.revision, x.album_track_count),
                  std::tie(y.tui, y.tag, y.title, y.artist, y.revision, y.album_track_count))
            << what << " #" << i;
        EXPECT_EQ(std::tie(x.album_score, x.contributor_score, x.track_score, x.score),
                  std::tie(y.album_score, y.contributor_score, y.track_score, y.score))
            << what << " #" << i;
        EXPECT_EQ(x.rank, y.rank) << what << " #" << i;
        ASSERT_EQ(x.matched_tracks.size(), y.matched_tracks.size()) << what << " #" << i;
        for (size_t k = 0; k < x.matched_tracks.size(); ++k) {
            const MatchedTrack &s = x.matched_tracks[k], &t = y.matched_tracks[k];
            EXPECT_EQ(std::tie(s.track_id, s.disc_number, s.number, s.position, s.title),
                      std::tie(t.track_id, t.disc_number, t.number, t.position, t.title))
                << what << " #" << i;
        }
    }
}

std::string describe(const TextQuery &q, Range r, uint32_t cap) {
    return "title '" + q.album_title + "' album artist '" + q.album_artist + "' track '" + q.track_title +
           "' artist '" + q.artist + "' composer '" + q.composer + "' range " + std::to_string(r.start) + ".." +
           std::to_string(r.end) + " cap " + std::to_string(cap);
}

}  // namespace

// Many catalogues of repeating words (so that ranks and scores tie), with
// caps small enough that the best-candidates cut falls among ties: the
// search answers as its reference for every query and page.
TEST(CatalogueSearchReference, AlbumSearchAgreesWithReference) {
    const Range pages[] = {{1, 10}, {1, 1}, {2, 4}, {11, 20}, {1, 1000}, {40, 45}};
    const uint32_t caps[] = {5000, 1, 4, 9, 30};
    size_t compared = 0, found = 0;
    for (uint32_t seed = 1; seed <= 6; ++seed) {
        std::mt19937 rng(seed);
        auto cat = catalogue_test::open_memory();
        const size_t albums = 20 + seed * 15;
        for (size_t i = 0; i < albums; ++i) catalogue_test::add(*cat, random_album(rng));
        for (uint32_t cap : caps) {
            cat->set_search_candidate_cap(cap);
            for (int k = 0; k < 40; ++k) {
                const TextQuery q = random_query(rng);
                for (Range r : pages) {
                    AlbumSearchResult fast, slow;
                    const Status a = cat->search_albums(q, r, fast), b = cat->search_albums_reference(q, r, slow);
                    const std::string what = describe(q, r, cap);
                    ASSERT_EQ(a.code, b.code) << what;
                    ASSERT_EQ(a.message, b.message) << what;
                    if (!a.ok()) continue;
                    expect_same(fast, slow, what);
                    ++compared;
                    found += fast.total > 0;
                }
            }
        }
    }
    EXPECT_GT(compared, 6000u);      // most queries have words to search for
    EXPECT_GT(found, compared / 2);  // and most find something
}

// An album whose artist is credited only on its tracks is found through
// them, with its rank and matched tracks, as the reference finds it.
TEST(CatalogueSearchReference, ArtistOnTracksOnly) {
    auto cat = catalogue_test::open_memory();
    catalogue_test::add(*cat, catalogue_test::make_album("Lantern", "Mira Solenne", {"One", "Two"}));
    Album guest = catalogue_test::make_album("Orchard", "Various", {"Three", "Four", "Five"});
    guest.discs[0].tracks[1].artist = "Mira Solenne";
    const int64_t id = catalogue_test::add(*cat, guest);
    TextQuery q;
    q.artist = "mira solene";
    AlbumSearchResult fast, slow;
    ASSERT_TRUE(cat->search_albums(q, {1, 10}, fast).ok());
    ASSERT_TRUE(cat->search_albums_reference(q, {1, 10}, slow).ok());
    expect_same(fast, slow, "artist on tracks");
    ASSERT_EQ(fast.total, 2u);
    EXPECT_EQ(fast.hits[1].album_id, id);
    ASSERT_EQ(fast.hits[1].matched_tracks.size(), 1u);
    EXPECT_EQ(fast.hits[1].matched_tracks[0].title, "Four");
}

// Only tracks marked own_artist are checked for albums that an artist
// search finds through their tracks alone (when the album artists' matches
// are all known): tracks whose artist words stand in their album's are not,
// and the hits are the reference's with the cap above and below the matches.
TEST(CatalogueSearchReference, ArtistOnMarkedTracksOnly) {
    auto cat = catalogue_test::open_memory();
    Album duo = catalogue_test::make_album("Lantern", "Mira Solenne & Tenro Sane", {"One", "Two", "Three"});
    duo.contributors.clear();
    duo.discs[0].tracks[0].artist = "Tenro Sane";  // words of the album's: not marked
    duo.discs[0].tracks[1].artist = "Nunu Roan";   // marked
    duo.discs[0].tracks[2].contributors = {{"Ash", "", "performer", "", false, 0}};  // marked
    const int64_t id = catalogue_test::add(*cat, duo);
    catalogue_test::add(*cat, catalogue_test::make_album("Orchard", "Tenro Sane", {"Four"}));
    for (const char *artist : {"tenro", "nunu roan", "ash", "mira", "roan tenro"})
        for (uint32_t cap : {5000u, 1u}) {
            TextQuery q;
            q.artist = artist;
            cat->set_search_candidate_cap(cap);
            AlbumSearchResult fast, slow;
            ASSERT_TRUE(cat->search_albums(q, {1, 10}, fast).ok());
            ASSERT_TRUE(cat->search_albums_reference(q, {1, 10}, slow).ok());
            expect_same(fast, slow, std::string(artist) + " cap " + std::to_string(cap));
        }
    cat->set_search_candidate_cap(5000);
    TextQuery q;
    q.artist = "ash";
    AlbumSearchResult r;
    ASSERT_TRUE(cat->search_albums(q, {1, 10}, r).ok());
    ASSERT_EQ(r.total, 1u);
    EXPECT_EQ(r.hits[0].album_id, id);
    ASSERT_EQ(r.hits[0].matched_tracks.size(), 1u);
    EXPECT_EQ(r.hits[0].matched_tracks[0].title, "Three");
}

// The bounded distance is edit_distance up to two and 3 beyond, and
// QueryWords scores as text_similarity and text_coverage do.
TEST(CatalogueSearchReference, QueryWordsAgreeWithTextSimilarity) {
    const std::pair<const char *, const char *> pairs[] = {
        {"river", "rivre"}, {"river", "rvier"}, {"lantern", "lnatren"}, {"cafe", "café"}, {"ζωη", "ζωήη"},
        {"abc", "abcdef"}, {"sleeping", "slipping"}, {"a", ""}, {"naive", "naïve"}, {"ab\xFF", "ab"},
    };
    for (const auto &[a, b] : pairs)
        EXPECT_EQ(edit_distance_within_two(a, b), std::min<uint32_t>(edit_distance(a, b), 3)) << a << " / " << b;
    const std::string longer(100, 'x');
    EXPECT_EQ(edit_distance_within_two(longer, longer + "yy"), 2u);
    EXPECT_EQ(edit_distance_within_two(longer, longer + "yyy"), 3u);

    std::mt19937 rng(7);
    for (int i = 0; i < 3000; ++i) {
        const std::string query = mistype(rng, words(rng, 0, 4)), candidate = mistype(rng, words(rng, 0, 5));
        QueryWords q(query);
        ASSERT_EQ(q.similarity(candidate), text_similarity(query, candidate)) << query << " / " << candidate;
        ASSERT_EQ(q.coverage(candidate), text_coverage(query, candidate)) << query << " / " << candidate;
        const std::string a = mistype(rng, kWords[rng() % std::size(kWords)]), b = kWords[rng() % std::size(kWords)];
        ASSERT_EQ(edit_distance_within_two(a, b), std::min<uint32_t>(edit_distance(a, b), 3)) << a << " / " << b;
    }
}

// Corrections come from the word list held in memory once a connection has
// searched twice; it follows words added through the same connection and
// through another one, as the reference (every word looked up in the file)
// does.
TEST(CatalogueSearchReference, WordListFollowsTheFile) {
    const std::string dir = catalogue_test::temp_dir(), path = dir + "/c.db";
    std::unique_ptr<Catalogue> cat, other;
    ASSERT_TRUE(Catalogue::open(path, cat).ok());
    ASSERT_TRUE(Catalogue::open(path, other).ok());
    catalogue_test::add(*cat, catalogue_test::make_album("Orchard", "Mira Solenne", {"One"}));
    auto total = [](Catalogue &c, const char *title) {
        TextQuery q;
        q.album_title = title;
        AlbumSearchResult fast, slow;
        EXPECT_TRUE(c.search_albums(q, {1, 10}, fast).ok());
        EXPECT_TRUE(c.search_albums_reference(q, {1, 10}, slow).ok());
        expect_same(fast, slow, title);
        return fast.total;
    };
    // Words of five letters or fewer are corrected by single edits alone.
    for (int i = 0; i < 3; ++i) EXPECT_EQ(total(*cat, "cmoet"), 0u);
    catalogue_test::add(*cat, catalogue_test::make_album("Comet", "Nunu Roan", {"Two"}));
    EXPECT_EQ(total(*cat, "cmoet"), 1u);  // a swap, one edit away
    EXPECT_EQ(total(*cat, "ecoh"), 0u);
    catalogue_test::add(*other, catalogue_test::make_album("Echo", "Sane Tenro", {"Three"}));
    ASSERT_TRUE(other->refresh_spelling().ok());
    EXPECT_EQ(total(*cat, "ecoh"), 1u);
    EXPECT_EQ(total(*cat, "cmoet"), 1u);
    cat.reset();
    other.reset();
    std::filesystem::remove_all(dir);
}
