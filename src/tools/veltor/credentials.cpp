// The password prompt restores the terminal before any signal takes effect: the signals that end or stop a
// process are blocked except while the prompt waits, and are raised again once the echo is back.
#include "credentials.h"

#include "escape.h"
#include "failure.h"
#include "signals_held_back.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace veltor::tool {

namespace {

constexpr std::size_t longestPasswordBytes = 4096;
constexpr mode_t widestMode = 0640;

/// A descriptor that is closed with its scope.
class Descriptor
{
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (number_ > STDERR_FILENO) {
            ::close(number_);
        }
    }
    int number() const { return number_; }
    bool isOpen() const { return number_ >= 0; }

private:
    int number_;
};

/// A few bytes on the stack that are wiped with their scope.
struct Chunk
{
    std::array<char, 256> bytes{};

    Chunk() = default;
    Chunk(const Chunk&) = delete;
    Chunk& operator=(const Chunk&) = delete;
    ~Chunk() { ::explicit_bzero(bytes.data(), bytes.size()); }
};

volatile std::sig_atomic_t caughtSignal = 0;

extern "C" void rememberSignal(int signal)
{
    caughtSignal = signal;
}

/// Takes over the ending signals for its scope. A job in the background that reads or sets the terminal is stopped by
/// SIGTTIN and SIGTTOU before the echo is touched, which is right as it is; so these two are not among them.
/// The others stay blocked, and one that arrives is delivered in the
/// old way when the scope ends, unless waitForInput has met it before.
class SignalsHeld
{
public:
    SignalsHeld()
    {
        caughtSignal = 0;
        struct sigaction remember = {};
        remember.sa_handler = rememberSignal;
        ::sigemptyset(&remember.sa_mask);
        for (std::size_t index = 0; index < std::size(endingSignals); ++index) {
            ::sigaction(endingSignals[index], nullptr, &oldActions_[index]);
            // What the caller's environment ignores (nohup, a shell's background job) stays ignored.
            if (oldActions_[index].sa_handler != SIG_IGN) {
                ::sigaction(endingSignals[index], &remember, nullptr);
            }
        }
    }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;
    ~SignalsHeld()
    {
        for (std::size_t index = 0; index < std::size(endingSignals); ++index) {
            ::sigaction(endingSignals[index], &oldActions_[index], nullptr);
        }
    }

    /// Waits for input with the signals let in, and says whether there is some.
    bool waitForInput(int terminal) const
    {
        pollfd watched{terminal, POLLIN, 0};
        while (::ppoll(&watched, 1, nullptr, &heldBack_.before()) < 0) {
            if (caughtSignal != 0 || errno != EINTR) {
                return false;
            }
        }
        return true;
    }

private:
    SignalsHeldBack heldBack_;
    std::array<struct sigaction, std::size(endingSignals)> oldActions_{};
};

/// The terminal's echo, off for the scope. Declared behind SignalsHeld, so that it is on again first.
class EchoOff
{
public:
    explicit EchoOff(int terminal) : terminal_(terminal)
    {
        active_ = ::tcgetattr(terminal_, &old_) == 0;
        if (!active_) {
            return;
        }
        termios quiet = old_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
        ::tcsetattr(terminal_, TCSAFLUSH, &quiet);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;
    ~EchoOff()
    {
        if (!active_) {
            return;
        }
        // The process may have been moved to the background meanwhile; giving the echo back must not stop it.
        sigset_t ttou;
        sigset_t old;
        ::sigemptyset(&ttou);
        ::sigaddset(&ttou, SIGTTOU);
        ::sigprocmask(SIG_BLOCK, &ttou, &old);
        ::tcsetattr(terminal_, TCSAFLUSH, &old_);
        ::sigprocmask(SIG_SETMASK, &old, nullptr);
    }

private:
    int terminal_;
    bool active_;
    termios old_{};
};

void show(int terminal, const std::string& text)
{
    // A prompt that can't be shown is no reason not to read the answer.
    [[maybe_unused]] const ssize_t written = ::write(terminal, text.data(), text.size());
}

/// One try at the question; caughtSignal tells whether a signal cut it short.
WipedText askOnce(int terminal, const std::string& question)
{
    const SignalsHeld signals;
    const EchoOff quiet(terminal);
    show(terminal, question);
    WipedText answer;
    bool complete = false;
    while (!complete && answer.size() <= longestPasswordBytes && signals.waitForInput(terminal)) {
        Chunk chunk;
        const ssize_t count = ::read(terminal, chunk.bytes.data(), chunk.bytes.size());
        complete = count <= 0;
        for (ssize_t index = 0; index < count && !complete; ++index) {
            const char byte = chunk.bytes[static_cast<std::size_t>(index)];
            complete = byte == '\n';
            if (!complete) {
                answer.push_back(byte);
            }
        }
    }
    // The line end that the user typed was not echoed either.
    show(terminal, "\n");
    return answer;
}

std::string nameOf(const std::string& file)
{
    return file == "-" ? "standard input" : file;
}

void requireNarrowMode(int descriptor, const std::string& file)
{
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0) {
        throw Failure(ExitCode::file, file + ": " + std::strerror(errno), {"nothing was read; name another file"});
    }
    if (S_ISDIR(status.st_mode) || S_ISBLK(status.st_mode) || S_ISCHR(status.st_mode)) {
        throw Failure(ExitCode::file,
                      file + ": " + (S_ISDIR(status.st_mode) ? "a folder" : "a device") + " is no password file",
                      {"nothing was read; name another file"});
    }
    if ((status.st_mode & 07777 & ~widestMode) != 0) {
        throw Failure(ExitCode::file, file + ": others may read or change this password file",
                      {"nothing was read; narrow it with: chmod 600 " + file});
    }
}

} // namespace

