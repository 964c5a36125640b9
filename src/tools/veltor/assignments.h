// The settings that the command line assigns: NAME=VALUE, NAME+=VALUE, NAME-=VALUE.
#ifndef VELTOR_TOOL_ASSIGNMENTS_H
#define VELTOR_TOOL_ASSIGNMENTS_H

#include "change_records.h"

#include <string>
#include <vector>

namespace veltor::tool {

/// The entry that commands without -b work on.
inline constexpr const char* configurationDn = "cn=Configuration";

/// The name as the catalogue spells it, or as given where unknown names are allowed.
/// @throws Failure  (refused) for a name that is unknown, ambiguous or none
std::string settingName(const std::string& given, bool allowUnknown);

/// One record that carries the assignments out. Several of one name and kind come together.
///
/// @param comment       goes above each attribute that changes; "" for none
/// @param allowUnknown  takes names that the catalogue does not have
/// @throws Failure  usage for what is no assignment, for one of nothing, and for passwords, which the process list
///                  would show; refused for names and values that the file can't hold
ChangeRecord recordOf(const std::string& dn, const std::vector<std::string>& assignments, const std::string& comment,
                      bool allowUnknown);

} // namespace veltor::tool

#endif
