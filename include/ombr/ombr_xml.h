/*
 * uXML: a small XML library (element tree, scanner and event parser of an
 * XML subset, renderer, path helpers) and its package wrapper ombr_xml_*.
 *
 * Trees are plain data without locks: one thread at a time. Accessors give a
 * null or 0 result for a null argument. Statuses use package byte 0x0C;
 * memory comes from the base allocator through uXMLAlloc and uXMLFree.
 *
 * The accepted subset of XML:
 *  - an optional declaration "<?xml ... ?>" first (content skipped, encoding
 *    not acted on, bytes pass as they are);
 *  - names of ASCII letters, digits and "_" (plus what ombr_string_isalnum
 *    accepts in the current locale): ":" "-" "." give UXML_ERR_BAD_BYTE;
 *  - attribute values in double quotes only (a bare value of name bytes is
 *    accepted), any byte but '"' inside;
 *  - comments, also between attributes ("--" must be followed by ">");
 *  - no processing instructions, CDATA sections or DOCTYPE; entity
 *    references reach the callback raw (uXMLUnescapeSpecialCharacters).
 *  - text after ">" loses its leading whitespace and runs to the next "<";
 *    text after "/>" or a comment is cut into words like markup.
 * The parser stops at the end of the first element.
 *
 * Nesting is limited to UXML_MAX_DEPTH levels: a deeper element is refused
 * with UXML_ERR_SYNTAX. The parse itself runs in constant stack; at that
 * depth the recursive tree operations (render, clone) stay well inside a
 * 256 KiB thread stack. Trees built through the API are not limited, and
 * rendering or cloning one recurses once per level.
 */
#ifndef OMBR_XML_H
#define OMBR_XML_H

#include "ombr/ombr_base.h"
#include "ombr/ombr_iostream.h"

OMBR_BEGIN_DECLS

/* ---- Statuses ------------------------------------------------------------ */

#define UXML_ERR_INVALID_ARG 0x900C0001u
#define UXML_ERR_NO_MEMORY 0x900C0002u
#define UXML_NOT_FOUND 0x100C0003u /* soft */
#define UXML_ERR_NOT_INITIALIZED 0x900C0007u
#define UXML_ERR_NOT_AVAILABLE 0x900C000Bu /* "<!" that is no comment; an element that exists already */
#define UXML_ERR_SYNTAX 0x900C0120u        /* declaration, token order, end tag, comment end, nesting */
#define UXML_ERR_BAD_BYTE 0x900C0121u      /* a byte that cannot stand at its place */
#define UXML_ERR_CUT_DELIMITER 0x900C0122u /* internal to the scanner; never returned */
#define UXML_ERR_RESOLVER 0x900C0124u      /* a path resolver refused a step */

/* Deepest nesting of elements that the parser accepts (the root is level 1). */
#define UXML_MAX_DEPTH 1024u

/* Package byte and level of the wrapper's timing records. */
#define OMBR_PKG_XML_TIMING 0x35u

/* ---- Element tree ---------------------------------------------------------- */

typedef void (*uxml_release_t)(void *pointer);

typedef struct uxml_attribute {
    char *name;                  /* behind the record */
    char *value;                 /* behind the name, or a foreign allocation */
    struct uxml_attribute *next; /* list in order of addition */
    uint8_t owned;               /* never set; value would be freed with uXMLFree */
    uint8_t assumed;             /* value is foreign and release frees it */
    uxml_release_t release;
} uxml_attribute;

typedef struct uxml_element {
    char *name;     /* null only on an element from uXMLCreateEmptyElement */
    char *data;     /* character data, zero-terminated, or null */
    uint8_t *cdata; /* binary CDATA content, or null */
    uint32_t cdata_size;
    uxml_attribute *attributes;
    uint32_t element_count;
    uint32_t element_capacity;
    struct uxml_element **elements; /* owned sub-elements */
    uint8_t owns_data;              /* data and cdata are separate allocations */
    uint8_t assumed;                /* data is foreign, release frees it */
    uxml_release_t release;
} uxml_element;

/* Create and dispose. Name and initial data share the record's allocation. */
OMBR_API uxml_element *uXMLCreateEmptyElement(void);
OMBR_API uxml_element *uXMLCreateElementFromBuf(const char *name, uint32_t name_length, const char *data,
                                                uint32_t data_length);
OMBR_API uxml_element *uXMLCreateElementFromStr(const char *name, const char *data);
OMBR_API uxml_element *uXMLCreateElementFromBufCDATA(const char *name, uint32_t name_length, const void *bytes,
                                                     uint32_t byte_count);
