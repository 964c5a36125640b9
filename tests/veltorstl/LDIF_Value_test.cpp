// Typed values and value lists: construction, deep copies, what a tampered value gives, and the list operations with
// what they leave after a failure.
#include "LDIF_Value.h"

#include "LDIF_AttrType.h"
#include "LDIF_DN.h"
#include "LDIF_Exception.h"
#include "support/failure_of.h"
#include "support/locale_guard.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using veltor::test::failureOf;
using veltor::test::inBothLocales;
using veltor::test::LocaleGuard;
using veltor::test::recordsOf;

namespace {

using namespace std::string_literals;

void expectCodes(const std::optional<LDIF_Exception>& failure, int ldapCode, int libraryCode,
                 const std::string& message)
{
    ASSERT_TRUE(failure.has_value()) << "nothing was thrown";
    EXPECT_EQ(failure->ldapErr, ldapCode);
    EXPECT_EQ(failure->extErr, libraryCode);
    EXPECT_EQ(failure->msg, message);
    EXPECT_FALSE(failure->srcFile.empty());
    EXPECT_EQ(failure->srcFile.find('/'), std::string::npos) << failure->srcFile;
}

/// What a tampered value says of itself when it is copied.
struct Broken
{
    const char* message;
    const char* text;
    const char* attribute;
};

/// A tampered value can be copied neither into a fresh one nor over the target.
void expectNoCopy(const LDIF_Value& broken, LDIF_Value target, const Broken& expected)
{
    const auto expect = [&](const std::optional<LDIF_Exception>& failure) {
        expectCodes(failure, 80, 1000, expected.message);
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->value, expected.text);
        EXPECT_EQ(failure->attribute, expected.attribute);
    };
    expect(failureOf([&] { const LDIF_Value copy(broken); }));
    expect(failureOf([&] { target = broken; }));
}

const _AttrType* typeOf(const char* name)
{
    return getAttrType(name);
}

struct Binary
{
    const void* block;
    int length;
};

Binary binaryOf(const LDIF_Value& value)
{
    Binary binary{};
    binary.block = value.attrType->toBin(value, binary.length);
    return binary;
}

std::int32_t numberOf(const LDIF_Value& value)
{
    const Binary binary = binaryOf(value);
    std::int32_t number = 0;
    EXPECT_EQ(binary.length, 4);
    std::memcpy(&number, binary.block, sizeof number);
    return number;
}

LDIF_Values listOf(const char* name, const std::vector<std::string>& texts)
{
    LDIF_Values list(name);
    for (const auto& text : texts) {
        list += text;
    }
    return list;
}

std::vector<std::string> textsOf(const LDIF_Values& list)
{
    std::vector<std::string> texts;
    for (const auto& value : list) {
        texts.push_back(value.str());
    }
    return texts;
}

using Texts = std::vector<std::string>;

[[noreturn]] void foreignFailure()
{
    throw std::runtime_error("foreign");
}

int foreignMatch(const LDIF_Value&, const LDIF_Value&)
{
    foreignFailure();
}

void foreignFromStr(LDIF_Value&, const std::string&)
{
    foreignFailure();
}

void foreignFromBin(LDIF_Value&, const void*, int)
{
    foreignFailure();
}

std::string foreignToStr(const LDIF_Value&)
{
    foreignFailure();
}

/// How many values a type whose fromStr is countingFromStr has built from texts.
int valuesBuilt = 0;

void countingFromStr(LDIF_Value& value, const std::string& text)
{
    ++valuesBuilt;
    cesFromStr(value, text);
}

} // namespace

// ---- Values from texts ----

TEST(LdifValue, IsBuiltFromATextThroughItsSyntax)
{
    const LDIF_Value port(typeOf("zor-slapdPort"), "389");
    EXPECT_EQ(port.attrType, typeOf("zor-slapdPort"));
    EXPECT_EQ(port.str(), "389");
    EXPECT_EQ(port.binaryLength, 4);
    EXPECT_EQ(numberOf(port), 389);
    EXPECT_EQ(port.dn(), nullptr);
    const LDIF_Value text(typeOf("cn"), " a ");
    EXPECT_EQ(text.str(), " a ");
    EXPECT_EQ(text.binaryLength, 0);
    EXPECT_EQ(text.dn(), nullptr);
    const LDIF_Value dn(typeOf("zor-slapdAdminDN"), "CN=a;o=x");
    EXPECT_EQ(dn.str(), "CN=a, o=x");
    EXPECT_EQ(dn.binaryLength, 0);
    ASSERT_NE(dn.dn(), nullptr);
    EXPECT_EQ(dn.dn()->size(), 2U);
}

TEST(LdifValue, OnlyNumbersAndDnsReadTheirTextInTheLocale)
{
    inBothLocales([&] {
        for (const char* text : {"ü", "\xFF"}) {
            EXPECT_EQ(LDIF_Value(typeOf("cn"), text).str(), text);
            EXPECT_EQ(LDIF_Value(typeOf("charset"), text).compare(std::string(text)), 0);
        }
        const auto unreadable = [](const char* attribute, const char* text) {
            const auto failure = failureOf([&] { LDIF_Value(typeOf(attribute), text); });
            expectCodes(failure, 162, 162, "mbstowcs( "s + text + " )");
            ASSERT_TRUE(failure.has_value());
            EXPECT_EQ(failure->value, text);
            EXPECT_EQ(failure->attribute, attribute);
        };
        unreadable("zor-slapdPort", "389\xFF");
        unreadable("zor-slapdAdminDN", "cn=\xFF");
    });
    const LocaleGuard guard("C.UTF-8");
    EXPECT_EQ(LDIF_Value(typeOf("zor-slapdAdminDN"), "cn=ü;o=x").str(), "cn=ü, o=x");
}

