// The options that name the configuration file and the one who asks, and the session that they open.
#ifndef VELTOR_TOOL_TARGET_H
#define VELTOR_TOOL_TARGET_H

#include "failure.h"
#include "handle.h"
#include "wiped_text.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>

namespace veltor::tool {

/// What the options common to all commands say.
struct TargetOptions
{
    std::optional<std::string> file;
    std::optional<std::string> bindDn;
    bool askPassword = false;
    std::optional<std::string> passwordFile;
    std::optional<std::string> password;
    bool local = false;
    /// Of a command that binds more than once: holds the password behind the first bind, so that it is asked for once.
    std::shared_ptr<WipedText> heldPassword = {};
};

/// Adds the common options to the command line. They are accepted before and after the command.
/// @param options  filled while the command line is parsed; must outlive the parse
void addTargetOptions(CLI::App& app, TargetOptions& options);

/// The file that the options mean: -F, else a non-empty VELTOR_FILE, else the library's default.
std::string fileOf(const TargetOptions& options);

/// The name from the root, behind all symbolic links; as it was given where it leads nowhere.
std::string resolvedName(const std::string& file);

/// True for who can edit the file anyway: no password would hold them back.
bool isRootOrOwner(const std::string& file);

/// True when the locale of the environment writes UTF-8. Ask before a session is opened: it leaves the C locale.
bool environmentHasUtf8();

/// Makes the library read UTF-8 where the environment means the C locale, or one that is not installed. Call it before
/// cfg_init.
void leaveTheCLocale();

enum class Purpose {
    read,         ///< nothing is written; nobody needs a password
    authenticate, ///< nothing is written; who asks must be one who may administer
    write,        ///< who asks must be one who may administer
};

/// A configuration that was read and whose credentials were accepted. Opening it writes nothing, whatever is in the
/// file.
class Session
{
public:
    /// Reads the file and binds: as -D says, else, when there is a password, as the file's administrator. Root and the
    /// owner of the file need no password, since they can edit it anyway. Everybody else reads without one, and is
    /// asked for it to write. To read, the handle never writes; to write, it writes in the safe mode.
    ///
    /// @param backup   the name under which the next write keeps the file, "" for none
    /// @throws Failure for whatever is wrong with the options, the file or the credentials
    explicit Session(const TargetOptions& options, Purpose purpose = Purpose::read, const std::string& backup = {});

    void* handle() const { return handle_.get(); }
    const std::string& file() const { return file_; }

    /// True for who may do everything: the administrator, and root and the owner of the file.
    bool mayAdminister() const { return mayAdminister_; }

    /// The DN that was bound as, "" for nobody.
    const std::string& boundAs() const { return boundAs_; }

private:
    void bind(const TargetOptions& options, Purpose purpose);

    std::string file_;
    Handle handle_;
    std::string boundAs_;
    bool mayAdminister_ = false;
};

} // namespace veltor::tool

#endif
