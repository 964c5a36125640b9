// The value syntaxes: what each stores, refuses and compares. The password codec in use is the default one; what
// the syntaxes make of a codec's failures has a test program of its own.
#include "LDIF_AttrType.h"

#include "LDIF_DN.h"
#include "LDIF_Exception.h"
#include "LDIF_Value.h"
#include "support/failure_of.h"
#include "support/locale_guard.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <cwctype>
#include <gtest/gtest.h>
#include <optional>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using veltor::test::failureOf;
using veltor::test::inBothLocales;
using veltor::test::LocaleGuard;

namespace {

using namespace std::string_literals;

int sign(int number)
{
    return number < 0 ? -1 : number > 0 ? 1 : 0;
}

void expectFailure(const std::optional<LDIF_Exception>& failure, int ldapCode, int libraryCode,
                   const std::string& message, const std::string& value, const _AttrType* type)
{
    ASSERT_TRUE(failure.has_value()) << "nothing was thrown";
    EXPECT_EQ(failure->ldapErr, ldapCode);
    EXPECT_EQ(failure->extErr, libraryCode);
    EXPECT_EQ(failure->msg, message);
    EXPECT_EQ(failure->value, value);
    EXPECT_EQ(failure->attrType, type);
    EXPECT_FALSE(failure->srcFile.empty());
    EXPECT_EQ(failure->srcFile.find('/'), std::string::npos) << failure->srcFile;
    EXPECT_GT(failure->srcLine, 0);
}

/// A copy of a record of the catalogue with other bounds.
_AttrType bounded(const char* name, std::int32_t min, std::int32_t max)
{
    _AttrType type = *getAttrType(name);
    type.min = min;
    type.max = max;
    return type;
}

/// A value without text, binary form or DN, for the functions that fill one in.
LDIF_Value blank(const _AttrType* type)
{
    LDIF_Value value(getAttrType(nullptr), "");
    value.attrType = type;
    return value;
}

/// The text that a type stores for a text.
std::string stored(const _AttrType& type, const std::string& text)
{
    LDIF_Value value = blank(&type);
    type.fromStr(value, text);
    return value.str();
}

std::string storedFor(const char* name, const std::string& text)
{
    return stored(*getAttrType(name), text);
}

std::optional<LDIF_Exception> refusal(const _AttrType& type, const std::string& text)
{
    return failureOf([&] { stored(type, text); });
}

LDIF_Value valueOf(const char* name, const std::string& text)
{
    LDIF_Value value = blank(getAttrType(name));
    value.attrType->fromStr(value, text);
    return value;
}

std::int32_t numberOf(const LDIF_Value& value)
{
    int length = 0;
    const void* const block = value.attrType->toBin(value, length);
    std::int32_t number = 0;
    EXPECT_EQ(length, 4);
    std::memcpy(&number, block, sizeof number);
    return number;
}

/// An `int` type without a range.
_AttrType freeInt()
{
    return bounded("zor-slapdPort", 0, 0);
}

} // namespace

// ---- Which function serves which syntax ----

TEST(Syntax, FreeTextSyntaxesCompareAsTheyShould)
{
    struct Row
    {
        const char* attribute;
        bool ignoresCase;
    };
    constexpr Row rows[] = {
        {"charset", false},                        // ces
        {"cn", true},                              // cis
        {"zor-slapdSupportedACIMechanisms", true}, // oid
        {"zor-slapdKrbRealm", true},               // dc
        {"zor-slapdReferral", true},               // url
        {"zor-slapdKrbAdminDN", true},             // krbdn
        {"zor-slapdSetenv", true},                 // env
        {"zor-slapdErrorLog", false},              // path
        {"zor-slapdIncludeSchema", false},         // file
        {"zor-slapdPlugin", false},                // plugin
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.attribute);
        const _AttrType* const type = getAttrType(row.attribute);
        EXPECT_EQ(type->match(LDIF_Value(type, "ABC"), LDIF_Value(type, "abc")) == 0, row.ignoresCase);
        EXPECT_EQ(type->match(LDIF_Value(type, "abc"), LDIF_Value(type, "abc")), 0);
        EXPECT_NE(type->match(LDIF_Value(type, "abc"), LDIF_Value(type, "abd")), 0);
    }
}

TEST(Syntax, FreeTextSyntaxesCheckNothingButTheLength)
{
    struct Row
    {
        const char* attribute;
        const char* text;
    };
    constexpr Row rows[] = {
        {"zor-slapdErrorLog", "/no/such/directory/at all"},
        {"zor-slapdIncludeSchema", "no such file"},
        {"zor-slapdPlugin", "nonsense"},
        {"zor-slapdPlugin", ""},
        {"zor-slapdReferral", "http://not in the list"},
        {"zor-slapdReferral", ""},
        {"zor-slapdSupportedACIMechanisms", "not an oid"},
        {"zor-slapdKrbRealm", "not / a . domain"},
        {"zor-slapdKrbAdminDN", "=not=a=dn"},
        {"zor-slapdSetenv", "no equals sign"},
        {"zor-slapdIpAddress", "999.999"},
        {"unknown", "  ( kept as it is )  "},
        {"unknown", "é\xFF\x01"},
    };
    inBothLocales([&] {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(row.attribute) + " " + row.text);
            EXPECT_EQ(storedFor(row.attribute, row.text), row.text);
        }
    });
    for (const char* attribute : {"zor-slapdErrorLog", "zor-slapdIncludeSchema"}) {
        SCOPED_TRACE(attribute);
        const std::string longest(4096, 'x');
        EXPECT_EQ(storedFor(attribute, longest), longest);
        expectFailure(refusal(*getAttrType(attribute), longest + "x"), 21, 1018,
                      attribute + " length must be 1 to 4096 characters"s, longest + "x", getAttrType(attribute));
        expectFailure(refusal(*getAttrType(attribute), ""), 21, 1018,
                      attribute + " length must be 1 to 4096 characters"s, "", getAttrType(attribute));
    }
}

TEST(Syntax, BinaryDataIsRefusedByAllButNumbers)
{
    constexpr const char* attributes[] = {
        "charset",           "cn",
        "zor-slapdReadOnly", "zor-slapdSupportedACIMechanisms",
        "zor-slapdSuffix",   "zor-slapdKrbRealm",
        "zor-slapdReferral", "zor-slapdKrbAdminDN",
        "zor-slapdSetenv",   "zor-slapdAdminPW",
        "zor-slapdErrorLog", "zor-slapdIncludeSchema",
        "zor-slapdPlugin",   "unknown",
    };
    const char data[] = "data";
    for (const char* attribute : attributes) {
        SCOPED_TRACE(attribute);
        const _AttrType* const type = getAttrType(attribute);
        LDIF_Value value = blank(type);
        expectFailure(failureOf([&] { type->fromBin(value, data, 4); }), 92, 1008,
                      "Binary representation undefined for syntax: ces", "<binary>", type);
        expectFailure(failureOf([&] { type->fromBin(value, data, 1); }), 92, 1008,
                      "Binary representation undefined for syntax: ces", "<binary>", type);
        // Without data there is nothing to refuse.
        EXPECT_FALSE(failureOf([&] { type->fromBin(value, data, 0); }).has_value());
        EXPECT_FALSE(failureOf([&] { type->fromBin(value, data, -1); }).has_value());
        EXPECT_FALSE(failureOf([&] { type->fromBin(value, nullptr, 4); }).has_value());
        EXPECT_EQ(value.str(), "");
        EXPECT_EQ(value.binaryLength, 0);
    }
}

