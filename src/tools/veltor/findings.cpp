// The library's findings are copied as they come: their texts live during the call alone.
#include "findings.h"

#include "administrator.h"
#include "failure.h"
#include "handle.h"
#include "memory_file.h"
#include "secrets.h"
#include "whole_text.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <tuple>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

using Json = nlohmann::ordered_json;

int keep(void* context, const cfg_finding* finding)
{
    Finding kept{static_cast<Severity>(finding->severity),
                 finding->line,
                 finding->code,
                 finding->kind,
                 finding->dn,
                 finding->attribute};
    if (finding->value != nullptr) {
        kept.value = finding->value;
    }
    kept.message = finding->message;
    static_cast<std::vector<Finding>*>(context)->push_back(std::move(kept));
    return 0;
}

/// Of the place where a text is checked, and not of the text.
bool isAboutThePlace(const Finding& finding)
{
    return finding.kind == "writable-file" || finding.kind == "writable-folder" ||
           finding.kind == "group-writable-file" || finding.kind == "group-writable-folder";
}

std::string counted(std::size_t count, const char* word)
{
    return std::to_string(count) + ' ' + word + (count == 1 ? "" : "s");
}

} // namespace

std::vector<Finding> findingsOf(const std::string& file)
{
    leaveTheCLocale();
    const Handle handle = newHandle();
    if (const std::optional<Failure> failure = unreadableFile(file)) {
        throw *failure;
    }
    std::vector<Finding> findings;
    const int code = cfg_check_s(handle.get(), file.c_str(), keep, &findings);
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(handle.get(), code, {Stage::bind, ""});
    }
    return findings;
}

std::vector<Finding> allFindingsOf(const std::string& file)
{
    const std::vector<Finding> inside = findingsOf(file);
    std::vector<Finding> findings = placeFindingsOf(file);
    findings.insert(findings.end(), inside.begin(), inside.end());
    if (countsOf(inside).errors == 0 && !hasAdministrator(Session(readingOf(file)).handle())) {
        findings.push_back({.kind = "no-administrator",
                            .message = "nobody can bind as administrator: cn=Configuration needs an objectclass, "
                                       "zor-slapdAdminDN, and zor-slapdAdminPW with a password that can be decoded"});
    }
    return findings;
}

std::vector<Finding> findingsIn(const WipedText& text)
{
    const MemoryFile copy(view(text));
    std::vector<Finding> findings = findingsOf(copy.name());
    findings.erase(std::remove_if(findings.begin(), findings.end(), isAboutThePlace), findings.end());
    return findings;
}

std::vector<Finding> newFindings(std::vector<Finding> findings, const std::vector<Finding>& before)
{
    const auto keyOf = [](const Finding& finding) {
        return std::tuple(finding.kind, finding.dn, finding.attribute, finding.value);
    };
    std::map<decltype(keyOf(Finding())), std::size_t> known;
    for (const Finding& finding : before) {
        ++known[keyOf(finding)];
    }
    const auto isKnown = [&](const Finding& finding) {
        std::size_t& count = known[keyOf(finding)];
        return count > 0 && count-- > 0;
    };
    findings.erase(std::remove_if(findings.begin(), findings.end(), isKnown), findings.end());
    return findings;
}

Counts countsOf(const std::vector<Finding>& findings)
{
    Counts counts;
    for (const Finding& finding : findings) {
        ++(finding.severity == Severity::error     ? counts.errors
           : finding.severity == Severity::warning ? counts.warnings
                                                   : counts.notes);
    }
    return counts;
}

std::string totalsOf(const Counts& counts)
{
    return counted(counts.errors, "error") + ", " + counted(counts.warnings, "warning") + ", " +
           counted(counts.notes, "note");
}

const char* wordFor(Severity severity)
{
    return severity == Severity::error ? "error" : severity == Severity::warning ? "warning" : "note";
}

nlohmann::ordered_json jsonOf(const std::vector<Finding>& findings)
{
    Json array = Json::array();
    for (const Finding& finding : findings) {
        array.push_back({{"severity", wordFor(finding.severity)},
                         {"line", finding.line > 0 ? Json(finding.line) : Json(nullptr)},
                         {"code", finding.code},
                         {"kind", finding.kind},
                         {"dn", finding.dn.empty() ? Json(nullptr) : jsonDn(finding.dn)},
                         {"attribute", jsonTextOrNull(shownName(finding.attribute))},
                         {"value", finding.value ? jsonTextOrNull(*finding.value) : Json(nullptr)},
                         {"message", jsonText(finding.message)}});
    }
    return array;
}

nlohmann::ordered_json jsonOf(const Counts& counts)
{
    return {{"errors", counts.errors}, {"warnings", counts.warnings}, {"notes", counts.notes}};
}

} // namespace veltor::tool
