// veltor status: the file, who may use it, whether it loads, who is changing it, and its backup.
#include "commands.h"
#include "escape.h"
#include "findings.h"
#include "ldif_output.h"
#include "results.h"
#include "secrets.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* statusFooter =
    R"(Exit status 4 says that the file does not load. Nothing is written, and a lock is not waited
for.)";

/// Who holds the writer lock, by what its last holder left in the lock file.
struct Lock
{
    std::optional<bool> held = false; ///< unset: this account may not look, or there is no lock file but something else
    std::string process, program;     ///< "" where the holder is not known
};

struct Backup
{
    std::string file;
    long ageSeconds;        ///< of its text, by now
    long behindFileSeconds; ///< how much older than the file; below 0: newer
};

struct Status
{
    std::string file, resolved;
    std::string owner, group;
    unsigned mode = 0;
    std::vector<Finding> findings;
    const Finding* obstacle = nullptr; ///< the first finding that ends the load
    Lock lock;
    std::optional<Backup> backup;
    std::optional<int> entries; ///< of a file that loads
};

std::string userName(uid_t user)
{
    const struct passwd* const entry = ::getpwuid(user);
    return entry == nullptr ? std::to_string(user) : entry->pw_name;
}

std::string groupName(gid_t group)
{
    const struct group* const entry = ::getgrgid(group);
    return entry == nullptr ? std::to_string(group) : entry->gr_name;
}

// The lock file holds the process id and the program name of the last holder, a line each.
void readHolder(int descriptor, Lock& lock)
{
    char text[512];
    const ssize_t size = ::pread(descriptor, text, sizeof text, 0);
    const std::string_view content(text, size > 0 ? static_cast<std::size_t>(size) : 0);
    const std::size_t end = content.find('\n');
    if (end == std::string_view::npos) {
        return;
    }
    lock.process = content.substr(0, end);
    const std::string_view rest = content.substr(end + 1);
    lock.program = rest.substr(0, rest.find('\n'));
}

// Asks for the lock and does not take it, so that no writer ever waits for this look.
Lock lockOf(const std::string& resolved)
{
    Lock lock;
    const int descriptor = ::open((resolved + ".lock").c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor < 0) {
        if (errno != ENOENT) {
            lock.held.reset();
        }
        return lock;
    }
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        lock.held.reset();
    }
    struct flock wanted = {};
    wanted.l_type = F_WRLCK;
    wanted.l_whence = SEEK_SET;
    if (::fcntl(descriptor, F_OFD_GETLK, &wanted) == 0 && wanted.l_type != F_UNLCK) {
        lock.held = true;
        readHolder(descriptor, lock);
    }
    ::close(descriptor);
    return lock;
}