TEST(LdifValue, NullTypeIsRefused)
{
    const auto text = failureOf([] { LDIF_Value(nullptr, "x"); });
    expectCodes(text, 80, 1000, "Illegal LDIF_Value( string ) constructor: attrType undefined");
    ASSERT_TRUE(text.has_value());
    EXPECT_EQ(text->value, "x");
    EXPECT_EQ(text->nested, nullptr);
    const std::int32_t number = 1;
    const auto binary = failureOf([&] { LDIF_Value(nullptr, &number, 4); });
    expectCodes(binary, 80, 1000, "Illegal LDIF_Value( binary ) constructor: attrType undefined");
    ASSERT_TRUE(binary.has_value());
    EXPECT_EQ(binary->value, "binary");
    EXPECT_EQ(binary->nested, nullptr);
}

TEST(LdifValue, ComplaintOfTheSyntaxIsWrappedWithTextAndName)
{
    struct Row
    {
        const char* attribute;
        std::string text;
        int ldapCode;
        int libraryCode;
        const char* message;
    };
    const Row rows[] = {
        {"zor-slapdPort", " abc ", 21, 1016, "Value is not valid integer syntax"},
        {"zor-slapdPort", "0", 21, 1015, "Integer value out of range"},
        {"zor-slapdReadOnly", "yes", 21, 1017, "value not one of attrType.enumValues"},
        {"zor-slapdSslCipherSpecs", "1", 21, 1019, "Bits in value are not within bitmask constraint"},
        {"zor-slapdDbName", "123456789", 21, 1018, "zor-slapdDbName length must be 1 to 8 characters"},
        {"zor-slapdAdminPW", "", 21, 1018, "Password length must be 1 to 46 characters"},
        {"zor-slapdAdminDN", "cn=a,", 34, 1011, "Missing RDN attribute"},
        {"zor-slapdAdminDN", "cn=", 34, 1013, "Missing RDN attribute value"},
        // The name is that of the record, whatever was looked up.
        {"ZOR-SLAPDPORT", "x", 21, 1016, "Value is not valid integer syntax"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.attribute + " "s + row.text);
        const _AttrType* const type = typeOf(row.attribute);
        const auto failure = failureOf([&] { LDIF_Value(type, row.text.c_str()); });
        expectCodes(failure, row.ldapCode, row.libraryCode, row.message);
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->value, row.text);
        EXPECT_EQ(failure->attribute, type->name);
        EXPECT_EQ(failure->attrType, type);
        ASSERT_NE(failure->nested, nullptr);
        EXPECT_EQ(failure->nested->attribute, "");
        EXPECT_EQ(failure->nested->msg, row.message);
    }
}

TEST(LdifValue, NamelessTypeLeavesTheAttributeOut)
{
    _AttrType type = *typeOf("zor-slapdDbName");
    type.name = nullptr;
    const auto failure = failureOf([&] { LDIF_Value(&type, ""); });
    expectCodes(failure, 21, 1018, "length must be 1 to 8 characters");
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->attribute, "");
}

TEST(LdifValue, ForeignFailureOfTheSyntaxIsASystemError)
{
    _AttrType type = *typeOf("cn");
    type.fromStr = foreignFromStr;
    type.fromBin = foreignFromBin;
    const auto text = failureOf([&] { LDIF_Value(&type, "x"); });
    expectCodes(text, 80, 1000, "System error in LDIF_Value( string ) constructor");
    ASSERT_TRUE(text.has_value());
    EXPECT_EQ(text->value, "x");
    EXPECT_EQ(text->attribute, "cn");
    const auto binary = failureOf([&] { LDIF_Value(&type, "x", 1); });
    expectCodes(binary, 80, 1000, "System error in LDIF_Value( binary ) constructor");
    ASSERT_TRUE(binary.has_value());
    EXPECT_EQ(binary->attribute, "cn");
}

// ---- Values from binary forms ----

TEST(LdifValue, IsBuiltFromABinaryNumber)
{
    const std::int32_t number = 389;
    const LDIF_Value port(typeOf("zor-slapdPort"), &number, 4);
    EXPECT_EQ(port.str(), "389");
    EXPECT_EQ(port.binaryLength, 4);
    EXPECT_EQ(numberOf(port), 389);
    EXPECT_NE(binaryOf(port).block, &number);
    EXPECT_EQ(port.compare(LDIF_Value(typeOf("zor-slapdPort"), "0389")), 0);
}

TEST(LdifValue, ComplaintAboutABinaryFormIsWrappedWithTheName)
{
    const std::int32_t number = 0;
    const auto range = failureOf([&] { LDIF_Value(typeOf("zor-slapdPort"), &number, 4); });
    expectCodes(range, 21, 1015, "Integer value out of range");
    ASSERT_TRUE(range.has_value());
    EXPECT_EQ(range->attribute, "zor-slapdPort");
    EXPECT_EQ(range->value, "0");
    EXPECT_EQ(range->attrType, typeOf("zor-slapdPort"));
    EXPECT_EQ(recordsOf(*range), 2);
    const auto text = failureOf([] { LDIF_Value(typeOf("cn"), "abc", 3); });
    expectCodes(text, 92, 1008, "Binary representation undefined for syntax: ces");
    ASSERT_TRUE(text.has_value());
    EXPECT_EQ(text->attribute, "cn");
    EXPECT_EQ(text->value, "<binary>");
    EXPECT_EQ(recordsOf(*text), 2);
}

