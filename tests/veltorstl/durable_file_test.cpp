// The file system's side of the safe mode: the place of a file, the writer lock, installs and new files.
//
// The linker leads the system calls of the library here (--wrap), so that a test can see their order, make each of them
// fail, or do something between two of them. Linked with support/failing_allocator.cpp, too.
#include "durable_file.h"

#include "LDIF_Exception.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <limits>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/failure_of.h"
#include "support/file_size_limit.h"
#include "support/temporary_folder.h"
#include "support/told_by_child.h"

namespace detail = veltor::detail;
using veltor::detail::createFile;
using veltor::detail::FilePlace;
using veltor::detail::install;
using veltor::test::FailingAllocator;
using veltor::test::failureOf;
using veltor::test::nobody;
using veltor::test::Shortage;
using veltor::test::TemporaryFolder;
using veltor::test::withFileSizeLimit;

namespace {

// ---- What stands between the library and the system ----

struct System
{
    bool on = false;
    std::vector<std::string> calls;
    std::size_t failing = 0; ///< the call that fails, 1-based; 0: none
    int error = 0;           ///< with this
    std::string failingName; ///< or the first call of this name
    std::function<void(const std::string& call, std::size_t number)> before;
    std::size_t mostBytes = 0; ///< that a write takes; 0: all
    bool damages = false;      ///< writes something else

