// What the tests of faults share: handles that write safely, one change, and what lies on the disk afterwards.
#ifndef VELTOR_TESTS_FAULT_TEST_H
#define VELTOR_TESTS_FAULT_TEST_H

#include "support/api_test.h"
#include "support/mods.h"
#include "support/told_by_child.h"

#include "veltor/cfg_admin.h"

#include <cstddef>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include <unistd.h>

namespace veltor::test {

class FaultTest : public ApiTest
{
protected:
    static constexpr char fileName[] = "zorslapd.conf";
    // As a write gives it, so that a change shows alone.
    static constexpr char oldText[] = "charset: UTF-8\nversion: 1\n\n"
                                      "dn: o=x\nobjectclass: top\n\n"
                                      "# the first one\ndn: cn=a, o=x\nobjectclass: top\nzor-slapdPort: 389\n\n";
    static constexpr char oldInPlace[] = "the old text is in place";

    static std::string withPort(std::string_view text, const std::string& port)
    {
        const std::string_view label = "zor-slapdPort: ";
        const std::size_t begin = text.find(label) + label.size();
        return std::string(text.substr(0, begin)) + port + std::string(text.substr(text.find('\n', begin)));
    }

    /// A handle that is to write that file safely; not bound.
    static Handle careful(const std::string& path, const std::string& backup = "")
    {
        Handle handle(cfg_init());
        cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, path.c_str());
        if (!backup.empty()) {
            cfg_set_option(handle.get(), CFG_OPT_BACKUP_FILE, backup.c_str());
        }
        cfg_set_write_mode(handle.get(), CFG_WRITE_SAFE);
        return handle;
    }

    static int bind(const Handle& handle) { return cfg_bind_s(handle.get(), nullptr, nullptr, simple); }

    /// @throws std::runtime_error when the file can't be read
    static Handle boundTo(const std::string& path, const std::string& backup = "")
    {
        Handle handle = careful(path, backup);
        if (bind(handle) != 0) {
            throw std::runtime_error(failureOf(handle));
        }
        return handle;
    }

    static int setPort(const Handle& handle, const std::string& port)
    {
        Mods mods({{LDAP_MOD_REPLACE, "zor-slapdPort", {{port}}}});
        return cfg_modify_s(handle.get(), "cn=a,o=x", mods.list());
    }

    /// "50/1004 Unable to ..." as the handle keeps it; empty when it keeps nothing.
    static std::string failureOf(const Handle& handle)
    {
        const LDIF_Exception* const kept = static_cast<const cfg_handle*>(handle.get())->lastException;
        return kept == nullptr ? ""
                               : std::to_string(kept->ldapErr) + "/" + std::to_string(kept->extErr) + " " + kept->msg;
    }

    /// The file as a commit would write it: what a search sees.
    static std::string inMemory(const Handle& handle)
    {
        char* text = nullptr;
        std::size_t size = 0;
        if (cfg_render_s(handle.get(), &text, &size) != 0) {
            return failureOf(handle);
        }
        const Text owned(text);
        return {text, size};
    }

    static std::set<std::string> namesIn(const std::filesystem::path& folder)
    {
        std::set<std::string> names;
        for (const auto& file : std::filesystem::directory_iterator(folder)) {
            names.insert(file.path().filename());
        }
        return names;
    }
};

} // namespace veltor::test

#endif
