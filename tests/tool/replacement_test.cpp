// Texts in the place of files that do not load, that are gone, or that somebody else changes meanwhile.
#include "replacement.h"
#include "support/temporary_folder.h"
#include "whole_text.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace veltor::tool;

constexpr const char* good = "dn: cn=Configuration\nobjectclass: top\nzor-slapdPort: 389\n";
constexpr const char* broken = "dn: cn=Configuration\n\nzor-slapdPort: 389\n";

WipedText textOf(std::string_view text)
{
    WipedText copy;
    append(copy, text);
    return copy;
}

class ReplacementTest : public testing::Test
{
protected:
    ReplacementTest()
    {
        temporary_.write("new.conf", good);
        target_.file = file_;
        options_.lockTimeoutSeconds = 0;
        outputOptions_.quiet = true;
    }
    std::string content(const std::string& name = "in.conf") const
    {
        return temporary_.exists(name) ? temporary_.read(name) : "";
    }

    /// Replaces the text that was shown by the good one.
    ExitCode replace(const std::optional<std::string>& shown)
    {
        const Session reading(readingOf(temporary_.path("new.conf")));
        Replacement replacement;
        if (shown) {
            replacement.before = textOf(*shown);
        }
        replacement.after = textOf(good);
        replacement.readFrom = reading.handle();
        replacement.log = "by a test";
        try {
            return replaceWholeText(std::move(replacement), target_, options_, output_);
        } catch (const Failure& failure) {
            message_ = failure.message();
            return failure.exit();
        }
    }

    const veltor::test::TemporaryFolder temporary_;
    const std::string folder_ = temporary_.path();
    const std::string file_ = temporary_.path("in.conf");
    std::string message_;
    TargetOptions target_;
    WriteOptions options_;
    OutputOptions outputOptions_;
    Output output_{outputOptions_};
};

TEST_F(ReplacementTest, ReplacesAFileThatLoadsOneThatDoesNotAndOneThatIsGone)
{
    const struct
    {
        const char* name;
        std::optional<std::string> old;
    } rows[] = {{"loads", "version: 1\n"}, {"does not load", broken}, {"is gone", std::nullopt}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ::unlink(file_.c_str());
        ::unlink((file_ + ".bak").c_str());
        if (row.old) {
            temporary_.write("in.conf", *row.old);
        }
        EXPECT_EQ(replace(row.old), ExitCode::done) << message_;
        EXPECT_EQ(content(), good);
        EXPECT_EQ(content("in.conf.bak"), row.old.value_or(""));
    }
}

TEST_F(ReplacementTest, LeavesATextAloneThatWasNotShown)
{
    for (const char* text : {"version: 1\n", broken}) {
        temporary_.write("in.conf", text);
        for (const std::optional<std::string>& shown :
             {std::optional<std::string>("dn: o=other\n"), std::optional<std::string>()}) {
            EXPECT_EQ(replace(shown), ExitCode::busy);
            EXPECT_NE(message_.find("nothing was written"), std::string::npos) << message_;
            EXPECT_EQ(content(), text);
        }
    }
    ::unlink(file_.c_str());
    EXPECT_EQ(replace("dn: o=other\n"), ExitCode::file);
    EXPECT_NE(::access(file_.c_str(), F_OK), 0);
}

TEST_F(ReplacementTest, WaitsForNoWriterLongerThanItMay)
{
    temporary_.write("in.conf", good);
    const ChangeEngine holder(target_, options_, output_);
    // It can't be read any more, and its lock is held all the same.
    temporary_.write("in.conf", broken);
    EXPECT_EQ(replace(broken), ExitCode::busy);
    EXPECT_NE(message_.find("is being changed by process"), std::string::npos) << message_;
    EXPECT_EQ(content(), broken);
}

TEST_F(ReplacementTest, OfAFileThatDoesNotLoadIsForRootAndItsOwner)
{
    ASSERT_EQ(::chmod(folder_.c_str(), 0755), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        constexpr uid_t nobody = 65534;
        if (::geteuid() == 0 && ::setuid(nobody) != 0) {
            ::_exit(1);
        }
        // Everybody may read it, and it is no configuration.
        target_.file = "/etc/passwd";
        std::ifstream stream("/etc/passwd");
        const std::string text{std::istreambuf_iterator<char>(stream), {}};
        ::_exit(replace(text) == ExitCode::authentication ? 0 : 2);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(ReplacementTest, ThatIsDryWritesNothing)
{
    options_.dryRun = true;
    options_.exitCode = true;
    temporary_.write("in.conf", broken);
    EXPECT_EQ(replace(broken), ExitCode::no);
    EXPECT_EQ(content(), broken);
    ::unlink(file_.c_str());
    EXPECT_EQ(replace(std::nullopt), ExitCode::no);
    EXPECT_NE(::access(file_.c_str(), F_OK), 0);
}

} // namespace
