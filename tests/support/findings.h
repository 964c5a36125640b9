// What a check tells, kept.
#ifndef VELTOR_TESTS_FINDINGS_H
#define VELTOR_TESTS_FINDINGS_H

#include "veltor/cfg_admin.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace veltor::test {

struct Finding
{
    int severity;
    int line;
    int code;
    std::string kind;
    std::string dn;
    std::string attribute;
    std::string value; // "(null)" for a null one
    std::string message;
};

/// Takes what a check tells, up to a number of findings.
class Findings
{
public:
    explicit Findings(std::size_t most = static_cast<std::size_t>(-1)) : most_(most) {}

    static int take(void* context, const cfg_finding* finding)
    {
        auto& self = *static_cast<Findings*>(context);
        const auto shown = [](const char* text) { return std::string(text == nullptr ? "(null)" : text); };
        self.all.push_back({finding->severity, finding->line, finding->code, shown(finding->kind), shown(finding->dn),
                            shown(finding->attribute), shown(finding->value), shown(finding->message)});
        return self.all.size() >= self.most_ ? 1 : 0;
    }

    /// Those of a kind.
    std::vector<Finding> of(const std::string& kind) const
    {
        std::vector<Finding> found;
        std::copy_if(all.begin(), all.end(), std::back_inserter(found),
                     [&](const Finding& finding) { return finding.kind == kind; });
        return found;
    }

    /// "line kind" for each, separated by commas.
    std::string summary() const
    {
        std::string text;
        for (const Finding& finding : all) {
            text += (text.empty() ? "" : ", ") + std::to_string(finding.line) + " " + finding.kind;
        }
        return text;
    }

    std::string dump() const
    {
        std::string text;
        for (const Finding& finding : all) {
            text += std::to_string(finding.line) + ": " + std::to_string(finding.severity) + " " + finding.kind + " " +
                    std::to_string(finding.code) + " [" + finding.dn + "] [" + finding.attribute + "] [" +
                    finding.value + "] " + finding.message + "\n";
        }
        return text;
    }

    std::vector<Finding> all;

private:
    std::size_t most_;
};

} // namespace veltor::test

#endif
