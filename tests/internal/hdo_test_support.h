// Fixture and helpers shared by the HDO tests: the package brought up
// around each test with a leak check, a text dump of a tree through the
// public API, and access to the records behind the handles.
#ifndef HDO_TEST_SUPPORT_H
#define HDO_TEST_SUPPORT_H

#include <string>

#include "cantrix_test.h"
#include "hdo/ombr_hdo_internal.h"

class HdoTest : public LeakCheckedTest {
   protected:
    void SetUp() override {
        ASSERT_EQ(ombr_hdo_initialize(), 0u);
        LeakCheckedTest::SetUp();
    }
    void TearDown() override {
        g_ombr_log_error_callback = nullptr;
        g_ombr_log_callback = nullptr;
        g_ombr_log_enabled_pkgs[OMBR_PKG_HDO] = 0;
        g_ombr_log_enabled_pkgs[OMBR_PKG_DATATYPES] = 0;
        LeakCheckedTest::TearDown();
        ombr_hdo_shutdown();
    }

    static ombr_hdo_t make_node() {
        ombr_hdo_t node = nullptr;
        EXPECT_EQ(ombr_hdo_create(&node), 0u);
        return node;
    }
    // A new child attached under key; the caller's reference is dropped, so
    // the tree owns it.
    static ombr_hdo_t add_child(ombr_hdo_t parent, const char *key, uint32_t flags = 0) {
        ombr_hdo_t child = make_node();
        EXPECT_EQ(ombr_hdo_child_set(parent, key, child, flags), 0u);
        EXPECT_EQ(ombr_hdo_release(child), 0u);
        return child;
    }
    static void add_string(ombr_hdo_t node, const char *name, const char *text, uint32_t flags = 0) {
        EXPECT_EQ(ombr_hdo_new_value_string(node, name, text, flags, nullptr), 0u);
    }
    // Counts that must be readable (99 marks an unread count).
    static uint32_t child_count(ombr_hdo_t node, const char *key) {
        uint32_t count = 99;
        EXPECT_EQ(ombr_hdo_child_count(node, key, &count), 0u) << key;
        return count;
    }
    static uint32_t value_count(ombr_hdo_t node, const char *name) {
        uint32_t count = 99;
        EXPECT_EQ(ombr_hdo_value_count(node, name, &count), 0u) << name;
        return count;
    }
    static uint32_t attribute_count(ombr_hdo_t node) {
        uint32_t count = 99;
        EXPECT_EQ(ombr_hdo_attribute_count(node, &count), 0u);
        return count;
    }
    static uint32_t tree_counter(ombr_hdo_t node) { return node->tree_ref ? *node->tree_ref : 0; }
    static int64_t live_blocks() { return zelto_manager_memory_live_blocks(); }
};

// A value's text for the dump: its type and data.
inline std::string describe_value(ombr_hdo_value_t handle) {
    uint32_t type = 0;
    ombr_hdo_value_gettype(handle, &type);
    const char *name = nullptr;
    ombr_hdo_value_getname(handle, &name);
    std::string text = std::string(name) + ":";
    switch (type) {
        case OMBR_HDO_VALUE_STRING: {
            const char *s = nullptr;
            ombr_hdo_value_getdata_string(handle, &s);
            text += s ? "'" + std::string(s) + "'" : "null";
            break;
        }
        case OMBR_HDO_VALUE_INT: {
            uint32_t n = 0;
            ombr_hdo_value_getdata_uint(handle, &n);
            text += "#" + std::to_string(n);
            break;
        }
        case OMBR_HDO_VALUE_BINARY: {
            const void *bytes = nullptr;
            uint32_t size = 0;
            ombr_hdo_value_getdata_binary(handle, &bytes, &size);
            text += "bin" + std::to_string(size);
            break;
        }
        default:
            text += "t" + std::to_string(type);
    }
    uint32_t attributes = 0;
    ombr_hdo_value_attribute_count(handle, &attributes);
    for (uint32_t i = 0; i < attributes; ++i) {
        const char *n = nullptr, *v = nullptr;
        ombr_hdo_value_attribute_enum(handle, i, &n, &v);
        text += " @" + std::string(n) + "=" + (v ? v : "");
    }
    return text;
}

// The visible content of a tree as text: attributes, values and children in
// enumeration order.
inline std::string dump_tree(ombr_hdo_t node) {
    std::string text = "{";
    uint32_t count = 0;
    ombr_hdo_attribute_count(node, &count);
    for (uint32_t i = 0; i < count; ++i) {
        const char *name = nullptr, *value = nullptr;
        ombr_hdo_attribute_enum(node, i, &name, &value);
        text += "@" + std::string(name) + "=" + (value ? value : "") + ";";
    }
    ombr_hdo_value_count(node, nullptr, &count);
    for (uint32_t i = 0; i < count; ++i) {
        ombr_hdo_value_t handle = nullptr;
        if (ombr_hdo_value_enum(node, i, nullptr, &handle) != 0) break;
        text += describe_value(handle) + ";";
        ombr_hdo_value_release(handle);
    }
    ombr_hdo_child_count(node, nullptr, &count);
    for (uint32_t i = 0; i < count; ++i) {
        const char *key = nullptr;
        ombr_hdo_t child = nullptr;
        if (ombr_hdo_child_enum(node, i, &key, &child) != 0) break;
        text += std::string(key) + "=" + dump_tree(child) + ";";
        ombr_hdo_release(child);
    }
    return text + "}";
}

#endif
