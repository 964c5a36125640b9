// The careful ways to write: modes, change sets, installs. What a call promises is what stands on the disk afterwards.
#include "support/locale_guard.h"
#include "support/update_api_test.h"

#include "veltor/cfg_admin.h"

#include <cstddef>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include <sys/stat.h>
#include <unistd.h>

using namespace veltor::test;

namespace {

constexpr int busy = 51;
constexpr int refused = 53;

class ChangeSet : public UpdateApiTest
{
protected:
    /// A handle that writes in that way, bound to a file of the text.
    Handle boundIn(int mode, std::string_view text = sampleText) const
    {
        Handle handle = unbound(write(text));
        EXPECT_EQ(cfg_set_write_mode(handle.get(), mode), 0);
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0) << shown(cfg_dump_exception(handle.get()));
        return handle;
    }

    Handle safe(std::string_view text = sampleText) const { return boundIn(CFG_WRITE_SAFE, text); }

    /// One that gives the whole file the library's own form.
    Handle safeInOwnForm(std::string_view text) const
    {
        Handle handle = safe(text);
        EXPECT_EQ(cfg_set_layout(handle.get(), CFG_LAYOUT_OWN), 0);
        return handle;
    }

    /// Another handle on the same file.
    Handle another(int mode = CFG_WRITE_SAFE) const
    {
        Handle handle = unbound(pathOf(fileName));
        EXPECT_EQ(cfg_set_write_mode(handle.get(), mode), 0);
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0) << shown(cfg_dump_exception(handle.get()));
        return handle;
    }

    static int setPort(void* handle, const char* port)
    {
        Mods mods({{modReplace, "zor-slapdPort", {{port}}}});
        return cfg_modify_s(handle, "cn=a,o=x", mods.list());
    }

    static int add(void* handle, const char* dn, const std::string& attribute = "description",
                   const std::string& value = "one")
    {
        Mods mods({{modAdd, attribute, {{value}}}});
        return cfg_add_s(handle, dn, mods.list());
    }

    static std::string port(void* handle)
    {
        const Found found = search(handle, "cn=a,o=x", baseScope, "objectclass=*");
        const Values values(found.result == nullptr ? nullptr
                                                    : cfg_get_values(handle, found.result.get(), "zor-slapdPort"));
        return values == nullptr ? "" : shown(values.get()[0]);
    }

    /// The sample with another port.
    static std::string withPort(const std::string& port)
    {
        std::string text = sampleText;
        return text.replace(text.find("389"), 3, port);
    }

    /// What lies in the folder beside the file and its lock.
    std::string others() const
    {
        std::string names;
        for (const auto& file : std::filesystem::directory_iterator(pathOf(""))) {
            const std::string name = file.path().filename();
            if (name != fileName && name != std::string(fileName) + ".lock") {
                names += name + "\n";
            }
        }
        return names;
    }
};

constexpr char rejectedText[] =
    "charset: UTF-8\nversion: 1\n\ndn: cn=a, o=x\nobjectclass: top\nzor-slapdPort: none\n\n";
constexpr char keptText[] =
    "charset: UTF-8\nversion: 1\n\ndn: cn=a, o=x\nobjectclass: top\nzor-slapdInvalidLine: zor-slapdPort: none\n\n";

} // namespace

// ---- Modes ----

TEST_F(ChangeSet, AHandleStartsInTheDirectModeAndTellsItsMode)
{
    const Handle handle(cfg_init());
    int mode = -1;
    EXPECT_EQ(cfg_get_write_mode(handle.get(), &mode), 0);
    EXPECT_EQ(mode, CFG_WRITE_DIRECT);
    for (const int wanted : {CFG_WRITE_NEVER, CFG_WRITE_SAFE, CFG_WRITE_DIRECT}) {
        EXPECT_EQ(cfg_set_write_mode(handle.get(), wanted), 0);
        EXPECT_EQ(cfg_get_write_mode(handle.get(), &mode), 0);
        EXPECT_EQ(mode, wanted);
    }
}

TEST_F(ChangeSet, UnknownModesAndLayoutsAndNullPointersAre89)
{
    const Handle handle(cfg_init());
    int mode = 0;
    EXPECT_EQ(cfg_set_write_mode(handle.get(), 3), 89);
    EXPECT_EQ(cfg_set_write_mode(handle.get(), -1), 89);
    EXPECT_EQ(cfg_set_layout(handle.get(), 2), 89);
    EXPECT_EQ(cfg_set_layout(handle.get(), CFG_LAYOUT_OWN), 0);
    EXPECT_EQ(cfg_get_write_mode(handle.get(), nullptr), 89);
    EXPECT_EQ(cfg_set_write_mode(nullptr, 0), 89);
    EXPECT_EQ(cfg_get_write_mode(nullptr, &mode), 89);
    EXPECT_EQ(cfg_begin_s(nullptr, 0), 89);
    EXPECT_EQ(cfg_commit_s(nullptr), 89);
    EXPECT_EQ(cfg_rollback_s(nullptr), 89);
    EXPECT_EQ(cfg_begin_s(handle.get(), 0), 89) << "not bound";
    const Handle bound = safe();
    std::size_t size = 0;
    char* text = nullptr;
    EXPECT_EQ(cfg_render_s(bound.get(), nullptr, &size), 89);
    EXPECT_EQ(cfg_render_s(bound.get(), &text, nullptr), 89);
    EXPECT_EQ(cfg_locate_s(bound.get(), "o=x", nullptr, nullptr, nullptr), 89);
    EXPECT_EQ(cfg_begin_s(bound.get(), -1), 89);
    EXPECT_EQ(cfg_install_s(bound.get(), nullptr, 1), 89);
    EXPECT_EQ(cfg_create_s(bound.get(), nullptr, "", 0), 89);
}

TEST_F(ChangeSet, ALoadOutsideTheDirectModeLeavesRejectedLinesInMemory)
{
    for (const int mode : {CFG_WRITE_SAFE, CFG_WRITE_NEVER}) {
        SCOPED_TRACE(mode);
        const Handle handle = boundIn(mode, rejectedText);
        EXPECT_EQ(read(), rejectedText);
        EXPECT_EQ(listed(search(handle.get(), "cn=a,o=x", baseScope, "objectclass=*").result.get()),
                  "dn: cn=a, o=x\nobjectclass: top\nzor-slapdInvalidLine: zor-slapdPort: none\n");
    }
    const Handle classic = boundIn(CFG_WRITE_DIRECT, rejectedText);
    EXPECT_EQ(read(), keptText);
}

TEST_F(ChangeSet, RejectedLinesReachTheDiskWithTheNextCommitInTheOwnForm)
{
    const Handle handle = safeInOwnForm(rejectedText);
    ASSERT_EQ(add(handle.get(), "cn=b,o=x"), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), std::string(keptText) + "dn: cn=b, o=x\ndescription: one\n\n");
}

TEST_F(ChangeSet, LeavingTheNeverModeDoesNotMakeUpASkippedRewrite)
{
    const Handle handle = boundIn(CFG_WRITE_NEVER, rejectedText);
    ASSERT_EQ(cfg_set_write_mode(handle.get(), CFG_WRITE_DIRECT), 0);
    EXPECT_EQ(search(handle.get(), "o=x", subtree, "objectclass=*").code, 32);
    EXPECT_EQ(read(), rejectedText);
}

