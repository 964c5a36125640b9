// Writing the configuration file back.
#include "LDIF_File.h"

#include "LDIF_AttrType.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/ldif.h"
#include "support/locale_guard.h"
#include "support/temporary_folder.h"

using veltor::test::commentOf;
using veltor::test::dnOf;
using veltor::test::expectFailure;
using veltor::test::failureOf;
using veltor::test::LocaleGuard;
using veltor::test::TemporaryFolder;

namespace {

/// What most tests load and write; it is in the form in which it is written.
constexpr std::string_view plain = "charset: x\nversion: 1\n\ndn: o=x\ncn: a\n\n# t\n";
constexpr std::string_view changed = "charset: x\nversion: 1\n\ndn: o=x\ncn: a\ncn: b\n\n# t\n";

void change(LDIF_File& file)
{
    file.root.children.front() += LDIF_Attribute("cn", "b");
}

struct stat statusOf(const std::string& name)
{
    struct stat status = {};
    if (lstat(name.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    return status;
}

mode_t modeOf(const std::string& name)
{
    return statusOf(name).st_mode & 07777U;
}

/// Nothing that a flush does may change the store.
std::string memoryOf(const LDIF_File& file)
{
    std::string text;
    file.root.appendTreeTo(text);
    file.trailingComment.appendTo(text);
    return text;
}

/// A limit of the process while it lives.
class Limit
{
public:
    Limit(__rlimit_resource_t resource, rlim_t value) : resource_(resource)
    {
        getrlimit(resource_, &before_);
        const struct rlimit limit = {value, before_.rlim_max};
        setrlimit(resource_, &limit);
    }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;
    ~Limit() { setrlimit(resource_, &before_); }

private:
    __rlimit_resource_t resource_;
    struct rlimit before_ = {};
};

} // namespace

// ---- The text ----

TEST(LdifFileWrite, TheWholeStoreIsWrittenInItsForm)
{
    const TemporaryFolder folder;
    LDIF_File file(folder.write("f", "# heading\n"
                                     "version: 1\n"
                                     "charset: UTF-8\n"
                                     "\n"
                                     "# above the entry\n"
                                     "dn: CN=Configuration\n"
                                     "objectclass: top\n"
                                     "# about the port\n"
                                     "zor-slapdPort:   0389  \n"
                                     "cn: Configuration\n"
                                     "OBJECTCLASS: zor-top\n"
                                     "zor-slapdAdminDN: CN = Admin;o=x\n"
                                     "# dangling\n"
                                     "\n"
                                     "\n"
                                     "dn: cn=b,ou=a,o=x\n"
                                     "cn: long\n"
                                     "  value\n"
                                     "\n"
                                     "Dn: OU=a,o=x\n"
                                     "# trailing\n"
                                     "\n"
                                     "\n"),
                   "");
    file.flush();
    EXPECT_EQ(folder.read("f"), "charset: UTF-8\n"
                                "# heading\n"
                                "version: 1\n"
                                "\n"
                                "# above the entry\n"
                                "dn: CN=Configuration\n"
                                "cn: Configuration\n"
                                "objectclass: top\n"
                                "objectclass: zor-top\n"
                                "zor-slapdAdminDN: CN=Admin, o=x\n"
                                "# about the port\n"
                                "zor-slapdPort: 389\n"
                                "\n"
                                "Dn: OU=a, o=x\n"
                                "\n"
                                "# dangling\n"
                                "\n"
                                "dn: cn=b, ou=a, o=x\n"
                                "cn: long value\n"
                                "\n"
                                "# trailing\n");
}

TEST(LdifFileWrite, WhatIsWrittenIsWhatTheNextLoadReadsAndWrites)
{
    const struct
    {
        const char* name;
        const char* text;
        const char* written;
    } rows[] = {
        {"nothing", "", ""},
        {"root attributes alone", "version: 1\ncharset: x\n", "charset: x\nversion: 1\n"},
        {"a trailing comment alone", "# a\n\n# b\n\n", "# a\n\n# b\n"},
        {"defaults", "dn: o=x\n", "charset: ISO-8859-1\nversion: 1\n\ndn: o=x\n\n"},
        {"comments of all kinds",
         "# c\ncharset: x\n# v\nversion: 1\n# root and x\n\n# x\ndn: o=x\n# cn\ncn: a\n# y\n\n# y2\ndn: o=y\n\n# t\n",
         "# c\ncharset: x\n# v\nversion: 1\n\n# root and x\n\n# x\ndn: o=x\n# cn\ncn: a\n\n# y\n# y2\ndn: o=y\n\n# "
         "t\n"},
        {"blank lines between entries", "charset: x\nversion: 1\n\n\ndn: o=x\n\n\n\ndn: o=y\n",
         "charset: x\nversion: 1\n\n\ndn: o=x\n\n\n\ndn: o=y\n\n"},
        {"line feeds alone end lines", "charset: x\r\nversion: 1\r\n\r\ndn: o=x\r\n# c\r\ncn: a\r\n",
         "charset: x\nversion: 1\n\ndn: o=x\n# c\ncn: a\n\n"},
        {"depth first", "charset: x\nversion: 1\ndn: cn=a,o=x\n\ndn: o=y\n\ndn: cn=b,o=x\n\ndn: o=x\n\ndn: cn=c,o=y\n",
         "charset: x\nversion: 1\n\ndn: o=y\n\ndn: cn=c, o=y\n\ndn: o=x\n\ndn: cn=a, o=x\n\ndn: cn=b, o=x\n\n"},
        {"a kept line of another kind", "charset: x\nversion: 1\ndn: o=x\nzor-slapdPort: abc\n",
         "charset: x\nversion: 1\n\ndn: o=x\nzor-slapdInvalidLine: zor-slapdPort: abc\n\n"},
        {"special characters of a DN", "charset: x\nversion: 1\ndn: cn=\"a,b\"+sn=\\23 ,o=#4142\n",
         "charset: x\nversion: 1\n\ndn: cn=\"a,b\" + sn=\\#, o=#4142\n\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const TemporaryFolder folder;
        const std::string name = folder.write("f", row.text);
        LDIF_File(name, "").flush();
        EXPECT_EQ(folder.read("f"), row.written);
        LDIF_File(name, "").flush();
        EXPECT_EQ(folder.read("f"), row.written);
    }
}

TEST(LdifFileWrite, SomeFormsAreNotTheSameTheSecondTime)
{
    // A kept line that ends in ": " loses its blank; a value that begins on a continuation line loses the white
    // space that was its own; a DN value loses the parenthesis that it begins with.
    const struct
    {
        const char* name;
        const char* text;
        const char* first;
        const char* second;
    } rows[] = {
        {"a kept line that ends in a blank", "no colon\n", "zor-slapdInvalidLine: no colon: \n",
         "zor-slapdInvalidLine: no colon:\n"},
        {"a value that begins on a continuation line", "cn:\n  a\n", "cn:  a\n", "cn: a\n"},
        {"a DN value that begins with a parenthesis", "zor-slapdAdminDN: cn=\\28a\n", "zor-slapdAdminDN: cn=(a\n",
         "zor-slapdAdminDN: cn=a\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string heading = "charset: x\nversion: 1\n\ndn: o=x\n";
        const TemporaryFolder folder;
        const std::string name = folder.write("f", heading + row.text);
        LDIF_File(name, "").flush();
        EXPECT_EQ(folder.read("f"), heading + row.first + "\n");
        LDIF_File(name, "").flush();
        EXPECT_EQ(folder.read("f"), heading + row.second + "\n");
        LDIF_File(name, "").flush();
        EXPECT_EQ(folder.read("f"), heading + row.second + "\n");
    }
}

TEST(LdifFileWrite, ChangesInMemoryAreWritten)
{
    const TemporaryFolder folder;
    LDIF_File file(folder.write("f", plain), "");
    change(file);
    LDIF_Entry added(dnOf("cn=new,o=x"));
    added += commentOf({"# new"});
    file.root += added;
    file.trailingComment += commentOf({"# more"});
    file.flush();
    EXPECT_EQ(folder.read("f"),
              "charset: x\nversion: 1\n\ndn: o=x\ncn: a\ncn: b\n\n# new\ndn: cn=new, o=x\n\n# t\n# more\n");
}

TEST(LdifFileWrite, AShorterTextLeavesNothingOfTheLongerOne)
{
    const TemporaryFolder folder;
    LDIF_File file(folder.write("f", plain), "");
    file.root.children.clear();
    file.trailingComment.lines.clear();
    file.flush();
    EXPECT_EQ(folder.read("f"), "charset: x\nversion: 1\n");
    file.root.clear();
    file.flush();
    EXPECT_EQ(folder.read("f"), "");
}

TEST(LdifFileWrite, TextBeyondAsciiIsWrittenAsItWasRead)
{
    const LocaleGuard locale("C.UTF-8");
    const std::string text = "charset: x\nversion: 1\n\n# \xC3\xA4\ndn: o=\xC3\x84\ncn: Bj\xC3\xB6rn\n\n";
    const TemporaryFolder folder;
    LDIF_File file(folder.write("f", text), "");
    file.flush();
    EXPECT_EQ(folder.read("f"), text);
}

TEST(LdifFileWrite, TheStoreIsNotChanged)
{
    const TemporaryFolder folder;
    LDIF_File file(folder.write("f", plain), folder.path("backup"));
    change(file);
    file.authLevel = 2;
    file.flush();
    EXPECT_EQ(memoryOf(file), changed);
    EXPECT_EQ(file.authLevel, 2);
    EXPECT_EQ(file.fileName, folder.path("f"));
    EXPECT_EQ(file.backupFileName, folder.path("backup"));
}

TEST(LdifFileWrite, ABackupNameThatIsTheFileItselfIsRefusedAndTheFileStays)
{
    // Removing the old backup once removed the configuration, and the rename had nothing left to rename.
    const TemporaryFolder folder;
    const std::string content = "version: 1\n\ndn: o=x\ncn: a\n\n";
    const std::string name = folder.write("zorslapd.conf", content);
    for (const std::string& backup : {name, folder.path("./zorslapd.conf"), folder.path(".//./zorslapd.conf")}) {
        SCOPED_TRACE(backup);
        LDIF_File file(name, backup);
        expectFailure(failureOf([&] { file.flush(); }), 50, 1004,
                      "Unable to rename: \"" + name + "\" to \"" + backup + "\" ");
        EXPECT_EQ(folder.read("zorslapd.conf"), content);
    }
}

TEST(LdifFileWrite, ARefreshRightAfterwardsReadsNothing)
{
    for (const char* const backup : {"", "backup"}) {
        SCOPED_TRACE(backup);
        const TemporaryFolder folder;
        const std::string name = folder.write("f", plain);
        const struct timespec times[2] = {{1000, 0}, {1000, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, name.c_str(), times, 0), 0);
        LDIF_File file(name, *backup == '\0' ? "" : folder.path(backup));
        ASSERT_EQ(file.fileStatus.st_mtime, 1000);
        change(file);
        file.flush();
        EXPECT_EQ(file.fileStatus.st_mtime, statusOf(name).st_mtime);
        EXPECT_NE(file.fileStatus.st_mtime, 1000);
        EXPECT_FALSE(file.refresh());
        EXPECT_EQ(memoryOf(file), changed);
    }
}

TEST(LdifFileWrite, ARefreshRightAfterwardsReadsNothingAfterAFailedLoadEither)
{
    const TemporaryFolder folder;
    const std::string name = folder.write("f", plain);
    const struct timespec times[2] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, name.c_str(), times, 0), 0);
    LDIF_File file(name, "");
    folder.write("f", "charset: x\nfoo: bar\n");
    EXPECT_EQ(failureOf([&] { file.refresh(); }).ldapErr, 65);
    file.flush();
    EXPECT_EQ(folder.read("f"), "charset: x\n");
    EXPECT_FALSE(file.refresh());
}

// ---- Without a backup name ----

TEST(LdifFileWrite, WithoutABackupNameTheFileKeepsItsPlaceOwnerAndMode)
{
    const TemporaryFolder folder;
    const std::string name = folder.write("f", plain);
    const bool root = geteuid() == 0;
    if (root) {
        ASSERT_EQ(chown(name.c_str(), 1234, 5678), 0);
    }
    ASSERT_EQ(chmod(name.c_str(), 0604), 0);
    ASSERT_EQ(link(name.c_str(), folder.path("other name").c_str()), 0);
    const auto before = statusOf(name);
    LDIF_File file(name, "");
    change(file);
    file.flush();
    const auto after = statusOf(name);
    EXPECT_EQ(folder.read("f"), changed);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
    EXPECT_EQ(folder.read("other name"), changed);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 2) << "no other file is left";
}

TEST(LdifFileWrite, WithoutABackupNameALinkIsFollowed)
{
    const TemporaryFolder folder;
    folder.write("target", plain);
    ASSERT_EQ(symlink("target", folder.path("f").c_str()), 0);
    LDIF_File file(folder.path("f"), "");
    change(file);
    file.flush();
    EXPECT_EQ(folder.read("target"), changed);
    EXPECT_TRUE(S_ISLNK(statusOf(folder.path("f")).st_mode));
}

TEST(LdifFileWrite, AFileThatIsGoneIsMadeAnew)
{
    const TemporaryFolder folder;
    const std::string name = folder.write("f", plain);
    LDIF_File file(name, "");
    ASSERT_EQ(unlink(name.c_str()), 0);
    const mode_t mask = umask(0027);
    file.flush();
    umask(mask);
    EXPECT_EQ(folder.read("f"), plain);
    EXPECT_EQ(modeOf(name), 0640U) << "what the mask leaves of read and write for all";
}

// ---- With a backup name ----

TEST(LdifFileWrite, WithABackupNameThePreviousFileIsKeptThere)
{
    const TemporaryFolder folder;
    const std::string name = folder.write("f", plain);
    LDIF_File file(name, folder.path("backup"));
    const auto before = statusOf(name);
    change(file);
    file.flush();
    EXPECT_EQ(folder.read("f"), changed);
    EXPECT_EQ(folder.read("backup"), plain);
    EXPECT_EQ(statusOf(folder.path("backup")).st_ino, before.st_ino) << "renamed, not copied";
    EXPECT_NE(statusOf(name).st_ino, before.st_ino);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 2) << "no other file is left";
}

