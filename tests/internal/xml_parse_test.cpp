// uXML scanner and parser: events of the accepted subset, the statuses of
// each refused construct, buffer and stream mode side by side, documents on
// a stream one after the other, and the tree builder.
#include <string>
#include <vector>

#include "xml/ombr_xml_internal.h"
#include "xml_test_support.h"

namespace {

using Events = std::vector<std::string>;

class XmlParseTest : public XmlTest {};

struct EventCase {
    const char *doc;
    uint32_t status;
    Events events;
};

TEST_F(XmlParseTest, EventsOfTheAcceptedSubset) {
    const EventCase cases[] = {
        {"<a/>", 0, {"S <|a", "E a|/>"}},
        {"<a></a>", 0, {"S <|a", "E a|>"}},
        {"< a />", 0, {"S <|a", "E a|/>"}},
        {"<a b=\"1\" b=\"2\"/>", 0, {"S <|a", "A b=1", "A b=2", "E a|/>"}},
        {"<a b=c/>", 0, {"S <|a", "A b=c", "E a|/>"}},
        {"<a b=\"\"/>", 0, {"S <|a", "A b=", "E a|/>"}},
        {"<a b=\"x<y\ny>&amp;\"/>", 0, {"S <|a", "A b=x<y\ny>&amp;", "E a|/>"}},
        {"<a><b/>one two</a>", 0, {"S <|a", "S <|b", "E b|/>", "D one", "D two", "E a|>"}},
        {"<a><b></b>one two</a>", 0, {"S <|a", "S <|b", "E b|>", "D one two", "E a|>"}},
        {"<a>  lead and trail  </a>", 0, {"S <|a", "D lead and trail  ", "E a|>"}},
        {"<a> \n\t </a>", 0, {"S <|a", "E a|>"}},
        {"<a>x<b>y</b>z</a>", 0, {"S <|a", "D x", "S <|b", "D y", "E b|>", "D z", "E a|>"}},
        {"<a>&lt;&#65;</a>", 0, {"S <|a", "D &lt;&#65;", "E a|>"}},
        {"<!-- c --><a/>", 0, {"S <|a", "E a|/>"}},
        {"<?xml version=\"1.0\"?><!-- c --><a/>", 0, {"S <|a", "E a|/>"}},
        {"  \n<?xml anything at all ?>\n<a/>", 0, {"S <|a", "E a|/>"}},
        {"<a <!-- between --> b=\"1\"/>", 0, {"S <|a", "A b=1", "E a|/>"}},
        {"<a><!-- x - y --></a>", 0, {"S <|a", "E a|>"}},
        {"<a><b/>\"quoted words\"</a>", 0, {"S <|a", "S <|b", "E b|/>", "D quoted words", "E a|>"}},
        {"<a/>trailing garbage <<<", 0, {"S <|a", "E a|/>"}},
        {"<a>\xC3\xA9\xFF</a>", 0, {"S <|a", "D \xC3\xA9\xFF", "E a|>"}},
        {"<a b=\"\xC3\xA9\"/>", 0, {"S <|a", "A b=\xC3\xA9", "E a|/>"}},
        // End tags match by name hash alone; a quoted end-tag name is a string too.
        {"<a></\"a\">", 0, {"S <|a", "E a|>"}},
        // Refused constructs, with the events before the refusal.
        {"<a:b/>", UXML_ERR_BAD_BYTE, {"S <|a"}},
        {"<a-b/>", UXML_ERR_BAD_BYTE, {"S <|a"}},
        {"<a.b/>", UXML_ERR_BAD_BYTE, {"S <|a"}},
        {"<a b:c=\"1\"/>", UXML_ERR_BAD_BYTE, {"S <|a"}},
        {"<a b='c'/>", UXML_ERR_BAD_BYTE, {"S <|a"}},
        {"<\xC3\xA9/>", UXML_ERR_BAD_BYTE, {}},
        {"<a><?pi x?></a>", UXML_ERR_BAD_BYTE, {"S <|a"}},
        {"<a><![CDATA[x]]></a>", UXML_ERR_NOT_AVAILABLE, {"S <|a"}},
        {"<!DOCTYPE a><a/>", UXML_ERR_NOT_AVAILABLE, {}},
        {"<a><!- x --></a>", UXML_ERR_SYNTAX, {"S <|a"}},
        {"<a><!-- x -- y --></a>", UXML_ERR_SYNTAX, {"S <|a"}},
        {"<a><!-- unclosed </a>", UXML_ERR_SYNTAX, {"S <|a"}},
        {"<a>x</b>", UXML_ERR_SYNTAX, {"S <|a", "D x"}},
        {"<a>text", UXML_ERR_SYNTAX, {"S <|a"}},
        {"<a", UXML_ERR_SYNTAX, {}},
        {"<a b/>", UXML_ERR_SYNTAX, {"S <|a"}},
        {"<a b=/>", UXML_ERR_SYNTAX, {"S <|a"}},
        {"<a =\"1\"/>", UXML_ERR_SYNTAX, {"S <|a"}},
        {"<a></a >x", 0, {"S <|a", "E a|>"}},
        {"<a><b></a>", UXML_ERR_SYNTAX, {"S <|a", "S <|b"}},
        {"<a></>", UXML_ERR_SYNTAX, {"S <|a"}},
        {"<a>\"\"</a>", 0, {"S <|a", "D \"\"", "E a|>"}},
        {"<a><b/>\"\"</a>", UXML_ERR_SYNTAX, {"S <|a", "S <|b", "E b|/>"}},
        {"<a><b/>x-y</a>", UXML_ERR_BAD_BYTE, {"S <|a", "S <|b", "E b|/>", "D x"}},
        {"<></>", UXML_ERR_SYNTAX, {}},
        {"text<a/>", UXML_ERR_SYNTAX, {}},
        {"   ", UXML_ERR_SYNTAX, {}},
        {"<?xml?>", UXML_ERR_SYNTAX, {}},
        {"<?XML version=\"1.0\"?><a/>", UXML_ERR_SYNTAX, {}},
        {"<?xml a=\"?\"?><a/>", UXML_ERR_SYNTAX, {}},
        {"<?xml version=\"1.0\"?>", UXML_ERR_SYNTAX, {}},
        {"<?xm", UXML_ERR_SYNTAX, {}},
        {"<a/><?xml?>", 0, {"S <|a", "E a|/>"}},
        {"<a><?xml?></a>", UXML_ERR_BAD_BYTE, {"S <|a"}},
    };
    for (const EventCase &c : cases) {
        ParseResult r = parse_buffer(c.doc);
        EXPECT_EQ(r.status, c.status) << c.doc;
        EXPECT_EQ(r.events, c.events) << c.doc;
    }
}

TEST_F(XmlParseTest, EntriesRefuseMissingArguments) {
    EventLog log;
    uxml_element *e = reinterpret_cast<uxml_element *>(1);
    EXPECT_EQ(uXMLParseBuf(nullptr, 4, EventLog::record, &log), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(uXMLParseBuf("<a/>", 0, EventLog::record, &log), UXML_ERR_INVALID_ARG);  // an empty buffer
    EXPECT_EQ(uXMLParseBuf("<a/>", 4, nullptr, &log), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(uXMLParseStr(nullptr, EventLog::record, &log), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(uXMLParseStr("", EventLog::record, &log), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(uXMLParseStream(nullptr, EventLog::record, &log), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(uXMLParseBufToElement(nullptr, 4, &e), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(uXMLParseBufToElement("<a/>", 4, nullptr), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(uXMLParseStrToElement(nullptr, &e), UXML_ERR_INVALID_ARG);
    EXPECT_TRUE(log.events.empty());
    ScanBuffer scan;
    EXPECT_EQ(InitScanBuffer(&scan, nullptr, 0, nullptr), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(InitScanBuffer(nullptr, "x", 1, nullptr), UXML_ERR_INVALID_ARG);
}

TEST_F(XmlParseTest, CallbackStatusEndsTheParse) {
    EventLog log;
    log.stop_after = 2;
    log.stop_status = 0x900D0002u;
    EXPECT_EQ(uXMLParseStr("<a b=\"1\"><c/></a>", EventLog::record, &log), 0x900D0002u);
    EXPECT_EQ(log.events, (Events{"S <|a", "A b=1"}));
    // A status with error value 0x49 counts as the end of a stream, also
    // from the callback.
    EventLog eod;
    eod.stop_after = 1;
    eod.stop_status = 0x90030049u;
    EXPECT_EQ(uXMLParseStr("<a/>", EventLog::record, &eod), 0u);
}

// The scanner's tokens one by one: kinds, places and the states they leave.
TEST_F(XmlParseTest, ScannerTokensAndStates) {
    const char doc[] = "<a x=\"1\"/></b> <c>t <!--c-->";
    ScanBuffer scan;
    ASSERT_EQ(InitScanBuffer(&scan, doc, sizeof doc - 1, nullptr), 0u);
    EXPECT_EQ(scan.at_end, 1);
    struct Expected {
        uint32_t token;
        std::string text;
    };
    const Expected expected[] = {{UXML_TOKEN_OPEN, "<"},         {UXML_TOKEN_STRING, "a"}, {UXML_TOKEN_STRING, "x"},
                                 {UXML_TOKEN_EQUALS, "="},       {UXML_TOKEN_STRING, "1"}, {UXML_TOKEN_EMPTY_CLOSE, "/>"},
                                 {UXML_TOKEN_END_OPEN, "</"},    {UXML_TOKEN_STRING, "b"}, {UXML_TOKEN_CLOSE, ">"},
                                 {UXML_TOKEN_OPEN, "<"},         {UXML_TOKEN_STRING, "c"}, {UXML_TOKEN_CLOSE, ">"},
                                 {UXML_TOKEN_STRING, "t "},      {UXML_TOKEN_EOF, ""}};
    for (const Expected &e : expected) {
        ASSERT_EQ(GetNextToken(&scan), 0u);
        EXPECT_EQ(scan.token, e.token) << e.text;
        if (e.token != UXML_TOKEN_EOF) {
            EXPECT_EQ(std::string(doc + scan.token_start, scan.token_len), e.text);
        }
    }
    // A lone slash in markup, and a state out of range.
    ASSERT_EQ(InitScanBuffer(&scan, "/ x", 3, nullptr), 0u);
    ASSERT_EQ(GetNextToken(&scan), 0u);
    EXPECT_EQ(scan.token, UXML_TOKEN_SLASH);
    scan.state = 11;
    EXPECT_EQ(GetNextToken(&scan), UXML_ERR_NOT_AVAILABLE);
    FreeScanBuffer(&scan);
}

// Documents that exercise the sliding buffer of stream mode: long texts,
// values and names across many refills, and many small elements. `ends`
// marks a document that ends before its root closes: buffer mode meets EOF
// (UXML_ERR_SYNTAX) where the stream simply ends (0).
struct AgreementDoc {
    std::string text;
    bool ends;
};

std::string catalogue_document() {
    std::string big = "<catalogue version=\"3\">\n";
    for (int i = 0; i < 400; ++i) {
        big += "  <album id=\"" + std::to_string(i) + "\" title=\"Title &amp; " + std::to_string(i * 7) + "\">";
        big += std::string(static_cast<size_t>(i % 37), 'x') + " &lt;text&gt; ";
        big += "<track n=\"" + std::to_string(i % 13) + "\"/>tail words " + std::to_string(i) + "</album>\n";
    }
    return big + "</catalogue>\n";
}

std::vector<AgreementDoc> agreement_documents() {
    std::string big = catalogue_document();
    std::string deep;
    for (int i = 0; i < 300; ++i) deep += "<d" + std::to_string(i) + " k=\"v\">";
    for (int i = 299; i >= 0; --i) deep += "</d" + std::to_string(i) + ">";
    return {
        {"<a/>", false},
        {"<a></a>", false},
        {"<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<root a=\"1\" b=\"two\">text<x/>more</root>\n", false},
        {"<a><b>x</a>", false},
        {"<a b='1'/>", false},
        {big, false},
        {"<v value=\"" + std::string(5000, 'v') + "\">" + std::string(9000, 't') + "</v>", false},
        {"<" + std::string(3000, 'n') + "></" + std::string(3000, 'n') + ">", false},
        {deep, false},
        {"<a>text", true},
        {"<a b=\"unterminated", true},
        {big.substr(0, big.size() / 2), true},
    };
}

TEST_F(XmlParseTest, StreamModeAgreesWithBufferModeWhateverTheReadSize) {
    for (const AgreementDoc &doc : agreement_documents()) {
        ParseResult buffer = parse_buffer(doc.text);
        EXPECT_EQ(buffer.status != 0, doc.ends || doc.text.find('\'') != std::string::npos ||
                                          doc.text == "<a><b>x</a>");
        for (uint32_t chunk : {1u, 2u, 3u, 7u, 4096u}) {
            ParseResult stream = parse_chunked(doc.text, chunk);
            EXPECT_EQ(stream.status, doc.ends ? 0u : buffer.status) << doc.text.substr(0, 60) << " chunk " << chunk;
            EXPECT_EQ(stream.events, buffer.events) << doc.text.substr(0, 60) << " chunk " << chunk;
        }
    }
}

// The comment look-ahead sees only buffered bytes. The first fill of the
// scan area is 64 bytes; a "<!" that ends there is cut from its "--".
TEST_F(XmlParseTest, CommentOpenerCutByARefillIsNotSeenInStreamMode) {
    std::string doc = "<r>" + std::string(59, 'x') + "<!-- c --></r>";
    ASSERT_EQ(doc.find("<!"), 62u);
    ParseResult buffer = parse_buffer(doc);
    EXPECT_EQ(buffer.status, 0u);
    EXPECT_EQ(buffer.events, (Events{"S <|r", "D " + std::string(59, 'x'), "E r|>"}));
    for (uint32_t chunk : {1u, 7u, 4096u}) {
        const uint32_t cuts = uxml::stream_cut_delimiters();
        ParseResult stream = parse_chunked(doc, chunk);
        EXPECT_EQ(uxml::stream_cut_delimiters(), cuts + 1);
        // "<!" then "-": the scanner goes on in the state behind "<" and
        // takes the "-" as an element name's first byte.
        EXPECT_EQ(stream.status, UXML_ERR_BAD_BYTE) << chunk;
        EXPECT_EQ(stream.events, (Events{"S <|r", "D " + std::string(59, 'x')})) << chunk;
    }
    // Moved by one byte, the delimiter lies inside the first fill and the
    // modes agree again.
    std::string shifted = "<r>" + std::string(40, 'x') + "<!-- c --></r>";
    const uint32_t cuts = uxml::stream_cut_delimiters();
    EXPECT_EQ(parse_chunked(shifted, 3).events, parse_buffer(shifted).events);
    EXPECT_EQ(uxml::stream_cut_delimiters(), cuts);
    EXPECT_EQ(parse_chunked(shifted, 3).status, 0u);
}

TEST_F(XmlParseTest, StreamEndsAreNoFailure) {
    // An empty stream is refused at creation; an empty source gives 0 and no event.
    ChunkSource empty{"", 0, 4};
    ombr_iostream_t stream = chunk_stream(empty);
    EventLog log;
    EXPECT_EQ(uXMLParseStream(stream, EventLog::record, &log), 0u);
    EXPECT_TRUE(log.events.empty());
    ombr_iostream_release(stream);
    EXPECT_EQ(parse_chunked("   \n  ", 2).status, 0u);
    EXPECT_EQ(parse_chunked("   \n  ", 2).events, Events{});
    ParseResult partial = parse_chunked("<a><b x=\"1\">text", 3);
    EXPECT_EQ(partial.status, 0u);
    EXPECT_EQ(partial.events, (Events{"S <|a", "S <|b", "A x=1"}));
    // A lone "<" ends inside the declaration test: the wait for a second
    // byte marks the end, and the scanner then meets EOF.
    EXPECT_EQ(parse_chunked("<", 1).status, UXML_ERR_SYNTAX);
    EXPECT_EQ(parse_chunked("<?xm", 1).status, UXML_ERR_SYNTAX);
}

TEST_F(XmlParseTest, DocumentsOneAfterTheOtherOnAStream) {
    for (uint32_t chunk : {1u, 5u, 4096u}) {
        ChunkSource source{"<a x=\"1\"/>\n<b>two</b><c/>", 0, chunk};
        ombr_iostream_t stream = chunk_stream(source);
        EventLog first, second, third, fourth;
        EXPECT_EQ(uXMLParseStream(stream, EventLog::record, &first), 0u);
        EXPECT_EQ(uXMLParseStream(stream, EventLog::record, &second), 0u);
        EXPECT_EQ(uXMLParseStream(stream, EventLog::record, &third), 0u);
        EXPECT_EQ(uXMLParseStream(stream, EventLog::record, &fourth), 0u);
        EXPECT_EQ(first.events, (Events{"S <|a", "A x=1", "E a|/>"}));
        EXPECT_EQ(second.events, (Events{"S <|b", "D two", "E b|>"}));
        EXPECT_EQ(third.events, (Events{"S <|c", "E c|/>"}));
        EXPECT_TRUE(fourth.events.empty());
        ombr_iostream_release(stream);
    }
    // After a failed parse the unread bytes are still pushed back.
    ombr_iostream_t stream = nullptr;
    const char doc[] = "<a:b/><c/>";
    ASSERT_EQ(ombr_iostream_create_from_buffer(&stream, doc, sizeof doc - 1, nullptr, nullptr), 0u);
    EventLog log;
    EXPECT_EQ(uXMLParseStream(stream, EventLog::record, &log), UXML_ERR_BAD_BYTE);
    char rest[16] = {};
    uint32_t got = 0;
    EXPECT_EQ(ombr_iostream_read(stream, rest, sizeof rest, &got), 0u);
    EXPECT_EQ(std::string(rest, got), ":b/><c/>");
    ombr_iostream_release(stream);
}

TEST_F(XmlParseTest, TreeFromDocument) {
    uxml_element *root = nullptr;
    const char doc[] =
        "<?xml version=\"1.0\"?>\n<doc id=\"7\" empty=\"\" t=\"a&amp;b&#x41;\" id=\"8\">"
        "<ALGORITHM><NAME>x</NAME><VERSION>1</VERSION></ALGORITHM>first<mixed/>second third"
        "<e a=\"1\" a=\"\"/></doc>";
    ASSERT_EQ(uXMLParseStrToElement(doc, &root), 0u);
    ASSERT_NE(root, nullptr);
    EXPECT_STREQ(uXMLGetName(root), "doc");
    // A repeated attribute keeps the later value at the later place; an
    // empty value removes it.
    ASSERT_EQ(uXMLGetAttrCount(root), 2u);
    EXPECT_STREQ(uXMLGetAttrName(root, 0), "t");
    EXPECT_STREQ(uXMLGetAttrValue(root, 0), "a&bA");
    EXPECT_STREQ(uXMLGetAttrName(root, 1), "id");
    EXPECT_STREQ(uXMLGetAttrValue(root, 1), "8");
    EXPECT_EQ(root->attributes->assumed, 1);
    // A later run of text replaces an earlier one.
    EXPECT_STREQ(uXMLGetData(root), "third");
    EXPECT_STREQ(uXMLGetDataAtPath(root, "doc/ALGORITHM/NAME"), "x");
    EXPECT_EQ(uXMLGetAttrCount(uXMLGetSubElementFromStr(root, "e")), 0u);
    EXPECT_EQ(uXMLGetSubElementCount(root), 3u);
    uXMLDisposeElement(root);

    uxml_element *none = reinterpret_cast<uxml_element *>(1);
    EXPECT_EQ(uXMLParseStrToElement("<a><b></a>", &none), UXML_ERR_SYNTAX);
    EXPECT_EQ(none, nullptr);
}

TEST_F(XmlParseTest, TreeHelperWithTheCallersFrame) {
    uxml_element *holder = uXMLCreateEmptyElement();
    uxml_tree_frame bottom{nullptr, holder};
    uxml_tree_frame *top = &bottom;
    EXPECT_EQ(uXMLParseStr("<a><b>1</b><b>2</b></a>", TreeHelper, &top), 0u);
    EXPECT_EQ(top, &bottom);
    ASSERT_EQ(uXMLGetSubElementCount(holder), 1u);
    EXPECT_STREQ(uXMLGetSubElementData(holder, "a/b"), "1");
    uxml_tree_frame *none = nullptr;
    EXPECT_EQ(TreeHelper(UXML_EVENT_START, &none, "<", 1, "a", 1), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(TreeHelper(UXML_EVENT_START, nullptr, "<", 1, "a", 1), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(TreeHelper(UXML_EVENT_END, &top, "a", 1, ">", 1), UXML_ERR_INVALID_ARG);  // bottom stays
    uXMLDisposeElement(holder);
}

TEST_F(XmlParseTest, AllocationFailuresLeaveNothingBehind) {
    const std::string doc =
        "<r a=\"1\" b=\"x&amp;y\"><c d=\"2\">text &lt;</c><c/>tail<e><f g=\"h\">deep</f></e></r>";
    uint64_t failures = for_each_allocation_failure([&](uint64_t) {
        uxml_element *e = nullptr;
        uint32_t status = uXMLParseBufToElement(doc.data(), static_cast<uint32_t>(doc.size()), &e);
        // A failed unescape is not reported: such a run gives 0 with less built.
        EXPECT_TRUE(status == 0 || status == UXML_ERR_NO_MEMORY) << std::hex << status;
        EXPECT_EQ(e == nullptr, status != 0);
        uXMLDisposeElement(e);
    });
    EXPECT_GT(failures, 10u);
    for (uint32_t chunk : {1u, 4096u}) {
        failures = for_each_allocation_failure([&](uint64_t) {
            ChunkSource source{doc + doc, 0, chunk};
            ombr_iostream_callbacks callbacks{ChunkSource::read, nullptr, nullptr, nullptr, nullptr};
            ombr_iostream_t stream = nullptr;
            if (ombr_iostream_create(&stream, 1024, &callbacks, &source) != 0) return;
            EventLog log;
            uint32_t status = uXMLParseStream(stream, EventLog::record, &log);
            EXPECT_TRUE(status == 0 || status == UXML_ERR_NO_MEMORY || status == OMBR_IOSTREAM_ERR_NO_MEMORY)
                << std::hex << status;
            ombr_iostream_release(stream);
        });
        EXPECT_GT(failures, 2u);
    }
}

// Event parsing in buffer mode allocates nothing, however large the input.
TEST_F(XmlParseTest, BufferModeEventParseAllocatesNothing) {
    std::string doc = catalogue_document();
    uint64_t before = zelto_manager_memory_alloc_count();
    ParseResult r = parse_buffer(doc);
    uint64_t after = zelto_manager_memory_alloc_count();
    EXPECT_EQ(r.status, 0u);
    EXPECT_GT(r.events.size(), 2000u);
    EXPECT_EQ(after, before);
}

}  // namespace
