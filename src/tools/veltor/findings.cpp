// The library's findings are copied as they come: their texts live during the call alone.
#include "findings.h"

#include "failure.h"
#include "handle.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

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
    using Json = nlohmann::ordered_json;
    Json array = Json::array();
    for (const Finding& finding : findings) {
        array.push_back({{"severity", wordFor(finding.severity)},
                         {"line", finding.line > 0 ? Json(finding.line) : Json(nullptr)},
                         {"code", finding.code},
                         {"kind", finding.kind},
                         {"dn", jsonTextOrNull(finding.dn)},
                         {"attribute", jsonTextOrNull(finding.attribute)},
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
