// HDO trees: the tree counter and life of a tree as one, children and
// attributes, flags, statuses and the error hook, depth bound, and every
// allocation of tree building failing in turn.
#include <string>
#include <vector>

#include "hdo_test_support.h"
#include "log_capture.h"
#include "out_param.h"

namespace {

using HdoTree = HdoTest;

TEST_F(HdoTree, NewNodeAndFirstChildCreateTheCounter) {
    ombr_hdo_t parent = make_node();
    EXPECT_EQ(parent->ref_count, 1u);
    EXPECT_EQ(parent->tree_ref, nullptr);
    ombr_hdo_t child = make_node();
    ASSERT_EQ(ombr_hdo_addref(child), 0u);  // weight 2
    ASSERT_EQ(ombr_hdo_child_set(parent, "c", child, 0), 0u);
    ASSERT_NE(parent->tree_ref, nullptr);
    EXPECT_EQ(child->tree_ref, parent->tree_ref);
    EXPECT_EQ(tree_counter(parent), 3u);  // 1 + the child's weight
    EXPECT_EQ(child->ref_count, 2u);      // attaching adds no reference
    ombr_hdo_release(child);
    ombr_hdo_release(child);
    EXPECT_EQ(tree_counter(parent), 1u);
    ombr_hdo_release(parent);
}

TEST_F(HdoTree, TreeDiesWithItsLastReferenceWhicheverNodeHeldIt) {
    const int64_t before = live_blocks();
    {  // child released first: the tree goes with the parent
        ombr_hdo_t parent = make_node(), child = make_node();
        ASSERT_EQ(ombr_hdo_child_set(parent, "c", child, 0), 0u);
        ombr_hdo_release(child);
        EXPECT_GT(live_blocks(), before);
        ombr_hdo_release(parent);
        EXPECT_EQ(live_blocks(), before);
    }
    {  // parent released first: it survives through the child
        ombr_hdo_t parent = make_node(), child = make_node();
        add_string(parent, "v", "kept");
        ASSERT_EQ(ombr_hdo_child_set(parent, "c", child, 0), 0u);
        ombr_hdo_release(parent);
        ombr_hdo_t up = nullptr;
        ASSERT_EQ(ombr_hdo_parent_get(child, &up), 0u);
        EXPECT_EQ(up, parent);
        EXPECT_EQ(out(ombr_hdo_get_string_by_hpath, up, "$v", nullptr, 0), "kept");
        for (auto item : {up, child}) ombr_hdo_release(item);
        EXPECT_EQ(live_blocks(), before);
    }
}

TEST_F(HdoTree, ReferenceOnADeepNodeKeepsTheWholeTree) {
    ombr_hdo_t root = make_node();
    ombr_hdo_t a = add_child(root, "a");
    add_child(a, "b");
    ombr_hdo_t b = nullptr;
    ASSERT_EQ(ombr_hdo_child_get(a, "b", 0, &b), 0u);
    ombr_hdo_release(root);  // only b is held now
    ombr_hdo_t p = nullptr, pp = nullptr;
    ASSERT_EQ(ombr_hdo_parent_get(b, &p), 0u);
    ASSERT_EQ(ombr_hdo_parent_get(p, &pp), 0u);
    EXPECT_EQ(p, a);
    EXPECT_EQ(pp, root);
    EXPECT_EQ(ombr_hdo_parent_get(pp, &p), OMBR_HDO_NOT_FOUND);
    for (auto item : {pp, a, b}) ombr_hdo_release(item);
}

TEST_F(HdoTree, ReplaceTakesOnlyTheFirstChildUnderTheKey) {
    ombr_hdo_t parent = make_node();
    ombr_hdo_t first = add_child(parent, "k");
    ombr_hdo_t second = add_child(parent, "k");
    ombr_hdo_t held = nullptr;  // the first one survives as its own tree
    ASSERT_EQ(ombr_hdo_child_get(parent, "k", 0, &held), 0u);
    ASSERT_EQ(held, first);
    ombr_hdo_t third = make_node();
    ASSERT_EQ(ombr_hdo_child_set(parent, "K", third, OMBR_HDO_REPLACE), 0u);
    EXPECT_EQ(child_count(parent, "k"), 2u);
    ombr_hdo_t found = nullptr;
    ASSERT_EQ(ombr_hdo_child_get(parent, "k", 0, &found), 0u);
    EXPECT_EQ(found, second);
    ombr_hdo_release(found);
    ASSERT_EQ(ombr_hdo_child_get(parent, "k", 1, &found), 0u);
    EXPECT_EQ(found, third);
    ombr_hdo_release(found);
    EXPECT_EQ(ombr_hdo_parent_get(held, &found), OMBR_HDO_NOT_FOUND);
    EXPECT_NE(held->tree_ref, parent->tree_ref);
    for (auto item : {third, parent, held}) ombr_hdo_release(item);
}

TEST_F(HdoTree, KeysIgnoreAsciiCase) {
    ombr_hdo_t parent = make_node();
    ombr_hdo_t child = add_child(parent, "Album");
    ombr_hdo_t found = nullptr;
    ASSERT_EQ(ombr_hdo_child_get(parent, "aLBUM", 0, &found), 0u);
    EXPECT_EQ(found, child);
    ombr_hdo_release(found);
    ASSERT_EQ(ombr_hdo_attribute_set(parent, "Id", "1"), 0u);
    ASSERT_EQ(ombr_hdo_attribute_set(parent, "ID", "2"), 0u);
    EXPECT_EQ(out(ombr_hdo_attribute_get, parent, "id"), "2");
    ombr_hdo_release(parent);
}

TEST_F(HdoTree, RemovedChildIsTheRootOfItsOwnTree) {
    ombr_hdo_t parent = make_node();
    ombr_hdo_t child = add_child(parent, "c");
    add_child(child, "grandchild");
    ombr_hdo_t removed = nullptr;
    ASSERT_EQ(ombr_hdo_child_remove(parent, "c", 0, &removed), 0u);
    EXPECT_EQ(removed, child);
    EXPECT_EQ(removed->parent, nullptr);
    EXPECT_NE(removed->tree_ref, parent->tree_ref);
    EXPECT_EQ(tree_counter(removed), 1u);
    EXPECT_EQ(tree_counter(parent), 1u);
    const int64_t with_both = live_blocks();
    ombr_hdo_release(parent);
    EXPECT_LT(live_blocks(), with_both);
    EXPECT_EQ(child_count(removed, "grandchild"), 1u);
    ombr_hdo_release(removed);
    // Without an output the reference is dropped again and the child dies.
    parent = make_node();
    add_child(parent, "c");
    ASSERT_EQ(ombr_hdo_child_remove(parent, "c", 0, nullptr), 0u);
    EXPECT_EQ(child_count(parent, nullptr), 0u);
    EXPECT_EQ(ombr_hdo_child_remove(parent, "c", 0, nullptr), OMBR_DATATYPES_NOT_FOUND);
    ombr_hdo_release(parent);
}

TEST_F(HdoTree, HiddenChildrenCountAndEnumeration) {
    ombr_hdo_t parent = make_node();
    ombr_hdo_t a = add_child(parent, "x");
    add_child(parent, "x", OMBR_HDO_HIDDEN);
    ombr_hdo_t c = add_child(parent, "x");
    EXPECT_EQ(out(ombr_hdo_child_count, parent, ""), 2u);
    EXPECT_EQ(out(ombr_hdo_child_count, parent, "x"), 3u);
    // The index is a raw position: the hidden one in the middle makes the
    // last child come up at index 1 and 2, and 2 is beyond the count.
    ombr_hdo_t seen[3] = {};
    for (uint32_t i = 0; i < 3; ++i) {
        ASSERT_EQ(ombr_hdo_child_enum(parent, i, nullptr, &seen[i]), 0u);
        ombr_hdo_release(seen[i]);
    }
    EXPECT_EQ(seen[0], a);
    EXPECT_EQ(seen[1], c);
    EXPECT_EQ(seen[2], c);
    const char *key = nullptr;
    EXPECT_EQ(ombr_hdo_child_enum(parent, 3, &key, nullptr), OMBR_HDO_NOT_FOUND);
    // A hidden child is not found by walking its parent.
    ombr_hdo_t hidden = nullptr;
    ASSERT_EQ(ombr_hdo_child_get(parent, "x", 1, &hidden), 0u);
    EXPECT_EQ(ombr_hdo_child_detach(hidden), OMBR_HDO_NOT_IN_PARENT);
    // The ordinal walk stops below the visible count (2), so the third "x"
    // cannot be detached from its own side; the first can.
    EXPECT_EQ(ombr_hdo_child_detach(c), OMBR_HDO_NOT_IN_PARENT);
    ombr_hdo_addref(a);
    EXPECT_EQ(ombr_hdo_child_detach(a), 0u);
    EXPECT_EQ(child_count(parent, "x"), 2u);
    for (auto item : {a, hidden, parent}) ombr_hdo_release(item);
}

TEST_F(HdoTree, DetachFromTheChildSide) {
    ombr_hdo_t root = make_node();
    EXPECT_EQ(ombr_hdo_child_detach(root), 0u);  // a root: nothing to do
    ombr_hdo_t parent = make_node(), child = make_node();
    add_child(parent, "other");
    ASSERT_EQ(ombr_hdo_child_set(parent, "c", child, 0), 0u);
    ombr_hdo_release(parent);  // only the child holds the parent's tree
    const int64_t before = live_blocks();
    ASSERT_EQ(ombr_hdo_child_detach(child), 0u);
    EXPECT_LT(live_blocks(), before);  // the parent's tree died with the detach
    EXPECT_EQ(tree_counter(child), 1u);
    for (auto item : {child, root}) ombr_hdo_release(item);
}

TEST_F(HdoTree, NodeAttachedToASecondParentIsCopied) {
    ombr_hdo_t first = make_node(), second = make_node(), node = make_node();
    add_string(node, "v", "x");
    ASSERT_EQ(ombr_hdo_child_set(first, "n", node, 0), 0u);
    ASSERT_EQ(ombr_hdo_child_set(second, "n", node, 0), 0u);
    ombr_hdo_t in_second = nullptr, up = nullptr;
    ASSERT_EQ(ombr_hdo_child_get(second, "n", 0, &in_second), 0u);
    EXPECT_NE(in_second, node);
    EXPECT_EQ(dump_tree(in_second), dump_tree(node));
    ASSERT_EQ(ombr_hdo_parent_get(node, &up), 0u);
    EXPECT_EQ(up, first);
    for (auto item : {up, in_second, node, first, second}) ombr_hdo_release(item);
}

TEST_F(HdoTree, ParentMadeChildOfItsOwnChildIsNotRefused) {
    // The call succeeds; what is attached is a copy of the parent's tree, so
    // no cycle arises and both trees can still be released.
    ombr_hdo_t parent = make_node();
    ombr_hdo_t child = add_child(parent, "c");
    ASSERT_EQ(ombr_hdo_child_set(child, "p", parent, 0), 0u);
    ombr_hdo_t up = nullptr;
    EXPECT_EQ(ombr_hdo_parent_get(parent, &up), OMBR_HDO_NOT_FOUND);
    EXPECT_EQ(out(ombr_hdo_get_count_by_hpath, parent, "c/p/c", nullptr), 1u);
    ombr_hdo_release(parent);
}

TEST_F(HdoTree, SetFlagsReachesDescendantsAndAttachOverwritesFlags) {
    ombr_hdo_t root = make_node();
    ombr_hdo_t a = add_child(root, "a");
    ombr_hdo_t b = add_child(a, "b");
    ASSERT_EQ(ombr_hdo_set_flags(root, OMBR_HDO_READONLY | OMBR_HDO_SINGLE, OMBR_HDO_READONLY), 0u);
    EXPECT_EQ(root->flags, OMBR_HDO_READONLY);
    EXPECT_EQ(b->flags, OMBR_HDO_READONLY);
    ASSERT_EQ(ombr_hdo_set_flags(a, OMBR_HDO_READONLY, 0), 0u);
    EXPECT_EQ(b->flags, 0u);
    EXPECT_EQ(root->flags, OMBR_HDO_READONLY);
    EXPECT_EQ(ombr_hdo_set_flags(nullptr, 1, 1), 0u);
    ombr_hdo_t c = make_node();
    ASSERT_EQ(ombr_hdo_set_flags(c, OMBR_HDO_SINGLE, OMBR_HDO_SINGLE), 0u);
    ASSERT_EQ(ombr_hdo_child_set(root, "c", c, OMBR_HDO_HIDDEN), 0u);  // read-only does not stop children
    EXPECT_EQ(c->flags, OMBR_HDO_HIDDEN);
    EXPECT_EQ(root->hidden_children, 1u);
    for (auto item : {c, root}) ombr_hdo_release(item);
}

TEST_F(HdoTree, ClearDestroysValuesAndChildrenAtOnce) {
    ombr_hdo_t root = make_node();
    ASSERT_EQ(ombr_hdo_attribute_set(root, "a", "1"), 0u);
    add_string(root, "v", "x");
    add_child(root, "c");
    add_child(root, "h", OMBR_HDO_HIDDEN);
    const uint32_t counter = tree_counter(root);
    ASSERT_EQ(ombr_hdo_clear(root), 0u);
    EXPECT_EQ(tree_counter(root), counter);
    EXPECT_EQ(child_count(root, "c"), 0u);
    EXPECT_EQ(value_count(root, "v"), 0u);
    EXPECT_EQ(attribute_count(root), 1u);  // attributes stay, and so does hidden_children
    EXPECT_EQ(root->hidden_children, 1u);
    EXPECT_EQ(ombr_hdo_clear(nullptr), 0u);
    ombr_hdo_release(root);
}

TEST_F(HdoTree, Attributes) {
    ombr_hdo_t node = make_node();
    const char *text = nullptr, *name = nullptr;
    EXPECT_EQ(attribute_count(node), 0u);
    EXPECT_EQ(ombr_hdo_attribute_get(node, "a", &text), OMBR_HDO_NOT_FOUND);
    EXPECT_EQ(ombr_hdo_attribute_enum(node, 0, &name, &text), OMBR_HDO_NOT_FOUND);
    ASSERT_EQ(ombr_hdo_attribute_set(node, "a", "1"), 0u);
    ASSERT_EQ(ombr_hdo_attribute_set(node, "b", "2"), 0u);
    ASSERT_EQ(ombr_hdo_attribute_set(node, "A", "3"), 0u);  // overwrites, goes last
    EXPECT_EQ(attribute_count(node), 2u);
    EXPECT_EQ(out(ombr_hdo_attribute_enum, node, 1, &name), "3");
    EXPECT_STREQ(name, "a");
    EXPECT_EQ(ombr_hdo_attribute_get(node, "b", nullptr), 0u);
    EXPECT_EQ(ombr_hdo_attribute_get(node, "zz", &text), OMBR_DATATYPES_NOT_FOUND);
    ASSERT_EQ(ombr_hdo_attribute_delete(node, "b"), 0u);
    EXPECT_EQ(attribute_count(node), 1u);
    ASSERT_EQ(ombr_hdo_attribute_clearall(node), 0u);
    EXPECT_EQ(attribute_count(node), 0u);
    ASSERT_EQ(ombr_hdo_attribute_set(node, "c", "4"), 0u);  // a new map
    ombr_hdo_release(node);
}

TEST_F(HdoTree, ArgumentAndHandleStatuses) {
    ombr_hdo_t node = make_node(), spare = make_node();
    uint32_t count = 0;
    ombr_hdo_t child = nullptr;
    struct {
        uint32_t got, want;
    } cases[] = {
        {ombr_hdo_create(nullptr), OMBR_HDO_INVALID_ARG},
        {ombr_hdo_child_set(node, "k", node, 0), OMBR_HDO_INVALID_ARG},
        {ombr_hdo_child_set(node, nullptr, node, 0), OMBR_HDO_INVALID_ARG},
        {ombr_hdo_child_get(node, "k", 0, nullptr), OMBR_HDO_INVALID_ARG},
        {ombr_hdo_child_get(node, "k", 0, &child), OMBR_HDO_NOT_FOUND},
        {ombr_hdo_child_count(nullptr, "k", &count), OMBR_HDO_INVALID_ARG},
        {ombr_hdo_child_remove(node, "k", 0, nullptr), OMBR_HDO_NOT_FOUND},
        {ombr_hdo_parent_get(node, &child), OMBR_HDO_NOT_FOUND},
        {ombr_hdo_attribute_set(node, nullptr, "x"), OMBR_HDO_INVALID_ARG},
        {ombr_hdo_addref(nullptr), 0u},
        {ombr_hdo_release(nullptr), 0u},
        {ombr_hdo_child_set(node, "", spare, 0), OMBR_DATATYPES_INVALID_ARG},
    };
    for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].got, cases[i].want) << "case " << i;
    // The node of the empty-key case was not attached.
    ombr_hdo_t orphan = nullptr;
    EXPECT_EQ(ombr_hdo_child_enum(node, 0, nullptr, &orphan), OMBR_HDO_NOT_FOUND);
    EXPECT_EQ(spare->parent, nullptr);
    ombr_hdo_release(spare);

    struct FakeNode {
        uint32_t magic = 0x12345678u;
        uint32_t pad[15] = {};
    } fake;
    auto *bad = reinterpret_cast<ombr_hdo_t>(&fake);
    EXPECT_EQ(ombr_hdo_release(bad), OMBR_HDO_BAD_MAGIC);
    EXPECT_EQ(ombr_hdo_child_count(bad, nullptr, &count), OMBR_HDO_BAD_MAGIC);
    EXPECT_EQ(ombr_hdo_child_set(node, "k", bad, 0), OMBR_HDO_BAD_MAGIC);
    EXPECT_EQ(ombr_hdo_attribute_set(bad, "a", "b"), OMBR_HDO_BAD_MAGIC);
    ombr_hdo_release(node);
}

