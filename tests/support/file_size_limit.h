// A disk that is full, as far as one file is concerned.
#ifndef VELTOR_TESTS_FILE_SIZE_LIMIT_H
#define VELTOR_TESTS_FILE_SIZE_LIMIT_H

#include <csignal>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace veltor::test {

/// Runs the work in a child process that can write no file beyond a size, and gives what it returns: 0 to 98.
///
/// The limit is the soft one, so the work may raise it again. What it throws ends the child and gives -1.
template <class Work>
int withFileSizeLimit(rlim_t sizeBytes, Work&& work)
{
    const pid_t child = fork();
    if (child == 0) {
        // A write beyond the limit fails with EFBIG then, and does not end the process.
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = sizeBytes;
        _exit(setrlimit(RLIMIT_FSIZE, &limit) != 0 ? 99 : work());
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace veltor::test

#endif
