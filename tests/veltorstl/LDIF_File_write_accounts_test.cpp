// Giving the written file to the directory's account. This program has accounts of its own in place of the
// system's, and stands between the store and some calls of the system, to see them and to make them fail.
#include "LDIF_File.h"

#include "veltor/platform.h"

#include <cerrno>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/ldif.h"
#include "support/temporary_folder.h"
#include "support/told_by_child.h"

using veltor::test::expectFailure;
using veltor::test::failureOf;
using veltor::test::nobody;
using veltor::test::TemporaryFolder;
using veltor::test::toldByNobody;

namespace {

/// What the store sees of the system, and what it asked.
struct System
{
    uid_t uid = 1234;
    gid_t gid = 5678;
    std::vector<std::string> asked;
    int failNextChown = 0; ///< an errno value, or 0
    int failNextChmod = 0;
    int failNextStat = 0;
};

System world;

int failed(int& pending)
{
    errno = std::exchange(pending, 0);
    return -1;
}

/// A world as it should be for each test.
class LdifFileAccounts : public testing::Test
{
protected:
    LdifFileAccounts() { world = System(); }
    ~LdifFileAccounts() override { world = System(); }

    static void forgetTheAccount()
    {
        world.uid = static_cast<uid_t>(-1);
        world.gid = static_cast<gid_t>(-1);
    }
};

constexpr std::string_view plain = "charset: x\nversion: 1\n\ndn: o=x\ncn: a\n\n";
constexpr std::string_view changed = "charset: x\nversion: 1\n\ndn: o=x\ncn: a\ncn: b\n\n";

void change(LDIF_File& file)
{
    file.root.children.front() += LDIF_Attribute("cn", "b");
}

std::string memoryOf(const LDIF_File& file)
{
    std::string text;
    file.root.appendTreeTo(text);
    return text;
}

struct stat statusOf(const std::string& name)
{
    struct stat status = {};
    EXPECT_EQ(fstatat(AT_FDCWD, name.c_str(), &status, 0), 0) << name;
    return status;
}

/// Everything that a test of a failure wants of the disk: the new text in place, the old one under the backup name.
void expectBothTexts(const TemporaryFolder& folder)
{
    EXPECT_EQ(folder.read("f"), changed);
    EXPECT_EQ(folder.read("backup"), plain);
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) uid_t ldap_get_uid(const char* name)
{
    world.asked.push_back("user " + std::string(name));
    return world.uid;
}

__attribute__((visibility("default"))) gid_t ldap_get_gid(const char* name)
{
    world.asked.push_back("group " + std::string(name));
    return world.gid;
}

__attribute__((visibility("default"))) int chown(const char* name, uid_t uid, gid_t gid) noexcept
{
    world.asked.push_back("chown " + std::string(name) + " " + std::to_string(static_cast<int>(uid)) + " " +
                          std::to_string(static_cast<int>(gid)));
    return world.failNextChown != 0 ? failed(world.failNextChown) : fchownat(AT_FDCWD, name, uid, gid, 0);
}

__attribute__((visibility("default"))) int chmod(const char* name, mode_t mode) noexcept
{
    world.asked.push_back("chmod " + std::string(name) + " " + std::to_string(mode));
    return world.failNextChmod != 0 ? failed(world.failNextChmod) : fchmodat(AT_FDCWD, name, mode, 0);
}

__attribute__((visibility("default"))) int stat(const char* name, struct stat* status) noexcept
{
    world.asked.push_back("stat " + std::string(name));
    return world.failNextStat != 0 ? failed(world.failNextStat) : fstatat(AT_FDCWD, name, status, 0);
}
}

TEST_F(LdifFileAccounts, TheFileIsGivenToTheAccountLdapAndThenProtected)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    const TemporaryFolder folder;
    const std::string name = folder.write("f", plain);
    LDIF_File file(name, folder.path("backup"));
    change(file);
    world.asked.clear();
    file.flush();
    const std::vector<std::string> inThisOrder = {"stat " + name, "chown " + name + " 1234 5678",
                                                  "chmod " + name + " " + std::to_string(0640)};
    std::vector<std::string> asked;
    bool user = false;
    bool group = false;
    for (const auto& call : world.asked) {
        user = user || call == "user ldap";
        group = group || call == "group ldap";
        if (call != "user ldap" && call != "group ldap") {
            asked.push_back(call);
        }
    }
    EXPECT_EQ(asked, inThisOrder);
    EXPECT_TRUE(user);
    EXPECT_TRUE(group);
    EXPECT_EQ(world.asked.size(), 5U) << "each account is asked for once";
    expectBothTexts(folder);
    EXPECT_EQ(statusOf(name).st_uid, 1234U);
    EXPECT_EQ(statusOf(name).st_gid, 5678U);
    EXPECT_EQ(statusOf(name).st_mode & 07777U, 0640U);
    EXPECT_EQ(statusOf(folder.path("backup")).st_uid, 0U) << "the backup keeps its owner";
}

