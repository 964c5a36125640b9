// The password prompt on a terminal of its own, watched from the other side, and the rules of password files.
#include "credentials.h"

#include "failure.h"
#include "support/temporary_folder.h"

#include <array>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

using veltor::tool::askPassword;
using veltor::tool::Failure;
using veltor::tool::looksEncoded;
using veltor::tool::readPasswordFile;
using veltor::tool::WipedText;

namespace {

constexpr int patienceMs = 10000;

// What the prompt gave, in one line: the password, or the exit code of the failure.
std::string outcomeOf(const std::function<WipedText()>& prompt)
{
    try {
        const WipedText password = prompt();
        return std::string("password ") + password.data() + (password.back() == '\0' ? "" : " unterminated");
    } catch (const Failure& failure) {
        return "failure " + std::to_string(static_cast<int>(failure.exit()));
    }
}

/// A process that asks for a password on a terminal of its own. Between it and this test stands the session's
/// leader, as a shell would: only a process group with a parent in its session can be stopped.
class Asking
{
public:
    explicit Asking(const std::function<void()>& preparation = [] {})
    {
        EXPECT_EQ(::pipe(reports_.data()), 0);
        leader_ = ::forkpty(&terminal_, nullptr, nullptr, nullptr);
        if (leader_ == 0) {
            lead(preparation);
        }
        ::close(reports_[1]);
    }
    Asking(const Asking&) = delete;
    Asking& operator=(const Asking&) = delete;
    ~Asking()
    {
        ::close(terminal_);
        ::close(reports_[0]);
        ::waitpid(leader_, nullptr, 0);
    }

    /// True once the terminal has shown the text, counted from the last call on.
    bool shows(const std::string& text)
    {
        while (shown_.find(text) == std::string::npos) {
            if (!readInto(terminal_, shown_)) {
                return false;
            }
        }
        everything_ += shown_;
        shown_.clear();
        return true;
    }

    /// True when the terminal shows nothing more for a tenth of a second.
    bool staysQuiet() const
    {
        pollfd watched{terminal_, POLLIN, 0};
        return ::poll(&watched, 1, 100) == 0;
    }

    void type(const std::string& keys) const
    {
        EXPECT_EQ(::write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    bool echoes() const
    {
        termios settings{};
        EXPECT_EQ(::tcgetattr(terminal_, &settings), 0);
        return (settings.c_lflag & ECHO) != 0;
    }

    /// The next line of what happened to the asking process: "password ...", "failure N", "signal N", "stop N",
    /// "exit".
    std::string nextReport()
    {
        while (unread_.find('\n') == std::string::npos) {
            if (!readInto(reports_[0], unread_)) {
                return "nothing";
            }
        }
        const std::size_t end = unread_.find('\n');
        std::string report = unread_.substr(0, end);
        unread_.erase(0, end + 1);
        return report;
    }

    /// The process that asks; it says its number first.
    pid_t process()
    {
        if (process_ == 0) {
            process_ = std::stoi(nextReport());
        }
        return process_;
    }

    const std::string& everythingShown() const { return everything_; }

private:
    static bool readInto(int descriptor, std::string& text)
    {
        pollfd watched{descriptor, POLLIN, 0};
        char bytes[256];
        if (::poll(&watched, 1, patienceMs) <= 0) {
            return false;
        }
        const ssize_t count = ::read(descriptor, bytes, sizeof bytes);
        if (count > 0) {
            text.append(bytes, static_cast<std::size_t>(count));
        }
        return count > 0;
    }

    void report(const std::string& text) const
    {
        const std::string line = text + '\n';
        if (::write(reports_[1], line.data(), line.size()) < 0) {
            ::_exit(1);
        }
    }

    [[noreturn]] void ask(const std::function<void()>& preparation) const
    {
        ::setpgid(0, 0);
        ::signal(SIGTTOU, SIG_IGN);
        ::tcsetpgrp(STDIN_FILENO, ::getpid());
        ::signal(SIGTTOU, SIG_DFL);
        preparation();
        report(std::to_string(::getpid()));
        report(outcomeOf([] { return askPassword("Password for cn=\x1Broot: "); }));
        ::_exit(0);
    }

    [[noreturn]] void lead(const std::function<void()>& preparation) const
    {
        ::signal(SIGHUP, SIG_IGN);
        const pid_t asking = ::fork();
        if (asking == 0) {
            ::signal(SIGHUP, SIG_DFL);
            ask(preparation);
        }
        int status = 0;
        while (::waitpid(asking, &status, WUNTRACED) == asking) {
            if (WIFSTOPPED(status)) {
                report("stop " + std::to_string(WSTOPSIG(status)));
                continue;
            }
            report(WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status)) : "exit");
            break;
        }
        // The terminal stays until the test has looked at it.
        char byte = 0;
        while (::read(STDIN_FILENO, &byte, 1) > 0) {
        }
        ::_exit(0);
    }

