// uXML against hostile documents: the nesting limit (also inside a small
// thread stack), a million nested elements, truncation at every byte, NUL
// bytes, invalid UTF-8, a 100 MB text node, and a start tag with very many
// attributes. Each gives a status, never a crash, and leaves no block.
#include <pthread.h>

#include <string>
#include <vector>

#include "xml_test_support.h"

namespace {

class XmlBadInputTest : public XmlTest {};

std::string nested(uint32_t depth, bool closed) {
    std::string doc;
    doc.reserve(depth * (closed ? 7 : 3));
    for (uint32_t i = 0; i < depth; ++i) doc += "<a>";
    if (closed)
        for (uint32_t i = 0; i < depth; ++i) doc += "</a>";
    return doc;
}

uint32_t tree_status(const std::string &doc) {
    uxml_element *e = nullptr;
    uint32_t status = uXMLParseBufToElement(doc.data(), static_cast<uint32_t>(doc.size()), &e);
    uXMLDisposeElement(e);
    return status;
}

TEST_F(XmlBadInputTest, NestingLimit) {
    ParseResult at_limit = parse_buffer(nested(UXML_MAX_DEPTH, true));
    EXPECT_EQ(at_limit.status, 0u);
    EXPECT_EQ(at_limit.events.size(), 2u * UXML_MAX_DEPTH);
    ParseResult beyond = parse_buffer(nested(UXML_MAX_DEPTH + 1, true));
    EXPECT_EQ(beyond.status, UXML_ERR_SYNTAX);
    EXPECT_EQ(beyond.events.size(), size_t{UXML_MAX_DEPTH});  // the starts up to the limit
    EXPECT_EQ(parse_chunked(nested(UXML_MAX_DEPTH + 1, true), 4096).status, UXML_ERR_SYNTAX);
    EXPECT_EQ(tree_status(nested(UXML_MAX_DEPTH, true)), 0u);
    EXPECT_EQ(tree_status(nested(UXML_MAX_DEPTH + 1, true)), UXML_ERR_SYNTAX);

    const std::string million = nested(1000000, false);
    EXPECT_EQ(parse_buffer(million).status, UXML_ERR_SYNTAX);
    EXPECT_EQ(tree_status(million), UXML_ERR_SYNTAX);
    ChunkSource source{million, 0, 4096};
    ombr_iostream_t stream = chunk_stream(source);
    EventLog log;
    EXPECT_EQ(uXMLParseStream(stream, EventLog::record, &log), UXML_ERR_SYNTAX);
    ombr_iostream_release(stream);
}

// Parse to a tree at the deepest nesting, render, clone and dispose it, in
// a thread whose stack is 256 KiB.
void *deep_work(void *arg) {
    auto *status = static_cast<uint32_t *>(arg);
    std::string doc;
    for (uint32_t i = 0; i < UXML_MAX_DEPTH; ++i) doc += "<level a=\"1\">";
    doc += "bottom";
    for (uint32_t i = 0; i < UXML_MAX_DEPTH; ++i) doc += "</level>";
    uxml_element *tree = nullptr;
    status[0] = uXMLParseBufToElement(doc.data(), static_cast<uint32_t>(doc.size()), &tree);
    char *text = uXMLRenderToStrEx(tree, 1, 1, 1);
    status[1] = text != nullptr;
    uxml_element *copy = uXMLCloneElement(tree, 1);
    status[2] = copy != nullptr;
    uXMLFree(text);
    uXMLDisposeElement(copy);
    uXMLDisposeElement(tree);
    const std::string million = nested(1000000, false);
    EventLog log;
    status[3] = uXMLParseBuf(million.data(), static_cast<uint32_t>(million.size()), EventLog::record, &log);
    uxml_element *none = nullptr;
    status[4] = uXMLParseBufToElement(million.data(), static_cast<uint32_t>(million.size()), &none);
    return nullptr;
}

TEST_F(XmlBadInputTest, DeepestTreeFitsA256KiBThreadStack) {
    uint32_t status[5] = {1, 0, 0, 0, 0};
    pthread_attr_t attr;
    pthread_attr_init(&attr);
#if defined(__SANITIZE_ADDRESS__)
    const size_t stack = 4u << 20;  // the sanitizer's red zones multiply frames
#else
    const size_t stack = 256u << 10;
#endif
    ASSERT_EQ(pthread_attr_setstacksize(&attr, stack), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attr, deep_work, status), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
    EXPECT_EQ(status[0], 0u);
    EXPECT_EQ(status[1], 1u);
    EXPECT_EQ(status[2], 1u);
    EXPECT_EQ(status[3], UXML_ERR_SYNTAX);
    EXPECT_EQ(status[4], UXML_ERR_SYNTAX);
}

// Every prefix of a document: a status, events that begin the full
// document's events, and no block left, in both modes and to a tree.
TEST_F(XmlBadInputTest, TruncationAtEveryByte) {
    const std::string doc =
        "<?xml version=\"1.0\"?>\n<!-- head --><doc a=\"1\" b=\"x&amp;y\">\n  <item n=\"1\">one &lt; two</item>"
        "<empty/>tail words \"q\"<!--c--><deep><deeper k=\"v\">x</deeper></deep>\n</doc>\n";
    const ParseResult full = parse_buffer(doc);
    ASSERT_EQ(full.status, 0u);
    for (size_t cut = 1; cut < doc.size(); ++cut) {
        const std::string prefix = doc.substr(0, cut);
        ParseResult buffer = parse_buffer(prefix);
        bool complete = buffer.events.size() == full.events.size();
        EXPECT_EQ(buffer.status == 0, complete) << cut;
        ASSERT_LE(buffer.events.size(), full.events.size()) << cut;
        EXPECT_TRUE(std::equal(buffer.events.begin(), buffer.events.end(), full.events.begin())) << cut;
        ParseResult stream = parse_chunked(prefix, 3);
        ASSERT_LE(stream.events.size(), full.events.size()) << cut;
        EXPECT_TRUE(std::equal(stream.events.begin(), stream.events.end(), full.events.begin())) << cut;
        EXPECT_EQ(tree_status(prefix) == 0, complete) << cut;
    }
}

TEST_F(XmlBadInputTest, NulBytesAndInvalidUtf8) {
    const std::string text_nul("<a>x\0y</a>", 10);
    ParseResult r = parse_buffer(text_nul);
    EXPECT_EQ(r.status, 0u);
    EXPECT_EQ(r.events[1], std::string("D x\0y", 5));
    uxml_element *e = nullptr;
    ASSERT_EQ(uXMLParseBufToElement(text_nul.data(), 10, &e), 0u);
    EXPECT_STREQ(uXMLGetData(e), "x");  // zero-terminated text stops at the NUL
    uXMLDisposeElement(e);
    EXPECT_EQ(parse_buffer(std::string("<a\0/>", 5)).status, UXML_ERR_BAD_BYTE);
    EXPECT_EQ(parse_buffer(std::string("\0<a/>", 5)).status, UXML_ERR_SYNTAX);
    EXPECT_EQ(parse_buffer(std::string("<a b=\"\0\"/>", 10)).status, 0u);
    EXPECT_EQ(parse_buffer(std::string("<a/>\0", 5)).status, 0u);

    // A quoted string stands as a name too, even one that begins with a NUL
    // byte: events pass it, the tree cannot hold it.
    const std::string nul_element("<\"\0a\"/>", 7);
    EXPECT_EQ(parse_buffer(nul_element).status, 0u);
    EXPECT_EQ(tree_status(nul_element), UXML_ERR_NO_MEMORY);  // as any element that cannot be created
    const std::string nul_attribute("<a \"\0b\"=\"1\"/>", 13);
    EXPECT_EQ(parse_buffer(nul_attribute).status, 0u);
    EXPECT_EQ(tree_status(nul_attribute), UXML_ERR_INVALID_ARG);
    uxml_element *holder = uXMLCreateEmptyElement();
    uxml_tree_frame bottom{nullptr, holder};
    uxml_tree_frame *top = &bottom;
    EXPECT_EQ(uXMLParseBuf(nul_attribute.data(), 13, TreeHelper, &top), UXML_ERR_INVALID_ARG);
    while (top != &bottom) {
        uxml_tree_frame *prev = top->prev;
        uXMLFree(top);
        top = prev;
    }
    uXMLDisposeElement(holder);

    const std::string invalid = "<a b=\"\xFF\xFE\x80\">\xC0\xAF\xED\xA0\x80\xF8</a>";
    r = parse_buffer(invalid);
    EXPECT_EQ(r.status, 0u);
    EXPECT_EQ(r.events, (std::vector<std::string>{"S <|a", "A b=\xFF\xFE\x80", "D \xC0\xAF\xED\xA0\x80\xF8", "E a|>"}));
    EXPECT_EQ(tree_status(invalid), 0u);
    EXPECT_EQ(parse_buffer("<\xFF/>").status, UXML_ERR_BAD_BYTE);
    EXPECT_EQ(parse_buffer("<a \x80=\"1\"/>").status, UXML_ERR_BAD_BYTE);
}

uint32_t count_data(uint16_t event, void *user, const char *, uint32_t first_length, const char *, uint32_t) {
    if (event == UXML_EVENT_DATA) *static_cast<uint64_t *>(user) += first_length;
    return 0;
}

uint32_t ignore_delete(void *) { return 0; }

TEST_F(XmlBadInputTest, HundredMegabyteTextNode) {
    const uint32_t text_size = 100u << 20;
    std::string doc = "<a>";
    doc.append(text_size, 'x');
    doc[1000] = '&';  // a lone "&" stays as it is
    doc += "</a>";
    uxml_element *e = nullptr;
    ASSERT_EQ(uXMLParseBufToElement(doc.data(), static_cast<uint32_t>(doc.size()), &e), 0u);
    EXPECT_EQ(std::strlen(uXMLGetData(e)), text_size);
    uXMLDisposeElement(e);

    ombr_iostream_t stream = nullptr;
    ASSERT_EQ(ombr_iostream_create_from_buffer(&stream, doc.data(), static_cast<uint32_t>(doc.size()), ignore_delete,
                                               nullptr),
              0u);
    uint64_t seen = 0;
    EXPECT_EQ(uXMLParseStream(stream, count_data, &seen), 0u);
    EXPECT_EQ(seen, text_size);
    ombr_iostream_release(stream);
}

TEST_F(XmlBadInputTest, StartTagWithVeryManyAttributes) {
    // 200,000 distinct names, then every one of them set again: linear work.
    std::string doc = "<a";
    const int n = 200000;
    for (int pass = 0; pass < 2; ++pass)
        for (int i = 0; i < n; ++i) doc += " k" + std::to_string(i) + "=\"" + std::to_string(pass) + "\"";
    doc += " k5=\"\"/>";
    uxml_element *e = nullptr;
    ASSERT_EQ(uXMLParseBufToElement(doc.data(), static_cast<uint32_t>(doc.size()), &e), 0u);
    EXPECT_EQ(uXMLGetAttrCount(e), uint32_t(n - 1));
    EXPECT_STREQ(uXMLGetAttrName(e, 0), "k0");
    EXPECT_STREQ(uXMLGetAttrValue(e, 0), "1");
    EXPECT_EQ(uXMLGetAttrFromStr(e, "k5"), nullptr);
    EXPECT_STREQ(uXMLGetAttrName(e, n - 2), "k199999");
    uXMLDisposeElement(e);

    // The same through TreeHelper's rules on a small tag: order by last set.
    ASSERT_EQ(uXMLParseStrToElement(
                  "<a x0=\"1\" x1=\"1\" x2=\"1\" x3=\"1\" x4=\"1\" x5=\"1\" x6=\"1\" x7=\"1\" x8=\"1\" x9=\"1\" "
                  "x0=\"2\" x9=\"\" x3=\"3\" x10=\"1\"/>",
                  &e),
              0u);
    std::vector<std::string> got;
    for (uint32_t i = 0; i < uXMLGetAttrCount(e); ++i)
        got.push_back(std::string(uXMLGetAttrName(e, i)) + "=" + uXMLGetAttrValue(e, i));
    EXPECT_EQ(got, (std::vector<std::string>{"x1=1", "x2=1", "x4=1", "x5=1", "x6=1", "x7=1", "x8=1", "x0=2", "x3=3",
                                             "x10=1"}));
    uXMLDisposeElement(e);
}

}  // namespace
