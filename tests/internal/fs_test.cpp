// The file and directory API and the file-handle manager, on one thread.
#include <sys/resource.h>
#include <sys/wait.h>

#include <csignal>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "ombr/ombr_string_printf.h"
#include "out_param.h"
#include "platform/ombr_fs_internal.h"
#include "platform_test.h"

namespace {

using platform_test::FsTest;
using platform_test::read_file;
using platform_test::read_some;
using platform_test::write_all;
using platform_test::write_file;

constexpr uint32_t kRW = OMBR_FS_FLAG_READ | OMBR_FS_FLAG_WRITE;
constexpr uint32_t kAttrRW = OMBR_FS_ATTR_READ | OMBR_FS_ATTR_WRITE;

uint32_t vwrite(ombr_file_t f, uint32_t *written, const char *format, ...) {
    va_list args;
    va_start(args, format);
    uint32_t st = ombr_fs_file_vwrite(f, format, args, written);
    va_end(args);
    return st;
}

// ---- Open, read, write, position ---------------------------------------------------

TEST(FsPackage, OpenNeedsThePackage) {
    ombr_file_t f = nullptr;
    ASSERT_EQ(ombr_fs_initchecks(), 0u);
    EXPECT_EQ(ombr_fs_file_open("/tmp/x", OMBR_FS_FLAG_READ, 0, &f), 0x90030007u);
    EXPECT_EQ(f, nullptr);
}

TEST_F(FsTest, OpenRefusesBadArgumentsAndNames) {
    ombr_file_t f = nullptr;
    EXPECT_EQ(ombr_fs_file_open(nullptr, OMBR_FS_FLAG_READ, 0, &f), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_open(path("a").c_str(), OMBR_FS_FLAG_READ, 0, nullptr), 0x90030001u);
    // Neither read, write nor append.
    EXPECT_EQ(ombr_fs_file_open(path("a").c_str(), OMBR_FS_FLAG_CREATE | OMBR_FS_FLAG_TRUNCATE, kAttrRW, &f),
              0x90030001u);
    // An empty name is the system's to refuse: no such file.
    EXPECT_EQ(ombr_fs_file_open("", OMBR_FS_FLAG_READ, 0, &f), 0x90030041u);
    EXPECT_EQ(ombr_fs_file_open(path("missing").c_str(), OMBR_FS_FLAG_READ, 0, &f), 0x90030041u);
    EXPECT_EQ(ombr_fs_file_open(dir_.c_str(), OMBR_FS_FLAG_WRITE, 0, &f), 0x90030046u);  // EISDIR
    EXPECT_EQ(f, nullptr);
    write_file(path("a"), "x");
    EXPECT_EQ(ombr_fs_file_open(path("a").c_str(), OMBR_FS_FLAG_WRITE | OMBR_FS_FLAG_CREATE | OMBR_FS_FLAG_EXCLUSIVE,
                                kAttrRW, &f),
              0x90030042u);
    EXPECT_EQ(ombr_fs_file_close(nullptr), 0u);
}

TEST_F(FsTest, WriteReadPositionAndEnd) {
    ombr_file_t f = open_rw("data");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(out(ombr_fs_file_get_name, f), path("data"));
    ASSERT_EQ(write_all(f, "hello world"), 0u);
    EXPECT_EQ(out(ombr_fs_file_get_position, f), 11u);
    EXPECT_EQ(out(ombr_fs_file_size, f), 11u);
    EXPECT_EQ(out(ombr_fs_file_get_eof, f), 1u);  // the position equals the size

    ASSERT_EQ(ombr_fs_file_seek(f, 6, OMBR_FS_SEEK_START), 0u);
    EXPECT_EQ(out(ombr_fs_file_get_eof, f), 0u);
    EXPECT_EQ(read_some(f, 100), "world");
    EXPECT_EQ(read_some(f, 100), "");  // 0 bytes: the end is marked
    ASSERT_EQ(ombr_fs_file_seek(f, 0, OMBR_FS_SEEK_START), 0u);
    EXPECT_EQ(out(ombr_fs_file_get_eof, f), 1u);  // a seek changes only the position
    ASSERT_EQ(write_all(f, "J"), 0u);
    EXPECT_EQ(out(ombr_fs_file_get_eof, f), 0u);  // a write clears the mark
    EXPECT_EQ(read_some(f, 0), "");  // any read of 0 bytes marks the end
    EXPECT_EQ(out(ombr_fs_file_get_eof, f), 1u);

    // Positioned reads and writes leave the position alone.
    uint32_t n = 0;
    char buf[8] = {};
    EXPECT_EQ(out(ombr_fs_file_write_at, f, 20, "Z", 1), 1u);
    ASSERT_EQ(ombr_fs_file_read_at(f, 6, buf, 5, &n), 0u);
    EXPECT_EQ(std::string(buf, n), "world");
    EXPECT_EQ(out(ombr_fs_file_get_position, f), 1u);
    // Only the low 32 bits of a read offset reach the system.
    ASSERT_EQ(ombr_fs_file_read_at(f, (1ull << 32) + 6, buf, 5, &n), 0u);
    EXPECT_EQ(std::string(buf, n), "world");

    ASSERT_EQ(ombr_fs_file_truncate(f, 5), 0u);
    EXPECT_EQ(out(ombr_fs_file_get_position, f), 5u);
    ASSERT_EQ(ombr_fs_file_commit(f), 0u);
    ASSERT_EQ(ombr_fs_file_close(f), 0u);
    EXPECT_EQ(read_file(path("data")), "Jello");
}

TEST_F(FsTest, NullArgumentsOfFileOperations) {
    ombr_file_t f = open_rw("n");
    char b[4];
    uint32_t n = 0;
    uint64_t v = 0;
    uint8_t e = 0;
    const char *s = nullptr;
    EXPECT_EQ(ombr_fs_file_read(nullptr, b, 4, &n), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_read(f, nullptr, 4, &n), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_read(f, b, 4, nullptr), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_write(f, b, 4, nullptr), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_write_at(nullptr, 0, b, 4, &n), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_read_line(f, nullptr, 4), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_read_line(f, b, 0), 0x90030049u);  // reads nothing: the end
    // A null buffer is refused even for 0 bytes.
    EXPECT_EQ(ombr_fs_file_write(f, nullptr, 0, &n), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_write_at(f, 0, nullptr, 0, &n), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_write_to_file(path("n").c_str(), nullptr, 0, 0), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_get_position(f, nullptr), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_size(nullptr, &v), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_get_eof(f, nullptr), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_get_name(nullptr, &s), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_commit(nullptr), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_get_eof(f, &e), 0u);
    // A block that is not an open file.
    alignas(8) unsigned char junk[256] = {};
    EXPECT_EQ(ombr_fs_file_size(reinterpret_cast<ombr_file_t>(junk), &v), 0x90030321u);
    EXPECT_EQ(ombr_fs_file_close(f), 0u);
}

struct SeekCase {
    uint64_t start;
    uint64_t offset;
    uint32_t origin;
    uint32_t status;
    uint64_t position;  // after the seek
};

TEST_F(FsTest, SeekOrigins) {
    const SeekCase cases[] = {
        {3, 10, OMBR_FS_SEEK_START, 0, 10},                     // exactly the size
        {3, 11, OMBR_FS_SEEK_START, 0x90030051u, 3},            // one past it
        {3, 0, OMBR_FS_SEEK_START, 0, 0},
        {3, 7, OMBR_FS_SEEK_CURRENT, 0, 10},
        {3, 8, OMBR_FS_SEEK_CURRENT, 0x90030051u, 3},
        {3, ~0ull, OMBR_FS_SEEK_CURRENT, 0x90030051u, 3},       // no wrap-around
        {3, 4, OMBR_FS_SEEK_END, 0, 6},                         // backwards from the end
        {3, 10, OMBR_FS_SEEK_END, 0, 0},
        {3, 11, OMBR_FS_SEEK_END, 0x90030051u, 3},
        {3, 0, 0, 0x90030001u, 3},
        {3, 0, 4, 0x90030001u, 3},
    };
    ombr_file_t f = open_rw("seek");
    ASSERT_EQ(write_all(f, "0123456789"), 0u);
    for (const SeekCase &c : cases) {
        ASSERT_EQ(ombr_fs_file_seek(f, c.start, OMBR_FS_SEEK_START), 0u);
        EXPECT_EQ(ombr_fs_file_seek(f, c.offset, c.origin), c.status) << c.offset << " from " << c.origin;
        EXPECT_EQ(out(ombr_fs_file_get_position, f), c.position) << c.offset << " from " << c.origin;
    }
    EXPECT_EQ(ombr_fs_file_close(f), 0u);
}

TEST_F(FsTest, ReadLineEndingsAndTheLastLine) {
    write_file(path("lines"), "a\r\nb");
    ombr_file_t f = nullptr;
    ASSERT_EQ(ombr_fs_file_open(path("lines").c_str(), OMBR_FS_FLAG_READ, 0, &f), 0u);
    char line[8];
    std::memset(line, '#', sizeof line);
    ASSERT_EQ(ombr_fs_file_read_line(f, line, sizeof line), 0u);
    EXPECT_STREQ(line, "a");
    EXPECT_EQ(out(ombr_fs_file_get_position, f), 3u);
    // The last line has no end: the last byte of the buffer is the
    // terminator, the bytes after the data keep what they had, and the
    // position moves by size - 1.
    ASSERT_EQ(ombr_fs_file_read_line(f, line, sizeof line), 0u);
    EXPECT_EQ(std::string(line, sizeof line), std::string("b\0\nb###\0", 8));
    EXPECT_EQ(out(ombr_fs_file_get_position, f), 10u);
    EXPECT_EQ(ombr_fs_file_read_line(f, line, sizeof line), 0x90030049u);
    ASSERT_EQ(ombr_fs_file_close(f), 0u);

    // Each of "\n", "\r" and "\r\n" ends one line; a long line comes in
    // pieces of size - 1 bytes without losing any.
    write_file(path("mixed"), "one\ntwo\rthree\r\n\nabcdefghijk\n");
    ASSERT_EQ(ombr_fs_file_open(path("mixed").c_str(), OMBR_FS_FLAG_READ, 0, &f), 0u);
    std::vector<std::string> got;
    while (ombr_fs_file_read_line(f, line, sizeof line) == 0) got.emplace_back(line);
    EXPECT_EQ(got, (std::vector<std::string>{"one", "two", "three", "", "abcdefg", "hijk"}));
    ASSERT_EQ(ombr_fs_file_close(f), 0u);
}

TEST_F(FsTest, FormattedWritesShortAndLong) {
    ombr_file_t f = open_rw("fmt");
    uint32_t written = 0;
    ASSERT_EQ(vwrite(f, &written, "%s=%d;", "n", 42), 0u);
    EXPECT_EQ(written, 5u);
    const std::string big(3000, 'q');  // beyond the 1024-byte buffer
    ASSERT_EQ(vwrite(f, &written, "[%s]", big.c_str()), 0u);
    EXPECT_EQ(written, 3002u);
    ASSERT_EQ(vwrite(f, &written, "%s", ""), 0u);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(vwrite(f, nullptr, "x"), 0x90030001u);
    ASSERT_EQ(ombr_fs_file_close(f), 0u);
    EXPECT_EQ(read_file(path("fmt")), "n=42;[" + big + "]");
}

TEST_F(FsTest, AttributesOfOpenAndNamedFiles) {
    ombr_file_t f = nullptr;
    ASSERT_EQ(ombr_fs_file_open(path("ro").c_str(), OMBR_FS_FLAG_WRITE | OMBR_FS_FLAG_CREATE, OMBR_FS_ATTR_READ, &f),
              0u);
    EXPECT_EQ(out(ombr_fs_file_attributes, f), OMBR_FS_ATTR_READ);
    ASSERT_EQ(ombr_fs_file_close(f), 0u);
    struct stat st{};
    ASSERT_EQ(stat(path("ro").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0444u);

    ASSERT_EQ(ombr_fs_file_set_attributes(path("ro").c_str(), kAttrRW), 0u);
    ASSERT_EQ(stat(path("ro").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0666u);
    EXPECT_EQ(out(ombr_fs_file_get_attributes, path("ro").c_str()), kAttrRW);
}

TEST_F(FsTest, OperationsByName) {
    write_file(path("f"), "12345");
    uint8_t exists = 9;
    uint64_t size = 0;
    EXPECT_EQ(out(ombr_fs_file_exists, path("f").c_str()), 1u);
    EXPECT_EQ(out(ombr_fs_file_get_size, path("f").c_str()), 5u);
    ASSERT_EQ(ombr_fs_file_rename(path("f").c_str(), path("g").c_str()), 0u);
    EXPECT_EQ(out(ombr_fs_file_exists, path("f").c_str()), 0u);
    EXPECT_EQ(read_file(path("g")), "12345");
    ASSERT_EQ(ombr_fs_file_delete(path("g").c_str()), 0u);
    EXPECT_EQ(ombr_fs_file_delete(path("g").c_str()), 0x90030041u);
    EXPECT_EQ(ombr_fs_file_get_size(path("g").c_str(), &size), 0x90030041u);
    EXPECT_EQ(ombr_fs_file_rename(path("g").c_str(), path("h").c_str()), 0x90030041u);

    // Reserved and empty names are refused by every operation by name.
    for (const char *bad : {OMBR_FSNAME_STDIN, OMBR_FSNAME_STDOUT, OMBR_FSNAME_STDERR, ""}) {
        uint32_t attributes = 0;
        EXPECT_EQ(ombr_fs_file_delete(bad), 0x90030046u) << bad;
        EXPECT_EQ(ombr_fs_file_exists(bad, &exists), 0x90030046u) << bad;
        EXPECT_EQ(ombr_fs_file_get_size(bad, &size), 0x90030046u) << bad;
        EXPECT_EQ(ombr_fs_file_get_attributes(bad, &attributes), 0x90030046u) << bad;
        EXPECT_EQ(ombr_fs_file_set_attributes(bad, 3), 0x90030046u) << bad;
        EXPECT_EQ(ombr_fs_file_rename(bad, path("x").c_str()), 0x90030046u) << bad;
        EXPECT_EQ(ombr_fs_file_copy(bad, path("x").c_str(), 0), 0x90030046u) << bad;
    }
    EXPECT_EQ(ombr_fs_file_delete(nullptr), 0x90030001u);
    EXPECT_EQ(ombr_fs_file_exists(path("f").c_str(), nullptr), 0x90030001u);
}

TEST_F(FsTest, WholeFileHelpers) {
    const std::string name = path("whole");
    ASSERT_EQ(ombr_fs_file_write_to_file(name.c_str(), "abc", 3, 0), 0u);
    ASSERT_EQ(ombr_fs_file_write_to_file(name.c_str(), "de", 2, 1), 0u);  // appended
    EXPECT_EQ(read_file(name), "abcde");
    ASSERT_EQ(ombr_fs_file_write_to_file(name.c_str(), "xy", 2, 0), 0u);  // truncated
    EXPECT_EQ(read_file(name), "xy");

    void *block = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(ombr_fs_file_read_to_buffer(name.c_str(), &block, &size, 0), 0u);
    EXPECT_EQ(size, 2u);
    EXPECT_EQ(std::string(static_cast<char *>(block), size), "xy");
    ombr_memory_free(block);
    ASSERT_EQ(ombr_fs_file_read_to_buffer(name.c_str(), &block, &size, 1), 0u);
    EXPECT_EQ(size, 3u);  // the terminator counts
    EXPECT_STREQ(static_cast<char *>(block), "xy");
    ombr_memory_free(block);

    write_file(path("empty"), "");
    ASSERT_EQ(ombr_fs_file_read_to_buffer(path("empty").c_str(), &block, &size, 1), 0u);
    EXPECT_EQ(size, 0u);  // nothing read, so no terminator counted
    ombr_memory_free(block);
    EXPECT_EQ(ombr_fs_file_read_to_buffer(path("none").c_str(), &block, &size, 1), 0x90030041u);
    EXPECT_EQ(ombr_fs_file_read_to_buffer(name.c_str(), nullptr, &size, 1), 0x90030001u);
}

TEST_F(FsTest, StandardStreams) {
    // Standard input read whole, in steps, from a file put on descriptor 0.
    std::string text;
    for (int i = 0; i < 3000; ++i) text += std::to_string(i) + ",";
    write_file(path("stdin"), text);
    int in = open(path("stdin").c_str(), O_RDONLY);
    dup2(in, 0);
    close(in);
    void *block = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(ombr_fs_file_read_to_buffer(OMBR_FSNAME_STDIN, &block, &size, 1), 0u);
    EXPECT_EQ(size, text.size() + 1);
    EXPECT_EQ(std::string(static_cast<char *>(block)), text);
    ombr_memory_free(block);

    // A standard stream's descriptor is never closed.
    ombr_file_t f = nullptr;
    ASSERT_EQ(ombr_fs_file_open(OMBR_FSNAME_STDIN, OMBR_FS_FLAG_READ, 0, &f), 0u);
    EXPECT_EQ(read_some(f, 4), "");
    ASSERT_EQ(ombr_fs_file_close(f), 0u);
    EXPECT_NE(fcntl(0, F_GETFD), -1);
    ASSERT_EQ(ombr_fs_file_open(OMBR_FSNAME_STDERR, OMBR_FS_FLAG_WRITE, 0, &f), 0u);
    ASSERT_EQ(ombr_fs_file_close(f), 0u);
    EXPECT_NE(fcntl(2, F_GETFD), -1);
    // A reserved name opens its stream whatever the flags say.
    ASSERT_EQ(ombr_fs_file_open(OMBR_FSNAME_STDOUT, 0, 0, &f), 0u);
    ASSERT_EQ(ombr_fs_file_close(f), 0u);
    EXPECT_NE(fcntl(1, F_GETFD), -1);
    // The end test compares position and size for any file: a device of
    // size 0 is at its end from the start.
    ASSERT_EQ(ombr_fs_file_open("/dev/null", OMBR_FS_FLAG_READ, 0, &f), 0u);
    EXPECT_EQ(out(ombr_fs_file_get_eof, f), 1u);
    ASSERT_EQ(ombr_fs_file_close(f), 0u);
    int null_fd = open("/dev/null", O_RDONLY);
    dup2(null_fd, 0);
    close(null_fd);
}

TEST_F(FsTest, CopyDeletesAnExistingDestinationAndNeverCreatesOne) {
    write_file(path("src"), "source");
    write_file(path("dst"), "old");
    // The destination is opened without the create flag: a destination that
    // does not exist by then makes the copy fail, having created nothing.
    EXPECT_EQ(ombr_fs_file_copy(path("src").c_str(), path("new").c_str(), 0), 0x90030041u);
    EXPECT_EQ(out(ombr_fs_file_exists, path("new").c_str()), 0u);
    EXPECT_EQ(ombr_fs_file_copy(path("src").c_str(), path("dst").c_str(), 1), 0x90030042u);
    EXPECT_EQ(read_file(path("dst")), "old");
    EXPECT_EQ(ombr_fs_file_copy(path("src").c_str(), path("dst").c_str(), 0), 0x90030041u);
    EXPECT_EQ(out(ombr_fs_file_exists, path("dst").c_str()), 0u);
    EXPECT_EQ(ombr_fs_file_copy(path("none").c_str(), path("dst").c_str(), 0), 0x90030041u);
    EXPECT_EQ(read_file(path("src")), "source");
}

TEST_F(FsTest, CopyContentsInSteps) {
    std::string data;
    std::mt19937 rng(7);
    for (int i = 0; i < 4096 * 3 + 17; ++i) data += static_cast<char>(rng());
    write_file(path("src"), data);
    ombr_file_t in = nullptr, out = nullptr;
    ASSERT_EQ(ombr_fs_file_open(path("src").c_str(), OMBR_FS_FLAG_READ, 0, &in), 0u);
    ASSERT_EQ(ombr_fs_file_open(path("dst").c_str(), OMBR_FS_FLAG_WRITE | OMBR_FS_FLAG_CREATE, kAttrRW, &out), 0u);
    EXPECT_EQ(ombr::fs_copy_contents(in, out), 0u);
    ASSERT_EQ(ombr_fs_file_close(out), 0u);
    EXPECT_EQ(read_file(path("dst")), data);
    // A device that is always full.
    ASSERT_EQ(ombr_fs_file_seek(in, 0, OMBR_FS_SEEK_START), 0u);
    ASSERT_EQ(ombr_fs_file_open("/dev/full", OMBR_FS_FLAG_WRITE, 0, &out), 0u);
    EXPECT_EQ(ombr::fs_copy_contents(in, out), 0x90030043u);
    for (auto item : {out, in}) ASSERT_EQ(ombr_fs_file_close(item), 0u);
}

// ---- Directories ---------------------------------------------------------------------

TEST_F(FsTest, DirectoriesCreateListAndDelete) {
    const std::string d = path("d");
    ombr_dir_t dir = nullptr;
    ASSERT_EQ(ombr_fs_dir_create(d.c_str(), nullptr), 0u);
    ASSERT_EQ(ombr_fs_dir_create(d.c_str(), nullptr), 0u);  // existing is no failure
    write_file(d + "/file", "x");
    ASSERT_EQ(ombr_fs_dir_create((d + "/sub").c_str(), nullptr), 0u);
    ASSERT_EQ(symlink("file", (d + "/link").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (d + "/dangling").c_str()), 0);
    ASSERT_EQ(mkfifo((d + "/fifo").c_str(), 0600), 0);

    ASSERT_EQ(ombr_fs_dir_create(d.c_str(), &dir), 0u);  // and opened
    std::map<std::string, uint32_t> entries;
    const char *name = nullptr;
    uint32_t type = 99;
    uint32_t st = 0;
    while ((st = ombr_fs_dir_next_entry(dir, &name, &type)) == 0) entries[name] = type;
    EXPECT_EQ(st, 0x90030049u);
    EXPECT_EQ(ombr_fs_dir_next_entry(dir, &name, nullptr), 0x90030049u);
    // Entries are typed by stat, which follows links.
    EXPECT_EQ(entries, (std::map<std::string, uint32_t>{{".", 4},
                                                        {"..", 4},
                                                        {"file", 8},
                                                        {"sub", 4},
                                                        {"link", 8},
                                                        {"dangling", 0},
                                                        {"fifo", 0}}));
    ASSERT_EQ(ombr_fs_dir_close(dir), 0u);
    EXPECT_EQ(ombr_fs_dir_close(nullptr), 0u);

    EXPECT_EQ(out(ombr_fs_dir_exists, d.c_str()), 1u);
    EXPECT_EQ(out(ombr_fs_dir_exists, (d + "/file").c_str()), 0u);
    EXPECT_EQ(ombr_fs_dir_delete(d.c_str(), 0), 0x10030050u);  // not empty: a soft status
    EXPECT_EQ(ombr_fs_dir_delete((d + "/sub/").c_str(), 0), 0u);  // the trailing separator is dropped
    EXPECT_EQ(out(ombr_fs_dir_exists, (d + "/sub").c_str()), 0u);

    EXPECT_EQ(ombr_fs_dir_open("", &dir), 0x90030001u);
    EXPECT_EQ(ombr_fs_dir_open(d.c_str(), nullptr), 0x90030001u);
    EXPECT_EQ(ombr_fs_dir_create("", nullptr), 0x90030001u);
    EXPECT_EQ(ombr_fs_dir_delete("", 0), 0x90030001u);
    EXPECT_EQ(ombr_fs_dir_open(path("none").c_str(), &dir), 0x90030041u);
    EXPECT_EQ(ombr_fs_dir_open((d + "/file").c_str(), &dir), 0x90030041u);  // ENOTDIR
    EXPECT_EQ(ombr_fs_dir_next_entry(nullptr, &name, &type), 0x90030001u);
}

// "path/name" is rendered into 260 bytes before stat: an entry whose joined
// path is cut names nothing and has type 0.
TEST_F(FsTest, DirectoryEntryTypesPastTheTypingPathSize) {
    const std::string d = path(std::string(250 - path("").size(), 'l'));
    ASSERT_EQ(d.size(), 250u);
    ASSERT_EQ(ombr_fs_dir_create(d.c_str(), nullptr), 0u);
    const std::string fits(8, 'f'), cut(9, 'c');  // 250 + 1 + 8 = 259 bytes fit, 260 do not
    write_file(d + "/" + fits, "x");
    write_file(d + "/" + cut, "x");
    ombr_dir_t dir = nullptr;
    ASSERT_EQ(ombr_fs_dir_open(d.c_str(), &dir), 0u);
    std::map<std::string, uint32_t> entries;
    const char *name = nullptr;
    uint32_t type = 99;
    while (ombr_fs_dir_next_entry(dir, &name, &type) == 0) entries[name] = type;
    ASSERT_EQ(ombr_fs_dir_close(dir), 0u);
    EXPECT_EQ(entries, (std::map<std::string, uint32_t>{{".", 4}, {"..", 4}, {fits, 8}, {cut, 0}}));
}

TEST_F(FsTest, DirectoryDeleteWithParentsStopsAtTheFirstFailure) {
    ASSERT_EQ(ombr_fs_dir_create(path("p1").c_str(), nullptr), 0u);
    ASSERT_EQ(ombr_fs_dir_create(path("p1/p2").c_str(), nullptr), 0u);
    ASSERT_EQ(ombr_fs_dir_create(path("p1/p2/p3").c_str(), nullptr), 0u);
    write_file(path("keep"), "k");  // the temporary directory is not empty
    // p3, p2 and p1 go; the temporary directory refuses as it is not empty.
    EXPECT_EQ(ombr_fs_dir_delete(path("p1/p2/p3").c_str(), 1), 0x10030050u);
    EXPECT_EQ(out(ombr_fs_dir_exists, path("p1").c_str()), 0u);
    EXPECT_EQ(out(ombr_fs_dir_exists, dir_.c_str()), 1u);
}

// ---- Options and the handle manager ---------------------------------------------------

TEST_F(FsTest, MaxHandlesOption) {
    const char *value = nullptr;
    EXPECT_EQ(out(ombr_fs_option_get, OMBR_FS_OPTION_MAX_HANDLES), "0");
    EXPECT_EQ(ombr_fs_option_set("OMBR_FS_MAX_HANDLES", "5"), 0x90030001u);  // exact case
    EXPECT_EQ(ombr_fs_option_set("other", "5"), 0x90030001u);
    EXPECT_EQ(ombr_fs_option_set(nullptr, "5"), 0x90030001u);
    EXPECT_EQ(ombr_fs_option_get(OMBR_FS_OPTION_MAX_HANDLES, nullptr), 0x90030001u);
    EXPECT_EQ(ombr_fs_option_get("ombr_fs_max", &value), 0x90030001u);
    ASSERT_EQ(ombr_fs_option_set(OMBR_FS_OPTION_MAX_HANDLES, "17"), 0u);
    ASSERT_EQ(ombr_fs_option_get(OMBR_FS_OPTION_MAX_HANDLES, &value), 0u);
    EXPECT_STREQ(value, "17");
    const char *first = value;
    ASSERT_EQ(ombr_fs_option_set(OMBR_FS_OPTION_MAX_HANDLES, "4000000000"), 0u);
    ASSERT_EQ(ombr_fs_option_get(OMBR_FS_OPTION_MAX_HANDLES, &value), 0u);
    EXPECT_EQ(value, first);  // one static area
    EXPECT_STREQ(first, "4000000000");
}

TEST_F(FsTest, EvictionKeepsThePosition) {
    set_limit(2);
    ombr_file_t a = open_rw("a"), b = open_rw("b");
    ASSERT_EQ(write_all(a, "aaaa-first"), 0u);
    ASSERT_EQ(ombr_fs_file_seek(a, 5, OMBR_FS_SEEK_START), 0u);
    ASSERT_EQ(write_all(b, "bbbb"), 0u);
    EXPECT_EQ(fds_here(), 2);
    // The third open takes the descriptor of the least recently used file.
    ombr_file_t c = open_rw("c");
    EXPECT_EQ(fds_here(), 2);
    auto counts = ombr::fsmgr::counts();
    EXPECT_EQ(counts.handles, 2u);
    EXPECT_EQ(counts.live, 2u);  // b and c
    EXPECT_EQ(counts.open, 1u);  // a
    // Reading a evicts b and carries on at a's position.
    EXPECT_EQ(read_some(a, 100), "first");
    EXPECT_EQ(fds_here(), 2);
    counts = ombr::fsmgr::counts();
    EXPECT_EQ(counts.open, 1u);  // b
    EXPECT_EQ(out(ombr_fs_file_get_position, b), 4u);
    ASSERT_EQ(write_all(b, "-more"), 0u);  // b back, at its position
    for (ombr_file_t f : {a, b, c}) EXPECT_EQ(ombr_fs_file_close(f), 0u);
    EXPECT_EQ(read_file(path("b")), "bbbb-more");
    counts = ombr::fsmgr::counts();
    EXPECT_EQ(counts.handles, 0u);
    EXPECT_EQ(counts.live + counts.open, 0u);
}

TEST_F(FsTest, WithoutALimitTheManagerOnlyCounts) {
    std::vector<ombr_file_t> files;
    for (int i = 0; i < 20; ++i) files.push_back(open_rw("n" + std::to_string(i)));
    EXPECT_EQ(fds_here(), 20);
    auto counts = ombr::fsmgr::counts();
    EXPECT_EQ(counts.handles, 20u);
    EXPECT_EQ(counts.live, 20u);
    EXPECT_EQ(counts.open, 0u);
    for (ombr_file_t f : files) EXPECT_EQ(ombr_fs_file_close(f), 0u);
    EXPECT_EQ(ombr::fsmgr::counts().handles, 0u);
}

TEST_F(FsTest, ClosingAnEvictedFileClosesDescriptorZero) {
    set_limit(1);
    ombr_file_t a = open_rw("a");
    ombr_file_t b = open_rw("b");  // a loses its descriptor
    EXPECT_EQ(ombr::fsmgr::counts().open, 1u);
    ASSERT_NE(fcntl(0, F_GETFD), -1);
    EXPECT_EQ(ombr_fs_file_close(a), 0u);
    auto counts = ombr::fsmgr::counts();
    EXPECT_EQ(counts.open, 0u);
    EXPECT_EQ(counts.handles, 1u);  // b's slot stays
    EXPECT_EQ(fcntl(0, F_GETFD), -1);  // the record's descriptor number 0 was closed
    EXPECT_EQ(fds_here(), 1);
    EXPECT_EQ(ombr_fs_file_close(b), 0u);
}

TEST_F(FsTest, ReopenNeverTruncatesOrCreatesAgain) {
    set_limit(1);
    write_file(path("t"), "old");
    ombr_file_t t = nullptr;
    ASSERT_EQ(ombr_fs_file_open(path("t").c_str(), OMBR_FS_FLAG_READ | OMBR_FS_FLAG_TRUNCATE, 0, &t), 0u);
    EXPECT_EQ(read_file(path("t")), "");
    ombr_file_t w = open_rw("w");  // t evicted
    ASSERT_EQ(write_all(w, "keep"), 0u);
    write_file(path("t"), "new contents");
    EXPECT_EQ(read_some(t, 100), "new contents");  // reopened without truncating
    EXPECT_EQ(ombr_fs_file_close(t), 0u);

    // A file removed while it had no descriptor cannot come back, and is not
    // created again; the slot it would have taken stays free for others.
    ombr_file_t gone = open_rw("gone");  // w evicted
    ASSERT_EQ(write_all(w, "!"), 0u);     // gone evicted
    ASSERT_EQ(unlink(path("gone").c_str()), 0);
    char buf[4];
    uint32_t got = 0;
    EXPECT_EQ(ombr_fs_file_read(gone, buf, 4, &got), 0x90030041u);
    EXPECT_EQ(ombr_fs_file_read(gone, buf, 4, &got), 0x90030041u);
    EXPECT_EQ(out(ombr_fs_file_exists, path("gone").c_str()), 0u);
    ASSERT_EQ(write_all(w, "?"), 0u);
    for (auto item : {gone, w}) EXPECT_EQ(ombr_fs_file_close(item), 0u);
    EXPECT_EQ(read_file(path("w")), "keep!?");
    EXPECT_EQ(ombr::fsmgr::counts().handles, 0u);
}

// ---- Allocation failures ---------------------------------------------------------------

TEST_F(FsTest, EveryAllocationFailureOfOpenLeavesNothing) {
    set_limit(2);
    ombr_file_t keep1 = open_rw("k1"), keep2 = open_rw("k2");  // the next open must evict
    const int64_t blocks = zelto_manager_memory_live_blocks();
    uint64_t runs = for_each_allocation_failure([&](uint64_t) {
        ombr_file_t f = nullptr;
        uint32_t st = ombr_fs_file_open(path("new").c_str(), kRW | OMBR_FS_FLAG_CREATE, kAttrRW, &f);
        if (st != 0) {
            EXPECT_EQ(st, 0x90030002u);
            EXPECT_EQ(f, nullptr);
            EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks);
        } else {
            EXPECT_EQ(ombr_fs_file_close(f), 0u);
        }
        EXPECT_LE(fds_here(), 2);
    });
    EXPECT_GE(runs, 1u);
    for (auto item : {keep1, keep2}) EXPECT_EQ(ombr_fs_file_close(item), 0u);
    EXPECT_EQ(fds_here(), 0);
}

TEST_F(FsTest, EveryAllocationFailureOfDirectoryListingLeavesNothing) {
    for (const char *n : {"x", "y", "z"}) write_file(path(n), n);
    const int fds = platform_test::count_all_fds();
    uint64_t runs = for_each_allocation_failure([&](uint64_t) {
        ombr_dir_t dir = nullptr;
        uint32_t st = ombr_fs_dir_open(dir_.c_str(), &dir);
        if (st != 0) {
            EXPECT_EQ(st, 0x90030002u);
            return;
        }
        std::set<std::string> names;
        const char *name = nullptr;
        uint32_t type = 0;
        while ((st = ombr_fs_dir_next_entry(dir, &name, &type)) == 0) names.insert(name);
        EXPECT_EQ(st, 0x90030049u);
        EXPECT_EQ(names, (std::set<std::string>{".", "..", "x", "y", "z"}));
        EXPECT_EQ(ombr_fs_dir_close(dir), 0u);
    });
    EXPECT_GE(runs, 1u);
    EXPECT_EQ(platform_test::count_all_fds(), fds);
    runs = for_each_allocation_failure([&](uint64_t) {
        uint32_t st = ombr_fs_dir_delete(path("x/").c_str(), 1);
        EXPECT_TRUE(st == 0x90030002u || st == 0x90030041u) << std::hex << st;  // ENOTDIR
    });
    EXPECT_GE(runs, 1u);
}

TEST_F(FsTest, EveryAllocationFailureOfTheWholeFileHelpers) {
    write_file(path("w"), std::string(5000, 'w'));
    uint64_t runs = for_each_allocation_failure([&](uint64_t) {
        void *block = nullptr;
        uint32_t size = 0;
        uint32_t st = ombr_fs_file_read_to_buffer(path("w").c_str(), &block, &size, 1);
        if (st != 0) {
            EXPECT_EQ(st, 0x90030002u);
            return;
        }
        EXPECT_EQ(size, 5001u);
        ombr_memory_free(block);
    });
    EXPECT_EQ(runs, 2u);  // the record and the block
    runs = for_each_allocation_failure([&](uint64_t) {
        uint32_t st = ombr_fs_file_write_to_file(path("v").c_str(), "abc", 3, 0);
        if (st != 0) {
            EXPECT_EQ(st, 0x90030002u);
        }
    });
    EXPECT_EQ(runs, 1u);
    EXPECT_EQ(read_file(path("v")), "abc");
}

// ---- Failing system calls --------------------------------------------------------------

// Runs `body` in a child process and expects it to exit with 0; the body
// returns the number of the first check that failed.
template <typename Body>
void in_child(Body body) {
    fflush(nullptr);
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) _exit(body());
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "check " << WEXITSTATUS(status) << " failed in the child";
}

TEST_F(FsTest, MissingFilesAndNamesTooLong) {
    const std::string missing = path("no/such/file");
    ombr_file_t f = nullptr;
    ombr_dir_t d = nullptr;
    uint64_t size = 0;
    EXPECT_EQ(ombr_fs_file_open(missing.c_str(), kRW | OMBR_FS_FLAG_CREATE, kAttrRW, &f), 0x90030041u);
    EXPECT_EQ(ombr_fs_file_get_size(missing.c_str(), &size), 0x90030041u);
    EXPECT_EQ(ombr_fs_dir_create(missing.c_str(), nullptr), 0x90030041u);
    EXPECT_EQ(ombr_fs_dir_open(missing.c_str(), &d), 0x90030041u);
    EXPECT_EQ(ombr_fs_dir_delete(missing.c_str(), 0), 0x90030041u);

    // ENAMETOOLONG is not one of the mapped errors.
    write_file(path("kept"), "kept");
    const std::string too_long = path(std::string(300, 'n'));
    EXPECT_EQ(ombr_fs_file_open(too_long.c_str(), kRW | OMBR_FS_FLAG_CREATE, kAttrRW, &f), 0x9003003Eu);
    EXPECT_EQ(ombr_fs_file_rename(path("kept").c_str(), too_long.c_str()), 0x9003003Eu);
    EXPECT_EQ(ombr_fs_file_write_to_file(too_long.c_str(), "x", 1, 0), 0x9003003Eu);
    EXPECT_EQ(ombr_fs_dir_create(too_long.c_str(), nullptr), 0x9003003Eu);
    EXPECT_EQ(read_file(path("kept")), "kept");
    EXPECT_EQ(fds_here(), 0);
}

TEST_F(FsTest, PermissionDenied) {
    write_file(path("secret"), "secret");
    ASSERT_EQ(chmod(path("secret").c_str(), 0600), 0);
    ASSERT_EQ(chmod(dir_.c_str(), 0755), 0);
    const bool root = geteuid() == 0;
    if (!root) {  // the owner loses the rights instead
        ASSERT_EQ(chmod(path("secret").c_str(), 0000), 0);
        ASSERT_EQ(chmod(dir_.c_str(), 0555), 0);
    }
    // Root is exempt from permission bits: the child gives up its rights.
    in_child([&]() -> int {
        if (root && (setgid(65534) != 0 || setuid(65534) != 0)) return 1;
        ombr_file_t f = nullptr;
        if (ombr_fs_file_open(path("secret").c_str(), OMBR_FS_FLAG_READ, 0, &f) != 0x90030040u) return 2;
        if (ombr_fs_file_open(path("secret").c_str(), OMBR_FS_FLAG_WRITE | OMBR_FS_FLAG_TRUNCATE, 0, &f) !=
            0x90030040u)
            return 3;
        if (ombr_fs_file_write_to_file(path("secret").c_str(), "x", 1, 1) != 0x90030040u) return 4;
        if (ombr_fs_file_delete(path("secret").c_str()) != 0x90030040u) return 5;
        if (ombr_fs_dir_create(path("sub").c_str(), nullptr) != 0x90030040u) return 6;
        if (root && ombr_fs_file_set_attributes(path("secret").c_str(), 3) != 0x90030040u) return 7;
        return 0;
    });
    if (!root) {
        ASSERT_EQ(chmod(dir_.c_str(), 0755), 0);
        ASSERT_EQ(chmod(path("secret").c_str(), 0600), 0);
    }
    EXPECT_EQ(read_file(path("secret")), "secret");
    struct stat st{};
    ASSERT_EQ(stat(path("secret").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(FsTest, FullDiskAndFileSizeLimit) {
    ombr_file_t full = nullptr;
    ASSERT_EQ(ombr_fs_file_open("/dev/full", OMBR_FS_FLAG_WRITE, 0, &full), 0u);
    uint32_t written = 7;
    EXPECT_EQ(ombr_fs_file_write(full, "abc", 3, &written), 0x90030043u);
    EXPECT_EQ(written, 7u);  // outputs are written on success only
    ASSERT_EQ(ombr_fs_file_close(full), 0u);

    write_file(path("limited"), std::string(1000, 'o'));
    in_child([&]() -> int {
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit{4096, 4096};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
        ombr_file_t f = nullptr;
        if (ombr_fs_file_open(path("limited").c_str(), kRW, 0, &f) != 0) return 2;
        uint32_t n = 0;
        std::string data(8192, 'x');
        // Beyond the limit nothing is written: EFBIG is not a mapped error.
        if (ombr_fs_file_write_at(f, 4096, data.data(), 10, &n) != 0x9003003Eu) return 3;
        // Across it the write is short.
        if (ombr_fs_file_seek(f, 1000, OMBR_FS_SEEK_START) != 0) return 4;
        if (ombr_fs_file_write(f, data.data(), 8192, &n) != 0 || n != 3096) return 5;
        if (ombr_fs_file_write(f, data.data(), 1, &n) != 0x9003003Eu) return 6;
        if (ombr_fs_file_close(f) != 0) return 7;
        // The whole-file writer reports the short write as a full disk.
        if (ombr_fs_file_write_to_file(path("other").c_str(), data.data(), 8192, 0) != 0x90030043u) return 8;
        return 0;
    });
    const std::string after = read_file(path("limited"));
    EXPECT_EQ(after, std::string(1000, 'o') + std::string(3096, 'x'));
    EXPECT_EQ(read_file(path("other")).size(), 4096u);
}

}  // namespace
