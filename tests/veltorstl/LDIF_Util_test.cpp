// Case-insensitive strings and the text utilities, in the C locale and in a UTF-8 one. The narrow functions take a
// short road for ASCII; the properties at the end hold it against the road through wide characters.
#include "LDIF_Util.h"

#include "LDIF_Exception.h"
#include "support/locale_guard.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwctype>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <ostream>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <strings.h>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using namespace std::string_literals;
using veltor::test::LocaleGuard;

constexpr char cLocale[] = "C";
constexpr char utf8Locale[] = "C.UTF-8";

// é as two bytes and the ideographic space as three.
constexpr char eAcute[] = "\xC3\xA9";
constexpr char wideSpace[] = "\xE3\x80\x80";

// ---- cisString ----

static_assert(std::is_base_of_v<std::string, cisString> && std::is_convertible_v<cisString*, std::string*>);
static_assert(std::is_polymorphic_v<cisString>);
static_assert(!std::has_virtual_destructor_v<cisString>);
static_assert(!std::is_final_v<cisString>);
// A table of virtual functions and no data of its own.
static_assert(sizeof(cisString) == sizeof(std::string) + sizeof(void*));
static_assert(std::is_default_constructible_v<cisString> && std::is_copy_constructible_v<cisString>);

/// The six operators and compare of one argument kind.
template <class Argument>
void expectOrder(const cisString& left, Argument right, int sign)
{
    const int result = left.compare(right);
    EXPECT_EQ(result < 0, sign < 0);
    EXPECT_EQ(result > 0, sign > 0);
    EXPECT_EQ(left.operator==(right), sign == 0);
    EXPECT_EQ(left.operator!=(right), sign != 0);
    EXPECT_EQ(left.operator<(right), sign < 0);
    EXPECT_EQ(left.operator>(right), sign > 0);
    EXPECT_EQ(left.operator<=(right), sign <= 0);
    EXPECT_EQ(left.operator>=(right), sign >= 0);
    // As callers write them.
    EXPECT_EQ(left == right, sign == 0);
    EXPECT_EQ(left != right, sign != 0);
    EXPECT_EQ(left < right, sign < 0);
    EXPECT_EQ(left > right, sign > 0);
    EXPECT_EQ(left <= right, sign <= 0);
    EXPECT_EQ(left >= right, sign >= 0);
}

void expectOrderOfAllKinds(const std::string& left, const std::string& right, int sign)
{
    const cisString text(left);
    {
        SCOPED_TRACE("const char*");
        expectOrder<const char*>(text, right.c_str(), sign);
    }
    {
        SCOPED_TRACE("const std::string&");
        expectOrder<const std::string&>(text, right, sign);
    }
    {
        SCOPED_TRACE("const cisString&");
        expectOrder<const cisString&>(text, cisString(right), sign);
    }
}

TEST(CisString, ComparesWithoutRegardToCase)
{
    struct Row
    {
        const char* name;
        std::string left;
        std::string right;
        int sign;
    };
    const std::vector<Row> rows = {
        {"same text", "zor-slapdPort", "zor-slapdPort", 0},
        {"other case", "zor-slapdPort", "ZOR-SLAPDPORT", 0},
        {"case-blind although the bytes say otherwise", "a", "B", -1},
        {"and the other way around", "B", "a", 1},
        {"a prefix is less", "cn", "CN=x", -1},
        {"longer is greater", "cn=x", "CN", 1},
        {"both empty", "", "", 0},
        {"empty is less than anything", "", "a", -1},
        {"empty is less than a blank", "", " ", -1},
        {"anything is greater than empty", "\x01", "", 1},
        {"letters fold to lower case, so an underscore is less", "_", "A", -1},
        {"white space counts", "a ", "a", 1},
        {"comparison stops at a NUL", "abc\0x"s, "ABC\0y"s, 0},
        {"a NUL ends the left text", "ab\0x"s, "abc", -1},
        {"a NUL ends the right text", "abc", "ab\0x"s, 1},
        {"a NUL alone is the empty text", "\0abc"s, "", 0},
        {"bytes above ASCII are greater than letters", "\xC3", "z", 1},
        {"bytes above ASCII do not fold", "\xC3\xA9", "\xC3\x89", 1},
    };
    for (const char* const locale : {cLocale, utf8Locale}) {
        const LocaleGuard guard(locale);
        SCOPED_TRACE(locale);
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            expectOrderOfAllKinds(row.left, row.right, row.sign);
        }
    }
}

TEST(CisString, CompareGivesTheResultOfStrcasecmp)
{
    const LocaleGuard guard(cLocale);
    const std::vector<std::string> texts = {"", "a", "B", "zor-slapdPort", "ZOR-slapdport", "zz", "\xFF", "0"};
    for (const std::string& left : texts) {
        for (const std::string& right : texts) {
            SCOPED_TRACE(left + " and " + right);
            const int expected = strcasecmp(left.c_str(), right.c_str());
            EXPECT_EQ(cisString(left).compare(right.c_str()), expected);
            EXPECT_EQ(cisString(left).compare(right), expected);
            EXPECT_EQ(cisString(left).compare(cisString(right)), expected);
        }
    }
}

