// The check of a text: each kind of finding, and that it agrees with a load.
#include "file_check.h"

#include "LDIF_Exception.h"
#include "LDIF_File.h"
#include "LDIF_Line.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include "support/api_test.h"
#include "support/findings.h"
#include "support/locale_guard.h"
#include "support/mapping_watch.h"
#include "support/temporary_folder.h"

using veltor::detail::checkText;
using veltor::detail::TreeWalk;
using namespace veltor::test;
using namespace std::string_literals;

namespace {

Findings check(std::string_view text)
{
    Findings findings;
    EXPECT_TRUE(checkText(text, Findings::take, &findings));
    return findings;
}

class FileCheck : public ::testing::Test
{
private:
    LocaleGuard locale_{"C.UTF-8"};
};

// ---- One row for each thing that is found ----

struct Row
{
    const char* name;
    std::string text;
    std::string expected; // Findings::summary()
};

constexpr char top[] = "dn: cn=a\nobjectclass: top\n"; // lines 1 and 2

const Row rows[] = {
    {"nothing at all", "", ""},
    {"comments alone", "# a\n\n# b\n", ""},
    {"root alone", "version: 1\ncharset: UTF-8\n", ""},
    {"a plain entry", std::string(top) + "zor-slapdPort: 389\n", ""},
    {"the order of root and comments", "# a\nversion: 1\n\ncharset: UTF-8\n\n# b\n" + std::string(top), ""},
    // What ends a load.
    {"an attribute before the first entry", "foo: bar\n" + std::string(top), "1 attribute-before-first-entry"},
    {"several together are told once", "foo: bar\nbar: foo\n\nbaz: x\n" + std::string(top),
     "1 attribute-before-first-entry, 4 attribute-before-first-entry"},
    {"a line before the first entry", "foo\n" + std::string(top), "1 line-outside-entry"},
    {"a second version", "version: 1\nVersion: 1\n" + std::string(top), "2 second-root-attribute"},
    {"a second charset", "charset: UTF-8\ncharset: UTF-8\n", "2 second-root-attribute"},
    {"another version", "version: 2\n" + std::string(top), "1 bad-root-value"},
    {"each of the root's own is told", "foo: x\nversion: 2\nfoo: x\ncharset: a\ncharset: b\n" + std::string(top),
     "1 attribute-before-first-entry, 2 bad-root-value, 5 second-root-attribute"},
    {"a blank line inside an entry", std::string(top) + "\n# c\nzor-slapdPort: 1\nzor-slapdTimeLimit: x\n",
     "5 attribute-outside-entry, 6 rejected-line"},
    {"version behind an entry", std::string(top) + "\nversion: 1\n", "4 attribute-outside-entry"},
    {"the line of a failure is the last of its lines", std::string(top) + "\nfoo: b\n ar\n",
     "5 attribute-outside-entry"},
    {"a line outside an entry", std::string(top) + "\nfoo\n", "4 line-outside-entry"},
    {"a bad DN", "dn: cn\nobjectclass: top\nfoo\n\n" + std::string(top), "1 bad-dn, 3 rejected-line"},
    {"a bad DN on two lines", "dn: cn\n =a+\nobjectclass: top\n", "2 bad-dn"},
    {"no DN", "dnfoo\n" + std::string(top), "1 line-taken-for-dn"},
    {"the label without a colon", std::string(top) + "dn\n", "3 line-taken-for-dn"},
    {"a DN without a colon", "dn=x\nobjectclass: top\n", "1 dn-line-without-colon"},
    // A DN value that can be read once, but not twice.
    {"an entry that can't be merged",
     "dn: cn=a\nobjectclass: top\nzor-slapdSuffix: o=x\n\ndn: cn=a\nobjectclass: top\nzor-slapdSuffix: cn=\\28\n\n"
     "dn: cn=b\nobjectclass: top\n",
     "5 duplicate-entry, 7 unstable-value, 8 unmergeable-entry"},
    // What a load takes otherwise.
    {"no colon", std::string(top) + "foo\n", "3 rejected-line"},
    {"nothing before the colon", std::string(top) + ": x\n", "3 rejected-line"},
    {"not an integer", std::string(top) + "zor-slapdPort: ldap\n", "3 rejected-line"},
    {"out of range", std::string(top) + "zor-slapdPort: 70000\n", "3 rejected-line"},
    {"no value of the list", std::string(top) + "zor-slapdReadOnly: yes\n", "3 rejected-line"},
    {"too long", std::string(top) + "zor-slapdDbName: 123456789\n", "3 rejected-line"},
    {"bits that are not there", std::string(top) + "zor-slapdSslCipherSpecs: 1\n", "3 rejected-line"},
    {"not a DN", std::string(top) + "zor-slapdSuffix: x\n", "3 rejected-line"},
    {"kept before", std::string(top) + "zor-slapdInvalidLine: foo: x\nZOR-SLAPDINVALIDLINE: y\n",
     "3 kept-invalid-line, 4 kept-invalid-line"},
    {"a value lost at the end", std::string(top) + "foo: x", "3 lost-last-value, 3 unknown-attribute"},
    {"an integer lost at the end", std::string(top) + "zor-slapdPort: 389", "3 lost-last-value, 3 rejected-line"},
    {"a continuation lost at the end", std::string(top) + "zor-slapdServerID: x\n y", "4 lost-last-value"},
    {"a DN lost at the end", "dn: cn=a", "1 lost-last-value, 1 empty-dn"},
    {"a comment at the end", std::string(top) + "# c", "3 unterminated-last-line"},
    {"an empty value at the end", std::string(top) + "zor-slapdServerID:", "3 unterminated-last-line"},
    {"blanks at the end", std::string(top) + "\n  ", "4 unterminated-last-line"},
    {"blanks behind a value at the end", std::string(top) + "  ", "3 lost-last-value"},
    {"a DN twice", std::string(top) + "\ndn: CN=A\ncn: x\n", "4 duplicate-entry"},
    {"an empty DN", "dn:\ncn: x\n", "1 empty-dn"},
    {"two values where one may be", std::string(top) + "zor-slapdPort: 1\nzor-slapdPort: 2\nZOR-SLAPDPORT: 3\n",
     "4 second-value, 5 second-value"},
    {"one more value by merging", std::string(top) + "zor-slapdPort: 1\n\ndn: cn=a\nzor-slapdPort: 2\n",
     "5 duplicate-entry, 6 second-value"},
    {"one value twice", std::string(top) + "zor-slapdPort: 1\nzor-slapdPort: 01\n", "4 repeated-value"},
    {"an unknown name", std::string(top) + "foo: x\nFoo: y\n", "3 unknown-attribute"},
    {"no objectclass", "dn: cn=a\ncn: a\n", "1 no-objectclass"},
    {"an objectclass that comes with a merge", "dn: cn=a\ncn: a\n\n" + std::string(top), "4 duplicate-entry"},
    {"a carriage return", std::string(top) + "cn: a\rb\n", "3 carriage-return"},
    {"carriage returns at the ends", "dn: cn=a\r\nobjectclass: top\r\n", "1 carriage-return-at-line-end"},
    {"a NUL", std::string(top) + "cn: a\0b\n"s, "3 nul-byte"},
    {"a NUL in a continuation", std::string(top) + "cn: a\n b\0c\n"s, "4 nul-byte"},
    {"a NUL in a comment", std::string(top) + "# a\0b\n"s, "3 nul-byte"},
    {"two colons", std::string(top) + "cn:: YQ==\n", "3 double-colon"},
    {"two colons in a DN", "dn:: cn=a\nobjectclass: top\n", "1 double-colon"},
    {"parentheses in front", std::string(top) + "cn: (a\n", "3 stripped-parentheses"},
    {"parentheses behind", std::string(top) + "cn: a)\n", "3 stripped-parentheses"},
    {"parentheses inside", std::string(top) + "cn: a(b)c\n", ""},
    {"a name that begins with a blank", std::string(top) + "# c\n foo: x\n", "4 unstable-name, 4 unknown-attribute"},
    {"a value that begins on a continuation line", std::string(top) + "cn:\n  a\n", "3 unstable-value"},
    {"a DN value that changes", std::string(top) + "zor-slapdSuffix: cn=\\28a\n", "3 unstable-value"},
    {"a DN that changes", "dn: cn=\\28a\nobjectclass: top\n", "1 unstable-dn"},
    {"a DN that can't be written", "dn: cn=\nobjectclass: top\n", "1 unprintable-dn"},
    {"a clear password", std::string(top) + "zor-slapdAdminPW: x\n", "3 clear-password"},
    {"a clear password that is too long", std::string(top) + "zor-slapdAdminPW: " + std::string(47, 'x') + "\n",
     "3 clear-password, 3 rejected-line"},
    {"a clear password in a kept line", std::string(top) + "zor-slapdInvalidLine: zor-slapdAdminPW: x y\n",
     "3 clear-password, 3 kept-invalid-line"},
    {"a clear password in a comment", std::string(top) + "#zor-slapdAdminPW: secret\n", "3 password-in-comment"},
    {"a comment about a password", std::string(top) + "# zor-slapdAdminPW: to be changed\n", ""},
    {"a password that nobody encoded", std::string(top) + "zor-slapdAdminPW: >x<\n", "3 undecodable-password"},
    {"a parent that is missing", "dn: cn=a, o=x\nobjectclass: top\n\ndn: cn=b, o=x\nobjectclass: top\n",
     "1 missing-parent"},
    {"a parent that comes later", "dn: cn=a, o=x\nobjectclass: top\n\ndn: o=X\nobjectclass: top\n", ""},
};

TEST_F(FileCheck, FindsWhatIsWrong)
{
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Findings findings = check(row.text);
        EXPECT_EQ(findings.summary(), row.expected) << findings.dump();
    }
}

