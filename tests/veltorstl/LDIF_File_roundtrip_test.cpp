// Load, write, load, write: the second write gives the bytes of the first. Where it can't, a test is named after
// the reason.
#include "support/file_size_limit.h"
#include "support/store_test.h"

#include "LDIF_Exception.h"
#include "LDIF_File.h"

#include <ostream>
#include <rapidcheck.h>
#include <string>
#include <sys/resource.h>

using namespace veltor::test;

namespace {

class LdifFileRoundtrip : public StoreTest
{
protected:
    /// Loads a text and writes it; gives what the file holds then.
    std::string writtenFrom(const std::string& text) const
    {
        loaded(text)->flush();
        return onDisk();
    }

    /// The first write of a text still reads back as something else; from the second one on nothing changes.
    void expectSettled(const std::string& text, const std::string& first, const std::string& second) const
    {
        EXPECT_EQ(writtenFrom(text), first);
        EXPECT_EQ(writtenFrom(first), second);
        EXPECT_EQ(writtenFrom(second), second);
    }
};

constexpr char root[] = "charset: ISO-8859-1\nversion: 1\n";

} // namespace

TEST_F(LdifFileRoundtrip, TheSecondWriteGivesTheBytesOfTheFirst)
{
    struct Row
    {
        const char* name;
        std::string text;
        std::string written;
    };
    const std::string top = root;
    const Row rows[] = {
        {"empty", "", ""},
        {"blank lines alone", "\n\n  \n", ""},
        {"a comment alone", "# c", "# c\n"},
        {"root alone", "Version: 1\n# c\n\n", "Version: 1\n# c\n"},
        {"root lines are sorted", "version: 1\ncharset: a\n\ndn: o=x\n", "charset: a\nversion: 1\n\ndn: o=x\n\n"},
        {"root by default", "dn: o=x\n", top + "\ndn: o=x\n\n"},
        {"comments above a root by default", "# 1\n\n# 2\n\ndn: o=x\n", "# 1\n\n# 2\n\n" + top + "\ndn: o=x\n\n"},
        {"a blank line in front of a root by default", "\ndn: o=x\n", "\n" + top + "\ndn: o=x\n\n"},
        {"a blank line of the first entry is not doubled", top + "\n# 1\n\n# 2\ndn: o=x\n",
         top + "\n# 1\n\n# 2\ndn: o=x\n\n"},
        {"a comment right behind the root", top + "# 1\ndn: o=x\n", top + "\n# 1\ndn: o=x\n\n"},
        {"blank lines between entries are kept but for one", top + "\n\ndn: o=x\n\n\n\ndn: o=y\n\n\n\n",
         top + "\n\ndn: o=x\n\n\n\ndn: o=y\n\n"},
        {"entries without a blank line between them", top + "dn: o=x\ncn: a\ndn: o=y\n",
         top + "\ndn: o=x\ncn: a\n\ndn: o=y\n\n"},
        {"attributes are sorted", top + "\ndn: o=x\nsn: s\n# 1\ncn: b\n# 2\nSN: t\n\n",
         top + "\ndn: o=x\n# 1\ncn: b\n# 2\nsn: s\nsn: t\n\n"},
        // The blank line above the first entry is that entry's and moves with it.
        {"children follow their parents", top + "\ndn: cn=a, o=x\n\ndn: o=y\n\ndn: o=x\n\n",
         top + "\ndn: o=y\n\ndn: o=x\n\n\ndn: cn=a, o=x\n\n"},
        {"entries of one DN are one", top + "\n# 1\nDN: O=X\ncn: a\n\n# 2\ndn: o=x\nsn: b\n\n",
         top + "\n# 1\n# 2\nDN: O=X\ncn: a\nsn: b\n\n"},
        {"normal forms", top + "\ndn: cn = a ;o=x\nzor-slapdPort: +0389\nzor-slapdAdminDN: cn=a;o=x\nmail::  m  \n\n",
         top + "\ndn: cn=a, o=x\nmail: m\nzor-slapdAdminDN: cn=a, o=x\nzor-slapdPort: 389\n\n"},
        {"continuation lines are joined", top + "\ndn: o=\n x\ndescription: a\n  b\n\tc\n\n",
         top + "\ndn: o=x\ndescription: a bc\n\n"},
        {"carriage returns go", top + "\r\ndn: o=x\r\ncn: a\rb\r\n\r\n", top + "\ndn: o=x\ncn: ab\n\n"},
        {"the value of an unfinished last line is dropped", top + "\ndn: o=x\ncn: lost", top + "\ndn: o=x\ncn: \n\n"},
        {"a comment inside an entry goes with the attribute", top + "\ndn: o=x\nsn: s\n# c\ncn: a\n\n",
         top + "\ndn: o=x\n# c\ncn: a\nsn: s\n\n"},
        {"a comment behind the last attribute goes on", top + "\ndn: o=x\ncn: a\n# c\n\n\ndn: o=y\n\n",
         top + "\ndn: o=x\ncn: a\n\n# c\n\ndn: o=y\n\n"},
        {"comments behind the last entry", top + "\ndn: o=x\n\n\n# 1\n\n# 2  \n\n\n",
         top + "\ndn: o=x\n\n\n# 1\n\n# 2  \n"},
        {"blank lines lose their blanks", "# c\n \t \n" + top + "\ndn: o=x\n\n  \n# c\ndn: o=y\n",
         "# c\n\n" + top + "\ndn: o=x\n\n\n# c\ndn: o=y\n\n"},
        {"a rejected value", top + "\ndn: o=x\nzor-slapdPort: none\n\n",
         top + "\ndn: o=x\nzor-slapdInvalidLine: zor-slapdPort: none\n\n"},
        {"a line without a colon that goes on", top + "\ndn: o=x\nno\n colon\n\n",
         top + "\ndn: o=x\nzor-slapdInvalidLine: no: colon\n\n"},
        {"parentheses inside and quoted", top + "\ndn: cn=\"(a)\", o=x(y)z\ncn: a(b)c\n\n",
         top + "\ndn: cn=\"(a)\", o=x(y)z\ncn: a(b)c\n\n"},
        {"parentheses around", top + "\ndn: (o=x)\ncn: (a b)\n\n", top + "\ndn: o=x\ncn: a b\n\n"},
        {"escapes", top + "\ndn: cn=\\20a\\,b\\2Bc,ou=#4142,o=\"\\\"\"\n\n",
         top + "\ndn: cn=\\20a\\,b\\+c, ou=#4142, o=\"\\\"\"\n\n"},
        {"multibyte characters", top + "\n# gr\u00FCn\ndn: o=gr\u00FCn\ncn: \u20AC\n\n",
         top + "\n# gr\u00FCn\ndn: o=gr\u00FCn\ncn: \u20AC\n\n"},
        {"an empty DN adds to the root", top + "\ndn: o=x\n\n# c\ndn:\n\n", "# c\n" + top + "\ndn: o=x\n\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(writtenFrom(row.text), row.written);
        EXPECT_EQ(writtenFrom(row.written), row.written);
    }
}

TEST_F(LdifFileRoundtrip, AnEncodedPasswordStaysAsItIsWritten)
{
    const std::string first = writtenFrom("dn: o=x\nzor-slapdAdminPW: clear text\n\n");
    EXPECT_EQ(first.find("clear text"), std::string::npos);
    EXPECT_NE(first.find("zor-slapdAdminPW: >"), std::string::npos);
    EXPECT_EQ(writtenFrom(first), first);
}

// ---- Where the second write differs ----

TEST_F(LdifFileRoundtrip, AKeptLineThatEndsInAColonAndABlankLosesTheBlank)
{
    struct Row
    {
        const char* name;
        const char* line;
        const char* kept;
    };
    const Row rows[] = {
        {"no colon", "no colon here\n", "no colon here:"},
        {"a colon in front", ":value\n", ":value:"},
        {"a type that takes no empty value", "zor-slapdPort:\n", "zor-slapdPort:"},
    };
    const std::string head = std::string(root) + "\ndn: o=x\nzor-slapdInvalidLine: ";
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        expectSettled(std::string("dn: o=x\n") + row.line, head + row.kept + " \n\n", head + row.kept + "\n\n");
    }
}

