// Places where a change can't be made: what an ordinary user may not do, and what others put into the file's place. A
// clear failure each, nothing lost, and no call that waits.
#include "fault_test.h"

#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace veltor::test;

namespace {

/// Ends the program if a call of the test waits for ever.
class Alarm
{
public:
    Alarm() { alarm(60); }
    Alarm(const Alarm&) = delete;
    Alarm& operator=(const Alarm&) = delete;
    ~Alarm() { alarm(0); }
};

class RoughPlaces : public FaultTest
{
protected:
    // A folder in the folder, so that it can go, too.
    void SetUp() override { make(); }

    std::string folder() const { return pathOf("etc"); }
    std::string file() const { return pathOf("etc/zorslapd.conf"); }
    std::string backup() const { return pathOf("etc/backup"); }

    void make() const
    {
        std::filesystem::remove_all(folder());
        std::filesystem::create_directory(folder());
        write(oldText, "etc/zorslapd.conf");
        write("older\n", "etc/backup");
    }

    /// What lies in the folder and what it is, for comparisons.
    std::string all() const
    {
        std::string told;
        if (!std::filesystem::exists(folder())) {
            return "no folder";
        }
        for (const std::string& name : namesIn(folder())) {
            const std::string path = folder() + "/" + name;
            struct stat status = {};
            lstat(path.c_str(), &status);
            // A writer leaves its name in the lock.
            const bool hasContent = S_ISREG(status.st_mode) && name != "zorslapd.conf.lock";
            told += name + " " + std::to_string(status.st_mode) + " " + std::to_string(status.st_ino) + " " +
                    (hasContent ? contentOf(path) : "") + "\n";
        }
        return told;
    }

private:
    Alarm alarm_;
};

/// What others do to the file's place.
struct Turn
{
    const char* name;
    std::function<void(const std::string& file)> happens;
};

void makeSocket(const std::string& file)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    // The name of a socket has to be short: it is made from within its folder.
    const std::filesystem::path path = file;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(path.parent_path());
    path.filename().string().copy(address.sun_path, sizeof address.sun_path - 1);
    const int number = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(number, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(number);
    std::filesystem::current_path(before);
}

// The file is gone when each of them happens.
const std::vector<Turn>& turns()
{
    static const std::vector<Turn> rows = {
        {"nothing", [](const std::string&) {}},
        {"a fifo", [](const std::string& file) { EXPECT_EQ(mkfifo(file.c_str(), 0644), 0); }},
        {"a folder", [](const std::string& file) { std::filesystem::create_directory(file); }},
        {"a full folder", [](const std::string& file) { std::filesystem::create_directories(file + "/full"); }},
        {"a dangling link", [](const std::string& file) { std::filesystem::create_symlink("nowhere", file); }},
        {"a link to itself",
         [](const std::string& file) {
             std::filesystem::create_symlink(std::filesystem::path(file).filename(), file);
         }},
        {"a socket", makeSocket},
        // Beside it, in the system's folder, nothing may appear.
        {"a link to a device", [](const std::string& file) { std::filesystem::create_symlink("/dev/null", file); }},
    };
    return rows;
}

} // namespace

TEST_F(RoughPlaces, WhatTakesTheFilesPlaceInsideASetIsLeftThereAndNothingIsWritten)
{
    for (const Turn& turn : turns()) {
        SCOPED_TRACE(turn.name);
        make();
        const Handle handle = boundTo(file(), backup());
        ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0) << failureOf(handle);
        ASSERT_EQ(setPort(handle, "636"), 0) << failureOf(handle);
        std::filesystem::rename(file(), pathOf("taken"));
        turn.happens(file());
        const std::string before = all();
        EXPECT_EQ(cfg_commit_s(handle.get()), 51);
        const std::string told = failureOf(handle);
        EXPECT_TRUE(told.starts_with("51/51 ")) << told;
        EXPECT_NE(told.find(file()), std::string::npos) << told;
        EXPECT_NE(told.find("nothing was written"), std::string::npos) << told;
        EXPECT_TRUE(told.ends_with(oldInPlace)) << told;
        EXPECT_EQ(all(), before);
        EXPECT_EQ(read("taken"), oldText);

        // The set has ended and the lock is free; once the file is back, so is everything.
        EXPECT_EQ(cfg_rollback_s(handle.get()), 53);
        std::filesystem::remove_all(file());
        std::filesystem::rename(pathOf("taken"), file());
        const Handle another = boundTo(file());
        EXPECT_EQ(cfg_begin_s(another.get(), 0), 0) << failureOf(another);
        EXPECT_EQ(cfg_rollback_s(another.get()), 0);
        EXPECT_EQ(setPort(handle, "637"), 0) << failureOf(handle);
        EXPECT_EQ(read("etc/zorslapd.conf"), withPort(oldText, "637"));
        EXPECT_EQ(read("etc/backup"), oldText);
    }
}

