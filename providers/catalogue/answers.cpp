// Answers of the catalogue's lookup provider: each lookup runs against the
// catalogue and its hits become a tree in the vocabulary the module reads
// (albums, tracks, contributors, lyrics, the response code and the result
// range), with progress events on the way.
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "host/host_internal.h"
#include "providers/catalogue/provider.h"
#include "providers/catalogue/store/catalogue_internal.h"

namespace catalogue_provider {

bool Events::send(uint32_t code, uint32_t value1, uintptr_t value2) {
    if (aborted_) return false;
    if (!request_.callback) return true;
    zelto_lookup_status record{ZELTO_LOOKUP_EVENT_KIND_COUNTERS, code, value1, value2};
    request_.callback(request_.callback_data, &record, &flag_);
    if (flag_ == 1) aborted_ = true;
    return !aborted_;
}

namespace {

constexpr uint32_t kSent = ZELTO_LOOKUP_EVENT_SENT;
constexpr uint32_t kFound = ZELTO_LOOKUP_EVENT_FOUND;
constexpr uint32_t kBuilding = ZELTO_LOOKUP_EVENT_BUILDING;
constexpr uint32_t kReady = ZELTO_LOOKUP_EVENT_READY;

// ---- Trees --------------------------------------------------------------------------------

// Owner of one reference on a tree node. Contexts and keys are constants
// of this library, which the nodes keep without copying them. Nodes are
// inner nodes of an answer, outside the host's handle registry, except the
// root that the request hands out.
class Node {
 public:
    Node() = default;
    explicit Node(const char *context) {
        if (host::tree_create_inner(context, &tree_) != 0) throw std::bad_alloc();
    }
    static Node root(const char *context) {
        Node n;
        if (host::tree_create_constant(context, &n.tree_) != 0) throw std::bad_alloc();
        return n;
    }
    ~Node() { host::tree_release_held(tree_); }
    Node(Node &&other) noexcept : tree_(std::exchange(other.tree_, nullptr)) {}
    Node &operator=(Node &&other) noexcept {
        std::swap(tree_, other.tree_);
        return *this;
    }
    Node(const Node &) = delete;
    Node &operator=(const Node &) = delete;

    zelto_manager_tree *get() const { return tree_; }
    zelto_manager_tree *release() { return std::exchange(tree_, nullptr); }

    // Nodes are this provider's own: added to without a handle check.
    Node &value(const char *key, const std::string &text) {
        if (host::tree_add_constant_value(tree_, key, text.c_str(), text.size()) != 0) throw std::bad_alloc();
        return *this;
    }
    Node &value(const char *key, uint64_t number) { return value(key, std::to_string(number)); }
    Node &child(const char *key, const Node &node) {
        if (host::tree_add_constant_child(tree_, key, node.get()) != 0) throw std::bad_alloc();
        return *this;
    }
    // "zelto_ctx_title!off" -> title node with its display text.
    Node &title(const std::string &text) {
        Node t(ZELTO_CTX_TITLE);
        t.value(ZELTO_VAL_DISPLAY, text);
        return child(ZELTO_CHILD_TITLE_OFFICIAL, t);
    }
    // "zelto_ctx_artist!" -> artist node -> "zelto_ctx_name!off" -> name node.
    Node &artist(const std::string &text) { return child(ZELTO_CHILD_ARTIST, artist_node(text)); }
    static Node artist_node(const std::string &text) {
        Node a(ZELTO_CTX_ARTIST);
        a.name(text);
        return a;
    }
    Node &name(const std::string &text) {
        Node n(ZELTO_CTX_NAME);
        n.value(ZELTO_VAL_DISPLAY, text);
        return child(ZELTO_CHILD_NAME_OFFICIAL, n);
    }

