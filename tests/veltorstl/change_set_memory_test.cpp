// Memory that runs short in the middle of every careful call: no matter which request fails, and whether memory comes
// back at once or not, nothing leaks, the file holds the old or the new text and nothing else lies beside it, what is
// kept tells which, the lock is free where the call ends a change set, and the handle goes on.
//
// Linked with support/failing_allocator.cpp, its linker options and the source of the default password codec. The
// linker leads openat and fsync of the library here.
#include "support/shortage.h"
#include "support/update_api_test.h"

#include "veltor/cfg_admin.h"

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

using namespace veltor::test;

namespace {

/// What the library asked of the system since the last reset.
struct System
{
    std::size_t opened = 0;     ///< files
    bool foldersResist = false; ///< a sync of a folder fails
};

System world;

} // namespace

#define VELTOR_VISIBLE __attribute__((visibility("default")))

extern "C" {
int __real_openat(int folder, const char* name, int flags, ...);

VELTOR_VISIBLE int __wrap_openat(int folder, const char* name, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = static_cast<mode_t>((flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0);
    va_end(arguments);
    ++world.opened;
    return __real_openat(folder, name, flags, mode);
}

VELTOR_VISIBLE int __wrap_fsync(int file)
{
    struct stat status = {};
    if (world.foldersResist && fstat(file, &status) == 0 && S_ISDIR(status.st_mode)) {
        errno = EIO;
        return -1;
    }
    return 0;
}
}

namespace {

constexpr int busy = 51;
constexpr int refused = 53;

constexpr char olderText[] = "the backup of an earlier change\n";
constexpr char backupName[] = "backup";
constexpr char lockName[] = "zorslapd.conf.lock";

// In the library's own form, with texts that need memory of their own, a password and an entry without its parent.
const std::string& oldText()
{
    static const std::string text = "# at the top of the file, for all\n"
                                    "charset: UTF-8\n"
                                    "version: 1\n"
                                    "\n"
                                    "dn: o=an organisation\n"
                                    "objectclass: top\n"
                                    "\n"
                                    "# the first of all the servers\n"
                                    "dn: cn=a server of many, o=an organisation\n"
                                    "description: a description of some length\n"
                                    "objectclass: top\n"
                                    "# where it listens, day and night\n"
                                    "zor-slapdPort: 389\n"
                                    "\n"
                                    "dn: cn=below, cn=nobody, o=an organisation\n"
                                    "objectclass: top\n"
                                    "zor-slapdAdminPW: " +
                                    encoded("Secret of the manager") +
                                    "\n"
                                    "\n"
                                    "# behind the last entry of the file\n";
    return text;
}

constexpr char serverDn[] = "cn=a server of many,o=an organisation";

/// The old text with one part of it replaced.
std::string withReplaced(const std::string& part, const std::string& other)
{
    std::string text = oldText();
    const std::size_t position = text.find(part);
    EXPECT_NE(position, std::string::npos) << part;
    return text.replace(position, part.size(), other);
}

int modifyServer(void* handle, const char* port)
{
    Mods mods({{modReplace, "zor-slapdPort", {{port}}}});
    return cfg_modify_s(handle, serverDn, mods.list());
}

/// An update, and the text that it makes of the old one.
struct Update
{
    const char* name;
    std::function<int(void*)> call;
    std::string after;
    std::string afterInOwnForm = after;

    const std::string& afterWith(int layout) const { return layout == CFG_LAYOUT_KEEP ? after : afterInOwnForm; }
};

LDAPMod** addedList()
{
    static Mods mods({{modAdd, "objectclass", {{"top", "a long name of an object class"}}},
                      {modAdd, "zor-slapdPort", {{"390"}}},
                      {modAdd, "description", {{"the description of what is new"}}}},
                     Form::texts);
    return mods.list();
}

LDAPMod** modifiedList()
{
    static Mods mods({{modReplace, "zor-slapdPort", {{"636"}}},
                      {modAdd, "objectclass", {{"a long name of an object class"}}},
                      {modDelete, "description", {{"a description of some length"}}}});
    return mods.list();
}

const std::vector<Update>& updates()
{
    static const std::vector<Update> rows = {
        {"modify", [](void* handle) { return cfg_modify_s(handle, serverDn, modifiedList()); },
         withReplaced("description: a description of some length\n"
                      "objectclass: top\n"
                      "# where it listens, day and night\n"
                      "zor-slapdPort: 389\n",
                      "objectclass: top\n"
                      "objectclass: a long name of an object class\n"
                      "# where it listens, day and night\n"
                      "zor-slapdPort: 636\n")},
        {"add above others", [](void* handle) { return cfg_add_s(handle, "cn=nobody,o=an organisation", addedList()); },
         withReplaced("# behind", "dn: cn=nobody, o=an organisation\n"
                                  "description: the description of what is new\n"
                                  "objectclass: top\n"
                                  "objectclass: a long name of an object class\n"
                                  "zor-slapdPort: 390\n"
                                  "\n"
                                  "# behind"),
         withReplaced("dn: cn=below,", "dn: cn=nobody, o=an organisation\n"
                                       "description: the description of what is new\n"
                                       "objectclass: top\n"
                                       "objectclass: a long name of an object class\n"
                                       "zor-slapdPort: 390\n"
                                       "\n"
                                       "dn: cn=below,")},
        {"add below one",
         [](void* handle) { return cfg_add_s(handle, "cn=leaf,cn=a server of many,o=an organisation", addedList()); },
         withReplaced("dn: cn=below,", "dn: cn=leaf, cn=a server of many, o=an organisation\n"
                                       "description: the description of what is new\n"
                                       "objectclass: top\n"
                                       "objectclass: a long name of an object class\n"
                                       "zor-slapdPort: 390\n"
                                       "\n"
                                       "dn: cn=below,")},
        {"delete", [](void* handle) { return cfg_delete_s(handle, serverDn); },
         withReplaced("# the first of all the servers\n"
                      "dn: cn=a server of many, o=an organisation\n"
                      "description: a description of some length\n"
                      "objectclass: top\n"
                      "# where it listens, day and night\n"
                      "zor-slapdPort: 389\n"
                      "\n",
                      "")},
        {"comment of an entry",
         [](void* handle) {
             return cfg_set_comment_s(handle, serverDn, nullptr, "one line of the comment\nand another one behind it");
         },
         withReplaced("# the first of all the servers\n", "# one line of the comment\n# and another one behind it\n")},
        {"comment of an attribute",
         [](void* handle) { return cfg_set_comment_s(handle, serverDn, "zor-slapdPort", nullptr); },
         withReplaced("# where it listens, day and night\n", "")},
    };
    return rows;
}

class ChangeSetMemory : public UpdateApiTest
{
protected:
    /// A handle that writes in that way, on a file of the old text that nobody has locked yet.
    Handle on(std::string_view text, int mode = CFG_WRITE_SAFE) const
    {
        // Removed, not truncated: some file systems write that back before they go on.
        for (const char* const name : {fileName, lockName, backupName}) {
            std::filesystem::remove(pathOf(name));
        }
        write(olderText, backupName);
        Handle handle = unbound(write(text));
        EXPECT_EQ(cfg_set_option(handle.get(), CFG_OPT_BACKUP_FILE, pathOf(backupName).c_str()), 0);
        EXPECT_EQ(cfg_set_write_mode(handle.get(), mode), 0);
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0) << shown(cfg_dump_exception(handle.get()));
        return handle;
    }

    Handle safe(int layout = CFG_LAYOUT_KEEP) const
    {
        Handle handle = on(oldText());
        EXPECT_EQ(cfg_set_layout(handle.get(), layout), 0);
        return handle;
    }

    Handle inSet(int layout = CFG_LAYOUT_KEEP) const
    {
        Handle handle = safe(layout);
        EXPECT_EQ(cfg_begin_s(handle.get(), 0), 0) << shown(cfg_dump_exception(handle.get()));
        return handle;
    }

    /// Nothing lies beside the file that does not belong there.
    void expectTidy() const
    {
        const std::set<std::string> known = {fileName, lockName, backupName};
        for (const auto& entry : std::filesystem::directory_iterator(pathOf(""))) {
            EXPECT_EQ(known.count(entry.path().filename().string()), 1U) << entry.path();
        }
    }

    /// The file holds that text; the backup is the older one or a copy of what was replaced.
    void expectDisk(std::string_view text, std::string_view replaced = oldText()) const
    {
        EXPECT_EQ(read(), text);
        const std::string backup = read(backupName);
        EXPECT_TRUE(backup == olderText || (!replaced.empty() && backup == replaced)) << backup;
        expectTidy();
    }

    /// Nobody has the lock.
    void expectLockFree() const
    {
        const Handle other = unbound(pathOf(fileName));
        EXPECT_EQ(cfg_set_write_mode(other.get(), CFG_WRITE_SAFE), 0);
        EXPECT_EQ(cfg_bind_s(other.get(), nullptr, nullptr, simple), 0);
        EXPECT_EQ(cfg_begin_s(other.get(), 0), 0) << shown(cfg_dump_exception(other.get()));
    }

    static std::string portOf(void* handle)
    {
        const Found found = search(handle, serverDn, baseScope, "objectclass=*");
        const Values values(found.result == nullptr ? nullptr
                                                    : cfg_get_values(handle, found.result.get(), "zor-slapdPort"));
        return values == nullptr ? "" : shown(values.get()[0]);
    }

    /// A change set of this handle goes through, and a search sees what it did.
    static void expectUsable(void* handle)
    {
        EXPECT_EQ(cfg_begin_s(handle, 0), 0) << shown(cfg_dump_exception(handle));
        EXPECT_EQ(modifyServer(handle, "4711"), 0) << shown(cfg_dump_exception(handle));
        EXPECT_EQ(cfg_commit_s(handle), 0) << shown(cfg_dump_exception(handle));
        EXPECT_EQ(portOf(handle), "4711");
    }

    /// What is kept of a failure while a text was put in place tells which text that is.
    static void expectPlaceTold(void* handle, const char* which)
    {
        if (const LDIF_Exception* const exception = kept(handle)) {
            const std::string end = std::string("the ") + which + " text is in place";
            EXPECT_TRUE(exception->msg.ends_with(end)) << exception->msg;
        }
    }

    /// Shows which lines were rejected.
    static std::string inOwnForm(void* handle)
    {
        EXPECT_EQ(cfg_set_layout(handle, CFG_LAYOUT_OWN), 0);
        return rendered(handle);
    }

    /// A call that is refused is refused, or its want of memory told; and then it is refused.
    /// @param prepare  makes the handle
    /// @param check    looks at handle and disk after the call
    template <class Prepare, class Call, class Check>
    void expectRefusedWhateverMemory(int code, Prepare&& prepare, Call&& call, Check&& check)
    {
        forEveryRequest([&](Shortage shortage, std::size_t nth) {
            const Handle handle = prepare();
            FailingAllocator memory(shortage, nth);
            const int given = call(handle.get());
            memory.stop();
            if (given == code) {
                expectRecorded(handle.get(), code);
            } else {
                EXPECT_TRUE(memory.failed()) << given << shown(cfg_dump_exception(handle.get()));
                expectShortageTold(handle.get(), given, shortage);
            }
            check(handle.get());
            return memory.failed();
        });
    }
};

} // namespace