TEST_F(RoughPlaces, AnotherTextInsideASetStays)
{
    const Handle handle = boundTo(file(), backup());
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle, "636"), 0);
    write(withPort(oldText, "1234"), "etc/zorslapd.conf");
    const std::string before = all();
    EXPECT_EQ(cfg_commit_s(handle.get()), 51);
    EXPECT_NE(failureOf(handle).find("nothing was written"), std::string::npos) << failureOf(handle);
    EXPECT_EQ(all(), before);
    EXPECT_EQ(inMemory(handle), withPort(oldText, "1234"));
}

TEST_F(RoughPlaces, AnUpdateOfWhatIsNoFileAnyMoreFailsAndMakesNothing)
{
    for (const Turn& turn : turns()) {
        for (const bool hasLock : {false, true}) {
            SCOPED_TRACE(std::string(turn.name) + (hasLock ? ", locked before" : ""));
            make();
            const Handle handle = boundTo(file(), backup());
            if (hasLock) {
                ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
                ASSERT_EQ(cfg_rollback_s(handle.get()), 0);
            }
            std::filesystem::rename(file(), pathOf("taken"));
            turn.happens(file());
            const std::string before = all();
            EXPECT_NE(setPort(handle, "636"), 0);
            const std::string told = failureOf(handle);
            // As a bind says it, or plainer.
            const Handle fresh = careful(file());
            const int bindCode = bind(fresh);
            EXPECT_TRUE(told.starts_with("91/1004 ") || told.starts_with(std::to_string(bindCode) + "/")) << told;
            EXPECT_EQ(all(), before);
            EXPECT_FALSE(std::filesystem::exists("/dev/null.lock"));
            EXPECT_EQ(read("taken"), oldText);

            std::filesystem::remove_all(file());
            std::filesystem::rename(pathOf("taken"), file());
            EXPECT_EQ(setPort(handle, "637"), 0) << failureOf(handle);
            EXPECT_EQ(read("etc/zorslapd.conf"), withPort(oldText, "637"));
        }
    }
}

TEST_F(RoughPlaces, AFolderThatIsMovedInsideASetTakesTheChangeAlong)
{
    const Handle handle = boundTo(file(), pathOf("backup"));
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle, "636"), 0);
    std::filesystem::rename(folder(), pathOf("moved"));
    // Another file with the same text, in a folder with the same name.
    make();
    const std::string before = all();
    EXPECT_EQ(cfg_commit_s(handle.get()), 0) << failureOf(handle);
    EXPECT_EQ(all(), before);
    EXPECT_EQ(read("moved/zorslapd.conf"), withPort(oldText, "636"));
    EXPECT_EQ(read("backup"), oldText);
}

TEST_F(RoughPlaces, AFolderThatVanishesInsideASetIsReported)
{
    const Handle handle = boundTo(file());
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle, "636"), 0);
    std::filesystem::remove_all(folder());
    EXPECT_NE(cfg_commit_s(handle.get()), 0);
    const std::string told = failureOf(handle);
    EXPECT_TRUE(told.starts_with("51/51 ") || told.starts_with("80/1000 ")) << told;
    EXPECT_TRUE(told.ends_with(oldInPlace)) << told;
    EXPECT_EQ(all(), "no folder");
    // And outside of one.
    EXPECT_EQ(setPort(handle, "636"), 91);
    EXPECT_EQ(cfg_begin_s(handle.get(), 0), 91);
    EXPECT_EQ(all(), "no folder");
}

