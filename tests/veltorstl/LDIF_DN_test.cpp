// Distinguished names: what each of the five parsers takes and what it leaves, how failures travel upwards, the
// printed form, the inverted order and the arithmetic.
#include "LDIF_DN.h"

#include "LDIF_Exception.h"
#include "support/failure_of.h"
#include "support/locale_guard.h"

#include <algorithm>
#include <cwctype>
#include <gtest/gtest.h>
#include <optional>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <set>
#include <sstream>
#include <string>
#include <strings.h>
#include <type_traits>
#include <vector>

using veltor::test::failureOf;
using veltor::test::inBothLocales;
using veltor::test::LocaleGuard;
using veltor::test::recordsOf;

namespace {

using namespace std::string_literals;

LDIF_DN parsed(const std::string& text)
{
    LDIF_DN dn;
    dn = cisString(text);
    return dn;
}

LDIF_RDN rdnOf(const std::string& text)
{
    cisString rest = text;
    return LDIF_RDN(rest);
}

LDIF_RDN_pair pairOf(const std::string& text)
{
    cisString rest = text;
    return LDIF_RDN_pair(rest);
}

LDIF_RDN_value valueOf(const std::string& text)
{
    cisString rest = text;
    return LDIF_RDN_value(rest);
}

int sign(int number)
{
    return number < 0 ? -1 : number > 0 ? 1 : 0;
}

struct ExpectedFailure
{
    int ldapCode;
    int libraryCode;
    std::string message;
    int records; ///< 0: not looked at
};

void expectFailure(const std::optional<LDIF_Exception>& failure, const ExpectedFailure& expected)
{
    ASSERT_TRUE(failure.has_value()) << "nothing was thrown";
    // Every record of the chain repeats codes and message of the innermost.
    for (const LDIF_Exception* record = &*failure; record != nullptr; record = record->nested) {
        EXPECT_EQ(record->ldapErr, expected.ldapCode);
        EXPECT_EQ(record->extErr, expected.libraryCode);
        EXPECT_EQ(record->msg, expected.message);
        EXPECT_EQ(record->srcFile.find('/'), std::string::npos) << record->srcFile;
        EXPECT_FALSE(record->srcFile.empty());
        EXPECT_GT(record->srcLine, 0);
        EXPECT_EQ(record->sysErrno, 0);
        EXPECT_EQ(record->configFile, "");
        EXPECT_EQ(record->configLine, 0);
        EXPECT_EQ(record->entryDn, "");
        EXPECT_EQ(record->attribute, "");
        EXPECT_EQ(record->attrType, nullptr);
    }
    if (expected.records != 0) {
        EXPECT_EQ(recordsOf(*failure), expected.records);
    }
}

/// A text that a parser refuses, and what it leaves of it.
struct Refused
{
    const char* name;
    std::string text;
    ExpectedFailure failure;
    std::string left;
};

template <class Parser>
void expectRefused(const std::vector<Refused>& rows)
{
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        cisString text = row.text;
        expectFailure(failureOf([&] { Parser{text}; }), row.failure);
        EXPECT_EQ(static_cast<const std::string&>(text), row.left);
    }
}

} // namespace

// ---- Shapes ----

TEST(LdifDn, ClassesArePolymorphicValuesWithoutAVirtualDestructor)
{
    static_assert(std::is_base_of_v<cisString, LDIF_RDN_attribute>);
    static_assert(std::is_base_of_v<cisString, LDIF_RDN_value>);
    static_assert(std::is_base_of_v<std::pair<LDIF_RDN_attribute, LDIF_RDN_value>, LDIF_RDN_pair>);
    const auto check = []<class Class>(const char* name, std::type_identity<Class>) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(std::is_polymorphic_v<Class>);
        EXPECT_FALSE(std::has_virtual_destructor_v<Class>);
        EXPECT_TRUE(std::is_copy_constructible_v<Class>);
        EXPECT_TRUE(std::is_copy_assignable_v<Class>);
    };
    check("attribute", std::type_identity<LDIF_RDN_attribute>{});
    check("value", std::type_identity<LDIF_RDN_value>{});
    check("pair", std::type_identity<LDIF_RDN_pair>{});
    check("RDN", std::type_identity<LDIF_RDN>{});
    check("DN", std::type_identity<LDIF_DN>{});
    EXPECT_EQ(sizeof(LDIF_RDN_value::form), 4U);
    EXPECT_TRUE(std::is_signed_v<decltype(LDIF_RDN_value::form)>);
}

TEST(LdifDn, DefaultConstructedIsTheRoot)
{
    const LDIF_DN dn;
    EXPECT_TRUE(dn.empty());
    EXPECT_EQ(dn.str(), "");
}

// ---- Attribute type ----

TEST(LdifRdnAttribute, TakesTheLongestRunOfItsCharacters)
{
    struct Row
    {
        const char* name;
        const char* text;
        const char* type;
        const char* left;
    };
    constexpr Row rows[] = {
        {"a plain type", "cn=x", "cn", "=x"},
        {"blanks behind it go", "cn \t= x", "cn", "= x"},
        {"parentheses behind it go", "cn ()( = x", "cn", "= x"},
        {"case is kept", "Cn=x", "Cn", "=x"},
        {"digits and hyphens after a letter", "a1-B2-=x", "a1-B2-", "=x"},
        {"a letter type ends at a dot", "cn.1=x", "cn", ".1=x"},
        {"a numeric type", "2.5.4.3=x", "2.5.4.3", "=x"},
        {"a numeric type ends at a letter", "3cn=x", "3", "cn=x"},
        {"a numeric type ends at a hyphen", "3-1=x", "3", "-1=x"},
        {"nothing behind it", "cn", "cn", ""},
        {"only blanks behind it", "cn  ", "cn", ""},
        {"an underscore is no part of it", "c_n=x", "c", "_n=x"},
    };
    inBothLocales([&] {
        for (const auto& row : rows) {
            SCOPED_TRACE(row.name);
            cisString text = row.text;
            const LDIF_RDN_attribute type(text);
            EXPECT_STREQ(type.c_str(), row.type);
            EXPECT_STREQ(text.c_str(), row.left);
        }
    });
}

TEST(LdifRdnAttribute, RefusesWhatIsNoTypeAndTakesNothing)
{
    const auto invalid = [](const std::string& shown) {
        return ExpectedFailure{34, 1012, "Invalid attribute sytax: " + shown, 1};
    };
    const std::vector<Refused> rows = {
        {"empty", "", {34, 1011, "Missing RDN attribute", 1}, ""},
        {"begins with =", "=x", invalid(""), "=x"},
        {"begins with a hyphen", "-cn=x=y", invalid("-cn"), "-cn=x=y"},
        {"begins with a blank", " cn=x", invalid(" cn"), " cn=x"},
        {"begins with a parenthesis", "(cn=x", invalid("(cn"), "(cn=x"},
        {"begins with a dot", ".1=x", invalid(".1"), ".1=x"},
        {"no = and short", "_abc", invalid("_abc"), "_abc"},
        {"no = and 20 characters", "_2345678901234567890", invalid("_2345678901234567890"), "_2345678901234567890"},
        {"no = and 21 characters", "_23456789012345678901", invalid("_2345678901234567890"), "_23456789012345678901"},
        {"= behind 20 characters", "_2345678901234567890abcdef=x", invalid("_2345678901234567890abcdef"),
         "_2345678901234567890abcdef=x"},
    };
    inBothLocales([&] { expectRefused<LDIF_RDN_attribute>(rows); });
}

TEST(LdifRdnAttribute, IsJudgedByItsCharactersBeforeAnythingIsConverted)
{
    inBothLocales([&] {
        expectRefused<LDIF_RDN_attribute>({
            {"a letter beyond ASCII is no letter", "é=x", {34, 1012, "Invalid attribute sytax: é", 1}, "é=x"},
        });
    });
}

TEST(LdifRdnAttribute, StrippingWhatFollowsNeedsReadableText)
{
    const LocaleGuard guard("C");
    // The type is taken before the rest is stripped, so the rest is what the complaint is about.
    for (const auto& [text, rest] : {std::pair{"cn=é"s, "=é"s}, {"cn.é"s, ".é"s}, {"2.5-é"s, "-é"s}}) {
        SCOPED_TRACE(text);
        cisString left = text;
        const auto failure = failureOf([&] { LDIF_RDN_attribute{left}; });
        expectFailure(failure, {162, 162, "mbstowcs( " + rest + " )", 1});
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->value, rest);
        EXPECT_EQ(static_cast<const std::string&>(left), rest);
    }
}

// ---- Value ----

namespace {

struct ValueRow
{
    const char* name;
    std::string text;
    std::string value;
    int form;
    std::string left;
};

void expectValues(const std::vector<ValueRow>& rows)
{
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        cisString text = row.text;
        const LDIF_RDN_value value(text);
        EXPECT_EQ(static_cast<const std::string&>(value), row.value);
        EXPECT_EQ(value.form, row.form);
        EXPECT_EQ(static_cast<const std::string&>(text), row.left);
    }
}

} // namespace

TEST(LdifRdnValue, AnEmptyTextIsAnEmptyQuotedValue)
{
    expectValues({{"empty", "", "", 1, ""}});
}