TEST(LdifFileWrite, AnOlderBackupIsReplaced)
{
    const TemporaryFolder folder;
    folder.write("backup", "older");
    LDIF_File file(folder.write("f", plain), folder.path("backup"));
    change(file);
    file.flush();
    EXPECT_EQ(folder.read("backup"), plain);
    file.flush();
    EXPECT_EQ(folder.read("backup"), changed);
    EXPECT_EQ(folder.read("f"), changed);
}

TEST(LdifFileWrite, ABackupIsTakenOfWhatIsOnDiskNotInMemory)
{
    const TemporaryFolder folder;
    LDIF_File file(folder.write("f", plain), folder.path("backup"));
    folder.write("f", "written by somebody else");
    file.flush();
    EXPECT_EQ(folder.read("backup"), "written by somebody else");
    EXPECT_EQ(folder.read("f"), plain);
}

TEST(LdifFileWrite, AnEmptyFolderInTheWayOfTheBackupIsRemovedLikeAFile)
{
    const TemporaryFolder folder;
    ASSERT_EQ(mkdir(folder.path("backup").c_str(), 0700), 0);
    LDIF_File file(folder.write("f", plain), folder.path("backup"));
    file.flush();
    EXPECT_EQ(folder.read("backup"), plain);
}

TEST(LdifFileWrite, ALinkInTheWayOfTheBackupIsRemovedAndNotFollowed)
{
    const TemporaryFolder folder;
    folder.write("target", "untouched");
    ASSERT_EQ(symlink("target", folder.path("backup").c_str()), 0);
    LDIF_File file(folder.write("f", plain), folder.path("backup"));
    file.flush();
    EXPECT_EQ(folder.read("target"), "untouched");
    EXPECT_TRUE(S_ISREG(statusOf(folder.path("backup")).st_mode));
}

