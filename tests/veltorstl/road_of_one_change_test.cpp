// The road of one change, seen from outside: which system calls and platform services an update uses, in which
// order, and what stands on disk when one of them fails.
//
// The program has platform services of its own, and the linker leads the system calls of the library here (--wrap).
#include "support/framing_codec.h"
#include "support/update_api_test.h"

#include "veltor/platform.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace veltor::test;

namespace {

constexpr uid_t ldapUser = 12345;
constexpr gid_t ldapGroup = 54321;

/// What was called while it was switched on, with the folder of the files left out.
struct Recorder
{
    bool on = false;
    std::vector<std::string> steps;
    std::string folder;
    std::map<int, std::string> open;
    std::string failing; ///< the step that fails, once, with EACCES

    /// Notes a step; a repetition of the last one is not told. False when it has to fail.
    bool note(const std::string& step)
    {
        if (!on) {
            return true;
        }
        if (steps.empty() || steps.back() != step) {
            steps.push_back(step);
        }
        if (step == failing) {
            failing.clear();
            errno = EACCES;
            return false;
        }
        return true;
    }

    std::string shortName(const char* path) const
    {
        const std::string name = path;
        return name.compare(0, folder.size(), folder) == 0 ? name.substr(folder.size() + 1) : name;
    }

    std::string nameOf(int number) const
    {
        const auto found = open.find(number);
        return found == open.end() ? "?" : found->second;
    }
};

Recorder recorder;

} // namespace

// ---- System calls ----

extern "C" {

int __real_stat(const char* path, struct stat* status);
int __real_fstat(int number, struct stat* status);
int __real_open(const char* path, int flags, ...);
int __real_close(int number);
ssize_t __real_read(int number, void* data, size_t size);
ssize_t __real_write(int number, const void* data, size_t size);
int __real_rename(const char* from, const char* to);
int __real_remove(const char* path);
int __real_chown(const char* path, uid_t user, gid_t group);
int __real_chmod(const char* path, mode_t mode);

int __wrap_stat(const char* path, struct stat* status)
{
    return recorder.note("stat " + recorder.shortName(path)) ? __real_stat(path, status) : -1;
}

int __wrap_fstat(int number, struct stat* status)
{
    // Asking about a file that is open already is no step of its own.
    return __real_fstat(number, status);
}

int __wrap_open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = static_cast<mode_t>((flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0);
    va_end(arguments);
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    const std::string name = recorder.shortName(path);
    if (!recorder.note(std::string(writes ? "open to write " : "open to read ") + name)) {
        return -1;
    }
    const int number = __real_open(path, flags, mode);
    if (recorder.on && number >= 0) {
        EXPECT_EQ((flags & O_TRUNC) != 0, writes) << "what is written anew is truncated";
        recorder.open[number] = name;
    }
    return number;
}

int __wrap_close(int number)
{
    recorder.note("close " + recorder.nameOf(number));
    return __real_close(number);
}

ssize_t __wrap_read(int number, void* data, size_t size)
{
    recorder.note("read " + recorder.nameOf(number));
    return __real_read(number, data, size);
}

ssize_t __wrap_write(int number, const void* data, size_t size)
{
    return recorder.note("write " + recorder.nameOf(number)) ? __real_write(number, data, size) : -1;
}

int __wrap_rename(const char* from, const char* to)
{
    return recorder.note("rename " + recorder.shortName(from) + " to " + recorder.shortName(to))
               ? __real_rename(from, to)
               : -1;
}

int __wrap_remove(const char* path)
{
    return recorder.note("remove " + recorder.shortName(path)) ? __real_remove(path) : -1;
}

int __wrap_chown(const char* path, uid_t user, gid_t group)
{
    const bool goes = recorder.note("chown " + recorder.shortName(path) + " to " + std::to_string(user) + ":" +
                                    std::to_string(group));
    // Whoever runs the test may not be allowed to, so the call is not made.
    return goes ? 0 : -1;
}

int __wrap_chmod(const char* path, mode_t mode)
{
    char octal[16];
    std::snprintf(octal, sizeof octal, "%04o", static_cast<unsigned>(mode));
    return recorder.note("chmod " + recorder.shortName(path) + " to " + octal) ? __real_chmod(path, mode) : -1;
}

// ---- Platform services ----

int _slapd_utils_encode_buffer(const char* text, char** encoded, int, int)
{
    recorder.note(std::string("encode ") + text);
    *encoded = framed(text);
    return 0;
}

void _slapd_utils_encode_buffer_free(char* encoded)
{
    std::free(encoded);
}

int _slapd_utils_decode_buffer(char* encoded, char** text)
{
    recorder.note(std::string("decode ") + encoded);
    *text = unframed(encoded);
    return 0;
}

void _slapd_utils_decode_buffer_free(char* text)
{
    std::free(text);
}

uid_t ldap_get_uid(const char* user)
{
    recorder.note(std::string("user id of ") + user);
    return ldapUser;
}

gid_t ldap_get_gid(const char* user)
{
    recorder.note(std::string("group id of ") + user);
    return ldapGroup;
}

} // extern "C"