 private:
    zelto_manager_tree *tree_ = nullptr;
};

// What one lookup produces: a tree, or a failure status with its message.
struct Outcome {
    uint32_t status = 0;
    std::string message;
    Node tree;
};

const std::string &first_toc_mui(const catalogue::Disc &disc) {
    static const std::string empty;
    return disc.tocs.empty() ? empty : disc.tocs.front().mui;
}

// How an album is answered: in full or with its matched tracks only, which
// tracks matched, and the disc whose TOC matched.
struct AlbumShape {
    bool full = true;
    std::vector<uint32_t> matched;  // album positions, from 1
    uint32_t disc_number = 0;       // disc whose TOC matched (0: none)
    std::string toc;                // TOC text of that disc
    // Values the matched tracks carry besides their own.
    std::vector<std::pair<const char *, std::string>> matched_values;
};

bool contains(const std::vector<uint32_t> &v, uint32_t x) {
    for (uint32_t y : v)
        if (y == x) return true;
    return false;
}

// Artist nodes of one answer about one album: whatever is credited to the
// album's artist (the album and most tracks) holds the one node made for
// it, since a node may hang below several parents and reads the same below
// each; any other artist gets a node of its own.
class ArtistNodes {
 public:
    explicit ArtistNodes(const catalogue::Album &album) : album_artist_(album.artist) {}
    void add_to(Node &parent, const std::string &text) {
        if (text != album_artist_) {
            parent.artist(text);
            return;
        }
        if (!shared_.get()) shared_ = Node::artist_node(text);
        parent.child(ZELTO_CHILD_ARTIST, shared_);
    }

