// The whole map from result codes to exit codes. Scripts rely on it: a changed row is a broken promise.
#include "exit_codes.h"

#include <gtest/gtest.h>
#include <set>

using veltor::tool::ExitCode;
using veltor::tool::exitCodeFor;
using veltor::tool::Stage;

namespace {

struct Row
{
    int ldap;
    ExitCode searching, binding;
};

// Every code that the library uses, and those of the documented exit codes.
const Row rows[] = {
    {0, ExitCode::done, ExitCode::done},
    {16, ExitCode::entry, ExitCode::entry},
    {18, ExitCode::refused, ExitCode::refused},
    {19, ExitCode::refused, ExitCode::refused},
    {20, ExitCode::entry, ExitCode::entry},
    {21, ExitCode::refused, ExitCode::authentication},
    {32, ExitCode::entry, ExitCode::authentication},
    {34, ExitCode::refused, ExitCode::refused},
    {49, ExitCode::authentication, ExitCode::authentication},
    {50, ExitCode::writeFailed, ExitCode::writeFailed},
    {51, ExitCode::busy, ExitCode::busy},
    {53, ExitCode::refused, ExitCode::refused},
    {65, ExitCode::refused, ExitCode::refused},
    {66, ExitCode::entry, ExitCode::entry},
    {68, ExitCode::entry, ExitCode::entry},
    {80, ExitCode::internal, ExitCode::file},
    {84, ExitCode::file, ExitCode::file},
    {86, ExitCode::internal, ExitCode::internal},
    {89, ExitCode::internal, ExitCode::internal},
    {90, ExitCode::internal, ExitCode::internal},
    {91, ExitCode::file, ExitCode::file},
    {92, ExitCode::internal, ExitCode::internal},
    {162, ExitCode::refused, ExitCode::refused},
    {163, ExitCode::refused, ExitCode::refused},
};

} // namespace

TEST(ExitCodes, EveryCodeOfTheLibraryHasItsExitCode)
{
    for (const Row& row : rows) {
        SCOPED_TRACE(row.ldap);
        EXPECT_EQ(exitCodeFor(Stage::search, row.ldap, 0), row.searching);
        EXPECT_EQ(exitCodeFor(Stage::update, row.ldap, 0), row.searching);
        EXPECT_EQ(exitCodeFor(Stage::bind, row.ldap, 0), row.binding);
    }
}

TEST(ExitCodes, AFailureThatNamesALineOfTheFileIsTheFilesWhateverWasAsked)
{
    for (const Row& row : rows) {
        SCOPED_TRACE(row.ldap);
        const ExitCode expected = row.ldap == 0 ? ExitCode::done : ExitCode::file;
        EXPECT_EQ(exitCodeFor(Stage::search, row.ldap, 42), expected);
        EXPECT_EQ(exitCodeFor(Stage::bind, row.ldap, 42), expected);
    }
}

TEST(ExitCodes, ACodeThatNoRowKnowsIsInternal)
{
    std::set<int> known;
    for (const Row& row : rows) {
        known.insert(row.ldap);
    }
    for (int code = -20; code < 1100; ++code) {
        if (known.count(code) == 0) {
            SCOPED_TRACE(code);
            EXPECT_EQ(exitCodeFor(Stage::search, code, 0), ExitCode::internal);
            EXPECT_EQ(exitCodeFor(Stage::bind, code, 0), ExitCode::internal);
        }
    }
}

TEST(ExitCodes, TheNumbersAreThoseThatScriptsTest)
{
    EXPECT_EQ(static_cast<int>(ExitCode::done), 0);
    EXPECT_EQ(static_cast<int>(ExitCode::no), 1);
    EXPECT_EQ(static_cast<int>(ExitCode::usage), 2);
    EXPECT_EQ(static_cast<int>(ExitCode::refused), 3);
    EXPECT_EQ(static_cast<int>(ExitCode::file), 4);
    EXPECT_EQ(static_cast<int>(ExitCode::authentication), 5);
    EXPECT_EQ(static_cast<int>(ExitCode::busy), 6);
    EXPECT_EQ(static_cast<int>(ExitCode::writeFailed), 7);
    EXPECT_EQ(static_cast<int>(ExitCode::entry), 8);
    EXPECT_EQ(static_cast<int>(ExitCode::internal), 70);
}
