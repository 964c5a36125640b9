// The texts of DNs.
#include "dn_text.h"

#include <algorithm>
#include <cstddef>

namespace veltor::tool {

// A separator counts unless a backslash or a quote guards it.
std::string_view parentOf(std::string_view dn)
{
    bool quoted = false;
    for (std::size_t at = 0; at < dn.size(); ++at) {
        if (dn[at] == '\\') {
            ++at;
        } else if (dn[at] == '"') {
            quoted = !quoted;
        } else if (!quoted && (dn[at] == ',' || dn[at] == ';')) {
            return dn.substr(std::min(dn.find_first_not_of(" \t", at + 1), dn.size()));
        }
    }
    return {};
}

} // namespace veltor::tool
