// Fuzzes the XML bridge: any text that reads into a tree whose names are
// XML names (the parser also takes a quoted string for a name, which the
// bridge passes through) writes out as a document that reads again, and
// after one more round the document no longer changes (XML -> HDO -> XML
// is stable from its second writing on); the root element's name comes
// back; nothing stays allocated.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ombr/ombr_hdo.h"
#include "ombr/ombr_string.h"
#include "ombr/ombr_xml.h"
#include "zelto/zelto_manager.h"

namespace {

[[noreturn]] void broken(const char *what, const std::string &detail) {
    std::fprintf(stderr, "property broken: %s\n%s\n", what, detail.c_str());
    std::abort();
}

bool legal_name(const char *name) {
    if (!name || !*name) return false;
    for (const char *p = name; *p; ++p)
        if (!uXMLIsLegalNameChar(static_cast<unsigned char>(*p))) return false;
    return true;
}

// Whether every key, value name and attribute name of a tree is an XML name.
bool legal_names(ombr_hdo_t node) {
    const char *name = nullptr;
    for (uint32_t i = 0; ombr_hdo_attribute_enum(node, i, &name, nullptr) == 0; ++i)
        if (!legal_name(name)) return false;
    ombr_hdo_value_t value = nullptr;
    for (uint32_t i = 0; ombr_hdo_value_enum(node, i, &name, &value) == 0; ++i) {
        bool ok = legal_name(name);
        for (uint32_t a = 0; ok && ombr_hdo_value_attribute_enum(value, a, &name, nullptr) == 0; ++a)
            ok = legal_name(name);
        ombr_hdo_value_release(value);
        if (!ok) return false;
    }
    ombr_hdo_t child = nullptr;
    for (uint32_t i = 0; ombr_hdo_child_enum(node, i, &name, &child) == 0; ++i) {
        const bool ok = legal_name(name) && legal_names(child);
        ombr_hdo_release(child);
        if (!ok) return false;
    }
    return true;
}

// Reads text into a tree and writes it out again under its root's name.
// False if the text does not read or holds names that are no XML names.
bool round(const std::string &text, std::string *out_text, std::string *out_root) {
    ombr_hdo_t node = nullptr;
    char *root = nullptr;
    if (ombr_hdo_from_xml(text.c_str(), &node, &root) != 0) {
        if (node || root) broken("a failed read hands out a tree", text);
        return false;
    }
    if (!root) broken("a tree without its root's name", text);
    const bool names = legal_name(root) && legal_names(node);
    char *xml = nullptr;
    uint32_t length = 0;
    if (ombr_hdo_to_xml_buf(node, root, 0, 0, &xml, &length) != 0) broken("a tree that does not write", text);
    *out_text = std::string(xml, length);
    *out_root = root;
    ombr_hdo_free_xml_buf(xml);
    ombr_string_free(root);
    ombr_hdo_release(node);
    return names;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool up = ombr_hdo_initialize() == 0;
    if (!up) std::abort();
    const int64_t blocks = zelto_manager_memory_live_blocks();
    const std::string input(reinterpret_cast<const char *>(data), size);
    std::string first, second, third, root1, root2, root3;
    if (round(input.c_str(), &first, &root1)) {
        if (!round(first, &second, &root2)) broken("a written document does not read again", first);
        if (!round(second, &third, &root3)) broken("a second writing does not read again", second);
        if (third != second) broken("writing is not stable", second + "\n" + third);
        if (root2 != root1 || root3 != root1) broken("the root element's name changed", root1 + " " + root2);
    }
    if (zelto_manager_memory_live_blocks() != blocks) broken("memory left allocated", input);
    return 0;
}
