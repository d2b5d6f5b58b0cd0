// Streams: creation rules, reads over buffers and callbacks with their end
// statuses, push-back, reset, read_entire, writes, reference counting and
// the delete callback, and leaks under allocation failure.
#include <string>
#include <vector>

#include "out_param.h"
#include "xml_test_support.h"

namespace {

class IostreamTest : public LeakCheckedTest {
   protected:
    void SetUp() override {
        ASSERT_EQ(ombr_iostream_initialize(), 0u);
        LeakCheckedTest::SetUp();
    }
    void TearDown() override {
        LeakCheckedTest::TearDown();
        ombr_iostream_shutdown();
    }
};

std::string read_some(ombr_iostream_t s, uint32_t size, uint32_t *status) {
    std::string out(size, '\0');
    uint32_t got = 0xFFFF;
    *status = ombr_iostream_read(s, out.data(), size, &got);
    out.resize(*status == 0 ? got : 0);
    return out;
}

struct Recorder {
    std::vector<uint32_t> read_sizes;
    std::string written;
    int flushes = 0, resets = 0, deletes = 0;
    uint32_t read_status = 0;
    std::string data = "0123456789";
    size_t pos = 0;

    static uint32_t read(void *c, void *buffer, uint32_t size, uint32_t *got) {
        auto *r = static_cast<Recorder *>(c);
        r->read_sizes.push_back(size);
        if (r->read_status) return r->read_status;
        size_t n = std::min<size_t>({4, size, r->data.size() - r->pos});
        std::memcpy(buffer, r->data.data() + r->pos, n);
        r->pos += n;
        *got = static_cast<uint32_t>(n);
        return 0;
    }
    static uint32_t write(void *c, const void *buffer, uint32_t size, uint32_t *written) {
        static_cast<Recorder *>(c)->written.append(static_cast<const char *>(buffer), size);
        *written = size;
        return 0;
    }
    static uint32_t flush(void *c) { return ++static_cast<Recorder *>(c)->flushes, 0; }
    static uint32_t reset(void *c) {
        auto *r = static_cast<Recorder *>(c);
        r->pos = 0;
        return ++r->resets, 0;
    }
    static uint32_t remove(void *c) { return ++static_cast<Recorder *>(c)->deletes, 0; }
};

TEST_F(IostreamTest, CreationRules) {
    Recorder rec;
    ombr_iostream_callbacks all{Recorder::read, Recorder::write, Recorder::flush, Recorder::reset, Recorder::remove};
    ombr_iostream_callbacks none{nullptr, nullptr, nullptr, nullptr, Recorder::remove};
    ombr_iostream_t s = nullptr;
    EXPECT_EQ(ombr_iostream_create(nullptr, 0, &all, &rec), OMBR_IOSTREAM_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_iostream_create(&s, 0, nullptr, &rec), OMBR_IOSTREAM_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_iostream_create(&s, 0, &none, &rec), OMBR_IOSTREAM_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_iostream_create_from_buffer(&s, nullptr, 3, nullptr, nullptr), OMBR_IOSTREAM_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_iostream_create_from_buffer(&s, "abc", 0, nullptr, nullptr), OMBR_IOSTREAM_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_iostream_create_from_buffer(nullptr, "abc", 3, nullptr, nullptr), OMBR_IOSTREAM_ERR_INVALID_ARG);

    // A buffer below 1024 bytes is raised to 1024: the callback is offered that much.
    ASSERT_EQ(ombr_iostream_create(&s, 10, &all, &rec), 0u);
    uint32_t status = 0;
    EXPECT_EQ(read_some(s, 2, &status), "01");
    EXPECT_EQ(rec.read_sizes, std::vector<uint32_t>{1024});
    uint8_t can = 0;
    EXPECT_EQ(out(ombr_iostream_can_read, s), 1);
    EXPECT_EQ(out(ombr_iostream_can_write, s), 1);
    EXPECT_EQ(out(ombr_iostream_can_reset, s), 1);
    EXPECT_EQ(ombr_iostream_addref(s), 0u);
    EXPECT_EQ(ombr_iostream_release(s), 0u);
    EXPECT_EQ(rec.deletes, 0);
    EXPECT_EQ(ombr_iostream_release(s), 0u);
    EXPECT_EQ(rec.deletes, 1);
    EXPECT_EQ(ombr_iostream_release(nullptr), 0u);

    // The package must be up to create over callbacks.
    ombr_iostream_shutdown();
    EXPECT_EQ(ombr_iostream_create(&s, 0, &all, &rec), OMBR_IOSTREAM_ERR_NOT_INITIALIZED);
    ASSERT_EQ(ombr_iostream_initialize(), 0u);

    // Handle checks.
    uint32_t fake[16] = {0x12345678u};
    auto bad = reinterpret_cast<ombr_iostream_t>(fake);
    EXPECT_EQ(ombr_iostream_read(bad, fake, 1, &status), OMBR_IOSTREAM_ERR_BAD_MAGIC);
    EXPECT_EQ(ombr_iostream_release(bad), OMBR_IOSTREAM_ERR_BAD_MAGIC);
    EXPECT_EQ(ombr_iostream_putback(nullptr, "x", 1), OMBR_IOSTREAM_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_iostream_can_read(nullptr, &can), OMBR_IOSTREAM_ERR_INVALID_ARG);
}

TEST_F(IostreamTest, BufferStreamEndsAndPushBack) {
    ombr_iostream_t s = nullptr;
    ASSERT_EQ(ombr_iostream_create_from_buffer(&s, "abcdef", 6, nullptr, nullptr), 0u);
    uint32_t status = 0;
    EXPECT_EQ(read_some(s, 4, &status), "abcd");
    EXPECT_EQ(read_some(s, 4, &status), "ef");  // the last bytes with status 0
    EXPECT_EQ(status, 0u);
    read_some(s, 4, &status);
    EXPECT_EQ(status, OMBR_IOSTREAM_END_OF_DATA);
    // Push-back after the end: read again, latest first, then the end again.
    EXPECT_EQ(ombr_iostream_putback(s, "12", 2), 0u);
    EXPECT_EQ(ombr_iostream_putback(s, "XY", 2), 0u);
    EXPECT_EQ(ombr_iostream_putback(s, "", 0), 0u);
    EXPECT_EQ(read_some(s, 3, &status), "XY1");
    EXPECT_EQ(read_some(s, 3, &status), "2");
    read_some(s, 1, &status);
    EXPECT_EQ(status, OMBR_IOSTREAM_END_OF_DATA);
    uint32_t total = 0, written = 7;
    EXPECT_EQ(out(ombr_iostream_throughput, s, &total), 0u);
    EXPECT_EQ(total, 10u);
    // Reset: from the start again, push-back dropped.
    EXPECT_EQ(ombr_iostream_putback(s, "zz", 2), 0u);
    EXPECT_EQ(ombr_iostream_reset(s), 0u);
    EXPECT_EQ(read_some(s, 6, &status), "abcdef");
    // A read that ends exactly at the end: 0, then the end.
    read_some(s, 1, &status);
    EXPECT_EQ(status, OMBR_IOSTREAM_END_OF_DATA);
    EXPECT_EQ(out(ombr_iostream_can_write, s), 0);
    EXPECT_EQ(ombr_iostream_write(s, "x", 1, &written), OMBR_IOSTREAM_ERR_NO_WRITE);
    EXPECT_EQ(ombr_iostream_flush(s), OMBR_IOSTREAM_ERR_NOT_AVAILABLE);
    EXPECT_EQ(ombr_iostream_release(s), 0u);

    // With a delete callback the data is read in place.
    Recorder rec;
    char data[] = "inplace";
    ASSERT_EQ(ombr_iostream_create_from_buffer(&s, data, 7, Recorder::remove, &rec), 0u);
    data[0] = 'I';
    EXPECT_EQ(read_some(s, 7, &status), "Inplace");
    EXPECT_EQ(ombr_iostream_release(s), 0u);
    EXPECT_EQ(rec.deletes, 1);
}

TEST_F(IostreamTest, CallbackStreamReadsWritesAndFailures) {
    Recorder rec;
    ombr_iostream_callbacks calls{Recorder::read, Recorder::write, Recorder::flush, nullptr, nullptr};
    ombr_iostream_t s = nullptr;
    ASSERT_EQ(ombr_iostream_create(&s, 2000, &calls, &rec), 0u);
    uint32_t status = 0;
    // The callback gives 4 bytes at a time; a read collects across calls.
    EXPECT_EQ(read_some(s, 7, &status), "0123456");
    EXPECT_EQ(read_some(s, 7, &status), "789");  // then the callback gave 0: the end, with success
    EXPECT_EQ(status, 0u);
    read_some(s, 7, &status);
    EXPECT_EQ(status, OMBR_IOSTREAM_END_OF_DATA);
    EXPECT_EQ(rec.read_sizes, (std::vector<uint32_t>{2000, 2000, 2000, 2000}));
    // No reset callback: no reset, no throughput.
    EXPECT_EQ(ombr_iostream_reset(s), OMBR_IOSTREAM_ERR_NOT_AVAILABLE);
    uint32_t total = 0, written = 0;
    EXPECT_EQ(ombr_iostream_throughput(s, &total, &written), OMBR_IOSTREAM_ERR_NOT_AVAILABLE);
    EXPECT_EQ(ombr_iostream_write(s, "hello", 5, &written), 0u);
    EXPECT_EQ(written, 5u);
    EXPECT_EQ(rec.written, "hello");
    EXPECT_EQ(ombr_iostream_flush(s), 0u);
    EXPECT_EQ(rec.flushes, 1);
    EXPECT_EQ(ombr_iostream_release(s), 0u);

    // End of data from any package ends the read; another failure is returned.
    Recorder eod;
    eod.read_status = 0x90030049u;
    ASSERT_EQ(ombr_iostream_create(&s, 0, &calls, &eod), 0u);
    read_some(s, 3, &status);
    EXPECT_EQ(status, OMBR_IOSTREAM_END_OF_DATA);
    EXPECT_EQ(ombr_iostream_release(s), 0u);
    Recorder broken;
    broken.read_status = 0x9003003Eu;
    ASSERT_EQ(ombr_iostream_create(&s, 0, &calls, &broken), 0u);
    ombr_iostream_putback(s, "p", 1);
    uint32_t got = 77;
    char buf[4];
    EXPECT_EQ(ombr_iostream_read(s, buf, 3, &got), 0x9003003Eu);
    EXPECT_EQ(got, 77u);  // not written
    EXPECT_EQ(ombr_iostream_release(s), 0u);

    // A write-only stream cannot be read.
    ombr_iostream_callbacks write_only{nullptr, Recorder::write, nullptr, Recorder::reset, nullptr};
    ASSERT_EQ(ombr_iostream_create(&s, 0, &write_only, &rec), 0u);
    EXPECT_EQ(ombr_iostream_read(s, buf, 1, &got), OMBR_IOSTREAM_ERR_NOT_READABLE);
    EXPECT_EQ(ombr_iostream_reset(s), 0u);
    EXPECT_EQ(rec.resets, 1);
    EXPECT_EQ(ombr_iostream_release(s), 0u);
}

// A buffer or push-back of nearly 4 GiB would wrap the record's size on a
// 32-bit system: refused for want of memory instead of overrunning.
TEST_F(IostreamTest, SizesThatWouldWrapAreRefused) {
    if (sizeof(void *) != 4) GTEST_SKIP() << "sizes cannot wrap in a 64-bit address space";
    Recorder rec;
    ombr_iostream_callbacks calls{Recorder::read, nullptr, nullptr, nullptr, nullptr};
    ombr_iostream_t s = nullptr;
    EXPECT_EQ(ombr_iostream_create(&s, 0xFFFFFFF8u, &calls, &rec), OMBR_IOSTREAM_ERR_NO_MEMORY);
    EXPECT_EQ(s, nullptr);
    ASSERT_EQ(ombr_iostream_create(&s, 0, &calls, &rec), 0u);
    EXPECT_EQ(ombr_iostream_putback(s, "x", 0xFFFFFFF8u), OMBR_IOSTREAM_ERR_NO_MEMORY);
    EXPECT_EQ(ombr_iostream_release(s), 0u);
}

TEST_F(IostreamTest, ReadEntire) {
    ChunkSource source{std::string(5000, 'q') + "end", 0, 7};
    ombr_iostream_t s = chunk_stream(source);
    void *block = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(ombr_iostream_read_entire(s, &block, &size), 0u);
    EXPECT_EQ(size, 5003u);
    EXPECT_EQ(std::string(static_cast<char *>(block), size), source.data);
    ombr_memory_free(block);
    // Nothing left: a null block and size 0.
    block = reinterpret_cast<void *>(1);
    EXPECT_EQ(out(ombr_iostream_read_entire, s, &block), 0u);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(ombr_iostream_read_entire(s, nullptr, &size), OMBR_IOSTREAM_ERR_INVALID_ARG);
    ombr_iostream_release(s);

    uint64_t failures = for_each_allocation_failure([&](uint64_t) {
        ChunkSource again{std::string(9000, 'r'), 0, 1000};
        ombr_iostream_t t = nullptr;
        ombr_iostream_callbacks callbacks{ChunkSource::read, nullptr, nullptr, nullptr, nullptr};
        if (ombr_iostream_create(&t, 0, &callbacks, &again) != 0) return;
        void *all = nullptr;
        uint32_t n = 0;
        uint32_t status = ombr_iostream_read_entire(t, &all, &n);
        if (status == 0) {
            EXPECT_EQ(n, 9000u);
        } else {
            EXPECT_EQ(status, OMBR_IOSTREAM_ERR_NO_MEMORY);
        }
        ombr_memory_free(all);
        ombr_iostream_putback(t, "abc", 3);  // may fail; the release frees what is there
        ombr_iostream_release(t);
    });
    EXPECT_GE(failures, 3u);
}

}  // namespace
