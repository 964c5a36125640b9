// Commands that ask, on a terminal of their own.
#include "command_run.h"
#include "conversation.h"
#include "question.h"
#include "support/temporary_folder.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <utility>

namespace {

using namespace veltor::tool;

class TerminalCommands : public testing::Test
{
protected:
    TerminalCommands()
    {
        temporary_.write("in.conf",
                         "dn: cn=Configuration\ncn: Configuration\nobjectclass: top\nzor-slapdAdminDN: cn=root\n");
    }

    std::string content() const { return temporary_.read("in.conf"); }

    std::function<int()> command(const std::string& line) const
    {
        return [this, line] {
            return runLine({passwdCommand, authCommand, initCommand, restoreCommand, setCommand},
                           line + " -F " + file_);
        };
    }

    const veltor::test::TemporaryFolder temporary_;
    const std::string folder_ = temporary_.path();
    const std::string file_ = temporary_.path("in.conf");
};

TEST_F(TerminalCommands, NewPasswordIsAskedForTwiceAndOpensTheFile)
{
    Conversation passwd(command("passwd"));
    ASSERT_TRUE(passwd.answer("New password for zor-slapdAdminPW: ", "new-secret")) << passwd.shown();
    ASSERT_TRUE(passwd.answer("Again: ", "new-secret")) << passwd.shown();
    EXPECT_EQ(passwd.status(), 0) << passwd.shown();
    EXPECT_EQ(passwd.shown().find("secret"), std::string::npos);
    EXPECT_EQ(content().find("secret"), std::string::npos);

    Conversation right(command("auth -W"));
    ASSERT_TRUE(right.answer("Password for cn=root: ", "new-secret")) << right.shown();
    EXPECT_EQ(right.status(), 0) << right.shown();

    Conversation wrong(command("auth -W"));
    ASSERT_TRUE(wrong.answer("Password for cn=root: ", "old-secret")) << wrong.shown();
    EXPECT_EQ(wrong.status(), 5) << wrong.shown();
}

TEST_F(TerminalCommands, NewPasswordIsAskedForAgainUntilTheThirdTry)
{
    const std::string before = content();
    Conversation passwd(command("passwd"));
    ASSERT_TRUE(passwd.answer("New password for zor-slapdAdminPW: ", "one")) << passwd.shown();
    ASSERT_TRUE(passwd.answer("Again: ", "two")) << passwd.shown();
    ASSERT_TRUE(passwd.answer("New password for zor-slapdAdminPW: ", ">encoded<")) << passwd.shown();
    ASSERT_TRUE(passwd.answer("New password for zor-slapdAdminPW: ", std::string(47, 'x'))) << passwd.shown();
    EXPECT_EQ(passwd.status(), 3) << passwd.shown();
    EXPECT_EQ(content(), before);
}

TEST_F(TerminalCommands, AnEmptyPasswordIsAskedForAgain)
{
    const std::string before = content();
    Conversation passwd(command("passwd"));
    for (int time = 0; time < 3; ++time) {
        ASSERT_TRUE(passwd.answer("New password for zor-slapdAdminPW: ", "")) << passwd.shown();
    }
    EXPECT_EQ(passwd.status(), 3) << passwd.shown();
    EXPECT_EQ(content(), before);
}

TEST_F(TerminalCommands, ARestoreShowsTheDifferenceAndAsks)
{
    const std::string before = content();
    temporary_.write("in.conf.bak", "dn: cn=Configuration\nobjectclass: top\nzor-slapdPort: 1389\n");
    // Nobody could bind as the administrator afterwards.
    Conversation no(command("restore --allow-lockout"));
    ASSERT_TRUE(no.answer("; go on? [y/N] ", "")) << no.shown();
    EXPECT_EQ(no.status(), 1) << no.shown();
    EXPECT_NE(no.shown().find("+zor-slapdPort: 1389"), std::string::npos) << no.shown();
    EXPECT_EQ(content(), before);
    Conversation yes(command("restore --allow-lockout"));
    ASSERT_TRUE(yes.answer("; go on? [y/N] ", "y")) << yes.shown();
    EXPECT_EQ(yes.status(), 0) << yes.shown();
    EXPECT_NE(content().find("zor-slapdPort: 1389"), std::string::npos);
}

TEST_F(TerminalCommands, AChangeThatIsDeclinedIsNotMade)
{
    temporary_.write("in.conf", content() + "zor-slapdSizeLimit: 5");
    const std::string before = content();
    for (const auto& [answer, status] : {std::pair("n", 1), std::pair("y", 0)}) {
        Conversation set(command("set port=1389"));
        ASSERT_TRUE(set.answer("would drop it from the file; go on? [y/N] ", answer)) << set.shown();
        EXPECT_EQ(set.status(), status) << set.shown();
        EXPECT_EQ(content() == before, status == 1);
    }
}

TEST_F(TerminalCommands, AQuestionKeepsNobodyFromWriting)
{
    temporary_.write("in.conf", content() + "zor-slapdSizeLimit: 5");
    Conversation set(command("set port=1389"));
    ASSERT_TRUE(set.shows("would drop it from the file; go on? [y/N] ")) << set.shown();
    Conversation other(command("set --lock-timeout 0 --yes timeLimit=7"));
    EXPECT_EQ(other.status(), 0) << other.shown();
    const std::string written = content();
    ASSERT_TRUE(set.answer("", "y")) << set.shown();
    // What was asked is not what would happen now.
    EXPECT_EQ(set.status(), 6) << set.shown();
    EXPECT_NE(set.shown().find("was changed by somebody else meanwhile"), std::string::npos) << set.shown();
    EXPECT_EQ(content(), written);
}

TEST_F(TerminalCommands, ColoursAreForTerminalsThatWantThem)
{
    temporary_.write("other.conf", "dn: cn=Configuration\ncn: Configuration\nobjectclass: top\nzor-slapdPort: 1\n");
    struct Row
    {
        const char *terminal, *noColour, *options;
        bool coloured;
    };
    for (const Row& row : {Row{"xterm", nullptr, "", true},
                           {"xterm", "", "", true},
                           {"xterm", "1", "", false},
                           {"dumb", nullptr, "", false},
                           {nullptr, nullptr, "", false},
                           {"dumb", "1", "--color always ", true},
                           {"xterm", nullptr, "--color never ", false}}) {
        Conversation diff([&] {
            row.terminal == nullptr ? ::unsetenv("TERM") : ::setenv("TERM", row.terminal, 1);
            row.noColour == nullptr ? ::unsetenv("NO_COLOR") : ::setenv("NO_COLOR", row.noColour, 1);
            return runLine({diffCommand}, std::string("diff ") + row.options + file_ + ' ' + folder_ + "/other.conf");
        });
        EXPECT_EQ(diff.status(), 1) << diff.shown();
        EXPECT_NE(diff.shown().find("+zor-slapdPort: 1"), std::string::npos) << diff.shown();
        EXPECT_EQ(diff.shown().find("\x1B[") != std::string::npos, row.coloured)
            << (row.terminal == nullptr ? "no TERM" : row.terminal) << ' ' << row.options << diff.shown();
    }
}

TEST_F(TerminalCommands, APasswordOfNoEntryIsNotAskedFor)
{
    Conversation passwd(command("passwd -b cn=missing"));
    EXPECT_EQ(passwd.status(), 8) << passwd.shown();
    EXPECT_EQ(passwd.shown().find("New password"), std::string::npos) << passwd.shown();
}

TEST_F(TerminalCommands, ThePasswordToBindWithIsAskedForOnceAndFirst)
{
    Conversation first(command("passwd"));
    ASSERT_TRUE(first.answer("New password for zor-slapdAdminPW: ", "old-secret")) << first.shown();
    ASSERT_TRUE(first.answer("Again: ", "old-secret")) << first.shown();
    EXPECT_EQ(first.status(), 0) << first.shown();

    Conversation passwd(command("passwd -W"));
    ASSERT_TRUE(passwd.answer("Password for cn=root: ", "old-secret")) << passwd.shown();
    ASSERT_TRUE(passwd.answer("New password for zor-slapdAdminPW: ", "new-secret")) << passwd.shown();
    ASSERT_TRUE(passwd.answer("Again: ", "new-secret")) << passwd.shown();
    EXPECT_EQ(passwd.status(), 0) << passwd.shown();
}

TEST_F(TerminalCommands, FreshFileHasTheSuffixAndThePasswordThatWereAskedFor)
{
    ::unlink(file_.c_str());
    Conversation init(command("init"));
    ASSERT_TRUE(init.answer("Suffix of the directory, such as dc=example,dc=com: ", "o=asked")) << init.shown();
    ASSERT_TRUE(init.answer("New password for zor-slapdAdminPW: ", "first-secret")) << init.shown();
    ASSERT_TRUE(init.answer("Again: ", "frist-secret")) << init.shown();
    ASSERT_TRUE(init.answer("New password for zor-slapdAdminPW: ", "first-secret")) << init.shown();
    ASSERT_TRUE(init.answer("Again: ", "first-secret")) << init.shown();
    EXPECT_EQ(init.status(), 0) << init.shown();
    EXPECT_EQ(init.shown().find("secret"), std::string::npos);
    EXPECT_NE(content().find("\nzor-slapdSuffix: o=asked\n"), std::string::npos);
    EXPECT_EQ(content().find("secret"), std::string::npos);

    Conversation auth(command("auth -W"));
    ASSERT_TRUE(auth.answer("Password for cn=root: ", "first-secret")) << auth.shown();
    EXPECT_EQ(auth.status(), 0) << auth.shown();
}

TEST_F(TerminalCommands, FreshFileIsNotMadeWithoutAPassword)
{
    ::unlink(file_.c_str());
    Conversation init(command("init --suffix o=a"));
    for (int tries = 0; tries < 3; ++tries) {
        ASSERT_TRUE(init.answer("New password for zor-slapdAdminPW: ", "")) << init.shown();
    }
    EXPECT_EQ(init.status(), 3) << init.shown();
    EXPECT_NE(::access(file_.c_str(), F_OK), 0);
}

TEST(Question, IsNoUnlessTheAnswerIsYes)
{
    struct Row
    {
        const char* answer;
        int expected;
    };
    for (const Row row : {Row{"", 0}, {"n", 0}, {"yess", 0}, {"y", 1}, {"YES", 1}}) {
        Conversation question([] { return confirmed("a finding\x1B[2J") ? 1 : 0; });
        ASSERT_TRUE(question.answer("a finding\\x1b[2J; go on? [y/N] ", row.answer)) << question.shown();
        EXPECT_EQ(question.status(), row.expected) << row.answer;
    }
}

} // namespace
