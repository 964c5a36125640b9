// What the command line assigns, as records.
#include "assignments.h"

#include "failure.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace veltor::tool;

ExitCode exitOf(const std::vector<std::string>& assignments)
{
    try {
        recordOf("cn=Configuration", assignments, "", false);
    } catch (const Failure& failure) {
        return failure.exit();
    }
    return ExitCode::done;
}

TEST(Assignments, BecomeOperationsWithFullNames)
{
    const ChangeRecord record =
        recordOf("cn=Configuration",
                 {"port=1389", "referral+=ldap://a?b=c", "REFERRAL+=ldap://d", "referral-=ldap://e"}, "why", false);
    ASSERT_EQ(record.operations.size(), 3U);
    EXPECT_EQ(record.operations[0].kind, ChangeOperation::Kind::replace);
    EXPECT_EQ(record.operations[0].attribute, "zor-slapdPort");
    EXPECT_EQ(record.operations[0].comment, "why");
    EXPECT_EQ(record.operations[1].kind, ChangeOperation::Kind::add);
    ASSERT_EQ(record.operations[1].values.size(), 2U);
    EXPECT_STREQ(record.operations[1].values[0].text.data(), "ldap://a?b=c");
    EXPECT_STREQ(record.operations[1].values[1].text.data(), "ldap://d");
    EXPECT_EQ(record.operations[2].kind, ChangeOperation::Kind::remove);
}

TEST(Assignments, AreRefusedWithTheirExitCodes)
{
    struct Row
    {
        const char* assignment;
        ExitCode exit;
    };
    for (const Row& row : {Row{"port", ExitCode::usage}, Row{"port=", ExitCode::usage}, Row{"=x", ExitCode::usage},
                           Row{"+=x", ExitCode::refused}, Row{"adminPW=x", ExitCode::usage},
                           Row{"nothing like it=x", ExitCode::refused}, Row{"unheardOf=x", ExitCode::refused},
                           Row{"errorLog= x", ExitCode::refused}, Row{"errorLog=a\tb", ExitCode::done},
                           Row{"errorLog=a\x1B", ExitCode::refused}, Row{"setenv=***", ExitCode::refused}}) {
        EXPECT_EQ(exitOf({row.assignment}), row.exit) << row.assignment;
    }
    EXPECT_EQ(recordOf("cn=Configuration", {"unheardOf=x"}, "", true).operations.front().attribute, "unheardOf");
}

} // namespace
