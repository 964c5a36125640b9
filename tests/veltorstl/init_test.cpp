// Handles and their options: what a fresh handle is, what each option takes and gives, and what a reset drops.
#include "support/api_test.h"

#include "LDIF_Exception.h"
#include "handle.h"

#include <cstring>
#include <string>

using namespace veltor::test;

namespace {

class CfgInit : public ApiTest
{
};
class CfgSetOption : public ApiTest
{
};
class CfgGetOption : public ApiTest
{
};
class CfgReset : public ApiTest
{
};

constexpr int allBooleanOptions[] = {CFG_OPT_HANDLE_FLAG1, CFG_OPT_HANDLE_FLAG2, CFG_OPT_SHOW_SOURCE,
                                     CFG_OPT_SHOW_STACK, CFG_OPT_DELETE_NON_LEAVES};
constexpr int nameOptions[] = {CFG_OPT_CONFIG_FILE, CFG_OPT_BACKUP_FILE};

int booleanOption(void* handle, int option)
{
    int value = -1;
    EXPECT_EQ(cfg_get_option(handle, option, &value), 0);
    return value;
}

std::string nameOption(void* handle, int option)
{
    char untouched[] = "untouched";
    char* value = untouched;
    EXPECT_EQ(cfg_get_option(handle, option, &value), 0);
    if (value == untouched) {
        return value;
    }
    const Text owned(value);
    return shown(value);
}

/// All seven options as one text.
std::string optionsOf(void* handle)
{
    std::string text;
    for (const int option : allBooleanOptions) {
        text += std::to_string(option) + "=" + std::to_string(booleanOption(handle, option)) + " ";
    }
    for (const int option : nameOptions) {
        text += std::to_string(option) + "=" + nameOption(handle, option) + " ";
    }
    return text;
}

constexpr char defaults[] = "1000=1 1001=0 1002=0 1003=1 1004=0 1005=(null) 1006=(null) ";

} // namespace

TEST_F(CfgInit, InstallPathAndDefaultFileAreConstantTexts)
{
    EXPECT_STREQ(getInstallPath(), "/usr/ldap");
    EXPECT_STREQ(getDefaultConfigFilename(), "/usr/ldap/etc/zorslapd.conf");
    EXPECT_EQ(getInstallPath(), getInstallPath());
    EXPECT_EQ(getDefaultConfigFilename(), getDefaultConfigFilename());
}

TEST_F(CfgInit, TheOptionConstantsHaveTheNumbersOfTheInterface)
{
    EXPECT_EQ(CFG_OPT_HANDLE_FLAG1, 1000);
    EXPECT_EQ(CFG_OPT_HANDLE_FLAG2, 1001);
    EXPECT_EQ(CFG_OPT_SHOW_SOURCE, 1002);
    EXPECT_EQ(CFG_OPT_SHOW_STACK, 1003);
    EXPECT_EQ(CFG_OPT_DELETE_NON_LEAVES, 1004);
    EXPECT_EQ(CFG_OPT_CONFIG_FILE, 1005);
    EXPECT_EQ(CFG_OPT_BACKUP_FILE, 1006);
}

TEST_F(CfgInit, AFreshHandleHasEveryOptionAtItsDefault)
{
    const Handle handle(cfg_init());
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(optionsOf(handle.get()), defaults);
}

TEST_F(CfgInit, AFreshHandleKeepsNothing)
{
    const Handle handle(cfg_init());
    EXPECT_EQ(cfg_get_errno(handle.get()), 0);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 0);
    EXPECT_EQ(cfg_dump_exception(handle.get()), nullptr);
    const auto& fields = *static_cast<cfg_handle*>(handle.get());
    EXPECT_EQ(fields.optionFlags, 0x1U);
    EXPECT_EQ(fields.store, nullptr);
    EXPECT_EQ(fields.treeText, nullptr);
}

