// Directories: create, open and list, test, delete (with its parents).
#define _FILE_OFFSET_BITS 64

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "ombr/ombr_fs.h"
#include "ombr/ombr_string.h"
#include "platform/ombr_frame.h"
#include "platform/ombr_fs_internal.h"

// A directory stream, the current entry's name and the path, which follows
// the record in the same block.
struct ombr_dir {
    DIR *stream;
    char entry[256];

    char *path() { return reinterpret_cast<char *>(this + 1); }
};

namespace {

constexpr uint32_t kBadArg = OMBR_FS_ERR_INVALID_ARG;
constexpr uint32_t kTypePathSize = 260;  // room for "path/name" when typing an entry
constexpr mode_t kDirectoryMode = 0775;

uint32_t check_path(const char *path) { return !path || path[0] == 0 ? kBadArg : 0; }

bool is_separator(char c) { return c == '/' || c == '\\'; }

uint32_t type_of_mode(mode_t mode) {
    if (S_ISDIR(mode)) return OMBR_FS_TYPE_DIRECTORY;
    if (S_ISREG(mode)) return OMBR_FS_TYPE_REGULAR;
    if (S_ISLNK(mode)) return OMBR_FS_TYPE_LINK;
    return OMBR_FS_TYPE_OTHER;
}

uint32_t type_of_dirent(unsigned char d_type) {
    switch (d_type) {
        case DT_DIR: return OMBR_FS_TYPE_DIRECTORY;
        case DT_REG: return OMBR_FS_TYPE_REGULAR;
        case DT_LNK: return OMBR_FS_TYPE_LINK;
        default: return OMBR_FS_TYPE_OTHER;
    }
}

// The entry's type from lstat of "path/name" (a link reports itself). A
// joined path that does not fit in 260 bytes falls back to the type the
// directory listing gives.
uint32_t entry_type(ombr_dir *dir, unsigned char d_type) {
    char joined[kTypePathSize];
    const uint32_t path_size = ombr_string_bytelen_nonull(dir->path());
    const uint32_t name_size = ombr_string_bytelen_nonull(dir->entry);
    if (path_size + 1 + name_size + 1 > sizeof joined) return type_of_dirent(d_type);
    ombr_memory_memcpy(joined, dir->path(), path_size);
    joined[path_size] = '/';
    ombr_memory_memcpy(joined + path_size + 1, dir->entry, name_size + 1);
    struct stat st{};
    return lstat(joined, &st) == 0 ? type_of_mode(st.st_mode) : OMBR_FS_TYPE_OTHER;
}

}  // namespace

OMBR_API uint32_t ombr_fs_dir_open(const char *path, ombr_dir_t *out_dir) {
    if (!out_dir) return kBadArg;
    uint32_t status = check_path(path);
    if (status != 0) return status;
    const uint32_t path_size = ombr_string_bytelen(path);  // with the terminator
    auto *dir = static_cast<ombr_dir *>(ombr_memory_alloc(sizeof(ombr_dir) + path_size));
    if (!dir) return OMBR_FS_ERR_NO_MEMORY;
    ombr_memory_memset(dir, 0, sizeof *dir);
    ombr_memory_memcpy(dir->path(), path, path_size);
    // Inside the file manager's section (when it is up) and above the
    // standard descriptors, like the descriptors of files.
    const bool entered = ombr::fsmgr::enter() == 0;
    int fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    status = fd < 0 ? ombr::fs_map_error(errno) : ombr::fs_move_above_standard(&fd);
    if (status == 0 && !(dir->stream = fdopendir(fd))) {
        status = ombr::fs_map_error(errno);
        close(fd);
    }
    if (entered) ombr::fsmgr::leave();
    if (status != 0) {
        ombr_memory_free(dir);
        return status;
    }
    *out_dir = dir;
    return 0;
}

OMBR_API uint32_t ombr_fs_dir_create(const char *path, ombr_dir_t *out_dir) {
    uint32_t status = check_path(path);
    if (status != 0) return status;
    if (mkdir(path, kDirectoryMode) != 0 && errno != EEXIST) return ombr::fs_map_error(errno);
    return out_dir ? ombr_fs_dir_open(path, out_dir) : 0;
}

// readdir on a stream that belongs to this record alone is safe between
// threads; the name is copied into the record.
OMBR_API uint32_t ombr_fs_dir_next_entry(ombr_dir_t dir, const char **out_name, uint32_t *out_type) {
    if (!dir || !out_name) return kBadArg;
    errno = 0;
    const dirent *entry = readdir(dir->stream);
    if (!entry) return errno != 0 ? ombr::fs_map_error(errno) : OMBR_FS_ERR_END_OF_DATA;
    // Names are bytes, copied as they are (at most 255 and the terminator).
    uint32_t size = ombr_string_bytenlen(entry->d_name, sizeof dir->entry);
    ombr_memory_memcpy(dir->entry, entry->d_name, size);
    dir->entry[sizeof dir->entry - 1] = 0;
    *out_name = dir->entry;
    if (out_type) *out_type = entry_type(dir, entry->d_type);
    return 0;
}

OMBR_API uint32_t ombr_fs_dir_close(ombr_dir_t dir) {
    if (!dir) return 0;
    uint32_t status = closedir(dir->stream) == 0 ? 0 : ombr::fs_map_error(errno);
    ombr_memory_free(dir);
    return status;
}

OMBR_API uint32_t ombr_fs_dir_exists(const char *path, uint8_t *out_exists) {
    if (!out_exists) return kBadArg;
    uint32_t status = check_path(path);
    if (status != 0) return status;
    struct stat st{};
    *out_exists = stat(path, &st) == 0 && S_ISDIR(st.st_mode) ? 1 : 0;
    return 0;
}

// A trailing separator on a path longer than 2 bytes does not count. With
// parents, each success cuts the path back to its previous separator and
// removes that directory too, while the path is longer than one byte; the
// first failure ends it and is the result.
OMBR_API uint32_t ombr_fs_dir_delete(const char *path, uint8_t with_parents) {
    uint32_t status = check_path(path);
    if (status != 0) return status;
    char *work = ombr_string_strdup(path);
    if (!work) return OMBR_FS_ERR_NO_MEMORY;
    uint32_t length = ombr_string_bytelen_nonull(work);
    if (length > 2 && is_separator(work[length - 1])) work[--length] = 0;
    for (;;) {
        if (rmdir(work) != 0) {
            status = ombr::fs_map_error(errno);
            break;
        }
        if (!with_parents) break;
        while (length > 0 && !is_separator(work[length - 1])) --length;
        if (length > 0) --length;  // drop the separator itself
        work[length] = 0;
        if (length <= 1) break;
    }
    ombr_string_free(work);
    return status;
}
