// Host trees as result objects: values with ordinals, children by key and
// selector, soft statuses, data flags, locales, rendering and the dump.
#include <atomic>
#include <string>
#include <thread>

#include "host/host_internal.h"
#include "host_fixture.h"
#include "out_param.h"
#include "rvo_read.h"

namespace {

class TreeTest : public HostObjectsTest {
   protected:
    // An album of three tracks; track 2 matched, track numbers as values,
    // an official title and a second one.
    void SetUp() override {
        HostObjectsTest::SetUp();
        album_ = make_node("zelto_ctx_album", {{"zelto_val_full_result", "1"}, {"zelto_val_albumtrackcnt", "3"}});
        zelto_manager_tree *official = make_node("zelto_ctx_title", {{"zelto_val_display", "Blue Train"}});
        zelto_manager_tree *other = make_node("zelto_ctx_title", {{"zelto_val_display", "Blue Train (Remaster)"}});
        adopt(album_, "zelto_ctx_title!", other);
        adopt(album_, "zelto_ctx_title!off", official);
        for (int n = 1; n <= 3; ++n) {
            std::string number = std::to_string(n);
            std::string title = "Track " + number;
            zelto_manager_tree *track =
                make_node("zelto_ctx_track", {{"zelto_val_tracknumber", number.c_str()}, {"zelto_val_title", title.c_str()}});
            adopt(album_, n == 2 ? "zelto_ctx_track!matching" : "zelto_ctx_track!", track);
        }
        ASSERT_EQ(zelto_manager_tree_to_rvo(album_, nullptr, "zelto_locale_music", 0, &object_), 0u);
    }
    void TearDown() override {
        zelto_manager_rvo_release(object_);
        zelto_manager_tree_release(album_);
        HostObjectsTest::TearDown();
    }

    uint32_t child_count(const char *key) {
        uint32_t count = 12345;
        EXPECT_EQ(zelto_manager_rvo_child_count(object_, key, &count), 0u) << key;
        return count;
    }
    // The title of a child track, or the status of the read.
    std::string child_title(const char *key, uint32_t ordinal) {
        zelto_rvo_handle child = nullptr;
        uint32_t status = zelto_manager_rvo_child_get(object_, key, ordinal, 1, &child);
        if (status != 0) return failed_read(status);
        std::string title = value_of(child, "zelto_val_title");
        if (title.rfind("<", 0) == 0) title = value_of(child, "zelto_val_display");
        zelto_manager_rvo_release(child);
        return title;
    }

