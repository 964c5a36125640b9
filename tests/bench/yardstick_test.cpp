// The programs of the yardstick and the arithmetic of its tables.
#include "generator.h"
#include "process.h"
#include "table.h"

#include "support/temporary_folder.h"

#include <cmath>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace veltor::bench;
using veltor::test::TemporaryFolder;

TEST(YardstickFloor, ModifyModeGivesBackTheFile)
{
    const TemporaryFolder folder;
    for (const Tree tree : {Tree::mixed, Tree::wide, Tree::deep}) {
        for (const Order order : {Order::written, Order::reversed, Order::shuffled, Order::orphans}) {
            for (const std::size_t entries : {std::size_t{1}, std::size_t{50}}) {
                const Workload workload{.entries = entries, .tree = tree, .order = order};
                SCOPED_TRACE(std::string(nameOf(tree)) + ", " + nameOf(order) + ", " + std::to_string(entries));
                generateFile(workload, folder.path("in"));
                const Outcome outcome = run({VELTOR_BENCH_FLOOR, folder.path("in"), folder.path("out")});
                EXPECT_TRUE(outcome.ok) << outcome.output;
                EXPECT_EQ(folder.read("out"), configuration(workload));
            }
        }
    }
}

TEST(YardstickFloor, JoinsContinuationLinesAndKeepsComments)
{
    const TemporaryFolder folder;
    const std::string in = folder.write("in", "# c\ndn: o=\n x\ncn:: y\n\n\n# d: e\ndn:o=z");
    const Outcome outcome = run({VELTOR_BENCH_FLOOR, in, folder.path("out")});
    EXPECT_TRUE(outcome.ok) << outcome.output;
    EXPECT_EQ(folder.read("out"), "# c\ndn: o=x\ncn: y\n\n# d: e\ndn: o=z\n\n");
}

TEST(YardstickJob, EveryJobDoesWhatItMeasures)
{
    struct Row
    {
        std::vector<std::string> arguments; // the file stands in front of them
        std::vector<const char*> figures;
    };
    const std::string dn = "cn=unit7, cn=group0, cn=Configuration";
    const Row rows[] = {
        {{"load"}, {}},
        {{"search-base", "100", "50", "mixed"}, {"first", "search", "fetched"}},
        {{"search-equality", "cn=unit7"}, {"search", "hits"}},
        {{"walk"}, {"load", "search", "walk", "free", "values"}},
        {{"release"}, {"load", "release"}},
        {{"resident"}, {"resident", "peak"}},
        {{"big", dn, "objectclass", "top", "extra"}, {"load", "equality", "copy", "flush", "add", "delete", "release"}},
    };
    const TemporaryFolder folder;
    const std::string file = folder.path("in");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.arguments.front());
        generateFile({.entries = 50}, file);
        std::vector<std::string> command = {VELTOR_BENCH_JOB, row.arguments.front(), file};
        command.insert(command.end(), row.arguments.begin() + 1, row.arguments.end());
        const Outcome outcome = run(command);
        EXPECT_TRUE(outcome.ok) << outcome.output;
        for (const char* const figure : row.figures) {
            EXPECT_GT(numberNamed(outcome.output, figure), 0) << figure << " in " << outcome.output;
        }
        if (row.arguments.front() == "search-equality") {
            EXPECT_EQ(numberNamed(outcome.output, "hits"), 1);
        }
        if (row.arguments.front() == "walk") {
            EXPECT_EQ(numberNamed(outcome.output, "values"), 50 * 13 + 5);
        }
        const bool changes = row.arguments.front() == "big";
        EXPECT_EQ(folder.read("in") == configuration({.entries = 50}), !changes);
    }
}

TEST(YardstickJob, ModifyChangesOneValueAndWritesTheFile)
{
    const TemporaryFolder folder;
    generateFile({.entries = 50}, folder.path("in"));
    const Outcome outcome = run({VELTOR_BENCH_JOB, "modify", folder.path("in"), "cn=group0, cn=Configuration"});
    EXPECT_TRUE(outcome.ok) << outcome.output;
    const std::string text = folder.read("in");
    const std::size_t entry = text.find("dn: cn=group0, cn=Configuration\n");
    const std::size_t value = text.find("zor-slapdIdleTimeOut: 4711\n");
    EXPECT_LT(entry, value);
    EXPECT_LT(value, text.find("\n\n", entry));
}

TEST(YardstickJob, TellsWhatItCantDo)
{
    const Outcome outcome = run({VELTOR_BENCH_JOB, "load", "/no/such/file"});
    EXPECT_FALSE(outcome.ok);
    EXPECT_NE(outcome.output.find("bench_job: bind"), std::string::npos) << outcome.output;
    EXPECT_FALSE(run({VELTOR_BENCH_JOB, "fly"}).ok);
}

TEST(YardstickProcess, TellsStatusAndOutput)
{
    const Outcome good = run({"sh", "-c", "echo out; echo err >&2; cat"});
    EXPECT_TRUE(good.ok);
    EXPECT_EQ(good.output, "out\nerr\n");
    EXPECT_GT(good.peakBytes, 0);
    EXPECT_FALSE(run({"sh", "-c", "exit 3"}).ok);
    EXPECT_FALSE(run({"sh", "-c", "kill -9 $$"}).ok);
    const Outcome none = run({"/no/such/program"});
    EXPECT_FALSE(none.ok);
    EXPECT_EQ(none.output, "No such file or directory");
}

TEST(YardstickProcess, EndsAProgramWhoseTimeIsUp)
{
    const Outcome busy = run({"sh", "-c", "while :; do :; done"}, {.cpuSeconds = 1});
    EXPECT_FALSE(busy.ok);
    EXPECT_TRUE(busy.outOfTime);
    EXPECT_GT(busy.cpuSeconds, 0);
    EXPECT_FALSE(run({"true"}, {.cpuSeconds = 1}).outOfTime);
}

TEST(YardstickProcess, FindsNumbersByName)
{
    const std::string output = "load 0.5\nloading 7\nhits 3\n";
    EXPECT_EQ(numberNamed(output, "load"), 0.5);
    EXPECT_EQ(numberNamed(output, "hits"), 3);
    EXPECT_TRUE(std::isnan(numberNamed(output, "hit")));
}

TEST(YardstickTable, ShowsNumbers)
{
    EXPECT_EQ(shown(0), "0");
    EXPECT_EQ(shown(999.4), "999");
    EXPECT_EQ(shown(1000), "1,000");
    EXPECT_EQ(shown(1234567.891, 2), "1,234,567.89");
    EXPECT_EQ(shown(-1000), "-1,000");
    EXPECT_EQ(shown(-100), "-100");
    EXPECT_EQ(shown(std::nan("")), "-");
}

TEST(YardstickTable, TakesTheMedian)
{
    EXPECT_EQ(median({3, 1, 2}), 2);
    EXPECT_EQ(median({4, 1, 2, 3}), 2.5);
    EXPECT_TRUE(std::isnan(median({})));
}

TEST(YardstickTable, TellsThePowerOfTheGrowth)
{
    EXPECT_NEAR(growthExponent(10, 5, 1000, 500), 1, 1e-9);
    EXPECT_NEAR(growthExponent(10, 5, 100, 500), 2, 1e-9);
    EXPECT_TRUE(std::isnan(growthExponent(10, 0, 100, 500)));
    EXPECT_TRUE(std::isnan(growthExponent(10, 5, 10, 500)));
}
