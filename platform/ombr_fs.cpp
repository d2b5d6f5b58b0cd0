// The file package: its frame and the operations on open files. Each
// operation borrows the file's descriptor from the handle manager for the
// length of its system call; the position lives in the record, so a file
// that lost its descriptor while idle carries on where it was.
#define _FILE_OFFSET_BITS 64  // 64-bit offsets on 32-bit builds as well

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "ombr/ombr_fs.h"
#include "ombr/ombr_string_printf.h"
#include "platform/ombr_frame.h"
#include "platform/ombr_fs_internal.h"

namespace {

constexpr uint32_t kBadArg = OMBR_FS_ERR_INVALID_ARG;
constexpr uint32_t kAccessFlags = OMBR_FS_FLAG_READ | OMBR_FS_FLAG_WRITE | OMBR_FS_FLAG_APPEND;
constexpr uint32_t kVwriteBuffer = 1024;

ombr::PackageState s_fs;

// Memory, thread, string, iostream, then the handle manager; on failure the
// packages already started go down in the order memory, thread, string,
// iostream.
uint32_t fs_init_func() {
    bool memory = false, thread = false, string = false, iostream = false;
    uint32_t status = 10;
    if ((memory = ombr_memory_initialize() == 0) && (thread = ombr_thread_initialize() == 0) &&
        (string = ombr_string_initialize() == 0) && (iostream = ombr_iostream_initialize() == 0)) {
        status = ombr::fsmgr::init();
        if (status == 0) return 0;
    }
    if (memory) ombr_memory_shutdown();
    if (thread) ombr_thread_shutdown();
    if (string) ombr_string_shutdown();
    if (iostream) ombr_iostream_shutdown();
    return status;
}

uint32_t fs_shutdown_func() {
    ombr::fsmgr::shutdown();
    ombr_iostream_shutdown();
    ombr_string_shutdown();
    ombr_thread_shutdown();
    ombr_memory_shutdown();
    return 0;
}

struct StandardName {
    const char *name;
    int32_t fd;
};
constexpr StandardName kStandardNames[] = {
    {OMBR_FSNAME_STDIN, 0}, {OMBR_FSNAME_STDOUT, 1}, {OMBR_FSNAME_STDERR, 2}};

uint32_t check_file(const ombr_file *file) {
    if (!file) return kBadArg;
    return file->self == file ? 0 : OMBR_FS_ERR_BAD_MAGIC;
}

// Runs a system call, again while it is interrupted by a signal.
template <typename Call>
auto retry_eintr(Call call) {
    decltype(call()) result;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

int system_open_flags(uint32_t flags) {
    int oflags = 0;
    const bool writes = (flags & (OMBR_FS_FLAG_WRITE | OMBR_FS_FLAG_APPEND)) != 0;
    if (flags & OMBR_FS_FLAG_READ)
        oflags = writes ? O_RDWR : O_RDONLY;
    else
        oflags = O_WRONLY;
    if (flags & OMBR_FS_FLAG_APPEND) oflags |= O_APPEND;
    if (flags & OMBR_FS_FLAG_CREATE) oflags |= O_CREAT;
    if (flags & OMBR_FS_FLAG_TRUNCATE) oflags |= O_TRUNC;
    if (flags & OMBR_FS_FLAG_EXCLUSIVE) oflags |= O_EXCL;
    return oflags | O_CLOEXEC;
}

// Opens the file's name (or maps a reserved name) into file->fd.
uint32_t fs_file_get_handle(ombr_file *file, uint32_t flags) {
    for (const StandardName &standard : kStandardNames) {
        if (ombr_string_equal(file->name(), standard.name, 0)) {
            file->fd = standard.fd;
            file->is_standard = 1;
            file->is_regular = 0;  // positioned I/O on a redirected stream would overwrite it
            return 0;
        }
    }
    if ((flags & kAccessFlags) == 0) return kBadArg;
    const mode_t mode = ombr::fs_mode_of(file->attributes);
    int fd = retry_eintr([&] { return open(file->name(), system_open_flags(flags), mode); });
    if (fd < 0) return ombr::fs_map_error(errno);
    uint32_t status = ombr::fs_move_above_standard(&fd);
    if (status != 0) return status;
    struct stat st{};
    if (fstat(fd, &st) != 0) {
        int error = errno;
        close(fd);
        return ombr::fs_map_error(error);
    }
    file->fd = fd;
    file->is_regular = S_ISREG(st.st_mode) ? 1 : 0;
    return 0;
}

// Runs `op` with the file's descriptor borrowed from the manager.
template <typename Op>
uint32_t with_descriptor(ombr_file *file, Op op) {
    uint32_t status = check_file(file);
    if (status != 0) return status;
    status = ombr::fsmgr::acquire_fd(file);
    if (status != 0) return status;
    status = op(file->fd);
    ombr::fsmgr::release_fd(file);
    return status;
}

uint32_t fstat_of(int fd, struct stat *st) { return fstat(fd, st) == 0 ? 0 : ombr::fs_map_error(errno); }

}  // namespace

OMBR_DEFINE_PACKAGE_FRAME(fs, s_fs, fs_init_func, fs_shutdown_func, ombr::kBaseBuildDate)

uint32_t ombr::fs_map_error(int error) {
    switch (error) {
        case EPERM:
        case EACCES: return OMBR_FS_ERR_ACCESS_DENIED;
        case ENOENT:
        case ENOTDIR: return OMBR_FS_ERR_NOT_FOUND;
        case ENXIO: return OMBR_FS_ERR_NOT_AVAILABLE;
        case EBADF: return OMBR_FS_ERR_BAD_DESCRIPTOR;
        case EEXIST: return OMBR_FS_ERR_EXISTS;
        case EISDIR: return OMBR_FS_ERR_BAD_NAME;
        case EINVAL:
        case 89: return OMBR_FS_ERR_INVALID_ARG;
        case EMFILE: return OMBR_FS_ERR_TOO_MANY_FILES;
        case ENOSPC: return OMBR_FS_ERR_NO_SPACE;
        case ENOTEMPTY: return OMBR_FS_DIR_NOT_EMPTY;
        default: return OMBR_FS_ERR_UNKNOWN;
    }
}

uint32_t ombr::fs_mode_of(uint32_t attributes) {
    uint32_t mode = 0;
    if (attributes & OMBR_FS_ATTR_READ) mode |= 0444;
    if (attributes & OMBR_FS_ATTR_WRITE) mode |= 0222;
    return mode;
}

uint32_t ombr::fs_attributes_of(uint32_t mode) {
    return ((mode & S_IRUSR) ? OMBR_FS_ATTR_READ : 0) | ((mode & S_IWUSR) ? OMBR_FS_ATTR_WRITE : 0);
}

bool ombr::fs_is_reserved_name(const char *name) {
    for (const StandardName &standard : kStandardNames)
        if (ombr_string_equal(name, standard.name, 0)) return true;
    return false;
}

uint32_t ombr::fs_move_above_standard(int *fd) {
    if (*fd > 2) return 0;
    const int moved = fcntl(*fd, F_DUPFD_CLOEXEC, 3);
    const int error = errno;
    close(*fd);
    if (moved < 0) return fs_map_error(error);
    *fd = moved;
    return 0;
}

uint32_t ombr::fs_close_internal(ombr_file *file) {
    int rc = file->is_standard ? 0 : close(file->fd);
    file->fd = 0;
    return rc == 0 ? 0 : fs_map_error(errno);
}

uint32_t ombr::fs_reopen_internal(ombr_file *file) {
    return fs_file_get_handle(file, file->open_flags & ~(OMBR_FS_FLAG_CREATE | OMBR_FS_FLAG_TRUNCATE));
}

// ---- Open and close -------------------------------------------------------------------

OMBR_API uint32_t ombr_fs_file_open(const char *name, uint32_t flags, uint32_t attributes, ombr_file_t *out_file) {
    if (s_fs.initialized == 0) return OMBR_FS_ERR_NOT_INITIALIZED;
    if (!name || !out_file || (flags & kAccessFlags) == 0) return kBadArg;
    if (name[0] == 0) return OMBR_FS_ERR_BAD_NAME;
    const uint32_t name_size = ombr_string_bytelen(name);  // with the terminator
    auto *file = static_cast<ombr_file *>(ombr_memory_alloc(sizeof(ombr_file) + name_size));
    if (!file) return OMBR_FS_ERR_NO_MEMORY;
    ombr_memory_memset(file, 0, sizeof *file);
    ombr_memory_memcpy(file->name(), name, name_size);
    file->self = file;
    file->attributes = attributes;
    uint32_t status = ombr::fsmgr::new_fd(file);
    if (status == 0) {
        // Opened inside the manager's section, like every reopen: no
        // stray close of descriptor 0 can meet it before it is moved up.
        const bool entered = ombr::fsmgr::enter() == 0;
        status = fs_file_get_handle(file, flags);
        if (entered) ombr::fsmgr::leave();
    }
    if (status != 0) {
        ombr::fsmgr::close_fd(file);
        ombr_memory_free(file);
        return status;
    }
    file->open_flags = flags;
    *out_file = file;
    ombr::fsmgr::release_fd(file);
    return 0;
}

// The descriptor is closed inside the manager's section, so its slot cannot
// pass to another file before it is really free. A file that lost its
// descriptor has 0 in its record, and that number is closed; only the close
// of a descriptor the file held is reported.
OMBR_API uint32_t ombr_fs_file_close(ombr_file_t file) {
    if (!file) return 0;
    uint32_t status = check_file(file);
    if (status != 0) return status;
    const bool entered = ombr::fsmgr::enter() == 0;
    const bool had_descriptor = file->has_descriptor != 0;
    ombr::fsmgr::close_fd(file);
    if (!file->is_standard && close(file->fd) != 0 && had_descriptor) status = ombr::fs_map_error(errno);
    if (entered) ombr::fsmgr::leave();
    file->self = nullptr;
    ombr_memory_free(file);
    return status;
}

// ---- Reading and writing -----------------------------------------------------------

OMBR_API uint32_t ombr_fs_file_read(ombr_file_t file, void *buffer, uint32_t size, uint32_t *out_got) {
    if (!buffer || !out_got) return kBadArg;
    return with_descriptor(file, [&](int fd) {
        ssize_t n = file->is_regular
                        ? retry_eintr([&] { return pread(fd, buffer, size, static_cast<off_t>(file->position)); })
                        : retry_eintr([&] { return read(fd, buffer, size); });
        if (n < 0) return ombr::fs_map_error(errno);
        file->position += static_cast<uint64_t>(n);
        if (n == 0 && size != 0) file->at_eof = 1;
        ombr::fsmgr::update_metrics(file, static_cast<uint32_t>(n), 0, 0);
        *out_got = static_cast<uint32_t>(n);
        return 0u;
    });
}

OMBR_API uint32_t ombr_fs_file_read_at(ombr_file_t file, uint64_t offset, void *buffer, uint32_t size,
                                       uint32_t *out_got) {
    if (!buffer || !out_got) return kBadArg;
    // Only the low 32 bits of the offset reach the call.
    const auto at = static_cast<off_t>(static_cast<uint32_t>(offset));
    return with_descriptor(file, [&](int fd) {
        ssize_t n = retry_eintr([&] { return pread(fd, buffer, size, at); });
        if (n < 0) return ombr::fs_map_error(errno);
        ombr::fsmgr::update_metrics(file, static_cast<uint32_t>(n), 0, 0);
        *out_got = static_cast<uint32_t>(n);
        return 0u;
    });
}

// One read of up to size bytes at the position. The first "\n", "\r" or
// "\r\n" ends the line and the position moves behind it. Without a line
// end the buffer's last byte becomes 0 and the position moves by size - 1,
// whatever was read; bytes after the data are left as they were.
OMBR_API uint32_t ombr_fs_file_read_line(ombr_file_t file, char *buffer, uint32_t size) {
    if (!buffer || size == 0) return kBadArg;
    return with_descriptor(file, [&](int fd) {
        ssize_t n = retry_eintr([&] { return pread(fd, buffer, size, static_cast<off_t>(file->position)); });
        if (n < 0) return ombr::fs_map_error(errno);
        if (n == 0) return OMBR_FS_ERR_END_OF_DATA;
        uint64_t advance = size - 1;
        bool line_end = false;
        for (ssize_t i = 0; i < n && !line_end; ++i) {
            if (buffer[i] == '\n' || buffer[i] == '\r') {
                const bool pair = buffer[i] == '\r' && i + 1 < n && buffer[i + 1] == '\n';
                buffer[i] = 0;
                advance = static_cast<uint64_t>(i) + (pair ? 2 : 1);
                line_end = true;
            }
        }
        if (!line_end) buffer[size - 1] = 0;
        file->position += advance;
        ombr::fsmgr::update_metrics(file, static_cast<uint32_t>(n), 0, 0);
        return 0u;
    });
}

OMBR_API uint32_t ombr_fs_file_write(ombr_file_t file, const void *buffer, uint32_t size, uint32_t *out_written) {
    if ((!buffer && size != 0) || !out_written) return kBadArg;
    return with_descriptor(file, [&](int fd) {
        ssize_t n = file->is_regular
                        ? retry_eintr([&] { return pwrite(fd, buffer, size, static_cast<off_t>(file->position)); })
                        : retry_eintr([&] { return write(fd, buffer, size); });
        if (n < 0) return ombr::fs_map_error(errno);
        file->position += static_cast<uint64_t>(n);
        file->at_eof = 0;
        ombr::fsmgr::update_metrics(file, 0, static_cast<uint32_t>(n), 0);
        *out_written = static_cast<uint32_t>(n);
        return 0u;
    });
}

// Formats into a 1024-byte buffer, or into a new text when longer.
OMBR_API uint32_t ombr_fs_file_vwrite(ombr_file_t file, const char *format, va_list args, uint32_t *out_written) {
    if (!format || !out_written) return kBadArg;
    uint32_t status = check_file(file);
    if (status != 0) return status;
    char buffer[kVwriteBuffer];
    va_list first;
    va_copy(first, args);
    const uint32_t full = ombr_string_vsnprintf(buffer, sizeof buffer, format, first);
    va_end(first);
    if (full <= sizeof buffer) return ombr_fs_file_write(file, buffer, full == 0 ? 0 : full - 1, out_written);
    char *text = ombr_string_vmprintf(format, args);
    if (!text) return OMBR_FS_ERR_NO_MEMORY;
    status = ombr_fs_file_write(file, text, full - 1, out_written);
    ombr_string_free(text);
    return status;
}

OMBR_API uint32_t ombr_fs_file_write_at(ombr_file_t file, uint64_t offset, const void *buffer, uint32_t size,
                                        uint32_t *out_written) {
    if ((!buffer && size != 0) || !out_written) return kBadArg;
    return with_descriptor(file, [&](int fd) {
        ssize_t n = retry_eintr([&] { return pwrite(fd, buffer, size, static_cast<off_t>(offset)); });
        if (n < 0) return ombr::fs_map_error(errno);
        ombr::fsmgr::update_metrics(file, 0, static_cast<uint32_t>(n), 0);
        *out_written = static_cast<uint32_t>(n);
        return 0u;
    });
}

// ---- Position and size ---------------------------------------------------------------

OMBR_API uint32_t ombr_fs_file_get_position(ombr_file_t file, uint64_t *out_position) {
    if (!out_position) return kBadArg;
    uint32_t status = check_file(file);
    if (status == 0) *out_position = file->position;
    return status;
}

OMBR_API uint32_t ombr_fs_file_seek(ombr_file_t file, uint64_t offset, uint32_t origin) {
    if (origin < OMBR_FS_SEEK_START || origin > OMBR_FS_SEEK_END) return kBadArg;
    return with_descriptor(file, [&](int fd) {
        struct stat st{};
        uint32_t status = fstat_of(fd, &st);
        if (status != 0) return status;
        const auto size = static_cast<uint64_t>(st.st_size);
        uint64_t target = 0;
        switch (origin) {
            case OMBR_FS_SEEK_START: target = offset; break;
            case OMBR_FS_SEEK_CURRENT:
                target = file->position + offset;
                if (target < file->position) return OMBR_FS_ERR_SEEK_PAST_END;  // wrapped
                break;
            default:
                if (offset > size) return OMBR_FS_ERR_SEEK_PAST_END;
                target = size - offset;
                break;
        }
        if (target > size) return OMBR_FS_ERR_SEEK_PAST_END;
        file->position = target;
        ombr::fsmgr::update_metrics(file, 0, 0, 1);
        return 0u;
    });
}

OMBR_API uint32_t ombr_fs_file_get_eof(ombr_file_t file, uint8_t *out_eof) {
    if (!out_eof) return kBadArg;
    return with_descriptor(file, [&](int fd) {
        bool eof = file->at_eof != 0;
        if (!eof && file->is_regular) {
            struct stat st{};
            uint32_t status = fstat_of(fd, &st);
            if (status != 0) return status;
            eof = file->position == static_cast<uint64_t>(st.st_size);
        }
        *out_eof = eof ? 1 : 0;
        return 0u;
    });
}

OMBR_API uint32_t ombr_fs_file_truncate(ombr_file_t file, uint64_t length) {
    return with_descriptor(file, [&](int fd) {
        if (retry_eintr([&] { return ftruncate(fd, static_cast<off_t>(length)); }) != 0)
            return ombr::fs_map_error(errno);
        file->position = length;
        return 0u;
    });
}

OMBR_API uint32_t ombr_fs_file_size(ombr_file_t file, uint64_t *out_size) {
    if (!out_size) return kBadArg;
    return with_descriptor(file, [&](int fd) {
        struct stat st{};
        uint32_t status = fstat_of(fd, &st);
        if (status == 0) *out_size = static_cast<uint64_t>(st.st_size);
        return status;
    });
}

OMBR_API uint32_t ombr_fs_file_attributes(ombr_file_t file, uint32_t *out_attributes) {
    if (!out_attributes) return kBadArg;
    return with_descriptor(file, [&](int fd) {
        struct stat st{};
        uint32_t status = fstat_of(fd, &st);
        if (status == 0) *out_attributes = ombr::fs_attributes_of(st.st_mode);
        return status;
    });
}

OMBR_API uint32_t ombr_fs_file_get_name(ombr_file_t file, const char **out_name) {
    if (!out_name) return kBadArg;
    uint32_t status = check_file(file);
    if (status == 0) *out_name = file->name();
    return status;
}

OMBR_API uint32_t ombr_fs_file_commit(ombr_file_t file) {
    return with_descriptor(file, [&](int fd) { return fsync(fd) == 0 ? 0u : ombr::fs_map_error(errno); });
}

uint32_t ombr::fs_copy_contents(ombr_file *source, ombr_file *destination) {
    constexpr uint32_t kStep = 4096;
    char buffer[kStep];
    for (;;) {
        uint32_t got = 0, written = 0;
        uint32_t status = ombr_fs_file_read(source, buffer, kStep, &got);
        if (status != 0) return status;
        status = ombr_fs_file_write(destination, buffer, got, &written);
        if (status != 0) return status;
        if (written < got) return OMBR_FS_ERR_NO_SPACE;
        if (got < kStep) return 0;
    }
}
