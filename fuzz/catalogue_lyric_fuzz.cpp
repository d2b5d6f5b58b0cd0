// Fuzzes the storing of lyrics records: one JSON object (title, artist,
// text, language, release, disc, track) into an in-memory catalogue that
// holds one album with two tracks, each run rolled back afterwards.
// Properties:
//  - a record the parser refuses has a message, and a stored lyric reads
//    back with the fields it was stored with (a track without a disc on
//    disc 1), named with its album and track when those are stored;
//  - storing is idempotent: the same lyric again is reported replaced and
//    unchanged, keeps its id and adds no row; a lyric of the same natural
//    key with other words replaces it in place;
//  - the natural key does not change when the title and artist are
//    written in another case, or the text is folded again.
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/catalogue_fuzz_support.h"

namespace {

using fuzz::require;

uint64_t lyric_count(catalogue::Catalogue &cat) {
    catalogue::Statistics stats;
    require(cat.statistics(stats).ok(), "statistics");
    return stats.lyrics;
}

std::string ascii_upper(std::string text) {
    for (char &c : text)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 8192) return 0;
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    catalogue::Lyric lyric;
    const catalogue::Status parsed = catalogue::parse_lyric_json(text, lyric);
    if (!parsed.ok()) {
        require(!parsed.message.empty(), "a refused record has a message");
        return 0;
    }
    catalogue::Lyric upper = lyric;
    upper.title = ascii_upper(upper.title);
    upper.artist = ascii_upper(upper.artist);
    require(catalogue::lyric_key(upper) == catalogue::lyric_key(lyric), "the key ignores case", std::string(text));

    static std::unique_ptr<catalogue::Catalogue> cat =
        fuzz::catalogue_with_album("rel-a", "Salt Roads", "Ilse Varga", {"Tide", "Brine"});
    require(cat->begin().ok(), "begin");
    const uint64_t before = lyric_count(*cat);
    bool replaced = true, unchanged = true;
    const catalogue::Status st = cat->add_lyric(lyric, &replaced, &unchanged);
    require(st.ok(), "a parsed lyric is stored", st.message);
    require(!replaced && !unchanged && lyric_count(*cat) == before + 1, "a first lyric is new");

    catalogue::Lyric back;
    require(cat->get_lyric(lyric.id, back).ok(), "read back");
    require(back.title == lyric.title && back.artist == lyric.artist && back.text == lyric.text &&
                back.language == lyric.language && back.album_tui == lyric.album_tui &&
                back.disc_number == lyric.disc_number && back.track_number == lyric.track_number,
            "read back as stored");
    require(!lyric.track_number || lyric.disc_number, "a track without a disc is on disc 1");
    const bool on_track = lyric.album_tui == "rel-a" && lyric.disc_number == 1 && lyric.track_number >= 1 &&
                          lyric.track_number <= 2;
    require(on_track == (back.track_id != 0) &&
                back.track_title == (on_track ? (lyric.track_number == 1 ? "Tide" : "Brine") : ""),
            "named with its track");
    require((lyric.album_tui == "rel-a") == (back.album_title == "Salt Roads"), "named with its album");

    catalogue::Lyric again = lyric;
    again.id = 0;
    require(cat->add_lyric(again, &replaced, &unchanged).ok(), "again");
    require(replaced && unchanged && again.id == lyric.id && lyric_count(*cat) == before + 1,
            "the same lyric again is unchanged");
    catalogue::Lyric other = lyric;
    other.text += " more words";
    require(cat->add_lyric(other, &replaced, &unchanged).ok(), "other words");
    const bool keyed_by_words = catalogue::lyric_key(other) != catalogue::lyric_key(lyric);
    require(keyed_by_words ? (!replaced && lyric_count(*cat) == before + 2)
                           : (replaced && !unchanged && other.id == lyric.id && lyric_count(*cat) == before + 1),
            "other words replace the lyric of the same key");
    require(cat->rollback().ok(), "rollback");
    return 0;
}