// ---- What is told about it ----

TEST_F(FileCheck, TellsWhereWhatAndWhy)
{
    const Findings findings =
        check("version: 1\n\n" + std::string(top) + "zor-slapdPort: 389\nzor-slapdPort:\n 70000\n");
    ASSERT_EQ(findings.all.size(), 1U) << findings.dump();
    const Finding& finding = findings.all.front();
    EXPECT_EQ(finding.kind, "rejected-line");
    EXPECT_EQ(finding.severity, 2);
    EXPECT_EQ(finding.line, 6) << "the first of its lines";
    EXPECT_EQ(finding.code, 1015);
    EXPECT_EQ(finding.dn, "cn=a");
    EXPECT_EQ(finding.attribute, "zor-slapdPort");
    EXPECT_EQ(finding.value, "70000");
    EXPECT_EQ(finding.message, "\"zor-slapdPort\" can't be \"70000\", because it is not a number from 1 to 65535: the "
                               "server does not use the line and keeps it as zor-slapdInvalidLine");
}

TEST_F(FileCheck, TellsWhyTheServerDoesNotStart)
{
    const Findings findings = check(std::string(top) + "\n# c\n\nzor-slapdTimeLimit: 5\n");
    ASSERT_EQ(findings.all.size(), 1U) << findings.dump();
    const Finding& finding = findings.all.front();
    EXPECT_EQ(finding.severity, 3);
    EXPECT_EQ(finding.line, 6);
    EXPECT_EQ(finding.code, 1007);
    EXPECT_EQ(finding.dn, "");
    EXPECT_EQ(finding.message, "the blank line 3 ends the entry above \"zor-slapdTimeLimit\", which stands in no entry "
                               "for that reason: the server does not start");
}

