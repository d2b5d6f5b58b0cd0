// Fuzzes the catalogue importers: release JSON (one object, an array or one
// object per line) and xmcd disc files, into an in-memory catalogue
// that already holds one album (each import is rolled back afterwards).
// The first byte picks the importer, and whether the input is also
// imported as a file. Properties:
//  - an import ends with a status; a failure has a message;
//  - its report adds up: every stored album was read from a record, and
//    the album count grows by the albums stored less those replaced;
//  - the album that was there before is still found by its TOC;
//  - every album the parser accepts has valid UTF-8 texts, folded titles
//    that fold to themselves, and a TOC text that reads back to the same
//    offsets;
//  - each line of an xmcd input decodes to valid UTF-8: to itself when it
//    is valid UTF-8, else to one code point per byte (Windows-1252);
//  - the streaming importer agrees with the whole-document parser: a
//    release the parser accepts, written k times as JSON lines, as an
//    array, pretty-printed or in a {"releases": [...]} list, stores and
//    skips k times what the release alone does;
//  - blank lines or a byte order mark before the content do not change
//    the format it is found to be, and importing the input as a file
//    (format by content) stores and skips what the text importer of that
//    format does; a file of no format is one skipped record;
//  - the fuzzy TOC lookup through the shape index answers as the linear
//    scan does, for every TOC of the record, moved by a few frames.
//  - every stored album reads back as its reference reading (SQLite sorts
//    the tracks and credits) reads it, field by field; read without its
//    credits, it is the same album less them.
//  - every track of every stored album is found by its identifier and tag
//    (stored, or derived from the album's and left out of the row).
#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "fuzz/catalogue_fuzz_support.h"
#include "providers/catalogue/store/utf8.h"

