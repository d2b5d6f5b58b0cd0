// HPath: a recursive interpreter over the path text that selects children,
// values, texts or counts in an HDO tree. There is no compiled form: each
// evaluation cuts the next step off the text and runs it, and predicates
// and indexes run sub-queries of their own.
#include "hdo/ombr_hdo_internal.h"
#include "ombr/ombr_string.h"
#include "ombr/ombr_string_printf.h"

using namespace ombr::hdo;

namespace {

constexpr const char *kUnit = "ombr_hdo_hpath";

uint32_t out(uint32_t status, std::source_location where = std::source_location::current()) {
    return ombr::fail(status, kUnit, where);
}

constexpr uint32_t kAll = 0xFFFFFFFFu;  // `wanted` of a count
constexpr uint32_t kStepBuffer = 128;
constexpr uint32_t kPartBuffer = 32;
constexpr uint32_t kNumberBuffer = 32;
constexpr uint32_t kIndexZero = OMBR_HDO_NOT_IN_PARENT;

// The evaluator tests not-found by the low 16 bits and errors by the high bit.
bool low_three(uint32_t status) { return OMBR_STATUS_VALUE(status) == 3; }
bool is_error(uint32_t status) { return OMBR_STATUS_FAILED(status); }
bool is_blank(char c) { return c == ' ' || c == '\t'; }
// Want of memory and the evaluation limits end every evaluation: where a
// failing alternative or comparison would otherwise be passed over, they
// would turn into a wrong answer.
bool is_fatal(uint32_t status) {
    return status == kNoMemory || status == kLimit || (is_error(status) && OMBR_STATUS_VALUE(status) == 2);
}

// Shared by a query and all its sub-queries: how deep the evaluation is
// nested and how many steps it has run, both bounded.
struct hpath_limits {
    uint32_t depth;
    uint32_t work;
};

}  // namespace

struct hpath_query {
    hdo_node *base;
    hdo_node *params;
    uint8_t rooted;
    uint32_t wanted;
    uint32_t matched;
    uint8_t done;
    const char *text;
    char *literal;
    uint32_t index;
    hdo_node *child;
    hdo_value *value;
    hpath_limits *limits;
};

namespace {

// A sub-query for a predicate, an index or a negation: base, parameters
// and limits are shared, everything else starts afresh.
struct SubQuery {
    hpath_query query{};
    SubQuery(const hpath_query &outer, uint32_t wanted) {
        query.base = outer.base;
        query.params = outer.params;
        query.limits = outer.limits;
        query.wanted = wanted;
    }
    ~SubQuery() { ombr_memory_free(query.literal); }
    SubQuery(const SubQuery &) = delete;
    SubQuery &operator=(const SubQuery &) = delete;
};

// Text in a fixed buffer, or in an allocation when it does not fit.
template <uint32_t N>
class TextBuffer {
   public:
    TextBuffer() = default;
    ~TextBuffer() {
        if (text_ != fixed_) ombr_memory_free(text_);
    }
    TextBuffer(const TextBuffer &) = delete;
    TextBuffer &operator=(const TextBuffer &) = delete;
    uint32_t assign(const char *begin, const char *end) {
        const auto length = static_cast<uint32_t>(end - begin);
        if (length >= N) {
            text_ = static_cast<char *>(ombr_memory_alloc(length + 1));
            if (!text_) {
                text_ = fixed_;
                return kNoMemory;
            }
        }
        ombr_memory_memcpy(text_, begin, length);
        text_[length] = '\0';
        return 0;
    }
    const char *text() const { return text_; }

   private:
    char fixed_[N];
    char *text_ = fixed_;
};

// Holds one level of nesting and one unit of work for an evaluation.
class EvaluationGuard {
   public:
    explicit EvaluationGuard(hpath_limits *limits) : limits_(limits) {
        if (limits_->depth >= OMBR_HDO_MAX_PATH_DEPTH || limits_->work >= OMBR_HDO_MAX_PATH_WORK) {
            limits_ = nullptr;
            return;
        }
        limits_->depth += 1;
        limits_->work += 1;
    }
    ~EvaluationGuard() {
        if (limits_) limits_->depth -= 1;
    }
    EvaluationGuard(const EvaluationGuard &) = delete;
    EvaluationGuard &operator=(const EvaluationGuard &) = delete;
    bool exceeded() const { return limits_ == nullptr; }

