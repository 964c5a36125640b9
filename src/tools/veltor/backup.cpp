// veltor backup: a copy of the file that is whole, or not there.
#include "backup_name.h"
#include "commands.h"
#include "whole_text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace veltor::tool {

namespace {

constexpr const char* backupFooter =
    R"(Without a name the copy is FILE.bak. A file of that name is replaced in one step when the
copy is complete and on the disk. A file that the server can't read is not copied, so that it
never takes the place of a good backup. The copy is readable to the owner and the group alone.

The options common to all commands (-F, -D, -W, -y, -w, --local) are accepted here too;
see veltor --help.)";

/// A new file beside the one that it replaces. Removed again unless it is put in place.
class NewFile
{
public:
    explicit NewFile(const std::string& name) : name_(name), temporary_(name + ".new-XXXXXX")
    {
        descriptor_ = ::mkostemp(temporary_.data(), O_CLOEXEC);
        require(descriptor_ >= 0, "can't be made");
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile()
    {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
        if (!installed_) {
            ::unlink(temporary_.c_str());
        }
    }

    void write(std::string_view text) const
    {
        while (!text.empty()) {
            const ssize_t written = ::write(descriptor_, text.data(), text.size());
            require(written >= 0 || errno == EINTR, "can't be written");
            text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
        }
    }

    void install(const struct stat& original)
    {
        // Only root can give a file away, and others a group that they belong to: no other group may read the copy.
        bool hasGroup = true;
        if (::geteuid() == 0) {
            require(::fchown(descriptor_, original.st_uid, original.st_gid) == 0, "can't be given to the file's owner");
        } else {
            hasGroup = ::fchown(descriptor_, static_cast<uid_t>(-1), original.st_gid) == 0;
        }
        const mode_t widest = S_IRUSR | S_IWUSR | (hasGroup ? S_IRGRP : 0);
        require(::fchmod(descriptor_, original.st_mode & widest) == 0, "can't get its mode");
        require(::fsync(descriptor_) == 0, "can't be written");
        require(::rename(temporary_.c_str(), name_.c_str()) == 0, "can't be put in place");
        installed_ = true;
        const int directory = ::open(folderOf(name_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (directory >= 0) {
            ::fsync(directory);
            ::close(directory);
        }
    }

private:
    void require(bool holds, const char* finding) const
    {
        if (!holds) {
            throw Failure(ExitCode::writeFailed, name_ + ": " + finding + ": " + std::strerror(errno),
                          {"no copy was made, and what was there before is unchanged; name a copy elsewhere"});
        }
    }

    std::string name_, temporary_;
    int descriptor_ = -1;
    bool installed_ = false;
};

ExitCode backup(const std::optional<std::string>& name, const TargetOptions& target, Output& output)
{
    output.document().setFile(fileOf(target));
    requirePlainFile(fileOf(target), "no copy was made");
    const std::string copy = name.value_or(fileOf(target) + ".bak");
    const WipedText text = readConfiguration(fileOf(target));
    const Session session(target);
    if (const std::string fault = faultOfBackupName(copy, session.file()); !fault.empty()) {
        throw Failure(ExitCode::usage, fault, {"no copy was made; name another file"});
    }
    // What is copied must be what was found good.
    if (readConfiguration(session.file()) != text) {
        throw Failure(ExitCode::busy, session.file() + " is being changed", {"no copy was made; try again"});
    }
    struct stat original = {};
    if (::stat(session.file().c_str(), &original) != 0) {
        throw Failure(ExitCode::file, session.file() + ": " + std::strerror(errno),
                      {"no copy was made; see: veltor status"});
    }
    // A signal would leave half a copy under another name.
    const SignalsHeldBack untilTold;
    NewFile file(copy);
    file.write(view(text));
    file.install(original);
    output.noteState("the copy was made; compare it with: veltor diff " + copy);
    output.document().set("backup", jsonText(copy));
    output.print(session.file() + ": copied to " + copy);
    return ExitCode::done;
}

} // namespace

Command backupCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto name = std::make_shared<std::optional<std::string>>();
    CLI::App* command = application.add_subcommand("backup", "Copy the file")->group("Commands");
    command->add_option("COPY", *name, "The name of the copy; without it FILE.bak")->type_name("");
    command->footer(backupFooter);
    return {command, [name, &target, &output] { return backup(*name, target, output); }};
}

} // namespace veltor::tool
