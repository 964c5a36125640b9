/*
 * One safe change, step by step, for a test that lets the system fail under it. Links the shared library as its users
 * do. Between the steps it asks the system for names that do not exist: marks in the log of whoever traces it.
 *
 *   one_change [-b BACKUP] [-a] FILE PORT   sets the port of "cn=a,o=x", or adds "cn=PORT,o=x"
 *   one_change -c FILE                      loads FILE and writes nothing; prints it in the library's own form
 *
 * Prints the step that it came to, the two codes, whether memory holds what is on disk, and the kept exception. Ends
 * with 0, with 1 after a call that failed, or with 2 where the test itself is wrong.
 */
#define _POSIX_C_SOURCE 200809L

#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

#include <fcntl.h>
#include <ldap.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

enum { simple = 0x80, lockTimeoutMs = 10000 };

/* Set before a step begins. */
static const char* step = "start";

static void enter(const char* name)
{
    char mark[64];
    step = name;
    snprintf(mark, sizeof mark, "/mark/%s", name);
    if (access(mark, F_OK) == 0) {
        exit(2);
    }
}

static char* contentOf(const char* file, size_t* size)
{
    struct stat status;
    const int descriptor = open(file, O_RDONLY | O_NONBLOCK);
    char* text = NULL;
    *size = 0;
    if (descriptor >= 0 && fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        text = malloc((size_t)status.st_size + 1);
        if (text != NULL && read(descriptor, text, (size_t)status.st_size) == status.st_size) {
            *size = (size_t)status.st_size;
        }
    }
    if (descriptor >= 0) {
        close(descriptor);
    }
    return text;
}

/* Tells whether a search would see what the file holds, which is in the library's own form here. */
static const char* comparedWithDisk(void* handle, const char* file)
{
    char* inMemory = NULL;
    size_t sizeInMemory = 0;
    size_t size = 0;
    char* const onDisk = contentOf(file, &size);
    const char* told = "unread";
    if (cfg_render_s(handle, &inMemory, &sizeInMemory) == 0 && onDisk != NULL) {
        told = size == sizeInMemory && memcmp(onDisk, inMemory, size) == 0 ? "same" : "differs";
    }
    cfg_memfree(inMemory);
    free(onDisk);
    return told;
}

static int change(void* handle, const char* port, int adds)
{
    char* ports[] = {(char*)port, NULL};
    LDAPMod mod;
    LDAPMod* mods[] = {&mod, NULL};
    char dn[64];
    memset(&mod, 0, sizeof mod);
    mod.mod_op = adds ? LDAP_MOD_ADD : LDAP_MOD_REPLACE;
    mod.mod_type = (char*)"zor-slapdPort";
    mod.mod_values = ports;
    if (!adds) {
        return cfg_modify_s(handle, "cn=a,o=x", mods);
    }
    snprintf(dn, sizeof dn, "cn=%s,o=x", port);
    return cfg_add_s(handle, dn, mods);
}

static int oneChange(void* handle, const char* file, const char* port, int adds)
{
    const char* memory = "none";
    const char* reached = NULL;
    char* kept = NULL;
    int code = 0;
    int libraryCode = 0;

    enter("bind");
    code = cfg_bind_s(handle, NULL, NULL, simple);
    if (code == 0) {
        enter("begin");
        code = cfg_begin_s(handle, lockTimeoutMs);
    }
    if (code == 0) {
        enter("change");
        code = change(handle, port, adds);
    }
    if (code == 0) {
        enter("commit");
        code = cfg_commit_s(handle);
    }
    libraryCode = cfg_get_exterror(handle);
    reached = step;
    enter("pause");
    kept = strdup(code == 0 || cfg_dump_exception(handle) == NULL ? "" : cfg_dump_exception(handle));
    if (strcmp(reached, "change") == 0) {
        cfg_rollback_s(handle);
    }
    if (strcmp(reached, "bind") != 0) {
        memory = comparedWithDisk(handle, file);
    }
    enter("unbind");
    cfg_unbind(handle);
    enter("end");
    printf("step %s\ncode %d\nlibrary %d\nmemory %s\n%s", reached, code, libraryCode, memory, kept);
    free(kept);
    return code == 0 ? 0 : 1;
}

static int check(void* handle)
{
    char* text = NULL;
    size_t size = 0;
    if (cfg_set_write_mode(handle, CFG_WRITE_NEVER) != 0) {
        return 2;
    }
    if (cfg_bind_s(handle, NULL, NULL, simple) != 0 || cfg_render_s(handle, &text, &size) != 0) {
        printf("%s", cfg_dump_exception(handle));
        cfg_unbind(handle);
        return 1;
    }
    fwrite(text, 1, size, stdout);
    cfg_memfree(text);
    cfg_unbind(handle);
    return 0;
}

int main(int argc, char** argv)
{
    const char* backup = NULL;
    int adds = 0;
    int checks = 0;
    void* handle = NULL;
    for (int option = 0; (option = getopt(argc, argv, "b:ac")) != -1;) {
        switch (option) {
        case 'b':
            backup = optarg;
            break;
        case 'a':
            adds = 1;
            break;
        case 'c':
            checks = 1;
            break;
        default:
            return 2;
        }
    }
    if (argc - optind != (checks ? 1 : 2)) {
        return 2;
    }
    handle = cfg_init();
    if (handle == NULL || cfg_set_option(handle, CFG_OPT_CONFIG_FILE, argv[optind]) != 0 ||
        (backup != NULL && cfg_set_option(handle, CFG_OPT_BACKUP_FILE, backup) != 0)) {
        return 2;
    }
    if (checks) {
        return check(handle);
    }
    if (cfg_set_write_mode(handle, CFG_WRITE_SAFE) != 0) {
        return 2;
    }
    return oneChange(handle, argv[optind], argv[optind + 1], adds);
}