// ---- Settings ----

TEST_F(ChangeSetMemory, SettingsRequestNothing)
{
    const Handle handle = safe();
    expectNoRequest("settings", [&] {
        int mode = 0;
        EXPECT_EQ(cfg_set_write_mode(handle.get(), CFG_WRITE_NEVER), 0);
        EXPECT_EQ(cfg_set_write_mode(handle.get(), CFG_WRITE_DIRECT), 0);
        EXPECT_EQ(cfg_set_write_mode(handle.get(), CFG_WRITE_SAFE), 0);
        EXPECT_EQ(cfg_set_write_mode(handle.get(), 3), 89);
        EXPECT_EQ(cfg_get_write_mode(handle.get(), &mode), 0);
        EXPECT_EQ(mode, CFG_WRITE_SAFE);
        EXPECT_EQ(cfg_set_layout(handle.get(), CFG_LAYOUT_OWN), 0);
        EXPECT_EQ(cfg_set_layout(handle.get(), 2), 89);
    });
    expectUsable(handle.get());
}

TEST_F(ChangeSetMemory, RefusedSettingsSpoilNoSet)
{
    const std::function<int(void*)> calls[] = {
        [](void* handle) { return cfg_set_write_mode(handle, CFG_WRITE_DIRECT); },
        [](void* handle) { return cfg_set_layout(handle, CFG_LAYOUT_OWN); },
        [](void* handle) { return cfg_flush_s(handle); },
        [](void* handle) { return cfg_begin_s(handle, 0); },
        [](void* handle) { return cfg_bind_s(handle, nullptr, nullptr, simple); },
    };
    for (const auto& call : calls) {
        SCOPED_TRACE(&call - calls);
        expectRefusedWhateverMemory(
            refused,
            [&] {
                Handle handle = inSet();
                EXPECT_EQ(modifyServer(handle.get(), "636"), 0);
                return handle;
            },
            call,
            [&](void* handle) {
                int mode = -1;
                EXPECT_EQ(cfg_get_write_mode(handle, &mode), 0);
                EXPECT_EQ(mode, CFG_WRITE_SAFE);
                expectDisk(oldText());
                EXPECT_EQ(portOf(handle), "636");
                EXPECT_EQ(cfg_commit_s(handle), 0) << shown(cfg_dump_exception(handle));
                expectDisk(withReplaced("389", "636"));
            });
    }
}

