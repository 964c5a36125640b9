/*
 * Prints the entries of a configuration file: a small program that reads and never writes.
 *
 *     cc -std=c99 -o search search.c $(pkg-config --cflags --libs veltorstl)
 *     ./search FILE [FILTER [BIND-DN]]
 *
 * With a bind DN the password is taken from the environment variable PASSWORD. That will do for an example
 * and is unsafe in a program that others use: the environment of a process is readable by its owner's other
 * processes, goes to every child, and ends up in core files; an argument would even show in ps. Ask on the
 * terminal, or read a file with a narrow mode, and overwrite the buffer afterwards.
 *
 * Every handle starts in the direct mode, in which reading can write: a file with lines that the library can't
 * use is rewritten when it is loaded. The never-write mode, which has to be set before the bind, keeps it as it is.
 */
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

#include <stdio.h>
#include <stdlib.h>

/* Every accessor describes the handle's last failure; they must be asked before the next call on it. */
static void printError(void* handle, const char* operation, int code)
{
    const char* const* allowed = cfg_get_enum(handle);
    const char* dn = cfg_get_entry(handle);
    const char* attribute = cfg_get_attribute(handle);

    fprintf(stderr, "%s: result %d (%s)\n", operation, code, cfg_err2string(code));
    if (cfg_get_exterror(handle) != code) {
        fprintf(stderr, "  code %d (%s)\n", cfg_get_exterror(handle), cfg_err2string(cfg_get_exterror(handle)));
    }
    fprintf(stderr, "  file %s", cfg_get_file_name(handle));
    if (cfg_get_file_line(handle) > 0) {
        fprintf(stderr, ", line %d", cfg_get_file_line(handle));
    }
    fprintf(stderr, "\n");
    if (dn != NULL && *dn != '\0') {
        fprintf(stderr, "  entry %s\n", dn);
    }
    if (attribute != NULL) {
        /* The value itself stays out: it may be a password. */
        fprintf(stderr, "  attribute %s%s\n", attribute, cfg_get_is_single(handle) ? ", single-valued" : "");
    }
    if (cfg_get_minimum(handle) != 0 || cfg_get_maximum(handle) != 0) {
        fprintf(stderr, "  allowed %ld to %ld\n", cfg_get_minimum(handle), cfg_get_maximum(handle));
    }
    if (cfg_get_bitmask(handle) != 0) {
        fprintf(stderr, "  allowed bits 0x%lX\n", (unsigned long)cfg_get_bitmask(handle));
    }
    for (; allowed != NULL && *allowed != NULL; ++allowed) {
        fprintf(stderr, "  allowed %s\n", *allowed);
    }
}

/* Values come back as clear text, passwords too. */
static void printAttribute(void* handle, cfg_message* entry, const char* name)
{
    char** values = cfg_get_values(handle, entry, name);
    int count = cfg_count_values(values);
    int i;

    for (i = 0; i < count; ++i) {
        printf("%s: %s\n", name, values[i]);
    }
    cfg_value_free(values);
}

static void printEntry(void* handle, cfg_message* entry)
{
    cfg_cursor* cursor = NULL;
    char* dn = cfg_get_dn(handle, entry);
    char* name = cfg_first_attribute(handle, entry, &cursor);

    printf("dn: %s\n", dn == NULL ? "" : dn);
    while (name != NULL) {
        printAttribute(handle, entry, name);
        cfg_memfree(name);
        name = cfg_next_attribute(handle, entry, cursor);
    }
    printf("\n");
    cfg_ber_free(cursor);
    cfg_memfree(dn);
}

/* Without a base the search starts at the root, above all entries. */
static int printEntries(void* handle, const char* filter)
{
    cfg_message* result = NULL;
    cfg_message* entry;
    int code = cfg_search_s(handle, NULL, LDAP_SCOPE_SUBTREE, filter, NULL, 0, &result);

    if (code != LDAP_SUCCESS) {
        printError(handle, "search", code);
        return code;
    }
    for (entry = cfg_first_entry(handle, result); entry != NULL; entry = cfg_next_entry(handle, entry)) {
        printEntry(handle, entry);
    }
    printf("# %d entries\n", cfg_count_entries(handle, result));
    cfg_msgfree(result);
    return LDAP_SUCCESS;
}

int main(int argc, char** argv)
{
    const char* filter = argc > 2 ? argv[2] : NULL;
    const char* who = argc > 3 ? argv[3] : NULL;
    const char* password = who == NULL ? NULL : getenv("PASSWORD");
    void* handle;
    int code;

    if (argc < 2 || argc > 4) {
        fprintf(stderr, "usage: search FILE [FILTER [BIND-DN]]\n");
        return 2;
    }
    handle = cfg_init();
    if (handle == NULL) {
        fprintf(stderr, "out of memory\n");
        return 1;
    }
    code = cfg_set_option(handle, CFG_OPT_CONFIG_FILE, argv[1]);
    if (code != LDAP_SUCCESS) {
        fprintf(stderr, "%s: not a file name (%s)\n", argv[1], cfg_err2string(code));
    } else {
        cfg_set_write_mode(handle, CFG_WRITE_NEVER);
        /* Both null is an anonymous bind, which may read. */
        code = cfg_bind_s(handle, who, password, LDAP_AUTH_SIMPLE);
        if (code != LDAP_SUCCESS) {
            printError(handle, "bind", code);
        } else {
            code = printEntries(handle, filter);
        }
    }
    cfg_unbind(handle);
    return code == LDAP_SUCCESS ? 0 : 1;
}
