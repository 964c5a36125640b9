// What the tool tells the system's log: who changed what, and no secret. The log itself is taken from it here.
#include "command_run.h"
#include "support/temporary_folder.h"

#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

namespace {

// What came since the last look.
std::vector<std::string> logLines;

void keep(const char* format, std::va_list arguments)
{
    char line[4096];
    std::vsnprintf(line, sizeof line, format, arguments);
    logLines.emplace_back(line);
}

} // namespace

// In place of the C library's, under both of the names that a call may be compiled to.
extern "C" void syslog(int /*priority*/, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    keep(format, arguments);
    va_end(arguments);
}

extern "C" void __syslog_chk(int /*priority*/, int /*flag*/, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    keep(format, arguments);
    va_end(arguments);
}

namespace {

using namespace veltor::tool;

class SystemLogTest : public testing::Test
{
protected:
    SystemLogTest()
    {
        put("in.conf", "dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminDN: cn=root\nzor-slapdPort: 389\n");
        put("password", "SecretNew");
        put("other.conf", "dn: cn=Configuration\nobjectclass: top\nzor-slapdSetenv: A=SecretOther\n");
        put("changes.ldif",
            "dn: cn=Configuration\nchangetype: modify\nadd: zor-slapdSetenv\n"
            "zor-slapdSetenv: A=SecretSet\n-\nreplace: zor-slapdPeerPW\nzor-slapdPeerPW: SecretPeer\n-\n"
            "add: zor-slapdReferral\nzor-slapdReferral: ldap://SecretHost\n-\n");
        logLines.clear();
    }
    void put(const std::string& name, const std::string& text) const
    {
        ::chmod(temporary_.write(name, text).c_str(), 0600);
    }

    /// Runs a command, F in it standing for the folder; what it told the log.
    std::vector<std::string> told(std::string line) const
    {
        logLines.clear();
        for (std::size_t at = line.find("F/"); at != std::string::npos; at = line.find("F/", at + folder_.size())) {
            line.replace(at, 1, folder_);
        }
        EXPECT_EQ(runLine({setCommand, passwdCommand, modifyCommand, restoreCommand}, line + " -q -F " + file_), 0);
        return logLines;
    }

    const veltor::test::TemporaryFolder temporary_;
    const std::string folder_ = temporary_.path();
    const std::string file_ = temporary_.path("in.conf");
};

TEST_F(SystemLogTest, HasALineForEachChangeWithoutItsSecrets)
{
    const std::string head = "uid " + std::to_string(::getuid()) + " changed " + folder_ + "/in.conf: ";
    const struct
    {
        const char *command, *log;
    } rows[] = {
        {"set port=1389 security=SSL", "cn=Configuration: zor-slapdPort=1389, zor-slapdSecurity=SSL"},
        {"passwd -T F/password", "cn=Configuration: zor-slapdAdminPW"},
        {"modify -f F/changes.ldif", "cn=Configuration: zor-slapdSetenv, zor-slapdPeerPW, zor-slapdReferral"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        EXPECT_EQ(told(row.command), std::vector<std::string>{head + row.log});
    }
    EXPECT_EQ(told("restore --yes --allow-lockout F/other.conf"),
              std::vector<std::string>{head + "restored from " + folder_ +
                                       "/other.conf: cn=Configuration: zor-slapdSetenv, zor-slapdAdminDN, "
                                       "zor-slapdAdminPW, zor-slapdPeerPW, zor-slapdPort, zor-slapdReferral, "
                                       "zor-slapdSecurity"});
}

// Whoever reads it does not know in which folder the tool ran.
TEST_F(SystemLogTest, NamesTheFileFromTheRootAndBehindLinks)
{
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder_);
    std::filesystem::create_symlink("in.conf", "link.conf");
    const std::string head = "uid " + std::to_string(::getuid()) + " changed " +
                             std::filesystem::canonical(file_).string() + ": cn=Configuration: zor-slapdPort=";
    EXPECT_EQ(runLine({setCommand}, "set port=1 -q -F ./in.conf"), 0);
    EXPECT_EQ(runLine({setCommand}, "set port=2 -q -F link.conf"), 0);
    std::filesystem::current_path(before);
    EXPECT_EQ(logLines, (std::vector<std::string>{head + "1", head + "2"}));
}

TEST_F(SystemLogTest, HasNoSecretThatStandsInANameOrADn)
{
    put("odd.conf", "dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminPW=SecretName: x\nmy pw is SecretWord: x\n\n"
                    "dn: cn=A, cn=Configuration\n zor-slapdAdminPW: SecretDn\nobjectclass: top\n");
    const std::vector<std::string> lines = told("restore --yes --allow-lockout F/odd.conf");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines.front().find("Secret"), std::string::npos) << lines.front();
    EXPECT_NE(lines.front().find("***"), std::string::npos) << lines.front();
}

TEST_F(SystemLogTest, HasNoLineForWhatChangesNothing)
{
    EXPECT_TRUE(told("set port=389").empty());
    EXPECT_TRUE(told("set -n port=1389").empty());
}

} // namespace
