// uXML paths and the ombr_xml package: path walks, data at a path with its
// attribute precedence, creating values at paths, the package frame, the
// init tests, the error hook and the timing records.
#include <string>
#include <vector>

#include "log_capture.h"
#include "ombr/ombr_string.h"
#include "xml_test_support.h"

namespace {

class XmlPathTest : public XmlTest {};

uxml_element *parse(const char *doc) {
    uxml_element *e = nullptr;
    EXPECT_EQ(uXMLParseStrToElement(doc, &e), 0u) << doc;
    return e;
}

TEST_F(XmlPathTest, WalkAndRead) {
    uxml_element *root = parse("<root x=\"attr\"><x>element</x><a><b>deep</b><b>second</b></a><empty/></root>");
    EXPECT_EQ(uXMLGetSubElementAtPath(root, ""), root);
    EXPECT_EQ(uXMLGetSubElementAtPath(root, nullptr), root);
    EXPECT_STREQ(uXMLGetName(uXMLGetSubElementAtPath(root, "a/b")), "b");
    EXPECT_STREQ(uXMLGetSubElementData(root, "a/b"), "deep");
    EXPECT_EQ(uXMLGetSubElementAtPath(root, "root/a"), nullptr);  // the start's own name is not a step
    EXPECT_EQ(uXMLGetSubElementAtPath(root, "a/missing/b"), nullptr);
    EXPECT_EQ(uXMLGetSubElementAtPath(root, "a/"), uXMLGetSubElementFromStr(root, "a"));
    EXPECT_EQ(uXMLGetSubElementAtPath(nullptr, "a"), nullptr);
    EXPECT_STREQ(ombr_xml_get_sub_element_data(root, "x"), "element");

    // Data at a path: the first step names the element itself, and an
    // attribute wins over a sub-element of the same name.
    EXPECT_STREQ(uXMLGetDataAtPath(root, "root/x"), "attr");
    EXPECT_STREQ(uXMLGetDataAtPath(root, "/root/a/b"), "deep");
    EXPECT_STREQ(uXMLGetDataAtPath(root, "root/a/b/"), "deep");
    EXPECT_EQ(uXMLGetDataAtPath(root, "other/x"), nullptr);
    EXPECT_EQ(uXMLGetDataAtPath(root, "root"), nullptr);  // root has no data
    EXPECT_EQ(uXMLGetDataAtPath(root, "root/empty"), nullptr);
    EXPECT_EQ(uXMLGetDataAtPath(root, "root/missing/b"), nullptr);
    EXPECT_EQ(uXMLGetDataAtPath(root, "/"), nullptr);
    EXPECT_EQ(uXMLGetDataAtPath(root, nullptr), nullptr);
    uxml_element *leaf = uXMLGetSubElementAtPath(root, "a/b");
    EXPECT_STREQ(uXMLGetDataAtPath(leaf, "b"), "deep");
    EXPECT_STREQ(uXMLGetDataAtPath(leaf, "b/"), "deep");
    uXMLDisposeElement(root);
}

// A resolver that makes steps starting with "@" attributes and refuses "no".
uint8_t at_resolver(uxml_element *, const char *name, uint32_t length, const char **out_name, uint32_t *out_length,
                    uint16_t *out_kind, void *data) {
    ++*static_cast<int *>(data);
    if (length == 2 && std::strncmp(name, "no", 2) == 0) return 0;
    bool attribute = length > 3 && std::strncmp(name, "at_", 3) == 0;
    *out_name = attribute ? name + 3 : name;
    *out_length = attribute ? length - 3 : length;
    *out_kind = attribute ? UXML_PATH_ATTRIBUTE : UXML_PATH_ELEMENT;
    return 1;
}

TEST_F(XmlPathTest, SetValueAtPath) {
    uxml_element *e = uXMLCreateElementFromStr("e", nullptr);
    EXPECT_EQ(uXMLSetValueAtPath(e, "a/b", "v", nullptr, nullptr), 0u);
    EXPECT_EQ(render(e, 0, 0, 0), "<e><a><b>v</b></a></e>");
    EXPECT_EQ(uXMLSetValueAtPath(e, "a/b", "w", nullptr, nullptr), UXML_ERR_NOT_AVAILABLE);
    EXPECT_EQ(uXMLSetValueAtPath(e, "/a/b+", "w", nullptr, nullptr), 0u);
    EXPECT_EQ(uXMLSetValueAtPath(e, "a+/c/", "x", nullptr, nullptr), 0u);
    EXPECT_EQ(render(e, 0, 0, 0), "<e><a><b>v</b><b>w</b></a><a><c>x</c></a></e>");
    EXPECT_EQ(ombr_xml_set_value_at_path(e, "a/d", "y"), 0u);
    EXPECT_STREQ(uXMLGetSubElementData(e, "a/d"), "y");
    for (const char *bad : {"a++/b", "a-b", "a/:b", "a+b", "//a"})
        EXPECT_EQ(uXMLSetValueAtPath(e, bad, "z", nullptr, nullptr), UXML_ERR_INVALID_ARG) << bad;
    EXPECT_EQ(uXMLSetValueAtPath(e, "", "z", nullptr, nullptr), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(uXMLSetValueAtPath(nullptr, "a", "z", nullptr, nullptr), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(uXMLSetValueAtPath(e, "/", "z", nullptr, nullptr), 0u);  // no name: the creation fails, 0

    int calls = 0;
    EXPECT_EQ(uXMLSetValueAtPath(e, "a/at_k", "attr", at_resolver, &calls), 0u);
    EXPECT_STREQ(uXMLGetAttrFromStr(uXMLGetSubElementFromStr(e, "a"), "k"), "attr");
    EXPECT_EQ(uXMLSetValueAtPath(e, "at_k/a", "ignored", at_resolver, &calls), 0u);  // attribute not last: 0
    EXPECT_EQ(uXMLGetAttrFromStr(e, "k"), nullptr);
    EXPECT_EQ(uXMLSetValueAtPath(e, "a/no", "x", at_resolver, &calls), UXML_ERR_RESOLVER);
    EXPECT_EQ(calls, 5);
    uXMLDisposeElement(e);
}

class XmlPackageTest : public LeakCheckedTest {
   protected:
    void TearDown() override {
        while (ombr_xml_initchecks()) ombr_xml_shutdown();
        LeakCheckedTest::TearDown();
    }
};

TEST_F(XmlPackageTest, InitTestsOfTheEntriesThatHaveOne) {
    ASSERT_EQ(ombr_xml_initchecks(), 0u);
    EXPECT_EQ(ombr_xml_shutdown(), 7u);
    uxml_element *out = nullptr;
    EXPECT_EQ(ombr_xml_parse_buf_to_element("<a/>", 4, &out), UXML_ERR_NOT_INITIALIZED);
    EXPECT_EQ(ombr_xml_parse_str_to_element("<a/>", &out), UXML_ERR_NOT_INITIALIZED);
    EventLog log;
    EXPECT_EQ(ombr_xml_parse_str_to_helper("<a/>", EventLog::record, &log), UXML_ERR_NOT_INITIALIZED);
    EXPECT_EQ(ombr_xml_parse_buf_to_helper("<a/>", 4, EventLog::record, &log), UXML_ERR_NOT_INITIALIZED);
    char *text = nullptr;
    uint32_t capacity = 0, length = 0;
    EXPECT_EQ(ombr_xml_unescape_str("&lt;", 4, &text, &capacity), UXML_ERR_NOT_INITIALIZED);
    uxml_element *e = ombr_xml_create_element("a");
    EXPECT_EQ(ombr_xml_render_to_str_ex(e, 0, 0, 0), nullptr);
    EXPECT_EQ(ombr_xml_render_to_buffer(e, 0, 0, 0, &text, &length), UXML_ERR_NOT_INITIALIZED);
    // These two work without the package.
    text = ombr_xml_render_to_str(e, 0);
    EXPECT_STREQ(text, "<a/>\n");
    uXMLFree(text);
    ombr_iostream_t stream = nullptr;
    ASSERT_EQ(ombr_iostream_create_from_buffer(&stream, "<b/>", 4, nullptr, nullptr), 0u);
    EXPECT_EQ(ombr_xml_parse_stream_to_helper(stream, EventLog::record, &log), 0u);
    EXPECT_EQ(log.events, (std::vector<std::string>{"S <|b", "E b|/>"}));
    ombr_iostream_release(stream);

    ASSERT_EQ(ombr_xml_initialize(), 0u);
    EXPECT_STREQ(ombr_xml_get_version(), "3.2.0.422");
    EXPECT_STREQ(ombr_xml_get_build_date(), "2013-01-08 07:49-0800");
    EXPECT_EQ(ombr_xml_parse_str_to_element("", &out), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_xml_parse_str_to_element("<a/>", nullptr), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_xml_render_to_buffer(nullptr, 0, 0, 0, &text, &length), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_xml_render_to_buffer(e, 0, 0, 0, nullptr, &length), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_xml_render_to_buffer(e, 0, 0, 0, &text, nullptr), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_xml_render_to_str_ex(nullptr, 0, 0, 0), nullptr);
    ASSERT_EQ(ombr_xml_render_to_buffer(e, 1, 0, 0, &text, &length), 0u);
    EXPECT_EQ(std::string(text), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?><a/>");
    EXPECT_EQ(length, 43u);
    uXMLFree(text);
    ASSERT_EQ(ombr_xml_unescape_str("&lt;", 4, &text, &capacity), 0u);
    EXPECT_STREQ(text, "<");
    uXMLFree(text);
    ombr_xml_dispose_element(e);
    ASSERT_EQ(ombr_xml_shutdown(), 0u);
}

TEST_F(XmlPackageTest, WrapperForwards) {
    ASSERT_EQ(ombr_xml_initialize(), 0u);
    uxml_element *root = nullptr;
    ASSERT_EQ(ombr_xml_parse_str_to_element("<r k=\"v\"><t>  padded \t</t></r>", &root), 0u);
    EXPECT_STREQ(ombr_xml_get_name(root), "r");
    uxml_element *t = ombr_xml_get_sub_element_from_str(root, "t");
    EXPECT_STREQ(ombr_xml_get_data(t), "padded \t");  // leading whitespace is the parser's
    EXPECT_STREQ(ombr_xml_get_data_trimmed(t), "padded");
    EXPECT_STREQ(ombr_xml_get_data(t), "padded");  // trimmed in place
    char *name = nullptr, *value = nullptr;
    EXPECT_EQ(ombr_xml_get_attr(root, &name, &value, 0), 0u);
    EXPECT_STREQ(name, "k");
    EXPECT_STREQ(value, "v");
    EXPECT_EQ(ombr_xml_get_attr(root, &name, &value, 1), UXML_NOT_FOUND);
    EXPECT_EQ(name, nullptr);  // written even then
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(ombr_xml_get_attr(root, nullptr, nullptr, 0), 0u);
    EXPECT_EQ(ombr_xml_set_attr_from_int(root, "n", -1), 0u);
    EXPECT_EQ(ombr_xml_set_attr_from_uint(root, "u", 1), 0u);
    ombr_xml_set_attr_from_str_checked(root, 0, "s", "x");
    ombr_xml_set_attr_from_int_checked(root, 1, "no", 1);
    ombr_xml_set_attr_from_uint_checked(root, 0, "w", 2);
    EXPECT_EQ(ombr_xml_get_attr_count(root), 5u);
    EXPECT_STREQ(ombr_xml_get_attr_from_str(root, "w"), "2");
    uxml_element *added = nullptr;
    EXPECT_EQ(ombr_xml_add_sub_element_from_str(root, "t", "two", &added), 0u);
    EXPECT_EQ(ombr_xml_add_sub_element_from_uint(root, "n", 12, nullptr), 0u);
    EXPECT_EQ(ombr_xml_add_sub_element_from_str_checked(root, 0x900C0001u, "t", "x", nullptr), 0x900C0001u);
    EXPECT_EQ(ombr_xml_get_named_sub_element_count(root, "t"), 2u);
    EXPECT_EQ(ombr_xml_get_sub_element_count(root), 3u);
    EXPECT_EQ(ombr_xml_get_sub_element(root, 1), added);
    EXPECT_STREQ(ombr_xml_get_sub_element_name(root, 2), "n");
    EXPECT_EQ(ombr_xml_get_sub_element_from_buf(root, "nn", 1), ombr_xml_get_sub_element(root, 2));
    uxml_element *copy = ombr_xml_clone_element(root, 1);
    EXPECT_TRUE(same_tree(root, copy));
    ombr_xml_remove_sub_element(copy, ombr_xml_get_sub_element(copy, 0), 1);
    EXPECT_EQ(ombr_xml_get_sub_element_count(copy), 2u);
    ombr_xml_smart_dispose_element(&copy);
    EXPECT_EQ(copy, nullptr);
    uxml_element *c = ombr_xml_create_element_from_buf("c", "data!", 4);
    EXPECT_STREQ(ombr_xml_get_data(c), "data");
    EXPECT_EQ(ombr_xml_set_data_from_buf(c, "xy", 1), 0u);
    EXPECT_STREQ(ombr_xml_get_data(c), "x");
    EXPECT_EQ(ombr_xml_set_cdata_from_buf(c, "\1", 1), 0u);
    EXPECT_EQ(ombr_xml_assume_data(c, uXMLMakeStr("m", 1), uXMLFree), 0u);
    EXPECT_EQ(ombr_xml_add_sub_element(root, c), 0u);
    uxml_element *b = ombr_xml_create_element_from_buf_cdata("b", "\0\1", 2);
    EXPECT_EQ(b->cdata_size, 2u);
    ombr_xml_dispose_element(b);
    uxml_element *s = ombr_xml_create_element_from_str("s", "d");
    EXPECT_STREQ(ombr_xml_get_data(s), "d");
    ombr_xml_dispose_element(s);
    ombr_xml_dispose_element(root);
    EventLog log;
    EXPECT_EQ(ombr_xml_parse_buf_to_helper("<a/>", 4, EventLog::record, &log), 0u);
    EXPECT_EQ(ombr_xml_parse_str_to_helper("<a/>", EventLog::record, &log), 0u);
    EXPECT_EQ(log.events.size(), 4u);
    ombr_xml_shutdown();
}

TEST_F(XmlPackageTest, FailuresReachTheErrorHookAndTimingRecordsHaveTheirForm) {
    ASSERT_EQ(ombr_xml_initialize(), 0u);
    {
        LogCapture capture({OMBR_PKG_XML, OMBR_PKG_XML_TIMING}, OMBR_LOG_ERROR | OMBR_LOG_DETAIL);
        uxml_element *out = nullptr;
        EXPECT_EQ(ombr_xml_parse_str_to_element("<a:b/>", &out), UXML_ERR_BAD_BYTE);
        ASSERT_FALSE(capture.errors.empty());
        EXPECT_EQ(capture.errors.back().unit, "ombr_xml_glue");
        EXPECT_EQ(capture.errors.back().package, UXML_ERR_BAD_BYTE);
        // Soft statuses never reach the hook.
        size_t errors = capture.errors.size();
        EXPECT_EQ(ombr_xml_get_attr(nullptr, nullptr, nullptr, 0), UXML_NOT_FOUND);
        EXPECT_EQ(capture.errors.size(), errors);

        ASSERT_EQ(ombr_xml_parse_str_to_element("<a>x</a>", &out), 0u);
        char *text = ombr_xml_render_to_str_ex(out, 0, 0, 0);
        char *binary = nullptr;
        uint32_t length = 0;
        ASSERT_EQ(ombr_xml_render_to_buffer(out, 0, 0, 0, &binary, &length), 0u);
        std::vector<std::string> labels;
        for (const LogRecord &m : capture.messages) {
            EXPECT_EQ(m.package, OMBR_PKG_XML_TIMING);
            EXPECT_EQ(m.level, OMBR_LOG_DETAIL);
            // "CNT|%10llu|label|bytes|0x%08X|"
            ASSERT_EQ(m.text.substr(0, 4), "CNT|") << m.text;
            ASSERT_EQ(m.text[14], '|') << m.text;
            labels.push_back(m.text.substr(15));
        }
        EXPECT_EQ(labels, (std::vector<std::string>{"xml parse buf|6|0x900C0121|", "xml parse buf|8|0x00000000|",
                                                    "xml render|8|0x00000000|", "xml render binary|8|0x00000000|"}));
        uXMLFree(text);
        uXMLFree(binary);
        uXMLDisposeElement(out);
    }
    // Without the detail level there is no record.
    {
        LogCapture capture({OMBR_PKG_XML_TIMING}, OMBR_LOG_NOTICE);
        EventLog log;
        EXPECT_EQ(ombr_xml_parse_str_to_helper("<a/>", EventLog::record, &log), 0u);
        EXPECT_TRUE(capture.messages.empty());
    }
    ombr_xml_shutdown();
}

TEST_F(XmlPackageTest, BringUpOrderAndFailure) {
    uint32_t memory = zelto_manager_memory_init_count();
    ASSERT_EQ(ombr_xml_initialize(), 0u);
    EXPECT_EQ(ombr_string_initchecks() > 0, true);
    EXPECT_EQ(ombr_time_initchecks() > 0, true);
    EXPECT_GT(zelto_manager_memory_init_count(), memory);
    ASSERT_EQ(ombr_xml_initialize(), 0u);
    EXPECT_EQ(ombr_xml_initchecks(), 2u);
    EXPECT_EQ(ombr_xml_shutdown(), 0u);
    EXPECT_EQ(ombr_xml_shutdown(), 0u);
    EXPECT_EQ(zelto_manager_memory_init_count(), memory);
    zelto_manager_memory_fail_initialize(1);
    EXPECT_EQ(ombr_xml_initialize(), 10u);
    zelto_manager_memory_fail_initialize(0);
    EXPECT_EQ(ombr_xml_initchecks(), 0u);
    EXPECT_EQ(zelto_manager_memory_init_count(), memory);
}

}  // namespace
