// Keys of the hash table: their djb2 hash and length in one pass, and the
// comparison of a key with an entry's copied key text.
//
// The hash is h = h * 33 + c from 5381 over the key's bytes; without case
// sensitivity 'a' to 'z' count as upper case (bytes of 128 and above never
// fold). Several bytes are taken a step: n bytes add h * 33^n plus their
// weighted sum, which equals n single steps in 32-bit arithmetic.
//
// The scans read whole words (8 or 16 bytes) and may run past a key's
// terminator, though never into the next page, so never into memory that
// cannot be read; a word that would reach into the next page is left to
// the byte-wise loop. The sanitizers would report those bytes: for them
// the scans are functions of their own, left out of their checks.
#ifndef OMBR_HASHTABLE_KEY_H
#define OMBR_HASHTABLE_KEY_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OMBR_KEY_SCAN [[gnu::noinline]] __attribute__((no_sanitize("address", "thread")))
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define OMBR_KEY_SCAN [[gnu::noinline]] __attribute__((no_sanitize("address", "thread")))
#endif
#endif
#ifndef OMBR_KEY_SCAN
#define OMBR_KEY_SCAN [[gnu::always_inline]] inline
#define OMBR_KEY_SCAN_ATTRIBUTES inline
#else
#define OMBR_KEY_SCAN_ATTRIBUTES __attribute__((no_sanitize("address", "thread"))) inline
#endif

