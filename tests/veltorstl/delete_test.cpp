// cfg_delete_s: an entry is removed in memory and on disk, in one call.
#include "support/update_api_test.h"

#include <filesystem>
#include <string>

using namespace veltor::test;

namespace {

class CfgDelete : public UpdateApiTest
{
};

constexpr char forest[] = "charset: UTF-8\nversion: 1\n\n"
                          "dn: o=x\n\ndn: ou=m, o=x\n\ndn: cn=1, ou=m, o=x\n\ndn: cn=2, ou=gone, ou=m, o=x\n\n"
                          "# the last one\ndn: cn=3, o=x\n\n";

} // namespace

// ---- Arguments ----

TEST_F(CfgDelete, ANullHandleIsRefused)
{
    EXPECT_EQ(cfg_delete_s(nullptr, "cn=a,o=x"), 89);
    EXPECT_EQ(cfg_delete_s(nullptr, nullptr), 89);
}

TEST_F(CfgDelete, AnUnboundHandleIsRefusedAndKeepsNothing)
{
    expectRefusedUnbound([](void* handle) { return cfg_delete_s(handle, "cn=a,o=x"); });
}

TEST_F(CfgDelete, ANullDnIsRefusedBeforeTheFileIsReadAgain)
{
    const Handle handle = bound(sampleText);
    editFile("dn: o=edited\n\n");
    remember();
    EXPECT_EQ(cfg_delete_s(handle.get(), nullptr), 89);
    expectNothingKept(handle.get(), 89);
    expectUntouched();
    EXPECT_EQ(inMemory(handle.get()), sampleText);
}

// ---- What is removed ----

TEST_F(CfgDelete, ALeafIsGoneFromTheFileWhenTheCallReturns)
{
    const Handle handle = bound(sampleText);
    EXPECT_EQ(cfg_delete_s(handle.get(), "CN = A; O=X"), 0);
    expectNothingKept(handle.get(), 0);
    EXPECT_EQ(read(), std::string(rootText) + "dn: o=x\nobjectclass: top\n\n");
    EXPECT_EQ(search(handle.get(), "cn=a,o=x", baseScope, nullptr).code, 32);
    EXPECT_EQ(cfg_delete_s(handle.get(), "cn=a,o=x"), 32) << "a second time";
    EXPECT_EQ(cfg_delete_s(handle.get(), "o=x"), 0);
    EXPECT_EQ(read(), "charset: UTF-8\nversion: 1\n");
}

TEST_F(CfgDelete, AnEntryWithChildrenNeedsTheOption)
{
    const Handle handle = bound(forest);
    remember();
    EXPECT_EQ(cfg_delete_s(handle.get(), "ou=m,o=x"), 66);
    expectKept(handle.get(), 66, 66, "Use CFG_OPT_DELETE_NON_LEAVES to enable subtree delete", "ou=m, o=x");
    expectUntouched();

    cfg_set_option(handle.get(), CFG_OPT_DELETE_NON_LEAVES, flag(1));
    EXPECT_EQ(cfg_delete_s(handle.get(), "ou=m,o=x"), 0);
    expectNothingKept(handle.get(), 0);
    EXPECT_EQ(read(), "charset: UTF-8\nversion: 1\n\ndn: o=x\n\n# the last one\ndn: cn=3, o=x\n\n");

    cfg_set_option(handle.get(), CFG_OPT_DELETE_NON_LEAVES, flag(0));
    EXPECT_EQ(cfg_delete_s(handle.get(), "o=x"), 66);
    cfg_set_option(handle.get(), CFG_OPT_DELETE_NON_LEAVES, flag(-7));
    EXPECT_EQ(cfg_delete_s(handle.get(), "o=x"), 0) << "every number but 0 is on";
    EXPECT_EQ(read(), "charset: UTF-8\nversion: 1\n");
}

TEST_F(CfgDelete, TheOptionBelongsToTheHandle)
{
    const Handle allowed = bound(forest);
    const Handle refused = unbound(pathOf(fileName));
    ASSERT_EQ(cfg_bind_s(refused.get(), nullptr, nullptr, simple), 0);
    cfg_set_option(allowed.get(), CFG_OPT_DELETE_NON_LEAVES, flag(1));
    EXPECT_EQ(cfg_delete_s(refused.get(), "ou=m,o=x"), 66);
    EXPECT_EQ(cfg_delete_s(allowed.get(), "ou=m,o=x"), 0);
}

