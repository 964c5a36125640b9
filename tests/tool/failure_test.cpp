// The form of the tool's error messages.
#include "failure.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>

using veltor::tool::ExitCode;
using veltor::tool::Failure;
using veltor::tool::unreadableFile;
using veltor::tool::wrongCredentials;

TEST(Failure, IsPrintedWithItsDetailsIndented)
{
    const Failure failure(ExitCode::refused, "headline", {"first", "second"});
    EXPECT_EQ(failure.message(), "veltor: error: headline\n  first\n  second\n");
    EXPECT_EQ(failure.exit(), ExitCode::refused);
    EXPECT_STREQ(failure.what(), "headline");
}

TEST(Failure, ShowsControlCharactersInEveryLine)
{
    const Failure failure(ExitCode::refused, "a\x1B[2J", {"b\nveltor: error: forged"});
    EXPECT_EQ(failure.message(), "veltor: error: a\\x1b[2J\n  b\\x0aveltor: error: forged\n");
}

TEST(Failure, TellsWhyAFileCannotBeRead)
{
    const std::optional<Failure> missing = unreadableFile("/nonexistent/zorslapd.conf");
    ASSERT_TRUE(missing.has_value());
    EXPECT_EQ(missing->exit(), ExitCode::file);
    EXPECT_EQ(missing->message(), "veltor: error: /nonexistent/zorslapd.conf: No such file or directory\n"
                                  "  result 91 (Connect error), code 1003 (Configuration file not found.)\n"
                                  "  nothing was read; name the file with -F FILE or in VELTOR_FILE\n");
    EXPECT_FALSE(unreadableFile(std::string(VELTOR_EXAMPLES) + "/zorslapd.conf").has_value());
}

TEST(Failure, OfWrongCredentialsNamesTheDnAndTheCode)
{
    const Failure failure = wrongCredentials("cn=root", "reason");
    EXPECT_EQ(failure.exit(), ExitCode::authentication);
    EXPECT_EQ(failure.message(), "veltor: error: cn=root: wrong DN or password\n"
                                 "  result 49 (Invalid credentials)\n"
                                 "  nothing was done; reason\n");
}
