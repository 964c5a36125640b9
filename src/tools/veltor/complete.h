// What may stand where the cursor is on a command line of the tool. Options come from the parser's own description
// of the application, so that the two can't disagree.
#ifndef VELTOR_TOOL_COMPLETE_H
#define VELTOR_TOOL_COMPLETE_H

#include <CLI/CLI.hpp>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltor::tool {

/// A word that may stand there.
struct Candidate
{
    std::string word;    ///< whole, without quotes
    std::string meaning; ///< "" for one that says it itself
};

struct Completions
{
    std::vector<Candidate> candidates;
    bool unfinished = false;               ///< each candidate is the beginning of a word that goes on
    std::optional<std::size_t> fileNameAt; ///< from this character of the word on a file name may stand: the shell's
};

/// The DNs of the entries in a file, none for one that can't be read.
/// @param file  what -F says, if it is given
using EntryNames = std::function<std::vector<std::string>(const std::optional<std::string>& file)>;

/// @param words    those between the tool's name and the one at the cursor, without quotes
/// @param current  the word at the cursor as far as it stands before that, without quotes
Completions complete(const CLI::App& application, const std::vector<std::string>& words, const std::string& current,
                     const EntryNames& entryNames);

} // namespace veltor::tool

#endif