 private:
    const std::string &album_artist_;
    Node shared_;
};

// A track numbered `number` (its place on the album, or on its disc).
Node track_node(const catalogue::Album &album, const catalogue::Disc &disc, const catalogue::Track &track,
                uint32_t number, ArtistNodes &artists) {
    Node t(ZELTO_CTX_TRACK);
    t.value(ZELTO_VAL_TRACKNUMBER, number).value(ZELTO_VAL_TUI, track.tui).value(ZELTO_VAL_TUI_TAG, track.tag);
    t.value(ZELTO_VAL_DISCNUMBER, disc.number);
    if (track.duration_ms) t.value(ZELTO_VAL_DURATION, track.duration_ms);
    t.title(track.title);
    artists.add_to(t, track.artist.empty() ? album.artist : track.artist);
    return t;
}

// The disc an answer names: the one whose TOC or media matched, else the
// one that holds every matched track; 0 when none is known or the matched
// tracks lie on several discs.
uint32_t matched_disc(const catalogue::Album &album, const AlbumShape &shape) {
    if (shape.disc_number) return shape.disc_number;
    uint32_t found = 0, position = 0;
    for (const auto &disc : album.discs)
        for (size_t i = 0; i < disc.tracks.size(); ++i)
            if (contains(shape.matched, ++position)) {
                if (found && found != disc.number) return 0;
                found = disc.number;
            }
    return found;
}

Node album_node(const catalogue::Album &album, const AlbumShape &shape) {
    Node a(ZELTO_CTX_ALBUM);
    const uint32_t disc_number = matched_disc(album, shape);
    const catalogue::Disc *toc_disc = nullptr;
    for (const auto &disc : album.discs)
        if (disc.number == disc_number) toc_disc = &disc;
    const catalogue::Disc *matched = toc_disc;
    if (!toc_disc && !album.discs.empty()) toc_disc = &album.discs.front();
    a.value(ZELTO_VAL_TUI, album.tui).value(ZELTO_VAL_TUI_TAG, album.tag).value(ZELTO_VAL_TUI_REV, album.revision);
    if (toc_disc && !toc_disc->tocs.empty()) {
        a.value(ZELTO_VAL_MUI, first_toc_mui(*toc_disc));
        if (!toc_disc->tocs.front().media_id.empty()) a.value(ZELTO_VAL_MUITAG, toc_disc->tocs.front().media_id);
    }
    a.value(ZELTO_VAL_TITLE, album.title).value(ZELTO_VAL_ARTIST, album.artist);
    if (album.year) a.value(ZELTO_VAL_YEAR, album.year);
    if (!album.genre.empty()) a.value(ZELTO_VAL_GENRE, album.genre);
    // The edition, where the imported data tells it.
    const std::pair<const char *, const std::string *> edition[] = {
        {ZELTO_VAL_COUNTRY, &album.country},
        {ZELTO_VAL_RELEASE_DATE, &album.release_date},
        {ZELTO_VAL_LABEL, &album.label},
        {ZELTO_VAL_CATALOG_NUMBER, &album.catalogue_number},
        {ZELTO_VAL_BARCODE, &album.barcode},
        {ZELTO_VAL_FORMAT, toc_disc ? &toc_disc->format : nullptr},
    };
    for (const auto &[key, text] : edition)
        if (text && !text->empty()) a.value(key, *text);
    a.value(ZELTO_VAL_ALBUMTRACKCNT, album.track_count()).value(ZELTO_VAL_FULL_RESULT, shape.full ? "1" : "0");
    a.value(ZELTO_VAL_DISCCOUNT, album.discs.size());
    for (uint32_t m : shape.matched) a.value(ZELTO_VAL_TRACK_MATCHED, m);
    std::string toc = shape.toc;
    if (toc.empty() && toc_disc && !toc_disc->tocs.empty()) toc = catalogue::toc_text(toc_disc->tocs.front().offsets);
    if (!toc.empty()) a.value(ZELTO_VAL_TOC, toc);
    a.title(album.title);
    ArtistNodes artists(album);
    artists.add_to(a, album.artist);
    // The matched disc on its own: its number, title and TOC, and the
    // tracks this answer carries, numbered on the disc.
    Node disc_node;
    if (matched) {
        a.value(ZELTO_VAL_DISC_MATCHED, matched->number);
        disc_node = Node(ZELTO_CTX_DISC);
        disc_node.value(ZELTO_VAL_DISCNUMBER, matched->number);
        if (!matched->title.empty()) disc_node.title(matched->title);
        if (!matched->format.empty()) disc_node.value(ZELTO_VAL_FORMAT, matched->format);
        if (!toc.empty()) disc_node.value(ZELTO_VAL_TOC, toc);
    }
    uint32_t position = 0;
    for (const auto &disc : album.discs) {
        for (const auto &track : disc.tracks) {
            ++position;
            const bool matching = contains(shape.matched, position);
            if (!shape.full && !matching) continue;
            Node t = track_node(album, disc, track, position, artists);
            const bool extra_values = matching && !shape.matched_values.empty();
            if (extra_values)
                for (const auto &[key, text] : shape.matched_values) t.value(key, text);
            a.child(matching ? ZELTO_CHILD_TRACK_MATCHING : ZELTO_CHILD_TRACK, t);
            if (&disc == matched) {
                // Where the disc's own numbering equals the album's, the
                // disc holds the very same node: its values would be equal.
                if (track.number == position && !extra_values)
                    disc_node.child(ZELTO_CHILD_TRACK, t);
                else
                    disc_node.child(ZELTO_CHILD_TRACK, track_node(album, disc, track, track.number, artists));
            }
        }
    }
    if (matched) a.child(ZELTO_CHILD_DISC_MATCHING, disc_node);
    return a;
}

// Album position of track `number` on disc `disc_number`, 0 if none.
uint32_t position_of(const catalogue::Album &album, uint32_t disc_number, uint32_t number) {
    uint32_t position = 0;
    for (const auto &disc : album.discs)
        for (const auto &track : disc.tracks) {
            ++position;
            if (disc.number == disc_number && track.number == number) return position;
        }
    return 0;
}

Node response_root(const char *context, const char *code) {
    Node root = Node::root(context);
    root.value(ZELTO_VAL_RESPONSE_CODE, std::string(code));
    return root;
}

void range_values(Node &root, const catalogue::Page &page) {
    root.value(ZELTO_VAL_RANGESTART, page.range_start)
        .value(ZELTO_VAL_RANGEEND, page.range_end)
        .value(ZELTO_VAL_RANGECOUNT, page.total);
}

// ---- Lookups ------------------------------------------------------------------------------

// Runs one lookup against the catalogue.
class Executor {
 public:
    Executor(catalogue::Catalogue &db, const Lookup &lookup, Events &events)
        : db_(db), lookup_(lookup), events_(events) {}

    Outcome run() {
        Outcome out;
        try {
            out = dispatch();
        } catch (const std::bad_alloc &) {
            out = Outcome{};
            out.status = ZELTO_CATALOGUE_NO_MEMORY;
            out.message = "out of memory";
        }
        return out;
    }

 private:
    catalogue::Catalogue &db_;
    LookupData lookup_;
    Events &events_;
    catalogue::Range range_;

    bool has(const char *key) const { return lookup_.has(key); }

    // The album an answer is built from, shared with the catalogue's copy.
    // Answers name no contributors, so credits are not read.
    catalogue::Status album_of(int64_t album_id, std::shared_ptr<const catalogue::Album> &out) {
        return db_.get_album(album_id, out, catalogue::Catalogue::AlbumRead::without_credits);
    }