   private:
    hpath_limits *limits_;
};

uint32_t handle_token(hdo_node *node, hdo_value *value, const char *step, const char *rest, hpath_query *query);

// Cuts the next step off a path. Leading slashes are skipped; the step ends
// at a "/" outside brackets, at a "(" or "[" after a name, behind a closing
// ")" or "]"; brackets joined by "&" or "|" stay one (compound) step. The
// step goes to `buffer` or, if it does not fit, to an allocation that the
// caller frees. The rest begins behind one ")" or "]" and any "/".
uint32_t _ombr_hdo_get_next_hpath_token(const char *path, char *buffer, uint32_t size, char **out_step,
                                        const char **out_rest, bool *out_compound) {
    const char *p = path;
    while (*p == '/') ++p;
    const char *start = p;
    uint32_t parens = 0, brackets = 0;
    bool seen = false, compound = false;
    for (;;) {
        const char c = *p;
        if (c == '\0') break;
        if (c == ')') {
            if (parens == 0) break;
            ++p;
            if (--parens == 0 && brackets == 0) break;
        } else if (c == '/') {
            if (brackets == 0) break;
            ++p;
        } else if (c == '[') {
            if (brackets == 0 && seen) break;
            ++brackets;
            seen = true;
            ++p;
        } else if (c == ']') {
            if (brackets == 0) break;
            ++p;
            if (--brackets == 0) {
                while (is_blank(*p)) ++p;
                if (*p != '&' && *p != '|') break;
                compound = true;
                ++p;
                while (is_blank(*p)) ++p;
                if (*p != '[') return out(kBadPath);
                ++brackets;
                ++p;
            }
        } else if (c == '(') {
            if (seen && parens == 0 && brackets == 0) break;
            ++parens;
            seen = true;
            ++p;
        } else if (c == '&' || c == '|') {
            if (parens == 0 && brackets == 0) compound = true;
            ++p;
        } else if (c == '!') {
            ++p;
        } else {
            if (brackets == 0) seen = true;
            ++p;
        }
    }
    const auto length = static_cast<uint32_t>(p - start);
    char *step = buffer;
    if (length >= size) {
        step = static_cast<char *>(ombr_memory_alloc(length + 1));
        if (!step) return out(kNoMemory);
    }
    ombr_memory_memcpy(step, start, length);
    step[length] = '\0';
    if (*p == ')' || *p == ']') ++p;
    while (*p == '/') ++p;
    *out_step = step;
    *out_rest = p;
    *out_compound = compound;
    return 0;
}

// Splits a predicate step "[left=right]" into its two parts. An "=" counts
// only at the first level and not behind an "&" or "|" until a "/" has
// followed. 0x90110008 when a part does not fit its buffer.
uint32_t _ombr_hdo_get_hpath_comparison(const char *step, char *left, uint32_t left_size, char *right,
                                        uint32_t right_size) {
    const char *p = step;
    while (*p && *p != '[') ++p;
    if (*p != '[') return kBadPath;
    const char *left_begin = ++p;
    const char *left_end = nullptr;
    const char *right_begin = nullptr;
    uint32_t depth = 1;
    bool op = false;
    for (; *p; ++p) {
        if (*p == '[') {
            ++depth;
        } else if (*p == ']') {
            if (--depth == 0) break;
        } else if (*p == '&' || *p == '|') {
            op = true;
        } else if (*p == '/') {
            op = false;
        } else if (*p == '=' && depth == 1 && !op && !right_begin) {
            left_end = p;
            right_begin = p + 1;
        }
    }
    if (!left_end) left_end = p;
    const char *right_end = right_begin ? p : nullptr;
    const auto left_length = static_cast<uint32_t>(left_end - left_begin);
    const auto right_length = right_begin ? static_cast<uint32_t>(right_end - right_begin) : 0;
    if (left_length >= left_size || right_length >= right_size) return kBufferTooSmall;
    ombr_memory_memcpy(left, left_begin, left_length);
    left[left_length] = '\0';
    if (right_length) ombr_memory_memcpy(right, right_begin, right_length);
    right[right_length] = '\0';
    return 0;
}

uint32_t _ombr_hdo_do_hpath(hdo_node *node, hdo_value *value, const char *path, hpath_query *query) {
    if (!query || !path || !*path || (node == nullptr) == (value == nullptr)) return out(kBadPath);
    EvaluationGuard guard(query->limits);
    if (guard.exceeded()) return out(kLimit);
    if (path[0] == '/') {
        if (value) return out(kBadPath);
        while (node != query->base) {
            hdo_node *up = parent_of(node);
            if (!up) break;
            node = up;
        }
        if (path[1] == '/') query->rooted = 1;
    }
    char buffer[kStepBuffer];
    char *step = nullptr;
    const char *rest = nullptr;
    bool compound = false;
    if (uint32_t status = _ombr_hdo_get_next_hpath_token(path, buffer, kStepBuffer, &step, &rest, &compound))
        return out(status);
    uint32_t status = 0;
    if (!compound) {
        status = handle_token(node, value, step, rest, query);
    } else {
        // Alternatives: the separator behind each part decides.
        status = kNotFound;
        for (const char *p = step; *p;) {
            const char *end = p;
            while (*end && *end != '&' && *end != '|') ++end;
            const char separator = *end;
            TextBuffer<kStepBuffer> part;
            uint32_t part_status = part.assign(p, end);
            if (part_status == 0) part_status = handle_token(node, value, part.text(), rest, query);
            if (is_fatal(part_status)) {
                status = part_status;
                break;
            }
            if (separator == '&') {
                if (part_status != 0) break;
            } else if (part_status == 0) {
                status = 0;
                break;
            }
            p = end;
            while (*p == '&' || *p == '|' || is_blank(*p)) ++p;
        }
    }
    if (step != buffer) ombr_memory_free(step);
    if (status == 0 && query->done && query->matched != query->wanted && query->wanted != kAll) status = kNotFound;
    return out(status);
}

// A quoted text, or a non-zero number reformatted, as the query's text. A
// literal has one occurrence and ends a path.
uint32_t handle_literal(const char *step, const char *rest, hpath_query *query) {
    if (*rest) return out(kBadPath);
    if (query->wanted > 1) return kNotFound;
    char number[kNumberBuffer];
    const char *begin = number;
    const char *end = nullptr;
    if (step[0] == '\'' || step[0] == '"') {
        begin = step + 1;
        end = begin;
        while (*end && *end != step[0]) ++end;
    } else {
        ombr_string_snprintf(number, kNumberBuffer, "%d", static_cast<int32_t>(ombr_string_atou32(step)));
        end = number + ombr_string_bytelen_nonull(number);
    }
    const auto length = static_cast<uint32_t>(end - begin);
    auto *copy = static_cast<char *>(ombr_memory_alloc(length + 1));
    if (!copy) return out(kNoMemory);
    ombr_memory_memcpy(copy, begin, length);
    copy[length] = '\0';
    ombr_memory_free(query->literal);
    query->literal = copy;
    query->text = copy;
    return 0;
}

// Children, then values, under a name (values only for "$name"). The
// lookup results carry over from one ordinal to the next.
uint32_t handle_element(hdo_node *node, hdo_value *value, hpath_query *query, const char *name, const char *rest,
                        bool values_only) {
    hdo_node *found_child = nullptr;
    hdo_value *found_value = nullptr;
    bool child_hit = false;
    auto lookup = [&](uint32_t ordinal) -> uint32_t {
        uint32_t status = kNotFound;
        if (!values_only) status = _ombr_hdo_child_get(node, name, ordinal, &found_child);
        child_hit = status == 0;
        if (!child_hit) status = _ombr_hdo_value_get(node, name, ordinal, &found_value);
        return status;
    };
    auto record = [&] {
        query->child = found_child;
        query->value = found_value;
        query->matched += 1;
        if (found_value && found_value->type == OMBR_HDO_VALUE_STRING)
            query->text = static_cast<const char *>(found_value->data);
    };
    auto evaluate_at_found = [&](const char *path) {
        return child_hit ? _ombr_hdo_do_hpath(found_child, nullptr, path, query)
                         : _ombr_hdo_do_hpath(nullptr, found_value, path, query);
    };
    if (!node) {
        // A values-only step on a value ("$" gets this far): the value lookup
        // has no node to look in.
        return out(kInvalidArg);
    }

    if (!*rest) {
        query->done = 1;
        if (query->wanted == kAll) {
            uint32_t count = 0;
            if (!values_only && _ombr_hdo_child_count(node, name, &count) == 0) query->matched += count;
            count = 0;
            uint32_t status = _ombr_hdo_value_count(node, name, &count);
            if (status == 0) query->matched += count;
            return out(status);
        }
        for (uint32_t ordinal = 0; query->matched < query->wanted; ++ordinal) {
            if (uint32_t status = lookup(ordinal)) return out(status);
            record();
        }
        return 0;
    }

    if (*rest == '(') {
        // An index picks one entry, so a second match or a count finds nothing.
        if (query->wanted > 1) return kNotFound;
        if (uint32_t status = _ombr_hdo_do_hpath(node, value, rest, query)) return out(status);
        char buffer[kStepBuffer];
        char *index_step = nullptr;
        const char *after = nullptr;
        bool compound = false;
        if (uint32_t status = _ombr_hdo_get_next_hpath_token(rest, buffer, kStepBuffer, &index_step, &after, &compound))
            return out(status);
        if (index_step != buffer) ombr_memory_free(index_step);
        if (uint32_t status = lookup(query->index - 1)) return out(status);
        if (*after) {
            if (uint32_t status = evaluate_at_found(after)) return out(status);
        }
        if (!query->done) {
            query->done = 1;
            record();
        }
        return 0;
    }

    uint32_t status = 0;
    for (uint32_t ordinal = 0; query->matched < query->wanted; ++ordinal) {
        if ((status = lookup(ordinal))) return out(status);
        query->done = 0;
        status = evaluate_at_found(rest);
        if (status == 0 && !query->done) {
            // A predicate with no step behind it selects the element itself.
            query->done = 1;
            record();
        } else if (is_error(status)) {
            return out(status);
        }
    }
    return out(status);
}

bool text_is(const char *text, const char *what) { return text && ombr_string_equal(text, what, 0); }

// "[left]" holds if left exists; "[left=right]" if some occurrence of left
// equals some occurrence of right, without regard to ASCII case; a right
// side "*" holds always and "!" where left does not exist.
uint32_t handle_predicate(hdo_node *node, hdo_value *value, const char *step, const char *rest, hpath_query *query) {
    char left_fixed[kPartBuffer], right_fixed[kPartBuffer];
    char *left = left_fixed, *right = right_fixed;
    uint32_t status = _ombr_hdo_get_hpath_comparison(step, left, kPartBuffer, right, kPartBuffer);
    if (status == kBufferTooSmall) {
        const uint32_t size = ombr_string_bytelen(step) + 2;
        left = static_cast<char *>(ombr_memory_alloc(size));
        right = static_cast<char *>(ombr_memory_alloc(size));
        status = left && right ? _ombr_hdo_get_hpath_comparison(step, left, size, right, size) : kNoMemory;
    }
    bool matched = false;
    if (status == 0) {
        SubQuery left_query(*query, 0), right_query(*query, 0);
        hpath_query &lq = left_query.query;
        hpath_query &rq = right_query.query;
        for (uint32_t i = 1;; ++i) {
            lq.wanted = i;
            lq.matched = 0;
            status = _ombr_hdo_do_hpath(node, value, left, &lq);
            if (status != 0) {
                if (is_error(status) || i > 1 || !*right) break;
                // Left does not exist: only "*" and "!" on the right hold.
                rq.wanted = 1;
                rq.matched = 0;
                status = _ombr_hdo_do_hpath(node, value, right, &rq);
                if (status == 0) {
                    if (text_is(rq.text, "*") || text_is(rq.text, "!"))
                        matched = true;
                    else
                        status = kNotFound;
                }
                break;
            }
            if (!*right) {
                matched = true;
                break;
            }
            if (!lq.text || !*lq.text) {
                status = kBadPath;
                break;
            }
            if (text_is(lq.text, "*")) {
                matched = true;
                break;
            }
            bool stop = false;
            for (uint32_t j = 1;; ++j) {
                rq.wanted = j;
                rq.matched = 0;
                status = _ombr_hdo_do_hpath(node, value, right, &rq);
                bool next_left = false;
                if (is_fatal(status)) {
                    stop = true;
                } else if (status != 0) {
                    if (!is_error(status) && text_is(lq.text, "!")) matched = true;
                    stop = rq.literal != nullptr;
                    next_left = true;
                } else if (ombr_string_equal(lq.text, rq.text, 1) || text_is(rq.text, "*")) {
                    matched = true;
                } else if (text_is(rq.text, "!")) {
                    status = kNotFound;
                    stop = rq.literal != nullptr;
                    next_left = true;
                }
                // A literal has no second occurrence, and neither has a
                // right side that succeeded without counting a match.
                if (rq.literal || (status == 0 && rq.matched < j)) {
                    ombr_memory_free(rq.literal);
                    rq.literal = nullptr;
                    next_left = true;
                }
                if (matched) stop = true;
                if (stop || next_left) break;
            }
            // Likewise on the left: no occurrence counted, no second one.
            if (stop || lq.matched < i) break;
        }
    }
    if (left != left_fixed) ombr_memory_free(left);
    if (right != right_fixed) ombr_memory_free(right);
    if (!matched) return out(status ? status : kNotFound);
    if (*rest) return out(_ombr_hdo_do_hpath(node, value, rest, query));
    return out(status);
}

uint32_t handle_token(hdo_node *node, hdo_value *value, const char *step, const char *rest, hpath_query *query) {
    switch (step[0]) {
        case '!': {
            SubQuery negated(*query, 1);
            uint32_t status = _ombr_hdo_do_hpath(node, value, step + 1, &negated.query);
            if (status == 0) return kNotFound;
            if (!low_three(status)) return out(status);
            return *rest ? out(_ombr_hdo_do_hpath(node, value, rest, query)) : 0;
        }
        case '\'':
        case '"':
            return handle_literal(step, rest, query);
        case '$':
            return handle_element(node, value, query, step + 1, rest, true);
        case '%': {
            if (!query->params) return out(kBadPath);
            hdo_value *parameter = nullptr;
            if (_ombr_hdo_value_get(query->params, step + 1, 0, &parameter) != 0) return out(kBadPath);
            query->done = 1;
            query->matched += 1;
            if (parameter->type != OMBR_HDO_VALUE_STRING) return out(kBadPath);
            query->text = static_cast<const char *>(parameter->data);
            return 0;
        }
        case '(': {
            SubQuery index(*query, 1);
            if (uint32_t status = _ombr_hdo_do_hpath(node, value, step + 1, &index.query)) return out(status);
            // A result without text gives the index 0.
            query->index = ombr_string_atou32(index.query.text);
            return query->index == 0 ? out(kIndexZero) : 0;
        }
        case '@': {
            if (*rest) {
                if (*rest == '(') return out(kBadPath);
                if (uint32_t status = _ombr_hdo_do_hpath(node, value, rest, query)) return out(status);
            }
            const char *text = nullptr;
            uint32_t status = value ? _ombr_hdo_value_attribute_get(value, step + 1, &text)
                                    : _ombr_hdo_attribute_get(node, step + 1, &text);
            if (status) return out(status);
            query->done = 1;
            query->matched += 1;
            query->text = text;
            return 0;
        }
        case '[':
            return handle_predicate(node, value, step, rest, query);
        default:
            // An empty step (a path of slashes alone) is an element step with
            // an empty name, which looks at every child and value.
            if (ombr_string_atou32(step) != 0) return handle_literal(step, rest, query);
            if (!node) return out(kBadPath);
            return handle_element(node, value, query, step, rest, false);
    }
}

// Runs a path from a node with a fresh query.
uint32_t run_query(hdo_node *node, const char *path, hdo_node *params, uint32_t wanted, hpath_query *query,
                   hpath_limits *limits) {
    *query = hpath_query{};
    *limits = hpath_limits{};
    query->base = node;
    query->params = params;
    query->wanted = wanted;
    query->limits = limits;
    return _ombr_hdo_do_hpath(node, nullptr, path, query);
}

// A query whose literal goes when the call ends.
struct TopQuery {
    hpath_query query{};
    hpath_limits limits{};
    ~TopQuery() { ombr_memory_free(query.literal); }
    uint32_t run(hdo_node *node, const char *path, hdo_node *params, uint32_t wanted) {
        return run_query(node, path, params, wanted, &query, &limits);
    }
};

}  // namespace

