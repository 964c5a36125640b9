// cfg_add_s: an entry is added in memory and on disk, in one call.
#include "support/update_api_test.h"

#include <filesystem>
#include <string>
#include <vector>

using namespace veltor::test;

namespace {

class CfgAdd : public UpdateApiTest
{
};

} // namespace

// ---- Arguments ----

TEST_F(CfgAdd, ANullHandleIsRefused)
{
    Mods mods({{modAdd, "cn", {{"b"}}}});
    EXPECT_EQ(cfg_add_s(nullptr, "cn=b,o=x", mods.list()), 89);
    EXPECT_EQ(cfg_add_s(nullptr, nullptr, nullptr), 89);
}

TEST_F(CfgAdd, AnUnboundHandleIsRefusedAndKeepsNothing)
{
    Mods mods({{modAdd, "cn", {{"b"}}}});
    expectRefusedUnbound([&mods](void* handle) { return cfg_add_s(handle, "cn=b,o=x", mods.list()); });
}

TEST_F(CfgAdd, BadArgumentsAreRefusedBeforeTheFileIsReadAgain)
{
    const Handle handle = bound(sampleText);
    Mods sound({{modAdd, "cn", {{"b"}}}});
    Mods withoutType({{modAdd, "cn", {{"b"}}}});
    withoutType.addWithoutType(modAdd);
    Mods withoutData({{modAdd, "cn", {{"b"}}}});
    withoutData.addWithoutData(modAdd, "description");
    struct Row
    {
        const char* name;
        const char* dn;
        LDAPMod** list;
    };
    const Row rows[] = {
        {"null dn", nullptr, sound.list()},
        {"null dn and list", nullptr, nullptr},
        {"null type", "cn=b,o=x", withoutType.list()},
        {"berval without data", "cn=b,o=x", withoutData.list()},
    };
    editFile("dn: o=edited\n\n");
    remember();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        // A failure first, which must be gone afterwards.
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, 0), 86);
        EXPECT_EQ(cfg_add_s(handle.get(), row.dn, row.list), 89);
        expectNothingKept(handle.get(), 89);
        expectUntouched();
        EXPECT_EQ(inMemory(handle.get()), sampleText);
    }
}

// ---- What is added ----

TEST_F(CfgAdd, AnEntryIsOnDiskWhenTheCallReturns)
{
    for (const Form form : bothForms) {
        SCOPED_TRACE(nameOf(form));
        const Handle handle = bound(sampleText);
        Mods mods({{modAdd, "zor-slapdPort", {{" 0636 "}}},
                   {modDelete, "objectclass", {{"top", "person", "TOP"}}},
                   {modReplace, "none", {}},
                   {5, "cn", {{"b"}}}},
                  form);
        EXPECT_EQ(cfg_add_s(handle.get(), "CN = b ; o=x", mods.list()), 0);
        expectNothingKept(handle.get(), 0);
        const std::string expected =
            std::string(sampleText) +
            "dn: CN=b, o=x\ncn: b\nobjectclass: top\nobjectclass: person\nzor-slapdPort: 636\n\n";
        EXPECT_EQ(read(), expected);
        EXPECT_EQ(inMemory(handle.get()), expected);
        EXPECT_EQ(dnsOf(search(handle.get(), "o=x", oneLevel, nullptr).result.get()), "cn=a, o=x\nCN=b, o=x\n");
    }
}

TEST_F(CfgAdd, ANullListAndAnEmptyOneMakeAnEntryWithoutAttributes)
{
    LDAPMod* none[] = {nullptr};
    Mods withoutValues({{modAdd, "cn", {}}, {modAdd, "sn", {{}}}});
    LDAPMod** const lists[] = {nullptr, none, withoutValues.list()};
    for (LDAPMod** const list : lists) {
        const Handle handle = bound(sampleText);
        EXPECT_EQ(cfg_add_s(handle.get(), "cn=b,o=x", list), 0);
        EXPECT_EQ(read(), std::string(sampleText) + "dn: cn=b, o=x\n\n");
    }
}

