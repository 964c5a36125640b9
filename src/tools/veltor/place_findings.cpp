// Looks at a file from outside: modes and owners, and the backup beside it. What lets everybody write the file itself
// is among the library's findings.
#include "escape.h"
#include "findings.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <pwd.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace veltor::tool {

namespace {

/// The status of a plain file; nothing for what is none.
std::optional<struct stat> plainFile(const std::string& file)
{
    struct stat status = {};
    return ::stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) ? std::optional(status) : std::nullopt;
}

/// True when the permissions of others lead through all folders to the file. Access control lists are not looked at.
bool othersMay(mode_t wanted, const std::string& file)
{
    std::error_code error;
    const std::filesystem::path real = std::filesystem::canonical(file, error);
    std::filesystem::path above;
    return !error && std::all_of(real.begin(), real.end(), [&](const std::filesystem::path& part) {
        above /= part;
        struct stat status = {};
        const mode_t needed = above == real ? wanted : S_IXOTH;
        return ::stat(above.c_str(), &status) == 0 && (status.st_mode & needed) == needed;
    });
}

/// True for an owner who has no business with the file: neither root, nor the server, nor who asks.
bool isForeign(uid_t owner)
{
    const struct passwd* const account = ::getpwnam(serverAccount);
    return owner != 0 && owner != ::geteuid() && (account == nullptr || owner != account->pw_uid);
}

std::string belongsTo(uid_t owner)
{
    const struct passwd* const account = ::getpwuid(owner);
    return " belongs to " + (account == nullptr ? "the user id " + std::to_string(owner) : account->pw_name) +
           ", who is neither root nor the account " + serverAccount;
}

void lookAtFile(const std::string& file, const struct stat& status, std::vector<Finding>& findings)
{
    if (othersMay(S_IROTH, file)) {
        findings.push_back({.severity = Severity::warning,
                            .kind = "readable-file",
                            .message = "everybody may read the file, and decode its passwords; mode 0640 is enough"});
    }
    if (isForeign(status.st_uid)) {
        findings.push_back({.kind = "foreign-owner", .message = "the file" + belongsTo(status.st_uid)});
    }
}

/// True for a file that does not load. One that only others may read counts as one that does.
bool hasObstacle(const std::string& file)
{
    try {
        return countsOf(findingsOf(file)).errors > 0;
    } catch (const Failure&) {
        return false;
    }
}

void lookAtBackup(const std::string& backup, const struct stat& status, std::vector<Finding>& findings)
{
    const std::string name = "the backup " + backup;
    if (othersMay(S_IROTH, backup)) {
        findings.push_back({.severity = Severity::warning,
                            .kind = "backup-readable",
                            .message = "everybody may read " + name + ", and decode its passwords"});
    }
    if (othersMay(S_IWOTH, backup)) {
        findings.push_back({.severity = Severity::warning,
                            .kind = "backup-writable",
                            .message = "everybody may write " + name + ", which veltor restore puts back"});
    }
    if (isForeign(status.st_uid)) {
        findings.push_back({.kind = "backup-foreign-owner", .message = name + belongsTo(status.st_uid)});
    }
    // A note: the text of a file that was mended is such a backup.
    if (hasObstacle(backup)) {
        findings.push_back(
            {.kind = "backup-does-not-load",
             .message = name + " does not load, so that veltor restore refuses it; see: veltor check " + backup});
    }
}

} // namespace

std::vector<Finding> placeFindingsOf(const std::string& file)
{
    std::vector<Finding> findings;
    if (const std::optional<struct stat> status = plainFile(file)) {
        lookAtFile(file, *status, findings);
    }
    const std::string backup = file + ".bak";
    if (const std::optional<struct stat> status = plainFile(backup)) {
        lookAtBackup(backup, *status, findings);
    }
    for (Finding& finding : findings) {
        finding.message = escaped(finding.message);
    }
    return findings;
}

} // namespace veltor::tool
