// The result of a search, released and wiped with its scope.
#ifndef VELTOR_TOOL_RESULTS_H
#define VELTOR_TOOL_RESULTS_H

#include "ldif_output.h"

#include <veltor/cfg.h>

namespace veltor::tool {

/// The text of a node, "" for none.
inline std::string_view textOf(const cfg_message& node)
{
    return node.text == nullptr ? std::string_view() : std::string_view(node.text);
}

class Results
{
public:
    Results() = default;
    Results(const Results&) = delete;
    Results& operator=(const Results&) = delete;
    ~Results()
    {
        wipeSecrets(first_);
        cfg_msgfree(first_);
    }
    cfg_message** receiver() { return &first_; }
    const cfg_message* first() const { return first_; }

private:
    cfg_message* first_ = nullptr;
};

} // namespace veltor::tool

#endif
