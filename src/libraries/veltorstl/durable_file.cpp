// The steps of a safe write, each on descriptors: a name is looked up once, in a folder that is held open. New texts
// are made whole beside their place under a name that a crash may leave behind, and appear there by one rename.
#include "durable_file.h"

#include "LDIF_Exception.h"
#include "descriptor.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace veltor::detail {

namespace {

constexpr int otherSystemError = 1000;
constexpr int fileNotFound = 1003;
constexpr int fileOpen = 1004;

constexpr mode_t permissions = 07777;
constexpr mode_t ownerOnly = 0600;

// What a crash leaves behind is recognised by it: ".", the name of the file, this, and some characters.
constexpr std::string_view mark = ".veltor.";

constexpr const char* accessList = "system.posix_acl_access";
constexpr const char* securityLabel = "security.selinux";

// ---- Failures: the functions that the header declares add the file and which text is in place ----

/// Raises what errno says of a step.
[[noreturn]] void refuseStep(int line, const char* step, const std::string& name)
{
    const int reason = errno;
    const bool forbidden = reason == EACCES || reason == EPERM || reason == EROFS;
    const std::string message =
        std::string("Unable to ") + step + " \"" + name + "\": " + std::generic_category().message(reason);
    LDIF_Exception failure(__FILE_NAME__, line, forbidden ? result::insufficientAccess : result::other,
                           forbidden ? fileOpen : otherSystemError, message.c_str());
    failure.sysErrno = reason;
    if (!forbidden) {
        failure.markSystemFailure();
    }
    throw failure;
}

[[noreturn]] void refuse(int line, int ldapCode, int libraryCode, const std::string& message, int systemError = 0)
{
    LDIF_Exception failure(__FILE_NAME__, line, ldapCode, libraryCode, message.c_str());
    failure.sysErrno = systemError;
    throw failure;
}

/// Runs steps, and names the file in what they raise.
template <class Steps>
decltype(auto) namingFile(const std::string& fileName, Steps&& steps)
{
    try {
        return std::forward<Steps>(steps)();
    } catch (LDIF_Exception& failure) {
        failure.configFile = fileName;
        throw;
    }
}

// ---- Names and folders ----

struct SplitName
{
    std::string folder;
    std::string name;
};

SplitName split(const std::string& fileName)
{
    const std::size_t slash = fileName.rfind('/');
    if (slash == std::string::npos) {
        return {".", fileName};
    }
    return {fileName.substr(0, std::max<std::size_t>(slash, 1)), fileName.substr(slash + 1)};
}

bool isSame(const struct stat& left, const struct stat& right)
{
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

/// What stands under a name, links not followed.
/// @return false when there is nothing, or nothing can be found out
bool statusAt(int folder, const std::string& name, struct stat& status, int flags = AT_SYMLINK_NOFOLLOW)
{
    return retried([&] { return fstatat(folder, name.c_str(), &status, flags); }) == 0;
}

/// The same, where it matters that nothing can be found out.
bool certainStatusAt(int folder, const std::string& name, struct stat& status)
{
    const bool found = statusAt(folder, name, status);
    if (!found && errno != ENOENT) {
        refuseStep(__LINE__, "look at", name);
    }
    return found;
}

struct stat statusOf(const Descriptor& file, const std::string& name)
{
    struct stat status = {};
    if (retried([&] { return fstat(file.get(), &status); }) != 0) {
        refuseStep(__LINE__, "look at", name);
    }
    return status;
}

/// Opens a folder once more, so that it can be read and synced.
/// @return never an invalid one
int readable(int folder, const std::string& name)
{
    const int number = openedAt(folder, ".", O_RDONLY | O_DIRECTORY, 0);
    if (number < 0) {
        refuseStep(__LINE__, "read the folder of", name);
    }
    return number;
}

void sync(const Descriptor& file, const std::string& name)
{
    if (retried([&] { return fsync(file.get()); }) != 0) {
        refuseStep(__LINE__, "sync", name);
    }
}

void syncFolder(const Descriptor& folder, const std::string& name)
{
    // There are file systems that know no such thing and say so.
    if (retried([&] { return fsync(folder.get()); }) != 0 && errno != EINVAL) {
        refuseStep(__LINE__, "sync the folder of", name);
    }
}

/// The last mark tells whose a temporary is: that of a file "a.veltor.b" begins as one of "a" would.
bool isTemporaryOf(const std::string& owner, std::string_view name)
{
    const std::size_t length = 1 + owner.size();
    return name.size() > length + mark.size() && name.front() == '.' && name.substr(1, owner.size()) == owner &&
           name.rfind(mark) == length;
}

/// Removes what a crash left of a file's temporaries. What resists stays: it does no harm.
void removeLeftovers(int folder, const std::string& owner)
{
    Descriptor opened(readable(folder, owner));
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(fdopendir(opened.get()), &closedir);
    if (entries == nullptr) {
        return;
    }
    static_cast<void>(opened.release());
    while (const dirent* const entry = readdir(entries.get())) {
        struct stat status = {};
        if (isTemporaryOf(owner, entry->d_name) && fstatat(folder, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(status.st_mode)) {
            static_cast<void>(unlinkat(folder, entry->d_name, 0));
        }
    }
}

// ---- Content ----

/// True when the file, from its present position to its end, holds exactly that text.
bool holds(const Descriptor& file, std::string_view text, const std::string& name)
{
    std::array<char, std::size_t{64} << 10U> bytes;
    try {
        for (;;) {
            const std::size_t size = readUpTo(file, bytes.data(), bytes.size());
            if (std::string_view(bytes.data(), size) != text.substr(0, size)) {
                return false;
            }
            text.remove_prefix(size);
            if (size < bytes.size()) {
                return text.empty();
            }
        }
    } catch (const std::system_error& failure) {
        errno = failure.code().value();
        refuseStep(__LINE__, "read", name);
    }
}

// ---- Attributes ----

std::optional<std::string> extendedAttribute(const Descriptor& file, const char* attribute, const std::string& name)
{
    std::string value;
    ssize_t size = retried([&] { return fgetxattr(file.get(), attribute, nullptr, 0); });
    if (size > 0) {
        value.resize(static_cast<std::size_t>(size));
        size = retried([&] { return fgetxattr(file.get(), attribute, value.data(), value.size()); });
    }
    if (size < 0) {
        if (errno == ENODATA || errno == ENOTSUP || errno == ENOSYS) {
            return std::nullopt;
        }
        refuseStep(__LINE__, "read access rules of", name);
    }
    value.resize(static_cast<std::size_t>(size));
    return value;
}

// A new file may have got a list from its folder, which would widen the old one's rules.
void keepAccessList(const Descriptor& from, const Descriptor& to, const std::string& name)
{
    const auto wanted = extendedAttribute(from, accessList, name);
    if (wanted == extendedAttribute(to, accessList, name)) {
        return;
    }
    if (retried([&] {
            return wanted.has_value() ? fsetxattr(to.get(), accessList, wanted->data(), wanted->size(), 0)
                                      : fremovexattr(to.get(), accessList);
        }) != 0) {
        refuseStep(__LINE__, "keep the access list of", name);
    }
}

void keepSecurityLabel(const Descriptor& from, const Descriptor& to, const std::string& name)
{
    const auto wanted = extendedAttribute(from, securityLabel, name);
    if (!wanted.has_value() || wanted == extendedAttribute(to, securityLabel, name)) {
        return;
    }
    // A backup may lie on a file system without labels: nothing that a label protects from reads it there.
    if (retried([&] { return fsetxattr(to.get(), securityLabel, wanted->data(), wanted->size(), 0); }) != 0 &&
        errno != ENOTSUP) {
        refuseStep(__LINE__, "keep the security label of", name);
    }
}

/// Gives a file owner, group, mode, access list and label of another.
///
/// @param status  of the other
/// @param name    of the other, for messages
void keepAttributes(const Descriptor& from, const struct stat& status, const Descriptor& to, const std::string& name)
{
    constexpr auto unchanged = static_cast<uid_t>(-1);
    const struct stat before = statusOf(to, name);
    const uid_t owner = before.st_uid == status.st_uid ? unchanged : status.st_uid;
    const gid_t group = before.st_gid == status.st_gid ? unchanged : status.st_gid;
    if ((owner != unchanged || group != unchanged) && retried([&] { return fchown(to.get(), owner, group); }) != 0) {
        refuseStep(__LINE__, "keep owner and group of", name);
    }
    keepAccessList(from, to, name);
    // After the owner, whose change drops some bits, and the list, which has bits of its own.
    const mode_t mode = status.st_mode & permissions;
    if ((statusOf(to, name).st_mode & permissions) != mode && retried([&] { return fchmod(to.get(), mode); }) != 0) {
        refuseStep(__LINE__, "keep the mode of", name);
    }
    keepSecurityLabel(from, to, name);
}

void setModified(const Descriptor& file, const timespec& time, const std::string& name)
{
    const std::array<timespec, 2> times = {timespec{0, UTIME_OMIT}, time};
    if (retried([&] { return futimens(file.get(), times.data()); }) != 0) {
        refuseStep(__LINE__, "set the time of", name);
    }
}

/// Readers compare whole seconds: the new text has to be in a later one than the old. Where the old one is in the last
/// second that there is, or that the file system can keep, it is in another.
void setLater(const Descriptor& file, const struct stat& old, const std::string& name)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t before = old.st_mtim.tv_sec;
    const bool isOlder = before < now.tv_sec || before == std::numeric_limits<time_t>::max();
    setModified(file, isOlder ? now : timespec{before + 1, 0}, name);
    if (statusOf(file, name).st_mtim.tv_sec == before) {
        setModified(file, now, name);
    }
}

// ---- Temporaries ----

/// Six characters that are hardly ever the same. O_EXCL makes sure of it.
std::string freshSuffix()
{
    static constexpr std::string_view characters = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    static std::atomic<std::uint64_t> calls{0};
    const auto now = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    constexpr std::uint64_t spreading = 0x9E3779B97F4A7C15U;
    std::uint64_t bits = ((now ^ static_cast<std::uint64_t>(getpid()) << 40U) + ++calls) * spreading;
    bits ^= bits >> 32U;
    std::string suffix(6, ' ');
    for (char& character : suffix) {
        character = characters[bits % characters.size()];
        bits /= characters.size();
    }
    return suffix;
}

/// A new file beside the place that it is made for, removed unless it gets there.
class Temporary
{
public:
    /// @param folder  stays open as long as this lives
    /// @param owner   the name in the temporary's
    Temporary(int folder, const std::string& owner) : folder_(folder), file_(create(owner)) {}
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
    ~Temporary()
    {
        if (!name_.empty()) {
            static_cast<void>(unlinkat(folder_, name_.c_str(), 0));
        }
    }

    const Descriptor& file() const { return file_; }
    const std::string& name() const { return name_; }

    void fill(std::string_view text)
    {
        if (!writeAll(file_, text)) {
            refuseStep(__LINE__, "write", name_);
        }
        if (lseek(file_.get(), 0, SEEK_SET) != 0) {
            refuseStep(__LINE__, "read", name_);
        }
        if (!holds(file_, text, name_)) {
            refuse(__LINE__, result::other, otherSystemError,
                   "What was written to \"" + name_ + "\" did not come back as it was");
        }
    }

    /// Takes that place, whatever stands there, unless it is a folder.
    void replace(const std::string& name)
    {
        // Over a network the answer may be lost and the work be done.
        if (retried([&] { return renameat(folder_, name_.c_str(), folder_, name.c_str()); }) != 0 && !standsAt(name)) {
            refuseStep(__LINE__, "rename to", name);
        }
        name_.clear();
    }

    /// Takes that place if it is free.
    /// @return false when it is not
    bool appear(const std::string& name)
    {
        if (retried([&] { return renameat2(folder_, name_.c_str(), folder_, name.c_str(), RENAME_NOREPLACE); }) == 0) {
            name_.clear();
            return true;
        }
        // Where the file system has no such rename.
        if (errno != EEXIST && linkat(folder_, name_.c_str(), folder_, name.c_str(), 0) == 0) {
            if (unlinkat(folder_, name_.c_str(), 0) == 0) {
                name_.clear();
            }
            return true;
        }
        const int reason = errno;
        struct stat status = {};
        if (statusAt(folder_, name, status)) {
            return isSame(status, statusOf(file_, name));
        }
        errno = reason;
        refuseStep(__LINE__, "make", name);
    }

    /// True when this very file has that name.
    bool standsAt(const std::string& name) const
    {
        const int reason = errno;
        struct stat status = {};
        struct stat own = {};
        const bool same = statusAt(folder_, name, status) && fstat(file_.get(), &own) == 0 && isSame(status, own);
        errno = reason;
        return same;
    }

private:
    int create(const std::string& owner)
    {
        constexpr int tries = 100;
        for (int tried = 0; tried < tries; ++tried) {
            name_ = ".";
            name_ += owner;
            name_ += mark;
            name_ += freshSuffix();
            const int number = openedAt(folder_, name_, O_RDWR | O_CREAT | O_EXCL, ownerOnly);
            if (number >= 0) {
                return number;
            }
            if (errno != EEXIST) {
                break;
            }
        }
        refuseStep(__LINE__, "make", name_);
    }

    int folder_;
    std::string name_; // empty: no longer there; set before the file is
    Descriptor file_;
};

// ---- The lock ----

std::string lockNameOf(const FilePlace& place)
{
    return place.name() + ".lock";
}

[[noreturn]] void refuseNoFile(int line, const FilePlace& place)
{
    refuse(line, result::connectError, fileOpen, "\"" + place.given() + "\" is not a plain file");
}

/// Opens the configuration for what its attributes are.
int openedConfiguration(const FilePlace& place)
{
    const int number = openedAt(place.folder(), place.name(), O_RDONLY, 0);
    if (number < 0) {
        if (errno == ENXIO) {
            refuseNoFile(__LINE__, place);
        }
        refuseStep(__LINE__, "open", place.name());
    }
    return number;
}

/// Makes the lock file as whole as it is ever seen: whoever may write the configuration can open it at once.
void makeLockFile(const FilePlace& place, const std::string& lockName)
{
    const Descriptor configuration(openedConfiguration(place));
    const struct stat status = statusOf(configuration, place.name());
    if (!S_ISREG(status.st_mode)) {
        // Nothing is made beside what can't be changed: a device, for one, lies in a folder of the system's own.
        refuseNoFile(__LINE__, place);
    }
    Temporary fresh(place.folder(), place.name());
    keepAttributes(configuration, status, fresh.file(), place.name());
    static_cast<void>(fresh.appear(lockName));
}

/// False for what has the lock's name and is nothing to be changed: a second name leads elsewhere, and what is larger
/// than a holder's text is a file of somebody who calls it so, such as another configuration.
bool isOurs(const struct stat& lock)
{
    constexpr off_t largestHolder = 512;
    return lock.st_nlink == 1 && lock.st_size <= largestHolder;
}

/// Follows a change of owner, group or mode of the configuration as far as the system lets this account do so.
void adaptLockFile(const FilePlace& place, const Descriptor& lock, const struct stat& lockStatus)
{
    struct stat status = {};
    if (!statusAt(place.folder(), place.name(), status) || !S_ISREG(status.st_mode) ||
        (status.st_uid == lockStatus.st_uid && status.st_gid == lockStatus.st_gid &&
         (status.st_mode & permissions) == (lockStatus.st_mode & permissions))) {
        return;
    }
    try {
        const Descriptor configuration(openedConfiguration(place));
        keepAttributes(configuration, statusOf(configuration, place.name()), lock, place.name());
    } catch (const LDIF_Exception&) {
        // The lock is held all the same.
    }
}

/// The same for a lock file that can't be opened to be locked: it may be left from when the configuration was
/// read-only.
void letLockFileFollow(const FilePlace& place, const std::string& lockName)
{
    const Descriptor lock(openedAt(place.folder(), lockName, O_RDONLY, 0));
    struct stat status = {};
    if (lock.valid() && fstat(lock.get(), &status) == 0 && S_ISREG(status.st_mode) && isOurs(status)) {
        adaptLockFile(place, lock, status);
    }
}

/// Letters, digits and signs of a text from outside, for a message.
std::string printable(std::string_view text)
{
    std::string shown;
    for (const char character : text) {
        if (character > ' ' && character < '\x7f') {
            shown += character;
        }
    }
    return shown;
}

/// Writes who holds the lock. It is a help for others: a disk that is full keeps nobody from the lock.
void writeHolder(const Descriptor& lock)
{
    const std::string holder = std::to_string(getpid()) + "\n" + printable(program_invocation_short_name) + "\n";
    if (retried([&] { return ftruncate(lock.get(), 0); }) == 0) {
        static_cast<void>(writeAll(lock, holder));
    }
}

/// "process 2317 (veltor)", as far as the holder has told.
std::string readHolder(const Descriptor& lock)
{
    std::array<char, 256> bytes;
    const ssize_t size = retried([&] { return pread(lock.get(), bytes.data(), bytes.size(), 0); });
    const std::string_view text(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    const std::size_t end = text.find('\n');
    const std::string_view process = text.substr(0, end);
    constexpr std::size_t mostDigits = 10;
    if (end == std::string_view::npos || process.empty() || process.size() > mostDigits ||
        process.find_first_not_of("0123456789") != std::string_view::npos) {
        return "another program";
    }
    const std::string_view rest = text.substr(end + 1);
    const std::string program = printable(rest.substr(0, rest.find('\n')));
    return "process " + std::string(process) + (program.empty() ? "" : " (" + program + ")");
}

/// Tries once to take the lock.
///
/// @param holder  is set to who has it
/// @return        the lock file, or -1 while somebody else has it or it is not the one that the name leads to
int tryLock(const FilePlace& place, const std::string& lockName, std::string& holder)
{
    const auto openLock = [&] { return openedAt(place.folder(), lockName, O_RDWR, 0); };
    int number = openLock();
    if (number < 0 && errno == ENOENT) {
        makeLockFile(place, lockName);
        number = openLock();
    } else if (number < 0 && errno == EACCES) {
        letLockFileFollow(place, lockName);
        number = openLock();
    }
    Descriptor lock(number);
    if (!lock.valid()) {
        if (errno == ENOENT) {
            return -1;
        }
        if (errno == ELOOP || errno == EISDIR || errno == ENXIO || errno == ENODEV) {
            refuse(__LINE__, result::insufficientAccess, fileOpen,
                   "\"" + lockName + "\", the lock of \"" + place.given() + "\", is not a plain file", errno);
        }
        refuseStep(__LINE__, "open the lock", lockName);
    }
    const struct stat status = statusOf(lock, lockName);
    if (!S_ISREG(status.st_mode)) {
        refuse(__LINE__, result::insufficientAccess, fileOpen,
               "\"" + lockName + "\", the lock of \"" + place.given() + "\", is not a plain file");
    }
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (retried([&] { return fcntl(lock.get(), F_OFD_SETLK, &whole); }) != 0) {
        if (errno != EAGAIN && errno != EACCES) {
            refuseStep(__LINE__, "lock", lockName);
        }
        holder = readHolder(lock);
        return -1;
    }
    struct stat named = {};
    if (!certainStatusAt(place.folder(), lockName, named) || !isSame(named, status)) {
        return -1;
    }
    removeLeftovers(place.folder(), place.name());
    if (isOurs(statusOf(lock, lockName))) {
        adaptLockFile(place, lock, status);
        writeHolder(lock);
    }
    return lock.release();
}

// ---- Installing ----

/// The copy of the old text.
class Backup
{
public:
    /// Refuses names that must not be replaced, before anything is touched.
    Backup(const FilePlace& place, const std::string& fileName) : Backup(place, fileName, split(fileName)) {}

    void make(const Descriptor& old, const struct stat& status, std::string_view text)
    {
        // In a folder of its own nobody cleans up under the lock.
        if (!besideConfiguration_) {
            removeLeftovers(folder_.get(), name_);
        }
        copy_.emplace(folder_.get(), besideConfiguration_ ? owner_ : name_);
        keepAttributes(old, status, copy_->file(), owner_);
        copy_->fill(text);
        // How old the text is, not how old the copy.
        setModified(copy_->file(), status.st_mtim, copy_->name());
        sync(copy_->file(), copy_->name());
    }

    void replaceOlder()
    {
        copy_->replace(name_);
        syncFolder(folder_, name_);
    }

private:
    Backup(const FilePlace& place, const std::string& fileName, const SplitName& parts)
        : folder_(opened(parts.folder, O_RDONLY | O_DIRECTORY, 0)), name_(parts.name), owner_(place.name())
    {
        if (!folder_.valid()) {
            refuseStep(__LINE__, "open the folder of the backup", fileName);
        }
        struct stat configurationFolder = {};
        if (retried([&] { return fstat(place.folder(), &configurationFolder); }) != 0) {
            refuseStep(__LINE__, "look at the folder of", place.name());
        }
        besideConfiguration_ = isSame(statusOf(folder_, fileName), configurationFolder);
        struct stat present = {};
        const bool replaces = certainStatusAt(folder_.get(), name_, present);
        if (name_.empty() || name_ == "." || name_ == ".." || (replaces && S_ISDIR(present.st_mode))) {
            errno = EISDIR;
            refuseStep(__LINE__, "write the backup", fileName);
        }
        if (replaces && (S_ISCHR(present.st_mode) || S_ISBLK(present.st_mode))) {
            // Who writes "/dev/null" wants no backup, and the system without that device even less.
            refuse(__LINE__, result::insufficientAccess, fileOpen,
                   "\"" + fileName + "\" can't be the backup: it is a device");
        }
        if (besideConfiguration_ && isTemporaryOf(place.name(), name_)) {
            refuse(__LINE__, result::insufficientAccess, fileOpen,
                   "\"" + fileName + "\" can't be the backup: what is named so is removed as a leftover");
        }
        for (const std::string& taken : {place.name(), lockNameOf(place)}) {
            if ((besideConfiguration_ && name_ == taken) || (replaces && leadsTo(place.folder(), taken, present))) {
                refuse(__LINE__, result::insufficientAccess, fileOpen,
                       "\"" + fileName + "\" can't be the backup: it leads to the file or its lock");
            }
        }
    }

    /// True when the backup's name is another spelling of that one, or a link through which it is reached.
    bool leadsTo(int folder, const std::string& name, const struct stat& present) const
    {
        struct stat status = {};
        struct stat target = {};
        if (!certainStatusAt(folder, name, status)) {
            return false;
        }
        return S_ISLNK(present.st_mode) ? statusAt(folder_.get(), name_, target, 0) && isSame(target, status)
                                        : isSame(present, status) && status.st_nlink == 1;
    }

    Descriptor folder_;
    std::string name_;
    std::string owner_; // the configuration's name
    bool besideConfiguration_ = false;
    std::optional<Temporary> copy_;
};

[[noreturn]] void refuseChanged(int line, const FilePlace& place)
{
    refuse(
        line, result::busy, result::busy,
        "\"" + place.given() +
            "\" was changed meanwhile by a program that ignores the lock; nothing was written, and what that program "
            "put in the place of the old text is in place");
}

/// Opens the file that an install replaces.
/// @return never an invalid one
int openedForInstall(const FilePlace& place)
{
    const int number = openedAt(place.folder(), place.name(), O_RDONLY, 0);
    if (number >= 0) {
        return number;
    }
    if (errno == ENOENT) {
        refuse(__LINE__, result::busy, result::busy,
               "\"" + place.given() +
                   "\" is gone: a program that ignores the lock moved or removed it; nothing was written, and wherever "
                   "that program left it the old text is in place");
    }
    if (errno == ELOOP || errno == ENXIO) {
        refuseChanged(__LINE__, place);
    }
    refuseStep(__LINE__, "open", place.name());
}

/// Refuses an install over a text that it does not begin from.
void expectText(const FilePlace& place, std::string_view expected)
{
    const Descriptor file(openedForInstall(place));
    if (!S_ISREG(statusOf(file, place.name()).st_mode) || !holds(file, expected, place.name())) {
        refuseChanged(__LINE__, place);
    }
}

/// @param installed  is set when the name holds the new text
struct stat installSteps(const FilePlace& place, std::string_view text, std::string_view expected,
                         const std::string& backupFileName, bool& installed)
{
    const Descriptor folder(readable(place.folder(), place.name()));
    std::optional<Backup> backup;
    if (!backupFileName.empty()) {
        backup.emplace(place, backupFileName);
    }
    const Descriptor old(openedForInstall(place));
    const struct stat status = statusOf(old, place.name());
    if (!S_ISREG(status.st_mode)) {
        refuseChanged(__LINE__, place);
    }

    Temporary fresh(place.folder(), place.name());
    keepAttributes(old, status, fresh.file(), place.name());
    fresh.fill(text);
    setLater(fresh.file(), status, fresh.name());
    sync(fresh.file(), fresh.name());
    if (backup.has_value()) {
        backup->make(old, status, expected);
        // A change by others leaves the older backup alone, too.
        expectText(place, expected);
        backup->replaceOlder();
    }
    // Once more: waiting for the disk takes time, and this comparison is all that stands against such a change.
    expectText(place, expected);
    fresh.replace(place.name());
    installed = true;
    syncFolder(folder, place.name());
    return statusOf(fresh.file(), place.name());
}

// ---- Creating ----

[[noreturn]] void refuseExisting(int line, const std::string& fileName)
{
    refuse(line, result::entryAlreadyExists, result::entryAlreadyExists,
           "\"" + fileName + "\" exists already; it stays as it is");
}

void createSteps(const std::string& fileName, std::string_view text)
{
    constexpr mode_t ownerWritesGroupReads = 0640;
    const SplitName parts = split(fileName);
    const Descriptor folder(opened(parts.folder, O_PATH | O_DIRECTORY, 0));
    if (!folder.valid()) {
        refuseStep(__LINE__, "open the folder of", fileName);
    }
    struct stat status = {};
    if (statusAt(folder.get(), parts.name, status)) {
        refuseExisting(__LINE__, fileName);
    }
    if (parts.name.empty()) {
        errno = EISDIR;
        refuseStep(__LINE__, "make", fileName);
    }
    const Descriptor durableFolder(readable(folder.get(), fileName));
    Temporary fresh(folder.get(), parts.name);
    if (retried([&] { return fchmod(fresh.file().get(), ownerWritesGroupReads); }) != 0) {
        refuseStep(__LINE__, "set the mode of", fresh.name());
    }
    fresh.fill(text);
    sync(fresh.file(), fresh.name());
    if (!fresh.appear(parts.name)) {
        refuseExisting(__LINE__, fileName);
    }
    try {
        syncFolder(durableFolder, fileName);
    } catch (...) {
        // Whole or not at all: what may be gone after a crash goes now.
        if (fresh.standsAt(parts.name)) {
            static_cast<void>(unlinkat(folder.get(), parts.name.c_str(), 0));
        }
        throw;
    }
}

} // namespace

// ---- FilePlace ----

FilePlace::FilePlace(const std::string& fileName) : given_(fileName)
{
    namingFile(fileName, [&] {
        std::array<char, PATH_MAX> real = {};
        if (realpath(fileName.c_str(), real.data()) == nullptr) {
            refuse(__LINE__, result::connectError, fileNotFound, "_stat()", errno);
        }
        SplitName parts = split(real.data());
        // The root folder is a file of no name.
        name_ = parts.name.empty() ? "." : std::move(parts.name);
        folder_ = opened(parts.folder, O_PATH | O_DIRECTORY, 0);
        if (folder_ < 0) {
            refuse(__LINE__, result::connectError, fileNotFound, "_stat()", errno);
        }
    });
}

FilePlace::FilePlace(FilePlace&& other) noexcept
{
    *this = std::move(other);
}

FilePlace& FilePlace::operator=(FilePlace&& other) noexcept
{
    std::swap(folder_, other.folder_);
    std::swap(name_, other.name_);
    std::swap(given_, other.given_);
    return *this;
}

FilePlace::~FilePlace()
{
    if (folder_ >= 0) {
        close(folder_);
    }
}

FileText FilePlace::read(struct stat& status) const
{
    return namingFile(given_, [&] {
        const Descriptor file(openedAt(folder_, name_, O_RDONLY, 0));
        if (!file.valid() && errno == ENOENT) {
            refuse(__LINE__, result::connectError, fileNotFound, "_stat()", ENOENT);
        }
        try {
            return readOpened(file, given_, status);
        } catch (const std::system_error&) {
            if (S_ISDIR(status.st_mode)) {
                refuseNoFile(__LINE__, *this);
            }
            throw;
        }
    });
}

// ---- WriterLock ----

WriterLock::WriterLock(const FilePlace& place, int timeoutMs)
{
    constexpr auto pause = std::chrono::milliseconds(2);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    namingFile(place.given(), [&] {
        const std::string lockName = lockNameOf(place);
        for (;;) {
            std::string holder = "another program";
            file_ = tryLock(place, lockName, holder);
            if (file_ >= 0) {
                return;
            }
            if (std::chrono::steady_clock::now() >= deadline) {
                refuse(__LINE__, result::busy, result::busy, "\"" + place.given() + "\" is being changed by " + holder);
            }
            std::this_thread::sleep_for(pause);
        }
    });
}

WriterLock::~WriterLock()
{
    // Closed, not unlocked: a child that was forked meanwhile keeps the lock, and none takes it from its parent.
    close(file_);
}

// ---- Writing ----

struct stat install(const FilePlace& place, std::string_view text, std::string_view expected,
                    const std::string& backupFileName)
{
    // Made while there is memory for it: a failure that there is none left for has to say which text is in place, too.
    LDIF_Exception shortage(VELTOR_HERE, result::other, otherSystemError,
                            "System error installing the text; the old text is in place");
    shortage.configFile = place.given();
    shortage.markSystemFailure();
    bool installed = false;
    try {
        return namingFile(place.given(), [&] {
            try {
                return installSteps(place, text, expected, backupFileName, installed);
            } catch (LDIF_Exception& failure) {
                if (!failure.msg.ends_with("is in place")) {
                    failure.msg += installed ? "; the new text is in place" : "; the old text is in place";
                }
                throw;
            }
        });
    } catch (const LDIF_Exception&) {
        throw;
    } catch (...) {
        if (installed) {
            constexpr std::string_view old = "old";
            shortage.msg.replace(shortage.msg.find(old), old.size(), "new");
        }
        throw std::move(shortage);
    }
}

void needsFreeName(const std::string& fileName)
{
    struct stat status = {};
    if (statusAt(AT_FDCWD, fileName, status)) {
        namingFile(fileName, [&] { refuseExisting(__LINE__, fileName); });
    }
}

void createFile(const std::string& fileName, std::string_view text)
{
    namingFile(fileName, [&] {
        try {
            createSteps(fileName, text);
        } catch (LDIF_Exception& failure) {
            if (failure.ldapErr != result::entryAlreadyExists) {
                failure.msg += "; nothing is left behind";
            }
            throw;
        }
    });
}

} // namespace veltor::detail
