// How a run prints: the options for it that all commands share, and what they come to.
#ifndef VELTOR_TOOL_OUTPUT_H
#define VELTOR_TOOL_OUTPUT_H

#include "document.h"
#include "target.h"

#include <CLI/CLI.hpp>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veltor::tool {

enum class Form { text, ldif, json, value };

/// What the options say.
struct OutputOptions
{
    bool json = false;
    std::string format; ///< empty: not given
    bool endWithNul = false;
    bool showSecrets = false;
    std::string colour = "auto";
    bool quiet = false;
    bool verbose = false;
};

/// Adds the options to the command line. They are accepted before and after the command.
/// @param options  filled while the command line is parsed; must outlive the parse
void addOutputOptions(CLI::App& app, OutputOptions& options);

/// True when a command line asks for the JSON document. For one that can't be parsed.
bool asksForJson(const std::vector<std::string>& arguments);

/// The options taken together, and the document that the run fills. One for each run.
class Output
{
public:
    explicit Output(OutputOptions& options) : options_(options) {}

    /// Lets -0 stand behind the command: the parser takes a digit for a number unless the command has the option
    /// itself.
    void acceptNulOption(CLI::App& command);

    /// The form that was asked for, else the command's own.
    /// @param forms    those that the command has; the first is its own, and every command has json
    /// @throws Failure  (usage) for a form that the command has not, and for options that don't go together
    Form formOf(std::initializer_list<Form> forms) const;

    bool json() const { return options_.json || options_.format == "json"; }
    bool quiet() const { return options_.quiet; }
    bool verbose() const { return options_.verbose; }
    bool showSecrets() const { return options_.showSecrets; }

    /// True when the stream may be coloured: by --color, else if it is a terminal that can, and NO_COLOR is not set.
    bool coloured(int descriptor) const;

    /// The word in this colour if the stream may be coloured.
    std::string coloured(int descriptor, std::string_view word, const char* colour) const;

    /// A unified difference, its removed and added lines in colours if the stream may be coloured.
    std::string colouredDifference(int descriptor, std::string_view difference) const;

    /// Adds a value of the form "value" and the byte that ends it: raw, but escaped where a terminal would obey it.
    void appendBareValue(WipedText& out, std::string_view value) const;

    /// Has a failure to print say this of the state of things.
    void noteState(std::string state) { state_ = std::move(state); }

    /// Prints a text as it is.
    /// @throws Failure  (writeFailed)
    void write(std::string_view text) const;

    /// Prints a line, escaped, for people: not with --json and not with -q.
    void print(const std::string& line) const;

    Document& document() { return document_; }

private:
    OutputOptions& options_;
    Document document_;
    std::string state_; ///< "" while nothing was done
};

inline constexpr const char* red = "\x1B[31m";
inline constexpr const char* green = "\x1B[32m";
inline constexpr const char* yellow = "\x1B[33m";

/// Refuses --show-secrets to those who may not administer the file.
/// @throws Failure  (usage)
void checkShowSecrets(const Output& output, const Session& session);

} // namespace veltor::tool

#endif
