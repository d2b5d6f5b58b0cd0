// File operations by name: delete, exists, attributes, size, rename, and the
// whole-file helpers (write a file, read a file into a block, copy).
#define _FILE_OFFSET_BITS 64  // 64-bit sizes on 32-bit builds as well

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "ombr/ombr_fs.h"
#include "ombr/ombr_string.h"
#include "platform/ombr_frame.h"
#include "platform/ombr_fs_internal.h"

namespace {

constexpr uint32_t kBadArg = OMBR_FS_ERR_INVALID_ARG;
constexpr uint32_t kStandardStep = 4096;
constexpr uint64_t kLargestBlock = 0xFFFFFFFFu;

// Null names are invalid arguments; empty and reserved names bad names.
uint32_t check_name(const char *name) {
    if (!name) return kBadArg;
    if (name[0] == 0 || ombr::fs_is_reserved_name(name)) return OMBR_FS_ERR_BAD_NAME;
    return 0;
}

uint32_t stat_of(const char *name, struct stat *st) {
    uint32_t status = check_name(name);
    if (status != 0) return status;
    return stat(name, st) == 0 ? 0 : ombr::fs_map_error(errno);
}

// Closes the file when it goes out of scope.
class FileGuard {
   public:
    FileGuard() = default;
    ~FileGuard() { ombr_fs_file_close(file_); }
    FileGuard(const FileGuard &) = delete;
    FileGuard &operator=(const FileGuard &) = delete;
    ombr_file_t *out() { return &file_; }
    ombr_file_t get() const { return file_; }
    uint32_t close() {
        ombr_file_t file = file_;
        file_ = nullptr;
        return ombr_fs_file_close(file);
    }

   private:
    ombr_file_t file_ = nullptr;
};

// Frees a block unless released.
class BlockGuard {
   public:
    ~BlockGuard() { ombr_memory_free(block_); }
    BlockGuard() = default;
    BlockGuard(const BlockGuard &) = delete;
    BlockGuard &operator=(const BlockGuard &) = delete;
    char *get() const { return block_; }
    void reset(char *block) { block_ = block; }
    char *release() {
        char *block = block_;
        block_ = nullptr;
        return block;
    }

   private:
    char *block_ = nullptr;
};

// Reads a standard stream in 4096-byte steps until it ends.
uint32_t read_stream(ombr_file_t file, BlockGuard &block, uint64_t *out_total) {
    uint64_t total = 0, capacity = 0;
    for (;;) {
        if (total + kStandardStep + 1 > capacity) {
            capacity = (total + kStandardStep + 1) * 2;
            auto *grown = static_cast<char *>(ombr_memory_realloc(block.get(), static_cast<size_t>(capacity)));
            if (!grown) return OMBR_FS_ERR_NO_MEMORY;
            block.reset(grown);
        }
        uint32_t got = 0;
        uint32_t status = ombr_fs_file_read(file, block.get() + total, kStandardStep, &got);
        if (status != 0) return status;
        if (got == 0) break;
        total += got;
        if (total >= kLargestBlock) return OMBR_FS_ERR_TOO_LARGE;
    }
    // Give back what the doubling left over; keeping the larger block is fine.
    if (auto *fitted = static_cast<char *>(ombr_memory_realloc(block.get(), static_cast<size_t>(total + 1))))
        block.reset(fitted);
    *out_total = total;
    return 0;
}

// Reads a file whose size fstat knows with one read.
uint32_t read_sized(ombr_file_t file, BlockGuard &block, uint64_t *out_total) {
    uint64_t size = 0;
    uint32_t status = ombr_fs_file_size(file, &size);
    if (status != 0) return status;
    if (size >= kLargestBlock) return OMBR_FS_ERR_TOO_LARGE;
    block.reset(static_cast<char *>(ombr_memory_alloc(static_cast<size_t>(size + 1))));
    if (!block.get()) return OMBR_FS_ERR_NO_MEMORY;
    uint32_t got = 0;
    status = ombr_fs_file_read(file, block.get(), static_cast<uint32_t>(size), &got);
    if (status == 0) *out_total = got;
    return status;
}

}  // namespace

OMBR_API uint32_t ombr_fs_file_delete(const char *name) {
    uint32_t status = check_name(name);
    if (status != 0) return status;
    return remove(name) == 0 ? 0 : ombr::fs_map_error(errno);
}

OMBR_API uint32_t ombr_fs_file_exists(const char *name, uint8_t *out_exists) {
    if (!out_exists) return kBadArg;
    uint32_t status = check_name(name);
    if (status != 0) return status;
    *out_exists = access(name, F_OK) == 0 ? 1 : 0;
    return 0;
}

