// libFuzzer harness of the fingerprint texts the catalogue provider reads
// (providers/catalogue/store/fingerprint.h). The first byte picks the road:
//  - text: the rest is a query text (plain or XML), with the algorithm
//    name and version the request might name beside it. An accepted text
//    has 1 to kMaxItems items of a known algorithm, and both renderings of
//    what was read (plain and XML) read back to the same fingerprint;
//  - compressed: the rest is Chromaprint's compressed form. An accepted
//    form re-encodes to bytes that decode to the same items, and
//    Chromaprint's own decoder, given the same bytes in base64, agrees on
//    the algorithm and every item. Only forms without bytes after their
//    data go to Chromaprint: its decoder (1.5.1) unpacks trailing bytes
//    into a buffer sized for the data and overruns it, one reason why the
//    provider reads fingerprints with a decoder of its own.
// A broken property aborts, which libFuzzer reports with the input.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "providers/catalogue/store/fingerprint.h"

#if CANTRIX_HAVE_CHROMAPRINT
#include <chromaprint.h>
#endif

namespace {

namespace fp = catalogue::fp;

void require(bool ok, const char *what) {
    if (ok) return;
    std::fprintf(stderr, "property broken: %s\n", what);
    std::abort();
}

void check_read(const fp::Fingerprint &f) {
    require(!f.items.empty() && f.items.size() <= fp::kMaxItems, "1 to kMaxItems items");
    require(f.algorithm < fp::kAlgorithmCount, "a known algorithm");
}

void same(const fp::Fingerprint &a, const fp::Fingerprint &b, const char *what) {
    require(a.items == b.items && a.algorithm == b.algorithm && a.duration == b.duration, what);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 1 << 16) return 0;
    const std::string_view rest(reinterpret_cast<const char *>(data + 1), size - 1);
    fp::Fingerprint f;
    std::string why;
    if (data[0] % 2 == 0) {
        // Name and version beside the data: none, the right ones, or a wrong version.
        const int beside = data[0] / 2 % 3;
        const bool ok = fp::parse_query_text(rest, beside ? "chromaprint" : "", beside == 2 ? "5" : "", f, why);
        require(ok || !why.empty(), "a refusal has a reason");
        if (!ok) return 0;
        check_read(f);
        require(beside != 2 || f.algorithm == 4, "version 5 is only accepted for its algorithm");
        for (const std::string &again : {fp::plain_query_text(f), fp::xml_query_text(f)}) {
            fp::Fingerprint back;
            require(fp::parse_query_text(again, "", "", back, why), "a rendering of an accepted text is accepted");
            same(f, back, "a rendering reads back the same");
        }
        return 0;
    }
    if (!fp::decode_compressed(rest, f, why)) {
        require(!why.empty(), "a refusal has a reason");
        return 0;
    }
    check_read(f);
    fp::Fingerprint back;
    const std::string encoded = fp::encode_compressed(f.items, f.algorithm);
    require(fp::decode_compressed(encoded, back, why), "re-encoded form decodes");
    same(f, back, "re-encoded form gives the same items");
#if CANTRIX_HAVE_CHROMAPRINT
    if (rest.size() != encoded.size()) return 0;
    const std::string text = fp::encode_base64url(rest);
    uint32_t *raw = nullptr;
    int count = 0, algorithm = -1;
    require(chromaprint_decode_fingerprint(text.c_str(), static_cast<int>(text.size()), &raw, &count, &algorithm, 1) == 1,
            "Chromaprint accepts what is accepted here");
    require(static_cast<size_t>(count) == f.items.size() && static_cast<uint32_t>(algorithm) == f.algorithm,
            "Chromaprint reads the same count and algorithm");
    for (int i = 0; i < count; ++i) require(raw[i] == f.items[static_cast<size_t>(i)], "Chromaprint reads the same items");
    chromaprint_dealloc(raw);
#endif
    return 0;
}