TEST_F(LdifFileRoundtrip, AValueBegunOnAContinuationLineLosesItsLeadingBlanks)
{
    struct Row
    {
        const char* name;
        const char* lines;
        const char* value;
        const char* later;
    };
    const Row rows[] = {
        {"blanks", "cn:\n    a\n", "   a", "a"},
        {"a parenthesis", "cn: \n (a b\n", "(a b", "a b"},
        {"blanks and parentheses", "cn: ()\n  ( a) b\n", " ( a) b", "a) b"},
        {"a parenthesis alone", "cn:\n ()\n", "(", ""},
    };
    const std::string head = std::string(root) + "\ndn: o=x\ncn: ";
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        expectSettled(std::string("dn: o=x\n") + row.lines, head + row.value + "\n\n", head + row.later + "\n\n");
    }
}

TEST_F(LdifFileRoundtrip, ADnValueThatBeginsWithAParenthesisLosesIt)
{
    struct Row
    {
        const char* name;
        const char* text;
        const char* written;
        const char* later;
    };
    const Row rows[] = {
        {"of an entry", "dn: cn=\\28a, o=x\n\n", "dn: cn=(a, o=x\n\n", "dn: cn=a, o=x\n\n"},
        {"several", "dn: cn=\\29\\28 a b, o=x\n\n", "dn: cn=)( a b, o=x\n\n", "dn: cn=a b, o=x\n\n"},
        {"of an attribute", "dn: o=x\nzor-slapdAdminDN: cn=\\28a, o=x\n\n", "dn: o=x\nzor-slapdAdminDN: cn=(a, o=x\n\n",
         "dn: o=x\nzor-slapdAdminDN: cn=a, o=x\n\n"},
    };
    const std::string head = std::string(root) + "\n";
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        expectSettled(row.text, head + row.written, head + row.later);
    }
}

