// Fuzzes the string utilities on two texts of any bytes (the second often
// made from the first, so that long equal prefixes occur) against plain
// models written from the system's rules:
//  - ordering: every comparison equals the comparison core's rules (decode
//    a, then b; fold 'A'-'Z' unless exact; a decoding failure ends the loop,
//    after which a text with characters left is the greater), so on texts
//    that are invalid at the same character both orders give 1; on valid
//    texts every comparison is antisymmetric and orders by code points;
//    strcmp is antisymmetric on any bytes; the _len pair counts the equal
//    prefix with the right folding;
//  - bounded copies never write past their size, never split a character
//    and always terminate; duplicates equal their sources;
//  - searches agree with a plain search over code points, tokens with a
//    byte-wise split, reverse twice is the text again;
//  - measures, trim, case, number rendering and parsing follow their rules.
// Nothing is left allocated, also when the first allocation fails.
#include <algorithm>
#include <cctype>
#include <climits>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "ombr/ombr_string.h"

namespace {

using fuzz::require;

constexpr uint32_t kNoLimit = 0xFFFFFFFFu;

int sign(int64_t v) { return v < 0 ? -1 : (v > 0 ? 1 : 0); }

uint32_t fold(uint32_t c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; }

struct CoreResult {
    int32_t difference = 0;
    uint32_t equal = 0;
    size_t end_a = 0, end_b = 0;
};

// The comparison core, step by step.
CoreResult core_model(const std::string &a, const std::string &b, uint32_t limit, bool exact) {
    CoreResult r;
    size_t pa = 0, pb = 0;
    if (!a.empty()) {
        while (pb < b.size() && r.difference == 0 && limit != 0) {
            size_t na = 0, nb = 0;
            uint32_t ca = fuzz::decode_model(a, pa, &na);
            if (na == 0) break;
            pa += na;
            uint32_t cb = fuzz::decode_model(b, pb, &nb);
            if (nb == 0) break;
            pb += nb;
            if (!exact) ca = fold(ca), cb = fold(cb);
            r.difference = static_cast<int32_t>(ca) - static_cast<int32_t>(cb);
            if (r.difference == 0) ++r.equal;
            if (limit != kNoLimit) --limit;
            if (pa >= a.size()) break;
        }
    }
    if (r.difference == 0 && limit != 0) {
        if (pa < a.size())
            r.difference = 1;
        else if (pb < b.size())
            r.difference = -1;
    }
    r.end_a = pa;
    r.end_b = pb;
    return r;
}

void check_ordering(const std::string &a, const std::string &b, uint32_t n) {
    const char *ta = a.c_str(), *tb = b.c_str();
    require(ombr_string_stricmp(ta, tb) == sign(core_model(a, b, kNoLimit, false).difference), "stricmp");
    require(ombr_string_strncmp(ta, tb, n) == sign(core_model(a, b, n, true).difference), "strncmp");
    require(ombr_string_strnicmp(ta, tb, n) == sign(core_model(a, b, n, false).difference), "strnicmp");
    require(ombr_string_strcmp(ta, tb) == -ombr_string_strcmp(tb, ta), "strcmp antisymmetric");
    require(ombr_string_strcmp(ta, tb) == sign(a.compare(b)), "strcmp orders unsigned bytes");

    for (const bool exact : {false, true}) {
        const CoreResult m = core_model(a, b, kNoLimit, exact);
        const char *end_a = nullptr, *end_b = nullptr;
        const uint32_t equal = exact ? ombr_string_stricmp_len(ta, tb, &end_a, &end_b)
                                     : ombr_string_strcmp_len(ta, tb, &end_a, &end_b);
        require(equal == m.equal && end_a == ta + m.end_a && end_b == tb + m.end_b, "equal prefix and its ends");
    }

    std::vector<uint32_t> ca, cb;
    const bool valid_a = fuzz::decode_all(a, &ca), valid_b = fuzz::decode_all(b, &cb);
    if (valid_a && valid_b) {
        require(ombr_string_stricmp(ta, tb) == -ombr_string_stricmp(tb, ta), "stricmp antisymmetric on valid text");
        require(ombr_string_strncmp(ta, tb, n) == -ombr_string_strncmp(tb, ta, n), "strncmp antisymmetric");
        require(ombr_string_strnicmp(ta, tb, n) == -ombr_string_strnicmp(tb, ta, n), "strnicmp antisymmetric");
        const int by_points =
            std::lexicographical_compare(ca.begin(), ca.end(), cb.begin(), cb.end()) ? -1 : (ca == cb ? 0 : 1);
        require(ombr_string_strncmp(ta, tb, kNoLimit) == by_points, "exact order is the order of code points");
    }
    // Both texts invalid at the same character after an equal start: each
    // is the greater, whichever comes first (the comparison core's rule).
    std::vector<uint32_t> pa, pb;
    fuzz::decode_all(a, &pa);
    fuzz::decode_all(b, &pb);
    if (!valid_a && !valid_b && pa == pb) {
        require(ombr_string_stricmp(ta, tb) == 1 && ombr_string_stricmp(tb, ta) == 1, "invalid both ways is 1");
        require(ombr_string_strncmp(ta, tb, kNoLimit) == 1 && ombr_string_strncmp(tb, ta, kNoLimit) == 1,
                "invalid both ways is 1 (exact)");
    }
}

// The bounded copy: whole sequences by their lead bytes while they fit in
// size - 1 and the limit lasts; a terminator inside a sequence ends it.
std::string copy_model(const std::string &src, uint32_t size, uint32_t limit) {
    std::string out;
    if (size < 2) return out;
    size_t at = 0;
    while (at < src.size() && limit != 0 && size >= 2) {
        const auto b = static_cast<uint8_t>(src[at]);
        const size_t n = b < 0x80 ? 1 : (b & 0xE0) == 0xC0 ? 2 : (b & 0xF0) == 0xE0 ? 3 : 0;
        if (n == 0 || n > size - 1 || at + n > src.size()) break;
        out.append(src, at, n);
        at += n;
        size -= static_cast<uint32_t>(n);
        if (limit != kNoLimit) --limit;
    }
    return out;
}

void check_copies(const std::string &a, const std::string &b, uint32_t size, uint32_t n) {
    std::vector<char> dest(size + 8, '\x55');
    ombr_string_strncpy(dest.data(), size, a.c_str(), n);
    const std::string copied = copy_model(a, size, n);
    require(std::string(dest.data()) == copied, "strncpy copies whole characters");
    const size_t written = size == 0 ? 1 : size;
    require(std::all_of(dest.begin() + static_cast<long>(std::max(written, copied.size() + 1)), dest.end(),
                        [](char c) { return c == '\x55'; }),
            "nothing written past the size");

    // strcat onto that copy: what is left of the buffer takes b.
    if (size > 0 && copied.size() + 1 <= size) {
        ombr_string_strcat(dest.data(), size, b.c_str());
        const std::string joined =
            copied + copy_model(b, size - static_cast<uint32_t>(copied.size()), static_cast<uint32_t>(b.size() + 1));
        require(std::string(dest.data()) == joined, "strcat appends into what is left");
        require(dest[size] == '\x55', "strcat stays within the size");
    }

    const fuzz::BlockCount blocks;
    char *dup = ombr_string_strdup(a.c_str());
    require(dup && a == dup, "strdup");
    ombr_string_free(dup);
    char *ndup = ombr_string_strndup(a.c_str(), n);
    require(ndup && std::string(ndup) == copy_model(a, static_cast<uint32_t>(std::min<uint64_t>(uint64_t{n} * 4, a.size() + 1) + 1), n),
            "strndup");
    ombr_string_free(ndup);
    if (size > 0) {
        char *block = ombr_string_strdupn(a.c_str(), size, 0x7E);
        require(block != nullptr, "strdupn");
        const size_t take = std::min<size_t>(a.size(), size - 1);
        require(std::memcmp(block, a.data(), take) == 0 && block[size - 1] == 0, "strdupn copies bytes");
        for (size_t i = take; i + 1 < size; ++i) require(block[i] == 0x7E, "strdupn fills the rest");
        ombr_string_free(block);
    }
    // Failing allocations give null and leave nothing.
    char *none = reinterpret_cast<char *>(1);
    require(fuzz::with_failing_allocation(1, [&] { none = ombr_string_strdup(a.c_str()); }) && !none,
            "strdup without memory");
    blocks.check("duplicates are given back");
}

void check_search(const std::string &hay, const std::string &needle, uint32_t code_point) {
    const char *h = hay.c_str();
    // strchr and strrchr against a walk over the decoded characters.
    const char *first = nullptr, *last = nullptr;
    for (size_t at = 0, n = 0; at < hay.size(); at += n) {
        const uint32_t cp = fuzz::decode_model(hay, at, &n);
        if (n == 0) break;
        if (cp == code_point && code_point != 0) {
            if (!first) first = h + at;
            last = h + at;
        }
    }
    require(ombr_string_strchr(h, code_point) == first, "strchr");
    require(ombr_string_strrchr(h, code_point) == last, "strrchr");

    // strstr: the first character where the needle's code points follow,
    // searched while the haystack decodes.
    std::vector<uint32_t> nc;
    const bool needle_valid = fuzz::decode_all(needle, &nc);
    const char *found = ombr_string_strstr(h, needle.c_str());
    if (needle.empty() || !needle_valid || nc.empty()) {
        if (ombr_string_isempty(needle.c_str())) require(found == h, "an empty needle gives the haystack");
        return;
    }
    std::vector<size_t> starts;
    std::vector<uint32_t> hc;
    bool hay_valid = true;
    for (size_t at = 0, n = 0; at < hay.size(); at += n) {
        const uint32_t cp = fuzz::decode_model(hay, at, &n);
        if (n == 0) {
            hay_valid = false;
            break;
        }
        starts.push_back(at);
        hc.push_back(cp);
    }
    if (!hay_valid) return;  // the search may stop at the bad byte or match before it
    // A character that decodes to 0 (an overlong form) ends the walk over
    // start characters, though a match begun before it may run through it.
    const size_t first_zero = static_cast<size_t>(std::find(hc.begin(), hc.end(), 0u) - hc.begin());
    const char *expected = nullptr;
    const char *expected_end = nullptr;
    for (size_t i = 0; i < first_zero && i + nc.size() <= hc.size(); ++i)
        if (std::equal(nc.begin(), nc.end(), hc.begin() + static_cast<long>(i))) {
            expected = h + starts[i];
            expected_end = i + nc.size() < starts.size() ? h + starts[i + nc.size()] : h + hay.size();
            break;
        }
    require(found == expected, "strstr finds the first match of code points", hay + " / " + needle);
    const char *end = nullptr;
    uint32_t chars = 0;
    require(ombr_string_substring(h, needle.c_str(), &end, &chars) == expected, "substring");
    if (expected) {
        require(end == expected_end && chars == nc.size(), "substring's end and length");
        require(ombr_string_strrstr(h, needle.c_str()) == expected_end, "strrstr gives the end of the first match");
    }
}

void check_tokens(const std::string &text, const std::string &delimiters) {
    std::vector<uint32_t> dc;
    fuzz::decode_all(delimiters, &dc);  // up to an invalid character
    auto is_delimiter = [&](unsigned char c) { return c != 0 && std::find(dc.begin(), dc.end(), c) != dc.end(); };
    std::vector<std::string> expected;
    std::vector<char> expected_delims;
    for (size_t at = 0; at < text.size();) {
        while (at < text.size() && is_delimiter(static_cast<unsigned char>(text[at]))) ++at;
        if (at == text.size()) break;
        size_t end = at;
        while (end < text.size() && !is_delimiter(static_cast<unsigned char>(text[end]))) ++end;
        expected.push_back(text.substr(at, end - at));
        expected_delims.push_back(end < text.size() ? text[end] : 0);
        at = end + (end < text.size() ? 1 : 0);
    }
    std::string work = text;
    char *save = nullptr;
    char delimiter = 'x';
    std::vector<std::string> got;
    for (char *token = ombr_string_strtok(work.data(), delimiters.c_str(), &save, &delimiter); token;
         token = ombr_string_strtok(nullptr, delimiters.c_str(), &save, &delimiter)) {
        require(got.size() < expected.size() && delimiter == expected_delims[got.size()], "token delimiter");
        got.emplace_back(token);
    }
    require(got == expected, "strtok splits at delimiter bytes");
}

void check_edits(const std::string &text, uint64_t fail_nth) {
    const fuzz::BlockCount blocks;
    std::vector<uint32_t> points;
    const bool valid = fuzz::decode_all(text, &points);
    std::string work = text;
    const bool failed = fuzz::with_failing_allocation(fail_nth, [&] { ombr_string_reverse(work.data()); });
    if (!valid || (failed && text.size() + 1 > 256)) {
        require(work == text, "an invalid or uncopied text is not reversed");
    } else {
        // Characters keep their own bytes, also in overlong forms.
        std::string by_bytes;
        std::vector<std::string> pieces;
        for (size_t at = 0, n = 0; at < text.size(); at += n) {
            fuzz::decode_model(text, at, &n);
            pieces.push_back(text.substr(at, n));
        }
        for (size_t i = pieces.size(); i-- > 0;) by_bytes += pieces[i];
        require(work == by_bytes, "reverse by character");
        ombr_string_reverse(work.data());
        require(work == text, "reverse twice is the text");
    }
    blocks.check("reverse gives back its copy");

    std::string trimmed = text;
    ombr_string_trim(trimmed.data());
    trimmed.resize(std::strlen(trimmed.c_str()));
    auto blank = [](char c) { return static_cast<unsigned char>(c) >= 1 && static_cast<unsigned char>(c) <= 32; };
    size_t s = 0, e = text.size();
    while (s < e && blank(text[s])) ++s;
    while (e > s && blank(text[e - 1])) --e;
    require(trimmed == text.substr(s, e - s), "trim");

    std::string lower = text, upper = text;
    ombr_string_tolower(lower.data());
    ombr_string_toupper(upper.data());
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        require(lower[i] == (c >= 'A' && c <= 'Z' ? c + 32 : c) && upper[i] == (c >= 'a' && c <= 'z' ? c - 32 : c),
                "ASCII case only");
    }
}

