// What a setting may hold, in words. Depends on the catalogue alone: the manual page of the settings says it, too.
#ifndef VELTOR_TOOL_SETTING_WORDS_H
#define VELTOR_TOOL_SETTING_WORDS_H

#include <string>
#include <string_view>
#include <vector>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

/// The values of a syntax of the catalogue ("an integer"); the syntax itself for one without words.
std::string syntaxWords(std::string_view syntax);

/// The list of a type; empty when it has none.
std::vector<std::string> listOf(const cfg_attr_type& type);

/// The values of a type, with its list, mask and limits ("an integer from 1 to 65535").
std::string valuesOf(const cfg_attr_type& type);

/// What else holds, in parentheses: whether letter case matters, and how many values there may be.
std::string remarksOf(const cfg_attr_type& type);

} // namespace veltor::tool

#endif