// ---- Bind ----

TEST_F(ChangeSetMemory, ABindInACarefulModeWritesNothingAndRejectsNoLineForWantOfMemory)
{
    const std::string bad = oldText() + "\ndn: cn=bad,o=an organisation\nobjectclass: top\n"
                                        "zor-slapdPort: not a number at all, and long\n"
                                        "zor-slapdReadOnly: TRUE\n\n";
    for (const int mode : {CFG_WRITE_SAFE, CFG_WRITE_NEVER}) {
        SCOPED_TRACE(mode);
        const std::string wanted = inOwnForm(on(bad, mode).get());
        EXPECT_NE(wanted.find("zor-slapdInvalidLine: zor-slapdPort: not a number"), std::string::npos) << wanted;
        const std::string file = pathOf(fileName);
        forEveryRequest([&](Shortage shortage, std::size_t nth) {
            const Handle handle = unbound(file);
            EXPECT_EQ(cfg_set_write_mode(handle.get(), mode), 0);
            FailingAllocator memory(shortage, nth);
            const int code = cfg_bind_s(handle.get(), nullptr, nullptr, simple);
            memory.stop();
            expectDisk(bad);
            if (code != 0) {
                EXPECT_TRUE(memory.failed());
                expectShortageTold(handle.get(), code, shortage);
                EXPECT_EQ(search(handle.get(), nullptr, subtree, nullptr).code, 89) << "still unbound";
                EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
            }
            EXPECT_EQ(inOwnForm(handle.get()), wanted);
            EXPECT_EQ(portOf(handle.get()), "389");
            return memory.failed();
        });
    }
}

// ---- Begin ----

