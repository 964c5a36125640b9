// Looks at what the settings of a configuration mean outside of the file. Nothing here is certain enough to be an
// error: a path may be on a disk that is mounted later.
#include "escape.h"
#include "findings.h"
#include "names.h"
#include "results.h"
#include "secrets.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <grp.h>
#include <initializer_list>
#include <map>
#include <pwd.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

/// A value with where it stands.
struct Place
{
    std::string dn, attribute, value;
    int line;
};

std::vector<Place> placesIn(void* handle)
{
    Results everything;
    const int code = cfg_read_s(handle, "", LDAP_SCOPE_SUBTREE, everything.receiver());
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(handle, code, {Stage::search, ""});
    }
    std::vector<Place> places;
    for (const cfg_message* entry = everything.first(); entry != nullptr; entry = entry->next) {
        for (const cfg_message* attribute = entry->children; attribute != nullptr; attribute = attribute->next) {
            const std::optional<cfg_attr_type> type = attributeType(attribute->text);
            if (!type) {
                continue;
            }
            for (const cfg_message* value = attribute->children; value != nullptr; value = value->next) {
                // A path, too, may have taken the line of a password into it.
                if (isSecret(type->name, value->text)) {
                    continue;
                }
                int line = 0;
                if (cfg_locate_s(handle, entry->text, attribute->text, value->text, &line) != LDAP_SUCCESS) {
                    line = 0;
                }
                places.push_back({entry->text, type->name, value->text, line});
            }
        }
    }
    return places;
}

Finding findingAt(const Place& place, Severity severity, const char* kind, std::string message)
{
    return {severity, place.line, 0, kind, place.dn, place.attribute, place.value, std::move(message)};
}

/// The account that the server runs as.
class Account
{
public:
    Account()
    {
        const struct passwd* const entry = ::getpwnam(serverAccount);
        if (entry == nullptr) {
            return;
        }
        exists_ = true;
        user_ = entry->pw_uid;
        int count = 0;
        ::getgrouplist(serverAccount, entry->pw_gid, nullptr, &count);
        std::vector<gid_t> groups(static_cast<std::size_t>(count));
        if (count > 0 && ::getgrouplist(serverAccount, entry->pw_gid, groups.data(), &count) >= 0) {
            groups_.insert(groups.begin(), groups.end());
        }
        groups_.insert(entry->pw_gid);
    }

    bool exists() const { return exists_; }

    /// @param wanted  permission bits as those of others have them: 4 to read, 2 to write, 1 to pass
    bool may(const struct stat& status, unsigned wanted) const
    {
        if (user_ == 0) {
            return true;
        }
        const unsigned shift = status.st_uid == user_ ? 6U : groups_.count(status.st_gid) != 0 ? 3U : 0U;
        return ((status.st_mode >> shift) & wanted) == wanted;
    }

private:
    bool exists_ = false;
    uid_t user_ = 0;
    std::set<gid_t> groups_;
};

struct PathRule
{
    const char* attribute;
    bool made; ///< the server makes the file, so that its folder must let it
};

constexpr PathRule pathRules[] = {
    {"zor-slapdBulkloadErrors", true},   {"zor-slapdCLIErrors", true},       {"zor-slapdErrorLog", true},
    {"zor-slapdTraceMessageLog", true},  {"zor-slapdIncludeSchema", false},  {"zor-slapdKrbKeyTab", false},
    {"zor-slapdSchemaAdditions", false}, {"zor-slapdSslKeyDatabase", false},
};

constexpr unsigned mayRead = 4;
constexpr unsigned mayWrite = 2;
constexpr unsigned mayPass = 1;

/// What keeps the account from a path, "" for nothing. Access control lists are not looked at.
std::string obstacleOn(const std::filesystem::path& path, unsigned wanted, const Account& account)
{
    std::error_code error;
    const std::filesystem::path real = std::filesystem::canonical(path, error);
    if (error) {
        return path.string() + ": " + error.message();
    }
    struct stat status = {};
    std::filesystem::path above;
    for (const std::filesystem::path& part : real) {
        above /= part;
        if (::stat(above.c_str(), &status) != 0) {
            return above.string() + ": " + std::strerror(errno);
        }
        const bool last = above == real;
        if (account.exists() && !account.may(status, last ? wanted : mayPass)) {
            return above.string() + ": the account " + serverAccount + (last ? " may not use it" : " may not pass it");
        }
    }
    return {};
}