TEST(CisString, KeepsItsTextAsItWasGiven)
{
    cisString text("MiXed");
    EXPECT_EQ(static_cast<const std::string&>(text), "MiXed"s);
    EXPECT_STREQ(text.c_str(), "MiXed");
    text = "OTHER";
    EXPECT_STREQ(text.c_str(), "OTHER");
    EXPECT_EQ(cisString("with\0nul"s).size(), 8U);
    EXPECT_TRUE(cisString().empty());
    EXPECT_EQ(cisString(), "");
}

/// Answers what the test wants and counts the questions.
class FixedAnswer : public cisString
{
public:
    using cisString::cisString;
    using cisString::compare;
    int compare(const char* other) const override
    {
        ++asked;
        lastQuestion = other;
        return answer;
    }

    int answer = 0;
    mutable int asked = 0;
    mutable std::string lastQuestion;
};

template <class Argument>
void expectOperatorsToAsk(Argument right)
{
    for (const int answer : {-5, 0, 5}) {
        SCOPED_TRACE(answer);
        FixedAnswer text("same");
        text.answer = answer;
        const cisString& base = text;
        EXPECT_EQ(base.compare(right), answer);
        EXPECT_EQ(base.operator==(right), answer == 0);
        EXPECT_EQ(base.operator!=(right), answer != 0);
        EXPECT_EQ(base.operator<(right), answer < 0);
        EXPECT_EQ(base.operator>(right), answer > 0);
        EXPECT_EQ(base.operator<=(right), answer <= 0);
        EXPECT_EQ(base.operator>=(right), answer >= 0);
        EXPECT_EQ(text.asked, 7);
        EXPECT_EQ(text.lastQuestion, "same");
    }
}

TEST(CisString, EveryOperatorAsksTheVirtualCompareOfCharacters)
{
    expectOperatorsToAsk<const char*>("same");
    expectOperatorsToAsk<const std::string&>(std::string("same"));
    expectOperatorsToAsk<const cisString&>(cisString("same"));
}

TEST(CisString, AnEmptyArgumentIsPassedAsTheEmptyText)
{
    FixedAnswer text("x");
    const cisString& base = text;
    text.lastQuestion = "none yet";
    base.compare(std::string());
    EXPECT_EQ(text.lastQuestion, "");
    text.lastQuestion = "none yet";
    base.compare(cisString());
    EXPECT_EQ(text.lastQuestion, "");
}

TEST(CisString, OrdersASetWithoutRegardToCase)
{
    const LocaleGuard guard(cLocale);
    std::set<cisString> names;
    EXPECT_TRUE(names.insert("cn").second);
    EXPECT_TRUE(names.insert("Zor-slapdPort").second);
    EXPECT_TRUE(names.insert("B").second);
    EXPECT_TRUE(names.insert("a").second);
    EXPECT_FALSE(names.insert("ZOR-SLAPDPORT").second);
    EXPECT_FALSE(names.insert("A").second);

    std::vector<std::string> inOrder;
    for (const cisString& name : names) {
        inOrder.emplace_back(name.c_str());
    }
    EXPECT_EQ(inOrder, (std::vector<std::string>{"a", "B", "cn", "Zor-slapdPort"}));
    EXPECT_EQ(names.count("CN"), 1U);
    EXPECT_EQ(names.count("c"), 0U);
    EXPECT_STREQ(names.find("zor-slapdport")->c_str(), "Zor-slapdPort");
}

TEST(CisString, TheSlotsStandInTheOrderOfTheAbi)
{
    using Append = cisString& (cisString::*)(const std::wstring&, unsigned, unsigned);
    using Compare1 = int (cisString::*)(const char*) const;
    using Compare2 = int (cisString::*)(const std::string&) const;
    using Compare3 = int (cisString::*)(const cisString&) const;
    using Test1 = bool (cisString::*)(const char*) const;
    using Test2 = bool (cisString::*)(const std::string&) const;
    using Test3 = bool (cisString::*)(const cisString&) const;
    // The first word of a pointer to a virtual member function tells its place in the table.
    const auto place = [](auto function) {
        std::ptrdiff_t word = 0;
        std::memcpy(&word, &function, sizeof word);
        return word;
    };
    const std::vector<std::pair<const char*, std::ptrdiff_t>> slots = {
        {"append", place(static_cast<Append>(&cisString::append))},
        {"compare 1", place(static_cast<Compare1>(&cisString::compare))},
        {"compare 2", place(static_cast<Compare2>(&cisString::compare))},
        {"compare 3", place(static_cast<Compare3>(&cisString::compare))},
        {"== 1", place(static_cast<Test1>(&cisString::operator==))},
        {"== 2", place(static_cast<Test2>(&cisString::operator==))},
        {"== 3", place(static_cast<Test3>(&cisString::operator==))},
        {"< 1", place(static_cast<Test1>(&cisString::operator<))},
        {"< 2", place(static_cast<Test2>(&cisString::operator<))},
        {"< 3", place(static_cast<Test3>(&cisString::operator<))},
        {"> 1", place(static_cast<Test1>(&cisString::operator>))},
        {"> 2", place(static_cast<Test2>(&cisString::operator>))},
        {"> 3", place(static_cast<Test3>(&cisString::operator>))},
        {"!= 1", place(static_cast<Test1>(&cisString::operator!=))},
        {"!= 2", place(static_cast<Test2>(&cisString::operator!=))},
        {"!= 3", place(static_cast<Test3>(&cisString::operator!=))},
        {"<= 1", place(static_cast<Test1>(&cisString::operator<=))},
        {"<= 2", place(static_cast<Test2>(&cisString::operator<=))},
        {"<= 3", place(static_cast<Test3>(&cisString::operator<=))},
        {">= 1", place(static_cast<Test1>(&cisString::operator>=))},
        {">= 2", place(static_cast<Test2>(&cisString::operator>=))},
        {">= 3", place(static_cast<Test3>(&cisString::operator>=))},
    };
    std::ptrdiff_t expected = slots.front().second;
    for (const auto& [name, slot] : slots) {
        SCOPED_TRACE(name);
        EXPECT_EQ(slot, expected);
        expected += static_cast<std::ptrdiff_t>(sizeof(void*));
    }
}

