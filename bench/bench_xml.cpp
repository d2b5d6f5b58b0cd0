// uXML against the parsers a user would otherwise pick: expat, libxml2's SAX
// and tree readers, pugixml. Three documents: 20 MB of small elements with
// attributes, 20 MB of long text nodes, and a 2 KB fingerprint description
// parsed 10,000 times per iteration. Event parsing is compared with the
// event parsers (expat, libxml2 SAX), tree building with the tree builders
// (libxml2 tree, pugixml); rendering into a DynBuf is measured alone. The
// handlers of every parser only count what they are given. A table of MB/s
// (by CPU time) and the ratios of this run follow Google Benchmark's output.
#include <benchmark/benchmark.h>
#include <expat.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstdio>
#include <pugixml.hpp>
#include <random>
#include <string>
#include <vector>

#include "bench/bench_ratio.h"
#include "ombr/ombr_xml.h"

namespace {

constexpr size_t kLargeSize = 20u << 20;
constexpr int kSmallRepeats = 10000;

// Many small elements with attributes, shaped like catalogue records.
std::string small_elements_document() {
    std::mt19937 rng(12);
    std::string doc = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<catalogue source=\"generated\">\n";
    static const char *kWords[] = {"night", "harbour", "lights", "paper", "comet", "lantern", "glass", "river"};
    for (uint32_t i = 0; doc.size() < kLargeSize; ++i) {
        doc += "  <album id=\"" + std::to_string(i) + "\" year=\"" + std::to_string(1960 + rng() % 60) +
               "\" tracks=\"" + std::to_string(1 + rng() % 20) + "\">";
        doc += "<title lang=\"en\">" + std::string(kWords[rng() % 8]) + " " + kWords[rng() % 8] + "</title>";
        doc += "<artist ref=\"a" + std::to_string(rng() % 5000) + "\" role=\"main\"/>";
        doc += "<disc n=\"1\" toc=\"150 14672 27367 41225\"/></album>\n";
    }
    return doc + "</catalogue>\n";
}

// Long text nodes with an occasional entity.
std::string long_text_document() {
    std::mt19937 rng(34);
    std::string doc = "<?xml version=\"1.0\"?>\n<lyrics>\n";
    while (doc.size() < kLargeSize) {
        doc += "<verse n=\"" + std::to_string(rng() % 100) + "\">";
        size_t length = 2000 + rng() % 6000;
        for (size_t i = 0; i < length; ++i) {
            uint32_t r = rng() % 64;
            doc += r == 0 ? '\n' : r < 9 ? ' ' : static_cast<char>('a' + r % 26);
        }
        doc += " &amp; more</verse>\n";
    }
    return doc + "</lyrics>\n";
}

// About 2 KB: a fingerprint description as the query module receives it.
std::string fingerprint_document() {
    std::string doc =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<FINGERPRINT version=\"2\" kind=\"zfpx\">\n"
        "  <ALGORITHM><NAME>chromatic</NAME><VERSION>1.4.2</VERSION><RATE>11025</RATE></ALGORITHM>\n"
        "  <SOURCE channels=\"2\" rate=\"44100\" duration=\"241733\"/>\n  <DATA encoding=\"base64\">";
    static const char kB64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::mt19937 rng(56);
    while (doc.size() < 1950) doc += kB64[rng() % 64];
    return doc + "</DATA>\n</FINGERPRINT>\n";
}

struct Document {
    const char *name;
    std::string text;
    int repeats;  // parses per iteration
};

const Document &document(int which) {
    static const Document docs[] = {{"small_elements", small_elements_document(), 1},
                                    {"long_text", long_text_document(), 1},
                                    {"fingerprint_2k", fingerprint_document(), kSmallRepeats}};
    return docs[which];
}

struct Counts {
    uint64_t events = 0;
    uint64_t bytes = 0;
};

// ---- Event parsers -----------------------------------------------------------------

uint32_t uxml_count(uint16_t, void *user, const char *, uint32_t first_length, const char *, uint32_t second_length) {
    auto *c = static_cast<Counts *>(user);
    ++c->events;
    c->bytes += first_length + second_length;
    return 0;
}

void expat_start(void *user, const XML_Char *, const XML_Char **attributes) {
    auto *c = static_cast<Counts *>(user);
    ++c->events;
    for (; *attributes; attributes += 2) ++c->events;
}
void expat_end(void *user, const XML_Char *) { ++static_cast<Counts *>(user)->events; }
void expat_text(void *user, const XML_Char *, int length) { static_cast<Counts *>(user)->bytes += length; }

void sax_start(void *user, const xmlChar *, const xmlChar *, const xmlChar *, int, const xmlChar **, int attributes,
               int, const xmlChar **) {
    static_cast<Counts *>(user)->events += 1 + attributes;
}
void sax_end(void *user, const xmlChar *, const xmlChar *, const xmlChar *) {
    ++static_cast<Counts *>(user)->events;
}
void sax_text(void *user, const xmlChar *, int length) { static_cast<Counts *>(user)->bytes += length; }

bool parse_uxml_events(const std::string &doc, Counts &c) {
    return uXMLParseBuf(doc.data(), static_cast<uint32_t>(doc.size()), uxml_count, &c) == 0;
}

bool parse_expat(const std::string &doc, Counts &c) {
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &c);
    XML_SetElementHandler(parser, expat_start, expat_end);
    XML_SetCharacterDataHandler(parser, expat_text);
    bool ok = XML_Parse(parser, doc.data(), static_cast<int>(doc.size()), 1) == XML_STATUS_OK;
    XML_ParserFree(parser);
    return ok;
}

