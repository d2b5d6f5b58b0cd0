// uXML element tree: element and attribute records, who owns which text,
// and the operations on them. Also the small wrappers of the base layer.
#include <stdint.h>

#include "ombr/ombr_string_printf.h"
#include "xml/ombr_xml_internal.h"

namespace uxml {
namespace {

// Room for a decimal 32-bit number with sign and terminator.
constexpr uint32_t kNumberBuffer = 32;

// Size of a record followed by texts, or 0 when it cannot be allocated.
size_t record_size(size_t record, uint64_t tail) {
    uint64_t total = record + tail;
    return total > SIZE_MAX ? 0 : static_cast<size_t>(total);
}

char *tail_of(void *record, size_t record_size) { return static_cast<char *>(record) + record_size; }

void dispose_attributes(uxml_element *element) {
    for (uxml_attribute *attr = element->attributes; attr;) {
        uxml_attribute *next = attr->next;
        dispose_attribute(attr);
        attr = next;
    }
    element->attributes = nullptr;
}

// Unlinks and disposes the first attribute of that name.
void remove_attribute(uxml_element *element, const char *name, uint32_t length) {
    for (uxml_attribute **link = &element->attributes; *link; link = &(*link)->next) {
        uxml_attribute *attr = *link;
        if (buf_eq(attr->name, length_of(attr->name), name, length)) {
            *link = attr->next;
            dispose_attribute(attr);
            return;
        }
    }
}

// Replaces an attribute of the same name, and appends at the end of the list.
void add_attribute(uxml_element *element, uxml_attribute *attr) {
    remove_attribute(element, attr->name, length_of(attr->name));
    uxml_attribute **link = &element->attributes;
    while (*link) link = &(*link)->next;
    *link = attr;
}

// Releases what the element's data fields hold and clears them.
void clear_data(uxml_element *element) {
    if (element->assumed) {
        if (element->release) element->release(element->data);
    } else if (element->owns_data) {
        xfree(element->data);
        xfree(element->cdata);
    }
    element->owns_data = 0;
    element->assumed = 0;
    element->data = nullptr;
    element->cdata = nullptr;
    element->cdata_size = 0;
}

bool valid_name(const char *name, uint32_t length) { return name && length != 0 && name[0] != '\0'; }

// The zero-terminated copy of bytes, or null.
char *copy_text(const void *bytes, uint32_t length) {
    auto *copy = static_cast<char *>(xalloc(size_t{length} + 1));
    if (!copy) return nullptr;
    copy_bytes(copy, bytes, length);
    copy[length] = '\0';
    return copy;
}

uxml_element *clone_element(const uxml_element *source, bool deep) {
    if (!source || !source->name) return nullptr;
    uxml_element *copy = create_element(source->name, length_of(source->name), source->data,
                                        length_of(source->data), false);
    if (!copy) return nullptr;
    uxml_attribute **tail = &copy->attributes;
    for (const uxml_attribute *attr = source->attributes; attr; attr = attr->next) {
        uxml_attribute *dup =
            create_attribute(attr->name, length_of(attr->name), attr->value, length_of(attr->value), true);
        if (!dup) {
            dispose_element(copy);
            return nullptr;
        }
        *tail = dup;
        tail = &dup->next;
    }
    if (deep) {
        for (uint32_t i = 0; i < source->element_count; ++i) {
            if (!source->elements[i]) continue;
            uxml_element *child = clone_element(source->elements[i], true);
            if (!child || add_sub_element(copy, child) != 0) {
                dispose_element(child);
                dispose_element(copy);
                return nullptr;
            }
        }
    }
    return copy;
}

template <typename T>
uint32_t format_number(T value, char (&buffer)[kNumberBuffer]) {
    if constexpr (sizeof(T) == 4 && static_cast<T>(-1) < 0)
        ombr_string_i32toa(value, buffer, kNumberBuffer);
    else
        ombr_string_u32toa(value, buffer, kNumberBuffer);
    return length_of(buffer);
}

uint32_t add_sub_element_from_text(uxml_element *element, uint32_t prior_status, const char *name,
                                   const char *value, uxml_element **out_element) {
    if (prior_status != 0) return prior_status;
    uxml_element *child = create_element(name, length_of(name), value, length_of(value), false);
    if (!child) return UXML_ERR_NO_MEMORY;
    if (add_sub_element(element, child) != 0) {
        dispose_element(child);  // nobody could reach it
        return 0;
    }
    if (out_element) *out_element = child;
    return 0;
}
}  // namespace

// A new attribute record; the name, and unless `value_inline` is false the
// value, follow it in the same allocation.
uxml_attribute *create_attribute(const char *name, uint32_t name_length, const char *value, uint32_t value_length,
                                 bool value_inline) {
    uint64_t tail = uint64_t{name_length} + 1 + (value_inline ? uint64_t{value_length} + 1 : 0);
    size_t size = record_size(sizeof(uxml_attribute), tail);
    auto *attr = size ? static_cast<uxml_attribute *>(xalloc(size)) : nullptr;
    if (!attr) return nullptr;
    attr->name = tail_of(attr, sizeof *attr);
    copy_bytes(attr->name, name, name_length);
    attr->name[name_length] = '\0';
    attr->next = nullptr;
    attr->owned = 0;
    attr->assumed = 0;
    attr->release = nullptr;
    if (value_inline) {
        attr->value = attr->name + name_length + 1;
        copy_bytes(attr->value, value, value_length);
        attr->value[value_length] = '\0';
    }
    return attr;
}

void dispose_attribute(uxml_attribute *attr) {
    if (attr->assumed) {
        if (attr->release) attr->release(attr->value);
    } else if (attr->owned) {
        xfree(attr->value);
    }
    xfree(attr);
}

uxml_element *create_element(const char *name, uint32_t name_length, const void *data, uint32_t data_length,
                             bool as_cdata) {
    if (!valid_name(name, name_length)) return nullptr;
    if (!data) data_length = 0;
    uint64_t tail = uint64_t{name_length} + 1 + (data_length ? uint64_t{data_length} + 1 : 0);
    size_t size = record_size(sizeof(uxml_element), tail);
    auto *element = size ? static_cast<uxml_element *>(xalloc(size)) : nullptr;
    if (!element) return nullptr;
    fill_bytes(element, 0, sizeof *element);
    element->name = tail_of(element, sizeof *element);
    copy_bytes(element->name, name, name_length);
    element->name[name_length] = '\0';
    if (data_length) {
        char *text = element->name + name_length + 1;
        copy_bytes(text, data, data_length);
        text[data_length] = '\0';
        if (as_cdata) {
            element->cdata = reinterpret_cast<uint8_t *>(text);
            element->cdata_size = data_length;
        } else {
            element->data = text;
        }
    }
    return element;
}

// Walks the tree without recursion: while an element's sub-elements are
// disposed, its attribute field (already emptied) links to its parent and
// its capacity field counts the sub-elements done.
void dispose_element(uxml_element *element) {
    if (!element) return;
    dispose_attributes(element);
    element->element_capacity = 0;
    uxml_element *current = element;
    while (current) {
        if (current->element_capacity < current->element_count) {
            uxml_element *child = current->elements[current->element_capacity++];
            if (!child) continue;
            dispose_attributes(child);
            child->attributes = reinterpret_cast<uxml_attribute *>(current);
            child->element_capacity = 0;
            current = child;
            continue;
        }
        uxml_element *parent = current == element ? nullptr : reinterpret_cast<uxml_element *>(current->attributes);
        xfree(current->elements);
        clear_data(current);
        xfree(current);
        current = parent;
    }
}

uxml_element *find_sub_element(const uxml_element *element, const char *name, uint32_t length) {
    if (!element || !name || length == 0) return nullptr;
    for (uint32_t i = 0; i < element->element_count; ++i) {
        uxml_element *child = element->elements[i];
        if (child && child->name && buf_eq(child->name, length_of(child->name), name, length)) return child;
    }
    return nullptr;
}

const uxml_attribute *find_attribute(const uxml_element *element, const char *name, uint32_t length) {
    if (!element || !name) return nullptr;
    for (const uxml_attribute *attr = element->attributes; attr; attr = attr->next)
        if (buf_eq(attr->name, length_of(attr->name), name, length)) return attr;
    return nullptr;
}

// Slots grow 4, 5, 6, 7, 8, 10, 12, 15, ...: a quarter more, at least 2.
uint32_t add_sub_element(uxml_element *element, uxml_element *sub_element) {
    if (!element || !sub_element) return UXML_ERR_INVALID_ARG;
    if (element->element_count >= element->element_capacity) {
        uint64_t count = element->element_count;
        uint64_t capacity = count == 0 ? 4 : count * 5 / 4;
        if (capacity == count) capacity = count + 2;
        uint64_t bytes = capacity * sizeof(uxml_element *);
        if (capacity > UINT32_MAX || bytes > SIZE_MAX) return UXML_ERR_NO_MEMORY;
        auto *slots = static_cast<uxml_element **>(xrealloc(element->elements, static_cast<size_t>(bytes)));
        if (!slots) return UXML_ERR_NO_MEMORY;
        fill_bytes(slots + count, 0, static_cast<size_t>((capacity - count) * sizeof(uxml_element *)));
        element->elements = slots;
        element->element_capacity = static_cast<uint32_t>(capacity);
    }
    element->elements[element->element_count++] = sub_element;
    return 0;
}

void remove_sub_element(uxml_element *element, uxml_element *sub_element, bool dispose) {
    if (!element || !sub_element) return;
    for (uint32_t i = 0; i < element->element_count; ++i) {
        if (element->elements[i] != sub_element) continue;
        uint32_t last = element->element_count - 1;
        move_bytes(element->elements + i, element->elements + i + 1, (last - i) * sizeof(uxml_element *));
        element->elements[last] = nullptr;
        element->element_count = last;
        if (dispose) dispose_element(sub_element);
        return;
    }
}

uint32_t set_attribute(uxml_element *element, const char *name, uint32_t name_length, const char *value,
                       uint32_t value_length) {
    if (!element || !valid_name(name, name_length)) return UXML_ERR_INVALID_ARG;
    if (!value || value_length == 0) {
        remove_attribute(element, name, name_length);
        return 0;
    }
    uxml_attribute *attr = create_attribute(name, name_length, value, value_length, true);
    if (!attr) return UXML_ERR_NO_MEMORY;
    add_attribute(element, attr);
    return 0;
}

uint32_t set_attribute_assumed(uxml_element *element, const char *name, uint32_t name_length, char *value) {
    if (!element || !valid_name(name, name_length)) return UXML_ERR_INVALID_ARG;
    if (!value) {
        remove_attribute(element, name, name_length);
        return 0;
    }
    uxml_attribute *attr = create_attribute(name, name_length, nullptr, 0, false);
    if (!attr) return UXML_ERR_NO_MEMORY;
    attr->value = value;
    attr->assumed = 1;
    attr->release = uXMLFree;
    add_attribute(element, attr);
    return 0;
}

uint32_t assume_data(uxml_element *element, char *data, uxml_release_t release) {
    if (!element) return UXML_ERR_INVALID_ARG;
    clear_data(element);
    element->data = data;
    element->assumed = 1;
    element->release = release;
    return 0;
}

namespace {
uint32_t set_data(uxml_element *element, const void *bytes, uint32_t length, bool as_cdata) {
    if (!element) return UXML_ERR_INVALID_ARG;
    clear_data(element);
    if (!bytes || length == 0 || *static_cast<const char *>(bytes) == '\0') return 0;
    element->owns_data = 1;
    char *copy = copy_text(bytes, length);
    if (!copy) return UXML_ERR_NO_MEMORY;
    if (as_cdata) {
        element->cdata = reinterpret_cast<uint8_t *>(copy);
        element->cdata_size = length;
    } else {
        element->data = copy;
    }
    return 0;
}

template <typename T>
uint32_t set_attribute_number(uxml_element *element, const char *name, T value) {
    char text[kNumberBuffer];
    uint32_t length = format_number(value, text);
    return set_attribute(element, name, length_of(name), text, length);
}

template <typename T>
uint32_t add_sub_element_number(uxml_element *element, uint32_t prior_status, const char *name, T value,
                                uxml_element **out_element) {
    if (prior_status != 0) return prior_status;
    char text[kNumberBuffer];
    format_number(value, text);
    return add_sub_element_from_text(element, 0, name, text, out_element);
}
}  // namespace
}  // namespace uxml