namespace ombr::dt::key {

constexpr uintptr_t kPageBytes = 4096;  // the smallest page size of the targets

// Bytes of an entry's key text that may always be read from its start,
// whatever the key's length: the entry's block holds at least this many.
constexpr size_t kTextReadable = 16;

// A key's hash and length (bytes before the terminator).
struct KeyHash {
    uint32_t hash;
    uint32_t length;
};

// A key that hash_short() took: with SSE2 also its first 16 bytes as read
// (those behind the terminator are arbitrary), for the comparison.
struct ShortKey {
    KeyHash kh;
#if defined(__SSE2__)
    __m128i head;
#endif
};

constexpr uint32_t pow33(unsigned k) { return k == 0 ? 1u : 33u * pow33(k - 1); }
// 33 is odd, so it has an inverse modulo 2^32 (Newton's iteration doubles
// the correct low bits from 33 * 33 = 1 mod 2^5 on).
constexpr uint32_t inverse33() {
    uint32_t x = 33;
    for (int i = 0; i < 5; ++i) x *= 2u - 33u * x;
    return x;
}
static_assert(33u * inverse33() == 1u);
constexpr uint32_t inverse_pow33(unsigned k) { return k == 0 ? 1u : inverse33() * inverse_pow33(k - 1); }

template <uint32_t (*F)(unsigned), size_t... I>
constexpr auto table_of(std::index_sequence<I...>) {
    struct Table {
        uint32_t at[sizeof...(I)];
    };
    return Table{{F(I)...}};
}
inline constexpr auto kPow33 = table_of<pow33>(std::make_index_sequence<17>());
inline constexpr auto kInversePow33 = table_of<inverse_pow33>(std::make_index_sequence<17>());

// Bytes in text order, first byte lowest.
inline uint64_t load8(const unsigned char *p) {
    uint64_t w;
    __builtin_memcpy(&w, p, 8);
    if constexpr (std::endian::native == std::endian::big) w = __builtin_bswap64(w);
    return w;
}
// The same for the scans, which may read past the terminator.
OMBR_KEY_SCAN_ATTRIBUTES uint64_t scan_load8(const unsigned char *p) {
    uint64_t w;
    __builtin_memcpy(&w, p, 8);
    if constexpr (std::endian::native == std::endian::big) w = __builtin_bswap64(w);
    return w;
}
inline uint32_t load4(const unsigned char *p) {
    uint32_t w;
    __builtin_memcpy(&w, p, 4);
    if constexpr (std::endian::native == std::endian::big) w = __builtin_bswap32(w);
    return w;
}

// The rest of a key a byte at a time, from p on with h so far.
template <bool kFold>
[[gnu::noinline]] inline KeyHash hash_bytewise(const unsigned char *start, const unsigned char *p, uint32_t h) {
    for (; *p; ++p) {
        const uint32_t c = *p;
        h = h * 33u + (kFold && c - 'a' < 26u ? c - 32u : c);
    }
    return {h, static_cast<uint32_t>(p - start)};
}

// --- Eight bytes a step, in general-purpose registers ---------------------

// Bytes 'a' to 'z' of a word lowered by 32.
inline uint64_t fold_word(uint64_t w) {
    constexpr uint64_t k7F = 0x7F7F7F7F7F7F7F7Full, k80 = 0x8080808080808080ull;
    const uint64_t low7 = w & k7F;
    const uint64_t from_a = low7 + 0x1F1F1F1F1F1F1F1Full;   // top bit: low7 >= 'a'
    const uint64_t above_z = low7 + 0x0505050505050505ull;  // top bit: low7 > 'z'
    return w - ((from_a & ~above_z & ~w & k80) >> 2);
}

// Sum of byte i times 33^(7 - i) over the eight bytes of w, in 32 bits:
// pairs of bytes in 16-bit lanes, pairs of pairs in 32-bit lanes.
inline uint32_t weigh8(uint64_t w) {
    constexpr uint64_t kBytes = 0x00FF00FF00FF00FFull, kPairs = 0x0000FFFF0000FFFFull;
    const uint64_t pairs = (w & kBytes) * 33u + ((w >> 8) & kBytes);             // each below 8671
    const uint64_t quads = (pairs & kPairs) * 1089u + ((pairs >> 16) & kPairs);  // each below 2^24
    return static_cast<uint32_t>(quads) * kPow33.at[4] + static_cast<uint32_t>(quads >> 32);
}

// A word without a zero byte counts in full; in the word with the
// terminator, the bytes before it are moved to the top of the word (the
// rest become zeros, which weigh nothing) and count with 33 to their number.
template <bool kFold>
OMBR_KEY_SCAN KeyHash hash_words(const char *key) {
    constexpr uint64_t kOnes = 0x0101010101010101ull, kHighs = 0x8080808080808080ull;
    const auto *start = reinterpret_cast<const unsigned char *>(key);
    uint32_t h = 5381;
    for (const unsigned char *p = start;; p += 8) {
        if ((reinterpret_cast<uintptr_t>(p) & (kPageBytes - 1)) > kPageBytes - 8) [[unlikely]]
            return hash_bytewise<kFold>(start, p, h);
        const uint64_t w = scan_load8(p);
        if (const uint64_t zero = (w - kOnes) & ~w & kHighs) {
            // The lowest flagged byte is the first zero byte.
            const unsigned before = static_cast<unsigned>(__builtin_ctzll(zero)) / 8;
            if (before != 0) {
                const uint64_t top = w << (64 - 8 * before);
                h = h * kPow33.at[before] + weigh8(kFold ? fold_word(top) : top);
            }
            return {h, static_cast<uint32_t>(p - start) + before};
        }
        h = h * kPow33.at[8] + weigh8(kFold ? fold_word(w) : w);
    }
}

// n bytes of a and b are equal; eight at a time, the last word or half word
// overlapping the one before.
inline bool same_bytes(const char *a, const char *b, uint32_t n) {
    const auto *x = reinterpret_cast<const unsigned char *>(a);
    const auto *y = reinterpret_cast<const unsigned char *>(b);
    if (n >= 8) {
        uint64_t diff = 0;
        for (uint32_t i = 0; i + 8 < n; i += 8) diff |= load8(x + i) ^ load8(y + i);
        return (diff | (load8(x + n - 8) ^ load8(y + n - 8))) == 0;
    }
    if (n >= 4) return ((load4(x) ^ load4(y)) | (load4(x + n - 4) ^ load4(y + n - 4))) == 0;
    for (uint32_t i = 0; i < n; ++i)
        if (x[i] != y[i]) return false;
    return true;
}

#if defined(__SSE2__)
// --- Sixteen bytes a step, in SSE2 registers ------------------------------

// Bytes 'a' to 'z' lowered by 32; as signed bytes, those of 128 and above
// are negative and never reach 'a'.
inline __m128i fold16(__m128i v) {
    const __m128i lower = _mm_andnot_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8('z')), _mm_cmpgt_epi8(v, _mm_set1_epi8('a' - 1)));
    return _mm_sub_epi8(v, _mm_and_si128(lower, _mm_set1_epi8(32)));
}

// Sum of byte i times 33^(15 - i) over the 16 bytes of v, in 32 bits: pairs
// of bytes (b * 33 + b', below 8671) and pairs of pairs (below 2^24) by
// multiply-add, then the four sums of four bytes weighed by powers of 33^4.
inline uint32_t weigh16(__m128i v) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i by33 = _mm_set1_epi32(0x00010021);   // 16-bit lanes 33, 1
    const __m128i by1089 = _mm_set1_epi32(0x00010441);  // 16-bit lanes 1089, 1
    const __m128i pairs = _mm_packs_epi32(_mm_madd_epi16(_mm_unpacklo_epi8(v, zero), by33),
                                          _mm_madd_epi16(_mm_unpackhi_epi8(v, zero), by33));
    const __m128i quads = _mm_madd_epi16(pairs, by1089);
    auto lane = [](uint32_t x) { return static_cast<int>(x); };
    const __m128i even = _mm_mul_epu32(quads, _mm_set_epi32(0, lane(pow33(4)), 0, lane(pow33(12))));
    const __m128i odd = _mm_mul_epu32(_mm_srli_epi64(quads, 32), _mm_set_epi32(0, 1, 0, lane(pow33(8))));
    const __m128i sum = _mm_add_epi64(even, odd);
    return static_cast<uint32_t>(_mm_cvtsi128_si32(sum)) +
           static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_unpackhi_epi64(sum, sum)));
}

