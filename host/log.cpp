// Log hooks owned by the host. The application (or a test) installs the
// callbacks and sets the per-package enable masks; the library reads them on
// every use.
#include <pthread.h>

#include "ombr/ombr_base.h"

#define VISIBLE __attribute__((visibility("default")))

extern "C" {
VISIBLE ombr_log_error_callback_t g_ombr_log_error_callback = nullptr;
VISIBLE ombr_log_callback_t g_ombr_log_callback = nullptr;
VISIBLE uint32_t g_ombr_log_enabled_pkgs[255] = {};
VISIBLE pthread_key_t g_ombr_thread_store_key = 0;

// The host keeps no file markers, so there is nothing to end.
VISIBLE void ombr_fs_marker_end(void *) {}
}