TEST_F(CfgInit, AnyNewHandlePutsTheProcessWideFlagsBack)
{
    const Handle first(cfg_init());
    cfg_set_option(first.get(), CFG_OPT_SHOW_SOURCE, flag(1));
    cfg_set_option(first.get(), CFG_OPT_SHOW_STACK, flag(0));
    cfg_set_option(first.get(), CFG_OPT_HANDLE_FLAG2, flag(1));
    const Handle second(cfg_init());
    EXPECT_EQ(booleanOption(first.get(), CFG_OPT_SHOW_SOURCE), 0);
    EXPECT_EQ(booleanOption(first.get(), CFG_OPT_SHOW_STACK), 1);
    EXPECT_FALSE(LDIF_Exception::showSource);
    EXPECT_TRUE(LDIF_Exception::showStack);
    EXPECT_EQ(booleanOption(first.get(), CFG_OPT_HANDLE_FLAG2), 1) << "this flag belongs to the handle";
    EXPECT_EQ(optionsOf(second.get()), defaults);
}

TEST_F(CfgInit, TheProcessLocaleComesFromTheEnvironment)
{
    for (const char* const name : {"C", "C.UTF-8"}) {
        SCOPED_TRACE(name);
        const EnvironmentGuard environment("LC_ALL", name);
        const LocaleGuard other(std::strcmp(name, "C") == 0 ? "C.UTF-8" : "C");
        const Handle handle(cfg_init());
        EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), name);
    }
}

TEST_F(CfgInit, AnUnknownLocaleInTheEnvironmentIsNoFailure)
{
    const EnvironmentGuard environment("LC_ALL", "xx_XX.none");
    const Handle handle(cfg_init());
    ASSERT_NE(handle, nullptr);
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C.UTF-8") << "the locale that was set stays";
}

// ---- cfg_set_option ----

TEST_F(CfgSetOption, ANullHandleIsRefusedWhateverTheOption)
{
    for (const int option : {999, 1000, 1001, 1002, 1003, 1004, 1005, 1006, 1007}) {
        EXPECT_EQ(cfg_set_option(nullptr, option, "x"), 89) << option;
    }
}

TEST_F(CfgSetOption, UnknownOptionsAreAcceptedAndChangeNothing)
{
    const Handle handle(cfg_init());
    for (const int option : {999, 1007, 0, -1, INT_MIN, INT_MAX}) {
        SCOPED_TRACE(option);
        EXPECT_EQ(cfg_set_option(handle.get(), option, flag(1)), 0);
        EXPECT_EQ(cfg_set_option(handle.get(), option, flag(0)), 0);
        EXPECT_EQ(optionsOf(handle.get()), defaults);
    }
}

TEST_F(CfgSetOption, AnyNonZeroValueSetsAFlagAndZeroClearsIt)
{
    const Handle handle(cfg_init());
    for (const int option : allBooleanOptions) {
        for (const long value : {1L, 2L, -1L, 0x100000000L}) {
            SCOPED_TRACE(std::to_string(option) + " to " + std::to_string(value));
            EXPECT_EQ(cfg_set_option(handle.get(), option, flag(0)), 0);
            EXPECT_EQ(booleanOption(handle.get(), option), 0);
            EXPECT_EQ(cfg_set_option(handle.get(), option, flag(value)), 0);
            EXPECT_EQ(booleanOption(handle.get(), option), 1);
        }
    }
}

TEST_F(CfgSetOption, AFlagLeavesEveryOtherOptionAlone)
{
    for (const int option : allBooleanOptions) {
        SCOPED_TRACE(option);
        const Handle handle(cfg_init());
        const int before = booleanOption(handle.get(), option);
        std::string expected = defaults;
        const std::string name = std::to_string(option) + "=";
        expected.replace(expected.find(name), name.size() + 1, name + (before == 0 ? "1" : "0"));
        EXPECT_EQ(cfg_set_option(handle.get(), option, flag(before == 0 ? 1 : 0)), 0);
        EXPECT_EQ(optionsOf(handle.get()), expected);
    }
}

