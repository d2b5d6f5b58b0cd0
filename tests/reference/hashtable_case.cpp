// Differential cases of the hash table. The key hash against the plain
// byte-by-byte djb2, and a sequence of operations built from arbitrary
// bytes (add, update by ordinal, delete, remove by ordinal, find by
// ordinal, count, read by position) on tables of every flag mix against a
// model: insertion order, several values per key, replacement moving an
// entry to the end, ASCII-only case folding. A thread-safe twin of each
// table, whose finds never take the in-line path, must find the same.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "datatypes/ombr_datatypes_internal.h"
#include "datatypes/ombr_hashtable_key.h"
#include "ombr/ombr_datatypes.h"
#include "tests/reference/reference.h"

uint32_t reference::hashtable_hash(const char *key, bool case_sensitive) {
    uint32_t h = 5381;
    for (const auto *p = reinterpret_cast<const unsigned char *>(key); *p; ++p) {
        uint32_t c = *p;
        if (!case_sensitive && c >= 'a' && c <= 'z') c -= 32;
        h = h * 33 + c;
    }
    return h;
}

std::string reference::check_hashtable_scans(const char *text) {
    namespace key = ombr::dt::key;
    const auto length = static_cast<uint32_t>(std::strlen(text));
    for (const bool cs : {false, true}) {
        const uint32_t expected = reference::hashtable_hash(text, cs);
        const std::string what = std::string(cs ? "case-sensitive" : "folded") + " length " + std::to_string(length);
        if (_ombr_hashtable_genhash(text, cs) != expected) return "table hash, " + what;
        const key::KeyHash words = cs ? key::hash_words<false>(text) : key::hash_words<true>(text);
        if (words.hash != expected || words.length != length) return "hash_words, " + what;
        key::ShortKey sk{};
        const bool taken = cs ? key::hash_short<false>(text, sk) : key::hash_short<true>(text, sk);
        if (taken && (sk.kh.hash != expected || sk.kh.length != length)) return "hash_short, " + what;
#if defined(__SSE2__)
        const key::KeyHash blocks = cs ? key::hash_blocks<false>(text) : key::hash_blocks<true>(text);
        if (blocks.hash != expected || blocks.length != length) return "hash_blocks, " + what;
        const auto page_offset = reinterpret_cast<uintptr_t>(text) & (key::kPageBytes - 1);
        if (taken != (length < 16 && page_offset <= key::kPageBytes - 16)) return "hash_short takes the wrong keys, " + what;
#endif
    }
    return "";
}

namespace {

struct Entry {
    std::string key;
    uint32_t value;
};

bool keys_equal(const std::string &a, const std::string &b, bool case_sensitive) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        unsigned char x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
        if (!case_sensitive) {
            if (x >= 'a' && x <= 'z') x -= 32;
            if (y >= 'a' && y <= 'z') y -= 32;
        }
        if (x != y) return false;
    }
    return true;
}

// Index in `model` of the ordinal-th entry with this key, or -1.
long find_model(const std::vector<Entry> &model, const std::string &key, uint32_t ordinal, bool cs) {
    for (size_t i = 0; i < model.size(); ++i)
        if (keys_equal(model[i].key, key, cs) && ordinal-- == 0) return static_cast<long>(i);
    return -1;
}

}  // namespace

