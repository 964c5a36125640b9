// What can be wrong before a handle is of use.
#include "handle.h"

#include "failure.h"

namespace veltor::tool {

Handle newHandle(const std::string& backup)
{
    Handle handle(cfg_init());
    if (!handle) {
        throw Failure(ExitCode::internal, "out of memory", {"nothing was written; run the command again"});
    }
    if (!backup.empty() && cfg_set_option(handle.get(), CFG_OPT_BACKUP_FILE, backup.c_str()) != LDAP_SUCCESS) {
        throw Failure(ExitCode::usage, "--backup: a file name has 1 to 4096 bytes",
                      {"nothing was written; --no-backup keeps none"});
    }
    return handle;
}

} // namespace veltor::tool
