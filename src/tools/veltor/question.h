// Questions to the person at the terminal.
#ifndef VELTOR_TOOL_QUESTION_H
#define VELTOR_TOOL_QUESTION_H

#include <optional>
#include <string>
#include <string_view>

namespace veltor::tool {

/// The controlling terminal, whatever the standard streams are. Open for the scope.
class Terminal
{
public:
    /// @param finding   why somebody is to be asked
    /// @param advice    what does without
    /// @throws Failure  usage, with both, when there is no terminal
    Terminal(const std::string& finding, const std::string& advice);
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal();

    /// Writes a text as it is: escape before.
    void show(std::string_view text) const;

    /// Asks, and reads the line that is typed, without its end; nothing at the end of the input.
    /// @param question  shown as it is
    std::optional<std::string> answer(std::string_view question) const;

private:
    int descriptor_;
};

/// Asks on the controlling terminal whether to go on. Every answer but "y" and "yes" is No, and so is the end of the
/// input.
///
/// @param finding   why it is asked; shown escaped, with the question behind it
/// @throws Failure  usage when there is no terminal; the message names --yes
bool confirmed(const std::string& finding);

} // namespace veltor::tool

#endif
