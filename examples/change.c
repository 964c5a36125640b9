/*
 * Reads settings and changes them in one step: a program in plain C99 for those who administer.
 *
 *     cc -std=c99 -o change change.c $(pkg-config --cflags --libs veltorstl)
 *     ./change FILE BIND-DN WORKERS IDLE-SECONDS < PASSWORD-FILE
 *
 * It shows a bind as the administrator, searches, a change set in the safe mode, what to tell of a value that is
 * refused, and who frees what. The number of workers stands in one entry, that of the connections to the database,
 * of which each worker needs one, in another, and the time after which idle clients are sent away in a third: all
 * three change, or none.
 */
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

#include <stdio.h>
#include <string.h>

enum { LOCK_TIMEOUT_MS = 10000 };

static const char serverDn[] = "cn=Configuration";
static const char databaseDn[] = "cn=Directory, cn=Databases, cn=Configuration";
static const char connectionsDn[] = "cn=Connections, cn=Front End, cn=Configuration";

/*
 * The failure that the handle keeps: the outermost record, then its causes. It must be told before the next call, for
 * example the one that rolls back. The values stay out, for they may be passwords; where passwords are changed, the
 * messages have to stay out, too: some quote the value.
 */
static void tellFailure(void* handle, const char* operation, int code)
{
    int count = cfg_failure_count(handle);
    int index;

    fprintf(stderr, "%s: result %d (%s)\n", operation, code, cfg_err2string(code));
    for (index = 0; index < count; ++index) {
        cfg_failure failure;
        if (cfg_failure_at(handle, index, &failure) != LDAP_SUCCESS) {
            break;
        }
        fprintf(stderr, "%s%s (code %d)\n", index == 0 ? "  " : "  because: ", failure.message, failure.code);
        if (failure.line > 0) {
            fprintf(stderr, "    file %s, line %d\n", failure.file, failure.line);
        }
        if (*failure.dn != '\0') {
            fprintf(stderr, "    entry %s\n", failure.dn);
        }
        if (*failure.attribute != '\0') {
            fprintf(stderr, "    attribute %s\n", failure.attribute);
        }
    }
    if (cfg_get_minimum(handle) != 0 || cfg_get_maximum(handle) != 0) {
        fprintf(stderr, "  allowed: %ld to %ld\n", cfg_get_minimum(handle), cfg_get_maximum(handle));
    }
}

/* Prints the values of an attribute wherever they stand. */
static int show(void* handle, const char* name)
{
    char* names[] = {(char*)name, NULL};
    cfg_message* result = NULL;
    cfg_message* entry;
    /* A filter that is only a name finds the entries that have the attribute. */
    int code = cfg_search_s(handle, serverDn, LDAP_SCOPE_SUBTREE, name, names, 0, &result);

    if (code != LDAP_SUCCESS) {
        tellFailure(handle, "search", code);
        return code;
    }
    for (entry = cfg_first_entry(handle, result); entry != NULL; entry = cfg_next_entry(handle, entry)) {
        char* dn = cfg_get_dn(handle, entry);
        char** values = cfg_get_values(handle, entry, name);
        int count = cfg_count_values(values);
        int i;

        for (i = 0; i < count; ++i) {
            printf("%s: %s: %s\n", dn == NULL ? "" : dn, name, values[i]);
        }
        cfg_value_free(values);
        cfg_memfree(dn);
    }
    cfg_msgfree(result);
    return LDAP_SUCCESS;
}

static int showAll(void* handle)
{
    int code = show(handle, "zor-slapdWorkers");

    if (code == LDAP_SUCCESS) {
        code = show(handle, "zor-slapdDbConnections");
    }
    if (code == LDAP_SUCCESS) {
        code = show(handle, "zor-slapdIdleTimeOut");
    }
    return code;
}

static int replace(void* handle, const char* dn, const char* name, const char* value)
{
    /* The structures are those of the LDAP client library, which lack the const. The texts are not changed. */
    char* values[] = {(char*)value, NULL};
    LDAPMod modification = {LDAP_MOD_REPLACE, (char*)name, {values}};
    LDAPMod* modifications[] = {&modification, NULL};

    return cfg_modify_s(handle, dn, modifications);
}

