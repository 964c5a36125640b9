// The exception record: what its constructors set and copy, its text forms, and the helpers that pass it upward.
#include "LDIF_Exception.h"

#include "support/locale_guard.h"

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <gtest/gtest.h>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using veltor::test::LocaleGuard;

static_assert(std::is_base_of_v<std::exception, LDIF_Exception>);
static_assert(!std::is_final_v<LDIF_Exception>);
static_assert(std::has_virtual_destructor_v<LDIF_Exception>);
static_assert(std::is_copy_constructible_v<LDIF_Exception> && std::is_copy_assignable_v<LDIF_Exception>);
static_assert(std::is_same_v<decltype(LDIF_Exception::srcLine), std::int32_t>);
static_assert(std::is_same_v<decltype(LDIF_Exception::ldapErr), std::int32_t>);
static_assert(std::is_same_v<decltype(LDIF_Exception::extErr), std::int32_t>);
static_assert(std::is_same_v<decltype(LDIF_Exception::sysErrno), std::int32_t>);
static_assert(std::is_same_v<decltype(LDIF_Exception::errnoHidden), std::int32_t>);
static_assert(std::is_same_v<decltype(LDIF_Exception::configLine), std::int32_t>);
static_assert(std::is_same_v<decltype(LDIF_Exception::attrType), const _AttrType*>);

/// A type record without constraints; tests set the ones they are about.
_AttrType plainType()
{
    _AttrType type{};
    type.name = "zor-test";
    return type;
}

const _AttrType someType = plainType();

LDIF_Exception filledIn()
{
    LDIF_Exception exception("/src/lower.cpp", 17, 21, 1016, "bad number");
    exception.sysErrno = ENOENT;
    exception.errnoHidden = 1;
    exception.configFile = "/etc/some.conf";
    exception.configLine = 12;
    exception.entryDn = "cn=Front End";
    exception.attribute = "zor-slapdPort";
    exception.value = "abc";
    exception.attrType = &someType;
    return exception;
}

/// Everything but the source position and the chain.
void expectSameFacts(const LDIF_Exception& actual, const LDIF_Exception& expected)
{
    EXPECT_EQ(actual.msg, expected.msg);
    EXPECT_EQ(actual.ldapErr, expected.ldapErr);
    EXPECT_EQ(actual.extErr, expected.extErr);
    EXPECT_EQ(actual.sysErrno, expected.sysErrno);
    EXPECT_EQ(actual.errnoHidden, expected.errnoHidden);
    EXPECT_EQ(actual.configFile, expected.configFile);
    EXPECT_EQ(actual.configLine, expected.configLine);
    EXPECT_EQ(actual.entryDn, expected.entryDn);
    EXPECT_EQ(actual.attribute, expected.attribute);
    EXPECT_EQ(actual.value, expected.value);
    EXPECT_EQ(actual.attrType, expected.attrType);
}

/// The texts of the system are compared in the language that they have in the C locale, and both process-wide
/// flags begin and end each test as they begin a process.
class LdifException : public testing::Test
{
protected:
    void TearDown() override
    {
        LDIF_Exception::showSource = false;
        LDIF_Exception::showStack = true;
    }

private:
    LocaleGuard locale_{"C"};
};

// ---- Flags and constructors ----

TEST_F(LdifException, AProcessBeginsWithoutSourcesAndWithTheStack)
{
    EXPECT_FALSE(LDIF_Exception::showSource);
    EXPECT_TRUE(LDIF_Exception::showStack);
}

TEST_F(LdifException, TheFlagsAffectExceptionsThatExistAlready)
{
    const LDIF_Exception inner("a.cpp", 1, 80, 0, "in");
    const LDIF_Exception outer("b.cpp", 2, inner);
    ASSERT_EQ(outer.str(), "in\nin\n");
    LDIF_Exception::showSource = true;
    LDIF_Exception::showStack = false;
    EXPECT_EQ(outer.str(), "[b.cpp:2] in\n");
}