TEST_F(ChangeSet, TheNeverModeRefusesUpdatesAndFlushes)
{
    const Handle handle = boundIn(CFG_WRITE_NEVER);
    remember();
    EXPECT_EQ(setPort(handle.get(), "1389"), refused);
    EXPECT_EQ(cfg_get_exterror(handle.get()), refused);
    EXPECT_EQ(add(handle.get(), "cn=b,o=x"), refused);
    EXPECT_EQ(cfg_delete_s(handle.get(), "cn=a,o=x"), refused);
    EXPECT_EQ(cfg_flush_s(handle.get()), refused);
    EXPECT_EQ(cfg_begin_s(handle.get(), 0), refused);
    EXPECT_EQ(cfg_set_comment_s(handle.get(), "o=x", nullptr, "text"), refused);
    EXPECT_EQ(port(handle.get()), "389");
    expectUntouched();
    EXPECT_FALSE(exists("zorslapd.conf.lock"));
}

TEST_F(ChangeSet, TheDirectModeStaysClassic)
{
    const Handle handle = boundIn(CFG_WRITE_DIRECT);
    EXPECT_EQ(cfg_begin_s(handle.get(), 0), refused);
    EXPECT_EQ(cfg_commit_s(handle.get()), refused);
    EXPECT_EQ(cfg_rollback_s(handle.get()), refused);
    EXPECT_EQ(cfg_install_s(handle.get(), "", 0), refused);
    EXPECT_EQ(cfg_set_comment_s(handle.get(), "o=x", nullptr, "text"), refused);
    EXPECT_EQ(add(handle.get(), "cn=b,o=x", "description", "one\ntwo: three"), 0);
    EXPECT_EQ(read(), std::string(sampleText) + "dn: cn=b, o=x\ndescription: one\ntwo: three\n\n");
    EXPECT_FALSE(exists("zorslapd.conf.lock"));
}

// ---- Updates and sets ----

TEST_F(ChangeSet, AnUpdateOutsideASetIsASetOfItsOwn)
{
    const Handle handle = safe();
    EXPECT_EQ(setPort(handle.get(), "1389"), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), withPort("1389"));
    EXPECT_EQ(port(handle.get()), "1389");
    EXPECT_EQ(cfg_delete_s(handle.get(), "cn=a,o=x"), 0);
    EXPECT_EQ(read(), std::string(rootText) + "dn: o=x\nobjectclass: top\n\n");
    EXPECT_EQ(others(), "");
}

TEST_F(ChangeSet, ASetReachesTheDiskWithItsCommitAndSearchesSeeItBefore)
{
    const Handle handle = safe();
    remember();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle.get(), "1389"), 0);
    ASSERT_EQ(add(handle.get(), "cn=b,o=x"), 0);
    EXPECT_EQ(port(handle.get()), "1389");
    EXPECT_EQ(search(handle.get(), "cn=b,o=x", baseScope, "description=*").code, 0);
    EXPECT_EQ(rendered(handle.get()), withPort("1389") + "dn: cn=b, o=x\ndescription: one\n\n");
    expectUntouched();
    ASSERT_EQ(cfg_commit_s(handle.get()), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), withPort("1389") + "dn: cn=b, o=x\ndescription: one\n\n");
    EXPECT_EQ(port(handle.get()), "1389");
    EXPECT_EQ(others(), "");
}

TEST_F(ChangeSet, ARollbackLeavesFileAndMemoryAsTheyWere)
{
    const Handle handle = safe();
    remember();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle.get(), "1389"), 0);
    ASSERT_EQ(cfg_rollback_s(handle.get()), 0);
    EXPECT_EQ(port(handle.get()), "389");
    expectUntouched();
    EXPECT_EQ(cfg_commit_s(handle.get()), refused);
    EXPECT_EQ(cfg_rollback_s(handle.get()), refused);
}

TEST_F(ChangeSet, ASetWithoutChangesWritesNothing)
{
    const Handle handle = safe(rejectedText);
    remember();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    EXPECT_EQ(cfg_commit_s(handle.get()), 0);
    EXPECT_EQ(cfg_flush_s(handle.get()), 0);
    expectUntouched();
}

TEST_F(ChangeSet, AnUpdateThatChangesNothingWritesNothing)
{
    // Not the library's own form: whatever is written shows.
    const Handle handle =
        safeInOwnForm("version: 1\ncharset: UTF-8\n\n# about it\ndn: o=x\n# of b\nb: 1\na: 2\nno colon\n");
    remember();
    struct Row
    {
        const char* name;
        std::vector<Change> changes;
    };
    const Row rows[] = {
        {"no list at all", {}},
        {"no values to add", {{modAdd, "c", {}}}},
        {"a removal of what is not there", {{modReplace, "c", {}}}},
        {"the values that it has", {{modReplace, "b", {{"1"}}}}},
        {"there and back", {{modAdd, "c", {{"1"}}}, {modDelete, "c", {}}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Mods mods(row.changes);
        EXPECT_EQ(cfg_modify_s(handle.get(), "o=x", mods.list()), 0) << shown(cfg_dump_exception(handle.get()));
        expectUntouched();
    }
    EXPECT_EQ(cfg_modify_s(handle.get(), "o=x", nullptr), 0);
    EXPECT_EQ(cfg_set_comment_s(handle.get(), "o=x", nullptr, "about it"), 0);
    EXPECT_EQ(cfg_set_comment_s(handle.get(), "o=x", "a", nullptr), 0);
    expectUntouched();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    EXPECT_EQ(cfg_modify_s(handle.get(), "o=x", nullptr), 0);
    EXPECT_EQ(cfg_commit_s(handle.get()), 0);
    expectUntouched();
    Mods lost({{modDelete, "b", {}}, {modAdd, "b", {{"1"}}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "o=x", lost.list()), 0);
    EXPECT_EQ(read().find("# of b"), std::string::npos) << "the comment went with its attribute";
}

TEST_F(ChangeSet, TheTreeViewShowsWhatIsOnTheDiskHoweverASetEnded)
{
    const Handle handle = safe();
    const std::string drawing = shown(cfg_tree_view(handle.get(), 0));
    ASSERT_NE(drawing.find("cn=a"), std::string::npos) << drawing;
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(add(handle.get(), "cn=pending,o=x"), 0);
    EXPECT_NE(shown(cfg_tree_view(handle.get(), 0)).find("cn=pending"), std::string::npos);
    ASSERT_EQ(cfg_rollback_s(handle.get()), 0);
    EXPECT_EQ(shown(cfg_tree_view(handle.get(), 0)), drawing) << "a rollback";
    EXPECT_EQ(cfg_delete_s(handle.get(), "o=none"), 32);
    EXPECT_EQ(shown(cfg_tree_view(handle.get(), 0)), drawing) << "an update that failed";
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(add(handle.get(), "cn=pending,o=x"), 0);
    editFile(withPort("7"));
    EXPECT_EQ(cfg_commit_s(handle.get()), busy);
    EXPECT_EQ(shown(cfg_tree_view(handle.get(), 0)), drawing) << "a commit that failed";
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    EXPECT_EQ(cfg_install_s(handle.get(), "a: 1\n", 5), 65);
    ASSERT_EQ(cfg_set_write_mode(handle.get(), CFG_WRITE_DIRECT), 0);
    EXPECT_EQ(shown(cfg_tree_view(handle.get(), 0)), drawing) << "in another mode";
}

TEST_F(ChangeSet, TheFirstFailedUpdateSpoilsTheSet)
{
    const Handle handle = safe();
    remember();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle.get(), "1389"), 0);
    EXPECT_EQ(setPort(handle.get(), "none"), 21);
    EXPECT_EQ(setPort(handle.get(), "1390"), refused);
    EXPECT_EQ(add(handle.get(), "cn=b,o=x"), refused);
    EXPECT_EQ(cfg_commit_s(handle.get()), refused);
    EXPECT_EQ(cfg_get_exterror(handle.get()), refused);
    expectUntouched();
    EXPECT_EQ(port(handle.get()), "389");
    EXPECT_EQ(setPort(handle.get(), "1389"), 0) << "the set is over";
}

TEST_F(ChangeSet, AFailedSearchAndARefusedCallSpoilNothing)
{
    const Handle handle = safe();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle.get(), "1389"), 0);
    EXPECT_EQ(search(handle.get(), "o=none", subtree, "objectclass=*").code, 32);
    EXPECT_EQ(cfg_begin_s(handle.get(), 0), refused);
    EXPECT_EQ(cfg_flush_s(handle.get()), refused);
    EXPECT_EQ(cfg_set_write_mode(handle.get(), CFG_WRITE_DIRECT), refused);
    EXPECT_EQ(cfg_set_layout(handle.get(), CFG_LAYOUT_OWN), refused);
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), refused);
    EXPECT_EQ(cfg_modify_s(handle.get(), nullptr, nullptr), 89);
    EXPECT_EQ(cfg_set_comment_s(handle.get(), " ", nullptr, "text"), refused);
    EXPECT_EQ(cfg_commit_s(handle.get()), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), withPort("1389"));
}