TEST(HdoPackage, FunctionsThatNeedTheirPackageRefuseWithoutIt) {
    ASSERT_EQ(ombr_hdo_initchecks(), 0u);
    ombr_hdo_t node = nullptr;
    EXPECT_EQ(ombr_hdo_create(&node), OMBR_HDO_NOT_INITIALIZED);
    EXPECT_EQ(ombr_hdo_addref(nullptr), OMBR_HDO_NOT_INITIALIZED);
    EXPECT_EQ(ombr_hdo_child_get(nullptr, "k", 0, &node), OMBR_HDO_NOT_INITIALIZED);
    EXPECT_EQ(ombr_hdo_new_value(nullptr, "v", 0, nullptr), OMBR_HDO_NOT_INITIALIZED);
    EXPECT_EQ(ombr_hdo_value_get(nullptr, "v", 0, nullptr), OMBR_HDO_NOT_INITIALIZED);
    // Functions that need no package still test their arguments.
    EXPECT_EQ(ombr_hdo_release(nullptr), 0u);
    EXPECT_EQ(ombr_hdo_child_count(nullptr, nullptr, nullptr), OMBR_HDO_INVALID_ARG);
}

TEST_F(HdoTree, FailuresGoThroughTheErrorHookSoftStatusesDoNot) {
    LogCapture log({OMBR_PKG_HDO, OMBR_PKG_DATATYPES});
    ombr_hdo_t node = make_node();
    ombr_hdo_t found = nullptr;
    EXPECT_EQ(ombr_hdo_parent_get(node, &found), OMBR_HDO_NOT_FOUND);
    EXPECT_TRUE(log.errors.empty());
    EXPECT_EQ(ombr_hdo_child_get(node, "k", 0, nullptr), OMBR_HDO_INVALID_ARG);
    ASSERT_EQ(log.errors.size(), 1u);
    EXPECT_EQ(log.errors[0].unit, "ombr_hdo_api");
    EXPECT_EQ(log.errors[0].package, OMBR_HDO_INVALID_ARG);
    EXPECT_GT(log.errors[0].line, 0u);
    // A failure inside is reported by its own unit and again by the API.
    log.errors.clear();
    EXPECT_EQ(ombr_hdo_child_set(node, "k", node, 0), OMBR_HDO_INVALID_ARG);
    ASSERT_EQ(log.errors.size(), 2u);
    EXPECT_EQ(log.errors[0].unit, "ombr_hdo_node");
    EXPECT_EQ(log.errors[1].unit, "ombr_hdo_api");
    // The path, copy and XML functions report with their own units.
    log.errors.clear();
    const char *text = nullptr;
    EXPECT_EQ(ombr_hdo_get_string_by_hpath(node, nullptr, nullptr, 0, &text), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_copy(node, nullptr, 1), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_to_xml(node, "r", 0, 0, nullptr), OMBR_HDO_INVALID_ARG);
    std::vector<std::string> units;
    for (const LogRecord &r : log.errors) units.push_back(r.unit);
    EXPECT_EQ(units, (std::vector<std::string>{"ombr_hdo_hpath", "ombr_hdo_copy", "ombr_hdo_xml", "ombr_hdo_xml"}));
    // What the hook returns is what the caller gets.
    log.error_override = 0x90110999u;
    EXPECT_EQ(ombr_hdo_create(nullptr), 0x90110999u);
    ombr_hdo_release(node);
}

