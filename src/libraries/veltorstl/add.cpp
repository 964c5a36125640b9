// Adding an entry.
#include "update.h"

using namespace veltor::detail;

int cfg_add_s(void* handle, const char* dn, LDAPMod** attributes)
{
    return runUpdate(handle, dn, isSound(attributes), {VELTOR_HERE, "System error in cfg_add_s()"},
                     [&](BoundStore& store, const LDIF_DN& parsed) { store.add(parsed, attributes); });
}
