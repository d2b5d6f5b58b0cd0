// Search keys, word similarity and TOC texts of the catalogue.
#include <algorithm>
#include <charconv>
#include <cstdio>

#include "providers/catalogue/store/catalogue_internal.h"
#include "zelto/zelto_keys.h"

namespace catalogue {

namespace {

struct FoldRow {
    uint16_t cp;
    const char *key;
};

constexpr FoldRow kFoldTable[] = {
#include "providers/catalogue/store/fold_table.inc"
};
static_assert(sizeof(kFoldTable) / sizeof(kFoldTable[0]) == CATALOGUE_FOLD_ROWS);

const char *fold_lookup(int32_t cp) {
    if (cp > 0xFFFF) return nullptr;
    auto it = std::lower_bound(std::begin(kFoldTable), std::end(kFoldTable), cp,
                               [](const FoldRow &row, int32_t c) { return row.cp < c; });
    if (it != std::end(kFoldTable) && it->cp == cp) return it->key;
    return nullptr;
}

std::u32string code_points(std::string_view text) {
    std::u32string out;
    size_t i = 0;
    while (i < text.size()) {
        int32_t cp = next_code_point(text, i);
        out += static_cast<char32_t>(cp < 0 ? 0xFFFD : cp);
    }
    return out;
}

}  // namespace

uint32_t fold_table_rows() { return CATALOGUE_FOLD_ROWS; }

namespace {

// Apostrophes as people type them: ASCII, grave and acute accents, the
// modifier letter, the typographic quotes, the full-width form.
bool apostrophe(int32_t cp) {
    return cp == 0x27 || cp == 0x60 || cp == 0xB4 || cp == 0x2BC || cp == 0x2018 || cp == 0x2019 || cp == 0xFF07;
}

bool ampersand(int32_t cp) { return cp == 0x26 || cp == 0xFE60 || cp == 0xFF06; }

// Whether the code point at text[i] folds to the start of a word.
bool word_follows(std::string_view text, size_t i) {
    if (i >= text.size()) return false;
    const int32_t cp = next_code_point(text, i);
    if (cp < 0) return false;
    if (cp < 0x80) return (cp >= 'a' && cp <= 'z') || (cp >= 'A' && cp <= 'Z') || (cp >= '0' && cp <= '9');
    const char *key = fold_lookup(cp);
    return key == nullptr || (*key != '\0' && *key != ' ');
}

}  // namespace

std::string fold(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    bool blank = true;  // suppresses leading and repeated blanks
    auto put_blank = [&] {
        if (!blank) out += ' ';
        blank = true;
    };
    size_t i = 0;
    while (i < text.size()) {
        int32_t cp = next_code_point(text, i);
        if (cp < 0) {
            put_blank();
            continue;
        }
        // Inside a word an apostrophe joins ("you're" is "youre"); "&" is
        // the word "and".
        if (apostrophe(cp)) {
            if (blank || !word_follows(text, i)) put_blank();
            continue;
        }
        if (ampersand(cp)) {
            put_blank();
            out += "and";
            blank = false;
            put_blank();
            continue;
        }
        if (cp < 0x80) {
            auto c = static_cast<char>(cp);
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
            if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) {
                out += c;
                blank = false;
            } else {
                put_blank();
            }
            continue;
        }
        const char *key = fold_lookup(cp);
        if (key == nullptr) {
            append_utf8(out, static_cast<uint32_t>(cp));
            blank = false;
            continue;
        }
        for (const char *k = key; *k; ++k) {
            if (k[0] == '\xCA' && k[1] == '\xBC') {
                ++k;  // the apostrophe of a compatibility form ("ŉ"), dropped as a typed one
            } else if (*k == ' ') {
                put_blank();
            } else {
                out += *k;
                blank = false;
            }
        }
    }
    if (!out.empty() && out.back() == ' ') out.pop_back();
    return out;
}

std::vector<std::string> fold_words(std::string_view text) {
    std::string key = fold(text);
    std::vector<std::string> words;
    size_t pos = 0;
    while (pos < key.size()) {
        size_t end = key.find(' ', pos);
        if (end == std::string::npos) end = key.size();
        if (end > pos) words.emplace_back(key.substr(pos, end - pos));
        pos = end + 1;
    }
    return words;
}

