// How a change ends: what is told of it to people, programs and the system's log, and how it fails.
#ifndef VELTOR_TOOL_CHANGE_OUTCOME_H
#define VELTOR_TOOL_CHANGE_OUTCOME_H

#include "failure.h"
#include "output.h"
#include "signals_held_back.h"
#include "stored_tree.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltor::tool {

struct WriteOptions;

/// An attribute that differs. Nothing in the place of values with a secret among them.
struct AttributeChange
{
    std::string name;
    std::optional<std::vector<std::string>> before, after;
};

AttributeChange changeOf(std::string_view name, const StoredValues& before, const StoredValues& after);

/// What became of an attribute: "name: 1 -> 2", "name: + new - old", of a secret "name changed" and "name removed"; ""
/// for nothing.
std::string differenceOf(std::string_view name, const StoredValues& before, const StoredValues& after);

/// What became of an entry. Secrets are masked, nothing is escaped.
struct Outcome
{
    std::string dn, what;
    std::vector<std::string> goneComments = {}; ///< lines that went with what was taken away
    std::vector<AttributeChange> attributes = {};
    bool isPrinted = true; ///< else for the document alone: people have seen the difference
};

/// What became of an entry, for the document.
Outcome outcomeOf(const EntryDifference& difference);

/// What a command has done to the tree.
struct ChangeReport
{
    std::string source;            ///< where the changes come from, for the heading of the diff; may be empty
    std::vector<Outcome> outcomes; ///< one for each record that was read, or for each entry that differs
    std::size_t changes = 0;       ///< attributes that differ, entries that come and go
    std::vector<std::string> dns;  ///< the entries concerned, each once
    bool oldPassword = false;      ///< the backup has a password that the file has no more
    std::string log;               ///< for the system's log, raw: DNs and attribute names, values of harmless types
};

enum class Ending { unchanged, dryRun, written };

/// Prints what a change came to, or puts it into the document.
/// @param backup      the name that the old text has now, "" for none
/// @param difference  of a dry run: unified, masked, not escaped
void tellEnding(Ending ending, const ChangeReport& report, const WriteOptions& options, const std::string& backup,
                const std::string& difference, Output& output);

/// The unified difference of two texts, masked, not escaped.
std::string differenceFor(const ChangeReport& report, std::string_view before, std::string_view after,
                          const std::string& file);

/// The failure for a file that is not any more what was looked at.
Failure changedMeanwhile(const std::string& file);

/// The failure to take the lock, or to read the file again under it.
Failure lockFailure(void* handle, const std::string& file, int code, int timeoutSeconds);

/// The failure to install a text. Tells the log about one that is in place all the same.
Failure installFailure(void* handle, const std::string& file, int code, const ChangeReport& report);

/// Tells the system's log who changed what, and no secret.
void tellLog(const std::string& file, const ChangeReport& report);

/// Makes a call that waits for the writer lock, again and again until the time is over. Signals are held back while a
/// call makes and removes files, and take effect between two of them.
///
/// @param call  takes the milliseconds that it may wait, gives a code
int waitForLock(void* handle, int timeoutMs, const std::function<int(int)>& call);

} // namespace veltor::tool

#endif
