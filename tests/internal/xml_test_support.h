// Helpers shared by the uXML, time and stream tests: a fixture with the
// packages up and a leak check, an event recorder, streams that hand out a
// document a few bytes per read, and tree comparison.
#ifndef XML_TEST_SUPPORT_H
#define XML_TEST_SUPPORT_H

#include <cstring>
#include <string>
#include <vector>

#include "cantrix_test.h"
#include "ombr/ombr_iostream.h"
#include "ombr/ombr_xml.h"

// Brings the XML and stream packages up around each test, checks for leaks.
class XmlTest : public LeakCheckedTest {
   protected:
    void SetUp() override {
        ASSERT_EQ(ombr_xml_initialize(), 0u);
        ASSERT_EQ(ombr_iostream_initialize(), 0u);
        LeakCheckedTest::SetUp();
    }
    void TearDown() override {
        LeakCheckedTest::TearDown();
        ombr_iostream_shutdown();
        ombr_xml_shutdown();
    }
};

// Events as short texts: "S <|a", "A b=1", "D text", "E a|/>".
struct EventLog {
    std::vector<std::string> events;
    uint32_t stop_after = 0;     // non-zero: fail the event with that number
    uint32_t stop_status = 0;

    static uint32_t record(uint16_t event, void *user, const char *first, uint32_t first_length, const char *second,
                           uint32_t second_length) {
        auto *log = static_cast<EventLog *>(user);
        std::string a(first, first_length), b = second ? std::string(second, second_length) : std::string();
        switch (event) {
            case UXML_EVENT_START: log->events.push_back("S " + a + "|" + b); break;
            case UXML_EVENT_ATTRIBUTE: log->events.push_back("A " + a + "=" + b); break;
            case UXML_EVENT_DATA: log->events.push_back("D " + a + (second ? "|not null" : "")); break;
            case UXML_EVENT_END: log->events.push_back("E " + a + "|" + b); break;
            default: log->events.push_back("? " + std::to_string(event)); break;
        }
        if (log->stop_after && log->events.size() == log->stop_after) return log->stop_status;
        return 0;
    }
};

// A document handed out by a read callback at most `chunk` bytes at a time.
struct ChunkSource {
    std::string data;
    size_t pos = 0;
    uint32_t chunk = 1;

    static uint32_t read(void *context, void *buffer, uint32_t size, uint32_t *out_got) {
        auto *src = static_cast<ChunkSource *>(context);
        size_t n = std::min<size_t>({src->chunk, size, src->data.size() - src->pos});
        std::memcpy(buffer, src->data.data() + src->pos, n);
        src->pos += n;
        *out_got = static_cast<uint32_t>(n);
        return 0;
    }
    static uint32_t reset(void *context) {
        static_cast<ChunkSource *>(context)->pos = 0;
        return 0;
    }
};

// Creates a callback stream over `source`; the caller releases it.
inline ombr_iostream_t chunk_stream(ChunkSource &source) {
    ombr_iostream_callbacks callbacks{ChunkSource::read, nullptr, nullptr, ChunkSource::reset, nullptr};
    ombr_iostream_t stream = nullptr;
    EXPECT_EQ(ombr_iostream_create(&stream, 1024, &callbacks, &source), 0u);
    return stream;
}

struct ParseResult {
    uint32_t status;
    std::vector<std::string> events;
};

inline ParseResult parse_buffer(const std::string &doc) {
    EventLog log;
    uint32_t status = uXMLParseBuf(doc.data(), static_cast<uint32_t>(doc.size()), EventLog::record, &log);
    return {status, log.events};
}

inline ParseResult parse_chunked(const std::string &doc, uint32_t chunk) {
    ChunkSource source{doc, 0, chunk};
    ombr_iostream_t stream = chunk_stream(source);
    EventLog log;
    uint32_t status = uXMLParseStream(stream, EventLog::record, &log);
    ombr_iostream_release(stream);
    return {status, log.events};
}

// Structural equality of two trees: names, data, attributes in order,
// sub-elements in order (CDATA is not compared).
inline ::testing::AssertionResult same_tree(const uxml_element *a, const uxml_element *b, std::string path = "") {
    if (!a || !b) return a == b ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << path << ": null";
    auto text = [](const char *s) { return s ? std::string("\"") + s + "\"" : std::string("null"); };
    path += "/" + std::string(a->name ? a->name : "?");
    if (text(a->name) != text(b->name)) return ::testing::AssertionFailure() << path << ": name " << text(b->name);
    if (text(a->data) != text(b->data))
        return ::testing::AssertionFailure() << path << ": data " << text(a->data) << " vs " << text(b->data);
    uint32_t attrs = uXMLGetAttrCount(a);
    if (attrs != uXMLGetAttrCount(b)) return ::testing::AssertionFailure() << path << ": attribute count";
    for (uint32_t i = 0; i < attrs; ++i) {
        if (text(uXMLGetAttrName(a, i)) != text(uXMLGetAttrName(b, i)) ||
            text(uXMLGetAttrValue(a, i)) != text(uXMLGetAttrValue(b, i)))
            return ::testing::AssertionFailure() << path << ": attribute " << i << " " << text(uXMLGetAttrName(a, i))
                                                 << "=" << text(uXMLGetAttrValue(a, i)) << " vs "
                                                 << text(uXMLGetAttrName(b, i)) << "=" << text(uXMLGetAttrValue(b, i));
    }
    if (a->element_count != b->element_count) return ::testing::AssertionFailure() << path << ": sub-element count";
    for (uint32_t i = 0; i < a->element_count; ++i) {
        auto r = same_tree(a->elements[i], b->elements[i], path);
        if (!r) return r;
    }
    return ::testing::AssertionSuccess();
}

// Renders to a std::string (the text is freed).
inline std::string render(const uxml_element *e, uint8_t header, uint8_t indent, uint8_t newlines) {
    char *text = uXMLRenderToStrEx(e, header, indent, newlines);
    std::string out = text ? text : "<null>";
    uXMLFree(text);
    return out;
}

#endif
