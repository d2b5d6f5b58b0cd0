// uXML element tree: creation and the one-allocation layout, data and
// CDATA ownership, attributes and their order, sub-elements and the growth
// of their array, clone and disposal, the checked helpers.
#include <string>
#include <vector>

#include "out_param.h"
#include "xml_test_support.h"

namespace {

class XmlTreeTest : public XmlTest {};

std::vector<std::string> attribute_list(const uxml_element *e) {
    std::vector<std::string> out;
    for (uint32_t i = 0; i < uXMLGetAttrCount(e); ++i)
        out.push_back(std::string(uXMLGetAttrName(e, i)) + "=" + uXMLGetAttrValue(e, i));
    return out;
}

TEST_F(XmlTreeTest, CreationRefusesBadNamesAndStoresTextsBehindTheRecord) {
    EXPECT_EQ(uXMLCreateElementFromBuf("name", 0, "d", 1), nullptr);
    EXPECT_EQ(uXMLCreateElementFromBuf("\0x", 2, "d", 1), nullptr);
    EXPECT_EQ(uXMLCreateElementFromBuf(nullptr, 3, "d", 1), nullptr);
    EXPECT_EQ(uXMLCreateElementFromStr("", "d"), nullptr);
    EXPECT_EQ(uXMLCloneElement(nullptr, 1), nullptr);

    int64_t blocks = zelto_manager_memory_live_blocks();
    uxml_element *e = uXMLCreateElementFromBuf("namexx", 4, "datayy", 4);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks + 1);  // one allocation
    EXPECT_STREQ(uXMLGetName(e), "name");
    EXPECT_STREQ(uXMLGetData(e), "data");
    EXPECT_EQ(reinterpret_cast<char *>(e + 1), e->name);
    EXPECT_EQ(e->data, e->name + 5);
    EXPECT_EQ(e->owns_data, 0);
    EXPECT_EQ(e->assumed, 0);
    uXMLDisposeElement(e);

    uxml_element *empty = uXMLCreateElementFromStr("a", "");
    EXPECT_EQ(uXMLGetData(empty), nullptr);
    uXMLSmartDisposeElement(&empty);
    EXPECT_EQ(empty, nullptr);
    uXMLSmartDisposeElement(&empty);
    uXMLSmartDisposeElement(nullptr);
    uXMLDisposeElement(nullptr);

    uxml_element *blank = uXMLCreateEmptyElement();
    ASSERT_NE(blank, nullptr);
    EXPECT_EQ(uXMLGetName(blank), nullptr);
    EXPECT_EQ(uXMLCloneElement(blank, 1), nullptr);  // no name
    uXMLDisposeElement(blank);
}

TEST_F(XmlTreeTest, DataAndCdataOwnership) {
    uxml_element *e = uXMLCreateElementFromBufCDATA("bin", 3, "\0\1\2", 3);
    ASSERT_NE(e, nullptr);
    uint8_t *bytes = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(out(uXMLGetCDATA, e, &bytes), 3u);
    EXPECT_EQ(bytes[1], 1);
    EXPECT_EQ(uXMLGetData(e), nullptr);
    EXPECT_EQ(uXMLGetCDATA(e, nullptr, nullptr), 0u);

    // A set with a first byte of 0 stores nothing (unlike creation).
    EXPECT_EQ(uXMLSetCDATAFromBuf(e, "\0\1", 2), 0u);
    bytes = reinterpret_cast<uint8_t *>(1);
    EXPECT_EQ(uXMLGetCDATA(e, &bytes, &size), UXML_NOT_FOUND);
    EXPECT_EQ(bytes, reinterpret_cast<uint8_t *>(1));  // untouched
    EXPECT_EQ(uXMLGetCDATA(nullptr, &bytes, &size), UXML_NOT_FOUND);

    EXPECT_EQ(uXMLSetCDATAFromBuf(e, "\1\2", 2), 0u);
    EXPECT_EQ(e->owns_data, 1);
    EXPECT_EQ(e->cdata_size, 2u);
    EXPECT_EQ(uXMLSetDataFromStr(e, "text"), 0u);  // clears the CDATA
    EXPECT_EQ(e->cdata, nullptr);
    EXPECT_STREQ(uXMLGetData(e), "text");
    EXPECT_EQ(uXMLSetDataFromBuf(e, "abcdef", 3), 0u);
    EXPECT_STREQ(uXMLGetData(e), "abc");
    EXPECT_EQ(uXMLSetDataFromStr(e, ""), 0u);
    EXPECT_EQ(uXMLGetData(e), nullptr);
    EXPECT_EQ(e->owns_data, 0);
    EXPECT_EQ(uXMLSetDataFromStr(nullptr, "x"), UXML_ERR_INVALID_ARG);

    // Assumed data: freed by its release function, or left alone without one.
    char *mine = static_cast<char *>(uXMLAlloc(4));
    std::strcpy(mine, "own");
    EXPECT_EQ(uXMLAssumeData(e, mine, uXMLFree), 0u);
    EXPECT_EQ(uXMLGetData(e), mine);
    EXPECT_EQ(e->assumed, 1);
    static char foreign[] = "static";
    EXPECT_EQ(uXMLAssumeData(e, foreign, nullptr), 0u);  // frees `mine`
    EXPECT_EQ(uXMLAssumeData(nullptr, foreign, nullptr), UXML_ERR_INVALID_ARG);
    uXMLDisposeElement(e);  // leaves `foreign` alone
    EXPECT_STREQ(foreign, "static");

    // Out of memory while copying: the status, and owns_data set all the same.
    uxml_element *f = uXMLCreateElementFromStr("f", nullptr);
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(uXMLSetDataFromStr(f, "x"), UXML_ERR_NO_MEMORY);
    EXPECT_EQ(f->owns_data, 1);
    EXPECT_EQ(f->data, nullptr);
    uXMLDisposeElement(f);
}

