// The check through the C API: which file it takes, what it answers, and what it leaves alone.
//
// Linked with support/failing_allocator.cpp, its linker options and the source of the default password codec, whose
// requests then fail like the library's own.
#include "support/api_test.h"
#include "support/failing_allocator.h"
#include "support/findings.h"

#include "LDIF_Exception.h"
#include "handle.h"

#include "veltor/cfg_admin.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

using namespace veltor::test;

namespace {

constexpr char sound[] = "version: 1\n\ndn: cn=a\nobjectclass: top\n";
constexpr char failing[] = "dn: cn=a\nobjectclass: top\n\nzor-slapdPort: 389\n";
constexpr char odd[] = "dn: cn=a\nzor-slapdPort: x\nzor-slapdAdminPW: x\n";

class Check : public ApiTest
{
protected:
    static Findings check(void* handle, const char* file, int code = 0)
    {
        Findings findings;
        EXPECT_EQ(cfg_check_s(handle, file, Findings::take, &findings), code) << shown(cfg_dump_exception(handle));
        EXPECT_EQ(cfg_get_errno(handle), code);
        return findings;
    }

    struct stat statusOf(const std::string& path) const
    {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status;
    }
};

TEST_F(Check, WorksOnAnUnboundHandle)
{
    const Handle handle(cfg_init());
    EXPECT_EQ(check(handle.get(), write(sound).c_str()).summary(), "");
    EXPECT_EQ(check(handle.get(), write(failing).c_str()).summary(), "4 attribute-outside-entry");
    EXPECT_EQ(cfg_dump_exception(handle.get()), nullptr);
    char* name = nullptr;
    ASSERT_EQ(cfg_get_option(handle.get(), CFG_OPT_CONFIG_FILE, &name), 0);
    EXPECT_EQ(name, nullptr) << "the handle's own file is still open to be set";
}

TEST_F(Check, TakesTheFileOfTheHandle)
{
    const Handle handle = unbound(write(failing));
    EXPECT_EQ(check(handle.get(), nullptr).summary(), "4 attribute-outside-entry");
    EXPECT_EQ(check(handle.get(), write(sound, "other").c_str()).summary(), "");
    char* name = nullptr;
    ASSERT_EQ(cfg_get_option(handle.get(), CFG_OPT_CONFIG_FILE, &name), 0);
    EXPECT_EQ(shown(Text(name).get()), pathOf("zorslapd.conf"));
}

TEST_F(Check, TakesTheDefaultFile)
{
    const Handle handle(cfg_init());
    Findings findings;
    const int code = cfg_check_s(handle.get(), nullptr, Findings::take, &findings);
    const Handle other(cfg_init());
    const int expected = cfg_bind_s(other.get(), nullptr, nullptr, simple);
    if (expected == 91) {
        EXPECT_EQ(code, 91);
        EXPECT_STREQ(cfg_get_file_name(handle.get()), getDefaultConfigFilename());
    } else {
        EXPECT_EQ(code, 0);
    }
    char* name = nullptr;
    ASSERT_EQ(cfg_get_option(handle.get(), CFG_OPT_CONFIG_FILE, &name), 0);
    EXPECT_EQ(name, nullptr);
}

TEST_F(Check, LooksAtTheFileRatherThanAtTheStore)
{
    const Handle handle = bound(sound);
    write(failing);
    EXPECT_EQ(check(handle.get(), nullptr).summary(), "4 attribute-outside-entry");
    Found found = search(handle.get(), "cn=a", baseScope, "objectclass=*");
    EXPECT_EQ(found.code, 0) << "the store is as it was";
}

TEST_F(Check, NeverWrites)
{
    const std::string path = write(odd);
    shiftModificationTime(path, -100);
    const struct stat before = statusOf(path);
    const Handle handle = unbound(path);
    EXPECT_EQ(check(handle.get(), nullptr).of("rejected-line").size(), 1U);
    const struct stat after = statusOf(path);
    EXPECT_EQ(read(), odd);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
    EXPECT_FALSE(exists("zorslapd.conf.lock"));
}

TEST_F(Check, ResetsTheHandle)
{
    const Handle handle = withKeptFailure();
    EXPECT_EQ(check(handle.get(), write(sound).c_str()).summary(), "");
    EXPECT_EQ(cfg_dump_exception(handle.get()), nullptr);
}

TEST_F(Check, RefusesNullPointers)
{
    Findings findings;
    EXPECT_EQ(cfg_check_s(nullptr, write(sound).c_str(), Findings::take, &findings), 89);
    const Handle handle = withKeptFailure();
    EXPECT_EQ(cfg_check_s(handle.get(), write(sound).c_str(), nullptr, nullptr), 89);
    EXPECT_EQ(cfg_get_errno(handle.get()), 89);
    EXPECT_EQ(cfg_dump_exception(handle.get()), nullptr);
    EXPECT_TRUE(findings.all.empty());
}

TEST_F(Check, TheCallbackMayEndIt)
{
    const Handle handle = unbound(write("foo\n\nbar\n\nbaz\n"));
    chmod(pathOf("zorslapd.conf").c_str(), 0666);
    chmod(pathOf("").c_str(), 0777);
    for (std::size_t most = 1; most <= 5; ++most) {
        Findings findings(most);
        EXPECT_EQ(cfg_check_s(handle.get(), nullptr, Findings::take, &findings), 0);
        EXPECT_EQ(findings.all.size(), most);
        EXPECT_EQ(cfg_dump_exception(handle.get()), nullptr);
    }
}

TEST_F(Check, GivesTheCodesOfABind)
{
    mkdir(pathOf("folder").c_str(), 0700);
    ASSERT_EQ(mkfifo(pathOf("fifo").c_str(), 0600), 0);
    ASSERT_EQ(symlink("nowhere", pathOf("dangling").c_str()), 0);
    ASSERT_EQ(symlink("circle", pathOf("circle").c_str()), 0);
    const struct
    {
        std::string path;
        int code;
        int libraryCode;
        const char* message;
    } files[] = {
        {pathOf("missing"), 91, 1003, "_stat()"},
        {pathOf("dangling"), 91, 1003, "_stat()"},
        {pathOf("circle"), 91, 1003, "_stat()"},
        {pathOf("missing/file"), 91, 1003, "_stat()"},
        {pathOf("fifo"), 91, 1004, "ifstream()"},
        {"/dev/zero", 91, 1004, "ifstream()"},
        {pathOf("folder"), 80, 1000, "System error reading file"},
        {"/dev/null", 0, 0, ""},
    };
    for (const auto& file : files) {
        SCOPED_TRACE(file.path);
        const Handle binding = unbound(file.path);
        EXPECT_EQ(cfg_bind_s(binding.get(), nullptr, nullptr, simple), file.code);
        for (const char* const given : {file.path.c_str(), static_cast<const char*>(nullptr)}) {
            const Handle handle = given != nullptr ? Handle(cfg_init()) : unbound(file.path);
            EXPECT_TRUE(check(handle.get(), given, file.code).of("load-failure").empty());
            const LDIF_Exception* const kept = static_cast<cfg_handle*>(handle.get())->lastException;
            ASSERT_EQ(kept != nullptr, file.code != 0);
            if (kept != nullptr) {
                EXPECT_EQ(kept->extErr, file.libraryCode);
                EXPECT_EQ(kept->msg, file.message);
                EXPECT_EQ(kept->configFile, file.path);
                const LDIF_Exception* const bindings = static_cast<cfg_handle*>(binding.get())->lastException;
                EXPECT_EQ(kept->sysErrno, bindings->sysErrno);
                EXPECT_EQ(kept->msg, bindings->msg);
            }
        }
    }
    const Handle handle(cfg_init());
    check(handle.get(), "", 91);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 1001);
    EXPECT_STREQ(cfg_get_file_name(handle.get()), "<NULL>");
}