    static Outcome failure(uint32_t status, std::string message) {
        Outcome o;
        o.status = status;
        o.message = std::move(message);
        return o;
    }
    static Outcome failure(const catalogue::Status &s) { return failure(status_of(s), s.message); }

    Outcome aborted() { return failure(ZELTO_CATALOGUE_ABORTED, "lookup aborted by the callback"); }

    Outcome dispatch() {
        std::string why;
        if (!lookup_.range(range_, why)) return failure(ZELTO_CATALOGUE_INVALID_DATA, why);
        const std::string &type = lookup_.type();
        if (type == ZELTO_LOOKUP_TYPE_ALBUM) {
            if (has(ZELTO_LOOKUP_DATA_TOC)) return toc_lookup();
            if (lookup_.has_identifier()) return identifier_lookup(false);
            if (has_text(lookup_.text_query())) return album_search();
            if (lookup_.has_fingerprint()) return fingerprint_lookup(false);
            return failure(ZELTO_CATALOGUE_INVALID_DATA, "album lookup without TOC, identifier, text or fingerprint");
        }
        if (type == ZELTO_LOOKUP_TYPE_TRACK) {
            if (lookup_.has_identifier()) return identifier_lookup(true);
            if (has_text(lookup_.text_query())) return track_search();
            if (lookup_.has_fingerprint()) return fingerprint_lookup(true);
            return failure(ZELTO_CATALOGUE_INVALID_DATA, "track lookup without identifier, text or fingerprint");
        }
        if (type == ZELTO_LOOKUP_TYPE_TEXT_MATCH) {
            if (has_text(lookup_.text_query())) return match_search();
            return failure(ZELTO_CATALOGUE_INVALID_DATA, "match lookup without text");
        }
        if (type == ZELTO_LOOKUP_TYPE_LYRIC) {
            const catalogue::LyricQuery q = lookup_.lyric_query();
            if (q.title.empty() && q.artist.empty() && q.fragment.empty())
                return failure(ZELTO_CATALOGUE_INVALID_DATA, "lyric lookup without text");
            return lyric_search(q);
        }
        return failure(ZELTO_CATALOGUE_UNSUPPORTED, "unknown lookup type '" + type + "'");
    }

    // Counts of hits found and in range, then one event per built result.
    bool found(uint32_t total, uint32_t in_range) { return events_.send(kFound, total, in_range); }
    bool building(uint32_t done, uint32_t all) { return events_.send(kBuilding, done, all); }

    // The discs whose TOC matched, each as its album with the disc's tracks.
    Outcome toc_lookup() {
        return paged_answer<catalogue::TocResult>(
            ZELTO_CTX_RESPONSE,
            [&](auto &result) { return db_.lookup_toc(lookup_.text(ZELTO_LOOKUP_DATA_TOC), range_, result); },
            [&](Node &root, const catalogue::TocHit &hit) {
                std::shared_ptr<const catalogue::Album> read;
                catalogue::Status s = album_of(hit.album_id, read);
                if (!s.ok()) return s;
                const catalogue::Album &album = *read;
                AlbumShape shape;
                shape.full = false;
                shape.disc_number = hit.disc_number;
                shape.toc = hit.toc;
                for (const auto &disc : album.discs)
                    if (disc.number == hit.disc_number)
                        for (const auto &track : disc.tracks)
                            shape.matched.push_back(position_of(album, disc.number, track.number));
                root.child(ZELTO_CHILD_ALBUM, album_node(album, shape));
                return s;
            });
    }