TEST_F(FileCheck, NamesBothLinesOfADuplicate)
{
    const Findings findings = check(std::string(top) + "\n\ndn: CN=a\n");
    ASSERT_EQ(findings.all.size(), 1U) << findings.dump();
    EXPECT_EQ(findings.all.front().line, 5);
    EXPECT_EQ(findings.all.front().code, 68);
    EXPECT_NE(findings.all.front().message.find(" line 1 "), std::string::npos) << findings.dump();
}

TEST_F(FileCheck, ProposesTheNearestKnownName)
{
    const struct
    {
        const char* written;
        const char* meant; // null: nothing is near
    } names[] = {
        {"zor-slapdPrt", "zor-slapdPort"},
        {"zor-slapdProt", "zor-slapdPort"},
        {"ZOR-SLAPDPOORT", "zor-slapdPort"},
        {"zorslapdPort", "zor-slapdPort"},
        {"zor-slapPort", "zor-slapdPort"},
        {"port", "zor-slapdPort"},
        {"auditBind", "zor-auditBind"},
        {"sizelimit", "zor-slapdSizeLimit"},
        {"objectclas", "objectclass"},
        {"zor-slapdSysLogLevle", "zor-slapdSysLogLevel"},
        {"x", nullptr},
        {"ou", nullptr},
        {"description", nullptr},
        {"zor-slapd", nullptr},
        {"zor-slapdSomethingElse", nullptr},
        {"averylongnamethatisnotnearanythingatallandhasmorethansixtyfourcharacters", nullptr},
    };
    for (const auto& name : names) {
        SCOPED_TRACE(name.written);
        const Findings findings = check(std::string(top) + name.written + ": 1\n");
        ASSERT_EQ(findings.summary(), "3 unknown-attribute") << findings.dump();
        const std::string& message = findings.all.front().message;
        const std::string question = "did you mean ";
        if (name.meant == nullptr) {
            EXPECT_EQ(message.find(question), std::string::npos) << message;
        } else {
            EXPECT_NE(message.find(question + name.meant + "?"), std::string::npos) << message;
        }
    }
}

