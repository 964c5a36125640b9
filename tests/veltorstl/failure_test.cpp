// cfg_failure_count and cfg_failure_at: the kept exception and its causes as records.
#include "support/api_test.h"

#include "LDIF_AttrType.h"
#include "LDIF_Exception.h"
#include "handle.h"

#include "veltor/cfg_admin.h"

#include <climits>
#include <memory>
#include <string>
#include <vector>

using namespace veltor::test;

namespace {

class CfgFailure : public ApiTest
{
protected:
    /// A handle that keeps this failure.
    static Handle keeping(const LDIF_Exception& failure)
    {
        Handle handle(cfg_init());
        keep(handle.get(), failure);
        return handle;
    }

    static void keep(void* handle, const LDIF_Exception& failure)
    {
        auto& target = *static_cast<cfg_handle*>(handle);
        delete target.lastException;
        target.lastException = new LDIF_Exception(failure);
        target.lastResult = failure.ldapErr;
    }
};

/// Every field set, so that one that is mixed up or left out shows.
cfg_failure untouched()
{
    return {-1, -2, -3, "message", "file", "dn", "attribute", "value"};
}

cfg_failure recordAt(void* handle, int index)
{
    cfg_failure record = untouched();
    EXPECT_EQ(cfg_failure_at(handle, index, &record), 0);
    return record;
}

void expectTexts(const cfg_failure& record, const char* message, const char* file, const char* dn,
                 const char* attribute, const char* value)
{
    EXPECT_STREQ(record.message, message);
    EXPECT_STREQ(record.file, file);
    EXPECT_STREQ(record.dn, dn);
    EXPECT_STREQ(record.attribute, attribute);
    EXPECT_STREQ(record.value, value);
}

constexpr char tree[] = "version: 1\ncharset: UTF-8\n\ndn: cn=Configuration\nobjectclass: top\nzor-slapdPort: 389\n\n";

} // namespace

TEST_F(CfgFailure, AHandleWithoutAFailureHasNoRecords)
{
    const Handle handle(cfg_init());
    cfg_failure record = untouched();
    EXPECT_EQ(cfg_failure_count(handle.get()), 0);
    EXPECT_EQ(cfg_failure_at(handle.get(), 0, &record), 89);
    EXPECT_STREQ(record.message, "message") << "a refused call leaves the record alone";
}

TEST_F(CfgFailure, ANullHandleHasNoRecords)
{
    cfg_failure record = untouched();
    EXPECT_EQ(cfg_failure_count(nullptr), 0);
    EXPECT_EQ(cfg_failure_at(nullptr, 0, &record), 89);
}

TEST_F(CfgFailure, ARecordTellsEveryFact)
{
    LDIF_Exception failure("store.cpp", 17, 21, 1015, "out of range");
    failure.configFile = "/etc/zorslapd.conf";
    failure.configLine = 42;
    failure.entryDn = "cn=Configuration";
    failure.attribute = "zor-slapdPort";
    failure.value = "70000";
    const Handle handle = keeping(failure);

    ASSERT_EQ(cfg_failure_count(handle.get()), 1);
    const cfg_failure record = recordAt(handle.get(), 0);
    EXPECT_EQ(record.ldap, 21);
    EXPECT_EQ(record.code, 1015);
    EXPECT_EQ(record.line, 42);
    expectTexts(record, "out of range", "/etc/zorslapd.conf", "cn=Configuration", "zor-slapdPort", "70000");
}

TEST_F(CfgFailure, WhatIsNotKnownIsAnEmptyText)
{
    const Handle handle = keeping(LDIF_Exception("", 0, 80, 0, ""));
    const cfg_failure record = recordAt(handle.get(), 0);
    EXPECT_EQ(record.ldap, 80);
    EXPECT_EQ(record.code, 0);
    EXPECT_EQ(record.line, 0);
    expectTexts(record, "", "", "", "", "");
}

TEST_F(CfgFailure, TheTypeNamesTheAttributeWhereNothingElseDoes)
{
    LDIF_Exception failure("", 0, 21, 1015, "out of range");
    failure.attrType = getAttrType("zor-slapdPort");
    Handle handle = keeping(failure);
    EXPECT_STREQ(recordAt(handle.get(), 0).attribute, "zor-slapdPort");
    EXPECT_STREQ(cfg_get_attribute(handle.get()), "zor-slapdPort") << "both accessors agree";

    failure.attribute = "ZOR-SLAPDPORT";
    handle = keeping(failure);
    EXPECT_STREQ(recordAt(handle.get(), 0).attribute, "ZOR-SLAPDPORT");

    failure.attribute.clear();
    failure.attrType = getAttrType("description");
    ASSERT_EQ(failure.attrType->name, nullptr);
    handle = keeping(failure);
    EXPECT_STREQ(recordAt(handle.get(), 0).attribute, "");
}

