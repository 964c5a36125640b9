// The texts of DNs that the library has taken or printed.
#ifndef VELTOR_TOOL_DN_TEXT_H
#define VELTOR_TOOL_DN_TEXT_H

#include <string_view>
#include <vector>

namespace veltor::tool {

/// The DN above this one, "" for none: what follows the first separator, a comma or a semicolon.
std::string_view parentOf(std::string_view dn);

/// The attributes that name the entry among those beside it: one, or several with a plus between them.
std::vector<std::string_view> namingAttributesOf(std::string_view dn);

} // namespace veltor::tool

#endif
