// A part of a directory server: it reads its settings, changes its administrator's password, and traces. It does not
// care whose services the libraries use.
#include <veltor/cfg.h>
#include <veltor/ldtr.h>

#include <cstdio>

static bool changePassword(void* handle, const char* file, const char* backup)
{
    char name[] = "zor-slapdAdminPW";
    char password[] = "new-secret";
    char* values[] = {password, nullptr};
    LDAPMod change = {};
    change.mod_op = LDAP_MOD_REPLACE;
    change.mod_type = name;
    change.mod_values = values;
    LDAPMod* changes[] = {&change, nullptr};
    return cfg_set_option(handle, CFG_OPT_CONFIG_FILE, file) == 0 &&
           cfg_set_option(handle, CFG_OPT_BACKUP_FILE, backup) == 0 &&
           cfg_bind_s(handle, "cn=root", "old-secret", LDAP_AUTH_SIMPLE) == 0 &&
           cfg_modify_s(handle, "cn=Configuration", changes) == 0;
}

int main(int argc, char** argv)
{
    if (argc != 3) {
        return 2;
    }
    // The exit record's word tells whether the trace service's event bits are seen.
    ldtr_formater_global trace(0x030A0000);
    if (ldtr_init() != 0 || trace.debug(0xC8010000, "%s\n", "starts") != 0 ||
        ldtr_exit_errcode(0xC8110000, 10, 1, 5, nullptr) != 0) {
        return 1;
    }
    void* handle = cfg_init();
    const bool changed = changePassword(handle, argv[1], argv[2]);
    if (!changed) {
        std::fprintf(stderr, "result %d\n", cfg_get_errno(handle));
    }
    cfg_unbind(handle);
    return changed ? 0 : 1;
}