TEST_F(CfgDelete, AnEntryWhoseParentIsMissingCanBeDeleted)
{
    const Handle handle = bound(forest);
    EXPECT_EQ(cfg_delete_s(handle.get(), "cn=2,ou=gone,ou=m,o=x"), 0);
    EXPECT_EQ(read(), "charset: UTF-8\nversion: 1\n\ndn: o=x\n\ndn: ou=m, o=x\n\ndn: cn=1, ou=m, o=x\n\n"
                      "# the last one\ndn: cn=3, o=x\n\n");
}

TEST_F(CfgDelete, AFileThatChangedIsReadFirst)
{
    const Handle handle = bound(sampleText);
    editFile(std::string(sampleText) + "dn: cn=b, cn=a, o=x\n\n");
    EXPECT_EQ(cfg_delete_s(handle.get(), "cn=a,o=x"), 66) << "it has a child now";
    editFile(std::string(sampleText) + "dn: cn=b, o=x\n\n");
    EXPECT_EQ(cfg_delete_s(handle.get(), "cn=a,o=x"), 0);
    EXPECT_EQ(read(), std::string(rootText) + "dn: o=x\nobjectclass: top\n\ndn: cn=b, o=x\n\n");
}

// ---- Failures ----

TEST_F(CfgDelete, EveryFailureIsKeptAndLeavesTheFileAlone)
{
    struct Row
    {
        const char* name;
        const char* dn;
        int code;
        int libraryCode;
        const char* message;
        const char* entry;
    };
    const Row rows[] = {
        {"bad DN", "cn", 34, 1013, "Missing RDN value: cn", ""},
        {"bad character", "cn;lang-en=x", 34, 1012, "Invalid character in RDN attribute: ;", ""},
        {"unknown entry", "CN=4;o=x", 32, 32, "Entry not found", "CN=4, o=x"},
        {"missing parent", "ou=gone,ou=m,o=x", 32, 32, "Entry not found", "ou=gone, ou=m, o=x"},
        {"the empty DN", "", 32, 32, "Entry not found", ""},
        {"blanks", "  ", 32, 32, "Entry not found", ""},
    };
    for (const Row& row : rows) {
        for (const long withSubtree : {0L, 1L}) {
            SCOPED_TRACE(std::string(row.name) + (withSubtree != 0 ? ", with subtree" : ""));
            const Handle handle = bound(forest);
            cfg_set_option(handle.get(), CFG_OPT_DELETE_NON_LEAVES, flag(withSubtree));
            remember();
            EXPECT_EQ(cfg_delete_s(handle.get(), row.dn), row.code);
            expectKept(handle.get(), row.code, row.libraryCode, row.message, row.entry);
            expectUntouched();
            EXPECT_EQ(inMemory(handle.get()), forest);
        }
    }
}

TEST_F(CfgDelete, WhatCantBeWrittenIsGoneFromMemoryAllTheSame)
{
    const Handle handle = boundWithBackup(forest);
    obstructBackup();
    remember();
    EXPECT_EQ(cfg_delete_s(handle.get(), "cn=3,o=x"), 50);
    expectUntouched();
    EXPECT_EQ(cfg_delete_s(handle.get(), "cn=3,o=x"), 32);
    clearBackup();
    EXPECT_EQ(cfg_flush_s(handle.get()), 0);
    EXPECT_EQ(read(), std::string(forest).substr(0, std::string(forest).find("# the last one")));
}

TEST_F(CfgDelete, AFileThatCantBeReadAgainFailsTheCall)
{
    const Handle handle = bound(sampleText);
    std::filesystem::remove(pathOf(fileName));
    EXPECT_EQ(cfg_delete_s(handle.get(), "cn=a,o=x"), 91);
    expectKept(handle.get(), 91, 1003, "_stat()");
    EXPECT_FALSE(exists(fileName));
}

TEST_F(CfgDelete, AForeignFailureIsASystemErrorOfTheCall)
{
    expectForeignFailureTold([](void* handle) { return cfg_delete_s(handle, longDn); },
                             "System error in cfg_delete_s()");
}
