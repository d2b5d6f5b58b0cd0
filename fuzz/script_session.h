// The module brought up on the reference host with a user and the scripted
// provider installed: the setting of the harnesses that drive queries.
#ifndef CANTRIX_FUZZ_SCRIPT_SESSION_H
#define CANTRIX_FUZZ_SCRIPT_SESSION_H

#include "fuzz/fuzz_support.h"
#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_manager.h"
#include "zelto/zelto_script_provider.h"

namespace fuzz {

struct ScriptSession {
    zelto_user *user = nullptr;
    zelto_script *script = nullptr;
    ScriptSession() {
        require(zelto_cantrix_initialize(zelto_manager_get_table()) == 0, "initialise");
        require(zelto_manager_user_create("fuzz", &user) == 0, "user");
        require(zelto_script_create(&script) == 0 && zelto_script_install(script, 0) == 0, "script");
    }
    ~ScriptSession() {
        zelto_script_destroy(script);
        zelto_manager_user_release(user);
        zelto_cantrix_shutdown();
    }
    ScriptSession(const ScriptSession &) = delete;
    ScriptSession &operator=(const ScriptSession &) = delete;
};

}  // namespace fuzz

#endif