    zelto_manager_tree *album_ = nullptr;
    zelto_rvo_handle object_ = nullptr;
};

const std::string kNotFound = failed_read(ZELTO_RVO_NOT_FOUND);

TEST_F(TreeTest, ContextAndValuesWithOrdinals) {
    EXPECT_EQ(out(zelto_manager_rvo_get_context, object_), "zelto_ctx_album");
    EXPECT_EQ(value_of(object_, "zelto_val_albumtrackcnt"), "3");
    EXPECT_EQ(value_of(object_, "zelto_val_albumtrackcnt", 0), kNotFound);
    EXPECT_EQ(value_of(object_, "zelto_val_albumtrackcnt", 2), kNotFound);
    EXPECT_EQ(value_of(object_, "zelto_val_missing"), kNotFound);
    EXPECT_EQ(value_of(object_, "_sdkmgr_val_response_code"), kNotFound);
    uint32_t count = 7;
    EXPECT_EQ(out(zelto_manager_rvo_value_count, object_, "zelto_val_missing"), 0u);
    // Not a value key at all.
    const char *text = nullptr;
    EXPECT_EQ(zelto_manager_rvo_value_get(object_, "zelto_ctx_track!", 1, &text), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_rvo_value_count(object_, "title", &count), ZELTO_RVO_BAD_ARG);

    // Several values under one key, added after exposure, in insertion order.
    ASSERT_EQ(zelto_manager_tree_add_value(album_, "_sdkmgr_val_genre", "Jazz"), 0u);
    ASSERT_EQ(zelto_manager_tree_add_value(album_, "_sdkmgr_val_genre", "Hard Bop"), 0u);
    EXPECT_EQ(out(zelto_manager_rvo_value_count, object_, "_sdkmgr_val_genre"), 2u);
    EXPECT_EQ(value_of(object_, "_sdkmgr_val_genre", 1), "Jazz");
    EXPECT_EQ(value_of(object_, "_sdkmgr_val_genre", 2), "Hard Bop");
    EXPECT_EQ(value_of(object_, "_sdkmgr_val_genre", 3), kNotFound);
}

TEST_F(TreeTest, TextsStayValidWhileValuesAreAdded) {
    const char *first = nullptr;
    ASSERT_EQ(zelto_manager_rvo_value_get(object_, "zelto_val_full_result", 1, &first), 0u);
    for (int i = 0; i < 200; ++i) zelto_manager_tree_add_value(album_, "zelto_val_filler", "some longer text that is not short");
    EXPECT_STREQ(first, "1");
}

TEST_F(TreeTest, AllChildrenOfABase) {
    EXPECT_EQ(child_count("zelto_ctx_track!"), 3u);
    EXPECT_EQ(child_title("zelto_ctx_track!", 1), "Track 1");
    EXPECT_EQ(child_title("zelto_ctx_track!", 3), "Track 3");
    EXPECT_EQ(child_title("zelto_ctx_track!", 0), kNotFound);
    EXPECT_EQ(child_title("zelto_ctx_track!", 4), kNotFound);
    EXPECT_EQ(child_count("zelto_ctx_lyric!"), 0u);
    EXPECT_EQ(child_title("zelto_ctx_lyric!", 1), kNotFound);
}

TEST_F(TreeTest, MatchingSelectsTaggedChildren) {
    EXPECT_EQ(child_count("zelto_ctx_track!matching"), 1u);
    EXPECT_EQ(child_title("zelto_ctx_track!matching", 1), "Track 2");
    EXPECT_EQ(child_title("zelto_ctx_track!matching", 2), kNotFound);
    EXPECT_EQ(child_title("zelto_ctx_track!matching", 0), kNotFound);
}

TEST_F(TreeTest, NumberSelectsByTrackNumber) {
    EXPECT_EQ(child_count("zelto_ctx_track!number"), 3u);
    EXPECT_EQ(child_title("zelto_ctx_track!number", 2), "Track 2");
    EXPECT_EQ(child_title("zelto_ctx_track!number", 4), kNotFound);
    EXPECT_EQ(child_title("zelto_ctx_track!number", 0), kNotFound);

    // An explicit number wins over the value; children without one are skipped.
    zelto_manager_tree *bonus = make_node("zelto_ctx_track", {{"zelto_val_title", "Bonus"}});
    adopt(album_, "zelto_ctx_track!", bonus);
    EXPECT_EQ(child_count("zelto_ctx_track!number"), 3u);
    EXPECT_EQ(zelto_manager_tree_set_number(bonus, 12), 0u);
    EXPECT_EQ(child_count("zelto_ctx_track!number"), 4u);
    EXPECT_EQ(child_title("zelto_ctx_track!number", 12), "Bonus");
    EXPECT_EQ(child_count("zelto_ctx_track!"), 4u);
}

TEST_F(TreeTest, OfficialTitleIsTheTaggedOneOrTheFirst) {
    EXPECT_EQ(child_count("zelto_ctx_title!"), 2u);
    EXPECT_EQ(child_count("zelto_ctx_title!off"), 1u);
    EXPECT_EQ(child_title("zelto_ctx_title!off", 1), "Blue Train");
    EXPECT_EQ(child_title("zelto_ctx_title!", 1), "Blue Train (Remaster)");

    zelto_manager_tree *artist = make_node("zelto_ctx_artist");
    zelto_manager_tree *name = make_node("zelto_ctx_name", {{"zelto_val_display", "John Coltrane"}});
    adopt(artist, "zelto_ctx_name", name);
    adopt(album_, "zelto_ctx_artist!", artist);
    zelto_rvo_handle a = nullptr, n = nullptr;
    ASSERT_EQ(zelto_manager_rvo_child_get(object_, "zelto_ctx_artist!", 1, 0, &a), 0u);
    // No child tagged "off": the first one stands for it.
    ASSERT_EQ(zelto_manager_rvo_child_get(a, "zelto_ctx_name!off", 1, 0, &n), 0u);
    EXPECT_EQ(value_of(n, "zelto_val_display"), "John Coltrane");
    EXPECT_EQ(zelto_manager_rvo_child_get(a, "zelto_ctx_name!off", 2, 0, &n), ZELTO_RVO_NOT_FOUND);
    for (auto item : {n, a}) zelto_manager_rvo_release(item);
}

TEST_F(TreeTest, MalformedChildKeysAreRefused) {
    uint32_t count = 0;
    zelto_rvo_handle child = nullptr;
    for (const char *key : {"zelto_ctx_track", "track!", "zelto_ctx_!", "zelto_val_title"}) {
        EXPECT_EQ(zelto_manager_rvo_child_count(object_, key, &count), ZELTO_RVO_BAD_ARG) << key;
        EXPECT_EQ(zelto_manager_rvo_child_get(object_, key, 1, 1, &child), ZELTO_RVO_BAD_ARG) << key;
    }
    EXPECT_EQ(child, nullptr);
    zelto_manager_tree *t = make_node("zelto_ctx_track");
    EXPECT_EQ(zelto_manager_tree_add_child(album_, "zelto_ctx_track!number", t), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_tree_add_child(album_, "zelto_ctx_track!a,", t), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_tree_add_child(album_, "zelto_ctx_track!,a", t), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_tree_add_child(album_, "zelto_val_x", t), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_tree_add_value(t, "title", "x"), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_tree_add_value(t, "zelto_val_title", nullptr), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_tree_create("", &t), ZELTO_RVO_BAD_ARG);
    zelto_manager_tree_release(t);
}

TEST_F(TreeTest, CyclesAreRefused) {
    zelto_manager_tree *disc = make_node("zelto_ctx_disc");
    ASSERT_EQ(zelto_manager_tree_add_child(album_, "zelto_ctx_disc!", disc), 0u);
    EXPECT_EQ(zelto_manager_tree_add_child(disc, "zelto_ctx_album!", album_), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_tree_add_child(disc, "zelto_ctx_disc!", disc), ZELTO_RVO_BAD_ARG);
    zelto_manager_tree_release(disc);
}

// The cycle test follows which nodes still hold a child: a node shared by
// two parents stays below the second when the first is gone.
TEST_F(TreeTest, CyclesThroughASharedChildAreRefusedAfterOneParentIsGone) {
    zelto_manager_tree *first = make_node("zelto_ctx_disc"), *second = make_node("zelto_ctx_disc");
    zelto_manager_tree *shared = make_node("zelto_ctx_track", {{"zelto_val_tracknumber", "1"}});
    ASSERT_EQ(zelto_manager_tree_add_child(first, "zelto_ctx_track!", shared), 0u);
    ASSERT_EQ(zelto_manager_tree_add_child(second, "zelto_ctx_track!", shared), 0u);
    zelto_manager_tree_release(first);
    EXPECT_EQ(zelto_manager_tree_add_child(shared, "zelto_ctx_disc!", second), ZELTO_RVO_BAD_ARG);
    // Once no node holds it, the former child may take its former parent.
    zelto_manager_tree_release(second);
    zelto_manager_tree *again = make_node("zelto_ctx_disc");
    ASSERT_EQ(zelto_manager_tree_add_child(shared, "zelto_ctx_disc!", again), 0u);
    EXPECT_EQ(zelto_manager_tree_add_child(again, "zelto_ctx_track!", shared), ZELTO_RVO_BAD_ARG);
    zelto_manager_tree_release(again);
    EXPECT_EQ(dump(shared), "zelto_ctx_track\n  zelto_val_tracknumber = \"1\"\n  zelto_ctx_disc! 1\n    zelto_ctx_disc\n");
    zelto_manager_tree_release(shared);
}

TEST_F(TreeTest, ChildOutlivesParentObjectAndTree) {
    zelto_rvo_handle track = nullptr;
    ASSERT_EQ(zelto_manager_rvo_child_get(object_, "zelto_ctx_track!matching", 1, 1, &track), 0u);
    uint32_t trees = zelto_manager_tree_live_count();
    zelto_manager_rvo_release(object_);
    object_ = nullptr;
    zelto_manager_tree_release(album_);
    album_ = nullptr;
    // Only the matched track is left, held by its object.
    EXPECT_EQ(zelto_manager_tree_live_count(), trees - 5);
    EXPECT_EQ(value_of(track, "zelto_val_title"), "Track 2");
    zelto_manager_rvo_release(track);
}

TEST_F(TreeTest, DataFlagsWithholdValues) {
    ASSERT_EQ(zelto_manager_tree_add_value_ex(album_, "zelto_val_xid", "xid-1", nullptr, ZELTO_DATA_LINK), 0u);
    ASSERT_EQ(zelto_manager_tree_add_value_ex(album_, "zelto_val_genre", "Jazz", nullptr, 0), 0u);
    ASSERT_EQ(zelto_manager_tree_add_value_ex(album_, "zelto_val_genre", "Bop", nullptr, ZELTO_DATA_CLASSICAL), 0u);
    // The object was made with no flags.
    EXPECT_EQ(value_of(object_, "zelto_val_xid"), failed_read(ZELTO_RVO_WITHHELD));
    EXPECT_EQ(out(zelto_manager_rvo_value_count, object_, "zelto_val_xid"), 0u);
    EXPECT_EQ(out(zelto_manager_rvo_value_count, object_, "zelto_val_genre"), 1u);
    EXPECT_EQ(value_of(object_, "zelto_val_genre", 2), kNotFound);

    zelto_rvo_handle linked = nullptr;
    ASSERT_EQ(zelto_manager_tree_to_rvo(album_, nullptr, "zelto_locale_music", ZELTO_DATA_LINK | ZELTO_DATA_CLASSICAL,
                                        &linked),
              0u);
    EXPECT_EQ(value_of(linked, "zelto_val_xid"), "xid-1");
    EXPECT_EQ(value_of(linked, "zelto_val_genre", 2), "Bop");
    // Children read through the object inherit its flags.
    zelto_manager_tree *track = make_node("zelto_ctx_track");
    zelto_manager_tree_add_value_ex(track, "zelto_val_xid", "xid-t", nullptr, ZELTO_DATA_LINK);
    adopt(album_, "zelto_ctx_track!", track);
    zelto_rvo_handle child = nullptr;
    ASSERT_EQ(zelto_manager_rvo_child_get(linked, "zelto_ctx_track!", 4, 1, &child), 0u);
    EXPECT_EQ(value_of(child, "zelto_val_xid"), "xid-t");
    zelto_manager_rvo_release(child);
    ASSERT_EQ(zelto_manager_rvo_child_get(object_, "zelto_ctx_track!", 4, 1, &child), 0u);
    EXPECT_EQ(value_of(child, "zelto_val_xid"), failed_read(ZELTO_RVO_WITHHELD));
    for (auto item : {child, linked}) zelto_manager_rvo_release(item);
}

// A value read by ordinal is found in one walk over the node; the values
// counted (the walk that visits them) and each one read must agree with the
// rule: the view's flags admit a value, a language of the view's locale
// wins over values without one, which win over other languages. Random
// nodes of three keys, with languages and required flags, under every
// view.
TEST_F(TreeTest, ValuesReadByOrdinalFollowTheVisibilityRule) {
    const char *const keys[] = {"zelto_val_a", "zelto_val_b", "zelto_val_c"};
    const char *const languages[] = {nullptr, "deu", "eng"};
    const uint32_t flags[] = {0, ZELTO_DATA_LINK, ZELTO_DATA_CLASSICAL};
    zelto_locale_handle locales[4] = {};
    ASSERT_EQ(zelto_manager_locale_get("deu", &locales[1]), 0u);
    ASSERT_EQ(zelto_manager_locale_get("eng", &locales[2]), 0u);
    ASSERT_EQ(zelto_manager_locale_get("spa", &locales[3]), 0u);
    struct Model {
        int key, language;
        uint32_t required;
        std::string text;
    };
    uint32_t seed = 7;
    auto next = [&](uint32_t n) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 16) % n;
    };
    for (int round = 0; round < 300; ++round) {
        zelto_manager_tree *node = make_node("zelto_ctx_album");
        std::vector<Model> model;
        for (uint32_t i = 0, n = next(9); i < n; ++i) {
            Model m{static_cast<int>(next(3)), static_cast<int>(next(3)), flags[next(3)], "v" + std::to_string(i)};
            ASSERT_EQ(zelto_manager_tree_add_value_ex(node, keys[m.key], m.text.c_str(), languages[m.language],
                                                      m.required),
                      0u);
            model.push_back(m);
        }
        const uint32_t view_flags = next(4) == 0 ? 0 : ZELTO_DATA_LINK | (next(2) ? ZELTO_DATA_CLASSICAL : 0);
        const int locale = static_cast<int>(next(4));
        zelto_rvo_handle view = nullptr;
        ASSERT_EQ(zelto_manager_tree_to_rvo(node, nullptr, "zelto_locale_music", view_flags, &view), 0u);
        ASSERT_EQ(zelto_manager_rvo_set_locale(view, locales[locale]), 0u);
        for (int key = 0; key < 3; ++key) {
            std::vector<std::string> allowed, plain, in_language;
            bool any = false;
            for (const Model &m : model) {
                if (m.key != key) continue;
                any = true;
                if ((view_flags & m.required) != m.required) continue;
                allowed.push_back(m.text);
                if (m.language == 0)
                    plain.push_back(m.text);
                else if (m.language == locale)
                    in_language.push_back(m.text);
            }
            const auto &visible = !in_language.empty() ? in_language : !plain.empty() ? plain : allowed;
            EXPECT_EQ(out(zelto_manager_rvo_value_count, view, keys[key]), visible.size());
            for (uint32_t ordinal = 0; ordinal <= visible.size() + 1; ++ordinal) {
                const std::string expected = any && allowed.empty() ? failed_read(ZELTO_RVO_WITHHELD)
                                             : ordinal == 0 || ordinal > visible.size()
                                                 ? kNotFound
                                                 : visible[ordinal - 1];
                ASSERT_EQ(value_of(view, keys[key], ordinal), expected)
                    << "round " << round << ", key " << key << ", ordinal " << ordinal;
            }
        }
        zelto_manager_rvo_release(view);
        zelto_manager_tree_release(node);
    }
}

