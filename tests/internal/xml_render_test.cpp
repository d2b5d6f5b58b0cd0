// uXML rendering and escapes: layouts for header, indent and line ends,
// escaping, the event stream a callback sees, DynBuf growth and failure,
// unescaping, and round trips of random trees through render and parse.
#include <random>
#include <string>
#include <vector>

#include "out_param.h"
#include "xml_test_support.h"

namespace {

class XmlRenderTest : public XmlTest {};

// <a><b>1</b></a>
uxml_element *small_tree() {
    uxml_element *a = uXMLCreateElementFromStr("a", nullptr);
    uXMLAddSubElement(a, uXMLCreateElementFromStr("b", "1"));
    return a;
}

TEST_F(XmlRenderTest, LayoutsOfHeaderIndentAndLineEnds) {
    const std::string decl = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>";
    uxml_element *a = small_tree();
    EXPECT_EQ(render(a, 1, 1, 1), decl + "\n<a>\n  <b>1</b>\n</a>\n");
    EXPECT_EQ(render(a, 1, 0, 0), decl + "<a><b>1</b></a>");
    EXPECT_EQ(render(a, 0, 1, 0), "<a>  <b>1</b></a>");
    EXPECT_EQ(render(a, 0, 0, 1), "<a>\n<b>1</b>\n</a>\n");
    char *text = uXMLRenderToStr(a, 0);
    EXPECT_STREQ(text, "<a>\n  <b>1</b>\n</a>\n");
    uXMLFree(text);

    // Text of an element with sub-elements shares a line with the first one.
    uXMLSetDataFromStr(a, "x");
    uxml_element *c = uXMLCreateElementFromStr("c", nullptr);
    uXMLAddSubElement(c, uXMLCreateElementFromStr("d", nullptr));
    uXMLAddSubElement(a, c);
    EXPECT_EQ(render(a, 0, 1, 1), "<a>x<b>1</b>\n  <c>\n    <d/>\n  </c>\n</a>\n");
    uXMLDisposeElement(a);

    uxml_element *empty = uXMLCreateElementFromStr("a", nullptr);
    EXPECT_EQ(render(empty, 0, 1, 1), "<a/>\n");
    EXPECT_EQ(render(empty, 0, 0, 0), "<a/>");
    uXMLDisposeElement(empty);
    EXPECT_EQ(uXMLRenderToStrEx(nullptr, 1, 1, 1), nullptr);
}

TEST_F(XmlRenderTest, EscapingAndCdata) {
    uxml_element *e = uXMLCreateElementFromStr("e", "it's <x> & \"y\" \xC3\xA9\x01");
    uXMLSetAttrFromStr(e, "q", "say \"hi\" & <go>");
    EXPECT_EQ(render(e, 0, 0, 0),
              "<e q=\"say &quot;hi&quot; &amp; &lt;go&gt;\">it&apos;s &lt;x&gt; &amp; &quot;y&quot; \xC3\xA9\x01</e>");
    // Data wins over CDATA; CDATA alone goes out unchecked.
    uXMLDisposeElement(e);
    uxml_element *both = uXMLCreateElementFromStr("b", "text");
    both->cdata = reinterpret_cast<uint8_t *>(const_cast<char *>("raw"));
    both->cdata_size = 3;
    EXPECT_EQ(render(both, 0, 0, 0), "<b>text</b>");
    both->cdata = nullptr;
    both->cdata_size = 0;
    uXMLDisposeElement(both);
    uxml_element *bin = uXMLCreateElementFromBufCDATA("bin", 3, "a]]>b", 5);
    std::string out = render(bin, 0, 0, 0);
    EXPECT_EQ(out, "<bin><![CDATA[a]]>b]]></bin>");
    // The parser cannot read that back.
    EventLog log;
    EXPECT_EQ(uXMLParseStr(out.c_str(), EventLog::record, &log), UXML_ERR_NOT_AVAILABLE);
    uXMLDisposeElement(bin);
}

struct RenderEvent {
    uint16_t event;
    std::string data;
    uint32_t length;
    bool operator==(const RenderEvent &) const = default;
};

uint32_t record_render(uint16_t event, void *user, const void *data, uint32_t length) {
    auto *events = static_cast<std::vector<RenderEvent> *>(user);
    std::string text;
    if (event == UXML_RENDER_TEXT) text = static_cast<const char *>(data);
    if (event == UXML_RENDER_BYTES || event == UXML_RENDER_CDATA) text.assign(static_cast<const char *>(data), length);
    events->push_back({event, text, length});
    return 0x900C0002u;  // not looked at
}

TEST_F(XmlRenderTest, EventsACallbackSees) {
    uxml_element *e = uXMLCreateElementFromStr("e", "a<");
    uXMLSetAttrFromStr(e, "k", "v");
    std::vector<RenderEvent> events;
    uXMLRender(e, record_render, &events, 1, 0, 1);
    const std::vector<RenderEvent> expected = {
        {UXML_RENDER_BEGIN, "", 0},
        {UXML_RENDER_TEXT, "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>", 0},
        {UXML_RENDER_TEXT, "\n", 0},
        {UXML_RENDER_TEXT, "<", 0},
        {UXML_RENDER_TEXT, "e", 0},
        {UXML_RENDER_TEXT, " ", 0},
        {UXML_RENDER_TEXT, "k", 0},
        {UXML_RENDER_TEXT, "=\"", 0},
        {UXML_RENDER_BYTES, "v", 1},
        {UXML_RENDER_TEXT, "\"", 0},
        {UXML_RENDER_TEXT, ">", 0},
        {UXML_RENDER_BYTES, "a", 1},
        {UXML_RENDER_TEXT, "&lt;", 0},
        {UXML_RENDER_TEXT, "</", 0},
        {UXML_RENDER_TEXT, "e", 0},
        {UXML_RENDER_TEXT, ">", 0},
        {UXML_RENDER_TEXT, "\n", 0},
        {UXML_RENDER_FINISH, "", 0},
    };
    EXPECT_EQ(events, expected);
    uXMLDisposeElement(e);

    // Escape modes: 1 as one text, 0/2/3 escaped, others byte by byte.
    for (uint32_t mode : {0u, 1u, 3u, 9u}) {
        events.clear();
        RenderEscapedString(record_render, &events, "<'", mode);
        std::vector<RenderEvent> want;
        if (mode == 1)
            want = {{UXML_RENDER_TEXT, "<'", 0}};
        else if (mode == 9)
            want = {{UXML_RENDER_BYTES, "<", 1}, {UXML_RENDER_BYTES, "'", 1}};
        else
            want = {{UXML_RENDER_TEXT, "&lt;", 0}, {UXML_RENDER_TEXT, "&apos;", 0}};
        EXPECT_EQ(events, want) << mode;
    }
    events.clear();
    uXMLRender(nullptr, record_render, &events, 1, 1, 1);
    EXPECT_TRUE(events.empty());
}

TEST_F(XmlRenderTest, DynBufGrowsByDoublingAndDropsWhatItCannotStore) {
    DynBuf buf{nullptr, 0, 0};
    DynBufAppend(&buf, "abc", 3);
    EXPECT_EQ(buf.capacity, 1024u);
    std::string big(3000, 'z');
    DynBufAppend(&buf, big.data(), 3000);
    EXPECT_EQ(buf.capacity, 4096u);
    EXPECT_EQ(buf.used, 3003u);
    DynBufAppend(&buf, nullptr, 3);
    DynBufAppend(&buf, "x", 0);
    DynBufAppend(nullptr, "x", 1);
    EXPECT_EQ(buf.used, 3003u);
    zelto_manager_memory_fail_nth(1);
    DynBufAppend(&buf, big.data(), 2000);  // needs to grow; dropped
    EXPECT_EQ(buf.used, 3003u);
    DynBufHelper(UXML_RENDER_CDATA, &buf, "q", 1);
    DynBufHelper(UXML_RENDER_FINISH, &buf, nullptr, 0);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(buf.buffer) + 3003, 14), std::string("<![CDATA[q]]>\0", 14));
    uXMLFree(buf.buffer);

    // The exact-size block and its length.
    uxml_element *a = small_tree();
    char *text = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(out(uXMLRenderToBufEx, a, 0, 0, 0, &text), 15u);
    EXPECT_STREQ(text, "<a><b>1</b></a>");
    uXMLFree(text);
    EXPECT_EQ(uXMLRenderToBufEx(nullptr, 0, 0, 0, &text, &length), UXML_ERR_NO_MEMORY);
    // Every allocation of a render failing in turn: a text or a clean failure.
    for_each_allocation_failure([&](uint64_t) {
        char *out = nullptr;
        uint32_t n = 0;
        uint32_t status = uXMLRenderToBufEx(a, 1, 1, 1, &out, &n);
        if (status == 0) {
            EXPECT_EQ(std::strlen(out), n);
        } else {
            EXPECT_EQ(status, UXML_ERR_NO_MEMORY);
        }
        uXMLFree(out);
    });
    uXMLDisposeElement(a);
}

