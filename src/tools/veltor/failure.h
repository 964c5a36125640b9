// How the tool fails: one exception that carries the exit status and the finished message, and the one place
// that turns a failed library call into it.
#ifndef VELTOR_TOOL_FAILURE_H
#define VELTOR_TOOL_FAILURE_H

#include "exit_codes.h"

#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltor::tool {

/// A message for standard error and the exit status that goes with it. The texts are raw: they are escaped
/// when they are printed.
class Failure : public std::exception
{
public:
    /// @param headline  what was found, and where
    /// @param details   further lines: codes, the state of the user's file, one next step
    Failure(ExitCode exit, std::string headline, std::vector<std::string> details = {});

    ExitCode exit() const noexcept { return exit_; }
    const char* what() const noexcept override { return headline_.c_str(); }

    /// The message as it is printed: "veltor: error: " and the headline, each detail indented on a line of its own.
    std::string message() const;

private:
    ExitCode exit_;
    std::string headline_;
    std::vector<std::string> details_;
};

/// What the caller knows about a failed call beyond what the library keeps.
struct Circumstances
{
    Stage stage;
    std::string dn;         ///< the DN that was asked for: the base of a search, the bind DN, the entry to change
    std::string place = {}; ///< update: where the change stands, as placeName has it
    std::string state = {}; ///< update: what of the changes is in the file; bind: the advice for a refused caller
};

/// The failure for a library call that returned a code other than 0. Reads the handle's error accessors, so it
/// must be called before the next call on the handle.
Failure libraryFailure(void* handle, int code, const Circumstances& circumstances);

/// The codes as a message names them: "result 32 (No such object)", with the library code if it says more.
std::string codesOf(int ldap, int code);

/// The failure that a bind to this file would end in, if the file is missing or can't be opened now.
std::optional<Failure> unreadableFile(const std::string& file);

/// The failure for a DN or a password that is wrong beyond doubt, without asking the library.
Failure wrongCredentials(const std::string& dn, std::string_view reason);

/// Prints "veltor: warning: " and the escaped text to standard error.
void warn(std::string_view text);

} // namespace veltor::tool

#endif
