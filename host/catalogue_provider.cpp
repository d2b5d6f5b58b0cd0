// Lookup provider over a local catalogue: requests are collected, run
// against the catalogue at execute, and answered with host trees in the
// vocabulary the module reads (albums, tracks, contributors, lyrics, the
// response code and the result range).
#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "host/catalogue/catalogue.h"
#include "host_internal.h"
#include "zelto/zelto_catalogue.h"

namespace {

constexpr uint32_t kEventKind = 16;
enum EventCode : uint32_t { kStarted = 1, kSent = 8, kFound = 9, kBuilding = 10, kReady = 11, kDone = 12, kError = 13 };

// The provider table comes first so that a table pointer leads back to its
// owner; owners are never freed, only retired (see zelto_catalogue_close).
struct ProviderTable {
    zelto_lookup_interface table;
    zelto_catalogue *owner;
};

}  // namespace

struct zelto_catalogue {
    std::string path;
    std::unique_ptr<catalogue::Catalogue> db;
    ProviderTable *provider = nullptr;  // never freed
    std::mutex mutex;                    // guards the texts below and the request count
    std::string message;
    std::vector<std::string> import_messages;
    std::vector<std::string> disc_id_tocs;  // of the last zelto_catalogue_find_disc_id
    uint32_t live_requests = 0;
};

namespace {

// One declared lookup of a request and what was sent for it.
struct Lookup {
    std::string type, id;
    std::map<std::string, std::string> data;     // null values are left out
    std::map<std::string, std::string> options;
    zelto_manager_tree *result = nullptr;  // one reference held
};

}  // namespace

struct zelto_lookup_request_s {
    const ProviderTable *table = nullptr;
    zelto_lookup_callback callback = nullptr;
    void *callback_data = nullptr;
    std::vector<Lookup> lookups;
    void *user = nullptr;
};

namespace {

// ---- Registry of live catalogues, requests and tables ---------------------------------

std::mutex g_registry_mutex;
std::unordered_set<zelto_catalogue *> &catalogues() {
    static auto *s = new std::unordered_set<zelto_catalogue *>;
    return *s;
}
std::unordered_set<zelto_lookup_request_s *> &requests() {
    static auto *s = new std::unordered_set<zelto_lookup_request_s *>;
    return *s;
}

// Tables of closed catalogues, kept so that a holder can still call them.
std::vector<ProviderTable *> &retired_tables() {
    static auto *v = new std::vector<ProviderTable *>;
    return *v;
}

bool live(zelto_catalogue *c) {
    std::lock_guard<std::mutex> guard(g_registry_mutex);
    return c && catalogues().count(c) != 0;
}

zelto_lookup_request_s *live_request(zelto_lookup_request r) {
    std::lock_guard<std::mutex> guard(g_registry_mutex);
    return r && requests().count(r) ? r : nullptr;
}

// Owner of a table, if the table is a catalogue's and the catalogue is open.
zelto_catalogue *owner_of(const zelto_lookup_interface *table) {
    if (!table) return nullptr;
    std::lock_guard<std::mutex> guard(g_registry_mutex);
    for (zelto_catalogue *c : catalogues())
        if (c->provider && &c->provider->table == table) return c;
    return nullptr;
}

uint32_t status_of(const catalogue::Status &s) {
    using catalogue::Code;
    switch (s.code) {
        case Code::ok: return 0;
        case Code::not_found: return ZELTO_CATALOGUE_NO_RESULT;
        case Code::invalid_argument: return ZELTO_CATALOGUE_INVALID_DATA;
        case Code::bad_record: return ZELTO_CATALOGUE_INVALID_DATA;
        case Code::io_error: return ZELTO_CATALOGUE_IO_ERROR;
        case Code::database: return ZELTO_CATALOGUE_DATABASE;
        case Code::no_memory: return ZELTO_CATALOGUE_NO_MEMORY;
    }
    return ZELTO_CATALOGUE_DATABASE;
}

uint32_t fail(zelto_catalogue *c, uint32_t status, std::string message) {
    std::lock_guard<std::mutex> guard(c->mutex);
    c->message = std::move(message);
    return status;
}

uint32_t fail(zelto_catalogue *c, const catalogue::Status &s) { return fail(c, status_of(s), s.message); }

// ---- Trees ------------------------------------------------------------------------------

// Owner of one reference on a tree node.
class Node {
   public:
    Node() = default;
    explicit Node(const char *context) {
        if (zelto_manager_tree_create(context, &tree_) != 0) throw std::bad_alloc();
    }
    ~Node() { zelto_manager_tree_release(tree_); }
    Node(Node &&other) noexcept : tree_(std::exchange(other.tree_, nullptr)) {}
    Node &operator=(Node &&other) noexcept {
        std::swap(tree_, other.tree_);
        return *this;
    }
    Node(const Node &) = delete;
    Node &operator=(const Node &) = delete;

