// Questions go to the terminal itself: standard input may be the data, and standard output a pipe.
#include "question.h"

#include "escape.h"
#include "failure.h"
#include "names.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace veltor::tool {

// Never the controlling terminal of a process that had none.
Terminal::Terminal(const std::string& finding, const std::string& advice)
    : descriptor_(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY))
{
    if (descriptor_ < 0) {
        throw Failure(ExitCode::usage, finding, {advice});
    }
}

Terminal::~Terminal()
{
    ::close(descriptor_);
}

void Terminal::show(std::string_view text) const
{
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor_, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            // A question that can't be shown is no reason not to read the answer.
            return;
        }
        text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
}

std::optional<std::string> Terminal::answer(std::string_view question) const
{
    show(question);
    std::string line;
    for (;;) {
        char character = 0;
        const ssize_t count = ::read(descriptor_, &character, 1);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return line.empty() ? std::nullopt : std::optional(line);
        }
        if (character == '\n') {
            return line;
        }
        line += character;
    }
}

bool confirmed(const std::string& finding)
{
    const Terminal terminal(finding, "nothing was written; there is no terminal to ask on; --yes goes on");
    const std::string answer = terminal.answer(escaped(finding) + "; go on? [y/N] ").value_or("");
    return sameName(answer, "y") || sameName(answer, "yes");
}

} // namespace veltor::tool
