// Trees from DNs in their order, and their drawings in both sets of characters.
#include "tree_drawing.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using veltor::tool::drawn;
using veltor::tool::treeOf;

TEST(TreeDrawing, IsTheSameTreeInBothSetsOfCharacters)
{
    struct Row
    {
        const char* name;
        std::vector<std::string> dns;
        const char *unicode, *ascii;
    };
    const Row rows[] = {
        {"nothing", {}, "", ""},
        {"a suffix of two names", {"o=a, c=b"}, "\n─ o=a, c=b (suffix)\n", "\n- o=a, c=b (suffix)\n"},
        {"two suffixes",
         {"cn=a", "cn=b"},
         "\n─ cn=a (suffix)\n\n─ cn=b (suffix)\n",
         "\n- cn=a (suffix)\n\n- cn=b (suffix)\n"},
        {"levels that go on and end",
         {"cn=a", "cn=b, cn=a", "cn=c, cn=b, CN=A", "cn=d, cn=a", "cn=e, cn=d, cn=a"},
         "\n─ cn=a (suffix)\n    ├─ cn=b, cn=a\n    │    └─ cn=c, cn=b, CN=A\n    └─ cn=d, cn=a\n         └─ cn=e, "
         "cn=d, cn=a\n",
         "\n- cn=a (suffix)\n    |\n    +- cn=b, cn=a\n    |    |\n    |    +- cn=c, cn=b, CN=A\n    |\n    +- cn=d, "
         "cn=a\n"
         "         |\n         +- cn=e, cn=d, cn=a\n"},
        {"missing ancestors, told once",
         {"cn=a", "cn=d, cn=c, cn=b, cn=a", "cn=e, cn=c, cn=b, cn=a"},
         "\n─ cn=a (suffix)\n    ├─ cn=d, cn=c, cn=b, cn=a *\n    └─ cn=e, cn=c, cn=b, cn=a *\n\n* the following "
         "entries "
         "are undefined:\ncn=b, cn=a\ncn=c, cn=b, cn=a\n",
         "\n- cn=a (suffix)\n    |\n    +- cn=d, cn=c, cn=b, cn=a *\n    |\n    +- cn=e, cn=c, cn=b, cn=a *\n\n* the "
         "following "
         "entries are undefined:\ncn=b, cn=a\ncn=c, cn=b, cn=a\n"},
        {"an escaped comma separates nothing",
         {"cn=a", "cn=x\\, cn=a"},
         "\n─ cn=a (suffix)\n\n─ cn=x\\, cn=a (suffix)\n",
         "\n- cn=a (suffix)\n\n- cn=x\\, cn=a (suffix)\n"},
        {"control characters", {"cn=\x1B[2J"}, "\n─ cn=\\x1b[2J (suffix)\n", "\n- cn=\\x1b[2J (suffix)\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(drawn(treeOf(row.dns), false, true), row.unicode);
        EXPECT_EQ(drawn(treeOf(row.dns), true, true), row.ascii);
    }
}

TEST(TreeDrawing, OfAPartNamesNoSuffix)
{
    EXPECT_EQ(drawn(treeOf({"cn=b, cn=a", "cn=c, cn=b, cn=a"}), false, false),
              "\n─ cn=b, cn=a\n    └─ cn=c, cn=b, cn=a\n");
}

TEST(TreeDrawing, OfADeepTreeNeedsNoDeepStack)
{
    constexpr std::size_t levels = 2000;
    std::vector<std::string> dns{"o=a"};
    while (dns.size() < levels) {
        dns.push_back("o=a, " + dns.back());
    }
    EXPECT_EQ(treeOf(dns).branches.back().depth, levels - 1);
    EXPECT_TRUE(treeOf(dns).missing.empty());
}
