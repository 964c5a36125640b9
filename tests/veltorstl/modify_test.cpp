// cfg_modify_s: an entry is changed in memory and on disk, in one call.
#include "support/failing_allocator.h"
#include "support/update_api_test.h"

#include <filesystem>
#include <string>
#include <vector>

using namespace veltor::test;

namespace {

class CfgModify : public UpdateApiTest
{
};

constexpr char entryHead[] = "dn: o=x\nobjectclass: top\n\n# the first one\ndn: cn=a, o=x\n";

} // namespace

// ---- Arguments ----

TEST_F(CfgModify, ANullHandleIsRefused)
{
    Mods mods({{modAdd, "cn", {{"b"}}}});
    EXPECT_EQ(cfg_modify_s(nullptr, "cn=a,o=x", mods.list()), 89);
    EXPECT_EQ(cfg_modify_s(nullptr, nullptr, nullptr), 89);
}

TEST_F(CfgModify, AnUnboundHandleIsRefusedAndKeepsNothing)
{
    Mods mods({{modAdd, "cn", {{"b"}}}});
    expectRefusedUnbound([&mods](void* handle) { return cfg_modify_s(handle, "cn=a,o=x", mods.list()); });
    expectRefusedUnbound([](void* handle) { return cfg_modify_s(handle, "cn=a,o=x", nullptr); });
}

TEST_F(CfgModify, BadArgumentsAreRefusedBeforeTheFileIsReadAgain)
{
    const Handle handle = bound(sampleText);
    Mods sound({{modAdd, "cn", {{"b"}}}});
    editFile("dn: o=edited\n\n");
    remember();
    EXPECT_EQ(cfg_modify_s(handle.get(), nullptr, sound.list()), 89);
    expectNothingKept(handle.get(), 89);
    EXPECT_EQ(cfg_modify_s(handle.get(), nullptr, nullptr), 89);
    for (const int operation : {modAdd, modDelete, modReplace, 3}) {
        SCOPED_TRACE(operation);
        Mods withoutType({{modAdd, "cn", {{"b"}}}});
        withoutType.addWithoutType(operation);
        EXPECT_EQ(cfg_modify_s(handle.get(), "cn=a,o=x", withoutType.list()), 89);
        expectNothingKept(handle.get(), 89);
        Mods withoutData({{modAdd, "cn", {{"b"}}}});
        withoutData.addWithoutData(operation, "description");
        EXPECT_EQ(cfg_modify_s(handle.get(), "cn=a,o=x", withoutData.list()), 89);
        expectNothingKept(handle.get(), 89);
    }
    expectUntouched();
    EXPECT_EQ(inMemory(handle.get()), sampleText);
}

// ---- What is changed ----

TEST_F(CfgModify, AChangeIsOnDiskWhenTheCallReturns)
{
    struct Row
    {
        const char* name;
        std::vector<Change> changes;
        const char* attributes;
    };
    const Row rows[] = {
        {"replace",
         {{modReplace, "ZOR-slapdPort", {{"0636"}}}},
         "objectclass: top\n# where it listens\nzor-slapdPort: 636\n"},
        {"add",
         {{modAdd, "zor-slapdPort", {{"636", "389"}}}},
         "objectclass: top\n# where it listens\nzor-slapdPort: 389\nzor-slapdPort: 636\n"},
        {"delete", {{modDelete, "zor-slapdPort", {{"00389"}}}}, "objectclass: top\n"},
        {"several",
         {{modDelete, "objectclass", {}}, {modAdd, "cn", {{"a"}}}, {modReplace, "zor-slapdPort", {{"1"}}}},
         "cn: a\n# where it listens\nzor-slapdPort: 1\n"},
    };
    for (const Row& row : rows) {
        for (const Form form : bothForms) {
            SCOPED_TRACE(std::string(row.name) + ", " + nameOf(form));
            const Handle handle = bound(sampleText);
            Mods mods(row.changes, form);
            EXPECT_EQ(cfg_modify_s(handle.get(), "CN=a;O=x", mods.list()), 0);
            expectNothingKept(handle.get(), 0);
            const std::string expected = std::string(rootText) + entryHead + row.attributes + "\n";
            EXPECT_EQ(read(), expected);
            EXPECT_EQ(inMemory(handle.get()), expected);
        }
    }
}

