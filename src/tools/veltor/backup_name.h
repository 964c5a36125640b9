// Names that a copy of the configuration file can't have.
#ifndef VELTOR_TOOL_BACKUP_NAME_H
#define VELTOR_TOOL_BACKUP_NAME_H

#include <string>

namespace veltor::tool {

/// The folder that a file of this name is in, as the system takes it: "." for a name alone.
std::string folderOf(const std::string& name);

/// Why a copy can't have this name; "" for a name like others. It must be one, and neither the configuration file nor
/// anything but a plain file nor a name that the library uses for files of its own.
///
/// @param file  the configuration file
std::string faultOfBackupName(const std::string& copy, const std::string& file);

} // namespace veltor::tool

#endif