std::optional<Backup> backupOf(const std::string& file, const struct stat& own)
{
    struct stat status = {};
    const std::string name = file + ".bak";
    if (::stat(name.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    return Backup{name, static_cast<long>(std::time(nullptr) - status.st_mtim.tv_sec),
                  static_cast<long>(own.st_mtim.tv_sec - status.st_mtim.tv_sec)};
}

int countEntries(const TargetOptions& target)
{
    const Session session(target);
    Results everything;
    const int code = cfg_read_s(session.handle(), "", LDAP_SCOPE_SUBTREE, everything.receiver());
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(session.handle(), code, {Stage::search, ""});
    }
    int count = 0;
    for (const cfg_message* entry = everything.first(); entry != nullptr; entry = entry->next) {
        // The root above the entries is none.
        count += entry->text != nullptr && *entry->text != '\0' ? 1 : 0;
    }
    return count;
}

Status statusOf(const TargetOptions& target)
{
    Status status;
    status.file = fileOf(target);
    status.findings = allFindingsOf(status.file);
    status.resolved = resolvedName(status.file);
    struct stat own = {};
    if (::stat(status.file.c_str(), &own) == 0) {
        status.owner = userName(own.st_uid);
        status.group = groupName(own.st_gid);
        status.mode = own.st_mode & 07777U;
    }
    const auto obstacle = std::find_if(status.findings.begin(), status.findings.end(),
                                       [](const Finding& finding) { return finding.severity == Severity::error; });
    status.obstacle = obstacle == status.findings.end() ? nullptr : &*obstacle;
    status.lock = lockOf(status.resolved);
    status.backup = backupOf(status.file, own);
    if (status.obstacle == nullptr) {
        status.entries = countEntries(target);
    }
    return status;
}

std::string modeText(unsigned mode)
{
    char text[16];
    std::snprintf(text, sizeof text, "%04o", mode);
    return text;
}

// The largest unit says enough.
std::string durationOf(long seconds)
{
    struct Unit
    {
        long seconds;
        const char* name;
    };
    static constexpr Unit units[] = {{86400, "day"}, {3600, "hour"}, {60, "minute"}, {1, "second"}};
    const long length = std::labs(seconds);
    const auto* unit = std::find_if(std::begin(units), std::end(units) - 1,
                                    [&](const Unit& candidate) { return length >= candidate.seconds; });
    const long count = length / unit->seconds;
    return std::to_string(count) + ' ' + unit->name + (count == 1 ? "" : "s");
}

std::string lockText(const Lock& lock)
{
    if (!lock.held) {
        return "not known";
    }
    if (!*lock.held) {
        return "free";
    }
    return lock.process.empty() ? "held" : "held by process " + lock.process + " (" + lock.program + ')';
}

std::string backupText(const std::optional<Backup>& backup)
{
    if (!backup) {
        return "none";
    }
    std::string text = backup->file + ", " + durationOf(backup->ageSeconds) + " old";
    if (backup->behindFileSeconds < 0) {
        text += ", newer than the file";
    }
    return text;
}

std::string loadsText(const Status& status)
{
    if (status.obstacle == nullptr) {
        return "yes";
    }
    const int line = status.obstacle->line;
    return "no: " + (line > 0 ? "line " + std::to_string(line) + ": " : "") + status.obstacle->message;
}

std::string textFor(const Status& status)
{
    struct Row
    {
        const char* name;
        std::string text;
    };
    const Row rows[] = {
        {"file", status.file},
        {"resolved", status.resolved == status.file ? "" : status.resolved},
        {"owner", status.owner + ':' + status.group},
        {"mode", modeText(status.mode)},
        {"loads", loadsText(status)},
        {"findings", totalsOf(countsOf(status.findings))},
        {"lock", lockText(status.lock)},
        {"backup", backupText(status.backup)},
        {"entries", status.entries ? std::to_string(*status.entries) : ""},
    };
    std::string out;
    for (const Row& row : rows) {
        if (!row.text.empty()) {
            std::string name = row.name;
            name.resize(10, ' ');
            out += name + escaped(row.text) + '\n';
        }
    }
    return out;
}

Json jsonFor(const Status& status)
{
    const Json lock{{"held", status.lock.held ? Json(*status.lock.held) : Json(nullptr)},
                    {"process", jsonTextOrNull(status.lock.process)},
                    {"program", jsonTextOrNull(status.lock.program)}};
    Json backup;
    if (status.backup) {
        backup = {{"file", jsonText(status.backup->file)},
                  {"age", status.backup->ageSeconds},
                  {"older", status.backup->behindFileSeconds}};
    }
    return {{"resolved", jsonText(status.resolved)},
            {"owner", jsonText(status.owner)},
            {"group", jsonText(status.group)},
            {"mode", modeText(status.mode)},
            {"loads", status.obstacle == nullptr},
            {"counts", jsonOf(countsOf(status.findings))},
            {"lock", lock},
            {"backup", backup},
            {"entries", status.entries ? Json(*status.entries) : Json(nullptr)}};
}

// The reason in the form of any other failure, for programs.
Failure doesNotLoad(const Status& status)
{
    const Finding& finding = *status.obstacle;
    FailureFacts facts;
    facts.ldap = finding.code < 1000 ? finding.code : LDAP_OTHER;
    facts.code = finding.code;
    facts.line = finding.line;
    facts.file = status.file;
    facts.dn = shownDn(finding.dn);
    facts.attribute = shownName(finding.attribute);
    facts.value = finding.value;
    return {ExitCode::file,
            status.file + (finding.line > 0 ? ':' + std::to_string(finding.line) : "") + ": " + finding.message,
            {"nothing was written; see: veltor check"},
            std::move(facts)};
}

ExitCode status(const TargetOptions& target, Output& output)
{
    output.document().setFile(fileOf(target));
    const Status status = statusOf(target);
    if (output.json()) {
        output.document().set("status", jsonFor(status));
    } else {
        writeOut(STDOUT_FILENO, textFor(status));
    }
    if (status.obstacle != nullptr) {
        throw doesNotLoad(status);
    }
    return ExitCode::done;
}

} // namespace

Command statusCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    CLI::App* command = application.add_subcommand("status", "Tell the state of the file")->group("Commands");
    command->footer(statusFooter);
    return {command, [&target, &output] { return status(target, output); }};
}

} // namespace veltor::tool
