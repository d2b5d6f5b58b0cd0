// The in-memory catalogue the catalogue harnesses store into: it holds one
// album of one disc before each run (runs roll back what they store).
#ifndef CANTRIX_CATALOGUE_FUZZ_SUPPORT_H
#define CANTRIX_CATALOGUE_FUZZ_SUPPORT_H

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "providers/catalogue/store/catalogue.h"

namespace fuzz {

// An in-memory catalogue holding one album (`tui` may be empty) of one disc
// with the given track titles, numbered from 1, and `toc` (none if empty).
inline std::unique_ptr<catalogue::Catalogue> catalogue_with_album(const std::string &tui, const std::string &title,
                                                                  const std::string &artist,
                                                                  std::initializer_list<const char *> tracks,
                                                                  std::vector<uint32_t> toc = {}) {
    std::unique_ptr<catalogue::Catalogue> cat;
    require(catalogue::Catalogue::open(":memory:", cat).ok(), "open");
    catalogue::Album album;
    album.tui = tui;
    album.title = title;
    album.artist = artist;
    catalogue::Disc disc;
    for (const char *name : tracks) {
        catalogue::Track track;
        track.number = static_cast<uint32_t>(disc.tracks.size() + 1);
        track.title = name;
        disc.tracks.push_back(track);
    }
    if (!toc.empty()) disc.tocs.push_back({std::move(toc), "", ""});
    album.discs.push_back(disc);
    require(cat->add_album(album).ok(), "the album stored before");
    return cat;
}

}  // namespace fuzz

#endif