TEST(LdifValue, NoBinaryDataMakesAnEmptyValue)
{
    const LDIF_Value text(typeOf("cn"), nullptr, 0);
    EXPECT_EQ(text.str(), "");
    EXPECT_EQ(text.binaryLength, 0);
    const LDIF_Value dn(typeOf("zor-slapdSuffix"), nullptr, 0);
    EXPECT_EQ(dn.str(), "");
    ASSERT_NE(dn.dn(), nullptr);
    EXPECT_TRUE(dn.dn()->empty());
}

// ---- Copies ----

TEST(LdifValue, CopiesAreDeep)
{
    const LDIF_Value port(typeOf("zor-slapdPort"), "389");
    const LDIF_Value portCopy = port;
    EXPECT_EQ(portCopy.attrType, port.attrType);
    EXPECT_EQ(portCopy.str(), "389");
    EXPECT_EQ(portCopy.binaryLength, 4);
    EXPECT_NE(binaryOf(portCopy).block, binaryOf(port).block);
    EXPECT_EQ(numberOf(portCopy), 389);

    std::optional<LDIF_Value> dn(std::in_place, typeOf("zor-slapdAdminDN"), "cn=a, o=x");
    const LDIF_Value dnCopy = *dn;
    EXPECT_NE(dnCopy.dn(), dn->dn());
    dn.reset();
    ASSERT_NE(dnCopy.dn(), nullptr);
    EXPECT_EQ(dnCopy.dn()->str(), "cn=a, o=x");
    EXPECT_EQ(dnCopy.str(), "cn=a, o=x");
}

TEST(LdifValue, AssignmentReplacesEverything)
{
    const LDIF_Value number(typeOf("zor-slapdPort"), "389");
    const LDIF_Value otherNumber(typeOf("zor-slapdSecurePort"), "636");
    const LDIF_Value dn(typeOf("zor-slapdAdminDN"), "cn=a, o=x");
    const LDIF_Value otherDn(typeOf("zor-slapdSuffix"), "o=y");
    const LDIF_Value text(typeOf("cn"), "text");
    for (const LDIF_Value* from : {&number, &dn, &text}) {
        for (const LDIF_Value* to : {&number, &otherNumber, &dn, &otherDn, &text}) {
            SCOPED_TRACE(from->str() + " becomes " + to->str());
            LDIF_Value value = *from;
            EXPECT_EQ(&(value = *to), &value);
            EXPECT_EQ(value.attrType, to->attrType);
            EXPECT_EQ(value.str(), to->str());
            EXPECT_EQ(value.binaryLength, to->binaryLength);
            ASSERT_EQ(value.dn() == nullptr, to->dn() == nullptr);
            if (to->dn() != nullptr) {
                EXPECT_NE(value.dn(), to->dn());
                EXPECT_EQ(value.dn()->str(), to->dn()->str());
            }
            if (to->binaryLength != 0) {
                EXPECT_NE(binaryOf(value).block, binaryOf(*to).block);
                EXPECT_EQ(numberOf(value), numberOf(*to));
            } else {
                expectCodes(failureOf([&] { binaryOf(value); }), 92, 1008,
                            "Binary representation undefined for syntax: ces");
            }
        }
    }
}

TEST(LdifValue, AssigningAValueToItselfKeepsIt)
{
    LDIF_Value port(typeOf("zor-slapdPort"), "389");
    const LDIF_Value& samePort = port;
    port = samePort;
    EXPECT_EQ(numberOf(port), 389);
    EXPECT_EQ(port.str(), "389");
    LDIF_Value dn(typeOf("zor-slapdSuffix"), "o=x");
    const LDIF_Value& sameDn = dn;
    dn = sameDn;
    ASSERT_NE(dn.dn(), nullptr);
    EXPECT_EQ(dn.dn()->str(), "o=x");
}

TEST(LdifValue, MovingHandsTheBlocksOver)
{
    static_assert(std::is_nothrow_move_constructible_v<LDIF_Value>);
    static_assert(std::is_nothrow_move_assignable_v<LDIF_Value>);
    LDIF_Value port(typeOf("zor-slapdPort"), "389");
    const LDIF_Value moved = std::move(port);
    EXPECT_EQ(numberOf(moved), 389);
    EXPECT_EQ(moved.str(), "389");
    EXPECT_EQ(port.binaryLength, 0);
    expectCodes(failureOf([&] { binaryOf(port); }), 92, 1008, "Binary representation undefined for syntax: ces");

    _AttrType blocks = *typeOf("cn");
    blocks.fromBin = [](LDIF_Value& value, const void* data, int length) { value.setBinary(data, length); };
    LDIF_Value large(&blocks, "a large block", 13);
    const void* const block = binaryOf(large).block;
    const LDIF_Value movedLarge = std::move(large);
    EXPECT_EQ(binaryOf(movedLarge).block, block);
    EXPECT_EQ(large.binaryLength, 0);

    LDIF_Value dn(typeOf("zor-slapdSuffix"), "cn=a, o=x");
    const LDIF_DN* const parsed = dn.dn();
    LDIF_Value target(typeOf("zor-slapdPort"), "636");
    target = std::move(dn);
    EXPECT_EQ(target.dn(), parsed);
    EXPECT_EQ(target.str(), "cn=a, o=x");
    EXPECT_EQ(target.binaryLength, 0);
    EXPECT_EQ(target.attrType, typeOf("zor-slapdSuffix"));
    // A value that was moved from can be copied and assigned to.
    const LDIF_Value copy = dn;
    EXPECT_EQ(copy.binaryLength, 0);
    dn = target;
    EXPECT_EQ(dn.str(), "cn=a, o=x");
}

