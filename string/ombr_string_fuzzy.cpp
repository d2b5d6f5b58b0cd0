// Bigram similarity of UTF-8 texts. Each text becomes a table of entries,
// one per pair of adjacent characters plus one per word border; the score
// is the Dice coefficient of the two multisets of entries, in percent.
//
// ombr_string_fuzzycmp_ex compares two texts once. For texts below 200
// bytes no table is built: the shorter text goes into bit rows of its
// characters (up to 64 entries) or, when longer, into a small chained hash
// of its entries, and each entry of the other text takes an equal one out
// as it is produced. Tables of longer texts are sorted and merged. All give
// the size of the multiset intersection, as the pairwise search of
// _bigram_compare_tables_unsorted does (kept for the tests, as is the
// chained hash for every short pair: _bigram_fuzzycmp_hashed).
// ombr_string_create_bigram_table and ombr_string_bigram_table_cmp serve
// many comparisons against one text: tables are sorted once and compared
// by a merge walk.
#include <cstddef>
#include <utility>

#include "string/ombr_string_fuzzy_internal.h"
#include "string/ombr_string_internal.h"

using namespace ombr::fuzzy;

namespace {

constexpr uint32_t kLow16 = 0xFFFFu;

// The one case folding of this comparison: 'A' to 'Z' only.
constexpr uint32_t fold(uint32_t c) { return ombr::str::fold_ascii(c); }

constexpr bool is_blank(uint32_t c) { return c >= 0x01 && c <= 0x20; }

// Bits set in a word, without a call into the compiler's runtime (the
// baseline instruction set has no population count).
constexpr uint32_t popcount(uint64_t x) {
    x -= (x >> 1) & 0x5555555555555555u;
    x = (x & 0x3333333333333333u) + ((x >> 2) & 0x3333333333333333u);
    x = (x + (x >> 4)) & 0x0F0F0F0F0F0F0F0Fu;
    return static_cast<uint32_t>((x * 0x0101010101010101u) >> 56);
}

// A text's entries on the stack, or in a heap block from 200 bytes on; the
// heap block goes with the slot.
class TableSlot {
   public:
    TableSlot() = default;
    TableSlot(const TableSlot &) = delete;
    TableSlot &operator=(const TableSlot &) = delete;
    ~TableSlot() { ombr_memory_free(heap_); }

    // Presets count to byte_length + 1. False for no memory.
    bool prepare(const char *text, uint32_t byte_length) {
        if (byte_length < kLocalEntries) {
            // Entries are left as the stack had them: filling writes them.
            local_.count = byte_length + 1;
            local_.entries = storage_;
            table_ = &local_;
            return true;
        }
        heap_ = _bigram_create_table(text, byte_length);
        table_ = heap_;
        return heap_ != nullptr;
    }

    // Fills the table. A text that yields no entry keeps its preset count;
    // its entries then read as 0, as they do in a zeroed heap table.
    void fill(const char *text, uint8_t skip_space) {
        if (_bigram_fill_table(text, table_, skip_space) == 0 && table_ == &local_)
            ombr_memory_memset(storage_, 0, sizeof(uint32_t) * local_.count);
    }

    ombr_bigram_table *table() const { return table_; }

