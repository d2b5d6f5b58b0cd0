// Fuzzes the find operations against what a lookup provider may answer.
// The input builds a query (a TOC, text fields of any bytes, or an object
// of an earlier answer), picks a find operation and the single-result
// option, and builds the scripted provider's answers: response code, range
// values, and children of any of the response keys, each with titles,
// artists, display children, tracks, matched tracks, provider scores and
// counts of any text. It may also fail a provider slot or one allocation.
// Properties:
//  - a find either succeeds with a response or fails with none;
//  - the whole response can be walked: every read succeeds or says "no
//    such key", the result count is the rows served, row scores are decimal
//    and at most 100 (match responses: sorted best first), a single-result
//    find gives at most one row;
//  - the same find on the same answers reads the same, twice;
//  - after the release nothing is left: result objects, provider trees,
//    requests and heap blocks.
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "fuzz/script_session.h"
#include "tests/support/response_walk.h"
#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_script_provider.h"

namespace {

using fuzz::require;

using Session = fuzz::ScriptSession;

constexpr const char *kResponseCodes[] = {"zelto_result_no_matches", "zelto_result_single_match",
                                          "zelto_result_fuzzy_matches", "zelto_result_multiexact_matches",
                                          "zelto_result_no_new_rev", "", "unknown"};
constexpr const char *kRootContexts[] = {"zelto_ctx_response", "zelto_ctx_response_match", "zelto_ctx_response_album",
                                         "zelto_ctx_response_lyric"};
constexpr const char *kChildKeys[] = {"zelto_ctx_album!", "zelto_ctx_track!", "zelto_ctx_lyric!",
                                      "zelto_ctx_response_match!", "zelto_ctx_contributor!"};
constexpr const char *kItemContexts[] = {"zelto_ctx_album", "zelto_ctx_track", "zelto_ctx_lyric",
                                         "zelto_ctx_contributor", "ZELTO_CTX_ALBUM", "zelto_ctx_other"};
constexpr const char *kNumberKeys[] = {"zelto_val_albumtrackcnt", "_sdkmgr_val_text_match_album_score",
                                       "_sdkmgr_val_text_match_contrib_score", "_sdkmgr_val_text_match_track_score",
                                       "zelto_val_collab_result", "zelto_val_track_matched", "zelto_val_rangestart",
                                       "zelto_val_rangeend", "zelto_val_rangecount", "zelto_val_tui"};
constexpr const char *kFields[] = {"zelto_cantrix_field_artist", "zelto_cantrix_field_album",
                                   "zelto_cantrix_field_title", "zelto_cantrix_field_fragment",
                                   "zelto_cantrix_field_lyric", "zelto_cantrix_field_composer"};

template <size_t N>
const char *pick(const char *const (&list)[N], uint8_t b) {
    return list[b % N];
}

zelto_manager_tree *node(const char *context) {
    zelto_manager_tree *tree = nullptr;
    require(zelto_manager_tree_create(context, &tree) == 0, "tree");
    return tree;
}
void value(zelto_manager_tree *tree, const char *key, const std::string &text) {
    zelto_manager_tree_add_value(tree, key, text.c_str());
}
void adopt(zelto_manager_tree *parent, const char *key, zelto_manager_tree *child) {
    zelto_manager_tree_add_child(parent, key, child);
    zelto_manager_tree_release(child);
}

// A number as text, sometimes not a number at all.
std::string number_text(fuzz::Input &in) {
    const uint8_t b = in.byte();
    if (b < 200) return std::to_string(b % 120);
    if (b < 240) return std::to_string(in.value<uint32_t>());
    return in.text(6);
}

void add_displays(fuzz::Input &in, zelto_manager_tree *item, uint8_t shape) {
    if (shape & 1) {
        zelto_manager_tree *title = node("zelto_ctx_title");
        value(title, "zelto_val_display", in.text(40));
        adopt(item, "zelto_ctx_title!off", title);
    }
    if (shape & 2) {
        zelto_manager_tree *artist = node("zelto_ctx_artist");
        zelto_manager_tree *name = node("zelto_ctx_name");
        value(name, "zelto_val_display", in.text(40));
        adopt(artist, "zelto_ctx_name!off", name);
        adopt(item, "zelto_ctx_artist!", artist);
    }
}

zelto_manager_tree *item(fuzz::Input &in, int depth) {
    const uint8_t shape = in.byte();
    zelto_manager_tree *tree = node(pick(kItemContexts, in.byte()));
    value(tree, "zelto_val_title", in.text(30));
    add_displays(in, tree, shape);
    for (uint8_t n = in.byte() % 4; n > 0; --n) value(tree, pick(kNumberKeys, in.byte()), number_text(in));
    if (depth == 0) {
        for (uint8_t n = in.byte() % 4; n > 0; --n) {
            zelto_manager_tree *track = item(in, depth + 1);
            value(track, "zelto_val_tracknumber", number_text(in));
            adopt(tree, shape & 4 ? "zelto_ctx_track!matching" : "zelto_ctx_track!", track);
        }
    }
    return tree;
}

zelto_manager_tree *answer_tree(fuzz::Input &in) {
    zelto_manager_tree *root = node(pick(kRootContexts, in.byte()));
    const uint8_t code = in.byte();
    value(root, "_sdkmgr_val_response_code", code < 250 ? pick(kResponseCodes, code) : in.text(12));
    for (uint8_t n = in.byte() % 3; n > 0; --n) value(root, pick(kNumberKeys, in.byte() | 6), number_text(in));
    const char *key = pick(kChildKeys, in.byte());
    for (uint8_t n = in.byte() % 6; n > 0 && !in.empty(); --n) adopt(root, key, item(in, 0));
    return root;
}

struct Case {
    uint8_t input_kind = 0, find = 0, single = 0, provider_fail = 0, alloc_fail = 0;
    std::vector<std::pair<const char *, std::string>> fields;
    std::vector<zelto_manager_tree *> answers;
};

// One find on a new query; returns the walk, or the status in `status`.
response_walk::Walk run(Session &s, const Case &c, zelto_manager_tree *object_tree, uint32_t *status,
                        bool inject) {
    zelto_script_reset(s.script);
    for (zelto_manager_tree *tree : c.answers) require(zelto_script_answer(s.script, tree, nullptr) == 0, "answer");
    if (inject && c.provider_fail) zelto_script_fail(s.script, 2 + c.provider_fail % 8, 0x90420077u, 1);

    zelto_cantrix_query_handle query = nullptr;
    require(zelto_cantrix_query_create(s.user, nullptr, nullptr, &query) == 0, "query");
    zelto_cantrix_query_option_set(query, "zelto_cantrix_single_result", c.single ? "1" : "0");
    switch (c.input_kind % 3) {
        case 0: zelto_cantrix_query_set_toc_string(query, "150 14672 27367 41225"); break;
        case 1:
            for (const auto &f : c.fields) zelto_cantrix_query_set_text(query, f.first, f.second.c_str());
            break;
        default: {
            zelto_rvo_handle object = nullptr;
            require(zelto_manager_tree_to_rvo(object_tree, s.user, "zelto_locale_music", 0xFFFFFFFFu, &object) == 0,
                    "object");
            zelto_cantrix_query_set_rvo(query, object);
            zelto_manager_rvo_release(object);
            break;
        }
    }
    zelto_rvo_handle response = nullptr;
    const uint64_t fail_at = inject ? c.alloc_fail : 0;
    fuzz::with_failing_allocation(fail_at, [&] {
        switch (c.find % 4) {
            case 0: *status = zelto_cantrix_query_find_albums(query, &response); break;
            case 1: *status = zelto_cantrix_query_find_tracks(query, &response); break;
            case 2: *status = zelto_cantrix_query_find_matches(query, &response); break;
            default: *status = zelto_cantrix_query_find_lyrics(query, &response); break;
        }
    });
    response_walk::Walk walk;
    if (*status == 0) {
        require(response != nullptr, "success hands out a response");
        walk = response_walk::walk(response);
        zelto_manager_rvo_release(response);
    } else {
        require(response == nullptr, "no response on failure", response_walk::hex(*status));
        require(response_walk::failed(*status) || *status == ZELTO_CANTRIX_NOT_FOUND, "failure or not found",
                response_walk::hex(*status));
    }
    require(zelto_cantrix_query_release(query) == 0, "release");
    require(zelto_script_live_requests(s.script) == 0, "requests released");
    return walk;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static Session session;
    if (size > 4096) return 0;
    fuzz::Input in(data, size);
    const fuzz::BlockCount blocks;
    Case c;
    c.input_kind = in.byte();
    c.find = in.byte();
    c.single = in.byte() & 1;
    const uint8_t faults = in.byte();
    c.provider_fail = faults & 0x0F ? (faults & 0x07) : 0;
    c.alloc_fail = faults >> 4;
    for (uint8_t n = 1 + in.byte() % 3; n > 0; --n) c.fields.emplace_back(pick(kFields, in.byte()), in.text(40));
    zelto_manager_tree *object_tree = item(in, 0);
    for (uint8_t n = 1 + in.byte() % 2; n > 0; --n) c.answers.push_back(answer_tree(in));

    uint32_t status = 0;
    const response_walk::Walk walk = run(session, c, object_tree, &status, false);
    require(walk.problem.empty(), "response walk", walk.problem + "\n" + walk.text);
    if (status == 0 && c.single) require(walk.rows <= 1, "one row in single-result mode", walk.text);
    uint32_t again = 0;
    const response_walk::Walk second = run(session, c, object_tree, &again, false);
    require(again == status && second.text == walk.text, "the same answers read the same", walk.text + second.text);

    if (c.provider_fail || c.alloc_fail) {
        uint32_t injected = 0;
        const response_walk::Walk faulty = run(session, c, object_tree, &injected, true);
        require(faulty.problem.empty(), "walk after an injected fault", faulty.problem);
    }

    for (zelto_manager_tree *tree : c.answers) zelto_manager_tree_release(tree);
    zelto_manager_tree_release(object_tree);
    zelto_script_reset(session.script);
    require(zelto_manager_rvo_live_count() == 0, "result objects released");
    require(zelto_manager_tree_live_count() == 0, "provider trees released");
    blocks.check("a find gives back every block");
    return 0;
}
