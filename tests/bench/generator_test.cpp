// The files that the benchmarks measure: what is measured on them holds for files in the field only if they are
// what they are said to be.
#include "generator.h"

#include "support/api_test.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

using namespace veltor::bench;
using namespace veltor::test;

namespace {

constexpr Tree trees[] = {Tree::mixed, Tree::wide, Tree::deep, Tree::splitPairs, Tree::lateAdopters};
constexpr Order orders[] = {Order::written, Order::reversed, Order::shuffled, Order::orphans};

std::string nameOf(const Workload& workload)
{
    return std::to_string(workload.entries) + " entries, " + veltor::bench::nameOf(workload.tree) + ", " +
           veltor::bench::nameOf(workload.order);
}

/// Every kind of file, with one entry and with enough for a second group and a fourth chain.
std::vector<Workload> everyWorkload()
{
    std::vector<Workload> list;
    for (const Tree tree : trees) {
        for (const Order order : orders) {
            for (const std::size_t entries : {std::size_t{1}, std::size_t{53}}) {
                list.push_back({.entries = entries, .tree = tree, .order = order});
            }
        }
    }
    return list;
}

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// The DNs of a text with their places in it.
std::map<std::string, std::size_t> dnsByPlace(const std::string& text)
{
    std::map<std::string, std::size_t> dns;
    for (const std::string& line : linesOf(text)) {
        if (line.starts_with("dn: ")) {
            const std::size_t place = dns.size();
            EXPECT_TRUE(dns.emplace(line.substr(4), place).second) << line << " comes twice";
        }
    }
    return dns;
}

std::string parentOf(const std::string& dn)
{
    const std::size_t comma = dn.find(", ");
    return comma == std::string::npos ? "" : dn.substr(comma + 2);
}

class Generator : public ApiTest
{
};

} // namespace

TEST_F(Generator, EveryFileLoadsWithoutBeingRewritten)
{
    for (const Workload& workload : everyWorkload()) {
        SCOPED_TRACE(nameOf(workload));
        const std::string text = configuration(workload);
        const Handle handle = bound(text);
        EXPECT_EQ(read(), text);
        const Found all = search(handle.get(), "", subtree, nullptr);
        EXPECT_EQ(all.code, 0);
        EXPECT_EQ(cfg_count_entries(handle.get(), all.result.get()), static_cast<int>(workload.entries + 1));
        EXPECT_EQ(search(handle.get(), "", subtree, "zor-slapdInvalidLine=*").result, nullptr);
    }
}

TEST_F(Generator, WritingAFileBackAsWrittenChangesNoByte)
{
    for (const Tree tree : {Tree::mixed, Tree::wide, Tree::deep}) {
        for (const std::size_t entries : {std::size_t{1}, std::size_t{53}}) {
            const Workload workload{.entries = entries, .tree = tree};
            SCOPED_TRACE(nameOf(workload));
            const std::string text = configuration(workload);
            const Handle handle = bound(text);
            shiftModificationTime(pathOf("zorslapd.conf"), -1000);
            const auto before = std::filesystem::last_write_time(pathOf("zorslapd.conf"));
            EXPECT_EQ(cfg_flush_s(handle.get()), 0);
            EXPECT_GT(std::filesystem::last_write_time(pathOf("zorslapd.conf")), before) << "nothing was written";
            EXPECT_EQ(read(), text);
        }
    }
}

TEST_F(Generator, TheSameSeedGivesTheSameBytes)
{
    for (Workload workload : everyWorkload()) {
        SCOPED_TRACE(nameOf(workload));
        const std::string text = configuration(workload);
        EXPECT_EQ(configuration(workload), text);
        workload.seed = 2;
        EXPECT_NE(configuration(workload), text);
    }
}

TEST_F(Generator, AFileHoldsTheSameLinesInEveryOrder)
{
    for (const Tree tree : trees) {
        SCOPED_TRACE(veltor::bench::nameOf(tree));
        const auto sortedLines = [&](Order order) {
            auto lines = linesOf(configuration({.entries = 53, .tree = tree, .order = order}));
            std::sort(lines.begin(), lines.end());
            return lines;
        };
        EXPECT_EQ(sortedLines(Order::reversed), sortedLines(Order::written));
        EXPECT_EQ(sortedLines(Order::shuffled), sortedLines(Order::written));
    }
}

