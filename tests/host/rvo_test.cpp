// Result-object service over a hand-written provider: reference counting,
// dispatch, null slots, child wrapping, locales, and the service as the
// manager hands it out.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host_fixture.h"
#include "out_param.h"

namespace {

// A provider record that counts what is done to it.
struct Counted {
    int releases = 0;
    int child_releases = 0;  // releases of children it made
    Counted *parent = nullptr;
    std::string context = "zelto_ctx_test";
    zelto_locale_handle locale = nullptr;
};

extern const zelto_rvo_provider kCounted;
extern const zelto_rvo_provider kBare;

uint32_t c_context(void *r, const char **out) {
    *out = static_cast<Counted *>(r)->context.c_str();
    return 0;
}
// Only the top record has parts.
// "zelto_ctx_broken!" and "zelto_val_broken" have one entry each, whose read
// fails as if memory had run out.
constexpr uint32_t kBrokenRead = 0x90810002u;
uint32_t c_child_count(void *r, const char *key, uint32_t *out) {
    if (std::strcmp(key, "zelto_ctx_broken!") == 0) {
        *out = 1;
        return 0;
    }
    if (std::strcmp(key, "zelto_ctx_part!") != 0) return 0x9081000bu;
    *out = static_cast<Counted *>(r)->parent ? 0 : 2;
    return 0;
}
uint32_t c_child(void *r, const char *key, uint32_t ordinal, uint8_t flag, void **out, const zelto_rvo_provider **prov) {
    if (std::strcmp(key, "zelto_ctx_broken!") == 0) return kBrokenRead;
    if (std::strcmp(key, "zelto_ctx_part!") != 0) return 0x9081000bu;
    if (ordinal == 0 || ordinal > 2 || static_cast<Counted *>(r)->parent) return 0x10810003u;
    auto *child = new Counted;
    child->parent = static_cast<Counted *>(r);
    child->context = "zelto_ctx_part" + std::to_string(ordinal) + (flag ? "+" : "-");
    *out = child;
    *prov = &kCounted;
    return 0;
}
uint32_t c_value_count(void *, const char *key, uint32_t *out) {
    *out = std::strcmp(key, "zelto_val_name") == 0 || std::strcmp(key, "zelto_val_broken") == 0 ? 1 : 0;
    return 0;
}
uint32_t c_value(void *r, const char *key, uint32_t ordinal, const char **out) {
    if (std::strcmp(key, "zelto_val_broken") == 0) return kBrokenRead;
    if (std::strcmp(key, "zelto_val_name") != 0 || ordinal != 1) return 0x10810003u;
    *out = static_cast<Counted *>(r)->context.c_str();
    return 0;
}
uint32_t c_render(void *, uint32_t index, const char **name, const char **value) {
    if (index > 0) return 0x10820003u;
    *name = "MATCH_SCORE";
    *value = "77";
    return 0;
}
uint32_t c_set_locale(void *r, zelto_locale_handle locale) {
    static_cast<Counted *>(r)->locale = locale;
    return 0;
}
uint32_t c_get_locale(void *r, zelto_locale_handle *out) {
    *out = static_cast<Counted *>(r)->locale;
    return 0;
}
uint32_t c_release(void *r) {
    auto *record = static_cast<Counted *>(r);
    ++record->releases;
    if (record->parent) {
        ++record->parent->child_releases;
        delete record;
    }
    return 0;
}

const zelto_rvo_provider kCounted = {nullptr, c_context,  c_child_count, c_child,      c_value_count, c_value,
                                     nullptr, c_render,   c_set_locale,  c_get_locale, c_release};
// Only a release: every other operation is missing.
const zelto_rvo_provider kBare = {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr, nullptr, c_release};

class RvoTest : public HostObjectsTest {
   protected:
    zelto_rvo_handle make(Counted *record, const zelto_rvo_provider *provider = &kCounted, void *user = nullptr) {
        zelto_rvo_handle object = nullptr;
        EXPECT_EQ(zelto_manager_rvo_create(record, provider, user, "zelto_locale_music", 0x400000u, &object), 0u);
        return object;
    }
};

TEST_F(RvoTest, LastReleaseCallsProviderReleaseOnce) {
    Counted record;
    zelto_rvo_handle object = make(&record);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(zelto_manager_rvo_refcount(object), 1u);
    EXPECT_EQ(zelto_manager_rvo_addref(object), 0u);
    EXPECT_EQ(zelto_manager_rvo_addref(object), 0u);
    EXPECT_EQ(zelto_manager_rvo_refcount(object), 3u);
    EXPECT_EQ(zelto_manager_rvo_release(object), 0u);
    EXPECT_EQ(zelto_manager_rvo_release(object), 0u);
    EXPECT_EQ(record.releases, 0);
    EXPECT_EQ(zelto_manager_rvo_release(object), 0u);
    EXPECT_EQ(record.releases, 1);
    // The handle is gone: further use is refused rather than dispatched.
    EXPECT_EQ(zelto_manager_rvo_release(object), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_rvo_addref(object), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_rvo_refcount(object), 0u);
    EXPECT_EQ(record.releases, 1);
}

TEST_F(RvoTest, CreateRefusesMissingArgumentsAndLeavesRecordWithCaller) {
    Counted record;
    zelto_rvo_handle object = nullptr;
    EXPECT_EQ(zelto_manager_rvo_create(nullptr, &kCounted, nullptr, "g", 0, &object), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_rvo_create(&record, nullptr, nullptr, "g", 0, &object), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_rvo_create(&record, &kCounted, nullptr, "g", 0, nullptr), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(record.releases, 0);
}

TEST_F(RvoTest, ReleaseOfNullSucceedsAndForeignPointersAreRefused) {
    EXPECT_EQ(zelto_manager_rvo_release(nullptr), 0u);
    Counted record;
    auto *fake = reinterpret_cast<zelto_rvo_handle>(&record);
    const char *text = nullptr;
    EXPECT_EQ(zelto_manager_rvo_get_context(fake, &text), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_rvo_release(fake), ZELTO_RVO_BAD_ARG);
}

TEST_F(RvoTest, HandleManagerValidatesLiveObjectsOnly) {
    const auto *handles = static_cast<const zelto_handlemanager_interface *>(nullptr);
    const zelto_manager_table *manager = zelto_manager_get_table();
    ASSERT_EQ(manager->interface_get("_zelto_handlemanager_interface", 0, 0, reinterpret_cast<const void **>(&handles)), 0u);
    Counted record;
    zelto_rvo_handle object = make(&record);
    EXPECT_EQ(handles->handle_validate_rvo(object), 0u);
    EXPECT_EQ(handles->handle_validate_rvo(&record), 0x90090321u);
    zelto_manager_rvo_release(object);
    EXPECT_EQ(handles->handle_validate_rvo(object), 0x90090321u);
    handles->release(handles);
}

// Many records registered and removed in a shuffled order, the table
// growing on the way: each validates exactly while it is registered, with
// its own magic word, against a plain set kept beside.
TEST_F(RvoTest, HandleRegistryAgreesWithASetThroughGrowthAndRemovals) {
    const auto *handles = static_cast<const zelto_handlemanager_interface *>(nullptr);
    const zelto_manager_table *manager = zelto_manager_get_table();
    ASSERT_EQ(manager->interface_get("_zelto_handlemanager_interface", 0, 0, reinterpret_cast<const void **>(&handles)), 0u);
    const uint32_t before = zelto_manager_handle_count();
    std::vector<uint32_t> records(5000);
    for (size_t i = 0; i < records.size(); ++i) records[i] = 0x51000000u + static_cast<uint32_t>(i % 7);
    std::set<size_t> live;
    std::mt19937 random(7);
    for (int round = 0; round < 4; ++round) {
        for (size_t i = 0; i < records.size(); ++i)
            if (random() % 2 && live.insert(i).second) {
                ASSERT_EQ(handles->handle_add(&records[i]), 0u);
            }
        std::vector<size_t> gone(live.begin(), live.end());
        std::shuffle(gone.begin(), gone.end(), random);
        gone.resize(gone.size() / 2);
        for (size_t i : gone) {
            ASSERT_EQ(handles->handle_remove(&records[i]), 0u);
            live.erase(i);
        }
        for (size_t i = 0; i < records.size(); ++i) {
            const uint32_t expected = live.count(i) ? 0u : 0x90090321u;
            ASSERT_EQ(handles->handle_validate(&records[i], records[i]), expected) << i;
            if (live.count(i)) {
                ASSERT_EQ(handles->handle_validate(&records[i], records[i] + 1), 0x90090321u);
            }
        }
        EXPECT_EQ(zelto_manager_handle_count(), before + live.size());
    }
    for (size_t i : live) handles->handle_remove(&records[i]);
    EXPECT_EQ(zelto_manager_handle_count(), before);
    handles->release(handles);
}

TEST_F(RvoTest, ReadsDispatchToTheProvider) {
    Counted record;
    zelto_rvo_handle object = make(&record);
    const char *text = nullptr;
    EXPECT_EQ(out(zelto_manager_rvo_get_context, object), "zelto_ctx_test");
    uint32_t count = 99;
    EXPECT_EQ(out(zelto_manager_rvo_value_count, object, "zelto_val_name"), 1u);
    EXPECT_EQ(out(zelto_manager_rvo_value_get, object, "zelto_val_name", 1), "zelto_ctx_test");
    // Statuses of the provider pass through unchanged; outputs stay unwritten.
    text = "unchanged";
    EXPECT_EQ(zelto_manager_rvo_value_get(object, "zelto_val_name", 2, &text), 0x10810003u);
    EXPECT_STREQ(text, "unchanged");
    count = 99;
    EXPECT_EQ(zelto_manager_rvo_child_count(object, "zelto_ctx_other!", &count), 0x9081000bu);
    EXPECT_EQ(count, 99u);
    const char *name = nullptr, *value = nullptr;
    EXPECT_EQ(out(zelto_manager_rvo_render_value, object, 0, &name), "77");
    EXPECT_STREQ(name, "MATCH_SCORE");
    EXPECT_EQ(zelto_manager_rvo_render_value(object, 1, &name, &value), 0x10820003u);
    EXPECT_EQ(out(zelto_manager_rvo_data_flags, object), 0x400000u);
    EXPECT_EQ(out(zelto_manager_rvo_locale_group, object), "zelto_locale_music");
    zelto_manager_rvo_release(object);
}

TEST_F(RvoTest, NullSlotsAreUnsupported) {
    Counted record;
    zelto_rvo_handle object = make(&record, &kBare);
    const char *text = nullptr;
    uint32_t count = 0;
    zelto_rvo_handle child = nullptr;
    EXPECT_EQ(zelto_manager_rvo_get_context(object, &text), ZELTO_RVO_UNSUPPORTED);
    EXPECT_EQ(zelto_manager_rvo_value_count(object, "zelto_val_x", &count), ZELTO_RVO_UNSUPPORTED);
    EXPECT_EQ(zelto_manager_rvo_value_get(object, "zelto_val_x", 1, &text), ZELTO_RVO_UNSUPPORTED);
    EXPECT_EQ(zelto_manager_rvo_child_count(object, "zelto_ctx_x!", &count), ZELTO_RVO_UNSUPPORTED);
    EXPECT_EQ(zelto_manager_rvo_child_get(object, "zelto_ctx_x!", 1, 1, &child), ZELTO_RVO_UNSUPPORTED);
    EXPECT_EQ(zelto_manager_rvo_render_value(object, 0, &text, &text), ZELTO_RVO_UNSUPPORTED);
    // Without locale slots the object keeps the locale itself.
    zelto_locale_handle french = nullptr;
    ASSERT_EQ(zelto_manager_locale_get("fr", &french), 0u);
    EXPECT_EQ(out(zelto_manager_rvo_get_locale, object), nullptr);
    EXPECT_EQ(zelto_manager_rvo_set_locale(object, french), 0u);
    EXPECT_EQ(out(zelto_manager_rvo_get_locale, object), french);
    zelto_manager_rvo_release(object);
    EXPECT_EQ(record.releases, 1);
}

TEST_F(RvoTest, ChildrenAreWrappedWithTheirOwnReferenceAndOutliveTheParent) {
    zelto_user *user = nullptr;
    ASSERT_EQ(zelto_manager_user_create("carol", &user), 0u);
    Counted record;
    zelto_rvo_handle object = make(&record, &kCounted, user);
    EXPECT_EQ(zelto_manager_user_refcount(user), 2u);

    zelto_rvo_handle first = nullptr, second = nullptr;
    ASSERT_EQ(zelto_manager_rvo_child_get(object, "zelto_ctx_part!", 1, 1, &first), 0u);
    ASSERT_EQ(zelto_manager_rvo_child_get(object, "zelto_ctx_part!", 2, 0, &second), 0u);
    EXPECT_EQ(zelto_manager_rvo_child_get(object, "zelto_ctx_part!", 3, 1, &first), 0x10810003u);
    EXPECT_EQ(zelto_manager_user_refcount(user), 4u);
    // The flag reaches the provider.
    EXPECT_EQ(out(zelto_manager_rvo_get_context, first), "zelto_ctx_part1+");
    EXPECT_EQ(out(zelto_manager_rvo_get_context, second), "zelto_ctx_part2-");
    uint32_t flags = 0;
    zelto_manager_rvo_data_flags(second, &flags);
    EXPECT_EQ(flags, 0x400000u);

    zelto_manager_rvo_release(first);
    EXPECT_EQ(record.child_releases, 1);
    // The child's record points into the parent's, so keep the parent to the end here.
    zelto_manager_rvo_release(second);
    EXPECT_EQ(record.child_releases, 2);
    zelto_manager_rvo_release(object);
    EXPECT_EQ(record.releases, 1);
    EXPECT_EQ(zelto_manager_user_refcount(user), 1u);
    zelto_manager_user_release(user);
}

TEST_F(RvoTest, LocaleGoesToTheProviderWhenItHasSlots) {
    Counted record;
    zelto_rvo_handle object = make(&record);
    zelto_locale_handle german = nullptr;
    ASSERT_EQ(zelto_manager_locale_get("German", &german), 0u);
    EXPECT_EQ(zelto_manager_rvo_set_locale(object, german), 0u);
    EXPECT_EQ(record.locale, german);
    record.locale = nullptr;  // the provider's answer wins over the stored one
    EXPECT_EQ(out(zelto_manager_rvo_get_locale, object), nullptr);
    zelto_manager_rvo_release(object);
}

TEST_F(RvoTest, ServiceTableComesFromTheManagerWithCountedReferences) {
    const zelto_manager_table *manager = zelto_manager_get_table();
    const void *table = nullptr;
    int32_t before = zelto_manager_service_refs("_zelto_rvo_interface");
    ASSERT_EQ(manager->interface_get("_zelto_rvo_interface", 0, 0, &table), 0u);
    EXPECT_EQ(table, zelto_manager_rvo_table());
    EXPECT_EQ(zelto_manager_service_refs("_zelto_rvo_interface"), before + 1);
    const auto *rvo = static_cast<const zelto_rvo_interface *>(table);
    EXPECT_EQ(rvo->reserved2, nullptr);
    EXPECT_EQ(rvo->reserved8, nullptr);
    Counted record;
    zelto_rvo_handle object = nullptr;
    ASSERT_EQ(rvo->rvo_create(&record, &kCounted, nullptr, "zelto_locale_music", 0, &object), 0u);
    const char *text = nullptr;
    EXPECT_EQ(rvo->rvo_get_context(object, &text), 0u);
    EXPECT_STREQ(text, "zelto_ctx_test");
    EXPECT_EQ(rvo->rvo_release(object), 0u);
    EXPECT_EQ(rvo->rvo_release(nullptr), 0u);
    EXPECT_EQ(record.releases, 1);
    rvo->release(table);
    EXPECT_EQ(zelto_manager_service_refs("_zelto_rvo_interface"), before);
}

TEST_F(RvoTest, DumpWalksOnlyTheGivenKeysOfForeignObjects) {
    Counted record;
    zelto_rvo_handle object = make(&record);
    const char *values[] = {"zelto_val_name", "zelto_val_missing", nullptr};
    const char *children[] = {"zelto_ctx_part!", "zelto_ctx_unknown!", nullptr};
    char *text = nullptr;
    ASSERT_EQ(zelto_manager_rvo_dump(object, values, children, &text), 0u);
    EXPECT_STREQ(text,
                 "zelto_ctx_test\n"
                 "  zelto_val_name = \"zelto_ctx_test\"\n"
                 "  zelto_ctx_part! 1\n"
                 "    zelto_ctx_part1+\n"
                 "      zelto_val_name = \"zelto_ctx_part1+\"\n"
                 "  zelto_ctx_part! 2\n"
                 "    zelto_ctx_part2+\n"
                 "      zelto_val_name = \"zelto_ctx_part2+\"\n");
    zelto_manager_text_free(text);
    EXPECT_EQ(record.child_releases, 2);
    EXPECT_EQ(zelto_manager_rvo_dump(nullptr, values, children, &text), ZELTO_RVO_BAD_ARG);
    zelto_manager_rvo_release(object);
}

TEST_F(RvoTest, DumpReportsAFailedReadInsteadOfSkippingIt) {
    Counted record;
    zelto_rvo_handle object = make(&record);
    const char *none[] = {nullptr};
    const char *broken_value[] = {"zelto_val_name", "zelto_val_broken", nullptr};
    const char *broken_child[] = {"zelto_ctx_part!", "zelto_ctx_broken!", nullptr};
    struct Case {
        const char *const *values;
        const char *const *children;
    };
    for (const Case &c : {Case{broken_value, none}, Case{none, broken_child}, Case{broken_value, broken_child}}) {
        char sentinel = 0;
        char *text = &sentinel;
        EXPECT_EQ(zelto_manager_rvo_dump(object, c.values, c.children, &text), kBrokenRead);
        EXPECT_EQ(text, &sentinel);  // no text on failure
    }
    // The keys apply at every level: the first part's own broken child
    // stopped the dump inside it, and that part was given back. A broken
    // value stops the dump before any child.
    EXPECT_EQ(record.child_releases, 1);
    zelto_manager_rvo_release(object);
}

TEST_F(RvoTest, ConcurrentReferencesEndInOneRelease) {
    Counted record;
    zelto_rvo_handle object = make(&record);
    std::atomic<int> go{0};
    auto work = [&] {
        while (!go.load()) {
        }
        for (int i = 0; i < 2000; ++i) {
            zelto_manager_rvo_addref(object);
            const char *text = nullptr;
            zelto_manager_rvo_get_context(object, &text);
            zelto_manager_rvo_release(object);
        }
    };
    std::thread a(work), b(work);
    go = 1;
    a.join();
    b.join();
    EXPECT_EQ(zelto_manager_rvo_refcount(object), 1u);
    EXPECT_EQ(record.releases, 0);
    zelto_manager_rvo_release(object);
    EXPECT_EQ(record.releases, 1);
}

}  // namespace