using namespace uxml;

// ---- Create and dispose -------------------------------------------------------

OMBR_API uxml_element *uXMLCreateEmptyElement(void) {
    auto *element = static_cast<uxml_element *>(xalloc(sizeof(uxml_element)));
    if (element) fill_bytes(element, 0, sizeof *element);
    return element;
}

OMBR_API uxml_element *uXMLCreateElementFromBuf(const char *name, uint32_t name_length, const char *data,
                                                uint32_t data_length) {
    return create_element(name, name_length, data, data_length, false);
}

OMBR_API uxml_element *uXMLCreateElementFromStr(const char *name, const char *data) {
    return create_element(name, length_of(name), data, length_of(data), false);
}

OMBR_API uxml_element *uXMLCreateElementFromBufCDATA(const char *name, uint32_t name_length, const void *bytes,
                                                     uint32_t byte_count) {
    return create_element(name, name_length, bytes, byte_count, true);
}

OMBR_API uxml_element *uXMLCloneElement(const uxml_element *element, uint8_t deep) {
    return clone_element(element, deep != 0);
}

OMBR_API void uXMLDisposeElement(uxml_element *element) { dispose_element(element); }

OMBR_API void uXMLSmartDisposeElement(uxml_element **element) {
    if (!element) return;
    dispose_element(*element);
    *element = nullptr;
}

