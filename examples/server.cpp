/*
 * The skeleton of a server that follows its configuration file while it runs: a program in C++20.
 *
 *     c++ -std=c++20 -pthread -o server server.cpp $(pkg-config --cflags --libs veltorstl)
 *     ./server FILE [MILLISECONDS]        looks at the file every second, or as often as it is told
 *     kill -TERM PID                      ends it
 *
 * It shows threads that have a handle each; how they notice what others change, and take it over without a restart;
 * that a file which can't be used leaves the server with what it had; and how to end on a signal.
 *
 * - A handle serves one thread at a time. Handles of different threads share nothing, so no thread waits for another.
 * - A search reads the file again when its modification time, in whole seconds, has changed. Where it has not, that
 *   costs a system call. Safe writes move the time by a second at least.
 * - What a search has handed out is a copy, and stays as it is when a later one fails: so the last good settings are
 *   kept.
 * - A server only reads: in the never-write mode no load writes the file, whatever stands in it.
 * - Each thread looks for itself. Settings that must change together belong into the view of one thread.
 */
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

#include <charconv>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <ctime>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <syncstream>
#include <sys/stat.h>
#include <thread>
#include <utility>
#include <vector>

namespace {

/// One line, whole, whichever thread writes it.
template <class... Parts>
void log(const std::string& who, const Parts&... parts)
{
    std::osyncstream out(std::cout);
    ((out << who << ": ") << ... << parts) << std::endl;
}

/// A part of the server that has a thread of its own, and the settings that it goes by: no passwords, for they are
/// logged.
struct Role
{
    std::string name;
    std::string dn;
    std::vector<std::string> settings;
};

const std::vector<Role> roles = {
    {"listener", "cn=Configuration", {"zor-slapdPort", "zor-slapdSizeLimit", "zor-slapdTimeLimit"}},
    {"connections", "cn=Connections, cn=Front End, cn=Configuration", {"zor-slapdAllowAnon", "zor-slapdIdleTimeOut"}},
    {"audit", "cn=Audit, cn=Configuration", {"zor-audit", "zor-auditAdd", "zor-auditBind"}},
};

/// Values by name. One that the file does not have is empty: there the role takes its default.
using Settings = std::map<std::string, std::string>;

/// What a role sees of the configuration. It moves to the role's thread and serves that alone.
class View
{
public:
    /// @throws std::runtime_error when the file can't be used: then there is nothing to start from
    View(const Role& role, const std::string& file) : role_(&role), file_(file), handle_(cfg_init())
    {
        if (!handle_) {
            throw std::bad_alloc();
        }
        // A look at what is written again in the same second would last.
        while (mayBeWrittenAgain()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        require(cfg_set_option(handle_.get(), CFG_OPT_CONFIG_FILE, file.c_str()));
        require(cfg_set_write_mode(handle_.get(), CFG_WRITE_NEVER));
        require(cfg_bind_s(handle_.get(), nullptr, nullptr, LDAP_AUTH_SIMPLE));
        settings_ = read();
        for (const auto& [name, value] : settings_) {
            log(role_->name, name, ": ", value);
        }
    }

    const Settings& settings() const { return settings_; }

    /// Takes over what others have changed in the file.
    void refresh()
    {
        if (mayBeWrittenAgain()) {
            return;
        }
        try {
            Settings now = read();
            if (!complaint_.empty()) {
                log(role_->name, "the file can be used again");
                complaint_.clear();
            }
            for (const auto& [name, value] : now) {
                if (settings_[name] != value) {
                    // Here a server opens its new port, or tells its pool of the new size.
                    log(role_->name, name, ": ", settings_[name], " -> ", value);
                }
            }
            settings_ = std::move(now);
        } catch (const std::exception& error) {
            // Told once, not at every look.
            if (complaint_ != error.what()) {
                complaint_ = error.what();
                log(role_->name, "keeps its settings: ", complaint_);
            }
        }
    }

private:
    struct Unbind
    {
        void operator()(void* handle) const { cfg_unbind(handle); }
    };
    struct FreeResult
    {
        void operator()(cfg_message* result) const { cfg_msgfree(result); }
    };
    struct FreeValues
    {
        void operator()(char** values) const { cfg_value_free(values); }
    };

    /// True within the second in which the file was written: an editor may write it once more in that second, and no
    /// later look could tell the second text from the first. The next look will do.
    bool mayBeWrittenAgain() const
    {
        struct stat status = {};
        return stat(file_.c_str(), &status) == 0 && status.st_mtime == std::time(nullptr);
    }

    /// The settings as the file has them now. Asks for no more: there may be passwords, which come as clear text.
    Settings read() const
    {
        std::vector<std::string> names = role_->settings;
        names.emplace_back("zor-slapdInvalidLine");
        std::vector<char*> list;
        for (std::string& name : names) {
            list.push_back(name.data());
        }
        list.push_back(nullptr);
        cfg_message* found = nullptr;
        const int code =
            cfg_search_s(handle_.get(), role_->dn.c_str(), LDAP_SCOPE_BASE, nullptr, list.data(), 0, &found);
        const std::unique_ptr<cfg_message, FreeResult> entry(found);
        require(code == LDAP_SUCCESS && !entry ? LDAP_NO_SUCH_OBJECT : code);
        // A line that can't be used does not end a load. It may be what is left of a setting, whose default would be
        // a surprise to everybody.
        if (!valueOf(entry.get(), names.back()).empty()) {
            throw std::runtime_error(role_->dn + " has a line that can't be used");
        }
        Settings settings;
        for (const std::string& name : role_->settings) {
            settings[name] = valueOf(entry.get(), name);
        }
        return settings;
    }

    std::string valueOf(cfg_message* entry, const std::string& name) const
    {
        const std::unique_ptr<char*, FreeValues> values(cfg_get_values(handle_.get(), entry, name.c_str()));
        if (!values && cfg_get_errno(handle_.get()) == CFG_LDAP_NO_MEMORY) {
            throw std::bad_alloc();
        }
        return cfg_count_values(values.get()) == 0 ? "" : *values;
    }

    /// Makes an exception of a code. The handle keeps what there is to tell until its next call.
    void require(int code) const
    {
        if (code == LDAP_SUCCESS) {
            return;
        }
        const int kept = cfg_get_exterror(handle_.get());
        const int line = cfg_get_file_line(handle_.get());
        throw std::runtime_error(file_ + (line > 0 ? ":" + std::to_string(line) : "") + ": " +
                                 cfg_err2string(kept == LDAP_SUCCESS ? code : kept));
    }

    const Role* role_;
    std::string file_;
    std::unique_ptr<void, Unbind> handle_;
    Settings settings_;
    std::string complaint_;
};

/// A thread of the server.
void serve(const std::stop_token& stop, View view, std::chrono::milliseconds pause)
{
    std::mutex mutex;
    std::condition_variable_any stopped;
    std::unique_lock lock(mutex);
    while (!stop.stop_requested()) {
        // Here it does its work, by view.settings().
        view.refresh();
        stopped.wait_for(lock, stop, pause, [] { return false; });
    }
}

void run(const std::string& file, std::chrono::milliseconds pause)
{
    // Blocked before there are threads, so that none of them is interrupted: the signals wait for sigwait.
    sigset_t endings;
    sigemptyset(&endings);
    sigaddset(&endings, SIGINT);
    sigaddset(&endings, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endings, nullptr);

    // cfg_init sets the locale of the process: all handles are made before other threads look at it.
    std::vector<View> views;
    views.reserve(roles.size());
    for (const Role& role : roles) {
        views.emplace_back(role, file);
    }
    std::vector<std::jthread> threads;
    threads.reserve(views.size());
    for (View& view : views) {
        threads.emplace_back(serve, std::move(view), pause);
    }
    log("server", "ready");
    int signal = 0;
    sigwait(&endings, &signal);
    for (std::jthread& thread : threads) {
        thread.request_stop();
    }
    threads.clear(); // joins them
    log("server", "ended on signal ", signal);
}

} // namespace

int main(int argc, char** argv)
{
    int milliseconds = 1000;
    if (argc == 3) {
        const char* const end = argv[2] + std::strlen(argv[2]);
        if (std::from_chars(argv[2], end, milliseconds).ptr != end || milliseconds <= 0) {
            argc = 0;
        }
    }
    if (argc != 2 && argc != 3) {
        std::cerr << "usage: server FILE [MILLISECONDS]\n";
        return 2;
    }
    try {
        run(argv[1], std::chrono::milliseconds(milliseconds));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "server: " << error.what() << '\n';
        return 1;
    }
}
