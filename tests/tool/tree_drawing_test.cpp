// The drawing bytes at their positions, and nothing else, become line characters.
#include "tree_drawing.h"

#include <gtest/gtest.h>
#include <string>

using veltor::tool::asciiTree;
using veltor::tool::unicodeTree;

TEST(TreeDrawing, ShowsTheLinesOfCodePage437AsUnicode)
{
    struct Row
    {
        const char* name;
        std::string drawn, shown;
    };
    const Row rows[] = {
        {"nothing", "", ""},
        {"suffix", "\n\xC4 cn=a (suffix)\n", "\n─ cn=a (suffix)\n"},
        {"children",
         "\n\xC4 cn=a (suffix)\n    \xC3\xC4 cn=b, cn=a\n    \xB3    \xC0\xC4 cn=c, cn=b, cn=a\n    \xC0\xC4 cn=d\n    "
         "     "
         "\xC0\xC4 cn=e *\n",
         "\n─ cn=a (suffix)\n    ├─ cn=b, cn=a\n    │    └─ cn=c, cn=b, cn=a\n    └─ cn=d\n         └─ cn=e *\n"},
        {"missing ancestors",
         "\n\xC4 cn=a (suffix)\n    \xC0\xC4 cn=c *\n\n* the following entries are undefined:\ncn=b\n",
         "\n─ cn=a (suffix)\n    └─ cn=c *\n\n* the following entries are undefined:\ncn=b\n"},
        // Bytes of a DN that are lines elsewhere: UTF-8 of Ä is C3 84, of À is C3 80, of ³ is C2 B3.
        {"UTF-8 in a DN", "\xC4 cn=\xC3\x84\xC2\xB3 (suffix)\n    \xC0\xC4 cn=\xC3\x80\n",
         "─ cn=Ä³ (suffix)\n    └─ cn=À\n"},
        {"lines in a DN", "\xC4 cn=\xC4 \xC3\xC4 \xB3\n    \xC0\xC4     \xC0\xC4 x\n",
         "─ cn=\\xc4 \\xc3\\xc4 \\xb3\n    └─     \\xc0\\xc4 x\n"},
        {"lines in the list below", "\n* the following entries are undefined:\n\xC4 cn=a\n    \xC0\xC4 x\n",
         "\n* the following entries are undefined:\n\\xc4 cn=a\n    \\xc0\\xc4 x\n"},
        {"escape in a DN", "\xC4 cn=\x1B[2J (suffix)\n", "─ cn=\\x1b[2J (suffix)\n"},
        {"line feed in a DN", "\xC4 cn=a\nb (suffix)\n    \xC0\xC4 cn=c\n", "─ cn=a\\x0ab (suffix)\n    └─ cn=c\n"},
        {"no line feed at the end", "\xC4 cn=a", "─ cn=a\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(unicodeTree(row.drawn), row.shown);
    }
}

TEST(TreeDrawing, KeepsTheAsciiDrawingAndEscapesItsDns)
{
    const std::string drawn =
        "\n- cn=a (suffix)\n    |\n    +- cn=b\x1B, cn=a\n    |    |\n    |    +- cn=c\n    |\n    +- "
        "cn=\xC3\x84\n         |\n         +- cn=d\nx\n";
    const std::string shown =
        "\n- cn=a (suffix)\n    |\n    +- cn=b\\x1b, cn=a\n    |    |\n    |    +- cn=c\n    |\n    "
        "+- cn=\xC3\x84\n         |\n         +- cn=d\\x0ax\n";
    EXPECT_EQ(asciiTree(drawn), shown);
}
