// HDO: a fingerprint description read into a tree with both algorithm
// lookups (budget 20 us), "ALGORITHM/$NAME" on a parsed tree (budget 1 us),
// a 5 MB document read into a tree against building a libxml2 tree of it, a
// tree copy, a write that splits a shared value, and a predicate query over
// 10,000 children against libxml2's XPath. Prints the ratios.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench/bench_ratio.h"
#include "ombr/ombr_hdo.h"

namespace {

// A description as the signal-processing service writes it, about 2 KB.
const std::string &fingerprint_description() {
    static const std::string text = [] {
        std::string data;
        for (int i = 0; data.size() < 1900; ++i) data += "AQADtEmSJEmSJEmSJEmS"[i % 20];
        return "<FINGERPRINT><ALGORITHM><NAME>chromaprint</NAME><VERSION>2</VERSION></ALGORITHM>"
               "<DURATION>183</DURATION><DATA>" +
               data + "</DATA></FINGERPRINT>";
    }();
    return text;
}

// A catalogue of albums with tracks, attributes and escaped text: 5 MB.
const std::string &large_document() {
    static const std::string text = [] {
        std::string xml = "<?xml version=\"1.0\"?>\n<catalogue version=\"3\">\n";
        char buffer[256];
        for (int album = 0; xml.size() < 5 * 1024 * 1024; ++album) {
            std::snprintf(buffer, sizeof buffer,
                          "  <album id=\"a%d\" year=\"%d\">\n    <title>Album &amp; title %d</title>\n"
                          "    <artist>Artist %d</artist>\n    <tracks>\n",
                          album, 1960 + album % 60, album, album % 997);
            xml += buffer;
            for (int track = 1; track <= 8; ++track) {
                std::snprintf(buffer, sizeof buffer,
                              "      <track n=\"%d\"><title>Track %d of %d</title><length>%d</length></track>\n",
                              track, track, album, 120 + (album * 7 + track * 13) % 300);
                xml += buffer;
            }
            xml += "    </tracks>\n  </album>\n";
        }
        return xml + "</catalogue>\n";
    }();
    return text;
}

// 10,000 children "item" with an id attribute and a name value.
const std::string &many_children() {
    static const std::string text = [] {
        std::string xml = "<r>";
        for (int i = 0; i < 10000; ++i)
            xml += "<item id=\"" + std::to_string(i) + "\"><name>n" + std::to_string(i) + "</name></item>";
        return xml + "</r>";
    }();
    return text;
}

struct HdoUp {
    HdoUp() { ombr_hdo_initialize(); }
    ~HdoUp() { ombr_hdo_shutdown(); }
};
HdoUp &hdo_up() {
    static HdoUp up;
    return up;
}

ombr_hdo_t parse(const std::string &xml) {
    hdo_up();
    ombr_hdo_t node = nullptr;
    if (ombr_hdo_from_xml(xml.c_str(), &node, nullptr) != 0) std::abort();
    return node;
}

void BM_HdoFingerprintDescription(benchmark::State &state) {
    const std::string &xml = fingerprint_description();
    hdo_up();
    for (auto _ : state) {
        ombr_hdo_t node = nullptr;
        ombr_hdo_from_xml(xml.c_str(), &node, nullptr);
        const char *name = nullptr, *version = nullptr;
        ombr_hdo_get_string_by_hpath(node, "ALGORITHM/$NAME", nullptr, 0, &name);
        ombr_hdo_get_string_by_hpath(node, "ALGORITHM/$VERSION", nullptr, 0, &version);
        benchmark::DoNotOptimize(name);
        benchmark::DoNotOptimize(version);
        ombr_hdo_release(node);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(xml.size()));
}

void BM_LibXml2FingerprintDescription(benchmark::State &state) {
    const std::string &xml = fingerprint_description();
    for (auto _ : state) {
        xmlDocPtr doc = xmlReadMemory(xml.data(), int(xml.size()), nullptr, nullptr, XML_PARSE_NONET);
        xmlNodePtr algorithm = xmlDocGetRootElement(doc)->children;
        xmlChar *name = xmlNodeGetContent(algorithm->children);
        xmlChar *version = xmlNodeGetContent(algorithm->children->next);
        benchmark::DoNotOptimize(name);
        benchmark::DoNotOptimize(version);
        xmlFree(name);
        xmlFree(version);
        xmlFreeDoc(doc);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(xml.size()));
}

void BM_HdoAlgorithmName(benchmark::State &state) {
    ombr_hdo_t node = parse(fingerprint_description());
    for (auto _ : state) {
        const char *name = nullptr;
        ombr_hdo_get_string_by_hpath(node, "ALGORITHM/$NAME", nullptr, 0, &name);
        benchmark::DoNotOptimize(name);
    }
    ombr_hdo_release(node);
}

void BM_HdoLargeDocument(benchmark::State &state) {
    const std::string &xml = large_document();
    hdo_up();
    for (auto _ : state) {
        ombr_hdo_t node = nullptr;
        if (ombr_hdo_from_xml(xml.c_str(), &node, nullptr) != 0) state.SkipWithError("parse failed");
        ombr_hdo_release(node);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(xml.size()));
}

void BM_LibXml2LargeDocument(benchmark::State &state) {
    const std::string &xml = large_document();
    for (auto _ : state) {
        xmlDocPtr doc = xmlReadMemory(xml.data(), int(xml.size()), nullptr, nullptr, XML_PARSE_NONET);
        if (!doc) state.SkipWithError("parse failed");
        xmlFreeDoc(doc);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(xml.size()));
}

void BM_HdoDeepCopy(benchmark::State &state) {
    ombr_hdo_t node = parse(state.range(0) ? many_children() : fingerprint_description());
    for (auto _ : state) {
        ombr_hdo_t copy = nullptr;
        ombr_hdo_copy(node, &copy, 1);
        ombr_hdo_release(copy);
    }
    ombr_hdo_release(node);
}

// Each write splits a value that a copy shares; the copy that shares the
// next batch is made with the timer stopped.
void BM_HdoSplitWrite(benchmark::State &state) {
    constexpr int kBatch = 1000;
    hdo_up();
    ombr_hdo_t node = nullptr;
    ombr_hdo_create(&node);
    std::vector<ombr_hdo_value_t> handles(kBatch);
    for (int i = 0; i < kBatch; ++i) {
        char name[16];
        std::snprintf(name, sizeof name, "v%d", i);
        ombr_hdo_new_value_string(node, name, "old", 0, &handles[i]);
    }
    ombr_hdo_t copy = nullptr;
    int next = kBatch;
    for (auto _ : state) {
        if (next == kBatch) {
            state.PauseTiming();
            ombr_hdo_release(copy);
            for (ombr_hdo_value_t h : handles) ombr_hdo_value_setdata_string(h, "old");
            ombr_hdo_copy(node, &copy, 0);
            next = 0;
            state.ResumeTiming();
        }
        ombr_hdo_value_setdata_string(handles[next++], "new");
    }
    ombr_hdo_release(copy);
    for (ombr_hdo_value_t h : handles) ombr_hdo_value_release(h);
    ombr_hdo_release(node);
}

void BM_HdoPredicateQuery(benchmark::State &state) {
    ombr_hdo_t node = parse(many_children());
    for (auto _ : state) {
        const char *name = nullptr;
        ombr_hdo_get_string_by_hpath(node, "item[@id='9999']/$name", nullptr, 0, &name);
        benchmark::DoNotOptimize(name);
    }
    ombr_hdo_release(node);
}

void BM_LibXml2XPathPredicate(benchmark::State &state) {
    const std::string &xml = many_children();
    xmlDocPtr doc = xmlReadMemory(xml.data(), int(xml.size()), nullptr, nullptr, XML_PARSE_NONET);
    xmlXPathContextPtr context = xmlXPathNewContext(doc);
    for (auto _ : state) {
        xmlXPathObjectPtr result =
            xmlXPathEvalExpression(reinterpret_cast<const xmlChar *>("/r/item[@id='9999']/name"), context);
        benchmark::DoNotOptimize(result);
        xmlXPathFreeObject(result);
    }
    xmlXPathFreeContext(context);
    xmlFreeDoc(doc);
}

}  // namespace

BENCHMARK(BM_HdoFingerprintDescription)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LibXml2FingerprintDescription)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_HdoAlgorithmName)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_HdoLargeDocument)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_LibXml2LargeDocument)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_HdoDeepCopy)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_HdoSplitWrite)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_HdoPredicateQuery)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LibXml2XPathPredicate)->Unit(benchmark::kMicrosecond);

int main(int argc, char **argv) {
    return bench::run_with_ratios(
        argc, argv,
        {{"BM_HdoFingerprintDescription", "BM_LibXml2FingerprintDescription",
          "2 KB fingerprint description to a tree + lookups vs libxml2"},
         {"BM_HdoLargeDocument/min_time:1.000", "BM_LibXml2LargeDocument/min_time:1.000",
          "5 MB document to a tree vs libxml2 tree"},
         {"BM_HdoPredicateQuery", "BM_LibXml2XPathPredicate", "predicate over 10,000 children vs libxml2 XPath"}});
}
