// The tool as people and scripts call it: what a short answer costs beyond a program that does nothing, and how long
// a shell waits for completion.
#include "generator.h"
#include "table.h"
#include "yardstick.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace veltor::bench {

namespace {

// As many as a large installation has.
constexpr std::size_t entries = 300;
constexpr double mostSecondsBeyond = 3e-3;
constexpr double mostBytesBeyond = 5e6;
constexpr double mostSecondsOfCompletion = 50e-3;

// The generated entry at the top has no port.
void writeFile(const std::string& name)
{
    std::string text = configuration({.entries = entries});
    const std::string mark = "\ncn: Configuration\n";
    text.insert(text.find(mark) + mark.size(), "zor-slapdPort: 389\n");
    std::ofstream(name, std::ios::binary) << text;
}

void measureAnswer(Yardstick& yardstick, const Table& table, const std::string& file, const char* name,
                   std::vector<std::string> words)
{
    words.insert(words.begin(), yardstick.program("veltor"));
    words.insert(words.end(), {"-F", file});
    const Duel result = duel(yardstick, words, {yardstick.program("bench_bare")});
    const double seconds = result.seconds - result.otherSeconds;
    const double bytes = result.peakBytes - result.otherPeakBytes;
    table.printRow({name, "CPU", shown(result.seconds * 1e3, 2), shown(result.otherSeconds * 1e3, 2),
                    shown(seconds * 1e3, 2), shown(mostSecondsBeyond * 1e3, 0),
                    yardstick.verdict(seconds, mostSecondsBeyond)});
    table.printRow({name, "peak", shown(result.peakBytes * 1e-6, 2), shown(result.otherPeakBytes * 1e-6, 2),
                    shown(bytes * 1e-6, 2), shown(mostBytesBeyond * 1e-6, 0),
                    yardstick.verdict(bytes, mostBytesBeyond)});
}

// The shell that starts the tool counts: a person waits for it as well.
void measureCompletion(Yardstick& yardstick, const Table& table, const char* name, const std::string& line)
{
    const std::string script =
        "printf '%s\\0' ' =' '" + line + "' | '" + yardstick.program("veltor") + "' __complete bash";
    std::vector<double> times;
    const std::size_t rounds = yardstick.quick ? yardstick.rounds : 41;
    for (std::size_t round = 0; round < rounds; ++round) {
        const Outcome outcome = runWell({"sh", "-c", script});
        if (std::count(outcome.output.begin(), outcome.output.end(), '\n') < 2) {
            throw std::runtime_error("nothing was offered behind " + line);
        }
        times.push_back(outcome.wallSeconds);
    }
    const double seconds = median(std::move(times));
    table.printRow({name, "wait", shown(seconds * 1e3, 2), "-", "-", shown(mostSecondsOfCompletion * 1e3, 0),
                    yardstick.verdict(seconds, mostSecondsOfCompletion)});
}

} // namespace

void measureTool(Yardstick& yardstick)
{
    std::printf("\nTool: on a file of %zu entries, ms and MB; an answer against a program that is linked with the LDAP "
                "client library\nand does nothing, completion by the time until its answer is there.\n\n",
                entries);
    const std::string file = yardstick.file("tool.conf");
    writeFile(file);
    const Table table({{"what", "", -24},
                       {"", "", -4},
                       {"tool", "", 6},
                       {"bare", "", 6},
                       {"beyond", "", 6},
                       {"limit", "", 5},
                       {"", "", -4}});
    table.printHeading();
    measureAnswer(yardstick, table, file, "get port", {"get", "port"});
    measureCompletion(yardstick, table, "complete a command", "veltor s");
    measureCompletion(yardstick, table, "complete a setting", "veltor get -F " + file + " p");
    measureCompletion(yardstick, table, "complete a DN", "veltor get -F " + file + " -b cn=");
    std::filesystem::remove(file);
}

} // namespace veltor::bench
