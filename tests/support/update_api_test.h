// What the tests of the update calls share.
#ifndef VELTOR_TESTS_UPDATE_API_TEST_H
#define VELTOR_TESTS_UPDATE_API_TEST_H

#include "support/api_test.h"
#include "support/failing_allocator.h"
#include "support/mods.h"

#include "LDIF_Exception.h"
#include "handle.h"

#include "veltor/cfg_admin.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace veltor::test {

inline constexpr int modAdd = 0;
inline constexpr int modDelete = 1;
inline constexpr int modReplace = 2;

/// A change that a call refuses, and what the handle keeps of it.
struct RefusedChange
{
    const char* name;
    const char* dn;
    std::vector<Change> changes;
    int code;
    int libraryCode;
    const char* message;
    const char* entry;
    const char* attribute;
};

class UpdateApiTest : public ApiTest
{
protected:
    static constexpr char fileName[] = "zorslapd.conf";
    static constexpr char longDn[] = "cn=a name that is too long to need no memory of its own,o=x";
    static constexpr char rootText[] = "charset: UTF-8\nversion: 1\n\n";
    // As a write gives it, so that a test sees its own change alone.
    static constexpr char sampleText[] = "charset: UTF-8\nversion: 1\n\n"
                                         "dn: o=x\nobjectclass: top\n\n"
                                         "# the first one\ndn: cn=a, o=x\nobjectclass: top\n# where it listens\n"
                                         "zor-slapdPort: 389\n\n";

    /// A handle bound to a file of the given text, which is kept under the name "backup" when it is replaced.
    Handle boundWithBackup(std::string_view text) const
    {
        Handle handle = unbound(write(text));
        cfg_set_option(handle.get(), CFG_OPT_BACKUP_FILE, pathOf("backup").c_str());
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0) << shown(cfg_dump_exception(handle.get()));
        return handle;
    }

    static std::string rendered(void* handle)
    {
        char* text = nullptr;
        std::size_t size = 0;
        EXPECT_EQ(cfg_render_s(handle, &text, &size), 0) << shown(cfg_dump_exception(handle));
        const Text owned(text);
        return text == nullptr ? "" : std::string(text, size);
    }

    /// Lets every write fail that keeps a backup: a folder can't be replaced by a file.
    void obstructBackup() const { std::filesystem::create_directories(pathOf("backup/full")); }
    void clearBackup() const { std::filesystem::remove_all(pathOf("backup")); }

    /// What the handle keeps of a write that fails over the obstructed backup.
    void expectNotPutInPlace(void* handle) const
    {
        expectKept(handle, 50, 1004, "Unable to rename: \"" + pathOf(fileName) + "\" to \"" + pathOf("backup") + "\" ");
    }

    /// Takes a file as it is, so that expectUntouched can tell whether it was written.
    void remember(std::string_view name = fileName)
    {
        // Old, so that writing it shows in its time.
        shiftModificationTime(pathOf(name), 0);
        status_ = statusOf(name);
        content_ = read(name);
    }

    void expectUntouched(std::string_view name = fileName) const
    {
        const struct stat now = statusOf(name);
        EXPECT_EQ(now.st_ino, status_.st_ino);
        EXPECT_EQ(now.st_mtim.tv_sec, status_.st_mtim.tv_sec);
        EXPECT_EQ(now.st_mtim.tv_nsec, status_.st_mtim.tv_nsec);
        EXPECT_EQ(read(name), content_);
    }

    int replaceFile(void* handle, std::string_view oldText, std::string_view text,
                    std::string_view name = fileName) const
    {
        return cfg_replace_s(handle, pathOf(name).c_str(), oldText.data(), oldText.size(), text.data(), text.size(), 0);
    }

    /// Another program replaces the text.
    void editFile(std::string_view text)
    {
        write(text);
        shiftModificationTime(pathOf(fileName), editSeconds_ += 10);
    }

    /// The handle keeps a failure of these facts.
    static void expectKept(void* handle, int code, int libraryCode, const std::string& message,
                           const std::string& entry = "", const std::string& attribute = "")
    {
        ApiTest::expectKept(handle, code, libraryCode, message);
        if (const LDIF_Exception* const kept = static_cast<cfg_handle*>(handle)->lastException) {
            EXPECT_EQ(kept->entryDn, entry);
            EXPECT_EQ(kept->attribute, attribute);
        }
    }

    /// Without a bind the call is refused, the handle keeps nothing, not even an earlier failure, and the file stays.
    /// @param text  such that writing it shows
    template <class Call>
    void expectRefusedUnbound(Call&& call, std::string_view text = sampleText) const
    {
        const Handle failed = withKeptFailure();
        EXPECT_EQ(call(failed.get()), 89);
        expectNothingKept(failed.get(), 89);

        const Handle named = unbound(write(text));
        EXPECT_EQ(call(named.get()), 89);
        expectNothingKept(named.get(), 89);
        EXPECT_EQ(read(), text);
    }

    /// Each change, in each form, is refused with its failure kept, and the sample stays as it is on disk and in
    /// memory.
    void expectRefused(int (*call)(void*, const char*, LDAPMod**), const std::vector<RefusedChange>& rows)
    {
        for (const RefusedChange& row : rows) {
            for (const Form form : bothForms) {
                SCOPED_TRACE(std::string(row.name) + ", " + nameOf(form));
                const Handle handle = bound(sampleText);
                remember();
                Mods mods(row.changes, form);
                EXPECT_EQ(call(handle.get(), row.dn, mods.list()), row.code);
                expectKept(handle.get(), row.code, row.libraryCode, row.message, row.entry, row.attribute);
                expectUntouched();
                EXPECT_EQ(inMemory(handle.get()), sampleText);
            }
        }
    }

    /// The call runs out of memory at its first request, where no failure of the library's own tells it.
    template <class Call>
    void expectForeignFailureTold(Call&& call, const std::string& message)
    {
        const Handle handle = bound(sampleText);
        remember();
        int code = 0;
        {
            const FailingAllocator failing(Shortage::once, 1);
            code = call(handle.get());
            EXPECT_TRUE(failing.failed());
        }
        EXPECT_EQ(code, 80);
        expectKept(handle.get(), 80, 1000, message);
        expectUntouched();
    }

    /// The tree in memory as a write would put it into the file.
    static std::string inMemory(void* handle)
    {
        std::string text;
        static_cast<cfg_handle*>(handle)->store->root.appendTreeTo(text);
        return text;
    }

    struct stat statusOf(std::string_view name) const
    {
        struct stat status = {};
        if (stat(pathOf(name).c_str(), &status) != 0) {
            throw std::system_error(errno, std::generic_category(), pathOf(name));
        }
        return status;
    }

private:
    struct stat status_ = {};
    std::string content_;
    long editSeconds_ = 0;
};

} // namespace veltor::test

#endif