TEST_F(RoughPlaces, AVanishedFolderOfTheBackupRefusesTheChange)
{
    std::filesystem::create_directory(pathOf("backups"));
    const Handle handle = boundTo(file(), pathOf("backups/old"));
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle, "636"), 0);
    std::filesystem::remove(pathOf("backups"));
    const std::string before = all();
    EXPECT_EQ(cfg_commit_s(handle.get()), 80);
    const std::string told = failureOf(handle);
    EXPECT_NE(told.find("backups"), std::string::npos) << told;
    EXPECT_TRUE(told.ends_with(oldInPlace)) << told;
    EXPECT_EQ(all(), before);
}

TEST_F(RoughPlaces, AnythingButAFileInTheBackupsPlaceIsReplacedOrRefused)
{
    for (const Turn& turn : turns()) {
        SCOPED_TRACE(turn.name);
        make();
        std::filesystem::remove(backup());
        turn.happens(backup());
        const bool isFolder = std::filesystem::is_directory(std::filesystem::symlink_status(backup()));
        const Handle handle = boundTo(file(), backup());
        EXPECT_EQ(setPort(handle, "636") == 0, !isFolder) << failureOf(handle);
        if (isFolder) {
            EXPECT_TRUE(failureOf(handle).ends_with(oldInPlace)) << failureOf(handle);
            EXPECT_EQ(read("etc/zorslapd.conf"), oldText);
        } else {
            EXPECT_EQ(read("etc/zorslapd.conf"), withPort(oldText, "636"));
            EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(backup())));
            EXPECT_EQ(read("etc/backup"), oldText);
        }
    }
}

// ---- What an ordinary user meets ----

namespace {

struct Ground
{
    const char* name;
    uid_t fileOwner;
    mode_t fileMode;
    uid_t folderOwner;
    mode_t folderMode;
    bool hasLock;
    const char* told;       ///< how the failure begins
    bool tellsText;         ///< an install was begun
    bool makesLock = false; ///< which stays, as every lock does
};

} // namespace

TEST_F(RoughPlaces, AnOrdinaryUserIsToldWhatIsMissingAndChangesNothing)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const std::vector<Ground> rows = {
        {"a folder without write permission", nobody, 0644, 0, 0755, false, "50/1004 ", false},
        {"the same with a lock in it", nobody, 0644, 0, 0755, true, "50/1004 ", true},
        {"a read-only folder of its own", nobody, 0644, nobody, 0555, false, "50/1004 ", false},
        {"the same with a lock in it", nobody, 0644, nobody, 0555, true, "50/1004 ", true},
        {"a file of somebody else", 1, 0644, nobody, 0755, false, "50/1004 ", false},
        {"the same with a lock that may be written", 1, 0644, nobody, 0755, true, "50/1004 ", true},
        {"a file of somebody else that everybody may write", 1, 0666, nobody, 0755, false, "50/1004 ", false},
        {"a file that can't be read", 1, 0600, nobody, 0755, false, "91/1004 ", false},
        {"a folder that can't be entered", nobody, 0644, 1, 0700, false, "91/1003 ", false},
        {"a folder that can be entered and not read", nobody, 0644, 1, 0711, false, "50/1004 ", false},
        {"a folder that can be written and not read", nobody, 0644, nobody, 0300, false, "50/1004 ", false, true},
    };
    ASSERT_EQ(chmod(pathOf("").c_str(), 0755), 0);
    for (const Ground& row : rows) {
        SCOPED_TRACE(std::string(row.name) + (row.hasLock ? ", locked" : ""));
        make();
        const auto give = [&](const std::string& path, uid_t owner, mode_t mode) {
            ASSERT_EQ(chown(path.c_str(), owner, static_cast<gid_t>(owner)), 0);
            ASSERT_EQ(chmod(path.c_str(), mode), 0);
        };
        give(file(), row.fileOwner, row.fileMode);
        if (row.hasLock) {
            give(write("", "etc/zorslapd.conf.lock"), nobody, 0644);
        }
        give(folder(), row.folderOwner, row.folderMode);
        const std::string before = all();
        const std::string told = toldByNobody([&] {
            const Handle handle = careful(file(), backup());
            // Whichever call meets it.
            if (bind(handle) == 0 && setPort(handle, "636") == 0) {
                return std::string("changed");
            }
            return failureOf(handle);
        });
        EXPECT_TRUE(told.starts_with(row.told)) << told;
        EXPECT_EQ(told.ends_with(oldInPlace), row.tellsText) << told;
        if (row.makesLock) {
            EXPECT_TRUE(std::filesystem::remove(file() + ".lock"));
        }
        EXPECT_EQ(all(), before);
        std::filesystem::permissions(folder(), std::filesystem::perms::owner_all);
    }
}

