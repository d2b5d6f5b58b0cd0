// libFuzzer harness of the uXML parser. For each input:
//  - buffer mode and stream mode (read sizes from the first byte) give the
//    same events, and the same status except where the buffer parse ran
//    into the end of its input, which a stream reports as 0; inputs on which
//    stream mode met a comment delimiter cut by a refill are exempt, as the
//    parser documents;
//  - the tree builder gives the event parse's status;
//  - a parsed tree with legal names (a quoted string is taken as a name
//    too) renders to text that parses back into the same tree,
//    up to what the parser drops: text's leading whitespace, and values
//    that a NUL byte cut to nothing;
//  - nothing is left allocated.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ombr/ombr_iostream.h"
#include "ombr/ombr_xml.h"
#include "xml/ombr_xml_internal.h"
#include "zelto/zelto_manager.h"

namespace {

void check(bool ok, const char *what) {
    if (!ok) {
        std::fprintf(stderr, "property failed: %s\n", what);
        std::abort();
    }
}

struct Events {
    std::vector<std::string> list;
    static uint32_t record(uint16_t event, void *user, const char *first, uint32_t first_length, const char *second,
                           uint32_t second_length) {
        std::string e(1, static_cast<char>('0' + event));
        e.append(first, first_length);
        e += '\x01';
        if (second) e.append(second, second_length);
        static_cast<Events *>(user)->list.push_back(std::move(e));
        return 0;
    }
};

struct Source {
    const uint8_t *data;
    size_t size, pos;
    uint32_t chunk;
    static uint32_t read(void *context, void *buffer, uint32_t size, uint32_t *out_got) {
        auto *s = static_cast<Source *>(context);
        size_t n = s->size - s->pos;
        if (n > s->chunk) n = s->chunk;
        if (n > size) n = size;
        std::memcpy(buffer, s->data + s->pos, n);
        s->pos += n;
        *out_got = static_cast<uint32_t>(n);
        return 0;
    }
};

// Data as the parser of a rendered tree reads it back.
std::string expected_data(const char *data) {
    if (!data) return "<null>";
    while (*data && uXMLIsSpace(static_cast<uint8_t>(*data)) && static_cast<uint8_t>(*data) < 0x80) ++data;
    return *data ? data : "<null>";
}

// Names of legal name bytes only. A quoted string stands as a name too, so
// a parsed tree can hold names that its rendering cannot carry back.
bool legal(const char *name) {
    for (; *name; ++name)
        if (!uXMLIsLegalNameChar(static_cast<uint8_t>(*name))) return false;
    return true;
}
bool renderable(const uxml_element *e) {
    if (!legal(e->name)) return false;
    for (const uxml_attribute *a = e->attributes; a; a = a->next)
        if (!legal(a->name)) return false;
    for (uint32_t i = 0; i < e->element_count; ++i)
        if (!renderable(e->elements[i])) return false;
    return true;
}

bool same_tree_after_reparse(const uxml_element *a, const uxml_element *b) {
    if (!a || !b) return a == b;
    if (std::strcmp(a->name, b->name) != 0) return false;
    if (expected_data(a->data) != (b->data ? std::string(b->data) : "<null>")) return false;
    // A value cut to nothing by a NUL byte (raw or "&#0;") renders as an
    // empty value, which the parser drops.
    const uxml_attribute *x = a->attributes, *y = b->attributes;
    for (;; x = x->next, y = y->next) {
        while (x && x->value[0] == '\0') x = x->next;
        if (!x || !y) break;
        if (std::strcmp(x->name, y->name) != 0 || std::strcmp(x->value, y->value) != 0) return false;
    }
    if (x || y || a->element_count != b->element_count) return false;
    for (uint32_t i = 0; i < a->element_count; ++i)
        if (!same_tree_after_reparse(a->elements[i], b->elements[i])) return false;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    ombr_xml_initialize();
    ombr_iostream_initialize();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size) {
    if (size < 2 || size > (1u << 20)) return 0;
    static const uint32_t kChunks[] = {1, 2, 3, 7, 64, 4096};
    const uint32_t chunk = kChunks[input[0] % 6];
    const uint8_t layout = input[0] / 6;
    const uint8_t *doc = input + 1;
    const uint32_t length = static_cast<uint32_t>(size - 1);
    const int64_t blocks = zelto_manager_memory_live_blocks();

    // Buffer mode through the scanner's own entries, to see where it stopped.
    Events buffer_events;
    ScanBuffer scan;
    uint32_t buffer_status = InitScanBuffer(&scan, doc, length, nullptr);
    if (buffer_status == 0) buffer_status = ParseXMLHeader(&scan);
    if (buffer_status == 0) buffer_status = ParseXML(Events::record, &buffer_events, &scan);
    const bool reached_end = scan.token == UXML_TOKEN_EOF || scan.pos >= scan.end;
    FreeScanBuffer(&scan);
    Events entry_events;
    check(uXMLParseBuf(doc, length, Events::record, &entry_events) == buffer_status, "entry status");
    check(entry_events.list == buffer_events.list, "entry events");

    // Stream mode.
    Source source{doc, length, 0, chunk};
    ombr_iostream_callbacks callbacks{Source::read, nullptr, nullptr, nullptr, nullptr};
    ombr_iostream_t stream = nullptr;
    check(ombr_iostream_create(&stream, 1024, &callbacks, &source) == 0, "stream");
    Events stream_events;
    const uint32_t cuts = uxml::stream_cut_delimiters();
    uint32_t stream_status = uXMLParseStream(stream, Events::record, &stream_events);
    ombr_iostream_release(stream);
    if (uxml::stream_cut_delimiters() == cuts) {
        check(stream_events.list == buffer_events.list, "stream events");
        check(stream_status == buffer_status || (reached_end && stream_status == 0 && buffer_status == UXML_ERR_SYNTAX),
              "stream status");
    }

    // The tree, and its round trip through the renderer.
    uxml_element *tree = nullptr;
    uint32_t tree_status = uXMLParseBufToElement(doc, length, &tree);
    // A quoted name that begins with a NUL byte cannot name an element
    // (out of memory, as any failed creation) or an attribute (invalid).
    bool nul_name[3] = {false, false, false};
    for (const std::string &e : buffer_events.list) {
        size_t name = e[0] == '1' ? e.find('\x01') + 1 : e[0] == '2' ? 1 : 0;
        if (name != 0 && name < e.size() && e[name] == '\0') nul_name[e[0] - '0'] = true;
    }
    check(tree_status == buffer_status || (tree_status == UXML_ERR_NO_MEMORY && nul_name[1]) ||
              (tree_status == UXML_ERR_INVALID_ARG && nul_name[2]),
          "tree status");
    check((tree != nullptr) == (tree_status == 0), "tree output");
    if (tree) {
        char *text = nullptr;
        uint32_t text_length = 0;
        check(uXMLRenderToBufEx(tree, layout & 1, (layout >> 1) & 1, (layout >> 2) & 1, &text, &text_length) == 0,
              "render");
        if (renderable(tree)) {
            uxml_element *back = nullptr;
            check(uXMLParseBufToElement(text, text_length, &back) == 0, "rendered text parses");
            check(same_tree_after_reparse(tree, back), "round trip");
            uXMLDisposeElement(back);
        }
        uXMLFree(text);
        uXMLDisposeElement(tree);
    }
    check(zelto_manager_memory_live_blocks() == blocks, "no leak");
    return 0;
}