void check_measures(const std::string &text, uint32_t n) {
    const char *t = text.c_str();
    require(ombr_string_bytelen(t) == text.size() + 1 && ombr_string_bytelen_nonull(t) == text.size(), "bytelen");
    require(ombr_string_bytenlen(t, n) == (n == 0 ? 0 : std::min<uint64_t>(text.size() + 1, n)), "bytenlen");
    require(ombr_string_bytenlen_nonull(t, n) == std::min<uint64_t>(text.size(), n), "bytenlen_nonull");
    // Characters up to the first invalid one, which charlen counts.
    size_t valid_chars = 0, valid_bytes = 0, n_size = 0;
    bool invalid = false;
    std::vector<size_t> ends;
    for (size_t at = 0; at < text.size(); at += n_size) {
        fuzz::decode_model(text, at, &n_size);
        if (n_size == 0) {
            invalid = true;
            break;
        }
        ++valid_chars;
        valid_bytes = at + n_size;
        ends.push_back(valid_bytes);
    }
    require(ombr_string_charlen(t) == valid_chars + (invalid ? 1 : 0), "charlen");
    require(ombr_string_isvalid(t) == (invalid ? 0u : 1u), "isvalid");
    require(ombr_string_isempty(t) == ((text.empty() || (invalid && valid_chars == 0)) ? 1u : 0u), "isempty");
    require(ombr_string_byteclen(t, n) == (n >= ends.size() ? valid_bytes : (n == 0 ? 0 : ends[n - 1])),
            "byteclen");
    size_t fit = 0;
    while (fit < ends.size() && ends[fit] <= n) ++fit;
    const bool reaches_invalid = fit == ends.size() && invalid;
    require(ombr_string_charnlen(t, n) == fit + (reaches_invalid ? 1 : 0), "charnlen");
}

