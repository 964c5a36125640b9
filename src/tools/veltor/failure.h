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

/// One record of what the library keeps of a failure. The outermost is the failure itself.
struct Cause
{
    int ldap, code, line;
    std::string message, file, dn, attribute;
    std::optional<std::string> value; ///< nothing for a secret
};

/// Where something stands in what a command was given to carry out.
struct SourcePlace
{
    std::string name;                 ///< of the file, as messages have it
    std::size_t line = 0, column = 0; ///< from 1; 0 is nowhere

    /// "NAME:LINE:COLUMN", or "" for nowhere.
    std::string text() const;
};

/// What programs are told of a failure; "", 0 and nothing where it is not known.
struct FailureFacts
{
    int ldap = 0, code = 0, line = 0;
    std::string file = {}, dn = {}, attribute = {};
    std::optional<std::string> value = {}; ///< nothing for a secret
    std::optional<long> minimum = {}, maximum = {}, mask = {};
    std::vector<std::string> allowed = {};
    std::optional<bool> single = {}; ///< whether the attribute is declared single-valued
    SourcePlace source = {};
    std::vector<Cause> chain = {};
};

/// A message for standard error and the exit status that goes with it. The texts are raw: they are escaped
/// when they are printed.
class Failure : public std::exception
{
public:
    /// @param headline  what was found, and where
    /// @param details   further lines: codes, the state of the user's file, one next step
    Failure(ExitCode exit, std::string headline, std::vector<std::string> details = {}, FailureFacts facts = {});

    ExitCode exit() const noexcept { return exit_; }
    const char* what() const noexcept override { return headline_.c_str(); }
    const std::vector<std::string>& details() const { return details_; }
    const FailureFacts& facts() const { return facts_; }

    /// The message as it is printed: "veltor: error: " and the headline, each detail indented on a line of its own.
    /// @param errorWord  how "error" is written, for a terminal that has colours
    std::string message(std::string_view errorWord = "error") const;

    /// The causes that the library kept, a line each without values; empty without any.
    std::string causes() const;

private:
    ExitCode exit_;
    std::string headline_;
    std::vector<std::string> details_;
    FailureFacts facts_;
};

/// What the caller knows about a failed call beyond what the library keeps.
struct Circumstances
{
    Stage stage;
    std::string dn;         ///< the DN that was asked for: the base of a search, the bind DN, the entry to change
    SourcePlace place = {}; ///< update: where the change stands
    std::string state = {}; ///< update: what of the changes is in the file; bind: the advice for a refused caller
};

/// The failure for a library call that returned a code other than 0. Reads the handle's error accessors, so it
/// must be called before the next call on the handle.
Failure libraryFailure(void* handle, int code, const Circumstances& circumstances);

/// What programs are told of something that was refused: what it is about, and what the catalogue says of that.
/// @param value  left out if it is a secret
FailureFacts factsAbout(const std::string& dn, const std::string& attribute, std::string_view value = {});

/// What programs are told of the failure that a handle keeps. Reads its error accessors, as libraryFailure does.
/// @param file  the one that the message names
FailureFacts keptFacts(void* handle, int code, const std::string& file);

/// The codes as a message names them: "result 32 (No such object)", with the library code if it says more.
std::string codesOf(int ldap, int code);

/// The failure that a bind to this file would end in, if the file is missing or can't be opened now.
/// @param state  of things, as a failure tells it
/// @param step   what helps unless it is permission that is missing
std::optional<Failure> unreadableFile(const std::string& file, const std::string& state = "nothing was read",
                                      const std::string& step = "name the file with -F FILE or in VELTOR_FILE");

/// The failure for a DN or a password that is wrong beyond doubt, without asking the library.
Failure wrongCredentials(const std::string& dn, std::string_view reason);

/// Prints "veltor: warning: " and the escaped text to standard error.
void warn(std::string_view text);

/// Prints "veltor: " and the escaped text to standard error.
void tellNote(std::string_view text);

} // namespace veltor::tool

#endif
