// What happens in another process, and to a user without rights.
#ifndef VELTOR_TESTS_TOLD_BY_CHILD_H
#define VELTOR_TESTS_TOLD_BY_CHILD_H

#include <cstddef>
#include <string>
#include <utility>

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace veltor::test {

inline constexpr uid_t nobody = 65534;

/// Does the work in a child process and gives the text that it returns; a text of its own tells what went wrong on the
/// way. What must not happen to the test itself happens there: other users, other mounts.
template <class Work>
std::string toldByChild(Work&& work)
{
    int ends[2];
    if (pipe(ends) != 0) {
        return "no pipe";
    }
    const pid_t child = fork();
    if (child == 0) {
        const std::string told = std::forward<Work>(work)();
        _exit(::write(ends[1], told.data(), told.size()) == static_cast<ssize_t>(told.size()) ? 0 : 1);
    }
    close(ends[1]);
    std::string told;
    char bytes[4096];
    for (ssize_t got = 0; (got = ::read(ends[0], bytes, sizeof bytes)) > 0;) {
        told.append(bytes, static_cast<std::size_t>(got));
    }
    close(ends[0]);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        return "no child";
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? told : "child died after \"" + told + "\"";
}

/// The same as the user "nobody". Takes root to call.
template <class Work>
std::string toldByNobody(Work&& work)
{
    return toldByChild([&]() -> std::string {
        return setgid(nobody) == 0 && setuid(nobody) == 0 ? std::forward<Work>(work)() : "still root";
    });
}

} // namespace veltor::test

#endif