// Integer rendering: the low-order digits that fit, a '-' only with room.
std::string itoa_model(int64_t value, uint32_t size) {
    if (size <= 1) return "";
    const bool negative = value < 0;
    std::string digits = std::to_string(negative ? -value : value);
    if (digits.size() > size - 1) digits = digits.substr(digits.size() - (size - 1));
    if (negative && digits.size() < size - 1) digits = "-" + digits;
    return digits;
}

// The system's base-10 conversions with a 32-bit long: blanks, a sign,
// digits; a magnitude beyond the type clamps, a negated unsigned one wraps.
struct Parsed {
    bool negative = false;
    uint64_t magnitude = 0;  // saturated just above 2^32
};
Parsed parse_decimal(const std::string &text) {
    Parsed p;
    size_t at = 0;
    while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at]))) ++at;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) p.negative = text[at++] == '-';
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
        p.magnitude = std::min<uint64_t>(p.magnitude * 10 + static_cast<uint64_t>(text[at] - '0'), 1ull << 33);
    return p;
}
uint32_t atou32_model(const std::string &text) {
    const Parsed p = parse_decimal(text);
    if (p.magnitude > UINT32_MAX) return UINT32_MAX;
    return p.negative ? static_cast<uint32_t>(0 - p.magnitude) : static_cast<uint32_t>(p.magnitude);
}
int32_t atoi32_model(const std::string &text) {
    const Parsed p = parse_decimal(text);
    const int64_t v = p.negative ? -static_cast<int64_t>(p.magnitude) : static_cast<int64_t>(p.magnitude);
    return static_cast<int32_t>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX));
}