std::string reference::check_hashtable_case(const uint8_t *data, size_t size) {
    const uint8_t *p = data, *end = data + size;
    auto byte = [&]() -> uint8_t { return p < end ? *p++ : 0; };

    // Keys from a small alphabet with both cases and a byte above 127, so
    // that equal keys, case variants and collisions are common.
    static constexpr char kAlphabet[] = "aAbBzZ0_\xC3\xA9";
    auto make_key = [&]() {
        std::string k;
        for (size_t n = 1 + byte() % 20; n > 0; --n) k += kAlphabet[byte() % (sizeof kAlphabet - 1)];
        return k;
    };

    // The input itself as a key, up to its first zero byte: every byte
    // value and length against the byte-by-byte hash.
    const std::string raw(reinterpret_cast<const char *>(data), size);
    if (std::string failure = check_hashtable_scans(raw.c_str()); !failure.empty())
        return "raw input: " + failure;

    static constexpr uint32_t kFlagMixes[] = {0, OMBR_HASHTABLE_CASE_SENSITIVE, OMBR_HASHTABLE_MULTI_VALUE,
                                              OMBR_HASHTABLE_MULTI_VALUE | OMBR_HASHTABLE_CASE_SENSITIVE,
                                              OMBR_HASHTABLE_NO_REPLACE};
    const uint32_t flags = kFlagMixes[byte() % 5];
    const bool cs = flags & OMBR_HASHTABLE_CASE_SENSITIVE;
    const bool multi = flags & OMBR_HASHTABLE_MULTI_VALUE;

    ombr_hashtable_t table = nullptr, twin = nullptr;
    if (ombr_hashtable_create(&table, flags, nullptr) != 0) return "";
    if (ombr_hashtable_create(&twin, flags | OMBR_HASHTABLE_THREADSAFE, nullptr) != 0) {
        ombr_hashtable_delete(table);
        return "";
    }
    std::vector<Entry> model;
    std::string failure;
    uint32_t next_value = 1;
    // The twin gets the same operation and must answer the same.
    auto mirrored = [&](uint32_t status, uint32_t twin_status, const char *what) {
        if (status != twin_status && failure.empty())
            failure = std::string(what) + ": " + std::to_string(status) + " here, " + std::to_string(twin_status) + " in the twin";
        return status;
    };

    for (int step = 0; step < 64 && p < end && failure.empty(); ++step) {
        const std::string key = make_key();
        if (std::string scans = check_hashtable_scans(key.c_str()); !scans.empty()) {
            failure = "\"" + key + "\": " + scans;
            break;
        }
        const uint32_t ordinal = byte() % 3;
        const uint32_t value = next_value++;
        switch (byte() % 7) {
            case 0:
            case 1: {  // add
                const uint32_t status = mirrored(ombr_hashtable_value_add(table, key.c_str(), &value, sizeof value, 1),
                                                 ombr_hashtable_value_add(twin, key.c_str(), &value, sizeof value, 1), "add");
                const long at = multi ? -1 : find_model(model, key, 0, cs);
                if (at >= 0 && (flags & OMBR_HASHTABLE_NO_REPLACE)) {
                    if (status != OMBR_DATATYPES_KEY_PRESENT) failure = "add of a present key with no-replace: " + std::to_string(status);
                } else if (status != 0) {
                    failure = "add failed: " + std::to_string(status);
                } else if (at >= 0) {
                    // Replacement keeps the stored key and moves the entry to the end.
                    Entry moved{model[static_cast<size_t>(at)].key, value};
                    model.erase(model.begin() + at);
                    model.push_back(moved);
                } else {
                    model.push_back({key, value});
                }
                break;
            }
            case 2: {  // update by ordinal
                const uint32_t status =
                    mirrored(ombr_hashtable_value_update_ex(table, key.c_str(), ordinal, &value, sizeof value, 1),
                             ombr_hashtable_value_update_ex(twin, key.c_str(), ordinal, &value, sizeof value, 1), "update");
                const long at = find_model(model, key, ordinal, cs);
                if ((at >= 0) != (status == 0)) failure = "update status " + std::to_string(status);
                if (at >= 0) {
                    Entry moved{model[static_cast<size_t>(at)].key, value};
                    model.erase(model.begin() + at);
                    model.push_back(moved);
                }
                break;
            }
            case 3: {  // delete the first, or remove by ordinal
                const bool by_ordinal = byte() & 1;
                const uint32_t status =
                    by_ordinal ? mirrored(ombr_hashtable_value_remove_ex(table, key.c_str(), ordinal, nullptr, nullptr),
                                          ombr_hashtable_value_remove_ex(twin, key.c_str(), ordinal, nullptr, nullptr),
                                          "remove")
                               : mirrored(ombr_hashtable_value_delete(table, key.c_str()),
                                          ombr_hashtable_value_delete(twin, key.c_str()), "delete");
                const long at = find_model(model, key, by_ordinal ? ordinal : 0, cs);
                if ((at >= 0) != (status == 0)) failure = "delete status " + std::to_string(status);
                if (at >= 0) model.erase(model.begin() + at);
                break;
            }
            case 4:
            case 5: {  // find by ordinal and count
                void *found = nullptr, *twin_found = nullptr;
                const uint32_t status =
                    mirrored(ombr_hashtable_value_find_ex(table, key.c_str(), ordinal, &found, nullptr),
                             ombr_hashtable_value_find_ex(twin, key.c_str(), ordinal, &twin_found, nullptr), "find");
                if (status == 0 && *static_cast<uint32_t *>(found) != *static_cast<uint32_t *>(twin_found))
                    failure = "find of \"" + key + "\" gives another value than the twin";
                const long at = find_model(model, key, ordinal, cs);
                if ((at >= 0) != (status == 0)) {
                    failure = "find of \"" + key + "\" status " + std::to_string(status);
                } else if (at >= 0 && *static_cast<uint32_t *>(found) != model[static_cast<size_t>(at)].value) {
                    failure = "find of \"" + key + "\" gives another value";
                }
                uint32_t count = 0;
                ombr_hashtable_value_count(table, key.c_str(), &count);
                const auto expected = static_cast<uint32_t>(std::count_if(
                    model.begin(), model.end(), [&](const Entry &e) { return keys_equal(e.key, key, cs); }));
                if (count != expected) failure = "count of \"" + key + "\" differs";
                break;
            }
            default: {  // read every position in order
                for (uint32_t i = 0; i <= model.size() && failure.empty(); ++i) {
                    const char *k = nullptr;
                    void *v = nullptr;
                    const uint32_t status = ombr_hashtable_value_get(table, i, &k, &v, nullptr);
                    if (i == model.size()) {
                        if (status != OMBR_DATATYPES_INDEX_RANGE) failure = "read past the end";
                    } else if (status != 0 || model[i].key != k || *static_cast<uint32_t *>(v) != model[i].value) {
                        failure = "position " + std::to_string(i) + " differs";
                    }
                }
                break;
            }
        }
    }
    uint32_t count = 0;
    if (failure.empty() && (ombr_hashtable_count(table, &count) != 0 || count != model.size()))
        failure = "entry count differs";
    ombr_hashtable_delete(table);
    ombr_hashtable_delete(twin);
    return failure;
}
