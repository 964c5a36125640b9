// Questions that are answered with yes or no.
#ifndef VELTOR_TOOL_QUESTION_H
#define VELTOR_TOOL_QUESTION_H

#include <string>

namespace veltor::tool {

/// Asks on the controlling terminal whether to go on. Every answer but "y" and "yes" is No, and so is the end of the
/// input.
///
/// @param finding   why it is asked; shown escaped, with the question behind it
/// @throws Failure  usage when there is no terminal; the message names --yes
bool confirmed(const std::string& finding);

} // namespace veltor::tool

#endif