TEST_F(TreeTest, LocaleChoosesValuesOfItsLanguage) {
    ASSERT_EQ(zelto_manager_tree_add_value_ex(album_, "zelto_val_genre", "Jazz", nullptr, 0), 0u);
    ASSERT_EQ(zelto_manager_tree_add_value_ex(album_, "zelto_val_genre", "Jazz (de)", "de", 0), 0u);
    ASSERT_EQ(zelto_manager_tree_add_value_ex(album_, "zelto_val_genre", "Jazz (ger)", "ger", 0), 0u);
    ASSERT_EQ(zelto_manager_tree_add_value_ex(album_, "zelto_val_mood", "Calme", "French", 0), 0u);
    EXPECT_EQ(zelto_manager_tree_add_value_ex(album_, "zelto_val_mood", "?", "Klingonish", 0), ZELTO_LISTS_UNKNOWN);

    EXPECT_EQ(value_of(object_, "zelto_val_genre"), "Jazz");
    EXPECT_EQ(value_of(object_, "zelto_val_genre", 2), kNotFound);
    // Only values with a language: all of them.
    EXPECT_EQ(value_of(object_, "zelto_val_mood"), "Calme");

    zelto_locale_handle german = nullptr, spanish = nullptr;
    ASSERT_EQ(zelto_manager_locale_get("DEU", &german), 0u);
    ASSERT_EQ(zelto_manager_locale_get("es", &spanish), 0u);
    EXPECT_EQ(zelto_manager_rvo_set_locale(object_, german), 0u);
    EXPECT_EQ(out(zelto_manager_rvo_get_locale, object_), german);
    EXPECT_EQ(value_of(object_, "zelto_val_genre", 1), "Jazz (de)");
    EXPECT_EQ(value_of(object_, "zelto_val_genre", 2), "Jazz (ger)");
    // A child read after the locale was set takes it along.
    zelto_manager_tree *track = make_node("zelto_ctx_track");
    zelto_manager_tree_add_value(track, "zelto_val_title", "Night");
    zelto_manager_tree_add_value_ex(track, "zelto_val_title", "Nacht", "German", 0);
    adopt(album_, "zelto_ctx_track!", track);
    EXPECT_EQ(child_title("zelto_ctx_track!", 4), "Nacht");
    // No value in the locale's language: back to the plain ones.
    EXPECT_EQ(zelto_manager_rvo_set_locale(object_, spanish), 0u);
    EXPECT_EQ(value_of(object_, "zelto_val_genre"), "Jazz");
    EXPECT_EQ(child_title("zelto_ctx_track!", 4), "Night");
    // Locale handles the host did not make are refused by tree objects.
    int bogus = 0;
    EXPECT_EQ(zelto_manager_rvo_set_locale(object_, &bogus), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_rvo_set_locale(object_, nullptr), 0u);
    EXPECT_EQ(value_of(object_, "zelto_val_genre"), "Jazz");
}

