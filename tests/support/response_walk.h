// Walks a whole find response through the host's result-object service, as
// an application that reads everything would: the response's values, every
// row under the child keys its context serves, and each row's values and
// children a few levels down. Gives a canonical text of what it read (for
// comparing two runs) and the first thing that broke a rule: a failing read
// other than "no such key here" (error value 0x000B) or "not found", a text
// match score of a row that is not a decimal from 0 to 100 (any 32-bit
// number in match responses, whose rows must also come best first), a result count that
// differs from the rows served. Shared by the tests and the fuzzers; no
// test framework inside.
#ifndef CANTRIX_RESPONSE_WALK_H
#define CANTRIX_RESPONSE_WALK_H

#include <cstdint>
#include <cstdio>
#include <string>

#include "zelto/zelto_host_services.h"

namespace response_walk {

struct Walk {
    std::string text;     // canonical reading
    std::string problem;  // empty when every rule held
    uint32_t failure = 0; // the first failing status met, 0 if none
    uint32_t rows = 0;    // rows served under the response's own child key
};

inline bool failed(uint32_t status) { return (status & 0x80000000u) != 0; }
// "This object has no such key" in any package: a key that does not apply.
inline bool no_such_key(uint32_t status) { return failed(status) && (status & 0xFFFFu) == 0x000Bu; }

inline std::string hex(uint32_t status) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "0x%08X", status);
    return buffer;
}

class Walker {
   public:
    Walk run(zelto_rvo_handle response) {
        const char *context = nullptr;
        if (!read(zelto_manager_rvo_get_context(response, &context), "response context")) return walk_;
        walk_.text += std::string("response ") + (context ? context : "(null)") + "\n";
        for (const char *key : {"zelto_val_resultcount", "zelto_val_rangestart", "zelto_val_rangeend",
                                "zelto_val_rangecount", "zelto_val_decision"})
            values(response, key, 1);
        const std::string ctx = context ? context : "";
        match_ = ctx == "zelto_ctx_response_match";
        uint32_t rows = 0;
        for (const char *key : {"zelto_ctx_album!", "zelto_ctx_track!", "zelto_ctx_lyric!", "zelto_ctx_contributor!",
                                "zelto_ctx_response_match!"}) {
            const uint32_t served = children(response, key, 1);
            const bool all = ctx == "zelto_ctx_response_match" ? std::string(key) == "zelto_ctx_response_match!"
                                                              : served != 0;
            if (all) rows = served;
        }
        walk_.rows = rows;
        const char *count = nullptr;
        if (zelto_manager_rvo_value_get(response, "zelto_val_resultcount", 1, &count) == 0 && count &&
            std::to_string(rows) != count)
            note("result count " + std::string(count) + " but " + std::to_string(rows) + " rows served");
        return walk_;
    }

   private:
    static constexpr int kDepth = 4;

    void note(const std::string &problem) {
        if (walk_.problem.empty()) walk_.problem = problem;
    }
    // True when the read worked; records a failure that is not a missing key.
    bool read(uint32_t status, const std::string &what) {
        if (status == 0) return true;
        if (failed(status) && !no_such_key(status)) {
            if (walk_.failure == 0) walk_.failure = status;
            note(what + " failed with " + hex(status));
        }
        return false;
    }
    void line(int depth, const std::string &text) {
        walk_.text.append(static_cast<size_t>(depth) * 2, ' ');
        walk_.text += text;
        walk_.text += '\n';
    }

    void values(zelto_rvo_handle object, const char *key, int depth) {
        uint32_t count = 0;
        if (!read(zelto_manager_rvo_value_count(object, key, &count), std::string("count of ") + key)) return;
        for (uint32_t i = 1; i <= count; ++i) {
            const char *text = nullptr;
            if (!read(zelto_manager_rvo_value_get(object, key, i, &text), std::string("value ") + key)) continue;
            const std::string value = text ? text : "(null)";
            line(depth, std::string(key) + " = " + value);
            // Scores of the rows themselves (objects of the provider may
            // carry their own values under the key deeper down).
            if (depth == 3 && std::string(key) == "zelto_val_txtmatchscore") {
                // Match scores add the provider's album, track and
                // contributor scores and may pass 100; all others may not.
                const bool decimal = !value.empty() && value.size() <= 10 &&
                                     value.find_first_not_of("0123456789") == std::string::npos;
                const unsigned long long score = decimal ? std::stoull(value) : 0;
                if (!decimal || score > (match_ ? 0xFFFFFFFFull : 100ull))
                    note("text match score \"" + value + "\"");
                last_score_ = score;
            }
        }
    }

    uint32_t children(zelto_rvo_handle object, const char *key, int depth) {
        uint32_t count = 0;
        if (!read(zelto_manager_rvo_child_count(object, key, &count), std::string("count of ") + key)) return 0;
        uint32_t served = 0;
        for (uint32_t i = 1; i <= count; ++i) {
            zelto_rvo_handle child = nullptr;
            if (!read(zelto_manager_rvo_child_get(object, key, i, 1, &child), std::string("child ") + key)) continue;
            ++served;
            line(depth, std::string(key) + " " + std::to_string(i));
            last_score_ = 0;
            if (depth < kDepth) item(child, depth + 1);
            // Match rows are always sorted, best first; a row without a
            // score counts as 0.
            if (depth == 1 && match_ && std::string(key) == "zelto_ctx_response_match!") {
                if (i > 1 && last_score_ > previous_score_) note("match rows out of score order");
                previous_score_ = last_score_;
            }
            zelto_manager_rvo_release(child);
        }
        return served;
    }

    void item(zelto_rvo_handle object, int depth) {
        const char *context = nullptr;
        if (read(zelto_manager_rvo_get_context(object, &context), "context")) line(depth, context ? context : "(null)");
        for (const char *key : {"zelto_val_title", "zelto_val_artist", "zelto_val_display", "zelto_val_tracknumber",
                                "zelto_val_txtmatchscore", "_sdkmgr_val_lookup_type", "_sdkmgr_val_match_type",
                                "_sdkmgr_val_lookup_lang", "zelto_val_toc_album", "zelto_val_track_matched",
                                "zelto_val_collab_result", "zelto_val_tui", "zelto_val_lyric_text"})
            values(object, key, depth + 1);
        for (const char *key : {"zelto_ctx_track!", "zelto_ctx_track!matching", "zelto_ctx_title!off",
                                "zelto_ctx_artist!", "zelto_ctx_name!off", "zelto_ctx_contributor!"})
            children(object, key, depth + 1);
    }

    Walk walk_;
    bool match_ = false;
    unsigned long long last_score_ = 0, previous_score_ = 0;
};

inline Walk walk(zelto_rvo_handle response) { return Walker().run(response); }

}  // namespace response_walk

#endif