// ---- Read ------------------------------------------------------------------------

OMBR_API char *uXMLGetName(const uxml_element *element) { return element ? element->name : nullptr; }

OMBR_API char *uXMLGetData(const uxml_element *element) { return element ? element->data : nullptr; }

OMBR_API uint32_t uXMLGetCDATA(const uxml_element *element, uint8_t **out_bytes, uint32_t *out_size) {
    if (!element || !element->cdata) return UXML_NOT_FOUND;
    if (out_bytes) *out_bytes = element->cdata;
    if (out_size) *out_size = element->cdata_size;
    return 0;
}

OMBR_API uint32_t uXMLGetSubElementCount(const uxml_element *element) {
    return element ? element->element_count : 0;
}

OMBR_API uint32_t uXMLGetAttrCount(const uxml_element *element) {
    uint32_t count = 0;
    if (element)
        for (const uxml_attribute *attr = element->attributes; attr; attr = attr->next) ++count;
    return count;
}

OMBR_API uxml_element *uXMLGetSubElement(const uxml_element *element, uint32_t index) {
    return element && index < element->element_count ? element->elements[index] : nullptr;
}

OMBR_API char *uXMLGetSubElementName(const uxml_element *element, uint32_t index) {
    return uXMLGetName(uXMLGetSubElement(element, index));
}

