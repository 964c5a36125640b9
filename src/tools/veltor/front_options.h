// The options that stand in front of a command though the parser knows them only behind it.
#ifndef VELTOR_TOOL_FRONT_OPTIONS_H
#define VELTOR_TOOL_FRONT_OPTIONS_H

#include "change_engine.h"
#include "output.h"
#include "target.h"

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace veltor::tool {

/// The options of all commands and those of all writing commands, described for nothing but a look.
class FrontOptions
{
public:
    FrontOptions();
    FrontOptions(const FrontOptions&) = delete;
    FrontOptions& operator=(const FrontOptions&) = delete;
    ~FrontOptions() = default;

    /// Those that only the writing commands have.
    const CLI::App& writing() const { return writing_; }

    /// The words with what the parser can't take in front of the command put behind it.
    std::vector<std::string> putBehind(const std::vector<std::string>& words) const;

private:
    struct Meaning
    {
        bool isWriting = false;
        bool takesNext = false; ///< the next word is the value
    };

    Meaning meaningOf(const std::string& word) const;
    const CLI::Option* find(const std::string& name) const;

    CLI::App common_, writing_;
    TargetOptions target_;
    OutputOptions output_;
    WriteOptions write_;
};

} // namespace veltor::tool

#endif
