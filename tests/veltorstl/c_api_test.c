/*
 * The public headers from a program in plain C99: every constant is compared, every function is called and its answer
 * checked. Links the shared library and nothing else of this project. Prints "ok" and ends with 0, or names
 * the first expectation that failed.
 */
#define _POSIX_C_SOURCE 200809L

#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define EXPECT(condition)                                                                                              \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition);                                            \
            return 0;                                                                                                  \
        }                                                                                                              \
    } while (0)

#define EXPECT_TEXT(actual, expected) EXPECT((actual) != NULL && strcmp((actual), (expected)) == 0)

static const char content[] = "version: 1\n"
                              "charset: ISO-8859-1\n"
                              "\n"
                              "dn: cn=Configuration\n"
                              "objectclass: top\n"
                              "objectclass: server\n"
                              "zor-slapdAdminDN: cn=root\n"
                              "zor-slapdAdminPW: secret\n"
                              "zor-slapdReadOnly: true\n"
                              "zor-slapdSslCipherSpecs: 256\n"
                              "\n"
                              "# What clients see.\n"
                              "dn: cn=Front End, cn=Configuration\n"
                              "objectclass: top\n"
                              "\n";

static int constants(void)
{
    EXPECT(CFG_OPT_HANDLE_FLAG1 == 1000);
    EXPECT(CFG_OPT_HANDLE_FLAG2 == 1001);
    EXPECT(CFG_OPT_SHOW_SOURCE == 1002);
    EXPECT(CFG_OPT_SHOW_STACK == 1003);
    EXPECT(CFG_OPT_DELETE_NON_LEAVES == 1004);
    EXPECT(CFG_OPT_CONFIG_FILE == 1005);
    EXPECT(CFG_OPT_BACKUP_FILE == 1006);

    EXPECT(CFG_ERR_UNEXPECTED == 1000);
    EXPECT(CFG_ERR_FILENAME_INVALID == 1001);
    EXPECT(CFG_ERR_FILE_NOT_FOUND == 1003);
    EXPECT(CFG_ERR_FILE_OPEN == 1004);
    EXPECT(CFG_ERR_SINGLE_VALUED == 1006);
    EXPECT(CFG_ERR_NOT_IN_OBJECTCLASS == 1007);
    EXPECT(CFG_ERR_NO_BINARY_REP == 1008);
    EXPECT(CFG_ERR_NO_STRING_REP == 1009);
    EXPECT(CFG_ERR_UNKNOWN_MOD_OP == 1010);
    EXPECT(CFG_ERR_DN_MISSING_ATTR == 1011);
    EXPECT(CFG_ERR_DN_ATTR_INVALID == 1012);
    EXPECT(CFG_ERR_DN_MISSING_VALUE == 1013);
    EXPECT(CFG_ERR_DN_VALUE_INVALID == 1014);
    EXPECT(CFG_ERR_INT_RANGE == 1015);
    EXPECT(CFG_ERR_INT_INVALID == 1016);
    EXPECT(CFG_ERR_ENUM_INVALID == 1017);
    EXPECT(CFG_ERR_LENGTH_RANGE == 1018);
    EXPECT(CFG_ERR_BITMASK == 1019);
    EXPECT(CFG_ERR_OID_INVALID == 1020);
    EXPECT(CFG_ERR_FILENAME_VALUE_INVALID == 1029);
    EXPECT(CFG_ERR_PLUGIN_INIT == 1035);

    EXPECT(CFG_WRITE_DIRECT == 0);
    EXPECT(CFG_WRITE_SAFE == 1);
    EXPECT(CFG_WRITE_NEVER == 2);
    EXPECT(CFG_LAYOUT_KEEP == 0);
    EXPECT(CFG_LAYOUT_OWN == 1);

    EXPECT(CFG_LDAP_AUTH_UNKNOWN == 86);
    EXPECT(CFG_LDAP_PARAM_ERROR == 89);
    EXPECT(CFG_LDAP_NO_MEMORY == 90);
    EXPECT(CFG_LDAP_CONNECT_ERROR == 91);
    EXPECT(CFG_LDAP_NOT_SUPPORTED == 92);
    return 1;
}

static int options(void* handle, const char* file)
{
    char* name = NULL;
    int value = -1;

    EXPECT_TEXT(getInstallPath(), "/usr/ldap");
    EXPECT_TEXT(getDefaultConfigFilename(), "/usr/ldap/etc/zorslapd.conf");
    EXPECT(cfg_set_option(handle, CFG_OPT_HANDLE_FLAG2, (const void*)1L) == 0);
    EXPECT(cfg_get_option(handle, CFG_OPT_HANDLE_FLAG2, &value) == 0);
    EXPECT(value == 1);
    EXPECT(cfg_set_option(handle, CFG_OPT_CONFIG_FILE, file) == 0);
    EXPECT(cfg_get_option(handle, CFG_OPT_CONFIG_FILE, &name) == 0);
    EXPECT_TEXT(name, file);
    cfg_memfree(name);
    return 1;
}