    zelto_manager_tree *get() const { return tree_; }
    zelto_manager_tree *release() { return std::exchange(tree_, nullptr); }

    Node &value(const char *key, const std::string &text) {
        if (zelto_manager_tree_add_value(tree_, key, text.c_str()) != 0) throw std::bad_alloc();
        return *this;
    }
    Node &value(const char *key, uint64_t number) { return value(key, std::to_string(number)); }
    Node &child(const char *key, const Node &node) {
        if (zelto_manager_tree_add_child(tree_, key, node.get()) != 0) throw std::bad_alloc();
        return *this;
    }
    // "zelto_ctx_title!off" -> title node with its display text.
    Node &title(const std::string &text) {
        Node t("zelto_ctx_title");
        t.value("zelto_val_display", text);
        return child("zelto_ctx_title!off", t);
    }
    // "zelto_ctx_artist!" -> artist node -> "zelto_ctx_name!off" -> name node.
    Node &artist(const std::string &text) {
        Node a("zelto_ctx_artist");
        a.name(text);
        return child("zelto_ctx_artist!", a);
    }
    Node &name(const std::string &text) {
        Node n("zelto_ctx_name");
        n.value("zelto_val_display", text);
        return child("zelto_ctx_name!off", n);
    }

   private:
    zelto_manager_tree *tree_ = nullptr;
};

// ---- Request data -----------------------------------------------------------------------

const std::string *find(const std::map<std::string, std::string> &m, const char *key) {
    auto it = m.find(key);
    return it == m.end() ? nullptr : &it->second;
}

std::string text_of(const Lookup &l, const char *key) {
    const std::string *v = find(l.data, key);
    return v ? *v : std::string();
}

bool true_text(const std::string *v) {
    if (!v) return false;
    return *v == "1" || *v == "true" || *v == "TRUE" || *v == "True" || *v == "yes" || *v == "y" || *v == "on";
}

// A decimal number of a request, or `fallback` if absent; false if malformed.
bool number_of(const Lookup &l, const char *key, uint32_t fallback, uint32_t &out) {
    const std::string *v = find(l.data, key);
    if (!v || v->empty()) {
        out = fallback;
        return true;
    }
    uint64_t n = 0;
    for (char ch : *v) {
        if (ch < '0' || ch > '9') return false;
        n = n * 10 + static_cast<uint64_t>(ch - '0');
        if (n > 0xFFFFFFFFu) return false;
    }
    out = static_cast<uint32_t>(n);
    return true;
}

// ---- Answer building --------------------------------------------------------------------

// What one execute produces: a tree, or a failure status with its message.
struct Outcome {
    uint32_t status = 0;
    std::string message;
    Node tree;
};

// Sends progress events; false once the callback asked to stop.
class Events {
   public:
    explicit Events(const zelto_lookup_request_s &r) : request_(r) {}
    bool send(uint32_t code, uint32_t value1 = 0, uintptr_t value2 = 0) {
        if (aborted_) return false;
        if (!request_.callback) return true;
        zelto_lookup_status record{kEventKind, code, value1, value2};
        request_.callback(request_.callback_data, &record, &flag_);
        if (flag_ == 1) aborted_ = true;
        return !aborted_;
    }
    bool aborted() const { return aborted_; }

