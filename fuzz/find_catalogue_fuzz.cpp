// Fuzzes the find operations against the local catalogue as lookup
// provider: TOC texts near and far from the catalogue's discs, text fields
// of any bytes, every find operation, single-result mode and result ranges.
// Properties:
//  - a find either succeeds with a response or fails with none;
//  - the whole response can be walked (see tests/support/response_walk.h);
//  - the same query asked twice reads the same;
//  - afterwards no request of the catalogue is live and no result object
//    or heap block of the module is left.
#include <unistd.h>

#include <cstdio>
#include <iterator>
#include <string>

#include "fuzz/fuzz_support.h"
#include "tests/support/release_json.h"
#include "tests/support/response_walk.h"
#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_catalogue.h"

namespace {

using fuzz::require;

constexpr const char *kFields[] = {"zelto_cantrix_field_artist", "zelto_cantrix_field_album",
                                   "zelto_cantrix_field_title",  "zelto_cantrix_field_fragment",
                                   "zelto_cantrix_field_lyric",  "zelto_cantrix_field_composer",
                                   "zelto_cantrix_field_album_artist", "zelto_cantrix_field_track_artist"};
constexpr const char *kWords[] = {"Lanterns", "Glass", "Mira", "Solenne", "Northern", "Lights", "Harbour",
                                  "Straße", "Jürgen", "Aurora", "Thaw", "Paper", "the", "of"};
const uint32_t kTocs[][4] = {{150, 14672, 27367, 41225}, {150, 22160, 40560, 57220}, {150, 20000, 40000, 60000}};

struct Session {
    zelto_catalogue *catalogue = nullptr;
    zelto_user *user = nullptr;
    Session() {
        using namespace release_json;
        char path[] = "/tmp/cantrix-fuzz-releases-XXXXXX";
        const int fd = mkstemp(path);
        require(fd >= 0, "temporary file");
        const std::string text =
            release("alb-lanterns", "Lanterns of Glass", "Mira Solenne", "2004-05-01",
                    {{{150, 14672, 27367}, 41225,
                      {{"Quiet Harbour", 193626}, {"Paper Comets", 169266}, {"The Long Thaw", 184773}}}}) +
            "\n" +
            release("alb-strasse", "Straße der Lieder", "Jürgen Hößl", "2011-03-01",
                    {{{150, 22160, 40560}, 57220,
                      {{"Abendglöckchen", 293466}, {"Über den Wiesen", 245000}, {"Mondnacht", 222000}}}}) +
            "\n" +
            release("alb-northern", "Northern Lights", "The Lanterns", "1999-01-01",
                    {{{150, 20000, 40000}, 60000, {{"Aurora", 264000}, {"Polar Night", 266000}, {"Ice Field", 266000}}},
                     {{150, 30000}, 61000, {{"Midnight Sun", 398000}, {"Thaw", 412000}}}}) +
            "\n";
        require(write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()), "write releases");
        close(fd);
        const std::string json = std::string(path) + ".jsonl";
        std::rename(path, json.c_str());
        require(zelto_catalogue_open(":memory:", ZELTO_CATALOGUE_OPEN_CREATE, &catalogue) == 0, "catalogue");
        require(zelto_catalogue_import(catalogue, json.c_str(), nullptr, nullptr, nullptr) == 0, "import");
        std::remove(json.c_str());
        require(zelto_catalogue_install(catalogue, 0) == 0, "install");
        require(zelto_cantrix_initialize(zelto_manager_get_table()) == 0, "initialise");
        require(zelto_manager_user_create("fuzz", &user) == 0, "user");
        require(zelto_manager_user_option_set(user, "zelto_useroption_lookup_mode", "zelto_lookupmode_local") == 0,
                "mode");
    }
    ~Session() {
        zelto_manager_user_release(user);
        zelto_cantrix_shutdown();
        zelto_catalogue_close(catalogue);
    }
};

struct Query {
    uint8_t kind = 0, find = 0, single = 0;
    std::string toc, range_start, range_size;
    std::vector<std::pair<const char *, std::string>> fields;
};