TEST_F(Check, TellsWhoElseMayWrite)
{
    const Handle handle = unbound(write(sound));
    ASSERT_EQ(symlink("zorslapd.conf", pathOf("link").c_str()), 0);
    const struct
    {
        mode_t file;
        mode_t folder;
        const char* expected;
    } modes[] = {
        {0600, 0700, ""},
        {0640, 0755, ""},
        {0444, 0555, ""},
        {0660, 0700, "0 group-writable-file"},
        {0602, 0700, "0 writable-file"},
        {0666, 0777, "0 writable-file, 0 writable-folder"},
        {0600, 01777, "0 writable-folder"},
        {0600, 0770, "0 group-writable-folder"},
    };
    for (const auto& mode : modes) {
        chmod(pathOf("zorslapd.conf").c_str(), mode.file);
        chmod(pathOf("").c_str(), mode.folder);
        EXPECT_EQ(check(handle.get(), nullptr).summary(), mode.expected);
        EXPECT_EQ(check(handle.get(), pathOf("link").c_str()).summary(), mode.expected) << "links are followed";
    }
    chmod(pathOf("").c_str(), 0700);
}

TEST_F(Check, AFindingIsTheSameInC)
{
    const Handle handle = unbound(write(odd));
    struct Seen
    {
        int secrets = 0;
        int others = 0;
    } seen;
    const auto look = [](void* context, const cfg_finding* finding) {
        auto& counts = *static_cast<Seen*>(context);
        EXPECT_NE(finding->dn, nullptr);
        EXPECT_NE(finding->attribute, nullptr);
        EXPECT_NE(finding->message, nullptr);
        ++(finding->value == nullptr ? counts.secrets : counts.others);
        return 0;
    };
    EXPECT_EQ(cfg_check_s(handle.get(), nullptr, look, &seen), 0);
    EXPECT_EQ(seen.secrets, 1) << "the password";
    EXPECT_EQ(seen.others, 2) << "the port, and the objectclass that is missing";
}