TEST_F(ChangeSet, ASetWhoseChangesCancelOutWritesNothing)
{
    const Handle handle = safe("dn: o=x\nb:   1\na: 2\n folded\nno colon");
    remember();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    for (const char* const value : {"3", "1"}) {
        Mods mods({{modReplace, "b", {{value}}}});
        ASSERT_EQ(cfg_modify_s(handle.get(), "o=x", mods.list()), 0);
    }
    ASSERT_EQ(add(handle.get(), "cn=a,o=x"), 0);
    ASSERT_EQ(cfg_delete_s(handle.get(), "cn=a,o=x"), 0);
    EXPECT_EQ(cfg_commit_s(handle.get()), 0) << shown(cfg_dump_exception(handle.get()));
    expectUntouched();
}

TEST_F(ChangeSet, TheFirstModificationThatIsWrongIsToldWithTheCodesOfTheDirectMode)
{
    struct Row
    {
        const char* name;
        std::vector<Change> changes;
        const char* dn;
        int code;
        int libraryCode;
    };
    const Row rows[] = {
        {"an unknown operation with a value that is refused", {{5, "zor-slapdPort", {{"bad"}}}}, "cn=a,o=x", 89, 1010},
        {"an unknown operation before a value that is refused",
         {{7, "zor-slapdPort", {{"1"}}}, {modAdd, "zor-slapdPort", {{"bad"}}}},
         "cn=a,o=x",
         89,
         1010},
        {"a missing attribute before a value that is refused",
         {{modDelete, "none", {}}, {modAdd, "zor-slapdPort", {{"bad"}}}},
         "cn=a,o=x",
         16,
         16},
        {"a value that is refused before a missing attribute",
         {{modAdd, "zor-slapdPort", {{"bad"}}}, {modDelete, "none", {}}},
         "cn=a,o=x",
         21,
         1016},
        {"a missing entry before a value that is refused", {{modAdd, "zor-slapdPort", {{"bad"}}}}, "o=none", 32, 32},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        for (const int mode : {CFG_WRITE_DIRECT, CFG_WRITE_SAFE}) {
            const Handle handle = boundIn(mode);
            Mods mods(row.changes);
            EXPECT_EQ(cfg_modify_s(handle.get(), row.dn, mods.list()), row.code);
            EXPECT_EQ(cfg_get_exterror(handle.get()), row.libraryCode);
        }
    }
}

TEST_F(ChangeSet, AFailedUpdateOutsideASetLeavesFileAndMemoryAsTheyWere)
{
    const Handle handle = safe();
    remember();
    Mods mods({{modReplace, "zor-slapdPort", {{"1389"}}}, {modDelete, "description", {}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "cn=a,o=x", mods.list()), 16);
    EXPECT_EQ(port(handle.get()), "389");
    expectUntouched();
}

TEST_F(ChangeSet, NothingIsRefreshedInsideASet)
{
    const Handle handle = safe();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    editFile(withPort("7"));
    EXPECT_EQ(port(handle.get()), "389");
    ASSERT_EQ(cfg_rollback_s(handle.get()), 0);
    EXPECT_EQ(port(handle.get()), "7");
}

TEST_F(ChangeSet, UnbindRollsBackAndFreesTheLock)
{
    Handle handle = safe();
    remember();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle.get(), "1389"), 0);
    handle.reset();
    expectUntouched();
    const Handle next = another();
    EXPECT_EQ(cfg_begin_s(next.get(), 0), 0);
}

// ---- One writer, no lost update ----

TEST_F(ChangeSet, ASecondHandleFindsTheLockBusyAndLearnsWhoHoldsIt)
{
    const Handle holder = safe();
    const Handle other = another();
    ASSERT_EQ(cfg_begin_s(holder.get(), 0), 0);
    EXPECT_EQ(cfg_begin_s(other.get(), 0), busy);
    EXPECT_EQ(cfg_get_exterror(other.get()), busy);
    EXPECT_NE(shown(cfg_dump_exception(other.get())).find(std::to_string(getpid())), std::string::npos);
    EXPECT_EQ(setPort(other.get(), "7"), busy) << "an update waits as long as the last begin";
    ASSERT_EQ(cfg_rollback_s(holder.get()), 0);
    EXPECT_EQ(setPort(other.get(), "7"), 0);
}

TEST_F(ChangeSet, EveryEndOfASetFreesTheLock)
{
    const Handle holder = safe();
    const Handle other = another();
    const auto isFree = [&] {
        const int code = cfg_begin_s(other.get(), 0);
        return code == 0 && cfg_rollback_s(other.get()) == 0;
    };
    ASSERT_EQ(cfg_begin_s(holder.get(), 0), 0);
    ASSERT_EQ(cfg_commit_s(holder.get()), 0);
    EXPECT_TRUE(isFree()) << "commit";
    ASSERT_EQ(cfg_begin_s(holder.get(), 0), 0);
    ASSERT_EQ(setPort(holder.get(), "none"), 21);
    ASSERT_EQ(cfg_commit_s(holder.get()), refused);
    EXPECT_TRUE(isFree()) << "commit of a spoilt set";
    ASSERT_EQ(cfg_begin_s(holder.get(), 0), 0);
    ASSERT_NE(cfg_install_s(holder.get(), "port: 1\n", 8), 0);
    EXPECT_TRUE(isFree()) << "install of a text that can't be loaded";
    ASSERT_EQ(setPort(holder.get(), "none"), 21);
    EXPECT_TRUE(isFree()) << "a failed update of its own set";
}

