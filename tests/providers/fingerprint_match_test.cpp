// Fingerprint texts (compressed form, base64, plain and XML query texts)
// and the matcher: offsets of excerpts, scores under bit errors, silence
// and stop keys.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fingerprint_test_support.h"
#include "providers/catalogue/store/fingerprint.h"

#if CANTRIX_HAVE_CHROMAPRINT
#include <chromaprint.h>
#endif

namespace {

namespace fp = catalogue::fp;
using fp_test::print;
using fp_test::walk;

TEST(FingerprintText, CompressedFormRoundTripsAndMatchesAHandMadeVector) {
    // One item with bit 1 set: the value 1, then 0 to end the item, packed
    // three bits a value behind the head (algorithm 1, one item).
    fp::Fingerprint f;
    std::string why;
    ASSERT_TRUE(fp::decode_compressed(std::string("\x01\x00\x00\x01\x01", 5), f, why)) << why;
    EXPECT_EQ(f.algorithm, 1u);
    EXPECT_EQ(f.items, std::vector<uint32_t>{1u});
    EXPECT_EQ(fp::encode_base64url(fp::encode_compressed({1u}, 1)), "AQAAAQE");
    // High bits need the exception values (gaps of 7 and more).
    for (const auto &items : {std::vector<uint32_t>{0x80000000u, 0xFFFFFFFFu, 0u, 0x80000001u}, walk(3, 500)}) {
        fp::Fingerprint back;
        ASSERT_TRUE(fp::decode_compressed(fp::encode_compressed(items, 4), back, why)) << why;
        EXPECT_EQ(back.items, items);
        EXPECT_EQ(back.algorithm, 4u);
    }
}

TEST(FingerprintText, MalformedCompressedDataIsRefusedWithAReason) {
    const std::string good = fp::encode_compressed(walk(5, 40), 1);
    struct Case {
        std::string bytes;
        const char *reason;
    } cases[] = {
        {"\x01\x00\x00", "shorter than its 4-byte head"},
        {std::string("\x01\x00\x00\x00", 4), "without items"},
        {std::string("\x09\x00\x00\x01\x01", 5), "unknown fingerprint algorithm 9"},
        {std::string("\x01\x04\x00\x01\x01", 5), "too long"},
        {good.substr(0, good.size() / 2), "ends before"},
        // 7 + 31 from the exception values: bit 38.
        {std::string("\x01\x00\x00\x01\x07\xFF", 6), "beyond 32"},
    };
    for (const Case &c : cases) {
        fp::Fingerprint f;
        std::string why;
        EXPECT_FALSE(fp::decode_compressed(c.bytes, f, why));
        EXPECT_NE(why.find(c.reason), std::string::npos) << why;
    }
}

TEST(FingerprintText, Base64TakesBothAlphabetsAndRefusesJunk) {
    std::string out;
    const std::string head("\x01\x00\x00\x01\x01", 5);
    struct Case {
        const char *text;
        bool ok;
        std::string bytes;
    } cases[] = {
        {"AQAAAQE", true, head},
        {"AQAAAQE=", true, head},
        {"AQ AA\nAQE", true, head},
        {"-_-_", true, "\xFB\xFF\xBF"},
        {"+/+/", true, "\xFB\xFF\xBF"},
        {"AQAAAQE==", false, ""},
        {"AQ=AAQE", false, ""},
        {"A", false, ""},
        {"AQ*A", false, ""},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(fp::decode_base64(c.text, out), c.ok) << c.text;
        if (c.ok) {
            EXPECT_EQ(out, c.bytes) << c.text;
        }
    }
}

TEST(FingerprintText, BothQueryTextFormsReadBack) {
    const fp::Fingerprint f = print(walk(9, 300), 37);
    const std::string data = fp::encode_base64url(fp::encode_compressed(f.items, 1));
    const std::string texts[] = {
        fp::plain_query_text(f),
        "FINGERPRINT=" + data + "\r\nDURATION=37\r\nEXTRA=ignored\r\n",
        fp::xml_query_text(f),
        "<?xml version=\"1.0\"?>\n<!-- stored --><Q a='1'><ALGORITHM><NAME>ChromaPrint</NAME><VERSION> 2 </VERSION>"
        "</ALGORITHM><DURATION>3&#55;</DURATION><DATA><![CDATA[" + data + "]]></DATA></Q>",
    };
    for (const std::string &text : texts) {
        fp::Fingerprint back;
        std::string why;
        ASSERT_TRUE(fp::parse_query_text(text, "", "", back, why)) << why << "\n" << text;
        EXPECT_EQ(back.items, f.items);
        EXPECT_EQ(back.duration, 37u);
        EXPECT_EQ(back.algorithm, 1u);
    }
    fp::Fingerprint back;
    std::string why;
    EXPECT_TRUE(fp::parse_query_text(fp::xml_query_text(f), "chromaprint", "2", back, why)) << why;
}

TEST(FingerprintText, MalformedQueryTextsAreRefusedWithAReason) {
    const fp::Fingerprint f = print(walk(2, 100), 12);
    const std::string data = fp::encode_base64url(fp::encode_compressed(f.items, 1));
    const std::string xml = fp::xml_query_text(f);
    struct Case {
        std::string text, name, version;
        const char *reason;
    } cases[] = {
        {"", "", "", "empty fingerprint text"},
        {"DURATION=12", "", "", "without FINGERPRINT"},
        {"DURATION=x\nFINGERPRINT=" + data, "", "", "DURATION is not a number"},
        {"FINGERPRINT " + data, "", "", "without '='"},
        {"FINGERPRINT=@@@@", "", "", "not base64"},
        {xml, "otherprint", "", "'otherprint' is not supported"},
        {xml, "chromaprint", "5", "does not match its data"},
        {"<F><ALGORITHM><NAME>chromaprint</NAME><VERSION>5</VERSION></ALGORITHM><DATA>" + data + "</DATA></F>", "", "",
         "does not match its data"},
        {"<F><ALGORITHM><NAME>chromaprint</NAME></ALGORITHM><DATA>" + data + "</DATA></F>", "", "",
         "without ALGORITHM/NAME and ALGORITHM/VERSION"},
        {"<F><ALGORITHM><NAME>chromaprint</NAME><VERSION>2</VERSION></ALGORITHM></F>", "", "", "without DATA"},
        {xml.substr(0, xml.rfind("</FINGERPRINT>")), "", "", "not closed"},
        {xml + "<again/>", "", "", "text after"},
        {"<!DOCTYPE x [<!ENTITY e 'boom'>]>" + xml, "", "", "document type"},
        {"<F>&bogus;</F>", "", "", "unknown XML entity"},
        {"<F>&#0;</F>", "", "", "out of range"},
        {"<F><G></F></G>", "", "", "does not match its element"},
        {std::string(40, '<') + "F>", "", "", "XML element without a name"},
    };
    for (const Case &c : cases) {
        fp::Fingerprint back;
        std::string why;
        EXPECT_FALSE(fp::parse_query_text(c.text, c.name, c.version, back, why)) << c.text;
        EXPECT_NE(why.find(c.reason), std::string::npos) << c.text << " -> " << why;
    }
    // Nesting is limited.
    std::string deep;
    for (int i = 0; i < 40; ++i) deep += "<a>";
    fp::Fingerprint back;
    std::string why;
    EXPECT_FALSE(fp::parse_query_text(deep, "", "", back, why));
    EXPECT_NE(why.find("nested too deeply"), std::string::npos) << why;
}

#if CANTRIX_HAVE_CHROMAPRINT
TEST(FingerprintText, AgreesWithChromaprintsOwnEncoderAndDecoder) {
    for (int algorithm : {1, 4}) {
        std::vector<uint32_t> items = walk(static_cast<uint64_t>(algorithm), 700);
        char *encoded = nullptr;
        int size = 0;
        ASSERT_EQ(chromaprint_encode_fingerprint(items.data(), static_cast<int>(items.size()), algorithm, &encoded,
                                                 &size, 1),
                  1);
        EXPECT_EQ(std::string(encoded, static_cast<size_t>(size)),
                  fp::encode_base64url(fp::encode_compressed(items, static_cast<uint32_t>(algorithm))));
        fp::Fingerprint back;
        std::string why;
        ASSERT_TRUE(fp::parse_query_text(std::string("FINGERPRINT=") + encoded, "", "", back, why)) << why;
        EXPECT_EQ(back.items, items);
        chromaprint_dealloc(encoded);
    }
}
#endif

TEST(FingerprintMatch, ScoresAndDurations) {
    EXPECT_EQ(fp::score_of(0, 10), 100u);
    EXPECT_EQ(fp::score_of(80, 10), 50u);   // a quarter of the bits differ
    EXPECT_EQ(fp::score_of(160, 10), 0u);   // half of them
    EXPECT_EQ(fp::score_of(320, 10), 0u);
    EXPECT_EQ(fp::score_of(5, 0), 0u);
    EXPECT_EQ(fp::items_to_ms(1, 1), 124);
    EXPECT_EQ(fp::items_to_ms(1, 100), 12381);
    EXPECT_EQ(fp::items_to_ms(1, -40), -4952);
    EXPECT_EQ(fp::items_to_ms(4, 100), 9288);
    EXPECT_EQ(fp::informative({7, 7, 7, 1, 2, 2, 3, 3, 3, 3}),
              (std::vector<bool>{false, false, false, true, true, true, false, false, false, false}));
}

class FingerprintMatchTest : public ::testing::Test {
   protected:
    void SetUp() override {
        for (int64_t id = 1; id <= 20; ++id) source.add(id, print(walk(static_cast<uint64_t>(id), 1500)));
    }
    std::vector<fp::Hit> run(const std::vector<uint32_t> &items) {
        std::vector<fp::Hit> hits;
        std::string why;
        EXPECT_TRUE(fp::match(print(items), source, hits, why)) << why;
        return hits;
    }
    fp_test::MemorySource source;
};

TEST_F(FingerprintMatchTest, FindsWholeFilesAndExcerptsWithTheirOffsets) {
    const std::vector<uint32_t> song = walk(7, 1500);
    struct Case {
        std::vector<uint32_t> query;
        int32_t offset;
    } cases[] = {
        {song, 0},
        {std::vector<uint32_t>(song.begin() + 600, song.begin() + 760), 600},  // 20 s from the middle
        {std::vector<uint32_t>(song.begin() + 1340, song.end()), 1340},        // the last 20 s
    };
    std::vector<uint32_t> lead_in = walk(99, 40);
    lead_in.insert(lead_in.end(), song.begin(), song.end());
    for (const Case &c : cases) {
        const auto hits = run(c.query);
        ASSERT_EQ(hits.size(), 1u);
        EXPECT_EQ(hits[0].print, 7);
        EXPECT_EQ(hits[0].alignment.offset, c.offset);
        EXPECT_EQ(hits[0].alignment.score, 100u);
    }
    const auto hits = run(lead_in);
    ASSERT_EQ(hits.size(), 1u);
    EXPECT_EQ(hits[0].alignment.offset, -40);
    EXPECT_EQ(hits[0].alignment.score, 100u);  // the lead-in overlaps nothing and is not compared
    EXPECT_EQ(hits[0].alignment.compared, 1500u);
}

TEST_F(FingerprintMatchTest, BitErrorsLowerTheScoreAndUnrelatedMusicFindsNothing) {
    const std::vector<uint32_t> song = walk(11, 1500);
    struct Case {
        double rate;
        uint32_t low, high;
    } cases[] = {{0.02, 94, 98}, {0.05, 86, 94}, {0.10, 76, 84}};
    for (const Case &c : cases) {
        const auto hits = run(fp_test::with_errors(std::vector<uint32_t>(song.begin() + 200, song.begin() + 440), c.rate, 5));
        ASSERT_EQ(hits.size(), 1u) << c.rate;
        EXPECT_EQ(hits[0].alignment.offset, 200);
        EXPECT_GE(hits[0].alignment.score, c.low);
        EXPECT_LE(hits[0].alignment.score, c.high);
    }
    EXPECT_TRUE(run(fp_test::with_errors(song, 0.30, 5)).empty());  // too many errors: below the threshold
    EXPECT_TRUE(run(walk(1234, 1500)).empty());
    EXPECT_TRUE(run(std::vector<uint32_t>(song.begin() + 100, song.begin() + 130)).empty());  // under 5 seconds
}

TEST_F(FingerprintMatchTest, SilenceNeitherIndexesNorMatches) {
    std::vector<uint32_t> silent(600, 627964279u);
    source.add(50, print(silent));
    EXPECT_TRUE(run(silent).empty());
    // A silent stretch inside a song is skipped by the comparison.
    std::vector<uint32_t> song = walk(13, 1500);
    std::fill(song.begin() + 100, song.begin() + 300, 627964279u);
    const auto hits = run(std::vector<uint32_t>(song.begin(), song.begin() + 400));
    ASSERT_EQ(hits.size(), 1u);
    EXPECT_EQ(hits[0].alignment.compared, 200u);
}

TEST_F(FingerprintMatchTest, KeysWithTooManyPostingsAreSkipped) {
    // A sequence stored many times over makes its keys stop keys.
    const std::vector<uint32_t> common = walk(77, 200);
    for (int64_t id = 100; id < 100 + static_cast<int64_t>(fp::kStopPostings) + 1; ++id) source.add(id, print(common));
    EXPECT_TRUE(run(common).empty());
    // Probes are bounded, and each distinct key is read once.
    std::vector<uint32_t> repeated;
    for (int i = 0; i < 30; ++i) repeated.insert(repeated.end(), common.begin(), common.end());
    source.lookups = 0;
    run(repeated);
    EXPECT_EQ(source.lookups, 200u);
}

}  // namespace