TEST_F(ChangeSetMemory, ABeginThatFailsLeavesTheLockFree)
{
    struct Row
    {
        const char* name;
        std::function<void()> prepare;
        std::string port;
    };
    const Row rows[] = {
        {"no lock file", [] {}, "389"},
        {"a lock file of another mode",
         [&] {
             write("1\nanother program of a long name\n", lockName);
             ASSERT_EQ(chmod(pathOf(lockName).c_str(), 0600), 0);
         },
         "389"},
        {"what a crash left behind",
         [&] {
             write("1\n", lockName);
             write("half a te", ".zorslapd.conf.veltor.AbCdEf");
         },
         "389"},
        {"a file that somebody changed", [&] { editFile(withReplaced("389", "1389")); }, "1389"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        forEveryRequest([&](Shortage shortage, std::size_t nth) {
            const Handle handle = safe();
            row.prepare();
            const std::string text = read();
            FailingAllocator memory(shortage, nth);
            const int code = cfg_begin_s(handle.get(), 0);
            memory.stop();
            if (code != 0) {
                EXPECT_TRUE(memory.failed());
                expectShortageTold(handle.get(), code, shortage);
                EXPECT_EQ(cfg_rollback_s(handle.get()), refused) << "no set has begun";
                expectLockFree();
                EXPECT_EQ(portOf(handle.get()), row.port);
                expectDisk(text);
                EXPECT_EQ(cfg_begin_s(handle.get(), 0), 0) << shown(cfg_dump_exception(handle.get()));
            }
            EXPECT_EQ(portOf(handle.get()), row.port);
            EXPECT_EQ(modifyServer(handle.get(), "636"), 0);
            EXPECT_EQ(cfg_commit_s(handle.get()), 0) << shown(cfg_dump_exception(handle.get()));
            expectDisk(withReplaced("389", "636"), text);
            return memory.failed();
        });
    }
}

TEST_F(ChangeSetMemory, ABusyLockIsToldOrTheShortage)
{
    const Handle holder = inSet();
    expectRefusedWhateverMemory(
        busy,
        [&] {
            Handle other = unbound(pathOf(fileName));
            EXPECT_EQ(cfg_set_write_mode(other.get(), CFG_WRITE_SAFE), 0);
            EXPECT_EQ(cfg_bind_s(other.get(), nullptr, nullptr, simple), 0);
            return other;
        },
        [](void* other) { return cfg_begin_s(other, 0); },
        [&](void* other) {
            EXPECT_EQ(cfg_begin_s(other, 0), busy) << "nobody freed it";
            EXPECT_EQ(portOf(other), "389");
        });
    EXPECT_EQ(modifyServer(holder.get(), "636"), 0);
    EXPECT_EQ(cfg_commit_s(holder.get()), 0);
    expectDisk(withReplaced("389", "636"));
}

// ---- Updates ----

TEST_F(ChangeSetMemory, AnUpdateOutsideASetHappensOrLeavesNothing)
{
    for (const int layout : {CFG_LAYOUT_KEEP, CFG_LAYOUT_OWN}) {
        for (const Update& update : updates()) {
            SCOPED_TRACE(std::string(update.name) + ", layout " + std::to_string(layout));
            forEveryRequest([&](Shortage shortage, std::size_t nth) {
                const Handle handle = safe(layout);
                FailingAllocator memory(shortage, nth);
                const int code = update.call(handle.get());
                memory.stop();
                if (code != 0) {
                    EXPECT_TRUE(memory.failed()) << shown(cfg_dump_exception(handle.get()));
                    expectShortageTold(handle.get(), code, shortage);
                    expectDisk(oldText());
                    EXPECT_EQ(cfg_rollback_s(handle.get()), refused) << "the set has ended";
                    expectLockFree();
                    EXPECT_EQ(portOf(handle.get()), "389");
                    EXPECT_EQ(rendered(handle.get()), oldText());
                    EXPECT_EQ(update.call(handle.get()), 0) << shown(cfg_dump_exception(handle.get()));
                }
                expectDisk(update.afterWith(layout));
                EXPECT_EQ(rendered(handle.get()), update.afterWith(layout));
                return memory.failed();
            });
        }
    }
}

TEST_F(ChangeSetMemory, AnUpdateInsideASetHappensOrSpoilsIt)
{
    for (const bool commits : {false, true}) {
        for (const Update& update : updates()) {
            SCOPED_TRACE(std::string(update.name) + (commits ? ", committed" : ", rolled back"));
            forEveryRequest([&](Shortage shortage, std::size_t nth) {
                const Handle handle = inSet();
                FailingAllocator memory(shortage, nth);
                const int code = update.call(handle.get());
                memory.stop();
                if (code != 0) {
                    EXPECT_TRUE(memory.failed()) << shown(cfg_dump_exception(handle.get()));
                    expectShortageTold(handle.get(), code, shortage);
                    EXPECT_EQ(search(handle.get(), nullptr, subtree, nullptr).code, 0);
                    EXPECT_EQ(update.call(handle.get()), refused) << "the set is spoilt";
                    EXPECT_EQ(commits ? cfg_commit_s(handle.get()) : cfg_rollback_s(handle.get()),
                              commits ? refused : 0);
                    expectDisk(oldText(), "");
                    expectLockFree();
                    EXPECT_EQ(portOf(handle.get()), "389");
                    EXPECT_EQ(rendered(handle.get()), oldText());
                    EXPECT_EQ(cfg_begin_s(handle.get(), 0), 0);
                    EXPECT_EQ(update.call(handle.get()), 0) << shown(cfg_dump_exception(handle.get()));
                }
                EXPECT_EQ(cfg_commit_s(handle.get()), 0) << shown(cfg_dump_exception(handle.get()));
                expectDisk(update.after);
                return memory.failed();
            });
        }
    }
}

TEST_F(ChangeSetMemory, AnUpdateThatIsRefusedIsNotTakenForAShortageNorTheOtherWayRound)
{
    static Mods lineFeed({{modReplace, "description", {{"a first line of the value\nand: another one"}}}});
    static Mods badName({{modAdd, "a name with blanks, and long;x", {{"a value that is sound and long"}}}});
    static Mods notANumber({{modReplace, "zor-slapdPort", {{"this is not a number at all"}}}});
    static Mods list({{modAdd, "description", {{"the description of what is new"}}}});
    struct Row
    {
        const char* name;
        std::function<int(void*)> call;
        int code;
    };
    const Row rows[] = {
        {"line feed", [](void* handle) { return cfg_modify_s(handle, serverDn, lineFeed.list()); }, 21},
        {"name", [](void* handle) { return cfg_modify_s(handle, serverDn, badName.list()); }, 21},
        {"syntax", [](void* handle) { return cfg_modify_s(handle, serverDn, notANumber.list()); }, 21},
        {"DN", [](void* handle) { return cfg_add_s(handle, "cn=a long name before it,=x", list.list()); }, 34},
        {"DN that does not come back",
         [](void* handle) { return cfg_add_s(handle, "cn=a long name with\\0Aa line feed,o=x", list.list()); }, 34},
        {"root", [](void* handle) { return cfg_add_s(handle, "", list.list()); }, 65},
        {"present", [](void* handle) { return cfg_add_s(handle, serverDn, list.list()); }, 68},
        {"absent", [](void* handle) { return cfg_delete_s(handle, "cn=nobody has such a name,o=x"); }, 32},
        {"not a leaf", [](void* handle) { return cfg_delete_s(handle, "o=an organisation"); }, 66},
        {"comment",
         [](void* handle) { return cfg_set_comment_s(handle, serverDn, nullptr, "a comment with a return\rin it"); },
         21},
        {"comment of nothing",
         [](void* handle) { return cfg_set_comment_s(handle, serverDn, "a-name-of-an-attribute-that-is-long", "x"); },
         16},
        {"root attribute", [](void* handle) { return cfg_modify_s(handle, "", list.list()); }, 65},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        expectRefusedWhateverMemory(
            row.code, [&] { return safe(); }, row.call,
            [&](void* handle) {
                expectDisk(oldText(), "");
                expectLockFree();
                EXPECT_EQ(row.call(handle), row.code) << shown(cfg_dump_exception(handle));
                EXPECT_EQ(rendered(handle), oldText());
            });
    }
}

TEST_F(ChangeSetMemory, ACommitThatCannotExpressTheFileIsRefusedOrTheShortageTold)
{
    const char* const text = "version: 1\ndn: o=x\nzor-slapdPeerDN: cn=\\28a name that is long enough\n\n";
    static Mods list({{modAdd, "description", {{"the description of what is new"}}}});
    expectRefusedWhateverMemory(
        21,
        [&] {
            Handle handle = on(text);
            EXPECT_EQ(cfg_set_layout(handle.get(), CFG_LAYOUT_OWN), 0);
            EXPECT_EQ(cfg_begin_s(handle.get(), 0), 0);
            EXPECT_EQ(cfg_add_s(handle.get(), "cn=b,o=x", list.list()), 0);
            return handle;
        },
        [](void* handle) { return cfg_commit_s(handle); },
        [&](void* handle) {
            if (kept(handle) != nullptr && kept(handle)->ldapErr == 21) {
                EXPECT_EQ(kept(handle)->configLine, 3);
            }
            expectDisk(text, "");
            expectLockFree();
            EXPECT_EQ(search(handle, "cn=b,o=x", baseScope, "objectclass=*").code, 32);
        });
}

TEST_F(ChangeSetMemory, TheNeverWriteModeRefusesWhateverMemory)
{
    const std::function<int(void*)> calls[] = {
        [](void* handle) { return cfg_modify_s(handle, serverDn, modifiedList()); },
        [](void* handle) { return cfg_set_comment_s(handle, serverDn, nullptr, "a text"); },
        [](void* handle) { return cfg_flush_s(handle); },
        [](void* handle) { return cfg_begin_s(handle, 0); },
    };
    for (const auto& call : calls) {
        SCOPED_TRACE(&call - calls);
        expectRefusedWhateverMemory(
            refused, [&] { return on(oldText(), CFG_WRITE_NEVER); }, call,
            [&](void* handle) {
                expectDisk(oldText(), "");
                EXPECT_FALSE(exists(lockName));
                EXPECT_EQ(portOf(handle), "389");
            });
    }
}

// ---- The end of a set ----

TEST_F(ChangeSetMemory, ACommitPutsTheNewTextInPlaceOrKeepsTheOldOneAndSaysSo)
{
    std::size_t told = 0;
    forEveryRequest(
        [&](Shortage shortage, std::size_t nth) {
            const Handle handle = inSet();
            for (const char* const port : {"636", "637"}) {
                EXPECT_EQ(modifyServer(handle.get(), port), 0);
            }
            world = {};
            FailingAllocator memory(shortage, nth);
            const int code = cfg_commit_s(handle.get());
            memory.stop();
            if (code != 0) {
                EXPECT_TRUE(memory.failed()) << shown(cfg_dump_exception(handle.get()));
                expectShortageTold(handle.get(), code, shortage);
                // Nothing is opened before the new text is put in place.
                if (world.opened != 0) {
                    told += kept(handle.get()) != nullptr ? 1 : 0;
                    expectPlaceTold(handle.get(), "old");
                }
                expectDisk(oldText());
                EXPECT_EQ(cfg_rollback_s(handle.get()), refused) << "the set has ended";
                expectLockFree();
                EXPECT_EQ(portOf(handle.get()), "389");
                EXPECT_EQ(rendered(handle.get()), oldText());
                expectUsable(handle.get());
                return memory.failed();
            }
            expectDisk(withReplaced("389", "637"));
            expectLockFree();
            EXPECT_EQ(portOf(handle.get()), "637");
            return memory.failed();
        },
        {Shortage::once, Shortage::twice, Shortage::lasting});
    EXPECT_GT(told, 0U);
}

TEST_F(ChangeSetMemory, AFailureBehindTheRenameSaysThatTheNewTextIsInPlace)
{
    forEveryRequest(
        [&](Shortage shortage, std::size_t nth) {
            const Handle handle = inSet();
            // Without a backup there is one folder to sync, and that is the last step.
            EXPECT_EQ(cfg_set_option(handle.get(), CFG_OPT_BACKUP_FILE, nullptr), 0);
            static_cast<cfg_handle*>(handle.get())->store->backupFileName.clear();
            EXPECT_EQ(modifyServer(handle.get(), "636"), 0);
            world = {};
            world.foldersResist = true;
            FailingAllocator memory(shortage, nth);
            const int code = cfg_commit_s(handle.get());
            memory.stop();
            world.foldersResist = false;
            EXPECT_EQ(code, 80);
            expectRecorded(handle.get(), code);
            const std::string text = read();
            EXPECT_TRUE(text == oldText() || text == withReplaced("389", "636")) << text;
            if (!memory.failed()) {
                EXPECT_NE(text, oldText());
                EXPECT_NE(kept(handle.get()), nullptr);
            }
            if (world.opened != 0) {
                expectPlaceTold(handle.get(), text == oldText() ? "old" : "new");
            } else {
                EXPECT_EQ(text, oldText());
            }
            expectDisk(text, "");
            expectLockFree();
            EXPECT_EQ(portOf(handle.get()), text == oldText() ? "389" : "636");
            expectUsable(handle.get());
            return memory.failed();
        },
        {Shortage::once, Shortage::twice, Shortage::lasting});
}

TEST_F(ChangeSetMemory, ACommitOfASpoiltSetEndsIt)
{
    expectRefusedWhateverMemory(
        refused,
        [&] {
            Handle handle = inSet();
            EXPECT_EQ(modifyServer(handle.get(), "636"), 0);
            EXPECT_EQ(modifyServer(handle.get(), "no number"), 21);
            return handle;
        },
        [](void* handle) { return cfg_commit_s(handle); },
        [&](void* handle) {
            expectDisk(oldText(), "");
            expectLockFree();
            EXPECT_EQ(portOf(handle), "389");
            expectUsable(handle);
        });
}

TEST_F(ChangeSetMemory, WithoutASetItsEndsAreRefused)
{
    const std::function<int(void*)> calls[] = {
        [](void* handle) { return cfg_commit_s(handle); },
        [](void* handle) { return cfg_rollback_s(handle); },
        [](void* handle) { return cfg_install_s(handle, "version: 1\n", 11); },
    };
    for (const auto& call : calls) {
        SCOPED_TRACE(&call - calls);
        expectRefusedWhateverMemory(
            refused, [&] { return safe(); }, call,
            [&](void* handle) {
                expectDisk(oldText(), "");
                expectUsable(handle);
            });
    }
}

TEST_F(ChangeSetMemory, ARollbackRequestsNothing)
{
    const Handle handle = inSet();
    EXPECT_EQ(modifyServer(handle.get(), "636"), 0);
    expectNoRequest("cfg_rollback_s", [&] { EXPECT_EQ(cfg_rollback_s(handle.get()), 0); });
    expectDisk(oldText(), "");
    expectLockFree();
    EXPECT_EQ(portOf(handle.get()), "389");

    EXPECT_EQ(cfg_begin_s(handle.get(), 0), 0);
    EXPECT_EQ(modifyServer(handle.get(), "no number"), 21);
    expectNoRequest("of a spoilt set", [&] { EXPECT_EQ(cfg_rollback_s(handle.get()), 0); });
    EXPECT_EQ(cfg_begin_s(handle.get(), 0), 0);
    expectNoRequest("a commit without changes", [&] { EXPECT_EQ(cfg_commit_s(handle.get()), 0); });
    EXPECT_EQ(cfg_begin_s(handle.get(), 0), 0);
    EXPECT_EQ(modifyServer(handle.get(), "636"), 0);
    void* const unbound = Handle(inSet()).release();
    expectNoRequest("cfg_unbind inside a set", [&] { cfg_unbind(unbound); });
}

// ---- Whole texts ----

TEST_F(ChangeSetMemory, AnInstallPutsTheTextInPlaceOrKeepsTheOldOneAndSaysSo)
{
    // Not in the library's own form: it is installed as it is.
    const std::string text = "version: 1\n# a comment of some length\ndn: cn=a server of many , o=an organisation\n"
                             "zor-slapdPort: 0636\nobjectclass: top\nno line of a file that can be used";
    const std::string whole = text + "\n";
    forEveryRequest(
        [&](Shortage shortage, std::size_t nth) {
            const Handle handle = inSet();
            EXPECT_EQ(modifyServer(handle.get(), "637"), 0);
            world = {};
            FailingAllocator memory(shortage, nth);
            const int code = cfg_install_s(handle.get(), whole.data(), whole.size());
            memory.stop();
            if (code != 0) {
                EXPECT_TRUE(memory.failed()) << shown(cfg_dump_exception(handle.get()));
                expectShortageTold(handle.get(), code, shortage);
                if (world.opened != 0) {
                    expectPlaceTold(handle.get(), "old");
                }
                expectDisk(oldText());
                EXPECT_EQ(cfg_rollback_s(handle.get()), refused) << "the set has ended";
                expectLockFree();
                EXPECT_EQ(portOf(handle.get()), "389");
                EXPECT_EQ(cfg_begin_s(handle.get(), 0), 0);
                EXPECT_EQ(cfg_install_s(handle.get(), whole.data(), whole.size()), 0)
                    << shown(cfg_dump_exception(handle.get()));
            }
            expectDisk(whole);
            expectLockFree();
            EXPECT_EQ(portOf(handle.get()), "636");
            return memory.failed();
        },
        {Shortage::once, Shortage::twice, Shortage::lasting});
}

TEST_F(ChangeSetMemory, ATextThatEndsItsLoadIsRefusedOrTheShortageTold)
{
    const std::string text = "version: 1\na-long-attribute-name: and a long value\n";
    expectRefusedWhateverMemory(
        65, [&] { return inSet(); }, [&](void* handle) { return cfg_install_s(handle, text.data(), text.size()); },
        [&](void* handle) {
            expectDisk(oldText(), "");
            expectLockFree();
            EXPECT_EQ(portOf(handle), "389");
        });
    const std::string file = pathOf("made by a call.conf");
    expectRefusedWhateverMemory(
        65, [&] { return safe(); },
        [&](void* handle) { return cfg_create_s(handle, file.c_str(), text.data(), text.size()); },
        [&](void* handle) {
            expectDisk(oldText(), "");
            EXPECT_EQ(portOf(handle), "389");
        });
}

TEST_F(ChangeSetMemory, ACreateMakesTheWholeFileOrLeavesNothingBehind)
{
    const std::string file = pathOf("made by a call.conf");
    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        const Handle handle = safe();
        FailingAllocator memory(shortage, nth);
        const int code = cfg_create_s(handle.get(), file.c_str(), oldText().data(), oldText().size());
        memory.stop();
        if (code != 0) {
            EXPECT_TRUE(memory.failed()) << shown(cfg_dump_exception(handle.get()));
            expectShortageTold(handle.get(), code, shortage);
            expectDisk(oldText(), "");
            EXPECT_EQ(cfg_create_s(handle.get(), file.c_str(), oldText().data(), oldText().size()), 0)
                << shown(cfg_dump_exception(handle.get()));
        }
        EXPECT_EQ(read("made by a call.conf"), oldText());
        std::filesystem::remove(file);
        expectTidy();
        EXPECT_EQ(portOf(handle.get()), "389");
        return memory.failed();
    });
}

