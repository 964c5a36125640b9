// Programs run as processes of their own, and what they cost.
#ifndef VELTOR_BENCH_PROCESS_H
#define VELTOR_BENCH_PROCESS_H

#include <cstddef>
#include <string>
#include <vector>

namespace veltor::bench {

/// What bounds a program: it is ended beyond it. 0: nothing does.
struct Limits
{
    unsigned cpuSeconds = 0;
    std::size_t memoryBytes = 0; ///< of address space
};

/// How a program ended.
struct Outcome
{
    bool ok = false;        ///< exit status 0
    bool outOfTime = false; ///< ended by the limit of CPU time
    double cpuSeconds = 0;  ///< user and system, the start included
    double wallSeconds = 0; ///< from the start to the end
    double peakBytes = 0;   ///< most memory resident at one time
    std::string output;     ///< the last 4096 bytes of standard output and standard error
};

/// Runs a program to its end, standard input empty. The program is looked up in the PATH when its name has no slash.
/// A program that can't be started ends with ok false and the reason as output.
Outcome run(const std::vector<std::string>& command, const Limits& limits = {});

/// The number behind a name in "name number" lines; not-a-number when there is none.
double numberNamed(const std::string& output, const std::string& name);

} // namespace veltor::bench

#endif