TEST(LdifFileWrite, WithABackupNameTheFileGetsTheAccountAndItsMode)
{
    const struct passwd* const user = getpwnam("ldap");
    const struct group* const group = getgrnam("ldap");
    const uid_t uid = user == nullptr ? geteuid() : user->pw_uid;
    const gid_t gid = group == nullptr ? getegid() : group->gr_gid;
    if (geteuid() != 0 && (uid != geteuid() || gid != getegid())) {
        GTEST_SKIP() << "only root can give a file to the account \"ldap\" of this system";
    }
    for (const mode_t mask : {0000U, 0077U}) {
        for (const mode_t mode : {0600U, 0666U, 0777U}) {
            SCOPED_TRACE(std::to_string(mask) + " " + std::to_string(mode));
            const TemporaryFolder folder;
            const std::string name = folder.write("f", plain);
            ASSERT_EQ(chmod(name.c_str(), mode), 0);
            LDIF_File file(name, folder.path("backup"));
            const mode_t before = umask(mask);
            file.flush();
            umask(before);
            EXPECT_EQ(modeOf(name), 0640U);
            EXPECT_EQ(statusOf(name).st_uid, uid);
            EXPECT_EQ(statusOf(name).st_gid, gid);
            EXPECT_EQ(modeOf(folder.path("backup")), mode) << "the old file keeps its own";
        }
    }
}