   private:
    ombr_bigram_table *table_ = nullptr;
    ombr_bigram_table *heap_ = nullptr;
    ombr_bigram_table local_{};
    uint32_t storage_[kLocalEntries];
};

// Walks the entries of `text` in table order, at most `room` of them: the
// steps of _bigram_fill_table. The sink hears of each entry as it is made:
// first(c) for a word's first character against the border (first_ascii
// with the plain_bytes value when it is a plain character), next(c) for
// the pair of the previous character and c (next_ascii when c is a plain
// ASCII character, handing on what the sink's plain_bytes table gives for
// its byte; next_wide when c is 0x80 or more), last() for the
// previous character against the border. Returns the number of entries, 0
// when the text yields none (a table is then left as it was). Runs of plain
// ASCII and runs of wide characters take short paths.

// Plain ASCII characters folded, by byte: 0 for bytes that take the long
// path (NUL, bytes from 0x80 on and, in word mode, blanks).
struct PlainFold {
    uint8_t fold[2][256];
};
constexpr PlainFold kPlainFold = [] {
    PlainFold t{};
    for (unsigned mode = 0; mode < 2; ++mode)
        for (unsigned b = mode ? 0x21 : 0x01; b < 0x80; ++b) t.fold[mode][b] = static_cast<uint8_t>(fold(b));
    return t;
}();

// Small numbers for the ASCII characters of titles, so that bit rows of
// them are few and cheap to clear: 1 to 62 for the printable characters
// once folded (less seven rare ones), kZeroRow for the character 0, which
// only ever stands alone against the border. Other ASCII characters have
// none and are kept like characters outside ASCII.
struct AsciiRows {
    static constexpr uint8_t kZeroRow = 63;
    uint8_t of_char[128];   // by character, 0 for none
    uint8_t of_byte[2][256];  // by byte and word mode, for plain bytes only (as kPlainFold)
};
constexpr AsciiRows kAsciiRows = [] {
    AsciiRows t{};
    uint8_t next = 1;
    for (unsigned c = 0x20; c < 0x7F; ++c) {
        const bool rare = c == '`' || c == '^' || c == '{' || c == '}' || c == '|' || c == '~' || c == '\\';
        if (!rare && fold(c) == c) t.of_char[c] = next++;
    }
    t.of_char[0] = AsciiRows::kZeroRow;
    for (unsigned mode = 0; mode < 2; ++mode)
        for (unsigned b = 0; b < 256; ++b)
            if (kPlainFold.fold[mode][b]) t.of_byte[mode][b] = t.of_char[kPlainFold.fold[mode][b]];
    return t;
}();
static_assert(kAsciiRows.of_char[static_cast<unsigned char>('z')] == AsciiRows::kZeroRow - 1, "62 rows for printable characters");

template <typename Sink, bool kRoomFits = false>
inline uint32_t walk_entries(const char *text, uint32_t room, uint8_t skip_space, Sink &sink) {
    if (!text) return 0;  // decodes nothing
    const auto *p = reinterpret_cast<const unsigned char *>(text);
    uint32_t size = 0;
    uint32_t c = ombr::str::decode_utf8(p, &size);
    if (size == 0) return 0;
    p += size;
    if (skip_space) {
        while (c <= 0x20) {
            if (c == 0) return 0;
            c = ombr::str::decode_utf8(p, &size);
            if (size == 0) return 0;
            p += size;
        }
    }
    if (room == 0) return 0;
    uint32_t n = 1;
    c = fold(c);
    sink.first(c);
    if (c == 0) return n;  // a first character of 0 is the whole table
    const uint8_t *const plain = Sink::plain_bytes(skip_space);
    for (;;) {
        if constexpr (kRoomFits) {
            // The caller guarantees room for byte length + 1 entries, which
            // no text exceeds, so only the end of the text stops the walk:
            // a run of plain bytes goes without further tests...
            const unsigned char *const run = p;
            for (uint8_t folded; (folded = plain[*p]) != 0; ++p) sink.next_ascii(folded);
            n += static_cast<uint32_t>(p - run);
            // In word mode one space between plain characters ends a word
            // and starts the next.
            if (skip_space && p[0] == ' ') {
                if (const uint8_t folded = plain[p[1]]) {
                    sink.last();
                    sink.first_ascii(folded);
                    p += 2;
                    n += 2;
                    continue;
                }
            }
            // ...and so does a run of characters of two or three bytes that
            // decode to 0x80 or more (neither blank nor end, and unfolded),
            // without a branch on their length. Once a continuation byte
            // follows the lead, the byte after it can be read: at worst it
            // is the terminator.
            for (;;) {
                c = ombr::str::decode_utf8(p, &size);
                if (c < 0x80) break;
                p += size;
                ++n;
                sink.next_wide(c);
            }
            if (size == 0) break;
            if (size == 1 && plain[*p]) continue;
        } else {
            if (n >= room) break;
            if (const uint8_t folded = plain[*p]) {
                ++p;
                sink.next_ascii(folded);
                ++n;
                continue;
            }
            c = ombr::str::decode_utf8(p, &size);
            if (size == 0) break;
        }
        p += size;
        c = fold(c);
        if (skip_space && is_blank(c)) {
            // A word ended: its last character against the border, then the
            // next word's first character against the border.
            sink.last();
            ++n;
            do {
                c = ombr::str::decode_utf8(p, &size);
                p += size;
                if (size == 0) c = 0;
            } while (is_blank(c));
            if (c == 0 || n >= room) break;
            sink.first(fold(c));
            ++n;
            continue;
        }
        // c = 0 ends the text: the last character against the border.
        ++n;
        if (c == 0) {
            sink.last();
            break;
        }
        sink.next(c);
    }
    return n;
}

// A sink of walk_entries that packs entries into their table form (low
// half the first character, high half the second or 0 for the border) and
// hands them to put(entry).
template <typename Put>
class PackedEntries {
   public:
    explicit PackedEntries(Put put) : put_(put) {}
    static const uint8_t *plain_bytes(uint8_t skip_space) { return kPlainFold.fold[skip_space ? 1 : 0]; }
    void first(uint32_t c) { put_(prev_ = c & kLow16); }
    void next(uint32_t c) {
        put_(((c & kLow16) << 16) | prev_);
        prev_ = c & kLow16;
    }
    void next_ascii(uint32_t c) { next(c); }
    void next_wide(uint32_t c) { next(c); }
    void first_ascii(uint32_t c) { first(c); }
    void last() { put_(prev_); }