TEST(Syntax, NoBinaryFormToGiveIsRefusedByAllButNumbers)
{
    struct Row
    {
        const char* attribute;
        const char* text;
    };
    constexpr Row rows[] = {
        {"charset", "abc"},
        {"cn", "abc"},
        {"zor-slapdReadOnly", "true"},
        {"zor-slapdSupportedACIMechanisms", "1.2"},
        {"zor-slapdSuffix", "o=x"},
        {"zor-slapdKrbRealm", "abc"},
        {"zor-slapdReferral", "abc"},
        {"zor-slapdKrbAdminDN", "abc"},
        {"zor-slapdSetenv", "abc"},
        {"zor-slapdAdminPW", ">abc<"},
        {"zor-slapdErrorLog", "abc"},
        {"zor-slapdIncludeSchema", "abc"},
        {"zor-slapdPlugin", "abc"},
        {"unknown", "abc"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.attribute);
        const LDIF_Value value = valueOf(row.attribute, row.text);
        int length = 77;
        expectFailure(failureOf([&] { value.attrType->toBin(value, length); }), 92, 1008,
                      "Binary representation undefined for syntax: ces", row.text, value.attrType);
        EXPECT_EQ(length, 0);
    }
}

TEST(Syntax, MissingRepresentationsAreRaisedWithTheirSyntax)
{
    const _AttrType* const type = getAttrType("zor-slapdPort");
    const auto binary = failureOf([&] { BinarySyntaxNotImplemented("some.cpp", 12, "int", type, "text"); });
    expectFailure(binary, 92, 1008, "Binary representation undefined for syntax: int", "text", type);
    ASSERT_TRUE(binary.has_value());
    EXPECT_EQ(binary->srcFile, "some.cpp");
    EXPECT_EQ(binary->srcLine, 12);
    const auto string = failureOf([&] { StringSyntaxNotImplemented("other.cpp", 13, "blob", type, "value"); });
    expectFailure(string, 92, 1009, "String representation undefined for syntax: blob", "value", type);
    ASSERT_TRUE(string.has_value());
    EXPECT_EQ(string->srcFile, "other.cpp");
    EXPECT_EQ(string->srcLine, 13);
}

// ---- ces ----

TEST(Syntax, ANumberWithoutItsBinaryFormHasNoHash)
{
    _AttrType type = *getAttrType("zor-slapdPort");
    const veltor::detail::FoldTable fold = veltor::detail::foldTable();
    EXPECT_TRUE(veltor::detail::matchHash(LDIF_Value(&type, "389"), fold).has_value());
    type.fromStr = cesFromStr;
    EXPECT_FALSE(veltor::detail::matchHash(LDIF_Value(&type, "389"), fold).has_value());
}

