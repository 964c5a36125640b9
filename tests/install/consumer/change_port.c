/* Reads a setting and changes it, as the administrator. */
#include <veltor/cfg.h>

#include <stdio.h>

static int printPort(void* handle)
{
    cfg_message* result = NULL;
    char** values;
    int code = cfg_search_s(handle, "cn=Configuration", LDAP_SCOPE_BASE, NULL, NULL, 0, &result);

    if (code != LDAP_SUCCESS) {
        return code;
    }
    values = cfg_get_values(handle, cfg_first_entry(handle, result), "zor-slapdPort");
    printf("port %s\n", cfg_count_values(values) == 1 ? values[0] : "?");
    cfg_value_free(values);
    cfg_msgfree(result);
    return LDAP_SUCCESS;
}

int main(int argc, char** argv)
{
    char name[] = "zor-slapdPort";
    char port[] = "1389";
    char* values[] = {port, NULL};
    LDAPMod change = {LDAP_MOD_REPLACE, name, {values}};
    LDAPMod* changes[] = {&change, NULL};
    void* handle = cfg_init();
    int code;

    if (argc != 3 || handle == NULL || cfg_set_option(handle, CFG_OPT_CONFIG_FILE, argv[1]) != LDAP_SUCCESS) {
        return 2;
    }
    code = cfg_bind_s(handle, "cn=root", argv[2], LDAP_AUTH_SIMPLE);
    code = code == LDAP_SUCCESS ? printPort(handle) : code;
    code = code == LDAP_SUCCESS ? cfg_modify_s(handle, "cn=Configuration", changes) : code;
    code = code == LDAP_SUCCESS ? printPort(handle) : code;
    if (code != LDAP_SUCCESS) {
        fprintf(stderr, "%s\n", cfg_dump_exception(handle));
    }
    cfg_unbind(handle);
    return code == LDAP_SUCCESS ? 0 : 1;
}