std::string unescape(const std::string &in) {
    char *out = nullptr;
    uint32_t capacity = 0;
    EXPECT_EQ(uXMLUnescapeSpecialCharacters(in.data(), static_cast<uint32_t>(in.size()), &out, &capacity), 0u);
    std::string result(out, capacity);
    EXPECT_EQ(out[capacity], '\0');
    uXMLFree(out);
    return result;
}

TEST_F(XmlRenderTest, Unescape) {
    const std::pair<std::string, std::string> cases[] = {
        {"&amp;lt;", "&lt;"},
        {"&lt;&gt;&amp;&apos;&quot;", "<>&'\""},
        {"&#65;", "A"},
        {"&#x41;", "A"},
        {"&#X41;", "&#X41;"},
        {"&#xE9;", "\xC3\xA9"},
        {"&#xe9;&#xE9;", "\xC3\xA9\xC3\xA9"},
        {"&#x20AC;", "\xE2\x82\xAC"},
        {"&#x10000;", "\xF0\x90\x80\x80"},
        {"&#x200000;", "\xF8\x88\x80\x80\x80"},
        {"&#x7FFFFFFF;", "\xFD\xBF\xBF\xBF\xBF\xBF"},
        {"a&#x80000000;b", "ab"},
        {"&#;x", std::string("\0x", 2)},
        {"&#0;", std::string("\0", 1)},
        {"&#4294967361;", "A"},  // wraps to 65
        {"&#12", "&#12"},
        {"&#1a;", "&#1a;"},
        {"&unknown;", "&unknown;"},
        {"&", "&"},
        {"a&b", "a&b"},
        {"&lt", "&lt"},
        {"plain text", "plain text"},
    };
    for (const auto &[in, want] : cases) EXPECT_EQ(unescape(in), want) << in;

    // Into the caller's buffer: capacity is the limit and stays as it is.
    char buffer[8];
    char *out = buffer;
    uint32_t capacity = sizeof buffer;
    ASSERT_EQ(uXMLUnescapeSpecialCharacters("x&amp;y", 7, &out, &capacity), 0u);
    EXPECT_STREQ(buffer, "x&y");
    EXPECT_EQ(capacity, 8u);
    // Null source or length 0: nothing touched.
    out = reinterpret_cast<char *>(1);
    capacity = 0;
    EXPECT_EQ(uXMLUnescapeSpecialCharacters(nullptr, 3, &out, &capacity), 0u);
    EXPECT_EQ(uXMLUnescapeSpecialCharacters("abc", 0, &out, &capacity), 0u);
    EXPECT_EQ(out, reinterpret_cast<char *>(1));
    out = nullptr;
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(uXMLUnescapeSpecialCharacters("abc", 3, &out, &capacity), UXML_ERR_NO_MEMORY);
    EXPECT_EQ(out, nullptr);
}