TEST_F(CfgAdd, AnEntryThatExistsGetsTheValuesAdded)
{
    const Handle handle = bound(sampleText);
    Mods mods({{modReplace, "zor-slapdPort", {{"0389", "636"}}}, {modAdd, "description", {{"d"}}}});
    EXPECT_EQ(cfg_add_s(handle.get(), "CN=A,O=X", mods.list()), 0);
    EXPECT_EQ(read(), std::string(rootText) + "dn: o=x\nobjectclass: top\n\n"
                                              "# the first one\ndn: cn=a, o=x\ndescription: d\nobjectclass: top\n"
                                              "# where it listens\nzor-slapdPort: 389\nzor-slapdPort: 636\n\n");
}

TEST_F(CfgAdd, AnEntryWithoutAParentStandsUnderItsNearestAncestor)
{
    const Handle handle = bound(sampleText);
    EXPECT_EQ(cfg_add_s(handle.get(), "cn=c,ou=b,cn=a,o=x", nullptr), 0);
    EXPECT_EQ(cfg_add_s(handle.get(), "cn=d,o=y", nullptr), 0);
    EXPECT_EQ(read(), std::string(sampleText) + "dn: cn=c, ou=b, cn=a, o=x\n\ndn: cn=d, o=y\n\n");
    EXPECT_EQ(cfg_add_s(handle.get(), "ou=b,cn=a,o=x", nullptr), 0);
    EXPECT_EQ(read(),
              std::string(sampleText) + "dn: ou=b, cn=a, o=x\n\ndn: cn=c, ou=b, cn=a, o=x\n\ndn: cn=d, o=y\n\n");
}

TEST_F(CfgAdd, ThePasswordInTheFileIsEncoded)
{
    const Handle handle = bound(sampleText);
    Mods mods({{modAdd, "zor-slapdAdminPW", {{"clear Text"}}}}, Form::bervals);
    EXPECT_EQ(cfg_add_s(handle.get(), "cn=b,o=x", mods.list()), 0);
    EXPECT_EQ(read(), std::string(sampleText) + "dn: cn=b, o=x\nzor-slapdAdminPW: " + encoded("clear Text") + "\n\n");
    EXPECT_EQ(read().find("clear Text"), std::string::npos);
}

TEST_F(CfgAdd, TheEmptyDnMergesIntoTheRootAndTheNextLoadMayRefuseIt)
{
    const Handle handle = bound(sampleText);
    Mods mods({{modAdd, "description", {{"d"}}}});
    EXPECT_EQ(cfg_add_s(handle.get(), "", mods.list()), 0);
    EXPECT_EQ(read(), "charset: UTF-8\ndescription: d\nversion: 1\n\n" +
                          std::string(sampleText).substr(std::string(rootText).size()));
    EXPECT_EQ(search(handle.get(), nullptr, subtree, nullptr).code, 0) << "what was written is not read back";

    const Handle next = unbound(pathOf(fileName));
    EXPECT_EQ(cfg_bind_s(next.get(), nullptr, nullptr, simple), 65);
    EXPECT_EQ(cfg_get_exterror(next.get()), 1007);
}

TEST_F(CfgAdd, AFileThatChangedIsReadFirst)
{
    const Handle handle = bound(sampleText);
    editFile(std::string(rootText) + "dn: o=y\n\n");
    EXPECT_EQ(cfg_add_s(handle.get(), "cn=b,o=y", nullptr), 0);
    EXPECT_EQ(read(), std::string(rootText) + "dn: o=y\n\ndn: cn=b, o=y\n\n");

    // What the library wrote itself does not count as a change.
    EXPECT_EQ(cfg_add_s(handle.get(), "cn=c,o=y", nullptr), 0);
    EXPECT_EQ(read(), std::string(rootText) + "dn: o=y\n\ndn: cn=b, o=y\n\ndn: cn=c, o=y\n\n");
}