TEST_F(TreeTest, LocalesAreInterned) {
    zelto_locale_handle a = nullptr, b = nullptr;
    ASSERT_EQ(zelto_manager_locale_get("en", &a), 0u);
    ASSERT_EQ(zelto_manager_locale_get(" english ", &b), 0u);
    EXPECT_EQ(a, b);
    EXPECT_STREQ(zelto_manager_locale_language(a), "eng");
    EXPECT_EQ(zelto_manager_locale_language(nullptr), nullptr);
    EXPECT_EQ(zelto_manager_locale_get("xx", &a), ZELTO_LISTS_UNKNOWN);
}

TEST_F(TreeTest, RenderEnumeratesVisibleValues) {
    const char *name = nullptr, *text = nullptr;
    EXPECT_EQ(out(zelto_manager_rvo_render_value, object_, 0, &name), "1");
    EXPECT_STREQ(name, "zelto_val_full_result");
    EXPECT_EQ(out(zelto_manager_rvo_render_value, object_, 1, &name), "3");
    EXPECT_STREQ(name, "zelto_val_albumtrackcnt");
    EXPECT_EQ(zelto_manager_rvo_render_value(object_, 2, &name, &text), ZELTO_RVO_NOT_FOUND);
}

TEST_F(TreeTest, ReleasingTheTreeKeepsExposedObjectsWorking) {
    zelto_manager_tree_release(album_);
    album_ = nullptr;
    EXPECT_EQ(child_title("zelto_ctx_track!number", 3), "Track 3");
    EXPECT_EQ(zelto_manager_tree_release(nullptr), 0u);
}