TEST(LdifValue, KeepsBinaryFormsOfAnyLength)
{
    _AttrType type = *typeOf("cn");
    type.fromBin = [](LDIF_Value& value, const void* data, int length) { value.setBinary(data, length); };
    const std::string bytes = "0123456789abcdefghij";
    const auto expectBytes = [&bytes](const LDIF_Value& value, int length) {
        const Binary binary = binaryOf(value);
        ASSERT_EQ(binary.length, length);
        EXPECT_EQ(std::memcmp(binary.block, bytes.data(), static_cast<std::size_t>(length)), 0);
    };
    for (int length = 1; length <= 20; ++length) {
        SCOPED_TRACE(length);
        LDIF_Value value(&type, bytes.data(), length);
        expectBytes(value, length);
        const LDIF_Value copy = value;
        expectBytes(copy, length);
        EXPECT_NE(binaryOf(copy).block, binaryOf(value).block);
        LDIF_Value moved = std::move(value);
        expectBytes(moved, length);
        for (int before : {1, 8, 9}) {
            LDIF_Value target(&type, "zzzzzzzzz", before);
            target = copy;
            expectBytes(target, length);
            LDIF_Value other(&type, "zzzzzzzzz", before);
            other = std::move(target);
            expectBytes(other, length);
        }
    }
}

TEST(LdifValue, ADnTakesThePlaceOfABinaryFormAndTheOtherWayRound)
{
    LDIF_Value value(typeOf("zor-slapdPort"), "389");
    LDIF_DN dn;
    dn = cisString("o=x");
    value.setDn(std::move(dn));
    EXPECT_EQ(value.binaryLength, 0);
    ASSERT_NE(value.dn(), nullptr);
    EXPECT_EQ(value.dn()->str(), "o=x");
    value.setBinary("abcd", 4);
    EXPECT_EQ(value.dn(), nullptr);
    EXPECT_EQ(value.binaryLength, 4);
}

TEST(LdifValue, IsSmall)
{
    // Most of what a store holds are values: a page holds a hundred.
    EXPECT_EQ(sizeof(LDIF_Value), 40U);
}

TEST(LdifValue, BinaryLengthWithoutABinaryFormCannotBeCopied)
{
    LDIF_Value broken(typeOf("cn"), "text");
    for (const int length : {4, 1, -1}) {
        SCOPED_TRACE(length);
        broken.binaryLength = length;
        expectNoCopy(broken, LDIF_Value(typeOf("zor-slapdPort"), "389"),
                     {"Invalid LDIF_Value detected: binaryLength != 0", "text", "cn"});
    }
}

TEST(LdifValue, BinaryFormWithoutALengthCannotBeCopied)
{
    LDIF_Value broken(typeOf("zor-slapdPort"), "389");
    for (const int length : {0, -1, -4}) {
        SCOPED_TRACE(length);
        broken.binaryLength = length;
        expectNoCopy(broken, LDIF_Value(typeOf("cn"), "text"),
                     {"Invalid LDIF_Value detected: binaryLength < 1", "389", "zor-slapdPort"});
    }
}

TEST(LdifValue, CopyTakesAsManyBytesAsTheLengthSays)
{
    LDIF_Value port(typeOf("zor-slapdPort"), "389");
    port.binaryLength = 2;
    const LDIF_Value copy = port;
    EXPECT_EQ(copy.binaryLength, 2);
    const Binary binary = binaryOf(copy);
    EXPECT_EQ(binary.length, 2);
    EXPECT_EQ(std::memcmp(binary.block, binaryOf(port).block, 2), 0);
}

// ---- Text and comparison ----

TEST(LdifValue, StreamsItsText)
{
    std::ostringstream stream;
    const LDIF_Value value(typeOf("zor-slapdSuffix"), "cn=a;o=x");
    EXPECT_EQ(&(stream << value), &stream);
    EXPECT_EQ(stream.str(), "cn=a, o=x");
}

TEST(LdifValue, TextComesFromTheType)
{
    _AttrType type = *typeOf("cn");
    type.toStr = [](const LDIF_Value&) { return "made up"s; };
    EXPECT_EQ(LDIF_Value(&type, "x").str(), "made up");
}

TEST(LdifValue, NeedsATypeWithATextForm)
{
    constexpr const char* message = "Invalid LDIF_Value detected: attrType->toStr == NULL";
    LDIF_Value value(typeOf("cn"), "x");
    value.attrType = nullptr;
    expectCodes(failureOf([&] { value.str(); }), 80, 1000, message);
    _AttrType type = *typeOf("cn");
    type.toStr = nullptr;
    value.attrType = &type;
    expectCodes(failureOf([&] { value.str(); }), 80, 1000, message);
    std::ostringstream stream;
    expectCodes(failureOf([&] { stream << value; }), 80, 1000, message);
}

TEST(LdifValue, NeedsATypeWithAComparison)
{
    constexpr const char* message = "Invalid LDIF_Value detected: attrType->match == NULL";
    const LDIF_Value other(typeOf("cn"), "x");
    LDIF_Value value(typeOf("cn"), "x");
    value.attrType = nullptr;
    expectCodes(failureOf([&] { (void)value.compare(other); }), 80, 1000, message);
    expectCodes(failureOf([&] { (void)value.compare("x"s); }), 80, 1000, message);
    _AttrType type = *typeOf("cn");
    type.match = nullptr;
    value.attrType = &type;
    expectCodes(failureOf([&] { (void)value.compare(other); }), 80, 1000, message);
    expectCodes(failureOf([&] { (void)value.compare("x"s); }), 80, 1000, message);
}