// ---- Failures ----

TEST_F(CfgAdd, EveryFailureIsKeptAndLeavesTheFileAlone)
{
    const std::vector<RefusedChange> rows = {
        {"bad DN", "=b,o=x", {}, 34, 1012, "Invalid attribute sytax: ", "", ""},
        {"DN cut short", "cn=b,", {}, 34, 1011, "Missing RDN attribute", "", ""},
        {"bad escape", "cn=\\zz,o=x", {}, 34, 1014, "Invalid escape sequence: \\zz", "", ""},
        {"bad integer",
         "CN=b;o=x",
         {{modAdd, "zor-slapdPort", {{"x"}}}},
         21,
         1016,
         "Value is not valid integer syntax",
         "CN=b, o=x",
         "zor-slapdPort"},
        {"bad value for an entry that exists",
         "cn=a,o=x",
         {{modAdd, "description", {{"d"}}}, {modAdd, "zor-slapdPort", {{"0"}}}},
         21,
         1015,
         "Integer value out of range",
         "cn=a, o=x",
         "zor-slapdPort"},
    };
    expectRefused(cfg_add_s, rows);
}

TEST_F(CfgAdd, AFileThatCantBeReadAgainFailsTheCall)
{
    const Handle handle = bound(sampleText);
    std::filesystem::remove(pathOf(fileName));
    EXPECT_EQ(cfg_add_s(handle.get(), "cn=b,o=x", nullptr), 91);
    expectKept(handle.get(), 91, 1003, "_stat()");
    EXPECT_FALSE(exists(fileName));

    editFile("foo: bar\ndn: o=x\n\n");
    remember();
    EXPECT_EQ(cfg_add_s(handle.get(), "cn=b,o=x", nullptr), 65);
    expectKept(handle.get(), 65, 1007, "\"foo\" attribute not allowed in <root> object", "<root>", "foo");
    EXPECT_EQ(cfg_get_file_line(handle.get()), 1);
    expectUntouched();
}

TEST_F(CfgAdd, WhatCantBePutInPlaceStaysInMemoryForTheNextUpdate)
{
    const Handle handle = boundWithBackup(sampleText);
    obstructBackup();
    remember();
    EXPECT_EQ(cfg_add_s(handle.get(), "cn=b,o=x", nullptr), 50);
    expectNotPutInPlace(handle.get());
    expectUntouched();
    EXPECT_EQ(inMemory(handle.get()), std::string(sampleText) + "dn: cn=b, o=x\n\n");

    clearBackup();
    EXPECT_EQ(cfg_add_s(handle.get(), "cn=c,o=x", nullptr), 0);
    EXPECT_EQ(read(), std::string(sampleText) + "dn: cn=b, o=x\n\ndn: cn=c, o=x\n\n");
    EXPECT_EQ(read("backup"), sampleText);
}

TEST_F(CfgAdd, AnEntryThatCantBePrintedCostsNothingOnDiskAndCanBeDeletedAgain)
{
    const Handle handle = boundWithBackup(sampleText);
    remember();
    EXPECT_EQ(cfg_add_s(handle.get(), "cn=,o=x", nullptr), 34);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 1013);
    expectUntouched();
    EXPECT_FALSE(exists("backup"));
    EXPECT_EQ(cfg_add_s(handle.get(), "cn=c,o=x", nullptr), 34) << "it is still in memory";
    expectUntouched();
    EXPECT_EQ(cfg_delete_s(handle.get(), "cn=,o=x"), 0);
    EXPECT_EQ(read(), std::string(sampleText) + "dn: cn=c, o=x\n\n");
}

TEST_F(CfgAdd, AForeignFailureIsASystemErrorOfTheCall)
{
    expectForeignFailureTold([](void* handle) { return cfg_add_s(handle, longDn, nullptr); },
                             "System error in cfg_add_s()");
}