TEST(SyntaxCes, ComparesBytesAndThenLengths)
{
    struct Row
    {
        const char* name;
        std::string left;
        std::string right;
        int expected;
    };
    const Row rows[] = {
        {"equal", "abc", "abc", 0},
        {"both empty", "", "", 0},
        {"case matters", "ABC", "abc", -1},
        {"a byte decides", "abd", "abc", 1},
        {"bytes are unsigned", "\x80", "z", 1},
        {"bytes beyond a NUL count", "a\0b"s, "a\0c"s, -1},
        {"the prefix decides before the length", "b", "abcdef", 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LDIF_Value left = valueOf("charset", row.left);
        const LDIF_Value right = valueOf("charset", row.right);
        EXPECT_EQ(sign(cesCompare(left, right)), row.expected);
        EXPECT_EQ(sign(cesCompare(right, left)), -row.expected);
    }
    EXPECT_EQ(cesCompare(valueOf("charset", "ab"), valueOf("charset", "abcde")), -3);
    EXPECT_EQ(cesCompare(valueOf("charset", "abcde"), valueOf("charset", "ab")), 3);
    EXPECT_EQ(cesCompare(valueOf("charset", ""), valueOf("charset", "ab")), -2);
}

TEST(SyntaxCes, StoresTextUnchanged)
{
    for (const std::string& text : {""s, "  (a) "s, "Abc"s, "a\nb\t"s, "a\0b"s, "\xFF\xC3"s}) {
        EXPECT_EQ(storedFor("charset", text), text);
    }
}

TEST(SyntaxCes, LengthRangeOfDbName)
{
    const _AttrType& type = *getAttrType("zor-slapdDbName");
    EXPECT_EQ(stored(type, "a"), "a");
    EXPECT_EQ(stored(type, "12345678"), "12345678");
    expectFailure(refusal(type, ""), 21, 1018, "zor-slapdDbName length must be 1 to 8 characters", "", &type);
    expectFailure(refusal(type, "123456789"), 21, 1018, "zor-slapdDbName length must be 1 to 8 characters", "123456789",
                  &type);
    // Bytes are counted, not characters.
    const LocaleGuard guard("C.UTF-8");
    EXPECT_EQ(stored(type, "üüüü"), "üüüü");
    expectFailure(refusal(type, "üüüüx"), 21, 1018, "zor-slapdDbName length must be 1 to 8 characters", "üüüüx", &type);
}

TEST(SyntaxCes, ZeroLeavesItsSideOfTheRangeOpen)
{
    struct Row
    {
        const char* name;
        std::int32_t min;
        std::int32_t max;
        std::size_t length;
        bool fits;
    };
    constexpr Row rows[] = {
        {"no bounds, empty", 0, 0, 0, true},
        {"no bounds, long", 0, 0, 100000, true},
        {"upper bound only, empty", 0, 3, 0, true},
        {"upper bound only, at it", 0, 3, 3, true},
        {"upper bound only, above", 0, 3, 4, false},
        {"lower bound only, below", 3, 0, 2, false},
        {"lower bound only, at it", 3, 0, 3, true},
        {"lower bound only, long", 3, 0, 100000, true},
        {"one length, below", 5, 5, 4, false},
        {"one length", 5, 5, 5, true},
        {"one length, above", 5, 5, 6, false},
        {"bounds the wrong way round", 5, 3, 4, false},
        {"unsigned lower bound", -1, 0, 100000, false},
        {"unsigned upper bound", 0, -1, 100000, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const _AttrType type = bounded("zor-slapdDbName", row.min, row.max);
        const std::string text(row.length, 'x');
        if (row.fits) {
            EXPECT_EQ(stored(type, text), text);
        } else {
            expectFailure(refusal(type, text), 21, 1018,
                          "zor-slapdDbName length must be " + std::to_string(row.min) + " to " +
                              std::to_string(row.max) + " characters",
                          text, &type);
        }
    }
}

TEST(SyntaxCes, NamelessTypeIsLeftOutOfTheMessage)
{
    _AttrType type = bounded("zor-slapdDbName", 2, 3);
    type.name = nullptr;
    expectFailure(refusal(type, "1"), 21, 1018, "length must be 2 to 3 characters", "1", &type);
    expectFailure(refusal(type, "1234"), 21, 1018, "length must be 2 to 3 characters", "1234", &type);
}

TEST(SyntaxCes, ValueWithoutATypeTakesAnyLength)
{
    LDIF_Value value = blank(nullptr);
    cesFromStr(value, std::string(5000, 'x'));
    EXPECT_EQ(cesToStr(value), std::string(5000, 'x'));
}

// ---- cis ----

TEST(SyntaxCis, ComparesWithoutRegardToCase)
{
    const auto compare = [](const char* left, const char* right) {
        return cisCompare(valueOf("cn", left), valueOf("cn", right));
    };
    EXPECT_EQ(compare("", ""), 0);
    EXPECT_EQ(compare("", "a"), -1);
    EXPECT_EQ(compare("a", ""), 1);
    EXPECT_EQ(compare("ABC", "abc"), 0);
    EXPECT_LT(compare("a", "B"), 0);
    EXPECT_GT(compare("B", "a"), 0);
    EXPECT_LT(compare("ab", "ABC"), 0);
    EXPECT_NE(cesCompare(valueOf("cn", "ABC"), valueOf("cn", "abc")), 0);
}

TEST(SyntaxCis, ChecksTheLengthToo)
{
    const _AttrType type = bounded("cn", 2, 3);
    EXPECT_EQ(stored(type, "aBc"), "aBc");
    expectFailure(refusal(type, "aBcd"), 21, 1018, "cn length must be 2 to 3 characters", "aBcd", &type);
}

// ---- enum ----

TEST(SyntaxEnum, TakesTheTextsOfItsListInAnyCaseAndStoresThemAsTyped)
{
    struct Row
    {
        const char* attribute;
        const char* text;
        bool fits;
    };
    constexpr Row rows[] = {
        {"zor-slapdReadOnly", "true", true},
        {"zor-slapdReadOnly", "TRUE", true},
        {"zor-slapdReadOnly", "False", true},
        {"zor-slapdReadOnly", "yes", false},
        {"zor-slapdReadOnly", "", false},
        {"zor-slapdReadOnly", "tru", false},
        {"zor-slapdReadOnly", "truee", false},
        {"zor-slapdReadOnly", " true", false},
        {"zor-slapdReadOnly", "true ", false},
        {"zor-slapdReadOnly", "(true)", false},
        {"zor-slapdSchemaCheck", "v3_LENIENT", true},
        {"zor-slapdSecurity", "ssltls", true},
        {"zor-slapdPwEncryption", "sha", true},
        {"zor-slapdPwEncryption", "md5", false},
        {"zor-slapdEThreadActivate", "S", true},
        {"zor-slapdEThreadActivate", "sat", true},
        {"zor-slapdEThreadActivate", "ldap", true},
        {"zor-slapdEThreadActivate", "ldaps", true},
        {"zor-slapdEThreadActivate", "LDAPS", true},
        {"zor-slapdEThreadActivate", "http", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.attribute) + " " + row.text);
        const _AttrType& type = *getAttrType(row.attribute);
        if (row.fits) {
            EXPECT_EQ(stored(type, row.text), row.text);
        } else {
            expectFailure(refusal(type, row.text), 21, 1017, "value not one of attrType.enumValues", row.text, &type);
        }
    }
}

TEST(SyntaxEnum, ComparesWithoutRegardToCase)
{
    const _AttrType* const type = getAttrType("zor-slapdReadOnly");
    EXPECT_EQ(type->match(LDIF_Value(type, "TRUE"), LDIF_Value(type, "true")), 0);
    EXPECT_NE(type->match(LDIF_Value(type, "true"), LDIF_Value(type, "false")), 0);
}

TEST(SyntaxEnum, NeedsAList)
{
    _AttrType type = *getAttrType("zor-slapdReadOnly");
    type.enumValues = nullptr;
    expectFailure(refusal(type, "true"), 80, 1000, "Enumerated values undefined", "true", &type);
    LDIF_Value value = blank(nullptr);
    expectFailure(failureOf([&] { enumFromStr(value, "true"); }), 80, 1000, "Enumerated values undefined", "true",
                  nullptr);
}

TEST(SyntaxEnum, EmptyListTakesNothing)
{
    static const char* const nothing[] = {nullptr};
    _AttrType type = *getAttrType("zor-slapdReadOnly");
    type.enumValues = nothing;
    expectFailure(refusal(type, "true"), 21, 1017, "value not one of attrType.enumValues", "true", &type);
}

TEST(SyntaxEnum, LengthIsCheckedBeforeTheList)
{
    const _AttrType type = bounded("zor-slapdReadOnly", 0, 4);
    EXPECT_EQ(stored(type, "true"), "true");
    expectFailure(refusal(type, "false"), 21, 1018, "zor-slapdReadOnly length must be 0 to 4 characters", "false",
                  &type);
}

// ---- int ----

TEST(SyntaxInt, StoresTheNumberAndItsNormalText)
{
    struct Row
    {
        const char* name;
        std::string text;
        std::int32_t number;
        const char* stored;
    };
    const Row rows[] = {
        {"plain", "389", 389, "389"},
        {"blanks", " 389 \t\n", 389, "389"},
        {"parentheses", "(42)", 42, "42"},
        {"blanks and parentheses", " ( ) 42 ) (", 42, "42"},
        {"plus and zeros", "+007", 7, "7"},
        {"minus", "-12", -12, "-12"},
        {"minus zero", "-0", 0, "0"},
        {"plus zero", "+0", 0, "0"},
        {"many zeros", "00000000000000000000012", 12, "12"},
        {"largest", "2147483647", INT_MAX, "2147483647"},
        {"smallest", "-2147483648", INT_MIN, "-2147483648"},
        // Stripping converts the text, and a conversion ends at the first NUL.
        {"ends at a NUL", "12\0x"s, 12, "12"},
    };
    const _AttrType type = freeInt();
    inBothLocales([&] {
        for (const auto& row : rows) {
            SCOPED_TRACE(row.name);
            LDIF_Value value = blank(&type);
            intFromStr(value, row.text);
            EXPECT_EQ(value.str(), row.stored);
            EXPECT_EQ(value.binaryLength, 4);
            EXPECT_EQ(numberOf(value), row.number);
        }
    });
}

TEST(SyntaxInt, RefusesWhatIsNoNumber)
{
    const _AttrType type = freeInt();
    inBothLocales([&] {
        for (const char* text : {"", " ", "()", "-", "+", " - ", "--1", "+-1", "-+1", "- 1", "1 2", "12a", "a12", "1.5",
                                 "0x10", "1-", "1e3", "12345678901234567890x"}) {
            SCOPED_TRACE("'" + std::string(text) + "'");
            expectFailure(refusal(type, text), 21, 1016, "Value is not valid integer syntax", text, &type);
        }
    });
}

TEST(SyntaxInt, RefusesWhatDoesNotFitIn32Bits)
{
    const _AttrType type = freeInt();
    for (const char* text : {"2147483648", "-2147483649", "2147483650", "4294967295", "4294967296", "4294967297",
                             "21474836470", "99999999999999999999", " (2147483648) "}) {
        SCOPED_TRACE(text);
        expectFailure(refusal(type, text), 21, 1015, "Integer value out of range", text, &type);
    }
}

TEST(SyntaxInt, WideBlanksAreStrippedAndWideDigitsRefused)
{
    const LocaleGuard guard("C.UTF-8");
    ASSERT_NE(std::iswspace(0x2003), 0);
    const _AttrType type = freeInt();
    EXPECT_EQ(stored(type, "\u2003389\u3000"), "389");
    expectFailure(refusal(type, "\u0663"), 21, 1016, "Value is not valid integer syntax", "\u0663", &type);
}

TEST(SyntaxInt, TextThatTheLocaleCannotReadIsRefused)
{
    const LocaleGuard guard("C");
    const auto failure = refusal(freeInt(), "12é");
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->ldapErr, 162);
    EXPECT_EQ(failure->extErr, 162);
    EXPECT_EQ(failure->msg, "mbstowcs( 12é )");
    EXPECT_EQ(failure->value, "12é");
}

