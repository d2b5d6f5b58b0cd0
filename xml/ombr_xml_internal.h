// Shared internals of uXML. The exported entry points wrap these hidden
// functions, so that calls inside the library never bind to a same-named
// symbol of the application (several uXML names are not prefixed).
#ifndef OMBR_XML_INTERNAL_H
#define OMBR_XML_INTERNAL_H

#include "ombr/ombr_string.h"
#include "ombr/ombr_xml.h"
#include "platform/ombr_frame.h"

namespace uxml {

constexpr const char *kUnit = "ombr_xml";

// Passes a failing status through the error hook with the caller's line.
inline uint32_t report(uint32_t status, std::source_location where = std::source_location::current()) {
    return ombr::error_exit(status, where.line(), kUnit);
}

inline void *xalloc(size_t size) { return ombr_memory_alloc(size); }
inline void *xrealloc(void *block, size_t size) { return ombr_memory_realloc(block, size); }
inline void xfree(void *block) { ombr_memory_free(block); }

// Lengths, copies and compares on the hot paths are left to the compiler,
// which inlines the short ones: a call into another library for each name
// or value would cost more than the work.
inline uint32_t length_of(const char *text) { return text ? static_cast<uint32_t>(__builtin_strlen(text)) : 0; }
inline void copy_bytes(void *dest, const void *src, size_t size) { __builtin_memcpy(dest, src, size); }
inline void move_bytes(void *dest, const void *src, size_t size) { __builtin_memmove(dest, src, size); }
inline void fill_bytes(void *dest, int byte, size_t size) { __builtin_memset(dest, byte, size); }
inline int compare_bytes(const void *a, const void *b, size_t size) { return __builtin_memcmp(a, b, size); }

// Byte classes of the scanner: ASCII by table, other bytes through the
// string package, so that a single-byte locale is honoured as before.
enum : uint8_t { kNameByte = 1, kSpaceByte = 2 };
struct ByteClasses {
    uint8_t table[256];
    constexpr ByteClasses() : table{} {
        for (int c = 'a'; c <= 'z'; ++c) table[c] = kNameByte;
        for (int c = 'A'; c <= 'Z'; ++c) table[c] = kNameByte;
        for (int c = '0'; c <= '9'; ++c) table[c] = kNameByte;
        table[static_cast<int>('_')] = kNameByte;
        constexpr char kSpaces[] = " \t\n\v\f\r";
        for (int i = 0; kSpaces[i]; ++i) table[static_cast<unsigned char>(kSpaces[i])] = kSpaceByte;
    }
};
inline constexpr ByteClasses kByteClasses{};

inline bool is_name_byte(uint8_t c) {
    return (kByteClasses.table[c] & kNameByte) || (c >= 0x80 && ombr_string_isalnum(c));
}
inline bool is_space_byte(uint8_t c) {
    return (kByteClasses.table[c] & kSpaceByte) || (c >= 0x80 && ombr_string_isspace(c));
}

inline bool buf_eq(const char *a, uint32_t a_length, const char *b, uint32_t b_length) {
    return a_length == b_length && (a_length == 0 || compare_bytes(a, b, a_length) == 0);
}

inline uint32_t name_hash(const char *bytes, uint32_t length) {
    uint32_t h = 0;
    for (uint32_t i = 0; i < length; ++i) h = static_cast<uint8_t>(bytes[i]) + (h << 6) + (h << 16) - h;
    return h;
}

// Tree (ombr_xml.cpp).
uxml_attribute *create_attribute(const char *name, uint32_t name_length, const char *value, uint32_t value_length,
                                 bool value_inline);
void dispose_attribute(uxml_attribute *attr);
uxml_element *create_element(const char *name, uint32_t name_length, const void *data, uint32_t data_length,
                             bool as_cdata);
void dispose_element(uxml_element *element);
uxml_element *find_sub_element(const uxml_element *element, const char *name, uint32_t length);
const uxml_attribute *find_attribute(const uxml_element *element, const char *name, uint32_t length);
uint32_t add_sub_element(uxml_element *element, uxml_element *sub_element);
void remove_sub_element(uxml_element *element, uxml_element *sub_element, bool dispose);
uint32_t set_attribute(uxml_element *element, const char *name, uint32_t name_length, const char *value,
                       uint32_t value_length);
uint32_t set_attribute_assumed(uxml_element *element, const char *name, uint32_t name_length, char *value);
uint32_t assume_data(uxml_element *element, char *data, uxml_release_t release);

// Parser (ombr_xml_parse.cpp).
uint32_t parse_buf(const void *bytes, uint32_t size, uxml_event_callback_t callback, void *user);
uint32_t parse_stream(ombr_iostream_t stream, uxml_event_callback_t callback, void *user);
uint32_t parse_buf_to_element(const void *bytes, uint32_t size, uxml_element **out_element);
// How many comment delimiters this thread's stream-mode scans have seen cut
// by the end of the buffered bytes so far (stream and buffer mode can only
// disagree on a document where this count moves).
uint32_t stream_cut_delimiters();

// Tree builder of uXMLParseBufToElement (ombr_xml_build.cpp).
uint32_t build_tree(const void *bytes, uint32_t size, uxml_element *root);

// Rendering (ombr_xml_render.cpp).
uint32_t render_to_buf(const uxml_element *element, bool header, bool indent, bool newlines, char **out_text,
                       uint32_t *out_length);
uint32_t unescape(const char *source, uint32_t length, char **output, uint32_t *capacity);

// Paths (ombr_xml_path.cpp).
uxml_element *sub_element_at_path(const uxml_element *element, const char *path);
uint32_t set_value_at_path(uxml_element *element, const char *path, const char *value,
                           uxml_path_resolver_t resolver, void *resolver_data);

}  // namespace uxml

#endif
