// Looks through the whole tree, which only happens where a setting is missing.
#include "elsewhere.h"

#include "names.h"
#include "secrets.h"
#include "shell_word.h"
#include "stored_tree.h"

#include <string_view>
#include <vector>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

std::string whereElse(void* handle, const std::string& name)
{
    // Every entry has classes of its own.
    if (!attributeType(name) || sameName(name, "objectclass")) {
        return {};
    }
    const StoredTree tree(handle);
    std::vector<std::string_view> dns;
    for (const cfg_message* const entry : tree.entries()) {
        if (!textOf(*entry).empty() && !isSecretDn(textOf(*entry)) && attributeOf(*entry, name) != nullptr) {
            dns.push_back(textOf(*entry));
        }
    }
    if (dns.empty()) {
        return {};
    }
    const std::string first(dns.front());
    const std::string others = dns.size() == 1 ? " has it" : " and " + std::to_string(dns.size() - 1) + " more have it";
    return first + others + "; -b " + shellWord(first) + " names that entry";
}

} // namespace veltor::tool