TEST_F(ChangeSetMemory, AReplacementPutsTheWholeTextOrLeavesTheOldOne)
{
    const std::string file = pathOf("broken.conf");
    constexpr std::string_view broken = "zor-slapdPort: 1\n";
    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        write(broken, "broken.conf");
        const Handle handle(cfg_init());
        const auto replace = [&] {
            return cfg_replace_s(handle.get(), file.c_str(), broken.data(), broken.size(), oldText().data(),
                                 oldText().size(), 0);
        };
        FailingAllocator memory(shortage, nth);
        const int code = replace();
        memory.stop();
        if (code != 0) {
            EXPECT_TRUE(memory.failed()) << shown(cfg_dump_exception(handle.get()));
            expectShortageTold(handle.get(), code, shortage);
            EXPECT_EQ(read("broken.conf"), broken);
            EXPECT_EQ(replace(), 0) << shown(cfg_dump_exception(handle.get()));
        }
        EXPECT_EQ(read("broken.conf"), oldText());
        std::filesystem::remove(file);
        std::filesystem::remove(file + ".lock");
        return memory.failed();
    });
}

TEST_F(ChangeSetMemory, ACreateOverAFileIsRefusedOrTheShortageTold)
{
    const std::string file = pathOf(fileName);
    expectRefusedWhateverMemory(
        68, [&] { return safe(); },
        [&](void* handle) { return cfg_create_s(handle, file.c_str(), "version: 1\n", 11); },
        [&](void* handle) {
            expectDisk(oldText(), "");
            expectUsable(handle);
        });
}