TEST_F(LdifFileRoundtrip, ADnValueOfAParenthesisAloneCantBeWrittenASecondTime)
{
    // The first write gives "cn=(", which reads as an empty value.
    const std::string first = std::string(root) + "\ndn: cn=(\n\n";
    EXPECT_EQ(writtenFrom("dn: cn=\\28\n\n"), first);
    const auto store = reloaded();
    expectFailure(failureOf([&] { store->flush(); }), 34, 1013, "Missing RDN attribute value");
    EXPECT_EQ(onDisk(), first);
}

TEST_F(LdifFileRoundtrip, AnEscapedLineFeedInADnBreaksItsLine)
{
    const std::string head = root;
    const std::string first = head + "\ndn: cn=a\nb, o=x\n\n";
    EXPECT_EQ(writtenFrom("dn: cn=a\\0Ab, o=x\n\n"), first);
    EXPECT_EQ(writtenFrom(first), head + "\ndn: cn=a\nzor-slapdInvalidLine: b, o=x: \n\n");
}

TEST_F(LdifFileRoundtrip, ANameThatBeginsWithABlankJoinsWhatStandsAboveIt)
{
    // Behind a comment such a line is an attribute. Merged, it stands behind another one and continues it.
    const std::string head = std::string(root) + "\ndn: o=x\n# 1\n";
    const std::string first = head + "# 2\n cn: a\n cn: b\n\n";
    EXPECT_EQ(writtenFrom("dn: o=x\n# 1\n cn: a\n# 2\n cn: b\n\n"), first);
    EXPECT_EQ(writtenFrom(first), head + "# 2\n cn: acn: b\n\n");
}

TEST_F(LdifFileRoundtrip, ADnLineWithoutAColonIsWrittenAsAnAttributeThatEndsTheNextLoad)
{
    // Its type makes it the first line of an entry, its label is the name for what can't be used.
    const std::string head = root;
    const std::string first = head + "\nzor-slapdInvalidLine: dn=x, o=y:\ncn: a\n\n";
    EXPECT_EQ(writtenFrom("dn=x,o=y\ncn: a\n"), first);
    expectFailure(failureOf([&] { reloaded(); }), 65, 1007,
                  "\"zor-slapdInvalidLine\" attribute not allowed in <root> object");
    EXPECT_EQ(onDisk(), first);
}

// ---- Any file ----

