// Fuzzes the TOC input offset by offset, mixed with TOC texts and text
// fields, on a query of the reference host's scripted provider. Each pair
// of bytes is one step:
//   add an offset (near the last one, far above it, equal to it, or 0),
//   set a TOC text of a few rising numbers (at most 1000000, the most a
//   text may hold), or set a text field.
// Properties, against a model of the add rule (strictly rising, a first 0
// allowed, at most 100 offsets; a text field drops the TOC and the next add
// starts a new one):
//  - every add has the model's status, and a refused add changes nothing;
//  - a find afterwards sends the model's offsets as its TOC text, one blank
//    between numbers, cut after the last whole number that fits the
//    lookup's 1023 bytes; without a TOC it sends none;
//  - the query's release gives back every block.
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "fuzz/script_session.h"
#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_script_provider.h"

namespace {

using fuzz::require;

constexpr size_t kMaxOffsets = 100;
constexpr size_t kLookupText = 1023;

using Session = fuzz::ScriptSession;

std::string render(const std::vector<uint32_t> &offsets) {
    std::string out;
    for (uint32_t value : offsets) {
        const std::string next = (out.empty() ? "" : " ") + std::to_string(value);
        if (out.size() + next.size() > kLookupText) break;
        out += next;
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static Session session;
    if (size > 1024) return 0;
    fuzz::Input in(data, size);
    const fuzz::BlockCount blocks;
    zelto_cantrix_query_handle query = nullptr;
    require(zelto_cantrix_query_create(session.user, nullptr, nullptr, &query) == 0, "query");

    bool has_toc = false;
    std::vector<uint32_t> model;
    while (!in.empty()) {
        const uint8_t op = in.byte();
        const uint8_t arg = in.byte();
        const uint32_t last = model.empty() ? 0 : model.back();
        switch (op % 8) {
            case 0: case 1: case 2: case 3: case 4: {
                uint32_t offset = 0;
                switch (op >> 6) {
                    case 0: offset = last + 1 + arg * 97u; break;
                    case 1: offset = last + 1 + static_cast<uint32_t>(arg) * 40000000u; break;
                    case 2: offset = last - (arg % 2); break;
                    default: offset = arg < 16 ? 0 : 0xFFFFFFFFu - arg; break;
                }
                if (!has_toc) model.clear();
                const bool ok = model.size() < kMaxOffsets && (model.empty() || model.back() < offset);
                const uint32_t status = zelto_cantrix_query_add_toc_offset(query, offset);
                require(status == (ok ? 0u : ZELTO_CANTRIX_INVALID_TOC), "add status", std::to_string(offset));
                has_toc = true;
                if (ok) model.push_back(offset);
                break;
            }
            case 5: case 6: {
                std::vector<uint32_t> numbers;
                std::string text = arg & 1 ? "  " : "";
                for (uint32_t n = 0, v = 150; n < 2u + arg % 5; ++n, v += 1 + arg * 500u) {
                    numbers.push_back(v);
                    text += std::to_string(v) + (arg & 2 ? "   " : " ");
                }
                require(zelto_cantrix_query_set_toc_string(query, text.c_str()) == 0, "TOC text", text);
                has_toc = true;
                model = numbers;
                break;
            }
            default:
                require(zelto_cantrix_query_set_text(query, "zelto_cantrix_field_artist", "Someone") == 0, "text");
                has_toc = false;
                model.clear();
                break;
        }
    }

    zelto_script_reset(session.script);
    zelto_rvo_handle response = nullptr;
    const uint32_t status = zelto_cantrix_query_find_albums(query, &response);
    if (response) zelto_manager_rvo_release(response);
    const bool looked_up = zelto_script_request_count(session.script) > 0;
    const char *sent = looked_up ? zelto_script_request_data(session.script, 0, "zelto_lookup_data_toc") : nullptr;
    if (has_toc) {
        require(status == 0 || status == ZELTO_CANTRIX_NOT_FOUND, "find with a TOC", std::to_string(status));
        require(sent && render(model) == sent, "the TOC sent is the offsets kept",
                render(model) + " / " + (sent ? sent : "none"));
    } else {
        require(sent == nullptr, "no TOC sent without one");
    }
    require(zelto_cantrix_query_release(query) == 0, "release");
    zelto_script_reset(session.script);
    blocks.check("the query gives back every block");
    return 0;
}
