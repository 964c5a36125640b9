// Questions go to the terminal itself: standard input may be the data, and standard output a pipe.
#include "question.h"

#include "change_scan.h"
#include "escape.h"
#include "failure.h"
#include "names.h"

#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace veltor::tool {

bool confirmed(const std::string& finding)
{
    // Never the controlling terminal of a process that had none.
    const int descriptor = ::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0) {
        throw Failure(ExitCode::usage, finding, {"nothing was written; there is no terminal to ask on; --yes goes on"});
    }
    const std::unique_ptr<FILE, int (*)(FILE*)> terminal(::fdopen(descriptor, "r+"), std::fclose);
    if (!terminal) {
        ::close(descriptor);
        throw Failure(ExitCode::internal, "out of memory");
    }
    std::fputs((escaped(finding) + "; go on? [y/N] ").c_str(), terminal.get());
    std::fflush(terminal.get());
    std::string answer;
    for (int c = std::fgetc(terminal.get()); c != EOF && c != '\n'; c = std::fgetc(terminal.get())) {
        answer += static_cast<char>(c);
    }
    return sameName(answer, "y") || sameName(answer, "yes");
}

} // namespace veltor::tool