// Random trees: legal names, texts of any non-zero bytes that do not begin
// with whitespace (the parser drops it), attribute values of any non-zero
// bytes.
class TreeGenerator {
   public:
    explicit TreeGenerator(uint32_t seed) : rng_(seed) {}
    uxml_element *tree(int depth) {
        uxml_element *e = uXMLCreateElementFromStr(name().c_str(), nullptr);
        if (pick(3) == 0) uXMLSetDataFromStr(e, text().c_str());
        for (int i = pick(4); i > 0; --i) uXMLSetAttrFromStr(e, name().c_str(), bytes(1 + pick(12)).c_str());
        if (depth > 0)
            for (int i = pick(5); i > 0; --i) uXMLAddSubElement(e, tree(depth - 1));
        return e;
    }

   private:
    int pick(int n) { return static_cast<int>(rng_() % static_cast<uint32_t>(n)); }
    std::string name() {
        static const char kBytes[] = "abcxyzABCXYZ0189_";
        std::string s;
        for (int i = 1 + pick(6); i > 0; --i) s += kBytes[pick(sizeof kBytes - 1)];
        return s;
    }
    std::string bytes(int n) {
        static const char kSpecial[] = "<>&'\"; #x\n\t ";
        std::string s;
        for (int i = 0; i < n; ++i) {
            int kind = pick(4);
            s += kind == 0 ? kSpecial[pick(sizeof kSpecial - 1)] : kind == 1 ? static_cast<char>(1 + pick(255))
                                                                              : static_cast<char>('a' + pick(26));
        }
        return s;
    }
    std::string text() {
        std::string s = bytes(1 + pick(20));
        while (!s.empty() && std::strchr(" \t\n\v\f\r", s[0])) s.erase(0, 1);
        return s.empty() ? "t" : s;
    }
    std::mt19937 rng_;
};