TEST(CisString, AppendTakesAPartOfAWideText)
{
    struct Row
    {
        const char* name;
        std::wstring text;
        unsigned pos;
        unsigned n;
        const char* expected;
    };
    const std::vector<Row> rows = {
        {"all", L"wide", 0, 4, "start:wide"},
        {"from the middle", L"wide", 1, 2, "start:id"},
        {"more than there is", L"wide", 2, 100, "start:de"},
        {"as much as a number can say", L"wide", 0, UINT_MAX, "start:wide"},
        {"nothing", L"wide", 1, 0, "start:"},
        {"at the end", L"wide", 4, 3, "start:"},
        {"of the empty text", L"", 0, 3, "start:"},
        {"up to a NUL", std::wstring(L"wi\0de", 5), 0, 5, "start:wi"},
    };
    for (const char* const locale : {cLocale, utf8Locale}) {
        const LocaleGuard guard(locale);
        SCOPED_TRACE(locale);
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            cisString text("start:");
            cisString& result = text.append(row.text, row.pos, row.n);
            EXPECT_EQ(&result, &text);
            EXPECT_STREQ(text.c_str(), row.expected);
            EXPECT_EQ(text.size(), std::strlen(row.expected));
        }
    }
}

TEST(CisString, AppendConvertsToTheEncodingOfTheLocale)
{
    const LocaleGuard guard(utf8Locale);
    cisString text("caf");
    text.append(L"-\u00E9\u3000", 1, 2);
    EXPECT_STREQ(text.c_str(), ("caf"s + eAcute + wideSpace).c_str());
}

TEST(CisString, AppendBehindTheEndIsOutOfRange)
{
    for (const unsigned pos : {5U, 6U, UINT_MAX}) {
        SCOPED_TRACE(pos);
        cisString text("start");
        try {
            text.append(L"wide", pos, 1);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::out_of_range& failure) {
            EXPECT_STREQ(failure.what(), "basic_string::substr");
        }
        EXPECT_STREQ(text.c_str(), "start");
    }
}

TEST(CisString, AppendOfWhatTheLocaleCannotWriteLeavesTheText)
{
    const LocaleGuard guard(cLocale);
    cisString text("start");
    try {
        text.append(L"a\u00E9", 0, 2);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const LDIF_Exception& failure) {
        EXPECT_EQ(failure.ldapErr, 163);
        EXPECT_EQ(failure.extErr, 163);
        EXPECT_EQ(failure.msg, "wcstombs()");
    }
    EXPECT_STREQ(text.c_str(), "start");
    // The character that can't be written is not among those asked for.
    text.append(L"a\u00E9", 0, 1);
    EXPECT_STREQ(text.c_str(), "starta");
}

TEST(CisString, AppendGoesThroughItsVirtualSlot)
{
    class Refusing : public cisString
    {
    public:
        using cisString::append;
        cisString& append(const std::wstring&, unsigned, unsigned) override { return *this; }
    };
    Refusing text;
    cisString& base = text;
    base.append(L"wide", 0, 4);
    EXPECT_TRUE(base.empty());
}

// ---- Character classes ----