   private:
    const zelto_lookup_request_s &request_;
    uint8_t flag_ = 0;
    bool aborted_ = false;
};

const std::string &first_toc_mui(const catalogue::Disc &disc) {
    static const std::string empty;
    return disc.tocs.empty() ? empty : disc.tocs.front().mui;
}

// Album node with its head values and the given tracks. `matched` holds
// album positions of matched tracks; `only_disc` limits tracks to one disc
// (0: all); `partial` keeps only matched tracks.
struct AlbumShape {
    bool full = true;
    std::vector<uint32_t> matched;  // album positions, from 1
    uint32_t disc_number = 0;       // disc whose TOC matched (0: none)
    std::string toc;                // TOC text of that disc
};

bool contains(const std::vector<uint32_t> &v, uint32_t x) {
    for (uint32_t y : v)
        if (y == x) return true;
    return false;
}

Node track_node(const catalogue::Album &album, const catalogue::Track &track, uint32_t position) {
    Node t("zelto_ctx_track");
    t.value("zelto_val_tracknumber", position)
        .value("zelto_val_tui", track.tui)
        .value("zelto_val_tui_tag", track.tag);
    if (track.duration_ms) t.value("zelto_val_duration", track.duration_ms);
    t.title(track.title);
    t.artist(track.artist.empty() ? album.artist : track.artist);
    return t;
}

Node album_node(const catalogue::Album &album, const AlbumShape &shape) {
    Node a("zelto_ctx_album");
    const catalogue::Disc *toc_disc = nullptr;
    for (const auto &disc : album.discs)
        if (disc.number == shape.disc_number) toc_disc = &disc;
    if (!toc_disc && !album.discs.empty()) toc_disc = &album.discs.front();
    a.value("zelto_val_tui", album.tui)
        .value("zelto_val_tui_tag", album.tag)
        .value("_sdkmgr_val_tui_rev", album.revision);
    if (toc_disc && !toc_disc->tocs.empty()) {
        a.value("_sdkmgr_val_mui", first_toc_mui(*toc_disc));
        if (!toc_disc->tocs.front().media_id.empty())
            a.value("_sdkmgr_val_muitag", toc_disc->tocs.front().media_id);
    }
    a.value("zelto_val_title", album.title).value("zelto_val_artist", album.artist);
    if (album.year) a.value("zelto_val_year", album.year);
    if (!album.genre.empty()) a.value("zelto_val_genre", album.genre);
    a.value("zelto_val_albumtrackcnt", album.track_count()).value("zelto_val_full_result", shape.full ? "1" : "0");
    for (uint32_t m : shape.matched) a.value("zelto_val_track_matched", m);
    std::string toc = shape.toc;
    if (toc.empty() && toc_disc && !toc_disc->tocs.empty()) toc = catalogue::toc_text(toc_disc->tocs.front().offsets);
    if (!toc.empty()) a.value("zelto_val_toc", toc);
    a.title(album.title);
    a.artist(album.artist);
    uint32_t position = 0;
    for (const auto &disc : album.discs) {
        for (const auto &track : disc.tracks) {
            ++position;
            const bool matching = contains(shape.matched, position);
            if (!shape.full && !matching) continue;
            a.child(matching ? "zelto_ctx_track!matching" : "zelto_ctx_track!", track_node(album, track, position));
        }
    }
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
    Node root(context);
    root.value("_sdkmgr_val_response_code", std::string(code));
    return root;
}

void range_values(Node &root, const catalogue::Page &page) {
    root.value("zelto_val_rangestart", page.range_start)
        .value("zelto_val_rangeend", page.range_end)
        .value("zelto_val_rangecount", page.total);
}

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
    const Lookup &lookup_;
    Events &events_;
    catalogue::Range range_;

    bool has(const char *key) const {
        const std::string *v = find(lookup_.data, key);
        return v && !v->empty();
    }

    static Outcome failure(uint32_t status, std::string message) {
        Outcome o;
        o.status = status;
        o.message = std::move(message);
        return o;
    }
    static Outcome failure(const catalogue::Status &s) { return failure(status_of(s), s.message); }

    Outcome aborted() { return failure(ZELTO_CATALOGUE_ABORTED, "lookup aborted by the callback"); }

    bool read_range(std::string &why) {
        uint32_t start = 1, end = 0;
        if (!number_of(lookup_, "zelto_lookup_data_result_range_start", 1, start) ||
            !number_of(lookup_, "zelto_lookup_data_result_range_end", 0, end)) {
            why = "result range is not a number";
            return false;
        }
        if (start == 0) start = 1;
        if (end == 0) end = start + 9;
        if (end < start) {
            why = "result range ends before it starts";
            return false;
        }
        if (true_text(find(lookup_.options, "zelto_lookup_option_result_single"))) end = start;
        range_ = {start, end};
        return true;
    }

    catalogue::TextQuery text_query() const {
        catalogue::TextQuery q;
        q.album_title = text_of(lookup_, "zelto_lookup_data_album_title");
        q.album_artist = text_of(lookup_, "zelto_lookup_data_album_artist");
        q.track_title = text_of(lookup_, "zelto_lookup_data_track_title");
        q.track_artist = text_of(lookup_, "zelto_lookup_data_track_artist");
        q.artist = text_of(lookup_, "zelto_lookup_data_artist");
        q.composer = text_of(lookup_, "zelto_lookup_data_composer");
        return q;
    }

    static bool has_text(const catalogue::TextQuery &q) {
        return !(q.album_title.empty() && q.album_artist.empty() && q.track_title.empty() &&
                 q.track_artist.empty() && q.artist.empty() && q.composer.empty());
    }