TEST_F(CfgModify, ANullOrEmptyListSucceedsAndTheFileIsWrittenAllTheSame)
{
    LDAPMod* none[] = {nullptr};
    LDAPMod** const lists[] = {nullptr, none};
    for (LDAPMod** const list : lists) {
        for (const char* dn : {"cn=a,o=x", "cn=missing,o=x"}) {
            SCOPED_TRACE(dn);
            // Not in the form of a write, so that a write shows.
            const Handle handle = bound("dn:o=x\n");
            EXPECT_EQ(cfg_modify_s(handle.get(), dn, list), 0);
            EXPECT_EQ(read(), "charset: ISO-8859-1\nversion: 1\n\ndn: o=x\n\n");
        }
    }
}

TEST_F(CfgModify, ThePasswordInTheFileIsEncoded)
{
    for (const Form form : bothForms) {
        SCOPED_TRACE(nameOf(form));
        const Handle handle = bound("dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminDN: cn=root\n"
                                    "zor-slapdAdminPW: old Secret\n\n");
        Mods mods({{modReplace, "zor-slapdAdminPW", {{"new Secret"}}}}, form);
        EXPECT_EQ(cfg_modify_s(handle.get(), "cn=Configuration", mods.list()), 0);
        EXPECT_EQ(read(), "charset: ISO-8859-1\nversion: 1\n\n"
                          "dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminDN: cn=root\n"
                          "zor-slapdAdminPW: " +
                              encoded("new Secret") + "\n\n");
        EXPECT_EQ(read().find("Secret"), std::string::npos);

        const Handle next = unbound(pathOf(fileName));
        EXPECT_EQ(cfg_bind_s(next.get(), "cn=root", "old Secret", simple), 49);
        EXPECT_EQ(cfg_bind_s(next.get(), "cn=root", "new Secret", simple), 0);
    }
}

