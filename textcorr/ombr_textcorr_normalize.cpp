// The text normaliser: a fixed sequence of table-driven passes over two wide
// buffers that turns a title or artist text into a comparison key. Inside
// the pipeline all wide text is big-endian in memory.
#include "textcorr/ombr_textcorr_normalize.h"

#include "ombr/ombr_string.h"
#include "platform/ombr_frame.h"
#include "textcorr/ombr_textcorr_tables.h"

namespace {

using namespace ombr::textcorr;

constexpr const char *kUnit = "ombr_textcorr_normalize";

constexpr uint32_t kNoMatch = OMBR_TEXTCORR_ERR_NO_MATCH;
constexpr uint32_t kNothingLeft = OMBR_TEXTCORR_NOTHING_LEFT;

// Class of a unit; the terminator is a separator.
inline uint8_t class_of(uni_char unit, uint32_t token_mode) { return get_unidesc(unit, token_mode)->cls; }

inline bool in_keep(const uni_char *keep, uni_char unit) { return keep && strchr_uni(keep, unit) != nullptr; }

// The two work buffers of one call; destroyed with the pipeline unless their
// text was handed out.
class BufferPair {
   public:
    BufferPair() {
        ombr_memory_memset(bufs_, 0, sizeof bufs_);
    }
    ~BufferPair() {
        destroy_us(&bufs_[0]);
        destroy_us(&bufs_[1]);
    }
    BufferPair(const BufferPair &) = delete;
    BufferPair &operator=(const BufferPair &) = delete;

    // The first buffer; the second comes with the first pass that needs it.
    uint32_t create() { return create_us(&bufs_[0], nullptr) != 0 ? kTextcorrNoMemory : 0; }
    uni_string *current() { return &bufs_[cur_]; }
    // The other buffer, emptied, for a pass that writes a new text; null if
    // it cannot be created.
    uni_string *target() {
        uni_string *t = &bufs_[1 - cur_];
        if (!t->text) return create_us(t, nullptr) != 0 ? nullptr : t;
        t->length = 0;
        t->text[0] = 0;
        return t;
    }
    void flip() { cur_ = 1 - cur_; }
    // Hands out the current text; the buffer no longer owns it.
    uni_char *release() {
        uni_char *text = bufs_[cur_].text;
        ombr_memory_memset(&bufs_[cur_], 0, sizeof bufs_[cur_]);
        return text;
    }