   private:
    Put put_;
    uint32_t prev_ = 0;
};

// The sink of the second text: forwards to the set's take side.
template <typename Set>
class Taker {
   public:
    explicit Taker(Set &set) : set_(set) {}
    static const uint8_t *plain_bytes(uint8_t skip_space) { return Set::plain_bytes(skip_space); }
    void first(uint32_t c) { set_.take_first(c); }
    void next(uint32_t c) { set_.take_next(c); }
    void next_ascii(uint32_t c) { set_.take_next_ascii(c); }
    void next_wide(uint32_t c) { set_.take_next_wide(c); }
    void first_ascii(uint32_t c) { set_.take_first_ascii(c); }
    void last() { set_.take_last(); }

   private:
    Set &set_;
};

// The common entries of two texts below 200 bytes, without building the
// second table: the first text's entries are stored and chained by a
// multiplicative hash into at least as many buckets as it can have
// entries; each entry of the second text, as it is produced, takes one
// equal entry out of its chain. The count is the size of the multiset
// intersection.
class SmallIntersection {
   public:
    struct Storage {
        uint8_t head[256];  // entry index + 1 of each chain's first entry, 0 for none
        uint8_t next[kLocalEntries];
        uint32_t entries[kLocalEntries];
    };

    SmallIntersection(Storage &chains, uint32_t bytes_a)
        : c_(chains), shift_(32 - bucket_bits(bytes_a + 1)) {
        __builtin_memset(c_.head, 0, 1u << (32 - shift_));
    }

    void add(uint32_t entry) {
        const uint32_t h = bucket(entry);
        c_.entries[n_] = entry;
        c_.next[n_] = c_.head[h];
        c_.head[h] = static_cast<uint8_t>(++n_);
    }

    // Takes one entry equal to `entry` out of the set, if there is one.
    void take(uint32_t entry) {
        for (uint8_t *link = &c_.head[bucket(entry)]; *link != 0; link = &c_.next[*link - 1]) {
            if (c_.entries[*link - 1] == entry) {
                *link = c_.next[*link - 1];
                ++common_;
                return;
            }
        }
    }
    // The second text's walk, as entries.
    void take_first(uint32_t c) { take(prev_ = c & kLow16); }
    void take_next(uint32_t c) {
        take(((c & kLow16) << 16) | prev_);
        prev_ = c & kLow16;
    }
    void take_next_ascii(uint32_t c) { take_next(c); }
    void take_next_wide(uint32_t c) { take_next(c); }
    void take_first_ascii(uint32_t c) { take_first(c); }
    void take_last() { take(prev_); }

    uint32_t common() const { return common_; }
    static const uint8_t *plain_bytes(uint8_t skip_space) { return kPlainFold.fold[skip_space ? 1 : 0]; }
    void add_zero() { add(0); }
    void take_zero() { take(0); }

    // Builds the set from the first text; its entry count.
    uint32_t fill(const char *text, uint32_t room, uint8_t skip_space) {
        auto add_entry = [this](uint32_t e) { add(e); };
        PackedEntries<decltype(add_entry)> sink(add_entry);
        return walk_entries<decltype(sink), true>(text, room, skip_space, sink);
    }

   private:
    static unsigned bucket_bits(uint32_t entries) {
        unsigned bits = 3;
        while ((1u << bits) < entries) ++bits;
        return bits;
    }
    uint32_t bucket(uint32_t entry) const { return (entry * 0x9E3779B1u) >> shift_; }