TEST(SyntaxInt, RangeOfTheTypeHoldsForTexts)
{
    struct Row
    {
        const char* name;
        std::int32_t min;
        std::int32_t max;
        const char* text;
        bool fits;
    };
    constexpr Row rows[] = {
        {"port, lowest", 1, 65535, "1", true},
        {"port, highest", 1, 65535, "65535", true},
        {"port, zero", 1, 65535, "0", false},
        {"port, too high", 1, 65535, "65536", false},
        {"port, negative", 1, 65535, "-389", false},
        {"counter, zero", 0, INT_MAX, "0", true},
        {"counter, highest", 0, INT_MAX, "2147483647", true},
        {"counter, overflow", 0, INT_MAX, "2147483648", false},
        {"counter, negative", 0, INT_MAX, "-1", false},
        {"counter, minus zero", 0, INT_MAX, "-0", true},
        {"upper bound alone is a range", 0, 5, "-1", false},
        {"upper bound alone, inside", 0, 5, "5", true},
        {"lower bound alone refuses everything above 0", 5, 0, "5", false},
        {"lower bound alone refuses 0", 5, 0, "0", false},
        {"negative lower bound alone", -5, 0, "-5", true},
        {"negative lower bound alone, positive", -5, 0, "1", false},
        {"negative range", -5, -1, "-1", true},
        {"negative range, zero", -5, -1, "0", false},
        {"no range, anything", 0, 0, "-2147483648", true},
        {"one value", 1, 1, "1", true},
        {"one value, another", 1, 1, "2", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const _AttrType type = bounded("zor-slapdPort", row.min, row.max);
        const auto failure = refusal(type, row.text);
        if (row.fits) {
            EXPECT_FALSE(failure.has_value());
        } else {
            expectFailure(failure, 21, 1015, "Integer value out of range", row.text, &type);
        }
    }
}

TEST(SyntaxInt, PortOfTheCatalogue)
{
    EXPECT_EQ(storedFor("zor-slapdPort", " 389 "), "389");
    const _AttrType* const type = getAttrType("zor-slapdPort");
    for (const char* text : {"0", "65536"}) {
        expectFailure(refusal(*type, text), 21, 1015, "Integer value out of range", text, type);
    }
    for (const char* text : {"12a", "", "-"}) {
        expectFailure(refusal(*type, text), 21, 1016, "Value is not valid integer syntax", text, type);
    }
}

TEST(SyntaxInt, ComplaintCarriesTheTextAsItWasGiven)
{
    const _AttrType* const type = getAttrType("zor-slapdPort");
    expectFailure(refusal(*type, " (0) "), 21, 1015, "Integer value out of range", " (0) ", type);
    expectFailure(refusal(*type, " (x) "), 21, 1016, "Value is not valid integer syntax", " (x) ", type);
}

TEST(SyntaxInt, ValueWithoutATypeHasNoRange)
{
    LDIF_Value value = blank(nullptr);
    intFromStr(value, "-2147483648");
    EXPECT_EQ(cesToStr(value), "-2147483648");
    const std::int32_t number = 70000;
    intFromBin(value, &number, 4);
    EXPECT_EQ(cesToStr(value), "70000");
}

TEST(SyntaxInt, TakesABinaryNumber)
{
    const _AttrType* const type = getAttrType("zor-slapdPort");
    for (const int length : {4, 0, -1, 400}) {
        SCOPED_TRACE(length);
        LDIF_Value value = blank(type);
        const std::int32_t number = 389;
        // The length is not looked at.
        intFromBin(value, &number, length);
        EXPECT_EQ(value.str(), "389");
        EXPECT_EQ(value.binaryLength, 4);
        EXPECT_EQ(numberOf(value), 389);
    }
}

TEST(SyntaxInt, BinaryNumberNeedNotBeAligned)
{
    alignas(std::int32_t) char block[8] = {};
    const std::int32_t number = 389;
    std::memcpy(block + 1, &number, sizeof number);
    LDIF_Value value = blank(getAttrType("zor-slapdPort"));
    intFromBin(value, block + 1, 4);
    EXPECT_EQ(value.str(), "389");
}

TEST(SyntaxInt, NoBinaryNumberIsZero)
{
    LDIF_Value value = blank(getAttrType("zor-slapdSizeLimit"));
    intFromBin(value, nullptr, 4);
    EXPECT_EQ(value.str(), "0");
    EXPECT_EQ(numberOf(value), 0);
    const _AttrType* const port = getAttrType("zor-slapdPort");
    LDIF_Value other = blank(port);
    expectFailure(failureOf([&] { intFromBin(other, nullptr, 0); }), 21, 1015, "Integer value out of range", "0", port);
}

TEST(SyntaxInt, BinaryNumberKnowsNoExemptionForZeroBounds)
{
    const _AttrType type = freeInt();
    LDIF_Value value = blank(&type);
    std::int32_t number = 5;
    expectFailure(failureOf([&] { intFromBin(value, &number, 4); }), 21, 1015, "Integer value out of range", "5",
                  &type);
    number = -7;
    expectFailure(failureOf([&] { intFromBin(value, &number, 4); }), 21, 1015, "Integer value out of range", "-7",
                  &type);
    number = 0;
    intFromBin(value, &number, 4);
    EXPECT_EQ(value.str(), "0");
}

TEST(SyntaxInt, RangeOfTheTypeHoldsForBinaryNumbers)
{
    const _AttrType* const type = getAttrType("zor-slapdPort");
    for (const std::int32_t number : {0, 65536, -1, INT_MIN, INT_MAX}) {
        SCOPED_TRACE(number);
        LDIF_Value value = blank(type);
        expectFailure(failureOf([&] { intFromBin(value, &number, 4); }), 21, 1015, "Integer value out of range",
                      std::to_string(number), type);
    }
}

TEST(SyntaxInt, ASecondNumberReplacesTheFirst)
{
    LDIF_Value value = blank(getAttrType("zor-slapdPort"));
    intFromStr(value, "1");
    intFromStr(value, "2");
    EXPECT_EQ(numberOf(value), 2);
    EXPECT_EQ(value.str(), "2");
}

TEST(SyntaxInt, ComparisonIsReversedAndWraps)
{
    struct Row
    {
        const char* name;
        std::int32_t left;
        std::int32_t right;
        int expected;
    };
    constexpr Row rows[] = {
        {"smaller left gives +1", 1, 2, 1},
        {"greater left gives -1", 2, 1, -1},
        {"equal", 5, 5, 0},
        {"negative and positive", -1, 1, 1},
        {"far apart, the difference wraps", INT_MIN, INT_MAX, -1},
        {"far apart the other way, it wraps too", INT_MAX, INT_MIN, 1},
        {"the largest difference that fits", 0, INT_MAX, 1},
        {"the first that wraps", -1, INT_MAX, -1},
        {"the smallest difference that fits", INT_MAX, -1, -1},
        {"its mirror image", INT_MAX, -2, 1},
        {"0 and the smallest number", 0, INT_MIN, -1},
        {"the smallest number and 0", INT_MIN, 0, -1},
    };
    const _AttrType type = freeInt();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(intCompare(LDIF_Value(&type, std::to_string(row.left).c_str()),
                             LDIF_Value(&type, std::to_string(row.right).c_str())),
                  row.expected);
    }
}