TEST_F(XmlTreeTest, AttributesKeepOrderAndMoveWhenSetAgain) {
    uxml_element *e = uXMLCreateElementFromStr("e", nullptr);
    EXPECT_EQ(uXMLSetAttrFromStr(e, "a", "1"), 0u);
    EXPECT_EQ(uXMLSetAttrFromInt(e, "b", -12), 0u);
    EXPECT_EQ(uXMLSetAttrFromUInt(e, "c", 4000000000u), 0u);
    EXPECT_EQ(uXMLSetAttrFromBuf(e, "dx", 1, "4yy", 1), 0u);
    EXPECT_EQ(attribute_list(e), (std::vector<std::string>{"a=1", "b=-12", "c=4000000000", "d=4"}));
    EXPECT_EQ(uXMLSetAttrFromStr(e, "a", "again"), 0u);
    EXPECT_EQ(attribute_list(e), (std::vector<std::string>{"b=-12", "c=4000000000", "d=4", "a=again"}));
    EXPECT_EQ(uXMLSetAttrFromStr(e, "c", ""), 0u);
    EXPECT_EQ(uXMLSetAttrFromStr(e, "d", nullptr), 0u);
    EXPECT_EQ(uXMLSetAttrFromStr(e, "missing", nullptr), 0u);
    EXPECT_EQ(attribute_list(e), (std::vector<std::string>{"b=-12", "a=again"}));
    // Names compare as bytes, exactly.
    EXPECT_EQ(uXMLGetAttrFromStr(e, "A"), nullptr);
    EXPECT_STREQ(uXMLGetAttrFromStr(e, "a"), "again");
    EXPECT_STREQ(uXMLGetAttrFromBuf(e, "bz", 1), "-12");
    EXPECT_EQ(uXMLGetAttrName(e, 2), nullptr);
    EXPECT_EQ(uXMLGetAttrValue(nullptr, 0), nullptr);
    EXPECT_EQ(uXMLGetAttrCount(nullptr), 0u);

    EXPECT_EQ(uXMLSetAttrFromStr(nullptr, "a", "1"), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(uXMLSetAttrFromStr(e, "", "1"), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(uXMLSetAttrFromBuf(e, "\0a", 2, "1", 1), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(uXMLSetAttrFromBuf(e, nullptr, 2, "1", 1), UXML_ERR_INVALID_ARG);

    // A taken-over value is freed with uXMLFree at disposal.
    char *value = uXMLMakeStr("taken", 5);
    EXPECT_EQ(uXMLSetAttrFromBufAssumeValue(e, "t", 1, value), 0u);
    EXPECT_EQ(uXMLGetAttrFromStr(e, "t"), value);
    EXPECT_EQ(e->attributes->next->next->assumed, 1);
    EXPECT_EQ(e->attributes->next->next->owned, 0);
    EXPECT_EQ(uXMLSetAttrFromBufAssumeValue(e, "b", 1, nullptr), 0u);  // removes
    EXPECT_EQ(attribute_list(e), (std::vector<std::string>{"a=again", "t=taken"}));

    // The checked forms do nothing after a failure.
    uXMLSetAttrFromStrChecked(e, 0x900C0002u, "x", "1");
    uXMLSetAttrFromIntChecked(e, 1, "y", 1);
    uXMLSetAttrFromUIntChecked(e, 0, "z", 7);
    EXPECT_EQ(attribute_list(e), (std::vector<std::string>{"a=again", "t=taken", "z=7"}));
    uXMLDisposeElement(e);
}

TEST_F(XmlTreeTest, SubElementsGrowFindAndRemove) {
    uxml_element *root = uXMLCreateElementFromStr("root", nullptr);
    std::vector<uint32_t> capacities;
    for (int i = 0; i < 16; ++i) {
        ASSERT_EQ(uXMLAddSubElement(root, uXMLCreateElementFromStr(i % 2 ? "odd" : "even", nullptr)), 0u);
        capacities.push_back(root->element_capacity);
    }
    EXPECT_EQ(capacities, (std::vector<uint32_t>{4, 4, 4, 4, 5, 6, 7, 8, 10, 10, 12, 12, 15, 15, 15, 18}));
    EXPECT_EQ(uXMLGetSubElementCount(root), 16u);
    EXPECT_STREQ(uXMLGetSubElementName(root, 1), "odd");
    EXPECT_EQ(uXMLGetSubElement(root, 16), nullptr);
    EXPECT_EQ(uXMLGetSubElementName(root, 99), nullptr);
    EXPECT_EQ(uXMLGetSubElementFromStr(root, "odd"), root->elements[1]);
    EXPECT_EQ(uXMLGetSubElementFromStr(root, "Odd"), nullptr);
    EXPECT_EQ(uXMLGetSubElementFromStr(root, ""), nullptr);
    EXPECT_EQ(uXMLGetSubElementFromBuf(root, "evenx", 4), root->elements[0]);
    EXPECT_EQ(ombr_xml_get_named_sub_element_count(root, "odd"), 8u);
    EXPECT_EQ(uXMLAddSubElement(root, nullptr), UXML_ERR_INVALID_ARG);
    EXPECT_EQ(uXMLAddSubElement(nullptr, root), UXML_ERR_INVALID_ARG);

    uxml_element *kept = root->elements[3];
    uXMLRemoveSubElement(root, kept, 0);
    EXPECT_EQ(uXMLGetSubElementCount(root), 15u);
    EXPECT_EQ(root->elements[15], nullptr);  // freed slot zeroed
    EXPECT_STREQ(uXMLGetName(kept), "odd");  // still valid, the caller's again
    uXMLRemoveSubElement(root, kept, 1);     // unknown now: nothing happens
    EXPECT_EQ(uXMLGetSubElementCount(root), 15u);
    uXMLRemoveSubElement(root, root->elements[0], 1);
    EXPECT_EQ(uXMLGetSubElementCount(root), 14u);
    EXPECT_STREQ(uXMLGetSubElementName(root, 0), "odd");
    uXMLDisposeElement(kept);

    uxml_element *added = nullptr;
    EXPECT_EQ(uXMLAddSubElementFromStrChecked(root, 0, "s", "text", &added), 0u);
    EXPECT_STREQ(uXMLGetData(added), "text");
    EXPECT_EQ(uXMLAddSubElementFromIntChecked(root, 0, "i", -5, &added), 0u);
    EXPECT_STREQ(uXMLGetData(added), "-5");
    EXPECT_EQ(uXMLAddSubElementFromUIntChecked(root, 0, "u", 4294967295u, nullptr), 0u);
    EXPECT_STREQ(uXMLGetData(uXMLGetSubElementFromStr(root, "u")), "4294967295");
    EXPECT_EQ(uXMLAddSubElementFromStrChecked(root, 0x900C0120u, "s", "x", &added), 0x900C0120u);
    EXPECT_EQ(uXMLAddSubElementFromStrChecked(root, 0, "", "x", &added), UXML_ERR_NO_MEMORY);
    EXPECT_EQ(uXMLGetSubElementCount(root), 17u);
    uXMLDisposeElement(root);
}

TEST_F(XmlTreeTest, CloneCopiesAllButCdata) {
    uxml_element *root = uXMLCreateElementFromStr("r", "text");
    uXMLSetAttrFromStr(root, "a", "1");
    uXMLSetAttrFromStr(root, "b", "2");
    uXMLSetCDATAFromBuf(uXMLGetSubElement(root, 0), "x", 1);  // no sub-element yet: ignored
    uxml_element *child = uXMLCreateElementFromBufCDATA("bin", 3, "\1\2", 2);
    uXMLAddSubElement(root, child);
    uXMLAddSubElement(child, uXMLCreateElementFromStr("leaf", "l"));

    uxml_element *shallow = uXMLCloneElement(root, 0);
    EXPECT_EQ(uXMLGetSubElementCount(shallow), 0u);
    EXPECT_EQ(attribute_list(shallow), (std::vector<std::string>{"a=1", "b=2"}));
    EXPECT_STREQ(uXMLGetData(shallow), "text");
    uxml_element *deep = uXMLCloneElement(root, 1);
    EXPECT_TRUE(same_tree(root, deep));
    EXPECT_EQ(uXMLGetCDATA(uXMLGetSubElement(deep, 0), nullptr, nullptr), UXML_NOT_FOUND);
    uXMLDisposeElement(shallow);
    uXMLDisposeElement(deep);

    uint64_t failures = for_each_allocation_failure([&](uint64_t) {
        uxml_element *copy = uXMLCloneElement(root, 1);
        if (copy) {
            EXPECT_TRUE(same_tree(root, copy));
        }
        uXMLDisposeElement(copy);
    });
    EXPECT_GE(failures, 5u);
    uXMLDisposeElement(root);
}

// Disposal order: attributes in list order, then sub-elements in array order
// (each the same way), then the element's own data.
std::vector<std::string> g_released;
void record_release(void *p) {
    g_released.push_back(static_cast<char *>(p));
    uXMLFree(p);
}

TEST_F(XmlTreeTest, DisposalOrder) {
    g_released.clear();
    auto assumed = [](const char *text) { return uXMLMakeStr(text, static_cast<uint32_t>(std::strlen(text))); };
    uxml_element *root = uXMLCreateElementFromStr("r", nullptr);
    uXMLAssumeData(root, assumed("r-data"), record_release);
    uXMLSetAttrFromBufAssumeValue(root, "a", 1, assumed("r-attr"));
    root->attributes->release = record_release;
    for (const char *name : {"c1", "c2"}) {
        uxml_element *c = uXMLCreateElementFromStr(name, nullptr);
        uXMLAssumeData(c, assumed((std::string(name) + "-data").c_str()), record_release);
        uXMLSetAttrFromBufAssumeValue(c, "a", 1, assumed((std::string(name) + "-attr").c_str()));
        c->attributes->release = record_release;
        uXMLAddSubElement(root, c);
    }
    uXMLDisposeElement(root);
    EXPECT_EQ(g_released,
              (std::vector<std::string>{"r-attr", "c1-attr", "c1-data", "c2-attr", "c2-data", "r-data"}));
}

TEST_F(XmlTreeTest, NameHashAndSmallWrappers) {
    EXPECT_EQ(ElementNameHash("", 0), 0u);
    EXPECT_EQ(ElementNameHash("a", 1), 97u);
    uint32_t h = 0;
    for (char c : std::string("ALGORITHM")) h = static_cast<uint8_t>(c) + (h << 6) + (h << 16) - h;
    EXPECT_EQ(ElementNameHash("ALGORITHM", 9), h);
    EXPECT_TRUE(uXMLBufEq("ab", 2, "ab", 2));
    EXPECT_FALSE(uXMLBufEq("ab", 2, "abc", 3));
    EXPECT_TRUE(uXMLBufEq(nullptr, 0, "", 0));
    char *s = uXMLMakeIntStr(-2147483647);
    EXPECT_STREQ(s, "-2147483647");
    uXMLFree(s);
    s = uXMLMakeUIntStr(42);
    EXPECT_STREQ(s, "42");
    uXMLFree(s);
    s = uXMLMakeStr("abc", 2);
    EXPECT_STREQ(s, "ab");
    uXMLFree(s);
    EXPECT_EQ(uXMLStrLen("four"), 4u);
    EXPECT_EQ(uXMLStrLen(nullptr), 0u);
    const char *text = "a/b";
    EXPECT_EQ(uXMLStrChr(text, '/'), text + 1);
    char buffer[32];
    EXPECT_STREQ(uXMLUIntToStr(7, buffer, sizeof buffer), "7");
    EXPECT_TRUE(uXMLIsLegalNameChar('_'));
    EXPECT_TRUE(uXMLIsLegalNameChar('Z'));
    EXPECT_FALSE(uXMLIsLegalNameChar('-'));
    EXPECT_FALSE(uXMLIsLegalNameChar(':'));
    EXPECT_FALSE(uXMLIsLegalNameChar('.'));
    EXPECT_FALSE(uXMLIsLegalNameChar(0xE9));  // default locale
    EXPECT_TRUE(uXMLIsSpace('\t'));
    EXPECT_TRUE(uXMLIsXDigit('f'));
    EXPECT_FALSE(uXMLIsDigit('a'));
}

}  // namespace