    Outcome dispatch() {
        std::string why;
        if (!read_range(why)) return failure(ZELTO_CATALOGUE_INVALID_DATA, why);
        const std::string &type = lookup_.type;
        if (type == "zelto_lookup_type_album") {
            if (has("zelto_lookup_data_toc")) return toc_lookup();
            if (has("zelto_lookup_data_tui") || has("zelto_lookup_data_mui") || has("zelto_lookup_data_media_id"))
                return identifier_lookup(false);
            if (has_text(text_query())) return album_search();
            if (has("zelto_lookup_data_tvx_querydata") || has("zelto_lookup_data_fpx_querydata"))
                return no_match("zelto_ctx_response");  // the catalogue holds no fingerprints
            return failure(ZELTO_CATALOGUE_INVALID_DATA, "album lookup without TOC, identifier or text");
        }
        if (type == "zelto_lookup_type_track") {
            if (has("zelto_lookup_data_tui") || has("zelto_lookup_data_mui") || has("zelto_lookup_data_media_id"))
                return identifier_lookup(true);
            if (has_text(text_query())) return track_search();
            if (has("zelto_lookup_data_tvx_querydata") || has("zelto_lookup_data_fpx_querydata"))
                return no_match("zelto_ctx_response");
            return failure(ZELTO_CATALOGUE_INVALID_DATA, "track lookup without identifier or text");
        }
        if (type == "zelto_lookup_type_text_match") {
            if (has_text(text_query())) return match_search();
            return failure(ZELTO_CATALOGUE_INVALID_DATA, "match lookup without text");
        }
        if (type == "zelto_lookup_type_lyric") {
            catalogue::LyricQuery q;
            q.title = text_of(lookup_, "zelto_lookup_data_lyric_title");
            q.artist = text_of(lookup_, "zelto_lookup_data_lyric_artist");
            q.fragment = text_of(lookup_, "zelto_lookup_data_lyric_fragment");
            if (q.title.empty() && q.artist.empty() && q.fragment.empty())
                return failure(ZELTO_CATALOGUE_INVALID_DATA, "lyric lookup without text");
            return lyric_search(q);
        }
        return failure(ZELTO_CATALOGUE_UNSUPPORTED, "unknown lookup type '" + type + "'");
    }

    Outcome no_match(const char *context) {
        if (!events_.send(kSent) || !events_.send(kFound, 0, 0) || !events_.send(kReady)) return aborted();
        Outcome o;
        o.tree = response_root(context, catalogue::response_code(catalogue::MatchKind::none));
        return o;
    }

    // Counts of hits found and in range, then one event per built result.
    bool found(uint32_t total, uint32_t in_range) { return events_.send(kFound, total, in_range); }
    bool building(uint32_t done, uint32_t all) { return events_.send(kBuilding, done, all); }

    Outcome toc_lookup() {
        if (!events_.send(kSent)) return aborted();
        catalogue::TocResult result;
        catalogue::Status s = db_.lookup_toc(text_of(lookup_, "zelto_lookup_data_toc"), range_, result);
        if (!s.ok()) return failure(s);
        const auto count = static_cast<uint32_t>(result.hits.size());
        if (!found(result.total, count)) return aborted();
        Outcome o;
        o.tree = response_root("zelto_ctx_response", catalogue::response_code(result.kind));
        range_values(o.tree, result);
        uint32_t done = 0;
        for (const auto &hit : result.hits) {
            catalogue::Album album;
            if (!(s = db_.get_album(hit.album_id, album)).ok()) return failure(s);
            AlbumShape shape;
            shape.full = false;
            shape.disc_number = hit.disc_number;
            shape.toc = hit.toc;
            for (const auto &disc : album.discs)
                if (disc.number == hit.disc_number)
                    for (const auto &track : disc.tracks)
                        shape.matched.push_back(position_of(album, disc.number, track.number));
            o.tree.child("zelto_ctx_album!", album_node(album, shape));
            if (!building(++done, count)) return aborted();
        }
        if (!events_.send(kReady)) return aborted();
        return o;
    }

