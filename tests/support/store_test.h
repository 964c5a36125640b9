// What the tests of the store share: a fixture with a folder, a fixed locale and stores loaded from text.
#ifndef VELTOR_TESTS_STORE_TEST_H
#define VELTOR_TESTS_STORE_TEST_H

#include "support/ldif.h"
#include "support/locale_guard.h"
#include "support/temporary_folder.h"

#include "LDIF_File.h"

#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

namespace veltor::test {

/// The tree of a store as a write would put it into the file, without the trailing comment.
inline std::string treeText(const LDIF_File& store)
{
    std::ostringstream stream;
    stream << store.root;
    return stream.str();
}

class StoreTest : public ::testing::Test
{
protected:
    static constexpr char fileName[] = "zorslapd.conf";

    const TemporaryFolder& folder() const { return folder_; }
    std::string path() const { return folder_.path(fileName); }
    std::string onDisk() const { return folder_.read(fileName); }

    /// A store that was loaded from a file of this text.
    std::unique_ptr<LDIF_File> loaded(std::string_view text) const
    {
        return std::make_unique<LDIF_File>(folder_.write(fileName, text), "");
    }
    std::unique_ptr<LDIF_File> reloaded() const { return std::make_unique<LDIF_File>(path(), ""); }

private:
    LocaleGuard locale_{"C.UTF-8"};
    TemporaryFolder folder_;
};

} // namespace veltor::test

#endif
