// Number words: a string of decimal digits spelled as English words, in a
// flat form for comparison keys ("one thousand two hundred thirty four") and
// a prose form ("one thousand, two hundred and thirty-four").
#include "ombr/ombr_string_printf.h"
#include "textcorr/ombr_textcorr_internal.h"

namespace {

constexpr const char *ones[10] = {"", "one", "two", "three", "four", "five", "six", "seven", "eight", "nine"};
constexpr const char *teens[10] = {"ten",     "eleven",  "twelve",    "thirteen", "fourteen",
                                   "fifteen", "sixteen", "seventeen", "eighteen", "nineteen"};
constexpr const char *tens[10] = {"", "", "twenty", "thirty", "forty", "fifty", "sixty", "seventy", "eighty", "ninety"};
constexpr const char *big_numbers[22] = {"",
                                         "thousand",
                                         "million",
                                         "billion",
                                         "trillion",
                                         "quadrillion",
                                         "quintillion",
                                         "sextillion",
                                         "septillion",
                                         "octillion",
                                         "nonillion",
                                         "decillion",
                                         "undecillion",
                                         "duodecillion",
                                         "tredecillion",
                                         "quattuordecillion",
                                         "quindecillion",
                                         "sexdecillion",
                                         "septendecillion",
                                         "octodecillion",
                                         "novemdecillion",
                                         "vigintillion"};

constexpr int32_t kMaxGroups = 22;  // 66 digits
// Room for the words of 66 digits in the wide form.
constexpr int32_t kWordArea = 1024;

// Writes one three-digit group (h, t, u) with g groups left including this
// one, in the chosen form, at out (space bytes). Returns the formatter's
// result: the full length + 1.
uint32_t format_group(char *out, int32_t space, int h, int t, int u, int32_t g, bool written_before, bool flat) {
    const char *S = g == 1 ? "" : " ";
    const char *B = big_numbers[g - 1];
    const auto room = static_cast<uint32_t>(space);
    if (flat) {
        const char *P = written_before ? " " : "";
        if (t == 1) return ombr_string_snprintf(out, room, "%s%s%s%s%s%s", P, ones[h], h ? " hundred " : "", teens[u], S, B);
        return ombr_string_snprintf(out, room, "%s%s%s%s%s%s%s%s%s", P, ones[h], h ? " hundred" : "",
                                    (h && (t || u)) ? " " : "", tens[t], (t && u) ? " " : "", ones[u], S, B);
    }
    // Prose: only a last group below one hundred behind an earlier group
    // is joined with " and "; other later groups follow a comma.
    const bool last_and = h == 0 && written_before && g == 1;
    const char *and_lead = last_and ? " and " : "";
    const char *comma_lead = written_before && !last_and ? ", " : "";
    if (t == 1)
        return ombr_string_snprintf(out, room, "%s%s%s%s%s%s%s", and_lead, comma_lead, ones[h],
                                    h ? " hundred and " : "", teens[u], S, B);
    return ombr_string_snprintf(out, room, "%s%s%s%s%s%s%s%s%s%s", and_lead, comma_lead, ones[h], h ? " hundred" : "",
                                (h && (t || u)) ? " and " : "", tens[t], (t && u) ? "-" : "", ones[u], S, B);
}

// Length that the formatter left in a buffer of `space` bytes for a result
// of `full` (length + 1, or 0 when empty).
inline int32_t stored_length(uint32_t full, int32_t space) {
    if (full == 0) return 0;
    auto length = static_cast<int32_t>(full - 1);
    return length < space - 1 ? length : space - 1;
}

}  // namespace

int32_t num_to_word_prim(const char *digits, char *out, int32_t size, int flat) {
    if (size < 1 || !digits || !out) return -1;
    const char *first = nullptr;
    int32_t n = 0;
    for (const char *p = digits; *p; ++p) {
        if (*p < '0' || *p > '9') return -1;
        if (!first && *p != '0') first = p;
        if (first) ++n;
    }
    if (!first) return stored_length(ombr_string_snprintf(out, static_cast<uint32_t>(size), "%s", "zero"), size);

    int32_t g = (n + 2) / 3;
    if (g > kMaxGroups) return -1;

    out[0] = 0;
    int32_t written = 0;
    bool written_before = false;
    int32_t group_digits = n % 3 == 0 ? 3 : n % 3;
    const char *p = first;
    for (; g >= 1; --g) {
        int d[3] = {0, 0, 0};
        for (int32_t i = 3 - group_digits; i < 3; ++i) d[i] = *p++ - '0';
        group_digits = 3;
        if (d[0] == 0 && d[1] == 0 && d[2] == 0) continue;

        int32_t space = size - written;
        uint32_t full = format_group(out + written, space, d[0], d[1], d[2], g, written_before, flat != 0);
        int32_t length = full ? static_cast<int32_t>(full - 1) : -1;
        if (length < 0 || length >= space) return written + stored_length(full, space);
        written += length;
        written_before = true;
    }
    return written;
}

int32_t num_to_word(const char *digits, char *out, int32_t size) { return num_to_word_prim(digits, out, size, 0); }

uint32_t num_to_word_uni(const uni_char *text, uni_char **out_text, uint32_t count) {
    char *ascii = nullptr;
    uint32_t status = uni_to_asc(text, &ascii, count);
    if (status) return status;
    char words[kWordArea];
    int32_t length = num_to_word_prim(ascii, words, kWordArea, 1);
    ombr_memory_free(ascii);
    if (length < 0) return kTextcorrInvalidArgument;
    return asc_to_uni(words, out_text, static_cast<uint32_t>(length));
}
