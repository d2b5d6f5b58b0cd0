// Fuzzes the album search on small catalogues and queries made from the
// input. Lines of the input: the first few are albums ("title|artist|track
// title|track title..."), the rest queries (the first byte picks the fields
// the text goes to, the second the page). The first byte of the input picks
// the candidate cap, so that the best-candidates cut falls among ties.
// Properties:
//  - search_albums and its reference reading agree on every query: the same
//    status and message, kind, total, served range, and the same hits with
//    the same fields, scores, ranks and matched tracks, in the same order
//    (from the second search on, the fast reading corrects words from the
//    word list held in memory, the reference from the file);
//  - the album and track text indexes keep no copy of their keys, so
//    replacing an album must remove its rows with the keys they were
//    indexed under: after every album is imported again (each replacing
//    itself), every query answers as before, album and track ids aside
//    (ranks too, which depend on every row of an index); after every album
//    is removed, no query finds anything;
//  - QueryWords scores every pair of lines as text_similarity and
//    text_coverage do, and the bounded edit distance of their first words
//    is edit_distance up to two.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "providers/catalogue/store/catalogue.h"

namespace {

using fuzz::require;
using namespace catalogue;

std::vector<std::string> split(const std::string &text, char at, size_t max) {
    std::vector<std::string> out;
    size_t pos = 0;
    while (out.size() < max && pos <= text.size()) {
        const size_t end = std::min(text.find(at, pos), text.size());
        out.push_back(text.substr(pos, end - pos));
        pos = end + 1;
    }
    return out;
}

Album album_of(const std::string &line) {
    const std::vector<std::string> parts = split(line, '|', 8);
    Album a;
    a.title = parts[0];
    a.artist = parts.size() > 1 ? parts[1] : "";
    if (!a.artist.empty()) a.contributors.push_back({a.artist, "", "performer", "", false, 0});
    Disc d;
    for (size_t i = 2; i < parts.size(); ++i) {
        Track t;
        t.number = static_cast<uint32_t>(i - 1);
        t.title = parts[i];
        // A track title with a '~' carries its own artist after it.
        if (const size_t tilde = t.title.find('~'); tilde != std::string::npos) {
            t.artist = t.title.substr(tilde + 1);
            t.title.resize(tilde);
        }
        d.tracks.push_back(t);
    }
    if (d.tracks.empty()) {
        Track t;
        t.number = 1;
        d.tracks.push_back(t);
    }
    a.discs.push_back(d);
    return a;
}

TextQuery query_of(const std::string &line) {
    TextQuery q;
    if (line.empty()) return q;
    const std::string text = line.substr(1);
    const std::vector<std::string> two = split(text, '|', 2);
    const std::string &second = two.size() > 1 ? two[1] : two[0];
    switch (static_cast<unsigned char>(line[0]) % 7) {
        case 0: q.album_title = text; break;
        case 1: q.artist = text; break;
        case 2: q.album_title = two[0], q.album_artist = second; break;
        case 3: q.track_title = two[0], q.artist = second; break;
        case 4: q.track_title = text; break;
        case 5: q.composer = two[0], q.track_artist = second; break;
        default: q.album_title = two[0], q.track_title = second; break;
    }
    return q;
}

void check_same(const Status &a, const Status &b, const AlbumSearchResult &x, const AlbumSearchResult &y,
                const std::string &what) {
    require(a.code == b.code && a.message == b.message, "same status", what);
    if (!a.ok()) return;
    require(x.kind == y.kind && x.total == y.total && x.range_start == y.range_start && x.range_end == y.range_end &&
                x.hits.size() == y.hits.size(),
            "same kind, total and range", what);
    for (size_t i = 0; i < x.hits.size(); ++i) {
        const AlbumHit &h = x.hits[i], &k = y.hits[i];
        require(h.album_id == k.album_id && h.tui == k.tui && h.tag == k.tag && h.title == k.title &&
                    h.artist == k.artist && h.revision == k.revision && h.album_track_count == k.album_track_count,
                "same album", what);
        require(h.album_score == k.album_score && h.contributor_score == k.contributor_score &&
                    h.track_score == k.track_score && h.score == k.score && h.rank == k.rank,
                "same scores and rank", what);
        require(h.matched_tracks.size() == k.matched_tracks.size(), "same matched tracks", what);
        for (size_t t = 0; t < h.matched_tracks.size(); ++t)
            require(h.matched_tracks[t].track_id == k.matched_tracks[t].track_id &&
                        h.matched_tracks[t].position == k.matched_tracks[t].position &&
                        h.matched_tracks[t].title == k.matched_tracks[t].title,
                    "same matched tracks", what);
    }
}

void check_words(const std::string &a, const std::string &b) {
    QueryWords q(a);
    require(q.similarity(b) == text_similarity(a, b), "QueryWords similarity", a + " / " + b);
    require(q.coverage(b) == text_coverage(a, b), "QueryWords coverage", a + " / " + b);
    const std::vector<std::string> x = fold_words(a), y = fold_words(b);
    if (!x.empty() && !y.empty())
        require(edit_distance_within_two(x[0], y[0]) == std::min<uint32_t>(edit_distance(x[0], y[0]), 3),
                "bounded edit distance", x[0] + " / " + y[0]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2 || size > 4096) return 0;
    static const uint32_t kCaps[] = {5000, 1, 2, 3, 5};
    const uint32_t cap = kCaps[data[0] % std::size(kCaps)];
    const size_t albums = 1 + data[1] % 10;
    const std::string text(reinterpret_cast<const char *>(data) + 2, size - 2);
    const std::vector<std::string> lines = split(text, '\n', albums + 8);

    for (size_t i = 0; i + 1 < lines.size(); ++i) check_words(lines[i], lines[i + 1]);

    std::unique_ptr<Catalogue> cat;
    require(Catalogue::open(":memory:", cat).ok(), "open");
    cat->set_search_candidate_cap(cap);
    for (size_t i = 0; i < lines.size() && i < albums; ++i) {
        Album a = album_of(lines[i]);
        (void)cat->add_album(a);  // an album the store refuses is simply not there
    }
    static const Range kPages[] = {{1, 10}, {2, 3}, {1, 1000}, {7, 9}};
    std::vector<std::pair<Status, AlbumSearchResult>> first;
    auto page_of = [&](size_t i) {
        return kPages[(lines[i].size() > 1 ? static_cast<unsigned char>(lines[i][1]) : 0) % std::size(kPages)];
    };
    for (size_t i = albums; i < lines.size(); ++i) {
        const TextQuery q = query_of(lines[i]);
        AlbumSearchResult x, y;
        const Status a = cat->search_albums(q, page_of(i), x), b = cat->search_albums_reference(q, page_of(i), y);
        check_same(a, b, x, y, lines[i]);
        first.emplace_back(a, x);
    }

    std::vector<std::string> stored;
    for (size_t i = 0; i < lines.size() && i < albums; ++i) {
        Album a = album_of(lines[i]);
        if (cat->add_album(a).ok()) stored.push_back(a.tui);
    }
    for (size_t i = albums; i < lines.size(); ++i) {
        AlbumSearchResult x = first[i - albums].second;
        const Status a = cat->search_albums(query_of(lines[i]), page_of(i), x);
        AlbumSearchResult y = first[i - albums].second;
        require(x.hits.size() == y.hits.size(), "same hits after a re-import", lines[i]);
        // The ids are new and in the same order as before.
        for (size_t h = 0; h < x.hits.size(); ++h) {
            y.hits[h].album_id = x.hits[h].album_id;
            if (x.hits[h].matched_tracks.size() == y.hits[h].matched_tracks.size())
                for (size_t t = 0; t < x.hits[h].matched_tracks.size(); ++t)
                    y.hits[h].matched_tracks[t].track_id = x.hits[h].matched_tracks[t].track_id;
        }
        check_same(a, first[i - albums].first, x, y, "after a re-import: " + lines[i]);
    }
    for (const std::string &tui : stored) {
        AlbumListEntry removed;
        (void)cat->remove_album(tui, removed);  // a later line may have replaced it already
    }
    for (size_t i = albums; i < lines.size(); ++i) {
        AlbumSearchResult x;
        const Status a = cat->search_albums(query_of(lines[i]), page_of(i), x);
        require(a.code == first[i - albums].first.code && (!a.ok() || x.total == 0), "nothing after removal",
                lines[i]);
    }
    return 0;
}