TEST_F(LdifException, TheFirstConstructorSetsFiveFieldsAndLeavesTheContextEmpty)
{
    const LDIF_Exception exception("dir/file.cpp", 42, 34, 1011, "Missing");
    EXPECT_EQ(exception.srcFile, "dir/file.cpp");
    EXPECT_EQ(exception.srcLine, 42);
    EXPECT_EQ(exception.ldapErr, 34);
    EXPECT_EQ(exception.extErr, 1011);
    EXPECT_EQ(exception.msg, "Missing");
    EXPECT_EQ(exception.sysErrno, 0);
    EXPECT_EQ(exception.errnoHidden, 0);
    EXPECT_EQ(exception.configFile, "");
    EXPECT_EQ(exception.configLine, 0);
    EXPECT_EQ(exception.entryDn, "");
    EXPECT_EQ(exception.attribute, "");
    EXPECT_EQ(exception.value, "");
    EXPECT_EQ(exception.attrType, nullptr);
    EXPECT_EQ(exception.nested.get(), nullptr);
}

TEST_F(LdifException, ItKeepsItsOwnCopyOfTheTexts)
{
    std::string file = "before.cpp";
    std::string message = "before";
    const LDIF_Exception exception(file.c_str(), 1, 80, 0, message.c_str());
    file.assign("XXXXXXXXXX");
    message.assign("XXXXXX");
    EXPECT_EQ(exception.srcFile, "before.cpp");
    EXPECT_EQ(exception.msg, "before");
}

TEST_F(LdifException, WrappingTakesOverEveryFactUnderANewSourcePosition)
{
    const LDIF_Exception inner = filledIn();
    const LDIF_Exception outer("/src/upper.cpp", 99, inner);
    EXPECT_EQ(outer.srcFile, "/src/upper.cpp");
    EXPECT_EQ(outer.srcLine, 99);
    expectSameFacts(outer, inner);
    ASSERT_NE(outer.nested.get(), nullptr);
    EXPECT_EQ(outer.nested->srcFile, "/src/lower.cpp");
    EXPECT_EQ(outer.nested->srcLine, 17);
    expectSameFacts(*outer.nested, inner);
    EXPECT_EQ(outer.nested->nested.get(), nullptr);
}

TEST_F(LdifException, WrappingKeepsADeepCopy)
{
    LDIF_Exception inner = filledIn();
    const LDIF_Exception outer("upper.cpp", 1, inner);
    ASSERT_NE(outer.nested.get(), nullptr);
    EXPECT_NE(outer.nested.get(), &inner);
    inner.msg = "changed later";
    inner.value.clear();
    EXPECT_EQ(outer.nested->msg, "bad number");
    EXPECT_EQ(outer.nested->value, "abc");
}

TEST_F(LdifException, WrappingAWrappedOneKeepsEveryEarlierPosition)
{
    const LDIF_Exception first("first.cpp", 1, 21, 1016, "bad");
    const LDIF_Exception second("second.cpp", 2, first);
    const LDIF_Exception third("third.cpp", 3, second);
    ASSERT_NE(third.nested.get(), nullptr);
    ASSERT_NE(third.nested->nested.get(), nullptr);
    EXPECT_EQ(third.nested->srcFile, "second.cpp");
    EXPECT_EQ(third.nested->nested->srcFile, "first.cpp");
    EXPECT_EQ(third.nested->nested->nested.get(), nullptr);
    EXPECT_NE(third.nested->nested.get(), second.nested.get());
    EXPECT_EQ(third.ldapErr, 21);
    EXPECT_EQ(third.extErr, 1016);
}

TEST_F(LdifException, ACopyHasAChainOfItsOwn)
{
    const LDIF_Exception inner = filledIn();
    const LDIF_Exception middle("middle.cpp", 2, inner);
    LDIF_Exception original("outer.cpp", 3, middle);
    const LDIF_Exception copy(original);

    EXPECT_EQ(copy.srcFile, "outer.cpp");
    EXPECT_EQ(copy.srcLine, 3);
    expectSameFacts(copy, original);
    ASSERT_NE(copy.nested.get(), nullptr);
    ASSERT_NE(copy.nested->nested.get(), nullptr);
    EXPECT_NE(copy.nested.get(), original.nested.get());
    EXPECT_NE(copy.nested->nested.get(), original.nested->nested.get());
    EXPECT_EQ(copy.nested->srcFile, "middle.cpp");
    EXPECT_EQ(copy.nested->nested->srcFile, "/src/lower.cpp");

    original.nested->msg = "changed later";
    original.nested->nested->msg = "changed later";
    EXPECT_EQ(copy.nested->msg, "bad number");
    EXPECT_EQ(copy.nested->nested->msg, "bad number");
}

TEST_F(LdifException, ACopyOutlivesTheOriginal)
{
    auto* const original = new LDIF_Exception("outer.cpp", 3, filledIn());
    const LDIF_Exception copy(*original);
    delete original;
    ASSERT_NE(copy.nested.get(), nullptr);
    EXPECT_EQ(copy.nested->value, "abc");
}