/* Name, data and attributes, and with deep all sub-elements; never CDATA. */
OMBR_API uxml_element *uXMLCloneElement(const uxml_element *element, uint8_t deep);
OMBR_API void uXMLDisposeElement(uxml_element *element);
OMBR_API void uXMLSmartDisposeElement(uxml_element **element);

/* Read. Texts are borrowed from the element. */
OMBR_API char *uXMLGetName(const uxml_element *element);
OMBR_API char *uXMLGetData(const uxml_element *element);
/* 0 with the outputs set, or UXML_NOT_FOUND without CDATA. */
OMBR_API uint32_t uXMLGetCDATA(const uxml_element *element, uint8_t **out_bytes, uint32_t *out_size);
OMBR_API uint32_t uXMLGetSubElementCount(const uxml_element *element);
OMBR_API uint32_t uXMLGetAttrCount(const uxml_element *element);
OMBR_API uxml_element *uXMLGetSubElement(const uxml_element *element, uint32_t index);
OMBR_API char *uXMLGetSubElementName(const uxml_element *element, uint32_t index);
/* First sub-element of exactly that name (bytes, no case folding). */
OMBR_API uxml_element *uXMLGetSubElementFromBuf(const uxml_element *element, const char *name, uint32_t length);
OMBR_API uxml_element *uXMLGetSubElementFromStr(const uxml_element *element, const char *name);
OMBR_API char *uXMLGetAttrName(const uxml_element *element, uint32_t index);
OMBR_API char *uXMLGetAttrValue(const uxml_element *element, uint32_t index);
OMBR_API char *uXMLGetAttrFromBuf(const uxml_element *element, const char *name, uint32_t length);
OMBR_API char *uXMLGetAttrFromStr(const uxml_element *element, const char *name);

/* Change. An empty text or one that starts with a zero byte clears. */
OMBR_API uint32_t uXMLSetDataFromBuf(uxml_element *element, const char *bytes, uint32_t length);
OMBR_API uint32_t uXMLSetDataFromStr(uxml_element *element, const char *text);
OMBR_API uint32_t uXMLSetCDATAFromBuf(uxml_element *element, const void *bytes, uint32_t length);
/* Takes data over; release (may be null: then it is never freed) frees it. */
OMBR_API uint32_t uXMLAssumeData(uxml_element *element, char *data, uxml_release_t release);
/* A null or empty value removes the attribute; setting a name again moves it
 * to the end of the order. */
OMBR_API uint32_t uXMLSetAttrFromBuf(uxml_element *element, const char *name, uint32_t name_length,
                                     const char *value, uint32_t value_length);
OMBR_API uint32_t uXMLSetAttrFromStr(uxml_element *element, const char *name, const char *value);
OMBR_API uint32_t uXMLSetAttrFromInt(uxml_element *element, const char *name, int32_t value);
OMBR_API uint32_t uXMLSetAttrFromUInt(uxml_element *element, const char *name, uint32_t value);
/* Takes the value (from uXMLAlloc) over on success; on failure it stays the
 * caller's. */
OMBR_API uint32_t uXMLSetAttrFromBufAssumeValue(uxml_element *element, const char *name, uint32_t name_length,
                                                char *value);
/* The element owns the sub-element from then on. */
OMBR_API uint32_t uXMLAddSubElement(uxml_element *element, uxml_element *sub_element);
/* Without dispose, ownership goes back to the caller. */
OMBR_API void uXMLRemoveSubElement(uxml_element *element, uxml_element *sub_element, uint8_t dispose);

/* Do nothing unless prior_status is 0, so a chain needs one test at its end. */
OMBR_API void uXMLSetAttrFromStrChecked(uxml_element *element, uint32_t prior_status, const char *name,
                                        const char *value);
OMBR_API void uXMLSetAttrFromIntChecked(uxml_element *element, uint32_t prior_status, const char *name,
                                        int32_t value);
OMBR_API void uXMLSetAttrFromUIntChecked(uxml_element *element, uint32_t prior_status, const char *name,
                                         uint32_t value);
/* A non-zero prior status is returned unchanged. Otherwise a new element
 * from name and value is added; UXML_ERR_NO_MEMORY if it cannot be created.
 * If it cannot be added it is disposed and *out_element is not written. */
OMBR_API uint32_t uXMLAddSubElementFromStrChecked(uxml_element *element, uint32_t prior_status, const char *name,
                                                  const char *value, uxml_element **out_element);
