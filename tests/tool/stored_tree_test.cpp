// What differs between two trees, each read from a text.
#include "stored_tree.h"

#include "memory_file.h"
#include "target.h"
#include "whole_text.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace veltor::tool;

/// A configuration read from memory.
struct Reading
{
    explicit Reading(std::string_view text) : file(text), session(readingOf(file.name())), tree(session.handle()) {}

    MemoryFile file;
    Session session;
    StoredTree tree;
};

/// "-DN" for an entry that is gone, "+DN" for a new one, "DN:name,name" for one that differs.
std::vector<std::string> told(std::string_view before, std::string_view after)
{
    const Reading left(before);
    const Reading right(after);
    std::vector<std::string> lines;
    for (const EntryDifference& difference : differencesOf(left.tree, right.tree)) {
        if (difference.after == nullptr) {
            lines.push_back('-' + std::string(textOf(*difference.before)));
            continue;
        }
        std::string line(difference.before == nullptr ? "+" : "");
        line += textOf(*difference.after);
        const char* separator = ":";
        for (const std::string_view name : difference.attributes) {
            line += separator + std::string(name);
            separator = ",";
        }
        lines.push_back(line);
    }
    return lines;
}

using Lines = std::vector<std::string>;

TEST(StoredTreeDifferences, AreNoneForTheSameConfigurationInAnotherLayout)
{
    EXPECT_EQ(
        told("dn: cn=A\ncn: A\nzor-slapdPort: 389\n", "# New.\ndn: CN=a\nzor-slapdPort:  389\n\ndn: cn=A\ncn: A\n"),
        Lines{});
}

TEST(StoredTreeDifferences, NameWhatCameAndWhatIsGoneInAnEntry)
{
    EXPECT_EQ(told("dn: cn=A\ncn: A\nzor-slapdPort: 389\nzor-slapdTimeLimit: 3\n",
                   "dn: cn=A\ncn: A\nzor-slapdPort: 1389\nzor-slapdSizeLimit: 5\n"),
              (Lines{"cn=A:zor-slapdPort,zor-slapdSizeLimit,zor-slapdTimeLimit"}));
}

TEST(StoredTreeDifferences, AnotherOrderOfValuesIsADifferenceSinceTheServerReadsThemInOrder)
{
    EXPECT_EQ(told("dn: cn=A\nzor-slapdSuffix: o=x\nzor-slapdSuffix: o=y\n",
                   "dn: cn=A\nzor-slapdSuffix: o=y\nzor-slapdSuffix: o=x\n"),
              (Lines{"cn=A:zor-slapdSuffix"}));
}

TEST(StoredTreeDifferences, ComeInAnOrderInWhichTheyCanBeCarriedOut)
{
    EXPECT_EQ(told("dn: cn=A\ncn: A\n\ndn: cn=B, cn=A\ncn: B\n\ndn: cn=C, cn=B, cn=A\ncn: C\n",
                   "dn: cn=A\ncn: A\n\ndn: cn=D, cn=A\ncn: D\n\ndn: cn=E, cn=D, cn=A\ncn: E\n"),
              (Lines{"-cn=C, cn=B, cn=A", "-cn=B, cn=A", "+cn=D, cn=A", "+cn=E, cn=D, cn=A"}));
}

TEST(StoredTreeDifferences, FindTheEntryOfADnInAnyLetterCase)
{
    EXPECT_EQ(told("dn: cn=A\nzor-slapdPort: 389\n", "dn: CN=a\nzor-slapdPort: 1389\n"), (Lines{"CN=a:zor-slapdPort"}));
}

} // namespace