TEST_F(CfgSetOption, TheFlagsOfTheHandleHaveTheirBits)
{
    const Handle handle(cfg_init());
    const auto& fields = *static_cast<cfg_handle*>(handle.get());
    cfg_set_option(handle.get(), CFG_OPT_HANDLE_FLAG1, flag(0));
    EXPECT_EQ(fields.optionFlags, 0U);
    cfg_set_option(handle.get(), CFG_OPT_HANDLE_FLAG2, flag(1));
    EXPECT_EQ(fields.optionFlags, 0x2U);
    cfg_set_option(handle.get(), CFG_OPT_DELETE_NON_LEAVES, flag(1));
    EXPECT_EQ(fields.optionFlags, 0x6U);
    cfg_set_option(handle.get(), CFG_OPT_HANDLE_FLAG1, flag(1));
    EXPECT_EQ(fields.optionFlags, 0x7U);
}

TEST_F(CfgSetOption, HandleFlagsBelongToOneHandleAndTextFlagsToTheProcess)
{
    const Handle one(cfg_init());
    const Handle other(cfg_init());
    for (const int option : allBooleanOptions) {
        const bool processWide = option == CFG_OPT_SHOW_SOURCE || option == CFG_OPT_SHOW_STACK;
        const int before = booleanOption(other.get(), option);
        cfg_set_option(one.get(), option, flag(before == 0 ? 1 : 0));
        EXPECT_EQ(booleanOption(other.get(), option) != before, processWide) << option;
    }
    cfg_set_option(one.get(), CFG_OPT_SHOW_SOURCE, flag(0));
    cfg_set_option(one.get(), CFG_OPT_SHOW_STACK, flag(1));
}

TEST_F(CfgSetOption, ShowStackOfOneHandleChangesTheReportsOfAnother)
{
    const Handle failing = bound("dn: cn=Configuration\nobjectclass: top\n");
    const Handle other(cfg_init());
    const auto records = [&] {
        // A DN that ends in a separator fails in the innermost parser: a chain of records.
        EXPECT_EQ(search(failing.get(), "cn=a,", baseScope, nullptr).code, 34);
        const std::string report = shown(cfg_dump_exception(failing.get()));
        int count = 0;
        for (auto at = report.find("\nldapErr 34: "); at != std::string::npos; at = report.find("\nldapErr", at + 1)) {
            ++count;
        }
        return count;
    };
    EXPECT_GT(records(), 1);
    cfg_set_option(other.get(), CFG_OPT_SHOW_STACK, flag(0));
    EXPECT_EQ(records(), 1);
    cfg_set_option(other.get(), CFG_OPT_SHOW_STACK, flag(1));
    EXPECT_GT(records(), 1);
}

TEST_F(CfgSetOption, ShowSourcePutsThePositionInFrontOfShortTexts)
{
    const Handle handle(cfg_init());
    const LDIF_Exception failure("somewhere/store.cpp", 7, 80, 1000, "broken");
    EXPECT_EQ(failure.str(), "broken\n");
    cfg_set_option(handle.get(), CFG_OPT_SHOW_SOURCE, flag(1));
    EXPECT_EQ(failure.str(), "[store.cpp:7] broken\n");
    cfg_set_option(handle.get(), CFG_OPT_SHOW_SOURCE, flag(0));
    EXPECT_EQ(failure.str(), "broken\n");
}

TEST_F(CfgSetOption, AFileNameIsCopiedReplacedAndUnset)
{
    for (const int option : nameOptions) {
        SCOPED_TRACE(option);
        const Handle handle(cfg_init());
        char name[] = "/etc/first.conf";
        EXPECT_EQ(cfg_set_option(handle.get(), option, name), 0);
        name[1] = 'X';
        EXPECT_EQ(nameOption(handle.get(), option), "/etc/first.conf");
        EXPECT_EQ(cfg_set_option(handle.get(), option, "/etc/second.conf"), 0);
        EXPECT_EQ(nameOption(handle.get(), option), "/etc/second.conf");
        EXPECT_EQ(cfg_set_option(handle.get(), option, nullptr), 0);
        EXPECT_EQ(nameOption(handle.get(), option), "(null)");
        EXPECT_EQ(cfg_set_option(handle.get(), option, nullptr), 0);
        EXPECT_EQ(optionsOf(handle.get()), defaults);
    }
}