    Storage &c_;
    unsigned shift_;
    uint32_t n_ = 0;
    uint32_t common_ = 0;
    uint32_t prev_ = 0;
};
static_assert(kLocalEntries <= 255, "chain links are bytes");

// The common entries when the first text has at most as many entries as
// `Word` has bits, bit-parallel. Entry k of the first text is bit k, in
// walk order: a word's first character against the border, its pairs, its
// last character against the border. A character's row holds the bits of
// the characters (not entries) equal to it, each at the bit of its own
// entry: the first character of a word at its border entry's bit, every
// other at the bit of the pair it ends. So the pairs (x, y) of the first
// text are (row[x] << 1) & row[y]; no character sits at a word's last
// border bit, and none before a first one, so borders never pass for
// pairs. The border entries of a character x are (row[x] & starts) |
// ((row[x] << 1) & ends), where starts and ends hold the bits of the first
// and the last border entries. Each entry of the second text takes one
// free bit of its set; the sets of different entries are disjoint, so the
// taken bits count the multiset intersection. ASCII characters have fixed
// rows (kAsciiRows); others get rows in a small map as the first text shows
// them (a character that the first text lacks has the empty row).
template <typename Word>
class RowIntersection {
   public:
    static constexpr uint32_t kMaxEntries = sizeof(Word) * 8;

    class Storage {
       public:
        Storage() { clear(std::make_index_sequence<kAsciiBlocks>()); }
        alignas(16) Word ascii[AsciiRows::kZeroRow + 1];

        // The row of a character without a fixed one, empty on first sight.
        // A character mostly finds its home slot free or its own: the slot
        // is its low bits, which the letters of one script seldom share.
        // Otherwise open addressing takes the next free slot; the map has
        // twice as many slots as a text can have characters.
        Word &wide_row(uint32_t c) {
            if (!map_ready_) {
                __builtin_memset(keys_, 0, sizeof keys_);
                map_ready_ = true;
            }
            uint32_t i = c % kSlots;
            const uint32_t key = keys_[i];
            if (key == c || key == 0) [[likely]] {
                if (key == 0) {
                    keys_[i] = static_cast<uint16_t>(c);  // never 0: character 0 has a fixed row
                    rows_[i] = 0;
                }
                return rows_[i];
            }
            displaced_ = true;
            for (;;) {
                i = (i + 1) % kSlots;
                if (keys_[i] == c) return rows_[i];
                if (keys_[i] == 0) {
                    keys_[i] = static_cast<uint16_t>(c);
                    return rows_[i] = 0;
                }
            }
        }
        // The same for reading: the empty row for a character not seen.
        // While every character sits in its home slot, one look decides.
        Word find_wide_row(uint32_t c) const {
            if (!map_ready_) return 0;
            uint32_t i = c % kSlots;
            if (!displaced_) [[likely]]
                return keys_[i] == c ? rows_[i] : 0;
            for (;; i = (i + 1) % kSlots) {
                if (keys_[i] == c) return rows_[i];
                if (keys_[i] == 0) return 0;
            }
        }

       private:
        // Cleared by whole 16-byte stores written out, which compilers
        // otherwise turn into a string instruction slow to start.
        typedef uint32_t Block __attribute__((vector_size(16), may_alias));
        static constexpr size_t kAsciiBlocks = (AsciiRows::kZeroRow + 1) * sizeof(Word) / 16;
        template <size_t... kBlock>
        void clear(std::index_sequence<kBlock...>) {
            ((reinterpret_cast<Block *>(ascii)[kBlock] = Block{}), ...);
        }

        static constexpr uint32_t kSlots = 2 * kMaxEntries;

        bool map_ready_ = false;
        bool displaced_ = false;
        uint16_t keys_[kSlots];
        Word rows_[kSlots];
    };

    RowIntersection(Storage &rows, uint32_t) : rows_(rows) {}

    // The sink of the first text's walk: characters set their entry's bit.
    void first(uint32_t c) {
        starts_ |= bit_;
        next(c);
    }
    void next(uint32_t c) {
        c &= kLow16;
        const uint32_t ascii = c < 128 ? kAsciiRows.of_char[c] : 0;
        put(ascii ? rows_.ascii[ascii] : rows_.wide_row(c));
    }
    void next_ascii(uint32_t row) { put(rows_.ascii[row]); }
    void first_ascii(uint32_t row) {
        starts_ |= bit_;
        next_ascii(row);
    }
    void next_wide(uint32_t c) { put(rows_.wide_row(c & kLow16)); }
    void last() {
        ends_ |= bit_;
        bit_ <<= 1;
    }
    // A text that yields no entry counts as entries of 0.
    void add_zero() { first(0); }

