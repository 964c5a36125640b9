// The accessors of the kept failure: on real failures, on records made by hand, and on none.
#include "support/api_test.h"

#include "LDIF_AttrType.h"
#include "LDIF_Exception.h"
#include "handle.h"

#include <string>

using namespace veltor::test;

namespace {

class CfgErrinfo : public ApiTest
{
};

constexpr char defaultFile[] = "/usr/ldap/etc/zorslapd.conf";

cfg_handle& fieldsOf(const Handle& handle)
{
    return *static_cast<cfg_handle*>(handle.get());
}

/// Puts a failure of one's own into a handle, as a failed call would.
LDIF_Exception& keep(const Handle& handle, int code, int libraryCode)
{
    cfg_reset(handle.get());
    cfg_handle& fields = fieldsOf(handle);
    fields.lastException = new LDIF_Exception("folder/source.cpp", 12, code, libraryCode, "message");
    fields.lastResult = code;
    return *fields.lastException;
}

std::string joined(const char* const* list)
{
    if (list == nullptr) {
        return "(null)";
    }
    std::string text;
    for (; *list != nullptr; ++list) {
        text += *list;
        text += ' ';
    }
    return text;
}

/// What every accessor gives when there is nothing to tell.
void expectNothing(void* handle)
{
    EXPECT_EQ(cfg_dump_exception(handle), nullptr);
    EXPECT_EQ(cfg_get_file_line(handle), 0);
    EXPECT_EQ(cfg_get_entry(handle), nullptr);
    EXPECT_EQ(cfg_get_attribute(handle), nullptr);
    EXPECT_EQ(cfg_get_value(handle), nullptr);
    EXPECT_EQ(cfg_get_enum(handle), nullptr);
    EXPECT_EQ(cfg_get_bitmask(handle), 0);
    EXPECT_EQ(cfg_get_minimum(handle), 0);
    EXPECT_EQ(cfg_get_maximum(handle), 0);
    EXPECT_EQ(cfg_get_is_single(handle), 0);
}

} // namespace

TEST_F(CfgErrinfo, ANullHandleHasNothingButTheArgumentError)
{
    EXPECT_EQ(cfg_get_errno(nullptr), 89);
    EXPECT_EQ(cfg_get_exterror(nullptr), 89);
    EXPECT_STREQ(cfg_get_file_name(nullptr), defaultFile);
    expectNothing(nullptr);
}

TEST_F(CfgErrinfo, WithoutAKeptFailureThereIsNothing)
{
    const Handle fresh(cfg_init());
    expectNothing(fresh.get());
    EXPECT_EQ(cfg_get_errno(fresh.get()), 0);
    EXPECT_EQ(cfg_get_exterror(fresh.get()), 0);

    const Handle good = bound("dn: cn=a\nobjectclass: top\n");
    expectNothing(good.get());
    EXPECT_EQ(cfg_get_errno(good.get()), 0);

    // Codes that come without a failure.
    EXPECT_EQ(cfg_search_s(good.get(), nullptr, subtree, nullptr, nullptr, 0, nullptr), 89);
    expectNothing(good.get());
    EXPECT_EQ(cfg_get_errno(good.get()), 89);
    EXPECT_EQ(cfg_get_exterror(good.get()), 89);
}

TEST_F(CfgErrinfo, TheTypesConstraintsComeFromARealFailure)
{
    struct Row
    {
        const char* filter;
        int libraryCode;
        const char* attribute;
        std::string value;
        const char* enumeration;
        long bitmask;
        long minimum;
        long maximum;
        int single;
    };
    const std::string longName(4097, 'n');
    const std::string longFilter = "zor-slapdIncludeSchema=" + longName;
    const Row rows[] = {
        {"zor-slapdPort=abc", 1016, "zor-slapdPort", "abc", "(null)", 0, 1, 65535, 1},
        {"zor-slapdPort= 65536 ", 1015, "zor-slapdPort", "65536", "(null)", 0, 1, 65535, 1},
        {"zor-slapdReadOnly=yes", 1017, "zor-slapdReadOnly", "yes", "true false ", 0, 0, 0, 1},
        {"zor-slapdSslCipherSpecs=1", 1019, "zor-slapdSslCipherSpecs", "1", "(null)", 0x3F00, 0, 0, 1},
        {"zor-slapdDbName=123456789", 1018, "zor-slapdDbName", "123456789", "(null)", 0, 1, 8, 1},
        {longFilter.c_str(), 1018, "zor-slapdIncludeSchema", longName, "(null)", 0, 1, 4096, 0},
    };
    const Handle handle = bound("dn: cn=a\n"
                                "objectclass: top\n"
                                "zor-slapdDbName: db\n"
                                "zor-slapdIncludeSchema: /etc/schema\n"
                                "zor-slapdPort: 389\n"
                                "zor-slapdReadOnly: true\n"
                                "zor-slapdSslCipherSpecs: 256\n");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.attribute);
        ASSERT_EQ(search(handle.get(), "cn=a", baseScope, row.filter).code, 21);
        EXPECT_EQ(cfg_get_errno(handle.get()), 21);
        EXPECT_EQ(cfg_get_exterror(handle.get()), row.libraryCode);
        EXPECT_STREQ(cfg_get_attribute(handle.get()), row.attribute);
        EXPECT_EQ(shown(cfg_get_value(handle.get())), row.value);
        EXPECT_EQ(joined(cfg_get_enum(handle.get())), row.enumeration);
        EXPECT_EQ(cfg_get_bitmask(handle.get()), row.bitmask);
        EXPECT_EQ(cfg_get_minimum(handle.get()), row.minimum);
        EXPECT_EQ(cfg_get_maximum(handle.get()), row.maximum);
        EXPECT_EQ(cfg_get_is_single(handle.get()), row.single);
    }
}