static int binds(void* handle)
{
    EXPECT(cfg_bind_s(handle, NULL, NULL, 0) == CFG_LDAP_AUTH_UNKNOWN);
    EXPECT(cfg_bind_s(handle, "cn=root", "wrong", 0x80) == 49);
    EXPECT(cfg_get_errno(handle) == 49);
    EXPECT(cfg_bind_s(handle, "cn=root", "secret", 0x80) == 0);
    EXPECT(cfg_reset(handle) == 0);
    return 1;
}

static int walk(void* handle, cfg_message* result)
{
    cfg_message* entry = cfg_first_entry(handle, result);
    cfg_cursor* cursor = NULL;
    char* text;
    char** values;

    EXPECT(cfg_count_entries(handle, result) == 2);
    EXPECT(entry == result && entry->kind == 0 && entry->children->kind == 1);
    text = cfg_get_dn(handle, entry);
    EXPECT_TEXT(text, "cn=Configuration");
    cfg_memfree(text);

    EXPECT(cfg_count_attributes(handle, entry) == 5);
    text = cfg_first_attribute(handle, entry, &cursor);
    EXPECT_TEXT(text, "objectclass");
    cfg_memfree(text);
    text = cfg_next_attribute(handle, entry, cursor);
    EXPECT_TEXT(text, "zor-slapdAdminDN");
    cfg_memfree(text);
    cfg_ber_free(cursor);

    values = cfg_get_values(handle, entry, "ObjectClass");
    EXPECT(cfg_count_values(values) == 2);
    EXPECT_TEXT(values[1], "server");
    cfg_value_free(values);
    values = cfg_get_values(handle, entry, "zor-slapdAdminPW");
    EXPECT(cfg_count_values(values) == 1);
    EXPECT_TEXT(values[0], "secret");
    cfg_value_free(values);
    EXPECT(cfg_get_values(handle, entry, "description") == NULL);
    EXPECT(cfg_get_errno(handle) == 16);

    entry = cfg_next_entry(handle, entry);
    EXPECT(entry != NULL);
    EXPECT_TEXT(entry->text, "cn=Front End, cn=Configuration");
    EXPECT(cfg_next_entry(handle, entry) == NULL);
    return 1;
}

static int searches(void* handle)
{
    char name[] = "OBJECTCLASS";
    char* names[2];
    cfg_message* result = NULL;

    names[0] = name;
    names[1] = NULL;
    EXPECT(cfg_search_s(handle, NULL, 2, "(objectclass=*)", NULL, 0, &result) == 0);
    EXPECT(walk(handle, result));
    EXPECT(cfg_msgfree(result) == 0);
    EXPECT(cfg_search_s(handle, "cn=Configuration", 0, NULL, names, 1, &result) == 0);
    EXPECT(cfg_count_attributes(handle, result) == 1);
    EXPECT(cfg_msgfree(result) == 0);
    return 1;
}

static int errors(void* handle, const char* file)
{
    const char* const* allowed;
    cfg_message* result = NULL;

    EXPECT(cfg_search_s(handle, "cn=Configuration", 0, "zor-slapdReadOnly=yes", NULL, 0, &result) == 21);
    EXPECT(result == NULL);
    EXPECT(cfg_get_errno(handle) == 21);
    EXPECT(cfg_get_exterror(handle) == CFG_ERR_ENUM_INVALID);
    EXPECT_TEXT(cfg_err2string(cfg_get_exterror(handle)), "Enumerated value is not one of allowable values.");
    EXPECT_TEXT(cfg_err2string(CFG_LDAP_PARAM_ERROR), "Bad parameter to an ldap routine");
    EXPECT_TEXT(cfg_get_file_name(handle), file);
    EXPECT(cfg_get_file_line(handle) == 0);
    EXPECT(cfg_get_entry(handle) != NULL);
    EXPECT_TEXT(cfg_get_attribute(handle), "zor-slapdReadOnly");
    EXPECT_TEXT(cfg_get_value(handle), "yes");
    EXPECT(cfg_get_is_single(handle) == 1);
    allowed = cfg_get_enum(handle);
    EXPECT(allowed != NULL);
    EXPECT_TEXT(allowed[0], "true");
    EXPECT_TEXT(allowed[1], "false");
    EXPECT(allowed[2] == NULL);
    EXPECT(cfg_dump_exception(handle) != NULL);
    EXPECT(strstr(cfg_dump_exception(handle), "\nvalue: yes\n") != NULL);
    cfg_perror(handle, "nothing is printed");

    EXPECT(cfg_search_s(handle, "cn=Configuration", 0, "zor-slapdSslCipherSpecs=1", NULL, 0, &result) == 21);
    EXPECT(cfg_get_bitmask(handle) == 0x3F00L);
    EXPECT(cfg_search_s(handle, "cn=Configuration", 0,
                        "zor-slapdAdminPW="
                        "a password that is longer than the 46 bytes allowed",
                        NULL, 0, &result) == 21);
    EXPECT(cfg_get_minimum(handle) == 1);
    EXPECT(cfg_get_maximum(handle) == 46);
    return 1;
}

