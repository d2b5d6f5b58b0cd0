// HDO values and copies: types, order under a name, flags, handles, the
// copy-on-write split, value attributes, copies of trees, and every
// allocation failing in turn for values and copies.
#include <cstring>
#include <vector>

#include "hdo_test_support.h"
#include "log_capture.h"
#include "out_param.h"

namespace {

using HdoValue = HdoTest;

ombr_hdo_value_t value_handle(ombr_hdo_t node, const char *name, uint32_t ordinal = 0) {
    ombr_hdo_value_t handle = nullptr;
    EXPECT_EQ(ombr_hdo_value_get(node, name, ordinal, &handle), 0u);
    return handle;
}

std::string string_of(ombr_hdo_value_t handle) {
    const char *text = nullptr;
    EXPECT_EQ(ombr_hdo_value_getdata_string(handle, &text), 0u);
    return text ? text : "(null)";
}

// The text of a node's value, read through a handle that is given back.
std::string text_of(ombr_hdo_t node, const char *name, uint32_t ordinal = 0) {
    ombr_hdo_value_t handle = value_handle(node, name, ordinal);
    const std::string text = string_of(handle);
    ombr_hdo_value_release(handle);
    return text;
}

TEST_F(HdoValue, TypesAndTheirData) {
    ombr_hdo_t node = make_node();
    ombr_hdo_value_t none, str, null_str, neg, bin, empty_bin, ptr;
    static const uint8_t bytes[] = {0, 1, 2, 0xFF};
    int payload = 5;
    ASSERT_EQ(ombr_hdo_new_value(node, "none", 0, &none), 0u);
    ASSERT_EQ(ombr_hdo_new_value_string(node, "str", "text", 0, &str), 0u);
    ASSERT_EQ(ombr_hdo_new_value_string(node, "nul", nullptr, 0, &null_str), 0u);
    ASSERT_EQ(ombr_hdo_new_value_int(node, "neg", -2, 0, &neg), 0u);
    ASSERT_EQ(ombr_hdo_new_value_binary(node, "bin", bytes, sizeof bytes, 0, &bin), 0u);
    ASSERT_EQ(ombr_hdo_new_value_binary(node, "ebin", nullptr, 9, 0, &empty_bin), 0u);
    ASSERT_EQ(ombr_hdo_new_value_pointer(node, "ptr", &payload, 77, 0, nullptr, &ptr), 0u);

    uint32_t type = 99;
    ombr_hdo_value_gettype(none, &type);
    EXPECT_EQ(type, OMBR_HDO_VALUE_NONE);
    EXPECT_EQ(string_of(str), "text");
    EXPECT_EQ(str->value->size, 5u);  // with the terminator
    // A null text: a string value with no data.
    ombr_hdo_value_gettype(null_str, &type);
    EXPECT_EQ(type, OMBR_HDO_VALUE_STRING);
    EXPECT_EQ(null_str->value->size, 0u);
    EXPECT_EQ(string_of(null_str), "(null)");
    int32_t i = 0;
    EXPECT_EQ(out(ombr_hdo_value_getdata_int, neg), -2);
    EXPECT_EQ(out(ombr_hdo_value_getdata_uint, neg), 0xFFFFFFFEu);
    const void *data = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(ombr_hdo_value_getdata_binary(bin, &data, &size), 0u);
    ASSERT_EQ(size, sizeof bytes);
    EXPECT_EQ(std::memcmp(data, bytes, size), 0);
    EXPECT_NE(data, static_cast<const void *>(bytes));
    EXPECT_EQ(out(ombr_hdo_value_getdata_binary, empty_bin, &data), 9u);  // stored although nothing was copied
    EXPECT_EQ(data, nullptr);
    void *pointer = nullptr;
    ASSERT_EQ(ombr_hdo_value_getdata_pointer(ptr, &pointer, &size), 0u);
    EXPECT_EQ(pointer, &payload);
    EXPECT_EQ(size, 77u);
    EXPECT_EQ(out(ombr_hdo_value_getname, ptr), "ptr");

    // Reading another type fails; writing another type changes it.
    const char *text = nullptr;
    EXPECT_EQ(ombr_hdo_value_getdata_string(neg, &text), OMBR_HDO_WRONG_TYPE);
    EXPECT_EQ(ombr_hdo_value_getdata_int(str, &i), OMBR_HDO_WRONG_TYPE);
    ASSERT_EQ(ombr_hdo_value_setdata_string(neg, "now text"), 0u);
    EXPECT_EQ(string_of(neg), "now text");
    ASSERT_EQ(ombr_hdo_value_setdata_binary(str, nullptr, 3), 0u);
    EXPECT_EQ(out(ombr_hdo_value_getdata_binary, str, &data), 0u);  // a write without bytes stores no size
    for (ombr_hdo_value_t h : {none, str, null_str, neg, bin, empty_bin, ptr}) ombr_hdo_value_release(h);
    ombr_hdo_release(node);
}

TEST_F(HdoValue, OrderUnderANameReplaceAndSingle) {
    ombr_hdo_t node = make_node();
    add_string(node, "v", "1");
    add_string(node, "V", "2");
    add_string(node, "w", "w");
    EXPECT_EQ(value_count(node, "v"), 2u);
    EXPECT_EQ(text_of(node, "v", 1), "2");
    // A replacing add: the count stays, the new value is the name's last.
    add_string(node, "v", "3", OMBR_HDO_REPLACE);
    EXPECT_EQ(value_count(node, "v"), 2u);
    EXPECT_EQ(text_of(node, "v", 0), "2");
    EXPECT_EQ(text_of(node, "v", 1), "3");
    // ... and the last of the whole table.
    const char *name = nullptr;
    ombr_hdo_value_t h = nullptr;
    ASSERT_EQ(ombr_hdo_value_enum(node, 2, &name, &h), 0u);
    EXPECT_STREQ(name, "v");
    EXPECT_EQ(string_of(h), "3");
    ombr_hdo_value_release(h);
    // A single node refuses a replacing add of a name it has.
    ASSERT_EQ(ombr_hdo_set_flags(node, OMBR_HDO_SINGLE, OMBR_HDO_SINGLE), 0u);
    EXPECT_EQ(ombr_hdo_new_value_string(node, "w", "x", OMBR_HDO_SINGLE, nullptr), OMBR_HDO_REFUSED);
    EXPECT_EQ(ombr_hdo_new_value_string(node, "z", "x", OMBR_HDO_REPLACE, nullptr), 0u);
    EXPECT_EQ(ombr_hdo_new_value_string(node, "w", "plain", 0, nullptr), 0u);
    ombr_hdo_release(node);
}

TEST_F(HdoValue, HiddenValuesEnumerationCountAndRemoval) {
    ombr_hdo_t node = make_node();
    add_string(node, "a", "1");
    add_string(node, "h", "hidden", OMBR_HDO_HIDDEN);
    add_string(node, "b", "2");
    EXPECT_EQ(value_count(node, nullptr), 2u);
    EXPECT_EQ(value_count(node, "h"), 1u);
    // The enumeration counts visible values, unlike the children's.
    const char *name = nullptr;
    ASSERT_EQ(ombr_hdo_value_enum(node, 1, &name, nullptr), 0u);
    EXPECT_STREQ(name, "b");
    EXPECT_EQ(ombr_hdo_value_enum(node, 2, &name, nullptr), OMBR_HDO_NOT_FOUND);
    // The whole-table position with no name sees hidden values.
    EXPECT_EQ(text_of(node, "", 1), "hidden");
    // Removing the hidden value leaves the total one too low.
    ASSERT_EQ(ombr_hdo_value_remove(node, "h", 0, nullptr), 0u);
    EXPECT_EQ(value_count(node, nullptr), 1u);
    ombr_hdo_release(node);
}

TEST_F(HdoValue, RemoveHandsTheValueToTheHandle) {
    ombr_hdo_t node = make_node();
    EXPECT_EQ(ombr_hdo_value_remove(node, "x", 0, nullptr), OMBR_HDO_NOT_IN_PARENT);  // no table yet
    add_string(node, "x", "kept");
    const int64_t with_value = live_blocks();
    ombr_hdo_value_t h = nullptr;
    ASSERT_EQ(ombr_hdo_value_remove(node, "X", 0, &h), 0u);
    EXPECT_EQ(value_count(node, "x"), 0u);
    EXPECT_EQ(h->value->ref_count, 1);
    EXPECT_EQ(string_of(h), "kept");
    EXPECT_EQ(ombr_hdo_value_remove(node, "x", 0, nullptr), OMBR_DATATYPES_NOT_FOUND);
    ombr_hdo_value_release(h);
    EXPECT_LT(live_blocks(), with_value);  // the value went with the handle
    ombr_hdo_release(node);
}

TEST_F(HdoValue, HandleKeepsTheTreeAlive) {
    ombr_hdo_t root = make_node();
    ombr_hdo_t child = add_child(root, "c");
    add_string(child, "v", "deep");
    ombr_hdo_value_t h = value_handle(child, "v");
    ombr_hdo_release(root);
    EXPECT_EQ(string_of(h), "deep");
    EXPECT_EQ(tree_counter(child), 1u);
    ombr_hdo_value_release(h);  // the last reference: everything goes
}

TEST_F(HdoValue, WriteInPlaceWhenNotShared) {
    ombr_hdo_t node = make_node();
    add_string(node, "v", "old");
    ombr_hdo_value_t h = value_handle(node, "v");
    EXPECT_EQ(h->value->ref_count, 2);  // one table, one handle
    hdo_value *before = h->value;
    ASSERT_EQ(ombr_hdo_value_setdata_uint(h, 42), 0u);
    EXPECT_EQ(h->value, before);
    ombr_hdo_value_t again = value_handle(node, "v");
    EXPECT_EQ(out(ombr_hdo_value_getdata_uint, again), 42u);
    for (auto item : {again, h}) ombr_hdo_value_release(item);
    ombr_hdo_release(node);
}

TEST_F(HdoValue, WriteThroughACopiedValueSplitsIt) {
    LogCapture log({OMBR_PKG_HDO}, OMBR_LOG_ERROR | OMBR_LOG_DETAIL);
    ombr_hdo_t source = make_node();
    add_string(source, "v", "old");
    add_string(source, "v", "second");
    ombr_hdo_value_t h = value_handle(source, "v");
    ombr_hdo_t copy = nullptr;
    ASSERT_EQ(ombr_hdo_copy(source, &copy, 0), 0u);
    EXPECT_EQ(h->value->ref_count, 3);
    ASSERT_EQ(ombr_hdo_value_setdata_string(h, "new"), 0u);
    ASSERT_EQ(log.messages.size(), 1u);
    EXPECT_EQ(log.messages[0].text, "HDO value refcount=3. Creating new ref value.");
    EXPECT_EQ(log.messages[0].package, OMBR_PKG_HDO);
    EXPECT_EQ(log.messages[0].level, OMBR_LOG_DETAIL);
    // The copy keeps the old data; the source's entry is now last of its name.
    EXPECT_EQ(text_of(copy, "v"), "old");
    ombr_hdo_value_t first = value_handle(source, "v", 0), last = value_handle(source, "v", 1);
    EXPECT_EQ(string_of(first), "second");
    EXPECT_EQ(string_of(last), "new");
    EXPECT_EQ(last->value, h->value);
    EXPECT_EQ(h->value->ref_count, 3);  // table, h and last
    for (auto item : {first, last}) ombr_hdo_value_release(item);
    // A second write goes in place: the new value is not shared.
    ASSERT_EQ(ombr_hdo_value_setdata_string(h, "newer"), 0u);
    EXPECT_EQ(log.messages.size(), 1u);
    ombr_hdo_value_release(h);
    for (auto item : {copy, source}) ombr_hdo_release(item);
}

TEST_F(HdoValue, TwoHandlesInOneNodeTheFirstWriteSplits) {
    ombr_hdo_t node = make_node();
    add_string(node, "v", "old");
    ombr_hdo_value_t a = value_handle(node, "v"), b = value_handle(node, "v");
    ASSERT_EQ(ombr_hdo_value_setdata_string(a, "new"), 0u);
    EXPECT_NE(a->value, b->value);
    EXPECT_EQ(string_of(b), "old");  // no longer in the node
    ombr_hdo_value_t now = value_handle(node, "v");
    EXPECT_EQ(now->value, a->value);
    EXPECT_EQ(string_of(now), "new");
    for (auto item : {now, a, b}) ombr_hdo_value_release(item);
    ombr_hdo_release(node);
}

TEST_F(HdoValue, SplitNeedsTheValueUnderItsOwnName) {
    ombr_hdo_t node = make_node(), other = make_node();
    add_string(node, "v", "x");
    ombr_hdo_value_t h = value_handle(node, "v");
    ASSERT_EQ(ombr_hdo_value_set(other, "alias", h), 0u);  // a key other than its name
    ombr_hdo_value_t alias = value_handle(other, "alias");
    EXPECT_EQ(alias->value, h->value);
    EXPECT_EQ(ombr_hdo_value_setdata_string(alias, "y"), OMBR_HDO_SHARED_NOT_FOUND);
    EXPECT_EQ(string_of(alias), "x");
    for (auto item : {alias, h}) ombr_hdo_value_release(item);
    for (auto item : {other, node}) ombr_hdo_release(item);
}

// Adding an existing value follows the flags it was first added with: a
// replacing value takes the key's first place, and on a single node is
// refused where the key is present and, oddly, left out where it is not.
TEST_F(HdoValue, AddingAnExistingValueFollowsItsOwnFlags) {
    ombr_hdo_t source = make_node();
    ombr_hdo_value_t replacing = nullptr, hidden = nullptr;
    ASSERT_EQ(ombr_hdo_new_value_string(source, "r", "R", OMBR_HDO_REPLACE, &replacing), 0u);
    ASSERT_EQ(ombr_hdo_new_value_string(source, "h", "H", OMBR_HDO_HIDDEN, &hidden), 0u);
    ombr_hdo_t plain = make_node(), single = make_node();
    add_string(plain, "k", "old");
    add_string(plain, "k", "old2");
    add_string(single, "k", "old");
    ASSERT_EQ(ombr_hdo_set_flags(single, OMBR_HDO_SINGLE, OMBR_HDO_SINGLE), 0u);
    struct {
        ombr_hdo_t node;
        const char *key;
        ombr_hdo_value_t handle;
        uint32_t status;
        const char *tree;
    } cases[] = {
        {plain, "k", replacing, 0u, "{k:'old2';r:'R';}"},  // the value keeps its own name
        {single, "k", replacing, OMBR_HDO_REFUSED, "{k:'old';}"},
        {single, "z", replacing, OMBR_DATATYPES_NOT_FOUND, "{k:'old';}"},
        {single, "q", hidden, 0u, "{k:'old';}"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(ombr_hdo_value_set(c.node, c.key, c.handle), c.status) << c.key;
        EXPECT_EQ(dump_tree(c.node), c.tree) << c.key;
    }
    EXPECT_EQ(replacing->value->ref_count, 3);  // source, plain, handle
    EXPECT_EQ(single->hidden_values, 1u);
    for (auto item : {replacing, hidden}) ombr_hdo_value_release(item);
    for (ombr_hdo_t node : {source, plain, single}) ombr_hdo_release(node);
}

void count_release(void *data, uint32_t size) {
    auto *calls = static_cast<std::vector<uint32_t> *>(data);
    calls->push_back(size);
}

TEST_F(HdoValue, PointerReleaseRunsOnceWhenOverwrittenOrLastGone) {
    std::vector<uint32_t> calls;
    ombr_hdo_t node = make_node();
    ombr_hdo_value_t h = nullptr;
    ASSERT_EQ(ombr_hdo_new_value_pointer(node, "p", &calls, 11, 0, count_release, &h), 0u);
    ASSERT_EQ(ombr_hdo_value_setdata_pointer(h, &calls, 12, count_release), 0u);
    EXPECT_EQ(calls, std::vector<uint32_t>{11});
    ombr_hdo_value_release(h);
    EXPECT_EQ(calls.size(), 1u);
    ombr_hdo_release(node);
    EXPECT_EQ(calls, (std::vector<uint32_t>{11, 12}));
}

TEST_F(HdoValue, ReadOnlyNodeRefusesValuesAndWritesButNotAttributes) {
    ombr_hdo_t node = make_node(), other = make_node();
    add_string(node, "v", "x");
    add_string(other, "o", "y");
    ombr_hdo_value_t h = value_handle(node, "v"), o = value_handle(other, "o");
    ASSERT_EQ(ombr_hdo_set_flags(node, OMBR_HDO_READONLY, OMBR_HDO_READONLY), 0u);
    int payload = 0;
    static const char bytes[] = "b";
    EXPECT_EQ(ombr_hdo_new_value_string(node, "w", "x", 0, nullptr), OMBR_HDO_REFUSED);
    EXPECT_EQ(ombr_hdo_new_value_int(node, "w", 1, 0, nullptr), OMBR_HDO_REFUSED);
    EXPECT_EQ(ombr_hdo_value_setdata_string(h, "y"), OMBR_HDO_REFUSED);
    EXPECT_EQ(ombr_hdo_value_setdata_int(h, 1), OMBR_HDO_REFUSED);
    EXPECT_EQ(ombr_hdo_value_setdata_uint(h, 1), OMBR_HDO_REFUSED);
    EXPECT_EQ(ombr_hdo_value_setdata_binary(h, bytes, 1), OMBR_HDO_REFUSED);
    EXPECT_EQ(ombr_hdo_value_setdata_pointer(h, &payload, 1, nullptr), OMBR_HDO_REFUSED);
    EXPECT_EQ(ombr_hdo_value_set(node, "o", o), OMBR_HDO_REFUSED);
    EXPECT_EQ(string_of(o), "y");  // the handle is intact
    EXPECT_EQ(ombr_hdo_value_attribute_set(h, "a", "1"), 0u);
    EXPECT_EQ(ombr_hdo_attribute_set(node, "a", "1"), 0u);
    EXPECT_EQ(string_of(h), "x");
    for (auto item : {h, o}) ombr_hdo_value_release(item);
    for (auto item : {node, other}) ombr_hdo_release(item);
}

TEST_F(HdoValue, ValueAttributesAndSharedValues) {
    ombr_hdo_t node = make_node();
    add_string(node, "v", "x");
    ombr_hdo_value_t h = value_handle(node, "v");
    const char *text = nullptr, *name = nullptr;
    EXPECT_EQ(out(ombr_hdo_value_attribute_count, h), 0u);
    EXPECT_EQ(ombr_hdo_value_attribute_get(h, "a", &text), OMBR_HDO_NOT_FOUND);
    EXPECT_EQ(ombr_hdo_value_attribute_enum(h, 0, &name, &text), OMBR_HDO_NOT_FOUND);
    ASSERT_EQ(ombr_hdo_value_attribute_set(h, "a", "1"), 0u);
    ASSERT_EQ(ombr_hdo_value_attribute_set(h, "A", "2"), 0u);  // not shared: plain
    EXPECT_EQ(out(ombr_hdo_value_attribute_get, h, "a"), "2");
    // Shared: existing names are frozen, new names reach all holders.
    ombr_hdo_t copy = nullptr;
    ASSERT_EQ(ombr_hdo_copy(node, &copy, 0), 0u);
    EXPECT_EQ(ombr_hdo_value_attribute_set(h, "a", "3"), OMBR_HDO_REFUSED);
    EXPECT_EQ(ombr_hdo_value_attribute_delete(h, "a"), OMBR_HDO_REFUSED);
    ASSERT_EQ(ombr_hdo_value_attribute_set(h, "b", "new"), 0u);
    ombr_hdo_value_t in_copy = value_handle(copy, "v");
    EXPECT_EQ(out(ombr_hdo_value_attribute_get, in_copy, "b"), "new");
    ombr_hdo_value_release(in_copy);
    // A split copies the attributes to the new value.
    ASSERT_EQ(ombr_hdo_value_setdata_string(h, "y"), 0u);
    EXPECT_EQ(out(ombr_hdo_value_attribute_count, h), 2u);
    ASSERT_EQ(ombr_hdo_value_attribute_delete(h, "a"), 0u);
    ASSERT_EQ(ombr_hdo_value_attribute_enum(h, 0, &name, &text), 0u);
    EXPECT_STREQ(name, "b");
    ombr_hdo_value_release(h);
    for (auto item : {copy, node}) ombr_hdo_release(item);
}

TEST_F(HdoValue, HandleStatuses) {
    ombr_hdo_t node = make_node();
    add_string(node, "v", "x");
    struct {
        uint32_t magic = 0x0BADF00Du;
        void *pad[4] = {};
    } fake;
    auto *bad = reinterpret_cast<ombr_hdo_value_t>(&fake);
    const char *text = nullptr;
    uint32_t n = 0;
    ombr_hdo_value_t h = nullptr;
    EXPECT_EQ(ombr_hdo_value_getdata_string(bad, &text), OMBR_HDO_BAD_MAGIC);
    // A missing output is reported before a wrong handle.
    EXPECT_EQ(ombr_hdo_value_getdata_string(bad, nullptr), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_value_getname(bad, nullptr), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_value_attribute_set(bad, nullptr, "x"), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_value_release(bad), OMBR_HDO_BAD_MAGIC);
    EXPECT_EQ(ombr_hdo_value_release(nullptr), 0u);
    EXPECT_EQ(ombr_hdo_value_setdata_string(nullptr, "x"), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_value_gettype(nullptr, &n), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_new_value_string(node, nullptr, "x", 0, nullptr), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_new_value_string(node, "", "x", 0, nullptr), OMBR_DATATYPES_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_value_get(node, "v", 0, nullptr), 0u);  // lookup only
    EXPECT_EQ(ombr_hdo_value_get(node, "v", 1, &h), OMBR_DATATYPES_NOT_FOUND);
    EXPECT_EQ(ombr_hdo_value_get(node, nullptr, 5, &h), OMBR_HDO_NOT_FOUND);
    EXPECT_EQ(ombr_hdo_value_count(node, "v", nullptr), OMBR_HDO_INVALID_ARG);
    ombr_hdo_release(node);
}

// ---- Copies ---------------------------------------------------------------------------------

using HdoCopy = HdoTest;

TEST_F(HdoCopy, ShallowCopyHasValuesOnly) {
    ombr_hdo_t source = make_node();
    ASSERT_EQ(ombr_hdo_attribute_set(source, "a", "1"), 0u);
    add_string(source, "v", "x");
    add_child(source, "c");
    ombr_hdo_t copy = nullptr;
    ASSERT_EQ(ombr_hdo_copy(source, &copy, 0), 0u);
    EXPECT_EQ(dump_tree(copy), "{v:'x';}");
    EXPECT_EQ(ombr_hdo_copy(nullptr, &copy, 1), 0u);  // a null node: nothing
    for (auto item : {copy, source}) ombr_hdo_release(item);
}

TEST_F(HdoCopy, DeepCopySharesValuesAndLeavesFlagsAndHiddenOnesBehind) {
    ombr_hdo_t source = make_node();
    ASSERT_EQ(ombr_hdo_attribute_set(source, "a", "1"), 0u);
    add_string(source, "v", "x");
    add_string(source, "hidden", "x", OMBR_HDO_HIDDEN);
    ombr_hdo_t c = add_child(source, "c");
    add_string(c, "w", "y");
    ASSERT_EQ(ombr_hdo_set_flags(source, OMBR_HDO_READONLY, OMBR_HDO_READONLY), 0u);
    ombr_hdo_value_t v = value_handle(source, "v");
    EXPECT_EQ(v->value->ref_count, 2);
    ombr_hdo_t copy = nullptr;
    ASSERT_EQ(ombr_hdo_copy(source, &copy, 1), 0u);
    EXPECT_EQ(v->value->ref_count, 3);
    EXPECT_EQ(dump_tree(copy), "{@a=1;v:'x';c={w:'y';};}");
    EXPECT_EQ(copy->flags, 0u);
    ombr_hdo_value_t in_copy = value_handle(copy, "v");
    EXPECT_EQ(in_copy->value, v->value);
    // The copy is writable, and its write leaves the source alone.
    ASSERT_EQ(ombr_hdo_value_setdata_string(in_copy, "changed"), 0u);
    EXPECT_EQ(string_of(v), "x");
    for (auto item : {in_copy, v}) ombr_hdo_value_release(item);
    for (auto item : {source, copy}) ombr_hdo_release(item);
}

TEST_F(HdoCopy, HiddenChildInTheMiddleMakesOneComeTwice) {
    ombr_hdo_t source = make_node();
    add_string(add_child(source, "a"), "n", "1");
    add_child(source, "h", OMBR_HDO_HIDDEN);
    add_string(add_child(source, "b"), "n", "2");
    add_string(add_child(source, "c"), "n", "3");
    ombr_hdo_t copy = nullptr;
    ASSERT_EQ(ombr_hdo_copy(source, &copy, 1), 0u);
    // Visible count 3 over raw positions 0, 1 and 2: a, b (for the hidden
    // one), b again; c goes missing.
    EXPECT_EQ(dump_tree(copy), "{a={n:'1';};b={n:'2';};b={n:'2';};}");
    for (auto item : {copy, source}) ombr_hdo_release(item);
}

// A source with a bit of everything.
ombr_hdo_t rich_source() {
    ombr_hdo_t root = nullptr;
    ombr_hdo_create(&root);
    ombr_hdo_attribute_set(root, "kind", "sample");
    ombr_hdo_value_t h = nullptr;
    ombr_hdo_new_value_string(root, "title", "T", 0, &h);
    ombr_hdo_value_attribute_set(h, "lang", "en");
    ombr_hdo_value_release(h);
    ombr_hdo_new_value_uint(root, "n", 3, 0, nullptr);
    for (const char *key : {"track", "track", "disc"}) {
        ombr_hdo_t child = nullptr;
        ombr_hdo_create(&child);
        ombr_hdo_attribute_set(child, "id", key);
        ombr_hdo_new_value_string(child, "name", key, 0, nullptr);
        ombr_hdo_child_set(root, key, child, 0);
        ombr_hdo_t grand = nullptr;
        ombr_hdo_create(&grand);
        ombr_hdo_new_value_binary(grand, "b", "xy", 2, 0, nullptr);
        ombr_hdo_child_set(child, "g", grand, 0);
        for (auto item : {grand, child}) ombr_hdo_release(item);
    }
    return root;
}

TEST_F(HdoCopy, EveryAllocationOfACopyFailingInTurn) {
    ombr_hdo_t source = rich_source();
    const std::string expected = dump_tree(source);
    const int64_t before = live_blocks();
    for (uint8_t deep : {0, 1}) {
        uint64_t failures = for_each_allocation_failure([&](uint64_t n) {
            ombr_hdo_t copy = nullptr;
            const uint32_t status = ombr_hdo_copy(source, &copy, deep);
            zelto_manager_memory_fail_nth(0);
            if (status == 0) {
                if (deep) {
                    EXPECT_EQ(dump_tree(copy), expected) << n;
                }
                ombr_hdo_release(copy);
            } else {
                EXPECT_TRUE(OMBR_STATUS_FAILED(status));
                EXPECT_EQ(copy, nullptr);
            }
            EXPECT_EQ(dump_tree(source), expected) << n;
            EXPECT_EQ(live_blocks(), before) << n;
        });
        EXPECT_GT(failures, deep ? 30u : 5u);
    }
    ombr_hdo_release(source);
}

TEST_F(HdoValue, EveryAllocationOfNewValuesAndSplitsFailingInTurn) {
    ombr_hdo_t node = make_node();
    add_string(node, "keep", "k");
    const std::string expected = dump_tree(node);
    const int64_t before = live_blocks();
    for_each_allocation_failure([&](uint64_t n) {
        ombr_hdo_value_t h = nullptr;
        uint32_t status = ombr_hdo_new_value_string(node, "v", "text", 0, &h);
        if (status == 0) {
            ombr_hdo_t copy = nullptr;
            status = ombr_hdo_copy(node, &copy, 0);
            if (status == 0) {
                status = ombr_hdo_value_setdata_string(h, "split");  // shared: splits
                zelto_manager_memory_fail_nth(0);
                const char *text = nullptr;
                ombr_hdo_value_t in_copy = value_handle(copy, "v");
                ombr_hdo_value_getdata_string(in_copy, &text);
                EXPECT_STREQ(text, "text") << n;  // the copy never sees the write
                ombr_hdo_value_getdata_string(h, &text);
                EXPECT_STREQ(text, status == 0 ? "split" : "text") << n;
                ombr_hdo_value_release(in_copy);
                ombr_hdo_release(copy);
            }
            zelto_manager_memory_fail_nth(0);
            ombr_hdo_value_release(h);
            ombr_hdo_value_remove(node, "v", 0, nullptr);
        }
        zelto_manager_memory_fail_nth(0);
        if (status) {
            EXPECT_TRUE(OMBR_STATUS_FAILED(status)) << n;
        }
        EXPECT_EQ(dump_tree(node), expected) << n;
        EXPECT_EQ(live_blocks(), before) << n;
    });
    ombr_hdo_release(node);
}

}  // namespace