    // The sink of the second text's walk: each entry takes a bit.
    void take_first(uint32_t c) {
        prev_ = row(c);
        take_border();
    }
    void take_next(uint32_t c) { take_pair(row(c)); }
    void take_next_ascii(uint32_t row) { take_pair(rows_.ascii[row]); }
    void take_first_ascii(uint32_t row) {
        prev_ = rows_.ascii[row];
        take_border();
    }
    void take_next_wide(uint32_t c) { take_pair(rows_.find_wide_row(c & kLow16)); }
    void take_last() { take_border(); }
    void take_zero() { take_first(0); }

    uint32_t common() const { return popcount(taken_); }

    static const uint8_t *plain_bytes(uint8_t skip_space) { return kAsciiRows.of_byte[skip_space ? 1 : 0]; }
    uint32_t fill(const char *text, uint32_t room, uint8_t skip_space) {
        return walk_entries<RowIntersection, true>(text, room, skip_space, *this);
    }

   private:
    void put(Word &row) {
        row |= bit_;
        bit_ <<= 1;
    }
    Word row(uint32_t c) const {
        c &= kLow16;
        const uint32_t ascii = c < 128 ? kAsciiRows.of_char[c] : 0;
        return ascii ? rows_.ascii[ascii] : rows_.find_wide_row(c);
    }
    void take_pair(Word row) {
        take((prev_ << 1) & row);
        prev_ = row;
    }
    void take_border() { take((prev_ & starts_) | ((prev_ << 1) & ends_)); }
    // A set of one bit needs no choice (taking a taken bit again changes
    // nothing), which keeps the chain from entry to entry one OR long; an
    // entry that occurs more than once in the first text takes its lowest
    // free bit.
    void take(Word set) {
        if (set & (set - 1)) [[unlikely]] {
            const Word free = set & ~taken_;
            set = free & (0 - free);
        }
        taken_ |= set;
    }

    Storage &rows_;
    Word bit_ = 1;
    Word starts_ = 0;
    Word ends_ = 0;
    Word taken_ = 0;
    Word prev_ = 0;
};

// The common entries of two texts through `Set` holding the first text's
// entries. A text that yields no entry counts as its preset byte length + 1
// entries of 0.
template <typename Set>
uint32_t common_with(const char *text_a, uint32_t bytes_a, const char *text_b, uint32_t bytes_b, uint8_t skip_space,
                     uint32_t *count_a, uint32_t *count_b) {
    typename Set::Storage storage;
    Set set(storage, bytes_a);
    uint32_t na = set.fill(text_a, bytes_a + 1, skip_space);
    if (na == 0) {
        na = bytes_a + 1;
        for (uint32_t i = 0; i < na; ++i) set.add_zero();
    }
    Taker<Set> taker(set);
    uint32_t nb = walk_entries<Taker<Set>, true>(text_b, bytes_b + 1, skip_space, taker);
    if (nb == 0) {
        nb = bytes_b + 1;
        for (uint32_t i = 0; i < nb; ++i) set.take_zero();
    }
    *count_a = na;
    *count_b = nb;
    return set.common();
}

// ombr_string_fuzzycmp_ex for two texts below 200 bytes. A text that yields
// no entry counts as its preset byte length + 1 entries of 0. `kRows`
// false counts every pair through the chained hash (the tests' second
// reference for the bit rows).
template <bool kRows = true>
uint32_t common_of_short_texts(const char *text_a, uint32_t bytes_a, const char *text_b, uint32_t bytes_b,
                               uint8_t skip_space, uint32_t *count_a, uint32_t *count_b) {
    // A text has at most byte length + 1 entries. The bit-parallel form
    // holds the shorter text's entries; the intersection is symmetric.
    if (bytes_b < bytes_a)
        return common_of_short_texts<kRows>(text_b, bytes_b, text_a, bytes_a, skip_space, count_b, count_a);
    if (kRows && bytes_a + 1 <= RowIntersection<uint32_t>::kMaxEntries)
        return common_with<RowIntersection<uint32_t>>(text_a, bytes_a, text_b, bytes_b, skip_space, count_a, count_b);
    if (kRows && bytes_a + 1 <= RowIntersection<uint64_t>::kMaxEntries)
        return common_with<RowIntersection<uint64_t>>(text_a, bytes_a, text_b, bytes_b, skip_space, count_a, count_b);
    return common_with<SmallIntersection>(text_a, bytes_a, text_b, bytes_b, skip_space, count_a, count_b);
}

// The outputs of ombr_string_fuzzycmp_ex from the common entries.
uint32_t report(uint32_t common, uint32_t count_a, uint32_t count_b, uint32_t *out_percent_a, uint32_t *out_percent_b) {
    if (out_percent_a) *out_percent_a = common * 100u / count_a;
    if (out_percent_b) *out_percent_b = common * 100u / count_b;
    return similarity(common, count_a, count_b);
}

// Quicksort of e[lo..hi] inclusive: median of three, insertion sort for
// short runs, recursion on the smaller side so the depth stays logarithmic.
void quicksort_range(uint32_t *e, ptrdiff_t lo, ptrdiff_t hi) {
    while (hi - lo >= 16) {
        const ptrdiff_t mid = lo + (hi - lo) / 2;
        auto swap = [e](ptrdiff_t i, ptrdiff_t j) {
            const uint32_t t = e[i];
            e[i] = e[j];
            e[j] = t;
        };
        if (e[mid] < e[lo]) swap(mid, lo);
        if (e[hi] < e[lo]) swap(hi, lo);
        if (e[hi] < e[mid]) swap(hi, mid);
        const uint32_t pivot = e[mid];
        ptrdiff_t i = lo, j = hi;
        while (i <= j) {
            while (e[i] < pivot) ++i;
            while (e[j] > pivot) --j;
            if (i <= j) swap(i++, j--);
        }
        if (j - lo < hi - i) {
            quicksort_range(e, lo, j);
            lo = i;
        } else {
            quicksort_range(e, i, hi);
            hi = j;
        }
    }
    for (ptrdiff_t i = lo + 1; i <= hi; ++i) {
        const uint32_t v = e[i];
        ptrdiff_t j = i;
        for (; j > lo && e[j - 1] > v; --j) e[j] = e[j - 1];
        e[j] = v;
    }
}

}  // namespace

