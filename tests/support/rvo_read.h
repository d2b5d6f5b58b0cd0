// Reading result objects in tests through the host's result-object
// service: a value as text, a child, a count of children.
#ifndef CANTRIX_RVO_READ_H
#define CANTRIX_RVO_READ_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "zelto/zelto_host_services.h"

// What value_of gives for a read that failed with `status`.
inline std::string failed_read(uint32_t status) { return "<" + std::to_string(status) + ">"; }

// The value under `key` at `ordinal`, "<null>" for a null text, or
// failed_read(status).
inline std::string value_of(zelto_rvo_handle object, const char *key, uint32_t ordinal = 1) {
    const char *text = nullptr;
    const uint32_t status = zelto_manager_rvo_value_get(object, key, ordinal, &text);
    if (status != 0) return failed_read(status);
    return text ? text : "<null>";
}

inline bool has_value(zelto_rvo_handle object, const char *key) {
    const char *text = nullptr;
    return zelto_manager_rvo_value_get(object, key, 1, &text) == 0 && text;
}

// The child under `key` at `ordinal` (a reference the caller releases).
inline zelto_rvo_handle child_of(zelto_rvo_handle object, const char *key, uint32_t ordinal, uint8_t flag = 1) {
    zelto_rvo_handle child = nullptr;
    EXPECT_EQ(zelto_manager_rvo_child_get(object, key, ordinal, flag, &child), 0u) << key << " " << ordinal;
    return child;
}

inline uint32_t count_of(zelto_rvo_handle object, const char *key) {
    uint32_t count = 0;
    EXPECT_EQ(zelto_manager_rvo_child_count(object, key, &count), 0u) << key;
    return count;
}

#endif
