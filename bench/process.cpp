#include "process.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
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

double now(clockid_t clock)
{
    struct timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Whether a running process has used up its time. Not left to RLIMIT_CPU: under it the process's own clock moves by
/// ticks of the scheduler, and programs that measure themselves with it see nothing shorter.
bool isOutOfTime(pid_t process, double started, const Limits& limits)
{
    if (limits.cpuSeconds == 0) {
        return false;
    }
    clockid_t clock = 0;
    // A program that waits for something uses no CPU and would wait for ever.
    constexpr double patience = 5;
    return (clock_getcpuclockid(process, &clock) == 0 && now(clock) > limits.cpuSeconds) ||
           now(CLOCK_MONOTONIC) - started > patience * limits.cpuSeconds;
}

/// Reads what the process prints, to its end, and ends it when its time is up.
void follow(pid_t process, int file, const Limits& limits, Outcome& outcome)
{
    constexpr int everyMs = 100;
    const double started = now(CLOCK_MONOTONIC);
    char buffer[outputKept];
    for (;;) {
        struct pollfd input = {file, POLLIN, 0};
        const int ready = poll(&input, 1, everyMs);
        if (!outcome.outOfTime && isOutOfTime(process, started, limits)) {
            kill(process, SIGKILL);
            outcome.outOfTime = true;
        }
        if (ready <= 0) {
            continue;
        }
        const ssize_t count = read(file, buffer, sizeof buffer);
        if (count == 0) {
            return;
        }
        if (count > 0) {
            outcome.output.append(buffer, static_cast<std::size_t>(count));
            if (outcome.output.size() > outputKept) {
                outcome.output.erase(0, outcome.output.size() - outputKept);
            }
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
    const double started = now(CLOCK_MONOTONIC);
    // Not fork: the copy of our page tables would count as the program's time.
    const int failure = posix_spawnp(&process, arguments.front(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (failure != 0) {
        close(ends[0]);
        outcome.output = std::strerror(failure);
        return outcome;
    }
    if (limits.memoryBytes > 0) {
        const struct rlimit limit = {limits.memoryBytes, limits.memoryBytes};
        prlimit(process, RLIMIT_AS, &limit, nullptr);
    }
    follow(process, ends[0], limits, outcome);
    close(ends[0]);

    int status = 0;
    struct rusage usage = {};
    while (wait4(process, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    outcome.wallSeconds = now(CLOCK_MONOTONIC) - started;
    outcome.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
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
