// Looks through the whole tree, which only happens where a setting is missing.
#include "elsewhere.h"

#include "names.h"
#include "secrets.h"
#include "stored_tree.h"

#include <algorithm>
#include <optional>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

std::string whereElse(void* handle, const std::string& name)
{
    const std::optional<cfg_attr_type> type = attributeType(name);
    if (!type || type->single_valued == 0) {
        return {};
    }
    const StoredTree tree(handle);
    const auto found = std::find_if(tree.entries().begin(), tree.entries().end(), [&](const cfg_message* entry) {
        return !textOf(*entry).empty() && !isSecretDn(textOf(*entry)) && attributeOf(*entry, name) != nullptr;
    });
    if (found == tree.entries().end()) {
        return {};
    }
    const std::string dn(textOf(**found));
    return dn + " has it; -b \"" + dn + "\" names that entry";
}

} // namespace veltor::tool
