// Who may bind as administrator.
#ifndef VELTOR_TOOL_ADMINISTRATOR_H
#define VELTOR_TOOL_ADMINISTRATOR_H

namespace veltor::tool {

/// True when the file names an administrator, and has a password for it that can be read.
/// @param handle  bound
bool hasAdministrator(void* handle);

} // namespace veltor::tool

#endif
