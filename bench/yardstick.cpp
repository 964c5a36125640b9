// The yardstick: generates files, runs the library's jobs, the floor and the peers on them as whole processes, and
// prints what they took as text. scripts/bench builds and calls it.
#include "yardstick.h"

#include "table.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

#include <sys/utsname.h>
#include <unistd.h>

namespace veltor::bench {

Outcome runWell(const std::vector<std::string>& command, const Limits& limits)
{
    Outcome outcome = run(command, limits);
    if (!outcome.ok) {
        if (outcome.outOfTime) {
            throw std::runtime_error("over " + std::to_string(limits.cpuSeconds) + " s");
        }
        std::string line;
        for (const std::string& word : command) {
            line += word + " ";
        }
        throw std::runtime_error(line + "failed: " + outcome.output);
    }
    return outcome;
}

Duel duel(const Yardstick& yardstick, const std::vector<std::string>& first, const std::vector<std::string>& second)
{
    const double enoughSeconds = yardstick.quick ? 0.25 : 1;
    constexpr std::size_t mostRounds = 41;
    Duel result;
    std::vector<double> times;
    std::vector<double> otherTimes;
    std::vector<double> ratios;
    double spent = 0;
    while (ratios.size() < yardstick.rounds || (spent < enoughSeconds && ratios.size() < mostRounds)) {
        Outcome own;
        Outcome other;
        if (ratios.size() % 2 == 0) {
            own = runWell(first);
            other = runWell(second);
        } else {
            other = runWell(second);
            own = runWell(first);
        }
        times.push_back(own.cpuSeconds);
        otherTimes.push_back(other.cpuSeconds);
        ratios.push_back(own.cpuSeconds / other.cpuSeconds);
        result.peakBytes = std::max(result.peakBytes, own.peakBytes);
        result.otherPeakBytes = std::max(result.otherPeakBytes, other.peakBytes);
        spent += own.cpuSeconds + other.cpuSeconds;
    }
    result.rounds = ratios.size();
    result.leastSeconds = *std::min_element(times.begin(), times.end());
    result.otherLeastSeconds = *std::min_element(otherTimes.begin(), otherTimes.end());
    result.seconds = median(std::move(times));
    result.otherSeconds = median(std::move(otherTimes));
    result.ratio = median(std::move(ratios));
    return result;
}

namespace {

/// A fresh folder, removed at the end.
class Folder
{
public:
    Folder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "veltor-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        path_ = name;
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::string path() const { return path_; }

private:
    std::string path_;
};

struct Part
{
    const char* name;
    void (*measure)(Yardstick&);
};

// The tool comes first: what this program holds when it starts another counts as that one's peak.
constexpr Part parts[] = {{"tool", measureTool},
                          {"load", measureLoad},
                          {"jobs", measureJobs},
                          {"big", measureBigEntries},
                          {"peers", measurePeers}};

struct Options
{
    std::vector<std::size_t> sizes;
    std::set<std::string_view> parts;
    std::string library;
    bool quick = false;
};

[[noreturn]] void usage()
{
    std::fputs("usage: yardstick [--quick] [--library DIR] [--only PART]... [ENTRIES...]\n"
               "  --quick        fewer sizes, trees of jobs and rounds: within two minutes\n"
               "  --library DIR  measure the libveltorstl.so in this folder\n"
               "  --only PART    tool, load, jobs, big or peers; may be repeated\n"
               "  ENTRIES        sizes of the files; 1 1000 10000 100000 by default\n",
               stderr);
    std::exit(2);
}

Options optionsFrom(int argc, char** argv)
{
    Options options;
    const std::vector<std::string_view> words(argv + 1, argv + argc);
    for (std::size_t index = 0; index < words.size(); ++index) {
        const std::string_view word = words[index];
        const bool more = index + 1 < words.size();
        std::size_t size = 0;
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), size);
        if (word == "--quick") {
            options.quick = true;
        } else if (word == "--library" && more) {
            options.library = words[++index];
        } else if (word == "--only" && more && std::any_of(std::begin(parts), std::end(parts), [&](const Part& part) {
                       return words[index + 1] == part.name;
                   })) {
            options.parts.insert(words[++index]);
        } else if (error == std::errc() && end == word.data() + word.size() && size > 0) {
            options.sizes.push_back(size);
        } else {
            usage();
        }
    }
    if (options.sizes.empty()) {
        options.sizes = options.quick ? std::vector<std::size_t>{1, 1000, 10'000}
                                      : std::vector<std::size_t>{1, 1000, 10'000, 100'000};
    }
    std::sort(options.sizes.begin(), options.sizes.end());
    return options;
}

/// The first value of a "name : value" line; "" when there is none.
std::string fieldOf(const char* path, std::string_view name)
{
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(name)) {
            const std::size_t value = line.find_first_not_of(" \t:", name.size());
            return value == std::string::npos ? "" : line.substr(value);
        }
    }
    return "";
}

void describeMachine(const Options& options)
{
    char date[32] = "";
    const std::time_t now = std::time(nullptr);
    struct tm calendar = {};
    std::strftime(date, sizeof date, "%Y-%m-%d", gmtime_r(&now, &calendar));
    struct utsname system = {};
    uname(&system);
    std::printf("veltor yardstick, %s%s%s\n", date, options.library.empty() ? "" : ", library in ",
                options.library.c_str());
    std::printf("%s, %u processors, memory %s; %s %s; LC_ALL=%s\n", fieldOf("/proc/cpuinfo", "model name").c_str(),
                std::thread::hardware_concurrency(), fieldOf("/proc/meminfo", "MemTotal").c_str(), system.sysname,
                system.release, std::getenv("LC_ALL"));
}

void measureAll(const Options& options)
{
    const Folder folder;
    Yardstick yardstick;
    yardstick.programs = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    yardstick.folder = folder.path();
    yardstick.sizes = options.sizes;
    yardstick.quick = options.quick;
    // The programs take the locale from here: one whose bytes need decoding, as in the field.
    setenv("LC_ALL", "C.UTF-8", 1);
    if (!options.library.empty()) {
        setenv("LD_LIBRARY_PATH", std::filesystem::absolute(options.library).c_str(), 1);
    }
    describeMachine(options);
    for (const Part& part : parts) {
        if (options.parts.empty() || options.parts.contains(part.name)) {
            part.measure(yardstick);
        }
    }
    std::printf("\n%d of %d figures are over their limit\n", yardstick.over, yardstick.limits);
}

} // namespace

} // namespace veltor::bench

int main(int argc, char** argv)
{
    try {
        veltor::bench::measureAll(veltor::bench::optionsFrom(argc, argv));
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "yardstick: %s\n", failure.what());
        return 1;
    }
    return 0;
}