TEST_F(FileCheck, EndsWhereTheCallbackSaysSo)
{
    std::string text;
    for (int entry = 0; entry < 5; ++entry) {
        text += "dn: cn=" + std::to_string(entry) + "\nfoo: x\nbar: x\n\n";
    }
    const std::size_t whole = check(text).all.size();
    ASSERT_EQ(whole, 15U);
    for (std::size_t most = 1; most < whole; ++most) {
        Findings findings(most);
        EXPECT_FALSE(checkText(text, Findings::take, &findings));
        EXPECT_EQ(findings.all.size(), most);
    }
}

TEST_F(FileCheck, WhatIsToldOfTheWholeTextIsLeftOutWhereTheCallbackEndedIt)
{
    const std::string text = "dn: cn=a\r\nobjectclass: top\r\nfoo: x\r\n";
    EXPECT_EQ(check(text).summary(), "3 unknown-attribute, 1 carriage-return-at-line-end");
    Findings findings(1);
    EXPECT_FALSE(checkText(text, Findings::take, &findings));
    EXPECT_EQ(findings.summary(), "3 unknown-attribute");
}

TEST_F(FileCheck, MessagesAreOneLineOfWhatPrints)
{
    const std::string values[] = {"\x1b[31m",     "a\tb",         "\x7f", "\xC2\x85",
                                  "\xE2\x80\xA8", "\xE2\x80\xAE", "a\"b", std::string(100000, 'x')};
    for (const std::string& value : values) {
        const Findings findings = check(std::string(top) + "zor-slapdPort: x" + value + "x\n");
        ASSERT_EQ(findings.summary(), "3 rejected-line");
        EXPECT_EQ(findings.all.front().value, "x" + value + "x");
        const std::string& message = findings.all.front().message;
        EXPECT_LT(message.size(), 400U);
        EXPECT_TRUE(std::none_of(message.begin(), message.end(), [](char character) {
            return static_cast<unsigned char>(character) < ' ' || character == '\x7f';
        })) << message;
        for (const char* const unprintable : {"\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xAE"}) {
            EXPECT_EQ(message.find(unprintable), std::string::npos);
        }
    }
    EXPECT_NE(check(std::string(top) + "zor-slapdPort: \x1b!\n").all.front().message.find("\\x1b!"), std::string::npos);
    EXPECT_NE(check(std::string(top) + "zor-slapdPort: gr\xC3\xBC\xC3\x9F\n").all.front().message.find("gr\xC3\xBC"),
              std::string::npos)
        << "what prints is shown";
}

// ---- Secrets ----

TEST_F(FileCheck, TellsNoSecret)
{
    const char* const lines[] = {
        "zor-slapdAdminPW: hush",
        "zor-slapdAdminPW:: hush",
        "zor-slapdAdminPW: (hush)",
        "zor-slapdAdminPW: >hush<",
        "zor-slapdAdminPW: hush\nzor-slapdAdminPW: hushhush",
        "zor-slapdAdminPW: hush\nzor-slapdAdminPW: hush",
        "zor-slapdAdminPW: hush-and-hush-and-hush-and-hush-and-hush-and-hush-and-hush",
        "zor-slapdAdminPW hush",
        ": zor-slapdAdminPW hush",
        "zor-slapdAdminPW hush\n and hush: x",
        "zor-slapdPort: zor-slapdAdminPW hush",
        "zor-slapdAdminPW hush: x",
        "zor-slapdAdmnPW: hush",
        "zor-slapdLdapCrlPasword: hush",
        "zor-slapdStenv: hush",
        "zor-slapdSetenv: hush\nzor-slapdSetenv: hush",
        "zor-slapdSetenv:: hush",
        "zor-slapdSetenv hush",
        "my-password: hush",
        "bindpw: hush",
        "zor-slapdInvalidLine: zor-slapdAdminPW: hush",
        "zor-slapdInvalidLine: zor-slapdAdminPW hush",
        "zor-slapdPort: 389\n zor-slapdAdminPW: hush",
        "zor-slapdErrorLog: /log\n zor-slapdAdminPW: hush\nzor-slapdErrorLog: /log",
        "#zor-slapdAdminPW: hush",
        "# zor-slapdAdminPW: hush\r",
        "# zor-slapdAdminPW: a\rhush",
        "cn:\n  zor-slapdAdminPW: hush",
        "dnpw hush",
        "dn=zor-slapdAdminPW hush",
    };
    for (const char* const line : lines) {
        // What became part of a DN is known by its full name alone.
        const bool isKnown = std::string(line).find("zor-slapdAdminPW") != std::string::npos;
        for (const std::string& text :
             {std::string(top) + line + "\n", std::string(top) + line, line + ("\n" + std::string(top)),
              std::string(top) + "\n" + line + "\n",
              "dn: cn=a\n " + (isKnown ? line : std::string("b")) + "\nobjectclass: top\nobjectclass: top\n"}) {
            const Findings findings = check(text);
            EXPECT_EQ(findings.dump().find("hush"), std::string::npos) << text << "\n" << findings.dump();
        }
    }
}

