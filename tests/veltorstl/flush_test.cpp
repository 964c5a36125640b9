// cfg_flush_s and cfg_tree_view: writing on request, and the lent drawing.
#include "support/file_size_limit.h"
#include "support/update_api_test.h"

#include <filesystem>
#include <string>

using namespace veltor::test;

namespace {

class CfgFlush : public UpdateApiTest
{
};

class CfgTreeView : public UpdateApiTest
{
protected:
    static constexpr char ia5[] = "\n- o=x (suffix)\n    |\n    +- cn=a, o=x\n";
    static constexpr char oem[] = "\n\xC4 o=x (suffix)\n    \xC0\xC4 cn=a, o=x\n";
};

} // namespace

// ---- cfg_flush_s ----

TEST_F(CfgFlush, ANullHandleIsRefused)
{
    EXPECT_EQ(cfg_flush_s(nullptr), 89);
}

TEST_F(CfgFlush, AnUnboundHandleIsRefusedAndKeepsNothing)
{
    expectRefusedUnbound([](void* handle) { return cfg_flush_s(handle); }, "dn:o=x\n");
}

TEST_F(CfgFlush, AFileWithoutChangesIsWrittenAllTheSame)
{
    // A load alone leaves a file as it is, in whatever form.
    const Handle handle = bound("dn:o=x\ncn:a");
    EXPECT_EQ(read(), "dn:o=x\ncn:a");
    EXPECT_EQ(cfg_flush_s(handle.get()), 0);
    expectNothingKept(handle.get(), 0);
    EXPECT_EQ(read(), "charset: ISO-8859-1\nversion: 1\n\ndn: o=x\ncn: \n\n");

    std::filesystem::permissions(pathOf(fileName), std::filesystem::perms(0600));
    EXPECT_EQ(cfg_flush_s(handle.get()), 0);
    EXPECT_EQ(std::filesystem::status(pathOf(fileName)).permissions(), std::filesystem::perms(0600))
        << "without a backup name the mode stays";
}

TEST_F(CfgFlush, AFileThatChangedIsReadFirst)
{
    const Handle handle = bound(sampleText);
    editFile("dn: o=edited\n");
    EXPECT_EQ(cfg_flush_s(handle.get()), 0);
    EXPECT_EQ(read(), "charset: ISO-8859-1\nversion: 1\n\ndn: o=edited\n\n");
}

TEST_F(CfgFlush, TheOldFileIsKeptUnderTheBackupName)
{
    write("an older backup", "backup");
    const Handle handle = boundWithBackup("dn:o=x\n");
    EXPECT_EQ(cfg_flush_s(handle.get()), 0);
    EXPECT_EQ(read(), "charset: ISO-8859-1\nversion: 1\n\ndn: o=x\n\n");
    EXPECT_EQ(read("backup"), "dn:o=x\n");
    EXPECT_EQ(std::filesystem::status(pathOf(fileName)).permissions(), std::filesystem::perms(0640));
}

TEST_F(CfgFlush, AHalfAppliedChangeIsWritten)
{
    const Handle handle = bound(sampleText);
    Mods half({{modDelete, "zor-slapdPort", {}}, {modDelete, "none", {}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "cn=a,o=x", half.list()), 16);
    EXPECT_EQ(read(), sampleText);
    EXPECT_EQ(cfg_flush_s(handle.get()), 0);
    EXPECT_EQ(read(), std::string(rootText) +
                          "dn: o=x\nobjectclass: top\n\n# the first one\ndn: cn=a, o=x\nobjectclass: top\n\n");
}

TEST_F(CfgFlush, AFileThatCantBePutInPlaceIsAFailure)
{
    const Handle handle = boundWithBackup(sampleText);
    obstructBackup();
    remember();
    EXPECT_EQ(cfg_flush_s(handle.get()), 50);
    expectNotPutInPlace(handle.get());
    EXPECT_EQ(shown(cfg_get_file_name(handle.get())), pathOf(fileName));
    expectUntouched();
}

TEST_F(CfgFlush, AFileThatCantBeReadAgainIsAFailure)
{
    const Handle handle = bound(sampleText);
    std::filesystem::remove(pathOf(fileName));
    EXPECT_EQ(cfg_flush_s(handle.get()), 91);
    expectKept(handle.get(), 91, 1003, "_stat()");
    EXPECT_FALSE(exists(fileName)) << "what is in memory does not replace it";
}

TEST_F(CfgFlush, ADnThatCantBePrintedCostsNothingOnDisk)
{
    const Handle handle = boundWithBackup("dn: o=x\n\ndn: cn=\n\n");
    remember();
    EXPECT_EQ(cfg_flush_s(handle.get()), 34);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 1013);
    expectUntouched();
    EXPECT_FALSE(exists("backup"));
}

TEST_F(CfgFlush, AFullDiskIsNotReported)
{
    const Handle handle = bound(sampleText);
    const int code = withFileSizeLimit(20, [&] { return cfg_flush_s(handle.get()); });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(read(), std::string(sampleText).substr(0, 20));
}

TEST_F(CfgFlush, AForeignFailureIsASystemErrorOfTheWrite)
{
    expectForeignFailureTold([](void* handle) { return cfg_flush_s(handle); }, "System error writing file");
}

// ---- cfg_tree_view ----