void checkPath(const Place& place, const PathRule& rule, const Account& account, std::vector<Finding>& findings)
{
    const std::filesystem::path path = place.value;
    if (!path.is_absolute()) {
        findings.push_back(findingAt(place, Severity::note, "relative-path",
                                     place.attribute + " is not an absolute path; where the server starts decides"));
        return;
    }
    std::error_code error;
    const bool missing = !std::filesystem::exists(path, error);
    if (missing && !error && rule.made) {
        const std::string obstacle = obstacleOn(path.parent_path(), mayWrite | mayPass, account);
        if (!obstacle.empty()) {
            findings.push_back(findingAt(place, Severity::warning, "unreachable-path",
                                         place.attribute + " can't be made: " + obstacle));
        }
        return;
    }
    if (missing) {
        findings.push_back(findingAt(place, Severity::warning, "missing-path",
                                     place.attribute + ": " + place.value + " does not exist"));
        return;
    }
    const std::string obstacle = obstacleOn(path, rule.made ? mayWrite : mayRead, account);
    if (!obstacle.empty()) {
        findings.push_back(findingAt(place, Severity::warning, "unreachable-path", place.attribute + ": " + obstacle));
    }
}

void checkPaths(const std::vector<Place>& places, std::vector<Finding>& findings)
{
    const Account account;
    bool looked = false;
    for (const Place& place : places) {
        for (const PathRule& rule : pathRules) {
            if (sameName(place.attribute, rule.attribute)) {
                checkPath(place, rule, account, findings);
                looked = true;
            }
        }
    }
    if (looked && !account.exists()) {
        findings.push_back({.severity = Severity::note,
                            .kind = "no-account",
                            .message = "there is no account \"ldap\": whether it can reach the paths is not known"});
    }
}

void checkPorts(const std::vector<Place>& places, std::vector<Finding>& findings)
{
    std::map<std::string, const Place*> ports;
    for (const Place& place : places) {
        if (place.attribute != "zor-slapdPort" && place.attribute != "zor-slapdSecurePort") {
            continue;
        }
        const auto [first, isNew] = ports.try_emplace(place.value, &place);
        if (!isNew) {
            findings.push_back(findingAt(place, Severity::warning, "port-in-use-twice",
                                         place.attribute + " is " + place.value + ", and so is " +
                                             first->second->attribute + " (line " +
                                             std::to_string(first->second->line) + ")"));
        }
    }
}

const Place* firstOf(const std::vector<Place>& places, std::initializer_list<std::string_view> attributes)
{
    for (const Place& place : places) {
        for (const std::string_view attribute : attributes) {
            if (place.attribute == attribute) {
                return &place;
            }
        }
    }
    return nullptr;
}

void checkTls(const std::vector<Place>& places, std::vector<Finding>& findings)
{
    const Place* const security = firstOf(places, {"zor-slapdSecurity"});
    const bool secured = security != nullptr && !sameName(security->value, "none");
    if (secured) {
        if (firstOf(places, {"zor-slapdSslKeyDatabase"}) == nullptr) {
            findings.push_back(
                findingAt(*security, Severity::note, "tls-settings",
                          "zor-slapdSecurity is " + security->value + " but zor-slapdSslKeyDatabase is not set"));
        }
        if (sameName(security->value, "SSLOnly") && firstOf(places, {"zor-slapdSecurePort"}) == nullptr) {
            findings.push_back(findingAt(*security, Severity::note, "tls-settings",
                                         "zor-slapdSecurity is SSLOnly but zor-slapdSecurePort is not set"));
        }
        return;
    }
    const Place* const unused = firstOf(
        places, {"zor-slapdSslKeyDatabase", "zor-slapdSslCertificate", "zor-slapdSslAuth", "zor-slapdSecurePort"});
    if (unused != nullptr) {
        findings.push_back(findingAt(*unused, Severity::note, "tls-settings",
                                     unused->attribute + " is set but zor-slapdSecurity is " +
                                         (security == nullptr ? "not set" : "none")));
    }
}

void checkBackup(const std::string& file, std::vector<Finding>& findings)
{
    struct stat own = {}, backup = {};
    if (::stat(file.c_str(), &own) != 0 || ::stat((file + ".bak").c_str(), &backup) != 0 || !S_ISREG(backup.st_mode)) {
        return;
    }
    const bool newer = backup.st_mtim.tv_sec > own.st_mtim.tv_sec ||
                       (backup.st_mtim.tv_sec == own.st_mtim.tv_sec && backup.st_mtim.tv_nsec > own.st_mtim.tv_nsec);
    if (newer) {
        findings.push_back({.severity = Severity::note,
                            .kind = "newer-backup",
                            .message = "the backup " + file + ".bak is newer than the file; see: veltor diff"});
    }
}

} // namespace

std::vector<Finding> deepFindingsOf(const TargetOptions& target)
{
    const Session session(target);
    const std::vector<Place> places = placesIn(session.handle());
    std::vector<Finding> findings;
    checkBackup(session.file(), findings);
    checkPaths(places, findings);
    checkPorts(places, findings);
    checkTls(places, findings);
    for (Finding& finding : findings) {
        finding.message = escaped(finding.message);
    }
    return findings;
}

} // namespace veltor::tool