/* From here on the file is locked: others that write it safely wait, and readers see the old text until the commit. */
static int change(void* handle, const char* workers, const char* idleSeconds)
{
    int code = cfg_begin_s(handle, LOCK_TIMEOUT_MS);

    if (code != LDAP_SUCCESS) {
        tellFailure(handle, "begin", code);
        return code;
    }
    code = replace(handle, serverDn, "zor-slapdWorkers", workers);
    if (code == LDAP_SUCCESS) {
        code = replace(handle, databaseDn, "zor-slapdDbConnections", workers);
    }
    if (code == LDAP_SUCCESS) {
        code = replace(handle, connectionsDn, "zor-slapdIdleTimeOut", idleSeconds);
    }
    if (code != LDAP_SUCCESS) {
        tellFailure(handle, "modify", code);
        cfg_rollback_s(handle);
        fprintf(stderr, "nothing was written\n");
        return code;
    }
    /* Ends the set, whatever comes of it. A failure's message tells which text is in place. */
    code = cfg_commit_s(handle);
    if (code != LDAP_SUCCESS) {
        tellFailure(handle, "commit", code);
    }
    return code;
}

/* The first line of the standard input. An argument or the environment would show it to others. */
static int readPassword(char* password, size_t size)
{
    /* No buffer keeps a copy. */
    setvbuf(stdin, NULL, _IONBF, 0);
    if (fgets(password, (int)size, stdin) == NULL) {
        return 0;
    }
    password[strcspn(password, "\n")] = '\0';
    return 1;
}

/* A memset of what nobody reads any more may be left out by the compiler; this may not. */
static void wipe(char* text, size_t size)
{
    volatile char* byte = text;

    while (size-- > 0) {
        *byte++ = '\0';
    }
}

static int bindAsAdministrator(void* handle, const char* file, const char* who)
{
    char password[256];
    char backup[4096];
    int length = snprintf(backup, sizeof backup, "%s.bak", file);
    int code = length < (int)sizeof backup ? cfg_set_option(handle, CFG_OPT_CONFIG_FILE, file) : LDAP_INVALID_SYNTAX;

    if (code == LDAP_SUCCESS) {
        /* A commit keeps the old text there. */
        code = cfg_set_option(handle, CFG_OPT_BACKUP_FILE, backup);
    }
    if (code != LDAP_SUCCESS) {
        fprintf(stderr, "%s: not a file name (%s)\n", file, cfg_err2string(code));
        return code;
    }
    /* Before the bind, or its load would write a file with lines that can't be used. */
    code = cfg_set_write_mode(handle, CFG_WRITE_SAFE);
    if (code == LDAP_SUCCESS) {
        code = readPassword(password, sizeof password) ? cfg_bind_s(handle, who, password, LDAP_AUTH_SIMPLE)
                                                       : LDAP_INVALID_CREDENTIALS;
        wipe(password, sizeof password);
    }
    if (code != LDAP_SUCCESS) {
        tellFailure(handle, "bind", code);
    }
    return code;
}

int main(int argc, char** argv)
{
    void* handle;
    int code;

    if (argc != 5) {
        fprintf(stderr, "usage: change FILE BIND-DN WORKERS IDLE-SECONDS < PASSWORD-FILE\n");
        return 2;
    }
    handle = cfg_init();
    if (handle == NULL) {
        fprintf(stderr, "out of memory\n");
        return 1;
    }
    code = bindAsAdministrator(handle, argv[1], argv[2]);
    if (code == LDAP_SUCCESS) {
        code = showAll(handle);
    }
    if (code == LDAP_SUCCESS) {
        code = change(handle, argv[3], argv[4]);
    }
    if (code == LDAP_SUCCESS) {
        printf("changed to\n");
        code = showAll(handle);
    }
    /* Frees what the handle owns, its lock too; the results were ours and are gone already. */
    cfg_unbind(handle);
    return code == LDAP_SUCCESS ? 0 : 1;
}