    std::array<int, 2> reports_{};
    int terminal_ = -1;
    pid_t leader_ = -1;
    pid_t process_ = 0;
    std::string shown_, everything_, unread_;
};

class PasswordFile
{
public:
    PasswordFile(const std::string& content, mode_t mode) : name_(folder_.write("password", content))
    {
        EXPECT_EQ(::chmod(name_.c_str(), mode), 0);
    }
    const std::string& name() const { return name_; }

private:
    const veltor::test::TemporaryFolder folder_;
    std::string name_;
};

std::string outcomeOfFile(const std::string& content, mode_t mode = 0600)
{
    const PasswordFile file(content, mode);
    return outcomeOf([&] { return readPasswordFile(file.name()); });
}

WipedText terminated(std::string_view text)
{
    WipedText password;
    veltor::tool::append(password, text);
    password.push_back('\0');
    return password;
}

} // namespace

TEST(PasswordPrompt, GivesWhatWasTypedAndShowsNoneOfIt)
{
    Asking asking;
    ASSERT_GT(asking.process(), 0);
    ASSERT_TRUE(asking.shows("Password for cn=\\x1broot: "));
    EXPECT_FALSE(asking.echoes());
    asking.type("my secret\n");
    EXPECT_EQ(asking.nextReport(), "password my secret");
    EXPECT_EQ(asking.nextReport(), "exit");
    ASSERT_TRUE(asking.shows("\n"));
    EXPECT_TRUE(asking.echoes());
    EXPECT_EQ(asking.everythingShown().find("secret"), std::string::npos);
}

TEST(PasswordPrompt, GivesTheEchoBackBeforeASignalEndsTheProcess)
{
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGALRM, SIGPIPE}) {
        SCOPED_TRACE(::strsignal(signal));
        Asking asking;
        ASSERT_GT(asking.process(), 0);
        ASSERT_TRUE(asking.shows("root: "));
        EXPECT_FALSE(asking.echoes());
        ASSERT_EQ(::kill(asking.process(), signal), 0);
        EXPECT_EQ(asking.nextReport(), "signal " + std::to_string(signal));
        EXPECT_TRUE(asking.echoes());
    }
}

TEST(PasswordPrompt, IsInterruptedByTheKeyboardInTheMiddleOfALine)
{
    Asking asking;
    ASSERT_TRUE(asking.shows("root: "));
    asking.type("half a pass\x03");
    ASSERT_GT(asking.process(), 0);
    EXPECT_EQ(asking.nextReport(), "signal " + std::to_string(SIGINT));
    EXPECT_TRUE(asking.echoes());
}

TEST(PasswordPrompt, AsksAgainAfterAStop)
{
    Asking asking;
    ASSERT_GT(asking.process(), 0);
    ASSERT_TRUE(asking.shows("root: "));
    asking.type("\x1A");
    EXPECT_EQ(asking.nextReport(), "stop " + std::to_string(SIGTSTP));
    EXPECT_TRUE(asking.echoes());
    ASSERT_EQ(::kill(asking.process(), SIGCONT), 0);
    ASSERT_TRUE(asking.shows("root: "));
    EXPECT_FALSE(asking.echoes());
    asking.type("second try\n");
    EXPECT_EQ(asking.nextReport(), "password second try");
    EXPECT_EQ(asking.nextReport(), "exit");
    EXPECT_TRUE(asking.echoes());
}

TEST(PasswordPrompt, LeavesIgnoredSignalsIgnored)
{
    Asking asking([] { ::signal(SIGHUP, SIG_IGN); });
    ASSERT_GT(asking.process(), 0);
    ASSERT_TRUE(asking.shows("root: "));
    ASSERT_EQ(::kill(asking.process(), SIGHUP), 0);
    EXPECT_TRUE(asking.staysQuiet()) << "asked a second time";
    asking.type("still here\n");
    EXPECT_EQ(asking.nextReport(), "password still here");
}