uint32_t _ombr_hdo_get_count_by_hpath(hdo_node *node, const char *path, hdo_node *params, uint32_t *out_count) {
    if (!node || !path || !out_count) return out(kInvalidArg);
    TopQuery top;
    const uint32_t status = top.run(node, path, params, kAll);
    if (is_error(status)) return out(status);
    *out_count = top.query.matched;
    return 0;
}

uint32_t _ombr_hdo_get_string_by_hpath(hdo_node *node, const char *path, hdo_node *params, uint32_t ordinal,
                                       const char **out_text) {
    if (!node || !path || !out_text) return out(kInvalidArg);
    TopQuery top;
    const uint32_t status = top.run(node, path, params, ordinal + 1);
    if (status) return out(status);
    // A value gives its text, null for a value that is no string. Otherwise
    // the text of the query, which for a literal is freed with the query.
    if (!top.query.value && !top.query.text) return kNotFound;
    *out_text = top.query.text;
    return 0;
}

namespace {

// A query for one result of a kind: a value or a child. A query that
// succeeds without one gives 0x90110366.
template <typename Result>
uint32_t single_result(hdo_node *node, const char *path, hdo_node *params, uint32_t ordinal, Result *out_result,
                       Result hpath_query::*field) {
    if (!node || !path || !out_result) return out(kInvalidArg);
    TopQuery top;
    const uint32_t status = top.run(node, path, params, ordinal + 1);
    if (status) return out(status);
    if (!(top.query.*field)) return out(kBadPath);
    *out_result = top.query.*field;
    return 0;
}

}  // namespace

