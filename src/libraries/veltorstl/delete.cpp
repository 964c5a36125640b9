// Deleting an entry, alone or with its subtree.
#include "update.h"

using namespace veltor::detail;

int cfg_delete_s(void* handle, const char* dn)
{
    return runUpdate(handle, dn, true, {VELTOR_HERE, "System error in cfg_delete_s()"},
                     [&](BoundStore& store, const LDIF_DN& parsed) {
                         int withSubtree = 0;
                         cfg_get_option(handle, CFG_OPT_DELETE_NON_LEAVES, &withSubtree);
                         store.erase(parsed, withSubtree != 0);
                     });
}