static int reads(void* handle)
{
    cfg_message* result = NULL;
    cfg_message* node;
    char* text = NULL;

    EXPECT(cfg_read_s(handle, NULL, 2, &result) == 0);
    EXPECT(cfg_count_entries(handle, result) == 3);
    EXPECT_TEXT(result->text, "");
    node = result->next->children;
    while (node != NULL && strcmp(node->text, "zor-slapdAdminPW") != 0) {
        node = node->next;
    }
    EXPECT(node != NULL && node->children->text[0] == '>');
    EXPECT(cfg_msgfree(result) == 0);

    EXPECT(cfg_get_comment_s(handle, "cn=Front End, cn=Configuration", NULL, &text) == 0);
    EXPECT_TEXT(text, "What clients see.");
    cfg_memfree(text);
    return 1;
}

static int failures(void* handle)
{
    cfg_failure failure;
    char* text = NULL;

    EXPECT(cfg_get_comment_s(handle, "cn=Configuration", "zor-slapdPort", &text) == 16);
    EXPECT(text == NULL);
    EXPECT(cfg_failure_count(handle) == 1);
    EXPECT(cfg_failure_at(handle, 0, &failure) == 0);
    EXPECT(failure.ldap == 16 && failure.code == 16 && failure.line == 0);
    EXPECT_TEXT(failure.dn, "cn=Configuration");
    EXPECT_TEXT(failure.attribute, "zor-slapdPort");
    EXPECT_TEXT(failure.value, "");
    EXPECT_TEXT(failure.file, "");
    EXPECT(failure.message != NULL && failure.message[0] != '\0');
    EXPECT(cfg_failure_at(handle, 1, &failure) == CFG_LDAP_PARAM_ERROR);
    return 1;
}

static int catalogue(void)
{
    cfg_attr_type type = {NULL, NULL, NULL, -1, -1, -1, -1};
    int index = 0;

    EXPECT(cfg_attr_type_count() == 115);
    EXPECT(cfg_attr_type_at(115, &type) == CFG_LDAP_PARAM_ERROR);
    do {
        EXPECT(cfg_attr_type_at(index++, &type) == 0);
    } while (strcmp(type.name, "zor-slapdSslCipherSpecs") != 0);
    EXPECT_TEXT(type.syntax, "mask");
    EXPECT(type.enum_values == NULL);
    EXPECT(type.bitmask == 0x3F00L && type.minimum == 0 && type.maximum == 0 && type.single_valued == 1);
    return 1;
}

static int updates(void* handle)
{
    char type[] = "zor-slapdTimeLimit";
    char value[] = "60";
    char objectclass[] = "objectclass";
    char top[] = "top";
    char* values[] = {value, NULL};
    char* classes[] = {top, NULL};
    LDAPMod change = {LDAP_MOD_REPLACE, type, {values}};
    LDAPMod classChange = {LDAP_MOD_ADD, objectclass, {classes}};
    LDAPMod* changes[] = {&change, NULL};
    LDAPMod* entry[] = {&classChange, &change, NULL};
    const char* tree;
    cfg_message* result = NULL;

    EXPECT(cfg_add_s(handle, "cn=added,cn=Configuration", entry) == 0);
    EXPECT(cfg_modify_s(handle, "cn=Configuration", changes) == 0);
    EXPECT(cfg_search_s(handle, "", 2, "zor-slapdTimeLimit=60", NULL, 0, &result) == 0);
    EXPECT(cfg_count_entries(handle, result) == 2);
    EXPECT(cfg_msgfree(result) == 0);
    tree = cfg_tree_view(handle, 0);
    EXPECT(tree != NULL && strstr(tree, "+- cn=added, cn=Configuration\n") != NULL);
    EXPECT(cfg_delete_s(handle, "cn=added,cn=Configuration") == 0);
    EXPECT(cfg_delete_s(handle, "cn=added,cn=Configuration") == 32);
    EXPECT(cfg_flush_s(handle) == 0);
    return 1;
}

static int everything(const char* file)
{
    void* handle = cfg_init();

    EXPECT(handle != NULL);
    EXPECT(options(handle, file));
    EXPECT(binds(handle));
    EXPECT(searches(handle));
    EXPECT(reads(handle));
    EXPECT(failures(handle));
    EXPECT(updates(handle));
    EXPECT(errors(handle, file));
    EXPECT(cfg_unbind(handle) == 0);
    return 1;
}

int main(void)
{
    char file[] = "/tmp/veltor-c-api-XXXXXX";
    int descriptor;
    int passed;

    /* cfg_init reads the locale from the environment. */
    setenv("LC_ALL", "C.UTF-8", 1);
    descriptor = mkstemp(file);
    if (descriptor < 0 || write(descriptor, content, sizeof content - 1) != (ssize_t)(sizeof content - 1)) {
        perror(file);
        return 1;
    }
    close(descriptor);
    passed = constants() && catalogue() && everything(file);
    unlink(file);
    if (!passed) {
        return 1;
    }
    puts("ok");
    return 0;
}
