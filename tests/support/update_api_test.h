// What the tests of the update calls share.
#ifndef VELTOR_TESTS_UPDATE_API_TEST_H
#define VELTOR_TESTS_UPDATE_API_TEST_H

#include "support/api_test.h"
#include "support/mods.h"

#include "LDIF_Exception.h"
#include "handle.h"

#include <string>

#include <sys/stat.h>

namespace veltor::test {

inline constexpr int modAdd = 0;
inline constexpr int modDelete = 1;
inline constexpr int modReplace = 2;

class UpdateApiTest : public ApiTest
{
protected:
    static constexpr char fileName[] = "zorslapd.conf";
    static constexpr char rootText[] = "charset: UTF-8\nversion: 1\n\n";
    // As a write gives it, so that a test sees its own change alone.
    static constexpr char sampleText[] = "charset: UTF-8\nversion: 1\n\n"
                                         "dn: o=x\nobjectclass: top\n\n"
                                         "# the first one\ndn: cn=a, o=x\nobjectclass: top\n# where it listens\n"
                                         "zor-slapdPort: 389\n\n";

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

    /// Another program replaces the text.
    void editFile(std::string_view text)
    {
        write(text);
        shiftModificationTime(pathOf(fileName), editSeconds_ += 10);
    }

    static void expectKept(void* handle, int code, int libraryCode, const std::string& message,
                           const std::string& entry = "", const std::string& attribute = "")
    {
        EXPECT_EQ(cfg_get_errno(handle), code);
        EXPECT_EQ(cfg_get_exterror(handle), libraryCode);
        const LDIF_Exception* const kept = static_cast<cfg_handle*>(handle)->lastException;
        ASSERT_NE(kept, nullptr);
        EXPECT_EQ(kept->ldapErr, code);
        EXPECT_EQ(kept->msg, message);
        EXPECT_EQ(kept->entryDn, entry);
        EXPECT_EQ(kept->attribute, attribute);
    }

    static void expectNothingKept(void* handle, int code)
    {
        EXPECT_EQ(cfg_get_errno(handle), code);
        EXPECT_EQ(cfg_get_exterror(handle), code);
        EXPECT_EQ(cfg_dump_exception(handle), nullptr);
    }

    /// The tree in memory as a write would put it into the file.
    static std::string inMemory(void* handle)
    {
        std::string text;
        static_cast<cfg_handle*>(handle)->store->root.appendTreeTo(text);
        return text;
    }

private:
    struct stat statusOf(std::string_view name) const
    {
        struct stat status = {};
        if (stat(pathOf(name).c_str(), &status) != 0) {
            throw std::system_error(errno, std::generic_category(), pathOf(name));
        }
        return status;
    }

    struct stat status_ = {};
    std::string content_;
    long editSeconds_ = 0;
};

} // namespace veltor::test

#endif
