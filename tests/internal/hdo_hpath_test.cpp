// HPath as a small grammar: a table of paths over one reference tree with
// their statuses and results, the odd behaviours kept on purpose, limits on
// nesting, and every allocation of an evaluation failing in turn.
#include <string>
#include <vector>

#include "hdo_test_support.h"
#include "out_param.h"

namespace {

class HdoHpath : public HdoTest {
   protected:
    // root @kind=disc
    //   $title "Root Title", $n 3 (int), $B "2", $dup "value-dup", $0 "zero", $* "star"
    //   ALGORITHM: $NAME "zfpx", $VERSION "1.0", $NUM 5 (int)
    //   A @id=7:     $NAME "first",  $B "3"
    //   A @id=8:     $NAME "second", $B "x", $C "c2", Sub: $deep "d"
    //   A @id=Seven: $NAME "third",  $B "0"
    //   dup (child): $inner "child-dup"
    void SetUp() override {
        HdoTest::SetUp();
        root = make_node();
        ombr_hdo_attribute_set(root, "kind", "disc");
        add_string(root, "title", "Root Title");
        ombr_hdo_new_value_int(root, "n", 3, 0, nullptr);
        add_string(root, "B", "2");
        add_string(root, "dup", "value-dup");
        add_string(root, "0", "zero");
        add_string(root, "*", "star");
        ombr_hdo_t algorithm = add_child(root, "ALGORITHM");
        add_string(algorithm, "NAME", "zfpx");
        add_string(algorithm, "VERSION", "1.0");
        ombr_hdo_new_value_int(algorithm, "NUM", 5, 0, nullptr);
        const char *ids[] = {"7", "8", "Seven"};
        const char *names[] = {"first", "second", "third"};
        const char *bs[] = {"3", "x", "0"};
        for (int i = 0; i < 3; ++i) {
            ombr_hdo_t a = add_child(root, "A");
            ombr_hdo_attribute_set(a, "id", ids[i]);
            add_string(a, "NAME", names[i]);
            add_string(a, "B", bs[i]);
            if (i == 1) {
                add_string(a, "C", "c2");
                add_string(add_child(a, "Sub"), "deep", "d");
            }
        }
        add_string(add_child(root, "dup"), "inner", "child-dup");
        params = make_node();
        add_string(params, "n", "3");
        add_string(params, "id", "8");
        ombr_hdo_new_value_int(params, "num", 1, 0, nullptr);
    }
    void TearDown() override {
        for (auto item : {root, params}) ombr_hdo_release(item);
        HdoTest::TearDown();
    }

    // The string result of a path as "status:text".
    std::string string_at(const char *path, uint32_t ordinal = 0, ombr_hdo_t start = nullptr) {
        const char *text = nullptr;
        const uint32_t status = ombr_hdo_get_string_by_hpath(start ? start : root, path, params, ordinal, &text);
        char prefix[16];
        std::snprintf(prefix, sizeof prefix, "%08X:", status);
        // The text of a literal path is freed before the call returns.
        if (path[0] == '\'' || path[0] == '"') return prefix;
        return prefix + std::string(status == 0 ? (text ? text : "(null)") : "");
    }
    uint32_t count_of(const char *path) {
        uint32_t count = 0xDEAD;
        const uint32_t status = ombr_hdo_get_count_by_hpath(root, path, params, &count);
        return status == 0 ? count : status;
    }

