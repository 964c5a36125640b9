// A copy without secrets, and the way back.
#include "masked_copy.h"

#include <gtest/gtest.h>
#include <random>
#include <regex>
#include <string>
#include <vector>

using veltor::tool::MaskedCopy;
using veltor::tool::Unmasked;

namespace {

const char* const original = "# The server, old password: hunter2\n"
                             "dn: cn=Configuration\n"
                             "zor-slapdAdminPW: >1abc<\r\n"
                             "zor-slapdSetenv: A=one\n"
                             "zor-slapdSetenv: A=two\n"
                             "cn: Configuration\n"
                             "\n"
                             "dn: cn=b, cn=Configuration\n"
                             "zor-slapdPeerPW: >1de\n"
                             " f<\n"
                             "cn: b";

const char* const masked = "# The server, old password: *** (1)\n"
                           "dn: cn=Configuration\n"
                           "zor-slapdAdminPW: *** (2)\r\n"
                           "zor-slapdSetenv: *** (3)\n"
                           "zor-slapdSetenv: *** (4)\n"
                           "cn: Configuration\n"
                           "\n"
                           "dn: cn=b, cn=Configuration\n"
                           "zor-slapdPeerPW: *** (5)\n"
                           " *** (6)\n"
                           "cn: b";

std::string textOf(const Unmasked& unmasked)
{
    return {unmasked.text.begin(), unmasked.text.end()};
}

/// The text with its masks as this copy has them.
std::string tagged(const MaskedCopy& copy, const std::string& text)
{
    std::smatch tag;
    EXPECT_TRUE(std::regex_search(copy.text(), tag, std::regex(R"(\*\*\* \(\d+-([0-9a-f]{4})\))"))) << copy.text();
    return std::regex_replace(text, std::regex(R"(\*\*\* \((\d+)\))"), "*** ($1-" + tag.str(1) + ")");
}

std::string replaced(std::string text, const std::string& what, const std::string& with)
{
    const std::size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return text.replace(at, what.size(), with);
}

} // namespace

TEST(MaskedCopy, NumbersTheMasksAndPutsEverySecretBack)
{
    const MaskedCopy copy(original);
    // What is in front of a colon in a comment is no word, so that all of it is hidden.
    const std::string expected = replaced(masked, "# The server, old password: *** (1)", "# *** (1)");
    EXPECT_EQ(copy.text(), tagged(copy, expected));
    const Unmasked unmasked = copy.unmasked(copy.text());
    EXPECT_EQ(textOf(unmasked), original);
    EXPECT_EQ(unmasked.lines, (std::vector<std::size_t>{1, 3, 4, 5, 9, 10}));
    EXPECT_TRUE(unmasked.refusals.empty());
}

TEST(MaskedCopy, AnyTextComesBackByteForByte)
{
    for (const std::string text :
         {"", "\n", "zor-slapdAdminPW:\n", "zor-slapdAdminPW:", "zor-slapdAdminPW: x",
          "zor-slapdAdminPW:\n\tsecret\r\n \ncn: a\n", "zor-slapdAdminPW: a\n\xE3\x80\x80secret\n",
          "zor-slapdAdminPW: a\n\r secret\n", "cn: a\n zor-slapdAdminPW: x\n", "x-p\n w: secret\n",
          " zor-slapdAdminPW: x\n", "foo: pw: x\n", "dn: cn=a\n zor-slapdAdminPW: x\n", "zor-slapdAdminPW: \xFF\xFE\n",
          "# zor-slapdAdminPW: ***\n", "zor-slapdAdminPW: *** (1)\n",
          "# *** (1) *** (2)\nzor-slapdAdminPW: *** (3)\nzor-slapdSetenv: A=B\n"}) {
        const MaskedCopy copy(text);
        const Unmasked unmasked = copy.unmasked(copy.text());
        EXPECT_EQ(textOf(unmasked), text);
        EXPECT_TRUE(unmasked.refusals.empty()) << text;
    }
}

TEST(MaskedCopy, TextsMadeUpAtRandomComeBackByteForByte)
{
    const std::vector<std::string> pieces = {"zor-slapdAdminPW",
                                             "zor-slapdSetenv",
                                             "password",
                                             "dn",
                                             "cn",
                                             ":",
                                             ": ",
                                             " ",
                                             "\t",
                                             "\n",
                                             "\n",
                                             "\r",
                                             "\r\n",
                                             "# ",
                                             "x",
                                             ">1a<",
                                             "***",
                                             "*** (",
                                             "1)",
                                             "*** (2)",
                                             "\xC2\xA0",
                                             "\xFF",
                                             std::string(1, '\0')};
    std::mt19937 random(11);
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (std::size_t count = random() % 24; count > 0; --count) {
            text += pieces[random() % pieces.size()];
        }
        const MaskedCopy copy(text);
        const Unmasked unmasked = copy.unmasked(copy.text());
        ASSERT_EQ(textOf(unmasked), text);
        ASSERT_TRUE(unmasked.refusals.empty()) << text;
    }
}

TEST(MaskedCopy, TakesNumbersThatTheTextDoesNotHave)
{
    const std::string first = tagged(MaskedCopy("zor-slapdAdminPW: x\n"), "# *** (1)\n");
    const MaskedCopy copy(first + "zor-slapdAdminPW: x\n");
    EXPECT_EQ(copy.text(), tagged(copy, first + "zor-slapdAdminPW: *** (2)\n"));
}