extern "C" ombr_bigram_table *_bigram_create_table(const char *text, uint32_t byte_length) {
    if (byte_length == 0) byte_length = ombr_string_bytelen_nonull(text);
    // byte_length * 4 + 16 bytes where the header is two 32-bit words; a
    // wider header takes its extra bytes on top, never from the entries.
    constexpr uint64_t kSlack = 16 - 2 * sizeof(uint32_t);
    const uint64_t size = static_cast<uint64_t>(byte_length) * 4 + kSlack + sizeof(ombr_bigram_table);
    if (byte_length >= 0x3FFFFFF0u || size > SIZE_MAX) return nullptr;
    auto *table = static_cast<ombr_bigram_table *>(ombr_memory_alloc(static_cast<size_t>(size)));
    if (!table) return nullptr;
    ombr_memory_memset(table, 0, static_cast<size_t>(size));
    table->count = byte_length + 1;
    table->entries = reinterpret_cast<uint32_t *>(table + 1);
    return table;
}

extern "C" uint32_t _bigram_fill_table(const char *text, ombr_bigram_table *table, uint8_t skip_space) {
    // The preset count is the room in the table; a text never needs more
    // than its byte length + 1 entries, so the bound only guards misuse.
    uint32_t *out = table->entries;
    auto store = [&out](uint32_t entry) { *out++ = entry; };
    PackedEntries<decltype(store)> sink(store);
    const uint32_t n = walk_entries(text, table->count, skip_space, sink);
    if (n != 0) table->count = n;
    return n;
}

extern "C" uint32_t _bigram_compare_tables_unsorted(ombr_bigram_table *table_a, ombr_bigram_table *table_b) {
    uint32_t *const a = table_a->entries;
    uint32_t *const b = table_b->entries;
    uint32_t na = table_a->count, nb = table_b->count;
    uint32_t common = 0;
    uint32_t i = 0;
    while (i < na) {
        uint32_t j = 0;
        while (j < nb && b[j] != a[i]) ++j;
        if (j == nb) {
            ++i;
            continue;
        }
        // Take the pair out of both tables; position i is looked at again.
        ++common;
        a[i] = a[--na];
        b[j] = b[--nb];
    }
    return common;
}

