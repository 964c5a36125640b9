// One table for all result codes. Rows are looked up in order, rows for one stage before those for any.
#include "exit_codes.h"

#include <veltor/cfg.h>

namespace veltor::tool {

namespace {

struct Row
{
    int ldap;
    ExitCode exit;
};

// Without a line the load is done and the credentials are being compared: whatever the comparison refuses,
// the caller does not get in. A DN that can't be parsed is told apart, since no file can make it right.
constexpr Row bindRows[] = {
    {LDAP_INVALID_CREDENTIALS, ExitCode::authentication},
    {LDAP_INVALID_SYNTAX, ExitCode::authentication},
    {LDAP_NO_SUCH_OBJECT, ExitCode::authentication},
    // A directory in the file's place, or a read error, comes without a line.
    {LDAP_OTHER, ExitCode::file},
};

constexpr Row rows[] = {
    {LDAP_SUCCESS, ExitCode::done},
    {LDAP_NO_SUCH_ATTRIBUTE, ExitCode::entry},
    {LDAP_TYPE_OR_VALUE_EXISTS, ExitCode::entry},
    {LDAP_NO_SUCH_OBJECT, ExitCode::entry},
    {LDAP_NOT_ALLOWED_ON_NONLEAF, ExitCode::entry},
    {LDAP_ALREADY_EXISTS, ExitCode::entry},
    {LDAP_INAPPROPRIATE_MATCHING, ExitCode::refused},
    {LDAP_CONSTRAINT_VIOLATION, ExitCode::refused},
    {LDAP_INVALID_SYNTAX, ExitCode::refused},
    {LDAP_INVALID_DN_SYNTAX, ExitCode::refused},
    {LDAP_UNWILLING_TO_PERFORM, ExitCode::refused},
    {LDAP_OBJECT_CLASS_VIOLATION, ExitCode::refused},
    // A stored password that the codec can't decode.
    {84, ExitCode::file},
    // The codes with which the library says that a text does not fit the character set.
    {162, ExitCode::refused},
    {163, ExitCode::refused},
    {LDAP_INVALID_CREDENTIALS, ExitCode::authentication},
    {LDAP_INSUFFICIENT_ACCESS, ExitCode::writeFailed},
    {LDAP_BUSY, ExitCode::busy},
    {CFG_LDAP_CONNECT_ERROR, ExitCode::file},
};

} // namespace

ExitCode exitCodeFor(Stage stage, int ldap, int line)
{
    if (ldap != LDAP_SUCCESS && line > 0) {
        return ExitCode::file;
    }
    if (stage == Stage::bind) {
        for (const Row& row : bindRows) {
            if (row.ldap == ldap) {
                return row.exit;
            }
        }
    }
    for (const Row& row : rows) {
        if (row.ldap == ldap) {
            return row.exit;
        }
    }
    return ExitCode::internal;
}

} // namespace veltor::tool