// ---- Reading ----

TEST_F(ChangeSetMemory, ARenderGivesTheWholeTextOrNone)
{
    for (const int mode : {CFG_WRITE_SAFE, CFG_WRITE_NEVER, CFG_WRITE_DIRECT}) {
        for (const bool changed : {false, true}) {
            SCOPED_TRACE(std::to_string(mode) + (changed ? ", a file that somebody changed" : ""));
            forEveryRequest([&](Shortage shortage, std::size_t nth) {
                const Handle handle = on(oldText(), mode);
                if (changed) {
                    editFile(withReplaced("389", "636"));
                }
                const std::string wanted = read();
                char untouched = 0;
                char* text = &untouched;
                std::size_t size = 1;
                FailingAllocator memory(shortage, nth);
                const int code = cfg_render_s(handle.get(), &text, &size);
                memory.stop();
                const Text owned(text);
                if (code != 0) {
                    EXPECT_TRUE(memory.failed());
                    expectShortageTold(handle.get(), code, shortage);
                    EXPECT_EQ(text, nullptr);
                    EXPECT_EQ(size, 0U);
                } else {
                    EXPECT_EQ(std::string(text, size), wanted);
                }
                EXPECT_EQ(rendered(handle.get()), wanted);
                expectDisk(wanted, "");
                return memory.failed();
            });
        }
    }
}

