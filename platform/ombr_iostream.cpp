// The stream package: byte streams over callbacks or memory, with a read
// buffer and a push-back list.
#include "ombr/ombr_iostream.h"

#include "platform/ombr_frame.h"

namespace {
ombr::PackageState s_iostream;
uint32_t iostream_init_func() { return ombr_memory_initialize(); }
uint32_t iostream_shutdown_func() {
    ombr_memory_shutdown();
    return 0;
}

constexpr uint32_t kStreamMagic = 0x10574EA8u;
constexpr uint32_t kMinBufferSize = 1024;
constexpr uint32_t kReadEntireStep = 1024;

bool is_end_of_data(uint32_t status) { return OMBR_STATUS_VALUE(status) == OMBR_END_OF_DATA_VALUE; }
}  // namespace

// Pushed-back bytes; the bytes follow the node.
struct putback_node {
    uint32_t read_pos;
    uint32_t size;
    putback_node *next;
    uint8_t *bytes() { return reinterpret_cast<uint8_t *>(this + 1); }
};

// The stream record; a callback stream's read buffer, or a buffer stream's
// copied data, follows it in the same allocation.
struct ombr_iostream {
    uint32_t magic;
    uint32_t ref_count;
    uint32_t bytes_read;
    uint32_t bytes_written;
    void *context;
    ombr_iostream_read_t read;
    ombr_iostream_write_t write;
    ombr_iostream_flush_t flush;
    ombr_iostream_reset_t reset;
    ombr_iostream_delete_t delete_stream;
    putback_node *putback;
    uint32_t read_pos;
    uint32_t read_end;
    uint32_t buffer_size;
    uint8_t *buffer;
    uint8_t is_buffer_stream;
    uint8_t at_end;

    uint8_t *tail() { return reinterpret_cast<uint8_t *>(this + 1); }
};

namespace {
// 0 for a usable stream, otherwise its refusal.
uint32_t check(const ombr_iostream *stream) {
    if (!stream) return OMBR_IOSTREAM_ERR_INVALID_ARG;
    if (stream->magic != kStreamMagic) return OMBR_IOSTREAM_ERR_BAD_MAGIC;
    return 0;
}

void free_putback(ombr_iostream *stream) {
    for (putback_node *node = stream->putback; node;) {
        putback_node *next = node->next;
        ombr_memory_free(node);
        node = next;
    }
    stream->putback = nullptr;
}

ombr_iostream *new_record(uint32_t tail_size) {
    auto *stream = static_cast<ombr_iostream *>(ombr_memory_alloc(sizeof(ombr_iostream) + tail_size));
    if (!stream) return nullptr;
    ombr_memory_memset(stream, 0, sizeof *stream);
    stream->magic = kStreamMagic;
    stream->ref_count = 1;
    return stream;
}

// Serves what the push-back list and the read buffer hold, up to `size`.
uint32_t serve_held(ombr_iostream *stream, uint8_t *out, uint32_t size) {
    uint32_t served = 0;
    while (served < size && stream->putback) {
        putback_node *node = stream->putback;
        uint32_t n = node->size - node->read_pos;
        if (n > size - served) n = size - served;
        ombr_memory_memcpy(out + served, node->bytes() + node->read_pos, n);
        node->read_pos += n;
        served += n;
        if (node->read_pos == node->size) {
            stream->putback = node->next;
            ombr_memory_free(node);
        }
    }
    if (served < size && stream->read_pos < stream->read_end) {
        uint32_t n = stream->read_end - stream->read_pos;
        if (n > size - served) n = size - served;
        ombr_memory_memcpy(out + served, stream->buffer + stream->read_pos, n);
        stream->read_pos += n;
        served += n;
    }
    stream->bytes_read += served;
    return served;
}
}  // namespace

OMBR_DEFINE_PACKAGE_FRAME(iostream, s_iostream, iostream_init_func, iostream_shutdown_func, ombr::kBaseBuildDate)

