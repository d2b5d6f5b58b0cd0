// The string accumulator: a growing text whose record can live at the start
// of a caller's buffer, so that short texts need no heap call. The text moves
// to the heap when it outgrows that buffer; the caller's buffer is never freed.
#include <cstddef>

#include "string/ombr_string_internal.h"

using namespace ombr::str;

namespace {

// Appends n bytes and terminates. Failure leaves the text as it was.
uint32_t append_raw(ombr_string_accum_t accum, const char *bytes, uint32_t n) {
    if (n > 0xFFFFFFFFu - 1 - accum->length) return kNoMemory;
    // The bytes may come from the accumulator's own text, which a resize can
    // move: keep them as an offset in that case.
    const bool own = accum->data && bytes >= accum->data && bytes < accum->data + accum->capacity;
    const ptrdiff_t offset = own ? bytes - accum->data : 0;
    uint32_t status = _ombr_string_accum_resize(accum, accum->length + n + 1);
    if (status != 0) return status;
    if (own) bytes = accum->data + offset;
    if (n) ombr_memory_memmove(accum->data + accum->length, bytes, n);
    accum->length += n;
    accum->data[accum->length] = 0;
    return 0;
}

// Size as the accumulator reports it: length + 1, or 0 while empty.
inline uint32_t reported_size(ombr_string_accum_t accum) { return accum->length ? accum->length + 1 : 0; }

}  // namespace

extern "C" uint32_t _ombr_string_accum_resize(ombr_string_accum_t accum, uint32_t need) {
    if (accum->capacity >= need) return 0;
    if (need > 0xFFFFFFFFu / 2) return kNoMemory;
    const uint32_t capacity = need * 2;
    char *data;
    if (accum->data_on_heap) {
        data = static_cast<char *>(ombr_memory_realloc(accum->data, capacity));
        if (!data) return kNoMemory;
    } else {
        data = static_cast<char *>(ombr_memory_alloc(capacity));
        if (!data) return kNoMemory;
        if (accum->length) ombr_memory_memcpy(data, accum->data, accum->length);
        accum->data_on_heap = 1;
    }
    accum->data = data;
    accum->capacity = capacity;
    return 0;
}

OMBR_API uint32_t ombr_string_accum_create(ombr_string_accum_t *out_handle, void *buffer, uint32_t size) {
    if (!out_handle) return kInvalidArg;
    constexpr size_t kRecord = sizeof(ombr_string_accum);
    if (buffer) {
        // The record needs pointer alignment; an unaligned buffer loses its
        // first bytes to that.
        const size_t pad = (alignof(ombr_string_accum) - reinterpret_cast<uintptr_t>(buffer) % alignof(ombr_string_accum)) %
                           alignof(ombr_string_accum);
        if (size > pad + kRecord) {
            auto *start = static_cast<char *>(buffer) + pad;
            ombr_memory_memset(start, 0, size - pad);
            auto *accum = reinterpret_cast<ombr_string_accum_t>(start);
            accum->data = start + kRecord;
            accum->capacity = static_cast<uint32_t>(size - pad - kRecord);
            *out_handle = accum;
            return 0;
        }
    }
    auto *accum = static_cast<ombr_string_accum_t>(ombr_memory_alloc(kRecord));
    if (!accum) return kNoMemory;
    ombr_memory_memset(accum, 0, kRecord);
    accum->record_on_heap = 1;
    accum->data_on_heap = 1;
    if (size != 0) {
        if (size == 0xFFFFFFFFu || !(accum->data = static_cast<char *>(ombr_memory_alloc(size_t{size} + 1)))) {
            ombr_memory_free(accum);
            return kNoMemory;
        }
        accum->data[0] = 0;
        accum->capacity = size + 1;
    }
    *out_handle = accum;
    return 0;
}

OMBR_API uint32_t ombr_string_accum_append(ombr_string_accum_t handle, const char *text, const char **out_data) {
    if (!handle) return kInvalidArg;
    if (text) {
        uint32_t status = append_raw(handle, text, ombr_string_bytelen_nonull(text));
        if (status != 0) return status;
    }
    if (out_data) *out_data = handle->data;
    return 0;
}

OMBR_API uint32_t ombr_string_accum_append_chars(ombr_string_accum_t handle, const char *text, uint32_t chars,
                                                 const char **out_data) {
    if (!handle) return kInvalidArg;
    if (chars == 0) return 0;
    if (text) {
        uint32_t status = append_raw(handle, text, ombr_string_byteclen(text, chars));
        if (status != 0) return status;
    }
    if (out_data) *out_data = handle->data;
    return 0;
}

OMBR_API uint32_t ombr_string_accum_append_bytes(ombr_string_accum_t handle, const void *bytes, uint32_t size,
                                                 const char **out_data) {
    if (!handle) return kInvalidArg;
    if (size == 0) return 0;
    if (bytes) {
        uint32_t status = append_raw(handle, static_cast<const char *>(bytes), size);
        if (status != 0) return status;
    }
    if (out_data) *out_data = handle->data;
    return 0;
}

OMBR_API uint32_t ombr_string_accum_bytelen(ombr_string_accum_t handle, uint32_t *out_size) {
    if (!handle || !out_size) return kInvalidArg;
    *out_size = reported_size(handle);
    return 0;
}

OMBR_API uint32_t ombr_string_accum_get_string(ombr_string_accum_t handle, const char **out_data,
                                               uint32_t *out_size) {
    if (!handle) return kInvalidArg;
    if (out_data) *out_data = handle->data;
    if (out_size) *out_size = reported_size(handle);
    return 0;
}

OMBR_API uint32_t ombr_string_accum_detach(ombr_string_accum_t handle, char **out_text, uint32_t *out_size) {
    if (!handle || !out_text) return kInvalidArg;
    const uint32_t block_size = handle->length + 1;
    char *text;
    if (handle->data_on_heap && handle->data) {
        // Shrink to fit; a failed shrink hands over the larger block.
        text = static_cast<char *>(ombr_memory_realloc(handle->data, block_size));
        if (!text) text = handle->data;
    } else {
        text = static_cast<char *>(ombr_memory_alloc(block_size));
        if (!text) return kNoMemory;
        if (handle->length) ombr_memory_memcpy(text, handle->data, handle->length);
        // A heap record that never held data keeps the heap flag: the next
        // append allocates through realloc of null.
    }
    text[handle->length] = 0;
    if (out_size) *out_size = reported_size(handle);
    *out_text = text;
    handle->data = nullptr;
    handle->length = 0;
    handle->capacity = 0;
    return 0;
}

OMBR_API uint32_t ombr_string_accum_clear(ombr_string_accum_t handle) {
    if (!handle) return kInvalidArg;
    handle->length = 0;
    if (handle->data) handle->data[0] = 0;
    return 0;
}

OMBR_API uint32_t ombr_string_accum_delete(ombr_string_accum_t handle) {
    if (!handle) return 0;
    if (handle->data_on_heap) ombr_memory_free(handle->data);
    if (handle->record_on_heap) ombr_memory_free(handle);
    return 0;
}