TEST_F(CfgFailure, CausesFollowOutermostFirst)
{
    LDIF_Exception inner("inner.cpp", 1, 21, 1016, "the cause");
    inner.value = "12a";
    LDIF_Exception middle("middle.cpp", 2, inner);
    middle.attribute = "zor-slapdPort";
    LDIF_Exception outer("outer.cpp", 3, middle);
    outer.msg = "the effect";
    outer.ldapErr = 80;
    outer.extErr = 1000;
    outer.entryDn = "o=x";
    outer.configLine = 7;
    const Handle handle = keeping(outer);

    ASSERT_EQ(cfg_failure_count(handle.get()), 3);
    const cfg_failure first = recordAt(handle.get(), 0);
    EXPECT_EQ(first.ldap, 80);
    EXPECT_EQ(first.code, 1000);
    EXPECT_EQ(first.line, 7);
    expectTexts(first, "the effect", "", "o=x", "zor-slapdPort", "12a");
    const cfg_failure second = recordAt(handle.get(), 1);
    EXPECT_EQ(second.ldap, 21);
    EXPECT_EQ(second.code, 1016);
    EXPECT_EQ(second.line, 0);
    expectTexts(second, "the cause", "", "", "zor-slapdPort", "12a");
    expectTexts(recordAt(handle.get(), 2), "the cause", "", "", "", "12a");
}

TEST_F(CfgFailure, AnIndexOutsideIsRefused)
{
    const Handle handle = keeping(LDIF_Exception("outer.cpp", 2, LDIF_Exception("inner.cpp", 1, 32, 32, "gone")));
    ASSERT_EQ(cfg_failure_count(handle.get()), 2);
    for (const int index : {-1, 2, 3, INT_MIN, INT_MAX}) {
        SCOPED_TRACE(index);
        cfg_failure record = untouched();
        EXPECT_EQ(cfg_failure_at(handle.get(), index, &record), 89);
        EXPECT_EQ(record.ldap, -1);
    }
    EXPECT_EQ(cfg_failure_at(handle.get(), 0, nullptr), 89);
}

TEST_F(CfgFailure, LookingResetsNothing)
{
    const Handle handle = keeping(LDIF_Exception("outer.cpp", 2, LDIF_Exception("inner.cpp", 1, 32, 32, "gone")));
    const char* const report = cfg_dump_exception(handle.get());
    const cfg_failure before = recordAt(handle.get(), 1);
    cfg_failure record = untouched();
    EXPECT_EQ(cfg_failure_at(handle.get(), 2, &record), 89);
    EXPECT_EQ(cfg_failure_count(handle.get()), 2);
    EXPECT_EQ(cfg_get_errno(handle.get()), 32) << "not even a refused look is recorded";
    EXPECT_EQ(cfg_dump_exception(handle.get()), report) << "the cached report stands";
    EXPECT_EQ(recordAt(handle.get(), 1).message, before.message) << "texts are lent, not made";
}

TEST_F(CfgFailure, ARealFailureTellsTheSameAsTheClassicAccessors)
{
    const Handle handle = bound(tree);
    ASSERT_EQ(search(handle.get(), "cn=Configuration", baseScope, "zor-slapdPort=70000").code, 21);
    ASSERT_GE(cfg_failure_count(handle.get()), 2) << "the value layer wraps what its syntax raises";
    const cfg_failure record = recordAt(handle.get(), 0);
    EXPECT_EQ(record.ldap, 21);
    EXPECT_EQ(record.code, 1015);
    EXPECT_EQ(record.line, cfg_get_file_line(handle.get()));
    EXPECT_STREQ(record.message, "Integer value out of range");
    EXPECT_STREQ(record.dn, cfg_get_entry(handle.get()));
    EXPECT_STREQ(record.attribute, cfg_get_attribute(handle.get()));
    EXPECT_STREQ(record.value, "70000");
    EXPECT_STREQ(record.file, "") << "the store's name is no part of the record";
}

TEST_F(CfgFailure, ALoadThatFailsTellsFileAndLine)
{
    const std::string file = write("version: 1\n\n# below\nforeign: attribute\n");
    const Handle handle = unbound(file);
    ASSERT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 65);
    const cfg_failure record = recordAt(handle.get(), 0);
    EXPECT_EQ(record.code, 1007);
    EXPECT_EQ(record.line, 4);
    expectTexts(record, "\"foreign\" attribute not allowed in <root> object", file.c_str(), "<root>", "foreign",
                "attribute");
}

TEST_F(CfgFailure, TheNextCallThatResetsEndsTheRecords)
{
    const Handle handle = withKeptFailure();
    EXPECT_EQ(cfg_failure_count(handle.get()), 1);
    EXPECT_EQ(recordAt(handle.get(), 0).ldap, 86);
    EXPECT_EQ(cfg_reset(handle.get()), 0);
    EXPECT_EQ(cfg_failure_count(handle.get()), 0);
}
