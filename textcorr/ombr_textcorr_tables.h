// Constant tables of the text normaliser: character descriptors by block,
// the token-mode overlay, the pair table and the word lists. Wide strings
// in these tables are zero-terminated 16-bit units stored big-endian in
// memory (first byte is the high byte), as the normaliser works on them.
#ifndef OMBR_TEXTCORR_TABLES_H
#define OMBR_TEXTCORR_TABLES_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace ombr::textcorr {

// Converts between a code point value and its big-endian storage form. The
// conversion is its own inverse.
constexpr uint16_t be16(uint16_t v) {
    if constexpr (std::endian::native == std::endian::little)
        return static_cast<uint16_t>((v >> 8) | (v << 8));
    else
        return v;
}

enum CharClass : uint8_t {
    kClassSeparator = 0,
    kClassLetter = 1,
    kClassDigit = 2,
    kClassPunct = 3,
    kClassControl = 4,
    kClassUnclassified = 5,
};

enum CharAction : uint8_t {
    kActKeep = 0,
    kActDelete = 1,
    kActSeparate = 2,
    kActReplace = 3,
    kActSpell = 4,
    kActLetterNeighbour = 5,
    kActInnerLetter = 6,
    kActDigitJoiner = 7,
    kActSeeMain = 9,  // token table only: the main table decides
};

// Descriptor of one code point.
struct UniDesc {
    uint8_t cls;
    uint8_t action;
    const uint16_t *repl;  // zero-terminated, big-endian, or null
    uint32_t repl_len;     // units in repl
};

// Two units that together have one descriptor (half-width kana + mark).
struct UniPair {
    uint16_t first;   // big-endian
    uint16_t second;  // big-endian
    UniDesc desc;
};

// A word of a list: contractions and stop words.
struct WordRow {
    const uint16_t *text;
    uint32_t len;
};

// A word and its replacement: Roman numerals and replacement pairs.
struct WordPair {
    const uint16_t *match;
    uint32_t match_len;
    const uint16_t *repl;
    uint32_t repl_len;
};

// A range of code points with a block-pass mode.
struct UniBlock {
    uint16_t first;
    uint16_t last;
    uint8_t mode;
};

// Block pointers by high byte; null means default_ud.
extern const std::array<const UniDesc *, 256> charblock;
extern const UniDesc default_ud;
// Token-mode overlay (only block 30 is present).
extern const std::array<const UniDesc *, 256> charblock_tok;

extern const UniPair unipairs[];
extern const uint32_t unipaircnt;

// Smallest and largest second unit of the pairs, as code points.
struct UniPairSeconds {
    uint16_t first;
    uint16_t last;
};
extern const UniPairSeconds unipair_seconds;

// Lists that end with a row whose text is null.
extern const WordRow contlist[];
extern const WordRow remlist[];
extern const WordPair rompair[];
extern const WordPair reppair[];

extern const UniBlock uniblocks[];
extern const uint32_t uniblockcnt;

extern const uint16_t uni_s;      // letter s, big-endian
extern const uint16_t uni_space;  // blank, big-endian

// Traditional-to-simplified rows generated from the Unicode Han database
// (source code points in ascending order); the tables apply them to the
// blocks 4E to 9F together with the fixed numeral and private-use rows.
struct CjkFold {
    uint16_t src;
    uint16_t dst;
};
extern const CjkFold simplified_rows[];
extern const uint32_t simplified_row_count;

// Descriptor of one big-endian unit: two array steps, no search.
inline const UniDesc *get_unidesc(uint16_t unit, uint32_t token_mode) {
    const uint16_t v = be16(unit);
    const unsigned block = v >> 8, low = v & 0xFFu;
    if (token_mode == 1) {
        const UniDesc *tok = charblock_tok[block];
        if (tok && tok[low].action != kActSeeMain) return &tok[low];
    }
    const UniDesc *rows = charblock[block];
    return rows ? &rows[low] : &default_ud;
}

// Descriptor at a text position: a pair row when the unit and the one
// behind it form one, else the single unit's row. `consumed` gets 1 or 2.
inline const UniDesc *get_unidesc_p(const uint16_t *text, uint32_t *consumed, uint32_t token_mode) {
    const uint16_t second = be16(text[1]);
    // The linear search of the pairs, for a second unit that can end one.
    if (text[1] != 0 && second >= unipair_seconds.first && second <= unipair_seconds.last) {
        for (uint32_t i = 0; i < unipaircnt; ++i) {
            if (unipairs[i].first == text[0] && unipairs[i].second == text[1]) {
                *consumed = 2;
                return &unipairs[i].desc;
            }
        }
    }
    *consumed = 1;
    return get_unidesc(text[0], token_mode);
}

}  // namespace ombr::textcorr

#endif