TEST_F(TreeTest, DumpShowsEverythingIndented) {
    zelto_manager_tree_add_value(album_, "zelto_val_note", "say \"hi\"\n\tand\x01");
    zelto_manager_tree_add_value_ex(album_, "zelto_val_xid", "hidden unless flags", nullptr, ZELTO_DATA_LINK);
    EXPECT_EQ(dump(album_),
              "zelto_ctx_album\n"
              "  zelto_val_full_result = \"1\"\n"
              "  zelto_val_albumtrackcnt = \"3\"\n"
              "  zelto_val_note = \"say \\\"hi\\\"\\n\\tand\\x01\"\n"
              "  zelto_val_xid = \"hidden unless flags\"\n"
              "  zelto_ctx_title! 1\n"
              "    zelto_ctx_title\n"
              "      zelto_val_display = \"Blue Train (Remaster)\"\n"
              "  zelto_ctx_title! 2 {off}\n"
              "    zelto_ctx_title\n"
              "      zelto_val_display = \"Blue Train\"\n"
              "  zelto_ctx_track! 1\n"
              "    zelto_ctx_track\n"
              "      zelto_val_tracknumber = \"1\"\n"
              "      zelto_val_title = \"Track 1\"\n"
              "  zelto_ctx_track! 2 {matching}\n"
              "    zelto_ctx_track\n"
              "      zelto_val_tracknumber = \"2\"\n"
              "      zelto_val_title = \"Track 2\"\n"
              "  zelto_ctx_track! 3\n"
              "    zelto_ctx_track\n"
              "      zelto_val_tracknumber = \"3\"\n"
              "      zelto_val_title = \"Track 3\"\n");
    // Through an object without the flag, the withheld value is not shown.
    char *text = nullptr;
    ASSERT_EQ(zelto_manager_rvo_dump(object_, nullptr, nullptr, &text), 0u);
    EXPECT_EQ(std::string(text).find("zelto_val_xid"), std::string::npos);
    EXPECT_NE(std::string(text).find("zelto_val_note"), std::string::npos);
    zelto_manager_text_free(text);
}

