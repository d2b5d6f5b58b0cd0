// uXML rendering: an element tree out as XML text through a callback, the
// DynBuf sink that collects it in memory, and the reverse of the escaping.
//
// The render walk is one template over its sink. With a caller's callback
// every piece is an event, as the callback expects; the DynBuf sink used by
// the RenderTo* entries appends runs of plain bytes in one copy when they
// fit, and otherwise byte by byte through DynBufAppend, so that its output
// and its growth are exactly those of the event-by-event path.
#include "xml/ombr_xml_internal.h"

namespace uxml {
namespace {

constexpr char kHeader[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>";
constexpr uint32_t kFirstCapacity = 1024;

// Entity of a byte that the escaping modes replace, or null.
// `stop` marks the bytes that end a run of plain bytes: the terminator,
// and in the escaping modes the five that become entities.
struct EscapeTable {
    const char *entity[256];
    uint8_t special[256];
    uint8_t stop[2][256];  // [escaping]
    constexpr EscapeTable() : entity{}, special{}, stop{} {
        entity[static_cast<int>('<')] = "&lt;";
        entity[static_cast<int>('>')] = "&gt;";
        entity[static_cast<int>('&')] = "&amp;";
        entity[static_cast<int>('\'')] = "&apos;";
        entity[static_cast<int>('"')] = "&quot;";
        for (int c = 0; c < 256; ++c) special[c] = stop[1][c] = entity[c] != nullptr;
        stop[0][0] = stop[1][0] = 1;
    }
};
constexpr EscapeTable kEscapes{};

bool is_escaping_mode(uint32_t mode) { return mode == 0 || mode == 2 || mode == 3; }

void dynbuf_append(DynBuf *out, const void *bytes, uint32_t length) {
    if (!out || !bytes || length == 0) return;
    if (out->capacity - out->used < length) {
        uint64_t capacity = out->capacity ? out->capacity : kFirstCapacity;
        while (capacity - out->used < length) capacity *= 2;
        if (capacity > UINT32_MAX) return;
        auto *grown = static_cast<uint8_t *>(xrealloc(out->buffer, static_cast<size_t>(capacity)));
        if (!grown) return;  // dropped; the render goes on
        out->buffer = grown;
        out->capacity = static_cast<uint32_t>(capacity);
    }
    copy_bytes(out->buffer + out->used, bytes, length);
    out->used += length;
}

uint32_t dynbuf_event(uint16_t event, DynBuf *out, const void *data, uint32_t length) {
    static constexpr char kCdataOpen[] = "<![CDATA[";
    static constexpr char kCdataClose[] = "]]>";
    static constexpr uint8_t kZero = 0;
    switch (event) {
        case UXML_RENDER_TEXT:
            if (data) dynbuf_append(out, data, length_of(static_cast<const char *>(data)));
            break;
        case UXML_RENDER_BYTES:
            dynbuf_append(out, data, length);
            break;
        case UXML_RENDER_CDATA:
            dynbuf_append(out, kCdataOpen, sizeof kCdataOpen - 1);
            dynbuf_append(out, data, length);
            dynbuf_append(out, kCdataClose, sizeof kCdataClose - 1);
            break;
        case UXML_RENDER_FINISH:
            dynbuf_append(out, &kZero, 1);
            break;
        default:
            break;
    }
    return 0;
}

// Sink that fires the caller's callback for every piece.
class CallbackSink {
   public:
    CallbackSink(uxml_render_callback_t callback, void *user) : callback_(callback), user_(user) {}
    void event(uint16_t kind, const void *data, uint32_t length) { callback_(kind, user_, data, length); }
    void text(const char *text) { event(UXML_RENDER_TEXT, text, 0); }
    template <size_t N>
    void mark(const char (&text)[N]) {
        event(UXML_RENDER_TEXT, text, 0);
    }
    void escaped(const char *text, uint32_t mode) {
        if (mode == 1) {
            this->text(text);
            return;
        }
        const bool escaping = is_escaping_mode(mode);
        for (const char *p = text; *p; ++p) {
            const char *entity = escaping ? kEscapes.entity[static_cast<uint8_t>(*p)] : nullptr;
            if (entity)
                event(UXML_RENDER_TEXT, entity, 0);
            else
                event(UXML_RENDER_BYTES, p, 1);
        }
    }
    void cdata(const uint8_t *bytes, uint32_t size) { event(UXML_RENDER_CDATA, bytes, size); }

   private:
    uxml_render_callback_t callback_;
    void *user_;
};

// Sink that appends to a DynBuf directly.
class DynBufSink {
   public:
    explicit DynBufSink(DynBuf *out) : out_(out) {}
    void event(uint16_t kind, const void *data, uint32_t length) {
        uint32_t before = out_->used;
        dynbuf_event(kind, out_, data, length);
        if (kind == UXML_RENDER_FINISH) terminated_ = out_->used > before;
    }
    // Whether the final zero of the render was stored.
    bool terminated() const { return terminated_; }
    // One TEXT event: stored whole or, if the buffer cannot grow, dropped
    // whole. Copied while it is measured, as names and marks are short.
    void text(const char *text) {
        if (out_->buffer) {
            uint8_t *dst = out_->buffer + out_->used;
            uint8_t *const limit = out_->buffer + out_->capacity;
            const char *p = text;
            while (*p && dst < limit) *dst++ = static_cast<uint8_t>(*p++);
            if (!*p) {
                out_->used = static_cast<uint32_t>(dst - out_->buffer);
                return;
            }
        }
        dynbuf_append(out_, text, length_of(text));
    }
    // A fixed piece of markup: one TEXT event of known length.
    template <size_t N>
    void mark(const char (&text)[N]) {
        constexpr uint32_t length = N - 1;
        if (out_->buffer && out_->capacity - out_->used >= length) {
            copy_bytes(out_->buffer + out_->used, text, length);
            out_->used += length;
        } else {
            dynbuf_append(out_, text, length);
        }
    }
    // The event path writes an entity as one TEXT and every other byte as
    // its own BYTES event, so plain bytes are copied while there is room
    // and one byte goes through DynBufAppend (growth, or a drop) otherwise.
    void escaped(const char *text, uint32_t mode) {
        if (mode == 1) {
            this->text(text);
            return;
        }
        const bool escaping = is_escaping_mode(mode);
        const uint8_t *const stop = kEscapes.stop[escaping];
        const uint8_t *p = reinterpret_cast<const uint8_t *>(text);
        for (;;) {
            if (out_->buffer) {
                uint8_t *dst = out_->buffer + out_->used;
                uint8_t *const limit = out_->buffer + out_->capacity;
                while (dst < limit && !stop[*p]) *dst++ = *p++;
                out_->used = static_cast<uint32_t>(dst - out_->buffer);
            }
            const uint8_t c = *p;
            if (c == 0) return;
            if (escaping && kEscapes.special[c]) {
                this->text(kEscapes.entity[c]);
            } else {
                dynbuf_append(out_, p, 1);
            }
            ++p;
        }
    }
    void cdata(const uint8_t *bytes, uint32_t size) { dynbuf_event(UXML_RENDER_CDATA, out_, bytes, size); }

   private:
    DynBuf *out_;
    bool terminated_ = false;
};

template <typename Sink>
void do_indentation(Sink &sink, uint32_t depth) {
    for (uint32_t i = 0; i < depth; ++i) sink.mark("  ");
}

template <typename Sink>
void render_element(Sink &sink, const uxml_element *element, uint32_t depth, bool indent, bool newlines,
                    bool skip_indent);

template <typename Sink>
void render_sub_elements(Sink &sink, const uxml_element *element, uint32_t depth, bool indent, bool newlines,
                         bool skip_first) {
    for (uint32_t i = 0; i < element->element_count; ++i) {
        // A parsed tree lies scattered in memory: fetch the next sibling
        // while this one is written.
        if (i + 1 < element->element_count) __builtin_prefetch(element->elements[i + 1]);
        if (element->elements[i])
            render_element(sink, element->elements[i], depth, indent, newlines, skip_first && i == 0);
    }
}

template <typename Sink>
void render_element(Sink &sink, const uxml_element *element, uint32_t depth, bool indent, bool newlines,
                    bool skip_indent) {
    const char *name = element->name ? element->name : "";
    const bool has_content = element->data || element->cdata;
    if (indent && !skip_indent) do_indentation(sink, depth);
    sink.mark("<");
    sink.text(name);
    for (const uxml_attribute *attr = element->attributes; attr; attr = attr->next) {
        sink.mark(" ");
        sink.text(attr->name);
        sink.mark("=\"");
        if (attr->value) sink.escaped(attr->value, UXML_ESCAPE_ATTRIBUTE);
        sink.mark("\"");
    }
    if (element->element_count == 0 && !has_content) {
        sink.mark("/>");
    } else {
        sink.mark(">");
        if (element->element_count == 0) {
            if (element->data)
                sink.escaped(element->data, UXML_ESCAPE_DATA);
            else
                sink.cdata(element->cdata, element->cdata_size);
        } else {
            bool skip = true;
            if (element->data) {
                sink.escaped(element->data, UXML_ESCAPE_DATA);
            } else if (element->cdata) {
                sink.cdata(element->cdata, element->cdata_size);
            } else {
                if (newlines) sink.mark("\n");
                skip = false;
            }
            render_sub_elements(sink, element, depth + 1, indent, newlines, skip);
            if (indent) do_indentation(sink, depth);
        }
        sink.mark("</");
        sink.text(name);
        sink.mark(">");
    }
    if (newlines) sink.mark("\n");
}

template <typename Sink>
void render(Sink &sink, const uxml_element *element, bool header, bool indent, bool newlines) {
    sink.event(UXML_RENDER_BEGIN, nullptr, 0);
    if (header) {
        sink.mark(kHeader);
        if (newlines) sink.mark("\n");
    }
    render_element(sink, element, 0, indent, newlines, false);
    sink.event(UXML_RENDER_FINISH, nullptr, 0);
}

// Appends one numeric reference's value as UTF-8 in the six-byte form.
// Returns the bytes written, 0 for a value above 0x7FFFFFFF (or no room).
uint32_t write_utf8(uint32_t value, char *out, uint32_t room) {
    uint32_t count = value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : value < 0x200000 ? 4
                   : value < 0x4000000 ? 5 : value <= 0x7FFFFFFF ? 6 : 0;
    if (count == 0 || count > room) return 0;
    if (count == 1) {
        out[0] = static_cast<char>(value);
        return 1;
    }
    static constexpr uint8_t kLead[7] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
    for (uint32_t i = count - 1; i > 0; --i) {
        out[i] = static_cast<char>(0x80 | (value & 0x3F));
        value >>= 6;
    }
    out[0] = static_cast<char>(kLead[count] | value);
    return count;
}

// Reads "&#N;" or "&#xH;" at p. Returns the bytes it spans (0 if there is
// no reference) and its value, wrapped to 32 bits.
uint32_t numeric_reference(const char *p, const char *end, uint32_t &value) {
    if (end - p < 4 || p[0] != '&' || p[1] != '#') return 0;
    const char *q = p + 2;
    uint32_t base = 10;
    if (*q == 'x') {
        base = 16;
        ++q;
    }
    value = 0;
    for (; q < end; ++q) {
        char c = *q;
        uint32_t digit;
        if (c == ';') return static_cast<uint32_t>(q + 1 - p);
        if (c >= '0' && c <= '9')
            digit = static_cast<uint32_t>(c - '0');
        else if (base == 16 && c >= 'a' && c <= 'f')
            digit = static_cast<uint32_t>(c - 'a' + 10);
        else if (base == 16 && c >= 'A' && c <= 'F')
            digit = static_cast<uint32_t>(c - 'A' + 10);
        else
            return 0;
        value = value * base + digit;
    }
    return 0;
}

struct Entity {
    const char *text;
    uint32_t length;
    char byte;
};
constexpr Entity kEntities[] = {{"&lt;", 4, '<'}, {"&gt;", 4, '>'}, {"&amp;", 5, '&'}, {"&apos;", 6, '\''},
                                {"&quot;", 6, '"'}};

// The named entity at p (TranslateSymbol): it must fit in what remains.
const Entity *named_entity(const char *p, const char *end) {
    for (const Entity &e : kEntities)
        if (static_cast<uint32_t>(end - p) >= e.length && compare_bytes(p, e.text, e.length) == 0) return &e;
    return nullptr;
}
}  // namespace

uint32_t unescape(const char *source, uint32_t length, char **output, uint32_t *capacity) {
    if (!source || length == 0) return 0;
    if (!output || !capacity) return UXML_ERR_INVALID_ARG;
    const bool allocate = *capacity == 0;
    uint32_t limit = *capacity;
    char *out = *output;
    if (allocate) {
        if (length == UINT32_MAX) return UXML_ERR_NO_MEMORY;
        limit = length + 1;
        out = static_cast<char *>(xalloc(limit));
        if (!out) return UXML_ERR_NO_MEMORY;
        *output = out;
    }
    if (!out) return UXML_ERR_INVALID_ARG;
    const char *p = source, *end = source + length;
    uint32_t written = 0;
    while (p < end && written < limit) {
        const char *amp = static_cast<const char *>(__builtin_memchr(p, '&', static_cast<size_t>(end - p)));
        const char *run_end = amp ? amp : end;
        // A caller's buffer shorter than the text cuts the copy.
        uint32_t run = static_cast<uint32_t>(run_end - p);
        if (run > limit - written) run = limit - written;
        copy_bytes(out + written, p, run);
        written += run;
        p += run;
        if (p != amp || written >= limit) continue;
        if (const Entity *e = named_entity(p, end)) {
            out[written++] = e->byte;
            p += e->length;
            continue;
        }
        uint32_t value = 0;
        if (uint32_t span = numeric_reference(p, end, value)) {
            written += write_utf8(value, out + written, limit - written);
            p += span;
            continue;
        }
        out[written++] = '&';
        ++p;
    }
    if (written < limit) out[written] = '\0';
    if (allocate) *capacity = written;
    return 0;
}

uint32_t render_to_buf(const uxml_element *element, bool header, bool indent, bool newlines, char **out_text,
                       uint32_t *out_length) {
    DynBuf out{nullptr, 0, 0};
    DynBufSink sink(&out);
    if (element) render(sink, element, header, indent, newlines);
    // The final zero could not be stored: the text is not usable.
    if (out.buffer && !sink.terminated()) {
        xfree(out.buffer);
        out.buffer = nullptr;
    }
    if (!out.buffer) return UXML_ERR_NO_MEMORY;
    if (out.capacity > out.used) {
        if (void *exact = xrealloc(out.buffer, out.used)) out.buffer = static_cast<uint8_t *>(exact);
    }
    *out_text = reinterpret_cast<char *>(out.buffer);
    if (out_length) *out_length = out.used ? out.used - 1 : 0;
    return 0;
}
}  // namespace uxml

using namespace uxml;

OMBR_API void uXMLRender(const uxml_element *element, uxml_render_callback_t callback, void *user, uint8_t header,
                         uint8_t indent, uint8_t newlines) {
    if (!element || !callback) return;
    if (callback == DynBufHelper && user) {
        DynBufSink sink(static_cast<DynBuf *>(user));
        render(sink, element, header, indent, newlines);
        return;
    }
    CallbackSink sink(callback, user);
    render(sink, element, header, indent, newlines);
}

OMBR_API void RenderElement(uxml_render_callback_t callback, void *user, const uxml_element *element,
                            uint32_t depth, uint8_t indent, uint8_t newlines, uint8_t skip_indent) {
    if (!callback || !element) return;
    CallbackSink sink(callback, user);
    render_element(sink, element, depth, indent, newlines, skip_indent);
}

OMBR_API void RenderEscapedString(uxml_render_callback_t callback, void *user, const char *text, uint32_t mode) {
    if (!callback || !text) return;
    CallbackSink sink(callback, user);
    sink.escaped(text, mode);
}

OMBR_API uint32_t DynBufHelper(uint16_t event, void *user, const void *data, uint32_t length) {
    return dynbuf_event(event, static_cast<DynBuf *>(user), data, length);
}

OMBR_API void DynBufAppend(DynBuf *buffer, const void *bytes, uint32_t length) {
    dynbuf_append(buffer, bytes, length);
}

OMBR_API char *uXMLRenderToStrEx(const uxml_element *element, uint8_t header, uint8_t indent, uint8_t newlines) {
    char *text = nullptr;
    return render_to_buf(element, header, indent, newlines, &text, nullptr) == 0 ? text : nullptr;
}

OMBR_API char *uXMLRenderToStr(const uxml_element *element, uint8_t header) {
    return uXMLRenderToStrEx(element, header, 1, 1);
}

OMBR_API uint32_t uXMLRenderToBufEx(const uxml_element *element, uint8_t header, uint8_t indent, uint8_t newlines,
                                   char **out_text, uint32_t *out_length) {
    if (!out_text) return report(UXML_ERR_INVALID_ARG);
    return report(render_to_buf(element, header, indent, newlines, out_text, out_length));
}

OMBR_API uint32_t uXMLUnescapeSpecialCharacters(const char *source, uint32_t length, char **output,
                                                uint32_t *capacity) {
    return report(unescape(source, length, output, capacity));
}