bool parse_libxml2_sax(const std::string &doc, Counts &c) {
    xmlSAXHandler handler{};
    handler.initialized = XML_SAX2_MAGIC;
    handler.startElementNs = sax_start;
    handler.endElementNs = sax_end;
    handler.characters = sax_text;
    return xmlSAXUserParseMemory(&handler, &c, doc.data(), static_cast<int>(doc.size())) == 0;
}

// ---- Tree builders ----------------------------------------------------------------

bool parse_uxml_tree(const std::string &doc, Counts &c) {
    uxml_element *root = nullptr;
    if (uXMLParseBufToElement(doc.data(), static_cast<uint32_t>(doc.size()), &root) != 0) return false;
    c.events += uXMLGetSubElementCount(root);
    uXMLDisposeElement(root);
    return true;
}

bool parse_libxml2_tree(const std::string &doc, Counts &c) {
    xmlDocPtr tree = xmlReadMemory(doc.data(), static_cast<int>(doc.size()), nullptr, nullptr, XML_PARSE_NONET);
    if (!tree) return false;
    c.events += xmlChildElementCount(xmlDocGetRootElement(tree));
    xmlFreeDoc(tree);
    return true;
}

bool parse_pugixml(const std::string &doc, Counts &c) {
    pugi::xml_document tree;
    if (!tree.load_buffer(doc.data(), doc.size())) return false;
    c.events += static_cast<uint64_t>(std::distance(tree.first_child().begin(), tree.first_child().end()));
    return true;
}

using Parser = bool (*)(const std::string &, Counts &);

void run_parser(benchmark::State &state, Parser parse) {
    const Document &doc = document(static_cast<int>(state.range(0)));
    state.SetLabel(doc.name);
    Counts counts;
    for (auto _ : state) {
        for (int i = 0; i < doc.repeats; ++i) {
            if (!parse(doc.text, counts)) {
                state.SkipWithError("parse failed");
                return;
            }
        }
        benchmark::DoNotOptimize(counts);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(doc.text.size()) *
                            doc.repeats);
}

void BM_uXML_Events(benchmark::State &state) { run_parser(state, parse_uxml_events); }
void BM_Expat(benchmark::State &state) { run_parser(state, parse_expat); }
void BM_Libxml2_SAX(benchmark::State &state) { run_parser(state, parse_libxml2_sax); }
void BM_uXML_Tree(benchmark::State &state) { run_parser(state, parse_uxml_tree); }
void BM_Libxml2_Tree(benchmark::State &state) { run_parser(state, parse_libxml2_tree); }
void BM_Pugixml(benchmark::State &state) { run_parser(state, parse_pugixml); }