OMBR_API uxml_element *uXMLGetSubElementFromBuf(const uxml_element *element, const char *name, uint32_t length) {
    return find_sub_element(element, name, length);
}

OMBR_API uxml_element *uXMLGetSubElementFromStr(const uxml_element *element, const char *name) {
    return find_sub_element(element, name, length_of(name));
}

namespace {
const uxml_attribute *attribute_at(const uxml_element *element, uint32_t index) {
    const uxml_attribute *attr = element ? element->attributes : nullptr;
    for (; attr && index > 0; --index) attr = attr->next;
    return attr;
}
}  // namespace

OMBR_API char *uXMLGetAttrName(const uxml_element *element, uint32_t index) {
    const uxml_attribute *attr = attribute_at(element, index);
    return attr ? attr->name : nullptr;
}

OMBR_API char *uXMLGetAttrValue(const uxml_element *element, uint32_t index) {
    const uxml_attribute *attr = attribute_at(element, index);
    return attr ? attr->value : nullptr;
}

OMBR_API char *uXMLGetAttrFromBuf(const uxml_element *element, const char *name, uint32_t length) {
    const uxml_attribute *attr = find_attribute(element, name, length);
    return attr ? attr->value : nullptr;
}

OMBR_API char *uXMLGetAttrFromStr(const uxml_element *element, const char *name) {
    return uXMLGetAttrFromBuf(element, name, length_of(name));
}

// ---- Change ----------------------------------------------------------------------

OMBR_API uint32_t uXMLSetDataFromBuf(uxml_element *element, const char *bytes, uint32_t length) {
    return report(set_data(element, bytes, length, false));
}

OMBR_API uint32_t uXMLSetDataFromStr(uxml_element *element, const char *text) {
    return report(set_data(element, text, length_of(text), false));
}

OMBR_API uint32_t uXMLSetCDATAFromBuf(uxml_element *element, const void *bytes, uint32_t length) {
    return report(set_data(element, bytes, length, true));
}

OMBR_API uint32_t uXMLAssumeData(uxml_element *element, char *data, uxml_release_t release) {
    return report(assume_data(element, data, release));
}

OMBR_API uint32_t uXMLSetAttrFromBuf(uxml_element *element, const char *name, uint32_t name_length,
                                     const char *value, uint32_t value_length) {
    return report(set_attribute(element, name, name_length, value, value_length));
}

OMBR_API uint32_t uXMLSetAttrFromStr(uxml_element *element, const char *name, const char *value) {
    return report(set_attribute(element, name, length_of(name), value, length_of(value)));
}

OMBR_API uint32_t uXMLSetAttrFromInt(uxml_element *element, const char *name, int32_t value) {
    return report(set_attribute_number(element, name, value));
}

OMBR_API uint32_t uXMLSetAttrFromUInt(uxml_element *element, const char *name, uint32_t value) {
    return report(set_attribute_number(element, name, value));
}

