/*
 * Byte streams: a reference-counted stream over a table of callbacks or over
 * a memory buffer, with a read buffer and unlimited push-back. The XML
 * parser reads from it.
 *
 * Statuses are returned straight, without the error hook. Only the
 * reference count is safe across threads: one thread reads a stream at a
 * time.
 */
#ifndef OMBR_IOSTREAM_H
#define OMBR_IOSTREAM_H

#include "ombr/ombr_base.h"

OMBR_BEGIN_DECLS

#define OMBR_IOSTREAM_ERR_INVALID_ARG 0x90220001u
#define OMBR_IOSTREAM_ERR_NO_MEMORY 0x90220002u
#define OMBR_IOSTREAM_ERR_NO_WRITE 0x90220005u
#define OMBR_IOSTREAM_ERR_NOT_INITIALIZED 0x90220007u
#define OMBR_IOSTREAM_ERR_NOT_AVAILABLE 0x9022000Bu /* the stream lacks the callback */
#define OMBR_IOSTREAM_END_OF_DATA 0x10220049u      /* soft */
#define OMBR_IOSTREAM_ERR_NOT_READABLE 0x90220052u
#define OMBR_IOSTREAM_ERR_BAD_MAGIC 0x90220321u

/* Error value (low 16 bits) of "end of data" in every package. */
#define OMBR_END_OF_DATA_VALUE 0x0049u

typedef struct ombr_iostream *ombr_iostream_t;

/* Callbacks of a stream; each gets the context given at creation. A read
 * returns its byte count in *out_got; 0 bytes, or a status whose error value
 * is 0x49, means end of data. */
typedef uint32_t (*ombr_iostream_read_t)(void *context, void *buffer, uint32_t size, uint32_t *out_got);
typedef uint32_t (*ombr_iostream_write_t)(void *context, const void *buffer, uint32_t size, uint32_t *out_written);
typedef uint32_t (*ombr_iostream_flush_t)(void *context);
typedef uint32_t (*ombr_iostream_reset_t)(void *context);
typedef uint32_t (*ombr_iostream_delete_t)(void *context);

typedef struct ombr_iostream_callbacks {
    ombr_iostream_read_t read;
    ombr_iostream_write_t write;
    ombr_iostream_flush_t flush;
    ombr_iostream_reset_t reset;
    ombr_iostream_delete_t delete_stream;
} ombr_iostream_callbacks;

/* Needs the package up. A read or a write callback is required; the read
 * buffer holds at least 1024 bytes. The table is copied. */
OMBR_API uint32_t ombr_iostream_create(ombr_iostream_t *out_stream, uint32_t buffer_size,
                                       const ombr_iostream_callbacks *callbacks, void *context);
/* A read-only stream over memory. With a delete callback the data is read in
 * place and the callback runs (with the context) when the stream dies;
 * without one the data is copied. */
OMBR_API uint32_t ombr_iostream_create_from_buffer(ombr_iostream_t *out_stream, const void *data, uint32_t size,
                                                   ombr_iostream_delete_t delete_callback, void *context);
OMBR_API uint32_t ombr_iostream_addref(ombr_iostream_t stream);
/* Null is success. The last release runs the delete callback. */
OMBR_API uint32_t ombr_iostream_release(ombr_iostream_t stream);

OMBR_API uint32_t ombr_iostream_can_read(ombr_iostream_t stream, uint8_t *out_can);
OMBR_API uint32_t ombr_iostream_can_write(ombr_iostream_t stream, uint8_t *out_can);
OMBR_API uint32_t ombr_iostream_can_reset(ombr_iostream_t stream, uint8_t *out_can);

/* Serves pushed-back bytes first (the latest push first), then the read
 * buffer, then the read callback, until size bytes are read or the data
 * ends. Bytes served before the end give 0; a read at the end gives
 * OMBR_IOSTREAM_END_OF_DATA. */
OMBR_API uint32_t ombr_iostream_read(ombr_iostream_t stream, void *buffer, uint32_t size, uint32_t *out_got);
/* Copies the bytes; they are read again before anything else, also after
 * the end of data was reached. */
OMBR_API uint32_t ombr_iostream_putback(ombr_iostream_t stream, const void *data, uint32_t size);
OMBR_API uint32_t ombr_iostream_write(ombr_iostream_t stream, const void *data, uint32_t size,
                                      uint32_t *out_written);
OMBR_API uint32_t ombr_iostream_flush(ombr_iostream_t stream);
/* Back to the start; drops pushed-back bytes. */
OMBR_API uint32_t ombr_iostream_reset(ombr_iostream_t stream);
/* Reads everything into a new block (ombr_memory_free). An empty stream
 * gives a null block and size 0. */
OMBR_API uint32_t ombr_iostream_read_entire(ombr_iostream_t stream, void **out_block, uint32_t *out_size);
/* Bytes read and written so far; only for a stream that can be reset. */
OMBR_API uint32_t ombr_iostream_throughput(ombr_iostream_t stream, uint32_t *out_read, uint32_t *out_written);

OMBR_END_DECLS

#endif