TEST(LdifValue, ComparesThroughTheTypeOfTheLeftSide)
{
    const LDIF_Value ignoresCase(typeOf("cn"), "ABC");
    const LDIF_Value exact(typeOf("charset"), "abc");
    EXPECT_EQ(ignoresCase.compare(exact), 0);
    EXPECT_NE(exact.compare(ignoresCase), 0);
    const LDIF_Value number(typeOf("zor-slapdPort"), "389");
    EXPECT_EQ(LDIF_Value(typeOf("cn"), "389").compare(number), 0);
    expectCodes(failureOf([&] { (void)number.compare(exact); }), 18, 1000, "integer compare on non-integer value");
}

TEST(LdifValue, ComparesWithATextAsWithAValue)
{
    const LDIF_Value port(typeOf("zor-slapdPort"), "389");
    EXPECT_EQ(port.compare(" (0389) "s), 0);
    EXPECT_EQ(port.compare("390"s), 1);
    EXPECT_EQ(port.compare("388"s), -1);
    const LDIF_Value dn(typeOf("zor-slapdSuffix"), "cn=a, o=x");
    EXPECT_EQ(dn.compare("CN = A;O=x"s), 0);
    EXPECT_EQ(dn.compare(""s), -1);
    EXPECT_GT(LDIF_Value(typeOf("cn"), "a").compare(""s), 0);
    EXPECT_EQ(LDIF_Value(typeOf("cn"), "").compare(""s), 0);
    const auto failure = failureOf([&] { (void)port.compare("abc"s); });
    expectCodes(failure, 21, 1016, "Value is not valid integer syntax");
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->value, "abc");
    EXPECT_EQ(failure->attribute, "zor-slapdPort");
    EXPECT_EQ(recordsOf(*failure), 2);
}

// ---- Lists ----

TEST(LdifValues, BeginsEmptyWithNameAndType)
{
    const LDIF_Values list("ZOR-slapdPort");
    EXPECT_EQ(list.name, "ZOR-slapdPort");
    EXPECT_EQ(list.type, typeOf("zor-slapdPort"));
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(list.size(), 0U);
    EXPECT_TRUE(list.begin() == list.end());
    EXPECT_EQ(list.str(), "");
    EXPECT_EQ(LDIF_Values("no such attribute").type, typeOf(nullptr));
    EXPECT_EQ(LDIF_Values("").type, typeOf(nullptr));
    EXPECT_EQ(LDIF_Values("").name, "");
}

TEST(LdifValues, PrintsALineForEachValueInOrder)
{
    EXPECT_EQ(listOf("cn", {"a", "b"}).str(), "cn: a\ncn: b\n");
    EXPECT_EQ(listOf("Cn", {"b", "a", "", " c "}).str(), "Cn: b\nCn: a\nCn: \nCn:  c \n");
    EXPECT_EQ(listOf("", {"a"}).str(), ": a\n");
    // Values are written whole: folding and encoding are none of the list's business.
    EXPECT_EQ(listOf("cn", {std::string(200, 'x') + "\ny"}).str(), "cn: " + std::string(200, 'x') + "\ny\n");
}

TEST(LdifValues, KeepsTheFirstOfEqualValues)
{
    struct Row
    {
        const char* name;
        const char* attribute;
        Texts added;
        Texts kept;
    };
    const Row rows[] = {
        {"case-blind", "objectclass", {"top", "TOP", "person", "Top"}, {"top", "person"}},
        {"numbers", "zor-slapdPort", {"7", "007", " (7) ", "8"}, {"7", "8"}},
        {"DNs", "zor-slapdSuffix", {"CN=a,O=x", "cn=A; o=X", "o=x"}, {"CN=a, O=x", "o=x"}},
        {"case-exact", "zor-slapdIncludeSchema", {"a", "A", "a"}, {"a", "A"}},
        {"unknown attribute", "unknown", {"a", "A", "a", " a"}, {"a", "A", " a"}},
        {"enumeration", "zor-slapdReadOnly", {"TRUE", "true", "false"}, {"TRUE", "false"}},
        {"empty texts", "cn", {"", ""}, {""}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(textsOf(listOf(row.attribute, row.added)), row.kept);
    }
}

TEST(LdifValues, SingleValuedIsNotEnforced)
{
    ASSERT_TRUE(typeOf("zor-slapdPort")->singleValued);
    EXPECT_EQ(textsOf(listOf("zor-slapdPort", {"389", "390"})), (Texts{"389", "390"}));
}

TEST(LdifValues, AddingReturnsTheList)
{
    LDIF_Values list("cn");
    EXPECT_EQ(&(list += "a"s), &list);
    EXPECT_EQ(&(list += "a"s), &list);
    EXPECT_EQ(&(list += LDIF_Value(typeOf("cn"), "b")), &list);
    EXPECT_EQ(&(list += listOf("cn", {"c"})), &list);
    EXPECT_EQ(&(list -= "c"s), &list);
    EXPECT_EQ(textsOf(list), (Texts{"a", "b"}));
}

TEST(LdifValues, RefusedTextLeavesTheListAsItWas)
{
    LDIF_Values list("zor-slapdPort");
    for (const Texts& before : {Texts{}, Texts{"389"}}) {
        list = listOf("zor-slapdPort", before);
        const auto failure = failureOf([&] { list += "abc"s; });
        expectCodes(failure, 21, 1016, "Value is not valid integer syntax");
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->value, "abc");
        EXPECT_EQ(failure->attrType, typeOf("zor-slapdPort"));
        EXPECT_EQ(failure->attribute, "zor-slapdPort");
        EXPECT_EQ(textsOf(list), before);
    }
}