TEST_F(CfgSetOption, TheTwoFileNamesAreApart)
{
    const Handle handle(cfg_init());
    cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, "/etc/a.conf");
    cfg_set_option(handle.get(), CFG_OPT_BACKUP_FILE, "/etc/b.conf");
    EXPECT_EQ(nameOption(handle.get(), CFG_OPT_CONFIG_FILE), "/etc/a.conf");
    EXPECT_EQ(nameOption(handle.get(), CFG_OPT_BACKUP_FILE), "/etc/b.conf");
    cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, nullptr);
    EXPECT_EQ(nameOption(handle.get(), CFG_OPT_BACKUP_FILE), "/etc/b.conf");
}

TEST_F(CfgSetOption, AFileNameIsTakenAsItStands)
{
    const Handle handle(cfg_init());
    for (const char* const name : {" a ", "(a)", "A\tb\n", "\xff\xfe", "x"}) {
        EXPECT_EQ(cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, name), 0);
        EXPECT_EQ(nameOption(handle.get(), CFG_OPT_CONFIG_FILE), name);
    }
}

TEST_F(CfgSetOption, AFileNameHasOneTo4096Bytes)
{
    struct Row
    {
        const char* name;
        std::size_t length;
        int code;
    };
    const Row rows[] = {{"empty", 0, 21}, {"one", 1, 0}, {"longest", 4096, 0}, {"one too many", 4097, 21}};
    for (const int option : nameOptions) {
        for (const Row& row : rows) {
            SCOPED_TRACE(std::to_string(option) + " " + row.name);
            const Handle handle(cfg_init());
            ASSERT_EQ(cfg_set_option(handle.get(), option, "old"), 0);
            const std::string name(row.length, 'n');
            EXPECT_EQ(cfg_set_option(handle.get(), option, name.c_str()), row.code);
            EXPECT_EQ(nameOption(handle.get(), option), row.code == 0 ? name : "old");
        }
    }
}

TEST_F(CfgSetOption, ARefusedNameIsNotKeptAsAFailure)
{
    const Handle handle(cfg_init());
    EXPECT_EQ(cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, ""), 21);
    EXPECT_EQ(cfg_dump_exception(handle.get()), nullptr);
    EXPECT_EQ(cfg_get_errno(handle.get()), 0);
}

TEST_F(CfgSetOption, NoCallResetsTheHandleOrRecordsACode)
{
    const Handle handle = withKeptFailure();
    const char* const report = cfg_dump_exception(handle.get());
    for (const int option : {999, 1000, 1001, 1002, 1003, 1004, 1007}) {
        EXPECT_EQ(cfg_set_option(handle.get(), option, flag(1)), 0);
    }
    EXPECT_EQ(cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, "good"), 0);
    EXPECT_EQ(cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, ""), 21);
    EXPECT_EQ(cfg_set_option(handle.get(), CFG_OPT_BACKUP_FILE, nullptr), 0);
    EXPECT_EQ(cfg_get_errno(handle.get()), 86);
    EXPECT_EQ(cfg_dump_exception(handle.get()), report) << "the lent text is still the same one";
    cfg_set_option(handle.get(), CFG_OPT_SHOW_SOURCE, flag(0));
}

// ---- cfg_get_option ----

TEST_F(CfgGetOption, ANullHandleOrPlaceIsRefusedWhateverTheOption)
{
    const Handle handle(cfg_init());
    for (const int option : {999, 1000, 1001, 1002, 1003, 1004, 1005, 1006, 1007}) {
        SCOPED_TRACE(option);
        int value = 17;
        EXPECT_EQ(cfg_get_option(nullptr, option, &value), 89);
        EXPECT_EQ(value, 17);
        EXPECT_EQ(cfg_get_option(handle.get(), option, nullptr), 89);
        EXPECT_EQ(cfg_get_option(nullptr, option, nullptr), 89);
    }
}