TEST_F(CfgModify, APasswordIsDeletedByItsClearText)
{
    const Handle handle = bound("dn: o=x\nzor-slapdAdminPW: Secret\n\n");
    Mods other({{modDelete, "zor-slapdAdminPW", {{"secret"}}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "o=x", other.list()), 0);
    EXPECT_NE(read().find("zor-slapdAdminPW"), std::string::npos);
    Mods same({{modDelete, "zor-slapdAdminPW", {{"Secret"}}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "o=x", same.list()), 0);
    EXPECT_EQ(read(), "charset: ISO-8859-1\nversion: 1\n\ndn: o=x\n\n");
}

TEST_F(CfgModify, TheEmptyDnChangesTheRoot)
{
    const Handle handle = bound(sampleText);
    Mods mods({{modReplace, "charset", {{"ISO-8859-1"}}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "  ", mods.list()), 0);
    EXPECT_EQ(read().substr(0, 31), "charset: ISO-8859-1\nversion: 1\n");
}

TEST_F(CfgModify, AFileThatChangedIsReadFirst)
{
    const Handle handle = bound(sampleText);
    editFile(std::string(rootText) + "dn: o=x\n\ndn: cn=a, o=x\ncn: edited\n\n");
    Mods mods({{modAdd, "cn", {{"modified"}}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "cn=a,o=x", mods.list()), 0);
    EXPECT_EQ(read(), std::string(rootText) + "dn: o=x\n\ndn: cn=a, o=x\ncn: edited\ncn: modified\n\n");

    editFile(std::string(rootText) + "dn: o=y\n\n");
    EXPECT_EQ(cfg_modify_s(handle.get(), "cn=a,o=x", mods.list()), 32);
    EXPECT_EQ(read(), std::string(rootText) + "dn: o=y\n\n");
}

TEST_F(CfgModify, AChangeOfTheFileWithinTheSameSecondIsNotSeen)
{
    const Handle handle = bound(sampleText);
    struct stat before = {};
    ASSERT_EQ(stat(pathOf(fileName).c_str(), &before), 0);
    write("dn: o=edited\n\n");
    const struct timespec times[2] = {before.st_atim,
                                      {before.st_mtim.tv_sec, (before.st_mtim.tv_nsec + 1) % 1000000000}};
    ASSERT_EQ(utimensat(AT_FDCWD, pathOf(fileName).c_str(), times, 0), 0);
    EXPECT_EQ(cfg_modify_s(handle.get(), "o=x", nullptr), 0);
    EXPECT_EQ(read(), sampleText);
}

// ---- Failures ----

TEST_F(CfgModify, EveryFailureIsKeptAndLeavesTheFileAlone)
{
    const std::vector<RefusedChange> rows = {
        {"bad DN", "a", {{modAdd, "cn", {{"b"}}}}, 34, 1013, "Missing RDN value: a", "", ""},
        {"bad DN, no list", "cn=a=b", {}, 34, 1014, "Invalid character in RDN value: =", "", ""},
        {"missing entry", "CN=b;o=x", {{modAdd, "cn", {{"b"}}}}, 32, 32, "Entry not found", "CN=b, o=x", ""},
        {"missing attribute",
         "cn=a,o=x",
         {{modDelete, "cn", {{"b"}}}},
         16,
         16,
         "Target attribute of MOD_DELETE not found",
         "cn=a, o=x",
         "cn"},
        {"unknown operation", "cn=a,o=x", {{3, "cn", {{"b"}}}}, 89, 1010, "Unknown mod_op: 3", "cn=a, o=x", "cn"},
        {"another", "cn=a,o=x", {{5, "cn", {}}}, 89, 1010, "Unknown mod_op: 5", "cn=a, o=x", "cn"},
        {"bad value",
         "cn=a,o=x",
         {{modAdd, "zor-slapdPort", {{"65536"}}}},
         21,
         1015,
         "Integer value out of range",
         "cn=a, o=x",
         "zor-slapdPort"},
    };
    expectRefused(cfg_modify_s, rows);
}

TEST_F(CfgModify, TheConstraintsOfARefusedValueAreTold)
{
    const Handle handle = bound(sampleText);
    Mods mods({{modAdd, "zor-slapdReadOnly", {{"perhaps"}}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "cn=a,o=x", mods.list()), 21);
    EXPECT_EQ(shown(cfg_get_value(handle.get())), "perhaps");
    EXPECT_EQ(shown(cfg_get_attribute(handle.get())), "zor-slapdReadOnly");
    EXPECT_EQ(shown(cfg_get_entry(handle.get())), "cn=a, o=x");
    EXPECT_EQ(shown(cfg_get_file_name(handle.get())), pathOf(fileName));
    EXPECT_EQ(cfg_get_is_single(handle.get()), 1);
    const char* const* const values = cfg_get_enum(handle.get());
    ASSERT_NE(values, nullptr);
    EXPECT_STREQ(values[0], "true");
    EXPECT_STREQ(values[1], "false");
    EXPECT_EQ(values[2], nullptr);
}

TEST_F(CfgModify, WhatWasAppliedBeforeAFailureIsWrittenByTheNextUpdate)
{
    const Handle handle = bound(sampleText);
    remember();
    Mods half({{modReplace, "zor-slapdPort", {{"636"}}}, {modDelete, "none", {}}, {modDelete, "objectclass", {}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "cn=a,o=x", half.list()), 16);
    expectUntouched();
    const std::string changed = std::string(rootText) + entryHead +
                                "objectclass: top\n# where it listens\n"
                                "zor-slapdPort: 636\n\n";
    EXPECT_EQ(inMemory(handle.get()), changed);
    // Neither a search nor a call that is refused by its arguments takes it back.
    EXPECT_EQ(search(handle.get(), "o=x", subtree, nullptr).code, 0);
    EXPECT_EQ(cfg_modify_s(handle.get(), nullptr, nullptr), 89);
    EXPECT_EQ(inMemory(handle.get()), changed);

    Mods next({{modAdd, "cn", {{"x"}}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "o=x", next.list()), 0);
    EXPECT_EQ(read(), std::string(rootText) + "dn: o=x\ncn: x\nobjectclass: top\n\n# the first one\ndn: cn=a, o=x\n"
                                              "objectclass: top\n# where it listens\nzor-slapdPort: 636\n\n");
}

TEST_F(CfgModify, WhatWasAppliedBeforeAFailureIsLostWhenTheFileChanges)
{
    const Handle handle = bound(sampleText);
    Mods half({{modReplace, "zor-slapdPort", {{"636"}}}, {modDelete, "none", {}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "cn=a,o=x", half.list()), 16);
    editFile(sampleText);
    EXPECT_EQ(cfg_modify_s(handle.get(), "cn=a,o=x", nullptr), 0);
    EXPECT_EQ(read(), sampleText);
}

TEST_F(CfgModify, AFileThatCantBeReadAgainFailsTheCall)
{
    const Handle handle = bound(sampleText);
    std::filesystem::remove(pathOf(fileName));
    EXPECT_EQ(cfg_modify_s(handle.get(), "o=x", nullptr), 91);
    expectKept(handle.get(), 91, 1003, "_stat()");
    EXPECT_FALSE(exists(fileName));
}

TEST_F(CfgModify, AForeignFailureIsASystemErrorOfTheCall)
{
    expectForeignFailureTold([](void* handle) { return cfg_modify_s(handle, longDn, nullptr); },
                             "System error in cfg_modify_s()");
}

TEST_F(CfgModify, WhereverMemoryRunsOutACodeComesBackAndTheHandleStaysUsable)
{
    Mods mods({{modAdd, "description", {{"a value that is too long to need no memory of its own"}}},
               {modReplace, "zor-slapdAdminDN", {{"cn=the administrator of it all, o=x"}}},
               {modReplace, "zor-slapdAdminPW", {{"Secret"}}}});
    struct Row
    {
        const char* name;
        int (*call)(void*, LDAPMod**);
    };
    constexpr Row rows[] = {
        {"modify", [](void* handle, LDAPMod** list) { return cfg_modify_s(handle, "cn=a,o=x", list); }},
        {"add", [](void* handle, LDAPMod** list) { return cfg_add_s(handle, "ou=b,o=x", list); }},
        {"merge", [](void* handle, LDAPMod** list) { return cfg_add_s(handle, "cn=a,o=x", list); }},
        {"delete", [](void* handle, LDAPMod**) { return cfg_delete_s(handle, "cn=c,ou=b,o=x"); }},
        {"flush", [](void* handle, LDAPMod**) { return cfg_flush_s(handle); }},
        {"tree view",
         [](void* handle, LDAPMod**) { return cfg_tree_view(handle, 1) == nullptr ? cfg_get_errno(handle) : 0; }},
    };
    const std::string text = std::string(sampleText) + "dn: cn=c, ou=b, o=x\n\ndn: cn=d, ou=b, o=x\n\n";
    for (const Row& row : rows) {
        bool happened = true;
        for (std::size_t count = 1; happened; ++count) {
            SCOPED_TRACE(std::string(row.name) + ", allocation " + std::to_string(count));
            const Handle handle = bound(text);
            int code = 0;
            {
                const FailingAllocator failing(Shortage::once, count);
                code = row.call(handle.get(), mods.list());
                happened = failing.failed();
            }
            EXPECT_TRUE(code == 0 || code == 80 || code == 90) << code;
            EXPECT_EQ(cfg_get_errno(handle.get()), code);
            EXPECT_EQ(cfg_flush_s(handle.get()), 0);
            const Found found = search(handle.get(), nullptr, subtree, nullptr);
            EXPECT_EQ(found.code, 0);
            if (code != 0) {
                EXPECT_EQ(dnsOf(found.result.get()).substr(0, 15), "o=x\ncn=a, o=x\n");
            }
        }
    }
}