OMBR_API uint32_t ombr_iostream_create(ombr_iostream_t *out_stream, uint32_t buffer_size,
                                       const ombr_iostream_callbacks *callbacks, void *context) {
    if (s_iostream.initialized == 0) return OMBR_IOSTREAM_ERR_NOT_INITIALIZED;
    if (!out_stream || !callbacks || (!callbacks->read && !callbacks->write)) return OMBR_IOSTREAM_ERR_INVALID_ARG;
    if (buffer_size < kMinBufferSize) buffer_size = kMinBufferSize;
    ombr_iostream *stream = new_record(buffer_size);
    if (!stream) return OMBR_IOSTREAM_ERR_NO_MEMORY;
    stream->context = context;
    stream->read = callbacks->read;
    stream->write = callbacks->write;
    stream->flush = callbacks->flush;
    stream->reset = callbacks->reset;
    stream->delete_stream = callbacks->delete_stream;
    stream->buffer_size = buffer_size;
    stream->buffer = stream->tail();
    *out_stream = stream;
    return 0;
}

OMBR_API uint32_t ombr_iostream_create_from_buffer(ombr_iostream_t *out_stream, const void *data, uint32_t size,
                                                   ombr_iostream_delete_t delete_callback, void *context) {
    if (!out_stream || !data || size == 0) return OMBR_IOSTREAM_ERR_INVALID_ARG;
    ombr_iostream *stream = new_record(delete_callback ? 0 : size);
    if (!stream) return OMBR_IOSTREAM_ERR_NO_MEMORY;
    if (delete_callback) {
        stream->buffer = static_cast<uint8_t *>(const_cast<void *>(data));
    } else {
        stream->buffer = stream->tail();
        ombr_memory_memcpy(stream->buffer, data, size);
    }
    stream->context = context;
    stream->delete_stream = delete_callback;
    stream->buffer_size = size;
    stream->read_end = size;
    stream->is_buffer_stream = 1;
    *out_stream = stream;
    return 0;
}

OMBR_API uint32_t ombr_iostream_addref(ombr_iostream_t stream) {
    if (uint32_t status = check(stream)) return status;
    return ombr_atomic_inc(&stream->ref_count, nullptr);
}

OMBR_API uint32_t ombr_iostream_release(ombr_iostream_t stream) {
    if (!stream) return 0;
    if (uint32_t status = check(stream)) return status;
    uint32_t remaining = 1;
    if (uint32_t status = ombr_atomic_dec(&stream->ref_count, &remaining)) return status;
    if (remaining != 0) return 0;
    if (stream->delete_stream) stream->delete_stream(stream->context);
    free_putback(stream);
    stream->magic = 0;
    ombr_memory_free(stream);
    return 0;
}

OMBR_API uint32_t ombr_iostream_can_read(ombr_iostream_t stream, uint8_t *out_can) {
    if (uint32_t status = check(stream)) return status;
    if (!out_can) return OMBR_IOSTREAM_ERR_INVALID_ARG;
    *out_can = stream->is_buffer_stream || stream->read;
    return 0;
}

OMBR_API uint32_t ombr_iostream_can_write(ombr_iostream_t stream, uint8_t *out_can) {
    if (uint32_t status = check(stream)) return status;
    if (!out_can) return OMBR_IOSTREAM_ERR_INVALID_ARG;
    *out_can = stream->write != nullptr;
    return 0;
}

OMBR_API uint32_t ombr_iostream_can_reset(ombr_iostream_t stream, uint8_t *out_can) {
    if (uint32_t status = check(stream)) return status;
    if (!out_can) return OMBR_IOSTREAM_ERR_INVALID_ARG;
    *out_can = stream->is_buffer_stream || stream->reset;
    return 0;
}

OMBR_API uint32_t ombr_iostream_read(ombr_iostream_t stream, void *buffer, uint32_t size, uint32_t *out_got) {
    if (uint32_t status = check(stream)) return status;
    if (!out_got || (!buffer && size != 0)) return OMBR_IOSTREAM_ERR_INVALID_ARG;
    if (!stream->is_buffer_stream && !stream->read) return OMBR_IOSTREAM_ERR_NOT_READABLE;
    if (stream->at_end) return OMBR_IOSTREAM_END_OF_DATA;
    auto *out = static_cast<uint8_t *>(buffer);
    uint32_t got = 0;
    for (;;) {
        got += serve_held(stream, out + got, size - got);
        if (got == size) break;
        uint32_t status = 0, filled = 0;
        if (stream->read) {
            status = stream->read(stream->context, stream->buffer, stream->buffer_size, &filled);
            if (status != 0 && !is_end_of_data(status)) return status;
        }
        if (!stream->read || status != 0) {
            stream->at_end = 1;
            if (got == 0) return OMBR_IOSTREAM_END_OF_DATA;
            break;
        }
        if (filled == 0) {
            stream->at_end = 1;
            break;
        }
        if (filled > stream->buffer_size) filled = stream->buffer_size;  // a callback that overstates its count
        stream->read_pos = 0;
        stream->read_end = filled;
    }
    *out_got = got;
    return 0;
}