TEST_F(LdifFileAccounts, AnAccountThatDoesNotExistLeavesTheOwnerAsItIs)
{
    forgetTheAccount();
    const TemporaryFolder folder;
    const std::string name = folder.write("f", plain);
    LDIF_File file(name, folder.path("backup"));
    change(file);
    file.flush();
    expectBothTexts(folder);
    EXPECT_EQ(statusOf(name).st_uid, geteuid());
    EXPECT_EQ(statusOf(name).st_gid, getegid());
    EXPECT_EQ(statusOf(name).st_mode & 07777U, 0640U);
}

TEST_F(LdifFileAccounts, WithoutABackupNameNobodyIsAskedAndNothingGivenAway)
{
    const TemporaryFolder folder;
    const std::string name = folder.write("f", plain);
    LDIF_File file(name, "");
    world.asked.clear();
    file.flush();
    EXPECT_EQ(world.asked, std::vector<std::string>{"stat " + name});
}

TEST_F(LdifFileAccounts, ALoadThatKeepsLinesGivesTheFileAwayToo)
{
    forgetTheAccount();
    const TemporaryFolder folder;
    const std::string name = folder.write("f", "dn: o=x\nbad\n");
    const LDIF_File file(name, folder.path("backup"));
    EXPECT_EQ(statusOf(name).st_mode & 07777U, 0640U);
    EXPECT_EQ(folder.read("backup"), "dn: o=x\nbad\n");
}

TEST_F(LdifFileAccounts, AFileThatCannotBeGivenAwayIsReported)
{
    const TemporaryFolder folder;
    const std::string name = folder.write("f", plain);
    ASSERT_EQ(chmod(name.c_str(), 0600), 0);
    LDIF_File file(name, folder.path("backup"));
    change(file);
    world.failNextChown = EPERM;
    world.asked.clear();
    const mode_t mask = umask(0022);
    const auto failure = failureOf([&] { file.flush(); });
    umask(mask);
    expectFailure(failure, 50, 1004, "Unable to chown: \"" + name + "\" ");
    EXPECT_EQ(failure.configFile, name);
    EXPECT_EQ(failure.sysErrno, 0);
    for (const auto& call : world.asked) {
        EXPECT_FALSE(call.starts_with("chmod")) << "a failed step is the last one";
    }
    expectBothTexts(folder);
    EXPECT_EQ(statusOf(name).st_mode & 07777U, 0644U) << "as the open call made it";
    EXPECT_EQ(memoryOf(file), changed);
    EXPECT_FALSE(file.refresh()) << "the status was taken before";
}

TEST_F(LdifFileAccounts, AFileThatCannotBeProtectedIsReported)
{
    forgetTheAccount();
    const TemporaryFolder folder;
    const std::string name = folder.write("f", plain);
    LDIF_File file(name, folder.path("backup"));
    change(file);
    world.failNextChmod = EIO;
    const auto failure = failureOf([&] { file.flush(); });
    expectFailure(failure, 50, 1004, "Unable to chmod: \"" + name + "\" ");
    EXPECT_EQ(failure.configFile, name);
    EXPECT_EQ(failure.sysErrno, 0);
    expectBothTexts(folder);
    EXPECT_EQ(memoryOf(file), changed);
    EXPECT_FALSE(file.refresh());
}

TEST_F(LdifFileAccounts, AWrittenFileWithoutStatusIsReported)
{
    for (const bool keepsBackup : {false, true}) {
        SCOPED_TRACE(keepsBackup);
        const TemporaryFolder folder;
        const std::string name = folder.write("f", plain);
        LDIF_File file(name, keepsBackup ? folder.path("backup") : "");
        change(file);
        world.failNextStat = EACCES;
        world.asked.clear();
        const auto failure = failureOf([&] { file.flush(); });
        expectFailure(failure, 91, 1003, "_stat()");
        EXPECT_EQ(failure.sysErrno, EACCES);
        EXPECT_EQ(failure.configFile, name);
        EXPECT_EQ(world.asked, std::vector<std::string>{"stat " + name}) << "a failed step is the last one";
        EXPECT_EQ(folder.read("f"), changed);
        EXPECT_EQ(folder.exists("backup"), keepsBackup);
        EXPECT_EQ(memoryOf(file), changed);
    }
}

TEST_F(LdifFileAccounts, AnotherUserCannotGiveTheFileToRoot)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    // Nothing is made to fail here: the system itself refuses.
    world.uid = 0;
    world.gid = 0;
    const TemporaryFolder folder;
    const std::string name = folder.write("f", plain);
    ASSERT_EQ(fchownat(AT_FDCWD, folder.path().c_str(), nobody, nobody, 0), 0);
    ASSERT_EQ(fchownat(AT_FDCWD, name.c_str(), nobody, nobody, 0), 0);

    const std::string told = toldByNobody([&]() -> std::string {
        try {
            LDIF_File file(name, folder.path("backup"));
            change(file);
            file.flush();
        } catch (const LDIF_Exception& failure) {
            return std::to_string(failure.ldapErr) + "/" + std::to_string(failure.extErr) + " " + failure.msg;
        }
        return "written";
    });
    EXPECT_EQ(told, "50/1004 Unable to chown: \"" + name + "\" ");
    expectBothTexts(folder);
    EXPECT_EQ(statusOf(name).st_uid, nobody);
}
