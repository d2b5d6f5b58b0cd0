/*
 * Files and directories of the base layer (package byte 0x03).
 *
 * Open files are logical: with the option "ombr_fs_max_handles" set, the
 * package holds at most that many system descriptors and takes one away
 * from the least recently used idle file when it needs another; that file
 * gets a descriptor back on its next use, at the same position. The
 * position lives in the file record, so two threads using one file share
 * it without a lock. The file package (ombr_fs_initialize) must be up to
 * open files.
 *
 * Every function returns a status word; outputs are written on success only.
 */
#ifndef OMBR_FS_H
#define OMBR_FS_H

#include <stdarg.h>

#include "ombr/ombr_base.h"

OMBR_BEGIN_DECLS

/* ---- Statuses --------------------------------------------------------------- */

#define OMBR_FS_ERR_INVALID_ARG 0x90030001u
#define OMBR_FS_ERR_NO_MEMORY 0x90030002u
#define OMBR_FS_ERR_NOT_INITIALIZED 0x90030007u
#define OMBR_FS_ERR_NOT_AVAILABLE 0x9003000Bu /* no such device */
#define OMBR_FS_ERR_UNKNOWN 0x9003003Eu
#define OMBR_FS_ERR_ACCESS_DENIED 0x90030040u
#define OMBR_FS_ERR_NOT_FOUND 0x90030041u
#define OMBR_FS_ERR_EXISTS 0x90030042u
#define OMBR_FS_ERR_NO_SPACE 0x90030043u
#define OMBR_FS_ERR_TOO_MANY_FILES 0x90030044u
#define OMBR_FS_ERR_BAD_DESCRIPTOR 0x90030045u
#define OMBR_FS_ERR_BAD_NAME 0x90030046u
#define OMBR_FS_ERR_TOO_LARGE 0x90030048u
#define OMBR_FS_ERR_END_OF_DATA 0x90030049u
#define OMBR_FS_ERR_SEEK_PAST_END 0x90030051u
#define OMBR_FS_ERR_BAD_MAGIC 0x90030321u
#define OMBR_FS_DIR_NOT_EMPTY 0x10030050u /* soft */

/* ---- Names and options ---------------------------------------------------------- */

/* Reserved names of the standard streams (descriptors 0, 1, 2). Only
 * ombr_fs_file_open and ombr_fs_file_read_to_buffer take them. */
#define OMBR_FSNAME_STDIN "ombr_fsname_stdin"
#define OMBR_FSNAME_STDOUT "ombr_fsname_stdout"
#define OMBR_FSNAME_STDERR "ombr_fsname_stderr"

/* Option key (exact case): the most system descriptors held at once, as
 * decimal text. "0", the default, means no limit. */
#define OMBR_FS_OPTION_MAX_HANDLES "ombr_fs_max_handles"

OMBR_API uint32_t ombr_fs_option_set(const char *key, const char *value);
/* The text is in one static area, overwritten by the next call. */
OMBR_API uint32_t ombr_fs_option_get(const char *key, const char **out_value);

/* ---- Files ------------------------------------------------------------------------ */

typedef struct ombr_file *ombr_file_t;

/* Open flags. One of read, write and append is required; read with write
 * or append opens for both. */
#define OMBR_FS_FLAG_READ 0x01u
#define OMBR_FS_FLAG_WRITE 0x02u
#define OMBR_FS_FLAG_APPEND 0x04u
#define OMBR_FS_FLAG_CREATE 0x10u
#define OMBR_FS_FLAG_TRUNCATE 0x20u
#define OMBR_FS_FLAG_EXCLUSIVE 0x100u

/* Attributes: the owner's read and write permission. Setting them gives mode
 * 0444 for read and adds 0222 for write. */
#define OMBR_FS_ATTR_READ 0x01u
#define OMBR_FS_ATTR_WRITE 0x02u

/* Seek origins. */
#define OMBR_FS_SEEK_START 1u
#define OMBR_FS_SEEK_CURRENT 2u
#define OMBR_FS_SEEK_END 3u /* the offset counts backwards from the end */

OMBR_API uint32_t ombr_fs_file_open(const char *name, uint32_t flags, uint32_t attributes, ombr_file_t *out_file);
OMBR_API uint32_t ombr_fs_file_close(ombr_file_t file);

/* Reads at the file's position and moves it; reading 0 bytes marks the end. */
OMBR_API uint32_t ombr_fs_file_read(ombr_file_t file, void *buffer, uint32_t size, uint32_t *out_got);
/* Reads at offset without moving the position. Only the low 32 bits of the
 * offset are used. */
OMBR_API uint32_t ombr_fs_file_read_at(ombr_file_t file, uint64_t offset, void *buffer, uint32_t size,
                                       uint32_t *out_got);
/* Reads one line of at most size - 1 bytes. "\n", "\r" and "\r\n" end a line
 * and are dropped. A line without an end fills the buffer: buffer[size - 1]
 * becomes 0 and the position moves by size - 1. OMBR_FS_ERR_END_OF_DATA at
 * the end. */