    // Album or track by tui / tag, or a disc by mui / media id; a revision
    // check answers "no new revision" when the caller's copy is current.
    Outcome identifier_lookup(bool tracks) {
        if (!events_.send(kSent)) return aborted();
        catalogue::IdentifierHit hit;
        catalogue::Status s;
        const std::string tui = text_of(lookup_, "zelto_lookup_data_tui");
        const std::string tag = text_of(lookup_, "zelto_lookup_data_tui_tag");
        if (!tui.empty())
            s = db_.lookup_tui(tui, tag, hit);
        else
            s = db_.lookup_media(text_of(lookup_, "zelto_lookup_data_mui"),
                                 text_of(lookup_, "zelto_lookup_data_media_id"), hit);
        const char *context = "zelto_ctx_response";
        if (s.code == catalogue::Code::not_found) {
            if (!found(0, 0) || !events_.send(kReady)) return aborted();
            Outcome o;
            o.tree = response_root(context, catalogue::response_code(catalogue::MatchKind::none));
            return o;
        }
        if (!s.ok()) return failure(s);
        if (has("zelto_lookup_data_rev") && !tui.empty()) {
            uint32_t revision = 0;
            if (!number_of(lookup_, "zelto_lookup_data_rev", 0, revision))
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
        catalogue::Album album;
        if (!(s = db_.get_album(hit.album_id, album)).ok()) return failure(s);
        AlbumShape shape;
        shape.disc_number = hit.disc_number;
        // The matched track: the one asked for by its own tui, else the
        // number the caller passed on.
        uint32_t matched = 0;
        if (hit.kind == catalogue::IdentifierHit::Kind::track)
            matched = position_of(album, hit.disc_number, hit.track_number);
        else if (!number_of(lookup_, "zelto_lookup_data_track_matched", 0, matched))
            matched = 0;
        if (matched && matched <= album.track_count()) shape.matched.push_back(matched);
        Outcome o;
        o.tree = response_root(context, catalogue::response_code(catalogue::MatchKind::single));
        if (!tracks) {
            o.tree.child("zelto_ctx_album!", album_node(album, shape));
        } else {
            // Track lookups: the matched track alone, or every track of the album.
            uint32_t position = 0;
            for (const auto &disc : album.discs)
                for (const auto &track : disc.tracks) {
                    ++position;
                    if (shape.matched.empty() || contains(shape.matched, position))
                        o.tree.child(contains(shape.matched, position) ? "zelto_ctx_track!matching"
                                                                       : "zelto_ctx_track!",
                                     track_node(album, track, position));
                }
        }
        if (!building(1, 1) || !events_.send(kReady)) return aborted();
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
        catalogue::Album album;
        catalogue::Status s = db_.get_album(album_id, album);
        if (!s.ok()) return s;
        AlbumShape shape;
        shape.full = false;
        shape.matched = matched;
        out = album_node(album, shape);
        return s;
    }

    Outcome album_search() {
        return paged_answer<catalogue::AlbumSearchResult>(
            "zelto_ctx_response", [&](auto &result) { return db_.search_albums(text_query(), range_, result); },
            [&](Node &root, const catalogue::AlbumHit &hit) {
                std::vector<uint32_t> matched;
                for (const auto &m : hit.matched_tracks) matched.push_back(m.position);
                Node a;
                catalogue::Status s = partial_album(hit.album_id, matched, a);
                if (s.ok()) root.child("zelto_ctx_album!", a);
                return s;
            });
    }

    Outcome track_search() {
        return paged_answer<catalogue::TrackSearchResult>(
            "zelto_ctx_response", [&](auto &result) { return db_.search_tracks(text_query(), range_, result); },
            [&](Node &root, const catalogue::TrackHit &hit) {
                Node t("zelto_ctx_track");
                t.value("zelto_val_tracknumber", hit.position)
                    .value("zelto_val_tui", hit.tui)
                    .value("zelto_val_tui_tag", hit.tag);
                if (hit.duration_ms) t.value("zelto_val_duration", hit.duration_ms);
                t.value("zelto_val_album_tui", hit.album_tui);
                t.title(hit.title);
                t.artist(hit.artist);
                root.child("zelto_ctx_track!", t);
                return catalogue::Status{};
            });
    }

    Outcome match_search() {
        return paged_answer<catalogue::MatchSearchResult>(
            "zelto_ctx_response_match",
            [&](auto &result) { return db_.search_matches(text_query(), range_, result); },
            [&](Node &root, const catalogue::MatchHit &hit) {
                if (hit.kind == catalogue::MatchHit::Kind::album) {
                    Node a;
                    catalogue::Status s = partial_album(hit.id, {}, a);
                    if (!s.ok()) return s;
                    a.value("_sdkmgr_val_text_match_album_score", hit.album_score)
                        .value("_sdkmgr_val_text_match_contrib_score", hit.contributor_score)
                        .value("_sdkmgr_val_text_match_track_score", hit.track_score);
                    root.child("zelto_ctx_response_match!", a);
                } else {
                    Node c("zelto_ctx_contributor");
                    c.name(hit.title);
                    c.value("_sdkmgr_val_text_match_contrib_score", hit.contributor_score)
                        .value("zelto_val_collab_result", hit.collaboration ? "1" : "0");
                    root.child("zelto_ctx_response_match!", c);
                }
                return catalogue::Status{};
            });
    }

    Outcome lyric_search(const catalogue::LyricQuery &query) {
        return paged_answer<catalogue::LyricSearchResult>(
            "zelto_ctx_response", [&](auto &result) { return db_.search_lyrics(query, range_, result); },
            [&](Node &root, const catalogue::LyricHit &hit) {
                catalogue::Lyric lyric;
                catalogue::Status s = db_.get_lyric(hit.lyric_id, lyric);
                if (!s.ok()) return s;
                Node l("zelto_ctx_lyric");
                l.title(lyric.title);
                l.artist(lyric.artist);
                l.value("zelto_val_lyric_text", lyric.text);
                if (!lyric.language.empty()) l.value("zelto_val_language", lyric.language);
                if (!lyric.album_tui.empty()) l.value("zelto_val_album_tui", lyric.album_tui);
                root.child("zelto_ctx_lyric!", l);
                return s;
            });
    }
};

// ---- Table slots ------------------------------------------------------------------------

uint32_t request_create(const zelto_lookup_interface *table, zelto_lookup_callback callback, void *callback_data,
                        zelto_lookup_request *out_request) {
    zelto_catalogue *c = owner_of(table);
    if (!c || !out_request) return ZELTO_CATALOGUE_BAD_ARG;
    auto *request = new (std::nothrow) zelto_lookup_request_s;
    if (!request) return ZELTO_CATALOGUE_NO_MEMORY;
    request->table = reinterpret_cast<const ProviderTable *>(table);
    request->callback = callback;
    request->callback_data = callback_data;
    {
        std::lock_guard<std::mutex> guard(g_registry_mutex);
        try {
            requests().insert(request);
        } catch (const std::bad_alloc &) {
            delete request;
            return ZELTO_CATALOGUE_NO_MEMORY;
        }
    }
    {
        std::lock_guard<std::mutex> guard(c->mutex);
        ++c->live_requests;
    }
    *out_request = request;
    return 0;
}

// The open catalogue behind a live request, or null.
zelto_catalogue *catalogue_of(zelto_lookup_request_s *request) {
    return request ? owner_of(&request->table->table) : nullptr;
}

Lookup *lookup_of(zelto_lookup_request_s *request, const char *id) {
    for (auto &l : request->lookups)
        if (l.id == id) return &l;
    return nullptr;
}

uint32_t request_add(zelto_lookup_request handle, const char *lookup_type, const char *request_id, const char *group,
                     uint32_t group_flag) {
    zelto_lookup_request_s *request = live_request(handle);
    if (!catalogue_of(request) || !lookup_type || !request_id || !*request_id) return ZELTO_CATALOGUE_BAD_ARG;
    try {
        if (Lookup *existing = lookup_of(request, request_id)) {
            existing->type = lookup_type;  // a second add under one identifier redeclares it
            return 0;
        }
        Lookup l;
        l.type = lookup_type;
        l.id = request_id;
        request->lookups.push_back(std::move(l));
    } catch (const std::bad_alloc &) {
        return ZELTO_CATALOGUE_NO_MEMORY;
    }
    return 0;
}

uint32_t set_entry(zelto_lookup_request handle, const char *request_id, const char *key, const char *value,
                   bool option) {
    zelto_lookup_request_s *request = live_request(handle);
    if (!catalogue_of(request) || !request_id || !key) return ZELTO_CATALOGUE_BAD_ARG;
    Lookup *l = lookup_of(request, request_id);
    if (!l) return ZELTO_CATALOGUE_BAD_ARG;
    auto &m = option ? l->options : l->data;
    try {
        if (value)
            m[key] = value;  // always copied: the caller may reuse its buffer
        else
            m.erase(key);
    } catch (const std::bad_alloc &) {
        return ZELTO_CATALOGUE_NO_MEMORY;
    }
    return 0;
}

uint32_t request_set_data(zelto_lookup_request handle, const char *request_id, const char *key, const char *value,
                          uint32_t copy_flag) {
    return set_entry(handle, request_id, key, value, false);
}

uint32_t request_set_option(zelto_lookup_request handle, const char *request_id, const char *key, const char *value) {
    return set_entry(handle, request_id, key, value, true);
}

uint32_t request_execute(zelto_lookup_request handle, void *user) {
    zelto_lookup_request_s *request = live_request(handle);
    zelto_catalogue *c = catalogue_of(request);
    if (!c) return ZELTO_CATALOGUE_BAD_ARG;
    request->user = user;
    for (auto &l : request->lookups) {
        zelto_manager_tree_release(l.result);
        l.result = nullptr;
    }
    if (request->lookups.empty()) return fail(c, ZELTO_CATALOGUE_INVALID_DATA, "no lookup declared");
    Events events(*request);
    if (!events.send(kStarted)) return fail(c, ZELTO_CATALOGUE_ABORTED, "lookup aborted by the callback");
    for (auto &l : request->lookups) {
        Outcome outcome = Executor(*c->db, l, events).run();
        if (outcome.status != 0) {
            // Report the failure through the callback, then return it.
            if (outcome.status != ZELTO_CATALOGUE_ABORTED)
                events.send(kError, outcome.status, reinterpret_cast<uintptr_t>(outcome.message.c_str()));
            for (auto &done : request->lookups) {
                zelto_manager_tree_release(done.result);
                done.result = nullptr;
            }
            return fail(c, outcome.status, outcome.message);
        }
        l.result = outcome.tree.release();
    }
    if (!events.send(kDone)) {
        for (auto &l : request->lookups) {
            zelto_manager_tree_release(l.result);
            l.result = nullptr;
        }
        return fail(c, ZELTO_CATALOGUE_ABORTED, "lookup aborted by the callback");
    }
    return 0;
}

uint32_t request_get_result(zelto_lookup_request handle, const char *request_id, zelto_rvo_handle *out_result) {
    zelto_lookup_request_s *request = live_request(handle);
    if (!catalogue_of(request) || !request_id || !out_result) return ZELTO_CATALOGUE_BAD_ARG;
    Lookup *l = lookup_of(request, request_id);
    if (!l || !l->result) return ZELTO_CATALOGUE_NO_RESULT;
    return zelto_manager_tree_to_rvo(l->result, request->user, "zelto_locale_music", 0, out_result);
}

uint32_t request_release(zelto_lookup_request handle) {
    if (!handle) return 0;
    zelto_lookup_request_s *request = nullptr;
    {
        std::lock_guard<std::mutex> guard(g_registry_mutex);
        if (!requests().count(handle)) return ZELTO_CATALOGUE_BAD_ARG;
        requests().erase(handle);
        request = handle;
    }
    if (zelto_catalogue *c = catalogue_of(request)) {
        std::lock_guard<std::mutex> guard(c->mutex);
        --c->live_requests;
    }
    for (auto &l : request->lookups) zelto_manager_tree_release(l.result);
    delete request;
    return 0;
}

// ---- Import helpers ---------------------------------------------------------------------

bool ends_with(std::string_view s, std::string_view tail) {
    return s.size() >= tail.size() && s.substr(s.size() - tail.size()) == tail;
}

std::string base_name(const std::string &path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

uint64_t count_rows(sqlite3 *db, const char *table) {
    const std::string sql = std::string("SELECT count(*) FROM ") + table;
    sqlite3_stmt *stmt = nullptr;
    uint64_t n = 0;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW)
        n = static_cast<uint64_t>(sqlite3_column_int64(stmt, 0));
    sqlite3_finalize(stmt);
    return n;
}

}  // namespace