// ---- Failures ----

TEST(LdifFileWrite, AFileThatCannotBeRenamedIsReported)
{
    const TemporaryFolder folder;
    const struct
    {
        const char* name;
        std::string backup;
    } rows[] = {
        {"a folder with something in it is in the way", folder.path("full")},
        {"the folder is missing", folder.path("missing/backup")},
        {"a file in the folder's place", folder.path("file/backup")},
        {"another file system", "/proc/backup"},
    };
    std::filesystem::create_directories(folder.path("full/something"));
    folder.write("file", "");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string name = folder.write("f", plain);
        LDIF_File file(name, row.backup);
        const time_t time = file.fileStatus.st_mtime;
        change(file);
        const auto failure = failureOf([&] { file.flush(); });
        expectFailure(failure, 50, 1004, "Unable to rename: \"" + name + "\" to \"" + row.backup + "\" ");
        EXPECT_EQ(failure.configFile, name);
        EXPECT_EQ(failure.configLine, 0);
        EXPECT_EQ(failure.sysErrno, 0);
        EXPECT_EQ(folder.read("f"), plain) << "the file is in place";
        EXPECT_EQ(memoryOf(file), changed);
        EXPECT_EQ(file.fileStatus.st_mtime, time);
        EXPECT_FALSE(file.refresh());
        EXPECT_EQ(memoryOf(file), changed) << "the change waits for a write that succeeds";
    }
}