    // Album or track by tui / tag, or a disc by mui / media id; a revision
    // check answers "no new revision" when the caller's copy is current.
    Outcome identifier_lookup(bool tracks) {
        if (!events_.send(kSent)) return aborted();
        catalogue::IdentifierHit hit;
        catalogue::Status s;
        const std::string tui = lookup_.text(ZELTO_LOOKUP_DATA_TUI);
        const std::string tag = lookup_.text(ZELTO_LOOKUP_DATA_TUI_TAG);
        if (!tui.empty())
            s = db_.lookup_tui(tui, tag, hit);
        else
            s = db_.lookup_media(lookup_.text(ZELTO_LOOKUP_DATA_MUI), lookup_.text(ZELTO_LOOKUP_DATA_MEDIA_ID), hit);
        const char *context = ZELTO_CTX_RESPONSE;
        if (s.code == catalogue::Code::not_found) {
            if (!found(0, 0) || !events_.send(kReady)) return aborted();
            Outcome o;
            o.tree = response_root(context, catalogue::response_code(catalogue::MatchKind::none));
            return o;
        }
        if (!s.ok()) return failure(s);
        if (has(ZELTO_LOOKUP_DATA_REV) && !tui.empty()) {
            uint32_t revision = 0;
            if (!lookup_.number(ZELTO_LOOKUP_DATA_REV, 0, revision))
                return failure(ZELTO_CATALOGUE_INVALID_DATA, "revision is not a number");
            catalogue::RevisionCheck check = catalogue::RevisionCheck::unknown;
            if (!(s = db_.check_revision(tui, tag, revision, check)).ok()) return failure(s);
            if (check == catalogue::RevisionCheck::not_newer) {
                if (!found(1, 0) || !events_.send(kReady)) return aborted();
                Outcome o;
                o.tree = response_root(context, catalogue::kResponseNoNewRevision);
                return o;
            }
        }
        if (!found(1, 1)) return aborted();
        std::shared_ptr<const catalogue::Album> read;
        if (!(s = album_of(hit.album_id, read)).ok()) return failure(s);
        const catalogue::Album &album = *read;
        AlbumShape shape;
        shape.disc_number = hit.disc_number;
        // The matched track: the one asked for by its own tui, else the
        // number the caller passed on.
        uint32_t matched = 0;
        if (hit.kind == catalogue::IdentifierHit::Kind::track)
            matched = position_of(album, hit.disc_number, hit.track_number);
        else if (!lookup_.number(ZELTO_LOOKUP_DATA_TRACK_MATCHED, 0, matched))
            matched = 0;
        if (matched && matched <= album.track_count()) shape.matched.push_back(matched);
        Outcome o;
        o.tree = response_root(context, catalogue::response_code(catalogue::MatchKind::single));
        if (!tracks) {
            o.tree.child(ZELTO_CHILD_ALBUM, album_node(album, shape));
        } else {
            // Track lookups: the matched track alone, or every track of the album.
            ArtistNodes artists(album);
            uint32_t position = 0;
            for (const auto &disc : album.discs)
                for (const auto &track : disc.tracks) {
                    ++position;
                    if (shape.matched.empty() || contains(shape.matched, position))
                        o.tree.child(contains(shape.matched, position) ? ZELTO_CHILD_TRACK_MATCHING : ZELTO_CHILD_TRACK,
                                     track_node(album, disc, track, position, artists));
                }
        }
        if (!building(1, 1) || !events_.send(kReady)) return aborted();
        return o;
    }

