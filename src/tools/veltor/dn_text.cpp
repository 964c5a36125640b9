// The texts of DNs.
#include "dn_text.h"

#include <algorithm>
#include <cstddef>

namespace veltor::tool {

namespace {

/// Where one of these characters stands, unless a backslash or a quote guards it; the size of the text for nowhere.
std::size_t unguarded(std::string_view text, std::string_view wanted)
{
    bool quoted = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\\') {
            ++at;
        } else if (text[at] == '"') {
            quoted = !quoted;
        } else if (!quoted && wanted.find(text[at]) != std::string_view::npos) {
            return at;
        }
    }
    return text.size();
}

std::string_view withoutBlanks(std::string_view text)
{
    constexpr std::string_view blanks = " \t";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

} // namespace

std::string_view parentOf(std::string_view dn)
{
    const std::size_t at = unguarded(dn, ",;");
    return at == dn.size() ? std::string_view() : dn.substr(std::min(dn.find_first_not_of(" \t", at + 1), dn.size()));
}

std::vector<std::string_view> namingAttributesOf(std::string_view dn)
{
    std::vector<std::string_view> names;
    for (std::string_view rdn = dn.substr(0, unguarded(dn, ",;")); !rdn.empty();) {
        const std::size_t end = unguarded(rdn, "+");
        names.push_back(withoutBlanks(rdn.substr(0, rdn.substr(0, end).find('='))));
        rdn.remove_prefix(std::min(end + 1, rdn.size()));
    }
    return names;
}

} // namespace veltor::tool