TEST(LdifFileWrite, AFailedRenameHasRemovedTheOldBackup)
{
    const TemporaryFolder folder;
    folder.write("backup", "older");
    const std::string name = folder.write("f", plain);
    LDIF_File file(name, folder.path("backup"));
    ASSERT_EQ(unlink(name.c_str()), 0);
    expectFailure(failureOf([&] { file.flush(); }), 50, 1004,
                  "Unable to rename: \"" + name + "\" to \"" + folder.path("backup") + "\" ");
    EXPECT_FALSE(folder.exists("backup"));
    EXPECT_FALSE(folder.exists("f")) << "nothing is written without a rename";
}

TEST(LdifFileWrite, AFileThatCannotBeOpenedIsReported)
{
    const TemporaryFolder folder;
    const auto expectComplaint = [&](const char* what, auto&& putInTheWay) {
        SCOPED_TRACE(what);
        const std::string name = folder.write("f", plain);
        LDIF_File file(name, "");
        change(file);
        ASSERT_EQ(unlink(name.c_str()), 0);
        putInTheWay(name);
        alarm(60);
        const auto failure = failureOf([&] { file.flush(); });
        alarm(0);
        expectFailure(failure, 50, 1004, "Unable to open: \"" + name + "\"");
        EXPECT_EQ(failure.configFile, name);
        EXPECT_EQ(failure.sysErrno, 0);
        EXPECT_EQ(memoryOf(file), changed);
        std::filesystem::remove(name);
    };
    expectComplaint("a folder", [](const std::string& name) { std::filesystem::create_directory(name); });
    expectComplaint("a fifo that nobody reads", [](const std::string& name) { mkfifo(name.c_str(), 0600); });
    expectComplaint("a link that leads nowhere",
                    [](const std::string& name) { std::filesystem::create_symlink("missing/target", name); });

    std::filesystem::create_directory(folder.path("sub"));
    const std::string name = folder.write("sub/f", plain);
    LDIF_File file(name, "");
    std::filesystem::remove_all(folder.path("sub"));
    expectFailure(failureOf([&] { file.flush(); }), 50, 1004, "Unable to open: \"" + name + "\"");
}