TEST_F(FileCheck, ValuesOfSecretsAreNull)
{
    const struct
    {
        const char* text;
        const char* value;
    } lines[] = {
        {"zor-slapdAdminPW: x", "(null)"},
        {"zor-slapdAdmnPW: x", "(null)"},
        {"zor-slapdInvalidLine: pw: x", "(null)"},
        {"my pw x", "(null)"},
        {"zor-slapdPwEncryption: x", "(null)"},
        {"zor-slapdInvalidLine: port: x", "port: x"},
        {"my port x", "my port x"},
        {"foo: x", "x"},
        {"zor-slapdPort: x", "x"},
    };
    for (const auto& line : lines) {
        const Findings findings = check(std::string(top) + line.text + "\n");
        ASSERT_EQ(findings.all.size(), 1U) << line.text << "\n" << findings.dump();
        EXPECT_EQ(findings.all.front().value, line.value) << findings.dump();
    }
}

// ---- The list of kinds ----

TEST_F(FileCheck, TheHeaderListsEveryKindWithItsSeverity)
{
    std::ifstream header(VELTOR_TEST_DATA "/../../include/veltor/cfg_admin.h");
    ASSERT_TRUE(header.is_open());
    std::set<std::pair<std::string, int>> listed;
    int severity = 0;
    for (std::string line; std::getline(header, line) && !(severity != 0 && line == " */");) {
        const std::string heading = " * Severity ";
        if (line.rfind(heading, 0) == 0) {
            severity = line[heading.size()] - '0';
        } else if (severity != 0 && line.rfind(" *   ", 0) == 0 && line[5] != ' ') {
            listed.emplace(line.substr(5, line.find(' ', 5) - 5), severity);
        }
    }
    std::set<std::pair<std::string, int>> known;
    for (const auto* const kind : veltor::detail::finding::all) {
        EXPECT_TRUE(known.emplace(kind->word, kind->severity).second) << kind->word;
    }
    EXPECT_EQ(listed, known);
}

TEST_F(FileCheck, EveryKindOfALineIsFoundByARow)
{
    std::set<std::string> found = {"unreadable-text", "load-failure"}; // tests of their own
    for (const Row& row : rows) {
        for (const Finding& finding : check(row.text).all) {
            found.insert(finding.kind);
        }
    }
    for (const auto* const kind : veltor::detail::finding::all) {
        const std::string word = kind->word;
        const bool isOfFile = word.ends_with("-file") || word.ends_with("-folder");
        EXPECT_EQ(found.count(word), isOfFile ? 0U : 1U) << word;
    }
}

// ---- Text that can't be read ----

TEST_F(FileCheck, TellsOfEveryLineThatTheLocaleCannotRepresent)
{
    const std::string text = "# \xFF\n" + std::string(top) +
                             "cn: \xC3\x28\nfoo: x\n\xFF\n and so on\nzor-slapdPort: x\n\n"
                             "dn: cn=\xFF\nobjectclass: top\n\n" +
                             std::string(top) + "cn: x\n \xFF\n";
    const Findings findings = check(text);
    EXPECT_EQ(findings.summary(),
              "1 unreadable-text, 4 unreadable-text, 5 unknown-attribute, 6 unreadable-text, 8 rejected-line, "
              "10 unreadable-text, 13 duplicate-entry, 16 unreadable-text")
        << findings.dump();
    EXPECT_EQ(findings.all.front().code, 162);
    EXPECT_EQ(findings.all.front().severity, 3);
}

TEST_F(FileCheck, OneLocaleReadsWhatAnotherDoesNot)
{
    const std::string text = std::string(top) + "cn: gr\xC3\xBCn\n";
    EXPECT_EQ(check(text).summary(), "");
    const LocaleGuard guard("C");
    EXPECT_EQ(check(text).summary(), "3 unreadable-text");
}

// ---- The check and the load ----

struct Load
{
    int line = 0; // of the failure; 0: none
    int code = 0;
    std::set<std::string> kept; // the values of zor-slapdInvalidLine in memory
};