TEST_F(LdifException, AssignmentCopiesTheChainAndReleasesTheOldOne)
{
    const LDIF_Exception source("source.cpp", 5, filledIn());
    LDIF_Exception target("target.cpp", 6, LDIF_Exception("old.cpp", 7, 80, 0, "old"));
    target = source;
    EXPECT_EQ(target.srcFile, "source.cpp");
    expectSameFacts(target, source);
    ASSERT_NE(target.nested.get(), nullptr);
    EXPECT_NE(target.nested.get(), source.nested.get());
    EXPECT_EQ(target.nested->srcFile, "/src/lower.cpp");

    const LDIF_Exception& same = target;
    target = same;
    ASSERT_NE(target.nested.get(), nullptr);
    EXPECT_EQ(target.nested->srcFile, "/src/lower.cpp");
}

TEST_F(LdifException, ALongChainIsCopiedLinkByLink)
{
    constexpr int links = 200;
    LDIF_Exception chain("link.cpp", 0, 80, 0, "m");
    for (int line = 1; line < links; ++line) {
        chain = LDIF_Exception("link.cpp", line, chain);
    }
    const LDIF_Exception copy(chain);
    int line = links - 1;
    for (const LDIF_Exception* link = &copy; link != nullptr; link = link->nested.get()) {
        EXPECT_EQ(link->srcLine, line);
        --line;
    }
    EXPECT_EQ(line, -1);
}

TEST_F(LdifException, TheSourcePositionMacroGivesTheBaseName)
{
    const LDIF_Exception exception(VELTOR_HERE, 80, 0, "");
    EXPECT_EQ(exception.srcFile, "LDIF_Exception_test.cpp");
    EXPECT_EQ(exception.srcLine, __LINE__ - 2);
}

// ---- The small text forms ----