// Rendering a parsed document into a DynBuf; MB/s of output.
void BM_uXML_Render(benchmark::State &state) {
    const Document &doc = document(static_cast<int>(state.range(0)));
    state.SetLabel(doc.name);
    uxml_element *root = nullptr;
    if (uXMLParseBufToElement(doc.text.data(), static_cast<uint32_t>(doc.text.size()), &root) != 0) {
        state.SkipWithError("parse failed");
        return;
    }
    uint64_t bytes = 0;
    for (auto _ : state) {
        for (int i = 0; i < doc.repeats; ++i) {
            char *text = nullptr;
            uint32_t length = 0;
            if (uXMLRenderToBufEx(root, 1, 1, 1, &text, &length) != 0) {
                state.SkipWithError("render failed");
                break;
            }
            bytes += length;
            uXMLFree(text);
        }
    }
    uXMLDisposeElement(root);
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

#define XML_DOCUMENTS ->DenseRange(0, 2)->Unit(benchmark::kMillisecond)
BENCHMARK(BM_uXML_Events) XML_DOCUMENTS;
BENCHMARK(BM_Expat) XML_DOCUMENTS;
BENCHMARK(BM_Libxml2_SAX) XML_DOCUMENTS;
BENCHMARK(BM_uXML_Tree) XML_DOCUMENTS;
BENCHMARK(BM_Libxml2_Tree) XML_DOCUMENTS;
BENCHMARK(BM_Pugixml) XML_DOCUMENTS;
BENCHMARK(BM_uXML_Render) XML_DOCUMENTS;

const char *const kParsers[] = {"uXML_Events", "Expat", "Libxml2_SAX", "uXML_Tree", "Libxml2_Tree", "Pugixml",
                                 "uXML_Render"};

// Bytes one iteration of a run handles: the input, or the rendered output.
double bytes_per_iteration(const std::string &parser, int which) {
    const Document &doc = document(which);
    double size = static_cast<double>(doc.text.size());
    if (parser == "uXML_Render") {
        uxml_element *root = nullptr;
        uXMLParseBufToElement(doc.text.data(), static_cast<uint32_t>(doc.text.size()), &root);
        char *text = nullptr;
        uint32_t length = 0;
        if (uXMLRenderToBufEx(root, 1, 1, 1, &text, &length) == 0) size = length;
        uXMLFree(text);
        uXMLDisposeElement(root);
    }
    return size * doc.repeats;
}

void print_throughput(const bench::RatioReporter &reporter) {
    std::printf("\nMB/s by CPU time (same run)\n%-14s", "");
    for (int d = 0; d < 3; ++d) std::printf(" %16s", document(d).name);
    std::printf("\n");
    for (const char *parser : kParsers) {
        std::printf("%-14s", parser);
        for (int d = 0; d < 3; ++d) {
            double ns = reporter.time(std::string("BM_") + parser + "/" + std::to_string(d));
            std::printf(" %16.1f", ns > 0 ? bytes_per_iteration(parser, d) / ns * 1e3 : 0.0);
        }
        std::printf("\n");
    }
}

std::vector<bench::RatioPair> ratio_pairs() {
    std::vector<bench::RatioPair> pairs;
    const std::pair<const char *, const char *> comparisons[] = {
        {"uXML_Events", "Expat"}, {"uXML_Events", "Libxml2_SAX"}, {"uXML_Tree", "Libxml2_Tree"}, {"uXML_Tree", "Pugixml"}};
    // Built by append: GCC 12 misreads a chain of string additions at -O3.
    auto run_name = [](const char *parser, int d) {
        std::string name = "BM_";
        name.append(parser).append("/").append(std::to_string(d));
        return name;
    };
    for (const auto &[ours, peer] : comparisons)
        for (int d = 0; d < 3; ++d) {
            std::string label = ours;
            label.append(" vs ").append(peer).append(", ").append(document(d).name);
            pairs.push_back({run_name(ours, d), run_name(peer, d), label});
        }
    return pairs;
}

}  // namespace

// Budgets: events >= 2 x expat and >= 1.5 x libxml2 SAX, tree >= 3 x libxml2
// tree, rendering >= 500 MB/s.
int main(int argc, char **argv) {
    if (ombr_xml_initialize() != 0) return 1;
    xmlInitParser();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    bench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.print_ratios(ratio_pairs());
    print_throughput(reporter);
    benchmark::Shutdown();
    xmlCleanupParser();
    ombr_xml_shutdown();
    return 0;
}
