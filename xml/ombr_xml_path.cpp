// uXML slash-separated paths: walking to a sub-element, reading the text or
// attribute at a path, and creating what a path names.
#include "xml/ombr_xml_internal.h"

namespace uxml {
namespace {

// Length of the stretch from p up to the next "/" or the end.
uint32_t stretch(const char *p) {
    const char *slash = ombr_string_strchr(p, '/');
    return slash ? static_cast<uint32_t>(slash - p) : length_of(p);
}

const char *data_at_path(const uxml_element *element, const char *path) {
    if (!element || !path) return nullptr;
    for (;;) {
        while (*path == '/') ++path;
        if (*path == '\0') return nullptr;
        uint32_t own = stretch(path);
        if (!element->name || element->name[0] == '\0' ||
            !buf_eq(element->name, length_of(element->name), path, own))
            return nullptr;
        const char *rest = path + own;
        if (rest[0] != '/' || rest[1] == '\0') return element->data;
        const char *next = rest + 1;
        uint32_t step = stretch(next);
        const char *after = next + step;
        if (after[0] == '\0' || (after[0] == '/' && after[1] == '\0')) {
            if (const uxml_attribute *attr = find_attribute(element, next, step)) return attr->value;
            const uxml_element *child = find_sub_element(element, next, step);
            return child ? child->data : nullptr;
        }
        element = find_sub_element(element, next, step);
        if (!element) return nullptr;
        path = next;  // now names the current element
    }
}

// One step of a path to set: a name with an optional "+" that forces a new
// element, then "/" or the end.
struct Step {
    const char *name = nullptr;
    uint32_t length = 0;
    bool force_new = false;
    const char *rest = nullptr;  // behind the step's "/"
};

enum StepState : uint32_t { kStart = 0, kNameStart = 1, kInName = 2, kPlus = 3, kEndOfStep = 4 };

bool read_step(const char *path, Step &step) {
    const char *p = path;
    uint32_t state = kStart;
    while (*p) {
        uint8_t c = static_cast<uint8_t>(*p);
        switch (state) {
            case kStart:
                if (c == '/') ++p;
                state = kNameStart;
                continue;
            case kNameStart:
                if (!is_name_byte(c)) return false;
                step.name = p;
                state = kInName;
                continue;
            case kInName:
                if (c == '/' || c == '+') {
                    state = c == '/' ? kEndOfStep : kPlus;
                    continue;
                }
                if (!is_name_byte(c)) return false;
                ++p;
                continue;
            case kPlus:  // tests the same "+" that ended the name
                step.length = static_cast<uint32_t>(p - step.name);
                step.force_new = true;
                ++p;
                state = kEndOfStep;
                continue;
            default:  // kEndOfStep
                if (c != '/') return false;
                if (!step.force_new) step.length = static_cast<uint32_t>(p - step.name);
                step.rest = p + 1;
                return true;
        }
    }
    if (step.name && state == kInName) step.length = static_cast<uint32_t>(p - step.name);
    step.rest = p;
    return true;
}
}  // namespace

uxml_element *sub_element_at_path(const uxml_element *element, const char *path) {
    const uxml_element *current = element;
    if (!path) return const_cast<uxml_element *>(current);
    while (current && *path) {
        const char *slash = ombr_string_strchr(path, '/');
        if (!slash) return find_sub_element(current, path, length_of(path));
        current = find_sub_element(current, path, static_cast<uint32_t>(slash - path));
        path = slash + 1;
    }
    return const_cast<uxml_element *>(current);
}

// The path is followed one step at a time, without recursion.
uint32_t set_value_at_path(uxml_element *element, const char *path, const char *value,
                           uxml_path_resolver_t resolver, void *resolver_data) {
    if (!element || !path || *path == '\0') return UXML_ERR_INVALID_ARG;
    for (;;) {
        Step step;
        if (!read_step(path, step)) return UXML_ERR_INVALID_ARG;
        const bool last = *step.rest == '\0';
        const char *name = step.name;
        uint32_t length = step.length;
        uint16_t kind = UXML_PATH_ELEMENT;
        if (resolver && !resolver(element, step.name, step.length, &name, &length, &kind, resolver_data))
            return UXML_ERR_RESOLVER;
        if (kind == UXML_PATH_ATTRIBUTE)
            return last ? set_attribute(element, name, length, value, length_of(value)) : 0;
        if (kind != UXML_PATH_ELEMENT) return 0;
        uxml_element *child = step.force_new ? nullptr : find_sub_element(element, name, length);
        if (child && last) return UXML_ERR_NOT_AVAILABLE;
        if (!child) {
            child = create_element(name, length, last ? value : nullptr, last ? length_of(value) : 0, false);
            if (!child) return 0;
            if (uint32_t status = add_sub_element(element, child)) {
                dispose_element(child);
                return status;
            }
        }
        if (last) return 0;
        element = child;
        path = step.rest;
    }
}
}  // namespace uxml

using namespace uxml;

OMBR_API uxml_element *uXMLGetSubElementAtPath(const uxml_element *element, const char *path) {
    return sub_element_at_path(element, path);
}

OMBR_API char *uXMLGetSubElementData(const uxml_element *element, const char *path) {
    return uXMLGetData(sub_element_at_path(element, path));
}

OMBR_API char *uXMLGetDataAtPath(const uxml_element *element, const char *path) {
    return const_cast<char *>(data_at_path(element, path));
}

OMBR_API uint32_t uXMLSetValueAtPath(uxml_element *element, const char *path, const char *value,
                                     uxml_path_resolver_t resolver, void *resolver_data) {
    return report(set_value_at_path(element, path, value, resolver, resolver_data));
}
