// The editor shares the terminal and the process group, so that the terminal's keys reach it. Those that end a process
// are the editor's business while it runs.
#include "editor.h"

#include "escape.h"
#include "failure.h"
#include "ldif_output.h"
#include "shell_word.h"
#include "whole_text.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>

extern char** environ;

namespace veltor::tool {

namespace {

constexpr int commandNotExecutable = 126;
constexpr int commandNotFound = 127;
constexpr int endedBySignal = 128; // and the signal's number

// What means nothing to the shell.
constexpr const char* plainCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789 -_./+,:@";

Failure draftFailure(const std::string& name, const char* finding, int error)
{
    return {ExitCode::writeFailed,
            name + ": " + finding + ": " + std::strerror(error),
            {"nothing was written; the draft needs room and the right to write beside the file"}};
}

constexpr int endingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

// What the handler needs, since it may look at nothing else.
std::string draftNotice;
volatile sig_atomic_t editorProcess = 0;
std::array<struct sigaction, std::size(endingSignals)> oldActions;

extern "C" void tellOfDraftAndEnd(int signal)
{
    if (editorProcess > 0) {
        ::kill(static_cast<pid_t>(editorProcess), signal);
    }
    // A terminal that is gone can't be told.
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, draftNotice.data(), draftNotice.size());
    // It is held back until the handler ends.
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

void watchSignals(const std::string& draft)
{
    draftNotice = "\nveltor: your text is kept as " + escaped(draft) + "\n";
    struct sigaction tell = {};
    tell.sa_handler = tellOfDraftAndEnd;
    ::sigfillset(&tell.sa_mask);
    for (std::size_t index = 0; index < std::size(endingSignals); ++index) {
        ::sigaction(endingSignals[index], nullptr, &oldActions[index]);
        if (oldActions[index].sa_handler != SIG_IGN) {
            ::sigaction(endingSignals[index], &tell, nullptr);
        }
    }
}

void unwatchSignals()
{
    for (std::size_t index = 0; index < std::size(endingSignals); ++index) {
        ::sigaction(endingSignals[index], &oldActions[index], nullptr);
    }
}

/// Leaves the keys that end a process to the editor, for its scope.
class KeysLeftToEditor
{
public:
    KeysLeftToEditor()
    {
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        ::sigaction(SIGINT, &ignore, &interrupt_);
        ::sigaction(SIGQUIT, &ignore, &quit_);
    }
    KeysLeftToEditor(const KeysLeftToEditor&) = delete;
    KeysLeftToEditor& operator=(const KeysLeftToEditor&) = delete;
    ~KeysLeftToEditor()
    {
        ::sigaction(SIGINT, &interrupt_, nullptr);
        ::sigaction(SIGQUIT, &quit_, nullptr);
    }

    /// Those that the editor is to have as usual: what this process was told to ignore stays ignored.
    sigset_t defaults() const
    {
        sigset_t signals;
        ::sigemptyset(&signals);
        if (interrupt_.sa_handler != SIG_IGN) {
            ::sigaddset(&signals, SIGINT);
        }
        if (quit_.sa_handler != SIG_IGN) {
            ::sigaddset(&signals, SIGQUIT);
        }
        return signals;
    }

private:
    struct sigaction interrupt_ = {}, quit_ = {};
};

/// How the terminal was, for an editor that dies in the middle.
class TerminalState
{
public:
    TerminalState() : terminal_(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY))
    {
        known_ = terminal_ >= 0 && ::tcgetattr(terminal_, &state_) == 0;
    }
    TerminalState(const TerminalState&) = delete;
    TerminalState& operator=(const TerminalState&) = delete;
    ~TerminalState()
    {
        if (terminal_ >= 0) {
            ::close(terminal_);
        }
    }
    void restore() const
    {
        if (known_) {
            ::tcsetattr(terminal_, TCSADRAIN, &state_);
        }
    }

private:
    int terminal_;
    bool known_ = false;
    termios state_{};
};

std::string editorOf(const std::vector<std::string>& environment)
{
    for (const std::string_view variable : {"VISUAL=", "EDITOR="}) {
        for (const std::string& setting : environment) {
            if (setting.starts_with(variable) && setting.size() > variable.size()) {
                return setting.substr(variable.size());
            }
        }
    }
    return "vi";
}

/// @return  the process
pid_t startShell(const std::string& editor, const std::string& file, const std::vector<std::string>& environment,
                 const sigset_t& defaults)
{
    std::string shell = "sh";
    std::string option = "-c";
    // The editor in the shell's place gets the signals itself. More than a command with options needs the shell.
    const bool simple = editor.find_first_not_of(plainCharacters) == std::string::npos;
    std::string command = (simple ? "exec " : "") + editor + " \"$@\"";
    std::string name = editor;
    std::string argument = file;
    char* arguments[] = {shell.data(), option.data(), command.data(), name.data(), argument.data(), nullptr};
    std::vector<char*> settings;
    settings.reserve(environment.size() + 1);
    for (const std::string& setting : environment) {
        settings.push_back(const_cast<char*>(setting.c_str()));
    }
    settings.push_back(nullptr);
    posix_spawn_file_actions_t files;
    ::posix_spawn_file_actions_init(&files);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::isatty(stream) != 1) {
            ::posix_spawn_file_actions_addopen(&files, stream, "/dev/tty", O_RDWR, 0);
        }
    }
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    ::posix_spawnattr_setsigdefault(&attributes, &defaults);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t process = 0;
    const int error = ::posix_spawn(&process, "/bin/sh", &files, &attributes, arguments, settings.data());
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&files);
    if (error != 0) {
        throw Failure(ExitCode::usage, "the editor can't be run: /bin/sh: " + std::string(std::strerror(error)),
                      {"nothing was written; run the command again"});
    }
    return process;
}

