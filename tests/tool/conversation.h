// A process on a terminal of its own, whose prompts a test answers.
#ifndef VELTOR_TESTS_TOOL_CONVERSATION_H
#define VELTOR_TESTS_TOOL_CONVERSATION_H

#include <cstdio>
#include <functional>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace veltor::tool {

/// A process with a terminal, whose prompts are answered one after the other.
class Conversation
{
public:
    static constexpr int patienceMs = 10000;

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

    /// Reads until the text has been shown.
    bool shows(const std::string& text)
    {
        for (;;) {
            if (const std::size_t at = unread_.find(text); at != std::string::npos) {
                unread_.erase(0, at + text.size());
                return true;
            }
            if (!readMore()) {
                return false;
            }
        }
    }

    /// Types the answer and Enter once the prompt has been shown.
    bool answer(const std::string& prompt, const std::string& keys) { return shows(prompt) && type(keys + '\n'); }

    bool type(const std::string& keys) const
    {
        return ::write(terminal_, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size());
    }

    pid_t process() const { return child_; }

    /// The exit status, once the process has ended; 128 and the number of a signal that ended it.
    int status()
    {
        while (readMore()) {
        }
        int status = 0;
        ::waitpid(child_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
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

} // namespace veltor::tool

#endif
