// Normalisation keys per second over a few thousand generated titles and
// artist names in Latin, Cyrillic, Greek, Japanese and Chinese scripts; the
// fold-only pass beside ICU (NFKD, case fold, accents stripped), UTF-8 in
// and a new UTF-8 text out for both. Prints the ratios.
#include <benchmark/benchmark.h>
#include <unicode/uchar.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>

#include <cstdlib>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "bench/bench_ratio.h"
#include "ombr/ombr_string.h"
#include "ombr/ombr_textcorr_normalize.h"

namespace {

constexpr uint32_t kScoringFlags = 223;

const char *const kEnglish[] = {"Love",  "Night",  "Heart",   "Dream", "Fire",   "Rain",    "Summer", "Song",
                                "Blue",  "Dancing", "Lights", "Road",  "River",  "Stars",   "Sweet",  "Little",
                                "Girl",  "Boys",   "Waiting", "Home",  "Broken", "Forever", "Gold",   "Children"};
const char *const kArticles[] = {"The", "A", "Of", "And", "In", "My", "Your"};
const char *const kEuropean[] = {"Corazón", "Canción", "Été",     "Déjà Vu", "Mädchen", "Straße", "L'Amour",
                                 "D'Arcy",  "Señorita", "Noël",   "Ångström", "Ça Va",  "Über",   "Niño"};
const char *const kCyrillic[] = {"Ёлки", "Звезда", "Любовь", "Ночь", "Кино", "Группа", "Песня", "Город"};
const char *const kGreek[] = {"Αγάπη", "Θάλασσα", "Όνειρο", "Καρδιά", "Νύχτα"};
const char *const kJapanese[] = {"ひらがな", "さくら", "ありがとう", "ハロー", "東京",   "夜空",
                                 "ｶﾞｷﾞ",     "ｻｸﾗ",   "コーヒー",   "ドラえもん", "日本語", "君の名は"};
const char *const kChinese[] = {"來自天堂", "傳說",   "愛情",     "們的歌", "優美",     "龍的傳人",
                                "東風破",   "青花瓷", "聽海",     "時間",   "後來",     "個人"};
const char *const kSuffixes[] = {" (Live)", " - Remastered", " feat. A$AP Rock", " [Demo]", " Pt. II", " Vol. 3",
                                 ", Op. 27", " (1999 Mix)", " & Friends", " 100%", "",  "", ""};

template <typename T, size_t N>
const char *pick(std::mt19937 &rng, T (&list)[N]) {
    return list[std::uniform_int_distribution<size_t>(0, N - 1)(rng)];
}

// Builds `count` titles and names; the mix is fixed by the seed.
std::vector<std::string> make_corpus(size_t count) {
    std::mt19937 rng(20131);
    std::vector<std::string> out;
    out.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        std::string s;
        switch (i % 8) {
            case 0:
            case 1:
            case 2:
                if (rng() % 2) s += std::string(pick(rng, kArticles)) + " ";
                s += pick(rng, kEnglish);
                s += " ";
                s += pick(rng, kEnglish);
                if (rng() % 3 == 0) s += "'s " + std::string(pick(rng, kEnglish));
                break;
            case 3:
                s = std::string(pick(rng, kEuropean)) + " " + pick(rng, kEnglish);
                break;
            case 4:
                s = std::string(pick(rng, kCyrillic)) + (rng() % 2 ? " " : "") + pick(rng, kGreek);
                break;
            case 5:
                s = std::string(pick(rng, kJapanese)) + pick(rng, kJapanese);
                break;
            case 6:
                s = std::string(pick(rng, kChinese)) + " " + pick(rng, kChinese);
                break;
            default:
                s = "R.E.M. " + std::to_string(rng() % 3000) + " " + pick(rng, kEnglish);
                break;
        }
        s += pick(rng, kSuffixes);
        out.push_back(std::move(s));
    }
    return out;
}

const std::vector<std::string> &corpus() {
    static const std::vector<std::string> texts = make_corpus(4000);
    return texts;
}

