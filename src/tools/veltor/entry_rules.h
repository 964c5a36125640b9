// What a change may make of an entry, for what carries changes out and for what writes them down.
#ifndef VELTOR_TOOL_ENTRY_RULES_H
#define VELTOR_TOOL_ENTRY_RULES_H

#include "stored_tree.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace veltor::tool {

/// The values that an entry has under a name.
using ValuesOf = std::function<StoredValues(std::string_view name)>;

/// The attribute that names the entry and loses one of its values; "" for none. An entry without the value that it is
/// named by would be a riddle to every reader.
std::string_view losesItsName(std::string_view dn, const ValuesOf& before, const ValuesOf& after);

/// True when there would be more values than the attribute may have. A file that has several already may keep them.
bool isTooMany(std::string_view attribute, std::size_t before, std::size_t after);

/// False for a password that can't be decoded.
/// @param attribute  of passwords
bool canBeDecoded(void* handle, const std::string& dn, std::string attribute);

} // namespace veltor::tool

#endif