// 16 bytes of 0xFF, then 16 of 0: from offset 16 - n, a mask of n bytes.
alignas(32) inline constexpr unsigned char kPrefixMasks[32] = {
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
inline __m128i prefix_mask(unsigned n) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(kPrefixMasks + 16 - n));
}

// Blocks after the first of a key of 16 bytes or more, from p on with h so
// far. A block without a zero byte counts in full; in the block with the
// terminator, the bytes behind it are cleared, so that the weighed sum is
// that of the bytes before it times 33 to the number of cleared bytes,
// which the inverse power takes off again.
template <bool kFold>
[[gnu::always_inline]] inline uint32_t hash_last_block(uint32_t h, __m128i v, unsigned before) {
    v = _mm_and_si128(v, prefix_mask(before));
    return h * kPow33.at[before] + weigh16(kFold ? fold16(v) : v) * kInversePow33.at[16 - before];
}
inline unsigned zero_bytes(__m128i v) {
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_setzero_si128())));
}
inline bool near_page_end(const unsigned char *p) {
    return (reinterpret_cast<uintptr_t>(p) & (kPageBytes - 1)) > kPageBytes - 16;
}

template <bool kFold>
[[gnu::noinline]] OMBR_KEY_SCAN_ATTRIBUTES KeyHash hash_more_blocks(const unsigned char *start, const unsigned char *p,
                                                                  uint32_t h) {
    for (;; p += 16) {
        if (near_page_end(p)) [[unlikely]]
            return hash_bytewise<kFold>(start, p, h);
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        if (const unsigned zeros = zero_bytes(v)) {
            const auto before = static_cast<unsigned>(__builtin_ctz(zeros));
            return {hash_last_block<kFold>(h, v, before), static_cast<uint32_t>(p - start) + before};
        }
        h = h * kPow33.at[16] + weigh16(kFold ? fold16(v) : v);
    }
}

// Any key; the first block, where most keys end, in line.
template <bool kFold>
OMBR_KEY_SCAN KeyHash hash_blocks(const char *key) {
    const auto *start = reinterpret_cast<const unsigned char *>(key);
    if (near_page_end(start)) [[unlikely]]
        return hash_bytewise<kFold>(start, start, 5381);
    const __m128i head = _mm_loadu_si128(reinterpret_cast<const __m128i *>(start));
    const unsigned zeros = zero_bytes(head);
    if (zeros == 0) [[unlikely]]
        return hash_more_blocks<kFold>(start, start + 16, 5381u * kPow33.at[16] + weigh16(kFold ? fold16(head) : head));
    // An empty key clears all 16 bytes and weighs nothing.
    const auto before = static_cast<unsigned>(__builtin_ctz(zeros));
    return {hash_last_block<kFold>(5381, head, before), before};
}

// A key of fewer than 16 bytes that does not start within 16 bytes of a
// page's end, in line and without a call; false for any other key.
template <bool kFold>
OMBR_KEY_SCAN bool hash_short(const char *key, ShortKey &out) {
    const auto *start = reinterpret_cast<const unsigned char *>(key);
    if (near_page_end(start)) return false;
    out.head = _mm_loadu_si128(reinterpret_cast<const __m128i *>(start));
    const unsigned zeros = zero_bytes(out.head);
    if (zeros == 0) return false;
    const auto before = static_cast<unsigned>(__builtin_ctz(zeros));
    out.kh = {hash_last_block<kFold>(5381, out.head, before), before};
    return true;
}
#endif

// The key's hash and length, by the widest scan the target has.
template <bool kFold>
[[gnu::always_inline]] inline KeyHash hash(const char *key) {
#if defined(__SSE2__)
    return hash_blocks<kFold>(key);
#else
    return hash_words<kFold>(key);
#endif
}

#if !defined(__SSE2__)
// Without SSE2 every key is taken.
template <bool kFold>
[[gnu::always_inline]] inline bool hash_short(const char *key, ShortKey &out) {
    out.kh = hash_words<kFold>(key);
    return true;
}
#endif

// A short key and an entry's copied key text of the same length are equal
// byte for byte: with SSE2 in one step, with the head read while hashing
// (the text may be read that far: see kTextReadable).
[[gnu::always_inline]] inline bool same_short_text(const char *text, const char *key, const ShortKey &sk) {
#if defined(__SSE2__)
    (void)key;
    const auto equal = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_cmpeq_epi8(sk.head, _mm_loadu_si128(reinterpret_cast<const __m128i *>(text)))));
    const unsigned wanted = (1u << sk.kh.length) - 1;  // the length is below 16
    return (equal & wanted) == wanted;
#else
    return same_bytes(text, key, sk.kh.length);
#endif
}

}  // namespace ombr::dt::key

#endif
