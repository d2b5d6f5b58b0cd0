// The file package frame. The file-handle manager's own state is set up by
// _ombr_fs_mgr_init and ended by _ombr_fs_mgr_shutdown.
#include "platform/ombr_frame.h"

namespace {
ombr::PackageState s_fs;
void *s_fs_global_marker = nullptr;
void *s_fs_marker_lists = nullptr;

uint32_t ombr_fs_mgr_init() { return 0; }

uint32_t ombr_fs_mgr_shutdown() {
    ombr_fs_marker_end(s_fs_global_marker);
    s_fs_global_marker = nullptr;
    ombr_fs_marker_end(s_fs_marker_lists);
    s_fs_marker_lists = nullptr;
    return 0;
}

// Memory, thread, string, iostream, then the handle manager; on failure the
// packages already started go down in the order memory, thread, string,
// iostream.
uint32_t fs_init_func() {
    bool memory = false, thread = false, string = false, iostream = false;
    uint32_t status = 10;
    if ((memory = ombr_memory_initialize() == 0) && (thread = ombr_thread_initialize() == 0) &&
        (string = ombr_string_initialize() == 0) && (iostream = ombr_iostream_initialize() == 0)) {
        status = ombr_fs_mgr_init();
        if (status == 0) return 0;
    }
    if (memory) ombr_memory_shutdown();
    if (thread) ombr_thread_shutdown();
    if (string) ombr_string_shutdown();
    if (iostream) ombr_iostream_shutdown();
    return status;
}

uint32_t fs_shutdown_func() {
    ombr_fs_mgr_shutdown();
    ombr_iostream_shutdown();
    ombr_string_shutdown();
    ombr_thread_shutdown();
    ombr_memory_shutdown();
    return 0;
}
}  // namespace

OMBR_DEFINE_PACKAGE_FRAME(fs, s_fs, fs_init_func, fs_shutdown_func, ombr::kBaseBuildDate)
