// Smallest use of the library: bring it up against the reference host,
// create a query for a user, print the version, and take everything down.
#include <cstdio>

#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_manager.h"

int main() {
    uint32_t status = zelto_cantrix_initialize(zelto_manager_get_table());
    if (status != 0) {
        std::fprintf(stderr, "initialise failed: 0x%08X\n", status);
        return 1;
    }
    zelto_user *user = nullptr;
    zelto_cantrix_query_handle query = nullptr;
    status = zelto_manager_user_create("example", &user);
    if (status == 0) status = zelto_cantrix_query_create(user, nullptr, nullptr, &query);
    if (status == 0) {
        std::printf("libzelto_cantrix %s (built %s): query created\n", zelto_cantrix_get_version(),
                    zelto_cantrix_get_build_date());
        status = zelto_cantrix_query_release(query);
    } else {
        std::fprintf(stderr, "query failed: 0x%08X\n", status);
    }
    zelto_manager_user_release(user);
    zelto_cantrix_shutdown();
    return status == 0 ? 0 : 1;
}
