// Carries out change records through the C API, one after the other, and tells what became of each.
#ifndef VELTOR_TOOL_UPDATE_H
#define VELTOR_TOOL_UPDATE_H

#include "change_records.h"
#include "exit_codes.h"
#include "target.h"

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

namespace veltor::tool {

/// How messages speak of one change, of several, and of a change that is carried out.
struct ChangeWording
{
    const char *one, *several, *carriedOut;
};

struct ChangeSet
{
    std::string source; ///< what the places of the records refer to
    std::vector<ChangeRecord> records;
    ChangeWording wording{"record", "records", "in the file"};
};

struct UpdateOptions
{
    std::optional<std::string> backup; ///< keeps the file as it was before the first change
    bool orphan = false;               ///< a new entry needs no parent
    bool withSubtree = false;          ///< an entry is deleted with those below it
};

/// Adds the options that the writing commands share.
void addUpdateOptions(CLI::App& command, UpdateOptions& options);

/// What the help of the writing commands says of them all.
extern const char* const updateFooter;

/// Binds and carries out the changes. Prints a line for each record. There is no way back: when a change fails,
/// those before it are in the file, and the message says which.
///
/// @throws Failure  for everything that is refused or can't be written
ExitCode carryOut(ChangeSet changes, const TargetOptions& target, const UpdateOptions& options);

} // namespace veltor::tool

#endif
