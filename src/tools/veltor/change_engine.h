// One change of the configuration file, from the lock to the install: what every writing command does around its own
// part, so that the file holds all of the change or nothing of it.
#ifndef VELTOR_TOOL_CHANGE_ENGINE_H
#define VELTOR_TOOL_CHANGE_ENGINE_H

#include "change_outcome.h"
#include "output.h"
#include "stored_tree.h"
#include "target.h"
#include "wiped_text.h"

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace veltor::tool {

/// What the options of all writing commands say.
struct WriteOptions
{
    std::optional<std::string> backup; ///< unset: the name of the file with .bak behind it
    bool noBackup = false;
    int lockTimeoutSeconds = 10;
    bool yes = false;
    bool dryRun = false;
    bool exitCode = false; ///< a dry run that would change says so by its exit status
    bool allowUnknown = false;
    bool allowLockout = false;
};

/// The name under which the old text is to be kept, "" for none.
/// @throws Failure  usage for options that exclude each other and for a name that can't be a backup's
std::string backupFor(const TargetOptions& target, const WriteOptions& options);

/// The time to wait for the lock.
int lockTimeoutMs(const WriteOptions& options);

/// Adds the options that the writing commands share.
void addWriteOptions(CLI::App& command, WriteOptions& options);

/// What the help of the writing commands says of them all.
extern const char* const writeFooter;

/// The text that a commit on this handle would write.
/// @throws Failure  for a configuration that the library can't render
WipedText rendered(void* handle);

/// What the log may tell of an attribute: its name, and its values if they are numbers, words of a list or bits.
/// @param values  as they are stored
std::string logged(const std::string& attribute, const StoredValues& values);

/// A change set on the configuration file. Its scope holds the writer lock; without a commit nothing is written.
class ChangeEngine
{
public:
    /// Opens the file to write, takes the lock and reads the file again under it.
    /// @throws Failure  as Session does; busy for a lock that is not free in time, writeFailed for one that can't be
    ///                  taken
    ChangeEngine(const TargetOptions& target, const WriteOptions& options, Output& output);
    ChangeEngine(const ChangeEngine&) = delete;
    ChangeEngine& operator=(const ChangeEngine&) = delete;
    ~ChangeEngine();

    const Session& session() const { return session_; }
    void* handle() const { return session_.handle(); }

    /// The file as it was when the lock was taken, and as a commit would write it.
    const WipedText& before() const { return before_; }
    WipedText after() const;

    /// Has a commit install this text, in place of the changes that were made.
    /// @param readFrom  a handle that has read the text; must outlive the engine
    void replaceText(WipedText text, void* readFrom);

    /// Commits and tells what came of it, or, for a dry run, the difference that a commit would make, with secrets
    /// masked. Tells the system's log about a change.
    /// Writes nothing when the text stays the same.
    /// @throws Failure  refused for what would not come back and for a change after which nobody could bind as the
    ///                  administrator; busy for a file that somebody else has changed; writeFailed for a step that
    ///                  failed: the message says which text is in place
    ExitCode finish(const ChangeReport& report);

private:
    void requireAdministrator() const;
    void begin();
    void rollBack();
    void requireWholeLastLine(const WipedText& after);
    void requireConsent(const std::string& finding, const WipedText& after);
    void install(const ChangeReport& report);

    const WriteOptions& options_;
    Output& output_;
    std::string backup_; ///< "" for none
    Session session_;
    WipedText before_;
    std::optional<WipedText> replacement_;
    void* readFrom_ = nullptr; ///< of the replacement
    bool hadAdministrator_ = false;
    bool begun_ = false;
};

} // namespace veltor::tool

#endif