TEST_F(ChangeSet, AHandleThatLosesItsFileNameInsideASetEndsTheSetAllTheSame)
{
    const Handle handle = safe();
    const Handle other = another();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle.get(), "1389"), 0);
    ASSERT_EQ(cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, nullptr), 0);
    EXPECT_EQ(cfg_commit_s(handle.get()), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), withPort("1389"));
    EXPECT_EQ(setPort(handle.get(), "7"), 89) << "it is not bound any more";
    EXPECT_EQ(cfg_begin_s(other.get(), 0), 0) << shown(cfg_dump_exception(other.get()));
}

TEST_F(ChangeSet, ABeginReadsTheFileWhateverItsTimeSays)
{
    const Handle handle = safe();
    const struct stat before = statusOf(fileName);
    write(withPort("7"));
    const struct timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, pathOf(fileName).c_str(), times, 0), 0);
    ASSERT_EQ(port(handle.get()), "389");
    ASSERT_EQ(add(handle.get(), "cn=b,o=x"), 0);
    EXPECT_EQ(read(), withPort("7") + "dn: cn=b, o=x\ndescription: one\n\n");
}

TEST_F(ChangeSet, AFileThatSomebodyChangedMeanwhileIsNotReplaced)
{
    const Handle handle = safe();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle.get(), "1389"), 0);
    editFile(withPort("7"));
    remember();
    EXPECT_EQ(cfg_commit_s(handle.get()), busy);
    EXPECT_NE(shown(cfg_dump_exception(handle.get())).find("the old text is in place"), std::string::npos);
    expectUntouched();
    EXPECT_EQ(others(), "");
    EXPECT_EQ(port(handle.get()), "7") << "memory holds what is on disk";
}

TEST_F(ChangeSet, AFolderInTheFilesPlaceIsNamed)
{
    const Handle handle = safe();
    for (const bool hasLock : {false, true}) {
        SCOPED_TRACE(hasLock);
        if (hasLock) {
            editFile(withPort("7"));
            ASSERT_EQ(add(handle.get(), "cn=b,o=x"), 0) << "there is a lock file from now on";
        }
        std::filesystem::remove(pathOf(fileName));
        std::filesystem::create_directory(pathOf(fileName));
        EXPECT_EQ(cfg_begin_s(handle.get(), 0), 91);
        EXPECT_EQ(cfg_get_exterror(handle.get()), 1004);
        EXPECT_EQ(shown(cfg_get_file_name(handle.get())), pathOf(fileName));
        cfg_failure failure = {};
        ASSERT_EQ(cfg_failure_at(handle.get(), 0, &failure), 0);
        EXPECT_EQ(failure.message, "\"" + pathOf(fileName) + "\" is not a plain file");
        std::filesystem::remove(pathOf(fileName));
    }
}

TEST_F(ChangeSet, AFileThatVanishedMeanwhileIsNotMadeAnew)
{
    const Handle handle = safe();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle.get(), "1389"), 0);
    std::filesystem::remove(pathOf(fileName));
    EXPECT_EQ(cfg_commit_s(handle.get()), busy);
    EXPECT_FALSE(exists(fileName));
    EXPECT_EQ(others(), "");
}

// ---- What would not come back ----

TEST_F(ChangeSet, WhatWouldNotComeBackIsRefusedAndNothingIsWritten)
{
    struct Row
    {
        const char* name;
        const char* dn;
        const char* attribute;
        std::string value;
        int code;
    };
    const Row rows[] = {
        {"a line feed", "cn=b,o=x", "description", "one\ntwo: three", 21},
        {"a carriage return", "cn=b,o=x", "description", "one\r", 21},
        {"a leading blank", "cn=b,o=x", "description", " one", 21},
        {"a trailing blank", "cn=b,o=x", "description", "one ", 21},
        {"a closing parenthesis at the end", "cn=b,o=x", "description", "one)", 21},
        {"an escaped parenthesis in a DN", "cn=\\28b,o=x", "description", "one", 34},
        {"a colon in the name", "cn=b,o=x", "descr:iption", "one", 21},
        {"an option", "cn=b,o=x", "description;lang-de", "one", 21},
        {"a numeric OID", "cn=b,o=x", "2.5.4.13", "one", 21},
        {"a comment mark", "cn=b,o=x", "#description", "one", 21},
        {"an empty name", "cn=b,o=x", "", "one", 21},
        {"a blank in the name", "cn=b,o=x", "descr iption", "one", 21},
        {"the label of DN lines", "cn=b,o=x", "DN", "cn=c", 21},
        {"an empty DN", "", "description", "one", 65},
        {"an entry that exists", "CN=A,o=x", "description", "one", 68},
    };
    const Handle handle = safe();
    remember();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(add(handle.get(), row.dn, row.attribute, row.value), row.code);
        EXPECT_EQ(cfg_get_exterror(handle.get()), row.code);
        expectUntouched();
    }
    EXPECT_EQ(add(handle.get(), "cn=b,o=x", "description", "one two"), 0);
}

TEST_F(ChangeSet, ARefusedValueIsToldWithItsPlaceAndWithWhatWouldComeBack)
{
    const Handle handle = safe();
    Mods mods({{modAdd, "description", {{"(one)"}}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "cn=a,o=x", mods.list()), 21);
    EXPECT_STREQ(cfg_get_entry(handle.get()), "cn=a, o=x");
    EXPECT_STREQ(cfg_get_attribute(handle.get()), "description");
    EXPECT_STREQ(cfg_get_value(handle.get()), "(one)");
    EXPECT_NE(shown(cfg_dump_exception(handle.get())).find("come back as"), std::string::npos);
}

TEST_F(ChangeSet, ANulInsideABervalsLengthIsRefusedAndItsLengthCounts)
{
    const Handle handle = safe();
    std::string bytes("one\0two", 7);
    berval value = {bytes.size(), bytes.data()};
    berval* values[] = {&value, nullptr};
    std::string name = "description";
    LDAPMod mod = {};
    mod.mod_op = modAdd | LDAP_MOD_BVALUES;
    mod.mod_type = name.data();
    mod.mod_bvalues = values;
    LDAPMod* mods[] = {&mod, nullptr};
    EXPECT_EQ(cfg_add_s(handle.get(), "cn=b,o=x", mods), 21);
    value.bv_len = 2;
    EXPECT_EQ(cfg_add_s(handle.get(), "cn=b,o=x", mods), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), std::string(sampleText) + "dn: cn=b, o=x\ndescription: on\n\n");
}