TEST_F(HdoTree, DepthIsBoundedAndDeepTreesDieWithoutRecursion) {
    ombr_hdo_t root = make_node();
    ombr_hdo_t tip = root;
    for (uint32_t depth = 1; depth <= OMBR_HDO_MAX_DEPTH; ++depth) tip = add_child(tip, "d");
    ombr_hdo_t too_deep = make_node();
    EXPECT_EQ(ombr_hdo_child_set(tip, "d", too_deep, 0), OMBR_HDO_LIMIT);
    // A subtree whose height would carry it beyond the bound is refused too.
    add_child(too_deep, "below");
    ombr_hdo_t one_up = nullptr;
    ASSERT_EQ(ombr_hdo_parent_get(tip, &one_up), 0u);
    ombr_hdo_t extra = nullptr;
    ASSERT_EQ(ombr_hdo_child_remove(one_up, "d", 0, &extra), 0u);
    EXPECT_EQ(ombr_hdo_child_set(one_up, "d", too_deep, 0), OMBR_HDO_LIMIT);
    ASSERT_EQ(ombr_hdo_child_set(one_up, "d", extra, 0), 0u);
    for (auto item : {extra, one_up, too_deep, root}) ombr_hdo_release(item);
}

// Builds a small tree through the public API; any failure is handed back.
uint32_t build_sample(ombr_hdo_t *out_root) {
    ombr_hdo_t root = nullptr;
    uint32_t status = ombr_hdo_create(&root);
    if (status) return status;
    ombr_hdo_t child = nullptr;
    const char *keys[] = {"a", "b", "a"};
    for (const char *key : keys) {
        if ((status = ombr_hdo_create(&child))) break;
        status = ombr_hdo_child_set(root, key, child, 0);
        if (status == 0) status = ombr_hdo_attribute_set(child, "id", key);
        if (status == 0) status = ombr_hdo_new_value_string(child, "name", key, 0, nullptr);
        if (status == 0) status = ombr_hdo_new_value_int(child, "n", 7, 0, nullptr);
        ombr_hdo_release(child);
        if (status) break;
    }
    // A replacing attach under "b" takes the first "b" out again.
    if (status == 0 && (status = ombr_hdo_create(&child)) == 0) {
        status = ombr_hdo_child_set(root, "b", child, OMBR_HDO_REPLACE);
        if (status == 0) status = ombr_hdo_new_value_uint(child, "replaced", 1, 0, nullptr);
        ombr_hdo_release(child);
    }
    if (status) {
        ombr_hdo_release(root);
        return status;
    }
    *out_root = root;
    return 0;
}

TEST_F(HdoTree, EveryAllocationOfTreeBuildingFailingInTurn) {
    const int64_t before = live_blocks();
    ombr_hdo_t reference = nullptr;
    ASSERT_EQ(build_sample(&reference), 0u);
    const std::string expected = dump_tree(reference);
    ombr_hdo_release(reference);
    ASSERT_EQ(live_blocks(), before);
    uint64_t failures = for_each_allocation_failure([&](uint64_t n) {
        ombr_hdo_t root = nullptr;
        const uint32_t status = build_sample(&root);
        zelto_manager_memory_fail_nth(0);  // the checks below allocate too
        if (status == 0) {
            EXPECT_EQ(dump_tree(root), expected) << "allocation " << n;
            ombr_hdo_release(root);
        } else {
            EXPECT_TRUE(OMBR_STATUS_FAILED(status)) << std::hex << status;
        }
        EXPECT_EQ(live_blocks(), before) << "allocation " << n;
    });
    EXPECT_GT(failures, 20u);
}

}  // namespace