    ombr_hdo_t root = nullptr;
    ombr_hdo_t params = nullptr;
};

struct StringCase {
    const char *path;
    uint32_t ordinal;
    const char *expected;  // "STATUS:text"
};

TEST_F(HdoHpath, StringResults) {
    const StringCase cases[] = {
        // The query module's form.
        {"ALGORITHM/$NAME", 0, "00000000:zfpx"},
        {"ALGORITHM/$VERSION", 0, "00000000:1.0"},
        {"algorithm/$name", 0, "00000000:zfpx"},
        {"ALGORITHM/$NUM", 0, "00000000:(null)"},  // a number: success, no text
        {"ALGORITHM/$MISSING", 0, "100D0003:"},
        {"$title", 0, "00000000:Root Title"},
        {"title", 0, "00000000:Root Title"},
        // Runs of slashes count as one.
        {"ALGORITHM///$NAME", 0, "00000000:zfpx"},
        // Ordinals count across all parents.
        {"A/$NAME", 0, "00000000:first"},
        {"A/$NAME", 2, "00000000:third"},
        {"A/$NAME", 3, "100D0003:"},
        {"A/$B", 1, "00000000:x"},
        // Indexes are 1-based and pick one entry.
        {"A(2)/$NAME", 0, "00000000:second"},
        {"A(3)/$NAME", 0, "00000000:third"},
        {"A(4)/$NAME", 0, "100D0003:"},
        {"A(0)", 0, "90110003:"},
        {"A(1)", 1, "10110003:"},
        {"A(%n)/$NAME", 0, "00000000:third"},
        {"A(B)/$NAME", 0, "00000000:second"},  // the index from root's value B, "2"
        {"A(B/C)", 0, "00000000:c2"},           // the index ends at the "/"
        {"A(nothing)/$NAME", 0, "100D0003:"},   // a failing index passes its status on
        {"/", 0, "00000000:Root Title"},        // an empty name: children (none match), then values by position
        // Attributes.
        {"@kind", 0, "00000000:disc"},
        {"@KIND", 0, "00000000:disc"},
        {"@none", 0, "100D0003:"},
        {"ALGORITHM/@x", 0, "100D0003:"},  // the next lookup of ALGORITHM ends it
        {"A(2)/@id", 0, "00000000:8"},
        // Predicates.
        {"A[@id='7']/$NAME", 0, "00000000:first"},
        {"A[@id='seven']/$NAME", 0, "00000000:third"},  // texts compare without case
        {"A[@id=%id]/$NAME", 0, "00000000:second"},
        {"A[@id='7']/$NAME", 1, "100D0003:"},
        {"A[B=3]/$NAME", 0, "00000000:first"},       // the number 3 against text
        {"A[B=0]/$NAME", 0, "100D0003:"},            // 0 names an element, and none holds
        {"A[B='0']/$NAME", 0, "00000000:third"},
        {"A[$C]/$NAME", 0, "00000000:second"},       // existence
        {"A[$C='*']/$NAME", 2, "00000000:third"},    // holds whether or not C exists
        {"A[$C='!']/$NAME", 1, "00000000:third"},    // holds where C does not exist
        {"A[Sub/$deep='d']/$NAME", 0, "00000000:second"},
        {"[Sub='x']", 0, "10110003:"},
        {"A[Sub='x']", 0, "90110366:"},             // a node has no text to compare
        {"A[$NAME='x/y']/$NAME", 0, "100D0003:"},    // quotes do not protect the "/"
        // Alternatives.
        {"A[@id='7']|[@id='8']/$NAME", 1, "00000000:second"},
        {"A[@id='8']&[$C='c2']/$NAME", 0, "00000000:second"},
        // Each part runs the whole rest: the first one has already recorded
        // "first" when the second fails and ends all.
        {"A[@id='7']&[$C='c2']/$NAME", 0, "10110003:"},
        {"A[@id='7']&[$C='c2']", 0, "100D0003:"},
        {"$nothing|$title", 0, "00000000:Root Title"},
        // Negation.
        {"!A/$title", 0, "10110003:"},
        {"!nothing/$title", 0, "00000000:Root Title"},
        {"ALGORITHM/!A/$NAME", 0, "00000000:zfpx"},
        // Parameters.
        {"%n", 0, "00000000:3"},
        {"%missing", 0, "90110366:"},
        {"%num", 0, "90110366:"},
        {"%", 0, "00000000:3"},  // no name: the first parameter
        // A name is any text no other row claims; a child beats a value at
        // the same ordinal.
        {"0", 0, "00000000:zero"},
        {"*", 0, "00000000:star"},
        {"dup", 0, "10110003:"},  // the child, which has no text
        {"dup", 1, "100D0003:"},  // the value at ordinal 0 stays behind the child
        {"$dup", 0, "00000000:value-dup"},
        {"dup/$inner", 0, "00000000:child-dup"},
        {"$title/$x", 0, "90110001:"},  // a value lookup on a value has no node
    };
    for (const StringCase &c : cases) EXPECT_EQ(string_at(c.path, c.ordinal), c.expected) << c.path << " #" << c.ordinal;
}

TEST_F(HdoHpath, Counts) {
    const struct {
        const char *path;
        uint32_t expected;
    } cases[] = {
        {"A", 3},
        {"A/$NAME", 3},
        {"A/$B", 3},
        {"A/B", 3},
        {"dup", 2},           // child and value both count
        {"$dup", 1},
        {"A(1)", 0},          // an indexed path counts nothing
        {"A[$C]", 1},
        {"A[@id='7']|[@id='8']/$NAME", 2},
        {"$", 6},             // every visible value of the root
        {"/", 11},            // every visible child and value
        {"nothing", 0},
        {"'literal'", 0},
        {"!nothing", 0},
        {"A[Sub/$deep='d']", 1},
        {"A/Sub", 1},
        {"$title/$x", OMBR_HDO_INVALID_ARG},
    };
    for (const auto &c : cases) EXPECT_EQ(count_of(c.path), c.expected) << c.path;
}

TEST_F(HdoHpath, MalformedPathsAndPathsThatDoNotFit) {
    const char *paths[] = {
        "",                   // empty
        "A[@id='7']&B",       // a "&" behind "]" must lead to "["
        "@kind/(1)",          // an attribute with an index behind it
        "'x'/A",              // a literal ends a path
        "5/A",                // so does a number
        "$title/NAME",        // a name step on a value
        "A[(1)='1']",         // an empty left text compared
        "!",
    };
    for (const char *path : paths) EXPECT_EQ(string_at(path), "90110366:") << path;
    ombr_hdo_t no_params = root;
    const char *text = nullptr;
    EXPECT_EQ(ombr_hdo_get_string_by_hpath(no_params, "%n", nullptr, 0, &text), OMBR_HDO_BAD_PATH);
    // Results of the wrong kind.
    ombr_hdo_t child = nullptr;
    ombr_hdo_value_t handle = nullptr;
    EXPECT_EQ(ombr_hdo_get_value_by_hpath(root, "ALGORITHM", nullptr, 0, &handle), OMBR_HDO_BAD_PATH);
    EXPECT_EQ(ombr_hdo_get_child_by_hpath(root, "$title", nullptr, 0, &child), OMBR_HDO_BAD_PATH);
    // Arguments.
    EXPECT_EQ(ombr_hdo_get_string_by_hpath(root, nullptr, nullptr, 0, &text), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_get_string_by_hpath(root, "A", nullptr, 0, nullptr), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_get_count_by_hpath(nullptr, "A", nullptr, nullptr), OMBR_HDO_INVALID_ARG);
    struct {
        uint32_t magic = 1;
        void *pad[12] = {};
    } fake;
    EXPECT_EQ(ombr_hdo_get_string_by_hpath(reinterpret_cast<ombr_hdo_t>(&fake), "A", nullptr, 0, &text),
              OMBR_HDO_BAD_MAGIC);
    EXPECT_EQ(ombr_hdo_get_string_by_hpath(root, "A", reinterpret_cast<ombr_hdo_t>(&fake), 0, &text),
              OMBR_HDO_BAD_MAGIC);
}

TEST_F(HdoHpath, LiteralsSucceedButTheirTextIsGone) {
    const char *text = nullptr;
    EXPECT_EQ(ombr_hdo_get_string_by_hpath(root, "'x'", nullptr, 0, &text), 0u);
    EXPECT_NE(text, nullptr);  // freed with the query: not to be read
    EXPECT_EQ(ombr_hdo_get_string_by_hpath(root, "\"x\"", nullptr, 1, &text), OMBR_HDO_NOT_FOUND);
    EXPECT_EQ(ombr_hdo_get_string_by_hpath(root, "12", nullptr, 0, &text), 0u);
}

TEST_F(HdoHpath, LeadingSlashClimbsToTheStartAndNoHigher) {
    ombr_hdo_t algorithm = nullptr;
    ASSERT_EQ(ombr_hdo_child_get(root, "ALGORITHM", 0, &algorithm), 0u);
    EXPECT_EQ(string_at("/$NAME", 0, algorithm), "00000000:zfpx");
    EXPECT_EQ(string_at("//$NAME", 0, algorithm), "00000000:zfpx");
    EXPECT_EQ(string_at("@x", 0, algorithm), "10110003:");  // no attributes at all
    EXPECT_EQ(string_at("/$title", 0, algorithm), "100D0003:");  // root is above the start
    // From a node below the start, a predicate's "/" goes back to the start.
    EXPECT_EQ(string_at("A[/ALGORITHM/$NAME='zfpx']/$NAME"), "00000000:first");
    ombr_hdo_release(algorithm);
}

TEST_F(HdoHpath, ValuesAndChildrenByPath) {
    ombr_hdo_value_t handle = nullptr;
    ASSERT_EQ(ombr_hdo_get_value_by_hpath(root, "A(2)/$C", nullptr, 0, &handle), 0u);
    // The handle's node is the start node, not the one holding the value...
    EXPECT_EQ(handle->node, root);
    EXPECT_EQ(out(ombr_hdo_value_getdata_string, handle), "c2");
    // ...so a write that must split cannot find the value there.
    ombr_hdo_t copy = nullptr;
    ASSERT_EQ(ombr_hdo_copy(root, &copy, 1), 0u);
    EXPECT_EQ(ombr_hdo_value_setdata_string(handle, "new"), OMBR_HDO_SHARED_NOT_FOUND);
    ombr_hdo_release(copy);
    ombr_hdo_value_release(handle);
    ombr_hdo_t child = nullptr;
    ASSERT_EQ(ombr_hdo_get_child_by_hpath(root, "A[@id='8']", nullptr, 0, &child), 0u);
    const char *id = nullptr;
    ASSERT_EQ(ombr_hdo_attribute_get(child, "id", &id), 0u);
    EXPECT_STREQ(id, "8");
    EXPECT_EQ(child->ref_count, 1u);
    ombr_hdo_release(child);
    ASSERT_EQ(ombr_hdo_get_child_by_hpath(root, "A", nullptr, 2, &child), 0u);
    ASSERT_EQ(ombr_hdo_attribute_get(child, "id", &id), 0u);
    EXPECT_STREQ(id, "Seven");
    ombr_hdo_release(child);
}

TEST_F(HdoHpath, LongStepsAndLongPredicateParts) {
    const std::string key(200, 'k');
    add_string(add_child(root, key.c_str()), "v", "long");
    EXPECT_EQ(string_at((key + "/$v").c_str()), "00000000:long");
    const std::string predicate = "A[$NAME='" + std::string(40, 'q') + "']|[$NAME='second']/$NAME";
    EXPECT_EQ(string_at(predicate.c_str()), "00000000:second");
}

TEST_F(HdoHpath, DeepNestingEndsInAStatus) {
    std::string nested = "A";
    for (int i = 0; i < 2000; ++i) nested = "[" + nested + "]";
    EXPECT_EQ(string_at(("A" + nested).c_str()), "90110367:");
    std::string negations(5000, '!');
    EXPECT_EQ(string_at((negations + "A").c_str()), "90110367:");
    std::string indexes;
    for (int i = 0; i < 2000; ++i) indexes += "(";
    EXPECT_EQ(string_at(("A" + indexes + "1").c_str()), "90110367:");
    // The deepest value of the deepest tree is in reach.
    ombr_hdo_t tip = root;
    std::string path;
    for (uint32_t i = 0; i < OMBR_HDO_MAX_DEPTH; ++i) {
        tip = add_child(tip, "d");
        path += "d/";
    }
    add_string(tip, "end", "reached");
    EXPECT_EQ(string_at((path + "$end").c_str()), "00000000:reached");
    EXPECT_EQ(string_at((path + "d/$end").c_str()), "100D0003:");
}

TEST_F(HdoHpath, EveryAllocationOfAnEvaluationFailingInTurn) {
    const std::string key(200, 'k');
    add_string(add_child(root, key.c_str()), "v", "long");
    const std::string before_tree = dump_tree(root);
    const std::string paths[] = {
        "ALGORITHM/$NAME",
        "A[$NAME='" + std::string(40, 'q') + "']|[$NAME='second']/$NAME",
        key + "/$v",
        "A(%n)/$NAME",
        "'literal'",
    };
    for (const std::string &path : paths) {
        const std::string expected = string_at(path.c_str());
        const int64_t blocks = live_blocks();
        uint64_t failures = for_each_allocation_failure([&](uint64_t n) {
            const char *text = nullptr;
            const uint32_t status = ombr_hdo_get_string_by_hpath(root, path.c_str(), params, 0, &text);
            zelto_manager_memory_fail_nth(0);
            if (status != 0) {
                EXPECT_EQ(status, OMBR_HDO_NO_MEMORY) << path << " " << n;
            } else if (path[0] != '\'') {
                EXPECT_EQ("00000000:" + std::string(text ? text : "(null)"), expected) << path;
            }
            EXPECT_EQ(live_blocks(), blocks) << path << " " << n;
        });
        EXPECT_EQ(failures > 0, path.size() > 32 || path[0] == '\'') << path;
    }
    EXPECT_EQ(dump_tree(root), before_tree);
}

}  // namespace