/// @return  the status that the process ends with
int waitFor(pid_t process)
{
    for (;;) {
        int status = 0;
        if (::waitpid(process, &status, WUNTRACED) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return 0;
        }
        if (!WIFSTOPPED(status)) {
            return status;
        }
        // The shell that we come from gets the terminal while the editor sleeps.
        ::raise(SIGTSTP);
        ::kill(process, SIGCONT);
    }
}

} // namespace

Draft::Draft(const std::string& file)
{
    const std::string original = resolvedName(file);
    folder_ = original + ".edit-XXXXXX";
    if (::mkdtemp(folder_.data()) == nullptr) {
        throw draftFailure(original, "the folder for the draft can't be made beside it", errno);
    }
    name_ = folder_ + '/' + original.substr(original.rfind('/') + 1);
    watchSignals(name_);
}

Draft::~Draft()
{
    unwatchSignals();
}

void Draft::write(std::string_view text) const
{
    const int descriptor =
        ::open(name_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (descriptor < 0) {
        throw draftFailure(name_, "can't be made", errno);
    }
    int error = 0;
    try {
        writeOut(descriptor, text);
        error = ::fsync(descriptor) == 0 ? 0 : errno;
    } catch (const Failure&) {
        error = errno;
    }
    ::close(descriptor);
    if (error != 0) {
        throw draftFailure(name_, "can't be written", error);
    }
}

WipedText Draft::read() const
{
    struct stat status = {};
    if (::lstat(name_.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw Failure(ExitCode::file, name_ + " is no plain file any more",
                      {"nothing was written; have the editor write under the name that it got"});
    }
    try {
        return readConfiguration(name_);
    } catch (const Failure& failure) {
        throw Failure(failure.exit(), failure.what(), {"nothing was written; run the command again"});
    }
}

void Draft::edit(const std::vector<std::string>& environment) const
{
    const std::string editor = editorOf(environment);
    const TerminalState terminal;
    int status = 0;
    {
        const KeysLeftToEditor keys;
        const pid_t process = startShell(editor, name_, environment, keys.defaults());
        editorProcess = process;
        status = waitFor(process);
        editorProcess = 0;
    }
    const int code = WIFSIGNALED(status) ? endedBySignal + WTERMSIG(status) : WEXITSTATUS(status);
    if (code > endedBySignal) {
        terminal.restore();
        throw Failure(ExitCode::no,
                      "the editor \"" + editor + "\" was ended by signal " + std::to_string(code - endedBySignal),
                      {"nothing was written; run the command again, or name another in EDITOR"});
    }
    if (code == commandNotFound || code == commandNotExecutable) {
        throw Failure(ExitCode::usage, "the editor \"" + editor + "\" can't be run",
                      {"nothing was written; name another in EDITOR"});
    }
    if (code != 0) {
        throw Failure(ExitCode::no, "the editor \"" + editor + "\" ended with exit status " + std::to_string(code),
                      {"nothing was written; run the command again, or name another in EDITOR"});
    }
}

bool Draft::hasMore() const
{
    std::error_code error;
    const std::string own = name_.substr(name_.rfind('/') + 1);
    for (const auto& entry : std::filesystem::directory_iterator(folder_, error)) {
        if (entry.path().filename() != own) {
            return true;
        }
    }
    return false;
}

void Draft::discard()
{
    if (DIR* const entries = ::opendir(folder_.c_str()); entries != nullptr) {
        while (const dirent* const entry = ::readdir(entries)) {
            ::unlinkat(::dirfd(entries), entry->d_name, 0);
        }
        ::closedir(entries);
    }
    ::rmdir(folder_.c_str());
}

std::vector<std::string> currentEnvironment()
{
    std::vector<std::string> settings;
    for (char** setting = environ; *setting != nullptr; ++setting) {
        settings.emplace_back(*setting);
    }
    return settings;
}

std::string commandToGoOnFrom(const std::string& kept, const std::string& file)
{
    return "VISUAL=" + shellWord("cp " + shellWord(kept)) + " veltor edit -F " + shellWord(file);
}

} // namespace veltor::tool