TEST(SyntaxInt, ComparisonNeedsNumbersOnBothSides)
{
    const LDIF_Value number = valueOf("zor-slapdPort", "389");
    const LDIF_Value left = valueOf("cn", "left");
    const LDIF_Value right = valueOf("charset", "right");
    constexpr const char* message = "integer compare on non-integer value";
    expectFailure(failureOf([&] { intCompare(left, number); }), 18, 1000, message, "left", left.attrType);
    expectFailure(failureOf([&] { intCompare(number, right); }), 18, 1000, message, "right", right.attrType);
    expectFailure(failureOf([&] { intCompare(left, right); }), 18, 1000, message, "left", left.attrType);
    LDIF_Value shortened = number;
    shortened.binaryLength = 2;
    expectFailure(failureOf([&] { intCompare(shortened, number); }), 18, 1000, message, "389", number.attrType);
    expectFailure(failureOf([&] { intCompare(number, shortened); }), 18, 1000, message, "389", number.attrType);
}

RC_GTEST_PROP(SyntaxInt, EveryNumberReadsBackFromItsText, (std::int32_t number))
{
    const _AttrType type = freeInt();
    const LDIF_Value value(&type, std::to_string(number).c_str());
    RC_ASSERT(value.str() == std::to_string(number));
    RC_ASSERT(numberOf(value) == number);
}

RC_GTEST_PROP(SyntaxInt, TextsAreReadAsTheirNumberOrRefused, ())
{
    // Around the bounds as well as anywhere.
    const auto near = *rc::gen::elementOf(std::vector<std::int64_t>{0, INT_MIN, INT_MAX, 4294967296, -4294967296});
    const std::int64_t number = near + *rc::gen::arbitrary<std::int16_t>();
    const _AttrType type = freeInt();
    const bool fits = number >= INT_MIN && number <= INT_MAX;
    const auto failure = refusal(type, std::to_string(number));
    RC_ASSERT(failure.has_value() != fits);
    if (!fits) {
        RC_ASSERT(failure->extErr == 1015);
    }
}

// ---- mask ----

TEST(SyntaxMask, TakesNumbersWithinItsBits)
{
    const _AttrType& type = *getAttrType("zor-slapdSslCipherSpecs");
    for (const auto& [text, expected] : {std::pair{"256", "256"}, {"0", "0"}, {"16128", "16128"}, {"(+0512)", "512"}}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(stored(type, text), expected);
    }
    for (const char* text : {"1", "255", "257", "16384", "-1", "16129", " 1 "}) {
        SCOPED_TRACE(text);
        expectFailure(refusal(type, text), 21, 1019, "Bits in value are not within bitmask constraint", text, &type);
    }
    expectFailure(refusal(type, "x"), 21, 1016, "Value is not valid integer syntax", "x", &type);
    expectFailure(refusal(type, "2147483648"), 21, 1015, "Integer value out of range", "2147483648", &type);
}

TEST(SyntaxMask, NumberWithStrayBitsStaysInTheValue)
{
    const _AttrType* const type = getAttrType("zor-slapdSslCipherSpecs");
    LDIF_Value value = blank(type);
    EXPECT_TRUE(failureOf([&] { maskFromStr(value, "007"); }).has_value());
    EXPECT_EQ(value.str(), "7");
    EXPECT_EQ(numberOf(value), 7);
}

TEST(SyntaxMask, RangeOfTheTypeComesFirst)
{
    const _AttrType type = bounded("zor-slapdSslCipherSpecs", 256, 512);
    EXPECT_EQ(stored(type, "512"), "512");
    expectFailure(refusal(type, "1"), 21, 1015, "Integer value out of range", "1", &type);
    expectFailure(refusal(type, "300"), 21, 1019, "Bits in value are not within bitmask constraint", "300", &type);
}

TEST(SyntaxMask, AllBitsTakeNegativeNumbersToo)
{
    _AttrType type = *getAttrType("zor-slapdSslCipherSpecs");
    type.bitmask = -1;
    EXPECT_EQ(stored(type, "-1"), "-1");
    EXPECT_EQ(stored(type, "2147483647"), "2147483647");
}

