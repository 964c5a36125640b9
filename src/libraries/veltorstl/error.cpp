// The table of library codes and cfg_err2string. The accessors that look at a handle are in errinfo.cpp.
#include "error.h"

#include "veltor/cfg.h"

#include <ldap.h>

namespace veltor::detail {

// The order is part of the interface: the first row with a code gives its text.
constinit const ErrorText cfg_errlist[] = {
    {1000, "Unexpected error in veltor API"},
    {1001, "Configuration filename is not valid."},
    {1002, "Configuration file format is not valid."},
    {1003, "Configuration file not found."},
    {1004, "Configuration file cannot be opened."},
    {1005, "Value is not valid."},
    {1006, "Attribute may not have multiple values."},
    {1007, "Attribute is not a member of object class."},
    {1008, "No binary representation is defined for attribute."},
    {1009, "No string representation is defined for attribute."},
    {1010, "Unknown operation in LDAPMod."},
    {1011, "DN is not valid (missing attribute name)."},
    {1012, "Attribute name in DN is not valid."},
    {1013, "DN is not valid (missing attribute value)."},
    {1014, "Attribute value in DN is not valid."},
    {1015, "Integer value is not within allowable range."},
    {1016, "Value is not a valid integer."},
    {1017, "Enumerated value is not one of allowable values."},
    {1018, "Length of value is not within allowable range."},
    {1019, "Bitfield value is not within allowable bitmask."},
    {1020, "Value is not a valid OID."},
    {1021, "Value is not a valid tcp/ip domain component."},
    {1022, "Value is not a valid URL."},
    {1023, "URL protocol is not one of allowable values."},
    {1024, "Value is not a valid kerberos DN."},
    {1025, "Value is not a valid environment string."},
    {1026, "Value is not a valid filesystem path."},
    {1027, "One or more directories in path not found."},
    {1028, "Directory access denied."},
    // 1001 for a second time on purpose, and no row for 1029: callers know "Unknown error" for 1029.
    {1001, "Value is not a valid file name."},
    {1030, "File not found."},
    {1031, "File access denied."},
    {1032, "Error in plugin directive."},
    {1033, "Plugin library not found."},
    {1034, "Plugin library could not be loaded."},
    {1035, "Could not load init function from plugin library."},
    {0, "Unknown error"},
};

} // namespace veltor::detail

namespace {

// The client library numbers the API's own errors -1 to -17 where this API has 81 to 97.
int clientLibraryCode(int code)
{
    constexpr int firstApiError = 81;
    constexpr int lastApiError = 97;
    return code >= firstApiError && code <= lastApiError ? firstApiError - 1 - code : code;
}

} // namespace

const char* cfg_err2string(int code)
{
    constexpr int lastLdapCode = 999;
    if (code <= lastLdapCode) {
        return ldap_err2string(clientLibraryCode(code));
    }
    const veltor::detail::ErrorText* row = veltor::detail::cfg_errlist;
    while (row->code != code && row->code != 0) {
        ++row;
    }
    return row->message;
}