namespace {

using fuzz::require;

constexpr const char *kEarlierToc = "150 14672 27367 41225";

// The indexed and the linear fuzzy TOC lookups give the same hits in the
// same order, for the TOC and for it shifted with one track moved.
void check_toc_lookups(catalogue::Catalogue &cat, const std::vector<uint32_t> &offsets) {
    std::vector<uint32_t> moved = offsets;
    for (auto &o : moved) o += 40;
    if (moved.size() > 2 && moved[1] + 100 < moved[2]) moved[1] += 100;
    for (const std::vector<uint32_t> *toc : {&offsets, static_cast<const std::vector<uint32_t> *>(&moved)}) {
        catalogue::TocResult fast, slow;
        const bool a = cat.lookup_toc(*toc, {1, 50}, fast).ok(), b = cat.lookup_toc_linear(*toc, {1, 50}, slow).ok();
        require(a == b && fast.kind == slow.kind && fast.total == slow.total && fast.hits.size() == slow.hits.size(),
                "indexed and linear TOC lookups agree", catalogue::toc_text(*toc));
        for (size_t i = 0; i < fast.hits.size(); ++i) {
            const auto &x = fast.hits[i], &y = slow.hits[i];
            require(x.disc_id == y.disc_id && x.toc == y.toc && x.score == y.score && x.shift == y.shift &&
                        x.total_deviation == y.total_deviation && x.max_deviation == y.max_deviation,
                    "indexed and linear TOC hits agree", catalogue::toc_text(*toc));
        }
    }
}

// Every album of the catalogue read three ways: without credits, in full,
// and by the reference reading; all three agree, credits aside for the
// first.
void check_album_reads(catalogue::Catalogue &cat) {
    using Read = catalogue::Catalogue::AlbumRead;
    catalogue::AlbumList list;
    require(cat.list_albums({1, 100}, list).ok(), "list albums");
    for (const catalogue::AlbumListEntry &entry : list.albums) {
        catalogue::IdentifierHit hit;
        require(cat.lookup_tui(entry.tui, "", hit).ok(), "a listed album is found by its tui", entry.tui);
        std::shared_ptr<const catalogue::Album> bare, full;
        catalogue::Album reference;
        require(cat.get_album(hit.album_id, bare, Read::without_credits).ok() &&
                    cat.get_album(hit.album_id, full, Read::full).ok() &&
                    cat.get_album_reference(hit.album_id, reference).ok(),
                "a stored album reads back", entry.tui);
        require(*full == reference, "an album reads as its reference reading", entry.tui);
        // A read without credits may still hand out a copy that has them
        // (one read in full earlier, at the same state of the file).
        const auto without_credits = [](catalogue::Album album) {
            album.contributors.clear();
            for (catalogue::Disc &disc : album.discs)
                for (catalogue::Track &track : disc.tracks) track.contributors.clear();
            return album;
        };
        require(without_credits(*bare) == without_credits(reference),
                "an album read without credits is the album less them", entry.tui);
    }
}

// Albums stored by this import (ids after the earlier album's), read back:
// each track is found again under the identifier and tag it reads with.
void check_track_identifiers(catalogue::Catalogue &cat, uint64_t albums) {
    uint64_t seen = 0;
    for (int64_t id = 2; seen < albums && id < 2 + static_cast<int64_t>(albums) * 2 + 2; ++id) {
        catalogue::Album album;
        if (!cat.get_album(id, album).ok()) continue;
        ++seen;
        for (const catalogue::Disc &disc : album.discs)
            for (const catalogue::Track &track : disc.tracks) {
                catalogue::IdentifierHit hit;
                require(cat.lookup_tui(track.tui, track.tag, hit).ok() &&
                            hit.kind == catalogue::IdentifierHit::Kind::track && hit.track_id == track.id,
                        "a stored track is found by its identifier and tag", track.tui);
            }
    }
}

void check_parsed(const catalogue::Album &album) {
    std::vector<const std::string *> texts = {&album.title, &album.artist};
    for (const catalogue::Disc &disc : album.discs)
        for (const catalogue::Track &track : disc.tracks) texts.insert(texts.end(), {&track.title, &track.artist});
    for (const std::string *text : texts) require(catalogue::valid_utf8(*text), "texts are valid UTF-8", *text);
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

void check_line_decoding(std::string_view text) {
    for (size_t pos = 0; pos <= text.size();) {
        const size_t end = std::min(text.find('\n', pos), text.size());
        const std::string_view line = text.substr(pos, end - pos);
        const std::string decoded = catalogue::decode_text_line(line);
        require(catalogue::valid_utf8(decoded), "a decoded line is valid UTF-8", decoded);
        if (catalogue::valid_utf8(line)) require(decoded == line, "a UTF-8 line decodes to itself", decoded);
        else
            require(catalogue::code_point_count(decoded) == line.size(), "an 8-bit line gives a character per byte",
                    decoded);
        pos = end + 1;
    }
}

struct Counts {
    uint64_t imported = 0, skipped = 0;
};

Counts import_counts(catalogue::Catalogue &cat, const std::string &text) {
    require(cat.begin().ok(), "begin");
    catalogue::ImportReport report;
    require(cat.import_musicbrainz_text(text, report).ok(), "import", text);
    require(cat.rollback().ok(), "rollback");
    return {report.imported, report.skipped};
}

void check_shapes(catalogue::Catalogue &cat, const std::string &release) {
    const Counts one = import_counts(cat, release);
    struct Shape {
        std::string text;
        uint64_t copies;
    };
    std::vector<Shape> shapes = {
        {"[" + release + "]", 1},
        {"[\n  " + release + ",\n  " + release + "\n]\n", 2},
        {"{\"releases\": [" + release + ", " + release + "]}", 2},
        {release + "\n" + release, 2},
    };
    for (const Shape &shape : shapes) {
        const Counts got = import_counts(cat, shape.text);
        require(got.imported == shape.copies * one.imported && got.skipped == shape.copies * one.skipped,
                "streamed shapes agree with the release alone", shape.text);
    }
}

void check_file_import(catalogue::Catalogue &cat, std::string_view text) {
    using catalogue::ImportFormat;
    const std::string bom = "\xEF\xBB\xBF";
    const ImportFormat format = catalogue::sniff_import_format(text);
    if (text.substr(0, 3) != bom) {
        require(catalogue::sniff_import_format("\n \r\n" + std::string(text)) == format, "blank lines first");
        require(catalogue::sniff_import_format(bom + std::string(text)) == format, "a byte order mark first");
    }
    static const std::string path = "/tmp/catalogue_import_fuzz." + std::to_string(getpid());
    {
        std::FILE *f = std::fopen(path.c_str(), "wb");
        require(f && std::fwrite(text.data(), 1, text.size(), f) == text.size() && std::fclose(f) == 0, "temp file");
    }
    require(cat.begin().ok(), "begin");
    catalogue::ImportReport by_file, by_text;
    require(cat.import_file(path, by_file).ok(), "file import", std::string(text));
    require(cat.rollback().ok(), "rollback");
    std::remove(path.c_str());
    require(by_file.imported <= by_file.records, "stored records were read");
    if (format == ImportFormat::releases || format == ImportFormat::xmcd) {
        require(cat.begin().ok(), "begin");
        require((format == ImportFormat::xmcd ? cat.import_xmcd_text(text, by_text)
                                              : cat.import_musicbrainz_text(text, by_text))
                    .ok(),
                "text import");
        require(cat.rollback().ok(), "rollback");
        require(by_file.imported == by_text.imported && by_file.skipped == by_text.skipped,
                "a file imports as the text of its format", std::string(text));
    } else if (format != ImportFormat::lyrics) {
        require(by_file.records == 1 && by_file.skipped == 1 && by_file.imported == 0, "an unknown file is skipped");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 16384) return 0;
    const bool xmcd = data[0] & 1;
    const std::string_view text(reinterpret_cast<const char *>(data + 1), size - 1);

    // One catalogue for the whole run; each import runs inside a
    // transaction that is rolled back afterwards.
    static std::unique_ptr<catalogue::Catalogue> cat = fuzz::catalogue_with_album(
        "", "Lanterns of Glass", "Mira Solenne", {"Track 1", "Track 2", "Track 3"}, {150, 14672, 27367, 41225});
    require(cat->begin().ok(), "begin");
    uint64_t before = 0;
    require(cat->album_count(before).ok() && before == 1, "one album before");

    catalogue::Album parsed;
    const catalogue::Status parse =
        xmcd ? catalogue::parse_xmcd(text, parsed) : catalogue::parse_musicbrainz_release(text, parsed);
    if (xmcd) check_line_decoding(text);
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
    if (st.ok()) check_track_identifiers(*cat, after - 1);

    catalogue::TocResult found;
    require(cat->lookup_toc(std::string_view(kEarlierToc), {}, found).ok() && !found.hits.empty(),
            "the earlier album is still found");
    if (parse.ok())
        for (const catalogue::Disc &disc : parsed.discs)
            for (const catalogue::Toc &toc : disc.tocs) check_toc_lookups(*cat, toc.offsets);
    check_album_reads(*cat);
    require(cat->rollback().ok(), "rollback");
    if (data[0] & 2) check_file_import(*cat, text);
    // A single release object: the lines shape needs it on one line.
    if (!xmcd && parse.ok() && text.find('\n') == std::string_view::npos && text.find('\r') == std::string_view::npos &&
        text.find_first_not_of(" \t") != std::string_view::npos && text[text.find_first_not_of(" \t")] == '{')
        check_shapes(*cat, std::string(text));
    return 0;
}
