// handler_control_fixture - shared by the tests of actions on one handler

#ifndef MAILVEK_TESTS_UNIT_MAIL_LIB_HANDLERS_HANDLER_CONTROL_FIXTURE_H
#define MAILVEK_TESTS_UNIT_MAIL_LIB_HANDLERS_HANDLER_CONTROL_FIXTURE_H

#include "support/handler_store_test.h"
#include "support/memory_faults.h" // the program is linked for it
#include "support/path_faults.h"

#include <sys/types.h>

// While not 0, make_dir_rec does nothing and returns this.
inline int make_dir_rec_result = 0;

extern "C" {

int __real__Z12make_dir_recPcjjj(char* dir_name, uid_t uid, gid_t gid, mode_t mode);

[[gnu::used]] inline int __wrap__Z12make_dir_recPcjjj(char* dir_name, uid_t uid, gid_t gid,
                                                      mode_t mode)
{
    return make_dir_rec_result != 0 ? make_dir_rec_result
                                    : __real__Z12make_dir_recPcjjj(dir_name, uid, gid, mode);
}

} // extern "C"

class HandlerControlTest : public HandlerStoreTest
{
protected:
    static int control(std::string const& name, handler_control_t action,
                       char const* newTypeName = nullptr)
    {
        return control_handler_queue(name.c_str(), newTypeName, action);
    }

    // The directory of the handlers for someone@example.com at before-local.
    static std::string hookDirectory() { return at("before-local/recipient/someone@example.com"); }
    static std::string marker(std::string const& name) { return hookDirectory() + "/" + name; }
};

using HookEnableOnHost = HandlerControlTest;
using HookDisableOnHost = HandlerControlTest;
using HookCheckOnHost = HandlerControlTest;
using HookDeleteOnHost = HandlerControlTest;
using HookCloneOnHost = HandlerControlTest;
using HookMoveOnHost = HandlerControlTest;
using HookPlaceOnHost = HandlerControlTest;
using UnknownActionOnHost = HandlerControlTest;

#endif
