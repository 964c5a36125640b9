// A password that is to be set: where it comes from, and what it may be.
#ifndef VELTOR_TOOL_NEW_PASSWORD_H
#define VELTOR_TOOL_NEW_PASSWORD_H

#include "wiped_text.h"

#include <optional>
#include <string>

namespace veltor::tool {

/// Reads the password from a file, or asks for it twice on the terminal: up to three times, until it may be one and
/// both answers are the same.
///
/// @param dn    the entry that gets it, for messages
/// @param name  the attribute
/// @param file  what -T names, "-" for standard input; unset: the terminal
/// @return      the password with a terminating NUL
/// @throws Failure  refused for what can't be a password, and after the third try; as askPassword and readPasswordFile
WipedText newPassword(const std::string& dn, const std::string& name, const std::optional<std::string>& file);

} // namespace veltor::tool

#endif