TEST_F(CfgTreeView, ANullHandleAndAnUnboundOneHaveNone)
{
    EXPECT_EQ(cfg_tree_view(nullptr, 0), nullptr);
    const Handle handle = withKeptFailure();
    EXPECT_EQ(cfg_tree_view(handle.get(), 1), nullptr);
    EXPECT_EQ(cfg_get_errno(handle.get()), 86) << "the handle is not reset";
    EXPECT_NE(cfg_dump_exception(handle.get()), nullptr);
}

TEST_F(CfgTreeView, ZeroIsAsciiAndEveryOtherNumberIsLineDrawing)
{
    struct Row
    {
        int flag;
        const char* text;
    };
    for (const Row& row : {Row{0, ia5}, Row{1, oem}, Row{2, oem}, Row{-1, oem}}) {
        SCOPED_TRACE(row.flag);
        const Handle handle = bound(sampleText);
        EXPECT_EQ(shown(cfg_tree_view(handle.get(), row.flag)), row.text);
    }
}

TEST_F(CfgTreeView, AnEmptyStoreHasAnEmptyText)
{
    const Handle handle = bound("");
    EXPECT_EQ(shown(cfg_tree_view(handle.get(), 0)), "");
    EXPECT_EQ(shown(cfg_tree_view(handle.get(), 1)), "");
}

TEST_F(CfgTreeView, TheTextIsLentAgainUntilTheNextReset)
{
    const Handle handle = bound(sampleText);
    const char* const first = cfg_tree_view(handle.get(), 1);
    EXPECT_EQ(shown(first), oem);
    EXPECT_EQ(cfg_tree_view(handle.get(), 0), first);
    // These do not reset the handle.
    cfg_set_option(handle.get(), CFG_OPT_DELETE_NON_LEAVES, flag(1));
    int value = 0;
    cfg_get_option(handle.get(), CFG_OPT_DELETE_NON_LEAVES, &value);
    cfg_get_errno(handle.get());
    cfg_dump_exception(handle.get());
    EXPECT_EQ(cfg_tree_view(handle.get(), 0), first);
    EXPECT_EQ(shown(first), oem);
}

TEST_F(CfgTreeView, EveryOtherCallMakesItAfresh)
{
    struct Row
    {
        const char* name;
        int (*call)(void*);
    };
    constexpr Row rows[] = {
        {"reset", [](void* handle) { return cfg_reset(handle); }},
        {"search", [](void* handle) { return search(handle, nullptr, subtree, nullptr).code; }},
        {"flush", [](void* handle) { return cfg_flush_s(handle); }},
        {"modify", [](void* handle) { return cfg_modify_s(handle, "o=x", nullptr); }},
        {"bind", [](void* handle) { return cfg_bind_s(handle, nullptr, nullptr, simple); }},
        {"failing add", [](void* handle) { return cfg_add_s(handle, "=", nullptr) - 34; }},
        {"failing delete", [](void* handle) { return cfg_delete_s(handle, nullptr) - 89; }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Handle handle = bound(sampleText);
        EXPECT_EQ(shown(cfg_tree_view(handle.get(), 1)), oem);
        EXPECT_EQ(row.call(handle.get()), 0);
        EXPECT_EQ(shown(cfg_tree_view(handle.get(), 0)), ia5);
    }
}

TEST_F(CfgTreeView, ItFollowsTheUpdatesAndNotTheFile)
{
    const Handle handle = bound(sampleText);
    EXPECT_EQ(cfg_add_s(handle.get(), "o=y", nullptr), 0);
    const std::string withSecond = std::string(ia5) + "\n- o=y (suffix)\n";
    EXPECT_EQ(shown(cfg_tree_view(handle.get(), 0)), withSecond);
    EXPECT_EQ(cfg_reset(handle.get()), 0);
    editFile("dn: o=edited\n\n");
    EXPECT_EQ(shown(cfg_tree_view(handle.get(), 0)), withSecond) << "it reads nothing again";
    EXPECT_EQ(search(handle.get(), nullptr, subtree, nullptr).code, 0);
    EXPECT_EQ(shown(cfg_tree_view(handle.get(), 0)), "\n- o=edited (suffix)\n");
}

TEST_F(CfgTreeView, AFailureIsKeptAndGivesNull)
{
    const Handle handle = bound("dn: o=x\n\ndn: cn=\n\n");
    for (const int drawing : {0, 1, 0}) {
        SCOPED_TRACE(drawing);
        EXPECT_EQ(cfg_tree_view(handle.get(), drawing), nullptr);
        expectKept(handle.get(), 34, 1013, "Missing RDN attribute value");
        EXPECT_NE(shown(cfg_dump_exception(handle.get())).find("Missing RDN attribute value"), std::string::npos);
    }
    // The entry goes, and the drawing comes.
    EXPECT_EQ(cfg_delete_s(handle.get(), "cn="), 0);
    EXPECT_EQ(shown(cfg_tree_view(handle.get(), 0)), "\n- o=x (suffix)\n");
}

TEST_F(CfgTreeView, TheReportOfAFailureBeforeItIsNotLentForItsOwn)
{
    // A report is cached; the one of the failed update must not stand for the drawing's failure.
    const Handle handle = bound("dn: cn=\n\n");
    EXPECT_EQ(cfg_delete_s(handle.get(), "o=none"), 32);
    EXPECT_NE(shown(cfg_dump_exception(handle.get())).find("Entry not found"), std::string::npos);
    EXPECT_EQ(cfg_tree_view(handle.get(), 0), nullptr);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 1013);
    EXPECT_NE(shown(cfg_dump_exception(handle.get())).find("Missing RDN attribute value"), std::string::npos);
}
