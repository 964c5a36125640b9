// The options that name the configuration file and the one who asks, and the session that they open.
#ifndef VELTOR_TOOL_TARGET_H
#define VELTOR_TOOL_TARGET_H

#include "failure.h"
#include "wiped_text.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace veltor::tool {

/// What the options common to all commands say.
struct TargetOptions
{
    std::optional<std::string> file;
    std::optional<std::string> bindDn;
    bool askPassword = false;
    std::optional<std::string> passwordFile;
    std::optional<std::string> password;
};

/// Adds the common options to the command line. They are accepted before and after the command.
/// @param options  filled while the command line is parsed; must outlive the parse
void addTargetOptions(CLI::App& app, TargetOptions& options);

/// The file that the options mean: -F, else a non-empty VELTOR_FILE, else the library's default.
std::string fileOf(const TargetOptions& options);

/// True when nothing was written to the file between two looks, nor another put in its place.
bool sameFile(const struct stat& left, const struct stat& right);

/// True when the locale of the environment writes UTF-8. Ask before a session is opened: it leaves the C locale.
bool environmentHasUtf8();

/// Warns at the end of its scope if the file on disk is not the one that was there at the beginning: the library
/// rewrites a file at load when it holds lines that it can't use, and no reader should learn of that by chance.
class RewriteWatch
{
public:
    explicit RewriteWatch(std::string file);
    RewriteWatch(const RewriteWatch&) = delete;
    RewriteWatch& operator=(const RewriteWatch&) = delete;
    ~RewriteWatch();

    /// Looks now and not again.
    void finish();

private:
    std::string file_;
    struct stat before_ = {};
    bool watching_;
};

enum class Purpose { read, write };

/// A configuration that was read and whose credentials were accepted.
class Session
{
public:
    /// Reads the file and binds, as the administrator if a DN was given and anonymously otherwise. Who wants to
    /// write anonymously must be root or the owner of the file: they can change it anyway.
    ///
    /// @param backup   the name under which the next write keeps the file, "" for none
    /// @throws Failure for whatever is wrong with the options, the file or the credentials
    explicit Session(const TargetOptions& options, Purpose purpose = Purpose::read, const std::string& backup = {});

    void* handle() const { return handle_.get(); }
    const std::string& file() const { return file_; }

    /// Lets further writes leave the backup as it is. Reads the file anew.
    /// @return the code of the library
    int endBackup();

private:
    struct Unbind
    {
        void operator()(void* handle) const;
    };

    std::string file_;
    RewriteWatch watch_;
    std::unique_ptr<void, Unbind> handle_;
};

} // namespace veltor::tool

#endif
