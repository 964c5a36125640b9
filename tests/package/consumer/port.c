/* Prints the port that a configuration file sets: a program that uses both headers of the C API. */
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

#include <stdio.h>

int main(int argc, char** argv)
{
    cfg_message* result = NULL;
    char** values = NULL;
    void* handle = cfg_init();
    int failed = 1;

    if (handle != NULL && argc == 2 && cfg_set_option(handle, CFG_OPT_CONFIG_FILE, argv[1]) == LDAP_SUCCESS &&
        cfg_set_write_mode(handle, CFG_WRITE_NEVER) == LDAP_SUCCESS &&
        cfg_bind_s(handle, NULL, NULL, LDAP_AUTH_SIMPLE) == LDAP_SUCCESS &&
        cfg_search_s(handle, "cn=Configuration", LDAP_SCOPE_BASE, NULL, NULL, 0, &result) == LDAP_SUCCESS) {
        values = cfg_get_values(handle, cfg_first_entry(handle, result), "zor-slapdPort");
        if (cfg_count_values(values) == 1) {
            printf("%s\n", values[0]);
            failed = 0;
        }
        cfg_value_free(values);
        cfg_msgfree(result);
    }
    cfg_unbind(handle);
    return failed;
}