uint32_t edit_distance(std::string_view a, std::string_view b) {
    // Optimal string alignment: insertions, deletions, substitutions and
    // transpositions of neighbours each cost one. Three rows of the table
    // are kept, so memory grows with the shorter text only.
    std::u32string x = code_points(a), y = code_points(b);
    if (y.size() > x.size()) std::swap(x, y);
    const size_t w = y.size() + 1;
    std::vector<uint32_t> before(w), previous(w), row(w);
    for (size_t j = 0; j < w; ++j) previous[j] = static_cast<uint32_t>(j);
    for (size_t i = 1; i <= x.size(); ++i) {
        row[0] = static_cast<uint32_t>(i);
        for (size_t j = 1; j <= y.size(); ++j) {
            uint32_t cost = x[i - 1] == y[j - 1] ? 0 : 1;
            uint32_t v = std::min({previous[j] + 1, row[j - 1] + 1, previous[j - 1] + cost});
            if (i > 1 && j > 1 && x[i - 1] == y[j - 2] && x[i - 2] == y[j - 1]) v = std::min(v, before[j - 2] + 1);
            row[j] = v;
        }
        std::swap(before, previous);
        std::swap(previous, row);
    }
    return previous[y.size()];
}

size_t code_point_count(std::string_view text) {
    size_t n = 0;
    for (size_t i = 0; i < text.size(); ++n) next_code_point(text, i);
    return n;
}

std::string bounded_query(std::string_view text) {
    std::string key = fold(text);
    size_t words = 0;
    for (size_t pos = 0; pos < key.size(); ++pos) {
        if (key[pos] != ' ') continue;
        if (++words == kMaxQueryWords) {
            key.resize(pos);
            break;
        }
    }
    return key;
}

namespace {

// Closeness of one query word to one candidate word, in hundredths.
uint32_t word_closeness(const std::string &q, const std::string &c) {
    if (q == c) return 100;
    if (q.size() >= 3 && c.size() > q.size() && c.compare(0, q.size(), q) == 0) return 90;
    if (q.size() < 4) return 0;
    // Texts whose lengths differ by more than two are more than two edits apart.
    const size_t lq = code_point_count(q), lc = code_point_count(c);
    if (lq > lc + 2 || lc > lq + 2) return 0;
    uint32_t d = edit_distance(q, c);
    if (d == 1) return 75;
    if (d == 2 && q.size() >= 6) return 50;
    return 0;
}

}  // namespace

namespace {

// Sum of the closeness of each query word to its best candidate word.
uint32_t paired_closeness(const std::vector<std::string> &q, const std::vector<std::string> &c) {
    // Each candidate word pairs with at most one query word, greedily by
    // query order, so repeated query words do not count one match twice.
    std::vector<bool> used(c.size(), false);
    uint32_t sum = 0;
    for (const auto &word : q) {
        uint32_t best = 0;
        size_t best_index = c.size();
        for (size_t j = 0; j < c.size(); ++j) {
            if (used[j]) continue;
            uint32_t v = word_closeness(word, c[j]);
            if (v > best) {
                best = v;
                best_index = j;
            }
        }
        if (best_index < c.size()) used[best_index] = true;
        sum += best;
    }
    return sum;
}

}  // namespace

uint32_t text_similarity(std::string_view query, std::string_view candidate) {
    std::vector<std::string> q = fold_words(query), c = fold_words(candidate);
    if (q.empty() || c.empty()) return 0;
    uint32_t sum = paired_closeness(q, c);
    uint32_t score = static_cast<uint32_t>((2u * sum) / static_cast<uint32_t>(q.size() + c.size()));
    return std::min<uint32_t>(score, 100);
}

uint32_t text_coverage(std::string_view query, std::string_view candidate) {
    std::vector<std::string> q = fold_words(query), c = fold_words(candidate);
    if (q.empty() || c.empty()) return 0;
    return std::min<uint32_t>(paired_closeness(q, c) / static_cast<uint32_t>(q.size()), 100);
}

