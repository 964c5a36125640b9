// Settings that were looked for in one entry and stand in another.
#ifndef VELTOR_TOOL_ELSEWHERE_H
#define VELTOR_TOOL_ELSEWHERE_H

#include <string>

namespace veltor::tool {

/// Names an entry that has the setting, and how to reach it: who thinks of a setting seldom thinks of its entry.
///
/// @param handle  bound; the entry that was looked at does not have the setting
/// @return  "" where no entry has it, and for the class, which every entry has
std::string whereElse(void* handle, const std::string& name);

} // namespace veltor::tool

#endif
