// The file system's side of the safe mode: where the configuration really lies, who may write it, and how a new text
// takes the place of the old one in one step.
#ifndef VELTOR_DURABLE_FILE_H
#define VELTOR_DURABLE_FILE_H

#include "disk.h"

#include <string>
#include <string_view>

#include <sys/stat.h>

namespace veltor::detail {

/// A configuration file where it really lies: symbolic links followed, its folder held open. Everything below works on
/// that descriptor and the last part of the name, so that a folder that is moved or replaced meanwhile does no harm.
class FilePlace
{
public:
    /// The folder needs no permission to read yet; locking and installing ask for it.
    ///
    /// @throws LDIF_Exception 91/1003 when the links lead nowhere or the folder can't be opened
    explicit FilePlace(const std::string& fileName);
    FilePlace(const FilePlace&) = delete;
    FilePlace& operator=(const FilePlace&) = delete;
    FilePlace(FilePlace&& other) noexcept;
    FilePlace& operator=(FilePlace&& other) noexcept;
    ~FilePlace();

    /// For calls that take a folder and a name (O_PATH).
    int folder() const { return folder_; }
    const std::string& name() const { return name_; }
    /// The name that the caller gave, for messages.
    const std::string& given() const { return given_; }

    /// Reads the file, and tells what it was when it was read. Never waits, never follows a link.
    /// @throws as readWholeFile; 91/1003 when there is no such file, 91/1004 for a folder
    FileText read(struct stat& status) const;

private:
    int folder_ = -1;
    std::string name_;
    std::string given_;
};

/// The writer lock of a configuration file, from construction to destruction. veltor/cfg_admin.h tells the protocol.
class WriterLock
{
public:
    /// Tries until the deadline, at least once; cleans what a crash left of earlier installs.
    ///
    /// A lock file is made with owner, group, mode and access list of the configuration, and follows them later as far
    /// as this account may change it. Where owner or group can't be given it is not made: an install would be refused
    /// for the same reason, and the owner would be locked out.
    ///
    /// @throws LDIF_Exception 51/51 when the lock stays busy, naming the holder; 50/1004 when the lock file can't be
    ///         opened or made for want of permission, or is a link, a folder or a fifo; 91/1004 when it is not there
    ///         and the configuration is no plain file; 80/1000 for other failures of the system
    WriterLock(const FilePlace& place, int timeoutMs);
    WriterLock(const WriterLock&) = delete;
    WriterLock& operator=(const WriterLock&) = delete;
    ~WriterLock();

private:
    int file_ = -1;
};

/// Puts a text into the place of the file's, under the lock. The file's name holds the old or the new text at any
/// moment; every failure says in its message which of both.
///
/// @param expected        what the file has to hold now
/// @param backupFileName  where a copy of the old text goes first; empty: nowhere; relative to the working folder. The
///                        copy has the attributes and the time of the old file
/// @return                the status of the new file
/// @throws LDIF_Exception 51/51 when the file holds something else or is gone; 50/1004 for a step that is not permitted
///         (a backup name that leads to the file, its lock or a device is one), 80/1000 for other failures of the
///         system, memory that runs short among them
/// @throws std::bad_alloc before anything was touched
struct stat install(const FilePlace& place, std::string_view text, std::string_view expected,
                    const std::string& backupFileName);

/// Refuses a name for a new file at once.
/// @throws LDIF_Exception 68/68 when it exists in any form
void needsFreeName(const std::string& fileName);

/// Makes a new file with mode 0640, durable and whole or not at all.
///
/// @throws LDIF_Exception 68/68 when the name exists in any form; 50/1004 for a step that is not permitted, 80/1000 for
///         other failures of the system: nothing is left behind
void createFile(const std::string& fileName, std::string_view text);

} // namespace veltor::detail

#endif