OMBR_API uint32_t uXMLAddSubElementFromIntChecked(uxml_element *element, uint32_t prior_status, const char *name,
                                                  int32_t value, uxml_element **out_element);
OMBR_API uint32_t uXMLAddSubElementFromUIntChecked(uxml_element *element, uint32_t prior_status,
                                                   const char *name, uint32_t value, uxml_element **out_element);

/* h = c + (h << 6) + (h << 16) - h over the bytes, 32-bit; matches end tags. */
OMBR_API uint32_t ElementNameHash(const char *bytes, uint32_t length);

/* ---- Scanner and parser ------------------------------------------------------ */

/* Token kinds. */
#define UXML_TOKEN_EOF 1u
#define UXML_TOKEN_OPEN 2u
#define UXML_TOKEN_CLOSE 3u
#define UXML_TOKEN_END_OPEN 4u
#define UXML_TOKEN_EQUALS 5u
#define UXML_TOKEN_STRING 6u
#define UXML_TOKEN_SLASH 7u
#define UXML_TOKEN_EMPTY_CLOSE 8u

/* Events. */
#define UXML_EVENT_START 1u     /* "<" token, element name */
#define UXML_EVENT_ATTRIBUTE 2u /* attribute name, raw value (may be empty) */
#define UXML_EVENT_DATA 3u      /* raw text, null */
#define UXML_EVENT_END 4u       /* element name, ">" or "/>" */

/* Event callback. The texts point into the scan area, are valid during the
 * call only and are not zero-terminated. A non-zero result ends the parse
 * with that status. */
typedef uint32_t (*uxml_event_callback_t)(uint16_t event, void *user, const char *first, uint32_t first_length,
                                          const char *second, uint32_t second_length);

/* Scanner states (ScanBuffer.state). */
#define UXML_SCAN_MARKUP 0u
#define UXML_SCAN_AFTER_LT 1u
#define UXML_SCAN_CONTENT 2u
#define UXML_SCAN_NAME_START 3u
#define UXML_SCAN_NAME 4u
#define UXML_SCAN_QUOTE_START 5u
#define UXML_SCAN_QUOTED 6u
#define UXML_SCAN_TEXT_START 7u
#define UXML_SCAN_TEXT 8u
#define UXML_SCAN_AFTER_SLASH 9u
#define UXML_SCAN_COMMENT 10u

/* The scan area of one parse: the caller's memory in buffer mode, a sliding
 * buffer over a stream in stream mode. Tokens are offsets into `buffer`. */
typedef struct ScanBuffer {
    ombr_iostream_t stream; /* null in buffer mode */
    uint8_t at_end;         /* no more input can come */
    uint8_t *buffer;
    uint32_t capacity;
    uint32_t end; /* bytes of valid data */
    uint32_t pos;
    uint32_t state;
    uint32_t token; /* kind of the last token, 0 while none is ready */
    uint32_t token_start;
    uint32_t token_len;
    uint32_t mark_start; /* a token the parser still needs */
    uint32_t mark_len;
} ScanBuffer;

/* With a stream: stream mode, bytes and size 0. Without: bytes and size are
 * required (UXML_ERR_INVALID_ARG). */
OMBR_API uint32_t InitScanBuffer(ScanBuffer *scan, const void *bytes, uint32_t size, ombr_iostream_t stream);
OMBR_API void FreeScanBuffer(ScanBuffer *scan);
OMBR_API uint32_t ReadScanBuffer(ScanBuffer *scan);
OMBR_API uint32_t ParseXMLHeader(ScanBuffer *scan);
OMBR_API uint32_t GetNextToken(ScanBuffer *scan);
/* Parses one element with everything inside it (at most UXML_MAX_DEPTH
 * levels). */
OMBR_API uint32_t ParseXML(uxml_event_callback_t callback, void *user, ScanBuffer *scan);

/* Entries. A status whose low 16 bits are 0x49 (end of stream) becomes 0:
 * a stream that ends before the root has closed is no failure, and the
 * callback has then seen a partial document. In buffer mode the same input
 * gives UXML_ERR_SYNTAX. In buffer mode nothing is allocated. */
OMBR_API uint32_t uXMLParseBuf(const void *bytes, uint32_t size, uxml_event_callback_t callback, void *user);
OMBR_API uint32_t uXMLParseStr(const char *text, uxml_event_callback_t callback, void *user);
/* Pushes the bytes it read beyond the element back into the stream, so that
 * a stream can hold several documents one after the other. A comment
 * delimiter ("<!--", "-->") cut by the end of the bytes buffered so far is
 * not recognised in stream mode. */
