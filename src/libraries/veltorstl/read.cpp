// cfg_read_s: the entries in scope as they are stored.
#include "read.h"
#include "LDIF_Search.h"
#include "result_copy.h"

#include "veltor/cfg_admin.h"

using namespace veltor::detail;

int cfg_read_s(void* handle, const char* base, int scope, cfg_message** res)
{
    return runEntryRead(handle, res, {VELTOR_HERE, "System error in cfg_read_s()"},
                        [&](LDIF_File& store, cfg_message*& first) {
                            LDIF_DN dn;
                            dn = cisString(base == nullptr ? "" : base);
                            copyOut(store.select(dn, scopeOf(scope)), {}, PasswordForm::stored, first);
                        });
}