OMBR_API uint32_t uXMLSetAttrFromBufAssumeValue(uxml_element *element, const char *name, uint32_t name_length,
                                                char *value) {
    return report(set_attribute_assumed(element, name, name_length, value));
}

OMBR_API uint32_t uXMLAddSubElement(uxml_element *element, uxml_element *sub_element) {
    return report(add_sub_element(element, sub_element));
}

OMBR_API void uXMLRemoveSubElement(uxml_element *element, uxml_element *sub_element, uint8_t dispose) {
    remove_sub_element(element, sub_element, dispose != 0);
}

OMBR_API void uXMLSetAttrFromStrChecked(uxml_element *element, uint32_t prior_status, const char *name,
                                        const char *value) {
    if (prior_status == 0) uXMLSetAttrFromStr(element, name, value);
}

OMBR_API void uXMLSetAttrFromIntChecked(uxml_element *element, uint32_t prior_status, const char *name,
                                        int32_t value) {
    if (prior_status == 0) uXMLSetAttrFromInt(element, name, value);
}

OMBR_API void uXMLSetAttrFromUIntChecked(uxml_element *element, uint32_t prior_status, const char *name,
                                         uint32_t value) {
    if (prior_status == 0) uXMLSetAttrFromUInt(element, name, value);
}

OMBR_API uint32_t uXMLAddSubElementFromStrChecked(uxml_element *element, uint32_t prior_status, const char *name,
                                                  const char *value, uxml_element **out_element) {
    return report(add_sub_element_from_text(element, prior_status, name, value, out_element));
}

OMBR_API uint32_t uXMLAddSubElementFromIntChecked(uxml_element *element, uint32_t prior_status, const char *name,
                                                  int32_t value, uxml_element **out_element) {
    return report(add_sub_element_number(element, prior_status, name, value, out_element));
}

OMBR_API uint32_t uXMLAddSubElementFromUIntChecked(uxml_element *element, uint32_t prior_status,
                                                   const char *name, uint32_t value, uxml_element **out_element) {
    return report(add_sub_element_number(element, prior_status, name, value, out_element));
}

OMBR_API uint32_t ElementNameHash(const char *bytes, uint32_t length) {
    return bytes ? name_hash(bytes, length) : 0;
}

// ---- Small wrappers of the base layer ----------------------------------------------

OMBR_API void *uXMLAlloc(uint32_t size) { return xalloc(size); }
OMBR_API void *uXMLRealloc(void *block, uint32_t size) { return xrealloc(block, size); }
OMBR_API void uXMLFree(void *block) { xfree(block); }
OMBR_API void *uXMLMemCpy(void *dest, const void *src, uint32_t size) {
    return ombr_memory_memcpy(dest, src, size);
}
OMBR_API uint32_t uXMLStrLen(const char *text) { return length_of(text); }
OMBR_API char *uXMLStrChr(const char *text, int32_t c) {
    return text ? ombr_string_strchr(text, static_cast<uint32_t>(c)) : nullptr;
}
OMBR_API char *uXMLIntToStr(int32_t value, char *buffer, uint32_t size) {
    return ombr_string_i32toa(value, buffer, size);
}
OMBR_API char *uXMLUIntToStr(uint32_t value, char *buffer, uint32_t size) {
    return ombr_string_u32toa(value, buffer, size);
}
OMBR_API int32_t uXMLIsSpace(int32_t c) { return ombr_string_isspace(c); }
OMBR_API int32_t uXMLIsDigit(int32_t c) { return ombr_string_isdigit(c); }
OMBR_API int32_t uXMLIsXDigit(int32_t c) { return ombr_string_isxdigit(c); }
OMBR_API int32_t uXMLIsLegalNameChar(int32_t c) {
    return c >= 0 && c <= 255 && is_name_byte(static_cast<uint8_t>(c));
}
OMBR_API char *uXMLMakeStr(const char *bytes, uint32_t length) {
    return bytes || length == 0 ? copy_text(bytes ? bytes : "", length) : nullptr;
}
OMBR_API char *uXMLMakeIntStr(int32_t value) {
    char text[kNumberBuffer];
    return copy_text(text, format_number(value, text));
}
OMBR_API char *uXMLMakeUIntStr(uint32_t value) {
    char text[kNumberBuffer];
    return copy_text(text, format_number(value, text));
}
OMBR_API uint8_t uXMLBufEq(const char *a, uint32_t a_length, const char *b, uint32_t b_length) {
    if (a_length != 0 && (!a || !b)) return 0;
    return buf_eq(a, a_length, b, b_length) ? 1 : 0;
}
