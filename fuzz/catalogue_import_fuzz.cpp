// Fuzzes the catalogue importers: release JSON (one object, an array or one
// object per line) and xmcd disc files, into an in-memory catalogue
// that already holds one album (each import is rolled back afterwards).
// The first byte picks the importer. Properties:
//  - an import ends with a status; a failure has a message;
//  - its report adds up: every stored album was read from a record, and
//    the album count grows by the albums stored less those replaced;
//  - the album that was there before is still found by its TOC;
//  - every album the parser accepts has folded titles that fold to
//    themselves, and a TOC text that reads back to the same offsets.
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/fuzz_support.h"
#include "providers/catalogue/store/catalogue.h"

namespace {

using fuzz::require;

constexpr const char *kEarlierToc = "150 14672 27367 41225";

std::unique_ptr<catalogue::Catalogue> fresh_catalogue() {
    std::unique_ptr<catalogue::Catalogue> cat;
    require(catalogue::Catalogue::open(":memory:", cat).ok(), "open");
    catalogue::Album album;
    album.title = "Lanterns of Glass";
    album.artist = "Mira Solenne";
    catalogue::Disc disc;
    for (uint32_t n = 1; n <= 3; ++n) {
        catalogue::Track track;
        track.number = n;
        track.title = "Track " + std::to_string(n);
        disc.tracks.push_back(track);
    }
    disc.tocs.push_back({{150, 14672, 27367, 41225}, "", ""});
    album.discs.push_back(disc);
    require(cat->add_album(album).ok(), "earlier album");
    return cat;
}

void check_parsed(const catalogue::Album &album) {
    for (const std::string *text : {&album.title, &album.artist}) {
        const std::string key = catalogue::fold(*text);
        require(catalogue::fold(key) == key, "folded titles settle", *text);
    }
    for (const catalogue::Disc &disc : album.discs)
        for (const catalogue::Toc &toc : disc.tocs) {
            std::vector<uint32_t> back;
            const std::string text = catalogue::toc_text(toc.offsets);
            require(catalogue::parse_toc(text, back).ok() && back == toc.offsets, "TOC text round trip", text);
        }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 16384) return 0;
    const bool xmcd = data[0] & 1;
    const std::string_view text(reinterpret_cast<const char *>(data + 1), size - 1);

    // One catalogue for the whole run; each import runs inside a
    // transaction that is rolled back afterwards.
    static std::unique_ptr<catalogue::Catalogue> cat = fresh_catalogue();
    require(cat->begin().ok(), "begin");
    uint64_t before = 0;
    require(cat->album_count(before).ok() && before == 1, "one album before");

    catalogue::Album parsed;
    const catalogue::Status parse =
        xmcd ? catalogue::parse_xmcd(text, parsed) : catalogue::parse_musicbrainz_release(text, parsed);
    if (parse.ok()) check_parsed(parsed);
    else require(!parse.message.empty(), "a refused record has a message");

    catalogue::ImportReport report;
    const catalogue::Status st =
        xmcd ? cat->import_xmcd_text(text, report) : cat->import_musicbrainz_text(text, report);
    if (!st.ok()) require(!st.message.empty(), "a failed import has a message");
    require(report.imported <= report.records, "stored albums were read from records");
    uint64_t after = 0;
    require(cat->album_count(after).ok(), "count after");
    if (st.ok()) require(after == before + report.imported - report.replaced, "album count adds up");

    catalogue::TocResult found;
    require(cat->lookup_toc(std::string_view(kEarlierToc), {}, found).ok() && !found.hits.empty(),
            "the earlier album is still found");
    require(cat->rollback().ok(), "rollback");
    return 0;
}
