// uXML scanner and parser: a small explicit state machine cuts the input
// into tokens, over the caller's memory (buffer mode) or over a stream
// through a sliding buffer (stream mode), and the parser turns tokens into
// start, attribute, data and end events.
//
// Tokens are offsets into the scan area; nothing is copied and, in buffer
// mode, nothing is allocated. The parser keeps one name hash per open
// element in a fixed array instead of recursing, so its stack use does not
// grow with the nesting, which is limited to UXML_MAX_DEPTH.
#include <stddef.h>

#include "xml/ombr_xml_internal.h"

namespace uxml {
namespace {

constexpr uint32_t kFirstScanCapacity = 64;

// Delimiters cut by the end of the buffered bytes in stream mode, on this
// thread: where stream and buffer mode may part (see stream_cut_delimiters).
thread_local uint32_t t_stream_cut_delimiters = 0;

bool is_end_of_data(uint32_t status) { return OMBR_STATUS_VALUE(status) == OMBR_END_OF_DATA_VALUE; }

// End of stream before the root closed is no failure.
uint32_t end_of_data_is_success(uint32_t status) { return is_end_of_data(status) ? 0 : status; }

bool is_space(uint8_t c) { return is_space_byte(c); }

uint32_t init_scan_buffer(ScanBuffer *scan, const void *bytes, uint32_t size, ombr_iostream_t stream) {
    if (!scan) return UXML_ERR_INVALID_ARG;
    if (!stream && (!bytes || size == 0)) return UXML_ERR_INVALID_ARG;
    fill_bytes(scan, 0, sizeof *scan);
    scan->stream = stream;
    if (!stream) {
        scan->buffer = static_cast<uint8_t *>(const_cast<void *>(bytes));
        scan->capacity = size;
        scan->end = size;
        scan->at_end = 1;
    }
    return 0;
}

void free_scan_buffer(ScanBuffer *scan) {
    if (scan && scan->stream) {
        xfree(scan->buffer);
        scan->buffer = nullptr;
        scan->capacity = scan->end = scan->pos = 0;
    }
}

// Gets more input. In buffer mode, and once a stream has ended, the end
// shows as an EOF token. Otherwise the bytes from the older of token and
// mark on are moved to the front, the area doubles when full, and the
// stream fills the room behind the valid bytes.
__attribute__((noinline)) uint32_t read_scan_buffer(ScanBuffer *scan) {
    if (scan->at_end) {
        if (scan->token == 0) scan->token = UXML_TOKEN_EOF;
        return 0;
    }
    uint32_t keep = scan->token_start < scan->mark_start ? scan->token_start : scan->mark_start;
    if (keep != 0) {
        move_bytes(scan->buffer, scan->buffer + keep, scan->end - keep);
        scan->pos -= keep;
        scan->token_start -= keep;
        scan->mark_start -= keep;
        scan->end -= keep;
    }
    if (scan->end == scan->capacity) {
        if (scan->end > UINT32_MAX / 2) return UXML_ERR_NO_MEMORY;
        uint32_t capacity = scan->end ? scan->end * 2 : kFirstScanCapacity;
        auto *grown = static_cast<uint8_t *>(xrealloc(scan->buffer, capacity));
        if (!grown) return UXML_ERR_NO_MEMORY;
        scan->buffer = grown;
        scan->capacity = capacity;
    }
    uint32_t got = 0;
    uint32_t status = ombr_iostream_read(scan->stream, scan->buffer + scan->end, scan->capacity - scan->end, &got);
    if (status == 0) {
        scan->end += got;
        return 0;
    }
    if (is_end_of_data(status)) {
        scan->at_end = 1;
        return scan->pos < scan->end ? 0 : status;
    }
    return status;
}

// A token's place (start and length) is written and copied as one 8-byte
// word: the parser reads it right after the scanner wrote it, and two
// 4-byte stores read back by one 8-byte load stall the processor.
constexpr size_t kTokenPlace = offsetof(ScanBuffer, token_start);
constexpr size_t kMarkPlace = offsetof(ScanBuffer, mark_start);
static_assert(offsetof(ScanBuffer, token_len) == kTokenPlace + 4 && offsetof(ScanBuffer, mark_len) == kMarkPlace + 4);
struct Place {
    uint32_t start, length;
};
inline void set_place(ScanBuffer *scan, size_t at, uint32_t start, uint32_t length) {
    Place place{start, length};
    copy_bytes(reinterpret_cast<char *>(scan) + at, &place, sizeof place);
}

// Byte classes of markup, by table for ASCII; bytes from 0x80 on are asked
// of the string package (locale).
enum MarkupClass : uint8_t { kOther, kName, kSpace, kQuote, kSlash, kLess, kEquals, kGreater, kHigh };
struct MarkupClasses {
    uint8_t of[256];
    constexpr MarkupClasses() : of{} {
        for (int c = 0; c < 256; ++c) {
            uint8_t k = kByteClasses.table[c];
            of[c] = c >= 0x80 ? kHigh : (k & kNameByte) ? kName : (k & kSpaceByte) ? kSpace : kOther;
        }
        of[static_cast<int>('"')] = kQuote;
        of[static_cast<int>('/')] = kSlash;
        of[static_cast<int>('<')] = kLess;
        of[static_cast<int>('=')] = kEquals;
        of[static_cast<int>('>')] = kGreater;
    }
};
constexpr MarkupClasses kMarkup{};

inline uint8_t markup_class(uint8_t c) {
    uint8_t k = kMarkup.of[c];
    if (k != kHigh) return k;
    return ombr_string_isalnum(c) ? kName : ombr_string_isspace(c) ? kSpace : kOther;
}

// Scans from pos in the current state until a token is ready, a byte is
// refused, or the buffered bytes run out (the caller then reads). Each
// state is a label and each transition a direct jump; states that only
// pass over bytes consume whole runs. Leaving, `state` is the state the
// byte at pos is to be read in.
__attribute__((always_inline)) inline uint32_t scan_bytes(ScanBuffer *scan) {
    const uint8_t *const buf = scan->buffer;
    const uint32_t end = scan->end;
    uint32_t pos = scan->pos;
    uint32_t state = scan->state;
    uint32_t status = 0;
    auto emit = [scan](uint32_t kind, uint32_t start, uint32_t length) {
        scan->token = kind;
        set_place(scan, kTokenPlace, start, length);
    };
    // Moves pos to the next `byte` of the buffered bytes, or to their end.
    auto run_to = [buf, end, &pos](uint8_t byte) {
        auto *at = static_cast<const uint8_t *>(__builtin_memchr(buf + pos, byte, end - pos));
        pos = at ? static_cast<uint32_t>(at - buf) : end;
        return at != nullptr;
    };
    switch (state) {
        case UXML_SCAN_MARKUP: goto markup;
        case UXML_SCAN_AFTER_LT: goto after_lt;
        case UXML_SCAN_CONTENT: goto content;
        case UXML_SCAN_NAME_START: goto name_start;
        case UXML_SCAN_NAME: goto name;
        case UXML_SCAN_QUOTE_START: goto quote_start;
        case UXML_SCAN_QUOTED: goto quoted;
        case UXML_SCAN_TEXT_START: goto text_start;
        case UXML_SCAN_TEXT: goto text;
        case UXML_SCAN_AFTER_SLASH: goto after_slash;
        case UXML_SCAN_COMMENT: goto comment;
        default:
            status = UXML_ERR_NOT_AVAILABLE;
            goto out;
    }
markup:
    state = UXML_SCAN_MARKUP;
    for (;;) {
        if (pos == end) goto out;
        switch (markup_class(buf[pos])) {
            case kSpace: ++pos; continue;
            case kName: goto name_start;
            case kQuote: ++pos; goto quote_start;
            case kSlash: ++pos; goto after_slash;
            case kLess: ++pos; goto after_lt;
            case kEquals:
                emit(UXML_TOKEN_EQUALS, pos++, 1);
                goto out;
            case kGreater:
                emit(UXML_TOKEN_CLOSE, pos++, 1);
                state = UXML_SCAN_CONTENT;
                goto out;
            default:
                status = UXML_ERR_BAD_BYTE;
                goto out;
        }
    }
after_lt:
    state = UXML_SCAN_AFTER_LT;
    if (pos == end) goto out;
    if (buf[pos] == '!') {  // comment opener; its look-ahead sees buffered bytes only
        if (++pos == end) {
            status = UXML_ERR_CUT_DELIMITER;
            goto out;
        }
        if (buf[pos] != '-') {
            status = UXML_ERR_NOT_AVAILABLE;
            goto out;
        }
        if (++pos == end) {
            status = UXML_ERR_CUT_DELIMITER;
            goto out;
        }
        if (buf[pos] != '-') {
            status = UXML_ERR_SYNTAX;
            goto out;
        }
        ++pos;
        goto comment;
    }
    state = UXML_SCAN_MARKUP;
    if (buf[pos] == '/') {
        emit(UXML_TOKEN_END_OPEN, pos - 1, 2);
        ++pos;
    } else {
        emit(UXML_TOKEN_OPEN, pos - 1, 1);
    }
    goto out;
content:
    state = UXML_SCAN_CONTENT;
    for (;;) {
        if (pos == end) goto out;
        uint8_t c = buf[pos];
        if (c == '<') goto markup;
        if (!is_space_byte(c)) goto text_start;
        ++pos;
    }
name_start:
    state = UXML_SCAN_NAME_START;
    if (pos == end) goto out;
    if (!is_name_byte(buf[pos])) {
        status = UXML_ERR_BAD_BYTE;
        goto out;
    }
    scan->token_start = pos++;
name:
    state = UXML_SCAN_NAME;
    for (;;) {
        if (pos == end) goto out;
        if (!is_name_byte(buf[pos])) break;
        ++pos;
    }
    emit(UXML_TOKEN_STRING, scan->token_start, pos - scan->token_start);
    state = UXML_SCAN_MARKUP;
    goto out;
quote_start:
    state = UXML_SCAN_QUOTE_START;
    if (pos == end) goto out;
    if (buf[pos] == '"') {
        emit(UXML_TOKEN_STRING, scan->token_start, 0);
        ++pos;
        state = UXML_SCAN_MARKUP;
        goto out;
    }
    scan->token_start = pos++;
quoted:
    state = UXML_SCAN_QUOTED;
    if (!run_to('"')) goto out;
    emit(UXML_TOKEN_STRING, scan->token_start, pos - scan->token_start);
    ++pos;
    state = UXML_SCAN_MARKUP;
    goto out;
text_start:
    state = UXML_SCAN_TEXT_START;
    if (pos == end) goto out;
    if (buf[pos] == '<') {
        status = UXML_ERR_BAD_BYTE;
        goto out;
    }
    scan->token_start = pos++;
text:
    state = UXML_SCAN_TEXT;
    if (!run_to('<')) goto out;
    emit(UXML_TOKEN_STRING, scan->token_start, pos - scan->token_start);
    state = UXML_SCAN_MARKUP;
    goto out;
after_slash:
    state = UXML_SCAN_AFTER_SLASH;
    if (pos == end) goto out;
    state = UXML_SCAN_MARKUP;
    if (buf[pos] == '>') {
        emit(UXML_TOKEN_EMPTY_CLOSE, pos - 1, 2);
        ++pos;
    } else {
        emit(UXML_TOKEN_SLASH, pos - 1, 1);
    }
    goto out;
comment:
    state = UXML_SCAN_COMMENT;
    for (;;) {
        if (!run_to('-')) goto out;
        // Comment closer; its look-ahead sees buffered bytes only.
        if (++pos == end) {
            status = UXML_ERR_CUT_DELIMITER;
            goto out;
        }
        if (buf[pos] != '-') {
            ++pos;
            continue;
        }
        if (++pos == end) {
            status = UXML_ERR_CUT_DELIMITER;
            goto out;
        }
        if (buf[pos] != '>') {
            status = UXML_ERR_SYNTAX;
            goto out;
        }
        ++pos;
        goto markup;
    }
out:
    scan->pos = pos;
    scan->state = state;
    return status;
}

// The next token. When the buffered bytes run out before a token is ready,
// more are read, and the read's status replaces the scanner's: a delimiter
// cut by the end of the buffered bytes thus becomes an EOF token in buffer
// mode, and in stream mode scanning goes on in the same state. A token that
// is ready is returned without a read.
__attribute__((always_inline)) inline uint32_t next_token(ScanBuffer *scan) {
    scan->token = 0;
    uint32_t status = 0;
    for (;;) {
        if (scan->pos >= scan->end && scan->token == 0) status = read_scan_buffer(scan);
        if (status != 0 || scan->token != 0) return status;
        status = scan_bytes(scan);
        if (status == UXML_ERR_CUT_DELIMITER && scan->stream) ++t_stream_cut_delimiters;
    }
}

// Makes `count` bytes from pos on available. False when the input ends
// before; other read failures go to *status.
bool wait_for(ScanBuffer *scan, uint32_t count, uint32_t *status) {
    while (scan->end - scan->pos < count) {
        if (scan->at_end) return false;
        uint32_t read = read_scan_buffer(scan);
        if (read != 0) {
            if (!is_end_of_data(read)) *status = read;
            return false;
        }
    }
    return true;
}

// Skips an optional "<?xml ... ?>" declaration.
uint32_t parse_header(ScanBuffer *scan) {
    for (;;) {
        while (scan->pos < scan->end && is_space(scan->buffer[scan->pos])) ++scan->pos;
        if (scan->pos < scan->end) break;
        if (scan->at_end) return UXML_ERR_SYNTAX;
        if (uint32_t status = read_scan_buffer(scan)) return status;
    }
    if (scan->buffer[scan->pos] != '<') return UXML_ERR_SYNTAX;
    uint32_t status = 0;
    if (!wait_for(scan, 2, &status)) return status;  // a lone "<": no declaration
    if (scan->buffer[scan->pos + 1] != '?') return 0;
    if (!wait_for(scan, 6, &status)) return status ? status : UXML_ERR_SYNTAX;
    if (compare_bytes(scan->buffer + scan->pos + 2, "xml", 3) != 0) return UXML_ERR_SYNTAX;
    uint32_t question = 5;  // offset from pos; version and encoding are not looked at
    for (;;) {
        if (question < scan->end - scan->pos) {
            const uint8_t *from = scan->buffer + scan->pos + question;
            auto *found = static_cast<const uint8_t *>(
                __builtin_memchr(from, '?', scan->end - scan->pos - question));
            if (found) {
                question += static_cast<uint32_t>(found - from);
                break;
            }
            question = scan->end - scan->pos;
        }
        if (!wait_for(scan, question + 1, &status)) return status ? status : UXML_ERR_SYNTAX;
    }
    if (!wait_for(scan, question + 3, &status)) return status ? status : UXML_ERR_SYNTAX;
    if (scan->buffer[scan->pos + question + 1] != '>') return UXML_ERR_SYNTAX;
    scan->pos += question + 2;
    return 0;
}

inline void mark_token(ScanBuffer *scan) {
    copy_bytes(reinterpret_cast<char *>(scan) + kMarkPlace, reinterpret_cast<const char *>(scan) + kTokenPlace,
               sizeof(Place));
}

inline const char *text_at(const ScanBuffer *scan, uint32_t offset) {
    return reinterpret_cast<const char *>(scan->buffer) + offset;
}

// Parses one element and everything inside it: one step per token, with
// the name hashes of the open elements in a fixed array (the nesting limit
// keeps it small). Whenever it leaves, the last token becomes the mark.
// End tags match their start tags by name hash alone.
uint32_t parse_xml(uxml_event_callback_t callback, void *user, ScanBuffer *scan) {
    enum class Expect { kOpen, kElementName, kAttributes, kEquals, kValue, kContent, kEndName, kEndClose };
    using enum Expect;
    uint32_t hashes[UXML_MAX_DEPTH];
    uint32_t depth = 0;
    uint32_t status = 0;
    uint32_t name_offset = 0, name_length = 0;
    Expect expect = kOpen;
    bool pending = scan->token != 0;  // a token given by the caller
    for (;;) {
        if (!pending && (status = next_token(scan)) != 0) break;
        pending = false;
        const uint32_t token = scan->token;
        bool element_ends = false;
        switch (expect) {
            case kOpen:
                if (token != UXML_TOKEN_OPEN || depth == UXML_MAX_DEPTH) {
                    status = UXML_ERR_SYNTAX;
                    break;
                }
                mark_token(scan);
                expect = kElementName;
                continue;
            case kElementName:
                if (token != UXML_TOKEN_STRING || scan->token_len == 0) {
                    status = UXML_ERR_SYNTAX;
                    break;
                }
                hashes[depth++] = name_hash(text_at(scan, scan->token_start), scan->token_len);
                status = callback(UXML_EVENT_START, user, text_at(scan, scan->mark_start), scan->mark_len,
                                  text_at(scan, scan->token_start), scan->token_len);
                if (status != 0) break;
                mark_token(scan);
                expect = kAttributes;
                continue;
            case kAttributes:
                if (token == UXML_TOKEN_CLOSE) {
                    expect = kContent;
                    continue;
                }
                if (token == UXML_TOKEN_EMPTY_CLOSE) {
                    element_ends = true;
                    break;
                }
                if (token != UXML_TOKEN_STRING || scan->token_len == 0) {
                    status = UXML_ERR_SYNTAX;
                    break;
                }
                // The buffer may move while the value is read: keep the
                // name's place relative to the mark, which stays in it.
                name_offset = scan->token_start - scan->mark_start;
                name_length = scan->token_len;
                expect = kEquals;
                continue;
            case kEquals:
                if (token != UXML_TOKEN_EQUALS) {
                    status = UXML_ERR_SYNTAX;
                    break;
                }
                expect = kValue;
                continue;
            case kValue:
                if (token != UXML_TOKEN_STRING) {
                    status = UXML_ERR_SYNTAX;
                    break;
                }
                status = callback(UXML_EVENT_ATTRIBUTE, user, text_at(scan, scan->mark_start + name_offset),
                                  name_length, text_at(scan, scan->token_start), scan->token_len);
                if (status != 0) break;
                expect = kAttributes;
                continue;
            case kContent:
                if (token == UXML_TOKEN_STRING && scan->token_len != 0) {
                    status = callback(UXML_EVENT_DATA, user, text_at(scan, scan->token_start), scan->token_len,
                                      nullptr, 0);
                    if (status != 0) break;
                    continue;
                }
                if (token == UXML_TOKEN_OPEN) {  // a sub-element, its "<" pending
                    pending = true;
                    expect = kOpen;
                    continue;
                }
                if (token == UXML_TOKEN_END_OPEN) {
                    expect = kEndName;
                    continue;
                }
                status = UXML_ERR_SYNTAX;
                break;
            case kEndName:
                if (token != UXML_TOKEN_STRING ||
                    name_hash(text_at(scan, scan->token_start), scan->token_len) != hashes[depth - 1]) {
                    status = UXML_ERR_SYNTAX;
                    break;
                }
                mark_token(scan);
                expect = kEndClose;
                continue;
            case kEndClose:
                if (token != UXML_TOKEN_CLOSE) {
                    status = UXML_ERR_SYNTAX;
                    break;
                }
                element_ends = true;
                break;
        }
        if (!element_ends) break;  // a status ends the parse
        status = callback(UXML_EVENT_END, user, text_at(scan, scan->mark_start), scan->mark_len,
                          text_at(scan, scan->token_start), scan->token_len);
        if (status != 0 || --depth == 0) break;
        expect = kContent;
        mark_token(scan);
    }
    mark_token(scan);
    return status;
}

uint32_t parse_scan(ScanBuffer *scan, uxml_event_callback_t callback, void *user) {
    uint32_t status = parse_header(scan);
    if (status == 0) status = parse_xml(callback, user, scan);
    return status;
}

// ---- Tree building -------------------------------------------------------------

uint32_t tree_helper(uint16_t event, void *user, const char *first, uint32_t first_length, const char *second,
                     uint32_t second_length) {
    auto **top = static_cast<uxml_tree_frame **>(user);
    if (!top || !*top) return UXML_ERR_INVALID_ARG;
    uxml_tree_frame *frame = *top;
    switch (event) {
        case UXML_EVENT_START: {
            uxml_element *element = create_element(second, second_length, nullptr, 0, false);
            if (!element) return UXML_ERR_NO_MEMORY;
            auto *pushed = static_cast<uxml_tree_frame *>(xalloc(sizeof(uxml_tree_frame)));
            if (!pushed || add_sub_element(frame->element, element) != 0) {
                xfree(pushed);
                dispose_element(element);
                return UXML_ERR_NO_MEMORY;
            }
            pushed->prev = frame;
            pushed->element = element;
            *top = pushed;
            return 0;
        }
        case UXML_EVENT_ATTRIBUTE: {
            // An empty value allocates nothing, so the attribute is removed.
            char *value = nullptr;
            uint32_t capacity = 0;
            if (unescape(second, second_length, &value, &capacity) != 0) return 0;  // not reported
            uint32_t status = set_attribute_assumed(frame->element, first, first_length, value);
            if (status != 0) xfree(value);
            return status;
        }
        case UXML_EVENT_DATA: {
            char *text = nullptr;
            uint32_t capacity = 0;
            if (unescape(first, first_length, &text, &capacity) != 0 || !text) return 0;  // not reported
            return assume_data(frame->element, text, uXMLFree);
        }
        case UXML_EVENT_END:
            if (!frame->prev) return UXML_ERR_INVALID_ARG;  // the caller's bottom frame stays
            *top = frame->prev;
            xfree(frame);
            return 0;
        default:
            return 0;
    }
}
}  // namespace

uint32_t stream_cut_delimiters() { return t_stream_cut_delimiters; }

uint32_t parse_buf(const void *bytes, uint32_t size, uxml_event_callback_t callback, void *user) {
    if (!bytes || size == 0 || !callback) return UXML_ERR_INVALID_ARG;
    ScanBuffer scan;
    uint32_t status = init_scan_buffer(&scan, bytes, size, nullptr);
    if (status == 0) status = parse_scan(&scan, callback, user);
    free_scan_buffer(&scan);
    return end_of_data_is_success(status);
}

uint32_t parse_stream(ombr_iostream_t stream, uxml_event_callback_t callback, void *user) {
    if (!stream || !callback) return UXML_ERR_INVALID_ARG;
    ScanBuffer scan;
    uint32_t status = init_scan_buffer(&scan, nullptr, 0, stream);
    if (status == 0) status = parse_scan(&scan, callback, user);
    // What was read beyond the element goes back for the next reader.
    if (scan.pos < scan.end) {
        uint32_t putback = ombr_iostream_putback(stream, scan.buffer + scan.pos, scan.end - scan.pos);
        if (status == 0 || is_end_of_data(status)) status = putback ? putback : status;
    }
    free_scan_buffer(&scan);
    return end_of_data_is_success(status);
}

uint32_t parse_buf_to_element(const void *bytes, uint32_t size, uxml_element **out_element) {
    if (!bytes || size == 0 || !out_element) return UXML_ERR_INVALID_ARG;
    *out_element = nullptr;
    uxml_element *root = uXMLCreateEmptyElement();
    if (!root) return UXML_ERR_NO_MEMORY;
    uint32_t status = build_tree(bytes, size, root);
    if (status == 0 && root->element_count > 0) {
        *out_element = root->elements[0];
        remove_sub_element(root, root->elements[0], false);
    }
    dispose_element(root);  // all that was built, if the parse failed
    return status;
}
}  // namespace uxml

