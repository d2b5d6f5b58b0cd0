// Damaged catalogues: an import killed with SIGKILL at several moments
// leaves a sound catalogue that keeps every album it had before; truncated
// and byte-flipped files fail SQLite's integrity check, are refused at open
// and are never written to.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "providers/catalogue/store/catalogue.h"
#include "release_json.h"
#include "zelto/zelto_catalogue.h"
#include "zelto/zelto_host_services.h"

namespace {

namespace fs = std::filesystem;
using namespace release_json;

// Album n of a generated set: three tracks and a TOC of its own.
std::string numbered_release(uint32_t n) {
    const uint32_t base = 150 + n * 7;
    return release("gen-" + std::to_string(n), "Generated Album " + std::to_string(n), "Artist " + std::to_string(n % 97),
                   "2001-01-01",
                   {{{base, base + 15000, base + 30000}, base + 45000,
                     {{"One", 200000}, {"Two", 200000}, {"Three", 200000}}}});
}

const std::vector<uint32_t> kEarlierToc = {150, 14672, 27367, 41225};

class CatalogueDamage : public ::testing::Test {
   protected:
    void SetUp() override {
        char dir[] = "/tmp/cantrix-damage-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        dir_ = dir;
        path_ = dir_ + "/damage.catalogue";
        // The catalogue as the user had it before.
        write(dir_ + "/earlier.json",
              {release("alb-lanterns", "Lanterns of Glass", "Mira Solenne", "2004-05-01",
                       {{{150, 14672, 27367}, 41225,
                         {{"Quiet Harbour", 193626}, {"Paper Comets", 169266}, {"The Long Thaw", 184773}}}}),
               numbered_release(100000), numbered_release(100001)});
        ASSERT_EQ(import(dir_ + "/earlier.json"), 0u);
        expect_earlier_albums();
    }
    void TearDown() override { fs::remove_all(dir_); }

    static void write(const std::string &file, const std::vector<std::string> &releases) {
        std::ofstream out(file);
        for (const std::string &r : releases) out << r << "\n";
    }
    uint32_t import(const std::string &file) {
        zelto_catalogue *catalogue = nullptr;
        uint32_t s = zelto_catalogue_open(path_.c_str(), ZELTO_CATALOGUE_OPEN_CREATE, &catalogue);
        if (s == 0) s = zelto_catalogue_import(catalogue, file.c_str(), nullptr, nullptr, nullptr);
        zelto_catalogue_close(catalogue);
        return s;
    }
    std::string check(uint32_t *status) const {
        char *report = nullptr;
        *status = zelto_catalogue_check(path_.c_str(), &report);
        std::string text = report ? report : "";
        zelto_manager_text_free(report);
        return text;
    }
    // The earlier albums, each found by its TOC or its numbered title.
    void expect_earlier_albums() {
        std::unique_ptr<catalogue::Catalogue> cat;
        ASSERT_TRUE(catalogue::Catalogue::open(path_, cat).ok());
        catalogue::TocResult toc;
        ASSERT_TRUE(cat->lookup_toc(kEarlierToc, {}, toc).ok());
        EXPECT_EQ(toc.kind, catalogue::MatchKind::single);
        for (uint32_t n : {100000u, 100001u}) {
            catalogue::TextQuery query;
            query.album_title = "Generated Album " + std::to_string(n);
            catalogue::AlbumSearchResult found;
            ASSERT_TRUE(cat->search_albums(query, {}, found).ok());
            EXPECT_FALSE(found.hits.empty()) << n;
        }
    }
    std::string dir_, path_;
};

TEST_F(CatalogueDamage, ImportKilledAtSeveralMoments) {
    std::vector<std::string> releases;
    for (uint32_t n = 0; n < 2500; ++n) releases.push_back(numbered_release(n));
    write(dir_ + "/big.jsonl", releases);
    uint64_t albums_before = 3;
    for (const useconds_t delay : {0u, 50000u, 400000u, 1000000u}) {
        SCOPED_TRACE(delay);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) _exit(import(dir_ + "/big.jsonl") == 0 ? 0 : 1);
        usleep(delay);
        kill(child, SIGKILL);
        int wstatus = 0;
        ASSERT_EQ(waitpid(child, &wstatus, 0), child);

        uint32_t status = 1;
        const std::string report = check(&status);
        EXPECT_EQ(status, 0u) << report;
        EXPECT_EQ(report, "ok\n");
        zelto_catalogue *catalogue = nullptr;
        ASSERT_EQ(zelto_catalogue_open(path_.c_str(), 0, &catalogue), 0u);
        zelto_catalogue_info info{};
        ASSERT_EQ(zelto_catalogue_get_info(catalogue, &info), 0u);
        zelto_catalogue_close(catalogue);
        // Albums already stored stay; a killed import only ever adds.
        EXPECT_GE(info.albums, albums_before);
        albums_before = info.albums;
        RecordProperty("albums_after_kill_at_" + std::to_string(delay) + "us", std::to_string(info.albums));
        expect_earlier_albums();
    }
    // The import runs to its end once it is left alone.
    EXPECT_EQ(import(dir_ + "/big.jsonl"), 0u);
    zelto_catalogue *catalogue = nullptr;
    ASSERT_EQ(zelto_catalogue_open(path_.c_str(), 0, &catalogue), 0u);
    zelto_catalogue_info info{};
    ASSERT_EQ(zelto_catalogue_get_info(catalogue, &info), 0u);
    zelto_catalogue_close(catalogue);
    EXPECT_EQ(info.albums, 2503u);
    uint32_t status = 1;
    EXPECT_EQ(check(&status), "ok\n");
    expect_earlier_albums();
}