TEST_F(RoughPlaces, AnOrdinaryUserChangesAFileOfItsOwn)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    ASSERT_EQ(chmod(pathOf("").c_str(), 0755), 0);
    ASSERT_EQ(chown(folder().c_str(), nobody, nobody), 0);
    ASSERT_EQ(chown(file().c_str(), nobody, nobody), 0);
    EXPECT_EQ(toldByNobody([&] {
                  const Handle handle = careful(file(), backup());
                  return bind(handle) == 0 && setPort(handle, "636") == 0 ? "changed" : failureOf(handle);
              }),
              "changed");
    EXPECT_EQ(read("etc/zorslapd.conf"), withPort(oldText, "636"));
    EXPECT_EQ(read("etc/backup"), oldText);
}

TEST_F(RoughPlaces, AFileSystemThatIsReadOnlyRefusesTheChange)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can mount a file system";
    }
    for (const bool hasLock : {false, true}) {
        SCOPED_TRACE(hasLock);
        if (hasLock) {
            write("", "etc/zorslapd.conf.lock");
        }
        const std::string before = all();
        const std::string told = toldByChild([&]() -> std::string {
            if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                mount(folder().c_str(), folder().c_str(), nullptr, MS_BIND, nullptr) != 0 ||
                mount("none", folder().c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) {
                return "no mount";
            }
            const Handle handle = boundTo(file(), backup());
            return setPort(handle, "636") == 0 ? "changed" : failureOf(handle);
        });
        if (told == "no mount") {
            GTEST_SKIP() << "this system lets root mount nothing";
        }
        EXPECT_TRUE(told.starts_with("50/1004 ")) << told;
        EXPECT_NE(told.find("Read-only file system"), std::string::npos) << told;
        EXPECT_EQ(all(), before);
    }
}

TEST_F(RoughPlaces, ASystemThatTurnsReadOnlyInsideASetRefusesTheCommit)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can mount a file system";
    }
    const std::string told = toldByChild([&]() -> std::string {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", folder().c_str(), "tmpfs", 0, "size=256k,mode=0755") != 0) {
            return "no mount";
        }
        write(oldText, "etc/zorslapd.conf");
        const Handle handle = boundTo(file(), backup());
        // Without a set of its own that is open: an open lock keeps the system writable.
        if (setPort(handle, "636") != 0) {
            return failureOf(handle);
        }
        const std::string before = all();
        if (mount("none", folder().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
            return "no remount";
        }
        const std::string failed = setPort(handle, "637") == 0 ? "changed" : failureOf(handle);
        if (all() != before || inMemory(handle) != withPort(oldText, "636")) {
            return "touched: " + all();
        }
        if (mount("none", folder().c_str(), nullptr, MS_REMOUNT, nullptr) != 0 || setPort(handle, "637") != 0) {
            return "not writable again: " + failureOf(handle);
        }
        return failed;
    });
    if (told == "no mount") {
        GTEST_SKIP() << "this system lets root mount nothing";
    }
    EXPECT_TRUE(told.starts_with("50/1004 ")) << told;
    EXPECT_NE(told.find("Read-only file system"), std::string::npos) << told;
}
