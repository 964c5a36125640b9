// The client library's own LDIF reader on a file: every record read, every line parsed, every DN taken apart.
#include <cstdio>
#include <cstdlib>

#include <lber.h>
#include <ldap.h>
#include <ldif.h> // needs both of them

namespace {

bool parseRecord(char* record)
{
    bool hasDn = false;
    while (char* const line = ldif_getline(&record)) {
        berval name = {};
        berval value = {};
        int isCopy = 0;
        if (ldif_parse_line2(line, &name, &value, &isCopy) != 0) {
            return false;
        }
        if (!hasDn) {
            LDAPDN dn = nullptr;
            if (ldap_str2dn(value.bv_val, &dn, LDAP_DN_FORMAT_LDAPV3) != LDAP_SUCCESS) {
                return false;
            }
            ldap_dnfree(dn);
            hasDn = true;
        }
        if (isCopy != 0) {
            ber_memfree(value.bv_val);
        }
    }
    return hasDn;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fputs("usage: bench_libldap_peer FILE\n", stderr);
        return 2;
    }
    LDIFFP* const file = ldif_open(argv[1], "r");
    if (file == nullptr) {
        std::perror(argv[1]);
        return 1;
    }
    unsigned long line = 0;
    char* record = nullptr;
    int size = 0;
    long records = 0;
    int state = 0;
    while ((state = ldif_read_record(file, &line, &record, &size)) > 0) {
        if (!parseRecord(record)) {
            std::fprintf(stderr, "bench_libldap_peer: the record before line %lu can't be parsed\n", line);
            return 1;
        }
        ++records;
    }
    ber_memfree(record);
    ldif_close(file);
    std::printf("%ld entries\n", records);
    return state < 0 ? 1 : 0;
}
