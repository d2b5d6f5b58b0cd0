// Fuzzes HPath evaluation over one fixed tree with a parameter node: any
// path text, evaluated by all four query functions, must leave the tree as
// it was and nothing allocated; the same path gives the same answer twice;
// a path that finds a value also gives a text; a child found by path is a
// node of the tree; a count succeeds or fails, never soft.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "hdo/ombr_hdo_internal.h"
#include "zelto/zelto_manager.h"

namespace {

const char kTree[] =
    "<catalogue kind=\"disc\" id=\"c1\">"
    "<title lang=\"en\">Lantern of Glass</title><n>3</n><B>2</B><dup>v</dup>"
    "<ALGORITHM><NAME>chromaprint</NAME><VERSION>2</VERSION></ALGORITHM>"
    "<A id=\"7\"><NAME>first</NAME><B>3</B></A>"
    "<A id=\"8\"><NAME>second</NAME><B>x</B><C>c2</C><Sub><deep>d</deep></Sub></A>"
    "<A id=\"Seven\"><NAME>third</NAME><B>0</B><e/></A>"
    "<dup><inner>i</inner></dup>"
    "<track n=\"1\"><title>One</title></track><track n=\"2\"><title>Two</title></track>"
    "</catalogue>";

[[noreturn]] void broken(const char *what, const std::string &path) {
    std::fprintf(stderr, "property broken: %s\npath: %s\n", what, path.c_str());
    std::abort();
}

struct Fixture {
    ombr_hdo_t root = nullptr;
    ombr_hdo_t params = nullptr;
    Fixture() {
        if (ombr_hdo_initialize() != 0 || ombr_hdo_from_xml(kTree, &root, nullptr) != 0) std::abort();
        if (ombr_hdo_create(&params) != 0) std::abort();
        ombr_hdo_new_value_string(params, "n", "2", 0, nullptr);
        ombr_hdo_new_value_string(params, "id", "8", 0, nullptr);
        ombr_hdo_new_value_uint(params, "num", 5, 0, nullptr);
    }
};

// The tree as text, to see that a query changed nothing.
std::string snapshot(ombr_hdo_t node) {
    char *text = nullptr;
    if (ombr_hdo_to_xml(node, "catalogue", 0, 0, &text) != 0) std::abort();
    std::string result = text;
    ombr_hdo_free_xml(text);
    return result;
}

bool is_node_of_tree(ombr_hdo_t root, ombr_hdo_t node) {
    for (hdo_node *up = node; up; up = up->parent)
        if (up == root) return true;
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static Fixture fixture;
    static const std::string before = snapshot(fixture.root);
    const std::string path(reinterpret_cast<const char *>(data), size);
    const char *p = path.c_str();  // ends at the first zero byte
    const int64_t blocks = zelto_manager_memory_live_blocks();
    for (uint32_t ordinal = 0; ordinal < 3; ++ordinal) {
        const char *text = nullptr, *again = nullptr;
        const uint32_t status = ombr_hdo_get_string_by_hpath(fixture.root, p, fixture.params, ordinal, &text);
        const uint32_t repeat = ombr_hdo_get_string_by_hpath(fixture.root, p, fixture.params, ordinal, &again);
        if (status != repeat) broken("two evaluations disagree on the status", path);

        ombr_hdo_value_t handle = nullptr;
        if (ombr_hdo_get_value_by_hpath(fixture.root, p, fixture.params, ordinal, &handle) == 0) {
            if (status != 0) broken("a path finds a value but no text", path);
            // A text of the tree is the same each time (a literal's text,
            // freed with its query, is not compared).
            uint32_t type = 0;
            const char *data = nullptr;
            ombr_hdo_value_gettype(handle, &type);
            if (type == OMBR_HDO_VALUE_STRING) ombr_hdo_value_getdata_string(handle, &data);
            if (data && text == data && again != data) broken("two evaluations disagree on the text", path);
            ombr_hdo_value_release(handle);
        }
        ombr_hdo_t child = nullptr;
        if (ombr_hdo_get_child_by_hpath(fixture.root, p, fixture.params, ordinal, &child) == 0) {
            if (!is_node_of_tree(fixture.root, child)) broken("a child outside the tree", path);
            ombr_hdo_release(child);
        }
    }
    uint32_t count = 0;
    const uint32_t status = ombr_hdo_get_count_by_hpath(fixture.root, p, fixture.params, &count);
    if (status != 0 && !OMBR_STATUS_FAILED(status)) broken("a count gives a soft status", path);

    if (zelto_manager_memory_live_blocks() != blocks) broken("memory left allocated", path);
    if (snapshot(fixture.root) != before) broken("the tree changed", path);
    return 0;
}