TEST(LdifFileWrite, AFailedOpenLeavesTheOldTextUnderTheBackupName)
{
    const TemporaryFolder folder;
    const std::string name = folder.write("f", plain);
    LDIF_File file(name, folder.path("backup"));
    change(file);
    const auto failure = failureOf([&] {
        const Limit noMoreFiles(RLIMIT_NOFILE, 0);
        file.flush();
    });
    expectFailure(failure, 50, 1004, "Unable to open: \"" + name + "\"");
    EXPECT_EQ(folder.read("backup"), plain);
    EXPECT_FALSE(folder.exists("f")) << "nothing is rolled back";
    EXPECT_EQ(memoryOf(file), changed);
}

TEST(LdifFileWrite, AFolderInTheFilesPlaceGoesToTheBackupName)
{
    // rename moves a folder like a file, so with a backup name it is out of the way.
    const TemporaryFolder folder;
    const std::string name = folder.write("f", plain);
    LDIF_File file(name, folder.path("backup"));
    ASSERT_EQ(unlink(name.c_str()), 0);
    ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
    file.flush();
    EXPECT_EQ(folder.read("f"), plain);
    EXPECT_TRUE(std::filesystem::is_directory(folder.path("backup")));
}

TEST(LdifFileWrite, ADnThatCannotBePrintedCostsNothingOnDisk)
{
    for (const char* const backup : {"", "backup"}) {
        SCOPED_TRACE(backup);
        const TemporaryFolder folder;
        folder.write("backup", "older");
        const std::string name = folder.write("f", "charset: x\nversion: 1\n\ndn: o=x\n\ndn: cn=,o=x\n");
        LDIF_File file(name, *backup == '\0' ? "" : folder.path(backup));
        const auto before = statusOf(name);
        const auto failure = failureOf([&] { file.flush(); });
        expectFailure(failure, 34, 1013, "Missing RDN attribute value");
        const auto after = statusOf(name);
        EXPECT_EQ(after.st_ino, before.st_ino);
        EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
        EXPECT_EQ(folder.read("f"), "charset: x\nversion: 1\n\ndn: o=x\n\ndn: cn=,o=x\n");
        EXPECT_EQ(folder.read("backup"), "older");
    }
}

TEST(LdifFileWrite, AForeignFailureIsASystemErrorAndCostsNothingOnDisk)
{
    const TemporaryFolder folder;
    const std::string name = folder.write("f", plain);
    LDIF_File file(name, folder.path("backup"));
    _AttrType failing = *getAttrType("cn");
    failing.toStr = [](const LDIF_Value&) -> std::string { throw std::runtime_error("no text"); };
    file.root.children.front().attributes.front().values.begin()->attrType = &failing;
    const auto failure = failureOf([&] { file.flush(); });
    expectFailure(failure, 80, 1000, "System error writing file");
    EXPECT_EQ(failure.configFile, name);
    EXPECT_EQ(folder.read("f"), plain);
    EXPECT_FALSE(folder.exists("backup"));
}

TEST(LdifFileWrite, AWriteThatDoesNotFitIsNotReported)
{
    // The classic way: neither a full disk nor a failed close has a code. The file ends where the room did.
    const TemporaryFolder folder;
    const std::string name = folder.write("f", plain);
    LDIF_File file(name, folder.path("backup"));
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    {
        const Limit room(RLIMIT_FSIZE, 20);
        EXPECT_NO_THROW(file.flush());
    }
    std::signal(SIGXFSZ, before);
    EXPECT_EQ(folder.read("f"), plain.substr(0, 20));
    EXPECT_EQ(folder.read("backup"), plain);
    EXPECT_FALSE(file.refresh()) << "the cut file is taken for what was written";
    EXPECT_EQ(memoryOf(file), plain);
}
