// Looks for what a bind compares with, and does not bind.
#include "administrator.h"

#include "stored_tree.h"

#include <string>
#include <veltor/cfg.h>

namespace veltor::tool {

bool hasAdministrator(void* handle)
{
    std::string dn = "zor-slapdAdminDN";
    std::string password = "zor-slapdAdminPW";
    char* names[] = {dn.data(), password.data(), nullptr};
    Results results;
    // A search decodes passwords, and fails where that can't be done.
    if (cfg_search_s(handle, "cn=Configuration", LDAP_SCOPE_BASE, "", names, 0, results.receiver()) != LDAP_SUCCESS ||
        results.first() == nullptr) {
        return false;
    }
    const auto hasText = [&](const std::string& name) {
        const StoredValues values = valuesOf(attributeOf(*results.first(), name));
        return !values.empty() && !values.front().empty();
    };
    return hasText(dn) && hasText(password);
}

} // namespace veltor::tool