    // Tracks (or their full albums) whose stored fingerprints match the
    // query's, best first, with the score and the offset on the album and
    // on its matched track. The XML description's algorithm must be the
    // one named beside it.
    Outcome fingerprint_lookup(bool tracks) {
        if (!events_.send(kSent)) return aborted();
        const bool xml = has(ZELTO_LOOKUP_DATA_FPX_QUERYDATA);
        catalogue::fp::Fingerprint query;
        std::string why;
        if (!catalogue::fp::parse_query_text(
                lookup_.text(xml ? ZELTO_LOOKUP_DATA_FPX_QUERYDATA : ZELTO_LOOKUP_DATA_TVX_QUERYDATA),
                xml ? lookup_.text(ZELTO_LOOKUP_DATA_FPX_ALGNAME) : std::string(),
                xml ? lookup_.text(ZELTO_LOOKUP_DATA_FPX_ALGVER) : std::string(), query, why))
            return failure(ZELTO_CATALOGUE_INVALID_DATA, why);
        catalogue::FingerprintResult result;
        catalogue::Status s = db_.match_fingerprint(query, result);
        if (!s.ok()) return failure(s);
        catalogue::Page page;
        std::vector<catalogue::FingerprintHit> hits;
        catalogue::take_page(result.hits, range_, page, hits);
        const auto count = static_cast<uint32_t>(hits.size());
        if (!found(page.total, count)) return aborted();
        Outcome o;
        o.tree = response_root(ZELTO_CTX_RESPONSE, catalogue::response_code(result.kind));
        range_values(o.tree, page);
        uint32_t done = 0;
        for (const auto &hit : hits) {
            catalogue::IdentifierHit id;
            std::shared_ptr<const catalogue::Album> read;
            if (!(s = db_.lookup_tui(hit.track_tui, "", id)).ok() || !(s = album_of(id.album_id, read)).ok())
                return failure(s);
            const catalogue::Album &album = *read;
            const uint32_t position = position_of(album, id.disc_number, id.track_number);
            const std::vector<std::pair<const char *, std::string>> values = {
                {ZELTO_CATALOGUE_VAL_FP_SCORE, std::to_string(hit.score)},
                {ZELTO_CATALOGUE_VAL_FP_OFFSET, std::to_string(hit.offset_ms)},
                {ZELTO_CATALOGUE_VAL_FP_COMPARED, std::to_string(hit.compared_ms)}};
            if (tracks) {
                uint32_t p = 0;
                for (const auto &disc : album.discs)
                    for (const auto &track : disc.tracks)
                        if (++p == position) {
                            ArtistNodes artists(album);
                            Node t = track_node(album, disc, track, position, artists);
                            t.value(ZELTO_VAL_ALBUM_TUI, album.tui);
                            for (const auto &[key, text] : values) t.value(key, text);
                            o.tree.child(ZELTO_CHILD_TRACK, t);
                        }
            } else {
                AlbumShape shape;
                shape.disc_number = id.disc_number;
                shape.matched = {position};
                shape.matched_values = values;
                Node a = album_node(album, shape);
                for (const auto &[key, text] : values) a.value(key, text);
                o.tree.child(ZELTO_CHILD_ALBUM, a);
            }
            if (!building(++done, count)) return aborted();
        }
        if (!events_.send(kReady)) return aborted();
        return o;
    }

    // The frame of the paged text searches: progress events, the search,
    // a response root with the range values, and one child per hit made by
    // `add`, which may fail.
    template <typename Result, typename Search, typename Add>
    Outcome paged_answer(const char *root_context, Search search, Add add) {
        if (!events_.send(kSent)) return aborted();
        Result result;
        catalogue::Status s = search(result);
        if (!s.ok()) return failure(s);
        const auto count = static_cast<uint32_t>(result.hits.size());
        if (!found(result.total, count)) return aborted();
        Outcome o;
        o.tree = response_root(root_context, catalogue::response_code(result.kind));
        range_values(o.tree, result);
        uint32_t done = 0;
        for (const auto &hit : result.hits) {
            if (!(s = add(o.tree, hit)).ok()) return failure(s);
            if (!building(++done, count)) return aborted();
        }
        if (!events_.send(kReady)) return aborted();
        return o;
    }

    // A partial album: the tracks that matched, or none when the album
    // fields alone found it.
    catalogue::Status partial_album(int64_t album_id, const std::vector<uint32_t> &matched, Node &out) {
        std::shared_ptr<const catalogue::Album> album;
        catalogue::Status s = album_of(album_id, album);
        if (!s.ok()) return s;
        AlbumShape shape;
        shape.full = false;
        shape.matched = matched;
        out = album_node(*album, shape);
        return s;
    }

    Outcome album_search() {
        return paged_answer<catalogue::AlbumSearchResult>(
            ZELTO_CTX_RESPONSE, [&](auto &result) { return db_.search_albums(lookup_.text_query(), range_, result); },
            [&](Node &root, const catalogue::AlbumHit &hit) {
                std::vector<uint32_t> matched;
                for (const auto &m : hit.matched_tracks) matched.push_back(m.position);
                Node a;
                catalogue::Status s = partial_album(hit.album_id, matched, a);
                if (s.ok()) root.child(ZELTO_CHILD_ALBUM, a);
                return s;
            });
    }

    Outcome track_search() {
        return paged_answer<catalogue::TrackSearchResult>(
            ZELTO_CTX_RESPONSE, [&](auto &result) { return db_.search_tracks(lookup_.text_query(), range_, result); },
            [&](Node &root, const catalogue::TrackHit &hit) {
                Node t(ZELTO_CTX_TRACK);
                t.value(ZELTO_VAL_TRACKNUMBER, hit.position)
                    .value(ZELTO_VAL_TUI, hit.tui)
                    .value(ZELTO_VAL_TUI_TAG, hit.tag)
                    .value(ZELTO_VAL_DISCNUMBER, hit.disc_number);
                if (hit.duration_ms) t.value(ZELTO_VAL_DURATION, hit.duration_ms);
                t.value(ZELTO_VAL_ALBUM_TUI, hit.album_tui);
                t.title(hit.title);
                t.artist(hit.artist);
                root.child(ZELTO_CHILD_TRACK, t);
                return catalogue::Status{};
            });
    }