TEST_F(TreeTest, TagsListSeveralNames) {
    zelto_manager_tree *t = make_node("zelto_ctx_track", {{"zelto_val_title", "Both"}});
    adopt(album_, "zelto_ctx_track!matching,bonus", t);
    EXPECT_EQ(child_count("zelto_ctx_track!matching"), 2u);
    EXPECT_EQ(child_count("zelto_ctx_track!bonus"), 1u);
    EXPECT_EQ(child_title("zelto_ctx_track!bonus", 1), "Both");
    EXPECT_NE(dump(album_).find("zelto_ctx_track! 4 {matching,bonus}\n"), std::string::npos);
}

// Contexts and keys given as constants are kept, not copied: a tree built
// so reads and dumps as one built through the exported calls, and the same
// keys are refused.
TEST_F(TreeTest, ConstantKeysBuildTheSameTree) {
    const char *const child_keys[] = {"zelto_ctx_track!", "zelto_ctx_track!matching", "zelto_ctx_track!matching,off",
                                      "zelto_ctx_title"};
    zelto_manager_tree *copied = nullptr, *kept = nullptr;
    ASSERT_EQ(zelto_manager_tree_create("zelto_ctx_album", &copied), 0u);
    ASSERT_EQ(host::tree_create_constant("zelto_ctx_album", &kept), 0u);
    const std::string text = "Blue Train";
    EXPECT_EQ(zelto_manager_tree_add_value(copied, "zelto_val_title", text.c_str()), 0u);
    EXPECT_EQ(host::tree_add_constant_value(kept, "zelto_val_title", text.data(), text.size()), 0u);
    for (const char *key : child_keys) {
        zelto_manager_tree *a = make_node("zelto_ctx_track", {{"zelto_val_title", key}});
        zelto_manager_tree *b = make_node("zelto_ctx_track", {{"zelto_val_title", key}});
        EXPECT_EQ(zelto_manager_tree_add_child(copied, key, a), 0u) << key;
        EXPECT_EQ(host::tree_add_constant_child(kept, key, b), 0u) << key;
        zelto_manager_tree_release(a);
        host::tree_release_held(b);
    }
    EXPECT_EQ(dump(kept), dump(copied));
    EXPECT_NE(dump(kept).find("zelto_ctx_track! 3 {matching,off}\n"), std::string::npos);
    zelto_manager_tree *t = make_node("zelto_ctx_track", {});
    for (const char *bad : {"zelto_val_title", "zelto_ctx_track!matching,", "zelto_ctx_track!number", "zelto_ctx_!"})
        EXPECT_EQ(host::tree_add_constant_child(kept, bad, t), ZELTO_RVO_BAD_ARG) << bad;
    EXPECT_EQ(host::tree_add_constant_child(kept, "zelto_ctx_track!", kept), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(host::tree_add_constant_value(kept, "zelto_ctx_title", "x", 1), ZELTO_RVO_BAD_ARG);
    zelto_manager_tree_release(t);
    zelto_manager_tree_release(copied);
    host::tree_release_held(kept);
    host::tree_release_held(nullptr);
}

// An inner node stays out of the handle registry: the exported calls
// refuse it, while below a parent it reads and dumps as any node, and the
// parent's release frees it.
TEST_F(TreeTest, InnerNodesReadBelowTheirParentOnly) {
    const uint32_t live = zelto_manager_tree_live_count();
    zelto_manager_tree *inner = nullptr, *kept = nullptr;
    ASSERT_EQ(host::tree_create_inner("zelto_ctx_track", &inner), 0u);
    ASSERT_EQ(host::tree_create_constant("zelto_ctx_track", &kept), 0u);
    EXPECT_EQ(zelto_manager_tree_live_count(), live + 2);
    for (zelto_manager_tree *t : {inner, kept})
        EXPECT_EQ(host::tree_add_constant_value(t, "zelto_val_title", "Moment's Notice", 15), 0u);
    EXPECT_EQ(zelto_manager_tree_add_value(inner, "zelto_val_title", "x"), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_tree_context(inner), nullptr);
    EXPECT_STREQ(zelto_manager_tree_context(kept), "zelto_ctx_track");
    zelto_rvo_handle object = nullptr;
    EXPECT_EQ(zelto_manager_tree_to_rvo(inner, nullptr, "zelto_locale_music", 0, &object), ZELTO_RVO_BAD_ARG);

    EXPECT_EQ(host::tree_add_constant_child(album_, "zelto_ctx_track!bonus", inner), 0u);
    EXPECT_EQ(host::tree_add_constant_child(album_, "zelto_ctx_track!bonus", kept), 0u);
    host::tree_release_held(inner);
    host::tree_release_held(kept);
    EXPECT_EQ(child_count("zelto_ctx_track!bonus"), 2u);
    EXPECT_EQ(child_title("zelto_ctx_track!bonus", 1), "Moment's Notice");
    const std::string text = dump(album_);
    const size_t first = text.find("zelto_val_title = \"Moment's Notice\"");
    ASSERT_NE(first, std::string::npos);
    EXPECT_NE(text.find("zelto_val_title = \"Moment's Notice\"", first + 1), std::string::npos);
    zelto_manager_rvo_release(object_);
    object_ = nullptr;
    zelto_manager_tree_release(album_);
    album_ = nullptr;
    EXPECT_EQ(zelto_manager_tree_live_count(), live - 6);  // the album, its two titles and three tracks too
}

TEST_F(TreeTest, InvalidTreeHandlesAreRefused) {
    int junk = 0;
    auto *fake = reinterpret_cast<zelto_manager_tree *>(&junk);
    EXPECT_EQ(zelto_manager_tree_add_value(fake, "zelto_val_x", "y"), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_tree_addref(fake), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_tree_release(fake), ZELTO_RVO_BAD_ARG);
    EXPECT_EQ(zelto_manager_tree_context(fake), nullptr);
    EXPECT_STREQ(zelto_manager_tree_context(album_), "zelto_ctx_album");
    zelto_rvo_handle object = nullptr;
    EXPECT_EQ(zelto_manager_tree_to_rvo(fake, nullptr, "", 0, &object), ZELTO_RVO_BAD_ARG);
    // Trees are the host's own objects: the module's handle count leaves them out.
    EXPECT_EQ(zelto_manager_handle_count(), 0u);
}

}  // namespace

