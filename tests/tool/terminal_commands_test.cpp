// Commands that ask, on a terminal of their own.
#include "commands.h"
#include "conversation.h"
#include "question.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <unistd.h>

namespace {

using namespace veltor::tool;

class TerminalCommands : public testing::Test
{
protected:
    TerminalCommands()
    {
        std::string pattern = testing::TempDir() + "terminal.XXXXXX";
        folder_ = ::mkdtemp(pattern.data());
        file_ = folder_ + "/in.conf";
        std::ofstream(file_)
            << "dn: cn=Configuration\ncn: Configuration\nobjectclass: top\nzor-slapdAdminDN: cn=root\n";
    }
    ~TerminalCommands() override
    {
        for (const char* name : {"/in.conf", "/in.conf.bak", "/in.conf.lock", "/password"}) {
            ::unlink((folder_ + name).c_str());
        }
        ::rmdir(folder_.c_str());
    }

    std::string content() const
    {
        std::ifstream stream(file_);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    std::function<int()> command(const std::string& line) const
    {
        return [this, line] {
            CLI::App application;
            application.fallthrough();
            TargetOptions target;
            addTargetOptions(application, target);
            OutputOptions outputOptions;
            Output output(outputOptions);
            const Command commands[] = {
                passwdCommand(application, target, output), authCommand(application, target, output),
                initCommand(application, target, output), restoreCommand(application, target, output)};
            try {
                application.parse(line + " -F " + file_);
                return static_cast<int>(
                    std::find_if(std::begin(commands), std::end(commands), [](const Command& command) {
                        return command.commandLine->parsed();
                    })->run());
            } catch (const Failure& failure) {
                std::fputs(failure.message().c_str(), stderr);
                return static_cast<int>(failure.exit());
            }
        };
    }

    std::string folder_, file_;
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
    std::ofstream(file_ + ".bak") << "dn: cn=Configuration\nobjectclass: top\nzor-slapdPort: 1389\n";
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
