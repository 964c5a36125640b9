// Modifying an entry.
#include "update.h"

using namespace veltor::detail;

int cfg_modify_s(void* handle, const char* dn, LDAPMod** modifications)
{
    return runUpdate(handle, dn, isSound(modifications), {VELTOR_HERE, "System error in cfg_modify_s()"},
                     [&](BoundStore& store, const LDIF_DN& parsed) { store.modify(parsed, modifications); });
}
