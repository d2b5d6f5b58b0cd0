// Constant tables of the text normaliser. Every descriptor block is built
// at compile time from the row lists below; the blocks 4E to 9F also take
// the generated traditional-to-simplified rows (ombr_textcorr_tables_gen.inc,
// made by tools/gen_simplified_table.py).
#include "textcorr/ombr_textcorr_tables.h"

#include <utility>

namespace ombr::textcorr {

constexpr CjkFold simplified_rows[] = {
#include "textcorr/ombr_textcorr_tables_gen.inc"
};
constexpr uint32_t simplified_row_count = sizeof simplified_rows / sizeof simplified_rows[0];

namespace {

// ---- Wide string literals stored big-endian ---------------------------------

template <size_t N>
struct WideLiteral {
    char16_t units[N];
    constexpr WideLiteral(const char16_t (&s)[N]) {
        for (size_t i = 0; i < N; ++i) units[i] = s[i];
    }
    static constexpr size_t size = N;
};

template <WideLiteral L>
inline constexpr auto kWideStorage = [] {
    std::array<uint16_t, decltype(L)::size> out{};
    for (size_t i = 0; i < decltype(L)::size; ++i) out[i] = be16(static_cast<uint16_t>(L.units[i]));
    return out;
}();

struct Repl {
    const uint16_t *text;
    uint32_t len;
};

template <WideLiteral L>
constexpr Repl wide() {
    return {kWideStorage<L>.data(), static_cast<uint32_t>(decltype(L)::size - 1)};
}

// ---- Row lists of the descriptor blocks -------------------------------------

// One row range: a range inside one block, its class and action, and either a
// replacement text or a shift (the replacement of each code point is that
// code point plus `shift`, one unit).
struct RowRange {
    uint16_t first;
    uint16_t last;
    uint8_t cls;
    uint8_t action;
    Repl repl;
    int32_t shift;
    bool shifted;
};

constexpr RowRange row(uint16_t first, uint16_t last, uint8_t cls, uint8_t action, Repl repl = {nullptr, 0}) {
    return {first, last, cls, action, repl, 0, false};
}
constexpr RowRange shift(uint16_t first, uint16_t last, uint8_t cls, uint8_t action, int32_t by) {
    return {first, last, cls, action, {nullptr, 0}, by, true};
}

constexpr RowRange kRows[] = {
    // Block 00
    row(0x0000, 0x0000, 0, 0),
    row(0x0001, 0x0008, 4, 1),
    row(0x0009, 0x000D, 0, 2),
    row(0x000E, 0x001F, 4, 1),
    row(0x0020, 0x0020, 0, 2),
    row(0x0021, 0x0023, 3, 2),
    row(0x0024, 0x0024, 3, 5, wide<u"s">()),
    row(0x0025, 0x0025, 3, 4, wide<u"percent">()),
    row(0x0026, 0x0026, 3, 4, wide<u"and">()),
    row(0x0027, 0x0027, 3, 1),
    row(0x0028, 0x0029, 3, 2),
    row(0x002A, 0x002A, 3, 6, wide<u"e">()),
    row(0x002B, 0x002B, 3, 2),
    row(0x002C, 0x002C, 3, 7),
    row(0x002D, 0x002D, 3, 2),
    row(0x002E, 0x002E, 3, 7),
    row(0x002F, 0x002F, 3, 2),
    row(0x0030, 0x0039, 2, 0),
    row(0x003A, 0x0040, 3, 2),
    shift(0x0041, 0x005A, 1, 3, +32),
    row(0x005B, 0x005F, 3, 2),
    row(0x0060, 0x0060, 3, 1),
    row(0x0061, 0x007A, 1, 0),
    row(0x007B, 0x007E, 3, 2),
    row(0x007F, 0x009F, 4, 1),
    row(0x00A0, 0x00A0, 0, 2),
    row(0x00A1, 0x00A2, 3, 2),
    row(0x00A3, 0x00A3, 3, 5, wide<u"l">()),
    row(0x00A4, 0x00A7, 3, 2),
    row(0x00A8, 0x00A8, 3, 1),
    row(0x00A9, 0x00A9, 3, 4, wide<u"copyright">()),
    row(0x00AA, 0x00AA, 1, 1),
    row(0x00AB, 0x00AC, 3, 2),
    row(0x00AD, 0x00AD, 3, 1),
    row(0x00AE, 0x00AF, 3, 2),
    row(0x00B0, 0x00B0, 3, 4, wide<u"degree">()),
    row(0x00B1, 0x00B1, 3, 2),
    shift(0x00B2, 0x00B3, 3, 3, -128),
    row(0x00B4, 0x00B4, 3, 1),
    row(0x00B5, 0x00B5, 3, 3, wide<u"mu">()),
    row(0x00B6, 0x00B7, 3, 2),
    row(0x00B8, 0x00B8, 1, 1),
    row(0x00B9, 0x00B9, 3, 3, wide<u"1">()),
    row(0x00BA, 0x00BA, 1, 1),
    row(0x00BB, 0x00BB, 3, 2),
    row(0x00BC, 0x00BC, 3, 4, wide<u"quarter">()),
    row(0x00BD, 0x00BD, 3, 4, wide<u"half">()),
    row(0x00BE, 0x00BF, 3, 2),
    row(0x00C0, 0x00C5, 1, 3, wide<u"a">()),
    row(0x00C6, 0x00C6, 1, 3, wide<u"ae">()),
    row(0x00C7, 0x00C7, 1, 3, wide<u"c">()),
    row(0x00C8, 0x00CB, 1, 3, wide<u"e">()),
    row(0x00CC, 0x00CF, 1, 3, wide<u"i">()),
    row(0x00D0, 0x00D0, 1, 3, wide<u"eth">()),
    shift(0x00D1, 0x00D2, 1, 3, -99),
    row(0x00D3, 0x00D6, 1, 3, wide<u"o">()),
    row(0x00D7, 0x00D7, 3, 2),
    row(0x00D8, 0x00D8, 1, 3, wide<u"o">()),
    row(0x00D9, 0x00DC, 1, 3, wide<u"u">()),
    row(0x00DD, 0x00DD, 1, 3, wide<u"y">()),
    row(0x00DE, 0x00DE, 1, 3, wide<u"th">()),
    row(0x00DF, 0x00DF, 1, 3, wide<u"ss">()),
    row(0x00E0, 0x00E5, 1, 3, wide<u"a">()),
    row(0x00E6, 0x00E6, 1, 3, wide<u"ae">()),
    row(0x00E7, 0x00E7, 1, 3, wide<u"c">()),
    row(0x00E8, 0x00EB, 1, 3, wide<u"e">()),
    row(0x00EC, 0x00EF, 1, 3, wide<u"i">()),
    row(0x00F0, 0x00F0, 1, 3, wide<u"eth">()),
    shift(0x00F1, 0x00F2, 1, 3, -131),
    row(0x00F3, 0x00F6, 1, 3, wide<u"o">()),
    row(0x00F7, 0x00F7, 3, 2),
    row(0x00F8, 0x00F8, 1, 3, wide<u"o">()),
    row(0x00F9, 0x00FC, 1, 3, wide<u"u">()),
    row(0x00FD, 0x00FD, 1, 3, wide<u"y">()),
    row(0x00FE, 0x00FE, 1, 3, wide<u"th">()),
    row(0x00FF, 0x00FF, 1, 3, wide<u"y">()),
    // Blocks 01 and 02, Latin extensions
    row(0x0100, 0x0105, 1, 3, wide<u"a">()),
    row(0x0106, 0x010D, 1, 3, wide<u"c">()),
    row(0x010E, 0x0111, 1, 3, wide<u"d">()),
    row(0x0112, 0x011B, 1, 3, wide<u"e">()),
    row(0x011C, 0x0123, 1, 3, wide<u"g">()),
    row(0x0124, 0x0127, 1, 3, wide<u"h">()),
    row(0x0128, 0x0131, 1, 3, wide<u"i">()),
    row(0x0132, 0x0133, 1, 3, wide<u"ij">()),
    row(0x0134, 0x0135, 1, 3, wide<u"j">()),
    row(0x0136, 0x0138, 1, 3, wide<u"k">()),
    row(0x0139, 0x0142, 1, 3, wide<u"l">()),
    row(0x0143, 0x014B, 1, 3, wide<u"n">()),
    row(0x014C, 0x0151, 1, 3, wide<u"o">()),
    row(0x0152, 0x0153, 1, 3, wide<u"oe">()),
    row(0x0154, 0x0159, 1, 3, wide<u"r">()),
    row(0x015A, 0x0161, 1, 3, wide<u"s">()),
    row(0x0162, 0x0167, 1, 3, wide<u"t">()),
    row(0x0168, 0x0173, 1, 3, wide<u"u">()),
    row(0x0174, 0x0175, 1, 3, wide<u"w">()),
    row(0x0176, 0x0178, 1, 3, wide<u"y">()),
    row(0x0179, 0x017E, 1, 3, wide<u"z">()),
    row(0x017F, 0x017F, 1, 3, wide<u"s">()),
    row(0x0180, 0x0183, 1, 3, wide<u"b">()),
    row(0x0184, 0x0185, 1, 3, wide<u"ze">()),
    row(0x0186, 0x0186, 1, 3, wide<u"o">()),
    row(0x0187, 0x0188, 1, 3, wide<u"c">()),
    row(0x0189, 0x018C, 1, 3, wide<u"d">()),
    row(0x018D, 0x018D, 1, 3, wide<u"z">()),
    row(0x018E, 0x0190, 1, 3, wide<u"e">()),
    row(0x0191, 0x0192, 1, 3, wide<u"f">()),
    row(0x0193, 0x0194, 1, 3, wide<u"g">()),
    row(0x0195, 0x0195, 1, 3, wide<u"hv">()),
    row(0x0196, 0x0197, 1, 3, wide<u"i">()),
    row(0x0198, 0x0199, 1, 3, wide<u"k">()),
    row(0x019A, 0x019B, 1, 3, wide<u"l">()),
    shift(0x019C, 0x019D, 1, 3, -303),
    shift(0x019E, 0x019F, 1, 3, -304),
    row(0x01A0, 0x01A1, 1, 3, wide<u"o">()),
    row(0x01A2, 0x01A3, 1, 3, wide<u"oi">()),
    row(0x01A4, 0x01A5, 1, 3, wide<u"p">()),
    row(0x01A6, 0x01A6, 1, 3, wide<u"yr">()),
    row(0x01A7, 0x01A8, 1, 0),
    row(0x01A9, 0x01AA, 1, 3, wide<u"esh">()),
    row(0x01AB, 0x01AD, 1, 3, wide<u"t">()),
    row(0x01AE, 0x01B0, 1, 3, wide<u"u">()),
    row(0x01B1, 0x01B1, 1, 0),
    row(0x01B2, 0x01B2, 1, 3, wide<u"v">()),
    row(0x01B3, 0x01B4, 1, 3, wide<u"y">()),
    row(0x01B5, 0x01B6, 1, 3, wide<u"z">()),
    row(0x01B7, 0x01BA, 1, 3, wide<u"ezh">()),
    row(0x01BB, 0x01BB, 1, 3, wide<u"dz">()),
    row(0x01BC, 0x01BD, 1, 0),
    row(0x01BE, 0x01BE, 1, 3, wide<u"ts">()),
    row(0x01BF, 0x01BF, 1, 3, wide<u"w">()),
    row(0x01C0, 0x01C3, 1, 0),
    row(0x01C4, 0x01C6, 1, 3, wide<u"dz">()),
    row(0x01C7, 0x01C9, 1, 3, wide<u"lj">()),
    row(0x01CA, 0x01CC, 1, 3, wide<u"nj">()),
    row(0x01CD, 0x01CE, 1, 3, wide<u"a">()),
    row(0x01CF, 0x01D1, 1, 3, wide<u"i">()),
    row(0x01D2, 0x01D3, 1, 3, wide<u"o">()),
    row(0x01D4, 0x01DC, 1, 3, wide<u"u">()),
    row(0x01DD, 0x01DD, 1, 3, wide<u"e">()),
    row(0x01DE, 0x01E1, 1, 3, wide<u"a">()),
    row(0x01E2, 0x01E3, 1, 3, wide<u"ae">()),
    row(0x01E4, 0x01E7, 1, 3, wide<u"g">()),
    row(0x01E8, 0x01E9, 1, 3, wide<u"k">()),
    row(0x01EA, 0x01ED, 1, 3, wide<u"o">()),
    row(0x01EE, 0x01EF, 1, 3, wide<u"ezh">()),
    row(0x01F0, 0x01F0, 1, 3, wide<u"j">()),
    row(0x01F1, 0x01F3, 1, 3, wide<u"dz">()),
    row(0x01F4, 0x01F5, 1, 3, wide<u"g">()),
    row(0x01FA, 0x01FB, 1, 3, wide<u"a">()),
    row(0x01FC, 0x01FD, 1, 3, wide<u"ae">()),
    row(0x01FE, 0x01FF, 1, 3, wide<u"o">()),
    row(0x0200, 0x0203, 1, 3, wide<u"a">()),
    row(0x0204, 0x0207, 1, 3, wide<u"e">()),
    row(0x0208, 0x020B, 1, 3, wide<u"i">()),
    row(0x020C, 0x020F, 1, 3, wide<u"o">()),
    row(0x0210, 0x0213, 1, 3, wide<u"r">()),
    row(0x0214, 0x0217, 1, 3, wide<u"u">()),
    // Blocks 02 and 03, modifiers and combining marks
    row(0x02B0, 0x02D7, 1, 1),
    row(0x02D8, 0x02DD, 1, 2),
    row(0x02DE, 0x02DE, 1, 1),
    row(0x02E0, 0x02E9, 1, 1),
    row(0x0300, 0x0345, 1, 1),
    row(0x0360, 0x0361, 1, 1),
    // Block 03, Greek
    row(0x0374, 0x0375, 3, 2),
    row(0x037A, 0x037A, 3, 2),
    row(0x037E, 0x037E, 3, 2),
    row(0x0384, 0x0385, 3, 2),
    row(0x0386, 0x0386, 1, 3, wide<u"\u03B1">()),  // α
    row(0x0387, 0x0387, 3, 2),
    row(0x0388, 0x0388, 1, 3, wide<u"\u03B5">()),  // ε
    row(0x0389, 0x0389, 1, 3, wide<u"\u03B7">()),  // η
    row(0x038A, 0x038A, 1, 3, wide<u"\u03B9">()),  // ι
    row(0x038C, 0x038C, 1, 3, wide<u"\u03BF">()),  // ο
    row(0x038E, 0x038E, 1, 3, wide<u"\u03C5">()),  // υ
    row(0x038F, 0x038F, 1, 3, wide<u"\u03C9">()),  // ω
    row(0x0390, 0x0390, 1, 3, wide<u"\u03B9">()),  // ι
    shift(0x0391, 0x03A1, 1, 3, +32),
    shift(0x03A3, 0x03A9, 1, 3, +32),
    row(0x03AA, 0x03AA, 1, 3, wide<u"\u03B9">()),  // ι
    row(0x03AB, 0x03AB, 1, 3, wide<u"\u03C5">()),  // υ
    row(0x03AC, 0x03AC, 1, 3, wide<u"\u03B1">()),  // α
    row(0x03AD, 0x03AD, 1, 3, wide<u"\u03B5">()),  // ε
    row(0x03AE, 0x03AE, 1, 3, wide<u"\u03B7">()),  // η
    row(0x03AF, 0x03AF, 1, 3, wide<u"\u03B9">()),  // ι
    row(0x03B0, 0x03B0, 1, 3, wide<u"\u03C5">()),  // υ
    row(0x03B1, 0x03C1, 1, 0),
    row(0x03C2, 0x03C2, 1, 3, wide<u"\u03C3">()),  // σ
    row(0x03C3, 0x03C9, 1, 0),
    row(0x03CA, 0x03CA, 1, 3, wide<u"\u03B9">()),  // ι
    row(0x03CB, 0x03CB, 1, 3, wide<u"\u03C5">()),  // υ
    row(0x03CC, 0x03CC, 1, 3, wide<u"\u03BF">()),  // ο
    row(0x03CD, 0x03CD, 1, 3, wide<u"\u03C5">()),  // υ
    row(0x03CE, 0x03CE, 1, 3, wide<u"\u03C9">()),  // ω
    row(0x03D0, 0x03D0, 1, 3, wide<u"\u03B2">()),  // β
    row(0x03D1, 0x03D1, 1, 3, wide<u"\u03B8">()),  // θ
    row(0x03D2, 0x03D4, 1, 3, wide<u"\u03C5">()),  // υ
    row(0x03D5, 0x03D5, 1, 3, wide<u"\u03C6">()),  // φ
    row(0x03D6, 0x03D6, 1, 3, wide<u"\u03C0">()),  // π
    row(0x03D7, 0x03D7, 3, 4, wide<u"\u03BA\u03B1\u03B9">()),  // και
    row(0x03D8, 0x03D9, 1, 3, wide<u"\u03DF">()),  // ϟ
    row(0x03DA, 0x03DB, 1, 3, wide<u"\u03C3">()),  // σ
    row(0x03DC, 0x03DC, 1, 3, wide<u"\u03DD">()),  // ϝ
    row(0x03DD, 0x03DD, 1, 0),
    row(0x03DE, 0x03DE, 1, 3, wide<u"\u03DF">()),  // ϟ
    row(0x03DF, 0x03DF, 1, 0),
    row(0x03E0, 0x03E0, 1, 3, wide<u"\u03E1">()),  // ϡ
    row(0x03E1, 0x03E1, 1, 0),
    row(0x03E2, 0x03E2, 1, 3, wide<u"\u03E3">()),  // ϣ
    row(0x03E3, 0x03E3, 1, 0),
    row(0x03E4, 0x03E4, 1, 3, wide<u"\u03E5">()),  // ϥ
    row(0x03E5, 0x03E5, 1, 0),
    row(0x03E6, 0x03E6, 1, 3, wide<u"\u03E7">()),  // ϧ
    row(0x03E7, 0x03E7, 1, 0),
    row(0x03E8, 0x03E8, 1, 3, wide<u"\u03E9">()),  // ϩ
    row(0x03E9, 0x03E9, 1, 0),
    row(0x03EA, 0x03EA, 1, 3, wide<u"\u03EB">()),  // ϫ
    row(0x03EB, 0x03EB, 1, 0),
    row(0x03EC, 0x03EC, 1, 3, wide<u"\u03ED">()),  // ϭ
    row(0x03ED, 0x03ED, 1, 0),
    row(0x03EE, 0x03EE, 1, 3, wide<u"\u03EF">()),  // ϯ
    row(0x03EF, 0x03EF, 1, 0),
    row(0x03F0, 0x03F0, 1, 3, wide<u"\u03BA">()),  // κ
    row(0x03F1, 0x03F1, 1, 3, wide<u"\u03C1">()),  // ρ
    row(0x03F2, 0x03F2, 1, 3, wide<u"\u03C3">()),  // σ
    row(0x03F3, 0x03F3, 1, 0),
    row(0x03F4, 0x03F4, 1, 3, wide<u"\u03B8">()),  // θ
    row(0x03F5, 0x03F6, 1, 3, wide<u"\u03B5">()),  // ε
    row(0x03F7, 0x03F7, 1, 3, wide<u"\u03F8">()),  // ϸ
    row(0x03F8, 0x03F8, 1, 0),
    row(0x03F9, 0x03F9, 1, 3, wide<u"\u03C3">()),  // σ
    row(0x03FA, 0x03FA, 1, 3, wide<u"\u03FB">()),  // ϻ
    row(0x03FB, 0x03FB, 1, 0),
    // Blocks 04 and 05, Cyrillic
    row(0x0400, 0x0400, 1, 3, wide<u"\u0435">()),  // е
    shift(0x0401, 0x0403, 1, 3, +80),
    row(0x0404, 0x0404, 1, 3, wide<u"\u0435">()),  // е
    row(0x0405, 0x0405, 1, 3, wide<u"\u0455">()),  // ѕ
    row(0x0406, 0x0406, 1, 3, wide<u"\u0438">()),  // и
    shift(0x0407, 0x040C, 1, 3, +80),
    row(0x040D, 0x040D, 1, 3, wide<u"\u0438">()),  // и
    row(0x040E, 0x040E, 1, 3, wide<u"\u0443">()),  // у
    row(0x040F, 0x040F, 1, 3, wide<u"\u045F">()),  // џ
    shift(0x0410, 0x0418, 1, 3, +32),
    row(0x0419, 0x0419, 1, 3, wide<u"\u0438">()),  // и
    shift(0x041A, 0x042F, 1, 3, +32),
    row(0x0430, 0x0438, 1, 0),
    row(0x0439, 0x0439, 1, 3, wide<u"\u0438">()),  // и
    row(0x043A, 0x044F, 1, 0),
    row(0x0450, 0x0451, 1, 3, wide<u"\u0435">()),  // е
    row(0x0452, 0x0452, 1, 0),
    row(0x0453, 0x0453, 1, 3, wide<u"\u0433">()),  // г
    row(0x0454, 0x0454, 1, 3, wide<u"\u0435">()),  // е
    row(0x0455, 0x0455, 1, 0),
    row(0x0456, 0x0457, 1, 3, wide<u"\u0438">()),  // и
    row(0x0458, 0x045B, 1, 0),
    row(0x045C, 0x045C, 1, 3, wide<u"\u043A">()),  // к
    row(0x045D, 0x045D, 1, 3, wide<u"\u0438">()),  // и
    row(0x045E, 0x045E, 1, 3, wide<u"\u0443">()),  // у
    row(0x045F, 0x045F, 1, 0),
    row(0x0460, 0x0460, 1, 3, wide<u"\u0461">()),  // ѡ
    row(0x0461, 0x0461, 1, 0),
    row(0x0462, 0x0462, 1, 3, wide<u"\u0463">()),  // ѣ
    row(0x0463, 0x0463, 1, 0),
    row(0x0464, 0x0465, 1, 3, wide<u"\u044D">()),  // э
    row(0x0466, 0x0466, 1, 3, wide<u"\u0467">()),  // ѧ
    row(0x0467, 0x0467, 1, 0),
    row(0x0468, 0x046D, 1, 3, wide<u"\u0467">()),  // ѧ
    row(0x046E, 0x046E, 1, 3, wide<u"\u046F">()),  // ѯ
    row(0x046F, 0x046F, 1, 0),
    row(0x0470, 0x0470, 1, 3, wide<u"\u0471">()),  // ѱ
    row(0x0471, 0x0471, 1, 0),
    row(0x0472, 0x0472, 1, 3, wide<u"\u0473">()),  // ѳ
    row(0x0473, 0x0473, 1, 0),
    row(0x0474, 0x0474, 1, 3, wide<u"\u0475">()),  // ѵ
    row(0x0475, 0x0475, 1, 0),
    row(0x0476, 0x0477, 1, 3, wide<u"\u0475">()),  // ѵ
    row(0x0478, 0x0478, 1, 3, wide<u"\u0479">()),  // ѹ
    row(0x0479, 0x0479, 1, 0),
    row(0x047A, 0x047D, 1, 3, wide<u"\u0461">()),  // ѡ
    row(0x047E, 0x047E, 1, 3, wide<u"\u047F">()),  // ѿ
    row(0x047F, 0x047F, 1, 0),
    row(0x0480, 0x0480, 1, 3, wide<u"\u0481">()),  // ҁ
    row(0x0481, 0x0482, 1, 0),
    row(0x0483, 0x0486, 1, 2),
    row(0x0488, 0x0489, 1, 0),
    row(0x048A, 0x048B, 1, 3, wide<u"\u0438">()),  // и
    row(0x048C, 0x048C, 1, 3, wide<u"\u048D">()),  // ҍ
    row(0x048D, 0x048D, 1, 0),
    row(0x048E, 0x048F, 1, 3, wide<u"\u0440">()),  // р
    row(0x0490, 0x0495, 1, 3, wide<u"\u0433">()),  // г
    row(0x0496, 0x0497, 1, 3, wide<u"\u0436">()),  // ж
    row(0x0498, 0x0499, 1, 3, wide<u"\u0437">()),  // з
    row(0x049A, 0x04A1, 1, 3, wide<u"\u043A">()),  // к
    row(0x04A2, 0x04A3, 1, 3, wide<u"\u043D">()),  // н
    row(0x04A4, 0x04A5, 1, 3, wide<u"\u0433">()),  // г
    row(0x04A6, 0x04A7, 1, 3, wide<u"\u043F">()),  // п
    row(0x04A8, 0x04A9, 1, 3, wide<u"\u0445">()),  // х
    row(0x04AA, 0x04AB, 1, 3, wide<u"\u0441">()),  // с
    row(0x04AC, 0x04AD, 1, 3, wide<u"\u0442">()),  // т
    row(0x04AE, 0x04B1, 1, 3, wide<u"\u0443">()),  // у
    row(0x04B2, 0x04B3, 1, 3, wide<u"\u0445">()),  // х
    row(0x04B4, 0x04B5, 1, 3, wide<u"\u0446">()),  // ц
    row(0x04B6, 0x04B9, 1, 3, wide<u"\u0447">()),  // ч
    row(0x04BA, 0x04BA, 1, 3, wide<u"\u04BB">()),  // һ
    row(0x04BB, 0x04BB, 1, 0),
    row(0x04BC, 0x04BF, 1, 3, wide<u"\u0447">()),  // ч
    row(0x04C0, 0x04C0, 1, 0),
    row(0x04C1, 0x04C2, 1, 3, wide<u"\u0436">()),  // ж
    row(0x04C3, 0x04C4, 1, 3, wide<u"\u043A">()),  // к
    row(0x04C5, 0x04C6, 1, 3, wide<u"\u043B">()),  // л
    row(0x04C7, 0x04CA, 1, 3, wide<u"\u043D">()),  // н
    row(0x04CB, 0x04CC, 1, 3, wide<u"\u0447">()),  // ч
    row(0x04CD, 0x04CE, 1, 3, wide<u"\u043C">()),  // м
    row(0x04D0, 0x04D3, 1, 3, wide<u"\u0430">()),  // а
    row(0x04D4, 0x04D7, 1, 3, wide<u"\u0435">()),  // е
    row(0x04D8, 0x04D8, 1, 3, wide<u"\u04D9">()),  // ә
    row(0x04D9, 0x04D9, 1, 0),
    row(0x04DA, 0x04DB, 1, 3, wide<u"\u04D9">()),  // ә
    row(0x04DC, 0x04DD, 1, 3, wide<u"\u0436">()),  // ж
    row(0x04DE, 0x04DF, 1, 3, wide<u"\u0437">()),  // з
    row(0x04E0, 0x04E0, 1, 3, wide<u"\u0405">()),  // Ѕ
    row(0x04E1, 0x04E1, 1, 3, wide<u"\u0455">()),  // ѕ
    row(0x04E2, 0x04E5, 1, 3, wide<u"\u0438">()),  // и
    row(0x04E6, 0x04EB, 1, 3, wide<u"\u043E">()),  // о
    row(0x04EC, 0x04ED, 1, 3, wide<u"\u044D">()),  // э
    row(0x04EE, 0x04F3, 1, 3, wide<u"\u0443">()),  // у
    row(0x04F4, 0x04F5, 1, 3, wide<u"\u0447">()),  // ч
    row(0x04F8, 0x04F9, 1, 3, wide<u"\u044B">()),  // ы
    row(0x0500, 0x0500, 1, 3, wide<u"\u0501">()),  // ԁ
    row(0x0501, 0x0501, 1, 0),
    row(0x0502, 0x0502, 1, 3, wide<u"\u0503">()),  // ԃ
    row(0x0503, 0x0503, 1, 0),
    row(0x0504, 0x0504, 1, 3, wide<u"\u0505">()),  // ԅ
    row(0x0505, 0x0505, 1, 0),
    row(0x0506, 0x0506, 1, 3, wide<u"\u0507">()),  // ԇ
    row(0x0507, 0x0507, 1, 0),
    row(0x0508, 0x0508, 1, 3, wide<u"\u0509">()),  // ԉ
    row(0x0509, 0x0509, 1, 0),
    row(0x050A, 0x050A, 1, 3, wide<u"\u050B">()),  // ԋ
    row(0x050B, 0x050B, 1, 0),
    row(0x050C, 0x050C, 1, 3, wide<u"\u050D">()),  // ԍ
    row(0x050D, 0x050D, 1, 0),
    row(0x050E, 0x050E, 1, 3, wide<u"\u050F">()),  // ԏ
    row(0x050F, 0x050F, 1, 0),
    // Block 05, Armenian
    shift(0x0531, 0x0556, 1, 3, +48),
    row(0x0559, 0x0559, 3, 1),
    row(0x055A, 0x055F, 3, 2),
    row(0x0561, 0x0586, 1, 0),
    row(0x0587, 0x0587, 1, 3, wide<u"\u0565">()),  // ե
    row(0x0589, 0x058A, 3, 2),
    // Block 20
    row(0x2000, 0x200D, 0, 2),
    row(0x200F, 0x2017, 0, 2),
    row(0x2019, 0x2019, 0, 1),
    row(0x201A, 0x2029, 0, 2),
    row(0x202A, 0x202E, 0, 0),
    row(0x202F, 0x2037, 0, 2),
    row(0x2039, 0x2046, 0, 2),
    row(0x2049, 0x204D, 0, 2),
    row(0x20A0, 0x20A0, 3, 5, wide<u"e">()),
    row(0x20A1, 0x20AB, 3, 1),
    // Block 30
    row(0x3000, 0x3000, 0, 2),
    row(0x3001, 0x3002, 3, 2),
    row(0x3003, 0x3004, 3, 1),
    row(0x3005, 0x3005, 3, 0),
    row(0x3006, 0x3006, 3, 3, wide<u"\u30B7\u30E1">()),  // シメ
    row(0x3007, 0x3007, 3, 1),
    row(0x3008, 0x3011, 3, 2),
    row(0x3012, 0x3013, 3, 1),
    row(0x3014, 0x301F, 3, 2),
    row(0x3020, 0x3020, 3, 1),
    row(0x3030, 0x3030, 3, 2),
    row(0x3031, 0x3036, 3, 1),
    row(0x303B, 0x303B, 3, 0),
    row(0x303C, 0x303C, 3, 3, wide<u"\u30DE\u30B9">()),  // マス
    row(0x303D, 0x303D, 3, 1),
    row(0x303F, 0x303F, 0, 2),
    row(0x3041, 0x3041, 1, 0),
    row(0x3042, 0x3042, 1, 3, wide<u"\u30A2">()),  // ア
    row(0x3043, 0x3043, 1, 0),
    row(0x3044, 0x3044, 1, 3, wide<u"\u30A4">()),  // イ
    row(0x3045, 0x3045, 1, 0),
    row(0x3046, 0x3046, 1, 3, wide<u"\u30A6">()),  // ウ
    row(0x3047, 0x3047, 1, 0),
    row(0x3048, 0x3048, 1, 3, wide<u"\u30A8">()),  // エ
    row(0x3049, 0x3049, 1, 0),
    shift(0x304A, 0x3062, 1, 3, +96),
    row(0x3063, 0x3064, 1, 3, wide<u"\u30C4">()),  // ツ
    shift(0x3065, 0x3082, 1, 3, +96),
    row(0x3083, 0x3083, 1, 0),
    row(0x3084, 0x3084, 1, 3, wide<u"\u30E4">()),  // ヤ
    row(0x3085, 0x3085, 1, 0),
    row(0x3086, 0x3086, 1, 3, wide<u"\u30E6">()),  // ユ
    row(0x3087, 0x3087, 1, 0),
    shift(0x3088, 0x308D, 1, 3, +96),
    row(0x308E, 0x308F, 1, 3, wide<u"\u30EF">()),  // ワ
    row(0x3090, 0x3090, 1, 3, wide<u"\u30A4">()),  // イ
    row(0x3091, 0x3091, 1, 3, wide<u"\u30E4">()),  // ヤ
    shift(0x3092, 0x3093, 1, 3, +96),
    row(0x3094, 0x3094, 1, 3, wide<u"\u30D6">()),  // ブ
    row(0x3095, 0x3095, 1, 3, wide<u"\u30AB">()),  // カ
    row(0x3096, 0x3096, 1, 3, wide<u"\u30B1">()),  // ケ
    row(0x3099, 0x309A, 3, 0),
    row(0x309B, 0x309C, 3, 1),
    row(0x309D, 0x309E, 3, 0),
    row(0x309F, 0x309F, 3, 1),
    row(0x30A0, 0x30A0, 3, 2),
    row(0x30A1, 0x30EF, 1, 0),
    row(0x30F0, 0x30F0, 1, 3, wide<u"\u30A4">()),  // イ
    row(0x30F1, 0x30F1, 1, 3, wide<u"\u30A8">()),  // エ
    row(0x30F2, 0x30F3, 1, 0),
    row(0x30F4, 0x30F4, 1, 3, wide<u"\u30D6">()),  // ブ
    row(0x30F5, 0x30F5, 1, 3, wide<u"\u30AB">()),  // カ
    row(0x30F6, 0x30F6, 1, 3, wide<u"\u30B1">()),  // ケ
    row(0x30F7, 0x30FA, 1, 0),
    row(0x30FB, 0x30FB, 3, 2),
    row(0x30FC, 0x30FC, 3, 1),
    row(0x30FD, 0x30FE, 3, 0),
    // Blocks FA and FB
    row(0xFA0C, 0xFA0C, 1, 3, wide<u"\u5140">()),  // 兀
    row(0xFA0D, 0xFA0D, 1, 3, wide<u"\u55C0">()),  // 嗀
    row(0xFB00, 0xFB00, 1, 3, wide<u"ff">()),
    row(0xFB01, 0xFB01, 1, 3, wide<u"fi">()),
    row(0xFB02, 0xFB02, 1, 3, wide<u"fl">()),
    row(0xFB03, 0xFB03, 1, 3, wide<u"ffi">()),
    row(0xFB04, 0xFB04, 1, 3, wide<u"ffl">()),
    row(0xFB05, 0xFB06, 1, 3, wide<u"st">()),
    // Blocks FE and FF
    row(0xFEFF, 0xFEFF, 0, 1),
    row(0xFF01, 0xFF03, 3, 2),
    row(0xFF04, 0xFF04, 3, 5, wide<u"s">()),
    row(0xFF05, 0xFF05, 3, 4, wide<u"percent">()),
    row(0xFF06, 0xFF06, 3, 4, wide<u"and">()),
    row(0xFF07, 0xFF07, 3, 1),
    row(0xFF08, 0xFF0B, 3, 2),
    row(0xFF0C, 0xFF0C, 3, 7),
    row(0xFF0D, 0xFF0D, 3, 2),
    row(0xFF0E, 0xFF0E, 3, 7),
    row(0xFF0F, 0xFF0F, 3, 2),
    shift(0xFF10, 0xFF19, 2, 3, -65248),
    row(0xFF1A, 0xFF20, 3, 2),
    shift(0xFF21, 0xFF3A, 1, 3, -65216),
    row(0xFF3B, 0xFF3F, 3, 2),
    row(0xFF40, 0xFF40, 3, 1),
    shift(0xFF41, 0xFF5A, 1, 3, -65248),
    row(0xFF5B, 0xFF65, 3, 2),
    row(0xFF66, 0xFF66, 1, 3, wide<u"\u30F2">()),  // ヲ
    row(0xFF67, 0xFF6F, 1, 0),
    row(0xFF70, 0xFF70, 1, 1),
    row(0xFF71, 0xFF71, 1, 3, wide<u"\u30A2">()),  // ア
    row(0xFF72, 0xFF72, 1, 3, wide<u"\u30A4">()),  // イ
    row(0xFF73, 0xFF73, 1, 3, wide<u"\u30A6">()),  // ウ
    row(0xFF74, 0xFF74, 1, 3, wide<u"\u30A8">()),  // エ
    shift(0xFF75, 0xFF76, 1, 3, -52939),
    row(0xFF77, 0xFF77, 1, 3, wide<u"\u30AD">()),  // キ
    row(0xFF78, 0xFF78, 1, 3, wide<u"\u30AF">()),  // ク
    row(0xFF79, 0xFF79, 1, 3, wide<u"\u30B1">()),  // ケ
    row(0xFF7A, 0xFF7A, 1, 3, wide<u"\u30B3">()),  // コ
    row(0xFF7B, 0xFF7B, 1, 3, wide<u"\u30B5">()),  // サ
    row(0xFF7C, 0xFF7C, 1, 3, wide<u"\u30B7">()),  // シ
    row(0xFF7D, 0xFF7D, 1, 3, wide<u"\u30B9">()),  // ス
    row(0xFF7E, 0xFF7E, 1, 3, wide<u"\u30BB">()),  // セ
    row(0xFF7F, 0xFF7F, 1, 3, wide<u"\u30BD">()),  // ソ
    row(0xFF80, 0xFF80, 1, 3, wide<u"\u30BF">()),  // タ
    row(0xFF81, 0xFF81, 1, 3, wide<u"\u30C1">()),  // チ
    row(0xFF82, 0xFF82, 1, 3, wide<u"\u30C4">()),  // ツ
    row(0xFF83, 0xFF83, 1, 3, wide<u"\u30C6">()),  // テ
    row(0xFF84, 0xFF84, 1, 3, wide<u"\u30C8">()),  // ト
    shift(0xFF85, 0xFF8A, 1, 3, -52923),
    row(0xFF8B, 0xFF8B, 1, 3, wide<u"\u30D2">()),  // ヒ
    row(0xFF8C, 0xFF8C, 1, 3, wide<u"\u30D5">()),  // フ
    row(0xFF8D, 0xFF8D, 1, 3, wide<u"\u30D8">()),  // ヘ
    row(0xFF8E, 0xFF8E, 1, 3, wide<u"\u30DB">()),  // ホ
    shift(0xFF8F, 0xFF93, 1, 3, -52913),
    row(0xFF94, 0xFF94, 1, 3, wide<u"\u30E4">()),  // ヤ
    row(0xFF95, 0xFF95, 1, 3, wide<u"\u30E6">()),  // ユ
    shift(0xFF96, 0xFF9B, 1, 3, -52910),
    row(0xFF9C, 0xFF9C, 1, 3, wide<u"\u30EF">()),  // ワ
    row(0xFF9D, 0xFF9D, 1, 3, wide<u"\u30F3">()),  // ン
    row(0xFF9E, 0xFF9F, 1, 1),
    row(0xFFE0, 0xFFE0, 3, 2),
    row(0xFFE1, 0xFFE1, 3, 5, wide<u"l">()),
    row(0xFFE5, 0xFFE5, 3, 2),
    row(0xFFFE, 0xFFFE, 0, 1),
};

// Rows of the ideograph blocks fixed beside the generated ones: numerals fold
// into ASCII digits (class 2), a few forms fold into the private use area.
struct CjkExtra {
    uint16_t src;
    uint16_t dst;
    uint8_t cls;
};

constexpr CjkExtra kCjkExtras[] = {
    {0x4E00, u'1', kClassDigit}, {0x4E8C, u'2', kClassDigit}, {0x4E09, u'3', kClassDigit},
    {0x56DB, u'4', kClassDigit}, {0x4E94, u'5', kClassDigit}, {0x516D, u'6', kClassDigit},
    {0x4E03, u'7', kClassDigit}, {0x516B, u'8', kClassDigit}, {0x4E5D, u'9', kClassDigit},
    {0x4E3C, 0x4E95, kClassLetter},  // bowl sign to well
    {0x4E7E, 0x5E72, kClassLetter},  // dry
    {0x7D2C, 0xE837, kClassLetter}, {0x819E, 0xE83F, kClassLetter}, {0x93FA, 0xE84B, kClassLetter},
    {0x9481, 0xE84F, kClassLetter}, {0x9D37, 0xE85E, kClassLetter}, {0x9D84, 0xE85F, kClassLetter},
    {0x9DAA, 0xE860, kClassLetter}, {0x9DFF, 0xE862, kClassLetter},
};

constexpr bool block_exists(unsigned block) {
    return block <= 0x05 || block == 0x20 || block == 0x30 || (block >= 0x4E && block <= 0x9F) || block == 0xFA ||
           block == 0xFB || block == 0xFE || block == 0xFF;
}
constexpr bool is_cjk_block(unsigned block) { return block >= 0x4E && block <= 0x9F; }

constexpr bool rows_stay_in_blocks() {
    for (const RowRange &r : kRows)
        if ((r.first >> 8) != (r.last >> 8) || r.first > r.last || !block_exists(r.first >> 8)) return false;
    return true;
}
static_assert(rows_stay_in_blocks(), "every row range lies inside one existing block");

// Storage of the one-unit replacements of a block (shifted rows and the
// ideograph folds), one zero-terminated unit per code point.
using UnitPool = std::array<std::array<uint16_t, 2>, 256>;

constexpr UnitPool make_pool(unsigned block) {
    UnitPool pool{};
    for (const RowRange &r : kRows) {
        if ((r.first >> 8) != block || !r.shifted) continue;
        for (uint32_t cp = r.first; cp <= r.last; ++cp)
            pool[cp & 0xFF][0] = be16(static_cast<uint16_t>(static_cast<int32_t>(cp) + r.shift));
    }
    if (is_cjk_block(block)) {
        for (const CjkFold &f : simplified_rows)
            if ((f.src >> 8) == block) pool[f.src & 0xFF][0] = be16(f.dst);
        for (const CjkExtra &e : kCjkExtras)
            if ((e.src >> 8) == block) pool[e.src & 0xFF][0] = be16(e.dst);
    }
    return pool;
}

template <unsigned B>
inline constexpr UnitPool kPool = make_pool(B);

using DescBlock = std::array<UniDesc, 256>;

constexpr DescBlock make_block(unsigned block, const UnitPool &pool) {
    DescBlock rows{};
    for (UniDesc &d : rows) d = {kClassUnclassified, kActKeep, nullptr, 0};
    for (const RowRange &r : kRows) {
        if ((r.first >> 8) != block) continue;
        for (uint32_t cp = r.first; cp <= r.last; ++cp) {
            const unsigned low = cp & 0xFF;
            if (r.shifted)
                rows[low] = {r.cls, r.action, pool[low].data(), 1};
            else
                rows[low] = {r.cls, r.action, r.repl.text, r.repl.len};
        }
    }
    if (is_cjk_block(block)) {
        for (const CjkFold &f : simplified_rows)
            if ((f.src >> 8) == block) rows[f.src & 0xFF] = {kClassLetter, kActReplace, pool[f.src & 0xFF].data(), 1};
        for (const CjkExtra &e : kCjkExtras)
            if ((e.src >> 8) == block) rows[e.src & 0xFF] = {e.cls, kActReplace, pool[e.src & 0xFF].data(), 1};
    }
    return rows;
}

template <unsigned B>
inline constexpr DescBlock kBlock = make_block(B, kPool<B>);

template <unsigned B>
constexpr const UniDesc *block_pointer() {
    if constexpr (block_exists(B))
        return kBlock<B>.data();
    else
        return nullptr;
}

template <size_t... I>
constexpr std::array<const UniDesc *, 256> make_charblock(std::index_sequence<I...>) {
    return {block_pointer<I>()...};
}

// Token mode: hiragana letters stay as they are; everything else defers.
constexpr DescBlock make_token_block() {
    DescBlock rows{};
    for (unsigned low = 0; low < 256; ++low) {
        const unsigned cp = 0x3000 + low;
        const bool kept = cp == 0x3042 || cp == 0x3044 || cp == 0x3046 || cp == 0x3048 ||
                          (cp >= 0x304A && cp <= 0x3082) || cp == 0x3084 || cp == 0x3086 ||
                          (cp >= 0x3088 && cp <= 0x3096);
        rows[low] = kept ? UniDesc{kClassLetter, kActKeep, nullptr, 0}
                         : UniDesc{kClassUnclassified, kActSeeMain, nullptr, 0};
    }
    return rows;
}
constexpr DescBlock kTokenBlock30 = make_token_block();

constexpr UniPair pair(uint16_t first, uint16_t second, Repl repl) {
    return {be16(first), be16(second), {kClassLetter, kActReplace, repl.text, repl.len}};
}

constexpr WordRow word(Repl r) { return {r.text, r.len}; }
constexpr WordPair word_pair(Repl match, Repl repl) { return {match.text, match.len, repl.text, repl.len}; }

}  // namespace

constexpr std::array<const UniDesc *, 256> charblock = make_charblock(std::make_index_sequence<256>{});
constexpr UniDesc default_ud = {kClassUnclassified, kActKeep, nullptr, 0};
constexpr std::array<const UniDesc *, 256> charblock_tok = [] {
    std::array<const UniDesc *, 256> out{};
    out[0x30] = kTokenBlock30.data();
    return out;
}();

// Half-width katakana followed by the voiced (FF9E) or semi-voiced (FF9F)
// mark: one full-width voiced katakana.
constexpr UniPair unipairs[] = {
    pair(0xFF76, 0xFF9E, wide<u"\u30AC">()),
    pair(0xFF77, 0xFF9E, wide<u"\u30AE">()),
    pair(0xFF78, 0xFF9E, wide<u"\u30B0">()),
    pair(0xFF79, 0xFF9E, wide<u"\u30B2">()),
    pair(0xFF7A, 0xFF9E, wide<u"\u30B4">()),
    pair(0xFF7B, 0xFF9E, wide<u"\u30B6">()),
    pair(0xFF7C, 0xFF9E, wide<u"\u30B8">()),
    pair(0xFF7D, 0xFF9E, wide<u"\u30BA">()),
    pair(0xFF7E, 0xFF9E, wide<u"\u30BC">()),
    pair(0xFF7F, 0xFF9E, wide<u"\u30BE">()),
    pair(0xFF80, 0xFF9E, wide<u"\u30C0">()),
    pair(0xFF81, 0xFF9E, wide<u"\u30C2">()),
    pair(0xFF82, 0xFF9E, wide<u"\u30C5">()),
    pair(0xFF83, 0xFF9E, wide<u"\u30C7">()),
    pair(0xFF84, 0xFF9E, wide<u"\u30C9">()),
    pair(0xFF8A, 0xFF9E, wide<u"\u30D0">()),
    pair(0xFF8B, 0xFF9E, wide<u"\u30D3">()),
    pair(0xFF8C, 0xFF9E, wide<u"\u30D6">()),
    pair(0xFF8D, 0xFF9E, wide<u"\u30D9">()),
    pair(0xFF8E, 0xFF9E, wide<u"\u30DC">()),
    pair(0xFF8A, 0xFF9F, wide<u"\u30D1">()),
    pair(0xFF8B, 0xFF9F, wide<u"\u30D4">()),
    pair(0xFF8C, 0xFF9F, wide<u"\u30D7">()),
    pair(0xFF8D, 0xFF9F, wide<u"\u30DA">()),
    pair(0xFF8E, 0xFF9F, wide<u"\u30DD">()),
};
constexpr uint32_t unipaircnt = sizeof unipairs / sizeof unipairs[0];

// Range of the second units of the pairs, as code points: a unit outside it
// cannot end a pair, which spares the search for nearly every position.
constexpr UniPairSeconds unipair_seconds = [] {
    UniPairSeconds r{0xFFFF, 0};
    for (const UniPair &p : unipairs) {
        const uint16_t v = be16(p.second);
        if (v < r.first) r.first = v;
        if (v > r.last) r.last = v;
    }
    return r;
}();

// Elided articles: d' and l'.
constexpr WordRow contlist[] = {
    word(wide<u"d'">()),
    word(wide<u"l'">()),
    {nullptr, 0},
};

// Articles and conjunctions of English, Spanish, Italian, French, German
// and Dutch.
constexpr WordRow remlist[] = {
    word(wide<u"a">()),     word(wide<u"an">()),     word(wide<u"and">()),   word(wide<u"of">()),
    word(wide<u"or">()),    word(wide<u"the">()),    word(wide<u"de">()),    word(wide<u"el">()),
    word(wide<u"en">()),    word(wide<u"la">()),     word(wide<u"las">()),   word(wide<u"los">()),
    word(wide<u"o">()),     word(wide<u"un">()),     word(wide<u"y">()),     word(wide<u"agli">()),
    word(wide<u"da">()),    word(wide<u"dagli">()),  word(wide<u"dallo">()), word(wide<u"degli">()),
    word(wide<u"delle">()), word(wide<u"di">()),     word(wide<u"e">()),     word(wide<u"gli">()),
    word(wide<u"il">()),    word(wide<u"le">()),     word(wide<u"les">()),   word(wide<u"negli">()),
    word(wide<u"sugli">()), word(wide<u"sulla">()),  word(wide<u"sullo">()), word(wide<u"das">()),
    word(wide<u"het">()),   word(wide<u"und">()),    {nullptr, 0},
};

// Roman numerals i to xxx, spelled.
constexpr WordPair rompair[] = {
#define OMBR_ROMAN(m, r) word_pair(wide<u"" m>(), wide<u"" r>())
    OMBR_ROMAN("i", "one"),
    OMBR_ROMAN("ii", "two"),
    OMBR_ROMAN("iii", "three"),
    OMBR_ROMAN("iv", "four"),
    OMBR_ROMAN("v", "five"),
    OMBR_ROMAN("vi", "six"),
    OMBR_ROMAN("vii", "seven"),
    OMBR_ROMAN("viii", "eight"),
    OMBR_ROMAN("ix", "nine"),
    OMBR_ROMAN("x", "ten"),
    OMBR_ROMAN("xi", "eleven"),
    OMBR_ROMAN("xii", "twelve"),
    OMBR_ROMAN("xiii", "thirteen"),
    OMBR_ROMAN("xiv", "fourteen"),
    OMBR_ROMAN("xv", "fifteen"),
    OMBR_ROMAN("xvi", "sixteen"),
    OMBR_ROMAN("xvii", "seventeen"),
    OMBR_ROMAN("xviii", "eighteen"),
    OMBR_ROMAN("xix", "nineteen"),
    OMBR_ROMAN("xx", "twenty"),
    OMBR_ROMAN("xxi", "twenty one"),
    OMBR_ROMAN("xxii", "twenty two"),
    OMBR_ROMAN("xxiii", "twenty three"),
    OMBR_ROMAN("xxiv", "twenty four"),
    OMBR_ROMAN("xxv", "twenty five"),
    OMBR_ROMAN("xxvi", "twenty six"),
    OMBR_ROMAN("xxvii", "twenty seven"),
    OMBR_ROMAN("xxviii", "twenty eight"),
    OMBR_ROMAN("xxix", "twenty nine"),
    OMBR_ROMAN("xxx", "thirty"),
#undef OMBR_ROMAN
    {nullptr, 0, nullptr, 0},
};

// Replacement pairs: the doubled article, then voiced kana written as base
// plus mark, iteration marks and small-vowel loan sounds. Rows mapping a base
// to itself are part of the table as it stands.
constexpr WordPair reppair[] = {
#define P(m, r) word_pair(m, r)
    // 0: a doubled article joins into one word
    P(wide<u"the the">(), wide<u"thethe">()),
    // 1-28: katakana with the half-width voiced and semi-voiced marks
    P(wide<u"\u30F2\uFF9E">(), wide<u"\u30FA">()),
    P(wide<u"\u30A6\uFF9E">(), wide<u"\u30D6">()),
    P(wide<u"\u30AB\uFF9E">(), wide<u"\u30AC">()),
    P(wide<u"\u30AD\uFF9E">(), wide<u"\u30AE">()),
    P(wide<u"\u30B0\uFF9E">(), wide<u"\u30B0">()),
    P(wide<u"\u30B1\uFF9E">(), wide<u"\u30B2">()),
    P(wide<u"\u30B4\uFF9E">(), wide<u"\u30B4">()),
    P(wide<u"\u30B6\uFF9E">(), wide<u"\u30B6">()),
    P(wide<u"\u30B7\uFF9E">(), wide<u"\u30B8">()),
    P(wide<u"\u30B9\uFF9E">(), wide<u"\u30BA">()),
    P(wide<u"\u30BB\uFF9E">(), wide<u"\u30BC">()),
    P(wide<u"\u30BD\uFF9E">(), wide<u"\u30BE">()),
    P(wide<u"\u30BF\uFF9E">(), wide<u"\u30C0">()),
    P(wide<u"\u30C1\uFF9E">(), wide<u"\u30C2">()),
    P(wide<u"\u30C4\uFF9E">(), wide<u"\u30C5">()),
    P(wide<u"\u30C6\uFF9E">(), wide<u"\u30C7">()),
    P(wide<u"\u30C8\uFF9E">(), wide<u"\u30C9">()),
    P(wide<u"\u30CF\uFF9E">(), wide<u"\u30D0">()),
    P(wide<u"\u30CF\uFF9F">(), wide<u"\u30D1">()),
    P(wide<u"\u30D2\uFF9E">(), wide<u"\u30D3">()),
    P(wide<u"\u30D2\uFF9F">(), wide<u"\u30D4">()),
    P(wide<u"\u30D5\uFF9E">(), wide<u"\u30D6">()),
    P(wide<u"\u30D5\uFF9F">(), wide<u"\u30D7">()),
    P(wide<u"\u30D8\uFF9E">(), wide<u"\u30D9">()),
    P(wide<u"\u30D8\uFF9F">(), wide<u"\u30DA">()),
    P(wide<u"\u30DB\uFF9E">(), wide<u"\u30DC">()),
    P(wide<u"\u30DB\uFF9F">(), wide<u"\u30DD">()),
    P(wide<u"\u30EF\uFF9E">(), wide<u"\u30F7">()),
    // 29-56: the same with the combining marks
    P(wide<u"\u30F2\u3099">(), wide<u"\u30FA">()),
    P(wide<u"\u30A6\u3099">(), wide<u"\u30D6">()),
    P(wide<u"\u30AB\u3099">(), wide<u"\u30AC">()),
    P(wide<u"\u30AD\u3099">(), wide<u"\u30AE">()),
    P(wide<u"\u30B0\u3099">(), wide<u"\u30B0">()),
    P(wide<u"\u30B1\u3099">(), wide<u"\u30B2">()),
    P(wide<u"\u30B4\u3099">(), wide<u"\u30B4">()),
    P(wide<u"\u30B6\u3099">(), wide<u"\u30B6">()),
    P(wide<u"\u30B7\u3099">(), wide<u"\u30B8">()),
    P(wide<u"\u30B9\u3099">(), wide<u"\u30BA">()),
    P(wide<u"\u30BB\u3099">(), wide<u"\u30BC">()),
    P(wide<u"\u30BD\u3099">(), wide<u"\u30BE">()),
    P(wide<u"\u30BF\u3099">(), wide<u"\u30C0">()),
    P(wide<u"\u30C1\u3099">(), wide<u"\u30C2">()),
    P(wide<u"\u30C4\u3099">(), wide<u"\u30C5">()),
    P(wide<u"\u30C6\u3099">(), wide<u"\u30C7">()),
    P(wide<u"\u30C8\u3099">(), wide<u"\u30C9">()),
    P(wide<u"\u30CF\u3099">(), wide<u"\u30D0">()),
    P(wide<u"\u30CF\u309A">(), wide<u"\u30D1">()),
    P(wide<u"\u30D2\u3099">(), wide<u"\u30D3">()),
    P(wide<u"\u30D2\u309A">(), wide<u"\u30D4">()),
    P(wide<u"\u30D5\u3099">(), wide<u"\u30D6">()),
    P(wide<u"\u30D5\u309A">(), wide<u"\u30D7">()),
    P(wide<u"\u30D8\u3099">(), wide<u"\u30D9">()),
    P(wide<u"\u30D8\u309A">(), wide<u"\u30DA">()),
    P(wide<u"\u30DB\u3099">(), wide<u"\u30DC">()),
    P(wide<u"\u30DB\u309A">(), wide<u"\u30DD">()),
    P(wide<u"\u30EF\u3099">(), wide<u"\u30F7">()),
    // 57-60: iteration marks
    P(wide<u"\u30B9\u309D">(), wide<u"\u30B9\u30B9">()),
    P(wide<u"\u30B9\u309E">(), wide<u"\u30B9\u30BA">()),
    P(wide<u"\u30B9\u30FD">(), wide<u"\u30B9\u30B9">()),
    P(wide<u"\u30B9\u30FE">(), wide<u"\u30B9\u30BA">()),
    // 61-66: small vowels after a base, as in loanwords
    P(wide<u"\u30D6\u30A2">(), wide<u"\u30D0">()),
    P(wide<u"\u30D6\u30A4">(), wide<u"\u30D3">()),
    P(wide<u"\u30D6\u30A6">(), wide<u"\u30D6">()),
    P(wide<u"\u30D6\u30A8">(), wide<u"\u30D9">()),
    P(wide<u"\u30D6\u30AA">(), wide<u"\u30DC">()),
    P(wide<u"\u30D5\u30A4">(), wide<u"\u30D2">()),
#undef P
    {nullptr, 0, nullptr, 0},
};

// The block pass's ranges: none in this system, so that pass copies.
constexpr UniBlock uniblocks[1] = {{0, 0, 0}};
constexpr uint32_t uniblockcnt = 0;

constexpr uint16_t uni_s = be16(u's');
constexpr uint16_t uni_space = be16(u' ');

}  // namespace ombr::textcorr
