// Names and counts are compared as they are stored; passwords are for the library to decode.
#include "entry_rules.h"

#include "dn_text.h"
#include "names.h"

#include <algorithm>
#include <optional>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

std::string_view losesItsName(std::string_view dn, const ValuesOf& before, const ValuesOf& after)
{
    for (const std::string_view name : namingAttributesOf(dn)) {
        const StoredValues left = after(name);
        for (const std::string_view value : before(name)) {
            if (std::none_of(left.begin(), left.end(),
                             [&](std::string_view other) { return sameName(other, value); })) {
                return name;
            }
        }
    }
    return {};
}

bool isTooMany(std::string_view attribute, std::size_t before, std::size_t after)
{
    const std::optional<cfg_attr_type> type = attributeType(attribute);
    return type && type->single_valued != 0 && after > 1 && after > before;
}

bool canBeDecoded(void* handle, const std::string& dn, std::string attribute)
{
    char* names[] = {attribute.data(), nullptr};
    Results results;
    // Without this filter an entry that has no object class would not be looked at.
    return cfg_search_s(handle, dn.c_str(), LDAP_SCOPE_BASE, (attribute + "=*").c_str(), names, 0,
                        results.receiver()) == LDAP_SUCCESS;
}

} // namespace veltor::tool
