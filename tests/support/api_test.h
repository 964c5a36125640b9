// What the tests of the C API share: handles and results that release themselves, and a fixture with a folder for
// configuration files and a fixed locale.
#ifndef VELTOR_TESTS_API_TEST_H
#define VELTOR_TESTS_API_TEST_H

#include "support/locale_guard.h"
#include "support/temporary_folder.h"

#include "LDIF_Exception.h"
#include "handle.h"
#include "veltor/cfg.h"
#include "veltor/platform.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>

namespace veltor::test {

inline constexpr int simple = 0x80;
inline constexpr int baseScope = 0;
inline constexpr int oneLevel = 1;
inline constexpr int subtree = 2;

/// Sets a variable of the environment while it lives and puts back what it found.
class EnvironmentGuard
{
public:
    EnvironmentGuard(const char* name, const char* value) : name_(name)
    {
        if (const char* const previous = std::getenv(name)) {
            previous_ = previous;
        }
        setenv(name, value, 1);
    }
    EnvironmentGuard(const EnvironmentGuard&) = delete;
    EnvironmentGuard& operator=(const EnvironmentGuard&) = delete;
    ~EnvironmentGuard()
    {
        if (previous_) {
            setenv(name_.c_str(), previous_->c_str(), 1);
        } else {
            unsetenv(name_.c_str());
        }
    }

private:
    std::string name_;
    std::optional<std::string> previous_;
};

/// The value of a boolean option as cfg_set_option takes it.
inline const void* flag(long value)
{
    return reinterpret_cast<const void*>(value); // NOLINT(performance-no-int-to-ptr): that is the interface
}

struct Unbind
{
    void operator()(void* handle) const { cfg_unbind(handle); }
};
using Handle = std::unique_ptr<void, Unbind>;

struct FreeMessage
{
    void operator()(cfg_message* message) const { cfg_msgfree(message); }
};
using Message = std::unique_ptr<cfg_message, FreeMessage>;

struct FreeText
{
    void operator()(char* text) const { cfg_memfree(text); }
};
using Text = std::unique_ptr<char, FreeText>;

struct FreeValues
{
    void operator()(char** values) const { cfg_value_free(values); }
};
using Values = std::unique_ptr<char*, FreeValues>;

struct FreeCursor
{
    void operator()(cfg_cursor* cursor) const { cfg_ber_free(cursor); }
};
using Cursor = std::unique_ptr<cfg_cursor, FreeCursor>;

/// A text that may be null, for comparisons whose failure shows it.
inline std::string shown(const char* text)
{
    return text == nullptr ? "(null)" : text;
}

/// A result as text, read from its nodes: a line "dn: DN" for each entry, a line "name: value" for each value,
/// "name" for an attribute without values.
inline std::string listed(const cfg_message* result)
{
    std::string text;
    for (const cfg_message* entry = result; entry != nullptr; entry = entry->next) {
        text += "dn: " + shown(entry->text) + "\n";
        for (const cfg_message* attribute = entry->children; attribute != nullptr; attribute = attribute->next) {
            if (attribute->children == nullptr) {
                text += shown(attribute->text) + "\n";
            }
            for (const cfg_message* value = attribute->children; value != nullptr; value = value->next) {
                text += shown(attribute->text) + ": " + shown(value->text) + "\n";
            }
        }
    }
    return text;
}

/// The DNs of a result, each followed by a line feed.
inline std::string dnsOf(const cfg_message* result)
{
    std::string text;
    for (const cfg_message* entry = result; entry != nullptr; entry = entry->next) {
        text += shown(entry->text) + "\n";
    }
    return text;
}

/// What a search gave.
struct Found
{
    int code;
    Message result;
};

inline Found search(void* handle, const char* base, int scope, const char* filter, char** attributes = nullptr,
                    int attributesOnly = 0)
{
    // Not null beforehand, so that a call that leaves it alone shows.
    cfg_message untouched{};
    cfg_message* result = &untouched;
    const int code = cfg_search_s(handle, base, scope, filter, attributes, attributesOnly, &result);
    if (result == &untouched) {
        ADD_FAILURE() << "cfg_search_s left *res as it was";
        result = nullptr;
    }
    return {code, Message(result)};
}

/// The text that the default codec stores for a password.
inline std::string encoded(const std::string& clear)
{
    char* text = nullptr;
    if (_slapd_utils_encode_buffer(clear.c_str(), &text, 0, INT_MAX) != 0) {
        ADD_FAILURE() << "the password can't be encoded";
        return {};
    }
    const std::string copy = text;
    _slapd_utils_encode_buffer_free(text);
    return copy;
}

/// Gives a file another modification time, so that it counts as changed whatever the clock says.
inline void shiftModificationTime(const std::string& path, long seconds)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    const struct timespec times[2] = {status.st_atim, {status.st_mtim.tv_sec + seconds, 0}};
    if (utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

/// A folder for configuration files, and the locale C.UTF-8 for the process and for what cfg_init takes from the
/// environment.
class ApiTest : public ::testing::Test
{
protected:
    std::string pathOf(std::string_view name) const { return folder_.path(name); }
    std::string write(std::string_view text, std::string_view name = "zorslapd.conf") const
    {
        return folder_.write(name, text);
    }
    std::string read(std::string_view name = "zorslapd.conf") const { return folder_.read(name); }
    bool exists(std::string_view name) const { return folder_.exists(name); }

    /// A handle whose next bind reads the given file.
    static Handle unbound(const std::string& path)
    {
        Handle handle(cfg_init());
        EXPECT_EQ(cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, path.c_str()), 0);
        return handle;
    }

    /// A handle that is bound, without credentials, to a file of the given text.
    Handle bound(std::string_view text) const
    {
        Handle handle = unbound(write(text));
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0) << shown(cfg_dump_exception(handle.get()));
        return handle;
    }

    /// A handle that keeps a failure: 86/86, from a refused bind.
    static Handle withKeptFailure()
    {
        Handle handle(cfg_init());
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, 0), 86);
        EXPECT_NE(cfg_dump_exception(handle.get()), nullptr);
        return handle;
    }

    /// The handle keeps a failure of these codes and this message, wherever it happened.
    static void expectKept(void* handle, int code, int libraryCode, const std::string& message)
    {
        EXPECT_EQ(cfg_get_errno(handle), code);
        EXPECT_EQ(cfg_get_exterror(handle), libraryCode);
        const LDIF_Exception* const kept = static_cast<cfg_handle*>(handle)->lastException;
        ASSERT_NE(kept, nullptr);
        EXPECT_EQ(kept->ldapErr, code);
        EXPECT_EQ(kept->msg, message);
    }

    static void expectNothingKept(void* handle, int code)
    {
        EXPECT_EQ(cfg_get_errno(handle), code);
        EXPECT_EQ(cfg_get_exterror(handle), code);
        EXPECT_EQ(cfg_dump_exception(handle), nullptr);
    }

private:
    EnvironmentGuard environment_{"LC_ALL", "C.UTF-8"};
    LocaleGuard locale_{"C.UTF-8"};
    TemporaryFolder folder_;
};

} // namespace veltor::test

#endif
