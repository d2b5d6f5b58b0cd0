// Fuzzes the UTF-8 and UCS-2 conversions. The first byte picks the byte
// order, an output room and an allocation to fail; the rest is read both as
// UTF-8 bytes and as 16-bit units. Properties:
//  - UTF-8 to UCS-2 succeeds exactly when the bytes are sequences of the
//    system's UTF-8 (one to three bytes), and gives their code points, one
//    unit each, swapped when asked; what it wrote before a bad sequence is
//    that many whole units;
//  - UCS-2 to UTF-8 of any units gives their encodings (surrogates and 0
//    too), needs one spare byte of room, and a room too small fails with
//    what fitted; UTF-8 back to UCS-2 gives the same units again;
//  - UTF-8 through UCS-2 and back gives each character in its shortest form
//    (the input itself when it has no overlong forms);
//  - the allocating forms agree with the buffer forms and with
//    ombr_string_isvalid; a failed allocation gives 0x90030002, leaves the
//    output alone and nothing allocated.
#include "fuzz/fuzz_support.h"
#include "ombr/ombr_string.h"

namespace {

using fuzz::require;

void check_utf8_to_ucs2(const std::string &bytes, uint8_t swap) {
    std::vector<uint16_t> out(bytes.size() + 1, 0xAAAA);
    uint32_t written = 12345;
    const uint32_t status = ombr_string_utf8_to_ucs2_buf(bytes.data(), static_cast<uint32_t>(bytes.size()),
                                                         out.data(), &written, swap);
    std::vector<uint32_t> points;
    const bool valid = fuzz::decode_all(bytes, &points);
    require(status == (valid ? 0u : OMBR_STRING_ERR_INVALID_UTF8), "utf8_to_ucs2_buf status");
    // Also before a bad sequence: one unit for each character before it.
    require(written == points.size() * 2, "one unit per character");
    if (!valid) return;
    for (size_t i = 0; i < points.size(); ++i) {
        const uint16_t unit = swap ? static_cast<uint16_t>((out[i] >> 8) | (out[i] << 8)) : out[i];
        require(unit == points[i], "unit is the code point");
    }
    require(out[points.size()] == 0xAAAA, "nothing written past the units");

    // And back: the shortest form of every character.
    std::string shortest;
    for (uint32_t cp : points) shortest += fuzz::encode_model(cp);
    std::vector<char> back(shortest.size() + 1, '\x55');
    uint32_t room = static_cast<uint32_t>(back.size());
    require(ombr_string_ucs2_to_utf8_buf(out.data(), written, back.data(), &room, swap) == 0, "back to UTF-8");
    require(room == shortest.size() && std::memcmp(back.data(), shortest.data(), shortest.size()) == 0,
            "round trip gives the shortest forms");
}

void check_ucs2_to_utf8(const std::vector<uint16_t> &units, uint8_t swap, uint32_t room_cut) {
    std::string expected;
    for (uint16_t u : units) expected += fuzz::encode_model(swap ? static_cast<uint16_t>((u >> 8) | (u << 8)) : u);
    std::vector<char> out(expected.size() + 8, '\x55');
    // Full room (one spare byte) and a room cut short.
    uint32_t room = static_cast<uint32_t>(expected.size() + 1);
    const uint32_t bytes = static_cast<uint32_t>(units.size() * 2);
    require(ombr_string_ucs2_to_utf8_buf(units.data(), bytes, out.data(), &room, swap) == 0, "ucs2_to_utf8_buf");
    require(room == expected.size() && std::memcmp(out.data(), expected.data(), expected.size()) == 0,
            "encodings of the units");
    require(out[expected.size()] == '\x55', "no terminator written");
    // Room for three bytes a unit and more takes the one-run encoder: the
    // same bytes as the unit-by-unit path above.
    std::vector<char> wide_room(units.size() * 3 + 2, '\x55');
    uint32_t ample = static_cast<uint32_t>(wide_room.size());
    require(ombr_string_ucs2_to_utf8_buf(units.data(), bytes, wide_room.data(), &ample, swap) == 0 &&
                ample == expected.size() && std::memcmp(wide_room.data(), expected.data(), expected.size()) == 0,
            "the one-run encoder agrees with the unit-by-unit one");

    if (!units.empty() && room_cut <= expected.size()) {
        uint32_t small = room_cut;
        const uint32_t status = ombr_string_ucs2_to_utf8_buf(units.data(), bytes, out.data(), &small, swap);
        require(status == OMBR_STRING_ERR_BUFFER_TOO_SMALL, "too small a room fails");
        require(small < room_cut || room_cut == 0, "what fitted, with one byte spare");
        require(std::memcmp(out.data(), expected.data(), small) == 0, "what fitted is the start");
    }
    if (bytes != 0) {
        uint32_t odd = 64;
        require(ombr_string_ucs2_to_utf8_buf(units.data(), bytes - 1, out.data(), &odd, swap) ==
                    OMBR_STRING_ERR_ODD_UCS2 && odd == 0,
                "an odd byte count is refused");
    }

    // UTF-8 back to UCS-2 restores the units exactly.
    std::vector<uint16_t> again(units.size() + 1, 0);
    uint32_t written = 0;
    require(ombr_string_utf8_to_ucs2_buf(expected.data(), static_cast<uint32_t>(expected.size()), again.data(),
                                         &written, swap) == 0,
            "encodings read back");
    require(written == bytes && (bytes == 0 || std::memcmp(again.data(), units.data(), bytes) == 0), "units round trip");
}

// The allocating forms on the text up to its first 0, with the n-th
// allocation failing when fail_nth is not 0.
void check_allocating(const std::string &text, uint8_t swap, uint64_t fail_nth) {
    const fuzz::BlockCount blocks;
    std::vector<uint32_t> points;
    const bool valid = fuzz::decode_all(text, &points);
    require(valid == (ombr_string_isvalid(text.c_str()) != 0), "isvalid agrees with the decoder");

    uint16_t sentinel_unit = 0;
    uint16_t *const sentinel = &sentinel_unit;  // must stay in the output on failure
    uint16_t *wide = sentinel;
    uint32_t status = 0;
    const bool failed_alloc = fuzz::with_failing_allocation(
        fail_nth, [&] { status = ombr_string_utf8_to_ucs2(text.c_str(), &wide, swap); });
    if (failed_alloc) {
        require(status == OMBR_STRING_ERR_CONVERT_NO_MEMORY && wide == sentinel, "no memory, output untouched");
        blocks.check("failed conversion leaves nothing");
        return;
    }
    require(status == (valid ? 0u : OMBR_STRING_ERR_INVALID_UTF8), "utf8_to_ucs2 status");
    if (!valid) {
        require(wide == sentinel, "refused text leaves the output");
        blocks.check("refused conversion leaves nothing");
        return;
    }
    require(ombr_string_charlen(text.c_str()) == points.size(), "charlen counts the characters");
    // An overlong form of 0 ("\xC0\x80") ends the wide text there.
    for (size_t i = 0; i < points.size(); ++i)
        if (points[i] == 0) points.resize(i);
    require(ombr_string_charlen_uni(wide) == points.size(), "charlen_uni");
    require(ombr_string_bytelen_uni(wide) == (points.size() + 1) * 2, "bytelen_uni");

    char *back = nullptr;
    uint32_t status_back = 0;
    const bool failed_back = fuzz::with_failing_allocation(
        fail_nth > 1 ? fail_nth - 1 : 0, [&] { status_back = ombr_string_ucs2_to_utf8(wide, &back, swap); });
    if (failed_back) {
        require(status_back == OMBR_STRING_ERR_CONVERT_NO_MEMORY && back == nullptr, "no memory on the way back");
    } else {
        require(status_back == 0 && back, "back to UTF-8");
        std::string shortest;
        for (uint32_t cp : points) shortest += fuzz::encode_model(cp);
        require(back == shortest, "allocating round trip");
        ombr_string_free(back);
    }
    ombr_memory_free(wide);
    blocks.check("conversions give back their blocks");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 4096) return 0;
    fuzz::Input in(data, size);
    const uint8_t control = in.byte();
    const uint8_t swap = control & 1;
    const uint32_t room_cut = in.byte();
    const uint64_t fail_nth = (control >> 1) & 3;  // 0: none; 1 to 3
    const std::string bytes(reinterpret_cast<const char *>(data + 2 < data + size ? data + 2 : data + size),
                            size > 2 ? size - 2 : 0);

    check_utf8_to_ucs2(bytes, swap);
    std::vector<uint16_t> units(bytes.size() / 2);
    if (!units.empty()) std::memcpy(units.data(), bytes.data(), units.size() * 2);
    check_ucs2_to_utf8(units, swap, room_cut);
    check_allocating(std::string(bytes.c_str()), swap, fail_nth);
    return 0;
}
