// Builders of small catalogues for the catalogue tests.
#ifndef CATALOGUE_FIXTURES_H
#define CATALOGUE_FIXTURES_H

#include <gtest/gtest.h>

#include <sqlite3.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "providers/catalogue/store/catalogue.h"
#include "providers/catalogue/store/catalogue_internal.h"

namespace catalogue_test {

// The rows a statement gives on a catalogue file opened read-only, each
// column's text followed by "|", the last by ";".
inline std::string query_file(const std::string &path, const std::string &statement) {
    sqlite3 *db = nullptr;
    std::string out;
    EXPECT_EQ(sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    sqlite3_stmt *q = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db, statement.c_str(), -1, &q, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
    while (sqlite3_step(q) == SQLITE_ROW)
        for (int i = 0; i < sqlite3_column_count(q); ++i) {
            const auto *text = sqlite3_column_text(q, i);
            out += std::string(text ? reinterpret_cast<const char *>(text) : "") +
                   (i + 1 < sqlite3_column_count(q) ? "|" : ";");
        }
    sqlite3_finalize(q);
    sqlite3_close(db);
    return out;
}

// Lays a catalogue file out as schema 6 did (the tests of migrations start
// from it): the album and track text indexes keep a copy of their keys,
// which the albums and tracks tables then do not store.
inline void make_schema_6(const std::string &path) {
    std::vector<std::pair<int64_t, catalogue::AlbumKeys>> albums;
    {
        std::unique_ptr<catalogue::Catalogue> cat;
        ASSERT_TRUE(catalogue::Catalogue::open(path, cat).ok());
        const std::string ids = query_file(path, "SELECT id FROM albums");
        for (size_t at = 0; at < ids.size(); at = ids.find(';', at) + 1) {
            albums.emplace_back(std::stoll(ids.substr(at)), catalogue::AlbumKeys{});
            ASSERT_TRUE(cat->search_keys(albums.back().first, albums.back().second).ok());
        }
    }
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    auto run = [&](const std::string &sql) {
        char *error = nullptr;
        EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error), SQLITE_OK) << (error ? error : "") << sql;
        sqlite3_free(error);
    };
    run("BEGIN; DROP INDEX tracks_own_artist; DROP TABLE album_fts; DROP TABLE track_fts;"
        "CREATE VIRTUAL TABLE album_fts USING fts5(title, artist, tokenize='unicode61 remove_diacritics 2', prefix='3');"
        "CREATE VIRTUAL TABLE track_fts USING fts5(title, artist, composer,"
        "  tokenize='unicode61 remove_diacritics 2', prefix='3');");
    sqlite3_stmt *album = nullptr, *track = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(db, "INSERT INTO album_fts(rowid, title, artist) VALUES(?,?,?)", -1, &album, nullptr),
              SQLITE_OK);
    ASSERT_EQ(sqlite3_prepare_v2(db, "INSERT INTO track_fts(rowid, title, artist, composer) VALUES(?,?,?,?)", -1,
                                 &track, nullptr),
              SQLITE_OK);
    auto insert = [](sqlite3_stmt *q, int64_t id, const catalogue::IndexKeys &keys) {
        sqlite3_bind_int64(q, 1, id);
        int i = 1;
        for (const std::string *k : {&keys.title, &keys.artist, &keys.composer})
            if (i < sqlite3_bind_parameter_count(q)) sqlite3_bind_text(q, ++i, k->c_str(), -1, SQLITE_TRANSIENT);
        EXPECT_EQ(sqlite3_step(q), SQLITE_DONE);
        sqlite3_reset(q);
    };
    for (const auto &[id, keys] : albums) {
        insert(album, id, keys.album);
        for (const auto &[track_id, track_keys] : keys.tracks) insert(track, track_id, track_keys);
    }
    sqlite3_finalize(album);
    sqlite3_finalize(track);
    run("ALTER TABLE albums DROP COLUMN keys; ALTER TABLE tracks DROP COLUMN keys;"
        "ALTER TABLE tracks DROP COLUMN own_artist; UPDATE meta SET value = '6' WHERE key = 'schema';"
        "PRAGMA user_version = 6; COMMIT;");
    sqlite3_close(db);
}

inline std::unique_ptr<catalogue::Catalogue> open_memory() {
    std::unique_ptr<catalogue::Catalogue> cat;
    catalogue::Status st = catalogue::Catalogue::open(":memory:", cat);
    EXPECT_TRUE(st.ok()) << st.message;
    return cat;
}

// A one-disc album; `toc` may be empty, then it has `tracks` tracks and no TOC.
inline catalogue::Album make_album(const std::string &title, const std::string &artist,
                                   std::initializer_list<const char *> tracks, std::vector<uint32_t> toc = {}) {
    catalogue::Album a;
    a.title = title;
    a.artist = artist;
    a.contributors.push_back({artist, "", "performer", "", false, 0});
    catalogue::Disc d;
    uint32_t n = 0;
    for (const char *t : tracks) {
        catalogue::Track tr;
        tr.number = ++n;
        tr.title = t;
        d.tracks.push_back(tr);
    }
    if (!toc.empty()) d.tocs.push_back({toc, "", ""});
    a.discs.push_back(d);
    return a;
}

inline int64_t add(catalogue::Catalogue &cat, catalogue::Album album) {
    catalogue::Status st = cat.add_album(album);
    EXPECT_TRUE(st.ok()) << st.message;
    return album.id;
}

// Two readings of one query (a fast one and its reference) agree on the
// kind, total and served range of their page, and on its number of hits;
// call through ASSERT_NO_FATAL_FAILURE before comparing the hits.
template <typename Result>
void expect_same_page(const Result &a, const Result &b, const std::string &what) {
    ASSERT_EQ(a.kind, b.kind) << what;
    ASSERT_EQ(a.total, b.total) << what;
    ASSERT_EQ(a.range_start, b.range_start) << what;
    ASSERT_EQ(a.range_end, b.range_end) << what;
    ASSERT_EQ(a.hits.size(), b.hits.size()) << what;
}

// A fresh folder under /tmp (the test removes it), and a file of `text`.
inline std::string temp_dir() {
    char tmpl[] = "/tmp/catalogue_test_XXXXXX";
    EXPECT_NE(mkdtemp(tmpl), nullptr);
    return tmpl;
}

inline void write(const std::string &path, const std::string &text) { std::ofstream(path, std::ios::binary) << text; }

// A lyric search by title and by words of the text (either may be empty),
// first page of ten, and its first hit read back whole.
struct LyricsFound {
    uint64_t total = 0;
    std::vector<catalogue::LyricHit> hits;
    catalogue::Lyric first;
};

inline LyricsFound find_lyrics(catalogue::Catalogue &cat, const std::string &title, const std::string &fragment) {
    catalogue::LyricQuery query;
    query.title = title;
    query.fragment = fragment;
    LyricsFound found;
    catalogue::LyricSearchResult r;
    EXPECT_TRUE(cat.search_lyrics(query, {1, 10}, r).ok());
    found.total = r.total;
    found.hits = r.hits;
    if (!r.hits.empty()) {
        EXPECT_TRUE(cat.get_lyric(r.hits[0].lyric_id, found.first).ok());
    }
    return found;
}

inline std::filesystem::path source_root() {
    return std::filesystem::path(__FILE__).parent_path().parent_path().parent_path();
}

}  // namespace catalogue_test

#endif