TEST_F(CfgGetOption, AnUnknownOptionLeavesThePlaceAsItWas)
{
    const Handle handle(cfg_init());
    for (const int option : {999, 1007, 0, -1, INT_MIN, INT_MAX}) {
        int value = 17;
        EXPECT_EQ(cfg_get_option(handle.get(), option, &value), 0) << option;
        EXPECT_EQ(value, 17) << option;
    }
}

TEST_F(CfgGetOption, AFileNameIsAFreshCopyOnEveryCall)
{
    const Handle handle(cfg_init());
    for (const int option : nameOptions) {
        cfg_set_option(handle.get(), option, "/etc/a.conf");
        char* first = nullptr;
        char* second = nullptr;
        EXPECT_EQ(cfg_get_option(handle.get(), option, &first), 0);
        EXPECT_EQ(cfg_get_option(handle.get(), option, &second), 0);
        EXPECT_NE(first, second);
        first[0] = 'X';
        EXPECT_STREQ(second, "/etc/a.conf");
        EXPECT_EQ(nameOption(handle.get(), option), "/etc/a.conf");
        cfg_memfree(first);
        cfg_memfree(second);
    }
}

TEST_F(CfgGetOption, NoCallResetsTheHandleOrRecordsACode)
{
    const Handle handle = withKeptFailure();
    const char* const report = cfg_dump_exception(handle.get());
    optionsOf(handle.get());
    int value = 0;
    EXPECT_EQ(cfg_get_option(handle.get(), 1007, &value), 0);
    EXPECT_EQ(cfg_get_option(handle.get(), 1000, nullptr), 89);
    EXPECT_EQ(cfg_get_errno(handle.get()), 86);
    EXPECT_EQ(cfg_dump_exception(handle.get()), report);
}

// ---- cfg_reset ----

TEST_F(CfgReset, ANullHandleIsRefused)
{
    EXPECT_EQ(cfg_reset(nullptr), 89);
}

TEST_F(CfgReset, AFreshHandleMayBeReset)
{
    const Handle handle(cfg_init());
    EXPECT_EQ(cfg_reset(handle.get()), 0);
    EXPECT_EQ(cfg_reset(handle.get()), 0);
    EXPECT_EQ(optionsOf(handle.get()), defaults);
}

TEST_F(CfgReset, CodeFailureAndLentTextsGo)
{
    const Handle handle = withKeptFailure();
    auto& fields = *static_cast<cfg_handle*>(handle.get());
    fields.treeText = strdup("tree");
    EXPECT_EQ(cfg_reset(handle.get()), 0);
    EXPECT_EQ(cfg_get_errno(handle.get()), 0);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 0);
    EXPECT_EQ(cfg_dump_exception(handle.get()), nullptr);
    EXPECT_EQ(fields.lastException, nullptr);
    EXPECT_EQ(fields.dumpText, nullptr);
    EXPECT_EQ(fields.treeText, nullptr);
}

TEST_F(CfgReset, StoreNamesAndFlagsStay)
{
    const Handle handle = bound("dn: cn=Configuration\nobjectclass: top\n");
    cfg_set_option(handle.get(), CFG_OPT_BACKUP_FILE, "/etc/b.conf");
    cfg_set_option(handle.get(), CFG_OPT_DELETE_NON_LEAVES, flag(1));
    const std::string before = optionsOf(handle.get());
    EXPECT_EQ(cfg_reset(handle.get()), 0);
    EXPECT_EQ(optionsOf(handle.get()), before);
    EXPECT_EQ(dnsOf(search(handle.get(), "cn=configuration", baseScope, nullptr).result.get()), "cn=Configuration\n");
}