TEST(MaskedCopy, LinesMayBeMovedCopiedDeletedAndTheirEntriesRenamed)
{
    const MaskedCopy copy("dn: cn=a\nzor-slapdPeerPW: >1a<\nzor-slapdSetenv: A=1\nzor-slapdSetenv: B=2\n\n"
                          "dn: cn=b\nzor-slapdPeerPW: >1b<\n");
    const Unmasked unmasked =
        copy.unmasked(tagged(copy, "dn: cn=b\nzor-slapdPeerPW: *** (4)\n\n"
                                   "dn: cn=renamed\nzor-slapdSetenv: *** (3)\nZOR-slapdPeerPW:   *** (1)\n\n"
                                   "dn: cn=new\nzor-slapdPeerPW: *** (4)\nzor-slapdMasterPW: *** (1)\n"));
    EXPECT_EQ(textOf(unmasked), "dn: cn=b\nzor-slapdPeerPW: >1b<\n\n"
                                "dn: cn=renamed\nzor-slapdSetenv: B=2\nZOR-slapdPeerPW:   >1a<\n\n"
                                "dn: cn=new\nzor-slapdPeerPW: >1b<\nzor-slapdMasterPW: >1a<\n");
    EXPECT_TRUE(unmasked.refusals.empty());
    EXPECT_EQ(unmasked.lines, (std::vector<std::size_t>{2, 5, 6, 9, 10}));
}

TEST(MaskedCopy, RefusesAMaskThatStandsForNothingOrWouldShowItsSecret)
{
    const MaskedCopy copy("dn: cn=a\nzor-slapdAdminPW: >1a<\ncn: a\n");
    struct Row
    {
        const char *line, *finding;
    };
    for (const Row row : {Row{"zor-slapdAdminPW: ***", "stands for no secret"},
                          {"zor-slapdAdminPW: *** (2)", "stands for no secret"},
                          {"zor-slapdAdminPW: *** (1)x", "stands for no secret"},
                          {"zor-slapdAdminPW: *** (1) ", "stands for no secret"},
                          {"zor-slapdAdminPW: *** (before)", "stands for no secret"},
                          {"zor-slapdSetenv: *** (7)", "stands for no secret"},
                          {"# password: ***", "stands for no secret"},
                          {"zor-slapdAdminPW: x*** (1)", "in front of"},
                          {"zor-slapdAdminPW: *** (1)*** (1)", "in front of"},
                          {"cn: *** (1)", "would not be hidden"},
                          {"# *** (1)", "would not be hidden"},
                          {"*** (1)", "would not be hidden"}}) {
        const Unmasked unmasked = copy.unmasked(tagged(copy, "dn: cn=a\n" + std::string(row.line) + "\ncn: a\n"));
        ASSERT_EQ(unmasked.refusals.size(), 1U) << row.line;
        EXPECT_EQ(unmasked.refusals.front().line, 2U) << row.line;
        EXPECT_NE(unmasked.refusals.front().finding.find(row.finding), std::string::npos)
            << row.line << ": " << unmasked.refusals.front().finding;
    }
}

TEST(MaskedCopy, MasksOfATextWithOtherHiddenLinesStandForNothing)
{
    const std::string text = "dn: cn=a\nzor-slapdAdminPW: >1a<\nzor-slapdPeerPW: >1b<\nzor-slapdPort: 1\n";
    const MaskedCopy kept(text);
    // Another secret in front of the others would number them anew, and so would another entry with the same names.
    for (const std::string& other : {replaced(text, "cn=a\n", "cn=a\nzor-slapdMasterPW: >1c<\n"),
                                     replaced(text, "cn=a\n", "cn=b\n"), replaced(text, "AdminPW", "MasterPW")}) {
        const Unmasked unmasked = MaskedCopy(other).unmasked(kept.text());
        ASSERT_EQ(unmasked.refusals.size(), 2U) << other;
        EXPECT_NE(unmasked.refusals.front().finding.find("other lines were hidden when it was made"),
                  std::string::npos);
    }
    // A mask is the secret that stands there now.
    const MaskedCopy later(replaced(replaced(text, ">1b<", ">1new<"), "Port: 1", "Port: 2"));
    EXPECT_EQ(textOf(later.unmasked(kept.text())), replaced(text, ">1b<", ">1new<"));
    EXPECT_TRUE(later.unmasked(kept.text()).refusals.empty());
}

TEST(MaskedCopy, MasksTellNothingOfTheSecrets)
{
    EXPECT_EQ(MaskedCopy("dn: cn=a\nzor-slapdSetenv: PIN=1\n").text(),
              MaskedCopy("dn: cn=a\nzor-slapdSetenv: PIN=2\n").text());
}

TEST(MaskedCopy, LeavesStarsAloneThatAreNoMasks)
{
    const char* const text = "# *** attention ***\n# *** (9)\ncn: ***\nzor-slapdServerID: a *** (1)\n";
    const MaskedCopy copy(text);
    EXPECT_EQ(copy.text(), text);
    EXPECT_EQ(textOf(copy.unmasked(text)), text);
    EXPECT_TRUE(copy.unmasked(text).refusals.empty());
}
