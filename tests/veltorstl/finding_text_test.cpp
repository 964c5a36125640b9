// What a finding may say: texts that stay on their line, and reasons that name the limits.
#include "finding_text.h"

#include "LDIF_AttrType.h"
#include "LDIF_Exception.h"

#include <string>

#include <gtest/gtest.h>

#include "support/locale_guard.h"

using namespace veltor::detail;
using namespace veltor::test;
using namespace std::string_literals;

namespace {

std::string reason(int code, const _AttrType& type)
{
    return reasonOf(LDIF_Exception(VELTOR_HERE, 21, code, "refused"), type);
}

const _AttrType& limited(std::int32_t min, std::int32_t max)
{
    static _AttrType type = *getAttrType("zor-slapdPort");
    type.min = min;
    type.max = max;
    return type;
}

TEST(FindingText, WhatDoesNotPrintIsEscaped)
{
    const LocaleGuard locale("C.UTF-8");
    const struct
    {
        const char* name;
        std::string text;
        const char* expected;
    } rows[] = {
        {"nothing", "", R"("")"},
        {"letters", "caf\xC3\xA9", "\"caf\xC3\xA9\""},
        {"a NUL", "a\0b"s, R"("a\x00b")"},
        {"control characters", "a\tb\nc\x7F", R"("a\x09b\x0ac\x7f")"},
        {"a byte that begins no character", "a\xFFz", R"("a\xffz")"},
        {"a character that is cut off", "a\xE2\x80", R"("a\xe2\x80")"},
        {"one that another follows", "\xE2\x80z", R"("\xe2\x80z")"},
        {"the left-to-right mark", "\xE2\x80\x8E", R"("\xe2\x80\x8e")"},
        {"the right-to-left mark", "\xE2\x80\x8F", R"("\xe2\x80\x8f")"},
        {"the line separator", "\xE2\x80\xA8", R"("\xe2\x80\xa8")"},
        {"the right-to-left override", "\xE2\x80\xAE", R"("\xe2\x80\xae")"},
        {"what stands behind it", "\xE2\x80\xB0", "\"\xE2\x80\xB0\""},
        {"the left-to-right isolate", "\xE2\x81\xA6", R"("\xe2\x81\xa6")"},
        {"the end of an isolate", "\xE2\x81\xA9", R"("\xe2\x81\xa9")"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(veltor::detail::quoted(row.text), row.expected) << row.name;
    }
}

TEST(FindingText, OnlyTheBeginningOfALongTextIsShown)
{
    const LocaleGuard locale("C.UTF-8");
    EXPECT_EQ(veltor::detail::quoted(std::string(80, 'x')), "\"" + std::string(80, 'x') + "\"");
    EXPECT_EQ(veltor::detail::quoted(std::string(81, 'x')), "\"" + std::string(80, 'x') + "...\"");
    EXPECT_EQ(veltor::detail::quoted(std::string(79, 'x') + "\xC3\xA9z"), "\"" + std::string(79, 'x') + "\xC3\xA9...\"")
        << "a character is not cut";
}

TEST(FindingText, InTheLocaleCOnlyAsciiPrints)
{
    const LocaleGuard locale("C");
    EXPECT_EQ(veltor::detail::quoted("caf\xC3\xA9"), R"("caf\xc3\xa9")");
}

TEST(FindingText, PasswordsAndTheEnvironmentAreSecret)
{
    for (const _AttrType& type : attrMapArray) {
        const std::string name = type.name == nullptr ? "" : type.name;
        EXPECT_EQ(isSecretType(type), type.fromStr == pwFromStr || name == "zor-slapdSetenv") << name;
    }
    EXPECT_TRUE(namesSecretAttribute("x ZOR-SLAPDADMINPW: y"));
    EXPECT_TRUE(namesSecretAttribute("zor-slapdsetenv"));
    EXPECT_FALSE(namesSecretAttribute("zor-slapdPort: the password"));
    EXPECT_FALSE(namesSecretAttribute("zor-slapdPort"));
}

TEST(FindingText, NamesThatAreNearAreFound)
{
    const struct
    {
        const char* name;
        std::string given;
        const char* expected; // null: none
    } rows[] = {
        {"a slip", "zor-slapdPrt", "zor-slapdPort"},
        {"no prefix", "adminpw", "zor-slapdAdminPW"},
        {"the short prefix", "zor-adminpw", "zor-slapdAdminPW"},
        {"a slip in the prefix", "zor-slpadPort", "zor-slapdPort"},
        {"nothing", "", nullptr},
        {"the prefix alone", "zor-slapd", nullptr},
        {"no such thing", "quetzalcoatl", nullptr},
        {"as long as may be", std::string(64, 'q'), nullptr},
        {"too long", "zor-slapdPort" + std::string(52, 't'), nullptr},
    };
    for (const auto& row : rows) {
        const _AttrType* const near = nearestAttribute(row.given);
        EXPECT_STREQ(near == nullptr ? nullptr : near->name, row.expected) << row.name;
    }
}

TEST(FindingText, ReasonsNameTheLimits)
{
    EXPECT_EQ(reason(1015, limited(1, 65535)), "it is not a number from 1 to 65535");
    EXPECT_EQ(reason(1015, limited(7, 7)), "it is not 7");
    EXPECT_EQ(reason(1015, limited(0, 0)), "it is too large for a number of 32 bits");
    EXPECT_EQ(reason(1015, limited(0, 5)), "it is not a number from 0 to 5");
    EXPECT_EQ(reason(1016, limited(1, 2)), "it is not an integer");
    EXPECT_EQ(reason(1018, limited(1, 8)), "it does not have 1 to 8 characters");
    EXPECT_EQ(reason(1017, *getAttrType("zor-slapdReadOnly")), "it is none of: true, false");
    EXPECT_EQ(reason(1017, limited(0, 0)), "it is none of: ") << "a type without a list";
    EXPECT_EQ(reason(1019, *getAttrType("zor-slapdSslCipherSpecs")).rfind("it has bits outside 0x", 0), 0U);
}

TEST(FindingText, ReasonsOfDnsAreTold)
{
    const _AttrType& type = *getAttrType("zor-slapdSuffix");
    EXPECT_EQ(reason(1011, type), "it is not a valid DN: an attribute type is missing in it");
    EXPECT_EQ(reason(1013, type), "it is not a valid DN: a value is missing in it");
    EXPECT_EQ(reasonOfDn(1012), "an attribute type in it is not valid, or is not followed by \"=\"");
    EXPECT_EQ(reasonOfDn(1014), "a value in it has a character or an escape that is not allowed");
    EXPECT_EQ(reasonOfDn(1000), "it can't be read (code 1000)");
}

TEST(FindingText, WithoutAReasonTheCodeIsTold)
{
    EXPECT_EQ(reason(53, limited(1, 2)), "it is refused with code 53");
    EXPECT_EQ(reason(0, limited(1, 2)), "it is refused with code 21") << "the LDAP code in place of the library's own";
}

} // namespace
