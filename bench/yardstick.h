// What the parts of the yardstick share: where its programs are, how long to measure, and the count of figures that
// are over their limit.
#ifndef VELTOR_BENCH_YARDSTICK_H
#define VELTOR_BENCH_YARDSTICK_H

#include "process.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace veltor::bench {

struct Yardstick
{
    std::string programs;           ///< folder of the programs
    std::string folder;             ///< for the generated files
    std::vector<std::size_t> sizes; ///< ascending
    bool quick = false;
    std::size_t rounds = 7; ///< at least so many pairs
    int limits = 0;
    int over = 0;

    std::string program(const char* name) const { return programs + "/" + name; }
    std::string file(const char* name) const { return folder + "/" + name; }

    /// "over" beyond the limit, else "". Both count.
    std::string verdict(double figure, double limit)
    {
        ++limits;
        // A figure that is missing is not within its limit.
        const bool within = figure <= limit;
        over += within ? 0 : 1;
        return within ? "" : "over";
    }
};

/// Runs a program that has to succeed.
///
/// @throws std::runtime_error with its output when it fails, or the limit of CPU time ends it
Outcome runWell(const std::vector<std::string>& command, const Limits& limits = {});

/// Two programs in turn, round by round, the first one ahead in every other round.
struct Duel
{
    double seconds = 0;      ///< of the first: median of CPU time
    double otherSeconds = 0; ///< of the second
    double leastSeconds = 0; ///< of the first: its least disturbed round
    double otherLeastSeconds = 0;
    double ratio = 0;     ///< first by second: median over the rounds
    double peakBytes = 0; ///< of the first, the most
    double otherPeakBytes = 0;
    std::size_t rounds = 0;
};

/// As many rounds as the yardstick wants at least; more of them while they are short, as these scatter more.
///
/// @throws std::runtime_error when one of the programs fails
Duel duel(const Yardstick& yardstick, const std::vector<std::string>& first, const std::vector<std::string>& second);

// The parts, each with a table of its own on standard output.

void measureTool(Yardstick& yardstick);
void measureLoad(Yardstick& yardstick);
void measureJobs(Yardstick& yardstick);
void measureBigEntries(Yardstick& yardstick);
void measurePeers(Yardstick& yardstick);

} // namespace veltor::bench

#endif