TEST(LdifRdnValue, BinaryFormTakesWholeHexPairs)
{
    inBothLocales([&] {
        expectValues({
            {"two bytes", "#4142", "AB", 0, ""},
            {"upper and lower case", "#4a4B , o=x", "JK", 0, ", o=x"},
            {"an odd digit stays", "#414", "A", 0, "4"},
            {"a blank ends it", "#41 42", "A", 0, "42"},
            {"no digits", "#", "", 0, ""},
            {"no hex digits", "#zz", "", 0, "zz"},
            {"one digit and a letter", "#4g", "", 0, "4g"},
            {"NUL is a byte like any other", "#004100", "\0A\0"s, 0, ""},
            {"bytes beyond ASCII", "#C3A9ff", "\xC3\xA9\xFF", 0, ""},
            {"blanks and parentheses behind it go", "#41 )( ,o=x", "A", 0, ",o=x"},
        });
    });
}

TEST(LdifRdnValue, QuotedFormKeepsEverythingUpToTheQuote)
{
    inBothLocales([&] {
        expectValues({
            {"separators are text", R"("a,b;c+d=e<f>g#h" , o=x)", "a,b;c+d=e<f>g#h", 1, ", o=x"},
            {"no closing quote", R"("a,b)", "a,b", 1, ""},
            {"a lone quote", R"(")", "", 1, ""},
            {"empty quotes", R"("")", "", 1, ""},
            {"nothing is trimmed", R"("( a )  ")", "( a )  ", 1, ""},
            {"escaped quote and backslash", R"("a\"b\\c")", R"(a"b\c)", 1, ""},
            {"escaped hex pair", R"("a\2Cb\2c")", "a,b,", 1, ""},
            {"escaped special characters", R"("\,\=\+\<\>\#\;")", ",=+<>#;", 1, ""},
            {"escaped blanks stay", R"("\20a\20")", " a ", 1, ""},
            {"escaped NUL", R"("a\00b")", "a\0b"s, 1, ""},
            {"a number sign inside", R"("#41")", "#41", 1, ""},
            {"text behind it stays", R"("a"b)", "a", 1, "b"},
            {"blanks and parentheses behind it go", R"("a" )(b)", "a", 1, "b"},
            {"bytes beyond ASCII", R"("\C3\A9")", "\xC3\xA9", 1, ""},
        });
    });
}

TEST(LdifRdnValue, PlainFormEndsAtASpecialCharacter)
{
    inBothLocales([&] {
        expectValues({
            {"to the end", "John Smith", "John Smith", 2, ""},
            {"comma", "a,b", "a", 2, ",b"},
            {"equals sign", "a=b", "a", 2, "=b"},
            {"plus", "a+b", "a", 2, "+b"},
            {"less than", "a<b", "a", 2, "<b"},
            {"greater than", "a>b", "a", 2, ">b"},
            {"number sign", "a#b", "a", 2, "#b"},
            {"semicolon", "a;b", "a", 2, ";b"},
            {"quote", "a\"b", "a", 2, "\"b"},
            {"at once", ",o=x", "", 2, ",o=x"},
        });
    });
}

TEST(LdifRdnValue, PlainFormIsTrimmedAtItsEnd)
{
    inBothLocales([&] {
        expectValues({
            {"blanks at the end", "a b \t\n", "a b", 2, ""},
            {"blanks before the separator", "a b  , o=x", "a b", 2, ", o=x"},
            {"a parenthesis at the end", "a(b) )", "a(b", 2, ""},
            {"the front is left alone", " (a", " (a", 2, ""},
            {"an escaped blank at the end goes", "a\\20", "a", 2, ""},
            {"an escaped parenthesis at the end goes", "a\\29", "a", 2, ""},
            {"an escaped blank in front stays", "\\20a", " a", 2, ""},
            {"escaped blanks alone vanish", "\\20\\20", "", 2, ""},
            {"the first of parentheses alone survives", "\\28\\29", "(", 2, ""},
            {"blanks in front of parentheses vanish with them", "\\20\\29", "", 2, ""},
        });
    });
}

TEST(LdifRdnValue, PlainFormResolvesEscapes)
{
    inBothLocales([&] {
        expectValues({
            {"every special character", R"(\,\=\+\<\>\#\;\\\")", R"(,=+<>#;\")", 2, ""},
            {"hex pair in upper case", R"(a\2Cb)", "a,b", 2, ""},
            {"hex pair in lower case", R"(a\2cb)", "a,b", 2, ""},
            {"a hex pair in front", R"(\42)", "B", 2, ""},
            {"hex pairs win over what follows", R"(\421)", "B1", 2, ""},
            // The trailing strip converts the value, and a conversion ends at the first NUL.
            {"a NUL cuts the value", R"(a\00b,o=x)", "a", 2, ",o=x"},
        });
    });
}

TEST(LdifRdnValue, RefusesABadEscape)
{
    const auto escape = [](const std::string& shown) {
        return ExpectedFailure{34, 1014, "Invalid escape sequence: " + shown, 1};
    };
    // After a lone backslash the text is as it was; otherwise it begins with the escape.
    const std::vector<Refused> rows = {
        {"a backslash ends a plain value", "ab\\", escape("\\"), "ab\\"},
        {"a lone backslash", "\\", escape("\\"), "\\"},
        {"a backslash ends a quoted value", "\"ab\\", escape("\\"), "\"ab\\"},
        {"two letters", "a\\zz,o=b", escape("\\zz"), "\\zz,o=b"},
        {"one letter at the end", "a\\z", escape("\\z"), "\\z"},
        {"one hex digit at the end", "a\\4", escape("\\4"), "\\4"},
        {"a hex digit and a letter", "a\\4gx", escape("\\4g"), "\\4gx"},
        {"a letter and a hex digit", "a\\g4x", escape("\\g4"), "\\g4x"},
        {"a blank", "a\\ bc", escape("\\ b"), "\\ bc"},
        {"a parenthesis", "a\\(b", escape("\\(b"), "\\(b"},
        {"in a quoted value", "\"x\\qrs\"", escape("\\qr"), "\\qrs\""},
        {"after a good escape", "\\,\\xy", escape("\\xy"), "\\xy"},
    };
    inBothLocales([&] { expectRefused<LDIF_RDN_value>(rows); });
}

TEST(LdifRdnValue, CountsCharactersOfTheLocale)
{
    const LocaleGuard guard("C.UTF-8");
    expectValues({
        {"plain", "Jürgen Groß , o=x", "Jürgen Groß", 2, ", o=x"},
        {"quoted", "\"Zürich, Süd\"", "Zürich, Süd", 1, ""},
        {"escaped bytes make a character", "\\C3\\A9", "é", 2, ""},
        {"quoted escapes and characters", "\"\\C3\\A9ü\"", "éü", 1, ""},
    });
    expectRefused<LDIF_RDN_value>({
        {"three characters of a bad escape", "a\\éüx", {34, 1014, "Invalid escape sequence: \\éü", 1}, "\\éüx"},
    });
}

TEST(LdifRdnValue, WideBlanksAreBlanks)
{
    const LocaleGuard guard("C.UTF-8");
    ASSERT_NE(std::iswspace(0x2003), 0);
    expectValues({
        {"at the end of a plain value", "a\u2003b\u2003", "a\u2003b", 2, ""},
        {"behind a quoted value", "\"a\"\u2003,o=x", "a", 1, ",o=x"},
        {"an escaped one at the end goes", "a\\E2\\80\\83", "a", 2, ""},
        {"an escaped one in front stays", "\\E2\\80\\83a", "\u2003a", 2, ""},
    });
}

TEST(LdifRdnValue, TextThatTheLocaleCannotReadIsWrappedAndLeftAsItWas)
{
    struct Row
    {
        const char* name;
        const char* locale;
        std::string text;
        std::string unreadable;
    };
    const Row rows[] = {
        {"no ASCII in the C locale", "C", "é", "é"},
        {"no UTF-8 in a UTF-8 locale", "C.UTF-8", "a\xFF", "a\xFF"},
        // Escapes make bytes, and the trailing strip converts them.
        {"escaped bytes in the C locale", "C", "a\\C3\\A9,o=x", "aé"},
        {"half a character escaped", "C.UTF-8", "a\\C3,o=x", "a\xC3"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LocaleGuard guard(row.locale);
        cisString text = row.text;
        const auto failure = failureOf([&] { LDIF_RDN_value{text}; });
        expectFailure(failure, {162, 162, "mbstowcs( " + row.unreadable + " )", 2});
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->value, row.unreadable);
        EXPECT_EQ(static_cast<const std::string&>(text), row.text);
    }
}

// ---- Pair ----

TEST(LdifRdnPair, IsATypeAnEqualsSignAndAValue)
{
    struct Row
    {
        const char* name;
        const char* text;
        const char* type;
        const char* value;
        int form;
        const char* left;
    };
    constexpr Row rows[] = {
        {"plain", "cn=a", "cn", "a", 2, ""},
        {"blanks around the equals sign", "CN = John Smith ;ou=a", "CN", "John Smith", 2, ";ou=a"},
        {"parentheses around the value", "cn=(a)", "cn", "a", 2, ""},
        {"parentheses around the equals sign", "cn (= ( a", "cn", "a", 2, ""},
        {"no value", "cn=", "cn", "", 1, ""},
        {"blanks for a value", "cn=  ", "cn", "", 1, ""},
        {"no value before a separator", "cn=,o=x", "cn", "", 2, ",o=x"},
        {"numeric type", "2.5.4.3=x", "2.5.4.3", "x", 2, ""},
        {"the plus is left", "cn=a + sn=b", "cn", "a", 2, "+ sn=b"},
        {"a second equals sign is left", "cn=a=b", "cn", "a", 2, "=b"},
        {"binary", "cn= #41", "cn", "A", 0, ""},
        {"quoted", "cn= \" a\" x", "cn", " a", 1, "x"},
    };
    inBothLocales([&] {
        for (const auto& row : rows) {
            SCOPED_TRACE(row.name);
            cisString text = row.text;
            const LDIF_RDN_pair pair(text);
            EXPECT_STREQ(pair.first.c_str(), row.type);
            EXPECT_STREQ(pair.second.c_str(), row.value);
            EXPECT_EQ(pair.second.form, row.form);
            EXPECT_STREQ(text.c_str(), row.left);
        }
    });
}

TEST(LdifRdnPair, OwnComplaintsAreOneRecordAndThoseFromBelowTwo)
{
    const std::vector<Refused> rows = {
        {"empty", "", {34, 1011, "Missing RDN attribute", 1}, ""},
        {"bad type", "=x", {34, 1012, "Invalid attribute sytax: ", 2}, "=x"},
        {"leading blank", " cn=x", {34, 1012, "Invalid attribute sytax:  cn", 2}, " cn=x"},
        {"type alone", "Cn", {34, 1013, "Missing RDN value: Cn", 1}, ""},
        {"type and blanks", "cn ( ", {34, 1013, "Missing RDN value: cn", 1}, ""},
        {"no equals sign", "cn;lang-en=x", {34, 1012, "Invalid character in RDN attribute: ;", 1}, ";lang-en=x"},
        {"letter behind a number", "3cn=x", {34, 1012, "Invalid character in RDN attribute: c", 1}, "cn=x"},
        {"two words", "cn x=y", {34, 1012, "Invalid character in RDN attribute: x", 1}, "x=y"},
        {"bad escape", "cn=a\\zz,o=b", {34, 1014, "Invalid escape sequence: \\zz", 2}, "\\zz,o=b"},
        {"backslash at the end", "cn= a\\", {34, 1014, "Invalid escape sequence: \\", 2}, "a\\"},
    };
    inBothLocales([&] { expectRefused<LDIF_RDN_pair>(rows); });
}

TEST(LdifRdnPair, ConversionFailureUnderTheTypeIsWrappedOnce)
{
    const LocaleGuard guard("C");
    cisString text = "cn=é";
    const auto failure = failureOf([&] { LDIF_RDN_pair{text}; });
    expectFailure(failure, {162, 162, "mbstowcs( =é )", 2});
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->value, "=é");
    EXPECT_EQ(static_cast<const std::string&>(text), "=é");
}

// ---- RDN ----

TEST(LdifRdn, KeepsItsPairsSortedAndTheFirstOfEqualOnes)
{
    struct Row
    {
        const char* name;
        const char* text;
        const char* printed;
        const char* left;
    };
    constexpr Row rows[] = {
        {"one pair", "cn=a", "cn=a", ""},
        {"written in order", "cn=a+cn=b", "cn=a + cn=b", ""},
        {"written out of order", "cn=b+cn=a", "cn=a + cn=b", ""},
        {"types first", "sn=a + cn=b", "cn=b + sn=a", ""},
        {"without regard to case", "ou=a+OU=\\42", "ou=a + OU=B", ""},
        {"case does not order types", "OU=a+cn=x", "cn=x + OU=a", ""},
        {"a duplicate is dropped", "cn=a+CN=A", "cn=a", ""},
        {"the first spelling stays", "CN=A+cn=b+cn=a+CN=B", "CN=A + cn=b", ""},
        {"duplicates in another form", "cn=#41+cn=\"a\"+cn=A", "cn=#41", ""},
        {"parentheses behind a plus", "cn=a+ (sn=b)", "cn=a + sn=b", ""},
        {"the comma is left", "cn=a , o=x", "cn=a", ", o=x"},
        {"the semicolon is left", "cn=a+sn=b ; o=x", "cn=a + sn=b", "; o=x"},
    };
    inBothLocales([&] {
        for (const auto& row : rows) {
            SCOPED_TRACE(row.name);
            cisString text = row.text;
            const LDIF_RDN rdn(text);
            EXPECT_EQ(rdn.str(), row.printed);
            EXPECT_STREQ(text.c_str(), row.left);
        }
    });
}

TEST(LdifRdn, AddingAPairKeepsTheOrder)
{
    LDIF_RDN rdn;
    EXPECT_EQ(&(rdn += pairOf("ou=m")), &rdn);
    rdn += pairOf("sn=z");
    rdn += pairOf("cn=a");
    rdn += pairOf("OU=M");
    rdn += pairOf("ou=\"n\"");
    EXPECT_EQ(rdn.str(), "cn=a + ou=m + ou=\"n\" + sn=z");
}

TEST(LdifRdn, OwnComplaintsAreOneRecordThenOneForEachLevelBelow)
{
    const std::vector<Refused> rows = {
        {"empty", "", {34, 1011, "Missing RDN attribute", 1}, ""},
        {"value too long", "cn=a=b", {34, 1014, "Invalid character in RDN value: =", 1}, "=b"},
        {"less than", "cn=a<b", {34, 1014, "Invalid character in RDN value: <", 1}, "<b"},
        {"greater than", "cn=a>b", {34, 1014, "Invalid character in RDN value: >", 1}, ">b"},
        {"number sign", "cn=a#b", {34, 1014, "Invalid character in RDN value: #", 1}, "#b"},
        {"quote", "cn=a\"b", {34, 1014, "Invalid character in RDN value: \"", 1}, "\"b"},
        {"odd hex digit", "cn=#414", {34, 1014, "Invalid character in RDN value: 4", 1}, "4"},
        {"text behind a quoted value", "cn=\"a\" b", {34, 1014, "Invalid character in RDN value: b", 1}, "b"},
        {"plus at the end", "cn=a+", {34, 1011, "Missing RDN attribute", 2}, ""},
        {"plus and blanks at the end", "cn=a+ (", {34, 1011, "Missing RDN attribute", 2}, ""},
        {"two pluses", "cn=a++cn=b", {34, 1012, "Invalid attribute sytax: +cn", 3}, "+cn=b"},
        {"plus and comma", "cn=a+,o=x", {34, 1012, "Invalid attribute sytax: ,o", 3}, ",o=x"},
        {"type alone", "cn=a+sn", {34, 1013, "Missing RDN value: sn", 2}, ""},
        {"no equals sign", "cn;lang-en=x", {34, 1012, "Invalid character in RDN attribute: ;", 2}, ";lang-en=x"},
        {"bad type", "=x", {34, 1012, "Invalid attribute sytax: ", 3}, "=x"},
        {"bad escape", "cn=a\\zz,o=b", {34, 1014, "Invalid escape sequence: \\zz", 3}, "\\zz,o=b"},
        {"backslash at the end", "cn=a+sn=b\\", {34, 1014, "Invalid escape sequence: \\", 3}, "b\\"},
    };
    inBothLocales([&] { expectRefused<LDIF_RDN>(rows); });
}

TEST(LdifRdn, ConversionFailureUnderTheTypeIsWrappedTwice)
{
    const LocaleGuard guard("C");
    cisString text = "cn=é";
    expectFailure(failureOf([&] { LDIF_RDN{text}; }), {162, 162, "mbstowcs( =é )", 3});
    EXPECT_EQ(static_cast<const std::string&>(text), "=é");
}

// ---- DN ----

TEST(LdifDn, KeepsTheRdnNearestTheRootFirst)
{
    const LDIF_DN dn = parsed("cn=a, ou=b, o=c");
    ASSERT_EQ(dn.size(), 3U);
    EXPECT_EQ(dn[0].str(), "o=c");
    EXPECT_EQ(dn[1].str(), "ou=b");
    EXPECT_EQ(dn[2].str(), "cn=a");
}

TEST(LdifDn, ParsesAndPrintsItsNormalForm)
{
    struct Row
    {
        const char* name;
        const char* text;
        const char* printed;
    };
    constexpr Row rows[] = {
        {"empty", "", ""},
        {"blanks", "   ", ""},
        {"blanks and parentheses", " ( ) \t", ""},
        {"all at once", R"(CN = John Smith ;ou=a+OU=\42,O="x, y")", R"(CN=John Smith, ou=a + OU=B, O="x, y")"},
        {"semicolon separates like a comma", "cn=x;o=y", "cn=x, o=y"},
        {"blanks around separators", " cn=x , \t o=y ", "cn=x, o=y"},
        {"outer parentheses", "(cn=a)", "cn=a"},
        {"parentheses everywhere", "((cn=a),(o=b))", "cn=a, o=b"},
        {"inner parentheses stay", "cn=a(b)c", "cn=a(b)c"},
        {"trailing blanks of a value", "cn=a b  ", "cn=a b"},
        {"escaped trailing blank", "cn=a\\20", "cn=a"},
        {"escaped leading blank", "cn=\\20\\09a", "cn=\\20\\09a"},
        {"blanks inside", "cn=a \t b", "cn=a \t b"},
        {"escaped comma", "cn=a\\,b", "cn=a\\,b"},
        {"escaped comma as a hex pair", "cn=a\\2Cb", "cn=a\\,b"},
        {"every special character", R"(cn=\,\=\+\<\>\#\;\\\")", R"(cn=\,\=\+\<\>\#\;\\\")"},
        {"needless hex pairs", "cn=\\41\\62", "cn=Ab"},
        {"an escape that prints as a blank", "cn=a\\0Ab", "cn=a\nb"},
        {"binary", "cn=#4142", "cn=#4142"},
        {"binary in upper case", "cn=#abcdef00", "cn=#ABCDEF00"},
        {"quoted without its closing quote", "cn=\"a,b", "cn=\"a,b\""},
        {"quoted escapes", R"(cn="a\"b\\c\2C\<")", R"(cn="a\"b\\c,<")"},
        {"quoted blanks", "cn=\" a \"", "cn=\" a \""},
        {"numeric type", "2.5.4.3=x", "2.5.4.3=x"},
        {"pairs out of order", "cn=b+cn=a", "cn=a + cn=b"},
        {"a duplicate pair", "cn=a+CN=A", "cn=a"},
        {"types keep their case", "CN=a,Ou=B", "CN=a, Ou=B"},
        {"types are not looked up", "no-such-type=x", "no-such-type=x"},
    };
    inBothLocales([&] {
        for (const auto& row : rows) {
            SCOPED_TRACE(row.name);
            const LDIF_DN dn = parsed(row.text);
            EXPECT_EQ(dn.str(), row.printed);
        }
    });
}

TEST(LdifDn, SameValueHoweverItIsEscaped)
{
    EXPECT_STREQ(parsed("cn=a\\,b")[0][0].second.c_str(), "a,b");
    EXPECT_STREQ(parsed("cn=a\\2Cb")[0][0].second.c_str(), "a,b");
    EXPECT_EQ(parsed("cn=#4142")[0][0].second.form, LDIF_RDN_value::binary);
    EXPECT_STREQ(parsed("cn=#4142")[0][0].second.c_str(), "AB");
}

TEST(LdifDn, CharactersOfTheLocaleGoThroughUnchanged)
{
    const LocaleGuard guard("C.UTF-8");
    for (const char* text : {"cn=Jürgen Groß, o=Zürich", "cn=\"ü, é\", o=x", "cn=日本 語", "cn=#C3BC", "cn=é\\,é"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(parsed(text).str(), text);
    }
    EXPECT_EQ(parsed("cn=\\C3\\BC").str(), "cn=ü");
    EXPECT_EQ(parsed("cn=ü+cn=\\C3\\BC").str(), "cn=ü");
}

TEST(LdifDn, TextThatTheLocaleCannotReadIsRefusedWhole)
{
    struct Row
    {
        const char* name;
        const char* locale;
        const char* text;
    };
    constexpr Row rows[] = {
        {"no ASCII in the C locale", "C", "cn=Jürgen"},
        {"in front", "C", "ü=x"},
        {"behind a syntax error", "C", "=x, cn=ü"},
        {"no UTF-8 in a UTF-8 locale", "C.UTF-8", "cn=a, o=\xFF"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LocaleGuard guard(row.locale);
        LDIF_DN dn;
        const auto failure = failureOf([&] { dn = cisString(row.text); });
        expectFailure(failure, {162, 162, "mbstowcs( "s + row.text + " )", 0});
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->value, row.text);
        EXPECT_TRUE(dn.empty());
    }
}

TEST(LdifDn, EscapedBytesThatTheLocaleCannotReadAreRefused)
{
    struct Row
    {
        const char* locale;
        const char* text;
        const char* unreadable;
    };
    constexpr Row rows[] = {
        {"C", "cn=a\\C3\\A9, o=x", "a\xC3\xA9"},
        {"C.UTF-8", "cn=a\\C3, o=x", "a\xC3"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.locale);
        const LocaleGuard guard(row.locale);
        const auto failure = failureOf([&] { parsed(row.text); });
        expectFailure(failure, {162, 162, "mbstowcs( "s + row.unreadable + " )", 0});
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->value, row.text);
    }
}

TEST(LdifDn, FailuresArriveAsAChainOfAtMostFourRecords)
{
    struct Row
    {
        const char* name;
        const char* text;
        int libraryCode;
        const char* message;
        int records;
    };
    constexpr Row rows[] = {
        {"separator at the end", "cn=a,", 1011, "Missing RDN attribute", 2},
        {"separator and blanks at the end", "cn=a; ( ", 1011, "Missing RDN attribute", 2},
        {"two separators", "cn=a,,o=b", 1011, "Missing RDN attribute", 2},
        {"plus at the end", "cn=a+", 1011, "Missing RDN attribute", 3},
        {"no type", "=x", 1012, "Invalid attribute sytax: ", 4},
        {"no type further on", "cn=a, _x=y", 1012, "Invalid attribute sytax: _x", 4},
        {"type alone", "cn", 1013, "Missing RDN value: cn", 3},
        {"type alone further on", "cn=a, ou", 1013, "Missing RDN value: ou", 3},
        {"letter behind a number", "3cn=x", 1012, "Invalid character in RDN attribute: c", 3},
        {"option", "cn;lang-en=x", 1012, "Invalid character in RDN attribute: ;", 3},
        {"separator behind a type", "cn,o=x", 1012, "Invalid character in RDN attribute: ,", 3},
        {"second equals sign", "cn=a=b", 1014, "Invalid character in RDN value: =", 2},
        {"odd hex digit", "cn=#414", 1014, "Invalid character in RDN value: 4", 2},
        {"bad escape", "cn=a\\zz,o=b", 1014, "Invalid escape sequence: \\zz", 4},
        {"backslash at the end", "cn=a\\", 1014, "Invalid escape sequence: \\", 4},
        {"quoted backslash at the end", "cn=\"a\\", 1014, "Invalid escape sequence: \\", 4},
    };
    inBothLocales([&] {
        for (const auto& row : rows) {
            SCOPED_TRACE(row.name);
            const auto failure = failureOf([&] { parsed(row.text); });
            expectFailure(failure, {34, row.libraryCode, row.message, row.records});
            ASSERT_TRUE(failure.has_value());
            // The DN layer alone knows the whole text.
            EXPECT_EQ(failure->value, row.text);
            for (const LDIF_Exception* cause = failure->nested; cause != nullptr; cause = cause->nested) {
                EXPECT_EQ(cause->value, "");
            }
        }
    });
}

TEST(LdifDn, FailureNamesTheTextAsItWasGiven)
{
    const auto failure = failureOf([] { parsed("  (cn=a, =x"); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->value, "  (cn=a, =x");
}

TEST(LdifDn, WideTextFailsLikeAsciiText)
{
    const LocaleGuard guard("C.UTF-8");
    const auto failure = failureOf([] { parsed("cn=ü, o=a\\zü, c=x"); });
    expectFailure(failure, {34, 1014, "Invalid escape sequence: \\zü", 4});
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->value, "cn=ü, o=a\\zü, c=x");
}

TEST(LdifDn, FailureKeepsTheRdnsParsedBeforeIt)
{
    for (const char* text : {"cn=a, ou=b, =x", "cn=a;ou=b,", "cn=a, ou=b, o=x=y, c=z"}) {
        SCOPED_TRACE(text);
        LDIF_DN dn;
        const cisString given = text;
        EXPECT_TRUE(failureOf([&] { dn = given; }).has_value());
        EXPECT_EQ(dn.str(), "cn=a, ou=b");
        // A DN is parsed from a copy; only the parsers of its parts consume their text.
        EXPECT_STREQ(given.c_str(), text);
    }
}

TEST(LdifDn, AssigningTextToAFilledDnAddsAtTheRootSide)
{
    LDIF_DN dn = parsed("cn=a, o=x");
    EXPECT_EQ(&(dn = cisString("ou=b, c=y")), &dn);
    EXPECT_EQ(dn.str(), "cn=a, o=x, ou=b, c=y");
    dn = cisString("  ");
    EXPECT_EQ(dn.str(), "cn=a, o=x, ou=b, c=y");
    EXPECT_TRUE(failureOf([&] { dn = cisString("l=1, l=2, =z"); }).has_value());
    EXPECT_EQ(dn.str(), "cn=a, o=x, ou=b, c=y, l=1, l=2");
}

TEST(LdifDn, CopiesAreIndependent)
{
    const LDIF_DN original = parsed("cn=a, o=x");
    LDIF_DN copy = original;
    copy[0][0].second.assign("other");
    copy += rdnOf("ou=b");
    EXPECT_EQ(original.str(), "cn=a, o=x");
    EXPECT_EQ(copy.str(), "ou=b, cn=a, o=other");
    copy = original;
    EXPECT_EQ(copy.str(), "cn=a, o=x");
}

TEST(LdifDn, TextEndsAtANulByte)
{
    inBothLocales([&] {
        EXPECT_EQ(parsed("cn=a\0, o=x"s).str(), "cn=a");
        EXPECT_EQ(parsed("\0cn=a"s).str(), "");
    });
}

// ---- Printed form ----

TEST(LdifDn, EmptyValueParsesButCannotBePrinted)
{
    for (const char* text : {"cn=", "cn=,o=x", "cn=\"\"", "cn=#", "cn=\\20", "o=x, cn=a+cn=", "cn= ;o=x"}) {
        SCOPED_TRACE(text);
        const LDIF_DN dn = parsed(text);
        expectFailure(failureOf([&] { dn.str(); }), {34, 1013, "Missing RDN attribute value", 0});
    }
    expectFailure(failureOf([] { valueOf("").str(); }), {34, 1013, "Missing RDN attribute value", 1});
    expectFailure(failureOf([] { valueOf("#").str(); }), {34, 1013, "Missing RDN attribute value", 1});
    expectFailure(failureOf([] { valueOf(",").str(); }), {34, 1013, "Missing RDN attribute value", 1});
    expectFailure(failureOf([] { pairOf("cn=").str(); }), {34, 1013, "Missing RDN attribute value", 0});
    expectFailure(failureOf([] { rdnOf("cn=").str(); }), {34, 1013, "Missing RDN attribute value", 0});
}

TEST(LdifDn, EmptyValueFormsAreThoseOfTheRoadTaken)
{
    EXPECT_EQ(parsed("cn=")[0][0].second.form, LDIF_RDN_value::quoted);
    EXPECT_EQ(parsed("cn=\"\"")[0][0].second.form, LDIF_RDN_value::quoted);
    EXPECT_EQ(parsed("cn=#")[0][0].second.form, LDIF_RDN_value::binary);
}

TEST(LdifRdnValue, OuterBlanksOfAPlainValuePrintAsHexPairs)
{
    inBothLocales([&] {
        LDIF_RDN_value value = valueOf("x");
        value.assign(" \ta b\t ");
        EXPECT_EQ(value.str(), "\\20\\09a b\\09\\20");
        value.assign("\n,\v");
        EXPECT_EQ(value.str(), "\\0A\\,\\0B");
    });
}

TEST(LdifRdnValue, FormDecidesThePrintedForm)
{
    LDIF_RDN_value value = valueOf("x");
    value.assign(" a\"\\,");
    value.form = LDIF_RDN_value::binary;
    EXPECT_EQ(value.str(), "#2061225C2C");
    value.form = LDIF_RDN_value::quoted;
    EXPECT_EQ(value.str(), R"(" a\"\\,")");
    value.form = LDIF_RDN_value::plain;
    EXPECT_EQ(value.str(), R"(\20a\"\\\,)");
}

TEST(LdifRdnValue, InnerWideBlankPrintsAsItsLowByte)
{
    const LocaleGuard guard("C.UTF-8");
    ASSERT_NE(std::iswspace(0x2003), 0);
    ASSERT_NE(std::iswspace(0x2028), 0);
    ASSERT_NE(std::iswspace(0x3000), 0);
    EXPECT_EQ(valueOf("a\u2003b").str(), "a\x03"
                                         "b");
    EXPECT_EQ(valueOf("a\u2028b").str(), "a(b");
    EXPECT_EQ(valueOf("a\u3000b").str(), "a\0b"s);
    EXPECT_EQ(parsed("cn=ü\u2003ü, o=x").str(), "cn=ü\x03ü, o=x");
}

TEST(LdifRdnValue, OuterWideBlankPrintsAsTheHexPairOfItsLowByte)
{
    const LocaleGuard guard("C.UTF-8");
    ASSERT_NE(std::iswspace(0x2003), 0);
    EXPECT_EQ(valueOf("\\E2\\80\\83a").str(), "\\03a");
    LDIF_RDN_value value = valueOf("x");
    value.assign("\u2028é\u3000");
    EXPECT_EQ(value.str(), "\\28é\\00");
}

TEST(LdifDn, StreamsItsPrintedForm)
{
    std::ostringstream stream;
    const LDIF_DN dn = parsed("cn=b+cn=\"a\",o=#41");
    EXPECT_EQ(&(stream << dn), &stream);
    stream << "|" << dn[1] << "|" << dn[1][0] << "|" << dn[0][0].second;
    EXPECT_EQ(stream.str(), "cn=\"a\" + cn=b, o=#41|cn=\"a\" + cn=b|cn=\"a\"|#41");
}

// ---- Order ----

TEST(LdifRdnPair, ComparesTypesThenValuesWithoutRegardToCaseOrForm)
{
    struct Row
    {
        const char* name;
        const char* left;
        const char* right;
        int expected;
    };
    constexpr Row rows[] = {
        {"equal", "cn=a", "CN=A", 0},
        {"types first", "cn=z", "sn=a", -1},
        {"types without regard to case", "SN=a", "cn=z", 1},
        {"then values", "cn=a", "cn=B", -1},
        {"values without regard to case", "cn=B", "cn=a", 1},
        {"a longer value is greater", "cn=ab", "cn=a", 1},
        {"an empty value is the smallest", "cn=", "cn=a", -1},
        {"binary and plain", "cn=#41", "cn=a", 0},
        {"binary and quoted", "cn=#41", "cn=\"A\"", 0},
        {"comparison ends at a NUL", "cn=#410042", "cn=#410043", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LDIF_RDN_pair left = pairOf(row.left);
        const LDIF_RDN_pair right = pairOf(row.right);
        EXPECT_EQ(sign(left.compare(right)), row.expected);
        EXPECT_EQ(sign(right.compare(left)), -row.expected);
    }
}

TEST(LdifRdn, ComparesPairByPairAndThePrefixIsGreater)
{
    struct Row
    {
        const char* name;
        const char* left;
        const char* right;
        int expected;
    };
    constexpr Row rows[] = {
        {"equal in another order", "cn=a+sn=b", "SN=b+cn=A", 0},
        {"a prefix is greater", "cn=a", "cn=a+sn=b", 1},
        {"the first difference decides", "cn=a+sn=b", "cn=b", -1},
        {"the second pair", "cn=a+sn=b", "cn=a+sn=a", 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LDIF_RDN left = rdnOf(row.left);
        const LDIF_RDN right = rdnOf(row.right);
        EXPECT_EQ(sign(left.compare(right)), row.expected);
        EXPECT_EQ(sign(right.compare(left)), -row.expected);
    }
    // For exhausted arrays the number itself is fixed.
    EXPECT_EQ(rdnOf("cn=a").compare(rdnOf("cn=a+sn=b")), 1);
    EXPECT_EQ(rdnOf("cn=a+sn=b").compare(rdnOf("cn=a")), -1);
    EXPECT_EQ(LDIF_RDN().compare(LDIF_RDN()), 0);
    EXPECT_EQ(LDIF_RDN().compare(rdnOf("cn=a")), 1);
}

TEST(LdifDn, ComparesFromTheRootAndTheAncestorIsGreater)
{
    struct Row
    {
        const char* name;
        const char* left;
        const char* right;
        int expected;
    };
    constexpr Row rows[] = {
        {"two roots", "", "", 0},
        {"the root is the ancestor of all", "", "cn=a", 1},
        {"case and blanks", "CN=Foo, O=Bar", "cn=foo,o=bar", 0},
        {"form", "cn=#41", "cn=A", 0},
        {"ancestor", "o=x", "cn=a, o=x", 1},
        {"ancestor two levels up", "o=x", "cn=a, ou=b, o=x", 1},
        {"length plays no part", "cn=a, o=x", "cn=a, ou=y, o=x", -1},
        {"the root RDN decides", "cn=z, o=a", "cn=a, o=b", -1},
        {"siblings", "cn=b, o=x", "cn=a, o=x", 1},
        {"pairs in another order", "cn=a+sn=b, o=x", "sn=b+cn=a, o=x", 0},
        {"an RDN that begins another", "cn=a, o=x", "cn=a+sn=b, o=x", 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LDIF_DN left = parsed(row.left);
        const LDIF_DN right = parsed(row.right);
        EXPECT_EQ(sign(left.compare(right)), row.expected);
        EXPECT_EQ(sign(right.compare(left)), -row.expected);
    }
    EXPECT_EQ(parsed("").compare(parsed("cn=a")), 1);
    EXPECT_EQ(parsed("cn=a, o=x").compare(parsed("o=x")), -1);
    EXPECT_EQ(parsed("o=x").compare(parsed("cn=a, o=x")), 1);
}

namespace {

template <class Class>
void expectInvertedOrder(const Class& smaller, const Class& equalToSmaller, const Class& greater)
{
    // smaller.compare(greater) > 0: "smaller" is the one that sorts first.
    EXPECT_GT(smaller.compare(greater), 0);
    EXPECT_TRUE(smaller < greater);
    EXPECT_TRUE(smaller <= greater);
    EXPECT_TRUE(smaller != greater);
    EXPECT_FALSE(smaller > greater);
    EXPECT_FALSE(smaller >= greater);
    EXPECT_FALSE(smaller == greater);
    EXPECT_FALSE(greater < smaller);
    EXPECT_FALSE(greater <= smaller);
    EXPECT_TRUE(greater > smaller);
    EXPECT_TRUE(greater >= smaller);
    EXPECT_TRUE(smaller == equalToSmaller);
    EXPECT_TRUE(smaller <= equalToSmaller);
    EXPECT_TRUE(smaller >= equalToSmaller);
    EXPECT_FALSE(smaller != equalToSmaller);
    EXPECT_FALSE(smaller < equalToSmaller);
    EXPECT_FALSE(smaller > equalToSmaller);
}

} // namespace

TEST(LdifDn, OrderingOperatorsAreInvertedOnAllThreeClasses)
{
    {
        SCOPED_TRACE("pair");
        expectInvertedOrder(pairOf("cn=b"), pairOf("CN=B"), pairOf("cn=a"));
    }
    {
        SCOPED_TRACE("RDN");
        expectInvertedOrder(rdnOf("cn=a"), rdnOf("CN=A"), rdnOf("cn=a+sn=b"));
    }
    {
        SCOPED_TRACE("DN, ancestor");
        expectInvertedOrder(parsed("o=x"), parsed("O=X"), parsed("cn=a, o=x"));
    }
    {
        SCOPED_TRACE("DN, siblings");
        expectInvertedOrder(parsed("cn=b, o=x"), parsed("CN=B,O=X"), parsed("cn=a, o=x"));
    }
    {
        SCOPED_TRACE("DN, cn and ou below one root");
        expectInvertedOrder(parsed("cn=a, ou=y, o=x"), parsed("cn=A,ou=Y,o=X"), parsed("cn=a, o=x"));
    }
    {
        SCOPED_TRACE("DN, root");
        expectInvertedOrder(parsed(""), LDIF_DN(), parsed("cn=a"));
    }
    // The strings beneath keep the usual sense.
    EXPECT_TRUE(cisString("a") < cisString("B"));
    EXPECT_TRUE(pairOf("cn=a").first < pairOf("sn=a").first);
    EXPECT_TRUE(pairOf("cn=a").second < pairOf("cn=b").second);
}

TEST(LdifDn, OperatorsGoThroughTheVirtualComparison)
{
    struct AlwaysGreater : LDIF_DN
    {
        int compare(const LDIF_DN&) const override { return 7; }
    };
    struct AlwaysSmallerRdn : LDIF_RDN
    {
        int compare(const LDIF_RDN&) const override { return -7; }
    };
    struct AlwaysEqualPair : LDIF_RDN_pair
    {
        using LDIF_RDN_pair::LDIF_RDN_pair;
        int compare(const LDIF_RDN_pair&) const override { return 0; }
    };
    const AlwaysGreater dn;
    const LDIF_DN& asDn = dn;
    EXPECT_TRUE(asDn < LDIF_DN());
    EXPECT_TRUE(asDn <= LDIF_DN());
    EXPECT_TRUE(asDn != LDIF_DN());
    EXPECT_FALSE(asDn == LDIF_DN());
    EXPECT_FALSE(asDn > LDIF_DN());
    EXPECT_FALSE(asDn >= LDIF_DN());
    const AlwaysSmallerRdn rdn;
    const LDIF_RDN& asRdn = rdn;
    EXPECT_TRUE(asRdn > LDIF_RDN());
    EXPECT_TRUE(asRdn >= LDIF_RDN());
    EXPECT_FALSE(asRdn < LDIF_RDN());
    cisString text = "cn=a";
    const AlwaysEqualPair pair(text);
    const LDIF_RDN_pair& asPair = pair;
    EXPECT_TRUE(asPair == pairOf("sn=z"));
    EXPECT_FALSE(asPair != pairOf("sn=z"));
    EXPECT_TRUE(asPair >= pairOf("sn=z"));
}

TEST(LdifDn, SetListsAncestorsFirstAndSiblingsBackwards)
{
    std::set<LDIF_DN> dns;
    for (const char* text :
         {"cn=a, o=x", "o=x", "cn=b, o=x", "", "cn=c, cn=a, o=x", "O=X", "o=y", "CN=B,o=x", "cn=a, ou=y, o=x"}) {
        dns.insert(parsed(text));
    }
    std::vector<std::string> printed;
    std::transform(dns.begin(), dns.end(), std::back_inserter(printed), [](const LDIF_DN& dn) { return dn.str(); });
    const std::vector<std::string> expected = {
        "", "o=y", "o=x", "cn=a, ou=y, o=x", "cn=b, o=x", "cn=a, o=x", "cn=c, cn=a, o=x"};
    EXPECT_EQ(printed, expected);
}

// ---- Arithmetic ----

TEST(LdifDn, AddingAnRdnGoesOneLevelDeeper)
{
    LDIF_DN dn = parsed("o=x");
    const LDIF_RDN rdn = rdnOf("cn=a");
    EXPECT_EQ(&(dn += rdn), &dn);
    EXPECT_EQ(dn.str(), "cn=a, o=x");
    // Nothing is checked.
    dn += rdn;
    dn += LDIF_RDN();
    EXPECT_EQ(dn.size(), 4U);
    EXPECT_EQ(rdn.str(), "cn=a");
}

TEST(LdifDn, IntersectionIsTheNearestCommonAncestor)
{
    struct Row
    {
        const char* name;
        const char* left;
        const char* right;
        const char* expected;
    };
    constexpr Row rows[] = {
        {"siblings", "cn=a, o=x", "cn=b, o=x", "o=x"},
        {"different suffixes", "o=x", "o=y", ""},
        {"same leaf below different suffixes", "cn=a, o=x", "cn=a, o=y", ""},
        {"ancestor", "cn=a, ou=b, o=x", "ou=b, o=x", "ou=b, o=x"},
        {"descendant", "ou=b, o=x", "cn=a, ou=b, o=x", "ou=b, o=x"},
        {"equal but for case", "cn=a, o=x", "CN=A,O=X", "cn=a, o=x"},
        {"with the root", "cn=a, o=x", "", ""},
        {"of the root", "", "cn=a", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LDIF_DN left = parsed(row.left);
        const LDIF_DN right = parsed(row.right);
        EXPECT_TRUE(left.intersection(right) == parsed(row.expected)) << left.intersection(right).str();
        EXPECT_EQ(left.str(), row.left);
    }
}

TEST(LdifDn, SubtractingAnAncestorMakesADnRelative)
{
    struct Row
    {
        const char* name;
        const char* from;
        const char* other;
        const char* expected;
    };
    constexpr Row rows[] = {
        {"ancestor", "cn=a, ou=b, o=c", "o=c", "cn=a, ou=b"},
        {"no ancestor: the common part goes", "cn=a, ou=b, o=c", "ou=x, o=c", "cn=a, ou=b"},
        {"nothing in common", "cn=a, o=c", "o=d", "cn=a, o=c"},
        {"itself", "cn=a, o=c", "CN=A, O=C", ""},
        {"a descendant", "o=c", "cn=a, o=c", ""},
        {"the root", "cn=a, o=c", "", "cn=a, o=c"},
        {"from the root", "", "o=c", ""},
        {"a repeated RDN goes once", "o=c, o=c", "o=c", "o=c"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        LDIF_DN dn = parsed(row.from);
        EXPECT_EQ(&(dn -= parsed(row.other)), &dn);
        EXPECT_EQ(dn.str(), row.expected);
    }
    LDIF_DN dn = parsed("cn=a, o=c");
    const LDIF_DN& same = dn;
    dn -= same;
    EXPECT_TRUE(dn.empty());
}

// ---- Size ----

TEST(LdifDn, HundredThousandRdnsAreQuick)
{
    constexpr int count = 100000;
    const LocaleGuard guard("C.UTF-8");
    for (const char* suffix : {"o=x", "o=ü"}) {
        SCOPED_TRACE(suffix);
        std::string text;
        for (int index = 0; index < count; ++index) {
            text += "cn=" + std::to_string(index) + ", ";
        }
        text += suffix;
        const LDIF_DN dn = parsed(text);
        ASSERT_EQ(dn.size(), count + 1U);
        EXPECT_EQ(dn.front().str(), suffix);
        EXPECT_EQ(dn.back().str(), "cn=0");
        EXPECT_EQ(dn.str(), text);
        EXPECT_EQ(dn.compare(parsed(text)), 0);
        EXPECT_EQ(dn.intersection(dn).size(), dn.size());
        LDIF_DN relative = dn;
        relative -= dn;
        EXPECT_TRUE(relative.empty());
    }
}

TEST(LdifRdn, HundredThousandPairsAreQuick)
{
    constexpr int count = 100000;
    const LocaleGuard guard("C.UTF-8");
    for (const char* last : {"cn=0", "cn=0ü"}) {
        SCOPED_TRACE(last);
        // Descending, so that every pair belongs in front of all before it.
        std::string text;
        for (int index = count; index > 0; --index) {
            text += "cn=" + std::to_string(1000000 + index) + "+";
        }
        text += last;
        const LDIF_RDN rdn = rdnOf(text);
        ASSERT_EQ(rdn.size(), count + 1U);
        EXPECT_EQ(rdn.front().str(), last);
        EXPECT_EQ(rdn.back().str(), "cn=1100000");
        EXPECT_TRUE(std::is_sorted(rdn.begin(), rdn.end(),
                                   [](const auto& left, const auto& right) { return left.compare(right) < 0; }));
    }
}

TEST(LdifRdnValue, LongValuesAreQuick)
{
    constexpr std::size_t count = 1000000;
    const LocaleGuard guard("C.UTF-8");
    EXPECT_EQ(valueOf(std::string(count, 'a')).size(), count);
    EXPECT_EQ(valueOf("\"" + std::string(count, ',')).size(), count);
    EXPECT_EQ(valueOf("#" + std::string(2 * count, '4')).size(), count);
    std::string escaped;
    for (std::size_t index = 0; index < count; ++index) {
        escaped += "\\,";
    }
    EXPECT_EQ(valueOf(escaped), std::string(count, ','));
}

// ---- A second, literal reading of the grammar ----

namespace {

namespace model {

struct Refusal
{
    int libraryCode;
    std::string message;
    int records;
};

struct Pair
{
    std::string type;
    std::string value;
    int form;

    bool operator==(const Pair&) const = default;
};

using Rdn = std::vector<Pair>;
using Dn = std::vector<Rdn>;

const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
const std::string digits = "0123456789";
const std::string blanks = " \t\n\v\f\r";
const std::string specials = ",=+<>#;\\\"";

void stripFront(std::string& text)
{
    text.erase(0, std::min(text.find_first_not_of(blanks + "()"), text.size()));
}

void stripBack(std::string& text)
{
    text = text.c_str();
    while (!text.empty() && blanks.find(text.back()) != std::string::npos) {
        text.pop_back();
    }
    if (text.find_first_not_of(blanks + "()") == std::string::npos) {
        // Nothing but blanks and parentheses: a parenthesis in front is what survives.
        text.resize(!text.empty() && text.find_first_of("()") == 0 ? 1 : 0);
        return;
    }
    text.erase(text.find_last_not_of(blanks + "()") + 1);
}

template <class Work>
auto layer(Work&& work)
{
    try {
        return work();
    } catch (Refusal& refusal) {
        ++refusal.records;
        throw;
    }
}

std::string attribute(std::string& text)
{
    if (text.empty()) {
        throw Refusal{1011, "Missing RDN attribute", 1};
    }
    std::string allowed;
    if (letters.find(text[0]) != std::string::npos) {
        allowed = letters + digits + "-";
    } else if (digits.find(text[0]) != std::string::npos) {
        allowed = digits + ".";
    } else {
        throw Refusal{1012,
                      "Invalid attribute sytax: " +
                          (text.find('=') != std::string::npos ? text.substr(0, text.find('=')) : text.substr(0, 20)),
                      1};
    }
    const std::string type = text.substr(0, text.find_first_not_of(allowed));
    text.erase(0, type.size());
    stripFront(text);
    return type;
}

bool hexPair(std::string& w, std::string& value)
{
    const std::string hex = "0123456789ABCDEFabcdef";
    if (w.size() < 2 || hex.find(w[0]) == std::string::npos || hex.find(w[1]) == std::string::npos) {
        return false;
    }
    value += static_cast<char>(std::stoi(w.substr(0, 2), nullptr, 16));
    w.erase(0, 2);
    return true;
}

void escape(std::string& w, std::string& value, std::string& text)
{
    if (w.size() == 1) {
        throw Refusal{1014, "Invalid escape sequence: \\", 1};
    }
    w.erase(0, 1);
    if (hexPair(w, value)) {
        return;
    }
    if (specials.find(w[0]) != std::string::npos) {
        value += w[0];
        w.erase(0, 1);
        return;
    }
    text = "\\" + w;
    throw Refusal{1014, "Invalid escape sequence: " + text.substr(0, 3), 1};
}

void value(std::string& text, Pair& into)
{
    into.form = 1;
    if (text.empty()) {
        return;
    }
    std::string w = text;
    if (w[0] == '#') {
        into.form = 0;
        w.erase(0, 1);
        while (hexPair(w, into.value)) {
        }
    } else if (w[0] == '"') {
        w.erase(0, 1);
        while (!w.empty()) {
            if (w[0] == '"') {
                w.erase(0, 1);
                break;
            }
            if (w[0] == '\\') {
                escape(w, into.value, text);
            } else {
                into.value += w[0];
                w.erase(0, 1);
            }
        }
    } else {
        into.form = 2;
        while (!w.empty() && (w[0] == '\\' || specials.find(w[0]) == std::string::npos)) {
            if (w[0] == '\\') {
                escape(w, into.value, text);
            } else {
                into.value += w[0];
                w.erase(0, 1);
            }
        }
        stripBack(into.value);
    }
    stripFront(w);
    text = w;
}

Pair pair(std::string& text)
{
    if (text.empty()) {
        throw Refusal{1011, "Missing RDN attribute", 1};
    }
    Pair result;
    result.type = layer([&] { return attribute(text); });
    if (text.empty()) {
        throw Refusal{1013, "Missing RDN value: " + result.type, 1};
    }
    if (text[0] != '=') {
        throw Refusal{1012, std::string("Invalid character in RDN attribute: ") + text[0], 1};
    }
    text.erase(0, 1);
    stripFront(text);
    layer([&] { value(text, result); });
    return result;
}

int compare(const Pair& left, const Pair& right)
{
    const int types = strcasecmp(left.type.c_str(), right.type.c_str());
    return types != 0 ? types : strcasecmp(left.value.c_str(), right.value.c_str());
}

void add(Rdn& rdn, const Pair& added)
{
    for (auto place = rdn.begin(); place != rdn.end(); ++place) {
        const int difference = compare(added, *place);
        if (difference == 0) {
            return;
        }
        if (difference < 0) {
            rdn.insert(place, added);
            return;
        }
    }
    rdn.push_back(added);
}

Rdn rdn(std::string& text)
{
    if (text.empty()) {
        throw Refusal{1011, "Missing RDN attribute", 1};
    }
    Rdn result;
    for (;;) {
        add(result, layer([&] { return pair(text); }));
        if (text.empty() || text[0] == ',' || text[0] == ';') {
            return result;
        }
        if (text[0] != '+') {
            throw Refusal{1014, std::string("Invalid character in RDN value: ") + text[0], 1};
        }
        text.erase(0, 1);
        stripFront(text);
    }
}

void dn(std::string text, Dn& into)
{
    stripFront(text);
    while (!text.empty()) {
        into.insert(into.begin(), layer([&] { return rdn(text); }));
        if (text.empty()) {
            return;
        }
        text.erase(0, 1);
        stripFront(text);
        if (text.empty() || text.front() == ',' || text.front() == ';') {
            throw Refusal{1011, "Missing RDN attribute", 2};
        }
    }
}

Rdn of(const LDIF_RDN& rdn)
{
    Rdn result;
    for (const auto& part : rdn) {
        result.push_back({part.first, part.second, part.second.form});
    }
    return result;
}

Dn of(const LDIF_DN& dn)
{
    Dn result;
    for (const auto& part : dn) {
        result.push_back(of(part));
    }
    return result;
}

} // namespace model

} // namespace

namespace {

/// True for a text with an escaped byte beyond ASCII: whether it can be read is the locale's business and not the
/// grammar's. Tests of their own look at that.
bool escapesBeyondAscii(const std::string& text)
{
    for (std::size_t place = 0; place + 2 < text.size(); ++place) {
        if (text[place] == '\\' && std::string("89ABCDEFabcdef").find(text[place + 1]) != std::string::npos &&
            hexChar.find(text[place + 2]) != std::string::npos) {
            return true;
        }
    }
    return false;
}

/// Texts that are nearly DNs: every token of the grammar in any order, with a bias to what parses.
rc::Gen<std::string> nearlyDn()
{
    static const std::vector<std::string> tokens = {
        "cn=", "CN=", "o=", "2.5=", "cn=a", "o=b", "a",  "A",  "b",    "ab",   "z",   ",",    ";",     "+",
        "=",   "#",   "<",  ">",    "\"",   "\\",  " ",  "\t", "(",    ")",    "\\,", "\\\\", "\\\"",  "\\20",
        "41",  "4",   "0",  "-",    ".",    "_",   ", ", "cn", "\\00", "\\28", "\\2", "#41",  "\"x\"", " + sn=c"};
    const auto joined = rc::gen::map(rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(tokens)),
                                     [](const std::vector<std::string>& parts) {
                                         std::string text;
                                         for (const auto& part : parts) {
                                             text += part;
                                         }
                                         return text;
                                     });
    return rc::gen::suchThat(joined, [](const std::string& text) { return !escapesBeyondAscii(text); });
}

std::string describe(const std::optional<LDIF_Exception>& failure)
{
    return failure ? std::to_string(failure->extErr) + " " + failure->msg + " x" + std::to_string(recordsOf(*failure))
                   : "parsed";
}

template <class Work>
std::string describeModel(Work&& work)
{
    try {
        work();
        return "parsed";
    } catch (const model::Refusal& refusal) {
        return std::to_string(refusal.libraryCode) + " " + refusal.message + " x" + std::to_string(refusal.records);
    }
}

} // namespace

RC_GTEST_PROP(LdifDn, AgreesWithALiteralReadingOfTheGrammar, (bool inUtf8))
{
    const LocaleGuard guard(inUtf8 ? "C.UTF-8" : "C");
    const std::string text = *nearlyDn();
    LDIF_DN dn;
    model::Dn expected;
    const std::string outcome = describe(failureOf([&] { dn = cisString(text); }));
    RC_ASSERT(outcome == describeModel([&] { model::dn(text, expected); }));
    RC_ASSERT((model::of(dn) == expected));
}

RC_GTEST_PROP(LdifRdn, LeavesWhatALiteralReadingOfTheGrammarLeaves, (bool inUtf8))
{
    const LocaleGuard guard(inUtf8 ? "C.UTF-8" : "C");
    const std::string text = *nearlyDn();
    cisString rest = text;
    std::string expectedRest = text;
    LDIF_RDN rdn;
    model::Rdn expected;
    const std::string outcome = describe(failureOf([&] { rdn = LDIF_RDN(rest); }));
    RC_ASSERT(outcome == describeModel([&] { expected = model::rdn(expectedRest); }));
    RC_ASSERT((model::of(rdn) == expected));
    RC_ASSERT(static_cast<const std::string&>(rest) == expectedRest);
}

// A first RDN beyond ASCII sends all that follows down the wide road.
RC_GTEST_PROP(LdifDn, WideRoadAgreesWithTheAsciiRoad, ())
{
    const LocaleGuard guard("C.UTF-8");
    const std::string text = *nearlyDn();
    const auto start = text.find_first_not_of(" \t()");
    // A separator at the start is a bad type in the one and nothing between two separators in the other.
    RC_PRE((start != std::string::npos && text[start] != ',' && text[start] != ';'));
    LDIF_DN ascii;
    LDIF_DN wide;
    const std::string asciiOutcome = describe(failureOf([&] { ascii = cisString(text); }));
    const std::string wideOutcome = describe(failureOf([&] { wide = cisString("ou=ü," + text); }));
    RC_ASSERT(asciiOutcome == wideOutcome);
    RC_ASSERT(wide.size() == ascii.size() + 1);
    RC_ASSERT(wide.back().str() == "ou=ü");
    wide.pop_back();
    RC_ASSERT((model::of(wide) == model::of(ascii)));
}

// ---- Properties ----

namespace {

/// The text of a value in one of its three forms, every byte of a plain one escaped.
std::string written(const std::string& bytes, int form)
{
    std::string text = form == LDIF_RDN_value::binary ? "#" : form == LDIF_RDN_value::quoted ? "\"" : "";
    for (const char byte : bytes) {
        text += form == LDIF_RDN_value::binary ? "" : "\\";
        byte2hex(static_cast<unsigned char>(byte), text);
    }
    return form == LDIF_RDN_value::quoted ? text + "\"" : text;
}

bool isOuter(char character)
{
    return model::blanks.find(character) != std::string::npos || character == '(' || character == ')';
}

/// The text of a DN whose plain values have neither blanks nor parentheses at their ends.
rc::Gen<std::string> dnText(bool beyondAscii)
{
    return rc::gen::exec([=] {
        std::vector<std::string> characters;
        for (char character = 1; character > 0 && character < 0x7F; ++character) {
            characters.emplace_back(1, character);
        }
        if (beyondAscii) {
            characters.insert(characters.end(), {"ü", "É", "ß", "語", "😀"});
        }
        std::string text;
        const int levels = *rc::gen::inRange(0, 5);
        for (int level = 0; level < levels; ++level) {
            const int pairs = *rc::gen::inRange(1, 4);
            for (int pair = 0; pair < pairs; ++pair) {
                const int form = *rc::gen::inRange(0, 3);
                const auto parts =
                    *rc::gen::nonEmpty(rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(characters)));
                std::string bytes;
                for (const auto& part : parts) {
                    bytes += part;
                }
                if (form == LDIF_RDN_value::plain && (isOuter(bytes.front()) || isOuter(bytes.back()))) {
                    bytes = "x" + bytes + "y";
                }
                text += pair > 0 ? "+" : level > 0 ? "," : "";
                text += *rc::gen::elementOf(std::vector<std::string>{"cn", "CN", "ou", "2.5.4.3", "a-1"}) + "=" +
                        written(bytes, form);
            }
        }
        return text;
    });
}

/// A DN from few types and values, so that equal ones and ancestors are frequent.
rc::Gen<std::string> smallDnText()
{
    static const std::vector<std::string> rdns = {"cn=a", "CN=A",      "cn=b", "cn=#61", "cn=a+sn=b", "SN=B+cn=a",
                                                  "sn=b", "cn=\"ab\"", "o=x",  "O=X",    "cn="};
    return rc::gen::map(rc::gen::resize(4, rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(rdns))),
                        [](const std::vector<std::string>& parts) {
                            std::string text;
                            for (const auto& part : parts) {
                                text += text.empty() ? part : "," + part;
                            }
                            return text;
                        });
}

bool isAncestor(const LDIF_DN& ancestor, const LDIF_DN& dn)
{
    return ancestor.size() < dn.size() && ancestor.intersection(dn).size() == ancestor.size();
}

} // namespace

RC_GTEST_PROP(LdifDn, PrintedFormReadsBackTheSame, (bool inUtf8))
{
    const LocaleGuard guard(inUtf8 ? "C.UTF-8" : "C");
    const LDIF_DN dn = parsed(*dnText(inUtf8));
    const LDIF_DN again = parsed(dn.str());
    RC_ASSERT(again.compare(dn) == 0);
    RC_ASSERT((model::of(again) == model::of(dn)));
    RC_ASSERT(again.str() == dn.str());
}

RC_GTEST_PROP(LdifDn, CompareIsAnOrder, ())
{
    const LDIF_DN a = parsed(*smallDnText());
    const LDIF_DN b = parsed(*smallDnText());
    const LDIF_DN c = parsed(*smallDnText());
    RC_ASSERT(a.compare(a) == 0);
    RC_ASSERT(sign(a.compare(b)) == -sign(b.compare(a)));
    if (a.compare(b) <= 0 && b.compare(c) <= 0) {
        RC_ASSERT(a.compare(c) <= 0);
    }
    if (a.compare(b) == 0) {
        RC_ASSERT(sign(a.compare(c)) == sign(b.compare(c)));
    }
}

RC_GTEST_PROP(LdifDn, AncestorsComeOutGreater, ())
{
    const LDIF_DN a = parsed(*smallDnText());
    const LDIF_DN b = parsed(*smallDnText());
    if (isAncestor(a, b)) {
        RC_ASSERT(a.compare(b) == 1);
        RC_ASSERT(a < b);
    }
    LDIF_DN deeper = a;
    deeper += rdnOf("cn=z");
    RC_ASSERT(a.compare(deeper) == 1);
    RC_ASSERT(deeper.compare(a) == -1);
}

RC_GTEST_PROP(LdifDn, IntersectionAndDifferenceMakeTheWhole, ())
{
    const LDIF_DN a = parsed(*smallDnText());
    const LDIF_DN b = parsed(*smallDnText());
    LDIF_DN whole = a.intersection(b);
    RC_ASSERT((whole == b.intersection(a)));
    LDIF_DN rest = a;
    rest -= b;
    for (const auto& rdn : rest) {
        whole += rdn;
    }
    RC_ASSERT((whole == a));
}

RC_GTEST_PROP(LdifRdn, PairsAreAscendingAndDistinct, ())
{
    const auto parts = *rc::gen::nonEmpty(rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(
        std::vector<std::string>{"cn=a", "CN=A", "cn=b", "sn=\"a\"", "cn=#4142", "cn=ab", "OU=x", "ou=Y", "1.2=a"})));
    std::string text;
    for (const auto& part : parts) {
        text += text.empty() ? part : "+" + part;
    }
    const LDIF_RDN rdn = rdnOf(text);
    for (std::size_t index = 1; index < rdn.size(); ++index) {
        RC_ASSERT(rdn[index - 1].compare(rdn[index]) < 0);
    }
    // Of equal pairs the first written is kept, and adding one by one gives the same.
    LDIF_RDN added;
    for (const auto& part : parts) {
        added += pairOf(part);
        const auto kept = std::find_if(rdn.begin(), rdn.end(),
                                       [&](const LDIF_RDN_pair& pair) { return pair.compare(pairOf(part)) == 0; });
        RC_ASSERT(kept != rdn.end());
    }
    RC_ASSERT((model::of(added) == model::of(rdn)));
}

RC_GTEST_PROP(LdifDn, SetHasAncestorsBeforeDescendants, ())
{
    std::set<LDIF_DN> dns;
    const int count = *rc::gen::inRange(0, 20);
    for (int index = 0; index < count; ++index) {
        dns.insert(parsed(*smallDnText()));
    }
    for (auto earlier = dns.begin(); earlier != dns.end(); ++earlier) {
        for (auto later = std::next(earlier); later != dns.end(); ++later) {
            RC_ASSERT(!isAncestor(*later, *earlier));
            RC_ASSERT(earlier->compare(*later) > 0);
        }
    }
}

TEST(LdifDn, OnePrinterPrintsWhatEachDnPrints)
{
    veltor::detail::DnPrinter printer;
    const LDIF_DN suffix = parsed("o=\"x,y\"");
    LDIF_DN unit = suffix;
    unit += rdnOf("ou=a+cn=b");
    LDIF_DN leaf = unit;
    leaf += rdnOf("cn=1\\, 2");
    LDIF_DN sibling = unit;
    sibling += rdnOf("cn=#4142");
    const LDIF_DN root;
    const LDIF_DN stranger = parsed("cn=z, ou=a + cn=b, o=\"x,y\"");
    for (const LDIF_DN* const dn :
         std::initializer_list<const LDIF_DN*>{&root, &suffix, &unit, &leaf, &leaf, &sibling, &suffix, &stranger, &leaf,
                                               &root, &root, &sibling, &unit, &stranger}) {
        EXPECT_EQ(printer.print(*dn), dn->str());
    }
}

TEST(LdifDn, PrinterRefusesWhatPrintingRefuses)
{
    veltor::detail::DnPrinter printer;
    LDIF_DN dn = parsed("o=x");
    EXPECT_EQ(printer.print(dn), "o=x");
    LDIF_DN below = dn;
    below += rdnOf("cn=");
    expectFailure(failureOf([&] { printer.print(below); }), {34, 1013, "Missing RDN attribute value", 0});
}

RC_GTEST_PROP(LdifDn, OnePrinterPrintsWhatEachDnPrintsInAnyOrder, ())
{
    // Each DN shares RDNs with an earlier one, or says them anew.
    std::vector<LDIF_DN> dns = {LDIF_DN()};
    const int count = *rc::gen::inRange(1, 12);
    for (int index = 0; index < count; ++index) {
        LDIF_DN dn = dns[*rc::gen::inRange<std::size_t>(0, dns.size())];
        if (*rc::gen::inRange(0, 3) == 0) {
            dn = parsed(dn.str());
        }
        dn += rdnOf("cn=" + std::to_string(*rc::gen::inRange(0, 3)));
        dns.push_back(dn);
    }
    veltor::detail::DnPrinter printer;
    const int prints = *rc::gen::inRange(1, 30);
    for (int print = 0; print < prints; ++print) {
        const LDIF_DN& dn = dns[*rc::gen::inRange<std::size_t>(0, dns.size())];
        RC_ASSERT(std::string(printer.print(dn)) == dn.str());
    }
}