/// What a load makes of a text.
class Loading
{
public:
    Load of(const std::string& text) const
    {
        const std::string path = folder_.write("conf", "");
        LDIF_File store(path, "");
        folder_.write("conf", text);
        shiftModificationTime(path, 10);
        Load load;
        try {
            store.refresh();
        } catch (const LDIF_Exception& failure) {
            // Without a line it is the write that follows the load that failed.
            load.line = failure.configLine;
            load.code = load.line == 0 ? 0 : failure.extErr != 0 ? failure.extErr : failure.ldapErr;
        }
        for (TreeWalk walk(store.root); walk.current() != nullptr; walk.next()) {
            for (const LDIF_Attribute& attribute : std::as_const(walk.current()->attributes)) {
                if (attribute.name == "zor-slapdInvalidLine") {
                    for (const LDIF_Value& value : attribute.values) {
                        load.kept.insert(value.str());
                    }
                }
            }
        }
        return load;
    }

private:
    TemporaryFolder folder_;
};

/// The values of zor-slapdInvalidLine that a load has, by what a check tells of the lines up to one.
std::set<std::string> toldAsKept(const std::string& text, const Findings& findings, int upTo)
{
    std::set<int> rejected;
    std::set<int> kept;
    for (const Finding& finding : findings.all) {
        if (upTo != 0 && finding.line > upTo) {
            continue;
        }
        if (finding.kind == "rejected-line") {
            rejected.insert(finding.line);
        } else if (finding.kind == "kept-invalid-line") {
            kept.insert(finding.line);
        }
    }
    std::set<std::string> values;
    std::istringstream stream(text);
    LDIF_Line line;
    int number = 0;
    try {
        while (number = line.next(stream, number), line.type != LDIF_Line::endOfFile) {
            if (rejected.count(line.lineNumber) != 0) {
                line.changeToInvalidAttr();
                values.insert(line.value);
            } else if (kept.count(line.lineNumber) != 0) {
                values.insert(line.value);
            }
        }
    } catch (const LDIF_Exception&) {
        // A load ends here, too.
    }
    return values;
}

void expectAgreement(const std::string& text, const Loading& loading)
{
    RC_LOG() << "text:\n" << text << "\n";
    Findings findings;
    RC_ASSERT(checkText(text, Findings::take, &findings));
    RC_LOG() << findings.dump();
    const Load load = loading.of(text);
    const auto first = std::find_if(findings.all.begin(), findings.all.end(),
                                    [](const Finding& finding) { return finding.severity == 3; });
    RC_ASSERT((first != findings.all.end()) == (load.line != 0));
    const bool fails = load.line != 0;
    if (fails) {
        RC_ASSERT(first->line == load.line);
        RC_ASSERT(first->code == load.code);
    }
    const std::set<std::string> told = toldAsKept(text, findings, load.line);
    const bool isUnmergeable = std::any_of(findings.all.begin(), findings.all.end(),
                                           [](const Finding& finding) { return finding.kind == "unmergeable-entry"; });
    if (fails && isUnmergeable) {
        // Of an entry that could not be merged, be it the failure or what stood open at another, not all is in memory.
        RC_ASSERT(std::includes(told.begin(), told.end(), load.kept.begin(), load.kept.end()));
    } else {
        RC_ASSERT(told == load.kept);
    }
    for (const Finding& finding : findings.all) {
        const auto known =
            std::find_if(std::begin(veltor::detail::finding::all), std::end(veltor::detail::finding::all),
                         [&](const auto* kind) { return kind->word == finding.kind; });
        RC_ASSERT(known != std::end(veltor::detail::finding::all));
        RC_ASSERT((*known)->severity == finding.severity);
        RC_ASSERT(finding.line > 0);
        RC_ASSERT(finding.line <= 1 + std::count(text.begin(), text.end(), '\n'));
        RC_ASSERT(finding.code > 0);
        RC_ASSERT(!finding.message.empty());
        RC_ASSERT(finding.message.find('\n') == std::string::npos);
        RC_ASSERT(finding.message.find("hush") == std::string::npos);
    }
}

