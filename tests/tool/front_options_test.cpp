// Tests of what goes behind the command.
#include "front_options.h"

#include <gtest/gtest.h>

namespace {

using namespace veltor::tool;

TEST(FrontOptions, OfWritingCommandsGoBehindTheCommandWithTheirValues)
{
    using Words = std::vector<std::string>;
    const struct
    {
        Words given, meant;
    } rows[] = {
        {{}, {}},
        {{"set", "-n", "port=1"}, {"set", "-n", "port=1"}},
        {{"-n", "set", "port=1"}, {"set", "-n", "port=1"}},
        {{"--dry-run", "-q", "set", "port=1"}, {"-q", "set", "--dry-run", "port=1"}},
        {{"-qn", "set", "port=1"}, {"set", "-qn", "port=1"}},
        {{"-nF", "a.conf", "set", "port=1"}, {"set", "-nF", "a.conf", "port=1"}},
        {{"--backup", "set", "unset", "port"}, {"unset", "--backup", "set", "port"}},
        {{"--backup=get", "unset", "port"}, {"unset", "--backup=get", "port"}},
        {{"--lock-timeout", "5", "-F", "set", "fmt"}, {"-F", "set", "fmt", "--lock-timeout", "5"}},
        // What belongs to another option is none.
        {{"-D", "-n", "get", "port"}, {"-D", "-n", "get", "port"}},
        {{"-D-n", "get", "port"}, {"-D-n", "get", "port"}},
        {{"-Fn", "--json", "get", "port"}, {"-Fn", "--json", "get", "port"}},
        {{"--", "-n", "get"}, {"--", "-n", "get"}},
        // What is no command is told, and not what stands in front of it.
        {{"-n", "prot"}, {"prot", "-n"}},
        {{"-n", "-h"}, {"-h"}},
        {{"--yes"}, {}},
        {{"--backup"}, {}},
        {{"-V"}, {"-V"}},
    };
    const FrontOptions options;
    for (const auto& row : rows) {
        EXPECT_EQ(options.putBehind(row.given), row.meant);
    }
}

} // namespace
