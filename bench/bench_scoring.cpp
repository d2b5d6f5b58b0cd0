// Scoring a text-search response of 100 albums, and the two costs it is
// made of: fuzzy comparison and normalisation of the compared texts.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "cantrix/cantrix_responses.h"
#include "ombr/ombr_datatypes.h"
#include "ombr/ombr_string.h"
#include "ombr/ombr_string_fuzzy.h"
#include "zelto/zelto_host_services.h"
#include "zelto/zelto_manager.h"

namespace {

const char *const kWords[] = {"Night", "Harbour", "Lights", "Train", "Blue", "River", "Quiet", "Hours", "Golden",
                              "Echo",  "Paper",   "Moon",   "Wild",  "Dance", "Silver", "Road", "Winter", "Song"};

std::string phrase(unsigned seed, int words) {
    std::string out;
    for (int i = 0; i < words; ++i) {
        if (i) out += ' ';
        out += kWords[(seed * 7 + i * 13) % (sizeof kWords / sizeof kWords[0])];
    }
    return out;
}

zelto_manager_tree *node(const char *context, const char *key = nullptr, const std::string &value = "") {
    zelto_manager_tree *n = nullptr;
    zelto_manager_tree_create(context, &n);
    if (key) zelto_manager_tree_add_value(n, key, value.c_str());
    return n;
}

void adopt(zelto_manager_tree *parent, const char *key, zelto_manager_tree *child) {
    zelto_manager_tree_add_child(parent, key, child);
    zelto_manager_tree_release(child);
}

void displays(zelto_manager_tree *n, const std::string &title, const std::string &artist) {
    adopt(n, "zelto_ctx_title!off", node("zelto_ctx_title", "zelto_val_display", title));
    zelto_manager_tree *who = node("zelto_ctx_artist");
    adopt(who, "zelto_ctx_name!off", node("zelto_ctx_name", "zelto_val_display", artist));
    adopt(n, "zelto_ctx_artist!", who);
}

// The module up, a query with three text fields, and a provider answer of
// 100 albums each with a matching track.
struct Fixture {
    zelto_user *user = nullptr;
    zelto_cantrix_query_handle query = nullptr;
    zelto_rvo_handle answer = nullptr;
    std::vector<std::pair<std::string, std::string>> pairs;  // (input, candidate) compared

    Fixture() {
        zelto_cantrix_initialize(zelto_manager_get_table());
        zelto_manager_user_create("bench", &user);
        zelto_cantrix_query_create(user, nullptr, nullptr, &query);
        const std::string artist = "The Quiet Hours", album = "Harbour Lights", title = "Night Train";
        zelto_cantrix_query_set_text(query, "zelto_cantrix_field_artist", artist.c_str());
        zelto_cantrix_query_set_text(query, "zelto_cantrix_field_album", album.c_str());
        zelto_cantrix_query_set_text(query, "zelto_cantrix_field_title", title.c_str());
        zelto_manager_tree *root = node("zelto_ctx_response", "_sdkmgr_val_response_code", "zelto_result_fuzzy_matches");
        for (unsigned i = 0; i < 100; ++i) {
            std::string a_title = phrase(i, 2), a_artist = "The " + phrase(i + 3, 2), t_title = phrase(i + 5, 2);
            zelto_manager_tree *a = node("zelto_ctx_album", "zelto_val_albumtrackcnt", "10");
            displays(a, a_title, a_artist);
            zelto_manager_tree *t = node("zelto_ctx_track", "zelto_val_tracknumber", "1");
            displays(t, t_title, a_artist);
            adopt(a, "zelto_ctx_track!matching", t);
            adopt(root, "zelto_ctx_album!", a);
            pairs.emplace_back(artist, a_artist);
            pairs.emplace_back(artist, a_artist);  // the matching track's artist
            pairs.emplace_back(album, a_title);
            pairs.emplace_back(title, t_title);
        }
        zelto_manager_tree_to_rvo(root, user, "zelto_locale_music", 0, &answer);
        zelto_manager_tree_release(root);
    }
    ~Fixture() {
        zelto_manager_rvo_release(answer);
        zelto_cantrix_query_release(query);
        zelto_manager_user_release(user);
        zelto_cantrix_shutdown();
    }
};

Fixture &fixture() {
    static Fixture f;
    return f;
}

void BM_ScoreResponseOf100Albums(benchmark::State &state) {
    Fixture &f = fixture();
    for (auto _ : state) {
        cantrix_response *response = nullptr;
        _cantrix_process_search_response(f.query, f.answer, nullptr, &response);
        benchmark::DoNotOptimize(response);
        _cantrix_rvo_response_release(response);
    }
    state.SetItemsProcessed(state.iterations() * 100);
}
BENCHMARK(BM_ScoreResponseOf100Albums);

// The fuzzy comparisons of one response, raw texts only.
void BM_FuzzyPartOf100Albums(benchmark::State &state) {
    Fixture &f = fixture();
    for (auto _ : state)
        for (auto &p : f.pairs)
            benchmark::DoNotOptimize(ombr_string_fuzzycmp_ex(p.first.c_str(), p.second.c_str(), 1, nullptr, nullptr));
    state.SetItemsProcessed(state.iterations() * 100);
}
BENCHMARK(BM_FuzzyPartOf100Albums);

// The normalisation of both texts of every pair of one response.
void BM_NormalisationPartOf100Albums(benchmark::State &state) {
    Fixture &f = fixture();
    for (auto _ : state)
        for (auto &p : f.pairs) {
            char *a = nullptr, *b = nullptr;
            _cantrix_normalize_string(p.first.c_str(), &a);
            _cantrix_normalize_string(p.second.c_str(), &b);
            ombr_memory_free(a);
            ombr_memory_free(b);
        }
    state.SetItemsProcessed(state.iterations() * 100);
}
BENCHMARK(BM_NormalisationPartOf100Albums);

}  // namespace

BENCHMARK_MAIN();