// A file damaged on disk: the full check names the damage, opening refuses
// it (also for an import, which would write into it), and the file is left
// byte for byte as it was.
TEST_F(CatalogueDamage, TruncatedAndFlippedFilesAreReportedAndRefused) {
    std::vector<std::string> releases;
    for (uint32_t n = 0; n < 300; ++n) releases.push_back(numbered_release(n));
    write(dir_ + "/more.jsonl", releases);
    ASSERT_EQ(import(dir_ + "/more.jsonl"), 0u);
    // Fold the write-ahead log into the file, so that the file alone holds it.
    {
        std::unique_ptr<catalogue::Catalogue> cat;
        ASSERT_TRUE(catalogue::Catalogue::open(path_, cat).ok());
    }
    const std::string good = dir_ + "/good.catalogue";
    fs::copy_file(path_, good);
    const uintmax_t size = fs::file_size(good);
    ASSERT_GT(size, 16u * 4096u);

    // The first page of the tracks table and of each of its indexes: pages
    // that opening a catalogue does not read, but counting its tracks does.
    std::vector<uintmax_t> track_pages;
    {
        sqlite3 *db = nullptr;
        ASSERT_EQ(sqlite3_open_v2(good.c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
        sqlite3_stmt *q = nullptr;
        ASSERT_EQ(sqlite3_prepare_v2(db, "SELECT rootpage FROM sqlite_master WHERE tbl_name = 'tracks' AND rootpage > 1",
                                     -1, &q, nullptr),
                  SQLITE_OK);
        while (sqlite3_step(q) == SQLITE_ROW) track_pages.push_back(uintmax_t(sqlite3_column_int64(q, 0) - 1) * 4096);
        sqlite3_finalize(q);
        sqlite3_close(db);
    }
    ASSERT_GE(track_pages.size(), 3u);

    struct Damage {
        const char *name;
        uintmax_t truncate_to;  // 0: no truncation
        std::vector<uintmax_t> flips;
        // Opened only to read, the file is refused at once; else the damage
        // is met by the first read of the damaged pages.
        bool read_only_refused;
    };
    const std::vector<Damage> damages = {
        {"truncated to half", size / 2, {}, true},
        {"truncated to one page and a bit", 4096 + 100, {}, true},
        {"truncated inside the header", 60, {}, true},
        {"header magic flipped", 0, {0, 5}, true},
        {"page headers flipped", 0, {2 * 4096, 3 * 4096 + 1, 5 * 4096, 8 * 4096 + 3}, true},
        {"the tracks table and its indexes flipped", 0, track_pages, false},
    };
    for (const Damage &d : damages) {
        SCOPED_TRACE(d.name);
        fs::remove(path_);
        fs::remove(path_ + "-wal");
        fs::remove(path_ + "-shm");
        fs::copy_file(good, path_);
        if (d.truncate_to) fs::resize_file(path_, d.truncate_to);
        {
            std::fstream f(path_, std::ios::in | std::ios::out | std::ios::binary);
            for (uintmax_t at : d.flips) {
                f.seekg(static_cast<std::streamoff>(at));
                const int c = f.get();
                f.seekp(static_cast<std::streamoff>(at));
                f.put(static_cast<char>(c ^ 0xA5));
            }
        }
        std::ifstream before_in(path_, std::ios::binary);
        const std::string before((std::istreambuf_iterator<char>(before_in)), std::istreambuf_iterator<char>());

        uint32_t status = 0;
        const std::string report = check(&status);
        EXPECT_EQ(status, ZELTO_CATALOGUE_DATABASE) << report;
        EXPECT_NE(report, "ok\n");
        EXPECT_FALSE(report.empty());
        zelto_catalogue *catalogue = nullptr;
        EXPECT_EQ(zelto_catalogue_open(path_.c_str(), 0, &catalogue), ZELTO_CATALOGUE_DATABASE);
        EXPECT_EQ(zelto_catalogue_open(path_.c_str(), ZELTO_CATALOGUE_OPEN_CREATE, &catalogue),
                  ZELTO_CATALOGUE_DATABASE);
        EXPECT_EQ(catalogue, nullptr);
        const uint32_t read_open = zelto_catalogue_open(path_.c_str(), ZELTO_CATALOGUE_OPEN_READONLY, &catalogue);
        if (d.read_only_refused) {
            EXPECT_EQ(read_open, ZELTO_CATALOGUE_DATABASE);
            EXPECT_EQ(catalogue, nullptr);
        } else {
            ASSERT_EQ(read_open, 0u);
            zelto_catalogue_info info{};
            EXPECT_EQ(zelto_catalogue_get_info(catalogue, &info), ZELTO_CATALOGUE_DATABASE);
            EXPECT_EQ(zelto_catalogue_close(catalogue), 0u);
        }

        std::ifstream after_in(path_, std::ios::binary);
        const std::string after((std::istreambuf_iterator<char>(after_in)), std::istreambuf_iterator<char>());
        EXPECT_TRUE(after == before) << "the damaged file was changed";
    }
}

TEST_F(CatalogueDamage, CheckOfSoundMissingAndForeignFiles) {
    uint32_t status = 1;
    EXPECT_EQ(check(&status), "ok\n");
    EXPECT_EQ(status, 0u);
    char *report = nullptr;
    EXPECT_EQ(zelto_catalogue_check((dir_ + "/none").c_str(), &report), ZELTO_CATALOGUE_NO_FILE);
    EXPECT_EQ(report, nullptr);
    EXPECT_EQ(zelto_catalogue_check(nullptr, &report), ZELTO_CATALOGUE_BAD_ARG);
    // A text file, and an SQLite file of another program.
    write(dir_ + "/text.catalogue", {"not a database at all, just some words"});
    EXPECT_EQ(zelto_catalogue_check((dir_ + "/text.catalogue").c_str(), nullptr), ZELTO_CATALOGUE_DATABASE);
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open((dir_ + "/other.db").c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "CREATE TABLE notes(id INTEGER PRIMARY KEY, text TEXT)", nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(db);
    EXPECT_EQ(zelto_catalogue_check((dir_ + "/other.db").c_str(), &report), ZELTO_CATALOGUE_NOT_CATALOGUE);
    EXPECT_STREQ(report, "not a catalogue: an SQLite database of another program\n");
    zelto_manager_text_free(report);
}

std::string contents(const std::string &file) {
    std::ifstream in(file, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void sql(const std::string &file, const char *statements) {
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, statements, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
    sqlite3_close(db);
}

int64_t pragma(const std::string &file, const char *name) {
    sqlite3 *db = nullptr;
    sqlite3_stmt *q = nullptr;
    int64_t value = -1;
    if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
        sqlite3_prepare_v2(db, (std::string("PRAGMA ") + name).c_str(), -1, &q, nullptr) == SQLITE_OK &&
        sqlite3_step(q) == SQLITE_ROW)
        value = sqlite3_column_int64(q, 0);
    sqlite3_finalize(q);
    sqlite3_close(db);
    return value;
}

// Files that are not catalogues: every way of opening or checking one is
// refused as no catalogue, and the file stays byte for byte as it was,
// without a journal beside it.
TEST_F(CatalogueDamage, ForeignFilesAreRefusedAndLeftUnchanged) {
    struct Foreign {
        const char *name;
        const char *statements;  // null: an empty file
        std::string reason;
    };
    const std::vector<Foreign> cases = {
        {"empty file", nullptr, "not a catalogue: the file is empty"},
        {"another program's albums", "CREATE TABLE albums(id INTEGER PRIMARY KEY, title TEXT);"
         "INSERT INTO albums(title) VALUES('mine');", "not a catalogue: an SQLite database of another program"},
        {"another application id", "PRAGMA application_id = 1234; CREATE TABLE meta(key, value);",
         "not a catalogue: an SQLite database of another program (application id 0x000004D2)"},
        {"catalogue tables without the schema row",
         "CREATE TABLE meta(key, value); CREATE TABLE albums(x); CREATE TABLE discs(x); CREATE TABLE tocs(x);"
         "CREATE TABLE tracks(x); CREATE TABLE lyrics(x);",
         "not a catalogue: an SQLite database of another program"},
        {"a newer catalogue", "PRAGMA application_id = 1514361923; PRAGMA user_version = 99; CREATE TABLE t(x);",
         "catalogue of a newer schema (99) than this program reads (" + std::to_string(catalogue::kSchemaVersion) + ")"},
    };
    for (const Foreign &f : cases) {
        SCOPED_TRACE(f.name);
        const std::string file = dir_ + "/foreign.db";
        fs::remove(file);
        if (f.statements) sql(file, f.statements);
        else std::ofstream(file).flush();
        const std::string before = contents(file);
        char *report = nullptr;
        EXPECT_EQ(zelto_catalogue_check(file.c_str(), &report), ZELTO_CATALOGUE_NOT_CATALOGUE);
        EXPECT_EQ(std::string(report ? report : ""), std::string(f.reason) + "\n");
        zelto_manager_text_free(report);
        for (uint32_t flags : {0u, ZELTO_CATALOGUE_OPEN_CREATE, ZELTO_CATALOGUE_OPEN_READONLY}) {
            zelto_catalogue *catalogue = nullptr;
            EXPECT_EQ(zelto_catalogue_open(file.c_str(), flags, &catalogue), ZELTO_CATALOGUE_NOT_CATALOGUE) << flags;
            EXPECT_EQ(catalogue, nullptr);
        }
        for (auto mode : {catalogue::OpenMode::read_write, catalogue::OpenMode::read_only}) {
            std::unique_ptr<catalogue::Catalogue> cat;
            const catalogue::Status st = catalogue::Catalogue::open(file, cat, mode);
            EXPECT_EQ(st.code, catalogue::Code::not_catalogue);
            EXPECT_EQ(st.message, "catalogue " + file + ": " + f.reason);
        }
        EXPECT_TRUE(contents(file) == before) << "the file was changed";
        EXPECT_FALSE(fs::exists(file + "-wal") || fs::exists(file + "-shm") || fs::exists(file + "-journal"));
    }
}

// A catalogue made before the mark is read as it is, and marked when it is
// next opened for writing.
TEST_F(CatalogueDamage, UnmarkedCatalogueIsMarkedWhenWritten) {
    EXPECT_EQ(pragma(path_, "application_id"), catalogue::kApplicationId);
    EXPECT_EQ(pragma(path_, "user_version"), catalogue::kSchemaVersion);
    sql(path_, "PRAGMA application_id = 0; PRAGMA user_version = 0;");
    const std::string before = contents(path_);
    zelto_catalogue *catalogue = nullptr;
    ASSERT_EQ(zelto_catalogue_open(path_.c_str(), ZELTO_CATALOGUE_OPEN_READONLY, &catalogue), 0u);
    zelto_catalogue_info info{};
    EXPECT_EQ(zelto_catalogue_get_info(catalogue, &info), 0u);
    EXPECT_EQ(info.albums, 3u);
    zelto_catalogue_close(catalogue);
    EXPECT_TRUE(contents(path_) == before);
    EXPECT_EQ(pragma(path_, "application_id"), 0);
    ASSERT_EQ(zelto_catalogue_open(path_.c_str(), 0, &catalogue), 0u);
    zelto_catalogue_close(catalogue);
    EXPECT_EQ(pragma(path_, "application_id"), catalogue::kApplicationId);
    EXPECT_EQ(pragma(path_, "user_version"), catalogue::kSchemaVersion);
    expect_earlier_albums();
}

// An unmarked file is a catalogue only when its schema row holds a schema
// number this program knows, written as it writes them.
TEST_F(CatalogueDamage, UnmarkedCatalogueNeedsAKnownSchemaNumber) {
    sql(path_, "PRAGMA application_id = 0; PRAGMA user_version = 0;");
    const std::string current = std::to_string(catalogue::kSchemaVersion);
    const struct {
        std::string row;
        bool known;
    } rows[] = {{"1", true},  {current, true},  {"0", false},  {std::to_string(catalogue::kSchemaVersion + 1), false},
                {"01", false}, {current + " ", false}, {"", false}, {"x", false}, {"99999999999", false}};
    for (const auto &r : rows) {
        SCOPED_TRACE("'" + r.row + "'");
        sql(path_, ("UPDATE meta SET value = '" + r.row + "' WHERE key = 'schema';").c_str());
        std::unique_ptr<catalogue::Catalogue> cat;
        const catalogue::Status st = catalogue::Catalogue::open(path_, cat, catalogue::OpenMode::read_only);
        if (r.known) {
            EXPECT_TRUE(st.ok()) << st.message;
            continue;
        }
        EXPECT_EQ(st.code, catalogue::Code::not_catalogue);
        EXPECT_EQ(st.message, "catalogue " + path_ + ": not a catalogue: an SQLite database of another program");
    }
}

// A catalogue in a read-only file inside a read-only folder (WAL mode, so
// that its shared-memory file cannot be made) answers lookups and searches
// when opened read-only; opening it for writing fails cleanly. Run as an
// unprivileged user, for whom the modes hold.
TEST_F(CatalogueDamage, ReadOnlyFileInReadOnlyFolder) {
    const std::string before = contents(path_);
    ASSERT_EQ(before.at(18), 2);  // the header's read version: WAL
    ASSERT_EQ(chmod(path_.c_str(), 0444), 0);
    ASSERT_EQ(chmod(dir_.c_str(), 0555), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (getuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(10);
        zelto_catalogue *catalogue = nullptr;
        if (zelto_catalogue_open(path_.c_str(), ZELTO_CATALOGUE_OPEN_READONLY, &catalogue) != 0) _exit(11);
        zelto_catalogue_info info{};
        if (zelto_catalogue_get_info(catalogue, &info) != 0 || info.albums != 3) _exit(12);
        zelto_catalogue_close(catalogue);
        std::unique_ptr<catalogue::Catalogue> cat;
        if (!catalogue::Catalogue::open(path_, cat, catalogue::OpenMode::read_only).ok()) _exit(13);
        catalogue::TocResult toc;
        if (!cat->lookup_toc(kEarlierToc, {}, toc).ok() || toc.kind != catalogue::MatchKind::single) _exit(14);
        catalogue::TextQuery query;
        query.album_title = "Lantrens of Glass";
        catalogue::AlbumSearchResult found;
        if (!cat->search_albums(query, {}, found).ok() || found.hits.size() != 1) _exit(15);
        if (zelto_catalogue_open(path_.c_str(), ZELTO_CATALOGUE_OPEN_CREATE, &catalogue) == 0) _exit(16);
        _exit(0);
    }
    int wstatus = 0;
    ASSERT_EQ(waitpid(child, &wstatus, 0), child);
    chmod(dir_.c_str(), 0700);
    chmod(path_.c_str(), 0644);
    EXPECT_TRUE(WIFEXITED(wstatus));
    EXPECT_EQ(WEXITSTATUS(wstatus), 0);
    EXPECT_TRUE(contents(path_) == before);
}

}  // namespace