TEST_F(CfgErrinfo, AFailureWithoutATypeHasNoConstraints)
{
    const Handle handle = unbound(write("version: 1\nfoo: bar\n"));
    ASSERT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 65);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 1007);
    EXPECT_EQ(cfg_get_file_line(handle.get()), 2);
    EXPECT_STREQ(cfg_get_entry(handle.get()), "<root>");
    EXPECT_STREQ(cfg_get_value(handle.get()), "bar");
    EXPECT_EQ(cfg_get_enum(handle.get()), nullptr);
    EXPECT_EQ(cfg_get_bitmask(handle.get()), 0);
    EXPECT_EQ(cfg_get_minimum(handle.get()), 0);
    EXPECT_EQ(cfg_get_maximum(handle.get()), 0);
    EXPECT_EQ(cfg_get_is_single(handle.get()), 0);
}

TEST_F(CfgErrinfo, UnknownPlacesAreEmptyTextsAndZero)
{
    const Handle handle = withKeptFailure();
    EXPECT_STREQ(cfg_get_entry(handle.get()), "");
    EXPECT_STREQ(cfg_get_value(handle.get()), "");
    EXPECT_EQ(cfg_get_attribute(handle.get()), nullptr);
    EXPECT_EQ(cfg_get_file_line(handle.get()), 0);
}

TEST_F(CfgErrinfo, TheLibraryCodeGivesWayToTheResultWhenItIsZero)
{
    const Handle handle(cfg_init());
    keep(handle, 53, 0);
    EXPECT_EQ(cfg_get_errno(handle.get()), 53);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 53);
    keep(handle, 53, 1004);
    EXPECT_EQ(cfg_get_errno(handle.get()), 53);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 1004);
    keep(handle, 53, -5);
    EXPECT_EQ(cfg_get_exterror(handle.get()), -5);
}

TEST_F(CfgErrinfo, TheAttributesNameComesFromTheTypeWhereTheFailureHasNone)
{
    const Handle handle(cfg_init());
    LDIF_Exception& failure = keep(handle, 21, 1016);
    EXPECT_EQ(cfg_get_attribute(handle.get()), nullptr);
    failure.attrType = getAttrType("ZOR-SLAPDPORT");
    EXPECT_STREQ(cfg_get_attribute(handle.get()), "zor-slapdPort");
    failure.attribute = "as written";
    EXPECT_STREQ(cfg_get_attribute(handle.get()), "as written");
    failure.attribute.clear();
    failure.attrType = getAttrType("unknown to the catalogue");
    EXPECT_EQ(cfg_get_attribute(handle.get()), nullptr) << "the default record has no name";
    EXPECT_EQ(cfg_get_is_single(handle.get()), 0);
}

TEST_F(CfgErrinfo, TheFileNameHasFourSources)
{
    const Handle handle(cfg_init());
    EXPECT_STREQ(cfg_get_file_name(handle.get()), defaultFile) << "no name is set";

    const std::string other = pathOf("other.conf");
    cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, other.c_str());
    EXPECT_EQ(shown(cfg_get_file_name(handle.get())), other) << "the name that is set";

    const std::string file = write("dn: cn=a\nobjectclass: top\n");
    cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, file.c_str());
    ASSERT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
    cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, other.c_str());
    EXPECT_EQ(shown(cfg_get_file_name(handle.get())), file) << "the store's name goes before the one that is set";

    LDIF_Exception& failure = keep(handle, 91, 1003);
    EXPECT_EQ(shown(cfg_get_file_name(handle.get())), file) << "a failure without a file";
    failure.configFile = "/etc/failed.conf";
    EXPECT_STREQ(cfg_get_file_name(handle.get()), "/etc/failed.conf") << "the failure's file goes before all";

    cfg_reset(handle.get());
    fieldsOf(handle).store->fileName.clear();
    EXPECT_STREQ(cfg_get_file_name(handle.get()), "") << "a store without a name";
}