TEST(LdifValues, TextEndsAtANulByte)
{
    EXPECT_EQ(textsOf(listOf("cn", {"a\0b"s, "\0"s})), (Texts{"a", ""}));
}

TEST(LdifValues, AddTextDoesWhatAddingATextDoes)
{
    LDIF_Values list("zor-slapdPort");
    const std::string_view text = "389 and more";
    list.addText(text.substr(0, 3));
    list.addText("0389");
    list.addText(std::string_view("636\0x", 5));
    EXPECT_EQ(textsOf(list), (Texts{"389", "636"}));
    EXPECT_EQ(numberOf(*list.begin()), 389);
    const auto failure = failureOf([&] { list.addText("abc"); });
    const auto expected = failureOf([&] { list += "abc"s; });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->dump(), expected->dump());
    list.addText("1");
    EXPECT_EQ(list.size(), 3U);
    LDIF_Values names("cn");
    names.addText({});
    EXPECT_EQ(textsOf(names), Texts{""});
    LDIF_Values flags("zor-slapdReadOnly");
    EXPECT_TRUE(failureOf([&] { flags.addText({}); }).has_value());
}

TEST(LdifValues, ValuesAreAddedByTheirTexts)
{
    LDIF_Values list("zor-slapdPort");
    list += LDIF_Value(typeOf("cn"), " 0389 ");
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list.begin()->attrType, typeOf("zor-slapdPort"));
    EXPECT_EQ(list.begin()->str(), "389");
    list += LDIF_Value(typeOf("zor-slapdSecurePort"), "389");
    EXPECT_EQ(list.size(), 1U);
}

TEST(LdifValues, RefusedValueIsWrappedWithTypeAndText)
{
    LDIF_Values list = listOf("zor-slapdPort", {"389"});
    const auto failure = failureOf([&] { list += LDIF_Value(typeOf("cn"), "abc"); });
    expectCodes(failure, 21, 1016, "Value is not valid integer syntax");
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->value, "abc");
    EXPECT_EQ(failure->attrType, typeOf("zor-slapdPort"));
    EXPECT_EQ(recordsOf(*failure), 3);
    EXPECT_EQ(textsOf(list), Texts{"389"});
}

TEST(LdifValues, ListsAreAddedInOrder)
{
    LDIF_Values list = listOf("objectclass", {"top", "person"});
    list += listOf("other", {"x", "TOP", "a"});
    EXPECT_EQ(textsOf(list), (Texts{"top", "person", "x", "a"}));
    EXPECT_EQ(list.name, "objectclass");
    list += LDIF_Values("cn");
    EXPECT_EQ(list.size(), 4U);
}

TEST(LdifValues, AddingAListToItselfChangesNothing)
{
    for (const char* attribute : {"cn", "zor-slapdPort", "zor-slapdSuffix"}) {
        SCOPED_TRACE(attribute);
        LDIF_Values list =
            listOf(attribute, attribute == "zor-slapdSuffix"s ? Texts{"o=x", "o=y", "o=z"} : Texts{"1", "2", "3"});
        const Texts before = textsOf(list);
        const LDIF_Values& same = list;
        list += same;
        EXPECT_EQ(textsOf(list), before);
    }
}

TEST(LdifValues, AssigningAListToItselfKeepsIt)
{
    LDIF_Values list = listOf("zor-slapdPort", {"1", "2", "3"});
    const LDIF_Values& same = list;
    list = same;
    EXPECT_EQ(textsOf(list), (Texts{"1", "2", "3"}));
}

TEST(LdifValues, AddingAValueOfItsOwnChangesNothing)
{
    LDIF_Values list = listOf("cn", {"a", "b"});
    list += *list.begin();
    EXPECT_EQ(textsOf(list), (Texts{"a", "b"}));
}

TEST(LdifValues, RefusedListIsWrappedAndLeavesTheListAsItWas)
{
    LDIF_Values list = listOf("zor-slapdPort", {"389"});
    const auto failure = failureOf([&] { list += listOf("cn", {"1", "abc", "2"}); });
    expectCodes(failure, 21, 1016, "Value is not valid integer syntax");
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->value, "abc");
    EXPECT_EQ(failure->attrType, typeOf("zor-slapdPort"));
    EXPECT_EQ(recordsOf(*failure), 3);
    EXPECT_EQ(textsOf(list), Texts{"389"});
}

TEST(LdifValues, RemovesTheFirstEqualValue)
{
    LDIF_Values list = listOf("objectclass", {"a", "top", "b"});
    list -= "Top"s;
    EXPECT_EQ(textsOf(list), (Texts{"a", "b"}));
    list -= "absent"s;
    EXPECT_EQ(textsOf(list), (Texts{"a", "b"}));
    // Equal values can only come in behind the list's back; one goes at a time.
    const LDIF_Value again = *list.begin();
    list.values.push_back(again);
    list -= "A"s;
    EXPECT_EQ(textsOf(list), (Texts{"b", "a"}));
    list -= "a"s;
    list -= "b"s;
    EXPECT_TRUE(list.empty());
    LDIF_Values ports = listOf("zor-slapdPort", {"389", "636", "1389"});
    ports -= " (0636) "s;
    EXPECT_EQ(textsOf(ports), (Texts{"389", "1389"}));
    EXPECT_EQ(numberOf(*ports.begin()), 389);
}

