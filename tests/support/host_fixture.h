// Fixture for tests of the host's services: fails a test that leaves result
// objects, tree nodes or decoded serial blocks behind; builds trees with
// tree_build.h.
#ifndef HOST_FIXTURE_H
#define HOST_FIXTURE_H

#include <gtest/gtest.h>

#include <string>

#include "tree_build.h"
#include "zelto/zelto_host_services.h"

class HostObjectsTest : public ::testing::Test {
   protected:
    void SetUp() override {
        rvos_ = zelto_manager_rvo_live_count();
        trees_ = zelto_manager_tree_live_count();
        serial_ = zelto_manager_serial_live_blocks();
    }
    void TearDown() override {
        EXPECT_EQ(zelto_manager_rvo_live_count(), rvos_) << "result objects leaked";
        EXPECT_EQ(zelto_manager_tree_live_count(), trees_) << "tree nodes leaked";
        EXPECT_EQ(zelto_manager_serial_live_blocks(), serial_) << "decoded blocks leaked";
    }

    static std::string dump(zelto_manager_tree *tree) {
        char *text = nullptr;
        EXPECT_EQ(zelto_manager_tree_dump(tree, &text), 0u);
        std::string out = text ? text : "";
        zelto_manager_text_free(text);
        return out;
    }

    uint32_t rvos_ = 0, trees_ = 0, serial_ = 0;
};

#endif
