// The table of library codes and the texts that cfg_err2string finds in it and in the LDAP client library.
#include "error.h"

#include "veltor/cfg.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <iterator>
#include <ldap.h>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using veltor::detail::cfg_errlist;
using veltor::detail::ErrorText;

static_assert(std::is_same_v<decltype(ErrorText::code), std::int32_t>);

// The numbers are ABI.
static_assert(CFG_ERR_UNEXPECTED == 1000);
static_assert(CFG_ERR_FILENAME_INVALID == 1001);
static_assert(CFG_ERR_FILE_NOT_FOUND == 1003);
static_assert(CFG_ERR_FILE_OPEN == 1004);
static_assert(CFG_ERR_SINGLE_VALUED == 1006);
static_assert(CFG_ERR_NOT_IN_OBJECTCLASS == 1007);
static_assert(CFG_ERR_NO_BINARY_REP == 1008);
static_assert(CFG_ERR_NO_STRING_REP == 1009);
static_assert(CFG_ERR_UNKNOWN_MOD_OP == 1010);
static_assert(CFG_ERR_DN_MISSING_ATTR == 1011);
static_assert(CFG_ERR_DN_ATTR_INVALID == 1012);
static_assert(CFG_ERR_DN_MISSING_VALUE == 1013);
static_assert(CFG_ERR_DN_VALUE_INVALID == 1014);
static_assert(CFG_ERR_INT_RANGE == 1015);
static_assert(CFG_ERR_INT_INVALID == 1016);
static_assert(CFG_ERR_ENUM_INVALID == 1017);
static_assert(CFG_ERR_LENGTH_RANGE == 1018);
static_assert(CFG_ERR_BITMASK == 1019);
static_assert(CFG_ERR_OID_INVALID == 1020);
static_assert(CFG_ERR_FILENAME_VALUE_INVALID == 1029);
static_assert(CFG_ERR_PLUGIN_INIT == 1035);
static_assert(CFG_LDAP_AUTH_UNKNOWN == 86);
static_assert(CFG_LDAP_PARAM_ERROR == 89);
static_assert(CFG_LDAP_NO_MEMORY == 90);
static_assert(CFG_LDAP_CONNECT_ERROR == 91);
static_assert(CFG_LDAP_NOT_SUPPORTED == 92);

struct Row
{
    std::int32_t code;
    const char* message;
};

constexpr Row rows[] = {
    {1000, "Unexpected error in veltor API"},
    {1001, "Configuration filename is not valid."},
    {1002, "Configuration file format is not valid."},
    {1003, "Configuration file not found."},
    {1004, "Configuration file cannot be opened."},
    {1005, "Value is not valid."},
    {1006, "Attribute may not have multiple values."},
    {1007, "Attribute is not a member of object class."},
    {1008, "No binary representation is defined for attribute."},
    {1009, "No string representation is defined for attribute."},
    {1010, "Unknown operation in LDAPMod."},
    {1011, "DN is not valid (missing attribute name)."},
    {1012, "Attribute name in DN is not valid."},
    {1013, "DN is not valid (missing attribute value)."},
    {1014, "Attribute value in DN is not valid."},
    {1015, "Integer value is not within allowable range."},
    {1016, "Value is not a valid integer."},
    {1017, "Enumerated value is not one of allowable values."},
    {1018, "Length of value is not within allowable range."},
    {1019, "Bitfield value is not within allowable bitmask."},
    {1020, "Value is not a valid OID."},
    {1021, "Value is not a valid tcp/ip domain component."},
    {1022, "Value is not a valid URL."},
    {1023, "URL protocol is not one of allowable values."},
    {1024, "Value is not a valid kerberos DN."},
    {1025, "Value is not a valid environment string."},
    {1026, "Value is not a valid filesystem path."},
    {1027, "One or more directories in path not found."},
    {1028, "Directory access denied."},
    {1001, "Value is not a valid file name."},
    {1030, "File not found."},
    {1031, "File access denied."},
    {1032, "Error in plugin directive."},
    {1033, "Plugin library not found."},
    {1034, "Plugin library could not be loaded."},
    {1035, "Could not load init function from plugin library."},
    {0, "Unknown error"},
};

static_assert(std::size(rows) == 37);

TEST(Error, TheTableHasItsRowsInOrder)
{
    ASSERT_EQ(std::size(cfg_errlist), std::size(rows));
    for (std::size_t index = 0; index < std::size(rows); ++index) {
        SCOPED_TRACE("row " + std::to_string(index + 1));
        EXPECT_EQ(cfg_errlist[index].code, rows[index].code);
        EXPECT_STREQ(cfg_errlist[index].message, rows[index].message);
    }
}