void disableCoreDumps()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_CORE, &limit) == 0) {
        // 1 and not 0: a kernel that pipes its core dumps to a program heeds this one value only, and no
        // core file fits into a single byte.
        limit.rlim_cur = limit.rlim_max == 0 ? 0 : 1;
        ::setrlimit(RLIMIT_CORE, &limit);
    }
}

WipedText askPassword(const std::string& question, const std::string& instead, bool mayBeEmpty)
{
    const Descriptor terminal(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
    if (!terminal.isOpen()) {
        throw Failure(ExitCode::usage, "there is no terminal to ask for the password on",
                      {"nothing was read; give the password with " + instead});
    }
    const std::string harmless = escaped(question);
    for (;;) {
        WipedText answer = askOnce(terminal.number(), harmless);
        if (caughtSignal != 0) {
            // The old handlers are in place again: this ends or stops the process as if nothing had been asked.
            ::raise(static_cast<int>(caughtSignal));
            continue;
        }
        if (answer.empty() && !mayBeEmpty) {
            throw Failure(ExitCode::authentication, "no password was typed",
                          {"nothing was read; run the command again, or give the password with " + instead});
        }
        answer.push_back('\0');
        return answer;
    }
}

WipedText readPasswordFile(const std::string& file, const std::string& option)
{
    const bool standardInput = file == "-";
    const Descriptor input(standardInput ? STDIN_FILENO : ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!input.isOpen()) {
        throw Failure(ExitCode::file, file + ": " + std::strerror(errno),
                      {"nothing was read; " + option + " names a file with the password"});
    }
    if (!standardInput) {
        requireNarrowMode(input.number(), file);
    }
    WipedText password;
    for (;;) {
        Chunk chunk;
        const ssize_t count = ::read(input.number(), chunk.bytes.data(), chunk.bytes.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw Failure(ExitCode::file, nameOf(file) + ": " + std::strerror(errno),
                          {"nothing was read; name another file"});
        }
        if (count == 0) {
            break;
        }
        append(password, {chunk.bytes.data(), static_cast<std::size_t>(count)});
        if (password.size() > longestPasswordBytes) {
            throw Failure(ExitCode::file, nameOf(file) + ": too long for a password file",
                          {"nothing was done; at most " + std::to_string(longestPasswordBytes) +
                           " bytes are read; was -F meant?"});
        }
    }
    if (!password.empty() && password.back() == '\n') {
        password.pop_back();
    }
    if (view(password).find('\0') != std::string_view::npos) {
        throw Failure(ExitCode::file, nameOf(file) + ": a password can't hold a zero byte",
                      {"nothing was done; it is text"});
    }
    password.push_back('\0');
    return password;
}

bool looksEncoded(const WipedText& password)
{
    const std::string_view text(password.data());
    return !text.empty() && text.front() == '>' && text.back() == '<';
}

} // namespace veltor::tool
