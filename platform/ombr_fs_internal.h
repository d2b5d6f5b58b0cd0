// Internal records and functions of the file package: the file record, the
// file-handle manager that lends system descriptors to logical files, and
// the two descriptor operations the manager calls back into.
#ifndef OMBR_FS_INTERNAL_H
#define OMBR_FS_INTERNAL_H

#include <pthread.h>

#include <cstdint>

#include "ombr/ombr_fs.h"

struct ombr_file;
struct fs_marker_entry;

// A marker gathers the traffic of the files opened while it runs, on one
// thread or (the global marker) on all. This library never starts one; the
// manager only feeds markers that are present.
struct fs_marker_record {
    uint32_t id;
    pthread_t thread_id;
    fs_marker_entry *entries;
    fs_marker_record *next;
};

// One file's traffic as seen by one marker.
struct fs_marker_entry {
    uint32_t marker_id;
    pthread_t thread_id;
    char *file_name;
    uint32_t bytes_read;
    uint32_t largest_read;
    uint32_t reads;
    uint32_t bytes_written;
    uint32_t largest_write;
    uint32_t writes;
    uint32_t seeks;
    uint8_t open;
    uint8_t closed;
    uint8_t touched;
    ombr_file *file;
    fs_marker_record *marker;
    fs_marker_entry *next_in_marker;
    fs_marker_entry *prev_in_marker;
    fs_marker_entry *next_in_file;
    fs_marker_entry *prev_in_file;
};

// Which manager list a file is on.
enum class FsList : uint8_t { none, live, open };

// A logical file. The name follows the record in the same block.
struct ombr_file {
    // Manager fields.
    ombr_file *self;  // the file itself while the handle is valid
    pthread_t opener;
    uint32_t use_count;
    fs_marker_entry *markers;
    uint8_t has_descriptor;
    FsList list;
    ombr_file *next;
    ombr_file *prev;
    // File fields.
    int32_t fd;  // 0 while evicted
    uint32_t at_eof;
    uint32_t open_flags;
    uint32_t attributes;
    uint64_t position;
    uint8_t is_standard;
    uint8_t is_regular;

    char *name() { return reinterpret_cast<char *>(this + 1); }
};

namespace ombr {

// Maps an errno value to a file-package status.
uint32_t fs_map_error(int error);

// Mode bits of attributes (read 0444, write 0222) and attributes of a mode
// (the owner's read and write bits).
uint32_t fs_mode_of(uint32_t attributes);
uint32_t fs_attributes_of(uint32_t mode);
// True for the names of the standard streams.
bool fs_is_reserved_name(const char *name);

// Moves a new descriptor of 0 to 2 above the standard streams: closing a
// file that lost its descriptor closes descriptor 0, and that must never
// be one of this package's. Closes the old number; on failure the status.
uint32_t fs_move_above_standard(int *fd);

// Closes a file's descriptor (not a standard stream's) and leaves 0 in the
// record. Called by the manager to evict.
uint32_t fs_close_internal(ombr_file *file);
// Opens a file again with its stored flags, never creating or truncating.
uint32_t fs_reopen_internal(ombr_file *file);
// Copies from `source` to `destination` in 4096-byte steps until a short
// read; a short write gives OMBR_FS_ERR_NO_SPACE.
uint32_t fs_copy_contents(ombr_file *source, ombr_file *destination);

namespace fsmgr {

uint32_t init();
uint32_t shutdown();
// Reserves a descriptor slot for a new file (waiting or evicting at the
// limit): on success the file is in use once and the caller opens.
uint32_t new_fd(ombr_file *file);
// Gives the file a descriptor again if it lost it, and counts one more use.
uint32_t acquire_fd(ombr_file *file);
// One use fewer; an idle file joins the end of the live list.
uint32_t release_fd(ombr_file *file);
// Detaches the file from the manager.
uint32_t close_fd(ombr_file *file);
uint32_t update_metrics(ombr_file *file, uint32_t bytes_read, uint32_t bytes_written, uint32_t seeks);

// The manager's re-entrant section. Everything that creates or closes a
// descriptor of this package runs inside it while the manager is up.
uint32_t enter();
void leave();

// State for tests.
struct Counts {
    uint32_t handles;  // descriptors held by logical files
    uint32_t live;     // idle files with a descriptor
    uint32_t open;     // idle files without one
};
Counts counts();
// Installs a global marker (null removes it) and returns the previous one.
fs_marker_record *exchange_global_marker(fs_marker_record *marker);

}  // namespace fsmgr
}  // namespace ombr

#endif