TEST(SyntaxMask, NeedsAMask)
{
    _AttrType type = *getAttrType("zor-slapdSslCipherSpecs");
    type.bitmask = 0;
    expectFailure(refusal(type, "0"), 80, 1000, "Bitmask undefined", "0", &type);
    // Before the text is read.
    expectFailure(refusal(type, "x"), 80, 1000, "Bitmask undefined", "x", &type);
    LDIF_Value value = blank(&type);
    const std::int32_t number = 0;
    expectFailure(failureOf([&] { maskFromBin(value, &number, 4); }), 80, 1000, "Bitmask undefined", "<binary>", &type);
    LDIF_Value typeless = blank(nullptr);
    expectFailure(failureOf([&] { maskFromStr(typeless, "0"); }), 80, 1000, "Bitmask undefined", "0", nullptr);
    expectFailure(failureOf([&] { maskFromBin(typeless, &number, 4); }), 80, 1000, "Bitmask undefined", "<binary>",
                  nullptr);
}

TEST(SyntaxMask, BinaryNumbersOfTheCatalogueFailTheRangeRule)
{
    const _AttrType* const type = getAttrType("zor-slapdSslCipherSpecs");
    LDIF_Value value = blank(type);
    std::int32_t number = 256;
    expectFailure(failureOf([&] { maskFromBin(value, &number, 4); }), 21, 1015, "Integer value out of range", "256",
                  type);
    number = 0;
    maskFromBin(value, &number, 4);
    EXPECT_EQ(value.str(), "0");
}

TEST(SyntaxMask, BinaryNumbersWithinARangeAreMasked)
{
    const _AttrType type = bounded("zor-slapdSslCipherSpecs", 0, 65535);
    LDIF_Value value = blank(&type);
    std::int32_t number = 256;
    maskFromBin(value, &number, 4);
    EXPECT_EQ(value.str(), "256");
    number = 1;
    const auto failure = failureOf([&] { maskFromBin(value, &number, 4); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->ldapErr, 21);
    EXPECT_EQ(failure->extErr, 1019);
    EXPECT_EQ(failure->msg, "Bits in value are not within bitmask constraint");
    EXPECT_EQ(failure->attrType, &type);
    EXPECT_EQ(value.str(), "1");
}

TEST(SyntaxMask, ComparesAsNumbersDo)
{
    const _AttrType* const type = getAttrType("zor-slapdSslCipherSpecs");
    EXPECT_EQ(type->match(LDIF_Value(type, "256"), LDIF_Value(type, "512")), 1);
    EXPECT_EQ(type->match(LDIF_Value(type, "512"), LDIF_Value(type, "+0512")), 0);
}

// ---- dn ----

TEST(SyntaxDn, StoresTheNormalFormAndTheDn)
{
    LDIF_Value value = blank(getAttrType("zor-slapdAdminDN"));
    dnFromStr(value, " CN = root ;O=\"x, y\"");
    EXPECT_EQ(value.str(), "CN=root, O=\"x, y\"");
    ASSERT_NE(value.dn(), nullptr);
    EXPECT_EQ(value.dn()->size(), 2U);
    EXPECT_EQ(value.dn()->front().str(), "O=\"x, y\"");
    EXPECT_EQ(value.binaryLength, 0);
}

TEST(SyntaxDn, LengthBoundsAreNotConsulted)
{
    EXPECT_EQ(storedFor("zor-slapdSuffix", ""), "");
    EXPECT_EQ(storedFor("zor-slapdSuffix", "o=x"), "o=x");
    const _AttrType type = bounded("zor-slapdSuffix", 100, 3);
    EXPECT_EQ(stored(type, "o=xyz"), "o=xyz");
}

TEST(SyntaxDn, ParseFailureIsWrappedWithTheTextAndTheType)
{
    struct Row
    {
        const char* text;
        int libraryCode;
        const char* message;
        int records;
    };
    constexpr Row rows[] = {
        {"cn=a,", 1011, "Missing RDN attribute", 3},
        {"=x", 1012, "Invalid attribute sytax: ", 5},
        {"cn", 1013, "Missing RDN value: cn", 4},
        {"cn=a\\zz", 1014, "Invalid escape sequence: \\zz", 5},
    };
    const _AttrType* const type = getAttrType("zor-slapdAdminDN");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const auto failure = refusal(*type, row.text);
        expectFailure(failure, 34, row.libraryCode, row.message, row.text, type);
        ASSERT_TRUE(failure.has_value());
        int records = 1;
        for (const LDIF_Exception* cause = failure->nested; cause != nullptr; cause = cause->nested) {
            ++records;
        }
        EXPECT_EQ(records, row.records);
        ASSERT_NE(failure->nested, nullptr);
        EXPECT_EQ(failure->nested->attrType, nullptr);
    }
}

TEST(SyntaxDn, DnThatCannotBePrintedCannotBeStored)
{
    const auto failure = refusal(*getAttrType("zor-slapdAdminDN"), "cn=, o=x");
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->ldapErr, 34);
    EXPECT_EQ(failure->extErr, 1013);
    EXPECT_EQ(failure->msg, "Missing RDN attribute value");
}

TEST(SyntaxDn, NoBinaryDataReadsTheStoredTextAgain)
{
    LDIF_Value value = blank(getAttrType("zor-slapdAdminDN"));
    value.setText("CN = a;o=x");
    dnFromBin(value, nullptr, 0);
    EXPECT_EQ(value.str(), "CN=a, o=x");
    ASSERT_NE(value.dn(), nullptr);
    EXPECT_EQ(value.dn()->size(), 2U);
    LDIF_Value empty = blank(getAttrType("zor-slapdAdminDN"));
    dnFromBin(empty, nullptr, 0);
    EXPECT_EQ(empty.str(), "");
    ASSERT_NE(empty.dn(), nullptr);
    EXPECT_TRUE(empty.dn()->empty());
}

TEST(SyntaxDn, ComparesDnsAncestorGreater)
{
    const _AttrType* const type = getAttrType("zor-slapdSuffix");
    const auto compare = [&](const char* left, const char* right) {
        return dnCompare(LDIF_Value(type, left), LDIF_Value(type, right));
    };
    EXPECT_EQ(compare("CN=Foo, O=Bar", "cn=foo,o=bar"), 0);
    EXPECT_EQ(compare("cn=#41", "cn=a"), 0);
    EXPECT_EQ(compare("o=x", "cn=a, o=x"), 1);
    EXPECT_EQ(compare("cn=a, o=x", "o=x"), -1);
    EXPECT_EQ(compare("", "o=x"), 1);
    EXPECT_LT(compare("cn=a, o=x", "cn=b, o=x"), 0);
    EXPECT_EQ(type->match, dnCompare);
}

TEST(SyntaxDn, ValueWithoutADnIsComparedByItsText)
{
    const LDIF_Value dn = valueOf("zor-slapdSuffix", "cn=a, o=x");
    const LDIF_Value text = valueOf("cn", " CN=A;O=X");
    EXPECT_EQ(dnCompare(dn, text), 0);
    EXPECT_EQ(dnCompare(text, dn), 0);
    EXPECT_EQ(dnCompare(text, text), 0);
    // A temporary DN is not kept.
    EXPECT_EQ(text.dn(), nullptr);
    // It need not be printable to be compared.
    EXPECT_NE(dnCompare(valueOf("cn", "cn="), dn), 0);
}