   private:
    uni_string bufs_[2];
    int cur_ = 0;
};

// Appends of one or two units write in place while the buffer has room by
// the growth rule of the buffers (more than n units free beyond the
// terminator's), else go through the buffer functions, which grow it: the
// same text and the same allocations either way.
inline bool has_room(const uni_string *out, uint32_t n) {
    return static_cast<int32_t>(out->capacity / 2) - out->length > static_cast<int32_t>(n);
}
inline bool append_units(uni_string *out, const uni_char *units, uint32_t n) {
    if (n <= 2 && has_room(out, n) && units[0] != 0 && (n == 1 || units[1] != 0)) {
        for (uint32_t i = 0; i < n; ++i) out->text[out->length++] = units[i];
        out->text[out->length] = 0;
        return true;
    }
    return straddclen_us(out, units, static_cast<int32_t>(n)) != nullptr;
}
inline bool append_unit(uni_string *out, uni_char unit) {
    if (unit != 0 && has_room(out, 1)) {
        out->text[out->length++] = unit;
        out->text[out->length] = 0;
        return true;
    }
    return straddc_us(out, unit) != nullptr;
}
inline bool append_text(uni_string *out, const uni_char *text) { return strcat_us(out, text) != nullptr; }

inline void drop_last(uni_string *buf) {
    if (buf->length > 0) {
        buf->length -= 1;
        buf->text[buf->length] = 0;
    }
}

// ---- Character passes --------------------------------------------------------

enum class CharMode { Fold = 0, Punctuation = 1 };

// Rewrites `text` into `out` character by character. In fold mode every class
// but punctuation is processed; in punctuation mode only punctuation is.
uint32_t do_charmod(uni_string *out, const uni_char *text, const uni_char *keep, CharMode mode, uint32_t token_mode) {
    bool separated = true;
    for (uint32_t pos = 0; text[pos] != 0;) {
        uint32_t n = 1;
        const UniDesc *d = get_unidesc_p(&text[pos], &n, token_mode);
        const uni_char unit = text[pos];
        bool ok = true;

        if (in_keep(keep, unit)) {
            ok = append_units(out, &text[pos], n);
            separated = d->cls == kClassSeparator;
        } else if ((mode == CharMode::Fold) == (d->cls == kClassPunct)) {
            if (!(separated && unit == uni_space)) {
                ok = append_units(out, &text[pos], n);
                separated = unit == uni_space;
            }
        } else {
            // Classes of the neighbours of the consumed units; the start of
            // the text counts as a separator.
            auto before = [&]() -> uint8_t { return pos > 0 ? class_of(text[pos - 1], token_mode) : uint8_t{kClassSeparator}; };
            auto behind = [&] { return class_of(text[pos + n], token_mode); };
            switch (d->action) {
                case kActKeep:
                    ok = append_units(out, &text[pos], n);
                    separated = d->cls == kClassSeparator;
                    break;
                case kActDelete:
                    break;
                case kActSeparate:
                    if (!separated) {
                        ok = append_unit(out, uni_space);
                        separated = true;
                    }
                    break;
                case kActSpell:
                    if (separated) {
                        ok = append_text(out, d->repl) && append_unit(out, uni_space);
                    } else {
                        ok = append_unit(out, uni_space) && append_text(out, d->repl) && append_unit(out, uni_space);
                        separated = true;
                    }
                    break;
                case kActLetterNeighbour:
                    if (!separated && (before() == kClassLetter || behind() == kClassLetter)) {
                        ok = append_text(out, get_unidesc(unit, token_mode)->repl);
                        separated = false;
                    }
                    break;
                case kActInnerLetter:
                    if (!separated) {
                        if (before() == kClassLetter && behind() == kClassLetter) {
                            ok = append_text(out, d->repl);
                        } else {
                            ok = append_unit(out, uni_space);
                            separated = true;
                        }
                    }
                    break;
                case kActDigitJoiner:
                    if (!separated && !(before() == kClassDigit && behind() == kClassDigit)) {
                        ok = append_unit(out, uni_space);
                        separated = true;
                    }
                    break;
                default:  // replace, and any action above 7
                    ok = append_text(out, d->repl);
                    separated = false;
                    break;
            }
        }
        if (!ok) return kTextcorrNoMemory;
        pos += n;
    }
    if (separated && out->length > 0) drop_last(out);
    return 0;
}

// Range row of the block pass holding `unit`, or null.
const UniBlock *get_uniblock(uni_char unit) {
    const uint16_t v = be16(unit);
    for (uint32_t i = 0; i < uniblockcnt; ++i)
        if (v >= uniblocks[i].first && v <= uniblocks[i].last) return &uniblocks[i];
    return nullptr;
}

// Applies the block modes of `uniblocks` (2: acts as a blank, 8: a word of its
// own, other non-zero: dropped). With an empty table this copies.
uint32_t do_blockmod(uni_string *out, const uni_char *text, const uni_char *keep, uint32_t token_mode) {
    // No row, no unit to treat: the pass is a copy, made in one append.
    if (uniblockcnt == 0) return strcat_us(out, text) ? 0 : kTextcorrNoMemory;
    bool separated = true;
    for (uint32_t pos = 0; text[pos] != 0; ++pos) {
        const uni_char unit = text[pos];
        const UniBlock *row = get_uniblock(unit);
        bool ok = true;
        if (!row || row->mode == 0 || in_keep(keep, unit)) {
            ok = append_unit(out, unit);
            separated = class_of(unit, token_mode) == kClassSeparator;
        } else if (row->mode == 2) {
            if (!separated) ok = append_unit(out, uni_space);
            separated = true;
        } else if (row->mode == 8) {
            if (!separated) ok = append_unit(out, uni_space);
            ok = ok && append_unit(out, unit);
            if (ok && class_of(text[pos + 1], token_mode) != kClassSeparator) ok = append_unit(out, uni_space);
            separated = true;
        }
        if (!ok) return kTextcorrNoMemory;
    }
    return 0;
}

// ---- Word passes -------------------------------------------------------------

// Pass 2: strips the prefixes of `contlist` at word starts, repeatedly.
uint32_t strip_contractions(uni_string *buf, bool &word_start) {
    word_start = true;
    for (int32_t i = 0; buf->text[i] != 0;) {
        if (word_start) {
            bool stripped = false;
            for (const WordRow *row = contlist; row->text; ++row) {
                if (strncmp_uni(&buf->text[i], row->text, row->len) == 0) {
                    if (!strrep_us(buf, i, static_cast<int32_t>(row->len), nullptr)) return kNoMatch;
                    stripped = true;
                    break;
                }
            }
            if (stripped) continue;
        }
        word_start = buf->text[i] == uni_space;
        ++i;
    }
    return 0;
}

// Pass 4: replaces digit strings that start a word and end at a separator by
// their words.
uint32_t spell_numbers(uni_string *buf, uint32_t token_mode, bool &word_start) {
    word_start = true;
    int32_t run = -1;
    for (int32_t i = 0;; ++i) {
        const uni_char unit = buf->text[i];
        const uint8_t cls = class_of(unit, token_mode);
        if (run >= 0) {
            if (cls == kClassDigit) continue;
            if (cls == kClassSeparator) {
                uni_char *words = nullptr;
                const uint32_t status = num_to_word_uni(&buf->text[run], &words, static_cast<uint32_t>(i - run));
                if (status == 0) {
                    const int32_t len = static_cast<int32_t>(strlen_uni(words));
                    uni_char *replaced = strrep_us(buf, run, i - run, words);
                    ombr_memory_free(words);
                    if (!replaced) return kNoMatch;
                    i = run + len;
                } else if (status != kTextcorrInvalidArgument) {
                    return status;
                }
            }
            run = -1;
        } else if (cls == kClassDigit && word_start) {
            run = i;
        }
        if (buf->text[i] == 0) break;
        word_start = buf->text[i] == uni_space;
    }
    return 0;
}

// Joins spaced single letters from position `p`: r e m becomes rem.
void do_consolidate(uni_string *buf, int32_t p, uint32_t token_mode) {
    uni_char *t = buf->text;
    while (class_of(t[p], token_mode) == kClassLetter && t[p + 1] != 0 &&
           class_of(t[p + 1], token_mode) == kClassSeparator && class_of(t[p + 2], token_mode) == kClassLetter &&
           class_of(t[p + 3], token_mode) == kClassSeparator) {
        if (!(t = strrep_us(buf, p + 1, 1, nullptr))) return;  // deleting never grows
        ++p;
    }
}

// Removes the plural s of the word at `*pos`; on success `*pos` is the place
// of the deleted unit. kNoMatch when the word keeps its s.
uint32_t do_remove_s(uni_string *buf, int32_t *pos, uint32_t token_mode) {
    const uni_char *t = buf->text;
    int32_t end = *pos;
    while (class_of(t[end], token_mode) != kClassSeparator) ++end;
    const int32_t len = end - *pos;
    const bool plural = len > 3 && t[end - 1] == uni_s && t[end - 2] != uni_s;
    const bool lone_s = len == 1 && t[*pos] == uni_s;
    if (!plural && !lone_s) return kNoMatch;
    if (!strrep_us(buf, end - 1, 1, nullptr)) return kNoMatch;
    *pos = end - 1;
    return 0;
}

// Pass 5: initials and plurals.
void consolidate_and_plurals(uni_string *buf, uint32_t flags, uint32_t token_mode, bool &word_start) {
    word_start = true;
    for (int32_t i = 0; buf->text[i] != 0;) {
        if (word_start && class_of(buf->text[i], token_mode) == kClassLetter) {
            if (flags & NORM_CONSOLIDATE) do_consolidate(buf, i, token_mode);
            if ((flags & NORM_PLURAL_S) && do_remove_s(buf, &i, token_mode) == 0) {
                word_start = false;
                continue;
            }
        }
        word_start = buf->text[i] == uni_space;
        ++i;
    }
}

// True when `rows` text matches at `text` and a separator follows it.
inline bool word_matches(const uni_char *text, const uni_char *word, uint32_t len, uint32_t token_mode) {
    return strncmp_uni(text, word, len) == 0 && class_of(text[len], token_mode) == kClassSeparator;
}

// Writes the replacement of the first row of `rows` matching at `*pos` and
// moves behind the match. kNoMatch if no row matches. A failed append is
// reported through `*failed`.
uint32_t do_replace(uni_string *out, const uni_char *text, int32_t *pos, const WordPair *rows, uint32_t token_mode,
                    bool *failed) {
    for (const WordPair *row = rows; row->match; ++row) {
        if (word_matches(&text[*pos], row->match, row->match_len, token_mode)) {
            if (!append_text(out, row->repl)) *failed = true;
            *pos += static_cast<int32_t>(row->match_len);
            return 0;
        }
    }
    return kNoMatch;
}

// Skips the first row of `rows` matching at `*pos`. kNoMatch if none matches.
uint32_t do_remove(const uni_char *text, int32_t *pos, const WordRow *rows, uint32_t token_mode) {
    for (const WordRow *row = rows; row->text; ++row) {
        if (word_matches(&text[*pos], row->text, row->len, token_mode)) {
            *pos += static_cast<int32_t>(row->len);
            return 0;
        }
    }
    return kNoMatch;
}

// Pass 6: Roman numerals, replacement pairs and stop words, and collapsing
// of blanks.
uint32_t word_pass(uni_string *out, const uni_char *text, uint32_t flags, uint32_t token_mode, bool &word_start) {
    word_start = true;
    bool failed = false;
    for (int32_t i = 0; text[i] != 0;) {
        if (word_start && class_of(text[i], token_mode) == kClassLetter) {
            if ((flags & NORM_ROMAN) && do_replace(out, text, &i, rompair, token_mode, &failed) == 0) {
                if (failed) return kNoMatch;
                word_start = false;
                continue;
            }
            if ((flags & NORM_REPLACE_PAIRS) && do_replace(out, text, &i, reppair, token_mode, &failed) == 0) {
                if (failed) return kNoMatch;
                word_start = false;
                continue;
            }
            if ((flags & NORM_STOP_WORDS) && do_remove(text, &i, remlist, token_mode) == 0) {
                word_start = true;
                continue;
            }
        }
        const uni_char unit = text[i];
        if (!(unit == uni_space && word_start) && !append_unit(out, unit)) return kNoMatch;
        word_start = unit == uni_space;
        ++i;
    }
    return 0;
}

// Pass 8: a unit is kept only if the next one differs from it.
uint32_t collapse_repeats(uni_string *out, const uni_char *text) {
    for (int32_t i = 0; text[i] != 0; ++i)
        if (text[i] != text[i + 1] && !append_unit(out, text[i])) return kNoMatch;
    return 0;
}

// The passes over `bufs`; the result is bufs.current().
uint32_t run_passes(BufferPair &bufs, const uni_char *text, const uni_char *keep, uint32_t flags,
                    uint32_t token_mode) {
    bool word_start = false;  // as the last word-walking pass left it
    uint32_t status = do_charmod(bufs.current(), text, keep, CharMode::Fold, token_mode);
    if (status != 0) return status;

    if (flags & NORM_CONTRACTIONS) {
        if ((status = strip_contractions(bufs.current(), word_start)) != 0) return status;
    }
    if (flags & NORM_PUNCTUATION) {
        uni_string *out = bufs.target();
        if (!out) return kTextcorrNoMemory;
        if ((status = do_charmod(out, bufs.current()->text, keep, CharMode::Punctuation, token_mode)) != 0)
            return status;
        bufs.flip();
    }
    if (flags & NORM_NUMBER_WORDS) {
        if ((status = spell_numbers(bufs.current(), token_mode, word_start)) != 0) return status;
    }
    if (flags & (NORM_CONSOLIDATE | NORM_PLURAL_S)) consolidate_and_plurals(bufs.current(), flags, token_mode, word_start);
    if (flags & (NORM_ROMAN | NORM_REPLACE_PAIRS | NORM_STOP_WORDS)) {
        uni_string *out = bufs.target();
        if (!out) return kTextcorrNoMemory;
        if ((status = word_pass(out, bufs.current()->text, flags, token_mode, word_start)) != 0) return status;
        bufs.flip();
    }
    // With no block rows the block pass is a copy: the text stays where it is.
    if (uniblockcnt != 0) {
        uni_string *out = bufs.target();
        if (!out) return kTextcorrNoMemory;
        if ((status = do_blockmod(out, bufs.current()->text, keep, token_mode)) != 0) return status;
        bufs.flip();
    }
    if (flags & NORM_COLLAPSE_REPEATS) {
        uni_string *out = bufs.target();
        if (!out) return kTextcorrNoMemory;
        if ((status = collapse_repeats(out, bufs.current()->text)) != 0) return status;
        bufs.flip();
    }
    if (word_start) drop_last(bufs.current());
    return 0;
}

// Units of `text` with its terminator, as a new block; null if out of memory.
uni_char *copy_wide(const uni_char *text) {
    const uint32_t bytes = (strlen_uni(text) + 1) * sizeof(uni_char);
    auto *copy = static_cast<uni_char *>(ombr_memory_alloc(bytes));
    if (copy) ombr_memory_memcpy(copy, text, bytes);
    return copy;
}

// Frees a block at scope exit unless released.
class OwnedBlock {
   public:
    explicit OwnedBlock(void *block = nullptr) : block_(block) {}
    ~OwnedBlock() { ombr_memory_free(block_); }
    OwnedBlock(const OwnedBlock &) = delete;
    OwnedBlock &operator=(const OwnedBlock &) = delete;
    void reset(void *block) {
        ombr_memory_free(block_);
        block_ = block;
    }