// ---- Exported API -----------------------------------------------------------------------

HOST_EXPORT uint32_t zelto_catalogue_open(const char *path, uint32_t flags, zelto_catalogue **out_catalogue) {
    if (!path || !*path || !out_catalogue) return ZELTO_CATALOGUE_BAD_ARG;
    const std::string name(path);
    if (!(flags & ZELTO_CATALOGUE_OPEN_CREATE) && name != ":memory:") {
        struct stat st;
        if (stat(path, &st) != 0) return ZELTO_CATALOGUE_NO_FILE;
    }
    try {
        auto c = std::make_unique<zelto_catalogue>();
        c->path = name;
        catalogue::Status s = catalogue::Catalogue::open(name, c->db);
        if (!s.ok()) return status_of(s);
        // Reading the count proves that the file is a catalogue.
        uint64_t albums = 0;
        if (!(s = c->db->album_count(albums)).ok()) return status_of(s);
        c->provider = new ProviderTable{};
        zelto_lookup_interface &t = c->provider->table;
        t.lookup_release = zelto_manager_table_release;
        t.lookup_request_create = request_create;
        t.lookup_request_add = request_add;
        t.lookup_request_set_data = request_set_data;
        t.lookup_request_set_option = request_set_option;
        t.lookup_request_execute = request_execute;
        t.lookup_request_get_result = request_get_result;
        t.lookup_request_release = request_release;
        c->provider->owner = c.get();
        std::lock_guard<std::mutex> guard(g_registry_mutex);
        catalogues().insert(c.get());
        *out_catalogue = c.release();
        return 0;
    } catch (const std::bad_alloc &) {
        return ZELTO_CATALOGUE_NO_MEMORY;
    }
}