TEST_F(ChangeSet, WhatAFileHoldsAlreadyIsNeverRefused)
{
    const Handle handle =
        safe("# top\nversion: 1\n\n\ndn: o=x\nodd;name: one\n2.5.4.3: two\nno colon here\n(open\nempty:\n"
             " folded\nzor-slapdPort: x\n\n# between\n\ndn:cn=a,o=x\n#inner\nb: 2\na: 1\n# last\n");
    EXPECT_EQ(add(handle.get(), "cn=b,o=x"), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(search(handle.get(), "cn=b,o=x", baseScope, "description=*").code, 0);
}

TEST_F(ChangeSet, AnAttributeWithAnOddNameThatIsThereMayChange)
{
    const Handle handle = safe("version: 1\ncharset: UTF-8\n\ndn: o=x\nodd;name: one\n\n");
    Mods mods({{modReplace, "odd;name", {{"two"}}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "o=x", mods.list()), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), "version: 1\ncharset: UTF-8\n\ndn: o=x\nodd;name: two\n\n");
}

TEST_F(ChangeSet, TheFirstEntryOfAnEmptyFileBringsTheDefaultsOnlyInTheOwnForm)
{
    const Handle handle = safe("");
    ASSERT_EQ(add(handle.get(), "o=x"), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), "dn: o=x\ndescription: one\n");
    ASSERT_EQ(cfg_delete_s(handle.get(), "o=x"), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), "");
    ASSERT_EQ(cfg_set_layout(handle.get(), CFG_LAYOUT_OWN), 0);
    ASSERT_EQ(add(handle.get(), "o=x"), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), "charset: ISO-8859-1\nversion: 1\n\ndn: o=x\ndescription: one\n\n");
}

// ---- Installs ----

TEST_F(ChangeSet, AnInstallPutsTheTextIntoPlaceAndEndsTheSet)
{
    const Handle handle = safe();
    const std::string text = "# mine\nversion: 1\ncharset: UTF-8\ndn: cn=a,o=x\nzor-slapdPort:   7\nobjectclass:top\n";
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle.get(), "1389"), 0);
    ASSERT_EQ(cfg_install_s(handle.get(), text.data(), text.size()), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), text);
    EXPECT_EQ(port(handle.get()), "7");
    EXPECT_EQ(cfg_commit_s(handle.get()), refused);
}

TEST_F(ChangeSet, ATextThatEndsALoadIsNotInstalled)
{
    const Handle handle = safe();
    remember();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    const std::string text = "version: 1\nport: 389\n";
    EXPECT_EQ(cfg_install_s(handle.get(), text.data(), text.size()), 65);
    EXPECT_EQ(cfg_get_file_line(handle.get()), 2);
    expectUntouched();
    EXPECT_EQ(port(handle.get()), "389");
    EXPECT_EQ(cfg_rollback_s(handle.get()), refused);
}

TEST_F(ChangeSet, TheFilesOwnTextIsNotInstalledAgain)
{
    const Handle handle = safe();
    remember();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle.get(), "1389"), 0);
    EXPECT_EQ(cfg_install_s(handle.get(), sampleText, sizeof sampleText - 1), 0);
    expectUntouched();
    EXPECT_EQ(port(handle.get()), "389");
}

TEST_F(ChangeSet, ACreatedFileHoldsTheTextForOwnerAndGroup)
{
    const Handle handle(cfg_init());
    ASSERT_EQ(cfg_create_s(handle.get(), pathOf("new.conf").c_str(), sampleText, sizeof sampleText - 1), 0)
        << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read("new.conf"), sampleText);
    EXPECT_EQ(statusOf("new.conf").st_mode & 07777U, 0640U);
    EXPECT_EQ(cfg_create_s(handle.get(), pathOf("new.conf").c_str(), "", 0), 68);
    EXPECT_EQ(read("new.conf"), sampleText);
    std::filesystem::create_symlink("nowhere", pathOf("link.conf"));
    EXPECT_EQ(cfg_create_s(handle.get(), pathOf("link.conf").c_str(), "", 0), 68);
    EXPECT_FALSE(exists("nowhere"));
    EXPECT_EQ(cfg_create_s(handle.get(), pathOf("bad.conf").c_str(), "port: 1\n", 8), 65);
    EXPECT_FALSE(exists("bad.conf"));
}

TEST_F(ChangeSet, ATextThatDoesNotLoadIsReplacedWithModeAndBackup)
{
    constexpr std::string_view broken = "dn: o=x\n\nzor-slapdPort: 1\n";
    write(broken);
    ::chmod(pathOf(fileName).c_str(), 0600);
    const Handle handle(cfg_init());
    ASSERT_EQ(cfg_set_option(handle.get(), CFG_OPT_BACKUP_FILE, pathOf("old.conf").c_str()), 0);
    ASSERT_EQ(replaceFile(handle.get(), broken, sampleText), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), sampleText);
    EXPECT_EQ(read("old.conf"), broken);
    EXPECT_EQ(statusOf(fileName).st_mode & 07777U, 0600U);
    EXPECT_EQ(port(handle.get()), "") << "the handle stays unbound";
}

TEST_F(ChangeSet, AReplacementIsRefusedForAnotherOldTextABadNewOneAndABusyLock)
{
    write(sampleText);
    remember();
    const Handle handle(cfg_init());
    EXPECT_EQ(replaceFile(handle.get(), "version: 1\n", ""), 51);
    EXPECT_EQ(replaceFile(handle.get(), sampleText, "port: 1\n"), 65);
    EXPECT_EQ(cfg_get_file_line(handle.get()), 1);
    const Handle holder = another();
    ASSERT_EQ(cfg_begin_s(holder.get(), 0), 0);
    EXPECT_EQ(replaceFile(handle.get(), sampleText, ""), 51);
    EXPECT_EQ(replaceFile(holder.get(), sampleText, ""), 51) << "its own set holds the lock";
    ASSERT_EQ(cfg_rollback_s(holder.get()), 0);
    expectUntouched();
    EXPECT_EQ(replaceFile(handle.get(), sampleText, "", "missing.conf"), 91);
    EXPECT_FALSE(exists("missing.conf"));
    std::filesystem::create_directory(pathOf("folder"));
    EXPECT_EQ(replaceFile(handle.get(), "", "", "folder"), 91);
}

TEST_F(ChangeSet, AReplacementLooksAtItsArguments)
{
    const Handle handle(cfg_init());
    const std::string file = pathOf(fileName);
    EXPECT_EQ(cfg_replace_s(nullptr, file.c_str(), "", 0, "", 0, 0), 89);
    EXPECT_EQ(cfg_replace_s(handle.get(), nullptr, "", 0, "", 0, 0), 89);
    EXPECT_EQ(cfg_replace_s(handle.get(), file.c_str(), nullptr, 1, "", 0, 0), 89);
    EXPECT_EQ(cfg_replace_s(handle.get(), file.c_str(), "", 0, nullptr, 1, 0), 89);
    EXPECT_EQ(cfg_replace_s(handle.get(), file.c_str(), "", 0, "", 0, -1), 89);
    write("x");
    EXPECT_EQ(cfg_replace_s(handle.get(), file.c_str(), "x", 1, nullptr, 0, 0), 0);
    EXPECT_EQ(read(), "");
}

