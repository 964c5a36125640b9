// Carries out change records as one change of the file, and tells what became of each.
#ifndef VELTOR_TOOL_UPDATE_H
#define VELTOR_TOOL_UPDATE_H

#include "change_engine.h"
#include "change_records.h"
#include "exit_codes.h"

#include <string>
#include <vector>

namespace veltor::tool {

/// How messages speak of one change and of several.
struct ChangeWording
{
    const char *one, *several;
};

/// Of changes that are told as DNs.
inline constexpr ChangeWording deletionWording{"DN", "DNs"};

struct ChangeSet
{
    ChangeSource source; ///< what the places of the records refer to
    std::vector<ChangeRecord> records;
    ChangeWording wording{"record", "records"};
};

struct UpdateOptions
{
    WriteOptions write;
    bool orphan = false;      ///< a new entry needs no parent
    bool withSubtree = false; ///< an entry is deleted with those below it
    bool prune = false;       ///< an entry that is ensured loses its other attributes, but for some
    /// Taking away a name is refused that neither the catalogue nor the entry has: it is mistyped.
    bool knownNamesOnly = false;
    /// Says of a setting that the entry did not have where else it stands.
    bool tellElsewhere = false;
    bool lenient = false; ///< adding what is there and deleting what is not change nothing
};

/// Reads the records of a file, "-" for standard input. Ahead of the bind, so that nobody types a password for changes
/// that are refused.
/// @throws Failure  as readChangeFile and readChanges do; usage when standard input is to give the password as well
/// @param command  that takes them
ChangeSet changesFrom(const std::string& file, RecordForm form, const TargetOptions& target,
                      const std::string& command);

/// Reads the DNs of entries to delete, one a line, as changesFrom reads records. Empty lines are left out.
ChangeSet deletionsFrom(const std::string& file, const TargetOptions& target);

/// Binds and carries out the changes, all or none. Prints a line for each record, or "unchanged" when the file stays as
/// it is.
///
/// @throws Failure  for everything that is refused or can't be written
ExitCode carryOut(ChangeSet changes, const TargetOptions& target, const UpdateOptions& options, Output& output);

} // namespace veltor::tool

#endif