namespace {

// Readers walk an object while a writer keeps adding values and children.
TEST_F(TreeTest, ConcurrentReadsAndAdditions) {
    std::atomic<bool> stop{false};
    std::atomic<uint32_t> reads{0};
    auto reader = [&] {
        while (!stop.load()) {
            uint32_t count = 0;
            zelto_manager_rvo_child_count(object_, "zelto_ctx_track!number", &count);
            zelto_rvo_handle child = nullptr;
            if (zelto_manager_rvo_child_get(object_, "zelto_ctx_track!", count, 1, &child) == 0) {
                const char *text = nullptr;
                zelto_manager_rvo_value_get(child, "zelto_val_title", 1, &text);
                zelto_manager_rvo_release(child);
            }
            const char *genre = nullptr;
            zelto_manager_rvo_value_get(object_, "zelto_val_genre", 1, &genre);
            ++reads;
        }
    };
    std::thread a(reader), b(reader);
    for (int i = 0; i < 300; ++i) {
        zelto_manager_tree_add_value(album_, "zelto_val_genre", "Jazz");
        std::string number = std::to_string(100 + i);
        zelto_manager_tree *track = make_node("zelto_ctx_track", {{"zelto_val_tracknumber", number.c_str()}});
        adopt(album_, "zelto_ctx_track!", track);
    }
    while (reads.load() < 100) std::this_thread::yield();
    stop = true;
    a.join();
    b.join();
    EXPECT_EQ(child_count("zelto_ctx_track!"), 303u);
    zelto_rvo_handle last = nullptr;
    ASSERT_EQ(zelto_manager_rvo_child_get(object_, "zelto_ctx_track!number", 399, 1, &last), 0u);
    EXPECT_EQ(value_of(last, "zelto_val_tracknumber"), "399");
    zelto_manager_rvo_release(last);
}

}  // namespace
