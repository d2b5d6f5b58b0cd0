// HDO under threads: readers of copies while a writer splits shared values,
// and references released concurrently on different nodes of one tree.
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "hdo_test_support.h"

namespace {

using HdoConcurrency = HdoTest;

std::string text_for(int i) { return "value-" + std::to_string(i) + std::string(40, static_cast<char>('a' + i % 26)); }

// Reads the string value "v" of a node through a fresh handle.
std::string read_v(ombr_hdo_t node) {
    ombr_hdo_value_t h = nullptr;
    if (ombr_hdo_value_get(node, "v", 0, &h) != 0) return "(missing)";
    const char *text = nullptr;
    std::string result = ombr_hdo_value_getdata_string(h, &text) == 0 && text ? text : "(no text)";
    ombr_hdo_value_release(h);
    return result;
}

TEST_F(HdoConcurrency, ReadersOfCopiesNeverSeeTheWriterSplitShareValues) {
    constexpr int kRounds = 300;
    ombr_hdo_t source = make_node();
    add_string(source, "v", text_for(0).c_str());
    ombr_hdo_t first_copy = nullptr;  // shares the first value for the whole run
    ASSERT_EQ(ombr_hdo_copy(source, &first_copy, 1), 0u);

    std::mutex slot_mutex;
    ombr_hdo_t slot = nullptr;  // the latest copy and the text it must show
    std::string slot_text;
    std::atomic<bool> done{false};
    std::atomic<int> bad_reads{0}, reads{0};

    std::thread first_reader([&] {
        while (!done.load()) {
            if (read_v(first_copy) != text_for(0)) bad_reads.fetch_add(1);
            reads.fetch_add(1);
        }
    });
    std::thread latest_reader([&] {
        while (!done.load()) {
            ombr_hdo_t copy = nullptr;
            std::string expected;
            {
                std::lock_guard<std::mutex> guard(slot_mutex);
                if (slot) {
                    ombr_hdo_addref(slot);
                    copy = slot;
                    expected = slot_text;
                }
            }
            if (!copy) continue;
            if (read_v(copy) != expected) bad_reads.fetch_add(1);
            reads.fetch_add(1);
            ombr_hdo_release(copy);
        }
    });

    ombr_hdo_value_t writer = nullptr;
    ASSERT_EQ(ombr_hdo_value_get(source, "v", 0, &writer), 0u);
    for (int i = 1; i <= kRounds; ++i) {
        // Share the current value with a new copy, publish it, then write:
        // the write must split the value away from the copy.
        ombr_hdo_t copy = nullptr;
        ASSERT_EQ(ombr_hdo_copy(source, &copy, 0), 0u);
        {
            std::lock_guard<std::mutex> guard(slot_mutex);
            if (slot) ombr_hdo_release(slot);
            slot = copy;
            slot_text = text_for(i - 1);
        }
        ASSERT_EQ(ombr_hdo_value_setdata_string(writer, text_for(i).c_str()), 0u);
        ASSERT_EQ(ombr_hdo_value_setdata_string(writer, text_for(i).c_str()), 0u);  // in place now
    }
    while (reads.load() < 2 * kRounds) std::this_thread::yield();
    done.store(true);
    first_reader.join();
    latest_reader.join();
    EXPECT_EQ(bad_reads.load(), 0);
    EXPECT_EQ(read_v(source), text_for(kRounds));
    EXPECT_EQ(read_v(first_copy), text_for(0));
    ombr_hdo_release(slot);
    ombr_hdo_value_release(writer);
    for (auto item : {first_copy, source}) ombr_hdo_release(item);
}

TEST_F(HdoConcurrency, ReleasesOnDifferentNodesOfOneTreeFreeItOnce) {
    constexpr int kTrees = 200;
    constexpr int kThreads = 4;
    const int64_t before = live_blocks();
    for (int t = 0; t < kTrees; ++t) {
        ombr_hdo_t root = make_node();
        std::vector<ombr_hdo_t> held;
        for (int i = 0; i < kThreads; ++i) {
            ombr_hdo_t child = add_child(root, "c");
            add_string(child, "v", "x");
            ombr_hdo_addref(child);
            held.push_back(child);
        }
        ombr_hdo_release(root);  // only the threads hold the tree now
        std::vector<std::thread> threads;
        for (ombr_hdo_t node : held)
            threads.emplace_back([node] {
                uint32_t count = 0;
                ombr_hdo_value_count(node, nullptr, &count);
                ombr_hdo_release(node);
            });
        for (std::thread &th : threads) th.join();
        ASSERT_EQ(live_blocks(), before) << "tree " << t;
    }
}

TEST_F(HdoConcurrency, AttachAndDetachWhileOtherThreadsQueryTheTree) {
    ombr_hdo_t root = make_node();
    for (int i = 0; i < 8; ++i) add_string(add_child(root, "item"), "name", ("n" + std::to_string(i)).c_str());
    std::atomic<bool> done{false};
    std::atomic<int> queries{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 2; ++r)
        readers.emplace_back([&] {
            while (!done.load()) {
                uint32_t count = 0;
                EXPECT_EQ(ombr_hdo_get_count_by_hpath(root, "item/$name", nullptr, &count), 0u);
                EXPECT_GE(count, 8u);
                const char *text = nullptr;
                EXPECT_EQ(ombr_hdo_get_string_by_hpath(root, "item[$name='n3']/$name", nullptr, 0, &text), 0u);
                queries.fetch_add(1);
            }
        });
    for (int i = 0; i < 200; ++i) {
        ombr_hdo_t extra = make_node();
        add_string(extra, "name", "extra");
        ASSERT_EQ(ombr_hdo_child_set(root, "item", extra, 0), 0u);
        ombr_hdo_t removed = nullptr;
        ASSERT_EQ(ombr_hdo_child_remove(root, "item", 8, &removed), 0u);
        EXPECT_EQ(removed, extra);
        for (auto item : {removed, extra}) ombr_hdo_release(item);
    }
    while (queries.load() < 20) std::this_thread::yield();
    done.store(true);
    for (std::thread &th : readers) th.join();
    ombr_hdo_release(root);
}

}  // namespace