TEST(SyntaxDn, TextThatIsNoDnCannotBeCompared)
{
    const LDIF_Value dn = valueOf("zor-slapdSuffix", "cn=a, o=x");
    const LDIF_Value left = valueOf("cn", "left");
    const LDIF_Value right = valueOf("charset", "right");
    const auto expect = [](const std::optional<LDIF_Exception>& failure, const std::string& text) {
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->ldapErr, 34);
        EXPECT_EQ(failure->extErr, 1013);
        EXPECT_EQ(failure->msg, "Missing RDN value: " + text);
        EXPECT_EQ(failure->value, text);
        EXPECT_NE(failure->nested, nullptr);
    };
    expect(failureOf([&] { dnCompare(left, dn); }), "left");
    expect(failureOf([&] { dnCompare(dn, right); }), "right");
    expect(failureOf([&] { dnCompare(left, right); }), "left");
}

// ---- pw ----

namespace {

bool isEncoded(const std::string& text)
{
    return text.size() >= 2 && text.front() == '>' && text.back() == '<';
}

} // namespace

TEST(SyntaxPw, StoresTheEncodedText)
{
    const std::string text = storedFor("zor-slapdAdminPW", "secret");
    EXPECT_TRUE(isEncoded(text)) << text;
    EXPECT_EQ(text.find("secret"), std::string::npos);
}

TEST(SyntaxPw, EncodedTextIsStoredUnchangedWhateverItsLength)
{
    for (const std::string& text :
         {"><"s, ">x<"s, ">secret<"s, "> ( ) <"s, ">" + std::string(5000, 'x') + "<", ">>><<<"s}) {
        SCOPED_TRACE(text.substr(0, 20));
        EXPECT_EQ(storedFor("zor-slapdAdminPW", text), text);
    }
}

TEST(SyntaxPw, WhatOnlyLooksEncodedIsEncoded)
{
    for (const std::string& text : {">"s, "<"s, "<>"s, "x><"s, "><x"s, ">x"s, "x<"s, " >x<"s, ">x< "s}) {
        SCOPED_TRACE(text);
        const std::string encoded = storedFor("zor-slapdAdminPW", text);
        EXPECT_TRUE(isEncoded(encoded)) << encoded;
        EXPECT_NE(encoded, text);
    }
}

TEST(SyntaxPw, LengthRangeOfTheCatalogue)
{
    const _AttrType& type = *getAttrType("zor-slapdAdminPW");
    EXPECT_TRUE(isEncoded(stored(type, "x")));
    EXPECT_TRUE(isEncoded(stored(type, std::string(46, 'x'))));
    constexpr const char* message = "Password length must be 1 to 46 characters";
    expectFailure(refusal(type, ""), 21, 1018, message, "", &type);
    expectFailure(refusal(type, std::string(47, 'x')), 21, 1018, message, std::string(47, 'x'), &type);
}

TEST(SyntaxPw, BoundsOfTheTypeReplaceTheDefaultsOneByOne)
{
    struct Row
    {
        const char* name;
        std::int32_t min;
        std::int32_t max;
        const char* bounds;
        std::vector<std::size_t> fitting;
        std::vector<std::size_t> refused;
    };
    const Row rows[] = {
        {"no bounds", 0, 0, "1 to 46", {1, 46}, {0, 47}},
        {"upper bound only", 0, 3, "1 to 3", {1, 3}, {0, 4}},
        {"lower bound only", 5, 0, "5 to 46", {5, 46}, {4, 47}},
        {"both", 5, 6, "5 to 6", {5, 6}, {4, 7}},
        {"one length", 4, 4, "4 to 4", {4}, {3, 5}},
        {"upper bound below the lower is not taken", 5, 3, "5 to 46", {5, 46}, {3, 4, 47}},
        {"lower bound above the default upper one", 60, 0, "60 to 46", {}, {0, 46, 50, 60}},
        {"negative lower bound is not taken", -3, 10, "1 to 10", {1, 10}, {0, 11}},
        {"negative upper bound is not taken", 2, -1, "2 to 46", {2, 46}, {1, 47}},
        {"longer than the default", 1, 100, "1 to 100", {1, 100}, {0, 101}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const _AttrType type = bounded("zor-slapdAdminPW", row.min, row.max);
        for (const std::size_t length : row.fitting) {
            SCOPED_TRACE(length);
            EXPECT_TRUE(isEncoded(stored(type, std::string(length, 'x'))));
        }
        for (const std::size_t length : row.refused) {
            SCOPED_TRACE(length);
            const std::string text(length, 'x');
            expectFailure(refusal(type, text), 21, 1018, "Password length must be "s + row.bounds + " characters", text,
                          &type);
        }
    }
}

TEST(SyntaxPw, ValueWithoutATypeHasTheDefaultBounds)
{
    LDIF_Value value = blank(nullptr);
    pwFromStr(value, std::string(46, 'x'));
    EXPECT_TRUE(isEncoded(cesToStr(value)));
    expectFailure(failureOf([&] { pwFromStr(value, std::string(47, 'x')); }), 21, 1018,
                  "Password length must be 1 to 46 characters", std::string(47, 'x'), nullptr);
}

TEST(SyntaxPw, ComparesClearTexts)
{
    const _AttrType* const type = getAttrType("zor-slapdAdminPW");
    const auto compare = [&](const char* left, const char* right) {
        return sign(pwCompare(LDIF_Value(type, left), LDIF_Value(type, right)));
    };
    EXPECT_EQ(compare("secret", "secret"), 0);
    EXPECT_EQ(compare("Secret", "secret"), -1);
    EXPECT_EQ(compare("secret", "Secret"), 1);
    EXPECT_EQ(compare("secret", "secrets"), -1);
    // One clear, one encoded before.
    const std::string encoded = LDIF_Value(type, "secret").str();
    EXPECT_EQ(compare("secret", encoded.c_str()), 0);
    EXPECT_EQ(compare(encoded.c_str(), "secret"), 0);
}

TEST(SyntaxPw, ValueWithoutTextIsTheSmallest)
{
    const _AttrType* const type = getAttrType("zor-slapdAdminPW");
    const LDIF_Value empty(type, nullptr, 0);
    ASSERT_EQ(empty.str(), "");
    const LDIF_Value secret(type, "secret");
    EXPECT_EQ(pwCompare(secret, empty), 1);
    EXPECT_EQ(pwCompare(empty, secret), -1);
    EXPECT_EQ(pwCompare(empty, empty), 0);
}

// ---- The road without a string ----

namespace {

/// A text of pieces that mean something to some syntax, often with the right number of characters to meet a bound.
rc::Gen<std::string> anyText()
{
    static const std::vector<std::string> pieces = {
        "",    "0",    "1",   "389",   "65535", "65536", "12288", "2147483647", "2147483648", "-1",
        "+7",  "007",  " ",   "(",     ")",     "\t",    "x",     "true",       "FALSE",      "Sha",
        "V2",  "ldap", "SSL", "m",     "s",     ">",     "<",     ">1234<",     ">2X0<",      "cn=a",
        "o=x", ",",    " ; ", "cn=a+", "cn=(",  "\\2C",  "\\zz",  "\"q\"",      "#41",        "1.3.47.0.2.26.1",
        "ü",   "\xFF", "é"};
    const auto joined = rc::gen::map(rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(pieces)),
                                     [](const std::vector<std::string>& parts) {
                                         std::string text;
                                         for (const auto& part : parts) {
                                             text += part;
                                         }
                                         return text;
                                     });
    const auto repeated =
        rc::gen::map(rc::gen::pair(rc::gen::elementOf(std::vector<std::size_t>{1, 7, 8, 9, 15, 16, 45, 46, 47, 1023,
                                                                               1024, 1025, 4096, 4097}),
                                   rc::gen::element('x', '1', '0', ' ')),
                     [](const std::pair<std::size_t, char>& run) { return std::string(run.first, run.second); });
    return rc::gen::oneOf(rc::gen::elementOf(pieces), joined, repeated,
                          rc::gen::map(rc::gen::inRange(-10, 70000), [](int number) { return std::to_string(number); }),
                          rc::gen::map(rc::gen::arbitrary<std::string>(),
                                       [](const std::string& text) { return text.substr(0, text.find('\0')); }));
}

struct Facts
{
    std::string text;
    std::string binary;
    std::optional<std::string> dn;

    bool operator==(const Facts&) const = default;
};

Facts factsOf(const LDIF_Value& value)
{
    Facts facts;
    facts.text = value.text();
    if (value.binaryLength > 0) {
        facts.binary.assign(static_cast<const char*>(value.binary()), static_cast<std::size_t>(value.binaryLength));
    }
    if (value.dn() != nullptr) {
        facts.dn = value.dn()->str();
    }
    return facts;
}

/// The facts of a failure of a value's constructor that come from the syntax.
void expectSameFailure(const std::optional<LDIF_Exception>& failure, const std::optional<LDIF_Exception>& expected)
{
    RC_ASSERT(failure.has_value() == expected.has_value());
    if (failure.has_value()) {
        RC_ASSERT(failure->ldapErr == expected->ldapErr);
        RC_ASSERT(failure->extErr == expected->extErr);
        RC_ASSERT(failure->msg == expected->msg);
        RC_ASSERT(failure->value == expected->value);
        RC_ASSERT(failure->attrType == expected->attrType);
        RC_ASSERT(failure->nested != nullptr);
        RC_ASSERT(failure->nested->msg == expected->msg);
    }
}

} // namespace

