// Fuzzes the catalogue's search-key folding on any bytes. Properties:
//  - folding a key again gives the key (idempotence);
//  - a key is valid UTF-8 with no ASCII upper case, no ASCII punctuation
//    or control bytes, single blanks between words and none at the ends;
//  - the words of a text are its key cut at the blanks;
//  - a text and its key are as similar as a key and itself (100), and
//    similarity stays within 0..100 and is 100 for a text against itself.
#include <string>
#include <string_view>

#include "fuzz/fuzz_support.h"
#include "providers/catalogue/store/catalogue.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using fuzz::require;
    if (size > 2048) return 0;
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    const std::string key = catalogue::fold(text);
    require(catalogue::fold(key) == key, "fold is idempotent", key);

    // Keys are well-formed UTF-8 of up to four bytes a character.
    for (size_t i = 0; i < key.size();) {
        const auto b = static_cast<unsigned char>(key[i]);
        const size_t n = b < 0x80 ? 1 : b >= 0xC2 && b <= 0xDF ? 2 : b >= 0xE0 && b <= 0xEF ? 3 : b >= 0xF0 && b <= 0xF4 ? 4 : 0;
        require(n != 0 && i + n <= key.size(), "key is UTF-8", key);
        for (size_t k = 1; k < n; ++k)
            require((static_cast<unsigned char>(key[i + k]) & 0xC0) == 0x80, "key is UTF-8", key);
        i += n;
    }
    require(key.empty() || (key.front() != ' ' && key.back() != ' '), "no blank at the ends", key);
    require(key.find("  ") == std::string::npos, "single blanks", key);
    for (unsigned char c : key)
        require(c >= 0x80 || c == ' ' || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'),
                "only lower-case letters, digits and blanks in ASCII", key);

    std::string joined;
    for (const std::string &word : catalogue::fold_words(text)) {
        require(!word.empty() && word.find(' ') == std::string::npos, "a word has no blank", word);
        joined += (joined.empty() ? "" : " ") + word;
    }
    require(joined == key, "words are the key cut at blanks", key);

    if (!key.empty()) {
        require(catalogue::text_similarity(text, key) == 100, "a text is as similar to its key as to itself", key);
        require(catalogue::text_similarity(key, key) == 100, "a key against itself is 100", key);
    }
    const size_t half = size / 2;
    const uint32_t similarity = catalogue::text_similarity(text.substr(0, half), text.substr(half));
    const uint32_t coverage = catalogue::text_coverage(text.substr(0, half), text.substr(half));
    require(similarity <= 100 && coverage <= 100, "similarity and coverage within 0..100");
    return 0;
}