TEST_F(ChangeSet, ALinkStaysALinkAndItsTargetIsReplaced)
{
    write(sampleText, "target.conf");
    std::filesystem::create_symlink("target.conf", pathOf(fileName));
    const Handle handle = another();
    ASSERT_EQ(setPort(handle.get(), "7"), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_TRUE(std::filesystem::is_symlink(pathOf(fileName)));
    EXPECT_EQ(read("target.conf"), withPort("7"));
    EXPECT_TRUE(exists("target.conf.lock"));
}

TEST_F(ChangeSet, TheBackupIsACopyOfTheOldTextAndUnchangedStoresLeaveItAlone)
{
    const Handle handle = unbound(write(sampleText));
    ASSERT_EQ(cfg_set_write_mode(handle.get(), CFG_WRITE_SAFE), 0);
    ASSERT_EQ(cfg_set_option(handle.get(), CFG_OPT_BACKUP_FILE, pathOf("old.conf").c_str()), 0);
    ASSERT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
    ASSERT_EQ(setPort(handle.get(), "7"), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read("old.conf"), sampleText);
    ASSERT_EQ(setPort(handle.get(), "8"), 0);
    EXPECT_EQ(read("old.conf"), withPort("7"));
    EXPECT_NE(statusOf("old.conf").st_ino, statusOf(fileName).st_ino);
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(cfg_commit_s(handle.get()), 0);
    EXPECT_EQ(read("old.conf"), withPort("7"));
}

TEST_F(ChangeSet, TheNewTextIsAtLeastASecondYounger)
{
    const Handle handle = safe();
    const struct timespec times[2] = {{4'000'000'000, 0}, {4'000'000'000, 500}};
    ASSERT_EQ(utimensat(AT_FDCWD, pathOf(fileName).c_str(), times, 0), 0);
    ASSERT_EQ(setPort(handle.get(), "7"), 0);
    EXPECT_EQ(statusOf(fileName).st_mtim.tv_sec, 4'000'000'001);
}

// ---- Positions ----

namespace {

int lineOf(void* handle, const char* dn, const char* attribute, const char* value)
{
    int line = -1;
    EXPECT_EQ(cfg_locate_s(handle, dn, attribute, value, &line), 0) << shown(cfg_dump_exception(handle));
    return line;
}

constexpr char spreadText[] = "# head\n"              // 1
                              "version: 1\n"          // 2
                              "dn: o=x\n"             // 3
                              "description: one\n"    // 4
                              "description: two\n"    // 5
                              " more\n"               // 6
                              "zor-slapdPort: none\n" // 7
                              "\n"                    // 8
                              "dn: cn=a, o=x\n"       // 9
                              "cn: a\n"               // 10
                              "zor-slapdPort: 389\n"  // 11
                              "\n"                    // 12
                              "dn: o=x\n"             // 13
                              "cn: late\n";           // 14

} // namespace

TEST_F(ChangeSet, PlacesAreToldByLine)
{
    for (const int mode : {CFG_WRITE_SAFE, CFG_WRITE_NEVER}) {
        const Handle handle = boundIn(mode, spreadText);
        EXPECT_EQ(lineOf(handle.get(), "o=x", nullptr, nullptr), 3);
        EXPECT_EQ(lineOf(handle.get(), "cn=a,o=x", nullptr, nullptr), 9);
        EXPECT_EQ(lineOf(handle.get(), "o=x", "description", nullptr), 4);
        EXPECT_EQ(lineOf(handle.get(), "o=x", "Description", "twomore"), 5);
        EXPECT_EQ(lineOf(handle.get(), "o=x", "description", "three"), 0);
        EXPECT_EQ(lineOf(handle.get(), "o=x", "cn", "late"), 14);
        EXPECT_EQ(lineOf(handle.get(), "o=x", "zor-slapdInvalidLine", nullptr), 7);
        EXPECT_EQ(lineOf(handle.get(), "cn=a,o=x", "zor-slapdPort", "389"), 11);
        EXPECT_EQ(lineOf(handle.get(), "cn=a,o=x", "zor-slapdPort", "none"), 0) << "no value of this type";
        EXPECT_EQ(lineOf(handle.get(), "", "version", nullptr), 2);
        EXPECT_EQ(lineOf(handle.get(), "", "charset", nullptr), 0) << "a default that the file does not say";
        EXPECT_EQ(lineOf(handle.get(), "", nullptr, nullptr), 0);
        int line = -1;
        EXPECT_EQ(cfg_locate_s(handle.get(), "o=none", nullptr, nullptr, &line), 32);
        EXPECT_EQ(line, 0);
        EXPECT_EQ(cfg_locate_s(handle.get(), "o=x", "none", nullptr, &line), 16);
    }
}

TEST_F(ChangeSet, PlacesAreKeptOnlyWhereTheModeWasSetBeforeTheLoad)
{
    const Handle handle = boundIn(CFG_WRITE_DIRECT, sampleText);
    int line = -1;
    EXPECT_EQ(cfg_locate_s(handle.get(), "o=x", nullptr, nullptr, &line), refused);
    ASSERT_EQ(cfg_set_write_mode(handle.get(), CFG_WRITE_NEVER), 0);
    EXPECT_EQ(lineOf(handle.get(), "o=x", nullptr, nullptr), 0);
    editFile(sampleText);
    EXPECT_EQ(lineOf(handle.get(), "o=x", nullptr, nullptr), 4);
}

TEST_F(ChangeSet, PlacesAreThoseOfTheFileAsLastRead)
{
    const Handle handle = safe(spreadText);
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(add(handle.get(), "cn=new,o=x"), 0);
    ASSERT_EQ(cfg_delete_s(handle.get(), "cn=a,o=x"), 0);
    ASSERT_EQ(add(handle.get(), "cn=a,o=x"), 0);
    EXPECT_EQ(lineOf(handle.get(), "cn=new,o=x", nullptr, nullptr), 0);
    EXPECT_EQ(lineOf(handle.get(), "cn=a,o=x", nullptr, nullptr), 0) << "another entry than the file's";
    EXPECT_EQ(lineOf(handle.get(), "o=x", nullptr, nullptr), 3);
    ASSERT_EQ(cfg_commit_s(handle.get()), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_GT(lineOf(handle.get(), "cn=new,o=x", nullptr, nullptr), 0);
}

// ---- Comments ----

TEST_F(ChangeSet, ACommentReplacesTheBlockDirectlyAbove)
{
    const Handle handle =
        safe("version: 1\ncharset: UTF-8\n\n# ruler\n\n# old\n# lines\ndn: o=x\ndescription: one\n\n");
    ASSERT_EQ(cfg_set_comment_s(handle.get(), "o=x", nullptr, "new\n\nblock"), 0)
        << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), "version: 1\ncharset: UTF-8\n\n# ruler\n\n# new\n#\n# block\ndn: o=x\ndescription: one\n\n");
    ASSERT_EQ(cfg_set_comment_s(handle.get(), "o=x", "Description", "why"), 0);
    EXPECT_EQ(read(),
              "version: 1\ncharset: UTF-8\n\n# ruler\n\n# new\n#\n# block\ndn: o=x\n# why\ndescription: one\n\n");
    ASSERT_EQ(cfg_set_comment_s(handle.get(), "o=x", nullptr, nullptr), 0);
    ASSERT_EQ(cfg_set_comment_s(handle.get(), "o=x", "description", ""), 0);
    EXPECT_EQ(read(), "version: 1\ncharset: UTF-8\n\n# ruler\n\ndn: o=x\ndescription: one\n\n");
}

TEST_F(ChangeSet, ACommentNeedsItsPlaceAndLinesThatComeBack)
{
    const Handle handle = safe();
    remember();
    EXPECT_EQ(cfg_set_comment_s(handle.get(), "o=none", nullptr, "text"), 32);
    EXPECT_EQ(cfg_set_comment_s(handle.get(), "o=x", "description", "text"), 16);
    EXPECT_EQ(cfg_set_comment_s(handle.get(), "o=x", nullptr, "a\rb"), 21);
    EXPECT_EQ(cfg_set_comment_s(handle.get(), nullptr, nullptr, "text"), 89);
    expectUntouched();
}

TEST_F(ChangeSet, WhatAnEmptyDnAddsToTheRootIsFoundAgain)
{
    const Handle handle = safe("version: 1\n\ndn: o=x\n\ndn:\nfoo: bar\n\ndn: cn=a, o=x\n\n");
    const auto lineOf = [&](const char* attribute, const char* value) {
        int line = -1;
        EXPECT_EQ(cfg_locate_s(handle.get(), "", attribute, value, &line), 0);
        return line;
    };
    EXPECT_EQ(lineOf("version", nullptr), 1);
    EXPECT_EQ(lineOf("foo", "bar"), 6);
    EXPECT_EQ(lineOf(nullptr, nullptr), 0);
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    EXPECT_EQ(cfg_delete_s(handle.get(), "cn=a,o=x"), 0) << "places are walked through";
    EXPECT_EQ(lineOf("foo", nullptr), 6);
    ASSERT_EQ(cfg_rollback_s(handle.get()), 0);
}

TEST_F(ChangeSet, AKeptLineIsFoundByTheValueThatReadsShow)
{
    const Handle handle = safe("version: 1\n\ndn: o=x\nb: 1\nno colon\nzor-slapdPort: none\n\n");
    const auto lineOf = [&](const char* value) {
        int line = -1;
        EXPECT_EQ(cfg_locate_s(handle.get(), "o=x", "zor-slapdInvalidLine", value, &line), 0);
        return line;
    };
    EXPECT_EQ(lineOf("no colon:"), 5);
    EXPECT_EQ(lineOf("zor-slapdPort: none"), 6);
    EXPECT_EQ(lineOf("no colon"), 0);
}

TEST_F(ChangeSet, ACommentThatTheLocaleCannotReadIsRefusedLikeAnyOther)
{
    const Handle handle = safe();
    remember();
    // Making a handle takes the locale of the environment.
    const LocaleGuard locale("C");
    EXPECT_EQ(cfg_set_comment_s(handle.get(), "o=x", nullptr, "gr\xc3\xbc\xc3\x9f"), 21);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 21);
    expectUntouched();
}