struct StringPackage {
    StringPackage() { ombr_string_initialize(); }
    ~StringPackage() { ombr_string_shutdown(); }
};

void BM_NormalizeUtf8(benchmark::State &state) {
    StringPackage package;
    const auto &texts = corpus();
    const uint32_t flags = static_cast<uint32_t>(state.range(0));
    size_t i = 0, bytes = 0;
    for (auto _ : state) {
        const std::string &text = texts[i++ % texts.size()];
        char *key = nullptr;
        if (ombr_textcorr_normalize_utf8_text(text.c_str(), &key, flags, 0) != 0) {
            state.SkipWithError("normalisation failed");
            break;
        }
        benchmark::DoNotOptimize(key);
        ombr_string_free(key);
        bytes += text.size();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
    state.SetLabel(flags ? "all passes" : "character fold only");
}
BENCHMARK(BM_NormalizeUtf8)->Arg(kScoringFlags)->Arg(0);

// ICU's nearest equivalent of the fold-only key: NFKD, full case folding,
// combining marks removed. A new UTF-8 text comes out, as from the library.
char *icu_fold(const UNormalizer2 *nfkd, const std::string &text) {
    UErrorCode status = U_ZERO_ERROR;
    UChar wide[512], decomposed[1024], folded[1024];
    int32_t n = 0;
    u_strFromUTF8(wide, 512, &n, text.data(), static_cast<int32_t>(text.size()), &status);
    n = unorm2_normalize(nfkd, wide, n, decomposed, 1024, &status);
    n = u_strFoldCase(folded, 1024, decomposed, n, U_FOLD_CASE_DEFAULT, &status);
    int32_t kept = 0;
    for (int32_t i = 0; i < n;) {
        UChar32 c;
        U16_NEXT(folded, i, n, c);
        if (u_charType(c) == U_NON_SPACING_MARK) continue;
        U16_APPEND_UNSAFE(folded, kept, c);
    }
    int32_t bytes = 0;
    u_strToUTF8(nullptr, 0, &bytes, folded, kept, &status);
    status = U_ZERO_ERROR;
    auto *out = static_cast<char *>(std::malloc(static_cast<size_t>(bytes) + 1));
    u_strToUTF8(out, bytes + 1, &bytes, folded, kept, &status);
    return U_SUCCESS(status) ? out : (std::free(out), nullptr);
}

void BM_IcuFold(benchmark::State &state) {
    UErrorCode status = U_ZERO_ERROR;
    const UNormalizer2 *nfkd = unorm2_getNFKDInstance(&status);
    if (U_FAILURE(status)) {
        state.SkipWithError("no NFKD instance");
        return;
    }
    const auto &texts = corpus();
    size_t i = 0;
    for (auto _ : state) {
        char *key = icu_fold(nfkd, texts[i++ % texts.size()]);
        benchmark::DoNotOptimize(key);
        std::free(key);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.SetLabel("ICU NFKD + case fold + marks removed");
}
BENCHMARK(BM_IcuFold);

void BM_NormalizeUcs2(benchmark::State &state) {
    StringPackage package;
    std::vector<uint16_t *> wide;
    for (const std::string &text : corpus()) {
        uint16_t *w = nullptr;
        ombr_string_utf8_to_ucs2(text.c_str(), &w, 0);
        wide.push_back(w);
    }
    size_t i = 0;
    for (auto _ : state) {
        uint16_t *key = nullptr;
        if (ombr_textcorr_normalize_text(wide[i++ % wide.size()], &key, nullptr, kScoringFlags, 0) != 0) {
            state.SkipWithError("normalisation failed");
            break;
        }
        benchmark::DoNotOptimize(key);
        ombr_memory_free(key);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    for (uint16_t *w : wide) ombr_memory_free(w);
}
BENCHMARK(BM_NormalizeUcs2);

}  // namespace

int main(int argc, char **argv) {
    return bench::run_with_ratios(argc, argv,
                                  {{"BM_NormalizeUtf8/0", "BM_IcuFold", "fold only (UTF-8 in and out), against ICU"}});
}
