// Tests of bash's command lines and of words as a reply spells them.
#include "bash_line.h"

#include <gtest/gtest.h>

namespace {

using namespace veltor::tool;

constexpr const char* breaks = " \t\n\"'@><=;|&(:";

TEST(BashLine, WordsLoseTheirQuotes)
{
    struct Row
    {
        const char* line;
        std::vector<std::string> words;
        const char* current;
        char quote;
        std::size_t kept;
    };
    const Row rows[] = {
        {"veltor ", {"veltor"}, "", '\0', 0},
        {"veltor ge", {"veltor"}, "ge", '\0', 0},
        {"veltor  get\tpo", {"veltor", "get"}, "po", '\0', 0},
        {"veltor set security=SS", {"veltor", "set"}, "security=SS", '\0', 9},
        {"veltor -F a\\ b -b cn=Front\\ E", {"veltor", "-F", "a b", "-b"}, "cn=Front E", '\0', 3},
        {"veltor -b cn=a\\=b", {"veltor", "-b"}, "cn=a=b", '\0', 3},
        {"veltor -b 'cn=Front E", {"veltor", "-b"}, "cn=Front E", '\'', 0},
        {"veltor -b cn=\"Front E", {"veltor", "-b"}, "cn=Front E", '"', 3},
        {"veltor -b \"cn=a\\\"b", {"veltor", "-b"}, "cn=a\"b", '"', 0},
        {"veltor -b \"cn=a\\nb", {"veltor", "-b"}, "cn=a\\nb", '"', 0},
        // A quote that is closed again belongs to the word that readline takes.
        {"veltor -b 'cn=Front End'", {"veltor", "-b"}, "cn=Front End", '\0', 0},
        {"veltor -b 'cn=Front End', cn=", {"veltor", "-b", "cn=Front End,"}, "cn=", '\0', 3},
        {"veltor '' x", {"veltor", ""}, "x", '\0', 0},
        {"veltor x\\", {"veltor"}, "x", '\0', 0},
        {"", {}, "", '\0', 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        const BashLine line = parseBashLine(row.line, breaks);
        EXPECT_EQ(line.words, row.words);
        EXPECT_EQ(line.current, row.current);
        EXPECT_EQ(line.quote, row.quote);
        EXPECT_EQ(line.kept, row.kept);
    }
}

TEST(BashLine, RepliesAreSpeltAsTheirPlaceNeeds)
{
    struct Row
    {
        const char* line;
        const char* word;
        std::optional<std::string> reply;
    };
    const Row rows[] = {
        {"v ge", "get", "get"},
        {"v -b cn", "cn=Front End, cn=Configuration", "cn=Front\\ End,\\ cn=Configuration"},
        {"v -b cn=Fr", "cn=Front End, cn=Configuration", "Front\\ End,\\ cn=Configuration"},
        {"v -b cn=Front\\ End,\\ cn=C", "cn=Front End, cn=Configuration", "Configuration"},
        {"v -b 'cn=Fr", "cn=Front End, cn=Configuration", "cn=Front End, cn=Configuration"},
        {"v -b cn=\"Fr", "cn=Front End, cn=Configuration", "Front End, cn=Configuration"},
        {"v -b ", "cn=a\"b'c$d`e\\f!g#h~i*j", "cn=a\\\"b\\'c\\$d\\`e\\\\f\\!g\\#h\\~i\\*j"},
        {"v -b '", "cn=O'Hara $x", "cn=O'\\''Hara $x"},
        {"v -b \"", "cn=a\"b'c$d`e\\f", "cn=a\\\"b'c\\$d\\`e\\\\f"},
        {"v -b \"", "cn=wow!", std::nullopt},
        {"v -b ldap:", "ldap://host:389", "//host:389"},
        {"v -b ", "cn=Caf\u00e9", "cn=Caf\u00e9"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.line) + " <- " + row.word);
        EXPECT_EQ(bashReply(parseBashLine(row.line, breaks), row.word), row.reply);
    }
}

} // namespace
