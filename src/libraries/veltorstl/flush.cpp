// Writing the configuration back on request, and drawing it.
#include "handle.h"

#include "veltor/cfg.h"

using namespace veltor::detail;
int cfg_flush_s(void* handle)
{
    return runOnStore(handle, true, {VELTOR_HERE, "System error in cfg_flush_s()"}, [](BoundStore& store) {
        store.flush();
        return 0;
    });
}

const char* cfg_tree_view(void* handle, int oem)
{
    if (handle == nullptr) {
        return nullptr;
    }
    cfg_handle& target = *handleOf(handle);
    // A text made since the last reset is lent again, whichever drawing it has.
    if (target.treeText == nullptr && target.store != nullptr) {
        try {
            target.treeText = duplicateOrThrow(target.store->treeView(oem != 0).c_str());
        } catch (...) {
            keepFailure(target, {VELTOR_HERE, "System error in cfg_tree_view()"});
        }
    }
    return target.treeText;
}