TEST(LdifValues, RemovingARefusedTextIsWrapped)
{
    LDIF_Values list = listOf("zor-slapdPort", {"389"});
    const auto failure = failureOf([&] { list -= "abc"s; });
    expectCodes(failure, 21, 1016, "Value is not valid integer syntax");
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->value, "abc");
    EXPECT_EQ(failure->attrType, typeOf("zor-slapdPort"));
    EXPECT_EQ(recordsOf(*failure), 3);
    EXPECT_EQ(textsOf(list), Texts{"389"});
}

TEST(LdifValues, EmptyListDoesNotLookAtTheText)
{
    LDIF_Values list("zor-slapdPort");
    EXPECT_FALSE(failureOf([&] { list -= "abc"s; }).has_value());
    EXPECT_TRUE(list.find("abc") == list.end());
    EXPECT_TRUE(std::as_const(list).find("abc") == std::as_const(list).end());
    _AttrType counting = *typeOf("charset");
    counting.fromStr = countingFromStr;
    LDIF_Values counted("charset");
    counted.type = &counting;
    valuesBuilt = 0;
    counted -= "a"s;
    EXPECT_TRUE(counted.find("a") == counted.end());
    EXPECT_EQ(valuesBuilt, 0);
    counted += "a"s;
    EXPECT_GE(valuesBuilt, 1);
    EXPECT_EQ(textsOf(counted), Texts{"a"});
}

TEST(LdifValues, FindGivesTheFirstEqualValue)
{
    LDIF_Values list = listOf("zor-slapdPort", {"389", "636"});
    EXPECT_TRUE(list.find("0389") == list.begin());
    EXPECT_TRUE(list.find("636") == list.begin() + 1);
    EXPECT_TRUE(list.find("1") == list.end());
    const LDIF_Values& constant = list;
    EXPECT_TRUE(constant.find(" 636 ") == constant.begin() + 1);
    EXPECT_TRUE(constant.find("1") == constant.end());
    static_assert(std::is_same_v<decltype(*constant.find("1")), const LDIF_Value&>);
    expectCodes(failureOf([&] { (void)constant.find("abc"); }), 21, 1016, "Value is not valid integer syntax");
    const LDIF_Values empties = listOf("cn", {"a", ""});
    EXPECT_TRUE(empties.find("") == empties.begin() + 1);
}

TEST(LdifValues, FindComparesThroughTheTypeOfTheStoredValues)
{
    // A value that kept another type than its list's is compared by its own.
    LDIF_Values list = listOf("cn", {"ABC"});
    EXPECT_TRUE(list.find("abc") == list.begin());
    list.begin()->attrType = typeOf("charset");
    EXPECT_TRUE(list.find("abc") == list.end());
}

TEST(LdifValues, ForeignFailuresAreSystemErrors)
{
    _AttrType type = *typeOf("cn");
    type.match = foreignMatch;
    LDIF_Values list("cn");
    list.type = &type;
    list += "a"s;
    expectCodes(failureOf([&] { list -= "b"s; }), 80, 1000, "System error in LDIF_Values::operator -=");
    expectCodes(failureOf([&] { list += LDIF_Value(typeOf("cn"), "b"); }), 80, 1000,
                "System error in LDIF_Values::operator +=");
    expectCodes(failureOf([&] { list += listOf("cn", {"b"}); }), 80, 1000, "System error in LDIF_Values::operator +=");
    EXPECT_EQ(textsOf(list), Texts{"a"});

    _AttrType textless = *typeOf("cn");
    textless.toStr = foreignToStr;
    LDIF_Values unreadable("cn");
    unreadable.type = &textless;
    unreadable += "a"s;
    LDIF_Values target("cn");
    expectCodes(failureOf([&] { target += unreadable; }), 80, 1000, "System error in LDIF_Values::operator +=");
    // Assignment adds the other's values, and that is where it fails.
    expectCodes(failureOf([&] { target = unreadable; }), 80, 1000, "System error in LDIF_Values::operator +=");
}

TEST(LdifValues, CopiesAreDeep)
{
    std::optional<LDIF_Values> list(listOf("zor-slapdPort", {"389", "636"}));
    const LDIF_Values copy = *list;
    EXPECT_NE(binaryOf(*copy.begin()).block, binaryOf(*list->begin()).block);
    *list -= "389"s;
    list.reset();
    EXPECT_EQ(copy.name, "zor-slapdPort");
    EXPECT_EQ(copy.type, typeOf("zor-slapdPort"));
    EXPECT_EQ(textsOf(copy), (Texts{"389", "636"}));
    EXPECT_EQ(numberOf(*copy.begin()), 389);
}

TEST(LdifValues, AssignmentTakesNameTypeAndValues)
{
    LDIF_Values first = listOf("cn", {"old", "older"});
    LDIF_Values second("zor-slapdAdminDN");
    const LDIF_Values source = listOf("zor-slapdPort", {"389", "636"});
    second = first = source;
    for (const LDIF_Values* list : {&first, &second}) {
        EXPECT_EQ(list->name, "zor-slapdPort");
        EXPECT_EQ(list->type, typeOf("zor-slapdPort"));
        EXPECT_EQ(textsOf(*list), (Texts{"389", "636"}));
        EXPECT_NE(binaryOf(*list->begin()).block, binaryOf(*source.begin()).block);
    }
    EXPECT_EQ(&(first = LDIF_Values("charset")), &first);
    EXPECT_TRUE(first.empty());
    EXPECT_EQ(first.name, "charset");
    // Chained the other way round, the last one counts.
    (first = source) = second -= "389"s;
    EXPECT_EQ(textsOf(first), Texts{"636"});
}

TEST(LdifValues, AssignmentAddsByTheTextsSoDuplicatesGo)
{
    LDIF_Values source = listOf("cn", {"a"});
    const LDIF_Value again(typeOf("cn"), "A");
    source.values.push_back(again);
    LDIF_Values target("charset");
    target = source;
    EXPECT_EQ(textsOf(target), Texts{"a"});
}