// ---- What the library's own form can't express ----

TEST_F(ChangeSet, WhatTheOwnFormCannotExpressIsRefusedWithItsLineThereAlone)
{
    struct Row
    {
        const char* name;
        const char* text;
        int code;
        int line;
    };
    const Row rows[] = {
        {"a value begun on a continuation line", "version: 1\ndn: o=x\ndescription:\n  one\n\n", 21, 3},
        {"a DN value with a parenthesis", "version: 1\ndn: o=x\nzor-slapdPeerDN: cn=\\28a\n\n", 21, 3},
        {"attributes of an empty DN", "# one\n\n\nversion: 1\n\ndn: o=x\nb: 1\n 2\n\ndn:\nfoo: bar\n\n", 65, 11},
        {"a second charset of an empty DN", "version: 1\n\ndn: o=x\n\ndn:\ncharset: UTF-8\n\n", 65, 5},
        {"a DN with a parenthesis", "version: 1\n\ndn: o=x\n\ndn: cn=\\28a\n\n", 34, 5},
        {"a DN that comes back as another entry's", "version: 1\n\ndn: cn=a\nb: 1\n\ndn: cn=\\28a\nc: 1\n\n", 34, 6},
        {"a DN that is no text", "version: 1\n\ndn: o=x\n\ndn: cn=\"\\85\",o=x\nb: 1\n", 34, 5},
        {"a DN that ends where its NUL is", "version: 1\n\ndn: o=x\n\ndn: cn=\"\\00a\",o=x\nb: 1\n", 34, 5},
        {"a rejected line of an empty DN", "version: 1\n\ndn:\nno colon\n\ndn: o=x\n\n", 65, 4},
        {"a DN that can't be printed", "version: 1\n\ndn: o=x\n\ndn: cn=\nc: 1\n\n", 34, 5},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        {
            const Handle handle = safe(row.text);
            EXPECT_EQ(add(handle.get(), "cn=late"), 0) << shown(cfg_dump_exception(handle.get()));
            EXPECT_TRUE(read().starts_with(row.text)) << "a line that stays comes back: " << read();
        }
        const Handle handle = safeInOwnForm(row.text);
        remember();
        EXPECT_EQ(add(handle.get(), "cn=b,o=x"), row.code) << shown(cfg_dump_exception(handle.get()));
        EXPECT_EQ(cfg_get_exterror(handle.get()), row.code);
        EXPECT_EQ(cfg_get_file_line(handle.get()), row.line) << shown(cfg_dump_exception(handle.get()));
        for (int index = 0; index < cfg_failure_count(handle.get()); ++index) {
            cfg_failure failure = {};
            ASSERT_EQ(cfg_failure_at(handle.get(), index, &failure), 0);
            EXPECT_TRUE(failure.line == row.line || *failure.file == '\0') << "a line of a text that is nowhere";
        }
        expectUntouched();
    }
}

TEST_F(ChangeSet, TheRootTakesNoOtherAttribute)
{
    const Handle handle = safe();
    remember();
    Mods mods({{modAdd, "description", {{"one"}}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "", mods.list()), 65);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 65);
    expectUntouched();
    Mods charset({{modReplace, "charset", {{"US-ASCII"}}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "", charset.list()), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(cfg_set_comment_s(handle.get(), "", nullptr, "text"), refused);
    EXPECT_EQ(cfg_set_comment_s(handle.get(), "", "version", "text"), 0) << shown(cfg_dump_exception(handle.get()));
}

TEST_F(ChangeSet, ACommentThatEndsTheEntryAboveStaysOutsideTheBlock)
{
    const Handle handle =
        safeInOwnForm("version: 1\ncharset: UTF-8\n\ndn: o=x\nb: 1\n# last of o=x\n\ndn: cn=a, o=x\na: 1\n\n");
    ASSERT_EQ(cfg_set_comment_s(handle.get(), "cn=a,o=x", nullptr, "new"), 0)
        << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), std::string(rootText) + "dn: o=x\nb: 1\n\n# last of o=x\n\n# new\ndn: cn=a, o=x\na: 1\n\n");
    ASSERT_EQ(cfg_set_comment_s(handle.get(), "cn=a,o=x", nullptr, "newer"), 0);
    EXPECT_EQ(read(), std::string(rootText) + "dn: o=x\nb: 1\n\n# last of o=x\n\n# newer\ndn: cn=a, o=x\na: 1\n\n");
}

TEST_F(ChangeSet, ADnLineWithoutAColonIsWrittenSoThatItsEntryComesBack)
{
    const Handle handle = safeInOwnForm("version: 1\ncharset: UTF-8\n\ndn=a,o=x\na: 1\n\n");
    ASSERT_EQ(add(handle.get(), "o=x"), 0) << shown(cfg_dump_exception(handle.get()));
    const Handle again = another();
    EXPECT_EQ(read().find("zor-slapdInvalidLine"), std::string::npos) << read();
    EXPECT_NE(read().find("dn: dn=a"), std::string::npos) << read();
}

