// What callers do with a loaded file: change it, search it, walk it, release it. And the memory that it takes.
#include "generator.h"
#include "table.h"
#include "yardstick.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

namespace veltor::bench {

namespace {

constexpr std::size_t smallest = 1000;

class Jobs
{
public:
    Jobs(Yardstick& yardstick, const Table& table, const Workload& workload)
        : yardstick_(yardstick), table_(table), workload_(workload), file_(yardstick.file("jobs.conf")),
          entries_(static_cast<double>(workload.entries))
    {
        generateFile(workload_, file_);
    }

    ~Jobs()
    {
        std::error_code ignored;
        std::filesystem::remove(file_, ignored);
    }

    Jobs(const Jobs&) = delete;
    Jobs& operator=(const Jobs&) = delete;

    /// What changing one entry and writing everything costs beyond loading, against the same of the floor. And what
    /// the safe mode needs for the new text alone.
    void modify()
    {
        const std::string copy = yardstick_.file("copy.conf");
        const std::string job = yardstick_.program("bench_job");
        const std::string floor = yardstick_.program("bench_floor");
        const std::string dn = entryDn(workload_.entries / 2, workload_);
        std::vector<double> ours;
        std::vector<double> floors;
        std::vector<double> ratios;
        std::vector<double> renderings;
        double spent = 0;
        // The first round brings both copies into being; it does not count.
        for (std::size_t round = 0; round <= yardstick_.rounds || (spent < 1 && round < 60); ++round) {
            const double loading = runWell({job, "load", file_}).cpuSeconds;
            const double floorLoading = runWell({floor, file_}).cpuSeconds;
            const double modifying = runWell({job, "modify", file_, dn}).cpuSeconds;
            const double floorModifying = runWell({floor, file_, copy}).cpuSeconds;
            spent += loading + floorLoading + modifying + floorModifying;
            if (round > 0) {
                ours.push_back(modifying - loading);
                floors.push_back(floorModifying - floorLoading);
                ratios.push_back(ours.back() / floors.back());
                renderings.push_back(numberNamed(runWell({job, "render", file_, dn}).output, "render") / floors.back());
            }
        }
        std::filesystem::remove(copy);
        print("modify, write-back: ms", median(ours) * 1e3, 1);
        print("  the floor's write: ms", median(floors) * 1e3, 1);
        judge("  ratio", median(ratios), 2, 2.0);
        judge("safe render after a change: x floor's write", median(renderings), 2, 0.3);
    }

    /// What a safe change may cost: one and a half loads, since it reads back what it writes, and two classic changes.
    void safeChange()
    {
        judge("safe change: x (1.5 load + 2 modify)",
              medianOf(runs("safe", {entryDn(workload_.entries / 2, workload_)}),
                       [](const Outcome& result) {
                           const auto part = [&](const char* named) { return numberNamed(result.output, named); };
                           return part("safe") / (1.5 * part("load") + 2 * part("modify"));
                       }),
              2, 1);
    }

    void searchBase()
    {
        const auto results = runs("search-base", {"10000", std::to_string(workload_.entries), nameOf(workload_.tree)});
        judge("base search: us", middle(results, "search") * 1e6, 2, 5);
        judge("  with cfg_get_values: us", middle(results, "fetched") * 1e6, 2, 5);
        print("  the first one alone: us", middle(results, "first") * 1e6, 1);
    }

    void searchEquality()
    {
        // The head of a chain: further down, the names repeat from chain to chain.
        const std::string dn = entryDn(workload_.entries / 2 / 16 * 16, workload_);
        const std::string name = dn.substr(0, dn.find(','));
        for (const std::string& filter : {name, std::string("zor-slapdPort=389"),
                                          std::string("zor-slapdPeerDN=cn=peer389, ou=services, o=example")}) {
            const auto results = runs("search-equality", {filter});
            judge("search " + filter.substr(0, filter.find('=')) + "=..., " + shown(middle(results, "hits")) +
                      " hits: ns/entry",
                  middle(results, "search") / entries_ * 1e9, 1, 100);
        }
    }

    void walk()
    {
        const auto results = runs("walk", {});
        const auto share = [&](const char* part) {
            return medianOf(results, [&](const Outcome& result) {
                return numberNamed(result.output, part) / numberNamed(result.output, "load");
            });
        };
        print("whole-tree search: x load", share("search"), 2);
        print("  walk, all fetched: x load", share("walk"), 2);
        print("  free: x load", share("free"), 2);
        judge("  together: x load",
              medianOf(results,
                       [](const Outcome& result) {
                           const auto part = [&](const char* named) { return numberNamed(result.output, named); };
                           return (part("search") + part("walk") + part("free")) / part("load");
                       }),
              2, 1);
    }

    void release()
    {
        judge("release: x load",
              medianOf(runs("release", {}),
                       [](const Outcome& result) {
                           return numberNamed(result.output, "release") / numberNamed(result.output, "load");
                       }),
              2, 0.25);
    }

    void resident()
    {
        const auto results = runs("resident", {});
        judge("resident after load: B/entry", middle(results, "resident") / entries_, 0, 5000);
        print("  at the peak of load: B/entry", middle(results, "peak") / entries_, 0);
    }

private:
    using Results = std::vector<Outcome>;

    Results runs(const char* job, const std::vector<std::string>& arguments) const
    {
        std::vector<std::string> command = {yardstick_.program("bench_job"), job, file_};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const std::size_t times = workload_.entries <= 10'000 ? 7 : 3;
        Results results;
        for (std::size_t time = 0; time < times; ++time) {
            results.push_back(runWell(command));
        }
        return results;
    }

    template <typename Figure>
    static double medianOf(const Results& results, Figure figure)
    {
        std::vector<double> figures(results.size());
        std::transform(results.begin(), results.end(), figures.begin(), figure);
        return median(std::move(figures));
    }

    static double middle(const Results& results, const char* name)
    {
        return medianOf(results, [&](const Outcome& result) { return numberNamed(result.output, name); });
    }

    void print(const std::string& what, double figure, int digits)
    {
        table_.printRow({what, nameOf(workload_.tree), shown(entries_), shown(figure, digits), "-"});
    }

    void judge(const std::string& what, double figure, int digits, double limit)
    {
        table_.printRow({what, nameOf(workload_.tree), shown(entries_), shown(figure, digits),
                         shown(limit, limit < 100 ? 2 : 0), yardstick_.verdict(figure, limit)});
    }

    Yardstick& yardstick_;
    const Table& table_;
    Workload workload_;
    std::string file_;
    double entries_;
};

} // namespace

void measureJobs(Yardstick& yardstick)
{
    std::printf("\nJobs on a loaded file, CPU time; \"x load\" is the time for loading in the same process.\n\n");
    const Table table(
        {{"job", "", -44}, {"tree", "", -5}, {"entries", "", 9}, {"measured", "", 10}, {"limit", "", 8}, {"", "", -4}});
    table.printHeading();
    const std::vector<Tree> trees =
        yardstick.quick ? std::vector{Tree::mixed} : std::vector{Tree::mixed, Tree::wide, Tree::deep};
    for (const std::size_t size : yardstick.sizes) {
        if (size < smallest) {
            continue;
        }
        for (const Tree tree : trees) {
            Jobs jobs(yardstick, table, {.entries = size, .tree = tree});
            jobs.searchBase();
            jobs.searchEquality();
            jobs.walk();
            jobs.release();
            jobs.resident();
            jobs.modify(); // from here on the file changes
            jobs.safeChange();
        }
    }
}

} // namespace veltor::bench