HOST_EXPORT uint32_t zelto_catalogue_close(zelto_catalogue *catalogue) {
    if (!catalogue) return 0;
    {
        std::lock_guard<std::mutex> guard(g_registry_mutex);
        if (!catalogues().erase(catalogue)) return ZELTO_CATALOGUE_BAD_ARG;
    }
    for (uint32_t mode = 1; mode <= 2; ++mode)
        if (zelto_manager_lookup_get_provider(mode) == &catalogue->provider->table)
            zelto_manager_lookup_set_provider(mode, nullptr);
    // The table stays allocated: whoever still holds it may call its slots,
    // which now refuse, and give its reference back.
    catalogue->provider->owner = nullptr;
    {
        std::lock_guard<std::mutex> guard(g_registry_mutex);
        try {
            retired_tables().push_back(catalogue->provider);
        } catch (const std::bad_alloc &) {
            // Left unreferenced: still callable, only unlisted.
        }
    }
    delete catalogue;
    return 0;
}

HOST_EXPORT const char *zelto_catalogue_last_message(zelto_catalogue *catalogue) {
    if (!live(catalogue)) return "";
    std::lock_guard<std::mutex> guard(catalogue->mutex);
    return catalogue->message.c_str();
}

HOST_EXPORT uint32_t zelto_catalogue_import(zelto_catalogue *catalogue, const char *path,
                                           zelto_catalogue_progress_callback callback, void *callback_data,
                                           zelto_catalogue_import_report *out_report) {
    if (!live(catalogue) || !path || !*path) return ZELTO_CATALOGUE_BAD_ARG;
    struct stat st;
    if (stat(path, &st) != 0) return fail(catalogue, ZELTO_CATALOGUE_IO_ERROR, std::string("cannot read ") + path);
    try {
        catalogue::ImportReport report;
        catalogue::ProgressCallback progress;
        if (callback)
            progress = [&](const catalogue::ImportProgress &p) {
                uint8_t stop = 0;
                callback(callback_data, p.bytes_done, p.bytes_total, p.albums_imported, &stop);
                return stop != 1;
            };
        const std::string file(path);
        const std::string base = base_name(file);
        catalogue::Catalogue &db = *catalogue->db;
        catalogue::Status s;
        if (S_ISDIR(st.st_mode))
            s = db.import_directory(file, report, progress);
        else if (base.rfind("lyrics", 0) == 0 && ends_with(base, ".jsonl"))
            s = db.import_lyrics_file(file, report);
        else if (ends_with(base, ".json") || ends_with(base, ".jsonl"))
            s = db.import_musicbrainz_file(file, report, progress);
        else
            s = db.import_xmcd_file(file, report);
        if (!S_ISDIR(st.st_mode) && callback && s.ok()) {
            // Single-file importers without progress of their own end at 100%.
            uint8_t stop = 0;
            callback(callback_data, static_cast<uint64_t>(st.st_size), static_cast<uint64_t>(st.st_size),
                     report.imported, &stop);
        }
        {
            std::lock_guard<std::mutex> guard(catalogue->mutex);
            catalogue->import_messages = report.messages;
        }
        if (out_report) {
            out_report->records = report.records;
            out_report->imported = report.imported;
            out_report->replaced = report.replaced;
            out_report->skipped = report.skipped;
            out_report->stopped = report.stopped ? 1 : 0;
        }
        if (!s.ok()) return fail(catalogue, s);
        return 0;
    } catch (const std::bad_alloc &) {
        return ZELTO_CATALOGUE_NO_MEMORY;
    }
}