   private:
    void *block_;
};

// The interface knows two modes: none (0) or every pass (0xffffffff). The
// flags word copied bit by bit is non-zero exactly when the word is.
constexpr uint32_t pipeline_mode(uint32_t flags) { return flags != 0 ? 0xFFFFFFFFu : 0u; }

}  // namespace

uint32_t normalize_text_uni_prim(const uni_char *text, uni_char **out, const uni_char *keep, uint32_t flags,
                                 uint32_t token_mode) {
    if (!text || !out) return kTextcorrInvalidArgument;
    uint32_t status = 0;
    {
        BufferPair bufs;
        if ((status = bufs.create()) != 0) return status;
        if ((status = run_passes(bufs, text, keep, flags, token_mode)) != 0) return status;
        if (bufs.current()->length > 0) {
            *out = bufs.release();
            return 0;
        }
    }
    if (flags & ~kNormRetryFlags) return normalize_text_uni_prim(text, out, keep, kNormRetryFlags, token_mode);
    return kNothingLeft;
}

uint32_t normalize_text_uni_le_prim(const uni_char *text, uni_char **out, const uni_char *keep, uint32_t flags,
                                    uint32_t token_mode) {
    if (!is_little_endian()) return normalize_text_uni_prim(text, out, keep, flags, token_mode);
    uni_char *swapped = copy_wide(text);
    if (!swapped) return kTextcorrNoMemory;
    OwnedBlock text_guard(swapped);
    swap_uni_str(swapped);
    uni_char *swapped_keep = nullptr;
    OwnedBlock keep_guard;
    if (keep) {
        if (!(swapped_keep = copy_wide(keep))) return kTextcorrNoMemory;
        keep_guard.reset(swapped_keep);
        swap_uni_str(swapped_keep);
    }
    uni_char *result = nullptr;
    const uint32_t status = normalize_text_uni_prim(swapped, &result, swapped_keep, flags, token_mode);
    if (status != 0) return status;
    swap_uni_str(result);
    *out = result;
    return 0;
}

