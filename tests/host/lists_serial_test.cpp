// Language list and serialisation services, as the manager hands them out.
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

#include "host_fixture.h"

namespace {

class ListsTest : public HostObjectsTest {
   protected:
    void SetUp() override {
        HostObjectsTest::SetUp();
        ASSERT_EQ(zelto_manager_get_table()->interface_get("_zelto_listmanager_interface", 0, 0,
                                                           reinterpret_cast<const void **>(&lists_)),
                  0u);
    }
    void TearDown() override {
        lists_->release(lists_);
        HostObjectsTest::TearDown();
    }
    std::string get(const char *language) {
        const char *text = nullptr;
        uint32_t status = lists_->list_language_get(language, &text);
        return status == 0 ? std::string(text) : "status " + std::to_string(status);
    }
    const zelto_lists_interface *lists_ = nullptr;
};

TEST_F(ListsTest, TableHasTheLanguageSlotAtThirty) {
    EXPECT_EQ(offsetof(zelto_lists_interface, list_language_get), 30 * sizeof(void *));
    EXPECT_GE(zelto_manager_service_refs("_zelto_listmanager_interface"), 1);
    for (void *slot : lists_->reserved) EXPECT_EQ(slot, nullptr);
}

TEST_F(ListsTest, GeneratedTableRowCounts) {
    // iso-codes' ISO 639-2 list without the qaa-qtz block; 184 two-letter codes.
    EXPECT_EQ(zelto_manager_list_language_count(), 486u);
    uint32_t two_letter = 0;
    const char letters[] = "abcdefghijklmnopqrstuvwxyz";
    for (char a : std::string(letters))
        for (char b : std::string(letters)) {
            char code[3] = {a, b, 0};
            const char *text = nullptr;
            // Two-letter codes are only ever ISO 639-1 codes in the list.
            if (zelto_manager_list_language_get(code, &text) == 0) ++two_letter;
        }
    EXPECT_EQ(two_letter, 184u);
}

TEST_F(ListsTest, CodesAndNamesInAnyCaseGiveTheTerminologyCode) {
    // Entries with several names accept each; languages without a
    // two-letter code are found by their code and their name.
    const std::pair<const char *, const char *> codes[] = {
        {"de", "deu"}, {"DE", "deu"}, {"deu", "deu"}, {"ger", "deu"}, {"German", "deu"}, {"  gErMaN ", "deu"},
        {"en", "eng"}, {"English", "eng"}, {"fre", "fra"}, {"ja", "jpn"}, {"zh", "zho"}, {"chi", "zho"},
        {"Spanish", "spa"}, {"castilian", "spa"}, {"Dutch", "nld"}, {"Flemish", "nld"}, {"haw", "haw"},
        {"Hawaiian", "haw"}};
    for (const auto &[given, code] : codes) EXPECT_EQ(get(given), code) << given;
    EXPECT_STREQ(zelto_manager_list_language_name("es"), "Spanish; Castilian");
    EXPECT_EQ(zelto_manager_list_language_name("xx"), nullptr);
}

TEST_F(ListsTest, UnknownLanguagesFail) {
    const std::string unknown = "status " + std::to_string(ZELTO_LISTS_UNKNOWN);
    EXPECT_EQ(get("xx"), unknown);
    EXPECT_EQ(get(""), unknown);
    EXPECT_EQ(get("Germanic languages x"), unknown);
    EXPECT_EQ(get("qaa"), unknown);
    EXPECT_EQ(get("en-US"), unknown);
    const char *text = "untouched";
    EXPECT_EQ(lists_->list_language_get(nullptr, &text), ZELTO_LISTS_BAD_ARG);
    EXPECT_EQ(lists_->list_language_get("en", nullptr), ZELTO_LISTS_BAD_ARG);
    EXPECT_STREQ(text, "untouched");
    // The module maps an unknown language to its error value 3 (soft not found).
    EXPECT_EQ(ZELTO_LISTS_UNKNOWN & 0xFFFFu, 3u);
}

class SerialTest : public HostObjectsTest {
   protected:
    void SetUp() override {
        HostObjectsTest::SetUp();
        ASSERT_EQ(zelto_manager_get_table()->interface_get("_zelto_serialization_interface", 0, 0,
                                                           reinterpret_cast<const void **>(&table_)),
                  0u);
    }
    void TearDown() override {
        table_->release(table_);
        HostObjectsTest::TearDown();
    }
    std::string decode(const char *text) {
        void *data = nullptr;
        uint32_t size = 0;
        uint32_t status = table_->serial_decode(text, &data, &size);
        if (status != 0) return "status " + std::to_string(status);
        std::string out(static_cast<const char *>(data), size);
        EXPECT_EQ(static_cast<const char *>(data)[size], '\0');
        EXPECT_EQ(table_->serial_free(data), 0u);
        return out;
    }
    std::string encode(const std::string &bytes) {
        char *text = nullptr;
        EXPECT_EQ(zelto_manager_serial_encode(bytes.data(), static_cast<uint32_t>(bytes.size()), &text), 0u);
        std::string out = text ? text : "";
        zelto_manager_text_free(text);
        return out;
    }
    const zelto_serialization_interface *table_ = nullptr;
};

const std::string kMalformed = "status " + std::to_string(ZELTO_SERIAL_MALFORMED);

TEST_F(SerialTest, KnownVectors) {
    EXPECT_EQ(encode("f"), "Zg==");
    EXPECT_EQ(encode("fo"), "Zm8=");
    EXPECT_EQ(encode("foo"), "Zm9v");
    EXPECT_EQ(encode("foobar"), "Zm9vYmFy");
    EXPECT_EQ(encode(""), "");
    EXPECT_EQ(decode("Zg=="), "f");
    EXPECT_EQ(decode("Zm8="), "fo");
    EXPECT_EQ(decode("Zm9vYmFy"), "foobar");
    EXPECT_EQ(decode(" Zm9v\r\nYmFy\t"), "foobar");
}

TEST_F(SerialTest, RoundTripOfEveryByteAndLength) {
    std::string bytes;
    for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
    for (size_t n = 0; n <= bytes.size(); n += 37) {
        std::string part = bytes.substr(bytes.size() - n);
        if (part.empty()) continue;
        EXPECT_EQ(decode(encode(part).c_str()), part) << n;
    }
    for (size_t n = 1; n <= 5; ++n) EXPECT_EQ(decode(encode(bytes.substr(0, n)).c_str()), bytes.substr(0, n));
}

TEST_F(SerialTest, MalformedTextIsRefused) {
    // Empty, not a multiple of four, padding missing, three pads, padding
    // inside, non-zero bits in the tail, foreign bytes, the URL-safe alphabet.
    for (const char *text : {"", "   ", "Zg=", "Zg", "Z===", "====", "Zg==Zg==", "Zh==", "Zm9==", "Zm9v!mFy",
                             "Zm9v-mFy", "<xml/>"})
        EXPECT_EQ(decode(text), kMalformed) << text;
    EXPECT_EQ(zelto_manager_serial_live_blocks(), serial_);
}

TEST_F(SerialTest, FreeAcceptsNullAndRefusesForeignBlocks) {
    EXPECT_EQ(table_->serial_free(nullptr), 0u);
    char local = 0;
    EXPECT_EQ(table_->serial_free(&local), ZELTO_SERIAL_BAD_ARG);
    void *data = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(table_->serial_decode("AAEC", &data, &size), 0u);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(zelto_manager_serial_live_blocks(), serial_ + 1);
    EXPECT_EQ(table_->serial_free(data), 0u);
    EXPECT_EQ(table_->serial_free(data), ZELTO_SERIAL_BAD_ARG);
    EXPECT_EQ(table_->serial_decode(nullptr, &data, &size), ZELTO_SERIAL_BAD_ARG);
    EXPECT_EQ(zelto_manager_serial_encode(nullptr, 1, nullptr), ZELTO_SERIAL_BAD_ARG);
}

TEST_F(SerialTest, FingerprintPayloadBehindThePrefix) {
    // What an application builds for set_fp_data: "ZTFP" and the encoded XML.
    const std::string xml = "<FP><ALGORITHM><NAME>zfpx</NAME><VERSION>1.0</VERSION></ALGORITHM></FP>";
    std::string text = "ZTFP" + encode(xml);
    EXPECT_EQ(decode(text.c_str() + 4), xml);
}

}  // namespace