    Outcome match_search() {
        return paged_answer<catalogue::MatchSearchResult>(
            ZELTO_CTX_RESPONSE_MATCH,
            [&](auto &result) { return db_.search_matches(lookup_.text_query(), range_, result); },
            [&](Node &root, const catalogue::MatchHit &hit) {
                if (hit.kind == catalogue::MatchHit::Kind::album) {
                    Node a;
                    catalogue::Status s = partial_album(hit.id, {}, a);
                    if (!s.ok()) return s;
                    a.value(ZELTO_VAL_TEXT_MATCH_ALBUM_SCORE, hit.album_score)
                        .value(ZELTO_VAL_TEXT_MATCH_CONTRIB_SCORE, hit.contributor_score)
                        .value(ZELTO_VAL_TEXT_MATCH_TRACK_SCORE, hit.track_score);
                    root.child(ZELTO_CHILD_RESPONSE_MATCH, a);
                } else {
                    Node c(ZELTO_CTX_CONTRIBUTOR);
                    c.name(hit.title);
                    c.value(ZELTO_VAL_TEXT_MATCH_CONTRIB_SCORE, hit.contributor_score)
                        .value(ZELTO_VAL_COLLAB_RESULT, hit.collaboration ? "1" : "0");
                    root.child(ZELTO_CHILD_RESPONSE_MATCH, c);
                }
                return catalogue::Status{};
            });
    }

    // The album and track a lyric belongs to: their numbers, and where the
    // catalogue holds them, the album (tui, title, artist) and the track
    // (numbers and title) as children.
    static void where_lyric_belongs(const catalogue::Lyric &lyric, Node &l) {
        if (lyric.track_number)
            l.value(ZELTO_VAL_DISCNUMBER, lyric.disc_number).value(ZELTO_VAL_TRACKNUMBER, lyric.track_number);
        if (lyric.album_title.empty()) return;
        Node a(ZELTO_CTX_ALBUM);
        a.value(ZELTO_VAL_TUI, lyric.album_tui);
        a.title(lyric.album_title);
        a.artist(lyric.album_artist);
        l.child(ZELTO_CHILD_ALBUM, a);
        if (lyric.track_title.empty()) return;
        Node t(ZELTO_CTX_TRACK);
        t.value(ZELTO_VAL_TRACKNUMBER, lyric.track_number).value(ZELTO_VAL_DISCNUMBER, lyric.disc_number);
        t.title(lyric.track_title);
        l.child(ZELTO_CHILD_TRACK, t);
    }

    Outcome lyric_search(const catalogue::LyricQuery &query) {
        return paged_answer<catalogue::LyricSearchResult>(
            ZELTO_CTX_RESPONSE, [&](auto &result) { return db_.search_lyrics(query, range_, result); },
            [&](Node &root, const catalogue::LyricHit &hit) {
                catalogue::Lyric lyric;
                catalogue::Status s = db_.get_lyric(hit.lyric_id, lyric);
                if (!s.ok()) return s;
                Node l(ZELTO_CTX_LYRIC);
                l.title(lyric.title);
                l.artist(lyric.artist);
                l.value(ZELTO_VAL_LYRIC_TEXT, lyric.text);
                if (!lyric.language.empty()) l.value(ZELTO_VAL_LANGUAGE, lyric.language);
                if (!lyric.album_tui.empty()) l.value(ZELTO_VAL_ALBUM_TUI, lyric.album_tui);
                where_lyric_belongs(lyric, l);
                root.child(ZELTO_CHILD_LYRIC, l);
                return s;
            });
    }
};

}  // namespace

uint32_t answer_lookup(catalogue::Catalogue &db, const Lookup &lookup, Events &events, zelto_manager_tree **out_tree,
                       std::string &message) {
    Outcome outcome = Executor(db, lookup, events).run();
    if (outcome.status != 0) {
        message = std::move(outcome.message);
        return outcome.status;
    }
    *out_tree = outcome.tree.release();
    return 0;
}

}  // namespace catalogue_provider
