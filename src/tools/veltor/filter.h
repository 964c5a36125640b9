// The search filters of this version: one term, written as RFC 4515 has it.
#ifndef VELTOR_TOOL_FILTER_H
#define VELTOR_TOOL_FILTER_H

#include <string>
#include <string_view>

namespace veltor::tool {

/// True when a command line argument is meant as a filter and not as an attribute name: it is empty, begins
/// with a parenthesis or holds an equals sign.
bool isFilter(std::string_view argument);

/// Checks a filter and gives it as the library takes it, without its parentheses; "" is the default filter.
/// The library reads leniently: it takes "*abc" for "*" and cuts a value at a bad escape. A filter that would
/// be searched for as something else than RFC 4515 says is refused here.
///
/// @throws Failure (usage) with the filter and a caret below the place
std::string checkedFilter(std::string_view filter);

} // namespace veltor::tool

#endif