HOST_EXPORT const char *zelto_catalogue_import_message(zelto_catalogue *catalogue, uint32_t index) {
    if (!live(catalogue)) return nullptr;
    std::lock_guard<std::mutex> guard(catalogue->mutex);
    return index < catalogue->import_messages.size() ? catalogue->import_messages[index].c_str() : nullptr;
}

HOST_EXPORT uint32_t zelto_catalogue_find_disc_id(zelto_catalogue *catalogue, const char *disc_id,
                                                 uint32_t *out_count) {
    if (!live(catalogue) || !disc_id || !*disc_id || !out_count) return ZELTO_CATALOGUE_BAD_ARG;
    try {
        std::vector<std::string> tocs;
        catalogue::Status s = catalogue->db->tocs_by_disc_id(disc_id, tocs);
        if (!s.ok()) return fail(catalogue, s);
        std::lock_guard<std::mutex> guard(catalogue->mutex);
        catalogue->disc_id_tocs = std::move(tocs);
        *out_count = static_cast<uint32_t>(catalogue->disc_id_tocs.size());
        return 0;
    } catch (const std::bad_alloc &) {
        return fail(catalogue, ZELTO_CATALOGUE_NO_MEMORY, "out of memory");
    }
}

HOST_EXPORT const char *zelto_catalogue_disc_id_toc(zelto_catalogue *catalogue, uint32_t index) {
    if (!live(catalogue)) return nullptr;
    std::lock_guard<std::mutex> guard(catalogue->mutex);
    return index < catalogue->disc_id_tocs.size() ? catalogue->disc_id_tocs[index].c_str() : nullptr;
}

HOST_EXPORT uint32_t zelto_catalogue_get_info(zelto_catalogue *catalogue, zelto_catalogue_info *out_info) {
    if (!live(catalogue) || !out_info) return ZELTO_CATALOGUE_BAD_ARG;
    zelto_catalogue_info info{};
    catalogue::Status s = catalogue->db->album_count(info.albums);
    if (!s.ok()) return fail(catalogue, s);
    if (catalogue->path != ":memory:") {
        // The other counts come from a second, read-only connection.
        sqlite3 *db = nullptr;
        if (sqlite3_open_v2(catalogue->path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
            info.discs = count_rows(db, "discs");
            info.tocs = count_rows(db, "tocs");
            info.tracks = count_rows(db, "tracks");
            info.artists = count_rows(db, "artists");
            info.lyrics = count_rows(db, "lyrics");
        }
        sqlite3_close(db);
    }
    *out_info = info;
    return 0;
}

HOST_EXPORT const zelto_lookup_interface *zelto_catalogue_lookup_table(zelto_catalogue *catalogue) {
    return live(catalogue) ? &catalogue->provider->table : nullptr;
}

HOST_EXPORT uint32_t zelto_catalogue_install(zelto_catalogue *catalogue, uint32_t mode) {
    if (!live(catalogue) || mode > 2) return ZELTO_CATALOGUE_BAD_ARG;
    for (uint32_t m = 1; m <= 2; ++m) {
        if (mode != 0 && mode != m) continue;
        if (uint32_t status = zelto_manager_lookup_set_provider(m, &catalogue->provider->table)) return status;
    }
    return 0;
}

HOST_EXPORT uint32_t zelto_catalogue_live_requests(zelto_catalogue *catalogue) {
    if (!live(catalogue)) return 0;
    std::lock_guard<std::mutex> guard(catalogue->mutex);
    return catalogue->live_requests;
}