rc::Gen<std::string> oddLines()
{
    using namespace rc;
    static const std::vector<std::string> parts = {"",
                                                   "",
                                                   "",
                                                   "version: 1",
                                                   "version: 2",
                                                   "charset: UTF-8",
                                                   "charset: (",
                                                   "CHARSET:",
                                                   "# c",
                                                   "#",
                                                   " ",
                                                   "  ",
                                                   "\t",
                                                   "dn: cn=a",
                                                   "dn: cn=a",
                                                   "dn: CN=A",
                                                   "dn: cn=b, cn=a",
                                                   "dn: cn=c, cn=b; cn=a",
                                                   "DN:o=x",
                                                   "dn:",
                                                   "dn: ()",
                                                   "dn: ,",
                                                   "dn: cn",
                                                   "dn: cn=",
                                                   "dn: cn=\\28",
                                                   "dn: cn=\\zz",
                                                   "dn: cn=\"a",
                                                   "dn: cn=a+cn=b",
                                                   "dn: 1.2=#61",
                                                   "dn",
                                                   "dnfoo",
                                                   "dn=x",
                                                   "dn=x, cn=a",
                                                   "dN: cn=\xC3\xBC",
                                                   "dn:: cn=a",
                                                   "dn : x",
                                                   "objectclass: top",
                                                   "objectclass: top",
                                                   "foo",
                                                   ":",
                                                   ":: a",
                                                   "foo:",
                                                   "foo: bar",
                                                   "foo: b\rar",
                                                   "FOO:bar",
                                                   "zor-slapdPort: 389",
                                                   "zor-slapdPort: 0389",
                                                   "zor-slapdPort: x",
                                                   "zor-slapdPort:",
                                                   "zor-slapdReadOnly: TRUE",
                                                   "zor-slapdReadOnly: yes",
                                                   "zor-slapdSuffix: o=x",
                                                   "zor-slapdSuffix: cn=\\28",
                                                   "zor-slapdSuffix: cn=\\28a",
                                                   "zor-slapdSuffix: cn=",
                                                   "zor-slapdSuffix: ,",
                                                   "zor-slapdSuffix:",
                                                   "zor-slapdAdminDN: cn=\\28",
                                                   "zor-slapdDbName: 123456789",
                                                   "zor-slapdAdminPW: hush",
                                                   "zor-slapdAdminPW: hush2",
                                                   "zor-slapdAdminPW: >x<",
                                                   "zor-slapdAdminPW: >y<",
                                                   "zor-slapdAdminPW:",
                                                   "zor-slapdMasterPW: >z<",
                                                   "zor-slapdSslCipherSpecs: 1",
                                                   "zor-slapdSslCipherSpecs: 256",
                                                   "cn: (a)",
                                                   "cn: ( )",
                                                   "cn: \xC3\xBC",
                                                   "cn: \xE2\x80\x83",
                                                   "\xE2\x80\x83",
                                                   "\xE2\x80\x83x: y",
                                                   "cn: \xFF",
                                                   "\xFF",
                                                   "# \xFF",
                                                   "zor-slapdInvalidLine: x",
                                                   "zor-slapdinvalidline: y: ",
                                                   "zor-slapdSetenv: hush",
                                                   " b",
                                                   " (b",
                                                   "  b)",
                                                   " :",
                                                   " \xC3\xBC",
                                                   " \xFF",
                                                   "\t=x",
                                                   "cn:\n  a",
                                                   std::string("cn: a\0b", 7),
                                                   std::string("\0", 1),
                                                   std::string("dn: cn=a\0, b", 12),
                                                   std::string(" \0b", 3),
                                                   "zor-slapdPort: 1\n zor-slapdAdminPW: hush"};
    static const std::vector<std::string> ends = {"\n", "\n", "\n", "\n", "\n", "\n", "\n", "\n", "\n\n", "\r\n", ""};
    const auto line =
        gen::map(gen::pair(gen::elementOf(parts), gen::elementOf(ends)),
                 [](const std::pair<std::string, std::string>& both) { return both.first + both.second; });
    return gen::map(gen::container<std::vector<std::string>>(line), [](const std::vector<std::string>& lines) {
        std::string text;
        for (const std::string& each : lines) {
            text += each;
        }
        return text;
    });
}

/// Runs a property on odd files, in both locales.
template <class Property>
void forOddFiles(const char* name, const Property& property)
{
    for (const char* const locale : {"C.UTF-8", "C"}) {
        const LocaleGuard guard(locale);
        EXPECT_TRUE(rc::check(std::string(name) + " (" + locale + ")", [&] { property(*oddLines()); }));
    }
}

TEST_F(FileCheck, AgreesWithALoadOfAnOddFile)
{
    const Loading loading;
    forOddFiles("the first error is where a load fails, and what is told as rejected is what it keeps",
                [&](const std::string& text) { expectAgreement(text, loading); });
}

TEST_F(FileCheck, AgreesWithALoadOfAnEntryOfManyLines)
{
    const Loading loading;
    forOddFiles("the same inside entries", [&](const std::string& text) {
        std::string whole = "dn: cn=a\n" + text + "\ndn: cn=a\n" + text + "\ndn:\n" + *oddLines();
        expectAgreement(whole, loading);
    });
}

