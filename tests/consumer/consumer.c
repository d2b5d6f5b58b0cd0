/* An application outside the project's tree, written in C, built against an
 * installed copy of the libraries: it identifies a CD by its table of
 * contents through the reference host's scripted lookup provider and prints
 * what came back. */
#include <stdio.h>
#include <string.h>

#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_manager.h"
#include "zelto/zelto_script_provider.h"

static int failed(const char *what, uint32_t status) {
    fprintf(stderr, "%s failed: 0x%08X\n", what, (unsigned)status);
    return 1;
}

/* The provider's answer: one full album with two tracks. */
static uint32_t queue_answer(zelto_script *script) {
    zelto_manager_tree *root = NULL, *album = NULL, *track = NULL;
    uint32_t status = zelto_manager_tree_create("zelto_ctx_response", &root);
    if (status == 0) status = zelto_manager_tree_add_value(root, "_sdkmgr_val_response_code", "zelto_result_single_match");
    if (status == 0) status = zelto_manager_tree_create("zelto_ctx_album", &album);
    if (status == 0) status = zelto_manager_tree_add_value(album, "zelto_val_title", "Lanterns");
    if (status == 0) status = zelto_manager_tree_add_value(album, "zelto_val_artist", "The Quiet Hours");
    if (status == 0) status = zelto_manager_tree_add_value(album, "zelto_val_full_result", "1");
    for (int n = 1; status == 0 && n <= 2; ++n) {
        char number[4];
        snprintf(number, sizeof number, "%d", n);
        status = zelto_manager_tree_create("zelto_ctx_track", &track);
        if (status == 0) status = zelto_manager_tree_add_value(track, "zelto_val_tracknumber", number);
        if (status == 0) status = zelto_manager_tree_add_child(album, "zelto_ctx_track!", track);
        zelto_manager_tree_release(track);
        track = NULL;
    }
    if (status == 0) status = zelto_manager_tree_add_child(root, "zelto_ctx_album!", album);
    if (status == 0) status = zelto_script_answer(script, root, NULL);
    zelto_manager_tree_release(album);
    zelto_manager_tree_release(root);
    return status;
}

static const char *value(zelto_rvo_handle object, const char *key) {
    const char *text = NULL;
    return zelto_manager_rvo_value_get(object, key, 1, &text) == 0 && text ? text : "?";
}

int main(void) {
    zelto_script *script = NULL;
    zelto_user *user = NULL;
    zelto_cantrix_query_handle query = NULL;
    zelto_rvo_handle response = NULL, album = NULL;
    uint32_t status = zelto_cantrix_initialize(zelto_manager_get_table());
    if (status != 0) return failed("initialize", status);
    int rc = 1;
    if ((status = zelto_script_create(&script)) != 0 || (status = zelto_script_install(script, 0)) != 0) {
        failed("scripted provider", status);
    } else if ((status = queue_answer(script)) != 0) {
        failed("answer", status);
    } else if ((status = zelto_manager_user_create("consumer", &user)) != 0 ||
               (status = zelto_cantrix_query_create(user, NULL, NULL, &query)) != 0) {
        failed("query", status);
    } else if ((status = zelto_cantrix_query_set_toc_string(query, "150 14672 27367 41225")) != 0) {
        failed("set_toc_string", status);
    } else if ((status = zelto_cantrix_query_find_albums(query, &response)) != 0) {
        failed("find_albums", status);
    } else if ((status = zelto_manager_rvo_child_get(response, "zelto_ctx_album!", 1, 1, &album)) != 0) {
        failed("album", status);
    } else {
        printf("libzelto_cantrix %s: %s album, \"%s\" by %s, %s match, TOC %s\n", zelto_cantrix_get_version(), value(response, "zelto_val_resultcount"),
               value(album, "zelto_val_title"), value(album, "zelto_val_artist"), value(album, "_sdkmgr_val_match_type"),
               value(album, "zelto_val_toc_album"));
        rc = 0;
    }
    if (album) zelto_manager_rvo_release(album);
    if (response) zelto_manager_rvo_release(response);
    if (query) zelto_cantrix_query_release(query);
    if (user) zelto_manager_user_release(user);
    zelto_script_destroy(script);
    status = zelto_cantrix_shutdown();
    if (status != 0) return failed("shutdown", status);
    if (zelto_manager_memory_live_blocks() != 0) {
        fprintf(stderr, "heap blocks left: %lld\n", (long long)zelto_manager_memory_live_blocks());
        return 1;
    }
    return rc;
}