extern "C" uint32_t _bigram_compare_tables_sorted(const ombr_bigram_table *table_a,
                                                  const ombr_bigram_table *table_b) {
    const uint32_t *const a = table_a->entries;
    const uint32_t *const b = table_b->entries;
    const uint32_t na = table_a->count, nb = table_b->count;
    // Steps the lesser side, both on equality, without a branch on the
    // entries (which side is less is a coin toss between two titles).
    uint32_t i = 0, j = 0, common = 0;
    while (i < na && j < nb) {
        const uint32_t x = a[i], y = b[j];
        common += x == y;
        i += x <= y;
        j += y <= x;
    }
    return common;
}

extern "C" void _bigram_table_shellsort(ombr_bigram_table *table) {
    uint32_t *const e = table->entries;
    const uint32_t n = table->count;
    for (uint32_t gap = n / 2; gap > 0; gap = next_shellsort_gap(gap)) {
        for (uint32_t i = gap; i < n; ++i) {
            const uint32_t v = e[i];
            uint32_t j = i;
            for (; j >= gap && e[j - gap] > v; j -= gap) e[j] = e[j - gap];
            e[j] = v;
        }
    }
}

extern "C" void _bigram_table_quicksort(ombr_bigram_table *table) {
    if (table->count > 1) quicksort_range(table->entries, 0, static_cast<ptrdiff_t>(table->count) - 1);
}

OMBR_API uint32_t ombr_string_fuzzycmp_ex(const char *text_a, const char *text_b, uint8_t skip_space,
                                          uint32_t *out_percent_a, uint32_t *out_percent_b) {
    const uint32_t bytes_a = text_a ? static_cast<uint32_t>(__builtin_strlen(text_a)) : 0;
    const uint32_t bytes_b = text_b ? static_cast<uint32_t>(__builtin_strlen(text_b)) : 0;
    if (bytes_a == 0 || bytes_b == 0) return 0;

    uint32_t count_a = 0, count_b = 0, common = 0;
    if (bytes_a < kLocalEntries && bytes_b < kLocalEntries) {
        common = common_of_short_texts(text_a, bytes_a, text_b, bytes_b, skip_space, &count_a, &count_b);
    } else {
        // Long texts: tables of their own, sorted and merged.
        TableSlot slot_a, slot_b;
        if (!slot_a.prepare(text_a, bytes_a) || !slot_b.prepare(text_b, bytes_b)) return 0;
        slot_a.fill(text_a, skip_space);
        slot_b.fill(text_b, skip_space);
        ombr_bigram_table *a = slot_a.table();
        ombr_bigram_table *b = slot_b.table();
        count_a = a->count;
        count_b = b->count;
        _bigram_table_quicksort(a);
        _bigram_table_quicksort(b);
        common = _bigram_compare_tables_sorted(a, b);
    }
    return report(common, count_a, count_b, out_percent_a, out_percent_b);
}

extern "C" uint32_t _bigram_fuzzycmp_hashed(const char *text_a, const char *text_b, uint8_t skip_space,
                                            uint32_t *out_percent_a, uint32_t *out_percent_b) {
    const uint32_t bytes_a = ombr_string_bytelen_nonull(text_a);
    const uint32_t bytes_b = ombr_string_bytelen_nonull(text_b);
    if (bytes_a == 0 || bytes_b == 0 || bytes_a >= kLocalEntries || bytes_b >= kLocalEntries) return 0;
    uint32_t count_a = 0, count_b = 0;
    const uint32_t common =
        common_of_short_texts<false>(text_a, bytes_a, text_b, bytes_b, skip_space, &count_a, &count_b);
    return report(common, count_a, count_b, out_percent_a, out_percent_b);
}

OMBR_API uint32_t ombr_string_create_bigram_table(const char *text, uint8_t skip_space,
                                                  ombr_bigram_table **out_table) {
    if (!out_table) return ombr::str::kInvalidArg;
    ombr_bigram_table *table = _bigram_create_table(text, 0);
    if (!table) return ombr::str::kNoMemory;
    _bigram_fill_table(text, table, skip_space);
    _bigram_table_shellsort(table);
    *out_table = table;
    return 0;
}

OMBR_API uint32_t ombr_string_bigram_table_cmp(const ombr_bigram_table *table_a, const ombr_bigram_table *table_b) {
    if (!table_a || !table_b) return 0;
    return similarity(_bigram_compare_tables_sorted(table_a, table_b), table_a->count, table_b->count);
}