TEST(LdifValues, FailedAssignmentHasDroppedTheOldValues)
{
    // Texts that the source's own type refuses can only be there when its type was exchanged.
    LDIF_Values source = listOf("cn", {"abc", "1"});
    source.type = typeOf("zor-slapdPort");
    LDIF_Values target = listOf("zor-slapdSecurePort", {"636"});
    const auto failure = failureOf([&] { target = source; });
    expectCodes(failure, 21, 1016, "Value is not valid integer syntax");
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->value, "abc");
    EXPECT_EQ(failure->attrType, typeOf("zor-slapdPort"));
    // The syntax, the value, += and = have each left a record.
    EXPECT_EQ(recordsOf(*failure), 4);
    EXPECT_TRUE(target.empty());
}

TEST(LdifValues, MovedFromListCanBeFilledAgain)
{
    LDIF_Values list = listOf("cn", {"a", "b"});
    const LDIF_Values moved = std::move(list);
    EXPECT_EQ(textsOf(moved), (Texts{"a", "b"}));
    EXPECT_EQ(moved.name, "cn");
    list = listOf("charset", {"c"});
    EXPECT_EQ(list.str(), "charset: c\n");
}

// ---- Taking over another list's values ----

TEST(LdifValues, AbsorbingGivesWhatAddingGives)
{
    struct Row
    {
        const char* name;
        const char* attribute;
        Texts own;
        const char* otherAttribute;
        Texts other;
        Texts expected;
    };
    const Row rows[] = {
        {"same type", "objectclass", {"top"}, "objectclass", {"TOP", "a", "b"}, {"top", "a", "b"}},
        {"other type", "zor-slapdPort", {"389"}, "cn", {" 0389", "636"}, {"389", "636"}},
        {"DNs", "zor-slapdSuffix", {"o=x"}, "zor-slapdSuffix", {"O=X", "o=y"}, {"o=x", "o=y"}},
        {"into an empty list", "cn", {}, "cn", {"a", "b"}, {"a", "b"}},
        {"nothing", "cn", {"a"}, "cn", {}, {"a"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        LDIF_Values absorbed = listOf(row.attribute, row.own);
        absorbed.absorb(listOf(row.otherAttribute, row.other));
        LDIF_Values added = listOf(row.attribute, row.own);
        added += listOf(row.otherAttribute, row.other);
        EXPECT_EQ(textsOf(absorbed), row.expected);
        EXPECT_EQ(textsOf(added), row.expected);
    }
}

TEST(LdifValues, AbsorbedValuesOfAnotherTypeAreAddedByTheirTexts)
{
    // They can only have come in behind their list's back.
    const auto foreign = [](const char* text) {
        LDIF_Values list("zor-slapdPort");
        const LDIF_Value value(typeOf("cn"), text);
        list.values.push_back(value);
        return list;
    };
    LDIF_Values list = listOf("zor-slapdPort", {"389"});
    list.absorb(foreign("0389"));
    EXPECT_EQ(textsOf(list), Texts{"389"});
    list.absorb(foreign(" 636 "));
    EXPECT_EQ(textsOf(list), (Texts{"389", "636"}));
    EXPECT_EQ(std::as_const(list).values.back().attrType, typeOf("zor-slapdPort"));

    LDIF_Values absorbing = list;
    const auto absorbed = failureOf([&] { absorbing.absorb(foreign("abc")); });
    const auto added = failureOf([&] { list += foreign("abc"); });
    expectCodes(absorbed, 21, 1016, "Value is not valid integer syntax");
    ASSERT_TRUE(absorbed.has_value() && added.has_value());
    EXPECT_EQ(absorbed->value, "abc");
    EXPECT_EQ(recordsOf(*absorbed), recordsOf(*added));
    EXPECT_EQ(textsOf(absorbing), (Texts{"389", "636"}));
}

// ---- Properties ----

namespace {

rc::Gen<std::vector<std::string>> portTexts()
{
    return rc::gen::container<std::vector<std::string>>(
        rc::gen::elementOf(Texts{"1", "01", " 1 ", "(1)", "2", "+2", "3", "65535", "x", "", "0"}));
}

} // namespace

RC_GTEST_PROP(LdifValues, HoldDistinctValuesInTheOrderOfTheirFirstAddition, ())
{
    const auto texts = *portTexts();
    LDIF_Values list("zor-slapdPort");
    std::vector<int> expected;
    for (const auto& text : texts) {
        const std::size_t before = list.size();
        const auto failure = failureOf([&] { list += text; });
        if (failure) {
            RC_ASSERT(list.size() == before);
            continue;
        }
        std::string digits;
        for (const char character : text) {
            digits += character >= '0' && character <= '9' ? std::string(1, character) : "";
        }
        const int number = std::stoi(digits);
        if (std::find(expected.begin(), expected.end(), number) == expected.end()) {
            expected.push_back(number);
        }
    }
    RC_ASSERT(list.size() == expected.size());
    for (std::size_t index = 0; index < expected.size(); ++index) {
        RC_ASSERT(list.values[index].str() == std::to_string(expected[index]));
    }
}

RC_GTEST_PROP(LdifValues, RemovingUndoesAdding, ())
{
    const auto texts =
        *rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(Texts{"a", "B", "c", "dd", ""}));
    const LDIF_Values before = listOf("cn", texts);
    LDIF_Values list = before;
    list += "new"s;
    list -= "NEW"s;
    RC_ASSERT(list.str() == before.str());
}
