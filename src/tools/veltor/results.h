// The result of a search, released and wiped with its scope.
#ifndef VELTOR_TOOL_RESULTS_H
#define VELTOR_TOOL_RESULTS_H

#include "ldif_output.h"

#include <veltor/cfg.h>

namespace veltor::tool {

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