void check_numbers(const std::string &text, int32_t value, uint32_t size) {
    size = size % 16;
    char buffer[24];
    std::memset(buffer, 0x55, sizeof buffer);
    ombr_string_u32toa(static_cast<uint32_t>(value), buffer, size);
    if (size > 0) require(std::string(buffer) == itoa_model(static_cast<uint32_t>(value), size), "u32toa");
    require(size == 0 ? buffer[0] == 0x55 : buffer[size] == 0x55, "u32toa stays in its buffer");
    if (value != INT32_MIN) {
        std::memset(buffer, 0x55, sizeof buffer);
        ombr_string_i32toa(value, buffer, size);
        if (size > 0) require(std::string(buffer) == itoa_model(value, size), "i32toa");
    }
    const char *t = text.c_str();
    require(ombr_string_atou32(t) == atou32_model(text), "atou32 reads as a 32-bit strtoul", text);
    require(ombr_string_atoi32(t) == atoi32_model(text), "atoi32 reads as a 32-bit strtol", text);
    require(ombr_string_atou64(t) == std::strtoull(t, nullptr, 10), "atou64");
    bool expected = false;
    std::string lower = text;
    for (char &c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    switch (text.empty() ? 0 : text[0]) {
        case '0': expected = ombr_string_atou32(t) != 0; break;
        case '1': case '2': case '3': case '4': case '5': case '6': case '7': case '8': case '9': expected = true; break;
        case 'o': case 'O': expected = lower == "on"; break;
        case 't': case 'T': expected = lower == "true"; break;
        case 'y': case 'Y': expected = lower == "y" || lower == "yes"; break;
        default: break;
    }
    require((ombr_string_atobool(t) != 0) == expected, "atobool", text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 2048) return 0;
    fuzz::Input in(data, size);
    const uint8_t shape = in.byte();
    const uint32_t n = in.byte() == 0xFF ? kNoLimit : in.byte() % 40;
    const uint32_t dest_size = in.byte() % 64;
    const uint32_t code_point = in.value<uint16_t>() % (shape & 0x80 ? 0x10000 : 0x80);
    const int32_t number = in.value<int32_t>();
    std::string a = in.text();
    std::string b;
    switch (shape % 5) {  // the second text, often made from the first
        case 0: b = in.text(); break;
        case 1: b = a + in.text(8); break;
        case 2: b = a.substr(0, a.size() / 2) + in.text(8); break;
        case 3:
            b = a;
            for (char &c : b)
                if (std::isalpha(static_cast<unsigned char>(c))) c ^= 0x20;
            break;
        default: b = a.substr(0, a.size() / 3); break;
    }
    check_ordering(a, b, n);
    check_ordering(b, a, n);
    check_copies(a, b, dest_size, n);
    check_search(a, b, code_point);
    check_search(a + b + a, b, code_point);
    check_tokens(a, b.substr(0, 4));
    check_edits(a, (shape >> 5) & 1);
    check_edits(a + a + a + a + a, (shape >> 5) & 1);  // longer than the reverse's scratch area
    check_measures(a, n);
    check_numbers(a, number, dest_size);
    return 0;
}