TEST(Error, Err2StringGivesTheFirstRowWithTheCode)
{
    // Row 30 repeats a code and is never reached; row 37 is the answer to every other code.
    constexpr std::size_t repeated = 29;
    for (std::size_t index = 0; index < std::size(rows) - 1; ++index) {
        SCOPED_TRACE("row " + std::to_string(index + 1));
        EXPECT_STREQ(cfg_err2string(rows[index].code), index == repeated ? rows[1].message : rows[index].message);
    }
}

TEST(Error, TheTextForAFileNameValueIsNeverReturned)
{
    const std::string unreachable = "Value is not a valid file name.";
    for (int code = -200; code <= 2200; ++code) {
        EXPECT_NE(cfg_err2string(code), unreachable) << code;
    }
}

TEST(Error, ACodeThatNoRowHasIsAnUnknownError)
{
    for (const int code : {1029, 1036, 1037, 1100, 2000, 65536, INT_MAX}) {
        EXPECT_STREQ(cfg_err2string(code), "Unknown error") << code;
    }
}

TEST(Error, CodesUpTo999HaveTheClientLibrarysTexts)
{
    struct Known
    {
        int code;
        const char* text;
    };
    const std::vector<Known> known = {
        {0, "Success"},
        {1, "Operations error"},
        {16, "No such attribute"},
        {19, "Constraint violation"},
        {21, "Invalid syntax"},
        {32, "No such object"},
        {34, "Invalid DN syntax"},
        {49, "Invalid credentials"},
        {50, "Insufficient access"},
        {65, "Object class violation"},
        {66, "Operation not allowed on non-leaf"},
        {80, "Other (e.g., implementation specific) error"},
        // The client library's own numbers, given as such.
        {-1, "Can't contact LDAP server"},
        {-9, "Bad parameter to an ldap routine"},
        {-17, "Referral Limit Exceeded"},
        {98, "Unknown error"},
        {162, "Unknown error"},
        {163, "Unknown error"},
        {999, "Unknown error"},
    };
    for (const Known& row : known) {
        EXPECT_STREQ(cfg_err2string(row.code), row.text) << row.code;
    }
    EXPECT_STREQ(cfg_err2string(INT_MIN), ldap_err2string(INT_MIN));
    for (int code = -200; code <= 999; ++code) {
        if (code < 81 || code > 97) {
            EXPECT_STREQ(cfg_err2string(code), ldap_err2string(code)) << code;
        }
    }
}

TEST(Error, TheApisOwnErrorsFollowTheNumberingOfTheClientLibrary)
{
    struct Known
    {
        int code;
        int clientCode;
        const char* text;
    };
    const std::vector<Known> known = {
        {81, LDAP_SERVER_DOWN, "Can't contact LDAP server"},
        {82, LDAP_LOCAL_ERROR, "Local error"},
        {83, LDAP_ENCODING_ERROR, "Encoding error"},
        {84, LDAP_DECODING_ERROR, "Decoding error"},
        {85, LDAP_TIMEOUT, "Timed out"},
        {86, LDAP_AUTH_UNKNOWN, "Unknown authentication method"},
        {87, LDAP_FILTER_ERROR, "Bad search filter"},
        {88, LDAP_USER_CANCELLED, "User cancelled operation"},
        {89, LDAP_PARAM_ERROR, "Bad parameter to an ldap routine"},
        {90, LDAP_NO_MEMORY, "Out of memory"},
        {91, LDAP_CONNECT_ERROR, "Connect error"},
        {92, LDAP_NOT_SUPPORTED, "Not Supported"},
        {93, LDAP_CONTROL_NOT_FOUND, "Control not found"},
        {94, LDAP_NO_RESULTS_RETURNED, "No results returned"},
        {95, LDAP_MORE_RESULTS_TO_RETURN, "More results to return"},
        {96, LDAP_CLIENT_LOOP, "Client Loop"},
        {97, LDAP_REFERRAL_LIMIT_EXCEEDED, "Referral Limit Exceeded"},
    };
    for (const Known& row : known) {
        SCOPED_TRACE(row.code);
        EXPECT_STREQ(cfg_err2string(row.code), row.text);
        EXPECT_STREQ(cfg_err2string(row.code), ldap_err2string(row.clientCode));
    }
}

TEST(Error, TheTextsAreStatic)
{
    for (const int code : {0, 32, 89, 1000, 1001, 1029, 1035, 1036}) {
        const char* const text = cfg_err2string(code);
        ASSERT_NE(text, nullptr) << code;
        EXPECT_EQ(cfg_err2string(code), text) << code;
    }
}

} // namespace