namespace {

// The code points of a word into `out` (an invalid byte as U+FFFD, as
// edit_distance reads it); false if it has more than kShortWord.
bool short_code_points(std::string_view text, char32_t (&out)[kShortWord], size_t &n) {
    n = 0;
    for (size_t i = 0; i < text.size();) {
        if (n == kShortWord) return false;
        const int32_t cp = next_code_point(text, i);
        out[n++] = static_cast<char32_t>(cp < 0 ? 0xFFFD : cp);
    }
    return true;
}

}  // namespace

uint32_t edit_distance_within_two(std::string_view a, std::string_view b) {
    char32_t x[kShortWord], y[kShortWord];
    size_t n = 0, m = 0;
    if (!short_code_points(a, x, n) || !short_code_points(b, y, m)) return std::min<uint32_t>(edit_distance(a, b), 3);
    if (n > m + 2 || m > n + 2) return 3;
    // The table of edit_distance, three rows kept; once two rows in a row
    // exceed two, so does every later cell (a cell comes from the row above,
    // or from two rows above by a transposition).
    uint32_t rows[3][kShortWord + 1];
    uint32_t *before = rows[0], *previous = rows[1], *row = rows[2];
    for (size_t j = 0; j <= m; ++j) previous[j] = static_cast<uint32_t>(j);
    bool previous_over = false;
    for (size_t i = 1; i <= n; ++i) {
        row[0] = static_cast<uint32_t>(i);
        uint32_t least = row[0];
        for (size_t j = 1; j <= m; ++j) {
            const uint32_t cost = x[i - 1] == y[j - 1] ? 0 : 1;
            uint32_t v = std::min({previous[j] + 1, row[j - 1] + 1, previous[j - 1] + cost});
            if (i > 1 && j > 1 && x[i - 1] == y[j - 2] && x[i - 2] == y[j - 1]) v = std::min(v, before[j - 2] + 1);
            row[j] = v;
            least = std::min(least, v);
        }
        if (least > 2 && previous_over) return 3;
        previous_over = least > 2;
        uint32_t *t = before;
        before = previous;
        previous = row;
        row = t;
    }
    return std::min<uint32_t>(previous[m], 3);
}

QueryWords::QueryWords(std::string_view query) : words_(fold_words(query)) {
    for (const auto &w : words_) lengths_.push_back(code_point_count(w));
}

// word_closeness and paired_closeness over the folded query: the same
// pairing, with the distance bounded at two.
uint32_t QueryWords::paired(std::string_view candidate, size_t &candidate_words) {
    key_ = fold(candidate);
    cand_.clear();
    for (size_t pos = 0; pos < key_.size();) {
        size_t end = key_.find(' ', pos);
        if (end == std::string::npos) end = key_.size();
        if (end > pos) cand_.emplace_back(key_.data() + pos, end - pos);
        pos = end + 1;
    }
    candidate_words = cand_.size();
    if (words_.empty() || cand_.empty()) return 0;
    used_.assign(cand_.size(), 0);
    uint32_t sum = 0;
    for (size_t k = 0; k < words_.size(); ++k) {
        const std::string_view q = words_[k];
        uint32_t best = 0;
        size_t best_index = cand_.size();
        for (size_t j = 0; j < cand_.size() && best < 100; ++j) {
            if (used_[j]) continue;
            const std::string_view c = cand_[j];
            uint32_t v = 0;
            if (q == c) v = 100;
            else if (q.size() >= 3 && c.size() > q.size() && c.substr(0, q.size()) == q) v = 90;
            else if (q.size() >= 4 && best < 75) {
                const size_t lc = code_point_count(c);
                if (lengths_[k] <= lc + 2 && lc <= lengths_[k] + 2) {
                    const uint32_t d = edit_distance_within_two(q, c);
                    v = d == 1 ? 75 : d == 2 && q.size() >= 6 ? 50 : 0;
                }
            }
            if (v > best) {
                best = v;
                best_index = j;
            }
        }
        if (best_index < cand_.size()) used_[best_index] = 1;
        sum += best;
    }
    return sum;
}

