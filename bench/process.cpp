#include "process.h"

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace veltor::bench {

namespace {

constexpr std::size_t outputKept = 4096;

double secondsOf(const struct timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

void setLimit(pid_t process, __rlimit_resource resource, std::size_t most)
{
    if (most > 0) {
        const struct rlimit limit = {most, most + 1};
        prlimit(process, resource, &limit, nullptr);
    }
}

std::string readToEnd(int file)
{
    std::string text;
    char buffer[outputKept];
    for (;;) {
        const ssize_t count = read(file, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return text;
        }
        text.append(buffer, static_cast<std::size_t>(count));
        if (text.size() > outputKept) {
            text.erase(0, text.size() - outputKept);
        }
    }
}

} // namespace

Outcome run(const std::vector<std::string>& command, const Limits& limits)
{
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str())); // posix_spawn does not write to them
    }
    arguments.push_back(nullptr);

    Outcome outcome;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        outcome.output = std::strerror(errno);
        return outcome;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    pid_t process = 0;
    // Not fork: the copy of our page tables would count as the program's time.
    const int failure = posix_spawnp(&process, arguments.front(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (failure != 0) {
        close(ends[0]);
        outcome.output = std::strerror(failure);
        return outcome;
    }
    setLimit(process, RLIMIT_CPU, limits.cpuSeconds);
    setLimit(process, RLIMIT_AS, limits.memoryBytes);
    outcome.output = readToEnd(ends[0]);
    close(ends[0]);

    int status = 0;
    struct rusage usage = {};
    while (wait4(process, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    outcome.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    outcome.outOfTime = WIFSIGNALED(status) && WTERMSIG(status) == SIGXCPU;
    outcome.cpuSeconds = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
    outcome.peakBytes = static_cast<double>(usage.ru_maxrss) * 1024;
    return outcome;
}

double numberNamed(const std::string& output, const std::string& name)
{
    for (std::size_t line = 0; line < output.size();) {
        const std::size_t end = std::min(output.find('\n', line), output.size());
        const std::string_view text(output.data() + line, end - line);
        if (text.starts_with(name) && text.substr(name.size()).starts_with(' ')) {
            return std::strtod(text.data() + name.size(), nullptr);
        }
        line = end + 1;
    }
    return std::nan("");
}

} // namespace veltor::bench