OMBR_API uint32_t uXMLParseStream(ombr_iostream_t stream, uxml_event_callback_t callback, void *user);

/* Frame of the element stack that TreeHelper keeps; the user pointer of the
 * parse is the address of the pointer to the top frame. */
typedef struct uxml_tree_frame {
    struct uxml_tree_frame *prev;
    uxml_element *element;
} uxml_tree_frame;

/* Builds elements under the top frame's element: values and text unescaped,
 * an empty attribute value drops the attribute, a later text replaces an
 * earlier one. */
OMBR_API uint32_t TreeHelper(uint16_t event, void *user, const char *first, uint32_t first_length,
                             const char *second, uint32_t second_length);
/* A new tree (uXMLDisposeElement), or no element on failure. */
OMBR_API uint32_t uXMLParseBufToElement(const void *bytes, uint32_t size, uxml_element **out_element);
OMBR_API uint32_t uXMLParseStrToElement(const char *text, uxml_element **out_element);

/* ---- Rendering and escapes ------------------------------------------------- */

#define UXML_RENDER_BEGIN 1u  /* null, 0 */
#define UXML_RENDER_TEXT 2u   /* zero-terminated text, length 0 */
#define UXML_RENDER_BYTES 3u  /* bytes, count */
#define UXML_RENDER_FINISH 4u /* null, 0 */
#define UXML_RENDER_CDATA 5u  /* CDATA bytes, count */

/* Render callback; its result is not looked at. */
typedef uint32_t (*uxml_render_callback_t)(uint16_t event, void *user, const void *data, uint32_t length);

/* Growing output buffer of the renderer. */
typedef struct DynBuf {
    uint8_t *buffer;
    uint32_t used;
    uint32_t capacity;
} DynBuf;

/* Escape modes of RenderEscapedString: 1 writes the text as it is in one
 * piece, 0, 2 and 3 escape < > & ' " as entities, others write byte by
 * byte. */
#define UXML_ESCAPE_ATTRIBUTE 2u
#define UXML_ESCAPE_DATA 3u

OMBR_API void uXMLRender(const uxml_element *element, uxml_render_callback_t callback, void *user, uint8_t header,
                         uint8_t indent, uint8_t newlines);
OMBR_API void RenderElement(uxml_render_callback_t callback, void *user, const uxml_element *element,
                            uint32_t depth, uint8_t indent, uint8_t newlines, uint8_t skip_indent);
OMBR_API void RenderEscapedString(uxml_render_callback_t callback, void *user, const char *text, uint32_t mode);
/* The DynBuf sink: user is a DynBuf. CDATA goes out as <![CDATA[...]]>
 * unchecked, which the parser cannot read back. */
OMBR_API uint32_t DynBufHelper(uint16_t event, void *user, const void *data, uint32_t length);
/* Appends; on failure to grow the bytes are dropped. */
OMBR_API void DynBufAppend(DynBuf *buffer, const void *bytes, uint32_t length);
/* A new zero-terminated text (uXMLFree), or null. */
OMBR_API char *uXMLRenderToStrEx(const uxml_element *element, uint8_t header, uint8_t indent, uint8_t newlines);
OMBR_API char *uXMLRenderToStr(const uxml_element *element, uint8_t header);
/* The same text and its length without the final zero. */
OMBR_API uint32_t uXMLRenderToBufEx(const uxml_element *element, uint8_t header, uint8_t indent, uint8_t newlines,
                                   char **out_text, uint32_t *out_length);
/* Decodes &lt; &gt; &amp; &apos; &quot; and numeric references (&#N; and
 * &#xH;, written as UTF-8 of up to six bytes). With *capacity 0 a block of
 * length + 1 bytes is allocated into *output (uXMLFree) and the count
 * written goes back into *capacity; otherwise the caller's buffer of
 * *capacity bytes is used. Zero-terminated when room is left. */
OMBR_API uint32_t uXMLUnescapeSpecialCharacters(const char *source, uint32_t length, char **output,
                                                uint32_t *capacity);

/* ---- Paths ----------------------------------------------------------------- */

/* "a/b": sub-element b of sub-element a; empty or null path: the element. */
OMBR_API uxml_element *uXMLGetSubElementAtPath(const uxml_element *element, const char *path);
OMBR_API char *uXMLGetSubElementData(const uxml_element *element, const char *path);
/* The first step names the element itself; the last may name an attribute,
 * which wins over a sub-element of that name. */