TEST_F(Check, TheExampleIsSound)
{
    const Handle handle(cfg_init());
    const Findings findings = check(handle.get(), VELTOR_EXAMPLES "/zorslapd.conf");
    for (const Finding& finding : findings.all) {
        // The mode of a working copy is not the example's.
        EXPECT_EQ(finding.line, 0) << findings.dump();
    }
}

TEST_F(Check, ManyThreadsMayCheckWithAHandleEach)
{
    const std::string path = write(odd);
    // A new handle sets the locale, which no other thread may be using then.
    std::vector<Handle> handles;
    for (int thread = 0; thread < 4; ++thread) {
        handles.push_back(unbound(path));
    }
    std::vector<std::thread> threads;
    std::atomic<int> right{0};
    for (const Handle& handle : handles) {
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round) {
                Findings findings;
                right += cfg_check_s(handle.get(), nullptr, Findings::take, &findings) == 0 && findings.all.size() == 3;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, 200);
}

// ---- Memory that runs short ----

int countOnly(void* context, const cfg_finding*)
{
    ++*static_cast<int*>(context);
    return 0;
}

TEST_F(Check, TellsOfShortMemoryAndLosesNone)
{
    const std::string path = write(
        "version: 1\ncharset:: (x\nversion: 2\n\ndn: cn=a, o=x\nzor-slapdPort: 1\nzor-slapdPort: 2\nzor-slapdPort: x\n"
        "zor-slapdAdminPW: a password\nzor-slapdAdminPW: >x<\nfoo: a value that has its own memory\nzor-slapdPrt: 1\n"
        "zor-slapdSuffix: cn=\\28\ncn:\n  (b\n\n# zor-slapdAdminPW: x\ndn: cn=a, o=x\nzor-slapdPort: 3\r\n"
        "zor-slapdSuffix: cn=\\28\nfoo\n\nbar: x\nbaz\n\ndn:\ncn: \xFF\n\ndn: cn\ndnx\n\ndn: cn=\nobjectclass: top");
    const Handle handle(cfg_init());
    int whole = 0;
    // What is made once in a process must not count as lost.
    ASSERT_EQ(cfg_check_s(handle.get(), path.c_str(), countOnly, &whole), 0);
    ASSERT_GT(whole, 20);
    cfg_reset(handle.get());
    for (const Shortage shortage : {Shortage::once, Shortage::lasting}) {
        std::size_t nth = 0;
        for (bool failed = true; failed && nth < 100000;) {
            ++nth;
            SCOPED_TRACE((shortage == Shortage::once ? "only request " : "from request ") + std::to_string(nth));
            const BlockWatch watch;
            int found = 0;
            FailingAllocator memory(shortage, nth);
            const int code = cfg_check_s(handle.get(), path.c_str(), countOnly, &found);
            memory.stop();
            failed = memory.failed();
            EXPECT_EQ(code, failed ? 90 : 0);
            EXPECT_EQ(cfg_get_errno(handle.get()), code);
            EXPECT_LE(found, whole);
            if (failed && shortage == Shortage::once) {
                EXPECT_EQ(cfg_get_exterror(handle.get()), 90);
            }
            cfg_reset(handle.get());
            EXPECT_EQ(watch.live(), 0U) << "blocks that nobody gave back";
            if (HasFailure()) {
                return;
            }
        }
        EXPECT_GT(nth, 100U);
    }
}

} // namespace