TEST(LdifUtil, TheCharacterClassStrings)
{
    EXPECT_EQ(empty_str, "");
    EXPECT_EQ(ALPHA, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
    EXPECT_EQ(DIGIT, "0123456789");
    EXPECT_EQ(hexChar, "0123456789ABCDEFabcdef");
    EXPECT_EQ(keyChar, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-");
    EXPECT_EQ(oidChar, "0123456789.");
    EXPECT_EQ(special, ",=+<>#;\\\"");
    EXPECT_EQ(hexChar.size(), 22U);
    EXPECT_EQ(special.size(), 9U);
}

// ---- Characters, in both locales ----

class LdifUtilIn : public testing::TestWithParam<const char*>
{
private:
    LocaleGuard locale_{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(BothLocales, LdifUtilIn, testing::Values(cLocale, utf8Locale),
                         [](const auto& locale) { return locale.param == std::string(cLocale) ? "C" : "Utf8"; });

/// The codes and texts of an LDIF_Exception, or nothing when none was thrown.
struct Failure
{
    int ldapErr;
    int extErr;
    std::string msg;
    std::string value;

    bool operator==(const Failure&) const = default;
};

std::optional<Failure> failureOf(const std::function<void()>& run)
{
    try {
        run();
    } catch (const LDIF_Exception& exception) {
        return Failure{exception.ldapErr, exception.extErr, exception.msg, exception.value};
    }
    return std::nullopt;
}

std::ostream& operator<<(std::ostream& stream, const Failure& failure)
{
    return stream << failure.ldapErr << '/' << failure.extErr << ' ' << testing::PrintToString(failure.msg) << ' '
                  << testing::PrintToString(failure.value);
}

TEST_P(LdifUtilIn, SpaceIsWhatTheSystemSays)
{
    for (wchar_t character = 0; character < 0x3100; ++character) {
        ASSERT_EQ(w_my_isspace(character), std::iswspace(static_cast<std::wint_t>(character)) != 0)
            << static_cast<long>(character);
    }
    for (const wchar_t space : {L' ', L'\t', L'\n', L'\v', L'\f', L'\r'}) {
        EXPECT_TRUE(w_my_isspace(space)) << static_cast<long>(space);
    }
    for (const wchar_t other : {L'\0', L'a', L'(', L')', L'#', L':'}) {
        EXPECT_FALSE(w_my_isspace(other)) << static_cast<long>(other);
    }
}

TEST_P(LdifUtilIn, TheShortRoadKnowsTheSameSpaces)
{
    for (int character = 0; character < 128; ++character) {
        EXPECT_EQ(veltor::detail::isAsciiSpace(static_cast<char>(character)),
                  w_my_isspace(static_cast<wchar_t>(character)))
            << character;
    }
}

TEST_P(LdifUtilIn, ParenthesesAreExactlyTwo)
{
    for (wchar_t character = 0; character < 0x10000; ++character) {
        ASSERT_EQ(w_my_isparen(character), character == L'(' || character == L')') << static_cast<long>(character);
    }
}

TEST_P(LdifUtilIn, PlainAsciiIsFreeOfNulAndOfHighBytesWhereverTheyStand)
{
    EXPECT_TRUE(veltor::detail::localeReadsAscii());
    EXPECT_TRUE(veltor::detail::isPlainAscii(""));
    for (std::size_t length = 1; length <= 20; ++length) {
        for (std::size_t position = 0; position < length; ++position) {
            for (int byte = 0; byte < 256; ++byte) {
                // Neighbours at both ends of the plain range, where a carry between bytes would show.
                for (const char neighbour : {'\x01', '\x7F'}) {
                    std::string text(length, neighbour);
                    text[position] = static_cast<char>(byte);
                    ASSERT_EQ(veltor::detail::isPlainAscii(text), byte > 0 && byte < 0x80)
                        << "length " << length << ", position " << position << ", byte " << byte;
                }
            }
        }
    }
}

TEST_P(LdifUtilIn, BlankIsWhiteSpaceAlone)
{
    struct Row
    {
        const char* name;
        std::string text;
        bool expected;
    };
    const std::vector<Row> rows = {
        {"empty", "", true},
        {"a blank and a tab", " \t", true},
        {"all six", " \t\n\v\f\r", true},
        {"a letter", "a", false},
        {"a letter between blanks", "  a  ", false},
        {"a letter behind many blanks", std::string(40, ' ') + "a", false},
        {"parentheses are not white space", "( )", false},
        {"a control character", "\x01", false},
        {"a NUL ends the text", " \0a"s, true},
        {"a NUL alone", "\0"s, true},
        {"what stands behind a NUL is not even converted", "\0\xFF"s, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(isBlank(row.text), row.expected);
    }
    EXPECT_TRUE(w_isBlank(L""));
    EXPECT_TRUE(w_isBlank(L" \t\n\v\f\r"));
    EXPECT_FALSE(w_isBlank(L" a"));
    EXPECT_FALSE(w_isBlank(L"()"));
    // A wide text is looked at as a whole.
    EXPECT_FALSE(w_isBlank(std::wstring(L" \0 ", 3)));
}

struct StripRow
{
    const char* name;
    std::string text;
    std::string expected;
};

const std::vector<StripRow> leadingRows = {
    {"empty", "", ""},
    {"nothing to strip", "abc", "abc"},
    {"space and parenthesis", "  (abc)", "abc)"},
    {"mixed", " ( ) (\t)abc", "abc"},
    {"all white space", "\t\n\v\f\r x", "x"},
    {"only the front", "( a ) ", "a ) "},
    {"nothing else", " ( ) ", ""},
    {"blanks alone", "   ", ""},
    {"brackets of other kinds stay", "[{<a", "[{<a"},
    {"up to a NUL", "  a\0b"s, "a"},
    {"a NUL in front", "\0a"s, ""},
    {"a NUL behind what goes", " (\0a"s, ""},
};

const std::vector<StripRow> trailingRows = {
    {"empty", "", ""},
    {"nothing to strip", "abc", "abc"},
    {"parenthesis and space", "abc) ", "abc"},
    {"mixed", "abc( ) (\t)\n", "abc"},
    {"all white space", "x \t\n\v\f\r", "x"},
    {"only the end", " ( a )", " ( a"},
    {"one character", "a", "a"},
    {"one blank", " ", ""},
    {"blanks alone", "   ", ""},
    {"brackets of other kinds stay", "a]}>", "a]}>"},
    {"up to a NUL", "a ) \0b"s, "a"},
    {"a NUL behind what goes", "a \0"s, "a"},
    {"a NUL in front", "\0a"s, ""},
};

// Deliberate: the character that the walk ends on is kept unless it is white space.
const std::vector<StripRow> survivingRows = {
    {"the first of two", "( )", "("},
    {"alone", "(", "("},
    {"a closing one", ")", ")"},
    {"a pair", "()", "("},
    {"many", ")(()", ")"},
    {"with blanks behind", "(   ", "("},
    {"not when white space is first", " ()", ""},
    {"not when a tab is first", "\t( )", ""},
};

TEST_P(LdifUtilIn, StripLeadingTakesSpacesAndParenthesesFromTheFront)
{
    for (const StripRow& row : leadingRows) {
        SCOPED_TRACE(row.name);
        std::string narrow = row.text;
        std::string& result = stripLeading(narrow);
        EXPECT_EQ(&result, &narrow);
        EXPECT_EQ(narrow, row.expected);

        std::wstring wide = multibyte2wide(row.text);
        std::wstring& wideResult = w_stripLeading(wide);
        EXPECT_EQ(&wideResult, &wide);
        EXPECT_EQ(wide, std::wstring(row.expected.begin(), row.expected.end()));
    }
}

void expectStripTrailing(const std::vector<StripRow>& rows)
{
    for (const StripRow& row : rows) {
        SCOPED_TRACE(row.name);
        std::string narrow = row.text;
        std::string& result = stripTrailing(narrow);
        EXPECT_EQ(&result, &narrow);
        EXPECT_EQ(narrow, row.expected);

        std::wstring wide = multibyte2wide(row.text);
        std::wstring& wideResult = w_stripTrailing(wide);
        EXPECT_EQ(&wideResult, &wide);
        EXPECT_EQ(wide, std::wstring(row.expected.begin(), row.expected.end()));
    }
}

TEST_P(LdifUtilIn, StripTrailingTakesSpacesAndParenthesesFromTheEnd)
{
    expectStripTrailing(trailingRows);
}

TEST_P(LdifUtilIn, ATextOfSpacesAndParenthesesKeepsAParenthesisThatIsFirst)
{
    expectStripTrailing(survivingRows);
}

TEST_P(LdifUtilIn, WideTextsAreStrippedAcrossNuls)
{
    std::wstring leading(L" (\0a", 4);
    EXPECT_EQ(w_stripLeading(leading), std::wstring(L"\0a", 2));
    std::wstring trailing(L"a\0 )", 4);
    EXPECT_EQ(w_stripTrailing(trailing), std::wstring(L"a\0", 2));
}

TEST_P(LdifUtilIn, StrippingBothEndsTakesOuterParentheses)
{
    std::string text = "( x )";
    EXPECT_EQ(stripTrailing(stripLeading(text)), "x");
    std::string inner = "((a)(b))";
    EXPECT_EQ(stripTrailing(stripLeading(inner)), "a)(b");
}

// ---- Hexadecimal digits ----

TEST_P(LdifUtilIn, Hex2ByteTakesTwoDigitsOffTheFront)
{
    struct Row
    {
        const char* name;
        std::string text;
        int byte;
        std::string rest;
    };
    const std::vector<Row> rows = {
        {"lower case, then text", "4a rest", 0x4A, " rest"},
        {"upper case", "4A", 0x4A, ""},
        {"both cases", "aB", 0xAB, ""},
        {"digits first", "00", 0x00, ""},
        {"the largest", "ff", 0xFF, ""},
        {"the largest in upper case", "FF", 0xFF, ""},
        {"a sign", "80x", 0x80, "x"},
        {"only two", "123456", 0x12, "3456"},
        {"a NUL behind ends the text", "41\0rest"s, 0x41, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::string text = row.text;
        char byte = '?';
        EXPECT_TRUE(hex2byte(text, byte));
        EXPECT_EQ(static_cast<unsigned char>(byte), row.byte);
        EXPECT_EQ(text, row.rest);

        std::wstring wide = multibyte2wide(row.text);
        char wideByte = '?';
        EXPECT_TRUE(w_hex2byte(wide, wideByte));
        EXPECT_EQ(static_cast<unsigned char>(wideByte), row.byte);
        EXPECT_EQ(wide, std::wstring(row.rest.begin(), row.rest.end()));
    }
}

TEST_P(LdifUtilIn, Hex2ByteKnowsEveryPairOfDigits)
{
    const std::string digits = "0123456789ABCDEF";
    for (unsigned value = 0; value < 256; ++value) {
        for (const bool upperHigh : {false, true}) {
            for (const bool upperLow : {false, true}) {
                const auto digit = [&](unsigned nibble, bool upper) {
                    const char character = digits[nibble];
                    return upper || character <= '9' ? character : static_cast<char>(character + ('a' - 'A'));
                };
                std::string text{digit(value >> 4U, upperHigh), digit(value & 0xFU, upperLow), '!'};
                SCOPED_TRACE(text);
                std::wstring wide(text.begin(), text.end());
                char byte = '?';
                ASSERT_TRUE(hex2byte(text, byte));
                EXPECT_EQ(static_cast<unsigned char>(byte), value);
                EXPECT_EQ(text, "!");
                char wideByte = '?';
                ASSERT_TRUE(w_hex2byte(wide, wideByte));
                EXPECT_EQ(static_cast<unsigned char>(wideByte), value);
                EXPECT_EQ(wide, L"!");
            }
        }
    }
}

TEST_P(LdifUtilIn, Hex2ByteRefusesEverythingElseAndLeavesTheText)
{
    const std::vector<StripRow> rows = {
        {"empty", "", ""},
        {"one digit", "4", ""},
        {"bad first", "g1", ""},
        {"bad second", "1g", ""},
        {"behind F", "4G", ""},
        {"before A", "4@", ""},
        {"behind 9", "4:", ""},
        {"before 0", "4/", ""},
        {"before a", "4`", ""},
        {"a blank in front", " 41", ""},
        {"a sign", "-4", ""},
        {"a prefix", "0x41", ""},
        {"a NUL in front", "\0ab"s, ""},
        {"a NUL in between", "4\0a"s, ""},
        {"a NUL behind, kept", "g1\0rest"s, ""},
    };
    for (const StripRow& row : rows) {
        SCOPED_TRACE(row.name);
        std::string text = row.text;
        char byte = '?';
        EXPECT_FALSE(hex2byte(text, byte));
        EXPECT_EQ(text, row.text);

        std::wstring wide(row.text.begin(), row.text.end());
        const std::wstring before = wide;
        EXPECT_FALSE(w_hex2byte(wide, byte));
        EXPECT_EQ(wide, before);
    }
}

TEST_P(LdifUtilIn, WideDigitsOfOtherAlphabetsAreNotHexadecimal)
{
    char byte = '?';
    // Fullwidth and Arabic-Indic digits, and characters whose low byte is that of a digit.
    for (const wchar_t character : {L'\uFF11', L'\u0661', L'\u0131', L'\u0141'}) {
        SCOPED_TRACE(static_cast<long>(character));
        std::wstring first{character, L'1'};
        EXPECT_FALSE(w_hex2byte(first, byte));
        EXPECT_EQ(first.size(), 2U);
        std::wstring second{L'1', character};
        EXPECT_FALSE(w_hex2byte(second, byte));
        EXPECT_EQ(second.size(), 2U);
    }
    EXPECT_EQ(veltor::detail::hexValue(L'\u0131'), -1);
}

TEST(LdifUtil, Byte2HexAppendsTwoUpperCaseDigits)
{
    std::string text = "start:";
    byte2hex(0x0F, text);
    EXPECT_EQ(text, "start:0F");
    byte2hex(0x00, text);
    EXPECT_EQ(text, "start:0F00");
    byte2hex(0xFF, text);
    EXPECT_EQ(text, "start:0F00FF");
}

TEST(LdifUtil, Byte2HexLooksAtTheLowByteAlone)
{
    for (const unsigned number : {0x1A5U, 0xFFFFFFA5U, 0x8000A5U}) {
        std::string text;
        byte2hex(number, text);
        EXPECT_EQ(text, "A5") << number;
    }
}

TEST_P(LdifUtilIn, EveryByteReadsBackFromItsDigits)
{
    for (unsigned value = 0; value < 256; ++value) {
        std::string text;
        byte2hex(value, text);
        ASSERT_EQ(text.size(), 2U);
        char byte = '?';
        ASSERT_TRUE(hex2byte(text, byte)) << value;
        EXPECT_EQ(static_cast<unsigned char>(byte), value);
        EXPECT_TRUE(text.empty());
    }
}

// ---- Conversions ----

TEST_P(LdifUtilIn, AsciiConvertsCharacterByCharacter)
{
    EXPECT_EQ(multibyte2wide(""), L"");
    EXPECT_EQ(wide2multibyte(L""), "");
    for (int character = 1; character < 128; ++character) {
        const std::string narrow(3, static_cast<char>(character));
        const std::wstring wide(3, static_cast<wchar_t>(character));
        EXPECT_EQ(multibyte2wide(narrow), wide) << character;
        EXPECT_EQ(wide2multibyte(wide), narrow) << character;
    }
}

TEST_P(LdifUtilIn, ConversionsStopAtANul)
{
    EXPECT_EQ(multibyte2wide("ab\0cd"s), L"ab");
    EXPECT_EQ(multibyte2wide("\0cd"s), L"");
    EXPECT_EQ(multibyte2wide("ab\0\xFF"s), L"ab");
    EXPECT_EQ(wide2multibyte(std::wstring(L"ab\0cd", 5)), "ab");
    EXPECT_EQ(wide2multibyte(std::wstring(L"\0cd", 3)), "");
    EXPECT_EQ(wide2multibyte(std::wstring(L"ab\0\xD800", 4)), "ab");
}

TEST_P(LdifUtilIn, TextThatTheLocaleCannotReadIs162)
{
    std::vector<std::string> texts = {"\xFF"s, "a\xFF z"s, std::string(eAcute, 1), "\x80", "ab\xC3"s, "\xED\xA0\x80"s};
    if (GetParam() == std::string(cLocale)) {
        // The C locale reads nothing beyond ASCII.
        texts.insert(texts.end(), {eAcute, wideSpace, "caf"s + eAcute});
    }
    for (const std::string& text : texts) {
        SCOPED_TRACE(testing::PrintToString(text));
        const Failure expected{162, 162, "mbstowcs( " + text + " )", text};
        EXPECT_EQ(failureOf([&] { multibyte2wide(text); }), expected);

        // Every function that widens fails alike, and leaves its text.
        std::string changed = text;
        char byte = '?';
        EXPECT_EQ(failureOf([&] { isBlank(text); }), expected);
        EXPECT_EQ(failureOf([&] { stripLeading(changed); }), expected);
        EXPECT_EQ(failureOf([&] { stripTrailing(changed); }), expected);
        EXPECT_EQ(failureOf([&] { hex2byte(changed, byte); }), expected);
        EXPECT_EQ(changed, text);
    }
}

TEST_P(LdifUtilIn, TheOffendingTextIsRecordedWhole)
{
    const std::string text = "a\xFF\0z"s;
    const auto failure = failureOf([&] { multibyte2wide(text); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->value, text);
}

TEST_P(LdifUtilIn, TextThatTheLocaleCannotWriteIs163)
{
    std::vector<std::wstring> texts = {std::wstring(1, static_cast<wchar_t>(0xD800)),
                                       std::wstring(L"abc") + static_cast<wchar_t>(0xDFFF)};
    if (GetParam() == std::string(cLocale)) {
        texts.insert(texts.end(), {L"\u00E9", L"a\u3000", L"\u0080"});
    }
    for (const std::wstring& text : texts) {
        SCOPED_TRACE(testing::PrintToString(text));
        EXPECT_EQ(failureOf([&] { wide2multibyte(text); }), (Failure{163, 163, "wcstombs()", ""}));
    }
}

TEST(LdifUtil, AFailedConversionNamesItsSourceWithoutABuildFolder)
{
    const LocaleGuard guard(cLocale);
    try {
        multibyte2wide("\xFF");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const LDIF_Exception& exception) {
        EXPECT_EQ(exception.srcFile, "LDIF_Util.cpp");
        EXPECT_GT(exception.srcLine, 0);
        EXPECT_EQ(exception.sysErrno, 0);
        EXPECT_EQ(exception.nested.get(), nullptr);
        EXPECT_EQ(exception.attrType, nullptr);
        EXPECT_EQ(exception.configFile + exception.entryDn + exception.attribute, "");
    }
}

TEST(LdifUtil, Utf8ConvertsCharacterByCharacter)
{
    const LocaleGuard guard(utf8Locale);
    const std::vector<std::pair<std::string, std::wstring>> pairs = {
        {eAcute, L"\u00E9"},
        {wideSpace, L"\u3000"},
        {"\xF0\x9F\x8C\xB3", L"\U0001F333"},
        {"a\xC3\xA9z\xE3\x80\x80", L"a\u00E9z\u3000"},
    };
    for (const auto& [narrow, wide] : pairs) {
        SCOPED_TRACE(narrow);
        EXPECT_EQ(multibyte2wide(narrow), wide);
        EXPECT_EQ(wide2multibyte(wide), narrow);
    }
}

TEST(LdifUtil, WideWhiteSpaceIsWhiteSpaceInUtf8)
{
    const LocaleGuard guard(utf8Locale);
    EXPECT_TRUE(isBlank(wideSpace));
    EXPECT_TRUE(isBlank(" "s + wideSpace + "\t\xE2\x80\x83"));
    EXPECT_FALSE(isBlank(wideSpace + "a"s));
    EXPECT_FALSE(isBlank("\xC2\xA0")) << "a no-break space is no white space to the system";
    std::string leading = wideSpace + "( "s + eAcute + wideSpace;
    EXPECT_EQ(stripLeading(leading), eAcute + std::string(wideSpace));
    std::string trailing = wideSpace + std::string(eAcute) + ")" + wideSpace + "(";
    EXPECT_EQ(stripTrailing(trailing), wideSpace + std::string(eAcute));
    std::string blanks = wideSpace + "()"s;
    EXPECT_EQ(stripTrailing(blanks), "");
    std::string parenthesis = "("s + wideSpace;
    EXPECT_EQ(stripTrailing(parenthesis), "(");
}

TEST(LdifUtil, Hex2ByteLeavesWideTextBehindItsDigits)
{
    const LocaleGuard guard(utf8Locale);
    char byte = '?';
    std::string text = "4a"s + eAcute + " z";
    ASSERT_TRUE(hex2byte(text, byte));
    EXPECT_EQ(byte, 'J');
    EXPECT_EQ(text, eAcute + " z"s);
    std::string refused = "4"s + eAcute;
    EXPECT_FALSE(hex2byte(refused, byte));
    EXPECT_EQ(refused, "4"s + eAcute);
}

TEST(LdifUtil, TheLocaleCountsAtTheTimeOfTheCall)
{
    const std::string text = wideSpace;
    for (int round = 0; round < 2; ++round) {
        {
            const LocaleGuard guard(utf8Locale);
            EXPECT_TRUE(isBlank(text));
        }
        {
            const LocaleGuard guard(cLocale);
            EXPECT_EQ(failureOf([&] { isBlank(text); }), (Failure{162, 162, "mbstowcs( " + text + " )", text}));
        }
    }
}

// ---- The short road and the wide one ----

/// What a call left and gave, or how it failed.
struct Outcome
{
    std::string text;
    int result = 0;
    std::optional<Failure> failure;

    bool operator==(const Outcome&) const = default;
};

template <class Call>
Outcome outcomeOf(const std::string& text, Call call)
{
    Outcome outcome{text, 0, std::nullopt};
    outcome.failure = failureOf([&] { outcome.result = call(outcome.text); });
    return outcome;
}

/// Texts of random bytes, texts of the pieces that the functions look at, and such texts of ASCII alone.
rc::Gen<std::string> anyText()
{
    const auto joined = [](const std::vector<std::string>& pieces) {
        std::string text;
        for (const std::string& piece : pieces) {
            text += piece;
        }
        return text;
    };
    const auto asciiPiece =
        rc::gen::element<std::string>(" ", "\t", "\r", "\n", "\v", "(", ")", "a", "F", "4", "g", ":", "\x01", "\x7F");
    const auto anyPiece =
        rc::gen::element<std::string>(" ", "\t", "\r", "(", ")", "a", "F", "4", "g", "\0"s, eAcute, wideSpace, "\xFF");
    // Every text of this kind can be converted in UTF-8, none with a wide character in the C locale.
    const auto utf8Piece = rc::gen::element<std::string>(" ", "\t", "(", ")", "a", "F", "4", eAcute, wideSpace);
    const auto byte = rc::gen::map(rc::gen::inRange(0, 256), [](int value) { return static_cast<char>(value); });
    return rc::gen::oneOf(rc::gen::container<std::string>(byte),
                          rc::gen::map(rc::gen::container<std::vector<std::string>>(anyPiece), joined),
                          rc::gen::map(rc::gen::container<std::vector<std::string>>(utf8Piece), joined),
                          rc::gen::map(rc::gen::container<std::vector<std::string>>(asciiPiece), joined));
}

void requireThatBothRoadsAgree(const std::string& text)
{
    RC_ASSERT(outcomeOf(text, [](std::string& s) { return isBlank(s) ? 1 : 0; }) ==
              outcomeOf(text, [](std::string& s) { return w_isBlank(multibyte2wide(s)) ? 1 : 0; }));
    RC_ASSERT(outcomeOf(text, [](std::string& s) {
                  stripLeading(s);
                  return 0;
              }) == outcomeOf(text, [](std::string& s) {
                  std::wstring wide = multibyte2wide(s);
                  s = wide2multibyte(w_stripLeading(wide));
                  return 0;
              }));
    RC_ASSERT(outcomeOf(text, [](std::string& s) {
                  stripTrailing(s);
                  return 0;
              }) == outcomeOf(text, [](std::string& s) {
                  std::wstring wide = multibyte2wide(s);
                  s = wide2multibyte(w_stripTrailing(wide));
                  return 0;
              }));
    // The result is the byte, or -1 for a refusal, after which the text is what it was.
    RC_ASSERT(outcomeOf(text, [](std::string& s) {
                  char byte = '?';
                  return hex2byte(s, byte) ? static_cast<int>(static_cast<unsigned char>(byte)) : -1;
              }) == outcomeOf(text, [](std::string& s) {
                  char byte = '?';
                  std::wstring wide = multibyte2wide(s);
                  if (!w_hex2byte(wide, byte)) {
                      return -1;
                  }
                  s = wide2multibyte(wide);
                  return static_cast<int>(static_cast<unsigned char>(byte));
              }));
}

RC_GTEST_PROP(LdifUtil, BothRoadsAgreeInTheCLocale, ())
{
    const LocaleGuard guard(cLocale);
    requireThatBothRoadsAgree(*anyText());
}

RC_GTEST_PROP(LdifUtil, BothRoadsAgreeInUtf8, ())
{
    const LocaleGuard guard(utf8Locale);
    requireThatBothRoadsAgree(*anyText());
}

RC_GTEST_PROP(LdifUtil, BothRoadsAgreeOnDigitsInFrontOfAnything, (bool inUtf8))
{
    const LocaleGuard guard(inUtf8 ? utf8Locale : cLocale);
    const auto digit = rc::gen::element('0', '9', 'A', 'F', 'a', 'f', 'G', 'g', '/', ':', '@', '`', ' ', '\0');
    requireThatBothRoadsAgree(std::string{*digit, *digit} + *anyText());
}

/// What comes out of the conversions goes back in, and the way back changes nothing.
RC_GTEST_PROP(LdifUtil, WhatCanBeReadCanBeWrittenBack, ())
{
    const LocaleGuard guard(utf8Locale);
    const std::string text = *anyText();
    std::wstring wide;
    if (failureOf([&] { wide = multibyte2wide(text); })) {
        RC_DISCARD("not UTF-8");
    }
    RC_ASSERT(wide2multibyte(wide) == std::string(text.c_str()));
}

/// All three argument kinds agree with the system's comparison.
RC_GTEST_PROP(CisString, EveryKindOfArgumentComparesAsStrcasecmpDoes, (bool inUtf8))
{
    const LocaleGuard guard(inUtf8 ? utf8Locale : cLocale);
    const auto letters = rc::gen::container<std::string>(rc::gen::element('a', 'A', 'b', 'B', '_', '\xC3', '\0'));
    const std::string left = *rc::gen::resize(6, letters);
    const std::string right = *rc::gen::resize(6, letters);
    const int expected = strcasecmp(left.c_str(), right.c_str());
    const cisString text(left);
    const auto agrees = [&](const auto& argument) {
        return text.compare(argument) == expected && text.operator==(argument) == (expected == 0) &&
               text.operator!=(argument) == (expected != 0) && text.operator<(argument) == (expected < 0) &&
               text.operator>(argument) == (expected > 0) && text.operator<=(argument) == (expected <= 0) &&
               text.operator>=(argument) == (expected >= 0);
    };
    const char* const characters = right.c_str();
    RC_ASSERT(agrees(characters));
    RC_ASSERT(agrees(right));
    RC_ASSERT(agrees(cisString(right)));
}

} // namespace