OMBR_API char *uXMLGetDataAtPath(const uxml_element *element, const char *path);

/* Path resolver: maps a step's name and chooses its kind (1 sub-element,
 * 2 attribute). A zero result refuses the step (UXML_ERR_RESOLVER). */
#define UXML_PATH_ELEMENT 1u
#define UXML_PATH_ATTRIBUTE 2u
typedef uint8_t (*uxml_path_resolver_t)(uxml_element *element, const char *name, uint32_t name_length,
                                        const char **out_name, uint32_t *out_name_length, uint16_t *out_kind,
                                        void *resolver_data);
/* Creates what the path names; "name+" forces a new element. The value is
 * the data of the last element, or the attribute value. An existing last
 * element without "+" gives UXML_ERR_NOT_AVAILABLE. */
OMBR_API uint32_t uXMLSetValueAtPath(uxml_element *element, const char *path, const char *value,
                                     uxml_path_resolver_t resolver, void *resolver_data);

/* ---- Small wrappers of the base layer --------------------------------------- */

OMBR_API void *uXMLAlloc(uint32_t size);
OMBR_API void *uXMLRealloc(void *block, uint32_t size);
OMBR_API void uXMLFree(void *block);
OMBR_API void *uXMLMemCpy(void *dest, const void *src, uint32_t size);
OMBR_API uint32_t uXMLStrLen(const char *text);
OMBR_API char *uXMLStrChr(const char *text, int32_t c);
/* Decimal text into buffer (size bytes); returns buffer. */
OMBR_API char *uXMLIntToStr(int32_t value, char *buffer, uint32_t size);
OMBR_API char *uXMLUIntToStr(uint32_t value, char *buffer, uint32_t size);
OMBR_API int32_t uXMLIsSpace(int32_t c);
OMBR_API int32_t uXMLIsDigit(int32_t c);
OMBR_API int32_t uXMLIsXDigit(int32_t c);
/* ASCII letter or digit, "_", or what ombr_string_isalnum accepts. */
OMBR_API int32_t uXMLIsLegalNameChar(int32_t c);
/* New zero-terminated texts (uXMLFree). */
OMBR_API char *uXMLMakeStr(const char *bytes, uint32_t length);
OMBR_API char *uXMLMakeIntStr(int32_t value);
OMBR_API char *uXMLMakeUIntStr(uint32_t value);
/* True if lengths and bytes are equal. */
OMBR_API uint8_t uXMLBufEq(const char *a, uint32_t a_length, const char *b, uint32_t b_length);

/* ---- Package wrapper ----------------------------------------------------------
 * Plain forwards to the functions above, with the package's life cycle
 * (ombr_xml_initialize brings up memory, string and time), an init test
 * (UXML_ERR_NOT_INITIALIZED) on the parse and render entries that say so, the
 * error hook, and timing records "CNT|elapsed us|label|bytes|0xstatus|" at
 * package 0x35, level 8, when that level is enabled. */

OMBR_API uxml_element *ombr_xml_create_element(const char *name);
OMBR_API uxml_element *ombr_xml_create_element_from_str(const char *name, const char *data);
OMBR_API uxml_element *ombr_xml_create_element_from_buf(const char *name, const char *data, uint32_t length);
OMBR_API uxml_element *ombr_xml_create_element_from_buf_cdata(const char *name, const void *bytes, uint32_t length);
OMBR_API uxml_element *ombr_xml_clone_element(const uxml_element *element, uint8_t deep);
OMBR_API void ombr_xml_dispose_element(uxml_element *element);
OMBR_API void ombr_xml_smart_dispose_element(uxml_element **element);
OMBR_API char *ombr_xml_get_name(const uxml_element *element);
OMBR_API char *ombr_xml_get_data(const uxml_element *element);
/* The data with bytes 1 to 32 cut from both ends, in place. */
OMBR_API char *ombr_xml_get_data_trimmed(uxml_element *element);
OMBR_API uint32_t ombr_xml_set_data_from_buf(uxml_element *element, const char *bytes, uint32_t length);
OMBR_API uint32_t ombr_xml_set_cdata_from_buf(uxml_element *element, const void *bytes, uint32_t length);
OMBR_API uint32_t ombr_xml_assume_data(uxml_element *element, char *data, uxml_release_t release);
OMBR_API uint32_t ombr_xml_get_attr_count(const uxml_element *element);
/* 0 if the index holds an attribute, otherwise UXML_NOT_FOUND; the outputs
 * (either may be null) are written in both cases. */