TEST_F(FileCheck, AgreesWithALoadOfAnyBytes)
{
    const Loading loading;
    EXPECT_TRUE(rc::check("the same for bytes", [&] {
        const auto byte = rc::gen::weightedOneOf<char>(
            {{6, rc::gen::elementOf(std::string("dn:cn=a,\n\n\n #()+;\\\"<>:zor"))}, {1, rc::gen::arbitrary<char>()}});
        expectAgreement(*rc::gen::container<std::string>(byte), loading);
    }));
}

TEST_F(FileCheck, AgreesWithALoadOfEveryRow)
{
    const Loading loading;
    for (const Row& row : rows) {
        const Load load = loading.of(row.text);
        const Findings findings = check(row.text);
        const auto first = std::find_if(findings.all.begin(), findings.all.end(),
                                        [](const Finding& finding) { return finding.severity == 3; });
        EXPECT_EQ(first != findings.all.end(), load.line != 0) << row.name << "\n" << findings.dump();
        if (first != findings.all.end()) {
            EXPECT_EQ(first->line, load.line) << row.name;
            EXPECT_EQ(first->code, load.code) << row.name;
        }
    }
}

// ---- Large texts ----

template <class Work>
void expectQuick(const char* name, Work&& work)
{
    // Far above what a pass takes, also with sanitizers, and far below what a pass for each line would take.
    constexpr auto most = std::chrono::seconds(60);
    const auto start = std::chrono::steady_clock::now();
    work();
    EXPECT_LT(std::chrono::steady_clock::now() - start, most) << name;
}

// Under the address sanitizer, where memory comes piece by piece, and without optimisation a tenth has to do.
#ifdef __OPTIMIZE__
constexpr bool optimized = true;
#else
constexpr bool optimized = false;
#endif
constexpr int many = piecewise || !optimized ? 10000 : 100000;
constexpr std::size_t manyBytes = 50 * many;

std::string numbered(const char* before, int count, const char* behind)
{
    std::string text;
    for (int number = 0; number < count; ++number) {
        text += before + std::to_string(number) + behind;
    }
    return text;
}

TEST_F(FileCheck, TakesLargeTextsInOnePass)
{
    const struct
    {
        const char* name;
        std::string text;
        std::size_t findings;
    } texts[] = {
        {"entries", "dn: o=x\nobjectclass: top\n\n" + numbered("dn: cn=", many, ", o=x\nobjectclass: top\n\n"), 0},
        {"entries without a parent", numbered("dn: cn=a, cn=", many, ", o=x\nobjectclass: top\n\n"), many},
        {"entries of one DN", numbered("dn: o=x\nobjectclass: top\nzor", many, ": x\n\n"), 2 * many - 1},
        {"names", top + numbered("zorslapd", many, ": x\n"), many},
        {"values", top + numbered("zor-slapdCachedAttribute: ", many, "\n"), 0},
        {"values of one value", top + numbered("zor-slapdPort: 1", many, "\n"), many - 1},
        {"lines that are no lines", top + numbered("x", many, "\n"), many},
        {"continuation lines", std::string(top) + "cn: x\n" + numbered(" ", many, "\n"), 0},
        {"blank lines and strays", std::string(top) + numbered("\nx", many, ": y\n"), many},
        {"one line", std::string(top) + "cn: " + std::string(manyBytes, 'x') + "\n", 0},
        {"one bad line", std::string(top) + "zor-slapdPort: " + std::string(manyBytes, '(') + "\n", 2},
        {"one line without a colon", std::string(manyBytes, 'x'), 2},
        {"a DN of many levels", "dn: " + numbered("cn=", many, ",") + "cn=x\nobjectclass: top\n", 1},
        {"a DN of many pairs", "dn: " + numbered("cn=", many, "+") + "cn=x\nobjectclass: top\n", 0},
        {"a DN that is bad far behind", "dn: " + numbered("cn=", many, ",") + "x\nobjectclass: top\n", 1},
        {"NULs", std::string(manyBytes, '\0'), 2},
        {"carriage returns", std::string(manyBytes, '\r'), 2},
        {"colons", std::string(top) + std::string(manyBytes, ':') + "\n", 1},
    };
    for (const auto& each : texts) {
        expectQuick(each.name, [&] {
            const Findings findings = check(each.text);
            EXPECT_EQ(findings.all.size(), each.findings) << each.name << " " << findings.summary().substr(0, 200);
        });
    }
}

TEST_F(FileCheck, EntriesMayNestDeeply)
{
    std::string text;
    std::string dn;
    for (int level = 0; level < 500; ++level) {
        dn = "cn=" + std::to_string(level) + (dn.empty() ? "" : "," + dn);
        text += "dn: " + dn + "\nobjectclass: top\n\n";
    }
    expectQuick("levels", [&] { EXPECT_EQ(check(text).summary(), ""); });
}

} // namespace
