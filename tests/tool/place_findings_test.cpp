// What is told about the place of a file, by modes and owners. Others are let into the folder for it.
#include "findings.h"

#include "support/temporary_folder.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace veltor::tool;
using Kinds = std::vector<std::string>;

class PlaceFindings : public testing::Test
{
protected:
    PlaceFindings()
    {
        put(file_, "dn: cn=Configuration\nobjectclass: top\n");
        put(backup_, "dn: cn=Configuration\nobjectclass: top\n");
        letOthersIn(true);
    }

    static void put(const std::string& name, const std::string& text)
    {
        std::ofstream(name) << text;
        ::chmod(name.c_str(), 0640);
    }

    void letOthersIn(bool may) const { ::chmod(temporary_.path().c_str(), may ? 0755 : 0700); }

    /// True where the folder of temporary files is closed, so that others get nowhere below it.
    bool isClosedAbove() const
    {
        using std::filesystem::perms;
        const std::filesystem::path folder = std::filesystem::canonical(temporary_.path());
        for (std::filesystem::path above = folder.parent_path(); above.has_relative_path();
             above = above.parent_path()) {
            if ((std::filesystem::status(above).permissions() & perms::others_exec) == perms::none) {
                return true;
            }
        }
        return false;
    }

    Kinds kinds() const
    {
        Kinds found;
        for (const Finding& finding : placeFindingsOf(file_)) {
            found.push_back(finding.kind);
        }
        return found;
    }

    const veltor::test::TemporaryFolder temporary_;
    std::string file_ = temporary_.path("in.conf");
    std::string backup_ = temporary_.path("in.conf.bak");
};

} // namespace

TEST_F(PlaceFindings, NothingIsSaidOfFilesThatAreSafe)
{
    EXPECT_EQ(kinds(), Kinds());
    ::unlink(backup_.c_str());
    EXPECT_EQ(kinds(), Kinds());
    ::unlink(file_.c_str());
    EXPECT_EQ(kinds(), Kinds());
}

TEST_F(PlaceFindings, WhatEverybodyMayReadIsToldWhereEverybodyGets)
{
    if (isClosedAbove()) {
        GTEST_SKIP() << "others get nowhere below the folder of temporary files";
    }
    ::chmod(file_.c_str(), 0644);
    EXPECT_EQ(kinds(), Kinds({"readable-file"}));
    ::chmod(backup_.c_str(), 0666);
    EXPECT_EQ(kinds(), Kinds({"readable-file", "backup-readable", "backup-writable"}));
    const std::vector<Finding> findings = placeFindingsOf(file_);
    EXPECT_TRUE(std::all_of(findings.begin(), findings.end(),
                            [](const Finding& finding) { return finding.severity == Severity::warning; }));
    letOthersIn(false);
    EXPECT_EQ(kinds(), Kinds());
}

TEST_F(PlaceFindings, BackupThatIsOfNoUseIsANote)
{
    put(backup_, "junk\n");
    const std::vector<Finding> findings = placeFindingsOf(file_);
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings.front().kind, "backup-does-not-load");
    EXPECT_EQ(findings.front().severity, Severity::note);
    EXPECT_NE(findings.front().message.find(backup_), std::string::npos);
}

TEST_F(PlaceFindings, StrangersAreToldAsOwners)
{
    constexpr uid_t stranger = 4242;
    if (::chown(file_.c_str(), stranger, static_cast<gid_t>(-1)) != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    EXPECT_EQ(kinds(), Kinds({"foreign-owner"}));
    ASSERT_EQ(::chown(backup_.c_str(), stranger, static_cast<gid_t>(-1)), 0);
    EXPECT_EQ(kinds(), Kinds({"foreign-owner", "backup-foreign-owner"}));
    EXPECT_NE(placeFindingsOf(file_).front().message.find("4242"), std::string::npos);
}