response_walk::Walk run(Session &s, const Query &q, uint32_t *status) {
    zelto_cantrix_query_handle query = nullptr;
    require(zelto_cantrix_query_create(s.user, nullptr, nullptr, &query) == 0, "query");
    if (q.single) zelto_cantrix_query_option_set(query, "zelto_cantrix_single_result", "1");
    if (!q.range_start.empty()) zelto_cantrix_query_option_set(query, "zelto_cantrix_result_range_start", q.range_start.c_str());
    if (!q.range_size.empty()) zelto_cantrix_query_option_set(query, "zelto_cantrix_result_range_size", q.range_size.c_str());
    if (q.kind % 2 == 0) zelto_cantrix_query_set_toc_string(query, q.toc.c_str());
    for (const auto &f : q.fields) zelto_cantrix_query_set_text(query, f.first, f.second.c_str());
    zelto_rvo_handle response = nullptr;
    switch (q.find % 4) {
        case 0: *status = zelto_cantrix_query_find_albums(query, &response); break;
        case 1: *status = zelto_cantrix_query_find_tracks(query, &response); break;
        case 2: *status = zelto_cantrix_query_find_matches(query, &response); break;
        default: *status = zelto_cantrix_query_find_lyrics(query, &response); break;
    }
    response_walk::Walk walk;
    if (*status == 0) {
        require(response != nullptr, "success hands out a response");
        walk = response_walk::walk(response);
        zelto_manager_rvo_release(response);
    } else {
        require(response == nullptr, "no response on failure");
        require(response_walk::failed(*status) || *status == ZELTO_CANTRIX_NOT_FOUND, "failure or not found",
                response_walk::hex(*status));
    }
    require(zelto_cantrix_query_release(query) == 0, "release");
    require(zelto_catalogue_live_requests(s.catalogue) == 0, "requests released");
    return walk;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static Session session;
    if (size > 2048) return 0;
    fuzz::Input in(data, size);
    const fuzz::BlockCount blocks;
    Query q;
    q.kind = in.byte();
    q.find = in.byte();
    q.single = in.byte() & 1;
    const uint8_t range = in.byte();
    if (range & 1) q.range_start = std::to_string(in.byte());
    if (range & 2) q.range_size = std::to_string(in.byte());
    // A TOC near one of the catalogue's: shifted, perturbed, cut or grown.
    const uint32_t *base = kTocs[in.byte() % 3];
    const int32_t shift = in.value<int16_t>() % 6000;
    const int numbers = 3 + in.byte() % 3;
    for (int i = 0; i < numbers; ++i) {
        int64_t v = (i < 4 ? int64_t{base[i]} : int64_t{base[3]} + 15000 * i) + shift;
        if (in.byte() % 8 == 0) v += in.value<int16_t>();
        q.toc += (i ? " " : "") + std::to_string(v < 0 ? 0 : v);
    }
    for (uint8_t n = in.byte() % 4; n > 0; --n) {
        const char *field = kFields[in.byte() % std::size(kFields)];
        std::string text;
        for (uint8_t w = 1 + in.byte() % 3; w > 0; --w) {
            const uint8_t pick = in.byte();
            text += (text.empty() ? "" : " ") + (pick < 200 ? std::string(kWords[pick % std::size(kWords)]) : in.text(12));
        }
        q.fields.emplace_back(field, text);
    }

    uint32_t status = 0, again = 0;
    const response_walk::Walk walk = run(session, q, &status);
    require(walk.problem.empty(), "response walk", walk.problem + "\n" + walk.text);
    if (status == 0 && q.single) require(walk.rows <= 1, "one row in single-result mode", walk.text);
    const response_walk::Walk second = run(session, q, &again);
    require(again == status && second.text == walk.text, "the same query reads the same");
    require(zelto_manager_rvo_live_count() == 0, "result objects released");
    blocks.check("a find gives back every block");
    return 0;
}