uint32_t _ombr_hdo_get_value_by_hpath(hdo_node *node, const char *path, hdo_node *params, uint32_t ordinal,
                                      hdo_value **out_value) {
    return single_result(node, path, params, ordinal, out_value, &hpath_query::value);
}

uint32_t _ombr_hdo_get_child_by_hpath(hdo_node *node, const char *path, hdo_node *params, uint32_t ordinal,
                                      hdo_node **out_child) {
    return single_result(node, path, params, ordinal, out_child, &hpath_query::child);
}

// ---- Public functions -------------------------------------------------------------------------

namespace {

// Node, path and output are required; node and parameter node must be
// nodes. The start node's lock is held around the query. Failures are
// reported with this unit, where the public functions live too.
template <typename Run>
uint32_t public_query(hdo_node *node, const char *path, hdo_node *params, const void *output, Run &&run,
                      std::source_location where = std::source_location::current()) {
    uint32_t status = 0;
    if (!node || !path || !output)
        status = kInvalidArg;
    else if (params && params->magic != kNodeMagic)
        status = kBadMagic;
    else
        status = locked_call(node, run);
    return ombr::fail(status, kUnit, where);
}

}  // namespace

OMBR_API uint32_t ombr_hdo_get_count_by_hpath(ombr_hdo_t node, const char *path, ombr_hdo_t params,
                                              uint32_t *out_count) {
    return public_query(node, path, params, out_count,
                        [&] { return _ombr_hdo_get_count_by_hpath(node, path, params, out_count); });
}

