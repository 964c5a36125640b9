// Releasing a handle.
#include "handle.h"

#include "veltor/cfg.h"

#include <cstdlib>
#include <cstring>

using namespace veltor::detail;

int cfg_unbind(void* handle)
{
    if (cfg_reset(handle) != 0) {
        return veltor::result::paramError;
    }
    cfg_handle& target = *handleOf(handle);
    std::free(target.configFileName);
    std::free(target.backupFileName);
    for (BoundStore* store = target.store; store != nullptr;) {
        BoundStore* const earlier = store->earlier;
        delete store;
        store = earlier;
    }
    // Zeros make a use after release fail early rather than act on a store that is gone.
    explicit_bzero(handle, sizeof(cfg_handle));
    std::free(handle);
    return 0;
}