namespace {

using Steps = std::vector<std::string>;

class RoadOfOneChange : public UpdateApiTest
{
protected:
    ~RoadOfOneChange() override { recorder = Recorder(); }

    /// Records what a call does; gives its code.
    template <class Call>
    int recorded(Call&& call)
    {
        recorder = Recorder();
        recorder.folder = pathOf("");
        recorder.failing = failing_;
        recorder.on = true;
        const int code = call();
        recorder.on = false;
        return code;
    }

    static const Steps& steps() { return recorder.steps; }

    /// A handle bound to the sample, with or without a backup name.
    Handle boundWith(bool keepsBackup) const { return keepsBackup ? boundWithBackup(sampleText) : bound(sampleText); }

    std::string failing_;
};

const Steps readAgain = {"open to read zorslapd.conf", "read zorslapd.conf", "close zorslapd.conf"};
const Steps keepOld = {"remove backup", "rename zorslapd.conf to backup"};
const Steps writeNew = {"open to write zorslapd.conf", "write zorslapd.conf", "close zorslapd.conf",
                        "stat zorslapd.conf"};
const Steps handOver = {"user id of ldap", "group id of ldap", "chown zorslapd.conf to 12345:54321",
                        "chmod zorslapd.conf to 0640"};

Steps joined(std::initializer_list<Steps> parts)
{
    Steps all;
    for (const Steps& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

/// One of the three updates, with what it does to values on its way.
struct Update
{
    const char* name;
    int (*call)(void* handle);
    Steps change;
};

const Update updates[] = {
    {"modify",
     [](void* handle) {
         Mods mods({{modReplace, "zor-slapdAdminPW", {{"modified"}}}});
         return cfg_modify_s(handle, "cn=a,o=x", mods.list());
     },
     {"encode modified"}},
    {"add",
     [](void* handle) {
         Mods mods({{modAdd, "zor-slapdAdminPW", {{"added"}}}});
         return cfg_add_s(handle, "cn=b,o=x", mods.list());
     },
     {"encode added"}},
    {"delete", [](void* handle) { return cfg_delete_s(handle, "cn=a,o=x"); }, {}},
};

} // namespace

TEST_F(RoadOfOneChange, AnUpdateLooksAtTheFileChangesTheTreeAndWrites)
{
    for (const Update& update : updates) {
        for (const bool keepsBackup : {false, true}) {
            SCOPED_TRACE(std::string(update.name) + (keepsBackup ? ", with a backup" : ""));
            const Handle handle = boundWith(keepsBackup);
            EXPECT_EQ(recorded([&] { return update.call(handle.get()); }), 0);
            const Steps look = {"stat zorslapd.conf"};
            EXPECT_EQ(steps(), keepsBackup ? joined({look, update.change, keepOld, writeNew, handOver})
                                           : joined({look, update.change, writeNew}));
            // The text on disk is the one that the change made, whole.
            EXPECT_EQ(read(), inMemory(handle.get()));
        }
    }
}

TEST_F(RoadOfOneChange, AFileThatChangedIsReadBeforeTheChangeIsApplied)
{
    for (const Update& update : updates) {
        for (const bool keepsBackup : {false, true}) {
            SCOPED_TRACE(std::string(update.name) + (keepsBackup ? ", with a backup" : ""));
            const Handle handle = boundWith(keepsBackup);
            editFile(std::string(sampleText) + "# edited\ndn: o=y\n\n");
            EXPECT_EQ(recorded([&] { return update.call(handle.get()); }), 0);
            const Steps look = {"stat zorslapd.conf"};
            EXPECT_EQ(steps(), keepsBackup ? joined({look, readAgain, update.change, keepOld, writeNew, handOver})
                                           : joined({look, readAgain, update.change, writeNew}));
            EXPECT_NE(read().find("# edited\ndn: o=y\n"), std::string::npos);
        }
    }
}

TEST_F(RoadOfOneChange, TheTimeOfTheWriteIsRemembered)
{
    const Handle handle = boundWith(true);
    for (const Update& update : updates) {
        SCOPED_TRACE(update.name);
        EXPECT_EQ(recorded([&] { return update.call(handle.get()); }), 0);
        EXPECT_EQ(std::count(steps().begin(), steps().end(), "open to read zorslapd.conf"), 0);
    }
}

TEST_F(RoadOfOneChange, ACallThatIsRefusedByItsArgumentsTakesNoStep)
{
    const Handle handle = boundWith(true);
    const Handle fresh = unbound(pathOf(fileName));
    Mods mods;
    mods.addWithoutType(modAdd);
    struct Row
    {
        const char* name;
        int (*call)(void* handle, LDAPMod** list);
        void* handle;
    };
    const Row rows[] = {
        {"modify, null dn", [](void* it, LDAPMod** list) { return cfg_modify_s(it, nullptr, list); }, handle.get()},
        {"add, null dn", [](void* it, LDAPMod** list) { return cfg_add_s(it, nullptr, list); }, handle.get()},
        {"delete, null dn", [](void* it, LDAPMod**) { return cfg_delete_s(it, nullptr); }, handle.get()},
        {"modify, null type", [](void* it, LDAPMod** list) { return cfg_modify_s(it, "o=x", list); }, handle.get()},
        {"add, null type", [](void* it, LDAPMod** list) { return cfg_add_s(it, "o=z", list); }, handle.get()},
        {"modify, unbound", [](void* it, LDAPMod**) { return cfg_modify_s(it, "o=x", nullptr); }, fresh.get()},
        {"add, unbound", [](void* it, LDAPMod**) { return cfg_add_s(it, "o=z", nullptr); }, fresh.get()},
        {"delete, unbound", [](void* it, LDAPMod**) { return cfg_delete_s(it, "cn=a,o=x"); }, fresh.get()},
        {"flush, unbound", [](void* it, LDAPMod**) { return cfg_flush_s(it); }, fresh.get()},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(recorded([&] { return row.call(row.handle, mods.list()); }), 89);
        EXPECT_EQ(steps(), Steps());
    }
}

TEST_F(RoadOfOneChange, AChangeThatIsRefusedIsNotWritten)
{
    const Handle handle = boundWith(true);
    Mods half({{modReplace, "zor-slapdAdminPW", {{"half"}}}, {modDelete, "none", {}}});
    struct Row
    {
        const char* name;
        int code;
        int (*call)(void* handle, LDAPMod** list);
        Steps steps;
    };
    const Row rows[] = {
        {"half a modify",
         16,
         [](void* it, LDAPMod** list) { return cfg_modify_s(it, "cn=a,o=x", list); },
         {"stat zorslapd.conf", "encode half"}},
        {"unknown entry",
         32,
         [](void* it, LDAPMod**) { return cfg_delete_s(it, "cn=none,o=x"); },
         {"stat zorslapd.conf"}},
        {"subtree", 66, [](void* it, LDAPMod**) { return cfg_delete_s(it, "o=x"); }, {"stat zorslapd.conf"}},
        // The file is looked at before the DN is.
        {"bad DN", 34, [](void* it, LDAPMod**) { return cfg_add_s(it, "=", nullptr); }, {"stat zorslapd.conf"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(recorded([&] { return row.call(handle.get(), half.list()); }), row.code);
        EXPECT_EQ(steps(), row.steps);
        EXPECT_EQ(read(), sampleText);
    }
}

TEST_F(RoadOfOneChange, AStepThatFailsEndsTheRoadAndNothingIsRolledBack)
{
    const std::string path = pathOf(fileName);
    const std::string backup = pathOf("backup");
    struct Row
    {
        std::string failing;
        int code;
        int libraryCode;
        std::string message;
        const char* onDisk;   ///< "old", "new" or "none"
        const char* inBackup; ///< likewise
        Steps steps;
    };
    const Steps look = {"stat zorslapd.conf"};
    const Steps change = {"encode modified"};
    const Row rows[] = {
        {"rename zorslapd.conf to backup", 50, 1004, "Unable to rename: \"" + path + "\" to \"" + backup + "\" ", "old",
         "none", joined({look, change, keepOld})},
        {"open to write zorslapd.conf", 50, 1004, "Unable to open: \"" + path + "\"", "none", "old",
         joined({look, change, keepOld, {"open to write zorslapd.conf"}})},
        {"chown zorslapd.conf to 12345:54321", 50, 1004, "Unable to chown: \"" + path + "\" ", "new", "old",
         joined({look, change, keepOld, writeNew, Steps(handOver.begin(), handOver.begin() + 3)})},
        {"chmod zorslapd.conf to 0640", 50, 1004, "Unable to chmod: \"" + path + "\" ", "new", "old",
         joined({look, change, keepOld, writeNew, handOver})},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.failing);
        std::filesystem::remove(backup);
        const Handle handle = boundWith(true);
        failing_ = row.failing;
        EXPECT_EQ(recorded([&] { return updates[0].call(handle.get()); }), row.code);
        EXPECT_EQ(steps(), row.steps);
        expectKept(handle.get(), row.code, row.libraryCode, row.message);
        EXPECT_EQ(shown(cfg_get_file_name(handle.get())), path);
        const std::map<std::string, std::string> texts = {{"old", sampleText}, {"new", inMemory(handle.get())}};
        const auto expectContent = [&](const char* name, const std::string& expected) {
            if (expected == "none") {
                EXPECT_FALSE(exists(name));
            } else if (exists(name)) {
                EXPECT_EQ(read(name), texts.at(expected));
            } else {
                ADD_FAILURE() << name << " is gone";
            }
        };
        expectContent("zorslapd.conf", row.onDisk);
        expectContent("backup", row.inBackup);
        EXPECT_NE(texts.at("old"), texts.at("new")) << "the change is in memory";
    }
}

TEST_F(RoadOfOneChange, AFileWithoutStatusAfterTheWriteIsAFailure)
{
    // The first stat of the call is the look at the file, so the flush is asked alone.
    const Handle handle = boundWith(true);
    LDIF_File* const store = static_cast<cfg_handle*>(handle.get())->store;
    failing_ = "stat zorslapd.conf";
    int sysErrno = 0;
    const int code = recorded([&] {
        try {
            store->flush();
            return 0;
        } catch (const LDIF_Exception& failure) {
            EXPECT_EQ(failure.extErr, 1003);
            EXPECT_EQ(failure.msg, "_stat()");
            EXPECT_EQ(failure.configFile, pathOf(fileName));
            sysErrno = failure.sysErrno;
            return failure.ldapErr;
        }
    });
    EXPECT_EQ(code, 91);
    EXPECT_EQ(sysErrno, EACCES);
    EXPECT_EQ(steps(), joined({keepOld, writeNew}));
    EXPECT_EQ(read(), sampleText);
}

TEST_F(RoadOfOneChange, AnOldBackupThatCantBeRemovedIsNoFailure)
{
    const Handle handle = boundWith(true);
    failing_ = "remove backup";
    EXPECT_EQ(recorded([&] { return updates[0].call(handle.get()); }), 0);
    EXPECT_EQ(read("backup"), sampleText);
}

TEST_F(RoadOfOneChange, AWriteThatFailsIsNotReported)
{
    const Handle handle = boundWith(true);
    failing_ = "write zorslapd.conf";
    EXPECT_EQ(recorded([&] { return updates[0].call(handle.get()); }), 0);
    EXPECT_EQ(read(), "");
    EXPECT_EQ(read("backup"), sampleText);
    EXPECT_EQ(steps(), joined({{"stat zorslapd.conf", "encode modified"}, keepOld, writeNew, handOver}));
}