RC_GTEST_PROP(SyntaxPlainText, GivesWhatFromStrGives, ())
{
    const std::string text = *anyText();
    inBothLocales([&] {
        for (const _AttrType& type : attrMapArray) {
            LDIF_Value expected = blank(&type);
            const auto refused = failureOf([&] { type.fromStr(expected, text); });
            LDIF_Value value = blank(&type);
            bool isPlain = false;
            const auto failure = failureOf([&] { isPlain = veltor::detail::setPlainText(value, text); });
            if (isPlain) {
                RC_ASSERT(!refused.has_value());
                RC_ASSERT(factsOf(value) == factsOf(expected));
            } else if (failure.has_value()) {
                RC_ASSERT(refused.has_value());
                RC_ASSERT(failure->msg == refused->msg);
            } else {
                RC_ASSERT(factsOf(value) == factsOf(blank(&type)));
            }
            // And so it is for whoever builds values.
            std::optional<LDIF_Value> built;
            expectSameFailure(failureOf([&] { built.emplace(&type, std::string_view(text)); }), refused);
            if (built) {
                RC_ASSERT(factsOf(*built) == factsOf(expected));
            }
        }
    });
}

TEST(SyntaxPlainText, ServesWhatFilesMostlySay)
{
    // The texts that need no second look, and some that do.
    struct Row
    {
        const char* attribute;
        const char* text;
        bool isPlain;
    };
    const Row rows[] = {
        {"cn", "", true},
        {"cn", "Some Name (of two parts)", true},
        {"unknown", "anything \xFF", true},
        {"zor-slapdDbName", "12345678", true},
        {"zor-slapdDbName", "123456789", false},
        {"zor-slapdDbName", "", false},
        {"zor-slapdPort", "389", true},
        {"zor-slapdPort", "65535", true},
        {"zor-slapdPort", "65536", false},
        {"zor-slapdPort", "0", false},
        {"zor-slapdSizeLimit", "0", true},
        {"zor-slapdSizeLimit", "999999999", true},
        {"zor-slapdSizeLimit", "1000000000", false},
        {"zor-slapdSizeLimit", "0389", false},
        {"zor-slapdSizeLimit", " 389", false},
        {"zor-slapdSizeLimit", "", false},
        {"zor-slapdSslCipherSpecs", "12288", true},
        {"zor-slapdSslCipherSpecs", "0", true},
        {"zor-slapdSslCipherSpecs", "1", false},
        {"zor-slapdReadOnly", "true", true},
        {"zor-slapdReadOnly", "TRUE", true},
        {"zor-slapdReadOnly", "tru", false},
        {"zor-slapdReadOnly", "truest", false},
        {"zor-slapdReadOnly", "", false},
        {"zor-slapdAdminPW", ">12345<", true},
        {"zor-slapdAdminPW", "secret", false},
        {"zor-slapdAdminPW", "", false},
        {"zor-slapdAdminDN", "cn=a, o=x", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.attribute + ": "s + row.text);
        LDIF_Value value = blank(getAttrType(row.attribute));
        EXPECT_EQ(veltor::detail::setPlainText(value, row.text), row.isPlain);
        EXPECT_EQ(value.text(), row.isPlain ? row.text : "");
    }
}

TEST(SyntaxPlainText, IsNoRoadForAForeignSyntax)
{
    _AttrType type = *getAttrType("cn");
    type.fromStr = [](LDIF_Value& value, const std::string& text) { value.setText("<" + text + ">"); };
    EXPECT_EQ(LDIF_Value(&type, "a").str(), "<a>");
    LDIF_Value value = blank(&type);
    EXPECT_FALSE(veltor::detail::setPlainText(value, "a"));
    type = *getAttrType("zor-slapdReadOnly");
    type.enumValues = nullptr;
    EXPECT_FALSE(veltor::detail::setPlainText(value, "true"));
    type = *getAttrType("zor-slapdSslCipherSpecs");
    type.bitmask = 0;
    EXPECT_FALSE(veltor::detail::setPlainText(value, "0"));
}
