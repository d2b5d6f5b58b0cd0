// Built with Clang and libFuzzer against the two libraries, e.g.
//   clang++-16 -std=c++20 -fsanitize=fuzzer,address -Iinclude fuzz/fuzz_fs.cpp -Lbuild/native \
//     -lzelto_cantrix -lzelto_manager -Wl,-rpath,$PWD/build/native
// Files from untrusted bytes. The first byte chooses the road:
//  - lines: the rest is a file's contents, read line by line with a buffer
//    size from the second byte; every line and every position agrees with
//    a plain model of the line rule, and the reads end;
//  - operations: the rest is a program of writes, positioned writes, seeks,
//    reads and truncations over four logical files sharing at most two
//    descriptors; after each step the file agrees with a byte model, and
//    no more than two descriptors are ever held.
// Every road closes its files and releases everything.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ombr/ombr_fs.h"
#include "zelto/zelto_manager.h"

namespace {

void check(bool ok) {
    if (!ok) std::abort();
}

struct Session {
    std::string dir;
    Session() {
        // Descriptor 0 stays on /dev/null: closing an evicted file closes it.
        int null_fd = open("/dev/null", O_RDONLY);
        dup2(null_fd, 0);
        if (null_fd > 0) close(null_fd);
        check(ombr_fs_initialize() == 0);
        char pattern[] = "/tmp/cantrix-fuzz-fs-XXXXXX";
        check(mkdtemp(pattern) != nullptr);
        dir = pattern;
    }
    std::string path(int i) const { return dir + "/f" + std::to_string(i); }
};

Session &session() {
    static Session s;
    return s;
}

int descriptors_under(const std::string &prefix) {
    int count = 0;
    DIR *d = opendir("/proc/self/fd");
    if (!d) return -1;
    while (const dirent *e = readdir(d)) {
        char link[4096];
        ssize_t n = readlinkat(dirfd(d), e->d_name, link, sizeof link - 1);
        if (n > 0 && std::string(link, n).rfind(prefix, 0) == 0) ++count;
    }
    closedir(d);
    return count;
}

// The line rule on a model: the line, and how far the position moves.
bool model_line(const std::string &text, uint64_t position, uint32_t size, std::string *line, uint64_t *advance) {
    if (position >= text.size()) return false;
    const std::string chunk = text.substr(position, size);
    for (size_t i = 0; i < chunk.size(); ++i) {
        if (chunk[i] == '\n' || chunk[i] == '\r') {
            const bool pair = chunk[i] == '\r' && i + 1 < chunk.size() && chunk[i + 1] == '\n';
            *line = chunk.substr(0, i);
            *advance = i + (pair ? 2 : 1);
            return true;
        }
    }
    *advance = size - 1;
    *line = chunk.substr(0, size - 1);
    return true;
}

void lines(const uint8_t *data, size_t size) {
    if (size < 1) return;
    const uint32_t buffer_size = 2 + data[0] % 40;  // size 1 would never move
    const std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    const std::string name = session().path(0);
    check(ombr_fs_file_write_to_file(name.c_str(), text.data(), static_cast<uint32_t>(text.size()), 0) == 0);
    ombr_file_t f = nullptr;
    check(ombr_fs_file_open(name.c_str(), OMBR_FS_FLAG_READ, 0, &f) == 0);
    std::vector<char> buffer(buffer_size + 8, '\x7F');
    uint64_t position = 0;
    for (size_t calls = 0;; ++calls) {
        check(calls <= text.size() + 1);
        std::string expected;
        uint64_t advance = 0;
        const bool more = model_line(text, position, buffer_size, &expected, &advance);
        const uint32_t st = ombr_fs_file_read_line(f, buffer.data(), buffer_size);
        if (!more) {
            check(st == OMBR_FS_ERR_END_OF_DATA);
            break;
        }
        check(st == 0);
        check(buffer[buffer_size] == '\x7F');  // nothing written past the buffer
        check(std::string(buffer.data(), expected.size()) == expected);
        position += advance;
        uint64_t got = 0;
        check(ombr_fs_file_get_position(f, &got) == 0 && got == position);
    }
    check(ombr_fs_file_close(f) == 0);
}

void operations(const uint8_t *data, size_t size) {
    constexpr int kFiles = 4;
    constexpr uint64_t kMaxSize = 4096;
    Session &s = session();
    check(ombr_fs_option_set(OMBR_FS_OPTION_MAX_HANDLES, "2") == 0);
    ombr_file_t files[kFiles] = {};
    std::string models[kFiles];
    uint64_t positions[kFiles] = {};
    for (int i = 0; i < kFiles; ++i)
        check(ombr_fs_file_open(s.path(i).c_str(),
                                OMBR_FS_FLAG_READ | OMBR_FS_FLAG_WRITE | OMBR_FS_FLAG_CREATE | OMBR_FS_FLAG_TRUNCATE,
                                OMBR_FS_ATTR_READ | OMBR_FS_ATTR_WRITE, &files[i]) == 0);
    for (size_t at = 0; at + 3 <= size; at += 3) {
        const int i = data[at] % kFiles;
        const uint8_t op = (data[at] >> 2) % 5;
        const uint64_t arg = (static_cast<uint64_t>(data[at + 1]) << 4) | (data[at + 2] & 0x0F);
        const uint32_t length = 1 + data[at + 2] % 64;
        ombr_file_t f = files[i];
        std::string &m = models[i];
        uint32_t n = 0;
        switch (op) {
            case 0:
            case 1: {  // write at the position, or at an offset
                const uint64_t where = op == 0 ? positions[i] : arg;
                if (where + length > kMaxSize) break;
                const std::string bytes(length, static_cast<char>('a' + at % 26));
                check((op == 0 ? ombr_fs_file_write(f, bytes.data(), length, &n)
                               : ombr_fs_file_write_at(f, where, bytes.data(), length, &n)) == 0);
                check(n == length);
                if (m.size() < where) m.resize(where, '\0');
                m.resize(std::max<size_t>(m.size(), where + length));
                m.replace(where, length, bytes);
                if (op == 0) positions[i] += length;
                break;
            }
            case 2: {  // seek from the start
                const uint32_t st = ombr_fs_file_seek(f, arg, OMBR_FS_SEEK_START);
                check(st == (arg > m.size() ? OMBR_FS_ERR_SEEK_PAST_END : 0u));
                if (st == 0) positions[i] = arg;
                break;
            }
            case 3: {  // read at the position
                std::vector<char> buf(length);
                check(ombr_fs_file_read(f, buf.data(), length, &n) == 0);
                const std::string expected = positions[i] < m.size() ? m.substr(positions[i], length) : "";
                check(std::string(buf.data(), n) == expected);
                positions[i] += n;
                break;
            }
            default: {  // truncate
                const uint64_t to = arg % (m.size() + 1);
                check(ombr_fs_file_truncate(f, to) == 0);
                m.resize(to);
                positions[i] = to;
            }
        }
        uint64_t file_size = 0;
        check(ombr_fs_file_size(f, &file_size) == 0 && file_size == m.size());
        check(descriptors_under(s.dir) <= 2);
    }
    for (int i = 0; i < kFiles; ++i) check(ombr_fs_file_close(files[i]) == 0);
    check(ombr_fs_option_set(OMBR_FS_OPTION_MAX_HANDLES, "0") == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 4096) return 0;
    const int64_t blocks = zelto_manager_memory_live_blocks();
    if (data[0] % 2 == 0)
        lines(data + 1, size - 1);
    else
        operations(data + 1, size - 1);
    check(zelto_manager_memory_live_blocks() == blocks);
    check(descriptors_under(session().dir) == 0);
    return 0;
}