TEST(PasswordPrompt, FailsWhenNothingIsTyped)
{
    for (const char* keys : {"\n", "\x04"}) {
        Asking asking;
        ASSERT_GT(asking.process(), 0);
        ASSERT_TRUE(asking.shows("root: "));
        asking.type(keys);
        EXPECT_EQ(asking.nextReport(), "failure 5");
        EXPECT_EQ(asking.nextReport(), "exit");
        EXPECT_TRUE(asking.echoes());
    }
}

TEST(PasswordPrompt, FailsWithoutATerminal)
{
    std::array<int, 2> reports{};
    ASSERT_EQ(::pipe(reports.data()), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::setsid();
        const std::string outcome = outcomeOf([] { return askPassword("Password: "); });
        ::_exit(::write(reports[1], outcome.data(), outcome.size()) < 0 ? 1 : 0);
    }
    ::close(reports[1]);
    char outcome[64] = {};
    EXPECT_GT(::read(reports[0], outcome, sizeof outcome - 1), 0);
    EXPECT_STREQ(outcome, "failure 2");
    ::close(reports[0]);
    ::waitpid(child, nullptr, 0);
}

TEST(PasswordFile, GivesItsContentLessOneLineFeed)
{
    EXPECT_EQ(outcomeOfFile("secret"), "password secret");
    EXPECT_EQ(outcomeOfFile("secret\n"), "password secret");
    EXPECT_EQ(outcomeOfFile("secret\n\n"), "password secret\n");
    EXPECT_EQ(outcomeOfFile("secret\r\n"), "password secret\r");
    EXPECT_EQ(outcomeOfFile(" two words "), "password  two words ");
    EXPECT_EQ(outcomeOfFile("\n"), "password ");
    EXPECT_EQ(outcomeOfFile(""), "password ");
    EXPECT_EQ(outcomeOfFile(std::string(4096, 'a')), "password " + std::string(4096, 'a'));
}

TEST(PasswordFile, IsRefusedWhenItHoldsNoPassword)
{
    EXPECT_EQ(outcomeOfFile(std::string("a\0b", 3)), "failure 4");
    EXPECT_EQ(outcomeOfFile(std::string(4097, 'a')), "failure 4");
    EXPECT_EQ(outcomeOf([] { return readPasswordFile("/nonexistent/password"); }), "failure 4");
    EXPECT_EQ(outcomeOf([] { return readPasswordFile("/"); }), "failure 4");
}

TEST(PasswordFile, IsRefusedWhenItsModeIsWiderThan0640)
{
    for (const mode_t mode : {0400U, 0440U, 0600U, 0640U}) {
        SCOPED_TRACE(mode);
        EXPECT_EQ(outcomeOfFile("secret", mode), "password secret");
    }
    for (const mode_t mode : {0604U, 0620U, 0641U, 0644U, 0660U, 0666U, 0700U, 04600U}) {
        SCOPED_TRACE(mode);
        EXPECT_EQ(outcomeOfFile("secret", mode), "failure 4");
    }
}

TEST(PasswordFile, MayBeStandardInput)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    ASSERT_EQ(::write(ends[1], "secret\n", 7), 7);
    ::close(ends[1]);
    const int saved = ::dup(STDIN_FILENO);
    ASSERT_EQ(::dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
    ::close(ends[0]);
    EXPECT_EQ(outcomeOf([] { return readPasswordFile("-"); }), "password secret");
    ::dup2(saved, STDIN_FILENO);
    ::close(saved);
}

TEST(Credentials, TheEncodedShapeIsRecognised)
{
    for (const char* text : {"><", ">1abc<", "> <"}) {
        SCOPED_TRACE(text);
        EXPECT_TRUE(looksEncoded(terminated(text)));
    }
    for (const char* text : {"", ">", "<", ">a", "a<", "secret", " >a<"}) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(looksEncoded(terminated(text)));
    }
}

TEST(Credentials, NoCoreFileCanHoldAPassword)
{
    const pid_t child = ::fork();
    if (child == 0) {
        // Where core files are allowed at all, allow them, so that there is something to switch off.
        rlimit limit{};
        ::getrlimit(RLIMIT_CORE, &limit);
        limit.rlim_max = limit.rlim_max == 0 ? 4096 : limit.rlim_max;
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_CORE, &limit);
        veltor::tool::disableCoreDumps();
        ::getrlimit(RLIMIT_CORE, &limit);
        ::_exit(limit.rlim_cur <= 1 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}