TEST_F(CfgErrinfo, NoAccessorResetsTheHandle)
{
    const Handle handle = bound("dn: cn=a\nobjectclass: top\nzor-slapdPort: 389\n");
    ASSERT_EQ(search(handle.get(), "cn=a", baseScope, "zor-slapdPort=abc").code, 21);
    const LDIF_Exception* const before = fieldsOf(handle).lastException;
    const char* const value = cfg_get_value(handle.get());
    cfg_get_errno(handle.get());
    cfg_get_exterror(handle.get());
    cfg_perror(handle.get(), "text");
    cfg_dump_exception(handle.get());
    cfg_get_file_name(handle.get());
    cfg_get_file_line(handle.get());
    cfg_get_entry(handle.get());
    cfg_get_attribute(handle.get());
    cfg_get_enum(handle.get());
    cfg_get_bitmask(handle.get());
    cfg_get_minimum(handle.get());
    cfg_get_maximum(handle.get());
    cfg_get_is_single(handle.get());
    cfg_err2string(21);
    EXPECT_EQ(fieldsOf(handle).lastException, before);
    EXPECT_EQ(cfg_get_errno(handle.get()), 21);
    EXPECT_EQ(cfg_get_value(handle.get()), value);
    EXPECT_STREQ(value, "abc");
}

TEST_F(CfgErrinfo, PerrorPrintsNothing)
{
    const Handle handle = withKeptFailure();
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    cfg_perror(handle.get(), "text");
    cfg_perror(nullptr, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// ---- The report ----

TEST_F(CfgErrinfo, TheReportIsTheKeptFailuresDump)
{
    const Handle handle(cfg_init());
    LDIF_Exception& failure = keep(handle, 21, 1016);
    failure.sysErrno = ENOENT;
    failure.configFile = "/etc/a.conf";
    failure.configLine = 7;
    failure.entryDn = "cn=a";
    failure.attribute = "zor-slapdPort";
    failure.value = "abc";
    failure.attrType = getAttrType("zor-slapdPort");
    EXPECT_EQ(shown(cfg_dump_exception(handle.get())), "[folder/source.cpp:12]\n"
                                                       "msg     message\n"
                                                       "errno 2: No such file or directory\n"
                                                       "ldapErr 21: Invalid syntax\n"
                                                       "extErr 1016: Value is not a valid integer.\n"
                                                       "Line 7 of /etc/a.conf\n"
                                                       "entry dn: cn=a\n"
                                                       "attribute: zor-slapdPort\n"
                                                       "value: abc\n"
                                                       "Constraints for zor-slapdPort\n"
                                                       "  Single-valued\n"
                                                       "  min: 1\n"
                                                       "  max: 65535\n");
}

TEST_F(CfgErrinfo, TheReportIsMadeOnceAndKeptUntilTheNextReset)
{
    const Handle handle = bound("dn: cn=a\nobjectclass: top\n");
    ASSERT_EQ(search(handle.get(), "cn=a,", baseScope, nullptr).code, 34);
    const char* const report = cfg_dump_exception(handle.get());
    ASSERT_NE(report, nullptr);
    const std::string text = report;
    cfg_set_option(handle.get(), CFG_OPT_SHOW_STACK, nullptr);
    EXPECT_EQ(cfg_dump_exception(handle.get()), report);
    EXPECT_EQ(text, report) << "made before the option changed";

    ASSERT_EQ(search(handle.get(), "cn=a,", baseScope, nullptr).code, 34);
    EXPECT_LT(shown(cfg_dump_exception(handle.get())).size(), text.size()) << "made anew, without the causes";
    cfg_reset(handle.get());
    EXPECT_EQ(cfg_dump_exception(handle.get()), nullptr);
    cfg_set_option(handle.get(), CFG_OPT_SHOW_STACK, flag(1));
}

TEST_F(CfgErrinfo, ACachedReportIsGivenEvenWhenNoFailureIsKept)
{
    const Handle handle(cfg_init());
    fieldsOf(handle).dumpText = strdup("cached");
    EXPECT_STREQ(cfg_dump_exception(handle.get()), "cached");
}

TEST_F(CfgErrinfo, AReportHasBaseNamesOfSourcesOnly)
{
    const Handle handle = bound("dn: cn=a\nobjectclass: top\n");
    ASSERT_EQ(search(handle.get(), "cn=a,", baseScope, nullptr).code, 34);
    const std::string report = shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(report.rfind("[LDIF_DN.cpp:", 0), 0U) << report;
    EXPECT_EQ(report.find('/'), std::string::npos) << report;
}

TEST_F(CfgErrinfo, TheKeptFailureIsACopyWithItsCauses)
{
    const Handle handle = bound("dn: cn=a\nobjectclass: top\n");
    ASSERT_EQ(search(handle.get(), "cn=a,", baseScope, nullptr).code, 34);
    const LDIF_Exception* const outer = fieldsOf(handle).lastException;
    ASSERT_NE(outer, nullptr);
    const LDIF_Exception* const cause = outer->nested;
    ASSERT_NE(cause, nullptr);
    EXPECT_EQ(cause->ldapErr, 34);
    EXPECT_EQ(cause->extErr, 1011);
    EXPECT_EQ(cause->msg, "Missing RDN attribute");
}
