// The XML bridge: documents into trees and trees into documents, the
// mapping's consequences, streams, depth, statuses and every allocation of
// both directions failing in turn.
#include <string>

#include "hdo_test_support.h"
#include "ombr/ombr_iostream.h"
#include "ombr/ombr_string.h"
#include "ombr/ombr_xml.h"

namespace {

using HdoXml = HdoTest;

ombr_hdo_t parse(const char *xml, std::string *root_name = nullptr) {
    ombr_hdo_t node = nullptr;
    char *name = nullptr;
    EXPECT_EQ(ombr_hdo_from_xml(xml, &node, &name), 0u) << xml;
    if (root_name) *root_name = name ? name : "(null)";
    ombr_string_free(name);
    return node;
}

std::string render(ombr_hdo_t node, const char *root, uint8_t header = 0, uint8_t pretty = 0) {
    char *text = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(ombr_hdo_to_xml_buf(node, root, header, pretty, &text, &length), 0u);
    std::string result = text ? std::string(text, length) : "(null)";
    ombr_hdo_free_xml_buf(text);
    return result;
}

std::string string_at(ombr_hdo_t node, const char *path, uint32_t ordinal = 0) {
    const char *text = nullptr;
    const uint32_t status = ombr_hdo_get_string_by_hpath(node, path, nullptr, ordinal, &text);
    if (status) return "status " + std::to_string(status);
    return text ? text : "(null)";
}

TEST_F(HdoXml, RoundTripPutsValuesBeforeChildren) {
    std::string root;
    ombr_hdo_t node = parse("<r><v>1</v><n><w>2</w></n></r>", &root);
    EXPECT_EQ(root, "r");
    EXPECT_EQ(dump_tree(node), "{v:'1';n={w:'2';};}");
    EXPECT_EQ(render(node, "r"), "<r><v>1</v><n><w>2</w></n></r>");
    ombr_hdo_release(node);
    node = parse("<r><n><w>2</w></n><v>1</v></r>");
    EXPECT_EQ(render(node, "r"), "<r><v>1</v><n><w>2</w></n></r>");
    EXPECT_EQ(render(node, "other", 1, 1),
              "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<other>\n  <v>1</v>\n  <n>\n    <w>2</w>\n  </n>\n</other>\n");
    ombr_hdo_release(node);
}

TEST_F(HdoXml, FingerprintDescriptionGivesAlgorithmNameAndVersion) {
    const std::string xml =
        "<?xml version=\"1.0\"?><FINGERPRINT><ALGORITHM><NAME>chromaprint</NAME><VERSION>2</VERSION></ALGORITHM>"
        "<DURATION>180</DURATION><DATA>" + std::string(1800, 'A') + "</DATA></FINGERPRINT>";
    ombr_hdo_t node = parse(xml.c_str());
    EXPECT_EQ(string_at(node, "ALGORITHM/$NAME"), "chromaprint");
    EXPECT_EQ(string_at(node, "ALGORITHM/$VERSION"), "2");
    EXPECT_EQ(string_at(node, "$DATA").size(), 1800u);
    ombr_hdo_release(node);
    node = parse("<doc><ALGORITHM><NAME>x</NAME><VERSION>1</VERSION></ALGORITHM></doc>");
    EXPECT_EQ(string_at(node, "ALGORITHM/$NAME"), "x");
    EXPECT_EQ(string_at(node, "ALGORITHM/$VERSION"), "1");
    ombr_hdo_release(node);
}

TEST_F(HdoXml, ElementsWithTextBecomeValuesOthersNodes) {
    ombr_hdo_t node = parse("<a><b>1</b><c/></a>");
    EXPECT_EQ(dump_tree(node), "{b:'1';c={};}");
    ombr_hdo_release(node);
    // Repeated elements pile up in document order.
    node = parse("<r><t>1</t><t>2</t><n/><n><x>3</x></n></r>");
    EXPECT_EQ(dump_tree(node), "{t:'1';t:'2';n={};n={x:'3';};}");
    ombr_hdo_release(node);
    // A second run of text in one element is a second value of that name.
    node = parse("<r><a>x<!-- c -->y</a></r>");
    EXPECT_EQ(dump_tree(node), "{a:'x';a:'y';}");
    ombr_hdo_release(node);
}

TEST_F(HdoXml, TextAndElementsInOneElementAreNotKept) {
    // "a" gives no node: its text and "b" both land on the current node, and
    // its end still goes up one level, so "c" lands one level too high.
    ombr_hdo_t node = parse("<r><n><a>x<b>y</b></a><c>z</c></n></r>");
    EXPECT_EQ(dump_tree(node), "{c:'z';n={a:'x';b:'y';};}");
    ombr_hdo_release(node);
}

TEST_F(HdoXml, AttributesGoToTheNodeOrTheValue) {
    ombr_hdo_t node = parse("<r id=\"1\" k=\"v&amp;w\"><t lang=\"en\">T</t><e a=\"1\"/><n b=\"2\"><x>3</x></n></r>");
    EXPECT_EQ(dump_tree(node), "{@id=1;@k=v&w;t:'T' @lang=en;e={@a=1;};n={@b=2;x:'3';};}");
    EXPECT_EQ(render(node, "r"),
              "<r id=\"1\" k=\"v&amp;w\"><t lang=\"en\">T</t><e a=\"1\"/><n b=\"2\"><x>3</x></n></r>");
    ombr_hdo_release(node);
    node = parse("<r a=\"1\"/>");
    EXPECT_EQ(dump_tree(node), "{@a=1;}");
    ombr_hdo_release(node);
}

TEST_F(HdoXml, EntitiesArriveDecodedAndLeaveEscaped) {
    ombr_hdo_t node = parse("<a>&lt;</a>");
    EXPECT_EQ(string_at(node, "$a"), "<");
    ombr_hdo_release(node);
    node = make_node();
    add_string(node, "v", "<&>\"'");
    const std::string xml = render(node, "r");
    EXPECT_EQ(xml, "<r><v>&lt;&amp;&gt;&quot;&apos;</v></r>");
    ombr_hdo_t back = parse(xml.c_str());
    EXPECT_EQ(string_at(back, "$v"), "<&>\"'");
    for (auto item : {back, node}) ombr_hdo_release(item);
}

TEST_F(HdoXml, ValueTypesInDocuments) {
    ombr_hdo_t node = make_node();
    ombr_hdo_new_value_int(node, "neg", -1, 0, nullptr);
    ombr_hdo_new_value(node, "none", 0, nullptr);
    int payload = 0;
    ombr_hdo_new_value_pointer(node, "ptr", &payload, 4, 0, nullptr, nullptr);
    add_string(node, "hidden", "h", OMBR_HDO_HIDDEN);
    EXPECT_EQ(render(node, "r"), "<r><neg>4294967295</neg></r>");
    // A binary value becomes CDATA, which the parser refuses.
    ombr_hdo_new_value_binary(node, "bin", "xy", 2, 0, nullptr);
    const std::string xml = render(node, "r");
    EXPECT_EQ(xml, "<r><neg>4294967295</neg><bin><![CDATA[xy]]></bin></r>");
    ombr_hdo_t back = nullptr;
    EXPECT_EQ(ombr_hdo_from_xml(xml.c_str(), &back, nullptr), UXML_ERR_NOT_AVAILABLE);
    EXPECT_EQ(back, nullptr);
    ombr_hdo_release(node);
}

TEST_F(HdoXml, DocumentsFromAStreamLeaveTheRestReadable) {
    const char text[] = "<a><x>1</x></a><b><y>2</y></b>";
    ombr_iostream_t stream = nullptr;
    ASSERT_EQ(ombr_iostream_create_from_buffer(&stream, text, sizeof text - 1, nullptr, nullptr), 0u);
    ombr_hdo_t first = nullptr, second = nullptr;
    char *name = nullptr;
    ASSERT_EQ(ombr_hdo_from_xml_stream(stream, &first, &name), 0u);
    EXPECT_STREQ(name, "a");
    ombr_string_free(name);
    ASSERT_EQ(ombr_hdo_from_xml_stream(stream, &second, &name), 0u);
    EXPECT_STREQ(name, "b");
    ombr_string_free(name);
    EXPECT_EQ(string_at(first, "$x"), "1");
    EXPECT_EQ(string_at(second, "$y"), "2");
    for (auto item : {first, second}) ombr_hdo_release(item);
    ombr_iostream_release(stream);
    // A stream that ends early gives what came.
    const char partial[] = "<a><x>1</x><n><y>2</y>";
    ASSERT_EQ(ombr_iostream_create_from_buffer(&stream, partial, sizeof partial - 1, nullptr, nullptr), 0u);
    ASSERT_EQ(ombr_hdo_from_xml_stream(stream, &first, nullptr), 0u);
    EXPECT_EQ(dump_tree(first), "{x:'1';n={y:'2';};}");
    ombr_hdo_release(first);
    ombr_iostream_release(stream);
}

TEST_F(HdoXml, StatusesOfTheBridge) {
    ombr_hdo_t node = nullptr;
    char *text = nullptr;
    EXPECT_EQ(ombr_hdo_from_xml("", &node, nullptr), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_from_xml(nullptr, &node, nullptr), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_from_xml("<a/>", nullptr, nullptr), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_from_xml_stream(nullptr, &node, nullptr), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_from_xml("<a>x</b>", &node, nullptr), UXML_ERR_SYNTAX);
    EXPECT_EQ(ombr_hdo_from_xml("<a:b/>", &node, nullptr), UXML_ERR_BAD_BYTE);
    EXPECT_EQ(node, nullptr);
    node = make_node();
    EXPECT_EQ(ombr_hdo_to_xml(node, nullptr, 0, 0, &text), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_to_xml(node, "r", 0, 0, nullptr), OMBR_HDO_INVALID_ARG);
    EXPECT_EQ(ombr_hdo_to_xml(node, "", 0, 0, &text), OMBR_HDO_NO_MEMORY);
    ASSERT_EQ(ombr_hdo_to_xml(node, "r", 0, 0, &text), 0u);
    EXPECT_STREQ(text, "<r/>");
    EXPECT_EQ(ombr_hdo_free_xml(text), 0u);
    struct {
        uint32_t magic = 7;
        void *pad[12] = {};
    } fake;
    EXPECT_EQ(ombr_hdo_to_xml(reinterpret_cast<ombr_hdo_t>(&fake), "r", 0, 0, &text), OMBR_HDO_BAD_MAGIC);
    ombr_hdo_release(node);
}

TEST(HdoXmlPackage, BridgeNeedsThePackage) {
    ombr_hdo_t node = nullptr;
    char *text = nullptr;
    EXPECT_EQ(ombr_hdo_from_xml("<a/>", &node, nullptr), OMBR_HDO_NOT_INITIALIZED);
    EXPECT_EQ(ombr_hdo_from_xml(nullptr, &node, nullptr), OMBR_HDO_NOT_INITIALIZED);
    EXPECT_EQ(ombr_hdo_to_xml(nullptr, "r", 0, 0, &text), OMBR_HDO_NOT_INITIALIZED);
    EXPECT_EQ(ombr_hdo_free_xml(nullptr), OMBR_HDO_NOT_INITIALIZED);
}

TEST_F(HdoXml, DeepDocumentsEndInAStatus) {
    auto nested = [](uint32_t depth) {
        std::string xml;
        for (uint32_t i = 0; i < depth; ++i) xml += "<e>";
        xml += "<v>x</v>";
        for (uint32_t i = 0; i < depth; ++i) xml += "</e>";
        return xml;
    };
    // The root element has no node: this many levels still fit.
    ombr_hdo_t node = parse(nested(OMBR_HDO_MAX_DEPTH + 1).c_str());
    std::string path;
    for (uint32_t i = 0; i < OMBR_HDO_MAX_DEPTH; ++i) path += "e/";
    EXPECT_EQ(string_at(node, (path + "$v").c_str()), "x");
    const std::string xml = render(node, "e");
    EXPECT_EQ(xml, nested(OMBR_HDO_MAX_DEPTH + 1));
    ombr_hdo_release(node);
    for (uint32_t depth : {OMBR_HDO_MAX_DEPTH + 2, 5000u, 200000u}) {
        node = nullptr;
        const uint32_t status = ombr_hdo_from_xml(nested(depth).c_str(), &node, nullptr);
        EXPECT_TRUE(status == OMBR_HDO_LIMIT || status == UXML_ERR_SYNTAX) << depth << " " << std::hex << status;
        EXPECT_EQ(node, nullptr);
    }
}

const char *kSample =
    "<r id=\"1\"><t lang=\"en\">T&amp;T</t><t>2</t><e a=\"x\"/><n><m>1</m><k><j>deep</j></k></n><z>tail</z></r>";

TEST_F(HdoXml, EveryAllocationOfReadingFailingInTurn) {
    ombr_hdo_t reference = parse(kSample);
    const std::string expected = dump_tree(reference);
    ombr_hdo_release(reference);
    const int64_t before = live_blocks();
    uint64_t failures = for_each_allocation_failure([&](uint64_t n) {
        ombr_hdo_t node = nullptr;
        char *name = nullptr;
        const uint32_t status = ombr_hdo_from_xml(kSample, &node, &name);
        zelto_manager_memory_fail_nth(0);
        if (status == 0) {
            EXPECT_EQ(dump_tree(node), expected) << n;
            EXPECT_STREQ(name, "r");
            ombr_string_free(name);
            ombr_hdo_release(node);
        } else {
            EXPECT_TRUE(OMBR_STATUS_FAILED(status)) << n;
            EXPECT_EQ(node, nullptr);
        }
        EXPECT_EQ(live_blocks(), before) << n;
    });
    EXPECT_GT(failures, 30u);
}

TEST_F(HdoXml, EveryAllocationOfWritingFailingInTurn) {
    ombr_hdo_t source = parse(kSample);
    const std::string tree = dump_tree(source);
    const std::string expected = render(source, "r");
    const int64_t before = live_blocks();
    for_each_allocation_failure([&](uint64_t n) {
        char *text = nullptr;
        uint32_t length = 0;
        const uint32_t status = ombr_hdo_to_xml_buf(source, "r", 0, 0, &text, &length);
        zelto_manager_memory_fail_nth(0);
        if (status == 0) {
            // What was built is rendered, and the renderer drops what it
            // cannot store: parts may be missing, nothing is added.
            EXPECT_LE(length, expected.size()) << n;
            ombr_hdo_free_xml_buf(text);
        } else {
            EXPECT_TRUE(OMBR_STATUS_FAILED(status)) << n;
        }
        EXPECT_EQ(dump_tree(source), tree) << n;
        EXPECT_EQ(live_blocks(), before) << n;
    });
    ombr_hdo_release(source);
}

}  // namespace