OMBR_API uint32_t ombr_fs_file_get_attributes(const char *name, uint32_t *out_attributes) {
    if (!out_attributes) return kBadArg;
    struct stat st{};
    uint32_t status = stat_of(name, &st);
    if (status == 0) *out_attributes = ombr::fs_attributes_of(st.st_mode);
    return status;
}

OMBR_API uint32_t ombr_fs_file_set_attributes(const char *name, uint32_t attributes) {
    uint32_t status = check_name(name);
    if (status != 0) return status;
    return chmod(name, ombr::fs_mode_of(attributes)) == 0 ? 0 : ombr::fs_map_error(errno);
}

OMBR_API uint32_t ombr_fs_file_get_size(const char *name, uint64_t *out_size) {
    if (!out_size) return kBadArg;
    struct stat st{};
    uint32_t status = stat_of(name, &st);
    if (status == 0) *out_size = static_cast<uint64_t>(st.st_size);
    return status;
}

OMBR_API uint32_t ombr_fs_file_rename(const char *old_name, const char *new_name) {
    uint32_t status = check_name(old_name);
    if (status == 0) status = check_name(new_name);
    if (status != 0) return status;
    return rename(old_name, new_name) == 0 ? 0 : ombr::fs_map_error(errno);
}

// A write shorter than the data is reported as a full disk.
OMBR_API uint32_t ombr_fs_file_write_to_file(const char *name, const void *data, uint32_t size, uint8_t append) {
    if (!name || (!data && size != 0)) return kBadArg;
    const uint32_t flags = append ? OMBR_FS_FLAG_APPEND | OMBR_FS_FLAG_CREATE
                                  : OMBR_FS_FLAG_WRITE | OMBR_FS_FLAG_CREATE | OMBR_FS_FLAG_TRUNCATE;
    FileGuard file;
    uint32_t status = ombr_fs_file_open(name, flags, OMBR_FS_ATTR_READ | OMBR_FS_ATTR_WRITE, file.out());
    if (status != 0) return status;
    uint32_t written = 0;
    status = ombr_fs_file_write(file.get(), data, size, &written);
    if (status == 0 && written < size) status = OMBR_FS_ERR_NO_SPACE;
    uint32_t close_status = file.close();
    return status != 0 ? status : close_status;
}

OMBR_API uint32_t ombr_fs_file_read_to_buffer(const char *name, void **out_block, uint32_t *out_size,
                                              uint8_t terminate) {
    if (!name || !out_block || !out_size) return kBadArg;
    FileGuard file;
    uint32_t status = ombr_fs_file_open(name, OMBR_FS_FLAG_READ, OMBR_FS_ATTR_READ, file.out());
    if (status != 0) return status;
    BlockGuard block;
    uint64_t total = 0;
    status = file.get()->is_standard ? read_stream(file.get(), block, &total) : read_sized(file.get(), block, &total);
    if (status != 0) return status;
    // The block always has room for the terminator; it counts only with
    // terminate and when something was read.
    block.get()[total] = 0;
    if (terminate && total > 0) total += 1;
    *out_size = static_cast<uint32_t>(total);
    *out_block = block.release();
    return 0;
}

// The destination is opened without the create flag after an existing one
// was deleted, so the copy only proceeds if the destination has appeared
// again by then; otherwise the open reports it missing.
OMBR_API uint32_t ombr_fs_file_copy(const char *source, const char *destination, uint8_t fail_if_exists) {
    if (!source || !destination) return kBadArg;
    uint32_t status = check_name(source);
    if (status == 0) status = check_name(destination);
    if (status != 0) return status;
    if (access(source, F_OK) != 0) return OMBR_FS_ERR_NOT_FOUND;
    if (access(destination, F_OK) == 0) {
        if (fail_if_exists) return OMBR_FS_ERR_EXISTS;
        status = ombr_fs_file_delete(destination);
        if (status != 0) return status;
    }
    FileGuard out;
    status = ombr_fs_file_open(destination, OMBR_FS_FLAG_WRITE, OMBR_FS_ATTR_READ | OMBR_FS_ATTR_WRITE, out.out());
    if (status != 0) return status;
    FileGuard in;
    status = ombr_fs_file_open(source, OMBR_FS_FLAG_READ, OMBR_FS_ATTR_READ, in.out());
    if (status == 0) status = ombr::fs_copy_contents(in.get(), out.get());
    if (status == 0) status = ombr_fs_file_commit(out.get());
    if (status == 0) status = out.close();
    if (status != 0) {
        out.close();
        ombr_fs_file_delete(destination);
        return status;
    }
    in.close();
    uint32_t attributes = 0;
    status = ombr_fs_file_get_attributes(source, &attributes);
    if (status == 0) status = ombr_fs_file_set_attributes(destination, attributes);
    return status;
}