OMBR_API uint32_t ombr_fs_file_read_line(ombr_file_t file, char *buffer, uint32_t size);
OMBR_API uint32_t ombr_fs_file_write(ombr_file_t file, const void *buffer, uint32_t size, uint32_t *out_written);
/* Formats with the base layer's formatter (see ombr_string_printf.h) and writes. */
OMBR_API uint32_t ombr_fs_file_vwrite(ombr_file_t file, const char *format, va_list args, uint32_t *out_written);
OMBR_API uint32_t ombr_fs_file_write_at(ombr_file_t file, uint64_t offset, const void *buffer, uint32_t size,
                                        uint32_t *out_written);
OMBR_API uint32_t ombr_fs_file_get_position(ombr_file_t file, uint64_t *out_position);
/* Moves the position only; a target past the size gives OMBR_FS_ERR_SEEK_PAST_END. */
OMBR_API uint32_t ombr_fs_file_seek(ombr_file_t file, uint64_t offset, uint32_t origin);
/* True after a read of 0 bytes (until the next write) or at the size. */
OMBR_API uint32_t ombr_fs_file_get_eof(ombr_file_t file, uint8_t *out_eof);
/* Sets the size; the position becomes length. */
OMBR_API uint32_t ombr_fs_file_truncate(ombr_file_t file, uint64_t length);
OMBR_API uint32_t ombr_fs_file_size(ombr_file_t file, uint64_t *out_size);
OMBR_API uint32_t ombr_fs_file_attributes(ombr_file_t file, uint32_t *out_attributes);
/* The name as opened; it lives as long as the file. */
OMBR_API uint32_t ombr_fs_file_get_name(ombr_file_t file, const char **out_name);
OMBR_API uint32_t ombr_fs_file_commit(ombr_file_t file);

/* ---- Files by name ----------------------------------------------------------------
 * Empty and reserved names give OMBR_FS_ERR_BAD_NAME. */

OMBR_API uint32_t ombr_fs_file_delete(const char *name);
OMBR_API uint32_t ombr_fs_file_exists(const char *name, uint8_t *out_exists);
OMBR_API uint32_t ombr_fs_file_get_attributes(const char *name, uint32_t *out_attributes);
OMBR_API uint32_t ombr_fs_file_set_attributes(const char *name, uint32_t attributes);
OMBR_API uint32_t ombr_fs_file_get_size(const char *name, uint64_t *out_size);
OMBR_API uint32_t ombr_fs_file_rename(const char *old_name, const char *new_name);
/* Creates or truncates the file (or appends to it) and writes data once. */
OMBR_API uint32_t ombr_fs_file_write_to_file(const char *name, const void *data, uint32_t size, uint8_t append);
/* Reads a whole file (or standard input) into a new block, released with
 * ombr_memory_free. With terminate a 0 follows the data and is counted in
 * the size when anything was read. */
OMBR_API uint32_t ombr_fs_file_read_to_buffer(const char *name, void **out_block, uint32_t *out_size,
                                              uint8_t terminate);
/* Note: an existing destination is deleted first (OMBR_FS_ERR_EXISTS with
 * fail_if_exists), and the destination is opened without the create flag, so
 * a copy to a destination that does not exist by then fails with
 * OMBR_FS_ERR_NOT_FOUND. */
OMBR_API uint32_t ombr_fs_file_copy(const char *source, const char *destination, uint8_t fail_if_exists);

/* ---- Directories ------------------------------------------------------------------- */

typedef struct ombr_dir *ombr_dir_t;

/* Entry types of ombr_fs_dir_next_entry. */
#define OMBR_FS_TYPE_OTHER 0u
#define OMBR_FS_TYPE_DIRECTORY 4u
#define OMBR_FS_TYPE_REGULAR 8u
#define OMBR_FS_TYPE_LINK 16u

/* mkdir with mode 0775; an existing directory is no failure. With out_dir
 * the directory is opened as well. */
OMBR_API uint32_t ombr_fs_dir_create(const char *path, ombr_dir_t *out_dir);
OMBR_API uint32_t ombr_fs_dir_open(const char *path, ombr_dir_t *out_dir);
/* Entries in the system's order, "." and ".." included. The name points into
 * the directory record until the next call. OMBR_FS_ERR_END_OF_DATA at the end. */
OMBR_API uint32_t ombr_fs_dir_next_entry(ombr_dir_t dir, const char **out_name, uint32_t *out_type);
OMBR_API uint32_t ombr_fs_dir_close(ombr_dir_t dir);
OMBR_API uint32_t ombr_fs_dir_exists(const char *path, uint8_t *out_exists);
/* rmdir; with parents the path is cut back one separator at a time and each
 * parent removed in turn while the path is longer than one byte, until the
 * first failure, which is the result (often OMBR_FS_DIR_NOT_EMPTY). */
OMBR_API uint32_t ombr_fs_dir_delete(const char *path, uint8_t with_parents);

OMBR_END_DECLS

#endif
