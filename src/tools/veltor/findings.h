// What is wrong with a configuration file, or may be: the library's findings, and those that need a look around it.
#ifndef VELTOR_TOOL_FINDINGS_H
#define VELTOR_TOOL_FINDINGS_H

#include "document.h"
#include "target.h"
#include "wiped_text.h"

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace veltor::tool {

/// The account that the server runs as.
inline constexpr const char* serverAccount = "ldap";

enum class Severity { note = 1, warning = 2, error = 3 }; ///< the numbers are those of cfg_finding

/// One finding. It holds no secret, unless as a part of a DN or a name: see shownDn and shownName.
struct Finding
{
    Severity severity = Severity::note;
    int line = 0; ///< 0: the file as a whole
    int code = 0;
    std::string kind = {}; ///< one of cfg_admin.h, or one of the tool's own
    std::string dn = {}, attribute = {};
    std::optional<std::string> value = {}; ///< nothing for a secret
    std::string message = {};
};

struct Counts
{
    std::size_t errors = 0, warnings = 0, notes = 0;
};

/// What the library finds in a file. Never writes.
/// @throws Failure  (file) when it can't be read
std::vector<Finding> findingsOf(const std::string& file);

/// What the library finds in a text that is in no file yet.
std::vector<Finding> findingsIn(const WipedText& text);

/// Those of the findings that a text had not before, as far as that can be told: lines may have moved.
std::vector<Finding> newFindings(std::vector<Finding> findings, const std::vector<Finding>& before);

/// What is found about the place of a file: who may read it and its backup, who owns them, and whether the backup is of
/// any use.
std::vector<Finding> placeFindingsOf(const std::string& file);

/// What veltor check tells first: what is found about the place of a file, what the library finds in it, and whether
/// nobody can bind as its administrator.
/// @throws Failure  (file) when it can't be read
std::vector<Finding> allFindingsOf(const std::string& file);

/// What is found around a file that loads: paths that are not there or that the account "ldap" can't reach, ports that
/// are used twice, TLS settings that seem not to belong together, a backup that is newer than the file.
/// @throws Failure  for a file that does not load
std::vector<Finding> deepFindingsOf(const TargetOptions& target);

Counts countsOf(const std::vector<Finding>& findings);

/// "1 error, 3 warnings, 1 note".
std::string totalsOf(const Counts& counts);

/// "error", "warning" or "note".
const char* wordFor(Severity severity);

nlohmann::ordered_json jsonOf(const std::vector<Finding>& findings);
nlohmann::ordered_json jsonOf(const Counts& counts);

} // namespace veltor::tool

#endif