OMBR_API uint32_t ombr_textcorr_normalize_text(const uint16_t *text, uint16_t **out_text, const uint16_t *keep,
                                               uint32_t flags, uint32_t option) {
    if (!text || !out_text) return ombr::fail(kTextcorrInvalidArgument, kUnit);
    uni_char *result = nullptr;
    uint32_t status =
        normalize_text_uni_le_prim(text, &result, keep, pipeline_mode(flags), option & OMBR_TEXTCORR_OPTION_TOKEN);
    if (status == kNothingLeft) {
        // Nothing is left even in the second try: the text compares as itself.
        if (!(result = copy_wide(text))) return ombr::fail(kTextcorrNoMemory, kUnit);
        status = 0;
    }
    if (status != 0) return ombr::fail(status, kUnit);
    *out_text = result;
    return 0;
}

OMBR_API uint32_t ombr_textcorr_normalize_utf8_text(const char *text, char **out_text, uint32_t flags,
                                                    uint32_t option) {
    if (!text || !out_text) return ombr::fail(kTextcorrInvalidArgument, kUnit);
    // The pipeline's big-endian form comes straight from the conversion and
    // goes straight back to UTF-8: the text is converted with the units
    // swapped on a little-endian host, and the key is read back swapped.
    const uint8_t swap = is_little_endian() ? 1 : 0;
    uint16_t *wide = nullptr;
    uint32_t status = ombr_string_utf8_to_ucs2(text, &wide, swap);
    if (status != 0) return ombr::fail(status, kUnit);
    OwnedBlock wide_guard(wide);

    uni_char *key = nullptr;
    status = normalize_text_uni_prim(wide, &key, nullptr, pipeline_mode(flags), option & OMBR_TEXTCORR_OPTION_TOKEN);
    if (status == kNothingLeft) {
        // Nothing is left even in the second try: the text compares as itself.
        key = nullptr;
        status = 0;
    } else if (status != 0) {
        return ombr::fail(status, kUnit);
    }
    OwnedBlock key_guard(key);

    char *utf8 = nullptr;
    const uint32_t back = ombr_string_ucs2_to_utf8(key ? key : wide, &utf8, swap);
    if (back != 0) return ombr::fail(back, kUnit);
    *out_text = utf8;
    return status;
}

OMBR_API void ombr_textcorr_normalize_do_full_width_to_half_width(uint16_t *text, uint32_t count) {
    if (!text) return;
    for (uint32_t i = 0; i < count; ++i)
        if (text[i] >= 0xFF01 && text[i] <= 0xFF5E) text[i] = static_cast<uint16_t>(text[i] - 0xFEE0);
}