OMBR_API uint32_t ombr_iostream_putback(ombr_iostream_t stream, const void *data, uint32_t size) {
    if (uint32_t status = check(stream)) return status;
    if (size == 0) return 0;
    if (!data) return OMBR_IOSTREAM_ERR_INVALID_ARG;
    auto *node = static_cast<putback_node *>(ombr_memory_alloc(sizeof(putback_node) + size));
    if (!node) return OMBR_IOSTREAM_ERR_NO_MEMORY;
    node->read_pos = 0;
    node->size = size;
    node->next = stream->putback;
    ombr_memory_memcpy(node->bytes(), data, size);
    stream->putback = node;
    stream->at_end = 0;
    return 0;
}

OMBR_API uint32_t ombr_iostream_write(ombr_iostream_t stream, const void *data, uint32_t size,
                                      uint32_t *out_written) {
    if (uint32_t status = check(stream)) return status;
    if (!stream->write) return OMBR_IOSTREAM_ERR_NO_WRITE;
    uint32_t written = 0;
    uint32_t status = stream->write(stream->context, data, size, &written);
    if (status != 0) return status;
    stream->bytes_written += written;
    if (out_written) *out_written = written;
    return 0;
}

OMBR_API uint32_t ombr_iostream_flush(ombr_iostream_t stream) {
    if (uint32_t status = check(stream)) return status;
    if (!stream->flush) return OMBR_IOSTREAM_ERR_NOT_AVAILABLE;
    return stream->flush(stream->context);
}

OMBR_API uint32_t ombr_iostream_reset(ombr_iostream_t stream) {
    if (uint32_t status = check(stream)) return status;
    if (!stream->is_buffer_stream && !stream->reset) return OMBR_IOSTREAM_ERR_NOT_AVAILABLE;
    if (stream->reset) {
        if (uint32_t status = stream->reset(stream->context)) return status;
    }
    stream->read_pos = 0;
    stream->at_end = 0;
    if (!stream->is_buffer_stream) stream->read_end = 0;
    free_putback(stream);
    return 0;
}

OMBR_API uint32_t ombr_iostream_read_entire(ombr_iostream_t stream, void **out_block, uint32_t *out_size) {
    if (uint32_t status = check(stream)) return status;
    if (!out_block || !out_size) return OMBR_IOSTREAM_ERR_INVALID_ARG;
    uint8_t *block = nullptr;
    uint32_t size = 0, capacity = 0;
    uint8_t step[kReadEntireStep];
    for (;;) {
        uint32_t got = 0;
        uint32_t status = ombr_iostream_read(stream, step, sizeof step, &got);
        if (status != 0 && is_end_of_data(status)) break;
        if (status != 0) {
            ombr_memory_free(block);
            return status;
        }
        if (got == 0) break;
        if (size + got > capacity) {
            uint32_t grown = (capacity + got) * 2;
            auto *bigger = static_cast<uint8_t *>(ombr_memory_realloc(block, grown));
            if (!bigger) {
                ombr_memory_free(block);
                return OMBR_IOSTREAM_ERR_NO_MEMORY;
            }
            block = bigger;
            capacity = grown;
        }
        ombr_memory_memcpy(block + size, step, got);
        size += got;
    }
    if (block && capacity > size) {
        if (void *exact = ombr_memory_realloc(block, size)) block = static_cast<uint8_t *>(exact);
    }
    *out_block = block;
    *out_size = size;
    return 0;
}

OMBR_API uint32_t ombr_iostream_throughput(ombr_iostream_t stream, uint32_t *out_read, uint32_t *out_written) {
    if (uint32_t status = check(stream)) return status;
    if (!stream->is_buffer_stream && !stream->reset) return OMBR_IOSTREAM_ERR_NOT_AVAILABLE;
    if (out_read) *out_read = stream->bytes_read;
    if (out_written) *out_written = stream->bytes_written;
    return 0;
}
