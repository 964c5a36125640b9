// Which values are not for every eye.
#ifndef VELTOR_TOOL_SECRETS_H
#define VELTOR_TOOL_SECRETS_H

#include <string>
#include <string_view>

namespace veltor::tool {

/// True for values that are shown on request only: passwords, environment settings of the server, and whatever
/// looks like a password under a name that the catalogue does not know or in a line that the load rejected.
bool isSecret(std::string_view attribute, std::string_view value);

/// True for the attributes whose values are stored encoded.
bool isPassword(std::string_view attribute);

/// The value as an error may quote it: in double quotes, or *** for a secret.
std::string quotedUnlessSecret(std::string_view attribute, std::string_view value);

} // namespace veltor::tool

#endif
