// Commands that ask, on a terminal of their own.
#include "commands.h"
#include "question.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace veltor::tool;

constexpr int patienceMs = 10000;

/// A process with a terminal, whose prompts are answered one after the other.
class Conversation
{
public:
    explicit Conversation(const std::function<int()>& action)
    {
        child_ = ::forkpty(&terminal_, nullptr, nullptr, nullptr);
        if (child_ == 0) {
            const int code = action();
            std::fflush(nullptr);
            ::_exit(code);
        }
    }
    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;
    ~Conversation() { ::close(terminal_); }

    /// Types the answer and Enter once the text has been shown.
    bool answer(const std::string& prompt, const std::string& keys)
    {
        for (;;) {
            if (const std::size_t at = unread_.find(prompt); at != std::string::npos) {
                unread_.erase(0, at + prompt.size());
                break;
            }
            if (!readMore()) {
                return false;
            }
        }
        const std::string line = keys + '\n';
        return ::write(terminal_, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    }

    /// The exit status, once the process has ended.
    int status()
    {
        while (readMore()) {
        }
        int status = 0;
        ::waitpid(child_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    const std::string& shown() const { return shown_; }

private:
    bool readMore()
    {
        pollfd watched{terminal_, POLLIN, 0};
        char bytes[256];
        if (::poll(&watched, 1, patienceMs) != 1) {
            return false;
        }
        const ssize_t count = ::read(terminal_, bytes, sizeof bytes);
        if (count <= 0) {
            return false;
        }
        shown_.append(bytes, static_cast<std::size_t>(count));
        unread_.append(bytes, static_cast<std::size_t>(count));
        return true;
    }

    int terminal_ = -1;
    pid_t child_ = -1;
    std::string shown_, unread_;
};

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
            const Command passwd = passwdCommand(application, target, output);
            const Command auth = authCommand(application, target, output);
            const Command restore = restoreCommand(application, target, output);
            try {
                application.parse(line + " -F " + file_);
                for (const Command& command : {passwd, auth, restore}) {
                    if (command.commandLine->parsed()) {
                        return static_cast<int>(command.run());
                    }
                }
                return static_cast<int>(ExitCode::internal);
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