TEST_F(Generator, ParentsComeFirstAsWrittenLastWhenReversedAndNeverToOrphans)
{
    for (const Tree tree : {Tree::mixed, Tree::wide, Tree::deep}) {
        SCOPED_TRACE(veltor::bench::nameOf(tree));
        const auto dnsIn = [&](Order order) {
            return dnsByPlace(configuration({.entries = 53, .tree = tree, .order = order}));
        };
        const auto written = dnsIn(Order::written);
        const auto reversed = dnsIn(Order::reversed);
        const auto orphans = dnsIn(Order::orphans);
        ASSERT_EQ(written.size(), 54U);
        for (const auto& [dn, place] : written) {
            if (dn != "cn=Configuration") {
                EXPECT_LT(written.at(parentOf(dn)), place) << dn;
                EXPECT_GT(reversed.at(parentOf(dn)), reversed.at(dn)) << dn;
            }
        }
        for (const auto& [dn, place] : orphans) {
            EXPECT_FALSE(orphans.contains(parentOf(dn))) << dn;
        }
    }
}

TEST_F(Generator, EntriesHaveThirteenValuesAndACommentInSome600Bytes)
{
    constexpr std::size_t entries = 1000;
    const std::string text = configuration({.entries = entries});
    const auto lines = linesOf(text);
    const auto count = [&lines](auto predicate) {
        return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), predicate));
    };
    EXPECT_EQ(count([](const std::string& line) { return line.starts_with("# instance "); }), entries);
    const std::size_t fields = count([](const std::string& line) { return line.find(": ") != std::string::npos; });
    const std::size_t comments =
        count([](const std::string& line) { return line.starts_with("#") && line.find(": ") != std::string::npos; });
    const std::size_t ofRoot = 2;
    const std::size_t ofTop = 6;
    EXPECT_EQ(fields - comments - ofRoot - ofTop, entries * (1 + 13));
    EXPECT_GT(text.size(), entries * 550);
    EXPECT_LT(text.size(), entries * 650);
}

TEST_F(Generator, PasswordsCanBeDecoded)
{
    const Handle handle = bound(configuration({.entries = 53}));
    char name[] = "zor-slapdMasterPW";
    char* names[] = {name, nullptr};
    const Found found = search(handle.get(), "", subtree, "zor-slapdMasterPW=*", names);
    ASSERT_EQ(found.code, 0);
    ASSERT_NE(found.result, nullptr);
    EXPECT_EQ(std::string(found.result->children->children->text).substr(0, 2), "pw");
}

TEST_F(Generator, WithoutRootLinesTheEntriesAreTheSame)
{
    const std::string text = configuration({.entries = 53});
    const std::string entries = configuration({.entries = 53, .rootLines = false});
    EXPECT_TRUE(text.ends_with(entries));
    EXPECT_TRUE(entries.starts_with("# The server as a whole\ndn: cn=Configuration\n"));
    const Handle handle = bound(entries);
    EXPECT_EQ(read(), entries);
}

TEST_F(Generator, AFileOnDiskHasTheSameBytes)
{
    const Workload workload{.entries = 1000, .order = Order::shuffled};
    generateFile(workload, pathOf("generated"));
    EXPECT_TRUE(read("generated") == configuration(workload));
    EXPECT_THROW(generateFile(workload, pathOf("no/such/folder")), std::system_error);
}

TEST_F(Generator, NamesLeadBackToTreesAndOrders)
{
    for (const Tree tree : trees) {
        EXPECT_EQ(treeNamed(veltor::bench::nameOf(tree)), tree);
    }
    for (const Order order : orders) {
        EXPECT_EQ(orderNamed(veltor::bench::nameOf(order)), order);
    }
    EXPECT_EQ(treeNamed("written"), std::nullopt);
    EXPECT_EQ(orderNamed(""), std::nullopt);
}