using namespace uxml;

OMBR_API uint32_t InitScanBuffer(ScanBuffer *scan, const void *bytes, uint32_t size, ombr_iostream_t stream) {
    return report(init_scan_buffer(scan, bytes, size, stream));
}

OMBR_API void FreeScanBuffer(ScanBuffer *scan) { free_scan_buffer(scan); }

OMBR_API uint32_t ReadScanBuffer(ScanBuffer *scan) {
    if (!scan) return report(UXML_ERR_INVALID_ARG);
    return report(read_scan_buffer(scan));
}

OMBR_API uint32_t ParseXMLHeader(ScanBuffer *scan) {
    if (!scan) return report(UXML_ERR_INVALID_ARG);
    return report(parse_header(scan));
}

OMBR_API uint32_t GetNextToken(ScanBuffer *scan) {
    if (!scan) return report(UXML_ERR_INVALID_ARG);
    return report(next_token(scan));
}

OMBR_API uint32_t ParseXML(uxml_event_callback_t callback, void *user, ScanBuffer *scan) {
    if (!callback || !scan) return report(UXML_ERR_INVALID_ARG);
    return report(parse_xml(callback, user, scan));
}

OMBR_API uint32_t uXMLParseBuf(const void *bytes, uint32_t size, uxml_event_callback_t callback, void *user) {
    return report(parse_buf(bytes, size, callback, user));
}

OMBR_API uint32_t uXMLParseStr(const char *text, uxml_event_callback_t callback, void *user) {
    if (!text) return report(UXML_ERR_INVALID_ARG);
    return report(parse_buf(text, length_of(text), callback, user));
}

OMBR_API uint32_t uXMLParseStream(ombr_iostream_t stream, uxml_event_callback_t callback, void *user) {
    return report(parse_stream(stream, callback, user));
}

OMBR_API uint32_t TreeHelper(uint16_t event, void *user, const char *first, uint32_t first_length,
                             const char *second, uint32_t second_length) {
    return report(tree_helper(event, user, first, first_length, second, second_length));
}

OMBR_API uint32_t uXMLParseBufToElement(const void *bytes, uint32_t size, uxml_element **out_element) {
    return report(parse_buf_to_element(bytes, size, out_element));
}

OMBR_API uint32_t uXMLParseStrToElement(const char *text, uxml_element **out_element) {
    if (!text) return report(UXML_ERR_INVALID_ARG);
    return report(parse_buf_to_element(text, length_of(text), out_element));
}