namespace {

struct Lines
{
    std::string text;
};

void showValue(const Lines& lines, std::ostream& stream)
{
    stream << lines.text;
}

std::string word()
{
    return *rc::gen::element<std::string>("a", "B c", "x(y)z", "1:2", "#n", "\u00E4\u20AC", "-", "dn: o=q", "e=f");
}

std::string commentLines(bool blanks)
{
    std::string text;
    const int count = *rc::gen::inRange(0, 3);
    for (int i = 0; i < count; ++i) {
        const bool blank = blanks && *rc::gen::arbitrary<bool>();
        text += blank ? *rc::gen::element<std::string>("\n", " \n", "\t\n") : "#" + word() + " \n";
    }
    return text;
}

std::string dn()
{
    std::string text;
    const int levels = *rc::gen::inRange(1, 4);
    for (int i = 0; i < levels; ++i) {
        text += i == 0 ? "" : *rc::gen::element<std::string>(",", ", ", " ; ");
        text += *rc::gen::element<std::string>("o=x", "CN = a", "cn=A", "ou=b+cn=c", "cn=c+OU=B", "cn=\"(d, e\"",
                                               "o=\\20f\\,g", "ou=#4142", "2.5.4.3=h i");
    }
    return text;
}

std::string attributeLine()
{
    const int kind = *rc::gen::inRange(0, 5);
    switch (kind) {
    case 0:
        return *rc::gen::element<std::string>("zor-slapdPort: 0389\n", "ZOR-slapdport: +7\n", "zor-slapdPort: none\n");
    case 1:
        return "no colon\n " + word() + "\n";
    case 2:
        return "zor-slapdAdminDN: " + dn() + "\n";
    case 3:
        return "description: " + word() + "\n  " + word() + "\n\t" + word() + "  \n";
    default:
        return *rc::gen::element<std::string>("cn", "CN", "Mail", "objectClass", "aci", "zzz") +
               *rc::gen::element<std::string>(":", ": ", "::  ") + word() +
               *rc::gen::element<std::string>("\n", " \n", ")\n", "\r\n");
    }
}

Lines anyFile()
{
    std::string text = commentLines(true);
    if (*rc::gen::arbitrary<bool>()) {
        text += "version: 1\n" + commentLines(false);
    }
    if (*rc::gen::arbitrary<bool>()) {
        text += "charset: UTF-8\n";
    }
    const int entries = *rc::gen::inRange(0, 8);
    for (int i = 0; i < entries; ++i) {
        text += commentLines(true) + *rc::gen::element<std::string>("dn: ", "DN:", "dN::  ") + dn() + "\n";
        const int attributes = *rc::gen::inRange(0, 5);
        for (int k = 0; k < attributes; ++k) {
            text += commentLines(false) + attributeLine();
        }
        text += *rc::gen::element<std::string>("", "\n", "\n\n", "# c\n", "# c\n\n");
    }
    return {text + commentLines(true)};
}

} // namespace

TEST_F(LdifFileRoundtrip, AnyFileIsWrittenTheSameASecondTime)
{
    EXPECT_TRUE(rc::check("load, write, load, write gives the same bytes", [this] {
        const Lines file = *rc::gen::exec(anyFile);
        const std::string first = writtenFrom(file.text);
        const auto again = reloaded();
        const std::string tree = treeText(*again);
        again->flush();
        RC_ASSERT(onDisk() == first);
        RC_ASSERT(tree + again->trailingComment.str() == first);
    }));
}

// ---- A disk that is full ----

TEST_F(LdifFileRoundtrip, AFullDiskIsNotReportedAndTheFileHoldsWhatFitted)
{
    std::string text = root;
    for (int i = 0; i < 200; ++i) {
        text += "\ndn: cn=" + std::to_string(i) + ", o=x\ndescription: " + std::string(50, 'd') + "\n";
    }
    text += "\n";
    for (const std::size_t limit : {std::size_t{0}, std::size_t{1}, std::size_t{5000}, text.size() - 1}) {
        for (const bool keepsBackup : {false, true}) {
            SCOPED_TRACE(std::to_string(limit) + (keepsBackup ? " with a backup" : ""));
            const auto store = loaded(text);
            store->backupFileName = keepsBackup ? folder().path("backup") : "";
            const int outcome = withFileSizeLimit(limit, [&] {
                try {
                    store->flush();
                    // What is in memory is whole, and the short file is not read back.
                    return store->refresh() ? 1 : treeText(*store) == text ? 0 : 2;
                } catch (...) {
                    return 3;
                }
            });
            EXPECT_EQ(outcome, 0);
            EXPECT_EQ(onDisk(), text.substr(0, limit));
            if (keepsBackup) {
                EXPECT_EQ(folder().read("backup"), text);
            }
        }
    }
}

TEST_F(LdifFileRoundtrip, AWriteAfterRoomWasMadeMakesTheFileWhole)
{
    const std::string text = std::string(root) + "\ndn: o=x\ndescription: " + std::string(300, 'd') + "\n\n";
    const auto store = loaded(text);
    const int outcome = withFileSizeLimit(100, [&] {
        try {
            store->flush();
            if (onDisk().size() != 100) {
                return 1;
            }
            rlimit limit{};
            getrlimit(RLIMIT_FSIZE, &limit);
            limit.rlim_cur = limit.rlim_max;
            setrlimit(RLIMIT_FSIZE, &limit);
            store->flush();
            return 0;
        } catch (...) {
            return 3;
        }
    });
    EXPECT_EQ(outcome, 0);
    EXPECT_EQ(onDisk(), text);
}