TEST_F(ChangeSetMemory, ALocateTellsTheLineOrTheShortage)
{
    struct Row
    {
        const char* name;
        const char* dn;
        const char* attribute;
        const char* value;
        int code;
        int line;
    };
    const Row rows[] = {
        {"DN line", serverDn, nullptr, nullptr, 0, 9},
        {"attribute", serverDn, "zor-slapdPort", nullptr, 0, 13},
        {"value", serverDn, "zor-slapdPort", "0389", 0, 13},
        {"no such value", serverDn, "description", "another description of some length", 0, 0},
        {"password", "cn=below,cn=nobody,o=an organisation", "zor-slapdAdminPW", "Secret of the manager", 0, 17},
        {"root", "", "version", "1", 0, 3},
        {"no such entry", "cn=nobody has such a name, o=anywhere", nullptr, nullptr, 32, 0},
        {"no such attribute", serverDn, "a-name-of-an-attribute-that-is-long", nullptr, 16, 0},
        {"bad DN", "cn=a long name before it, =x", nullptr, nullptr, 34, 0},
    };
    const Handle handle = safe();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        forEveryRequest([&](Shortage shortage, std::size_t nth) {
            int line = -1;
            FailingAllocator memory(shortage, nth);
            const int code = cfg_locate_s(handle.get(), row.dn, row.attribute, row.value, &line);
            memory.stop();
            expectRecorded(handle.get(), code);
            if (code == row.code) {
                EXPECT_EQ(line, row.line);
            } else {
                EXPECT_TRUE(memory.failed()) << shown(cfg_dump_exception(handle.get()));
                EXPECT_EQ(line, 0);
                expectShortageTold(handle.get(), code, shortage);
            }
            EXPECT_EQ(cfg_locate_s(handle.get(), row.dn, row.attribute, row.value, &line), row.code);
            EXPECT_EQ(line, row.line);
            cfg_reset(handle.get());
            return memory.failed();
        });
    }
}