OMBR_API uint32_t ombr_xml_get_attr(const uxml_element *element, char **out_name, char **out_value,
                                    uint32_t index);
OMBR_API char *ombr_xml_get_attr_from_str(const uxml_element *element, const char *name);
OMBR_API uint32_t ombr_xml_set_attr_from_str(uxml_element *element, const char *name, const char *value);
OMBR_API uint32_t ombr_xml_set_attr_from_int(uxml_element *element, const char *name, int32_t value);
OMBR_API uint32_t ombr_xml_set_attr_from_uint(uxml_element *element, const char *name, uint32_t value);
OMBR_API void ombr_xml_set_attr_from_str_checked(uxml_element *element, uint32_t prior_status, const char *name,
                                                 const char *value);
OMBR_API void ombr_xml_set_attr_from_int_checked(uxml_element *element, uint32_t prior_status, const char *name,
                                                 int32_t value);
OMBR_API void ombr_xml_set_attr_from_uint_checked(uxml_element *element, uint32_t prior_status, const char *name,
                                                  uint32_t value);
OMBR_API uint32_t ombr_xml_get_sub_element_count(const uxml_element *element);
OMBR_API uxml_element *ombr_xml_get_sub_element(const uxml_element *element, uint32_t index);
OMBR_API char *ombr_xml_get_sub_element_name(const uxml_element *element, uint32_t index);
/* Sub-elements named exactly name. */
OMBR_API uint32_t ombr_xml_get_named_sub_element_count(const uxml_element *element, const char *name);
OMBR_API uxml_element *ombr_xml_get_sub_element_from_buf(const uxml_element *element, const char *name,
                                                         uint32_t length);
OMBR_API uxml_element *ombr_xml_get_sub_element_from_str(const uxml_element *element, const char *name);
OMBR_API uint32_t ombr_xml_add_sub_element(uxml_element *element, uxml_element *sub_element);
OMBR_API void ombr_xml_remove_sub_element(uxml_element *element, uxml_element *sub_element, uint8_t dispose);
OMBR_API uint32_t ombr_xml_add_sub_element_from_str(uxml_element *element, const char *name, const char *value,
                                                    uxml_element **out_element);
OMBR_API uint32_t ombr_xml_add_sub_element_from_str_checked(uxml_element *element, uint32_t prior_status,
                                                            const char *name, const char *value,
                                                            uxml_element **out_element);
OMBR_API uint32_t ombr_xml_add_sub_element_from_uint(uxml_element *element, const char *name, uint32_t value,
                                                     uxml_element **out_element);
OMBR_API char *ombr_xml_get_sub_element_data(const uxml_element *element, const char *path);
OMBR_API uint32_t ombr_xml_set_value_at_path(uxml_element *element, const char *path, const char *value);

/* Need the package; timing records "xml parse buf", "xml parse str". */
OMBR_API uint32_t ombr_xml_parse_buf_to_element(const void *bytes, uint32_t size, uxml_element **out_element);
OMBR_API uint32_t ombr_xml_parse_str_to_element(const char *text, uxml_element **out_element);
OMBR_API uint32_t ombr_xml_parse_str_to_helper(const char *text, uxml_event_callback_t callback, void *user);
OMBR_API uint32_t ombr_xml_parse_buf_to_helper(const void *bytes, uint32_t size, uxml_event_callback_t callback,
                                               void *user);
/* Works without the package. */
OMBR_API uint32_t ombr_xml_parse_stream_to_helper(ombr_iostream_t stream, uxml_event_callback_t callback,
                                                  void *user);
OMBR_API uint32_t ombr_xml_unescape_str(const char *source, uint32_t length, char **output, uint32_t *capacity);
/* Works without the package; indent and line ends on. */
OMBR_API char *ombr_xml_render_to_str(const uxml_element *element, uint8_t header);
/* Null before the package is up; timing record "xml render". */
OMBR_API char *ombr_xml_render_to_str_ex(const uxml_element *element, uint8_t header, uint8_t indent,
                                         uint8_t newlines);
/* Timing record "xml render binary". */
OMBR_API uint32_t ombr_xml_render_to_buffer(const uxml_element *element, uint8_t header, uint8_t indent,
                                            uint8_t newlines, char **out_text, uint32_t *out_length);

OMBR_END_DECLS

#endif