    /// Notes a call. False, and errno, when it has to fail.
    bool step(const char* call)
    {
        if (!on) {
            return true;
        }
        calls.emplace_back(call);
        if (before) {
            on = false;
            before(call, calls.size());
            on = true;
        }
        if (calls.size() == failing || failingName == call) {
            failingName.clear();
            errno = error;
            return false;
        }
        return true;
    }
};

System world;

/// Watches the system while it lives.
class Watch
{
public:
    Watch()
    {
        world = System();
        world.on = true;
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    ~Watch()
    {
        world.on = false;
        world.before = nullptr;
    }
};

} // namespace

extern "C" {

int __real_openat(int folder, const char* name, int flags, ...);
int __real_fstat(int file, struct stat* status);
int __real_fstatat(int folder, const char* name, struct stat* status, int flags);
int __real_fchown(int file, uid_t owner, gid_t group);
int __real_fchmod(int file, mode_t mode);
ssize_t __real_fgetxattr(int file, const char* name, void* value, size_t size);
int __real_fsetxattr(int file, const char* name, const void* value, size_t size, int flags);
int __real_fremovexattr(int file, const char* name);
ssize_t __real_read(int file, void* bytes, size_t size);
ssize_t __real_write(int file, const void* bytes, size_t size);
off_t __real_lseek(int file, off_t offset, int whence);
int __real_futimens(int file, const struct timespec* times);
int __real_fsync(int file);
int __real_renameat(int from, const char* fromName, int to, const char* toName);
int __real_renameat2(int from, const char* fromName, int to, const char* toName, unsigned flags);
int __real_linkat(int from, const char* fromName, int to, const char* toName, int flags);
int __real_fcntl(int file, int command, ...);
int __real_ftruncate(int file, off_t size);

int __wrap_openat(int folder, const char* name, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = static_cast<mode_t>((flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0);
    va_end(arguments);
    return world.step("openat") ? __real_openat(folder, name, flags, mode) : -1;
}

int __wrap_fstat(int file, struct stat* status)
{
    return world.step("fstat") ? __real_fstat(file, status) : -1;
}

int __wrap_fstatat(int folder, const char* name, struct stat* status, int flags)
{
    return world.step("fstatat") ? __real_fstatat(folder, name, status, flags) : -1;
}

int __wrap_fchown(int file, uid_t owner, gid_t group)
{
    return world.step("fchown") ? __real_fchown(file, owner, group) : -1;
}

int __wrap_fchmod(int file, mode_t mode)
{
    return world.step("fchmod") ? __real_fchmod(file, mode) : -1;
}

ssize_t __wrap_fgetxattr(int file, const char* name, void* value, size_t size)
{
    return world.step("fgetxattr") ? __real_fgetxattr(file, name, value, size) : -1;
}

int __wrap_fsetxattr(int file, const char* name, const void* value, size_t size, int flags)
{
    return world.step("fsetxattr") ? __real_fsetxattr(file, name, value, size, flags) : -1;
}

int __wrap_fremovexattr(int file, const char* name)
{
    return world.step("fremovexattr") ? __real_fremovexattr(file, name) : -1;
}

ssize_t __wrap_read(int file, void* bytes, size_t size)
{
    return world.step("read") ? __real_read(file, bytes, size) : -1;
}

ssize_t __wrap_write(int file, const void* bytes, size_t size)
{
    if (!world.step("write")) {
        return -1;
    }
    if (world.on && world.damages && size > 0) {
        std::string other(static_cast<const char*>(bytes), size);
        other.back() = other.back() == 'x' ? 'y' : 'x';
        return __real_write(file, other.data(), size);
    }
    return __real_write(file, bytes, world.on && world.mostBytes != 0 ? std::min(size, world.mostBytes) : size);
}

off_t __wrap_lseek(int file, off_t offset, int whence)
{
    return world.step("lseek") ? __real_lseek(file, offset, whence) : -1;
}

int __wrap_futimens(int file, const struct timespec* times)
{
    return world.step("futimens") ? __real_futimens(file, times) : -1;
}

int __wrap_fsync(int file)
{
    struct stat status = {};
    const bool isFolder = __real_fstat(file, &status) == 0 && S_ISDIR(status.st_mode);
    return world.step(isFolder ? "fsync of a folder" : "fsync") ? __real_fsync(file) : -1;
}

int __wrap_renameat(int from, const char* fromName, int to, const char* toName)
{
    // Only where it is watched: where memory is short nothing here may ask for some.
    if (world.on && !world.step(("renameat to " + std::string(toName)).c_str())) {
        return -1;
    }
    return __real_renameat(from, fromName, to, toName);
}

int __wrap_renameat2(int from, const char* fromName, int to, const char* toName, unsigned flags)
{
    return world.step("renameat2") ? __real_renameat2(from, fromName, to, toName, flags) : -1;
}

int __wrap_linkat(int from, const char* fromName, int to, const char* toName, int flags)
{
    return world.step("linkat") ? __real_linkat(from, fromName, to, toName, flags) : -1;
}

int __wrap_fcntl(int file, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return world.step("fcntl") ? __real_fcntl(file, command, argument) : -1;
}

int __wrap_ftruncate(int file, off_t size)
{
    return world.step("ftruncate") ? __real_ftruncate(file, size) : -1;
}
}

namespace {

// ---- Files ----

constexpr std::string_view oldText = "dn: o=x\ncn: old\n\n";
constexpr std::string_view newText = "dn: o=x\ncn: new\ncn: more\n\n";

using Names = std::set<std::string>;

/// What stands in a folder.
Names namesIn(const TemporaryFolder& folder, std::string_view name = "")
{
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path(name))) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

struct stat statusOf(const std::string& name)
{
    struct stat status = {};
    EXPECT_EQ(lstat(name.c_str(), &status), 0) << name;
    return status;
}

mode_t modeOf(const std::string& name)
{
    return statusOf(name).st_mode & 07777U;
}

void setModified(const std::string& name, time_t seconds)
{
    const struct timespec times[2] = {{seconds, 0}, {seconds, 500}};
    ASSERT_EQ(utimensat(AT_FDCWD, name.c_str(), times, 0), 0);
}

void makeSocket(const std::string& name)
{
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(name.size(), sizeof address.sun_path);
    name.copy(address.sun_path, name.size());
    ASSERT_EQ(bind(listening, reinterpret_cast<const struct sockaddr*>(&address), sizeof address), 0);
    close(listening);
}

/// What may stand in a file's place and is none. Only the dangling link leads nowhere.
struct Intruder
{
    const char* name;
    std::function<void(const std::string&)> make;
};

const std::vector<Intruder>& intruders()
{
    static const std::vector<Intruder> rows = {
        {"folder", [](const std::string& name) { ASSERT_EQ(mkdir(name.c_str(), 0700), 0); }},
        {"fifo", [](const std::string& name) { ASSERT_EQ(mkfifo(name.c_str(), 0600), 0); }},
        {"socket", makeSocket},
        {"link",
         [](const std::string& name) {
             ASSERT_EQ(symlink("other", name.c_str()), 0);
             const std::string other = (std::filesystem::path(name).parent_path() / "other").string();
             const int file = open(other.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
             ASSERT_EQ(write(file, oldText.data(), oldText.size()), static_cast<ssize_t>(oldText.size()));
             close(file);
         }},
        {"dangling link", [](const std::string& name) { ASSERT_EQ(symlink("nowhere", name.c_str()), 0); }},
    };
    return rows;
}

/// An access list as the system stores it: the owner and the user 4242 may read and write, nobody else anything.
std::string listForOneMore()
{
    struct Rule
    {
        std::uint16_t who;
        std::uint16_t what;
        std::uint32_t id;
    };
    constexpr std::uint32_t nobodySpecial = 0xFFFFFFFFU;
    const Rule rules[] = {
        {1, 6, nobodySpecial}, {2, 6, 4242}, {4, 0, nobodySpecial}, {16, 6, nobodySpecial}, {32, 0, nobodySpecial}};
    std::string list("\2\0\0\0", 4);
    for (const Rule& rule : rules) {
        list.append(reinterpret_cast<const char*>(&rule), sizeof rule);
    }
    return list;
}

constexpr const char* accessList = "system.posix_acl_access";

std::string attributeOf(const std::string& name, const char* attribute)
{
    char value[1024];
    const ssize_t size = getxattr(name.c_str(), attribute, value, sizeof value);
    return size < 0 ? "none" : std::string(value, static_cast<std::size_t>(size));
}

bool give(const std::string& name, const char* attribute, const std::string& value)
{
    return setxattr(name.c_str(), attribute, value.data(), value.size(), 0) == 0;
}

/// The codes and the message of what the work raises, or what it returns.
std::string told(const std::function<std::string()>& work)
{
    try {
        return work();
    } catch (const LDIF_Exception& failure) {
        return std::to_string(failure.ldapErr) + "/" + std::to_string(failure.extErr) + " " + failure.msg;
    } catch (const std::exception& failure) {
        return failure.what();
    }
}

/// What the work tells as a user without rights.
std::string toldByNobody(const std::function<std::string()>& work)
{
    return veltor::test::toldByNobody([&work] { return told(work); });
}

/// Another process that holds something from construction until it is told to end.
class Holder
{
public:
    explicit Holder(const std::function<void()>& take)
    {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        EXPECT_EQ(pipe(end_), 0);
        child_ = fork();
        if (child_ == 0) {
            close(end_[1]);
            take();
            char byte = 'x';
            _exit(write(ready[1], &byte, 1) == 1 && read(end_[0], &byte, 1) == 0 ? 0 : 1);
        }
        close(ready[1]);
        close(end_[0]);
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder()
    {
        if (child_ > 0) {
            end();
        }
    }

    pid_t process() const { return child_; }

    void kill()
    {
        ::kill(child_, SIGKILL);
        end();
    }

    void end()
    {
        close(end_[1]);
        int status = 0;
        EXPECT_EQ(waitpid(std::exchange(child_, -1), &status, 0) > 0, true);
    }

private:
    pid_t child_ = -1;
    int end_[2] = {-1, -1};
};

/// A folder with the configuration "f" in it.
class OneFile : public testing::Test
{
protected:
    OneFile() : file(folder.write("f", oldText))
    {
        EXPECT_EQ(chmod(folder.path().c_str(), 0755), 0);
        EXPECT_EQ(chmod(file.c_str(), 0600), 0);
    }

    /// The lock as busy as `expected` tells, or free for an empty text.
    void expectBusy(const std::string& expected, int timeoutMs = 0) const
    {
        const FilePlace place(file);
        EXPECT_EQ(told([&] {
                      const detail::WriterLock lock(place, timeoutMs);
                      return std::string();
                  }),
                  expected.empty() ? "" : "51/51 \"" + file + "\" is being changed by " + expected);
    }

    std::string self() const
    {
        return "process " + std::to_string(getpid()) + " (" + program_invocation_short_name + ")";
    }

    const TemporaryFolder folder;
    const std::string file;
};

class WriterLock : public OneFile
{
protected:
    /// What an ordinary user is told who takes the lock.
    std::string tryAsNobody() const
    {
        return toldByNobody([this] {
            const FilePlace place(file);
            const detail::WriterLock lock(place, 0);
            return std::string("locked");
        });
    }
};

class Install : public OneFile
{
};

#define SKIP_UNLESS_ROOT()                                                                                             \
    if (geteuid() != 0) {                                                                                              \
        GTEST_SKIP() << "only root can become another user";                                                           \
    }

} // namespace

// ---- FilePlace ----

TEST(FilePlace, EveryLinkLeadsToTheOnePlace)
{
    const TemporaryFolder folder;
    const std::string file = folder.write("f", oldText);
    ASSERT_EQ(mkdir(folder.path("sub").c_str(), 0700), 0);
    ASSERT_EQ(symlink("f", folder.path("near").c_str()), 0);
    ASSERT_EQ(symlink("../near", folder.path("sub/far").c_str()), 0);
    ASSERT_EQ(symlink("sub", folder.path("linked").c_str()), 0);
    for (const char* const name : {"f", "near", "sub/far", "linked/far", "sub/../f", ".//f"}) {
        SCOPED_TRACE(name);
        const FilePlace place(folder.path(name));
        EXPECT_EQ(place.name(), "f");
        EXPECT_EQ(place.given(), folder.path(name));
        struct stat opened = {};
        ASSERT_EQ(fstat(place.folder(), &opened), 0);
        EXPECT_EQ(opened.st_ino, statusOf(folder.path()).st_ino);
    }
}

TEST(FilePlace, ANameThatLeadsNowhereIsReportedAsABindReportsIt)
{
    const TemporaryFolder folder;
    folder.write("f", oldText);
    ASSERT_EQ(symlink("nowhere", folder.path("dangling").c_str()), 0);
    ASSERT_EQ(symlink("loop", folder.path("loop").c_str()), 0);
    const struct
    {
        const char* name;
        int error;
    } rows[] = {{"missing", ENOENT}, {"dangling", ENOENT}, {"loop", ELOOP}, {"f/g", ENOTDIR}, {"no/f", ENOENT}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto failure = failureOf([&] { const FilePlace place(folder.path(row.name)); });
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->ldapErr, 91);
        EXPECT_EQ(failure->extErr, 1003);
        EXPECT_EQ(failure->msg, "_stat()");
        EXPECT_EQ(failure->sysErrno, row.error);
        EXPECT_EQ(failure->configFile, folder.path(row.name));
    }
}

TEST(FilePlace, ReadsTheTextAndWhatTheFileWas)
{
    const TemporaryFolder folder;
    const std::string file = folder.write("f", oldText);
    setModified(file, 1234567);
    FilePlace moved(file);
    const FilePlace place(std::move(moved));
    struct stat status = {};
    EXPECT_EQ(place.read(status).view(), oldText);
    EXPECT_EQ(status.st_mtim.tv_sec, 1234567);
    EXPECT_EQ(status.st_ino, statusOf(file).st_ino);
}

TEST(FilePlace, WhatTookTheFilesPlaceIsNeitherReadNorWaitedFor)
{
    for (const Intruder& row : intruders()) {
        SCOPED_TRACE(row.name);
        const TemporaryFolder folder;
        const FilePlace place(folder.write("f", oldText));
        ASSERT_EQ(unlink(folder.path("f").c_str()), 0);
        row.make(folder.path("f"));
        struct stat status = {};
        const std::string expected = std::string_view(row.name) == "folder"
                                         ? "91/1004 \"" + folder.path("f") + "\" is not a plain file"
                                         : "91/1004 ifstream()";
        EXPECT_EQ(told([&] { return std::string(place.read(status).view()); }), expected);
    }
    const TemporaryFolder folder;
    const FilePlace place(folder.write("f", oldText));
    ASSERT_EQ(unlink(folder.path("f").c_str()), 0);
    struct stat status = {};
    EXPECT_EQ(told([&] { return std::string(place.read(status).view()); }), "91/1003 _stat()");
}

TEST(FilePlace, StaysInAFolderThatIsMovedAway)
{
    const TemporaryFolder folder;
    ASSERT_EQ(mkdir(folder.path("a").c_str(), 0700), 0);
    const FilePlace place(folder.write("a/f", oldText));
    ASSERT_EQ(rename(folder.path("a").c_str(), folder.path("b").c_str()), 0);
    ASSERT_EQ(mkdir(folder.path("a").c_str(), 0700), 0);
    folder.write("a/f", "somebody else's");
    install(place, newText, oldText, "");
    EXPECT_EQ(folder.read("b/f"), newText);
    EXPECT_EQ(folder.read("a/f"), "somebody else's");
}

// ---- WriterLock ----

TEST_F(WriterLock, TheLockFileHasTheConfigurationsOwnerGroupAndMode)
{
    for (const mode_t mode : {0600U, 0660U, 0644U}) {
        SCOPED_TRACE(mode);
        unlink(folder.path("f.lock").c_str());
        ASSERT_EQ(chmod(file.c_str(), mode), 0);
        if (geteuid() == 0) {
            ASSERT_EQ(chown(file.c_str(), 1234, 5678), 0);
        }
        const mode_t mask = umask(0077);
        {
            const FilePlace place(file);
            const detail::WriterLock lock(place, 0);
        }
        umask(mask);
        EXPECT_EQ(modeOf(folder.path("f.lock")), mode);
        EXPECT_EQ(statusOf(folder.path("f.lock")).st_uid, statusOf(file).st_uid);
        EXPECT_EQ(statusOf(folder.path("f.lock")).st_gid, statusOf(file).st_gid);
        EXPECT_EQ(namesIn(folder), (Names{"f", "f.lock"}));
    }
}

TEST_F(WriterLock, TheLockFileFollowsAChangeOfTheMode)
{
    expectBusy("");
    ASSERT_EQ(modeOf(folder.path("f.lock")), 0600U);
    ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    expectBusy("");
    EXPECT_EQ(modeOf(folder.path("f.lock")), 0640U);
}

TEST_F(WriterLock, AConfigurationThatWasReadOnlyLeavesItsOwnerNoLockThatCannotBeTaken)
{
    SKIP_UNLESS_ROOT();
    ASSERT_EQ(chown(folder.path().c_str(), nobody, nobody), 0);
    ASSERT_EQ(chown(file.c_str(), nobody, nobody), 0);
    ASSERT_EQ(chmod(file.c_str(), 0440), 0);
    EXPECT_EQ(tryAsNobody(), "50/1004 Unable to open the lock \"f.lock\": Permission denied");
    EXPECT_EQ(tryAsNobody(), "50/1004 Unable to open the lock \"f.lock\": Permission denied");
    ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    EXPECT_EQ(tryAsNobody(), "locked");
    EXPECT_EQ(modeOf(folder.path("f.lock")), 0640U);
}

TEST_F(WriterLock, AnotherNameOfAFileThatCannotBeOpenedIsLeftAsItIs)
{
    SKIP_UNLESS_ROOT();
    ASSERT_EQ(chown(folder.path().c_str(), nobody, nobody), 0);
    ASSERT_EQ(chown(file.c_str(), nobody, nobody), 0);
    folder.write("other", "x");
    ASSERT_EQ(chown(folder.path("other").c_str(), nobody, nobody), 0);
    ASSERT_EQ(chmod(folder.path("other").c_str(), 0400), 0);
    ASSERT_EQ(link(folder.path("other").c_str(), folder.path("f.lock").c_str()), 0);
    EXPECT_EQ(toldByNobody([&] {
                  const FilePlace place(file);
                  const detail::WriterLock lock(place, 0);
                  return std::string("locked");
              }),
              "50/1004 Unable to open the lock \"f.lock\": Permission denied");
    EXPECT_EQ(modeOf(folder.path("other")), 0400U);
}

TEST_F(WriterLock, TheHolderLeavesItsProcessAndProgramAndTheFileStays)
{
    folder.write("f.lock", std::string(200, '7'));
    const std::string expected = std::to_string(getpid()) + "\n" + program_invocation_short_name + "\n";
    const ino_t inode = statusOf(folder.path("f.lock")).st_ino;
    {
        const FilePlace place(file);
        const detail::WriterLock lock(place, 0);
        EXPECT_EQ(folder.read("f.lock"), expected);
    }
    EXPECT_EQ(folder.read("f.lock"), expected);
    EXPECT_EQ(statusOf(folder.path("f.lock")).st_ino, inode);
}

TEST_F(WriterLock, TwoHandlesOfOneProcessAreTwoWriters)
{
    const FilePlace place(file);
    {
        const detail::WriterLock lock(place, 0);
        expectBusy(self());
    }
    expectBusy("");
}

TEST_F(WriterLock, TwoLinksMeanOneLock)
{
    ASSERT_EQ(mkdir(folder.path("sub").c_str(), 0700), 0);
    ASSERT_EQ(symlink("../f", folder.path("sub/g").c_str()), 0);
    const FilePlace place(folder.path("sub/g"));
    const detail::WriterLock lock(place, 0);
    expectBusy(self());
    EXPECT_EQ(namesIn(folder, "sub"), Names{"g"});
}

TEST_F(WriterLock, TheWholeFileIsLockedByAnOpenFileDescription)
{
    const FilePlace place(file);
    const detail::WriterLock lock(place, 0);
    const int other = open(folder.path("f.lock").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(other, 0);
    struct flock found = {};
    found.l_type = F_WRLCK;
    found.l_start = 1'000'000;
    found.l_len = 1;
    ASSERT_EQ(fcntl(other, F_OFD_GETLK, &found), 0);
    close(other);
    EXPECT_EQ(found.l_type, F_WRLCK);
    EXPECT_EQ(found.l_start, 0);
    EXPECT_EQ(found.l_len, 0);
    EXPECT_EQ(found.l_pid, -1) << "of an open file description, not of a process";
}

TEST_F(WriterLock, ABusyLockIsTriedUntilTheDeadline)
{
    const FilePlace place(file);
    const detail::WriterLock lock(place, 0);
    const auto start = std::chrono::steady_clock::now();
    expectBusy(self(), 120);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(120));
    EXPECT_LT(waited, std::chrono::seconds(20));
}

TEST_F(WriterLock, ALockThatGetsFreeIsTaken)
{
    const FilePlace place(file);
    std::optional<detail::WriterLock> lock(std::in_place, place, 0);
    std::thread releasing([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        lock.reset();
    });
    expectBusy("", 30'000);
    releasing.join();
}

TEST_F(WriterLock, AnotherProcessIsNamedAndADeadOneBlocksNobody)
{
    const FilePlace place(file);
    Holder holder([&] { new detail::WriterLock(place, 0); });
    expectBusy("process " + std::to_string(holder.process()) + " (" + program_invocation_short_name + ")");
    holder.kill();
    EXPECT_NE(folder.read("f.lock"), "") << "what it wrote is still there";
    expectBusy("");
}

TEST_F(WriterLock, AChildThatIsForkedMeanwhileHoldsTheLockToo)
{
    const FilePlace place(file);
    std::optional<detail::WriterLock> lock(std::in_place, place, 0);
    Holder child([] {});
    lock.reset();
    expectBusy(self());
    child.end();
    expectBusy("");
}

TEST_F(WriterLock, AChildThatLetsGoLeavesTheLockToItsParent)
{
    const FilePlace place(file);
    std::optional<detail::WriterLock> lock(std::in_place, place, 0);
    const Holder child([&] { lock.reset(); });
    expectBusy(self());
}

TEST_F(WriterLock, AProgramThatAChildExecutesHoldsNothing)
{
    const FilePlace place(file);
    std::optional<detail::WriterLock> lock(std::in_place, place, 0);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[0], 0);
        close(ends[1]);
        execl("/bin/cat", "cat", static_cast<char*>(nullptr));
        _exit(1);
    }
    close(ends[0]);
    lock.reset();
    // The lock goes with the execution, which takes its time.
    expectBusy("", 30'000);
    EXPECT_EQ(waitpid(child, nullptr, WNOHANG), 0) << "the program is still there";
    close(ends[1]);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(WriterLock, ALockFileThatIsReplacedWhileOneWaitsIsLeft)
{
    const FilePlace place(file);
    const detail::WriterLock lock(place, 0);
    std::optional<detail::WriterLock> second;
    std::atomic<bool> taken{false};
    std::thread waiting([&] {
        second.emplace(place, 30'000);
        taken = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(taken);
    ASSERT_EQ(rename(folder.path("f.lock").c_str(), folder.path("away").c_str()), 0);
    waiting.join();
    EXPECT_TRUE(folder.exists("f.lock")) << "it was made anew";
    expectBusy(self());
}

TEST_F(WriterLock, ALockFileThatIsReplacedWhileItIsLockedIsLeft)
{
    expectBusy("");
    folder.write("next", "");
    const ino_t next = statusOf(folder.path("next")).st_ino;
    const FilePlace place(file);
    const Watch watch;
    std::size_t locked = 0;
    world.before = [&](const std::string& call, std::size_t) {
        if (call == "fcntl" && ++locked == 1) {
            ASSERT_EQ(rename(folder.path("next").c_str(), folder.path("f.lock").c_str()), 0);
        }
    };
    const detail::WriterLock lock(place, 30'000);
    world.on = false;
    EXPECT_EQ(locked, 2U) << "the whole began again";
    EXPECT_EQ(statusOf(folder.path("f.lock")).st_ino, next);
    expectBusy(self());
}

TEST_F(WriterLock, ALockFileThatVanishesBeforeItIsOpenedIsMadeAnew)
{
    const FilePlace place(file);
    const Watch watch;
    bool isRemoved = false;
    world.before = [&](const std::string& call, std::size_t) {
        if (call == "openat" && !isRemoved && folder.exists("f.lock")) {
            ASSERT_EQ(unlink(folder.path("f.lock").c_str()), 0);
            isRemoved = true;
        }
    };
    const detail::WriterLock lock(place, 30'000);
    world.on = false;
    EXPECT_TRUE(isRemoved);
    EXPECT_TRUE(folder.exists("f.lock"));
    expectBusy(self());
}

TEST_F(WriterLock, WhatIsNoFileInTheLocksPlaceIsReportedAndLeftAlone)
{
    for (const Intruder& row : intruders()) {
        SCOPED_TRACE(row.name);
        row.make(folder.path("f.lock"));
        const Names before = namesIn(folder);
        const FilePlace place(file);
        const auto failure = failureOf([&] { const detail::WriterLock lock(place, 30'000); });
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->ldapErr, 50);
        EXPECT_EQ(failure->extErr, 1004);
        EXPECT_EQ(failure->msg, "\"f.lock\", the lock of \"" + file + "\", is not a plain file");
        EXPECT_EQ(failure->configFile, file);
        EXPECT_EQ(namesIn(folder), before);
        EXPECT_FALSE(folder.exists("nowhere"));
        std::filesystem::remove(folder.path("f.lock"));
    }
}

TEST_F(WriterLock, AnotherNameOfAForeignFileIsLockedButNotWritten)
{
    const std::string other = folder.write("other", "precious");
    ASSERT_EQ(chmod(other.c_str(), 0604), 0);
    ASSERT_EQ(link(other.c_str(), folder.path("f.lock").c_str()), 0);
    const FilePlace place(file);
    const detail::WriterLock lock(place, 0);
    expectBusy("another program");
    EXPECT_EQ(folder.read("other"), "precious");
    EXPECT_EQ(modeOf(other), 0604U);
}

TEST_F(WriterLock, AFileOfOthersThatIsCalledLikeTheLockIsLockedButNotWritten)
{
    std::string text;
    while (text.size() <= 512) {
        text += "dn: o=" + std::to_string(text.size()) + "\ncn: another configuration\n\n";
    }
    folder.write("f.lock", text);
    ASSERT_EQ(chmod(folder.path("f.lock").c_str(), 0604), 0);
    const FilePlace place(file);
    const detail::WriterLock lock(place, 0);
    expectBusy("another program");
    EXPECT_EQ(folder.read("f.lock"), text);
    EXPECT_EQ(modeOf(folder.path("f.lock")), 0604U);
}

TEST_F(WriterLock, OnlyWhatAHolderWritesIsTold)
{
    const struct
    {
        const char* text;
        const char* holder;
    } rows[] = {
        {"", "another program"},
        {"12", "another program"},
        {"\nveltor\n", "another program"},
        {"12x\nveltor\n", "another program"},
        {"-1\nveltor\n", "another program"},
        {"12345678901\nveltor\n", "another program"},
        {"12\nveltor\n", "process 12 (veltor)"},
        {"12\nveltor", "process 12 (veltor)"},
        {"12\n", "process 12"},
        {"12\n\x1b[2J\r\xff\n", "process 12 ([2J)"},
    };
    const FilePlace place(file);
    const detail::WriterLock lock(place, 0);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        folder.write("f.lock", row.text);
        expectBusy(row.holder);
    }
}

TEST_F(WriterLock, LeftoversOfThisFileAreCleanedAndNothingElse)
{
    const char* const leftovers[] = {".f.veltor.Ab12cd", ".f.veltor.x", ".f.veltor.lo-ng_er"};
    const char* const others[] = {".f.veltor.",
                                  ".f.veltorA",
                                  "f.veltor.Ab12cd",
                                  ".g.veltor.Ab12cd",
                                  ".f.veltor.g.veltor.Ab12cd",
                                  ".f.veltor.veltor.Ab12cd",
                                  ".ff.veltor.A",
                                  ".f.Veltor.A",
                                  "..f.veltor.A",
                                  ".f.veltor",
                                  "f.bak"};
    for (const char* const name : leftovers) {
        folder.write(name, "left");
    }
    Names expected = {"f", "f.lock", ".f.veltor.folder", ".f.veltor.link", ".f.veltor.fifo"};
    for (const char* const name : others) {
        folder.write(name, "kept");
        expected.insert(name);
    }
    ASSERT_EQ(mkdir(folder.path(".f.veltor.folder").c_str(), 0700), 0);
    ASSERT_EQ(symlink("f", folder.path(".f.veltor.link").c_str()), 0);
    ASSERT_EQ(mkfifo(folder.path(".f.veltor.fifo").c_str(), 0600), 0);
    expectBusy("");
    EXPECT_EQ(namesIn(folder), expected);
    EXPECT_EQ(folder.read("f"), oldText);
}

TEST_F(WriterLock, WhoDoesNotGetTheLockCleansNothing)
{
    const FilePlace place(file);
    const detail::WriterLock lock(place, 0);
    folder.write(".f.veltor.Ab12cd", "being written");
    expectBusy(self());
    EXPECT_TRUE(folder.exists(".f.veltor.Ab12cd"));
}

TEST_F(WriterLock, AFullDiskKeepsNobodyFromTheLock)
{
    expectBusy("");
    for (const char* const call : {"ftruncate", "write"}) {
        SCOPED_TRACE(call);
        const FilePlace place(file);
        const Watch watch;
        world.failingName = call;
        world.error = ENOSPC;
        const detail::WriterLock lock(place, 0);
        EXPECT_EQ(world.failingName, "") << "it did fail";
    }
}

TEST_F(WriterLock, ASystemWithoutLocksIsReported)
{
    const FilePlace place(file);
    const Watch watch;
    world.failingName = "fcntl";
    world.error = ENOLCK;
    const auto failure = failureOf([&] { const detail::WriterLock lock(place, 30'000); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->ldapErr, 80);
    EXPECT_EQ(failure->extErr, 1000);
    EXPECT_EQ(failure->sysErrno, ENOLCK);
    EXPECT_EQ(failure->msg, "Unable to lock \"f.lock\": " + std::string(std::strerror(ENOLCK)));
}

TEST_F(WriterLock, AnOrdinaryUserIsToldWhyThereIsNoLockAndLeavesNothing)
{
    SKIP_UNLESS_ROOT();
    ASSERT_EQ(chown(file.c_str(), nobody, nobody), 0);
    EXPECT_EQ(tryAsNobody().substr(0, 24), "50/1004 Unable to make \"") << "the folder is root's";
    EXPECT_EQ(namesIn(folder), Names{"f"});

    ASSERT_EQ(chown(folder.path().c_str(), nobody, nobody), 0);
    ASSERT_EQ(chown(file.c_str(), 0, 0), 0);
    ASSERT_EQ(chmod(file.c_str(), 0644), 0);
    EXPECT_EQ(tryAsNobody(), "50/1004 Unable to keep owner and group of \"f\": Operation not permitted")
        << "a lock file that the owner can't open would lock the owner out";
    EXPECT_EQ(namesIn(folder), Names{"f"});

    expectBusy("");
    EXPECT_EQ(tryAsNobody(), "50/1004 Unable to open the lock \"f.lock\": Permission denied");

    ASSERT_EQ(chown(file.c_str(), nobody, nobody), 0);
    expectBusy("");
    EXPECT_EQ(tryAsNobody(), "locked") << "root handed the lock file over with the configuration";
}

TEST_F(WriterLock, AFolderThatCannotBeReadIsReportedBeforeAnythingIsChanged)
{
    SKIP_UNLESS_ROOT();
    ASSERT_EQ(chown(folder.path().c_str(), nobody, nobody), 0);
    ASSERT_EQ(chown(file.c_str(), nobody, nobody), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0300), 0);
    EXPECT_EQ(toldByNobody([&] {
                  const FilePlace place(file);
                  struct stat status = {};
                  return std::string(place.read(status).view());
              }),
              oldText);
    EXPECT_EQ(toldByNobody([&] {
                  const FilePlace place(file);
                  const detail::WriterLock lock(place, 0);
                  return std::string("locked");
              }),
              "50/1004 Unable to read the folder of \"f\": Permission denied");
}

TEST_F(WriterLock, ManyProcessesThatContendLoseNoChange)
{
    constexpr int processes = 6;
    constexpr int changes = 20;
    folder.write("f", "");
    std::vector<pid_t> children;
    for (int process = 0; process < processes; ++process) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            const std::string outcome = told([&] {
                for (int change = 0; change < changes; ++change) {
                    const FilePlace place(file);
                    const detail::WriterLock lock(place, 120'000);
                    struct stat status = {};
                    const auto text = place.read(status);
                    const std::string more =
                        std::string(text.view()) + std::to_string(process) + ":" + std::to_string(change) + "\n";
                    install(place, more, text.view(), change % 2 == 0 ? folder.path("f.bak") : "");
                }
                return std::string("done");
            });
            _exit(outcome == "done" ? 0 : 1);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    const std::string text = folder.read("f");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), processes * changes);
    for (int process = 0; process < processes; ++process) {
        for (int change = 0; change < changes; ++change) {
            const std::string line = std::to_string(process) + ":" + std::to_string(change) + "\n";
            const std::string_view found = text;
            EXPECT_TRUE(found.starts_with(line) || found.find("\n" + line) != std::string_view::npos) << line;
        }
    }
    EXPECT_EQ(namesIn(folder), (Names{"f", "f.bak", "f.lock"}));
}

// ---- install ----

namespace {

/// Whose message that is: "the old text is in place", or the new one.
std::string_view placeToldBy(const LDIF_Exception& failure, std::string_view old, std::string_view fresh)
{
    const bool tellsOld = failure.msg.ends_with("the old text is in place");
    const bool tellsNew = failure.msg.ends_with("the new text is in place");
    EXPECT_NE(tellsOld, tellsNew) << failure.msg;
    return tellsOld ? old : fresh;
}

/// The calls that tell the order of an install.
std::vector<std::string> stepsOf(const std::vector<std::string>& calls)
{
    std::vector<std::string> steps;
    for (const std::string& call : calls) {
        if (call == "write" || call == "futimens" || call.starts_with("fsync") || call.starts_with("renameat")) {
            steps.push_back(call);
        }
    }
    return steps;
}

constexpr std::string_view olderText = "dn: o=x\ncn: older\n\n";

} // namespace

TEST_F(Install, TheNewTextTakesThePlaceOfTheOldOne)
{
    const FilePlace place(file);
    const ino_t inode = statusOf(file).st_ino;
    const struct stat status = install(place, newText, oldText, "");
    EXPECT_EQ(folder.read("f"), newText);
    EXPECT_EQ(namesIn(folder), Names{"f"});
    EXPECT_NE(statusOf(file).st_ino, inode);
    EXPECT_EQ(status.st_ino, statusOf(file).st_ino);
    EXPECT_EQ(status.st_ctim.tv_nsec, statusOf(file).st_ctim.tv_nsec);
    EXPECT_EQ(status.st_size, static_cast<off_t>(newText.size()));
}

TEST_F(Install, TextsOfAnySizeComeThroughWhole)
{
    std::string present(oldText);
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{65535}, std::size_t{65536}, std::size_t{65537}, std::size_t{3} << 20U}) {
        SCOPED_TRACE(size);
        std::string text(size, 'a');
        for (std::size_t position = 0; position < size; ++position) {
            text[position] = static_cast<char>('a' + position % 23);
        }
        const FilePlace place(file);
        install(place, text, present, folder.path("f.bak"));
        EXPECT_TRUE(folder.read("f") == text);
        EXPECT_TRUE(folder.read("f.bak") == present);
        present = text;
    }
}

TEST_F(Install, WhatIsWrittenIsSyncedBeforeTheRenameAndTheFolderAfterIt)
{
    const FilePlace place(file);
    {
        const Watch watch;
        install(place, newText, oldText, "");
    }
    EXPECT_EQ(stepsOf(world.calls),
              (std::vector<std::string>{"write", "futimens", "fsync", "renameat to f", "fsync of a folder"}));
    {
        const Watch watch;
        install(place, oldText, newText, folder.path("f.bak"));
    }
    EXPECT_EQ(stepsOf(world.calls),
              (std::vector<std::string>{"write", "futimens", "fsync", "write", "futimens", "fsync", "renameat to f.bak",
                                        "fsync of a folder", "renameat to f", "fsync of a folder"}));
    const auto& calls = world.calls;
    const auto rename = std::find(calls.begin(), calls.end(), "renameat to f");
    ASSERT_GE(rename - calls.begin(), 2);
    EXPECT_EQ(*(rename - 1), "read") << "the old text is compared at the last moment";
}

TEST_F(Install, ALinkStaysALinkAndItsTargetIsReplaced)
{
    ASSERT_EQ(mkdir(folder.path("sub").c_str(), 0700), 0);
    ASSERT_EQ(symlink("../f", folder.path("sub/g").c_str()), 0);
    const FilePlace place(folder.path("sub/g"));
    install(place, newText, oldText, "");
    EXPECT_TRUE(S_ISLNK(statusOf(folder.path("sub/g")).st_mode));
    EXPECT_EQ(folder.read("f"), newText);
    EXPECT_EQ(namesIn(folder, "sub"), Names{"g"});
    EXPECT_EQ(namesIn(folder), (Names{"f", "sub"}));
}

TEST_F(Install, TheNewTextIsInALaterSecondThanTheOldOne)
{
    const time_t now = time(nullptr);
    const struct
    {
        const char* name;
        time_t old;
        time_t least;
        time_t most;
    } rows[] = {
        {"long ago", 1000, now, now + 100},
        {"this second", now, now + 1, now + 100},
        {"in the future", now + 100'000, now + 100'001, now + 100'001},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        folder.write("f", oldText);
        setModified(file, row.old);
        const FilePlace place(file);
        const struct stat status = install(place, newText, oldText, "");
        EXPECT_GE(status.st_mtim.tv_sec, row.least);
        EXPECT_LE(status.st_mtim.tv_sec, row.most);
        EXPECT_EQ(status.st_mtim.tv_sec, statusOf(file).st_mtim.tv_sec);
    }
}

TEST_F(Install, AnOldTextFromTheLastSecondThatTheSystemKnowsIsFollowedByOneFromAnother)
{
    const auto expectAnotherSecond = [](const std::string& name) {
        SCOPED_TRACE(name);
        setModified(name, std::numeric_limits<time_t>::max());
        const time_t before = statusOf(name).st_mtim.tv_sec;
        const FilePlace place(name);
        const struct stat status = install(place, newText, oldText, "");
        EXPECT_NE(status.st_mtim.tv_sec, before);
        EXPECT_EQ(status.st_mtim.tv_sec, statusOf(name).st_mtim.tv_sec);
    };
    expectAnotherSecond(file);
    // There are file systems that know any time, and others that keep their last one in its place.
    std::string other = "/dev/shm/veltor-test-XXXXXX";
    if (mkdtemp(other.data()) != nullptr) {
        std::filesystem::copy_file(folder.write("g", oldText), other + "/f");
        expectAnotherSecond(other + "/f");
        std::filesystem::remove_all(other);
    }
}

TEST_F(Install, OwnerGroupAndModeStayInBothCopies)
{
    for (const mode_t mode : {0600U, 0664U, 0440U}) {
        SCOPED_TRACE(mode);
        folder.write("f", oldText);
        if (geteuid() == 0) {
            ASSERT_EQ(chown(file.c_str(), 1234, 5678), 0);
        }
        ASSERT_EQ(chmod(file.c_str(), mode), 0);
        setModified(file, 7'000'000);
        const struct stat before = statusOf(file);
        const mode_t mask = umask(0077);
        const FilePlace place(file);
        install(place, newText, oldText, folder.path("f.bak"));
        umask(mask);
        for (const char* const name : {"f", "f.bak"}) {
            SCOPED_TRACE(name);
            EXPECT_EQ(modeOf(folder.path(name)), mode);
            EXPECT_EQ(statusOf(folder.path(name)).st_uid, before.st_uid);
            EXPECT_EQ(statusOf(folder.path(name)).st_gid, before.st_gid);
            EXPECT_EQ(statusOf(folder.path(name)).st_nlink, 1U);
        }
        EXPECT_EQ(statusOf(folder.path("f.bak")).st_mtim.tv_sec, 7'000'000) << "the age of the text";
        EXPECT_NE(statusOf(folder.path("f.bak")).st_ino, before.st_ino) << "a copy";
    }
}

TEST_F(Install, NobodyElseCanReadTheNewTextBeforeItIsWhole)
{
    ASSERT_EQ(chmod(file.c_str(), 0600), 0);
    const FilePlace place(file);
    const Watch watch;
    std::set<mode_t> modes;
    world.before = [&](const std::string&, std::size_t) {
        for (const std::string& name : namesIn(folder)) {
            if (name.starts_with(".f.veltor.")) {
                modes.insert(modeOf(folder.path(name)));
            }
        }
    };
    install(place, newText, oldText, folder.path("f.bak"));
    EXPECT_EQ(modes, std::set<mode_t>{0600});
}

TEST_F(Install, AnAccessListStaysInBothCopiesAndOnTheLock)
{
    if (!give(file, accessList, listForOneMore())) {
        GTEST_SKIP() << "the temporary folder's file system keeps no access lists";
    }
    const FilePlace place(file);
    const detail::WriterLock lock(place, 0);
    install(place, newText, oldText, folder.path("f.bak"));
    for (const char* const name : {"f", "f.bak", "f.lock"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(attributeOf(folder.path(name), accessList), listForOneMore());
        EXPECT_EQ(modeOf(folder.path(name)), 0660U) << "the bits of the group are the list's mask";
    }
}

TEST_F(Install, TheFolderGivesTheNewFileNoAccessListThatTheOldOneDoesNotHave)
{
    if (!give(folder.path(), "system.posix_acl_default", listForOneMore())) {
        GTEST_SKIP() << "the temporary folder's file system keeps no access lists";
    }
    const FilePlace place(file);
    const detail::WriterLock lock(place, 0);
    install(place, newText, oldText, folder.path("f.bak"));
    for (const char* const name : {"f", "f.bak", "f.lock"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(attributeOf(folder.path(name), accessList), "none");
        EXPECT_EQ(modeOf(folder.path(name)), 0600U);
    }
}

TEST_F(Install, ASecurityLabelStaysInBothCopies)
{
    const std::string label("system_u:object_r:etc_t:s0\0", 27);
    if (!give(file, "security.selinux", label)) {
        GTEST_SKIP() << "this system lets the test set no security labels";
    }
    const FilePlace place(file);
    install(place, newText, oldText, folder.path("f.bak"));
    EXPECT_EQ(attributeOf(file, "security.selinux"), label);
    EXPECT_EQ(attributeOf(folder.path("f.bak"), "security.selinux"), label);
}

TEST_F(Install, ALabelThatAFileSystemDoesNotKnowIsLeftOutAndOneThatIsForbiddenIsReported)
{
    const std::string label("system_u:object_r:etc_t:s0\0", 27);
    if (!give(file, "security.selinux", label)) {
        GTEST_SKIP() << "this system lets the test set no security labels";
    }
    const FilePlace place(file);
    const auto installFailing = [&](int error) {
        return told([&] {
            const Watch watch;
            world.failingName = "fsetxattr";
            world.error = error;
            install(place, newText, oldText, folder.path("f.bak"));
            return std::string("installed");
        });
    };
    EXPECT_EQ(installFailing(EPERM), "50/1004 Unable to keep the security label of \"f\": Operation not permitted; "
                                     "the old text is in place");
    EXPECT_EQ(folder.read("f"), oldText);
    EXPECT_EQ(namesIn(folder), Names{"f"});
    EXPECT_EQ(installFailing(ENOTSUP), "installed");
    EXPECT_EQ(folder.read("f"), newText);
    EXPECT_EQ(attributeOf(file, "security.selinux"), "none");
    EXPECT_EQ(attributeOf(folder.path("f.bak"), "security.selinux"), label);
}

TEST_F(Install, AFileSystemWithoutExtendedAttributesIsNoFailure)
{
    const FilePlace place(file);
    std::size_t asked = 0;
    for (std::size_t call = 1; call <= 4; ++call) {
        const Watch watch;
        std::size_t seen = 0;
        world.error = ENOTSUP;
        world.before = [&](const std::string& name, std::size_t number) {
            if (name == "fgetxattr" && ++seen == call) {
                world.failing = number;
                ++asked;
            }
        };
        install(place, oldText, folder.read("f"), "");
    }
    EXPECT_GE(asked, 2U);
    EXPECT_EQ(folder.read("f"), oldText);
}

TEST_F(Install, AnotherTextThanExpectedIsLeftAsItIs)
{
    const struct
    {
        const char* name;
        std::string text;
    } rows[] = {
        {"other", "dn: o=x\ncn: odd\n\n"},
        {"longer", std::string(oldText) + "x"},
        {"shorter", std::string(oldText.substr(0, oldText.size() - 1))},
        {"empty", ""},
    };
    folder.write("f.bak", olderText);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        folder.write("f", row.text);
        const struct stat before = statusOf(file);
        const FilePlace place(file);
        const auto failure = failureOf([&] { install(place, newText, oldText, folder.path("f.bak")); });
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->ldapErr, 51);
        EXPECT_EQ(failure->extErr, 51);
        EXPECT_EQ(failure->msg, "\"" + file +
                                    "\" was changed meanwhile by a program that ignores the lock; nothing was "
                                    "written, and what that program put in the place of the old text is in place");
        EXPECT_EQ(failure->configFile, file);
        EXPECT_EQ(folder.read("f"), row.text);
        EXPECT_EQ(statusOf(file).st_ino, before.st_ino);
        EXPECT_EQ(folder.read("f.bak"), olderText);
        EXPECT_EQ(namesIn(folder), (Names{"f", "f.bak"}));
    }
}

TEST_F(Install, AVanishedFileIsNotMadeAnew)
{
    const FilePlace place(file);
    ASSERT_EQ(unlink(file.c_str()), 0);
    const auto failure = failureOf([&] { install(place, newText, oldText, folder.path("f.bak")); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->ldapErr, 51);
    EXPECT_EQ(failure->extErr, 51);
    EXPECT_EQ(failure->msg,
              "\"" + file +
                  "\" is gone: a program that ignores the lock moved or removed it; nothing was written, and wherever "
                  "that program left it the old text is in place");
    EXPECT_EQ(namesIn(folder), Names{});
}

TEST_F(Install, AFolderThatVanishedIsReported)
{
    ASSERT_EQ(mkdir(folder.path("sub").c_str(), 0700), 0);
    const FilePlace place(folder.write("sub/f", oldText));
    std::filesystem::remove_all(folder.path("sub"));
    const auto failure = failureOf([&] { install(place, newText, oldText, ""); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_TRUE(failure->ldapErr == 51 || failure->sysErrno == ENOENT) << failure->msg;
    EXPECT_EQ(namesIn(folder), Names{"f"});
}

TEST_F(Install, WhatTookTheFilesPlaceIsLeftThere)
{
    for (const Intruder& row : intruders()) {
        SCOPED_TRACE(row.name);
        const TemporaryFolder own;
        const FilePlace place(own.write("f", oldText));
        ASSERT_EQ(unlink(own.path("f").c_str()), 0);
        row.make(own.path("f"));
        const Names before = namesIn(own);
        const struct stat status = statusOf(own.path("f"));
        EXPECT_EQ(told([&] {
                      install(place, newText, oldText, own.path("f.bak"));
                      return std::string("installed");
                  }).substr(0, 6),
                  "51/51 ");
        EXPECT_EQ(namesIn(own), before);
        EXPECT_EQ(statusOf(own.path("f")).st_ino, status.st_ino);
    }
}

TEST_F(Install, AChangeByOthersWhileTheDiskIsWaitedForIsNotLost)
{
    const struct
    {
        const char* name;
        const char* call; ///< just before it the other program writes
        std::size_t which;
        std::string_view backup; ///< what is there then
    } rows[] = {
        {"while the text is synced", "fsync", 1, olderText},
        {"while the copy is synced", "fsync", 2, olderText},
        {"while the folder of the copy is synced", "fsync of a folder", 1, oldText},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        folder.write("f", oldText);
        folder.write("f.bak", olderText);
        const FilePlace place(file);
        const auto failure = failureOf([&] {
            const Watch watch;
            std::size_t seen = 0;
            world.before = [&](const std::string& call, std::size_t) {
                if (call == row.call && ++seen == row.which) {
                    folder.write("f", "by another program");
                }
            };
            install(place, newText, oldText, folder.path("f.bak"));
        });
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->ldapErr, 51);
        EXPECT_EQ(folder.read("f"), "by another program");
        EXPECT_EQ(folder.read("f.bak"), row.backup);
        EXPECT_EQ(namesIn(folder), (Names{"f", "f.bak"}));
    }
}

TEST_F(Install, TheBackupMayLieAnywhere)
{
    ASSERT_EQ(mkdir(folder.path("sub").c_str(), 0700), 0);
    ASSERT_EQ(symlink("sub", folder.path("linked").c_str()), 0);
    folder.write("sub/older", olderText);
    folder.write("sub/target", olderText);
    ASSERT_EQ(symlink("target", folder.path("sub/link").c_str()), 0);
    const struct
    {
        const char* name;
        const char* backup;
    } rows[] = {
        {"beside the file", "f.bak"},
        {"elsewhere", "sub/f"},
        {"through a link to a folder", "linked/g"},
        {"over an older", "sub/older"},
        {"in the place of a link", "sub/link"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const FilePlace place(file);
        install(place, newText, oldText, folder.path(row.backup));
        EXPECT_EQ(folder.read(row.backup), oldText);
        EXPECT_EQ(folder.read("f"), newText);
        EXPECT_TRUE(S_ISREG(statusOf(folder.path(row.backup)).st_mode));
        EXPECT_EQ(statusOf(folder.path(row.backup)).st_nlink, 1U);
        folder.write("f", oldText);
    }
    EXPECT_EQ(folder.read("sub/target"), olderText);
    EXPECT_EQ(namesIn(folder), (Names{"f", "f.bak", "linked", "sub"}));
    EXPECT_EQ(namesIn(folder, "sub"), (Names{"f", "g", "link", "older", "target"}));
}

TEST_F(Install, ASecondNameOfTheFileMayBecomeItsBackup)
{
    const std::string second = folder.path("second");
    ASSERT_EQ(link(file.c_str(), second.c_str()), 0);
    const FilePlace place(file);
    install(place, newText, oldText, second);
    EXPECT_EQ(folder.read("f"), newText);
    EXPECT_EQ(folder.read("second"), oldText);
    EXPECT_EQ(namesIn(folder), (Names{"f", "second"}));
}

TEST_F(Install, ARelativeBackupNameIsRelativeToTheWorkingFolder)
{
    const auto before = std::filesystem::current_path();
    ASSERT_EQ(mkdir(folder.path("sub").c_str(), 0700), 0);
    std::filesystem::current_path(folder.path("sub"));
    const FilePlace place(file);
    const std::string outcome = told([&] {
        install(place, newText, oldText, "f.bak");
        return std::string("installed");
    });
    std::filesystem::current_path(before);
    EXPECT_EQ(outcome, "installed");
    EXPECT_EQ(folder.read("sub/f.bak"), oldText);
    EXPECT_EQ(namesIn(folder), (Names{"f", "sub"}));
}

TEST_F(Install, TheBackupMayLieOnAnotherFileSystem)
{
    std::string other = "/dev/shm/veltor-test-XXXXXX";
    if (mkdtemp(other.data()) == nullptr || statusOf(other).st_dev == statusOf(file).st_dev) {
        GTEST_SKIP() << "there is no second file system to write to";
    }
    const FilePlace place(file);
    const std::string outcome = told([&] {
        install(place, newText, oldText, other + "/f.bak");
        return std::string("installed");
    });
    std::string text;
    if (const int copy = open((other + "/f.bak").c_str(), O_RDONLY | O_CLOEXEC); copy >= 0) {
        char bytes[256];
        text.assign(bytes, static_cast<std::size_t>(std::max<ssize_t>(read(copy, bytes, sizeof bytes), 0)));
        close(copy);
    }
    std::error_code ignored;
    std::filesystem::remove_all(other, ignored);
    EXPECT_EQ(outcome, "installed");
    EXPECT_EQ(text, oldText);
    EXPECT_EQ(folder.read("f"), newText);
}

TEST_F(Install, ABackupNameThatLeadsToTheFileOrItsLockIsRefusedBeforeAnythingIsTouched)
{
    ASSERT_EQ(mkdir(folder.path("sub").c_str(), 0700), 0);
    ASSERT_EQ(symlink("../f", folder.path("sub/link").c_str()), 0);
    ASSERT_EQ(symlink("..", folder.path("sub/up").c_str()), 0);
    const FilePlace place(folder.path("sub/link"));
    const detail::WriterLock lock(place, 0);
    const Names before = namesIn(folder);
    const struct stat status = statusOf(file);
    for (const char* const name : {"f", "./f", "sub/../f", "sub/up/f", "sub/link", "f.lock", "sub/up/f.lock"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(told([&] {
                      install(place, newText, oldText, folder.path(name));
                      return std::string("installed");
                  }),
                  "50/1004 \"" + folder.path(name) +
                      "\" can't be the backup: it leads to the file or its lock; the old text is in place");
        EXPECT_EQ(folder.read("f"), oldText);
        EXPECT_EQ(statusOf(file).st_ctim.tv_nsec, status.st_ctim.tv_nsec);
        EXPECT_EQ(namesIn(folder), before);
        EXPECT_TRUE(S_ISLNK(statusOf(folder.path("sub/link")).st_mode));
    }
}

TEST_F(Install, ADeviceIsNotReplacedByABackup)
{
    if (mknod(folder.path("null").c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0) {
        GTEST_SKIP() << "no device can be made here: " << std::strerror(errno);
    }
    const FilePlace place(file);
    EXPECT_EQ(told([&] {
                  install(place, newText, oldText, folder.path("null"));
                  return std::string("installed");
              }),
              "50/1004 \"" + folder.path("null") + "\" can't be the backup: it is a device; the old text is in place");
    EXPECT_TRUE(S_ISCHR(statusOf(folder.path("null")).st_mode));
    EXPECT_EQ(folder.read("f"), oldText);
    EXPECT_EQ(namesIn(folder), (Names{"f", "null"}));
}

TEST_F(Install, ABackupNameThatCannotBeWrittenIsReported)
{
    ASSERT_EQ(mkdir(folder.path("sub").c_str(), 0700), 0);
    const struct
    {
        std::string name;
        int error;
    } rows[] = {
        {folder.path("sub"), EISDIR},      {folder.path("sub") + "/", EISDIR}, {folder.path("sub/.."), EISDIR},
        {folder.path("no/f.bak"), ENOENT}, {folder.path("f/f.bak"), ENOTDIR},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const FilePlace place(file);
        const auto failure = failureOf([&] { install(place, newText, oldText, row.name); });
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->ldapErr, 80);
        EXPECT_EQ(failure->extErr, 1000);
        EXPECT_EQ(failure->sysErrno, row.error);
        EXPECT_EQ(placeToldBy(*failure, oldText, newText), oldText);
        EXPECT_EQ(folder.read("f"), oldText);
        EXPECT_EQ(namesIn(folder), (Names{"f", "sub"}));
    }
}

TEST_F(Install, WhatACrashLeftInTheFolderOfTheBackupIsCleaned)
{
    ASSERT_EQ(mkdir(folder.path("sub").c_str(), 0700), 0);
    folder.write("sub/.copy.veltor.Ab12cd", "left");
    folder.write("sub/.f.veltor.Ab12cd", "of another file of this name");
    const FilePlace place(file);
    install(place, newText, oldText, folder.path("sub/copy"));
    EXPECT_EQ(namesIn(folder, "sub"), (Names{"copy", ".f.veltor.Ab12cd"}));
}

TEST_F(Install, ShortWritesAreCompleted)
{
    for (const std::size_t mostBytes : {1U, 7U}) {
        const FilePlace place(file);
        const Watch watch;
        world.mostBytes = mostBytes;
        install(place, newText, oldText, folder.path("f.bak"));
        world.on = false;
        EXPECT_EQ(folder.read("f"), newText);
        EXPECT_EQ(folder.read("f.bak"), oldText);
        const auto writes = [&](std::string_view text) { return (text.size() + mostBytes - 1) / mostBytes; };
        EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "write"),
                  static_cast<std::ptrdiff_t>(writes(newText) + writes(oldText)));
        folder.write("f", oldText);
    }
}

TEST_F(Install, ARenameThatIsDoneThoughItIsToldToHaveFailedIsDone)
{
    const FilePlace place(file);
    const Watch watch;
    world.error = EIO;
    world.before = [&](const std::string& call, std::size_t number) {
        if (call != "renameat to f") {
            return;
        }
        for (const std::string& name : namesIn(folder)) {
            if (name.starts_with(".f.veltor.")) {
                ASSERT_EQ(rename(folder.path(name).c_str(), file.c_str()), 0);
                world.failing = number;
            }
        }
    };
    install(place, newText, oldText, "");
    EXPECT_NE(world.failing, 0U);
    EXPECT_EQ(world.calls.back(), "fstat") << "the folder was synced, and the new file looked at";
    EXPECT_EQ(folder.read("f"), newText);
    EXPECT_EQ(namesIn(folder), Names{"f"});
}

TEST_F(Install, WhatDoesNotComeBackAsItWasWrittenIsNotInstalled)
{
    const FilePlace place(file);
    const auto failure = failureOf([&] {
        const Watch watch;
        world.damages = true;
        install(place, newText, oldText, folder.path("f.bak"));
    });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->ldapErr, 80);
    EXPECT_EQ(failure->extErr, 1000);
    EXPECT_NE(failure->msg.find("did not come back as it was; the old text is in place"), std::string::npos);
    EXPECT_EQ(folder.read("f"), oldText);
    EXPECT_EQ(namesIn(folder), Names{"f"});
}

TEST_F(Install, AFullDiskLeavesTheOldText)
{
    folder.write("f.bak", olderText);
    const FilePlace place(file);
    const std::string large(100'000, 'x');
    EXPECT_EQ(
        withFileSizeLimit(50'000,
                          [&] {
                              return told([&] {
                                         install(place, large, oldText, folder.path("f.bak"));
                                         return std::string("installed");
                                     }).ends_with(std::string(std::strerror(EFBIG)) + "; the old text is in place")
                                         ? 42
                                         : 1;
                          }),
        42);
    EXPECT_EQ(folder.read("f"), oldText);
    EXPECT_EQ(folder.read("f.bak"), olderText);
    EXPECT_EQ(namesIn(folder), (Names{"f", "f.bak"}));
}

TEST_F(Install, EachStepThatFailsTellsTheTextInPlaceAndLeavesNothing)
{
    ASSERT_EQ(mkdir(folder.path("sub").c_str(), 0700), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(file.c_str(), 1234, 5678), 0);
    }
    ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    std::size_t cases = 0;
    std::set<std::string> failedCalls;
    for (const char* const backup : {"", "f.bak", "sub/f.bak"}) {
        if (std::string_view(backup) == "sub/f.bak") {
            // Where there are none, the steps of the row before are made to fail once more.
            give(file, accessList, listForOneMore());
        }
        for (const int error : {EIO, ENOSPC, EDQUOT, EACCES, EINTR}) {
            for (std::size_t nth = 1;; ++nth) {
                SCOPED_TRACE(std::string(backup) + ": " + std::strerror(error) + " from call " + std::to_string(nth));
                folder.write("f", oldText);
                if (*backup != '\0') {
                    folder.write(backup, olderText);
                }
                const Names before = namesIn(folder);
                const Names beforeBeside = namesIn(folder, "sub");
                const FilePlace place(file);
                const auto failure = failureOf([&] {
                    const Watch watch;
                    world.failing = nth;
                    world.error = error;
                    install(place, newText, oldText, *backup == '\0' ? "" : folder.path(backup));
                });
                if (world.calls.size() < nth) {
                    EXPECT_FALSE(failure.has_value());
                    break;
                }
                ++cases;
                failedCalls.insert(world.calls[nth - 1]);
                EXPECT_EQ(namesIn(folder), before);
                EXPECT_EQ(namesIn(folder, "sub"), beforeBeside);
                const std::string present = folder.read("f");
                if (!failure.has_value()) {
                    EXPECT_TRUE(error == EINTR) << "ignored: " << world.calls[nth - 1];
                    EXPECT_EQ(present, newText);
                } else {
                    EXPECT_EQ(present, placeToldBy(*failure, oldText, newText)) << world.calls[nth - 1];
                    EXPECT_EQ(failure->ldapErr, error == EACCES ? 50 : 80);
                    EXPECT_EQ(failure->extErr, error == EACCES ? 1004 : 1000);
                    EXPECT_EQ(failure->sysErrno, error);
                    EXPECT_EQ(failure->configFile, file);
                    EXPECT_NE(failure->msg.find(std::strerror(error)), std::string::npos);
                }
                if (*backup != '\0') {
                    const std::string kept = folder.read(backup);
                    EXPECT_TRUE(kept == olderText || kept == oldText) << kept;
                    EXPECT_TRUE(present == oldText || kept == oldText) << "never a new text without its backup";
                }
            }
        }
    }
    EXPECT_GE(cases, 300U);
    for (const char* const call : {"openat", "fstat", "fchmod", "fgetxattr", "write", "lseek", "read", "futimens",
                                   "fsync", "renameat to f", "renameat to f.bak", "fsync of a folder"}) {
        EXPECT_TRUE(failedCalls.contains(call)) << call;
    }
}

TEST_F(Install, AProcessThatIsKilledAtAnyStepLeavesAWholeTextAndTheNextChangeCleansUp)
{
    ASSERT_EQ(mkdir(folder.path("sub").c_str(), 0700), 0);
    for (const char* const backup : {"f.bak", "sub/copy"}) {
        for (std::size_t nth = 1;; ++nth) {
            SCOPED_TRACE(std::string(backup) + ": killed before call " + std::to_string(nth));
            folder.write("f", oldText);
            folder.write(backup, olderText);
            const pid_t child = fork();
            ASSERT_GE(child, 0);
            if (child == 0) {
                const std::string outcome = told([&] {
                    const FilePlace place(file);
                    const Watch watch;
                    world.before = [&](const std::string&, std::size_t number) {
                        if (number == nth) {
                            ::raise(SIGKILL);
                        }
                    };
                    const detail::WriterLock lock(place, 0);
                    install(place, newText, oldText, folder.path(backup));
                    return std::string("installed");
                });
                _exit(outcome == "installed" ? 0 : 1);
            }
            int status = 0;
            ASSERT_EQ(waitpid(child, &status, 0), child);
            const std::string present = folder.read("f");
            EXPECT_TRUE(present == oldText || present == newText) << present;
            const std::string kept = folder.read(backup);
            EXPECT_TRUE(kept == olderText || kept == oldText) << kept;
            EXPECT_TRUE(present == oldText || kept == oldText) << "never a new text without its backup";
            const FilePlace place(file);
            {
                const detail::WriterLock lock(place, 0);
                install(place, "next", present, folder.path(backup));
            }
            EXPECT_EQ(folder.read("f"), "next");
            EXPECT_EQ(folder.read(backup), present);
            Names expected = {"f", "f.lock", "sub"};
            if (std::string_view(backup) == "f.bak") {
                expected.insert("f.bak");
            }
            EXPECT_EQ(namesIn(folder), expected);
            if (WIFEXITED(status)) {
                EXPECT_EQ(WEXITSTATUS(status), 0);
                EXPECT_GE(nth, 40U);
                break;
            }
        }
        std::filesystem::remove(folder.path(backup));
    }
    EXPECT_EQ(namesIn(folder, "sub"), Names{});
}

TEST_F(Install, AnOrdinaryUserCannotWriteToAFolderOfOthers)
{
    SKIP_UNLESS_ROOT();
    ASSERT_EQ(chown(file.c_str(), nobody, nobody), 0);
    folder.write("f.bak", olderText);
    const std::string outcome = toldByNobody([&] {
        const FilePlace place(file);
        install(place, newText, oldText, folder.path("f.bak"));
        return std::string("installed");
    });
    EXPECT_TRUE(outcome.starts_with("50/1004 Unable to make \".f.veltor.")) << outcome;
    EXPECT_TRUE(outcome.ends_with("\": Permission denied; the old text is in place")) << outcome;
    EXPECT_EQ(folder.read("f"), oldText);
    EXPECT_EQ(namesIn(folder), (Names{"f", "f.bak"}));
}

TEST_F(Install, AnOrdinaryUserCannotReplaceAFileOfOthers)
{
    SKIP_UNLESS_ROOT();
    ASSERT_EQ(chown(folder.path().c_str(), nobody, nobody), 0);
    ASSERT_EQ(chmod(file.c_str(), 0666), 0);
    const struct
    {
        const char* name;
        uid_t owner;
        gid_t group;
    } rows[] = {{"owner", 0, nobody}, {"group", nobody, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(chown(file.c_str(), row.owner, row.group), 0);
        EXPECT_EQ(toldByNobody([&] {
                      const FilePlace place(file);
                      install(place, newText, oldText, "");
                      return std::string("installed");
                  }),
                  "50/1004 Unable to keep owner and group of \"f\": Operation not permitted; the old text is in place");
        EXPECT_EQ(folder.read("f"), oldText);
        EXPECT_EQ(namesIn(folder), Names{"f"});
    }
}

TEST_F(Install, AnOrdinaryUserReplacesAFileOfItsOwn)
{
    SKIP_UNLESS_ROOT();
    ASSERT_EQ(chown(folder.path().c_str(), nobody, nobody), 0);
    ASSERT_EQ(chown(file.c_str(), nobody, nobody), 0);
    EXPECT_EQ(toldByNobody([&] {
                  const FilePlace place(file);
                  const detail::WriterLock lock(place, 0);
                  install(place, newText, oldText, folder.path("f.bak"));
                  return std::string("installed");
              }),
              "installed");
    EXPECT_EQ(folder.read("f"), newText);
    EXPECT_EQ(namesIn(folder), (Names{"f", "f.bak", "f.lock"}));
}

TEST_F(Install, ARequestForMemoryThatFailsLeavesTheOldTextAndNothingElse)
{
    std::size_t told = 0;
    for (const Shortage shortage : {Shortage::once, Shortage::lasting}) {
        bool failed = true;
        for (std::size_t nth = 1; failed; ++nth) {
            SCOPED_TRACE(nth);
            folder.write("f", oldText);
            std::filesystem::remove(folder.path("f.bak"));
            const FilePlace place(file);
            const std::string backup = folder.path("f.bak");
            bool installed = false;
            {
                FailingAllocator allocator(shortage, nth);
                try {
                    const detail::WriterLock lock(place, 0);
                    install(place, newText, oldText, backup);
                    installed = true;
                } catch (const std::bad_alloc&) {
                } catch (const LDIF_Exception& failure) {
                    allocator.stop();
                    EXPECT_EQ(failure.ldapErr, 80);
                    EXPECT_EQ(failure.extErr, 1000);
                    EXPECT_EQ(failure.msg, "System error installing the text; the old text is in place");
                    EXPECT_EQ(failure.configFile, file);
                    EXPECT_TRUE(failure.isSystemFailure());
                    ++told;
                }
                allocator.stop();
                failed = allocator.failed();
            }
            EXPECT_EQ(installed, !failed);
            EXPECT_EQ(folder.read("f"), installed ? newText : oldText);
            for (const std::string& name : namesIn(folder)) {
                EXPECT_TRUE(name == "f" || name == "f.lock" || name == "f.bak") << name;
            }
            if (folder.exists("f.bak")) {
                EXPECT_EQ(folder.read("f.bak"), oldText);
            }
            expectBusy("");
        }
    }
    EXPECT_GT(told, 0U);
}

// ---- createFile ----

namespace {

class CreateFile : public testing::Test
{
protected:
    CreateFile() { EXPECT_EQ(chmod(folder.path().c_str(), 0755), 0); }

    const TemporaryFolder folder;
    const std::string file = folder.path("f");
};

} // namespace

TEST_F(CreateFile, MakesAFileThatItsGroupMayReadWhateverTheMask)
{
    for (const mode_t wanted : {0U, 0022U, 0777U}) {
        SCOPED_TRACE(wanted);
        const mode_t mask = umask(wanted);
        createFile(file, newText);
        umask(mask);
        EXPECT_EQ(folder.read("f"), newText);
        EXPECT_EQ(modeOf(file), 0640U);
        EXPECT_EQ(statusOf(file).st_nlink, 1U);
        EXPECT_EQ(namesIn(folder), Names{"f"});
        ASSERT_EQ(unlink(file.c_str()), 0);
    }
}

TEST_F(CreateFile, TheFileIsWholeAndSyncedWhenItsNameAppears)
{
    const Watch watch;
    world.before = [&](const std::string& call, std::size_t) {
        if (call != "renameat2") {
            return;
        }
        EXPECT_FALSE(folder.exists("f"));
        const Names names = namesIn(folder);
        ASSERT_EQ(names.size(), 1U);
        EXPECT_TRUE(names.begin()->starts_with(".f.veltor."));
        EXPECT_EQ(folder.read(*names.begin()), newText);
        EXPECT_EQ(modeOf(folder.path(*names.begin())), 0640U);
    };
    createFile(file, newText);
    EXPECT_EQ(stepsOf(world.calls), (std::vector<std::string>{"write", "fsync", "renameat2", "fsync of a folder"}));
}

TEST_F(CreateFile, ANameThatExistsInAnyFormIsLeftAlone)
{
    std::vector<Intruder> rows = intruders();
    rows.push_back({"file", [&](const std::string&) { folder.write("f", oldText); }});
    for (const Intruder& row : rows) {
        SCOPED_TRACE(row.name);
        row.make(file);
        const Names before = namesIn(folder);
        const struct stat status = statusOf(file);
        EXPECT_EQ(told([&] {
                      createFile(file, newText);
                      return std::string("made");
                  }),
                  "68/68 \"" + file + "\" exists already; it stays as it is");
        EXPECT_EQ(namesIn(folder), before);
        EXPECT_EQ(statusOf(file).st_ino, status.st_ino);
        EXPECT_EQ(statusOf(file).st_mtim.tv_nsec, status.st_mtim.tv_nsec);
        std::filesystem::remove(file);
        std::filesystem::remove(folder.path("other"));
    }
}

TEST_F(CreateFile, AFileThatAppearsMeanwhileIsLeftAlone)
{
    for (const bool byLink : {false, true}) {
        SCOPED_TRACE(byLink);
        const std::string outcome = told([&] {
            const Watch watch;
            world.error = EINVAL;
            world.failingName = byLink ? "renameat2" : "";
            world.before = [&](const std::string& call, std::size_t) {
                if (call == (byLink ? "linkat" : "renameat2")) {
                    folder.write("f", oldText);
                }
            };
            createFile(file, newText);
            return std::string("made");
        });
        EXPECT_EQ(outcome, "68/68 \"" + file + "\" exists already; it stays as it is");
        EXPECT_EQ(folder.read("f"), oldText);
        EXPECT_EQ(namesIn(folder), Names{"f"});
        ASSERT_EQ(unlink(file.c_str()), 0);
    }
}

TEST_F(CreateFile, AFileSystemThatKnowsNoExclusiveRenameIsServedByALink)
{
    const Watch watch;
    world.failingName = "renameat2";
    world.error = EINVAL;
    createFile(file, newText);
    world.on = false;
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "linkat"), 1);
    EXPECT_EQ(folder.read("f"), newText);
    EXPECT_EQ(statusOf(file).st_nlink, 1U);
    EXPECT_EQ(namesIn(folder), Names{"f"});
}

TEST_F(CreateFile, AFileSystemThatKnowsNeitherRenameNorLinkIsReported)
{
    const std::string outcome = told([&] {
        const Watch watch;
        world.failingName = "renameat2";
        world.error = EOPNOTSUPP;
        world.before = [](const std::string& call, std::size_t) {
            if (call == "linkat") {
                world.failingName = call;
            }
        };
        createFile(file, newText);
        return std::string("made");
    });
    EXPECT_EQ(outcome, "80/1000 Unable to make \"f\": Operation not supported; nothing is left behind");
    EXPECT_EQ(namesIn(folder), Names{});
}

TEST_F(CreateFile, AFolderInWhichEveryNameIsTakenIsReported)
{
    std::ptrdiff_t opened = 0;
    const std::string outcome = told([&] {
        const Watch watch;
        world.error = EEXIST;
        world.before = [&](const std::string& call, std::size_t) {
            // The first call opens the folder.
            if (call == "openat" && ++opened > 1) {
                world.failingName = call;
            }
        };
        createFile(file, newText);
        return std::string("made");
    });
    EXPECT_TRUE(outcome.starts_with("80/1000 Unable to make \".f.veltor.")) << outcome;
    EXPECT_TRUE(outcome.ends_with("\": File exists; nothing is left behind")) << outcome;
    EXPECT_EQ(opened, 101) << "a hundred names were tried";
    EXPECT_EQ(namesIn(folder), Names{});
}

TEST_F(CreateFile, EachStepThatFailsLeavesNothingBehind)
{
    std::size_t cases = 0;
    for (const int error : {EIO, ENOSPC, EDQUOT, EACCES, EINTR}) {
        for (std::size_t nth = 1;; ++nth) {
            SCOPED_TRACE(std::string(std::strerror(error)) + " from call " + std::to_string(nth));
            const auto failure = failureOf([&] {
                const Watch watch;
                world.failing = nth;
                world.error = error;
                createFile(file, newText);
            });
            const bool all = world.calls.size() < nth;
            if (failure.has_value()) {
                EXPECT_EQ(namesIn(folder), Names{}) << world.calls[nth - 1];
                EXPECT_EQ(failure->ldapErr, error == EACCES ? 50 : 80);
                EXPECT_EQ(failure->extErr, error == EACCES ? 1004 : 1000);
                EXPECT_EQ(failure->sysErrno, error);
                EXPECT_TRUE(failure->msg.ends_with("; nothing is left behind")) << failure->msg;
                EXPECT_EQ(failure->configFile, file);
            } else {
                // A look that fails is made good by the exclusive rename, and that by the link.
                EXPECT_TRUE(all || error == EINTR || world.calls[nth - 1] == "fstatat" ||
                            world.calls[nth - 1] == "renameat2")
                    << world.calls[nth - 1];
                EXPECT_EQ(namesIn(folder), Names{"f"});
                EXPECT_EQ(folder.read("f"), newText);
                ASSERT_EQ(unlink(file.c_str()), 0);
            }
            if (all) {
                break;
            }
            ++cases;
        }
    }
    EXPECT_GE(cases, 40U);
}

TEST_F(CreateFile, ANameThatCannotBeIsReported)
{
    const struct
    {
        std::string name;
        const char* told;
    } rows[] = {
        {folder.path("no/f"), "80/1000 Unable to open the folder of \""},
        {folder.path() + "/", "80/1000 Unable to make \""},
        {folder.path(std::string(300, 'a')), "80/1000 Unable to make \""},
        {"", "80/1000 Unable to make \""},
        {folder.path("."), "68/68 \""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_TRUE(told([&] {
                        createFile(row.name, newText);
                        return std::string("made");
                    }).starts_with(row.told));
    }
    EXPECT_EQ(namesIn(folder), Names{});
}

TEST_F(CreateFile, AFileWithoutAFolderInItsNameIsMadeInTheWorkingFolder)
{
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    const std::string outcome = told([&] {
        createFile("f", newText);
        return std::string("made");
    });
    std::filesystem::current_path(before);
    EXPECT_EQ(outcome, "made");
    EXPECT_EQ(folder.read("f"), newText);
}

TEST_F(CreateFile, AnOrdinaryUserCannotMakeAFileInAFolderOfOthers)
{
    SKIP_UNLESS_ROOT();
    const std::string outcome = toldByNobody([&] {
        createFile(file, newText);
        return std::string("made");
    });
    EXPECT_TRUE(outcome.starts_with("50/1004 Unable to make \".f.veltor.")) << outcome;
    EXPECT_EQ(namesIn(folder), Names{});
}

TEST_F(CreateFile, ARequestForMemoryThatFailsLeavesNothing)
{
    for (const Shortage shortage : {Shortage::once, Shortage::lasting}) {
        bool failed = true;
        for (std::size_t nth = 1; failed; ++nth) {
            SCOPED_TRACE(nth);
            bool made = false;
            {
                FailingAllocator allocator(shortage, nth);
                try {
                    createFile(file, newText);
                    made = true;
                } catch (const std::bad_alloc&) {
                }
                allocator.stop();
                failed = allocator.failed();
            }
            EXPECT_EQ(made, !failed);
            EXPECT_EQ(namesIn(folder), made ? Names{"f"} : Names{});
        }
        ASSERT_EQ(unlink(file.c_str()), 0);
    }
}