TEST_F(XmlRenderTest, RandomTreesRoundTripThroughRenderAndParse) {
    for (uint32_t seed = 1; seed <= 300; ++seed) {
        TreeGenerator gen(seed);
        uxml_element *tree = gen.tree(4);
        for (int layout = 0; layout < 8; ++layout) {
            char *text = nullptr;
            uint32_t length = 0;
            ASSERT_EQ(uXMLRenderToBufEx(tree, layout & 1, (layout >> 1) & 1, (layout >> 2) & 1, &text, &length), 0u);
            uxml_element *back = nullptr;
            ASSERT_EQ(uXMLParseBufToElement(text, length, &back), 0u) << text;
            EXPECT_TRUE(same_tree(tree, back)) << "seed " << seed << " layout " << layout << "\n" << text;
            uXMLDisposeElement(back);
            // The exported TreeHelper builds the same tree.
            uxml_element *holder = uXMLCreateEmptyElement();
            uxml_tree_frame bottom{nullptr, holder};
            uxml_tree_frame *top = &bottom;
            ASSERT_EQ(uXMLParseBuf(text, length, TreeHelper, &top), 0u);
            EXPECT_TRUE(same_tree(tree, uXMLGetSubElement(holder, 0)));
            uXMLDisposeElement(holder);
            uXMLFree(text);
        }
        uXMLDisposeElement(tree);
    }
}

TEST_F(XmlRenderTest, EscapedTextReadsBackToTheOriginalBytes) {
    std::mt19937 rng(7);
    for (int round = 0; round < 500; ++round) {
        std::string original;
        for (int i = 1 + static_cast<int>(rng() % 64); i > 0; --i) original += static_cast<char>(1 + rng() % 255);
        DynBuf buf{nullptr, 0, 0};
        RenderEscapedString(DynBufHelper, &buf, original.c_str(), UXML_ESCAPE_DATA);
        std::string escaped(reinterpret_cast<char *>(buf.buffer), buf.used);
        uXMLFree(buf.buffer);
        EXPECT_EQ(escaped.find_first_of("<>'\""), std::string::npos);
        EXPECT_EQ(unescape(escaped), original);
    }
}

}  // namespace