TEST_F(LdifException, FileStrCutsAfterTheLastSeparatorOfEitherKind)
{
    struct Row
    {
        const char* name;
        const char* file;
        int line;
        const char* expected;
    };
    const std::vector<Row> rows = {
        {"no separator", "file.cpp", 1, "file.cpp:1"},
        {"slash", "/src/lib/file.cpp", 20, "file.cpp:20"},
        {"backslash", "c:\\src\\file.cpp", 300, "file.cpp:300"},
        {"a slash behind a backslash", "a\\b/file.cpp", 4, "file.cpp:4"},
        {"a backslash behind a slash", "a/b\\file.cpp", 5, "file.cpp:5"},
        {"nothing behind the separator", "folder/", 6, ":6"},
        {"a separator alone", "\\", 7, ":7"},
        {"line 0", "file.cpp", 0, "file.cpp:0"},
        {"negative line", "x/file.cpp", -3, "file.cpp:-3"},
        {"largest line", "file.cpp", INT_MAX, "file.cpp:2147483647"},
        {"smallest line", "file.cpp", INT_MIN, "file.cpp:-2147483648"},
        {"no file", "", 8, "file?"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(LDIF_Exception(row.file, row.line, 80, 0, "m").fileStr(), row.expected);
    }
}

TEST_F(LdifException, ErrStrIsTheNumberAlone)
{
    LDIF_Exception exception("f.cpp", 1, 80, 0, "m");
    EXPECT_EQ(exception.errStr(), "0");
    exception.sysErrno = 13;
    EXPECT_EQ(exception.errStr(), "13");
    exception.sysErrno = -7;
    EXPECT_EQ(exception.errStr(), "-7");
    exception.errnoHidden = 1;
    EXPECT_EQ(exception.errStr(), "-7");
}

TEST_F(LdifException, MsgStrIsTheMessage)
{
    EXPECT_EQ(LDIF_Exception("f.cpp", 1, 80, 0, "a message\nof two lines").msgStr(), "a message\nof two lines");
    EXPECT_EQ(LDIF_Exception("f.cpp", 1, 80, 0, "").msgStr(), "");
}

TEST_F(LdifException, WhatIsTheStandardBasesOwn)
{
    const LDIF_Exception exception("f.cpp", 1, 80, 0, "m");
    EXPECT_STREQ(exception.what(), std::exception().what());
}

// ---- The one-line form ----

TEST_F(LdifException, StrIsBuiltFromItsPartsInOrder)
{
    struct Row
    {
        const char* name;
        bool showSource;
        int sysErrno;
        const char* msg;
        const char* expected;
    };
    const std::vector<Row> rows = {
        {"a message alone", false, 0, "x", "x\n"},
        {"nothing to say", false, 0, "", ""},
        {"an errno", false, 2, "x", "2: x\n"},
        {"an errno without a message has no line feed", false, 2, "", "2: "},
        {"a source", true, 0, "x", "[file.cpp:9] x\n"},
        {"a source without a message has no line feed", true, 0, "", "[file.cpp:9] "},
        {"everything", true, 13, "x", "[file.cpp:9] 13: x\n"},
        {"a negative errno", false, -1, "x", "-1: x\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LDIF_Exception exception("src/file.cpp", 9, 80, 1000, row.msg);
        exception.sysErrno = row.sysErrno;
        LDIF_Exception::showSource = row.showSource;
        EXPECT_EQ(exception.str(), row.expected);
    }
}

TEST_F(LdifException, StrShowsAHiddenErrnoToo)
{
    LDIF_Exception exception("f.cpp", 1, 80, 0, "x");
    exception.sysErrno = 2;
    exception.errnoHidden = 1;
    EXPECT_EQ(exception.str(), "2: x\n");
}

TEST_F(LdifException, StrShowsNoContext)
{
    LDIF_Exception exception = filledIn();
    exception.sysErrno = 0;
    EXPECT_EQ(exception.str(), "bad number\n");
}

TEST_F(LdifException, StrAppendsTheChainUnlessTheStackIsHidden)
{
    const LDIF_Exception first("a/first.cpp", 1, 80, 0, "one");
    LDIF_Exception second("b/second.cpp", 2, first);
    second.msg = "two";
    LDIF_Exception third("c/third.cpp", 3, second);
    third.msg.clear();
    EXPECT_EQ(third.str(), "two\none\n");
    LDIF_Exception::showSource = true;
    EXPECT_EQ(third.str(), "[third.cpp:3] [second.cpp:2] two\n[first.cpp:1] one\n");
    LDIF_Exception::showStack = false;
    EXPECT_EQ(third.str(), "[third.cpp:3] ");
    EXPECT_EQ(second.str(), "[second.cpp:2] two\n");
}

TEST_F(LdifException, TheStreamOperatorWritesStrAndReturnsTheStream)
{
    LDIF_Exception exception("a.cpp", 1, LDIF_Exception("b.cpp", 2, 80, 0, "x"));
    exception.sysErrno = 5;
    std::ostringstream stream;
    std::ostream& result = stream << exception;
    EXPECT_EQ(&result, &stream);
    EXPECT_EQ(stream.str(), "5: x\nx\n");
    EXPECT_EQ(stream.str(), exception.str());
}

// ---- Derived types ----

class OtherWords : public LDIF_Exception
{
public:
    using LDIF_Exception::LDIF_Exception;
    std::string fileStr() const override { return "FILE"; }
    std::string errStr() const override { return "ERR"; }
    std::string msgStr() const override { return "MSG"; }
};

class OtherReport : public LDIF_Exception
{
public:
    using LDIF_Exception::LDIF_Exception;
    std::string str() const override { return "STR"; }
    std::string dump() const override { return "DUMP"; }
};

TEST_F(LdifException, StrGoesThroughTheVirtualSlotsOfItsParts)
{
    OtherWords exception("real.cpp", 1, 80, 0, "real");
    exception.sysErrno = 2;
    LDIF_Exception::showSource = true;
    const LDIF_Exception& base = exception;
    EXPECT_EQ(base.str(), "[FILE] ERR: MSG\n");
}

TEST_F(LdifException, TheFieldsDecideWhetherADerivedPartIsAskedAtAll)
{
    const OtherWords exception("real.cpp", 1, 80, 0, "");
    const LDIF_Exception& base = exception;
    EXPECT_EQ(base.str(), "");
}

TEST_F(LdifException, DumpDoesNotAskTheSlotsOfStr)
{
    OtherWords exception("real/real.cpp", 1, 51, 0, "real");
    exception.sysErrno = ENOENT;
    const LDIF_Exception& base = exception;
    EXPECT_EQ(base.dump(), "[real/real.cpp:1]\n"
                           "msg     real\n"
                           "errno 2: No such file or directory\n"
                           "ldapErr 51: Server is busy\n");
}

TEST_F(LdifException, TheStreamOperatorAndTheChainUseTheVirtualSlots)
{
    const OtherReport report("x.cpp", 1, 80, 0, "x");
    const LDIF_Exception& base = report;
    std::ostringstream stream;
    stream << base;
    EXPECT_EQ(stream.str(), "STR");

    LDIF_Exception outer("o.cpp", 2, 51, 0, "out");
    outer.nested = LDIF_Exception::Nested(new OtherReport("x.cpp", 1, 80, 0, "x"));
    EXPECT_EQ(outer.str(), "out\nSTR");
    EXPECT_EQ(outer.dump(), "[o.cpp:2]\nmsg     out\nldapErr 51: Server is busy\n\nDUMP");
}

TEST_F(LdifException, TheSlotsStandInTheOrderOfTheAbi)
{
    using Text = std::string (LDIF_Exception::*)() const;
    // The first word of a pointer to a virtual member function tells its place in the table.
    const auto place = [](auto function) {
        std::ptrdiff_t word = 0;
        std::memcpy(&word, &function, sizeof word);
        return word;
    };
    const std::ptrdiff_t what = place(&std::exception::what);
    const std::vector<std::pair<const char*, Text>> slots = {
        {"dump", &LDIF_Exception::dump},     {"str", &LDIF_Exception::str},       {"fileStr", &LDIF_Exception::fileStr},
        {"errStr", &LDIF_Exception::errStr}, {"msgStr", &LDIF_Exception::msgStr},
    };
    std::ptrdiff_t expected = what;
    for (const auto& [name, function] : slots) {
        SCOPED_TRACE(name);
        expected += static_cast<std::ptrdiff_t>(sizeof(void*));
        EXPECT_EQ(place(function), expected);
    }
}

// ---- The full report ----

constexpr char busy[] = "\nldapErr 51: Server is busy";

TEST_F(LdifException, DumpOfACompleteRecordLineByLine)
{
    static const char* const allowed[] = {"one", "two", "three", nullptr};
    _AttrType type = plainType();
    type.name = "zor-slapdPort";
    type.singleValued = true;
    type.min = 1;
    type.max = 65535;
    type.bitmask = 0x1F;
    type.enumValues = allowed;

    LDIF_Exception exception("/src/lib/file.cpp", 7, 21, 1015, "Integer value out of range");
    exception.sysErrno = ENOENT;
    exception.configFile = "/etc/some.conf";
    exception.configLine = 12;
    exception.entryDn = "cn=Front End";
    exception.attribute = "zor-slapdPort";
    exception.value = "0";
    exception.attrType = &type;
    EXPECT_EQ(exception.dump(), "[/src/lib/file.cpp:7]\n"
                                "msg     Integer value out of range\n"
                                "errno 2: No such file or directory\n"
                                "ldapErr 21: Invalid syntax\n"
                                "extErr 1015: Integer value is not within allowable range.\n"
                                "Line 12 of /etc/some.conf\n"
                                "entry dn: cn=Front End\n"
                                "attribute: zor-slapdPort\n"
                                "value: 0\n"
                                "Constraints for zor-slapdPort\n"
                                "  Single-valued\n"
                                "  min: 1\n"
                                "  max: 65535\n"
                                "  bit mask: 0x\n"
                                "  enumeration: { one, two, three }\n");
}

TEST_F(LdifException, DumpOfABareRecord)
{
    EXPECT_EQ(LDIF_Exception("f.cpp", 1, 51, 0, "m").dump(), "[f.cpp:1]\nmsg     m\nldapErr 51: Server is busy\n");
}

TEST_F(LdifException, DumpWithoutAMessageLeavesItsBracketOpen)
{
    EXPECT_EQ(LDIF_Exception("a/f.cpp", 31, 51, 0, "").dump(), "[a/f.cpp:31\nldapErr 51: Server is busy\n");
}

TEST_F(LdifException, DumpNamesTheSourceAsItWasGivenEvenWhenThatIsNothing)
{
    EXPECT_EQ(LDIF_Exception("", 4, 51, 0, "m").dump(), "[:4]\nmsg     m\nldapErr 51: Server is busy\n");
    EXPECT_EQ(LDIF_Exception("a\\b/c.cpp", -4, 51, 0, "m").dump(),
              "[a\\b/c.cpp:-4]\nmsg     m\nldapErr 51: Server is busy\n");
    LDIF_Exception::showSource = true;
    EXPECT_EQ(LDIF_Exception("a/c.cpp", 4, 51, 0, "m").dump(), "[a/c.cpp:4]\nmsg     m\nldapErr 51: Server is busy\n");
}

TEST_F(LdifException, DumpShowsTheErrnoUnlessThereIsNoneOrItIsHidden)
{
    struct Row
    {
        const char* name;
        int sysErrno;
        int errnoHidden;
        std::string expected;
    };
    const std::vector<Row> rows = {
        {"none", 0, 0, ""},
        {"none, and hidden", 0, 1, ""},
        {"one", EACCES, 0, "\nerrno 13: Permission denied"},
        {"a number that the system does not know", 99999, 0, "\nerrno 99999: " + std::string(std::strerror(99999))},
        {"a negative number", -1, 0, "\nerrno -1: " + std::string(std::strerror(-1))},
        {"hidden by 1", EACCES, 1, ""},
        {"hidden by any number but 0", EACCES, -1, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LDIF_Exception exception("f.cpp", 1, 51, 0, "m");
        exception.sysErrno = row.sysErrno;
        exception.errnoHidden = row.errnoHidden;
        EXPECT_EQ(exception.dump(), "[f.cpp:1]\nmsg     m" + row.expected + busy + "\n");
    }
}

TEST_F(LdifException, DumpAlwaysShowsTheLdapCode)
{
    struct Row
    {
        const char* name;
        int ldapErr;
        const char* expected;
    };
    const std::vector<Row> rows = {
        {"0", 0, "[f.cpp:1\nldapErr 0: Success\n"},
        {"a code of the client library's own, as this API numbers it", 89,
         "[f.cpp:1\nldapErr 89: Bad parameter to an ldap routine\n"},
        {"a code of the table", 1006, "[f.cpp:1\nldapErr 1006: Attribute may not have multiple values.\n"},
        {"a code that no table knows", 162, "[f.cpp:1\nldapErr 162: Unknown error\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(LDIF_Exception("f.cpp", 1, row.ldapErr, 0, "").dump(), row.expected);
    }
}

TEST_F(LdifException, DumpShowsTheLibraryCodeWhenItIsPositiveAndSaysMore)
{
    struct Row
    {
        const char* name;
        int extErr;
        const char* expected;
    };
    const std::vector<Row> rows = {
        {"0", 0, ""},
        {"negative", -9, ""},
        {"the LDAP code again", 51, ""},
        {"1", 1, "\nextErr 1: Operations error"},
        {"another LDAP code", 32, "\nextErr 32: No such object"},
        {"a library code", 1007, "\nextErr 1007: Attribute is not a member of object class."},
        {"the code without a text", 1029, "\nextErr 1029: Unknown error"},
        {"the code with two texts has the first", 1001, "\nextErr 1001: Configuration filename is not valid."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(LDIF_Exception("f.cpp", 1, 51, row.extErr, "m").dump(),
                  std::string("[f.cpp:1]\nmsg     m") + busy + row.expected + "\n");
    }
}

TEST_F(LdifException, DumpShowsEachPartOfTheContextOnlyWhenItIsKnown)
{
    struct Row
    {
        const char* name;
        const char* configFile;
        int configLine;
        const char* entryDn;
        const char* attribute;
        const char* value;
        const char* expected;
    };
    const std::vector<Row> rows = {
        {"nothing", "", 0, "", "", "", ""},
        {"file and line", "a.conf", 3, "", "", "", "\nLine 3 of a.conf"},
        {"file alone", "a.conf", 0, "", "", "", "\nConfig file: a.conf"},
        {"a negative line is a line", "a.conf", -1, "", "", "", "\nLine -1 of a.conf"},
        {"a line without a file is not shown", "", 3, "", "", "", ""},
        {"DN", "", 0, "cn=a", "", "", "\nentry dn: cn=a"},
        {"attribute", "", 0, "", "cn", "", "\nattribute: cn"},
        {"value", "", 0, "", "", "v", "\nvalue: v"},
        {"DN and value", "", 0, "cn=a", "", "v", "\nentry dn: cn=a\nvalue: v"},
        {"all", "a.conf", 1, "cn=a", "cn", "v", "\nLine 1 of a.conf\nentry dn: cn=a\nattribute: cn\nvalue: v"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LDIF_Exception exception("f.cpp", 1, 51, 0, "m");
        exception.configFile = row.configFile;
        exception.configLine = row.configLine;
        exception.entryDn = row.entryDn;
        exception.attribute = row.attribute;
        exception.value = row.value;
        EXPECT_EQ(exception.dump(), std::string("[f.cpp:1]\nmsg     m") + busy + row.expected + "\n");
    }
}

TEST_F(LdifException, DumpShowsTheConstraintsOfTheType)
{
    static const char* const none[] = {nullptr};
    static const char* const one[] = {"only", nullptr};
    static const char* const three[] = {"a", "b c", "", nullptr};
    struct Row
    {
        const char* name;
        const char* typeName;
        bool single;
        int min;
        int max;
        int bitmask;
        const char* const* enumValues;
        const char* expected;
    };
    const std::vector<Row> rows = {
        {"single-valued", "t", true, 0, 0, 0, nullptr, "t\n  Single-valued"},
        {"multi-valued", "t", false, 0, 0, 0, nullptr, "t\n  Multi-valued"},
        {"no name", nullptr, false, 0, 0, 0, nullptr, "UNKNOWN ATTRIBUTE TYPE\n  Multi-valued"},
        {"an empty name is a name", "", false, 0, 0, 0, nullptr, "\n  Multi-valued"},
        {"range", "t", false, 1, 65535, 0, nullptr, "t\n  Multi-valued\n  min: 1\n  max: 65535"},
        {"a minimum alone", "t", false, -5, 0, 0, nullptr, "t\n  Multi-valued\n  min: -5\n  max: 0"},
        {"a maximum alone", "t", false, 0, 8, 0, nullptr, "t\n  Multi-valued\n  min: 0\n  max: 8"},
        {"the widest range", "t", false, INT_MIN, INT_MAX, 0, nullptr,
         "t\n  Multi-valued\n  min: -2147483648\n  max: 2147483647"},
        {"an empty list", "t", false, 0, 0, 0, none, "t\n  Multi-valued\n  enumeration: {  }"},
        {"a list of one", "t", false, 0, 0, 0, one, "t\n  Multi-valued\n  enumeration: { only }"},
        {"a list of three", "t", false, 0, 0, 0, three, "t\n  Multi-valued\n  enumeration: { a, b c,  }"},
        {"mask and list", "t", true, 0, 0, 1, one, "t\n  Single-valued\n  bit mask: 0x\n  enumeration: { only }"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        _AttrType type{};
        type.name = row.typeName;
        type.singleValued = row.single;
        type.min = row.min;
        type.max = row.max;
        type.bitmask = row.bitmask;
        type.enumValues = row.enumValues;
        LDIF_Exception exception("f.cpp", 1, 51, 0, "m");
        exception.attrType = &type;
        EXPECT_EQ(exception.dump(),
                  std::string("[f.cpp:1]\nmsg     m") + busy + "\nConstraints for " + row.expected + "\n");
    }
}

TEST_F(LdifException, DumpEndsTheBitMaskLineWithoutItsDigits)
{
    for (const int mask : {1, 0x1F, 0x7FFFFFFF, -1}) {
        SCOPED_TRACE(mask);
        _AttrType type = plainType();
        type.bitmask = mask;
        LDIF_Exception exception("f.cpp", 1, 51, 0, "m");
        exception.attrType = &type;
        EXPECT_EQ(exception.dump(), std::string("[f.cpp:1]\nmsg     m") + busy +
                                        "\nConstraints for zor-test\n  Multi-valued\n  bit mask: 0x\n");
    }
}

TEST_F(LdifException, DumpAppendsTheChainBehindAnEmptyLineUnlessTheStackIsHidden)
{
    LDIF_Exception first("first.cpp", 1, 32, 0, "one");
    first.value = "v";
    LDIF_Exception second("second.cpp", 2, first);
    second.msg.clear();
    second.entryDn = "cn=a";
    const LDIF_Exception third("third.cpp", 3, second);

    const std::string firstText = "[first.cpp:1]\nmsg     one\nldapErr 32: No such object\nvalue: v\n";
    const std::string secondText = "[second.cpp:2\nldapErr 32: No such object\nentry dn: cn=a\nvalue: v\n";
    const std::string thirdText = "[third.cpp:3\nldapErr 32: No such object\nentry dn: cn=a\nvalue: v\n";
    EXPECT_EQ(third.dump(), thirdText + "\n" + secondText + "\n" + firstText);
    LDIF_Exception::showStack = false;
    EXPECT_EQ(third.dump(), thirdText);
    EXPECT_NE(third.nested.get(), nullptr);
}

// ---- Passing failures on ----

using veltor::detail::Layer;

constexpr Layer layer{"layer.cpp", 77, "System error in the layer"};

template <class Run>
LDIF_Exception caught(Run run)
{
    try {
        run();
    } catch (const LDIF_Exception& exception) {
        return exception;
    }
    ADD_FAILURE() << "no LDIF_Exception was thrown";
    return LDIF_Exception("", 0, 0, 0, "");
}

[[noreturn]] int failing()
{
    throw filledIn();
}

[[noreturn]] int failingOddly()
{
    throw std::runtime_error("not one of ours");
}

TEST_F(LdifException, WrappingALayerAddsItsPosition)
{
    const LDIF_Exception outer = caught([] { veltor::detail::wrapping(layer, failing); });
    EXPECT_EQ(outer.srcFile, "layer.cpp");
    EXPECT_EQ(outer.srcLine, 77);
    expectSameFacts(outer, filledIn());
    ASSERT_NE(outer.nested.get(), nullptr);
    EXPECT_EQ(outer.nested->srcFile, "/src/lower.cpp");
    EXPECT_EQ(outer.nested->nested.get(), nullptr);
}

TEST_F(LdifException, WrappingALayerLeavesForeignFailuresAlone)
{
    EXPECT_THROW(veltor::detail::wrapping(layer, failingOddly), std::runtime_error);
}

TEST_F(LdifException, TranslatingALayerMakesForeignFailuresItsOwn)
{
    const LDIF_Exception translated = caught([] { veltor::detail::translating(layer, failingOddly); });
    EXPECT_EQ(translated.srcFile, "layer.cpp");
    EXPECT_EQ(translated.srcLine, 77);
    EXPECT_EQ(translated.ldapErr, 80);
    EXPECT_EQ(translated.extErr, 1000);
    EXPECT_EQ(translated.msg, "System error in the layer");
    EXPECT_EQ(translated.value, "");
    EXPECT_EQ(translated.nested.get(), nullptr);

    const LDIF_Exception number = caught([] { veltor::detail::translating(layer, []() -> int { throw 5; }); });
    EXPECT_EQ(number.msg, "System error in the layer");
}

TEST_F(LdifException, TranslatingALayerLeavesOurExceptionsAlone)
{
    const LDIF_Exception passed = caught([] { veltor::detail::translating(layer, failing); });
    EXPECT_EQ(passed.srcFile, "/src/lower.cpp");
    EXPECT_EQ(passed.nested.get(), nullptr);
    expectSameFacts(passed, filledIn());
}

TEST_F(LdifException, AGuardedLayerDoesBoth)
{
    const LDIF_Exception wrapped = caught([] { veltor::detail::guarded(layer, failing); });
    EXPECT_EQ(wrapped.srcFile, "layer.cpp");
    ASSERT_NE(wrapped.nested.get(), nullptr);
    EXPECT_EQ(wrapped.nested->srcFile, "/src/lower.cpp");
    EXPECT_EQ(wrapped.nested->nested.get(), nullptr);

    const LDIF_Exception translated = caught([] { veltor::detail::guarded(layer, failingOddly); });
    EXPECT_EQ(translated.srcFile, "layer.cpp");
    EXPECT_EQ(translated.msg, "System error in the layer");
    EXPECT_EQ(translated.nested.get(), nullptr);
}

TEST_F(LdifException, ALayerCompletesWhatItThrows)
{
    const auto complete = [](LDIF_Exception& exception) { exception.configLine = 5; };
    EXPECT_EQ(caught([&] { veltor::detail::wrapping(layer, failing, complete); }).configLine, 5);
    EXPECT_EQ(caught([&] { veltor::detail::translating(layer, failingOddly, complete); }).configLine, 5);
    EXPECT_EQ(caught([&] { veltor::detail::guarded(layer, failing, complete); }).configLine, 5);
    EXPECT_EQ(caught([&] { veltor::detail::guarded(layer, failingOddly, complete); }).configLine, 5);
    // The cause keeps what was known where it was raised.
    EXPECT_EQ(caught([&] { veltor::detail::guarded(layer, failing, complete); }).nested->configLine, 12);
}

TEST_F(LdifException, ALayerWithoutFailureHandsItsResultThrough)
{
    int number = 3;
    const auto lend = [&]() -> int& { return number; };
    EXPECT_EQ(&veltor::detail::wrapping(layer, lend), &number);
    EXPECT_EQ(&veltor::detail::translating(layer, lend), &number);
    EXPECT_EQ(&veltor::detail::guarded(layer, lend), &number);
}

} // namespace