uint32_t QueryWords::similarity(std::string_view candidate) {
    size_t words = 0;
    const uint32_t sum = paired(candidate, words);
    if (words_.empty() || words == 0) return 0;
    return std::min<uint32_t>(static_cast<uint32_t>((2u * sum) / static_cast<uint32_t>(words_.size() + words)), 100);
}

uint32_t QueryWords::coverage(std::string_view candidate) {
    size_t words = 0;
    const uint32_t sum = paired(candidate, words);
    if (words_.empty() || words == 0) return 0;
    return std::min<uint32_t>(sum / static_cast<uint32_t>(words_.size()), 100);
}

Status parse_toc(std::string_view text, std::vector<uint32_t> &out) {
    std::vector<uint32_t> offsets;
    size_t i = 0;
    while (i < text.size()) {
        if (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r') {
            ++i;
            continue;
        }
        size_t end = i;
        while (end < text.size() && text[end] >= '0' && text[end] <= '9') ++end;
        if (end == i || end - i > 7)
            return Status::error(Code::invalid_argument,
                                 "TOC: '" + std::string(text.substr(i, std::min<size_t>(end - i + 1, 12))) +
                                     "' is not an offset");
        uint32_t value = 0;
        std::from_chars(text.data() + i, text.data() + end, value);
        if (value > 1000000) return Status::error(Code::invalid_argument, "TOC: offset above 1000000");
        if (!offsets.empty() && value <= offsets.back())
            return Status::error(Code::invalid_argument, "TOC: offsets must rise");
        offsets.push_back(value);
        i = end;
    }
    if (offsets.size() < 2)
        return Status::error(Code::invalid_argument, "TOC: at least one track offset and the lead-out are needed");
    out = std::move(offsets);
    return {};
}

std::string toc_text(const std::vector<uint32_t> &offsets) {
    std::string out;
    for (size_t i = 0; i < offsets.size(); ++i) {
        if (i) out += ' ';
        out += std::to_string(offsets[i]);
    }
    return out;
}

std::string xmcd_disc_id(const std::vector<uint32_t> &offsets) {
    if (offsets.size() < 2) return {};
    size_t tracks = offsets.size() - 1;
    uint32_t digit_sum = 0;
    for (size_t i = 0; i < tracks; ++i)
        for (uint32_t s = offsets[i] / 75; s > 0; s /= 10) digit_sum += s % 10;
    uint32_t seconds = offsets.back() / 75 - offsets.front() / 75;
    uint32_t id = ((digit_sum % 0xFF) << 24) | (seconds << 8) | static_cast<uint32_t>(tracks & 0xFF);
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%08x", id);
    return buffer;
}

std::string freedb_disc_id(std::string_view id) {
    if (id.size() != 8) return {};
    std::string out;
    for (char c : id) {
        if (c >= 'A' && c <= 'F') c = static_cast<char>(c - 'A' + 'a');
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return {};
        out += c;
    }
    return out;
}

const char *code_name(Code code) {
    switch (code) {
        case Code::ok: return "ok";
        case Code::not_found: return "not found";
        case Code::invalid_argument: return "invalid argument";
        case Code::bad_record: return "bad record";
        case Code::io_error: return "i/o error";
        case Code::database: return "database error";
        case Code::no_memory: return "out of memory";
        case Code::not_catalogue: return "not a catalogue";
    }
    return "unknown";
}

const char *response_code(MatchKind kind) {
    switch (kind) {
        case MatchKind::single: return ZELTO_RESULT_SINGLE_MATCH;
        case MatchKind::multi_exact: return ZELTO_RESULT_MULTIEXACT_MATCHES;
        case MatchKind::fuzzy: return ZELTO_RESULT_FUZZY_MATCHES;
        case MatchKind::none: break;
    }
    return ZELTO_RESULT_NO_MATCHES;
}

const char *const kResponseNoNewRevision = ZELTO_RESULT_NO_NEW_REV;

uint32_t Album::track_count() const {
    uint32_t n = 0;
    for (const auto &disc : discs) n += static_cast<uint32_t>(disc.tracks.size());
    return n;
}

}  // namespace catalogue