OMBR_API uint32_t ombr_hdo_get_string_by_hpath(ombr_hdo_t node, const char *path, ombr_hdo_t params,
                                               uint32_t ordinal, const char **out_text) {
    return public_query(node, path, params, out_text,
                        [&] { return _ombr_hdo_get_string_by_hpath(node, path, params, ordinal, out_text); });
}

OMBR_API uint32_t ombr_hdo_get_value_by_hpath(ombr_hdo_t node, const char *path, ombr_hdo_t params,
                                              uint32_t ordinal, ombr_hdo_value_t *out_handle) {
    return public_query(node, path, params, out_handle, [&]() -> uint32_t {
        hdo_value_handle *handle = _hdo_valuehandle_alloc();
        if (!handle) return kNoMemory;
        hdo_value *value = nullptr;
        if (uint32_t status = _ombr_hdo_get_value_by_hpath(node, path, params, ordinal, &value)) {
            ombr_memory_free(handle);
            return status;
        }
        // The handle's node is the one the query ran on.
        _hdo_valuehandle_bind(handle, node, value);
        *out_handle = handle;
        return 0;
    });
}

OMBR_API uint32_t ombr_hdo_get_child_by_hpath(ombr_hdo_t node, const char *path, ombr_hdo_t params,
                                              uint32_t ordinal, ombr_hdo_t *out_child) {
    return public_query(node, path, params, out_child, [&]() -> uint32_t {
        hdo_node *child = nullptr;
        if (uint32_t status = _ombr_hdo_get_child_by_hpath(node, path, params, ordinal, &child)) return status;
        _ombr_hdo_addref(child);
        *out_child = child;
        return 0;
    });
}