TEST_F(ChangeSetMemory, ALocateInDirectModeIsRefusedOrTheShortageTold)
{
    expectRefusedWhateverMemory(
        refused, [&] { return on(oldText(), CFG_WRITE_DIRECT); },
        [](void* handle) {
            int line = -1;
            const int code = cfg_locate_s(handle, serverDn, nullptr, nullptr, &line);
            EXPECT_EQ(line, 0);
            return code;
        },
        [](void* handle) { EXPECT_EQ(portOf(handle), "389"); });
}

TEST_F(ChangeSetMemory, AFlushInSafeModeReadsWhatChangedAndWritesNothing)
{
    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        const Handle handle = safe();
        editFile(withReplaced("389", "636"));
        FailingAllocator memory(shortage, nth);
        const int code = cfg_flush_s(handle.get());
        memory.stop();
        if (code != 0) {
            EXPECT_TRUE(memory.failed());
            expectShortageTold(handle.get(), code, shortage);
            EXPECT_EQ(cfg_flush_s(handle.get()), 0);
        }
        expectDisk(withReplaced("389", "636"), "");
        EXPECT_FALSE(exists(lockName));
        EXPECT_EQ(portOf(handle.get()), "636");
        expectUsable(handle.get());
        return memory.failed();
    });
    const Handle handle = safe();
    expectNoRequest("a flush of what did not change", [&] { EXPECT_EQ(cfg_flush_s(handle.get()), 0); });
}
