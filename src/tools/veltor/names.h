// Attribute names as people type them: whole, or without the prefix that nearly all of them share.
#ifndef VELTOR_TOOL_NAMES_H
#define VELTOR_TOOL_NAMES_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

/// What a typed name means.
struct NameResult
{
    /// The full name as the catalogue spells it; empty when the catalogue has none, or several.
    std::string name;
    /// Without a name: the full names that it may mean, the nearest first, at most three; or none.
    std::vector<std::string> nearest;
    /// Without a name: the text is short for each of the nearest.
    bool ambiguous = false;
};

/// Looks a name up: a full name, or one without "zor-slapd" or "zor-" in front if only one name ends so. A full name
/// goes before a short one. Letter case is ignored.
NameResult lookUpName(std::string_view given);

/// The full name, as the catalogue spells it.
/// @param details  further lines of the message, such as what was written; without any the tool's list is named
/// @throws Failure  (refused) for a name that is unknown or ambiguous, with the nearest ones
std::string fullName(std::string_view given, const std::vector<std::string>& details = {});

/// A name of the catalogue as people type it: without its prefix where that leaves no doubt, and with a small letter in
/// front ("port"), unless that belongs to an abbreviation ("ACLCache").
std::string shortName(std::string_view full);

/// The failure that fullName throws for such a result.
[[noreturn]] void refuseName(std::string_view given, const NameResult& result,
                             const std::vector<std::string>& details = {});

/// "; see: veltor explain NAME" for a name of the catalogue, else "".
std::string explainAdvice(std::string_view name);

/// All types, in the order of their names.
const std::vector<cfg_attr_type>& catalogue();

/// The type of a full name in any letter case; nothing for a name that the catalogue does not have.
std::optional<cfg_attr_type> attributeType(std::string_view name);

/// True when two names are the same but for the case of ASCII letters.
bool sameName(std::string_view left, std::string_view right);

} // namespace veltor::tool

#endif