TEST_F(ChangeSet, ReadsInsideASetSeeThePendingChanges)
{
    const Handle handle = safe();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(cfg_set_comment_s(handle.get(), "o=x", nullptr, "pending"), 0);
    editFile(sampleText);
    char* comment = nullptr;
    EXPECT_EQ(cfg_get_comment_s(handle.get(), "o=x", nullptr, &comment), 0);
    const Text owned(comment);
    EXPECT_EQ(shown(comment), "pending");
    cfg_message* entries = nullptr;
    ASSERT_EQ(add(handle.get(), "cn=b,o=x"), 0);
    ASSERT_EQ(cfg_read_s(handle.get(), "cn=b,o=x", baseScope, &entries), 0);
    const Message result(entries);
    EXPECT_EQ(listed(entries), "dn: cn=b, o=x\ndescription: one\n");
}

TEST_F(ChangeSet, ACommentThatEndsAnEntryStaysOutsideTheBlockBelowOverCommits)
{
    const Handle handle = safe("version: 1\n\ndn: o=x\nb: 1\n# tail of x\n\n# block of a\ndn: cn=a, o=x\na: 1\n\n");
    const auto block = [&] {
        char* text = nullptr;
        EXPECT_EQ(cfg_get_comment_s(handle.get(), "cn=a,o=x", nullptr, &text), 0);
        const Text owned(text);
        return shown(text);
    };
    EXPECT_EQ(block(), "block of a");
    ASSERT_EQ(add(handle.get(), "cn=b,o=x"), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(block(), "block of a");
    EXPECT_NE(read().find("\n# tail of x\n\n# block of a\ndn: cn=a, o=x\n"), std::string::npos) << read();
}

TEST_F(ChangeSet, TheNeverModeKeepsAndRendersRejectedLinesAsTheDirectModeDoes)
{
    constexpr char text[] = "charset: UTF-8\nversion: 1\n\ndn: o=x\nno colon\n\n";
    const Handle handle = boundIn(CFG_WRITE_NEVER, text);
    EXPECT_EQ(lineOf(handle.get(), "o=x", "zor-slapdInvalidLine", "no colon: "), 5);
    const std::string own = rendered(handle.get());
    EXPECT_EQ(read(), text);
    const Handle classic = boundIn(CFG_WRITE_DIRECT, text);
    EXPECT_EQ(read(), own);
}

TEST_F(ChangeSet, AHandleThatGoesFromTheNeverToTheSafeModeWritesWhatComesBack)
{
    const Handle handle = boundIn(CFG_WRITE_NEVER, "charset: UTF-8\nversion: 1\n\ndn: o=x\nno colon\n\n");
    ASSERT_EQ(cfg_set_write_mode(handle.get(), CFG_WRITE_SAFE), 0);
    ASSERT_EQ(add(handle.get(), "cn=b,o=x"), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), std::string(rootText) + "dn: o=x\nno colon\n\ndn: cn=b, o=x\ndescription: one\n\n");
    ASSERT_EQ(cfg_set_layout(handle.get(), CFG_LAYOUT_OWN), 0);
    ASSERT_EQ(cfg_delete_s(handle.get(), "cn=b,o=x"), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), std::string(rootText) + "dn: o=x\nzor-slapdInvalidLine: no colon:\n\n");
}

TEST_F(ChangeSet, TheSafeModeRendersWhatTheFileHoldsAfterAClassicUpdateThatFailedHalfWay)
{
    const Handle handle = boundIn(CFG_WRITE_DIRECT, sampleText);
    Mods mods({{modReplace, "description", {{"half"}}}, {modReplace, "zor-slapdPort", {{"none"}}}});
    ASSERT_EQ(cfg_modify_s(handle.get(), "cn=a,o=x", mods.list()), 21);
    ASSERT_EQ(cfg_set_write_mode(handle.get(), CFG_WRITE_SAFE), 0);
    EXPECT_EQ(rendered(handle.get()), sampleText);
}

TEST_F(ChangeSet, ACreatedFilesNameIsLookedAtBeforeItsText)
{
    const Handle handle(cfg_init());
    write(sampleText);
    EXPECT_EQ(cfg_create_s(handle.get(), pathOf(fileName).c_str(), "port: 1\n", 8), 68);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 68);
}

TEST_F(ChangeSet, ABackupThatWouldBeRemovedAsALeftoverIsRefused)
{
    const Handle handle = unbound(write(sampleText));
    ASSERT_EQ(cfg_set_write_mode(handle.get(), CFG_WRITE_SAFE), 0);
    ASSERT_EQ(cfg_set_option(handle.get(), CFG_OPT_BACKUP_FILE, pathOf(".zorslapd.conf.veltor.old").c_str()), 0);
    ASSERT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
    remember();
    EXPECT_EQ(setPort(handle.get(), "7"), 50);
    expectUntouched();
}

TEST_F(ChangeSet, AnInstallNeedsASetThatIsNotSpoiltAndDropsItsChanges)
{
    const Handle handle = safe();
    EXPECT_EQ(cfg_install_s(handle.get(), "", 0), refused) << "no set";
    remember();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(setPort(handle.get(), "none"), 21);
    EXPECT_EQ(cfg_install_s(handle.get(), "", 0), refused) << "spoilt";
    expectUntouched();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(add(handle.get(), "cn=b,o=x"), 0);
    const std::string text = withPort("7");
    ASSERT_EQ(cfg_install_s(handle.get(), text.data(), text.size()), 0);
    EXPECT_EQ(search(handle.get(), "cn=b,o=x", baseScope, "description=*").code, 32);
}

TEST_F(ChangeSet, AnEmptyTextMayBeNull)
{
    const Handle handle = safe();
    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0);
    ASSERT_EQ(cfg_install_s(handle.get(), nullptr, 0), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), "");
    EXPECT_EQ(cfg_create_s(handle.get(), pathOf("new.conf").c_str(), nullptr, 1), 89);
    EXPECT_EQ(cfg_create_s(nullptr, pathOf("new.conf").c_str(), nullptr, 0), 89);
    EXPECT_FALSE(exists("new.conf"));
    ASSERT_EQ(cfg_create_s(handle.get(), pathOf("new.conf").c_str(), nullptr, 0), 0);
    EXPECT_EQ(read("new.conf"), "");
}

TEST_F(ChangeSet, AnAttributeGoesWithoutAListOfItsValues)
{
    for (const Form form : bothForms) {
        SCOPED_TRACE(nameOf(form));
        const Handle handle = safe();
        Mods mods({{modDelete, "zor-slapdPort", std::nullopt}}, form);
        ASSERT_EQ(cfg_modify_s(handle.get(), "cn=a,o=x", mods.list()), 0) << shown(cfg_dump_exception(handle.get()));
        EXPECT_EQ(port(handle.get()), "");
        EXPECT_EQ(read().find("zor-slapdPort"), std::string::npos) << read();
    }
}

TEST_F(ChangeSet, ARootWithoutEntriesIsNotCompleted)
{
    const Handle handle = safe("version: 1\n");
    ASSERT_EQ(cfg_set_comment_s(handle.get(), "", "version", "of the text"), 0)
        << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), "# of the text\nversion: 1\n");
}
